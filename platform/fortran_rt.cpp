#include "platform/write_all.h"
#include "QORFortranRT.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

extern "C" void for_stop_core(const char *text, int length, long long /*flags*/) {
  // Standard output is flushed by exit(); the message goes straight to descriptor 2 so it
  // is never lost in a buffer.
  std::fflush(stdout);
  if (text != nullptr && length > 0) qor::write_all(2, text, static_cast<size_t>(length));
  qor::write_all(2, "\n", 1);
  std::exit(1);
}
