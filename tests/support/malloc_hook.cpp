#include "support/malloc_hook.h"

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

// malloc runs before the sanitizer has mapped its shadow memory: the state of the hook is
// plain data read with atomic built-ins, in functions left uninstrumented.
#define QKM_HOOK_FN __attribute__((no_sanitize_address, no_sanitize("undefined")))

namespace qkm_test::malloc_hook {
namespace {
int g_armed = 0;
int g_sticky = 0;
std::size_t g_min = 0;
int g_countdown = 0;
int g_failures = 0;
int g_counted = 0;
std::size_t g_last = 0;

template <class T>
QKM_HOOK_FN T get(const T &v) {
  return __atomic_load_n(&v, __ATOMIC_SEQ_CST);
}
template <class T>
QKM_HOOK_FN void put(T &v, T x) {
  __atomic_store_n(&v, x, __ATOMIC_SEQ_CST);
}

void arm(std::size_t min_bytes, int nth, bool sticky) {
  put(g_armed, 0);
  put(g_min, min_bytes);
  put(g_countdown, nth > 0 ? nth : 0);
  put(g_sticky, sticky ? 1 : 0);
  put(g_failures, 0);
  put(g_counted, 0);
  put(g_last, std::size_t{0});
  put(g_armed, nth > 0 ? 1 : 0);
}

QKM_HOOK_FN bool should_fail(std::size_t size) {
  if (get(g_armed) == 0 || size < get(g_min)) return false;
  __atomic_add_fetch(&g_counted, 1, __ATOMIC_SEQ_CST);
  put(g_last, size);
  const int left = get(g_countdown);
  if (left <= 0) return false;
  if (left == 1) {
    if (get(g_sticky) == 0) put(g_countdown, 0);
    __atomic_add_fetch(&g_failures, 1, __ATOMIC_SEQ_CST);
    return true;
  }
  put(g_countdown, left - 1);
  return false;
}
}  // namespace

void fail_at(std::size_t min_bytes, int nth) { arm(min_bytes, nth, false); }
void fail_from(std::size_t min_bytes, int nth) { arm(min_bytes, nth, true); }
void reset() { put(g_armed, 0); }
int failures() { return get(g_failures); }
int counted() { return get(g_counted); }
std::size_t last_size() { return get(g_last); }

}  // namespace qkm_test::malloc_hook

extern "C" QKM_HOOK_FN void *malloc(std::size_t size) {
  if (qkm_test::malloc_hook::should_fail(size)) return nullptr;
  return QKM_REAL_MALLOC(size);
}
