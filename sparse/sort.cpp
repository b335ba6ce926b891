// eaxsort: in-place quicksort of fixed-length records by one signed 32-bit word, without
// recursion. Records move through one record of scratch (the pivot) and a hole, one copy per
// misplaced record. The pivot walks through the middle, three quarters, the middle and one
// quarter of successive ranges; the order left among equal keys follows from these steps and
// is part of the result.
#include <cstdint>
#include <cstring>

#include "kernels.h"

namespace {

struct Range {
  int32_t lo, hi, m;  // first and last record (from 1), record count minus one
};

// Pending ranges: the part put off is never the smaller one, so 32 entries would do.
thread_local Range pending[64];

// Record access for a width known at compile time (W > 0) or at run time (W = 0), so that the
// common narrow records move with plain loads and stores instead of a variable-length copy.
template <int W>
struct Table {
  int32_t *base;  // record 1
  int32_t width;
  int32_t *keys;  // key word of record 1
  std::ptrdiff_t shift;  // key word's place in its record

  int32_t lrec() const { return W > 0 ? W : width; }
  int32_t *rec(int32_t r) const { return base + static_cast<std::ptrdiff_t>(r - 1) * lrec(); }
  int32_t &key(int32_t r) const { return keys[static_cast<std::ptrdiff_t>(r - 1) * lrec()]; }
  // The record whose key word is at kp, and its number.
  int32_t *rec_at(int32_t *kp) const { return kp - shift; }
  int32_t number(const int32_t *kp) const { return static_cast<int32_t>((kp - keys) / lrec()) + 1; }
  void copy(int32_t *dst, const int32_t *src) const {
    std::memcpy(dst, src, static_cast<std::size_t>(static_cast<uint32_t>(lrec())) * 4u);
  }
};

// With KeyInRecord (the key word lies inside its record), the alternating scans find their
// bound through the pivot's key written into the key word of the hole, whose stale content is
// always overwritten afterwards; otherwise they test the bound at every step.
template <int W, bool KeyInRecord>
void quicksort(Table<W> t, int32_t nrec, int32_t *work) {
  int32_t lo = 1, hi = nrec, m = nrec - 1;
  int top = 0;
  bool a = false, b = false;  // the two toggles of the pivot walk
  // Offset of the pivot in a range of span+1 records: the middle, three quarters, the middle,
  // one quarter, range after range.
  auto walk = [&a, &b](int32_t span) {
    int32_t p = span >> 1;
    if (a) {
      p += b ? -(span >> 2) : (span >> 2);
      b = !b;
    }
    a = !a;
    return p;
  };
  auto order_pair = [&t, work](int32_t f) {
    if (t.key(f + 1) < t.key(f)) {
      t.copy(work, t.rec(f));
      t.copy(t.rec(f), t.rec(f + 1));
      t.copy(t.rec(f + 1), work);
    }
  };
  for (;;) {
    while (lo >= hi) {
      if (top == 0) return;
      const Range r = pending[--top];
      lo = r.lo;
      hi = r.hi;
      m = r.m;
    }
    const int32_t p = lo + walk(m);
    // Ranges of two and three records: the partitions that the steps below would make,
    // written out. A pair keeps the first record as its pivot and is exchanged through `work`
    // when its second key is smaller. Three records are read once, which holds only when each
    // key travels with its own record.
    if (m == 1) {
      order_pair(lo);
      lo = hi;
      continue;
    }
    if (KeyInRecord && m == 2) {
      const int32_t kx = t.key(lo), k = t.key(p), kz = t.key(hi);
      lo = hi;
      if (kx <= k && kz >= k) continue;  // pivot in place, parts of one record
      t.copy(work, t.rec(p));
      if (kx > k && kz < k) {  // the outer records change places, the pivot stays
        t.copy(t.rec(p), t.rec(p - 1));
        t.copy(t.rec(p - 1), t.rec(p + 1));
        t.copy(t.rec(p + 1), t.rec(p));
        t.copy(t.rec(p), work);
        continue;
      }
      // The pivot goes to one end; the other two records form the next range, taken at once.
      const int32_t end = kz >= k ? p - 1 : p + 1;
      t.copy(t.rec(p), t.rec(end));
      t.copy(t.rec(end), work);
      walk(1);
      order_pair(kz >= k ? p : p - 1);
      continue;
    }
    const int32_t k = t.key(p);

    // First scans: they pass over keys equal to the pivot's.
    int32_t i = lo;
    while (i < p && t.key(i) <= k) ++i;
    int32_t j = hi;
    while (j > p && t.key(j) >= k) --j;

    int32_t q;
    if (i == p && j == p) {
      q = p;
    } else {
      t.copy(work, t.rec(p));
      if (i < p) t.copy(t.rec(p), t.rec(i));
      // Alternating scans, on the key words: they stop on keys equal to the pivot's in both
      // directions. The hole is at `left` to begin with.
      const std::ptrdiff_t step = t.lrec();
      int32_t *left = &t.key(i), *right = &t.key(j), *qk;
      for (;;) {
        if (KeyInRecord) {
          *left = k;
          while (*right > k) right -= step;
        } else {
          while (*right > k)
            if ((right -= step) == left) break;
        }
        if (right == left) {
          qk = left;
          break;
        }
        t.copy(t.rec_at(left), t.rec_at(right));  // hole now at right
        if (KeyInRecord) {
          *right = k;
          do left += step;
          while (*left < k);
        } else {
          do left += step;
          while (left != right && *left < k);
        }
        if (left == right) {
          qk = right;
          break;
        }
        t.copy(t.rec_at(right), t.rec_at(left));  // hole now at left
        if ((right -= step) == left) {
          qk = left;
          break;
        }
      }
      t.copy(t.rec_at(qk), work);
      q = t.number(qk);
    }

    // The larger part waits; a part of one record or none would only be dropped when taken
    // back, so it is not put on the stack at all.
    const int32_t nl = q - lo;
    const Range left_part{lo, q - 1, nl - 1}, right_part{q + 1, hi, m - nl - 1};
    const bool left_smaller = 2 * static_cast<int64_t>(nl) < m;
    const Range later = left_smaller ? right_part : left_part;
    if (later.m > 0) pending[top++] = later;
    const Range next = left_smaller ? left_part : right_part;
    lo = next.lo;
    hi = next.hi;
    m = next.m;
  }
}

template <int W>
void run(int32_t *table, int32_t lrec, int32_t nrec, int32_t ikey, int32_t *work) {
  const Table<W> t{table, lrec, table + (ikey - 1), ikey - 1};
  if (ikey >= 1 && ikey <= lrec)
    quicksort<W, true>(t, nrec, work);
  else
    quicksort<W, false>(t, nrec, work);
}

}  // namespace

extern "C" void eaxsort(qkm_int *table, const qkm_int *lrec, const qkm_int *nrec,
                        const qkm_int *ikey, qkm_int *work) {
  const int32_t w = *lrec, n = *nrec, key = *ikey;
  if (n <= 1) return;
  switch (w) {
    case 1: return run<1>(table, w, n, key, work);
    case 2: return run<2>(table, w, n, key, work);
    case 3: return run<3>(table, w, n, key, work);
    case 4: return run<4>(table, w, n, key, work);
    default: return run<0>(table, w, n, key, work);
  }
}
