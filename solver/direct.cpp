// Multifrontal L*D*L^T factorisation of the stiffness matrix. The nodes that carry free
// unknowns are ordered by nested dissection (METIS_NodeND) on their graph; the elimination tree
// of that graph, postordered, gives fundamental supernodes, which a modest amalgamation merges
// into fronts. Each front is assembled from the original entries and its children's update
// matrices and eliminated by one easlff_nt call; its trailing columns are the update matrix
// handed to the parent. Only the pivot columns are kept for the solves.
#include "direct.h"

#include <metis.h>
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

namespace qks {

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point t0) {
  return std::chrono::duration<double>(Clock::now() - t0).count();
}

// Position (from 0) of element (i, j), i >= j, counted from 0, in the front layout of order n:
// the lower triangle by columns, each column starting with its diagonal.
inline size_t front_pos(size_t n, size_t i, size_t j) { return j * (2 * n - j - 1) / 2 + i; }
inline size_t triangle(size_t n) { return n * (n + 1) / 2; }

constexpr int kBadInput = -2;     // as METIS_ERROR_INPUT
constexpr int kNoMemory = -3;     // as METIS_ERROR_MEMORY
constexpr int kTooLarge = -4;     // a front whose packed size outgrows 32-bit positions

// Amalgamation: a child front is merged into its parent when the merged pivot block stays
// small and not too sparse, or when the explicit zeros it adds are a small share of the
// merged pivot columns.
constexpr double kSmallPivots = 48.0, kSmallZeros = 0.30, kAnyZeros = 0.03;

// Storage of the factor, left uninitialised (every entry is written by the elimination) and
// asked for in huge pages: the factor of a large model is hundreds of megabytes, and touching
// it page by page costs as much as the elimination.
class FactorStore {
 public:
  void reset(size_t count) {
    constexpr size_t kHuge = size_t{1} << 21;
    data_.reset();
    const size_t bytes = (std::max<size_t>(count, 1) * sizeof(double) + kHuge - 1) / kHuge * kHuge;
    data_.reset(static_cast<double *>(std::aligned_alloc(kHuge, bytes)));
    if (!data_) throw std::bad_alloc();
    madvise(data_.get(), bytes, MADV_HUGEPAGE);  // a hint; refusal changes nothing
  }
  void clear() { data_.reset(); }
  double *data() { return data_.get(); }
  const double *data() const { return data_.get(); }

 private:
  struct Free {
    void operator()(double *p) const { std::free(p); }
  };
  std::unique_ptr<double, Free> data_;
};

struct Front {
  qkm_int first = 0;   // elimination position (from 0) of the first pivot
  qkm_int npiv = 0;
  qkm_int nupd = 0;    // rows of the update matrix handed to the parent
  size_t rows = 0;     // offset of the update rows (elimination positions, ascending) in rows
  size_t values = 0;   // offset in factor: pivot block in the front layout of order npiv with
                       // D on its diagonal, then the npiv columns of the off-diagonal block
  int children = 0;    // fronts whose update matrices this one receives
};

// Graph of the free nodes, 0-based CSR as METIS takes it.
struct NodeGraph {
  std::vector<idx_t> xadj{0}, adjncy;
};

}  // namespace

struct DirectSolver::Impl {
  qkm_int n = 0;
  std::vector<qkm_int> eq_at;   // elimination position -> equation number - 1
  std::vector<Front> fronts;    // in elimination (post)order
  std::vector<qkm_int> rows;
  FactorStore factor;
  qkm_int max_update = 0;
  bool ready = false;

  int analyse(const SymMatrix &a, const Mesh &mesh, const Dofs &dofs, const NodalGraph &graph,
              DirectReport &report);
  int eliminate(const SymMatrix &a, DirectReport &report);
};

