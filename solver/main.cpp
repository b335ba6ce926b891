// qkm-solve: a finite-element solve of a clamped beam (or of a mesh read from a file), driven
// end to end by the kernel library: nodal graph, assembly, a block conjugate-gradient solve of
// four load cases, a direct solve ordered by METIS, the lowest natural frequencies, a field
// transfer to sensor points, and the files a person looks at.
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "QORKytError.h"
#include "QORKytListing.h"
#include "QORKytMemoryManager.h"
#include "QORKytTimer.h"
#include "cg.h"
#include "direct.h"
#include "fe.h"
#include "modal.h"
#include "model.h"
#include "msh.h"
#include "output.h"
#include "theory.h"
#include "transfer.h"

namespace {

const char kUsage[] =
    "Usage: qkm-solve [options]\n"
    "\n"
    "Solves a clamped steel beam of 8-node hexahedra under four load cases (tip force in y,\n"
    "tip force in z, a torsion couple, gravity) with the kernel library, checks the results\n"
    "against beam theory, and writes beam.vtu (ParaView) and beam.png (a picture).\n"
    "\n"
    "Model\n"
    "  --cells NX NY NZ       cells of the beam along x, y, z               (60 12 12)\n"
    "  --size L W H           length (x), width (y), height (z) in m        (4 0.4 0.4)\n"
    "  --tets                 split every cell into six 4-node tetrahedra\n"
    "  --mesh FILE            read a Gmsh MSH 4.1 ASCII file of hexahedra or linear tetrahedra\n"
    "                         instead; it is clamped at its smallest x and loaded at its\n"
    "                         largest x, and no beam theory applies\n"
    "  --write-mesh FILE      write the generated mesh as MSH 4.1 and stop\n"
    "Material\n"
    "  --young E              Young's modulus in Pa                         (210e9)\n"
    "  --poisson NU           Poisson's ratio                               (0.3)\n"
    "  --density RHO          density in kg/m3                              (7850)\n"
    "Loads\n"
    "  --force F              tip force of the bending cases in N           (1e4)\n"
    "  --torque T             torsion couple at the tip in N m              (1e4)\n"
    "  --gravity G            acceleration of the gravity case in m/s2      (9.81)\n"
    "Solution\n"
    "  --tol TOL              relative residual of the iterative solve      (1e-8)\n"
    "  --max-iter N           iterations of the iterative solve             (20000)\n"
    "  --direct-cells NX NY NZ  cells of the smaller beam of the direct solve and the\n"
    "                         vibration analysis                            (20 6 6)\n"
    "  --no-direct            skip the direct solve and the vibration analysis\n"
    "  --modes N              natural frequencies to find                   (3)\n"
    "  --sensors N            sensor points of the field transfer           (500)\n"
    "  --neighbors K          nearest nodes per sensor point                (8)\n"
    "Output\n"
    "  --out DIR              folder of beam.vtu and beam.png (made if need be) (.)\n"
    "  --quiet                no progress line even on a terminal\n"
    "  --help                 this text\n"
    "\n"
    "Environment: ZMR_QST_OUT names a folder for the listing file, which then receives a\n"
    "trace of every phase. Exit status: 0 done, 1 bad command line, 2 unreadable mesh or\n"
    "unwritable output, 3 a solve failed.\n";

struct Options {
  // About 10,000 nodes and 30,000 unknowns, cells twice as long as they are wide.
  qks::Box box{4.0, 0.4, 0.4, 60, 12, 12};
  qks::Box direct_box{4.0, 0.4, 0.4, 20, 6, 6};
  qks::Material material;
  qks::Loads loads;
  bool tets = false;
  std::string mesh_file, write_mesh, out = ".";
  double tol = 1.0e-8;
  int max_iter = 20000;
  bool direct = true;
  int modes = 3, sensors = 500, neighbors = 8;
  bool quiet = false, help = false;
};

bool number(const char *text, double &value) {
  char *end = nullptr;
  errno = 0;
  value = std::strtod(text, &end);
  return end != text && *end == '\0' && errno == 0 && std::isfinite(value);
}

bool count(const char *text, int &value, int least) {
  double v = 0.0;
  if (!number(text, v) || v != std::floor(v) || v < least || v > 1.0e7) return false;
  value = static_cast<int>(v);
  return true;
}

// Reads the command line into `o`; false with `error` set on the first bad option.
bool parse(int argc, char **argv, Options &o, std::string &error) {
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    auto need = [&](int k) {
      if (i + k < argc) return true;
      error = a + " needs " + std::to_string(k) + (k == 1 ? " value" : " values");
      return false;
    };
    auto real = [&](double &v, bool positive) {
      if (!need(1)) return false;
      if (number(argv[++i], v) && (!positive || v > 0.0)) return true;
      error = a + ": expected a " + (positive ? "positive " : "") + "number, found '" + argv[i] + "'";
      return false;
    };
    auto integer = [&](int &v, int least) {
      if (!need(1)) return false;
      if (count(argv[++i], v, least)) return true;
      error = a + ": expected a whole number of at least " + std::to_string(least) +
              ", found '" + argv[i] + "'";
      return false;
    };
    auto cells = [&](qks::Box &b) {
      return integer(b.nx, 1) && integer(b.ny, 1) && integer(b.nz, 1);
    };
    auto text = [&](std::string &v) {
      if (!need(1)) return false;
      v = argv[++i];
      return true;
    };
    bool ok = true;
    if (a == "--help" || a == "-h") o.help = true;
    else if (a == "--cells") ok = cells(o.box);
    else if (a == "--direct-cells") ok = cells(o.direct_box);
    else if (a == "--size") ok = real(o.box.length, true) && real(o.box.width, true) && real(o.box.height, true);
    else if (a == "--tets") o.tets = true;
    else if (a == "--mesh") ok = text(o.mesh_file);
    else if (a == "--write-mesh") ok = text(o.write_mesh);
    else if (a == "--young") ok = real(o.material.young, true);
    else if (a == "--poisson") {
      ok = real(o.material.poisson, false);
      if (ok && !(o.material.poisson > -1.0 && o.material.poisson < 0.5)) {
        error = "--poisson: expected a ratio between -1 and 0.5";
        ok = false;
      }
    } else if (a == "--density") ok = real(o.material.density, true);
    else if (a == "--force") ok = real(o.loads.tip, false);
    else if (a == "--torque") ok = real(o.loads.torque, false);
    else if (a == "--gravity") ok = real(o.loads.gravity, false);
    else if (a == "--tol") ok = real(o.tol, true);
    else if (a == "--max-iter") ok = integer(o.max_iter, 1);
    else if (a == "--no-direct") o.direct = false;
    else if (a == "--modes") ok = integer(o.modes, 1);
    else if (a == "--sensors") ok = integer(o.sensors, 0);
    else if (a == "--neighbors") ok = integer(o.neighbors, 4);
    else if (a == "--out") ok = text(o.out);
    else if (a == "--quiet") o.quiet = true;
    else {
      error = "unknown option '" + a + "' (see --help)";
      ok = false;
    }
    if (!ok) return false;
  }
  o.direct_box.length = o.box.length;
  o.direct_box.width = o.box.width;
  o.direct_box.height = o.box.height;
  return true;
}

