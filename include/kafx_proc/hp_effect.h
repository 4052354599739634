/*
 * Headphone front end: the public face of the headphone product.
 *
 * A host creates one handle per stream at 44.1 or 48 kHz and hands it
 * interleaved stereo buffers, which are processed in place: deinterleaved to
 * 24-bit working samples, run through the chain in blocks of 240 or 256
 * frames and converted back. The front end adds no delay of its own (the
 * chain's compressor looks ahead by two 5 ms frames).
 *
 * format_type: 1 = 16-bit samples (x * 256 in, (x >> 8) saturated out);
 *              2 = 24-bit values in 32-bit containers (copied as they are);
 *              3 = full-scale 32-bit samples ((x + 128) >> 8 in, saturating;
 *                  x << 8 out, saturating outside 24 bits);
 *              anything else is stored as 0 and handled like 2.
 *              (KAFX_FORMAT_PCM16, KAFX_FORMAT_PCM24_IN_32 and
 *              KAFX_FORMAT_PCM32 in host_format.h name 1, 2 and 3.)
 * Rates outside 44050..48050 Hz are bypassed for the life of the handle (a
 * warning is logged; process leaves the buffer untouched bit for bit).
 *
 * Block length: chosen again whenever the frame count of a buffer differs
 * from the previous one: 240 when the count is a multiple of 240, else 240
 * when count % 256 is non-zero and smaller than count % 240, else 256. The
 * last block of a buffer may be shorter. The chain's preset fade advances by
 * one state per block.
 *
 * Robustness choices of this library (beyond the bare algorithm):
 *  - a null handle given to any front-end call, or a null buffer or record,
 *    does nothing (get_parameters leaves its output untouched);
 *    deinit(NULL) is harmless;
 *  - `bytes` that is not a whole number of stereo frames: the whole frames
 *    are processed, and the trailing bytes (an odd sample and any stray
 *    bytes) are neither read nor written, in every format;
 *  - init returns NULL when any allocation it makes fails (the handle, a
 *    block of the chain or a buffer); what it had built is freed.
 * Log lines go to the Android log under the tag "kafx_hp_wrapper" (the
 * chain's under "kafx_hp_proc").
 */
#ifndef KAFX_PROC_HP_EFFECT_H
#define KAFX_PROC_HP_EFFECT_H

#include "hp_effect_chain.h"
#include "host_format.h"

/* The two block lengths of the front end. */
#define KAFX_HP_EFFECT_BLOCK_240 240
#define KAFX_HP_EFFECT_BLOCK_256 256

typedef struct kafx_hp_effect_t {
  int32_t enabled;          /* 1 process, 0 bypass (from the rate, at init) */
  int32_t sample_rate;      /* Hz, as given to init */
  int32_t format_type;      /* 1, 2, 3, or 0 for anything else */
  int32_t bits;             /* 16 for format 1, else 32 */
  int32_t bytes_per_sample; /* 2 for format 1, else 4 */
  int32_t frame_count;      /* frames per channel of the last buffer; init 256 */
  int32_t block_len;        /* frames per chain call: 240 or 256; init 256 */
  int32_t* work_left;       /* 256 working samples each */
  int32_t* work_right;
  kedo_hp_effect_t chain;
  audio_effect_control_acdb_t params; /* the last record set; zero at init */
} kafx_hp_effect_t;

KAFX_EXTERN_C_BEGIN

KAFX_API void* kafx_hp_effect_init(unsigned int sample_rate, int format_type);
KAFX_API void kafx_hp_effect_deinit(void* handle);
KAFX_API void kafx_hp_effect_reset(void* handle);
/* record: an audio_effect_control_acdb_t (31 ints). */
KAFX_API void kafx_hp_effect_set_parameters(void* handle, void* record);
KAFX_API void kafx_hp_effect_get_parameters(void* handle, void* record);
KAFX_API void kafx_hp_effect_process(void* handle, void* buffer, unsigned int bytes);
/* Total delay of the product in frames: the compressor's look-ahead,
 * lookahead * frame_len = two 5 ms frames (440 frames in the 44.1 kHz rate
 * class, 480 in the 48 kHz class); 0 for a bypassed handle (the buffer
 * passes untouched). Output frame k + latency is the processed input frame k.
 * -1 for a null handle. */
KAFX_API int kafx_hp_effect_get_latency(void* handle);

KAFX_EXTERN_C_END

#endif
