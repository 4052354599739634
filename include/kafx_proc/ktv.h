/*
 * Karaoke front end: the supported entry point of the karaoke voice
 * product. One mono 16-bit frame of the singer's microphone (normally 240
 * samples, 5 ms at 48000 Hz) in, two separate (not interleaved) 16-bit
 * buffers, left and right, out, through the karaoke chain (ktv_chain.h):
 * howling canceller, gramophone, graphic equalizer, reverb, IIR echo and
 * compressor. The handle owns one chain; every setter forwards its value
 * unchanged to the chain (units and ranges are those of the block reached).
 * The rate is fixed at 48000 Hz; noise suppression stays off whatever
 * kafx_ktv_noise_canceling_enable asks (the chain clears it every frame).
 *
 * Robustness choices of this library (beyond the bare algorithm):
 *  - a null handle: kafx_ktv_process_16 returns -1 and writes nothing, every
 *    setter does nothing, kafx_ktv_deinit(NULL) is harmless;
 *  - count above 256 (the chain's frame buffers): kafx_ktv_process_16
 *    returns -1 and writes nothing; a count of 0 or below returns 0 and
 *    writes nothing.
 * kafx_ktv_noise_canceling_enable logs "kafx_ktv_noise_canceling_enable: <value>"
 * at debug priority under the tag "kafx_ktv_wrapper"; nothing else logs.
 */
#ifndef KAFX_PROC_KTV_H
#define KAFX_PROC_KTV_H

#include "ktv_chain.h"

#define KAFX_KTV_FRAME 240

typedef struct kafx_ktv_t {
  int32_t sample_format;     /* bits per sample of the caller's buffers: 16 */
  kedo_audio_tx_ktv_t chain; /* embedded */
} kafx_ktv_t;

KAFX_EXTERN_C_BEGIN

/* Null when any allocation of the handle or its chain fails (what was
 * built is freed). */
KAFX_API void* kafx_ktv_init(void);
KAFX_API void kafx_ktv_deinit(void* handle);
/* Returns 0, or -1 for a null handle or count > 256 (nothing written). */
KAFX_API int kafx_ktv_process_16(void* handle, short* in, short* out_left, short* out_right, int count);
/* Total delay of the product in samples: the compressor's look-ahead while
 * it runs (the chain creates it without look-ahead, so 0), otherwise 0:
 * every frame's output belongs to the same frame's input. -1 for a null
 * handle. */
KAFX_API int kafx_ktv_get_latency(void* handle);

/* Voice gain, Q13 (8192 = unity); acts only while the compressor is on. */
KAFX_API void kafx_ktv_set_voice_gain(void* handle, int value);
/* Ten graphic-equalizer gain indices (-15..15 dB), band 0 first. */
KAFX_API void kafx_ktv_eq_setparameter(void* handle, int* params);
KAFX_API void kafx_ktv_reverb_setroomsize(void* handle, int value);
KAFX_API void kafx_ktv_reverb_setdamp(void* handle, int value);
KAFX_API void kafx_ktv_reverb_setwet(void* handle, int value);
KAFX_API void kafx_ktv_reverb_setdry(void* handle, int value);
KAFX_API void kafx_ktv_reverb_setwidth(void* handle, int value);
KAFX_API void kafx_ktv_reverb_setgain(void* handle, int value);
KAFX_API void kafx_ktv_reverb_enable(void* handle, int value);
KAFX_API void kafx_ktv_eq_enable(void* handle, int value);
KAFX_API void kafx_ktv_noise_canceling_enable(void* handle, int value);
KAFX_API void kafx_ktv_gramophone_enable(void* handle, int value);
KAFX_API void kafx_ktv_hw_howling_canceling_enable(void* handle, int value);
KAFX_API void kafx_ktv_compressor_enable(void* handle, int value);
KAFX_API void kafx_ktv_iirecho_enable(void* handle, int value);
KAFX_API void kafx_ktv_iirecho_setfeedback(void* handle, int value);
KAFX_API void kafx_ktv_iirecho_setdelay(void* handle, int value);
KAFX_API void kafx_ktv_iirecho_setwet(void* handle, int value);
KAFX_API void kafx_ktv_iirecho_setdry(void* handle, int value);

KAFX_EXTERN_C_END

#endif
