// Spatial search: an octree over the application's entities and a k-nearest search on it.
//
// The tree holds only entity numbers; it asks for an entity's point through the pure
// GetEntityInfo, so the application derives a class that knows its data. Both trees are
// abstract here. Statuses: 0 or positive on success, negative on failure, 0x8000ffff for the
// tree's own failures (bad call, or a state that must not occur). Nothing throws: an exhausted
// allocation takes the failure path and the tree resets.
//
// Threads: none. Build and Reset change the tree without a lock, and a query writes its state
// into the tree object (the node operations are const but work through the tree), so one tree
// serves one thread at a time, queries included.
#ifndef QORLUN_OCTREE_H
#define QORLUN_OCTREE_H

class QORLunOctree;
class QORLunOctant;
class QORLunNeighborTree;
class QORLunNeighborNode;

// The k-nearest search's inner loops, inside the library (not exported): they read the
// fields of the tree and its cells directly.
namespace qkm::spatial {
struct NeighborSearch;
}

// One point and one number; `_Number` is an entity index, a level or a child index, and the
// point may stand for three half sizes, depending on the use.
class __attribute__((visibility("default"))) QORLunOctinfo {
 public:
  QORLunOctinfo();
  QORLunOctinfo(const QORLunOctinfo &other);
  QORLunOctinfo(unsigned int number, double x, double y, double z);
  QORLunOctinfo &operator=(const QORLunOctinfo &other) = default;
  virtual ~QORLunOctinfo();  // zeroes the fields

  double _X;
  double _Y;
  double _Z;
  unsigned int _Number;
};

// One cell. Internal when `_Children` (8 pointers, any may be null) is set; a leaf holds
// `_Entities`. Sizes are not stored: the tree's sizes halved `_Level` times.
class __attribute__((visibility("default"))) QORLunOctant {
 public:
  QORLunOctant();
  virtual ~QORLunOctant();  // as Reset

  // Tree, centre (info._X/_Y/_Z) and level (info._Number).
  void Init(const QORLunOctree &tree, const QORLunOctinfo &info);
  // Deletes children, table and list; clears every field.
  void Reset();
  void GetSizes(double &sx, double &sy, double &sz) const;
  void GetBoundingBox(double &xMin, double &yMin, double &zMin, double &xMax, double &yMax,
                      double &zMax) const;
  // Bit 0: x strictly above the centre; bit 1: y; bit 2: z.
  unsigned char GetChildIndex(double x, double y, double z) const;
  // Appends to the list, growing it (capacity _OctantCapacity, then doubling); no split.
  int AddIndex(unsigned int index);
  // Creates child half._Number, of size half._X/_Y/_Z.
  int AddChild(const QORLunOctinfo &half);
  // Sorts one entity (point in info, index in info._Number) in; on success info._Number is the
  // level of the leaf that took it plus one. On failure this octant resets.
  int Add(QORLunOctinfo &info);

 protected:
  friend class QORLunOctree;
  friend struct qkm::spatial::NeighborSearch;
  double _X;
  double _Y;
  double _Z;
  const QORLunOctree *_Tree;
  QORLunOctant **_Children;
  unsigned int *_Entities;
  unsigned int _NbEntities;  // leaf: entries in use; internal: entities below
  unsigned int _EntitiesSize;
  unsigned int _Level;
};

class __attribute__((visibility("default"))) QORLunOctree {
 public:
  QORLunOctree();
  virtual ~QORLunOctree();

  // Makes a new octant in `octant`, which must be null. Derived trees make their own nodes.
  virtual int CreateOctant(QORLunOctant *&octant) const;
  // Supplied by the application: writes the point of entity info._Number (below _NbEntities).
  // A negative status aborts the caller.
  virtual int GetEntityInfo(QORLunOctinfo &info) const = 0;

