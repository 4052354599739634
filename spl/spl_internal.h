// Internal building blocks of the signal-processing library.
//
// Arithmetic conventions of the resampling stages:
//  - Every state, difference and sum is a 32-bit value that wraps modulo
//    2^32 (full-scale input can drive an all-pass cascade past 2^31; the
//    wrap, not a saturation, is the defined behaviour). Wrap-around goes
//    through unsigned arithmetic, so it is defined behaviour.
//  - Right shifts of negative values are arithmetic (floor).
//
// The length-taking cores use int lengths; the exported 16-bit stages take
// short lengths and forward here.
#ifndef KAFX_SPL_SPL_INTERNAL_H
#define KAFX_SPL_SPL_INTERNAL_H

#include <cstdint>

#include "common/dispatch.h"
#include "common/fixed_point.h"
#include "spl/simd.h"

namespace kafx::spl {

// ---------------------------------------------------------------------------
// Internal-format all-pass branches (Q15 coefficients on samples that carry
// the signal << 15): three first-order sections
//     y[n] = x[n-1] + c * q(x[n] - y[n-1])
// where q brings the difference down by 14 bits: rounded in the first
// section, and in the other two floored and then moved up by one when the
// quotient is negative. State words per branch: previous input of section
// 1, previous outputs of sections 1, 2 and 3. The two branch coefficient
// sets (the decimators run the lower branch on the even samples):
inline constexpr int kUpperC0 = 821, kUpperC1 = 6110, kUpperC2 = 12382;
inline constexpr int kLowerC0 = 3050, kLowerC1 = 9368, kLowerC2 = 15063;

// A 16-bit sample in the internal format: << 15 plus a half for rounding.
constexpr int32_t to_internal(int16_t v) { return wrap_add(wrap_shl<15>(v), 16384); }

// ---------------------------------------------------------------------------
// Stage cores (resample_by2.cpp).
void down_by2_int_to_short(int32_t* in, int len, int16_t* out, int32_t* st);
void down_by2_short_to_int(const int16_t* in, int len, int32_t* out, int32_t* st);
void up_by2_short_to_int(const int16_t* in, int len, int32_t* out, int32_t* st);
void up_by2_int_to_int(const int32_t* in, int len, int32_t* out, int32_t* st);
void up_by2_int_to_short(const int32_t* in, int len, int16_t* out, int32_t* st);
void lp_by2_short_to_int(const int16_t* in, int len, int32_t* out, int32_t* st);
void lp_by2_int_to_int(const int32_t* in, int len, int32_t* out, int32_t* st);
void downsample_by2(const int16_t* in, int len, int16_t* out, int32_t* st);
void upsample_by2(const int16_t* in, int len, int16_t* out, int32_t* st);
// The two forms those choose between (lanes where 32-bit lane multiplies
// are native, i.e. the AVX2 variant; scalar otherwise); both give the same
// result.
KAFX_TARGET_AVX2 void downsample_by2_lanes(const int16_t* in, int len, int16_t* out, int32_t* st);
KAFX_TARGET_AVX2 void upsample_by2_lanes(const int16_t* in, int len, int16_t* out, int32_t* st);
void downsample_by2_scalar(const int16_t* in, int len, int16_t* out, int32_t* st);
void upsample_by2_scalar(const int16_t* in, int len, int16_t* out, int32_t* st);

// The internal-format stages in both forms (same results). The lane form
// needs vector registers with native 32-bit lane multiplies, and pays off
// only where the branch recursions' vector latencies are hidden: 32-bit ARM
// builds have no such lanes (armhf's baseline has no NEON, and the lanes
// become scalar code that keeps every lane in memory), and on AArch64's
// in-order cores the scalar form, two branches side by side, takes half the
// cycles of the NEON lanes or less (llvm-mca's Cortex-A55 model, see
// scripts/arm-estimate.sh). On ARM the scalar form is the baseline.
#ifndef KAFX_SPL_SCALAR_BY2
#if defined(__arm__) || defined(__aarch64__)
#define KAFX_SPL_SCALAR_BY2 1
#else
#define KAFX_SPL_SCALAR_BY2 0
#endif
#endif
void down_int_to_short_lanes(int32_t* in, int len, int16_t* out, int32_t* st);
void down_short_to_int_lanes(const int16_t* in, int len, int32_t* out, int32_t* st);
void up_short_to_int_lanes(const int16_t* in, int len, int32_t* out, int32_t* st);
void up_int_to_int_lanes(const int32_t* in, int len, int32_t* out, int32_t* st);
void up_int_to_short_lanes(const int32_t* in, int len, int16_t* out, int32_t* st);
void lp_short_to_int_lanes(const int16_t* in, int len, int32_t* out, int32_t* st);
void lp_int_to_int_lanes(const int32_t* in, int len, int32_t* out, int32_t* st);
void down_int_to_short_scalar(int32_t* in, int len, int16_t* out, int32_t* st);
void down_short_to_int_scalar(const int16_t* in, int len, int32_t* out, int32_t* st);
void up_short_to_int_scalar(const int16_t* in, int len, int32_t* out, int32_t* st);
void up_int_to_int_scalar(const int32_t* in, int len, int32_t* out, int32_t* st);
void up_int_to_short_scalar(const int32_t* in, int len, int16_t* out, int32_t* st);
void lp_short_to_int_scalar(const int16_t* in, int len, int32_t* out, int32_t* st);
void lp_int_to_int_scalar(const int32_t* in, int len, int32_t* out, int32_t* st);

// ---------------------------------------------------------------------------
// Builds of the hot kernels per instruction set (common/dispatch.h), for the
// test that runs every variant against the baseline.
using By2Stage16 = void (*)(const int16_t*, int, int16_t*, int32_t*);
using By2IntToShort = void (*)(int32_t*, int, int16_t*, int32_t*);
using By2ShortToInt = void (*)(const int16_t*, int, int32_t*, int32_t*);
using By2IntToInt = void (*)(const int32_t*, int, int32_t*, int32_t*);
using By2IntToShortConst = void (*)(const int32_t*, int, int16_t*, int32_t*);
using FirToInt = void (*)(const int32_t*, int32_t*, int);
using FirToShort = void (*)(const int32_t*, int16_t*, int);
extern const KernelVariants<By2Stage16> downsample_by2_variants;
extern const KernelVariants<By2Stage16> upsample_by2_variants;
extern const KernelVariants<By2IntToShort> down_int_to_short_variants;
extern const KernelVariants<By2ShortToInt> down_short_to_int_variants;
extern const KernelVariants<By2ShortToInt> up_short_to_int_variants;
extern const KernelVariants<By2IntToInt> up_int_to_int_variants;
extern const KernelVariants<By2IntToShortConst> up_int_to_short_variants;
extern const KernelVariants<By2ShortToInt> lp_short_to_int_variants;
extern const KernelVariants<By2IntToInt> lp_int_to_int_variants;
extern const KernelVariants<FirToInt> fir_48_32_mv_variants;
extern const KernelVariants<FirToInt> fir_32_24_mv_variants;
extern const KernelVariants<FirToInt> fir_44_32_mv_variants;
extern const KernelVariants<FirToInt> fir_32_22_mv_variants;
extern const KernelVariants<FirToShort> fir_32_22_to_short_mv_variants;
// The one-at-a-time form of the 16 -> 11 stage to 16 bits (what ARM runs).
void fir_32_22_to_short_serial(const int32_t* in, int16_t* out, int K);
// The 3 -> 2, 16 -> 11 and 11 -> 8 stages with all sums of a block formed
// together, tap by tap, and stored after the block's inputs are read
// (separate buffers or out <= in).
void fir_48_32_paired(const int32_t* in, int32_t* out, int K);
void fir_32_22_paired(const int32_t* in, int32_t* out, int K);
void fir_44_32_paired(const int32_t* in, int32_t* out, int K);

// The form each fractional stage runs in when the output trails the input
// or is a separate buffer: the group kernels (vector lanes over groups of
// blocks), one output at a time, or a block's sums side by side. Chosen by
// the cycles on in-order ARM cores (llvm-mca's Cortex-A55 model and the
// 32-bit bracket, scripts/arm-estimate.sh): 32-bit ARM has no vector lanes
// in its baseline and its 13 registers hold the two sums of a 3 -> 2 block
// but not the ten of a 16 -> 11 block or the eight of an 11 -> 8 block;
// AArch64 keeps NEON's lanes for 3 -> 2 and holds the sums of a 16 -> 11
// or an 11 -> 8 block in registers.
enum class FirForm { kGroup, kSerial, kPaired };
#if defined(__arm__)
inline constexpr FirForm kFir48To32Form = FirForm::kPaired, kFir32To22Form = FirForm::kSerial,
                         kFir44To32Form = FirForm::kSerial, kFirForm = FirForm::kSerial;
#elif defined(__aarch64__)
inline constexpr FirForm kFir48To32Form = FirForm::kGroup, kFir32To22Form = FirForm::kPaired,
                         kFir44To32Form = FirForm::kPaired, kFirForm = FirForm::kSerial;
#else
inline constexpr FirForm kFir48To32Form = FirForm::kGroup, kFir32To22Form = FirForm::kGroup,
                         kFir44To32Form = FirForm::kGroup, kFirForm = FirForm::kGroup;
#endif

// Vector routines (vector_ops.cpp).
template <typename T>
struct Extremes {
  T lo, hi;
};
extern const KernelVariants<Extremes<int16_t> (*)(const int16_t*, int)> both16_variants;
extern const KernelVariants<Extremes<int32_t> (*)(const int32_t*, int)> both32_variants;
extern const KernelVariants<int16_t (*)(const int16_t*, int)> max16_variants;
extern const KernelVariants<int32_t (*)(const int32_t*, int)> max32_variants;
extern const KernelVariants<int16_t (*)(const int16_t*, int)> min16_variants;
extern const KernelVariants<int32_t (*)(const int32_t*, int)> min32_variants;
extern const KernelVariants<int (*)(const int16_t*, int, int16_t, int16_t)> first16_variants;
extern const KernelVariants<int (*)(const int32_t*, int, int32_t, int32_t)> first32_variants;
extern const KernelVariants<int16_t (*)(const int16_t*, int)> wrapped_max_abs16_variants;
extern const KernelVariants<uint32_t (*)(const int16_t*, int, int)> shifted_square_sum_variants;

// Complex FFT on n points (complex_fft.cpp); mode 0 truncates, 1 rounds.
using FftForward = void (*)(int16_t*, int);
using FftInverse = int (*)(int16_t*, int);
extern const KernelVariants<FftForward> fft_forward_truncating_variants;
extern const KernelVariants<FftForward> fft_forward_rounding_variants;
extern const KernelVariants<FftInverse> fft_inverse_truncating_variants;
extern const KernelVariants<FftInverse> fft_inverse_rounding_variants;

// Fractional stages (resample_fractional.cpp). fir_48_32 accepts out <= in.
void fir_48_32(const int32_t* in, int32_t* out, int K);
void fir_32_24(const int32_t* in, int32_t* out, int K);
void fir_44_32(const int32_t* in, int32_t* out, int K);
void fir_32_22(const int32_t* in, int32_t* out, int K);
void fir_32_22_to_short(const int32_t* in, int16_t* out, int K);

// Largest magnitude of a 16-bit vector, capped at 32767 (vector_ops.cpp).
int16_t max_abs_w16(const int16_t* v, int len);

}  // namespace kafx::spl

#endif
