// Fixed-point noise suppressor: initialisation, policies, frame analysis,
// noise and feature estimation, Wiener gain and synthesis.
//
// Q domains: the windowed frame is normalised by norm_data left shifts before
// the FFT, so spectra are in Q(norm_data - stages) (qMagn). Noise estimates
// carry their own Q (q_noise), the stored previous noise Q(prev_q_noise + 11).
// SNRs are Q11, gains and probabilities Q14 (non-speech probabilities of the
// bins Q8), log spectra Q8. Unsigned 32-bit arithmetic wraps by design where
// the published fixed-point suppressor wraps; divisions by zero are avoided
// as it avoids them.
#include <atomic>
#include <cstring>
#include <type_traits>

#include "common/dispatch.h"
#include "common/fixed_point.h"
#include "kafx_proc/bp_ns.h"
#include "kafx_proc/spl.h"
#include "ns/nsx_internal.h"
#include "ns/nsx_tables.h"

#if KAFX_AVX2_VARIANTS
#include <immintrin.h>
#endif

namespace kafx::nsx {
namespace {

constexpr int kStartBand = 5;  // bins below this are left out of the pink-noise fit
constexpr int kModelUpdateShift = 9;  // feature thresholds every 512 blocks

// Feature-statistics constants.
constexpr uint32_t kFactorQ16 = 2621440;      // 40 in Q16
constexpr int16_t kFactorQ7 = 5120;           // 40 in Q7
constexpr int16_t kFactorQ7Startup = 1024;    // 8 in Q7
constexpr int16_t kWidthQ8 = 3;               // quantile density window
constexpr uint16_t kDdPrSnrQ11 = 2007;        // 0.98: decision-directed weight
constexpr uint16_t kOneMinusDdPrSnrQ11 = 41;
constexpr int32_t kSpectFlatTavgQ14 = 4915;   // 0.3
constexpr uint16_t kSpectDiffTavgQ8 = 77;     // 0.3
constexpr int32_t kPriorUpdateQ14 = 1638;     // 0.1
constexpr uint16_t kNoiseUpdateQ8 = 26;       // 0.1
constexpr uint16_t kOneMinusProbRangeQ8 = 205;  // 0.8
constexpr int kHistParEst = KEDO_NSX_HIST_PAR_EST;
constexpr int kBinSizeLrt = 10;
constexpr uint32_t kFactor1LrtDiff = 6;
constexpr uint32_t kFactor2FlatQ10 = 922;
constexpr uint32_t kThresPeakFlat = 24;
constexpr uint32_t kLimPeakSpaceFlatDiff = 4;
constexpr int kLimPeakWeightFlatDiff = 2;
constexpr int32_t kThresFluctLrt = 10240;
constexpr uint32_t kMaxFlatQ10 = 38912;
constexpr uint32_t kMinFlatQ10 = 4096;
constexpr uint32_t kMaxDiff = 100;
constexpr uint32_t kMinDiff = 16;
constexpr int kThresWeightFlatDiff = 154;
constexpr uint16_t kOneMinusGammaPauseQ8 = 13;  // 0.05
constexpr uint16_t kGammaNoiseTransAndSpeechQ8 = 3;  // 0.01

template <typename T>
constexpr T clamp_between(T hi, T v, T lo) {
  return v > hi ? hi : (v < lo ? lo : v);
}

int16_t abs16(int16_t v) { return v < 0 ? static_cast<int16_t>(-v) : v; }

// ---- The six replaceable routines (plain versions) ------------------------

void noise_estimation_c(NsxInst_t_* inst, unsigned short* magn, unsigned int* noise, short* q_noise);
void prepare_spectrum_c(NsxInst_t_* inst, short* freq_buf);
void synthesis_update_c(NsxInst_t_* inst, short* out_frame, short gain_factor);
void analysis_update_c(NsxInst_t_* inst, short* out, short* new_speech);
void denormalize_c(NsxInst_t_* inst, short* in, int factor);
void create_complex_buffer_c(NsxInst_t_* inst, short* in, short* out);

}  // namespace
}  // namespace kafx::nsx

// Constant-initialised: a process that never calls kedoNs_InitCore already
// sees the plain routines, and kedoNs_InitCore's re-installation is a no-op.
extern "C" {
kedoNsx_NoiseEstimation_t kedoNsx_NoiseEstimation = kafx::nsx::noise_estimation_c;
kedoNsx_PrepareSpectrum_t kedoNsx_PrepareSpectrum = kafx::nsx::prepare_spectrum_c;
kedoNsx_SynthesisUpdate_t kedoNsx_SynthesisUpdate = kafx::nsx::synthesis_update_c;
kedoNsx_AnalysisUpdate_t kedoNsx_AnalysisUpdate = kafx::nsx::analysis_update_c;
kedoNsx_Denormalize_t kedoNsx_Denormalize = kafx::nsx::denormalize_c;
kedoNsx_CreateComplexBuffer_t kedoNsx_CreateComplexBuffer = kafx::nsx::create_complex_buffer_c;
}

