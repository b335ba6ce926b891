// The memory manager against plain malloc/free on a solver-like pattern: nested groups of 1 to
// 11 arrays of mixed types, released mostly in stack order, with some groups released alone
// (holes). The same script of operations runs on both sides; "malloc" gives every array its
// own malloc and free.
#include <cstdio>
#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "QORKytMemoryManager.h"
#include "anchors.h"

namespace {

enum class Kind { Int, Float, Double, Char, CharPtr };
constexpr int kItemSize[] = {4, 4, 8, 1, 8};

struct Op {
  enum Type { Alloc, ReleaseFrom, ReleaseAlone } type;
  int group;                 // ReleaseFrom/ReleaseAlone: stack position, 1-based
  int count;                 // Alloc: arrays in the group
  Kind kind[11];
  int items[11];
};

// A fixed script: depth up to 10 groups, a quarter of the releases leave a hole.
std::vector<Op> make_script(int ops, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<Op> script;
  std::vector<bool> live;  // per stack position
  auto uni = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  for (int n = 0; n < ops; ++n) {
    const int depth = static_cast<int>(live.size());
    if (depth == 0 || (depth < 10 && uni(0, 99) < 55)) {
      Op op{Op::Alloc, 0, uni(1, 11), {}, {}};
      for (int i = 0; i < op.count; ++i) {
        op.kind[i] = static_cast<Kind>(uni(0, 4));
        // mostly small work arrays, a few large ones
        op.items[i] = uni(0, 9) == 0 ? uni(2000, 40000) : uni(1, 600);
      }
      script.push_back(op);
      live.push_back(true);
    } else if (uni(0, 3) == 0 && depth > 1) {
      const int g = uni(1, depth - 1);
      if (live[g - 1]) {
        script.push_back(Op{Op::ReleaseAlone, g, 0, {}, {}});
        live[g - 1] = false;
      }
    } else {
      const int g = std::max(1, depth - uni(0, 2));
      script.push_back(Op{Op::ReleaseFrom, g, 0, {}, {}});
      live.resize(g - 1);
    }
  }
  script.push_back(Op{Op::ReleaseFrom, 1, 0, {}, {}});
  return script;
}

// Pointer variables of one call site, one per pair and kind.
struct Slots {
  int *iv[11];
  float *fv[11];
  double *dv[11];
  char *cv[11];
  char **pv[11];

