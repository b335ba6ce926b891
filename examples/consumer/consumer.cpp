// An out-of-tree C++ caller of the installed libraries: a kernel and a service.
#include <cstdio>

#include "QORKytMemoryManager.h"
#include "kernels.h"

int main() {
  QORKytMemoryManager manager(10);
  char *block = nullptr;
  int group = 0;
  const int status = manager.Allocation(1, group, &block, 64, nullptr, 0, nullptr, 0, nullptr, 0,
                                        nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr,
                                        0, nullptr, 0, nullptr, 0);
  double *x = reinterpret_cast<double *>(block);
  x[0] = 3.0, x[1] = 4.0;
  const qkm_int n = 2, inc = 1;
  if (status != 0 || group != 1 || e_dnrm2(&n, x, &inc) != 5.0) {
    std::puts("consumer (C++): wrong answer");
    return 1;
  }
  std::puts("consumer (C++): ok");
  return 0;
}
