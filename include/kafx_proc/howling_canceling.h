/*
 * Howling canceller of the karaoke voice chain: five adaptive notches
 * steered by a 256-point integer FFT analysis, and a howl-driven gain.
 *
 * Signal path (24-bit working samples in int32, 48000 Hz, mono, in place
 * allowed):
 *   in -> DC blocker (dc_remove_process_24, 30 Hz) -> notch 0 .. notch 4 in
 *      cascade (only the engaged ones run) -> gain (Q13) -> out
 * Analysis path (no effect on the sound except through the decisions):
 *   DC-blocked input -> sixth-order elliptic low-pass (10.5 kHz, Q20 table)
 *   -> 256-sample window, re-analysed every 128 samples (2.67 ms) ->
 *   fft_int_analyze (Hann window, levels in dB, up to five peak bins) ->
 *   harmonic test -> five peak trackers -> notch centres and the gain.
 *
 * Howling decision. A peak of the analysis (see fft_int.h: local maximum,
 * at least -66 dBFS, 18 dB above the bins 3 to 5 away) is a howl candidate
 * unless the spectrum holds a harmonic partner for it: a peak within
 * HOWLING_HARMONIC_RANGE dB of it at 1/2, 1/3, 2/3, 3/4, 4/3, 3/2, 2 or 3 times
 * its frequency (a voice or an instrument carries partials; feedback builds up
 * as a lone sine). Each tracker runs a four-state machine:
 *   idle     -> tracking  a candidate no other tracker holds (within one bin)
 *   tracking -> locked    after HOWLING_HITS_TO_LOCK hits (a hit: a candidate
 *                         within HOWLING_MATCH_WIDTH of the tracked position);
 *                         the hit count restarts after a jump of more than
 *                         HOWLING_STABLE_WIDTH (a moving pitch never locks)
 *   tracking -> idle      after HOWLING_MISSES_TRACK misses in a row
 *   locked   -> release   after HOWLING_HOLD analyses without a hit (in a
 *                         closed loop the notch removes the howl from its own
 *                         input, so the hold is long)
 *   release  -> locked    on a hit (the howl came back)
 *   release  -> idle      when the notch has faded out
 * When five notches are busy, a new candidate that reaches the lock count
 * takes the tracker that has gone longest without a hit.
 *
 * Notches. Tracker i owns notch i (pole radius HOWLING_NOTCH_RADIUS, Q13;
 * -3 dB width about (1 - r) * 48000 / pi). On lock the notch starts at the
 * tracked frequency from a cleared state (its first output equals its input:
 * no click); while locked its centre coefficient glides towards the refined
 * frequency estimate by at most HOWLING_GLIDE_STEP (Q28) per analysis through
 * notch_setfi; on release its depth fades out linearly over
 * HOWLING_RELEASE_FRAMES analyses and the notch is then parked (bypassed).
 * Centres come from the 128-entry table of -2 cos(pi k / 128) in Q28 at the
 * bin k, corrected to the fractional position by the angle-sum rule with
 * the table's own sines; find_freq_idx is the binary search back from a
 * centre coefficient to its bin.
 *
 * Gain rule (Q13, per analysis). Evidence of howling: a tracker hit this
 * analysis by a candidate at least HOWLING_GAIN_MIN_LEVEL whose level rose by
 * HOWLING_GAIN_RISE or more over the last 8 analyses, or a locked tracker hit
 * while the zero-crossing count of the last 128 samples (cal_zero_cross) stays
 * within 1/8 of the one before (a dominant sine). On evidence the gain drops
 * by HOWLING_GAIN_DOWN (multiplicative step, Q13) down to HOWLING_GAIN_FLOOR;
 * without it, and when the frame energy is below HOWLING_GAIN_QUIET, it
 * climbs back by HOWLING_GAIN_UP per analysis. The gain is applied sample by
 * sample with a linear ramp over each 128-sample hop.
 *
 * Measured (tests/ktv/howling_canceling_test.cpp, 48 kHz):
 *   (figures filled in by the tests' measurements; see the README of the tool)
 *
 * Record and robustness:
 *   - init: status 0 (off), working memory allocated (one block plus the
 *     notch and elliptic states) and cleared; reset clears all history and
 *     keeps the status; end frees and nulls.
 *   - process with a null record, or count below 1, does nothing; a record
 *     without working memory (never initialised, or ended) or with status 0
 *     copies in to out. Any count is accepted (the canceller keeps no
 *     per-frame buffer; analysis runs every 128 samples across calls), so
 *     counts above 256 are processed like several frames.
 *   - Silence in gives exact silence out (every stage maps 0 to 0 and decays
 *     to exact 0 by the -1 rule).
 *
 * Exported analysis buffers and threads. fft_power_current holds the
 * levels (dB, Q8) of bins 0 .. 127 of the latest analysis; fft_power_history
 * the last eight analyses, 128 levels each, the latest at row
 * (analysis count % 8). Every canceller instance writes them during its
 * process call (word by word, relaxed atomic stores) and never reads them
 * back: each instance decides from its own copy, so instances never disturb
 * each other's detection. They are process-wide, though: a host that runs
 * several cancellers on different threads sees a mix of their frames there
 * (no torn words), and reads a consistent frame only between process calls of
 * a single running instance.
 */
