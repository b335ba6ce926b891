// The lowest natural frequencies by subspace iteration: block solves with the stiffness,
// Rayleigh-Ritz on the projected pair reduced with eaxfch2, products by eagemm, and the
// small eigenproblem by eaxeig.
#ifndef QKS_MODAL_H
#define QKS_MODAL_H

#include <functional>
#include <vector>

#include "model.h"

namespace qks {

struct ModalOptions {
  int modes = 3;
  int subspace = 0;           // 0: min(2 modes, modes + 8)
  double tolerance = 1.0e-8;  // relative change of each wanted eigenvalue
  int max_iterations = 100;
};

struct ModalReport {
  std::vector<double> eigenvalue; // omega^2 (rad2/s2), ascending, `modes` of them
  std::vector<double> frequency;  // Hz, ascending, `modes` of them
  std::vector<double> vectors;    // n x modes, mass-normalised
  int iterations = 0;
  bool converged = false;
  int status = 0;                 // 0; 1 when the projected mass lost definiteness or the
                                  // small eigenproblem failed (the last good estimates stay)
};

// solve(b, nrhs) overwrites the nrhs vectors b (n each) with K^-1 b.
ModalReport subspace_iteration(const SymMatrix &stiffness, const SymMatrix &mass,
                               const std::function<void(double *, int)> &solve,
                               const ModalOptions &options);

}  // namespace qks

#endif
