// eagemm: every element compared bit for bit with a plain scalar statement of the blocked
// order on every instruction-set level; the statement itself checked against the reference
// dgemm; the entry, its argument checks and the scale-only path.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <random>
#include <thread>
#include <tuple>
#include <vector>

#include "kernels.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;
using qkm_test::is_sentinel;
using qkm_test::sentinel;
using Vec = std::vector<double>;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

bool is_n(char f) { return f == 'N' || f == 'n'; }

// eagemm with its scalars by value; f holds the two flags.
void gemm(const char *f, qkm_int m, qkm_int n, qkm_int k, double alpha, const double *a,
          qkm_int lda, const double *b, qkm_int ldb, double beta, double *c, qkm_int ldc) {
  eagemm(f, f + 1, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc, 1, 1);
}

// Uniform entries in rows x cols of a column-major array with leading dimension ld, the
// gaps holding sentinels.
Vec fill(int rows, int cols, int ld, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> d(-1, 1);
  Vec v(static_cast<size_t>(ld) * std::max(cols, 1), sentinel());
  for (int j = 0; j < cols; ++j)
    for (int i = 0; i < rows; ++i) v[i + static_cast<size_t>(j) * ld] = d(rng);
  return v;
}

// One product with its operands; leading dimensions exceed the minimum by `gap`.
struct Case {
  char ta, tb;
  int m, n, k, lda, ldb, ldc;
  double alpha, beta;
  Vec a, b, c;
  Case(char ta_, char tb_, int m_, int n_, int k_, double al, double be, int gap, unsigned seed)
      : ta(ta_),
        tb(tb_),
        m(m_),
        n(n_),
        k(k_),
        lda(std::max(1, is_n(ta) ? m : k) + gap),
        ldb(std::max(1, is_n(tb) ? k : n) + gap),
        ldc(std::max(1, m) + gap),
        alpha(al),
        beta(be),
        a(fill(is_n(ta) ? m : k, is_n(ta) ? k : m, lda, seed)),
        b(fill(is_n(tb) ? k : n, is_n(tb) ? n : k, ldb, seed + 1000)),
        c(fill(m, n, ldc, seed + 2000)) {}
  Vec run() const {
    Vec out = c;
    const char f[2] = {ta, tb};
    gemm(f, m, n, k, alpha, a.data(), lda, b.data(), ldb, beta, out.data(), ldc);
    return out;
  }
  Vec statement() const;
};

// The scalar statement: row panels of 32, depth blocks of 100, column panels of 1024 (B read
// in place) or 100 (B copied); the first depth block starts from beta * c. Per element and
// depth block: in the 4x4, 1x4 and 4x1 tiles e (from the start value) takes the odd positions
// and o (from +0.0) the even ones, then e + o and an odd last product; in the 1x1 tiles eight
// partial sums from 8 products on, then the rest one by one.
Vec Case::statement() const {
  Vec out = c;
  if (m == 0 || n == 0 || ((alpha == 0.0 || k == 0) && beta == 1.0)) return out;
  auto C = [&](int i, int j) -> double & { return out[i + static_cast<size_t>(j) * ldc]; };
  if (alpha == 0.0 || k == 0) {
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < m; ++i) C(i, j) = beta == 0.0 ? 0.0 : C(i, j) * beta;
    return out;
  }
  const bool nota = is_n(ta), notb = is_n(tb);
  auto prod = [&](int i, int j, int p) {  // alpha on A when B is read in place, else on B
    const double x =
        nota ? a[i + static_cast<size_t>(p) * lda] : a[p + static_cast<size_t>(i) * lda];
    const double y =
        notb ? b[p + static_cast<size_t>(j) * ldb] : b[j + static_cast<size_t>(p) * ldb];
    return notb ? (alpha * x) * y : x * (alpha * y);
  };
  const int nbmax = notb ? 1024 : 100;
  for (int j0 = 0; j0 < n; j0 += nbmax)
    for (int p0 = 0; p0 < k; p0 += 100)
      for (int i0 = 0; i0 < m; i0 += 32) {
        const int nb = std::min(nbmax, n - j0), kk = std::min(100, k - p0),
                  mm = std::min(32, m - i0);
        const double s = p0 == 0 ? beta : 1.0;
        for (int j = j0; j < j0 + nb; ++j)
          for (int i = i0; i < i0 + mm; ++i) {
            double v = s == 0.0 ? 0.0 : s * C(i, j);
            int p = p0;
            if (i - i0 >= mm - mm % 4 && j - j0 >= nb - nb % 4) {
              if (kk >= 8) {
                double e[8] = {v, 0, 0, 0, 0, 0, 0, 0};
                for (; p < p0 + kk - kk % 8; p += 8)
                  for (int r = 0; r < 8; ++r) e[r] = e[r] + prod(i, j, p + r);
                v = ((e[0] + e[2]) + (e[4] + e[6])) + ((e[1] + e[3]) + (e[5] + e[7]));
              }
            } else if (kk >= 2) {
              double e = v, o = 0.0;
              for (; p < p0 + kk - kk % 2; p += 2) {
                e = e + prod(i, j, p);
                o = o + prod(i, j, p + 1);
              }
              v = e + o;
            }
            for (; p < p0 + kk; ++p) v = v + prod(i, j, p);
            C(i, j) = v;
          }
      }
  return out;
}

