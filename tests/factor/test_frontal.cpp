// Frontal L*D*L^T elimination: bit for bit against a plain block-by-block statement, the
// pivot checks and refusals, the running totals, and a real chained elimination of a
// finite-difference Laplacian in fronts checked against a dense factorisation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "kernels.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

long fpos(int n, int i, int j) { return static_cast<long>(j - 1) * (2 * n - j) / 2 + i - 1; }

struct State {
  double minratio = 1e300;
  int ipiv = 0, naccept = 0;
  float work1 = 0, work2 = 0;
  int ierr = -5;
  int result = -5;
};

// The elimination as a plain statement, block after block, the trailing update on column
// pairs exactly as the blocks of three, two and one are defined.
void oracle(int n, int p, std::vector<double> &f, const std::vector<double> &diag0,
            double tolabs, double tolratio, State &st) {
  st.ierr = 0;
  const double dn = n, dp = p, s = (1 + dp) * dp;
  double f1 = (dp + dp) * dn - dp * dp;
  f1 = f1 + (dn * dn + 2) * dp;
  f1 = f1 - (dn + dn + 1) * s * 0.5;
  f1 = f1 + (dp + dp + 1) * s / 6;
  const double f2 = (dn * dp - s * 0.5) * 4 + dp;
  st.work1 = st.work1 + static_cast<float>(f1);
  st.work2 = st.work2 + static_cast<float>(f2);
  const long z = static_cast<long>(p) * n - static_cast<long>(p) * (p + 1) / 2;

  int code = 0;
  long failed = 0;
  auto check = [&](double &piv, double &rc) {
    const double d = piv;
    st.ipiv += 1;
    failed = &piv - f.data();
    if (tolabs > std::fabs(d)) {
      st.minratio = d;
      return code = 6;
    }
    const double r = d / diag0[st.ipiv - 1];
    if (!(st.minratio <= r)) st.minratio = r;
    if (tolratio >= r) {
      piv = r;
      return code = 34;
    }
    st.naccept += 1;
    rc = 1.0 / d;
    return 0;
  };

  int col = 1;
  while (col <= p && code == 0) {
    const int m = n - col + 1;
    const int size = p - col + 1 >= 3 ? 3 : p - col + 1;
    auto A = [&](int r, int c) -> double & { return f[fpos(n, col - 1 + r, col - 1 + c)]; };
    double d[3], rc[3], a21 = 0, a31 = 0, t = 0;
    if (check(A(1, 1), rc[0])) break;
    d[0] = A(1, 1);
    if (size >= 2) {
      a21 = A(2, 1);
      const double l21 = rc[0] * a21;
      A(2, 1) = l21;
      A(2, 2) = A(2, 2) - l21 * a21;
      if (check(A(2, 2), rc[1])) break;
      d[1] = A(2, 2);
    }
    if (size == 3) {
      a31 = A(3, 1);
      const double l31 = rc[0] * a31;
      A(3, 1) = l31;
      t = A(3, 2) - l31 * a21;
      const double l32 = rc[1] * t;
      A(3, 2) = l32;
      A(3, 3) = A(3, 3) - l31 * a31 - l32 * t;
      if (check(A(3, 3), rc[2])) break;
      d[2] = A(3, 3);
    }
    for (int j = size + 1; j <= m; ++j) {
      const double l1 = A(j, 1) * rc[0];
      A(j, 1) = l1;
      if (size >= 2) {
        const double l2 = (A(j, 2) - l1 * a21) * rc[1];
        A(j, 2) = l2;
        if (size == 3) A(j, 3) = (A(j, 3) - l1 * a31 - l2 * t) * rc[2];
      }
    }
    double nd[3];
    for (int k = 0; k < size; ++k) nd[k] = -d[k];
    int c = size + 1;
    for (; c + 1 <= m; c += 2) {
      double u[3], w[3];
      for (int k = 0; k < size; ++k) {
        u[k] = nd[k] * A(c, k + 1);
        w[k] = nd[k] * A(c + 1, k + 1);
      }
      double acc = A(c, 1) * u[0] + A(c, c);
      for (int k = 1; k < size; ++k) acc = acc + A(c, k + 1) * u[k];
      A(c, c) = acc;
      for (int i = c + 1; i <= m; ++i) {
        double x = u[0] * A(i, 1) + A(i, c);
        double y = w[0] * A(i, 1) + A(i, c + 1);
        for (int k = 1; k < size; ++k) {
          x = x + u[k] * A(i, k + 1);
          y = y + w[k] * A(i, k + 1);
        }
        A(i, c) = x;
        A(i, c + 1) = y;
      }
    }
    if (c == m) {  // one column left over: its diagonal alone
      double x = A(m, m);
      for (int k = 0; k < size; ++k) x = x - d[k] * (A(m, k + 1) * A(m, k + 1));
      A(m, m) = x;
    }
    col += size;
  }
  if (code != 0) {
    for (long i = failed + 1; i < z; ++i) f[i] = 0.0;
    st.ierr = code;
    st.result = 1;
  } else {
    st.result = 0;
  }
}

