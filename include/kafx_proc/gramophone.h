/*
 * Gramophone effect: the sound of an old record player on the mono voice at
 * 48 kHz. Each 24-bit working sample (int32, full scale 8388607) goes
 *
 *   overdrive_process    cubic soft clip of the doubled input: with
 *                        v = 2x / 2^23, out = 2v up to |v| = 1/3,
 *                        sign(v) (1 - (2 - 3|v|)^2 / 3) up to 2/3, sign(v)
 *                        beyond (integer form: a 64-bit square divided by
 *                        3 * 2^23, truncated); the doubling wraps in 32 bits;
 *   bit_shift_porocess   the roughening: x >= 0 gets its low 16 bits added
 *                        once more, x < 0 loses the complement of its low 16
 *                        bits (wrap-around arithmetic, deliberately asymmetric);
 *   elliptic filter      a sixth-order band-pass (Q20 coefficients): about
 *                        +2 dB at 1 kHz, -4.8 dB at 2 kHz, -7.7 dB at 700 Hz,
 *                        -21 dB at 500 Hz and 3 kHz, below -50 dB under
 *                        100 Hz and above 8 kHz.
 *
 * The band-pass's feedback coefficients sum to 17 LSB (Q20) below 1.0, so
 * its recursion has a DC gain near 61680: the floor of each output step
 * leaves a wandering offset of about -1000 (near -78 dBFS) once the filter
 * has been excited; it never rings down to exact zero.
 * No noise generator: the effect is deterministic. The filter history is the
 * only state; there is no reset (re-enabling keeps the old history).
 * gramophone_process does not test `status` (the owner does); in place is
 * allowed; count < 1 does nothing. A null record is not guarded against.
 */
#ifndef KAFX_PROC_GRAMOPHONE_H
#define KAFX_PROC_GRAMOPHONE_H

#include "elliptic.h"
#include "kafx_export.h"

typedef struct gramophone {
  elliptic* filter; /* owned; bound to the gramophone band-pass */
  int32_t status;   /* 0 = bypass (init), non-zero = run */
} gramophone;

KAFX_EXTERN_C_BEGIN

KAFX_API void gramophone_init(gramophone* g);
KAFX_API void gramophone_end(gramophone* g);
KAFX_API void gramophone_setstatus(gramophone* g, int status);
KAFX_API void gramophone_getstatus(gramophone* g, int* status);
KAFX_API void overdrive_process(int* in, int* out);
KAFX_API void bit_shift_porocess(int* in, int* out);
KAFX_API void gramophone_process(gramophone* g, int* in, int* out, int count);

KAFX_EXTERN_C_END

#endif
