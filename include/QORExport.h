/* The one export marking of both libraries. Everything is hidden by default (the build uses
   -fvisibility=hidden); a declaration marked QOR_API is exported, and the version script
   generated from the folders' export lists decides which of those names stay visible.
   QKM_API is the same marking, the spelling used by the kernel declarations. */
#ifndef QOR_EXPORT_H
#define QOR_EXPORT_H

#define QOR_API __attribute__((visibility("default")))
#define QKM_API QOR_API

#endif