State run(int n, int p, std::vector<double> &f, const std::vector<double> &diag0, double tolabs,
          double tolratio, State st) {
  qkm_int nn = n, pp = p, ipiv = st.ipiv, nacc = st.naccept, ierr = st.ierr;
  st.result = easlff_nt(&nn, &pp, f.data(), &st.minratio, diag0.data(), &tolabs, &tolratio,
                        &ipiv, &nacc, &st.work1, &st.work2, &ierr);
  st.ipiv = ipiv;
  st.naccept = nacc;
  st.ierr = ierr;
  return st;
}

// A symmetric positive-definite front, and its diagonal.
std::vector<double> spd_front(int n, unsigned seed, std::vector<double> *diag) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  std::vector<double> b(static_cast<size_t>(n) * n);
  for (auto &v : b) v = u(rng);
  std::vector<double> f(static_cast<size_t>(n) * (n + 1) / 2);
  diag->assign(n, 0);
  for (int j = 1; j <= n; ++j)
    for (int i = j; i <= n; ++i) {
      double s = 0;
      for (int m = 0; m < n; ++m) s += b[(i - 1) * n + m] * b[(j - 1) * n + m];
      f[fpos(n, i, j)] = s / n + (i == j ? 0.5 : 0.0);
      if (i == j) (*diag)[j - 1] = f[fpos(n, i, j)];
    }
  return f;
}

void expect_same(const std::vector<double> &want, const std::vector<double> &got,
                 const State &ws, const State &gs) {
  ASSERT_EQ(want.size(), got.size());
  for (size_t i = 0; i < want.size(); ++i)
    ASSERT_EQ(bits(want[i]), bits(got[i])) << "position " << i + 1;
  EXPECT_EQ(bits(ws.minratio), bits(gs.minratio));
  EXPECT_EQ(ws.ipiv, gs.ipiv);
  EXPECT_EQ(ws.naccept, gs.naccept);
  EXPECT_EQ(ws.ierr, gs.ierr);
  EXPECT_EQ(ws.result, gs.result);
  EXPECT_EQ(ws.work1, gs.work1);
  EXPECT_EQ(ws.work2, gs.work2);
}

std::vector<int> pivot_counts(int n) {
  if (n <= 13) {
    std::vector<int> all;
    for (int p = 0; p <= n; ++p) all.push_back(p);
    return all;
  }
  std::vector<int> some;
  for (int p : {1, 2, 3, 4, 23, 24, 25, 26, 27, 50, n - 2, n - 1, n})
    if (p <= n) some.push_back(p);
  return some;
}

}  // namespace