// Same bits (NaNs may differ in payload only: operand order decides which survives), and
// the gaps still hold the sentinel.
::testing::AssertionResult same(const Case &cs, const Vec &got, const Vec &want) {
  for (size_t i = 0; i < want.size(); ++i) {
    const bool gap = static_cast<int>(i % cs.ldc) >= cs.m;
    if (bits(got[i]) != bits(want[i]) && (gap || !std::isnan(got[i]) || !std::isnan(want[i])))
      return ::testing::AssertionFailure()
             << cs.ta << cs.tb << " " << cs.m << "x" << cs.n << "x" << cs.k << " alpha " << cs.alpha
             << " beta " << cs.beta << ": element " << i << (gap ? " (gap)" : "") << " is "
             << got[i] << ", expected " << want[i];
  }
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult matches(const Case &cs) {
  const Vec want = cs.statement();
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel force(level);
    if (auto r = same(cs, cs.run(), want); !r) return r << " at level " << level;
  }
  return ::testing::AssertionSuccess();
}

}  // namespace

TEST(Gemm, WorkedExampleAlphaLandsOnTheOperandThatTransbNames) {
  const double a = 0.1, b = 0.3;
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel force(level);
    for (const char *f : {"NN", "NT"}) {
      double c = kNaN;
      gemm(f, 1, 1, 1, 0.1, &a, 1, &b, 1, 0.0, &c, 1);
      EXPECT_EQ(bits(c), bits(f[1] == 'N' ? 0.0030000000000000005 : 0.003)) << level;
    }
  }
}

// Rows across the 32-row panels, the row vectors and the 4-row tiles, columns across the
// 100-column panels, the register tiles of every shape and the 4-column tiles, depths across
// the 8-product and 100-position blocks, in all forms and with every flag letter on each
// operand; alpha of 1 and -1 read the operand that carries it in place, other values copy it.
TEST(Gemm, EveryBlockBoundaryAndTileEdgeOnEveryPath) {
  unsigned seed = 1;
  for (const char *f : {"NN", "nT", "Tc", "tC", "Cn", "ct"})
    for (double alpha : {0.7, 1.0, -1.0}) {
      for (int m : {1, 3, 4, 5, 9, 17, 31, 32, 33, 70})
        for (int n : {1, 3, 4, 6, 13, 47, 48, 101, 250})
          EXPECT_TRUE(matches(Case(f[0], f[1], m, n, 9, alpha, -1.3, 3, seed++)));
      for (int k : {1, 2, 7, 8, 9, 15, 16, 17, 99, 100, 101, 199, 200, 201})
        for (int mn : {7, 33})
          EXPECT_TRUE(matches(Case(f[0], f[1], mn, mn - 1, k, -alpha, 0.6, 2, seed++)));
    }
  for (int n : {511, 512, 513, 1031})  // column panels of B read in place
    for (const char *f : {"NN", "NT"}) EXPECT_TRUE(matches(Case(f[0], f[1], 33, n, 101, 1.0, 0.5, 1, seed++)));
}

