// Frontal L*D*L^T elimination without interchanges: easlff_nt.
//
// The front is the lower triangle by columns, diagonal first: element (i,j), 0-based, at
// j(2n-j-1)/2 + i. Pivots go in blocks of three (then one block of two or one), each with its
// fixed order of operations. The trailing update of a block adds, to every entry (i,c) of the
// columns after it, the terms u_k*l_ik with u_k = (-d_k)*l_ck, k = 1..3, one after the other:
//   a_ic = ((a_ic + u_1*l_i1) + u_2*l_i2) + u_3*l_i3,
// except the diagonal of the last column when the block leaves it without a partner column,
// which becomes ((a - d_1*(l_1*l_1)) - d_2*(l_2*l_2)) - d_3*(l_3*l_3).
//
// Each entry thus receives, block after block, a sequence of terms whose order is fixed; when
// the terms are applied does not matter as long as each entry sees them in that sequence. So
// the blocks are taken in panels: within a panel the blocks are eliminated one after the other
// and update only the panel's own columns; then every column right of the panel receives the
// terms of all the panel's blocks in one pass, block by block, term by term, while it sits in
// registers. The result is bit for bit that of the block-by-block elimination (NaN payloads
// aside, since additions and products are not pinned to an operand order), including the
// state left behind by a refusal: the blocks accepted before it are applied everywhere before
// the clearing.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/toolkit.h"
#include "frame/variant.h"
#include "frame/wrap.h"
#include "kernels.h"

namespace {

using namespace qkm::vec;

using qkm::wrap_add;
using qkm::wrap_mul;

constexpr int kPanelBlocks = 8;
constexpr int kMaxTerms = 3 * kPanelBlocks;
constexpr int kTileCols = 4;

// One pivot column of an accepted block: l[i] is its multiplier in row i (0-based).
struct Term {
  double negd;
  double d;
  const double *l;
};
struct Block {
  int first;  // index of its first term
  int size;
  bool lone;  // leaves the last column of the front without a partner column
};

struct Front {
  double *f;
  int64_t n;
  QKM_INLINE double *col(int64_t j) const { return f + qkm::front_col0(n, j + 1); }
};

struct Pivots {
  double *minratio;
  const double *diag0;
  double tolabs, tolratio;
  qkm_int *ipiv, *naccept;

