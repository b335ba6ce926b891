// Structured test meshes in the element-list form of the graph kernels: eptr (ne+1 pointers,
// eptr[0] = 0) and econn (node numbers from 1), nodes numbered x fastest.
#pragma once

#include <cstdint>
#include <vector>

namespace qkm_test {

struct Mesh {
  int32_t nn = 0, ne = 0;
  std::vector<int32_t> eptr{0}, econn;
  void add(std::initializer_list<int32_t> nodes) {
    econn.insert(econn.end(), nodes);
    eptr.push_back(static_cast<int32_t>(econn.size()));
    ++ne;
  }
};

// nx*ny*nz hexahedra of 8 nodes; with tets, each cube is cut into the six tetrahedra around its
// main diagonal (corners 0 and 7).
inline Mesh box_mesh(int nx, int ny, int nz, bool tets = false) {
  Mesh m;
  m.nn = (nx + 1) * (ny + 1) * (nz + 1);
  auto node = [&](int i, int j, int k) { return 1 + i + (nx + 1) * (j + (ny + 1) * k); };
  for (int k = 0; k < nz; ++k)
    for (int j = 0; j < ny; ++j)
      for (int i = 0; i < nx; ++i) {
        int32_t c[8];
        for (int b = 0; b < 8; ++b) c[b] = node(i + (b & 1), j + (b >> 1 & 1), k + (b >> 2));
        if (!tets) {
          m.add({c[0], c[1], c[3], c[2], c[4], c[5], c[7], c[6]});
          continue;
        }
        static const int path[6][2] = {{1, 3}, {1, 5}, {2, 3}, {2, 6}, {4, 5}, {4, 6}};
        for (const auto &p : path) m.add({c[0], c[p[0]], c[p[0] | p[1]], c[7]});
      }
  return m;
}

}  // namespace qkm_test
