// e_dtpsv: every flag combination against the reference DTPSV, the fixed split of the A^T
// sums bit for bit across strides, alignments and instruction sets, the plain statements of
// the four paths (short columns, stride 1 and 0), and the edges where this kernel departs
// from the public routine.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "kernels.h"
#include "support/bits.h"

using qkm_test::bits;
using qkm_test::is_sentinel;
using qkm_test::same_bits;
using qkm_test::uniform;
using qkm_test::sentinel;
using Vec = std::vector<double>;

extern "C" void dtpsv_(const char *uplo, const char *trans, const char *diag, const int *n,
                       const double *ap, double *x, const int *incx, size_t, size_t, size_t);

namespace {

const char *const kCombos[][3] = {{"U", "N", "N"}, {"U", "N", "U"}, {"U", "T", "N"},
                                  {"U", "T", "U"}, {"L", "N", "N"}, {"L", "N", "U"},
                                  {"L", "T", "N"}, {"L", "T", "U"}};

// A well-conditioned packed triangle: diagonal in [1, 2], the rest of size 1/n.
Vec triangle(int n, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  Vec ap(static_cast<size_t>(n) * (n + 1) / 2);
  for (auto &e : ap) e = u(rng) / n;
  for (int j = 1; j <= n; ++j) {
    ap[static_cast<size_t>(j) * (j + 1) / 2 - 1] += 1.5;                  // upper diagonal
    ap[static_cast<size_t>(j - 1) * (2 * n - j) / 2 + j - 1] += 1.5;      // lower diagonal
  }
  return ap;
}

// x_1..x_n laid out with stride inc (mirrored start), sentinels in the gaps and a margin.
struct Strided {
  Vec buf;
  int n, inc;
  long off;
  Strided(const Vec &v, int inc_, long margin = 3) : n(static_cast<int>(v.size())), inc(inc_), off(margin) {
    const long span = 1 + static_cast<long>(n - 1) * std::abs(inc);
    buf.assign(span + 2 * margin, sentinel());
    for (int k = 0; k < n; ++k) at(k + 1) = v[k];
  }
  double &at(int k) {  // logical element k, 1-based
    const long start = inc < 0 ? static_cast<long>(1 - n) * inc : 0;
    return buf[off + start + static_cast<long>(k - 1) * inc];
  }
  double *x() { return buf.data() + off; }
  Vec values() {
    Vec v(n);
    for (int k = 0; k < n; ++k) v[k] = at(k + 1);
    return v;
  }
  bool gaps_untouched() {
    long set = 0;
    for (double e : buf) set += !is_sentinel(e);
    return set == n;
  }
};

Vec solve(const char *const f[3], const Vec &ap, const Vec &b, int inc, long margin = 3) {
  Strided s(b, inc, margin);
  const int n = static_cast<int>(b.size());
  e_dtpsv(f[0], f[1], f[2], &n, ap.data(), s.x(), &inc, 1, 1, 1);
  EXPECT_TRUE(s.gaps_untouched()) << f[0] << f[1] << f[2] << " inc " << inc;
  return s.values();
}

// The four paths as the plain statements of the algorithm, x_k at x[(k-1)*inc].
void plain(const char *const f[3], int n, const Vec &ap, double *x, int inc) {
  const bool upper = f[0][0] == 'U', plain_a = f[1][0] == 'N', nounit = f[2][0] == 'N';
  auto X = [&](int k) -> double & { return x[(k - 1) * inc]; };
  auto A = [&](int i, int j) {
    return upper ? ap[i + j * (j - 1) / 2 - 1] : ap[i + (2 * n - j) * (j - 1) / 2 - 1];
  };
  for (int s = 1; s <= n; ++s) {
    const int j = (upper == plain_a) ? n + 1 - s : s;
    if (plain_a) {
      if (X(j) == 0.0) continue;
      if (nounit) X(j) = X(j) / A(j, j);
      const double t = X(j);
      if (upper)
        for (int i = j - 1; i >= 1; --i) X(i) = X(i) - t * A(i, j);
      else
        for (int i = j + 1; i <= n; ++i) X(i) = X(i) - t * A(i, j);
    } else {
      double t = X(j);
      if (upper)
        for (int i = 1; i < j; ++i) t = t - A(i, j) * X(i);
      else
        for (int i = n; i > j; --i) t = t - A(i, j) * X(i);
      if (nounit) t = t / A(j, j);
      X(j) = t;
    }
  }
}

}  // namespace

TEST(Dtpsv, AgreesWithTheReferenceForEveryFlagAndStride) {
  for (int n : {1, 2, 7, 8, 9, 10, 33, 100, 300})
    for (const auto &f : kCombos)
      for (int inc : {1, -1, 2, -2}) {
        const Vec ap = triangle(n, n), b = uniform(n, n + 1);
        const Vec got = solve(f, ap, b, inc);
        Strided ref(b, inc);
        dtpsv_(f[0], f[1], f[2], &n, ap.data(), ref.x(), &inc, 1, 1, 1);
        const Vec want = ref.values();
        double err = 0, scale = 0;
        for (int k = 0; k < n; ++k) {
          err = std::max(err, std::fabs(got[k] - want[k]));
          scale = std::max(scale, std::fabs(want[k]));
        }
        EXPECT_LE(err, 1e-13 * scale) << f[0] << f[1] << f[2] << " n " << n << " inc " << inc;
      }
}

