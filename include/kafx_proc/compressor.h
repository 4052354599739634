/*
 * Voice compressor: a stereo pair of dynamic range controllers (see drc.h),
 * one per channel, independent (no linked gain), with one shared tuning:
 * threshold 30720 (16-bit units), denoise threshold 1 (stored as 2), attack
 * order 0, release order 7, the compressor's volume (Q13) as make-up volume,
 * a look-ahead of `delay_frames` blocks. Blocks are 960 samples after init
 * and the 5 ms length of the rate (220, 240, 480, 960) after
 * compressor_set_sample_rate. Samples are 24-bit working samples; every gain
 * product saturates to int32.
 *
 * compressor_init leaves `status` at 0; compressor_process does not test it
 * (the owner does). No argument is checked. Outputs may alias inputs.
 */
#ifndef KAFX_PROC_COMPRESSOR_H
#define KAFX_PROC_COMPRESSOR_H

#include "drc.h"
#include "fixed_math.h"

typedef struct compressor_t {
  int32_t status;                      /* 0 = bypass, non-zero = run; read by the owner */
  int32_t volume;                      /* Q13 gain handed to both controllers */
  int32_t delay_frames;                /* look-ahead in blocks, from init */
  dynamic_range_control_t* drc_left;   /* owned */
  dynamic_range_control_t* drc_right;  /* owned */
} compressor_t;

KAFX_EXTERN_C_BEGIN

KAFX_API void compressor_init(compressor_t* c, int volume, int delay_frames);
KAFX_API void compressor_reset(compressor_t* c);
/* Rate classes outside 0..3 act as 1 (48000 Hz, 240-sample blocks). */
KAFX_API void compressor_set_sample_rate(compressor_t* c, SampleRateType rate);
KAFX_API void compressor_end(compressor_t* c);
KAFX_API void compressor_set_volume(compressor_t* c, int volume);
KAFX_API void compressor_get_volume(compressor_t* c, int* volume);
KAFX_API void compressor_setstatus(compressor_t* c, int status);
KAFX_API void compressor_getstatus(compressor_t* c, int* status);
/* One block per channel; count is normally the block length. */
KAFX_API void compressor_process(compressor_t* c, int* in_left, int* in_right, int* out_left, int* out_right,
                                 int count);

KAFX_EXTERN_C_END

#endif