// Several column panels by several depth blocks, in both orders of the two (B copied: depth
// blocks outermost), and products large enough that the sweep fetches C and the next panel
// of A ahead: the same bits, with A in place and transposed, across the last full row panel.
TEST(Gemm, PanelOrderAndLargeProductsFetchingAhead) {
  unsigned seed = 900;
  for (const char *f : {"NN", "NT", "TC"})
    for (double alpha : {1.0, 0.7})
      EXPECT_TRUE(matches(Case(f[0], f[1], 45, 250, 201, alpha, 0.5, 1, seed++)));
  for (const char *f : {"NN", "TN", "NT"})
    EXPECT_TRUE(matches(Case(f[0], f[1], 613, 700, 201, f[0] == 'T' ? 0.7 : 1.0, 0.5, 1, seed++)));
}

TEST(Gemm, AlphaAndBetaZeroOneOtherAndNaN) {
  unsigned seed = 300;
  for (double alpha : {0.0, 1.0, -2.5, kNaN})
    for (double beta : {0.0, 1.0, -2.5, kNaN})
      for (const char *f : {"NN", "TT"})
        for (int k : {0, 5, 250}) {
          Case cs(f[0], f[1], 35, 7, k, alpha, beta, 2, seed++);
          cs.c[3] = kNaN;  // a NaN in C survives only where C is read
          EXPECT_TRUE(matches(cs));
        }
  // beta = 0 drops every NaN of C, though later depth blocks read C back.
  Case cs('N', 'N', 9, 6, 250, 1.0, 0.0, 0, 7);
  cs.c.assign(cs.c.size(), kNaN);
  for (double v : cs.run()) EXPECT_FALSE(std::isnan(v));
}

TEST(Gemm, StatementAgreesWithTheReferenceDgemm) {
  unsigned seed = 500;
  for (const char *f : {"NN", "NT", "TN", "TT"})
    for (auto [m, n, k] : {std::tuple{33, 37, 250}, {5, 130, 7}, {100, 4, 101}}) {
      Case cs(f[0], f[1], m, n, k, 0.8, -0.4, 0, seed++);
      const Vec mine = cs.statement();
      dgemm_(f, f + 1, &m, &n, &k, &cs.alpha, cs.a.data(), &cs.lda, cs.b.data(), &cs.ldb, &cs.beta,
             cs.c.data(), &cs.ldc, 1, 1);
      // |terms| are below 1, so the rounding error stays below (k+2) ulp of 1.
      for (size_t i = 0; i < mine.size(); ++i)
        ASSERT_NEAR(mine[i], cs.c[i], (k + 2) * 2.3e-16) << f;
    }
}

