// The VTK XML unstructured grid (ASCII) and the Cairo picture of the deformed body.
#include "output.h"

#include <cairo.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

namespace qks {

namespace {

// ------------------------------------------------------------------------------------------
// VTU

// ASCII VTU cannot carry NaN or infinity (readers stop there): they are written as 0.
void put_values(FILE *f, const double *v, std::size_t n, std::size_t per_line) {
  for (std::size_t i = 0; i < n; ++i) {
    std::fprintf(f, "%s%.9g", i % per_line == 0 ? "          " : " ",
                 std::isfinite(v[i]) ? v[i] : 0.0);
    if (i % per_line == per_line - 1 || i + 1 == n) std::fputc('\n', f);
  }
}

bool size_error(const char *what, std::size_t got, std::size_t want, std::string &error) {
  error = std::string(what) + " has " + std::to_string(got) + " values, expected " +
          std::to_string(want);
  return false;
}

// ------------------------------------------------------------------------------------------
// Picture

using Vec = std::array<double, 3>;

Vec sub(const Vec &a, const Vec &b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
double dot(const Vec &a, const Vec &b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
Vec cross(const Vec &a, const Vec &b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
Vec unit(const Vec &a) {
  const double n = std::sqrt(dot(a, a));
  return n > 0.0 ? Vec{a[0] / n, a[1] / n, a[2] / n} : a;
}

// A boundary face: 3 or 4 nodes from 0, ordered so that the normal points out of the body.
struct Face {
  int n;
  std::array<qkm_int, 4> v;
};

// Faces of each cell with outward normals for a positively oriented cell (VTK order).
const int kHexFaces[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4},
                             {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};
const int kTetFaces[4][3] = {{0, 2, 1}, {0, 1, 3}, {1, 2, 3}, {0, 3, 2}};

Vec node(const Mesh &m, qkm_int i) { return {m.xyz[3 * i], m.xyz[3 * i + 1], m.xyz[3 * i + 2]}; }

// Newell's normal of a polygon (not normalised), robust for warped quadrilaterals.
template <class At>
Vec newell(int n, At at) {
  Vec s{0, 0, 0};
  for (int i = 0; i < n; ++i) {
    const Vec a = at(i), b = at((i + 1) % n);
    s[0] += (a[1] - b[1]) * (a[2] + b[2]);
    s[1] += (a[2] - b[2]) * (a[0] + b[0]);
    s[2] += (a[0] - b[0]) * (a[1] + b[1]);
  }
  return s;
}

// The faces that belong to one element only, turned to face outwards (away from the centre of
// their element, whatever the element's own orientation).
std::vector<Face> outer_faces(const Mesh &m) {
  const bool hex = m.cell == Cell::Hex8;
  const int nf = hex ? 6 : 4, nv = hex ? 4 : 3, per = m.per_element();
  struct Keyed {
    std::array<qkm_int, 4> key;
    qkm_int elem;
    int face;
  };
  std::vector<Keyed> all;
  all.reserve(static_cast<std::size_t>(m.elements()) * nf);
  for (qkm_int e = 0; e < m.elements(); ++e)
    for (int f = 0; f < nf; ++f) {
      Keyed k{{0, 0, 0, 0}, e, f};
      for (int i = 0; i < nv; ++i)
        k.key[i] = m.econn[m.eptr[e] + (hex ? kHexFaces[f][i] : kTetFaces[f][i])];
      // A short insertion sort (std::sort on part of the array upsets g++'s bounds checks).
      for (int i = 1; i < nv; ++i)
        for (int j = i; j > 0 && k.key[j - 1] > k.key[j]; --j) std::swap(k.key[j - 1], k.key[j]);
      all.push_back(k);
    }
  std::sort(all.begin(), all.end(), [](const Keyed &a, const Keyed &b) { return a.key < b.key; });
  std::vector<Face> out;
  for (std::size_t i = 0; i < all.size();) {
    std::size_t j = i + 1;
    while (j < all.size() && all[j].key == all[i].key) ++j;
    if (j == i + 1) {
      const qkm_int *c = &m.econn[m.eptr[all[i].elem]];
      Face f{nv, {0, 0, 0, 0}};
      for (int k = 0; k < nv; ++k)
        f.v[k] = c[hex ? kHexFaces[all[i].face][k] : kTetFaces[all[i].face][k]] - 1;
      Vec centre{0, 0, 0}, fc{0, 0, 0};
      for (int k = 0; k < per; ++k)
        for (int a = 0; a < 3; ++a) centre[a] += m.xyz[3 * (c[k] - 1) + a] / per;
      for (int k = 0; k < nv; ++k)
        for (int a = 0; a < 3; ++a) fc[a] += m.xyz[3 * f.v[k] + a] / nv;
      const Vec n = newell(nv, [&](int k) { return node(m, f.v[k]); });
      if (dot(n, sub(fc, centre)) < 0.0) std::reverse(f.v.begin(), f.v.begin() + nv);
      out.push_back(f);
    }
    i = j;
  }
  return out;
}

// The lines where the outer surface folds (a box's 12 edges), each as a chain of nodes from 0,
// so that a dash pattern runs on along it.
std::vector<std::vector<qkm_int>> fold_lines(const Mesh &m, const std::vector<Face> &faces) {
  struct Side {
    qkm_int a, b;
    std::size_t face;
  };
  std::vector<Side> sides;
  for (std::size_t f = 0; f < faces.size(); ++f)
    for (int k = 0; k < faces[f].n; ++k) {
      const qkm_int a = faces[f].v[k], b = faces[f].v[(k + 1) % faces[f].n];
      sides.push_back({std::min(a, b), std::max(a, b), f});
    }
  std::sort(sides.begin(), sides.end(),
            [](const Side &x, const Side &y) { return x.a != y.a ? x.a < y.a : x.b < y.b; });
  auto normal = [&](std::size_t f) {
    return unit(newell(faces[f].n, [&](int k) { return node(m, faces[f].v[k]); }));
  };
  std::vector<std::array<qkm_int, 2>> edges;
  for (std::size_t i = 0; i < sides.size();) {
    std::size_t j = i + 1;
    while (j < sides.size() && sides[j].a == sides[i].a && sides[j].b == sides[i].b) ++j;
    // Folded by more than about 30 degrees, or a free edge of an open surface.
    if (j - i != 2 || dot(normal(sides[i].face), normal(sides[i + 1].face)) < 0.866)
      edges.push_back({sides[i].a, sides[i].b});
    i = j;
  }
  // Chain the edges: from the ends and corners (not two edges at the node) first, then what
  // is left (closed loops).
  std::vector<std::vector<std::size_t>> at(static_cast<std::size_t>(m.nodes()));
  for (std::size_t e = 0; e < edges.size(); ++e)
    for (qkm_int v : edges[e]) at[v].push_back(e);
  std::vector<char> used(edges.size(), 0);
  std::vector<std::vector<qkm_int>> lines;
  auto walk = [&](qkm_int start) {
    for (std::size_t first : at[start]) {
      if (used[first]) continue;
      qkm_int v = start;
      std::vector<qkm_int> line{v};
      for (std::size_t e = first;;) {
        used[e] = 1;
        v = edges[e][0] == v ? edges[e][1] : edges[e][0];
        line.push_back(v);
        if (at[v].size() != 2) break;
        e = at[v][0] == e ? at[v][1] : at[v][0];
        if (used[e]) break;
      }
      lines.push_back(std::move(line));
    }
  };
  for (qkm_int v = 0; v < m.nodes(); ++v)
    if (!at[v].empty() && at[v].size() != 2) walk(v);
  for (std::size_t e = 0; e < edges.size(); ++e)
    if (!used[e]) walk(edges[e][0]);
  return lines;
}

// A perceptual colour map (viridis), 11 stops from dark violet to yellow.
void colour(double t, double rgb[3]) {
  static const unsigned char kStops[11][3] = {
      {68, 1, 84},    {72, 36, 117},  {65, 68, 135},  {53, 95, 141},  {42, 120, 142}, {33, 145, 140},
      {34, 168, 132}, {68, 191, 112}, {122, 209, 81}, {189, 223, 38}, {253, 231, 37}};
  t = std::isfinite(t) ? std::clamp(t, 0.0, 1.0) * 10.0 : 0.0;
  const int i = std::min(static_cast<int>(t), 9);
  const double w = t - i;
  for (int c = 0; c < 3; ++c) rgb[c] = ((1.0 - w) * kStops[i][c] + w * kStops[i + 1][c]) / 255.0;
}

// A round step for about `parts` intervals over [0, top]: 1, 2, 2.5 or 5 times a power of 10.
double nice_step(double top, int parts) {
  const double raw = top / parts, p = std::pow(10.0, std::floor(std::log10(raw)));
  for (double m : {1.0, 2.0, 2.5, 5.0})
    if (m * p >= raw) return m * p;
  return 10.0 * p;
}

// Three significant digits, without trailing noise.
std::string short_number(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.3g", v);
  return buf;
}

// A fixed oblique camera in perspective, looking at the centre of the model from the front
// (-y), a little from the free end (+x) and from above.
struct Camera {
  Vec eye, right, up, forward;
  double distance = 1.0;                   // from the eye to the centre
  double scale = 1.0, ox = 0.0, oy = 0.0;  // projected plane -> pixels

  Camera(const Vec &centre, double size) {
    const double az = 30.0 * M_PI / 180.0, el = 28.0 * M_PI / 180.0;
    const Vec towards_eye{std::cos(el) * std::sin(az), -std::cos(el) * std::cos(az), std::sin(el)};
    const double dist = 2.6 * size;
    distance = dist;
    eye = {centre[0] + dist * towards_eye[0], centre[1] + dist * towards_eye[1],
           centre[2] + dist * towards_eye[2]};
    forward = unit(sub(centre, eye));
    right = unit(cross(forward, Vec{0, 0, 1}));
    up = cross(right, forward);
  }
  // Point on the picture plane before fitting (x right, y up) and the depth along the view.
  void plane(const Vec &p, double &x, double &y, double &depth) const {
    const Vec d = sub(p, eye);
    // A point pushed behind the eye by a huge magnification stays drawable, if meaningless.
    depth = std::max(dot(d, forward), 1e-3 * distance);
    x = dot(d, right) / depth;
    y = dot(d, up) / depth;
  }
  void pixel(const Vec &p, double &px, double &py) const {
    double x, y, depth;
    plane(p, x, y, depth);
    px = ox + scale * x;
    py = oy - scale * y;
  }
};

void show_text(cairo_t *cr, double x, double y, const std::string &s, double size, bool bold,
               double align = 0.0) {
  cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                         bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, size);
  cairo_text_extents_t ext;
  cairo_text_extents(cr, s.c_str(), &ext);
  cairo_move_to(cr, x - align * ext.x_advance, y);
  cairo_show_text(cr, s.c_str());
}

// The colour bar: a vertical gradient from 0 (bottom) to `top` with round ticks and the unit.
void colour_bar(cairo_t *cr, double x, double y0, double w, double h, double top, double font) {
  cairo_pattern_t *grad = cairo_pattern_create_linear(0, y0 + h, 0, y0);
  for (int i = 0; i <= 20; ++i) {
    double rgb[3];
    colour(i / 20.0, rgb);
    cairo_pattern_add_color_stop_rgb(grad, i / 20.0, rgb[0], rgb[1], rgb[2]);
  }
  cairo_rectangle(cr, x, y0, w, h);
  cairo_set_source(cr, grad);
  cairo_fill_preserve(cr);
  cairo_pattern_destroy(grad);
  cairo_set_source_rgb(cr, 0.25, 0.25, 0.25);
  cairo_set_line_width(cr, 1.0);
  cairo_stroke(cr);
  const double step = nice_step(top, 5);
  for (int i = 0; i * step <= top * (1.0 + 1e-9); ++i) {
    const double v = i * step, y = std::round(y0 + h - h * v / top) + 0.5;
    cairo_move_to(cr, x + w, y);
    cairo_line_to(cr, x + w + 5, y);
    cairo_stroke(cr);
    show_text(cr, x + w + 8, y + 0.35 * font, short_number(v), font, false);
  }
  show_text(cr, x + 0.5 * w, y0 - 0.9 * font, "|u| (mm)", font, true, 0.5);
}

// Small axes in a corner showing how x, y and z point in the picture.
void axes(cairo_t *cr, const Camera &cam, double x, double y, double len, double font) {
  const char *names[3] = {"x", "y", "z"};
  cairo_set_line_width(cr, 1.5);
  for (int a = 0; a < 3; ++a) {
    const Vec e{a == 0 ? 1.0 : 0.0, a == 1 ? 1.0 : 0.0, a == 2 ? 1.0 : 0.0};
    const double dx = dot(e, cam.right), dy = -dot(e, cam.up);
    cairo_set_source_rgb(cr, 0.3, 0.3, 0.3);
    cairo_move_to(cr, x, y);
    cairo_line_to(cr, x + len * dx, y + len * dy);
    cairo_stroke(cr);
    show_text(cr, x + (len + 0.6 * font) * dx - 0.3 * font, y + (len + 0.6 * font) * dy + 0.35 * font,
              names[a], font, false);
  }
}

}  // namespace

bool write_vtu(const std::string &path, const Mesh &mesh, const std::vector<double> &displacement,
               const std::vector<double> &von_mises, std::string &error) {
  const std::size_t nn = static_cast<std::size_t>(mesh.nodes());
  const std::size_t ne = static_cast<std::size_t>(mesh.elements());
  if (!displacement.empty() && displacement.size() != 3 * nn)
    return size_error("displacement", displacement.size(), 3 * nn, error);
  if (!von_mises.empty() && von_mises.size() != nn)
    return size_error("von Mises", von_mises.size(), nn, error);
  FILE *f = std::fopen(path.c_str(), "w");
  if (f == nullptr) {
    error = path + ": cannot write: " + std::strerror(errno);
    return false;
  }
  std::fprintf(f,
               "<?xml version=\"1.0\"?>\n"
               "<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" byte_order=\"LittleEndian\" "
               "header_type=\"UInt64\">\n"
               "  <UnstructuredGrid>\n"
               "    <Piece NumberOfPoints=\"%zu\" NumberOfCells=\"%zu\">\n",
               nn, ne);
  std::fprintf(f, "      <PointData%s%s>\n", displacement.empty() ? "" : " Vectors=\"displacement\"",
               von_mises.empty() ? "" : " Scalars=\"von Mises\"");
  if (!displacement.empty()) {
    std::fprintf(f, "        <DataArray type=\"Float64\" Name=\"displacement\" "
                    "NumberOfComponents=\"3\" format=\"ascii\">\n");
    put_values(f, displacement.data(), 3 * nn, 3);
    std::fprintf(f, "        </DataArray>\n");
  }
  if (!von_mises.empty()) {
    std::fprintf(f, "        <DataArray type=\"Float64\" Name=\"von Mises\" format=\"ascii\">\n");
    put_values(f, von_mises.data(), nn, 6);
    std::fprintf(f, "        </DataArray>\n");
  }
  std::fprintf(f, "      </PointData>\n      <Points>\n        <DataArray type=\"Float64\" "
                  "Name=\"Points\" NumberOfComponents=\"3\" format=\"ascii\">\n");
  put_values(f, mesh.xyz.data(), 3 * nn, 3);
  std::fprintf(f, "        </DataArray>\n      </Points>\n      <Cells>\n"
                  "        <DataArray type=\"Int64\" Name=\"connectivity\" format=\"ascii\">\n");
  for (std::size_t e = 0; e < ne; ++e) {
    std::fprintf(f, "         ");
    for (qkm_int k = mesh.eptr[e]; k < mesh.eptr[e + 1]; ++k)
      std::fprintf(f, " %d", mesh.econn[k] - 1);
    std::fputc('\n', f);
  }
  std::fprintf(f, "        </DataArray>\n"
                  "        <DataArray type=\"Int64\" Name=\"offsets\" format=\"ascii\">\n");
  for (std::size_t e = 1; e <= ne; ++e)
    std::fprintf(f, "%s%d", e % 10 == 1 ? "          " : " ", mesh.eptr[e]);
  std::fprintf(f, "%s        </DataArray>\n"
                  "        <DataArray type=\"UInt8\" Name=\"types\" format=\"ascii\">\n",
               ne > 0 ? "\n" : "");
  const int type = mesh.cell == Cell::Hex8 ? 12 : 10;
  for (std::size_t e = 1; e <= ne; ++e)
    std::fprintf(f, "%s%d", e % 20 == 1 ? "          " : " ", type);
  std::fprintf(f, "%s        </DataArray>\n      </Cells>\n    </Piece>\n"
                  "  </UnstructuredGrid>\n</VTKFile>\n",
               ne > 0 ? "\n" : "");
  const bool bad = std::ferror(f) != 0;
  if (std::fclose(f) != 0 || bad) {
    error = path + ": write failed";
    return false;
  }
  return true;
}

bool write_png(const std::string &path, const Mesh &mesh, const std::vector<double> &displacement,
               double scale, const std::string &title, int width, int height, std::string &error) {
  const qkm_int nn = mesh.nodes();
  if (nn == 0 || mesh.elements() == 0) {
    error = "nothing to draw: the mesh is empty";
    return false;
  }
  if (displacement.size() != 3 * static_cast<std::size_t>(nn))
    return size_error("displacement", displacement.size(), 3 * static_cast<std::size_t>(nn), error);
  if (width < 200 || height < 150 || width > 16384 || height > 16384) {
    error = "picture size " + std::to_string(width) + " x " + std::to_string(height) +
            " outside 200 x 150 .. 16384 x 16384";
    return false;
  }
  if (!(scale >= 0.0) || !std::isfinite(scale)) {
    error = "magnification must be 0 (automatic) or positive";
    return false;
  }
  try {
    double lo[3], hi[3];
    bounds(mesh, lo, hi);
    const double size = std::max({hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]});
    const Vec centre{0.5 * (lo[0] + hi[0]), 0.5 * (lo[1] + hi[1]), 0.5 * (lo[2] + hi[2])};
    std::vector<double> mag(nn);  // |u| in mm
    double umax = 0.0;
    for (qkm_int i = 0; i < nn; ++i) {
      const double *u = &displacement[3 * i];
      const double m = std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]);
      mag[i] = std::isfinite(m) ? m : 0.0;
      umax = std::max(umax, mag[i]);
    }
    // The largest displacement drawn as a tenth of the model's size.
    if (scale == 0.0) scale = umax > 0.0 ? 0.1 * size / umax : 1.0;
    for (double &m : mag) m *= 1000.0;
    const double top = umax > 0.0 ? 1000.0 * umax : 1.0;

