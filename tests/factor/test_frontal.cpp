// Frontal L*D*L^T elimination: bit for bit against the plain block-by-block statement on every
// instruction set, refusals, pivot-check boundaries, running totals, and a chained
// nested-dissection elimination of a Laplacian against a dense factorisation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <tuple>
#include <vector>

#include "kernels.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;
using Vec = std::vector<double>;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

long fpos(int n, int i, int j) { return static_cast<long>(j - 1) * (2 * n - j) / 2 + i - 1; }

struct State {
  double minratio = 1e300;
  float work1 = 0, work2 = 0;
  qkm_int ipiv = 0, naccept = 0, ierr = -5, result = -5;
};

// Block after block: within a block row by row (its multipliers, then its pivot and checks),
// then the trailing update entry by entry, term by term; a lone last diagonal uses d*(l*l).
void oracle(int n, int p, Vec &f, const Vec &diag0, double tolabs, double tolratio, State &st) {
  const double dn = n, dp = p, s = (1 + dp) * dp;
  double f1 = (dp + dp) * dn - dp * dp;
  f1 = f1 + (dn * dn + 2) * dp;
  f1 = f1 - (dn + dn + 1) * s * 0.5;
  st.work1 = st.work1 + static_cast<float>(f1 + (dp + dp + 1) * s / 6);
  st.work2 = st.work2 + static_cast<float>((dn * dp - s * 0.5) * 4 + dp);
  st.ierr = st.result = 0;
  for (int col = 1; col <= p;) {
    const int m = n - col + 1, size = std::min(3, p - col + 1);
    auto A = [&](int r, int c) -> double & { return f[fpos(n, col - 1 + r, col - 1 + c)]; };
    double d[3], rc[3], b[3][3];
    for (int r = 1; r <= m; ++r)
      for (int k = 1; k <= std::min(r, size); ++k) {
        double x = A(r, k);
        for (int q = 1; q < k; ++q) x = x - A(r, q) * b[q - 1][k - 1];
        if (k < r) {
          if (r <= size) b[k - 1][r - 1] = x;
          A(r, k) = x * rc[k - 1];
          continue;
        }
        double &piv = A(k, k) = x;
        const double ratio = x / diag0[st.ipiv++];
        const int code = tolabs > std::fabs(x) ? 6 : tolratio >= ratio ? 34 : 0;
        if (code == 6)
          st.minratio = x;
        else if (!(st.minratio <= ratio))
          st.minratio = ratio;
        if (code == 34) piv = ratio;
        if (code) {
          const long z = static_cast<long>(p) * n - static_cast<long>(p) * (p + 1) / 2;
          for (long i = &piv - f.data() + 1; i < z; ++i) f[i] = 0.0;
          st.ierr = code, st.result = 1;
          return;
        }
        st.naccept += 1, d[k - 1] = x, rc[k - 1] = 1.0 / x;
      }
    for (int c = size + 1; c <= m; ++c) {
      const bool lone = c == m && (m - size) % 2 == 1;
      for (int i = c; i <= m; ++i)
        for (int k = 1; k <= size; ++k)
          A(i, c) = i == c && lone ? A(i, c) - d[k - 1] * (A(c, k) * A(c, k))
                                   : A(i, c) + (-d[k - 1] * A(c, k)) * A(i, k);
    }
    col += size;
  }
}

State run(qkm_int n, qkm_int p, Vec &f, const Vec &diag0, double tolabs, double tolratio,
          State st) {
  st.result = easlff_nt(&n, &p, f.data(), &st.minratio, diag0.data(), &tolabs, &tolratio, &st.ipiv,
                        &st.naccept, &st.work1, &st.work2, &st.ierr);
  return st;
}
auto key(const State &s) {
  return std::tuple(bits(s.minratio), s.ipiv, s.naccept, s.ierr, s.result, s.work1, s.work2);
}

// A positive-definite front B*B^T/n + I/2 (multipliers of order one, so that any change in
// an order of operations shows in the bits) and its diagonal.
Vec spd_front(int n, unsigned seed, Vec *diag) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  Vec b(n * n), f(n * (n + 1) / 2, 0.0);
  for (auto &v : b) v = u(rng);
  diag->assign(n, 0);
  for (int j = 1; j <= n; ++j)
    for (int i = j; i <= n; ++i) {
      for (int m = 0; m < n; ++m) f[fpos(n, i, j)] += b[(i - 1) * n + m] * b[(j - 1) * n + m] / n;
      if (i == j) (*diag)[j - 1] = f[fpos(n, i, j)] += 0.5;
    }
  return f;
}

}  // namespace

