// Concrete spatial trees over a point array (x, y, z per entity), with a view on the protected
// fields, failure injection at the n-th GetEntityInfo or CreateOctant, and a brute-force
// k-nearest oracle.
#pragma once

#include <QORLunOctree.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <random>
#include <utility>
#include <vector>

namespace qkm_test {

inline constexpr int kUnexpected = static_cast<int>(0x8000ffffu);

// Reads the protected fields of any octant (through pointers to members named in a class
// derived from QORLunOctant).
struct OctantView : QORLunOctant {
  static QORLunOctant *child(const QORLunOctant &o, int i) {
    QORLunOctant **c = o.*(&OctantView::_Children);
    return c == nullptr ? nullptr : c[i];
  }
  static bool leaf(const QORLunOctant &o) { return o.*(&OctantView::_Children) == nullptr; }
  static const unsigned int *entities(const QORLunOctant &o) { return o.*(&OctantView::_Entities); }
  static unsigned int count(const QORLunOctant &o) { return o.*(&OctantView::_NbEntities); }
  static unsigned int size(const QORLunOctant &o) { return o.*(&OctantView::_EntitiesSize); }
  static unsigned int level(const QORLunOctant &o) { return o.*(&OctantView::_Level); }
};

template <class Base>
class PointTree : public Base {
 public:
  explicit PointTree(const std::vector<double> &xyz) : _Xyz(xyz.data()) {}

  int GetEntityInfo(QORLunOctinfo &info) const override {
    if (++info_calls == fail_info_at) return -7;
    const std::size_t i = 3 * std::size_t{info._Number};
    info._X = _Xyz[i];
    info._Y = _Xyz[i + 1];
    info._Z = _Xyz[i + 2];
    return 0;
  }
  int CreateOctant(QORLunOctant *&octant) const override {
    if (++create_calls == fail_create_at) return -9;
    return Base::CreateOctant(octant);
  }
  int build(unsigned int n, unsigned int capacity, double tolerance, unsigned int maxDepth,
            const unsigned char *mask = nullptr) {
    return this->Build(_Xyz, n, capacity, mask, tolerance, maxDepth);
  }

  using Base::_Data;
  using Base::_Depth;
  using Base::_MaxDepth;
  using Base::_Resolution;
  using Base::_Root;
  using Base::_SizeX;
  using Base::_SizeY;
  using Base::_SizeZ;
  mutable int info_calls = 0, create_calls = 0;
  int fail_info_at = 0, fail_create_at = 0;

 private:
  const double *_Xyz;
};

// A neighbor tree that also opens its query state.
class PointNeighborTree : public PointTree<QORLunNeighborTree> {
 public:
  using PointTree::PointTree;
  using QORLunNeighborTree::_Distances;
  using QORLunNeighborTree::_Factor;
  using QORLunNeighborTree::_Indices;
  using QORLunNeighborTree::_KeepCoincident;
  using QORLunNeighborTree::_MaxVisited;
  using QORLunNeighborTree::_NbFound;
  using QORLunNeighborTree::_NbVisited;
  using QORLunNeighborTree::_NbWanted;
  using QORLunNeighborTree::_QueryX;
  using QORLunNeighborTree::_QueryY;
  using QORLunNeighborTree::_QueryZ;
};

inline std::vector<double> random_points(std::size_t n, unsigned seed, double extent = 1.0) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> u(0.0, extent);
  std::vector<double> xyz(3 * n);
  for (double &v : xyz) v = u(gen);
  return xyz;
}

inline double squared_distance(const std::vector<double> &xyz, std::size_t i, double x,
                               double y, double z) {
  const double dx = xyz[3 * i] - x, dy = xyz[3 * i + 1] - y, dz = xyz[3 * i + 2] - z;
  return dz * dz + (dy * dy + dx * dx);
}

// The exact k nearest (squared distance, index), ascending; entities at distance 0 left out
// unless `coincident`, masked ones always.
inline std::vector<std::pair<double, unsigned int>> exact_knn(
    const std::vector<double> &xyz, double x, double y, double z, std::size_t k,
    bool coincident = false, const unsigned char *mask = nullptr) {
  std::vector<std::pair<double, unsigned int>> all;
  for (std::size_t i = 0; i < xyz.size() / 3; ++i) {
    if (mask != nullptr && mask[i] == 0) continue;
    const double d = squared_distance(xyz, i, x, y, z);
    if (d != 0.0 || coincident) all.emplace_back(d, static_cast<unsigned int>(i));
  }
  k = std::min(k, all.size());
  std::partial_sort(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(k), all.end());
  all.resize(k);
  return all;
}

}  // namespace qkm_test
