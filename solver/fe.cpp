// Finite elements of linear elasticity: graph, pattern, element matrices, assembly, loads and
// stresses.
//
// The hexahedron is the incompatible-modes element: the trilinear field is enriched by the
// nine bubbles (1 - xi^2), (1 - eta^2), (1 - zeta^2) per displacement component, so that a
// single layer of elements bends without shear locking. The bubbles' derivatives are taken
// with the Jacobian at the element centre and scaled by detJ0 / detJ, which makes their
// integral over any element vanish: a linear field is then reproduced exactly (patch test)
// also on distorted elements. The bubbles are condensed out element by element.
#include "fe.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "QORKytMemoryManager.h"

namespace qks {

namespace {

// ---- work arrays of the memory manager --------------------------------------------------

// One group of arrays from the manager, released by its number when the scope ends.
class WorkGroup {
 public:
  // Asks for count arrays of bytes[i] bytes (each at least one word). ok() tells whether
  // the group was had.
  WorkGroup(QORKytMemoryManager &memory, int count, const long long *bytes) : memory_(memory) {
    long long lengths[11];
    for (int i = 0; i < count; ++i) lengths[i] = std::max(bytes[i], 8LL);
    char **arrays = ptr_;
    ok_ = memory.Allocation(count, indice_, arrays, lengths) == 0;
  }
  ~WorkGroup() {
    if (ok_) memory_.Desallocation(indice_);
  }
  WorkGroup(const WorkGroup &) = delete;
  WorkGroup &operator=(const WorkGroup &) = delete;

  bool ok() const { return ok_; }
  template <class T>
  T *get(int i) const {
    return reinterpret_cast<T *>(ptr_[i]);
  }

 private:
  QORKytMemoryManager &memory_;
  char *ptr_[11] = {};
  int indice_ = 0;
  bool ok_ = false;
};

// ---- small dense helpers ----------------------------------------------------------------

// Determinant and inverse of a 3x3 matrix (row-major); the inverse is left alone when the
// determinant is not positive.
double invert3(const double m[3][3], double inv[3][3]) {
  const double c00 = m[1][1] * m[2][2] - m[1][2] * m[2][1];
  const double c01 = m[1][2] * m[2][0] - m[1][0] * m[2][2];
  const double c02 = m[1][0] * m[2][1] - m[1][1] * m[2][0];
  const double det = m[0][0] * c00 + m[0][1] * c01 + m[0][2] * c02;
  if (!(det > 0.0)) return det;
  const double r = 1.0 / det;
  inv[0][0] = c00 * r;
  inv[1][0] = c01 * r;
  inv[2][0] = c02 * r;
  inv[0][1] = (m[0][2] * m[2][1] - m[0][1] * m[2][2]) * r;
  inv[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) * r;
  inv[2][1] = (m[0][1] * m[2][0] - m[0][0] * m[2][1]) * r;
  inv[0][2] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) * r;
  inv[1][2] = (m[0][2] * m[1][0] - m[0][0] * m[1][2]) * r;
  inv[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) * r;
  return det;
}

// Adds dv times the isotropic stiffness between two shape functions of gradients ga, gb to the
// 3x3 block at k (leading dimension ld): lambda ga gb^T + mu gb ga^T + mu (ga . gb) I.
void add_pair(const double *ga, const double *gb, double lam, double mu, double dv, double *k,
              int ld) {
  const double dot = mu * (ga[0] * gb[0] + ga[1] * gb[1] + ga[2] * gb[2]);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      k[i * ld + j] += dv * (lam * ga[i] * gb[j] + mu * ga[j] * gb[i] + (i == j ? dot : 0.0));
}

// Stress (xx, yy, zz, xy, yz, zx) of the displacement gradient h[i][j] = du_j / dx_i.
void stress_of(const double h[3][3], double lam, double mu, double s[6]) {
  const double tr = lam * (h[0][0] + h[1][1] + h[2][2]);
  for (int i = 0; i < 3; ++i) s[i] = tr + 2.0 * mu * h[i][i];
  s[3] = mu * (h[0][1] + h[1][0]);
  s[4] = mu * (h[1][2] + h[2][1]);
  s[5] = mu * (h[2][0] + h[0][2]);
}

double mises(const double s[6]) {
  const double a = s[0] - s[1], b = s[1] - s[2], c = s[2] - s[0];
  return std::sqrt(0.5 * (a * a + b * b + c * c) + 3.0 * (s[3] * s[3] + s[4] * s[4] + s[5] * s[5]));
}

void lame(const Material &mat, double &lam, double &mu) {
  const double nu = mat.poisson;
  mu = mat.young / (2.0 * (1.0 + nu));
  lam = mat.young * nu / ((1.0 + nu) * (1.0 - 2.0 * nu));
}

// ---- the hexahedron -----------------------------------------------------------------------

constexpr double kSign[8][3] = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1},
                                {-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1}};
