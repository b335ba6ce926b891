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

// Asks for the cache lines of a cell object (its first and its last byte).
inline void prefetch_object(const QORLunOctant *o) {
  __builtin_prefetch(o);
  __builtin_prefetch(reinterpret_cast<const char *>(o) + sizeof(QORLunOctant) - 1);
}

// Entities fetched from the application in one go before a leaf's distances are taken.
constexpr unsigned int kFetch = 64;

}  // namespace

namespace qkm::spatial {

// One query in progress. The search runs on this copy of the tree's query fields, in locals
// the compiler can keep in registers (the list's stores cannot alias them), and writes the
// counts back to the tree when a leaf or a public entry ends: the tree's fields are current
// between leaves and after every public operation.
struct NeighborSearch {
  double qx, qy, qz, factor;
  double *distances;
  unsigned int *indices;
  unsigned int found, wanted, visited, maxVisited;
  unsigned char keep;
  QORLunNeighborTree &tree;

  explicit NeighborSearch(QORLunNeighborTree &t)
      : qx(t._QueryX), qy(t._QueryY), qz(t._QueryZ), factor(t._Factor),
        distances(t._Distances), indices(t._Indices), found(t._NbFound), wanted(t._NbWanted),
        visited(t._NbVisited), maxVisited(t._MaxVisited), keep(t._KeepCoincident), tree(t) {}

  void store() const {
    tree._NbFound = found;
    tree._NbVisited = visited;
  }
  bool capped() const { return visited >= maxVisited; }
  // The list's last distance, or 0 when it cannot be read.
  double worst() const {
    return (found != 0 && distances != nullptr) ? distances[found - 1] : 0.0;
  }

  // Asks for what a search of the cell reads first: its child table, or its entity list.
  static void prefetch_below(const QORLunOctant &o) {
    if (o._Children != nullptr)
      __builtin_prefetch(o._Children);
    else
      __builtin_prefetch(o._Entities);
  }

  // Half the sizes of a cell of `owner` at `level` (zero without a tree), as the cell's
  // GetBoundingBox takes them: the tree's sizes over 2^level, times 0.5.
  static void half_sizes(const QORLunOctree *owner, unsigned int level, double half[3]) {
    half[0] = half[1] = half[2] = 0.0;
    if (owner == nullptr) return;
    const double scale = two_to(level);
    half[0] = owner->_SizeX / scale * 0.5;
    half[1] = owner->_SizeY / scale * 0.5;
    half[2] = owner->_SizeZ / scale * 0.5;
  }

  // The cell test of a full list on `node`, whose half sizes are given.
  bool close_enough(const QORLunOctant &node, const double half[3]) const {
    if (wanted > found) return true;
    const double limit = worst() / factor;
    const double centre[3] = {node._X, node._Y, node._Z};
    const double q[3] = {qx, qy, qz};
    // One term per axis: the squared gap to the box's range when the query is outside it;
    // inside, 0 on x, and on y and z the previous axis's term again. This over-estimates the
    // box distance, so more cells are dropped than by an exact search.
    double term = 0.0, sum = 0.0;
    for (int a = 0; a < 3; ++a) {
      const double lo = centre[a] - half[a], hi = centre[a] + half[a];
      if (lo > q[a])
        term = (lo - q[a]) * (lo - q[a]);
      else if (q[a] > hi)
        term = (q[a] - hi) * (q[a] - hi);
      else if (a == 0)
        term = 0.0;
      sum += term;
      if (a < 2 && sum >= limit) return false;
    }
    return sum < limit;
  }

  // Bisection for an index near the place of `distance` in the sorted list.
  unsigned int position(double distance) const {
    if (found == 0) return 0;
    unsigned int hi = found - 1;
    unsigned int mid = hi / 2;
    if (distances[mid] == distance || hi == 0) return mid;
    unsigned int lo = 0;
    for (;;) {
      if (distances[mid] > distance)
        hi = mid;
      else
        lo = mid + 1;
      // lo <= hi holds throughout; the sum is taken in 64 bits so that it cannot wrap.
      mid = static_cast<unsigned int>((static_cast<unsigned long long>(hi) + lo) / 2);
      if (distances[mid] == distance || hi == lo) return mid;
    }
  }

  // Sorted insert, among equals behind the one found.
  void insert(double distance, unsigned int index) {
    unsigned int p = 0;
    if (found != 0) {
      const unsigned int pos = position(distance);
      p = distance < distances[pos] ? pos : pos + 1;
      if (p >= wanted) return;
      unsigned int m = found - p;
      if (found >= wanted) --m;  // the last entry falls off
      // The m entries from p move one place up (a memmove, written out: m is small).
      for (unsigned int i = p + m; i > p; --i) {
        distances[i] = distances[i - 1];
        indices[i] = indices[i - 1];
      }
    }
    distances[p] = distance;
    indices[p] = index;
    if (found < wanted) ++found;
  }

  // Takes `n` fetched entities in order. In a full list an entity is taken only below the
  // worst distance: since the squares are not negative, the partial sums dx², dy² + dx² never
  // exceed the full one, and "a partial sum reaches the worst" is "the full sum reaches it",
  // NaN included (every comparison with it fails).
  void take(unsigned int n, const double *d2, const unsigned int *number) {
    double limit = wanted > found ? 0.0 : worst();
    for (unsigned int j = 0; j < n; ++j) {
      const bool open = wanted > found;
      if (!open && !(d2[j] < limit)) continue;
      if (keep == 0 && d2[j] == 0.0) continue;
      insert(d2[j], number[j]);
      if (found >= wanted) limit = worst();
    }
  }

