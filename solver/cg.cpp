// Block conjugate gradients: the vectors of the block iterate side by side with their own step
// lengths, and one symmetric eaxmvm sweep per iteration forms all their products, so that the
// matrix is read once for the whole block.
#include "cg.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace qks {

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point t0) {
  return std::chrono::duration<double>(Clock::now() - t0).count();
}

// Scalar product in eight fixed partial sums (element i goes to sum i mod 8), added pairwise
// at the end: the same bits whatever the alignment of the vectors.
double dot(qkm_int n, const double *x, const double *y) {
  double s[8] = {};
  qkm_int i = 0;
  for (; i + 8 <= n; i += 8)
    for (int k = 0; k < 8; ++k) s[k] += x[i + k] * y[i + k];
  for (int k = 0; i < n; ++i, ++k) s[k] += x[i] * y[i];
  return ((s[0] + s[1]) + (s[2] + s[3])) + ((s[4] + s[5]) + (s[6] + s[7]));
}

// Entry (row, column) of the lower triangle, column <= row; 0 when it is not stored.
double entry(const SymMatrix &a, qkm_int row, qkm_int column) {
  const qkm_int diag = a.rowend[row] - 1;
  if (column == row) return a.a[diag];
  const qkm_int *begin = a.col.data() + a.rowend[row - 1], *end = a.col.data() + diag;
  const qkm_int *hit = std::lower_bound(begin, end, column);
  return hit != end && *hit == column ? a.a[hit - a.col.data()] : 0.0;
}

// The nodal block-Jacobi preconditioner: inverted 3x3 blocks of the nodes whose three
// components are free, reciprocal diagonals for the other unknowns.
struct BlockJacobi {
  struct Block {
    qkm_int eq[3];
    double inv[9];  // by columns
  };
  std::vector<Block> blocks;
  std::vector<qkm_int> single;
  std::vector<double> single_inv;

  void add_single(const SymMatrix &a, qkm_int eq) {
    const double d = a.a[a.rowend[eq] - 1];
    single.push_back(eq);
    single_inv.push_back(d != 0.0 ? 1.0 / d : 1.0);
  }

  BlockJacobi(const SymMatrix &a, const Dofs &dofs) {
    const size_t nodes = dofs.eq.size() / 3;
    blocks.reserve(nodes);
    for (size_t node = 0; node < nodes; ++node) {
      const qkm_int *e = &dofs.eq[3 * node];
      if (e[0] > 0 && e[1] > 0 && e[2] > 0) {
        Block b;
        std::copy(e, e + 3, b.eq);
        for (int i = 0; i < 3; ++i)
          for (int j = 0; j < 3; ++j)
            b.inv[i + 3 * j] = entry(a, std::max(e[i], e[j]), std::min(e[i], e[j]));
        // Watched symmetric inversion: a block with a vanishing pivot falls back to its
        // diagonal.
        const qkm_int mode = 3, three = 3;
        qkm_int ipvt[3], info = 0;
        eaxinv(&mode, &three, &three, ipvt, &info, b.inv);
        if (info == 0) {
          blocks.push_back(b);
          continue;
        }
      }
      for (int c = 0; c < 3; ++c)
        if (e[c] > 0) add_single(a, e[c]);
    }
  }

  // z = M^-1 r for one vector.
  void apply(const double *r, double *z) const {
    for (const Block &b : blocks) {
      const double r0 = r[b.eq[0] - 1], r1 = r[b.eq[1] - 1], r2 = r[b.eq[2] - 1];
      for (int i = 0; i < 3; ++i)
        z[b.eq[i] - 1] = b.inv[i] * r0 + b.inv[i + 3] * r1 + b.inv[i + 6] * r2;
    }
    for (size_t k = 0; k < single.size(); ++k) z[single[k] - 1] = single_inv[k] * r[single[k] - 1];
  }
};

// One line on standard output, rewritten in place at most five times a second.
class Progress {
 public:
  explicit Progress(bool on) : on_(on), last_(Clock::now()) {}
  void show(int iteration, double worst) {
    if (!on_ || since(last_) < 0.2) return;
    last_ = Clock::now();
    // Padded to the previous width, so that a shorter line leaves nothing behind.
    char line[96];
    const int w =
        std::snprintf(line, sizeof line, "CG iteration %d, worst residual %.3e", iteration, worst);
    std::printf("\r%-*s", std::max(w, width_), line);
    width_ = std::max(w, width_);
    std::fflush(stdout);
  }
  ~Progress() {
    if (on_ && width_ > 0) {
      std::printf("\r%*s\r", width_, "");
      std::fflush(stdout);
    }
  }