namespace kafx::nsx {
namespace {

// Routine pointers are read and written atomically (relaxed): every writer
// stores the same value, so ordering does not matter, only freedom from races.
template <typename F>
F load_routine(F& p) {
  return std::atomic_ref<F>(p).load(std::memory_order_relaxed);
}
// Calls the routine a pointer holds. While it holds the plain version, that
// version is called directly, so that the compiler can inline it.
template <auto Plain, typename F, typename... Args>
[[gnu::always_inline]] inline void call_routine(F& p, Args... args) {
  const F f = load_routine(p);
  if (f == static_cast<F>(Plain)) {
    Plain(args...);
  } else {
    f(args...);
  }
}
template <typename F>
void install_routine(F& p, F value) {
  std::atomic_ref<F> ref(p);
  if (ref.load(std::memory_order_relaxed) != value) ref.store(value, std::memory_order_relaxed);
}

// Log quantile update of the three estimators and the linear quantile in
// Q(q_noise) of the estimator that just finished (offset).
void update_noise_estimate(NsxInst_t_* inst, int offset) {
  constexpr int32_t kExp2Const = 11819;  // log2(e) in Q13
  int16_t max_log = kedoSpl_MaxValueW16(inst->noise_est_log_quantile + offset, inst->magn_len);
  inst->q_noise = 14 - mul_16_16_rsft_round(kExp2Const, max_log, 21);
  for (int i = 0; i < inst->magn_len; i++) {
    int32_t e = kExp2Const * inst->noise_est_log_quantile[offset + i];  // log2 in Q21
    int32_t mant = 0x00200000 | (e & 0x001FFFFF);
    int shift = static_cast<int16_t>(e >> 21) - 21 + inst->q_noise;
    mant = shift < 0 ? mant >> -shift : wshl(mant, shift);
    inst->noise_est_quantile[i] = sat_w32_to_w16(mant);
  }
}

// One estimator's quantile and density update over the bins. The quantile
// rises by (step + 2) / 4 where the log magnitude lies above it, else falls
// by ((step + 1) / 2) * 3 / 2, held at logval; the density is renewed where
// the log magnitude lies within kWidthQ8 of the new quantile. Every bin is
// computed with selects instead of branches, eight bins per step in 32-bit
// lanes:
// - the step is delta count_div / 2^14 with delta = 40 / 2^(msb(density) - 9)
//   in Q7 for densities above 512 (2621440 >> msb: 5120 for 513 ... 1023,
//   halving at every further power of two down to 160 at 16384 and above),
//   else small_delta. delta <= 5120 and count_div <= 32767 keep the step at
//   most 10239, so divisions of these non-negative values are shifts and
//   the sums before the 16-bit wraps below stay far inside 32 bits;
// - |lmagn - quant| is taken in 16 bits, where -32768 stays -32768 (below
//   the width, as in the scalar rule).
typedef int32_t lanes8 __attribute__((vector_size(32)));
typedef int16_t halves8 __attribute__((vector_size(16)));

[[gnu::always_inline]] inline void quantile_update8(int16_t* quant, int16_t* density, const int16_t* lmagn,
                                                    const QuantileStep& k) {
  halves8 hq, hd, hl;
  std::memcpy(&hq, quant, sizeof hq);
  std::memcpy(&hd, density, sizeof hd);
  std::memcpy(&hl, lmagn, sizeof hl);
  const lanes8 q = __builtin_convertvector(hq, lanes8);
  const lanes8 d = __builtin_convertvector(hd, lanes8);
  const lanes8 lm = __builtin_convertvector(hl, lanes8);
  const lanes8 zero = {};
  // Selects as masks: every comparison gives -1 or 0 per lane. Each halving
  // of big (always even until 160) subtracts its half where the mask is set.
  lanes8 big = zero + static_cast<int32_t>(kFactorQ16 >> 9);  // 5120
  big -= (big >> 1) & (d >= 1024);
  big -= (big >> 1) & (d >= 2048);
  big -= (big >> 1) & (d >= 4096);
  big -= (big >> 1) & (d >= 8192);
  big -= (big >> 1) & (d >= 16384);
  const lanes8 above = d > 512;
  const lanes8 delta = (above & big) | (~above & k.small_delta);
  const lanes8 step = (delta * k.count_div) >> 14;
  const lanes8 up = __builtin_convertvector(__builtin_convertvector(q + ((step + 2) >> 2), halves8), lanes8);
  const lanes8 fall = __builtin_convertvector(__builtin_convertvector(q - ((((step + 1) >> 1) * 3) >> 1), halves8),
                                              lanes8);
  const lanes8 held = fall < k.logval;
  const lanes8 down = (held & k.logval) | (~held & fall);
  const lanes8 rises = lm > q;
  const lanes8 nq = (rises & up) | (~rises & down);
  // |lmagn - quant| in 16 bits: -32768 negated wraps to itself.
  const lanes8 diff = __builtin_convertvector(__builtin_convertvector(lm - nq, halves8), lanes8);
  const lanes8 neg = diff < 0;
  const lanes8 dist = __builtin_convertvector(__builtin_convertvector((neg & -diff) | (~neg & diff), halves8), lanes8);
  const lanes8 renewed = ((d * k.count_prod + 16384) >> 15) + k.density_rise;
  const lanes8 near = dist < kWidthQ8;
  const lanes8 nd = (near & renewed) | (~near & d);
  hq = __builtin_convertvector(nq, halves8);
  hd = __builtin_convertvector(nd, halves8);
  std::memcpy(quant, &hq, sizeof hq);
  std::memcpy(density, &hd, sizeof hd);
}

[[gnu::always_inline]] inline void quantile_update_body(int16_t* quant, int16_t* density, const int16_t* lmagn,
                                                        const QuantileStep* k, int len) {
  int i = 0;
  for (; i + 8 <= len; i += 8) quantile_update8(quant + i, density + i, lmagn + i, *k);
  if (i < len) {
    // The last bins through a padded copy.
    int16_t q[8] = {}, d[8] = {}, l[8] = {};
    const size_t rest = sizeof(int16_t) * static_cast<size_t>(len - i);
    std::memcpy(q, quant + i, rest);
    std::memcpy(d, density + i, rest);
    std::memcpy(l, lmagn + i, rest);
    quantile_update8(q, d, l, *k);
    std::memcpy(quant + i, q, rest);
    std::memcpy(density + i, d, rest);
  }
}

void quantile_update_baseline(int16_t* quant, int16_t* density, const int16_t* lmagn, const QuantileStep* k,
                              int len) {
  quantile_update_body(quant, density, lmagn, k, len);
}

#if KAFX_AVX2_VARIANTS
// AVX2 build: sixteen bins per step in 16-bit lanes. Every quantity of the
// rule fits 16 bits (the step at most 10239, ((step + 1) / 2) * 3 at most
// 15360), the 16-bit wraps are the lanes' own, and the two products are
// 16-bit multiplies:
// - step = delta count_div / 2^14 = high half of (4 delta) count_div, since
//   4 delta <= 20480 and both factors are non-negative;
// - round(density count_prod / 2^15) is the rounding high-half multiply
//   ((a b / 2^14) + 1) / 2, which equals (a b + 2^14) / 2^15 (the one
//   overflowing product, (-32768)^2, gives -32768 there and after the
//   16-bit wrap of the scalar rule alike).
KAFX_TARGET_AVX2 void quantile_update16(int16_t* quant, int16_t* density, const int16_t* lmagn,
                                        const QuantileStep& k) {
  const __m256i q = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(quant));
  const __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(density));
  const __m256i lm = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(lmagn));
  __m256i big = _mm256_set1_epi16(static_cast<int16_t>(kFactorQ16 >> 9));
  for (int16_t threshold : {1023, 2047, 4095, 8191, 16383}) {
    const __m256i at_least = _mm256_cmpgt_epi16(d, _mm256_set1_epi16(threshold));
    big = _mm256_sub_epi16(big, _mm256_and_si256(_mm256_srli_epi16(big, 1), at_least));
  }
  const __m256i above = _mm256_cmpgt_epi16(d, _mm256_set1_epi16(512));
  const __m256i delta = _mm256_blendv_epi8(_mm256_set1_epi16(static_cast<int16_t>(k.small_delta)), big, above);
  const __m256i step =
      _mm256_mulhi_epi16(_mm256_slli_epi16(delta, 2), _mm256_set1_epi16(static_cast<int16_t>(k.count_div)));
  const __m256i up = _mm256_add_epi16(q, _mm256_srli_epi16(_mm256_add_epi16(step, _mm256_set1_epi16(2)), 2));
  const __m256i half = _mm256_srli_epi16(_mm256_add_epi16(step, _mm256_set1_epi16(1)), 1);
  const __m256i fall = _mm256_sub_epi16(q, _mm256_srli_epi16(_mm256_add_epi16(half, _mm256_slli_epi16(half, 1)), 1));
  const __m256i down = _mm256_max_epi16(fall, _mm256_set1_epi16(static_cast<int16_t>(k.logval)));
  const __m256i nq = _mm256_blendv_epi8(down, up, _mm256_cmpgt_epi16(lm, q));
  const __m256i dist = _mm256_abs_epi16(_mm256_sub_epi16(lm, nq));
  const __m256i near = _mm256_cmpgt_epi16(_mm256_set1_epi16(kWidthQ8), dist);
  const __m256i renewed = _mm256_add_epi16(_mm256_mulhrs_epi16(d, _mm256_set1_epi16(static_cast<int16_t>(k.count_prod))),
                                           _mm256_set1_epi16(static_cast<int16_t>(k.density_rise)));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(quant), nq);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(density), _mm256_blendv_epi8(d, renewed, near));
}

KAFX_TARGET_AVX2 void quantile_update_avx2(int16_t* quant, int16_t* density, const int16_t* lmagn,
                                           const QuantileStep* k, int len) {
  int i = 0;
  for (; i + 16 <= len; i += 16) quantile_update16(quant + i, density + i, lmagn + i, *k);
  if (i < len) {
    // The last bins through a padded copy.
    int16_t q[16] = {}, d[16] = {}, l[16] = {};
    const size_t rest = sizeof(int16_t) * static_cast<size_t>(len - i);
    std::memcpy(q, quant + i, rest);
    std::memcpy(d, density + i, rest);
    std::memcpy(l, lmagn + i, rest);
    quantile_update16(q, d, l, *k);
    std::memcpy(quant + i, q, rest);
    std::memcpy(density + i, d, rest);
  }
}
#endif

}  // namespace

const KernelVariants<QuantileUpdate> quantile_update_variants = {
    "quantile_update", {quantile_update_baseline, KAFX_AVX2_ONLY(quantile_update_avx2)}};

