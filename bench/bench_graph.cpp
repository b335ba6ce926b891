// Mesh graphs against METIS 5 (METIS_MeshToNodal) and the record sort against std::sort.
// ratio = time(anchor) / time(qkm): above 1.0 this library is faster.
//
// Peak heap: malloc, calloc, realloc and free are interposed in this executable (METIS's
// library calls them through the dynamic linker, so they land here too) and count the usable
// bytes of the blocks live between arming and disarming. The graph's whole job is measured on
// both sides: for qkm the caller's arrays (nptr, nlist, mark, aptr, adj, link) taken with
// malloc, for METIS its working arrays and the xadj/adjncy it returns.
#include <malloc.h>
#include <metis.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <random>
#include <vector>

#include "anchors.h"
#include "kernels.h"
#include "tests/support/mesh.h"

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void __libc_free(void *);
}

namespace heap {
bool armed = false;
long long live = 0, peak = 0;
inline void add(void *p) {
  if (armed && p) peak = std::max(peak, live += static_cast<long long>(malloc_usable_size(p)));
}
inline void sub(void *p) {
  if (armed && p) live -= static_cast<long long>(malloc_usable_size(p));
}
template <class F>
long long peak_of(F &&f) {
  live = peak = 0;
  armed = true;
  f();
  armed = false;
  return peak;
}
}  // namespace heap

extern "C" {
void *malloc(size_t n) {
  void *p = __libc_malloc(n);
  heap::add(p);
  return p;
}
void *calloc(size_t n, size_t s) {
  void *p = __libc_calloc(n, s);
  heap::add(p);
  return p;
}
void *realloc(void *old, size_t n) {
  heap::sub(old);
  void *p = __libc_realloc(old, n);
  heap::add(p ? p : old);
  return p;
}
void free(void *p) {
  heap::sub(p);
  __libc_free(p);
}
}

namespace {

using qkm_test::Mesh;

int32_t *take(size_t n) { return static_cast<int32_t *>(std::malloc(std::max<size_t>(n, 1) * 4)); }

// The caller's whole job with this library: both passes and every array they need.
void qkm_graph(const Mesh &m) {
  const size_t nn = m.nn;
  int32_t *nptr = take(nn + 1), *nlist = take(m.eptr.back()), *mark = take(nn),
          *aptr = take(nn + 1), *link = take(nn + 1), nadj = 0;
  eaupnn(&m.nn, &m.ne, nullptr, m.eptr.data(), m.econn.data(), nptr, nlist, mark, aptr, &nadj);
  int32_t *adj = take(nadj);
  eaunln(&m.nn, nullptr, nullptr, m.eptr.data(), m.econn.data(), nptr, nlist, link, adj);
  benchmark::DoNotOptimize(adj[nadj - 1]);
  for (int32_t *p : {nptr, nlist, mark, aptr, link, adj}) std::free(p);
}

struct MetisMesh {
  std::vector<idx_t> eptr, eind;
  idx_t ne, nn;
  explicit MetisMesh(const Mesh &m)
      : eptr(m.eptr.begin(), m.eptr.end()), eind(m.econn.begin(), m.econn.end()), ne(m.ne),
        nn(m.nn) {
    for (auto &v : eind) --v;
  }
  void graph() {
    idx_t numflag = 0, *xadj = nullptr, *adjncy = nullptr;
    METIS_MeshToNodal(&ne, &nn, eptr.data(), eind.data(), &numflag, &xadj, &adjncy);
    benchmark::DoNotOptimize(adjncy[xadj[nn] - 1]);
    METIS_Free(xadj);
    METIS_Free(adjncy);
  }
};

void add_graph(const char *name, const Mesh &mesh) {
  auto *mm = new MetisMesh(mesh);
  const long long ours = heap::peak_of([&] { qkm_graph(mesh); });
  const long long theirs = heap::peak_of([&] { mm->graph(); });
  std::printf("peak heap %s: qkm %lld bytes, METIS %lld bytes, METIS/qkm %.2f\n", name, ours,
              theirs, static_cast<double>(theirs) / static_cast<double>(ours));
  const std::string cs = std::string("graph/") + name;
  benchmark::RegisterBenchmark((cs + "/qkm").c_str(), [&mesh](benchmark::State &st) {
    for (auto _ : st) qkm_graph(mesh);
  });
  benchmark::RegisterBenchmark((cs + "/metis").c_str(), [mm](benchmark::State &st) {
    for (auto _ : st) mm->graph();
  });
}

// Tables of 10^6 records of 1 or 3 words, key in word 1 or 2.
std::vector<int32_t> table(const std::string &order, int lrec, int ikey) {
  const int n = 1000000;
  std::mt19937 rng(7);
  std::vector<int32_t> t(static_cast<size_t>(n) * lrec);
  for (int r = 0; r < n; ++r) {
    for (int w = 0; w < lrec; ++w) t[r * lrec + w] = static_cast<int32_t>(rng());
    int32_t &k = t[r * lrec + ikey - 1];
    if (order == "sorted") k = r;
    if (order == "reversed") k = n - r;
    if (order == "few") k = static_cast<int32_t>(rng() % 16);
  }
  return t;
}

struct Triple {
  int32_t a, b, c;
};

void add_sort(int lrec, const std::string &order) {
  const int ikey = lrec == 1 ? 1 : 2;
  const auto *src = new std::vector<int32_t>(table(order, lrec, ikey));
  const std::string cs = "eaxsort/lrec:" + std::to_string(lrec) + "/" + order;
  auto timed = [src](benchmark::State &st, auto sort) {
    std::vector<int32_t> t(src->size());
    for (auto _ : st) {
      st.PauseTiming();
      std::copy(src->begin(), src->end(), t.begin());
      st.ResumeTiming();
      sort(t);
      benchmark::ClobberMemory();
    }
  };
  benchmark::RegisterBenchmark((cs + "/qkm").c_str(), [=](benchmark::State &st) {
    timed(st, [=](std::vector<int32_t> &t) {
      int32_t work[3], n = static_cast<int32_t>(t.size()) / lrec, l = lrec, k = ikey;
      eaxsort(t.data(), &l, &n, &k, work);
    });
  });
  benchmark::RegisterBenchmark((cs + "/std_sort").c_str(), [=](benchmark::State &st) {
    timed(st, [=](std::vector<int32_t> &t) {
      if (lrec == 1) return std::sort(t.begin(), t.end());
      auto *p = reinterpret_cast<Triple *>(t.data());
      std::sort(p, p + t.size() / 3, [](const Triple &x, const Triple &y) { return x.b < y.b; });
    });
  });
}

}  // namespace

int main(int argc, char **argv) {
  static const Mesh hex = qkm_test::box_mesh(100, 100, 100);
  static const Mesh tet = qkm_test::box_mesh(55, 55, 55, true);  // 998250 tetrahedra
  add_graph("hex:100^3", hex);
  add_graph("tet:55^3x6", tet);
  for (int lrec : {1, 3})
    for (const char *order : {"random", "sorted", "reversed", "few"}) add_sort(lrec, order);
  return qkm_bench::run_main(argc, argv);
}
