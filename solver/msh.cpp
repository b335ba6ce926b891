// Gmsh MSH 4.1 ASCII: a strict line-by-line reader of the sections a volume mesh needs, and
// the writer of the generated meshes.
//
// The reader takes one record per line, as Gmsh writes them, so that every complaint can
// name the line at fault. Blank lines are ignored. Unknown sections ($Entities, $PhysicalNames,
// $NodeData, ...) are skipped up to their $End line. Only the nodes that a volume element uses
// are kept, renumbered 1..nn in the order of the file.
#include "msh.h"

#include <algorithm>
#include <charconv>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
#include <sstream>
#include <unordered_map>

namespace qks {

namespace {

// A parse failure: the line it refers to and the sentence after "<file>:<line>: ".
struct Failure {
  long line;
  std::string what;
};

class Reader {
 public:
  explicit Reader(std::istream &in) : in_(in) {}

  // The next non-blank line split into words; false at the end of the file.
  bool next() {
    std::string text;
    while (std::getline(in_, text)) {
      ++line_;
      if (!text.empty() && text.back() == '\r') text.pop_back();
      words_.clear();
      std::istringstream split(text);
      for (std::string w; split >> w;) words_.push_back(w);
      if (!words_.empty()) {
        text_ = text;
        return true;
      }
    }
    ++line_;  // the end of the file is reported on the line after the last one
    text_.clear();
    words_.clear();
    at_end_ = true;
    return false;
  }
  // The next line, which must exist.
  void need(const std::string &what) {
    if (!next()) fail(what);
  }
  [[noreturn]] void fail(const std::string &what) const {
    std::string shown = at_end_ ? "end of file" : "'" + trimmed() + "'";
    throw Failure{line_, "expected " + what + ", found " + shown};
  }
  // The current line must be exactly `word`.
  void expect_line(const std::string &word) {
    if (words_.size() != 1 || words_[0] != word) fail(word);
  }
  // The current line must hold `n` words.
  void expect_words(std::size_t n, const std::string &what) {
    if (words_.size() != n) fail(what);
  }

  long long integer(std::size_t i, const std::string &what, long long lo) const {
    const char *s = words_[i].c_str();
    char *end = nullptr;
    errno = 0;
    const long long v = std::strtoll(s, &end, 10);
    if (errno != 0 || end == s || *end != '\0' || v < lo) fail_word(i, what);
    return v;
  }
  double real(std::size_t i, const std::string &what) const {
    const char *s = words_[i].c_str();
    char *end = nullptr;
    const double v = std::strtod(s, &end);
    if (end == s || *end != '\0' || !std::isfinite(v)) fail_word(i, what);
    return v;
  }
  [[noreturn]] void fail_word(std::size_t i, const std::string &what) const {
    throw Failure{line_, "expected " + what + ", found '" + words_[i] + "'"};
  }

  const std::vector<std::string> &words() const { return words_; }
  long line() const { return line_; }

 private:
  std::string trimmed() const {
    const std::size_t a = text_.find_first_not_of(" \t");
    const std::size_t b = text_.find_last_not_of(" \t");
    std::string t = text_.substr(a, b - a + 1);
    if (t.size() > 60) t = t.substr(0, 57) + "...";
    for (char &c : t)
      if (static_cast<unsigned char>(c) < 32 || static_cast<unsigned char>(c) > 126) c = '?';
    return t;
  }

