// Shared pieces of the spatial search.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

namespace qkm::spatial {

// Status of the spatial search's own failures: a bad call, or a state that must not occur.

inline constexpr int kUnexpected = static_cast<int>(0x8000ffffu);


// 2 to the power `level`, as pow(2.0, level) gives it (exact up to 1023, infinity above),
// built from its bits: cell sizes are derived at every box test of a query.
inline double two_to(unsigned int level) {
  if (level > 1023u) return HUGE_VAL;
  const uint64_t bits = static_cast<uint64_t>(1023u + level) << 52;
  double v;
  std::memcpy(&v, &bits, sizeof v);
  return v;
}

}  // namespace qkm::spatial