  // Examines the entities of a leaf: fetched in groups through GetEntityInfo, in stored
  // order and never past the cap, then their squared distances summed as dz² + (dy² + dx²)
  // and offered to the list in the same order. Kept out of line: its group buffers must not
  // land in every frame of the recursive descent.
  __attribute__((noinline)) int collect(const QORLunOctant &leaf) {
    if (leaf._Tree == nullptr) return kUnexpected;
    const unsigned int n = leaf._NbEntities;
    if (n == 0 || capped()) return 0;
    const QORLunOctree &owner = *leaf._Tree;
    const unsigned int *entities = leaf._Entities;
    double px[kFetch], py[kFetch], pz[kFetch], d2[kFetch];
    unsigned int number[kFetch];
    QORLunOctinfo info;
    int status = 0;
    for (unsigned int k = 0; k < n;) {
      unsigned int m = n - k < kFetch ? n - k : kFetch;
      if (m > maxVisited - visited) m = maxVisited - visited;
      unsigned int got = 0;
      for (; got < m; ++got) {
        info._Number = entities[k + got];
        status = owner.GetEntityInfo(info);
        if (status < 0) break;
        px[got] = info._X;
        py[got] = info._Y;
        pz[got] = info._Z;
        number[got] = info._Number;
      }
      visited += got;
      for (unsigned int j = 0; j < got; ++j) {
        const double dx = px[j] - qx, dy = py[j] - qy, dz = pz[j] - qz;
        d2[j] = dz * dz + (dy * dy + dx * dx);
      }
      take(got, d2, number);
      if (status < 0) return status;
      k += got;
      if (k < n && capped()) return 0;
    }
    return status;
  }

  // The descent: the query's own child first, then the others in index order where the cell
  // test allows. A child is one level below its parent, in its parent's tree (AddChild makes
  // it so): the children's half sizes are derived once per node. The siblings' cells are
  // fetched ahead while the own child is searched, since the cell test reads each of them.
  int descend(const QORLunOctant &node) {
    if (node._Children == nullptr) {
      const int status = collect(node);
      store();
      return status;
    }
    if (node._Tree == nullptr) return kUnexpected;
    QORLunOctant *const *children = node._Children;
    const unsigned int h = (qx > node._X ? 1u : 0u) | (qy > node._Y ? 2u : 0u) |
                           (qz > node._Z ? 4u : 0u);
    for (unsigned int i = 0; i < 8; ++i)
      if (i != h && children[i] != nullptr) prefetch_object(children[i]);
    int status = 0;
    if (children[h] != nullptr) {
      status = descend(*children[h]);
      if (status < 0) return status;
    }
    if (capped()) return status;
    for (unsigned int i = 0; i < 8; ++i)
      if (i != h && children[i] != nullptr) prefetch_below(*children[i]);
    double half[3];
    half_sizes(node._Tree, node._Level + 1, half);
    for (unsigned int i = 0; i < 8; ++i) {
      const QORLunOctant *child = children[i];
      if (i == h || child == nullptr) continue;
      if (wanted <= found && !close_enough(*child, half)) continue;
      status = descend(*child);
      if (status < 0 || capped()) return status;
    }
    return status;
  }
};

}  // namespace qkm::spatial

using qkm::spatial::NeighborSearch;

// ---------------------------------------------------------------- QORLunNeighborNode
QORLunNeighborNode::QORLunNeighborNode() = default;
QORLunNeighborNode::~QORLunNeighborNode() = default;

int QORLunNeighborNode::GetNeighbors() const {
  if (_Tree == nullptr) return kUnexpected;
  NeighborSearch search(query_of(_Tree));
  const int status = search.descend(*this);
  search.store();
  return status;
}

int QORLunNeighborNode::CollectNeighbors() const {
  if (_Tree == nullptr) return kUnexpected;
  NeighborSearch search(query_of(_Tree));
  const int status = search.collect(*this);
  search.store();
  return status;
}

bool QORLunNeighborNode::IsCloseEnough(const QORLunNeighborTree &tree,
                                       const QORLunNeighborNode &node) const {
  double half[3];
  NeighborSearch::half_sizes(node._Tree, node._Level, half);
  return NeighborSearch(const_cast<QORLunNeighborTree &>(tree)).close_enough(node, half);
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
  NeighborSearch search(*this);
  const int status = search.descend(*_Root);
  search.store();
  if (status < 0) {
    std::memset(_Indices, 0, sizeof(unsigned int) * _NbWanted);
    std::memset(_Distances, 0, sizeof(double) * _NbWanted);
    Reset();
  }
  found = _NbFound;
  return status;
}

unsigned int QORLunNeighborTree::FindPosition(double distance) const {
  return NeighborSearch(const_cast<QORLunNeighborTree &>(*this)).position(distance);
}

unsigned int QORLunNeighborTree::InsertNeighbor(double distance, unsigned int index) {
  NeighborSearch search(*this);
  search.insert(distance, index);
  search.store();
  return _NbFound;
}
