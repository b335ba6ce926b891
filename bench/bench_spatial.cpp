// The neighbor tree against nanoflann (a KD-tree, leaves of 10) on two sets of about 10^6
// points: uniform random points in the unit cube, and the nodes of a 100 x 100 x 100
// hexahedral mesh (101^3 nodes). Cases: the build, and batches of k = 8 queries at
// approximation 0 and 0.5 (nanoflann's eps), at random points of the box. After the table:
// the recall of each query case (the share of returned entities within the exact k-th
// distance, nanoflann at eps 0 being exact) and the bytes each index holds per entity
// (heap in use after the build minus before; the points themselves are not counted).
#include <malloc.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <nanoflann.hpp>

#include "QORLunOctree.h"
#include "anchors.h"

namespace {

constexpr unsigned kK = 8;
constexpr unsigned kCapacity = 64;  // leaf capacity: the best of 16 to 256 here
constexpr std::size_t kQueries = 20000;

struct Cloud {
  std::string name;
  std::vector<double> xyz;
  std::vector<double> queries;
  std::size_t size() const { return xyz.size() / 3; }
  // nanoflann's dataset adaptor
  std::size_t kdtree_get_point_count() const { return size(); }
  double kdtree_get_pt(std::size_t i, std::size_t d) const { return xyz[3 * i + d]; }
  template <class B>
  bool kdtree_get_bbox(B &) const { return false; }
};

using KdTree = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<double, Cloud>,
                                                   Cloud, 3, uint32_t>;

class CloudTree final : public QORLunNeighborTree {
 public:
  explicit CloudTree(const Cloud &c) : _Xyz(c.xyz.data()), _N(static_cast<unsigned>(c.size())) {}
  int GetEntityInfo(QORLunOctinfo &info) const override {
    const double *p = _Xyz + 3 * std::size_t{info._Number};
    info._X = p[0];
    info._Y = p[1];
    info._Z = p[2];
    return 0;
  }
  int build() { return Build(_Xyz, _N, kCapacity, nullptr, 1e-9, 40); }

 private:
  const double *_Xyz;
  unsigned _N;
};

std::vector<double> uniform(std::size_t n, unsigned seed, double extent) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> u(0.0, extent);
  std::vector<double> v(3 * n);
  for (double &x : v) x = u(gen);
  return v;
}

const Cloud &random_cloud() {
  static const Cloud c{"random1M", uniform(1000000, 1, 1.0), uniform(kQueries, 2, 1.0)};
  return c;
}

const Cloud &hex_cloud() {
  static const Cloud c = [] {
    Cloud h{"hex101", {}, uniform(kQueries, 3, 100.0)};
    h.xyz.reserve(3 * 101 * 101 * 101);
    for (int k = 0; k <= 100; ++k)
      for (int j = 0; j <= 100; ++j)
        for (int i = 0; i <= 100; ++i) h.xyz.insert(h.xyz.end(), {double(i), double(j), double(k)});
    return h;
  }();
  return c;
}

std::map<std::string, double> g_recall, g_bytes;

std::size_t heap_in_use() { return mallinfo2().uordblks; }

template <class Index>
double bytes_per_entity(const Cloud &c, const std::function<Index *()> &make) {
  const std::size_t before = heap_in_use();
  std::unique_ptr<Index> index(make());
  return double(heap_in_use() - before) / double(c.size());
}

// Runs the query batch; `out` gets k (index, distance) per query.
struct Batch {
  std::vector<uint32_t> idx;
  std::vector<double> d2;
  explicit Batch(std::size_t q) : idx(q * kK), d2(q * kK) {}
};

void query_qkm(CloudTree &t, const Cloud &c, double eps, Batch &b) {
  const unsigned n = static_cast<unsigned>(c.size());
  for (std::size_t q = 0; q < c.queries.size() / 3; ++q) {
    unsigned found = 0;
    const double *p = &c.queries[3 * q];
    t.GetNeighbors(p[0], p[1], p[2], kK, found, &b.idx[q * kK], &b.d2[q * kK], eps, n, 1);
  }
}

void query_kd(const KdTree &t, const Cloud &c, double eps, Batch &b) {
  const nanoflann::SearchParams params(32, static_cast<float>(eps), true);
  for (std::size_t q = 0; q < c.queries.size() / 3; ++q) {
    nanoflann::KNNResultSet<double, uint32_t> rs(kK);
    rs.init(&b.idx[q * kK], &b.d2[q * kK]);
    t.findNeighbors(rs, &c.queries[3 * q], params);
  }
}

