// eagemv against OpenBLAS dgemv (one thread) and the reference dgemv: square, tall and wide
// matrices, unit strides and incx = 2, both "N" and "T". bytes_per_second counts the matrix
// and the vectors once per call; the case "stream/read" measures, in the same run, the rate
// at which this machine reads a large array, for comparison.
#include <random>
#include <string>
#include <vector>

#include "anchors.h"
#include "kernels.h"

namespace {

using gemv_t = void (*)(const char *, const int *, const int *, const double *, const double *,
                        const int *, const double *, const int *, const double *, double *,
                        const int *, size_t);

struct Problem {
  int m, n, incx;
  std::vector<double> a, x, y;
  Problem(int m_, int n_, int incx_, char t) : m(m_), n(n_), incx(incx_) {
    std::mt19937_64 rng(m * 31 + n);
    std::uniform_real_distribution<double> d(-1, 1);
    a.resize(static_cast<size_t>(m) * n);
    x.resize(static_cast<size_t>(t == 'N' ? n : m) * incx);
    y.resize(t == 'N' ? m : n);
    for (auto &v : a) v = d(rng);
    for (auto &v : x) v = d(rng);
    for (auto &v : y) v = d(rng);
  }
};

void run(benchmark::State &st, gemv_t f, char t, int m, int n, int incx) {
  Problem p(m, n, incx, t);
  const int one = 1;
  // beta of -1 keeps y bounded over many calls.
  const double alpha = 1e-3, beta = -1.0;
  for (auto _ : st) {
    f(&t, &p.m, &p.n, &alpha, p.a.data(), &p.m, p.x.data(), &p.incx, &beta, p.y.data(), &one,
      1);
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(st.iterations() * 8 * (static_cast<int64_t>(m) * n + m + 2LL * n));
}

// Read-only stream through 256 MiB with eight independent sums: the memory bandwidth that a
// matrix-vector product can at best reach.
void stream_read(benchmark::State &st) {
  std::vector<double> v(size_t(32) << 20, 1.0);
  for (auto _ : st) {
    double s[8] = {};
    for (size_t i = 0; i < v.size(); i += 8)
      for (int k = 0; k < 8; ++k) s[k] += v[i + k];
    benchmark::DoNotOptimize(s);
  }
  st.SetBytesProcessed(st.iterations() * int64_t(v.size()) * 8);
}

void register_all() {
  const struct {
    const char *name;
    int m, n;
  } shapes[] = {{"square:64", 64, 64},     {"square:256", 256, 256}, {"square:1000", 1000, 1000},
                {"square:4000", 4000, 4000}, {"tall:20000x64", 20000, 64},
                {"wide:64x20000", 64, 20000}};
  for (char t : {'N', 'T'})
    for (const auto &s : shapes)
      for (int incx : {1, 2}) {
        const std::string cs = std::string("gemv_") + t + "/" + s.name + "/incx:" +
                               std::to_string(incx);
        const int m = s.m, n = s.n;
        benchmark::RegisterBenchmark((cs + "/qkm").c_str(), [=](benchmark::State &st) {
          run(st, eagemv, t, m, n, incx);
        });
        for (std::string impl : {"openblas", "refblas"}) {
          void *lib = impl == "openblas" ? qkm_bench::openblas() : qkm_bench::refblas();
          const gemv_t f = qkm_bench::sym<gemv_t>(lib, "dgemv_");
          benchmark::RegisterBenchmark((cs + "/" + impl).c_str(),
                                       [=](benchmark::State &st) { run(st, f, t, m, n, incx); });
        }
      }
  benchmark::RegisterBenchmark("stream/read:256MiB/memory", stream_read);
}

}  // namespace

int main(int argc, char **argv) {
  register_all();
  return qkm_bench::run_main(argc, argv);
}