constexpr int kHexFun = 11;           // 8 nodal functions, then the 3 bubbles
constexpr int kHexDof = 3 * kHexFun;  // 24 nodal unknowns, then 9 internal ones

// Geometry of one hexahedron at its 8 Gauss points: gradients of the 11 functions, volume
// weights and the nodal shape functions.
struct HexPoints {
  double g[8][kHexFun][3];
  double dv[8];
  double n[8][8];
};

void hex_natural(const double p[3], double n[8], double dn[8][3]) {
  for (int a = 0; a < 8; ++a) {
    const double f[3] = {1.0 + kSign[a][0] * p[0], 1.0 + kSign[a][1] * p[1],
                         1.0 + kSign[a][2] * p[2]};
    n[a] = 0.125 * f[0] * f[1] * f[2];
    dn[a][0] = 0.125 * kSign[a][0] * f[1] * f[2];
    dn[a][1] = 0.125 * kSign[a][1] * f[0] * f[2];
    dn[a][2] = 0.125 * kSign[a][2] * f[0] * f[1];
  }
}

// Jacobian J[i][j] = dx_j / dxi_i from the natural derivatives.
void jacobian(const double x[8][3], const double dn[8][3], double jac[3][3]) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      double s = 0.0;
      for (int a = 0; a < 8; ++a) s += dn[a][i] * x[a][j];
      jac[i][j] = s;
    }
}

// g = J^-1 d.
void apply_inverse(const double inv[3][3], const double d[3], double g[3]) {
  for (int j = 0; j < 3; ++j) g[j] = inv[j][0] * d[0] + inv[j][1] * d[1] + inv[j][2] * d[2];
}

// False when the Jacobian is not positive at the centre or at a Gauss point.
bool hex_points(const double x[8][3], HexPoints &hp) {
  const double centre[3] = {0.0, 0.0, 0.0};
  double n[8], dn[8][3], jac[3][3], inv0[3][3], inv[3][3];
  hex_natural(centre, n, dn);
  jacobian(x, dn, jac);
  const double det0 = invert3(jac, inv0);
  if (!(det0 > 0.0)) return false;
  const double q = 1.0 / std::sqrt(3.0);
  for (int gp = 0; gp < 8; ++gp) {
    const double p[3] = {kSign[gp][0] * q, kSign[gp][1] * q, kSign[gp][2] * q};
    hex_natural(p, hp.n[gp], dn);
    jacobian(x, dn, jac);
    const double det = invert3(jac, inv);
    if (!(det > 0.0)) return false;
    hp.dv[gp] = det;  // the Gauss weights are 1
    for (int a = 0; a < 8; ++a) apply_inverse(inv, dn[a], hp.g[gp][a]);
    const double scale = det0 / det;
    for (int k = 0; k < 3; ++k) {
      double d[3] = {0.0, 0.0, 0.0};
      d[k] = -2.0 * p[k] * scale;
      apply_inverse(inv0, d, hp.g[gp][8 + k]);
    }
  }
  return true;
}

