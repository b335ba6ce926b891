// The matrix-vector family: each tuned kernel, dgemvf and the dispatch of eagemv compared bit
// for bit with plain scalar statements of their orders and splits, on every instruction-set
// level and with arrays off any alignment; the statements checked against the reference
// dgemv; the NaN and infinity cases where the paths differ; the argument checks.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "kernels.h"
#include "services/capture.h"
#include "support/bits.h"
#include "support/refblas.h"

using qkm_test::bits;
using qkm_test::sentinel;
using Vec = std::vector<double>;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();
using Kernel = void (*)(const qkm_int *, const qkm_int *, const double *, const double *,
                        const qkm_int *, const double *, const qkm_int *, const double *,
                        double *, const qkm_int *);

// ---- scalar statements -----------------------------------------------------------------
// One problem: a is m by n (lda), x and y at their first stored element. at(v, k, len, inc) is
// logical element k (0-based) of a mirrored-start walk of len elements.
struct P {
  int m, n, lda, incx, incy;
  double alpha, beta;
  const double *a, *x;
  double *y;
  double A(long i, long j) const { return a[i + j * static_cast<long>(lda)]; }
};
long at(long k, long len, long inc) { return inc < 0 ? (k - len + 1) * inc : k * inc; }

// Row sums of the no-transpose kernels over strips of four rows: e takes the odd columns,
// o the even ones.
void ref_n(const P &p, int rows) {
  for (int i0 = 0; i0 < rows; i0 += 4) {
    const int cnt = std::min(4, rows - i0);
    double e[4], o[4] = {};
    for (int r = 0; r < cnt; ++r) e[r] = p.beta * p.y[at(i0 + r, p.m, p.incy)];
    for (int r = 0; r < cnt; ++r)
      for (int j = 0; j < p.n; ++j) {
        const double t = p.alpha * p.x[at(j, p.n, p.incx)];
        (j % 2 ? o[r] : e[r]) += p.A(i0 + r, j) * t;
      }
    for (int r = 0; r < cnt; ++r) p.y[at(i0 + r, p.m, p.incy)] = p.n >= 2 ? e[r] + o[r] : e[r];
  }
}

// Column sum from v: eight partials over whole rounds of 8 rows, the rest one by one.
double col_sum(const P &p, int j, double v, bool scale) {
  double e[8] = {v, 0, 0, 0, 0, 0, 0, 0};
  const int whole = p.m >= 8 ? p.m / 8 * 8 : 0;
  auto term = [&](int i) {
    const double xi = p.x[at(i, p.m, p.incx)];
    return p.A(i, j) * (scale ? p.alpha * xi : xi);
  };
  for (int i = 0; i < whole; ++i) e[i % 8] += term(i);
  double s = whole ? ((e[0] + e[2]) + (e[4] + e[6])) + ((e[1] + e[3]) + (e[5] + e[7])) : v;
  for (int i = whole; i < p.m; ++i) s += term(i);
  return s;
}

// Column-group form: groups of four columns, all reads of y before the writes.
void ref_t(const P &p, int cols) {
  for (int j0 = 0; j0 < cols; j0 += 4) {
    const int cnt = std::min(4, cols - j0);
    double s[4];
    for (int c = 0; c < cnt; ++c) s[c] = p.beta * p.y[at(j0 + c, p.n, p.incy)];
    for (int c = 0; c < cnt; ++c) s[c] = col_sum(p, j0 + c, s[c], true);
    for (int c = 0; c < cnt; ++c) p.y[at(j0 + c, p.n, p.incy)] = s[c];
  }
}

// Unit-stride form of dgemv32_t: alpha times each sum of four products.
void ref_t32_unit(const P &p) {
  for (int j = 0; j < p.n; ++j) {
    double s = p.beta * p.y[j];
    for (int i = 0; i < p.m; i += 4)
      s += p.alpha * (((p.A(i, j) * p.x[i] + p.A(i + 1, j) * p.x[i + 1]) +
                       p.A(i + 2, j) * p.x[i + 2]) + p.A(i + 3, j) * p.x[i + 3]);
    p.y[j] = s;
  }
}

bool quiet(const P &p) { return p.m == 0 || p.n == 0 || (p.alpha == 0.0 && p.beta == 1.0); }

