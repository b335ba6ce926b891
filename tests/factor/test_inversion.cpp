// In-place inversion: residuals A*inv(A) in each mode, the reference LAPACK inverse, the
// pivoting and tie rules, the watched refusal and what it leaves.
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
using Ints = std::vector<qkm_int>;

namespace {

// n x n in an lda x n array whose rows past n hold sentinels; symmetric: diagonally dominant.
Vec matrix(int n, int lda, unsigned seed, bool symmetric) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  Vec a(lda * n, sentinel());
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) a[i + j * lda] = symmetric && i > j ? a[j + i * lda] : u(rng);
  for (int i = 0; symmetric && i < n; ++i) a[i + i * lda] = n + 1.0;
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

void invert(qkm_int mode, qkm_int lda, qkm_int n, Vec &a, Ints &ipvt, qkm_int &info) {
  eaxinv(&mode, &lda, &n, ipvt.data(), &info, a.data());
}

}  // namespace

// Mode 1 against dgetrf/dgetri: ipvt back to the identity, info and the rows past n untouched.
TEST(Inversion, GeneralModeMatchesLapack) {
  for (int n : {1, 2, 5, 40}) {
    const int lda = n + 3;
    const Vec a = matrix(n, lda, 40 + n, false);
    Vec inv = a, ref(n * n), work(64 * n);
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i) ref[i + j * n] = a[i + j * lda];
    Ints ipvt(n, -9);
    std::vector<int> rp(n);
    int rinfo = 0, lwork = 64 * n;
    qkm_int info = 12345;
    invert(1, lda, n, inv, ipvt, info);
    dgetrf_(&n, &n, ref.data(), &n, rp.data(), &rinfo);
    dgetri_(&n, ref.data(), &n, rp.data(), work.data(), &lwork, &rinfo);
    EXPECT_EQ(info, 12345);
    for (int i = 0; i < n; ++i) EXPECT_EQ(ipvt[i], i + 1);
    EXPECT_LE(residual(n, a, lda, inv), 1e-11) << n;
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < lda; ++i)
        if (i < n)
          EXPECT_NEAR(inv[i + j * lda], ref[i + j * n], 1e-10 * (1 + std::fabs(ref[i + j * n])));
        else
          EXPECT_TRUE(qkm_test::is_sentinel(inv[i + j * lda]));
  }
}

// A diagonal entry tying in size with a later one keeps its place (the sweep without an
// exchange gives these bits); an exchange is undone on the rows; a zero row is not reported.
TEST(Inversion, GeneralModeTieAndZeroRules) {
  Ints p(2);
  qkm_int info = 0;
  Vec a{3.0, 0.1, -3.0, 0.7}, want = a;
  for (int k = 0; k < 2; ++k) {  // the sweep as plain statements
    const double r = 1.0 / want[k + k * 2];
    want[k + k * 2] = 0.0;
    for (int i = 0; i < 2; ++i) want[i + k * 2] = want[i + k * 2] * -r;
    const int j = 1 - k;
    const double t = want[k + j * 2];
    want[k + j * 2] = t * r;
    for (int i = 0; i < 2; ++i) want[i + j * 2] = want[i + j * 2] + want[i + k * 2] * t;
    want[k + k * 2] = r;
  }
  invert(1, 2, 2, a, p, info);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(bits(a[i]), bits(want[i])) << i;
  Vec b{0.0, 1.0, 1.0, 0.0}, z{0.0, 1.0, 0.0, 1.0};
  invert(1, 2, 2, b, p, info);
  EXPECT_EQ(b, (Vec{0.0, 1.0, 1.0, 0.0}));
  EXPECT_EQ(p, (Ints{1, 2}));
  invert(1, 2, 2, z, p, info);
  EXPECT_FALSE(std::isfinite(z[0]));
  EXPECT_EQ(p, (Ints{1, 2}));
}

// Modes 2 (unwatched: info untouched), 0, 3, 7, 9 (watched) read only the upper triangle,
// leave ipvt alone and return a symmetric inverse, also of an indefinite matrix.
TEST(Inversion, SymmetricModesReadOnlyTheUpperTriangle) {
  for (int mode : {2, 0, 3, 9}) {
    for (int n : {1, 3, 8, 25}) {
      const int lda = n + 1;
      Vec a = matrix(n, lda, 70 + n, true);
      if (n == 3) a = {4, 1, 2, sentinel(), 1, -3, 0.5, sentinel(), 2, 0.5, 5, sentinel()};
      Vec inv = a;
      for (int j = 0; j < n; ++j)
        for (int i = j + 1; i < n; ++i) inv[i + j * lda] = 1e300;
      Ints ipvt(n, -9);
      qkm_int info = -5;
      invert(mode, lda, n, inv, ipvt, info);
      EXPECT_EQ(info, mode == 2 ? -5 : 0) << mode;
      EXPECT_EQ(ipvt, Ints(n, -9));
      EXPECT_LE(residual(n, a, lda, inv), n == 3 ? 1e-14 : 1e-12) << "mode " << mode << " n " << n;
      for (int j = 0; j < n; ++j)
        for (int i = 0; i < j; ++i) EXPECT_EQ(bits(inv[i + j * lda]), bits(inv[j + i * lda]));
    }
  }
}

TEST(Inversion, WatchedModeRefusesSmallPivots) {
  Ints ipvt(2);
  qkm_int info = -1;
  // Exactly 1.0e-8 on the first pivot: refused before anything changes; NaN refused too.
  Vec a{1.0e-8, sentinel(), 2.0, 3.0}, nan{std::numeric_limits<double>::quiet_NaN()}, ok{2e-8};
  invert(0, 2, 2, a, ipvt, info);
  EXPECT_EQ(info, 1);
  EXPECT_TRUE(qkm_test::is_sentinel(a[1]) && a[0] == 1.0e-8 && a[2] == 2.0 && a[3] == 3.0);
  invert(3, 1, 1, nan, ipvt, info = -1);
  EXPECT_EQ(info, 1);
  invert(0, 1, 1, ok, ipvt, info);
  EXPECT_EQ(std::tuple(info, ok[0]), std::tuple(0, 1.0 / 2.0e-8));
  // [[1,1],[1,1]] collapses at step 2: step 1 applied, the lower triangle not filled; mode 2
  // goes on to infinities without a report.
  Vec s{1.0, sentinel(), 1.0, 1.0}, u{1.0, 0.0, 1.0, 1.0};
  invert(0, 2, 2, s, ipvt, info);
  EXPECT_EQ(info, 1);
  EXPECT_EQ(s, (Vec{1.0, -1.0, -1.0, 0.0}));
  invert(2, 2, 2, u, ipvt, info = 42);
  EXPECT_EQ(info, 42);
  EXPECT_FALSE(std::isfinite(u[3]));
  // Orders below 1: only the watched modes write info (0); nothing else changes.
  for (int n : {0, -2})
    for (int mode : {1, 2, 5}) {
      Vec e{sentinel()};
      Ints p{-3};
      invert(mode, 1, n, e, p, info = 9);
      EXPECT_EQ(std::tuple(info, p[0], qkm_test::is_sentinel(e[0])),
                std::tuple(mode == 5 ? 0 : 9, -3, true));
    }
}
