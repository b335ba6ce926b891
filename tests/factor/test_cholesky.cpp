// Packed Cholesky by bordering: bit for bit against the row-by-row statement of the four-row
// jam on every batch width and instruction set, row ranges, the reference LAPACK, refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

#include "factor/cholesky_internal.h"
#include "kernels.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;
using qkm_test::same_bits;
using qkm_test::sentinel;
using Vec = std::vector<double>;

namespace {

long at(long i, long j) { return i * (i - 1) / 2 + j - 1; }  // (i,j) 1-based, j <= i

// Row by row: groups of four columns from column 1 (the last one shorter), each a sweep and
// its small triangle, then the pivot. Returns the refused row (its pivot in dfail) or 0.
int oracle(int n, Vec &a, double &dfail) {
  for (int k = 1; k <= n; ++k) {
    for (int c = 0; c < k - 1; c += 4)
      for (int i = 0; i < std::min(4, k - 1 - c); ++i) {
        double s = -a[at(k, c + i + 1)];
        for (int m = 1; m <= c; ++m) s = s + a[at(c + i + 1, m)] * a[at(k, m)];
        for (int u = 0; u < i; ++u) s = s + a[at(c + i + 1, c + u + 1)] * a[at(k, c + u + 1)];
        const double d = a[at(c + i + 1, c + i + 1)];
        a[at(k, c + i + 1)] = i == 0 ? s / (-d) : -(s / d);
      }
    double s = -a[at(k, k)];
    for (int m = 1; m < k; ++m) s = s + a[at(k, m)] * a[at(k, m)];
    if (0.0 >= -s) return dfail = -s, k;
    a[at(k, k)] = std::sqrt(-s);
  }
  return 0;
}

// B*B^T/n + I packed by rows: positive definite, multipliers of order one.
Vec spd(int n, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  Vec b(n * n), a(n * (n + 1) / 2, 0.0);
  for (auto &v : b) v = u(rng);
  for (int i = 1; i <= n; ++i)
    for (int j = 1; j <= i; ++j) {
      for (int m = 0; m < n; ++m) a[at(i, j)] += b[(i - 1) * n + m] * b[(j - 1) * n + m] / n;
      a[at(i, j)] += i == j ? 1.0 : 0.0;
    }
  return a;
}

qkm_int factor(qkm_int k0, qkm_int k1, double tol, Vec &a, double &dfail) {
  qkm_int info = -7;
  eaxfch2(nullptr, &k0, &k1, &tol, a.data(), &info, &dfail);
  return info;
}

// Limits the batch buffer: full (8-row batches), 160 doubles (4-row batches from row 14,
// row by row from row 38), none (row by row).
struct Capacity {
  explicit Capacity(int64_t d) { qkm::factor::set_batch_capacity(d); }
  ~Capacity() { qkm::factor::set_batch_capacity(-1); }
};
template <class Body>
void on_every_path(Body body) {
  for (int64_t cap : {-1L, 160L, 0L})
    for (int level : qkm_test::simd_levels()) {
      Capacity guard(cap);
      qkm_test::SimdLevel lv(level);
      SCOPED_TRACE(testing::Message() << "capacity " << cap << " level " << level);
      body();
    }
}

}  // namespace

