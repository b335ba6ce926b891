// Symmetric eigenproblem of a matrix packed by rows, in four passes: Householder reduction to
// tridiagonal form (eaxetr), implicit QL with the rotations gathered on the identity (eaxeql),
// ordering (eaxeor) and back-transformation of the ordered vectors (eaxevp).
//
// Every rounded operation happens in the order of the scalar statement of each pass. The SIMD
// variants only run independent statements side by side:
//  - eaxetr forms the inner products of several rows at once (8, 4 or 2 by instruction set), one
//    row per lane, each lane adding its terms in ascending order; the rank-2 update of a row is
//    element-wise.
//  - eaxeql keeps the rotations of a sweep in a small buffer and applies them block of rows by
//    block of rows. A given element of z still meets the rotations of the sweep in the same
//    order, through the same expressions, so the bits do not change; z is complete at the end
//    of every sweep.
//  - eaxevp applies all reflectors to one block of columns before the next block (the columns
//    are independent); the inner products of several columns run one per lane, each in ascending
//    order, and the update of a column is element-wise.
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "frame/toolkit.h"
#include "frame/variant.h"
#include "frame/wrap.h"
#include "kernels.h"

namespace {

using namespace qkm::vec;
using qkm::packed_row0;

QKM_INLINE void transpose(v2d r[2]) {
  const v2d c0 = __builtin_shufflevector(r[0], r[1], 0, 2);
  const v2d c1 = __builtin_shufflevector(r[0], r[1], 1, 3);
  r[0] = c0;
  r[1] = c1;
}
QKM_INLINE void transpose(v4d r[4]) {
  const v4d s0 = __builtin_shufflevector(r[0], r[1], 0, 4, 2, 6);
  const v4d s1 = __builtin_shufflevector(r[0], r[1], 1, 5, 3, 7);
  const v4d s2 = __builtin_shufflevector(r[2], r[3], 0, 4, 2, 6);
  const v4d s3 = __builtin_shufflevector(r[2], r[3], 1, 5, 3, 7);
  r[0] = __builtin_shufflevector(s0, s2, 0, 1, 4, 5);
  r[1] = __builtin_shufflevector(s1, s3, 0, 1, 4, 5);
  r[2] = __builtin_shufflevector(s0, s2, 2, 3, 6, 7);
  r[3] = __builtin_shufflevector(s1, s3, 2, 3, 6, 7);
}

// In-register transpose of eight vectors: on return r[t][q] holds the old r[q][t].
QKM_INLINE void transpose(v8d r[8]) {
  v8d s[8], q[8];
  for (int p = 0; p < 8; p += 2) {
    s[p] = __builtin_shufflevector(r[p], r[p + 1], 0, 8, 2, 10, 4, 12, 6, 14);
    s[p + 1] = __builtin_shufflevector(r[p], r[p + 1], 1, 9, 3, 11, 5, 13, 7, 15);
  }
  // q[0]: columns 0 and 4 of rows 0-3, q[1]: columns 1 and 5, q[2]: 2 and 6, q[3]: 3 and 7;
  // q[4..7] the same for rows 4-7.
  for (int h = 0; h < 8; h += 4) {
    q[h + 0] = __builtin_shufflevector(s[h], s[h + 2], 0, 1, 8, 9, 4, 5, 12, 13);
    q[h + 1] = __builtin_shufflevector(s[h + 1], s[h + 3], 0, 1, 8, 9, 4, 5, 12, 13);
    q[h + 2] = __builtin_shufflevector(s[h], s[h + 2], 2, 3, 10, 11, 6, 7, 14, 15);
    q[h + 3] = __builtin_shufflevector(s[h + 1], s[h + 3], 2, 3, 10, 11, 6, 7, 14, 15);
  }
  for (int t = 0; t < 4; ++t) {
    r[t] = __builtin_shufflevector(q[t], q[t + 4], 0, 1, 2, 3, 8, 9, 10, 11);
    r[t + 4] = __builtin_shufflevector(q[t], q[t + 4], 4, 5, 6, 7, 12, 13, 14, 15);
  }
}

// ---- reduction: e(j) = (sum over k of A(j,k) u(k)) * rh for j = 1..l ----------------------
// A is the leading l by l block of the packed matrix a, u = d(1..l). Each p is one ascending
// sum starting from 0.0; W rows run side by side, one per lane. At most four: the AVX-512
// instance keeps the four-row step of AVX2.
template <int L>
QKM_INLINE void tr_matvec_body(int64_t l, const double *a, const double *u, double rh,
                               double *e) {
  using V = std::conditional_t<(qkm::simd::Traits<L>::width > 4), v4d,
                               typename qkm::simd::Traits<L>::V>;
  constexpr int W = lanes<V>;
  int64_t j0 = 1;
  for (; j0 + W - 1 <= l; j0 += W) {
    V acc = vsplat<V>(0.0);
    // k below the block: A(j,k) along row j; W rows read contiguously, then transposed.
    int64_t k = 1;
    for (; k + W - 1 < j0; k += W) {
      V r[W];
      for (int t = 0; t < W; ++t) r[t] = vload<V>(a + packed_row0(j0 + t) + k - 1);
      transpose(r);
      for (int q = 0; q < W; ++q) acc = acc + r[q] * vsplat<V>(u[k - 1 + q]);
    }
    for (; k < j0; ++k) {
      V c;
      for (int t = 0; t < W; ++t) c[t] = a[packed_row0(j0 + t) + k - 1];
      acc = acc + c * vsplat<V>(u[k - 1]);
    }
    // k inside the block: along the row up to the diagonal, then down the column.
    for (; k < j0 + W; ++k) {
      V c;
      for (int t = 0; t < W; ++t) {
        const int64_t j = j0 + t;
        c[t] = k <= j ? a[packed_row0(j) + k - 1] : a[packed_row0(k) + j - 1];
      }
      acc = acc + c * vsplat<V>(u[k - 1]);
    }
    // k above the block: A(k,j) for the W values of j are contiguous in row k.
    for (; k <= l; ++k) acc = acc + vload<V>(a + packed_row0(k) + j0 - 1) * vsplat<V>(u[k - 1]);
    vstore(e + j0 - 1, acc * vsplat<V>(rh));
  }
  for (; j0 <= l; ++j0) {
    double p = 0.0;
    const double *rj = a + packed_row0(j0);
    for (int64_t k = 1; k <= j0; ++k) p = p + rj[k - 1] * u[k - 1];
    for (int64_t k = j0 + 1; k <= l; ++k) p = p + a[packed_row0(k) + j0 - 1] * u[k - 1];
    e[j0 - 1] = p * rh;
  }
}

// Row j (length j): a(k) = a(k) - e(k)*f - d(k)*g, element by element.
QKM_INLINE void row_update(int64_t j, double *row, const double *e, const double *d,
                               double f, double g) {
  const v8d vf = splat8(f), vg = splat8(g);
  int64_t k = 0;
  for (; k + 8 <= j; k += 8)
    store8(row + k, (load8(row + k) - load8(e + k) * vf) - load8(d + k) * vg);
  for (; k < j; ++k) row[k] = (row[k] - e[k] * f) - d[k] * g;
}

template <int L>
QKM_INLINE void tr_update_body(int64_t l, double *a, double *e, const double *d,
                                   double hh) {
  for (int64_t j = 1; j <= l; ++j) {
    const double f = d[j - 1];
    e[j - 1] = e[j - 1] - hh * d[j - 1];
    const double g = e[j - 1];
    row_update(j, a + packed_row0(j), e, d, f, g);
  }
}

QKM_VARIANTS(void, tr_matvec, (int64_t l, const double *a, const double *u, double rh, double *e),
             (l, a, u, rh, e))
QKM_VARIANTS(void, tr_update, (int64_t l, double *a, double *e, const double *d, double hh),
             (l, a, e, d, hh))

// ---- QL: apply a buffered run of rotations -----------------------------------------------
// Rotation r (0-based) acts on columns i = ihi - r and i + 1 (1-based), with c[r] and s[r]:
// x = z(k,i+1), y = z(k,i); z(k,i+1) = c*x + s*y; z(k,i) = y*c - x*s. Column i carries from
// one rotation to the next in registers, rows in blocks of 32.
QKM_INLINE void rot_rows_scalar(int64_t k0, int64_t k1, int64_t n, double *z, int64_t ihi,
                                int cnt, const double *c, const double *s) {
  for (int64_t k = k0; k < k1; ++k) {
    double x = z[k + ihi * n];
    for (int r = 0; r < cnt; ++r) {
      const int64_t i = ihi - r;
      const double y = z[k + (i - 1) * n];
      z[k + i * n] = c[r] * x + s[r] * y;
      x = y * c[r] - x * s[r];
    }
    z[k + (ihi - cnt) * n] = x;
  }
}

template <int L>
QKM_INLINE void rot_body(int64_t n, double *z, int64_t ihi, int cnt, const double *c,
                         const double *s) {
  using V = typename qkm::simd::Traits<L>::V;
  constexpr int W = qkm::simd::Traits<L>::width;
  int64_t k = 0;
  for (; k + 4 * W <= n; k += 4 * W) {
    double *zk = z + k;
    const double *top = zk + ihi * n;
    V x0 = vload<V>(top), x1 = vload<V>(top + W), x2 = vload<V>(top + 2 * W),
      x3 = vload<V>(top + 3 * W);
    for (int r = 0; r < cnt; ++r) {
      const int64_t i = ihi - r;
      const V vc = vsplat<V>(c[r]), vs = vsplat<V>(s[r]);
      double *yi = zk + (i - 1) * n, *xi = zk + i * n;
      const V y0 = vload<V>(yi), y1 = vload<V>(yi + W), y2 = vload<V>(yi + 2 * W),
              y3 = vload<V>(yi + 3 * W);
      vstore(xi, vc * x0 + vs * y0);
      vstore(xi + W, vc * x1 + vs * y1);
      vstore(xi + 2 * W, vc * x2 + vs * y2);
      vstore(xi + 3 * W, vc * x3 + vs * y3);
      x0 = y0 * vc - x0 * vs;
      x1 = y1 * vc - x1 * vs;
      x2 = y2 * vc - x2 * vs;
      x3 = y3 * vc - x3 * vs;
    }
    double *zl = zk + (ihi - cnt) * n;
    vstore(zl, x0);
    vstore(zl + W, x1);
    vstore(zl + 2 * W, x2);
    vstore(zl + 3 * W, x3);
  }
  for (; k + W <= n; k += W) {
    double *zk = z + k;
    V x0 = vload<V>(zk + ihi * n);
    for (int r = 0; r < cnt; ++r) {
      const int64_t i = ihi - r;
      const V vc = vsplat<V>(c[r]), vs = vsplat<V>(s[r]);
      const V y0 = vload<V>(zk + (i - 1) * n);
      vstore(zk + i * n, vc * x0 + vs * y0);
      x0 = y0 * vc - x0 * vs;
    }
    vstore(zk + (ihi - cnt) * n, x0);
  }
  rot_rows_scalar(k, n, n, z, ihi, cnt, c, s);
}

QKM_VARIANTS(void, rot, (int64_t n, double *z, int64_t ihi, int cnt, const double *c, const double *s),
             (n, z, ihi, cnt, c, s))

// ---- back-transformation -------------------------------------------------------------------
// All reflectors, i = 3..n ascending, applied to columns [c0, c0+nc) of z. For each column:
// s = sum over k = 1..l ascending of u(k) z(k,c), from 0.0; s = s*w; z(k,c) = z(k,c) + u(k)*s.
QKM_INLINE void col_update(int64_t l, double *zc, const double *u, double s) {
  const v8d vs = splat8(s);
  int64_t k = 0;
  for (; k + 8 <= l; k += 8) store8(zc + k, load8(zc + k) + load8(u + k) * vs);
  for (; k < l; ++k) zc[k] = zc[k] + u[k] * s;
}

template <int L>
QKM_INLINE void evp_block_body(int64_t n, const double *a, double *z, int64_t c0, int64_t nc) {
  using V = typename qkm::simd::Traits<L>::V;
  constexpr int W = qkm::simd::Traits<L>::width;
  for (int64_t i = 3; i <= n; ++i) {
    const int64_t l = i - 1;
    const double *u = a + packed_row0(i);
    const double h = u[i - 1];
    if (h == 0.0) continue;
    const double w = -1.0 / h;
    int64_t c = c0;
    for (; c + W <= c0 + nc; c += W) {
      double *zc = z + c * n;
      V acc = vsplat<V>(0.0);
      int64_t k = 0;
      for (; k + W <= l; k += W) {
        V r[W];
        for (int t = 0; t < W; ++t) r[t] = vload<V>(zc + t * n + k);
        transpose(r);
        for (int q = 0; q < W; ++q) acc = acc + r[q] * vsplat<V>(u[k + q]);
      }
      for (; k < l; ++k) {
        V v;
        for (int t = 0; t < W; ++t) v[t] = zc[t * n + k];
        acc = acc + v * vsplat<V>(u[k]);
      }
      acc = acc * vsplat<V>(w);
      for (int t = 0; t < W; ++t) col_update(l, zc + t * n, u, acc[t]);
    }
    for (; c < c0 + nc; ++c) {
      double *zc = z + c * n;
      double s = 0.0;
      for (int64_t k = 0; k < l; ++k) s = s + u[k] * zc[k];
      s = s * w;
      col_update(l, zc, u, s);
    }
  }
}

// Columns per block: the block stays in cache while every reflector passes over it.
constexpr int64_t kEvpCols = 32;

template <int L>
QKM_INLINE void evp_body(int64_t n, const double *a, double *z) {
  for (int64_t c0 = 0; c0 < n; c0 += kEvpCols)
    evp_block_body<L>(n, a, z, c0, n - c0 < kEvpCols ? n - c0 : kEvpCols);
}
QKM_VARIANTS(void, evp, (int64_t n, const double *a, double *z), (n, a, z))

// Rotations buffered per flush. A sweep longer than this is applied in several runs, in order.
constexpr int kRotBuf = 128;

struct RotBuffer {
  double c[kRotBuf], s[kRotBuf];
  int cnt = 0;
  int64_t ihi = 0;  // 1-based column i of the first rotation held
};

void flush(RotBuffer &b, int64_t n, double *z) {
  if (b.cnt == 0) return;
  rot(n, z, b.ihi, b.cnt, b.c, b.s);
  b.cnt = 0;
}

}  // namespace

