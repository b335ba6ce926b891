// Raw memory of the platform: blocks released by free, and the injected failures that the
// manager's tests rely on.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "QORMemory.h"
#include "platform/fault_injection.h"

namespace {

using qor::fault::Op;

TEST(PlatformMemory, BlocksGrowKeepTheirContentAndGoToFree) {
  char *p = static_cast<char *>(QORUnsecuredMemAlloc(16));
  ASSERT_NE(p, nullptr);
  std::memcpy(p, "fifteen chars..", 16);
  p = static_cast<char *>(QORUnsecuredMemRealloc(p, 1 << 20));
  ASSERT_NE(p, nullptr);
  EXPECT_STREQ(p, "fifteen chars..");
  p[(1 << 20) - 1] = 'x';
  std::free(p);

  void *fresh = QORUnsecuredMemRealloc(nullptr, 24);  // a null block is a new one
  ASSERT_NE(fresh, nullptr);
  std::free(fresh);
}

TEST(PlatformMemory, InjectedFailuresHitTheChosenCallOnly) {
  qor::fault::reset();
  qor::fault::fail_at(Op::MemAlloc, 2);
  void *a = QORUnsecuredMemAlloc(8);
  void *b = QORUnsecuredMemAlloc(8);
  void *c = QORUnsecuredMemAlloc(8);
  EXPECT_NE(a, nullptr);
  EXPECT_EQ(b, nullptr);
  EXPECT_NE(c, nullptr);

  qor::fault::fail_at(Op::MemRealloc, 1);
  void *kept = QORUnsecuredMemRealloc(a, 4096);
  EXPECT_EQ(kept, nullptr);  // the old block stays valid and still ours
  a = QORUnsecuredMemRealloc(a, 4096);
  EXPECT_NE(a, nullptr);

  qor::fault::fail_from(Op::MemAlloc, 1);
  EXPECT_EQ(QORUnsecuredMemAlloc(8), nullptr);
  EXPECT_EQ(QORUnsecuredMemAlloc(8), nullptr);
  qor::fault::reset();
  void *d = QORUnsecuredMemAlloc(8);
  EXPECT_NE(d, nullptr);
  std::free(a);
  std::free(c);
  std::free(d);
}

}  // namespace
