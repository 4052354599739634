// Channel balance: Q13 cross-mix of one channel into the other, and the
// stereo-to-mono fold.
#include "kafx_proc/channel_balance.h"

#include "common/fixed_point.h"

using namespace kafx;

namespace {

// (w_self * self + w_other * other) >> 13, saturated; never flushed.
// Ratios beyond +-8192 are not rejected: they extrapolate, saturated.
inline int32_t blend(int32_t self, int32_t other, int64_t w_other) {
  const int64_t acc = wrap_add64((kQ13One - w_other) * self, w_other * other);
  return shr_sat<13>(acc);
}

void defaults(channel_balance_t* cb) {
  cb->status = 1;
  cb->channel_ration = 0;
  cb->channel_num = 2;
}

}  // namespace

extern "C" {

void channel_balance_init(channel_balance_t* cb) { defaults(cb); }
void channel_balance_end(channel_balance_t* cb) { defaults(cb); }
void channel_balance_reset(channel_balance_t*) {}

void channel_balance_setstatus(channel_balance_t* cb, int v) { cb->status = v; }
void channel_balance_getstatus(channel_balance_t* cb, int* v) { *v = cb->status; }
void channel_balance_set_channel_ration(channel_balance_t* cb, int v) { cb->channel_ration = v; }
void channel_balance_get_channel_ration(channel_balance_t* cb, int* v) { *v = cb->channel_ration; }
void channel_balance_set_channel_num(channel_balance_t* cb, int v) { cb->channel_num = v; }
void channel_balance_get_channel_num(channel_balance_t* cb, int* v) { *v = cb->channel_num; }

void channel_balance_process_stereo(channel_balance_t* cb, int* in_left, int* in_right, int* out_left,
                                    int* out_right, int count) {
  // One ratio for the block: a positive one mixes right into left, any
  // other left into right ((8192 + r) * right + (-r) * left).
  const int32_t r = cb->channel_ration;
  if (r > 0) {
    for (int i = 0; i < count; ++i) {
      const int32_t r_in = in_right[i];
      out_left[i] = blend(in_left[i], r_in, r);
      out_right[i] = r_in;
    }
  } else {
    for (int i = 0; i < count; ++i) {
      const int32_t l_in = in_left[i];
      out_left[i] = l_in;
      out_right[i] = blend(in_right[i], l_in, -static_cast<int64_t>(r));
    }
  }
}

void channel_balance_process_mono(channel_balance_t*, int* in_left, int* in_right, int* out, int count) {
  for (int i = 0; i < count; ++i) out[i] = wrap_add(in_left[i], in_right[i]) >> 1;
}

}  // extern "C"
