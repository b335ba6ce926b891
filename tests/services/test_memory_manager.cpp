// The memory manager's normal work: conversion of lengths, placement, the stack of groups and
// its holes, reallocation and the typed form.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "QORKytMemoryManager.h"
#include "platform/fault_injection.h"
#include "support/malloc_hook.h"
#include "support/memory_view.h"

namespace {

using qkm_test::view;
constexpr int kFailed = static_cast<int>(0x80004005u);
const QORKytTypeEncapMemory &kEmpty = QORKytTypeEncapMemory::EmptyEncapMem;

// Allocates one group of one array of `bytes` through the pair form.
int one(QORKytMemoryManager &m, char *&p, long long bytes) {
  int indice = -7;
  const int st = m.Allocation(1, indice, &p, bytes, nullptr, 0, nullptr, 0, nullptr, 0, nullptr,
                              0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0,
                              nullptr, 0);
  EXPECT_EQ(st, 0);
  return indice;
}

TEST(MemoryManager, TheTypicalJourney) {
  QORKytMemoryManager m(100);
  int *ints = nullptr;
  double *reals = nullptr;
  int indice = 0;
  int status;
  {
    qkm_test::malloc_hook::Guard guard;
    qkm_test::malloc_hook::fail_at(1000, 1 << 30);  // count large requests, fail none
    status = m.Allocation(indice, QORKytTypeEncapMemory(ints), 100, QORKytTypeEncapMemory(reals),
                          110, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0,
                          kEmpty, 0, kEmpty, 0, kEmpty, 0);
    EXPECT_EQ(qkm_test::malloc_hook::counted(), 1);
    EXPECT_EQ(qkm_test::malloc_hook::last_size(), 163u * 8);
  }
  ASSERT_EQ(status, 0);
  EXPECT_EQ(indice, 1);
  ASSERT_NE(ints, nullptr);
  EXPECT_EQ(reinterpret_cast<char *>(reals) - reinterpret_cast<char *>(ints), 408);
  auto &v = view(m);
  EXPECT_EQ(v.ElementTable[0], reinterpret_cast<char *>(ints));
  EXPECT_EQ(v.ElementSize[0], 162);
  EXPECT_EQ(v.IndiceTable[0], -1);
  EXPECT_EQ(v.IndiceTable[1], 0);
  EXPECT_EQ(v.MemoryCurrent, 162);
  for (int i = 0; i < 100; ++i) ints[i] = i;
  for (int i = 0; i < 110; ++i) reals[i] = i;
  EXPECT_EQ(m.GetIndiceAllocation(), 2);

  EXPECT_EQ(m.Desallocation(1), 0);
  EXPECT_EQ(v.MemoryCurrent, 0);
  EXPECT_EQ(v.IndiceAllocation, 0);
  EXPECT_EQ(v.ElementTable[0], nullptr);
  EXPECT_EQ(m.GetMemoryUsed(), 162.0f);
}

TEST(MemoryManager, BytesBecomeWordsWithASpareWord) {
  QORKytMemoryManager m(20);
  long long lengths[4] = {8, 7, -5, 16};
  char *arrays[4] = {};
  char **a = arrays;
  int indice = 0;
  ASSERT_EQ(m.Allocation(4, indice, a, lengths), 0);
  EXPECT_EQ(lengths[0], 2);
  EXPECT_EQ(lengths[1], 1);
  EXPECT_EQ(lengths[2], 1);  // -5 bytes passes as one word
  EXPECT_EQ(lengths[3], 3);
  EXPECT_EQ(arrays[1] - arrays[0], 16);
  EXPECT_EQ(arrays[2] - arrays[1], 8);
  EXPECT_EQ(arrays[3] - arrays[2], 8);
  EXPECT_EQ(view(m).ElementSize[0], 7);
  EXPECT_EQ(m.GetMemoryUsed(), 7.0f);
}

TEST(MemoryManager, PositiveReleaseIsAStackNegativeLeavesAHole) {
  QORKytMemoryManager m(10);
  char *p[4] = {};
  for (int g = 0; g < 3; ++g) EXPECT_EQ(one(m, p[g], 80 * (g + 1)), g + 1);
  auto &v = view(m);
  EXPECT_EQ(v.MemoryCurrent, 11 + 21 + 31);

  // Positive: group 2 and everything above it.
  EXPECT_EQ(m.Desallocation(2), 0);
  EXPECT_EQ(m.GetIndiceAllocation(), 2);
  EXPECT_EQ(v.MemoryCurrent, 11);
  EXPECT_EQ(v.ElementTable[1], nullptr);
  EXPECT_EQ(v.ElementTable[2], nullptr);
  EXPECT_EQ(v.ElementSize[1], 0);
  EXPECT_EQ(one(m, p[1], 8), 2);  // numbers are reused

  // Negative: group 2 alone, and it stays on the stack.
  EXPECT_EQ(one(m, p[2], 16), 3);
  EXPECT_EQ(one(m, p[3], 24), 4);
  EXPECT_EQ(m.Desallocation(-2), 0);
  EXPECT_EQ(m.GetIndiceAllocation(), 5);
  EXPECT_EQ(v.ElementTable[1], nullptr);
  EXPECT_NE(v.ElementTable[2], nullptr);
  EXPECT_EQ(v.MemoryCurrent, 11 + 3 + 4);
  // The newest group released by a negative number stays a hole too.
  EXPECT_EQ(m.Desallocation(-4), 0);
  EXPECT_EQ(m.GetIndiceAllocation(), 5);
  EXPECT_EQ(v.MemoryCurrent, 11 + 3);
  // A positive release walks over the holes.
  EXPECT_EQ(m.Desallocation(2), 0);
  EXPECT_EQ(m.GetIndiceAllocation(), 2);
  EXPECT_EQ(v.MemoryCurrent, 11);
  EXPECT_EQ(v.ElementTable[2], nullptr);

  EXPECT_EQ(m.Desallocation(9), 0);
  EXPECT_EQ(m.GetIndiceAllocation(), 2);
  EXPECT_EQ(v.MemoryCurrent, 11);
  EXPECT_EQ(m.Desallocation(0), kFailed);
  EXPECT_EQ(m.GetMemoryUsed(), 11.0f + 21 + 31);
}

TEST(MemoryManager, ListReleaseFreesEachGroupAlone) {
  QORKytMemoryManager m(10);
  char *p[4] = {};
  for (int g = 0; g < 4; ++g) one(m, p[g], 8 * (g + 1));
  auto &v = view(m);
  int list[5] = {3, 0, -2, 1, 3};  // zero and negative entries are skipped; 3 twice is harmless
  EXPECT_EQ(m.Desallocation(5, list), 0);
  EXPECT_EQ(m.GetIndiceAllocation(), 5);
  EXPECT_EQ(v.ElementTable[0], nullptr);
  EXPECT_NE(v.ElementTable[1], nullptr);
  EXPECT_EQ(v.ElementTable[2], nullptr);
  EXPECT_NE(v.ElementTable[3], nullptr);
  EXPECT_EQ(v.MemoryCurrent, 3 + 5);
  EXPECT_EQ(m.Desallocation(0, list), 0);
  EXPECT_EQ(v.MemoryCurrent, 3 + 5);
}

TEST(MemoryManager, CallerSideReleaseTouchesNoTable) {
  QORKytMemoryManager m(10);
  char *group = nullptr;
  one(m, group, 8);
  char *mine[3] = {static_cast<char *>(std::malloc(8)), nullptr,
                   static_cast<char *>(std::malloc(8))};
  char **a = mine;
  EXPECT_EQ(m.Desallocation(3, a), 0);
  EXPECT_EQ(mine[0], nullptr);
  EXPECT_EQ(mine[2], nullptr);
  EXPECT_EQ(view(m).MemoryCurrent, 2);
  EXPECT_EQ(m.GetIndiceAllocation(), 2);
  EXPECT_EQ(m.Desallocation(-1, a), 0);
}

TEST(MemoryManager, WhenMallocFailsEachArrayGetsItsOwnElement) {
  QORKytMemoryManager m(20);
  char *first = nullptr;
  one(m, first, 8);
  long long lengths[3] = {800, 1600, 2400};
  char *arrays[3] = {};
  char **a = arrays;
  int indice = 0;
  {
    qkm_test::malloc_hook::Guard guard;
    qkm_test::malloc_hook::fail_at((101 + 201 + 301) * 8 + 8, 1);
    ASSERT_EQ(m.Allocation(3, indice, a, lengths), 0);
    EXPECT_EQ(qkm_test::malloc_hook::failures(), 1);
  }
  EXPECT_EQ(indice, 2);
  auto &v = view(m);
  EXPECT_EQ(v.IndiceTable[2], 3);  // three elements for this group
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(v.ElementTable[1 + i], arrays[i]);
    EXPECT_EQ(v.ElementSize[1 + i], lengths[i]);
    std::memset(arrays[i], 0x5a, static_cast<size_t>(lengths[i]) * 8);
  }
  EXPECT_EQ(v.MemoryCurrent, 2 + 101 + 201 + 301);
  char *next = nullptr;
  EXPECT_EQ(one(m, next, 8), 3);
  EXPECT_EQ(v.IndiceTable[3], 4);
  EXPECT_EQ(m.Desallocation(2), 0);  // frees the three separate blocks and group 3
  EXPECT_EQ(v.MemoryCurrent, 2);
}

