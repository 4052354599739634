// Dynamic range control: block-based look-ahead peak limiter with make-up
// volume and a downward expander for very quiet input.
//
// Formats: samples are Q23 working samples; the threshold and the peak
// envelope are in 16-bit units (peak >> 8); volume and block gains are Q13;
// the applied gain and the expander gain are Q17 (131072 = 1.0).
//
// Once per block the peak envelope yields a target gain; the smallest target
// over the last lookahead + 1 blocks is applied, sample by sample through a
// rate-limited smoother, to the input delayed by lookahead blocks, so the
// gain is already down when a loud block leaves the delay line.
#include "kafx_proc/drc.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "common/delay.h"
#include "common/drc_block.h"
#include "common/drc_kernels.h"
#include "common/fixed_point.h"
#include "common/lifecycle.h"

using namespace kafx;

namespace {

constexpr int32_t kDefaultThreshold = 32767;
constexpr int32_t kDefaultRelease = 5;
constexpr int32_t kDefaultDenoiseThreshold = 256;
constexpr int32_t kDenoiseStart = 8192;  // 1/16 in Q17
constexpr int32_t kLevelStart = 32767;
constexpr int32_t kDenoiseFloor = 1536;  // Q13: the expander never cuts below 3/16
constexpr int64_t kLimitMargin = 7936;   // Q13: limit 31/32 under the threshold

void clear_state(dynamic_range_control_t* d) {
  d->envelope = 0;
  d->denoise_gain = kDenoiseStart;
  d->level = kLevelStart;
  std::memset(d->last_gains, 0, sizeof(d->last_gains));
}

size_t history_bytes(const dynamic_range_control_t* d) {
  return static_cast<size_t>(d->lookahead + 1) * sizeof(int32_t);
}

// Arithmetic shift of a 32-bit difference whose count saturates at 31: a
// count of 32 or more (a negative count reads as one) leaves only the sign.
inline int64_t shr_clamped(int64_t v, int32_t shift) {
  const uint32_t s = static_cast<uint32_t>(shift);
  return v >> (s > 31u ? 31u : s);
}

// One block's target gain in Q13 from the peak envelope; may pull the
// envelope down to the threshold.
inline int32_t block_gain(dynamic_range_control_t* d) {
  if (d->envelope <= d->threshold) {
    // Below threshold: head for the make-up volume, half-way per block when
    // rising, at once when falling.
    const int32_t cg = d->gain >> 4;
    if (d->volume > cg) return static_cast<int32_t>(cg + ((static_cast<int64_t>(d->volume) - cg) >> 1));
    return d->volume;
  }
  // Above threshold: the gain that brings the envelope to the threshold, with
  // a fixed margin of 7936/8192.
  // (A zero envelope is only reachable with a negative threshold; it gives a
  // zero quotient instead of a division fault.)
  const int64_t num = static_cast<int64_t>(d->threshold) * d->volume;
  const int64_t q = d->envelope == 0 ? 0 : num / d->envelope;
  d->envelope = d->threshold;
  return shr_sat<13>(wrap_mul64(q, kLimitMargin));
}

// Samples per glide run: the gains of a run are computed first (drc_glide,
// common/drc_kernels.h, where it has a wide build), then applied through the
// look-ahead line. A run
// goes on past the point where both controllers settle; the steps after it
// change nothing, so the samples come out as if the settled rest were
// applied at once.
constexpr int kGlideRun = 32;

// One controller over one block: steps 1 to 6 once (begin_block), then the
// per-sample step 7 (smooth the limiter gain, glide the expander gain, apply
// both to the input delayed by the look-ahead line) in runs while the gains
// move, and the settled rest of the block.
struct Block {
  dynamic_range_control_t* d;
  const int* in;
  int* out;
  int count;
  int32_t target, dnq;  // this block's limiter and expander targets (Q17)
  int32_t gain, denoise;
  int32_t* buf;
  int32_t delay, index;

  // Both gains at their targets: neither moves again in this block.
  bool moving() const { return gain != target || denoise != dnq; }

  // Step 7 for sample i on its own (the scalar form, with the line walked
  // one sample at a time).
  [[gnu::always_inline]] void step(int i) {
    gain = drc_smooth_gain(gain, target);
    denoise = drc_glide_denoise(denoise, dnq);
    out[i] = mul_shift<17>(static_cast<int64_t>(delay_tick(buf, delay, index, in[i])) * drc_total_gain(gain, denoise));
  }

