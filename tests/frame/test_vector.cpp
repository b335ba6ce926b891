// Dense vector kernels: the departures from the public BLAS checked exactly, the agreements
// checked against the reference BLAS, sentinels in every element that must stay untouched.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "kernels.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;
using qkm_test::is_sentinel;
using qkm_test::sentinel;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

std::vector<double> random_vector(size_t n, unsigned seed, double lo = -10, double hi = 10) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> d(lo, hi);
  std::vector<double> v(n);
  for (auto &e : v) e = d(rng);
  return v;
}

// Positions (0-based) of a mirrored-start walk of n elements with stride inc.
std::vector<long> walk(int n, int inc) {
  std::vector<long> p;
  long start = inc < 0 ? static_cast<long>(1 - n) * inc : 0;
  for (int k = 0; k < n; ++k) p.push_back(start + static_cast<long>(k) * inc);
  return p;
}

}  // namespace

TEST(Zero, QuickReturnsAndWalks) {
  std::vector<double> x(6, 7.0);
  qkm_int n = 0;
  e_dzero(&n, x.data(), nullptr);  // n = 0 does not read the stride
  n = 3;
  qkm_int inc = -2;
  e_dzero(&n, x.data(), &inc);
  EXPECT_EQ(x, (std::vector<double>{0, 7, 0, 7, 0, 7}));
  x.assign(6, 7.0);
  inc = 0;
  e_dzero(&n, x.data(), &inc);
  EXPECT_EQ(x, (std::vector<double>{0, 7, 7, 7, 7, 7}));
  x.assign(6, 7.0);
  n = -1;
  inc = 2;
  e_dzero(&n, x.data(), &inc);
  EXPECT_EQ(x, std::vector<double>(6, 7.0));
  n = 5;
  inc = 1;
  e_dzero(&n, x.data(), &inc);
  EXPECT_EQ(x, (std::vector<double>{0, 0, 0, 0, 0, 7}));

  std::vector<qkm_int> ix(6, 7);
  n = 3;
  inc = -2;
  e_izero(&n, ix.data(), &inc);
  EXPECT_EQ(ix, (std::vector<qkm_int>{0, 7, 0, 7, 0, 7}));
  n = 4;
  inc = 1;
  e_izero(&n, ix.data() + 1, &inc);
  EXPECT_EQ(ix, (std::vector<qkm_int>{0, 0, 0, 0, 0, 7}));
  n = 0;
  e_izero(&n, ix.data(), nullptr);
}

TEST(Copy, UnitStrideIsAMoveAndStridedAgreesWithTheReference) {
  std::vector<double> v{1, 2, 3, 4, 5, 6};
  qkm_int n = 5, one = 1;
  e_dcopy(&n, v.data(), &one, v.data() + 1, &one);
  EXPECT_EQ(v, (std::vector<double>{1, 1, 2, 3, 4, 5}));

  double x[2] = {1, 2}, y[2] = {0, 0};
  qkm_int two = 2, minus = -1;
  e_dcopy(&two, x, &one, y, &minus);
  EXPECT_EQ(y[0], 2);
  EXPECT_EQ(y[1], 1);

  for (int incx : {-3, -1, 0, 1, 2}) {
    for (int incy : {-2, -1, 0, 1, 3}) {
      const int nn = 7;
      auto src = random_vector(40, 3);
      std::vector<double> mine(40, sentinel()), ref(40, sentinel());
      e_dcopy(&nn, src.data(), &incx, mine.data(), &incy);
      dcopy_(&nn, src.data(), &incx, ref.data(), &incy);
      for (int i = 0; i < 40; ++i) EXPECT_EQ(bits(mine[i]), bits(ref[i])) << incx << incy << i;
    }
  }

  std::vector<qkm_int> is{1, 2, 3, 4, 5, 6}, id(6, -1);
  qkm_int m3 = -2;
  n = 3;
  e_icopy(&n, is.data(), &one, id.data(), &m3);
  EXPECT_EQ(id, (std::vector<qkm_int>{3, -1, 2, -1, 1, -1}));
  e_icopy(&n, is.data(), &one, is.data() + 2, &one);
  EXPECT_EQ(is, (std::vector<qkm_int>{1, 2, 1, 2, 3, 6}));
  n = 0;
  e_icopy(&n, nullptr, nullptr, nullptr, nullptr);
  e_dcopy(&n, nullptr, nullptr, nullptr, nullptr);
}

