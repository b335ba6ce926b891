// Environment queries, fixed answers and the small byte-level utilities of the calling frame.
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "QORSystem.h"
#include "frame/wrap.h"
#include "kernels.h"

namespace {

using qkm::wrap_mul;

// strtol in base 10 without an end pointer, low 32 bits kept.
inline int32_t env_low32(const char *text) {
  return static_cast<int32_t>(static_cast<uint32_t>(std::strtol(text, nullptr, 10)));
}

// "KYT_MAX_ALLOC" counts units of 1024144 bytes (deliberately not 2^20). The product is
// 32-bit and wraps; only a positive product lowers the ceiling.
void applyMaxAllocLimit(int32_t *limit) {
  const char *text = QORGetEnv("KYT_MAX_ALLOC");
  if (text == nullptr) return;
  const int32_t bytes = wrap_mul(env_low32(text), 1024144);
  if (bytes <= 0) return;
  const int32_t words = bytes >> 3;
  if (*limit > words) *limit = words;
}

constexpr int64_t kMemLow = 536000000;
constexpr int64_t kMemHigh = 2144000000;

// Once-only caches of the process. Atomics only make concurrent first calls well defined;
// the answers are those of a plain cache.
std::atomic<bool> g_mem_first{true};
std::atomic<int64_t> g_mem_count{0};
std::atomic<int32_t> g_aldb_cache{-1};

}  // namespace

extern "C" {

void ehalmxc(qkm_int *limit) {
  *limit = 2147400000;
  applyMaxAllocLimit(limit);
}

void ehumem(qkm_int *mem) {
  if (g_mem_first.load(std::memory_order_acquire)) {
    const long page = sysconf(_SC_PAGESIZE);
    const long pages = sysconf(_SC_PHYS_PAGES);
    int64_t count = static_cast<int64_t>(pages / 8) * static_cast<int64_t>(page);
    if (const char *text = QORGetEnv("KYT_REAL_MEMORY")) {
      // One unit is 2^20 bytes = 2^17 words; the shift is 32-bit and may wrap negative.
      const uint32_t shifted = static_cast<uint32_t>(env_low32(text)) << 17;
      count = static_cast<int64_t>(static_cast<int32_t>(shifted));
    }
    g_mem_count.store(count, std::memory_order_relaxed);
    g_mem_first.store(false, std::memory_order_release);
  }
  int64_t count = g_mem_count.load(std::memory_order_relaxed);
  if (count > kMemHigh) count = kMemHigh;
  if (count <= kMemLow) count = kMemLow;
  g_mem_count.store(count, std::memory_order_relaxed);
  *mem = static_cast<qkm_int>(static_cast<uint32_t>(static_cast<uint64_t>(count)));
}

void ehaldb(qkm_int *value) {
  const int32_t cached = g_aldb_cache.load(std::memory_order_relaxed);
  if (cached != -1) {
    *value = cached;
    return;
  }
  qkm_int a = 0, b = 0, c = 0, ncpu = 0;
  getblas(&a, &b, &c);
  *value = c;
  g_aldb_cache.store(c, std::memory_order_relaxed);
  ehucpu(&ncpu);
}

void ehucpu(qkm_int *ncpu) { *ncpu = 1; }

void getblas(qkm_int *a, qkm_int *b, qkm_int *c) {
  *a = 0;
  *b = 0;
  *c = 0;
}

void getversionmkl(char *text, qkm_len) { text[0] = '\0'; }

void GetMaxSlaveMemory(qkm_int *mem) { *mem = 1073000000; }

void clrfpe(void) {}

void eyflsh(void) { std::fflush(stdout); }

void eaxmac(void *dst, const qkm_int *n, const char *ch, qkm_len) {
  const int value = static_cast<signed char>(*ch);
  std::memset(dst, value, static_cast<size_t>(static_cast<int64_t>(*n)));
}

void eaxraz(const qkm_int *code, void *a, const qkm_int *n) {
  static const qkm_int one = 1;
  switch (*code) {
    case 3:
    case 4:
      e_izero(n, static_cast<qkm_int *>(a), &one);
      return;
    case 5:
      e_dzero(n, static_cast<double *>(a), &one);
      return;
    case 2: {
      const qkm_int count = wrap_mul(2, *n);
      eaxmac(a, &count, "", 1);
      return;
    }
    default:
      if (*code < 0) {
        const qkm_int count = wrap_mul(static_cast<int32_t>(0u - static_cast<uint32_t>(*code)), *n);
        eaxmac(a, &count, " ", 1);
      }
      return;
  }
}

void eaxcpy(const qkm_int *code, const qkm_int *n, const void *src, void *dst) {
  size_t bytes;
  if (*code == 3) {
    bytes = static_cast<size_t>(static_cast<int64_t>(*n) * 4);
  } else if (*code == 5) {
    bytes = static_cast<size_t>(static_cast<int64_t>(*n) * 8);
  } else {
    int32_t count = wrap_mul(*code, *n);
    if (count < 0) count = wrap_mul(static_cast<int32_t>(0u - static_cast<uint32_t>(*code)), *n);
    bytes = static_cast<size_t>(static_cast<int64_t>(count));
  }
  std::memmove(dst, src, bytes);
}

void eaxrnd(qkm_int *seed, double *r) {
  uint32_t s = static_cast<uint32_t>(*seed) * 65539u;
  if (s == 0) s = 0x80000000u;
  *seed = static_cast<qkm_int>(s);
  *r = static_cast<double>(static_cast<int32_t>(s)) * 0x1p-31;
}

}  // extern "C"
