// Spectral inverse and the scattered-data fit: the products it is built from, the cut-off
// rule, the reference LAPACK inverse, rank deficiency, reproduction of linear and quadratic
// fields, what the basis evaluator is handed, and the failure values.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

#include "kernels.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;
using qkm_test::sentinel;
using Vec = std::vector<double>;

namespace {

Vec uniform(int count, unsigned seed, double lo = -1, double hi = 1) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(lo, hi);
  Vec v(count);
  for (auto &x : v) x = u(rng);
  return v;
}

Vec product(int n, const Vec &a, const Vec &b) {
  Vec c(n * n, 0.0);
  for (int j = 0; j < n; ++j)
    for (int k = 0; k < n; ++k)
      for (int i = 0; i < n; ++i) c[i + j * n] += a[i + k * n] * b[k + j * n];
  return c;
}

struct Inv {
  qkm_int rc, nzero;
  Vec a, z;
};
Inv spectral_inverse(qkm_int n, double tol, Vec a) {
  Inv r{0, -99, std::move(a), Vec(std::max(1, n * n), sentinel())};
  Vec work(std::max(1, n * n));
  r.rc = eaxinvs(&n, &tol, r.a.data(), work.data(), r.z.data(), &r.nzero);
  return r;
}

}  // namespace

TEST(Spectral, ProductsAndScalarProduct) {
  // One running sum in ascending order: ((1e16 + 1) - 1e16) + 3 = 3; negative strides start
  // from the far end.
  Vec x{1e16, 1.0, -1e16, 3.0}, ones(4, 1.0), a{1, 2, 3}, b{10, 20, 30}, c{1, 9, 2, 9, 3};
  qkm_int n = 4, zero = 0, three = 3, one = 1, minus = -1, two = 2;
  EXPECT_EQ(std::tuple(eaxscl(&n, x.data(), &one, ones.data(), &one),
                       eaxscl(&zero, x.data(), &one, ones.data(), &one),
                       eaxscl(&three, a.data(), &minus, b.data(), &one),
                       eaxscl(&three, c.data(), &two, b.data(), &minus)),
            std::tuple(3.0, 0.0, 3 * 10 + 2 * 20 + 1 * 30.0, 1 * 30 + 2 * 20 + 3 * 10.0));
  const int m = 7, k = 5, nn = 6, q = 4;
  const Vec am = uniform(m * k, 1), bm = uniform(k * nn, 2), z = uniform(q * q, 3);
  const Vec dd{2.0, -0.5, 3.0, 0.25};
  Vec cm(m * nn, sentinel()), ref(m * nn), w(q * q), cc(q * q);
  const double done = 1.0, dzero = 0.0;
  eaxmmp(&m, &k, &nn, am.data(), bm.data(), cm.data());
  dgemm_("N", "N", &m, &nn, &k, &done, am.data(), &m, bm.data(), &k, &dzero, ref.data(), &m, 1, 1);
  for (int i = 0; i < m * nn; ++i) EXPECT_NEAR(cm[i], ref[i], 1e-14);
  // ebhpap: work = diag(dd) z^T exactly, c = z diag(dd) z^T.
  ebhpap(&q, z.data(), dd.data(), w.data(), cc.data());
  for (int i = 0; i < q * q; ++i) {
    EXPECT_EQ(bits(w[i]), bits(z[i / q + i % q * q] * dd[i % q]));
    double s = 0;
    for (int p = 0; p < q; ++p) s += z[i % q + p * q] * dd[p] * z[i / q + p * q];
    EXPECT_NEAR(cc[i], s, 1e-14);
  }
}

