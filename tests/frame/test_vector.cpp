// Dense vector kernels: the departures from the public BLAS checked exactly, the agreements
// checked against the reference BLAS, sentinels in every element that must stay untouched.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "kernels.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;
using qkm_test::same_bits;
using qkm_test::sentinel;
using Vec = std::vector<double>;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();
const double S = sentinel();
const qkm_int kOne = 1;
const double kSNaN = std::numeric_limits<double>::signaling_NaN();  // arithmetic quietens it

Vec random_vector(size_t n, unsigned seed, double lo = -10, double hi = 10) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> d(lo, hi);
  Vec v(n);
  for (auto &e : v) e = d(rng);
  return v;
}

}  // namespace

TEST(ZeroAndCopy, WalksQuickReturnsAndUnitStrideMoves) {
  const struct {
    qkm_int n, inc;
    Vec want;
  } cases[] = {{3, -2, {0, 7, 0, 7, 0, 7}},
               {3, 0, {0, 7, 7, 7, 7, 7}},
               {-1, 2, Vec(6, 7)},
               {5, 1, {0, 0, 0, 0, 0, 7}}};
  for (const auto &c : cases) {
    Vec x(6, 7.0);
    std::vector<qkm_int> ix(6, 7);
    e_dzero(&c.n, x.data(), &c.inc);
    e_izero(&c.n, ix.data(), &c.inc);
    EXPECT_EQ(x, c.want) << c.n << " " << c.inc;
    EXPECT_EQ(Vec(ix.begin(), ix.end()), c.want) << c.n << " " << c.inc;
  }
  const qkm_int zero = 0, five = 5;  // n = 0 reads neither the strides nor the vectors
  e_dzero(&zero, nullptr, nullptr);
  e_izero(&zero, nullptr, nullptr);
  e_icopy(&zero, nullptr, nullptr, nullptr, nullptr);
  e_dcopy(&zero, nullptr, nullptr, nullptr, nullptr);
  Vec v{1, 2, 3, 4, 5, 6};  // unit strides move the block: overlap is safe
  std::vector<qkm_int> iv{1, 2, 3, 4, 5, 6};
  e_dcopy(&five, v.data(), &kOne, v.data() + 1, &kOne);
  e_icopy(&five, iv.data() + 1, &kOne, iv.data(), &kOne);
  EXPECT_EQ(v, (Vec{1, 1, 2, 3, 4, 5}));
  EXPECT_EQ(iv, (std::vector<qkm_int>{2, 3, 4, 5, 6, 6}));
}

// Negative strides walk from the mirrored start, as in the reference; stride 0 repeats.
TEST(Strided, CopySwapAndAxpyAgreeWithTheReferenceBitForBit) {
  const int n = 6;
  const double alpha = 1.25;
  for (int incx : {-3, -1, 0, 1, 2})
    for (int incy : {-2, -1, 0, 1, 3}) {
      Vec x = random_vector(20, 3), y = random_vector(20, 4), rx = x, ry = y;
      e_dcopy(&n, x.data(), &incx, y.data(), &incy);
      dcopy_(&n, rx.data(), &incx, ry.data(), &incy);
      EXPECT_TRUE(same_bits(y, ry)) << "copy " << incx << " " << incy;
      std::reverse(x.begin(), x.end()), std::reverse(rx.begin(), rx.end());
      e_dswap(&n, x.data(), &incx, y.data(), &incy);
      dswap_(&n, rx.data(), &incx, ry.data(), &incy);
      EXPECT_TRUE(same_bits(x, rx) && same_bits(y, ry)) << "swap " << incx << " " << incy;
      e_daxpy(&n, &alpha, x.data(), &incx, y.data(), &incy);
      daxpy_(&n, &alpha, rx.data(), &incx, ry.data(), &incy);
      EXPECT_TRUE(same_bits(y, ry)) << "axpy " << incx << " " << incy;
    }
  const qkm_int three = 3;  // alpha = 0 returns before reading x or its stride
  const double zero = 0.0;
  Vec y{1, 2, 3};
  e_daxpy(&three, &zero, nullptr, nullptr, y.data(), nullptr);
  EXPECT_EQ(y, (Vec{1, 2, 3}));
}

