// In-place inversion: residuals A·A⁻¹ in each mode, agreement with the reference LAPACK
// (dgetrf/dgetri), the pivoting and tie rules, the watched refusal and what it leaves.
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

Vec random_matrix(int n, int lda, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  Vec a(lda * n, sentinel());
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) a[i + j * lda] = u(rng);
  return a;
}

// Symmetric and diagonally dominant: no pivoting needed, all pivots well above 1.0e-8.
Vec spd_matrix(int n, int lda, unsigned seed) {
  Vec a = random_matrix(n, lda, seed);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < j; ++i) a[j + i * lda] = a[i + j * lda];
  for (int i = 0; i < n; ++i) a[i + i * lda] = n + 1.0;
  return a;
}

double residual(int n, const Vec &a, int lda, const Vec &inv) {
  double worst = 0;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      double s = 0;
      for (int k = 0; k < n; ++k) s += a[i + k * lda] * inv[k + j * lda];
      worst = std::max(worst, std::fabs(s - (i == j ? 1.0 : 0.0)));
    }
  return worst;
}

Vec lapack_inverse(int n, const Vec &a, int lda) {
  Vec b(n * n);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) b[i + j * n] = a[i + j * lda];
  std::vector<int> ipiv(n);
  int info = 0, lwork = 64 * n;
  Vec work(lwork);
  dgetrf_(&n, &n, b.data(), &n, ipiv.data(), &info);
  dgetri_(&n, b.data(), &n, ipiv.data(), work.data(), &lwork, &info);
  return b;
}

// Steps 3 to 6 of the general mode, as plain statements, for a matrix needing no exchange.
void sweep_without_exchange(int n, Vec &a) {
  for (int k = 0; k < n; ++k) {
    const double r = 1.0 / a[k + k * n];
    a[k + k * n] = 0.0;
    for (int i = 0; i < n; ++i) a[i + k * n] = a[i + k * n] * -r;
    for (int j = 0; j < n; ++j) {
      if (j == k) continue;
      const double t = a[k + j * n];
      a[k + j * n] = t * r;
      for (int i = 0; i < n; ++i) a[i + j * n] = a[i + j * n] + a[i + k * n] * t;
    }
    a[k + k * n] = r;
  }
}

void invert(int mode, int lda, int n, Vec &a, std::vector<int> &ipvt, int &info) {
  eaxinv(&mode, &lda, &n, ipvt.data(), &info, a.data());
}

}  // namespace

TEST(Inversion, GeneralModeInvertsAndRestoresTheRows) {
  for (int n : {1, 2, 5, 17, 40}) {
    const int lda = n + 3;
    const Vec a = random_matrix(n, lda, 40 + n);
    Vec inv = a;
    std::vector<int> ipvt(n, -9);
    int info = 12345;
    invert(1, lda, n, inv, ipvt, info);
    EXPECT_EQ(info, 12345) << "mode 1 never writes info";
    for (int i = 0; i < n; ++i) EXPECT_EQ(ipvt[i], i + 1);
    EXPECT_LE(residual(n, a, lda, inv), 1e-11) << n;
    const Vec ref = lapack_inverse(n, a, lda);
    for (int j = 0; j < n; ++j) {
      for (int i = 0; i < n; ++i)
        EXPECT_NEAR(inv[i + j * lda], ref[i + j * n], 1e-10 * (1 + std::fabs(ref[i + j * n])));
      for (int i = n; i < lda; ++i) EXPECT_EQ(bits(inv[i + j * lda]), bits(sentinel()));
    }
  }
}

TEST(Inversion, GeneralModeTieAndZeroRules) {
  // n = 1: the reciprocal.
  Vec one{4.0};
  std::vector<int> p1(1);
  int info = 0;
  invert(1, 1, 1, one, p1, info);
  EXPECT_EQ(one[0], 0.25);
  // A diagonal entry tying with a later one stays; the statement without an exchange gives
  // these bits, the one with an exchange others.
  Vec a{3.0, 0.1, -3.0, 0.7};
  std::vector<int> p(2);
  invert(1, 2, 2, a, p, info);
  Vec want{3.0, 0.1, -3.0, 0.7};
  sweep_without_exchange(2, want);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(bits(a[i]), bits(want[i])) << i;
  // A row that needs an exchange.
  Vec b{0.0, 1.0, 1.0, 0.0};
  invert(1, 2, 2, b, p, info);
  EXPECT_EQ(b, (Vec{0.0, 1.0, 1.0, 0.0}));
  EXPECT_EQ(p, (std::vector<int>{1, 2}));
  // A zero row: no exchange, the zero pivot yields infinities, no report.
  Vec z{0.0, 1.0, 0.0, 1.0};
  invert(1, 2, 2, z, p, info);
  EXPECT_TRUE(std::isinf(z[0]) || std::isnan(z[0]));
  EXPECT_EQ(p, (std::vector<int>{1, 2}));
}