namespace {

// The free nodes and their graph: the mesh graph restricted to them, completed by every
// coupling that the matrix holds between two nodes (normally none beyond the graph).
bool free_node_graph(const SymMatrix &a, const Mesh &mesh, const Dofs &dofs,
                     const NodalGraph &graph, std::vector<qkm_int> &node_at,
                     std::vector<qkm_int> &node_of_eq, NodeGraph &g) {
  const qkm_int nn = mesh.nodes();
  if (graph.aptr[0] != 0 || graph.aptr[nn] > static_cast<qkm_int>(graph.adj.size())) return false;
  for (qkm_int r = 0; r < a.n; ++r)
    if (a.rowend[r + 1] <= a.rowend[r]) return false;
  if (a.rowend[0] != 0 || a.rowend[a.n] != a.terms()) return false;
  std::vector<qkm_int> id(nn, -1);
  node_of_eq.assign(a.n, -1);
  for (qkm_int v = 0; v < nn; ++v)
    for (int c = 0; c < 3; ++c) {
      const qkm_int e = dofs.eq[3 * v + c];
      if (e <= 0) continue;
      if (e > a.n || node_of_eq[e - 1] >= 0) return false;
      if (id[v] < 0) {
        id[v] = static_cast<qkm_int>(node_at.size());
        node_at.push_back(v);
      }
      node_of_eq[e - 1] = id[v];
    }
  for (qkm_int e = 0; e < a.n; ++e)
    if (node_of_eq[e] < 0) return false;
  const qkm_int nf = static_cast<qkm_int>(node_at.size());
  for (qkm_int k = 0; k < nf; ++k) {
    const qkm_int v = node_at[k];
    for (qkm_int p = graph.aptr[v]; p < graph.aptr[v + 1]; ++p) {
      const qkm_int u = graph.adj[p] - 1;
      if (u < 0 || u >= nn) return false;
      if (id[u] >= 0 && u != v) g.adjncy.push_back(id[u]);
    }
    g.xadj.push_back(static_cast<idx_t>(g.adjncy.size()));
  }
  // Couplings of the matrix that the graph lacks: both directions, then merged in.
  std::vector<std::pair<idx_t, idx_t>> extra;
  for (qkm_int r = 0; r < a.n; ++r)
    for (qkm_int p = a.rowend[r]; p < a.rowend[r + 1] - 1; ++p) {
      const qkm_int c = a.col[p] - 1;
      if (c < 0 || c >= a.n) return false;
      const idx_t kr = node_of_eq[r], kc = node_of_eq[c];
      if (kr == kc) continue;
      const idx_t *b = g.adjncy.data() + g.xadj[kr], *e = g.adjncy.data() + g.xadj[kr + 1];
      if (std::binary_search(b, e, kc)) continue;
      extra.emplace_back(kr, kc);
      extra.emplace_back(kc, kr);
    }
  if (extra.empty()) return true;
  for (qkm_int k = 0; k < nf; ++k)
    for (idx_t p = g.xadj[k]; p < g.xadj[k + 1]; ++p) extra.emplace_back(k, g.adjncy[p]);
  std::sort(extra.begin(), extra.end());
  extra.erase(std::unique(extra.begin(), extra.end()), extra.end());
  g.adjncy.clear();
  g.xadj.assign(nf + 1, 0);
  for (const auto &[k, u] : extra) {
    ++g.xadj[k + 1];
    g.adjncy.push_back(u);
  }
  for (qkm_int k = 0; k < nf; ++k) g.xadj[k + 1] += g.xadj[k];
  return true;
}

// Elimination tree of the graph under the order perm (perm[new] = old, iperm its inverse),
// in new labels; -1 marks a root.
std::vector<qkm_int> elimination_tree(const NodeGraph &g, const std::vector<idx_t> &perm,
                                      const std::vector<idx_t> &iperm) {
  const qkm_int nf = static_cast<qkm_int>(perm.size());
  std::vector<qkm_int> parent(nf, -1), ancestor(nf, -1);
  for (qkm_int j = 0; j < nf; ++j)
    for (idx_t p = g.xadj[perm[j]]; p < g.xadj[perm[j] + 1]; ++p) {
      qkm_int r = iperm[g.adjncy[p]];
      if (r >= j) continue;
      while (ancestor[r] >= 0 && ancestor[r] != j) {
        const qkm_int t = ancestor[r];
        ancestor[r] = j;
        r = t;
      }
      if (ancestor[r] < 0) {
        ancestor[r] = j;
        parent[r] = j;
      }
    }
  return parent;
}

// Postorder of a forest given by parent links (-1 a root, below -1 left out): children and
// roots in ascending label order.
std::vector<qkm_int> postorder(const std::vector<qkm_int> &parent) {
  const qkm_int n = static_cast<qkm_int>(parent.size());
  std::vector<qkm_int> head(n, -1), next(n, -1), order, stack;
  order.reserve(n);
  for (qkm_int j = n - 1; j >= 0; --j)
    if (parent[j] >= 0) {
      next[j] = head[parent[j]];
      head[parent[j]] = j;
    }
  for (qkm_int root = 0; root < n; ++root) {
    if (parent[root] != -1) continue;
    stack.push_back(root);
    while (!stack.empty()) {
      const qkm_int j = stack.back();
      if (head[j] >= 0) {  // descend into the next unvisited child
        const qkm_int c = head[j];
        head[j] = next[c];
        stack.push_back(c);
      } else {
        order.push_back(j);
        stack.pop_back();
      }
    }
  }
  return order;
}

}  // namespace

