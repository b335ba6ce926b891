// Mesh graph builders against an adjacency built independently from the element lists.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "kernels.h"
#include "support/mesh.h"

namespace {

using qkm_test::Mesh;
using V = std::vector<int32_t>;
constexpr int32_t kPoison = 0x5a5a5a5a;

struct Built {
  V nptr, nlist, aptr, adj, mark, link;
  int32_t nadj = kPoison;
};

// The two passes as a caller runs them, every output poisoned first. The ignored arguments
// point at nothing readable.
Built build(const Mesh &m) {
  Built b;
  const int32_t len = m.eptr.back();
  b.nptr.assign(m.nn + 1, kPoison);
  b.nlist.assign(len, kPoison);
  b.aptr.assign(m.nn + 1, kPoison);
  b.mark.assign(m.nn, kPoison);
  b.link.assign(m.nn + 1, kPoison);
  const void *junk = reinterpret_cast<const void *>(uintptr_t{8});
  eaupnn(&m.nn, &m.ne, junk, m.eptr.data(), m.econn.data(), b.nptr.data(), b.nlist.data(),
         b.mark.data(), b.aptr.data(), &b.nadj);
  b.adj.assign(b.nadj, kPoison);
  eaunln(&m.nn, junk, nullptr, m.eptr.data(), m.econn.data(), b.nptr.data(), b.nlist.data(),
         b.link.data(), b.adj.data());
  return b;
}

// Oracle: node -> elements by a walk over the elements in order, node -> neighbours as sets.
void expect_matches_oracle(const Mesh &m) {
  std::vector<V> elems(m.nn + 1);
  std::vector<std::set<int32_t>> nbrs(m.nn + 1);
  for (int32_t e = 1; e <= m.ne; ++e)
    for (int32_t p = m.eptr[e - 1]; p < m.eptr[e]; ++p) {
      elems[m.econn[p]].push_back(e);
      for (int32_t q = m.eptr[e - 1]; q < m.eptr[e]; ++q)
        if (m.econn[q] != m.econn[p]) nbrs[m.econn[p]].insert(m.econn[q]);
    }
  V nptr{0}, nlist, aptr{0}, adj;
  for (int32_t v = 1; v <= m.nn; ++v) {
    nlist.insert(nlist.end(), elems[v].begin(), elems[v].end());
    adj.insert(adj.end(), nbrs[v].begin(), nbrs[v].end());
    nptr.push_back(static_cast<int32_t>(nlist.size()));
    aptr.push_back(static_cast<int32_t>(adj.size()));
  }
  const Built b = build(m);
  EXPECT_EQ(b.nptr, nptr);
  EXPECT_EQ(b.nlist, nlist);
  EXPECT_EQ(b.aptr, aptr);
  EXPECT_EQ(b.nadj, static_cast<int32_t>(adj.size()));
  EXPECT_EQ(b.adj, adj);
  // link(2..nn+1) cleared again; link(1) keeps the head of the last node's list
  if (m.nn > 0) {
    EXPECT_EQ(b.link[0], nbrs[m.nn].empty() ? m.nn + 1 : *nbrs[m.nn].begin());
    EXPECT_EQ(V(b.link.begin() + 1, b.link.end()), V(m.nn, 0));
  }
}

TEST(Graph, RealMeshesMatchTheOracle) {
  const struct {
    const char *name;
    Mesh mesh;
  } cases[] = {
      {"hexahedra 12^3", qkm_test::box_mesh(12, 12, 12)},
      {"tetrahedra 12^3", qkm_test::box_mesh(12, 12, 12, true)},
      {"tetrahedra 3x1x2", qkm_test::box_mesh(3, 1, 2, true)},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    expect_matches_oracle(c.mesh);
  }
}

TEST(Graph, IrregularMeshesMatchTheOracle) {
  Mesh odd = qkm_test::box_mesh(2, 2, 1);
  odd.nn += 2;                                // node nn-1 stands in no element
  odd.add({odd.nn});                          // one-node element
  odd.add({3, 5, 3, 12, 5});                  // names nodes 3 and 5 twice
  odd.add({odd.nn - 5, 1, odd.nn - 5});       // degenerate, reversed order
  Mesh unused_last = qkm_test::box_mesh(1, 1, 1);
  unused_last.nn += 1;                        // the last node is isolated: link(1) = nn+1
  Mesh empty;
  empty.nn = 3;                               // ne = 0
  for (const Mesh *m : {&odd, &unused_last, &empty}) expect_matches_oracle(*m);
}

TEST(Graph, WorkedExample) {
  Mesh m;
  m.nn = 4;
  m.add({1, 2, 3});
  m.add({2, 3, 4});
  const Built b = build(m);
  EXPECT_EQ(b.nptr, (V{0, 1, 3, 5, 6}));
  EXPECT_EQ(b.nlist, (V{1, 1, 2, 1, 2, 2}));
  EXPECT_EQ(b.aptr, (V{0, 2, 5, 8, 10}));
  EXPECT_EQ(b.nadj, 10);
  EXPECT_EQ(b.adj, (V{2, 3, 1, 3, 4, 1, 2, 4, 2, 3}));
  EXPECT_EQ(b.mark, (V{3, 4, 4, 4}));  // the last stamp each node received
}

TEST(Graph, InverseListStartsElementOneAtOne) {
  // eptr(1) is not read by the inversion: element 1 is positions 1..eptr(2)
  const int32_t nn = 3, ne = 2, eptr[] = {7, 2, 3}, econn[] = {3, 1, 3};
  V nptr(4, kPoison), nlist(3, kPoison);
  eaunle(&nn, &ne, nullptr, eptr, econn, nptr.data(), nlist.data());
  EXPECT_EQ(nptr, (V{0, 1, 1, 3}));
  EXPECT_EQ(nlist, (V{1, 1, 2}));
}

TEST(Graph, PointersFromTwoSegmentKeys) {
  const struct {
    int32_t ntotal, nfirst, mfirst, mtotal;
    V key, ptr;
  } cases[] = {
      {5, 3, 3, 5, {1, 1, 3, 2, 2}, {0, 2, 2, 3, 3, 5}},
      {3, 3, 2, 5, {1, 2, 2}, {0, 1, 3, 3, 3, 3}},       // second segment empty
      {4, 1, 2, 4, {2, 1, 1, 2}, {0, 0, 1, 3, 4}},       // row 1 empty
      {0, 0, 0, 2, {}, {0, 0, 0}},
  };
  for (const auto &c : cases) {
    V ptr(c.mtotal + 1, kPoison);
    eaupne(&c.ntotal, &c.nfirst, &c.mfirst, &c.mtotal, c.key.data(), ptr.data());
    EXPECT_EQ(ptr, c.ptr) << "ntotal " << c.ntotal << " nfirst " << c.nfirst;
  }
}

}  // namespace
