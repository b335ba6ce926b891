// The memory manager's normal work: conversion of lengths, placement, the three release forms
// with their stack and holes, reallocation and the typed form.
#include <gtest/gtest.h>

#include <cstring>

#include "support/memory_view.h"

namespace {

using namespace qkm_test;
namespace hook = qkm_test::malloc_hook;

const char *at(const void *p) { return static_cast<const char *>(p); }

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
  EXPECT_EQ(indice, 1);
  ASSERT_NE(ints, nullptr);
  EXPECT_EQ(at(reals) - at(ints), 408);
  auto &v = view(m);
  EXPECT_EQ(v.ElementTable[0], at(ints));
  EXPECT_EQ(v.ElementSize[0], 162);
  EXPECT_EQ(v.IndiceTable[0], -1);
  EXPECT_EQ(v.IndiceTable[1], 0);
  EXPECT_EQ(state(m, 1), "2 162 1");
  for (int i = 0; i < 100; ++i) ints[i] = i;
  for (int i = 0; i < 110; ++i) reals[i] = i;
  EXPECT_EQ(m.Desallocation(1), 0);
  EXPECT_EQ(state(m, 1), "1 0 0");
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
  char **strings = nullptr, *text = nullptr;
  float *f = nullptr;
  int *ints = nullptr;
  double *d = nullptr;
  ASSERT_EQ(typed(m, indice, {{Mem(strings), 5}, {Mem(f), 3}, {Mem(text), 9}, {Mem(ints), 2},
                              {Mem(d), 1}}), 0);
  EXPECT_EQ(at(f) - at(strings), 48);
  EXPECT_EQ(text - at(f), 16);
  EXPECT_EQ(at(ints) - text, 16);
  EXPECT_EQ(at(d) - at(ints), 16);
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
    EXPECT_TRUE(p1 != nullptr && p2 == nullptr && p3 == nullptr) << k;
    EXPECT_EQ(view(m).ElementSize[2 + k], 3);
  }
}

TEST(MemoryManager, PositiveReleaseIsAStackNegativeAndListLeaveHoles) {
  QORKytMemoryManager m(4);  // small step: the tables grow on the way
  auto &v = view(m);
  char *p[9] = {};
  for (int g = 0; g < 3; ++g) EXPECT_EQ(one(m, p[g], 80 * (g + 1)), g + 1);
  EXPECT_EQ(m.Desallocation(2), 0);  // group 2 and everything above it
  EXPECT_EQ(state(m, 3), "2 11 100");
  EXPECT_EQ(v.ElementSize[1], 0);
  EXPECT_EQ(one(m, p[1], 8), 2);  // numbers are reused
  EXPECT_EQ(one(m, p[2], 16), 3);
  EXPECT_EQ(one(m, p[3], 24), 4);
  EXPECT_EQ(m.Desallocation(-2), 0);  // group 2 alone: a hole on the stack
  EXPECT_EQ(state(m, 4), "5 18 1011");
  EXPECT_EQ(m.Desallocation(-4), 0);  // the newest group too stays a hole
  EXPECT_EQ(state(m, 4), "5 14 1010");
  EXPECT_EQ(m.Desallocation(2), 0);  // a positive release walks over the holes
  EXPECT_EQ(state(m, 4), "2 11 1000");
  EXPECT_EQ(m.Desallocation(9), 0);
  EXPECT_EQ(m.Desallocation(0), kFailed);
  EXPECT_EQ(state(m, 4), "2 11 1000");

  for (int g = 2; g <= 9; ++g) EXPECT_EQ(one(m, p[g - 1], 8), g);
  EXPECT_EQ(v.TableSize, 12);  // grown twice by the step
  EXPECT_EQ(v.IndiceTable[9], 8);
  int list[5] = {3, 0, -2, 5, 3};  // zero and negative entries skipped; 3 twice is harmless
  EXPECT_EQ(m.Desallocation(5, list), 0);
  EXPECT_EQ(m.Desallocation(0, list), 0);
  EXPECT_EQ(state(m, 9), "10 23 110101111");
  EXPECT_EQ(m.GetMemoryUsed(), 11.0f + 21 + 31);

  // The caller-side form frees the caller's blocks and touches no table.
  char *mine[3] = {static_cast<char *>(std::malloc(8)), nullptr,
                   static_cast<char *>(std::malloc(8))};
  char **a = mine;
  EXPECT_EQ(m.Desallocation(3, a), 0);
  EXPECT_TRUE(mine[0] == nullptr && mine[2] == nullptr);
  EXPECT_EQ(m.Desallocation(-1, a), 0);
  EXPECT_EQ(state(m, 9), "10 23 110101111");
}

TEST(MemoryManager, WhenMallocFailsEachArrayGetsItsOwnElement) {
  Clean clean;
  QORKytMemoryManager m(20);
  char *first = nullptr, *next = nullptr;
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
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(v.ElementTable[1 + i], arrays[i]);
    EXPECT_EQ(v.ElementSize[1 + i], lengths[i]);
    std::memset(arrays[i], 0x5a, static_cast<size_t>(lengths[i]) * 8);
  }
  EXPECT_EQ(one(m, next, 8), 3);
  EXPECT_EQ(v.IndiceTable[2], 3);  // three elements for group 2
  EXPECT_EQ(v.IndiceTable[3], 4);
  EXPECT_EQ(state(m, 5), "4 607 11111");
  EXPECT_EQ(m.Desallocation(2), 0);  // the three separate blocks and group 3
  EXPECT_EQ(state(m, 5), "2 2 10000");
}

TEST(MemoryManager, ReallocationForms) {
  QORKytMemoryManager m(10);
  auto &v = view(m);
  char *keep = nullptr, *p = nullptr, *b = nullptr;
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
  EXPECT_EQ(state(m, 2), "3 8195 11");
  char *none = nullptr;  // a null array works on the block of the element
  EXPECT_EQ(m.Reallocation(g, none, 12), 0);
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(none[0], '0');
  EXPECT_EQ(state(m, 2), "3 4 11");
  EXPECT_EQ(m.GetMemoryUsed(), 3.0f + 8192);

  // The resize is not checked: a failure loses the block (the test frees it).
  char *const old = none;
  qor::fault::fail_at(qor::fault::Op::MemRealloc, 1);
  EXPECT_EQ(m.Reallocation(g, none, 4096), 0);
  qor::fault::reset();
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(v.ElementSize[1], 512);
  EXPECT_EQ(state(m, 2), "3 515 10");
  std::free(old);

  // Manual: a new group with the copy, the old group a hole.
  int gk = 1, zero = 0;
  std::memcpy(keep, "fifteen chars..", 16);
  EXPECT_EQ(one(m, b, 8), 3);
  EXPECT_EQ(m.ManualReallocation(gk, keep, 16, 4000), 0);
  EXPECT_EQ(gk, 4);
  EXPECT_STREQ(keep, "fifteen chars..");
  EXPECT_EQ(state(m, 4), "5 1015 0011");
  char *c = nullptr;
  EXPECT_EQ(m.ManualReallocation(zero, c, 0, 16), kFailed);  // the new group stays
  EXPECT_TRUE(zero == 0 && c == nullptr);
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