namespace {

void noise_estimation_c(NsxInst_t_* inst, unsigned short* magn, unsigned int* noise, short* q_noise) {
  constexpr int32_t kLog2Const = 22713;     // ln 2 in Q15
  constexpr int32_t kWidthFactor = 21845;   // density update, Q15
  int16_t lmagn[KEDO_NSX_HALF_ANAL_BLOCKL];

  // Log of the frame's normalisation, so that lmagn is the true log spectrum in Q8.
  int tabind = inst->stages - inst->norm_data;
  int16_t logval = tabind < 0 ? static_cast<int16_t>(-kedoNsx_kLogTable[-tabind]) : kedoNsx_kLogTable[tabind];
  for (int i = 0; i < inst->magn_len; i++) {
    if (magn[i] != 0) {
      int16_t l2 = log2_q8(magn[i]);
      lmagn[i] = static_cast<int16_t>(((l2 * kLog2Const) >> 15) + logval);
    } else {
      lmagn[i] = logval;
    }
  }

  int offset = 0;
  for (int s = 0; s < KEDO_NSX_SIMULT; s++) {
    offset = s * inst->magn_len;
    int16_t counter = inst->noise_est_counter[s];
    int16_t count_div = kedoNsx_kCounterDiv[counter];
    int16_t count_prod = static_cast<int16_t>(counter * count_div);
    const QuantileStep k{logval, inst->block_index < kEndStartupLong ? kFactorQ7Startup : kFactorQ7, count_div,
                         count_prod, static_cast<int16_t>(mul_16_16_rsft_round(kWidthFactor, count_div, 15))};
    quantile_update(inst->noise_est_log_quantile + offset, inst->noise_est_density + offset, lmagn, &k,
                    inst->magn_len);
    if (counter >= kEndStartupLong) {
      inst->noise_est_counter[s] = 0;
      if (inst->block_index >= kEndStartupLong) update_noise_estimate(inst, offset);
    }
    inst->noise_est_counter[s]++;
  }
  if (inst->block_index < kEndStartupLong) update_noise_estimate(inst, offset);

  for (int i = 0; i < inst->magn_len; i++) noise[i] = static_cast<uint32_t>(inst->noise_est_quantile[i]);
  *q_noise = static_cast<short>(inst->q_noise);
}

void prepare_spectrum_c(NsxInst_t_* inst, short* freq_buf) {
  for (int i = 0; i < inst->magn_len; i++) {
    int16_t g = static_cast<int16_t>(inst->noise_sup_filter[i]);
    inst->real[i] = static_cast<int16_t>((inst->real[i] * g) >> 14);
    inst->imag[i] = static_cast<int16_t>((inst->imag[i] * g) >> 14);
  }
  // Conjugate-symmetric spectrum of a real signal, interleaved re/im.
  int n2 = inst->ana_len * 2;
  freq_buf[0] = inst->real[0];
  freq_buf[1] = static_cast<int16_t>(-inst->imag[0]);
  for (int i = 1, j = 2; i < inst->ana_len2; i++, j += 2) {
    freq_buf[j] = inst->real[i];
    freq_buf[j + 1] = static_cast<int16_t>(-inst->imag[i]);
    freq_buf[n2 - j] = inst->real[i];
    freq_buf[n2 - j + 1] = inst->imag[i];
  }
  freq_buf[inst->ana_len] = inst->real[inst->ana_len2];
  freq_buf[inst->ana_len + 1] = static_cast<int16_t>(-inst->imag[inst->ana_len2]);
}

// Runs body(n) with the analysis length as a compile-time constant for the
// two lengths the suppressor uses (256 and 128), so that the loops over the
// block have fixed trip counts and the compiler can run them in vector lanes;
// any other length takes the same body with a run-time count.
template <typename Body>
[[gnu::always_inline]] inline void for_analysis_length(int len, Body body) {
  if (len == 256) {
    body(std::integral_constant<int, 256>{});
  } else if (len == 128) {
    body(std::integral_constant<int, 128>{});
  } else {
    body(len);
  }
}

// The block loops read and write distinct arrays (the instance's buffers,
// the window table and the caller's block), hence the restrict qualifiers;
// a caller's block may be one of the instance's buffers only if it is the
// very array the loop reads at the same index.
template <typename Len>
void synthesis_loop(const int16_t* __restrict window, const int16_t* __restrict real,
                    int16_t* __restrict synth, int16_t gain_factor, Len len) {
  for (int i = 0; i < len; i++) {
    int16_t w = static_cast<int16_t>(mul_16_16_rsft_round(window[i], real[i], 14));
    int32_t g = mul_16_16_rsft_round(w, gain_factor, 13);
    synth[i] = sat_w32_to_w16(synth[i] + sat_w32_to_w16(g));
  }
}

template <typename Len>
void window_loop(const int16_t* __restrict window, const int16_t* __restrict buf, int16_t* __restrict out,
                 Len len) {
  for (int i = 0; i < len; i++) out[i] = static_cast<int16_t>(mul_16_16_rsft_round(window[i], buf[i], 14));
}

// Real parts of an interleaved complex block shifted by shift (either sign), saturated.
template <typename Len>
void denormalize_loop(const int16_t* __restrict in, int16_t* __restrict real, int shift, Len len) {
  if (shift >= 0) {
    for (int i = 0; i < len; i++) real[i] = sat_w32_to_w16(wshl(in[2 * i], shift));
  } else {
    for (int i = 0; i < len; i++) real[i] = sat_w32_to_w16(in[2 * i] >> -shift);
  }
}

template <typename Len>
void complex_loop(const int16_t* __restrict in, int16_t* __restrict out, int shift, Len len) {
  for (int i = 0; i < len; i++) {
    out[2 * i] = static_cast<int16_t>(wshl(in[i], shift));
    out[2 * i + 1] = 0;
  }
}

void synthesis_block_baseline(const int16_t* window, const int16_t* real, int16_t* synth, int gain_factor,
                              int len) {
  for_analysis_length(len, [&](auto n) {
    synthesis_loop(window, real, synth, static_cast<int16_t>(gain_factor), n);
  });
}

#if KAFX_AVX2_VARIANTS
// AVX2 build: sixteen points per step. Each product gets its rounding term
// from a 16-bit multiply-add of (x, 1) with (y, round): window real + 8192
// and w gain + 4096 in 32 bits, exactly. The windowed value keeps the low
// 16 bits of its shifted sum (as the low half of a (w, 1) pair), the scaled one is
// saturated by the signed pack, and the sum with synth by the saturating
// 16-bit add. Interleaving with unpack and packing back keeps the order.
KAFX_TARGET_AVX2 void synthesis_block_avx2(const int16_t* window, const int16_t* real, int16_t* synth,
                                           int gain_factor, int len) {
  if (len % 16 != 0) {
    synthesis_block_baseline(window, real, synth, gain_factor, len);
    return;
  }
  const __m256i one = _mm256_set1_epi16(1);
  const __m256i half14 = _mm256_set1_epi16(8192);
  const __m256i gain = _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint16_t>(gain_factor)) | (4096 << 16));
  for (int i = 0; i < len; i += 16) {
    const __m256i w = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(window + i));
    const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(real + i));
    __m256i lo = _mm256_madd_epi16(_mm256_unpacklo_epi16(w, one), _mm256_unpacklo_epi16(x, half14));
    __m256i hi = _mm256_madd_epi16(_mm256_unpackhi_epi16(w, one), _mm256_unpackhi_epi16(x, half14));
    // (w, 1) pairs: the low 16 bits of sum >> 14 in the low half, 1 above.
    const __m256i low16 = _mm256_set1_epi32(0xFFFF), one_above = _mm256_set1_epi32(1 << 16);
    lo = _mm256_madd_epi16(_mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(lo, 14), low16), one_above), gain);
    hi = _mm256_madd_epi16(_mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(hi, 14), low16), one_above), gain);
    const __m256i g = _mm256_packs_epi32(_mm256_srai_epi32(lo, 13), _mm256_srai_epi32(hi, 13));
    const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(synth + i));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(synth + i), _mm256_adds_epi16(s, g));
  }
}
#endif

}  // namespace

const KernelVariants<SynthesisBlock> synthesis_block_variants = {
    "synthesis_block", {synthesis_block_baseline, KAFX_AVX2_ONLY(synthesis_block_avx2)}};

