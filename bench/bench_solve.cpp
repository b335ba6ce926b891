// The phases of the sample solver on clamped beams of the default proportions (4 m x 0.4 m x
// 0.4 m, cells of 5 x 1 x 1 aspect) at about 3k, 30k and 300k unknowns: the nodal graph
// (eaupnn + eaunln), the matrix pattern, the assembly of the incompatible-modes hexahedra, and
// one iteration of block CG on the four load cases, side by side with Eigen's
// ConjugateGradient (Lower|Upper, DiagonalPreconditioner) on the same matrix solving the four
// cases one after the other.
//
// Cases: "graph/n:<unknowns>", "pattern/...", "assemble/..." (qkm), "product/..." (the
// matrix times the four load vectors) and "cg_iteration/..." (qkm, eigen). The time of a CG
// iteration is a difference: a solve of kFirst + kMore iterations less one of kFirst (tolerance 0,
// so that none stops early), divided by kMore, so that neither side's set-up (the block-Jacobi
// inverses, the initial and final residuals, Eigen's initial residuals) counts. For qkm that is one
// four-vector iteration, for Eigen four single-vector iterations, one per load case.
#include <chrono>
#include <map>
#include <memory>

#include "QORKytMemoryManager.h"
#include "anchors.h"
#include "cg.h"
#include "direct.h"
#include "fe.h"
#include "modal.h"

#ifdef QKM_BENCH_EIGEN
#include <Eigen/IterativeLinearSolvers>
#include <Eigen/Sparse>
#endif

