// The kernels are re-entrant: four threads on different data give, bit for bit, what one
// thread gives alone. The run also writes a fingerprint of every result on every instruction
// set, which the build with the second compiler must reproduce exactly.
#include <gtest/gtest.h>

#include <cstdio>
#include <thread>

#include "support/bits.h"
#include "support/workloads.h"

namespace {

namespace w = qkm_test::workloads;

TEST(Threads, FourThreadsMatchTheSingleThreadRunBitForBit) {
  constexpr int kThreads = 4, kRounds = 3;
  std::vector<w::Vec> alone(kThreads), seen(kThreads * kRounds);
  for (int t = 0; t < kThreads; ++t) alone[t] = w::all(100 + t);
  std::vector<std::thread> pool;
  for (int t = 0; t < kThreads; ++t)
    pool.emplace_back([t, &seen] {
      for (int r = 0; r < kRounds; ++r) seen[t * kRounds + r] = w::all(100 + t);
    });
  for (auto &th : pool) th.join();
  for (int t = 0; t < kThreads; ++t)
    for (int r = 0; r < kRounds; ++r) {
      const w::Vec &got = seen[t * kRounds + r];
      ASSERT_EQ(got.size(), alone[t].size());
      for (std::size_t i = 0; i < got.size(); ++i)
        ASSERT_EQ(qkm_test::bits(got[i]), qkm_test::bits(alone[t][i])) << t << " " << r << " " << i;
    }
}

TEST(Threads, FingerprintOfEveryInstructionSet) {
  FILE *f = std::fopen(QKM_BINARY_DIR "/fingerprint.txt", "w");
  ASSERT_NE(f, nullptr);
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel lv(level);
    std::fprintf(f, "level %d %016llx\n", level,
                 static_cast<unsigned long long>(w::fingerprint(w::all(7))));
  }
  std::fclose(f);
}

}  // namespace
