// First-order DC blocker y[n] = 0.996 (y[n-1] + x[n] - x[n-1]).
//
// The recursion runs in 64 bits at an internal scale of 32 times a working
// sample (or 8192 times a 16-bit sample). The pole 0.996 is 66840428 / 2^26;
// the product P = D * 66840428 gives the new state P >> 26 and the output
// P >> 31 (working samples) or P >> 39 (16-bit), i.e. the state brought back
// to the input's scale. The step itself is in dc_remove.h.
#include "kafx_proc/dc_remove.h"

#include "common/dc_remove.h"

using namespace kafx;

extern "C" {

void dc_remove_init(dc_remove* d) {
  d->y1 = 0;
  d->x1 = 0;
}

void dc_remove_reset(dc_remove* d) { dc_remove_init(d); }

void dc_remove_end(dc_remove* d) { dc_remove_init(d); }

void dc_remove_process_24(dc_remove* d, int* in, int* out) {
  *out = dc_remove_out24(dc_remove_tick<5>(d->y1, d->x1, *in));
}

void dc_remove_process_16(dc_remove* d, int* in, int* out) {
  *out = dc_remove_out16(dc_remove_tick<13>(d->y1, d->x1, *in));
}

void do_dc_remove_process(dc_remove* d, int* in, int* out, int count) {
  int64_t y1 = d->y1, x1 = d->x1;
  for (int i = 0; i < count; ++i) out[i] = dc_remove_out24(dc_remove_tick<5>(y1, x1, in[i]));
  d->y1 = y1;
  d->x1 = x1;
}

}  // extern "C"
