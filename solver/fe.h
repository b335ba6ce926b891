// Finite elements of linear elasticity: the nodal graph and the matrix pattern, element
// matrices of the 8-node hexahedron (2x2x2 Gauss points) and the 4-node tetrahedron,
// assembly, the four load cases and nodal stresses.
#ifndef QKS_FE_H
#define QKS_FE_H

#include <vector>

#include "model.h"

class QORKytMemoryManager;

namespace qks {

// eaupnn then eaunln over the elements of the mesh; their scratch arrays are one group of
// `memory`, released before returning. aptr is empty when memory ran out.
NodalGraph nodal_graph(const Mesh &mesh, QORKytMemoryManager &memory);

// The pattern of the stiffness matrix over the free unknowns: in each row the unknowns of
// the row's own node and of its graph neighbours whose equation number is smaller, ascending,
// then the diagonal. Values zero. Empty (n = 0) when the graph is.
SymMatrix matrix_pattern(const Mesh &mesh, const NodalGraph &graph, const Dofs &dofs);

// Adds the element stiffness (and, when mass is given, the consistent mass, on the same
// pattern: a mass of another pattern is given the stiffness's, zeroed) of every element into
// the zeroed values. Hexahedra are the incompatible-modes element (nine internal bubble modes
// condensed per element), tetrahedra the constant-strain one. Work arrays come from `memory`
// in one group released before returning. Returns 0, or non-zero when an element is inverted
// (non-positive Jacobian: 1), memory ran out (2) or the pattern lacks an entry (3).
int assemble(const Mesh &mesh, const Material &mat, const Dofs &dofs, SymMatrix &stiffness,
             SymMatrix *mass, QORKytMemoryManager &memory);

// The stiffness of element e alone, condensed to its nodal unknowns: nd x nd by rows
// (nd = 3 x nodes of the element, unknown 3a + c for component c of node a). Empty when the
// element is inverted.
std::vector<double> element_stiffness(const Mesh &mesh, const Material &mat, qkm_int e);

// The four load cases of the sample solve, as 4 vectors of dofs.count, one after the other:
// 0: force `tip` (N) in y spread over the nodes of the face of largest x, consistently;
// 1: the same in z; 2: a couple `torque` (N m) about the x axis on that face, as tangential
// nodal forces proportional to the distance from the face's centre; 3: gravity `g` (m/s2)
// in -z over the whole volume, consistently.
struct Loads {
  double tip = 1.0e4;
  double torque = 1.0e4;
  double gravity = 9.81;
};
std::vector<double> load_cases(const Mesh &mesh, const Material &mat, const Dofs &dofs,
                               const Loads &loads);

// Full nodal vectors (3 per node, zeros at held components) from a solution vector.
std::vector<double> nodal_field(const Mesh &mesh, const Dofs &dofs, const double *x);

// Von Mises stress per node: element stresses at the Gauss points averaged over the
// elements around each node (a corner takes the Gauss point in its octant; the tensors are
// averaged, then the von Mises stress is taken). `u` is a nodal field (3 per node).
std::vector<double> von_mises(const Mesh &mesh, const Material &mat, const std::vector<double> &u);

}  // namespace qks

#endif
