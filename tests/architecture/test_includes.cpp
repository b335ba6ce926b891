// Each source folder includes only what docs/ARCHITECTURE.md allows it: the kernels see frame/
// and kernels.h, the services see public headers only, the platform knows nothing of the
// library. A new source folder must be added to the table (and to the document).
#include <gtest/gtest.h>

#include <dirent.h>

#include <fstream>
#include <string>
#include <vector>

namespace {

// Public headers of the platform library.
const std::vector<std::string> kPlatformPublic = {
    "QORBaseUnknown.h", "QORCollections.h", "QORError.h",  "QORExport.h", "QORFile.h",
    "QORFortranRT.h",   "QORMemory.h",      "QORString.h", "QORSystem.h", "QORTrace.h"};

struct Rule {
  const char *folder;
  std::vector<std::string> allowed;  // exact names, or prefixes ending in '/' or '*'
};

std::vector<Rule> rules() {
  const std::vector<std::string> kernel = {"frame/", "kernels.h", "QORExport.h", "QORSystem.h",
                                           "QORFortranRT.h"};
  auto with = [](std::vector<std::string> v, std::vector<std::string> more) {
    v.insert(v.end(), more.begin(), more.end());
    return v;
  };
  std::vector<Rule> r;
  for (const char *f : {"frame", "dense", "packed", "factor", "eigen", "sparse"})
    r.push_back({f, with(kernel, {std::string(f) + "/"})});
  // Spatial search stands alone: its public header, the platform's largest double, itself.
  r.push_back({"spatial", {"QORLunOctree.h", "QORExport.h", "QORSystem.h", "spatial/"}});
  r.push_back({"services", with(kPlatformPublic, {"QORKyt*", "kernels.h", "services/", "common/"})});
  r.push_back({"platform", with(kPlatformPublic, {"platform/", "common/"})});
  r.push_back({"common", {}});
  // The sample solver is an application: the public headers and its own.
  r.push_back({"solver", with(kPlatformPublic, {"QORKyt*", "QORLun*", "kernels.h", "./"})});
  r.push_back({"include", with(kPlatformPublic, {"QORKyt*", "QORLun*", "kernels.h"})});
  return r;
}

bool allowed(const std::string &name, const std::vector<std::string> &list) {
  for (const auto &a : list) {
    // "./": a header of the folder itself, named without a path.
    if (a == "./" && name.find('/') == std::string::npos && name.ends_with(".h")) return true;
    if (a.back() == '/' || a.back() == '*') {
      if (name.compare(0, a.size() - 1, a, 0, a.size() - 1) == 0) return true;
    } else if (name == a) {
      return true;
    }
  }
  return false;
}

std::vector<std::string> files(const std::string &dir) {
  std::vector<std::string> out;
  if (DIR *d = opendir(dir.c_str())) {
    while (dirent *e = readdir(d)) {
      const std::string n = e->d_name;
      if (n.size() > 2 && (n.ends_with(".cpp") || n.ends_with(".h"))) out.push_back(n);
    }
    closedir(d);
  }
  return out;
}

// The quoted includes of a file.
std::vector<std::string> includes(const std::string &path) {
  std::vector<std::string> out;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    const auto at = line.find("#include \"");
    if (at == std::string::npos || line.find_first_not_of(' ') != at) continue;
    const auto b = at + 10, e = line.find('"', b);
    if (e != std::string::npos) out.push_back(line.substr(b, e - b));
  }
  return out;
}

TEST(Architecture, EachFolderIncludesOnlyWhatItIsAllowed) {
  const std::string root = QKM_SOURCE_DIR;
  int checked = 0;
  for (const auto &rule : rules()) {
    // The platform's public headers may not see the kernel library's.
    for (const auto &f : files(root + "/" + rule.folder)) {
      const bool platform_header =
          std::string(rule.folder) == "include" && allowed(f, kPlatformPublic);
      for (const auto &inc : includes(root + "/" + rule.folder + "/" + f)) {
        ++checked;
        EXPECT_TRUE(platform_header ? allowed(inc, kPlatformPublic) : allowed(inc, rule.allowed))
            << rule.folder << "/" << f << " includes \"" << inc << "\"";
      }
    }
  }
  EXPECT_GT(checked, 50);
}

TEST(Architecture, EverySourceFolderHasARule) {
  const auto r = rules();
  DIR *d = opendir(QKM_SOURCE_DIR);
  ASSERT_NE(d, nullptr);
  while (dirent *e = readdir(d)) {
    const std::string n = e->d_name;
    if (n[0] == '.' || n == "tests" || n == "bench" || n == "examples" || n == "fuzz" || n.starts_with("build"))
      continue;
    if (files(std::string(QKM_SOURCE_DIR) + "/" + n).empty()) continue;
    bool known = false;
    for (const auto &rule : r) known = known || n == rule.folder;
    EXPECT_TRUE(known) << "folder " << n << " has no include rule";
  }
  closedir(d);
}

}  // namespace
