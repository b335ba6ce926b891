/*
 * libQORKYTMathKernel: the numeric kernels.
 *
 * Calling frame, for C, C++ and Fortran callers alike:
 *  - undecorated lower-case names, every argument by reference (scalars included, in both
 *    directions); nothing goes by value but the hidden lengths;
 *  - integers are signed 32-bit (qkm_int), reals are IEEE doubles;
 *  - matrices are stored by columns, a(i,j) at a[(i-1) + (j-1)*lda], indices count from 1;
 *  - each character argument has one hidden length (qkm_len, by value) appended after the
 *    last declared argument, in the order of the character arguments. The kernels never read
 *    it: only the first byte of a flag is looked at. From Fortran the compiler passes it;
 *    from C pass 1.
 *  - kernels allocate nothing and do not validate; only eagemm and eagemv stop the process
 *    on bad arguments. A numeric failure is reported through a result or an integer
 *    argument, never by stopping.
 *
 * Notation of the reference comments: (in), (out), (in/out) or (scratch) after each
 * argument, then its extent; "n" etc. name the values behind the pointers.
 *
 * Shared layouts:
 *  - Packed by rows ("packed"): the lower triangle row after row, no gap. a(i,j), j <= i,
 *    at 0-based position i(i-1)/2 + j - 1; row k ends with its diagonal. Read the other way
 *    it is the upper triangle U = L^T by columns. n(n+1)/2 entries.
 *  - The front: the lower triangle by columns, diagonal first in each column, no gap.
 *    a(i,j), i >= j, at 0-based position (j-1)(2n-j)/2 + i - 1. n(n+1)/2 entries. Not the
 *    packed-by-rows layout.
 *  - Vector stepping. Mirrored start (the public BLAS): element k at x[(k-1)*inc] for
 *    inc >= 0, at x[(k-n)*inc] for inc < 0. Absolute step: element k at x[(k-1)*|inc|]
 *    whatever the sign. Each vector kernel below says which it uses.
 */
#ifndef QORKYTMATHKERNEL_KERNELS_H
#define QORKYTMATHKERNEL_KERNELS_H

#include <stddef.h>
#include <stdint.h>

#include "QORExport.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t qkm_int;
typedef size_t qkm_len;

/* ---- environment queries and small utilities ----------------------------------------- */
/* limit (out): largest size of one allocation in 8-byte words, 2147400000 lowered by
   KYT_MAX_ALLOC (units of 1024144 bytes, 32-bit product; zero or negative is ignored). */
QKM_API void ehalmxc(qkm_int *limit);
/* mem (out): usable memory in 8-byte words, physical memory / 8 or KYT_REAL_MEMORY (MiB,
   read on the first call only), clamped to [536000000, 2144000000]. */
QKM_API void ehumem(qkm_int *mem);
/* value (out): the third answer of getblas (0), fetched on the first call. */
QKM_API void ehaldb(qkm_int *value);
/* Fixed answers: ehucpu writes 1; getblas writes 0 three times; getversionmkl writes one zero
   byte at text; GetMaxSlaveMemory writes 1073000000; clrfpe does nothing. */
QKM_API void ehucpu(qkm_int *ncpu);
QKM_API void getblas(qkm_int *a, qkm_int *b, qkm_int *c);
QKM_API void getversionmkl(char *text, qkm_len text_len);
QKM_API void GetMaxSlaveMemory(qkm_int *mem);
QKM_API void clrfpe(void);
/* fflush(stdout). */
QKM_API void eyflsh(void);
/* dst (out, n bytes) set to the byte *ch (n in). */
QKM_API void eaxmac(void *dst, const qkm_int *n, const char *ch, qkm_len ch_len);
/* Clears n elements of kind code at a (out): 3, 4: 32-bit zeros; 5: double zeros; 2: 2n zero
   bytes; -k: k*n blanks; any other code: nothing. */
QKM_API void eaxraz(const qkm_int *code, void *a, const qkm_int *n);
/* Copies n elements of kind code from src (in) to dst (out) with memmove (overlap safe):
   3: 4n bytes, 5: 8n bytes, other codes |code*n| bytes (32-bit product). No quick return. */