TEST(Swap, MovesBitsInGroupsAndStrided) {
  for (int nn = 1; nn <= 8; ++nn) {
    std::vector<double> x(10, sentinel()), y(10, sentinel());
    for (int i = 0; i < nn; ++i) {
      x[i] = i + 1;
      y[i] = -(i + 1);
    }
    x[0] = -0.0;
    const uint64_t payload = 0x7ff4000000001234ULL;  // a signalling NaN keeps its bits too
    std::memcpy(&y[nn - 1], &payload, 8);
    const auto x0 = x, y0 = y;
    const qkm_int one = 1;
    e_dswap(&nn, x.data(), &one, y.data(), &one);
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(bits(x[i]), bits(i < nn ? y0[i] : x0[i])) << nn << " " << i;
      EXPECT_EQ(bits(y[i]), bits(i < nn ? x0[i] : y0[i])) << nn << " " << i;
    }
  }
  for (int incx : {-2, -1, 0, 1, 3}) {
    for (int incy : {-1, 0, 2}) {
      const int nn = 5;
      auto a = random_vector(30, 5), b = random_vector(30, 6);
      auto ra = a, rb = b;
      e_dswap(&nn, a.data(), &incx, b.data(), &incy);
      dswap_(&nn, ra.data(), &incx, rb.data(), &incy);
      for (int i = 0; i < 30; ++i) {
        EXPECT_EQ(bits(a[i]), bits(ra[i]));
        EXPECT_EQ(bits(b[i]), bits(rb[i]));
      }
    }
  }
}

TEST(Scal, AbsoluteStepAndNoTestOnTheFactor) {
  qkm_int n = 3, inc = -1;
  double a = 2.0;
  double x[4] = {1, 2, 3, 4};
  e_dscal(&n, &a, x, &inc);
  EXPECT_EQ(x[0], 2);
  EXPECT_EQ(x[1], 4);
  EXPECT_EQ(x[2], 6);
  EXPECT_EQ(x[3], 4);

  n = 2;
  inc = 0;
  double y[2] = {3, 5};
  e_dscal(&n, &a, y, &inc);
  EXPECT_EQ(y[0], 12);
  EXPECT_EQ(y[1], 5);

  a = 0.0;
  n = 3;
  inc = 1;
  double z[3] = {kNaN, kInf, 7};
  e_dscal(&n, &a, z, &inc);
  EXPECT_TRUE(std::isnan(z[0]));
  EXPECT_TRUE(std::isnan(z[1]));
  EXPECT_EQ(z[2], 0);

  // Stride -3 walks x(1), x(4), x(7) and leaves the gaps.
  std::vector<double> w(9, sentinel());
  w[0] = 1;
  w[3] = 2;
  w[6] = 3;
  a = -0.5;
  inc = -3;
  e_dscal(&n, &a, w.data(), &inc);
  EXPECT_EQ(w[0], -0.5);
  EXPECT_EQ(w[3], -1.0);
  EXPECT_EQ(w[6], -1.5);
  for (int i : {1, 2, 4, 5, 7, 8}) EXPECT_TRUE(is_sentinel(w[i]));
}

TEST(Rscl, ReciprocalThroughScalWithItsQuickReturns) {
  qkm_int n = 3, one = 1;
  double x[3] = {1, 2, 3};
  double a = 0.0;
  drscl(&n, &a, x, &one);
  a = 1.0;
  drscl(&n, &a, x, &one);
  EXPECT_EQ(x[0], 1);
  EXPECT_EQ(x[2], 3);
  a = 3.0;
  drscl(&n, &a, x, &one);
  EXPECT_EQ(bits(x[1]), bits(2.0 * (1.0 / 3.0)));  // one reciprocal, then products
  a = kNaN;
  drscl(&n, &a, x, &one);
  for (double v : x) EXPECT_TRUE(std::isnan(v));
  n = 0;
  drscl(&n, nullptr, nullptr, nullptr);
}

