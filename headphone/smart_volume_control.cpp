// Smart volume control: automatic loudness levelling for the headphone chain.
//
// Per block:
//  - a slow envelope of the block peaks (16-bit scale: jumps up, falls by
//    1/512 of the distance per block);
//  - a weighted energy: three measuring low-passes per channel split the
//    input into four bands (below ~170 Hz, to ~1 kHz, to ~5 kHz, the rest),
//    each band's sum of squares (64-bit) is weighted by a right shift, the
//    louder channel counts, and the total is scaled down by 2^24;
//  - when that energy is above `threshold`, the smoothed `energy` follows it
//    and a Q13 target gain G = sqrt(m * reference / energy) (m = 1.25 or
//    0.875, a dead band of a factor two either way around the reference)
//    limited to 0.25 .. 4.0 and, when the expected peak G * peak_env would
//    pass full scale, capped to bring it to 28672 or 24576 (never below
//    unity); a quieter block holds the current gain.
// Per sample the Q17 gain glides towards G * 16 (down 1/32, up 1/128 of the
// distance) and multiplies both channels: 64-bit product >> 17, saturated,
// -1 flushed to 0.
#include "kafx_proc/smart_volume_control.h"

#include <cstdlib>

#include "common/lifecycle.h"
#include "common/biquad_cascade.h"
#include "common/fixed_point.h"
#include "headphone/smart_volume_control_tables.h"

using namespace kafx;

namespace {

constexpr int32_t kInitAttack = 3;
constexpr int32_t kInitRelease = 7;
constexpr int32_t kInitWeights[4] = {3, 1, 0, 2};
constexpr int64_t kReferenceScale = 67277003;  // reference energy at level 1.0 (8192), times 2^26 / 8192^2

int table_row(SampleRateType rate) {
  if (rate == SAMPLE_RATE_44100) return 0;
  if (rate == SAMPLE_RATE_96000) return 2;
  return 1;
}

// 64-bit shift by a weight: right for positive amounts, left (wrapping) for
// negative ones; amounts beyond 63 act as 63.
int64_t weigh(int64_t e, int32_t w) {
  if (w >= 0) return e >> (w > 63 ? 63 : w);
  const int32_t l = -static_cast<int64_t>(w) > 63 ? 63 : -w;
  return static_cast<int64_t>(static_cast<uint64_t>(e) << l);
}

int64_t shr64(int64_t v, int32_t k) {
  const uint32_t s = static_cast<uint32_t>(k);
  return v >> (s > 63u ? 63u : s);
}

int32_t abs_peak(const int* x, int n) {
  uint32_t m = 0;
  for (int i = 0; i < n; ++i) {
    const uint32_t a = x[i] < 0 ? 0u - static_cast<uint32_t>(x[i]) : static_cast<uint32_t>(x[i]);
    m = a > m ? a : m;
  }
  return static_cast<int32_t>(m >> 8);
}

struct BandSums {
  uint64_t s[4] = {0, 0, 0, 0};  // low, mid, high, rest; sums wrap
};

int64_t weighted(const smart_volume_control_t* s, const BandSums& b) {
  const int32_t w[4] = {s->weight_low, s->weight_mid, s->weight_high, s->weight_rest};
  uint64_t e = 0;
  for (int k = 0; k < 4; ++k) e += static_cast<uint64_t>(weigh(static_cast<int64_t>(b.s[k]), w[k]));
  return static_cast<int64_t>(e);
}

// The Q13 gain decision of a block loud enough to judge.
int32_t decide(smart_volume_control_t* s, int64_t e) {
  s->hold_count = 0;
  const int32_t k = s->energy < e ? s->attact_order : s->release_order;
  s->energy = static_cast<int64_t>(static_cast<uint64_t>(s->energy) +
                                   static_cast<uint64_t>(shr64(wrap_add64(e, -s->energy), k)));
  const int64_t ref = s->reference;
  int64_t g;
  if (ref / 2 <= s->energy && s->energy <= 2 * ref) {
    g = kQ13One;
  } else {
    const int64_t m = s->energy > 2 * ref ? 640 : 448;  // 1.25 and 0.875 times 512
    // A zero energy (possible only with an unreachable reference) reads as
    // the largest ratio, i.e. the upper gain limit.
    const int64_t ratio = s->energy != 0 ? wrap_mul64(m, ref) / s->energy : INT64_MAX / 2;
    g = static_cast<int64_t>(sqrt_fixed(static_cast<uint32_t>(2 * ratio))) << 8;
  }
  g = g < 2048 ? 2048 : (g > 32768 ? 32768 : g);
  // Peak guard: only ever caps a boost.
  const int32_t p = sat32((g * s->peak_env) >> 13);
  if (p >= 32769) {
    g = (p < 49153 ? 234881024 : 201326592) / s->peak_env;
    if (g < 8193) g = kQ13One;
  }
  return static_cast<int32_t>(g);
}

}  // namespace