int DirectSolver::Impl::analyse(const SymMatrix &a, const Mesh &mesh, const Dofs &dofs,
                                const NodalGraph &graph, DirectReport &report) {
  std::vector<qkm_int> node_at, node_of_eq;
  NodeGraph g;
  if (!free_node_graph(a, mesh, dofs, graph, node_at, node_of_eq, g)) return kBadInput;
  const qkm_int nf = static_cast<qkm_int>(node_at.size());
  std::vector<int> weight(nf, 0);
  for (qkm_int e = 0; e < a.n; ++e) ++weight[node_of_eq[e]];

  // Nested dissection of the node graph.
  std::vector<idx_t> perm(nf), iperm(nf);
  for (qkm_int k = 0; k < nf; ++k) perm[k] = iperm[k] = k;
  if (!g.adjncy.empty()) {
    idx_t options[METIS_NOPTIONS], nv = nf;
    METIS_SetDefaultOptions(options);
    options[METIS_OPTION_NUMBERING] = 0;
    options[METIS_OPTION_SEED] = 7;
    const int st = METIS_NodeND(&nv, g.xadj.data(), g.adjncy.data(), nullptr, options,
                                perm.data(), iperm.data());
    if (st != METIS_OK) return st;
  }

  // Postordered elimination tree: label j is the j-th node of the postorder.
  const std::vector<qkm_int> etree = elimination_tree(g, perm, iperm);
  const std::vector<qkm_int> post = postorder(etree);
  std::vector<qkm_int> label(nf), parent(nf, -1), nchild(nf, 0);
  for (qkm_int j = 0; j < nf; ++j) label[post[j]] = j;
  for (qkm_int j = 0; j < nf; ++j)
    if (etree[post[j]] >= 0) {
      parent[j] = label[etree[post[j]]];
      ++nchild[parent[j]];
    }
  std::vector<qkm_int> old_of(nf), lab_of_old(nf);  // label <-> free node
  for (qkm_int j = 0; j < nf; ++j) {
    old_of[j] = perm[post[j]];
    lab_of_old[old_of[j]] = j;
  }

  // Structure of each column of the node factor, children's structures kept on a stack
  // (postorder leaves the children of j on its top); fundamental supernodes on the way.
  std::vector<std::vector<qkm_int>> stack;
  std::vector<qkm_int> mark(nf, -1), count(nf, 0), sn_first, sn_of(nf);
  std::vector<std::vector<qkm_int>> sn_upd;
  for (qkm_int j = 0; j < nf; ++j) {
    std::vector<qkm_int> s;
    mark[j] = j;
    for (idx_t p = g.xadj[old_of[j]]; p < g.xadj[old_of[j] + 1]; ++p) {
      const qkm_int u = lab_of_old[g.adjncy[p]];
      if (u > j && mark[u] != j) {
        mark[u] = j;
        s.push_back(u);
      }
    }
    for (qkm_int c = 0; c < nchild[j]; ++c) {
      for (qkm_int u : stack.back())
        if (mark[u] != j) {
          mark[u] = j;
          s.push_back(u);
        }
      stack.pop_back();
    }
    std::sort(s.begin(), s.end());
    count[j] = static_cast<qkm_int>(s.size());
    const bool joins = j > 0 && parent[j - 1] == j && nchild[j] == 1 && count[j - 1] == count[j] + 1;
    if (!joins) {
      sn_first.push_back(j);
      sn_upd.emplace_back();
    }
    sn_of[j] = static_cast<qkm_int>(sn_first.size()) - 1;
    sn_upd.back() = s;
    if (parent[j] >= 0) stack.push_back(std::move(s));
  }
  const qkm_int ns = static_cast<qkm_int>(sn_first.size());
  sn_first.push_back(nf);

  // Amalgamation, bottom-up over the supernodal tree.
  std::vector<double> pv(ns, 0.0), uv(ns, 0.0), nz(ns);
  std::vector<std::vector<qkm_int>> children(ns), pivots(ns);
  std::vector<qkm_int> sn_parent(ns, -1);
  for (qkm_int s = 0; s < ns; ++s) {
    for (qkm_int j = sn_first[s]; j < sn_first[s + 1]; ++j) pv[s] += weight[old_of[j]];
    for (qkm_int u : sn_upd[s]) uv[s] += weight[old_of[u]];
    nz[s] = pv[s] * (pv[s] + 1) / 2 + pv[s] * uv[s];
    const qkm_int last = sn_first[s + 1] - 1;
    if (parent[last] >= 0) {
      sn_parent[s] = sn_of[parent[last]];
      children[sn_parent[s]].push_back(s);
    }
  }
  for (qkm_int s = 0; s < ns; ++s) {
    std::vector<qkm_int> kept, merged;
    for (qkm_int c : children[s]) {
      const double p = pv[c] + pv[s];
      const double entries = p * (p + 1) / 2 + p * uv[s];
      const double zeros = entries - nz[c] - nz[s];
      if ((p <= kSmallPivots && zeros <= kSmallZeros * entries) || zeros <= kAnyZeros * entries) {
        pv[s] = p;
        nz[s] += nz[c];
        merged.insert(merged.end(), pivots[c].begin(), pivots[c].end());
        kept.insert(kept.end(), children[c].begin(), children[c].end());
        children[c].clear();
        pivots[c].clear();
        sn_parent[c] = -2;  // merged away
      } else {
        kept.push_back(c);
      }
    }
    children[s] = std::move(kept);
    for (qkm_int j = sn_first[s]; j < sn_first[s + 1]; ++j) merged.push_back(j);
    pivots[s] = std::move(merged);
  }

  // Fronts in postorder of the amalgamated tree; elimination positions node by node.
  std::vector<qkm_int> front_parent(ns, -1);
  for (qkm_int s = 0; s < ns; ++s)
    for (qkm_int c : children[s]) front_parent[c] = s;
  for (qkm_int s = 0; s < ns; ++s)
    if (sn_parent[s] == -2) front_parent[s] = -2;  // merged away: neither root nor child
  std::vector<qkm_int> fpost = postorder(front_parent);
  std::vector<qkm_int> pos_of_node(nf, -1);
  std::vector<std::vector<qkm_int>> node_eqs(nf);
  for (qkm_int e = 0; e < a.n; ++e) node_eqs[node_of_eq[e]].push_back(e);
  eq_at.assign(a.n, 0);
  fronts.clear();
  std::vector<qkm_int> front_sn;
  qkm_int next = 0;
  for (qkm_int s : fpost) {
    if (sn_parent[s] == -2) continue;
    Front f;
    f.first = next;
    for (qkm_int j : pivots[s]) {
      pos_of_node[j] = next;
      for (qkm_int e : node_eqs[old_of[j]]) eq_at[next++] = e;
    }
    f.npiv = next - f.first;
    f.children = static_cast<int>(children[s].size());
    fronts.push_back(f);
    front_sn.push_back(s);
  }
  rows.clear();
  size_t values = 0;
  max_update = 0;
  report = DirectReport{};
  for (size_t k = 0; k < fronts.size(); ++k) {
    Front &f = fronts[k];
    f.rows = rows.size();
    for (qkm_int u : sn_upd[front_sn[k]]) {
      const qkm_int w = weight[old_of[u]];
      for (qkm_int c = 0; c < w; ++c) rows.push_back(pos_of_node[u] + c);
    }
    std::sort(rows.begin() + f.rows, rows.end());
    f.nupd = static_cast<qkm_int>(rows.size() - f.rows);
    f.values = values;
    values += triangle(f.npiv) + static_cast<size_t>(f.npiv) * f.nupd;
    max_update = std::max(max_update, f.nupd);
    report.largest_front = std::max(report.largest_front, static_cast<int>(f.npiv + f.nupd));
  }
  if (triangle(report.largest_front) > 2147483647u) return kTooLarge;
  report.fronts = static_cast<int>(fronts.size());
  report.factor_entries = static_cast<long long>(values);
  factor.reset(values);
  return 0;
}

