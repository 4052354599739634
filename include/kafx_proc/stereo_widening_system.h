/*
 * Stereo widening system: a wider, speaker-like image on headphones from
 * three stages run per sample in this order, each on the previous stage's
 * output (24-bit working samples in int32):
 *   difference_circuit  left and right through identical all-pass phase
 *                       networks, then mid/side shaping: the side gets a
 *                       low band (200 Hz low-pass, doubled) and a high band
 *                       (7 kHz high-pass) and is scaled by side_gain (Q13);
 *                       the mid gets a presence band-pass and a low band.
 *   crossfeed_network   each channel's direct signal through an all-pass,
 *                       plus a delayed, 1.5 kHz low-passed feed of the other
 *                       channel (gain Q13) and an extra high band (gain / 4).
 *   early_reflector     a small room of four damped combs and two all-passes
 *                       per channel fed by the quartered, 300 Hz high-passed
 *                       input, mixed with the dry input (wet_gain, dry_gain
 *                       Q13), then a DC-removal filter.
 * Biquads are Q28 sections (IIR_process_32); their coefficient rows are per
 * SampleRateType, and the 192000 Hz rows are all zero by design, so at that
 * rate every section outputs 0 and the whole system outputs silence.
 * Arithmetic: sums inside the difference circuit and the comb sum wrap in 32
 * bits; gains are 64-bit products shifted without rounding and saturated;
 * the crossfeed and reflector mixes saturate.
 *
 * Robustness: like every block, nothing is checked; the record pointer must
 * come from init. A count below 1 does nothing. Any count is accepted (the
 * system keeps no block buffers). Inputs and outputs may be the same arrays.
 */
#ifndef KAFX_PROC_STEREO_WIDENING_SYSTEM_H
#define KAFX_PROC_STEREO_WIDENING_SYSTEM_H

#include "biquad.h"
#include "dc_remove.h"
#include "delay.h"
#include "fixed_math.h"

/* Sections of the difference circuit, by index into `section`. */
#define DIFFERENCE_CIRCUIT_SECTIONS 11
/* Sections of the crossfeed network, by index into `section`. */
#define CROSSFEED_NETWORK_SECTIONS 6
/* Capacity of each crossfeed delay line, samples. */
#define CROSSFEED_NETWORK_MAX_DELAY 95

typedef struct difference_circuit {
  /* 0, 1, 2 left phase network (all-passes, in series)
   * 3, 4, 5 right phase network (the same design)
   * 6       spare band-pass near 5 kHz: loaded and rate-switched, never run
   * 7       side low band (low-pass, 200 Hz)
   * 8       side high band (high-pass, 7 kHz)
   * 9       mid presence band (band-pass, 0 dB peak at 2861.5 Hz)
   * 10      mid low band (the same low-pass as 7) */
  IIR_t* section[DIFFERENCE_CIRCUIT_SECTIONS];
  int32_t side_gain; /* Q13, init 4096 */
} difference_circuit;

typedef struct crossfeed_network {
  /* 0, 1 direct path left, right (all-pass)
   * 2, 3 crossfeed low-pass after the left, right delay
   * 4, 5 direct high band left, right (high-pass) */
  IIR_t* section[CROSSFEED_NETWORK_SECTIONS];
  audio_delay* delay[2]; /* left, right; capacity 95, length 23/23/47/95 by rate */
  int32_t gain;          /* Q13, init 4096 */
} crossfeed_network;

typedef struct early_reflector {
  comber* comb_left[4];  /* 1109, 1399, 1489, 1777 samples */
  comber* comb_right[4]; /* 1151, 1423, 1523, 1801 */
  allpass* allpass_left[2];  /* 241, then 337 */
  allpass* allpass_right[2]; /* 269, then 367 */
  dc_remove* dc_left; /* DC-removal states of the outputs */
  dc_remove* dc_right;
  IIR_t* prefilter_left;  /* high-pass, 300 Hz */
  IIR_t* prefilter_right;
  int32_t wet_gain; /* Q13, init 6144 */
  int32_t dry_gain; /* Q13, init 6144 */
  int32_t roomsize; /* Q13, init 4096; comb feedback = (roomsize * 2333 >> 13) + 5779 */
  int32_t damp;     /* Q13, init 4096; comb damping = damp * 3301 >> 13 */
} early_reflector;

typedef struct stereo_widening_system {
  int32_t status; /* 0 = off (the owner skips the block); init 0 */
  difference_circuit* dc;
  crossfeed_network* cfn;
  early_reflector* er;
} stereo_widening_system;

KAFX_EXTERN_C_BEGIN

