// Solves with the packed Cholesky factor: the many-vector order bit for bit against a plain
// statement, the one-vector path against the reference LAPACK, refusals and argument edges.
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
using Vec = std::vector<double>;

namespace {

long at(long i, long j) { return i * (i - 1) / 2 + j - 1; }  // L(i,j) packed by rows, 1-based

Vec uniform(size_t len, unsigned seed, double scale) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-scale, scale);
  Vec v(len);
  for (auto &e : v) e = u(rng);
  return v;
}

// A well-conditioned factor L packed by rows.
Vec factor(int n, unsigned seed) {
  Vec ap = uniform(static_cast<size_t>(n) * (n + 1) / 2, seed, 1 / std::sqrt(n));
  for (int i = 1; i <= n; ++i) ap[at(i, i)] += 2.0;
  return ap;
}

// The many-vector path per element of B: forward b(j) - b(i)*L(j,i) for i ascending, then
// / L(j,j); backward b(j) / L(j,j), then b(i) - b(j)*L(j,i) for every i < j, j descending.
void oracle(int n, int nrhs, const Vec &ap, Vec &b, int ldb) {
  auto B = [&](int i, int k) -> double & { return b[(i - 1) + static_cast<size_t>(k) * ldb]; };
  for (int k = 0; k < nrhs; ++k) {
    for (int j = 1; j <= n; ++j) {
      for (int i = 1; i < j; ++i) B(j, k) = B(j, k) - B(i, k) * ap[at(j, i)];
      B(j, k) = B(j, k) / ap[at(j, j)];
    }
    for (int j = n; j >= 1; --j) {
      B(j, k) = B(j, k) / ap[at(j, j)];
      for (int i = j - 1; i >= 1; --i) B(i, k) = B(i, k) - B(j, k) * ap[at(j, i)];
    }
  }
}

}  // namespace

// Row counts across the 8-row tiles and the 256-row panel chunks, right-hand sides across the
// 8-column tiles; rows past n hold sentinels and info stays untouched on success.
TEST(Dpptrs, ManyVectorsMatchTheStatedOrderBitForBit) {
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel lv(level);
    for (int n : {1, 2, 3, 7, 8, 9, 13, 16, 17, 37, 300})
      for (int nrhs : {2, 3, 8, 9, 17}) {
        const int ldb = n + 3;
        const Vec ap = factor(n, n);
        Vec want = uniform(ldb * nrhs, n + nrhs, 5), got = want;
        for (int k = 0; k < nrhs; ++k)
          for (int i = n; i < ldb; ++i) want[i + k * ldb] = got[i + k * ldb] = sentinel();
        oracle(n, nrhs, ap, want, ldb);
        qkm_int info = 42, nn = n, nr = nrhs, lb = ldb;
        e_dpptrs("U", &nn, &nr, ap.data(), got.data(), &lb, &info, 1);
        EXPECT_EQ(info, 42);
        for (size_t e = 0; e < got.size(); ++e)
          ASSERT_EQ(bits(want[e]), bits(got[e]))
              << level << " n " << n << " nrhs " << nrhs << " at " << e;
      }
  }
}

// The one-vector path solves within rounding, gives the same bits on every instruction set,
// and is what dpptrs_2 does for one right-hand side, whatever ldb says; info stays untouched.
TEST(Dpptrs, OneVectorAgreesWithReferenceAndAcrossInstructionSets) {
  for (int n : {1, 2, 7, 31, 32, 33, 64, 101, 257}) {
    const Vec ap = factor(n, 3 * n), b0 = uniform(n, n, 5);
    Vec ref = b0, base;
    int info = 0, one = 1, nn = n, ldb = 0, lap = -1;
    dpptrs_("U", &nn, &one, ap.data(), ref.data(), &nn, &info, 1);
    for (int level : qkm_test::simd_levels()) {
      qkm_test::SimdLevel lv(level);
      Vec x = b0, y = b0;
      eacort(&lap, &nn, ap.data(), x.data());
      dpptrs_2("u", &nn, &one, ap.data(), y.data(), &ldb, &info, 1);
      if (base.empty()) base = x;
      for (int i = 0; i < n; ++i) {
        EXPECT_NEAR(x[i], ref[i], 1e-12 * (1 + std::fabs(ref[i])));
        ASSERT_TRUE(bits(base[i]) == bits(x[i]) && bits(x[i]) == bits(y[i])) << level << " " << i;
      }
    }
    EXPECT_EQ(info, 0);
  }
}

TEST(Dpptrs, RefusalAndEdges) {
  const Vec ap = {2, 1, 3}, zero = {0.0};
  Vec b = {sentinel(), sentinel()};
  qkm_int n = 2, one = 1, none = 0, ldb = 2, info = 77;
  dpptrs_2("U", &n, &none, ap.data(), b.data(), &ldb, &info, 1);  // no right-hand side
  EXPECT_EQ(info, 77);
  dpptrs_2("L", &n, &one, ap.data(), b.data(), &ldb, &info, 1);  // the lower form is refused
  EXPECT_EQ(info, 1);
  EXPECT_TRUE(is_sentinel(b[0]) && is_sentinel(b[1]));
  n = ldb = 1;
  for (qkm_int r : {1, 2}) {  // a zero on the diagonal is not tested: it divides
    b = {1.0, 1.0};
    dpptrs_2("U", &n, &r, zero.data(), b.data(), &ldb, &info, 1);
    EXPECT_TRUE(std::isinf(b[0]) && std::isinf(b[r - 1])) << r;
  }
}
