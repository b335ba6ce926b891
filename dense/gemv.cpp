// Matrix-vector products: the tuned kernels dgemv_n, dgemv32_n (y := beta*y + alpha*A*x),
// dgemv_t, dgemv32_t (y := beta*y + alpha*A^T*x), the general path dgemvf and the dispatch
// eagemv, which cuts the matrix into pieces for the four kernels.
//
// Fixed splits of the sums, the same on every instruction set and at any alignment of a, x
// and y. A vector lane always carries one element of y through exactly the scalar sequence
// below, so the register width and the grouping of rows or columns never change a bit.
//  - No-transpose kernels, every row alike (strips and remainder rows): two partial sums,
//    e from beta*y(i) taking the odd columns 1, 3, 5, ... and o from +0.0 taking the even
//    columns, each term a(i,j) * (alpha*x(j)); then y(i) = e + o when n >= 2, else e.
//  - Transpose column-group form (dgemv_t, dgemv32_t with a stride other than 1) and the
//    column sums of dgemvf, with the start value v (beta*y(j), or 0.0 in dgemvf) and the
//    terms a(i,j)*t(i) (t = alpha*x in the kernels, x in dgemvf): below 8 rows the terms are
//    added to v one by one; otherwise eight partial sums e0..e7 (e0 = v, the others +0.0, row
//    8k+r into er) run over the whole rounds of 8 rows and are combined as
//    ((e0+e2)+(e4+e6))+((e1+e3)+(e5+e7)), and the last m mod 8 terms are added one by one.
//    The terms t(i) are formed once per chunk of rows into a buffer on the stack (x is read
//    once per chunk, not once per group); a is read where it lies.
//  - Unit-stride form of dgemv32_t: no split, the prescribed order for every column, the odd
//    last one too: s = beta*y(j), then s = s + alpha*t for each four-term sum
//    t = ((a(i)x(i) + a(i+1)x(i+1)) + a(i+2)x(i+2)) + a(i+3)x(i+3), rows in ascending order.
//
// With a stride of 0 for y the kernels keep the described groups of four rows or columns (all
// reads of a group before its writes), through a plain scalar walk.
#include <cstdint>

#include "QORFortranRT.h"
#include "frame/simd.h"
#include "frame/toolkit.h"
#include "frame/variant.h"
#include "frame/vec.h"
#include "kernels.h"

