// Inline kernels of the damped comb and the Schroeder all-pass: the
// per-sample steps behind the exported functions (delay.cpp), and block forms
// for owners that run many of them over runs of frames (reverb, early
// reflections).
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

// One step of the plain delay line: returns the sample stored `delay` steps
// ago and stores x in its place. A delay of 0 passes x through. The wrap
// tests the current delay, so a delay lowered below the position takes effect
// after one more access at the old position.
[[gnu::always_inline]] inline int32_t delay_tick(int32_t* buffer, int32_t delay, int32_t& index, int32_t x) {
  if (delay == 0) return x;
  const int32_t out = buffer[index];
  buffer[index] = x;
  index = next_index(index, delay);
  return out;
}

// The same over a run: for k < count, step(k, delayed_k) with delayed_k what
// delay_tick(in[k]) returns (in[k] is read before step(k, ...) runs, so the
// step may write over it). The run is cut where the position wraps, so the
// inner loop walks the line with a plain pointer.
template <class Step>
[[gnu::always_inline]] inline void delay_run(int32_t* buffer, int32_t delay, int32_t& index, const int32_t* in,
                                             int count, Step step) {
  if (delay == 0) {
    for (int k = 0; k < count; ++k) step(k, in[k]);
    return;
  }
  for (int i = 0; i < count;) {
    // A position at or past the end (after the delay was shortened) is used
    // once and then wraps, as in delay_tick.
    int m = delay - index > 1 ? delay - index : 1;
    if (m > count - i) m = count - i;
    int32_t* const line = buffer + index;
    for (int k = 0; k < m; ++k) {
      const int32_t delayed = line[k];
      line[k] = in[i + k];
      step(i + k, delayed);
    }
    i += m;
    index += m;
    if (index >= delay) index = 0;
  }
}

// One step of the comb with a first-order loop filter at its loop position
// `slot` (iircomber): w = *slot,
//   y = (b0 w + b1 x1 - a1 y1) >> 13   (64-bit wrapping sum, low 32 bits,
//                                       -1 flushed); x1 = w, y1 = y
//   t = (y feedback) >> 13; *slot = x + t (32-bit wrap; t = -1 adds nothing)
// and returns what it stored.
[[gnu::always_inline]] inline int32_t iircomb_tick(int32_t x, int32_t* slot, int32_t& x1, int32_t& y1, int32_t b0,
                                                   int32_t b1, int32_t a1, int32_t feedback) {
  const int32_t w = *slot;
  int64_t acc = wrap_add64(static_cast<int64_t>(w) * b0, static_cast<int64_t>(x1) * b1);
  acc = wrap_add64(acc, -(static_cast<int64_t>(y1) * a1));
  const int32_t y = flush_m1(static_cast<int32_t>(acc >> 13));
  x1 = w;
  y1 = y;
  const int32_t t = static_cast<int32_t>((static_cast<int64_t>(y) * feedback) >> 13);
  const int32_t v = t == -1 ? x : wrap_add(x, t);
  *slot = v;
  return v;
}

// v[i] = iircomber_process(x[i], c) for i < n, with the state in locals and
// the loop walked in stretches that do not wrap (the wrap tests the current
// delay, as in the per-sample function). v may be x.
inline void iircomb_run(iircomber* c, const int32_t* x, int32_t* v, int n) {
  const int32_t b0 = c->b0, b1 = c->b1, a1 = c->a1, feedback = c->feedback, delay = c->delay;
  int32_t x1 = c->x1, y1 = c->y1, index = c->index;
  for (int i = 0; i < n;) {
    int m = delay - index > 1 ? delay - index : 1;
    if (m > n - i) m = n - i;
    int32_t* const loop = c->buffer + index;
    for (int k = 0; k < m; ++k) v[i + k] = iircomb_tick(x[i + k], loop + k, x1, y1, b0, b1, a1, feedback);
    i += m;
    index += m;
    if (index >= delay) index = 0;
  }
  c->x1 = x1;
  c->y1 = y1;
  c->index = index;
}

