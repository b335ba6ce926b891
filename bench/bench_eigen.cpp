// Symmetric eigenproblem against OpenBLAS (one thread) and the reference LAPACK: eaxeig with
// vectors against dspev with vectors, both on the same packed matrix (our packed-by-rows lower
// triangle is LAPACK's packed upper triangle by columns). Also the spectral inverse at n = 30 and
// the scattered-data fit, reported as fits per second.
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "anchors.h"
#include "kernels.h"

namespace {

using dspev_t = void (*)(const char *, const char *, const int *, double *, double *, double *,
                         const int *, double *, int *, size_t, size_t);

std::vector<double> packed(int n) {
  std::mt19937_64 rng(n);
  std::uniform_real_distribution<double> u(-1, 1);
  std::vector<double> a(n * (n + 1) / 2);
  for (auto &v : a) v = u(rng);
  return a;
}

void run_qkm(benchmark::State &st, int n) {
  const std::vector<double> a0 = packed(n);
  std::vector<double> a(a0.size()), d(n), z(n * n), e(n);
  const int iorder = 1;
  int ierr = 0;
  for (auto _ : st) {
    a = a0;
    if (eaxeig(&n, &iorder, a.data(), d.data(), z.data(), e.data(), &ierr) != 0)
      st.SkipWithError("QL failed");
    benchmark::ClobberMemory();
  }
}

void run_dspev(benchmark::State &st, dspev_t f, int n) {
  const std::vector<double> a0 = packed(n);
  std::vector<double> a(a0.size()), w(n), z(n * n), work(3 * n);
  int info = 0;
  for (auto _ : st) {
    a = a0;
    f("V", "U", &n, a.data(), w.data(), z.data(), &n, work.data(), &info, 1, 1);
    benchmark::ClobberMemory();
  }
}

// Basis for the fit: the first M monomials of degree up to 4 in x, y, z.
qkm_int monomials(const qkm_int *, const qkm_int *, const qkm_int *m, const qkm_int *,
                  const qkm_int *, const double *p, double *, double *vals, qkm_int *) {
  int k = 0;
  for (int deg = 0; deg <= 4 && k < *m; ++deg)
    for (int i = deg; i >= 0 && k < *m; --i)
      for (int j = deg - i; j >= 0 && k < *m; --j) {
        const int l = deg - i - j;
        vals[k++] = std::pow(p[0], i) * std::pow(p[1], j) * std::pow(p[2], l);
      }
  return 0;
}

void run_fit(benchmark::State &st, int m, int np) {
  std::mt19937_64 rng(m);
  std::uniform_real_distribution<double> u(-1, 1);
  std::vector<double> pts(3 * np), vals(np), wts(np, 1.0);
  for (auto &v : pts) v = u(rng);
  for (auto &v : vals) v = u(rng);
  std::vector<double> gram(m * m), work(m * m), z(m * m), bmat(np * m), pvec(m), coef(m);
  const double xq[3] = {0.1, 0.2, 0.3};
  double fit = 0;
  int ierr = 0;
  for (auto _ : st) {
    eaxrmc3(&m, &np, pts.data(), xq, vals.data(), &fit, monomials, gram.data(), work.data(),
            z.data(), bmat.data(), pvec.data(), coef.data(), wts.data(), &ierr);
    benchmark::DoNotOptimize(fit);
  }
  st.counters["fits/s"] = benchmark::Counter(static_cast<double>(st.iterations()),
                                             benchmark::Counter::kIsRate);
}

void run_invs(benchmark::State &st, int n) {
  std::mt19937_64 rng(n);
  std::uniform_real_distribution<double> u(-1, 1);
  std::vector<double> a0(n * n);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i <= j; ++i) a0[i + j * n] = a0[j + i * n] = u(rng);
  std::vector<double> a(n * n), work(n * n), z(n * n);
  const double tol = 1e-12;
  int nzero = 0;
  for (auto _ : st) {
    a = a0;
    eaxinvs(&n, &tol, a.data(), work.data(), z.data(), &nzero);
    benchmark::ClobberMemory();
  }
}

}  // namespace

int main(int argc, char **argv) {
  for (int n : {10, 30, 100, 500}) {
    const std::string cs = "eaxeig_vs_dspev/n:" + std::to_string(n);
    benchmark::RegisterBenchmark((cs + "/qkm").c_str(),
                                 [=](benchmark::State &st) { run_qkm(st, n); });
    benchmark::RegisterBenchmark((cs + "/openblas").c_str(), [=](benchmark::State &st) {
      run_dspev(st, qkm_bench::sym<dspev_t>(qkm_bench::openblas(), "dspev_"), n);
    });
    benchmark::RegisterBenchmark((cs + "/refblas").c_str(), [=](benchmark::State &st) {
      run_dspev(st, qkm_bench::sym<dspev_t>(qkm_bench::reflapack(), "dspev_"), n);
    });
  }
  benchmark::RegisterBenchmark("eaxinvs/n:30/qkm", [](benchmark::State &st) { run_invs(st, 30); });
  for (int m : {10, 20}) {
    const std::string cs = "eaxrmc3/M:" + std::to_string(m) + "/N:40/qkm";
    benchmark::RegisterBenchmark(cs.c_str(), [=](benchmark::State &st) { run_fit(st, m, 40); });
  }
  return qkm_bench::run_main(argc, argv);
}
