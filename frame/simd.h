// Instruction-set dispatch shared by the kernels.
//
// The library is built for plain x86-64 (SSE2). Faster variants are compiled per function
// with the target attributes below and chosen once from cpuid. Every variant must give the
// bits of the baseline: variants only change how many lanes an element-wise or fixed-split
// computation uses, never the order of a rounded operation.
#pragma once

#define QKM_TARGET_AVX2 __attribute__((target("avx2")))
#define QKM_TARGET_AVX512 __attribute__((target("avx512f,avx512dq,avx512vl,avx512bw")))
#define QKM_INLINE inline __attribute__((always_inline))
// For lambdas handed to inline helpers: [](v8d v) QKM_INLINE_LAMBDA { ... }
#define QKM_INLINE_LAMBDA __attribute__((always_inline))

namespace qkm::simd {

enum Level : int { Base = 0, Avx2 = 1, Avx512 = 2 };

// Highest level this processor and operating system support.
int supported() noexcept;

// Level in use: the override when one is set, otherwise supported().
int active() noexcept;

// Internal hook for the tests: run every kernel at `level` (clamped to supported()).
// A negative level removes the override. Not exported from the shared library.
void set_override(int level) noexcept;

}  // namespace qkm::simd
