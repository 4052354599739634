// Block kernels of the dynamic range control: the scalar loops (the
// baseline) and their AVX2 builds (see common/drc_kernels.h; the NEON builds
// are in common/drc_neon.cpp).
#include "common/drc_kernels.h"

#include "common/fixed_point.h"
#include "common/lanes_avx2.h"

namespace kafx {
namespace {

DrcBlockStats block_stats_scalar(const int32_t* x, int n) {
  int64_t sum = 0;
  int64_t max_abs = 0;
  for (int i = 0; i < n; ++i) {
    const int64_t a = x[i] < 0 ? -static_cast<int64_t>(x[i]) : x[i];
    sum += a;
    max_abs = a > max_abs ? a : max_abs;
  }
  return {sum, max_abs};
}

void delay_gain_scalar(int32_t* line, const int32_t* in, int32_t* out, int n, int32_t gain) {
  for (int k = 0; k < n; ++k) {
    const int32_t d = line[k];
    line[k] = in[k];
    out[k] = mul_shift<17>(static_cast<int64_t>(d) * gain);
  }
}

void delay_gains_scalar(int32_t* line, const int32_t* in, int32_t* out, int n, const int32_t* gains) {
  for (int k = 0; k < n; ++k) {
    const int32_t d = line[k];
    line[k] = in[k];
    out[k] = mul_shift<17>(static_cast<int64_t>(d) * gains[k]);
  }
}

// The two lanes interleaved: two independent recursions side by side. A
// second lane at its targets (a single controller's idle lane) only repeats
// its total.
void glide_scalar(DrcGlide* g, int32_t* total_a, int32_t* total_b, int n) {
  if (g->gain[1] == g->target[1] && g->denoise[1] == g->dnq[1]) {
    int32_t ga = g->gain[0], da = g->denoise[0];
    const int32_t tb = drc_total_gain(g->gain[1], g->denoise[1]);
    for (int k = 0; k < n; ++k) {
      ga = drc_smooth_gain(ga, g->target[0]);
      da = drc_glide_denoise(da, g->dnq[0]);
      total_a[k] = drc_total_gain(ga, da);
      total_b[k] = tb;
    }
    g->gain[0] = ga, g->denoise[0] = da;
    return;
  }
  int32_t ga = g->gain[0], gb = g->gain[1];
  int32_t da = g->denoise[0], db = g->denoise[1];
  const int32_t ta = g->target[0], tb = g->target[1];
  const int32_t qa = g->dnq[0], qb = g->dnq[1];
  for (int k = 0; k < n; ++k) {
    ga = drc_smooth_gain(ga, ta);
    gb = drc_smooth_gain(gb, tb);
    da = drc_glide_denoise(da, qa);
    db = drc_glide_denoise(db, qb);
    total_a[k] = drc_total_gain(ga, da);
    total_b[k] = drc_total_gain(gb, db);
  }
  g->gain[0] = ga, g->gain[1] = gb;
  g->denoise[0] = da, g->denoise[1] = db;
}

#if KAFX_AVX2_VARIANTS

// |x| of eight words is exact as an unsigned word (abs of INT32_MIN is the
// word 2^31), so the maximum is an unsigned maximum and the sum adds the
// words zero-extended to 64 bits (the even words masked, the odd ones
// shifted down).
KAFX_TARGET_AVX2 DrcBlockStats block_stats_avx2(const int32_t* x, int n) {
  const __m256i low = _mm256_set1_epi64x(0xffffffff);
  __m256i sum = _mm256_setzero_si256();
  __m256i top = _mm256_setzero_si256();
  int i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256i a = _mm256_abs_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(x + i)));
    top = _mm256_max_epu32(top, a);
    sum = _mm256_add_epi64(sum, _mm256_add_epi64(_mm256_and_si256(a, low), _mm256_srli_epi64(a, 32)));
  }
  alignas(32) uint64_t sums[4];
  alignas(32) uint32_t tops[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(sums), sum);
  _mm256_store_si256(reinterpret_cast<__m256i*>(tops), top);
  const DrcBlockStats rest = block_stats_scalar(x + i, n - i);
  int64_t s = rest.sum;
  int64_t m = rest.max_abs;
  for (int k = 0; k < 4; ++k) s += static_cast<int64_t>(sums[k]);
  for (int k = 0; k < 8; ++k) m = tops[k] > m ? tops[k] : m;
  return {s, m};
}

KAFX_TARGET_AVX2 void delay_gain_avx2(int32_t* line, const int32_t* in, int32_t* out, int n, int32_t gain) {
  const __m256i g = _mm256_set1_epi32(gain);
  int k = 0;
  for (; k + 8 <= n; k += 8) {
    auto* lp = reinterpret_cast<__m256i*>(line + k);
    const __m256i d = _mm256_loadu_si256(lp);
    _mm256_storeu_si256(lp, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + k)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + k), lanes::flush_m1(lanes::gain_shr_sat<17>(g, d)));
  }
  delay_gain_scalar(line + k, in + k, out + k, n - k, gain);
}

#endif  // KAFX_AVX2_VARIANTS

}  // namespace

const KernelVariants<DrcBlockStatsFn> drc_block_stats_variants = {
    "drc_block_stats", {block_stats_scalar, KAFX_AVX2_ONLY(block_stats_avx2), KAFX_NEON_ONLY(drc_block_stats_neon)}};

DrcBlockStats drc_block_stats(const int32_t* x, int n) {
  return run_chosen<drc_block_stats_variants>(x, n);
}

const KernelVariants<DrcDelayGainFn> drc_delay_gain_variants = {
    "drc_delay_gain", {delay_gain_scalar, KAFX_AVX2_ONLY(delay_gain_avx2), KAFX_NEON_ONLY(drc_delay_gain_neon)}};

void drc_delay_gain(int32_t* line, const int32_t* in, int32_t* out, int n, int32_t gain) {
  run_chosen<drc_delay_gain_variants>(line, in, out, n, gain);
}

const KernelVariants<DrcDelayGainsFn> drc_delay_gains_variants = {
    "drc_delay_gains", {delay_gains_scalar, nullptr, KAFX_NEON_ONLY(drc_delay_gains_neon)}};

void drc_delay_gains(int32_t* line, const int32_t* in, int32_t* out, int n, const int32_t* gains) {
  run_chosen<drc_delay_gains_variants>(line, in, out, n, gains);
}

const KernelVariants<DrcGlideFn> drc_glide_variants = {
    "drc_glide", {glide_scalar, nullptr, KAFX_NEON_ONLY(drc_glide_neon)}};

void drc_glide(DrcGlide* g, int32_t* total_a, int32_t* total_b, int n) {
  run_chosen<drc_glide_variants>(g, total_a, total_b, n);
}

}  // namespace kafx
