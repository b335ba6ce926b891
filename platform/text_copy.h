// A copy of a C text on the heap (new[]), shared by the objects that keep their own texts.
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
