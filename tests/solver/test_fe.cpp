// Finite elements, assembly, block CG and beam theory of the sample solver, against
// independent oracles: exact linear fields, brute-force graphs, reference LAPACK, beam theory
// and a fine 1-D Timoshenko model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>

#include "QORKytMemoryManager.h"
#include "cg.h"
#include "fe.h"
#include "support/refblas.h"
#include "theory.h"

namespace {

using qks::Box;
using qks::Dofs;
using qks::Mesh;
using qks::SymMatrix;
using Vec = std::vector<double>;

const qks::Material kSteel;

Dofs all_free(const Mesh &m) {
  Dofs d;
  d.count = 3 * m.nodes();
  d.eq.resize(static_cast<size_t>(d.count));
  for (qkm_int i = 0; i < d.count; ++i) d.eq[i] = i + 1;
  return d;
}

// Moves every node off the boundary of the box by a fixed pseudo-random fraction of a cell.
void distort(Mesh &m, const Box &b) {
  const double h[3] = {b.length / b.nx, b.width / b.ny, b.height / b.nz};
  double lo[3], hi[3];
  qks::bounds(m, lo, hi);
  for (qkm_int n = 0; n < m.nodes(); ++n) {
    double *p = &m.xyz[3 * n];
    bool inside = true;
    for (int c = 0; c < 3; ++c) inside = inside && p[c] > lo[c] + 1e-9 && p[c] < hi[c] - 1e-9;
    if (!inside) continue;
    for (int c = 0; c < 3; ++c) p[c] += 0.25 * h[c] * std::sin(1.7 * n + 2.3 * c);
  }
}

struct Model {
  Mesh mesh;
  Dofs dofs;
  SymMatrix k, m;
  int status = -1;
};

Model build(Mesh mesh, Dofs dofs, bool with_mass = false) {
  Model md{std::move(mesh), std::move(dofs), {}, {}, -1};
  QORKytMemoryManager memory(100);
  const qks::NodalGraph g = qks::nodal_graph(md.mesh, memory);
  md.k = qks::matrix_pattern(md.mesh, g, md.dofs);
  md.status = qks::assemble(md.mesh, kSteel, md.dofs, md.k, with_mass ? &md.m : nullptr, memory);
  EXPECT_EQ(memory.GetIndiceAllocation(), 1) << "work arrays left held";
  return md;
}

// ---- elements ---------------------------------------------------------------------------

Mesh one_element(qks::Cell cell, const std::vector<double> &xyz) {
  Mesh m;
  m.cell = cell;
  m.xyz = xyz;
  const int nv = static_cast<int>(cell);
  for (int a = 1; a <= nv; ++a) m.econn.push_back(a);
  m.eptr.push_back(nv);
  return m;
}

TEST(FeElement, SymmetricWithExactlySixRigidModes) {
  const std::vector<double> cube = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0,
                                    0, 0, 1, 1, 0, 1, 1, 1, 1, 0, 1, 1};
  std::vector<double> skew = cube;  // a warped, stretched brick
  const double moves[8][3] = {{0.1, 0, 0.05}, {0.3, -0.1, 0},  {0.2, 0.4, 0}, {0, 0.1, -0.1},
                              {0, 0.2, 0},    {0.5, 0.1, 0.3}, {0.1, 0, 0.2}, {-0.2, 0.1, 0}};
  for (int a = 0; a < 8; ++a)
    for (int c = 0; c < 3; ++c)
      skew[3 * a + c] = skew[3 * a + c] * (c == 0 ? 3.0 : 1.0) + moves[a][c];
  const struct {
    const char *name;
    Mesh mesh;
  } cases[] = {
      {"cube", one_element(qks::Cell::Hex8, cube)},
      {"distorted hexahedron", one_element(qks::Cell::Hex8, skew)},
      {"tetrahedron", one_element(qks::Cell::Tet4, {0, 0, 0, 1, 0.1, 0, 0.2, 1, 0, 0, 0.3, 0.8})}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    Vec k = qks::element_stiffness(c.mesh, kSteel, 0);
    const int n = 3 * c.mesh.nodes();
    ASSERT_EQ(k.size(), static_cast<size_t>(n * n));
    double big = 0.0, asym = 0.0;
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j) {
        big = std::max(big, std::fabs(k[i * n + j]));
        asym = std::max(asym, std::fabs(k[i * n + j] - k[j * n + i]));
      }
    EXPECT_LE(asym, 1e-13 * big);
    Vec w(n), work(10 * n);
    int info = 0, lwork = 10 * n;
    dsyev_("N", "U", &n, k.data(), &n, w.data(), work.data(), &lwork, &info, 1, 1);
    ASSERT_EQ(info, 0);
    int zero = 0;
    for (double v : w) zero += std::fabs(v) < 1e-9 * w[n - 1];
    EXPECT_EQ(zero, 6);
    EXPECT_GT(w[6], 1e-4 * w[n - 1]);  // no spurious mechanism, no near-singular mode
  }
  // An inverted element is refused.
  Mesh flipped = one_element(qks::Cell::Tet4, {0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 1});
  EXPECT_TRUE(qks::element_stiffness(flipped, kSteel, 0).empty());
  Model bad = build(flipped, all_free(flipped));
  EXPECT_EQ(bad.status, 1);
  // A pattern that does not belong to the numbering is refused, not overrun.
  QORKytMemoryManager memory(100);
  SymMatrix none;
  EXPECT_EQ(qks::assemble(cases[0].mesh, kSteel, all_free(cases[0].mesh), none, nullptr, memory),
            3);
}

