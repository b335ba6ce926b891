// File operations of the platform library. Statuses: non-negative on success; on failure
// a negative value 0x8007xxxx whose low 16 bits hold the system's error number (2 when there
// is no such file or directory, 17 when it exists, 22 for a bad argument, ...).
#ifndef QORPLATFORM_FILE_H
#define QORPLATFORM_FILE_H

#include "QORBaseUnknown.h"
#include "QORString.h"

// Tests `path` in the sense of access(2): mode 0 existence, 2 writing, 4 reading, 6 both.
// `flags` is reserved and must be 0.
QOR_API int _QORFileAccess(const QORUnicodeString &path, int mode, int flags);

// 0 when `a` and `b` name the same file or directory, 1 when they differ, negative when
// either cannot be examined.
QOR_API int QORIdenticaleFile(QORUnicodeString *a, QORUnicodeString *b);

// Joins `name` onto `path` in place, with one "/" between them.
QOR_API int QORMakePath(QORUnicodeString *path, QORUnicodeString *name);

// Opens `path` in the manner of fopen's mode ("r", "w", "a", with "+" for both ways) and
// gives back a system descriptor. "c" adds creation to "r" modes; "w" and "a" create anyway.
// New files get the permissions 0666 less the umask.
QOR_API int QORFOpen(const QORUnicodeString &path, const char *mode, unsigned int *descriptor);

QOR_API int QORFClose(unsigned int descriptor);

// Copies the contents of `from` into `to`. With `overwrite` 0 an existing `to` is an error;
// otherwise it is truncated first.
QOR_API int QORFCopy(const QORUnicodeString &from, const QORUnicodeString &to, int overwrite);

QOR_API int _QORDeleteFile(const QORUnicodeString &path);

#endif
