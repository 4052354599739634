/*
 * First-order DC blocker, one sample per call:
 *
 *   y[n] = 0.996 (y[n-1] + x[n] - x[n-1])      (0.996 = 66840428 / 2^26)
 *
 * computed in 64 bits (wrapping) at 32 times a working sample's scale
 * (_24: x = in << 5, out = y >> 5 saturated to int32) or 8192 times a 16-bit
 * sample's (_16: x = in << 13, out = y >> 13 taken as its low 32 bits, no
 * saturation). A shifted output of -1 is returned as 0. The record owns no
 * memory; init, reset and end all clear it.
 */
#ifndef KAFX_PROC_DC_REMOVE_H
#define KAFX_PROC_DC_REMOVE_H

#include "kafx_export.h"

typedef struct dc_remove {
  int64_t y1; /* previous output, internal scale */
  int64_t x1; /* previous input, internal scale */
} dc_remove;

KAFX_EXTERN_C_BEGIN

KAFX_API void dc_remove_init(dc_remove* d);
KAFX_API void dc_remove_reset(dc_remove* d);
KAFX_API void dc_remove_end(dc_remove* d);
KAFX_API void dc_remove_process_16(dc_remove* d, int* in, int* out);
KAFX_API void dc_remove_process_24(dc_remove* d, int* in, int* out);
/* dc_remove_process_24 over count samples (in place allowed); nothing when count < 1. */
KAFX_API void do_dc_remove_process(dc_remove* d, int* in, int* out, int count);

KAFX_EXTERN_C_END

#endif
