// Solves with the packed Cholesky factor: dpptrs_2 (its entry e_dpptrs) and eacort.
//
// The factor is L packed by rows (A = L*L^T), read as U = L^T packed by columns. The
// many-vector path keeps, for every element of B, the order of its operations:
//   forward   b(j,k) = b(j,k) - b(i,k)*L(j,i) for i = 1 .. j-1 ascending, then / L(j,j);
//   backward  b(i,k) = b(i,k) - b(j,k)*L(j,i) for j = n .. i+1 descending, after b(j,k) has
//             been divided by L(j,j).
// Columns are independent, so the work is tiled: eight rows of B in the lanes of a vector and
// up to eight right-hand sides side by side, each factor entry fetched once per tile and used
// for all of its columns. The forward phase packs the eight factor rows it needs into a small
// panel on the stack, a chunk of columns at a time.
#include <cstdint>

#include "frame/toolkit.h"
#include "frame/variant.h"
#include "kernels.h"

namespace {

using namespace qkm::vec;

// 0-based index of L(j,0), j counted from 0.
QKM_INLINE int64_t row0(int64_t j) { return qkm::packed_row0(j + 1); }

thread_local int32_t g_packed_length;

// ---- one vector ------------------------------------------------------------------------------
// Inner product of the forward phase: the fixed 32-partial split of qkm::sum32, the same on
// every instruction set.
QKM_INLINE double dot(int64_t n, const double *a, const double *x) {
  return qkm::sum32(n, [](v8d u, v8d v) QKM_INLINE_LAMBDA { return u * v; }, a, x);
}

// x(0..n) = x(0..n) - a(0..n)*y, element by element.
QKM_INLINE void sub_scaled(int64_t n, double *x, double y, const double *a) {
  int64_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const v8d x0 = load8(x + i) - y * load8(a + i);
    const v8d x1 = load8(x + i + 8) - y * load8(a + i + 8);
    store8(x + i, x0);
    store8(x + i + 8, x1);
  }
  for (; i < n; ++i) x[i] = x[i] - y * a[i];
}

template <int L>
QKM_INLINE void cort_body(int64_t n, const double *ap, double *b) {
  int64_t p = 0;
  for (int64_t j = 1; j <= n; ++j) {
    b[j - 1] = b[j - 1] / ap[p];
    if (j < n) b[j] = b[j] - dot(j, ap + p + 1, b);
    p = p + j + 1;
  }
  p = row0(n - 1) + n - 1;
  for (int64_t j = n; j >= 1; --j) {
    b[j - 1] = b[j - 1] / ap[p];
    sub_scaled(j - 1, b, b[j - 1], ap + p - (j - 1));
    p = p - j;
  }
}

QKM_VARIANTS(void, cort, (int64_t n, const double *ap, double *b), (n, ap, b))

// ---- many vectors ----------------------------------------------------------------------------
constexpr int64_t kChunk = 256;

// Forward, rows j0 .. j0+7 of R columns from kc, the terms i in [i0, i1) whose factor entries
// stand in the panel P (P[(i-i0)*8 + t] = L(j0+t, i)).
template <int R>
QKM_INLINE void forward_tile(double *b, int64_t ldb, int64_t kc, int64_t j0, const double *P,
                             int64_t i0, int64_t i1) {
  double *col[R];
  v8d acc[R];
  for (int r = 0; r < R; ++r) {
    col[r] = b + (kc + r) * ldb;
    acc[r] = load8(col[r] + j0);
  }
  for (int64_t i = i0; i < i1; ++i) {
    const v8d pv = load8(P + (i - i0) * 8);
    for (int r = 0; r < R; ++r) acc[r] = acc[r] - col[r][i] * pv;
  }
  for (int r = 0; r < R; ++r) store8(col[r] + j0, acc[r]);
}

// Backward, rows i0 .. i0+7 of R columns from kc, the terms of rows j = n-1 down to i0+8.
template <int R>
QKM_INLINE void backward_tile(double *b, int64_t ldb, int64_t kc, int64_t i0, int64_t n,
                              const double *ap) {
  double *col[R];
  v8d acc[R];
  for (int r = 0; r < R; ++r) {
    col[r] = b + (kc + r) * ldb;
    acc[r] = load8(col[r] + i0);
  }
  for (int64_t j = n - 1; j >= i0 + 8; --j) {
    const v8d lv = load8(ap + row0(j) + i0);
    for (int r = 0; r < R; ++r) acc[r] = acc[r] - col[r][j] * lv;
  }
  for (int r = 0; r < R; ++r) store8(col[r] + i0, acc[r]);
}

