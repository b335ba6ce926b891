#include "support/malloc_hook.h"

#include <atomic>
#include <cstddef>

// The allocator that really serves the calls: under AddressSanitizer its interceptor, so that
// free and the leak checker keep seeing every block; otherwise the C library's own.
#if defined(__SANITIZE_ADDRESS__)
extern "C" void *__interceptor_malloc(std::size_t size);
#define QKM_REAL_MALLOC __interceptor_malloc
#else
extern "C" void *__libc_malloc(std::size_t size);
#define QKM_REAL_MALLOC __libc_malloc
#endif

namespace qkm_test::malloc_hook {
namespace {
std::atomic<bool> g_armed{false};
std::atomic<bool> g_sticky{false};
std::atomic<std::size_t> g_min{0};
std::atomic<int> g_countdown{0};
std::atomic<int> g_failures{0};
std::atomic<int> g_counted{0};
std::atomic<std::size_t> g_last{0};

void arm(std::size_t min_bytes, int nth, bool sticky) {
  g_armed.store(false);
  g_min.store(min_bytes);
  g_countdown.store(nth > 0 ? nth : 0);
  g_sticky.store(sticky);
  g_failures.store(0);
  g_counted.store(0);
  g_last.store(0);
  g_armed.store(nth > 0);
}

bool should_fail(std::size_t size) {
  if (!g_armed.load(std::memory_order_relaxed) || size < g_min.load()) return false;
  g_counted.fetch_add(1);
  g_last.store(size);
  const int left = g_countdown.load();
  if (left <= 0) return false;
  if (left == 1) {
    if (!g_sticky.load()) g_countdown.store(0);
    g_failures.fetch_add(1);
    return true;
  }
  g_countdown.store(left - 1);
  return false;
}
}  // namespace

void fail_at(std::size_t min_bytes, int nth) { arm(min_bytes, nth, false); }
void fail_from(std::size_t min_bytes, int nth) { arm(min_bytes, nth, true); }
void reset() { g_armed.store(false); }
int failures() { return g_failures.load(); }
int counted() { return g_counted.load(); }
std::size_t last_size() { return g_last.load(); }

}  // namespace qkm_test::malloc_hook

extern "C" void *malloc(std::size_t size) {
  if (qkm_test::malloc_hook::should_fail(size)) return nullptr;
  return QKM_REAL_MALLOC(size);
}
