// eagemm: C := alpha * op(A) * op(B) + beta * C, blocked through two per-thread panels.
//
// Blocking (fixed): row panels of 32 rows of op(A), depth blocks of 100 inner positions,
// column panels of 512 columns when B is read in place ("N") and of 100 columns when B is
// copied into its panel ("T"/"C"). C carries the running result from one depth block to the
// next; the first depth block starts from beta * c, the later ones from c itself.
//
// Only the depth blocks and the place of an element in C decide its rounding: the row and
// column panels (all multiples of 4 but the last) may be walked in any order and shape. The
// copies are made only where they pay: op(A) not transposed is read in place for narrow
// column panels (unless its leading dimension crowds the first-level cache, see crowds_l1),
// and the operand that carries alpha is read in place when alpha is 1 or -1.
// Since every panel but the last starts at a multiple of 4, the 1x1 elements below are those
// of rows m - m%4 .. m-1 in columns n - n%4 .. n-1 of C, whatever the panels: the direct path
// (see direct_pays) treats all of C as one panel of the whole depth, and its tiles cut the
// depth into the blocks of 100 themselves.
//
// Rounding, per element of C and per depth block of kk positions (products already carrying
// alpha on one operand: (alpha*a)*b when transb is "N", a*(alpha*b) otherwise):
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
#include <immintrin.h>

#include <bit>
#include <cstdint>
#include <cstring>

#include "QORFortranRT.h"
#include "frame/simd.h"
#include "frame/toolkit.h"
#include "frame/variant.h"
#include "frame/vec.h"
#include "frame/wrap.h"
#include "kernels.h"

