// QKM_ASAN is 1 when the translation unit is built with AddressSanitizer, under GCC (which
// defines __SANITIZE_ADDRESS__) and clang (which answers __has_feature) alike.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define QKM_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QKM_ASAN 1
#endif
#endif
#ifndef QKM_ASAN
#define QKM_ASAN 0
#endif
