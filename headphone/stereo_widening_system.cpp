// Stereo widening system: difference circuit (phase networks and mid/side
// shaping), crossfeed network (delayed, low-passed feed of the other
// channel) and early reflector (a small comb/all-pass room), run in that
// order on 24-bit working samples.
//
// Formats: samples Q23 in int32; biquads Q28 (IIR_process_32 arithmetic);
// side_gain, crossfeed gain, wet and dry gains, room size and damp Q13.
// The difference circuit's sums wrap in 32 bits; its side gain and the
// crossfeed and reflector gains are 64-bit products shifted right without
// rounding and saturated (no -1 flush there); the crossfeed and reflector
// mixes saturate. The quartered reflector input flushes -1 to 0.
//
// The block forms run chunks of up to 256 samples with the filters' states
// in locals (the shared biquad, comb and all-pass kernels), a group of
// filters per loop. That is the per-sample order of the design exactly:
// every filter still sees its own samples in order and none feeds back into
// an earlier one. A chunk with a pass-through section (status 0) runs the
// per-sample functions instead.
#include "kafx_proc/stereo_widening_system.h"

#include <cstdlib>
#include <cstring>

#include "common/dc_remove.h"
#include "common/delay.h"
#include "common/fixed_point.h"
#include "common/lifecycle.h"
#include "common/lanes_avx2.h"
#include "common/reverb_kernels.h"
#include "headphone/biquad_sections.h"
#include "headphone/biquad_sections_avx2.h"
#include "headphone/stereo_widening_system_kernels.h"
#include "headphone/stereo_widening_system_tables.h"

using namespace kafx;

