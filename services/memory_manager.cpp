#include "QORKytMemoryManager.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "QORKytError.h"
#include "QORMemory.h"
#include "QORString.h"
#include "kernels.h"

namespace {

constexpr int kFailed = static_cast<int>(0x80004005u);
constexpr int kRefused = 8;
constexpr int kMessageAvailableWarning = 1026;  // mode that asks for message 300 with sizes
constexpr int kMessageWarning = 300;
constexpr int kMessageExhausted = 302;
constexpr const char *kCatalog = "QORKYTMathKernelError";

// Words to kilobytes, 32-bit with truncation, as the messages show them.
int kilobytes(long long words) { return static_cast<int>(words) / 128; }

// An address moved up to the next multiple of 8 when it is not one.
char *round_up8(char *p) {
  const auto a = reinterpret_cast<std::uintptr_t>(p);
  if ((a & 7u) == 0) return p;
  return reinterpret_cast<char *>((a & ~static_cast<std::uintptr_t>(7)) + 8);
}

bool misaligned8(const void *p) { return (reinterpret_cast<std::uintptr_t>(p) & 7u) != 0; }

// Bytes of a block of `words` words plus the final spare word, or 0 when that byte count has
// no address range to hold it (beyond PTRDIFF_MAX): such a request cannot be granted, and its
// bytes must not wrap into a small one.
size_t block_bytes(long long words) {
  constexpr long long kMaxWords = (PTRDIFF_MAX - 8) / 8;
  if (words < 0 || words > kMaxWords) return 0;
  return static_cast<size_t>(words) * 8 + 8;
}

// The error object prints itself and ends its own lifetime: the pointer is not kept.
void announce_text(const char *text) { QORKytErrorTools::Create(text); }

void issue(bool warning, int code, const QORKytTypeEncapError &p1,
           const QORKytTypeEncapError &p2) {
  const QORKytTypeEncapError &e = QORKytTypeEncapError::EmptyEncapEr;
  if (warning)
    QORKytErrorTools::CreateWarning(code, kCatalog, p1, p2, e, e, e, e, e, e, e);
  else
    QORKytErrorTools::CreateError(code, kCatalog, p1, p2, e, e, e, e, e, e, e);
}

void issue_sizes(bool warning, int code, long long asked_words, long long available_words) {
  issue(warning, code, QORKytTypeEncapError(kilobytes(asked_words)),
        QORKytTypeEncapError(kilobytes(available_words)));
}

void issue_plain_warning(int code) {
  issue(true, code, QORKytTypeEncapError::EmptyEncapEr, QORKytTypeEncapError::EmptyEncapEr);
}

}  // namespace

QORKytMemoryManager::QORKytMemoryManager(int step)
    : _ElementTable(nullptr),
      _ElementSize(nullptr),
      _IndiceTable(nullptr),
      _TableSize(0),
      _IndiceAllocation(0),
      _IndiceMax(0),
      _ExtensionStep(step),
      _MemoryCurrent(0),
      _MemoryPeak(0),
      _ModeWarning(0),
      _ModeSeparate(0),
      _TableCapacity(0) {
  ExtensionTable();
  if (_IndiceTable != nullptr && _TableCapacity > 0) _IndiceTable[0] = -1;
}

QORKytMemoryManager::~QORKytMemoryManager() {
  if (_ElementTable != nullptr && _IndiceTable != nullptr) {
    const int last = _IndiceTable[_IndiceAllocation];
    for (int e = 0; e <= last; ++e) {
      if (_ElementTable[e] != nullptr) {
        std::free(_ElementTable[e]);
        _ElementTable[e] = nullptr;
      }
    }
  }
  if (_ElementTable != nullptr) {
    std::free(_ElementTable);
    _ElementTable = nullptr;
  }
  if (_ElementSize != nullptr) {
    std::free(_ElementSize);
    _ElementSize = nullptr;
  }
  if (_IndiceTable != nullptr) {
    std::free(_IndiceTable);
    _IndiceTable = nullptr;
  }
}

int QORKytMemoryManager::ExtensionTable() {
  _TableSize = static_cast<int>(static_cast<uint32_t>(_TableSize) +
                                static_cast<uint32_t>(_ExtensionStep));
  if (_TableSize < 1) return kFailed;  // a step that holds nothing
  const size_t entries = static_cast<size_t>(static_cast<long long>(_TableSize));
  auto grow = [entries](auto *&table) {
    const size_t bytes = entries * sizeof(*table);
    void *p = table != nullptr ? QORUnsecuredMemRealloc(table, bytes) : QORUnsecuredMemAlloc(bytes);
    if (p == nullptr) return false;
    table = static_cast<std::remove_reference_t<decltype(table)>>(p);
    return true;
  };
  if (!grow(_ElementTable)) return kFailed;
  if (!grow(_ElementSize)) return kFailed;
  if (!grow(_IndiceTable)) return kFailed;
  _TableCapacity = _TableSize;
  return 0;
}

