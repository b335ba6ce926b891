// Spectral inverse and the scattered-data fit: the cut-off rule, the failure values, the
// reference LAPACK inverse, reproduction of linear and quadratic fields, rank deficiency, and
// exactly what the basis evaluator is handed.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "kernels.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;
using qkm_test::sentinel;
using Vec = std::vector<double>;

namespace {

Vec random_symmetric(int n, unsigned seed, double diag) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  Vec a(n * n);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i <= j; ++i) a[i + j * n] = a[j + i * n] = u(rng);
  for (int i = 0; i < n; ++i) a[i + i * n] += diag;
  return a;
}

Vec product(int n, const Vec &a, const Vec &b) {
  Vec c(n * n, 0.0);
  for (int j = 0; j < n; ++j)
    for (int k = 0; k < n; ++k)
      for (int i = 0; i < n; ++i) c[i + j * n] += a[i + k * n] * b[k + j * n];
  return c;
}

struct Inv {
  int rc, nzero;
  Vec a, z;
};
Inv spectral_inverse(int n, double tol, Vec a) {
  Inv r{0, -99, std::move(a), Vec(std::max(1, n * n), sentinel())};
  Vec work(std::max(1, n * n));
  r.rc = eaxinvs(&n, &tol, r.a.data(), work.data(), r.z.data(), &r.nzero);
  return r;
}

}  // namespace

TEST(Spectral, ScalarProductOrderAndStrides) {
  Vec x{1e16, 1.0, -1e16, 3.0}, y{1.0, 1.0, 1.0, 1.0};
  int n = 4, one = 1, minus = -1, two = 2;
  // One running sum in ascending order: (((1e16 + 1) - 1e16) + 3) = 3 (the 1 is lost).
  EXPECT_EQ(eaxscl(&n, x.data(), &one, y.data(), &one), 3.0);
  n = 0;
  EXPECT_EQ(eaxscl(&n, x.data(), &one, y.data(), &one), 0.0);
  n = 3;
  Vec a{1, 2, 3}, b{10, 20, 30};
  EXPECT_EQ(eaxscl(&n, a.data(), &minus, b.data(), &one), 3 * 10 + 2 * 20 + 1 * 30.0);
  Vec c{1, 9, 2, 9, 3};
  EXPECT_EQ(eaxscl(&n, c.data(), &two, b.data(), &minus), 1 * 30 + 2 * 20 + 3 * 10.0);
}

TEST(Spectral, ProductsMatchReferenceBlas) {
  const int m = 7, k = 5, n = 6;
  Vec a(m * k), b(k * n), c(m * n, sentinel()), ref(m * n);
  std::mt19937_64 rng(3);
  std::uniform_real_distribution<double> u(-1, 1);
  for (auto &v : a) v = u(rng);
  for (auto &v : b) v = u(rng);
  eaxmmp(&m, &k, &n, a.data(), b.data(), c.data());
  const double one = 1.0, zero = 0.0;
  dgemm_("N", "N", &m, &n, &k, &one, a.data(), &m, b.data(), &k, &zero, ref.data(), &m, 1, 1);
  for (int i = 0; i < m * n; ++i) EXPECT_NEAR(c[i], ref[i], 1e-14);
  // ebhpap: work = diag(dd) z^T exactly, c = z diag(dd) z^T.
  const int q = 4;
  Vec z(q * q), dd{2.0, -0.5, 3.0, 0.25}, w(q * q), cc(q * q);
  for (auto &v : z) v = u(rng);
  ebhpap(&q, z.data(), dd.data(), w.data(), cc.data());
  for (int j = 0; j < q; ++j)
    for (int kk = 0; kk < q; ++kk) EXPECT_EQ(bits(w[j + kk * q]), bits(z[kk + j * q] * dd[j]));
  for (int i = 0; i < q; ++i)
    for (int j = 0; j < q; ++j) {
      double s = 0;
      for (int p = 0; p < q; ++p) s += z[i + p * q] * dd[p] * z[j + p * q];
      EXPECT_NEAR(cc[i + j * q], s, 1e-14);
    }
}

TEST(Spectral, InvertibleMatrixGivesTheInverse) {
  for (int n : {1, 5, 30}) {
    const Vec a = random_symmetric(n, 90 + n, 4.0);
    Inv r = spectral_inverse(n, 1e-15, a);
    ASSERT_EQ(r.rc, 0);
    EXPECT_EQ(r.nzero, 0);
    Vec b = a;
    std::vector<int> ipiv(n);
    int info = 0, lwork = 64 * n;
    Vec work(lwork);
    dgetrf_(&n, &n, b.data(), &n, ipiv.data(), &info);
    dgetri_(&n, b.data(), &n, ipiv.data(), work.data(), &lwork, &info);
    for (int i = 0; i < n * n; ++i) EXPECT_NEAR(r.a[i], b[i], 1e-11 * (1 + std::fabs(b[i]))) << n;
    // z holds the eigenvectors for ascending eigenvalues: A z_1 is the smallest stretch.
    Vec az = product(n, a, r.z);
    double n1 = 0, nlast = 0;
    for (int i = 0; i < n; ++i) {
      n1 += az[i] * az[i];
      nlast += az[i + (n - 1) * n] * az[i + (n - 1) * n];
    }
    EXPECT_LE(n1, nlast + 1e-12);
  }
}

