// Requests whose bytes cannot be represented, released numbers released again, and error
// paths under an allocator that refuses every block of 64 bytes or more.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>

#include "QORKytError.h"
#include "kernels.h"
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

// Every error path of the services with an allocator that refuses every block of 64 bytes or
// more: each still prints one whole block and returns its status; nothing is thrown.
TEST(MemoryRobustness, ErrorPathsSurviveAnAllocatorThatRefusesEverything) {
  using E = QORKytTypeEncapError;
  const E &e = E::EmptyEncapEr;
  QORKytMemoryManager m(20);
  char *kept = nullptr;
  ASSERT_EQ(one(m, kept, 8), 1);
  const auto manager = [&](int mode, std::vector<long long> bytes) {
    return [&m, mode, bytes] {
      std::vector<long long> lengths = bytes;
      std::vector<char *> arrays(bytes.size() + 1, nullptr);
      char **a = arrays.data();
      int indice = 0;
      m.SetModeWarning(mode);
      const int st = m.Allocation(static_cast<int>(bytes.size()), indice, a, lengths.data());
      m.ResetModeWarning();
      return st;
    };
  };
  const struct {
    const char *name;
    std::function<int()> call;
    int status;
    const char *shown;
  } cases[] = {
      {"null length", manager(0, {0}), kFailed, "Null Allocation Length"},
      {"negative length", manager(0, {-16}), kFailed, "NEGATIVE ALLOCATION LENGTH"},
      {"negative, warning", manager(7, {-16}), 8, "_0007"},
      {"exhausted", manager(0, {4000}), kFailed, "ERR_0302"},
      {"exhausted, warning", manager(1026, {4000}), 8, "WARN_0300"},
      {"typed", [&] { int i = 0; int *p = nullptr; double *q = nullptr;
                      const Mem &x = Mem::EmptyEncapMem;  // the helper's vector would fail
                      return m.Allocation(i, Mem(p), 5, Mem(q), 0, Mem(p), 7, x, 0, x, 0, x, 0,
                                          x, 0, x, 0, x, 0, x, 0, x, 0); },
       kFailed, "Array type not recognized"},
      {"error tools", [&] { QORKytErrorTools::CreateError(302, "QORKYTMathKernelError", E(1), E(2),
                                                         e, e, e, e, e, e, e); return 0; },
       0, "ERR_0302"},
      {"text", [&] { QORKytErrorTools::Create("a text of more than sixty-four characters, "
                                              "longer than any short string"); return 0; },
       0, "a text of more than sixty-four"},
      {"ehrprog", [&] { qkm_int code = 12, st = 0; ehrprog(&code, "by reference", &st, 12);
                        return st; },
       1, "Parameter: 12\nby reference"},
  };
  for (const auto &c : cases) {
    int status = -1;
    std::string out;
    {
      StdoutCapture cap;
      hook::fail_from(64, 1);
      EXPECT_NO_THROW(status = c.call()) << c.name;
      hook::reset();
      out = cap.text();
    }
    EXPECT_EQ(status, c.status) << c.name;
    EXPECT_EQ(count_of(out, "\n***********************************************\n\n"), 1)
        << c.name << out;
    EXPECT_NE(out.find(c.shown), std::string::npos) << c.name << out;
  }
}

}  // namespace
