/*
 * 256-point integer FFT analysis of the howling canceller.
 *
 * Formats:
 *   input          24-bit working samples (Q23 in int32)
 *   window         Hann, w[n] = 0.5 - 0.5 cos(2 pi n / 256), Q28, derived from
 *                  the canceller's table of -2 cos(pi k / 128) (no table of its own)
 *   spectrum       `complex` pairs of int64: a windowed sample enters as
 *                  (x * w) >> 23 (Q28 scale); each of the eight radix-2 stages
 *                  halves its butterfly outputs, so bin k holds DFT(k) / 256.
 *                  Twiddles are Q28 (cos, sin of 2 pi k / 256 read from the same
 *                  table); products follow complex_mul (64-bit, >> 28, low 64
 *                  bits kept). Nothing saturates; the values stay below 2^31.
 *   level          bin level in dB relative to a full-scale sine centred on a
 *                  bin, Q8 (256 = 1 dB); a full-scale sine reads about 0,
 *                  an empty bin FFT_INT_LEVEL_FLOOR (-160 dB).
 *
 * Peak picking (fft_int_find_peaks) looks at bins 1 .. 63 (187.5 Hz to
 * 11.8 kHz at 48 kHz) and reports up to FFT_INT_MAX_PEAKS bins, loudest
 * first; unused entries hold FFT_INT_NO_PEAK (64). A bin is a peak when it is
 * a local maximum (not below either neighbour, above the lower one), at least
 * FFT_INT_PEAK_MIN_LEVEL, and at least FFT_INT_PEAK_PROMINENCE above the mean
 * level of the six bins 3 to 5 away on both sides (mirrored at bin 0): a
 * sine under the Hann window stands more than 30 dB above those, while voice
 * harmonics and noise fill them. Any int levels are accepted (the mean and
 * the prominence are formed in 64 bits).
 *
 * All functions are pure (no state, no allocation); none validates its
 * pointers.
 */
#ifndef KAFX_PROC_FFT_INT_H
#define KAFX_PROC_FFT_INT_H

#include "fixed_math.h"
#include "kafx_export.h"

#define FFT_INT_SIZE 256
#define FFT_INT_STAGES 8
#define FFT_INT_BINS 128
#define FFT_INT_MAX_PEAKS 5
#define FFT_INT_NO_PEAK 64
#define FFT_INT_LEVEL_FLOOR (-160 * 256)
#define FFT_INT_PEAK_MIN_LEVEL (-66 * 256)
#define FFT_INT_PEAK_PROMINENCE (18 * 256)

KAFX_EXTERN_C_BEGIN

/* Hann-windows 256 working samples into bins (imaginary parts 0), in
 * bit-reversed order, ready for fft_int_transform. */
KAFX_API void fft_int_window(const int* in, complex* bins);
/* Permutes 256 values into bit-reversed order (an involution). */
KAFX_API void fft_int_bitreverse(complex* bins);
/* In-place radix-2 decimation-in-time FFT of 256 bit-reversed values; the
 * result is in natural order, scaled by 1/256. */
KAFX_API void fft_int_transform(complex* bins);
/* Levels (dB, Q8) of bins 0 .. 127 of a transformed spectrum. */
KAFX_API void fft_int_level(const complex* bins, int* level);
/* The peak bins of 128 levels, loudest first (FFT_INT_NO_PEAK fills the
 * rest); returns how many were found (0 .. FFT_INT_MAX_PEAKS). */
KAFX_API int fft_int_find_peaks(const int* level, int* peaks);
/* Fractional peak position of bin k (1 .. 126) of a transformed spectrum, in
 * 1/256 bin: k * 256 plus the Hann two-bin interpolation
 * (2 |X[k+1]| - |X[k]|) / (|X[k]| + |X[k+1]|) towards the louder neighbour
 * (exact for a lone sine away from bin 0; bin 1 is always interpolated
 * towards bin 2, bin 0 holding the sine's mirror image). */
KAFX_API int fft_int_refine(const complex* bins, int k);
/* The whole analysis: window, transform, levels and peaks of 256 samples.
 * The transform of the real windowed input runs as one 128-point complex
 * transform of the even / odd sample pairs and a split (half the work);
 * its spectrum is the one fft_int_window + fft_int_transform give, to a few
 * units of rounding. bins is caller scratch of 256 values (left holding the
 * spectrum); returns the number of peaks. */
KAFX_API int fft_int_analyze(const int* in, complex* bins, int* level, int* peaks);

KAFX_EXTERN_C_END

#endif