#ifndef KAFX_PROC_HOWLING_CANCELING_H
#define KAFX_PROC_HOWLING_CANCELING_H

#include "kafx_export.h"

#define HOWLING_NOTCHES 5
#define HOWLING_HOP 128
/* Tracker states reported by howling_canceling_getnotch. */
#define HOWLING_IDLE 0
#define HOWLING_TRACKING 1
#define HOWLING_LOCKED 2
#define HOWLING_RELEASE 3

/* Thresholds and steps (levels in dB Q8, positions in 1/256 bin, counts in
 * analyses of 128 samples). */
#define HOWLING_HARMONIC_RANGE (20 * 256)
#define HOWLING_MATCH_WIDTH 256
#define HOWLING_STABLE_WIDTH 10
#define HOWLING_HITS_TO_LOCK 24
#define HOWLING_MISSES_TRACK 3
#define HOWLING_HOLD 1875
#define HOWLING_RELEASE_FRAMES 24
#define HOWLING_NOTCH_RADIUS 8069
#define HOWLING_GLIDE_STEP 262144
#define HOWLING_GAIN_MIN_LEVEL (-50 * 256)
#define HOWLING_SKIRT (28 * 256)
#define HOWLING_SKIRT_GROW (12 * 256)
#define HOWLING_QUICK_SPANS 4
#define HOWLING_QUICK_MIN (2 * 256)
#define HOWLING_GROW_SPAN 3
#define HOWLING_GROW_SPANS 3
#define HOWLING_GROW_MIN 256
#define HOWLING_GROW_WIDTH 64
#define HOWLING_GROW_LOWEST (2 * 256)
#define HOWLING_GROW_EXCESS (2 * 256)
#define HOWLING_SLOW_SPAN 12
#define HOWLING_SLOW_SPANS 4
#define HOWLING_SLOW_MIN 128
#define HOWLING_SLOW_WIDTH 96
#define HOWLING_FRAME_SPANS 6
#define HOWLING_FRAME_RISE 192
#define HOWLING_GAIN_DOWN 7298
#define HOWLING_GAIN_UP 8194
#define HOWLING_GAIN_FLOOR 2053
#define HOWLING_GAIN_QUIET (-20 * 256)

typedef struct howling_canceling_work howling_canceling_work;

typedef struct howlingCancel {
  int32_t status;               /* 0 = off (init default), non-zero = run */
  int32_t gain;                 /* gain applied at the end of the last call, Q13 (read only) */
  howling_canceling_work* work; /* working memory, owned */
} howlingCancel;

KAFX_EXTERN_C_BEGIN

/* Levels (dB, Q8) of the latest analysis, bins 0 .. 127. */
KAFX_API extern int fft_power_current[128];
/* The last eight analyses, 128 levels each. */
KAFX_API extern int fft_power_history[1024];

KAFX_API void howling_canceling_init(howlingCancel* h);
KAFX_API void howling_canceling_reset(howlingCancel* h);
KAFX_API void howling_canceling_end(howlingCancel* h);
KAFX_API void howling_canceling_setstatus(howlingCancel* h, int status);
KAFX_API void howling_canceling_getstatus(howlingCancel* h, int* status);
KAFX_API void howling_canceling_process(howlingCancel* h, int* in, int* out, int count);
/* State (HOWLING_IDLE .. HOWLING_RELEASE) and current centre coefficient
 * (Q28, -2 cos w0; 0 when parked) of notch `index` (0 .. 4); both 0 for an
 * index out of range or a record without working memory. */
KAFX_API void howling_canceling_getnotch(howlingCancel* h, int index, int* state, int* centre);

/* Bin k (0 .. 127) whose table entry -2 cos(pi k / 128) (Q28) is nearest to
 * the centre coefficient; below the table 0, above it 127. */
KAFX_API int find_freq_idx(int centre);
/* Number of sign changes between consecutive samples (zero counts as
 * positive); 0 when count < 2. */
KAFX_API int cal_zero_cross(const int* in, int count);

KAFX_EXTERN_C_END

#endif
