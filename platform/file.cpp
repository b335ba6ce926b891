#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/write_all.h"
#include "QORFile.h"
#include "platform/fault_injection.h"

namespace {

using qor::fault::Op;

// The status of a failed call: 0x8007 in the high half, the error number in the low half.
int status_of(int err) {
  return static_cast<int>(0x80070000u | (static_cast<unsigned>(err) & 0xFFFFu));
}

int injected(Op op, int err) { return qor::fault::should_fail(op) ? status_of(err) : 0; }

}  // namespace

int _QORFileAccess(const QORUnicodeString &path, int mode, int flags) {
  if (const int s = injected(Op::FileAccess, EACCES)) return s;
  if (flags != 0 || (mode & ~7) != 0) return status_of(EINVAL);
  if (path.IsEmpty()) return status_of(ENOENT);
  int how = F_OK;
  if (mode & 2) how |= W_OK;
  if (mode & 4) how |= R_OK;
  if (mode & 1) how |= X_OK;
  return ::access(path, how) == 0 ? 0 : status_of(errno);
}

int QORIdenticaleFile(QORUnicodeString *a, QORUnicodeString *b) {
  if (const int s = injected(Op::IdenticalFile, EIO)) return s;
  if (a == nullptr || b == nullptr) return status_of(EINVAL);
  struct stat sa, sb;
  if (::stat(*a, &sa) != 0) return status_of(errno);
  if (::stat(*b, &sb) != 0) return status_of(errno);
  return (sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino) ? 0 : 1;
}

int QORMakePath(QORUnicodeString *path, QORUnicodeString *name) {
  if (const int s = injected(Op::MakePath, ENAMETOOLONG)) return s;
  if (path == nullptr || name == nullptr || name->IsEmpty()) return status_of(EINVAL);
  const char *p = *path;
  const size_t n = std::strlen(p);
  if (n > 0 && p[n - 1] != '/') *path += "/";
  *path += *name;
  return 0;
}

int QORFOpen(const QORUnicodeString &path, const char *mode, unsigned int *descriptor) {
  if (const int s = injected(Op::FOpen, EACCES)) return s;
  if (descriptor == nullptr || mode == nullptr || path.IsEmpty()) return status_of(EINVAL);
  bool read = false, write = false, create = false, append = false, truncate = false;
  switch (mode[0]) {
    case 'r': read = true; break;
    case 'w': write = create = truncate = true; break;
    case 'a': write = create = append = true; break;
    default: return status_of(EINVAL);
  }
  for (const char *c = mode + 1; *c != '\0'; ++c) {
    if (*c == '+') read = write = true;
    else if (*c == 'c') create = true;
  }
  int flags = O_CLOEXEC;
  flags |= (read && write) ? O_RDWR : (write ? O_WRONLY : O_RDONLY);
  if (create) flags |= O_CREAT;
  if (append) flags |= O_APPEND;
  if (truncate) flags |= O_TRUNC;
  const int fd = ::open(path, flags, 0666);
  if (fd < 0) return status_of(errno);
  *descriptor = static_cast<unsigned int>(fd);
  return 0;
}

int QORFClose(unsigned int descriptor) {
  if (const int s = injected(Op::FClose, EIO)) return s;
  if (descriptor > 0x7FFFFFFFu) return status_of(EBADF);
  return ::close(static_cast<int>(descriptor)) == 0 ? 0 : status_of(errno);
}

int QORFCopy(const QORUnicodeString &from, const QORUnicodeString &to, int overwrite) {
  if (const int s = injected(Op::FCopy, EIO)) return s;
  const int in = ::open(from, O_RDONLY | O_CLOEXEC);
  if (in < 0) return status_of(errno);
  const int out = ::open(to, O_WRONLY | O_CREAT | O_CLOEXEC | (overwrite ? O_TRUNC : O_EXCL),
                         0666);
  if (out < 0) {
    const int e = errno;
    ::close(in);
    return status_of(e);
  }
  char buf[65536];
  int status = 0;
  for (;;) {
    const ssize_t r = ::read(in, buf, sizeof buf);
    if (r < 0 && errno == EINTR) continue;
    if (r < 0) {
      status = status_of(errno);
      break;
    }
    if (r == 0) break;
    if (const int err = qor::write_all(out, buf, static_cast<size_t>(r))) status = status_of(err);
    if (status != 0) break;
  }
  ::close(in);
  if (::close(out) != 0 && status == 0) status = status_of(errno);
  return status;
}

int _QORDeleteFile(const QORUnicodeString &path) {
  if (const int s = injected(Op::DeleteFile, EACCES)) return s;
  if (path.IsEmpty()) return status_of(ENOENT);
  return ::unlink(path) == 0 ? 0 : status_of(errno);
}