// alpha = 0 or k = 0 scales C by beta, or sets it to +0.0 for beta = 0 without reading it,
// and reads neither operand; with beta = 1 too, or m = 0 or n = 0, nothing is even checked.
TEST(Gemm, ScaleOnlyPathAndQuickReturns) {
  double c1 = 5.0;
  gemm("XY", 0, -7, -7, 2, nullptr, 0, nullptr, 0, 2, &c1, 0);
  gemm("XY", -7, 0, -7, 2, nullptr, 0, nullptr, 0, 2, &c1, 0);
  gemm("XY", 1, 1, 0, 2, nullptr, 0, nullptr, 0, 1, &c1, 0);
  gemm("XY", 1, 1, -7, 0, nullptr, 0, nullptr, 0, 1, &c1, 0);
  EXPECT_EQ(c1, 5.0);
  for (double beta : {3.0, 0.0}) {  // 3 x 4 in ldc = 5, the gaps hold sentinels
    Vec c(20, sentinel()), want;
    for (int j = 0; j < 4; ++j)
      for (int i = 0; i < 3; ++i) c[i + j * 5] = j % 2 ? i + 10.0 * j : -(i + 10.0 * j);
    c[1] = kNaN;
    want = c;
    for (int j = 0; j < 4; ++j)
      for (int i = 0; i < 3; ++i) want[i + j * 5] = beta == 0.0 ? 0.0 : c[i + j * 5] * beta;
    gemm("TC", 3, 4, beta == 0.0 ? 0 : 6, beta == 0.0 ? 2 : 0, nullptr, 6, nullptr, 6, beta,
         c.data(), 5);
    for (size_t i = 0; i < c.size(); ++i) EXPECT_EQ(bits(c[i]), bits(want[i])) << beta << " " << i;
  }
  // m = ldc = 65536: one scaling over m*n elements, the count formed modulo 2^32:
  // n = 2^16 + 1 scales 65536 elements, n = 2^15 makes it 2^31, negative: none.
  for (auto [n, beta, changed] :
       {std::tuple{65537, 2.0, 65536}, {65537, 0.0, 65536}, {32768, 2.0, 0}}) {
    Vec c(70000, 1.0);
    gemm("NN", 65536, n, 1, 0, nullptr, 65536, nullptr, 1, beta, c.data(), 65536);
    for (int i = 0; i < 70000; ++i) ASSERT_EQ(c[i], i < changed ? beta : 1.0) << n << " " << i;
  }
}

TEST(GemmDeathTest, EachBadArgumentStops) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Vec a(100), b(100), c(100);
  auto stops = [&](const char *f, int m, int n, int k, int lda, int ldb, int ldc, double beta = 0,
                   double alpha = 1) {
    EXPECT_EXIT(gemm(f, m, n, k, alpha, a.data(), lda, b.data(), ldb, beta, c.data(), ldc),
                testing::ExitedWithCode(1), "^DGEMM FATAL ERROR\n$")
        << f << " " << m << " " << n << " " << k << " " << lda << " " << ldb << " " << ldc;
  };
  stops("XN", 3, 4, 5, 3, 5, 3);
  stops("Nx", 3, 4, 5, 3, 5, 3);
  stops("NN", -1, 4, 5, 3, 5, 3);
  stops("NN", 3, -1, 5, 3, 5, 3);
  stops("NN", 3, 4, -1, 3, 5, 3);
  stops("NN", 3, 4, 5, 2, 5, 3);        // lda < m
  stops("TN", 3, 4, 5, 4, 5, 3);        // lda < k (though >= m)
  stops("NN", 3, 4, 5, 3, 4, 3);        // ldb < k
  stops("NT", 3, 4, 2, 3, 3, 3);        // ldb < n (though >= k)
  stops("NN", 3, 4, 5, 3, 5, 2);        // ldc < m
  stops("NN", 1, 4, 0, 0, 1, 1, 2);     // lda < 1 with k = 0, beta = 2
  stops("NQ", 3, 4, 0, 3, 1, 3, 2);     // a bad flag on the scale-only path
  stops("NN", 3, 4, 5, 1, 5, 3, 0, 0);  // lda too small with alpha = beta = 0
  // the nearest valid arguments do not stop
  gemm("NN", 3, 4, 5, 1, a.data(), 3, b.data(), 5, 0, c.data(), 3);
  gemm("tc", 3, 4, 5, 1, a.data(), 5, b.data(), 4, 0, c.data(), 3);
}

