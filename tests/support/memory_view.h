// Test helpers of the memory manager: a read-only mirror of its fields (in their declared
// order), short forms of its calls, and a guard that disarms every injected failure.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "QORKytMemoryManager.h"
#include "platform/fault_injection.h"
#include "services/capture.h"
#include "support/malloc_hook.h"

namespace qkm_test {

struct ManagerView {
  void *vtable;
  char **ElementTable;
  long long *ElementSize;
  int *IndiceTable;
  int TableSize, IndiceAllocation, IndiceMax;
  long long ExtensionStep, MemoryCurrent, MemoryPeak;
  int ModeWarning, ModeSeparate, TableCapacity;
};
static_assert(sizeof(ManagerView) == sizeof(QORKytMemoryManager));

inline ManagerView &view(QORKytMemoryManager &m) { return *reinterpret_cast<ManagerView *>(&m); }

constexpr int kFailed = static_cast<int>(0x80004005u);
using Mem = QORKytTypeEncapMemory;

// One group of one array of `bytes` through the pair form; the group number, -7 if none.
inline int one(QORKytMemoryManager &m, char *&p, long long bytes, int *status = nullptr) {
  int indice = -7;
  const int st = m.Allocation(1, indice, &p, bytes, nullptr, 0, nullptr, 0, nullptr, 0, nullptr,
                              0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0,
                              nullptr, 0);
  if (status != nullptr) *status = st;
  return indice;
}

// The typed form with the given pairs first and empty pairs after them.
inline int typed(QORKytMemoryManager &m, int &indice, std::vector<std::pair<Mem, int>> p) {
  p.resize(11, {Mem::EmptyEncapMem, 0});
  return m.Allocation(indice, p[0].first, p[0].second, p[1].first, p[1].second, p[2].first,
                      p[2].second, p[3].first, p[3].second, p[4].first, p[4].second, p[5].first,
                      p[5].second, p[6].first, p[6].second, p[7].first, p[7].second, p[8].first,
                      p[8].second, p[9].first, p[9].second, p[10].first, p[10].second);
}

// "next-group current-words holders": holders marks which of the first n elements hold a block.
inline std::string state(QORKytMemoryManager &m, int n) {
  std::string s = std::to_string(m.GetIndiceAllocation()) + " " +
                  std::to_string(view(m).MemoryCurrent) + " ";
  for (int i = 0; i < n; ++i) s += view(m).ElementTable[i] != nullptr ? '1' : '0';
  return s;
}

inline int count_of(const std::string &text, const std::string &what) {
  int n = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

struct Clean {
  Clean() { qor::fault::reset(); }
  ~Clean() {
    qor::fault::reset();
    malloc_hook::reset();
  }
};

}  // namespace qkm_test
