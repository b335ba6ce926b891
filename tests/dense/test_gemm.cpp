// eagemm: every element compared bit for bit with a plain scalar statement of the blocked
// order (panels of 32 rows, depth blocks of 100, column panels of 1024 or 100, the 4x4, 1x4,
// 4x1 and 1x1 tiles with their partial sums), on every instruction-set level; the statement
// itself checked against the reference dgemm; the entry, its checks and the scale-only path.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "kernels.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;
using qkm_test::is_sentinel;
using qkm_test::sentinel;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

bool is_n(char f) { return f == 'N' || f == 'n'; }

// The scalar statement. Valid arguments only (the checks are tested separately).
void statement(char ta, char tb, int m, int n, int k, double alpha, const double *a, int lda,
               const double *b, int ldb, double beta, double *c, int ldc) {
  if (m == 0 || n == 0) return;
  if ((alpha == 0.0 || k == 0) && beta == 1.0) return;
  auto C = [&](int i, int j) -> double & { return c[i + static_cast<long>(j) * ldc]; };
  if (alpha == 0.0 || k == 0) {
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < m; ++i) C(i, j) = beta == 0.0 ? 0.0 : C(i, j) * beta;
    return;
  }
  const bool nota = is_n(ta), notb = is_n(tb);
  auto opA = [&](int i, int p) { return nota ? a[i + static_cast<long>(p) * lda] : a[p + static_cast<long>(i) * lda]; };
  auto opB = [&](int p, int j) { return notb ? b[p + static_cast<long>(j) * ldb] : b[j + static_cast<long>(p) * ldb]; };
  static thread_local double abuf[32][100], bbuf[100][100];
  const int nbmax = notb ? 1024 : 100;
  for (int j0 = 0; j0 < n; j0 += nbmax) {
    const int nb = std::min(nbmax, n - j0);
    for (int p0 = 0; p0 < k; p0 += 100) {
      const int kk = std::min(100, k - p0);
      const double s = p0 == 0 ? beta : 1.0;
      if (!notb)
        for (int j = 0; j < nb; ++j)
          for (int p = 0; p < kk; ++p) bbuf[j][p] = alpha * opB(p0 + p, j0 + j);
      for (int i0 = 0; i0 < m; i0 += 32) {
        const int mm = std::min(32, m - i0);
        for (int i = 0; i < mm; ++i)
          for (int p = 0; p < kk; ++p)
            abuf[i][p] = notb ? alpha * opA(i0 + i, p0 + p) : opA(i0 + i, p0 + p);
        auto prod = [&](int i, int j, int p) {
          return abuf[i][p] * (notb ? opB(p0 + p, j0 + j) : bbuf[j][p]);
        };
        auto start = [&](int i, int j) { return s == 0.0 ? 0.0 : s * C(i0 + i, j0 + j); };
        auto eo = [&](int i, int j) {  // 4x4, 1x4 and 4x1 tiles
          double v = start(i, j);
          const int kk2 = kk - kk % 2;
          if (kk2 > 0) {
            double e = v, o = 0.0;
            for (int p = 0; p < kk2; p += 2) {
              e = e + prod(i, j, p);
              o = o + prod(i, j, p + 1);
            }
            v = e + o;
          }
          if (kk % 2) v = v + prod(i, j, kk - 1);
          C(i0 + i, j0 + j) = v;
        };
        auto one = [&](int i, int j) {  // 1x1 tile
          double v = start(i, j);
          int p = 0;
          if (kk >= 8) {
            double e[8] = {v, 0, 0, 0, 0, 0, 0, 0};
            for (; p < kk - kk % 8; p += 8)
              for (int r = 0; r < 8; ++r) e[r] = e[r] + prod(i, j, p + r);
            v = ((e[0] + e[2]) + (e[4] + e[6])) + ((e[1] + e[3]) + (e[5] + e[7]));
          }
          for (; p < kk; ++p) v = v + prod(i, j, p);
          C(i0 + i, j0 + j) = v;
        };
        const int mm4 = mm - mm % 4, nb4 = nb - nb % 4;
        for (int j = 0; j < nb4; j += 4) {
          for (int i = 0; i < mm4; i += 4)
            for (int jj = 0; jj < 4; ++jj)
              for (int ii = 0; ii < 4; ++ii) eo(i + ii, j + jj);
          for (int i = mm4; i < mm; ++i)
            for (int jj = 0; jj < 4; ++jj) eo(i, j + jj);
        }
        for (int j = nb4; j < nb; ++j) {
          for (int i = 0; i < mm4; i += 4)
            for (int ii = 0; ii < 4; ++ii) eo(i + ii, j);
          for (int i = mm4; i < mm; ++i) one(i, j);
        }
      }
    }
  }
}

