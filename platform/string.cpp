#include "QORString.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// Copies `length` bytes of `text` into a new terminated buffer.
char *dup_bytes(const char *text, size_t length) {
  char *p = new char[length + 1];
  if (length > 0) std::memcpy(p, text, length);
  p[length] = '\0';
  return p;
}

template <typename T>
int format_number(char (&buf)[512], const char *format, T value) {
  const int n = std::snprintf(buf, sizeof buf, format, value);
  if (n < 0) return 0;
  return n < static_cast<int>(sizeof buf) ? n : static_cast<int>(sizeof buf) - 1;
}

}  // namespace

// ---------------------------------------------------------------- QORUnicodeString

QORUnicodeString::QORUnicodeString() : _Text(dup_bytes("", 0)), _Length(0) {}

QORUnicodeString::QORUnicodeString(const char *text) : _Text(nullptr), _Length(0) {
  Assign(text, text != nullptr ? std::strlen(text) : 0);
}

QORUnicodeString::QORUnicodeString(const char *text, int length) : _Text(nullptr), _Length(0) {
  size_t n = 0;
  if (text != nullptr && length > 0) {
    const void *nul = std::memchr(text, '\0', static_cast<size_t>(length));
    n = nul != nullptr ? static_cast<size_t>(static_cast<const char *>(nul) - text)
                       : static_cast<size_t>(length);
  }
  Assign(text, n);
}

QORUnicodeString::QORUnicodeString(const QORUnicodeString &other) : _Text(nullptr), _Length(0) {
  Assign(other._Text, other._Length);
}

QORUnicodeString::QORUnicodeString(QORUnicodeString &&other) noexcept
    : _Text(other._Text), _Length(other._Length) {
  other._Text = nullptr;
  other._Length = 0;
}

QORUnicodeString::~QORUnicodeString() { delete[] _Text; }

void QORUnicodeString::Assign(const char *text, size_t length) {
  char *p = dup_bytes(text, length);
  delete[] _Text;
  _Text = p;
  _Length = length;
}

void QORUnicodeString::Append(const char *text, size_t length) {
  if (length == 0) return;
  char *p = new char[_Length + length + 1];
  if (_Length > 0) std::memcpy(p, _Text, _Length);
  std::memcpy(p + _Length, text, length);
  p[_Length + length] = '\0';
  delete[] _Text;
  _Text = p;
  _Length += length;
}

QORUnicodeString &QORUnicodeString::operator=(const QORUnicodeString &other) {
  if (this != &other) Assign(other._Text, other._Length);
  return *this;
}

QORUnicodeString &QORUnicodeString::operator=(QORUnicodeString &&other) noexcept {
  if (this != &other) {
    delete[] _Text;
    _Text = other._Text;
    _Length = other._Length;
    other._Text = nullptr;
    other._Length = 0;
  }
  return *this;
}

QORUnicodeString &QORUnicodeString::operator=(const char *text) {
  // `text` may point into this string: Assign copies before it frees.
  Assign(text, text != nullptr ? std::strlen(text) : 0);
  return *this;
}

QORUnicodeString &QORUnicodeString::operator+=(const QORUnicodeString &other) {
  if (&other == this) {
    QORUnicodeString copy(other);
    Append(copy._Text, copy._Length);
  } else {
    Append(other._Text, other._Length);
  }
  return *this;
}

QORUnicodeString &QORUnicodeString::operator+=(const char *text) {
  if (text == nullptr) return *this;
  QORUnicodeString copy(text);  // `text` may point into this string
  Append(copy._Text, copy._Length);
  return *this;
}

QORUnicodeString QORUnicodeString::operator+(const QORUnicodeString &other) const {
  QORUnicodeString r(*this);
  r += other;
  return r;
}

QORUnicodeString QORUnicodeString::operator+(const char *text) const {
  QORUnicodeString r(*this);
  r += text;
  return r;
}

bool QORUnicodeString::operator==(const QORUnicodeString &other) const {
  const char *a = _Text != nullptr ? _Text : "";
  const char *b = other._Text != nullptr ? other._Text : "";
  return _Length == other._Length && std::memcmp(a, b, _Length) == 0;
}

bool QORUnicodeString::operator!=(const QORUnicodeString &other) const {
  return !(*this == other);
}

QORUnicodeString::operator const char *() const { return _Text != nullptr ? _Text : ""; }

const char *QORUnicodeString::ConvertToChar() const { return _Text != nullptr ? _Text : ""; }

QORUnicodeString &QORUnicodeString::BuildFromNum(int value, const char *format) {
  char buf[512];
  const int n = format_number(buf, format != nullptr ? format : "%d", value);
  Assign(buf, static_cast<size_t>(n));
  return *this;
}

QORUnicodeString &QORUnicodeString::BuildFromNum(double value, const char *format) {
  char buf[512];
  const int n = format_number(buf, format != nullptr ? format : "%g", value);
  Assign(buf, static_cast<size_t>(n));
  return *this;
}

QORUnicodeString &QORUnicodeString::BuildFromNum(unsigned long value, const char *format) {
  char buf[512];
  const int n = format_number(buf, format != nullptr ? format : "%lu", value);
  Assign(buf, static_cast<size_t>(n));
  return *this;
}

int QORUnicodeString::GetLengthInChar() const {
  // Counts the bytes that do not continue a UTF-8 sequence.
  int n = 0;
  for (size_t i = 0; i < _Length; ++i)
    if ((static_cast<unsigned char>(_Text[i]) & 0xC0u) != 0x80u) ++n;
  return n;
}

int QORUnicodeString::GetLengthInByte() const { return static_cast<int>(_Length); }

bool QORUnicodeString::IsEmpty() const { return _Length == 0; }

// ---------------------------------------------------------------- QORString

QORString::QORString() : _Text(dup_bytes("", 0)), _Length(0) {}
QORString::QORString(const char *text) : _Text(nullptr), _Length(0) { Assign(text); }
QORString::QORString(char *text) : _Text(nullptr), _Length(0) { Assign(text); }
QORString::QORString(const QORString &other) : _Text(nullptr), _Length(0) {
  Assign(other._Text);
}
QORString::~QORString() { delete[] _Text; }

void QORString::Assign(const char *text) {
  const size_t n = text != nullptr ? std::strlen(text) : 0;
  char *p = dup_bytes(text, n);
  delete[] _Text;
  _Text = p;
  _Length = n;
}

QORString &QORString::operator=(const QORString &other) {
  if (this != &other) Assign(other._Text);
  return *this;
}
QORString &QORString::operator=(const char *text) {
  Assign(text);
  return *this;
}
QORString &QORString::operator=(char *text) {
  Assign(text);
  return *this;
}
bool QORString::operator==(const QORString &other) const {
  return std::strcmp(*this, other) == 0;
}
bool QORString::operator==(const char *text) const {
  return std::strcmp(*this, text != nullptr ? text : "") == 0;
}
QORString::operator const char *() const { return _Text != nullptr ? _Text : ""; }
int QORString::GetLength() const { return static_cast<int>(_Length); }
bool QORString::IsEmpty() const { return _Length == 0; }
