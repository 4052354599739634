/*
 * Band post-processing of the noise suppressor: three per-block hooks on one
 * BPInfo_tag record.
 *   BP_ns_pre   tracks the peaks of the last 50 input blocks;
 *   BP_ns_app   turns the spread of those peaks (temporal feature) and the
 *               spread of the magnitude spectrum (spectral feature), each
 *               against an adaptive floor, into a smoothed Q15 speech
 *               presence 0..32767 (the suppressor's prior becomes
 *               (32767 - presence) >> 1 in Q14);
 *   BP_ns_post  limits impulsive output blocks (crest factor above about
 *               e^2) to twice the recent output peak with a ramped Q15 gain.
 * Logarithms are natural, Q8, from a 256-entry mantissa table; sigmoid maps
 * a Q15 margin to a Q15 probability with a 20-entry e^k table and a
 * fourth-order polynomial, and one Q15 fractional division.
 *
 * Null arguments: BP_ns_pre and BP_ns_post return -1 for a null record or
 * buffer (with len > 0), BP_ns_app returns 0 (no speech) for a null record or
 * spectrum, soft_gain_proc does nothing, BP_ns_delete(NULL) is harmless.
 * A q_magn outside -15..15 (beyond the k ln 2 table) is taken as -15 or 15.
 * Other arguments are not checked. The one fatal path is the Q15 division
 * in sigmoid: should its operands ever be out of order it prints a message
 * and ends the process with status 0; the normalisation (denominator's top
 * bit to bit 30) keeps them in order for every int argument.
 */
#ifndef KAFX_PROC_BP_NS_H
#define KAFX_PROC_BP_NS_H

#include "kafx_export.h"

typedef struct BPInfo_tag {
  int bin_count;                     /* magnitude bins (65 or 129) */
  short in_peak_history[50];         /* input block peaks, oldest first */
  unsigned short out_peak_history[10]; /* (limited) output block peaks, oldest first */
  short crest_log;                   /* last output crest factor, ln in Q8 */
  short post_gain;                   /* output gain, Q15, starts at 0 */
  int frame_count;                   /* blocks seen by BP_ns_app */
  int reset_count[3];                /* tracker counters: 600, 300, 200 */
  int temporal_smoothed;             /* T, Q15 */
  int temporal_min[3];
  int temporal_max[3];
  int temporal_floor;
  int in_peak_mean;                  /* mean of in_peak_history */
  int spectral_smoothed;             /* S, Q15 */
  int spectral_min[3];
  int spectral_max[3];
  int spectral_floor;
  int speech_prob;                   /* smoothed presence, Q15 */
} BPInfo_tag;

KAFX_EXTERN_C_BEGIN

/* malloc'ed, zeroed record, or NULL when it cannot be allocated; fs is not
 * used. */
KAFX_API BPInfo_tag* BP_ns_init(int fs, int bin_count);
KAFX_API void BP_ns_delete(BPInfo_tag* r);
/* Records the block's largest signed sample among in[0..len-2] (at least 1). Returns 0. */
KAFX_API int BP_ns_pre(BPInfo_tag* r, short* in, int len);
/* magn: bin_count magnitudes in Q(q_magn), magn_sum their sum. Returns the
 * Q15 speech presence (a short value in an unsigned word). */
KAFX_API unsigned int BP_ns_app(BPInfo_tag* r, unsigned short* magn, unsigned int magn_sum,
                                short q_magn);
/* Click limiter; in and out may be the same buffer. Returns 0. */
KAFX_API int BP_ns_post(BPInfo_tag* r, short* in, int len, short* out);
/* Ramp *gain (Q15) toward target by step per sample, out = (g * in) >> 15;
 * writes nothing when both target and *gain are 32767. */
KAFX_API void soft_gain_proc(short* in, int len, short* out, short target, short* gain,
                             short step);
/* Logistic function, Q15 in, Q15 out: 1 / (1 + e^-x). */
KAFX_API int sigmoid(int x);

KAFX_EXTERN_C_END

#endif