// One product with its operands, leading dimensions above the minimum (gaps hold sentinels).
struct Case {
  char ta, tb;
  int m, n, k;
  double alpha, beta;
  int lda, ldb, ldc;
  std::vector<double> a, b, c;

  Case(char ta_, char tb_, int m_, int n_, int k_, double alpha_, double beta_, int gap,
       unsigned seed)
      : ta(ta_), tb(tb_), m(m_), n(n_), k(k_), alpha(alpha_), beta(beta_) {
    const int ar = is_n(ta) ? m : k, ac = is_n(ta) ? k : m;
    const int br = is_n(tb) ? k : n, bc = is_n(tb) ? n : k;
    lda = std::max(1, ar) + gap;
    ldb = std::max(1, br) + gap;
    ldc = std::max(1, m) + gap;
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> d(-1, 1);
    auto fill = [&](std::vector<double> &v, int rows, int cols, int ld) {
      v.assign(static_cast<size_t>(ld) * std::max(cols, 1), sentinel());
      for (int j = 0; j < cols; ++j)
        for (int i = 0; i < rows; ++i) v[i + static_cast<size_t>(j) * ld] = d(rng);
    };
    fill(a, ar, ac, lda);
    fill(b, br, bc, ldb);
    fill(c, m, n, ldc);
  }
  void run_qkm(std::vector<double> &out) const {
    out = c;
    eagemm(&ta, &tb, &m, &n, &k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, out.data(),
           &ldc, 1, 1);
  }
  void run_statement(std::vector<double> &out) const {
    out = c;
    statement(ta, tb, m, n, k, alpha, a.data(), lda, b.data(), ldb, beta, out.data(), ldc);
  }
  std::string name() const {
    return std::string{ta, tb} + " m=" + std::to_string(m) + " n=" + std::to_string(n) +
           " k=" + std::to_string(k) + " alpha=" + std::to_string(alpha) +
           " beta=" + std::to_string(beta);
  }
};

// Same bits everywhere; NaNs may differ in payload only (the operand order of a commutative
// operation decides which payload survives). Gaps must still hold the sentinel.
::testing::AssertionResult same(const Case &cs, const std::vector<double> &got,
                                const std::vector<double> &want) {
  for (size_t idx = 0; idx < want.size(); ++idx) {
    const size_t i = idx % cs.ldc;
    const bool gap = static_cast<int>(i) >= cs.m;
    if (gap ? !is_sentinel(got[idx])
            : !(bits(got[idx]) == bits(want[idx]) || (std::isnan(got[idx]) && std::isnan(want[idx])))) {
      return ::testing::AssertionFailure()
             << cs.name() << ": element " << i + 1 << "," << idx / cs.ldc + 1
             << (gap ? " (gap)" : "") << " is " << got[idx] << ", expected " << want[idx];
    }
  }
  return ::testing::AssertionSuccess();
}

// Runs eagemm at every instruction-set level against the statement.
::testing::AssertionResult matches(const Case &cs) {
  std::vector<double> want, got;
  cs.run_statement(want);
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel force(level);
    cs.run_qkm(got);
    auto r = same(cs, got, want);
    if (!r) return r << " at level " << level;
  }
  return ::testing::AssertionSuccess();
}

const int kSizes[] = {1, 3, 4, 5, 31, 32, 33, 99, 100, 101, 250};

}  // namespace

TEST(Gemm, WorkedExampleAlphaLandsOnTheOperandThatTransbNames) {
  const qkm_int one = 1;
  const double alpha = 0.1, a = 0.1, b = 0.3, beta = 0.0;
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel force(level);
    double c = kNaN;
    eagemm("N", "N", &one, &one, &one, &alpha, &a, &one, &b, &one, &beta, &c, &one, 1, 1);
    EXPECT_EQ(bits(c), bits(0.0030000000000000005));
    c = kNaN;
    eagemm("N", "T", &one, &one, &one, &alpha, &a, &one, &b, &one, &beta, &c, &one, 1, 1);
    EXPECT_EQ(bits(c), bits(0.003));
  }
}