 private:
  bool on_;
  Clock::time_point last_;
  int width_ = 0;
};

}  // namespace

CgReport block_cg(const SymMatrix &a, const Dofs &dofs, const double *b, double *x, int nrhs,
                  const CgOptions &options) {
  const auto start = Clock::now();
  CgReport rep;
  rep.converged_at.assign(static_cast<size_t>(std::max(nrhs, 0)), -1);
  rep.residual.assign(rep.converged_at.size(), 0.0);
  const qkm_int n = a.n, one = 1;
  const size_t len = static_cast<size_t>(n) * rep.converged_at.size();
  if (nrhs <= 0) return rep;

  const BlockJacobi precond(a, dofs);
  std::vector<double> r(len), z(len), p(len), q(len);
  std::vector<double> bnorm(nrhs), rz(nrhs);
  std::vector<char> active(nrhs, 1);

  // r = b - A x, z = M^-1 r, p = z.
  a.multiply(x, q.data(), nrhs);
  for (size_t i = 0; i < len; ++i) r[i] = b[i] - q[i];
  int running = 0;
  for (int k = 0; k < nrhs; ++k) {
    const size_t off = static_cast<size_t>(k) * n;
    bnorm[k] = std::sqrt(dot(n, b + off, b + off));
    if (bnorm[k] == 0.0) {
      // The solution of a zero right-hand side is zero.
      std::fill(x + off, x + off + n, 0.0);
      std::fill(p.begin() + off, p.begin() + off + n, 0.0);
      active[k] = 0;
      rep.converged_at[k] = 0;
      continue;
    }
    if (std::sqrt(dot(n, &r[off], &r[off])) <= options.tolerance * bnorm[k]) {
      std::fill(p.begin() + off, p.begin() + off + n, 0.0);
      active[k] = 0;
      rep.converged_at[k] = 0;
      continue;
    }
    precond.apply(&r[off], &z[off]);
    std::copy(z.begin() + off, z.begin() + off + n, p.begin() + off);
    rz[k] = dot(n, &r[off], &z[off]);
    ++running;
  }

  Progress progress(options.progress);
  const auto loop = Clock::now();
  int it = 0;
  while (running > 0 && it < options.max_iterations) {
    ++it;
    a.multiply(p.data(), q.data(), nrhs);  // all the products of the block in one sweep
    double worst = 0.0;
    for (int k = 0; k < nrhs; ++k) {
      if (!active[k]) continue;
      const size_t off = static_cast<size_t>(k) * n;
      double *pk = &p[off], *qk = &q[off], *rk = &r[off], *zk = &z[off];
      const double pq = dot(n, pk, qk);
      if (!(pq > 0.0)) {
        // No positive curvature left along p: the vector stops where it is.
        active[k] = 0;
        --running;
        std::fill(pk, pk + n, 0.0);
        continue;
      }
      const double alpha = rz[k] / pq, minus = -alpha;
      e_daxpy(&n, &alpha, pk, &one, x + off, &one);
      e_daxpy(&n, &minus, qk, &one, rk, &one);
      const double rel = std::sqrt(dot(n, rk, rk)) / bnorm[k];
      if (rel <= options.tolerance) {
        rep.converged_at[k] = it;
        active[k] = 0;
        --running;
        std::fill(pk, pk + n, 0.0);
        continue;
      }
      worst = std::max(worst, rel);
      precond.apply(rk, zk);
      const double rz_new = dot(n, rk, zk), beta = rz_new / rz[k];
      rz[k] = rz_new;
      for (qkm_int i = 0; i < n; ++i) pk[i] = zk[i] + beta * pk[i];
    }
    progress.show(it, worst);
  }
  rep.iterations = it;
  rep.iteration_seconds = since(loop);

  // The true residuals of the answer.
  a.multiply(x, q.data(), nrhs);
  rep.converged = true;
  for (int k = 0; k < nrhs; ++k) {
    const size_t off = static_cast<size_t>(k) * n;
    for (qkm_int i = 0; i < n; ++i) r[off + i] = b[off + i] - q[off + i];
    rep.residual[k] = bnorm[k] > 0.0 ? std::sqrt(dot(n, &r[off], &r[off])) / bnorm[k] : 0.0;
    rep.converged = rep.converged && rep.converged_at[k] >= 0;
  }
  rep.seconds = since(start);
  return rep;
}

}  // namespace qks
