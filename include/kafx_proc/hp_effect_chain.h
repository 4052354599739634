/*
 * Headphone chain: one instance of every headphone block, run in place on
 * two planar blocks of 24-bit working samples (Q23 in int32) in this order,
 * each block only while its status word is non-zero:
 *   channel balance -> virtual bass -> parametric equalizer, else graphic
 *   equalizer -> stereo widening, else reverb -> smart volume control ->
 *   compressor (always) ; then the smooth volume (always, also when the
 *   chain is not active).
 *
 * Presets are switched with a mute-and-restore fade driven by `fade_state`:
 *   6, 5  the smooth volume glides to 0 (fading out)
 *   4     the status in force and the calibration record are applied
 *   3     muted
 *   2     the smooth volume glides back to its unity target
 *   1, 0  finishing; -1 idle.
 * core_process never counts the state down: the owner subtracts 1 after
 * every block while it is above -1 (the front end does so once per block of
 * 240 or 256 frames).
 *
 * Calibration records are flat arrays of int32 whose first value is the
 * block's status; gains are Q13 (8192 = 1.0), biquad coefficients Q28 in the
 * order b0, b1, b2, a1, a2 with the feedback pair stored with the sign that
 * is added.
 *
 * Robustness choices of this library:
 *  - like every block, the chain does not check its handle or records: a
 *    null pointer is the caller's fault;
 *  - core_process and the format wrappers work on at most 256 samples per
 *    channel (the size of the blocks' internal buffers): a count above 256
 *    is refused as a whole (nothing runs, the fade state is not looked at,
 *    no sample and no output is written);
 *  - a count below 1 runs the fade and parameter logic and writes nothing.
 * The chain logs to the Android log, tag "kafx_hp_proc", when a record is
 * applied.
 */
#ifndef KAFX_PROC_HP_EFFECT_CHAIN_H
#define KAFX_PROC_HP_EFFECT_CHAIN_H

#include "channel_balance.h"
#include "compressor.h"
#include "equalizer.h"
#include "fixed_math.h"
#include "parametric_eq.h"
#include "reverb.h"
#include "smart_volume_control.h"
#include "smooth_volume.h"
#include "stereo_widening_system.h"
#include "virtual_bass_system.h"

/* Largest block of the chain and of its format wrappers. */
#define KEDO_HP_EFFECT_MAX_BLOCK 256
/* Number of headphone-adapter corrections (hpadapter_type 1..7). */
#define KEDO_HP_EFFECT_ADAPTERS 7

/* Effect presets (effect_type). */
#define KEDO_HP_EFFECT_STEREO_WIDENING 1
#define KEDO_HP_EFFECT_VIRTUAL_BASS 2
#define KEDO_HP_EFFECT_PARAMETRIC_EQ 3
#define KEDO_HP_EFFECT_REVERB 4
#define KEDO_HP_EFFECT_GRAPHIC_EQ 5

/* The host's calibration record: 31 ints (124 bytes). */
typedef struct audio_effect_control_acdb_t {
  int32_t effect_type;     /* 1 widening, 2 virtual bass, 3 parametric eq, 4 reverb, 5 graphic eq; else none */
  int32_t hpadapter_type;  /* 1..7: adapter correction (ignored with types 3 and 5); else none */
  int32_t effect_data[29]; /* type 4: roomsize, damp, wet, dry, width, gain (Q13);
                              type 5: the graphic equalizer's ten gain indices */
} audio_effect_control_acdb_t;

/* Parametric equalizer: 123 ints. Band records: enable, b0, b1, b2, a1, a2. */
typedef struct param_eq_param_acdb_t {
  int32_t status;
  int32_t gain_left;  /* Q13 */
  int32_t gain_right; /* Q13 */
  int32_t left_band[PARAMETER_EQUALIZER_BANDS][6];
  int32_t right_band[PARAMETER_EQUALIZER_BANDS][6];
} param_eq_param_acdb_t;

/* Graphic equalizer, raw coefficient sets: 52 ints. */
typedef struct eq_param_acdb_t {
  int32_t status;
  int32_t gain; /* Q13 input gain */
  int32_t band[EQUALIZER_BANDS][5];
} eq_param_acdb_t;

