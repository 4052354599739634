/*
 * Second-order notch, one 24-bit working sample per call:
 *
 *   H(z) = (1 + m z^-1 + z^-2) / (1 + r m z^-1 + r^2 z^-2)
 *
 * with m = centre / 2^28 = -2 cos(w0) (Q28) and r = radius / 8192 (Q13):
 * zeros on the unit circle at w0, poles at radius r behind them. All
 * arithmetic is signed 64-bit with wrapping products; the output carries 13
 * bits of rounding remainder into the next sample (first-order error
 * feedback) and is taken as the low 32 bits, with -1 returned as 0.
 * notch_setfi moves the centre without clearing the history, so a notch can
 * glide to a new frequency without a click. Nothing is validated.
 */
#ifndef KAFX_PROC_NOTCH_H
#define KAFX_PROC_NOTCH_H

#include "kafx_export.h"

typedef struct notch {
  int32_t radius; /* pole radius r, Q13 */
  int32_t centre; /* m = -2 cos(w0), Q28 */
  int64_t* state; /* 5 words, owned: x[n-1], x[n-2], y[n-1], y[n-2], rounding remainder */
} notch;

KAFX_EXTERN_C_BEGIN

KAFX_API void notch_init(notch* n, int radius, int centre);
KAFX_API void notch_setcoef(notch* n, int radius, int centre);
KAFX_API void notch_setfi(notch* n, int centre);
KAFX_API void notch_resetstate(notch* n);
KAFX_API void notch_end(notch* n);
KAFX_API void notch_process(notch* n, int* in, int* out);

KAFX_EXTERN_C_END

#endif
