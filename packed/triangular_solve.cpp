// e_dtpsv: x is replaced by the solution of A*x = b or A^T*x = b, A triangular and packed by
// columns (upper: a(i,j) at i + j(j-1)/2; lower: diagonal first, a(i,j) at i + (2n-j)(j-1)/2).
//
// Four paths (A or A^T, upper or lower), each in a unit-stride form and a strided form that
// do the same arithmetic:
//  - With A, a column whose x_j is exactly 0.0 is skipped (nothing divided, no update); the
//    updates x_i = x_i - x_j * a(i,j) touch each x_i once, so the unit-stride form runs them
//    eight lanes at a time. The strided form keeps the order of the public routine, which
//    matters only when the stride is 0 and every update falls on x(1).
//  - With A^T, t = x_j minus the terms a(i,j) * x_i, then always divided. Below eight terms
//    they are subtracted one by one in the order of the public routine (ascending i for
//    upper, descending for lower). From eight terms on, one fixed split on every processor
//    and in either form: the other terms are summed first, then t = (x_j - sum) - a(k,j) * x_k
//    with k the row next to the diagonal (j - 1 upper, j + 1 lower), whose x_k the previous
//    column has just produced; the sum takes the terms in ascending i into 32 partial sums
//    from +0.0, partial q taking the terms q, q + 32, q + 64, ..., combined lane-wise as
//    (p[0..7] + p[8..15]) + (p[16..23] + p[24..31]) and then
//    ((l0+l1)+(l2+l3))+((l4+l5)+(l6+l7)), the split of qkm::sum32.
//
// Flags are read from their first byte, in either case; any other letter takes the second
// branch (lower, A^T, unit diagonal). n = 0 returns before anything is read; a negative n
// passes that test and ends at the paths' own n < 1 test.
#include <cstdint>

#include "frame/simd.h"
#include "frame/toolkit.h"
#include "frame/variant.h"
#include "frame/vec.h"
#include "kernels.h"

