// The redirection of standard output into the listing around one single put.
#pragma once

#include <unistd.h>

#include <cstdio>

#include "QORKytListing.h"

namespace qkm_services {

// Points standard output at the listing for the moment of `put`. Any failure of the
// redirection lets the put go to standard output instead; it is never lost.
template <typename Put>
void listing_pass(Put &&put) {
  const unsigned int descriptor = QORKytListingServices::GetDescriptor();
  if (descriptor == 0xFFFFFFFFu) {
    put();
    return;
  }
  const int out = ::fileno(stdout);
  const int saved = out >= 0 ? ::dup(out) : -1;
  if (saved < 0) {
    put();
    return;
  }
  const int redirected = ::dup2(static_cast<int>(descriptor), out);
  put();
  if (redirected >= 0) ::dup2(saved, out);
  ::close(saved);
}

}  // namespace qkm_services
