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
  end interface
  real(c_double) :: x(2) = [3d0, 4d0], y(2) = [1d0, 1d0]
  call e_daxpy(2, 2d0, x, 1, y, 1)
  if (e_dnrm2(2, x, 1) /= 5d0 .or. y(1) /= 7d0 .or. y(2) /= 9d0) then
    print *, 'f_call: wrong answer'
    stop 1
  end if
  print *, 'f_call: ok'
end program