bool QORKytMemoryManager::TablesHold(int index) const {
  return _ElementTable != nullptr && _ElementSize != nullptr && _IndiceTable != nullptr &&
         index < _TableCapacity;
}

int QORKytMemoryManager::ComputeAvailableMemory(int words, int &available) {
  long long size = static_cast<long long>(words) * 8;
  long long step = size / 20;
  if (step == 0) step = 1;
  for (;;) {
    size -= step;
    if (size < 1) break;
    if (void *p = QORUnsecuredMemAlloc(static_cast<size_t>(size))) {
      std::free(p);
      break;
    }
    if (step >= size) {
      size = 0;
      break;
    }
  }
  available = static_cast<int>(size / 8);
  return 0;
}

int QORKytMemoryManager::TableFailure() {
  int available = 0;
  ComputeAvailableMemory(_TableSize, available);
  Desallocation(_IndiceAllocation);  // gives up the caller's newest group
  issue_sizes(false, kMessageExhausted, _TableSize, available);
  return kFailed;
}

int QORKytMemoryManager::Allocation(int count, int &indice, char **&arrays, long long *lengths) {
  if (count < 1) {
    announce_text("Null Allocation Length");
    return kFailed;
  }
  // Bytes to words, with one spare word; the caller sees the converted lengths.
  for (int i = 0; i < count; ++i) {
    if (lengths[i] == 0) {
      announce_text("Null Allocation Length");
      return kFailed;
    }
    lengths[i] = lengths[i] / 8 + 1;
  }
  // The total, up to and including the first negative length.
  long long total = 0;
  for (int i = 0; i < count; ++i) {
    total = static_cast<long long>(static_cast<uint64_t>(total) + static_cast<uint64_t>(lengths[i]));
    if (lengths[i] < 0) {
      Desallocation(i, arrays);
      if (_ModeWarning != 0) {
        issue_plain_warning(_ModeWarning);
        return kRefused;
      }
      char text[64];
      std::snprintf(text, sizeof text, "NEGATIVE ALLOCATION LENGTH : %lu\n",
                    static_cast<unsigned long>(total));
      announce_text(text);
      return kFailed;
    }
  }
  if (total == 0) {
    announce_text("Null Allocation Length");
    return kFailed;
  }
  if (_ElementTable == nullptr || _ElementSize == nullptr || _IndiceTable == nullptr)
    return TableFailure();  // the tables could not even be made

  const int last = _IndiceTable[_IndiceAllocation];
  int element = 0;
  bool placed = false;

  if (_ModeSeparate == 0) {
    // One block for the whole group.
    if (last + 2 >= _TableSize || !TablesHold(last + 2)) {
      if (ExtensionTable() != 0 || !TablesHold(last + 2)) return TableFailure();
    }
    if (_ModeWarning != 0) {
      qkm_int ceiling = 0;
      ehalmxc(&ceiling);
      if (ceiling <= total) return kRefused;
    }
    // A total beyond any address range is a block that cannot be had, like a null malloc.
    const size_t bytes = block_bytes(total);
    char *block = bytes != 0 ? static_cast<char *>(std::malloc(bytes)) : nullptr;
    if (block != nullptr) {
      arrays[0] = block;
      for (int i = 0; i + 1 < count; ++i) arrays[i + 1] = arrays[i] + lengths[i] * 8;
      _ElementTable[last + 1] = block;
      _ElementSize[last + 1] = total;
      element = last + 1;
      placed = true;
    }
  }

  if (!placed) {
    // One block per array.
    if (last + count + 1 >= _TableSize || !TablesHold(last + count + 1)) {
      if (ExtensionTable() != 0 || !TablesHold(last + count + 1)) return TableFailure();
    }
    for (int i = 0; i < count; ++i) {
      if (_ModeWarning != 0) {
        qkm_int ceiling = 0;
        ehalmxc(&ceiling);
        if (lengths[i] >= ceiling) {
          for (int k = 0; k < i; ++k) _ElementTable[last + 1 + k] = nullptr;
          Desallocation(i, arrays);
          if (_ModeWarning == kMessageAvailableWarning)
            issue_sizes(true, kMessageWarning, lengths[i], ceiling);
          else
            issue_plain_warning(_ModeWarning);
          return kRefused;
        }
      }
      const size_t bytes = block_bytes(lengths[i]);
      char *block = bytes != 0 ? static_cast<char *>(QORUnsecuredMemAlloc(bytes)) : nullptr;
      if (block == nullptr) {
        // The blocks of this call are freed through `arrays`: their slots must not keep them.
        for (int k = 0; k < i; ++k) _ElementTable[last + 1 + k] = nullptr;
        int available = 0;
        ComputeAvailableMemory(static_cast<int>(lengths[i]), available);
        if (_ModeWarning == 0) {
          Desallocation(_IndiceAllocation);  // gives up the caller's newest group
          Desallocation(i, arrays);
          issue_sizes(false, kMessageExhausted, lengths[i], available);
          return kFailed;
        }
        Desallocation(i, arrays);
        if (_ModeWarning == kMessageAvailableWarning)
          issue_sizes(true, kMessageWarning, lengths[i], available);
        else
          issue_plain_warning(_ModeWarning);
        return kRefused;
      }
      arrays[i] = round_up8(block);
      _ElementTable[last + 1 + i] = block;
      _ElementSize[last + 1 + i] = lengths[i];
    }
    element = last + count;
  }

  // Commit: nothing of the group is recorded before this point.
  ++_IndiceAllocation;
  if (_IndiceAllocation > _IndiceMax) _IndiceMax = _IndiceAllocation;
  _IndiceTable[_IndiceAllocation] = element;
  _MemoryCurrent += total;
  if (_MemoryCurrent > _MemoryPeak) _MemoryPeak = _MemoryCurrent;
  indice = _IndiceAllocation;
  return 0;
}

