#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "platform/write_all.h"
#include "common/text_copy.h"
#include "QORTrace.h"

namespace {

// Switch state of each trace name; a name never switched is on.
std::map<std::string, int> &switches() {
  static std::map<std::string, int> s;
  return s;
}

using qor::copy_text;

using qor::write_all;

}  // namespace

QORTrace::QORTrace(const char *name, const char *description, QORTraMode mode,
                   const char *destination, int size)
    : level(0),
      _Name(copy_text(name)),
      _Description(copy_text(description)),
      _Destination(copy_text(destination)),
      _Mode(mode),
      _Size(size > 0 ? size : 1024),
      _FileDescriptor(-1) {
  (void)switches();  // made before the first trace, so destroyed after the last one
  if (std::strcmp(_Destination, "STDOUT") != 0 && std::strcmp(_Destination, "STDERR") != 0 &&
      _Destination[0] != '\0')
    _FileDescriptor = ::open(_Destination, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
}

QORTrace::~QORTrace() {
  if (_FileDescriptor >= 0) ::close(_FileDescriptor);
  delete[] _Name;
  delete[] _Description;
  delete[] _Destination;
}

const char *QORTrace::GetName() const { return _Name; }
const char *QORTrace::GetDescription() const { return _Description; }
const char *QORTrace::GetDestination() const { return _Destination; }

int QORTrace::IsActive() const {
  const auto &s = switches();
  const auto it = s.find(_Name);
  return it == s.end() ? 1 : it->second;
}

void QORTrace::Write(const char *text, size_t length) {
  if (!IsActive() || length == 0) return;
  int fd;
  if (_FileDescriptor >= 0)
    fd = _FileDescriptor;
  else if (std::strcmp(_Destination, "STDERR") == 0)
    fd = 2;
  else
    fd = ::fileno(stdout);  // at the moment of the write: callers may redirect it
  if (fd < 0) return;
  write_all(fd, text, length);
}

void QORTrace::TraPut(const char *text) {
  if (text != nullptr) Write(text, std::strlen(text));
}

void QORTrace::TraPutLN(const char *text) {
  std::string line = text != nullptr ? text : "";
  line += '\n';
  Write(line.data(), line.size());
}

void QORTrace::TraPutLN(const char *text, int value) {
  std::string line = text != nullptr ? text : "";
  line += std::to_string(value);
  line += '\n';
  Write(line.data(), line.size());
}

void QORTrace::TraPrint(int lvl, const char *format, ...) {
  level = lvl;
  if (format == nullptr) return;
  std::vector<char> buf(static_cast<size_t>(_Size));
  va_list ap;
  va_start(ap, format);
  int n = std::vsnprintf(buf.data(), buf.size(), format, ap);
  va_end(ap);
  if (n < 0) return;
  if (static_cast<size_t>(n) >= buf.size()) {
    buf.resize(static_cast<size_t>(n) + 1);
    va_start(ap, format);
    n = std::vsnprintf(buf.data(), buf.size(), format, ap);
    va_end(ap);
    if (n < 0) return;
  }
  Write(buf.data(), static_cast<size_t>(n));
}

QORTraControle::QORTraControle(const char *name) : _Name(copy_text(name)) {}
QORTraControle::~QORTraControle() { delete[] _Name; }
void QORTraControle::TraPutFlg(int state) { switches()[_Name] = state != 0 ? 1 : 0; }
int QORTraControle::TraGetFlg() const {
  const auto &s = switches();
  const auto it = s.find(_Name);
  return it == s.end() ? 1 : it->second;
}