  std::istream &in_;
  std::vector<std::string> words_;
  std::string text_;
  long line_ = 0;
  bool at_end_ = false;
};

// Grows a vector towards a count from the file without trusting a huge one.
template <class T>
void reserve_some(std::vector<T> &v, long long n) {
  v.reserve(static_cast<std::size_t>(std::min<long long>(n, 1 << 20)));
}

struct Parsed {
  std::vector<double> xyz;                         // every node of the file, in file order
  std::unordered_map<long long, qkm_int> tag_to;   // node tag -> position from 0
  bool have_nodes = false, have_elements = false;
  int per_element = 0;                             // 8, 4 or 0 while none seen
  std::vector<qkm_int> econn;                      // positions in xyz, from 0
};

void read_format(Reader &r) {
  r.need("the version line '4.1 0 8'");
  r.expect_words(3, "the version line '4.1 0 8'");
  const std::string &version = r.words()[0];
  char *end = nullptr;
  const double v = std::strtod(version.c_str(), &end);
  if (*end != '\0' || !(v >= 4.1 && v < 5.0)) r.fail_word(0, "MSH version 4.1 (or a later 4.x)");
  if (r.words()[1] != "0") r.fail_word(1, "file type 0 (ASCII; binary files are not read)");
  r.integer(2, "the data size", 1);
  r.need("$EndMeshFormat");
  r.expect_line("$EndMeshFormat");
}

// The header line of $Nodes and $Elements: block count, item count and the tag range.
void section_counts(Reader &r, const std::string &item, const std::string &plural,
                    long long &blocks, long long &total) {
  const std::string header =
      "the " + item + " counts 'numEntityBlocks num" + plural + " minTag maxTag'";
  const std::string article = item[0] == 'e' ? "an " : "a ";
  r.need(header);
  r.expect_words(4, header);
  blocks = r.integer(0, "a block count", 0);
  total = r.integer(1, article + item + " count", 0);
  r.integer(2, article + item + " tag", 0);
  r.integer(3, article + item + " tag", 0);
}

void read_nodes(Reader &r, Parsed &p) {
  if (p.have_nodes) r.fail("a single $Nodes section");
  p.have_nodes = true;
  long long blocks = 0, total = 0;
  section_counts(r, "node", "Nodes", blocks, total);
  reserve_some(p.xyz, 3 * total);
  long long seen = 0;
  for (long long b = 0; b < blocks; ++b) {
    const std::string block = "a node block 'entityDim entityTag parametric numNodes'";
    r.need(block);
    r.expect_words(4, block);
    const long long dim = r.integer(0, "an entity dimension 0 to 3", 0);
    if (dim > 3) r.fail_word(0, "an entity dimension 0 to 3");
    r.integer(1, "an entity tag", -(1LL << 62));
    if (r.words()[2] != "0") r.fail_word(2, "parametric flag 0");
    const long long n = r.integer(3, "a node count", 0);
    if (n > total - seen) r.fail_word(3, "at most " + std::to_string(total - seen) + " more nodes");
    const qkm_int first = static_cast<qkm_int>(p.xyz.size() / 3);
    for (long long i = 0; i < n; ++i) {
      r.need("a node tag");
      r.expect_words(1, "one node tag");
      const long long tag = r.integer(0, "a node tag", 1);
      if (!p.tag_to.emplace(tag, first + static_cast<qkm_int>(i)).second)
        r.fail_word(0, "a node tag not used before");
    }
    for (long long i = 0; i < n; ++i) {
      r.need("node coordinates 'x y z'");
      r.expect_words(3, "node coordinates 'x y z'");
      for (std::size_t c = 0; c < 3; ++c) p.xyz.push_back(r.real(c, "a coordinate"));
    }
    seen += n;
  }
  r.need("$EndNodes");
  if (seen != total) r.fail(std::to_string(total) + " nodes as the $Nodes header says, " +
                            "not " + std::to_string(seen) + ", before this");
  r.expect_line("$EndNodes");
}

void read_elements(Reader &r, Parsed &p) {
  if (!p.have_nodes) r.fail("$Nodes before $Elements");
  if (p.have_elements) r.fail("a single $Elements section");
  p.have_elements = true;
  long long blocks = 0, total = 0;
  section_counts(r, "element", "Elements", blocks, total);
  long long seen = 0;
  for (long long b = 0; b < blocks; ++b) {
    const std::string block = "an element block 'entityDim entityTag type numElements'";
    r.need(block);
    r.expect_words(4, block);
    r.integer(0, "an entity dimension", 0);
    r.integer(1, "an entity tag", -(1LL << 62));
    const long long type = r.integer(2, "an element type", 1);
    const long long n = r.integer(3, "an element count", 0);
    if (n > total - seen)
      r.fail_word(3, "at most " + std::to_string(total - seen) + " more elements");
    const int per = type == 5 ? 8 : type == 4 ? 4 : 0;
    if (per != 0 && n > 0) {
      if (p.per_element != 0 && p.per_element != per)
        r.fail_word(2, std::string("elements of one volume type (") +
                           (p.per_element == 8 ? "hexahedra, type 5" : "tetrahedra, type 4") +
                           " so far)");
      p.per_element = per;
      reserve_some(p.econn, p.econn.size() + per * n);
    }
    for (long long e = 0; e < n; ++e) {
      r.need("an element line");
      if (per == 0) continue;
      const std::string line = "an element tag and " + std::to_string(per) + " node tags";
      r.expect_words(1 + per, line);
      r.integer(0, "an element tag", 1);
      for (int k = 1; k <= per; ++k) {
        const auto it = p.tag_to.find(r.integer(k, "a node tag", 1));
        if (it == p.tag_to.end()) r.fail_word(k, "a node tag defined in $Nodes");
        p.econn.push_back(it->second);
      }
    }
    seen += n;
  }
  r.need("$EndElements");
  if (seen != total) r.fail(std::to_string(total) + " elements as the $Elements header says, " +
                            "not " + std::to_string(seen) + ", before this");
  r.expect_line("$EndElements");
  if (p.per_element == 0) r.fail("hexahedra (type 5) or tetrahedra (type 4) before this");
}

// Skips an unknown section up to its $End line.
void skip_section(Reader &r, const std::string &name) {
  const std::string end = "$End" + name.substr(1);
  do r.need(end);
  while (!(r.words().size() == 1 && r.words()[0] == end));
}

void parse(std::istream &in, Parsed &p) {
  Reader r(in);
  r.need("$MeshFormat");
  r.expect_line("$MeshFormat");
  read_format(r);
  while (r.next()) {
    const std::string &w = r.words()[0];
    if (r.words().size() != 1 || w.size() < 2 || w[0] != '$' || w.compare(0, 4, "$End") == 0)
      r.fail("a section such as $Nodes or $Elements");
    if (w == "$Nodes") read_nodes(r, p);
    else if (w == "$Elements") read_elements(r, p);
    else if (w == "$MeshFormat") r.fail("a single $MeshFormat section");
    else skip_section(r, w);
  }
  if (!p.have_elements) r.fail("an $Elements section");
}

// The mesh of the volume elements: used nodes only, renumbered in file order.
Mesh assemble(const Parsed &p) {
  Mesh m;
  m.cell = p.per_element == 8 ? Cell::Hex8 : Cell::Tet4;
  std::vector<qkm_int> number(p.xyz.size() / 3, 0);
  for (qkm_int pos : p.econn) number[pos] = 1;
  qkm_int nn = 0;
  for (std::size_t i = 0; i < number.size(); ++i) {
    if (number[i] == 0) continue;
    number[i] = ++nn;
    m.xyz.insert(m.xyz.end(), &p.xyz[3 * i], &p.xyz[3 * i + 3]);
  }
  m.econn.reserve(p.econn.size());
  for (qkm_int pos : p.econn) m.econn.push_back(number[pos]);
  const std::size_t ne = p.econn.size() / p.per_element;
  m.eptr.resize(ne + 1);
  for (std::size_t e = 0; e <= ne; ++e) m.eptr[e] = static_cast<qkm_int>(e * p.per_element);
  return m;
}

// The shortest text that reads back as the same double.
std::string exact(double v) {
  char buf[32];
  return std::string(buf, std::to_chars(buf, buf + sizeof buf, v).ptr);
}

}  // namespace

bool read_msh(const std::string &path, Mesh &mesh, std::string &error) {
  try {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
      error = path + ": cannot open: " + std::strerror(errno);
      return false;
    }
    Parsed p;
    parse(in, p);
    Mesh m = assemble(p);
    if (m.nodes() > 0x7fffffff / 3) {
      error = path + ": too many nodes";
      return false;
    }
    mesh = std::move(m);
    return true;
  } catch (const Failure &f) {
    error = path + ":" + std::to_string(f.line) + ": " + f.what;
  } catch (const std::bad_alloc &) {
    error = path + ": out of memory while reading";
  } catch (const std::exception &e) {
    error = path + ": " + e.what();
  }
  return false;
}