QKM_API void eaxcpy(const qkm_int *code, const qkm_int *n, const void *src, void *dst);
/* seed (in/out): seed*65539 wrapped, 0 replaced by 0x80000000; r (out) = seed (signed) * 2^-31,
   in [-1, 1). A seed of 0 stays at r = -1. */
QKM_API void eaxrnd(qkm_int *seed, double *r);

/* ---- dense vector kernels ------------------------------------------------------------- */
/* n (in), x (in/out, n elements at stride incx), incx (in), y/incy alike. Quick return for
   n <= 0 unless said otherwise; nothing is reported.
   e_dzero, e_izero: x = 0, mirrored start. Return only for n = 0; with incx = 1 the block is
   cleared with memset (a negative n is not defended), other strides walk nothing for n < 0. */
QKM_API void e_dzero(const qkm_int *n, double *x, const qkm_int *incx);
QKM_API void e_izero(const qkm_int *n, qkm_int *x, const qkm_int *incx);
/* y (out) = x (in), mirrored start on both. Both strides 1: memmove (overlap safe); else in
   element order, so overlap takes effect as it goes. */
QKM_API void e_dcopy(const qkm_int *n, const double *x, const qkm_int *incx, double *y,
                     const qkm_int *incy);
QKM_API void e_icopy(const qkm_int *n, const qkm_int *x, const qkm_int *incx, qkm_int *y,
                     const qkm_int *incy);
/* x and y (in/out) exchanged as 64-bit moves (NaN payloads and zero signs kept), mirrored
   start on both. */
QKM_API void e_dswap(const qkm_int *n, double *x, const qkm_int *incx, double *y,
                     const qkm_int *incy);
/* x (in/out) = x * a (in), absolute step: incx = 0 multiplies x(1) n times. No test on a. */
QKM_API void e_dscal(const qkm_int *n, const double *a, double *x, const qkm_int *incx);
/* x = x * (1/a) through e_dscal; returns at once for a = 0.0 or a = 1.0. */
QKM_API void drscl(const qkm_int *n, const double *a, double *x, const qkm_int *incx);
/* y (in/out) = y + a*x (x in), mirrored start on both; returns at once for a = 0.0. */
QKM_API void e_daxpy(const qkm_int *n, const double *a, const double *x, const qkm_int *incx,
                     double *y, const qkm_int *incy);
/* Results of x (in), absolute step; 0.0 (e_idamax: 0) for n <= 0.
   e_dasum: sum of |x_k| (unit stride: 32 fixed partial sums, the same bits on every machine).
   e_dnrm2: Euclidean norm by the four-phase scaled method of the first BLAS.
   damax: largest |x_k| (n = 1: |x(1)|, incx not read); a NaN counts only when last.
   e_idamax: position 1..n of the first largest |x_k| (n = 1: 1, nothing read). */
QKM_API double e_dasum(const qkm_int *n, const double *x, const qkm_int *incx);
QKM_API double e_dnrm2(const qkm_int *n, const double *x, const qkm_int *incx);
QKM_API double damax(const qkm_int *n, const double *x, const qkm_int *incx);
QKM_API qkm_int e_idamax(const qkm_int *n, const double *x, const qkm_int *incx);
/* Plane rotation of the first BLAS: a (in/out, becomes r), b (in/out, becomes z), c, s (out).
   a = b = 0: c = 1, s = 0, a and b unchanged. */
QKM_API void e_drotg(double *a, double *b, double *c, double *s);

/* ---- dense matrix products ------------------------------------------------------------ */
/* C := alpha*op(A)*op(B) + beta*C. transa, transb (in): "N"/"n" or "T"/"t"/"C"/"c"; m, n, k
   (in): sizes of op(A) (m x k), op(B) (k x n), C (m x n); alpha, beta (in); a (in, lda x k
   or lda x m), b (in, ldb x n or ldb x k), c (in/out, ldc x n). A and B are not read when
   alpha = 0 or k = 0; C is not read when beta = 0. m = 0, n = 0, or k = 0 with beta = 1
   return before any check; otherwise a bad flag, a negative size or a too small leading
   dimension stops the process with "DGEMM FATAL ERROR". */
