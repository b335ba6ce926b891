// Field transfer from the nodes of the mesh to points that are not nodes: the k nearest
// nodes of each point from QORLunNeighborTree, and a linear least-squares fit through them by
// eaxrmc3.
#ifndef QKS_TRANSFER_H
#define QKS_TRANSFER_H

#include <vector>

#include "model.h"

namespace qks {

// `count` points inside the mesh's bounding box, away from the nodes, from a fixed seed.
std::vector<double> sensor_points(const Mesh &mesh, int count, unsigned seed);

// For each point (3 coordinates each), the 3 components of the nodal field (3 per node)
// fitted through its k nearest nodes. Returns false when a fit fails.
bool transfer_field(const Mesh &mesh, const std::vector<double> &field,
                    const std::vector<double> &points, int k, std::vector<double> &out);

// The finite-element interpolation of the field at each point (the element that holds it,
// found through the same tree, and its shape functions); NaN for a point outside the mesh.
std::vector<double> interpolate_field(const Mesh &mesh, const std::vector<double> &field,
                                      const std::vector<double> &points);

}  // namespace qks

#endif