  // The two checks of one pivot: 0 and its reciprocal when accepted, else the refusal code.
  // Both comparisons let a NaN through.
  QKM_INLINE int check(double *pos, double &recip) {
    const double d = *pos;
    const int32_t ip = wrap_add(*ipiv, 1);
    *ipiv = ip;
    if (tolabs > std::fabs(d)) {
      *minratio = d;
      return 6;
    }
    const double r = d / diag0[static_cast<int64_t>(ip) - 1];
    if (!(*minratio <= r)) *minratio = r;
    if (tolratio >= r) {
      *pos = r;
      return 34;
    }
    *naccept = wrap_add(*naccept, 1);
    recip = 1.0 / d;
    return 0;
  }
};

// ---- trailing update ------------------------------------------------------------------------
// Diagonal entry of column c under the blocks blk[0..nb), their terms starting at t.
QKM_INLINE double diag_update(double a, int64_t c, int64_t last, const Term *t,
                              const Block *blk, int nb, int t0) {
  for (int b = 0; b < nb; ++b) {
    const Term *tb = t + (blk[b].first - t0);
    if (blk[b].lone && c == last) {
      for (int k = 0; k < blk[b].size; ++k) a = a - tb[k].d * (tb[k].l[c] * tb[k].l[c]);
    } else {
      for (int k = 0; k < blk[b].size; ++k) {
        const double u = tb[k].negd * tb[k].l[c];
        a = a + u * tb[k].l[c];
      }
    }
  }
  return a;
}

QKM_INLINE double off_update(double a, int64_t i, const double *u, const Term *t, int nt) {
  for (int k = 0; k < nt; ++k) a = a + u[k] * t[k].l[i];
  return a;
}

// Rows [i, end) of CT columns, below all their diagonals.
template <int CT, int RV>
QKM_INLINE void tile_rows(double *const *acol, const double (*u)[kMaxTerms], const Term *t,
                          int nt, int64_t i, int64_t end) {
  for (; i + 8 * RV <= end; i += 8 * RV) {
    v8d a[CT][RV];
    for (int q = 0; q < CT; ++q)
      for (int r = 0; r < RV; ++r) a[q][r] = load8(acol[q] + i + 8 * r);
    for (int k = 0; k < nt; ++k) {
      v8d l[RV];
      for (int r = 0; r < RV; ++r) l[r] = load8(t[k].l + i + 8 * r);
      for (int q = 0; q < CT; ++q) {
        const double uq = u[q][k];
        for (int r = 0; r < RV; ++r) a[q][r] = a[q][r] + uq * l[r];
      }
    }
    for (int q = 0; q < CT; ++q)
      for (int r = 0; r < RV; ++r) store8(acol[q] + i + 8 * r, a[q][r]);
  }
  if (RV > 1) {
    tile_rows<CT, 1>(acol, u, t, nt, i, end);
    return;
  }
  for (; i < end; ++i)
    for (int q = 0; q < CT; ++q) acol[q][i] = off_update(acol[q][i], i, u[q], t, nt);
}

// Columns [cb, ce) receive, entry by entry, the terms of blocks blk[0..nb).
template <int CT, int RV>
QKM_INLINE void update_tile(const Front &F, int64_t c, const Term *t, int nt, const Block *blk,
                            int nb, int t0) {
  double *acol[CT];
  double u[CT][kMaxTerms];
  for (int q = 0; q < CT; ++q) {
    acol[q] = F.col(c + q);
    for (int k = 0; k < nt; ++k) u[q][k] = t[k].negd * t[k].l[c + q];
  }
  for (int q = 0; q < CT; ++q) {
    const int64_t cq = c + q;
    acol[q][cq] = diag_update(acol[q][cq], cq, F.n - 1, t, blk, nb, t0);
    for (int64_t i = cq + 1; i < c + CT; ++i) acol[q][i] = off_update(acol[q][i], i, u[q], t, nt);
  }
  tile_rows<CT, RV>(acol, u, t, nt, c + CT, F.n);
}

template <int RV>
QKM_INLINE void apply_blocks(const Front &F, int64_t cb, int64_t ce, const Term *terms,
                             const Block *blk, int nb) {
  if (nb <= 0 || cb >= ce) return;
  const int t0 = blk[0].first;
  const int nt = blk[nb - 1].first + blk[nb - 1].size - t0;
  const Term *t = terms + t0;
  int64_t c = cb;
  for (; c + kTileCols <= ce; c += kTileCols) update_tile<kTileCols, RV>(F, c, t, nt, blk, nb, t0);
  for (; c < ce; ++c) update_tile<1, RV>(F, c, t, nt, blk, nb, t0);
}

// ---- one block of pivots ----------------------------------------------------------------------
// Eliminates the block of `size` pivots starting at column cb: its pivots, the scaling of its
// columns below them. Fills its terms. On refusal returns the code and the pivot's address.
QKM_INLINE int eliminate_block(const Front &F, int64_t cb, int size, Pivots &P, Term *terms,
                               double **failed) {
  const int64_t n = F.n;
  const int64_t j = cb;
  double *c1 = F.col(cb);
  double r1, r2, r3;
  int code;
  if ((code = P.check(&c1[j], r1)) != 0) {
    *failed = &c1[j];
    return code;
  }
  const double d1 = c1[j];
  terms[0] = Term{-d1, d1, c1};
  if (size == 1) {
    for (int64_t i = j + 1; i < n; ++i) c1[i] = c1[i] * r1;
    return 0;
  }
  double *c2 = F.col(cb + 1);
  const double a21 = c1[j + 1];
  const double l21 = r1 * a21;
  c1[j + 1] = l21;
  c2[j + 1] = c2[j + 1] - l21 * a21;
  if ((code = P.check(&c2[j + 1], r2)) != 0) {
    *failed = &c2[j + 1];
    return code;
  }
  const double d2 = c2[j + 1];
  terms[1] = Term{-d2, d2, c2};
  if (size == 2) {
    for (int64_t i = j + 2; i < n; ++i) {
      const double l1 = c1[i] * r1;
      const double l2 = (c2[i] - l1 * a21) * r2;
      c1[i] = l1;
      c2[i] = l2;
    }
    return 0;
  }
  double *c3 = F.col(cb + 2);
  const double a31 = c1[j + 2];
  const double l31 = r1 * a31;
  c1[j + 2] = l31;
  const double t = c2[j + 2] - l31 * a21;
  const double l32 = r2 * t;
  c2[j + 2] = l32;
  c3[j + 2] = (c3[j + 2] - l31 * a31) - l32 * t;
  if ((code = P.check(&c3[j + 2], r3)) != 0) {
    *failed = &c3[j + 2];
    return code;
  }
  const double d3 = c3[j + 2];
  terms[2] = Term{-d3, d3, c3};
  for (int64_t i = j + 3; i < n; ++i) {
    const double l1 = c1[i] * r1;
    const double l2 = (c2[i] - l1 * a21) * r2;
    const double l3 = ((c3[i] - l1 * a31) - l2 * t) * r3;
    c1[i] = l1;
    c2[i] = l2;
    c3[i] = l3;
  }
  return 0;
}

// The elimination of p pivots; returns 0 or the refusal code, with the refused pivot's
// 0-based position in *failpos.
template <int L>
QKM_INLINE int eliminate_body(const Front &F, int64_t p, Pivots &P, int64_t *failpos) {
  constexpr int RV = qkm::simd::Traits<L>::update_rows;
  const int64_t n = F.n;
  int64_t cb = 0;
  while (cb < p) {
    const int64_t pe = p - cb < 3 * kPanelBlocks ? p : cb + 3 * kPanelBlocks;
    Term terms[kMaxTerms];
    Block blk[kPanelBlocks];
    int nb = 0, nt = 0;
    while (cb < pe) {
      const int size = p - cb >= 3 ? 3 : static_cast<int>(p - cb);
      const int64_t m = n - cb;
      const bool lone = size == 2 ? (m % 2 == 1 && m >= 3) : (m % 2 == 0 && m >= size + 1);
      double *failed = nullptr;
      const int code = eliminate_block(F, cb, size, P, terms + nt, &failed);
      if (code != 0) {
        apply_blocks<RV>(F, pe, n, terms, blk, nb);
        *failpos = failed - F.f;
        return code;
      }
      blk[nb] = Block{nt, size, lone};
      apply_blocks<RV>(F, cb + size, pe, terms, blk + nb, 1);
      nt += size;
      ++nb;
      cb += size;
    }
    apply_blocks<RV>(F, pe, n, terms, blk, nb);
  }
  return 0;
}

QKM_VARIANTS(int, eliminate, (const Front &F, int64_t p, Pivots &P, int64_t *failpos),
             (F, p, P, failpos))

}  // namespace