QKM_API void eagemm(const char *transa, const char *transb, const qkm_int *m, const qkm_int *n,
                    const qkm_int *k, const double *alpha, const double *a, const qkm_int *lda,
                    const double *b, const qkm_int *ldb, const double *beta, double *c,
                    const qkm_int *ldc, qkm_len transa_len, qkm_len transb_len);

/* ---- matrix-vector products ----------------------------------------------------------- */
/* y := alpha*op(A)*x + beta*y, the argument list of DGEMV. trans (in, first byte): "N" for A,
   "T" or "C" for A transposed, upper case only. m, n (in): rows and columns of a, whatever
   trans says. alpha (in). a (in, lda by n). lda (in, >= max(1,m)). x (in): n elements for
   "N", else m, stride incx (in, not 0). beta (in). y (in/out): m elements for "N", else n,
   stride incy (in, not 0). A negative stride walks from the far end. m or n 0, or alpha 0
   with beta 1: y is left alone. alpha 0: a and x are not read, y is scaled (beta 0: cleared).
   A bad argument stops the process with "DGEMV Fatal Error" before anything is read or
   written. Positive strides go to the four tuned kernels below, a negative one to dgemvf. */
QKM_API void eagemv(const char *trans, const qkm_int *m, const qkm_int *n, const double *alpha,
                    const double *a, const qkm_int *lda, const double *x, const qkm_int *incx,
                    const double *beta, double *y, const qkm_int *incy, qkm_len trans_len);
/* The general path, same arguments as eagemv. Checks the same conditions but does not stop:
   the first bad one prints "DGEMV Error :" and its code (1 trans, 2 m, 3 n, 6 lda, 8 incx,
   11 incy) on one line of standard output and returns with y unchanged. beta 0 clears y
   first; with "N" a column whose x(j) is 0.0 is skipped. */
QKM_API void dgemvf(const char *trans, const qkm_int *m, const qkm_int *n, const double *alpha,
                    const double *a, const qkm_int *lda, const double *x, const qkm_int *incx,
                    const double *beta, double *y, const qkm_int *incy, qkm_len trans_len);
/* The tuned kernels: (m, n, alpha, a, lda, x, incx, beta, y, incy), nothing checked. m, n
   (in): rows and columns of a (lda by n, in). x, y: strided as in eagemv, a stride of 0
   reuses the first element. y is always read and multiplied by beta (beta 0 keeps a NaN).
   m or n 0, or alpha 0 with beta 1: y is left alone.
   dgemv_n, dgemv32_n: y (m elements, in/out) := beta*y + alpha*A*x (x: n elements, in).
   dgemv32_n works on whole strips of 4 rows: with m not a multiple of 4 it reads a and y and
   writes y up to the next multiple of 4.
   dgemv_t, dgemv32_t: y (n elements, in/out) := beta*y + alpha*A^T*x (x: m elements, in).
   dgemv32_t with incx = incy = 1 multiplies alpha into sums of four products and reads a and
   x up to the next multiple of 4 rows; with other strides it works on whole groups of 4
   columns, reading a and y and writing y up to the next multiple of 4 columns. */
QKM_API void dgemv_n(const qkm_int *m, const qkm_int *n, const double *alpha, const double *a,
                     const qkm_int *lda, const double *x, const qkm_int *incx,
                     const double *beta, double *y, const qkm_int *incy);
QKM_API void dgemv32_n(const qkm_int *m, const qkm_int *n, const double *alpha, const double *a,
                       const qkm_int *lda, const double *x, const qkm_int *incx,
                       const double *beta, double *y, const qkm_int *incy);
QKM_API void dgemv_t(const qkm_int *m, const qkm_int *n, const double *alpha, const double *a,
                     const qkm_int *lda, const double *x, const qkm_int *incx,
                     const double *beta, double *y, const qkm_int *incy);
QKM_API void dgemv32_t(const qkm_int *m, const qkm_int *n, const double *alpha, const double *a,
                       const qkm_int *lda, const double *x, const qkm_int *incx,
                       const double *beta, double *y, const qkm_int *incy);

