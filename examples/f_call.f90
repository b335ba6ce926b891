! A Fortran caller of the kernels through bind(C) interfaces: every argument by reference,
! the undecorated lower-case names, a flag's hidden length passed by value at the end.
program f_call
  use iso_c_binding
  implicit none
  interface
    function e_dnrm2(n, x, incx) bind(C, name="e_dnrm2")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx
      real(c_double), intent(in) :: x(*)
      real(c_double) :: e_dnrm2
    end function
    subroutine e_daxpy(n, a, x, incx, y, incy) bind(C, name="e_daxpy")
      import :: c_int32_t, c_double
      integer(c_int32_t), intent(in) :: n, incx, incy
      real(c_double), intent(in) :: a, x(*)
      real(c_double), intent(inout) :: y(*)
    end subroutine
    subroutine eagemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, trans_len) &
        bind(C, name="eagemv")
      import :: c_int32_t, c_double, c_char, c_size_t
      character(kind=c_char), intent(in) :: trans
      integer(c_int32_t), intent(in) :: m, n, lda, incx, incy
      real(c_double), intent(in) :: alpha, beta, a(lda, *), x(*)
      real(c_double), intent(inout) :: y(*)
      integer(c_size_t), value :: trans_len
    end subroutine
  end interface
  real(c_double) :: x(2) = [3d0, 4d0], y(2) = [1d0, 1d0], z(2) = [2d0, 2d0]
  real(c_double) :: a(2, 2) = reshape([1d0, 3d0, 2d0, 4d0], [2, 2])
  call e_daxpy(2, 2d0, x, 1, y, 1)
  ! z := A*x + 0.5*z
  call eagemv('N', 2, 2, 1d0, a, 2, x, 1, 0.5d0, z, 1, 1_c_size_t)
  if (e_dnrm2(2, x, 1) /= 5d0 .or. y(1) /= 7d0 .or. y(2) /= 9d0 .or. &
      z(1) /= 12d0 .or. z(2) /= 26d0) then
    print *, 'f_call: wrong answer'
    stop 1
  end if
  print *, 'f_call: ok'
end program
