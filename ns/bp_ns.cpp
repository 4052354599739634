// Band post-processing of the noise suppressor: input peak tracking, the
// speech-presence vote that sets the suppressor's prior, and the click
// limiter on its output.
//
// Formats: logarithms are natural, Q8 (ln_q8); features T and S are sums of
// Q8 logs promoted to Q15; presence and gains are Q15. All sums are 32-bit
// and stay far from overflow for the block lengths used (<= 160 samples,
// <= 129 bins); the smoothing products are formed in 64 bits.
#include <cstdlib>
#include <cstring>

#include "common/lifecycle.h"
#include "common/fixed_point.h"
#include "kafx_proc/bp_ns.h"
#include "ns/nsx_tables.h"

namespace kafx::nsx {
namespace {

// k ln 2 in Q8, k = 0..15.
constexpr uint16_t kLn2Multiples[16] = {0,    177,  355,  532,  710,  887,  1065, 1242,
                                        1420, 1597, 1774, 1952, 2129, 2307, 2484, 2662};

// round(256 e^k), k = 0..19: e^x = e^floor(x) * e^frac(x).
constexpr uint64_t kExpTable[20] = {256ull,        696ull,        1892ull,        5142ull,
                                    13977ull,      37994ull,      103278ull,      280738ull,
                                    763125ull,     2074389ull,    5638775ull,     15327780ull,
                                    41665227ull,   113257828ull,  307866697ull,   836868447ull,
                                    2274844293ull, 6183667905ull, 16808952099ull, 45691469047ull};

constexpr int32_t kSmoothQ15 = 9830;             // 0.3
constexpr int32_t kTemporalOffset = 3276800;     // 100.0 in Q15
constexpr int32_t kSpectralOffset = 6553600;     // 200.0 in Q15
constexpr int32_t kTemporalSpread = 4915200;     // 150.0 in Q15
constexpr int32_t kSpectralSpread = 6553600;     // 200.0 in Q15
constexpr int32_t kExpLimit = 622592;            // 19.0 in Q15
constexpr int kTrackerPeriod = 600;
constexpr int16_t kCrestLimit = 513;             // ln(e^2) in Q8, rounded up

// ln(v) in Q8 for v > 0 (0 for v = 0): log2 from the top bit and the 8
// mantissa bits below it, times ln 2 (45426 in Q16).
int32_t ln_q8(uint32_t v) {
  if (v == 0) return 0;
  int top = 31 - __builtin_clz(v);
  uint32_t mant = (v << (31 - top)) >> 23 & 0xFF;
  int32_t log2 = 256 * top + kLogTableFrac[mant];
  return (log2 * 45426) >> 16;
}

// e^x for x >= 0 in Q15, saturated to 2^31 - 1.
int32_t exp_q15(int64_t x) {
  if (x > kExpLimit) return INT32_MAX;
  int64_t f = x & 0x7FFF;
  int64_t f2 = (f * f) >> 15;
  int64_t f3 = (f2 * f) >> 15;
  int64_t f4 = (f3 * f) >> 15;
  int64_t poly = 32767 + ((f * 32767) >> 15) + ((f * f) >> 16) + ((f3 * 5461) >> 15) + ((f4 * 1365) >> 15);
  uint64_t e = (kExpTable[x >> 15] * static_cast<uint64_t>(poly)) >> 8;
  return e > static_cast<uint64_t>(INT32_MAX) ? INT32_MAX : static_cast<int32_t>(e);
}

// The ramp shared by the click limiter and soft_gain_proc: from *gain toward
// target by step per sample, held at target once it is passed.
void ramp_gain(const short* in, int len, short* out, int target, short* gain, int step) {
  const int start = *gain;
  const int lo = start < target ? start : target;
  const int hi = start < target ? target : start;
  const int inc = start < target ? step : -step;
  int g = start;
  for (int i = 0; i < len; i++) {
    out[i] = static_cast<short>((g * in[i]) >> 15);
    g += inc;
    if (g < lo || g > hi) g = target;
  }
  *gain = static_cast<short>(g);
}

}  // namespace
}  // namespace kafx::nsx