TEST(Spectral, InverseCutOffAndFailureValues) {
  for (int n : {1, 5, 30}) {  // against dgetrf/dgetri; z holds ascending eigenpairs
    Vec a = uniform(n * n, 90 + n), ref(n * n), work(64 * n);
    for (int j = 0; j < n; ++j)
      for (int i = 0; i <= j; ++i) a[j + i * n] = a[i + j * n] + (i == j ? 4.0 : 0.0);
    Inv r = spectral_inverse(n, 1e-15, ref = a);
    ASSERT_EQ(std::tuple(r.rc, r.nzero), std::tuple(0, 0));
    std::vector<int> ipiv(n);
    int info = 0, lwork = 64 * n;
    dgetrf_(&n, &n, ref.data(), &n, ipiv.data(), &info);
    dgetri_(&n, ref.data(), &n, ipiv.data(), work.data(), &lwork, &info);
    for (int i = 0; i < n * n; ++i) EXPECT_NEAR(r.a[i], ref[i], 1e-11 * (1 + std::fabs(ref[i])));
    const Vec az = product(n, a, r.z);
    double first = 0, last = 0;
    for (int i = 0; i < n; ++i)
      first += az[i] * az[i], last += az[n * n - 1 - i] * az[n * n - 1 - i];
    EXPECT_LE(first, last + 1e-12);
  }
  // A = V V^T with V 8 by 3: five eigenvalues dropped, A A+ A = A.
  const int n = 8;
  const Vec v = uniform(n * 3, 21);
  Vec a(n * n, 0.0);
  for (int i = 0; i < n * n; ++i)
    for (int p = 0; p < 3; ++p) a[i] += v[i % n + p * n] * v[i / n + p * n];
  Inv r = spectral_inverse(n, 1e-10, a);
  ASSERT_EQ(std::tuple(r.rc, r.nzero), std::tuple(0, n - 3));
  const Vec apa = product(n, product(n, a, r.a), a);
  for (int i = 0; i < n * n; ++i) EXPECT_NEAR(apa[i], a[i], 1e-12);
  // The threshold is tol times the sum of |a| over both triangles (only the lower one enters
  // the eigenproblem), |d| <= threshold is dropped, tol 0 still drops a zero eigenvalue.
  for (const auto &[tol, in, nzero, inv] :
       {std::tuple<double, Vec, int, Vec>{0.5, {2, 0, 0, 2}, 2, {0, 0, 0, 0}},
        {0.4999999, {2, 0, 0, 2}, 0, {0.5, 0, 0, 0.5}},
        {0.0, {0, 0, 0, 5}, 1, {0, 0, 0, 0.2}},
        {0.005, {1, 0, 100, 1}, 0, {1, 0, 0, 1}},
        {0.01, {1, 0, 100, 1}, 2, {0, 0, 0, 0}}}) {
    r = spectral_inverse(2, tol, in);
    EXPECT_EQ(std::tuple(r.rc, r.nzero, r.a), std::tuple(0, nzero, inv)) << tol;
  }
  // Order above 30: nothing touched; order 0: success, nothing dropped; a QL failure: result
  // 1, the eigenvalue's index in the count.
  r = spectral_inverse(31, 1e-6, Vec(31 * 31, sentinel()));
  EXPECT_EQ(std::tuple(r.rc, r.nzero), std::tuple(1, -1));
  for (const Vec *v : {&r.a, &r.z})
    for (double x : *v) ASSERT_TRUE(qkm_test::is_sentinel(x));
  r = spectral_inverse(0, 1e-6, Vec{sentinel()});
  EXPECT_EQ(std::tuple(r.rc, r.nzero, qkm_test::is_sentinel(r.a[0])), std::tuple(0, 0, true));
  Vec bad = uniform(16, 5);
  bad[10] = std::numeric_limits<double>::quiet_NaN();
  r = spectral_inverse(4, 1e-6, bad);
  EXPECT_TRUE(r.rc == 1 && r.nzero >= 1 && r.nzero <= 4) << r.rc << " " << r.nzero;
}

