// Packed Cholesky, packed factor solves and frontal elimination against OpenBLAS (one thread)
// and the reference LAPACK. Inputs are restored outside the timed region.
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "anchors.h"
#include "kernels.h"

namespace {

using pptrf_t = void (*)(const char *, const int *, double *, int *, size_t);
using pptrs_t = void (*)(const char *, const int *, const int *, const double *, double *,
                         const int *, int *, size_t);
using potrf_t = void (*)(const char *, const int *, double *, const int *, int *, size_t);
using trsm_t = void (*)(const char *, const char *, const char *, const char *, const int *,
                        const int *, const double *, const double *, const int *, double *,
                        const int *, size_t, size_t, size_t, size_t);
using syrk_t = void (*)(const char *, const char *, const int *, const int *, const double *,
                        const double *, const int *, const double *, double *, const int *,
                        size_t, size_t);

void *lapack_of(const std::string &impl) {
  return impl == "openblas" ? qkm_bench::openblas() : qkm_bench::reflapack();
}
void *blas_of(const std::string &impl) {
  return impl == "openblas" ? qkm_bench::openblas() : qkm_bench::refblas();
}

// Symmetric positive-definite matrix, full storage by columns.
std::vector<double> spd_full(int n) {
  std::mt19937_64 rng(n);
  std::uniform_real_distribution<double> u(-1, 1);
  std::vector<double> a(static_cast<size_t>(n) * n);
  for (int j = 0; j < n; ++j)
    for (int i = j; i < n; ++i) {
      const double v = i == j ? n : u(rng);
      a[i + static_cast<size_t>(j) * n] = v;
      a[j + static_cast<size_t>(i) * n] = v;
    }
  return a;
}

// Packed by rows (= upper packed by columns).
std::vector<double> packed_rows(const std::vector<double> &full, int n) {
  std::vector<double> ap;
  ap.reserve(static_cast<size_t>(n) * (n + 1) / 2);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j <= i; ++j) ap.push_back(full[i + static_cast<size_t>(j) * n]);
  return ap;
}

benchmark::Counter gflops(double flops) {
  return benchmark::Counter(flops, benchmark::Counter::kIsIterationInvariantRate);
}

// ---- packed Cholesky --------------------------------------------------------------------------
void add_cholesky() {
  for (int n : {100, 500, 1000, 2000}) {
    const std::string cs = "eaxfch2_vs_dpptrf/n:" + std::to_string(n);
    const double flops = static_cast<double>(n) * n * n / 3.0;
    benchmark::RegisterBenchmark((cs + "/qkm").c_str(), [=](benchmark::State &st) {
      const auto a0 = packed_rows(spd_full(n), n);
      auto a = a0;
      const qkm_int k0 = 1, k1 = n;
      const double tol = 0;
      qkm_int info = 0;
      double dfail = 0;
      for (auto _ : st) {
        st.PauseTiming();
        std::memcpy(a.data(), a0.data(), a.size() * sizeof(double));
        st.ResumeTiming();
        eaxfch2(nullptr, &k0, &k1, &tol, a.data(), &info, &dfail);
        benchmark::ClobberMemory();
      }
      if (info != 0) st.SkipWithError("refused");
      st.counters["GFLOPS"] = gflops(flops);
    });
    for (std::string impl : {"openblas", "refblas"}) {
      benchmark::RegisterBenchmark((cs + "/" + impl).c_str(), [=](benchmark::State &st) {
        auto f = qkm_bench::sym<pptrf_t>(lapack_of(impl), "dpptrf_");
        const auto a0 = packed_rows(spd_full(n), n);
        auto a = a0;
        int info = 0;
        for (auto _ : st) {
          st.PauseTiming();
          std::memcpy(a.data(), a0.data(), a.size() * sizeof(double));
          st.ResumeTiming();
          f("U", &n, a.data(), &info, 1);
          benchmark::ClobberMemory();
        }
        if (info != 0) st.SkipWithError("refused");
        st.counters["GFLOPS"] = gflops(flops);
      });
    }
  }
}

