// Packed Cholesky by bordering: bit for bit against a plain row-by-row statement of the
// four-row jam, against the reference LAPACK within a tolerance, refusals and extensions.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "factor/cholesky_internal.h"
#include "kernels.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;
using qkm_test::sentinel;

namespace {

long at(long i, long j) { return i * (i - 1) / 2 + j - 1; }  // (i,j) 1-based, j <= i

// The row-by-row method as a plain statement: groups of four columns from column 1, each with
// its sweep and its small triangle, the remainder next to the diagonal, then the pivot.
void oracle(int k0, int k1, double tol, std::vector<double> &a, int &info, double &dfail) {
  if (k1 < k0) {
    info = 0;
    return;
  }
  for (int k = k0; k <= k1; ++k) {
    const int r = (k - 1) % 4;
    auto group = [&](int c, int g) {
      double s[4];
      for (int i = 1; i <= g; ++i) s[i - 1] = -a[at(k, c + i)];
      for (int m = 1; m <= c; ++m) {
        const double x = a[at(k, m)];
        for (int i = 1; i <= g; ++i) s[i - 1] = s[i - 1] + a[at(c + i, m)] * x;
      }
      double x[4];
      x[0] = s[0] / (-a[at(c + 1, c + 1)]);
      a[at(k, c + 1)] = x[0];
      if (g > 1) {
        x[1] = -((s[1] + a[at(c + 2, c + 1)] * x[0]) / a[at(c + 2, c + 2)]);
        a[at(k, c + 2)] = x[1];
      }
      if (g > 2) {
        x[2] = -((s[2] + a[at(c + 3, c + 1)] * x[0] + a[at(c + 3, c + 2)] * x[1]) /
                 a[at(c + 3, c + 3)]);
        a[at(k, c + 3)] = x[2];
      }
      if (g > 3) {
        x[3] = -((s[3] + a[at(c + 4, c + 1)] * x[0] + a[at(c + 4, c + 2)] * x[1] +
                  a[at(c + 4, c + 3)] * x[2]) /
                 a[at(c + 4, c + 4)]);
        a[at(k, c + 4)] = x[3];
      }
    };
    int c = 0;
    for (; c + 4 <= k - 1 - r; c += 4) group(c, 4);
    if (r > 0) group(k - 1 - r, r);
    double s = -a[at(k, k)];
    for (int m = 1; m < k; ++m) s = s + a[at(k, m)] * a[at(k, m)];
    const double d = -s;
    if (tol >= d) {
      dfail = d;
      info = k;
      return;
    }
    a[at(k, k)] = std::sqrt(d);
  }
  info = 0;
}

// A symmetric positive-definite matrix packed by rows: B*B^T/n + I-ish with random signs.
std::vector<double> spd(int n, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  std::vector<double> b(static_cast<size_t>(n) * n);
  for (auto &v : b) v = u(rng);
  std::vector<double> a(static_cast<size_t>(n) * (n + 1) / 2);
  for (int i = 1; i <= n; ++i)
    for (int j = 1; j <= i; ++j) {
      double s = 0;
      for (int m = 0; m < n; ++m) s += b[(i - 1) * n + m] * b[(j - 1) * n + m];
      a[at(i, j)] = s / n + (i == j ? 1.0 + 0.01 * i : 0.0);
    }
  return a;
}

void expect_same_bits(const std::vector<double> &want, const std::vector<double> &got,
                      const char *what) {
  ASSERT_EQ(want.size(), got.size());
  for (size_t i = 0; i < want.size(); ++i)
    ASSERT_EQ(bits(want[i]), bits(got[i])) << what << " position " << i;
}

const std::vector<int> kSizes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 17, 37, 64, 101};

struct Capacity {
  explicit Capacity(int64_t d) { qkm::factor::set_batch_capacity(d); }
  ~Capacity() { qkm::factor::set_batch_capacity(-1); }
};

}  // namespace

