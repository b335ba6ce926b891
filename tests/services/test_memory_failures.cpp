// Every refusal of the memory manager: what it prints (banner, message, the sizes in
// kilobytes), its status, and what survives. Failures of malloc, QORUnsecuredMemAlloc and
// QORUnsecuredMemRealloc are injected at chosen calls.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "QORKytMemoryManager.h"
#include "platform/fault_injection.h"
#include "support/child.h"
#include "support/malloc_hook.h"
#include "support/memory_view.h"

namespace {

using qkm_test::CaptureStdout;
using qkm_test::count_of;
using qkm_test::view;
using qor::fault::Op;
namespace hook = qkm_test::malloc_hook;

constexpr int kFailed = static_cast<int>(0x80004005u);
const QORKytTypeEncapMemory &kEmpty = QORKytTypeEncapMemory::EmptyEncapMem;

const std::string kError = "\n******************** ERROR ********************\n";
const std::string kWarning = "\n******************* WARNING *******************\n";
const std::string kInternal = "\n**************** INTERNAL ERROR ***************\n";
const std::string kClosing = "\n***********************************************\n\n";

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

struct Clean {
  Clean() { qor::fault::reset(); }
  ~Clean() {
    qor::fault::reset();
    hook::reset();
  }
};

int one(QORKytMemoryManager &m, char *&p, long long bytes) {
  int indice = -7;
  m.Allocation(1, indice, &p, bytes, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0,
               nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0);
  return indice;
}

// ------------------------------------------------------------------ null and negative lengths

TEST(MemoryFailures, NullLengthsAreRefusedInTheDescribedOrder) {
  QORKytMemoryManager m(10);
  m.SetModeWarning(1026);  // not softened by warning mode
  int indice = 5;
  char *arrays[3] = {};
  char **a = arrays;
  {
    CaptureStdout cap;
    long long none[1] = {8};
    EXPECT_EQ(m.Allocation(0, indice, a, none), kFailed);
    expect_one_block(cap.text(), kInternal, "Null Allocation Length");
  }
  {
    CaptureStdout cap;
    long long lengths[3] = {16, 0, 24};
    EXPECT_EQ(m.Allocation(3, indice, a, lengths), kFailed);
    EXPECT_EQ(lengths[0], 3);
    EXPECT_EQ(lengths[1], 0);
    EXPECT_EQ(lengths[2], 24);
    expect_one_block(cap.text(), kInternal, "Null Allocation Length");
  }
  {
    CaptureStdout cap;
    long long lengths[2] = {-8, -15};  // both become 0 words: the total is 0
    EXPECT_EQ(m.Allocation(2, indice, a, lengths), kFailed);
    EXPECT_EQ(lengths[0], 0);
    EXPECT_EQ(lengths[1], 0);
    expect_one_block(cap.text(), kInternal, "Null Allocation Length");
  }
  EXPECT_EQ(indice, 5);
  EXPECT_EQ(m.GetIndiceAllocation(), 1);
  EXPECT_EQ(m.GetMemoryUsed(), 0.0f);
}

TEST(MemoryFailures, NegativeLengthInErrorModePrintsTheRunningTotal) {
  QORKytMemoryManager m(10);
  char *kept = nullptr;
  one(m, kept, 8);
  int indice = 0;
  // A caller's live pointer in front of the negative entry is freed: the leak checker and the
  // null left behind both show it.
  char *arrays[3] = {static_cast<char *>(std::malloc(32)), nullptr, nullptr};
  char **a = arrays;
  long long lengths[3] = {16, -16, 8};
  CaptureStdout cap;
  EXPECT_EQ(m.Allocation(3, indice, a, lengths), kFailed);
  const std::string out = cap.text();
  expect_one_block(out, kInternal, "NEGATIVE ALLOCATION LENGTH : 2\n");
  EXPECT_EQ(arrays[0], nullptr);
  EXPECT_EQ(lengths[1], -1);
  EXPECT_EQ(lengths[2], 2);  // converted before the totals were added up
  EXPECT_EQ(m.GetIndiceAllocation(), 2);
  EXPECT_NE(view(m).ElementTable[0], nullptr);

  CaptureStdout cap2;
  long long alone[1] = {-16};
  EXPECT_EQ(m.Allocation(1, indice, a, alone), kFailed);
  expect_one_block(cap2.text(), kInternal, "NEGATIVE ALLOCATION LENGTH : 18446744073709551615\n");
}

TEST(MemoryFailures, NegativeLengthInWarningModeIgnoresTheSpecialValue) {
  QORKytMemoryManager m(10);
  m.SetModeWarning(1026);
  int indice = 0;
  char *arrays[2] = {};
  char **a = arrays;
  long long lengths[2] = {-17, 8};
  CaptureStdout cap;
  EXPECT_EQ(m.Allocation(2, indice, a, lengths), 8);
  const std::string out = cap.text();
  // Message 1026 itself, which the catalog does not carry: no sizes, no message 300.
  expect_one_block(out, kInternal, "Identifier: 1026");
  EXPECT_EQ(out.find("Requested:"), std::string::npos) << out;
  m.ResetModeWarning();
  CaptureStdout cap2;
  long long again[2] = {-17, 8};
  EXPECT_EQ(m.Allocation(2, indice, a, again), kFailed);
  EXPECT_NE(cap2.text().find("NEGATIVE ALLOCATION LENGTH"), std::string::npos);
}

// ------------------------------------------------------------------ exhaustion

// Groups 1 and 2 held, then a group of two arrays whose single block and second separate
// block fail: 101 and 1280 words asked, 1216 words found by the descent (9 KB).
struct Exhausted : ::testing::Test {
  QORKytMemoryManager m{20};
  char *g1 = nullptr;
  char *g2 = nullptr;
  char *arrays[2] = {};
  long long lengths[2] = {800, 10232};
  int indice = -3;
  std::string out;
  Clean clean;

