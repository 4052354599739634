/*
 * Smooth volume: a stereo Q13 gain that glides towards its target one sample
 * at a time (both channels share the gain). Per sample the output is
 * in * current_gain >> 13 (64-bit product, saturated to int32), then the gain
 * moves by 1/2^shift of the remaining distance, by a further 1/2^(shift-2)
 * once within 2^shift, and snaps onto the target within 2^(shift-2), so a
 * glide always ends exactly on the target. shift = smooth_buffer_num + 5.
 *
 * The record has no status: its owner runs it on every block. count < 1 does
 * nothing; outputs may alias inputs. No argument is checked.
 */
#ifndef KAFX_PROC_SMOOTH_VOLUME_H
#define KAFX_PROC_SMOOTH_VOLUME_H

#include "kafx_export.h"

typedef struct smooth_volume_t {
  int32_t current_gain;      /* gain applied now, Q13 (init 0) */
  int32_t smooth_buffer_num; /* smoothing setting (init 2) */
  int32_t target_gain;       /* gain to glide to, Q13 (init 8192) */
  int32_t shift;             /* smooth_buffer_num + 5 (init 7) */
} smooth_volume_t;

KAFX_EXTERN_C_BEGIN

KAFX_API void smooth_volume_init(smooth_volume_t* v);
/* current_gain = 8192 - target_gain: the glide restarts from the far end. */
KAFX_API void smooth_volume_reset(smooth_volume_t* v);
/* Nothing to release; the owner frees the record. */
KAFX_API void smooth_volume_end(smooth_volume_t* v);
KAFX_API void smooth_volume_set_smooth_buffer_num(smooth_volume_t* v, int n);
KAFX_API void smooth_volume_get_smooth_buffer_num(smooth_volume_t* v, int* n);
/* Target gain, Q13. */
KAFX_API void smooth_volume_set_volume(smooth_volume_t* v, int gain);
KAFX_API void smooth_volume_get_volume(smooth_volume_t* v, int* gain);
/* Writes current_gain directly; the glide continues from there. */
KAFX_API void smooth_volume_set_soft_volume(smooth_volume_t* v, int gain);
KAFX_API void smooth_volume_process(smooth_volume_t* v, int* in_left, int* in_right, int* out_left, int* out_right,
                                    int count);

KAFX_EXTERN_C_END

#endif
