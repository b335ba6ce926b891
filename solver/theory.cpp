// Beam theory of the clamped box: Timoshenko deflections, Saint-Venant twist and the lowest
// natural frequencies of bending, torsion and axial vibration.
#include "theory.h"

#include <algorithm>
#include <cmath>

namespace qks {

namespace {

constexpr double kPi = 3.14159265358979323846;

// The clamped-free frequency equation at circular frequency w, in the length coordinate
// xi = x / L. With a = rho_a w^2 L^2 / kga, c = rho_i w^2 L^2 / ei and s = kga L^2 / ei the
// deflection and rotation go as cosh, sinh (alpha xi) and cos, sin (beta xi), where alpha^2 and
// -beta^2 are the roots of l^4 + (a + c) l^2 + a (c - s) = 0. Clamping at xi = 0 and no moment
// and no shear at xi = 1 leave a 2x2 system whose determinant, with cosh^2 - sinh^2 and
// cos^2 + sin^2 folded (the exponential parts cancel analytically, not in rounding), is
// returned divided by a. Its slender limit is -2 alpha (1 + cosh alpha cos alpha), the
// Euler-Bernoulli equation. Past the cut-off (c >= s) it returns NaN.
double frequency_equation(double w, double ei, double kga, double rho_a, double rho_i, double len) {
  const double a = rho_a * w * w * len * len / kga, c = rho_i * w * w * len * len / ei;
  const double s = kga * len * len / ei;
  if (!(c < s)) return NAN;
  const double root = std::sqrt((a + c) * (a + c) + 4.0 * a * (s - c));
  const double al = std::sqrt(2.0 * a * (s - c) / ((a + c) + root));
  const double be = std::sqrt(0.5 * ((a + c) + root));
  // Rotation amplitudes of the four deflection shapes: psi = p sinh, p cosh, q sin, -q cos,
  // with alpha - p = -a / alpha and beta + q = a / beta. Every term carries the factor a, which
  // is divided out, so that the slender limit keeps its digits.
  const double p = al + a / al, q = a / be - be;
  const double ch = std::cosh(al), sh = std::sinh(al), co = std::cos(be), si = std::sin(be);
  return -2.0 * p + (p * p * al / (be * q) + q * be / al) * ch * co -
         p * (al / be - be / al) * sh * si;
}

struct Mode {
  double omega;
  const char *kind;
  int order;
};

// The first `count` modes of a uniform clamped-free rod: omega_n = (2n - 1) pi c / (2 L).
void rod_modes(double speed, double len, const char *kind, int count, std::vector<Mode> &out) {
  for (int n = 1; n <= count; ++n)
    out.push_back({(2 * n - 1) * kPi * speed / (2.0 * len), kind, n});
}

}  // namespace

std::vector<double> timoshenko_cantilever(double ei, double kga, double rho_a, double rho_i,
                                          double length, int count) {
  std::vector<double> roots;
  // Scan upwards in steps of a twentieth of the slender beam's first frequency, then bisect
  // each change of sign.
  const double w1 =
      1.8751040687119611 * 1.8751040687119611 * std::sqrt(ei / (rho_a * std::pow(length, 4)));
  const double step = w1 / 20.0;
  auto f = [&](double w) { return frequency_equation(w, ei, kga, rho_a, rho_i, length); };
  double lo = 0.5 * step, flo = f(lo);
  while (static_cast<int>(roots.size()) < count && std::isfinite(flo)) {
    const double hi = lo + step, fhi = f(hi);
    if (!std::isfinite(fhi)) break;
    if ((flo < 0.0) != (fhi < 0.0)) {
      double l = lo, h = hi, fl = flo;
      for (int k = 0; k < 200 && h - l > 1e-15 * h; ++k) {
        const double m = 0.5 * (l + h), fm = f(m);
        if ((fm < 0.0) == (fl < 0.0)) {
          l = m;
          fl = fm;
        } else {
          h = m;
        }
      }
      roots.push_back(0.5 * (l + h));
    }
    lo = hi;
    flo = fhi;
  }
  return roots;
}

double torsion_constant(double w, double h) {
  const double a = std::max(w, h), b = std::min(w, h);
  double sum = 0.0;
  for (int n = 1; n < 1000; n += 2) {
    const double term = std::tanh(n * kPi * a / (2.0 * b)) / std::pow(n, 5);
    sum += term;
    if (term < 1e-18 * sum) break;
  }
  return a * b * b * b * (1.0 / 3.0 - 64.0 / std::pow(kPi, 5) * (b / a) * sum);
}

BeamTheory beam_theory(const Box &box, const Material &mat, const Loads &loads) {
  BeamTheory t;
  const double len = box.length, w = box.width, h = box.height;
  const double e = mat.young, nu = mat.poisson, rho = mat.density;
  const double g = e / (2.0 * (1.0 + nu));
  const double kappa = 10.0 * (1.0 + nu) / (12.0 + 11.0 * nu);  // Cowper, rectangle
  const double area = w * h;
  const double i_for_y = h * w * w * w / 12.0;  // bending in y, about z
  const double i_for_z = w * h * h * h / 12.0;  // bending in z, about y
  const double kga = kappa * g * area, j = torsion_constant(w, h);

  auto tip = [&](double force, double inertia) {
    return force * len * len * len / (3.0 * e * inertia) + force * len / kga;
  };
  t.tip_y = tip(loads.tip, i_for_y);
  t.tip_z = tip(loads.tip, i_for_z);
  t.twist = loads.torque * len / (g * j);
  const double q = rho * loads.gravity * area;
  t.gravity_z = -(q * std::pow(len, 4) / (8.0 * e * i_for_z) + q * len * len / (2.0 * kga));

  std::vector<Mode> modes;
  const struct {
    double inertia;
    const char *kind;
  } bending[2] = {{i_for_y, "bending in y"}, {i_for_z, "bending in z"}};
  for (const auto &b : bending) {
    const std::vector<double> r =
        timoshenko_cantilever(e * b.inertia, kga, rho * area, rho * b.inertia, len, 3);
    for (size_t k = 0; k < r.size(); ++k) modes.push_back({r[k], b.kind, static_cast<int>(k) + 1});
  }
  rod_modes(std::sqrt(g * j / (rho * (i_for_y + i_for_z))), len, "torsion", 3, modes);
  rod_modes(std::sqrt(e / rho), len, "axial", 3, modes);
  std::stable_sort(modes.begin(), modes.end(),
                   [](const Mode &x, const Mode &y) { return x.omega < y.omega; });
  for (int k = 0; k < 3; ++k) {
    t.freq[k] = modes[k].omega / (2.0 * kPi);
    t.kind[k] = modes[k].kind;
    t.order[k] = modes[k].order;
  }
  return t;
}

}  // namespace qks