int DirectSolver::Impl::eliminate(const SymMatrix &a, DirectReport &report) {
  const qkm_int n = a.n;
  std::vector<qkm_int> pos_of_eq(n);
  for (qkm_int g = 0; g < n; ++g) pos_of_eq[eq_at[g]] = g;
  // Original entries by the earlier of their two elimination positions: (later, value index).
  std::vector<size_t> eptr(n + 1, 0);
  std::vector<std::pair<qkm_int, qkm_int>> entries(a.a.size());
  std::vector<double> diag0(n);
  auto ends = [&](qkm_int r, qkm_int p) {
    const qkm_int c = p == a.rowend[r + 1] - 1 ? r : a.col[p] - 1;
    return std::minmax(pos_of_eq[r], pos_of_eq[c]);
  };
  for (qkm_int r = 0; r < n; ++r) {
    diag0[pos_of_eq[r]] = a.a[a.rowend[r + 1] - 1];
    for (qkm_int p = a.rowend[r]; p < a.rowend[r + 1]; ++p) ++eptr[ends(r, p).first + 1];
  }
  for (qkm_int g = 0; g < n; ++g) eptr[g + 1] += eptr[g];
  {
    std::vector<size_t> fill(eptr.begin(), eptr.end() - 1);
    for (qkm_int r = 0; r < n; ++r)
      for (qkm_int p = a.rowend[r]; p < a.rowend[r + 1]; ++p) {
        const auto [lo, hi] = ends(r, p);
        entries[fill[lo]++] = {hi, p};
      }
  }

  std::vector<qkm_int> local(n, -1), owner(n, -1);
  // Update matrices wait on one stack (postorder hands a front its children's on the top);
  // the stack and the front buffer are sized once, from a dry run of the pushes and pops.
  std::vector<size_t> waiting;  // fronts whose update matrices are on the stack
  size_t peak = 0, largest = 0;
  for (size_t k = 0, top = 0; k < fronts.size(); ++k) {
    for (int c = 0; c < fronts[k].children; ++c) {
      top -= triangle(fronts[waiting.back()].nupd);
      waiting.pop_back();
    }
    largest = std::max(largest, triangle(fronts[k].npiv + fronts[k].nupd));
    top += triangle(fronts[k].nupd);
    peak = std::max(peak, top);
    waiting.push_back(k);
  }
  waiting.clear();
  FactorStore stack, buffer;
  stack.reset(peak);
  buffer.reset(largest);
  double *front = buffer.data();
  size_t top = 0;
  double minratio = HUGE_VAL;
  const double tolabs = 1.0e-300, tolratio = 1.0e-12;
  qkm_int ipiv = 0, naccept = 0, ierr = 0;
  float work1 = 0.0f, work2 = 0.0f;
  for (size_t k = 0; k < fronts.size(); ++k) {
    const Front &f = fronts[k];
    const qkm_int p = f.npiv, u = f.nupd, order = p + u;
    const qkm_int *upd = rows.data() + f.rows;
    for (qkm_int i = 0; i < p; ++i) {
      local[f.first + i] = i;
      owner[f.first + i] = static_cast<qkm_int>(k);
    }
    for (qkm_int i = 0; i < u; ++i) {
      local[upd[i]] = p + i;
      owner[upd[i]] = static_cast<qkm_int>(k);
    }
    std::fill(front, front + triangle(order), 0.0);
    for (qkm_int j = 0; j < p; ++j)
      for (size_t e = eptr[f.first + j]; e < eptr[f.first + j + 1]; ++e) {
        const qkm_int hi = entries[e].first;
        if (owner[hi] != static_cast<qkm_int>(k)) return kBadInput;
        front[front_pos(order, local[hi], j)] += a.a[entries[e].second];
      }
    // Extend-add of the children's update matrices; their rows are ascending, like ours.
    for (int c = 0; c < f.children; ++c) {
      const Front &child = fronts[waiting.back()];
      top -= triangle(child.nupd);
      const double *w = stack.data() + top;
      const qkm_int cu = child.nupd, *crow = rows.data() + child.rows;
      for (qkm_int j = 0; j < cu; ++j)
        if (owner[crow[j]] != static_cast<qkm_int>(k)) return kBadInput;
      for (qkm_int j = 0; j < cu; ++j) {
        const double *src = w + front_pos(cu, j, j);
        double *dst = front + front_pos(order, 0, local[crow[j]]);
        for (qkm_int i = j; i < cu; ++i) dst[local[crow[i]]] += src[i - j];
      }
      waiting.pop_back();
    }
    const qkm_int result = easlff_nt(&order, &p, front, &minratio, diag0.data(), &tolabs,
                                     &tolratio, &ipiv, &naccept, &work1, &work2, &ierr);
    report.work = work1;
    report.min_ratio = minratio;
    if (result != 0) {
      report.status = ierr;
      report.equation = eq_at[ipiv - 1] + 1;
      return ierr;
    }
    // Pivot block to the front layout of order p, off-diagonal block by columns.
    double *l11 = factor.data() + f.values, *l21 = l11 + triangle(p);
    for (qkm_int j = 0; j < p; ++j) {
      const double *col = front + front_pos(order, j, j);
      std::copy(col, col + (p - j), l11 + front_pos(p, j, j));
      std::copy(col + (p - j), col + (order - j), l21 + static_cast<size_t>(j) * u);
    }
    std::copy(front + triangle(order) - triangle(u), front + triangle(order), stack.data() + top);
    top += triangle(u);
    waiting.push_back(k);
  }
  return 0;
}

