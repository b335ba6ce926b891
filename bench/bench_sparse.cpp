// Packed triangular solve against OpenBLAS (one thread), and the sparse matrix-vector product
// against Eigen 3 on the stiffness pattern of a 3-D hexahedral mesh of 100^3 nodes (27-point
// stencil), with the machine's stream bandwidth measured in the same run.
//
// Cases: "dtpsv/<uplo><trans>/n:<n>" (qkm, openblas), "spmv_sym/rhs:4" and "spmv_gen/rhs:1"
// (qkm, eigen), "stream_triad" (peak). The products report bytes per second: the compulsory
// traffic of one product (each term's value and column, rowend, x read once, y written once).
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "anchors.h"
#include "kernels.h"
#include "tests/support/hex_mesh.h"

#ifdef QKM_BENCH_EIGEN
#include <Eigen/Dense>
#include <Eigen/Sparse>
#endif

namespace {

using Vec = std::vector<double>;
using tpsv_t = void (*)(const char *, const char *, const char *, const int *, const double *,
                        double *, const int *, size_t, size_t, size_t);

Vec random_vec(size_t len, unsigned seed, double scale = 1) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-scale, scale);
  Vec v(len);
  for (auto &e : v) e = u(rng);
  return v;
}

// ---- packed triangular solve ---------------------------------------------------------------
// A well-conditioned triangle (diagonal near 1.5, the rest of size 1/n); x is restored from b
// before each solve, in both runs alike.
void run_tpsv(benchmark::State &st, tpsv_t f, const char *flags, int n) {
  Vec ap = random_vec(static_cast<size_t>(n) * (n + 1) / 2, n, 1.0 / n);
  for (int j = 1; j <= n; ++j) {
    ap[static_cast<size_t>(j) * (j + 1) / 2 - 1] += 1.5;
    ap[static_cast<size_t>(j - 1) * (2 * n - j) / 2 + j - 1] += 1.5;
  }
  const Vec b = random_vec(n, n + 1);
  Vec x(n);
  const int one = 1;
  const char uplo[2] = {flags[0], 0}, trans[2] = {flags[1], 0};
  for (auto _ : st) {
    std::copy(b.begin(), b.end(), x.begin());
    f(uplo, trans, "N", &n, ap.data(), x.data(), &one, 1, 1, 1);
    benchmark::ClobberMemory();
  }
  st.counters["GFLOPS"] =
      benchmark::Counter(static_cast<double>(n) * n * st.iterations(), benchmark::Counter::kIsRate);
}

// ---- sparse matrix-vector product ----------------------------------------------------------
constexpr int kSide = 100;

const qkm_mesh::SparseRows &mesh(bool lower) {
  static const qkm_mesh::SparseRows sym = qkm_mesh::hex_laplacian(kSide, kSide, kSide, true);
  static const qkm_mesh::SparseRows gen = qkm_mesh::hex_laplacian(kSide, kSide, kSide, false);
  return lower ? sym : gen;
}

double traffic(const qkm_mesh::SparseRows &m, int nrhs) {
  return 12.0 * m.a.size() + 4.0 * m.nrow + 16.0 * m.nrow * nrhs;
}

void run_qkm_mvm(benchmark::State &st, int kind, int nrhs) {
  const auto &m = mesh(kind == 1);
  const int n = m.nrow, nterm = static_cast<int>(m.a.size());
  const Vec x = random_vec(static_cast<size_t>(n) * nrhs, 3);
  Vec y(x.size());
  for (auto _ : st) {
    eaxmvm(&kind, &nterm, &m.nrow, &n, &nrhs, m.col.data(), m.rowend.data(), m.a.data(),
           x.data(), y.data());
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(static_cast<int64_t>(traffic(m, nrhs) * st.iterations()));
}

#ifdef QKM_BENCH_EIGEN
using SpMat = Eigen::SparseMatrix<double, Eigen::RowMajor, int>;

// The same rows as an Eigen matrix: the lower triangle with its diagonal for the symmetric
// kind (what selfAdjointView<Lower> reads), both triangles for the general kind.
SpMat eigen_matrix(const qkm_mesh::SparseRows &m) {
  std::vector<Eigen::Triplet<double, int>> t;
  t.reserve(m.a.size());
  for (int i = 0, p = 0; i < m.nrow; ++i) {
    const int d = m.rowend[i + 1] - 1;
    for (; p < d; ++p) t.emplace_back(i, m.col[p] - 1, m.a[p]);
    t.emplace_back(i, i, m.a[d]);
    p = d + 1;
  }
  SpMat a(m.nrow, m.nrow);
  a.setFromTriplets(t.begin(), t.end());
  a.makeCompressed();
  return a;
}

void run_eigen_mvm(benchmark::State &st, bool symmetric, int nrhs) {
  const auto &m = mesh(symmetric);
  const SpMat a = eigen_matrix(m);
  const Vec xs = random_vec(static_cast<size_t>(m.nrow) * nrhs, 3);
  const Eigen::MatrixXd x = Eigen::Map<const Eigen::MatrixXd>(xs.data(), m.nrow, nrhs);
  Eigen::MatrixXd y(m.nrow, nrhs);
  for (auto _ : st) {
    if (symmetric)
      y.noalias() = a.selfadjointView<Eigen::Lower>() * x;
    else
      y.noalias() = a * x;
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(static_cast<int64_t>(traffic(m, nrhs) * st.iterations()));
}
#endif

// ---- the machine's bandwidth: a STREAM triad over 3 x 128 MiB, 24 bytes per element -------
void run_triad(benchmark::State &st) {
  const size_t len = size_t{1} << 24;
  Vec a(len, 0.0), b = random_vec(len, 5), c = random_vec(len, 6);
  const double s = 1.5;
  for (auto _ : st) {
    double *pa = a.data();
    const double *pb = b.data(), *pc = c.data();
    for (size_t i = 0; i < len; ++i) pa[i] = pb[i] + s * pc[i];
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(static_cast<int64_t>(24 * len * st.iterations()));
}

int register_all() {
  for (const char *flags : {"UN", "UT", "LN", "LT"})
    for (int n : {100, 1000, 4000}) {
      const std::string cs = std::string("dtpsv/") + flags + "/n:" + std::to_string(n);
      benchmark::RegisterBenchmark((cs + "/qkm").c_str(), [=](benchmark::State &st) {
        run_tpsv(st, e_dtpsv, flags, n);
      });
      benchmark::RegisterBenchmark((cs + "/openblas").c_str(), [=](benchmark::State &st) {
        run_tpsv(st, qkm_bench::sym<tpsv_t>(qkm_bench::openblas(), "dtpsv_"), flags, n);
      });
    }
  benchmark::RegisterBenchmark("spmv_sym/rhs:4/qkm", [](benchmark::State &st) { run_qkm_mvm(st, 1, 4); });
  benchmark::RegisterBenchmark("spmv_gen/rhs:1/qkm", [](benchmark::State &st) { run_qkm_mvm(st, 2, 1); });
#ifdef QKM_BENCH_EIGEN
  benchmark::RegisterBenchmark("spmv_sym/rhs:4/eigen", [](benchmark::State &st) { run_eigen_mvm(st, true, 4); });
  benchmark::RegisterBenchmark("spmv_gen/rhs:1/eigen", [](benchmark::State &st) { run_eigen_mvm(st, false, 1); });
#endif
  benchmark::RegisterBenchmark("stream_triad/peak", run_triad);
  return 0;
}
const int registered = register_all();

}  // namespace

QKM_BENCH_MAIN()
