// Packed Cholesky factorisation by bordering: eaxfch and eaxfch2.
//
// Row k of L comes from the rows above it by a forward substitution, then the diagonal from a
// square root. Every entry is one sequential inner product, in ascending column order:
//   s = -a(k,j);  s = s + L(j,m)*L(k,m) for m = 1 .. j-1;
// then L(k,j) = s / (-L(j,j)) for the first column of each group of four (columns 1, 5, 9, ...)
// and L(k,j) = -(s / L(j,j)) for the others; the pivot is d = -(-a(k,k) + sum L(k,m)*L(k,m)).
// That is exactly what the four-row jam with its triangle formulas computes, term by term.
//
// Speed comes from doing several rows at once without touching any single sum's order: the
// rows k0 .. k0+W-1 of a batch share the finished rows above k0, so each entry L(j,m) that is
// read serves W rows, one SIMD lane per row. A batch keeps its results in a transposed per-thread
// buffer until the pivots have been checked in row order, so that a refusal leaves exactly
// the state of the row-by-row method (earlier rows final, the refused row's left part
// written, its diagonal and every later row untouched). Rows too long for the buffer take
// the plain row-by-row jam.
#include <cmath>
#include <cstdint>

#include "factor/cholesky_internal.h"
#include "frame/toolkit.h"
#include "frame/variant.h"
#include "kernels.h"

namespace {

using namespace qkm::vec;

using qkm::packed_row0;

// Capacity of the batch buffer in doubles (128 KiB, kept per thread like the other static
// working storage of the kernels rather than on the caller's stack).
constexpr int64_t kBatchBuffer = 16384;
thread_local int64_t g_capacity = kBatchBuffer;

// ---- one row, the plain jam of four --------------------------------------------------------
// Group of R unknowns of row k starting at 0-based column c (a multiple of four).
template <int R>
QKM_INLINE void row_group(double *ap, double *row, int64_t c) {
  const double *lr[R];
  double s[R];
  for (int i = 0; i < R; ++i) {
    lr[i] = ap + packed_row0(c + i + 1);
    s[i] = -row[c + i];
  }
  for (int64_t m = 0; m < c; ++m) {
    const double x = row[m];
    for (int i = 0; i < R; ++i) s[i] = s[i] + lr[i][m] * x;
  }
  // The small triangle: x1 = s1 / (-d1), then xi = -((si + L(i,1) x1 + ...) / di).
  double x[R];
  x[0] = s[0] / (-lr[0][c]);
  row[c] = x[0];
  for (int i = 1; i < R; ++i) {
    double t = s[i];
    for (int u = 0; u < i; ++u) t = t + lr[i][c + u] * x[u];
    x[i] = -(t / lr[i][c + i]);
    row[c + i] = x[i];
  }
}

// Returns true when row k is refused.
bool one_row(double *ap, int64_t k, double tol, qkm_int *info, double *dfail) {
  double *row = ap + packed_row0(k);
  const int64_t left = k - 1;
  const int64_t r = left % 4;
  int64_t c = 0;
  for (; c + 4 <= left; c += 4) row_group<4>(ap, row, c);
  qkm::with_count<1, 3>(static_cast<int>(r),
                        [&](auto R) QKM_INLINE_LAMBDA { row_group<R>(ap, row, c); });
  double s = -row[left];
  for (int64_t m = 0; m < left; ++m) s = s + row[m] * row[m];
  const double d = -s;
  if (tol >= d) {
    *dfail = d;
    *info = static_cast<qkm_int>(k);
    return true;
  }
  row[left] = std::sqrt(d);
  return false;
}

// ---- a batch of W rows, one lane per row ----------------------------------------------------
// T holds the batch transposed: T[m*W + l] = L(k0+l, m+1).

// JT consecutive columns j0 .. j0+JT-1 (0-based), all left of every batch row's diagonal.
template <int W, int JT>
QKM_INLINE void batch_tile(const double *ap, double *const *rows, double *T, int64_t j0) {
  using V = vec_of<W>;
  const double *lr[JT];
  V acc[JT];
  for (int t = 0; t < JT; ++t) {
    lr[t] = ap + packed_row0(j0 + t + 1);
    for (int l = 0; l < W; ++l) acc[t][l] = -rows[l][j0 + t];
  }
  for (int64_t m = 0; m < j0; ++m) {
    const V x = vload<V>(T + m * W);
    for (int t = 0; t < JT; ++t) acc[t] = acc[t] + lr[t][m] * x;
  }
  for (int t = 0; t < JT; ++t) {
    V s = acc[t];
    for (int u = 0; u < t; ++u) s = s + lr[t][j0 + u] * vload<V>(T + (j0 + u) * W);
    const double d = lr[t][j0 + t];
    const V x = ((j0 + t) % 4 == 0) ? s / (-d) : -(s / d);
    vstore<V>(T + (j0 + t) * W, x);
  }
}

template <int W>
QKM_INLINE void write_rows(double *const *rows, const double *T, const double *diag,
                           int64_t k0, int nfull) {
  for (int l = 0; l < nfull; ++l) {
    const int64_t left = k0 + l - 1;
    for (int64_t m = 0; m < left; ++m) rows[l][m] = T[m * W + l];
    rows[l][left] = diag[l];
  }
}

template <int W>
QKM_INLINE bool batch_body(double *ap, int64_t k0, double tol, qkm_int *info, double *dfail,
                           double *T) {
  using V = vec_of<W>;
  double *rows[W];
  for (int l = 0; l < W; ++l) rows[l] = ap + packed_row0(k0 + l);
  const int64_t nc = k0 - 1;  // columns left of the whole batch

  int64_t j0 = 0;
  for (; j0 + 8 <= nc; j0 += 8) batch_tile<W, 8>(ap, rows, T, j0);
  qkm::with_count<1, 7>(static_cast<int>(nc - j0),
                        [&](auto JT) QKM_INLINE_LAMBDA { batch_tile<W, JT>(ap, rows, T, j0); });

  // The batch's own triangle. acc[i] lane l: column nc+i of row k0+l (i < l), or the pivot
  // sum (i == l), over the columns left of the batch; lanes with i > l are unused.
  V acc[W];
  for (int i = 0; i < W; ++i)
    for (int l = 0; l < W; ++l) acc[i][l] = i <= l ? -rows[l][nc + i] : 0.0;
  for (int64_t m = 0; m < nc; ++m) {
    const V x = vload<V>(T + m * W);
    for (int i = 0; i < W; ++i) acc[i] = acc[i] + T[m * W + i] * x;
  }
  double diag[W];
  for (int l = 0; l < W; ++l) {
    for (int i = 0; i < l; ++i) {
      const int64_t j = nc + i;
      double s = acc[i][l];
      for (int64_t m = nc; m < j; ++m) s = s + T[m * W + i] * T[m * W + l];
      T[j * W + l] = (j % 4 == 0) ? s / (-diag[i]) : -(s / diag[i]);
    }
    double s = acc[l][l];
    for (int64_t m = nc; m < nc + l; ++m) s = s + T[m * W + l] * T[m * W + l];
    const double d = -s;
    if (tol >= d) {
      write_rows<W>(rows, T, diag, k0, l);
      for (int64_t m = 0; m < nc + l; ++m) rows[l][m] = T[m * W + l];
      *dfail = d;
      *info = static_cast<qkm_int>(k0 + l);
      return true;
    }
    diag[l] = std::sqrt(d);
  }
  write_rows<W>(rows, T, diag, k0, W);
  return false;
}

// A batch of w = 8 or 4 rows; the width of a batch is the same on every instruction set.
template <int L>
QKM_INLINE bool batch_rows_body(int w, double *ap, int64_t k0, double tol, qkm_int *info,
                                double *dfail, double *T) {
  return w == 8 ? batch_body<8>(ap, k0, tol, info, dfail, T)
                : batch_body<4>(ap, k0, tol, info, dfail, T);
}
QKM_VARIANTS(bool, batch_rows,
             (int w, double *ap, int64_t k0, double tol, qkm_int *info, double *dfail, double *T),
             (w, ap, k0, tol, info, dfail, T))

}  // namespace

