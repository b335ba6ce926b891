! Fortran interfaces of the kernels of libQORKYTMathKernel: `use qorkyt_kernels` gives a
! Fortran caller explicit interfaces, so that its compiler checks every argument.
!
! Each kernel is one interface block below, grouped by family as in include/kernels.h.
! Arguments are by reference, integers are integer(c_int32_t) and reals real(c_double), as in
! the C prototypes. Each character argument has its length as an explicit trailing argument,
! integer(c_size_t) by value, in the order of the character arguments: pass 1_c_size_t for a
! flag, len(text) for a text. Untyped memory (void *) is assumed-type, type(*); a void *
! argument the kernel never reads is type(c_ptr) by value: pass c_null_ptr.
!
! A new kernel: one more interface block in the section of its family (or a new section at
! the end), written from its C prototype in include/kernels.h.
module qorkyt_kernels
  use iso_c_binding, only: c_int32_t, c_double, c_float, c_char, c_size_t, c_ptr, c_funptr
  implicit none
  private :: c_int32_t, c_double, c_float, c_char, c_size_t, c_ptr, c_funptr

  ! The basis evaluator that eaxrmc3 calls.
  abstract interface
    function qkm_basis_fn(one, zero, nbasis, one2, zero2, point, cell, values, ierr) bind(C)
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: one, zero, nbasis, one2, zero2
      real(c_double), intent(in) :: point(3)
      real(c_double), intent(inout) :: cell
      real(c_double), intent(out) :: values(*)
      integer(c_int32_t), intent(out) :: ierr
      integer(c_int32_t) :: qkm_basis_fn
    end function
  end interface

  interface
    ! ---- environment queries and small utilities -------------------------------------
    subroutine ehalmxc(limit) bind(C, name="ehalmxc")
      import :: c_int32_t
      integer(c_int32_t), intent(out) :: limit
    end subroutine
    subroutine ehumem(mem) bind(C, name="ehumem")
      import :: c_int32_t
      integer(c_int32_t), intent(out) :: mem
    end subroutine
    subroutine ehaldb(value) bind(C, name="ehaldb")
      import :: c_int32_t
      integer(c_int32_t), intent(out) :: value
    end subroutine
    subroutine ehucpu(ncpu) bind(C, name="ehucpu")
      import :: c_int32_t
      integer(c_int32_t), intent(out) :: ncpu
    end subroutine
    subroutine getblas(a, b, c) bind(C, name="getblas")
      import :: c_int32_t
      integer(c_int32_t), intent(out) :: a, b, c
    end subroutine
    subroutine getversionmkl(text, text_len) bind(C, name="getversionmkl")
      import :: c_char, c_size_t
      character(kind=c_char), intent(out) :: text(*)
      integer(c_size_t), value :: text_len
    end subroutine
    subroutine GetMaxSlaveMemory(mem) bind(C, name="GetMaxSlaveMemory")
      import :: c_int32_t
      integer(c_int32_t), intent(out) :: mem
    end subroutine
    subroutine clrfpe() bind(C, name="clrfpe")
    end subroutine
    subroutine eyflsh() bind(C, name="eyflsh")
    end subroutine
    subroutine eaxmac(dst, n, ch, ch_len) bind(C, name="eaxmac")
      import :: c_int32_t, c_char, c_size_t
      type(*), intent(inout) :: dst(*)
      integer(c_int32_t), intent(in) :: n
      character(kind=c_char), intent(in) :: ch
      integer(c_size_t), value :: ch_len
    end subroutine
    subroutine eaxraz(code, a, n) bind(C, name="eaxraz")
      import :: c_int32_t
      integer(c_int32_t), intent(in) :: code, n
      type(*), intent(inout) :: a(*)
    end subroutine
    subroutine eaxcpy(code, n, src, dst) bind(C, name="eaxcpy")
      import :: c_int32_t
      integer(c_int32_t), intent(in) :: code, n
      type(*), intent(in) :: src(*)
      type(*), intent(inout) :: dst(*)
    end subroutine
    subroutine eaxrnd(seed, r) bind(C, name="eaxrnd")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(inout) :: seed
      real(c_double), intent(out) :: r
    end subroutine

    ! ---- dense vector kernels ---------------------------------------------------------
    subroutine e_dzero(n, x, incx) bind(C, name="e_dzero")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx
      real(c_double), intent(inout) :: x(*)
    end subroutine
    subroutine e_izero(n, x, incx) bind(C, name="e_izero")
      import :: c_int32_t
      integer(c_int32_t), intent(in) :: n, incx
      integer(c_int32_t), intent(inout) :: x(*)
    end subroutine
    subroutine e_dcopy(n, x, incx, y, incy) bind(C, name="e_dcopy")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx, incy
      real(c_double), intent(in) :: x(*)
      real(c_double), intent(inout) :: y(*)
    end subroutine
    subroutine e_icopy(n, x, incx, y, incy) bind(C, name="e_icopy")
      import :: c_int32_t
      integer(c_int32_t), intent(in) :: n, incx, incy
      integer(c_int32_t), intent(in) :: x(*)
      integer(c_int32_t), intent(inout) :: y(*)
    end subroutine
    subroutine e_dswap(n, x, incx, y, incy) bind(C, name="e_dswap")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx, incy
      real(c_double), intent(inout) :: x(*), y(*)
    end subroutine
    subroutine e_dscal(n, a, x, incx) bind(C, name="e_dscal")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx
      real(c_double), intent(in) :: a
      real(c_double), intent(inout) :: x(*)
    end subroutine
    subroutine drscl(n, a, x, incx) bind(C, name="drscl")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx
      real(c_double), intent(in) :: a
      real(c_double), intent(inout) :: x(*)
    end subroutine
    subroutine e_daxpy(n, a, x, incx, y, incy) bind(C, name="e_daxpy")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx, incy
      real(c_double), intent(in) :: a, x(*)
      real(c_double), intent(inout) :: y(*)
    end subroutine
    function e_dasum(n, x, incx) bind(C, name="e_dasum")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx
      real(c_double), intent(in) :: x(*)
      real(c_double) :: e_dasum
    end function
    function e_dnrm2(n, x, incx) bind(C, name="e_dnrm2")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx
      real(c_double), intent(in) :: x(*)
      real(c_double) :: e_dnrm2
    end function
    function damax(n, x, incx) bind(C, name="damax")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx
      real(c_double), intent(in) :: x(*)
      real(c_double) :: damax
    end function
    function e_idamax(n, x, incx) bind(C, name="e_idamax")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx
      real(c_double), intent(in) :: x(*)
      integer(c_int32_t) :: e_idamax
    end function
    subroutine e_drotg(a, b, c, s) bind(C, name="e_drotg")
      import :: c_double
      real(c_double), intent(inout) :: a, b
      real(c_double), intent(out) :: c, s
    end subroutine

    ! ---- dense matrix products --------------------------------------------------------
    subroutine eagemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, &
                      transa_len, transb_len) bind(C, name="eagemm")
      import :: c_int32_t, c_double, c_char, c_size_t
      character(kind=c_char), intent(in) :: transa, transb
      integer(c_int32_t), intent(in) :: m, n, k, lda, ldb, ldc
      real(c_double), intent(in) :: alpha, beta, a(*), b(*)
      real(c_double), intent(inout) :: c(*)
      integer(c_size_t), value :: transa_len, transb_len
    end subroutine
    subroutine eagemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, &
                      trans_len) bind(C, name="eagemv")
      import :: c_int32_t, c_double, c_char, c_size_t
      character(kind=c_char), intent(in) :: trans
      integer(c_int32_t), intent(in) :: m, n, lda, incx, incy
      real(c_double), intent(in) :: alpha, beta, a(*), x(*)
      real(c_double), intent(inout) :: y(*)
      integer(c_size_t), value :: trans_len
    end subroutine
    subroutine dgemvf(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, &
                      trans_len) bind(C, name="dgemvf")
      import :: c_int32_t, c_double, c_char, c_size_t
      character(kind=c_char), intent(in) :: trans
      integer(c_int32_t), intent(in) :: m, n, lda, incx, incy
      real(c_double), intent(in) :: alpha, beta, a(*), x(*)
      real(c_double), intent(inout) :: y(*)
      integer(c_size_t), value :: trans_len
    end subroutine
    subroutine dgemv_n(m, n, alpha, a, lda, x, incx, beta, y, incy) bind(C, name="dgemv_n")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: m, n, lda, incx, incy
      real(c_double), intent(in) :: alpha, beta, a(*), x(*)
      real(c_double), intent(inout) :: y(*)
    end subroutine
    subroutine dgemv32_n(m, n, alpha, a, lda, x, incx, beta, y, incy) bind(C, name="dgemv32_n")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: m, n, lda, incx, incy
      real(c_double), intent(in) :: alpha, beta, a(*), x(*)
      real(c_double), intent(inout) :: y(*)
    end subroutine
    subroutine dgemv_t(m, n, alpha, a, lda, x, incx, beta, y, incy) bind(C, name="dgemv_t")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: m, n, lda, incx, incy
      real(c_double), intent(in) :: alpha, beta, a(*), x(*)
      real(c_double), intent(inout) :: y(*)
    end subroutine
    subroutine dgemv32_t(m, n, alpha, a, lda, x, incx, beta, y, incy) bind(C, name="dgemv32_t")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: m, n, lda, incx, incy
      real(c_double), intent(in) :: alpha, beta, a(*), x(*)
      real(c_double), intent(inout) :: y(*)
    end subroutine

    ! ---- packed solves ----------------------------------------------------------------
    subroutine dpptrs_2(uplo, n, nrhs, ap, b, ldb, info, uplo_len) bind(C, name="dpptrs_2")
      import :: c_int32_t, c_double, c_char, c_size_t
      character(kind=c_char), intent(in) :: uplo
      integer(c_int32_t), intent(in) :: n, nrhs, ldb
      real(c_double), intent(in) :: ap(*)
      real(c_double), intent(inout) :: b(*)
      integer(c_int32_t), intent(inout) :: info
      integer(c_size_t), value :: uplo_len
    end subroutine
    subroutine e_dpptrs(uplo, n, nrhs, ap, b, ldb, info, uplo_len) bind(C, name="e_dpptrs")
      import :: c_int32_t, c_double, c_char, c_size_t
      character(kind=c_char), intent(in) :: uplo
      integer(c_int32_t), intent(in) :: n, nrhs, ldb
      real(c_double), intent(in) :: ap(*)
      real(c_double), intent(inout) :: b(*)
      integer(c_int32_t), intent(inout) :: info
      integer(c_size_t), value :: uplo_len
    end subroutine
    subroutine eacort(lap, n, ap, b) bind(C, name="eacort")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: lap, n
      real(c_double), intent(in) :: ap(*)
      real(c_double), intent(inout) :: b(*)
    end subroutine

    ! ---- factorisation and inversion --------------------------------------------------
    subroutine eaxfch(ignored, kfirst, klast, tol, ap, info, dfail) bind(C, name="eaxfch")
      import :: c_int32_t, c_double, c_ptr
      type(c_ptr), value :: ignored
      integer(c_int32_t), intent(in) :: kfirst, klast
      real(c_double), intent(in) :: tol
      real(c_double), intent(inout) :: ap(*)
      integer(c_int32_t), intent(out) :: info
      real(c_double), intent(inout) :: dfail
    end subroutine
    subroutine eaxfch2(ignored, kfirst, klast, tol, ap, info, dfail) bind(C, name="eaxfch2")
      import :: c_int32_t, c_double, c_ptr
      type(c_ptr), value :: ignored
      integer(c_int32_t), intent(in) :: kfirst, klast
      real(c_double), intent(in) :: tol
      real(c_double), intent(inout) :: ap(*)
      integer(c_int32_t), intent(out) :: info
      real(c_double), intent(inout) :: dfail
    end subroutine
    function easlff_nt(nfront, npiv, front, minratio, diag0, tolabs, tolratio, ipiv, naccept, &
                       work1, work2, ierr) bind(C, name="easlff_nt")
      import :: c_int32_t, c_double, c_float
      integer(c_int32_t), intent(in) :: nfront, npiv
      real(c_double), intent(inout) :: front(*), minratio
      real(c_double), intent(in) :: diag0(*), tolabs, tolratio
      integer(c_int32_t), intent(inout) :: ipiv, naccept, ierr
      real(c_float), intent(inout) :: work1, work2
      integer(c_int32_t) :: easlff_nt
    end function
    subroutine eaxinv(imode, lda, n, ipvt, info, a) bind(C, name="eaxinv")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: imode, lda, n
      integer(c_int32_t), intent(inout) :: ipvt(*), info
      real(c_double), intent(inout) :: a(*)
    end subroutine
    function eaxinvs(n, tol, a, work, z, nzero) bind(C, name="eaxinvs")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n
      real(c_double), intent(in) :: tol
      real(c_double), intent(inout) :: a(*), work(*), z(*)
      integer(c_int32_t), intent(inout) :: nzero
      integer(c_int32_t) :: eaxinvs
    end function
    subroutine ebhpap(n, z, dd, work, c) bind(C, name="ebhpap")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n
      real(c_double), intent(in) :: z(*), dd(*)
      real(c_double), intent(inout) :: work(*), c(*)
    end subroutine
    subroutine eaxmmp(m, k, n, a, b, c) bind(C, name="eaxmmp")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: m, k, n
      real(c_double), intent(in) :: a(*), b(*)
      real(c_double), intent(inout) :: c(*)
    end subroutine
    function eaxscl(n, x, incx, y, incy) bind(C, name="eaxscl")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx, incy
      real(c_double), intent(in) :: x(*), y(*)
      real(c_double) :: eaxscl
    end function
    function eaxrmc3(nbasis, npts, pts, xq, vals, fit, basis, gram, work, z, bmat, pvec, coef, &
                     wts, ierr) bind(C, name="eaxrmc3")
      import :: c_int32_t, c_double, qkm_basis_fn
      integer(c_int32_t), intent(in) :: nbasis, npts
      real(c_double), intent(in) :: pts(*), xq(*), vals(*), wts(*)
      real(c_double), intent(inout) :: fit, gram(*), work(*), z(*), bmat(*), pvec(*), coef(*)
      procedure(qkm_basis_fn) :: basis
      integer(c_int32_t), intent(inout) :: ierr
      integer(c_int32_t) :: eaxrmc3
    end function

    ! ---- symmetric eigenproblem -------------------------------------------------------
    function eaxeig(n, iorder, ap, d, z, e, ierr) bind(C, name="eaxeig")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, iorder
      real(c_double), intent(inout) :: ap(*), d(*), z(*), e(*)
      integer(c_int32_t), intent(inout) :: ierr
      integer(c_int32_t) :: eaxeig
    end function
    subroutine eaxetr(n, ap, d, e) bind(C, name="eaxetr")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n
      real(c_double), intent(inout) :: ap(*), d(*), e(*)
    end subroutine
    function eaxeql(n, d, e, z, ierr) bind(C, name="eaxeql")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n
      real(c_double), intent(inout) :: d(*), e(*), z(*)
      integer(c_int32_t), intent(inout) :: ierr
      integer(c_int32_t) :: eaxeql
    end function
    subroutine eaxeor(iorder, n, d, z) bind(C, name="eaxeor")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: iorder, n
      real(c_double), intent(inout) :: d(*), z(*)
    end subroutine
    subroutine eaxevp(n, ap, z) bind(C, name="eaxevp")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n
      real(c_double), intent(in) :: ap(*)
      real(c_double), intent(inout) :: z(*)
    end subroutine

    ! ---- printing and error reports of the services -----------------------------------
    subroutine ehprint(text, text_len) bind(C, name="ehprint")
      import :: c_char, c_size_t
      character(kind=c_char), intent(in) :: text(*)
      integer(c_size_t), value :: text_len
    end subroutine
    subroutine ehprini(text, value, text_len) bind(C, name="ehprini")
      import :: c_char, c_size_t, c_int32_t
      character(kind=c_char), intent(in) :: text(*)
      integer(c_int32_t), intent(in) :: value
      integer(c_size_t), value :: text_len
    end subroutine
    subroutine ehprinr(format, value, format_len) bind(C, name="ehprinr")
      import :: c_char, c_size_t, c_double
      character(kind=c_char), intent(in) :: format(*)
      real(c_double), intent(in) :: value
      integer(c_size_t), value :: format_len
    end subroutine
    function ehrprog(code, text, status, text_len) bind(C, name="ehrprog")
      import :: c_char, c_size_t, c_int32_t
      integer(c_int32_t), intent(in) :: code
      character(kind=c_char), intent(in) :: text(*)
      integer(c_int32_t), intent(out) :: status
      integer(c_size_t), value :: text_len
      integer(c_int32_t) :: ehrprog
    end function

    ! ---- mesh graphs and sorting ------------------------------------------------------
    subroutine eaunle(nn, ne, ignored, eptr, econn, nptr, nlist) bind(C, name="eaunle")
      import :: c_int32_t, c_ptr
      integer(c_int32_t), intent(in) :: nn, ne, eptr(*), econn(*)
      type(c_ptr), value :: ignored
      integer(c_int32_t), intent(inout) :: nptr(*), nlist(*)
    end subroutine
    subroutine eaupnn(nn, ne, ignored, eptr, econn, nptr, nlist, mark, aptr, nadj) &
                      bind(C, name="eaupnn")
      import :: c_int32_t, c_ptr
      integer(c_int32_t), intent(in) :: nn, ne, eptr(*), econn(*)
      type(c_ptr), value :: ignored
      integer(c_int32_t), intent(inout) :: nptr(*), nlist(*), mark(*), aptr(*)
      integer(c_int32_t), intent(out) :: nadj
    end subroutine
    subroutine eaunln(nn, ignored2, ignored3, eptr, econn, nptr, nlist, link, adj) &
                      bind(C, name="eaunln")
      import :: c_int32_t, c_ptr
      integer(c_int32_t), intent(in) :: nn, eptr(*), econn(*), nptr(*), nlist(*)
      type(c_ptr), value :: ignored2, ignored3
      integer(c_int32_t), intent(inout) :: link(*), adj(*)
    end subroutine
    subroutine eaupne(ntotal, nfirst, mfirst, mtotal, key, ptr) bind(C, name="eaupne")
      import :: c_int32_t
      integer(c_int32_t), intent(in) :: ntotal, nfirst, mfirst, mtotal, key(*)
      integer(c_int32_t), intent(inout) :: ptr(*)
    end subroutine
    subroutine eaxsort(table, lrec, nrec, ikey, work) bind(C, name="eaxsort")
      import :: c_int32_t
      integer(c_int32_t), intent(inout) :: table(*), work(*)
      integer(c_int32_t), intent(in) :: lrec, nrec, ikey
    end subroutine

    ! ---- sparse vectors, packed triangular solve, sparse matrix-vector product --------
    subroutine e_daxpyi(nz, a, x, indx, y) bind(C, name="e_daxpyi")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: nz, indx(*)
      real(c_double), intent(in) :: a, x(*)
      real(c_double), intent(inout) :: y(*)
    end subroutine
    function e_ddoti(nz, x, indx, y) bind(C, name="e_ddoti")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: nz, indx(*)
      real(c_double), intent(in) :: x(*), y(*)
      real(c_double) :: e_ddoti
    end function
    subroutine e_dgthr(nz, y, x, indx) bind(C, name="e_dgthr")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: nz, indx(*)
      real(c_double), intent(in) :: y(*)
      real(c_double), intent(inout) :: x(*)
    end subroutine
    subroutine e_dsctr(nz, x, indx, y) bind(C, name="e_dsctr")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: nz, indx(*)
      real(c_double), intent(in) :: x(*)
      real(c_double), intent(inout) :: y(*)
    end subroutine
    subroutine e_dtpsv(uplo, trans, diag, n, ap, x, incx, uplo_len, trans_len, diag_len) &
                       bind(C, name="e_dtpsv")
      import :: c_int32_t, c_double, c_char, c_size_t
      character(kind=c_char), intent(in) :: uplo, trans, diag
      integer(c_int32_t), intent(in) :: n, incx
      real(c_double), intent(in) :: ap(*)
      real(c_double), intent(inout) :: x(*)
      integer(c_size_t), value :: uplo_len, trans_len, diag_len
    end subroutine
    subroutine eaxmvm(kind, nterm, nrow, n, nrhs, col, rowend, a, x, y) bind(C, name="eaxmvm")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: kind, nterm, nrow, n, nrhs, col(*), rowend(*)
      real(c_double), intent(in) :: a(*), x(*)
      real(c_double), intent(inout) :: y(*)
    end subroutine
  end interface
end module qorkyt_kernels
