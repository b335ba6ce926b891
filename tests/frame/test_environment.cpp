// Environment answers (in child processes: their caches live per process), fixed answers,
// byte utilities, the generator and the stop path.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "QORFortranRT.h"
#include "kernels.h"
#include "support/child.h"

using qkm_test::in_child;

// KYT_MAX_ALLOC counts units of 1024144 bytes in a wrapping 32-bit product (2097 wraps
// negative, 4194 on to a small positive product); KYT_REAL_MEMORY counts 2^17 words in a
// wrapping shift (16384 wraps negative), clamped to [536000000, 2144000000], and without it
// an eighth of the physical memory is taken.
TEST(Environment, AnswersFromTheVariablesWithWrappingArithmetic) {
  const char *M = "KYT_MAX_ALLOC", *R = "KYT_REAL_MEMORY";
  const int64_t phys = std::clamp<int64_t>(sysconf(_SC_PHYS_PAGES) / 8 * sysconf(_SC_PAGESIZE),
                                           536000000, 2144000000);
  const struct {
    const char *var, *text;
    int64_t want;
  } cases[] = {{M, nullptr, 2147400000}, {M, "1", 128018},         {M, "2096", 268325728},
               {M, "2097", 2147400000},  {M, "4194", 36580},       {M, "0", 2147400000},
               {M, "-5", 2147400000},    {M, "abc", 2147400000},   {R, "4089", 536000000},
               {R, "4090", 536084480},   {R, "16383", 2144000000}, {R, "16384", 536000000},
               {R, "0", 536000000},      {R, "junk", 536000000},   {R, nullptr, phys}};
  for (const auto &c : cases) {
    const int64_t got = in_child({{c.var, c.text}}, [&c] {
      qkm_int v = -7;
      (c.var[4] == 'M' ? ehalmxc : ehumem)(&v);
      return static_cast<int64_t>(v);
    });
    EXPECT_EQ(got, c.want) << c.var << "=" << (c.text ? c.text : "(unset)");
  }
  // ehalmxc reads its variable at every call; ehumem keeps its first answer for the process.
  EXPECT_EQ(in_child({{"KYT_MAX_ALLOC", nullptr}, {"KYT_REAL_MEMORY", "5000"}},
                     [] {
                       qkm_int a, b, c, d;
                       ehalmxc(&a);
                       ehumem(&c);
                       setenv("KYT_MAX_ALLOC", "1", 1);
                       setenv("KYT_REAL_MEMORY", "9000", 1);
                       ehalmxc(&b);
                       ehumem(&d);
                       return int64_t{a == 2147400000 && b == 128018 && c == 5000 << 17 && d == c};
                     }),
            1);
}

TEST(ByteUtilities, ClearCopyAndFillByTypeCode) {
  // {code, n, bytes eaxraz clears, its fill byte, bytes eaxcpy moves}: eaxraz ignores other
  // non-negative codes; eaxcpy moves |code * n| bytes, but 4 per element for 3 and 8 for 5.
  const int cases[][5] = {{0, 4, 0, 0, 0},   {1, 4, 0, 0, 4},      {6, 4, 0, 0, 24},
                          {8, -2, 0, 0, 16}, {-3, 4, 12, ' ', 12}, {-8, 2, 16, ' ', 16},
                          {2, 5, 10, 0, 10}, {3, 5, 20, 0, 20},    {4, 2, 8, 0, 8},
                          {5, 3, 24, 0, 24}};
  for (auto &c : cases) {
    unsigned char buf[64], src[64];
    for (int i = 0; i < 64; ++i) src[i] = static_cast<unsigned char>(i + 100), buf[i] = 0xAB;
    const qkm_int code = c[0], n = c[1];
    eaxraz(&code, buf, &n);
    int k = 0;
    while (buf[k] == c[3]) ++k;
    EXPECT_TRUE(k == c[2] && buf[k] == 0xAB) << "eaxraz " << code << " " << n;
    eaxcpy(&code, &n, src, buf);
    for (k = 0; k < 64 && buf[k] == src[k];) ++k;
    EXPECT_EQ(k, c[4]) << "eaxcpy " << code << " " << n;
  }
  double v[6] = {1, 2, 3, 4, 5, 6};  // overlap copies as through a temporary
  const qkm_int five = 5;
  eaxcpy(&five, &five, v, v + 1);
  eaxcpy(&five, &five, v + 1, v);
  EXPECT_EQ(std::vector<double>(v, v + 6), (std::vector<double>{1, 2, 3, 4, 5, 5}));
  unsigned char buf[8] = {};  // eaxmac takes the byte as a signed character
  const char ch = static_cast<char>(0xE9);
  eaxmac(buf, &five, &ch, 1);
  EXPECT_EQ(std::string(buf, buf + 6), std::string("\xE9\xE9\xE9\xE9\xE9\0", 6));
}

TEST(Eaxrnd, RanduSequenceSignedReadingAndTheZeroTrap) {
  qkm_int seed = 1;
  double r = 0;
  for (uint32_t s : {65539u, 393225u, 0x80000000u, 0x80000000u}) {  // 0 becomes 2^31, r = -1
    eaxrnd(&seed, &r);
    EXPECT_EQ(static_cast<uint32_t>(seed), s);
    EXPECT_EQ(r, static_cast<int32_t>(s) * 0x1p-31);
    if (s == 393225) seed = 0;
  }
  seed = 40000;
  eaxrnd(&seed, &r);
  EXPECT_EQ(r, (2621560000.0 - 0x1p32) * 0x1p-31);
}

TEST(StopPathDeathTest, WritesTheTextAndExitsWithOne) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(for_stop_core("DGEMM FATAL ERRORxyz", 17, 0), testing::ExitedWithCode(1),
              "^DGEMM FATAL ERROR\n$");
}
