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
 * Howling decision. Peaks of the analysis (fft_int.h: local maximum, at
 * least -66 dBFS, 18 dB above the bins 3 to 5 away), refined to 1/256 bin,
 * are matched to the five trackers (nearest within HOWLING_MATCH_WIDTH, one
 * bin); an unmatched peak takes an idle tracker (else the tracking one
 * longest without a hit; when all five hold notches, a lone peak of at least
 * -50 dBFS takes the notch longest without a hit, once that is longer than
 * HOWLING_HITS_TO_LOCK analyses; the notch moves when the new peak locks).
 * A peak is "lone" when
 *   - no partner lies within HOWLING_HARMONIC_RANGE below it at 1/5, 1/4,
 *     1/3, 1/2, 2/3, 3/4, 4/3 or 3/2 times its frequency, nor within
 *     HOWLING_DISTORTION (6 dB) below it at 2, 3, 4 or 5 times (voices and
 *     instruments carry partials; feedback builds up as a sine, and a howl
 *     that clips grows weaker harmonics of its own above it), and
 *   - its skirt is clear: the first bin 2.5 bins above it (and below it,
 *     away from bin 0) is HOWLING_SKIRT down (a Hann-windowed sine's side
 *     lobes are 31.5 dB down; partials closer than 560 Hz fill that bin);
 *     HOWLING_SKIRT_GROW down for a peak HOWLING_DOMINANT (24 dB) above the
 *     band's background (a howl that has taken over a loop and clips: the
 *     intermodulation of its beating modes fills the wider skirt).
 * A tracker locks its notch when
 *   - lone-sine rule: HOWLING_HITS_TO_LOCK lone hits (64 ms) while the
 *     position stays within HOWLING_STABLE_WIDTH (1/25 bin; twice that below
 *     bin 2) - a held pitch with vibrato or glide restarts the count; or
 *   - loop-growth rules (from bin 2 = 375 Hz up, the skirt HOWLING_SKIRT_GROW
 *     down, no harmonic test): the tracked level rose in each of the last
 *     spans, by at least the rule's minimum, and by HOWLING_GROW_EXCESS more
 *     than the background (the band without the peaks' main lobes; a voice
 *     onset lifts all its partials together), at one frequency:
 *       quick: 4 spans of 1 hit, >= 2 dB each, steady (largest rise at most
 *              twice the smallest), within HOWLING_GROW_WIDTH (~750 dB/s)
 *       fast:  3 spans of 3 hits, >= 1 dB each, steady, same width (~100 dB/s)
 *       slow:  4 spans of 8 hits, >= 0.5 dB each, within HOWLING_SLOW_WIDTH
 *              (a loop just above its limit, ~25 dB/s; close modes beat)
 * Tracker states (getnotch):
 *   idle     -> tracking  on a matched candidate
 *   tracking -> locked    by one of the rules above (notch engaged)
 *   tracking -> idle      after HOWLING_MISSES_TRACK misses in a row (or
 *                         release, when it still holds a notch)
 *   locked   -> release   after HOWLING_HOLD analyses (5 s) without a hit: in
 *                         a closed loop the notch removes the howl from its
 *                         own input, so the hold is long
 *   release  -> locked    on a lone or growing hit (the howl came back)
 *   release  -> idle      when the notch has faded out
 *
 * Notches. Tracker i owns notch i (pole radius HOWLING_NOTCH_RADIUS = 0.985,
 * Q13; -3 dB width about (1 - r) * 48000 / pi = 230 Hz). On lock the notch
 * starts at the tracked frequency from a cleared state (its first output
 * equals its input: no click); while locked its centre glides towards the
 * tracked estimate (smoothed 1/4 per hit) by at most HOWLING_GLIDE_STEP (Q28)
 * per analysis through notch_setfi; on release its depth (a Q13 dry/notched
 * mix) fades out over HOWLING_RELEASE_FRAMES analyses and the notch is then
 * bypassed. Centres come from the 128-entry table of -2 cos(pi k / 128) in
 * Q28 at bin k, turned to the fractional position by the angle-sum rule with
 * the table's own sines (error below 10 LSB); find_freq_idx is the binary
 * search back from a centre coefficient to its bin.
 *
 * Gain rule (Q13, once per analysis; applied with a linear ramp over each
 * 128-sample hop). Evidence of howling in an analysis:
 *   - a hit by a growing peak (a loop-growth rule holds) of at least
 *     HOWLING_GAIN_MIN_LEVEL (-50 dBFS), or
 *   - a locked tracker hit by a peak of at least -50 dBFS while the
 *     zero-crossing count of the last 128 samples (cal_zero_cross) stays
 *     within 1/8 of the previous one (a sine still dominates), or
 *   - the frame energy of the last hop rising steadily in each of
 *     HOWLING_FRAME_SPANS spans of 3 analyses by HOWLING_FRAME_RISE
 *     (0.75 dB) and above -50 dBFS (several modes growing together).
 * On evidence the gain is multiplied by HOWLING_GAIN_DOWN (-1 dB) down to
 * HOWLING_GAIN_FLOOR (-12 dB); otherwise, while the hop is below
 * HOWLING_GAIN_QUIET (-20 dBFS), it climbs back by HOWLING_GAIN_UP per
 * analysis (+0.8 dB/s), at least one LSB, up to unity.
 *
 * Measured (tests/ktv/howling_canceling_test.cpp, kafx howl-test; 48 kHz):
 *   - sustained sine at -6 dBFS, 200 Hz .. 8 kHz (18 frequencies): locked
 *     after 70 ms, output 20 dB down from 75 ms on, 50 to 80 dB down after
 *     0.5 s (notch and gain together). A sine clipped at full scale (6 dB
 *     over, 500 Hz .. 7 kHz): locked after 70 ms, 25 dB down after 0.5 s
 *     (the notch takes the fundamental, the gain its harmonics); below
 *     about 500 Hz such a clipped sine is not found.
 *   - voice-like material (gliding pitch 110 .. 320 Hz with vibrato, moving
 *     formants) and music-like chords (harmonic notes, 1 % vibrato on half),
 *     -20 dBFS: no notch locks; level change -0.05 to -0.25 dB (the 30 Hz
 *     DC blocker; one voice seed sees the gain dip 1 dB for a moment).
 *   - closed loop, voice at -40 dBFS RMS, three synthetic rooms (direct
 *     path 5, 9 and 20 ms, four reflections, loudspeaker low- and high-pass;
 *     tools/howl_sim.h). Each run starts at its loop gain with the voice, the
 *     howl building from the first syllable. Loudest 20 ms of output, dBFS
 *     (clip: the microphone reaches full scale before the howl is caught):
 *
 *       room   limit without   +3 dB   +6 dB        added    --ramp 3   5 ideal
 *              the canceller                        stable   added      notches
 *       5 ms   -6.5 dB         -20.1   -15.0        3.5 dB   9.5 dB     2.1 dB
 *       9 ms   -7.25 dB        -22.6   -20.7        3.0 dB   7.0 dB     2.0 dB
 *       20 ms  -6.5 dB         -23.2   clip, -0.8   0.5 dB   1.0 dB     0.9 dB
 *
 *     Added stable gain is what kafx howl-test counts: every 0.5 dB step up
 *     to it stays bounded (never clips, dies out after the voice) and below
 *     -20 dBFS. Bounded alone, the loop holds up to +6 dB in the 5 ms and
 *     9 ms rooms and up to +4.5 dB in the 20 ms room. Most of the added gain
 *     is the gain rule's: the gain sits at -10.8 dB when the voice ends in
 *     the 5 ms and 9 ms rooms. "5 ideal notches" is the bound on notches of
 *     this width whatever their detector (the loudest point of the open-loop
 *     response and +-115 Hz around it cut five times; kafx howl-test prints
 *     it). The 20 ms room's modes lie 50 Hz apart, closer than the analysis
 *     resolves: they build up as one broad hump with no clear peak until one
 *     takes over; once that howl stands 24 dB above the band it locks, the
 *     gain comes down and the loop dies out after the voice (at +6 dB the
 *     output is at full scale from 0.29 to 0.50 s; up to +8 dB alike). There,
 *     a slow build-up at +1 dB reaches -13 dBFS before the slow rule locks,
 *     though +1.5 to +3 dB stay below -23 dBFS. "--ramp 3" raises the loop
 *     gain to its value over 3 s (an operator turning the volume up; 7 s of
 *     voice): the 5 ms and 9 ms rooms then hold the ceiling beyond +6 dB.
 *   - cost: about 61 000 instructions per 240-sample frame inside the
 *     karaoke chain (x86-64, GCC, link-time optimisation, AVX2
 *     builds of the transform and the bin levels; callgrind over
 *     bench/ktv_bench.cpp's all-on frames; 109 000 with the scalar
 *     transform and levels), most of it the two analyses per 240 samples
 *     and the elliptic analysis low-pass; DC blocker, notches and gain the
 *     rest. Alone with a
 *     whistle and its notch engaged (bench/howling_bench.cpp), 340 to 440
 *     times real time with GCC and about 570 with clang on the build
 *     machine (scripts/bench-report.sh, medians, idle machine).

 * Record and robustness:
 *   - init: status 0 (off), working memory allocated (one block plus the
 *     notch and elliptic states) and cleared; reset clears all history and
 *     keeps the status; end frees and nulls.
 *   - process with a null record, or count below 1, does nothing; a record
 *     without working memory (never initialised, or ended) or with status 0
 *     copies in to out. Any count is accepted (the canceller keeps no
 *     per-frame buffer; analysis runs every 128 samples across calls, so the
 *     output does not depend on how the caller cuts the stream), and counts
 *     above 256 are processed like several frames.
 *   - Silence in gives exact silence out (every stage maps 0 to 0 and decays
 *     to exact 0 by the -1 rule).
 *
 * Exported analysis buffers and threads. fft_power_current holds the
 * levels (dB, Q8) of bins 0 .. 127 of the latest analysis; fft_power_history
 * the last eight analyses, 128 levels each, analysis n (counted from init or
 * reset) at row n % 8. Every canceller instance writes them during its
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
#define HOWLING_DISTORTION (6 * 256)
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
#define HOWLING_DOMINANT (24 * 256)
#define HOWLING_SKIRT_GROW (12 * 256)
#define HOWLING_QUICK_SPANS 4
#define HOWLING_QUICK_MIN (2 * 256)
#define HOWLING_GROW_SPAN 3
#define HOWLING_GROW_SPANS 3
#define HOWLING_GROW_MIN 256
#define HOWLING_GROW_WIDTH 64
#define HOWLING_GROW_LOWEST (2 * 256)
#define HOWLING_GROW_EXCESS (2 * 256)
#define HOWLING_SLOW_SPAN 8
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
