// The k-nearest search: the sorted list, the cell measure, the query's limits, an exact oracle.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

#include "support/point_tree.h"

namespace {

using qkm_test::kUnexpected;
using qkm_test::OctantView;
using Tree = qkm_test::PointNeighborTree;

// A tree whose list is set by hand, for the list operations and the cell measure.
struct ListCase {
  const char *name;
  std::vector<double> list;
  unsigned int wanted;
  double distance;
  std::vector<double> want;
  std::vector<unsigned int> wantIndices;  // the new entry is index 99
};

TEST(NeighborList, SortedInsertKeepsTheBestAndPutsEqualsBehind) {
  const ListCase cases[] = {
      {"full, middle", {1, 2, 3}, 3, 1.5, {1, 1.5, 2}, {0, 99, 1}},
      {"full, too far", {1, 2, 3}, 3, 3.0, {1, 2, 3}, {0, 1, 2}},
      {"full, first", {1, 2, 3}, 3, 0.5, {0.5, 1, 2}, {99, 0, 1}},
      {"free, equal goes behind", {1, 2}, 3, 2.0, {1, 2, 2}, {0, 1, 99}},
      {"free, equal at the front", {1, 2, 3, 4}, 5, 1.0, {1, 1, 2, 3, 4}, {0, 99, 1, 2, 3}},
      {"free, last", {1, 2}, 4, 7.0, {1, 2, 7}, {0, 1, 99}},
      {"empty", {}, 2, 5.0, {5}, {99}},
      {"one place", {4}, 1, 3.0, {3}, {99}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    const std::vector<double> none;
    Tree t(none);
    std::vector<double> d(c.wanted, -1.0);
    std::vector<unsigned int> idx(c.wanted, 77);
    for (unsigned int i = 0; i < c.list.size(); ++i) {
      d[i] = c.list[i];
      idx[i] = i;
    }
    t._Distances = d.data();
    t._Indices = idx.data();
    t._NbWanted = c.wanted;
    t._NbFound = static_cast<unsigned int>(c.list.size());
    EXPECT_EQ(t.InsertNeighbor(c.distance, 99), c.want.size());
    EXPECT_EQ(std::vector<double>(d.begin(), d.begin() + c.want.size()), c.want);
    EXPECT_EQ(std::vector<unsigned int>(idx.begin(), idx.begin() + c.want.size()), c.wantIndices);
  }
}

TEST(NeighborList, FindPositionBisects) {
  const std::vector<double> none;
  Tree t(none);
  double d[6] = {1, 2, 3, 4, 5, 6};
  t._Distances = d;
  t._NbFound = 0;
  EXPECT_EQ(t.FindPosition(3.0), 0u);
  t._NbFound = 6;
  const double probe[] = {0.5, 1.0, 2.5, 3.0, 4.0, 5.5, 9.0};
  const unsigned int want[] = {0, 0, 2, 2, 3, 5, 5};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(t.FindPosition(probe[i]), want[i]) << probe[i];
}

TEST(NeighborTree, CellMeasureRepeatsThePreviousAxisTerm) {
  // A tree with sizes 2 x 2 x 2; nodes at level 0 have that box around their centre.
  const std::vector<double> xyz = {0, 0, 0, 2, 2, 2};
  Tree t(xyz);
  ASSERT_EQ(t.build(2, 8, 1.0, 4), 0);
  struct Case {
    double cx, cy, cz, worst, factor;
    bool want;
  };
  // Query (1,1,1). Box beside it on x at distance 2: 4 + 4 + 4 = 12. On z only: 0 + 0 + 4.
  // On y only: 0 + 4 + 4. On x and y: 4 + 4 + 4.
  const Case cases[] = {
      {4, 1, 1, 10, 1, false}, {4, 1, 1, 12, 1, false}, {4, 1, 1, 12.5, 1, true},
      {4, 1, 1, 13, 4, false}, {1, 1, 4, 4, 1, false},  {1, 1, 4, 4.5, 1, true},
      {1, 4, 1, 8, 1, false},  {1, 4, 1, 8.5, 1, true},  {4, 4, 1, 8.5, 1, false},
      {4, 4, 1, 12.5, 1, true}, {1, 1, 1, 0, 1, false},   {1, 1, 1, 1e-300, 1, true},
  };
  t._QueryX = t._QueryY = t._QueryZ = 1.0;
  for (const Case &c : cases) {
    QORLunNeighborNode node;
    node.Init(t, QORLunOctinfo(0, c.cx, c.cy, c.cz));
    double worst = c.worst;
    t._Distances = &worst;
    t._NbFound = t._NbWanted = 1;
    t._Factor = c.factor;
    EXPECT_EQ(node.IsCloseEnough(t, node), c.want) << c.cx << c.cy << c.cz << " " << c.worst;
    t._NbWanted = 2;  // a list with free places enters everything
    EXPECT_TRUE(node.IsCloseEnough(t, node));
  }
  t.Reset();
}

TEST(NeighborTree, QueryLimitsAndCoincidentEntities) {
  // Five points on a line; entity 2 sits at the query point.
  const std::vector<double> xyz = {0, 0, 0, 1, 0, 0, 2, 0, 0, 4, 0, 0, 7, 0, 0};
  Tree t(xyz);
  unsigned int idx[8], found = 42;
  double d[8];
  const auto fill = [&] {
    for (int i = 0; i < 8; ++i) idx[i] = 55, d[i] = -1.0;
    found = 42;
  };
  // No tree yet: nothing found, arrays untouched.
  fill();
  EXPECT_EQ(t.GetNeighbors(2, 0, 0, 3, found, idx, d, 0.0, 100, 0), 0);
  EXPECT_EQ(found, 0u);
  EXPECT_EQ(idx[0], 55u);
  ASSERT_EQ(t.build(5, 2, 1e-3, 8), 0);
  // Bad calls leave `found` alone.
  found = 42;
  EXPECT_EQ(t.GetNeighbors(2, 0, 0, 3, found, nullptr, d, 0.0, 100, 0), kUnexpected);
  EXPECT_EQ(t.GetNeighbors(2, 0, 0, 3, found, idx, nullptr, 0.0, 100, 0), kUnexpected);
  EXPECT_EQ(t.GetNeighbors(2, 0, 0, 3, found, idx, d, -0.5, 100, 0), kUnexpected);
  EXPECT_EQ(found, 42u);
  // wanted 0 or maxVisited 0: nothing, arrays untouched.
  for (unsigned int w : {0u, 3u}) {
    fill();
    EXPECT_EQ(t.GetNeighbors(2, 0, 0, w, found, idx, d, 0.0, w == 0 ? 100 : 0, 0), 0);
    EXPECT_EQ(found, 0u);
    EXPECT_EQ(d[0], -1.0);
  }
  // Without coincident entities: 1 at distance 1, then 0 and 3 at 4; entity 2 left out.
  fill();
  EXPECT_EQ(t.GetNeighbors(2, 0, 0, 3, found, idx, d, 0.0, 100, 0), 0);
  EXPECT_EQ(t._Factor, 1.0);
  ASSERT_EQ(found, 3u);
  EXPECT_EQ((std::vector<double>{d[0], d[1], d[2]}), (std::vector<double>{1, 4, 4}));
  EXPECT_EQ(idx[0], 1u);
  // With them, entity 2 comes first at distance 0.
  EXPECT_EQ(t.GetNeighbors(2, 0, 0, 3, found, idx, d, 0.0, 100, 1), 0);
  EXPECT_EQ(idx[0], 2u);
  EXPECT_EQ(d[0], 0.0);
  // More wanted than there are: all five, and only five entries cleared.
  fill();
  EXPECT_EQ(t.GetNeighbors(2, 0, 0, 8, found, idx, d, 0.0, 100, 1), 0);
  EXPECT_EQ(found, 5u);
  EXPECT_EQ(d[4], 25.0);
  EXPECT_EQ(d[5], -1.0);
  // Without entity 2 the list keeps a free place.
  fill();
  EXPECT_EQ(t.GetNeighbors(2, 0, 0, 8, found, idx, d, 0.0, 100, 0), 0);
  EXPECT_EQ(found, 4u);
  EXPECT_EQ(d[4], 0.0);
  // maxVisited 1: exactly one entity examined, the first of the query's leaf {3, 4}.
  t.info_calls = 0;
  EXPECT_EQ(t.GetNeighbors(7, 0, 0, 3, found, idx, d, 0.0, 1, 1), 0);
  EXPECT_EQ(t.info_calls, 1);
  EXPECT_EQ(found, 1u);
  EXPECT_EQ(idx[0], 3u);
  EXPECT_EQ(d[0], 9.0);
}

// Every octant of a neighbor tree is a neighbor node.
bool all_nodes(const QORLunOctant &o) {
  if (dynamic_cast<const QORLunNeighborNode *>(&o) == nullptr) return false;
  for (int i = 0; i < 8; ++i)
    if (const QORLunOctant *c = OctantView::child(o, i); c != nullptr && !all_nodes(*c)) return false;
  return true;
}

// The leaf that the descent of a query reaches first, or null.
const QORLunOctant *own_leaf(const QORLunOctant *o, double x, double y, double z) {
  while (o != nullptr && !OctantView::leaf(*o)) o = OctantView::child(*o, o->GetChildIndex(x, y, z));
  return o;
}

TEST(NeighborTree, AgainstAnExactSearch) {
  struct Case {
    const char *name;
    unsigned int n, capacity, k;
    double approximation;
    bool masked;
  };
  const Case cases[] = {{"exact", 3000, 8, 8, 0.0, false},
                        {"approximate", 3000, 8, 8, 0.5, false},
                        {"small leaves, masked", 2000, 2, 5, 0.0, true},
                        {"large leaves, k 20", 2000, 32, 20, 0.2, false}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    const auto xyz = qkm_test::random_points(c.n, c.n + c.k);
    std::vector<unsigned char> mask(c.n, 1);
    if (c.masked)
      for (unsigned int i = 0; i < c.n; i += 4) mask[i] = 0;
    Tree t(xyz);
    ASSERT_EQ(t.build(c.n, c.capacity, 1e-9, 20, mask.data()), 0);
    ASSERT_TRUE(all_nodes(*t._Root));
    const auto queries = qkm_test::random_points(300, 17);
    std::vector<unsigned int> idx(c.k);
    std::vector<double> d(c.k);
    std::size_t hits = 0, wanted = 0;
    for (std::size_t q = 0; q < queries.size(); q += 3) {
      const double x = queries[q], y = queries[q + 1], z = queries[q + 2];
      unsigned int found = 0;
      ASSERT_EQ(t.GetNeighbors(x, y, z, c.k, found, idx.data(), d.data(), c.approximation,
                               c.n, 0), 0);
      // While the list has free places every cell is entered: it always fills.
      ASSERT_EQ(found, c.k);
      const auto exact = qkm_test::exact_knn(xyz, x, y, z, c.k, false, mask.data());
      for (unsigned int i = 0; i < found; ++i) {
        EXPECT_TRUE(mask[idx[i]]);
        EXPECT_EQ(d[i], qkm_test::squared_distance(xyz, idx[i], x, y, z));
        if (i > 0) EXPECT_LE(d[i - 1], d[i]);
        for (unsigned int j = 0; j < i; ++j) EXPECT_NE(idx[i], idx[j]);
        for (const auto &e : exact) hits += e.second == idx[i];
      }
      wanted += exact.size();
      // The query's own leaf is searched in full first: its best entity cannot be missed.
      const QORLunOctant *leaf = own_leaf(t._Root, x, y, z);
      for (unsigned int k = 0; leaf != nullptr && k < OctantView::count(*leaf); ++k)
        if (OctantView::entities(*leaf)[k] == exact[0].second) EXPECT_EQ(d[0], exact[0].first);
    }
    const double recall = static_cast<double>(hits) / static_cast<double>(wanted);
    std::printf("[ recall   ] %-22s %.4f\n", c.name, recall);
    RecordProperty(std::string("recall ") + c.name, std::to_string(recall));
    EXPECT_GT(recall, 0.0);
  }
}

TEST(NeighborTree, FailureDuringAQueryClearsItAndKeepsTheTree) {
  const auto xyz = qkm_test::random_points(400, 9);
  Tree t(xyz);
  ASSERT_EQ(t.build(400, 4, 1e-9, 12), 0);
  unsigned int idx[6], first[6], found = 0;
  double d[6];
  ASSERT_EQ(t.GetNeighbors(0.5, 0.5, 0.5, 6, found, first, d, 0.0, 400, 0), 0);
  const int calls = t.info_calls;
  for (int n : {1, 2, 5, 9}) {
    t.info_calls = calls;
    t.fail_info_at = calls + n;
    EXPECT_EQ(t.GetNeighbors(0.5, 0.5, 0.5, 6, found, idx, d, 0.0, 400, 0), -7);
    EXPECT_EQ(found, 0u);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(idx[i] + d[i], 0.0);
    EXPECT_EQ(t._NbWanted + t._NbFound + t._NbVisited, 0u);
    EXPECT_EQ(t._Distances, nullptr);
    t.fail_info_at = 0;
    ASSERT_EQ(t.GetNeighbors(0.5, 0.5, 0.5, 6, found, idx, d, 0.0, 400, 0), 0);
    EXPECT_EQ(std::vector<unsigned int>(idx, idx + 6), std::vector<unsigned int>(first, first + 6));
  }
}

TEST(NeighborTree, LeafScanStopsAtTheFailingEntityWithThoseBeforeItTaken) {
  // One leaf of 300 entities (depth limit 1); the list is set up by hand and the leaf scanned
  // directly, with the application failing at the n-th entity.
  const auto xyz = qkm_test::random_points(300, 4);
  Tree t(xyz);
  ASSERT_EQ(t.build(300, 8, 1e-9, 1), 0);
  for (int n : {1, 64, 65, 130, 300}) {
    SCOPED_TRACE(n);
    unsigned int idx[5] = {};
    double d[5] = {};
    t._QueryX = 0.3, t._QueryY = 0.6, t._QueryZ = 0.5;
    t._Distances = d, t._Indices = idx;
    t._NbFound = t._NbVisited = 0;
    t._NbWanted = 5, t._MaxVisited = 1000, t._KeepCoincident = 1;
    t.info_calls = 0;
    t.fail_info_at = n;
    const auto *leaf = static_cast<const QORLunNeighborNode *>(t._Root);
    EXPECT_EQ(leaf->CollectNeighbors(), -7);
    EXPECT_EQ(t._NbVisited, static_cast<unsigned int>(n - 1));
    // The list holds the nearest among the entities before the failing one.
    const std::vector<double> before(xyz.begin(), xyz.begin() + 3 * (n - 1));
    const auto exact = qkm_test::exact_knn(before, 0.3, 0.6, 0.5, 5, true);
    ASSERT_EQ(t._NbFound, exact.size());
    for (std::size_t i = 0; i < exact.size(); ++i) EXPECT_EQ(idx[i], exact[i].second);
  }
  t.fail_info_at = 0;
  t.Reset();
}

}  // namespace

namespace {

// FNV-1a over raw bytes: a digest of a batch of query results.
struct Digest {
  unsigned long long h = 14695981039346656037ull;
  template <class T>
  void add(const T &v) {
    unsigned char b[sizeof(T)];
    std::memcpy(b, &v, sizeof(T));
    for (unsigned char c : b) h = (h ^ c) * 1099511628211ull;
  }
};

// Grid nodes (many ties in distance) and random points (none).
std::vector<double> grid_points(int n) {
  std::vector<double> xyz;
  for (int k = 0; k < n; ++k)
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i) xyz.insert(xyz.end(), {double(i), double(j), double(k)});
  return xyz;
}

// The complete results (count, order, indices, distance bits, status) of query batches over
// the settings that steer the search, against digests taken from the reference search: any
// change to the visiting order, the cell measure, the caps or the list shows.
TEST(NeighborTree, QueryBatchesGiveTheRecordedResults) {
  struct Case {
    const char *name;
    bool grid;
    unsigned int capacity, k, maxVisited;
    double approximation;
    unsigned char keep;
    unsigned long long digest;
    unsigned int maxDepth = 30;
  };
  const Case cases[] = {
      {"random, exact", false, 16, 8, 1u << 30, 0.0, 1, 0xf406681f2629f135ull},
      {"random, approximate", false, 64, 8, 1u << 30, 0.5, 1, 0x6af8f17d778b9639ull},
      {"random, capped, k 20", false, 8, 20, 50, 0.1, 0, 0x0dd1199a5583d5d6ull},
      {"grid, exact, ties", true, 64, 8, 1u << 30, 0.0, 1, 0x57d58c9370a162aaull},
      {"grid, no coincident", true, 4, 27, 1u << 30, 0.0, 0, 0xea1def9ba91f0f71ull},
      {"grid, capped", true, 32, 6, 40, 0.5, 1, 0xfaf9c63d3e9d5bd3ull},
      // Depth 1: a single leaf of every entity, scanned in many groups, capped inside one.
      {"one leaf, capped", false, 8, 12, 150, 0.0, 0, 0x9937e9e395b564a2ull, 1},
      {"one grid leaf", true, 8, 5, 1u << 30, 0.0, 1, 0x0af3f9fac07b81bbull, 1},
  };
  const auto random = qkm_test::random_points(30000, 5);
  const auto grid = grid_points(26);
  auto queries = qkm_test::random_points(2000, 6, 25.0);
  for (std::size_t i = 0; i < 600; ++i) queries[i] = std::floor(queries[i]);  // on grid nodes
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    const std::vector<double> &xyz = c.grid ? grid : random;
    const double scale = c.grid ? 1.0 : 1.0 / 25.0;
    Tree t(xyz);
    ASSERT_EQ(t.build(static_cast<unsigned int>(xyz.size() / 3), c.capacity, 1e-9, c.maxDepth), 0);
    Digest dg;
    std::vector<unsigned int> idx(c.k);
    std::vector<double> d(c.k);
    for (std::size_t q = 0; q < queries.size(); q += 3) {
      unsigned int found = 0;
      const int calls = t.info_calls;
      const int status = t.GetNeighbors(queries[q] * scale, queries[q + 1] * scale,
                                        queries[q + 2] * scale, c.k, found, idx.data(),
                                        d.data(), c.approximation, c.maxVisited, c.keep);
      dg.add(status);
      dg.add(found);
      dg.add(t._NbVisited);
      dg.add(t.info_calls - calls);
      for (unsigned int i = 0; i < found; ++i) dg.add(idx[i]), dg.add(d[i]);
    }
    std::printf("[ digest   ] %-22s 0x%016llxull\n", c.name, dg.h);
    EXPECT_EQ(dg.h, c.digest);
  }
}

}  // namespace