// Every block size, every m parity, panels of several blocks, on every instruction set.
TEST(EaslffNt, MatchesBlockStatementBitForBit) {
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel lv(level);
    for (int n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 37, 64, 101}) {
      for (int p : pivot_counts(n)) {
        std::vector<double> diag0;
        const auto f = spd_front(n, 10 * n + p, &diag0);
        auto want = f, got = f;
        State init;
        init.ipiv = 0;
        init.work1 = 3.5f;
        State ws = init;
        oracle(n, p, want, diag0, 1e-12, 1e-6, ws);
        const State gs = run(n, p, got, diag0, 1e-12, 1e-6, init);
        ASSERT_EQ(ws.result, 0);
        SCOPED_TRACE(testing::Message() << "level " << level << " n " << n << " p " << p);
        expect_same(want, got, ws, gs);
        EXPECT_EQ(gs.ipiv, p);
        EXPECT_EQ(gs.naccept, p);
      }
    }
  }
}

// Refusals at the first, second and third pivot of a block, in the first panel and later:
// the accepted blocks applied everywhere, the clearing up to Z and not beyond, the ratio
// or the pivot left at the pivot's position, the running totals.
TEST(EaslffNt, RefusalsLeaveTheBlockState) {
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel lv(level);
    for (int n : {6, 13, 64}) {
      for (int q : {1, 2, 3, 4, 5, 6, 25, 26, 27, 40}) {
        for (int code : {6, 34}) {
          const int p = n;
          if (q > p) continue;
          std::vector<double> diag0;
          auto f = spd_front(n, 77 + q, &diag0);
          double tolabs = 1e-300, tolratio = 0.0;
          if (code == 6) {
            // variable q decoupled and zero: its pivot is exactly zero
            for (int j = 1; j <= n; ++j)
              f[j <= q ? fpos(n, q, j) : fpos(n, j, q)] = 0.0;
          } else {
            diag0[q - 1] = -diag0[q - 1];  // the ratio turns negative
          }
          auto want = f, got = f;
          State init;
          init.minratio = 7.0;
          init.ipiv = 0;
          State ws = init;
          oracle(n, p, want, diag0, tolabs, tolratio, ws);
          ASSERT_EQ(ws.result, 1);
          ASSERT_EQ(ws.ierr, code);
          const State gs = run(n, p, got, diag0, tolabs, tolratio, init);
          SCOPED_TRACE(testing::Message() << "n " << n << " q " << q << " code " << code);
          expect_same(want, got, ws, gs);
          EXPECT_EQ(gs.ipiv, q);
          EXPECT_EQ(gs.naccept, q - 1);
          const double piv = got[fpos(n, q, q)];
          if (code == 6) {
            EXPECT_EQ(bits(gs.minratio), bits(piv));  // the pivot itself, unchanged
          } else {
            EXPECT_LT(piv, 0.0);  // the ratio stands at the pivot's position
            EXPECT_EQ(bits(gs.minratio), bits(piv));
          }
        }
      }
    }
  }
}

// The clearing stops p positions short of the end of the pivot columns.
TEST(EaslffNt, ClearingStopsShortOfThePivotColumns) {
  const int n = 6, p = 3;
  std::vector<double> diag0;
  auto f = spd_front(n, 3, &diag0);
  diag0[0] = -1.0;  // first pivot refused by its ratio
  auto before = f;
  State st;
  st = run(n, p, f, diag0, 0.0, 0.0, st);
  ASSERT_EQ(st.result, 1);
  EXPECT_EQ(st.ierr, 34);
  const long z = static_cast<long>(p) * n - p * (p + 1) / 2;      // 12
  const long end = static_cast<long>(p) * n - p * (p - 1) / 2;    // 15
  EXPECT_EQ(f[0], before[0] / -1.0);
  for (long i = 1; i < z; ++i) EXPECT_EQ(bits(f[i]), bits(0.0)) << i + 1;
  for (long i = z; i < static_cast<long>(f.size()); ++i)
    EXPECT_EQ(bits(f[i]), bits(before[i])) << i + 1;
  EXPECT_EQ(end, 15);
}

