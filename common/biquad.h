// Inline per-sample kernels of the biquad section, shared by the blocks that
// run many sections in tight loops (equalizer, crossovers, pre-filters).
#ifndef KAFX_COMMON_BIQUAD_H
#define KAFX_COMMON_BIQUAD_H

#include "common/dispatch.h"
#include "common/fixed_point.h"
#include "kafx_proc/biquad.h"

namespace kafx {

// Dot product of five coefficients with five state words in 64 bits (the
// 16-bit variant's accumulator); the sum wraps rather than overflowing.
inline int64_t biquad_dot5(const int32_t* c, const int32_t* w) {
  uint64_t acc = 0;
  for (int i = 0; i < 5; ++i) acc += static_cast<uint64_t>(static_cast<int64_t>(c[i]) * w[i]);
  return static_cast<int64_t>(acc);
}

inline int64_t widen_mul(int32_t a, int32_t b) { return static_cast<int64_t>(a) * b; }

// The two halves of a 32-bit section's Q28 accumulator. The products are
// below 2^62 in magnitude and the sums wrap, so splitting the five-term sum
// into a feed-forward part and a feedback part gives exactly the same value.
inline int64_t biquad_feed_forward(int32_t b0, int32_t b1, int32_t b2, int32_t x0, int32_t x1, int32_t x2) {
  return static_cast<int64_t>(static_cast<uint64_t>(widen_mul(b0, x0)) + static_cast<uint64_t>(widen_mul(b1, x1)) +
                              static_cast<uint64_t>(widen_mul(b2, x2)));
}

// Adds the feedback terms, applies the product rule (shift 28, saturate,
// flush -1), moves the output history on and returns the output y >> 5.
[[gnu::always_inline]] inline int32_t biquad_feedback(int64_t ff, int32_t a1, int32_t a2, int32_t& y1,
                                                      int32_t& y2) {
  const uint64_t acc = static_cast<uint64_t>(ff) + static_cast<uint64_t>(widen_mul(a1, y1)) +
                       static_cast<uint64_t>(widen_mul(a2, y2));
  const int32_t y = mul_shift<28>(static_cast<int64_t>(acc));
  y2 = y1;
  y1 = y;
  return y >> 5;
}

// The 32-bit section's per-sample steps with its state held in locals: input
// x 32 saturated, then the two halves above. The state goes back to the
// record with store().

struct Biquad32Kernel {
  int32_t b0 = 0, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
  int32_t x1 = 0, x2 = 0, y1 = 0, y2 = 0;

  Biquad32Kernel() = default;
  explicit Biquad32Kernel(const IIR_t* f)
      : b0(f->coef[0]), b1(f->coef[1]), b2(f->coef[2]), a1(f->coef[3]), a2(f->coef[4]),
        x1(f->state[1]), x2(f->state[2]), y1(f->state[3]), y2(f->state[4]) {}

  int32_t step(int32_t in, int32_t* x0_out) {
    const int32_t x0 = shl_sat<5>(in);
    *x0_out = x0;
    const int64_t ff = biquad_feed_forward(b0, b1, b2, x0, x1, x2);
    x2 = x1;
    x1 = x0;
    return biquad_feedback(ff, a1, a2, y1, y2);
  }

  void store(IIR_t* f, int32_t last_x0) const {
    f->state[0] = last_x0;
    f->state[1] = x1;
    f->state[2] = x2;
    f->state[3] = y1;
    f->state[4] = y2;
  }
};

// One 24-bit working sample through a Q28 section.
inline int32_t biquad_run32(IIR_t* f, int32_t x) {
  if (f->status == 0) return x;
  Biquad32Kernel k(f);
  int32_t x0;
  const int32_t y = k.step(x, &x0);
  k.store(f, x0);
  return y;
}

// Block kernel in two passes per chunk: the feed-forward half has no
// feedback and runs across the chunk (it vectorises where the machine has
// wide 32x32->64 multiplies); the feedback half then runs sample by sample.
inline constexpr int kBiquadChunk = 64;

struct BiquadChunk {
  int64_t ff[kBiquadChunk];      // feed-forward sums of the chunk's samples
  int32_t x[kBiquadChunk + 2];   // x[n-2], x[n-1], then the chunk's inputs x 32
};

// The feed-forward pass over n <= kBiquadChunk samples of `in`, from the
// input history in k; built per instruction set (common/dispatch.h).
void biquad_feed_forward_chunk(const Biquad32Kernel& k, const int32_t* in, int n, BiquadChunk* c);
using BiquadFeedForwardChunk = void (*)(const Biquad32Kernel& k, const int32_t* in, int n, BiquadChunk* c);
extern const KernelVariants<BiquadFeedForwardChunk> biquad_feed_forward_chunk_variants;

// A whole block through one section, in place; identical to running
// biquad_run32 sample by sample.
void biquad_block32(IIR_t* f, int32_t* buf, int n);

// Independent sections over their own buffers (section s filters buf[s]),
// with up to four feedback recursions interleaved in one loop.
void biquad_block32_multi(IIR_t* const* f, int32_t* const* buf, int count, int n);
void biquad_block32_pair(IIR_t* fa, int32_t* a, IIR_t* fb, int32_t* b, int n);
using BiquadBlock32Pair = void (*)(IIR_t* fa, int32_t* a, IIR_t* fb, int32_t* b, int n);
extern const KernelVariants<BiquadBlock32Pair> biquad_block32_pair_variants;

}  // namespace kafx

#endif
