// Internal hooks of the packed factorisation, for the tests. Not exported.
#pragma once

#include <cstdint>

namespace qkm::factor {

// Limits the batch buffer of eaxfch2 to `doubles` entries (a negative value restores the
// full buffer), so that tests reach the narrower batches and the row-by-row path on small
// matrices. The results do not depend on it.
void set_batch_capacity(int64_t doubles) noexcept;

}  // namespace qkm::factor