namespace {

namespace tables = kafx::sws_tables;

constexpr int kChunk = 256;  // samples per pass of the block forms (stack scratch)

constexpr int kDelayLength[4] = {23, 23, 47, 95};  // crossfeed delay per rate class
constexpr int kCombLeft[4] = {1109, 1399, 1489, 1777};
constexpr int kCombRight[4] = {1151, 1423, 1523, 1801};
constexpr int kAllpassLeft[2] = {241, 337};
constexpr int kAllpassRight[2] = {269, 367};

// Q13 gain product, saturated (no flush).
inline int32_t gain13(int32_t gain, int32_t x) { return shr_sat<13>(static_cast<int64_t>(gain) * x); }

// ---------------------------------------------------------------------------
// Difference circuit

const int32_t* difference_row(int section, int rate) {
  if (section < 6) return tables::kPhaseNetwork[section % 3][rate];
  switch (section) {
    case 6: return tables::kSpareBandPass[rate];
    case 8: return tables::kSideHighPass[rate];
    case 9: return tables::kMidBandPass[rate];
    default: return tables::kLowPass200[rate];  // 7 and 10
  }
}

// Steps 4 to 6 of the circuit for one sample, from the phase-network outputs
// and the four band outputs.
struct DifferenceMix {
  int32_t side_gain;
  void operator()(int32_t lf, int32_t rf, int32_t m_low, int32_t m_band, int32_t s_low, int32_t s_high,
                  int* out_left, int* out_right) const {
    const int32_t mid_sum = wrap_add(lf, rf);
    const int32_t side = wrap_sub(lf, rf);
    const int32_t side_shaped = wrap_add(wrap_sub(wrap_add(wrap_shl<1>(s_low), side >> 1), s_low >> 1), s_high);
    const int32_t side_out = gain13(side_gain, side_shaped);
    const int32_t mid = wrap_add(wrap_add(mid_sum, m_band >> 2), m_low) >> 1;
    *out_left = wrap_add(wrap_add(lf >> 2, mid), side_out);
    *out_right = wrap_sub(wrap_add(rf >> 2, mid), side_out);
  }
};

// Sections run with their state in locals; a chunk with a pass-through
// section (status 0) goes down the per-sample path instead.
template <int N>
using Sections = BiquadSections<N>;

void difference_chunk_reference(difference_circuit* d, const int* in_left, const int* in_right, int* out_left,
                      int* out_right, int n) {
  if (!Sections<DIFFERENCE_CIRCUIT_SECTIONS>::all_on(d->section)) {
    for (int i = 0; i < n; ++i) {
      int l = in_left[i], r = in_right[i];
      difference_circuit_process_32(d, &l, &r, &out_left[i], &out_right[i]);
    }
    return;
  }
  // Two loops: the phase networks, then the bands and the mix.
  Sections<DIFFERENCE_CIRCUIT_SECTIONS> s(d->section);
  int32_t lf[kChunk], rf[kChunk];
  for (int i = 0; i < n; ++i) {
    lf[i] = s.step(2, s.step(1, s.step(0, in_left[i])));
    rf[i] = s.step(5, s.step(4, s.step(3, in_right[i])));
  }
  const DifferenceMix mix{d->side_gain};
  for (int i = 0; i < n; ++i) {
    const int32_t mid_sum = wrap_add(lf[i], rf[i]);
    const int32_t side = wrap_sub(lf[i], rf[i]);
    mix(lf[i], rf[i], s.step(10, mid_sum), s.step(9, mid_sum), s.step(7, side), s.step(8, side), &out_left[i],
        &out_right[i]);
  }
  s.store();
}

#if KAFX_AVX2_VARIANTS
// The AVX2 build: a pipeline in one loop, so that the recursions overlap. At
// step t the left and right first sections work on sample t and the third
// sections on sample t - 2 (one vector of lanes), the second sections on
// sample t - 1 (half of another) and the four bands on sample t - 3 (a third
// vector), each from what the stage before it produced one step earlier. The
// first and last three steps, where the pipeline fills and drains, run the
// per-sample steps. Each section still sees its own samples in order: the
// integers are the reference's.
constexpr int kDifferenceDepth = 4;  // the pipeline's stages

KAFX_TARGET_AVX2 void difference_chunk_avx2(difference_circuit* d, const int* in_left, const int* in_right,
                                            int* out_left, int* out_right, int n) {
  if (n <= kDifferenceDepth || !Sections<DIFFERENCE_CIRCUIT_SECTIONS>::all_on(d->section)) {
    difference_chunk_reference(d, in_left, in_right, out_left, out_right, n);
    return;
  }
  Sections<DIFFERENCE_CIRCUIT_SECTIONS> s(d->section);
  // Outputs per step, lane i's value in word 2i: outer[t] holds the first
  // sections' outputs for sample t (lanes 0, 1: left, right) and the third
  // sections' for sample t - 2 (lanes 2, 3); second[t] the second sections'
  // for sample t; bands[t] (mid low, mid band, side low, side high) for
  // sample t.
  alignas(32) int32_t outer[kChunk + 2][8], second[kChunk][8], bands[kChunk][8];
  auto stage = [&](int k, int j) {
    if (k == 0) {
      outer[j][0] = s.step(0, in_left[j]);
      outer[j][2] = s.step(3, in_right[j]);
    } else if (k == 1) {
      second[j][0] = s.step(1, outer[j][0]);
      second[j][2] = s.step(4, outer[j][2]);
    } else if (k == 2) {
      outer[j + 2][4] = s.step(2, second[j][0]);
      outer[j + 2][6] = s.step(5, second[j][2]);
    } else {
      const int32_t mid_sum = wrap_add(outer[j + 2][4], outer[j + 2][6]);
      const int32_t side = wrap_sub(outer[j + 2][4], outer[j + 2][6]);
      bands[j][0] = s.step(10, mid_sum);
      bands[j][2] = s.step(9, mid_sum);
      bands[j][4] = s.step(7, side);
      bands[j][6] = s.step(8, side);
    }
  };
  const DifferenceMix mix{d->side_gain};
  auto mix_at = [&](int i) {
    mix(outer[i + 2][4], outer[i + 2][6], bands[i][0], bands[i][2], bands[i][4], bands[i][6], &out_left[i],
        &out_right[i]);
  };
  for (int t = 0; t < kDifferenceDepth - 1; ++t)
    for (int k = 0; k <= t; ++k) stage(k, t - k);
  Biquad32Kernel* outer_of[4] = {&s.k[0], &s.k[3], &s.k[2], &s.k[5]};
  Biquad32Kernel* second_of[4] = {&s.k[1], &s.k[4], nullptr, nullptr};
  Biquad32Kernel* bands_of[4] = {&s.k[10], &s.k[9], &s.k[7], &s.k[8]};
  int32_t unused = 0;
  int32_t* outer_x0[4] = {&s.x0[0], &s.x0[3], &s.x0[2], &s.x0[5]};
  int32_t* second_x0[4] = {&s.x0[1], &s.x0[4], &unused, &unused};
  int32_t* bands_x0[4] = {&s.x0[10], &s.x0[9], &s.x0[7], &s.x0[8]};
  {
    SectionLanes po(outer_of), p1(second_of), pb(bands_of);
    const __m256i lf_index = _mm256_set1_epi32(4), rf_index = _mm256_set1_epi32(6);
    for (int t = kDifferenceDepth - 1; t < n; ++t) {
      const __m256i lr = lanes_load(outer[t - 1]);
      const __m256i lf = _mm256_permutevar8x32_epi32(lr, lf_index), rf = _mm256_permutevar8x32_epi32(lr, rf_index);
      const __m256i mid_side = _mm256_blend_epi32(_mm256_add_epi32(lf, rf), _mm256_sub_epi32(lf, rf), 0xf0);
      lanes_store(bands[t - 3], pb.step(lanes::shl_sat<5>(mid_side)));
      const __m256i into_third =
          chained_x32(_mm256_permute4x64_epi64(lanes_load(second[t - 2]), _MM_SHUFFLE(1, 0, 1, 0)));
      const __m256i outer_in =
          _mm256_blend_epi32(lanes::shl_sat<5>(lanes_abab(in_left[t], in_right[t])), into_third, 0xf0);
      lanes_store(second[t - 1], p1.step(chained_x32(lanes_load(outer[t - 1]))));
      lanes_store(outer[t], po.step(outer_in));
      // The mix of the sample the bands finished a step earlier, off the
      // recursions' paths (the outputs may be the inputs: sample t - 4 has
      // been read).
      if (t >= kDifferenceDepth) mix_at(t - 4);
    }
    po.store(outer_of, outer_x0);
    p1.store(second_of, second_x0);
    pb.store(bands_of, bands_x0);
  }
  for (int t = n; t < n + kDifferenceDepth - 1; ++t)
    for (int k = t - n + 1; k < kDifferenceDepth; ++k) stage(k, t - k);
  s.store();
  for (int i = n - kDifferenceDepth; i < n; ++i) mix_at(i);
}
#endif

}  // namespace

