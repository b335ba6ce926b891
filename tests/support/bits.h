// Helpers for bit-exact comparisons and untouched-sentinel checks.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "frame/simd.h"

namespace qkm_test {

inline uint64_t bits(double v) {
  uint64_t b;
  std::memcpy(&b, &v, sizeof b);
  return b;
}

// A NaN with a recognisable payload, for elements that a kernel must not touch.
inline double sentinel() {
  const uint64_t b = 0x7ff8dead0000beefULL;
  double v;
  std::memcpy(&v, &b, sizeof v);
  return v;
}
inline bool is_sentinel(double v) { return bits(v) == bits(sentinel()); }

// The instruction-set levels this machine can run; the tests repeat their checks on each.
inline std::vector<int> simd_levels() {
  std::vector<int> levels;
  for (int l = qkm::simd::Base; l <= qkm::simd::supported(); ++l) levels.push_back(l);
  return levels;
}

// Forces one level for the lifetime of the object.
struct SimdLevel {
  explicit SimdLevel(int level) { qkm::simd::set_override(level); }
  ~SimdLevel() { qkm::simd::set_override(-1); }
  SimdLevel(const SimdLevel &) = delete;
  SimdLevel &operator=(const SimdLevel &) = delete;
};

}  // namespace qkm_test
