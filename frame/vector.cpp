// Dense vector kernels on doubles and 32-bit integers.
//
// Element-wise kernels (daxpy, dscal) give the same bits on every instruction set: a lane
// computes exactly the rounded operations of the scalar statement. The only sum whose split
// is free, e_dasum on unit stride, uses one fixed split (see unit_asum) on every path.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/simd.h"
#include "frame/toolkit.h"
#include "frame/variant.h"
#include "frame/vec.h"
#include "kernels.h"

namespace {

using namespace qkm::vec;

using qkm::magnitude;
using qkm::mirrored_start;

// ---- y = y + x * a on unit stride ------------------------------------------------------
// Element-wise loops first step one element at a time until the written vector is 64-byte
// aligned, so that the wide stores never split a cache line; the order of elements has no
// effect on the results.
using qkm::head_to_align;

template <int L>
QKM_INLINE void axpy_body(int64_t n, double a, const double *x, double *y) {
  const v8d va = splat8(a);
  int64_t i = 0;
  for (const int64_t h = head_to_align(y, n); i < h; ++i) y[i] = y[i] + x[i] * a;
  for (; i + 32 <= n; i += 32) {
    const v8d y0 = load8(y + i) + load8(x + i) * va;
    const v8d y1 = load8(y + i + 8) + load8(x + i + 8) * va;
    const v8d y2 = load8(y + i + 16) + load8(x + i + 16) * va;
    const v8d y3 = load8(y + i + 24) + load8(x + i + 24) * va;
    store8(y + i, y0);
    store8(y + i + 8, y1);
    store8(y + i + 16, y2);
    store8(y + i + 24, y3);
  }
  for (; i + 8 <= n; i += 8) store8(y + i, load8(y + i) + load8(x + i) * va);
  for (; i < n; ++i) y[i] = y[i] + x[i] * a;
}
QKM_VARIANTS(void, axpy, (int64_t n, double a, const double *x, double *y), (n, a, x, y))

void unit_axpy(int64_t n, double a, const double *x, double *y) {
  // When y starts inside x a step may read an element that an earlier step wrote: keep the
  // element order of the scalar statement there.
  const uintptr_t px = reinterpret_cast<uintptr_t>(x), py = reinterpret_cast<uintptr_t>(y);
  if (py > px && py - px < static_cast<uintptr_t>(n) * sizeof(double)) {
    for (int64_t i = 0; i < n; ++i) y[i] = y[i] + x[i] * a;
    return;
  }
  axpy(n, a, x, y);
}

// ---- x = x * a on unit stride -----------------------------------------------------------
template <int L>
QKM_INLINE void unit_scal_body(int64_t n, double a, double *x) {
  const v8d va = splat8(a);
  int64_t i = 0;
  for (const int64_t h = head_to_align(x, n); i < h; ++i) x[i] = x[i] * a;
  for (; i + 32 <= n; i += 32) {
    const v8d x0 = load8(x + i) * va;
    const v8d x1 = load8(x + i + 8) * va;
    const v8d x2 = load8(x + i + 16) * va;
    const v8d x3 = load8(x + i + 24) * va;
    store8(x + i, x0);
    store8(x + i + 8, x1);
    store8(x + i + 16, x2);
    store8(x + i + 24, x3);
  }
  for (; i + 8 <= n; i += 8) store8(x + i, load8(x + i) * va);
  for (; i < n; ++i) x[i] = x[i] * a;
}
QKM_VARIANTS(void, unit_scal, (int64_t n, double a, double *x), (n, a, x))

// ---- sum of magnitudes on unit stride ---------------------------------------------------
// Fixed split, the same on every instruction set: the 32 partial sums of qkm::sum32.
QKM_INLINE v8d abs8(v8d v) {
  typedef int64_t v8l __attribute__((vector_size(64)));
  const v8l mask = {INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX,
                    INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX};
  return reinterpret_cast<v8d>(reinterpret_cast<v8l>(v) & mask);
}
template <int L>
QKM_INLINE double unit_asum_body(int64_t n, const double *x) {
  return qkm::sum32(n, [](v8d v) QKM_INLINE_LAMBDA { return abs8(v); }, x);
}
QKM_VARIANTS(double, unit_asum, (int64_t n, const double *x), (n, x))

// Clearing for e_dzero and e_izero: n = 0 returns before the stride is read; stride 1 clears
// the block with memset, the byte count taken from n with its sign (a negative n is not
// defended); other strides walk from the mirrored start, and a negative n walks nothing.
template <class T>
void zero_walk(int32_t n, T *x, const qkm_int *incx) {
  if (n == 0) return;
  const int32_t inc = *incx;
  if (inc == 1) {
    std::memset(x, 0, static_cast<size_t>(static_cast<int64_t>(n) * static_cast<int64_t>(sizeof(T))));
    return;
  }
  int64_t ix = mirrored_start(n, inc);
  for (int32_t k = 0; k < n; ++k, ix += inc) x[ix] = T(0);
}

// Copying for e_dcopy and e_icopy: both strides 1 move the block (overlap is safe), any other
// pair copies element by element in order, so overlap takes effect as it goes.
template <class T>
void copy_walk(int32_t n, const T *x, const qkm_int *incx, T *y, const qkm_int *incy) {
  if (n <= 0) return;
  const int32_t ix_inc = *incx, iy_inc = *incy;
  if (ix_inc == 1 && iy_inc == 1) {
    std::memmove(y, x, static_cast<size_t>(n) * sizeof(T));
    return;
  }
  int64_t ix = mirrored_start(n, ix_inc), iy = mirrored_start(n, iy_inc);
  for (int32_t k = 0; k < n; ++k, ix += ix_inc, iy += iy_inc) y[iy] = x[ix];
}

}  // namespace