namespace kafx {
const KernelVariants<DifferenceChunk> difference_chunk_variants = {
    "difference_chunk", {difference_chunk_reference, KAFX_AVX2_ONLY(difference_chunk_avx2)}};
}  // namespace kafx

namespace {

constexpr auto difference_chunk = run_chosen<difference_chunk_variants>;

// ---------------------------------------------------------------------------
// Crossfeed network

const int32_t* crossfeed_row(int section, int rate) {
  if (section < 2) return tables::kCrossfeedAllPass[rate];
  if (section < 4) return tables::kCrossfeedLowPass[rate];
  return tables::kCrossfeedHighPass[rate];
}

// Step 3: direct all-pass, plus the other side's crossfeed at gain, plus the
// own high band at gain / 4 (a shift of 15 instead of 13).
inline int32_t crossfeed_mix(int32_t gain, int32_t direct, int32_t cross, int32_t high) {
  return sat_add(sat_add(direct, gain13(gain, cross)), shr_sat<15>(static_cast<int64_t>(gain) * high));
}

// Both crossfeed delays over a chunk (the block form of audio_delay_process).
void delay_lines(crossfeed_network* c, const int* in_left, const int* in_right, int32_t* xl, int32_t* xr, int n) {
  audio_delay* dl = c->delay[0];
  audio_delay* dr = c->delay[1];
  delay_run(dl->buffer, dl->delay, dl->index, in_left, n, [xl](int k, int32_t v) { xl[k] = v; });
  delay_run(dr->buffer, dr->delay, dr->index, in_right, n, [xr](int k, int32_t v) { xr[k] = v; });
}

void crossfeed_chunk_reference(crossfeed_network* c, const int* in_left, const int* in_right, int* out_left, int* out_right,
                     int n) {
  if (!Sections<CROSSFEED_NETWORK_SECTIONS>::all_on(c->section)) {
    for (int i = 0; i < n; ++i) {
      int l = in_left[i], r = in_right[i];
      crossfeed_network_process_32(c, &l, &r, &out_left[i], &out_right[i]);
    }
    return;
  }
  int32_t xl[kChunk], xr[kChunk];
  delay_lines(c, in_left, in_right, xl, xr, n);
  Sections<CROSSFEED_NETWORK_SECTIONS> s(c->section);
  const int32_t gain = c->gain;
  for (int i = 0; i < n; ++i) {
    const int32_t l = in_left[i], r = in_right[i];
    const int32_t dl = s.step(0, l), dr = s.step(1, r), hl = s.step(4, l), hr = s.step(5, r);
    const int32_t cl = s.step(2, xl[i]), cr = s.step(3, xr[i]);
    out_left[i] = crossfeed_mix(gain, dl, cr, hl);
    out_right[i] = crossfeed_mix(gain, dr, cl, hr);
  }
  s.store();
}

#if KAFX_AVX2_VARIANTS
// The AVX2 build: the direct all-passes and high bands of both channels in
// one vector of lanes fed (left, right, left, right), the two crossfeed
// low-passes in another fed the delayed samples; the two recursions advance
// together, with the mixes.
KAFX_TARGET_AVX2 void crossfeed_chunk_avx2(crossfeed_network* c, const int* in_left, const int* in_right,
                                           int* out_left, int* out_right, int n) {
  if (!Sections<CROSSFEED_NETWORK_SECTIONS>::all_on(c->section)) {
    crossfeed_chunk_reference(c, in_left, in_right, out_left, out_right, n);
    return;
  }
  int32_t xl[kChunk], xr[kChunk];
  delay_lines(c, in_left, in_right, xl, xr, n);
  Sections<CROSSFEED_NETWORK_SECTIONS> s(c->section);
  Biquad32Kernel* direct_of[4] = {&s.k[0], &s.k[1], &s.k[4], &s.k[5]};
  Biquad32Kernel* cross_of[4] = {&s.k[2], &s.k[3], nullptr, nullptr};
  int32_t unused = 0;
  int32_t* direct_x0[4] = {&s.x0[0], &s.x0[1], &s.x0[4], &s.x0[5]};
  int32_t* cross_x0[4] = {&s.x0[2], &s.x0[3], &unused, &unused};
  SectionLanes direct(direct_of), cross(cross_of);
  // Lane outputs: (direct left, direct right, high left, high right) and
  // (cross left, cross right). The mixes of a sample run in lanes 0 and 1
  // (left, right) inside the loop, off the recursions' paths (the outputs may
  // be the inputs: the sample has been read):
  //   direct + sat((gain * other cross) >> 13) + sat((gain * high) >> 15),
  // the sums saturating in that order.
  const __m256i gain = _mm256_set1_epi32(c->gain);
  for (int i = 0; i < n; ++i) {
    const __m256i d = direct.step(lanes::shl_sat<5>(lanes_abab(in_left[i], in_right[i])));
    const __m256i x = cross.step(lanes::shl_sat<5>(lanes_abab(xl[i], xr[i])));
    const __m256i other = _mm256_permute4x64_epi64(x, _MM_SHUFFLE(3, 2, 0, 1));
    const __m256i high = _mm256_permute4x64_epi64(d, _MM_SHUFFLE(3, 2, 3, 2));
    const __m256i fed = lanes::product_shr_sat<13>(_mm256_mul_epi32(gain, other));
    const __m256i band = lanes::product_shr_sat<15>(_mm256_mul_epi32(gain, high));
    const __m256i mixed = lanes::sat_add(lanes::sat_add(d, fed), band);
    out_left[i] = _mm256_cvtsi256_si32(mixed);
    out_right[i] = _mm256_extract_epi32(mixed, 2);
  }
  direct.store(direct_of, direct_x0);
  cross.store(cross_of, cross_x0);
  s.store();
}
#endif

}  // namespace

