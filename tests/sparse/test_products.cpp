// eaxmvm: the worked cases, the symmetric sweeps and the general rows bit for bit against
// plain statements on every instruction set, and a finite-element Laplacian of a hexahedral
// mesh through the symmetric kind, the general kind and a dense product.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "kernels.h"
#include "support/bits.h"
#include "support/hex_mesh.h"

namespace {

using qkm_mesh::SparseRows;
using qkm_test::bits;
using qkm_test::same_bits;
using qkm_test::uniform;
using Vec = std::vector<double>;

void call(qkm_int kind, const SparseRows &m, qkm_int n, qkm_int nrhs, const Vec &x, Vec &y) {
  const qkm_int nterm = static_cast<qkm_int>(m.a.size());
  eaxmvm(&kind, &nterm, &m.nrow, &n, &nrhs, m.col.data(), m.rowend.data(), m.a.data(), x.data(),
         y.data());
}

// One vector of the symmetric kind: each row from a_ii * x_i, each term sent to the earlier
// row and taken into this one, in order of position.
void symmetric_plain(const SparseRows &m, int n, const double *x, double *y) {
  std::fill(y, y + n, 0.0);
  for (int i = 0, p = 0; i < m.nrow; ++i) {
    const int d = m.rowend[i + 1] - 1;
    const double t = x[i];
    double s = m.a[d] * t;
    for (; p < d; ++p) {
      const int c = m.col[p] - 1;
      y[c] = y[c] + t * m.a[p];
      s = s + x[c] * m.a[p];
    }
    y[i] = s;
    p = d + 1;
  }
}

// One vector of the general kind: below eight off-diagonal terms in order; from eight on,
// eight partial sums by the term's place in its row, combined pairwise and added once.
void general_plain(const SparseRows &m, const double *x, double *y) {
  for (int i = 0, p = 0; i < m.nrow; ++i) {
    const int d = m.rowend[i + 1] - 1;
    double s = x[i] * m.a[d];
    if (d - p < 8) {
      for (int q = p; q < d; ++q) s = s + m.a[q] * x[m.col[q] - 1];
    } else {
      double part[8] = {};
      for (int q = p; q < d; ++q) part[(q - p) % 8] += m.a[q] * x[m.col[q] - 1];
      s = s + (((part[0] + part[1]) + (part[2] + part[3])) +
               ((part[4] + part[5]) + (part[6] + part[7])));
    }
    y[i] = s;
    p = d + 1;
  }
}

}  // namespace

// a11 = 2, a21 = 3, a22 = 5, x = (7, 11, 13, 17, 19, 23); 99 marks an element left alone.
TEST(Eaxmvm, WorkedCases) {
  const struct {
    const char *what;
    qkm_int kind, nterm, nrow, n, nrhs;
    Vec a, want;
  } cases[] = {
      {"diagonal, unknown kind, no vector: vector 1 all the same", 9, 3, 3, 3, 0, {2, 3, 5},
       {14, 33, 65, 99, 99, 99}},
      {"diagonal, two vectors", 1, 3, 3, 3, 2, {2, 3, 5}, {14, 33, 65, 34, 57, 115}},
      {"symmetric: a21 used twice", 1, 3, 2, 2, 1, {2, 3, 5}, {47, 76, 99, 99, 99, 99}},
      {"general: a21 not mirrored", 2, 3, 2, 2, 1, {2, 3, 5}, {14, 76, 99, 99, 99, 99}},
      {"symmetric, nrow < n: tail cleared", 1, 4, 2, 3, 1, {2, 3, 5}, {47, 76, 0, 99, 99, 99}},
      {"general, nrow < n: tail kept", 2, 4, 2, 3, 1, {2, 3, 5}, {14, 76, 99, 99, 99, 99}},
      {"symmetric, nrow < n, two vectors", 1, 4, 2, 3, 2, {2, 3, 5}, {47, 76, 0, 34 + 57, 95 + 51, 0}},
      {"unknown kind", 3, 4, 2, 2, 1, {2, 3, 5}, Vec(6, 99)},
  };
  const std::vector<qkm_int> rowend{0, 1, 3}, col{1, 1, 2};
  const Vec x{7, 11, 13, 17, 19, 23};
  for (const auto &c : cases) {
    Vec y(6, 99);
    eaxmvm(&c.kind, &c.nterm, &c.nrow, &c.n, &c.nrhs, col.data(), rowend.data(), c.a.data(),
           x.data(), y.data());
    EXPECT_EQ(y, c.want) << c.what;
  }
}

