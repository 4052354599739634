/*
 * Dynamic range control: a block-based look-ahead peak limiter with make-up
 * volume and a downward expander for very quiet input, on one channel of
 * 24-bit working samples. Each call measures a block, derives one target
 * gain, takes the minimum over the look-ahead span and applies a per-sample
 * smoothed gain (Q17) to the input delayed by lookahead * frame_len samples.
 */
#ifndef KAFX_PROC_DRC_H
#define KAFX_PROC_DRC_H

#include "delay.h"

/* The five limiter parameters as passed through the chains. */
typedef struct drc_param_t {
  int32_t attact_order;      /* envelope shift on a rising peak (0 = jump) */
  int32_t release_order;     /* envelope shift on a falling peak */
  int32_t threshold;         /* limiting threshold, 16-bit units */
  int32_t volume;            /* make-up volume, Q13 */
  int32_t denoise_threshold; /* expander threshold on the mean level, 24-bit units */
} drc_param_t;

typedef struct dynamic_range_control_t {
  int32_t threshold;         /* 32767 */
  int32_t attact_order;      /* 0 */
  int32_t release_order;     /* 5 */
  int32_t volume;            /* Q13, 8192 */
  int32_t gain;              /* Q17 gain at the last sample, 131072 */
  int32_t envelope;          /* smoothed peak, 16-bit units */
  int32_t denoise_gain;      /* smoothed expander gain, Q17, starts at 8192 */
  int32_t level;             /* smoothed mean absolute level, 24-bit units */
  int32_t denoise_threshold; /* never below 2; 256 */
  int32_t lookahead;         /* look-ahead blocks */
  int32_t frame_len;         /* samples per block */
  int32_t* gain_history;     /* lookahead + 1 block gains (Q17), owned */
  int32_t last_gains[3];     /* recent block gains, kept for inspection */
  audio_delay* delay;        /* lookahead * frame_len samples, owned */
} dynamic_range_control_t;

KAFX_EXTERN_C_BEGIN

KAFX_API void dynamic_range_control_init(dynamic_range_control_t* d, int lookahead, int frame_len);
KAFX_API void dynamic_range_control_reinit(dynamic_range_control_t* d, int frame_len);
KAFX_API void dynamic_range_control_reset(dynamic_range_control_t* d);
KAFX_API void dynamic_range_control_end(dynamic_range_control_t* d);
KAFX_API void dynamic_range_control_set_threshold(dynamic_range_control_t* d, int v);
KAFX_API void dynamic_range_control_get_threshold(dynamic_range_control_t* d, int* v);
KAFX_API void dynamic_range_control_set_attact_order(dynamic_range_control_t* d, int v);
KAFX_API void dynamic_range_control_get_attact_order(dynamic_range_control_t* d, int* v);
KAFX_API void dynamic_range_control_set_release_order(dynamic_range_control_t* d, int v);
KAFX_API void dynamic_range_control_get_release_order(dynamic_range_control_t* d, int* v);
/* Stores the Q13 volume and puts volume * 8 into the Q17 gain (half its
 * value; the next block's smoothing moves it on). */
KAFX_API void dynamic_range_control_set_volume(dynamic_range_control_t* d, int v);
KAFX_API void dynamic_range_control_get_volume(dynamic_range_control_t* d, int* v);
/* Stores max(v, 2). */
KAFX_API void dynamic_range_control_set_denoise_threshold(dynamic_range_control_t* d, int v);
KAFX_API void dynamic_range_control_get_denoise_threshold(dynamic_range_control_t* d, int* v);
KAFX_API void dynamic_range_control_process(dynamic_range_control_t* d, int* in, int* out, int count);

KAFX_EXTERN_C_END

#endif