extern "C" QKM_API qkm_int easlff_nt(const qkm_int *nfront, const qkm_int *npiv, double *front,
                                     double *minratio, const double *diag0,
                                     const double *tolabs, const double *tolratio,
                                     qkm_int *ipiv, qkm_int *naccept, float *work1,
                                     float *work2, qkm_int *ierr) {
  *ierr = 0;
  const int32_t n = *nfront, p = *npiv;

  // Work measures of the whole call, in double precision, each rounded to single precision
  // and added in single precision.
  const double dn = n, dp = p;
  const double s = (1 + dp) * dp;
  double f1 = (dp + dp) * dn - dp * dp;
  f1 = f1 + (dn * dn + 2) * dp;
  f1 = f1 - (dn + dn + 1) * s * 0.5;
  f1 = f1 + (dp + dp + 1) * s / 6;
  const double f2 = (dn * dp - s * 0.5) * 4 + dp;
  *work1 = *work1 + static_cast<float>(f1);
  *work2 = *work2 + static_cast<float>(f2);

  // Clearing limit, 1-based, in 32-bit arithmetic: p*n - p(p+1)/2.
  const int32_t zlim = static_cast<int32_t>(
      static_cast<uint32_t>(wrap_mul(p, n)) - static_cast<uint32_t>(wrap_mul(p, wrap_add(p, 1)) / 2));

  if (p <= 0) return 0;
  Pivots P{minratio, diag0, *tolabs, *tolratio, ipiv, naccept};
  const Front F{front, n};
  int64_t failpos = 0;
  const int code = eliminate(F, p, P, &failpos);
  if (code == 0) return 0;
  // Positions k+1 .. Z (1-based) of the front, k the refused pivot's position.
  for (int64_t i = failpos + 1; i < zlim; ++i) front[i] = 0.0;
  *ierr = code;
  return 1;
}
