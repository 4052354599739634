/*
 * Host sample formats: the `format_type` argument of kafx_speaker_boost_init
 * and kafx_hp_effect_init. Samples are interleaved, native-endian.
 *
 *  KAFX_FORMAT_PCM16      16-bit signed samples (2 bytes); x * 256 in, rounded
 *                         (speaker) or truncated (headphone) and saturated out.
 *  KAFX_FORMAT_PCM24_IN_32 24-bit signed values right-aligned in 32-bit words
 *                         (4 bytes), handed to the chain as they are.
 *  KAFX_FORMAT_PCM32      full-scale 32-bit signed samples (4 bytes); rounded to
 *                         24 bits in, shifted back with saturation out.
 *
 * The numbers are the interface: plain 1, 2 and 3 stay valid. Any other value
 * is stored as 0 and handled like KAFX_FORMAT_PCM24_IN_32 (no conversion).
 */
#ifndef KAFX_PROC_HOST_FORMAT_H
#define KAFX_PROC_HOST_FORMAT_H

#define KAFX_FORMAT_PCM16 1
#define KAFX_FORMAT_PCM24_IN_32 2
#define KAFX_FORMAT_PCM32 3

#endif