KAFX_API void stereo_widening_system_init(stereo_widening_system* s);
/* Reloads every section with the rate's row (clearing its state) and sets
 * the crossfeed delay lengths. */
KAFX_API void stereo_widening_system_set_sample_rate(stereo_widening_system* s, SampleRateType rate);
KAFX_API void stereo_widening_system_reset(stereo_widening_system* s);
KAFX_API void stereo_widening_system_end(stereo_widening_system* s);
KAFX_API void stereo_widening_system_dc_set_side_gain(stereo_widening_system* s, int v);
KAFX_API void stereo_widening_system_dc_get_side_gain(stereo_widening_system* s, int* v);
KAFX_API void stereo_widening_system_cfn_set_gain(stereo_widening_system* s, int v);
KAFX_API void stereo_widening_system_cfn_get_gain(stereo_widening_system* s, int* v);
KAFX_API void stereo_widening_system_er_set_dry_gain(stereo_widening_system* s, int v);
KAFX_API void stereo_widening_system_er_get_dry_gain(stereo_widening_system* s, int* v);
KAFX_API void stereo_widening_system_er_set_wet_gain(stereo_widening_system* s, int v);
KAFX_API void stereo_widening_system_er_get_wet_gain(stereo_widening_system* s, int* v);
/* Room size and damp re-derive the comb feedback and damping at once. */
KAFX_API void stereo_widening_system_er_set_roomsize(stereo_widening_system* s, int v);
KAFX_API void stereo_widening_system_er_get_roomsize(stereo_widening_system* s, int* v);
KAFX_API void stereo_widening_system_er_set_damp(stereo_widening_system* s, int v);
KAFX_API void stereo_widening_system_er_get_damp(stereo_widening_system* s, int* v);
KAFX_API void stereo_widening_system_process(stereo_widening_system* s, int* in_left, int* in_right,
                                             int* out_left, int* out_right, int count);

KAFX_API void difference_circuit_init(difference_circuit* d);
KAFX_API void difference_circuit_set_sample_rate(difference_circuit* d, SampleRateType rate);
KAFX_API void difference_circuit_reset(difference_circuit* d);
KAFX_API void difference_circuit_end(difference_circuit* d);
KAFX_API void difference_circuit_set_side_gain(difference_circuit* d, int v);
KAFX_API void difference_circuit_get_side_gain(difference_circuit* d, int* v);
KAFX_API void difference_circuit_process_32(difference_circuit* d, int* in_left, int* in_right, int* out_left,
                                            int* out_right);
KAFX_API void difference_circuit_process_block(difference_circuit* d, int* in_left, int* in_right,
                                               int* out_left, int* out_right, int count);

KAFX_API void crossfeed_network_init(crossfeed_network* c);
KAFX_API void crossfeed_network_set_sample_rate(crossfeed_network* c, SampleRateType rate);
KAFX_API void crossfeed_network_reset(crossfeed_network* c);
KAFX_API void crossfeed_network_end(crossfeed_network* c);
KAFX_API void crossfeed_network_set_gain(crossfeed_network* c, int v);
KAFX_API void crossfeed_network_get_gain(crossfeed_network* c, int* v);
KAFX_API void crossfeed_network_process_32(crossfeed_network* c, int* in_left, int* in_right, int* out_left,
                                           int* out_right);
KAFX_API void crossfeed_network_process_block(crossfeed_network* c, int* in_left, int* in_right,
                                              int* out_left, int* out_right, int count);

KAFX_API void early_reflector_init(early_reflector* e);
KAFX_API void early_reflector_set_sample_rate(early_reflector* e, SampleRateType rate);
KAFX_API void early_reflector_reset(early_reflector* e);
KAFX_API void early_reflector_end(early_reflector* e);
KAFX_API void early_reflector_set_dry_gain(early_reflector* e, int v);
KAFX_API void early_reflector_get_dry_gain(early_reflector* e, int* v);
KAFX_API void early_reflector_set_wet_gain(early_reflector* e, int v);
KAFX_API void early_reflector_get_wet_gain(early_reflector* e, int* v);
KAFX_API void early_reflector_set_roomsize(early_reflector* e, int v);
KAFX_API void early_reflector_get_roomsize(early_reflector* e, int* v);
KAFX_API void early_reflector_set_damp(early_reflector* e, int v);
KAFX_API void early_reflector_get_damp(early_reflector* e, int* v);
KAFX_API void early_reflector_process_32(early_reflector* e, int* in_left, int* in_right, int* out_left,
                                         int* out_right);
KAFX_API void early_reflector_process_block(early_reflector* e, int* in_left, int* in_right, int* out_left,
                                            int* out_right, int count);

KAFX_EXTERN_C_END

#endif