extern "C" {

// Below order 2 the single entry is copied: position 1 of ap, d and e is used even for n = 0.
void eaxetr(const qkm_int *n_, double *ap, double *d, double *e) {
  const int64_t n = *n_;
  if (n < 2) {
    d[0] = ap[0];
    e[0] = 0.0;
    return;
  }
  for (int64_t i = n; i >= 3; --i) {
    const int64_t l = i - 1;
    double *row = ap + packed_row0(i);
    double h = 0.0;
    for (int64_t k = 0; k < l; ++k) {
      d[k] = row[k];
      h = h + d[k] * d[k];
    }
    double f = d[l - 1];
    if (h == 0.0) {
      e[i - 1] = f;
    } else {
      const double r = std::sqrt(h);
      const double g = f < 0.0 ? r : -r;
      h = h - f * g;
      d[l - 1] = f - g;
      row[l - 1] = d[l - 1];
      e[i - 1] = g;
      const double rh = 1.0 / h;
      tr_matvec(l, ap, d, rh, e);
      double f2 = 0.0;
      for (int64_t j = 0; j < l; ++j) f2 = f2 + d[j] * e[j];
      const double hh = f2 / (h + h);
      tr_update(l, ap, e, d, hh);
    }
    d[i - 1] = row[i - 1];
    row[i - 1] = h;
  }
  e[1] = ap[1];
  d[1] = ap[2];
  d[0] = ap[0];
  e[0] = 0.0;
}

// z(1,1) is set before the order is looked at. The rotations of a sweep are buffered
// (kRotBuf at a time, on the stack) and applied before the sweep's results are stored.
qkm_int eaxeql(const qkm_int *n_, double *d, double *e, double *z, qkm_int *ierr) {
  const int64_t n = *n_;
  z[0] = 1.0;
  if (n < 2) return 0;
  for (int64_t i = 1; i < n; ++i) e[i - 1] = e[i];
  e[n - 1] = 0.0;
  for (int64_t k = 2; k <= n; ++k) z[(k - 1) + (k - 1) * n] = 1.0;

  RotBuffer buf;
  for (int64_t l = 1; l <= n; ++l) {
    int iter = 0;
    double p = d[l - 1];
    for (;;) {
      int64_t m = l;
      for (; m < n; ++m) {
        const double t = std::fabs(d[m]) + std::fabs(d[m - 1]);
        if (std::fabs(e[m - 1]) + t == t) break;
      }
      if (m == l) break;
      if (iter == 30) {
        *ierr = static_cast<qkm_int>(l);
        return 1;
      }
      ++iter;
      double g = (d[l] - p) * 0.5 / e[l - 1];
      double r = std::sqrt(g * g + 1.0);
      if (0.0 > g) r = -r;
      g = (d[m - 1] - p) + e[l - 1] / (g + r);
      double s = 1.0, c = 1.0, q = 0.0;
      buf.ihi = m - 1;
      for (int64_t i = m - 1; i >= l; --i) {
        const double f = s * e[i - 1];
        const double b = e[i - 1] * c;
        if (std::fabs(f) >= std::fabs(g)) {
          c = g / f;
          r = std::sqrt(c * c + 1.0);
          e[i] = f * r;
          s = 1.0 / r;
          c = c * s;
        } else {
          s = f / g;
          r = std::sqrt(s * s + 1.0);
          c = 1.0 / r;
          e[i] = g * r;
          s = s * c;
        }
        g = d[i] - q;
        r = (d[i - 1] - g) * s + 2.0 * b * c;
        q = s * r;
        d[i] = g + q;
        g = r * c - b;
        if (buf.cnt == kRotBuf) {
          flush(buf, n, z);
          buf.ihi = i;
        }
        buf.c[buf.cnt] = c;
        buf.s[buf.cnt] = s;
        ++buf.cnt;
      }
      flush(buf, n, z);
      e[l - 1] = g;
      p = p - q;
      d[l - 1] = p;
      e[m - 1] = 0.0;
    }
  }
  return 0;
}

void eaxeor(const qkm_int *iorder, const qkm_int *n_, double *d, double *z) {
  const int64_t n = *n_;
  const bool ascending = *iorder == 1;
  for (int64_t i = 1; i < n; ++i) {
    int64_t k = i;
    double p = d[i - 1];
    for (int64_t j = i + 1; j <= n; ++j) {
      if (ascending ? p > d[j - 1] : std::fabs(d[j - 1]) > std::fabs(p)) {
        k = j;
        p = d[j - 1];
      }
    }
    if (k != i) {
      d[k - 1] = d[i - 1];
      d[i - 1] = p;
      double *zi = z + (i - 1) * n, *zk = z + (k - 1) * n;
      for (int64_t r = 0; r < n; ++r) qkm::swap_bits(zi + r, zk + r);
    }
  }
}

void eaxevp(const qkm_int *n_, const double *ap, double *z) {
  const int64_t n = *n_;
  if (n < 3) return;
  evp(n, ap, z);
}

qkm_int eaxeig(const qkm_int *n, const qkm_int *iorder, double *ap, double *d, double *z,
               double *e, qkm_int *ierr) {
  eaxetr(n, ap, d, e);
  // The count is formed in 32 bits, wrapping.
  const qkm_int nn = qkm::wrap_mul(*n, *n);
  const qkm_int one = 1;
  e_dzero(&nn, z, &one);
  if (eaxeql(n, d, e, z, ierr) == 1) return 1;
  eaxeor(iorder, n, d, z);
  eaxevp(n, ap, z);
  return 0;
}

}  // extern "C"
