/*
 * Speaker-boost chain: channel balance, parametric equalizer and speaker boost
 * system on planar blocks of 24-bit working samples, in place, clamped to
 * +-8388607. Blocks run only when their status word is non-zero.
 */
#ifndef KAFX_PROC_SPEAKER_BOOST_CHAIN_H
#define KAFX_PROC_SPEAKER_BOOST_CHAIN_H

#include "channel_balance.h"
#include "drc.h"
#include "fixed_math.h"
#include "parametric_eq.h"
#include "speaker_boost_system.h"

/* Size of the format wrappers' scratch blocks. */
#define KEDO_SPEAKER_BOOST_MAX_BLOCK 256

typedef struct kedo_speaker_boost_t {
  int32_t enable;         /* stored and reported only; init 0 */
  int32_t channel_num;    /* 2 = stereo, anything else = mono of the left channel */
  SampleRateType rate_type;
  parameter_equalizer_t* p_eq;
  speaker_boost_system_t* sbs;
  channel_balance_t* cb;
  int32_t* work_left;     /* 256-sample scratch of the format wrappers */
  int32_t* work_right;
} kedo_speaker_boost_t;

KAFX_EXTERN_C_BEGIN

KAFX_API void kedo_speaker_boost_init(kedo_speaker_boost_t* c);
/* 44100 -> 0, 96000 -> 2, 192000 -> 3, anything else -> 1 (48000). */
KAFX_API void kedo_speaker_boost_set_sample_rate(kedo_speaker_boost_t* c, unsigned int rate);
KAFX_API void kedo_speaker_boost_reset(kedo_speaker_boost_t* c);
KAFX_API void kedo_speaker_boost_end(kedo_speaker_boost_t* c);
KAFX_API void kedo_speaker_boost_set_channel_num(kedo_speaker_boost_t* c, int num);

KAFX_API void kedo_speaker_boost_p_eq_setstatus(kedo_speaker_boost_t* c, int v);
KAFX_API void kedo_speaker_boost_p_eq_getstatus(kedo_speaker_boost_t* c, int* v);
KAFX_API void kedo_speaker_boost_p_eq_set_gain_left(kedo_speaker_boost_t* c, int v);
KAFX_API void kedo_speaker_boost_p_eq_get_gain_left(kedo_speaker_boost_t* c, int* v);
KAFX_API void kedo_speaker_boost_p_eq_set_gain_right(kedo_speaker_boost_t* c, int v);
KAFX_API void kedo_speaker_boost_p_eq_get_gain_right(kedo_speaker_boost_t* c, int* v);
KAFX_API void kedo_speaker_boost_p_eq_setparameter_left(kedo_speaker_boost_t* c, const int (*bands)[6]);
KAFX_API void kedo_speaker_boost_p_eq_getparameter_left(kedo_speaker_boost_t* c, int (*bands)[6]);
KAFX_API void kedo_speaker_boost_p_eq_setparameter_right(kedo_speaker_boost_t* c, const int (*bands)[6]);
KAFX_API void kedo_speaker_boost_p_eq_getparameter_right(kedo_speaker_boost_t* c, int (*bands)[6]);

KAFX_API void kedo_speaker_boost_sbs_setstatus(kedo_speaker_boost_t* c, int v);
KAFX_API void kedo_speaker_boost_sbs_getstatus(kedo_speaker_boost_t* c, int* v);
KAFX_API void kedo_speaker_boost_sbs_set_nld_gain_left(kedo_speaker_boost_t* c, int v);
KAFX_API void kedo_speaker_boost_sbs_get_nld_gain_left(kedo_speaker_boost_t* c, int* v);
KAFX_API void kedo_speaker_boost_sbs_set_nld_gain_right(kedo_speaker_boost_t* c, int v);
KAFX_API void kedo_speaker_boost_sbs_get_nld_gain_right(kedo_speaker_boost_t* c, int* v);
KAFX_API void kedo_speaker_boost_sbs_set_channel_num(kedo_speaker_boost_t* c, int v);
KAFX_API void kedo_speaker_boost_sbs_get_channel_num(kedo_speaker_boost_t* c, int* v);
KAFX_API void kedo_speaker_boost_sbs_set_nld_param(kedo_speaker_boost_t* c, int* coef);
KAFX_API void kedo_speaker_boost_sbs_get_nld_param(kedo_speaker_boost_t* c, int* coef);

/* kedo_speaker_boost_sbs_set_drc_<band>_<side>(c, const drc_param_t*) and
 * kedo_speaker_boost_sbs_get_drc_<band>_<side>(c, drc_param_t*). */
#define KEDO_SPEAKER_BOOST_DECLARE_DRC_(band, side)                                          \
  KAFX_API void kedo_speaker_boost_sbs_set_drc_##band##_##side(kedo_speaker_boost_t* c,     \
                                                               const drc_param_t* p);       \
  KAFX_API void kedo_speaker_boost_sbs_get_drc_##band##_##side(kedo_speaker_boost_t* c, drc_param_t* p);
SPEAKER_BOOST_SYSTEM_FOR_EACH_LIMITER(KEDO_SPEAKER_BOOST_DECLARE_DRC_)

KAFX_API void kedo_speaker_boost_cb_setstatus(kedo_speaker_boost_t* c, int v);
KAFX_API void kedo_speaker_boost_cb_getstatus(kedo_speaker_boost_t* c, int* v);
KAFX_API void kedo_speaker_boost_cb_set_channel_ration(kedo_speaker_boost_t* c, int v);
KAFX_API void kedo_speaker_boost_cb_get_channel_ration(kedo_speaker_boost_t* c, int* v);
KAFX_API void kedo_speaker_boost_cb_set_channel_num(kedo_speaker_boost_t* c, int v);
KAFX_API void kedo_speaker_boost_cb_get_channel_num(kedo_speaker_boost_t* c, int* v);

/* In place on `count` working samples per channel (count <= 256). */
KAFX_API void kedo_speaker_boost_core_process(kedo_speaker_boost_t* c, int* left, int* right, int count);
/*
 * Format wrappers over the 256-sample scratch blocks. A count above 256 is
 * refused: nothing is processed and the outputs are not written.
 *   process_16: planar 16-bit in and out (truncating conversion back).
 *   process_24: planar 32-bit in and out, audio scaled by 16 against the
 *               working format.
 *   process_v2: bits == 16 selects process_16, anything else process_24.
 */
KAFX_API void kedo_speaker_boost_process_16(kedo_speaker_boost_t* c, void* in_left, void* in_right,
                                            void* out_left, void* out_right, int count);
KAFX_API void kedo_speaker_boost_process_24(kedo_speaker_boost_t* c, void* in_left, void* in_right,
                                            void* out_left, void* out_right, int count);
KAFX_API void kedo_speaker_boost_process_v2(kedo_speaker_boost_t* c, int bits, void* in_left,
                                            void* in_right, void* out_left, void* out_right, int count);

KAFX_EXTERN_C_END

#endif