// A linear displacement field is reproduced exactly on a distorted mesh: the forces at interior
// nodes vanish and every node shows the field's constant stress.
TEST(FeElement, PatchTestOnDistortedMeshes) {
  const Box box{1.0, 0.8, 0.6, 3, 3, 3};
  for (bool tets : {false, true}) {
    SCOPED_TRACE(tets ? "tetrahedra" : "hexahedra");
    Mesh mesh = tets ? qks::make_box_tets(box) : qks::make_box(box);
    distort(mesh, box);
    Model md = build(mesh, all_free(mesh));
    ASSERT_EQ(md.status, 0);
    const double grad[3][3] = {{1e-3, 2e-4, -3e-4}, {-5e-4, 4e-4, 1e-4}, {2e-4, 3e-4, -6e-4}};
    const qkm_int nn = md.mesh.nodes();
    Vec u(3 * nn), f(3 * nn);
    for (qkm_int n = 0; n < nn; ++n)
      for (int j = 0; j < 3; ++j) {
        u[3 * n + j] = 1e-3 * (j + 1);
        for (int i = 0; i < 3; ++i) u[3 * n + j] += grad[i][j] * md.mesh.xyz[3 * n + i];
      }
    md.k.multiply(u.data(), f.data(), 1);
    double lo[3], hi[3], fmax = 0.0, interior = 0.0;
    qks::bounds(md.mesh, lo, hi);
    for (qkm_int n = 0; n < nn; ++n) {
      bool inside = true;
      for (int c = 0; c < 3; ++c) {
        const double x = md.mesh.xyz[3 * n + c];
        inside = inside && x > lo[c] + 1e-9 && x < hi[c] - 1e-9;
        fmax = std::max(fmax, std::fabs(f[3 * n + c]));
      }
      for (int c = 0; c < 3 && inside; ++c) interior = std::max(interior, std::fabs(f[3 * n + c]));
    }
    EXPECT_GT(fmax, 0.0);
    EXPECT_LE(interior, 1e-9 * fmax);
    // sigma = lambda tr(eps) I + 2 mu eps of the field, and its von Mises value.
    const double nu = kSteel.poisson, mu = kSteel.young / (2 * (1 + nu));
    const double lam = kSteel.young * nu / ((1 + nu) * (1 - 2 * nu));
    double eps[3][3], s[3][3];
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) eps[i][j] = 0.5 * (grad[i][j] + grad[j][i]);
    const double tr = eps[0][0] + eps[1][1] + eps[2][2];
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) s[i][j] = 2 * mu * eps[i][j] + (i == j ? lam * tr : 0.0);
    const double p = (s[0][0] + s[1][1] + s[2][2]) / 3;
    double dev2 = 0.0;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) dev2 += std::pow(s[i][j] - (i == j ? p : 0.0), 2);
    const double expected = std::sqrt(1.5 * dev2);
    const Vec vm = qks::von_mises(md.mesh, kSteel, u);
    for (qkm_int n = 0; n < nn; ++n) ASSERT_NEAR(vm[n], expected, 1e-9 * expected) << "node " << n;
  }
}

