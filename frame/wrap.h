// Wrapping signed 32-bit arithmetic of the calling frame, written through uint32_t so that
// an overflow wraps as the kernels require instead of being undefined behaviour.
#pragma once

#include <cstdint>

namespace qkm {

inline int32_t wrap_add(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
inline int32_t wrap_mul(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

}  // namespace qkm