TEST(Swap, MovesBitsInGroupsOfEveryLength) {
  for (int n = 1; n <= 8; ++n) {
    Vec x(10, S), y(10, S);
    for (int i = 0; i < n; ++i) x[i] = i + 1, y[i] = -(i + 1);
    x[0] = -0.0;
    y[n - 1] = kSNaN;
    Vec wx = x, wy = y;
    std::swap_ranges(wx.begin(), wx.begin() + n, wy.begin());
    e_dswap(&n, x.data(), &kOne, y.data(), &kOne);
    EXPECT_TRUE(same_bits(x, wx) && same_bits(y, wy)) << n;
  }
}

TEST(Scal, AbsoluteStepNoTestOnTheFactorAndRscl) {
  auto scal = [](qkm_int n, double a, Vec x, qkm_int inc) {
    e_dscal(&n, &a, x.data(), &inc);
    return x;
  };
  EXPECT_TRUE(same_bits(scal(3, 2.0, {1, 2, 3, 4}, -1), {2, 4, 6, 4}));  // from x(1) by |inc|
  EXPECT_TRUE(same_bits(scal(2, 2.0, {3, 5}, 0), {12, 5}));
  EXPECT_TRUE(same_bits(scal(3, -0.5, {1, S, S, 2, S, S, 3, S}, -3), {-0.5, S, S, -1, S, S, -1.5, S}));
  const Vec z = scal(3, 0.0, {kNaN, kInf, 7}, 1);
  EXPECT_TRUE(std::isnan(z[0]) && std::isnan(z[1]) && z[2] == 0.0);
  // drscl: a = 0 and a = 1 return at once; otherwise one reciprocal, then products.
  auto rscl = [](qkm_int n, double a, Vec x) {
    drscl(&n, &a, x.data(), &kOne);
    return x;
  };
  EXPECT_TRUE(same_bits(rscl(3, 0.0, {1, 2, kSNaN}), {1, 2, kSNaN}));
  EXPECT_TRUE(same_bits(rscl(3, 1.0, {1, 2, kSNaN}), {1, 2, kSNaN}));
  EXPECT_TRUE(same_bits(rscl(2, 3.0, {1, 2, 3}), {1.0 / 3.0, 2.0 * (1.0 / 3.0), 3}));
  for (double v : rscl(2, kNaN, {1, 2})) EXPECT_TRUE(std::isnan(v));
  const qkm_int zero = 0;
  drscl(&zero, nullptr, nullptr, nullptr);
}

TEST(UnitStride, AxpyAndScalAreTheScalarStatementOnEveryPath) {
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel use(level);
    for (int n : {1, 7, 8, 31, 32, 33, 1001}) {
      const Vec x = random_vector(n, 11);
      Vec y = random_vector(n + 1, 12);
      y[n] = S;
      Vec want = y;
      const double a = -0.3, s = 1.0 / 3.0;
      for (int i = 0; i < n; ++i) want[i] = want[i] + x[i] * a;
      e_daxpy(&n, &a, x.data(), &kOne, y.data(), &kOne);
      EXPECT_TRUE(same_bits(y, want)) << "axpy level " << level << " n " << n;
      for (int i = 0; i < n; ++i) want[i] = want[i] * s;
      e_dscal(&n, &s, y.data(), &kOne);
      EXPECT_TRUE(same_bits(y, want)) << "scal level " << level << " n " << n;
    }
    // y one element past x: each step sees the previous step's result.
    Vec v = random_vector(50, 13), want = v;
    const qkm_int n = 49;
    const double a = 0.5;
    for (int i = 0; i < n; ++i) want[i + 1] = want[i + 1] + want[i] * a;
    e_daxpy(&n, &a, v.data(), &kOne, v.data() + 1, &kOne);
    EXPECT_TRUE(same_bits(v, want)) << "overlapping axpy level " << level;
  }
}