TEST(Gemm, ThreadsWorkOnTheirOwnPanels) {
  std::vector<Case> cases;
  for (int t = 0; t < 4; ++t)
    cases.emplace_back(t % 2 ? 'T' : 'N', t < 2 ? 'T' : 'N', 70 + t, 90 - t, 230 + 3 * t, 0.5 + t,
                       0.25, t, 900 + t);
  std::vector<int> failures(4, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      const Vec want = cases[t].statement();
      for (int round = 0; round < 20; ++round) failures[t] += !same(cases[t], cases[t].run(), want);
    });
  for (auto &th : threads) th.join();
  EXPECT_EQ(failures, std::vector<int>(4, 0));
}

TEST(Gemm, SignedZerosFollowTheStartValueAndTheSplit) {
  // All products are -0.0 and C starts at -0.0 with beta = 1: e keeps -0.0, o = +0.0 + -0.0
  // is +0.0, so the sign of the result tells whether and where e + o was formed.
  for (int k : {1, 2, 3, 8, 9, 101}) {
    Case cs('N', 'T', 6, 7, k, 1.0, 1.0, 1, 1);
    for (double &v : cs.a) v = is_sentinel(v) ? v : 0.0;
    for (double &v : cs.b) v = is_sentinel(v) ? v : -1.0;
    for (double &v : cs.c) v = is_sentinel(v) ? v : -0.0;
    const Vec want = cs.statement();
    EXPECT_EQ(bits(want[0]), bits(k == 1 ? -0.0 : 0.0)) << k;              // an e/o element
    EXPECT_EQ(bits(want[5 + 6 * cs.ldc]), bits(k < 8 ? -0.0 : 0.0)) << k;  // a 1x1 element
    EXPECT_TRUE(matches(cs));
  }
}

// The direct path (A not transposed, alpha = 1 or -1, no panels): rows around every strip
// of every level's register tiles (2, 4 or 8 lanes, up to 4 vectors) and the row limit of
// the path (128), columns around every tile width and the 4-column corner up to the column
// limit of the path (128), depths around the blocks of 100 that each tile cuts itself and
// the depth limit of the path (256); beta = 0 ignores a NaN in C on the way.
TEST(Gemm, DirectPathTileEdgesAndDepthBlocks) {
  const int ms[] = {1, 2, 3, 5, 7, 8, 9, 12, 15, 16, 17, 23, 24, 25, 31, 32, 33, 63, 65, 127, 128};
  const int ns[] = {1, 2, 3, 4, 5, 6, 7, 8, 11, 12, 13, 24, 30, 47, 48, 49, 127, 128};
  const int ks[] = {1, 2, 3, 7, 8, 9, 99, 100, 101, 199, 200, 201, 255, 256, 257};
  unsigned seed = 2000;
  int turn = 0;
  for (const char *f : {"NN", "nt"})
    for (int m : ms)
      for (int n : ns) {
        const int k = ks[turn++ % std::size(ks)];
        const double alpha = turn % 3 ? 1.0 : -1.0, beta = turn % 4 ? 0.75 : 0.0;
        Case cs(f[0], f[1], m, n, k, alpha, beta, turn % 2, seed++);
        cs.c[0] = kNaN;
        EXPECT_TRUE(matches(cs));
      }
}

// A read in place with a leading dimension of a multiple of 64 doubles is copied strip by
// strip once its columns crowd the first-level cache: leading dimensions of 64, 128 and 512
// on both sides of the depth where the copy starts, on the direct path (rows below 128,
// strips of every height) and on the blocked one (128 rows and more, or a depth beyond 256).
TEST(Gemm, CopiedStripsOfACrowdedLeadingDimension) {
  unsigned seed = 5000;
  int turn = 0;
  for (const char *f : {"NN", "NT"})
    for (auto [m, ld] : {std::pair{64, 64}, {24, 64}, {41, 128}, {100, 128}, {7, 512}, {130, 256}})
      for (int k : {9, 64, 65, 100, 101, 257})
        for (int n : {8, 13, 60}) {
          const double alpha = turn++ % 2 ? 1.0 : -1.0;
          Case cs(f[0], f[1], m, n, k, alpha, 0.5, ld - m, seed++);
          EXPECT_TRUE(matches(cs));
        }
}
