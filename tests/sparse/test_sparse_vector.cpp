// Sparse vector kernels: the worked cases of repeated positions and empty work, and random
// vectors with repeated indices bit for bit against the plain statements in order of k.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "kernels.h"
#include "support/bits.h"

namespace {

using qkm_test::bits;
using Vec = std::vector<double>;
using Idx = std::vector<qkm_int>;

}  // namespace

TEST(SparseVector, WorkedCases) {
  const qkm_int two = 2;
  const Idx twice{2, 2};
  const Vec x{3, 5};
  const double one = 1;
  Vec y{10, 20, 30};
  e_daxpyi(&two, &one, x.data(), twice.data(), y.data());
  EXPECT_EQ(y, (Vec{10, 28, 30}));  // repeated positions accumulate
  e_dsctr(&two, x.data(), twice.data(), y.data());
  EXPECT_EQ(y, (Vec{10, 5, 30}));  // the last write stays, the others are kept
  const Idx distinct{3, 1};
  Vec g(2);
  e_dgthr(&two, y.data(), g.data(), distinct.data());
  EXPECT_EQ(g, (Vec{30, 10}));
  Vec back{0, 5, 0};
  e_dsctr(&two, g.data(), distinct.data(), back.data());
  EXPECT_EQ(back, y);  // gather then scatter restores
  EXPECT_EQ(e_ddoti(&two, x.data(), distinct.data(), y.data()), 3 * 30 + 5 * 10.0);

  // Empty work and a = 0.0 read no array; a NaN a is no zero and goes on.
  const double zero = 0, nan = std::numeric_limits<double>::quiet_NaN();
  for (qkm_int nz : {0, -1}) {
    e_daxpyi(&nz, &one, nullptr, nullptr, nullptr);
    e_dgthr(&nz, nullptr, nullptr, nullptr);
    e_dsctr(&nz, nullptr, nullptr, nullptr);
    EXPECT_EQ(bits(e_ddoti(&nz, nullptr, nullptr, nullptr)), bits(0.0));
  }
  e_daxpyi(&two, &zero, nullptr, nullptr, y.data());
  e_daxpyi(&two, &nan, x.data(), distinct.data(), y.data());
  EXPECT_TRUE(std::isnan(y[0]) && std::isnan(y[2]) && y[1] == 5);
}

// Positions drawn from a short vector, so that most of them repeat; negative zeros and a
// NaN payload pass gather and scatter as plain copies.
TEST(SparseVector, RandomRepeatsMatchTheOrderOfKBitForBit) {
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> u(-1, 1);
  for (qkm_int nz : {1, 7, 8, 33, 200}) {
    Vec x(nz), y(17);
    Idx ix(nz);
    for (auto &v : x) v = u(rng);
    for (auto &v : y) v = u(rng);
    for (auto &i : ix) i = 1 + static_cast<qkm_int>(rng() % y.size());
    x[0] = -0.0;
    y[ix[0] - 1] = qkm_test::sentinel();
    const double a = 0.37;

    Vec want = y, got = y;
    for (int k = 0; k < nz; ++k) want[ix[k] - 1] = want[ix[k] - 1] + a * x[k];
    e_daxpyi(&nz, &a, x.data(), ix.data(), got.data());
    for (size_t k = 0; k < y.size(); ++k) EXPECT_EQ(bits(got[k]), bits(want[k])) << nz << " " << k;

    double dot = 0;
    for (int k = 0; k < nz; ++k) dot = dot + x[k] * y[ix[k] - 1];
    EXPECT_EQ(bits(e_ddoti(&nz, x.data(), ix.data(), y.data())), bits(dot)) << nz;

    Vec gathered(nz), scattered = y;
    e_dgthr(&nz, y.data(), gathered.data(), ix.data());
    e_dsctr(&nz, x.data(), ix.data(), scattered.data());
    want = y;
    for (int k = 0; k < nz; ++k) {
      EXPECT_EQ(bits(gathered[k]), bits(y[ix[k] - 1])) << nz << " " << k;
      want[ix[k] - 1] = x[k];
    }
    for (size_t k = 0; k < y.size(); ++k) EXPECT_EQ(bits(scattered[k]), bits(want[k])) << nz;
  }
}