    std::vector<Vec> moved(nn);
    for (qkm_int i = 0; i < nn; ++i)
      for (int a = 0; a < 3; ++a) {
        const double u = displacement[3 * i + a];
        moved[i][a] = mesh.xyz[3 * i + a] + scale * (std::isfinite(u) ? u : 0.0);
      }

    const std::vector<Face> faces = outer_faces(mesh);
    const std::vector<std::vector<qkm_int>> outline = fold_lines(mesh, faces);

    // Fit both shapes into the drawing area left of the colour bar and below the title.
    Camera cam(centre, std::max(size, 1e-30));
    const double font = std::max(11.0, height * 0.021);
    const double area_x0 = 0.04 * width, area_x1 = width - 0.16 * width - 60.0;
    const double area_y0 = 3.2 * font + 10.0, area_y1 = height - 2.5 * font - 10.0;
    double xmin = HUGE_VAL, xmax = -HUGE_VAL, ymin = HUGE_VAL, ymax = -HUGE_VAL;
    for (const Face &f : faces)
      for (int k = 0; k < f.n; ++k)
        for (const Vec &p : {node(mesh, f.v[k]), moved[f.v[k]]}) {
          double x, y, depth;
          cam.plane(p, x, y, depth);
          xmin = std::min(xmin, x);
          xmax = std::max(xmax, x);
          ymin = std::min(ymin, y);
          ymax = std::max(ymax, y);
        }
    const double sx = xmax > xmin ? (area_x1 - area_x0) / (xmax - xmin) : 1.0;
    const double sy = ymax > ymin ? (area_y1 - area_y0) / (ymax - ymin) : 1.0;
    cam.scale = std::min(sx, sy);
    cam.ox = 0.5 * (area_x0 + area_x1) - cam.scale * 0.5 * (xmin + xmax);
    cam.oy = 0.5 * (area_y0 + area_y1) + cam.scale * 0.5 * (ymin + ymax);