TEST(Spectral, CutOffRuleAndDroppedCount) {
  // diag(2, 2): thr = 4*tol. At tol = 0.5 the comparison thr >= |d| holds: both dropped.
  Inv r = spectral_inverse(2, 0.5, Vec{2, 0, 0, 2});
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.nzero, 2);
  EXPECT_EQ(r.a, (Vec{0, 0, 0, 0}));
  r = spectral_inverse(2, 0.4999999, Vec{2, 0, 0, 2});
  EXPECT_EQ(r.nzero, 0);
  EXPECT_EQ(r.a, (Vec{0.5, 0, 0, 0.5}));
  // tol = 0: a zero eigenvalue is still dropped, no division by zero.
  r = spectral_inverse(2, 0.0, Vec{0, 0, 0, 5});
  EXPECT_EQ(r.nzero, 1);
  EXPECT_EQ(r.a, (Vec{0, 0, 0, 0.2}));
  // Both triangles enter the cut-off, only the lower one the eigenproblem: a(1,2) = 100.
  r = spectral_inverse(2, 0.005, Vec{1, 0, 100, 1});  // thr = 1.02 * 0.5
  EXPECT_EQ(r.nzero, 0);
  EXPECT_EQ(r.a, (Vec{1, 0, 0, 1}));
  r = spectral_inverse(2, 0.01, Vec{1, 0, 100, 1});  // thr = 1.02
  EXPECT_EQ(r.nzero, 2);
  // The zero matrix: everything dropped, the result is zero.
  r = spectral_inverse(6, 1e-3, Vec(36, 0.0));
  EXPECT_EQ(r.nzero, 6);
  for (double v : r.a) EXPECT_EQ(v, 0.0);
}

TEST(Spectral, RankDeficientMatrixGivesThePseudoInverse) {
  // A = V V^T with V 8 by 3: rank 3, five eigenvalues dropped; A A+ A = A.
  const int n = 8, k = 3;
  std::mt19937_64 rng(21);
  std::uniform_real_distribution<double> u(-1, 1);
  Vec v(n * k), a(n * n, 0.0);
  for (auto &x : v) x = u(rng);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j)
      for (int p = 0; p < k; ++p) a[i + j * n] += v[i + p * n] * v[j + p * n];
  Inv r = spectral_inverse(n, 1e-10, a);
  ASSERT_EQ(r.rc, 0);
  EXPECT_EQ(r.nzero, n - k);
  const Vec apa = product(n, product(n, a, r.a), a);
  for (int i = 0; i < n * n; ++i) EXPECT_NEAR(apa[i], a[i], 1e-12);
}

TEST(Spectral, FailureValues) {
  // Order above 30: nothing touched.
  Vec a(31 * 31, sentinel());
  Inv r = spectral_inverse(31, 1e-6, a);
  EXPECT_EQ(r.rc, 1);
  EXPECT_EQ(r.nzero, -1);
  for (size_t i = 0; i < a.size(); ++i) ASSERT_EQ(bits(r.a[i]), bits(sentinel()));
  for (double x : r.z) ASSERT_EQ(bits(x), bits(sentinel()));
  // Order 0: nothing dropped, success.
  r = spectral_inverse(0, 1e-6, Vec{sentinel()});
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.nzero, 0);
  EXPECT_EQ(bits(r.a[0]), bits(sentinel()));
  // A QL failure: result 1, the index of the eigenvalue in the count.
  Vec bad = random_symmetric(4, 5, 1.0);
  bad[2 + 2 * 4] = std::numeric_limits<double>::quiet_NaN();
  r = spectral_inverse(4, 1e-6, bad);
  EXPECT_EQ(r.rc, 1);
  EXPECT_GE(r.nzero, 1);
  EXPECT_LE(r.nzero, 4);
}

