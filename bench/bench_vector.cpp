// Dense vector kernels against OpenBLAS (one thread) and the reference BLAS, unit stride.
#include <random>
#include <vector>

#include "anchors.h"
#include "kernels.h"

namespace {

using axpy_t = void (*)(const int *, const double *, const double *, const int *, double *,
                        const int *);
using copy_t = void (*)(const int *, const double *, const int *, double *, const int *);
using scal_t = void (*)(const int *, const double *, double *, const int *);
using red_t = double (*)(const int *, const double *, const int *);

struct Vectors {
  std::vector<double> x, y;
  explicit Vectors(int n) : x(n), y(n) {
    std::mt19937_64 rng(n);
    std::uniform_real_distribution<double> d(-1, 1);
    for (auto &v : x) v = d(rng);
    for (auto &v : y) v = d(rng);
  }
};

void *lib_of(const std::string &impl) {
  return impl == "openblas" ? qkm_bench::openblas() : qkm_bench::refblas();
}

void run_axpy(benchmark::State &st, axpy_t f, int n) {
  const int one = 1;
  Vectors v(n);
  // alternate signs so that y stays bounded over many iterations
  double a = 1e-3;
  for (auto _ : st) {
    f(&n, &a, v.x.data(), &one, v.y.data(), &one);
    a = -a;
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(st.iterations() * n * 24);
}
void run_copy(benchmark::State &st, copy_t f, int n) {
  const int one = 1;
  Vectors v(n);
  for (auto _ : st) {
    f(&n, v.x.data(), &one, v.y.data(), &one);
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(st.iterations() * n * 16);
}
void run_scal(benchmark::State &st, scal_t f, int n) {
  const int one = 1;
  Vectors v(n);
  double a = 1.0000001;
  for (auto _ : st) {
    f(&n, &a, v.x.data(), &one);
    a = 1.0 / a;
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(st.iterations() * n * 16);
}
void run_red(benchmark::State &st, red_t f, int n) {
  const int one = 1;
  Vectors v(n);
  for (auto _ : st) benchmark::DoNotOptimize(f(&n, v.x.data(), &one));
  st.SetBytesProcessed(st.iterations() * n * 8);
}

template <class F, class R>
void add(const char *kernel, const char *blas_name, F qkm, R runner) {
  for (int n : {1000, 1000000}) {
    const std::string cs = std::string(kernel) + "/n:" + std::to_string(n);
    benchmark::RegisterBenchmark((cs + "/qkm").c_str(), [=](benchmark::State &st) {
      runner(st, qkm, n);
    });
    for (std::string impl : {"openblas", "refblas"}) {
      benchmark::RegisterBenchmark((cs + "/" + impl).c_str(), [=](benchmark::State &st) {
        runner(st, qkm_bench::sym<F>(lib_of(impl), blas_name), n);
      });
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  add<axpy_t>("e_daxpy", "daxpy_", e_daxpy, run_axpy);
  add<copy_t>("e_dcopy", "dcopy_", e_dcopy, run_copy);
  add<scal_t>("e_dscal", "dscal_", e_dscal, run_scal);
  add<red_t>("e_dnrm2", "dnrm2_", e_dnrm2, run_red);
  add<red_t>("e_dasum", "dasum_", e_dasum, run_red);
  return qkm_bench::run_main(argc, argv);
}