/* ---- packed solves -------------------------------------------------------------------- */
/* Solves A*X = B with the packed factor L of eaxfch (A = L*L^T). uplo (in): "U"/"u", else
   info (out) = 1 and nothing else happens; info is written only then. n, nrhs (in); ap (in,
   packed, n(n+1)/2); b (in/out, ldb x nrhs): B in, X out; ldb (in, read only when nrhs != 1).
   nrhs = 1 goes to eacort. A zero diagonal gives infinities or NaNs, unreported.
   e_dpptrs is the same routine. */
QKM_API void dpptrs_2(const char *uplo, const qkm_int *n, const qkm_int *nrhs, const double *ap,
                      double *b, const qkm_int *ldb, qkm_int *info, qkm_len uplo_len);
QKM_API void e_dpptrs(const char *uplo, const qkm_int *n, const qkm_int *nrhs, const double *ap,
                      double *b, const qkm_int *ldb, qkm_int *info, qkm_len uplo_len);
/* One right-hand side: lap (never read), n (in), ap (in, packed), b (in/out, n contiguous). */
QKM_API void eacort(const qkm_int *lap, const qkm_int *n, const double *ap, double *b);

/* ---- factorisation and inversion ------------------------------------------------------ */
/* Packed Cholesky A = L*L^T in place, rows kfirst..klast (in), rows above taken as factored.
   ignored: never read. tol (in, read only when klast >= kfirst). ap (in/out, packed,
   klast(klast+1)/2): the diagonal ends as L(k,k). info (out): 0, or the row k whose pivot d
   was refused (tol >= d); then dfail (out, written only then) = d, rows before k are final,
   row k holds L left of its diagonal, its diagonal and later rows are untouched.
   eaxfch is the same routine. */
QKM_API void eaxfch(const void *ignored, const qkm_int *kfirst, const qkm_int *klast,
                    const double *tol, double *ap, qkm_int *info, double *dfail);
QKM_API void eaxfch2(const void *ignored, const qkm_int *kfirst, const qkm_int *klast,
                     const double *tol, double *ap, qkm_int *info, double *dfail);
/* Frontal L*D*L^T elimination, no interchanges, of the first npiv (in) variables of a front
   of order nfront (in). front (in/out, the front layout, n(n+1)/2): pivots on the diagonal,
   multipliers below, the Schur complement in the other columns. Running totals the caller
   owns: minratio (in/out, smallest pivot / diag0 ratio), ipiv (in/out, pivots examined),
   naccept (in/out, pivots accepted), work1, work2 (in/out, single-precision work measures
   of the whole call, added first). diag0 (in): initial diagonal by running pivot number,
   read at ipiv. tolabs, tolratio (in).
   Result 0 and ierr (out) = 0 when all pivots are taken; result 1 when one is refused:
   ierr = 6 for tolabs > |d| (d stays, minratio = d), ierr = 34 for tolratio >= d/diag0 (the
   ratio replaces d). Front positions after the refused pivot up to p*n - p(p+1)/2 are then
   cleared; ipiv counts the refused pivot, naccept does not. npiv <= 0: result 0. */
QKM_API qkm_int easlff_nt(const qkm_int *nfront, const qkm_int *npiv, double *front,
                          double *minratio, const double *diag0, const double *tolabs,
                          const double *tolratio, qkm_int *ipiv, qkm_int *naccept,
                          float *work1, float *work2, qkm_int *ierr);

/* In-place inversion of a (in/out, lda x n). imode (in) 1: general, column pivoting, ipvt
   (scratch, n) ends as 1..n; 2: symmetric, upper triangle read, no check; any other value:
   symmetric and watched: info (out) = 0, or 1 when a pivot is not above 1.0e-8 in magnitude
   (then a is partly swept). info is written only in the watched mode; zero pivots in modes 1
   and 2 give infinities, unreported. */
QKM_API void eaxinv(const qkm_int *imode, const qkm_int *lda, const qkm_int *n, qkm_int *ipvt,
                    qkm_int *info, double *a);
/* Truncated spectral inverse. n (in, <= 30); tol (in): relative cut-off, scaled by the sum of
   |a(i,j)| over all entries; a (in/out, n x n): lower triangle read, full pseudo-inverse out;
   work (scratch, n*n); z (out, n x n): eigenvectors, ascending. nzero (out): eigenvalues
   dropped. Result 0; 1 with nzero = -1 when n > 30, or with nzero = the index of the
   eigenvalue whose QL iteration failed. */