// Every block size and parity of the trailing part, panels of several blocks, refusals
// (zero pivot: 6; negative ratio: 34) at every position of a block in the first and later
// panels, on every instruction set: fronts, clearing and running totals as the statement.
TEST(EaslffNt, MatchesBlockStatementAndItsRefusalsBitForBit) {
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel lv(level);
    for (int n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 37, 64}) {
      for (int q = 0; q <= n; ++q)
        for (int code : {0, 6, 34}) {
          if ((code && q == 0) ||
              !(n <= 13 || q <= 4 || (q >= 23 && q <= 27) || q == 49 || q == 50 || q >= n - 2))
            continue;
          const int p = code ? n : q;
          Vec diag0, f = spd_front(n, 10 * n + q, &diag0);
          if (code == 6)  // variable q decoupled and zero: its pivot is exactly zero
            for (int j = 1; j <= n; ++j) f[fpos(n, std::max(q, j), std::min(q, j))] = 0.0;
          if (code == 34) diag0[q - 1] = -diag0[q - 1];
          State ws{7.0, 3.5f};
          Vec want = f, got = f;
          const State gs = run(n, p, got, diag0, 1e-12, 1e-6, ws);
          oracle(n, p, want, diag0, 1e-12, 1e-6, ws);
          SCOPED_TRACE(testing::Message()
                       << "level " << level << " n " << n << " q " << q << " code " << code);
          ASSERT_EQ(std::tuple(ws.ierr, ws.ipiv, ws.naccept),
                    std::tuple(code, q, code ? q - 1 : q));
          EXPECT_EQ(key(ws), key(gs));
          for (size_t i = 0; i < want.size(); ++i)
            ASSERT_EQ(bits(want[i]), bits(got[i])) << "position " << i + 1;
          if (code) EXPECT_EQ(bits(gs.minratio), bits(got[fpos(n, q, q)]));
        }
    }
  }
}

TEST(EaslffNt, PivotChecksClearingAndWorkMeasures) {
  // Refused first pivot of n = 6, p = 3: the ratio in place, positions 2..Z (Z = 12) zero.
  Vec diag0, f = spd_front(6, 3, &diag0);
  const Vec before = f;
  diag0[0] = -1.0;
  EXPECT_EQ(run(6, 3, f, diag0, 0.0, 0.0, State()).ierr, 34);
  EXPECT_EQ(f[0], before[0] / -1.0);
  for (size_t i = 1; i < f.size(); ++i) EXPECT_EQ(bits(f[i]), bits(i < 12 ? 0.0 : before[i])) << i;
  // n = p = 1: |d| equal to tolabs passes, a ratio equal to tolratio is refused, a zero pivot
  // with tolabs 0 falls to the ratio check, code 6 puts the pivot itself in minratio.
  for (auto [piv, tolabs, tolratio, minratio0, ierr, minratio, after] :
       {std::tuple{2.0, 2.0, 0.25, 1e300, 0, 0.5, 2.0},
        {2.0, 0.0, 0.5, 1e300, 34, 0.5, 0.5},
        {0.0, 0.0, 0.0, 1e300, 34, 0.0, 0.0},
        {-1e-9, 1e-6, 0.0, -50.0, 6, -1e-9, -1e-9}}) {
    Vec one = {piv};
    const State st = run(1, 1, one, diag0 = {4.0}, tolabs, tolratio, State{minratio0});
    EXPECT_EQ(std::tuple(st.ierr, st.ipiv, st.naccept, st.minratio, one[0]),
              std::tuple(ierr, 1, ierr ? 0 : 1, minratio, after))
        << piv;
  }
  // A NaN pivot passes both checks; a NaN minratio is replaced by the next ratio (the ratio
  // reads diag0 at the running pivot number, now 2).
  Vec g = {kNaN, 1.0, 3.0}, two = {2.0};
  State st = run(2, 1, g, diag0 = {1.0, 3.0}, 1.0, 0.5, State());
  EXPECT_EQ(std::tuple(st.result, st.naccept, std::isnan(st.minratio), std::isnan(g[2])),
            std::tuple(0, 1, true, true));
  EXPECT_EQ(run(1, 1, two, diag0 = {kNaN, 4.0}, 0.0, 0.0, st).minratio, 0.5);
  // p = 0 touches nothing; n = p = 3 adds F1 = 14, F2 = 15 even when refused at once; the
  // totals add in single precision (2^25 + 14 rounds to 2^25 + 16).
  Vec sent(6, qkm_test::sentinel()), id = {1, 0, 0, 1, 0, 1};
  st = run(3, 0, sent, diag0 = {1, 1, 1}, 0, 0, State{0, 1.0f, 2.0f});
  EXPECT_EQ(std::tuple(st.ierr, st.work1, st.work2), std::tuple(0, 1.0f, 2.0f));
  for (double v : sent) EXPECT_TRUE(qkm_test::is_sentinel(v));
  st = run(3, 3, id, diag0 = {-1, 1, 1}, 0, 0, st);
  EXPECT_EQ(std::tuple(st.ierr, st.work1, st.work2), std::tuple(34, 15.0f, 17.0f));
  st = run(3, 3, id = {4, 0, 0, 4, 0, 4}, diag0 = {4, 4, 4}, 0, 0, State{0, 33554432.0f});
  EXPECT_EQ(st.work1, 33554448.0f);
}

