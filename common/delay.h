// Inline per-sample kernels of the damped comb and the Schroeder all-pass,
// shared by the exported per-sample functions (delay.cpp) and the blocks
// that run many of them over whole blocks (reverb) with the loop state held
// in locals.
#ifndef KAFX_COMMON_DELAY_H
#define KAFX_COMMON_DELAY_H

#include "common/fixed_point.h"
#include "kafx_proc/delay.h"

namespace kafx {

// Advance a circular position, wrapping at `limit`.
inline int32_t next_index(int32_t index, int32_t limit) {
  ++index;
  return index >= limit ? 0 : index;
}

// One step of the damped comb at its current loop position `slot`. S is the
// shift between the sample format and the Q28 loop (13 for 16-bit samples,
// 5 for working samples).
//   out      = *slot
//   lowpass  = (damp_complement * out + damp * lowpass) >> 13   (64-bit sum,
//              saturated, -1 flushed)
//   *slot    = (x << S) + mulq13(lowpass, feedback)   (plain 32-bit add: with
//              a loop gain close to 1 near full scale it wraps)
//   returns out >> S with -1 flushed.
template <int S>
[[gnu::always_inline]] inline int32_t comb_tick(int32_t x, int32_t* slot, int32_t& lowpass, int32_t damp,
                                                int32_t damp_complement, int32_t feedback) {
  const int32_t out = *slot;
  const int64_t acc = static_cast<int64_t>(damp_complement) * out + static_cast<int64_t>(damp) * lowpass;
  lowpass = mul_shift<13>(acc);
  *slot = wrap_add(wrap_shl<S>(x), mulq13(lowpass, feedback));
  return flush_m1(out >> S);
}

// The same step for loop gains that cannot saturate: when damp and
// damp_complement are both in 0..8192 with a sum of at most 8192, the
// low-pass is a weighted mean of two int32 values and stays in range; when
// feedback is in 0..8192, |lowpass * feedback| >> 13 <= |lowpass| stays in
// range. Under comb_gains_unsaturated() the results equal comb_tick's.
inline bool comb_gains_unsaturated(int32_t damp, int32_t damp_complement, int32_t feedback) {
  return damp >= 0 && damp_complement >= 0 && static_cast<int64_t>(damp) + damp_complement <= kQ13One &&
         feedback >= 0 && feedback <= kQ13One;
}

template <int S>
[[gnu::always_inline]] inline int32_t comb_tick_unsaturated(int32_t x, int32_t* slot, int32_t& lowpass, int32_t damp,
                                                            int32_t damp_complement, int32_t feedback) {
  const int32_t out = *slot;
  const int64_t acc = static_cast<int64_t>(damp_complement) * out + static_cast<int64_t>(damp) * lowpass;
  lowpass = flush_m1(static_cast<int32_t>(acc >> 13));
  *slot = wrap_add(wrap_shl<S>(x), flush_m1(static_cast<int32_t>((static_cast<int64_t>(lowpass) * feedback) >> 13)));
  return flush_m1(out >> S);
}

// One all-pass step: y = g x + w[n-N], w[n] = x - g y, saturating at every
// step; H(z) = (g + z^-N) / (1 + g z^-N).
[[gnu::always_inline]] inline int32_t allpass_tick(int32_t x, int32_t* slot, int32_t g) {
  const int32_t y = sat_add(mulq13(g, x), *slot);
  *slot = sat_sub(x, mulq13(g, y));
  return y;
}

// A comb's loop state in locals for block loops; store() writes it back.
// Identical, sample for sample, to comb_process_16 / comb_process_24.
struct CombKernel {
  int32_t* buffer;
  int32_t size, index, lowpass, damp, damp_complement, feedback;

  explicit CombKernel(const comber* c)
      : buffer(c->buffer), size(c->size), index(c->index), lowpass(c->lowpass_state), damp(c->damp),
        damp_complement(c->damp_complement), feedback(c->feedback) {}

  template <int S>
  [[gnu::always_inline]] int32_t step(int32_t x) {
    const int32_t y = comb_tick<S>(x, buffer + index, lowpass, damp, damp_complement, feedback);
    index = next_index(index, size);
    return y;
  }

  void store(comber* c) const {
    c->index = index;
    c->lowpass_state = lowpass;
  }
};

// An all-pass's state in locals for block loops; identical to allpass_process.
struct AllpassKernel {
  int32_t* buffer;
  int32_t size, index, feedback;

  explicit AllpassKernel(const allpass* a) : buffer(a->buffer), size(a->size), index(a->index), feedback(a->feedback) {}

  [[gnu::always_inline]] int32_t step(int32_t x) {
    const int32_t y = allpass_tick(x, buffer + index, feedback);
    index = next_index(index, size);
    return y;
  }

  void store(allpass* a) const { a->index = index; }
};

}  // namespace kafx

#endif
