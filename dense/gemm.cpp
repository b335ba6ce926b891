// eagemm: C := alpha * op(A) * op(B) + beta * C, blocked through two per-thread panels.
//
// Blocking (fixed): row panels of 32 rows of op(A), depth blocks of 100 inner positions,
// column panels of 1024 columns when B is read in place ("N") and of 100 columns when B is
// copied into its panel ("T"/"C"). C carries the running result from one depth block to the
// next; the first depth block starts from beta * c, the later ones from c itself.
//
// Rounding, per element of C and per depth block of kk positions (products already carrying
// alpha on one operand: (alpha*a)*b when B is read in place, a*(alpha*b) otherwise):
//  - elements of the 4x4, 1x4 and 4x1 tiles (everything but the bottom-right corner of the
//    last row panel by the last column panel, see below): e starts at the start value v and
//    takes the products at the odd positions 1, 3, 5, ...; o starts at +0.0 and takes the
//    even positions 2, 4, ...; then v = e + o (only when kk >= 2) and, for odd kk, the last
//    product is added to v;
//  - elements of the 1x1 tiles (rows beyond the last multiple of 4 of a row panel, in the
//    columns beyond the last multiple of 4 of a column panel): below 8 products the products
//    are added to v one by one; otherwise eight partial sums e0..e7 (e0 = v, the others +0.0,
//    position p+r into er) are combined as ((e0+e2)+(e4+e6))+((e1+e3)+(e5+e7)) and the
//    remaining products are added one by one.
// The register tiles below hold the e and o sums of many elements side by side, one element
// per vector lane, so every lane performs exactly the scalar sequence above: the result is the
// same on every instruction set. No fused multiply-add anywhere.
#include <cstdint>
#include <cstring>

#include "frame/wrap.h"
#include "QORFortranRT.h"
#include "frame/simd.h"
#include "frame/vec.h"
#include "kernels.h"

