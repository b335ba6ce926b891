! Every kernel called through the module qorkyt_kernels: the compiler checks each call against
! its interface; the run checks one known answer per kernel, or that it ran at all.
module basis_one
  use iso_c_binding
  implicit none
contains
  ! The constant basis: one function, 1 everywhere.
  function constant(one, zero, nbasis, one2, zero2, point, cell, values, ierr) bind(C)
    integer(c_int32_t), intent(in) :: one, zero, nbasis, one2, zero2
    real(c_double), intent(in) :: point(3)
    real(c_double), intent(inout) :: cell
    real(c_double), intent(out) :: values(*)
    integer(c_int32_t), intent(out) :: ierr
    integer(c_int32_t) :: constant
    values(1:nbasis) = 1d0
    ierr = 0
    constant = 0
  end function
end module

program test_module
  use iso_c_binding
  use qorkyt_kernels
  use basis_one
  implicit none
  integer, parameter :: n = 4
  integer(c_int32_t) :: i4, j4, k4, ipiv(n), info, ierr, iv(n), iw(n), seed
  real(c_double) :: x(n), y(n), a(n*n), b(n*n), c(n*n), ap(n*(n+1)/2), d(n), z(n*n), e(n)
  real(c_double) :: r, s, dfail, minratio, fit, work(n*n), wt(n)
  real(c_float) :: w1, w2
  real(c_double) :: am(n, n)
  integer(c_int32_t) :: nptr(n+1), nlist(6), aptr(n+1), adj(10), link(n+1), nadj, tab(2*n)
  character(kind=c_char) :: text(16)
  integer :: failures = 0, i, j

  ! environment and utilities
  call ehalmxc(i4); call check(i4 > 0, 'ehalmxc')
  call ehumem(i4); call ehaldb(i4); call ehucpu(i4); call check(i4 >= 1, 'ehucpu')
  call getblas(i4, j4, k4); call GetMaxSlaveMemory(i4)
  call getversionmkl(text, 16_c_size_t)
  call clrfpe(); call eyflsh()
  call eaxmac(iv, 16, 'A', 1_c_size_t); call check(iv(1) == int(z'41414141'), 'eaxmac')
  call eaxraz(3, iv, n); call check(all(iv == 0), 'eaxraz')
  iv = [1, 2, 3, 4]; call eaxcpy(3, n, iv, iw); call check(all(iw == iv), 'eaxcpy')
  seed = 1; call eaxrnd(seed, r); call check(seed == 65539, 'eaxrnd')

  ! dense vectors
  x = [3d0, 4d0, 0d0, 0d0]; y = 1d0
  call e_dzero(n, y, 1); call check(all(y == 0d0), 'e_dzero')
  call e_izero(n, iw, 1); call check(all(iw == 0), 'e_izero')
  call e_dcopy(n, x, 1, y, 1); call check(all(y == x), 'e_dcopy')
  call e_icopy(n, iv, 1, iw, 1); call check(all(iw == iv), 'e_icopy')
  call e_dswap(n, x, 1, y, 1); call e_dscal(n, 2d0, y, 1); call check(y(2) == 8d0, 'e_dscal')
  call drscl(n, 2d0, y, 1); call check(y(2) == 4d0, 'drscl')
  call e_daxpy(n, 1d0, x, 1, y, 1); call check(y(1) == 6d0, 'e_daxpy')
  call check(e_dasum(n, x, 1) == 7d0, 'e_dasum')
  call check(e_dnrm2(n, x, 1) == 5d0, 'e_dnrm2')
  call check(damax(n, x, 1) == 4d0, 'damax')
  call check(e_idamax(n, x, 1) == 2, 'e_idamax')
  r = 3d0; s = 4d0; call e_drotg(r, s, dfail, minratio); call check(abs(r) == 5d0, 'e_drotg')

  ! matrix product: C = A*B with A = I
  a = 0d0; do i = 1, n; a(i + (i-1)*n) = 1d0; end do
  b = [(dble(i), i = 1, n*n)]; c = 0d0
  call eagemm('N', 'N', n, n, n, 1d0, a, n, b, n, 0d0, c, n, 1_c_size_t, 1_c_size_t)
  call check(all(c == b), 'eagemm')
  call eaxmmp(n, n, n, a, b, c); call check(all(c == b), 'eaxmmp')
  call check(eaxscl(n, x, 1, x, 1) == 25d0, 'eaxscl')

  ! matrix-vector products with A = b by columns: y = 1 + 2*A*x or 1 + 2*A^T*x
  am = reshape(b, [n, n]); x = [1d0, -1d0, 2d0, 3d0]
  y = 1d0; call eagemv('N', n, n, 2d0, b, n, x, 1, 1d0, y, 1, 1_c_size_t)
  call check(all(y == 1 + 2*matmul(am, x)), 'eagemv')
  y = 1d0; call dgemvf('T', n, n, 2d0, b, n, x, 1, 1d0, y, 1, 1_c_size_t)
  call check(all(y == 1 + 2*matmul(x, am)), 'dgemvf')
  y = 1d0; call dgemv_n(n, n, 2d0, b, n, x, 1, 1d0, y, 1)
  call check(all(y == 1 + 2*matmul(am, x)), 'dgemv_n')
  y = 1d0; call dgemv32_n(n, n, 2d0, b, n, x, 1, 1d0, y, 1)
  call check(all(y == 1 + 2*matmul(am, x)), 'dgemv32_n')
  y = 1d0; call dgemv_t(n, n, 2d0, b, n, x, 1, 1d0, y, 1)
  call check(all(y == 1 + 2*matmul(x, am)), 'dgemv_t')
  y = 1d0; call dgemv32_t(n, n, 2d0, b, n, x, 1, 1d0, y, 1)
  call check(all(y == 1 + 2*matmul(x, am)), 'dgemv32_t')

  ! packed factor and solves: diag(4, 9, 16, 25) packed by rows
  ap = 0d0; do i = 1, n; ap(i*(i+1)/2) = dble((i+1)**2); end do
  dfail = 0d0
  call eaxfch(c_null_ptr, 1, n, 1d-12, ap, info, dfail); call check(info == 0, 'eaxfch')
  y = [2d0, 3d0, 4d0, 5d0]
  call eacort(0, n, ap, y); call check(y(1) == 0.5d0 .or. y(1) == 2d0 / 4d0, 'eacort')
  ap = 0d0; do i = 1, n; ap(i*(i+1)/2) = dble((i+1)**2); end do
  call eaxfch2(c_null_ptr, 1, n, 1d-12, ap, info, dfail); call check(info == 0, 'eaxfch2')
  y = [4d0, 9d0, 16d0, 25d0]; info = 0
  call e_dpptrs('U', n, 1, ap, y, n, info, 1_c_size_t); call check(all(y == 1d0), 'e_dpptrs')
  y = [4d0, 9d0, 16d0, 25d0]
  call dpptrs_2('U', n, 1, ap, y, n, info, 1_c_size_t); call check(all(y == 1d0), 'dpptrs_2')

  ! frontal elimination of a diagonal front (packed by columns)
  ap = 0d0; ap(1) = 2d0; ap(5) = 2d0; ap(8) = 2d0; ap(10) = 2d0
  d = 2d0; minratio = 1d300; w1 = 0; w2 = 0; i4 = 0; j4 = 0; ierr = 0
  call check(easlff_nt(n, n, ap, minratio, d, 1d-12, 1d-6, i4, j4, w1, w2, ierr) == 0 &
             .and. j4 == n, 'easlff_nt')

  ! inversions
  a = 0d0; do i = 1, n; a(i + (i-1)*n) = 2d0; end do
  call eaxinv(1, n, n, ipiv, info, a); call check(a(1) == 0.5d0, 'eaxinv')
  a = 0d0; do i = 1, n; a(i + (i-1)*n) = 2d0; end do
  call check(eaxinvs(n, 1d-12, a, work, z, i4) == 0 .and. abs(a(1) - 0.5d0) < 1d-15, 'eaxinvs')
  d = 1d0; z = 0d0; do i = 1, n; z(i + (i-1)*n) = 1d0; end do
  call ebhpap(n, z, d, work, c); call check(c(1) == 1d0, 'ebhpap')
  b(1:3*n) = [(dble(mod(i, 3)), i = 1, 3*n)]; y = 2d0; wt = 1d0; x = 0d0; ierr = 0
  call check(eaxrmc3(1, n, b, x, y, fit, constant, work, c, z, a, d, e, wt, ierr) /= 1 &
             .and. abs(fit - 2d0) < 1d-12, 'eaxrmc3')

  ! eigenproblem of diag(1, 2, 3, 4) packed by rows
  ap = 0d0; do i = 1, n; ap(i*(i+1)/2) = dble(n + 1 - i); end do
  call check(eaxeig(n, 1, ap, d, z, e, ierr) == 0 .and. d(1) == 1d0 .and. d(n) == 4d0, 'eaxeig')
  ap = 0d0; do i = 1, n; ap(i*(i+1)/2) = dble(i); end do
  call eaxetr(n, ap, d, e)
  z = 0d0; do i = 1, n; z(i + (i-1)*n) = 1d0; end do
  call check(eaxeql(n, d, e, z, ierr) == 0, 'eaxeql')
  call eaxeor(1, n, d, z); call check(all([(d(j) <= d(j+1), j = 1, n-1)]), 'eaxeor')
  call eaxevp(n, ap, z)

  ! mesh graphs: elements (1 2 3) and (2 3 4); records of two words sorted by the first
  call eaunle(n, 2, c_null_ptr, [0, 3, 6], [1, 2, 3, 2, 3, 4], nptr, nlist)
  call check(all(nptr == [0, 1, 3, 5, 6]) .and. all(nlist == [1, 1, 2, 1, 2, 2]), 'eaunle')
  call eaupnn(n, 2, c_null_ptr, [0, 3, 6], [1, 2, 3, 2, 3, 4], nptr, nlist, link, aptr, nadj)
  call check(all(aptr == [0, 2, 5, 8, 10]) .and. nadj == 10, 'eaupnn')
  call eaunln(n, c_null_ptr, c_null_ptr, [0, 3, 6], [1, 2, 3, 2, 3, 4], nptr, nlist, link, adj)
  call check(all(adj == [2, 3, 1, 3, 4, 1, 2, 4, 2, 3]) .and. all(link(2:) == 0), 'eaunln')
  call eaupne(5, 3, 2, 4, [1, 1, 2, 2, 2], nptr)
  call check(all(nptr == [0, 2, 3, 3, 5]), 'eaupne')
  tab = [3, 30, -1, 10, 4, 40, 2, 20]; call eaxsort(tab, 2, n, 1, iw)
  call check(all(tab == [-1, 10, 2, 20, 3, 30, 4, 40]), 'eaxsort')

  ! sparse vectors on positions 4, 1, 3
  x = [1d0, 2d0, 3d0, 4d0]; iv = [4, 1, 3, 2]; y = 1d0
  call e_daxpyi(3, 2d0, x, iv, y); call check(all(y == [5d0, 1d0, 7d0, 3d0]), 'e_daxpyi')
  call check(e_ddoti(3, x, iv, y) == 34d0, 'e_ddoti')
  d = 0d0; call e_dgthr(3, y, d, iv); call check(all(d == [3d0, 5d0, 7d0, 0d0]), 'e_dgthr')
  e = 0d0; call e_dsctr(3, d, iv, e); call check(all(e == [5d0, 0d0, 7d0, 3d0]), 'e_dsctr')

  ! upper triangular solve, 2 on the diagonal and 1 above, packed by columns: x = 1
  ap = 1d0; do i = 1, n; ap(i*(i+1)/2) = 2d0; end do
  y = [5d0, 4d0, 3d0, 2d0]
  call e_dtpsv('U', 'N', 'N', n, ap, y, 1, 1_c_size_t, 1_c_size_t, 1_c_size_t)
  call check(all(y == 1d0), 'e_dtpsv')

  ! symmetric tridiagonal (2, -1) in rows, strict lower terms before the diagonal
  call eaxmvm(1, 7, n, n, 1, [1, 1, 2, 2, 3, 3, 4], [0, 1, 3, 5, 7], &
              [2d0, -1d0, 2d0, -1d0, 2d0, -1d0, 2d0], [1d0, 2d0, 4d0, 8d0], y)
  call check(all(y == [0d0, -1d0, -2d0, 12d0]), 'eaxmvm')

  ! printing
  call ehprint('module: print' // c_null_char, 14_c_size_t)
  call ehprini('module: value ' // c_null_char, 7, 15_c_size_t)
  call ehprinr('module: %g' // c_null_char, 2.5d0, 11_c_size_t)
  call check(ehrprog(3, 'from the module' // c_null_char, i4, 16_c_size_t) == 1 .and. i4 == 1, 'ehrprog')

  if (failures /= 0) stop 1
  print *, 'test_module: ok'
contains
  subroutine check(ok, name)
    logical, intent(in) :: ok
    character(*), intent(in) :: name
    if (.not. ok) then
      print *, 'test_module: wrong answer from ', name
      failures = failures + 1
    end if
  end subroutine
end program
