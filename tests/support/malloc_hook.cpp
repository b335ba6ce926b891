#include "support/malloc_hook.h"

#include <cstddef>

#include "common/asan.h"

// The allocator that really serves the calls: under AddressSanitizer its interceptor, so that
// free and the leak checker keep seeing every block; otherwise the C library's own.
#if QKM_ASAN
extern "C" void *__interceptor_malloc(std::size_t size);
#define QKM_REAL_MALLOC __interceptor_malloc
#else
extern "C" void *__libc_malloc(std::size_t size);
#define QKM_REAL_MALLOC __libc_malloc
#endif

// malloc runs before the sanitizer has mapped its shadow memory: the state of the hook is
// plain data read with atomic built-ins, in functions left uninstrumented.
#define QKM_HOOK_FN __attribute__((no_sanitize_address, no_sanitize("undefined")))
#define QKM_GET(v) __atomic_load_n(&(v), __ATOMIC_SEQ_CST)
#define QKM_PUT(v, x) __atomic_store_n(&(v), (x), __ATOMIC_SEQ_CST)

namespace qkm_test::malloc_hook {
namespace {
int g_armed = 0, g_sticky = 0, g_countdown = 0, g_failures = 0, g_counted = 0;
std::size_t g_min = 0, g_last = 0;

void arm(std::size_t min_bytes, int nth, bool sticky) {
  QKM_PUT(g_armed, 0);
  QKM_PUT(g_min, min_bytes);
  QKM_PUT(g_countdown, nth > 0 ? nth : 0);
  QKM_PUT(g_sticky, sticky ? 1 : 0);
  QKM_PUT(g_failures, 0);
  QKM_PUT(g_counted, 0);
  QKM_PUT(g_last, std::size_t{0});
  QKM_PUT(g_armed, nth > 0 ? 1 : 0);
}

QKM_HOOK_FN bool should_fail(std::size_t size) {
  if (QKM_GET(g_armed) == 0 || size < QKM_GET(g_min)) return false;
  __atomic_add_fetch(&g_counted, 1, __ATOMIC_SEQ_CST);
  QKM_PUT(g_last, size);
  const int left = QKM_GET(g_countdown);
  if (left <= 0) return false;
  if (left > 1) {
    QKM_PUT(g_countdown, left - 1);
    return false;
  }
  if (QKM_GET(g_sticky) == 0) QKM_PUT(g_countdown, 0);
  __atomic_add_fetch(&g_failures, 1, __ATOMIC_SEQ_CST);
  return true;
}
}  // namespace

void fail_at(std::size_t min_bytes, int nth) { arm(min_bytes, nth, false); }
void fail_from(std::size_t min_bytes, int nth) { arm(min_bytes, nth, true); }
void reset() { QKM_PUT(g_armed, 0); }
int failures() { return QKM_GET(g_failures); }
int counted() { return QKM_GET(g_counted); }
std::size_t last_size() { return QKM_GET(g_last); }

}  // namespace qkm_test::malloc_hook

extern "C" QKM_HOOK_FN void *malloc(std::size_t size) {
  if (qkm_test::malloc_hook::should_fail(size)) return nullptr;
  return QKM_REAL_MALLOC(size);
}