namespace {

// What the basis evaluator was handed: the points in a row, and whether the fixed integers
// and the one cell held at every call.
struct Recorder {
  int calls = 0, fail_at = -1, set_ierr = 0;  // fail_at: 1-based call that returns 1
  Vec points;
  const double *cell = nullptr;
  bool args_ok = true;
} g_rec;

// The basis 1, x, y, z, x^2, y^2, z^2, xy, yz, zx (then anything).
qkm_int basis_fn(const qkm_int *a1, const qkm_int *a2, const qkm_int *m, const qkm_int *a4,
                 const qkm_int *a5, const double *p, double *cell, double *vals, qkm_int *ierr) {
  Recorder &r = g_rec;
  r.args_ok &= *a1 == 1 && *a2 == 0 && *a4 == 1 && *a5 == 0 && (!r.cell || r.cell == cell);
  r.cell = cell;
  r.points.insert(r.points.end(), p, p + 3);
  if (r.set_ierr != 0) *ierr = r.set_ierr;
  if (++r.calls == r.fail_at) return 1;
  const double x = p[0], y = p[1], z = p[2],
               all[10] = {1, x, y, z, x * x, y * y, z * z, x * y, y * z, z * x};
  for (int k = 0; k < *m; ++k) vals[k] = k < 10 ? all[k] : std::cos(k * x) + y;
  return 7;  // anything but 1 is success
}

struct Fit {
  qkm_int rc, ierr;
  double fit;
  Vec gram, bmat;
};
Fit run_fit(qkm_int m, const Vec &pts, const Vec &xq, const Vec &vals, const Vec &wts,
            Recorder rec = Recorder()) {
  g_rec = rec;
  qkm_int np = static_cast<qkm_int>(wts.size());
  Fit f{0, -99, sentinel(), Vec(m * m), Vec(np * m)};
  Vec work(m * m), z(m * m), pvec(m), coef(m);
  f.rc =
      eaxrmc3(&m, &np, pts.data(), xq.data(), vals.data(), &f.fit, basis_fn, f.gram.data(),
              work.data(), z.data(), f.bmat.data(), pvec.data(), coef.data(), wts.data(), &f.ierr);
  return f;
}

// Points in the cube shift +- scale, two of them at opposite corners: R = scale * sqrt(3).
Vec cloud(int np, unsigned seed, double scale, double shift) {
  Vec p = uniform(3 * np, seed, shift - scale, shift + scale);
  for (int c = 0; c < 3; ++c) p[c] = shift - scale, p[3 + c] = shift + scale;
  return p;
}

}  // namespace

// The linear field on a cloud away from the origin (the scaling does not centre it), the
// quadratic one around the origin; N + 1 evaluations with fixed integers, one cell and the
// coordinates divided by R; B carries the weights once, gram is the inverse of B^T B.
TEST(Fit, ReproducesLinearAndQuadraticFields) {
  const int np = 40;
  const Vec wts = uniform(np, 9, 0.5, 2.0);
  auto field = [](int m, const double *p) {
    const double x = p[0], y = p[1], z = p[2];
    return m == 4 ? 2.0 - x + 0.5 * y + 3.0 * z : 1.0 + x * x - 2.0 * y * z + 0.25 * z * z + x;
  };
  for (int m : {4, 10}) {
    const double scale = m == 4 ? 2.0 : 1.0, r = 0.5 * std::sqrt(3 * (2 * scale) * (2 * scale));
    Vec pts = cloud(np, 8 + m, scale, m == 4 ? 5.0 : 0.0), vals(np), scaled;
    pts.insert(pts.end(), {m == 4 ? 5.3 : 0.3, m == 4 ? 4.1 : -0.1, m == 4 ? 6.2 : 0.2});
    for (double v : pts) scaled.push_back(v / r);
    for (int i = 0; i < np; ++i) vals[i] = wts[i] * field(m, &pts[3 * i]);
    const Fit f = run_fit(m, pts, Vec(pts.end() - 3, pts.end()), vals, wts);
    ASSERT_EQ(std::tuple(f.rc, f.ierr), std::tuple(0, 0)) << m;
    const double want = field(m, &pts[3 * np]);
    EXPECT_NEAR(f.fit, want, 1e-8 * std::fabs(want)) << m;
    EXPECT_EQ(std::tuple(g_rec.calls, g_rec.args_ok, g_rec.points),
              std::tuple(np + 1, true, scaled));
    for (int i = 0; i < np; ++i) EXPECT_EQ(bits(f.bmat[i + np]), bits(scaled[3 * i] * wts[i]));
    Vec btb(m * m, 0.0);
    for (int a = 0; a < m * m; ++a)
      for (int i = 0; i < np; ++i) btb[a] += f.bmat[i + a % m * np] * f.bmat[i + a / m * np];
    const Vec id = product(m, f.gram, btb);
    for (int a = 0; a < m * m; ++a) EXPECT_NEAR(id[a], a % (m + 1) == 0 ? 1.0 : 0.0, 1e-8);
  }
}