  // The encapsulation of pair i, built in place as at a call site; unused pairs are copies of
  // the empty instance, as callers pass them.
  QORKytTypeEncapMemory pair(const Op &op, int i) {
    if (i >= op.count) return QORKytTypeEncapMemory::EmptyEncapMem;
    switch (op.kind[i]) {
      case Kind::Int: return QORKytTypeEncapMemory(iv[i]);
      case Kind::Float: return QORKytTypeEncapMemory(fv[i]);
      case Kind::Double: return QORKytTypeEncapMemory(dv[i]);
      case Kind::Char: return QORKytTypeEncapMemory(cv[i]);
      default: return QORKytTypeEncapMemory(pv[i]);
    }
  }
  void touch(const Op &op) {
    for (int i = 0; i < op.count; ++i) {
      switch (op.kind[i]) {
        case Kind::Int: iv[i][0] = i; break;
        case Kind::Float: fv[i][0] = 1.0f; break;
        case Kind::Double: dv[i][0] = 1.0; break;
        case Kind::Char: cv[i][0] = 'a'; break;
        case Kind::CharPtr: pv[i][0] = nullptr; break;
      }
    }
  }
};

// The typed form, as the solver calls it.
void run_qkm_typed(benchmark::State &st, const std::vector<Op> &script) {
  QORKytMemoryManager manager(100);
  Slots s;
  for (auto _ : st) {
    for (const Op &op : script) {
      if (op.type == Op::ReleaseFrom) {
        manager.Desallocation(op.group);
      } else if (op.type == Op::ReleaseAlone) {
        manager.Desallocation(-op.group);
      } else {
        const int *n = op.items;
        const int c = op.count;
        int indice = 0;
        if (manager.Allocation(indice, s.pair(op, 0), n[0], s.pair(op, 1), c > 1 ? n[1] : 0,
                               s.pair(op, 2), c > 2 ? n[2] : 0, s.pair(op, 3), c > 3 ? n[3] : 0,
                               s.pair(op, 4), c > 4 ? n[4] : 0, s.pair(op, 5), c > 5 ? n[5] : 0,
                               s.pair(op, 6), c > 6 ? n[6] : 0, s.pair(op, 7), c > 7 ? n[7] : 0,
                               s.pair(op, 8), c > 8 ? n[8] : 0, s.pair(op, 9), c > 9 ? n[9] : 0,
                               s.pair(op, 10), c > 10 ? n[10] : 0) != 0)
          st.SkipWithError("allocation failed");
        s.touch(op);
      }
    }
    benchmark::ClobberMemory();
  }
}

// The pair form: addresses of pointer variables and byte lengths.
void run_qkm_pairs(benchmark::State &st, const std::vector<Op> &script) {
  QORKytMemoryManager manager(100);
  char *p[11];
  for (auto _ : st) {
    for (const Op &op : script) {
      if (op.type == Op::ReleaseFrom) {
        manager.Desallocation(op.group);
      } else if (op.type == Op::ReleaseAlone) {
        manager.Desallocation(-op.group);
      } else {
        long long b[11] = {};
        for (int i = 0; i < op.count; ++i)
          b[i] = static_cast<long long>(op.items[i]) * kItemSize[int(op.kind[i])];
        int indice = 0;
        if (manager.Allocation(op.count, indice, &p[0], b[0], &p[1], b[1], &p[2], b[2], &p[3],
                               b[3], &p[4], b[4], &p[5], b[5], &p[6], b[6], &p[7], b[7], &p[8],
                               b[8], &p[9], b[9], &p[10], b[10]) != 0)
          st.SkipWithError("allocation failed");
        for (int i = 0; i < op.count; ++i) p[i][0] = 1;
      }
    }
    benchmark::ClobberMemory();
  }
}

void run_malloc(benchmark::State &st, const std::vector<Op> &script) {
  struct Group {
    void *p[11];
    int count;
  };
  std::vector<Group> stack;
  stack.reserve(64);
  long long touched = 0;
  for (auto _ : st) {
    for (const Op &op : script) {
      if (op.type == Op::ReleaseFrom) {
        while (static_cast<int>(stack.size()) >= op.group) {
          const Group &g = stack.back();
          for (int i = 0; i < g.count; ++i) std::free(g.p[i]);
          stack.pop_back();
        }
      } else if (op.type == Op::ReleaseAlone) {
        Group &g = stack[op.group - 1];
        for (int i = 0; i < g.count; ++i) {
          std::free(g.p[i]);
          g.p[i] = nullptr;
        }
      } else {
        Group g;
        g.count = op.count;
        for (int i = 0; i < op.count; ++i) {
          g.p[i] = std::malloc(static_cast<size_t>(op.items[i]) * kItemSize[int(op.kind[i])]);
          if (g.p[i] == nullptr) st.SkipWithError("allocation failed");
          static_cast<char *>(g.p[i])[0] = 1;
          ++touched;
        }
        stack.push_back(g);
      }
    }
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(touched);
}

}  // namespace

int main(int argc, char **argv) {
  static const std::vector<Op> script = make_script(2000, 7);
  benchmark::RegisterBenchmark("groups_typed/qkm",
                               [](benchmark::State &st) { run_qkm_typed(st, script); });
  benchmark::RegisterBenchmark("groups_typed/malloc",
                               [](benchmark::State &st) { run_malloc(st, script); });
  benchmark::RegisterBenchmark("groups_pairs/qkm",
                               [](benchmark::State &st) { run_qkm_pairs(st, script); });
  benchmark::RegisterBenchmark("groups_pairs/malloc",
                               [](benchmark::State &st) { run_malloc(st, script); });
  return qkm_bench::run_main(argc, argv);
}