/* Graphic equalizer, gain indices (-15..15 dB): 11 ints. */
typedef struct equalizer_params {
  int32_t status;
  int32_t index[EQUALIZER_BANDS];
} equalizer_params;

/* Reverb: 7 ints, Q13. */
typedef struct reverb_param_acdb_t {
  int32_t status;
  int32_t roomsize;
  int32_t damp;
  int32_t wet;
  int32_t dry;
  int32_t width;
  int32_t gain;
} reverb_param_acdb_t;

/* Stereo widening: 7 ints, Q13. */
typedef struct stereo_param_acdb_t {
  int32_t status;
  int32_t side_gain;   /* difference circuit */
  int32_t cfn_gain;    /* crossfeed network */
  int32_t er_dry_gain; /* early reflector */
  int32_t er_wet_gain;
  int32_t er_roomsize;
  int32_t er_damp;
} stereo_param_acdb_t;

/* Virtual bass: 10 ints. */
typedef struct virtual_bass_param_acdb_t {
  int32_t status;
  int32_t nld_clip_level;
  int32_t harmonic_gain; /* Q13 */
  int32_t bass_gain;     /* Q13 */
  int32_t high_gain;     /* Q13 */
  int32_t nld_band_param[5]; /* harmonic filter after the non-linear device, Q28 */
} virtual_bass_param_acdb_t;

/* Smart volume control: 4 ints. */
typedef struct smart_volume_control_param_acdb_t {
  int32_t status;
  int32_t level; /* Q13 */
  int32_t attact_order;
  int32_t release_order;
} smart_volume_control_param_acdb_t;

/* Channel balance: 3 ints. */
typedef struct channel_balance_param_acdb_t {
  int32_t status;
  int32_t channel_num;    /* 2 = stereo outputs; otherwise the wrappers repeat the left result */
  int32_t channel_ration; /* Q13 cross-mix ratio */
} channel_balance_param_acdb_t;

typedef struct kedo_hp_effect_t {
  int32_t status;           /* requested on/off */
  int32_t immediate_switch; /* non-zero: setstatus resets the blocks instead of fading */
  int32_t active;           /* status in force (taken from status at fade state 4) */
  int32_t fade_state;       /* -1 idle, 6 .. 0 during a switch (see above) */
  SampleRateType rate_type;
  equalizer_t* equalizer;
  parameter_equalizer_t* parameter_equalizer;
  reverb_t* reverb;
  stereo_widening_system* stereo_widening;
  virtual_bass_system* virtual_bass;
  smart_volume_control_t* smart_volume;
  channel_balance_t* channel_balance;
  compressor_t* compressor;
  smooth_volume_t* smooth_volume;
  audio_effect_control_acdb_t* params; /* the record in force */
  int32_t* work_left;  /* 256-sample blocks of the format wrappers */
  int32_t* work_right;
} kedo_hp_effect_t;

KAFX_EXTERN_C_BEGIN

KAFX_API void kedo_hp_effect_init(kedo_hp_effect_t* h);
/* 44100 -> 0, 96000 -> 2, 192000 -> 3, anything else -> 1 (48000). */
KAFX_API void kedo_hp_effect_set_sample_rate(kedo_hp_effect_t* h, unsigned int rate);
KAFX_API void kedo_hp_effect_reset(kedo_hp_effect_t* h);
KAFX_API void kedo_hp_effect_end(kedo_hp_effect_t* h);
/* A record equal to the one in force changes nothing; another one is stored
 * and, while the chain is on, applied through a fade. */
KAFX_API void kedo_hp_effect_setparameter(kedo_hp_effect_t* h, const audio_effect_control_acdb_t* record);
KAFX_API void kedo_hp_effect_getparameter(kedo_hp_effect_t* h, audio_effect_control_acdb_t* record);
KAFX_API void kedo_hp_effect_setstatus(kedo_hp_effect_t* h, int status);
KAFX_API void kedo_hp_effect_debug_enable_setstatus(kedo_hp_effect_t* h, int immediate);
KAFX_API void kedo_hp_effect_debug_enable_getstatus(kedo_hp_effect_t* h, int* immediate);
KAFX_API void kedo_hp_effect_update_smooth_status(kedo_hp_effect_t* h);
KAFX_API void kedo_hp_effect_update_parameter(kedo_hp_effect_t* h);

