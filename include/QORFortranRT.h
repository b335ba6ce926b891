/* Stand-ins for the services of the Fortran run-time library that the kernels use. */
#ifndef QORKYT_FORTRANRT_H
#define QORKYT_FORTRANRT_H

#include "QORExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The stop path: writes `length` bytes of `text` and a newline to standard error and ends
   the process with exit status 1. `flags` is the run-time's flags word; it is not used. */
QOR_API __attribute__((noreturn)) void for_stop_core(const char *text,
                                                                    int length,
                                                                    long long flags);

#ifdef __cplusplus
}
#endif

#endif
