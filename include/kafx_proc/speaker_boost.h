/*
 * Speaker-boost front end: the public face of the speaker product.
 *
 * A host hands interleaved PCM buffers of any length to
 * kafx_speaker_boost_process; they are re-blocked into 240-frame blocks,
 * converted to planar 24-bit working samples, run through the chain and
 * converted back, in place, 239 frames later (the first 239 output frames of
 * a stream are 0).
 *
 * format_type: 1 = 16-bit samples; 2 = 24-bit values in 32-bit containers;
 *              3 = full-scale 32-bit samples (KAFX_FORMAT_PCM16,
 *              KAFX_FORMAT_PCM24_IN_32, KAFX_FORMAT_PCM32 in host_format.h);
 *              anything else is stored as 0 and handled as 32-bit
 *              containers without scaling.
 *
 * Robustness choices of this library (beyond the bare algorithm):
 *  - a null handle or null buffer given to any front-end call does nothing
 *    (getters leave their output untouched); deinit(NULL) is harmless;
 *  - `size` that is not a whole number of frames: the whole frames are
 *    processed and the trailing bytes are neither read nor written;
 *  - the frame stride follows `channels`: with one channel the sample feeds
 *    both sides of the chain and receives the left result; with more than
 *    two channels only the first two samples of each frame are processed
 *    and the others are left untouched (the format-3 scaling passes touch
 *    only the processed samples); with 0 channels the buffer is bypassed;
 *  - the enable flag is stored and reported but does not gate processing:
 *    switch the blocks through the parameter record instead.
 * Log lines go to the Android log under the tag "kafx_sp_wrapper".
 */
#ifndef KAFX_PROC_SPEAKER_BOOST_H
#define KAFX_PROC_SPEAKER_BOOST_H

#include "host_format.h"
#include "speaker_boost_chain.h"

#define KAFX_SPEAKER_BOOST_BLOCK 240

/* One channel's ring buffer of samples. */
typedef struct sample_fifo_t {
  int32_t width;       /* 16: 16-bit elements, anything else: 32-bit */
  int32_t capacity;    /* always 240 */
  int32_t count;
  int32_t read_index;
  int32_t write_index;
  void* data;          /* capacity elements, zero-filled at creation */
} sample_fifo_t;

/* Speaker-boost system part of the parameter record (45 ints). */
typedef struct kafx_sbs_params_t {
  int32_t enable;           /* sbs status */
  int32_t gain[2];          /* NLD gain left, right (Q13) */
  int32_t channel_ration;   /* balance cross-mix ratio (Q13) */
  int32_t channel_num;      /* 2 = stereo; 1 also makes the front end copy left to right */
  drc_param_t drc_left[4];  /* low, mid, high, full */
  drc_param_t drc_right[4]; /* low, mid, high, full */
} kafx_sbs_params_t;

/* Parametric-equalizer part of the parameter record (123 ints). */
typedef struct kafx_peq_params_t {
  int32_t enable;
  int32_t gain[2];         /* input gain left, right (Q13) */
  int32_t Lfilter[10][6];  /* band records: enable, b0, b1, b2, a1, a2 (Q28) */
  int32_t Rfilter[10][6];
} kafx_peq_params_t;

/* The speaker parameter set: 168 ints. */
typedef struct kafx_sp_params_t {
  kafx_sbs_params_t sbs; /* indices 0..44 */
  kafx_peq_params_t peq; /* indices 45..167 */
} kafx_sp_params_t;

typedef struct kafx_speaker_boost_t {
  int32_t enable;
  uint32_t channels;
  uint32_t sample_rate;
  int32_t format_type;
  int32_t bit_width;
  int32_t bytes_per_sample;
  sample_fifo_t in_left_fifo;
  sample_fifo_t in_right_fifo;
  int32_t* work_left;
  int32_t* work_right;
  int16_t* work16_left;
  int16_t* work16_right;
  sample_fifo_t out_left_fifo;
  sample_fifo_t out_right_fifo;
  kedo_speaker_boost_t chain;
  kafx_sp_params_t params; /* zeroed at init */
} kafx_speaker_boost_t;

KAFX_EXTERN_C_BEGIN

KAFX_API void* kafx_speaker_boost_init(unsigned int channels, unsigned int sample_rate, int format_type);
KAFX_API void kafx_speaker_boost_reset(void* handle);
KAFX_API void kafx_speaker_boost_deinit(void* handle);
KAFX_API void kafx_speaker_boost_set_enable(void* handle, int enable);
KAFX_API void kafx_speaker_boost_get_enable(void* handle, int* enable);
KAFX_API void kafx_speaker_boost_process(void* handle, void* buffer, unsigned int size);
/* Total delay of the product in frames, following the current parameters:
 * KAFX_SPEAKER_BOOST_BLOCK - 1 (239) frames of re-blocking, plus
 * 2 * lookahead * frame_len frames (the band limiters and then the full-band
 * limiter look ahead; 20 ms, or 19.95 ms at 44100 Hz) while the speaker
 * boost system is on. Output frame k + latency is the processed input frame
 * k. The value changes when a configuration switches the boost system. -1
 * for a null handle. */
KAFX_API int kafx_speaker_boost_get_latency(void* handle);

/*
 * Configuration: XML file, parameter strings, dump.
 * The loaders return 0, or -1 (logging "LoadAudioConfig fail " and applying
 * nothing) for a file that cannot be read or is not well-formed; files that
 * are not regular files, larger than 1 MiB, not UTF-8 text, nested more than
 * 64 elements deep or not a single root element are refused the same way.
 * Values are hexadecimal ("%x") separated by ';'; a value wider than 32 bits
 * or a token that is not a number leaves its member unchanged. The parameter
 * strings are decimal ("%d") separated by ','; they start from the record's
 * current values, so missing tokens leave members unchanged.
 */
KAFX_API int kafx_speaker_boost_loadconfig(void* handle, const char* path);
KAFX_API void* kafx_speaker_boost_params_load_init(void);
KAFX_API void kafx_speaker_boost_params_load_deinit(void* params);
KAFX_API int kafx_speaker_boost_params_load_config(void* params, const char* path);
KAFX_API void kafx_speaker_boost_params_update(void* handle, void* params);
KAFX_API void kafx_speaker_boost_update_sbs_params(void* handle, void* sbs);
KAFX_API void kafx_speaker_boost_update_peq_params(void* handle, void* params);
KAFX_API void kafx_speaker_boost_parse_sbs_params(void* params, const char* text);
KAFX_API void kafx_speaker_boost_parse_peq_params(void* params, const char* text);
KAFX_API void kafx_speaker_boost_dump_params(void* params);

KAFX_EXTERN_C_END

#endif
