// Second-order notch with first-order error feedback, in 64-bit arithmetic.
//
// Internal scale: 8192 times the sample. With m the Q28 centre coefficient
// (-2 cos w0) and r the Q13 pole radius,
//   acc = (x1 m >> 15) + e + ((x + x2) << 13) - (r^2 y2 >> 13) - ((r m >> 28) y1)
// is y[n] * 8192; y[n] = acc >> 13 and the 13 discarded bits e carry into the
// next sample. Products wrap in 64 bits (defined through unsigned types).
#include "kafx_proc/notch.h"

#include <cstdlib>
#include <cstring>

#include "common/lifecycle.h"
#include "common/fixed_point.h"

using namespace kafx;

namespace {

constexpr int kWords = 5;  // x[n-1], x[n-2], y[n-1], y[n-2], remainder

// A state that could not be allocated stays null and is left alone.
void clear_state(int64_t* s) {
  if (s != nullptr) std::memset(s, 0, kWords * sizeof(int64_t));
}

}  // namespace

extern "C" {

void notch_init(notch* n, int radius, int centre) {
  n->radius = radius;
  n->centre = centre;
  n->state = static_cast<int64_t*>(kafx::alloc_zeroed(kWords * sizeof(int64_t)));
  clear_state(n->state);
}

void notch_setcoef(notch* n, int radius, int centre) {
  n->radius = radius;
  n->centre = centre;
  clear_state(n->state);
}

void notch_setfi(notch* n, int centre) { n->centre = centre; }

void notch_resetstate(notch* n) { clear_state(n->state); }

void notch_end(notch* n) {
  kafx::free_null(n->state);
  n->radius = 0;
  n->centre = 0;
}

void notch_process(notch* n, int* in, int* out) {
  int64_t* s = n->state;
  const int64_t x = *in;
  const int64_t m = n->centre;
  const int64_t r = n->radius;
  int64_t acc = wrap_add64(wrap_add64(wrap_mul64(s[0], m) >> 15, s[4]), wrap_mul64(wrap_add64(x, s[1]), 8192));
  // The subtracted terms: negating after the shift (r^2 y2) or before the
  // product ((r m) >> 28, below 2^34) stays clear of the int64 minimum.
  acc = wrap_add64(acc, -(wrap_mul64(r * r, s[3]) >> 13));
  acc = wrap_add64(acc, wrap_mul64(-((r * m) >> 28), s[2]));
  const int64_t y = acc >> 13;
  s[1] = s[0];
  s[0] = x;
  s[3] = s[2];
  s[2] = y;
  s[4] = acc & 0x1fff;
  *out = flush_m1(static_cast<int32_t>(y));
}

}  // extern "C"
