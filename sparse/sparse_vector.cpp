// Kernels between a compressed sparse vector (values x, one-based positions indx) and a full
// vector y, all contiguous. Every kernel runs k = 1 to nz in order; for e_daxpyi and e_dsctr
// that order is the contract, since indx may repeat a position. Indices are widened with
// their sign before the address is formed, so 0 or a negative index addresses before y.
#include <cstdint>
#include <cstring>

#include "kernels.h"

namespace {

// 0-based element of y named by a one-based index.
inline int64_t at(qkm_int index) { return static_cast<int64_t>(index) - 1; }

}  // namespace

extern "C" {

// Each update reads y after the previous one has been stored: repeated positions accumulate.
void e_daxpyi(const qkm_int *nz, const double *a, const double *x, const qkm_int *indx,
              double *y) {
  const int32_t n = *nz;
  if (n <= 0) return;
  const double av = *a;
  if (av == 0.0) return;  // a NaN fails the test and goes on
  for (int32_t k = 0; k < n; ++k) {
    const double t = av * x[k];
    y[at(indx[k])] = y[at(indx[k])] + t;
  }
}

// The order of this sum is free; it is kept in the order of k, the same on every processor.
double e_ddoti(const qkm_int *nz, const double *x, const qkm_int *indx, const double *y) {
  const int32_t n = *nz;
  if (n <= 0) return 0.0;
  double s = 0.0;
  for (int32_t k = 0; k < n; ++k) s = s + x[k] * y[at(indx[k])];
  return s;
}

// Plain 64-bit copies: NaN payloads and signed zeros pass unchanged.
void e_dgthr(const qkm_int *nz, const double *y, double *x, const qkm_int *indx) {
  const int32_t n = *nz;
  for (int32_t k = 0; k < n; ++k) std::memcpy(x + k, y + at(indx[k]), sizeof(double));
}

// For a repeated position the value of the highest k stays; positions not named are kept.
void e_dsctr(const qkm_int *nz, const double *x, const qkm_int *indx, double *y) {
  const int32_t n = *nz;
  for (int32_t k = 0; k < n; ++k) std::memcpy(y + at(indx[k]), x + k, sizeof(double));
}

}  // extern "C"
