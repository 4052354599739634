// Smooth volume: a stereo Q13 gain gliding towards its target one sample at
// a time, the last stage of the headphone chain (volume changes and the
// chain's fade around a preset switch go through it).
//
// The glide per sample, with s = shift and d = target - current:
//   current += d >> s                       (coarse exponential step)
//   if |d| < 2^s:     current += d >> (s-2) (finer step once close)
//   if |d| < 2^(s-2): current = target      (snap)
// d is recomputed before each test. Shifts of 32 or more leave only the sign
// (0 or -1) and a bound 2^k with k >= 32 is 0, so a very slow setting has no
// finer step and no snap. Negative shift amounts (smooth_buffer_num below
// -5) act as 0.
#include "kafx_proc/smooth_volume.h"

#include "common/fixed_point.h"

using namespace kafx;

namespace {

constexpr int32_t kInitSmoothBufferNum = 2;
constexpr int32_t kShiftOffset = 5;

int64_t shr_glide(int64_t d, int32_t k) {
  if (k <= 0) return d;
  if (k >= 32) return d < 0 ? -1 : 0;
  return d >> k;
}

int64_t bound(int32_t k) {
  if (k <= 0) return 1;
  if (k >= 32) return 0;
  return int64_t{1} << k;
}

int64_t abs64(int64_t v) { return v < 0 ? -v : v; }

int32_t glide(int32_t cur, int32_t target, int32_t s) {
  int64_t c = cur;
  c += shr_glide(target - c, s);
  if (abs64(target - c) < bound(s)) c += shr_glide(target - c, s - 2);
  if (abs64(target - c) < bound(s - 2)) c = target;
  return static_cast<int32_t>(c);
}

}  // namespace

extern "C" {

void smooth_volume_init(smooth_volume_t* v) {
  v->current_gain = 0;
  v->smooth_buffer_num = kInitSmoothBufferNum;
  v->target_gain = kQ13One;
  v->shift = kInitSmoothBufferNum + kShiftOffset;
}

void smooth_volume_reset(smooth_volume_t* v) { v->current_gain = wrap_sub(kQ13One, v->target_gain); }

void smooth_volume_end(smooth_volume_t* v) { (void)v; }

void smooth_volume_set_smooth_buffer_num(smooth_volume_t* v, int n) {
  v->smooth_buffer_num = n;
  v->shift = wrap_add(n, kShiftOffset);
}

void smooth_volume_get_smooth_buffer_num(smooth_volume_t* v, int* n) { *n = v->smooth_buffer_num; }
void smooth_volume_set_volume(smooth_volume_t* v, int gain) { v->target_gain = gain; }
void smooth_volume_get_volume(smooth_volume_t* v, int* gain) { *gain = v->target_gain; }
void smooth_volume_set_soft_volume(smooth_volume_t* v, int gain) { v->current_gain = gain; }

// Output first with the gain in force, then the gain moves on. Once the
// gain sits on its target the rest of the block is a plain product.
void smooth_volume_process(smooth_volume_t* v, int* in_left, int* in_right, int* out_left, int* out_right,
                           int count) {
  int32_t cur = v->current_gain;
  const int32_t target = v->target_gain;
  const int32_t s = v->shift;
  int i = 0;
  for (; i < count && cur != target; ++i) {
    const int32_t l = in_left[i];
    const int32_t r = in_right[i];
    out_left[i] = shr_sat<13>(static_cast<int64_t>(l) * cur);
    out_right[i] = shr_sat<13>(static_cast<int64_t>(r) * cur);
    cur = glide(cur, target, s);
  }
  for (; i < count; ++i) {
    const int32_t l = in_left[i];
    const int32_t r = in_right[i];
    out_left[i] = shr_sat<13>(static_cast<int64_t>(l) * cur);
    out_right[i] = shr_sat<13>(static_cast<int64_t>(r) * cur);
  }
  v->current_gain = cur;
}

}  // extern "C"
