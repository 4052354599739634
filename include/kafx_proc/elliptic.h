/*
 * Sixth-order direct-form IIR filter, one 24-bit working sample per call.
 *
 *   y[n] = sum_k b_k x[n-k] (k = 0..6) + sum_k a_k y[n-k] (k = 1..6)
 *
 * The thirteen coefficients b0..b6, a1..a6 are Q20, the feedback terms stored
 * with the sign that is added. The table is borrowed, not copied: one
 * constant table serves any number of filters. Inputs enter the state as
 * x << 5 (plain shift, no saturation); the 64-bit sum of products wraps, is
 * shifted down by 20 and kept as its low 32 bits; the output is y >> 5. Every
 * shifted result of exactly -1 becomes 0, so a decaying tail reaches silence.
 * A null coefficient table or record is not guarded.
 */
#ifndef KAFX_PROC_ELLIPTIC_H
#define KAFX_PROC_ELLIPTIC_H

#include "kafx_export.h"

typedef struct elliptic {
  const int32_t* coefficients; /* 13 words, borrowed: b0..b6, a1..a6, Q20 */
  int32_t* state;              /* 13 words, owned: x[n]..x[n-6] (input << 5), y[n-1]..y[n-6] */
} elliptic;

KAFX_EXTERN_C_BEGIN

KAFX_API void elliptic_init(elliptic* e, const int* coefficients);
KAFX_API void elliptic_setcoef(elliptic* e, const int* coefficients);
KAFX_API void elliptic_resetstate(elliptic* e);
KAFX_API void elliptic_end(elliptic* e);
KAFX_API void elliptic_process(elliptic* e, int* in, int* out);
/* For each sample: in[i] = in[i] >> 2 (-1 becomes 0) is written back into
 * the input buffer, then filtered into out[i]. Nothing when count < 1. */
KAFX_API void remove_high_freq_process(elliptic* e, int* in, int* out, int count);

KAFX_EXTERN_C_END

#endif
