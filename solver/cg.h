// Preconditioned conjugate gradients on a block of right-hand sides: one eaxmvm sweep gives
// the products of all the vectors of the block.
#ifndef QKS_CG_H
#define QKS_CG_H

#include <vector>

#include "model.h"

namespace qks {

struct CgOptions {
  double tolerance = 1.0e-10;  // on ||r|| / ||b|| of each vector
  int max_iterations = 20000;
  bool progress = false;       // one updated line on standard output
};

struct CgReport {
  int iterations = 0;               // sweeps of the block
  std::vector<int> converged_at;    // per vector, -1 when it did not converge
  std::vector<double> residual;     // per vector, final ||b - A x|| / ||b||
  bool converged = false;           // all vectors
  double seconds = 0.0;             // wall clock of the whole solve
  double iteration_seconds = 0.0;   // of which the iterations alone (no set-up, no final check)
};

// Solves A X = B for nrhs vectors (B, X of A.n x nrhs; X in = start, out = solution).
// Preconditioned by the inverses of the 3x3 diagonal blocks of the nodes (eaxinv), falling
// back to the diagonal where a node has fewer than three free components (or where its block
// is singular). A vector that has converged is frozen while the others go on; a vector whose
// search direction loses positive curvature stops unconverged.
CgReport block_cg(const SymMatrix &a, const Dofs &dofs, const double *b, double *x, int nrhs,
                  const CgOptions &options);

}  // namespace qks

#endif
