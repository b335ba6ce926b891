// Solves with the packed Cholesky factor: the many-vector order bit for bit against a plain
// statement, the reference LAPACK within a tolerance, and the refusal and argument edges.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "kernels.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;
using qkm_test::is_sentinel;
using qkm_test::sentinel;

namespace {

long at(long i, long j) { return i * (i - 1) / 2 + j - 1; }  // (i,j) 1-based, j <= i

// A well-conditioned factor L packed by rows.
std::vector<double> factor(int n, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  std::vector<double> ap(static_cast<size_t>(n) * (n + 1) / 2);
  for (int i = 1; i <= n; ++i)
    for (int j = 1; j <= i; ++j) ap[at(i, j)] = i == j ? 2.0 + u(rng) * 0.5 : u(rng) / std::sqrt(n);
  return ap;
}

std::vector<double> random_b(int ldb, int nrhs, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-5, 5);
  std::vector<double> b(static_cast<size_t>(ldb) * (nrhs > 0 ? nrhs : 1));
  for (auto &v : b) v = u(rng);
  return b;
}

// The forward and backward substitutions of the many-vector path, as a plain statement.
void oracle(int n, int nrhs, const std::vector<double> &ap, std::vector<double> &b, int ldb) {
  auto B = [&](int i, int k) -> double & { return b[(i - 1) + static_cast<size_t>(k) * ldb]; };
  for (int j = 1; j <= n; ++j) {
    const long p = at(j, 1);
    for (int i = 1; i <= j - 1; ++i)
      for (int k = 0; k < nrhs; ++k) B(j, k) = B(j, k) - B(i, k) * ap[p + i - 1];
    for (int k = 0; k < nrhs; ++k) B(j, k) = B(j, k) / ap[p + j - 1];
  }
  for (int j = n; j >= 1; --j) {
    const long q = at(j, j);
    for (int k = 0; k < nrhs; ++k) B(j, k) = B(j, k) / ap[q];
    for (int i = j - 1; i >= 1; --i)
      for (int k = 0; k < nrhs; ++k) B(i, k) = B(i, k) - B(j, k) * ap[q - (j - i)];
  }
}

}  // namespace

TEST(Dpptrs, ManyVectorsMatchTheStatedOrderBitForBit) {
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel lv(level);
    for (int n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 16, 37, 64, 101, 300}) {
      for (int nrhs : {2, 3, 8, 9, 17}) {
        const int ldb = n + 3;
        const auto ap = factor(n, n);
        auto want = random_b(ldb, nrhs, n + nrhs), got = want;
        for (int k = 0; k < nrhs; ++k)
          for (int i = n; i < ldb; ++i) got[i + static_cast<size_t>(k) * ldb] = sentinel();
        oracle(n, nrhs, ap, want, ldb);
        qkm_int info = 42, nn = n, nr = nrhs, lb = ldb;
        e_dpptrs("U", &nn, &nr, ap.data(), got.data(), &lb, &info, 1);
        EXPECT_EQ(info, 42);  // untouched on success
        for (int k = 0; k < nrhs; ++k)
          for (int i = 0; i < ldb; ++i) {
            const size_t e = i + static_cast<size_t>(k) * ldb;
            if (i < n)
              ASSERT_EQ(bits(want[e]), bits(got[e]))
                  << "level " << level << " n " << n << " nrhs " << nrhs << " (" << i << "," << k << ")";
            else
              ASSERT_TRUE(is_sentinel(got[e])) << "row " << i << " past n was written";
          }
      }
    }
  }
}