extern "C" {

void smart_volume_control_init(smart_volume_control_t* s) {
  s->status = 0;
  s->gain = 0;
  s->gain_max = kQ17One;
  s->attact_order = kInitAttack;
  s->release_order = kInitRelease;
  s->peak_env = 0;
  s->weight_low = kInitWeights[0];
  s->weight_mid = kInitWeights[1];
  s->weight_high = kInitWeights[2];
  s->weight_rest = kInitWeights[3];
  smart_volume_control_set_level(s, kQ13One);
  for (int f = 0; f < 3; ++f) {
    s->lp_left[f] = kafx::new_block<IIR_t>(IIR_init, kSmartVolumeFilters[1][f]);
    s->lp_right[f] = kafx::new_block<IIR_t>(IIR_init, kSmartVolumeFilters[1][f]);
  }
}

void smart_volume_control_set_sample_rate(smart_volume_control_t* s, SampleRateType rate) {
  const int row = table_row(rate);
  for (int f = 0; f < 3; ++f) {
    IIR_reinit(s->lp_left[f], kSmartVolumeFilters[row][f]);
    IIR_reinit(s->lp_right[f], kSmartVolumeFilters[row][f]);
  }
}

void smart_volume_control_reset(smart_volume_control_t* s) {
  s->energy = 0;
  s->peak_env = 0;
  s->hold_count = 0;
  s->gain = 0;
  for (int f = 0; f < 3; ++f) {
    IIR_reset(s->lp_left[f]);
    IIR_reset(s->lp_right[f]);
  }
}

void smart_volume_control_end(smart_volume_control_t* s) {
  for (int f = 0; f < 3; ++f) {
    kafx::end_block(s->lp_left[f], IIR_end);
    kafx::end_block(s->lp_right[f], IIR_end);
  }
}

void smart_volume_control_set_level(smart_volume_control_t* s, int level) {
  s->level = level;
  const int64_t p = wrap_mul64(wrap_mul64(level, level), kReferenceScale);
  s->threshold = p >> 34;
  s->reference = p >> 26;
  s->energy = p >> 28;
  s->hold_count = 0;
}

void smart_volume_control_get_level(smart_volume_control_t* s, int* level) { *level = s->level; }
void smart_volume_control_set_attact_order(smart_volume_control_t* s, int order) { s->attact_order = order; }
void smart_volume_control_get_attact_order(smart_volume_control_t* s, int* order) { *order = s->attact_order; }
void smart_volume_control_set_release_order(smart_volume_control_t* s, int order) { s->release_order = order; }
void smart_volume_control_get_release_order(smart_volume_control_t* s, int* order) { *order = s->release_order; }
void smart_volume_control_setstatus(smart_volume_control_t* s, int status) { s->status = status; }
void smart_volume_control_getstatus(smart_volume_control_t* s, int* status) { *status = s->status; }

void smart_volume_control_process(smart_volume_control_t* s, int* in_left, int* in_right, int* out_left,
                                  int* out_right, int count) {
  const int n = count > 0 ? count : 0;
  // 1-2. Block peak and its slow envelope.
  const int32_t a = abs_peak(in_left, n);
  const int32_t b = abs_peak(in_right, n);
  const int32_t pk = a > b ? a : b;
  s->peak_env = pk > s->peak_env ? pk : s->peak_env + ((pk - s->peak_env) >> 9);
  // 3-4. Weighted band energies; the louder channel decides.
  BandSums left, right;
  biquad_split_energies(s->lp_left, in_left, left.s, s->lp_right, in_right, right.s, 3, n);
  const int64_t el = weighted(s, left);
  const int64_t er = weighted(s, right);
  const int64_t e = (el > er ? el : er) >> 24;
  // 5. Gain decision (Q13).
  const int32_t g = s->threshold < e ? decide(s, e) : (s->gain >> 4);
  if (count < 1) return;
  // 6-8. Glide of the Q17 gain towards the target, shared by both channels.
  const uint32_t target = static_cast<uint32_t>(sat32(static_cast<int64_t>(g) * 16));
  uint32_t gain = static_cast<uint32_t>(s->gain);
  for (int i = 0; i < count; ++i) {
    gain = gain > target ? gain - ((gain - target) >> 5) : gain + ((target - gain) >> 7);
    if (gain < 32) gain = 0;
    const int64_t gq = gain;
    const int32_t l = in_left[i];
    const int32_t r = in_right[i];
    out_left[i] = mul_shift<17>(gq * l);
    out_right[i] = mul_shift<17>(gq * r);
  }
  s->gain = static_cast<int32_t>(gain);
}

}  // extern "C"
