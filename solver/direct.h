// Direct solution of the stiffness equations: nested-dissection order of the nodes
// (METIS_NodeND), then elimination front by front with easlff_nt and the packed solves.
#ifndef QKS_DIRECT_H
#define QKS_DIRECT_H

#include <vector>

#include "model.h"

namespace qks {

struct DirectReport {
  int fronts = 0;
  int largest_front = 0;
  long long factor_entries = 0;
  double work = 0.0;        // the elimination's own work measure (work1 of easlff_nt)
  double min_ratio = 0.0;   // smallest pivot / initial diagonal
  int status = 0;           // 0; the ierr (6 or 34) of the refused pivot; a METIS status
                            // (negative) when the ordering failed; -2 inconsistent input;
                            // -3 memory ran out; -4 a front too large for the elimination
  int equation = 0;         // equation number (from 1) of the refused pivot
  double ordering_seconds = 0.0;  // METIS and the symbolic analysis
  double factor_seconds = 0.0;    // the numeric elimination
};

class DirectSolver {
 public:
  DirectSolver();
  ~DirectSolver();
  DirectSolver(const DirectSolver &) = delete;
  DirectSolver &operator=(const DirectSolver &) = delete;

  // Orders and factors A; the unknowns of a node stay together. Returns 0, or the status of
  // METIS or of the elimination (the report says which).
  int factor(const SymMatrix &a, const Mesh &mesh, const Dofs &dofs, const NodalGraph &graph);
  // Solves A X = B in place for nrhs vectors of length n (after a successful factor).
  void solve(double *b, int nrhs) const;
  const DirectReport &report() const { return report_; }

 private:
  struct Impl;
  Impl *impl_;
  DirectReport report_;
};

}  // namespace qks

#endif