// The 33x33 stiffness of nodal and bubble unknowns (row-major, unknown 3f + c of function f).
void hex_full_stiffness(const HexPoints &hp, double lam, double mu, double *k) {
  std::fill(k, k + kHexDof * kHexDof, 0.0);
  for (int gp = 0; gp < 8; ++gp)
    for (int a = 0; a < kHexFun; ++a)
      for (int b = a; b < kHexFun; ++b)
        add_pair(hp.g[gp][a], hp.g[gp][b], lam, mu, hp.dv[gp], k + 3 * a * kHexDof + 3 * b,
                 kHexDof);
  for (int i = 0; i < kHexDof; ++i)
    for (int j = 0; j < i; ++j) k[i * kHexDof + j] = k[j * kHexDof + i];
}

// Condenses the bubbles: t (9x24) = Kii^-1 Kic and the 24x24 leading block of k becomes
// Kcc - Kci t. kii (81) and ipvt (9) are work.
void hex_condense(double *k, double *t, double *kii, qkm_int *ipvt) {
  constexpr int ni = 9, nc = 24;
  for (int i = 0; i < ni; ++i)
    for (int j = 0; j < ni; ++j) kii[i + j * ni] = k[(nc + i) * kHexDof + nc + j];
  const qkm_int mode = 2, order = ni;
  qkm_int info = 0;
  eaxinv(&mode, &order, &order, ipvt, &info, kii);
  for (int i = 0; i < ni; ++i)
    for (int c = 0; c < nc; ++c) {
      double s = 0.0;
      for (int j = 0; j < ni; ++j) s += kii[i + j * ni] * k[(nc + j) * kHexDof + c];
      t[i * nc + c] = s;
    }
  for (int r = 0; r < nc; ++r)
    for (int c = 0; c < nc; ++c) {
      double s = 0.0;
      for (int i = 0; i < ni; ++i) s += k[r * kHexDof + nc + i] * t[i * nc + c];
      k[r * kHexDof + c] -= s;
    }
}

// ---- the tetrahedron ----------------------------------------------------------------------

// Gradients of the 4 linear functions and the volume; false for a non-positive volume.
bool tet_gradients(const double x[4][3], double g[4][3], double &volume) {
  double jac[3][3], inv[3][3];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) jac[i][j] = x[i + 1][j] - x[0][j];
  const double det = invert3(jac, inv);
  if (!(det > 0.0)) return false;
  volume = det / 6.0;
  for (int a = 1; a < 4; ++a)
    for (int j = 0; j < 3; ++j) g[a][j] = inv[j][a - 1];
  for (int j = 0; j < 3; ++j) g[0][j] = -(g[1][j] + g[2][j] + g[3][j]);
  return true;
}

// ---- element loops shared by assembly and stresses ------------------------------------------

// The work of one element, carved from the arrays of the manager.
struct ElementWork {
  double *k;      // kHexDof^2: stiffness, condensed into its leading 24x24 (ld kHexDof)
  double *m;      // 8x8 scalar mass
  double *t;      // 9x24 bubble recovery
  double *kii;    // 81
  HexPoints *hp;  // hexahedron geometry
  qkm_int *ipvt;  // 9
  qkm_int *pos;   // 24x24 positions in the matrix
};

constexpr long long kWorkDoubles = kHexDof * kHexDof + 64 + 9 * 24 + 81;

void element_coords(const Mesh &mesh, qkm_int e, double x[8][3]) {
  const int nv = mesh.per_element();
  const qkm_int *c = &mesh.econn[mesh.eptr[e]];
  for (int a = 0; a < nv; ++a)
    for (int j = 0; j < 3; ++j) x[a][j] = mesh.xyz[3 * (c[a] - 1) + j];
}