TEST(Gemm, RowAndColumnSizesAcrossEveryPanelAndTileBoundary) {
  unsigned seed = 1;
  for (const char *f : {"NN", "NT", "TN", "TT"})
    for (int m : kSizes)
      for (int n : kSizes)
        for (int k : {1, 9, 101}) {
          if (m * n * k > 300000 && (m != n || k != 101)) continue;
          EXPECT_TRUE(matches(Case(f[0], f[1], m, n, k, 0.7, -1.3, 3, seed++)));
        }
}

TEST(Gemm, DepthsAcrossEveryBlockBoundary) {
  unsigned seed = 100;
  std::vector<int> depths(std::begin(kSizes), std::end(kSizes));
  for (int k : {2, 6, 7, 8, 15, 16, 17, 199, 200, 201}) depths.push_back(k);
  for (const char *f : {"NN", "NT", "TN", "TT"})
    for (int k : depths)
      for (auto [m, n] : {std::pair{4, 4}, {7, 6}, {33, 37}, {3, 101}})
        EXPECT_TRUE(matches(Case(f[0], f[1], m, n, k, -0.9, 0.6, 2, seed++)));
}

TEST(Gemm, WideColumnPanelsOfBothForms) {
  unsigned seed = 200;
  for (int n : {1023, 1024, 1025, 1031})
    for (auto [m, k] : {std::pair{5, 3}, {33, 101}})
      EXPECT_TRUE(matches(Case('N', 'N', m, n, k, 1.1, 0.5, 1, seed++)));
  for (int n : {99, 100, 101, 1024})
    for (auto [m, k] : {std::pair{6, 5}, {33, 101}})
      EXPECT_TRUE(matches(Case('T', 'T', m, n, k, 1.1, 0.5, 1, seed++)));
}

TEST(Gemm, AlphaAndBetaZeroOneOtherAndNaN) {
  unsigned seed = 300;
  const double values[] = {0.0, 1.0, -2.5, kNaN};
  for (double alpha : values)
    for (double beta : values)
      for (const char *f : {"NN", "TT"})
        for (int k : {0, 5, 250}) {
          Case cs(f[0], f[1], 35, 7, k, alpha, beta, 2, seed++);
          cs.c[3] = kNaN;  // a NaN in C survives only where C is read
          EXPECT_TRUE(matches(cs));
        }
}

TEST(Gemm, BetaZeroDropsNaNOfCWhileLaterDepthBlocksReadBackC) {
  Case cs('N', 'N', 9, 6, 250, 1.0, 0.0, 0, 7);
  for (auto &v : cs.c) v = kNaN;
  std::vector<double> got;
  cs.run_qkm(got);
  for (double v : got) EXPECT_FALSE(std::isnan(v));
  EXPECT_TRUE(matches(cs));
}

TEST(Gemm, AllSixFlagLettersOnEachOperand) {
  unsigned seed = 400;
  const char letters[] = {'N', 'n', 'T', 't', 'C', 'c'};
  for (char ta : letters)
    for (char tb : letters) {
      Case cs(ta, tb, 11, 10, 13, 0.3, 2.0, 1, seed);
      Case upper(is_n(ta) ? 'N' : 'T', is_n(tb) ? 'N' : 'T', 11, 10, 13, 0.3, 2.0, 1, seed++);
      std::vector<double> got, want;
      cs.run_qkm(got);
      upper.run_statement(want);
      EXPECT_TRUE(same(cs, got, want)) << ta << tb;
    }
}

TEST(Gemm, StatementAgreesWithTheReferenceDgemm) {
  unsigned seed = 500;
  for (const char *f : {"NN", "NT", "TN", "TT"})
    for (auto [m, n, k] : {std::tuple{33, 37, 250}, {5, 130, 7}, {100, 4, 101}}) {
      Case cs(f[0], f[1], m, n, k, 0.8, -0.4, 2, seed++);
      std::vector<double> mine, ref = cs.c;
      cs.run_statement(mine);
      dgemm_(&cs.ta, &cs.tb, &m, &n, &k, &cs.alpha, cs.a.data(), &cs.lda, cs.b.data(), &cs.ldb,
             &cs.beta, ref.data(), &cs.ldc, 1, 1);
      for (int j = 0; j < n; ++j)
        for (int i = 0; i < m; ++i) {
          const size_t at = i + static_cast<size_t>(j) * cs.ldc;
          // |terms| are below 1, so the rounding error stays below (k+2) ulp of 1.
          EXPECT_NEAR(mine[at], ref[at], (k + 2) * 2.3e-16) << cs.name();
        }
    }
}