TEST(Fit, RankDeficiencyAndFailureValues) {
  // A flat cloud (z = 0.75) with the basis 1, x, y, z: reported in ierr, the fit still right;
  // the evaluator's write to ierr at the query point does not survive.
  const int np = 12;
  Vec pts = cloud(np, 4, 1.0, 0.0), vals(np), wts(np, 1.0);
  for (int i = 0; i < np; ++i) pts[3 * i + 2] = 0.75, vals[i] = 1.0 + pts[3 * i] - pts[3 * i + 1];
  const Vec xq{0.1, 0.2, 0.75};
  Fit f = run_fit(4, pts, xq, vals, wts);
  EXPECT_TRUE(f.rc == 0 && f.ierr > 0) << f.rc << " " << f.ierr;
  EXPECT_NEAR(f.fit, 1.0 + 0.1 - 0.2, 1e-9);
  EXPECT_EQ(run_fit(4, pts, xq, vals, wts, Recorder{0, -1, 555}).ierr, f.ierr);
  // Fewer points than basis functions: singular Gram matrix, a fit still comes out.
  f = run_fit(10, cloud(4, 6, 1.0, 0.0), Vec{0, 0, 0}, Vec{1, 2, 3, 4}, Vec(4, 1.0));
  EXPECT_TRUE(f.rc == 0 && f.ierr >= 6 && std::isfinite(f.fit)) << f.ierr << " " << f.fit;
  // A single point: the radius floor 1.0e-6; the constant basis gives the value itself.
  f = run_fit(1, Vec{0.25, -3.0, 7.5}, Vec{1.0, 1.0, 1.0}, Vec{2.0}, Vec{1.0});
  EXPECT_EQ(
      std::tuple(f.rc, f.fit, g_rec.points),
      std::tuple(0, 2.0, Vec{0.25 / 1e-6, -3.0 / 1e-6, 7.5 / 1e-6, 1 / 1e-6, 1 / 1e-6, 1 / 1e-6}));
  // The evaluator fails at the third point: result 1, ierr as it left it, no more calls; at
  // the query point: fit 0.0. 31 basis functions: every point evaluated, then refused.
  const Vec p6 = cloud(6, 2, 1.0, 0.0), v6(6, 1.0), o{0, 0, 0};
  f = run_fit(4, p6, o, v6, v6, Recorder{0, 3, 31});
  EXPECT_EQ(std::tuple(f.rc, f.ierr, g_rec.calls, bits(f.fit)),
            std::tuple(1, 31, 3, bits(sentinel())));
  f = run_fit(4, p6, o, v6, v6, Recorder{0, 7});
  EXPECT_EQ(std::tuple(f.rc, f.fit), std::tuple(1, 0.0));
  f = run_fit(31, p6, o, v6, v6);
  EXPECT_EQ(std::tuple(f.rc, f.ierr, g_rec.calls, bits(f.fit)),
            std::tuple(1, -1, 6, bits(sentinel())));
}
