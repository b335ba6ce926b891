// Test-only interposition of malloc: makes chosen calls of the system's malloc fail. Inert
// until armed; when armed, only calls asking for at least `min_bytes` are counted, so that the
// small allocations of the test machinery itself are never hit.
#pragma once

#include <cstddef>

namespace qkm_test::malloc_hook {

// The nth counted call from now fails (1 = the next one); later calls succeed again.
void fail_at(std::size_t min_bytes, int nth);
// Every counted call from the nth on fails, until reset.
void fail_from(std::size_t min_bytes, int nth);
void reset();
int failures();              // calls made to fail since the last arming
int counted();               // counted calls since the last arming
std::size_t last_size();     // size asked by the last counted call

}  // namespace qkm_test::malloc_hook