TEST(Axpy, QuickReturnReadsNothingAndStridesAgreeWithTheReference) {
  qkm_int n = 3;
  double a = 0.0;
  double y[3] = {1, 2, 3};
  e_daxpy(&n, &a, nullptr, nullptr, y, nullptr);
  EXPECT_EQ(y[0], 1);

  for (int incx : {-2, -1, 0, 1, 2}) {
    for (int incy : {-3, -1, 0, 1, 2}) {
      const int nn = 6;
      const double alpha = 1.25;
      auto x = random_vector(20, 7);
      auto mine = random_vector(20, 8), ref = mine;
      e_daxpy(&nn, &alpha, x.data(), &incx, mine.data(), &incy);
      daxpy_(&nn, &alpha, x.data(), &incx, ref.data(), &incy);
      for (int i = 0; i < 20; ++i) EXPECT_EQ(bits(mine[i]), bits(ref[i])) << incx << incy;
    }
  }
}

TEST(Axpy, UnitStrideIsTheScalarStatementOnEveryPath) {
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel use(level);
    for (int nn : {1, 7, 8, 31, 32, 33, 100, 1000}) {
      auto x = random_vector(nn, 11), y = random_vector(nn + 1, 12);
      y[nn] = sentinel();
      auto expect = y;
      const double alpha = -0.3;
      for (int i = 0; i < nn; ++i) expect[i] = expect[i] + x[i] * alpha;
      const qkm_int one = 1;
      e_daxpy(&nn, &alpha, x.data(), &one, y.data(), &one);
      for (int i = 0; i <= nn; ++i) ASSERT_EQ(bits(y[i]), bits(expect[i])) << level << nn << i;
    }
    // y one element past x: each step sees the previous step's result, as in order.
    std::vector<double> v = random_vector(50, 13), expect = v;
    const double alpha = 0.5;
    const qkm_int nn = 49, one = 1;
    for (int i = 0; i < nn; ++i) expect[i + 1] = expect[i + 1] + expect[i] * alpha;
    e_daxpy(&nn, &alpha, v.data(), &one, v.data() + 1, &one);
    for (int i = 0; i < 50; ++i) ASSERT_EQ(bits(v[i]), bits(expect[i])) << level;
  }
}

TEST(Scal, UnitStrideIsTheScalarStatementOnEveryPath) {
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel use(level);
    for (int nn : {1, 5, 8, 33, 1001}) {
      auto x = random_vector(nn + 1, 21);
      x[nn] = sentinel();
      auto expect = x;
      const double a = 1.0 / 3.0;
      for (int i = 0; i < nn; ++i) expect[i] = expect[i] * a;
      const qkm_int one = 1;
      e_dscal(&nn, &a, x.data(), &one);
      for (int i = 0; i <= nn; ++i) ASSERT_EQ(bits(x[i]), bits(expect[i])) << level << nn;
    }
  }
}

TEST(Asum, FixedSplitOnEveryPathAndAbsoluteStep) {
  // The unit-stride split: 32 interleaved partial sums, combined block-wise then as a tree.
  auto statement = [](const std::vector<double> &x) {
    double p[32] = {};
    for (size_t i = 0; i < x.size(); ++i) p[i % 32] += std::fabs(x[i]);
    double l[8];
    for (int j = 0; j < 8; ++j) l[j] = (p[j] + p[j + 8]) + (p[j + 16] + p[j + 24]);
    return ((l[0] + l[1]) + (l[2] + l[3])) + ((l[4] + l[5]) + (l[6] + l[7]));
  };
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel use(level);
    for (int nn : {1, 3, 31, 32, 33, 64, 95, 1000, 4099}) {
      auto x = random_vector(nn, 31, -1e3, 1e3);
      const qkm_int one = 1, minus = -1;
      EXPECT_EQ(bits(e_dasum(&nn, x.data(), &one)), bits(statement(x))) << level << " " << nn;
      EXPECT_EQ(bits(e_dasum(&nn, x.data(), &minus)), bits(statement(x)));
    }
  }
  double x[7] = {1, -100, 2, -100, -3, 100, 4};
  qkm_int n = 4, inc = -2;
  EXPECT_EQ(e_dasum(&n, x, &inc), 10.0);
  inc = 0;
  n = 5;
  EXPECT_EQ(e_dasum(&n, x, &inc), 5.0);
  n = 0;
  EXPECT_EQ(e_dasum(&n, nullptr, nullptr), 0.0);
  auto big = random_vector(777, 32);
  const qkm_int nb = 777, one = 1;
  EXPECT_NEAR(e_dasum(&nb, big.data(), &one), dasum_(&nb, big.data(), &one), 1e-9);
}