// ---- the fit -------------------------------------------------------------------------------
namespace {

struct Recorder {
  int calls = 0;
  int fail_at = -1;       // 1-based call that returns 1
  int set_ierr = 0;       // written into ierr at every call when non-zero
  std::vector<Vec> points;
  std::vector<const double *> cells;
  bool args_ok = true;
  int degree = 1;         // 1: 1,x,y,z; 2: the ten quadratic monomials
};
Recorder g_rec;

qkm_int basis_fn(const qkm_int *a1, const qkm_int *a2, const qkm_int *m, const qkm_int *a4,
                 const qkm_int *a5, const double *p, double *cell, double *vals, qkm_int *ierr) {
  Recorder &r = g_rec;
  ++r.calls;
  if (*a1 != 1 || *a2 != 0 || *a4 != 1 || *a5 != 0) r.args_ok = false;
  r.points.push_back(Vec{p[0], p[1], p[2]});
  r.cells.push_back(cell);
  if (r.set_ierr != 0) *ierr = r.set_ierr;
  if (r.calls == r.fail_at) return 1;
  const double x = p[0], y = p[1], z = p[2];
  const double all[10] = {1, x, y, z, x * x, y * y, z * z, x * y, y * z, z * x};
  for (int k = 0; k < *m; ++k) vals[k] = k < 10 ? all[k] : std::cos(k * x) + y;
  return 7;  // anything but 1 is success
}

struct Fit {
  int rc, ierr;
  double fit;
  Vec gram, bmat, coef;
};

Fit run_fit(int m, const Vec &pts, const Vec &xq, const Vec &vals, const Vec &wts) {
  const int np = static_cast<int>(wts.size());
  Fit f{0, -99, sentinel(), Vec(m * m), Vec(np * m), Vec(m)};
  Vec work(m * m), z(m * m), pvec(m);
  f.rc = eaxrmc3(&m, &np, pts.data(), xq.data(), vals.data(), &f.fit, basis_fn, f.gram.data(),
                 work.data(), z.data(), f.bmat.data(), pvec.data(), f.coef.data(), wts.data(),
                 &f.ierr);
  return f;
}

Vec cloud(int np, unsigned seed, double scale, double shift) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  Vec p(3 * np);
  for (auto &v : p) v = shift + scale * u(rng);
  return p;
}

double radius_of(const Vec &pts) {
  double lo[3], hi[3];
  for (int c = 0; c < 3; ++c) lo[c] = hi[c] = pts[c];
  for (size_t i = 3; i < pts.size(); ++i) {
    lo[i % 3] = std::min(lo[i % 3], pts[i]);
    hi[i % 3] = std::max(hi[i % 3], pts[i]);
  }
  const double dx = hi[0] - lo[0], dy = hi[1] - lo[1], dz = hi[2] - lo[2];
  return std::max(1.0e-6, 0.5 * std::sqrt(dx * dx + dy * dy + dz * dz));
}

}  // namespace

TEST(Fit, ReproducesLinearAndQuadraticFields) {
  // The linear field on a cloud away from the origin (the scaling does not centre it), the
  // quadratic one on a cloud around it, where its Gram matrix keeps every eigenvalue.
  const int np = 40;
  const Vec far_pts = cloud(np, 8, 2.0, 5.0), near_pts = cloud(np, 18, 1.0, 0.0);
  auto lin = [](double x, double y, double z) { return 2.0 - x + 0.5 * y + 3.0 * z; };
  auto quad = [](double x, double y, double z) {
    return 1.0 + x * x - 2.0 * y * z + 0.25 * z * z + x;
  };
  std::mt19937_64 rng(9);
  std::uniform_real_distribution<double> wu(0.5, 2.0);
  Vec wts(np);
  for (auto &w : wts) w = wu(rng);
  for (int m : {4, 10}) {
    const Vec &pts = m == 4 ? far_pts : near_pts;
    const Vec xq = m == 4 ? Vec{5.3, 4.1, 6.2} : Vec{0.3, -0.1, 0.2};
    Vec vals(np);
    for (int i = 0; i < np; ++i) {
      const double *p = &pts[3 * i];
      vals[i] = wts[i] * (m == 4 ? lin(p[0], p[1], p[2]) : quad(p[0], p[1], p[2]));
    }
    g_rec = Recorder{};
    Fit f = run_fit(m, pts, xq, vals, wts);
    ASSERT_EQ(f.rc, 0) << m;
    EXPECT_EQ(f.ierr, 0) << m;
    const double want = m == 4 ? lin(xq[0], xq[1], xq[2]) : quad(xq[0], xq[1], xq[2]);
    EXPECT_NEAR(f.fit, want, 1e-8 * std::fabs(want)) << m;
    // The evaluator: N + 1 calls, fixed integers, one cell, coordinates divided by R.
    EXPECT_EQ(g_rec.calls, np + 1);
    EXPECT_TRUE(g_rec.args_ok);
    const double r = radius_of(pts);
    for (int i = 0; i <= np; ++i) {
      const double *p = i < np ? &pts[3 * i] : xq.data();
      for (int c = 0; c < 3; ++c) ASSERT_EQ(bits(g_rec.points[i][c]), bits(p[c] / r));
      EXPECT_EQ(g_rec.cells[i], g_rec.cells[0]);
    }
    // B carries the weights once; gram is the inverse of B^T B.
    for (int i = 0; i < np; ++i)
      EXPECT_EQ(bits(f.bmat[i + 1 * np]), bits((pts[3 * i] / r) * wts[i]));
    Vec btb(m * m, 0.0);
    for (int a = 0; a < m; ++a)
      for (int b = 0; b < m; ++b)
        for (int i = 0; i < np; ++i) btb[a + b * m] += f.bmat[i + a * np] * f.bmat[i + b * np];
    const Vec id = product(m, f.gram, btb);
    for (int a = 0; a < m; ++a)
      for (int b = 0; b < m; ++b) EXPECT_NEAR(id[a + b * m], a == b ? 1.0 : 0.0, 1e-8);
  }
}