// Resident memory of the process now and at its peak, in MB.
double resident_mb() {
  long pages = 0, resident = 0;
  if (FILE *f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1048576.0;
}

double peak_mb() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return static_cast<double>(u.ru_maxrss) / 1024.0;
}

// mkdir -p: the folder and any missing parents.
bool make_folders(const std::string &path) {
  for (size_t at = path.find('/', 1); ; at = path.find('/', at + 1)) {
    const std::string part = path.substr(0, at);
    if (!part.empty() && mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) return false;
    if (at == std::string::npos) return true;
  }
}

bool listing_open() { return QORKytListingServices::GetDescriptor() != ~0u; }

// A line of the listing file, when one is open.
void trace(const std::string &line) {
  if (listing_open()) ehprint(line.c_str(), static_cast<qkm_len>(line.size()));
}

// Wall and processor time and memory of each phase, through the library's timer.
class Phases {
 public:
  void begin(const char *name) {
    name_ = name;
    timer_.Reset();
    timer_.Start();
    trace(std::string("phase ") + name + " begins");
  }
  void end() {
    timer_.Stop();
    rows_.push_back({name_, timer_.GetElapsed(), timer_.GetCPU(), resident_mb()});
    char line[160];
    std::snprintf(line, sizeof line, "phase %s ends: %.3f s wall, %.3f s cpu, %.1f MB resident",
                  name_, rows_.back().wall, rows_.back().cpu, rows_.back().mb);
    trace(line);
  }
  void print() const {
    std::printf("\nPhase                 wall s     cpu s   resident MB\n");
    double wall = 0.0, cpu = 0.0;
    for (const auto &r : rows_) {
      std::printf("  %-18s %8.3f  %8.3f  %10.1f\n", r.name, r.wall, r.cpu, r.mb);
      wall += r.wall;
      cpu += r.cpu;
    }
    std::printf("  %-18s %8.3f  %8.3f  %10.1f (peak)\n", "total", wall, cpu, peak_mb());
  }

