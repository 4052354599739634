/*
 * Number formats and the small shared math routines of libkafx_proc.
 *
 * Formats (a value in Qn is the real value times 2^n):
 *   16-bit PCM sample      Q15 (full scale 32768)
 *   working sample         Q23 right-aligned in int32 (full scale 2^23); a
 *                          16-bit sample becomes one by a left shift of 8
 *   filter-internal state  Q28 (working sample << 5, 16-bit sample << 13)
 *   gains, feedback, mix   Q13 (8192 = 1.0)
 *   limiter gains          Q17 (131072 = 1.0)
 *   biquad coefficients    Q28 (the 16-bit biquad: Q20)
 *   log / exp arguments    Q16 (65536 = 1.0)
 *
 * All routines here are pure; none allocates or fails.
 */
#ifndef KAFX_PROC_FIXED_MATH_H
#define KAFX_PROC_FIXED_MATH_H

#include "kafx_export.h"

/* Sample-rate class handed to every block's set_sample_rate. */
typedef enum SampleRateType {
  SAMPLE_RATE_44100 = 0,
  SAMPLE_RATE_48000 = 1,
  SAMPLE_RATE_96000 = 2,
  SAMPLE_RATE_192000 = 3
} SampleRateType;

/*
 * Complex value of the integer FFT analysis: two 64-bit parts, Q28 for
 * products. (C hosts: do not include <complex.h> in the same unit, whose
 * `complex` macro would hide this type name.)
 */
typedef struct complex {
  int64_t re;
  int64_t im;
} complex;

KAFX_EXTERN_C_BEGIN

/* floor(sqrt(x)) for 0 <= x <= 65535 (bit-by-bit, 8 steps). */
KAFX_API unsigned int sqrt_fixed(unsigned int x);
/* Square root of an unsigned Q16 value in Q16, rounded to nearest. */
KAFX_API unsigned int sqrtFxQ16(unsigned int x);
/* e^x in Q16 for Q16 0 <= x < 681391 (shift-and-add, no tables). */
KAFX_API unsigned int exp_fixed(int x);
/* ln(x) in Q16 for Q16 x > 0. */
KAFX_API int log_fixed(int x);

KAFX_API void complex_init(complex* z, int re, int im);
KAFX_API void complex_setvalue(complex* z, int re, int im);
KAFX_API void complex_end(complex* z);
KAFX_API void complex_add(complex* a, complex* b, complex* out);
KAFX_API void complex_sub(complex* a, complex* b, complex* out);
KAFX_API void complex_mul(complex* a, complex* b, complex* out);
KAFX_API int64_t complex_getpower(complex* z);
KAFX_API void complex_swap(complex* a, complex* b);

KAFX_EXTERN_C_END

#endif
