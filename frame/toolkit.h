// Layouts, vector stepping and fixed reductions shared by the kernels: one copy of each.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>
#include <tuple>
#include <utility>

#include "frame/simd.h"
#include "frame/vec.h"

namespace qkm {

// ---- vector stepping --------------------------------------------------------------------
// Offset (in elements, 0-based) of the first element of a mirrored-start walk, the rule of
// the public BLAS: a negative stride starts at element 1 + (1 - n) * inc.
QKM_INLINE int64_t mirrored_start(int32_t n, int32_t inc) {
  return inc < 0 ? (1 - static_cast<int64_t>(n)) * inc : 0;
}
// Magnitude of a stride, for absolute-step addressing (always from element 1).
QKM_INLINE int64_t magnitude(int32_t inc) { return inc < 0 ? -static_cast<int64_t>(inc) : inc; }

// Elements to step one at a time before p is 64-byte aligned (at most n): element-wise loops
// do so, so that their wide stores never split a cache line.
QKM_INLINE int64_t head_to_align(const double *p, int64_t n) {
  const int64_t head = static_cast<int64_t>((64 - (reinterpret_cast<uintptr_t>(p) & 63)) & 63) / 8;
  return head < n ? head : n;
}

// ---- layouts ----------------------------------------------------------------------------
// Packed by rows: the lower triangle row after row, a(i,j) (j <= i, both 1-based) at the
// 0-based position packed_row0(i) + j - 1.
QKM_INLINE int64_t packed_row0(int64_t i) { return i * (i - 1) / 2; }

// Front of order n, lower triangle by columns with the diagonal first: a(i,j) (i >= j, both
// 1-based) at the 0-based position front_col0(n, j) + i - 1.
QKM_INLINE int64_t front_col0(int64_t n, int64_t j) { return (j - 1) * (2 * n - j) / 2; }

// ---- bitwise exchange -------------------------------------------------------------------
using vec::swap_bits;

// ---- run-time count to template argument ------------------------------------------------
// Calls f(std::integral_constant<int, r>{}) for r in [Lo, Hi]; nothing when r is outside.
template <int Lo, int Hi, class F>
QKM_INLINE void with_count(int r, F &&f) {
  if constexpr (Lo <= Hi) {
    if (r == Lo)
      f(std::integral_constant<int, Lo>{});
    else
      with_count<Lo + 1, Hi>(r, static_cast<F &&>(f));
  }
}

namespace detail {
template <class Term, size_t... I>
QKM_INLINE vec::v8d tail_round(Term &term, const double (*tail)[8], int off,
                               std::index_sequence<I...>) {
  return term(vec::load8(tail[I] + off)...);
}
}  // namespace detail

// ---- the ragged end of a split sum --------------------------------------------------------
// The last r lanes of v (0 < r < 8) moved down to lanes 0..r-1, +0.0 in the others: a sum
// whose last round is incomplete reads the final eight elements (in bounds once the sum has
// eight terms) and keeps only its own, with no padding copied and no lane written singly.
QKM_INLINE vec::v8d last_lanes(vec::v8d v, int64_t r) {
  // In registers: a shuffle per count, chosen by a jump, rather than a trip through memory
  // whose reload at an offset would wait for the store.
  const vec::v8d z = {};
  switch (r) {
    case 1: return __builtin_shufflevector(v, z, 7, 8, 9, 10, 11, 12, 13, 14);
    case 2: return __builtin_shufflevector(v, z, 6, 7, 8, 9, 10, 11, 12, 13);
    case 3: return __builtin_shufflevector(v, z, 5, 6, 7, 8, 9, 10, 11, 12);
    case 4: return __builtin_shufflevector(v, z, 4, 5, 6, 7, 8, 9, 10, 11);
    case 5: return __builtin_shufflevector(v, z, 3, 4, 5, 6, 7, 8, 9, 10);
    case 6: return __builtin_shufflevector(v, z, 2, 3, 4, 5, 6, 7, 8, 9);
    default: return __builtin_shufflevector(v, z, 1, 2, 3, 4, 5, 6, 7, 8);
  }
}

// ---- the fixed 32-partial split -----------------------------------------------------------
// Sum over i in [0, n) of term(p[i]...), split the same way on every instruction set:
// 32 partial sums, partial q taking the terms q, q+32, q+64, ... in order, each starting from
// +0.0. The partials are combined as (p[0..7] + p[8..15]) + (p[16..23] + p[24..31]) lane by
// lane, then the eight lanes as ((l0+l1)+(l2+l3))+((l4+l5)+(l6+l7)).
//
// The last, incomplete round adds its whole blocks of eight, then its last r < 8 terms, those
// of the final eight elements moved down by last_lanes with +0.0 in the other lanes (below
// eight elements in all, from zero-filled copies instead). A partial starts at +0.0 and so is
// never -0.0: adding +0.0 leaves its bits alone, and the result is that of skipping the
// missing terms.
//
// term takes one v8d per array and returns the v8d of the eight terms (+0.0 for zero input:
// products and magnitudes). Ahead > 0 prefetches the first array that many elements ahead,
// for sums that stream it from memory.
template <int Ahead = 0, class Term, class... P>
QKM_INLINE double sum32(int64_t n, Term term, const P *...p) {
  using vec::load8;
  using vec::v8d;
  // Four named accumulators, never indexed at run time, so that they stay in registers.
  v8d s0 = {}, s1 = s0, s2 = s0, s3 = s0;
  int64_t i = 0;
  for (; i + 32 <= n; i += 32) {
    if constexpr (Ahead > 0) {
      const double *first = std::get<0>(std::tie(p...));
      for (int k = 0; k < 32; k += 8) __builtin_prefetch(first + i + Ahead + k);
    }
    s0 = s0 + term(load8(p + i)...);
    s1 = s1 + term(load8(p + i + 8)...);
    s2 = s2 + term(load8(p + i + 16)...);
    s3 = s3 + term(load8(p + i + 24)...);
  }
  const int64_t rest = n - i;
  if (rest > 0 && n < 8) {
    double tail[sizeof...(P)][8] = {};
    {
      int t = 0;
      ((std::memcpy(tail[t++], p + i, static_cast<size_t>(rest) * sizeof(double))), ...);
    }
    s0 = s0 + detail::tail_round(term, tail, 0, std::index_sequence_for<P...>{});
  } else if (rest > 0) {
    if (rest >= 8) s0 = s0 + term(load8(p + i)...);
    if (rest >= 16) s1 = s1 + term(load8(p + i + 8)...);
    if (rest >= 24) s2 = s2 + term(load8(p + i + 16)...);
    if (const int64_t r = rest & 7) {
      const v8d tail = last_lanes(term(load8(p + n - 8)...), r);
      switch (rest >> 3) {
        case 0: s0 = s0 + tail; break;
        case 1: s1 = s1 + tail; break;
        case 2: s2 = s2 + tail; break;
        default: s3 = s3 + tail; break;
      }
    }
  }
  const v8d t = (s0 + s1) + (s2 + s3);
  return ((t[0] + t[1]) + (t[2] + t[3])) + ((t[4] + t[5]) + (t[6] + t[7]));
}

}  // namespace qkm
