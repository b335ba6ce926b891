/* Raw memory of the platform library. Blocks from both calls are released with the system's
   free, like blocks from malloc. */
#ifndef QORKYT_MEMORY_H
#define QORKYT_MEMORY_H

#include "QORExport.h"
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A block of `size` bytes, not cleared, or a null pointer. */
QOR_API void *QORUnsecuredMemAlloc(size_t size);

/* `block` resized to `size` bytes (a null block is a new one); the block may move. Null on
   failure, the old block then left as it was. */
QOR_API void *QORUnsecuredMemRealloc(void *block, size_t size);

#ifdef __cplusplus
}
#endif

#endif
