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
#include "common/notch_block.h"

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
  int64_t* w = n->state;
  NotchState s{w[0], w[1], w[2], w[3], w[4]};
  *out = notch_tick(s, n->centre, n->radius, *in);
  w[0] = s.x1;
  w[1] = s.x2;
  w[2] = s.y1;
  w[3] = s.y2;
  w[4] = s.rest;
}

}  // extern "C"