KAFX_API void kedo_hp_effect_eq_setparameter_data(kedo_hp_effect_t* h, const eq_param_acdb_t* p);
KAFX_API void kedo_hp_effect_eq_getparameter_data(kedo_hp_effect_t* h, eq_param_acdb_t* p);
KAFX_API void kedo_hp_effect_eq_setparameter_index(kedo_hp_effect_t* h, const equalizer_params* p);
KAFX_API void kedo_hp_effect_eq_getparameter_index(kedo_hp_effect_t* h, equalizer_params* p);
KAFX_API void kedo_hp_effect_p_eq_setparameter(kedo_hp_effect_t* h, const param_eq_param_acdb_t* p);
KAFX_API void kedo_hp_effect_p_eq_getparameter(kedo_hp_effect_t* h, param_eq_param_acdb_t* p);
KAFX_API void kedo_hp_effect_reverb_setparameter(kedo_hp_effect_t* h, const reverb_param_acdb_t* p);
KAFX_API void kedo_hp_effect_reverb_getparameter(kedo_hp_effect_t* h, reverb_param_acdb_t* p);
KAFX_API void kedo_hp_effect_vbs_setparameter(kedo_hp_effect_t* h, const virtual_bass_param_acdb_t* p);
KAFX_API void kedo_hp_effect_vbs_getparameter(kedo_hp_effect_t* h, virtual_bass_param_acdb_t* p);
KAFX_API void kedo_hp_effect_sws_setparameter(kedo_hp_effect_t* h, const stereo_param_acdb_t* p);
KAFX_API void kedo_hp_effect_sws_getparameter(kedo_hp_effect_t* h, stereo_param_acdb_t* p);
KAFX_API void kedo_hp_effect_svc_setparameter(kedo_hp_effect_t* h, const smart_volume_control_param_acdb_t* p);
KAFX_API void kedo_hp_effect_svc_getparameter(kedo_hp_effect_t* h, smart_volume_control_param_acdb_t* p);
KAFX_API void kedo_hp_effect_cb_setparameter(kedo_hp_effect_t* h, const channel_balance_param_acdb_t* p);
KAFX_API void kedo_hp_effect_cb_getparameter(kedo_hp_effect_t* h, channel_balance_param_acdb_t* p);
/* The smooth volume's target gain, Q13. */
KAFX_API void kedo_hp_effect_sv_set_volume(kedo_hp_effect_t* h, int volume);
KAFX_API void kedo_hp_effect_sv_get_volume(kedo_hp_effect_t* h, int* volume);
KAFX_API void kedo_hp_effect_sv_set_smooth_buffer_num(kedo_hp_effect_t* h, int n);
KAFX_API void kedo_hp_effect_sv_get_smooth_buffer_num(kedo_hp_effect_t* h, int* n);

/* In place on `count` (<= 256) working samples per channel. */
KAFX_API void kedo_hp_effect_core_process(kedo_hp_effect_t* h, int* left, int* right, int count);
/*
 * Planar format wrappers over the 256-sample working blocks:
 *   process_16: 16-bit samples, x * 256 in, (x >> 8) saturated to 16 bits out;
 *   process_24: 24-bit samples in int32, copied in, clamped to
 *               -8388607..8388607 out;
 *   process_v2: bits == 16 selects process_16, anything else process_24.
 * With the channel balance's channel_num other than 2 both outputs carry the
 * left result. Outputs may be the input arrays.
 */
KAFX_API void kedo_hp_effect_process_16(kedo_hp_effect_t* h, void* in_left, void* in_right, void* out_left,
                                        void* out_right, int count);
KAFX_API void kedo_hp_effect_process_24(kedo_hp_effect_t* h, void* in_left, void* in_right, void* out_left,
                                        void* out_right, int count);
KAFX_API void kedo_hp_effect_process_v2(kedo_hp_effect_t* h, int bits, void* in_left, void* in_right,
                                        void* out_left, void* out_right, int count);

KAFX_EXTERN_C_END

#endif