int QORKytMemoryManager::Allocation(int count, int &indice, char **a1, long long n1, char **a2,
                                    long long n2, char **a3, long long n3, char **a4,
                                    long long n4, char **a5, long long n5, char **a6,
                                    long long n6, char **a7, long long n7, char **a8,
                                    long long n8, char **a9, long long n9, char **a10,
                                    long long n10, char **a11, long long n11) {
  // The core form reads `count` entries of the local arrays: a count above eleven is refused
  // like an empty one instead of reading past them.
  if (count > 11) {
    announce_text("Null Allocation Length");
    return kFailed;
  }
  long long lengths[11] = {n1, n2, n3, n4, n5, n6, n7, n8, n9, n10, n11};
  char *local[11] = {};
  char **arrays = local;
  const int status = Allocation(count, indice, arrays, lengths);
  if (status != 0) return status;
  char **targets[11] = {a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11};
  for (int i = 0; i < count; ++i) *targets[i] = local[i];
  return 0;
}

int QORKytMemoryManager::Allocation(int &indice, QORKytTypeEncapMemory m1, int n1,
                                    QORKytTypeEncapMemory m2, int n2, QORKytTypeEncapMemory m3,
                                    int n3, QORKytTypeEncapMemory m4, int n4,
                                    QORKytTypeEncapMemory m5, int n5, QORKytTypeEncapMemory m6,
                                    int n6, QORKytTypeEncapMemory m7, int n7,
                                    QORKytTypeEncapMemory m8, int n8, QORKytTypeEncapMemory m9,
                                    int n9, QORKytTypeEncapMemory m10, int n10,
                                    QORKytTypeEncapMemory m11, int n11) {
  const QORKytTypeEncapMemory *m[11] = {&m1, &m2, &m3, &m4, &m5, &m6, &m7, &m8, &m9, &m10, &m11};
  long long n[11] = {n1, n2, n3, n4, n5, n6, n7, n8, n9, n10, n11};
  int count = 11;
  for (int i = 0; i < 11; ++i) {
    if (m[i]->IsEmpty() || n[i] == 0) {
      count = i;
      break;
    }
    n[i] *= m[i]->GetKytaniSizeOfPointedType();  // items to bytes
    if (n[i] == 0) {
      count = i;
      break;
    }
  }
  if (count < 11) {
    // Every later length is held against the encapsulation where the list stopped.
    for (int k = count; k < 11; ++k) {
      if (n[k] != 0 && !m[count]->IsEmpty()) {
        QORKytErrorTools::Create("Memory allocation: Array type not recognized");
        return kFailed;
      }
    }
  }
  return Allocation(count, indice, static_cast<char **>(*m[0]), n[0],
                    static_cast<char **>(*m[1]), n[1], static_cast<char **>(*m[2]), n[2],
                    static_cast<char **>(*m[3]), n[3], static_cast<char **>(*m[4]), n[4],
                    static_cast<char **>(*m[5]), n[5], static_cast<char **>(*m[6]), n[6],
                    static_cast<char **>(*m[7]), n[7], static_cast<char **>(*m[8]), n[8],
                    static_cast<char **>(*m[9]), n[9], static_cast<char **>(*m[10]), n[10]);
}

