/*
 * Smart volume control: an automatic loudness leveller for the headphone
 * chain. Once per block it measures a frequency-weighted energy of the
 * stereo input (three measuring low-passes per channel split the signal into
 * four bands whose energies are weighted by right shifts) and a slow peak
 * envelope, decides a target gain (Q13, 0.25 .. 4.0, never a boost that would
 * push the expected peak past full scale), and glides the applied Q17 gain
 * towards it sample by sample (down 1/32, up 1/128 of the distance per
 * sample). The output is the input times that gain: 64-bit product, >> 17,
 * saturated to int32, -1 flushed to 0. The filters only measure.
 *
 * `status` is tested by the owner, not by process. count < 1 still updates
 * the envelope and the decision but writes no sample. Outputs may alias
 * inputs. No argument is checked.
 */
#ifndef KAFX_PROC_SMART_VOLUME_CONTROL_H
#define KAFX_PROC_SMART_VOLUME_CONTROL_H

#include "biquad.h"
#include "fixed_math.h"

typedef struct smart_volume_control_t {
  int32_t status;        /* 0 off (init), non-zero on */
  int32_t gain;          /* applied gain, Q17 (init 0: fades in from silence) */
  int32_t gain_max;      /* 131072, kept for the owner */
  int32_t level;         /* loudness setting, Q13 (init 8192) */
  int32_t attact_order;  /* energy smoothing shift while rising (init 3) */
  int32_t release_order; /* energy smoothing shift while falling (init 7) */
  int32_t peak_env;      /* slow envelope of block peaks, 16-bit scale */
  int32_t weight_low;    /* band energy weights as right shifts (negative: left) */
  int32_t weight_mid;
  int32_t weight_high;
  int32_t weight_rest;
  int32_t hold_count;    /* cleared by each gain decision, set_level and reset */
  int64_t threshold;     /* minimum weighted energy for a new decision */
  int64_t reference;     /* target weighted energy */
  int64_t energy;        /* smoothed weighted energy */
  IIR_t* lp_left[3];     /* low, mid, high measuring low-passes (owned) */
  IIR_t* lp_right[3];
} smart_volume_control_t;

KAFX_EXTERN_C_BEGIN

/* Defaults (those of set_level(8192)); the six filters get the 48000 Hz sets. */
KAFX_API void smart_volume_control_init(smart_volume_control_t* s);
/* Loads the filter sets of the rate (0: 44100, 2: 96000, other: 48000 Hz) and clears their history. */
KAFX_API void smart_volume_control_set_sample_rate(smart_volume_control_t* s, SampleRateType rate);
/* energy, peak_env, hold_count and gain to 0, filter histories cleared; settings stay. */
KAFX_API void smart_volume_control_reset(smart_volume_control_t* s);
KAFX_API void smart_volume_control_end(smart_volume_control_t* s);
/* level (Q13); p = level^2 * 67277003: threshold p >> 34, reference p >> 26, energy p >> 28. */
KAFX_API void smart_volume_control_set_level(smart_volume_control_t* s, int level);
KAFX_API void smart_volume_control_get_level(smart_volume_control_t* s, int* level);
KAFX_API void smart_volume_control_set_attact_order(smart_volume_control_t* s, int order);
KAFX_API void smart_volume_control_get_attact_order(smart_volume_control_t* s, int* order);
KAFX_API void smart_volume_control_set_release_order(smart_volume_control_t* s, int order);
KAFX_API void smart_volume_control_get_release_order(smart_volume_control_t* s, int* order);
KAFX_API void smart_volume_control_setstatus(smart_volume_control_t* s, int status);
KAFX_API void smart_volume_control_getstatus(smart_volume_control_t* s, int* status);
KAFX_API void smart_volume_control_process(smart_volume_control_t* s, int* in_left, int* in_right, int* out_left,
                                           int* out_right, int count);

KAFX_EXTERN_C_END

#endif