// Element stiffness (leading nodal block of w.k, ld kHexDof) and, when wanted, the scalar
// mass in w.m (8x8, ld 8) of element e. False for an inverted element.
bool element_matrices(const Mesh &mesh, qkm_int e, double lam, double mu, double rho,
                      bool want_mass, ElementWork &w) {
  double x[8][3];
  element_coords(mesh, e, x);
  if (mesh.cell == Cell::Hex8) {
    if (!hex_points(x, *w.hp)) return false;
    hex_full_stiffness(*w.hp, lam, mu, w.k);
    hex_condense(w.k, w.t, w.kii, w.ipvt);
    if (want_mass) {
      std::fill(w.m, w.m + 64, 0.0);
      for (int gp = 0; gp < 8; ++gp)
        for (int a = 0; a < 8; ++a)
          for (int b = 0; b < 8; ++b)
            w.m[a * 8 + b] += rho * w.hp->n[gp][a] * w.hp->n[gp][b] * w.hp->dv[gp];
    }
    return true;
  }
  double g[4][3], vol = 0.0;
  if (!tet_gradients(x, g, vol)) return false;
  std::fill(w.k, w.k + kHexDof * kHexDof, 0.0);
  for (int a = 0; a < 4; ++a)
    for (int b = 0; b < 4; ++b)
      add_pair(g[a], g[b], lam, mu, vol, w.k + 3 * a * kHexDof + 3 * b, kHexDof);
  if (want_mass)
    for (int a = 0; a < 4; ++a)
      for (int b = 0; b < 4; ++b) w.m[a * 8 + b] = rho * vol * (a == b ? 0.1 : 0.05);
  return true;
}

// Equation numbers of the unknowns of element e (3 per node, 0 for held ones).
int element_eqs(const Mesh &mesh, const Dofs &dofs, qkm_int e, qkm_int *eq) {
  const int nv = mesh.per_element();
  const qkm_int *c = &mesh.econn[mesh.eptr[e]];
  for (int a = 0; a < nv; ++a)
    for (int j = 0; j < 3; ++j) eq[3 * a + j] = dofs.eq[3 * (c[a] - 1) + j];
  return 3 * nv;
}

// Positions (0-based, in a) of the lower entries that the element touches: pos[r*nd + c] for
// eq[r] >= eq[c] > 0, found by binary search in the columns of row eq[r]. False when one is
// missing from the pattern.
bool element_positions(const SymMatrix &s, const qkm_int *eq, int nd, qkm_int *pos) {
  for (int r = 0; r < nd; ++r) {
    const qkm_int row = eq[r];
    if (row == 0) continue;
    const qkm_int first = s.rowend[row - 1], diag = s.rowend[row] - 1;
    const qkm_int *begin = s.col.data() + first, *end = s.col.data() + diag;
    for (int c = 0; c < nd; ++c) {
      const qkm_int column = eq[c];
      if (column == 0 || column > row) continue;
      if (column == row) {
        pos[r * nd + c] = diag;
        continue;
      }
      const qkm_int *hit = std::lower_bound(begin, end, column);
      if (hit == end || *hit != column) return false;
      pos[r * nd + c] = static_cast<qkm_int>(hit - s.col.data());
    }
  }
  return true;
}

// Nodal faces of the cells, outward or not (only the nodes matter here).
constexpr int kHexFaces[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4},
                                 {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};
constexpr int kTetFaces[4][3] = {{0, 2, 1}, {0, 1, 3}, {1, 2, 3}, {0, 3, 2}};

// Calls f(nodes, count) for every element face whose nodes all lie within tol of x = xmax.
template <class F>
void for_faces_at(const Mesh &mesh, double xmax, double tol, F &&f) {
  const bool hex = mesh.cell == Cell::Hex8;
  const int nf = hex ? 6 : 4, nv = hex ? 4 : 3;
  for (qkm_int e = 0; e < mesh.elements(); ++e) {
    const qkm_int *c = &mesh.econn[mesh.eptr[e]];
    for (int fi = 0; fi < nf; ++fi) {
      qkm_int nodes[4];
      bool on = true;
      for (int v = 0; v < nv; ++v) {
        nodes[v] = c[hex ? kHexFaces[fi][v] : kTetFaces[fi][v]];
        on = on && mesh.xyz[3 * (nodes[v] - 1)] >= xmax - tol;
      }
      if (on) f(nodes, nv);
    }
  }
}

