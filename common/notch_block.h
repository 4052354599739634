// Inline step of the second-order notch (common/notch.cpp), shared by the
// exported per-sample function and a block form for owners that filter
// whole runs.
#ifndef KAFX_COMMON_NOTCH_BLOCK_H
#define KAFX_COMMON_NOTCH_BLOCK_H

#include <cstdint>

#include "common/fixed_point.h"
#include "kafx_proc/notch.h"

namespace kafx {

// The notch's five state words held in locals.
struct NotchState {
  int64_t x1, x2, y1, y2, rest;  // x[n-1], x[n-2], y[n-1], y[n-2], the 13 discarded bits
};

// One step at the internal scale 8192 times the sample (m: centre, Q28;
// r: radius, Q13):
//   acc = (x1 m >> 15) + rest + ((x + x2) << 13) - (r^2 y2 >> 13) - ((r m >> 28) y1)
// y = acc >> 13, rest = acc's low 13 bits; returns y's low 32 bits with -1
// flushed. Products and sums wrap in 64 bits; negating after the shift
// (r^2 y2) or before the product ((r m) >> 28, below 2^34) stays clear of
// the int64 minimum.
[[gnu::always_inline]] inline int32_t notch_tick(NotchState& s, int64_t m, int64_t r, int32_t in) {
  const int64_t x = in;
  int64_t acc = wrap_add64(wrap_add64(wrap_mul64(s.x1, m) >> 15, s.rest), wrap_mul64(wrap_add64(x, s.x2), 8192));
  acc = wrap_add64(acc, -(wrap_mul64(r * r, s.y2) >> 13));
  acc = wrap_add64(acc, wrap_mul64(-((r * m) >> 28), s.y1));
  const int64_t y = acc >> 13;
  s.x2 = s.x1;
  s.x1 = x;
  s.y2 = s.y1;
  s.y1 = y;
  s.rest = acc & 0x1fff;
  return flush_m1(static_cast<int32_t>(y));
}

// v[j] = mix(v[j], the notch's output for v[j]) for j < count, the state
// in locals over the run; the notch ends where count notch_process calls
// leave it.
template <class Mix>
[[gnu::always_inline]] inline void notch_block(notch* n, int32_t* v, int count, Mix mix) {
  int64_t* w = n->state;
  NotchState s{w[0], w[1], w[2], w[3], w[4]};
  const int64_t m = n->centre, r = n->radius;
  for (int j = 0; j < count; ++j) v[j] = mix(v[j], notch_tick(s, m, r, v[j]));
  w[0] = s.x1;
  w[1] = s.x2;
  w[2] = s.y1;
  w[3] = s.y2;
  w[4] = s.rest;
}

}  // namespace kafx

#endif
