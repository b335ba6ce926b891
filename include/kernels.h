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
/* C := alpha*op(A)*op(B) + beta*C, flags "N"/"n" or "T"/"t"/"C"/"c"; stops the process with
   "DGEMM FATAL ERROR" on a bad argument. */
QKM_API void eagemm(const char *transa, const char *transb, const qkm_int *m, const qkm_int *n,
                    const qkm_int *k, const double *alpha, const double *a, const qkm_int *lda,
                    const double *b, const qkm_int *ldb, const double *beta, double *c,
                    const qkm_int *ldc, qkm_len transa_len, qkm_len transb_len);

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

/* In-place inversion. imode 1: general, column pivoting; 2: symmetric, unwatched; other:
   symmetric, watched (info 1 when a pivot is not above 1.0e-8 in magnitude). */
QKM_API void eaxinv(const qkm_int *imode, const qkm_int *lda, const qkm_int *n, qkm_int *ipvt,
                    qkm_int *info, double *a);
/* Truncated spectral inverse of a symmetric matrix of order n <= 30; returns 0 or 1. */
QKM_API qkm_int eaxinvs(const qkm_int *n, const double *tol, double *a, double *work, double *z,
                        qkm_int *nzero);
QKM_API void ebhpap(const qkm_int *n, const double *z, const double *dd, double *work,
                    double *c);
QKM_API void eaxmmp(const qkm_int *m, const qkm_int *k, const qkm_int *n, const double *a,
                    const double *b, double *c);
QKM_API double eaxscl(const qkm_int *n, const double *x, const qkm_int *incx, const double *y,
                      const qkm_int *incy);
/* Basis evaluator of eaxrmc3: (1, 0, nbasis, 1, 0, scaled point[3], cell, values[nbasis],
   ierr), all by reference; returns 1 for failure. */
typedef qkm_int (*qkm_basis_fn)(const qkm_int *, const qkm_int *, const qkm_int *,
                                const qkm_int *, const qkm_int *, const double *, double *,
                                double *, qkm_int *);
QKM_API qkm_int eaxrmc3(const qkm_int *nbasis, const qkm_int *npts, const double *pts,
                        const double *xq, const double *vals, double *fit, qkm_basis_fn basis,
                        double *gram, double *work, double *z, double *bmat, double *pvec,
                        double *coef, const double *wts, qkm_int *ierr);

/* ---- symmetric eigenproblem ----------------------------------------------------------- */
/* Packed by rows: element (i,j), j <= i, at position i(i-1)/2 + j. eaxeig returns 0, or 1 when
   the QL iteration fails (then ierr holds the index of the eigenvalue; on success ierr is not
   written). iorder 1: ascending values, anything else: descending magnitude. */
QKM_API qkm_int eaxeig(const qkm_int *n, const qkm_int *iorder, double *ap, double *d, double *z,
                       double *e, qkm_int *ierr);
QKM_API void eaxetr(const qkm_int *n, double *ap, double *d, double *e);
QKM_API qkm_int eaxeql(const qkm_int *n, double *d, double *e, double *z, qkm_int *ierr);
QKM_API void eaxeor(const qkm_int *iorder, const qkm_int *n, double *d, double *z);
QKM_API void eaxevp(const qkm_int *n, const double *ap, double *z);

/* ---- sparse structure ----------------------------------------------------------------- */

/* ---- sparse vectors, packed triangular solve, sparse matrix-vector product ------------ */
/* Compressed sparse vector: x(nz) values (in), indx(nz) one-based positions in the full
   vector y (in, not checked, may repeat). All run k = 1..nz in order; nz <= 0 does nothing
   (e_ddoti returns 0.0). */
/* y(indx(k)) += a*x(k); y (in/out). a = 0.0 returns before x or indx is read. Repeated
   positions accumulate. */
QKM_API void e_daxpyi(const qkm_int *nz, const double *a, const double *x, const qkm_int *indx,
                      double *y);
/* Returns the sum of x(k)*y(indx(k)); y (in). */
QKM_API double e_ddoti(const qkm_int *nz, const double *x, const qkm_int *indx,
                       const double *y);
/* Gather x(k) = y(indx(k)): y (in) stands second, x (out). */
QKM_API void e_dgthr(const qkm_int *nz, const double *y, double *x, const qkm_int *indx);
/* Scatter y(indx(k)) = x(k); y (out, other entries kept); the last of a repeated position
   stays. */
QKM_API void e_dsctr(const qkm_int *nz, const double *x, const qkm_int *indx, double *y);

/* Solves op(A)*x = b in place. uplo "U"/"u" upper, else lower; trans "N"/"n" A, else A^T;
   diag "N"/"n" stored diagonal, else unit (never read). ap(n(n+1)/2) (in), packed by
   columns: upper a(i,j) at i + j(j-1)/2, lower at i + (2n-j)(j-1)/2. x (in/out) with
   mirrored-start stride incx; incx = 0 works on x(1) throughout. n = 0 reads nothing, n < 0
   does nothing. With A a zero x_j skips its column; a zero stored diagonal gives Inf/NaN. */
QKM_API void e_dtpsv(const char *uplo, const char *trans, const char *diag, const qkm_int *n,
                     const double *ap, double *x, const qkm_int *incx, qkm_len uplo_len,
                     qkm_len trans_len, qkm_len diag_len);

/* y = A*x for nrhs vectors of stored length n (x, y of n*nrhs, distinct arrays). Rows with
   the diagonal last: rowend(nrow+1) (in), rowend(i+1) the position of the diagonal of row i
   (rowend(1) not read); col(nterm) (in), column of each term; a(nterm) (in), values.
   nterm = n: diagonal matrix, y(i,r) = a(i)*x(i,r), kind not read, vector 1 written even for
   nrhs <= 0. kind 1: symmetric, strict lower terms before each diagonal, y cleared first
   (n*nrhs; nrhs must not be negative). kind 2: general, rows 1..nrow written, the rest of y
   kept. Other kinds: nothing. */
QKM_API void eaxmvm(const qkm_int *kind, const qkm_int *nterm, const qkm_int *nrow,
                    const qkm_int *n, const qkm_int *nrhs, const qkm_int *col,
                    const qkm_int *rowend, const double *a, const double *x, double *y);

/* ---- printing and error reports of the services --------------------------------------- */
/* Lines into the listing file (standard output when none is open). `text` and `format` are
   terminated; `ehprini` and `ehprinr` add a line holding a newline after their own. */
QKM_API void ehprint(const char *text, qkm_len text_len);
QKM_API void ehprini(const char *text, const qkm_int *value, qkm_len text_len);
QKM_API void ehprinr(const char *format, const double *value, qkm_len format_len);
/* Reports an internal error with the number *code and the first 80 bytes of `text` (need not
   be terminated); sets *status to 1 and returns 1. */
QKM_API qkm_int ehrprog(const qkm_int *code, const char *text, qkm_int *status,
                        qkm_len text_len);

#ifdef __cplusplus
}
#endif

#endif