// Quadrature points of a face in the plane x = const: for each point its (y, z), its area
// weight and the values of the face's nodal functions. Quadrilaterals: 2x2 Gauss points on the
// bilinear map; triangles: the three edge midpoints (exact for quadratics).
template <class F>
void face_quadrature(const Mesh &mesh, const qkm_int *nodes, int nv, F &&f) {
  double y[4], z[4];
  for (int v = 0; v < nv; ++v) {
    y[v] = mesh.xyz[3 * (nodes[v] - 1) + 1];
    z[v] = mesh.xyz[3 * (nodes[v] - 1) + 2];
  }
  if (nv == 3) {
    const double area =
        0.5 * std::fabs((y[1] - y[0]) * (z[2] - z[0]) - (y[2] - y[0]) * (z[1] - z[0]));
    for (int m = 0; m < 3; ++m) {
      double n[4] = {0.5, 0.5, 0.5, 0.0};
      n[m] = 0.0;  // the midpoint opposite vertex m
      const double py = n[0] * y[0] + n[1] * y[1] + n[2] * y[2];
      const double pz = n[0] * z[0] + n[1] * z[1] + n[2] * z[2];
      f(py, pz, area / 3.0, n);
    }
    return;
  }
  static constexpr double s[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
  const double q = 1.0 / std::sqrt(3.0);
  for (int gp = 0; gp < 4; ++gp) {
    const double u = s[gp][0] * q, v = s[gp][1] * q;
    double n[4], dnu[4], dnv[4], py = 0, pz = 0, yu = 0, yv = 0, zu = 0, zv = 0;
    for (int a = 0; a < 4; ++a) {
      n[a] = 0.25 * (1 + s[a][0] * u) * (1 + s[a][1] * v);
      dnu[a] = 0.25 * s[a][0] * (1 + s[a][1] * v);
      dnv[a] = 0.25 * s[a][1] * (1 + s[a][0] * u);
      py += n[a] * y[a];
      pz += n[a] * z[a];
      yu += dnu[a] * y[a];
      yv += dnv[a] * y[a];
      zu += dnu[a] * z[a];
      zv += dnv[a] * z[a];
    }
    f(py, pz, std::fabs(yu * zv - yv * zu), n);
  }
}

void add_force(const Dofs &dofs, qkm_int node, int comp, double value, double *rhs) {
  const qkm_int eq = dofs.eq[3 * (node - 1) + comp];
  if (eq > 0) rhs[eq - 1] += value;
}

}  // namespace

// ---- graph and pattern ----------------------------------------------------------------------

NodalGraph nodal_graph(const Mesh &mesh, QORKytMemoryManager &memory) {
  NodalGraph graph;
  const qkm_int nn = mesh.nodes(), ne = mesh.elements();
  const long long ints = sizeof(qkm_int);
  const long long bytes[4] = {ints * (nn + 1), ints * mesh.eptr[ne], ints * nn, ints * (nn + 1)};
  WorkGroup work(memory, 4, bytes);
  if (!work.ok()) return graph;
  qkm_int *nptr = work.get<qkm_int>(0), *nlist = work.get<qkm_int>(1);
  qkm_int *mark = work.get<qkm_int>(2), *link = work.get<qkm_int>(3);
  graph.aptr.assign(static_cast<size_t>(nn) + 1, 0);
  qkm_int nadj = 0;
  eaupnn(&nn, &ne, nullptr, mesh.eptr.data(), mesh.econn.data(), nptr, nlist, mark,
         graph.aptr.data(), &nadj);
  graph.adj.assign(static_cast<size_t>(nadj), 0);
  eaunln(&nn, nullptr, nullptr, mesh.eptr.data(), mesh.econn.data(), nptr, nlist, link,
         graph.adj.data());
  return graph;
}

