/*
 * Circular-buffer blocks, one sample per call:
 *   audio_delay  pure delay of up to `size` samples
 *   allpass      Schroeder all-pass H(z) = (g + z^-N) / (1 + g z^-N), g Q13
 *   comber       feedback comb with a one-pole damping low-pass in its loop;
 *                the loop runs in Q28 (16-bit sample << 13, working sample << 5)
 *   iircomber    feedback comb whose loop holds a first-order IIR section;
 *                wrap-around arithmetic throughout
 * Buffers hold one 32-bit word per sample, allocated by init and cleared.
 * The per-sample functions of the comb, all-pass and IIR comb take the sample
 * first and the record last; the delay takes the record first.
 */
#ifndef KAFX_PROC_DELAY_H
#define KAFX_PROC_DELAY_H

#include "kafx_export.h"

typedef struct audio_delay {
  int32_t* buffer; /* size words, owned */
  int32_t size;    /* capacity, fixed at init */
  int32_t delay;   /* 0..size, 0 = pass-through */
  int32_t index;   /* read/write position */
} audio_delay;

typedef struct allpass {
  int32_t feedback; /* Q13 g, default 4096 */
  int32_t* buffer;
  int32_t size;     /* loop length N */
  int32_t index;
} allpass;

typedef struct comber {
  int32_t feedback;        /* Q13 loop gain, default 4096 */
  int32_t lowpass_state;   /* damping low-pass state, Q28 loop scale */
  int32_t damp;            /* Q13 weight of the previous low-pass state, default 8192 */
  int32_t damp_complement; /* Q13 weight of the delayed sample, default 0 */
  int32_t* buffer;
  int32_t size;
  int32_t index;
} comber;

typedef struct iircomber {
  int32_t* buffer;
  int32_t size;
  int32_t index;
  int32_t feedback; /* Q13, default 4096 */
  int32_t b0;       /* Q13, default 4096 */
  int32_t b1;       /* Q13, default 4096 */
  int32_t a1;       /* Q13, subtracted, default 5734 */
  int32_t delay;    /* loop length, default 0 */
  int32_t x1;       /* previous delayed sample */
  int32_t y1;       /* previous loop-filter output */
} iircomber;

KAFX_EXTERN_C_BEGIN

KAFX_API void audio_delay_init(audio_delay* d, int len);
KAFX_API void audio_delay_reinit(audio_delay* d, int len);
KAFX_API void audio_delay_set_delay(audio_delay* d, int len);
KAFX_API void audio_delay_get_delay(audio_delay* d, int* len);
KAFX_API void audio_delay_reset(audio_delay* d);
KAFX_API void audio_delay_end(audio_delay* d);
KAFX_API int audio_delay_process(audio_delay* d, int x);

KAFX_API void allpass_init(allpass* a, int len);
KAFX_API void allpass_reset(allpass* a);
KAFX_API void allpass_end(allpass* a);
KAFX_API void allpass_setfeedback(allpass* a, int feedback);
KAFX_API void allpass_getfeedback(allpass* a, int* feedback);
KAFX_API int allpass_process(int x, allpass* a);

KAFX_API void comb_init(comber* c, int len);
KAFX_API void comb_reset(comber* c);
KAFX_API void comb_end(comber* c);
KAFX_API void comb_setfeedback(comber* c, int feedback);
KAFX_API void comb_setsetdamp(comber* c, int damp);
KAFX_API int comb_process_16(int x, comber* c);
KAFX_API int comb_process_24(int x, comber* c);

/* No end function: the owner frees `buffer` (the first field) and nulls it. */
KAFX_API void iircomber_init(iircomber* c, int len);
KAFX_API void iircomber_reset(iircomber* c);
KAFX_API void iircomber_setdelay(iircomber* c, int len);
KAFX_API void iircomber_getdelay(iircomber* c, int* len);
KAFX_API void iircomber_setfeedback(iircomber* c, int feedback);
KAFX_API void iircomber_getfeedback(iircomber* c, int* feedback);
KAFX_API int iircomber_process(int x, iircomber* c);

KAFX_EXTERN_C_END

#endif
