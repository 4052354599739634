/* Export and linkage macros shared by every public header of libkafx_proc. */
#ifndef KAFX_PROC_KAFX_EXPORT_H
#define KAFX_PROC_KAFX_EXPORT_H

#include <stdint.h>

#if defined(__GNUC__)
#define KAFX_API __attribute__((visibility("default")))
#else
#define KAFX_API
#endif

#ifdef __cplusplus
#define KAFX_EXTERN_C_BEGIN extern "C" {
#define KAFX_EXTERN_C_END }
#else
#define KAFX_EXTERN_C_BEGIN
#define KAFX_EXTERN_C_END
#endif

#endif
