// Each shared library exports exactly the names of its checked-in lists: a missing name or a
// leaked one (a helper, an inline template instantiation) fails here.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <utility>

namespace {

std::set<std::string> dynamic_symbols(const std::string &so) {
  std::set<std::string> names;
  const std::string cmd = "nm -D --defined-only '" + so + "'";
  FILE *p = popen(cmd.c_str(), "r");
  if (p == nullptr) return names;
  char line[4096];
  while (fgets(line, sizeof line, p) != nullptr) {
    std::istringstream in(line);
    std::string addr, type, name;
    if (!(in >> addr >> type >> name)) continue;
    if (type == "A") continue;  // version nodes
    const auto at = name.find('@');
    if (at != std::string::npos) name.resize(at);
    // AddressSanitizer adds an ODR indicator beside each exported variable.
    if (name.rfind("__odr_asan", 0) == 0) continue;
    names.insert(name);
  }
  pclose(p);
  return names;
}

std::set<std::string> listed(const std::string &files) {
  std::set<std::string> names;
  std::istringstream paths(files);
  std::string path;
  while (std::getline(paths, path, ':')) {
    std::ifstream f(path);
    EXPECT_TRUE(f.good()) << path;
    std::string line;
    while (std::getline(f, line)) {
      if (line.empty() || line[0] == '#') continue;
      names.insert(line);
    }
  }
  return names;
}

void expect_same(const std::string &so, const std::string &lists) {
  const auto actual = dynamic_symbols(so);
  const auto expected = listed(lists);
  ASSERT_FALSE(actual.empty()) << "no symbols read from " << so;
  for (const auto &name : expected) EXPECT_TRUE(actual.count(name)) << "missing: " << name;
  for (const auto &name : actual) EXPECT_TRUE(expected.count(name)) << "leaked: " << name;
}

}  // namespace

TEST(Exports, KernelLibraryExportsExactlyItsList) { expect_same(QKM_KERNEL_SO, QKM_KERNEL_LISTS); }

TEST(Exports, PlatformLibraryExportsExactlyItsList) {
  expect_same(QKM_PLATFORM_SO, QKM_PLATFORM_LISTS);
}

TEST(Exports, LibrariesHaveTheirSonames) {
  for (const auto &[so, soname] : {std::pair{QKM_KERNEL_SO, "libQORKYTMathKernel.so.1"},
                                   std::pair{QKM_PLATFORM_SO, "libQORKytPlatform.so.1"}}) {
    FILE *p = popen(("objdump -p '" + std::string(so) + "'").c_str(), "r");
    ASSERT_NE(p, nullptr);
    std::string all;
    char buf[4096];
    while (fgets(buf, sizeof buf, p) != nullptr) all += buf;
    pclose(p);
    EXPECT_NE(all.find(std::string("SONAME               ") + soname), std::string::npos) << all;
  }
}
