/* System services of the platform library used by the kernels and the services. */
#ifndef QORKYT_SYSTEM_H
#define QORKYT_SYSTEM_H

#include "QORExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The value of environment variable `name`, or a null pointer when it is not set. */
QOR_API const char *QORGetEnv(const char *name);

/* The largest finite double (DBL_MAX). */
__attribute__((visibility("default"))) extern const double QORdoubleMax;

#ifdef __cplusplus
}

#include <time.h>

#include "QORString.h"

/* The login name of the user, terminated, in at most `size` bytes. 0 on success, negative
   when it cannot be found or does not fit. */
QOR_API int QORGetLoginName(char *buffer, int size);

/* What QORGetSystemInfo reports; the host name comes first. */
struct QORSystemInfo {
  char HostName[256];
  char SystemName[65];
  char Release[65];
  char Machine[65];
  int ProcessorCount;
};

/* Fills `info`. 0 on success, negative on failure (then `info` is cleared). */
QOR_API int QORGetSystemInfo(QORSystemInfo *info);

/* A moment in local time. */
class QOR_API QORTime {
 public:
  QORTime();  // now
  explicit QORTime(time_t seconds);
  /* The time through a strftime format. `flags` is reserved (0). Empty on failure. */
  QORUnicodeString ConvertToString(const char *format, int flags) const;
  time_t GetSeconds() const;

 private:
  time_t _Seconds;
  int _Valid;
};

/* A random (version 4) UUID, made at construction. */
class QOR_API QORUuid {
 public:
  QORUuid();
  /* Writes the text form (36 characters, lower-case hex with dashes), cut to `size`
     characters; the terminator is written only when it fits. Returns the characters written. */
  int UUID_to_chaine(char *buffer, int size) const;
  const unsigned char *GetBytes() const;

 private:
  unsigned char _Bytes[16];
};

#endif

#endif
