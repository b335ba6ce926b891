// Symmetric eigenproblem: each pass against a plain scalar statement of its order, bit for bit,
// on every instruction-set level; the driver against the reference LAPACK (dspev) within a
// tolerance; residuals and orthogonality on matrices of several kinds; the edge cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "kernels.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;
using qkm_test::sentinel;
using qkm_test::SimdLevel;
using Vec = std::vector<double>;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

inline long pos(long i, long j) { return i * (i - 1) / 2 + j - 1; }  // packed by rows, 1-based

// ---- scalar statements of the four passes ---------------------------------------------------
void ref_etr(int n, Vec &a, Vec &d, Vec &e) {
  if (n < 2) {
    d[0] = a[0];
    e[0] = 0.0;
    return;
  }
  auto A = [&](long j, long k) { return k <= j ? a[pos(j, k)] : a[pos(k, j)]; };
  for (long i = n; i >= 3; --i) {
    const long l = i - 1, iz = i * (i - 1) / 2;
    double h = 0.0;
    for (long k = 1; k <= l; ++k) {
      d[k - 1] = a[iz + k - 1];
      h = h + d[k - 1] * d[k - 1];
    }
    double f = d[l - 1];
    if (h == 0.0) {
      e[i - 1] = f;
    } else {
      const double r = std::sqrt(h);
      const double g = f < 0 ? r : -r;
      h = h - f * g;
      d[l - 1] = f - g;
      a[iz + l - 1] = d[l - 1];
      e[i - 1] = g;
      const double rh = 1.0 / h;
      double f2 = 0.0;
      for (long j = 1; j <= l; ++j) {
        double p = 0.0;
        for (long k = 1; k <= l; ++k) p = p + A(j, k) * d[k - 1];
        p = p * rh;
        e[j - 1] = p;
        f2 = f2 + d[j - 1] * p;
      }
      const double hh = f2 / (h + h);
      for (long j = 1; j <= l; ++j) {
        const double ff = d[j - 1];
        e[j - 1] = e[j - 1] - hh * d[j - 1];
        const double gg = e[j - 1];
        for (long k = 1; k <= j; ++k)
          a[pos(j, k)] = a[pos(j, k)] - e[k - 1] * ff - d[k - 1] * gg;
      }
    }
    d[i - 1] = a[iz + i - 1];
    a[iz + i - 1] = h;
  }
  e[1] = a[1];
  d[1] = a[2];
  d[0] = a[0];
  e[0] = 0.0;
}

int ref_eql(int n, Vec &d, Vec &e, Vec &z, int &ierr) {
  z[0] = 1.0;
  if (n < 2) return 0;
  for (int i = 1; i < n; ++i) e[i - 1] = e[i];
  e[n - 1] = 0.0;
  for (int k = 2; k <= n; ++k) z[(k - 1) * (n + 1)] = 1.0;
  for (int l = 1; l <= n; ++l) {
    int iter = 0;
    double p = d[l - 1];
    for (;;) {
      int m = l;
      for (; m < n; ++m) {
        const double t = std::fabs(d[m]) + std::fabs(d[m - 1]);
        if (std::fabs(e[m - 1]) + t == t) break;
      }
      if (m == l) break;
      if (iter == 30) {
        ierr = l;
        return 1;
      }
      ++iter;
      double g = (d[l] - p) * 0.5 / e[l - 1];
      double r = std::sqrt(g * g + 1.0);
      if (0.0 > g) r = -r;
      g = (d[m - 1] - p) + e[l - 1] / (g + r);
      double s = 1.0, c = 1.0, q = 0.0;
      for (int i = m - 1; i >= l; --i) {
        const double f = s * e[i - 1], b = e[i - 1] * c;
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
        for (int k = 0; k < n; ++k) {
          const double x = z[k + i * n], y = z[k + (i - 1) * n];
          z[k + i * n] = c * x + s * y;
          z[k + (i - 1) * n] = y * c - x * s;
        }
      }
      e[l - 1] = g;
      p = p - q;
      d[l - 1] = p;
      e[m - 1] = 0.0;
    }
  }
  return 0;
}

void ref_eor(int iorder, int n, Vec &d, Vec &z) {
  for (int i = 1; i < n; ++i) {
    int k = i;
    double p = d[i - 1];
    for (int j = i + 1; j <= n; ++j)
      if (iorder == 1 ? p > d[j - 1] : std::fabs(d[j - 1]) > std::fabs(p)) {
        k = j;
        p = d[j - 1];
      }
    if (k != i) {
      d[k - 1] = d[i - 1];
      d[i - 1] = p;
      for (int r = 0; r < n; ++r) std::swap(z[r + (i - 1) * n], z[r + (k - 1) * n]);
    }
  }
}