// Short columns (n <= 8, so no A^T sum is split) follow the stated order exactly, at stride 1
// and at stride 0, where every step works on x(1).
TEST(Dtpsv, ShortColumnsFollowThePlainStatementsAtStrideOneAndZero) {
  for (int n = 1; n <= 8; ++n)
    for (const auto &f : kCombos)
      for (int inc : {1, 0}) {
        const Vec ap = triangle(n, 3 * n), b = uniform(n, 4 * n);
        Vec want = b;
        plain(f, n, ap, want.data(), inc);
        Vec x = b;
        e_dtpsv(f[0], f[1], f[2], &n, ap.data(), x.data(), &inc, 1, 1, 1);
        EXPECT_TRUE(same_bits(x, want)) << f[0] << f[1] << f[2] << " n " << n << " inc " << inc;
      }
}

// The split of the A^T sums depends on neither the stride, nor the alignment of x, nor the
// instruction set: the unit-stride SIMD form and the strided form give the same bits.
TEST(Dtpsv, SameBitsOnEveryStrideAlignmentAndLevel) {
  for (int n : {9, 40, 77, 300})
    for (const auto &f : kCombos) {
      const Vec ap = triangle(n, 5 * n), b = uniform(n, 6 * n);
      Vec want;
      {
        qkm_test::SimdLevel lv(qkm::simd::Base);
        want = solve(f, ap, b, 1);
      }
      for (int level : qkm_test::simd_levels()) {
        qkm_test::SimdLevel lv(level);
        for (int inc : {1, -1, 2, -2})
          for (long margin : {3L, 4L})
            EXPECT_TRUE(same_bits(solve(f, ap, b, inc, margin), want))
                << f[0] << f[1] << f[2] << " n " << n << " inc " << inc << " level " << level;
      }
    }
}

// Letters in either case; any other letter takes the second branch.
TEST(Dtpsv, FlagLettersInEitherCaseAndWrongLettersTakeTheSecondBranch) {
  const int n = 12;
  const Vec ap = triangle(n, 9), b = uniform(n, 10);
  const char *const spellings[][2][3] = {
      {{"u", "n", "n"}, {"U", "N", "N"}}, {{"x", "N", "N"}, {"L", "N", "N"}},
      {{"U", "C", "N"}, {"U", "T", "N"}}, {{"L", "t", "N"}, {"L", "T", "N"}},
      {{"U", "N", "Z"}, {"U", "N", "U"}}, {{"L", "T", "u"}, {"L", "T", "U"}},
  };
  for (const auto &s : spellings)
    EXPECT_TRUE(same_bits(solve(s[0], ap, b, 1), solve(s[1], ap, b, 1)))
        << s[0][0] << s[0][1] << s[0][2];
}

TEST(Dtpsv, EdgesOfTheDiagonalAndOfEmptyWork) {
  const int zero = 0, one = 1, minus = -2;
  e_dtpsv(nullptr, nullptr, nullptr, &zero, nullptr, nullptr, nullptr, 1, 1, 1);  // n = 0
  double x = sentinel();
  e_dtpsv("U", "N", "N", &minus, nullptr, &x, &one, 1, 1, 1);  // negative n: nothing done
  EXPECT_TRUE(is_sentinel(x));

  // n = 1, x = 0 and a zero diagonal: with A the column is skipped, with A^T it divides.
  const double apz = 0.0;
  for (const char *t : {"N", "T"}) {
    double x1 = 0.0;
    e_dtpsv("U", t, "N", &one, &apz, &x1, &one, 1, 1, 1);
    EXPECT_EQ(std::isnan(x1), t[0] == 'T') << t;
  }

  // A unit diagonal is never read: NaN there changes nothing. x = 0 with A reads no ap.
  const int n = 20;
  for (const auto &f : kCombos) {
    Vec ap = triangle(n, 11), nan_diag = ap;
    for (int j = 1; j <= n; ++j)
      nan_diag[f[0][0] == 'U' ? j * (j + 1) / 2 - 1 : (j - 1) * (2 * n - j) / 2 + j - 1] =
          std::numeric_limits<double>::quiet_NaN();
    if (f[2][0] == 'U')
      EXPECT_TRUE(same_bits(solve(f, nan_diag, uniform(n, 12), 2), solve(f, ap, uniform(n, 12), 2)));
    if (f[1][0] == 'N') {
      const Vec all_nan(ap.size(), std::numeric_limits<double>::quiet_NaN());
      EXPECT_TRUE(same_bits(solve(f, all_nan, Vec(n, 0.0), -1), Vec(n, 0.0)));
    }
  }
}
