#include "QORFortranRT.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

extern "C" void for_stop_core(const char *text, int length, long long /*flags*/) {
  // Standard output is flushed by exit(); the message goes straight to descriptor 2 so it
  // is never lost in a buffer.
  std::fflush(stdout);
  if (text != nullptr && length > 0) {
    const char *p = text;
    size_t left = static_cast<size_t>(length);
    while (left > 0) {
      const ssize_t w = ::write(2, p, left);
      if (w <= 0) break;
      p += w;
      left -= static_cast<size_t>(w);
    }
  }
  (void)!::write(2, "\n", 1);
  std::exit(1);
}