TEST(EaslffNt, PivotChecksAtTheirBoundaries) {
  std::vector<double> one = {2.0}, diag0 = {4.0};
  State st;
  // |d| equal to tolabs passes; a ratio equal to tolratio is refused.
  st = run(1, 1, one, diag0, 2.0, 0.25, st);
  EXPECT_EQ(st.result, 0);
  EXPECT_EQ(st.ierr, 0);
  EXPECT_EQ(st.minratio, 0.5);
  one = {2.0};
  st = State();
  st = run(1, 1, one, diag0, 0.0, 0.5, st);
  EXPECT_EQ(st.result, 1);
  EXPECT_EQ(st.ierr, 34);
  EXPECT_EQ(one[0], 0.5);  // n = p = 1: the ratio, nothing cleared
  EXPECT_EQ(st.ipiv, 1);
  EXPECT_EQ(st.naccept, 0);
  // a zero pivot with tolabs 0 falls to the ratio check
  one = {0.0};
  st = State();
  st = run(1, 1, one, diag0, 0.0, 0.0, st);
  EXPECT_EQ(st.ierr, 34);
  EXPECT_EQ(st.minratio, 0.0);
  // code 6 overwrites minratio with the pivot
  one = {-1e-9};
  st = State();
  st.minratio = -50;
  st = run(1, 1, one, diag0, 1e-6, 0.0, st);
  EXPECT_EQ(st.ierr, 6);
  EXPECT_EQ(st.minratio, -1e-9);
  EXPECT_EQ(one[0], -1e-9);
}

TEST(EaslffNt, NaNPivotPassesBothChecks) {
  std::vector<double> f = {kNaN, 1.0, 3.0}, diag0 = {1.0, 3.0};
  State st;
  st.minratio = 0.1;
  st = run(2, 1, f, diag0, 1.0, 0.5, st);
  EXPECT_EQ(st.result, 0);
  EXPECT_EQ(st.naccept, 1);
  EXPECT_TRUE(std::isnan(st.minratio));
  EXPECT_TRUE(std::isnan(f[2]));
  // a NaN in minratio is replaced by the next ratio
  std::vector<double> g = {2.0};
  diag0 = {kNaN, 4.0};  // read at the running pivot number, now 2
  st = run(1, 1, g, diag0, 0.0, 0.0, st);
  EXPECT_EQ(st.minratio, 0.5);
}

TEST(EaslffNt, WorkMeasuresAndEmptyCall) {
  std::vector<double> f(6, qkm_test::sentinel()), diag0(3, 1.0);
  State st;
  st.work1 = 1.0f;
  st.work2 = 2.0f;
  st = run(3, 0, f, diag0, 0, 0, st);
  EXPECT_EQ(st.result, 0);
  EXPECT_EQ(st.ierr, 0);
  EXPECT_EQ(st.work1, 1.0f);
  EXPECT_EQ(st.work2, 2.0f);
  for (double v : f) EXPECT_TRUE(qkm_test::is_sentinel(v));
  // n = p = 3: F1 = 14, F2 = 15; added although the call is refused at once.
  f = {1, 0, 0, 1, 0, 1};
  diag0 = {-1, 1, 1};
  st = run(3, 3, f, diag0, 0, 0, st);
  EXPECT_EQ(st.ierr, 34);
  EXPECT_EQ(st.work1, 15.0f);
  EXPECT_EQ(st.work2, 17.0f);
  // single-precision accumulation: 2^25 + 14 rounds to 2^25 + 16
  f = {4, 0, 0, 4, 0, 4};
  diag0 = {4, 4, 4};
  st = State();
  st.work1 = 33554432.0f;
  st = run(3, 3, f, diag0, 0, 0, st);
  EXPECT_EQ(st.work1, 33554448.0f);
}