DirectSolver::DirectSolver() : impl_(new Impl) {}
DirectSolver::~DirectSolver() { delete impl_; }

int DirectSolver::factor(const SymMatrix &a, const Mesh &mesh, const Dofs &dofs,
                         const NodalGraph &graph) {
  Impl &m = *impl_;
  m.ready = false;
  report_ = DirectReport{};
  if (a.n != dofs.count || a.n < 0 || dofs.eq.size() != 3 * static_cast<size_t>(mesh.nodes()) ||
      graph.aptr.size() != static_cast<size_t>(mesh.nodes()) + 1 ||
      a.rowend.size() != static_cast<size_t>(a.n) + 1 || a.col.size() != a.a.size()) {
    report_.status = kBadInput;
    return kBadInput;
  }
  m.n = a.n;
  int status = 0;
  try {
    const auto t0 = Clock::now();
    status = m.analyse(a, mesh, dofs, graph, report_);
    report_.ordering_seconds = seconds_since(t0);
    if (status == 0) {
      const auto t1 = Clock::now();
      status = m.eliminate(a, report_);
      report_.factor_seconds = seconds_since(t1);
    }
  } catch (const std::bad_alloc &) {
    status = kNoMemory;
  }
  report_.status = status;
  if (status != 0) {
    m.fronts.clear();
    m.factor.clear();
    return status;
  }
  m.ready = true;
  return 0;
}

