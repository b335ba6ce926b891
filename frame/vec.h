// Lane vectors shared by the SIMD kernels: GCC vector extensions of 2, 4 and 8 doubles, which
// each target variant lowers to its own registers. Loads and stores go through memcpy, so
// no alignment is assumed and no aliasing rule is bent.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/simd.h"

namespace qkm::vec {

typedef double v2d __attribute__((vector_size(16)));
typedef double v4d __attribute__((vector_size(32)));
typedef double v8d __attribute__((vector_size(64)));

// The vector of W doubles, W = 2, 4 or 8.
template <int W>
using vec_of = std::conditional_t<W == 8, v8d, std::conditional_t<W == 4, v4d, v2d>>;

template <class V>
constexpr int lanes = sizeof(V) / sizeof(double);

template <class V>
QKM_INLINE V vload(const double *p) {
  V v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <class V>
QKM_INLINE void vstore(double *p, V v) {
  std::memcpy(p, &v, sizeof v);
}
template <class V>
QKM_INLINE V vsplat(double a) {
  V v;
  for (int l = 0; l < lanes<V>; ++l) v[l] = a;
  return v;
}

QKM_INLINE v8d load8(const double *p) { return vload<v8d>(p); }
QKM_INLINE void store8(double *p, v8d v) { vstore<v8d>(p, v); }
QKM_INLINE v8d splat8(double a) { return v8d{a, a, a, a, a, a, a, a}; }

// Exchanges two doubles as plain 64-bit moves: NaN payloads and signed zeros survive.
QKM_INLINE void swap_bits(double *p, double *q) {
  uint64_t a, b;
  std::memcpy(&a, p, 8);
  std::memcpy(&b, q, 8);
  std::memcpy(p, &b, 8);
  std::memcpy(q, &a, 8);
}

}  // namespace qkm::vec