using namespace kafx::nsx;

extern "C" {

int sigmoid(int x) {
  int32_t num, den;
  if (x >= 1) {
    num = exp_q15(x);
    den = kafx::sat_add(num, 32767);
  } else {
    num = 32767;
    den = kafx::sat_add(exp_q15(-static_cast<int64_t>(x)), 32767);
  }
  // Normalise so that the denominator's top bit is bit 30; both upper halves
  // are then non-negative 16-bit values with num <= den.
  int shift = __builtin_clz(static_cast<uint32_t>(den)) - 1;
  int16_t n16 = static_cast<int16_t>((static_cast<uint32_t>(num) << shift) >> 16);
  int16_t d16 = static_cast<int16_t>((static_cast<uint32_t>(den) << shift) >> 16);
  return kafx::div_q15(n16, d16);
}

BPInfo_tag* BP_ns_init(int fs, int bin_count) {
  (void)fs;
  BPInfo_tag* r = kafx::alloc_record<BPInfo_tag>();
  if (r == nullptr) return nullptr;
  r->bin_count = bin_count;
  r->reset_count[0] = 600;
  r->reset_count[1] = 300;
  r->reset_count[2] = 200;
  return r;
}

void BP_ns_delete(BPInfo_tag* r) { std::free(r); }

int BP_ns_pre(BPInfo_tag* r, short* in, int len) {
  if (r == nullptr || (in == nullptr && len > 0)) return -1;
  short peak = 1;
  for (int i = 0; i < len - 1; i++) {
    if (in[i] > peak) peak = in[i];
  }
  std::memmove(r->in_peak_history, r->in_peak_history + 1, sizeof(short) * 49);
  r->in_peak_history[49] = peak;
  int sum = 0;
  for (short h : r->in_peak_history) sum += h;
  r->in_peak_mean = sum / 50;
  return 0;
}

unsigned int BP_ns_app(BPInfo_tag* r, unsigned short* magn, unsigned int magn_sum, short q_magn) {
  if (r == nullptr || magn == nullptr || r->bin_count <= 0) return 0;
  // Spectral feature: the log distances of the bins from the mean, in the
  // true signal scale (the Q(q_magn) scaling removed), positive ones summed.
  // The k ln 2 table reaches shifts of 15 (a 16-bit magnitude); a Q domain
  // further out is taken as the table's end.
  const uint32_t mean = magn_sum / static_cast<uint32_t>(r->bin_count);
  const int q = q_magn < -15 ? -15 : (q_magn > 15 ? 15 : q_magn);
  const int32_t base = q < 1 ? kLn2Multiples[-q] : -static_cast<int32_t>(kLn2Multiples[q]);
  int32_t s = 0;
  for (int i = 0; i < r->bin_count; i++) {
    uint32_t d = magn[i] > mean ? magn[i] - mean : mean - magn[i];
    int16_t v = static_cast<int16_t>(base + ln_q8(d));
    s += v > 0 ? v : 0;
  }
  // Temporal feature: the spread of the recent input peaks.
  int32_t t = 0;
  for (short h : r->in_peak_history) t += ln_q8(static_cast<uint32_t>(std::abs(h - r->in_peak_mean) + 1));
  t <<= 7;
  s <<= 7;

  if (r->frame_count > 9) {
    r->temporal_smoothed += static_cast<int32_t>((static_cast<int64_t>(t - r->temporal_smoothed) * kSmoothQ15) >> 15);
    r->spectral_smoothed += static_cast<int32_t>((static_cast<int64_t>(s - r->spectral_smoothed) * kSmoothQ15) >> 15);
  } else {
    r->temporal_smoothed = r->temporal_floor = t;
    r->spectral_smoothed = r->spectral_floor = s;
    for (int k = 0; k < 3; k++) {
      r->temporal_min[k] = r->temporal_max[k] = t;
      r->spectral_min[k] = r->spectral_max[k] = s;
    }
  }
  // Three staggered min/max trackers; on restart a wide enough range moves the floor.
  for (int k = 0; k < 3; k++) {
    if (t < r->temporal_min[k]) r->temporal_min[k] = t;
    if (t > r->temporal_max[k]) r->temporal_max[k] = t;
    if (s < r->spectral_min[k]) r->spectral_min[k] = s;
    if (s > r->spectral_max[k]) r->spectral_max[k] = s;
    if (r->reset_count[k] > kTrackerPeriod) {
      r->reset_count[k] = 0;
      if (r->temporal_max[k] - r->temporal_min[k] > kTemporalSpread) r->temporal_floor = r->temporal_min[k];
      if (r->spectral_max[k] - r->spectral_min[k] > kSpectralSpread) r->spectral_floor = r->spectral_min[k];
      r->temporal_min[k] = r->temporal_max[k] = t;
      r->spectral_min[k] = r->spectral_max[k] = s;
    }
    r->reset_count[k]++;
  }
  r->frame_count++;

  int32_t a = 0;
  int votes = 0;
  if (r->temporal_floor < r->temporal_smoothed) {
    a = sigmoid((r->temporal_smoothed - kTemporalOffset - r->temporal_floor) / 10);
    votes++;
  }
  if (r->spectral_smoothed > r->spectral_floor) {
    a += sigmoid((r->spectral_smoothed - kSpectralOffset - r->spectral_floor) / 40);
    votes++;
  }
  const int32_t p = votes == 0 ? 0 : a / votes;
  int32_t inc = (static_cast<int16_t>(p - r->speech_prob) * kSmoothQ15) >> 15;
  if (inc < -32768) inc = -32768;
  r->speech_prob += inc;
  return static_cast<unsigned int>(static_cast<short>(r->speech_prob));
}

int BP_ns_post(BPInfo_tag* r, short* in, int len, short* out) {
  if (r == nullptr || ((in == nullptr || out == nullptr) && len > 0)) return -1;
  uint32_t sum = 0;
  int32_t peak = 0;
  for (int i = 0; i < len; i++) {
    int32_t a = std::abs(static_cast<int32_t>(in[i]));
    sum += static_cast<uint32_t>(a);
    if (a > peak) peak = a;
  }
  if (peak > 32767) peak = 32767;  // |-32768| held in 16 bits
  r->crest_log = static_cast<short>(ln_q8(static_cast<uint32_t>(len) * static_cast<uint32_t>(peak) + 1u) -
                                    ln_q8(sum + 1u));

  uint16_t prev_max = 0;
  for (uint16_t h : r->out_peak_history) prev_max = h > prev_max ? h : prev_max;
  std::memmove(r->out_peak_history, r->out_peak_history + 1, sizeof(uint16_t) * 9);

  int32_t target = 32767;
  int step = 50;
  if (r->crest_log < kCrestLimit) {
    r->out_peak_history[9] = static_cast<uint16_t>(peak);
  } else {
    // An impulsive block: limit its peak to twice the recent peak level.
    uint32_t limit = 2u * prev_max;
    r->out_peak_history[9] = static_cast<uint16_t>(limit < static_cast<uint32_t>(peak) ? limit : peak);
    if (peak == 0) {
      target = 0;
    } else {
      uint32_t g = static_cast<uint32_t>(prev_max) * 65534u / static_cast<uint32_t>(peak);
      target = g < 32767u ? static_cast<int32_t>(g) : 32767;
    }
    step = 32767;
  }
  if (target == 32767 && r->post_gain == 32767) return 0;
  ramp_gain(in, len, out, target, &r->post_gain, step);
  return 0;
}

void soft_gain_proc(short* in, int len, short* out, short target, short* gain, short step) {
  if (gain == nullptr || ((in == nullptr || out == nullptr) && len > 0)) return;
  if (target == 32767 && *gain == 32767) return;
  ramp_gain(in, len, out, target, gain, step);
}

}  // extern "C"
