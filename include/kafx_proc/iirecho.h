/*
 * IIR echo: one IIR comb (iircomber) per channel, the right loop half a
 * millisecond (24 samples at 48 kHz) longer than the left, mixed with the
 * dry voice:
 *
 *   c[n]   = iircomber_process(x[n], comb)          (loop written value)
 *   out[n] = (dry * x[n] + wet * c[n]) >> 13        (64-bit sum, low 32 bits)
 *
 * with a result of exactly -1 flushed to 0, so a tail reaches exact silence.
 * Gains and feedback are Q13 (8192 = 1.0); samples are 24-bit working samples
 * in int32. The loop wraps (no saturation), as the IIR comb does.
 *
 * Delay unit: milliseconds at 48 kHz (48 samples each), at most 350 ms.
 * Every change of feedback or delay clears both loops (the running echo is
 * cut); wet and dry changes act at the next sample without a reset.
 *
 * Robustness: a negative delay is passed to the combs as it is (computed with
 * wrap-around arithmetic); the IIR comb's position then wraps after every
 * sample, so the loop is one sample long and nothing outside the buffers is
 * touched. A null record is not guarded against (as every block).
 */
#ifndef KAFX_PROC_IIRECHO_H
#define KAFX_PROC_IIRECHO_H

#include "delay.h"
#include "kafx_export.h"

#define IIRECHO_MAX_DELAY_MS 350
#define IIRECHO_LEFT_CAPACITY 16800  /* 350 ms * 48 */
#define IIRECHO_RIGHT_CAPACITY 16824 /* and half a millisecond more */

typedef struct iirecho {
  int32_t feedback;  /* Q13 loop gain of both combs, default 4096 */
  int32_t delay;     /* ms, default 1, at most 350 */
  int32_t dry;       /* Q13, default 2703 */
  int32_t wet;       /* Q13, default 5489 */
  int32_t status;    /* default 1 (on); the owner tests it */
  iircomber* left;   /* owned, capacity 16800 samples */
  iircomber* right;  /* owned, capacity 16824 samples */
} iirecho;

KAFX_EXTERN_C_BEGIN

KAFX_API void iirecho_init(iirecho* e);
KAFX_API void iirecho_end(iirecho* e);
/* Re-applies feedback and delay to both combs and clears them. */
KAFX_API void iirecho_update(iirecho* e);
KAFX_API void iirecho_setfeedback(iirecho* e, int feedback);
KAFX_API void iirecho_getfeedback(iirecho* e, int* feedback);
/* Stores min(ms, 350); combs get ms * 48 and ms * 48 + 24 samples. */
KAFX_API void iirecho_setdelay(iirecho* e, int ms);
KAFX_API void iirecho_getdelay(iirecho* e, int* ms);
KAFX_API void iirecho_setwet(iirecho* e, int wet);
KAFX_API void iirecho_getwet(iirecho* e, int* wet);
KAFX_API void iirecho_setdry(iirecho* e, int dry);
KAFX_API void iirecho_getdry(iirecho* e, int* dry);
KAFX_API void iirecho_setstatus(iirecho* e, int status);
KAFX_API void iirecho_getstatus(iirecho* e, int* status);
/* In place allowed; nothing when count < 1. Does not test the status. */
KAFX_API void iirecho_processStereo(iirecho* e, int* in_left, int* in_right, int* out_left, int* out_right,
                                    int count);

KAFX_EXTERN_C_END

#endif
