// Subspace iteration (Bathe): q vectors X; Y = M X, Xbar = K^-1 Y, the projections
// Kbar = Xbar^T K Xbar and Mbar = Xbar^T M Xbar, the small pair reduced by Mbar = L L^T to
// C = L^-1 Kbar L^-T, its eigenpairs, and X = Xbar L^-T Z for the next round. The Ritz
// vectors stay M-orthonormal; convergence is judged on the p wanted eigenvalues.
#include "modal.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>

namespace qks {

namespace {

double diagonal(const SymMatrix &a, qkm_int i) { return a.a[a.rowend[i + 1] - 1]; }

// Bathe's start: diag(M), unit vectors at the unknowns of smallest k_ii / m_ii, and one
// fixed pseudo-random vector last.
void start_vectors(const SymMatrix &k, const SymMatrix &m, qkm_int q, double *x) {
  const qkm_int n = k.n;
  const size_t ld = static_cast<size_t>(n);
  std::fill(x, x + ld * q, 0.0);
  bool any = false;
  for (qkm_int i = 0; i < n; ++i) any |= (x[i] = diagonal(m, i)) != 0.0;
  if (!any) std::fill(x, x + n, 1.0);
  if (q > 2) {
    std::vector<std::pair<double, qkm_int>> ratio(n);
    for (qkm_int i = 0; i < n; ++i) {
      const double mi = diagonal(m, i);
      ratio[i] = {mi > 0.0 ? diagonal(k, i) / mi : HUGE_VAL, i};
    }
    std::partial_sort(ratio.begin(), ratio.begin() + (q - 2), ratio.end());
    for (qkm_int c = 1; c + 1 < q; ++c) x[c * ld + ratio[c - 1].second] = 1.0;
  }
  if (q > 1) {
    std::uint64_t s = 0x9E3779B97F4A7C15ULL;
    for (qkm_int i = 0; i < n; ++i) {
      s = s * 6364136223846793005ULL + 1442695040888963407ULL;
      x[(q - 1) * ld + i] = 2.0 * std::ldexp(static_cast<double>(s >> 11), -53) - 1.0;
    }
  }
}

// Eigenpairs of (kbar, mbar), both q x q by columns: values ascending into lambda, vectors
// (mbar-orthonormal) into z by columns. False when mbar is not positive definite or the
// small eigenproblem fails.
bool ritz(qkm_int q, const std::vector<double> &kbar, const std::vector<double> &mbar,
          std::vector<double> &lambda, std::vector<double> &z) {
  const size_t lq = static_cast<size_t>(q);
  std::vector<double> l(lq * (lq + 1) / 2), c(lq * (lq + 1) / 2), w(lq * lq), e(lq);
  auto pack = [&](const std::vector<double> &full, std::vector<double> &ap) {
    for (size_t i = 0; i < lq; ++i)
      for (size_t j = 0; j <= i; ++j)
        ap[i * (i + 1) / 2 + j] = 0.5 * (full[j * lq + i] + full[i * lq + j]);
  };
  pack(mbar, l);
  const qkm_int first = 1, one = 1, ascending = 1;
  const double tol = 0.0;
  qkm_int info = 0, ierr = 0;
  double dfail = 0.0;
  eaxfch2(nullptr, &first, &q, &tol, l.data(), &info, &dfail);
  if (info != 0) return false;
  // The packed rows of L are L^T packed by columns: "U" with "T" solves with L, "N" with L^T.
  pack(kbar, c);
  for (size_t i = 0; i < lq; ++i)
    for (size_t j = 0; j <= i; ++j) w[j * lq + i] = w[i * lq + j] = c[i * (i + 1) / 2 + j];
  for (size_t j = 0; j < lq; ++j) e_dtpsv("U", "T", "N", &q, l.data(), &w[j * lq], &one, 1, 1, 1);
  std::vector<double> wt(lq * lq);
  for (size_t i = 0; i < lq; ++i)
    for (size_t j = 0; j < lq; ++j) wt[i * lq + j] = w[j * lq + i];
  for (size_t j = 0; j < lq; ++j) e_dtpsv("U", "T", "N", &q, l.data(), &wt[j * lq], &one, 1, 1, 1);
  pack(wt, c);
  lambda.assign(lq, 0.0);
  z.assign(lq * lq, 0.0);
  if (eaxeig(&q, &ascending, c.data(), lambda.data(), z.data(), e.data(), &ierr) != 0) return false;
  for (size_t j = 0; j < lq; ++j) e_dtpsv("U", "N", "N", &q, l.data(), &z[j * lq], &one, 1, 1, 1);
  return true;
}

}  // namespace

ModalReport subspace_iteration(const SymMatrix &stiffness, const SymMatrix &mass,
                               const std::function<void(double *, int)> &solve,
                               const ModalOptions &options) {
  ModalReport rep;
  const qkm_int n = stiffness.n;
  if (n <= 0 || options.modes <= 0 || mass.n != n) return rep;
  const qkm_int p = std::min(options.modes, n);
  qkm_int q = options.subspace > 0 ? options.subspace : std::min(2 * p, p + 8);
  q = std::min(std::max(q, p), n);
  const size_t ld = static_cast<size_t>(n), lq = static_cast<size_t>(q);
  std::vector<double> x(ld * lq), xbar(ld * lq), y(ld * lq), kbar(lq * lq), mbar(lq * lq);
  std::vector<double> lambda, previous, z;
  const double one = 1.0, zero = 0.0;
  auto project = [&](std::vector<double> &out) {  // out = Xbar^T Y
    eagemm("T", "N", &q, &q, &n, &one, xbar.data(), &n, y.data(), &n, &zero, out.data(), &q, 1, 1);
  };
  start_vectors(stiffness, mass, q, x.data());
  while (rep.iterations < options.max_iterations) {
    ++rep.iterations;
    mass.multiply(x.data(), y.data(), q);
    xbar = y;
    solve(xbar.data(), q);
    stiffness.multiply(xbar.data(), y.data(), q);
    project(kbar);
    mass.multiply(xbar.data(), y.data(), q);
    project(mbar);
    if (!ritz(q, kbar, mbar, lambda, z)) {
      rep.status = 1;
      break;
    }
    eagemm("N", "N", &n, &q, &q, &one, xbar.data(), &n, z.data(), &q, &zero, x.data(), &n, 1, 1);
    bool done = !previous.empty();
    for (qkm_int i = 0; i < p && done; ++i)
      done = std::fabs(lambda[i] - previous[i]) <= options.tolerance * std::fabs(lambda[i]);
    previous = lambda;
    if (done) {
      rep.converged = true;
      break;
    }
  }
  if (previous.empty()) return rep;
  // Mass-normalise the wanted vectors and turn their largest component positive.
  mass.multiply(x.data(), y.data(), p);
  for (qkm_int j = 0; j < p; ++j) {
    double *v = x.data() + j * ld;
    const double mm = std::inner_product(v, v + n, y.data() + j * ld, 0.0);
    const double *big = std::max_element(v, v + n, [](double a, double b) {
      return std::fabs(a) < std::fabs(b);
    });
    const double s = (*big < 0.0 ? -1.0 : 1.0) / std::sqrt(mm);
    for (qkm_int i = 0; i < n; ++i) v[i] *= s;
    rep.eigenvalue.push_back(previous[j]);
    rep.frequency.push_back(std::sqrt(std::max(previous[j], 0.0)) / (2.0 * M_PI));
  }
  rep.vectors.assign(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(ld * p));
  return rep;
}

}  // namespace qks