TEST(Fit, RankDeficiencyIsReportedNotFailed) {
  // A flat cloud (all z equal) with the basis 1, x, y, z: the z column repeats the constant.
  const int np = 12;
  Vec pts = cloud(np, 4, 1.0, 0.0);
  for (int i = 0; i < np; ++i) pts[3 * i + 2] = 0.75;
  Vec vals(np), wts(np, 1.0);
  for (int i = 0; i < np; ++i) vals[i] = 1.0 + pts[3 * i] - pts[3 * i + 1];
  g_rec = Recorder{};
  Fit f = run_fit(4, pts, Vec{0.1, 0.2, 0.75}, vals, wts);
  EXPECT_EQ(f.rc, 0);
  EXPECT_GT(f.ierr, 0);
  EXPECT_NEAR(f.fit, 1.0 + 0.1 - 0.2, 1e-9);
  // Fewer points than basis functions: singular Gram matrix, a fit still comes out.
  g_rec = Recorder{};
  Fit g = run_fit(10, cloud(4, 6, 1.0, 0.0), Vec{0, 0, 0}, Vec{1, 2, 3, 4}, Vec(4, 1.0));
  EXPECT_EQ(g.rc, 0);
  EXPECT_GE(g.ierr, 6);
  EXPECT_TRUE(std::isfinite(g.fit));
  // The evaluator's writes to ierr at the query point do not survive.
  g_rec = Recorder{};
  g_rec.set_ierr = 555;
  Fit h = run_fit(4, pts, Vec{0.1, 0.2, 0.75}, vals, wts);
  EXPECT_EQ(h.rc, 0);
  EXPECT_EQ(h.ierr, f.ierr);
}

TEST(Fit, SinglePointUsesTheRadiusFloor) {
  g_rec = Recorder{};
  const Vec p{0.25, -3.0, 7.5};
  Fit f = run_fit(1, p, Vec{1.0, 1.0, 1.0}, Vec{2.0}, Vec{1.0});
  EXPECT_EQ(f.rc, 0);
  ASSERT_EQ(g_rec.calls, 2);
  for (int c = 0; c < 3; ++c) EXPECT_EQ(bits(g_rec.points[0][c]), bits(p[c] / 1.0e-6));
  EXPECT_EQ(f.fit, 2.0);  // constant basis: the value itself
}

TEST(Fit, FailureValues) {
  const int np = 6;
  const Vec pts = cloud(np, 2, 1.0, 0.0), vals(np, 1.0), wts(np, 1.0);
  // The evaluator fails at the third point: result 1, ierr as it left it, no more calls.
  g_rec = Recorder{};
  g_rec.fail_at = 3;
  g_rec.set_ierr = 31;
  Fit f = run_fit(4, pts, Vec{0, 0, 0}, vals, wts);
  EXPECT_EQ(f.rc, 1);
  EXPECT_EQ(f.ierr, 31);
  EXPECT_EQ(g_rec.calls, 3);
  EXPECT_EQ(bits(f.fit), bits(sentinel()));
  // It fails at the query point: fit stays 0.0.
  g_rec = Recorder{};
  g_rec.fail_at = np + 1;
  f = run_fit(4, pts, Vec{0, 0, 0}, vals, wts);
  EXPECT_EQ(f.rc, 1);
  EXPECT_EQ(f.fit, 0.0);
  // 31 basis functions: every point evaluated, then the order is refused.
  g_rec = Recorder{};
  f = run_fit(31, pts, Vec{0, 0, 0}, vals, wts);
  EXPECT_EQ(f.rc, 1);
  EXPECT_EQ(f.ierr, -1);
  EXPECT_EQ(g_rec.calls, np);
  EXPECT_EQ(bits(f.fit), bits(sentinel()));
}