void ref_kernel(const std::string &name, const P &p) {
  if (quiet(p)) return;
  if (name == "dgemv_n") ref_n(p, p.m);
  if (name == "dgemv32_n") ref_n(p, (p.m + 3) / 4 * 4);
  if (name == "dgemv_t") ref_t(p, p.n);
  if (name == "dgemv32_t" && p.incx == 1 && p.incy == 1) ref_t32_unit(p);
  if (name == "dgemv32_t" && (p.incx != 1 || p.incy != 1)) ref_t(p, (p.n + 3) / 4 * 4);
}

void ref_dgemvf(char t, const P &p) {
  if (quiet(p)) return;
  const bool nt = t == 'N';
  const int leny = nt ? p.m : p.n;
  for (int k = 0; k < leny; ++k) {
    double &yk = p.y[at(k, leny, p.incy)];
    yk = p.beta == 0.0 ? 0.0 : yk * p.beta;
  }
  if (p.alpha == 0.0) return;
  for (int j = 0; j < p.n; ++j) {
    if (nt) {
      const double xj = p.x[at(j, p.n, p.incx)];
      if (xj == 0.0) continue;
      for (int i = 0; i < p.m; ++i) p.y[at(i, p.m, p.incy)] += p.alpha * xj * p.A(i, j);
    } else {
      p.y[at(j, p.n, p.incy)] += p.alpha * col_sum(p, j, 0.0, false);
    }
  }
}

// The cut of eagemv, stated with the kernel statements; positive strides.
void ref_eagemv(char t, const P &p) {
  if (quiet(p)) return;
  if (p.alpha == 0.0 || p.incx < 0 || p.incy < 0) return ref_dgemvf(t == 'N' ? 'N' : 'T', p);
  const int m8 = p.m / 8 * 8, mr = p.m - m8, n64 = p.n / 64 * 64, nr = p.n - n64;
  auto piece = [&](const char *k, int i0, int j0, int rows, int cols, double beta) {
    P q = p;
    q.m = rows;
    q.n = cols;
    q.beta = beta;
    q.a = p.a + i0 + static_cast<long>(j0) * p.lda;
    q.x = p.x + (t == 'N' ? j0 : i0) * static_cast<long>(p.incx);
    q.y = p.y + (t == 'N' ? i0 : j0) * static_cast<long>(p.incy);
    ref_kernel(k, q);
  };
  if (t == 'N') {
    for (int j0 = 0; m8 && j0 < p.n; j0 += 64)
      piece("dgemv32_n", 0, j0, m8, std::min(64, p.n - j0), j0 ? 1.0 : p.beta);
    if (mr) piece("dgemv_n", m8, 0, mr, p.n, p.beta);
    return;
  }
  if (!m8) return piece("dgemv_t", 0, 0, p.m, p.n, p.beta);
  for (int j0 = 0; j0 < n64; j0 += 64) {
    piece("dgemv32_t", 0, j0, m8, 64, p.beta);
    piece("dgemv_t", m8, j0, mr, 64, 1.0);
  }
  if (!nr) return;
  const bool unit = p.incx == 1 && p.incy == 1;
  piece(unit || nr % 4 == 0 ? "dgemv32_t" : "dgemv_t", 0, n64, m8, nr, p.beta);
  piece("dgemv_t", m8, n64, mr, nr, 1.0);
}

// ---- operands --------------------------------------------------------------------------
// Values of mixed magnitudes, so that a changed order of the sums shows in the last bits.
// Each buffer starts `off` doubles past a 64-byte boundary; gaps hold sentinels.
struct Buf {
  std::vector<double> store;
  double *p;
  Buf(size_t n, int off, std::mt19937_64 &rng) : store(n + 16, sentinel()) {
    p = store.data() + ((64 - reinterpret_cast<uintptr_t>(store.data()) % 64) % 64) / 8 + off;
    std::uniform_real_distribution<double> d(-1, 1);
    std::uniform_int_distribution<int> e(-20, 20);
    for (size_t k = 0; k < n; ++k) p[k] = std::ldexp(d(rng), e(rng));
  }
};
size_t span(long len, long inc) { return len > 0 ? 1 + (len - 1) * std::labs(inc) : 1; }