void ref_evp(int n, const Vec &a, Vec &z) {
  for (long i = 3; i <= n; ++i) {
    const long l = i - 1, iz = i * (i - 1) / 2;
    const double h = a[iz + i - 1];
    if (h == 0.0) continue;
    const double w = -1.0 / h;
    for (long c = 0; c < n; ++c) {
      double s = 0.0;
      for (long k = 1; k <= l; ++k) s = s + a[iz + k - 1] * z[(k - 1) + c * n];
      s = s * w;
      for (long k = 1; k <= l; ++k) z[(k - 1) + c * n] = z[(k - 1) + c * n] + a[iz + k - 1] * s;
    }
  }
}

// ---- matrices ----------------------------------------------------------------------------------
Vec random_packed(int n, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  Vec a(std::max(1, n * (n + 1) / 2));
  for (auto &v : a) v = u(rng);
  return a;
}

// Q diag(lam) Q^T packed by rows, Q from random reflectors (through LAPACK-free arithmetic).
Vec with_spectrum(const Vec &lam, unsigned seed) {
  const int n = static_cast<int>(lam.size());
  std::mt19937_64 rng(seed);
  std::normal_distribution<double> g;
  Vec q(n * n, 0.0);
  for (int i = 0; i < n; ++i) q[i * (n + 1)] = 1.0;
  for (int rep = 0; rep < 3; ++rep) {  // Q = product of three reflectors I - 2vv^T/|v|^2
    Vec v(n);
    double nn = 0;
    for (auto &x : v) {
      x = g(rng);
      nn += x * x;
    }
    for (int c = 0; c < n; ++c) {
      double s = 0;
      for (int k = 0; k < n; ++k) s += v[k] * q[k + c * n];
      for (int k = 0; k < n; ++k) q[k + c * n] -= 2 * v[k] * s / nn;
    }
  }
  Vec a(n * (n + 1) / 2);
  for (int i = 1; i <= n; ++i)
    for (int j = 1; j <= i; ++j) {
      double s = 0;
      for (int k = 0; k < n; ++k) s += q[(i - 1) + k * n] * lam[k] * q[(j - 1) + k * n];
      a[pos(i, j)] = s;
    }
  return a;
}

struct Result {
  int rc;
  int ierr;
  Vec ap, d, z, e;
};

Result run_qkm(int n, int iorder, Vec ap, int ierr0 = -77) {
  Result r{0, ierr0, std::move(ap), Vec(std::max(n, 1)), Vec(std::max(n * n, 1)),
           Vec(std::max(n, 1))};
  r.rc = eaxeig(&n, &iorder, r.ap.data(), r.d.data(), r.z.data(), r.e.data(), &r.ierr);
  return r;
}

Result run_ref(int n, int iorder, Vec ap, int ierr0 = -77) {
  Result r{0, ierr0, std::move(ap), Vec(std::max(n, 1)), Vec(std::max(n * n, 1)),
           Vec(std::max(n, 1))};
  ref_etr(n, r.ap, r.d, r.e);
  std::fill(r.z.begin(), r.z.begin() + n * n, 0.0);
  r.rc = ref_eql(n, r.d, r.e, r.z, r.ierr);
  if (r.rc == 1) return r;
  ref_eor(iorder, n, r.d, r.z);
  ref_evp(n, r.ap, r.z);
  return r;
}

void expect_bits(const Vec &got, const Vec &want, const char *what) {
  ASSERT_EQ(got.size(), want.size()) << what;
  for (size_t i = 0; i < got.size(); ++i)
    ASSERT_EQ(bits(got[i]), bits(want[i])) << what << "[" << i << "] " << got[i] << " vs "
                                           << want[i];
}

void expect_same(const Result &got, const Result &want) {
  EXPECT_EQ(got.rc, want.rc);
  EXPECT_EQ(got.ierr, want.ierr);
  expect_bits(got.ap, want.ap, "ap");
  expect_bits(got.d, want.d, "d");
  expect_bits(got.z, want.z, "z");
  expect_bits(got.e, want.e, "e");
}

