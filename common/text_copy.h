// A copy of a C text on the heap (new[]), shared by the objects of both libraries that keep
// their own texts. Header-only, internal: common/ holds what the platform and the library
// share without either exporting it.
#pragma once

#include <cstring>

namespace qor {

// A null text is copied as the empty text.
inline char *copy_text(const char *text) {
  if (text == nullptr) text = "";
  const size_t n = std::strlen(text);
  char *p = new char[n + 1];
  std::memcpy(p, text, n + 1);
  return p;
}

}  // namespace qor
