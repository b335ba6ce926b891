// Groups of work arrays for the solver.
//
// One Allocation call places up to eleven arrays, when it can, in a single block and names the
// whole group by a small number, its indice (1, 2, 3, ... in order). Positive numbers release
// like a stack (a group and every group above it), negative ones release a single group and
// leave a hole. Sizes kept by the manager are in words of 8 bytes. Statuses: 0 done,
// 0x80004005 failed (an error object has been issued), 8 refused in warning mode.
#ifndef QORKYT_MEMORY_MANAGER_H
#define QORKYT_MEMORY_MANAGER_H

#include "QORKytValue.h"

class __attribute__((visibility("default"))) QORKytMemoryManager {
 public:
  // `step`: how many table entries one extension adds; it must exceed the number of arrays of
  // any one call.
  explicit QORKytMemoryManager(int step);
  // Frees every block still held, without a message.
  virtual ~QORKytMemoryManager();

  // Core form: `count` arrays of lengths[i] bytes. lengths is converted in place to words
  // (bytes / 8 + 1); the addresses go to arrays[0..count-1], the group number to indice.
  int Allocation(int count, int &indice, char **&arrays, long long *lengths);
  // Up to eleven (address of a pointer variable, length in bytes) pairs; count 1 to 11.
  int Allocation(int count, int &indice, char **a1, long long n1, char **a2, long long n2,
                 char **a3, long long n3, char **a4, long long n4, char **a5, long long n5,
                 char **a6, long long n6, char **a7, long long n7, char **a8, long long n8,
                 char **a9, long long n9, char **a10, long long n10, char **a11,
                 long long n11);
  // Eleven (typed pointer, number of items) pairs; unused pairs are
  // QORKytTypeEncapMemory::EmptyEncapMem with 0. The count is found from the arguments.
  int Allocation(int &indice, QORKytTypeEncapMemory m1, int n1, QORKytTypeEncapMemory m2, int n2,
                 QORKytTypeEncapMemory m3, int n3, QORKytTypeEncapMemory m4, int n4,
                 QORKytTypeEncapMemory m5, int n5, QORKytTypeEncapMemory m6, int n6,
                 QORKytTypeEncapMemory m7, int n7, QORKytTypeEncapMemory m8, int n8,
                 QORKytTypeEncapMemory m9, int n9, QORKytTypeEncapMemory m10, int n10,
                 QORKytTypeEncapMemory m11, int n11);

  // Resizes the last block of group `indice` (meant for a group of one array) to `bytes`.
  // The result of the resize is not checked.
  int Reallocation(int indice, char *&array, long long bytes);
  // A new group of `newBytes`, the first `oldBytes` copied from `array`, the old group
  // released as a hole; indice and array then name the new group.
  int ManualReallocation(int &indice, char *&array, long long oldBytes, long long newBytes);

  // Positive: that group and all above it. Negative: that group alone; a group no longer on
  // the stack is refused (0x80004005) and nothing is freed. Zero: failure.
  int Desallocation(int indice);
  // Each positive entry of indices that names a group on the stack released alone; other
  // entries are skipped.
  int Desallocation(int count, int *indices);
  // Frees the non-null addresses arrays[0..count-1]; touches no table.
  int Desallocation(int count, char **&arrays);
  // free and null, when not already null. Always 0.
  int DestructionElement(char *&block);
  // Grows the three tables by the step. 0 or 0x80004005.
  int ExtensionTable();
  // How many words, below `words`, can still be had, in twentieths of the request.
  int ComputeAvailableMemory(int words, int &available);

  // The number the next group will get.
  int GetIndiceAllocation();
  // The peak of the words held, not the current use.
  float GetMemoryUsed();
  // Non-zero: exhaustion is a warning with this message number (1026: message 300 with
  // the sizes).
  void SetModeWarning(int mode);
  void ResetModeWarning();

 private:
  QORKytMemoryManager(const QORKytMemoryManager &) = delete;
  QORKytMemoryManager &operator=(const QORKytMemoryManager &) = delete;

  // Helpers of this library only, not exported.
  __attribute__((visibility("hidden"))) void ReleaseElements(int first, int last);
  __attribute__((visibility("hidden"))) int TableFailure();
  // Every table has an entry `index`.
  __attribute__((visibility("hidden"))) bool TablesHold(int index) const;

  char **_ElementTable;
  long long *_ElementSize;
  int *_IndiceTable;
  int _TableSize;
  int _IndiceAllocation;
  int _IndiceMax;
  long long _ExtensionStep;
  long long _MemoryCurrent;
  long long _MemoryPeak;
  int _ModeWarning;
  int _ModeSeparate;
  // Entries that all three tables really have. Equal to _TableSize except after an extension
  // that failed half-way, when _TableSize has grown beyond what some table holds.
  int _TableCapacity;
};

#endif