// The single-vector path solves within rounding, gives the same bits on every instruction set,
// and is what dpptrs_2 does for one right-hand side, whatever ldb says.
TEST(Dpptrs, OneVectorAgreesWithReferenceAndAcrossInstructionSets) {
  for (int n : {1, 2, 7, 31, 32, 33, 64, 101, 257}) {
    const auto ap = factor(n, 3 * n);
    const auto b0 = random_b(n, 1, n);
    auto ref = b0;
    int rinfo = 0, one = 1, nn = n;
    dpptrs_("U", &nn, &one, ap.data(), ref.data(), &nn, &rinfo, 1);
    ASSERT_EQ(rinfo, 0);
    std::vector<double> first;
    for (int level : qkm_test::simd_levels()) {
      qkm_test::SimdLevel lv(level);
      auto x = b0;
      qkm_int lap = -1;
      eacort(&lap, &nn, ap.data(), x.data());
      for (int i = 0; i < n; ++i) EXPECT_NEAR(x[i], ref[i], 1e-12 * (1 + std::fabs(ref[i])));
      if (first.empty()) first = x;
      for (int i = 0; i < n; ++i) ASSERT_EQ(bits(first[i]), bits(x[i])) << "level " << level;
      auto y = b0;
      qkm_int ldb = 0, nr = 1, info = 5;
      dpptrs_2("u", &nn, &nr, ap.data(), y.data(), &ldb, &info, 1);
      EXPECT_EQ(info, 5);
      for (int i = 0; i < n; ++i) ASSERT_EQ(bits(x[i]), bits(y[i]));
    }
  }
}

TEST(Dpptrs, FactorFromEaxfchSolvesTheSystem) {
  const int n = 45, nrhs = 4;
  std::mt19937_64 rng(9);
  std::uniform_real_distribution<double> u(-1, 1);
  std::vector<double> a(static_cast<size_t>(n) * (n + 1) / 2);
  for (int i = 1; i <= n; ++i)
    for (int j = 1; j <= i; ++j) a[at(i, j)] = i == j ? n : u(rng);
  auto l = a;
  qkm_int info = -1, k0 = 1, k1 = n;
  double dfail = 0, tol = 0;
  eaxfch(nullptr, &k0, &k1, &tol, l.data(), &info, &dfail);
  ASSERT_EQ(info, 0);
  for (int nr : {1, nrhs}) {
    auto b = random_b(n, nr, 4), x = b;
    qkm_int nn = n, r = nr, ldb = n, st = 0;
    e_dpptrs("U", &nn, &r, l.data(), x.data(), &ldb, &st, 1);
    for (int k = 0; k < nr; ++k)
      for (int i = 1; i <= n; ++i) {
        double s = 0;
        for (int j = 1; j <= n; ++j) s += a[i >= j ? at(i, j) : at(j, i)] * x[(j - 1) + k * n];
        EXPECT_NEAR(s, b[(i - 1) + k * n], 1e-10);
      }
  }
}

TEST(Dpptrs, SmallCasesAndEdges) {
  // n = 2: L = ((2,0),(1,3)), A = ((4,2),(2,10)), b = (6,12): x = (1,1)
  const std::vector<double> ap = {2, 1, 3};
  std::vector<double> b = {6, 12, 6, 12};
  qkm_int n = 2, nrhs = 2, ldb = 2, info = 0;
  dpptrs_2("U", &n, &nrhs, ap.data(), b.data(), &ldb, &info, 1);
  for (double v : b) EXPECT_EQ(v, 1.0);
  // n = 1: (b / ap) / ap
  const std::vector<double> one = {3.0};
  b = {7.0, 5.0};
  n = 1;
  ldb = 1;
  dpptrs_2("U", &n, &nrhs, one.data(), b.data(), &ldb, &info, 1);
  EXPECT_EQ(b[0], (7.0 / 3.0) / 3.0);
  EXPECT_EQ(b[1], (5.0 / 3.0) / 3.0);
  // lower form refused, b untouched
  b = {6, 12};
  n = 2;
  nrhs = 1;
  info = 0;
  dpptrs_2("L", &n, &nrhs, ap.data(), b.data(), &ldb, &info, 1);
  EXPECT_EQ(info, 1);
  EXPECT_EQ(b[0], 6.0);
  EXPECT_EQ(b[1], 12.0);
  // no right-hand side: nothing written, no status
  b = {sentinel(), sentinel()};
  nrhs = 0;
  info = 77;
  dpptrs_2("U", &n, &nrhs, ap.data(), b.data(), &ldb, &info, 1);
  EXPECT_EQ(info, 77);
  EXPECT_TRUE(is_sentinel(b[0]) && is_sentinel(b[1]));
  // a zero on the diagonal is not tested: it divides
  const std::vector<double> zero = {0.0};
  b = {1.0};
  n = 1;
  nrhs = 1;
  dpptrs_2("U", &n, &nrhs, zero.data(), b.data(), &ldb, &info, 1);
  EXPECT_TRUE(std::isinf(b[0]));
}
