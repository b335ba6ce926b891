/* An out-of-tree C caller of the installed library. */
#include <stdio.h>

#include "kernels.h"

int main(void) {
  const double x[2] = {3.0, 4.0};
  const qkm_int n = 2, inc = 1;
  if (e_dnrm2(&n, x, &inc) != 5.0) {
    puts("consumer (C): wrong answer");
    return 1;
  }
  puts("consumer (C): ok");
  return 0;
}