namespace kafx {
const KernelVariants<CrossfeedChunk> crossfeed_chunk_variants = {
    "crossfeed_chunk", {crossfeed_chunk_reference, KAFX_AVX2_ONLY(crossfeed_chunk_avx2)}};
}  // namespace kafx

namespace {

constexpr auto crossfeed_chunk = run_chosen<crossfeed_chunk_variants>;

// ---------------------------------------------------------------------------
// Early reflector

// Comb damping and feedback from damp and room size, as in the reverb
// (feedback = roomsize * 0.285 + 0.705; the addition is a plain one).
void reflector_update(early_reflector* e) {
  const int32_t damping = gain13(e->damp, 3301);
  const int32_t feedback = wrap_add(gain13(e->roomsize, 2333), 5779);
  for (int k = 0; k < 4; ++k) {
    comb_setsetdamp(e->comb_left[k], damping);
    comb_setsetdamp(e->comb_right[k], damping);
    comb_setfeedback(e->comb_left[k], feedback);
    comb_setfeedback(e->comb_right[k], feedback);
  }
}

// Step 5 before the DC remover: wet reflections plus the unquartered input.
inline int32_t reflector_wet_dry(const early_reflector* e, int32_t acc, int32_t dry) {
  return sat_add(gain13(e->wet_gain, acc), gain13(e->dry_gain, dry));
}

inline int32_t reflector_mix(const early_reflector* e, int32_t acc, int32_t dry, dc_remove* dc) {
  int out = reflector_wet_dry(e, acc, dry);
  dc_remove_process_24(dc, &out, &out);
  return out;
}

// Both rooms over a chunk: acc_l and acc_r hold the pre-filtered, quartered
// inputs on entry and the all-passed sums of the four combs on exit (the
// shared block forms of the comb bank and the all-pass: each filter runs
// over the chunk in order with its state in registers).
void reflector_rooms(early_reflector* e, int32_t* acc_l, int32_t* acc_r, int n) {
  int32_t ql[kChunk], qr[kChunk];
  std::memcpy(ql, acc_l, static_cast<size_t>(n) * sizeof(int32_t));
  std::memcpy(qr, acc_r, static_cast<size_t>(n) * sizeof(int32_t));
  std::memset(acc_l, 0, static_cast<size_t>(n) * sizeof(int32_t));
  std::memset(acc_r, 0, static_cast<size_t>(n) * sizeof(int32_t));
  run_chosen<comb_stereo4_working_variants>(e->comb_left, e->comb_right, ql, qr, acc_l, acc_r, n);
  constexpr auto allpass_run = run_chosen<reverb_allpass_run_variants>;
  for (int k = 0; k < 2; ++k) {
    allpass_run(e->allpass_left[k], acc_l, n);
    allpass_run(e->allpass_right[k], acc_r, n);
  }
}

// The chunk with a pass-through pre-filter: the per-sample function.
void reflector_samples(early_reflector* e, const int* in_left, const int* in_right, int* out_left, int* out_right,
                       int n) {
  for (int i = 0; i < n; ++i) {
    int l = in_left[i], r = in_right[i];
    early_reflector_process_32(e, &l, &r, &out_left[i], &out_right[i]);
  }
}

void wet_dry_run(const early_reflector* e, int32_t* al, int32_t* ar, const int* in_left, const int* in_right, int n);
#if KAFX_AVX2_VARIANTS
KAFX_TARGET_AVX2 void wet_dry_run_avx2(const early_reflector* e, int32_t* al, int32_t* ar, const int* in_left,
                                       const int* in_right, int n);
#endif
template <void (*WetDry)(const early_reflector*, int32_t*, int32_t*, const int*, const int*, int)>
void reflector_rest(early_reflector* e, int32_t* al, int32_t* ar, const int* in_left, const int* in_right,
                    int* out_left, int* out_right, int n);

void reflector_chunk_reference(early_reflector* e, const int* in_left, const int* in_right, int* out_left,
                               int* out_right, int n) {
  IIR_t* pre[2] = {e->prefilter_left, e->prefilter_right};
  if (!Sections<2>::all_on(pre)) {
    reflector_samples(e, in_left, in_right, out_left, out_right, n);
    return;
  }
  int32_t al[kChunk], ar[kChunk];
  Sections<2> s(pre);
  for (int i = 0; i < n; ++i) {
    al[i] = s.step(0, flush_m1(in_left[i] >> 2));
    ar[i] = s.step(1, flush_m1(in_right[i] >> 2));
  }
  s.store();
  reflector_rest<wet_dry_run>(e, al, ar, in_left, in_right, out_left, out_right, n);
}

#if KAFX_AVX2_VARIANTS
// The AVX2 build: both pre-filters in two lanes of a vector, and the wet/dry
// mixes eight samples at a time.
KAFX_TARGET_AVX2 void reflector_chunk_avx2(early_reflector* e, const int* in_left, const int* in_right,
                                           int* out_left, int* out_right, int n) {
  IIR_t* pre[2] = {e->prefilter_left, e->prefilter_right};
  if (!Sections<2>::all_on(pre)) {
    reflector_samples(e, in_left, in_right, out_left, out_right, n);
    return;
  }
  int32_t al[kChunk], ar[kChunk];
  Sections<2> s(pre);
  Biquad32Kernel* lanes_of[4] = {&s.k[0], &s.k[1], nullptr, nullptr};
  int32_t unused = 0;
  int32_t* x0_of[4] = {&s.x0[0], &s.x0[1], &unused, &unused};
  SectionLanes lanes(lanes_of);
  for (int i = 0; i < n; ++i) {
    const __m256i quarter = lanes::flush_m1(_mm256_srai_epi32(lanes_abab(in_left[i], in_right[i]), 2));
    const __m256i y = lanes.step(lanes::shl_sat<5>(quarter));
    al[i] = _mm256_cvtsi256_si32(y);
    ar[i] = _mm256_extract_epi32(y, 2);
  }
  lanes.store(lanes_of, x0_of);
  s.store();
  reflector_rest<wet_dry_run_avx2>(e, al, ar, in_left, in_right, out_left, out_right, n);
}
#endif

}  // namespace

