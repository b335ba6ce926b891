// Every refusal of the memory manager: what it prints (banner, message, sizes in kilobytes),
// its status, and what survives. Failures of malloc, QORUnsecuredMemAlloc and
// QORUnsecuredMemRealloc are injected at chosen calls.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/child.h"
#include "support/memory_view.h"

namespace {

using namespace qkm_test;
using qor::fault::Op;
namespace hook = qkm_test::malloc_hook;

const std::string kError = "\n******************** ERROR ********************\n";
const std::string kWarning = "\n******************* WARNING *******************\n";
const std::string kInternal = "\n**************** INTERNAL ERROR ***************\n";
const std::string kClosing = "\n***********************************************\n\n";
const std::string kNull = "Null Allocation Length";

std::string sizes(int asked_kb, int available_kb) {
  return "Requested: " + std::to_string(asked_kb) + " KB. Available: " +
         std::to_string(available_kb) + " KB.";
}

// One printed block: the banner, the text inside it, the closing line, and nothing else.
void expect_one_block(const std::string &out, const std::string &banner,
                      const std::string &inside) {
  EXPECT_EQ(count_of(out, kClosing), 1) << out;
  const auto b = out.find(banner);
  ASSERT_NE(b, std::string::npos) << out;
  const auto m = out.find(inside, b + banner.size());
  ASSERT_NE(m, std::string::npos) << out;
  EXPECT_LT(m, out.find(kClosing)) << out;
}

TEST(MemoryFailures, NullAndNegativeLengths) {
  QORKytMemoryManager m(10);
  char *kept = nullptr;
  one(m, kept, 8);
  char *arrays[3] = {};
  char **a = arrays;
  int indice = 5;
  // Null totals, not softened by warning mode; lengths converted up to the zero only.
  m.SetModeWarning(1026);
  const struct {
    int n;
    long long in[3], out[3];
  } nulls[] = {{0, {8}, {8}}, {3, {16, 0, 24}, {3, 0, 24}}, {2, {-8, -15}, {0, 0}}};
  for (const auto &c : nulls) {
    long long lengths[3] = {c.in[0], c.in[1], c.in[2]};
    StdoutCapture cap;
    EXPECT_EQ(m.Allocation(c.n, indice, a, lengths), kFailed);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(lengths[i], c.out[i]) << c.n << " " << i;
    expect_one_block(cap.text(), kInternal, kNull);
  }
  // Warning mode 1026 passes a negative length by: message 1026 itself, no sizes.
  long long soft[2] = {-17, 8};
  StdoutCapture cap;
  EXPECT_EQ(m.Allocation(2, indice, a, soft), 8);
  const std::string out = cap.text();
  expect_one_block(out, kInternal, "Identifier: 1026");
  EXPECT_EQ(out.find("Requested:"), std::string::npos) << out;
  EXPECT_EQ(indice, 5);
  EXPECT_EQ(state(m, 1), "2 2 1");

  // Error mode prints the running total in words; a caller's live pointer in front of the
  // negative entry is freed (the leak checker and the null left behind both show it).
  m.ResetModeWarning();
  arrays[0] = static_cast<char *>(std::malloc(32));
  long long lengths[3] = {16, -16, 8};
  StdoutCapture cap2;
  EXPECT_EQ(m.Allocation(3, indice, a, lengths), kFailed);
  expect_one_block(cap2.text(), kInternal, "NEGATIVE ALLOCATION LENGTH : 2\n");
  EXPECT_EQ(arrays[0], nullptr);
  EXPECT_EQ(lengths[1], -1);
  EXPECT_EQ(lengths[2], 2);  // converted before the totals were added up
  StdoutCapture cap3;
  long long alone[1] = {-16};
  EXPECT_EQ(m.Allocation(1, indice, a, alone), kFailed);
  expect_one_block(cap3.text(), kInternal, "NEGATIVE ALLOCATION LENGTH : 18446744073709551615\n");
  EXPECT_EQ(state(m, 1), "2 2 1");
  EXPECT_EQ(m.GetMemoryUsed(), 2.0f);
}

// Groups 1 and 2 held, then a group of two arrays whose single block and second separate
// block fail: 101 and 1280 words asked (10 KB), 1216 words found by the descent (9 KB).
TEST(MemoryFailures, ExhaustionInEachMode) {
  const struct {
    int mode;
    bool nothing_left;
    int status;
    const std::string &banner;
    std::string inside;
    std::string after;
  } cases[] = {
      {0, false, kFailed, kError, sizes(10, 9), "2 21 10"},  // gives up the newest group
      {0, true, kFailed, kError, sizes(10, 0), "2 21 10"},
      {1026, false, 8, kWarning, sizes(10, 9), "3 52 11"},  // takes nothing
      {4242, false, 8, kInternal, "Identifier: 4242", "3 52 11"},
  };
  for (const auto &c : cases) {
    Clean clean;
    QORKytMemoryManager m(20);
    char *g1 = nullptr, *g2 = nullptr;
    one(m, g1, 160);
    one(m, g2, 240);
    m.SetModeWarning(c.mode);
    char *arrays[2] = {};
    char **a = arrays;
    long long lengths[2] = {800, 10232};
    int indice = -3;
    StdoutCapture cap;
    hook::fail_at((101 + 1280) * 8 + 8, 1);
    if (c.nothing_left)
      qor::fault::fail_from(Op::MemAlloc, 2);
    else
      qor::fault::fail_at(Op::MemAlloc, 2);
    EXPECT_EQ(m.Allocation(2, indice, a, lengths), c.status) << c.mode;
    const std::string out = cap.text();
    EXPECT_EQ(hook::failures(), 1);
    expect_one_block(out, c.banner, c.inside);
    if (c.mode == 4242) EXPECT_EQ(out.find("Requested:"), std::string::npos) << out;
    EXPECT_EQ(arrays[0], nullptr);  // the first separate block went back
    EXPECT_EQ(indice, -3);
    EXPECT_EQ(state(m, 2), c.after);
    EXPECT_EQ(m.GetMemoryUsed(), 21.0f + 31);
    qor::fault::reset();
    char *next = nullptr;
    EXPECT_EQ(one(m, next, 8), c.after[0] - '0');  // numbers are reused
  }
}

TEST(MemoryFailures, ComputeAvailableMemoryDescendsInTwentieths) {
  Clean clean;
  QORKytMemoryManager m(4);
  const struct {
    int fail;  // 0 none, 1 the first try, 2 every try
    int words, available;
  } cases[] = {{0, 100, 95}, {2, 100, 0}, {1, 100, 90}, {0, 1, 0}};
  for (const auto &c : cases) {
    qor::fault::reset();
    if (c.fail == 1) qor::fault::fail_at(Op::MemAlloc, 1);
    if (c.fail == 2) qor::fault::fail_from(Op::MemAlloc, 1);
    int available = -1;
    m.ComputeAvailableMemory(c.words, available);
    EXPECT_EQ(available, c.available) << c.fail << " " << c.words;
  }
}

// Step 200: the 200th group needs the first extension of the tables. Whether the single-block
// attempt or the separate one meets the failed extension, 400 entries are asked (3 KB) and
// 380 found (2 KB), the caller's newest group is given up, and the tables that did not grow
// (or grew half-way) are never written past their end.
TEST(MemoryFailures, TableExtensionFailures) {
  for (int separate = 0; separate < 2; ++separate) {
    Clean clean;
    QORKytMemoryManager m(200);
    const int held = separate ? 190 : 199;
    char *p = nullptr;
    for (int g = 1; g <= held; ++g) ASSERT_EQ(one(m, p, 8), g);
    long long lengths[11] = {8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8};
    char *arrays[11] = {};
    char **a = arrays;
    int indice = 0;
    StdoutCapture cap;
    if (separate) {
      hook::fail_at(22 * 8 + 8, 1);            // the single block
      qor::fault::fail_at(Op::MemRealloc, 2);  // the element sizes do not grow
    } else {
      qor::fault::fail_at(Op::MemRealloc, 1);
    }
    EXPECT_EQ(m.Allocation(separate ? 11 : 1, indice, a, lengths), kFailed);
    expect_one_block(cap.text(), kError, sizes(3, 2));
    EXPECT_EQ(state(m, 0), std::to_string(held) + " " + std::to_string(held * 2 - 2) + " ");
    for (char *q : arrays) EXPECT_EQ(q, nullptr);
    for (int g = held; g <= 260; ++g) {
      lengths[0] = lengths[1] = 8;
      EXPECT_EQ(m.Allocation(2, indice, a, lengths), 0);
      EXPECT_EQ(indice, g);
    }
  }
  qor::fault::fail_at(Op::MemAlloc, 2);  // a manager without tables refuses every group
  QORKytMemoryManager m(50);
  qor::fault::reset();
  char *p = nullptr;
  StdoutCapture cap;
  EXPECT_EQ(one(m, p, 8), -7);
  expect_one_block(cap.text(), kError, "Requested: 0 KB.");
  EXPECT_EQ(m.Desallocation(1), 0);
  EXPECT_EQ(m.Desallocation(-1), kFailed);  // no group was ever on the stack
}

// With KYT_MAX_ALLOC=1 the ceiling is 128018 words; only warning mode looks at it.
TEST(MemoryFailures, CeilingInChildProcesses) {
  // Statuses of 128018 and 128017 words (single block), whether the refusal left everything
  // as it was, and whether nothing was printed.
  auto single = [](int mode) {
    return [mode]() -> int64_t {
      QORKytMemoryManager m(10);
      char *held = nullptr, *p = nullptr;
      one(m, held, 8);
      m.SetModeWarning(mode);
      int refused = 0, passed = 0;
      StdoutCapture cap;
      one(m, p, 128017 * 8, &refused);
      const bool untouched = p == nullptr && m.GetIndiceAllocation() == 2;
      one(m, p, 128016 * 8, &passed);
      return refused * 1000 + passed * 100 + untouched * 10 + cap.text().empty();
    };
  };
  EXPECT_EQ(in_child({{"KYT_MAX_ALLOC", "1"}}, single(1026)), 8 * 1000 + 10 + 1);
  EXPECT_EQ(in_child({{"KYT_MAX_ALLOC", "1"}}, single(0)), 1);
  EXPECT_EQ(in_child({{"KYT_MAX_ALLOC", nullptr}}, single(1026)), 1);
  EXPECT_EQ(in_child({{"KYT_MAX_ALLOC", "2097"}}, single(1026)), 1);  // wraps: no ceiling

  // One separate array (the single-block attempt switched off: behind it no array can
  // exceed the total): 11 and 200000 words.
  auto separate = [](int mode) {
    return [mode]() -> int64_t {
      QORKytMemoryManager m(10);
      view(m).ModeSeparate = 1;
      m.SetModeWarning(mode);
      long long lengths[2] = {80, (200000 - 1) * 8};
      char *arrays[2] = {};
      char **a = arrays;
      int indice = 0;
      StdoutCapture cap;
      const int st = m.Allocation(2, indice, a, lengths);
      const std::string out = cap.text();
      const bool printed = mode == 1026 ? out.find(kWarning) != out.npos &&
                                              out.find(sizes(1562, 1000)) != out.npos
                                        : out.find("Identifier: 77") != out.npos;
      return st * 100 + (arrays[0] == nullptr) * 10 + printed;
    };
  };
  EXPECT_EQ(in_child({{"KYT_MAX_ALLOC", "1"}}, separate(1026)), 811);
  EXPECT_EQ(in_child({{"KYT_MAX_ALLOC", "1"}}, separate(77)), 811);
}

TEST(MemoryFailures, TypedForm) {
  QORKytMemoryManager m(20);
  int *p1 = nullptr, *p2 = nullptr;
  double *p3 = nullptr;
  Mem unknown(p2);
  unknown._Type = QORKytValueReal8;
  const std::string kNotRecognized = "Memory allocation: Array type not recognized";
  const struct {
    std::vector<std::pair<Mem, int>> pairs;
    std::string inside;
  } cases[] = {
      // A zero length with a non-zero length behind it.
      {{{Mem(p1), 5}, {Mem(p2), 0}, {Mem(p3), 7}}, kNotRecognized},
      // Later pairs are held against the encapsulation where the list stopped.
      {{{Mem(p1), 5}, {Mem(p2), 0}, {Mem::EmptyEncapMem, 7}}, kNotRecognized},
      // A pointer of unknown type with a length behind it.
      {{{Mem(p1), 5}, {unknown, 3}, {Mem::EmptyEncapMem, 1}}, kNotRecognized},
      {{}, kNull},  // only empties: the core form gets no array
  };
  int indice = 0;
  for (const auto &c : cases) {
    StdoutCapture cap;
    EXPECT_EQ(typed(m, indice, c.pairs), kFailed);
    expect_one_block(cap.text(), kInternal, c.inside);
  }
  EXPECT_EQ(p1, nullptr);
  EXPECT_EQ(state(m, 0), "1 0 ");
  EXPECT_EQ(m.GetMemoryUsed(), 0.0f);

  // Exhaustion writes no pointer and no group number.
  Clean clean;
  p1 = reinterpret_cast<int *>(0x1000);
  indice = 9;
  StdoutCapture cap;
  hook::fail_at(1000, 1);
  qor::fault::fail_from(Op::MemAlloc, 1);
  EXPECT_EQ(typed(m, indice, {{Mem(p1), 100}, {Mem(p3), 110}}), kFailed);
  expect_one_block(cap.text(), kError, sizes(0, 0));
  EXPECT_TRUE(p1 == reinterpret_cast<int *>(0x1000) && p3 == nullptr && indice == 9);

  // The self-check reports it too.
  StdoutCapture cap2;
  qor::fault::reset();
  hook::fail_at(209 * 8 + 8, 1);            // the single block of its six arrays
  qor::fault::fail_from(Op::MemAlloc, 4);  // after its three tables, every array
  EXPECT_EQ(QORKytTypeEncapMemory::Test(), kFailed);
  expect_one_block(cap2.text(), kError, sizes(0, 0));
}

}  // namespace