// max |A z_j - d_j z_j| / |A| and max |Z^T Z - I|.
void check_decomposition(int n, const Vec &a, const Result &r, double tol) {
  double anorm = 0;
  for (double v : a) anorm = std::max(anorm, std::fabs(v));
  double res = 0, orth = 0;
  auto A = [&](int i, int j) { return j <= i ? a[pos(i, j)] : a[pos(j, i)]; };
  for (int c = 0; c < n; ++c) {
    for (int i = 1; i <= n; ++i) {
      double s = 0;
      for (int k = 1; k <= n; ++k) s += A(i, k) * r.z[(k - 1) + c * n];
      res = std::max(res, std::fabs(s - r.d[c] * r.z[(i - 1) + c * n]));
    }
    for (int c2 = 0; c2 < n; ++c2) {
      double s = 0;
      for (int k = 0; k < n; ++k) s += r.z[k + c * n] * r.z[k + c2 * n];
      orth = std::max(orth, std::fabs(s - (c == c2 ? 1.0 : 0.0)));
    }
  }
  EXPECT_LE(res, tol * n * std::max(anorm, 1e-300)) << "residual, n=" << n;
  EXPECT_LE(orth, tol * n) << "orthogonality, n=" << n;
}

}  // namespace

// Sizes cover the 8-lane blocks, their remainders, row blocks of 32, column blocks of 32, and
// sweeps longer than the rotation buffer (150).
TEST(Eigen, EveryPassMatchesItsScalarStatementBitForBit) {
  for (int level : qkm_test::simd_levels()) {
    SimdLevel lv(level);
    for (int n : {1, 2, 3, 4, 7, 8, 9, 16, 17, 31, 33, 64, 70, 150}) {
      for (int iorder : {1, 0}) {
        const Vec a = random_packed(n, 1000 + n);
        SCOPED_TRACE(testing::Message() << "level " << level << " n " << n << " iorder "
                                        << iorder);
        expect_same(run_qkm(n, iorder, a), run_ref(n, iorder, a));
      }
    }
  }
}

TEST(Eigen, PassesCalledOneByOneMatchTheirStatements) {
  const int n = 41;
  for (int level : qkm_test::simd_levels()) {
    SimdLevel lv(level);
    Vec a = random_packed(n, 7), ra = a;
    Vec d(n), e(n), rd(n), re(n);
    eaxetr(&n, a.data(), d.data(), e.data());
    ref_etr(n, ra, rd, re);
    expect_bits(a, ra, "ap");
    expect_bits(d, rd, "d");
    expect_bits(e, re, "e");
    // The tridiagonal form: e(1) = 0, every h (diagonal position of rows 3..n) is kept.
    EXPECT_EQ(e[0], 0.0);
    // eaxeql writes only the diagonal of z before rotating: off-diagonal zeros are the caller's.
    Vec z(n * n, 0.0), rz(n * n, 0.0);
    int ierr = 5, rierr = 5;
    EXPECT_EQ(eaxeql(&n, d.data(), e.data(), z.data(), &ierr), 0);
    EXPECT_EQ(ref_eql(n, rd, re, rz, rierr), 0);
    EXPECT_EQ(ierr, 5);
    expect_bits(z, rz, "z after QL");
    expect_bits(d, rd, "d after QL");
    Vec zz = z;
    eaxevp(&n, a.data(), zz.data());
    ref_evp(n, a, rz);
    expect_bits(zz, rz, "z after back-transformation");
  }
}

TEST(Eigen, AgreesWithReferenceLapack) {
  for (int n : {1, 2, 3, 10, 30, 61}) {
    Vec a = random_packed(n, 300 + n);
    Result r = run_qkm(n, 1, a);
    ASSERT_EQ(r.rc, 0);
    Vec ap = a, w(n), zl(n * n), work(3 * n);
    int info = 0;
    dspev_("V", "U", &n, ap.data(), w.data(), zl.data(), &n, work.data(), &info, 1, 1);
    ASSERT_EQ(info, 0);
    for (int j = 0; j < n; ++j) {
      EXPECT_NEAR(r.d[j], w[j], 1e-13 * n) << "n=" << n << " j=" << j;
      double dot = 0;
      for (int k = 0; k < n; ++k) dot += r.z[k + j * n] * zl[k + j * n];
      EXPECT_NEAR(std::fabs(dot), 1.0, 1e-10) << "vector " << j << " n=" << n;
    }
  }
}

