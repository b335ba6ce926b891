// Record sort: the worked cases, and random tables against a plain statement of the method.
#include <gtest/gtest.h>

#include <random>
#include <thread>
#include <vector>

#include "kernels.h"

namespace {

using V = std::vector<int32_t>;

// The method step by step on 0-based record numbers: pivot walk with its two toggles, first
// scans that pass over equal keys, alternating scans through the hole that stop on them, the
// larger part put off.
void oracle_sort(V &t, int lrec, int nrec, int ikey) {
  auto key = [&](int r) { return t[r * lrec + ikey - 1]; };
  auto move = [&](int to, int from) {
    std::copy_n(t.begin() + from * lrec, lrec, t.begin() + to * lrec);
  };
  struct R { int lo, hi, m; };
  std::vector<R> stack;
  R cur{0, nrec - 1, nrec - 1};
  int a = 0, b = 0;
  V pivot(lrec);
  for (;;) {
    while (cur.lo >= cur.hi) {
      if (stack.empty()) return;
      cur = stack.back();
      stack.pop_back();
    }
    int p = cur.lo + (cur.m >> 1);
    if (a == 1) {
      a = 0;
      p += (b == 1 ? -1 : 1) * (cur.m >> 2);
      b = 1 - b;
    } else {
      a = 1;
    }
    const int32_t k = key(p);
    int i = cur.lo, j = cur.hi, q = p;
    for (; i < p; ++i)
      if (key(i) > k) break;
    for (; j > p; --j)
      if (key(j) < k) break;
    if (i != p || j != p) {
      std::copy_n(t.begin() + p * lrec, lrec, pivot.begin());
      if (i < p) move(p, i);
      int l = i, r = j;
      for (bool open = true; open;) {
        while (open && key(r) > k)
          if (--r == l) q = l, open = false;
        if (!open) break;
        move(l, r);
        do {
          if (++l == r) q = r, open = false;
        } while (open && key(l) < k);
        if (!open) break;
        move(r, l);
        if (--r == l) q = l, open = false;
      }
      std::copy(pivot.begin(), pivot.end(), t.begin() + q * lrec);
    }
    const int nl = q - cur.lo;
    const R left{cur.lo, q - 1, nl - 1}, right{q + 1, cur.hi, cur.m - nl - 1};
    stack.push_back(2 * nl < cur.m ? right : left);
    cur = 2 * nl < cur.m ? left : right;
  }
}

V sorted(V t, int lrec, int ikey) {
  V work(lrec, -7);
  const int32_t n = static_cast<int32_t>(t.size()) / lrec;
  eaxsort(t.data(), &lrec, &n, &ikey, work.data());
  return t;
}

TEST(Sort, WorkedCases) {
  enum { a = 100, b, c, d, e };
  const struct {
    V in, out;
  } cases[] = {
      {{2, a, 1, b, 2, c, 1, d, 2, e}, {1, b, 1, d, 2, a, 2, c, 2, e}},
      {{3, a, 3, b, 1, c, 3, d}, {1, c, 3, a, 3, b, 3, d}},
      {{5, a, 5, b, 5, c, 5, d, 5, e}, {5, a, 5, b, 5, c, 5, d, 5, e}},  // all equal: unchanged
      {{4, a, 2, b, 0, c, -1, d, -9, e}, {-9, e, -1, d, 0, c, 2, b, 4, a}},
  };
  for (const auto &cs : cases) EXPECT_EQ(sorted(cs.in, 2, 1), cs.out);
  // the same records with the key in the second word
  EXPECT_EQ(sorted({a, 2, b, 1, c, 2, d, 1, e, 2}, 2, 2), (V{b, 1, d, 1, a, 2, c, 2, e, 2}));
}

TEST(Sort, NothingMovesForFewerThanTwoRecords) {
  for (int32_t n : {0, 1, -1, -5}) {
    V t{9, 3, 1}, work{-7, -7, -7};
    const int32_t lrec = 1, ikey = 1;
    eaxsort(t.data(), &lrec, &n, &ikey, work.data());
    EXPECT_EQ(t, (V{9, 3, 1}));
    EXPECT_EQ(work, (V{-7, -7, -7}));
  }
}

// Random tables: every record gets its original number in a non-key word (when there is one)
// and words derived from it, so that a record's words can be checked to have stayed together.
TEST(Sort, RandomTablesFollowTheMethodRecordForRecord) {
  std::mt19937 rng(14);
  for (int lrec = 1; lrec <= 5; ++lrec)
    for (int ikey = 1; ikey <= lrec; ++ikey)
      for (int nrec : {2, 3, 7, 64, 1000, 4099})
        for (int32_t range : {1, 3, 50, 1 << 30}) {
          std::uniform_int_distribution<int32_t> kd(-range, range);
          V t(static_cast<size_t>(nrec) * lrec);
          for (int r = 0; r < nrec; ++r)
            for (int w = 0; w < lrec; ++w)
              t[r * lrec + w] = w + 1 == ikey ? kd(rng) : r * 7 + w;
          V expect = t;
          oracle_sort(expect, lrec, nrec, ikey);
          const V got = sorted(t, lrec, ikey);
          ASSERT_EQ(got, expect) << "lrec " << lrec << " ikey " << ikey << " nrec " << nrec
                                 << " range " << range;
          if (lrec == 1) continue;
          const int tag = ikey == 1 ? 1 : 0;
          for (int r = 0; r < nrec; ++r) {
            const int from = got[r * lrec + tag] / 7;
            ASSERT_TRUE(std::equal(got.begin() + r * lrec, got.begin() + (r + 1) * lrec,
                                   t.begin() + from * lrec));
            if (r > 0) ASSERT_LE(got[(r - 1) * lrec + ikey - 1], got[r * lrec + ikey - 1]);
          }
        }
}

// A key word past the record reads into the next record: the method still runs as stated
// (the table is padded by one record for the last key).
TEST(Sort, KeyOutsideTheRecord) {
  std::mt19937 rng(3);
  V t(2 * 501);
  for (auto &w : t) w = static_cast<int32_t>(rng() % 20);
  V expect = t;
  oracle_sort(expect, 2, 500, 3);
  V work(2);
  const int32_t lrec = 2, nrec = 500, ikey = 3;
  eaxsort(t.data(), &lrec, &nrec, &ikey, work.data());
  EXPECT_EQ(t, expect);
}

TEST(Sort, OrderedInputsAndThreads) {
  V up(5000), down(5000);
  for (int i = 0; i < 5000; ++i) up[i] = i - 2500, down[i] = 2500 - i;
  EXPECT_EQ(sorted(up, 1, 1), up);
  V expect = down;
  std::sort(expect.begin(), expect.end());
  EXPECT_EQ(sorted(down, 1, 1), expect);
  // two threads at once keep their own pending ranges
  V r1, r2;
  std::thread t1([&] { for (int i = 0; i < 50; ++i) r1 = sorted(down, 1, 1); });
  std::thread t2([&] { for (int i = 0; i < 50; ++i) r2 = sorted(down, 1, 1); });
  t1.join();
  t2.join();
  EXPECT_EQ(r1, expect);
  EXPECT_EQ(r2, expect);
}

}  // namespace
