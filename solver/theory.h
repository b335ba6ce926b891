// Beam theory for a clamped prismatic cantilever of rectangular section, the yardstick of the
// sample solve's deflections and frequencies.
#ifndef QKS_THEORY_H
#define QKS_THEORY_H

#include "model.h"
#include "fe.h"

namespace qks {

struct BeamTheory {
  double tip_y = 0.0;      // deflection under the tip force in y (Timoshenko, with shear)
  double tip_z = 0.0;      // the same in z
  double twist = 0.0;      // end rotation under the torque (Saint-Venant)
  double gravity_z = 0.0;  // tip deflection under self weight (negative: downwards)
  double freq[3] = {0, 0, 0};  // the three lowest natural frequencies in Hz (bending, with
                               // shear and rotary inertia)
};

BeamTheory beam_theory(const Box &box, const Material &mat, const Loads &loads);

}  // namespace qks

#endif
