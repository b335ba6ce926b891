// Generated meshes of a block, and the clamped numbering of the unknowns.
#include <algorithm>
#include <cmath>

#include "model.h"

namespace qks {

namespace {

Mesh box_nodes(const Box &b) {
  Mesh m;
  m.xyz.reserve(3 * static_cast<size_t>(b.nx + 1) * (b.ny + 1) * (b.nz + 1));
  for (int k = 0; k <= b.nz; ++k)
    for (int j = 0; j <= b.ny; ++j)
      for (int i = 0; i <= b.nx; ++i) {
        m.xyz.push_back(b.length * i / b.nx);
        m.xyz.push_back(b.width * j / b.ny - 0.5 * b.width);
        m.xyz.push_back(b.height * k / b.nz - 0.5 * b.height);
      }
  return m;
}

// The 8 corners of cell (i, j, k) in VTK order.
void cell_corners(const Box &b, int i, int j, int k, qkm_int c[8]) {
  auto id = [&](int a, int bb, int cc) {
    return static_cast<qkm_int>((cc * (b.ny + 1) + bb) * (b.nx + 1) + a + 1);
  };
  c[0] = id(i, j, k);
  c[1] = id(i + 1, j, k);
  c[2] = id(i + 1, j + 1, k);
  c[3] = id(i, j + 1, k);
  c[4] = id(i, j, k + 1);
  c[5] = id(i + 1, j, k + 1);
  c[6] = id(i + 1, j + 1, k + 1);
  c[7] = id(i, j + 1, k + 1);
}

// Calls f with the corners of every cell, x fastest, then y, then z.
template <class F>
void each_cell(const Box &b, F &&f) {
  for (int k = 0; k < b.nz; ++k)
    for (int j = 0; j < b.ny; ++j)
      for (int i = 0; i < b.nx; ++i) {
        qkm_int c[8];
        cell_corners(b, i, j, k, c);
        f(c);
      }
}

}  // namespace

Mesh make_box(const Box &b) {
  Mesh m = box_nodes(b);
  m.cell = Cell::Hex8;
  each_cell(b, [&](const qkm_int c[8]) {
    m.econn.insert(m.econn.end(), c, c + 8);
    m.eptr.push_back(static_cast<qkm_int>(m.econn.size()));
  });
  return m;
}

Mesh make_box_tets(const Box &b) {
  // Six tetrahedra around the diagonal 0-6 of each cell, all positively oriented; the faces
  // of neighbouring cells match because every cell is split the same way.
  static const int kTets[6][4] = {{0, 1, 2, 6}, {0, 2, 3, 6}, {0, 3, 7, 6},
                                  {0, 7, 4, 6}, {0, 4, 5, 6}, {0, 5, 1, 6}};
  Mesh m = box_nodes(b);
  m.cell = Cell::Tet4;
  each_cell(b, [&](const qkm_int c[8]) {
    for (const auto &t : kTets) {
      for (int v : t) m.econn.push_back(c[v]);
      m.eptr.push_back(static_cast<qkm_int>(m.econn.size()));
    }
  });
  return m;
}

void bounds(const Mesh &mesh, double lo[3], double hi[3]) {
  for (int c = 0; c < 3; ++c) {
    lo[c] = HUGE_VAL;
    hi[c] = -HUGE_VAL;
  }
  for (size_t i = 0; i < mesh.xyz.size(); i += 3)
    for (int c = 0; c < 3; ++c) {
      lo[c] = std::min(lo[c], mesh.xyz[i + c]);
      hi[c] = std::max(hi[c], mesh.xyz[i + c]);
    }
}

Dofs clamp_min_x(const Mesh &mesh, double tol) {
  double lo[3], hi[3];
  bounds(mesh, lo, hi);
  Dofs d;
  d.eq.assign(mesh.xyz.size(), 0);
  for (qkm_int n = 0; n < mesh.nodes(); ++n) {
    if (mesh.xyz[3 * n] <= lo[0] + tol) continue;
    for (int c = 0; c < 3; ++c) d.eq[3 * n + c] = ++d.count;
  }
  return d;
}

void SymMatrix::multiply(const double *x, double *y, int nrhs) const {
  const qkm_int kind = 1, nterm = terms(), nr = nrhs;
  eaxmvm(&kind, &nterm, &n, &n, &nr, col.data(), rowend.data(), a.data(), x, y);
}

}  // namespace qks
