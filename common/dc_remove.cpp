// First-order DC blocker y[n] = 0.996 (y[n-1] + x[n] - x[n-1]).
//
// The recursion runs in 64 bits at an internal scale of 32 times a working
// sample (or 8192 times a 16-bit sample). The pole 0.996 is 66840428 / 2^26;
// the product P = D * 66840428 gives the new state P >> 26 and the output
// P >> 31 (working samples) or P >> 39 (16-bit), i.e. the state brought back
// to the input's scale. Sums and the product wrap in 64 bits, which only
// happens for inputs far outside the sample range.
#include "kafx_proc/dc_remove.h"

#include "common/fixed_point.h"

using namespace kafx;

namespace {

constexpr int64_t kPole = 66840428;  // 0.996 in Q26

// One step at input shift S (5 or 13); returns P, the scaled product.
template <int S>
inline int64_t dc_step(dc_remove* d, int32_t in) {
  const int64_t x = static_cast<int64_t>(static_cast<uint64_t>(static_cast<int64_t>(in)) << S);
  const int64_t diff = wrap_add64(wrap_add64(d->y1, x), -d->x1);
  const int64_t p = wrap_mul64(diff, kPole);
  d->y1 = p >> 26;
  d->x1 = x;
  return p;
}

}  // namespace

extern "C" {

void dc_remove_init(dc_remove* d) {
  d->y1 = 0;
  d->x1 = 0;
}

void dc_remove_reset(dc_remove* d) { dc_remove_init(d); }

void dc_remove_end(dc_remove* d) { dc_remove_init(d); }

void dc_remove_process_24(dc_remove* d, int* in, int* out) { *out = flush_m1(sat32(dc_step<5>(d, *in) >> 31)); }

void dc_remove_process_16(dc_remove* d, int* in, int* out) {
  // Low 32 bits of the shifted product, no saturation.
  *out = flush_m1(static_cast<int32_t>(dc_step<13>(d, *in) >> 39));
}

void do_dc_remove_process(dc_remove* d, int* in, int* out, int count) {
  for (int i = 0; i < count; ++i) dc_remove_process_24(d, &in[i], &out[i]);
}

}  // extern "C"
