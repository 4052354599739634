// Inline per-sample kernels of the biquad section, shared by the blocks that
// run many sections in tight loops (equalizer, crossovers, pre-filters).
#ifndef KAFX_COMMON_BIQUAD_H
#define KAFX_COMMON_BIQUAD_H

#include "common/fixed_point.h"
#include "kafx_proc/biquad.h"

namespace kafx {

// Dot product of five coefficients with five state words in 64 bits; the sum
// wraps rather than overflowing (it cannot for any sane coefficient set).
inline int64_t biquad_dot5(const int32_t* c, const int32_t* w) {
  uint64_t acc = 0;
  for (int i = 0; i < 5; ++i) acc += static_cast<uint64_t>(static_cast<int64_t>(c[i]) * w[i]);
  return static_cast<int64_t>(acc);
}

// One 24-bit working sample through a Q28 section (state at sample * 32).
inline int32_t biquad_run32(IIR_t* f, int32_t x) {
  if (f->status == 0) return x;
  int32_t* w = f->state;
  w[0] = shl_sat<5>(x);
  const int32_t y = mul_shift<28>(biquad_dot5(f->coef, w));
  w[2] = w[1];
  w[1] = w[0];
  w[4] = w[3];
  w[3] = y;
  return y >> 5;
}

}  // namespace kafx

#endif
