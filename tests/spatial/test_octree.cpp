// The octree: build limits, structure, and the collapse on failure.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "support/point_tree.h"

namespace {

using qkm_test::kUnexpected;
using qkm_test::OctantView;
using Tree = qkm_test::PointTree<QORLunOctree>;

struct LimitCase {
  const char *name;
  std::vector<double> xyz;
  double tolerance;
  unsigned int maxDepth;
  unsigned int wantMaxDepth;
  double wantResolution;
};

TEST(Octree, DepthLimitAndResolutionFromTheTolerance) {
  const LimitCase cases[] = {
      {"empty", {}, 1.0, 9, 0, 0.0},
      {"one entity", {1, 2, 3}, 1.0, 9, 0, 0.0},
      {"coincident", {1, 1, 1, 1, 1, 1, 1, 1, 1}, 0.5, 9, 0, 0.0},
      // The box fits the tolerance: the depth limit goes to 0 and the resolution is a length.
      {"box within tolerance", {0, 0, 0, 3, 4, 0}, 6.0, 9, 0, 5.0},
      // Diagonal 16, tolerance 1: 4^L = 256, so at most 4 levels of halving.
      {"diagonal 16, limit 9", {0, 0, 0, 16, 0, 0}, 1.0, 9, 4, 1.0},
      {"diagonal 16, limit 2", {0, 0, 0, 16, 0, 0}, 1.0, 2, 2, 16.0},
      {"diagonal 16, tolerance 1.5", {0, 0, 0, 16, 0, 0}, 1.5, 9, 3, 4.0},
      // A tolerance whose square vanishes: log gives infinity, whose conversion gives 0.
      {"vanishing tolerance", {0, 0, 0, 16, 0, 0}, 1e-200, 9, 0, 256.0},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<double> store = c.xyz;
    store.push_back(0.0);  // the tree needs non-null data even with no entity
    Tree t(store);
    ASSERT_EQ(t.build(static_cast<unsigned>(c.xyz.size() / 3), 1, c.tolerance, c.maxDepth), 0);
    EXPECT_EQ(t._MaxDepth, c.wantMaxDepth);
    EXPECT_EQ(t._Resolution, c.wantResolution);
  }
}

TEST(Octree, BadCallsChangeNothingAndBuildingTwiceNeedsReset) {
  const std::vector<double> xyz = {0, 0, 0, 1, 1, 1};
  Tree t(xyz);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(t.Build(nullptr, 2, 1, nullptr, 1.0, 5), kUnexpected);
  EXPECT_EQ(t.Build(xyz.data(), 2, 0, nullptr, 1.0, 5), kUnexpected);
  for (double tol : {0.0, -1.0, nan}) EXPECT_EQ(t.Build(xyz.data(), 2, 1, nullptr, tol, 5), kUnexpected);
  EXPECT_EQ(t._Data, nullptr);
  EXPECT_EQ(t.info_calls, 0);
  // An empty build is a build: a second one is refused until Reset.
  EXPECT_EQ(t.build(0, 1, 1.0, 5), 0);
  EXPECT_EQ(t._Root, nullptr);
  EXPECT_EQ(t.build(2, 1, 1.0, 5), kUnexpected);
  const unsigned char none[2] = {0, 0};
  t.Reset();
  EXPECT_EQ(t.build(2, 1, 1.0, 5, none), 0);
  EXPECT_EQ(t.GetNbValidEntities(), 0u);
  EXPECT_EQ(t._SizeX + t._SizeY + t._SizeZ, 0.0);
  t.Reset();
  ASSERT_EQ(t.build(2, 1, 0.01, 5), 0);
  EXPECT_EQ(t.GetNbValidEntities(), 2u);
}

TEST(Octree, CentreBoxAndCounts) {
  const std::vector<double> xyz = {-1, 2, 0, 3, 4, 10, 1, 3, 5};
  Tree t(xyz);
  double c[3], b[6];
  t.GetCenter(c[0], c[1], c[2]);
  EXPECT_EQ(c[0] + c[1] + c[2], 0.0);
  ASSERT_EQ(t.build(3, 1, 1e-3, 8), 0);
  t.GetCenter(c[0], c[1], c[2]);
  t.GetBoundingBox(b[0], b[1], b[2], b[3], b[4], b[5]);
  const double wantC[3] = {1, 3, 5}, wantB[6] = {-1, 2, 0, 3, 4, 10};
  for (int i = 0; i < 3; ++i) EXPECT_EQ(c[i], wantC[i]);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(b[i], wantB[i]);
  EXPECT_EQ(t.GetLevelMaxNbOctants(0), 1u);
  EXPECT_EQ(t.GetLevelMaxNbOctants(2), 64u);
  EXPECT_EQ(t.GetTreeMaxNbOctants(3), 73u);
  EXPECT_EQ(t.GetTreeMaxNbOctants(10), 153391689u);
}

// Walks the tree: returns the entities below `o`, checks the counts of internal octants, the
// levels, and that each entity lies in its leaf's box.
unsigned int walk(const QORLunOctant &o, const std::vector<double> &xyz, unsigned int maxDepth,
                  std::vector<int> &seen, unsigned int &deepest) {
  double lo[3], hi[3];
  o.GetBoundingBox(lo[0], lo[1], lo[2], hi[0], hi[1], hi[2]);
  for (int a = 0; a < 3; ++a) {  // centre +- half size is rounded: allow a few ulps
    lo[a] -= 1e-12;
    hi[a] += 1e-12;
  }
  if (OctantView::leaf(o)) {
    EXPECT_LT(OctantView::level(o), std::max(maxDepth, 1u));
    deepest = std::max(deepest, OctantView::level(o));
    for (unsigned int k = 0; k < OctantView::count(o); ++k) {
      const unsigned int e = OctantView::entities(o)[k];
      ++seen[e];
      for (int a = 0; a < 3; ++a) {
        EXPECT_GE(xyz[3 * e + a], lo[a]);
        EXPECT_LE(xyz[3 * e + a], hi[a]);
      }
    }
    return OctantView::count(o);
  }
  unsigned int sum = 0;
  for (int i = 0; i < 8; ++i)
    if (const QORLunOctant *c = OctantView::child(o, i)) {
      EXPECT_EQ(OctantView::level(*c), OctantView::level(o) + 1);
      sum += walk(*c, xyz, maxDepth, seen, deepest);
    }
  EXPECT_EQ(OctantView::count(o), sum);
  return sum;
}

TEST(Octree, StructureHoldsEveryUnmaskedEntityOnce) {
  struct Case {
    unsigned int n, capacity, maxDepth;
    bool masked;
  };
  for (const Case c : {Case{2000, 8, 20, false}, Case{2000, 3, 3, true}, Case{500, 1, 1, false},
                       Case{500, 1, 0, false}, Case{1000, 2, 6, true}}) {
    SCOPED_TRACE(testing::Message() << c.n << " cap " << c.capacity << " depth " << c.maxDepth);
    const auto xyz = qkm_test::random_points(c.n, c.n + c.capacity);
    std::vector<unsigned char> mask(c.n);
    unsigned int valid = 0;
    for (unsigned int i = 0; i < c.n; ++i) valid += mask[i] = (!c.masked || i % 3 != 0);
    Tree t(xyz);
    ASSERT_EQ(t.build(c.n, c.capacity, 1e-9, c.maxDepth, mask.data()), 0);
    EXPECT_EQ(t._MaxDepth, c.maxDepth);
    std::vector<int> seen(c.n);
    unsigned int deepest = 0;
    EXPECT_EQ(walk(*t._Root, xyz, c.maxDepth, seen, deepest), valid);
    EXPECT_EQ(t.GetNbValidEntities(), valid);
    EXPECT_EQ(t._Depth, deepest + 1);
    if (c.maxDepth <= 1) EXPECT_TRUE(OctantView::leaf(*t._Root));
    if (c.maxDepth == 3) EXPECT_EQ(deepest, 2u);
    for (unsigned int i = 0; i < c.n; ++i) EXPECT_EQ(seen[i], mask[i] ? 1 : 0) << i;
  }
}

TEST(Octree, PointOnACentrePlaneGoesLowAndFullLeavesDouble) {
  // (1,1,1) is the root's centre: all three axes compare "not above", so child 0.
  const std::vector<double> xyz = {0, 0, 0, 2, 2, 2, 1, 1, 1};
  Tree t(xyz);
  ASSERT_EQ(t.build(3, 2, 1e-3, 5), 0);
  const QORLunOctant *low = OctantView::child(*t._Root, 0);
  ASSERT_NE(low, nullptr);
  EXPECT_EQ(OctantView::count(*low), 2u);
  EXPECT_EQ(OctantView::entities(*low)[1], 2u);
  // At the depth limit a leaf takes everything, its list growing 3, 6, 12.
  const std::vector<double> same(3 * 7, 4.0);
  Tree c(same);
  ASSERT_EQ(c.build(7, 3, 1.0, 5), 0);
  EXPECT_TRUE(OctantView::leaf(*c._Root));
  EXPECT_EQ(OctantView::count(*c._Root), 7u);
  EXPECT_EQ(OctantView::size(*c._Root), 12u);
}

TEST(Octree, AnyFailureResetsTheWholeTree) {
  const auto xyz = qkm_test::random_points(300, 5);
  Tree ok(xyz);
  ASSERT_EQ(ok.build(300, 4, 1e-6, 10), 0);
  const int infoCalls = ok.info_calls, createCalls = ok.create_calls;
  ASSERT_GT(createCalls, 20);
  for (int which = 0; which < 2; ++which)
    for (int n = 1; n <= (which == 0 ? infoCalls : createCalls); n += 7) {
      Tree t(xyz);
      (which == 0 ? t.fail_info_at : t.fail_create_at) = n;
      EXPECT_EQ(t.build(300, 4, 1e-6, 10), which == 0 ? -7 : -9) << which << " at " << n;
      EXPECT_EQ(t._Root, nullptr);
      EXPECT_EQ(t._Data, nullptr);
      EXPECT_EQ(t._SizeX, 0.0);
      EXPECT_EQ(t._MaxDepth, 0u);
      // Reset left it buildable again.
      t.fail_info_at = t.fail_create_at = 0;
      EXPECT_EQ(t.build(300, 4, 1e-6, 10), 0);
      EXPECT_EQ(t.GetNbValidEntities(), 300u);
    }
}

TEST(Octree, OctantWithoutTreeRefusesWork) {
  QORLunOctant o;
  QORLunOctinfo info(3, 1.0, 2.0, 3.0), copy(info);
  EXPECT_EQ(copy._Number, 3u);
  EXPECT_EQ(o.Add(info), kUnexpected);
  EXPECT_EQ(o.AddIndex(1), kUnexpected);
  EXPECT_EQ(o.AddChild(info), kUnexpected);
  double s[3] = {1, 1, 1};
  o.GetSizes(s[0], s[1], s[2]);
  EXPECT_EQ(s[0] + s[1] + s[2], 0.0);
  QORLunOctant *made = &o;
  const std::vector<double> xyz;
  EXPECT_EQ(Tree(xyz).CreateOctant(made), kUnexpected);
}

}  // namespace
