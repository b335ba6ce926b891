// Self-check of the typed allocation path: six arrays of five kinds in one typed call, each
// written over its whole length.
#include "QORKytMemoryManager.h"
#include "QORKytValue.h"

int QORKytTypeEncapMemory::Test() {
  QORKytMemoryManager manager(100);
  char **strings = nullptr;
  int *first = nullptr;
  float *reals4 = nullptr;
  int *second = nullptr;
  double *reals8 = nullptr;
  char *letters = nullptr;
  int indice = 0;
  const QORKytTypeEncapMemory &empty = EmptyEncapMem;
  const int status = manager.Allocation(
      indice, QORKytTypeEncapMemory(strings), 5, QORKytTypeEncapMemory(first), 100,
      QORKytTypeEncapMemory(reals4), 44, QORKytTypeEncapMemory(second), 31,
      QORKytTypeEncapMemory(reals8), 110, QORKytTypeEncapMemory(letters), 10, empty, 0, empty, 0,
      empty, 0, empty, 0, empty, 0);
  if (status == 0) {
    static char table[] = "toto\0calimero\0agatha\0tintin\0milou";
    for (int i = 0; i < 5; ++i) strings[i] = table + i;
    for (int i = 0; i < 100; ++i) first[i] = i + 1;
    for (int i = 0; i < 44; ++i) reals4[i] = static_cast<float>(i + 1);
    for (int i = 0; i < 31; ++i) second[i] = i + 1;
    for (int i = 0; i < 110; ++i) reals8[i] = static_cast<double>(i + 1);
    for (int i = 0; i < 10; ++i) letters[i] = 'a';
  }
  return status;
}
