// Environment answers, fixed answers, byte utilities, the generator and the stop path.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <unistd.h>

#include "QORFortranRT.h"
#include "QORSystem.h"
#include "kernels.h"
#include "support/child.h"

using qkm_test::in_child;

namespace {

int64_t max_alloc_with(const char *value) {
  return in_child({{"KYT_MAX_ALLOC", value}}, [] {
    qkm_int limit = -7;
    ehalmxc(&limit);
    return static_cast<int64_t>(limit);
  });
}

int64_t real_memory_with(const char *value) {
  return in_child({{"KYT_REAL_MEMORY", value}}, [] {
    qkm_int mem = -7;
    ehumem(&mem);
    return static_cast<int64_t>(mem);
  });
}

}  // namespace

TEST(Ehalmxc, CeilingFromTheVariableWithWrappingProduct) {
  EXPECT_EQ(max_alloc_with(nullptr), 2147400000);
  EXPECT_EQ(max_alloc_with("1"), 128018);
  EXPECT_EQ(max_alloc_with("2096"), 268325728);
  EXPECT_EQ(max_alloc_with("2097"), 2147400000);  // product wraps negative
  EXPECT_EQ(max_alloc_with("4194"), 36580);       // wraps on to a small positive product
  EXPECT_EQ(max_alloc_with("0"), 2147400000);
  EXPECT_EQ(max_alloc_with("-5"), 2147400000);
  EXPECT_EQ(max_alloc_with("abc"), 2147400000);
}

TEST(Ehalmxc, VariableIsReadAtEveryCall) {
  const int64_t r = in_child({{"KYT_MAX_ALLOC", nullptr}}, [] {
    qkm_int a = 0, b = 0;
    ehalmxc(&a);
    setenv("KYT_MAX_ALLOC", "1", 1);
    ehalmxc(&b);
    return static_cast<int64_t>(a) * 1000000 + b;
  });
  EXPECT_EQ(r, int64_t{2147400000} * 1000000 + 128018);
}

TEST(Ehumem, ClampsTheVariableAndTheShift) {
  EXPECT_EQ(real_memory_with("4089"), 536000000);
  EXPECT_EQ(real_memory_with("4090"), 536084480);
  EXPECT_EQ(real_memory_with("16383"), 2144000000);
  EXPECT_EQ(real_memory_with("16384"), 536000000);  // shift wraps negative
  EXPECT_EQ(real_memory_with("0"), 536000000);
  EXPECT_EQ(real_memory_with("junk"), 536000000);
}

TEST(Ehumem, PhysicalMemoryWithinTheBoundsWhenUnset) {
  const long pages = sysconf(_SC_PHYS_PAGES), page = sysconf(_SC_PAGESIZE);
  int64_t expect = static_cast<int64_t>(pages / 8) * page;
  if (expect > 2144000000) expect = 2144000000;
  if (expect <= 536000000) expect = 536000000;
  EXPECT_EQ(real_memory_with(nullptr), expect);
}

TEST(Ehumem, FirstAnswerIsCachedForTheProcess) {
  const int64_t r = in_child({{"KYT_REAL_MEMORY", "5000"}}, [] {
    qkm_int a = 0, b = 0;
    ehumem(&a);
    setenv("KYT_REAL_MEMORY", "9000", 1);
    ehumem(&b);
    return a == b ? static_cast<int64_t>(a) : -1;
  });
  EXPECT_EQ(r, int64_t{5000} << 17);
}

TEST(FixedAnswers, ConstantsAndOnlyTheirOwnBytes) {
  qkm_int a = 9, b = 9, c = 9, v = 9, m = 9, n = 9;
  getblas(&a, &b, &c);
  EXPECT_EQ(a, 0);
  EXPECT_EQ(b, 0);
  EXPECT_EQ(c, 0);
  ehaldb(&v);
  EXPECT_EQ(v, 0);
  v = 9;
  ehaldb(&v);
  EXPECT_EQ(v, 0);
  GetMaxSlaveMemory(&m);
  EXPECT_EQ(m, 1073000000);
  ehucpu(&n);
  EXPECT_EQ(n, 1);
  char text[4] = {'x', 'y', 'z', 'w'};
  getversionmkl(text, 4);
  EXPECT_EQ(text[0], '\0');
  EXPECT_EQ(std::string(text + 1, 3), "yzw");
  clrfpe();
}