// ---- a real chained elimination -----------------------------------------------------------
// The 5-point Laplacian on a g x g grid, ordered by nested dissection; each node of the
// dissection tree is a front: its own variables first, then the variables of the ancestors'
// separators that border its region. Fronts are eliminated leaves first, each receiving its
// children's Schur complements, with ipiv, naccept, minratio and the work measures chained.
namespace {

struct Node {
  std::vector<int> own;       // grid points eliminated here
  std::vector<int> region;    // all points of the subtree
  std::vector<int> children;
};

void dissect(int x0, int x1, int y0, int y1, int g, std::vector<Node> &tree, int &root) {
  Node node;
  const int w = x1 - x0, h = y1 - y0;
  for (int y = y0; y < y1; ++y)
    for (int x = x0; x < x1; ++x) node.region.push_back(y * g + x);
  if (w * h <= 6) {
    node.own = node.region;
  } else if (w >= h) {
    const int xm = x0 + w / 2;
    int a, b;
    dissect(x0, xm, y0, y1, g, tree, a);
    dissect(xm + 1, x1, y0, y1, g, tree, b);
    node.children = {a, b};
    for (int y = y0; y < y1; ++y) node.own.push_back(y * g + xm);
  } else {
    const int ym = y0 + h / 2;
    int a, b;
    dissect(x0, x1, y0, ym, g, tree, a);
    dissect(x0, x1, ym + 1, y1, g, tree, b);
    node.children = {a, b};
    for (int x = x0; x < x1; ++x) node.own.push_back(ym * g + x);
  }
  tree.push_back(node);
  root = static_cast<int>(tree.size()) - 1;
}

}  // namespace