namespace {

// Nested dissection of a g x g grid; each node owns a separator (or a small leaf region) and
// covers its subtree's region. Nodes come out in post-order.
struct Node {
  std::vector<int> own, region, children;
};
int dissect(int x0, int x1, int y0, int y1, int g, std::vector<Node> &tree) {
  Node nd;
  const bool cut_x = x1 - x0 >= y1 - y0;
  const int xm = (x0 + x1) / 2, ym = (y0 + y1) / 2;
  for (int y = y0; y < y1; ++y)
    for (int x = x0; x < x1; ++x) nd.region.push_back(y * g + x);
  if (nd.region.size() <= 6) {
    nd.own = nd.region;
  } else {
    nd.children = cut_x ? std::vector<int>{dissect(x0, xm, y0, y1, g, tree),
                                           dissect(xm + 1, x1, y0, y1, g, tree)}
                        : std::vector<int>{dissect(x0, x1, y0, ym, g, tree),
                                           dissect(x0, x1, ym + 1, y1, g, tree)};
    for (int u : nd.region)
      if (cut_x ? u % g == xm : u / g == ym) nd.own.push_back(u);
  }
  tree.push_back(nd);
  return static_cast<int>(tree.size()) - 1;
}

}  // namespace

// The 5-point Laplacian eliminated front by front, leaves first: each front holds its own
// variables then the bordering ancestor variables, receives its children's Schur complements,
// and chains ipiv, naccept and minratio. L and D must match dpotrf on the permuted matrix.
TEST(EaslffNt, ChainedFrontsOfALaplacianMatchADenseFactorisation) {
  const int g = 13, N = g * g;
  std::vector<Node> tree;
  dissect(0, g, 0, g, g, tree);
  std::vector<int> order, rank(N), local(N);
  for (const auto &nd : tree) order.insert(order.end(), nd.own.begin(), nd.own.end());
  for (int i = 0; i < N; ++i) rank[order[i]] = i;
  auto entry = [&](int u, int v) {
    if (u == v) return 4.0 + 0.01 * (u % 7);
    return std::abs(u % g - v % g) + std::abs(u / g - v / g) == 1 ? -1.0 : 0.0;
  };
  Vec dense(N * N), diag0(N);
  for (int i = 0; i < N * N; ++i) dense[i] = entry(order[i % N], order[i / N]);
  for (int i = 0; i < N; ++i) diag0[i] = dense[i * (N + 1)];
  int info = 0, nn = N;
  dpotrf_("U", &nn, dense.data(), &nn, &info, 1);  // A = U^T U: d_j = U_jj^2, l_ij = U_ji/U_jj
  ASSERT_EQ(info, 0);

  std::vector<std::vector<int>> idx(tree.size());
  std::vector<Vec> fronts(tree.size());
  State st;
  double dense_min = 1e300;
  for (size_t t = 0; t < tree.size(); ++t) {
    const Node &nd = tree[t];
    std::vector<int> &ix = idx[t];
    for (int u : nd.own) ix.push_back(rank[u]);  // ascending: ranks follow the tree order
    std::set<int> border;  // neighbours outside the region, all on ancestors' separators
    for (int u : nd.region)
      for (int v : {u - 1, u + 1, u - g, u + g})
        if (v >= 0 && v < N && entry(u, v) != 0.0 && rank[v] > ix.back()) border.insert(rank[v]);
    ix.insert(ix.end(), border.begin(), border.end());
    const int n = static_cast<int>(ix.size()), np = static_cast<int>(nd.own.size());
    for (int i = 0; i < n; ++i) local[ix[i]] = i + 1;
    Vec &f = fronts[t];
    f.assign(n * (n + 1) / 2, 0.0);
    for (int j = 1; j <= np; ++j)
      for (int i = j; i <= n; ++i) f[fpos(n, i, j)] = entry(order[ix[i - 1]], order[ix[j - 1]]);
    for (int c : nd.children) {  // extend-add of the child's Schur complement
      const int m = static_cast<int>(idx[c].size()), cp = static_cast<int>(tree[c].own.size());
      for (int j = cp + 1; j <= m; ++j)
        for (int i = j; i <= m; ++i) {
          const int li = local[idx[c][i - 1]], lj = local[idx[c][j - 1]];
          f[fpos(n, std::max(li, lj), std::min(li, lj))] += fronts[c][fpos(m, i, j)];
        }
    }
    ASSERT_EQ(st.ipiv, ix[0]);  // the running pivot number is the global elimination rank
    st = run(n, np, f, diag0, 1e-10, 1e-8, st);
    ASSERT_EQ(st.result, 0);
    for (int j = 1; j <= np; ++j) {
      const double u = dense[ix[j - 1] * (N + 1)];
      EXPECT_NEAR(f[fpos(n, j, j)], u * u, 1e-12 * u * u) << "pivot " << ix[j - 1];
      dense_min = std::min(dense_min, u * u / diag0[ix[j - 1]]);
      for (int i = j + 1; i <= n; ++i)
        EXPECT_NEAR(f[fpos(n, i, j)], dense[ix[j - 1] + ix[i - 1] * N] / u, 1e-12);
    }
  }
  EXPECT_EQ(std::tuple(st.ipiv, st.naccept), std::tuple(N, N));
  EXPECT_NEAR(st.minratio, dense_min, 1e-12);
}