// Runs `lib` and `ref` on copies of the same operands (y gaps as sentinels) and compares
// every stored double of y, gaps included.
struct Check {
  int m, n, incx, incy, lenx, leny, off;
  double alpha = 0.75, beta = -1.25;
  unsigned seed = 1;
  void operator()(const std::function<void(const P &)> &lib,
                  const std::function<void(const P &)> &ref, const std::string &what) const {
    std::mt19937_64 rng(seed + 977u * m + 31u * n);
    const int lda = std::max(1, m) + 2;
    Buf a(static_cast<size_t>(lda) * std::max(n + 4, 1), off, rng);
    Buf x(span(lenx + 4, incx), off, rng), y(span(leny + 4, incy), off, rng);
    const size_t ny = span(leny + 4, incy);
    for (size_t k = 0; k < ny; ++k)
      if (incy != 0 && (k % std::labs(incy)) != 0) y.p[k] = sentinel();
    Vec y0(y.p, y.p + ny);
    P p{m, n, lda, incx, incy, alpha, beta, a.p, x.p, y.p};
    lib(p);
    Vec got(y.p, y.p + ny);
    std::copy(y0.begin(), y0.end(), y.p);
    ref(p);
    for (size_t k = 0; k < ny; ++k)
      ASSERT_EQ(bits(got[k]), bits(y.p[k])) << what << " m=" << m << " n=" << n << " incx="
                                              << incx << " incy=" << incy << " off=" << off
                                              << " at " << k;
  }
};

const int kSizes[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,   10,  11,  12, 13,
                      14, 15, 16, 17, 24, 40, 56, 63, 64, 65, 100, 127, 128, 129};
const int kStrides[][2] = {{1, 1}, {2, 1}, {1, 3}, {3, 2}, {-1, 1}, {2, -1}};

void gemv(char t, const P &p) {
  eagemv(&t, &p.m, &p.n, &p.alpha, p.a, &p.lda, p.x, &p.incx, &p.beta, p.y, &p.incy, 1);
}

}  // namespace

TEST(Gemv, EveryCutAndStrideOfTheDispatchOnEveryPath) {
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel use(level);
    for (char t : {'N', 'T', 'C'})
      for (int m : kSizes)
        for (int n : kSizes)
          for (auto [ix, iy] : kStrides) {
            const bool nt = t == 'N';
            Check r{m, n, ix, iy, nt ? n : m, nt ? m : n, (m + n + level) % 2};
            r([&](const P &p) { gemv(t, p); }, [&](const P &p) { ref_eagemv(t, p); },
              std::string("eagemv ") + t + " level " + std::to_string(level));
          }
  }
}

TEST(Gemv, EachKernelAlonePerStrideAndAlignment) {
  const struct {
    const char *name;
    Kernel fn;
    bool trans;
  } kernels[] = {{"dgemv_n", dgemv_n, false},
                 {"dgemv32_n", dgemv32_n, false},
                 {"dgemv_t", dgemv_t, true},
                 {"dgemv32_t", dgemv32_t, true}};
  const int strides[][2] = {{1, 1}, {2, 3}, {-1, 1}, {1, -2}, {0, 1}, {1, 0}, {3, 0}};
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel use(level);
    for (const auto &k : kernels)
      for (int m : kSizes)
        for (int n : kSizes)
          for (auto [ix, iy] : strides)
            for (int off : {0, 1}) {
              const std::string name = k.name;
              const bool unit = ix == 1 && iy == 1;
              // The documented over-reach is the caller's affair: only whole strips here.
              if (name == "dgemv32_n" && m % 4) continue;
              if (name == "dgemv32_t" && (unit ? m % 4 : n % 4)) continue;
              Check r{m, n, ix, iy, k.trans ? m : n, k.trans ? n : m, off, 0.75, -1.25};
              if (m == 5) r.alpha = 0.0, r.beta = 2.0;  // main loop on zero terms
              auto fn = k.fn;
              r([&](const P &p) {
                  fn(&p.m, &p.n, &p.alpha, p.a, &p.lda, p.x, &p.incx, &p.beta, p.y, &p.incy);
                },
                [&](const P &p) { ref_kernel(name, p); }, name);
            }
  }
}

