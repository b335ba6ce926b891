// The Laplacian of a structured mesh of trilinear hexahedra (nx x ny x nz nodes, element
// sides hx, hy, hz), assembled element by element into rows with the diagonal last: the
// 27-point stencil of a 3-D mesh. Node (i, j, k) is numbered 1 + i + nx*(j + ny*k).
#pragma once

#include <cstdint>
#include <vector>

namespace qkm_mesh {

struct SparseRows {
  int32_t nrow = 0;
  std::vector<int32_t> col, rowend;  // rowend(1) = 0, rowend(i+1) = position of a_ii
  std::vector<double> a;
};

// Symmetric: only the terms below the diagonal, then the diagonal. Otherwise all terms.
inline SparseRows hex_laplacian(int nx, int ny, int nz, bool lower_only, double hx = 1.0,
                                double hy = 1.3, double hz = 0.7) {
  const int dims[3] = {nx, ny, nz};
  const double h[3] = {hx, hy, hz};
  // Element stiffness between local nodes whose coordinates agree (same[d]) or not on each
  // axis: sum over d of k_d * product over e != d of m_e, the 1-D stiffness and mass.
  auto element = [&](const bool same[3]) {
    double s = 0;
    for (int d = 0; d < 3; ++d) {
      double t = (same[d] ? 1.0 : -1.0) / h[d];
      for (int e = 0; e < 3; ++e)
        if (e != d) t *= same[e] ? h[e] / 3 : h[e] / 6;
      s += t;
    }
    return s;
  };
  SparseRows m;
  m.nrow = nx * ny * nz;
  m.rowend.assign(1, 0);
  const size_t per_row = lower_only ? 14 : 27;
  m.col.reserve(per_row * m.nrow);
  m.a.reserve(per_row * m.nrow);
  for (int k = 0; k < nz; ++k)
    for (int j = 0; j < ny; ++j)
      for (int i = 0; i < nx; ++i) {
        const int p[3] = {i, j, k};
        double v[27] = {};  // slot (dk+1)*9 + (dj+1)*3 + (di+1): ascending column order
        bool used[27] = {};
        // Every element that holds this node: its lower corner at p - c, c in {0,1}^3.
        for (int c = 0; c < 8; ++c) {
          int lo[3];
          bool inside = true;
          for (int d = 0; d < 3; ++d) {
            lo[d] = p[d] - ((c >> d) & 1);
            inside = inside && lo[d] >= 0 && lo[d] + 1 < dims[d];
          }
          if (!inside) continue;
          for (int b = 0; b < 8; ++b) {
            bool same[3];
            int slot = 0;
            for (int d = 2; d >= 0; --d) {
              const int q = lo[d] + ((b >> d) & 1);
              same[d] = q == p[d];
              slot = slot * 3 + (q - p[d] + 1);
            }
            v[slot] += element(same);
            used[slot] = true;
          }
        }
        const int32_t row = 1 + i + nx * (j + ny * k);
        for (int s = 0; s < 27; ++s) {
          if (!used[s] || s == 13) continue;
          const int32_t c = row + (s % 3 - 1) + nx * ((s / 3 % 3 - 1) + ny * (s / 9 - 1));
          if (lower_only && c > row) continue;
          m.col.push_back(c);
          m.a.push_back(v[s]);
        }
        m.col.push_back(row);  // never read by the kernel
        m.a.push_back(v[13]);
        m.rowend.push_back(static_cast<int32_t>(m.a.size()));
      }
  return m;
}

}  // namespace qkm_mesh