namespace {

using namespace qkm::vec;
using qkm::mirrored_start;

constexpr qkm_int gemv_nblock = 64;  // columns per block of eagemv
constexpr qkm_int gemv_mmul = 8;     // row multiple given to the kernels with 32 in their name

// The sizes that eagemv hands to the kernels by reference, one set per thread.
thread_local qkm_int leny, nrest, mrows8, mrest;
// The length of y in dgemvf.
thread_local qkm_int leny_f;

// Eight consecutive elements of a strided vector.
QKM_INLINE v8d load8s(const double *p, int64_t inc) {
  if (inc == 1) return load8(p);
  v8d v;
  for (int l = 0; l < 8; ++l) v[l] = p[l * inc];
  return v;
}
QKM_INLINE void store8s(double *p, int64_t inc, v8d v) {
  if (inc == 1) {
    store8(p, v);
    return;
  }
  for (int l = 0; l < 8; ++l) p[l * inc] = v[l];
}

// ---- no transpose ---------------------------------------------------------------------
// Arguments of one call, with the vectors already at their mirrored starts.
struct NArgs {
  int64_t rows, n, lda, incx, incy;
  double alpha, beta;
  const double *a, *x;
  double *y;
};

// Rows i0 .. i0+8B-1 across all columns, B vectors of eight rows.
template <int B>
QKM_INLINE void n_block(const NArgs &g, int64_t i0) {
  v8d e[B], o[B];
  const v8d vb = splat8(g.beta);
  for (int b = 0; b < B; ++b) {
    e[b] = load8s(g.y + (i0 + 8 * b) * g.incy, g.incy) * vb;
    o[b] = v8d{};
  }
  const double *col = g.a + i0;
  int64_t j = 0;
  for (; j + 2 <= g.n; j += 2, col += 2 * g.lda) {
    const v8d t0 = splat8(g.alpha * g.x[j * g.incx]);
    const v8d t1 = splat8(g.alpha * g.x[(j + 1) * g.incx]);
    for (int b = 0; b < B; ++b) e[b] = e[b] + load8(col + 8 * b) * t0;
    for (int b = 0; b < B; ++b) o[b] = o[b] + load8(col + g.lda + 8 * b) * t1;
  }
  if (j < g.n) {
    const v8d t0 = splat8(g.alpha * g.x[j * g.incx]);
    for (int b = 0; b < B; ++b) e[b] = e[b] + load8(col + 8 * b) * t0;
  }
  for (int b = 0; b < B; ++b)
    store8s(g.y + (i0 + 8 * b) * g.incy, g.incy, g.n >= 2 ? e[b] + o[b] : e[b]);
}

// The same sequence for rows i0 .. i0+cnt-1 one by one: all reads of y before the writes.
QKM_INLINE void n_rows_scalar(const NArgs &g, int64_t i0, int cnt) {
  double e[4], o[4] = {0.0, 0.0, 0.0, 0.0};
  for (int r = 0; r < cnt; ++r) e[r] = g.beta * g.y[(i0 + r) * g.incy];
  for (int64_t j = 0; j < g.n; ++j) {
    const double t = g.alpha * g.x[j * g.incx];
    const double *c = g.a + i0 + j * g.lda;
    for (int r = 0; r < cnt; ++r) {
      if (j & 1)
        o[r] = o[r] + c[r] * t;
      else
        e[r] = e[r] + c[r] * t;
    }
  }
  for (int r = 0; r < cnt; ++r) g.y[(i0 + r) * g.incy] = g.n >= 2 ? e[r] + o[r] : e[r];
}

template <int L>
QKM_INLINE void n_run_body(const NArgs &g) {
  // Strips of B vectors of eight rows: 64 rows (16 sums in registers) on AVX-512, where the
  // longer run read from each column per visit measured 6-10% faster for a matrix streaming
  // from memory (m = n = 4000) and for short wide ones; half a register file elsewhere.
  constexpr int W = qkm::simd::Traits<L>::width;
  constexpr int B = W == 8 ? 8 : W / 2 > 0 ? W / 2 : 1;
  int64_t i = 0;
  if (g.incy == 0) {
    // Every row meets the same element: strips of four as described.
    for (; i < g.rows; i += 4) n_rows_scalar(g, i, g.rows - i < 4 ? int(g.rows - i) : 4);
    return;
  }
  for (; i + 8 * B <= g.rows; i += 8 * B) n_block<B>(g, i);
  // The vectors left over as one strip: each strip walks all columns once.
  if constexpr (B > 1)
    if (const int left = static_cast<int>((g.rows - i) / 8); left > 0) {
      qkm::with_count<1, B - 1>(left, [&](auto r) QKM_INLINE_LAMBDA {
        n_block<decltype(r)::value>(g, i);
      });
      i += 8 * left;
    }
  for (; i + 8 <= g.rows; i += 8) n_block<1>(g, i);
  for (; i < g.rows; i += 4) n_rows_scalar(g, i, g.rows - i < 4 ? int(g.rows - i) : 4);
}
QKM_VARIANTS(void, n_run, (const NArgs &g), (g))

void n_kernel(bool whole_strips, const qkm_int *m, const qkm_int *n, const double *alpha,
              const double *a, const qkm_int *lda, const double *x, const qkm_int *incx,
              const double *beta, double *y, const qkm_int *incy) {
  if (*m == 0 || *n == 0) return;
  if (*alpha == 0.0 && *beta == 1.0) return;
  if (*m < 0) return;
  NArgs g;
  g.rows = whole_strips ? (static_cast<int64_t>(*m) + 3) / 4 * 4 : *m;
  g.n = *n > 0 ? *n : 0;
  g.lda = *lda;
  g.incx = *incx;
  g.incy = *incy;
  g.alpha = *alpha;
  g.beta = *beta;
  g.a = a;
  g.x = x + mirrored_start(*n, *incx);
  g.y = y + mirrored_start(*m, *incy);
  n_run(g);
}

// ---- transpose, column-group form ---------------------------------------------------------
struct TArgs {
  int64_t m, cols, lda, incx, incy;
  double alpha, beta;
  const double *a, *x;
  double *y;
  bool scale_x;  // terms a*(alpha*x) in the kernels, a*x in dgemvf
  bool add_to_y; // dgemvf: y(j) = y(j) + alpha*s from s = 0; kernels: y(j) = s from beta*y(j)
};

QKM_INLINE double combine8(v8d e) {
  return ((e[0] + e[2]) + (e[4] + e[6])) + ((e[1] + e[3]) + (e[5] + e[7]));
}

// combine8 of eight columns at once, column c in lane c: the same additions, lane by lane,
// with the lanes brought together by shuffles instead of one by one.
QKM_INLINE v8d combine8x8(const v8d *e) {
  // [e0+e2, e1+e3, e4+e6, e5+e7] of two columns.
  v8d f[4], h[2];
  for (int q = 0; q < 4; ++q)
    f[q] = __builtin_shufflevector(e[2 * q], e[2 * q + 1], 0, 1, 4, 5, 8, 9, 12, 13) +
           __builtin_shufflevector(e[2 * q], e[2 * q + 1], 2, 3, 6, 7, 10, 11, 14, 15);
  // [(e0+e2)+(e4+e6), (e1+e3)+(e5+e7)] of four columns.
  for (int q = 0; q < 2; ++q)
    h[q] = __builtin_shufflevector(f[2 * q], f[2 * q + 1], 0, 1, 4, 5, 8, 9, 12, 13) +
           __builtin_shufflevector(f[2 * q], f[2 * q + 1], 2, 3, 6, 7, 10, 11, 14, 15);
  return __builtin_shufflevector(h[0], h[1], 0, 2, 4, 6, 8, 10, 12, 14) +
         __builtin_shufflevector(h[0], h[1], 1, 3, 5, 7, 9, 11, 13, 15);
}

// Columns j0 .. j0+G-1 down all rows, reading x where it lies (stride 0 for y: every group
// must see the writes of the one before).
template <int G>
QKM_INLINE void t_group(const TArgs &g, int64_t j0) {
  double s[G];
  for (int c = 0; c < G; ++c) s[c] = g.add_to_y ? 0.0 : g.beta * g.y[(j0 + c) * g.incy];
  const double *col = g.a + j0 * g.lda;
  const int64_t rounds = g.m >= 8 ? g.m / 8 : 0;
  if (rounds > 0) {
    v8d e[G] = {};
    for (int c = 0; c < G; ++c) e[c][0] = s[c];
    const v8d va = splat8(g.alpha);
    for (int64_t k = 0; k < rounds; ++k) {
      const v8d xv = load8s(g.x + 8 * k * g.incx, g.incx);
      const v8d t = g.scale_x ? va * xv : xv;
      for (int c = 0; c < G; ++c) e[c] = e[c] + load8(col + c * g.lda + 8 * k) * t;
    }
    for (int c = 0; c < G; ++c) s[c] = combine8(e[c]);
  }
  for (int64_t i = 8 * rounds; i < g.m; ++i) {
    const double xi = g.x[i * g.incx];
    const double t = g.scale_x ? g.alpha * xi : xi;
    for (int c = 0; c < G; ++c) s[c] = s[c] + col[c * g.lda + i] * t;
  }
  for (int c = 0; c < G; ++c) {
    double &yj = g.y[(j0 + c) * g.incy];
    yj = g.add_to_y ? yj + g.alpha * s[c] : s[c];
  }
}

// The same sums over terms t(i) = alpha*x(i) (or x(i)) formed once in a contiguous buffer
// rather than once per group. Rows go in chunks of t_chunk (whole rounds of 8, so a chunk
// boundary never falls inside a round) and columns in blocks of t_cols; the eight partial
// sums of each column of a block (e0 = the start value, the others +0.0 in the first chunk)
// wait in e between chunks. Each partial sees the same terms
// in the same order as in t_group, so the bits are those of t_group.
constexpr int64_t t_chunk = 2048, t_cols = 64;

struct TBlock {
  v8d e[t_cols];     // partial sums of the whole rounds
  double s[t_cols];  // start value, then the column sum
};

// Columns c0 .. c0+G-1 of the block, rounds [0, kr) of the chunk at row r0, terms t.
template <int G>
QKM_INLINE void t_chunk_group(const TArgs &g, TBlock &b, const double *col, int c0, int64_t r0,
                              int64_t kr, const double *t) {
  v8d e[G];
  for (int c = 0; c < G; ++c)
    e[c] = r0 == 0 ? v8d{b.s[c0 + c], 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0} : b.e[c0 + c];
  const double *p = col + c0 * g.lda + r0;
  for (int64_t k = 0; k < kr; ++k) {
    const v8d tv = load8(t + 8 * k);
    for (int c = 0; c < G; ++c) e[c] = e[c] + load8(p + c * g.lda + 8 * k) * tv;
  }
  for (int c = 0; c < G; ++c) b.e[c0 + c] = e[c];
}

template <int G>
QKM_INLINE void t_buffered(const TArgs &g) {
  const int64_t rounds = g.m >= 8 ? g.m / 8 : 0;
  double buf[t_chunk];
  for (int64_t j0 = 0; j0 < g.cols; j0 += t_cols) {
    const int nb = int(g.cols - j0 < t_cols ? g.cols - j0 : t_cols);
    const double *col = g.a + j0 * g.lda;
    TBlock b;
    // The start values and, at the end, the stores of y, eight columns at a time where they
    // fill a vector: the same statements lane by lane.
    const v8d va = splat8(g.alpha), vb = splat8(g.beta);
    int c = 0;
    for (; c + 8 <= nb; c += 8)
      store8(b.s + c, g.add_to_y ? v8d{} : vb * load8s(g.y + (j0 + c) * g.incy, g.incy));
    for (; c < nb; ++c) b.s[c] = g.add_to_y ? 0.0 : g.beta * g.y[(j0 + c) * g.incy];
    for (int64_t r0 = 0; r0 < g.m; r0 += t_chunk) {
      const int64_t len = g.m - r0 < t_chunk ? g.m - r0 : t_chunk;
      const double *t = buf;
      const double *xs = g.x + r0 * g.incx;
      if (!g.scale_x && g.incx == 1)
        t = xs;
      else if (g.scale_x)
        for (int64_t i = 0; i < len; ++i) buf[i] = g.alpha * xs[i * g.incx];
      else
        for (int64_t i = 0; i < len; ++i) buf[i] = xs[i * g.incx];
      const int64_t kr = (8 * rounds - r0 < len ? 8 * rounds - r0 : len) / 8;
      for (c = 0; c + G <= nb; c += G) t_chunk_group<G>(g, b, col, c, r0, kr, t);
      for (; c < nb; ++c) t_chunk_group<1>(g, b, col, c, r0, kr, t);
    }
    // Combine the partials, then add the rows after the whole rounds one by one (they lie in
    // the last chunk, whose terms are still in t).
    if (rounds > 0) {
      for (c = 0; c + 8 <= nb; c += 8) store8(b.s + c, combine8x8(b.e + c));
      for (; c < nb; ++c) b.s[c] = combine8(b.e[c]);
    }
    if (8 * rounds < g.m) {
      const int64_t r0 = (g.m - 1) / t_chunk * t_chunk;
      const double *t = !g.scale_x && g.incx == 1 ? g.x + r0 : buf;
      for (c = 0; c < nb; ++c) {
        const double *cp = col + c * g.lda;
        for (int64_t i = 8 * rounds; i < g.m; ++i) b.s[c] = b.s[c] + cp[i] * t[i - r0];
      }
    }
    for (c = 0; c + 8 <= nb; c += 8) {
      double *yc = g.y + (j0 + c) * g.incy;
      const v8d sv = load8(b.s + c);
      store8s(yc, g.incy, g.add_to_y ? load8s(yc, g.incy) + va * sv : sv);
    }
    for (; c < nb; ++c) {
      double &yj = g.y[(j0 + c) * g.incy];
      yj = g.add_to_y ? yj + g.alpha * b.s[c] : b.s[c];
    }
  }
}

template <int L>
QKM_INLINE void t_run_body(const TArgs &g) {
  int64_t j = 0;
  if (g.incy == 0) {
    // Every column meets the same element: groups of four as described.
    for (; j + 4 <= g.cols; j += 4) t_group<4>(g, j);
    qkm::with_count<1, 3>(int(g.cols - j), [&](auto r) QKM_INLINE_LAMBDA {
      t_group<decltype(r)::value>(g, j);
    });
    return;
  }
  // Columns longer than a chunk come back once per chunk: they go by the vector's width of
  // columns, so that each return reads that many streams side by side. Columns that fit one
  // chunk go four at a time, except those of 129 to 767 rows, which go one at a time, each
  // read end to end as a single stream. Short columns (up to 16 rounds) need several chains
  // of additions to hide their latency behind the loads; long ones need several streams in
  // flight when they come from the last-level cache or memory; in between, a single stream
  // from the second-level cache is fastest. Measured with incx = 2 (eagemv hands this kernel
  // blocks of 64 columns), four at a time against one: 64 x 64 +30%, 16 x 1000 +20%,
  // 1000 x 1000 +12%, 2000 x 1000 +35%; 256 x 256 and 500 x 500 -2% to -8%.
  if (g.m > t_chunk)
    t_buffered<qkm::simd::Traits<L>::width>(g);
  else if (g.m > 128 && g.m < 768)
    t_buffered<1>(g);
  else
    t_buffered<4>(g);
}
QKM_VARIANTS(void, t_run, (const TArgs &g), (g))

// ---- transpose, unit-stride form of dgemv32_t -----------------------------------------------
QKM_INLINE double four_term(const double *a, const double *x) {
  return ((a[0] * x[0] + a[1] * x[1]) + a[2] * x[2]) + a[3] * x[3];
}

// Eight columns side by side, four per vector of four lanes: the four-term sums of a step are
// formed lane by lane after a 4x4 transposition of the products.
QKM_INLINE v4d transposed_sum(v4d p0, v4d p1, v4d p2, v4d p3) {
  const v4d t0 = __builtin_shufflevector(p0, p1, 0, 4, 2, 6);
  const v4d t1 = __builtin_shufflevector(p0, p1, 1, 5, 3, 7);
  const v4d t2 = __builtin_shufflevector(p2, p3, 0, 4, 2, 6);
  const v4d t3 = __builtin_shufflevector(p2, p3, 1, 5, 3, 7);
  const v4d q0 = __builtin_shufflevector(t0, t2, 0, 1, 4, 5);
  const v4d q1 = __builtin_shufflevector(t1, t3, 0, 1, 4, 5);
  const v4d q2 = __builtin_shufflevector(t0, t2, 2, 3, 6, 7);
  const v4d q3 = __builtin_shufflevector(t1, t3, 2, 3, 6, 7);
  return ((q0 + q1) + q2) + q3;
}

// Eight columns by two steps on 512-bit registers: lanes of the products are rows; the pairs
// of the first and the third row quarter are added where they lie, and the sums travel into
// column lanes with fewer shuffles than a whole transposition. tA and tB are the four-term
// sums of the two steps, one column per lane.
QKM_INLINE void two_steps(const v8d (&p)[8], v8d &ta, v8d &tb) {
  v8d t[2];
  for (int h = 0; h < 2; ++h) {
    v8d a[2], hi[2];
    for (int q = 0; q < 2; ++q) {
      const v8d &p0 = p[4 * h + 2 * q], &p1 = p[4 * h + 2 * q + 1];
      const v8d lo = __builtin_shufflevector(p0, p1, 0, 8, 2, 10, 4, 12, 6, 14);
      hi[q] = __builtin_shufflevector(p0, p1, 1, 9, 3, 11, 5, 13, 7, 15);
      const v8d u = lo + hi[q];  // rows 0+1 and 4+5 in quarters 0 and 2
      a[q] = __builtin_shufflevector(u, lo, 0, 1, 10, 11, 4, 5, 14, 15);
    }
    const v8d x = __builtin_shufflevector(a[0], a[1], 0, 1, 8, 9, 4, 5, 12, 13);
    const v8d y = __builtin_shufflevector(a[0], a[1], 2, 3, 10, 11, 6, 7, 14, 15);
    const v8d z = __builtin_shufflevector(hi[0], hi[1], 2, 3, 10, 11, 6, 7, 14, 15);
    t[h] = (x + y) + z;  // four columns of the first step, then of the second
  }
  ta = __builtin_shufflevector(t[0], t[1], 0, 1, 2, 3, 8, 9, 10, 11);
  tb = __builtin_shufflevector(t[0], t[1], 4, 5, 6, 7, 12, 13, 14, 15);
}

template <int L>
QKM_INLINE void t32_unit_body(int64_t steps, int64_t n, double alpha, const double *a,
                              int64_t lda, const double *x, double beta, double *y) {
  const v4d va = vsplat<v4d>(alpha), vb = vsplat<v4d>(beta);
  int64_t j = 0;
  if constexpr (L == qkm::simd::Avx512) {
    const v8d va8 = splat8(alpha);
    for (; j + 8 <= n; j += 8) {
      const double *c = a + j * lda;
      v8d s = load8(y + j) * splat8(beta);
      int64_t k = 0;
      for (; k + 8 <= 4 * steps; k += 8) {
        const v8d xv = load8(x + k);
        const v8d p[8] = {load8(c + k) * xv,           load8(c + lda + k) * xv,
                          load8(c + 2 * lda + k) * xv, load8(c + 3 * lda + k) * xv,
                          load8(c + 4 * lda + k) * xv, load8(c + 5 * lda + k) * xv,
                          load8(c + 6 * lda + k) * xv, load8(c + 7 * lda + k) * xv};
        v8d ta, tb;
        two_steps(p, ta, tb);
        s = s + va8 * ta;
        s = s + va8 * tb;
      }
      if (k < 4 * steps) {
        v8d t;
        for (int l = 0; l < 8; ++l) t[l] = four_term(c + l * lda + k, x + k);
        s = s + va8 * t;
      }
      store8(y + j, s);
    }
  }
  for (; j + 8 <= n; j += 8) {
    const double *c = a + j * lda;
    v4d s0 = vload<v4d>(y + j) * vb, s1 = vload<v4d>(y + j + 4) * vb;
    for (int64_t k = 0; k < 4 * steps; k += 4) {
      const v4d xv = vload<v4d>(x + k);
      const v4d p[8] = {
          vload<v4d>(c + k) * xv,           vload<v4d>(c + lda + k) * xv,
          vload<v4d>(c + 2 * lda + k) * xv, vload<v4d>(c + 3 * lda + k) * xv,
          vload<v4d>(c + 4 * lda + k) * xv, vload<v4d>(c + 5 * lda + k) * xv,
          vload<v4d>(c + 6 * lda + k) * xv, vload<v4d>(c + 7 * lda + k) * xv};
      s0 = s0 + va * transposed_sum(p[0], p[1], p[2], p[3]);
      s1 = s1 + va * transposed_sum(p[4], p[5], p[6], p[7]);
    }
    vstore<v4d>(y + j, s0);
    vstore<v4d>(y + j + 4, s1);
  }
  for (; j < n; ++j) {
    const double *c = a + j * lda;
    double s = beta * y[j];
    for (int64_t k = 0; k < 4 * steps; k += 4) s = s + alpha * four_term(c + k, x + k);
    y[j] = s;
  }
}
QKM_VARIANTS(void, t32_unit,
             (int64_t steps, int64_t n, double alpha, const double *a, int64_t lda,
              const double *x, double beta, double *y),
             (steps, n, alpha, a, lda, x, beta, y))

void t_kernel(bool whole_groups, const qkm_int *m, const qkm_int *n, const double *alpha,
              const double *a, const qkm_int *lda, const double *x, const qkm_int *incx,
              const double *beta, double *y, const qkm_int *incy) {
  if (*m == 0 || *n == 0) return;
  if (*alpha == 0.0 && *beta == 1.0) return;
  if (*n < 0) return;
  TArgs g;
  g.m = *m > 0 ? *m : 0;
  g.cols = whole_groups ? (static_cast<int64_t>(*n) + 3) / 4 * 4 : *n;
  g.lda = *lda;
  g.incx = *incx;
  g.incy = *incy;
  g.alpha = *alpha;
  g.beta = *beta;
  g.a = a;
  g.x = x + mirrored_start(*m, *incx);
  g.y = y + mirrored_start(*n, *incy);
  g.scale_x = true;
  g.add_to_y = false;
  t_run(g);
}

// ---- dgemvf ------------------------------------------------------------------------------
// Column j of "N": y := y + t*a(.,j), element by element.
template <int L>
QKM_INLINE void column_axpy_body(int64_t m, double t, const double *c, double *y, int64_t incy) {
  int64_t i = 0;
  if (incy == 1) {
    const v8d vt = splat8(t);
    for (; i + 8 <= m; i += 8) store8(y + i, load8(y + i) + vt * load8(c + i));
  }
  for (; i < m; ++i) y[i * incy] = y[i * incy] + t * c[i];
}
QKM_VARIANTS(void, column_axpy, (int64_t m, double t, const double *c, double *y, int64_t incy),
             (m, t, c, y, incy))

void report(qkm_int code) {
  static const char text[] = "DGEMV Error :";
  const for_item_desc text_item = {FOR_ITEM_TEXT, 13}, code_item = {FOR_ITEM_INT4, 4};
  for_io_block io;
  for_write_seq_lis(&io, 6, 0, &text_item, text);
  for_write_seq_lis_xmit(&io, &code_item, &code);
}

// The code of the first bad argument in list order, or 0.
qkm_int first_bad(char t, qkm_int m, qkm_int n, qkm_int lda, qkm_int incx, qkm_int incy) {
  if (t != 'N' && t != 'T' && t != 'C') return 1;
  if (m < 0) return 2;
  if (n < 0) return 3;
  if (lda < (m > 1 ? m : 1)) return 6;
  if (incx == 0) return 8;
  if (incy == 0) return 11;
  return 0;
}

[[noreturn]] void fatal() {
  static const char text[] = "DGEMV Fatal Error";
  for_stop_core(text, 17, 0);
}

}  // namespace