// The consistent mass carries the body's mass; the load cases carry their resultants.
TEST(FeElement, MassAndLoadResultants) {
  const Box box{2.0, 0.3, 0.5, 6, 2, 3};
  const qks::Loads loads{1500.0, 700.0, 9.81};
  const double volume = 2.0 * 0.3 * 0.5, ymid = 0.0;
  for (bool tets : {false, true}) {
    SCOPED_TRACE(tets ? "tetrahedra" : "hexahedra");
    Mesh mesh = tets ? qks::make_box_tets(box) : qks::make_box(box);
    Model md = build(mesh, all_free(mesh), true);
    ASSERT_EQ(md.status, 0);
    const qkm_int nn = md.mesh.nodes();
    for (int c = 0; c < 3; ++c) {
      Vec u(3 * nn, 0.0), mu(3 * nn);
      for (qkm_int n = 0; n < nn; ++n) u[3 * n + c] = 1.0;
      md.m.multiply(u.data(), mu.data(), 1);
      double total = 0.0;
      for (double v : mu) total += v;
      EXPECT_NEAR(total, kSteel.density * volume, 1e-9 * kSteel.density * volume);
    }
    const Vec rhs = qks::load_cases(md.mesh, kSteel, md.dofs, loads);
    double sum[4][3] = {}, torque = 0.0;
    for (int lc = 0; lc < 4; ++lc)
      for (qkm_int n = 0; n < nn; ++n)
        for (int c = 0; c < 3; ++c) sum[lc][c] += rhs[lc * 3 * nn + 3 * n + c];
    for (qkm_int n = 0; n < nn; ++n) {
      const double *f = &rhs[2 * 3 * nn + 3 * n], *x = &md.mesh.xyz[3 * n];
      torque += (x[1] - ymid) * f[2] - x[2] * f[1];
    }
    const double expect[4][3] = {{0, loads.tip, 0},
                                 {0, 0, loads.tip},
                                 {0, 0, 0},
                                 {0, 0, -kSteel.density * loads.gravity * volume}};
    for (int lc = 0; lc < 4; ++lc)
      for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(sum[lc][c], expect[lc][c], 1e-9 * std::max(1.0, std::fabs(expect[lc][c])))
            << "case " << lc << " component " << c;
    EXPECT_NEAR(torque, loads.torque, 1e-9 * loads.torque);
  }
}

// ---- graph and pattern --------------------------------------------------------------------

