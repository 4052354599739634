// Virtual bass system: 250 Hz crossover per channel, harmonics of the mono
// bass from the non-linear device, band-limited and mixed with the all-pass
// aligned dry bass, levelled once per block by the bass compressor and added
// back to each channel's all-pass aligned high band.
//
// Formats: samples Q23 in int32; biquads Q28 (IIR_process_32 arithmetic);
// bass_gain, harmonic_gain, high_gain Q13; the leveller's gains Q17. Gain
// products are 64-bit, shifted right without rounding and saturated; the
// mixes saturate and flush -1 to 0 where noted.
//
// The first pass runs sample by sample with every section's state in
// locals; a block with a pass-through section (status 0) takes the exported
// per-sample functions instead. Both give the same samples.
#include "kafx_proc/virtual_bass_system.h"

#include <cstdlib>
#include <cstring>

#include "common/fixed_point.h"
#include "common/lifecycle.h"
#include "common/nld_kernels.h"
#include "headphone/biquad_sections.h"
#include "headphone/virtual_bass_system_tables.h"

using namespace kafx;

namespace {

namespace tables = kafx::vbs_tables;

constexpr int kMaxBlock = VIRTUAL_BASS_SYSTEM_MAX_BLOCK;

// Leveller target gains (Q17) and thresholds on the envelope (peak >> 8).
constexpr int32_t kUnityGain = 131072;
constexpr int32_t kKneePeak = 24577;  // below: unity


inline int32_t gain13(int32_t gain, int32_t x) { return shr_sat<13>(static_cast<int64_t>(gain) * x); }

// The biquads other than the crossovers: harmonic filter, then the three
// alignment all-passes.
IIR_t** section(virtual_bass_system* v, int i) {
  IIR_t** all[4] = {&v->harmonic_filter, &v->phase_left, &v->phase_right, &v->phase_bass};
  return all[i];
}

const int32_t* section_row(int i, int rate) {
  return i == 0 ? tables::kHarmonicLowPass[rate] : tables::kAllPass[rate];
}

// Target gain of the leveller for one block (Q17).
int32_t leveller_target(const compressor_bass* c, int32_t peak) {
  const int32_t env = c->envelope;
  if (env >= 90113) return 18432;
  if (env >= 65537) return 47104;
  if (env >= 32769) return 71680;
  if (peak < kKneePeak) return c->unity_gain;
  // Soft knee, 24577 <= peak <= 32768 here (the envelope is never below the
  // block's peak). q = (peak << 14) / 6 by the reciprocal 715827883 / 2^32.
  const uint32_t shifted = static_cast<uint32_t>(peak) << 14;
  const uint32_t q = static_cast<uint32_t>((static_cast<uint64_t>(shifted) * 715827883u) >> 32);
  const uint32_t r = sqrtFxQ16(2u * sqrtFxQ16(q / 4096));
  const int64_t t = static_cast<int64_t>(402653184 / peak) * 15 * static_cast<int64_t>(r);
  return shr_sat<17>(t);
}

// The sections of the first pass, in the order the kernel below uses them.
constexpr int kSections = 12;
void first_pass_sections(virtual_bass_system* v, IIR_t** f) {
  spectral_band_split* sp[2] = {v->split_left, v->split_right};
  for (int c = 0; c < 2; ++c) {
    f[4 * c] = sp[c]->first_a;
    f[4 * c + 1] = sp[c]->second_a;
    f[4 * c + 2] = sp[c]->first_b;
    f[4 * c + 3] = sp[c]->second_b;
  }
  f[8] = v->harmonic_filter;
  f[9] = v->phase_left;
  f[10] = v->phase_right;
  f[11] = v->phase_bass;
}

// Step 5 and 6 of the first pass: the mono bass mix into bass_buffer, the
// scaled high band into the output.
inline void first_pass_mix(const virtual_bass_system* v, int32_t h, int32_t b, int32_t hl, int32_t hr, int32_t* bass,
                           int* out_left, int* out_right) {
  *bass = flush_m1(sat_add(gain13(v->harmonic_gain, h), gain13(v->bass_gain, b)));
  *out_left = flush_m1(gain13(v->high_gain, hl));
  *out_right = flush_m1(gain13(v->high_gain, hr));
}

// First pass with the exported per-sample functions (any section may pass
// through).
void first_pass_samples(virtual_bass_system* v, const int* in_left, const int* in_right, int* out_left,
                        int* out_right, int n) {
  for (int i = 0; i < n; ++i) {
    int l = in_left[i], r = in_right[i], low_l, high_l, low_r, high_r, h, hl, hr, b;
    spectral_band_split_process(v->split_left, &l, &low_l, &high_l);
    spectral_band_split_process(v->split_right, &r, &low_r, &high_r);
    int bass = wrap_add(low_l, low_r) >> 1;
    NLD_process(v->nld, &bass, &h);
    IIR_process_32(v->harmonic_filter, &h, &h);
    IIR_process_32(v->phase_left, &high_l, &hl);
    IIR_process_32(v->phase_right, &high_r, &hr);
    IIR_process_32(v->phase_bass, &bass, &b);
    first_pass_mix(v, h, b, hl, hr, &v->bass_buffer[i], &out_left[i], &out_right[i]);
  }
}

void process_block(virtual_bass_system* v, const int* in_left, const int* in_right, int* out_left, int* out_right,
                   int n) {
  IIR_t* f[kSections];
  first_pass_sections(v, f);
  if (!BiquadSections<kSections>::all_on(f)) {
    first_pass_samples(v, in_left, in_right, out_left, out_right, n);
  } else {
    // Three loops: the crossovers, the non-linear device, then the harmonic
    // filter and the all-passes; each sees its samples in order, and
    // separating the long NLD product chain from the recursions lets them
    // overlap.
    BiquadSections<kSections> s(f);
    int32_t high_l[kMaxBlock], high_r[kMaxBlock], bass[kMaxBlock], h[kMaxBlock];
    for (int i = 0; i < n; ++i) {
      const int32_t l = in_left[i], r = in_right[i];
      const int32_t low_l = s.step(1, s.step(0, l)), low_r = s.step(5, s.step(4, r));
      high_l[i] = s.step(3, s.step(2, l));
      high_r[i] = s.step(7, s.step(6, r));
      bass[i] = wrap_add(low_l, low_r) >> 1;
    }
    nld_process_block(v->nld, bass, h, n);
    for (int i = 0; i < n; ++i) {
      first_pass_mix(v, s.step(8, h[i]), s.step(11, bass[i]), s.step(9, high_l[i]), s.step(10, high_r[i]),
                     &v->bass_buffer[i], &out_left[i], &out_right[i]);
    }
    s.store();
  }
  int32_t* bb = v->bass_buffer;
  compressor_bass_process(v->compressor, bb, bb, n);
  for (int i = 0; i < n; ++i) {
    out_left[i] = sat_add(out_left[i], bb[i]);
    out_right[i] = sat_add(out_right[i], bb[i]);
  }
}

}  // namespace

