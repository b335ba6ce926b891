// Helpers for bit-exact comparisons and untouched-sentinel checks.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
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

// n values uniform in [-1, 1) from a fixed seed: the same sequence on every run and compiler.
inline std::vector<double> uniform(std::size_t n, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  std::vector<double> v(n);
  for (auto &x : v) x = u(rng);
  return v;
}

// Element by element equal in every bit; the first difference is named.
inline ::testing::AssertionResult same_bits(const std::vector<double> &got,
                                            const std::vector<double> &want) {
  for (std::size_t i = 0; i < want.size(); ++i)
    if (bits(got[i]) != bits(want[i]))
      return ::testing::AssertionFailure() << i << ": " << got[i] << " for " << want[i];
  return ::testing::AssertionSuccess();
}

// The instruction-set levels this machine can run; the tests repeat their checks on each. A
// level the machine cannot run is reported as skipped (printed, and recorded as the test's
// "skipped_levels" property) rather than passing unnoticed.
inline std::vector<int> simd_levels() {
  static const char *const names[] = {"SSE2", "AVX2", "AVX-512"};
  std::vector<int> levels;
  std::string skipped;
  for (int l = qkm::simd::Base; l <= qkm::simd::Avx512; ++l) {
    if (l <= qkm::simd::supported()) {
      levels.push_back(l);
    } else {
      skipped += skipped.empty() ? names[l] : std::string(" ") + names[l];
    }
  }
  if (!skipped.empty()) {
    std::printf("[  SKIPPED ] instruction-set level(s) not run on this machine: %s\n",
                skipped.c_str());
    ::testing::Test::RecordProperty("skipped_levels", skipped);
  }
  return levels;
}

// Forces one level for the lifetime of the object; fails when the level did not take effect.
struct SimdLevel {
  explicit SimdLevel(int level) {
    qkm::simd::set_override(level);
    EXPECT_EQ(qkm::simd::active(), level) << "instruction-set level not in effect";
  }
  ~SimdLevel() { qkm::simd::set_override(-1); }
  SimdLevel(const SimdLevel &) = delete;
  SimdLevel &operator=(const SimdLevel &) = delete;
};

}  // namespace qkm_test