// ---- packed factor solve ------------------------------------------------------------------------
void add_solve() {
  const int n = 1000;
  for (int nrhs : {1, 64}) {
    const std::string cs = "e_dpptrs_vs_dpptrs/n:1000/nrhs:" + std::to_string(nrhs);
    const double flops = 2.0 * n * n * nrhs;
    auto setup = [=](std::vector<double> &ap, std::vector<double> &b) {
      const auto full = spd_full(n);
      ap = packed_rows(full, n);
      int info = 0;
      qkm_int k0 = 1, k1 = n;
      double tol = 0, dfail = 0;
      eaxfch2(nullptr, &k0, &k1, &tol, ap.data(), &info, &dfail);
      b.resize(static_cast<size_t>(n) * nrhs);
      std::mt19937_64 rng(1);
      std::uniform_real_distribution<double> u(-1, 1);
      for (auto &v : b) v = u(rng);
    };
    benchmark::RegisterBenchmark((cs + "/qkm").c_str(), [=](benchmark::State &st) {
      std::vector<double> ap, b0;
      setup(ap, b0);
      auto b = b0;
      const qkm_int nn = n, nr = nrhs;
      qkm_int info = 0;
      for (auto _ : st) {
        st.PauseTiming();
        std::memcpy(b.data(), b0.data(), b.size() * sizeof(double));
        st.ResumeTiming();
        e_dpptrs("U", &nn, &nr, ap.data(), b.data(), &nn, &info, 1);
        benchmark::ClobberMemory();
      }
      st.counters["GFLOPS"] = gflops(flops);
    });
    for (std::string impl : {"openblas", "refblas"}) {
      benchmark::RegisterBenchmark((cs + "/" + impl).c_str(), [=](benchmark::State &st) {
        auto f = qkm_bench::sym<pptrs_t>(lapack_of(impl), "dpptrs_");
        std::vector<double> ap, b0;
        setup(ap, b0);
        auto b = b0;
        int info = 0;
        for (auto _ : st) {
          st.PauseTiming();
          std::memcpy(b.data(), b0.data(), b.size() * sizeof(double));
          st.ResumeTiming();
          f("U", &n, &nrhs, ap.data(), b.data(), &n, &info, 1);
          benchmark::ClobberMemory();
        }
        st.counters["GFLOPS"] = gflops(flops);
      });
    }
  }
}

// ---- frontal elimination ------------------------------------------------------------------------
// The anchors do the same elimination in full storage: dpotrf on the pivot block, dtrsm for
// the multipliers, dsyrk for the Schur complement.
void add_frontal() {
  for (auto [n, p] : {std::pair<int, int>{500, 250}, std::pair<int, int>{2000, 1000}}) {
    const std::string cs = "easlff_nt_front/n:" + std::to_string(n) + "/p:" + std::to_string(p);
    double flops = 0;
    for (int k = 1; k <= p; ++k) flops += (n - k) + static_cast<double>(n - k) * (n - k + 1);
    benchmark::RegisterBenchmark((cs + "/qkm").c_str(), [=](benchmark::State &st) {
      const auto full = spd_full(n);
      std::vector<double> f0;
      for (int j = 0; j < n; ++j)
        for (int i = j; i < n; ++i) f0.push_back(full[i + static_cast<size_t>(j) * n]);
      std::vector<double> diag0(n);
      for (int i = 0; i < n; ++i) diag0[i] = full[i + static_cast<size_t>(i) * n];
      auto f = f0;
      const qkm_int nn = n, pp = p;
      const double tolabs = 1e-12, tolratio = 1e-12;
      qkm_int res = 0;
      for (auto _ : st) {
        st.PauseTiming();
        std::memcpy(f.data(), f0.data(), f.size() * sizeof(double));
        st.ResumeTiming();
        double minratio = 1e300;
        qkm_int ipiv = 0, nacc = 0, ierr = 0;
        float w1 = 0, w2 = 0;
        res = easlff_nt(&nn, &pp, f.data(), &minratio, diag0.data(), &tolabs, &tolratio, &ipiv,
                        &nacc, &w1, &w2, &ierr);
        benchmark::ClobberMemory();
      }
      if (res != 0) st.SkipWithError("refused");
      st.counters["GFLOPS"] = gflops(flops);
    });
    for (std::string impl : {"openblas", "refblas"}) {
      benchmark::RegisterBenchmark((cs + "/" + impl).c_str(), [=](benchmark::State &st) {
        auto potrf = qkm_bench::sym<potrf_t>(lapack_of(impl), "dpotrf_");
        auto trsm = qkm_bench::sym<trsm_t>(blas_of(impl), "dtrsm_");
        auto syrk = qkm_bench::sym<syrk_t>(blas_of(impl), "dsyrk_");
        const auto a0 = spd_full(n);
        auto a = a0;
        const int m = n - p;
        const double one = 1.0, mone = -1.0;
        int info = 0;
        for (auto _ : st) {
          st.PauseTiming();
          std::memcpy(a.data(), a0.data(), a.size() * sizeof(double));
          st.ResumeTiming();
          potrf("L", &p, a.data(), &n, &info, 1);
          trsm("R", "L", "T", "N", &m, &p, &one, a.data(), &n, a.data() + p, &n, 1, 1, 1, 1);
          syrk("L", "N", &m, &p, &mone, a.data() + p, &n, &one,
               a.data() + p + static_cast<size_t>(p) * n, &n, 1, 1);
          benchmark::ClobberMemory();
        }
        if (info != 0) st.SkipWithError("refused");
        st.counters["GFLOPS"] = gflops(flops);
      });
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  add_cholesky();
  add_solve();
  add_frontal();
  return qkm_bench::run_main(argc, argv);
}