int QORKytMemoryManager::Reallocation(int indice, char *&array, long long bytes) {
  // Only a live group has a last element to work on.
  if (indice < 1 || indice > _IndiceAllocation || _IndiceTable == nullptr) return kFailed;
  const int e = _IndiceTable[indice];
  char *p = array;
  char *const r = _ElementTable[e];
  if (misaligned8(r)) {
    // The data sits rounded up inside the block: bring it back to the block's start.
    std::memmove(r, p, static_cast<size_t>(_ElementSize[e]) * 8);
    p = r;
    array = r;
  } else if (p == nullptr) {
    p = r;
    array = r;
  }
  char *q = static_cast<char *>(
      QORUnsecuredMemRealloc(p, static_cast<size_t>(static_cast<uint64_t>(bytes) + 8)));
  // The result is used unchecked: a null q leaves the array and the element null.
  if (misaligned8(q)) {
    array = round_up8(q);
    std::memmove(array, q, static_cast<size_t>(bytes));
  } else {
    array = q;
  }
  _ElementTable[e] = q;
  _MemoryCurrent -= _ElementSize[e];
  _ElementSize[e] = bytes / 8;
  _MemoryCurrent += _ElementSize[e];
  if (_MemoryCurrent > _MemoryPeak) _MemoryPeak = _MemoryCurrent;
  return 0;
}

int QORKytMemoryManager::ManualReallocation(int &indice, char *&array, long long oldBytes,
                                            long long newBytes) {
  int fresh = 0;
  char *block = nullptr;
  int status = Allocation(1, fresh, &block, newBytes, nullptr, 0, nullptr, 0, nullptr, 0,
                          nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0,
                          nullptr, 0);
  if (status != 0) return status;
  if (oldBytes > 0) std::memcpy(block, array, static_cast<size_t>(oldBytes));
  status = Desallocation(-indice);
  if (status != 0) return status;
  indice = fresh;
  array = block;
  return 0;
}

void QORKytMemoryManager::ReleaseElements(int first, int last) {
  for (int e = first; e <= last; ++e) {
    if (_ElementTable[e] != nullptr) {
      DestructionElement(_ElementTable[e]);
      _MemoryCurrent -= _ElementSize[e];
      _ElementSize[e] = 0;
    }
  }
}

int QORKytMemoryManager::Desallocation(int indice) {
  if (indice == 0) return kFailed;
  if (indice > 0) {
    if (indice > _IndiceAllocation) return 0;
    ReleaseElements(_IndiceTable[indice - 1] + 1, _IndiceTable[_IndiceAllocation]);
    _IndiceAllocation = indice - 1;
    return 0;
  }
  // One group alone; it stays on the stack as a hole. A number no longer on the stack names
  // slots that later calls have reused: it is refused like 0, and nothing is freed.
  if (indice < -_IndiceAllocation) return kFailed;
  const int g = -indice;
  ReleaseElements(_IndiceTable[g - 1] + 1, _IndiceTable[g]);
  return 0;
}

int QORKytMemoryManager::Desallocation(int count, int *indices) {
  if (count < 1) return 0;
  for (int i = 0; i < count; ++i) {
    const int g = indices[i];
    if (g > 0 && g <= _IndiceAllocation) ReleaseElements(_IndiceTable[g - 1] + 1, _IndiceTable[g]);
  }
  return 0;
}

int QORKytMemoryManager::Desallocation(int count, char **&arrays) {
  if (count < 1) return 0;
  for (int i = 0; i < count; ++i)
    if (arrays[i] != nullptr) DestructionElement(arrays[i]);
  return 0;
}

int QORKytMemoryManager::DestructionElement(char *&block) {
  if (block != nullptr) {
    std::free(block);
    block = nullptr;
  }
  return 0;
}

int QORKytMemoryManager::GetIndiceAllocation() { return _IndiceAllocation + 1; }

float QORKytMemoryManager::GetMemoryUsed() { return static_cast<float>(_MemoryPeak); }

void QORKytMemoryManager::SetModeWarning(int mode) { _ModeWarning = mode; }

void QORKytMemoryManager::ResetModeWarning() { _ModeWarning = 0; }