TEST(Inversion, SymmetricModesReadOnlyTheUpperTriangle) {
  for (int mode : {2, 0, 3, 7}) {
    for (int n : {1, 3, 8, 25}) {
      const int lda = n + 1;
      const Vec a = spd_matrix(n, lda, 70 + n);
      Vec inv = a;
      for (int j = 0; j < n; ++j)
        for (int i = j + 1; i < n; ++i) inv[i + j * lda] = 1e300;  // rubbish below
      std::vector<int> ipvt(n, -9);
      int info = -5;
      invert(mode, lda, n, inv, ipvt, info);
      EXPECT_EQ(info, mode == 2 ? -5 : 0) << mode;
      for (int i = 0; i < n; ++i) EXPECT_EQ(ipvt[i], -9);
      EXPECT_LE(residual(n, a, lda, inv), 1e-12) << "mode " << mode << " n " << n;
      for (int j = 0; j < n; ++j)
        for (int i = 0; i < j; ++i)
          EXPECT_EQ(bits(inv[i + j * lda]), bits(inv[j + i * lda])) << "symmetric result";
    }
  }
}

TEST(Inversion, SymmetricModesOnIndefiniteMatrices) {
  // No pivoting, but an indefinite matrix with safe diagonal pivots still inverts.
  const int n = 3, lda = 3;
  const Vec a{4, 1, 2, 1, -3, 0.5, 2, 0.5, 5};
  for (int mode : {2, 9}) {
    Vec inv = a;
    std::vector<int> ipvt(n);
    int info = 7;
    invert(mode, lda, n, inv, ipvt, info);
    EXPECT_LE(residual(n, a, lda, inv), 1e-14) << mode;
  }
}

TEST(Inversion, WatchedModeRefusesSmallPivots) {
  std::vector<int> ipvt(3);
  // Exactly 1.0e-8 on the first pivot: refused before anything changes.
  Vec a{1.0e-8, sentinel(), 2.0, 3.0};
  const Vec a0 = a;
  int info = -1;
  invert(0, 2, 2, a, ipvt, info);
  EXPECT_EQ(info, 1);
  for (size_t i = 0; i < a.size(); ++i) EXPECT_EQ(bits(a[i]), bits(a0[i]));
  // A NaN pivot is refused too; mode 2 would go on.
  Vec nan_a{std::numeric_limits<double>::quiet_NaN()};
  info = -1;
  invert(3, 1, 1, nan_a, ipvt, info);
  EXPECT_EQ(info, 1);
  // Just above the limit passes.
  Vec ok{2.0e-8};
  invert(0, 1, 1, ok, ipvt, info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(ok[0], 1.0 / 2.0e-8);
  // A pivot that collapses after the first elimination: [[1,1],[1,1]] leaves 0 at step 2,
  // with step 1 applied and the lower triangle not filled.
  Vec s{1.0, sentinel(), 1.0, 1.0};
  invert(0, 2, 2, s, ipvt, info);
  EXPECT_EQ(info, 1);
  EXPECT_EQ(s[0], 1.0);   // a(1,1) = 1/pivot
  EXPECT_EQ(s[3], 0.0);   // a(2,2) = 1 - 1
  EXPECT_EQ(s[1], -1.0);  // a(2,1) carries the swept column
  EXPECT_EQ(s[2], -1.0);
  // Unwatched mode 2 on the same matrix: no report, infinities.
  Vec u{1.0, 0.0, 1.0, 1.0};
  info = 42;
  invert(2, 2, 2, u, ipvt, info);
  EXPECT_EQ(info, 42);
  EXPECT_FALSE(std::isfinite(u[3]));
}

TEST(Inversion, EmptyOrders) {
  std::vector<int> ipvt(1, -3);
  Vec a{sentinel()};
  for (int n : {0, -2}) {
    int info = 9;
    invert(1, 1, n, a, ipvt, info);
    EXPECT_EQ(info, 9);
    invert(2, 1, n, a, ipvt, info);
    EXPECT_EQ(info, 9);
    invert(5, 1, n, a, ipvt, info);
    EXPECT_EQ(info, 0);
  }
  EXPECT_EQ(bits(a[0]), bits(sentinel()));
  EXPECT_EQ(ipvt[0], -3);
}
