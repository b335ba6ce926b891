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

/* ---- mesh graphs and sorting ---------------------------------------------------------- */
/* Lists in pointer form: list i at positions ptr(i)+1 .. ptr(i+1) of its index array, ptr(1)
   = 0. Nodes and elements count from 1; eptr (ne+1, in) with eptr(1) = 0 and econn
   (eptr(ne+1), in) give the nodes of each element. Nothing is validated: a node outside 1..nn
   writes outside the arrays, and nn < 0 must not be passed. `ignored` arguments are not read.
   eaunle: nptr (nn+1, out), nlist (eptr(ne+1), out): the elements of each node, ascending; an
     element that names a node twice stands twice in its list. */
QKM_API void eaunle(const qkm_int *nn, const qkm_int *ne, const void *ignored,
                    const qkm_int *eptr, const qkm_int *econn, qkm_int *nptr, qkm_int *nlist);
/* eaupnn: counting pass of the nodal graph. nptr, nlist (out) as eaunle; mark (nn, scratch);
     aptr (nn+1, out): pointers of the neighbour lists; nadj (out) = aptr(nn+1), the length the
     caller allocates for adj. */
QKM_API void eaupnn(const qkm_int *nn, const qkm_int *ne, const void *ignored,
                    const qkm_int *eptr, const qkm_int *econn, qkm_int *nptr, qkm_int *nlist,
                    qkm_int *mark, qkm_int *aptr, qkm_int *nadj);
/* eaunln: filling pass, after eaupnn with the same eptr, econn, nptr, nlist (in). link (nn+1,
     scratch; link(2..nn+1) end as 0); adj (nadj, out): the neighbours of each node, ascending,
     without the node itself and without repeats, in the positions that aptr names. */
QKM_API void eaunln(const qkm_int *nn, const void *ignored2, const void *ignored3,
                    const qkm_int *eptr, const qkm_int *econn, const qkm_int *nptr,
                    const qkm_int *nlist, qkm_int *link, qkm_int *adj);
/* eaupne: ptr (mtotal+1, out) over the rows of key (ntotal, in), whose entries 1..nfirst hold
     rows 1..mfirst and entries nfirst+1..ntotal rows mfirst+1..mtotal as offsets past mfirst,
     ascending within each segment. Row r owns the positions ptr(r)+1 .. ptr(r+1). */
QKM_API void eaupne(const qkm_int *ntotal, const qkm_int *nfirst, const qkm_int *mfirst,
                    const qkm_int *mtotal, const qkm_int *key, qkm_int *ptr);
/* eaxsort: sorts nrec records of lrec words (table, nrec*lrec, in/out) ascending by their
     word ikey (from 1), compared as signed 32-bit; the other words travel with their key.
     work (lrec, scratch) holds the pivot record. Not stable; the order among equal keys is
     fixed by the method. nrec <= 1 touches nothing. Not re-entrant within one thread. */
QKM_API void eaxsort(qkm_int *table, const qkm_int *lrec, const qkm_int *nrec,
                     const qkm_int *ikey, qkm_int *work);

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
