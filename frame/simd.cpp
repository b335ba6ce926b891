#include "frame/simd.h"

#include <atomic>

namespace qkm::simd {
namespace {

int detect() noexcept {
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw"))
    return Avx512;
  if (__builtin_cpu_supports("avx2")) return Avx2;
  return Base;
}

std::atomic<int> g_override{-1};

}  // namespace

int supported() noexcept {
  static const int level = detect();
  return level;
}

int active() noexcept {
  const int o = g_override.load(std::memory_order_relaxed);
  return o >= 0 ? o : supported();
}

void set_override(int level) noexcept {
  if (level < 0) {
    g_override.store(-1, std::memory_order_relaxed);
    return;
  }
  g_override.store(level < supported() ? level : supported(), std::memory_order_relaxed);
}

}  // namespace qkm::simd