TEST(EaslffNt, ChainedFrontsOfALaplacianMatchADenseFactorisation) {
  const int g = 13, N = g * g;
  std::vector<Node> tree;
  int root = 0;
  dissect(0, g, 0, g, g, tree, root);

  // elimination order: the tree is stored in post-order already
  std::vector<int> order, rank(N);
  for (const auto &nd : tree)
    for (int v : nd.own) order.push_back(v);
  ASSERT_EQ(static_cast<int>(order.size()), N);
  for (int i = 0; i < N; ++i) rank[order[i]] = i;

  auto a_entry = [&](int u, int v) {
    if (u == v) return 4.0 + 0.01 * (u % 7);
    const int ux = u % g, uy = u / g, vx = v % g, vy = v / g;
    return std::abs(ux - vx) + std::abs(uy - vy) == 1 ? -1.0 : 0.0;
  };

  // dense factorisation of the permuted matrix: A = U^T U, so d_j = U_jj^2, l_ij = U_ji/U_jj
  std::vector<double> dense(static_cast<size_t>(N) * N);
  for (int i = 0; i < N; ++i)
    for (int j = 0; j < N; ++j) dense[i + static_cast<size_t>(j) * N] = a_entry(order[i], order[j]);
  std::vector<double> diag0(N);
  for (int i = 0; i < N; ++i) diag0[i] = dense[i + static_cast<size_t>(i) * N];
  int info = 0, nn = N;
  dpotrf_("U", &nn, dense.data(), &nn, &info, 1);
  ASSERT_EQ(info, 0);

  // fronts
  std::map<int, std::pair<std::vector<int>, std::vector<double>>> pending;  // child Schur
  qkm_int ipiv = 0, naccept = 0;
  double minratio = 1e30;
  float work1 = 0, work2 = 0;
  std::vector<double> dvals(N, kNaN), lvals(static_cast<size_t>(N) * N, 0.0);
  std::vector<char> lset(static_cast<size_t>(N) * N, 0);
  for (int t = 0; t < static_cast<int>(tree.size()); ++t) {
    const Node &nd = tree[t];
    std::set<int> inregion(nd.region.begin(), nd.region.end());
    std::set<int> border;
    for (int u : nd.region)
      for (int v : {u - 1, u + 1, u - g, u + g}) {
        if (v < 0 || v >= N || a_entry(u, v) == 0.0 || inregion.count(v)) continue;
        border.insert(v);
      }
    std::vector<int> idx;
    for (int v : nd.own) idx.push_back(rank[v]);
    std::sort(idx.begin(), idx.end());
    std::vector<int> rest;
    for (int v : border) rest.push_back(rank[v]);
    std::sort(rest.begin(), rest.end());
    const int npiv = static_cast<int>(idx.size());
    idx.insert(idx.end(), rest.begin(), rest.end());
    const int n = static_cast<int>(idx.size());
    std::map<int, int> local;
    for (int i = 0; i < n; ++i) local[idx[i]] = i + 1;

    std::vector<double> front(static_cast<size_t>(n) * (n + 1) / 2, 0.0);
    for (int j = 1; j <= n; ++j)
      for (int i = j; i <= n; ++i)
        if (j <= npiv)  // original entries of the variables eliminated here
          front[fpos(n, i, j)] += a_entry(order[idx[i - 1]], order[idx[j - 1]]);
    for (int c : nd.children) {  // extend-add of the children's Schur complements
      auto &[cidx, cs] = pending[c];
      const int m = static_cast<int>(cidx.size());
      for (int j = 1; j <= m; ++j)
        for (int i = j; i <= m; ++i) {
          int li = local.at(cidx[i - 1]), lj = local.at(cidx[j - 1]);
          if (li < lj) std::swap(li, lj);
          front[fpos(n, li, lj)] += cs[fpos(m, i, j)];
        }
      pending.erase(c);
    }

    qkm_int nf = n, np = npiv, ierr = -1;
    const double tolabs = 1e-10, tolratio = 1e-8;
    ASSERT_EQ(ipiv, idx[0]);  // the running pivot number is the global elimination rank
    const qkm_int res = easlff_nt(&nf, &np, front.data(), &minratio, diag0.data(), &tolabs,
                                  &tolratio, &ipiv, &naccept, &work1, &work2, &ierr);
    ASSERT_EQ(res, 0);
    ASSERT_EQ(ierr, 0);
    for (int j = 1; j <= npiv; ++j) {
      dvals[idx[j - 1]] = front[fpos(n, j, j)];
      for (int i = j + 1; i <= n; ++i) {
        lvals[idx[i - 1] + static_cast<size_t>(idx[j - 1]) * N] = front[fpos(n, i, j)];
        lset[idx[i - 1] + static_cast<size_t>(idx[j - 1]) * N] = 1;
      }
    }
    const int m = n - npiv;
    std::vector<double> schur(static_cast<size_t>(m) * (m + 1) / 2);
    for (int j = 1; j <= m; ++j)
      for (int i = j; i <= m; ++i) schur[fpos(m, i, j)] = front[fpos(n, npiv + i, npiv + j)];
    pending[t] = {std::vector<int>(rest.begin(), rest.end()), schur};
  }
  EXPECT_EQ(ipiv, N);
  EXPECT_EQ(naccept, N);

  double dense_min = 1e30;
  for (int j = 0; j < N; ++j) {
    const double ujj = dense[j + static_cast<size_t>(j) * N];
    const double dj = ujj * ujj;
    EXPECT_NEAR(dvals[j], dj, 1e-12 * dj) << "pivot " << j;
    dense_min = std::min(dense_min, dj / diag0[j]);
    for (int i = j + 1; i < N; ++i) {
      const double lij = dense[j + static_cast<size_t>(i) * N] / ujj;
      const size_t k = i + static_cast<size_t>(j) * N;
      if (lset[k])
        EXPECT_NEAR(lvals[k], lij, 1e-12) << i << "," << j;
      else
        EXPECT_NEAR(lij, 0.0, 1e-12) << "fill outside the fronts at " << i << "," << j;
    }
  }
  EXPECT_NEAR(minratio, dense_min, 1e-12);
  EXPECT_GT(work1, 0.0f);
  EXPECT_GT(work2, 0.0f);
}