SymMatrix matrix_pattern(const Mesh &mesh, const NodalGraph &graph, const Dofs &dofs) {
  SymMatrix s;
  s.rowend.assign(1, 0);
  if (graph.aptr.size() != static_cast<size_t>(mesh.nodes()) + 1) return s;  // no graph
  s.n = dofs.count;
  // Unknown of each equation, so that rows come out in ascending order whatever the numbering.
  std::vector<qkm_int> unknown(static_cast<size_t>(s.n));
  for (size_t u = 0; u < dofs.eq.size(); ++u)
    if (dofs.eq[u] > 0) unknown[dofs.eq[u] - 1] = static_cast<qkm_int>(u);
  s.rowend.reserve(static_cast<size_t>(s.n) + 1);
  s.col.reserve(static_cast<size_t>(s.n) * 42);
  // The ascending equation numbers of the unknowns of a node and its neighbours. Insertion
  // sort: the neighbours come ascending, so with node-wise numbering the list is already in
  // order and the sort is linear.
  std::vector<qkm_int> around;
  qkm_int node = -1;
  for (qkm_int row = 1; row <= s.n; ++row) {
    const qkm_int here = unknown[row - 1] / 3;
    if (here != node) {
      node = here;
      around.clear();
      auto take = [&](qkm_int m) {
        for (int c = 0; c < 3; ++c) {
          const qkm_int eq = dofs.eq[3 * m + c];
          if (eq == 0) continue;
          size_t i = around.size();
          around.push_back(eq);
          for (; i > 0 && around[i - 1] > eq; --i) around[i] = around[i - 1];
          around[i] = eq;
        }
      };
      bool own = false;
      for (qkm_int p = graph.aptr[node]; p < graph.aptr[node + 1]; ++p) {
        const qkm_int m = graph.adj[p] - 1;
        if (!own && m > node) {
          take(node);
          own = true;
        }
        take(m);
      }
      if (!own) take(node);
    }
    for (qkm_int eq : around) {
      if (eq >= row) break;
      s.col.push_back(eq);
    }
    s.col.push_back(row);
    s.rowend.push_back(static_cast<qkm_int>(s.col.size()));
  }
  s.a.assign(s.col.size(), 0.0);
  return s;
}

// ---- assembly -------------------------------------------------------------------------------

int assemble(const Mesh &mesh, const Material &mat, const Dofs &dofs, SymMatrix &stiffness,
             SymMatrix *mass, QORKytMemoryManager &memory) {
  if (stiffness.n != dofs.count || stiffness.rowend.size() != static_cast<size_t>(dofs.count) + 1)
    return 3;
  if (mass != nullptr && (mass->rowend != stiffness.rowend || mass->col != stiffness.col)) {
    // The mass takes the pattern of the stiffness.
    mass->n = stiffness.n;
    mass->rowend = stiffness.rowend;
    mass->col = stiffness.col;
    mass->a.assign(stiffness.col.size(), 0.0);
  }
  const long long bytes[3] = {static_cast<long long>(sizeof(double)) * kWorkDoubles,
                              static_cast<long long>(sizeof(HexPoints)),
                              static_cast<long long>(sizeof(qkm_int)) * (9 + 24 * 24 + 24)};
  WorkGroup work(memory, 3, bytes);
  if (!work.ok()) return 2;
  ElementWork w;
  w.k = work.get<double>(0);
  w.m = w.k + kHexDof * kHexDof;
  w.t = w.m + 64;
  w.kii = w.t + 9 * 24;
  w.hp = work.get<HexPoints>(1);
  w.ipvt = work.get<qkm_int>(2);
  w.pos = w.ipvt + 9;
  qkm_int *eq = w.pos + 24 * 24;
  double lam, mu;
  lame(mat, lam, mu);
  for (qkm_int e = 0; e < mesh.elements(); ++e) {
    if (!element_matrices(mesh, e, lam, mu, mat.density, mass != nullptr, w)) return 1;
    const int nd = element_eqs(mesh, dofs, e, eq);
    if (!element_positions(stiffness, eq, nd, w.pos)) return 3;
    for (int r = 0; r < nd; ++r) {
      if (eq[r] == 0) continue;
      for (int c = 0; c < nd; ++c) {
        if (eq[c] == 0 || eq[c] > eq[r]) continue;
        const qkm_int p = w.pos[r * nd + c];
        stiffness.a[p] += w.k[r * kHexDof + c];
        if (mass != nullptr && r % 3 == c % 3) mass->a[p] += w.m[(r / 3) * 8 + c / 3];
      }
    }
  }
  return 0;
}

