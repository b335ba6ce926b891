// Gmsh MSH 4.1 ASCII meshes: linear hexahedra (type 5) or tetrahedra (type 4) with their
// nodes. Other element types in the file (points, lines, surface elements) are skipped.
#ifndef QKS_MSH_H
#define QKS_MSH_H

#include <string>

#include "model.h"

namespace qks {

// Reads `path` into `mesh`. On failure returns false, leaves `mesh` unchanged and sets `error`
// to "<path>:<line>: <what was expected>, found <what was there>" or similar.
bool read_msh(const std::string &path, Mesh &mesh, std::string &error);
// Writes the mesh as MSH 4.1 ASCII (one volume entity); false with `error` on failure.
bool write_msh(const std::string &path, const Mesh &mesh, std::string &error);

}  // namespace qks

#endif