// Columns longer than one chunk of terms: the partial sums carried from chunk to chunk, the
// rows after the whole rounds in a last chunk of their own or not, blocks of 64 columns with
// a ragged last block, through each transpose kernel, dgemvf and eagemv.
TEST(Gemv, LongColumnsAcrossChunksAndColumnBlocks) {
  const int rows[] = {2047, 2053, 4096 + 8, 4096 + 13};
  const int cols[] = {1, 9, 68, 131};
  const int strides[][2] = {{2, 1}, {-1, 3}, {1, 2}, {3, -2}};
  for (int level : qkm_test::simd_levels()) {
    qkm_test::SimdLevel use(level);
    for (int m : rows)
      for (int n : cols)
        for (auto [ix, iy] : strides) {
          Check r{m, n, ix, iy, m, n, (m + n) % 2};
          const std::string what = "level " + std::to_string(level);
          r([&](const P &p) { gemv('T', p); }, [&](const P &p) { ref_eagemv('T', p); },
            "eagemv " + what);
          r([&](const P &p) {
              dgemv_t(&p.m, &p.n, &p.alpha, p.a, &p.lda, p.x, &p.incx, &p.beta, p.y, &p.incy);
            },
            [&](const P &p) { ref_kernel("dgemv_t", p); }, "dgemv_t " + what);
          if (n % 4 == 0)
            r([&](const P &p) {
                dgemv32_t(&p.m, &p.n, &p.alpha, p.a, &p.lda, p.x, &p.incx, &p.beta, p.y,
                          &p.incy);
              },
              [&](const P &p) { ref_kernel("dgemv32_t", p); }, "dgemv32_t " + what);
          r([&](const P &p) {
              const char t = 'T';
              dgemvf(&t, &p.m, &p.n, &p.alpha, p.a, &p.lda, p.x, &p.incx, &p.beta, p.y,
                     &p.incy, 1);
            },
            [&](const P &p) { ref_dgemvf('T', p); }, "dgemvf " + what);
        }
  }
}

TEST(Gemv, DgemvfAloneAndTheStatementsAgreeWithTheReferenceDgemv) {
  for (char t : {'N', 'T'})
    for (int m : {0, 1, 7, 9, 64, 129})
      for (int n : {0, 1, 8, 65, 128})
        for (auto [ix, iy] : {std::pair{1, 1}, {-1, 1}, {2, -3}, {-2, -1}}) {
          const bool nt = t == 'N';
          Check r{m, n, ix, iy, nt ? n : m, nt ? m : n, 1};
          r([&](const P &p) { dgemvf(&t, &p.m, &p.n, &p.alpha, p.a, &p.lda, p.x, &p.incx,
                                     &p.beta, p.y, &p.incy, 1); },
            [&](const P &p) { ref_dgemvf(t, p); }, "dgemvf");
          // Both orders lie within rounding of the reference BLAS: the bound comes from the
          // same product on magnitudes.
          r([&](const P &p) { gemv(t, p); },
            [&](const P &p) {
              const int leny = nt ? p.m : p.n, lenx = nt ? p.n : p.m;
              const size_t ny = span(leny + 4, p.incy);
              auto mag = [](const double *v, size_t k) {
                Vec w(v, v + k);
                for (double &e : w) e = std::fabs(e);
                return w;
              };
              Vec mine(p.y, p.y + ny), aa = mag(p.a, size_t(p.lda) * std::max(p.n, 1)),
                  ax = mag(p.x, span(lenx, p.incx)), bound = mag(p.y, ny);
              gemv(t, P{p.m, p.n, p.lda, p.incx, p.incy, p.alpha, p.beta, p.a, p.x, mine.data()});
              const double fa = std::fabs(p.alpha), fb = std::fabs(p.beta);
              dgemv_(&t, &p.m, &p.n, &fa, aa.data(), &p.lda, ax.data(), &p.incx, &fb,
                     bound.data(), &p.incy, 1);
              dgemv_(&t, &p.m, &p.n, &p.alpha, p.a, &p.lda, p.x, &p.incx, &p.beta, p.y,
                     &p.incy, 1);
              for (size_t k = 0; k < ny; ++k) {
                if (!std::isnan(p.y[k]))
                  EXPECT_LE(std::fabs(mine[k] - p.y[k]), 1e-15 * (p.m + p.n + 2) * bound[k]);
                p.y[k] = mine[k];  // the bitwise comparison of Check is not the point here
              }
            },
            "reference");
        }
}

