// Truncated spectral inverse of a small symmetric matrix (eaxinvs), the products it is built
// from (ebhpap, eaxmmp, eaxscl), and the weighted least-squares fit of scattered values in a
// caller's basis (eaxrmc3), solved through that pseudo-inverse.
#include <cmath>
#include <cstdint>

#include "frame/toolkit.h"
#include "kernels.h"

namespace {

// Largest order eaxinvs accepts, and the room of its eigenvalue and subdiagonal arrays.
constexpr int32_t kMaxOrder = 30;
thread_local double t_eig[32];
thread_local double t_sub[32];

// The scaled coordinates handed to the basis evaluator, and the 8-byte cell it receives
// untouched by the library. Kept per thread, as the routine's static cells.
thread_local double t_point[3];
thread_local double t_cell;

// Relative cut-off of the pseudo-inverse in the fit, and the floor of the scaling radius.
constexpr double kFitCutoff = 1.0e-6;
constexpr double kMinRadius = 1.0e-6;

using qkm::mirrored_start;

}  // namespace

extern "C" {

// The scalar product. Fixed split on every path: one running sum from 0.0, terms added in
// ascending order of i.
double eaxscl(const qkm_int *n, const double *x, const qkm_int *incx, const double *y,
              const qkm_int *incy) {
  const int32_t nn = *n;
  if (nn < 1) return 0.0;
  const int32_t ix_inc = *incx, iy_inc = *incy;
  double s = 0.0;
  if (ix_inc == 1 && iy_inc == 1) {
    for (int32_t i = 0; i < nn; ++i) s = s + x[i] * y[i];
    return s;
  }
  int64_t ix = mirrored_start(nn, ix_inc), iy = mirrored_start(nn, iy_inc);
  for (int32_t i = 0; i < nn; ++i, ix += ix_inc, iy += iy_inc) s = s + x[ix] * y[iy];
  return s;
}

void eaxmmp(const qkm_int *m, const qkm_int *k, const qkm_int *n, const double *a,
            const double *b, double *c) {
  const double one = 1.0, zero = 0.0;
  eagemm("N", "N", m, n, k, &one, a, m, b, k, &zero, c, m, 1, 1);
}

void ebhpap(const qkm_int *n, const double *z, const double *dd, double *work, double *c) {
  const int64_t nn = *n;
  for (int64_t j = 0; j < nn; ++j)
    for (int64_t k = 0; k < nn; ++k) work[j + k * nn] = z[k + j * nn] * dd[j];
  eaxmmp(n, n, n, z, work, c);
}

qkm_int eaxinvs(const qkm_int *n, const double *tol, double *a, double *work, double *z,
                qkm_int *nzero) {
  const int32_t nn = *n;
  if (nn > kMaxOrder) {
    *nzero = -1;
    return 1;
  }
  // The cut-off scales with the sum of all entries of both triangles.
  double thr = 0.0;
  const int64_t total = static_cast<int64_t>(nn) * nn;
  for (int64_t p = 0; p < total; ++p) thr = thr + std::fabs(a[p]) * *tol;
  // Lower triangle packed by rows.
  for (int64_t r = 1; r <= nn; ++r)
    for (int64_t c = 1; c <= r; ++c) work[qkm::packed_row0(r) + c - 1] = a[(r - 1) + (c - 1) * nn];
  const qkm_int ascending = 1;
  if (eaxeig(n, &ascending, work, t_eig, z, t_sub, nzero) == 1) return 1;
  qkm_int dropped = 0;
  for (int32_t i = 0; i < nn; ++i) {
    if (thr >= std::fabs(t_eig[i])) {
      t_eig[i] = 0.0;
      ++dropped;
    } else {
      t_eig[i] = 1.0 / t_eig[i];
    }
  }
  *nzero = dropped;
  ebhpap(n, z, t_eig, work, a);
  return 0;
}

qkm_int eaxrmc3(const qkm_int *nbasis, const qkm_int *npts, const double *pts,
                const double *xq, const double *vals, double *fit, qkm_basis_fn basis,
                double *gram, double *work, double *z, double *bmat, double *pvec,
                double *coef, const double *wts, qkm_int *ierr) {
  const qkm_int one = 1, zero = 0;
  *ierr = 0;
  t_point[0] = t_point[1] = t_point[2] = 0.0;
  const int64_t m = *nbasis, np = *npts;

  // Extents of the cloud; the first point is read whatever the count.
  double lo[3] = {pts[0], pts[1], pts[2]}, hi[3] = {pts[0], pts[1], pts[2]};
  for (int64_t i = 1; i < np; ++i)
    for (int c = 0; c < 3; ++c) {
      const double v = pts[3 * i + c];
      if (v < lo[c]) lo[c] = v;
      if (v > hi[c]) hi[c] = v;
    }
  const double dx = hi[0] - lo[0], dy = hi[1] - lo[1], dz = hi[2] - lo[2];
  const double half_diag = 0.5 * std::sqrt(dx * dx + dy * dy + dz * dz);
  const double radius = kMinRadius < half_diag ? half_diag : kMinRadius;

  // Weighted basis matrix, one row per point, coordinates divided by the radius.
  for (int64_t i = 0; i < np; ++i) {
    for (int c = 0; c < 3; ++c) t_point[c] = pts[3 * i + c] / radius;
    if (basis(&one, &zero, nbasis, &one, &zero, t_point, &t_cell, pvec, ierr) == 1) return 1;
    for (int64_t k = 0; k < m; ++k) bmat[i + k * np] = pvec[k] * wts[i];
  }

  // Normal equations: B^T B and B^T vals.
  const double alpha = 1.0, beta = 0.0;
  eagemm("T", "N", nbasis, nbasis, npts, &alpha, bmat, npts, bmat, npts, &beta, gram, nbasis, 1,
         1);
  for (int64_t k = 0; k < m; ++k) pvec[k] = eaxscl(npts, bmat + k * np, &one, vals, &one);

  const double cutoff = kFitCutoff;
  if (eaxinvs(nbasis, &cutoff, gram, work, z, ierr) == 1) return 1;
  const qkm_int dropped = *ierr;
  for (int64_t k = 0; k < m; ++k) coef[k] = eaxscl(nbasis, gram + k * m, &one, pvec, &one);

  // The fit at the query point, scaled alike.
  for (int c = 0; c < 3; ++c) t_point[c] = xq[c] / radius;
  *fit = 0.0;
  if (basis(&one, &zero, nbasis, &one, &zero, t_point, &t_cell, pvec, ierr) == 1) return 1;
  *fit = eaxscl(nbasis, coef, &one, pvec, &one);
  *ierr = dropped;
  return 0;
}

}  // extern "C"