 private:
  struct Row {
    const char *name;
    double wall, cpu, mb;
  };
  QORKytTimer timer_;
  const char *name_ = "";
  std::vector<Row> rows_;
};

const char *const kCaseNames[4] = {"tip force y", "tip force z", "torsion", "gravity"};

// The catalog warning of an iteration that did not converge.
void warn_not_converged(int which, const qks::CgReport &r, double tol) {
  QORKytTypeEncapError &none = QORKytTypeEncapError::EmptyEncapEr;
  std::fflush(stdout);
  QORKytErrorTools::CreateWarning(401, "QORKytaniError", QORKytTypeEncapError(r.iterations),
                                  QORKytTypeEncapError(r.residual[which]),
                                  QORKytTypeEncapError(tol),
                                  QORKytTypeEncapError(kCaseNames[which]), none, none, none,
                                  none, none);
  eyflsh();
}

// Largest magnitude of component c over the nodes of the face of largest x.
double tip_value(const qks::Mesh &mesh, const std::vector<double> &u, int c) {
  double lo[3], hi[3];
  qks::bounds(mesh, lo, hi);
  const double tol = 1e-9 * (hi[0] - lo[0]);
  double sum = 0.0;
  int n = 0;
  for (qkm_int i = 0; i < mesh.nodes(); ++i)
    if (mesh.xyz[3 * i] >= hi[0] - tol) {
      sum += u[3 * i + c];
      ++n;
    }
  return n ? sum / n : 0.0;
}

// Rotation about x of the tip face, from the tangential displacements of its nodes.
double tip_twist(const qks::Mesh &mesh, const std::vector<double> &u) {
  double lo[3], hi[3];
  qks::bounds(mesh, lo, hi);
  const double tol = 1e-9 * (hi[0] - lo[0]), yc = 0.5 * (lo[1] + hi[1]), zc = 0.5 * (lo[2] + hi[2]);
  double num = 0.0, den = 0.0;
  for (qkm_int i = 0; i < mesh.nodes(); ++i)
    if (mesh.xyz[3 * i] >= hi[0] - tol) {
      const double y = mesh.xyz[3 * i + 1] - yc, z = mesh.xyz[3 * i + 2] - zc;
      num += y * u[3 * i + 2] - z * u[3 * i + 1];
      den += y * y + z * z;
    }
  return den > 0.0 ? num / den : 0.0;
}

double relative_difference(const double *a, const double *b, qkm_int n) {
  double d = 0.0, s = 0.0;
  for (qkm_int i = 0; i < n; ++i) {
    d += (a[i] - b[i]) * (a[i] - b[i]);
    s += b[i] * b[i];
  }
  return s > 0.0 ? std::sqrt(d / s) : std::sqrt(d);
}

const char *verdict(double error, double bound) {
  return std::fabs(error) <= bound ? "within" : "OUTSIDE";
}

// The model of one solve: mesh, unknowns, graph, stiffness (and mass).
struct Model {
  qks::Mesh mesh;
  qks::Dofs dofs;
  qks::NodalGraph graph;
  qks::SymMatrix stiffness, mass;
};

double clamp_tolerance(const qks::Mesh &mesh) {
  double lo[3], hi[3];
  qks::bounds(mesh, lo, hi);
  return 1e-9 * (hi[0] - lo[0]);
}