    cairo_surface_t *surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    cairo_t *cr = cairo_create(surface);
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);

    // The undeformed outline, faint and dashed, behind everything.
    const double dash[2] = {5.0, 4.0};
    cairo_set_dash(cr, dash, 2, 0.0);
    cairo_set_line_width(cr, 1.0);
    cairo_set_source_rgb(cr, 0.68, 0.68, 0.72);
    for (const auto &line : outline)
      for (std::size_t k = 0; k < line.size(); ++k) {
        double x, y;
        cam.pixel(node(mesh, line[k]), x, y);
        if (k == 0) cairo_move_to(cr, x, y);
        else cairo_line_to(cr, x, y);
      }
    cairo_stroke(cr);
    cairo_set_dash(cr, nullptr, 0, 0.0);

    // Deformed faces that look towards the eye, far ones first.
    const Vec light = unit(Vec{-0.3, -0.6, 1.0});
    std::vector<std::pair<double, std::size_t>> order;
    for (std::size_t i = 0; i < faces.size(); ++i) {
      const Face &f = faces[i];
      Vec c{0, 0, 0};
      for (int k = 0; k < f.n; ++k)
        for (int a = 0; a < 3; ++a) c[a] += moved[f.v[k]][a] / f.n;
      const Vec n = newell(f.n, [&](int k) { return moved[f.v[k]]; });
      if (dot(n, sub(cam.eye, c)) <= 0.0) continue;
      order.emplace_back(dot(sub(c, cam.eye), cam.forward), i);
    }
    std::sort(order.begin(), order.end(),
              [](const auto &a, const auto &b) { return a.first > b.first; });
    for (const auto &o : order) {
      const Face &f = faces[o.second];
      const Vec n = unit(newell(f.n, [&](int k) { return moved[f.v[k]]; }));
      const double shade = 0.72 + 0.28 * std::max(0.0, dot(n, light));
      double px[4], py[4], mean[3] = {0, 0, 0}, edge = 0.0;
      cairo_pattern_t *pat = cairo_pattern_create_mesh();
      cairo_mesh_pattern_begin_patch(pat);
      for (int k = 0; k < f.n; ++k) {
        cam.pixel(moved[f.v[k]], px[k], py[k]);
        if (k == 0) cairo_mesh_pattern_move_to(pat, px[k], py[k]);
        else cairo_mesh_pattern_line_to(pat, px[k], py[k]);
      }
      for (int k = 0; k < f.n; ++k) {
        double rgb[3];
        colour(mag[f.v[k]] / top, rgb);
        for (int c = 0; c < 3; ++c) {
          rgb[c] *= shade;
          mean[c] += rgb[c] / f.n;
        }
        cairo_mesh_pattern_set_corner_color_rgb(pat, k, rgb[0], rgb[1], rgb[2]);
        const int j = (k + 1) % f.n;
        edge += std::hypot(px[j] - px[k], py[j] - py[k]) / f.n;
      }
      cairo_mesh_pattern_end_patch(pat);
      cairo_move_to(cr, px[0], py[0]);
      for (int k = 1; k < f.n; ++k) cairo_line_to(cr, px[k], py[k]);
      cairo_close_path(cr);
      cairo_set_source(cr, pat);
      cairo_fill_preserve(cr);
      cairo_pattern_destroy(pat);
      // Cover the seams between neighbours, then the element edges, fading on tiny faces.
      cairo_set_source_rgb(cr, mean[0], mean[1], mean[2]);
      cairo_set_line_width(cr, 0.8);
      cairo_stroke_preserve(cr);
      cairo_set_source_rgba(cr, 0.05, 0.05, 0.1, 0.45 * std::clamp((edge - 3.0) / 10.0, 0.0, 1.0));
      cairo_set_line_width(cr, 0.7);
      cairo_stroke(cr);
    }

