// Generated meshes: counts, orientation and the clamped numbering.
#include <gtest/gtest.h>

#include "model.h"

namespace {

// Signed volume of tetrahedron (a, b, c, d) times 6.
double volume6(const qks::Mesh &m, qkm_int a, qkm_int b, qkm_int c, qkm_int d) {
  auto p = [&](qkm_int n, int k) { return m.xyz[3 * (n - 1) + k]; };
  double u[3], v[3], w[3];
  for (int k = 0; k < 3; ++k) {
    u[k] = p(b, k) - p(a, k);
    v[k] = p(c, k) - p(a, k);
    w[k] = p(d, k) - p(a, k);
  }
  return u[0] * (v[1] * w[2] - v[2] * w[1]) - u[1] * (v[0] * w[2] - v[2] * w[0]) +
         u[2] * (v[0] * w[1] - v[1] * w[0]);
}

TEST(Mesh, BoxesFillTheVolumeWithPositiveCells) {
  const qks::Box box{2.0, 0.5, 0.25, 4, 3, 2};
  const qks::Mesh hex = qks::make_box(box), tet = qks::make_box_tets(box);
  EXPECT_EQ(hex.nodes(), 5 * 4 * 3);
  EXPECT_EQ(hex.elements(), 24);
  EXPECT_EQ(tet.elements(), 6 * 24);
  double total = 0.0;
  for (qkm_int e = 0; e < tet.elements(); ++e) {
    const qkm_int *c = &tet.econn[tet.eptr[e]];
    const double v = volume6(tet, c[0], c[1], c[2], c[3]);
    EXPECT_GT(v, 0.0) << "tetrahedron " << e;
    total += v / 6.0;
  }
  EXPECT_NEAR(total, 2.0 * 0.5 * 0.25, 1e-12);
  // Hexahedron corners 0, 1, 3, 4 span a right-handed frame.
  const qkm_int *c = &hex.econn[0];
  EXPECT_GT(volume6(hex, c[0], c[1], c[3], c[4]), 0.0);
  double lo[3], hi[3];
  qks::bounds(hex, lo, hi);
  EXPECT_EQ(lo[0], 0.0);
  EXPECT_EQ(hi[0], 2.0);
  EXPECT_EQ(hi[1] - lo[1], 0.5);
}

TEST(Mesh, ClampHoldsTheFaceAtSmallestX) {
  const qks::Mesh m = qks::make_box({1.0, 1.0, 1.0, 3, 2, 2});
  const qks::Dofs d = qks::clamp_min_x(m, 1e-9);
  EXPECT_EQ(d.count, 3 * (m.nodes() - 3 * 3));
  EXPECT_EQ(d.eq[0], 0);  // node 1 sits at x = 0
  EXPECT_EQ(d.eq[3], 1);  // node 2 is the first free one
}

}  // namespace