namespace kafx {
const KernelVariants<ReflectorChunk> reflector_chunk_variants = {
    "reflector_chunk", {reflector_chunk_reference, KAFX_AVX2_ONLY(reflector_chunk_avx2)}};
}  // namespace kafx

namespace {

constexpr auto reflector_chunk = run_chosen<reflector_chunk_variants>;

// After the pre-filters (al, ar): the rooms, the mix and the DC removers.
// The wet/dry mixes (wet and dry sums in place of the room outputs).
void wet_dry_run(const early_reflector* e, int32_t* al, int32_t* ar, const int* in_left, const int* in_right, int n) {
  for (int i = 0; i < n; ++i) {
    al[i] = reflector_wet_dry(e, al[i], in_left[i]);
    ar[i] = reflector_wet_dry(e, ar[i], in_right[i]);
  }
}

#if KAFX_AVX2_VARIANTS
// The wet/dry mixes eight samples at a time.
KAFX_TARGET_AVX2 void wet_dry_run_avx2(const early_reflector* e, int32_t* al, int32_t* ar, const int* in_left,
                                       const int* in_right, int n) {
  const __m256i wet = _mm256_set1_epi32(e->wet_gain), dry = _mm256_set1_epi32(e->dry_gain);
  int i = 0;
  for (; i + 8 <= n; i += 8) {
    int32_t* acc[2] = {al + i, ar + i};
    const int* in[2] = {in_left + i, in_right + i};
    for (int c = 0; c < 2; ++c) {
      const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(acc[c]));
      const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in[c]));
      const __m256i sum = lanes::sat_add(lanes::gain_shr_sat<13>(wet, a), lanes::gain_shr_sat<13>(dry, x));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(acc[c]), sum);
    }
  }
  wet_dry_run(e, al + i, ar + i, in_left + i, in_right + i, n - i);
}
#endif