namespace qkm::factor {
void set_batch_capacity(int64_t doubles) noexcept {
  g_capacity = (doubles < 0 || doubles > kBatchBuffer) ? kBatchBuffer : doubles;
}
}  // namespace qkm::factor

extern "C" {

QKM_API void eaxfch2(const void *ignored, const qkm_int *kfirst, const qkm_int *klast,
                     const double *tol, double *ap, qkm_int *info, double *dfail) {
  const int64_t k0 = *kfirst, k1 = *klast;
  if (k1 < k0) {
    *info = 0;
    return;
  }
  const double t = *tol;
  alignas(64) static thread_local double buffer[kBatchBuffer];
  const int64_t cap = g_capacity;
  int64_t k = k0;
  while (k <= k1) {
    bool refused;
    int64_t done;
    // A batch needs W rows left and room for W * (k + W - 1) entries.
    if (k >= 1 && k + 7 <= k1 && 8 * (k + 7) <= cap) {
      refused = batch_rows(8, ap, k, t, info, dfail, buffer);
      done = 8;
    } else if (k >= 1 && k + 3 <= k1 && 4 * (k + 3) <= cap) {
      refused = batch_rows(4, ap, k, t, info, dfail, buffer);
      done = 4;
    } else {
      refused = one_row(ap, k, t, info, dfail);
      done = 1;
    }
    if (refused) return;
    k += done;
  }
  *info = 0;
}

QKM_API void eaxfch(const void *ignored, const qkm_int *kfirst, const qkm_int *klast,
                    const double *tol, double *ap, qkm_int *info, double *dfail) {
  eaxfch2(ignored, kfirst, klast, tol, ap, info, dfail);
}

}  // extern "C"
