/*
 * Biquad (second-order IIR) section, one sample per call.
 *
 *   y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] + a1 y[n-1] + a2 y[n-2]
 *
 * Coefficients are stored in the order b0, b1, b2, a1, a2 with the feedback
 * terms carrying the sign that is added (the negated textbook a1, a2).
 *   IIR_process_16: Q20 coefficients, 16-bit samples, states held as
 *                   sample * 8192 with 13 bits of error feedback.
 *   IIR_process_32: Q28 coefficients, 24-bit working samples, states held as
 *                   sample * 32.
 * A section whose status is 0 copies its input.
 */
#ifndef KAFX_PROC_BIQUAD_H
#define KAFX_PROC_BIQUAD_H

#include "kafx_export.h"

typedef struct IIR_t {
  int32_t status;  /* 0 = pass through, non-zero = filter; init sets 1 */
  int32_t* coef;   /* b0, b1, b2, a1, a2 (owned) */
  int32_t* state;  /* x[n] (16-bit: error remainder), x[n-1], x[n-2], y[n-1], y[n-2] */
} IIR_t;

KAFX_EXTERN_C_BEGIN

KAFX_API void IIR_init(void* iir, const void* coef);
KAFX_API void IIR_reinit(void* iir, const void* coef);
KAFX_API void IIR_reset(void* iir);
KAFX_API void IIR_end(void* iir);
KAFX_API void IIR_set_param(void* iir, const int* coef);
KAFX_API void IIR_get_param(void* iir, int* coef);
/* Generic write / read of the first int of any block record (its status). */
KAFX_API void IIR_set_status(void* record, int status);
KAFX_API void IIR_get_status(void* record, int* status);
KAFX_API void IIR_process_16(void* iir, short* in, short* out);
KAFX_API void IIR_process_32(void* iir, int* in, int* out);

KAFX_EXTERN_C_END

#endif