bool write_msh(const std::string &path, const Mesh &mesh, std::string &error) {
  FILE *f = std::fopen(path.c_str(), "w");
  if (f == nullptr) {
    error = path + ": cannot write: " + std::strerror(errno);
    return false;
  }
  const qkm_int nn = mesh.nodes(), ne = mesh.elements(), per = mesh.per_element();
  double lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
  if (nn > 0) bounds(mesh, lo, hi);
  // One volume entity with its bounding box, no physical groups and no bounding surfaces.
  std::fprintf(f, "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Entities\n0 0 0 1\n");
  std::fprintf(f, "1 %s %s %s %s %s %s 0 0\n$EndEntities\n", exact(lo[0]).c_str(),
               exact(lo[1]).c_str(), exact(lo[2]).c_str(), exact(hi[0]).c_str(),
               exact(hi[1]).c_str(), exact(hi[2]).c_str());
  std::fprintf(f, "$Nodes\n1 %d 1 %d\n3 1 0 %d\n", nn, nn, nn);
  for (qkm_int i = 1; i <= nn; ++i) std::fprintf(f, "%d\n", i);
  for (qkm_int i = 0; i < nn; ++i)
    std::fprintf(f, "%s %s %s\n", exact(mesh.xyz[3 * i]).c_str(),
                 exact(mesh.xyz[3 * i + 1]).c_str(), exact(mesh.xyz[3 * i + 2]).c_str());
  std::fprintf(f, "$EndNodes\n$Elements\n1 %d 1 %d\n3 1 %d %d\n", ne, ne,
               mesh.cell == Cell::Hex8 ? 5 : 4, ne);
  for (qkm_int e = 0; e < ne; ++e) {
    std::fprintf(f, "%d", e + 1);
    for (int k = 0; k < per; ++k) std::fprintf(f, " %d", mesh.econn[mesh.eptr[e] + k]);
    std::fputc('\n', f);
  }
  std::fprintf(f, "$EndElements\n");
  const bool bad = std::ferror(f) != 0;
  if (std::fclose(f) != 0 || bad) {
    error = path + ": write failed";
    return false;
  }
  return true;
}

}  // namespace qks