namespace {

void synthesis_update_c(NsxInst_t_* inst, short* out_frame, short gain_factor) {
  synthesis_block(inst->window, inst->real, inst->synthesis_buffer, gain_factor, inst->ana_len);
  int keep = inst->ana_len - inst->block_len;
  std::memcpy(out_frame, inst->synthesis_buffer, sizeof(int16_t) * inst->block_len);
  std::memmove(inst->synthesis_buffer, inst->synthesis_buffer + inst->block_len, sizeof(int16_t) * keep);
  std::memset(inst->synthesis_buffer + keep, 0, sizeof(int16_t) * inst->block_len);
}

void analysis_update_c(NsxInst_t_* inst, short* out, short* new_speech) {
  int keep = inst->ana_len - inst->block_len;
  std::memmove(inst->analysis_buffer, inst->analysis_buffer + inst->block_len, sizeof(int16_t) * keep);
  std::memcpy(inst->analysis_buffer + keep, new_speech, sizeof(int16_t) * inst->block_len);
  for_analysis_length(inst->ana_len, [&](auto len) { window_loop(inst->window, inst->analysis_buffer, out, len); });
}

void denormalize_c(NsxInst_t_* inst, short* in, int factor) {
  for_analysis_length(inst->ana_len,
                      [&](auto len) { denormalize_loop(in, inst->real, factor - inst->norm_data, len); });
}

void create_complex_buffer_c(NsxInst_t_* inst, short* in, short* out) {
  for_analysis_length(inst->ana_len, [&](auto len) { complex_loop(in, out, inst->norm_data, len); });
}

// ---- Feature extraction ---------------------------------------------------

// Histogram update (flag 0) or, every model_update blocks, the thresholds and
// weights of the three features from the histograms (flag 1).
void feature_parameter_extraction(NsxInst_t_* inst, bool flag) {
  if (!flag) {
    uint32_t idx = static_cast<uint32_t>(inst->feature_log_lrt);
    if (idx < static_cast<uint32_t>(kHistParEst)) inst->hist_lrt[idx]++;
    idx = (inst->feature_spec_flat * 5) >> 8;
    if (idx < static_cast<uint32_t>(kHistParEst)) inst->hist_spec_flat[idx]++;
    idx = kHistParEst;
    if (inst->time_avg_magn_energy > 0) {
      idx = ((inst->feature_spec_diff * 5) >> inst->stages) / inst->time_avg_magn_energy;
    }
    if (idx < static_cast<uint32_t>(kHistParEst)) inst->hist_spec_diff[idx]++;
    return;
  }

  // LRT: mean and fluctuation over the histogram (bin centres 2 i + 1).
  bool use_spec_diff = true;
  int32_t avg_hist = 0, avg_square = 0;
  int16_t num_hist = 0;
  int i = 0;
  for (; i < kBinSizeLrt; i++) {
    int32_t j = 2 * i + 1;
    int32_t t = inst->hist_lrt[i] * j;
    avg_hist += t;
    num_hist = static_cast<int16_t>(num_hist + inst->hist_lrt[i]);
    avg_square += t * j;
  }
  int32_t avg_compl = avg_hist;
  for (; i < kHistParEst; i++) {
    int32_t j = 2 * i + 1;
    int32_t t = inst->hist_lrt[i] * j;
    avg_compl = wrap_add(avg_compl, t);
    avg_square = wrap_add(avg_square, wmul(t, j));
  }
  int32_t fluct = wrap_sub(wmul(avg_square, num_hist), wmul(avg_hist, avg_compl));
  int32_t thres_fluct = kThresFluctLrt * num_hist;
  uint32_t t_u = kFactor1LrtDiff * static_cast<uint32_t>(avg_hist);
  if (fluct < thres_fluct || num_hist == 0 || t_u > static_cast<uint32_t>(100 * num_hist)) {
    inst->threshold_log_lrt = inst->max_lrt;  // very low fluctuation: likely noise
  } else {
    int32_t t = static_cast<int32_t>(((t_u << (9 + inst->stages)) / static_cast<uint32_t>(num_hist)) / 25);
    inst->threshold_log_lrt = clamp_between(inst->max_lrt, t, inst->min_lrt);
  }
  if (fluct < thres_fluct) use_spec_diff = false;

  // The two main peaks of a histogram (positions 2 i + 1), merged when close.
  struct Peak {
    uint32_t pos;
    int weight;
  };
  auto find_peak = [](const int16_t* hist) {
    int max1 = 0, max2 = 0;
    Peak p1{0, 0}, p2{0, 0};
    for (int k = 0; k < kHistParEst; k++) {
      if (hist[k] > max1) {
        max2 = max1;
        p2 = p1;
        max1 = hist[k];
        p1 = {static_cast<uint32_t>(2 * k + 1), hist[k]};
      } else if (hist[k] > max2) {
        max2 = hist[k];
        p2 = {static_cast<uint32_t>(2 * k + 1), hist[k]};
      }
    }
    if (p1.pos - p2.pos < kLimPeakSpaceFlatDiff && p2.weight * kLimPeakWeightFlatDiff > p1.weight) {
      p1.weight += p2.weight;
      p1.pos = (p1.pos + p2.pos) >> 1;
    }
    return p1;
  };

  bool use_spec_flat = true;
  Peak flat = find_peak(inst->hist_spec_flat);
  if (flat.weight < kThresWeightFlatDiff || flat.pos < kThresPeakFlat) {
    use_spec_flat = false;
  } else {
    inst->threshold_spec_flat = clamp_between(kMaxFlatQ10, kFactor2FlatQ10 * flat.pos, kMinFlatQ10);
  }
  if (use_spec_diff) {
    Peak diff = find_peak(inst->hist_spec_diff);
    inst->threshold_spec_diff = clamp_between(kMaxDiff, kFactor1LrtDiff * diff.pos, kMinDiff);
    if (diff.weight < kThresWeightFlatDiff) use_spec_diff = false;
  }

  int sum = 6 / (1 + static_cast<int>(use_spec_flat) + static_cast<int>(use_spec_diff));
  inst->weight_log_lrt = static_cast<int16_t>(sum);
  inst->weight_spec_flat = static_cast<int16_t>(use_spec_flat ? sum : 0);
  inst->weight_spec_diff = static_cast<int16_t>(use_spec_diff ? sum : 0);

  std::memset(inst->hist_lrt, 0, sizeof(inst->hist_lrt));
  std::memset(inst->hist_spec_diff, 0, sizeof(inst->hist_spec_diff));
  std::memset(inst->hist_spec_flat, 0, sizeof(inst->hist_spec_flat));
}

// Spectral flatness (geometric over arithmetic mean of bins 1..), Q10, time-averaged.
void compute_spectral_flatness(NsxInst_t_* inst, const uint16_t* magn) {
  uint32_t num = 0;
  uint32_t den = inst->sum_magn - magn[0];
  for (int i = 1; i < inst->magn_len; i++) {
    if (magn[i] == 0) {
      // A zero bin: decay the feature instead.
      uint32_t t = inst->feature_spec_flat * static_cast<uint32_t>(kSpectFlatTavgQ14);
      inst->feature_spec_flat -= t >> 14;
      return;
    }
    num += static_cast<uint32_t>(log2_q8(magn[i]));
  }
  int32_t log_den = log2_q8(den);
  int32_t log_flat = static_cast<int32_t>(num);
  log_flat += wshl(inst->stages - 1, inst->stages + 7);
  log_flat -= wshl(log_den, inst->stages - 1);
  log_flat = wshl(log_flat, 10 - inst->stages);  // Q17
  int32_t mag = log_flat < 0 ? -log_flat : log_flat;
  int32_t t = 0x00020000 | (mag & 0x0001FFFF);
  int int_part = 7 - (log_flat >> 17);  // Q10 output
  int32_t cur = int_part > 0 ? t >> int_part : wshl(t, -int_part);
  int32_t d = wmul(cur - static_cast<int32_t>(inst->feature_spec_flat), kSpectFlatTavgQ14);
  inst->feature_spec_flat += static_cast<uint32_t>(d >> 14);
}

// Spectral difference to the conservative noise template avg_magn_pause:
// var(magn) - cov(magn, pause)^2 / var(pause), time-averaged.
void compute_spectral_difference(NsxInst_t_* inst, const uint16_t* magn) {
  int32_t avg_pause = 0, max_pause = 0, min_pause = inst->avg_magn_pause[0];
  for (int i = 0; i < inst->magn_len; i++) {
    avg_pause += inst->avg_magn_pause[i];
    if (inst->avg_magn_pause[i] > max_pause) max_pause = inst->avg_magn_pause[i];
    if (inst->avg_magn_pause[i] < min_pause) min_pause = inst->avg_magn_pause[i];
  }
  avg_pause >>= inst->stages - 1;  // division by the bin count, as shifts
  int32_t avg_magn = static_cast<int32_t>(inst->sum_magn >> (inst->stages - 1));
  int32_t dev = max_pause - avg_pause > avg_pause - min_pause ? max_pause - avg_pause : avg_pause - min_pause;
  int n_shifts = 10 + inst->stages - norm_w32(dev);
  if (n_shifts < 0) n_shifts = 0;

  uint32_t var_magn = 0, var_pause = 0;
  int32_t cov = 0;
  for (int i = 0; i < inst->magn_len; i++) {
    int16_t dm = static_cast<int16_t>(static_cast<int32_t>(magn[i]) - avg_magn);
    int32_t dp = inst->avg_magn_pause[i] - avg_pause;
    var_magn += static_cast<uint32_t>(dm * dm);
    cov = wrap_add(cov, wmul(dp, dm));
    int32_t dps = dp >> n_shifts;
    var_pause += static_cast<uint32_t>(wmul(dps, dps));
  }
  inst->cur_avg_magn_energy += shr_u32(inst->magn_energy, 2 * inst->norm_data + inst->stages - 1);

  uint32_t avg_diff = var_magn;
  if (var_pause != 0 && cov != 0) {
    uint32_t c = static_cast<uint32_t>(cov < 0 ? -static_cast<int64_t>(cov) : cov);
    int norm = norm_u32(c) - 16;
    c = norm > 0 ? c << norm : c >> -norm;
    uint32_t c2 = c * c;
    n_shifts += norm;
    n_shifts <<= 1;
    if (n_shifts < 0) {
      var_pause >>= -n_shifts;
      n_shifts = 0;
    }
    if (var_pause > 0) {
      uint32_t q = shr_u32(c2 / var_pause, n_shifts);
      avg_diff -= avg_diff < q ? avg_diff : q;
    } else {
      avg_diff = 0;
    }
  }
  uint32_t cur = shr_u32(avg_diff, 2 * inst->norm_data);
  if (inst->feature_spec_diff > cur) {
    inst->feature_spec_diff -= ((inst->feature_spec_diff - cur) * kSpectDiffTavgQ8) >> 8;
  } else {
    inst->feature_spec_diff += ((cur - inst->feature_spec_diff) * kSpectDiffTavgQ8) >> 8;
  }
}

// Pink-noise model value 2^(numerator - exponent * log2(bin)) in Q(min_norm - stages).
void parametric_noise_estimate(const NsxInst_t_* inst, int16_t exp_avg, int32_t num_avg, int bin,
                               uint32_t* estimate, uint32_t* estimate_avg) {
  int32_t t = num_avg - ((exp_avg * kLogIndex[bin]) >> 15);  // Q11
  t += (inst->min_norm - inst->stages) * 2048;
  if (t <= 0) return;
  const int int_part = limit_shift(t >> 11);
  int16_t frac = static_cast<int16_t>(t & 0x7FF);
  // 2^frac - 1 by two linear pieces, Q11.
  int32_t b = (frac >> 10) ? 2048 - (((2048 - frac) * 1244) >> 10) : (frac * 804) >> 10;
  b = shift_w32(b, int_part - 11);
  *estimate_avg = (1u << int_part) + static_cast<uint32_t>(b);
  *estimate = *estimate_avg * static_cast<uint32_t>(inst->block_index + 1);
}

}  // namespace

int16_t log2_q8(uint32_t v) {
  int zeros = norm_u32(v);
  int frac = static_cast<int>(((v << zeros) & 0x7FFFFFFFu) >> 23);
  return static_cast<int16_t>(((31 - zeros) << 8) + kLogTableFrac[frac]);
}

