// Test support for the services: temporary folders, whole-file reads, and a capture of the
// descriptor behind standard output.
#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace qkm_test {

inline std::string read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream all;
  all << in.rdbuf();
  return all.str();
}

inline void write_file(const std::string &path, const std::string &text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

inline bool exists(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

inline std::vector<std::string> list_folder(const std::string &dir) {
  std::vector<std::string> names;
  if (DIR *d = ::opendir(dir.c_str())) {
    while (dirent *e = ::readdir(d))
      if (std::string n = e->d_name; n != "." && n != "..") names.push_back(n);
    ::closedir(d);
  }
  return names;
}

// A fresh folder under the temporary directory, removed with its files at the end.
class TempDir {
 public:
  TempDir() {
    const char *base = std::getenv("TMPDIR");
    std::string tmpl = std::string(base != nullptr ? base : "/tmp") + "/qkm_test_XXXXXX";
    if (::mkdtemp(tmpl.data()) != nullptr) path_ = tmpl;
  }
  ~TempDir() {
    for (const auto &n : list_folder(path_)) ::unlink((path_ + "/" + n).c_str());
    ::rmdir(path_.c_str());
  }
  const std::string &path() const { return path_; }
  std::string operator/(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Points descriptor 1 at a temporary file until text() is called; intact() tells whether
// descriptor 1 still refers to that file (nothing left it redirected elsewhere).
class StdoutCapture {
 public:
  StdoutCapture() {
    std::fflush(stdout);
    char path[] = "/tmp/qkm_stdout_XXXXXX";
    fd_ = ::mkstemp(path);
    path_ = path;
    saved_ = ::dup(1);
    ::dup2(fd_, 1);
  }
  ~StdoutCapture() { text(); }
  bool intact() const {
    struct stat a, b;
    return ::fstat(1, &a) == 0 && ::fstat(fd_, &b) == 0 && a.st_ino == b.st_ino &&
           a.st_dev == b.st_dev;
  }
  std::string text() {
    if (saved_ >= 0) {
      std::fflush(stdout);
      ::dup2(saved_, 1);
      ::close(saved_);
      saved_ = -1;
      text_ = read_file(path_);
      ::close(fd_);
      ::unlink(path_.c_str());
    }
    return text_;
  }

 private:
  int fd_ = -1, saved_ = -1;
  std::string path_, text_;
};

}  // namespace qkm_test
