#include "QORSystem.h"

#include <cstdlib>

extern "C" const char *QORGetEnv(const char *name) {
  if (name == nullptr) return nullptr;
  return std::getenv(name);
}
