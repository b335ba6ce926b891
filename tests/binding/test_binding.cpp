// The library's calls to its own exported kernels are bound inside it: a library loaded ahead
// of it that exports wrong e_dscal, e_daxpy and eagemm changes none of its results, while a
// direct call from the program does reach the stand-in (so the preload did take effect).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

std::string run(const std::string &env) {
  std::string out;
  FILE *p = popen((env + " '" QKM_PROBE "'").c_str(), "r");
  if (p == nullptr) return out;
  char buf[4096];
  while (fgets(buf, sizeof buf, p) != nullptr) out += buf;
  pclose(p);
  return out;
}

std::string line(const std::string &all, const std::string &tag) {
  const auto at = all.find(tag + " ");
  return at == std::string::npos ? std::string() : all.substr(at, all.find('\n', at) - at);
}

}  // namespace

TEST(Binding, PreloadedKernelsChangeNoneOfTheLibrarysResults) {
  const std::string plain = run("ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0");
  const std::string preloaded =
      run("ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0 LD_PRELOAD='" QKM_WRONG_KERNELS "'");
  ASSERT_FALSE(line(plain, "own").empty()) << plain;
  EXPECT_EQ(line(plain, "own"), line(preloaded, "own"));
  ASSERT_FALSE(line(preloaded, "direct").empty()) << preloaded;
  EXPECT_NE(line(plain, "direct"), line(preloaded, "direct"));
}
