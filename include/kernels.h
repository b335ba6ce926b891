/*
 * libQORKYTMathKernel: the numeric kernels.
 *
 * Calling frame, for C, C++ and Fortran callers alike:
 *  - undecorated lower-case names, every argument by reference;
 *  - integers are signed 32-bit (qkm_int), reals are IEEE doubles;
 *  - matrices are stored by columns, a(i,j) at a[(i-1) + (j-1)*lda], indices count from 1;
 *  - each character argument has one hidden length (qkm_len, by value) appended after the
 *    last declared argument, in the order of the character arguments. The kernels never read
 *    it: only the first byte of a flag is looked at. From Fortran the compiler passes it;
 *    from C pass 1.
 *  - kernels allocate nothing and do not validate; only eagemm and eagemv stop the process
 *    on bad arguments.
 */
#ifndef QORKYTMATHKERNEL_KERNELS_H
#define QORKYTMATHKERNEL_KERNELS_H

#include <stddef.h>
#include <stdint.h>

#define QKM_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t qkm_int;
typedef size_t qkm_len;

/* ---- environment queries and small utilities ----------------------------------------- */
QKM_API void ehalmxc(qkm_int *limit);
QKM_API void ehumem(qkm_int *mem);
QKM_API void ehaldb(qkm_int *value);
QKM_API void ehucpu(qkm_int *ncpu);
QKM_API void getblas(qkm_int *a, qkm_int *b, qkm_int *c);
QKM_API void getversionmkl(char *text, qkm_len text_len);
QKM_API void GetMaxSlaveMemory(qkm_int *mem);
QKM_API void clrfpe(void);
QKM_API void eyflsh(void);
QKM_API void eaxmac(void *dst, const qkm_int *n, const char *ch, qkm_len ch_len);
QKM_API void eaxraz(const qkm_int *code, void *a, const qkm_int *n);
QKM_API void eaxcpy(const qkm_int *code, const qkm_int *n, const void *src, void *dst);
QKM_API void eaxrnd(qkm_int *seed, double *r);

/* ---- dense vector kernels ------------------------------------------------------------- */
QKM_API void e_dzero(const qkm_int *n, double *x, const qkm_int *incx);
QKM_API void e_izero(const qkm_int *n, qkm_int *x, const qkm_int *incx);
QKM_API void e_dcopy(const qkm_int *n, const double *x, const qkm_int *incx, double *y,
                     const qkm_int *incy);
QKM_API void e_icopy(const qkm_int *n, const qkm_int *x, const qkm_int *incx, qkm_int *y,
                     const qkm_int *incy);
QKM_API void e_dswap(const qkm_int *n, double *x, const qkm_int *incx, double *y,
                     const qkm_int *incy);
QKM_API void e_dscal(const qkm_int *n, const double *a, double *x, const qkm_int *incx);
QKM_API void drscl(const qkm_int *n, const double *a, double *x, const qkm_int *incx);
QKM_API void e_daxpy(const qkm_int *n, const double *a, const double *x, const qkm_int *incx,
                     double *y, const qkm_int *incy);
QKM_API double e_dasum(const qkm_int *n, const double *x, const qkm_int *incx);
QKM_API double e_dnrm2(const qkm_int *n, const double *x, const qkm_int *incx);
QKM_API double damax(const qkm_int *n, const double *x, const qkm_int *incx);
QKM_API qkm_int e_idamax(const qkm_int *n, const double *x, const qkm_int *incx);
QKM_API void e_drotg(double *a, double *b, double *c, double *s);

/* ---- dense matrix products ------------------------------------------------------------ */

/* ---- packed solves -------------------------------------------------------------------- */
/* Solves A*X = B with the factor of eaxfch (upper form only); info is written only when
   uplo is refused. */
QKM_API void dpptrs_2(const char *uplo, const qkm_int *n, const qkm_int *nrhs, const double *ap,
                      double *b, const qkm_int *ldb, qkm_int *info, qkm_len uplo_len);
QKM_API void e_dpptrs(const char *uplo, const qkm_int *n, const qkm_int *nrhs, const double *ap,
                      double *b, const qkm_int *ldb, qkm_int *info, qkm_len uplo_len);
/* One right-hand side, contiguous; lap is never read. */
QKM_API void eacort(const qkm_int *lap, const qkm_int *n, const double *ap, double *b);

/* ---- factorisation and inversion ------------------------------------------------------ */
/* Packed Cholesky by rows, rows kfirst..klast; `ignored` is never read. */
QKM_API void eaxfch(const void *ignored, const qkm_int *kfirst, const qkm_int *klast,
                    const double *tol, double *ap, qkm_int *info, double *dfail);
QKM_API void eaxfch2(const void *ignored, const qkm_int *kfirst, const qkm_int *klast,
                     const double *tol, double *ap, qkm_int *info, double *dfail);
/* Frontal L*D*L^T elimination of the first npiv variables; 0, or 1 on refusal. */
QKM_API qkm_int easlff_nt(const qkm_int *nfront, const qkm_int *npiv, double *front,
                          double *minratio, const double *diag0, const double *tolabs,
                          const double *tolratio, qkm_int *ipiv, qkm_int *naccept,
                          float *work1, float *work2, qkm_int *ierr);

/* ---- symmetric eigenproblem ----------------------------------------------------------- */

/* ---- sparse structure ----------------------------------------------------------------- */

#ifdef __cplusplus
}
#endif

#endif