// Share of returned entities within the exact k-th distance of their query.
double recall(const Cloud &c, const Batch &got) {
  static std::map<std::string, Batch> exact;
  auto it = exact.find(c.name);
  if (it == exact.end()) {
    KdTree kd(3, c, nanoflann::KDTreeSingleIndexAdaptorParams(10));
    Batch b(c.queries.size() / 3);
    query_kd(kd, c, 0.0, b);
    it = exact.emplace(c.name, std::move(b)).first;
  }
  std::size_t hit = 0;
  const std::size_t nq = c.queries.size() / 3;
  for (std::size_t q = 0; q < nq; ++q) {
    const double kth = it->second.d2[q * kK + kK - 1] * (1.0 + 1e-12);
    for (unsigned i = 0; i < kK; ++i) hit += got.d2[q * kK + i] <= kth;
  }
  return double(hit) / double(nq * kK);
}

void build_qkm(benchmark::State &st, const Cloud &c) {
  for (auto _ : st) {
    auto t = std::make_unique<CloudTree>(c);
    if (t->build() != 0) st.SkipWithError("build failed");
    st.PauseTiming();
    t.reset();
    st.ResumeTiming();
  }
  st.counters["bytes/entity"] = g_bytes[c.name + "/qkm"] =
      bytes_per_entity<CloudTree>(c, [&] {
        auto *t = new CloudTree(c);
        t->build();
        return t;
      });
}

void build_kd(benchmark::State &st, const Cloud &c) {
  for (auto _ : st) {
    auto t = std::make_unique<KdTree>(3, c, nanoflann::KDTreeSingleIndexAdaptorParams(10));
    benchmark::DoNotOptimize(t.get());
    st.PauseTiming();
    t.reset();
    st.ResumeTiming();
  }
  st.counters["bytes/entity"] = g_bytes[c.name + "/nanoflann"] = bytes_per_entity<KdTree>(
      c, [&] { return new KdTree(3, c, nanoflann::KDTreeSingleIndexAdaptorParams(10)); });
}

void knn_qkm(benchmark::State &st, const Cloud &c, double eps) {
  CloudTree t(c);
  t.build();
  Batch b(c.queries.size() / 3);
  for (auto _ : st) {
    query_qkm(t, c, eps, b);
    benchmark::ClobberMemory();
  }
  st.SetItemsProcessed(int64_t(st.iterations()) * int64_t(c.queries.size() / 3));
  st.counters["recall"] = g_recall[c.name + " eps " + std::to_string(eps).substr(0, 3) + "/qkm"] =
      recall(c, b);
}

void knn_kd(benchmark::State &st, const Cloud &c, double eps) {
  KdTree t(3, c, nanoflann::KDTreeSingleIndexAdaptorParams(10));
  Batch b(c.queries.size() / 3);
  for (auto _ : st) {
    query_kd(t, c, eps, b);
    benchmark::ClobberMemory();
  }
  st.SetItemsProcessed(int64_t(st.iterations()) * int64_t(c.queries.size() / 3));
  st.counters["recall"] =
      g_recall[c.name + " eps " + std::to_string(eps).substr(0, 3) + "/nanoflann"] = recall(c, b);
}

}  // namespace

int main(int argc, char **argv) {
  for (const Cloud *c : {&random_cloud(), &hex_cloud()}) {
    const std::string n = c->name;
    benchmark::RegisterBenchmark(("build/" + n + "/qkm").c_str(), [c](benchmark::State &st) {
      build_qkm(st, *c);
    });
    benchmark::RegisterBenchmark(("build/" + n + "/nanoflann").c_str(),
                                 [c](benchmark::State &st) { build_kd(st, *c); });
    for (double eps : {0.0, 0.5}) {
      const std::string cs = "knn8_eps" + std::string(eps == 0.0 ? "0" : "0.5") + "/" + n;
      benchmark::RegisterBenchmark((cs + "/qkm").c_str(), [c, eps](benchmark::State &st) {
        knn_qkm(st, *c, eps);
      });
      benchmark::RegisterBenchmark((cs + "/nanoflann").c_str(), [c, eps](benchmark::State &st) {
        knn_kd(st, *c, eps);
      });
    }
  }
  const int rc = qkm_bench::run_main(argc, argv);
  std::printf("\n| case | qkm recall | nanoflann recall |\n|---|---|---|\n");
  for (const auto &[key, v] : g_recall) {
    const auto slash = key.rfind('/');
    if (key.substr(slash + 1) != "qkm") continue;
    const std::string cs = key.substr(0, slash);
    std::printf("| %s | %.4f | %.4f |\n", cs.c_str(), v, g_recall[cs + "/nanoflann"]);
  }
  std::printf("\n| points | qkm bytes/entity | nanoflann bytes/entity |\n|---|---|---|\n");
  for (const Cloud *c : {&random_cloud(), &hex_cloud()})
    std::printf("| %s | %.1f | %.1f |\n", c->name.c_str(), g_bytes[c->name + "/qkm"],
                g_bytes[c->name + "/nanoflann"]);
  return rc;
}
