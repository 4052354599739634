/*
 * Karaoke chain: one frame of mono microphone voice (24-bit working samples
 * in int32, 48000 Hz) in the left buffer becomes a stereo voice in the left
 * and right buffers, in place, through
 *
 *   howling canceller -> gramophone -> graphic equalizer (mono)
 *   -> copy left to right -> reverb -> IIR echo -> compressor
 *
 * each block running only while its status word is non-zero (the voice gain
 * acts inside the compressor only). A noise suppressor at 32000 Hz (with its
 * resamplers and a high-pass on kFilterCoefficients) is owned by the chain,
 * but its status is cleared at the start of every frame, so that branch
 * never runs: noise suppression is switched off whatever
 * kedo_audio_tx_ktv_noise_canceling_setstatus stores.
 *
 * Defaults after init: volume 8192 (Q13), rate index 1; the IIR echo is on
 * (its own default), every other block off.
 *
 * Format wrappers (the chain's own 256-sample buffers):
 *   process_16: in16 << 8 in, sat16(x >> 8) out (arithmetic shift).
 *   process_24: 32-bit containers, in32 >> 4 in; out clamped to
 *               -8388608..8388607 and shifted left by 4.
 *   process:    format 16 -> process_16, anything else -> process_24.
 * They return 0. Robustness choices of this library:
 *   - count above 256 (KEDO_AUDIO_TX_KTV_MAX_FRAME): refused, the wrappers
 *     return -1 and write nothing (no block runs);
 *   - count of 0 or below: the core runs on zero samples, nothing is written;
 *   - a null chain given to a wrapper returns -1; the other chain functions
 *     and the blocks do not check their record.
 * core_process works on the caller's buffers and takes any count; with a
 * count below 1 it clears the noise status and runs no block.
 */
#ifndef KAFX_PROC_KTV_CHAIN_H
#define KAFX_PROC_KTV_CHAIN_H

#include "biquad.h"
#include "compressor.h"
#include "equalizer.h"
#include "fixed_math.h"
#include "gramophone.h"
#include "howling_canceling.h"
#include "iirecho.h"
#include "ns.h"
#include "reverb.h"
#include "spl.h"

#define KEDO_AUDIO_TX_KTV_MAX_FRAME 256

typedef struct kedo_audio_tx_ktv_t {
  int32_t reserved;         /* never written or read */
  int32_t volume;           /* voice gain last set, Q13; init 8192 */
  SampleRateType rate_type; /* init 1 (48000 Hz) */
  reverb_t* reverb;
  equalizer_t* equalizer;
  compressor_t* compressor;
  iirecho* echo;            /* IIR echo */
  howlingCancel* howling;
  gramophone* gramo;        /* gramophone effect */
  IIR_t* highpass;          /* noise branch high-pass (kFilterCoefficients, Q20) */
  NsxInst_t_* ns;           /* noise suppressor at 32000 Hz; status cleared every frame */
  Resampler_t* down;        /* 48000 -> 32000 Hz */
  Resampler_t* up;          /* 32000 -> 48000 Hz */
  int32_t* left;            /* 256 working samples */
  int32_t* right;           /* 256 working samples */
} kedo_audio_tx_ktv_t;

KAFX_EXTERN_C_BEGIN

/* Second-order high-pass of the noise branch, biquad order b0, b1, b2, a1, a2
 * (Q20, feedback stored with the added sign): -3 dB near 175 Hz at 32000 Hz. */
KAFX_API extern const int kFilterCoefficients[5];

KAFX_API void kedo_audio_tx_ktv_init(kedo_audio_tx_ktv_t* c);
/* 44100 -> 0, 96000 -> 2, 192000 -> 3, anything else -> 1. Retunes only the
 * compressor's block length and reloads (clears) the high-pass. */
KAFX_API void kedo_audio_tx_ktv_set_sample_rate(kedo_audio_tx_ktv_t* c, unsigned int rate);
KAFX_API void kedo_audio_tx_ktv_end(kedo_audio_tx_ktv_t* c);
/* Stores the volume and hands it to the compressor. */
KAFX_API void kedo_audio_tx_ktv_set_volume(kedo_audio_tx_ktv_t* c, int volume);

KAFX_API int kedo_audio_tx_ktv_core_process(kedo_audio_tx_ktv_t* c, int* left, int* right, int count);
KAFX_API int kedo_audio_tx_ktv_process_16(kedo_audio_tx_ktv_t* c, void* in, void* out_left, void* out_right,
                                          int count);
KAFX_API int kedo_audio_tx_ktv_process_24(kedo_audio_tx_ktv_t* c, void* in, void* out_left, void* out_right,
                                          int count);
KAFX_API int kedo_audio_tx_ktv_process(kedo_audio_tx_ktv_t* c, int format, void* in, void* out_left,
                                       void* out_right, int count);
/* Overlap-safe copy of count samples (nothing when count < 1). */
KAFX_API void kedo_audio_tx_ktv_copy_left_to_right(int* left, int* right, int count);

/* Graphic equalizer: ten coefficient sets, or ten gain indices (-15..15)
 * applied with the chain's rate index. */
