/*
 * Graphic equalizer: a Q13 input gain followed by ten biquad sections per
 * channel (32-bit variant, Q28 coefficients, 24-bit working samples), the
 * same bands on both channels.
 *
 * Bands are set either from a gain index per band (-15..+15, 1 dB per step;
 * values outside are clamped and stored clamped) that selects a row of the
 * built-in table of the sample rate (44100, 48000 or 96000 Hz; any other
 * rate class uses the 48000 Hz table), or from ten raw coefficient sets.
 *   band 0: low shelf, bands 1..8: peaks at 62.5 Hz * 2^(b-1), band 9: high shelf.
 *
 * Per sample and channel: x * gain >> 13 (64-bit product, saturated to
 * int32, -1 flushed to 0), then the ten sections in band order; each section
 * saturates its input x 32 and its accumulator as the biquad section does.
 * The owner reads and writes `status`; the block never reads it. Outputs may
 * alias inputs; count < 1 does nothing. No argument is checked (a null
 * record or buffer is the caller's fault).
 */
#ifndef KAFX_PROC_EQUALIZER_H
#define KAFX_PROC_EQUALIZER_H

#include "biquad.h"
#include "fixed_math.h"

#define EQUALIZER_BANDS 10
#define EQUALIZER_MAX_INDEX 15

typedef struct equalizer_t {
  int32_t status;                       /* 0 off (init), non-zero on; read by the owner only */
  int32_t gain;                         /* input gain, Q13 (init 8192) */
  int32_t band_index[EQUALIZER_BANDS];  /* last index set per band (init 0) */
  IIR_t* left_band[EQUALIZER_BANDS];    /* left cascade, band 0 first (owned) */
  IIR_t* right_band[EQUALIZER_BANDS];   /* right cascade, band 0 first (owned) */
} equalizer_t;

KAFX_EXTERN_C_BEGIN

/* status 0, gain 8192, indices 0; twenty pass-through sections. */
KAFX_API void equalizer_init(equalizer_t* eq);
/* Clears the history of all twenty sections. */
KAFX_API void equalizer_reset(equalizer_t* eq);
/* Indices to 0; ends, frees and nulls every section. */
KAFX_API void equalizer_end(equalizer_t* eq);
/* Copies set k (b0, b1, b2, a1, a2 in Q28) into both sections of band k;
 * indices, section statuses and histories are untouched. */
KAFX_API void equalizer_setparameter(equalizer_t* eq, const int (*coef)[5]);
/* Writes the ten coefficient sets back (the right cascade's values). */
KAFX_API void equalizer_getparameter(equalizer_t* eq, int (*coef)[5]);
/* indices: ten gain indices, band 0 first. */
KAFX_API void equalizer_set_param_index_44100(equalizer_t* eq, const int* indices);
KAFX_API void equalizer_set_param_index_48000(equalizer_t* eq, const int* indices);
KAFX_API void equalizer_set_param_index_96000(equalizer_t* eq, const int* indices);
/* 0 selects the 44100 Hz table, 2 the 96000 Hz table, anything else 48000 Hz. */
KAFX_API void equalizer_set_param_index(equalizer_t* eq, const int* indices, SampleRateType rate);
KAFX_API void equalizer_get_param_index(equalizer_t* eq, int* indices);
KAFX_API void equalizer_process_stereo(equalizer_t* eq, int* in_left, int* in_right, int* out_left, int* out_right,
                                       int count);
/* The left gain stage and cascade only. */
KAFX_API void equalizer_process_mono(equalizer_t* eq, int* in, int* out, int count);

KAFX_EXTERN_C_END

#endif