// The remainder group first, then groups of four: every nrhs from 1 to 9 gives, vector by
// vector, the bits of single-vector calls and of the plain statement, on every level.
TEST(Eaxmvm, SweepsOfFourEqualSingleVectorCallsBitForBit) {
  const SparseRows m = qkm_mesh::hex_laplacian(6, 5, 4, true);
  const int n = m.nrow;
  const Vec x = uniform(static_cast<size_t>(n) * 9, 1);
  Vec want(x.size());
  for (int r = 0; r < 9; ++r) symmetric_plain(m, n, x.data() + r * n, want.data() + r * n);
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel lv(level);
    for (qkm_int nrhs = 1; nrhs <= 9; ++nrhs) {
      Vec y(x.size(), 99), single(x.size(), 99);
      call(1, m, n, nrhs, x, y);
      for (int r = 0; r < nrhs; ++r) {
        const Vec xr(x.begin() + r * n, x.begin() + (r + 1) * n);
        Vec yr(n);
        call(1, m, n, 1, xr, yr);
        std::copy(yr.begin(), yr.end(), single.begin() + r * n);
      }
      const size_t used = static_cast<size_t>(nrhs) * n;
      EXPECT_TRUE(same_bits(Vec(y.begin(), y.begin() + used), Vec(want.begin(), want.begin() + used)))
          << "level " << level << " nrhs " << nrhs;
      EXPECT_TRUE(same_bits(y, single)) << "level " << level << " nrhs " << nrhs;
      if (nrhs < 9) EXPECT_EQ(y[used], 99.0);  // past the last vector: not written
    }
  }
}

// Rows of 7 to 26 off-diagonal terms, in ascending and in shuffled order of columns, and at
// offsets that move every array off its alignment: the same bits on every level.
TEST(Eaxmvm, GeneralRowsFollowTheirFixedSplitOnEveryLevel) {
  SparseRows m = qkm_mesh::hex_laplacian(5, 4, 4, false);
  const int n = m.nrow;
  for (bool shuffled : {false, true}) {
    if (shuffled) {
      std::mt19937 rng(5);
      for (int i = 0, p = 0; i < m.nrow; p = m.rowend[++i]) {
        std::vector<int> order(m.rowend[i + 1] - 1 - p);
        for (size_t k = 0; k < order.size(); ++k) order[k] = p + static_cast<int>(k);
        std::shuffle(order.begin(), order.end(), rng);
        std::vector<int32_t> c;
        Vec v;
        for (int q : order) c.push_back(m.col[q]), v.push_back(m.a[q]);
        std::copy(c.begin(), c.end(), m.col.begin() + p);
        std::copy(v.begin(), v.end(), m.a.begin() + p);
      }
    }
    const Vec x = uniform(static_cast<size_t>(n) * 3 + 1, 2);
    Vec want(x.size(), 99);
    for (int r = 0; r < 3; ++r) general_plain(m, x.data() + 1 + r * n, want.data() + 1 + r * n);
    for (int level : qkm_test::simd_levels()) {
      qkm_test::SimdLevel lv(level);
      Vec y(x.size(), 99);
      const qkm_int kind = 2, nterm = static_cast<qkm_int>(m.a.size()), nrhs = 3, len = n;
      eaxmvm(&kind, &nterm, &m.nrow, &len, &nrhs, m.col.data(), m.rowend.data(), m.a.data(),
             x.data() + 1, y.data() + 1);
      EXPECT_TRUE(same_bits(y, want)) << "level " << level << " shuffled " << shuffled;
    }
  }
}

// The Laplacian through the symmetric kind (lower triangle), the general kind (both
// triangles) and a dense eagemm of the same matrix: equal to rounding, and the rows of a
// constant vector sum to zero.
TEST(Eaxmvm, MeshLaplacianAgreesWithTheDenseProduct) {
  const SparseRows lower = qkm_mesh::hex_laplacian(5, 4, 3, true);
  const SparseRows full = qkm_mesh::hex_laplacian(5, 4, 3, false);
  const int n = full.nrow, nrhs = 5;
  Vec dense(static_cast<size_t>(n) * n, 0.0);
  for (int i = 0, p = 0; i < n; ++i) {
    const int d = full.rowend[i + 1] - 1;
    for (; p < d; ++p) dense[i + static_cast<size_t>(full.col[p] - 1) * n] = full.a[p];
    dense[i + static_cast<size_t>(i) * n] = full.a[d];
    p = d + 1;
  }
  Vec x = uniform(static_cast<size_t>(n) * nrhs, 3);
  std::fill(x.begin(), x.begin() + n, 1.0);
  Vec ys(x.size()), yg(x.size()), yd(x.size());
  call(1, lower, n, nrhs, x, ys);
  call(2, full, n, nrhs, x, yg);
  const double one = 1, zero = 0;
  eagemm("N", "N", &n, &nrhs, &n, &one, dense.data(), &n, x.data(), &n, &zero, yd.data(), &n, 1, 1);
  for (size_t k = 0; k < x.size(); ++k) {
    EXPECT_NEAR(ys[k], yd[k], 1e-13) << k;
    EXPECT_NEAR(yg[k], yd[k], 1e-13) << k;
    if (k < static_cast<size_t>(n)) EXPECT_NEAR(ys[k], 0.0, 1e-14) << k;
  }
}