void speech_noise_prob(NsxInst_t_* inst, uint16_t* non_speech_prob, const uint32_t* prior_snr,
                       const uint32_t* post_snr, bool published_prior) {
  // Likelihood ratio per bin (Bessel-free approximation), time-averaged in Q12.
  int32_t lrt_sum = 0;
  for (int i = 0; i < inst->magn_len; i++) {
    int32_t bessel = static_cast<int32_t>(post_snr[i]);  // Q11
    int norm = norm_u32(post_snr[i]);
    uint32_t num = post_snr[i] << norm;
    uint32_t den = norm > 10 ? prior_snr[i] << (norm - 11) : prior_snr[i] >> (11 - norm);
    if (den > 0) {
      bessel = wrap_sub(bessel, static_cast<int32_t>(num / den));
    } else {
      bessel = 0;
    }
    // ln(prior_snr) from a quadratic fit of log2's mantissa.
    int zeros = norm_u32(prior_snr[i]);
    int32_t frac = static_cast<int32_t>(((prior_snr[i] << zeros) & 0x7FFFFFFFu) >> 19);
    int32_t t = (frac * frac * -43) >> 19;
    t += (static_cast<int16_t>(frac) * 5412) >> 12;
    frac = t + 37;
    t = ((31 - zeros) << 12) + frac - (11 << 12);  // log2 in Q12
    int32_t log_tmp = (t * 178) >> 8;
    const int32_t half = static_cast<int32_t>((int64_t{log_tmp} + inst->log_lrt_time_avg[i]) / 2);
    inst->log_lrt_time_avg[i] = wrap_add(inst->log_lrt_time_avg[i], wrap_sub(bessel, half));
    lrt_sum = wrap_add(lrt_sum, inst->log_lrt_time_avg[i]);
  }
  inst->feature_log_lrt = wmul(lrt_sum, kBinSizeLrt) >> (inst->stages + 11);

  if (published_prior) {
    // Indicator of each feature against its threshold, weighted into the prior.
    auto indicator = [](uint32_t margin_q14, bool above, bool round) -> int16_t {
      if (margin_q14 >= (16u << 14)) return above ? 16384 : 0;
      int idx = static_cast<int>(margin_q14 >> 14);
      int16_t v = kIndicatorTable[idx];
      int16_t d = static_cast<int16_t>(kIndicatorTable[idx + 1] - kIndicatorTable[idx]);
      int16_t f = static_cast<int16_t>(margin_q14 & 0x3FFF);
      v = static_cast<int16_t>(v + (round ? mul_16_16_rsft_round(d, f, 14) : (d * f) >> 14));
      return static_cast<int16_t>(above ? 8192 + v : 8192 - v);
    };
    int32_t m = lrt_sum - inst->threshold_log_lrt;
    int n = 7 - inst->stages;
    bool above = true;
    if (m < 0) {
      above = false;
      m = -m;
      n++;
    }
    m = shift_w32(m, n);
    int16_t ind = (m >= 0) ? indicator(static_cast<uint32_t>(m), above, false) : (above ? 16384 : 0);
    int32_t ind_prior = inst->weight_log_lrt * ind;

    if (inst->weight_spec_flat) {
      uint32_t f = inst->feature_spec_flat * 400u;
      uint32_t d = inst->threshold_spec_flat - f;
      int sh = 4;
      bool up = true;
      if (inst->threshold_spec_flat < f) {
        up = false;
        d = f - inst->threshold_spec_flat;
        sh++;
      }
      uint32_t margin = div_u32_u16(d << sh, 25);
      ind_prior += inst->weight_spec_flat * indicator(margin, up, false);
    }
    if (inst->weight_spec_diff) {
      uint32_t r = 0;
      if (inst->feature_spec_diff) {
        int nt = norm_u32(inst->feature_spec_diff);
        if (nt > 20 - inst->stages) nt = 20 - inst->stages;
        r = inst->feature_spec_diff << nt;
        uint32_t e = inst->time_avg_magn_energy >> (20 - inst->stages - nt);
        r = e > 0 ? r / e : 0x7FFFFFFFu;
      }
      uint32_t th = (inst->threshold_spec_diff << 17) / 25;
      uint32_t d = r - th;
      int sh = 1;
      bool up = true;
      if (d & 0x80000000u) {
        up = false;
        d = th - r;
        sh--;
      }
      ind_prior += inst->weight_spec_diff * indicator(d >> sh, up, true);
    }
    int16_t target = div_w32_w16_res16(98307 - ind_prior, 6);  // Q14
    int16_t diff = static_cast<int16_t>(target - inst->prior_non_speech_prob);
    inst->prior_non_speech_prob =
        static_cast<int16_t>(inst->prior_non_speech_prob + static_cast<int16_t>((kPriorUpdateQ14 * diff) >> 14));
  }

  std::memset(non_speech_prob, 0, sizeof(uint16_t) * inst->magn_len);
  const int16_t prior = inst->prior_non_speech_prob;
  if (prior <= 0) return;  // a zero prior: every bin counts as speech
  for (int i = 0; i < inst->magn_len; i++) {
    if (inst->log_lrt_time_avg[i] >= 65300) continue;
    // Inverse likelihood ratio e^-lrt as 2^(-lrt log2 e), Q8.
    int32_t t = wmul(inst->log_lrt_time_avg[i], 23637) >> 14;  // Q12
    int16_t int_part = static_cast<int16_t>(t >> 12);
    if (int_part < -8) int_part = -8;
    int_part = static_cast<int16_t>(limit_shift(8 + int_part) - 8);  // 1 << (8 + int_part) below
    int16_t frac = static_cast<int16_t>(t & 0xFFF);
    int32_t t2 = (frac * frac * 44) >> 19;
    t2 += (frac * 84) >> 7;
    int32_t inv_lrt = wrap_add(wshl(1, 8 + int_part), shift_w32(t2, int_part - 4));
    int norm1 = norm_w32(inv_lrt);
    int norm2 = norm_w16(static_cast<int16_t>(16384 - prior));
    if (norm1 + norm2 < 7) continue;
    if (norm1 + norm2 < 15) {
      inv_lrt >>= 15 - norm2 - norm1;
      inv_lrt = shift_w32(wmul(inv_lrt, 16384 - prior), 7 - norm1 - norm2);
    } else {
      inv_lrt = wmul(inv_lrt, 16384 - prior) >> 8;  // Q14
    }
    int32_t num = static_cast<int32_t>(prior) << 8;  // Q22
    int32_t den = wrap_add(prior, inv_lrt);
    if (den != 0) non_speech_prob[i] = static_cast<uint16_t>(num / den);
  }
}

}  // namespace kafx::nsx

// ---- Frame analysis and synthesis -------------------------------------------

