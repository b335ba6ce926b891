// Beam theory for a clamped prismatic cantilever of rectangular section, the yardstick of the
// sample solve's deflections and frequencies.
#ifndef QKS_THEORY_H
#define QKS_THEORY_H

#include <vector>

#include "model.h"
#include "fe.h"

namespace qks {

struct BeamTheory {
  double tip_y = 0.0;      // deflection under the tip force in y (Timoshenko, with shear)
  double tip_z = 0.0;      // the same in z
  double twist = 0.0;      // end rotation under the torque (Saint-Venant)
  double gravity_z = 0.0;  // tip deflection under self weight (negative: downwards)
  double freq[3] = {0, 0, 0};  // the three lowest natural frequencies in Hz, ascending:
                               // bending (Timoshenko: shear and rotary inertia), torsion or
                               // axial, whichever are lowest
  const char *kind[3] = {"", "", ""};  // "bending in y", "bending in z", "torsion", "axial"
  int order[3] = {0, 0, 0};            // number of the mode within its kind, from 1
};

// The lowest `count` circular frequencies (rad/s) of a clamped-free Timoshenko beam: bending
// stiffness ei, shear stiffness kga (shear coefficient times G A), mass per length rho_a,
// rotary inertia per length rho_i, length `length`. Found as the roots of the frequency
// equation, below the cut-off frequency sqrt(kga / rho_i); fewer when the cut-off comes first.
std::vector<double> timoshenko_cantilever(double ei, double kga, double rho_a, double rho_i,
                                          double length, int count);

// Saint-Venant torsion constant of a solid w x h rectangle (series solution).
double torsion_constant(double w, double h);

BeamTheory beam_theory(const Box &box, const Material &mat, const Loads &loads);

}  // namespace qks

#endif
