#include "QORSystem.h"
#include "platform/nls.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <utility>

namespace qor::nls {
namespace {

bool is_key_char(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

void skip_blanks(const std::string &s, size_t &i) {
  while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) ++i;
}

// Reads one line `KEY.Field = "text";`. Returns false when the line is not an entry.
bool parse_line(const std::string &line, std::string &key, std::string &field,
                std::string &text) {
  if (line.find('\0') != std::string::npos) return false;
  size_t i = 0;
  skip_blanks(line, i);
  const size_t k0 = i;
  while (i < line.size() && is_key_char(static_cast<unsigned char>(line[i]))) ++i;
  if (i == k0 || i >= line.size() || line[i] != '.') return false;
  key.assign(line, k0, i - k0);
  ++i;
  const size_t f0 = i;
  while (i < line.size() && is_key_char(static_cast<unsigned char>(line[i]))) ++i;
  field.assign(line, f0, i - f0);
  if (field != "Request" && field != "Diagnostic" && field != "Advice") return false;
  skip_blanks(line, i);
  if (i >= line.size() || line[i] != '=') return false;
  ++i;
  skip_blanks(line, i);
  if (i >= line.size() || line[i] != '"') return false;
  ++i;
  text.clear();
  bool closed = false;
  while (i < line.size()) {
    const char c = line[i++];
    if (c == '"') {
      closed = true;
      break;
    }
    if (c == '\\' && i < line.size()) {
      const char e = line[i++];
      switch (e) {
        case 'n': text += '\n'; break;
        case 't': text += '\t'; break;
        case '"': text += '"'; break;
        case '\\': text += '\\'; break;
        default:  // unknown escapes stay as written
          text += '\\';
          text += e;
      }
      continue;
    }
    text += c;
  }
  if (!closed) return false;  // truncated: no closing quote
  // After the text: an optional ';' and an optional comment, nothing else.
  skip_blanks(line, i);
  if (i < line.size() && line[i] == ';') ++i;
  skip_blanks(line, i);
  if (i < line.size() && line.compare(i, 2, "//") != 0) return false;
  return true;
}

bool is_file(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// The folder that holds the binary this reader was linked into.
std::string own_folder() {
  Dl_info info;
  if (::dladdr(reinterpret_cast<void *>(&own_folder), &info) == 0 || info.dli_fname == nullptr)
    return std::string();
  std::string path = info.dli_fname;
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return path.substr(0, slash);
}

}  // namespace

Catalog parse(const std::string &all) {
  Catalog catalog;
  size_t start = 0;
  if (all.compare(0, 3, "\xEF\xBB\xBF") == 0) start = 3;  // byte-order mark
  std::string key, field, text;
  while (start < all.size()) {
    size_t end = all.find('\n', start);
    if (end == std::string::npos) end = all.size();
    std::string line = all.substr(start, end - start);
    start = end + 1;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!parse_line(line, key, field, text)) continue;
    Message &m = catalog[key];
    if (field == "Request")
      m.request = text;
    else if (field == "Diagnostic")
      m.diagnostic = text;
    else
      m.advice = text;
  }
  return catalog;
}

std::vector<std::string> search_folders() {
  std::vector<std::string> folders;
  if (const char *env = QORGetEnv("QOR_MESSAGE_CATALOG_PATH")) {
    std::string list = env;
    size_t s = 0;
    while (s <= list.size()) {
      size_t e = list.find(':', s);
      if (e == std::string::npos) e = list.size();
      if (e > s) folders.push_back(list.substr(s, e - s));
      s = e + 1;
    }
  }
#ifdef QKM_INSTALL_CATALOG_DIR
  folders.push_back(QKM_INSTALL_CATALOG_DIR);
#endif
  const std::string own = own_folder();
  if (!own.empty()) {
    folders.push_back(own + "/catalogs");                          // build tree: <build>/
    folders.push_back(own + "/../catalogs");                       // <build>/tests/...
    folders.push_back(own + "/../share/QORKYTMathKernel/catalogs");  // relocated install
  }
  return folders;
}

std::string find_catalog(const char *name) {
  if (name == nullptr || *name == '\0' || std::strchr(name, '/') != nullptr) return std::string();
  for (const auto &folder : search_folders()) {
    const std::string path = folder + "/" + name + ".nls";
    if (is_file(path)) return path;
  }
  return std::string();
}

namespace {

// Parsed catalogs of the process, by path. An entry is reused while the file's identity,
// size and modification and change times are those it was read with; any difference re-reads
// the file.
struct Parsed {
  dev_t dev;
  ino_t ino;
  off_t size;
  timespec mtime, ctime;
  Catalog catalog;
  bool same_file(const struct stat &st) const {
    return dev == st.st_dev && ino == st.st_ino && size == st.st_size &&
           mtime.tv_sec == st.st_mtim.tv_sec && mtime.tv_nsec == st.st_mtim.tv_nsec &&
           ctime.tv_sec == st.st_ctim.tv_sec && ctime.tv_nsec == st.st_ctim.tv_nsec;
  }
};

std::mutex g_cache_lock;
std::map<std::string, Parsed> g_cache;
std::atomic<unsigned long> g_parses{0};

}  // namespace

unsigned long parse_count() { return g_parses.load(std::memory_order_relaxed); }

bool lookup(const char *name, const char *id, Message &out) {
  if (id == nullptr || *id == '\0') return false;
  try {
    const std::string path = find_catalog(name);
    if (path.empty()) return false;
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return false;
    std::lock_guard<std::mutex> hold(g_cache_lock);
    auto it = g_cache.find(path);
    if (it == g_cache.end() || !it->second.same_file(st)) {
      std::ifstream in(path, std::ios::binary);
      if (!in) return false;
      std::ostringstream all;
      all << in.rdbuf();
      Parsed fresh{st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim, parse(all.str())};
      g_parses.fetch_add(1, std::memory_order_relaxed);
      it = g_cache.insert_or_assign(path, std::move(fresh)).first;
    }
    const auto m = it->second.catalog.find(id);
    if (m == it->second.catalog.end()) return false;
    out = m->second;
    return true;
  } catch (...) {  // exhausted memory: the message is reported as missing
    return false;
  }
}

std::string fill(const std::string &text, const std::vector<std::string> &params) {
  std::string r;
  r.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    if (text[i] == '/' && i + 2 < text.size() + 0 && text[i + 1] == 'p' &&
        text[i + 2] >= '0' && text[i + 2] <= '9') {
      // Two digits when they make a position from 10 to 25, else one digit from 1 to 9.
      int n = text[i + 2] - '0';
      size_t len = 3;
      if (i + 3 < text.size() && text[i + 3] >= '0' && text[i + 3] <= '9') {
        const int two = n * 10 + (text[i + 3] - '0');
        if (two >= 10 && two <= 25) {
          n = two;
          len = 4;
        }
      }
      if (n >= 1 && n <= 25) {
        if (static_cast<size_t>(n) <= params.size()) r += params[n - 1];
        i += len;
        continue;
      }
    }
    r += text[i++];
  }
  return r;
}

}  // namespace qor::nls