extern "C" {

void dgemv_n(const qkm_int *m, const qkm_int *n, const double *alpha, const double *a,
             const qkm_int *lda, const double *x, const qkm_int *incx, const double *beta,
             double *y, const qkm_int *incy) {
  n_kernel(false, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

void dgemv32_n(const qkm_int *m, const qkm_int *n, const double *alpha, const double *a,
               const qkm_int *lda, const double *x, const qkm_int *incx, const double *beta,
               double *y, const qkm_int *incy) {
  n_kernel(true, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

void dgemv_t(const qkm_int *m, const qkm_int *n, const double *alpha, const double *a,
             const qkm_int *lda, const double *x, const qkm_int *incx, const double *beta,
             double *y, const qkm_int *incy) {
  t_kernel(false, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

void dgemv32_t(const qkm_int *m, const qkm_int *n, const double *alpha, const double *a,
               const qkm_int *lda, const double *x, const qkm_int *incx, const double *beta,
               double *y, const qkm_int *incy) {
  if (*incx != 1 || *incy != 1) {
    t_kernel(true, m, n, alpha, a, lda, x, incx, beta, y, incy);
    return;
  }
  if (*m == 0 || *n == 0) return;
  if (*alpha == 0.0 && *beta == 1.0) return;
  if (*n < 0) return;
  const int64_t steps = *m > 0 ? (static_cast<int64_t>(*m) + 3) / 4 : 0;
  t32_unit(steps, *n, *alpha, a, *lda, x, *beta, y);
}

void dgemvf(const char *trans, const qkm_int *m, const qkm_int *n, const double *alpha,
            const double *a, const qkm_int *lda, const double *x, const qkm_int *incx,
            const double *beta, double *y, const qkm_int *incy, qkm_len) {
  const char t = *trans;
  if (const qkm_int code = first_bad(t, *m, *n, *lda, *incx, *incy)) {
    report(code);
    return;
  }
  if (*m == 0 || *n == 0) return;
  if (*alpha == 0.0 && *beta == 1.0) return;
  const bool notrans = t == 'N';
  const qkm_int lenx = notrans ? *n : *m;
  leny_f = notrans ? *m : *n;
  const double *xs = x + mirrored_start(lenx, *incx);
  double *ys = y + mirrored_start(leny_f, *incy);
  if (*beta != 1.0) {
    if (*beta == 0.0)
      e_dzero(&leny_f, y, incy);
    else
      e_dscal(&leny_f, beta, y, incy);
  }
  if (*alpha == 0.0) return;
  const int64_t ld = *lda, ix = *incx, iy = *incy;
  if (notrans) {
    for (int64_t j = 0; j < *n; ++j) {
      const double xj = xs[j * ix];
      if (xj == 0.0) continue;
      column_axpy(*m, *alpha * xj, a + j * ld, ys, iy);
    }
    return;
  }
  TArgs g;
  g.m = *m;
  g.cols = *n;
  g.lda = ld;
  g.incx = ix;
  g.incy = iy;
  g.alpha = *alpha;
  g.beta = 0.0;
  g.a = a;
  g.x = xs;
  g.y = ys;
  g.scale_x = false;
  g.add_to_y = true;
  t_run(g);
}

void eagemv(const char *trans, const qkm_int *m, const qkm_int *n, const double *alpha,
            const double *a, const qkm_int *lda, const double *x, const qkm_int *incx,
            const double *beta, double *y, const qkm_int *incy, qkm_len) {
  static const double one = 1.0;
  static const qkm_int nblock = gemv_nblock;
  const char t = *trans;
  if (first_bad(t, *m, *n, *lda, *incx, *incy) != 0) fatal();
  if (*m == 0 || *n == 0) return;
  if (*alpha == 0.0 && *beta == 1.0) return;
  leny = t == 'N' ? *m : *n;
  if (*alpha == 0.0) {
    if (*beta == 0.0)
      e_dzero(&leny, y, incy);
    else
      e_dscal(&leny, beta, y, incy);
    return;
  }
  const qkm_int ncols64 = *n - *n % gemv_nblock;
  nrest = *n - ncols64;
  mrows8 = *m - *m % gemv_mmul;
  mrest = *m - mrows8;
  if (*incx < 1 || *incy < 1) {
    dgemvf(t == 'N' ? "N" : "T", m, n, alpha, a, lda, x, incx, beta, y, incy, 1);
    return;
  }
  const int64_t ld = *lda, ix = *incx, iy = *incy;
  if (t == 'N') {
    if (mrows8 != 0) {
      if (ncols64 == 0) {
        dgemv32_n(&mrows8, n, alpha, a, lda, x, incx, beta, y, incy);
      } else {
        dgemv32_n(&mrows8, &nblock, alpha, a, lda, x, incx, beta, y, incy);
        for (int64_t j0 = gemv_nblock; j0 <= ncols64 - gemv_nblock; j0 += gemv_nblock)
          dgemv32_n(&mrows8, &nblock, alpha, a + j0 * ld, lda, x + j0 * ix, incx, &one, y,
                    incy);
        if (nrest != 0)
          dgemv32_n(&mrows8, &nrest, alpha, a + ncols64 * ld, lda, x + ncols64 * ix, incx, &one,
                    y, incy);
      }
    }
    if (mrest != 0) dgemv_n(&mrest, n, alpha, a + mrows8, lda, x, incx, beta, y + mrows8 * iy, incy);
    return;
  }
  if (mrows8 == 0) {
    dgemv_t(m, n, alpha, a, lda, x, incx, beta, y, incy);
    return;
  }
  const double *xr = x + mrows8 * ix;
  for (int64_t j0 = 0; j0 <= ncols64 - gemv_nblock; j0 += gemv_nblock) {
    dgemv32_t(&mrows8, &nblock, alpha, a + j0 * ld, lda, x, incx, beta, y + j0 * iy, incy);
    dgemv_t(&mrest, &nblock, alpha, a + mrows8 + j0 * ld, lda, xr, incx, &one, y + j0 * iy,
            incy);
  }
  if (nrest == 0) return;
  const double *ar = a + ncols64 * ld;
  double *yr = y + ncols64 * iy;
  if ((ix == 1 && iy == 1) || nrest % 4 == 0)
    dgemv32_t(&mrows8, &nrest, alpha, ar, lda, x, incx, beta, yr, incy);
  else
    dgemv_t(&mrows8, &nrest, alpha, ar, lda, x, incx, beta, yr, incy);
  dgemv_t(&mrest, &nrest, alpha, ar + mrows8, lda, xr, incx, &one, yr, incy);
}

}  // extern "C"
