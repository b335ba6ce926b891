// The memory manager's normal work: conversion of lengths, placement, the three release forms
// with their stack and holes, reallocation and the typed form.
#include <gtest/gtest.h>

#include <cstring>

#include "support/memory_view.h"

namespace {

using namespace qkm_test;
namespace hook = qkm_test::malloc_hook;

TEST(MemoryManager, TheTypicalJourney) {
  Clean clean;
  QORKytMemoryManager m(100);
  int *ints = nullptr;
  double *reals = nullptr;
  int indice = 0;
  hook::fail_at(1000, 1 << 30);  // count large requests, fail none
  ASSERT_EQ(typed(m, indice, {{Mem(ints), 100}, {Mem(reals), 110}}), 0);
  EXPECT_EQ(hook::counted(), 1);  // one block for both
  EXPECT_EQ(hook::last_size(), 163u * 8);
  hook::reset();
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
  EXPECT_EQ(m.GetMemoryUsed(), 162.0f);  // the peak stays
}

TEST(MemoryManager, LengthsBecomeWordsAndArraysFollowEachOther) {
  QORKytMemoryManager m(20);
  long long lengths[4] = {8, 7, -5, 16};  // -5 bytes passes as one word
  char *arrays[4] = {};
  char **a = arrays;
  int indice = 0;
  ASSERT_EQ(m.Allocation(4, indice, a, lengths), 0);
  const long long words[4] = {2, 1, 1, 3};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(lengths[i], words[i]) << i;
  for (int i = 1; i < 4; ++i) EXPECT_EQ(arrays[i] - arrays[i - 1], 8 * words[i - 1]) << i;
  EXPECT_EQ(view(m).ElementSize[0], 7);

  // Typed: 5 pointers, 3 floats, 9 chars, 2 ints, 1 double: 40, 12, 9, 8 and 8 bytes.
  char **strings = nullptr;
  float *f = nullptr;
  char *text = nullptr;
  int *ints = nullptr;
  double *d = nullptr;
  ASSERT_EQ(typed(m, indice, {{Mem(strings), 5}, {Mem(f), 3}, {Mem(text), 9}, {Mem(ints), 2},
                              {Mem(d), 1}}), 0);
  const char *at[5] = {reinterpret_cast<char *>(strings), reinterpret_cast<char *>(f), text,
                       reinterpret_cast<char *>(ints), reinterpret_cast<char *>(d)};
  const int gaps[4] = {48, 16, 16, 16};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(at[i + 1] - at[i], gaps[i]) << i;
  EXPECT_EQ(view(m).ElementSize[1], 14);

  // The list ends quietly at an empty pair, a zero length, or an unknown type with nothing
  // non-zero behind it: one array each time.
  int *p1 = nullptr, *p2 = nullptr;
  double *p3 = nullptr;
  Mem unknown(p2);
  unknown._Type = QORKytValueInteger4;
  const std::vector<std::pair<Mem, int>> ends[] = {
      {{Mem(p1), 5}, {Mem::EmptyEncapMem, 0}, {Mem(p3), 7}},
      {{Mem(p1), 5}, {Mem(p2), 0}, {Mem(p3), 0}},
      {{Mem(p1), 5}, {unknown, 3}}};
  for (int k = 0; k < 3; ++k) {
    p1 = nullptr;
    ASSERT_EQ(typed(m, indice, ends[k]), 0) << k;
    EXPECT_EQ(indice, 3 + k);
    EXPECT_NE(p1, nullptr);
    EXPECT_EQ(p2, nullptr);
    EXPECT_EQ(p3, nullptr);
    EXPECT_EQ(view(m).ElementSize[2 + k], 3);
  }
  EXPECT_EQ(m.GetMemoryUsed(), 7.0f + 14 + 9);
}

TEST(MemoryManager, PositiveReleaseIsAStackNegativeAndListLeaveHoles) {
  QORKytMemoryManager m(4);  // small step: the tables grow on the way
  auto &v = view(m);
  char *p[9] = {};
  for (int g = 0; g < 3; ++g) EXPECT_EQ(one(m, p[g], 80 * (g + 1)), g + 1);
  EXPECT_EQ(v.MemoryCurrent, 11 + 21 + 31);
  EXPECT_EQ(m.Desallocation(2), 0);  // group 2 and everything above it
  EXPECT_EQ(m.GetIndiceAllocation(), 2);
  EXPECT_EQ(v.MemoryCurrent, 11);
  EXPECT_EQ(v.ElementTable[1], nullptr);
  EXPECT_EQ(v.ElementTable[2], nullptr);
  EXPECT_EQ(v.ElementSize[1], 0);
  EXPECT_EQ(one(m, p[1], 8), 2);  // numbers are reused
  EXPECT_EQ(one(m, p[2], 16), 3);
  EXPECT_EQ(one(m, p[3], 24), 4);
  EXPECT_EQ(m.Desallocation(-2), 0);  // group 2 alone: a hole on the stack
  EXPECT_EQ(m.GetIndiceAllocation(), 5);
  EXPECT_EQ(v.ElementTable[1], nullptr);
  EXPECT_NE(v.ElementTable[2], nullptr);
  EXPECT_EQ(v.MemoryCurrent, 11 + 3 + 4);
  EXPECT_EQ(m.Desallocation(-4), 0);  // the newest group too stays a hole
  EXPECT_EQ(m.GetIndiceAllocation(), 5);
  EXPECT_EQ(v.MemoryCurrent, 11 + 3);
  EXPECT_EQ(m.Desallocation(2), 0);  // a positive release walks over the holes
  EXPECT_EQ(m.GetIndiceAllocation(), 2);
  EXPECT_EQ(v.MemoryCurrent, 11);
  EXPECT_EQ(v.ElementTable[2], nullptr);
  EXPECT_EQ(m.Desallocation(9), 0);
  EXPECT_EQ(v.MemoryCurrent, 11);
  EXPECT_EQ(m.Desallocation(0), kFailed);

  for (int g = 2; g <= 9; ++g) EXPECT_EQ(one(m, p[g - 1], 8), g);
  EXPECT_EQ(v.TableSize, 12);  // grown twice by the step
  EXPECT_EQ(v.IndiceTable[9], 8);
  int list[5] = {3, 0, -2, 5, 3};  // zero and negative entries skipped; 3 twice is harmless
  EXPECT_EQ(m.Desallocation(5, list), 0);
  EXPECT_EQ(m.GetIndiceAllocation(), 10);
  EXPECT_NE(v.ElementTable[1], nullptr);
  EXPECT_EQ(v.ElementTable[2], nullptr);
  EXPECT_NE(v.ElementTable[3], nullptr);
  EXPECT_EQ(v.ElementTable[4], nullptr);
  EXPECT_EQ(v.MemoryCurrent, 11 + 6 * 2);
  EXPECT_EQ(m.Desallocation(0, list), 0);
  EXPECT_EQ(m.GetMemoryUsed(), 11.0f + 21 + 31);

  // The caller-side form frees the caller's blocks and touches no table.
  char *mine[3] = {static_cast<char *>(std::malloc(8)), nullptr,
                   static_cast<char *>(std::malloc(8))};
  char **a = mine;
  EXPECT_EQ(m.Desallocation(3, a), 0);
  EXPECT_EQ(mine[0], nullptr);
  EXPECT_EQ(mine[2], nullptr);
  EXPECT_EQ(v.MemoryCurrent, 11 + 6 * 2);
  EXPECT_EQ(m.GetIndiceAllocation(), 10);
  EXPECT_EQ(m.Desallocation(-1, a), 0);
}

TEST(MemoryManager, WhenMallocFailsEachArrayGetsItsOwnElement) {
  Clean clean;
  QORKytMemoryManager m(20);
  char *first = nullptr;
  one(m, first, 8);
  long long lengths[3] = {800, 1600, 2400};
  char *arrays[3] = {};
  char **a = arrays;
  int indice = 0;
  hook::fail_at((101 + 201 + 301) * 8 + 8, 1);
  ASSERT_EQ(m.Allocation(3, indice, a, lengths), 0);
  EXPECT_EQ(hook::failures(), 1);
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
  EXPECT_EQ(m.Desallocation(2), 0);  // the three separate blocks and group 3
  EXPECT_EQ(v.MemoryCurrent, 2);
}

TEST(MemoryManager, ReallocationForms) {
  QORKytMemoryManager m(10);
  auto &v = view(m);
  char *keep = nullptr, *p = nullptr;
  one(m, keep, 16);
  const int g = one(m, p, 40);
  const char text[] = "0123456789abcdefghijklmnopqrstuvwxyzABC";
  std::memcpy(p, text, 40);
  EXPECT_EQ(m.Reallocation(g, p, 1 << 16), 0);
  ASSERT_NE(p, nullptr);
  EXPECT_STREQ(p, text);
  p[(1 << 16) - 1] = 1;
  EXPECT_EQ(v.ElementTable[1], p);
  EXPECT_EQ(v.ElementSize[1], (1 << 16) / 8);  // no spare word here
  EXPECT_EQ(v.MemoryCurrent, 3 + 8192);
  char *none = nullptr;  // a null array works on the block of the element
  EXPECT_EQ(m.Reallocation(g, none, 12), 0);
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(none[0], '0');
  EXPECT_EQ(v.MemoryCurrent, 3 + 1);
  EXPECT_EQ(m.GetMemoryUsed(), 3.0f + 8192);

  // The resize is not checked: a failure loses the block (the test frees it).
  char *const old = none;
  qor::fault::fail_at(qor::fault::Op::MemRealloc, 1);
  EXPECT_EQ(m.Reallocation(g, none, 4096), 0);
  qor::fault::reset();
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(v.ElementTable[1], nullptr);
  EXPECT_EQ(v.ElementSize[1], 512);
  EXPECT_EQ(v.MemoryCurrent, 3 + 512);
  std::free(old);

  // Manual: a new group with the copy, the old group a hole.
  char *b = nullptr;
  int gk = 1;
  std::memcpy(keep, "fifteen chars..", 16);
  EXPECT_EQ(one(m, b, 8), 3);
  EXPECT_EQ(m.ManualReallocation(gk, keep, 16, 4000), 0);
  EXPECT_EQ(gk, 4);
  EXPECT_STREQ(keep, "fifteen chars..");
  EXPECT_EQ(v.ElementTable[0], nullptr);
  EXPECT_EQ(m.GetIndiceAllocation(), 5);
  EXPECT_EQ(v.MemoryCurrent, 512 + 2 + 501);
  int zero = 0;
  char *c = nullptr;
  EXPECT_EQ(m.ManualReallocation(zero, c, 0, 16), kFailed);  // the new group stays
  EXPECT_EQ(zero, 0);
  EXPECT_EQ(c, nullptr);
  EXPECT_EQ(m.GetIndiceAllocation(), 6);
}

TEST(MemoryManager, DestructionFreesEverythingStillHeldAndSelfCheckPasses) {
  Clean clean;  // under the leak checker a block left behind fails the run
  auto *m = new QORKytMemoryManager(3);
  char *p = nullptr;
  for (int g = 0; g < 7; ++g) one(*m, p, 1000);
  m->Desallocation(-3);
  long long lengths[2] = {10, 20};
  char *arrays[2] = {};
  char **a = arrays;
  int indice = 0;
  hook::fail_at(5 * 8 + 8, 1);  // the single block: two separate ones
  ASSERT_EQ(m->Allocation(2, indice, a, lengths), 0);
  delete m;
  EXPECT_EQ(QORKytTypeEncapMemory::Test(), 0);
}

}  // namespace