  // Samples i .. i + n - 1 with the total gains totals[0 .. n), over the
  // stretches of the line that do not wrap (walked as delay_run walks them).
  void apply(int i, const int32_t* totals, int n) {
    if (delay == 0) {
      for (int k = 0; k < n; ++k) out[i + k] = mul_shift<17>(static_cast<int64_t>(in[i + k]) * totals[k]);
      return;
    }
    for (int k = 0; k < n;) {
      int m = delay - index > 1 ? delay - index : 1;
      if (m > n - k) m = n - k;
      drc_delay_gains(buf + index, in + i + k, out + i + k, m, totals + k);
      k += m;
      index += m;
      if (index >= delay) index = 0;
    }
  }

  // The settled rest of the block from sample i: one total gain.
  void finish(int i) {
    const int32_t t = drc_total_gain(gain, denoise);
    if (delay == 0) {
      for (; i < count; ++i) out[i] = mul_shift<17>(static_cast<int64_t>(in[i]) * t);
    }
    while (i < count) {
      int m = delay - index > 1 ? delay - index : 1;
      if (m > count - i) m = count - i;
      drc_delay_gain(buf + index, in + i, out + i, m, t);
      i += m;
      index += m;
      if (index >= delay) index = 0;
    }
    d->gain = gain;
    d->denoise_gain = denoise;
    d->delay->index = index;
  }
};

Block begin_block(dynamic_range_control_t* d, const int* in, int* out, int count) {
  // 1. Block statistics: mean and peak of |x|.
  const DrcBlockStats stats = drc_block_stats(in, count);
  const int64_t mean = count == 0 ? 0 : stats.sum / count;
  const int64_t peak = stats.max_abs >> 8;  // 16-bit units

  // 2. Mean-level follower: rises at 1/16, falls at 1/32 per block.
  const int64_t level = d->level;
  d->level = static_cast<int32_t>(level + ((mean - level) >> (mean > level ? 4 : 5)));

  // 3. Expander target: proportional to the level below the threshold, with
  //    a floor (Q13; the product and quotient are 32-bit).
  int32_t dn = kQ13One;
  if (d->level < d->denoise_threshold) {
    const int32_t scaled = static_cast<int32_t>(wrap_mul64(d->level, kQ13One));
    dn = std::max(scaled / d->denoise_threshold, kDenoiseFloor);
  }
  const int32_t dnq = shl_sat<4>(dn);

  // 4. Peak envelope of the volume-scaled peak: attack on rise, release on fall.
  const int32_t p = shr_sat<13>(static_cast<int64_t>(d->volume) * peak);
  const int32_t order = p > d->envelope ? d->attact_order : d->release_order;
  d->envelope = static_cast<int32_t>(d->envelope + shr_clamped(static_cast<int64_t>(p) - d->envelope, order));

  // 5. This block's target gain, Q13 then Q17.
  const int32_t gq = shl_sat<4>(block_gain(d));

  // 6. Look-ahead: the smallest target over the blocks still in the delay line.
  const int la = d->lookahead;
  int32_t* hist = d->gain_history;
  d->last_gains[2] = gq;
  hist[la] = gq;
  const int32_t target = *std::min_element(hist, hist + la + 1);
  std::memmove(hist, hist + 1, static_cast<size_t>(la) * sizeof(int32_t));
  d->last_gains[0] = d->last_gains[1];
  d->last_gains[1] = d->last_gains[2];

  audio_delay* const dl = d->delay;
  return Block{d, in, out, count, target, dnq, d->gain, d->denoise_gain, dl->buffer, dl->delay, dl->index};
}

// The runs of two blocks of the same length (kPair), or of a alone (the
// glide's second lane then sits at its targets), while either moves; returns
// where the settled rest begins. Inlined, so that the blocks stay in
// registers.
template <bool kPair>
[[gnu::always_inline]] inline int glide_runs(Block& a, Block& b) {
  // Without a wide build of the glide, the scalar steps go sample by sample
  // (the two recursions side by side), which costs less than runs.
  const bool wide = chosen_variant<drc_glide_variants>() != drc_glide_variants.fn[kIsaBaseline];
  const auto moving = [&] { return a.moving() || (kPair && b.moving()); };
  int i = 0;
  if (!wide) {
    for (; i < a.count && moving(); ++i) {
      a.step(i);
      if (kPair) b.step(i);
    }
    return i;
  }
  DrcGlide g{{a.gain, 0}, {a.denoise, 0}, {a.target, 0}, {a.dnq, 0}};
  if (kPair) {
    g.gain[1] = b.gain, g.denoise[1] = b.denoise;
    g.target[1] = b.target, g.dnq[1] = b.dnq;
  }
  int32_t totals_a[kGlideRun], totals_b[kGlideRun];
  for (; i < a.count && moving();) {
    const int n = std::min(kGlideRun, a.count - i);
    drc_glide(&g, totals_a, totals_b, n);
    a.gain = g.gain[0], a.denoise = g.denoise[0];
    a.apply(i, totals_a, n);
    if (kPair) {
      b.gain = g.gain[1], b.denoise = g.denoise[1];
      b.apply(i, totals_b, n);
    }
    i += n;
  }
  return i;
}

}  // namespace