namespace kafx::nsx {
namespace {

// Analysis of one block into magn (Q(norm_data - stages)), the spectrum in
// real/imag, the magnitude sum and energy; during start-up also the white
// and pink noise models.
void data_analysis(NsxInst_t_* inst, int16_t* speech, uint16_t* magn) {
  int16_t win[KEDO_NSX_ANAL_BLOCKL_MAX];
  int16_t cbuf[2 * KEDO_NSX_ANAL_BLOCKL_MAX];

  call_routine<analysis_update_c>(kedoNsx_AnalysisUpdate, inst, win, speech);
  inst->energy_in = kedoSpl_Energy(win, inst->ana_len, &inst->scale_energy_in);
  inst->zero_input_signal = 0;
  int16_t max_win = kedoSpl_MaxAbsValueW16(win, inst->ana_len);
  inst->norm_data = norm_w16(max_win);
  if (max_win == 0) {
    inst->zero_input_signal = 1;
    return;
  }

  int net_norm = inst->stages - inst->norm_data;
  // Track the smallest normalisation so that the start-up sums never overflow.
  int rs_magn = inst->norm_data - inst->min_norm;
  int rs_init = -rs_magn > 0 ? -rs_magn : 0;
  inst->min_norm -= rs_init;
  if (rs_magn < 0) rs_magn = 0;

  call_routine<create_complex_buffer_c>(kedoNsx_CreateComplexBuffer, inst, win, cbuf);
  kedoSpl_ComplexBitReverse(cbuf, inst->stages);
  kedoSpl_ComplexFFT(cbuf, inst->stages, 1);

  const int n2 = inst->ana_len2;
  inst->imag[0] = 0;
  inst->imag[n2] = 0;
  inst->real[0] = cbuf[0];
  inst->real[n2] = cbuf[inst->ana_len];
  // The energy and magnitude sums run in locals (magn may point anywhere,
  // so sums kept in the instance would be stored and reloaded every bin).
  uint32_t energy = static_cast<uint32_t>(inst->real[0] * inst->real[0]);
  energy += static_cast<uint32_t>(inst->real[n2] * inst->real[n2]);
  magn[0] = static_cast<uint16_t>(abs16(inst->real[0]));
  magn[n2] = static_cast<uint16_t>(abs16(inst->real[n2]));
  uint32_t sum = magn[0];
  sum += magn[n2];

  auto bin = [&](int i) {
    int j = 2 * i;
    inst->real[i] = cbuf[j];
    inst->imag[i] = static_cast<int16_t>(-cbuf[j + 1]);
    uint32_t e = static_cast<uint32_t>(cbuf[j] * cbuf[j]);
    e += static_cast<uint32_t>(cbuf[j + 1] * cbuf[j + 1]);
    energy += e;
    const uint16_t m = static_cast<uint16_t>(kedoSpl_SqrtFloor(static_cast<int32_t>(e)));
    magn[i] = m;
    sum += m;
  };

  if (inst->block_index >= kEndStartupShort) {
    for (int i = 1; i < n2; i++) bin(i);
    inst->magn_energy = energy;
    inst->sum_magn = sum;
    return;
  }

  // Start-up: gather the average spectrum and a log-linear (pink) fit
  // log2(magn) = a - b log2(bin) over the bins from kStartBand on.
  inst->init_magn_est[0] >>= rs_init;
  inst->init_magn_est[n2] >>= rs_init;
  inst->init_magn_est[0] += magn[0] >> rs_magn;
  inst->init_magn_est[n2] += magn[n2] >> rs_magn;
  int16_t l2 = magn[n2] ? log2_q8(magn[n2]) : 0;
  int32_t sum_log_magn = l2;                             // Q8
  int32_t sum_log_i_log_magn = (kLogIndex[n2] * l2) >> 3;  // Q17
  for (int i = 1; i < n2; i++) {
    bin(i);
    inst->init_magn_est[i] >>= rs_init;
    inst->init_magn_est[i] += magn[i] >> rs_magn;
    if (i >= kStartBand) {
      l2 = magn[i] ? log2_q8(magn[i]) : 0;
      sum_log_magn += l2;
      sum_log_i_log_magn += (kLogIndex[i] * l2) >> 3;
    }
  }
  inst->magn_energy = energy;
  inst->sum_magn = sum;

  // White noise: the mean magnitude with over-drive, Q(min_norm - stages).
  inst->white_noise_level >>= rs_init;
  uint32_t w = (inst->sum_magn * inst->overdrive) >> (inst->stages + 8);
  inst->white_noise_level += w >> rs_magn;

  // Pink noise: solve the 2x2 normal equations with tabulated sums.
  int16_t det = kDeterminantEstMatrix[kStartBand];
  int16_t sum_log_i = kSumLogIndex[kStartBand];
  int16_t sum_log_i_sq = kSumSquareLogIndex[kStartBand];
  if (inst->fs == 8000) {
    // Only bins up to 64: remove the upper half from the sums.
    int32_t t = det;
    t += (kSumLogIndex[65] * sum_log_i) >> 9;
    t -= (kSumLogIndex[65] * kSumLogIndex[65]) >> 10;
    t -= static_cast<int32_t>(sum_log_i_sq) << 4;
    t -= ((inst->magn_len - kStartBand) * kSumSquareLogIndex[65]) >> 2;
    det = static_cast<int16_t>(t);
    sum_log_i = static_cast<int16_t>(sum_log_i - kSumLogIndex[65]);
    sum_log_i_sq = static_cast<int16_t>(sum_log_i_sq - kSumSquareLogIndex[65]);
  }
  int zeros = 16 - norm_w32(sum_log_magn);
  if (zeros < 0) zeros = 0;
  uint16_t slm = static_cast<uint16_t>(wshl(sum_log_magn, 1) >> zeros);  // Q(9 - zeros)

  int32_t t2 = sum_log_i_sq * static_cast<int32_t>(slm);  // Q(11 - zeros)
  uint32_t t1 = static_cast<uint32_t>(sum_log_i_log_magn >> 12);  // Q5
  uint16_t sli = static_cast<uint16_t>(static_cast<uint16_t>(sum_log_i) << 1);  // Q6
  if (static_cast<uint32_t>(sum_log_i) > t1) {
    sli = static_cast<uint16_t>(sli >> zeros);
  } else {
    t1 >>= zeros;
  }
  t2 = wrap_sub(t2, static_cast<int32_t>(t1 * sli));
  det = static_cast<int16_t>(det >> zeros);
  t2 = div_w32_w16(t2, det);  // Q11
  t2 += net_norm * 2048;
  if (t2 < 0) t2 = 0;
  inst->pink_noise_numerator += t2;

  t2 = sum_log_i * static_cast<int32_t>(slm);  // Q(14 - zeros)
  int32_t t3 = (sum_log_i_log_magn >> (3 + zeros)) * (inst->magn_len - kStartBand);
  t2 -= t3;
  if (t2 > 0) {
    int32_t e = div_w32_w16(t2, det);  // Q14
    inst->pink_noise_exp += clamp_between<int32_t>(16384, e, 0);
  }
}

void data_synthesis(NsxInst_t_* inst, int16_t* out) {
  if (inst->zero_input_signal) {
    // Silent input: read out what the overlap still holds.
    int keep = inst->ana_len - inst->block_len;
    std::memcpy(out, inst->synthesis_buffer, sizeof(int16_t) * inst->block_len);
    std::memmove(inst->synthesis_buffer, inst->synthesis_buffer + inst->block_len, sizeof(int16_t) * keep);
    std::memset(inst->synthesis_buffer + keep, 0, sizeof(int16_t) * inst->block_len);
    return;
  }
  int16_t cbuf[2 * KEDO_NSX_ANAL_BLOCKL_MAX];
  call_routine<prepare_spectrum_c>(kedoNsx_PrepareSpectrum, inst, cbuf);
  kedoSpl_ComplexBitReverse(cbuf, inst->stages);
  int scale = kedoSpl_ComplexIFFT(cbuf, inst->stages, 1);
  call_routine<denormalize_c>(kedoNsx_Denormalize, inst, cbuf, scale);

  // Policies with a gain table compensate the overall level after start-up,
  // by the ratio of output to input energy (Q8).
  int16_t gain = 8192;  // Q13
  if (inst->gain_map == 1 && inst->block_index > kEndStartupLong && inst->energy_in > 0) {
    int scale_out = 0;
    int32_t energy_out = kedoSpl_Energy(inst->real, inst->ana_len, &scale_out);
    if (scale_out == 0 && !(energy_out & 0x7f800000)) {
      energy_out = shift_w32(energy_out, 8 + scale_out - inst->scale_energy_in);
    } else {
      inst->energy_in = shift_w32(inst->energy_in, -(8 + scale_out - inst->scale_energy_in));
    }
    // The ratio is held in 16 bits before it is limited to [0, 1] (Q8).
    int32_t ratio = 256;
    if (inst->energy_in > 0) {
      ratio = static_cast<int16_t>(wrap_add(energy_out, inst->energy_in / 2) / inst->energy_in);
    }
    ratio = clamp_between<int32_t>(256, ratio, 0);
    int16_t f1 = kFactor1Table[ratio];
    int16_t f2 = inst->factor2_table[ratio];
    int16_t a = static_cast<int16_t>(((16384 - inst->prior_non_speech_prob) * f1) >> 14);
    int16_t b = static_cast<int16_t>((inst->prior_non_speech_prob * f2) >> 14);
    gain = static_cast<int16_t>(a + b);
  }
  call_routine<synthesis_update_c>(kedoNsx_SynthesisUpdate, inst, out, gain);
}

// The noise update of process_frame, bin by bin. Each bin steps its noise
// by the rate of the previous bin (gamma_prev) and, where the rate changes
// at this bin, keeps the smaller of that and the step at its own rate. Both
// candidates are formed for every bin: when the rates agree they are equal,
// and when the difference or the non-speech probability is zero both steps
// are zero, so the selects give the same result as testing those cases.
// The magnitude is brought to the noise domain by shl, then shr (one of
// them zero). Arrays are distinct, hence restrict.
struct NoiseUpdateArgs {
  const uint16_t* __restrict magn;
  const uint16_t* __restrict prev_noise16;
  const uint16_t* __restrict non_speech;
  const uint32_t* __restrict prev_noise;
  uint32_t* __restrict noise;
  int shl, shr;
};

[[gnu::always_inline]] inline uint32_t noise_rate(uint32_t ns_prob) {
  return ns_prob < kOneMinusProbRangeQ8 ? kGammaNoiseTransAndSpeechQ8 : kNoiseUpdateQ8;
}

[[gnu::always_inline]] inline uint32_t noise_update_bin(const NoiseUpdateArgs& a, int i, uint32_t gamma_prev) {
  const uint32_t m = (static_cast<uint32_t>(a.magn[i]) << a.shl) >> a.shr;
  const uint32_t p16 = a.prev_noise16[i];
  const uint32_t ns_prob = a.non_speech[i];
  const bool down = p16 > m;
  const uint32_t weighted = (down ? p16 - m : m - p16) * ns_prob;  // Q(prev_q_noise + 8)
  const bool large = (weighted & 0x7c000000u) != 0;
  const uint32_t gamma = noise_rate(ns_prob);
  const uint32_t st_prev = large ? (weighted >> 5) * gamma_prev : (weighted * gamma_prev) >> 5;
  const uint32_t st_cur = large ? (weighted >> 5) * gamma : (weighted * gamma) >> 5;
  const uint32_t prev = a.prev_noise[i];
  const uint32_t by_prev = down ? prev - st_prev : prev + st_prev;
  const uint32_t by_cur = down ? prev - st_cur : prev + st_cur;
  const uint32_t update = by_cur < by_prev ? by_cur : by_prev;
  a.noise[i] = update;
  return update;
}

// Bins 1 ... count with the running maximum of the new noise; count is a
// compile-time constant for the two bin counts in use, so that the loop has
// a fixed trip count and runs in vector lanes.
template <typename Count>
[[gnu::always_inline]] inline uint32_t noise_update_loop(const NoiseUpdateArgs& a, Count count, uint32_t max_noise) {
  for (int i = 1; i <= count; i++) {
    const uint32_t u = noise_update_bin(a, i, noise_rate(a.non_speech[i - 1]));
    max_noise = u > max_noise ? u : max_noise;
  }
  return max_noise;
}

// The conservative noise template of bins begin ... end - 1: where the bin
// is most likely noise, pause moves 5 % of the way to the magnitude, in the
// domain of the magnitude (shift = prev_q_magn - q_magn; Negative: shift < 0).
template <bool Negative, typename End>
[[gnu::always_inline]] inline void pause_update(const uint16_t* __restrict magn,
                                                const uint16_t* __restrict non_speech,
                                                int32_t* __restrict avg_magn_pause, int shift, int begin, End end) {
  for (int i = begin; i < end; i++) {
    int32_t pause = shift_w32(avg_magn_pause[i], -shift);
    int32_t d;
    if constexpr (Negative) {
      d = wrap_add(wmul(wrap_sub(magn[i], pause), kOneMinusGammaPauseQ8), 128) >> 8;
    } else {
      d = wmul(wrap_sub(wshl(magn[i], shift), avg_magn_pause[i]), kOneMinusGammaPauseQ8);
      d = wrap_add(d, 128 << shift) >> (8 + shift);
    }
    pause += non_speech[i] > kOneMinusProbRangeQ8 ? d : 0;
    avg_magn_pause[i] = pause;
  }
}

// body(count) with count = magn_len - 1 as a compile-time constant for the
// two bin counts in use (128 and 64).
template <typename Body>
[[gnu::always_inline]] inline void for_bin_count(int count, Body body) {
  if (count == 128) {
    body(std::integral_constant<int, 128>{});
  } else if (count == 64) {
    body(std::integral_constant<int, 64>{});
  } else {
    body(count);
  }
}

}  // namespace

void process_frame(NsxInst_t_* inst, const int16_t* in, int16_t* out, bool band_post) {
  uint32_t noise[KEDO_NSX_HALF_ANAL_BLOCKL];
  uint32_t post_snr[KEDO_NSX_HALF_ANAL_BLOCKL];
  uint32_t prior_snr[KEDO_NSX_HALF_ANAL_BLOCKL];
  uint32_t prev_near_snr[KEDO_NSX_HALF_ANAL_BLOCKL];
  uint16_t magn[KEDO_NSX_HALF_ANAL_BLOCKL];
  uint16_t prev_noise16[KEDO_NSX_HALF_ANAL_BLOCKL];
  uint16_t non_speech[KEDO_NSX_HALF_ANAL_BLOCKL];
  uint16_t filter_startup[KEDO_NSX_HALF_ANAL_BLOCKL];
  int16_t frame[KEDO_NSX_ANAL_BLOCKL_MAX];
  const int n = inst->magn_len;

  std::memcpy(frame, in, sizeof(int16_t) * inst->block_len);  // in may alias out
  if (band_post) BP_ns_pre(inst->bp_info, frame, inst->block_len);
  data_analysis(inst, frame, magn);
  if (inst->zero_input_signal) {
    data_synthesis(inst, out);
    return;
  }

  inst->block_index++;
  const int16_t q_magn = static_cast<int16_t>(inst->norm_data - inst->stages);
  compute_spectral_flatness(inst, magn);
  short q_noise_s = 0;
  call_routine<noise_estimation_c>(kedoNsx_NoiseEstimation, inst, magn, noise, &q_noise_s);
  int q_noise = q_noise_s;
  for (int i = 0; i < n; i++) prev_noise16[i] = static_cast<uint16_t>(inst->prev_noise[i] >> 11);

  if (inst->block_index < kEndStartupShort) {
    // Blend the quantile estimate with the start-up (white or pink) model and
    // prepare the start-up Wiener gains.
    const int q_model = inst->min_norm - inst->stages;
    const int q_use = q_noise < q_model ? q_noise : q_model;
    int16_t pink_exp_avg = 0;
    int32_t pink_num_avg = 0;
    uint32_t est = 0, est_avg = 0;
    if (inst->pink_noise_exp) {
      pink_exp_avg = static_cast<int16_t>(div_w32_w16(inst->pink_noise_exp, static_cast<int16_t>(inst->block_index + 1)));
      pink_num_avg = div_w32_w16(inst->pink_noise_numerator, static_cast<int16_t>(inst->block_index + 1));
      parametric_noise_estimate(inst, pink_exp_avg, pink_num_avg, kStartBand, &est, &est_avg);
    } else {
      est = inst->white_noise_level;
      est_avg = est / static_cast<uint32_t>(inst->block_index + 1);
    }
    for (int i = 0; i < n; i++) {
      if (inst->pink_noise_exp && i >= kStartBand) {
        est = 0;
        est_avg = 0;
        parametric_noise_estimate(inst, pink_exp_avg, pink_num_avg, i, &est, &est_avg);
      }
      filter_startup[i] = inst->denoise_bound;
      if (inst->init_magn_est[i]) {
        uint32_t sub = est * inst->overdrive;
        uint32_t num = inst->init_magn_est[i] << 8;
        if (num > sub) {
          num -= sub;
          int ns = clamp_between(6, norm_u32(num), 0);
          num <<= ns;
          uint32_t den = inst->init_magn_est[i] >> (6 - ns);
          if (den == 0) den = 1;
          filter_startup[i] = static_cast<uint16_t>(clamp_between<uint32_t>(16384, num / den, inst->denoise_bound));
        }
      }
      uint32_t a = noise[i] >> (q_noise - q_use);
      uint32_t b = est_avg >> (q_model - q_use);
      int ns = 0;
      if (a & 0xfc000000u) {
        a >>= 6;
        b >>= 6;
        ns = 6;
      }
      a *= static_cast<uint32_t>(inst->block_index);
      b *= static_cast<uint32_t>(kEndStartupShort - inst->block_index);
      noise[i] = div_u32_u16(a + b, kEndStartupShort) << ns;
    }
    q_noise = q_use;
  }
  if (inst->block_index < kEndStartupLong) {
    inst->time_avg_magn_energy_tmp += shr_u32(inst->magn_energy, 2 * inst->norm_data + inst->stages - 1);
    inst->time_avg_magn_energy =
        div_u32_u16(inst->time_avg_magn_energy_tmp, static_cast<uint16_t>(inst->block_index + 1));
  }

  // Posterior SNR and the decision-directed prior SNR (stored as 1 + 2 snr), Q11.
  constexpr uint32_t kSatMax = 1048575;
  int post_shifts = limit_shift(6 + q_magn - q_noise);
  int n_shifts = limit_shift(5 - inst->prev_q_magn + inst->prev_q_noise);
  for (int i = 0; i < n; i++) {
    post_snr[i] = 2048;
    uint32_t m = static_cast<uint32_t>(magn[i]) << 6;
    uint32_t nz = post_shifts < 0 ? noise[i] >> -post_shifts : noise[i] << post_shifts;
    if (m > nz) {
      m <<= 11;
      post_snr[i] = nz > 0 ? (m / nz < kSatMax ? m / nz : kSatMax) : kSatMax;
    }
    uint32_t near = static_cast<uint32_t>(inst->prev_magn[i]) * inst->noise_sup_filter[i];
    uint32_t t1 = near << 3;
    uint32_t t2 = n_shifts >= 0 ? inst->prev_noise[i] >> n_shifts : inst->prev_noise[i] << -n_shifts;
    if (t2 > 0) {
      t1 /= t2;
      if (t1 > kSatMax) t1 = kSatMax;
    } else {
      t1 = kSatMax;
    }
    prev_near_snr[i] = t1;
    uint32_t dd = prev_near_snr[i] * kDdPrSnrQ11 + (post_snr[i] - 2048) * kOneMinusDdPrSnrQ11 + 512;  // Q22
    prior_snr[i] = 2048 + (dd >> 10);
  }

  compute_spectral_difference(inst, magn);
  inst->cnt_thres_update++;
  const bool flag = inst->cnt_thres_update == inst->model_update;
  feature_parameter_extraction(inst, flag);
  if (flag) {
    inst->cnt_thres_update = 0;
    inst->cur_avg_magn_energy >>= kModelUpdateShift;
    uint32_t avg = (inst->cur_avg_magn_energy + inst->time_avg_magn_energy + 1) >> 1;
    if (avg != inst->time_avg_magn_energy && inst->feature_spec_diff && inst->time_avg_magn_energy > 0) {
      // Rescale the difference feature to the new energy normalisation.
      int norm = 0;
      uint32_t a = avg;
      while (a & 0xFFFF0000u) {
        a >>= 1;
        norm++;
      }
      uint32_t b = inst->feature_spec_diff;
      while (b & 0xFFFF0000u) {
        b >>= 1;
        norm++;
      }
      a = (a * b) / inst->time_avg_magn_energy;
      if (norm_u32(a) < norm) {
        inst->feature_spec_diff = 0x007FFFFF;
      } else {
        uint32_t v = a << norm;
        inst->feature_spec_diff = v < 0x007FFFFFu ? v : 0x007FFFFFu;
      }
    }
    inst->time_avg_magn_energy = avg;
    inst->cur_avg_magn_energy = 0;
  }

  if (band_post) {
    // The band post-processing's speech presence (Q15) sets the prior.
    int16_t presence = static_cast<int16_t>(BP_ns_app(inst->bp_info, magn, inst->sum_magn, q_magn));
    inst->prior_non_speech_prob = static_cast<int16_t>((32767 - presence) >> 1);
  }
  speech_noise_prob(inst, non_speech, prior_snr, post_snr, !band_post);

  // Noise update, slower where speech is likely (noise_update_bin); the
  // conservative template avg_magn_pause follows the bins that are most
  // likely noise.
  post_shifts = limit_shift(inst->prev_q_noise - q_magn);
  n_shifts = inst->prev_q_magn - q_magn;
  const NoiseUpdateArgs nu{magn, prev_noise16, non_speech, inst->prev_noise, noise,
                           post_shifts > 0 ? post_shifts : 0, post_shifts < 0 ? -post_shifts : 0};
  // Bin 0 steps by the fast rate, every later bin by its predecessor's.
  uint32_t max_noise = noise_update_bin(nu, 0, kNoiseUpdateQ8);
  for_bin_count(n - 1, [&](auto count) __attribute__((always_inline)) {
    max_noise = noise_update_loop(nu, count, max_noise);
  });
  // Bins 0 ... n - 2 in a loop of fixed length, then the last bin.
  if (n_shifts < 0) {
    for_bin_count(n - 1, [&](auto count) __attribute__((always_inline)) {
      pause_update<true>(magn, non_speech, inst->avg_magn_pause, n_shifts, 0, count);
    });
    pause_update<true>(magn, non_speech, inst->avg_magn_pause, n_shifts, n - 1, n);
  } else {
    for_bin_count(n - 1, [&](auto count) __attribute__((always_inline)) {
      pause_update<false>(magn, non_speech, inst->avg_magn_pause, n_shifts, 0, count);
    });
    pause_update<false>(magn, non_speech, inst->avg_magn_pause, n_shifts, n - 1, n);
  }
  const int norm_noise = norm_u32(max_noise);
  q_noise = inst->prev_q_noise + norm_noise - 5;

  // Decision-directed prior SNR with the new noise, and the Wiener gain.
  n_shifts = limit_shift(inst->prev_q_noise + 11 - q_magn);
  for (int i = 0; i < n; i++) {
    uint32_t cur_near = 0;
    uint32_t m, nz;
    if (n_shifts < 0) {
      m = magn[i];
      nz = noise[i] << -n_shifts;
    } else if (n_shifts > 17) {
      m = static_cast<uint32_t>(magn[i]) << 17;
      nz = noise[i] >> (n_shifts - 17);
    } else {
      m = static_cast<uint32_t>(magn[i]) << n_shifts;
      nz = noise[i];
    }
    if (m > nz) {
      uint32_t d = m - nz;
      int nn = norm_u32(d) < 11 ? norm_u32(d) : 11;
      d <<= nn;
      uint32_t den = nz >> (11 - nn);
      if (den > 0) d /= den;
      cur_near = d < kSatMax ? d : kSatMax;
    }
    uint32_t prior = prev_near_snr[i] * kDdPrSnrQ11 + cur_near * kOneMinusDdPrSnrQ11;  // Q22
    uint32_t den = inst->overdrive + ((prior + 8192) >> 14);  // Q8
    uint16_t g = static_cast<uint16_t>((prior + den / 2) / den);  // Q14
    inst->noise_sup_filter[i] = clamp_between<uint16_t>(16384, g, inst->denoise_bound);
    if (inst->block_index < kEndStartupShort) {
      uint32_t a = static_cast<uint32_t>(inst->noise_sup_filter[i]) * static_cast<uint32_t>(inst->block_index);
      a += static_cast<uint32_t>(filter_startup[i]) * static_cast<uint32_t>(kEndStartupShort - inst->block_index);
      inst->noise_sup_filter[i] = static_cast<uint16_t>(div_u32_u16(a, kEndStartupShort));
    }
  }

  inst->prev_q_noise = q_noise;
  inst->prev_q_magn = q_magn;
  for (int i = 0; i < n; i++) {
    inst->prev_noise[i] = norm_noise > 5 ? noise[i] << (norm_noise - 5) : noise[i] >> (5 - norm_noise);
    inst->prev_magn[i] = magn[i];
  }

  data_synthesis(inst, out);
  if (band_post) BP_ns_post(inst->bp_info, out, inst->block_len, out);
}

}  // namespace kafx::nsx

