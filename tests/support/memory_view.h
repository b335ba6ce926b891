// Test helpers of the memory manager: a read-only mirror of its fields (in their documented
// order) and the capture of what is printed to standard output, where the error blocks go
// while no listing is open.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "QORKytMemoryManager.h"

namespace qkm_test {

struct ManagerView {
  void *vtable;
  char **ElementTable;
  long long *ElementSize;
  int *IndiceTable;
  int TableSize;
  int IndiceAllocation;
  int IndiceMax;
  long long ExtensionStep;
  long long MemoryCurrent;
  long long MemoryPeak;
  int ModeWarning;
  int ModeSeparate;
  int TableCapacity;
};
static_assert(sizeof(ManagerView) == sizeof(QORKytMemoryManager));

inline ManagerView &view(QORKytMemoryManager &m) { return *reinterpret_cast<ManagerView *>(&m); }

// Points file descriptor 1 at a temporary file for its lifetime; text() reads what came.
class CaptureStdout {
 public:
  CaptureStdout() {
    std::fflush(stdout);
    file_ = std::tmpfile();
    saved_ = dup(1);
    dup2(fileno(file_), 1);
  }
  ~CaptureStdout() {
    finish();
    std::fclose(file_);
  }
  std::string text() {
    finish();
    std::string all;
    std::rewind(file_);
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, file_)) > 0) all.append(buf, n);
    return all;
  }

 private:
  void finish() {
    if (saved_ < 0) return;
    std::fflush(stdout);
    dup2(saved_, 1);
    close(saved_);
    saved_ = -1;
  }
  std::FILE *file_ = nullptr;
  int saved_ = -1;
};

inline int count_of(const std::string &text, const std::string &what) {
  int n = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

}  // namespace qkm_test
