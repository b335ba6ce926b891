// k-nearest search on the octree. The query state lives in the tree object and the list in
// the caller's arrays: a query allocates nothing, and takes no square root.
#include <cstring>
#include <new>

#include "QORLunOctree.h"
#include "spatial/status.h"

using qkm::spatial::kUnexpected;

namespace {

// The node operations are const but write the query state: they reach the tree, which is
// never a const object during a query (GetNeighbors is not const), through this cast.
inline QORLunNeighborTree &query_of(const QORLunOctree *tree) {
  return const_cast<QORLunNeighborTree &>(*static_cast<const QORLunNeighborTree *>(tree));
}

}  // namespace

// ---------------------------------------------------------------- QORLunNeighborNode
QORLunNeighborNode::QORLunNeighborNode() = default;
QORLunNeighborNode::~QORLunNeighborNode() = default;

int QORLunNeighborNode::GetNeighbors() const {
  if (_Children == nullptr) return CollectNeighbors();
  if (_Tree == nullptr) return kUnexpected;
  const QORLunNeighborTree &tree = query_of(_Tree);
  const unsigned char h = GetChildIndex(tree._QueryX, tree._QueryY, tree._QueryZ);
  int status = 0;
  // Every octant of this tree is a QORLunNeighborNode (its CreateOctant makes them).
  if (_Children[h] != nullptr) {
    status = static_cast<const QORLunNeighborNode *>(_Children[h])->GetNeighbors();
    if (status < 0) return status;
  }
  if (tree._NbVisited >= tree._MaxVisited) return status;
  for (unsigned int i = 0; i < 8; ++i) {
    if (i == h || _Children[i] == nullptr) continue;
    const auto *child = static_cast<const QORLunNeighborNode *>(_Children[i]);
    if (!IsCloseEnough(tree, *child)) continue;
    status = child->GetNeighbors();
    if (status < 0 || tree._NbVisited >= tree._MaxVisited) return status;
  }
  return status;
}

int QORLunNeighborNode::CollectNeighbors() const {
  if (_Tree == nullptr) return kUnexpected;
  QORLunNeighborTree &tree = query_of(_Tree);
  if (_NbEntities == 0 || tree._NbVisited >= tree._MaxVisited) return 0;
  int status = 0;
  QORLunOctinfo info;
  for (unsigned int k = 0; k < _NbEntities; ++k) {
    info._Number = _Entities[k];
    status = _Tree->GetEntityInfo(info);
    if (status < 0) return status;
    ++tree._NbVisited;
    // Sum in the order dx², dy² + dx², dz² + (dy² + dx²); in a full list the entity is dropped
    // as soon as a partial sum reaches the worst distance, before the next axis is computed.
    const double dx = info._X - tree._QueryX;
    const double dx2 = dx * dx;
    bool take = true;
    double d2;
    if (tree._NbFound < tree._NbWanted) {
      const double dy = info._Y - tree._QueryY;
      const double dz = info._Z - tree._QueryZ;
      d2 = dz * dz + (dy * dy + dx2);
    } else {
      const double worst = (tree._Distances != nullptr && tree._NbFound != 0)
                               ? tree._Distances[tree._NbFound - 1]
                               : 0.0;
      d2 = dx2;
      if (d2 >= worst) {
        take = false;
      } else {
        const double dy = info._Y - tree._QueryY;
        d2 = dy * dy + dx2;
        if (d2 >= worst) {
          take = false;
        } else {
          const double dz = info._Z - tree._QueryZ;
          d2 = dz * dz + d2;
          take = d2 < worst;
        }
      }
    }
    if (take && (tree._KeepCoincident != 0 || d2 != 0.0)) tree.InsertNeighbor(d2, info._Number);
    if (k + 1 < _NbEntities && tree._NbVisited >= tree._MaxVisited) return 0;
  }
  return status;
}

bool QORLunNeighborNode::IsCloseEnough(const QORLunNeighborTree &tree,
                                       const QORLunNeighborNode &node) const {
  if (tree._NbWanted > tree._NbFound) return true;
  const double worst = (tree._NbFound != 0 && tree._Distances != nullptr)
                           ? tree._Distances[tree._NbFound - 1]
                           : 0.0;
  const double limit = worst / tree._Factor;
  // The node's box, as its GetBoundingBox gives it (computed here, in line: it is asked for
  // at every cell of a query).
  double size[3] = {0.0, 0.0, 0.0};
  if (node._Tree != nullptr) {
    const QORLunNeighborTree &owner = *static_cast<const QORLunNeighborTree *>(node._Tree);
    const double scale = qkm::spatial::two_to(node._Level);
    size[0] = owner._SizeX / scale;
    size[1] = owner._SizeY / scale;
    size[2] = owner._SizeZ / scale;
  }
  const double centre[3] = {node._X, node._Y, node._Z};
  double lo[3], hi[3];
  for (int a = 0; a < 3; ++a) {
    lo[a] = centre[a] - size[a] * 0.5;
    hi[a] = centre[a] + size[a] * 0.5;
  }
  const double q[3] = {tree._QueryX, tree._QueryY, tree._QueryZ};
  // One term per axis: the squared gap to the box's range when the query is outside it;
  // inside, 0 on x, and on y and z the previous axis's term again. This over-estimates the box
  // distance, so more cells are dropped than by an exact search.
  double term = 0.0, sum = 0.0;
  for (int a = 0; a < 3; ++a) {
    if (lo[a] > q[a])
      term = (lo[a] - q[a]) * (lo[a] - q[a]);
    else if (q[a] > hi[a])
      term = (q[a] - hi[a]) * (q[a] - hi[a]);
    else if (a == 0)
      term = 0.0;
    sum += term;
    if (a < 2 && sum >= limit) return false;
  }
  return sum < limit;
}