// One call and calls over row ranges (the second starting at rows 2..9, so batches meet every
// remainder of the column tiles; the last is a single row) give the statement's bits; rows
// past a range stay untouched and dfail is not written on success. Refusals likewise.
TEST(Eaxfch2, MatchesRowByRowStatementOnEveryPathRangeAndRefusal) {
  on_every_path([] {
    for (int n : {1, 2, 3, 4, 5, 7, 8, 9, 12, 13, 17, 37, 64}) {
      SCOPED_TRACE(testing::Message() << "n " << n);
      const Vec a = spd(n, 100 + n);
      Vec want = a, got = a;
      double wfail = 0, dfail = sentinel();
      ASSERT_EQ(oracle(n, want, wfail), 0);
      ASSERT_EQ(factor(1, n, 0.0, got, dfail), 0);
      EXPECT_TRUE(qkm_test::is_sentinel(dfail));
      EXPECT_TRUE(same_bits(got, want));
      for (int c = 2; c <= std::min(n, 9); ++c) {
        Vec piece = a;
        factor(1, c - 1, 0.0, piece, dfail);
        ASSERT_EQ(factor(c, n - 1, 0.0, piece, dfail), 0);
        for (int j = 1; j <= n; ++j) ASSERT_EQ(bits(piece[at(n, j)]), bits(a[at(n, j)]));
        ASSERT_EQ(factor(n, n, 0.0, piece, dfail), 0);
        EXPECT_TRUE(same_bits(piece, want)) << "cut " << c;
      }
      // A refusal in any lane of a batch: earlier rows final, the row's left part holding L,
      // its diagonal its input, later rows (sentinels) untouched.
      for (int bad = 1; bad <= n; bad += n <= 17 ? 1 : 5) {
        Vec w = a;
        w[at(bad, bad)] = -4.0;
        std::fill(w.begin() + at(bad + 1, 1), w.end(), sentinel());
        Vec g = w;
        ASSERT_EQ(oracle(n, w, wfail), bad);
        ASSERT_EQ(factor(1, n, 0.0, g, dfail), bad);
        EXPECT_EQ(std::tuple(bits(dfail), g[at(bad, bad)]), std::tuple(bits(wfail), -4.0));
        EXPECT_TRUE(same_bits(g, w)) << "refused row " << bad;
      }
    }
  });
}

TEST(Eaxfch2, AgreesWithReferenceDpptrf) {
  for (int n : {5, 37}) {
    Vec a = spd(n, 7 + n), ref = a;  // packed by rows = upper triangle packed by columns
    double dfail = 0, tol = 0;
    int rinfo = 0;
    qkm_int k0 = 1, k1 = n, info = -1;
    eaxfch(nullptr, &k0, &k1, &tol, a.data(), &info, &dfail);
    dpptrf_("U", &n, ref.data(), &rinfo, 1);
    ASSERT_EQ(std::tuple(info, rinfo), std::tuple(0, 0));
    for (size_t i = 0; i < a.size(); ++i)
      EXPECT_NEAR(a[i], ref[i], 1e-12 * (1 + std::fabs(ref[i])));
  }
}

// Empty range: only info written, tol not read. A pivot equal to tol is refused; NaN pivots
// and a negative tol let rows through silently.
TEST(Eaxfch2, EmptyRangeSingleRowsAndSilentPivots) {
  Vec s(10, sentinel());
  double dfail = sentinel();
  qkm_int info = 99, k0 = 4, k1 = 3;
  eaxfch2(nullptr, &k0, &k1, nullptr, s.data(), &info, &dfail);
  EXPECT_EQ(info, 0);
  EXPECT_TRUE(qkm_test::is_sentinel(dfail));
  for (double v : s) EXPECT_TRUE(qkm_test::is_sentinel(v));
  Vec one = {9.0};
  EXPECT_EQ(factor(1, 1, 0.0, one, dfail), 0);
  EXPECT_EQ(one[0], 3.0);
  EXPECT_EQ(factor(1, 1, 2.0, one = {2.0}, dfail), 1);
  EXPECT_EQ(std::tuple(dfail, one[0]), std::tuple(2.0, 2.0));
  EXPECT_EQ(factor(1, 1, -1.0, one = {-0.5}, dfail), 0);
  EXPECT_TRUE(std::isnan(one[0]));
  Vec a = spd(6, 9);
  a[at(3, 3)] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(factor(1, 6, 0.0, a, dfail), 0);
  EXPECT_TRUE(std::isnan(a[at(3, 3)]) && std::isnan(a[at(6, 6)]));
}
