// Sample program: links libQORKYTMathKernel the way a solver does and prints what the
// library answers about its environment, then a few vector results.
#include <cstdio>

#include "kernels.h"

int main() {
  qkm_int mem = 0, limit = 0, aldb = -1, slave = 0, ncpu = 0, b1 = -1, b2 = -1, b3 = -1;
  ehumem(&mem);
  ehalmxc(&limit);
  getblas(&b1, &b2, &b3);
  ehaldb(&aldb);
  GetMaxSlaveMemory(&slave);
  ehucpu(&ncpu);

  std::printf("libQORKYTMathKernel sample program\n\n");
  std::printf("Environment\n");
  std::printf("  ehumem            usable memory      %d words (%.1f MiB)\n", mem,
              mem * 8.0 / 1048576.0);
  std::printf("  ehalmxc           allocation ceiling %d words\n", limit);
  std::printf("  getblas           external BLAS      %d %d %d\n", b1, b2, b3);
  std::printf("  ehaldb            BLAS answer        %d\n", aldb);
  std::printf("  GetMaxSlaveMemory slave ceiling      %d\n", slave);
  std::printf("  ehucpu            processors         %d\n\n", ncpu);

  const qkm_int n = 5, one = 1, two = 2;
  double x[5] = {3.0, -4.0, 12.0, 0.5, -0.25};
  double y[5] = {1.0, 1.0, 1.0, 1.0, 1.0};
  const double alpha = 2.0;
  std::printf("Vectors  x = (3, -4, 12, 0.5, -0.25), y = (1, 1, 1, 1, 1)\n");
  std::printf("  e_dnrm2(x)        %.17g\n", e_dnrm2(&n, x, &one));
  std::printf("  e_dasum(x)        %.17g\n", e_dasum(&n, x, &one));
  std::printf("  damax(x)          %.17g\n", damax(&n, x, &one));
  std::printf("  e_idamax(x)       %d\n", e_idamax(&n, x, &one));
  const qkm_int three = 3;
  std::printf("  e_idamax(x, 2)    %d  (walk 3, 12, -0.25)\n", e_idamax(&three, x, &two));
  e_daxpy(&n, &alpha, x, &one, y, &one);
  std::printf("  y + 2x            %g %g %g %g %g\n", y[0], y[1], y[2], y[3], y[4]);
  double a = 3.0, b = 4.0, c = 0.0, s = 0.0;
  e_drotg(&a, &b, &c, &s);
  std::printf("  e_drotg(3, 4)     r = %g  c = %g  s = %g  z = %.17g\n", a, c, s, b);
  qkm_int seed = 1;
  double r = 0.0;
  eaxrnd(&seed, &r);
  std::printf("  eaxrnd(seed 1)    seed = %d  r = %.17g\n", seed, r);
  eyflsh();
  return 0;
}
