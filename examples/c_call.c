/* A C caller of the kernels: checks that kernels.h is valid C and that the by-reference frame
   works from C. Exits non-zero on a wrong answer, so the test suite runs it. */
#include <stdio.h>

#include "kernels.h"

int main(void) {
  qkm_int n = 2, one = 1, limit = 0;
  double x[2] = {3.0, 4.0}, y[2] = {1.0, 1.0}, a = 2.0;
  /* 2 by 2 matrix by columns: A = [1 2; 3 4], z := 1*A^T*x + 0.5*z */
  double m[4] = {1.0, 3.0, 2.0, 4.0}, z[2] = {2.0, 2.0}, alpha = 1.0, beta = 0.5;
  e_daxpy(&n, &a, x, &one, y, &one);
  ehalmxc(&limit);
  eagemv("T", &n, &n, &alpha, m, &n, x, &one, &beta, z, &one, 1);
  if (e_dnrm2(&n, x, &one) != 5.0 || y[0] != 7.0 || y[1] != 9.0 || limit <= 0 ||
      z[0] != 16.0 || z[1] != 23.0) {
    printf("c_call: wrong answer\n");
    return 1;
  }
  printf("c_call: ok\n");
  return 0;
}