KAFX_API void kedo_audio_tx_ktv_eq_setparameter(kedo_audio_tx_ktv_t* c, int (*coef)[5]);
KAFX_API void kedo_audio_tx_ktv_eq_getparameter(kedo_audio_tx_ktv_t* c, int (*coef)[5]);
KAFX_API void kedo_audio_tx_ktv_eq_set_param_index(kedo_audio_tx_ktv_t* c, int* indices);
KAFX_API void kedo_audio_tx_ktv_eq_get_param_index(kedo_audio_tx_ktv_t* c, int* indices);
KAFX_API void kedo_audio_tx_ktv_eq_setstatus(kedo_audio_tx_ktv_t* c, int status);
KAFX_API void kedo_audio_tx_ktv_eq_getstatus(kedo_audio_tx_ktv_t* c, int* status);

/* Reverb: each setter is followed by reverb_update. */
KAFX_API void kedo_audio_tx_ktv_reverb_setroomsize(kedo_audio_tx_ktv_t* c, int value);
KAFX_API void kedo_audio_tx_ktv_reverb_getroomsize(kedo_audio_tx_ktv_t* c, int* value);
KAFX_API void kedo_audio_tx_ktv_reverb_setdamp(kedo_audio_tx_ktv_t* c, int value);
KAFX_API void kedo_audio_tx_ktv_reverb_getdamp(kedo_audio_tx_ktv_t* c, int* value);
KAFX_API void kedo_audio_tx_ktv_reverb_setwet(kedo_audio_tx_ktv_t* c, int value);
KAFX_API void kedo_audio_tx_ktv_reverb_getwet(kedo_audio_tx_ktv_t* c, int* value);
KAFX_API void kedo_audio_tx_ktv_reverb_setdry(kedo_audio_tx_ktv_t* c, int value);
KAFX_API void kedo_audio_tx_ktv_reverb_getdry(kedo_audio_tx_ktv_t* c, int* value);
KAFX_API void kedo_audio_tx_ktv_reverb_setwidth(kedo_audio_tx_ktv_t* c, int value);
KAFX_API void kedo_audio_tx_ktv_reverb_getwidth(kedo_audio_tx_ktv_t* c, int* value);
KAFX_API void kedo_audio_tx_ktv_reverb_setgain(kedo_audio_tx_ktv_t* c, int value);
KAFX_API void kedo_audio_tx_ktv_reverb_getgain(kedo_audio_tx_ktv_t* c, int* value);
KAFX_API void kedo_audio_tx_ktv_reverb_setstatus(kedo_audio_tx_ktv_t* c, int status);
KAFX_API void kedo_audio_tx_ktv_reverb_getstatus(kedo_audio_tx_ktv_t* c, int* status);

/* Noise suppressor status word (cleared again at the start of every frame). */
KAFX_API void kedo_audio_tx_ktv_noise_canceling_setstatus(kedo_audio_tx_ktv_t* c, int status);
KAFX_API void kedo_audio_tx_ktv_noise_canceling_getstatus(kedo_audio_tx_ktv_t* c, int* status);
KAFX_API void kedo_audio_tx_ktv_howling_canceling_setstatus(kedo_audio_tx_ktv_t* c, int status);
KAFX_API void kedo_audio_tx_ktv_howling_canceling_getstatus(kedo_audio_tx_ktv_t* c, int* status);
KAFX_API void kedo_audio_tx_ktv_gramophone_setstatus(kedo_audio_tx_ktv_t* c, int status);
KAFX_API void kedo_audio_tx_ktv_gramophone_getstatus(kedo_audio_tx_ktv_t* c, int* status);
KAFX_API void kedo_audio_tx_ktv_compressor_setstatus(kedo_audio_tx_ktv_t* c, int status);
KAFX_API void kedo_audio_tx_ktv_compressor_getstatus(kedo_audio_tx_ktv_t* c, int* status);

/* IIR echo (feedback and delay changes clear the echo loops). */
KAFX_API void kedo_audio_tx_ktv_iirecho_setstatus(kedo_audio_tx_ktv_t* c, int status);
KAFX_API void kedo_audio_tx_ktv_iirecho_getstatus(kedo_audio_tx_ktv_t* c, int* status);
KAFX_API void kedo_audio_tx_ktv_iirecho_setfeedback(kedo_audio_tx_ktv_t* c, int feedback);
KAFX_API void kedo_audio_tx_ktv_iirecho_getfeedback(kedo_audio_tx_ktv_t* c, int* feedback);
KAFX_API void kedo_audio_tx_ktv_iirecho_setdelay(kedo_audio_tx_ktv_t* c, int ms);
KAFX_API void kedo_audio_tx_ktv_iirecho_getdelay(kedo_audio_tx_ktv_t* c, int* ms);
KAFX_API void kedo_audio_tx_ktv_iirecho_setwet(kedo_audio_tx_ktv_t* c, int wet);
KAFX_API void kedo_audio_tx_ktv_iirecho_getwet(kedo_audio_tx_ktv_t* c, int* wet);
KAFX_API void kedo_audio_tx_ktv_iirecho_setdry(kedo_audio_tx_ktv_t* c, int dry);
KAFX_API void kedo_audio_tx_ktv_iirecho_getdry(kedo_audio_tx_ktv_t* c, int* dry);

KAFX_EXTERN_C_END

#endif