TEST(Eigen, ResidualAndOrthogonalityOnMatrixKinds) {
  const int n = 40;
  std::vector<std::pair<const char *, Vec>> cases;
  cases.push_back({"random", random_packed(n, 11)});
  Vec lam(n);
  for (int i = 0; i < n; ++i) lam[i] = 1.0 + (i % 3) * 1e-12;  // three tight clusters
  cases.push_back({"clustered", with_spectrum(lam, 12)});
  for (int i = 0; i < n; ++i) lam[i] = std::pow(10.0, -i * 0.3);  // graded over 12 decades
  cases.push_back({"graded", with_spectrum(lam, 13)});
  Vec graded_entries(n * (n + 1) / 2);
  for (int i = 1; i <= n; ++i)
    for (int j = 1; j <= i; ++j) graded_entries[pos(i, j)] = std::pow(4.0, -(i + j) * 0.5);
  cases.push_back({"graded entries", graded_entries});
  for (auto &[name, a] : cases) {
    SCOPED_TRACE(name);
    for (int iorder : {1, 3}) {
      Result r = run_qkm(n, iorder, a);
      ASSERT_EQ(r.rc, 0);
      check_decomposition(n, a, r, 1e-14);
      for (int j = 1; j < n; ++j) {
        if (iorder == 1)
          EXPECT_LE(r.d[j - 1], r.d[j]);
        else
          EXPECT_GE(std::fabs(r.d[j - 1]), std::fabs(r.d[j]));
      }
    }
  }
}

TEST(Eigen, DiagonalAndZeroMatricesSkipEveryReflector) {
  const int n = 6;
  Vec a(n * (n + 1) / 2, 0.0);
  const double diag[n] = {3, -1, 4, 1, -5, 9};
  for (int i = 1; i <= n; ++i) a[pos(i, i)] = diag[i - 1];
  Vec ap = a;
  Vec d(n), e(n);
  eaxetr(&n, ap.data(), d.data(), e.data());
  for (int i = 3; i <= n; ++i) EXPECT_EQ(bits(ap[pos(i, i)]), bits(0.0)) << i;
  Result r = run_qkm(n, 1, a);
  ASSERT_EQ(r.rc, 0);
  EXPECT_EQ(r.d, (Vec{-5, -1, 1, 3, 4, 9}));
  // z is the permutation that sorts the diagonal.
  const int col_of[n] = {5, 2, 4, 1, 3, 6};
  for (int c = 0; c < n; ++c)
    for (int k = 0; k < n; ++k) EXPECT_EQ(r.z[k + c * n], k + 1 == col_of[c] ? 1.0 : 0.0);
  // The zero matrix: all eigenvalues 0, z the identity.
  Result zr = run_qkm(n, 1, Vec(n * (n + 1) / 2, 0.0));
  ASSERT_EQ(zr.rc, 0);
  for (int c = 0; c < n; ++c) {
    EXPECT_EQ(zr.d[c], 0.0);
    for (int k = 0; k < n; ++k) EXPECT_EQ(zr.z[k + c * n], k == c ? 1.0 : 0.0);
  }
}

TEST(Eigen, SmallOrdersAndUntouchedOutputs) {
  // n = 1: the value and a unit vector; ierr untouched on success.
  Result r1 = run_qkm(1, 1, Vec{2.5}, 1234);
  EXPECT_EQ(r1.rc, 0);
  EXPECT_EQ(r1.ierr, 1234);
  EXPECT_EQ(r1.d[0], 2.5);
  EXPECT_EQ(r1.z[0], 1.0);
  // n = 2: no reflector; e(2) of the reduction is a(2,1) with its sign.
  int n = 2;
  Vec a{1.0, -2.0, 3.0}, d(2), e(2);
  eaxetr(&n, a.data(), d.data(), e.data());
  EXPECT_EQ(e, (Vec{0.0, -2.0}));
  EXPECT_EQ(d, (Vec{1.0, 3.0}));
  Vec z{sentinel(), 7.0, 8.0, sentinel()};
  const Vec z0 = z;
  eaxevp(&n, a.data(), z.data());  // nothing below order 3
  expect_bits(z, z0, "z");
  Result r2 = run_qkm(2, 1, Vec{1.0, -2.0, 3.0}, 99);
  EXPECT_EQ(r2.ierr, 99);
  EXPECT_NEAR(r2.d[0], 2.0 - std::sqrt(5.0), 1e-15);
  EXPECT_NEAR(r2.d[1], 2.0 + std::sqrt(5.0), 1e-15);
  // QL on order 2: the subdiagonal moves down; a zero one converges at once.
  Vec dd{1.0, 2.0}, ee{9.0, 0.0}, zz(4, 0.0);
  int ierr = -1;
  EXPECT_EQ(eaxeql(&n, dd.data(), ee.data(), zz.data(), &ierr), 0);
  EXPECT_EQ(ee, (Vec{0.0, 0.0}));
  EXPECT_EQ(dd, (Vec{1.0, 2.0}));
  EXPECT_EQ(zz, (Vec{1, 0, 0, 1}));
  EXPECT_EQ(ierr, -1);
}