QKM_API qkm_int eaxinvs(const qkm_int *n, const double *tol, double *a, double *work, double *z,
                        qkm_int *nzero);
/* c (out, n x n) = z * diag(dd) * z^T; z (in, n x n), dd (in, n); work (out) = diag(dd)*z^T. */
QKM_API void ebhpap(const qkm_int *n, const double *z, const double *dd, double *work,
                    double *c);
/* c (out, m x n) = a (in, m x k) * b (in, k x n), through eagemm. */
QKM_API void eaxmmp(const qkm_int *m, const qkm_int *k, const qkm_int *n, const double *a,
                    const double *b, double *c);
/* Scalar product of x and y (in), mirrored start; one running sum in ascending order;
   0.0 for n < 1. */
QKM_API double eaxscl(const qkm_int *n, const double *x, const qkm_int *incx, const double *y,
                      const qkm_int *incy);
/* Weighted least-squares fit at xq of vals over npts (in, >= 1) points pts (in, 3*npts) in
   nbasis (in, <= 30) caller functions, coordinates divided by the cloud's half diagonal
   (at least 1e-6). basis: the evaluator, called with (1, 0, nbasis, 1, 0, scaled point[3],
   cell, values[nbasis], ierr), all by reference, returning 1 for failure. gram (out, nbasis^2):
   pseudo-inverse of B^T B; work, z (scratch, nbasis^2); bmat (out, npts x nbasis): B with the
   weights wts (in, npts) applied; pvec (scratch, nbasis); coef (out, nbasis); fit (out).
   Result 0 with ierr (out) = eigenvalues dropped; 1 when the evaluator fails (ierr as it left
   it, fit 0.0 if at the query point) or eaxinvs fails (ierr as there: -1 for nbasis > 30). */
typedef qkm_int (*qkm_basis_fn)(const qkm_int *, const qkm_int *, const qkm_int *,
                                const qkm_int *, const qkm_int *, const double *, double *,
                                double *, qkm_int *);
QKM_API qkm_int eaxrmc3(const qkm_int *nbasis, const qkm_int *npts, const double *pts,
                        const double *xq, const double *vals, double *fit, qkm_basis_fn basis,
                        double *gram, double *work, double *z, double *bmat, double *pvec,
                        double *coef, const double *wts, qkm_int *ierr);

/* ---- symmetric eigenproblem ----------------------------------------------------------- */
/* All eigenvalues and vectors of a symmetric matrix. n (in); iorder (in): 1 ascending values,
   anything else descending magnitude; ap (in/out, packed, n(n+1)/2): destroyed (holds the
   reflectors); d (out, n): eigenvalues; z (out, n x n): column j the vector of d(j); e
   (scratch, n). Result 0, or 1 when the QL iteration fails after 30 sweeps: ierr (out) = the
   index of that eigenvalue; on success ierr is not written. The four passes are exported:
   eaxetr: Householder reduction of ap to tridiagonal d (diagonal), e (subdiagonal in e(2..n));
     n < 2 copies ap(1) into d(1), e(1) = 0 (position 1 of ap, d, e is used even for n = 0).
   eaxeql: implicit QL on d, e (in/out), rotations gathered on z (out, starts as identity);
     result and ierr as eaxeig.
   eaxeor: sorts d and the columns of z (in/out) by iorder (in).
   eaxevp: applies the reflectors of ap (in) to z (in/out); nothing for n < 3. */
QKM_API qkm_int eaxeig(const qkm_int *n, const qkm_int *iorder, double *ap, double *d, double *z,
                       double *e, qkm_int *ierr);
QKM_API void eaxetr(const qkm_int *n, double *ap, double *d, double *e);
QKM_API qkm_int eaxeql(const qkm_int *n, double *d, double *e, double *z, qkm_int *ierr);
QKM_API void eaxeor(const qkm_int *iorder, const qkm_int *n, double *d, double *z);
QKM_API void eaxevp(const qkm_int *n, const double *ap, double *z);

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