// ---- Exported interface -------------------------------------------------------

using namespace kafx::nsx;

extern "C" {

int kedoNs_set_policy_core(NsxInst_t_* inst, int mode) {
  if (inst == nullptr || static_cast<unsigned>(mode) > 3u) return -1;
  static const uint16_t kOverdrive[4] = {256, 256, 282, 320};      // Q8
  static const uint16_t kDenoiseBound[4] = {8192, 4096, 2048, 1475};  // Q14
  static const int16_t* const kTables[4] = {nullptr, kFactor2Aggressiveness1, kFactor2Aggressiveness2,
                                            kFactor2Aggressiveness3};
  inst->aggr_mode = mode;
  inst->overdrive = kOverdrive[mode];
  inst->denoise_bound = kDenoiseBound[mode];
  inst->gain_map = mode == 0 ? 0 : 1;
  if (mode != 0) inst->factor2_table = kTables[mode];
  return 0;
}

int kedoNs_InitCore(NsxInst_t_* inst, unsigned int fs) {
  if (inst == nullptr) return -1;
  if (fs != 8000 && fs != 16000 && fs != 32000) {
    inst->init_flag = 0;
    return -1;
  }
  inst->fs = fs;
  if (fs == 8000) {
    inst->block_len = 80;
    inst->ana_len = 128;
    inst->stages = 7;
    inst->window = kWindow128;
    inst->threshold_log_lrt = 131072;
    inst->max_lrt = 0x0040000;
    inst->min_lrt = 52429;
  } else {
    inst->block_len = 160;
    inst->ana_len = 256;
    inst->stages = 8;
    inst->window = kWindow256;
    inst->threshold_log_lrt = 212644;
    inst->max_lrt = 0x0080000;
    inst->min_lrt = 104858;
  }
  inst->ana_len2 = inst->ana_len / 2;
  inst->magn_len = inst->ana_len2 + 1;

  std::memset(inst->analysis_buffer, 0, sizeof(inst->analysis_buffer));
  std::memset(inst->synthesis_buffer, 0, sizeof(inst->synthesis_buffer));
  std::memset(inst->noise_est_quantile, 0, sizeof(inst->noise_est_quantile));
  for (int i = 0; i < KEDO_NSX_SIMULT * KEDO_NSX_HALF_ANAL_BLOCKL; i++) {
    inst->noise_est_log_quantile[i] = 2048;  // Q8
    inst->noise_est_density[i] = 153;        // Q9
  }
  for (int i = 0; i < KEDO_NSX_SIMULT; i++) {
    inst->noise_est_counter[i] = static_cast<int16_t>(kEndStartupLong * (i + 1) / KEDO_NSX_SIMULT);
  }
  for (uint16_t& g : inst->noise_sup_filter) g = 16384;
  inst->aggr_mode = 0;
  inst->prior_non_speech_prob = 8192;  // Q14 0.5
  std::memset(inst->prev_magn, 0, sizeof(inst->prev_magn));
  std::memset(inst->prev_noise, 0, sizeof(inst->prev_noise));
  std::memset(inst->log_lrt_time_avg, 0, sizeof(inst->log_lrt_time_avg));
  std::memset(inst->avg_magn_pause, 0, sizeof(inst->avg_magn_pause));
  std::memset(inst->init_magn_est, 0, sizeof(inst->init_magn_est));
  std::memset(inst->real, 0, sizeof(inst->real));
  std::memset(inst->imag, 0, sizeof(inst->imag));

  inst->threshold_spec_diff = 50;
  inst->threshold_spec_flat = 20480;
  inst->feature_log_lrt = inst->threshold_log_lrt;
  inst->feature_spec_flat = inst->threshold_spec_flat;
  inst->feature_spec_diff = inst->threshold_spec_diff;
  inst->weight_log_lrt = 6;
  inst->weight_spec_flat = 0;
  inst->weight_spec_diff = 0;
  inst->cur_avg_magn_energy = 0;
  inst->time_avg_magn_energy = 0;
  inst->time_avg_magn_energy_tmp = 0;
  std::memset(inst->hist_lrt, 0, sizeof(inst->hist_lrt));
  std::memset(inst->hist_spec_diff, 0, sizeof(inst->hist_spec_diff));
  std::memset(inst->hist_spec_flat, 0, sizeof(inst->hist_spec_flat));
  inst->block_index = -1;
  inst->model_update = 1 << kModelUpdateShift;
  inst->cnt_thres_update = 0;
  inst->sum_magn = 0;
  inst->magn_energy = 0;
  inst->prev_q_magn = 0;
  inst->q_noise = 0;
  inst->prev_q_noise = 0;
  inst->energy_in = 0;
  inst->scale_energy_in = 0;
  inst->norm_data = 0;
  inst->white_noise_level = 0;
  inst->pink_noise_numerator = 0;
  inst->pink_noise_exp = 0;
  inst->min_norm = 15;
  inst->zero_input_signal = 0;
  inst->factor2_table = nullptr;
  kedoNs_set_policy_core(inst, 0);

  install_routine(kedoNsx_NoiseEstimation, static_cast<kedoNsx_NoiseEstimation_t>(noise_estimation_c));
  install_routine(kedoNsx_PrepareSpectrum, static_cast<kedoNsx_PrepareSpectrum_t>(prepare_spectrum_c));
  install_routine(kedoNsx_SynthesisUpdate, static_cast<kedoNsx_SynthesisUpdate_t>(synthesis_update_c));
  install_routine(kedoNsx_AnalysisUpdate, static_cast<kedoNsx_AnalysisUpdate_t>(analysis_update_c));
  install_routine(kedoNsx_Denormalize, static_cast<kedoNsx_Denormalize_t>(denormalize_c));
  install_routine(kedoNsx_CreateComplexBuffer, static_cast<kedoNsx_CreateComplexBuffer_t>(create_complex_buffer_c));

  inst->bp_info = BP_ns_init(static_cast<int>(fs), inst->magn_len);
  if (inst->bp_info == nullptr) {  // no band post-processing record: unusable
    inst->init_flag = 0;
    return -1;
  }
  inst->init_flag = 1;
  return 0;
}

int kedoNs_ProcessCore(NsxInst_t_* inst, short* in_frame, short* out_frame) {
  if (inst == nullptr || inst->init_flag != 1 || in_frame == nullptr || out_frame == nullptr) return -1;
  process_frame(inst, in_frame, out_frame, true);
  return 0;
}

int kedoNs_FreeCore(NsxInst_t_* inst) {
  if (inst == nullptr) return -1;
  BP_ns_delete(inst->bp_info);
  inst->bp_info = nullptr;
  return 0;
}

void kedoNs_canceling_setstatus(NsxInst_t_* inst, int status) {
  if (inst != nullptr) inst->canceling_status = status;
}

void kedoNs_canceling_getstatus(NsxInst_t_* inst, int* status) {
  if (inst != nullptr && status != nullptr) *status = inst->canceling_status;
}

void kedoNsx_DataAnalysis(NsxInst_t_* inst, short* in_frame, unsigned short* magn) {
  if (inst == nullptr || in_frame == nullptr || magn == nullptr) return;
  data_analysis(inst, in_frame, magn);
}

void kedoNsx_SpeechNoiseProb(NsxInst_t_* inst, unsigned short* non_speech_prob, unsigned int* prior_snr,
                             unsigned int* post_snr) {
  if (inst == nullptr || non_speech_prob == nullptr || prior_snr == nullptr || post_snr == nullptr) return;
  speech_noise_prob(inst, non_speech_prob, prior_snr, post_snr, false);
}

void kedoNsx_DataSynthesis(NsxInst_t_* inst, short* out_frame) {
  if (inst == nullptr || out_frame == nullptr) return;
  data_synthesis(inst, out_frame);
}

}  // extern "C"