TEST(MemoryManager, TablesGrowByTheStep) {
  QORKytMemoryManager m(4);
  auto &v = view(m);
  EXPECT_EQ(v.TableSize, 4);
  char *p = nullptr;
  for (int g = 1; g <= 9; ++g) EXPECT_EQ(one(m, p, 8), g);
  EXPECT_EQ(v.TableSize, 12);
  EXPECT_EQ(v.IndiceTable[9], 8);
  EXPECT_EQ(v.MemoryCurrent, 18);
}

TEST(MemoryManager, ReallocationResizesTheLastBlockOfAGroup) {
  QORKytMemoryManager m(10);
  char *keep = nullptr;
  one(m, keep, 16);
  char *p = nullptr;
  const int g = one(m, p, 40);
  std::memcpy(p, "0123456789abcdefghijklmnopqrstuvwxyzABC", 40);
  auto &v = view(m);
  EXPECT_EQ(m.Reallocation(g, p, 1 << 16), 0);
  ASSERT_NE(p, nullptr);
  EXPECT_STREQ(p, "0123456789abcdefghijklmnopqrstuvwxyzABC");
  p[(1 << 16) - 1] = 1;
  EXPECT_EQ(v.ElementTable[1], p);
  EXPECT_EQ(v.ElementSize[1], (1 << 16) / 8);  // no spare word counted here
  EXPECT_EQ(v.MemoryCurrent, 3 + 8192);
  EXPECT_EQ(m.GetMemoryUsed(), 3.0f + 8192);

  // A null array works on the block of the element.
  char *none = nullptr;
  EXPECT_EQ(m.Reallocation(g, none, 12), 0);
  EXPECT_NE(none, nullptr);
  EXPECT_EQ(none[0], '0');
  EXPECT_EQ(v.MemoryCurrent, 3 + 1);
  EXPECT_EQ(m.GetMemoryUsed(), 3.0f + 8192);  // the peak stays
}