namespace {

using namespace qkm::vec;
using qkm::front_col0;

// Start of the strided walk, 0-based; working storage of the kernel, one per thread.
thread_local int64_t t_kx;

constexpr int64_t kSplitFrom = 8;  // A^T inner sums of this many terms or more are split
// Elements of ap fetched ahead of use: a long triangle is read once from memory, column after
// column, and each column ends in a dependency that stalls the loads of the next one.
constexpr int64_t kAhead = 256;

enum Path : int { UpperA, LowerA, UpperAt, LowerAt };

// 0-based position of the first stored element of column j (one-based): a(1,j) for upper,
// the diagonal a(j,j) for lower.
// (The upper triangle by columns has the positions of the lower triangle by rows.)
QKM_INLINE int64_t upper_col0(int64_t j) { return qkm::packed_row0(j); }
QKM_INLINE int64_t lower_col0(int64_t n, int64_t j) { return front_col0(n, j) + j - 1; }

// x[i] = x[i] - t * a[i] for i in [0, m): element-wise, the same bits at any width. Single
// steps first until x is 64-byte aligned, so that the wide stores never split a cache line.
QKM_INLINE void sub_scaled(int64_t m, double t, const double *a, double *x) {
  const v8d vt = splat8(t);
  int64_t i = 0;
  for (const int64_t h = qkm::head_to_align(x, m); i < h; ++i) x[i] = x[i] - t * a[i];
  for (; i + 16 <= m; i += 16) {
    __builtin_prefetch(a + i + kAhead);
    __builtin_prefetch(a + i + kAhead + 8);
    const v8d x0 = load8(x + i) - vt * load8(a + i);
    const v8d x1 = load8(x + i + 8) - vt * load8(a + i + 8);
    store8(x + i, x0);
    store8(x + i + 8, x1);
  }
  for (; i + 8 <= m; i += 8) store8(x + i, load8(x + i) - vt * load8(a + i));
  for (; i < m; ++i) x[i] = x[i] - t * a[i];
}

// The sum of a[i] * x[i * inc] for i in [0, m) with the fixed split of the A^T sums.
QKM_INLINE double split_dot_strided(int64_t m, const double *a, const double *x, int64_t inc) {
  double p[32] = {};
  for (int64_t i = 0; i < m; ++i) p[i & 31] = p[i & 31] + a[i] * x[i * inc];
  double v[8];
  for (int l = 0; l < 8; ++l) v[l] = (p[l] + p[l + 8]) + (p[l + 16] + p[l + 24]);
  return ((v[0] + v[1]) + (v[2] + v[3])) + ((v[4] + v[5]) + (v[6] + v[7]));
}

// The same split on contiguous x: qkm::sum32, reading the triangle ahead of use.
template <int L>
QKM_INLINE double unit_dot(int64_t m, const double *a, const double *x) {
  return qkm::sum32<kAhead>(m, [](v8d u, v8d v) QKM_INLINE_LAMBDA { return u * v; }, a, x);
}

// ---- unit stride -----------------------------------------------------------------------
template <int L>
QKM_INLINE void unit_solve_body(int path, int64_t n, const double *ap, double *x, bool nounit) {
  switch (path) {
    case UpperA:
      for (int64_t j = n; j >= 1; --j) {
        if (x[j - 1] == 0.0) continue;
        const double *col = ap + upper_col0(j);
        if (nounit) x[j - 1] = x[j - 1] / col[j - 1];
        sub_scaled(j - 1, x[j - 1], col, x);
      }
      break;
    case LowerA:
      for (int64_t j = 1; j <= n; ++j) {
        if (x[j - 1] == 0.0) continue;
        const double *col = ap + lower_col0(n, j);
        if (nounit) x[j - 1] = x[j - 1] / col[0];
        sub_scaled(n - j, x[j - 1], col + 1, x + j);
      }
      break;
    // The A^T paths keep the element solved last (prev) in a register for the term next to
    // the diagonal: reloading it would put a store and a load on the chain of divisions.
    case UpperAt: {
      double prev = 0.0;
      for (int64_t j = 1; j <= n; ++j) {
        const double *col = ap + upper_col0(j);
        double t = x[j - 1];
        if (j - 1 < kSplitFrom) {
          for (int64_t i = 0; i < j - 1; ++i) t = t - col[i] * x[i];
        } else {
          t = t - unit_dot<L>(j - 2, col, x);
          t = t - col[j - 2] * prev;
        }
        if (nounit) t = t / col[j - 1];
        x[j - 1] = prev = t;
      }
      break;
    }
    default: {  // LowerAt
      double prev = 0.0;
      for (int64_t j = n; j >= 1; --j) {
        const double *col = ap + lower_col0(n, j);
        double t = x[j - 1];
        if (n - j < kSplitFrom) {
          for (int64_t i = n - 1; i >= j; --i) t = t - col[i - j + 1] * x[i];
        } else {
          t = t - unit_dot<L>(n - j - 1, col + 2, x + j + 1);
          t = t - col[1] * prev;
        }
        if (nounit) t = t / col[0];
        x[j - 1] = prev = t;
      }
      break;
    }
  }
}
QKM_VARIANTS(void, unit_solve, (int path, int64_t n, const double *ap, double *x, bool nounit),
             (path, n, ap, x, nounit))

// ---- running positions -----------------------------------------------------------------
// x_k (one-based) at x[kx + (k - 1) * inc]; kx is the thread's start of the walk.
void strided_solve(int path, int64_t n, const double *ap, double *x, int64_t inc, bool nounit) {
  int64_t &kx = t_kx;
  switch (path) {
    case UpperA: {
      kx += (n - 1) * inc;  // the walk starts at x_n and moves back
      int64_t jx = kx;
      for (int64_t j = n; j >= 1; --j, jx -= inc) {
        if (x[jx] == 0.0) continue;
        const double *col = ap + upper_col0(j);
        if (nounit) x[jx] = x[jx] / col[j - 1];
        const double t = x[jx];
        int64_t ix = jx;
        for (int64_t i = j - 1; i >= 1; --i) {
          ix -= inc;
          x[ix] = x[ix] - t * col[i - 1];
        }
      }
      break;
    }
    case LowerA: {
      int64_t jx = kx;
      for (int64_t j = 1; j <= n; ++j, jx += inc) {
        if (x[jx] == 0.0) continue;
        const double *col = ap + lower_col0(n, j);
        if (nounit) x[jx] = x[jx] / col[0];
        const double t = x[jx];
        int64_t ix = jx;
        for (int64_t i = j + 1; i <= n; ++i) {
          ix += inc;
          x[ix] = x[ix] - t * col[i - j];
        }
      }
      break;
    }
    case UpperAt: {
      int64_t jx = kx;
      for (int64_t j = 1; j <= n; ++j, jx += inc) {
        const double *col = ap + upper_col0(j);
        double t = x[jx];
        if (j - 1 < kSplitFrom) {
          int64_t ix = kx;
          for (int64_t i = 0; i < j - 1; ++i, ix += inc) t = t - col[i] * x[ix];
        } else {
          t = t - split_dot_strided(j - 2, col, x + kx, inc);
          t = t - col[j - 2] * x[jx - inc];
        }
        if (nounit) t = t / col[j - 1];
        x[jx] = t;
      }
      break;
    }
    default: {  // LowerAt
      kx += (n - 1) * inc;  // the walk starts at x_n and moves back
      int64_t jx = kx;
      for (int64_t j = n; j >= 1; --j, jx -= inc) {
        const double *col = ap + lower_col0(n, j);
        double t = x[jx];
        if (n - j < kSplitFrom) {
          int64_t ix = kx;
          for (int64_t i = n; i > j; --i, ix -= inc) t = t - col[i - j] * x[ix];
        } else {
          t = t - split_dot_strided(n - j - 1, col + 2, x + jx + 2 * inc, inc);
          t = t - col[1] * x[jx + inc];
        }
        if (nounit) t = t / col[0];
        x[jx] = t;
      }
      break;
    }
  }
}

}  // namespace

extern "C" void e_dtpsv(const char *uplo, const char *trans, const char *diag, const qkm_int *n,
                        const double *ap, double *x, const qkm_int *incx, qkm_len, qkm_len,
                        qkm_len) {
  const int32_t nn = *n;
  if (nn == 0) return;
  const bool nounit = *diag == 'N' || *diag == 'n';
  const int32_t inc = *incx;
  if (inc < 1)
    t_kx = qkm::mirrored_start(nn, inc);
  else if (inc > 1)
    t_kx = 0;
  if (nn < 1) return;
  const bool upper = *uplo == 'U' || *uplo == 'u';
  const bool plain = *trans == 'N' || *trans == 'n';
  const int path = plain ? (upper ? UpperA : LowerA) : (upper ? UpperAt : LowerAt);
  if (inc == 1)
    unit_solve(path, nn, ap, x, nounit);
  else
    strided_solve(path, nn, ap, x, inc, nounit);
}