namespace kafx {

void dynamic_range_control_process_pair(dynamic_range_control_t* da, int* in_a, int* out_a,
                                        dynamic_range_control_t* db, int* in_b, int* out_b, int count) {
  Block a = begin_block(da, in_a, out_a, count);
  Block b = begin_block(db, in_b, out_b, count);
  // Two independent gain recursions side by side while either moves.
  const int i = glide_runs<true>(a, b);
  a.finish(i);
  b.finish(i);
}

}  // namespace kafx

extern "C" {

void dynamic_range_control_init(dynamic_range_control_t* d, int lookahead, int frame_len) {
  d->threshold = kDefaultThreshold;
  d->attact_order = 0;
  d->release_order = kDefaultRelease;
  d->volume = kQ13One;
  d->gain = kQ17One;
  d->denoise_threshold = kDefaultDenoiseThreshold;
  d->lookahead = lookahead;
  d->frame_len = frame_len;
  clear_state(d);
  d->gain_history = static_cast<int32_t*>(alloc_zeroed(history_bytes(d)));
  d->delay = new_block<audio_delay>(audio_delay_init, frame_len * lookahead);
}

void dynamic_range_control_reinit(dynamic_range_control_t* d, int frame_len) {
  d->frame_len = frame_len;
  audio_delay_reinit(d->delay, d->lookahead * frame_len);
}

void dynamic_range_control_reset(dynamic_range_control_t* d) {
  clear_state(d);
  std::memset(d->gain_history, 0, history_bytes(d));
  audio_delay_reset(d->delay);
}

void dynamic_range_control_end(dynamic_range_control_t* d) {
  clear_state(d);
  free_null(d->gain_history);
  end_block(d->delay, audio_delay_end);
}

void dynamic_range_control_set_threshold(dynamic_range_control_t* d, int v) { d->threshold = v; }
void dynamic_range_control_get_threshold(dynamic_range_control_t* d, int* v) { *v = d->threshold; }
void dynamic_range_control_set_attact_order(dynamic_range_control_t* d, int v) { d->attact_order = v; }
void dynamic_range_control_get_attact_order(dynamic_range_control_t* d, int* v) { *v = d->attact_order; }
void dynamic_range_control_set_release_order(dynamic_range_control_t* d, int v) { d->release_order = v; }
void dynamic_range_control_get_release_order(dynamic_range_control_t* d, int* v) { *v = d->release_order; }
void dynamic_range_control_get_volume(dynamic_range_control_t* d, int* v) { *v = d->volume; }
void dynamic_range_control_get_denoise_threshold(dynamic_range_control_t* d, int* v) { *v = d->denoise_threshold; }

// The Q13 volume goes into the Q17 gain shifted by 3 only, i.e. at half its
// value; the smoother of the next block carries the gain on from there.
void dynamic_range_control_set_volume(dynamic_range_control_t* d, int v) {
  d->volume = v;
  d->gain = shl_sat<3>(v);
}

void dynamic_range_control_set_denoise_threshold(dynamic_range_control_t* d, int v) {
  d->denoise_threshold = v < 2 ? 2 : v;
}

void dynamic_range_control_process(dynamic_range_control_t* d, int* in, int* out, int count) {
  Block b = begin_block(d, in, out, count);
  b.finish(glide_runs<false>(b, b));
}

}  // extern "C"