// The rows of the table where the tuned kernels and dgemvf differ, through eagemv.
TEST(Gemv, WherePositiveAndNegativeStridesDiffer) {
  const struct {
    char t;
    int incx, incy;
    double y0, x0, a0;  // y(1), x(1) and a(1,1) (a(1,1) with x(1) = 0: a zero column)
    double beta;
    bool nan;
  } rows[] = {
      {'N', 1, 1, kNaN, 1, 1, 0.0, true},   {'N', 1, 1, kInf, 1, 1, 0.0, true},
      {'N', 1, -1, kNaN, 1, 1, 0.0, false}, {'T', 2, 1, kInf, 1, 1, 0.0, true},
      {'T', 1, -1, kInf, 1, 1, 0.0, false}, {'N', 1, 1, 1, 0, kNaN, 1.0, true},
      {'N', -1, 1, 1, 0, kNaN, 1.0, false}, {'T', 1, 1, 1, 0, kNaN, 1.0, true},
  };
  for (const auto &r : rows) {
    const qkm_int m = 9, n = 9, lda = 9;
    double alpha = 1.0;
    Vec a(81, 0.5), x(9 * 2, 1.0), y(9, 1.0);
    const qkm_int incx = r.incx, incy = r.incy;
    // Logical element 1 of each walk.
    y[r.incy < 0 ? 8 : 0] = r.y0;
    x[r.incx < 0 ? 8 : 0] = r.x0;
    a[0] = r.a0;
    eagemv(&r.t, &m, &n, &alpha, a.data(), &lda, x.data(), &incx, &r.beta, y.data(), &incy, 1);
    EXPECT_EQ(std::isnan(y[r.incy < 0 ? 8 : 0]), r.nan) << r.t << " " << r.incx << r.incy;
  }
}

TEST(Gemv, QuickReturnsAndScaleOnly) {
  const qkm_int one = 1, two = 2, zero = 0, three = 3;
  double a[9] = {kNaN}, x[3] = {kNaN}, alpha = 0.0, b1 = 1.0, b0 = 0.0;
  Vec y = {kNaN, 7.0, 4.0, 7.0, kNaN};
  eagemv("T", &zero, &three, &b1, a, &one, x, &one, &b0, y.data(), &one, 1);  // m = 0
  eagemv("N", &three, &zero, &b1, a, &three, x, &one, &b0, y.data(), &one, 1);  // n = 0
  eagemv("N", &three, &three, &alpha, a, &three, x, &one, &b1, y.data(), &one, 1);
  EXPECT_TRUE(std::isnan(y[0]));
  eagemv("N", &three, &three, &alpha, a, &three, x, &one, &b0, y.data(), &two, 1);
  EXPECT_EQ(y, (Vec{0.0, 7.0, 0.0, 7.0, 0.0}));  // the gaps stay
}

TEST(GemvDeathTest, EachBadArgumentStopsBeforeAnyQuickReturn) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const struct {
    const char *t;
    qkm_int m, n, lda, incx, incy;
  } bad[] = {{"n", 0, 0, 1, 1, 1}, {"t", 0, 0, 1, 1, 1}, {"X", 2, 2, 2, 1, 1},
             {"N", -1, 2, 2, 1, 1}, {"N", 2, -1, 2, 1, 1}, {"T", 3, 2, 2, 1, 1},
             {"N", 0, 0, 0, 1, 1},  {"N", 0, 2, 1, 0, 1},  {"T", 2, 0, 2, 1, 0}};
  for (const auto &b : bad) {
    double a[16] = {}, x[4] = {}, y[4] = {}, alpha = 0.0, beta = 1.0;
    EXPECT_EXIT(eagemv(b.t, &b.m, &b.n, &alpha, a, &b.lda, x, &b.incx, &beta, y, &b.incy, 1),
                testing::ExitedWithCode(1), "^DGEMV Fatal Error\n$")
        << b.t << b.m << b.n << b.lda << b.incx << b.incy;
  }
}

TEST(Gemv, DgemvfPrintsItsFirstCodeAndLeavesYAlone) {
  const struct {
    const char *t;
    qkm_int m, n, lda, incx, incy;
    int code;
  } bad[] = {{"t", -1, -1, 0, 0, 0, 1}, {"N", -1, -1, 0, 0, 0, 2}, {"C", 1, -1, 0, 0, 0, 3},
             {"N", 0, 0, 0, 0, 0, 6},   {"T", 2, 1, 2, 0, 0, 8},   {"N", 2, 1, 2, 1, 0, 11}};
  for (const auto &b : bad) {
    double a[4] = {1, 1, 1, 1}, x[2] = {1, 1}, y[2] = {3, 3}, alpha = 1.0, beta = 0.0;
    qkm_test::StdoutCapture out;
    dgemvf(b.t, &b.m, &b.n, &alpha, a, &b.lda, x, &b.incx, &beta, y, &b.incy, 1);
    const std::string text = out.text();
    EXPECT_EQ(text.find('\n'), text.size() - 1) << text;  // one line
    const auto at = text.find("DGEMV Error :");
    ASSERT_NE(at, std::string::npos) << text;
    EXPECT_EQ(std::stoi(text.substr(at + 13)), b.code) << text;
    EXPECT_EQ(y[0], 3.0);
    EXPECT_EQ(y[1], 3.0);
  }
}
