// Non-linear device: a symmetric clipper whose limit glides toward its target
// by 1/128 of the distance per sample, followed by an eighth-order polynomial
// that generates harmonics of the bass band.
//
// The polynomial is a chain of products: with x the Q23 working sample,
//   p0 = c0 x / 2^15,   pk = (ck x / 2^15) * p(k-1) / 2^23   (k = 1..7),
// so each stored coefficient is the ratio between successive terms and every
// intermediate stays inside 32 bits for 24-bit input. Intermediates saturate.
#include "kafx_proc/band_split.h"

#include <cstdlib>
#include <cstring>

#include "common/fixed_point.h"
#include "common/lifecycle.h"

using namespace kafx;

namespace {

constexpr int kTerms = 8;
constexpr int32_t kDefaultCoef[kTerms] = {123008, -511, 699050, -345, 310689, -288, 116508, -256};
// Clip limit of a fresh or reset device (a quarter of 24-bit full scale).
constexpr int32_t kDefaultClip = 2097152;

inline int32_t clip_step(NLD* n, int32_t x) {
  const int64_t step = (static_cast<int64_t>(n->clip_limit) - n->clip_current) >> 7;
  n->clip_current = static_cast<int32_t>(n->clip_current + step);
  const int32_t hi = n->clip_current;
  const int32_t lo = sat32(-static_cast<int64_t>(hi));
  if (x > hi) x = hi;
  if (x < lo) x = lo;
  return x;
}

inline int32_t polynomial(const int32_t* c, int32_t x) {
  int32_t p = shr_sat<15>(static_cast<int64_t>(c[0]) * x);
  int32_t y = p;
  for (int k = 1; k < kTerms; ++k) {
    const int32_t t = shr_sat<15>(static_cast<int64_t>(c[k]) * x);
    p = shr_sat<23>(static_cast<int64_t>(t) * p);
    y = sat_add(y, p);
  }
  return y;
}

}  // namespace

extern "C" {

void NLD_init(NLD* n) {
  n->coef = static_cast<int32_t*>(alloc_copy(kDefaultCoef, sizeof(kDefaultCoef)));
  n->clip_flag = 1;
  n->clip_limit = kDefaultClip;
  n->clip_current = kDefaultClip;
  n->clip_level = kDefaultClip;
}

// Restarts the glide from the default limit, whatever the target.
void NLD_reset(NLD* n) { n->clip_current = kDefaultClip; }

void NLD_end(NLD* n) {
  free_null(n->coef);
}

void NLD_set_clip_flag(NLD* n, int flag) { n->clip_flag = flag; }

void NLD_get_clip_flag(NLD* n, int* flag) { *flag = n->clip_flag; }

// `level` is in 16-bit units; the limit is its working-sample equivalent.
void NLD_set_clip_level(NLD* n, int level) {
  n->clip_level = level;
  n->clip_limit = shl_sat<8>(level);
}

void NLD_get_clip_level(NLD* n, int* level) { *level = n->clip_level; }

void clip_process(NLD* n, int* in, int* out) { *out = n->clip_flag == 0 ? *in : clip_step(n, *in); }

void multiplier_process(NLD* n, int* in, int* out) { *out = polynomial(n->coef, *in); }

void NLD_process(NLD* n, int* in, int* out) {
  int32_t x = *in;
  if (n->clip_flag != 0) x = clip_step(n, x);
  *out = polynomial(n->coef, x);
}

}  // extern "C"