TEST(Asum, FixedSplitOnEveryPathAndAbsoluteStep) {
  // Unit stride: 32 interleaved partial sums, combined block-wise then as a tree.
  auto statement = [](const Vec &x) {
    double p[32] = {}, l[8];
    for (size_t i = 0; i < x.size(); ++i) p[i % 32] += std::fabs(x[i]);
    for (int j = 0; j < 8; ++j) l[j] = (p[j] + p[j + 8]) + (p[j + 16] + p[j + 24]);
    return ((l[0] + l[1]) + (l[2] + l[3])) + ((l[4] + l[5]) + (l[6] + l[7]));
  };
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel use(level);
    for (int n : {1, 3, 31, 32, 33, 95, 4099}) {
      const Vec x = random_vector(n, 31, -1e3, 1e3);
      for (qkm_int inc : {1, -1})  // a negative stride counts as its magnitude
        EXPECT_EQ(bits(e_dasum(&n, x.data(), &inc)), bits(statement(x))) << level << " " << n;
    }
  }
  double x[7] = {1, -100, 2, -100, -3, 100, 4};
  qkm_int n = 4, inc = -2, zero = 0;
  EXPECT_EQ(e_dasum(&n, x, &inc), 10.0);
  EXPECT_EQ(e_dasum(&n, x, &zero), 4.0);
  EXPECT_EQ(e_dasum(&zero, nullptr, nullptr), 0.0);
  const Vec big = random_vector(777, 32);
  n = 777;
  EXPECT_NEAR(e_dasum(&n, big.data(), &kOne), dasum_(&n, big.data(), &kOne), 1e-9);
}

TEST(Nrm2, FourPhaseMethodAtItsEdges) {
  auto nrm2 = [](qkm_int n, Vec x, qkm_int inc = 1) { return e_dnrm2(&n, x.data(), &inc); };
  const qkm_int zero = 0;
  EXPECT_EQ(e_dnrm2(&zero, nullptr, nullptr), 0.0);
  EXPECT_EQ(nrm2(3, {0, 0, 0}), 0.0);
  EXPECT_EQ(nrm2(2, {3, 4}), 5.0);
  EXPECT_NEAR(nrm2(2, {1e-300, 1e-300}) / 1e-300, std::sqrt(2.0), 1e-15);
  EXPECT_NEAR(nrm2(2, {1e19, 1e19}) / 1e19, std::sqrt(2.0), 1e-15);
  EXPECT_EQ(nrm2(2, {1e-20, 1.0}),
            std::sqrt((1e-20 / 1e-20) * (1e-20 / 1e-20) * (1e-20 * 1e-20) + 1.0));
  EXPECT_TRUE(std::isnan(nrm2(3, {1, kInf, 2})));
  EXPECT_TRUE(std::isnan(nrm2(3, {1, kNaN, 2})));
  EXPECT_EQ(nrm2(3, {3, 99, 4, 99, 12}, -2), 13.0);  // from x(1) by |inc|
  Vec x = random_vector(500, 41), graded = {0, 0, 3e-12, -4e-12, 5e19, 1};
  qkm_int n = 500, six = 6;
  EXPECT_NEAR(nrm2(n, x), dnrm2_(&n, x.data(), &kOne), 1e-12);
  EXPECT_NEAR(nrm2(6, graded) / dnrm2_(&six, graded.data(), &kOne), 1.0, 1e-15);
}

TEST(Nrm2, HitestUsesNRoundedToSinglePrecision) {
  // n = 2^24 + 1 rounds to 2^24 in single precision. An element between cuthi / (2^24 + 1)
  // and cuthi / 2^24 stays in the middle range only with that rounding.
  const qkm_int n = (1 << 24) + 1, zero = 0;
  const double v = 1.304e19 / 16777216.0 * (1.0 - 3e-8);
  ASSERT_GE(v, 1.304e19 / 16777217.0);
  double sum = 0.0;
  for (int k = 0; k < n; ++k) sum = sum + v * v;
  ASSERT_NE(bits(std::sqrt(sum)), bits(std::sqrt(static_cast<double>(n)) * v));
  EXPECT_EQ(bits(e_dnrm2(&n, &v, &zero)), bits(std::sqrt(sum)));
}

