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
#include "headphone/biquad_sections_avx2.h"
#include "headphone/virtual_bass_system_kernels.h"
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

// The first pass: every section's state in locals, or the per-sample
// functions when a section passes through.
void first_pass_reference(virtual_bass_system* v, const int* in_left, const int* in_right, int* out_left,
                          int* out_right, int n) {
  IIR_t* f[kSections];
  first_pass_sections(v, f);
  if (!BiquadSections<kSections>::all_on(f)) {
    first_pass_samples(v, in_left, in_right, out_left, out_right, n);
    return;
  }
  // Three loops: the crossovers, the non-linear device, then the harmonic
  // filter and the all-passes; each sees its samples in order, and
  // separating the long NLD product chain from the recursions lets them
  // overlap.
  if (n <= 0) return;
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

#if KAFX_AVX2_VARIANTS
// The AVX2 build: the first sections of both crossovers of both channels in
// the lanes of one vector fed (left, left, right, right), their second
// sections in another, run as a two-step pipeline (the second sections work
// one sample behind, on what the first produced a step earlier; the first
// and last steps run the per-sample kernels); the non-linear device's block
// form; then the harmonic filter and the three all-passes in one vector.
KAFX_TARGET_AVX2 void first_pass_avx2(virtual_bass_system* v, const int* in_left, const int* in_right, int* out_left,
                                      int* out_right, int n) {
  IIR_t* f[kSections];
  first_pass_sections(v, f);
  if (n < 2 || !BiquadSections<kSections>::all_on(f)) {
    first_pass_reference(v, in_left, in_right, out_left, out_right, n);
    return;
  }
  BiquadSections<kSections> s(f);
  // Lane i's value in word 2i: first sections (low left, high left, low
  // right, high right) in a, second sections in b.
  alignas(32) int32_t a[kMaxBlock][8], b[kMaxBlock][8];
  // The third group's inputs (harmonics, high left, high right, bass) and
  // outputs.
  alignas(16) int32_t c[kMaxBlock][4];
  alignas(32) int32_t d[kMaxBlock][8];
  auto first = [&](int j) {
    a[j][0] = s.step(0, in_left[j]);
    a[j][2] = s.step(2, in_left[j]);
    a[j][4] = s.step(4, in_right[j]);
    a[j][6] = s.step(6, in_right[j]);
  };
  auto second = [&](int j) {
    for (int q = 0; q < 4; ++q) b[j][2 * q] = s.step(2 * q + 1, a[j][2 * q]);
  };
  Biquad32Kernel* first_of[4] = {&s.k[0], &s.k[2], &s.k[4], &s.k[6]};
  Biquad32Kernel* second_of[4] = {&s.k[1], &s.k[3], &s.k[5], &s.k[7]};
  Biquad32Kernel* third_of[4] = {&s.k[8], &s.k[9], &s.k[10], &s.k[11]};
  int32_t* first_x0[4] = {&s.x0[0], &s.x0[2], &s.x0[4], &s.x0[6]};
  int32_t* second_x0[4] = {&s.x0[1], &s.x0[3], &s.x0[5], &s.x0[7]};
  int32_t* third_x0[4] = {&s.x0[8], &s.x0[9], &s.x0[10], &s.x0[11]};
  first(0);
  {
    SectionLanes one(first_of), two(second_of);
    const __m256i llrr = _mm256_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1);
    for (int t = 1; t < n; ++t) {
      lanes_store(b[t - 1], two.step(chained_x32(lanes_load(a[t - 1]))));
      const __m256i lr = _mm256_castsi128_si256(_mm_unpacklo_epi32(_mm_cvtsi32_si128(in_left[t]),
                                                                   _mm_cvtsi32_si128(in_right[t])));
      lanes_store(a[t], one.step(lanes::shl_sat<5>(_mm256_permutevar8x32_epi32(lr, llrr))));
    }
    one.store(first_of, first_x0);
    two.store(second_of, second_x0);
  }
  second(n - 1);
  int32_t bass[kMaxBlock], h[kMaxBlock];
  for (int i = 0; i < n; ++i) bass[i] = wrap_add(b[i][0], b[i][4]) >> 1;
  nld_process_block(v->nld, bass, h, n);
  for (int i = 0; i < n; ++i) {
    c[i][0] = h[i];
    c[i][1] = b[i][2];
    c[i][2] = b[i][6];
    c[i][3] = bass[i];
  }
  {
    SectionLanes three(third_of);
    for (int i = 0; i < n; ++i) {
      const __m256i x = _mm256_cvtepi32_epi64(_mm_load_si128(reinterpret_cast<const __m128i*>(c[i])));
      lanes_store(d[i], three.step(lanes::shl_sat<5>(x)));
    }
    three.store(third_of, third_x0);
  }
  s.store();
  for (int i = 0; i < n; ++i)
    first_pass_mix(v, d[i][0], d[i][6], d[i][2], d[i][4], &v->bass_buffer[i], &out_left[i], &out_right[i]);
}
#endif

}  // namespace

namespace kafx {
const KernelVariants<VirtualBassFirstPass> virtual_bass_first_pass_variants = {
    "virtual_bass_first_pass", {first_pass_reference, KAFX_AVX2_ONLY(first_pass_avx2)}};
}  // namespace kafx

namespace {

void process_block(virtual_bass_system* v, const int* in_left, const int* in_right, int* out_left, int* out_right,
                   int n) {
  run_chosen<virtual_bass_first_pass_variants>(v, in_left, in_right, out_left, out_right, n);
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
