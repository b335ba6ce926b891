// eagemm against dgemm of OpenBLAS (one thread) and of the reference BLAS: square products,
// op(B) = B ("NN") and op(B) = B^T ("NT"), C := 1.0 * A * op(B) + 0.5 * C.
//
// The machine is shared with other work: each product is timed by the CPU time of the
// calling thread (manual timing), so that time slices given to other processes do not count.
#include <time.h>

#include <random>
#include <string>
#include <vector>

#include "anchors.h"
#include "kernels.h"

namespace {

using gemm_t = void (*)(const char *, const char *, const int *, const int *, const int *,
                        const double *, const double *, const int *, const double *, const int *,
                        const double *, double *, const int *, size_t, size_t);

void run(benchmark::State &st, gemm_t f, const char *flags, int n) {
  std::vector<double> a(static_cast<size_t>(n) * n), b(a.size()), c(a.size());
  std::mt19937_64 rng(n);
  std::uniform_real_distribution<double> d(-1, 1);
  for (auto &v : a) v = d(rng);
  for (auto &v : b) v = d(rng);
  for (auto &v : c) v = d(rng);
  const double alpha = 1.0, beta = 0.5;  // beta < 1 keeps C bounded over the iterations
  auto now = [] {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
  };
  for (auto _ : st) {
    const double t0 = now();
    f("N", flags + 1, &n, &n, &n, &alpha, a.data(), &n, b.data(), &n, &beta, c.data(), &n, 1,
      1);
    benchmark::ClobberMemory();
    st.SetIterationTime(now() - t0);
  }
  st.counters["GFLOPS"] =
      benchmark::Counter(2.0 * n * n * static_cast<double>(n),
                         benchmark::Counter::kIsIterationInvariantRate);
}

}  // namespace

int main(int argc, char **argv) {
  for (const char *flags : {"NN", "NT"}) {
    for (int n : {30, 100, 200, 500, 1000, 2000}) {
      const std::string cs = std::string("eagemm/") + flags + "/n:" + std::to_string(n);
      benchmark::RegisterBenchmark((cs + "/qkm").c_str(), [=](benchmark::State &st) {
        run(st, eagemm, flags, n);
      })->UseManualTime();
      benchmark::RegisterBenchmark((cs + "/openblas").c_str(), [=](benchmark::State &st) {
        run(st, qkm_bench::sym<gemm_t>(qkm_bench::openblas(), "dgemm_"), flags, n);
      })->UseManualTime();
      // The reference BLAS takes seconds per product at the largest size: one round there.
      auto *ref = benchmark::RegisterBenchmark((cs + "/refblas").c_str(),
                                               [=](benchmark::State &st) {
                                                 run(st, qkm_bench::sym<gemm_t>(
                                                             qkm_bench::refblas(), "dgemm_"),
                                                     flags, n);
                                               });
      ref->UseManualTime();
      if (n >= 1000) ref->Iterations(1);
    }
  }
  return qkm_bench::run_main(argc, argv);
}