// Graph, pattern and assembly of `m.mesh`; false with a message on failure.
bool build(Model &m, const qks::Material &mat, bool with_mass, QORKytMemoryManager &memory,
           Phases *phases) {
  m.dofs = qks::clamp_min_x(m.mesh, clamp_tolerance(m.mesh));
  if (m.dofs.count == 0 || m.dofs.count == 3 * m.mesh.nodes()) {
    std::fprintf(stderr, "qkm-solve: the mesh has no clamped face and free nodes at once\n");
    return false;
  }
  if (phases) phases->begin("graph");
  m.graph = qks::nodal_graph(m.mesh, memory);
  if (phases) phases->end();
  if (phases) phases->begin("assembly");
  m.stiffness = qks::matrix_pattern(m.mesh, m.graph, m.dofs);
  if (with_mass) m.mass = m.stiffness;
  const int status =
      qks::assemble(m.mesh, mat, m.dofs, m.stiffness, with_mass ? &m.mass : nullptr, memory);
  if (phases) phases->end();
  if (status != 0) {
    std::fprintf(stderr, "qkm-solve: assembly failed (status %d): an inverted element or no memory\n",
                 status);
    return false;
  }
  return true;
}

int run(const Options &o) {
  const bool progress = !o.quiet && isatty(STDOUT_FILENO);
  SetKytTraces();
  Phases phases;
  QORKytMemoryManager memory(16);

  // ---- mesh
  Model main;
  const bool beam = o.mesh_file.empty();
  phases.begin("mesh");
  if (beam) {
    main.mesh = o.tets ? qks::make_box_tets(o.box) : qks::make_box(o.box);
  } else {
    std::string error;
    if (!qks::read_msh(o.mesh_file, main.mesh, error)) {
      std::fprintf(stderr, "qkm-solve: %s\n", error.c_str());
      return 2;
    }
  }
  phases.end();
  if (!o.write_mesh.empty()) {
    std::string error;
    if (!qks::write_msh(o.write_mesh, main.mesh, error)) {
      std::fprintf(stderr, "qkm-solve: %s\n", error.c_str());
      return 2;
    }
    std::printf("wrote %s: %d nodes, %d elements\n", o.write_mesh.c_str(), main.mesh.nodes(),
                main.mesh.elements());
    return 0;
  }
  if (!make_folders(o.out)) {
    std::fprintf(stderr, "qkm-solve: cannot make the folder %s: %s\n", o.out.c_str(),
                 std::strerror(errno));
    return 2;
  }

  if (beam)
    std::printf("Model: %s beam %g x %g x %g m, %d x %d x %d cells\n",
                o.tets ? "tetrahedral" : "hexahedral", o.box.length, o.box.width, o.box.height,
                o.box.nx, o.box.ny, o.box.nz);
  else
    std::printf("Model: %s (%s)\n", o.mesh_file.c_str(),
                main.mesh.cell == qks::Cell::Hex8 ? "hexahedra" : "tetrahedra");
  std::printf("  E = %g Pa, nu = %g, rho = %g kg/m3\n", o.material.young, o.material.poisson,
              o.material.density);
  if (!build(main, o.material, false, memory, &phases)) return 3;
  std::printf("  %d nodes, %d elements, %d unknowns, %d stored terms\n", main.mesh.nodes(),
              main.mesh.elements(), main.dofs.count, main.stiffness.terms());
  char line[200];
  std::snprintf(line, sizeof line, "model: %d nodes, %d elements, %d unknowns", main.mesh.nodes(),
                main.mesh.elements(), main.dofs.count);
  trace(line);

  // ---- iterative solve of the four load cases in one block
  phases.begin("loads");
  const std::vector<double> b = qks::load_cases(main.mesh, o.material, main.dofs, o.loads);
  phases.end();
  const qkm_int n = main.dofs.count;
  std::vector<double> x(4 * static_cast<size_t>(n), 0.0);
  qks::CgOptions cg;
  cg.tolerance = o.tol;
  cg.max_iterations = o.max_iter;
  cg.progress = progress;
  phases.begin("block CG");
  const qks::CgReport report = qks::block_cg(main.stiffness, main.dofs, b.data(), x.data(), 4, cg);
  phases.end();
  std::printf("\nBlock conjugate gradients, 4 load cases in one sweep (tolerance %g):\n", o.tol);
  std::printf("  %d iterations, %.3f s, %.3f ms per iteration of 4 vectors\n", report.iterations,
              report.seconds, report.iterations ? 1e3 * report.iteration_seconds / report.iterations : 0.0);
  for (int c = 0; c < 4; ++c) {
    if (report.converged_at[c] >= 0)
      std::printf("  %-12s converged at %6d   relative residual %.3e\n", kCaseNames[c],
                  report.converged_at[c], report.residual[c]);
    else
      std::printf("  %-12s NOT converged       relative residual %.3e (warning %s)\n",
                  kCaseNames[c], report.residual[c], listing_open() ? "in the listing" : "below");
    std::snprintf(line, sizeof line, "cg %s: iterations %d residual %.3e", kCaseNames[c],
                  report.converged_at[c], report.residual[c]);
    trace(line);
  }
  for (int c = 0; c < 4; ++c)
    if (report.converged_at[c] < 0) warn_not_converged(c, report, o.tol);

  std::vector<std::vector<double>> field(4);
  for (int c = 0; c < 4; ++c)
    field[c] = qks::nodal_field(main.mesh, main.dofs, x.data() + static_cast<size_t>(c) * n);

  // ---- against beam theory
  const qks::BeamTheory theory = qks::beam_theory(o.box, o.material, o.loads);
  const double tip_y = tip_value(main.mesh, field[0], 1), tip_z = tip_value(main.mesh, field[1], 2);
  const double twist = tip_twist(main.mesh, field[2]), grav = tip_value(main.mesh, field[3], 2);
  std::printf("\nTip response                  computed        theory    error\n");
  auto row = [&](const char *what, double fe, double th, double bound) {
    if (!beam) {
      std::printf("  %-26s %12.5e\n", what, fe);
      return;
    }
    const double err = (fe - th) / th;
    std::printf("  %-26s %12.5e  %12.5e  %+6.2f%%", what, fe, th, 100.0 * err);
    if (bound > 0.0) std::printf("  %s %g%%", verdict(err, bound), 100.0 * bound);
    std::printf("\n");
  };
  row("deflection y, force y (m)", tip_y, theory.tip_y, 0.03);
  row("deflection z, force z (m)", tip_z, theory.tip_z, 0.03);
  row("twist, torque (rad)", twist, theory.twist, 0.0);
  row("deflection z, gravity (m)", grav, theory.gravity_z, 0.0);
  if (beam) std::printf("  (Timoshenko beam with shear; Saint-Venant torsion)\n");

  // ---- direct solve and vibration on the smaller model
  if (o.direct) {
    Model small;
    const bool own = !beam;
    if (own && main.dofs.count > 60000) {
      std::printf("\nDirect solve and vibration skipped: the mesh has more than 60000 unknowns.\n");
    } else {
      phases.begin("direct setup");
      if (own) small.mesh = main.mesh;
      else small.mesh = o.tets ? qks::make_box_tets(o.direct_box) : qks::make_box(o.direct_box);
      const bool ok = build(small, o.material, true, memory, nullptr);
      phases.end();
      if (!ok) return 3;
      const qkm_int ns = small.dofs.count;
      const std::vector<double> bs = qks::load_cases(small.mesh, o.material, small.dofs, o.loads);
      std::vector<double> xi(4 * static_cast<size_t>(ns), 0.0), xd = bs;
      qks::CgOptions tight = cg;
      tight.tolerance = 1e-13;
      phases.begin("direct CG");
      const qks::CgReport rs = qks::block_cg(small.stiffness, small.dofs, bs.data(), xi.data(), 4, tight);
      phases.end();
      qks::DirectSolver direct;
      phases.begin("direct factor");
      const int status = direct.factor(small.stiffness, small.mesh, small.dofs, small.graph);
      phases.end();
      const qks::DirectReport &dr = direct.report();
      if (status != 0) {
        std::fprintf(stderr, "qkm-solve: the direct factorisation failed (status %d)\n", status);
        return 3;
      }
      phases.begin("direct solve");
      direct.solve(xd.data(), 4);
      phases.end();
      std::printf("\nDirect solve (%s, %d unknowns), nested dissection by METIS_NodeND:\n",
                  own ? "the same mesh" : "smaller beam", ns);
      if (!own)
        std::printf("  %d x %d x %d cells\n", o.direct_box.nx, o.direct_box.ny, o.direct_box.nz);
      std::printf("  %d fronts, largest %d, %lld factor entries, work %.3e, smallest pivot ratio %.3e\n",
                  dr.fronts, dr.largest_front, dr.factor_entries, dr.work, dr.min_ratio);
      std::printf("  ordering %.3f s, elimination %.3f s\n", dr.ordering_seconds, dr.factor_seconds);
      for (int c = 0; c < 4; ++c) {
        const double d = relative_difference(xd.data() + static_cast<size_t>(c) * ns,
                                             xi.data() + static_cast<size_t>(c) * ns, ns);
        std::printf("  %-12s direct against iterative (CG to %g, %d it.): %.2e  %s 1e-8\n",
                    kCaseNames[c], tight.tolerance, rs.converged_at[c], d, verdict(d, 1e-8));
      }

      qks::ModalOptions mo;
      mo.modes = o.modes;
      phases.begin("vibration");
      const qks::ModalReport modes = qks::subspace_iteration(
          small.stiffness, small.mass, [&](double *v, int k) { direct.solve(v, k); }, mo);
      phases.end();
      std::printf("\nNatural frequencies (subspace iteration, %d iterations%s):\n",
                  modes.iterations, modes.converged ? "" : ", NOT converged");
      for (int k = 0; k < static_cast<int>(modes.frequency.size()); ++k) {
        if (beam && k < 3) {
          const double err = (modes.frequency[k] - theory.freq[k]) / theory.freq[k];
          std::printf("  mode %d  %10.4f Hz   theory %10.4f Hz (%s %d)  %+6.2f%%  %s 5%%\n", k + 1,
                      modes.frequency[k], theory.freq[k], theory.kind[k], theory.order[k],
                      100.0 * err, verdict(err, 0.05));
        } else {
          std::printf("  mode %d  %10.4f Hz\n", k + 1, modes.frequency[k]);
        }
      }
    }
  }

  // ---- field transfer to sensor points
  if (o.sensors > 0) {
    phases.begin("field transfer");
    const std::vector<double> points = qks::sensor_points(main.mesh, o.sensors, 12345u);
    std::vector<double> fitted;
    const bool ok = qks::transfer_field(main.mesh, field[1], points, o.neighbors, fitted);
    const std::vector<double> exact = qks::interpolate_field(main.mesh, field[1], points);
    phases.end();
    if (!ok) {
      std::printf("\nField transfer failed.\n");
    } else {
      double umax = 0.0, emax = 0.0, esum = 0.0;
      int used = 0;
      for (double v : field[1]) umax = std::max(umax, std::fabs(v));
      for (size_t i = 0; i < exact.size(); i += 3) {
        if (std::isnan(exact[i])) continue;
        double e = 0.0;
        for (int c = 0; c < 3; ++c) e += (fitted[i + c] - exact[i + c]) * (fitted[i + c] - exact[i + c]);
        emax = std::max(emax, std::sqrt(e));
        esum += e;
        ++used;
      }
      std::printf("\nField transfer of the tip-z displacement to %d sensor points (%d nearest nodes,\n"
                  "linear fit) against the finite-element interpolation:\n",
                  used, o.neighbors);
      std::printf("  largest error %.3e m (%.3f%% of the largest displacement), rms %.3e m\n", emax,
                  umax > 0.0 ? 100.0 * emax / umax : 0.0, used ? std::sqrt(esum / used) : 0.0);
    }
  }

  // ---- outputs
  phases.begin("output");
  const std::vector<double> vm = qks::von_mises(main.mesh, o.material, field[1]);
  const std::string vtu = o.out + "/beam.vtu", png = o.out + "/beam.png";
  std::string error;
  bool written = qks::write_vtu(vtu, main.mesh, field[1], vm, error);
  if (written)
    written = qks::write_png(png, main.mesh, field[1], 0.0,
                             beam ? "Cantilever under a tip force in z" : o.mesh_file, qks::kPictureWidth, qks::kPictureHeight,
                             error);
  phases.end();
  if (!written) {
    std::fprintf(stderr, "qkm-solve: %s\n", error.c_str());
    return 2;
  }

  phases.print();
  std::printf("  work arrays of the memory manager: peak %.1f MB\n",
              memory.GetMemoryUsed() * 8.0 / 1048576.0);
  std::printf("\nWrote %s (displacement and von Mises stress of the tip-z case, for ParaView)\n"
              "  and %s (the deformed beam coloured by displacement magnitude).\n",
              vtu.c_str(), png.c_str());
  if (listing_open())
    std::printf("Listing: %s/%s\n", static_cast<const char *>(QORKytListingServices::GetDirectory()),
                static_cast<const char *>(QORKytListingServices::GetFileName()));
  return report.converged ? 0 : 3;
}

}  // namespace

int main(int argc, char **argv) {
  Options o;
  std::string error;
  if (!parse(argc, argv, o, error)) {
    std::fprintf(stderr, "qkm-solve: %s\n", error.c_str());
    return 1;
  }
  if (o.help) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  return run(o);
}