namespace {

using Vec = std::vector<double>;
constexpr int kFirst = 2, kMore = 16;

struct Model {
  qks::Mesh mesh;
  qks::Dofs dofs;
  qks::NodalGraph graph;
  qks::SymMatrix k;
  Vec b;  // the four load cases
};

// Built once per size, by the same calls that the timed phases make.
const Model &model(int cells) {
  static std::map<int, std::unique_ptr<Model>> cache;
  auto &slot = cache[cells];
  if (!slot) {
    slot = std::make_unique<Model>();
    Model &m = *slot;
    const qks::Box box{4.0, 0.4, 0.4, 5 * cells, cells, cells};
    m.mesh = qks::make_box(box);
    m.dofs = qks::clamp_min_x(m.mesh, 1e-9);
    QORKytMemoryManager memory(100);
    m.graph = qks::nodal_graph(m.mesh, memory);
    m.k = qks::matrix_pattern(m.mesh, m.graph, m.dofs);
    if (qks::assemble(m.mesh, qks::Material{}, m.dofs, m.k, nullptr, memory) != 0) std::abort();
    m.b = qks::load_cases(m.mesh, qks::Material{}, m.dofs, qks::Loads{});
  }
  return *slot;
}

void run_graph(benchmark::State &st, int cells) {
  const Model &m = model(cells);
  QORKytMemoryManager memory(100);
  for (auto _ : st) benchmark::DoNotOptimize(qks::nodal_graph(m.mesh, memory));
}

void run_pattern(benchmark::State &st, int cells) {
  const Model &m = model(cells);
  for (auto _ : st) benchmark::DoNotOptimize(qks::matrix_pattern(m.mesh, m.graph, m.dofs));
}

void run_assemble(benchmark::State &st, int cells) {
  const Model &m = model(cells);
  qks::SymMatrix k = m.k;
  QORKytMemoryManager memory(100);
  for (auto _ : st) {
    std::fill(k.a.begin(), k.a.end(), 0.0);
    if (qks::assemble(m.mesh, qks::Material{}, m.dofs, k, nullptr, memory) != 0)
      st.SkipWithError("inverted");
    benchmark::ClobberMemory();
  }
}

// The product that dominates an iteration: one eaxmvm sweep for the four vectors.
void run_product(benchmark::State &st, int cells) {
  const Model &m = model(cells);
  Vec y(m.b.size());
  for (auto _ : st) {
    m.k.multiply(m.b.data(), y.data(), 4);
    benchmark::ClobberMemory();
  }
}

// Wall-clock seconds of one CG iteration: solve(k) runs k iterations and returns its time.
template <class Solve>
double per_iteration(Solve &&solve) {
  const double t1 = solve(kFirst);
  return (solve(kFirst + kMore) - t1) / kMore;
}

double seconds_since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

void run_cg(benchmark::State &st, int cells) {
  const Model &m = model(cells);
  Vec x(m.b.size());
  double loop = 0.0;
  for (auto _ : st) {
    st.SetIterationTime(per_iteration([&](int iterations) {
      std::fill(x.begin(), x.end(), 0.0);
      qks::CgOptions o;
      o.tolerance = 0.0;
      o.max_iterations = iterations;
      const auto t0 = std::chrono::steady_clock::now();
      const qks::CgReport r = qks::block_cg(m.k, m.dofs, m.b.data(), x.data(), 4, o);
      const double t = seconds_since(t0);
      if (r.iterations != iterations) st.SkipWithError("stopped early");
      if (iterations > kFirst) loop += r.iteration_seconds / iterations;
      return t;
    }));
  }
  // For comparison: the iterations' own clock of the longer solve.
  st.counters["loop_us"] = 1e6 * loop / static_cast<double>(st.iterations());
}

#ifdef QKM_BENCH_EIGEN
using SpMat = Eigen::SparseMatrix<double, Eigen::RowMajor, int>;

// Both triangles of the stored lower one, as Lower|Upper wants them.
const SpMat &eigen_matrix(int cells) {
  static std::map<int, std::unique_ptr<SpMat>> cache;
  auto &slot = cache[cells];
  if (!slot) {
    const qks::SymMatrix &k = model(cells).k;
    std::vector<Eigen::Triplet<double, int>> t;
    t.reserve(2 * k.a.size());
    for (int i = 0; i < k.n; ++i) {
      const int d = k.rowend[i + 1] - 1;
      for (int p = k.rowend[i]; p < d; ++p) {
        t.emplace_back(i, k.col[p] - 1, k.a[p]);
        t.emplace_back(k.col[p] - 1, i, k.a[p]);
      }
      t.emplace_back(i, i, k.a[d]);
    }
    slot = std::make_unique<SpMat>(k.n, k.n);
    slot->setFromTriplets(t.begin(), t.end());
    slot->makeCompressed();
  }
  return *slot;
}

// Four single-vector products with both triangles, as Eigen's CG makes them.
void run_eigen_product(benchmark::State &st, int cells) {
  const Model &m = model(cells);
  const SpMat &a = eigen_matrix(cells);
  const int n = m.k.n;
  Eigen::VectorXd y(n);
  for (auto _ : st)
    for (int lc = 0; lc < 4; ++lc) {
      y.noalias() =
          a * Eigen::Map<const Eigen::VectorXd>(m.b.data() + static_cast<size_t>(lc) * n, n);
      benchmark::DoNotOptimize(y.data());
    }
}

void run_eigen_cg(benchmark::State &st, int cells) {
  const Model &m = model(cells);
  const SpMat &a = eigen_matrix(cells);
  Eigen::ConjugateGradient<SpMat, Eigen::Lower | Eigen::Upper,
                           Eigen::DiagonalPreconditioner<double>>
      cg;
  cg.setTolerance(1e-30);
  cg.compute(a);
  const int n = m.k.n;
  Eigen::VectorXd x(n);
  for (auto _ : st) {
    st.SetIterationTime(per_iteration([&](int iterations) {
      cg.setMaxIterations(iterations);
      const auto t0 = std::chrono::steady_clock::now();
      for (int lc = 0; lc < 4; ++lc) {
        x = cg.solve(
            Eigen::Map<const Eigen::VectorXd>(m.b.data() + static_cast<size_t>(lc) * n, n));
        if (cg.iterations() != iterations) st.SkipWithError("stopped early");
      }
      benchmark::DoNotOptimize(x.data());
      return seconds_since(t0);
    }));
  }
}
#endif

// The whole iterative solve of the four cases to the program's tolerance (1e-8).
void run_cg_solve(benchmark::State &st, int cells) {
  const Model &m = model(cells);
  Vec x(m.b.size());
  qks::CgOptions options;
  options.tolerance = 1e-8;
  int iterations = 0;
  for (auto _ : st) {
    std::fill(x.begin(), x.end(), 0.0);
    iterations = qks::block_cg(m.k, m.dofs, m.b.data(), x.data(), 4, options).iterations;
    benchmark::ClobberMemory();
  }
  st.counters["iterations"] = iterations;
}

// Ordering and elimination, then the solve of the four cases, then the three lowest
// frequencies (mass assembled once outside the timing).
void run_direct_factor(benchmark::State &st, int cells) {
  const Model &m = model(cells);
  for (auto _ : st) {
    qks::DirectSolver direct;
    if (direct.factor(m.k, m.mesh, m.dofs, m.graph) != 0) st.SkipWithError("factor");
  }
}

void run_direct_solve(benchmark::State &st, int cells) {
  const Model &m = model(cells);
  qks::DirectSolver direct;
  if (direct.factor(m.k, m.mesh, m.dofs, m.graph) != 0) st.SkipWithError("factor");
  Vec x(m.b.size());
  for (auto _ : st) {
    x = m.b;
    direct.solve(x.data(), 4);
    benchmark::ClobberMemory();
  }
}

void run_vibration(benchmark::State &st, int cells) {
  const Model &m = model(cells);
  qks::SymMatrix mass = m.k;
  std::fill(mass.a.begin(), mass.a.end(), 0.0);
  qks::SymMatrix k = mass;
  QORKytMemoryManager memory(100);
  if (qks::assemble(m.mesh, qks::Material{}, m.dofs, k, &mass, memory) != 0) std::abort();
  qks::DirectSolver direct;
  if (direct.factor(m.k, m.mesh, m.dofs, m.graph) != 0) st.SkipWithError("factor");
  for (auto _ : st)
    benchmark::DoNotOptimize(qks::subspace_iteration(
        m.k, mass, [&](double *v, int nrhs) { direct.solve(v, nrhs); }, qks::ModalOptions{}));
}

int register_all() {
  for (int cells : {5, 12, 26}) {
    // Unknowns: 3 per node, the clamped face at x = 0 held.
    const std::string tag = "/n:" + std::to_string(3 * 5 * cells * (cells + 1) * (cells + 1));
    benchmark::RegisterBenchmark(("graph" + tag + "/qkm").c_str(), run_graph, cells);
    benchmark::RegisterBenchmark(("pattern" + tag + "/qkm").c_str(), run_pattern, cells);
    benchmark::RegisterBenchmark(("assemble" + tag + "/qkm").c_str(), run_assemble, cells);
    benchmark::RegisterBenchmark(("product" + tag + "/qkm").c_str(), run_product, cells);
    benchmark::RegisterBenchmark(("cg_iteration" + tag + "/qkm").c_str(), run_cg, cells)
        ->UseManualTime();
    benchmark::RegisterBenchmark(("cg_solve" + tag + "/qkm").c_str(), run_cg_solve, cells)
        ->Iterations(1);
    // The direct path grows much faster than linearly (a 130k-unknown beam takes 15 s and
    // 1 GB to factor): it runs on the two smaller sizes.
    if (cells <= 12) {
      benchmark::RegisterBenchmark(("direct_factor" + tag + "/qkm").c_str(), run_direct_factor, cells);
      benchmark::RegisterBenchmark(("direct_solve4" + tag + "/qkm").c_str(), run_direct_solve, cells);
      benchmark::RegisterBenchmark(("vibration" + tag + "/qkm").c_str(), run_vibration, cells);
    }
#ifdef QKM_BENCH_EIGEN
    benchmark::RegisterBenchmark(("product" + tag + "/eigen").c_str(), run_eigen_product, cells);
    benchmark::RegisterBenchmark(("cg_iteration" + tag + "/eigen").c_str(), run_eigen_cg, cells)
        ->UseManualTime();
#endif
  }
  return 0;
}
const int registered = register_all();

}  // namespace

QKM_BENCH_MAIN()