// After the pre-filters (al, ar): the rooms, the wet/dry mixes (`wet_dry`)
// and both DC removers' recursions in one loop.
template <void (*WetDry)(const early_reflector*, int32_t*, int32_t*, const int*, const int*, int)>
void reflector_rest(early_reflector* e, int32_t* al, int32_t* ar, const int* in_left, const int* in_right,
                    int* out_left, int* out_right, int n) {
  reflector_rooms(e, al, ar, n);
  WetDry(e, al, ar, in_left, in_right, n);
  dc_remove* dl = e->dc_left;
  dc_remove* dr = e->dc_right;
  int64_t y1l = dl->y1, x1l = dl->x1, y1r = dr->y1, x1r = dr->x1;
  for (int i = 0; i < n; ++i) {
    out_left[i] = dc_remove_out24(dc_remove_tick<5>(y1l, x1l, al[i]));
    out_right[i] = dc_remove_out24(dc_remove_tick<5>(y1r, x1r, ar[i]));
  }
  dl->y1 = y1l;
  dl->x1 = x1l;
  dr->y1 = y1r;
  dr->x1 = x1r;
}

// Runs a stage's chunk function over any count.
template <typename Stage, typename Chunk>
void in_chunks(Stage* st, Chunk chunk, int* in_left, int* in_right, int* out_left, int* out_right, int count) {
  for (int done = 0; done < count; done += kChunk) {
    const int n = count - done < kChunk ? count - done : kChunk;
    chunk(st, in_left + done, in_right + done, out_left + done, out_right + done, n);
  }
}

}  // namespace