namespace {

constexpr int gemm_mb = 32;           // rows of op(A) in one row panel
constexpr int gemm_kb = 100;          // inner positions in one depth block
constexpr int gemm_nb_direct = 512;   // columns of C per column panel, B read in place
constexpr int gemm_nb_packed = 100;   // columns of C per column panel, B copied

// Below this many columns in a column panel, a row panel of A that could be read in place is
// not copied: the copy costs about as much as the products it would speed up (measured;
// with B read through its rows, the strided reads of both operands favour the copy earlier).
constexpr int gemm_copy_a_from = 128;
constexpr int gemm_copy_a_from_t = 48;

// The direct path (both operands read in place, no panels) takes depths up to this many
// positions: beyond it a strip of A no longer stays near the first cache level.
constexpr int gemm_direct_k = 256;
// ... and fewer rows than this: the columns of a tall A lie a multiple of 4 KiB apart, and a
// strip of them read in place crowds a few sets of the first-level cache (measured at 2000
// rows: the copy into abuf is faster).
constexpr int gemm_direct_m = 128;

// Elements of C and A from which their panels are fetched ahead (see blocked): 4 MiB.
constexpr int64_t gemm_far = int64_t{1} << 19;

// The panels, one pair per thread.
//  abuf: element (i,p) of the row panel at abuf[p*gemm_mb + i]: for each inner position the
//        32 rows lie side by side, which is what the register tiles load as vectors.
//  bbuf: element (j,p) of the copied B panel, alpha * b(j0+j, p0+p), at bbuf[p*gemm_kb + j]:
//        the copy keeps the runs of b along j, and a tile reads it through a stride.
alignas(64) thread_local double abuf[gemm_mb * gemm_kb];
alignas(64) thread_local double bbuf[gemm_kb * gemm_kb];

using namespace qkm::vec;

// First n lanes from memory, the others +0.0; nothing beyond p[n-1] is touched. GCC takes
// the masked moves of the level as builtins (expanded inside each variant, where the level's
// instructions are enabled); other compilers copy the n elements.
typedef long long v4i __attribute__((vector_size(32)));
QKM_INLINE v4i lane_mask4(int n) {
  const v4i lane = {0, 1, 2, 3};
  return lane < static_cast<long long>(n);
}
template <class V>
QKM_INLINE V load_part(const double *p, int n) {
#if defined(__GNUC__) && !defined(__clang__)
  if constexpr (lanes<V> == 8)
    return __builtin_ia32_loadupd512_mask(p, V{}, static_cast<unsigned char>((1u << n) - 1));
  if constexpr (lanes<V> == 4)
    return __builtin_ia32_maskloadpd256(reinterpret_cast<const V *>(p), lane_mask4(n));
#endif
  V v = {};
  std::memcpy(&v, p, static_cast<size_t>(n) * sizeof(double));
  return v;
}
template <class V>
QKM_INLINE void store_part(double *p, V v, int n) {
#if defined(__GNUC__) && !defined(__clang__)
  if constexpr (lanes<V> == 8) {
    __builtin_ia32_storeupd512_mask(p, v, static_cast<unsigned char>((1u << n) - 1));
    return;
  }
  if constexpr (lanes<V> == 4) {
    __builtin_ia32_maskstorepd256(reinterpret_cast<V *>(p), lane_mask4(n), v);
    return;
  }
#endif
  std::memcpy(p, &v, static_cast<size_t>(n) * sizeof(double));
}
// The first n lanes, n in [1, lanes]: a plain move for a whole vector.
template <class V>
QKM_INLINE V load_n(const double *p, int n) {
  return n == lanes<V> ? vload<V>(p) : load_part<V>(p, n);
}
template <class V>
QKM_INLINE void store_n(double *p, V v, int n) {
  if (n == lanes<V>)
    vstore<V>(p, v);
  else
    store_part<V>(p, v, n);
}
// The same for the rows of A read at every position of a tile: with 512-bit vectors a masked
// load costs what a plain one does, so it is taken without a branch (the mask stays in its
// register for the whole tile).
template <class V>
QKM_INLINE V load_row(const double *p, int n) {
#if defined(__GNUC__) && !defined(__clang__)
  if constexpr (lanes<V> == 8) return load_part<V>(p, n);
#endif
  return load_n<V>(p, n);
}

// Keeps a loaded row vector in a register, so that the compiler does not fold the load into
// every multiplication that uses it (one load per position instead of one per column). Only
// GCC needs (and accepts) this for 512-bit vectors.
template <class V>
QKM_INLINE V in_register(V v) {
#if defined(__GNUC__) && !defined(__clang__)
  asm("" : "+v"(v));
#endif
  return v;
}

// One panel, as the tile kernels see it: a depth block of the blocked path, or the whole
// product on the direct path (the tiles cut the depth into blocks of gemm_kb themselves).
struct Block {
  int mm, nb, kk;   // rows, columns, depth
  const double *a;  // element (i,p) at a[i + p*ap]: abuf (ap = 32) or op(A) in place (ap = lda)
  int64_t ap;
  const double *b;  // element (p,j) at b[p*bp + j*bj]: in place or bbuf
  int64_t bp, bj;
  double *c;  // c(i,j) at c[i + j*ldc]
  int64_t ldc;
  double s;  // factor of C at the start: beta in the first depth block, 1.0 in the later ones
  // Fetched ahead by a sweep with Ahead, one run per column tile: pf_n runs of pf_len
  // doubles, pf_ld apart.
  const double *pf = nullptr;
  int64_t pf_ld = 0;
  int pf_n = 0, pf_len = 0;
};

// v := v + x*y, or v - x*y when alpha = -1 sits on an operand read in place: x*(-y) is
// exactly -(x*y), so the two give the same bits.
template <bool Neg, class V, class W>
QKM_INLINE V acc(V v, V x, W y) {
  if constexpr (Neg)
    return v - x * y;
  else
    return v + x * y;
}

// Register tile of RV vectors of rows by NR columns, with the e/o sums of each element.
// `last` lanes of the last row vector are real rows. The depth is walked in blocks of
// gemm_kb; between blocks the running value stays in e, which holds exactly what a store to
// C and a load back would give.
template <class V, int RV, int NR, bool Neg, bool UnitJ>
QKM_INLINE void tile(const Block &k, int i, int j, int last) {
  constexpr int W = lanes<V>;
  V e[RV][NR], o[RV][NR];
  double *c = k.c + i + j * k.ldc;
  const bool read_c = k.s != 0.0;
  for (int jj = 0; jj < NR; ++jj)
    for (int r = 0; r < RV; ++r)
      e[r][jj] = read_c ? load_n<V>(c + r * W + jj * k.ldc, r == RV - 1 ? last : W) * k.s : V{};
  const double *a = k.a + i;
  const double *b = k.b + j * k.bj;
  const int64_t ap = k.ap, bp = k.bp, bj = UnitJ ? 1 : k.bj;
  auto row = [last](const double *ar, int r) QKM_INLINE_LAMBDA {
    return in_register(r == RV - 1 ? load_row<V>(ar + r * W, last) : vload<V>(ar + r * W));
  };
  // s += row(p) * b(p, j) for the NR columns j of the tile.
  auto take = [&](V(&s)[RV][NR], const double *ar, const double *br) QKM_INLINE_LAMBDA {
    V x[RV];
    for (int r = 0; r < RV; ++r) x[r] = row(ar, r);
    for (int jj = 0; jj < NR; ++jj) {
      const double y = br[jj * bj];
      for (int r = 0; r < RV; ++r) s[r][jj] = acc<Neg>(s[r][jj], x[r], y);
    }
  };
  for (int left = k.kk; left > 0; left -= gemm_kb) {
    const int kb = left < gemm_kb ? left : gemm_kb;
    for (int jj = 0; jj < NR; ++jj)
      for (int r = 0; r < RV; ++r) o[r][jj] = V{};
    for (int pairs = kb >> 1; pairs > 0; --pairs) {
      take(e, a, b);
      a += ap;
      b += bp;
      take(o, a, b);
      a += ap;
      b += bp;
    }
    if (kb >= 2)
      for (int jj = 0; jj < NR; ++jj)
        for (int r = 0; r < RV; ++r) e[r][jj] = e[r][jj] + o[r][jj];
    if (kb & 1) {
      take(e, a, b);
      a += ap;
      b += bp;
    }
  }
  for (int jj = 0; jj < NR; ++jj)
    for (int r = 0; r < RV; ++r)
      store_n<V>(c + r * W + jj * k.ldc, e[r][jj], r == RV - 1 ? last : W);
}

template <class V, int RV, int NR, bool Neg, bool UnitJ>
QKM_INLINE void tile_nr(const Block &k, int i, int j, int nr, int last) {
  if constexpr (NR > 1) {
    if (nr < NR) {
      tile_nr<V, RV, NR - 1, Neg, UnitJ>(k, i, j, nr, last);
      return;
    }
  }
  tile<V, RV, NR, Neg, UnitJ>(k, i, j, last);
}

template <class V, int RV, int NR, bool Neg, bool UnitJ>
QKM_INLINE void tile_rv(const Block &k, int i, int j, int rv, int nr, int last) {
  if constexpr (RV > 1) {
    if (rv < RV) {
      tile_rv<V, RV - 1, NR, Neg, UnitJ>(k, i, j, rv, nr, last);
      return;
    }
  }
  tile_nr<V, RV, NR, Neg, UnitJ>(k, i, j, nr, last);
}

// Rows [0, rows) of columns [j, j+nr), nr <= NR, in strips of RV vectors.
template <class V, int RV, int NR, bool Neg, bool UnitJ>
QKM_INLINE void column_group(const Block &k, int rows, int j, int nr) {
  constexpr int W = lanes<V>, MR = RV * W;
  for (int i = 0; i < rows; i += MR) {
    const int h = rows - i < MR ? rows - i : MR;
    const int rv = (h + W - 1) / W;
    tile_rv<V, RV, NR, Neg, UnitJ>(k, i, j, rv, nr, h - (rv - 1) * W);
  }
}

// The 1x1 tile: one element with its own order of the sum, block after block of gemm_kb.
template <bool Neg>
QKM_INLINE void single(const Block &k, int i, int j) {
  double *cp = k.c + i + j * k.ldc;
  double v = k.s == 0.0 ? 0.0 : k.s * *cp;
  const double *a = k.a + i;
  const double *b = k.b + j * k.bj;
  const int64_t ap = k.ap, bp = k.bp;
  for (int p0 = 0; p0 < k.kk; p0 += gemm_kb) {
    const int kb = k.kk - p0 < gemm_kb ? k.kk - p0 : gemm_kb;
    int p = 0;
    if (kb >= 8) {
      double e[8] = {v, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
      for (; p < (kb & ~7); p += 8)
        for (int r = 0; r < 8; ++r) e[r] = acc<Neg>(e[r], a[(p + r) * ap], b[(p + r) * bp]);
      v = ((e[0] + e[2]) + (e[4] + e[6])) + ((e[1] + e[3]) + (e[5] + e[7]));
    }
    for (; p < kb; ++p) v = acc<Neg>(v, a[p * ap], b[p * bp]);
    a += kb * ap;
    b += kb * bp;
  }
  *cp = v;
}

// The tile sweep over one panel and depth block. Which order an element gets depends only
// on its place in the panel: the 1x1 elements are rows mm4.. of columns nb4..; everything
// else gets the e/o order, whatever register tile computes it. Every panel but the last of
// each direction is a multiple of 4 wide, so these are the last rows and columns of C.
//
// Register tiles: the level's budget of RV x NR vectors of sums is spent on wider tiles
// when a strip of rows is short (12 columns by one vector on AVX-512, 6 by two, 4 by three,
// 3 by four), so that few rows still give many independent sums per loaded row vector. With
// the columns of B side by side (UnitJ) the strips on AVX-512 are two row vectors by six
// columns, the fastest shape when the six column offsets are constants of the loop (measured
// 8% over four by three at m = n = k = 100), and an odd count of row vectors ends with a
// strip of three by four.
//
// With Pack, each strip of A is first copied into `pack` (its rows side by side for every
// position, MX doubles apart) and all its column tiles read the copy.
template <int L, bool Neg, bool UnitJ, bool Pack = false, bool Ahead = false>
QKM_INLINE void sweep(const Block &k, double *pack = nullptr) {
  using T = qkm::simd::Traits<L>;
  using V = typename T::V;
  constexpr bool wide = lanes<V> == 8 && UnitJ;
  constexpr int RV = wide ? 2 : T::tile_rows, NR = wide ? 6 : T::tile_cols, W = lanes<V>;
  constexpr int RX = wide ? 3 : RV, MX = RX * W;
  const int nb4 = k.nb & ~3, mm4 = k.mm & ~3;
  for (int i = 0; i < k.mm;) {
    const int left = (k.mm - i + W - 1) / W;  // row vectors left
    const int rv = left == RX ? RX : left < RV ? left : RV;
    const int h = k.mm - i < rv * W ? k.mm - i : rv * W, last = h - (rv - 1) * W;
    qkm::with_count<1, RX>(rv, [&](auto r) QKM_INLINE_LAMBDA {
      constexpr int R = decltype(r)::value, N = RV * NR / R;
      if constexpr (Pack) {
        const double *src = k.a + i;
        for (int p = 0; p < k.kk; ++p)
          for (int q = 0; q < R; ++q)
            vstore<V>(pack + p * MX + q * W, q == R - 1 ? load_row<V>(src + p * k.ap + q * W, last)
                                                        : vload<V>(src + p * k.ap + q * W));
        Block ks = k;
        ks.a = pack;
        ks.ap = MX;
        ks.c = k.c + i;
        for (int j = 0; j < nb4; j += N)
          tile_nr<V, R, N, Neg, UnitJ>(ks, 0, j, nb4 - j < N ? nb4 - j : N, last);
      } else {
        for (int j = 0; j < nb4; j += N) {
          if constexpr (Ahead) {
            // The part of C the next tile starts from: a large C comes from memory, and
            // its first additions would otherwise wait for it.
            if (j + N < k.nb) {
              const double *cn = k.c + i + static_cast<int64_t>(j + N) * k.ldc;
              for (int jj = 0; jj < N && j + N + jj < k.nb; ++jj, cn += k.ldc) {
                for (int q = 0; q < R; ++q) __builtin_prefetch(cn + q * W, 0, 3);
                __builtin_prefetch(cn + h - 1, 0, 3);
              }
            }
            // One run of what the next copy will read, spread over the tiles.
            const int t = j / N;
            if (t < k.pf_n) {
              const double *r = k.pf + t * k.pf_ld;
              for (int q = 0; q < k.pf_len; q += 8) __builtin_prefetch(r + q, 0, 2);
              __builtin_prefetch(r + k.pf_len - 1, 0, 2);
            }
          }
          tile_nr<V, R, N, Neg, UnitJ>(k, i, j, nb4 - j < N ? nb4 - j : N, last);
        }
      }
    });
    i += h;
  }
  if (nb4 == k.nb) return;
  for (int j = nb4; j < k.nb; j += NR)
    column_group<V, RV, NR, Neg, UnitJ>(k, mm4, j, k.nb - j < NR ? k.nb - j : NR);
  for (int j = nb4; j < k.nb; ++j)
    for (int i = mm4; i < k.mm; ++i) single<Neg>(k, i, j);
}

// Whether a strip of A read in place crowds the first-level cache (48 KiB, 12 ways of 64
// sets of 64-byte lines on the machines measured). Its columns lie lda doubles apart: with
// lda a multiple of 64 doubles (512 bytes) they all start in the same 8 sets or fewer, and
// with the 4 lines a 32-row column spans, a strip of `depth` positions meets only 32 sets or
// fewer. Beyond 10 lines a set (2 ways left for B and C) it no longer stays in the cache
// from one column tile to the next: measured at m = n = 64, k = 100, lda = 64, 60 against
// 94 GFLOP/s when copied; at k = 64 (8 lines a set) the copy costs 7%. The narrower strips
// of the other levels take the same rule.
QKM_INLINE bool crowds_l1(int64_t lda, int depth) {
  // Sets where columns start: 4096 / gcd(8 lda, 4096), lda >= 1.
  const int tz = std::countr_zero(static_cast<uint64_t>(lda));
  const int starts = 512 >> (tz < 9 ? tz : 9);
  // A strip deeper than the cache holds gains nothing from a copy when its columns already
  // spread over all the sets.
  return starts < 16 && depth * 4 > 10 * (starts * 4);
}

// abuf := x * op(A)(i0+i, p0+p) (x = alpha, or no multiplication when scale is false).
// `a` points at op(A)(i0+1, p0+1).
template <bool scale>
QKM_INLINE void fill_abuf(double *dst, bool nota, const double *a, int64_t lda, int mm, int kk,
                          double x) {
  if (nota) {
    // Columns of a run along i: straight runs.
    for (int p = 0; p < kk; ++p) {
      const double *src = a + p * lda;
      double *d = dst + p * gemm_mb;
      for (int i = 0; i < mm; ++i) d[i] = scale ? x * src[i] : src[i];
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
}

struct Args {
  bool nota, notb;
  int m, n, k;
  double alpha, beta;
  const double *a, *b;
  int64_t lda, ldb;
  double *c;
  int64_t ldc;
};

// Where the operands come from. alpha lands on A ((alpha*a)*b) when B is read in place
// ("N") and on B (a*(alpha*b)) when it is copied ("T"/"C"). An operand that carries alpha
// is read in place only when alpha is 1 or -1, where the multiplication is exact and -1
// becomes a subtraction; otherwise it goes through its panel. A transposed A always goes
// through abuf.
//
// The rounding depends only on the depth blocks and on the place of an element in C (see the
// top of the file), so the row and column panels are free: the copied form with B read in
// place takes the direct form's 512-column panels, which reads A a fifth as often.
template <int L, bool Neg>
QKM_INLINE void blocked(const Args &g, bool a_in_place, bool b_in_place) {
  // op(A)(i,p) sits at a[i*ai + p*ap] (0-based).
  const int64_t ai = g.nota ? 1 : g.lda, ap = g.nota ? g.lda : 1;
  const double ax = g.notb ? g.alpha : 1.0;  // factor of abuf
  const int nbmax = b_in_place ? gemm_nb_direct : gemm_nb_packed;
  // The panels are reached only when used: in a shared library each reach of thread-local
  // storage can cost a call, noticeable on the smallest products.
  double *const bb = b_in_place ? nullptr : bbuf;
  double *ab = nullptr;
  Block k{};
  k.ldc = g.ldc;
  if (b_in_place) {
    k.bp = g.notb ? 1 : g.ldb;
    k.bj = g.notb ? g.ldb : 1;
  } else {
    k.b = bb;
    k.bp = gemm_kb;
    k.bj = 1;
  }
  const bool crowded = a_in_place && crowds_l1(g.lda, g.k < gemm_kb ? g.k : gemm_kb);
  // Operands beyond the second-level cache come back from farther for every depth block and
  // column panel: the sweep then fetches the part of C of its next tile ahead, and the copy
  // of a row panel of A the next one (measured at m = n = 2000).
  const bool far = static_cast<int64_t>(g.m) * (g.n + g.k) > gemm_far;
  // Column panels outermost when B is read in place (its 512-column panels re-read A
  // seldom); depth blocks outermost when B is copied into its 100-column panels, so that a
  // depth block of A (m by 100) is read again for the next panel while it is still near,
  // instead of all of A once per panel (measured 5% at m = n = k = 2000; the other order
  // measured 3% slower with B in place).
  const int npanels = (g.n + nbmax - 1) / nbmax, nblocks = (g.k + gemm_kb - 1) / gemm_kb;
  const int outer = b_in_place ? npanels : nblocks, inner = b_in_place ? nblocks : npanels;
  for (int u = 0; u < outer; ++u) {
    for (int v = 0; v < inner; ++v) {
      const int j0 = (b_in_place ? u : v) * nbmax, p0 = (b_in_place ? v : u) * gemm_kb;
      k.nb = g.n - j0 < nbmax ? g.n - j0 : nbmax;
      const bool copy_a = !a_in_place || crowded ||
                          k.nb >= (g.notb ? gemm_copy_a_from : gemm_copy_a_from_t);
      k.kk = g.k - p0 < gemm_kb ? g.k - p0 : gemm_kb;
      k.s = p0 == 0 ? g.beta : 1.0;
      if (b_in_place) {
        k.b = g.b + (g.notb ? p0 + j0 * g.ldb : j0 + p0 * g.ldb);
      } else {
        // bbuf := alpha * op(B), once per column panel and depth block, shared by all row panels.
        for (int p = 0; p < k.kk; ++p) {
          const double *src = g.b + j0 + (p0 + p) * g.ldb;
          double *d = bb + p * gemm_kb;
          for (int j = 0; j < k.nb; ++j) d[j] = g.alpha * src[j];
        }
      }
      for (int i0 = 0; i0 < g.m; i0 += gemm_mb) {
        k.mm = g.m - i0 < gemm_mb ? g.m - i0 : gemm_mb;
        const double *a0 = g.a + i0 * ai + p0 * ap;
        if (far && i0 + 2 * gemm_mb <= g.m) {
          // The next row panel of A, run by run: nota, its kk columns of 32 rows; else its
          // 32 rows of kk positions.
          k.pf = a0 + gemm_mb * ai;
          k.pf_ld = g.lda;
          k.pf_n = g.nota ? k.kk : gemm_mb;
          k.pf_len = g.nota ? gemm_mb : k.kk;
        } else {
          k.pf_n = 0;
        }
        if (copy_a) {
          if (ab == nullptr) ab = abuf;
          if (g.notb && ax != 1.0 && !Neg)
            fill_abuf<true>(ab, g.nota, a0, g.lda, k.mm, k.kk, ax);
          else
            fill_abuf<false>(ab, g.nota, a0, g.lda, k.mm, k.kk, 1.0);
          k.a = ab;
          k.ap = gemm_mb;
        } else {
          k.a = a0;
          k.ap = g.lda;
        }
        k.c = g.c + i0 + j0 * g.ldc;
        if (far)
          sweep<L, Neg, false, false, true>(k);
        else
          sweep<L, Neg, false>(k);
      }
    }
  }
}

template <int L>
QKM_INLINE void product_body(const Args &g) {
  const bool unit = g.alpha == 1.0 || g.alpha == -1.0;
  // The operand that carries alpha, when read in place, carries it as the sign of the sum.
  const bool a_in_place = g.nota && (unit || !g.notb);
  const bool b_in_place = g.notb || unit;
  const bool neg = g.alpha == -1.0 && (g.notb ? a_in_place : b_in_place);
  if (neg)
    blocked<L, true>(g, a_in_place, b_in_place);
  else
    blocked<L, false>(g, a_in_place, b_in_place);
}
QKM_VARIANTS(void, product, (const Args &g), (g))

// The direct path: with A not transposed, alpha = 1 or -1, fewer than gemm_copy_a_from
// columns (where the direct form reads both operands in place anyway; for B read through its
// rows it also beats the copy of A from 48 columns on, measured), fewer than gemm_direct_m
// rows and a depth up to gemm_direct_k, C is taken as one panel with the whole depth. No
// panel, no copy, no loop over panels: each register tile reads and writes its part of C
// once and keeps its sums across the depth blocks. A function of its own, so that the
// smallest products pass through little control and its loops get registers of their own.
QKM_INLINE bool direct_pays(const Args &g) {
  return g.nota && (g.alpha == 1.0 || g.alpha == -1.0) && g.k <= gemm_direct_k &&
         g.n < gemm_copy_a_from && g.m < gemm_direct_m;
}

// Both operands in place; with Pack, each strip of A copied first (see packs_a) into bbuf,
// which the direct path does not otherwise use: a strip of 32 rows at the largest depth takes
// 8,192 of its 10,000 doubles. Two variant functions, so that the small products keep their
// short one.
template <int L, bool Pack>
QKM_INLINE void direct_sweep(const Args &g) {
  const Block k{g.m, g.n, g.k, g.a, g.lda, g.b, g.notb ? 1 : g.ldb, g.notb ? g.ldb : 1,
                g.c, g.ldc, g.beta};
  double *pk = nullptr;
  if constexpr (Pack) pk = bbuf;
  if (g.alpha < 0.0)
    g.notb ? sweep<L, true, false, Pack>(k, pk) : sweep<L, true, true, Pack>(k, pk);
  else
    g.notb ? sweep<L, false, false, Pack>(k, pk) : sweep<L, false, true, Pack>(k, pk);
}
template <int L>
QKM_INLINE void direct_body(const Args &g) {
  direct_sweep<L, false>(g);
}
template <int L>
QKM_INLINE void direct_packed_body(const Args &g) {
  direct_sweep<L, true>(g);
}
QKM_VARIANTS(void, direct, (const Args &g), (g))
QKM_VARIANTS(void, direct_packed, (const Args &g), (g))

QKM_INLINE bool packs_a(const Args &g) { return g.n >= 8 && crowds_l1(g.lda, g.k); }

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
  if (direct_pays(g))
    packs_a(g) ? direct_packed(g) : direct(g);
  else
    product(g);
}