TEST(Nrm2, FourPhaseMethodAtItsEdges) {
  const qkm_int one = 1;
  qkm_int n = 0;
  EXPECT_EQ(e_dnrm2(&n, nullptr, nullptr), 0.0);
  double zeros[3] = {0, 0, 0};
  n = 3;
  EXPECT_EQ(e_dnrm2(&n, zeros, &one), 0.0);
  double v34[2] = {3, 4};
  n = 2;
  EXPECT_EQ(e_dnrm2(&n, v34, &one), 5.0);
  double tiny[2] = {1e-300, 1e-300};
  EXPECT_NEAR(e_dnrm2(&n, tiny, &one) / 1e-300, std::sqrt(2.0), 1e-15);
  double huge[2] = {1e19, 1e19};
  EXPECT_NEAR(e_dnrm2(&n, huge, &one) / 1e19, std::sqrt(2.0), 1e-15);
  double mixed[2] = {1e-20, 1.0};  // Small, then the middle range
  EXPECT_EQ(e_dnrm2(&n, mixed, &one), std::sqrt((1e-20 / 1e-20) * (1e-20 / 1e-20) *
                                                (1e-20 * 1e-20) + 1.0));
  double withinf[3] = {1, kInf, 2};
  n = 3;
  EXPECT_TRUE(std::isnan(e_dnrm2(&n, withinf, &one)));
  double withnan[3] = {1, kNaN, 2};
  EXPECT_TRUE(std::isnan(e_dnrm2(&n, withnan, &one)));
  // Negative stride counts as its magnitude, from x(1).
  double s[5] = {3, 99, 4, 99, 12};
  qkm_int m2 = -2;
  EXPECT_EQ(e_dnrm2(&n, s, &m2), 13.0);

  // Against the reference on ordinary data, and with a zero run before small values.
  auto x = random_vector(500, 41);
  n = 500;
  EXPECT_NEAR(e_dnrm2(&n, x.data(), &one), dnrm2_(&n, x.data(), &one), 1e-12);
  double graded[6] = {0, 0, 3e-12, -4e-12, 5e19, 1};
  n = 6;
  const double ref = dnrm2_(&n, graded, &one);
  EXPECT_NEAR(e_dnrm2(&n, graded, &one) / ref, 1.0, 1e-15);
}

TEST(Nrm2, HitestUsesNRoundedToSinglePrecision) {
  // n = 2^24 + 1 rounds to 2^24 in single precision. An element between cuthi / (2^24 + 1)
  // and cuthi / 2^24 stays in the middle range only with that rounding.
  const qkm_int n = (1 << 24) + 1, zero = 0;
  const double v = 1.304e19 / 16777216.0 * (1.0 - 3e-8);
  ASSERT_GE(v, 1.304e19 / 16777217.0);
  double sum = 0.0;
  for (int k = 0; k < n; ++k) sum = sum + v * v;
  const double middle = std::sqrt(sum);
  const double large = std::sqrt(static_cast<double>(n)) * v;
  ASSERT_NE(bits(middle), bits(large));
  EXPECT_EQ(bits(e_dnrm2(&n, &v, &zero)), bits(middle));
}