extern "C" {

// ---------------------------------------------------------------------------
// difference_circuit

void difference_circuit_init(difference_circuit* d) {
  for (int k = 0; k < DIFFERENCE_CIRCUIT_SECTIONS; ++k)
    d->section[k] = new_block<IIR_t>(IIR_init, difference_row(k, 1));
  d->side_gain = 4096;
}

void difference_circuit_set_sample_rate(difference_circuit* d, SampleRateType rate) {
  const int r = rate_index(rate);
  for (int k = 0; k < DIFFERENCE_CIRCUIT_SECTIONS; ++k) IIR_reinit(d->section[k], difference_row(k, r));
}

void difference_circuit_reset(difference_circuit* d) {
  for (IIR_t* f : d->section) IIR_reset(f);
}

void difference_circuit_end(difference_circuit* d) {
  for (IIR_t*& f : d->section) end_block(f, IIR_end);
}

void difference_circuit_set_side_gain(difference_circuit* d, int v) { d->side_gain = v; }
void difference_circuit_get_side_gain(difference_circuit* d, int* v) { *v = d->side_gain; }

void difference_circuit_process_32(difference_circuit* d, int* in_left, int* in_right, int* out_left,
                                   int* out_right) {
  IIR_t* const* s = d->section;
  int32_t lf = *in_left, rf = *in_right;
  for (int k = 0; k < 3; ++k) {
    lf = biquad_run32(s[k], lf);
    rf = biquad_run32(s[k + 3], rf);
  }
  const int32_t mid_sum = wrap_add(lf, rf);
  const int32_t side = wrap_sub(lf, rf);
  const int32_t m_low = biquad_run32(s[10], mid_sum);
  const int32_t m_band = biquad_run32(s[9], mid_sum);
  const int32_t s_low = biquad_run32(s[7], side);
  const int32_t s_high = biquad_run32(s[8], side);
  DifferenceMix{d->side_gain}(lf, rf, m_low, m_band, s_low, s_high, out_left, out_right);
}

void difference_circuit_process_block(difference_circuit* d, int* in_left, int* in_right, int* out_left,
                                      int* out_right, int count) {
  in_chunks(d, difference_chunk, in_left, in_right, out_left, out_right, count);
}

// ---------------------------------------------------------------------------
// crossfeed_network

void crossfeed_network_init(crossfeed_network* c) {
  for (int k = 0; k < CROSSFEED_NETWORK_SECTIONS; ++k)
    c->section[k] = new_block<IIR_t>(IIR_init, crossfeed_row(k, 1));
  for (audio_delay*& d : c->delay) {
    d = new_block<audio_delay>([](audio_delay* line) {
      audio_delay_init(line, CROSSFEED_NETWORK_MAX_DELAY);
      audio_delay_set_delay(line, kDelayLength[1]);
    });
  }
  c->gain = 4096;
}

void crossfeed_network_set_sample_rate(crossfeed_network* c, SampleRateType rate) {
  const int r = rate_index(rate);
  for (int k = 0; k < CROSSFEED_NETWORK_SECTIONS; ++k) IIR_reinit(c->section[k], crossfeed_row(k, r));
  for (audio_delay* d : c->delay) audio_delay_reinit(d, kDelayLength[r]);
}

void crossfeed_network_reset(crossfeed_network* c) {
  for (IIR_t* f : c->section) IIR_reset(f);
  for (audio_delay* d : c->delay) audio_delay_reset(d);
}

void crossfeed_network_end(crossfeed_network* c) {
  for (IIR_t*& f : c->section) end_block(f, IIR_end);
  for (audio_delay*& d : c->delay) end_block(d, audio_delay_end);
}

void crossfeed_network_set_gain(crossfeed_network* c, int v) { c->gain = v; }
void crossfeed_network_get_gain(crossfeed_network* c, int* v) { *v = c->gain; }

void crossfeed_network_process_32(crossfeed_network* c, int* in_left, int* in_right, int* out_left,
                                  int* out_right) {
  IIR_t* const* s = c->section;
  const int32_t l = *in_left, r = *in_right;
  const int32_t dl = biquad_run32(s[0], l);
  const int32_t dr = biquad_run32(s[1], r);
  const int32_t hl = biquad_run32(s[4], l);
  const int32_t hr = biquad_run32(s[5], r);
  const int32_t xl = biquad_run32(s[2], audio_delay_process(c->delay[0], l));
  const int32_t xr = biquad_run32(s[3], audio_delay_process(c->delay[1], r));
  *out_left = crossfeed_mix(c->gain, dl, xr, hl);
  *out_right = crossfeed_mix(c->gain, dr, xl, hr);
}

void crossfeed_network_process_block(crossfeed_network* c, int* in_left, int* in_right, int* out_left,
                                     int* out_right, int count) {
  in_chunks(c, crossfeed_chunk, in_left, in_right, out_left, out_right, count);
}

// ---------------------------------------------------------------------------
// early_reflector

void early_reflector_init(early_reflector* e) {
  bool combs = true;
  for (int k = 0; k < 4; ++k) {
    e->comb_left[k] = new_block<comber>(comb_init, kCombLeft[k]);
    e->comb_right[k] = new_block<comber>(comb_init, kCombRight[k]);
    combs = combs && e->comb_left[k] != nullptr && e->comb_right[k] != nullptr;
  }
  for (int k = 0; k < 2; ++k) {
    e->allpass_left[k] = new_block<allpass>(allpass_init, kAllpassLeft[k]);
    e->allpass_right[k] = new_block<allpass>(allpass_init, kAllpassRight[k]);
  }
  e->dc_left = new_block<dc_remove>(dc_remove_init);
  e->dc_right = new_block<dc_remove>(dc_remove_init);
  e->prefilter_left = new_block<IIR_t>(IIR_init, tables::kReflectorPreFilter[1]);
  e->prefilter_right = new_block<IIR_t>(IIR_init, tables::kReflectorPreFilter[1]);
  e->wet_gain = 6144;
  e->dry_gain = 6144;
  e->roomsize = 4096;
  e->damp = 4096;
  if (combs) reflector_update(e);  // else half-built: the owner ends it
}

void early_reflector_set_sample_rate(early_reflector* e, SampleRateType rate) {
  const int r = rate_index(rate);
  IIR_reinit(e->prefilter_left, tables::kReflectorPreFilter[r]);
  IIR_reinit(e->prefilter_right, tables::kReflectorPreFilter[r]);
}

void early_reflector_reset(early_reflector* e) {
  for (int k = 0; k < 4; ++k) {
    comb_reset(e->comb_left[k]);
    comb_reset(e->comb_right[k]);
  }
  for (int k = 0; k < 2; ++k) {
    allpass_reset(e->allpass_left[k]);
    allpass_reset(e->allpass_right[k]);
  }
  dc_remove_reset(e->dc_left);
  dc_remove_reset(e->dc_right);
  IIR_reset(e->prefilter_left);
  IIR_reset(e->prefilter_right);
}

void early_reflector_end(early_reflector* e) {
  for (int k = 0; k < 4; ++k) {
    end_block(e->comb_left[k], comb_end);
    end_block(e->comb_right[k], comb_end);
  }
  for (int k = 0; k < 2; ++k) {
    end_block(e->allpass_left[k], allpass_end);
    end_block(e->allpass_right[k], allpass_end);
  }
  end_block(e->dc_left, dc_remove_end);
  end_block(e->dc_right, dc_remove_end);
  end_block(e->prefilter_left, IIR_end);
  end_block(e->prefilter_right, IIR_end);
}

void early_reflector_set_dry_gain(early_reflector* e, int v) { e->dry_gain = v; }
void early_reflector_get_dry_gain(early_reflector* e, int* v) { *v = e->dry_gain; }
void early_reflector_set_wet_gain(early_reflector* e, int v) { e->wet_gain = v; }
void early_reflector_get_wet_gain(early_reflector* e, int* v) { *v = e->wet_gain; }

void early_reflector_set_roomsize(early_reflector* e, int v) {
  e->roomsize = v;
  reflector_update(e);
}
void early_reflector_get_roomsize(early_reflector* e, int* v) { *v = e->roomsize; }

void early_reflector_set_damp(early_reflector* e, int v) {
  e->damp = v;
  reflector_update(e);
}
void early_reflector_get_damp(early_reflector* e, int* v) { *v = e->damp; }

void early_reflector_process_32(early_reflector* e, int* in_left, int* in_right, int* out_left, int* out_right) {
  const int32_t l = *in_left, r = *in_right;
  const int32_t ql = biquad_run32(e->prefilter_left, flush_m1(l >> 2));
  const int32_t qr = biquad_run32(e->prefilter_right, flush_m1(r >> 2));
  int32_t acc_l = 0, acc_r = 0;
  for (int k = 0; k < 4; ++k) {
    acc_l = wrap_add(acc_l, comb_process_24(ql, e->comb_left[k]));
    acc_r = wrap_add(acc_r, comb_process_24(qr, e->comb_right[k]));
  }
  for (int k = 0; k < 2; ++k) {
    acc_l = allpass_process(acc_l, e->allpass_left[k]);
    acc_r = allpass_process(acc_r, e->allpass_right[k]);
  }
  *out_left = reflector_mix(e, acc_l, l, e->dc_left);
  *out_right = reflector_mix(e, acc_r, r, e->dc_right);
}

void early_reflector_process_block(early_reflector* e, int* in_left, int* in_right, int* out_left,
                                   int* out_right, int count) {
  in_chunks(e, reflector_chunk, in_left, in_right, out_left, out_right, count);
}

// ---------------------------------------------------------------------------
// stereo_widening_system

void stereo_widening_system_init(stereo_widening_system* s) {
  s->status = 0;
  s->dc = new_block<difference_circuit>(difference_circuit_init);
  s->cfn = new_block<crossfeed_network>(crossfeed_network_init);
  s->er = new_block<early_reflector>(early_reflector_init);
}

void stereo_widening_system_set_sample_rate(stereo_widening_system* s, SampleRateType rate) {
  difference_circuit_set_sample_rate(s->dc, rate);
  crossfeed_network_set_sample_rate(s->cfn, rate);
  early_reflector_set_sample_rate(s->er, rate);
}

void stereo_widening_system_reset(stereo_widening_system* s) {
  difference_circuit_reset(s->dc);
  crossfeed_network_reset(s->cfn);
  early_reflector_reset(s->er);
}

void stereo_widening_system_end(stereo_widening_system* s) {
  end_block(s->dc, difference_circuit_end);
  end_block(s->cfn, crossfeed_network_end);
  end_block(s->er, early_reflector_end);
}

void stereo_widening_system_dc_set_side_gain(stereo_widening_system* s, int v) {
  difference_circuit_set_side_gain(s->dc, v);
}
void stereo_widening_system_dc_get_side_gain(stereo_widening_system* s, int* v) {
  difference_circuit_get_side_gain(s->dc, v);
}
void stereo_widening_system_cfn_set_gain(stereo_widening_system* s, int v) { crossfeed_network_set_gain(s->cfn, v); }
void stereo_widening_system_cfn_get_gain(stereo_widening_system* s, int* v) { crossfeed_network_get_gain(s->cfn, v); }
void stereo_widening_system_er_set_dry_gain(stereo_widening_system* s, int v) { early_reflector_set_dry_gain(s->er, v); }
void stereo_widening_system_er_get_dry_gain(stereo_widening_system* s, int* v) { early_reflector_get_dry_gain(s->er, v); }
void stereo_widening_system_er_set_wet_gain(stereo_widening_system* s, int v) { early_reflector_set_wet_gain(s->er, v); }
void stereo_widening_system_er_get_wet_gain(stereo_widening_system* s, int* v) { early_reflector_get_wet_gain(s->er, v); }
void stereo_widening_system_er_set_roomsize(stereo_widening_system* s, int v) { early_reflector_set_roomsize(s->er, v); }
void stereo_widening_system_er_get_roomsize(stereo_widening_system* s, int* v) { early_reflector_get_roomsize(s->er, v); }
void stereo_widening_system_er_set_damp(stereo_widening_system* s, int v) { early_reflector_set_damp(s->er, v); }
void stereo_widening_system_er_get_damp(stereo_widening_system* s, int* v) { early_reflector_get_damp(s->er, v); }

// Stage after stage over the block, in place in the outputs after the first.
void stereo_widening_system_process(stereo_widening_system* s, int* in_left, int* in_right, int* out_left,
                                    int* out_right, int count) {
  difference_circuit_process_block(s->dc, in_left, in_right, out_left, out_right, count);
  crossfeed_network_process_block(s->cfn, out_left, out_right, out_left, out_right, count);
  early_reflector_process_block(s->er, out_left, out_right, out_left, out_right, count);
}

}  // extern "C"