    // Title, magnification, axes and colour bar.
    cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
    show_text(cr, 0.03 * width, 1.9 * font, title, 1.45 * font, true);
    cairo_set_source_rgb(cr, 0.3, 0.3, 0.3);
    show_text(cr, 0.03 * width, 1.9 * font + 1.5 * font,
              "displacements magnified \u00d7 " + short_number(scale) + "   (max |u| = " +
                  short_number(1000.0 * umax) + " mm; dashed: undeformed)",
              0.95 * font, false);
    axes(cr, cam, 0.03 * width + 2.5 * font, height - 2.8 * font, 2.2 * font, 0.9 * font);
    const double bar_h = 0.6 * height, bar_x = width - 0.16 * width;
    colour_bar(cr, bar_x, 0.5 * (height - bar_h) + font, 0.025 * width, bar_h, top, 0.95 * font);

    cairo_destroy(cr);
    cairo_surface_flush(surface);
    const cairo_status_t status = cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS
                                      ? cairo_surface_status(surface)
                                      : cairo_surface_write_to_png(surface, path.c_str());
    cairo_surface_destroy(surface);
    if (status != CAIRO_STATUS_SUCCESS) {
      error = path + ": " + cairo_status_to_string(status);
      return false;
    }
    return true;
  } catch (const std::bad_alloc &) {
    error = "out of memory while drawing " + path;
    return false;
  }
}

}  // namespace qks