TEST(FeAssembly, GraphAndPatternMatchBruteForce) {
  const Box box{1.0, 1.0, 1.0, 3, 2, 2};
  for (bool tets : {false, true})
    for (bool reversed : {false, true}) {
      SCOPED_TRACE(std::string(tets ? "tets" : "hexes") + (reversed ? ", reversed numbering" : ""));
      const Mesh mesh = tets ? qks::make_box_tets(box) : qks::make_box(box);
      Dofs dofs = qks::clamp_min_x(mesh, 1e-9);
      if (reversed)
        for (qkm_int &e : dofs.eq) e = e > 0 ? dofs.count + 1 - e : 0;
      const qkm_int nn = mesh.nodes();
      std::vector<std::set<qkm_int>> nb(nn + 1);
      for (qkm_int e = 0; e < mesh.elements(); ++e)
        for (qkm_int p = mesh.eptr[e]; p < mesh.eptr[e + 1]; ++p)
          for (qkm_int q = mesh.eptr[e]; q < mesh.eptr[e + 1]; ++q)
            if (mesh.econn[p] != mesh.econn[q]) nb[mesh.econn[p]].insert(mesh.econn[q]);
      QORKytMemoryManager memory(100);
      const qks::NodalGraph g = qks::nodal_graph(mesh, memory);
      EXPECT_EQ(memory.GetIndiceAllocation(), 1);
      ASSERT_EQ(g.aptr.size(), static_cast<size_t>(nn + 1));
      for (qkm_int n = 1; n <= nn; ++n)
        EXPECT_EQ(std::vector<qkm_int>(g.adj.begin() + g.aptr[n - 1], g.adj.begin() + g.aptr[n]),
                  std::vector<qkm_int>(nb[n].begin(), nb[n].end()));
      const SymMatrix s = qks::matrix_pattern(mesh, g, dofs);
      ASSERT_EQ(s.n, dofs.count);
      ASSERT_EQ(s.rowend.size(), static_cast<size_t>(s.n + 1));
      EXPECT_EQ(s.terms(), s.rowend.back());
      for (qkm_int u = 0; u < 3 * nn; ++u) {
        const qkm_int row = dofs.eq[u];
        if (row == 0) continue;
        std::vector<qkm_int> want;
        nb[u / 3 + 1].insert(u / 3 + 1);
        for (qkm_int m : nb[u / 3 + 1])
          for (int c = 0; c < 3; ++c) {
            const qkm_int e = dofs.eq[3 * (m - 1) + c];
            if (e > 0 && e < row) want.push_back(e);
          }
        std::sort(want.begin(), want.end());
        want.push_back(row);
        EXPECT_EQ(
            std::vector<qkm_int>(s.col.begin() + s.rowend[row - 1], s.col.begin() + s.rowend[row]),
            want)
            << "row " << row;
      }
    }
}

// ---- solves --------------------------------------------------------------------------------

struct Solve {
  Model md;
  Vec x;  // 4 solutions
  qks::CgReport rep;
  // Displacement component c of the node nearest to (x, y, z), for load case lc.
  double at(int lc, double x, double y, double z, int c) const {
    qkm_int best = 0;
    double d = HUGE_VAL;
    for (qkm_int n = 0; n < md.mesh.nodes(); ++n) {
      const double *p = &md.mesh.xyz[3 * n];
      const double e = std::hypot(p[0] - x, p[1] - y, p[2] - z);
      if (e < d) {
        d = e;
        best = n;
      }
    }
    const qkm_int eq = md.dofs.eq[3 * best + c];
    return eq > 0 ? x_of(lc)[eq - 1] : 0.0;
  }
  const double *x_of(int lc) const { return x.data() + static_cast<size_t>(lc) * md.dofs.count; }
};

Solve solve_box(const Box &box, bool tets, double tol = 1e-10) {
  Mesh mesh = tets ? qks::make_box_tets(box) : qks::make_box(box);
  Dofs dofs = qks::clamp_min_x(mesh, 1e-9);
  Solve s{build(std::move(mesh), std::move(dofs)), {}, {}};
  const Vec b = qks::load_cases(s.md.mesh, kSteel, s.md.dofs, {});
  s.x.assign(b.size(), 0.0);
  qks::CgOptions opt;
  opt.tolerance = tol;
  s.rep = qks::block_cg(s.md.k, s.md.dofs, b.data(), s.x.data(), 4, opt);
  return s;
}

// The incompatible-modes hexahedron bends without locking: four cells through the depth give
// Timoshenko's tip deflections, self-weight sag and Saint-Venant's twist.
TEST(FeSolve, BeamMatchesTimoshenko) {
  const Box box{2.0, 0.2, 0.2, 20, 4, 4};
  const Solve s = solve_box(box, false);
  ASSERT_EQ(s.md.status, 0);
  ASSERT_TRUE(s.rep.converged);
  for (double r : s.rep.residual) EXPECT_LT(r, 1e-9);
  const qks::BeamTheory t = qks::beam_theory(box, kSteel, {});
  const double w = box.width;
  const struct {
    const char *name;
    double fe, theory, tol;
  } cases[] = {
      {"tip force in y", s.at(0, 2, 0, 0, 1), t.tip_y, 0.03},
      {"tip force in z", s.at(1, 2, 0, 0, 2), t.tip_z, 0.03},
      {"self weight", s.at(3, 2, 0, 0, 2), t.gravity_z, 0.03},
      // Four cells across are coarse for the torsion field (5% stiff here, 2% at 8 cells).
      {"torque", (s.at(2, 2, w / 2, 0, 2) - s.at(2, 2, -w / 2, 0, 2)) / w, t.twist, 0.07},
  };
  for (const auto &c : cases)
    EXPECT_NEAR(c.fe / c.theory, 1.0, c.tol) << c.name << ": " << c.fe << " vs " << c.theory;
}