TEST(Gemm, QuickReturnsComeBeforeTheChecks) {
  double c = 5.0;
  const double one_d = 1.0, two = 2.0;
  const qkm_int zero = 0, one = 1, bad = -7;
  // m = 0 or n = 0: nothing checked, nothing touched
  eagemm("X", "Y", &zero, &bad, &bad, &two, nullptr, &zero, nullptr, &zero, &two, &c, &zero, 1, 1);
  eagemm("X", "Y", &bad, &zero, &bad, &two, nullptr, &zero, nullptr, &zero, &two, &c, &zero, 1, 1);
  // alpha = 0 or k = 0 with beta = 1
  eagemm("X", "Y", &one, &one, &zero, &two, nullptr, &zero, nullptr, &zero, &one_d, &c, &zero, 1, 1);
  const double zero_d = 0.0;
  eagemm("X", "Y", &one, &one, &bad, &zero_d, nullptr, &zero, nullptr, &zero, &one_d, &c, &zero, 1, 1);
  EXPECT_EQ(c, 5.0);
}

TEST(Gemm, ScaleOnlyPathReadsNeitherOperandAndKeepsGaps) {
  const qkm_int m = 3, n = 4, k = 6, ldc = 5, lda = 3, ldb = 6;
  const double zero = 0.0, three = 3.0;
  std::vector<double> c(static_cast<size_t>(ldc) * n, sentinel());
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) c[i + j * ldc] = i + 10.0 * j;
  c[1] = kNaN;
  eagemm("N", "N", &m, &n, &k, &zero, nullptr, &lda, nullptr, &ldb, &three, c.data(), &ldc, 1, 1);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < ldc; ++i) {
      const double v = c[i + j * ldc];
      if (i >= m)
        EXPECT_TRUE(is_sentinel(v));
      else if (i != 1 || j != 0)
        EXPECT_EQ(v, 3.0 * (i + 10.0 * j));
    }
  EXPECT_TRUE(std::isnan(c[1]));
  // beta = 0: C becomes zero without being read; k = 0 also takes this path
  const double alpha = 2.0;
  const qkm_int k0 = 0;
  eagemm("T", "C", &m, &n, &k0, &alpha, nullptr, &k, nullptr, &ldb, &zero, c.data(), &ldc, 1, 1);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < ldc; ++i) {
      const double v = c[i + j * ldc];
      if (i >= m)
        EXPECT_TRUE(is_sentinel(v));
      else
        EXPECT_EQ(bits(v), bits(0.0));
    }
}

TEST(Gemm, ScaleOnlyCountWrapsIn32Bits) {
  // m = ldc = 65536: one call over m*n elements, the count formed modulo 2^32.
  const qkm_int m = 65536, one = 1;
  const double zero = 0.0, two = 2.0;
  std::vector<double> c(70000, 1.0);
  qkm_int n = 65537;  // 2^32 + 65536 -> 65536 elements
  eagemm("N", "N", &m, &n, &one, &zero, nullptr, &m, nullptr, &one, &two, c.data(), &m, 1, 1);
  for (size_t i = 0; i < c.size(); ++i) ASSERT_EQ(c[i], i < 65536 ? 2.0 : 1.0) << i;
  eagemm("N", "N", &m, &n, &one, &zero, nullptr, &m, nullptr, &one, &zero, c.data(), &m, 1, 1);
  for (size_t i = 0; i < c.size(); ++i) ASSERT_EQ(c[i], i < 65536 ? 0.0 : 1.0) << i;
  n = 32768;  // 2^31: a negative count, which e_dscal takes as empty
  c.assign(c.size(), 1.0);
  eagemm("N", "N", &m, &n, &one, &zero, nullptr, &m, nullptr, &one, &two, c.data(), &m, 1, 1);
  for (size_t i = 0; i < c.size(); ++i) ASSERT_EQ(c[i], 1.0) << i;
}

