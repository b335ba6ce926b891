// Field transfer to points that are not nodes: a least-squares fit through the nearest nodes
// (QORLunNeighborTree and eaxrmc3), and the finite-element interpolation of the element that
// holds the point.
#include "transfer.h"

#include <QORLunOctree.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

namespace qks {

namespace {

// A neighbor tree over a point array of 3 coordinates per entity, built once.
class PointTree : public QORLunNeighborTree {
 public:
  explicit PointTree(const std::vector<double> &xyz) : xyz_(xyz.data()) {
    const unsigned int n = static_cast<unsigned int>(xyz.size() / 3);
    if (n == 0) return;
    double lo[3] = {HUGE_VAL, HUGE_VAL, HUGE_VAL}, hi[3] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
    for (std::size_t i = 0; i < xyz.size(); ++i) {
      lo[i % 3] = std::min(lo[i % 3], xyz[i]);
      hi[i % 3] = std::max(hi[i % 3], xyz[i]);
    }
    const double diag = std::hypot(hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]);
    // Leaves of 16; cells no smaller than a millionth of the box.
    ok_ = Build(xyz_, n, 16, nullptr, diag > 0.0 ? 1e-6 * diag : 1.0, 20) >= 0;
  }
  int GetEntityInfo(QORLunOctinfo &info) const override {
    const double *p = xyz_ + 3 * static_cast<std::size_t>(info._Number);
    info._X = p[0];
    info._Y = p[1];
    info._Z = p[2];
    return 0;
  }
  // Up to `k` nearest entities to p (an entity at p included), nearest first; false when the
  // search fails.
  bool nearest(const double *p, unsigned int k, std::vector<unsigned int> &index,
               std::vector<double> &d2) {
    index.resize(k);
    d2.resize(k);
    unsigned int found = 0;
    // Generous: the search normally stops long before, but a bound keeps every query cheap.
    const unsigned int max_visited = std::max(2048u, 64u * k);
    if (!ok_ || GetNeighbors(p[0], p[1], p[2], k, found, index.data(), d2.data(), 0.0,
                             max_visited, 1) < 0)
      return false;
    index.resize(found);
    d2.resize(found);
    return found > 0;
  }

 private:
  const double *xyz_;
  bool ok_ = false;
};

// The linear basis 1, x, y, z at the (scaled) point.
qkm_int linear_basis(const qkm_int *, const qkm_int *, const qkm_int *, const qkm_int *,
                     const qkm_int *, const double *xyz, double *, double *values, qkm_int *) {
  values[0] = 1.0;
  values[1] = xyz[0];
  values[2] = xyz[1];
  values[3] = xyz[2];
  return 0;
}

// Shape functions of the 8-node hexahedron at (r, s, t) in [-1, 1]^3, with their derivatives.
const double kCorner[8][3] = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1},
                              {-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1}};
void hex_shape(const double r[3], double n[8], double dn[8][3]) {
  for (int i = 0; i < 8; ++i) {
    const double a = 1.0 + kCorner[i][0] * r[0], b = 1.0 + kCorner[i][1] * r[1],
                 c = 1.0 + kCorner[i][2] * r[2];
    n[i] = 0.125 * a * b * c;
    dn[i][0] = 0.125 * kCorner[i][0] * b * c;
    dn[i][1] = 0.125 * a * kCorner[i][1] * c;
    dn[i][2] = 0.125 * a * b * kCorner[i][2];
  }
}

// Solves the 3 x 3 system m x = b (m by rows) by Cramer's rule; false when singular.
bool solve3(const double m[3][3], const double b[3], double x[3]) {
  const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                     m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                     m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
  if (!(std::fabs(det) > 0.0)) return false;
  for (int c = 0; c < 3; ++c) {
    double t[3][3];
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) t[i][j] = j == c ? b[i] : m[i][j];
    x[c] = (t[0][0] * (t[1][1] * t[2][2] - t[1][2] * t[2][1]) -
            t[0][1] * (t[1][0] * t[2][2] - t[1][2] * t[2][0]) +
            t[0][2] * (t[1][0] * t[2][1] - t[1][1] * t[2][0])) /
           det;
  }
  return true;
}

