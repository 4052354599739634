// Inline step of the DC blocker, shared by its exported per-sample functions
// and the blocks that run it over whole blocks.
#ifndef KAFX_COMMON_DC_REMOVE_H
#define KAFX_COMMON_DC_REMOVE_H

#include "common/fixed_point.h"
#include "kafx_proc/dc_remove.h"

namespace kafx {

inline constexpr int64_t kDcPole = 66840428;  // 0.996 in Q26

// y = 0.996 (y1 + x - x1) at the internal scale x = in << S (S = 5 for
// working samples, 13 for 16-bit samples). Returns P = D * pole, whose
// >> 26 is the new state; the caller brings it back to the input's scale.
// Sums and the product wrap in 64 bits (only inputs far outside the sample
// range get there).
template <int S>
[[gnu::always_inline]] inline int64_t dc_remove_tick(int64_t& y1, int64_t& x1, int32_t in) {
  const int64_t x = static_cast<int64_t>(static_cast<uint64_t>(static_cast<int64_t>(in)) << S);
  const int64_t diff = wrap_add64(wrap_add64(y1, x), -x1);
  const int64_t p = wrap_mul64(diff, kDcPole);
  y1 = p >> 26;
  x1 = x;
  return p;
}

// Working samples: P >> 31 saturated to int32, -1 flushed.
inline int32_t dc_remove_out24(int64_t p) { return flush_m1(sat32(p >> 31)); }
// 16-bit samples: P >> 39 taken as its low 32 bits, -1 flushed.
inline int32_t dc_remove_out16(int64_t p) { return flush_m1(static_cast<int32_t>(p >> 39)); }

}  // namespace kafx

#endif