// Every batch width (8 lanes, 4 lanes, one row at a time) and every instruction set gives the
// bits of the row-by-row statement, over sizes that cross every group and batch boundary.
TEST(Eaxfch2, MatchesRowByRowStatementBitForBit) {
  for (int64_t cap : {-1L, 4L * 40, 0L}) {
    Capacity guard(cap);
    for (int level : qkm_test::simd_levels()) {
      qkm_test::SimdLevel lv(level);
      for (int n : kSizes) {
        const auto a = spd(n, 100 + n);
        auto want = a, got = a;
        int winfo = -7;
        double wfail = sentinel();
        oracle(1, n, 0.0, want, winfo, wfail);
        qkm_int info = -7, k0 = 1, k1 = n;
        double dfail = sentinel(), tol = 0.0;
        eaxfch2(nullptr, &k0, &k1, &tol, got.data(), &info, &dfail);
        ASSERT_EQ(info, 0);
        EXPECT_TRUE(qkm_test::is_sentinel(dfail)) << "dfail written on success";
        expect_same_bits(want, got, "factor");
      }
    }
  }
}

TEST(Eaxfch2, AgreesWithReferenceDpptrf) {
  for (int n : {5, 37, 101}) {
    auto a = spd(n, 7 + n), ref = a;
    qkm_int info = 0, k0 = 1, k1 = n;
    double dfail = 0, tol = 0;
    eaxfch(nullptr, &k0, &k1, &tol, a.data(), &info, &dfail);
    int rinfo = 0;
    // Packed by rows is the upper triangle packed by columns.
    dpptrf_("U", &n, ref.data(), &rinfo, 1);
    ASSERT_EQ(info, 0);
    ASSERT_EQ(rinfo, 0);
    for (size_t i = 0; i < a.size(); ++i) EXPECT_NEAR(a[i], ref[i], 1e-12 * (1 + std::fabs(ref[i])));
  }
}

// Rows K0..K1 extend a factor: the pieces give the bits of one call, and rows past K1 stay.
TEST(Eaxfch2, ExtendsAnExistingFactor) {
  for (int n : {7, 40, 101}) {
    const auto a = spd(n, 31 + n);
    auto whole = a;
    qkm_int info = -1, one = 1, nn = n;
    double dfail = 0, tol = 0;
    eaxfch2(nullptr, &one, &nn, &tol, whole.data(), &info, &dfail);
    ASSERT_EQ(info, 0);
    auto piece = a;
    const int cut1 = n / 3 + 1, cut2 = n - 2;
    qkm_int lo = 1, hi = cut1 - 1;
    eaxfch2(nullptr, &lo, &hi, &tol, piece.data(), &info, &dfail);
    lo = cut1;
    hi = cut2;
    eaxfch2(nullptr, &lo, &hi, &tol, piece.data(), &info, &dfail);
    ASSERT_EQ(info, 0);
    for (int i = cut2 + 1; i <= n; ++i)
      for (int j = 1; j <= i; ++j) ASSERT_EQ(bits(piece[at(i, j)]), bits(a[at(i, j)]));
    lo = cut2 + 1;
    hi = n;
    eaxfch2(nullptr, &lo, &hi, &tol, piece.data(), &info, &dfail);
    expect_same_bits(whole, piece, "pieces");
  }
}

// K0 = K1 = 7 on a matrix whose rows 1 to 6 are factored gives the row 7 of one call.
TEST(Eaxfch2, OneMoreRowOnAFactoredMatrix) {
  const auto a = spd(7, 70);
  auto whole = a, piece = a;
  qkm_int info = -1, one = 1, six = 6, seven = 7;
  double dfail = 0, tol = 0;
  eaxfch2(nullptr, &one, &seven, &tol, whole.data(), &info, &dfail);
  eaxfch2(nullptr, &one, &six, &tol, piece.data(), &info, &dfail);
  eaxfch2(nullptr, &seven, &seven, &tol, piece.data(), &info, &dfail);
  EXPECT_EQ(info, 0);
  expect_same_bits(whole, piece, "row 7");
}