TEST(Amax, NaNCountsOnlyLastAndTheFirstLargestWins) {
  auto amax = [](qkm_int n, Vec x, qkm_int inc = 1) { return damax(&n, x.data(), &inc); };
  auto iamax = [](qkm_int n, Vec x, qkm_int inc = 1) { return e_idamax(&n, x.data(), &inc); };
  EXPECT_TRUE(std::isnan(amax(2, {1, kNaN})));
  EXPECT_EQ(amax(2, {kNaN, 1}), 1.0);
  EXPECT_EQ(amax(3, {1, 50, -7, 50, 2}, -2), 7.0);
  const qkm_int one = 1, zero = 0;
  const double d = -2.5;  // n = 1 reads no stride, n = 0 nothing
  EXPECT_EQ(damax(&one, &d, nullptr), 2.5);
  EXPECT_EQ(damax(&zero, nullptr, nullptr), 0.0);
  EXPECT_EQ(e_idamax(&one, nullptr, nullptr), 1);
  EXPECT_EQ(e_idamax(&zero, nullptr, nullptr), 0);
  EXPECT_EQ(iamax(3, {-3, 3, 2}), 1);
  EXPECT_EQ(iamax(4, {1, 9, 2, 9, 3, 9, 4}, 2), 4);
  EXPECT_EQ(iamax(4, {1, -5, 5, 2}, -1), 2);  // the position in the walk from x(1)
  EXPECT_EQ(iamax(4, {1, -5, 5, 2}, 0), 1);
  EXPECT_EQ(iamax(3, {1, 2, kNaN}), 3);
  EXPECT_EQ(iamax(3, {1, kNaN, 0.5}), 3);
  const Vec x = random_vector(300, 51);
  const qkm_int n = 300;
  EXPECT_EQ(e_idamax(&n, x.data(), &kOne), idamax_(&n, x.data(), &kOne));
}

TEST(Rotg, FormOfTheFirstBlas) {
  const double cases[][6] = {
      {0, 0, 0, 0, 1, 0},
      {0, 2, 2, 1, 0, 1},
      {3, 4, 5, 1 / 0.6, 0.6, 0.8},
      {4, 3, 5, 0.6, 0.8, 0.6},
      {-4, 3, -5, -0.6, 0.8, -0.6},
      {-3, 4, 5, -1 / 0.6, -0.6, 0.8},
      {2, -2, -std::sqrt(8.0), -std::sqrt(2.0), -std::sqrt(0.5), std::sqrt(0.5)}};
  for (const auto &k : cases) {  // {a, b} -> {r, z, c, s}
    double a = k[0], b = k[1], c = 9, s = 9;
    e_drotg(&a, &b, &c, &s);
    const double got[4] = {a, b, c, s};
    for (int i = 0; i < 4; ++i)
      EXPECT_NEAR(got[i], k[2 + i], i == 1 ? 1e-14 : 1e-15) << k[0] << k[1];
  }
  double a = 5.0, b = 1.0, c = 0, s = 0;  // the exact arithmetic of the first branch
  e_drotg(&a, &b, &c, &s);
  const double v = 1.0 / 10.0, r = std::sqrt(v * v + 0.25) * 10.0, cc = 5.0 / r;
  EXPECT_TRUE(same_bits({a, b, c, s}, {r, v * (cc + cc), cc, v * (cc + cc)}));
  a = kNaN;  // a NaN makes the test false: the first branch
  e_drotg(&a, &b, &c, &s);
  EXPECT_TRUE(std::isnan(a) && std::isnan(c));
}
