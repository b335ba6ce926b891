// Deterministic runs of six kernels on data made from a seed: every output (arrays, flags,
// returned values) in one vector of doubles, to be compared bit for bit between runs, threads
// and compilers.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "kernels.h"
#include "support/bits.h"

namespace qkm_test::workloads {

using Vec = std::vector<double>;

using qkm_test::uniform;

// B*B^T/n + I, packed by rows (element (i,j), j <= i, at i(i-1)/2 + j).
inline Vec spd_packed(int n, unsigned seed) {
  const Vec b = uniform(static_cast<std::size_t>(n) * n, seed);
  Vec a(static_cast<std::size_t>(n) * (n + 1) / 2, 0.0);
  for (int i = 1; i <= n; ++i)
    for (int j = 1; j <= i; ++j) {
      double &x = a[static_cast<std::size_t>(i) * (i - 1) / 2 + j - 1];
      for (int m = 0; m < n; ++m) x += b[(i - 1) * n + m] * b[(j - 1) * n + m] / n;
      if (i == j) x += 1.0;
    }
  return a;
}

inline void put(Vec &out, const Vec &v) { out.insert(out.end(), v.begin(), v.end()); }

inline Vec gemm(unsigned seed) {
  const qkm_int m = 67, n = 45, k = 71;
  const double alpha = 1.25, beta = -0.5;
  const Vec a = uniform(m * k, seed), b = uniform(k * n, seed + 1);
  Vec c = uniform(m * n, seed + 2);
  eagemm("N", "T", &m, &n, &k, &alpha, a.data(), &m, b.data(), &n, &beta, c.data(), &m, 1, 1);
  return c;
}

// The Cholesky factor by eaxfch2, then three right-hand sides solved with it.
inline Vec factor_solve(unsigned seed) {
  const qkm_int n = 41, nrhs = 3, k0 = 1;
  Vec ap = spd_packed(n, seed), b = uniform(n * nrhs, seed + 3), out;
  double tol = 1e-12, dfail = 0;
  qkm_int info = -1, solve_info = -1;
  eaxfch2(nullptr, &k0, &n, &tol, ap.data(), &info, &dfail);
  e_dpptrs("U", &n, &nrhs, ap.data(), b.data(), &n, &solve_info, 1);
  put(out, ap);
  put(out, b);
  out.insert(out.end(), {double(info), dfail, double(solve_info)});
  return out;
}

inline Vec eigen(unsigned seed) {
  const qkm_int n = 24, order = 1;
  Vec ap = spd_packed(n, seed + 5), d(n), z(n * n), e(n), out;
  qkm_int ierr = -1;
  const qkm_int r = eaxeig(&n, &order, ap.data(), d.data(), z.data(), e.data(), &ierr);
  put(out, d);
  put(out, z);
  out.insert(out.end(), {double(r), double(ierr)});
  return out;
}

// A front packed by columns (lower triangle), positive definite.
inline Vec frontal(unsigned seed) {
  const qkm_int n = 37, p = 29;
  Vec f = spd_packed(n, seed + 7), diag0(n), out;
  for (int j = 1; j <= n; ++j) diag0[j - 1] = f[static_cast<std::size_t>(j) * (j + 1) / 2 - 1];
  double minratio = 1e300, tolabs = 1e-12, tolratio = 1e-6;
  qkm_int ipiv = 0, naccept = 0, ierr = -5;
  float w1 = 0, w2 = 0;
  const qkm_int r = easlff_nt(&n, &p, f.data(), &minratio, diag0.data(), &tolabs, &tolratio,
                              &ipiv, &naccept, &w1, &w2, &ierr);
  put(out, f);
  out.insert(out.end(), {minratio, double(ipiv), double(naccept), double(ierr), double(r),
                         double(w1), double(w2)});
  return out;
}

inline Vec inverse(unsigned seed) {
  const qkm_int n = 33, mode = 1;
  Vec a = uniform(n * n, seed + 9), out;
  for (int i = 0; i < n; ++i) a[i + i * n] += 4.0;
  std::vector<qkm_int> ipvt(n);
  qkm_int info = -1;
  eaxinv(&mode, &n, &n, ipvt.data(), &info, a.data());
  put(out, a);
  for (qkm_int v : ipvt) out.push_back(v);
  out.push_back(info);
  return out;
}

// Every workload in turn.
inline Vec all(unsigned seed) {
  Vec out;
  for (auto *w : {gemm, factor_solve, eigen, frontal, inverse}) put(out, w(seed));
  return out;
}

// FNV-1a over the bits of every value.
inline std::uint64_t fingerprint(const Vec &v) {
  std::uint64_t h = 1469598103934665603ULL;
  for (double x : v) {
    unsigned char b[8];
    std::memcpy(b, &x, 8);
    for (unsigned char c : b) h = (h ^ c) * 1099511628211ULL;
  }
  return h;
}

}  // namespace qkm_test::workloads