  void SetUp() override {
    one(m, g1, 160);
    one(m, g2, 240);
  }
  int run(int mode, bool nothing_left = false) {
    m.SetModeWarning(mode);
    char **a = arrays;
    CaptureStdout cap;
    hook::fail_at((101 + 1280) * 8 + 8, 1);
    if (nothing_left)
      qor::fault::fail_from(Op::MemAlloc, 2);
    else
      qor::fault::fail_at(Op::MemAlloc, 2);
    const int st = m.Allocation(2, indice, a, lengths);
    out = cap.text();
    EXPECT_EQ(hook::failures(), 1);
    return st;
  }
};

TEST_F(Exhausted, ErrorModeGivesUpTheCallersNewestGroup) {
  EXPECT_EQ(run(0), kFailed);
  expect_one_block(out, kError, sizes(10, 9));
  EXPECT_EQ(arrays[0], nullptr);  // the first separate block went back
  EXPECT_EQ(indice, -3);
  auto &v = view(m);
  EXPECT_EQ(m.GetIndiceAllocation(), 2);  // group 2 is gone, group 1 stays
  EXPECT_NE(v.ElementTable[0], nullptr);
  EXPECT_EQ(v.ElementTable[1], nullptr);
  EXPECT_EQ(v.MemoryCurrent, 21);
  EXPECT_EQ(m.GetMemoryUsed(), 21.0f + 31);
  // The numbers are reused: the next group is 2 again.
  char *next = nullptr;
  EXPECT_EQ(one(m, next, 8), 2);
}

TEST_F(Exhausted, ErrorModeWithNothingLeftReportsZero) {
  EXPECT_EQ(run(0, true), kFailed);
  expect_one_block(out, kError, sizes(10, 0));
}

TEST_F(Exhausted, WarningModeWithTheSpecialValueShowsTheSizes) {
  EXPECT_EQ(run(1026), 8);
  expect_one_block(out, kWarning, sizes(10, 9));
  EXPECT_EQ(arrays[0], nullptr);
  EXPECT_EQ(m.GetIndiceAllocation(), 3);  // nothing of the caller's is taken
  EXPECT_EQ(view(m).MemoryCurrent, 21 + 31);
}

TEST_F(Exhausted, WarningModeWithAnotherValueIssuesThatMessage) {
  EXPECT_EQ(run(4242), 8);
  expect_one_block(out, kInternal, "Identifier: 4242");
  EXPECT_EQ(out.find("Requested:"), std::string::npos) << out;
  EXPECT_EQ(m.GetIndiceAllocation(), 3);
}

TEST(MemoryFailures, ComputeAvailableMemoryDescendsInTwentieths) {
  Clean clean;
  QORKytMemoryManager m(4);
  int available = -1;
  m.ComputeAvailableMemory(100, available);  // 800 bytes: first try 760
  EXPECT_EQ(available, 95);
  qor::fault::fail_from(Op::MemAlloc, 1);
  m.ComputeAvailableMemory(100, available);
  EXPECT_EQ(available, 0);  // 19 tries, never the full size
  qor::fault::fail_at(Op::MemAlloc, 1);
  m.ComputeAvailableMemory(100, available);  // 760 fails, 720 passes
  EXPECT_EQ(available, 90);
  m.ComputeAvailableMemory(1, available);  // 8 bytes: step 1, 7 bytes pass
  EXPECT_EQ(available, 0);
}

// ------------------------------------------------------------------ the tables

// step 200: the 200th group needs the first extension.
void fill(QORKytMemoryManager &m, int groups) {
  char *p = nullptr;
  for (int g = 1; g <= groups; ++g) ASSERT_EQ(one(m, p, 8), g);
}

TEST(MemoryFailures, TableFailureOnTheSingleBlockAttempt) {
  Clean clean;
  QORKytMemoryManager m(200);
  fill(m, 199);
  qor::fault::fail_at(Op::MemRealloc, 1);
  char *p = nullptr;
  int indice = 0;
  CaptureStdout cap;
  EXPECT_EQ(m.Allocation(1, indice, &p, 8, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0,
                         nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0),
            kFailed);
  // 400 entries asked (3 KB), 380 found (2 KB); group 199 is given up.
  expect_one_block(cap.text(), kError, sizes(3, 2));
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(m.GetIndiceAllocation(), 199);
  auto &v = view(m);
  EXPECT_EQ(v.TableSize, 400);
  EXPECT_EQ(v.MemoryCurrent, 198 * 2);
  // The table that did not grow is never written past its end (the sanitizers watch).
  for (int g = 199; g <= 260; ++g) EXPECT_EQ(one(m, p, 8), g);
  EXPECT_EQ(v.MemoryCurrent, 260 * 2);
}

TEST(MemoryFailures, TableFailureOnTheSeparateAttempt) {
  Clean clean;
  QORKytMemoryManager m(200);
  fill(m, 190);
  long long lengths[11] = {8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8};
  char *arrays[11] = {};
  char **a = arrays;
  int indice = 0;
  CaptureStdout cap;
  hook::fail_at(22 * 8 + 8, 1);            // the single block
  qor::fault::fail_at(Op::MemRealloc, 2);  // the element sizes do not grow
  EXPECT_EQ(m.Allocation(11, indice, a, lengths), kFailed);
  expect_one_block(cap.text(), kError, sizes(3, 2));
  EXPECT_EQ(m.GetIndiceAllocation(), 190);
  for (char *p : arrays) EXPECT_EQ(p, nullptr);
  // Half-grown tables still serve further groups safely.
  for (int g = 190; g <= 240; ++g) {
    lengths[0] = lengths[1] = 8;
    EXPECT_EQ(m.Allocation(2, indice, a, lengths), 0);
    EXPECT_EQ(indice, g);
  }
}

TEST(MemoryFailures, ManagerWithoutTablesRefusesEveryGroup) {
  Clean clean;
  qor::fault::fail_at(Op::MemAlloc, 2);
  QORKytMemoryManager m(50);
  qor::fault::reset();
  char *p = nullptr;
  CaptureStdout cap;
  EXPECT_EQ(one(m, p, 8), -7);
  expect_one_block(cap.text(), kError, "Requested: 0 KB.");
  EXPECT_EQ(m.Desallocation(1), 0);
  EXPECT_EQ(m.Desallocation(-1), 0);
}

// ------------------------------------------------------------------ the ceiling

// In a child, with KYT_MAX_ALLOC=1 the ceiling is 128018 words.
int64_t in_child_with_limit(const char *limit, const std::function<int64_t()> &fn) {
  return qkm_test::in_child({{"KYT_MAX_ALLOC", limit}}, fn);
}

TEST(MemoryFailures, CeilingLowersTheSingleBlockInWarningModeOnly) {
  // Returns the statuses of 128018 and 128017 words, and whether anything was printed.
  auto probe = [](int mode) {
    return [mode]() -> int64_t {
      QORKytMemoryManager m(10);
      char *held = nullptr;
      one(m, held, 8);
      m.SetModeWarning(mode);
      char *p = nullptr;
      int indice = 0;
      CaptureStdout cap;
      const int refused = m.Allocation(1, indice, &p, 128017 * 8, nullptr, 0, nullptr, 0, nullptr,
                                       0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr,
                                       0, nullptr, 0, nullptr, 0);
      const bool untouched = p == nullptr && m.GetIndiceAllocation() == 2;
      const int passed = m.Allocation(1, indice, &p, 128016 * 8, nullptr, 0, nullptr, 0, nullptr,
                                      0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr,
                                      0, nullptr, 0, nullptr, 0);
      const bool silent = cap.text().empty();
      return refused * 1000 + passed * 100 + untouched * 10 + silent;
    };
  };
  EXPECT_EQ(in_child_with_limit("1", probe(1026)), 8 * 1000 + 0 + 10 + 1);
  EXPECT_EQ(in_child_with_limit("1", probe(0)), 0 + 0 + 0 + 1);
  EXPECT_EQ(in_child_with_limit(nullptr, probe(1026)), 0 + 0 + 0 + 1);
  EXPECT_EQ(in_child_with_limit("2097", probe(1026)), 0 + 0 + 0 + 1);  // wraps: no ceiling
}

// The ceiling of one separate array: behind the single block it cannot be reached, since no
// array exceeds the total, so the attempt of the single block is switched off here.
TEST(MemoryFailures, CeilingOfOneSeparateArray) {
  auto probe = [](int mode, bool sizes_shown) {
    return [mode, sizes_shown]() -> int64_t {
      QORKytMemoryManager m(10);
      view(m).ModeSeparate = 1;
      m.SetModeWarning(mode);
      long long lengths[2] = {80, (200000 - 1) * 8};  // 11 and 200000 words
      char *arrays[2] = {};
      char **a = arrays;
      int indice = 0;
      CaptureStdout cap;
      const int st = m.Allocation(2, indice, a, lengths);
      const std::string out = cap.text();
      const bool printed =
          sizes_shown ? out.find(kWarning) != std::string::npos &&
                            out.find(sizes(1562, 1000)) != std::string::npos
                      : out.find("Identifier: 77") != std::string::npos;
      return st * 100 + (arrays[0] == nullptr) * 10 + printed;
    };
  };
  EXPECT_EQ(in_child_with_limit("1", probe(1026, true)), 811);
  EXPECT_EQ(in_child_with_limit("1", probe(77, false)), 811);
}

// ------------------------------------------------------------------ the typed form

TEST(MemoryFailures, TypedFormStopRules) {
  QORKytMemoryManager m(20);
  int *p1 = nullptr;
  int *p2 = nullptr;
  double *p3 = nullptr;
  int indice = 0;
  auto typed = [&](QORKytTypeEncapMemory a, int na, QORKytTypeEncapMemory b, int nb,
                   QORKytTypeEncapMemory c, int nc) {
    return m.Allocation(indice, a, na, b, nb, c, nc, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0,
                        kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0);
  };
  const std::string kNotRecognized = "Memory allocation: Array type not recognized";
  {
    // A zero length with a non-zero length behind it.
    CaptureStdout cap;
    EXPECT_EQ(typed(QORKytTypeEncapMemory(p1), 5, QORKytTypeEncapMemory(p2), 0,
                    QORKytTypeEncapMemory(p3), 7),
              kFailed);
    expect_one_block(cap.text(), kInternal, kNotRecognized);
  }
  {
    // The later pairs are held against the encapsulation where the list stopped, not their
    // own: an empty third pair with a length still fails.
    CaptureStdout cap;
    EXPECT_EQ(typed(QORKytTypeEncapMemory(p1), 5, QORKytTypeEncapMemory(p2), 0, kEmpty, 7),
              kFailed);
    expect_one_block(cap.text(), kInternal, kNotRecognized);
  }
  {
    // A pointer of unknown type with a length behind it.
    QORKytTypeEncapMemory unknown(p2);
    unknown._Type = QORKytValueReal8;
    CaptureStdout cap;
    EXPECT_EQ(typed(QORKytTypeEncapMemory(p1), 5, unknown, 3, kEmpty, 1), kFailed);
    expect_one_block(cap.text(), kInternal, kNotRecognized);
  }
  {
    // Only empties: the core form gets no array.
    CaptureStdout cap;
    EXPECT_EQ(typed(kEmpty, 0, kEmpty, 0, kEmpty, 0), kFailed);
    expect_one_block(cap.text(), kInternal, "Null Allocation Length");
  }
  EXPECT_EQ(p1, nullptr);
  EXPECT_EQ(m.GetIndiceAllocation(), 1);
  EXPECT_EQ(m.GetMemoryUsed(), 0.0f);
}

TEST(MemoryFailures, TypedFormFailureWritesNoPointer) {
  Clean clean;
  QORKytMemoryManager m(20);
  int *p1 = reinterpret_cast<int *>(0x1000);
  double *p2 = nullptr;
  int indice = 9;
  CaptureStdout cap;
  hook::fail_at(1000, 1);
  qor::fault::fail_from(Op::MemAlloc, 1);
  EXPECT_EQ(m.Allocation(indice, QORKytTypeEncapMemory(p1), 100, QORKytTypeEncapMemory(p2), 110,
                         kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty, 0, kEmpty,
                         0, kEmpty, 0, kEmpty, 0),
            kFailed);
  expect_one_block(cap.text(), kError, sizes(0, 0));
  EXPECT_EQ(p1, reinterpret_cast<int *>(0x1000));
  EXPECT_EQ(p2, nullptr);
  EXPECT_EQ(indice, 9);
}

TEST(MemoryFailures, SelfCheckReportsExhaustion) {
  Clean clean;
  CaptureStdout cap;
  hook::fail_at(209 * 8 + 8, 1);            // the single block of the six arrays
  qor::fault::fail_from(Op::MemAlloc, 4);  // after the three tables, every array
  EXPECT_EQ(QORKytTypeEncapMemory::Test(), kFailed);
  expect_one_block(cap.text(), kError, sizes(0, 0));
}

}  // namespace
