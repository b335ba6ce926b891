// The catalog reader on arbitrary bytes: parsing, then filling every message read with
// parameters, must neither crash nor read outside its input.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/nls.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  const qor::nls::Catalog catalog = qor::nls::parse(text);
  const std::vector<std::string> params = {"1", "two", "", "/p1", "%s%n"};
  for (const auto &[key, m] : catalog) {
    (void)key;
    for (const std::string *field : {&m.request, &m.diagnostic, &m.advice})
      (void)qor::nls::fill(*field, params);
  }
  return 0;
}
