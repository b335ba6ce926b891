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

/* List-directed sequential write, in two calls per record: for_write_seq_lis opens a record
   on `unit` with its first item, for_write_seq_lis_xmit adds one more item and ends the
   record, which then goes out in one write on standard output (the stand-in knows only
   standard output, unit 6). The record is built in the caller's io block. The layout is that
   of a list-directed line: a leading blank, text items as they are, integers right-justified
   in 12 columns. A record longer than the block is cut. `flags` is not used. */
typedef struct for_io_block {
  int unit;
  int length;
  char text[248];
} for_io_block;
enum { FOR_ITEM_TEXT = 1, FOR_ITEM_INT4 = 2 };
/* What an item is: FOR_ITEM_TEXT with its length in bytes, or FOR_ITEM_INT4 (a 32-bit
   integer). An item of another type adds nothing. */
typedef struct for_item_desc {
  int type;
  int length;
} for_item_desc;
__attribute__((visibility("default"))) void for_write_seq_lis(for_io_block *io, int unit,
                                                              long long flags,
                                                              const for_item_desc *desc,
                                                              const void *item);
__attribute__((visibility("default"))) void for_write_seq_lis_xmit(for_io_block *io,
                                                                   const for_item_desc *desc,
                                                                   const void *item);

#ifdef __cplusplus
}
#endif

#endif