// iircomb_run on two combs side by side (va[i] for a fed xa[i], vb[i] for b
// fed xb[i]), the stretches cut where either loop wraps: each loop's filter
// recursion is a chain of dependent multiplies, and two independent chains
// in one loop overlap in the pipeline. Each comb sees exactly the steps
// iircomb_run gives it. va may be xa and vb may be xb.
inline void iircomb_pair_run(iircomber* a, iircomber* b, const int32_t* xa, const int32_t* xb, int32_t* va,
                             int32_t* vb, int n) {
  const int32_t ab0 = a->b0, ab1 = a->b1, aa1 = a->a1, afb = a->feedback, ad = a->delay;
  const int32_t bb0 = b->b0, bb1 = b->b1, ba1 = b->a1, bfb = b->feedback, bd = b->delay;
  int32_t ax1 = a->x1, ay1 = a->y1, ai = a->index;
  int32_t bx1 = b->x1, by1 = b->y1, bi = b->index;
  for (int i = 0; i < n;) {
    int m = ad - ai > 1 ? ad - ai : 1;
    const int mb = bd - bi > 1 ? bd - bi : 1;
    if (m > mb) m = mb;
    if (m > n - i) m = n - i;
    int32_t* const la = a->buffer + ai;
    int32_t* const lb = b->buffer + bi;
    for (int k = 0; k < m; ++k) {
      va[i + k] = iircomb_tick(xa[i + k], la + k, ax1, ay1, ab0, ab1, aa1, afb);
      vb[i + k] = iircomb_tick(xb[i + k], lb + k, bx1, by1, bb0, bb1, ba1, bfb);
    }
    i += m;
    ai += m;
    bi += m;
    if (ai >= ad) ai = 0;
    if (bi >= bd) bi = 0;
  }
  a->x1 = ax1;
  a->y1 = ay1;
  a->index = ai;
  b->x1 = bx1;
  b->y1 = by1;
  b->index = bi;
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

// ---------------------------------------------------------------------------
// Block forms for owners that run many combs and all-passes over runs of
// frames (reverb, early reflections), identical sample for sample to calling
// the per-sample functions over the run. The runs are cut where a loop
// position wraps, so the inner loops walk plain pointers with the state in
// registers. With comb gains that cannot saturate (comb_gains_unsaturated:
// the values every owner in the library uses) the saturation tests are left
// out; otherwise the saturating rule runs.

template <bool Unsaturated>
[[gnu::always_inline]] inline int32_t q13_product(int32_t a, int32_t b) {
  if constexpr (Unsaturated) return flush_m1(static_cast<int32_t>((static_cast<int64_t>(a) * b) >> 13));
  return mulq13(a, b);
}

// acc[i] += the outputs of combs c0 and c1 fed x[i], for i < n (32-bit
// wrap-around sums, whose order does not change them). Two independent
// low-pass recursions per loop overlap in the pipeline.
template <int S, bool Unsaturated>
[[gnu::always_inline]] inline void comb_pair_run(comber* c0, comber* c1, const int32_t* x, int32_t* acc, int n) {
  int32_t lp0 = c0->lowpass_state, lp1 = c1->lowpass_state;
  const int32_t d0 = c0->damp, e0 = c0->damp_complement, f0 = c0->feedback;
  const int32_t d1 = c1->damp, e1 = c1->damp_complement, f1 = c1->feedback;
  int32_t i0 = c0->index, i1 = c1->index;
  for (int i = 0; i < n;) {
    int m = n - i;
    m = c0->size - i0 < m ? c0->size - i0 : m;
    m = c1->size - i1 < m ? c1->size - i1 : m;
    int32_t* p0 = c0->buffer + i0;
    int32_t* p1 = c1->buffer + i1;
    for (int j = 0; j < m; ++j) {
      int32_t y0, y1;
      if constexpr (Unsaturated) {
        y0 = comb_tick_unsaturated<S>(x[i + j], p0 + j, lp0, d0, e0, f0);
        y1 = comb_tick_unsaturated<S>(x[i + j], p1 + j, lp1, d1, e1, f1);
      } else {
        y0 = comb_tick<S>(x[i + j], p0 + j, lp0, d0, e0, f0);
        y1 = comb_tick<S>(x[i + j], p1 + j, lp1, d1, e1, f1);
      }
      acc[i + j] = wrap_add(acc[i + j], wrap_add(y0, y1));
    }
    i += m;
    i0 += m;
    i1 += m;
    if (i0 >= c0->size) i0 = 0;
    if (i1 >= c1->size) i1 = 0;
  }
  c0->lowpass_state = lp0;
  c1->lowpass_state = lp1;
  c0->index = i0;
  c1->index = i1;
}

// `count` combs (an even number) fed the same input: acc[i] += the sum of
// their outputs; identical to count * n calls of comb_process_16 (S = 13) or
// comb_process_24 (S = 5).
template <int S>
[[gnu::always_inline]] inline void comb_bank_accumulate(comber* const* c, int count, const int32_t* x, int32_t* acc,
                                                        int n) {
  for (int k = 0; k + 1 < count; k += 2) {
    if (comb_gains_unsaturated(c[k]->damp, c[k]->damp_complement, c[k]->feedback) &&
        comb_gains_unsaturated(c[k + 1]->damp, c[k + 1]->damp_complement, c[k + 1]->feedback)) {
      comb_pair_run<S, true>(c[k], c[k + 1], x, acc, n);
    } else {
      comb_pair_run<S, false>(c[k], c[k + 1], x, acc, n);
    }
  }
}

// One all-pass over v[0..n), in place; identical to n calls of
// allpass_process. Within a stretch that does not wrap every step touches its
// own loop word. For g = 0.5 (4096, the default) g * v >> 13 is v >> 1.
[[gnu::always_inline]] inline void allpass_block(allpass* a, int32_t* v, int n) {
  const int32_t g = a->feedback;
  int p = a->index;
  for (int i = 0; i < n;) {
    const int m = n - i < a->size - p ? n - i : a->size - p;
    int32_t* w = a->buffer + p;
    if (g == 4096) {
      for (int j = 0; j < m; ++j) {
        const int32_t x = v[i + j];
        const int32_t y = sat_add(flush_m1(x >> 1), w[j]);
        w[j] = sat_sub(x, flush_m1(y >> 1));
        v[i + j] = y;
      }
    } else {
      for (int j = 0; j < m; ++j) v[i + j] = allpass_tick(v[i + j], w + j, g);
    }
    i += m;
    p += m;
    if (p >= a->size) p = 0;
  }
  a->index = p;
}

}  // namespace kafx

#endif
