// Requests whose bytes cannot be represented, released numbers released again, and error
// paths under an allocator that refuses every block of 64 bytes or more.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "support/memory_view.h"

namespace {

using namespace qkm_test;
namespace hook = qkm_test::malloc_hook;

const std::string kError = "\n******************** ERROR ********************\n";

// Lengths in bytes whose words, or whose total of words, have no byte count in 64 bits.
TEST(MemoryRobustness, UnrepresentableBytesTakeTheExhaustionPath) {
  const struct {
    int n;
    long long bytes[4];
  } cases[] = {{4, {1LL << 62, 1LL << 62, 1LL << 62, 1LL << 62}},
               {2, {LLONG_MAX, LLONG_MAX}},
               {1, {LLONG_MAX}},
               {2, {8, LLONG_MAX - 7}}};
  for (const auto &c : cases) {
    Clean clean;
    QORKytMemoryManager m(20);
    char *arrays[4] = {};
    char **a = arrays;
    long long lengths[4] = {c.bytes[0], c.bytes[1], c.bytes[2], c.bytes[3]};
    int indice = -7;
    StdoutCapture cap;
    EXPECT_EQ(m.Allocation(c.n, indice, a, lengths), kFailed) << c.bytes[0];
    const std::string out = cap.text();
    EXPECT_NE(out.find(kError), std::string::npos) << out;
    EXPECT_NE(out.find("Requested:"), std::string::npos) << out;
    EXPECT_EQ(indice, -7);
    EXPECT_EQ(state(m, 0), "1 0 ");
    for (char *p : arrays) EXPECT_EQ(p, nullptr);
  }
}

// A number released and then taken again by nothing names slots that later calls reuse.
TEST(MemoryRobustness, NumbersNoLongerOnTheStackAreRefused) {
  Clean clean;
  QORKytMemoryManager m(20);
  char *p1 = nullptr, *p2 = nullptr;
  ASSERT_EQ(one(m, p1, 80), 1);
  ASSERT_EQ(one(m, p2, 80), 2);
  ASSERT_EQ(m.Desallocation(2), 0);
  // A failed call: the single block and then the second separate block are refused, so the
  // first separate block is made in element 1 and freed again.
  char *arrays[2] = {};
  char **a = arrays;
  long long lengths[2] = {800, 800};
  int indice = 0;
  hook::fail_at(200, 1);
  qor::fault::fail_at(qor::fault::Op::MemAlloc, 2);
  {
    StdoutCapture cap;
    m.SetModeWarning(5);
    EXPECT_EQ(m.Allocation(2, indice, a, lengths), 8);
    m.ResetModeWarning();
  }
  hook::reset();
  EXPECT_EQ(state(m, 2), "2 11 10");
  EXPECT_EQ(m.Desallocation(-2), kFailed);
  EXPECT_EQ(m.Desallocation(-3), kFailed);
  int list[3] = {2, 3, 7};
  EXPECT_EQ(m.Desallocation(3, list), 0);
  EXPECT_EQ(state(m, 2), "2 11 10");
  p1[79] = 'x';  // still held
  // Released as a hole, the number stays on the stack: a second release frees nothing.
  EXPECT_EQ(m.Desallocation(-1), 0);
  EXPECT_EQ(m.Desallocation(-1), 0);
  EXPECT_EQ(m.Desallocation(1, list + 0), 0);
  EXPECT_EQ(state(m, 2), "2 0 00");
}

}  // namespace