// Slack on the reference coordinates for a point on an element's face.
constexpr double kInside = 1e-9;

// Shape function values of element `e` at physical point p, when p lies in it.
bool shape_at(const Mesh &m, qkm_int e, const double *p, double n[8]) {
  const qkm_int *c = &m.econn[m.eptr[e]];
  auto x = [&](int i, int a) { return m.xyz[3 * (c[i] - 1) + a]; };
  if (m.cell == Cell::Tet4) {
    double jac[3][3], rhs[3], l[3];
    for (int a = 0; a < 3; ++a) {
      for (int i = 0; i < 3; ++i) jac[a][i] = x(i + 1, a) - x(0, a);
      rhs[a] = p[a] - x(0, a);
    }
    if (!solve3(jac, rhs, l)) return false;
    n[0] = 1.0 - l[0] - l[1] - l[2];
    n[1] = l[0];
    n[2] = l[1];
    n[3] = l[2];
    return std::min({n[0], n[1], n[2], n[3]}) >= -kInside;
  }
  // Inverse of the trilinear map by Newton from the centre.
  double r[3] = {0, 0, 0}, dn[8][3];
  for (int it = 0; it < 30; ++it) {
    hex_shape(r, n, dn);
    double jac[3][3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}}, res[3], d[3];
    for (int a = 0; a < 3; ++a) {
      res[a] = p[a];
      for (int i = 0; i < 8; ++i) {
        res[a] -= n[i] * x(i, a);
        for (int b = 0; b < 3; ++b) jac[a][b] += dn[i][b] * x(i, a);
      }
    }
    if (!solve3(jac, res, d)) return false;
    double step = 0.0;
    for (int a = 0; a < 3; ++a) {
      r[a] += d[a];
      step = std::max(step, std::fabs(d[a]));
    }
    if (!(std::max({std::fabs(r[0]), std::fabs(r[1]), std::fabs(r[2])}) < 4.0)) return false;
    if (step < 1e-15) break;
  }
  hex_shape(r, n, dn);
  return std::max({std::fabs(r[0]), std::fabs(r[1]), std::fabs(r[2])}) <= 1.0 + kInside;
}

}  // namespace

std::vector<double> sensor_points(const Mesh &mesh, int count, unsigned seed) {
  std::vector<double> out;
  if (count <= 0 || mesh.nodes() == 0) return out;
  double lo[3], hi[3];
  bounds(mesh, lo, hi);
  // A typical node spacing; a point nearer than a fifth of it to a node is drawn again.
  double ext[3], volume = 1.0;
  for (int a = 0; a < 3; ++a) {
    ext[a] = hi[a] - lo[a];
    volume *= ext[a];
  }
  const double spacing = std::cbrt(volume / mesh.nodes());
  PointTree tree(mesh.xyz);
  std::mt19937 gen(seed);
  // 32 random bits to (0, 1) the same way on every standard library.
  auto uniform = [&gen] { return (static_cast<double>(gen()) + 0.5) * 0x1p-32; };
  std::vector<unsigned int> idx;
  std::vector<double> d2;
  out.reserve(3 * static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    double p[3];
    for (int attempt = 0; attempt < 64; ++attempt) {
      for (int a = 0; a < 3; ++a) p[a] = lo[a] + (0.02 + 0.96 * uniform()) * ext[a];
      if (!tree.nearest(p, 1, idx, d2) || std::sqrt(d2[0]) >= 0.2 * spacing) break;
    }
    out.insert(out.end(), p, p + 3);
  }
  return out;
}