TEST(FeSolve, TetrahedraConverge) {
  const Solve s = solve_box({2.0, 0.2, 0.2, 10, 2, 2}, true);
  ASSERT_EQ(s.md.status, 0);
  EXPECT_TRUE(s.rep.converged);
  for (double r : s.rep.residual) EXPECT_LT(r, 1e-9);
  // Stiffer than the beam (constant strain locks), but bending the right way.
  EXPECT_GT(s.at(0, 2, 0, 0, 1), 0.0);
  EXPECT_LT(s.at(3, 2, 0, 0, 2), 0.0);
}

TEST(FeSolve, BlockEqualsSingleVectorSolves) {
  const Solve s = solve_box({1.0, 0.2, 0.2, 8, 2, 2}, false, 1e-9);
  ASSERT_TRUE(s.rep.converged);
  const Vec b = qks::load_cases(s.md.mesh, kSteel, s.md.dofs, {});
  const qkm_int n = s.md.dofs.count;
  qks::CgOptions opt;
  opt.tolerance = 1e-9;
  for (int lc = 0; lc < 4; ++lc) {
    Vec x(n, 0.0);
    const qks::CgReport one = qks::block_cg(s.md.k, s.md.dofs, b.data() + lc * n, x.data(), 1, opt);
    EXPECT_EQ(one.converged_at[0], s.rep.converged_at[lc]) << "case " << lc;
    EXPECT_EQ(0, std::memcmp(x.data(), s.x_of(lc), n * sizeof(double))) << "case " << lc;
  }
  // A zero right-hand side is solved at once by zero; an iteration limit is reported.
  Vec b2(2 * n, 0.0), x2(2 * n, 1.0);
  std::copy(b.begin(), b.begin() + n, b2.begin());
  opt.max_iterations = 3;
  const qks::CgReport cut = qks::block_cg(s.md.k, s.md.dofs, b2.data(), x2.data(), 2, opt);
  EXPECT_FALSE(cut.converged);
  EXPECT_EQ(cut.iterations, 3);
  EXPECT_EQ(cut.converged_at, (std::vector<int>{-1, 0}));
  EXPECT_GT(cut.residual[0], 1e-9);
  EXPECT_EQ(cut.residual[1], 0.0);
  EXPECT_TRUE(std::all_of(x2.begin() + n, x2.end(), [](double v) { return v == 0.0; }));
}

// ---- beam theory --------------------------------------------------------------------------

TEST(FeTheory, TorsionConstantOfRectangles) {
  // J = beta a b^3 with the tabulated beta of the ratio a / b.
  const struct {
    double a, b, beta, tol;
  } cases[] = {{1.0, 1.0, 0.14058, 2e-5},
               {2.0, 1.0, 0.22868, 2e-5},
               {1.0, 5.0, 0.291, 5e-4},
               {10.0, 1.0, 0.31233, 2e-5}};
  for (const auto &c : cases)
    EXPECT_NEAR(
        qks::torsion_constant(c.a, c.b) / (std::max(c.a, c.b) * std::pow(std::min(c.a, c.b), 3)),
        c.beta, c.tol)
        << c.a << " x " << c.b;
}