namespace {

constexpr int gemm_mb = 32;           // rows of op(A) in one row panel
constexpr int gemm_kb = 100;          // inner positions in one depth block
constexpr int gemm_nb_direct = 1024;  // columns of C per column panel, B read in place
constexpr int gemm_nb_packed = 100;   // columns of C per column panel, B copied

// The panels, one pair per thread.
//  abuf: element (i,p) of the row panel at abuf[p*gemm_mb + i]: for each inner position the
//        32 rows lie side by side, which is what the register tiles load as vectors. Rows of
//        the last (short) panel are padded with zeros up to a multiple of 8.
//  bbuf: element (j,p) of the copied B panel, alpha * b(j0+j, p0+p), at bbuf[p*gemm_kb + j]:
//        the copy keeps the runs of b along j, and a tile reads it through a stride.
alignas(64) thread_local double abuf[gemm_mb * gemm_kb];
alignas(64) thread_local double bbuf[gemm_kb * gemm_kb];

using namespace qkm::vec;

// First n lanes from memory, the others +0.0; nothing beyond p[n-1] is read.
template <class V>
QKM_INLINE V vload_n(const double *p, int n) {
  if (n == lanes<V>) return vload<V>(p);
  V v = {};
  for (int l = 0; l < n; ++l) v[l] = p[l];
  return v;
}
template <class V>
QKM_INLINE void vstore_n(double *p, V v, int n) {
  if (n == lanes<V>) {
    vstore<V>(p, v);
    return;
  }
  for (int l = 0; l < n; ++l) p[l] = v[l];
}

// Keeps a loaded row vector in a register, so that the compiler does not fold the load into
// every multiplication that uses it (one load per position instead of one per column).
template <class V>
QKM_INLINE V in_register(V v) {
#if !defined(__clang__)  // clang rejects "+v" on 512-bit vectors; it keeps the load anyway
  asm("" : "+v"(v));
#endif
  return v;
}

// One depth block of one panel, as the tile kernels see it.
struct Block {
  int mm, nb, kk;   // rows, columns, depth
  const double *a;  // element (i,p) at a[p*gemm_mb + i]
  const double *b;  // element (p,j) at b[p*bp + j*bj]
  int64_t bp, bj;
  double *c;  // c(i,j) at c[i + j*ldc]
  int64_t ldc;
  double s;  // beta in the first depth block, 1.0 in the later ones
};

// Register tile of RV vectors of rows by NR columns, with the e/o sums of each element.
// `last` lanes of the last row vector are real rows.
template <class V, int RV, int NR>
QKM_INLINE void tile(const Block &k, int i, int j, int last) {
  constexpr int W = lanes<V>;
  V e[RV][NR], o[RV][NR];
  double *c = k.c + i + j * k.ldc;
  for (int jj = 0; jj < NR; ++jj)
    for (int r = 0; r < RV; ++r) {
      const int n = r == RV - 1 ? last : W;
      e[r][jj] = k.s == 0.0 ? V{} : vload_n<V>(c + r * W + jj * k.ldc, n) * k.s;
      o[r][jj] = V{};
    }
  const double *a = k.a + i;
  const double *b = k.b + j * k.bj;
  const int64_t bp = k.bp, bj = k.bj;
  const int kk2 = k.kk & ~1;
  for (int p = 0; p < kk2; p += 2) {
    V x[RV];
    for (int r = 0; r < RV; ++r) x[r] = in_register(vload<V>(a + r * W));
    for (int jj = 0; jj < NR; ++jj) {
      const double y = b[jj * bj];
      for (int r = 0; r < RV; ++r) e[r][jj] += x[r] * y;
    }
    a += gemm_mb;
    b += bp;
    for (int r = 0; r < RV; ++r) x[r] = in_register(vload<V>(a + r * W));
    for (int jj = 0; jj < NR; ++jj) {
      const double y = b[jj * bj];
      for (int r = 0; r < RV; ++r) o[r][jj] += x[r] * y;
    }
    a += gemm_mb;
    b += bp;
  }
  if (kk2 > 0)
    for (int jj = 0; jj < NR; ++jj)
      for (int r = 0; r < RV; ++r) e[r][jj] = e[r][jj] + o[r][jj];
  if (k.kk & 1) {
    V x[RV];
    for (int r = 0; r < RV; ++r) x[r] = vload<V>(a + r * W);
    for (int jj = 0; jj < NR; ++jj) {
      const double y = b[jj * bj];
      for (int r = 0; r < RV; ++r) e[r][jj] += x[r] * y;
    }
  }
  for (int jj = 0; jj < NR; ++jj)
    for (int r = 0; r < RV; ++r)
      vstore_n<V>(c + r * W + jj * k.ldc, e[r][jj], r == RV - 1 ? last : W);
}

template <class V, int RV, int NR>
QKM_INLINE void tile_nr(const Block &k, int i, int j, int nr, int last) {
  if constexpr (NR > 1) {
    if (nr < NR) {
      tile_nr<V, RV, NR - 1>(k, i, j, nr, last);
      return;
    }
  }
  tile<V, RV, NR>(k, i, j, last);
}

template <class V, int RV, int NR>
QKM_INLINE void tile_rv(const Block &k, int i, int j, int rv, int nr, int last) {
  if constexpr (RV > 1) {
    if (rv < RV) {
      tile_rv<V, RV - 1, NR>(k, i, j, rv, nr, last);
      return;
    }
  }
  tile_nr<V, RV, NR>(k, i, j, nr, last);
}

// Rows [0, rows) of columns [j, j+nr), nr <= NR, in strips of RV vectors.
template <class V, int RV, int NR>
QKM_INLINE void column_group(const Block &k, int rows, int j, int nr) {
  constexpr int W = lanes<V>, MR = RV * W;
  for (int i = 0; i < rows; i += MR) {
    const int h = rows - i < MR ? rows - i : MR;
    const int rv = (h + W - 1) / W;
    tile_rv<V, RV, NR>(k, i, j, rv, nr, h - (rv - 1) * W);
  }
}

// The 1x1 tile: one element with its own order of the sum.
QKM_INLINE void single(const Block &k, int i, int j) {
  double *cp = k.c + i + j * k.ldc;
  double v = k.s == 0.0 ? 0.0 : k.s * *cp;
  const double *a = k.a + i;
  const double *b = k.b + j * k.bj;
  const int64_t bp = k.bp;
  const int kk = k.kk;
  int p = 0;
  if (kk >= 8) {
    double e0 = v, e1 = 0.0, e2 = 0.0, e3 = 0.0, e4 = 0.0, e5 = 0.0, e6 = 0.0, e7 = 0.0;
    const int kk8 = kk & ~7;
    for (; p < kk8; p += 8) {
      e0 = e0 + a[(p + 0) * gemm_mb] * b[(p + 0) * bp];
      e1 = e1 + a[(p + 1) * gemm_mb] * b[(p + 1) * bp];
      e2 = e2 + a[(p + 2) * gemm_mb] * b[(p + 2) * bp];
      e3 = e3 + a[(p + 3) * gemm_mb] * b[(p + 3) * bp];
      e4 = e4 + a[(p + 4) * gemm_mb] * b[(p + 4) * bp];
      e5 = e5 + a[(p + 5) * gemm_mb] * b[(p + 5) * bp];
      e6 = e6 + a[(p + 6) * gemm_mb] * b[(p + 6) * bp];
      e7 = e7 + a[(p + 7) * gemm_mb] * b[(p + 7) * bp];
    }
    v = ((e0 + e2) + (e4 + e6)) + ((e1 + e3) + (e5 + e7));
  }
  for (; p < kk; ++p) v = v + a[p * gemm_mb] * b[p * bp];
  *cp = v;
}

// The tile sweep over one panel and depth block. Which order an element gets depends only
// on its place in the panel: the 1x1 elements are rows mm4.. of columns nb4..; everything
// else gets the e/o order, whatever register tile computes it.
template <class V, int RV, int NR>
QKM_INLINE void sweep(const Block &k) {
  const int nb4 = k.nb & ~3, mm4 = k.mm & ~3;
  for (int j = 0; j < nb4; j += NR) column_group<V, RV, NR>(k, k.mm, j, nb4 - j < NR ? nb4 - j : NR);
  if (nb4 == k.nb) return;
  for (int j = nb4; j < k.nb; j += NR)
    column_group<V, RV, NR>(k, mm4, j, k.nb - j < NR ? k.nb - j : NR);
  for (int j = nb4; j < k.nb; ++j)
    for (int i = mm4; i < k.mm; ++i) single(k, i, j);
}

// abuf := x * op(A)(i0+i, p0+p) (x = alpha, or no multiplication when scale is false), rows
// padded with zeros up to a multiple of 8. `a` points at op(A)(i0+1, p0+1).
template <bool scale>
QKM_INLINE void fill_abuf(double *dst, bool nota, const double *a, int64_t lda, int mm, int kk,
                          double x) {
  const int pad = (mm + 7) & ~7;
  if (nota) {
    // Columns of a run along i: straight runs.
    for (int p = 0; p < kk; ++p) {
      const double *src = a + p * lda;
      double *d = dst + p * gemm_mb;
      for (int i = 0; i < mm; ++i) d[i] = scale ? x * src[i] : src[i];
      for (int i = mm; i < pad; ++i) d[i] = 0.0;
    }
    return;
  }
  // Columns of a run along p: a transposition, four rows at a time.
  int i = 0;
  for (; i + 4 <= mm; i += 4) {
    const double *s0 = a + i * lda, *s1 = s0 + lda, *s2 = s1 + lda, *s3 = s2 + lda;
    for (int p = 0; p < kk; ++p) {
      double *d = dst + p * gemm_mb + i;
      d[0] = scale ? x * s0[p] : s0[p];
      d[1] = scale ? x * s1[p] : s1[p];
      d[2] = scale ? x * s2[p] : s2[p];
      d[3] = scale ? x * s3[p] : s3[p];
    }
  }
  for (; i < mm; ++i) {
    const double *s0 = a + i * lda;
    for (int p = 0; p < kk; ++p) dst[p * gemm_mb + i] = scale ? x * s0[p] : s0[p];
  }
  for (int p = 0; p < kk; ++p)
    for (int r = mm; r < pad; ++r) dst[p * gemm_mb + r] = 0.0;
}

struct Args {
  bool nota, notb;
  int m, n, k;
  double alpha, beta;
  const double *a, *b;
  int64_t lda, ldb;
  double *c;
  int64_t ldc;
  double *abuf, *bbuf;
};

template <class V, int RV, int NR>
QKM_INLINE void blocked(const Args &g) {
  // op(A)(i,p) sits at a[i*ai + p*ap] (0-based).
  const int64_t ai = g.nota ? 1 : g.lda, ap = g.nota ? g.lda : 1;
  Block k;
  k.a = g.abuf;
  k.ldc = g.ldc;
  if (g.notb) {
    // Direct form: B read in place, alpha folded into abuf.
    k.bp = 1;
    k.bj = g.ldb;
    for (int j0 = 0; j0 < g.n; j0 += gemm_nb_direct) {
      k.nb = g.n - j0 < gemm_nb_direct ? g.n - j0 : gemm_nb_direct;
      for (int p0 = 0; p0 < g.k; p0 += gemm_kb) {
        k.kk = g.k - p0 < gemm_kb ? g.k - p0 : gemm_kb;
        k.s = p0 == 0 ? g.beta : 1.0;
        k.b = g.b + p0 + j0 * g.ldb;
        for (int i0 = 0; i0 < g.m; i0 += gemm_mb) {
          k.mm = g.m - i0 < gemm_mb ? g.m - i0 : gemm_mb;
          fill_abuf<true>(g.abuf, g.nota, g.a + i0 * ai + p0 * ap, g.lda, k.mm, k.kk, g.alpha);
          k.c = g.c + i0 + j0 * g.ldc;
          sweep<V, RV, NR>(k);
        }
      }
    }
    return;
  }
  // Packed form: bbuf := alpha * op(B) once per column panel and depth block, shared by all
  // row panels; abuf holds op(A) as it stands.
  k.b = g.bbuf;
  k.bp = gemm_kb;
  k.bj = 1;
  for (int j0 = 0; j0 < g.n; j0 += gemm_nb_packed) {
    k.nb = g.n - j0 < gemm_nb_packed ? g.n - j0 : gemm_nb_packed;
    for (int p0 = 0; p0 < g.k; p0 += gemm_kb) {
      k.kk = g.k - p0 < gemm_kb ? g.k - p0 : gemm_kb;
      k.s = p0 == 0 ? g.beta : 1.0;
      for (int p = 0; p < k.kk; ++p) {
        const double *src = g.b + j0 + (p0 + p) * g.ldb;
        double *d = g.bbuf + p * gemm_kb;
        for (int j = 0; j < k.nb; ++j) d[j] = g.alpha * src[j];
      }
      for (int i0 = 0; i0 < g.m; i0 += gemm_mb) {
        k.mm = g.m - i0 < gemm_mb ? g.m - i0 : gemm_mb;
        fill_abuf<false>(g.abuf, g.nota, g.a + i0 * ai + p0 * ap, g.lda, k.mm, k.kk, 1.0);
        k.c = g.c + i0 + j0 * g.ldc;
        sweep<V, RV, NR>(k);
      }
    }
  }
}

// Register tiles: 2 vectors of rows by 3 columns (12 e/o accumulators) on 16 registers,
// 4 vectors of rows (a whole 32-row panel) by 3 columns (24 accumulators) on AVX-512.
void blocked_base(const Args &g) { blocked<v2d, 2, 3>(g); }
QKM_TARGET_AVX2 void blocked_avx2(const Args &g) { blocked<v4d, 2, 3>(g); }
QKM_TARGET_AVX512 void blocked_avx512(const Args &g) { blocked<v8d, 4, 3>(g); }

inline bool is_n(char f) { return f == 'N' || f == 'n'; }
inline bool is_t(char f) { return f == 'T' || f == 't' || f == 'C' || f == 'c'; }

[[noreturn]] void fatal() {
  static const char text[] = "DGEMM FATAL ERROR";
  for_stop_core(text, 17, 0);
}

}  // namespace