extern "C" {

// ---------------------------------------------------------------------------
// compressor_bass

void compressor_bass_init(compressor_bass* c) {
  c->status = 1;
  c->unity_gain = kUnityGain;
  c->gain = 0;
  c->envelope = 0;
  c->reserved = 0;
}

void compressor_bass_reset(compressor_bass* c) {
  c->gain = 0;
  c->envelope = 0;
  c->reserved = 0;
}

void compressor_bass_end(compressor_bass* c) { c->status = 0; }

void compressor_bass_setstatus(compressor_bass* c, int status) { c->status = status; }
void compresso_bassr_getstatus(compressor_bass* c, int* status) { *status = c->status; }

int find_current_max_bass(int* buf, int count) {
  // |x| in 32 bits: -2147483648 stays negative and so never wins.
  int32_t peak = 0;
  for (int i = 0; i < count; ++i) {
    const int32_t a = buf[i] < 0 ? static_cast<int32_t>(0u - static_cast<uint32_t>(buf[i])) : buf[i];
    peak = a > peak ? a : peak;
  }
  return peak >> 8;
}

void compressor_bass_process(compressor_bass* c, int* in, int* out, int count) {
  const int32_t peak = find_current_max_bass(in, count);
  if (c->envelope < peak) {
    c->envelope = peak;
  } else {
    c->envelope -= (c->envelope - peak) >> 5;
  }
  const int32_t target = leveller_target(c, peak);
  int32_t gain = c->gain;
  for (int i = 0; i < count; ++i) {
    if (gain > target) {
      gain -= (gain - target) >> 7;
    } else {
      gain += (target - gain) >> 9;
    }
    if (gain < 32) gain = 0;
    out[i] = flush_m1(shr_sat<17>(static_cast<int64_t>(in[i]) * gain));
  }
  c->gain = gain;
}

// ---------------------------------------------------------------------------
// virtual_bass_system

void virtual_bass_system_init(virtual_bass_system* v) {
  v->status = 0;
  v->bass_gain = 4096;
  v->harmonic_gain = 4096;
  v->high_gain = 8192;
  v->bass_buffer = alloc_words(kMaxBlock);
  v->nld = new_block<NLD>(NLD_init);
  v->split_left = new_block<spectral_band_split>(spectral_band_split_init, tables::kSplitLowPass[1],
                                                 tables::kSplitHighPass[1]);
  v->split_right = new_block<spectral_band_split>(spectral_band_split_init, tables::kSplitLowPass[1],
                                                  tables::kSplitHighPass[1]);
  for (int i = 0; i < 4; ++i) *section(v, i) = new_block<IIR_t>(IIR_init, section_row(i, 1));
  v->compressor = new_block<compressor_bass>(compressor_bass_init);
}

void virtual_bass_system_set_sample_rate(virtual_bass_system* v, SampleRateType rate) {
  const int r = rate_index(rate);
  spectral_band_split_reinit(v->split_left, tables::kSplitLowPass[r], tables::kSplitHighPass[r]);
  spectral_band_split_reinit(v->split_right, tables::kSplitLowPass[r], tables::kSplitHighPass[r]);
  for (int i = 0; i < 4; ++i) IIR_reinit(*section(v, i), section_row(i, r));
}

void virtual_bass_system_reset(virtual_bass_system* v) {
  spectral_band_split_reset(v->split_left);
  spectral_band_split_reset(v->split_right);
  NLD_reset(v->nld);
  for (int i = 0; i < 4; ++i) IIR_reset(*section(v, i));
  compressor_bass_reset(v->compressor);
  std::memset(v->bass_buffer, 0, kMaxBlock * sizeof(int32_t));
}

void virtual_bass_system_end(virtual_bass_system* v) {
  end_block(v->split_left, spectral_band_split_end);
  end_block(v->split_right, spectral_band_split_end);
  end_block(v->nld, NLD_end);
  for (int i = 0; i < 4; ++i) end_block(*section(v, i), IIR_end);
  end_block(v->compressor, compressor_bass_end);
  free_null(v->bass_buffer);
}

void virtual_bass_system_set_nld_clip_level(virtual_bass_system* v, int level) { NLD_set_clip_level(v->nld, level); }
void virtual_bass_system_get_nld_clip_level(virtual_bass_system* v, int* level) { NLD_get_clip_level(v->nld, level); }
void virtual_bass_system_set_nld_band_param(virtual_bass_system* v, int* coef) {
  IIR_set_param(v->harmonic_filter, coef);
}
void virtual_bass_system_get_nld_band_param(virtual_bass_system* v, int* coef) {
  IIR_get_param(v->harmonic_filter, coef);
}

// Blocks above 256 samples run as consecutive blocks of 256, each levelled
// on its own, so that bass_buffer is never overrun.
void virtual_bass_system_process(virtual_bass_system* v, int* in_left, int* in_right, int* out_left,
                                 int* out_right, int count) {
  for (int done = 0; done < count; done += kMaxBlock) {
    const int n = count - done < kMaxBlock ? count - done : kMaxBlock;
    process_block(v, in_left + done, in_right + done, out_left + done, out_right + done, n);
  }
}

}  // extern "C"
