// Shared benchmark support: the anchors (OpenBLAS, one thread, and the reference BLAS and
// LAPACK), each loaded by explicit path with dlopen(RTLD_LOCAL) so that the system's
// libblas.so.3 alternative never decides which one runs, and a reporter that prints, after
// the usual table, the time ratios of each anchor to this library.
//
// Naming convention: a benchmark is registered as "<case>/<impl>", impl "qkm" for this
// library and "openblas", "refblas" (or another name, such as "malloc") for an anchor. The
// ratio table pairs the runs of one case.
//   ratio = time(anchor) / time(qkm): above 1.0 this library is faster.
#pragma once

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
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
    // OpenBLAS 0.3.21 does not recognise newer processors and then falls back to its 256-bit
    // kernels: force its AVX-512 kernels where the processor has them, so that the anchor is
    // the peer at its best, whatever the environment asked for.
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl"))
      setenv("OPENBLAS_CORETYPE", "SKYLAKEX", 1);
    void *lib = open_or_die(kOpenBlasPath);
    if (auto set = reinterpret_cast<void (*)(int)>(dlsym(lib, "openblas_set_num_threads")))
      set(1);
    if (auto core = reinterpret_cast<char *(*)()>(dlsym(lib, "openblas_get_corename")))
      std::fprintf(stderr, "OpenBLAS kernel: %s (one thread)\n", core());
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

// Console output as usual, then a markdown table: one row per case, a column of times for
// this library and for each anchor met (in order of appearance), then the ratios. Manual
// timing and fixed iteration counts add marks to the run names; they are dropped so that
// the runs of one case pair up.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (Run r : runs) {
      // With repetitions the median stands for the case; without, the single run does.
      const bool median = r.run_type == Run::RT_Aggregate && r.aggregate_name == "median";
      if ((r.run_type != Run::RT_Iteration && !median) || r.error_occurred) continue;
      r.aggregate_name.clear();
      r.run_type = Run::RT_Iteration;
      r.run_name.repetitions.clear();
      r.run_name.time_type.clear();
      r.run_name.iterations.clear();
      const std::string name = r.benchmark_name();
      const auto slash = name.rfind('/');
      if (slash == std::string::npos) continue;
      const std::string impl = name.substr(slash + 1), cs = name.substr(0, slash);
      if (!times_.count(cs)) order_.push_back(cs);
      if (impl != "qkm" && std::find(anchors_.begin(), anchors_.end(), impl) == anchors_.end())
        anchors_.push_back(impl);
      if (!median && from_median_[cs].count(impl)) continue;
      if (median) from_median_[cs].insert(impl);
      times_[cs][impl] = r.GetAdjustedRealTime();
      for (const auto &[k, v] : r.counters)
        if (k == "GFLOPS") gflops_[cs][impl] = v;
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    // Known anchors first, in a fixed order, whatever order the runs came in.
    std::stable_sort(anchors_.begin(), anchors_.end(), [](const std::string &a, const std::string &b) {
      auto rank = [](const std::string &x) { return x == "openblas" ? 0 : x == "refblas" ? 1 : 2; };
      return rank(a) < rank(b);
    });
    std::string head = "| case | qkm |", rule = "|---|---|";
    for (const auto &a : anchors_) {
      head += " " + label(a) + " |";
      rule += "---|";
    }
    for (const auto &a : anchors_) {
      head += " " + label(a) + "/qkm |";
      rule += "---|";
    }
    // A case "peak" measures the machine's arithmetic peak: each rate is then also given as
    // a share of it.
    const double peak = gflops_.count("peak") ? gflops_["peak"]["qkm"] : 0.0;
    if (peak > 0.0) {
      head += " qkm/peak |";
      rule += "---|";
    }
    std::printf("\n%s\n%s\n", head.c_str(), rule.c_str());
    // Interleaved repetitions report in any order: rows go by name, numbers by value.
    std::sort(order_.begin(), order_.end(), natural_less);
    for (const auto &cs : order_) {
      std::string row = "| " + cs + " | " + cell(cs, "qkm") + " |";
      for (const auto &a : anchors_) row += " " + cell(cs, a) + " |";
      for (const auto &a : anchors_) row += " " + ratio(cs, a) + " |";
      if (peak > 0.0) {
        char buf[32] = "-";
        if (gflops_[cs].count("qkm"))
          std::snprintf(buf, sizeof buf, "%.0f%%", 100.0 * gflops_[cs]["qkm"] / peak);
        row += std::string(" ") + buf + " |";
      }
      std::printf("%s\n", row.c_str());
    }
    std::fflush(stdout);
  }

 private:
  static bool natural_less(const std::string &a, const std::string &b) {
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
      if (std::isdigit(static_cast<unsigned char>(a[i])) &&
          std::isdigit(static_cast<unsigned char>(b[j]))) {
        size_t ie = i, je = j;
        while (ie < a.size() && std::isdigit(static_cast<unsigned char>(a[ie]))) ++ie;
        while (je < b.size() && std::isdigit(static_cast<unsigned char>(b[je]))) ++je;
        const long long x = std::stoll(a.substr(i, ie - i)), y = std::stoll(b.substr(j, je - j));
        if (x != y) return x < y;
        i = ie;
        j = je;
      } else {
        if (a[i] != b[j]) return a[i] < b[j];
        ++i;
        ++j;
      }
    }
    return a.size() - i < b.size() - j;
  }
  static std::string label(const std::string &impl) {
    if (impl == "openblas") return "OpenBLAS";
    if (impl == "refblas") return "reference";
    return impl;
  }
  std::string cell(const std::string &cs, const std::string &impl) {
    auto &t = times_[cs];
    auto it = t.find(impl);
    if (it == t.end()) return "-";
    char buf[96];
    auto g = gflops_[cs].find(impl);
    if (g != gflops_[cs].end())
      std::snprintf(buf, sizeof buf, "%.4g ns (%.1f GFLOP/s)", it->second, g->second / 1e9);
    else
      std::snprintf(buf, sizeof buf, "%.4g ns", it->second);
    return buf;
  }
  std::string ratio(const std::string &cs, const std::string &impl) {
    auto &t = times_[cs];
    if (!t.count(impl) || !t.count("qkm")) return "-";
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2fx", t[impl] / t["qkm"]);
    return buf;
  }

  std::vector<std::string> order_, anchors_;
  std::map<std::string, std::map<std::string, double>> times_;
  std::map<std::string, std::map<std::string, double>> gflops_;
  std::map<std::string, std::set<std::string>> from_median_;
};

// main() of every benchmark executable: all benchmarks reported with the ratio table.
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
