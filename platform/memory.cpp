#include "QORMemory.h"

#include <cstdlib>

#include "platform/fault_injection.h"

extern "C" void *QORUnsecuredMemAlloc(size_t size) {
  if (qor::fault::should_fail(qor::fault::Op::MemAlloc)) return nullptr;
  return std::malloc(size);
}

extern "C" void *QORUnsecuredMemRealloc(void *block, size_t size) {
  if (qor::fault::should_fail(qor::fault::Op::MemRealloc)) return nullptr;
  return std::realloc(block, size);
}