TEST(GemmDeathTest, EachBadArgumentStops) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const qkm_int m = 3, n = 4, k = 5, neg = -1;
  std::vector<double> a(100), b(100), c(100);
  const double alpha = 1.0, beta = 0.0, two = 2.0, zero = 0.0;
  auto call = [&](const char *ta, const char *tb, qkm_int mm, qkm_int nn, qkm_int kk,
                  qkm_int lda, qkm_int ldb, qkm_int ldc, const double *al = nullptr,
                  const double *be = nullptr) {
    eagemm(ta, tb, &mm, &nn, &kk, al ? al : &alpha, a.data(), &lda, b.data(), &ldb,
           be ? be : &beta, c.data(), &ldc, 1, 1);
  };
  const char *msg = "^DGEMM FATAL ERROR\n$";
  auto stops = ::testing::ExitedWithCode(1);
  EXPECT_EXIT(call("X", "N", m, n, k, 3, 5, 3), stops, msg);
  EXPECT_EXIT(call("N", "x", m, n, k, 3, 5, 3), stops, msg);
  EXPECT_EXIT(call("N", "N", neg, n, k, 3, 5, 3), stops, msg);
  EXPECT_EXIT(call("N", "N", m, neg, k, 3, 5, 3), stops, msg);
  EXPECT_EXIT(call("N", "N", m, n, neg, 3, 5, 3), stops, msg);
  EXPECT_EXIT(call("N", "N", m, n, k, 2, 5, 3), stops, msg);   // lda < m
  EXPECT_EXIT(call("T", "N", m, n, k, 4, 5, 3), stops, msg);   // lda < k (though >= m)
  EXPECT_EXIT(call("N", "N", m, n, k, 3, 4, 3), stops, msg);   // ldb < k
  EXPECT_EXIT(call("N", "T", m, n, 2, 3, 3, 3), stops, msg);   // ldb < n (though >= k)
  EXPECT_EXIT(call("N", "N", m, n, k, 3, 5, 2), stops, msg);   // ldc < m
  EXPECT_EXIT(call("N", "N", 1, n, 0, 0, 1, 1, &alpha, &two), stops, msg);  // lda < 1
  // k = 0 with beta = 2 and a bad flag; alpha = 0 and beta = 0 with lda too small
  EXPECT_EXIT(call("N", "Q", m, n, 0, 3, 1, 3, &alpha, &two), stops, msg);
  EXPECT_EXIT(call("N", "N", m, n, k, 1, 5, 3, &zero, &zero), stops, msg);
  // the same arguments made valid do not stop
  call("N", "N", m, n, k, 3, 5, 3);
  call("t", "c", m, n, k, 5, 4, 3);
}

TEST(Gemm, ThreadsWorkOnTheirOwnPanels) {
  std::vector<Case> cases;
  std::vector<std::vector<double>> want(4);
  for (int t = 0; t < 4; ++t) {
    cases.emplace_back(t % 2 ? 'T' : 'N', t < 2 ? 'T' : 'N', 70 + t, 90 - t, 230 + 3 * t,
                       0.5 + t, 0.25, t, 900 + t);
    cases.back().run_statement(want[t]);
  }
  std::vector<int> failures(4, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      std::vector<double> got;
      for (int round = 0; round < 20; ++round) {
        cases[t].run_qkm(got);
        if (!same(cases[t], got, want[t])) ++failures[t];
      }
    });
  for (auto &th : threads) th.join();
  for (int t = 0; t < 4; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;
}

TEST(Gemm, SignedZerosFollowTheStartValueAndTheSplit) {
  // All products are -0.0 and C starts at -0.0 with beta = 1: e keeps -0.0, o = +0.0 + -0.0
  // is +0.0, so the sign of the result tells whether and where e + o was formed.
  for (int k : {1, 2, 3, 8, 9, 101}) {
    Case cs('N', 'T', 6, 7, k, 1.0, 1.0, 1, 1);
    for (int j = 0; j < k; ++j)
      for (int i = 0; i < 6; ++i) cs.a[i + static_cast<size_t>(j) * cs.lda] = 0.0;
    for (int j = 0; j < k; ++j)
      for (int i = 0; i < 7; ++i) cs.b[i + static_cast<size_t>(j) * cs.ldb] = -1.0;
    for (int j = 0; j < 7; ++j)
      for (int i = 0; i < 6; ++i) cs.c[i + static_cast<size_t>(j) * cs.ldc] = -0.0;
    std::vector<double> want;
    cs.run_statement(want);
    EXPECT_EQ(bits(want[0]), bits(k == 1 ? -0.0 : 0.0)) << k;  // an e/o element
    EXPECT_EQ(bits(want[5 + 6 * cs.ldc]), bits(k < 8 ? -0.0 : 0.0)) << k;  // a 1x1 element
    EXPECT_TRUE(matches(cs));
  }
}