bool transfer_field(const Mesh &mesh, const std::vector<double> &field,
                    const std::vector<double> &points, int k, std::vector<double> &out) {
  const std::size_t nn = static_cast<std::size_t>(mesh.nodes());
  if (k < 1 || field.size() != 3 * nn || points.size() % 3 != 0) return false;
  if (points.empty()) {
    out.clear();
    return true;
  }
  PointTree tree(mesh.xyz);
  const qkm_int nbasis = 4;
  double gram[16], work[16], z[16], pvec[4], coef[4], fit = 0.0;
  const double origin[3] = {0, 0, 0}, at_origin[4] = {1, 0, 0, 0};
  const qkm_int one = 1;
  std::vector<unsigned int> idx;
  std::vector<double> d2, pts, vals[3], bmat, wts;
  std::vector<double> result(points.size());
  const unsigned int widest = static_cast<unsigned int>(std::min<std::size_t>(8u * k, nn));
  for (std::size_t q = 0; q < points.size(); q += 3) {
    const double *p = &points[q];
    qkm_int npts = 0, ierr = 0;
    // Grow the neighbourhood while the nodes found do not span the space (all in one plane).
    for (unsigned int want = static_cast<unsigned int>(k);; want *= 2) {
      if (!tree.nearest(p, want, idx, d2)) return false;
      npts = static_cast<qkm_int>(idx.size());
      // Coordinates relative to the point, so that the fit is evaluated at the origin and the
      // basis stays well conditioned far from the global origin.
      pts.resize(3 * idx.size());
      for (int c = 0; c < 3; ++c) vals[c].resize(idx.size());
      for (std::size_t j = 0; j < idx.size(); ++j)
        for (int a = 0; a < 3; ++a) {
          pts[3 * j + a] = mesh.xyz[3 * std::size_t{idx[j]} + a] - p[a];
          vals[a][j] = field[3 * std::size_t{idx[j]} + a];
        }
      bmat.resize(4 * idx.size());
      wts.assign(idx.size(), 1.0);
      if (eaxrmc3(&nbasis, &npts, pts.data(), origin, vals[0].data(), &fit, linear_basis, gram,
                  work, z, bmat.data(), pvec, coef, wts.data(), &ierr) != 0)
        return false;
      if (ierr == 0 || idx.size() < want || want >= widest) break;
    }
    result[q] = fit;
    // The other components reuse the basis matrix and the pseudo-inverse of the first fit.
    for (int c = 1; c < 3; ++c) {
      for (int j = 0; j < nbasis; ++j)
        pvec[j] = eaxscl(&npts, &bmat[static_cast<std::size_t>(j) * npts], &one, vals[c].data(),
                         &one);
      for (int j = 0; j < nbasis; ++j) coef[j] = eaxscl(&nbasis, &gram[4 * j], &one, pvec, &one);
      result[q + c] = eaxscl(&nbasis, coef, &one, at_origin, &one);
    }
  }
  out = std::move(result);
  return true;
}

std::vector<double> interpolate_field(const Mesh &mesh, const std::vector<double> &field,
                                      const std::vector<double> &points) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::vector<double> out(points.size() - points.size() % 3, nan);
  const qkm_int ne = mesh.elements();
  if (ne == 0 || field.size() != mesh.xyz.size()) return out;
  const int per = mesh.per_element();
  std::vector<double> centroid(3 * static_cast<std::size_t>(ne), 0.0);
  for (qkm_int e = 0; e < ne; ++e)
    for (int i = 0; i < per; ++i)
      for (int a = 0; a < 3; ++a)
        centroid[3 * e + a] += mesh.xyz[3 * (mesh.econn[mesh.eptr[e] + i] - 1) + a] / per;
  PointTree tree(centroid);
  std::vector<unsigned int> idx;
  std::vector<double> d2;
  for (std::size_t q = 0; q < out.size(); q += 3) {
    const double *p = &points[q];
    // The element holding the point is almost always among the few nearest centroids; look
    // wider before giving up on a point outside the mesh.
    bool done = false;
    std::size_t tried = 0;  // candidates of the last round: a round that finds no more ends
    for (unsigned int want = 8; !done && want <= 512; want *= 4) {
      if (tried == static_cast<std::size_t>(ne)) break;
      if (!tree.nearest(p, want, idx, d2)) break;
      for (std::size_t j = 0; j < idx.size() && !done; ++j) {
        double n[8];
        const qkm_int e = static_cast<qkm_int>(idx[j]);
        if (!shape_at(mesh, e, p, n)) continue;
        for (int a = 0; a < 3; ++a) {
          double v = 0.0;
          for (int i = 0; i < per; ++i)
            v += n[i] * field[3 * (mesh.econn[mesh.eptr[e] + i] - 1) + a];
          out[q + a] = v;
        }
        done = true;
      }
      tried = idx.size();
    }
  }
  return out;
}

}  // namespace qks
