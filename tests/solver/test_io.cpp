// Mesh files, VTU and PNG outputs, and field transfer of the sample solver.
#include <cairo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

#include "msh.h"
#include "output.h"
#include "transfer.h"

namespace {

std::string temp_path(const std::string &name) { return ::testing::TempDir() + "qks_io_" + name; }

void write_text(const std::string &path, const std::string &text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string read_text(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

double tet_volume(const qks::Mesh &m, qkm_int e) {
  const qkm_int *c = &m.econn[m.eptr[e]];
  double d[3][3];
  for (int i = 0; i < 3; ++i)
    for (int a = 0; a < 3; ++a) d[i][a] = m.xyz[3 * (c[i + 1] - 1) + a] - m.xyz[3 * (c[0] - 1) + a];
  return (d[0][0] * (d[1][1] * d[2][2] - d[1][2] * d[2][1]) -
          d[0][1] * (d[1][0] * d[2][2] - d[1][2] * d[2][0]) +
          d[0][2] * (d[1][0] * d[2][1] - d[1][1] * d[2][0])) /
         6.0;
}

// One tetrahedron; lines 1-20.
const char *kTet =
    "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n"
    "$Nodes\n1 4 1 4\n3 1 0 4\n1\n2\n3\n4\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n$EndNodes\n"
    "$Elements\n1 1 1 1\n3 1 4 1\n1 1 2 3 4\n$EndElements\n";

std::string replaced(std::string s, const std::string &from, const std::string &to) {
  const std::size_t at = s.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? s : s.replace(at, from.size(), to);
}

TEST(Msh, RefusesBrokenFilesNamingTheLine) {
  const std::string ok = kTet;
  const struct {
    const char *name;
    std::string text;
    int line;
    const char *word;
  } cases[] = {
      {"empty", "", 1, "end of file"},
      {"no header", replaced(ok, "$MeshFormat\n", ""), 1, "$MeshFormat"},
      {"not text", std::string("\x89\x01\x02 PNG\n"), 1, "'??? PNG'"},
      {"binary", replaced(ok, "4.1 0 8", "4.1 1 8"), 2, "binary"},
      {"old version", replaced(ok, "4.1 0 8", "2.2 0 8"), 2, "version"},
      {"header without end", replaced(ok, "$EndMeshFormat\n", ""), 3, "$EndMeshFormat"},
      {"count not a number", replaced(ok, "1 4 1 4", "1 four 1 4"), 5, "'four'"},
      {"block above the total", replaced(ok, "3 1 0 4", "3 1 0 5"), 6, "more nodes"},
      {"total above the blocks", replaced(ok, "1 4 1 4", "1 5 1 5"), 15, "5 nodes"},
      {"parametric nodes", replaced(ok, "3 1 0 4", "3 1 1 4"), 6, "parametric"},
      {"duplicate tag", replaced(ok, "3\n4\n0 0 0", "2\n4\n0 0 0"), 9, "not used before"},
      {"bad coordinate", replaced(ok, "1 0 0\n", "1 0 x0\n"), 12, "'x0'"},
      {"infinite coordinate", replaced(ok, "0 1 0\n", "0 inf 0\n"), 13, "coordinate"},
      {"two coordinates", replaced(ok, "0 0 1\n", "0 0\n"), 14, "'x y z'"},
      {"truncated", ok.substr(0, ok.find("0 1 0\n")), 13, "end of file"},
      {"unknown node", replaced(ok, "1 1 2 3 4", "1 1 2 3 9"), 19, "'9'"},
      {"short element", replaced(ok, "1 1 2 3 4", "1 1 2 3"), 19, "4 node tags"},
      {"no end of elements", replaced(ok, "$EndElements\n", ""), 20, "$EndElements"},
      {"no elements", ok.substr(0, ok.find("$Elements")), 16, "$Elements"},
      {"elements first", "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Elements\n", 4, "$Nodes"},
      {"surface only", replaced(ok, "3 1 4 1\n1 1 2 3 4", "2 1 2 1\n1 1 2 3"), 20, "tetrahedra"},
      {"mixed volumes", replaced(replaced(ok, "1 1 1 1\n", "2 2 1 2\n"), "$EndElements",
                                 "3 2 5 1\n2 1 2 3 4 1 2 3 4\n$EndElements"),
       20, "one volume type"},
      {"unknown section unended", ok + "$Comments\nhello\n", 23, "$EndComments"},
      {"stray text", replaced(ok, "$Nodes\n", "nodes\n$Nodes\n"), 4, "'nodes'"},
  };
  const std::string path = temp_path("broken.msh");
  for (const auto &c : cases) {
    write_text(path, c.text);
    qks::Mesh mesh = qks::make_box({1, 1, 1, 1, 1, 1});
    const qks::Mesh before = mesh;
    std::string error;
    EXPECT_FALSE(qks::read_msh(path, mesh, error)) << c.name;
    EXPECT_EQ(error.rfind(path + ":" + std::to_string(c.line) + ": ", 0), 0u)
        << c.name << ": " << error;
    EXPECT_NE(error.find(c.word), std::string::npos) << c.name << ": " << error;
    EXPECT_EQ(mesh.xyz, before.xyz) << c.name;
    EXPECT_EQ(mesh.econn, before.econn) << c.name;
  }
  std::string error;
  qks::Mesh mesh;
  EXPECT_FALSE(qks::read_msh(temp_path("does_not_exist.msh"), mesh, error));
  EXPECT_NE(error.find("cannot open"), std::string::npos) << error;
}

TEST(Msh, ReadsSparseTagsInBlocksAndSkipsWhatIsNotAVolume) {
  // Tags 40, 10 | 30, 20, 99 in two blocks (99 used by a point element only), an $Entities
  // section and an unknown one, a triangle block, CRLF ends and a blank line.
  const std::string text =
      "$MeshFormat\r\n4.1 0 8\r\n$EndMeshFormat\r\n$Entities\r\n1 0 0 1\r\n"
      "1 0 0 0 0 0\r\n$EndEntities\r\n$PhysicalNames\r\n1\r\n3 1 \"body\"\r\n"
      "$EndPhysicalNames\r\n\r\n$Nodes\r\n2 5 10 99\r\n0 1 0 2\r\n40\r\n10\r\n"
      "0 0 1\r\n0 0 0\r\n3 1 0 3\r\n30\r\n20\r\n99\r\n0 1 0\r\n1 0 0\r\n5 5 5\r\n$EndNodes\r\n"
      "$Elements\r\n3 3 1 3\r\n0 1 15 1\r\n7 99\r\n2 1 2 1\r\n8 10 20 30\r\n"
      "3 1 4 1\r\n9 10 20 30 40\r\n$EndElements\r\n";
  const std::string path = temp_path("sparse.msh");
  write_text(path, text);
  qks::Mesh m;
  std::string error;
  ASSERT_TRUE(qks::read_msh(path, m, error)) << error;
  EXPECT_EQ(m.cell, qks::Cell::Tet4);
  // File order 40, 10, 30, 20 becomes 1..4; node 99 is left out.
  EXPECT_EQ(m.xyz, (std::vector<double>{0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 0}));
  EXPECT_EQ(m.econn, (std::vector<qkm_int>{2, 4, 3, 1}));
  EXPECT_EQ(m.eptr, (std::vector<qkm_int>{0, 4}));
  EXPECT_NEAR(tet_volume(m, 0), 1.0 / 6.0, 1e-15);
}

TEST(Msh, WrittenMeshesReadBackExactly) {
  const qks::Box box{1.3, 0.7, 0.1 / 3.0, 5, 3, 2};
  for (const qks::Mesh &m : {qks::make_box(box), qks::make_box_tets(box)}) {
    const std::string path = temp_path("round.msh");
    std::string error;
    ASSERT_TRUE(qks::write_msh(path, m, error)) << error;
    qks::Mesh back;
    ASSERT_TRUE(qks::read_msh(path, back, error)) << error;
    EXPECT_EQ(back.cell, m.cell);
    EXPECT_EQ(back.xyz, m.xyz);
    EXPECT_EQ(back.econn, m.econn);
    EXPECT_EQ(back.eptr, m.eptr);
  }
  std::string error;
  EXPECT_FALSE(qks::write_msh("/nonexistent-dir/x.msh", qks::make_box(box), error));
  EXPECT_NE(error.find("cannot write"), std::string::npos);
}

TEST(Msh, TheSampleBeamReads) {
  qks::Mesh m;
  std::string error;
  ASSERT_TRUE(qks::read_msh(std::string(QKS_SAMPLE_DIR) + "/beam.msh", m, error)) << error;
  EXPECT_EQ(m.cell, qks::Cell::Tet4);
  EXPECT_EQ(m.nodes(), 275);
  EXPECT_EQ(m.elements(), 960);
  double volume = 0.0;
  for (qkm_int e = 0; e < m.elements(); ++e) {
    ASSERT_GT(tet_volume(m, e), 0.0) << e;
    volume += tet_volume(m, e);
  }
  EXPECT_NEAR(volume, 1.0 * 0.2 * 0.2, 1e-12);
}

// ---------------------------------------------------------------------------------------------
// VTU: balanced tags, the piece's counts and the length of every data array.

struct Xml {
  bool balanced = true;
  std::map<std::string, std::string> piece;         // attributes of <Piece>
  std::map<std::string, std::size_t> array_length;  // Name -> number of values
  std::map<std::string, std::string> array_type;
};

Xml parse_vtu(const std::string &text) {
  Xml x;
  std::vector<std::string> open;
  std::string current;
  std::size_t i = 0;
  auto attributes = [](const std::string &tag) {
    std::map<std::string, std::string> a;
    std::size_t p = 0;
    while ((p = tag.find("=\"", p)) != std::string::npos) {
      const std::size_t k = tag.rfind(' ', p) + 1, e = tag.find('"', p + 2);
      a[tag.substr(k, p - k)] = tag.substr(p + 2, e - p - 2);
      p = e;
    }
    return a;
  };
  while ((i = text.find('<', i)) != std::string::npos) {
    const std::size_t end = text.find('>', i);
    if (end == std::string::npos) return x.balanced = false, x;
    const std::string tag = text.substr(i + 1, end - i - 1);
    if (tag[0] == '?') {
    } else if (tag[0] == '/') {
      if (open.empty() || open.back() != tag.substr(1)) x.balanced = false;
      else open.pop_back();
    } else {
      const std::string name = tag.substr(0, tag.find(' '));
      const auto a = attributes(tag);
      if (name == "Piece") x.piece = a;
      if (name == "DataArray") {
        const std::size_t close = text.find("</DataArray>", end);
        std::istringstream values(text.substr(end + 1, close - end - 1));
        std::size_t n = 0;
        for (double v; values >> v;) ++n;
        x.array_length[a.at("Name")] = n;
        x.array_type[a.at("Name")] = a.at("type");
      }
      if (tag.back() != '/') open.push_back(name);
    }
    i = end + 1;
  }
  x.balanced = x.balanced && open.empty();
  return x;
}

TEST(Vtu, CountsAndArraysMatchTheMesh) {
  const qks::Box box{2.0, 0.5, 0.5, 4, 2, 3};
  for (const qks::Mesh &m : {qks::make_box(box), qks::make_box_tets(box)}) {
    const std::size_t nn = m.nodes(), ne = m.elements(), per = m.per_element();
    std::vector<double> u(3 * nn, 1e-3), vm(nn, 2e8);
    const std::string path = temp_path("beam.vtu");
    std::string error;
    ASSERT_TRUE(qks::write_vtu(path, m, u, vm, error)) << error;
    const std::string text = read_text(path);
    const Xml x = parse_vtu(text);
    EXPECT_TRUE(x.balanced);
    EXPECT_EQ(x.piece.at("NumberOfPoints"), std::to_string(nn));
    EXPECT_EQ(x.piece.at("NumberOfCells"), std::to_string(ne));
    EXPECT_EQ(x.array_length.at("displacement"), 3 * nn);
    EXPECT_EQ(x.array_length.at("von Mises"), nn);
    EXPECT_EQ(x.array_length.at("Points"), 3 * nn);
    EXPECT_EQ(x.array_length.at("connectivity"), per * ne);
    EXPECT_EQ(x.array_length.at("offsets"), ne);
    EXPECT_EQ(x.array_length.at("types"), ne);
    // Last offset, the cell type and zero-based connectivity.
    const std::string type = per == 8 ? " 12\n" : " 10\n";
    EXPECT_NE(text.find(" " + std::to_string(per * ne) + "\n"), std::string::npos);
    EXPECT_NE(text.find(type), std::string::npos);
    EXPECT_NE(text.find("          0 1 "), std::string::npos);
  }
  std::string error;
  const qks::Mesh m = qks::make_box(box);
  EXPECT_FALSE(qks::write_vtu(temp_path("bad.vtu"), m, std::vector<double>(5), {}, error));
  EXPECT_NE(error.find("displacement"), std::string::npos);
  EXPECT_FALSE(qks::write_vtu("/nonexistent-dir/x.vtu", m, {}, {}, error));
}

// ---------------------------------------------------------------------------------------------
// PNG

// A cantilever's bending line u_z = c x^2 (3L - x), with the sections turning with it.
std::vector<double> bending(const qks::Mesh &m, double length, double tip) {
  std::vector<double> u(m.xyz.size(), 0.0);
  const double c = tip / (2.0 * length * length * length);
  for (qkm_int i = 0; i < m.nodes(); ++i) {
    const double x = m.xyz[3 * i], z = m.xyz[3 * i + 2];
    u[3 * i + 2] = c * x * x * (3.0 * length - x);
    u[3 * i] = -z * c * (6.0 * length * x - 3.0 * x * x);
  }
  return u;
}

TEST(Png, PictureHasTheRequestedSizeAndShowsTheBody) {
  const qks::Box box;
  const struct {
    qks::Mesh mesh;
    int width, height;
  } cases[] = {{qks::make_box(box), qks::kPictureWidth, qks::kPictureHeight},
               {qks::make_box_tets({4.0, 0.4, 0.4, 10, 2, 2}), 640, 480}};
  for (const auto &c : cases) {
    const std::string path = temp_path("beam.png");
    std::string error;
    ASSERT_TRUE(qks::write_png(path, c.mesh, bending(c.mesh, 4.0, -2e-3), 0.0, "Cantilever",
                               c.width, c.height, error))
        << error;
    const std::string bytes = read_text(path);
    ASSERT_GT(bytes.size(), 24u);
    EXPECT_EQ(bytes.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));
    EXPECT_EQ(bytes.substr(12, 4), "IHDR");
    auto be32 = [&](std::size_t at) {
      unsigned v = 0;
      for (std::size_t k = 0; k < 4; ++k) v = v << 8 | static_cast<unsigned char>(bytes[at + k]);
      return static_cast<int>(v);
    };
    EXPECT_EQ(be32(16), c.width);
    EXPECT_EQ(be32(20), c.height);
    // The body covers a good part of the picture, and both ends of the colour map show up
    // left of the colour bar: violet at the clamp, yellow at the tip.
    cairo_surface_t *s = cairo_image_surface_create_from_png(path.c_str());
    ASSERT_EQ(cairo_surface_status(s), CAIRO_STATUS_SUCCESS);
    const int w = cairo_image_surface_get_width(s), h = cairo_image_surface_get_height(s);
    const int stride = cairo_image_surface_get_stride(s);
    const unsigned char *px = cairo_image_surface_get_data(s);
    long painted = 0, violet = 0, yellow = 0;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w * 3 / 4; ++x) {
        const unsigned char *p = px + y * stride + 4 * x;  // B, G, R, A
        const int b = p[0], g = p[1], r = p[2];
        painted += r + g + b < 3 * 235;
        violet += b > g + 40 && r > g + 30;
        yellow += r > 150 && g > 150 && b < 80;
      }
    cairo_surface_destroy(s);
    EXPECT_GT(painted, 0.1 * w * h);
    EXPECT_GT(violet, 0.005 * w * h);
    EXPECT_GT(yellow, 0.005 * w * h);
  }
  const qks::Mesh m = qks::make_box({1, 1, 1, 2, 2, 2});
  const std::vector<double> u(m.xyz.size(), 0.0);
  std::string error;
  EXPECT_TRUE(qks::write_png(temp_path("still.png"), m, u, 0.0, "At rest", 400, 300, error))
      << error;
  EXPECT_FALSE(qks::write_png(temp_path("x.png"), m, {1.0}, 0.0, "", 400, 300, error));
  EXPECT_FALSE(qks::write_png(temp_path("x.png"), qks::Mesh{}, {}, 0.0, "", 400, 300, error));
  EXPECT_FALSE(qks::write_png(temp_path("x.png"), m, u, -1.0, "", 400, 300, error));
  EXPECT_FALSE(qks::write_png(temp_path("x.png"), m, u, 0.0, "", 0, 300, error));
  EXPECT_FALSE(qks::write_png("/nonexistent-dir/x.png", m, u, 0.0, "", 400, 300, error));
}

// ---------------------------------------------------------------------------------------------
// Transfer

// Moves the inner nodes of a generated box by up to `amount` of the cell size in each
// direction, keeping the outer surface.
qks::Mesh distorted(qks::Mesh m, const qks::Box &box, double amount) {
  const double h[3] = {box.length / box.nx, box.width / box.ny, box.height / box.nz};
  double lo[3], hi[3];
  qks::bounds(m, lo, hi);
  std::mt19937 gen(7);
  std::uniform_real_distribution<double> u(-amount, amount);
  for (qkm_int i = 0; i < m.nodes(); ++i) {
    bool inner = true;
    for (int a = 0; a < 3; ++a)
      inner = inner && m.xyz[3 * i + a] > lo[a] + 1e-12 && m.xyz[3 * i + a] < hi[a] - 1e-12;
    if (inner)
      for (int a = 0; a < 3; ++a) m.xyz[3 * i + a] += u(gen) * h[a];
  }
  return m;
}

// u = b + A x, component by component.
void linear(const double *x, double *u) {
  static const double b[3] = {0.3, -1.2, 2.5}, a[3][3] = {{1.5, -0.25, 2.0},
                                                            {0.5, 3.0, -1.0},
                                                            {-2.0, 0.75, 0.125}};
  for (int c = 0; c < 3; ++c) u[c] = b[c] + a[c][0] * x[0] + a[c][1] * x[1] + a[c][2] * x[2];
}

TEST(Transfer, LinearFieldsAreReproducedExactly) {
  // Slender cells (0.1 x 0.025 x 0.025) make the nearest 8 nodes of many points coplanar.
  const qks::Box slender{1.0, 0.1, 0.1, 10, 4, 4}, cube{1.0, 1.0, 1.0, 4, 4, 4};
  const struct {
    const char *name;
    qks::Mesh mesh;
    int k;
  } cases[] = {
      {"hex", qks::make_box(cube), 8},
      {"tet", qks::make_box_tets(cube), 8},
      {"slender hex", qks::make_box(slender), 8},
      {"distorted hex", distorted(qks::make_box(cube), cube, 0.2), 12},
      {"distorted tet", distorted(qks::make_box_tets(cube), cube, 0.1), 12},
  };
  for (const auto &c : cases) {
    std::vector<double> field(c.mesh.xyz.size());
    for (qkm_int i = 0; i < c.mesh.nodes(); ++i) linear(&c.mesh.xyz[3 * i], &field[3 * i]);
    std::vector<double> pts = qks::sensor_points(c.mesh, 40, 11);
    ASSERT_EQ(pts.size(), 120u) << c.name;
    // A node itself and a corner of the box are legitimate points too.
    pts.insert(pts.end(), c.mesh.xyz.begin(), c.mesh.xyz.begin() + 3);
    pts.insert(pts.end(), c.mesh.xyz.end() - 3, c.mesh.xyz.end());
    std::vector<double> fitted;
    ASSERT_TRUE(qks::transfer_field(c.mesh, field, pts, c.k, fitted)) << c.name;
    const std::vector<double> interpolated = qks::interpolate_field(c.mesh, field, pts);
    ASSERT_EQ(fitted.size(), pts.size());
    ASSERT_EQ(interpolated.size(), pts.size());
    for (std::size_t p = 0; p < pts.size(); p += 3) {
      double exact[3];
      linear(&pts[p], exact);
      for (int a = 0; a < 3; ++a) {
        EXPECT_NEAR(fitted[p + a], exact[a], 1e-12) << c.name << " point " << p / 3;
        EXPECT_NEAR(interpolated[p + a], exact[a], 1e-12) << c.name << " point " << p / 3;
      }
    }
  }
}

TEST(Transfer, SensorPointsAndTheEdges) {
  const qks::Box box{2.0, 0.4, 0.2, 10, 4, 2};
  const qks::Mesh m = qks::make_box(box);
  const std::vector<double> a = qks::sensor_points(m, 25, 3), b = qks::sensor_points(m, 25, 3),
                            c = qks::sensor_points(m, 25, 4);
  EXPECT_EQ(a, b);
  EXPECT_NE(a, c);
  const double spacing = std::cbrt(2.0 * 0.4 * 0.2 / m.nodes());
  for (std::size_t p = 0; p < a.size(); p += 3) {
    EXPECT_GT(a[p], 0.0);
    EXPECT_LT(a[p], 2.0);
    EXPECT_LT(std::fabs(a[p + 1]), 0.2);
    EXPECT_LT(std::fabs(a[p + 2]), 0.1);
    double nearest = HUGE_VAL;
    for (qkm_int i = 0; i < m.nodes(); ++i)
      nearest = std::min(nearest, std::hypot(a[p] - m.xyz[3 * i], a[p + 1] - m.xyz[3 * i + 1],
                                             a[p + 2] - m.xyz[3 * i + 2]));
    EXPECT_GE(nearest, 0.2 * spacing);
  }
  EXPECT_TRUE(qks::sensor_points(m, 0, 1).empty());
  // Outside the mesh: no element holds the point.
  const std::vector<double> field(m.xyz.size(), 1.0), outside{2.5, 0.0, 0.0, 1.0, 0.0, 0.0};
  const std::vector<double> v = qks::interpolate_field(m, field, outside);
  EXPECT_TRUE(std::isnan(v[0]) && std::isnan(v[1]) && std::isnan(v[2]));
  EXPECT_NEAR(v[3], 1.0, 1e-14);
  // Bad arguments.
  std::vector<double> out{42.0};
  EXPECT_FALSE(qks::transfer_field(m, field, outside, 0, out));
  EXPECT_FALSE(qks::transfer_field(m, {1.0}, outside, 8, out));
  EXPECT_EQ(out, std::vector<double>{42.0});
}

}  // namespace
