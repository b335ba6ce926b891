/* Wrong stand-ins for three of the library's exported kernels, loaded ahead of it. */
#include "kernels.h"

void e_dscal(const qkm_int *n, const double *a, double *x, const qkm_int *incx) {
  for (qkm_int i = 0; i < *n; ++i) x[i] = 7.0;
}
void e_daxpy(const qkm_int *n, const double *a, const double *x, const qkm_int *incx, double *y,
             const qkm_int *incy) {}
void eagemm(const char *ta, const char *tb, const qkm_int *m, const qkm_int *n, const qkm_int *k,
            const double *alpha, const double *a, const qkm_int *lda, const double *b,
            const qkm_int *ldb, const double *beta, double *c, const qkm_int *ldc, qkm_len la,
            qkm_len lb) {
  for (qkm_int j = 0; j < *n; ++j)
    for (qkm_int i = 0; i < *m; ++i) c[i + j * *ldc] = -1.0;
}
