// Private helpers and entry points of the fixed-point noise suppressor.
//
// The 16/32-bit helpers follow the signal-processing library's rules:
// norms count the left shifts that bring the top significant bit just under
// the sign bit (0 for a zero argument), divisions by zero give the type's
// maximum, the two-way shift takes a signed count (negative = right).
// Wrap-around products and shifts go through unsigned types.
#ifndef KAFX_NS_NSX_INTERNAL_H
#define KAFX_NS_NSX_INTERNAL_H

#include <cstdint>

#include "common/dispatch.h"
#include "kafx_proc/ns.h"

namespace kafx::nsx {

inline constexpr int kEndStartupShort = 50;
inline constexpr int kEndStartupLong = 200;

inline int norm_u32(uint32_t a) { return a == 0 ? 0 : __builtin_clz(a); }
inline int norm_w32(int32_t a) {
  if (a == 0) return 0;
  uint32_t v = a < 0 ? ~static_cast<uint32_t>(a) : static_cast<uint32_t>(a);
  return v == 0 ? 31 : __builtin_clz(v) - 1;
}
inline int norm_w16(int16_t a) {
  if (a == 0) return 0;
  uint32_t v = a < 0 ? static_cast<uint32_t>(~static_cast<int32_t>(a)) : static_cast<uint32_t>(a);
  return v == 0 ? 15 : __builtin_clz(v) - 17;
}
inline int32_t div_w32_w16(int32_t num, int16_t den) { return den != 0 ? num / den : INT32_MAX; }
inline int16_t div_w32_w16_res16(int32_t num, int16_t den) {
  return den != 0 ? static_cast<int16_t>(num / den) : INT16_MAX;
}
inline uint32_t div_u32_u16(uint32_t num, uint16_t den) { return den != 0 ? num / den : UINT32_MAX; }
inline int16_t sat_w32_to_w16(int32_t v) {
  return v > INT16_MAX ? INT16_MAX : (v < INT16_MIN ? INT16_MIN : static_cast<int16_t>(v));
}
// Low 32 bits of a product / left shift (two's complement wrap).
inline int32_t wmul(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
inline int32_t wshl(int32_t v, int n) { return static_cast<int32_t>(static_cast<uint32_t>(v) << n); }
// v << n for n >= 0, v >> -n (arithmetic) otherwise.
inline int32_t shift_w32(int32_t v, int n) { return n >= 0 ? wshl(v, n) : v >> -n; }
// A shift count derived from the state, limited to -31 .. 31. The core's own
// course keeps these counts within a few bits; the exported steps used
// outside it (analyses without the core's block count, arbitrary SNR words)
// can push them far beyond 32, where the limit keeps the arithmetic defined
// (the result is as meaningless as the state). Applied once per frame or
// per bin where such a count is formed, never in a per-bin shift itself.
inline int limit_shift(int n) { return n > 31 ? 31 : (n < -31 ? -31 : n); }
// Unsigned right shift that yields 0 for counts of 32 and more.
inline uint32_t shr_u32(uint32_t v, int n) { return n >= 32 ? 0u : v >> n; }
// (a * b + 2^(s-1)) >> s on 16-bit operands.
inline int32_t mul_16_16_rsft_round(int32_t a, int32_t b, int s) {
  return (a * b + (1 << (s - 1))) >> s;
}

// log2 of a positive magnitude in Q8 from the bit position and mantissa table.
int16_t log2_q8(uint32_t v);

// The speech/noise probability. With published_prior the prior non-speech
// probability is moved toward the feature indicators (the reference rule);
// otherwise it is read as set by the caller and left unchanged.
void speech_noise_prob(NsxInst_t_* inst, uint16_t* non_speech_prob, const uint32_t* prior_snr,
                       const uint32_t* post_snr, bool published_prior);

// One quantile estimator's update over len bins (nsx_core.cpp): log
// quantiles and densities in place, from the log magnitudes lmagn (Q8).
// logval is the floor of the quantile, small_delta the step factor (Q7) for
// densities up to 512, count_div and count_prod the estimator's counter
// weights, density_rise the density added where a bin is renewed. Each
// field holds a 16-bit value.
struct QuantileStep {
  int32_t logval, small_delta, count_div, count_prod, density_rise;
};
using QuantileUpdate = void (*)(int16_t* quant, int16_t* density, const int16_t* lmagn, const QuantileStep* k,
                                int len);
extern const KernelVariants<QuantileUpdate> quantile_update_variants;
inline constexpr auto quantile_update = run_chosen<quantile_update_variants>;

// The synthesis loop over len points (nsx_core.cpp): synth gets
// round(round(window real / 2^14) gain / 2^13) added (the windowed value
// wrapped to 16 bits, the scaled one and the sum saturated to 16 bits; gain
// Q13). The arrays are distinct.
using SynthesisBlock = void (*)(const int16_t* window, const int16_t* real, int16_t* synth, int gain_factor,
                                int len);
extern const KernelVariants<SynthesisBlock> synthesis_block_variants;
inline constexpr auto synthesis_block = run_chosen<synthesis_block_variants>;

// One block. band_post = true is kedoNs_ProcessCore (input peak tracking,
// prior from the band post-processing, click limiter); false runs the
// reference suppressor alone with its own prior rule. inst must be
// initialised.
void process_frame(NsxInst_t_* inst, const int16_t* in, int16_t* out, bool band_post);

}  // namespace kafx::nsx

#endif
