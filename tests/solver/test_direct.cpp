// Direct solver and subspace iteration against dense reference LAPACK (dposv, dsygv), on an
// elastic-like operator: every pair of nodes of an element is tied by a spring block
// (E/L)(d d^T + beta I), d the unit vector between them, so the three unknowns of a node
// couple and the clamped operator is positive definite.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "direct.h"
#include "modal.h"

extern "C" {
void dposv_(const char *uplo, const int *n, const int *nrhs, double *a, const int *lda, double *b,
            const int *ldb, int *info, size_t);
void dsygv_(const int *itype, const char *jobz, const char *uplo, const int *n, double *a,
            const int *lda, double *b, const int *ldb, double *w, double *work, const int *lwork,
            int *info, size_t, size_t);
}

namespace {

struct Problem {
  qks::Mesh mesh;
  qks::Dofs dofs;
  qks::NodalGraph graph;
  qks::SymMatrix k;
};

qks::NodalGraph node_graph(const qks::Mesh &m) {
  const qkm_int nn = m.nodes(), ne = m.elements();
  std::vector<qkm_int> nptr(nn + 1), nlist(m.econn.size()), mark(nn), link(nn + 1);
  qks::NodalGraph g;
  g.aptr.resize(nn + 1);
  qkm_int nadj = 0;
  eaupnn(&nn, &ne, nullptr, m.eptr.data(), m.econn.data(), nptr.data(), nlist.data(), mark.data(),
         g.aptr.data(), &nadj);
  g.adj.resize(nadj);
  eaunln(&nn, nullptr, nullptr, m.eptr.data(), m.econn.data(), nptr.data(), nlist.data(),
         link.data(), g.adj.data());
  return g;
}

// Rows by equation: the equations of the row's node and its neighbours below the row, then
// the diagonal.
qks::SymMatrix pattern(const Problem &p) {
  qks::SymMatrix a;
  a.n = p.dofs.count;
  a.rowend.assign(1, 0);
  std::vector<qkm_int> node(a.n);
  for (size_t i = 0; i < p.dofs.eq.size(); ++i)
    if (p.dofs.eq[i] > 0) node[p.dofs.eq[i] - 1] = static_cast<qkm_int>(i / 3);
  for (qkm_int r = 1; r <= a.n; ++r) {
    const qkm_int v = node[r - 1];
    std::vector<qkm_int> cols;
    auto add = [&](qkm_int u) {
      for (int c = 0; c < 3; ++c)
        if (const qkm_int e = p.dofs.eq[3 * u + c]; e > 0 && e < r) cols.push_back(e);
    };
    add(v);
    for (qkm_int q = p.graph.aptr[v]; q < p.graph.aptr[v + 1]; ++q) add(p.graph.adj[q] - 1);
    std::sort(cols.begin(), cols.end());
    cols.push_back(r);
    a.col.insert(a.col.end(), cols.begin(), cols.end());
    a.rowend.push_back(static_cast<qkm_int>(a.col.size()));
  }
  a.a.assign(a.col.size(), 0.0);
  return a;
}

void add_entry(qks::SymMatrix &a, qkm_int r, qkm_int c, double v) {  // equations from 1
  if (r < c) std::swap(r, c);
  const qkm_int *b = a.col.data() + a.rowend[r - 1], *e = a.col.data() + a.rowend[r] - 1;
  const qkm_int *at = r == c ? e : std::lower_bound(b, e, c);
  ASSERT_TRUE(at < e + 1 && (r == c || *at == c)) << r << "," << c;
  a.a[at - a.col.data()] += v;
}

Problem make_problem(const qks::Box &box, bool tets, bool clamp = true) {
  Problem p;
  p.mesh = tets ? qks::make_box_tets(box) : qks::make_box(box);
  if (clamp) {
    p.dofs = qks::clamp_min_x(p.mesh, 1e-9);
  } else {
    p.dofs.count = 3 * p.mesh.nodes();
    p.dofs.eq.resize(p.dofs.count);
    std::iota(p.dofs.eq.begin(), p.dofs.eq.end(), 1);
  }
  p.graph = node_graph(p.mesh);
  p.k = pattern(p);
  const double young = 1.0e3, beta = 0.2;
  for (qkm_int e = 0; e < p.mesh.elements(); ++e)
    for (qkm_int i = p.mesh.eptr[e]; i < p.mesh.eptr[e + 1]; ++i)
      for (qkm_int j = i + 1; j < p.mesh.eptr[e + 1]; ++j) {
        const qkm_int na = p.mesh.econn[i] - 1, nb = p.mesh.econn[j] - 1;
        double d[3], len = 0.0;
        for (int c = 0; c < 3; ++c) {
          d[c] = p.mesh.xyz[3 * nb + c] - p.mesh.xyz[3 * na + c];
          len += d[c] * d[c];
        }
        len = std::sqrt(len);
        for (int r = 0; r < 3; ++r)
          for (int c = 0; c < 3; ++c) {
            const double b = young / len * (d[r] * d[c] / (len * len) + (r == c ? beta : 0.0));
            const qkm_int ar = p.dofs.eq[3 * na + r], ac = p.dofs.eq[3 * na + c];
            const qkm_int br = p.dofs.eq[3 * nb + r], bc = p.dofs.eq[3 * nb + c];
            if (ar > 0 && ac > 0 && ar >= ac) add_entry(p.k, ar, ac, b);
            if (br > 0 && bc > 0 && br >= bc) add_entry(p.k, br, bc, b);
            if (ar > 0 && bc > 0) add_entry(p.k, ar, bc, -b);
          }
      }
  return p;
}

std::vector<double> dense(const qks::SymMatrix &a) {
  const size_t n = a.n;
  std::vector<double> d(n * n, 0.0);
  for (size_t r = 0; r < n; ++r)
    for (qkm_int q = a.rowend[r]; q < a.rowend[r + 1]; ++q) {
      const size_t c = q == a.rowend[r + 1] - 1 ? r : a.col[q] - 1;
      d[c * n + r] = d[r * n + c] = a.a[q];
    }
  return d;
}

std::vector<double> right_hand_sides(qkm_int n, int nrhs) {
  std::vector<double> b(static_cast<size_t>(n) * nrhs);
  for (size_t i = 0; i < b.size(); ++i) b[i] = std::sin(0.37 * i + 1.0) + (i % 7 == 0 ? 2.0 : 0.0);
  return b;
}

double max_abs(const std::vector<double> &v) {
  double m = 0.0;
  for (double x : v) m = std::max(m, std::fabs(x));
  return m;
}

struct SolveCase {
  const char *name;
  qks::Box box;
  bool tets;
  int nrhs;
  bool one_front;
};

TEST(DirectSolver, MatchesDenseCholesky) {
  const SolveCase cases[] = {
      {"hex 4x2x2, one vector", {2.0, 0.5, 0.5, 4, 2, 2}, false, 1, false},
      {"hex 5x3x2, four vectors", {2.5, 0.6, 0.4, 5, 3, 2}, false, 4, false},
      {"tet 3x2x2, four vectors", {1.5, 0.5, 0.5, 3, 2, 2}, true, 4, false},
      {"tet 4x3x2, one vector", {2.0, 0.6, 0.4, 4, 3, 2}, true, 1, false},
      {"one hexahedron, one front", {1.0, 1.0, 1.0, 1, 1, 1}, false, 4, true},
  };
  for (const SolveCase &c : cases) {
    SCOPED_TRACE(c.name);
    const Problem p = make_problem(c.box, c.tets);
    qks::DirectSolver solver;
    ASSERT_EQ(solver.factor(p.k, p.mesh, p.dofs, p.graph), 0);
    const qks::DirectReport &rep = solver.report();
    EXPECT_EQ(rep.status, 0);
    if (c.one_front) EXPECT_EQ(rep.fronts, 1);
    EXPECT_GE(rep.factor_entries, static_cast<long long>(p.k.terms()));
    EXPECT_LE(rep.largest_front, p.k.n);
    EXPECT_GT(rep.min_ratio, 0.0);
    EXPECT_LE(rep.min_ratio, 1.0);
    EXPECT_GT(rep.work, 0.0);

    const int n = p.k.n;
    std::vector<double> x = right_hand_sides(n, c.nrhs), ref = x, a = dense(p.k);
    int info = 0;
    dposv_("L", &n, &c.nrhs, a.data(), &n, ref.data(), &n, &info, 1);
    ASSERT_EQ(info, 0);
    solver.solve(x.data(), c.nrhs);
    std::vector<double> diff(x.size());
    for (size_t i = 0; i < x.size(); ++i) diff[i] = x[i] - ref[i];
    EXPECT_LE(max_abs(diff), 1e-10 * max_abs(ref));
  }
}

TEST(DirectSolver, RefusedPivotIsReported) {
  struct Case {
    const char *name;
    bool clamp;
    int free_node;  // node whose stiffness is removed, -1 none
    int status;
  } cases[] = {
      {"node without stiffness", true, 9, 6},
      {"unsupported body", false, -1, 34},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    Problem p = make_problem({2.0, 0.5, 0.5, 3, 2, 2}, false, c.clamp);
    std::vector<qkm_int> removed;
    if (c.free_node >= 0)
      for (int k = 0; k < 3; ++k) removed.push_back(p.dofs.eq[3 * c.free_node + k]);
    auto gone = [&](qkm_int e) { return std::count(removed.begin(), removed.end(), e) > 0; };
    for (qkm_int r = 0; r < p.k.n; ++r)
      for (qkm_int q = p.k.rowend[r]; q < p.k.rowend[r + 1]; ++q)
        if (gone(r + 1) || gone(p.k.col[q])) p.k.a[q] = 0.0;
    qks::DirectSolver solver;
    EXPECT_EQ(solver.factor(p.k, p.mesh, p.dofs, p.graph), c.status);
    EXPECT_EQ(solver.report().status, c.status);
    EXPECT_GE(solver.report().equation, 1);
    if (!removed.empty()) EXPECT_TRUE(gone(solver.report().equation));
    std::vector<double> b(p.k.n, 1.0);
    solver.solve(b.data(), 1);  // no factor: left alone
    EXPECT_EQ(b, std::vector<double>(p.k.n, 1.0));
  }
}

// The normwise backward error of the solve on hexahedral beams of growing size (the timings
// of the phases are bench_solve's).
TEST(DirectSolver, BeamBackwardError) {
  const qks::Box beams[] = {{4.0, 0.8, 0.8, 20, 4, 4}, {5.0, 1.0, 1.0, 25, 5, 5},
                            {4.0, 0.8, 0.8, 40, 8, 8}};
  for (const qks::Box &box : beams) {
    const Problem p = make_problem(box, false);
    qks::DirectSolver solver;
    ASSERT_EQ(solver.factor(p.k, p.mesh, p.dofs, p.graph), 0);
    const int nrhs = 4;
    std::vector<double> b = right_hand_sides(p.k.n, nrhs), x = b, ax(b.size());
    solver.solve(x.data(), nrhs);
    p.k.multiply(x.data(), ax.data(), nrhs);
    std::vector<double> res(b.size()), rowsum(p.k.n, 0.0);
    for (size_t i = 0; i < b.size(); ++i) res[i] = ax[i] - b[i];
    for (qkm_int i = 0; i < p.k.n; ++i)
      for (qkm_int q = p.k.rowend[i]; q < p.k.rowend[i + 1]; ++q) {
        rowsum[i] += std::fabs(p.k.a[q]);
        if (q + 1 < p.k.rowend[i + 1]) rowsum[p.k.col[q] - 1] += std::fabs(p.k.a[q]);
      }
    const double backward = max_abs(res) / (max_abs(rowsum) * max_abs(x) + max_abs(b));
    EXPECT_LE(backward, 1e-14) << box.nx << "x" << box.ny << "x" << box.nz;
  }
}

TEST(SubspaceIteration, MatchesGeneralisedDenseSolve) {
  struct Case {
    const char *name;
    bool banded;
    bool tets;
    int subspace;  // 0: the default size
  } cases[] = {{"diagonal mass, hexahedra", false, false, 0},
               {"banded mass, tetrahedra", true, true, 0},
               {"banded mass, hexahedra, four vectors", true, false, 4}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    const Problem p = make_problem({3.0, 0.5, 0.5, 6, 2, 2}, c.tets);
    const qkm_int n = p.k.n;
    qks::SymMatrix m;
    m.n = n;
    m.rowend.assign(1, 0);
    for (qkm_int i = 1; i <= n; ++i) {
      if (c.banded && i > 1) {
        m.col.push_back(i - 1);
        m.a.push_back(0.5);
      }
      m.col.push_back(i);
      m.a.push_back(2.0 + 0.1 * (i % 5));
      m.rowend.push_back(static_cast<qkm_int>(m.col.size()));
    }
    qks::DirectSolver solver;
    ASSERT_EQ(solver.factor(p.k, p.mesh, p.dofs, p.graph), 0);
    qks::ModalOptions opt;
    opt.tolerance = 1e-12;
    opt.subspace = c.subspace;
    opt.max_iterations = 400;
    const qks::ModalReport rep = qks::subspace_iteration(
        p.k, m, [&](double *b, int nrhs) { solver.solve(b, nrhs); }, opt);
    ASSERT_TRUE(rep.converged);
    ASSERT_EQ(rep.eigenvalue.size(), 3u);

    std::vector<double> ka = dense(p.k), ma = dense(m), w(n), work(64 * n);
    const int one = 1, lwork = 64 * n;
    int info = 0;
    dsygv_(&one, "N", "L", &n, ka.data(), &n, ma.data(), &n, w.data(), work.data(), &lwork, &info,
           1, 1);
    ASSERT_EQ(info, 0);
    std::vector<double> kx(3 * static_cast<size_t>(n)), mx(kx.size());
    p.k.multiply(rep.vectors.data(), kx.data(), 3);
    m.multiply(rep.vectors.data(), mx.data(), 3);
    for (int j = 0; j < 3; ++j) {
      EXPECT_NEAR(rep.eigenvalue[j], w[j], 1e-8 * w[j]) << "mode " << j;
      EXPECT_NEAR(rep.frequency[j], std::sqrt(w[j]) / (2 * M_PI), 1e-8 * rep.frequency[j]);
      const double *x = rep.vectors.data() + static_cast<size_t>(j) * n;
      EXPECT_NEAR(std::inner_product(x, x + n, &mx[static_cast<size_t>(j) * n], 0.0), 1.0, 1e-10);
      double r = 0.0, s = 0.0;
      for (qkm_int i = 0; i < n; ++i) {
        const size_t at = static_cast<size_t>(j) * n + i;
        r = std::max(r, std::fabs(kx[at] - rep.eigenvalue[j] * mx[at]));
        s = std::max(s, std::fabs(kx[at]));
      }
      EXPECT_LE(r, 1e-5 * s) << "mode " << j;
    }
  }
}

}  // namespace
