/*
 * Stereo room reverb: per channel eight parallel damped combs (Q28 loops,
 * prime lengths 1109..2579 samples) fed by that channel alone, four series
 * Schroeder all-passes (g = 0.5), a wet/dry/width mix and a DC blocker.
 * The delay lengths are the same at every sample rate.
 *
 * Parameters are Q13 (8192 = 1.0) and take effect at reverb_update:
 *   feedback = sat((roomsize * 2333) >> 13) + 5779 (saturating add)
 *   damping  = sat((damp * 3301) >> 13)
 *   wet_gain = sat(wet * 3), dry_gain = sat(dry * 2)
 *   wet1 = sat(wet_gain * (width/2 + 4096) >> 13), wet2 = sat(wet_gain * (8192 - width/2) >> 13)
 * Process paths:
 *   _24   working samples (Q23 in int32): input * gain >> 13 into the combs,
 *         sums of comb outputs wrap in 32 bits, the 64-bit mix is saturated
 *         to int32 and DC-blocked.
 *   _16   16-bit samples through the 16-bit combs and DC blocker, each output
 *         clamped to -32768..32767.
 *   Mono  16-bit, left network only, input * gain >> 14 and a 32-bit mix
 *         (wrapping) clamped to 16 bits; no DC blocker.
 * Input and output buffers may coincide. The record is owned by the caller;
 * reverb_init allocates the filters (allocation is not checked), reverb_end
 * frees them. init leaves status 0; the owner tests status. No argument is
 * validated; a count of 0 does nothing.
 */
#ifndef KAFX_PROC_REVERB_H
#define KAFX_PROC_REVERB_H

#include "kafx_export.h"
#include "dc_remove.h"
#include "delay.h"

typedef struct reverb_t {
  int32_t wet_gain;  /* wet * 3, init 8190 */
  int32_t wet1;      /* gain on the same channel's reverb */
  int32_t wet2;      /* gain on the other channel's reverb */
  int32_t dry_gain;  /* dry * 2, init 0 */
  int32_t feedback;  /* comb feedback from the room size, init 6945 */
  int32_t damping;   /* comb damping from damp, init 1650 */
  int32_t width;     /* init 8192 */
  int32_t gain;      /* input gain into the combs, init 127 */
  int32_t status;    /* 0 off (init), non-zero on */
  comber* comb_left[8];
  comber* comb_right[8];
  allpass* allpass_left[4];
  allpass* allpass_right[4];
  dc_remove* dc_left;
  dc_remove* dc_right;
  int32_t wet;       /* as set, init 2730 */
  int32_t dry;       /* as set, init 0 */
  int32_t roomsize;  /* as set, init 4096 */
  int32_t damp;      /* as set, init 4096 */
} reverb_t;

KAFX_EXTERN_C_BEGIN

KAFX_API void reverb_init(reverb_t* r);
KAFX_API void reverb_reset(reverb_t* r);
KAFX_API void reverb_end(reverb_t* r);
KAFX_API void reverb_update(reverb_t* r);
KAFX_API void reverb_setroomsize(reverb_t* r, int value);
KAFX_API void reverb_getroomsize(reverb_t* r, int* value);
KAFX_API void reverb_setdamp(reverb_t* r, int value);
KAFX_API void reverb_getdamp(reverb_t* r, int* value);
KAFX_API void reverb_setwet(reverb_t* r, int value);
KAFX_API void reverb_getwet(reverb_t* r, int* value);
KAFX_API void reverb_setdry(reverb_t* r, int value);
KAFX_API void reverb_getdry(reverb_t* r, int* value);
KAFX_API void reverb_setwidth(reverb_t* r, int value);
KAFX_API void reverb_getwidth(reverb_t* r, int* value);
KAFX_API void reverb_setgain(reverb_t* r, int value);
KAFX_API void reverb_getgain(reverb_t* r, int* value);
KAFX_API void reverb_setstatus(reverb_t* r, int status);
KAFX_API void reverb_getstatus(reverb_t* r, int* status);
KAFX_API void reverb_process_stereo_24(reverb_t* r, int* in_left, int* in_right, int* out_left, int* out_right,
                                      unsigned int count);
KAFX_API void reverb_process_stereo_16(reverb_t* r, short* in_left, short* in_right, short* out_left,
                                      short* out_right, unsigned int count);
KAFX_API void reverb_processMono(reverb_t* r, short* in, short* out, int count);

KAFX_EXTERN_C_END

#endif
