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
#include <cstring>

#include "frame/simd.h"
#include "frame/vec.h"
#include "kernels.h"

namespace {

using namespace qkm::vec;

// 0-based index of L(j,0), j counted from 0.
QKM_INLINE int64_t row0(int64_t j) { return j * (j + 1) / 2; }

thread_local int32_t g_packed_length;

// ---- one vector ------------------------------------------------------------------------------
// Inner product of the forward phase. Fixed split, the same on every instruction set: 32
// partial sums, partial q taking the terms q, q+32, q+64, ... in order from 0.0; the missing
// terms of the last round count as +0.0, which changes no partial. The partials are combined
// as (p[0..7] + p[8..15]) + (p[16..23] + p[24..31]) lane by lane, then the eight lanes as
// ((l0+l1)+(l2+l3))+((l4+l5)+(l6+l7)).
QKM_INLINE double dot_body(int64_t n, const double *a, const double *x) {
  v8d s0 = {}, s1 = s0, s2 = s0, s3 = s0;
  int64_t i = 0;
  for (; i + 32 <= n; i += 32) {
    s0 = s0 + load8(a + i) * load8(x + i);
    s1 = s1 + load8(a + i + 8) * load8(x + i + 8);
    s2 = s2 + load8(a + i + 16) * load8(x + i + 16);
    s3 = s3 + load8(a + i + 24) * load8(x + i + 24);
  }
  if (i < n) {
    double ta[32] = {}, tx[32] = {};
    std::memcpy(ta, a + i, static_cast<size_t>(n - i) * sizeof(double));
    std::memcpy(tx, x + i, static_cast<size_t>(n - i) * sizeof(double));
    s0 = s0 + load8(ta) * load8(tx);
    s1 = s1 + load8(ta + 8) * load8(tx + 8);
    s2 = s2 + load8(ta + 16) * load8(tx + 16);
    s3 = s3 + load8(ta + 24) * load8(tx + 24);
  }
  const v8d s = (s0 + s1) + (s2 + s3);
  return ((s[0] + s[1]) + (s[2] + s[3])) + ((s[4] + s[5]) + (s[6] + s[7]));
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

QKM_INLINE void cort_body(int64_t n, const double *ap, double *b) {
  int64_t p = 0;
  for (int64_t j = 1; j <= n; ++j) {
    b[j - 1] = b[j - 1] / ap[p];
    if (j < n) b[j] = b[j] - dot_body(j, ap + p + 1, b);
    p = p + j + 1;
  }
  p = row0(n - 1) + n - 1;
  for (int64_t j = n; j >= 1; --j) {
    b[j - 1] = b[j - 1] / ap[p];
    sub_scaled(j - 1, b, b[j - 1], ap + p - (j - 1));
    p = p - j;
  }
}

void cort_base(int64_t n, const double *ap, double *b) { cort_body(n, ap, b); }
QKM_TARGET_AVX2 void cort_avx2(int64_t n, const double *ap, double *b) { cort_body(n, ap, b); }
QKM_TARGET_AVX512 void cort_avx512(int64_t n, const double *ap, double *b) {
  cort_body(n, ap, b);
}

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

#define QKM_TILE_SWITCH(R, CALL) \
  switch (R) {                   \
    case 8: CALL(8); break;      \
    case 7: CALL(7); break;      \
    case 6: CALL(6); break;      \
    case 5: CALL(5); break;      \
    case 4: CALL(4); break;      \
    case 3: CALL(3); break;      \
    case 2: CALL(2); break;      \
    default: CALL(1); break;     \
  }

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
        const int64_t R = nrhs - kc < 8 ? nrhs - kc : 8;
#define QKM_FWD(RR) forward_tile<RR>(b, ldb, kc, j0, P, i0, i1)
        QKM_TILE_SWITCH(R, QKM_FWD)
#undef QKM_FWD
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
      const int64_t R = nrhs - kc < 8 ? nrhs - kc : 8;
#define QKM_BWD(RR) backward_tile<RR>(b, ldb, kc, i0, n, ap)
      QKM_TILE_SWITCH(R, QKM_BWD)
#undef QKM_BWD
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

void many_base(int64_t n, int64_t nrhs, const double *ap, double *b, int64_t ldb) {
  many_body(n, nrhs, ap, b, ldb);
}
QKM_TARGET_AVX2 void many_avx2(int64_t n, int64_t nrhs, const double *ap, double *b,
                               int64_t ldb) {
  many_body(n, nrhs, ap, b, ldb);
}
QKM_TARGET_AVX512 void many_avx512(int64_t n, int64_t nrhs, const double *ap, double *b,
                                   int64_t ldb) {
  many_body(n, nrhs, ap, b, ldb);
}

}  // namespace

extern "C" {

QKM_API void eacort(const qkm_int *lap, const qkm_int *n, const double *ap, double *b) {
  const int64_t nn = *n;
  if (nn < 1) return;
  switch (qkm::simd::active()) {
    case qkm::simd::Avx512: cort_avx512(nn, ap, b); break;
    case qkm::simd::Avx2: cort_avx2(nn, ap, b); break;
    default: cort_base(nn, ap, b); break;
  }
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
  switch (qkm::simd::active()) {
    case qkm::simd::Avx512: many_avx512(nn, *nrhs, ap, b, *ldb); break;
    case qkm::simd::Avx2: many_avx2(nn, *nrhs, ap, b, *ldb); break;
    default: many_base(nn, *nrhs, ap, b, *ldb); break;
  }
}

QKM_API void e_dpptrs(const char *uplo, const qkm_int *n, const qkm_int *nrhs, const double *ap,
                      double *b, const qkm_int *ldb, qkm_int *info, qkm_len uplo_len) {
  dpptrs_2(uplo, n, nrhs, ap, b, ldb, info, uplo_len);
}

}  // extern "C"
