// One mechanism for the instruction-set variants of a kernel.
//
// A kernel body is written once, as a template over the level:
//
//     template <int L> QKM_INLINE void axpy_body(int64_t n, double a, const double *x, double *y)
//     { using T = qkm::simd::Traits<L>; ... }
//
// and one line stamps out its SSE2, AVX2 and AVX-512 instances and the entry that runs the
// active one:
//
//     QKM_VARIANTS(void, axpy, (int64_t n, double a, const double *x, double *y), (n, a, x, y))
//
// defines `void axpy(int64_t n, double a, const double *x, double *y)`. The three instances
// stand in a constant table indexed by the level; the level is detected once per process
// (cpuid) and can be lowered by the tests' override.
//
// Rules every variant keeps, so that all levels give the baseline's bits:
//  - Element-wise loops use the fixed 8-wide type (v8d): each lane does exactly the rounded
//    operations of the scalar statement, so the width changes nothing, and one type keeps one
//    code shape on every level.
//  - Reductions whose split is free use a split that does not depend on the width (for
//    example the 32 partial sums of toolkit.h's Sum32): the level only decides how many of
//    those partials share a register.
//  - Every helper reachable from a variant body is QKM_INLINE (always_inline), so that it is
//    compiled inside each target instance with that instance's instruction set. A helper that
//    is not inlined would be compiled once, for the baseline, and silently slow the variants.
//  - No FMA: the whole library is built with -ffp-contract=off, and the target attributes
//    below do not name fma.
#pragma once

#include "frame/simd.h"
#include "frame/vec.h"

namespace qkm::simd {

// Per-level properties of the register file: the natural vector type of the level, its
// width in doubles, the register tile of the dense products (rows in vectors x columns), and
// update_rows, the 8-row blocks each column keeps in registers in the column-update tiles of
// the frontal elimination.
template <int L>
struct Traits {
  static constexpr int width = L == Avx512 ? 8 : L == Avx2 ? 4 : 2;
  using V = vec::vec_of<width>;
  // 16 xmm or ymm registers: 2 x 3; 32 zmm registers: 4 x 3.
  static constexpr int tile_rows = L == Avx512 ? 4 : 2, tile_cols = 3;
  static constexpr int update_rows = L == Avx512 ? 2 : 1;
};

}  // namespace qkm::simd

#define QKM_VARIANT_PARAMS_(...) __VA_ARGS__

// Defines `ret name params` running `name##_body<level> args` for the active level.
#define QKM_VARIANTS(ret, name, params, args)                                                  \
  static ret name##_l0 params { return name##_body<qkm::simd::Base> args; }                   \
  QKM_TARGET_AVX2 static ret name##_l1 params { return name##_body<qkm::simd::Avx2> args; }   \
  QKM_TARGET_AVX512 static ret name##_l2 params {                                              \
    return name##_body<qkm::simd::Avx512> args;                                                \
  }                                                                                            \
  [[maybe_unused]] static ret name params {                                                    \
    static constexpr ret(*const table[3]) params = {name##_l0, name##_l1, name##_l2};          \
    return table[qkm::simd::active()] args;                                                    \
  }