void DirectSolver::solve(double *b, int nrhs) const {
  const Impl &m = *impl_;
  if (!m.ready || m.n == 0 || nrhs <= 0) return;
  const qkm_int n = m.n, nr = nrhs, one = 1;
  const double plus = 1.0, minus = -1.0, zero = 0.0;
  const size_t ld = static_cast<size_t>(n);
  std::vector<double> x(ld * nr), t(static_cast<size_t>(std::max(m.max_update, 1)) * nr);
  for (qkm_int r = 0; r < nr; ++r)
    for (qkm_int g = 0; g < n; ++g) x[r * ld + g] = b[r * ld + m.eq_at[g]];
  // L y = b, then D z = y, front by front in elimination order.
  for (const Front &f : m.fronts) {
    const qkm_int p = f.npiv, u = f.nupd;
    const double *l11 = m.factor.data() + f.values, *l21 = l11 + triangle(p);
    const qkm_int *upd = m.rows.data() + f.rows;
    double *xp = x.data() + f.first;
    for (qkm_int r = 0; r < nr; ++r) e_dtpsv("L", "N", "U", &p, l11, xp + r * ld, &one, 1, 1, 1);
    if (u > 0) {
      eagemm("N", "N", &u, &nr, &p, &plus, l21, &u, xp, &n, &zero, t.data(), &u, 1, 1);
      for (qkm_int r = 0; r < nr; ++r)
        for (qkm_int i = 0; i < u; ++i) x[r * ld + upd[i]] -= t[static_cast<size_t>(r) * u + i];
    }
    for (qkm_int r = 0; r < nr; ++r)
      for (qkm_int j = 0; j < p; ++j) xp[r * ld + j] /= l11[front_pos(p, j, j)];
  }
  // L^T x = z, fronts in reverse.
  for (auto f = m.fronts.rbegin(); f != m.fronts.rend(); ++f) {
    const qkm_int p = f->npiv, u = f->nupd;
    const double *l11 = m.factor.data() + f->values, *l21 = l11 + triangle(p);
    const qkm_int *upd = m.rows.data() + f->rows;
    double *xp = x.data() + f->first;
    if (u > 0) {
      for (qkm_int r = 0; r < nr; ++r)
        for (qkm_int i = 0; i < u; ++i) t[static_cast<size_t>(r) * u + i] = x[r * ld + upd[i]];
      eagemm("T", "N", &p, &nr, &u, &minus, l21, &u, t.data(), &u, &plus, xp, &n, 1, 1);
    }
    for (qkm_int r = 0; r < nr; ++r) e_dtpsv("L", "T", "U", &p, l11, xp + r * ld, &one, 1, 1, 1);
  }
  for (qkm_int r = 0; r < nr; ++r)
    for (qkm_int g = 0; g < n; ++g) b[r * ld + m.eq_at[g]] = x[r * ld + g];
}

}  // namespace qks
