// Files a person looks at: the VTK XML unstructured grid and a picture of the deformed body.
#ifndef QKS_OUTPUT_H
#define QKS_OUTPUT_H

#include <string>
#include <vector>

#include "model.h"

namespace qks {

// beam.vtu: points, cells, point data "displacement" (3 components) and "von Mises" (1).
bool write_vtu(const std::string &path, const Mesh &mesh, const std::vector<double> &displacement,
               const std::vector<double> &von_mises, std::string &error);

// The picture's size by default, in pixels.
constexpr int kPictureWidth = 1200, kPictureHeight = 700;

// A PNG of the deformed mesh (displacements magnified by `scale`, 0 for automatic) seen in
// perspective, its outer faces coloured by displacement magnitude, with a colour bar, units
// and a title. Drawn with Cairo. Coordinates and displacements in metres; |u| shown in mm.
bool write_png(const std::string &path, const Mesh &mesh, const std::vector<double> &displacement,
               double scale, const std::string &title, int width, int height, std::string &error);

}  // namespace qks

#endif