// ---- loads ------------------------------------------------------------------------------

std::vector<double> load_cases(const Mesh &mesh, const Material &mat, const Dofs &dofs,
                               const Loads &loads) {
  const size_t n = static_cast<size_t>(dofs.count);
  std::vector<double> rhs(4 * n, 0.0);
  double *tip_y = rhs.data(), *tip_z = tip_y + n, *twist = tip_z + n, *weight = twist + n;
  double lo[3], hi[3];
  bounds(mesh, lo, hi);
  const double tol = 1e-9 * std::max(1.0, hi[0] - lo[0]);

  // The end face: its area and centre, then uniform tractions and the torsion field.
  double area = 0.0, cy = 0.0, cz = 0.0;
  for_faces_at(mesh, hi[0], tol, [&](const qkm_int *nodes, int nv) {
    face_quadrature(mesh, nodes, nv, [&](double y, double z, double da, const double *) {
      area += da;
      cy += y * da;
      cz += z * da;
    });
  });
  if (area > 0.0) {
    cy /= area;
    cz /= area;
    double polar = 0.0;  // integral of r^2 over the face
    for_faces_at(mesh, hi[0], tol, [&](const qkm_int *nodes, int nv) {
      face_quadrature(mesh, nodes, nv, [&](double y, double z, double da, const double *) {
        polar += ((y - cy) * (y - cy) + (z - cz) * (z - cz)) * da;
      });
    });
    const double shear = loads.tip / area, k = polar > 0.0 ? loads.torque / polar : 0.0;
    for_faces_at(mesh, hi[0], tol, [&](const qkm_int *nodes, int nv) {
      face_quadrature(mesh, nodes, nv, [&](double y, double z, double da, const double *sh) {
        for (int v = 0; v < nv; ++v) {
          add_force(dofs, nodes[v], 1, sh[v] * shear * da, tip_y);
          add_force(dofs, nodes[v], 2, sh[v] * shear * da, tip_z);
          add_force(dofs, nodes[v], 1, -sh[v] * k * (z - cz) * da, twist);
          add_force(dofs, nodes[v], 2, sh[v] * k * (y - cy) * da, twist);
        }
      });
    });
  }

  // Self weight: the density times g downwards, integrated against the shape functions.
  const double body = -mat.density * loads.gravity;
  HexPoints hp;
  for (qkm_int e = 0; e < mesh.elements(); ++e) {
    const qkm_int *c = &mesh.econn[mesh.eptr[e]];
    double x[8][3];
    element_coords(mesh, e, x);
    if (mesh.cell == Cell::Hex8) {
      if (!hex_points(x, hp)) continue;
      for (int gp = 0; gp < 8; ++gp)
        for (int a = 0; a < 8; ++a)
          add_force(dofs, c[a], 2, body * hp.n[gp][a] * hp.dv[gp], weight);
    } else {
      double g[4][3], vol = 0.0;
      if (!tet_gradients(x, g, vol)) continue;
      for (int a = 0; a < 4; ++a) add_force(dofs, c[a], 2, 0.25 * body * vol, weight);
    }
  }
  return rhs;
}

std::vector<double> nodal_field(const Mesh &mesh, const Dofs &dofs, const double *x) {
  std::vector<double> u(3 * static_cast<size_t>(mesh.nodes()), 0.0);
  for (size_t i = 0; i < u.size(); ++i)
    if (dofs.eq[i] > 0) u[i] = x[dofs.eq[i] - 1];
  return u;
}

// ---- stresses ---------------------------------------------------------------------------

