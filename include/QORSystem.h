/* System services of the platform library used by the kernels and the services. */
#ifndef QORKYT_SYSTEM_H
#define QORKYT_SYSTEM_H

#ifdef __cplusplus
extern "C" {
#endif

/* The value of environment variable `name`, or a null pointer when it is not set. */
__attribute__((visibility("default"))) const char *QORGetEnv(const char *name);

#ifdef __cplusplus
}
#endif

#endif
