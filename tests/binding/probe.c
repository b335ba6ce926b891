/* Prints the bits of kernels that call e_dscal, e_daxpy and eagemm inside the library
   ("own" line), then of a direct call to e_dscal ("direct" line). */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "kernels.h"

static void put(const double *v, int n) {
  for (int i = 0; i < n; ++i) {
    uint64_t b;
    memcpy(&b, &v[i], sizeof b);
    printf(" %016llx", (unsigned long long)b);
  }
}

int main(void) {
  enum { N = 4 };
  const double m0[N * N] = {4, 1, 0.5, 0.25, 1, 5, 1, 0.5, 0.5, 1, 6, 1, 0.25, 0.5, 1, 7};
  double a[N * N], b[N * N], work[N * N], z[N * N], c[N * N];
  qkm_int n = N, lda = N, ipvt[N], info = 0, nzero = 0;
  printf("own");
  for (qkm_int mode = 1; mode <= 3; ++mode) { /* e_dscal, e_daxpy, e_dswap */
    memcpy(a, m0, sizeof a);
    eaxinv(&mode, &lda, &n, ipvt, &info, a);
    put(a, N * N);
  }
  memcpy(a, m0, sizeof a); /* eagemm */
  memcpy(b, m0, sizeof b);
  eaxmmp(&n, &n, &n, a, b, c);
  put(c, N * N);
  const double tol = 1e-12; /* eaxeig, then eagemm */
  eaxinvs(&n, &tol, a, work, z, &nzero);
  put(a, N * N);
  printf("\ndirect");
  const qkm_int one = 1;
  const double two = 2.0;
  memcpy(a, m0, sizeof a);
  e_dscal(&n, &two, a, &one);
  put(a, N);
  printf("\n");
  return 0;
}
