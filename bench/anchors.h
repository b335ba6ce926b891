// Shared benchmark support: the anchors (OpenBLAS, one thread, and the reference BLAS and
// LAPACK), each loaded by explicit path with dlopen(RTLD_LOCAL) so that the system's
// libblas.so.3 alternative never decides which one runs, and a reporter that prints, after
// the usual table, the time ratios of each anchor to this library.
//
// Naming convention: a benchmark is registered as "<case>/<impl>", impl one of "qkm",
// "openblas", "refblas". The ratio table pairs the runs of one case.
//   ratio = time(anchor) / time(qkm): above 1.0 this library is faster.
#pragma once

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace qkm_bench {

inline const char *kOpenBlasPath = "/usr/lib/x86_64-linux-gnu/openblas-serial/libopenblas.so.0";
inline const char *kRefBlasPath = "/usr/lib/x86_64-linux-gnu/blas/libblas.so.3";
inline const char *kRefLapackPath = "/usr/lib/x86_64-linux-gnu/lapack/liblapack.so.3";

inline void *open_or_die(const char *path) {
  void *h = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (h == nullptr) {
    std::fprintf(stderr, "cannot load %s: %s (make bench installs it)\n", path, dlerror());
    std::exit(2);
  }
  return h;
}

// OpenBLAS, serial build (one thread), BLAS and LAPACK in one object.
inline void *openblas() {
  static void *h = [] {
    setenv("OPENBLAS_NUM_THREADS", "1", 1);
    void *lib = open_or_die(kOpenBlasPath);
    if (auto set = reinterpret_cast<void (*)(int)>(dlsym(lib, "openblas_set_num_threads")))
      set(1);
    return lib;
  }();
  return h;
}

// The reference BLAS; refblas() also serves LAPACK names through reflapack().
inline void *refblas() {
  static void *h = open_or_die(kRefBlasPath);
  return h;
}
inline void *reflapack() {
  static void *h = [] {
    refblas();  // the reference LAPACK binds to the reference BLAS already loaded
    return open_or_die(kRefLapackPath);
  }();
  return h;
}

template <class F>
F sym(void *lib, const char *name) {
  void *p = dlsym(lib, name);
  if (p == nullptr) {
    std::fprintf(stderr, "missing symbol %s\n", name);
    std::exit(2);
  }
  return reinterpret_cast<F>(p);
}

// Console output as usual, then one line per case with the ratios to each anchor.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto &r : runs) {
      if (r.run_type != Run::RT_Iteration || r.error_occurred) continue;
      const std::string name = r.benchmark_name();
      const auto slash = name.rfind('/');
      if (slash == std::string::npos) continue;
      std::string impl = name.substr(slash + 1);
      const std::string cs = name.substr(0, slash);
      if (cs_index_.find(cs) == cs_index_.end()) {
        cs_index_[cs] = order_.size();
        order_.push_back(cs);
      }
      times_[cs][impl] = r.GetAdjustedRealTime();
      for (const auto &[k, v] : r.counters)
        if (k == "GFLOPS") gflops_[cs][impl] = v;
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\n| case | qkm | OpenBLAS | reference | OpenBLAS/qkm | reference/qkm |\n");
    std::printf("|---|---|---|---|---|---|\n");
    for (const auto &cs : order_) {
      auto &t = times_[cs];
      auto cell = [&](const char *impl) -> std::string {
        auto it = t.find(impl);
        if (it == t.end()) return "-";
        char buf[64];
        auto g = gflops_[cs].find(impl);
        if (g != gflops_[cs].end())
          std::snprintf(buf, sizeof buf, "%.4g %s (%.1f GFLOP/s)", it->second,
                        unit_.c_str(), g->second / 1e9);
        else
          std::snprintf(buf, sizeof buf, "%.4g %s", it->second, unit_.c_str());
        return buf;
      };
      auto ratio = [&](const char *impl) -> std::string {
        if (!t.count(impl) || !t.count("qkm")) return "-";
        char buf[32];
        std::snprintf(buf, sizeof buf, "%.2fx", t[impl] / t["qkm"]);
        return buf;
      };
      std::printf("| %s | %s | %s | %s | %s | %s |\n", cs.c_str(), cell("qkm").c_str(),
                  cell("openblas").c_str(), cell("refblas").c_str(), ratio("openblas").c_str(),
                  ratio("refblas").c_str());
    }
    std::fflush(stdout);
  }
  void set_unit(const std::string &u) { unit_ = u; }

 private:
  std::map<std::string, size_t> cs_index_;
  std::vector<std::string> order_;
  std::map<std::string, std::map<std::string, double>> times_;
  std::map<std::string, std::map<std::string, double>> gflops_;
  std::string unit_ = "ns";
};

// main() of every benchmark executable: all benchmarks reported in nanoseconds with ratios.
inline int run_main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}

}  // namespace qkm_bench

#define QKM_BENCH_MAIN() \
  int main(int argc, char **argv) { return qkm_bench::run_main(argc, argv); }
