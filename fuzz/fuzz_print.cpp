// The listing, the trace switches and the print entries in any order: texts from the input,
// formats from a fixed set (a format is the caller's contract), listings opened, moved and
// closed in two scratch folders.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "QORKytListing.h"
#include "kernels.h"

namespace {

std::string g_dirs[2];

void empty_folder(const std::string &dir) {
  if (DIR *d = ::opendir(dir.c_str())) {
    while (const dirent *e = ::readdir(d))
      if (e->d_name[0] != '.') ::unlink((dir + "/" + e->d_name).c_str());
    ::closedir(d);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  for (auto &dir : g_dirs) {
    char path[] = "/tmp/qkm_fuzz_print_XXXXXX";
    if (::mkdtemp(path) != nullptr) dir = path;
  }
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 0;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const char *const kTraces[] = {"KYTPrint", "KYTCompute", "KYTError", "KYTOutput", ""};
  static const char *const kFormats[] = {"%g", "%f", "%.17e", "value = %12.4E", "%.300f", "%a",
                                         "no conversion", ""};
  size_t i = 0;
  auto byte = [&] { return i < size ? data[i++] : 0u; };
  // A text: the following bytes up to a zero byte or the end.
  auto text = [&] {
    std::string s;
    while (i < size && data[i] != 0) s.push_back(static_cast<char>(data[i++]));
    if (i < size) ++i;
    return s;
  };
  while (i < size) {
    switch (byte() % 7) {
      case 0: {
        const std::string t = text();
        ehprint(t.c_str(), t.size());
        break;
      }
      case 1: {
        const std::string t = text();
        uint32_t u = 0;
        for (int k = 0; k < 4; ++k) u |= static_cast<uint32_t>(byte()) << (8 * k);
        const qkm_int v = static_cast<qkm_int>(u);
        ehprini(t.c_str(), &v, t.size());
        break;
      }
      case 2: {
        uint64_t b = 0;
        for (int k = 0; k < 8; ++k) b |= static_cast<uint64_t>(byte()) << (8 * k);
        double v;
        __builtin_memcpy(&v, &b, sizeof v);
        ehprinr(kFormats[byte() % 8], &v, 1);
        break;
      }
      case 3: {
        const unsigned pick = byte() % 6;
        const std::string name = pick < 5 ? kTraces[pick] : text();
        QORKYTTraceState(name.c_str(), static_cast<int>(byte() % 2));
        break;
      }
      case 4:
        QORKytListingServices::Set(QORUnicodeString(g_dirs[byte() % 2].c_str()));
        break;
      case 5:
        QORKytListingServices::Reset();
        break;
      case 6: {
        const std::string t = text();
        qkm_int code = static_cast<qkm_int>(byte()), status = 0;
        ehrprog(&code, t.c_str(), &status, t.size());
        break;
      }
    }
  }
  QORKytListingServices::Reset();
  for (const auto &dir : g_dirs) empty_folder(dir);
  for (const char *name : kTraces) QORKYTTraceState(name, 1);
  return 0;
}