TEST(Eaxfch2, EmptyRangeWritesOnlyInfo) {
  std::vector<double> a(10, sentinel());
  qkm_int info = 99, k0 = 4, k1 = 3;
  double dfail = sentinel();
  eaxfch2(nullptr, &k0, &k1, nullptr, a.data(), &info, &dfail);  // tol is not read
  EXPECT_EQ(info, 0);
  EXPECT_TRUE(qkm_test::is_sentinel(dfail));
  for (double v : a) EXPECT_TRUE(qkm_test::is_sentinel(v));
}

TEST(Eaxfch2, SingleRow) {
  std::vector<double> a = {9.0};
  qkm_int info = -1, one = 1;
  double dfail = 0, tol = 0;
  eaxfch2(nullptr, &one, &one, &tol, a.data(), &info, &dfail);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(a[0], 3.0);
  a[0] = 2.0;
  tol = 2.0;  // a pivot equal to tol is refused
  eaxfch2(nullptr, &one, &one, &tol, a.data(), &info, &dfail);
  EXPECT_EQ(info, 1);
  EXPECT_EQ(dfail, 2.0);
  EXPECT_EQ(a[0], 2.0);
}

// A refusal at any row, whichever lane of a batch it falls in: earlier rows final, the row's
// left part holding L, its diagonal its input, later rows untouched.
TEST(Eaxfch2, RefusalLeavesRowByRowState) {
  const int n = 37;
  for (int64_t cap : {-1L, 4L * 40, 0L}) {
    Capacity guard(cap);
    for (int level : qkm_test::simd_levels()) {
      qkm_test::SimdLevel lv(level);
      for (int bad : {1, 2, 5, 8, 9, 12, 16, 17, 23, 33, 37}) {
        auto a = spd(n, 5);
        a[at(bad, bad)] = -4.0;  // makes the pivot of row `bad` negative
        // later rows hold sentinels: they must come back untouched
        for (int i = bad + 1; i <= n; ++i)
          for (int j = 1; j <= i; ++j) a[at(i, j)] = sentinel();
        auto want = a, got = a;
        int winfo = 0;
        double wfail = 0;
        oracle(1, n, 0.0, want, winfo, wfail);
        ASSERT_EQ(winfo, bad);
        qkm_int info = 0, k0 = 1, k1 = n;
        double dfail = sentinel(), tol = 0.0;
        eaxfch2(nullptr, &k0, &k1, &tol, got.data(), &info, &dfail);
        ASSERT_EQ(info, bad);
        EXPECT_EQ(bits(dfail), bits(wfail));
        EXPECT_EQ(bits(got[at(bad, bad)]), bits(-4.0));
        expect_same_bits(want, got, "refused");
      }
    }
  }
}

// NaN pivots go on without a report; a negative tol lets a small negative pivot through.
TEST(Eaxfch2, NaNAndNegativeTolPassSilently) {
  auto a = spd(6, 9);
  a[at(3, 3)] = std::numeric_limits<double>::quiet_NaN();
  qkm_int info = -1, k0 = 1, k1 = 6;
  double dfail = 0, tol = 0;
  eaxfch2(nullptr, &k0, &k1, &tol, a.data(), &info, &dfail);
  EXPECT_EQ(info, 0);
  EXPECT_TRUE(std::isnan(a[at(3, 3)]));
  EXPECT_TRUE(std::isnan(a[at(6, 6)]));

  std::vector<double> b = {-0.5};
  tol = -1.0;
  qkm_int one = 1;
  eaxfch2(nullptr, &one, &one, &tol, b.data(), &info, &dfail);
  EXPECT_EQ(info, 0);
  EXPECT_TRUE(std::isnan(b[0]));
}
