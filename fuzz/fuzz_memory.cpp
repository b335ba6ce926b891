// Memory-manager call sequences decoded from the input, the manager's own fields checked after
// every step: the stack of groups ordered, the words held equal to the sizes of the live
// elements, the peak never below them. The sanitizers watch for double frees and leaks.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/memory_view.h"

namespace {

using qkm_test::view;

struct Input {
  const uint8_t *p;
  size_t n;
  unsigned byte() { return n > 0 ? (--n, *p++) : 0u; }
  long long length() {
    // Mostly small byte counts, some zero or negative, some beyond any address range.
    const unsigned kind = byte() % 16;
    const unsigned lo = byte();
    const long long v = static_cast<long long>(lo | (byte() << 8));
    if (kind == 0) return 0;
    if (kind == 1) return -v;
    if (kind == 2) return (1LL << 62) + v;
    if (kind == 3) return INT64_MAX - v;
    return v + 1;
  }
};

void check(QORKytMemoryManager &m) {
  const auto &v = view(m);
  if (v.IndiceTable == nullptr || v.ElementTable == nullptr || v.ElementSize == nullptr) return;
  if (v.IndiceTable[0] != -1) std::abort();
  long long held = 0;
  for (int k = 1; k <= v.IndiceAllocation; ++k) {
    if (v.IndiceTable[k] < v.IndiceTable[k - 1] || v.IndiceTable[k] >= v.TableCapacity)
      std::abort();
    for (int e = v.IndiceTable[k - 1] + 1; e <= v.IndiceTable[k]; ++e) {
      if (v.ElementTable[e] == nullptr && v.ElementSize[e] != 0) std::abort();
      if (v.ElementTable[e] != nullptr) held += v.ElementSize[e];
    }
  }
  if (held != v.MemoryCurrent || v.MemoryPeak < v.MemoryCurrent) std::abort();
  if (m.GetIndiceAllocation() != v.IndiceAllocation + 1) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  // The refusals print their messages: keep them out of the fuzzer's log.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 0;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in{data, size};
  QORKytMemoryManager m(static_cast<int>(in.byte() % 24) + 12);
  char *single = nullptr;  // the array of the newest single-array group, when it is live
  int single_group = 0;
  while (in.n > 0) {
    const unsigned op = in.byte() % 8;
    if (op <= 2) {
      const int count = static_cast<int>(in.byte() % 12);  // 0 to 11
      long long lengths[11] = {};
      char *arrays[11] = {};
      char **a = arrays;
      for (int i = 0; i < count; ++i) lengths[i] = in.length();
      int indice = 0;
      if (m.Allocation(count, indice, a, lengths) == 0) {
        // Every array is writable over its words (bytes -8 to -15 give an array of none).
        for (int i = 0; i < count; ++i)
          if (lengths[i] > 0) std::memset(arrays[i], 0x5a, static_cast<size_t>(lengths[i]) * 8);
        single = count == 1 ? arrays[0] : nullptr;
        single_group = count == 1 ? indice : 0;
      }
    } else if (op == 3) {
      const int g = static_cast<int>(in.byte() % 16) - 6;
      m.Desallocation(g);
      single = nullptr, single_group = 0;
    } else if (op == 4) {
      int list[4];
      const int count = static_cast<int>(in.byte() % 5);
      for (int i = 0; i < count; ++i) list[i] = static_cast<int>(in.byte() % 16) - 6;
      m.Desallocation(count, list);
      single = nullptr, single_group = 0;
    } else if (op == 5) {
      const unsigned mode = in.byte() % 3;
      if (mode == 0) m.ResetModeWarning();
      else m.SetModeWarning(mode == 1 ? 1026 : 7);
    } else if (op == 6 && single != nullptr && single_group == m.GetIndiceAllocation() - 1) {
      const long long bytes = static_cast<long long>(in.byte() % 64 + 1) * 8;
      if (m.Reallocation(single_group, single, bytes) != 0 || single == nullptr) single_group = 0;
    } else if (op == 7 && single != nullptr && single_group == m.GetIndiceAllocation() - 1) {
      const long long bytes = static_cast<long long>(in.byte() % 64 + 1) * 8;
      if (m.ManualReallocation(single_group, single, 8, bytes) != 0) single = nullptr;
    }
    check(m);
  }
  return 0;
}