extern "C" {

void e_dzero(const qkm_int *n, double *x, const qkm_int *incx) { zero_walk(*n, x, incx); }

void e_izero(const qkm_int *n, qkm_int *x, const qkm_int *incx) { zero_walk(*n, x, incx); }

void e_dcopy(const qkm_int *n, const double *x, const qkm_int *incx, double *y,
             const qkm_int *incy) {
  copy_walk(*n, x, incx, y, incy);
}

void e_icopy(const qkm_int *n, const qkm_int *x, const qkm_int *incx, qkm_int *y,
             const qkm_int *incy) {
  copy_walk(*n, x, incx, y, incy);
}

void e_dswap(const qkm_int *n, double *x, const qkm_int *incx, double *y, const qkm_int *incy) {
  const int32_t nn = *n;
  if (nn <= 0) return;
  const int32_t ix_inc = *incx, iy_inc = *incy;
  if (ix_inc == 1 && iy_inc == 1) {
    const int32_t m = nn % 3;
    for (int32_t i = 0; i < m; ++i) swap_bits(x + i, y + i);
    if (nn < 3) return;
    for (int32_t i = m; i < nn; i += 3) {
      swap_bits(x + i, y + i);
      swap_bits(x + i + 1, y + i + 1);
      swap_bits(x + i + 2, y + i + 2);
    }
    return;
  }
  int64_t ix = mirrored_start(nn, ix_inc), iy = mirrored_start(nn, iy_inc);
  for (int32_t k = 0; k < nn; ++k, ix += ix_inc, iy += iy_inc) swap_bits(x + ix, y + iy);
}

void e_dscal(const qkm_int *n, const double *a, double *x, const qkm_int *incx) {
  const int32_t nn = *n;
  if (nn <= 0) return;
  const double av = *a;
  const int64_t step = magnitude(*incx);
  if (step == 1) {
    unit_scal(nn, av, x);
    return;
  }
  int64_t ix = 0;
  for (int32_t k = 0; k < nn; ++k, ix += step) x[ix] = x[ix] * av;
}

void drscl(const qkm_int *n, const double *a, double *x, const qkm_int *incx) {
  if (*n <= 0) return;
  if (*a == 0.0) return;
  if (*a == 1.0) return;
  const double t = 1.0 / *a;
  e_dscal(n, &t, x, incx);
}

void e_daxpy(const qkm_int *n, const double *a, const double *x, const qkm_int *incx, double *y,
             const qkm_int *incy) {
  const int32_t nn = *n;
  if (nn <= 0) return;
  const double av = *a;
  if (av == 0.0) return;
  const int32_t ix_inc = *incx, iy_inc = *incy;
  if (ix_inc == 1 && iy_inc == 1) {
    unit_axpy(nn, av, x, y);
    return;
  }
  int64_t ix = mirrored_start(nn, ix_inc), iy = mirrored_start(nn, iy_inc);
  for (int32_t k = 0; k < nn; ++k, ix += ix_inc, iy += iy_inc) y[iy] = y[iy] + av * x[ix];
}

double e_dasum(const qkm_int *n, const double *x, const qkm_int *incx) {
  const int32_t nn = *n;
  if (nn <= 0) return 0.0;
  const int64_t step = magnitude(*incx);
  if (step == 1) return unit_asum(nn, x);
  double sum = 0.0;
  int64_t ix = 0;
  for (int32_t k = 0; k < nn; ++k, ix += step) sum += std::fabs(x[ix]);
  return sum;
}

double e_dnrm2(const qkm_int *n, const double *x, const qkm_int *incx) {
  const int32_t nn = *n;
  if (nn <= 0) return 0.0;
  constexpr double cutlo = 8.232e-11;
  constexpr double cuthi = 1.304e19;
  // n passes through single precision first: the rounding shows above 2^24.
  const double hitest = cuthi / static_cast<double>(static_cast<float>(nn));
  const int64_t step = magnitude(*incx);

  enum class State { Start, ZeroRun, Small, Large, Middle };
  State state = State::Start;
  double sum = 0.0;
  double xmax = 0.0;
  int64_t ix = 0;
  int32_t k = 0;
  while (k < nn) {
    const double v = x[ix];
    const double a = std::fabs(v);
    switch (state) {
      case State::Start:
        if (a > cutlo) {
          state = State::Middle;
        } else {
          xmax = 0.0;
          state = State::ZeroRun;
        }
        continue;  // same element, new state
      case State::ZeroRun:
        if (v == 0.0) break;
        if (a > cutlo) {
          state = State::Middle;
          continue;
        }
        state = State::Small;
        xmax = a;
        {
          const double q = v / xmax;
          sum = sum + q * q;
        }
        break;
      case State::Small:
        if (a > cutlo) {
          sum = sum * (xmax * xmax);
          state = State::Middle;
          continue;
        }
        [[fallthrough]];
      case State::Large:
        if (xmax >= a) {
          const double q = v / xmax;
          sum = sum + q * q;
        } else {
          const double t = xmax / v;
          sum = (sum * t) * t;
          xmax = a;
          sum = sum + 1.0;
        }
        break;
      case State::Middle:
        if (a >= hitest) {
          sum = (sum / v) / v;
          state = State::Large;
          xmax = a;
          const double q = v / xmax;
          sum = sum + q * q;
        } else {
          sum = sum + v * v;
        }
        break;
    }
    ++k;
    ix += step;
  }
  if (state == State::Middle) return std::sqrt(sum);
  return std::sqrt(sum) * xmax;
}

double damax(const qkm_int *n, const double *x, const qkm_int *incx) {
  const int32_t nn = *n;
  if (nn <= 0) return 0.0;
  double m = std::fabs(x[0]);
  if (nn == 1) return m;
  const int64_t step = magnitude(*incx);
  int64_t ix = step;
  for (int32_t k = 2; k <= nn; ++k, ix += step) {
    const double v = std::fabs(x[ix]);
    if (!(m > v)) m = v;
  }
  return m;
}

qkm_int e_idamax(const qkm_int *n, const double *x, const qkm_int *incx) {
  const int32_t nn = *n;
  if (nn <= 0) return 0;
  if (nn == 1) return 1;
  const int64_t step = magnitude(*incx);
  double m = std::fabs(x[0]);
  int32_t p = 1;
  int64_t ix = step;
  for (int32_t k = 2; k <= nn; ++k, ix += step) {
    const double v = std::fabs(x[ix]);
    if (!(m >= v)) {
      m = v;
      p = k;
    }
  }
  return p;
}

void e_drotg(double *a, double *b, double *c, double *s) {
  const double av = *a, bv = *b;
  if (!(std::fabs(bv) >= std::fabs(av))) {
    const double u = av + av;
    const double v = bv / u;
    const double r = std::sqrt(v * v + 0.25) * u;
    const double cv = av / r;
    const double sv = v * (cv + cv);
    *c = cv;
    *s = sv;
    *b = sv;
    *a = r;
    return;
  }
  if (bv == 0.0) {
    *c = 1.0;
    *s = 0.0;
    return;
  }
  const double u = bv + bv;
  const double v = av / u;
  const double r = std::sqrt(v * v + 0.25) * u;
  const double sv = bv / r;
  const double cv = v * (sv + sv);
  *a = r;
  *c = cv;
  *s = sv;
  *b = (cv == 0.0) ? 1.0 : 1.0 / cv;
}

}  // extern "C"
