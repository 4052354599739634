/*
 * Speaker boost system: pre-filter, four-band crossover per channel, a
 * look-ahead limiter on each of the three upper bands, harmonic bass (NLD of
 * the mono lowest band plus a band-pass) replacing the lowest band, and a
 * full-band limiter per channel, on blocks of 24-bit working samples.
 * Total delay: 2 * lookahead * frame_len samples.
 */
#ifndef KAFX_PROC_SPEAKER_BOOST_SYSTEM_H
#define KAFX_PROC_SPEAKER_BOOST_SYSTEM_H

#include "band_split.h"
#include "drc.h"
#include "fixed_math.h"

#define SPEAKER_BOOST_SYSTEM_MAX_BLOCK 256

typedef struct speaker_boost_system_t {
  int32_t status;         /* 0 = off (the chain skips the block); init 0 */
  int32_t nld_gain_left;  /* Q13 harmonic-band gain into the left output */
  int32_t nld_gain_right; /* Q13 harmonic-band gain into the right output */
  int32_t channel_num;    /* stored only */
  spectral_band_split* split1_left;
  spectral_band_split* split2_left;
  spectral_band_split* split3_left;
  spectral_band_split* split1_right;
  spectral_band_split* split2_right;
  spectral_band_split* split3_right;
  NLD* nld;
  IIR_t* nld_filter; /* band-pass after the NLD */
  IIR_t* pre_filter_left;
  IIR_t* pre_filter_right;
  int32_t lookahead; /* 2 */
  int32_t frame_len; /* 960 until a rate is set */
  audio_delay* nld_delay_left;
  audio_delay* nld_delay_right;
  dynamic_range_control_t* drc_low_left;
  dynamic_range_control_t* drc_mid_left;
  dynamic_range_control_t* drc_high_left;
  dynamic_range_control_t* drc_low_right;
  dynamic_range_control_t* drc_mid_right;
  dynamic_range_control_t* drc_high_right;
  dynamic_range_control_t* drc_full_left;
  dynamic_range_control_t* drc_full_right;
  int32_t* band0_left;
  int32_t* band1_left;
  int32_t* band2_left;
  int32_t* band3_left;
  int32_t* sum_left;
  int32_t* band0_right;
  int32_t* band1_right;
  int32_t* band2_right;
  int32_t* band3_right;
  int32_t* sum_right;
} speaker_boost_system_t;

KAFX_EXTERN_C_BEGIN

KAFX_API void speaker_boost_system_init(speaker_boost_system_t* s);
KAFX_API void speaker_boost_system_set_sample_rate(speaker_boost_system_t* s, SampleRateType rate);
KAFX_API void speaker_boost_system_reset(speaker_boost_system_t* s);
KAFX_API void speaker_boost_system_end(speaker_boost_system_t* s);
KAFX_API void speaker_boost_system_setstatus(speaker_boost_system_t* s, int v);
KAFX_API void speaker_boost_system_getstatus(speaker_boost_system_t* s, int* v);
KAFX_API void speaker_boost_system_set_nld_gain_left(speaker_boost_system_t* s, int v);
KAFX_API void speaker_boost_system_get_nld_gain_left(speaker_boost_system_t* s, int* v);
KAFX_API void speaker_boost_system_set_nld_gain_right(speaker_boost_system_t* s, int v);
KAFX_API void speaker_boost_system_get_nld_gain_right(speaker_boost_system_t* s, int* v);
KAFX_API void speaker_boost_system_set_channel_num(speaker_boost_system_t* s, int v);
KAFX_API void speaker_boost_system_get_channel_num(speaker_boost_system_t* s, int* v);
/* Five Q28 coefficients of the harmonic band-pass; its history is kept. */
KAFX_API void speaker_boost_system_set_nld_param(speaker_boost_system_t* s, int* coef);
KAFX_API void speaker_boost_system_get_nld_param(speaker_boost_system_t* s, int* coef);
/* Outputs may alias inputs. A block is normally at most 256 samples (one
 * limiter block); longer calls are processed as consecutive chunks of 256
 * so that the band buffers are never overrun. */
KAFX_API void speaker_boost_system_process_stereo(speaker_boost_system_t* s, int* in_left, int* in_right,
                                                  int* out_left, int* out_right, int count);
KAFX_API void speaker_boost_system_process_mono(speaker_boost_system_t* s, int* in, int* out, int count);

/*
 * Limiter accessors, 80 in all:
 *   speaker_boost_system_drc_<band>_<side>_set_<param>(s, int)
 *   speaker_boost_system_drc_<band>_<side>_get_<param>(s, int*)
 * band: low mid high full; side: left right;
 * param: attact_order release_order threshold denoise_threshold volume.
 * Each forwards to dynamic_range_control_set_/get_<param> of drc_<band>_<side>.
 */
#define SPEAKER_BOOST_SYSTEM_FOR_EACH_LIMITER(X) \
  X(low, left) X(mid, left) X(high, left) X(full, left) \
  X(low, right) X(mid, right) X(high, right) X(full, right)
#define SPEAKER_BOOST_SYSTEM_FOR_EACH_DRC_PARAM(X, band, side) \
  X(band, side, attact_order) X(band, side, release_order) X(band, side, threshold) \
  X(band, side, denoise_threshold) X(band, side, volume)

#define SPEAKER_BOOST_SYSTEM_DECLARE_DRC_ACCESSOR_(band, side, param)                         \
  KAFX_API void speaker_boost_system_drc_##band##_##side##_set_##param(speaker_boost_system_t* s, \
                                                                         int v);              \
  KAFX_API void speaker_boost_system_drc_##band##_##side##_get_##param(speaker_boost_system_t* s, \
                                                                         int* v);
#define SPEAKER_BOOST_SYSTEM_DECLARE_DRC_ACCESSORS_(band, side) \
  SPEAKER_BOOST_SYSTEM_FOR_EACH_DRC_PARAM(SPEAKER_BOOST_SYSTEM_DECLARE_DRC_ACCESSOR_, band, side)
SPEAKER_BOOST_SYSTEM_FOR_EACH_LIMITER(SPEAKER_BOOST_SYSTEM_DECLARE_DRC_ACCESSORS_)

KAFX_EXTERN_C_END

#endif
