// eaxmvm: y = A*x for a sparse matrix in rows with the diagonal last and a block of nrhs
// vectors of stored length n (vector r starts at element (r-1)*n + 1).
//
// rowend(i+1) is the one-based position of the diagonal of row i; row 1 starts at position
// 1 and row i+1 right behind the diagonal of row i, so rowend(1) and col at a diagonal are
// never read.
//  - nterm = n: the matrix is its diagonal, a(i) = a_ii, whatever kind says.
//  - kind 1, symmetric: the terms before the diagonal are the strict lower triangle of the
//    row, each applied twice. y is cleared first; the nrhs mod 4 remainder vectors are swept
//    first as one group, then the rest four at a time, each sweep reading col, a and rowend
//    once for all its vectors. The order of every sum is fixed by the updates of y.
//  - kind 2, general: the terms before the diagonal are all off-diagonal terms; rows 1 to
//    nrow are written, the rest of y is kept.
//  - any other kind: nothing is done.
#include <cstdint>

#include "frame/simd.h"
#include "frame/toolkit.h"
#include "frame/variant.h"
#include "frame/vec.h"
#include "frame/wrap.h"
#include "kernels.h"

namespace {

using namespace qkm::vec;

// 0-based element named by a one-based column number.
QKM_INLINE int64_t at(qkm_int c) { return static_cast<int64_t>(c) - 1; }

// ---- symmetric sweep of G vectors (G = 1 to 4) ---------------------------------------------
// For row i: t_r = x(i,r), s_r = a_ii * t_r; each term (c, v) of the row, in order of position,
// adds t_r * v to y(c,r) and x(c,r) * v to s_r; then y(i,r) = s_r. No earlier row has touched
// y(i,r), since every column of a row lies below the row number: the store is an assignment.
template <int G>
void symmetric_sweep(int32_t nrow, int64_t n, const qkm_int *col, const qkm_int *rowend,
                     const double *a, const double *x, double *y) {
  int64_t p = 0;
  for (int32_t i = 0; i < nrow; ++i) {
    const int64_t d = static_cast<int64_t>(rowend[i + 1]) - 1;
    const double ad = a[d];
    double t[G], s[G];
    for (int r = 0; r < G; ++r) {
      t[r] = x[i + r * n];
      s[r] = ad * t[r];
    }
    for (; p < d; ++p) {
      const int64_t c = at(col[p]);
      const double v = a[p];
      for (int r = 0; r < G; ++r) {
        y[c + r * n] = y[c + r * n] + t[r] * v;
        s[r] = s[r] + x[c + r * n] * v;
      }
    }
    for (int r = 0; r < G; ++r) y[i + r * n] = s[r];
    p = d + 1;
  }
}

// ---- general rows ------------------------------------------------------------------------
// s = x(i) * a_ii, then the off-diagonal terms a(p) * x(col(p)). A row of fewer than eight
// such terms adds them in order of position. A longer row uses one fixed split, the same on
// every processor: eight partial sums from +0.0, partial q taking the row's terms q, q+8,
// q+16, ... (counted from the row's first term, not from any address), combined as
// ((p0+p1)+(p2+p3))+((p4+p5)+(p6+p7)) and added to s once.
template <int L>
QKM_INLINE double row_sum(double s, int64_t p, int64_t d, const qkm_int *col, const double *a,
                          const double *x) {
  if (d - p < 8) {
    for (; p < d; ++p) s = s + a[p] * x[at(col[p])];
    return s;
  }
  // The x elements named by the eight terms from position q.
  auto gather = [&](int64_t q) QKM_INLINE_LAMBDA {
    return v8d{x[at(col[q])],     x[at(col[q + 1])], x[at(col[q + 2])], x[at(col[q + 3])],
               x[at(col[q + 4])], x[at(col[q + 5])], x[at(col[q + 6])], x[at(col[q + 7])]};
  };
  v8d acc = {};
  for (; p + 8 <= d; p += 8) acc = acc + load8(a + p) * gather(p);
  // The last r < 8 terms: those of the row's final eight, moved down to lanes 0..r-1 with
  // +0.0 elsewhere, which leaves the other partials' bits alone (a partial is never -0.0).
  if (const int64_t r = d - p) acc = acc + qkm::last_lanes(load8(a + d - 8) * gather(d - 8), r);
  return s + (((acc[0] + acc[1]) + (acc[2] + acc[3])) + ((acc[4] + acc[5]) + (acc[6] + acc[7])));
}

template <int L>
QKM_INLINE void general_body(int32_t nrow, int64_t n, int32_t nrhs, const qkm_int *col,
                             const qkm_int *rowend, const double *a, const double *x,
                             double *y) {
  int64_t p = 0;
  for (int32_t i = 0; i < nrow; ++i) {
    const int64_t d = static_cast<int64_t>(rowend[i + 1]) - 1;
    for (int32_t r = 0; r < nrhs; ++r) {
      const double *xr = x + r * n;
      y[i + r * n] = row_sum<L>(xr[i] * a[d], p, d, col, a, xr);
    }
    p = d + 1;
  }
}
QKM_VARIANTS(void, general, (int32_t nrow, int64_t n, int32_t nrhs, const qkm_int *col,
                             const qkm_int *rowend, const double *a, const double *x, double *y),
             (nrow, n, nrhs, col, rowend, a, x, y))

// y(i,r) = a(i) * x(i,r): element-wise, the same bits at any width.
template <int L>
QKM_INLINE void diagonal_body(int64_t n, const double *a, const double *x, double *y) {
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) store8(y + i, load8(a + i) * load8(x + i));
  for (; i < n; ++i) y[i] = a[i] * x[i];
}
QKM_VARIANTS(void, diagonal, (int64_t n, const double *a, const double *x, double *y),
             (n, a, x, y))

}  // namespace

extern "C" void eaxmvm(const qkm_int *kind, const qkm_int *nterm, const qkm_int *nrow,
                       const qkm_int *n, const qkm_int *nrhs, const qkm_int *col,
                       const qkm_int *rowend, const double *a, const double *x, double *y) {
  const int32_t len = *n;
  if (*nterm == len) {
    if (len <= 0) return;
    const int32_t m = *nrhs;
    for (int32_t r = 1; r < m; ++r) diagonal(len, a, x + int64_t{r} * len, y + int64_t{r} * len);
    diagonal(len, a, x, y);  // vector 1 last, and written whatever nrhs is
    return;
  }
  const int32_t k = *kind;
  if (k == 1) {
    const int32_t m = *nrhs, rows = *nrow;
    const qkm_int count = qkm::wrap_mul(len, m), one = 1;
    e_dzero(&count, y, &one);
    const int32_t rem = m % 4;
    int32_t r = 0;
    switch (rem) {
      case 1: symmetric_sweep<1>(rows, len, col, rowend, a, x, y); r = 1; break;
      case 2: symmetric_sweep<2>(rows, len, col, rowend, a, x, y); r = 2; break;
      case 3: symmetric_sweep<3>(rows, len, col, rowend, a, x, y); r = 3; break;
      default: break;
    }
    for (; r + 4 <= m; r += 4)
      symmetric_sweep<4>(rows, len, col, rowend, a, x + int64_t{r} * len, y + int64_t{r} * len);
  } else if (k == 2) {
    general(*nrow, len, *nrhs, col, rowend, a, x, y);
  }
}