  // Builds the tree once over `count` entities (those with a zero `mask` byte left out);
  // leaves split above `capacity` entities, down to a depth that `maxDepth` and `tolerance`
  // both limit. `data` is kept for the derived class and must be non-null.
  int Build(const void *data, unsigned int count, unsigned int capacity,
            const unsigned char *mask, double tolerance, unsigned int maxDepth);
  int InitRootAndSizes();
  void InitLimits();
  // Back to the empty tree; it can be built again.
  void Reset();

  unsigned int GetNbValidEntities() const;
  void GetCenter(double &x, double &y, double &z) const;
  void GetBoundingBox(double &xMin, double &yMin, double &zMin, double &xMax, double &yMax,
                      double &zMax) const;
  // 8^level and (8^levels - 1) / 7, in double, truncated to 32 bits as the machine's
  // conversion does (through a 64-bit integer).
  unsigned int GetLevelMaxNbOctants(unsigned int level) const;
  unsigned int GetTreeMaxNbOctants(unsigned int levels) const;

 protected:
  friend class QORLunOctant;
  friend struct qkm::spatial::NeighborSearch;
  double _SizeX;
  double _SizeY;
  double _SizeZ;
  // The tolerance during Build; then the diagonal of the box when it fits the tolerance (a
  // length), otherwise the squared diagonal of a cell at level _MaxDepth.
  double _Resolution;
  QORLunOctant *_Root;
  const void *_Data;  // non-null once built
  const unsigned char *_Mask;
  unsigned int _NbEntities;
  unsigned int _OctantCapacity;
  unsigned int _Depth;
  unsigned int _MaxDepth;
};

// Node of a QORLunNeighborTree; the search runs through it.
class __attribute__((visibility("default"))) QORLunNeighborNode : public QORLunOctant {
 public:
  QORLunNeighborNode();
  virtual ~QORLunNeighborNode();

  // Descends from this node: the cell of the query first, then the other children in index
  // order where IsCloseEnough allows.
  int GetNeighbors() const;
  // Examines the entities of this leaf.
  int CollectNeighbors() const;
  // Whether `node` may hold something better than the worst of a full list, by the search's
  // own box measure (an axis with the query inside its range repeats the previous axis's term).
  bool IsCloseEnough(const QORLunNeighborTree &tree, const QORLunNeighborNode &node) const;
};

// k-nearest search. Distances are squared throughout. A query allocates nothing: the list
// lives in the caller's arrays, and the query state in this object (one query at a time).
class __attribute__((visibility("default"))) QORLunNeighborTree : public QORLunOctree {
 public:
  QORLunNeighborTree();
  virtual ~QORLunNeighborTree();

  int CreateOctant(QORLunOctant *&octant) const override;

  // Clears the query state only; the tree stays.
  void Reset();
  // Up to `wanted` entities nearest to (x, y, z), ascending squared distances in `distances`,
  // their numbers in `indices`, the count in `found`. A cell is entered only if it is closer
  // than the worst distance over (1 + approximation)^2; at most `maxVisited` entities are
  // examined; with keepCoincident 0 an entity exactly at the query is left out.
  int GetNeighbors(double x, double y, double z, unsigned int wanted, unsigned int &found,
                   unsigned int *indices, double *distances, double approximation,
                   unsigned int maxVisited, unsigned char keepCoincident);
  // An index near the place of `distance` in the sorted list.
  unsigned int FindPosition(double distance) const;
  // Sorted insert (among equals, behind the one found); returns _NbFound afterwards.
  unsigned int InsertNeighbor(double distance, unsigned int index);

 protected:
  friend class QORLunNeighborNode;
  friend struct qkm::spatial::NeighborSearch;
  double _QueryX;
  double _QueryY;
  double _QueryZ;
  double _Factor;  // (approximation + 1)^2
  double *_Distances;
  unsigned int *_Indices;
  unsigned int _NbFound;
  unsigned int _NbWanted;
  unsigned int _NbVisited;
  unsigned int _MaxVisited;
  unsigned char _KeepCoincident;
};

#endif