TEST(MemoryManager, ReallocationDoesNotCheckTheResize) {
  QORKytMemoryManager m(10);
  char *p = nullptr;
  const int g = one(m, p, 64);
  char *const old = p;
  qor::fault::fail_at(qor::fault::Op::MemRealloc, 1);
  EXPECT_EQ(m.Reallocation(g, p, 4096), 0);
  qor::fault::reset();
  EXPECT_EQ(p, nullptr);
  auto &v = view(m);
  EXPECT_EQ(v.ElementTable[0], nullptr);
  EXPECT_EQ(v.ElementSize[0], 512);
  EXPECT_EQ(v.MemoryCurrent, 512);
  std::free(old);  // the manager lost it
}

TEST(MemoryManager, ManualReallocationCopiesAndLeavesAHole) {
  QORKytMemoryManager m(10);
  char *a = nullptr;
  char *b = nullptr;
  int ga = one(m, a, 24);
  one(m, b, 8);
  std::memcpy(a, "twenty-three characters", 24);
  char *const before = a;
  EXPECT_EQ(m.ManualReallocation(ga, a, 24, 4000), 0);
  EXPECT_EQ(ga, 3);
  EXPECT_NE(a, before);
  EXPECT_STREQ(a, "twenty-three characters");
  auto &v = view(m);
  EXPECT_EQ(v.ElementTable[0], nullptr);  // the old group is a hole
  EXPECT_EQ(m.GetIndiceAllocation(), 4);
  EXPECT_EQ(v.MemoryCurrent, 2 + 501);

  int zero = 0;
  char *c = nullptr;
  EXPECT_EQ(m.ManualReallocation(zero, c, 0, 16), kFailed);  // the new group stays
  EXPECT_EQ(zero, 0);
  EXPECT_EQ(c, nullptr);
  EXPECT_EQ(m.GetIndiceAllocation(), 5);
}

