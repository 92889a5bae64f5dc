/* export.h: marks what libTovanCore exports to its clients; usable from C and C++. */
#ifndef TOVAN_EXPORT_H
#define TOVAN_EXPORT_H

#define TOVAN_EXPORT __attribute__((visibility("default")))

#if defined(__cplusplus)
#define TOVAN_EXTERN_C_BEGIN extern "C" {
#define TOVAN_EXTERN_C_END }
#else
#define TOVAN_EXTERN_C_BEGIN
#define TOVAN_EXTERN_C_END
#endif

#endif