TEST(Eigen, SplitTridiagonalConvergesBlockByBlock) {
  // A zero subdiagonal between rows 3 and 4 splits the matrix: the blocks do not mix.
  const int n = 6;
  Vec d{2, 1, 3, -1, 4, 0.5}, e{0, 1, 0.5, 0.0, 2, 0.25};
  Vec z(n * n, 0.0);
  int ierr = 0;
  Vec rd = d, re = e, rz = z;
  int rierr = 0;
  ASSERT_EQ(eaxeql(&n, d.data(), e.data(), z.data(), &ierr), 0);
  ref_eql(n, rd, re, rz, rierr);
  expect_bits(z, rz, "z");
  for (int c = 0; c < n; ++c)
    for (int k = 0; k < n; ++k)
      if ((c < 3) != (k < 3)) EXPECT_EQ(z[k + c * n], 0.0) << k << "," << c;
}

TEST(Eigen, QlFailureReportsTheIndexAndStopsTheDriver) {
  // A NaN on the diagonal never lets the search stop: the 31st sweep of l = 1 is refused.
  for (int level : qkm_test::simd_levels()) {
    SimdLevel lv(level);
    const int n = 5;
    Vec a = random_packed(n, 5);
    a[pos(4, 4)] = kNaN;
    Result got = run_qkm(n, 1, a, 0), want = run_ref(n, 1, a, 0);
    EXPECT_EQ(got.rc, 1);
    EXPECT_EQ(got.ierr, 1);
    expect_same(got, want);  // unordered d, z not back-transformed
  }
  // The pass by itself, with converged values before the failing one.
  const int n = 4;
  Vec d{1.0, 5.0, kNaN, 2.0}, e{0.0, 0.0, 1.0, 1.0}, z(n * n, 0.0);
  int ierr = 0;
  EXPECT_EQ(eaxeql(&n, d.data(), e.data(), z.data(), &ierr), 1);
  EXPECT_EQ(ierr, 2);
  EXPECT_EQ(d[0], 1.0);
}

TEST(Eigen, OrderingRules) {
  int n = 3;
  for (int iorder : {0, 2, -5}) {
    Vec d{1, -3, 2}, z{1, 0, 0, 0, 1, 0, 0, 0, 1};
    eaxeor(&iorder, &n, d.data(), z.data());
    EXPECT_EQ(d, (Vec{-3, 2, 1})) << iorder;
    EXPECT_EQ(z, (Vec{0, 1, 0, 0, 0, 1, 1, 0, 0})) << iorder;
  }
  // Equal keys keep their places: with ascending order and with equal magnitudes.
  n = 4;
  int asc = 1, desc = 0;
  Vec d{2, 1, 2, 1}, z{10, 11, 12, 13, 20, 21, 22, 23, 30, 31, 32, 33, 40, 41, 42, 43};
  eaxeor(&asc, &n, d.data(), z.data());
  EXPECT_EQ(d, (Vec{1, 1, 2, 2}));
  EXPECT_EQ(z, (Vec{20, 21, 22, 23, 40, 41, 42, 43, 30, 31, 32, 33, 10, 11, 12, 13}));
  Vec d2{-2, 2, 1, -2}, z2{1, 2, 3, 4};
  n = 1;  // order 1 changes nothing
  eaxeor(&desc, &n, d2.data(), z2.data());
  EXPECT_EQ(d2, (Vec{-2, 2, 1, -2}));
  n = 4;
  Vec zz(16);
  for (int i = 0; i < 16; ++i) zz[i] = i;
  eaxeor(&desc, &n, d2.data(), zz.data());
  EXPECT_EQ(d2, (Vec{-2, 2, -2, 1}));
  EXPECT_EQ(zz[8], 12.0);  // column 4 moved to position 3, column 3 to 4
  EXPECT_EQ(zz[12], 8.0);
}
