/* A C caller of the kernels: checks that kernels.h is valid C and that the by-reference frame
   works from C. Exits non-zero on a wrong answer, so the test suite runs it. */
#include <stdio.h>

#include "kernels.h"

int main(void) {
  qkm_int n = 2, one = 1, limit = 0;
  double x[2] = {3.0, 4.0}, y[2] = {1.0, 1.0}, a = 2.0;
  e_daxpy(&n, &a, x, &one, y, &one);
  ehalmxc(&limit);
  if (e_dnrm2(&n, x, &one) != 5.0 || y[0] != 7.0 || y[1] != 9.0 || limit <= 0) {
    printf("c_call: wrong answer\n");
    return 1;
  }
  printf("c_call: ok\n");
  return 0;
}