template <int L>
QKM_INLINE void many_body(int64_t n, int64_t nrhs, const double *ap, double *b, int64_t ldb) {
  alignas(64) double P[kChunk * 8];
  const int64_t nfull = n / 8 * 8;

  // Forward: full blocks of eight rows, then the rows left at the bottom.
  for (int64_t j0 = 0; j0 < nfull; j0 += 8) {
    for (int64_t i0 = 0; i0 < j0; i0 += kChunk) {
      const int64_t i1 = i0 + kChunk < j0 ? i0 + kChunk : j0;
      for (int64_t i = i0; i < i1; ++i)
        for (int t = 0; t < 8; ++t) P[(i - i0) * 8 + t] = ap[row0(j0 + t) + i];
      for (int64_t kc = 0; kc < nrhs; kc += 8) {
        qkm::with_count<1, 8>(nrhs - kc < 8 ? int(nrhs - kc) : 8, [&](auto R) QKM_INLINE_LAMBDA {
          forward_tile<R>(b, ldb, kc, j0, P, i0, i1);
        });
      }
    }
    for (int64_t k = 0; k < nrhs; ++k) {
      double *col = b + k * ldb;
      for (int64_t j = j0; j < j0 + 8; ++j) {
        const double *row = ap + row0(j);
        double x = col[j];
        for (int64_t i = j0; i < j; ++i) x = x - col[i] * row[i];
        col[j] = x / row[j];
      }
    }
  }
  for (int64_t k = 0; k < nrhs; ++k) {
    double *col = b + k * ldb;
    for (int64_t j = nfull; j < n; ++j) {
      const double *row = ap + row0(j);
      double x = col[j];
      for (int64_t i = 0; i < j; ++i) x = x - col[i] * row[i];
      col[j] = x / row[j];
    }
  }

  // Backward: the rows at the bottom first, then the full blocks upwards.
  for (int64_t k = 0; k < nrhs; ++k) {
    double *col = b + k * ldb;
    for (int64_t j = n - 1; j >= nfull; --j) {
      const double *row = ap + row0(j);
      col[j] = col[j] / row[j];
      for (int64_t i = j - 1; i >= nfull; --i) col[i] = col[i] - col[j] * row[i];
    }
  }
  for (int64_t i0 = nfull - 8; i0 >= 0; i0 -= 8) {
    for (int64_t kc = 0; kc < nrhs; kc += 8) {
      qkm::with_count<1, 8>(nrhs - kc < 8 ? int(nrhs - kc) : 8, [&](auto R) QKM_INLINE_LAMBDA {
        backward_tile<R>(b, ldb, kc, i0, n, ap);
      });
    }
    for (int64_t k = 0; k < nrhs; ++k) {
      double *col = b + k * ldb;
      for (int64_t j = i0 + 7; j >= i0; --j) {
        const double *row = ap + row0(j);
        col[j] = col[j] / row[j];
        for (int64_t i = j - 1; i >= i0; --i) col[i] = col[i] - col[j] * row[i];
      }
    }
  }
}

QKM_VARIANTS(void, many, (int64_t n, int64_t nrhs, const double *ap, double *b, int64_t ldb),
             (n, nrhs, ap, b, ldb))

}  // namespace

extern "C" {

QKM_API void eacort(const qkm_int *lap, const qkm_int *n, const double *ap, double *b) {
  const int64_t nn = *n;
  if (nn < 1) return;
  cort(nn, ap, b);
}

QKM_API void dpptrs_2(const char *uplo, const qkm_int *n, const qkm_int *nrhs, const double *ap,
                      double *b, const qkm_int *ldb, qkm_int *info, qkm_len uplo_len) {
  if (*uplo != 'U' && *uplo != 'u') {
    *info = 1;
    return;
  }
  if (*nrhs == 1) {
    // n(n+1)/2 in 32-bit arithmetic, multiplied first and halved after.
    const uint32_t nn = static_cast<uint32_t>(*n);
    g_packed_length = static_cast<int32_t>(nn * (nn + 1u)) / 2;
    eacort(&g_packed_length, n, ap, b);
    return;
  }
  const int64_t nn = *n;
  if (nn <= 0 || *nrhs <= 0) return;
  many(nn, *nrhs, ap, b, *ldb);
}

QKM_API void e_dpptrs(const char *uplo, const qkm_int *n, const qkm_int *nrhs, const double *ap,
                      double *b, const qkm_int *ldb, qkm_int *info, qkm_len uplo_len) {
  dpptrs_2(uplo, n, nrhs, ap, b, ldb, info, uplo_len);
}

}  // extern "C"