TEST(Eaxraz, FillsByTypeCode) {
  unsigned char buf[40];
  auto run = [&](qkm_int code, qkm_int n) {
    std::memset(buf, 0xAB, sizeof buf);
    eaxraz(&code, buf, &n);
  };
  auto count = [&](unsigned char v) {
    int k = 0;
    while (k < 40 && buf[k] == v) ++k;
    return k;
  };
  for (qkm_int code : {0, 1, 6, 7}) {
    run(code, 4);
    EXPECT_EQ(count(0xAB), 40) << code;
  }
  run(-3, 4);
  EXPECT_EQ(count(' '), 12);
  EXPECT_EQ(buf[12], 0xAB);
  run(2, 4);
  EXPECT_EQ(count(0), 8);
  EXPECT_EQ(buf[8], 0xAB);
  run(3, 5);
  EXPECT_EQ(count(0), 20);
  run(4, 2);
  EXPECT_EQ(count(0), 8);
  run(5, 3);
  EXPECT_EQ(count(0), 24);
  EXPECT_EQ(buf[24], 0xAB);
}

TEST(Eaxcpy, ByteCountIsTheMagnitudeOfCodeTimesN) {
  auto moved = [](qkm_int code, qkm_int n) {
    unsigned char src[64], dst[64];
    for (int i = 0; i < 64; ++i) src[i] = static_cast<unsigned char>(i + 1);
    std::memset(dst, 0, sizeof dst);
    eaxcpy(&code, &n, src, dst);
    int k = 0;
    while (k < 64 && dst[k] == k + 1) ++k;
    return k;
  };
  EXPECT_EQ(moved(8, 2), 16);
  EXPECT_EQ(moved(-8, 2), 16);
  EXPECT_EQ(moved(8, -2), 16);
  EXPECT_EQ(moved(3, 3), 12);
  EXPECT_EQ(moved(5, 3), 24);
  EXPECT_EQ(moved(2, 5), 10);
  EXPECT_EQ(moved(7, 0), 0);
}

TEST(Eaxcpy, OverlapCopiesAsThroughATemporary) {
  double v[6] = {1, 2, 3, 4, 5, 6};
  const qkm_int code = 5, n = 5;
  eaxcpy(&code, &n, v, v + 1);
  const double expect[6] = {1, 1, 2, 3, 4, 5};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(v[i], expect[i]);
  eaxcpy(&code, &n, v + 1, v);
  const double back[6] = {1, 2, 3, 4, 5, 5};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(v[i], back[i]);
}

TEST(Eaxmac, TakesTheByteAsASignedCharacter) {
  unsigned char buf[8];
  std::memset(buf, 0, sizeof buf);
  const qkm_int n = 5;
  const char ch = static_cast<char>(0xE9);
  eaxmac(buf, &n, &ch, 1);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(buf[i], 0xE9);
  EXPECT_EQ(buf[5], 0);
}

TEST(Eaxrnd, RanduSequenceAndTheZeroTrap) {
  qkm_int seed = 1;
  double r = 0;
  eaxrnd(&seed, &r);
  EXPECT_EQ(seed, 65539);
  EXPECT_EQ(r, 65539.0 * 0x1p-31);
  eaxrnd(&seed, &r);
  EXPECT_EQ(seed, 393225);
  EXPECT_EQ(r, 393225.0 * 0x1p-31);

  seed = 0;
  for (int i = 0; i < 3; ++i) {
    eaxrnd(&seed, &r);
    EXPECT_EQ(static_cast<uint32_t>(seed), 0x80000000u);
    EXPECT_EQ(r, -1.0);
  }
  // Negative numbers come out of the signed reading.
  seed = 40000;
  bool negative = false;
  for (int i = 0; i < 50; ++i) {
    eaxrnd(&seed, &r);
    EXPECT_GE(r, -1.0);
    EXPECT_LT(r, 1.0);
    negative |= r < 0;
  }
  EXPECT_TRUE(negative);
}

TEST(QORGetEnv, SetAndUnset) {
  setenv("QKM_TEST_VARIABLE", "abc", 1);
  ASSERT_NE(QORGetEnv("QKM_TEST_VARIABLE"), nullptr);
  EXPECT_STREQ(QORGetEnv("QKM_TEST_VARIABLE"), "abc");
  unsetenv("QKM_TEST_VARIABLE");
  EXPECT_EQ(QORGetEnv("QKM_TEST_VARIABLE"), nullptr);
}

TEST(StopPathDeathTest, WritesTheTextAndExitsWithOne) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(for_stop_core("DGEMM FATAL ERRORxyz", 17, 0), testing::ExitedWithCode(1),
              "^DGEMM FATAL ERROR\n$");
}

TEST(Eyflsh, FlushesStandardOutput) {
  // In a child whose standard output is a pipe, the buffered text arrives only if eyflsh
  // flushes it (the child leaves through _exit, which flushes nothing).
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(fds[1], 1);
    close(fds[0]);
    std::printf("flushed");
    eyflsh();
    _exit(0);
  }
  close(fds[1]);
  char buf[16] = {};
  const ssize_t got = read(fds[0], buf, sizeof buf - 1);
  close(fds[0]);
  waitpid(pid, nullptr, 0);
  EXPECT_EQ(got, 7);
  EXPECT_STREQ(buf, "flushed");
}