extern "C" void eagemm(const char *transa, const char *transb, const qkm_int *m, const qkm_int *n,
                       const qkm_int *k, const double *alpha, const double *a,
                       const qkm_int *lda, const double *b, const qkm_int *ldb,
                       const double *beta, double *c, const qkm_int *ldc, qkm_len, qkm_len) {
  const char ta = *transa, tb = *transb;
  const bool nota = is_n(ta), notb = is_n(tb);
  if (*m == 0) return;
  if (*n == 0) return;
  if ((*alpha == 0.0 || *k == 0) && *beta == 1.0) return;

  const int32_t M = *m, N = *n, K = *k;
  auto at_least = [](int32_t ld, int32_t dim) { return ld >= (dim > 1 ? dim : 1); };
  if ((!nota && !is_t(ta)) || (!notb && !is_t(tb)) || M < 0 || N < 0 || K < 0 ||
      !at_least(*lda, nota ? M : K) || !at_least(*ldb, notb ? K : N) || !at_least(*ldc, M))
    fatal();

  if (*alpha == 0.0 || K == 0) {
    // Scale-only path: the product vanishes, a and b are not read.
    static const qkm_int one = 1;
    const bool zero = *beta == 0.0;
    if (!zero && *beta == 1.0) return;
    if (M == *ldc) {
      const qkm_int count = qkm::wrap_mul(M, N);
      if (zero)
        e_dzero(&count, c, &one);
      else
        e_dscal(&count, beta, c, &one);
      return;
    }
    const int64_t ld = *ldc;
    for (int32_t j = 0; j < N; ++j) {
      if (zero)
        e_dzero(m, c + j * ld, &one);
      else
        e_dscal(m, beta, c + j * ld, &one);
    }
    return;
  }

  Args g;
  g.nota = nota;
  g.notb = notb;
  g.m = M;
  g.n = N;
  g.k = K;
  g.alpha = *alpha;
  g.beta = *beta;
  g.a = a;
  g.b = b;
  g.lda = *lda;
  g.ldb = *ldb;
  g.c = c;
  g.ldc = *ldc;
  g.abuf = abuf;
  g.bbuf = bbuf;
  switch (qkm::simd::active()) {
    case qkm::simd::Avx512: blocked_avx512(g); break;
    case qkm::simd::Avx2: blocked_avx2(g); break;
    default: blocked_base(g); break;
  }
}
