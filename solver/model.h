// The data a sample solve passes between its phases: the mesh, the material, the numbering
// of the unknowns, the nodal graph and a symmetric sparse matrix in the row form of eaxmvm.
// Every index array is 1-based and in the pointer form of the graph kernels, so that the
// arrays go to the kernels as they stand.
#ifndef QKS_MODEL_H
#define QKS_MODEL_H

#include <string>
#include <vector>

#include "kernels.h"

namespace qks {

// Linear cells only; node order as in VTK and Gmsh (hexahedron: bottom face counter-clockwise,
// then the top face above it).
enum class Cell { Hex8 = 8, Tet4 = 4 };

struct Mesh {
  Cell cell = Cell::Hex8;
  std::vector<double> xyz;        // 3 coordinates per node
  std::vector<qkm_int> eptr{0};   // ne+1: element e owns econn(eptr(e)+1 .. eptr(e+1))
  std::vector<qkm_int> econn;     // node numbers from 1

  qkm_int nodes() const { return static_cast<qkm_int>(xyz.size() / 3); }
  qkm_int elements() const { return static_cast<qkm_int>(eptr.size()) - 1; }
  int per_element() const { return static_cast<int>(cell); }
};

// A block along x, clamped at x = 0: length x width x height in metres, nx x ny x nz cells.
struct Box {
  double length = 4.0, width = 0.4, height = 0.4;
  int nx = 40, ny = 8, nz = 8;
};
Mesh make_box(const Box &box);
// Tetrahedra instead: each hexahedral cell split into six around its main diagonal.
Mesh make_box_tets(const Box &box);
// Smallest and largest coordinate of every axis: lo[3], hi[3].
void bounds(const Mesh &mesh, double lo[3], double hi[3]);

struct Material {
  double young = 210.0e9;   // Pa
  double poisson = 0.3;
  double density = 7850.0;  // kg/m3
};

// Unknowns: 3 per node, node by node; eq(3*(node-1)+c) is the equation number from 1 of
// component c (0 x, 1 y, 2 z), or 0 when the component is held.
struct Dofs {
  qkm_int count = 0;
  std::vector<qkm_int> eq;
};
// Holds all three components of every node whose x is within `tol` of the smallest x.
Dofs clamp_min_x(const Mesh &mesh, double tol);

// Nodal graph as eaupnn/eaunln build it: neighbours of node i at adj(aptr(i)+1 .. aptr(i+1)),
// ascending, without i.
struct NodalGraph {
  std::vector<qkm_int> aptr;  // nn+1
  std::vector<qkm_int> adj;
};

// Symmetric matrix, lower triangle by rows with the diagonal last (eaxmvm kind 1):
// rowend(i+1) is the position from 1 of the diagonal of row i, rowend(1) = 0.
struct SymMatrix {
  qkm_int n = 0;
  std::vector<qkm_int> rowend;  // n+1
  std::vector<qkm_int> col;     // nterm; the entry at a diagonal position is not read
  std::vector<double> a;        // nterm

  qkm_int terms() const { return static_cast<qkm_int>(a.size()); }
  // y (n x nrhs) = A x through eaxmvm.
  void multiply(const double *x, double *y, int nrhs) const;
};

}  // namespace qks

#endif