TEST(Amax, NaNCountsOnlyLast) {
  const qkm_int one = 1;
  qkm_int n = 2;
  double a[2] = {1, kNaN}, b[2] = {kNaN, 1}, c[2] = {-3, 2};
  EXPECT_TRUE(std::isnan(damax(&n, a, &one)));
  EXPECT_EQ(damax(&n, b, &one), 1.0);
  EXPECT_EQ(damax(&n, c, &one), 3.0);
  n = 1;
  double d[1] = {-2.5};
  EXPECT_EQ(damax(&n, d, nullptr), 2.5);
  n = 0;
  EXPECT_EQ(damax(&n, nullptr, nullptr), 0.0);
  double e[5] = {1, 50, -7, 50, 2};
  n = 3;
  qkm_int m2 = -2;
  EXPECT_EQ(damax(&n, e, &m2), 7.0);
}

TEST(Idamax, FirstLargestPositionInTheWalk) {
  const qkm_int one = 1;
  qkm_int n = 3;
  double a[3] = {-3, 3, 2};
  EXPECT_EQ(e_idamax(&n, a, &one), 1);
  double b[7] = {1, 9, 2, 9, 3, 9, 4};
  n = 4;
  qkm_int two = 2, minus = -1, zero = 0;
  EXPECT_EQ(e_idamax(&n, b, &two), 4);
  n = 1;
  EXPECT_EQ(e_idamax(&n, nullptr, nullptr), 1);
  n = 0;
  EXPECT_EQ(e_idamax(&n, nullptr, nullptr), 0);
  n = 4;
  double c[4] = {1, -5, 5, 2};
  EXPECT_EQ(e_idamax(&n, c, &minus), 2);
  EXPECT_EQ(e_idamax(&n, c, &zero), 1);
  auto x = random_vector(300, 51);
  n = 300;
  EXPECT_EQ(e_idamax(&n, x.data(), &one), idamax_(&n, x.data(), &one));
  double nan_last[3] = {1, 2, kNaN}, nan_mid[3] = {1, kNaN, 0.5};
  n = 3;
  EXPECT_EQ(e_idamax(&n, nan_last, &one), 3);
  EXPECT_EQ(e_idamax(&n, nan_mid, &one), 3);
}

TEST(Rotg, FormOfTheFirstBlas) {
  struct Case {
    double a, b, r, z, c, s;
  };
  const Case cases[] = {
      {0.0, 0.0, 0.0, 0.0, 1.0, 0.0},      {0.0, 2.0, 2.0, 1.0, 0.0, 1.0},
      {3.0, 4.0, 5.0, 1 / 0.6, 0.6, 0.8},  {4.0, 3.0, 5.0, 0.6, 0.8, 0.6},
      {-4.0, 3.0, -5.0, -0.6, 0.8, -0.6},  {-3.0, 4.0, 5.0, -1 / 0.6, -0.6, 0.8},
  };
  for (const auto &k : cases) {
    double a = k.a, b = k.b, c = 9, s = 9;
    e_drotg(&a, &b, &c, &s);
    EXPECT_NEAR(a, k.r, 1e-15) << k.a << " " << k.b;
    EXPECT_NEAR(b, k.z, 1e-14) << k.a << " " << k.b;
    EXPECT_NEAR(c, k.c, 1e-15) << k.a << " " << k.b;
    EXPECT_NEAR(s, k.s, 1e-15) << k.a << " " << k.b;
  }
  // |a| = |b| takes the third branch: r has the sign of b.
  double a = 2.0, b = -2.0, c = 0, s = 0;
  e_drotg(&a, &b, &c, &s);
  EXPECT_LT(a, 0.0);
  EXPECT_GT(s, 0.0);
  // The exact arithmetic of the first branch.
  a = 5.0;
  b = 1.0;
  e_drotg(&a, &b, &c, &s);
  const double u = 10.0, v = 1.0 / u, r = std::sqrt(v * v + 0.25) * u, cc = 5.0 / r;
  EXPECT_EQ(bits(a), bits(r));
  EXPECT_EQ(bits(c), bits(cc));
  EXPECT_EQ(bits(s), bits(v * (cc + cc)));
  EXPECT_EQ(bits(b), bits(s));
  // A NaN makes the test false: the first branch.
  a = kNaN;
  b = 1.0;
  e_drotg(&a, &b, &c, &s);
  EXPECT_TRUE(std::isnan(a));
  EXPECT_TRUE(std::isnan(c));
}
