// Status of the spatial search's own failures: a bad call, or a state that must not occur.
#pragma once

namespace qkm::spatial {

inline constexpr int kUnexpected = static_cast<int>(0x8000ffffu);

}  // namespace qkm::spatial
