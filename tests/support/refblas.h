// Prototypes of the system's reference BLAS and LAPACK, used as tolerance oracles.
#pragma once

#include <cstddef>

extern "C" {
double dnrm2_(const int *n, const double *x, const int *incx);
double dasum_(const int *n, const double *x, const int *incx);
void daxpy_(const int *n, const double *a, const double *x, const int *incx, double *y,
            const int *incy);
void dcopy_(const int *n, const double *x, const int *incx, double *y, const int *incy);
void dswap_(const int *n, double *x, const int *incx, double *y, const int *incy);
void dscal_(const int *n, const double *a, double *x, const int *incx);
int idamax_(const int *n, const double *x, const int *incx);
void dgemm_(const char *ta, const char *tb, const int *m, const int *n, const int *k,
            const double *alpha, const double *a, const int *lda, const double *b, const int *ldb,
            const double *beta, double *c, const int *ldc, size_t, size_t);
void dpptrf_(const char *uplo, const int *n, double *ap, int *info, size_t);
void dpptrs_(const char *uplo, const int *n, const int *nrhs, const double *ap, double *b,
             const int *ldb, int *info, size_t);
void dspev_(const char *jobz, const char *uplo, const int *n, double *ap, double *w, double *z,
            const int *ldz, double *work, int *info, size_t, size_t);
void dsyev_(const char *jobz, const char *uplo, const int *n, double *a, const int *lda,
            double *w, double *work, const int *lwork, int *info, size_t, size_t);
void dgetrf_(const int *m, const int *n, double *a, const int *lda, int *ipiv, int *info);
void dgetri_(const int *n, double *a, const int *lda, const int *ipiv, double *work,
             const int *lwork, int *info);
void dpotrf_(const char *uplo, const int *n, double *a, const int *lda, int *info, size_t);
}
extern "C" void dgemv_(const char *trans, const int *m, const int *n, const double *alpha,
                       const double *a, const int *lda, const double *x, const int *incx,
                       const double *beta, double *y, const int *incy, size_t);
