// eagemm against dgemm of OpenBLAS (one thread, its fastest kernel for the processor) and of
// the reference BLAS: square products at the sizes a solver's element and front blocks have
// and beyond, op(B) = B ("NN") and op(B) = B^T ("NT"), the rectangular shapes of a front
// update, C := 1.0 * op(A) * op(B) + 0.5 * C (alpha = 0.7 for the copied panels of B^T);
// and the unfused multiply/add peak of the machine ("peak/qkm"), against which the table
// reports each product's share.
//
// The machine is shared with other work: each product is timed by the CPU time of the
// calling thread (manual timing), so that time slices given to other processes do not count.
#include <time.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "anchors.h"
#include "kernels.h"

namespace {

using gemm_t = void (*)(const char *, const char *, const int *, const int *, const int *,
                        const double *, const double *, const int *, const double *, const int *,
                        const double *, double *, const int *, size_t, size_t);

double now() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

int batch_of(double flops) { return flops < 4e6 ? static_cast<int>(4e6 / flops) : 1; }

void run(benchmark::State &st, gemm_t f, const char *flags, int m, int n, int k, double alpha) {
  const int lda = flags[0] == 'N' ? m : k, ldb = flags[1] == 'N' ? k : n;
  std::vector<double> a(static_cast<size_t>(m) * k), b(static_cast<size_t>(k) * n),
      c(static_cast<size_t>(m) * n);
  std::mt19937_64 rng(m + n + k);
  std::uniform_real_distribution<double> d(-1, 1);
  for (auto *v : {&a, &b, &c})
    for (auto &x : *v) x = d(rng);
  const double beta = 0.5;  // beta < 1 keeps C bounded over the iterations
  // Reading the thread's CPU time costs about a microsecond: small products are timed in
  // batches of about 4 million floating-point operations, and the time of one is reported.
  const double flops = 2.0 * m * n * static_cast<double>(k);
  const int batch = batch_of(flops);
  for (auto _ : st) {
    const double t0 = now();
    for (int r = 0; r < batch; ++r) {
      f(flags, flags + 1, &m, &n, &k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c.data(),
        &m, 1, 1);
      benchmark::ClobberMemory();
    }
    st.SetIterationTime((now() - t0) / batch);
  }
  st.counters["GFLOPS"] =
      benchmark::Counter(flops, benchmark::Counter::kIsIterationInvariantRate);
}

// The unfused peak: 10 independent chains of multiplications and 10 of additions on the
// widest vectors, the most a product without fused multiply-add can reach.
typedef double v8 __attribute__((vector_size(64)));
typedef double v4 __attribute__((vector_size(32)));
template <class V>
__attribute__((always_inline)) inline double stream(long rounds, double one) {
  V m[10], s[10];
  for (int i = 0; i < 10; ++i) {
    m[i] = V{} + (1.0 + i);
    s[i] = V{} + (2.0 + i);
  }
  const V f = V{} + one, z = V{} + (one - 1.0);
  for (long r = 0; r < rounds; ++r)
    for (int i = 0; i < 10; ++i) {
      m[i] = m[i] * f;
      s[i] = s[i] + z;
    }
  V t = V{};
  for (int i = 0; i < 10; ++i) t = t + m[i] + s[i];
  return t[0];
}
__attribute__((target("avx512f"))) double stream512(long r, double one) {
  return stream<v8>(r, one);
}
__attribute__((target("avx2"))) double stream256(long r, double one) { return stream<v4>(r, one); }

void peak(benchmark::State &st) {
  const bool wide = __builtin_cpu_supports("avx512f");
  const long rounds = 1 << 16;
  volatile double one = 1.0, sink = 0.0;
  for (auto _ : st) {
    const double t0 = now();
    sink = sink + (wide ? stream512(rounds, one) : stream256(rounds, one));
    st.SetIterationTime(now() - t0);
  }
  st.counters["GFLOPS"] = benchmark::Counter(20.0 * (wide ? 8 : 4) * rounds,
                                             benchmark::Counter::kIsIterationInvariantRate);
}

// A fixed number of rounds per case, about 2e9 floating-point operations in all (the manual
// time of a batched round is that of one product, so the library's own estimate would
// run far too many).
void add(const std::string &cs, const char *flags, int m, int n, int k, double alpha = 1.0) {
  const double flops = 2.0 * m * n * static_cast<double>(k);
  const auto rounds = static_cast<benchmark::IterationCount>(
      std::max(1.0, 2e9 / (flops * batch_of(flops))));
  benchmark::RegisterBenchmark((cs + "/qkm").c_str(), [=](benchmark::State &st) {
    run(st, eagemm, flags, m, n, k, alpha);
  })->UseManualTime()->Iterations(rounds);
  benchmark::RegisterBenchmark((cs + "/openblas").c_str(), [=](benchmark::State &st) {
    run(st, qkm_bench::sym<gemm_t>(qkm_bench::openblas(), "dgemm_"), flags, m, n, k, alpha);
  })->UseManualTime()->Iterations(rounds);
  // The reference BLAS runs ten times slower: a tenth of the rounds, and none at the largest
  // sizes, where one product takes seconds.
  if (flops > 4e8) return;
  benchmark::RegisterBenchmark((cs + "/refblas").c_str(), [=](benchmark::State &st) {
    run(st, qkm_bench::sym<gemm_t>(qkm_bench::refblas(), "dgemm_"), flags, m, n, k, alpha);
  })->UseManualTime()->Iterations(std::max<benchmark::IterationCount>(1, rounds / 10));
}

}  // namespace

int main(int argc, char **argv) {
  benchmark::RegisterBenchmark("peak/qkm", peak)->UseManualTime();
  for (const char *flags : {"NN", "NT"}) {
    for (int n : {8, 16, 24, 30, 50, 64, 100, 200, 500, 1000, 2000})
      add(std::string("eagemm/") + flags + "/n:" + std::to_string(n), flags, n, n, n);
    // The updates of a front: a thin inner dimension, and a tall block.
    add(std::string("eagemm/") + flags + "/m:200/n:200/k:24", flags, 200, 200, 24);
    add(std::string("eagemm/") + flags + "/m:2000/n:100/k:100", flags, 2000, 100, 100);
    // A block whose leading dimension is a power of two (lda = m = 128), as a front stored
    // in a power-of-two frame gives.
    add(std::string("eagemm/") + flags + "/m:128/n:96/k:100", flags, 128, 96, 100);
  }
  // alpha other than 1 or -1 with B^T: B goes through its copied 100-column panels.
  for (int n : {500, 2000}) add("eagemm/NT/alpha:0.7/n:" + std::to_string(n), "NT", n, n, n, 0.7);
  return qkm_bench::run_main(argc, argv);
}
