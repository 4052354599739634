// Non-linear device: a symmetric clipper whose limit glides toward its target
// by 1/128 of the distance per sample, followed by an eighth-order polynomial
// that generates harmonics of the bass band.
//
// The polynomial is a chain of products: with x the Q23 working sample,
//   p0 = c0 x / 2^15,   pk = (ck x / 2^15) * p(k-1) / 2^23   (k = 1..7),
// so each stored coefficient is the ratio between successive terms and every
// intermediate stays inside 32 bits for 24-bit input. Intermediates saturate.
//
// The block form (common/nld_kernels.h) runs the glide first and then the
// polynomial over the whole run; its AVX2 build takes eight samples per step
// when a bound worked out from the run's largest input and the coefficients
// shows that no intermediate can saturate, and the reference otherwise.
#include "kafx_proc/band_split.h"

#include <cstdlib>
#include <cstring>

#include "common/fixed_point.h"
#include "common/lifecycle.h"
#include "common/nld_kernels.h"

#if KAFX_AVX2_VARIANTS
#include <immintrin.h>
#endif

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

void polynomial_run_reference(const int32_t* c, const int32_t* x, int32_t* y, int n) {
  for (int i = 0; i < n; ++i) y[i] = polynomial(c, x[i]);
}

#if KAFX_AVX2_VARIANTS
// Whether no intermediate of the chain can saturate for |x| <= x_max. With
// |a >> s| <= (|a| >> s) + 1 for the floor shift:
//   |t_k| <= T_k = (|c_k| x_max >> 15) + 1,
//   |p_0| <= P_0 = T_0,  |p_k| <= P_k = (T_k P_(k-1) >> 23) + 1,
// and every partial sum of y is at most the sum of the P_k. All of these
// below 2^31 means every shifted product is its exact value and no sum
// leaves the int32 range.
bool polynomial_unsaturated(const int32_t* c, uint64_t x_max) {
  constexpr uint64_t kLimit = uint64_t{1} << 31;
  uint64_t p = 0, sum = 0;
  for (int k = 0; k < kTerms; ++k) {
    const uint64_t mag = c[k] < 0 ? uint64_t{0} - static_cast<uint64_t>(static_cast<int64_t>(c[k]))
                                  : static_cast<uint64_t>(c[k]);
    const uint64_t t = ((mag * x_max) >> 15) + 1;
    if (t >= kLimit) return false;
    p = k == 0 ? t : ((t * p) >> 23) + 1;
    if (p >= kLimit) return false;
    sum += p;
  }
  return sum < kLimit;
}

// Lane-wise (a * b) >> Shift for values known to fit in int32: the 64-bit
// products of the even lanes and of the odd lanes (a_odd, b_odd: the odd
// lanes moved down), each shifted so that bits Shift..Shift+31 land in the
// lane's own 32 bits.
template <int Shift>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i mul_shift_exact(__m256i a, __m256i a_odd, __m256i b,
                                                                        __m256i b_odd) {
  const __m256i even = _mm256_srli_epi64(_mm256_mul_epi32(a, b), Shift);
  const __m256i odd = _mm256_slli_epi64(_mm256_mul_epi32(a_odd, b_odd), 32 - Shift);
  return _mm256_blend_epi32(even, odd, 0xaa);
}

KAFX_TARGET_AVX2 void polynomial_run_avx2(const int32_t* c, const int32_t* x, int32_t* y, int n) {
  uint32_t x_max = 0;
  for (int i = 0; i < n; ++i) {
    const uint32_t a = x[i] < 0 ? 0u - static_cast<uint32_t>(x[i]) : static_cast<uint32_t>(x[i]);
    x_max = a > x_max ? a : x_max;
  }
  if (!polynomial_unsaturated(c, x_max)) {
    polynomial_run_reference(c, x, y, n);
    return;
  }
  __m256i coef[kTerms];
  for (int k = 0; k < kTerms; ++k) coef[k] = _mm256_set1_epi32(c[k]);
  int i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(x + i));
    const __m256i v_odd = _mm256_srli_epi64(v, 32);
    __m256i p = mul_shift_exact<15>(coef[0], coef[0], v, v_odd);
    __m256i sum = p;
    KAFX_UNROLL
    for (int k = 1; k < kTerms; ++k) {
      const __m256i t = mul_shift_exact<15>(coef[k], coef[k], v, v_odd);
      p = mul_shift_exact<23>(t, _mm256_srli_epi64(t, 32), p, _mm256_srli_epi64(p, 32));
      sum = _mm256_add_epi32(sum, p);
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(y + i), sum);
  }
  for (; i < n; ++i) y[i] = polynomial(c, x[i]);
}
#endif

}  // namespace

namespace kafx {

#if KAFX_NEON_VARIANTS
// The NEON build (common/nld_neon.cpp).
void nld_polynomial_run_neon(const int32_t* coef, const int32_t* x, int32_t* y, int n);
#endif

const KernelVariants<NldPolynomialRun> nld_polynomial_run_variants = {
    "nld_polynomial_run",
    {polynomial_run_reference, KAFX_AVX2_ONLY(polynomial_run_avx2), KAFX_NEON_ONLY(nld_polynomial_run_neon)}};

void nld_process_block(NLD* d, const int32_t* in, int32_t* out, int n) {
  constexpr auto run = run_chosen<nld_polynomial_run_variants>;
  if (d->clip_flag != 0) {
    for (int i = 0; i < n; ++i) out[i] = clip_step(d, in[i]);
    run(d->coef, out, out, n);
  } else {
    run(d->coef, in, out, n);
  }
}

}  // namespace kafx

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