TEST(MemoryManager, TypedFormConvertsItemsToBytes) {
  QORKytMemoryManager m(20);
  char **strings = nullptr;
  float *f = nullptr;
  char *text = nullptr;
  int *ints = nullptr;
  double *d = nullptr;
  int indice = 0;
  ASSERT_EQ(m.Allocation(indice, QORKytTypeEncapMemory(strings), 5, QORKytTypeEncapMemory(f), 3,
                         QORKytTypeEncapMemory(text), 9, QORKytTypeEncapMemory(ints), 2,
                         QORKytTypeEncapMemory(d), 1, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0,
                         kEmpty, 0, kEmpty, 0),
            0);
  // 40, 12, 9, 8 and 8 bytes: 6, 2, 2, 2 and 2 words.
  EXPECT_EQ(reinterpret_cast<char *>(f) - reinterpret_cast<char *>(strings), 48);
  EXPECT_EQ(text - reinterpret_cast<char *>(f), 16);
  EXPECT_EQ(reinterpret_cast<char *>(ints) - text, 16);
  EXPECT_EQ(reinterpret_cast<char *>(d) - reinterpret_cast<char *>(ints), 16);
  EXPECT_EQ(view(m).ElementSize[0], 14);
}

TEST(MemoryManager, TypedFormStopsQuietlyAtAnEmptyPair) {
  QORKytMemoryManager m(20);
  int *p1 = nullptr;
  int *p2 = nullptr;
  double *p3 = nullptr;
  int indice = 0;
  // (p1, 5), (empty, 0), (p3, 7): one array, p3 ignored.
  ASSERT_EQ(m.Allocation(indice, QORKytTypeEncapMemory(p1), 5, kEmpty, 0,
                         QORKytTypeEncapMemory(p3), 7, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0,
                         kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0),
            0);
  EXPECT_NE(p1, nullptr);
  EXPECT_EQ(p3, nullptr);
  EXPECT_EQ(view(m).ElementSize[0], 3);
  // (p1, 5), (p2, 0), (p3, 0): one array.
  p1 = nullptr;
  ASSERT_EQ(m.Allocation(indice, QORKytTypeEncapMemory(p1), 5, QORKytTypeEncapMemory(p2), 0,
                         QORKytTypeEncapMemory(p3), 0, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0,
                         kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0),
            0);
  EXPECT_EQ(indice, 2);
  EXPECT_NE(p1, nullptr);
  EXPECT_EQ(p2, nullptr);
  // A pointer of unknown type ends the list too when nothing non-zero follows.
  QORKytTypeEncapMemory unknown(p2);
  unknown._Type = QORKytValueInteger4;
  p1 = nullptr;
  ASSERT_EQ(m.Allocation(indice, QORKytTypeEncapMemory(p1), 5, unknown, 3, kEmpty, 0, kEmpty, 0,
                         kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty,
                         0),
            0);
  EXPECT_EQ(indice, 3);
  EXPECT_EQ(view(m).ElementSize[2], 3);
}

TEST(MemoryManager, DestructionFreesEverythingStillHeld) {
  // Under the leak checker a block left behind fails the run.
  auto *m = new QORKytMemoryManager(3);
  char *p = nullptr;
  for (int g = 0; g < 7; ++g) one(*m, p, 1000);
  m->Desallocation(-3);
  long long lengths[2] = {10, 20};
  char *arrays[2] = {};
  char **a = arrays;
  int indice = 0;
  {
    qkm_test::malloc_hook::Guard guard;
    qkm_test::malloc_hook::fail_at(5 * 8 + 8, 1);  // the single block
    ASSERT_EQ(m->Allocation(2, indice, a, lengths), 0);
  }
  delete m;
}

TEST(MemoryManager, SelfCheckOfTheTypedPath) {
  EXPECT_EQ(QORKytTypeEncapMemory::Test(), 0);
}

}  // namespace
