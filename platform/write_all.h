// Writes a whole buffer to a descriptor, going on after short writes and interruptions.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace qor {

// 0 when every byte went out, otherwise the errno of the failure (EIO for a write of nothing).
inline int write_all(int fd, const char *p, size_t n) {
  while (n > 0) {
    const ssize_t w = ::write(fd, p, n);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return w < 0 ? errno : EIO;
    p += w;
    n -= static_cast<size_t>(w);
  }
  return 0;
}

}  // namespace qor