std::vector<double> von_mises(const Mesh &mesh, const Material &mat, const std::vector<double> &u) {
  const size_t nn = static_cast<size_t>(mesh.nodes());
  // Each corner takes the stress of the Gauss point nearest to it (the one in its octant; the
  // single constant stress of a tetrahedron); the tensors are averaged over the elements
  // around a node and the von Mises stress is taken of the average.
  std::vector<double> sum(6 * nn, 0.0), vm(nn, 0.0);
  std::vector<int> count(nn, 0);
  std::vector<double> kbuf(kHexDof * kHexDof), tbuf(9 * 24), kii(81);
  qkm_int ipvt[9];
  HexPoints hp;
  double lam, mu;
  lame(mat, lam, mu);
  for (qkm_int e = 0; e < mesh.elements(); ++e) {
    const qkm_int *c = &mesh.econn[mesh.eptr[e]];
    const int nv = mesh.per_element();
    double x[8][3], ue[kHexDof] = {};
    element_coords(mesh, e, x);
    for (int a = 0; a < nv; ++a)
      for (int j = 0; j < 3; ++j) ue[3 * a + j] = u[3 * (c[a] - 1) + j];
    double s[8][6];
    if (mesh.cell == Cell::Hex8) {
      if (!hex_points(x, hp)) continue;
      hex_full_stiffness(hp, lam, mu, kbuf.data());
      hex_condense(kbuf.data(), tbuf.data(), kii.data(), ipvt);
      // Bubble amplitudes of the condensed element: -Kii^-1 Kic u.
      for (int i = 0; i < 9; ++i) {
        double t = 0.0;
        for (int k = 0; k < 24; ++k) t += tbuf[i * 24 + k] * ue[k];
        ue[24 + i] = -t;
      }
      for (int gp = 0; gp < 8; ++gp) {
        double h[3][3] = {};
        for (int f = 0; f < kHexFun; ++f)
          for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) h[i][j] += hp.g[gp][f][i] * ue[3 * f + j];
        stress_of(h, lam, mu, s[gp]);
      }
    } else {
      double g[4][3], vol = 0.0, h[3][3] = {};
      if (!tet_gradients(x, g, vol)) continue;
      for (int a = 0; a < 4; ++a)
        for (int i = 0; i < 3; ++i)
          for (int j = 0; j < 3; ++j) h[i][j] += g[a][i] * ue[3 * a + j];
      for (int a = 0; a < 4; ++a) stress_of(h, lam, mu, s[a]);
    }
    for (int a = 0; a < nv; ++a) {
      const size_t node = static_cast<size_t>(c[a] - 1);
      for (int k = 0; k < 6; ++k) sum[6 * node + k] += s[a][k];
      ++count[node];
    }
  }
  for (size_t i = 0; i < nn; ++i) {
    if (count[i] == 0) continue;
    double avg[6];
    for (int k = 0; k < 6; ++k) avg[k] = sum[6 * i + k] / count[i];
    vm[i] = mises(avg);
  }
  return vm;
}

}  // namespace qks

namespace qks {

std::vector<double> element_stiffness(const Mesh &mesh, const Material &mat, qkm_int e) {
  std::vector<double> buf(kWorkDoubles);
  HexPoints hp;
  qkm_int ipvt[9];
  ElementWork w{buf.data(),
                buf.data() + kHexDof * kHexDof,
                buf.data() + kHexDof * kHexDof + 64,
                buf.data() + kHexDof * kHexDof + 64 + 9 * 24,
                &hp,
                ipvt,
                nullptr};
  double lam, mu;
  lame(mat, lam, mu);
  if (!element_matrices(mesh, e, lam, mu, mat.density, false, w)) return {};
  const int nd = 3 * mesh.per_element();
  std::vector<double> k(static_cast<size_t>(nd) * nd);
  for (int r = 0; r < nd; ++r)
    for (int c = 0; c < nd; ++c) k[r * nd + c] = w.k[r * kHexDof + c];
  return k;
}

}  // namespace qks