// Lowest frequencies of a clamped-free Timoshenko beam by linear elements (one-point shear,
// lumped translational and rotary mass) and reference LAPACK: the oracle of the frequency
// equation.
Vec fe_beam_omegas(double ei, double kga, double rho_a, double rho_i, double len, int ne) {
  const int n = 2 * ne;  // (w, theta) of nodes 1..ne; node 0 clamped
  const double h = len / ne;
  Vec k(static_cast<size_t>(n) * n, 0.0), m(n);
  for (int e = 0; e < ne; ++e) {
    const double bg[4] = {-1.0 / h, -0.5, 1.0 / h, -0.5};  // shear strain w' - theta
    const double bb[4] = {0.0, -1.0 / h, 0.0, 1.0 / h};    // curvature theta'
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 4; ++j) {
        const int r = 2 * e + i - 2, c = 2 * e + j - 2;
        if (r >= 0 && c >= 0) k[r * n + c] += h * (kga * bg[i] * bg[j] + ei * bb[i] * bb[j]);
      }
  }
  for (int i = 0; i < ne; ++i) {
    const double share = i == ne - 1 ? 0.5 : 1.0;
    m[2 * i] = share * rho_a * h;
    m[2 * i + 1] = share * rho_i * h;
  }
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) k[i * n + j] /= std::sqrt(m[i] * m[j]);
  Vec w(n), work(10 * n);
  int info = 0, lwork = 10 * n;
  dsyev_("N", "U", &n, k.data(), &n, w.data(), work.data(), &lwork, &info, 1, 1);
  EXPECT_EQ(info, 0);
  for (double &v : w) v = std::sqrt(v);
  return w;
}

TEST(FeTheory, TimoshenkoFrequencies) {
  const double e = kSteel.young, rho = kSteel.density, nu = kSteel.poisson;
  const double g = e / (2 * (1 + nu)), kappa = 10 * (1 + nu) / (12 + 11 * nu);
  // Slender: the Euler-Bernoulli roots 1.875..., 4.694..., 7.854... .
  {
    const double len = 100.0, a = 0.01, inertia = 1e-4 / 12;  // a 0.1 x 0.1 bar
    const Vec w =
        qks::timoshenko_cantilever(e * inertia, 1e6 * kappa * g * a, rho * a, 0.0, len, 3);
    ASSERT_EQ(w.size(), 3u);
    const double roots[3] = {1.8751040687119611, 4.6940911329741745, 7.8547574382376126};
    for (int i = 0; i < 3; ++i)
      EXPECT_NEAR(w[i], roots[i] * roots[i] * std::sqrt(e * inertia / (rho * a * std::pow(len, 4))),
                  1e-9 * w[i]);
  }
  // Stocky (length 4 x depth): shear and rotary inertia lower the frequencies, as the fine
  // 1-D model says; Richardson extrapolation of two meshes makes the oracle sharp.
  const double len = 1.6, side = 0.4, a = side * side, inertia = side * side * side * side / 12;
  const Vec w =
      qks::timoshenko_cantilever(e * inertia, kappa * g * a, rho * a, rho * inertia, len, 3);
  const Vec c1 = fe_beam_omegas(e * inertia, kappa * g * a, rho * a, rho * inertia, len, 100);
  const Vec c2 = fe_beam_omegas(e * inertia, kappa * g * a, rho * a, rho * inertia, len, 200);
  ASSERT_EQ(w.size(), 3u);
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(w[i], (4 * c2[i] - c1[i]) / 3, 2e-5 * w[i]) << "mode " << i;
  EXPECT_LT(w[2], 0.8 * 7.8547574382376126 * 7.8547574382376126 *
                      std::sqrt(e * inertia / (rho * a * std::pow(len, 4))));

  // The three lowest of all kinds, ascending.
  const struct {
    Box box;
    const char *kind[3];
    int order[3];
  } cases[] = {
      {{4.0, 0.4, 0.4, 1, 1, 1}, {"bending in y", "bending in z", "bending in y"}, {1, 1, 2}},
      {{4.0, 0.4, 0.1, 1, 1, 1}, {"bending in z", "bending in y", "bending in z"}, {1, 1, 2}},
      {{1.0, 0.4, 0.4, 1, 1, 1}, {"bending in y", "bending in z", "torsion"}, {1, 1, 1}},
  };
  for (const auto &c : cases) {
    const qks::BeamTheory t = qks::beam_theory(c.box, kSteel, {});
    for (int i = 0; i < 3; ++i) {
      EXPECT_STREQ(t.kind[i], c.kind[i]) << c.box.length << " x " << c.box.height << " mode " << i;
      EXPECT_EQ(t.order[i], c.order[i]);
      if (i > 0) EXPECT_LE(t.freq[i - 1], t.freq[i]);
    }
  }
}

}  // namespace