// ---------------------------------------------------------------- QORLunNeighborTree
QORLunNeighborTree::QORLunNeighborTree()
    : QORLunOctree(), _QueryX(0.0), _QueryY(0.0), _QueryZ(0.0), _Factor(0.0),
      _Distances(nullptr), _Indices(nullptr), _NbFound(0), _NbWanted(0), _NbVisited(0),
      _MaxVisited(0), _KeepCoincident(0) {}

QORLunNeighborTree::~QORLunNeighborTree() { Reset(); }

int QORLunNeighborTree::CreateOctant(QORLunOctant *&octant) const {
  if (octant != nullptr) return kUnexpected;
  octant = new (std::nothrow) QORLunNeighborNode;
  return octant == nullptr ? kUnexpected : 0;
}

void QORLunNeighborTree::Reset() {
  _QueryX = _QueryY = _QueryZ = 0.0;
  _Factor = 0.0;
  _Distances = nullptr;
  _Indices = nullptr;
  _NbFound = _NbWanted = _NbVisited = _MaxVisited = 0;
  _KeepCoincident = 0;
}

int QORLunNeighborTree::GetNeighbors(double x, double y, double z, unsigned int wanted,
                                     unsigned int &found, unsigned int *indices,
                                     double *distances, double approximation,
                                     unsigned int maxVisited, unsigned char keepCoincident) {
  if (indices == nullptr || distances == nullptr || approximation < 0.0) return kUnexpected;
  _QueryX = x;
  _QueryY = y;
  _QueryZ = z;
  _Indices = indices;
  _Distances = distances;
  _Factor = (approximation + 1.0) * (approximation + 1.0);
  found = 0;
  _NbFound = 0;
  _NbVisited = 0;
  const unsigned int valid = GetNbValidEntities();
  _NbWanted = wanted > valid ? valid : wanted;
  _MaxVisited = maxVisited > valid ? valid : maxVisited;
  _KeepCoincident = keepCoincident;
  if (_Root == nullptr || _NbWanted == 0 || _MaxVisited == 0) return 0;
  std::memset(_Indices, 0, sizeof(unsigned int) * _NbWanted);
  std::memset(_Distances, 0, sizeof(double) * _NbWanted);
  const int status = static_cast<const QORLunNeighborNode *>(_Root)->GetNeighbors();
  if (status < 0) {
    std::memset(_Indices, 0, sizeof(unsigned int) * _NbWanted);
    std::memset(_Distances, 0, sizeof(double) * _NbWanted);
    Reset();
  }
  found = _NbFound;
  return status;
}

unsigned int QORLunNeighborTree::FindPosition(double distance) const {
  if (_NbFound == 0) return 0;
  unsigned int hi = _NbFound - 1;
  unsigned int mid = hi / 2;
  if (_Distances[mid] == distance || hi == 0) return mid;
  unsigned int lo = 0;
  for (;;) {
    if (_Distances[mid] > distance)
      hi = mid;
    else
      lo = mid + 1;
    // lo <= hi holds throughout; the sum is taken in 64 bits so that it cannot wrap.
    mid = static_cast<unsigned int>((static_cast<unsigned long long>(hi) + lo) / 2);
    if (_Distances[mid] == distance || hi == lo) return mid;
  }
}

unsigned int QORLunNeighborTree::InsertNeighbor(double distance, unsigned int index) {
  unsigned int p = 0;
  if (_NbFound != 0) {
    const unsigned int pos = FindPosition(distance);
    p = distance < _Distances[pos] ? pos : pos + 1;  // among equals, behind the one found
    if (p >= _NbWanted) return _NbFound;
    unsigned int m = _NbFound - p;
    if (_NbFound >= _NbWanted) --m;  // the last entry falls off
    if (m > 0) {
      std::memmove(_Distances + p + 1, _Distances + p, sizeof(double) * m);
      std::memmove(_Indices + p + 1, _Indices + p, sizeof(unsigned int) * m);
    }
  }
  _Distances[p] = distance;
  _Indices[p] = index;
  if (_NbFound < _NbWanted) ++_NbFound;
  return _NbFound;
}
