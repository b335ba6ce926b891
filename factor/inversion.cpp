// In-place Gauss-Jordan inversion of a small dense matrix: one pivot at a time, no factor kept.
//   imode 1      general matrix, pivots chosen along the row (column exchanges, undone on the
//                rows of the result at the end);
//   imode 2      symmetric matrix, diagonal pivots in order, nothing checked;
//   other imode  symmetric matrix, diagonal pivots in order, |pivot| must exceed 1.0e-8.
// The symmetric modes read the upper triangle only and fill the lower one at the end.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/toolkit.h"
#include "kernels.h"

namespace {

// The multiplier and the running column count handed to e_daxpy by reference. Kept per
// thread: within one thread they behave as the routine's static cells.
thread_local double t_mult;
thread_local qkm_int t_col;

constexpr double kPivotFloor = 1.0e-8;

using qkm::swap_bits;

void invert_general(int64_t lda, const qkm_int *n_, qkm_int *ipvt, double *a) {
  const int64_t n = *n_;
  const qkm_int one = 1;
  auto at = [&](int64_t i, int64_t j) -> double & { return a[(i - 1) + (j - 1) * lda]; };
  for (int64_t i = 1; i <= n; ++i) ipvt[i - 1] = static_cast<qkm_int>(i);
  for (int64_t k = 1; k <= n; ++k) {
    // Largest entry of row k from column k on; among equal sizes the last column wins, and a
    // NaN is never taken.
    double best = 0.0;
    int64_t jp = k;
    for (int64_t j = k; j <= n; ++j) {
      const double s = std::fabs(at(k, j));
      if (s >= best) {
        best = s;
        jp = j;
      }
    }
    if (best > std::fabs(at(k, k))) {
      const qkm_int tmp = ipvt[k - 1];
      ipvt[k - 1] = ipvt[jp - 1];
      ipvt[jp - 1] = tmp;
      e_dswap(n_, &at(1, k), &one, &at(1, jp), &one);
    }
    const double r = 1.0 / at(k, k);
    at(k, k) = 0.0;
    const double mr = -r;
    e_dscal(n_, &mr, &at(1, k), &one);
    for (t_col = 1; t_col <= n; ++t_col) {
      if (t_col == k) continue;
      t_mult = at(k, t_col);
      at(k, t_col) = t_mult * r;
      e_daxpy(n_, &t_mult, &at(1, k), &one, &at(1, t_col), &one);
    }
    at(k, k) = r;
  }
  // The column exchanges become row exchanges of the inverse.
  for (int64_t k = 1; k <= n; ++k) {
    int64_t j = k;
    while (j < n && ipvt[j - 1] != k) ++j;
    if (j != k) {
      ipvt[j - 1] = ipvt[k - 1];
      ipvt[k - 1] = static_cast<qkm_int>(k);
      for (int64_t c = 1; c <= n; ++c) swap_bits(&at(k, c), &at(j, c));
    }
  }
}

void invert_symmetric(bool watched, int64_t lda, int64_t n, qkm_int *info, double *a) {
  const qkm_int one = 1;
  auto at = [&](int64_t i, int64_t j) -> double & { return a[(i - 1) + (j - 1) * lda]; };
  if (watched) *info = 0;
  for (int64_t k = 1; k <= n; ++k) {
    if (watched && !(std::fabs(at(k, k)) > kPivotFloor)) {
      *info = 1;
      return;
    }
    const double w = -1.0 / at(k, k);
    at(k, k) = 0.0;
    // Whole pivot row and column, from the upper triangle: the swept part is skew.
    for (int64_t j = 1; j < k; ++j) at(k, j) = -at(j, k);
    for (int64_t i = k + 1; i <= n; ++i) at(i, k) = at(k, i);
    // Descending columns: a(j,k) is overwritten only after the last column that reads it.
    for (t_col = static_cast<qkm_int>(n); t_col >= 1; --t_col) {
      if (t_col == k) continue;
      t_mult = at(k, t_col) * w;
      at(k, t_col) = t_mult;
      e_daxpy(&t_col, &t_mult, &at(1, k), &one, &at(1, t_col), &one);
      at(t_col, k) = t_mult;
    }
    at(k, k) = -w;
  }
  for (int64_t j = 1; j < n; ++j)
    for (int64_t c = 1; c <= j; ++c) at(j + 1, c) = at(c, j + 1);
}

}  // namespace

extern "C" void eaxinv(const qkm_int *imode, const qkm_int *lda, const qkm_int *n,
                       qkm_int *ipvt, qkm_int *info, double *a) {
  const int32_t mode = *imode;
  if (*n < 1) {
    if (mode != 1 && mode != 2) *info = 0;
    return;
  }
  if (mode == 1)
    invert_general(*lda, n, ipvt, a);
  else
    invert_symmetric(mode != 2, *lda, *n, info, a);
}
