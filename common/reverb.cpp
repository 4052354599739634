// Stereo room reverb: eight parallel damped combs and four series all-passes
// per channel (the comb and all-pass blocks of delay.cpp), a wet/dry/width
// mix and a DC blocker per channel.
//
// Formats: parameters Q13. The comb input is the sample times `gain` (Q13,
// default 127, about 0.0155), so eight combs with loop gains up to ~0.99
// keep well inside the Q28 loop of a full-scale sample. Comb outputs are
// summed with 32-bit wrap-around (the scaled input leaves ample headroom).
// The mix is a 64-bit sum of three Q13 products, shifted by 13 and
// saturated to int32.
#include "kafx_proc/reverb.h"

#include <cstdlib>

#include "common/lifecycle.h"
#include "common/dc_remove.h"
#include "common/delay.h"
#include "common/fixed_point.h"
#include "common/gain_kernels.h"

#include "common/lanes_avx2.h"
#include "common/reverb_kernels.h"

using namespace kafx;

namespace {

constexpr int kCombs = 8;
constexpr int kAllpasses = 4;

// Delay lengths in samples, all prime, the right channel slightly longer
// than the left so that the two tails decorrelate. The same at every rate.
constexpr int kCombLeft[kCombs] = {1109, 1399, 1489, 1777, 1973, 2069, 2267, 2549};
constexpr int kCombRight[kCombs] = {1151, 1423, 1523, 1801, 1997, 2099, 2293, 2579};
constexpr int kAllpassLeft[kAllpasses] = {619, 523, 337, 241};
constexpr int kAllpassRight[kAllpasses] = {643, 547, 367, 269};

// The process functions work through runs of up to kChunk frames filter by
// filter (the block forms of delay.h): every comb, all-pass and DC blocker
// still sees its input in sample order, so the result is the same as running
// the frame loop of the description sample by sample.
constexpr int kChunk = 256;

#if KAFX_DISPATCH
// Lane-wise (a * b) >> 13 from the 64-bit products of the even lanes and of
// the odd lanes (each below 2^45 in magnitude): low 32 bits, -1 flushed.
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i q13(__m256i even_product, __m256i odd_product) {
  const __m256i v = _mm256_blend_epi32(_mm256_srli_epi64(even_product, 13), _mm256_slli_epi64(odd_product, 19), 0xaa);
  return lanes::flush_m1(v);
}

// The loop words of eight combs over a run of n frames, copied to and from
// rows of eight (row i: frame i of every comb). Comb k's run starts at its
// loop position and wraps to the start of its loop after first[k] frames.
// Blocks of eight frames in which no loop wraps go through an 8 x 8
// transpose; the others (at most one per comb) word by word.
struct CombColumns {
  int32_t* at[kCombs];
  int32_t* start[kCombs];
  int first[kCombs];

  CombColumns() = default;
  CombColumns(comber* const* c, int n) { set(c, n); }
  void set(comber* const* c, int n) {
    for (int k = 0; k < kCombs; ++k) {
      at[k] = c[k]->buffer + c[k]->index;
      start[k] = c[k]->buffer;
      first[k] = n < c[k]->size - c[k]->index ? n : c[k]->size - c[k]->index;
    }
  }
  int32_t* word(int k, int i) const { return i < first[k] ? at[k] + i : start[k] + (i - first[k]); }
  template <bool kToRows>
  [[gnu::always_inline]] KAFX_TARGET_AVX2 inline void copy(int32_t (*rows)[kCombs], int n) const {
    // Blocks of eight frames in which some loop wraps (at most one per comb).
    uint64_t wraps = 0;
    for (int k = 0; k < kCombs; ++k)
      if (first[k] < n && (first[k] & 7) != 0) wraps |= uint64_t{1} << (first[k] >> 3);
    int i = 0;
    for (; i + 8 <= n; i += 8) {
      if (((wraps >> (i >> 3)) & 1) != 0) {
        for (int j = i; j < i + 8; ++j)
          for (int k = 0; k < kCombs; ++k) {
            if constexpr (kToRows) {
              rows[j][k] = *word(k, j);
            } else {
              *word(k, j) = rows[j][k];
            }
          }
        continue;
      }
      __m256i r[8];
      if constexpr (kToRows) {
        KAFX_UNROLL
        for (int k = 0; k < kCombs; ++k) r[k] = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(word(k, i)));
        lanes::transpose8(r);
        KAFX_UNROLL
        for (int j = 0; j < 8; ++j) _mm256_store_si256(reinterpret_cast<__m256i*>(rows[i + j]), r[j]);
      } else {
        KAFX_UNROLL
        for (int j = 0; j < 8; ++j) r[j] = _mm256_load_si256(reinterpret_cast<const __m256i*>(rows[i + j]));
        lanes::transpose8(r);
        KAFX_UNROLL
        for (int k = 0; k < kCombs; ++k) _mm256_storeu_si256(reinterpret_cast<__m256i*>(word(k, i)), r[k]);
      }
    }
    for (; i < n; ++i)
      for (int k = 0; k < kCombs; ++k) {
        if constexpr (kToRows) {
          rows[i][k] = *word(k, i);
        } else {
          *word(k, i) = rows[i][k];
        }
      }
  }
  [[gnu::always_inline]] KAFX_TARGET_AVX2 inline void gather(int32_t (*rows)[kCombs], int n) const {
    copy<true>(rows, n);
  }
  [[gnu::always_inline]] KAFX_TARGET_AVX2 inline void scatter(int32_t (*rows)[kCombs], int n) const {
    copy<false>(rows, n);
  }
};

// The eight combs of one channel in the eight 32-bit lanes of an AVX2
// vector, for gains that cannot saturate (comb_gains_unsaturated). A run is
// no longer than the shortest loop, so its outputs are loop words written
// before the run: they are copied out (transposed, one row of eight per
// frame) and summed first; then the damping low-pass of all eight combs
// advances one frame per step, and the new loop words x << S +
// lowpass * feedback >> 13 are copied back. The products are formed in 64
// bits from the even and the odd lanes; with unsaturated gains each shifted
// result fits in 32 bits, so its low 32 bits (which a logical shift also
// gives) are the value. -1 is flushed as in the scalar step.
//
// kStereo: lanes 0..3 are one channel's four combs, fed x and summed into
// acc, lanes 4..7 the other channel's, fed x_hi and summed into acc_hi.
//
// kBanks banks of eight (one per channel) advance side by side: the
// low-pass recursion of one bank is a chain of dependent multiplies, so two
// independent chains in one loop keep the multipliers busy while each waits
// for its previous frame.
struct CombBankIo {
  comber* const* c;
  const int32_t* x;
  int32_t* acc;
  const int32_t* x_hi;  // kStereo only
  int32_t* acc_hi;      // kStereo only
};

template <int S, bool kStereo, int kBanks>
KAFX_TARGET_AVX2 void comb_banks8_avx2(const CombBankIo* io, int n) {
  alignas(32) int32_t rows[kBanks][kChunk][kCombs];
  CombColumns cols[kBanks];
  for (int b = 0; b < kBanks; ++b) {
    cols[b].set(io[b].c, n);
    cols[b].gather(rows[b], n);
    int32_t* const acc = io[b].acc;
    int32_t* const acc_hi = io[b].acc_hi;
    for (int i = 0; i < n; ++i) {
      __m256i v = _mm256_srai_epi32(_mm256_load_si256(reinterpret_cast<const __m256i*>(rows[b][i])), S);
      v = lanes::flush_m1(v);
      if constexpr (kStereo) {
        // Both halves' sums at once: pairs, then quads, of each half.
        __m256i h = _mm256_add_epi32(v, _mm256_shuffle_epi32(v, 0x4e));
        h = _mm256_add_epi32(h, _mm256_shuffle_epi32(h, 0xb1));
        acc[i] = wrap_add(acc[i], _mm256_cvtsi256_si32(h));
        acc_hi[i] = wrap_add(acc_hi[i], _mm_cvtsi128_si32(_mm256_extracti128_si256(h, 1)));
      } else {
        __m128i h = _mm_add_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
        h = _mm_add_epi32(h, _mm_shuffle_epi32(h, 0x4e));
        h = _mm_add_epi32(h, _mm_shuffle_epi32(h, 0xb1));
        acc[i] = wrap_add(acc[i], _mm_cvtsi128_si32(h));
      }
    }
  }
  alignas(32) int32_t lp[kBanks][kCombs], damp[kBanks][kCombs], damp_c[kBanks][kCombs], fb[kBanks][kCombs];
  __m256i d_even[kBanks], e_even[kBanks], f_even[kBanks], d_odd[kBanks], e_odd[kBanks], f_odd[kBanks], state[kBanks];
  KAFX_UNROLL
  for (int b = 0; b < kBanks; ++b) {
    for (int k = 0; k < kCombs; ++k) {
      const comber* ck = io[b].c[k];
      lp[b][k] = ck->lowpass_state;
      damp[b][k] = ck->damp;
      damp_c[b][k] = ck->damp_complement;
      fb[b][k] = ck->feedback;
    }
    d_even[b] = _mm256_load_si256(reinterpret_cast<const __m256i*>(damp[b]));
    e_even[b] = _mm256_load_si256(reinterpret_cast<const __m256i*>(damp_c[b]));
    f_even[b] = _mm256_load_si256(reinterpret_cast<const __m256i*>(fb[b]));
    d_odd[b] = _mm256_srli_epi64(d_even[b], 32);
    e_odd[b] = _mm256_srli_epi64(e_even[b], 32);
    f_odd[b] = _mm256_srli_epi64(f_even[b], 32);
    state[b] = _mm256_load_si256(reinterpret_cast<const __m256i*>(lp[b]));
  }
  for (int i = 0; i < n; ++i) {
    KAFX_UNROLL
    for (int b = 0; b < kBanks; ++b) {
      const __m256i out = _mm256_load_si256(reinterpret_cast<const __m256i*>(rows[b][i]));
      const __m256i out_odd = _mm256_srli_epi64(out, 32), state_odd = _mm256_srli_epi64(state[b], 32);
      state[b] = q13(_mm256_add_epi64(_mm256_mul_epi32(e_even[b], out), _mm256_mul_epi32(d_even[b], state[b])),
                     _mm256_add_epi64(_mm256_mul_epi32(e_odd[b], out_odd), _mm256_mul_epi32(d_odd[b], state_odd)));
      const __m256i fed = q13(_mm256_mul_epi32(f_even[b], state[b]),
                              _mm256_mul_epi32(f_odd[b], _mm256_srli_epi64(state[b], 32)));
      __m256i in;
      if constexpr (kStereo) {
        in = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_set1_epi32(io[b].x[i])), _mm_set1_epi32(io[b].x_hi[i]),
                                     1);
      } else {
        in = _mm256_set1_epi32(io[b].x[i]);
      }
      in = _mm256_slli_epi32(in, S);
      _mm256_store_si256(reinterpret_cast<__m256i*>(rows[b][i]), _mm256_add_epi32(in, fed));
    }
  }
  for (int b = 0; b < kBanks; ++b) {
    _mm256_store_si256(reinterpret_cast<__m256i*>(lp[b]), state[b]);
    cols[b].scatter(rows[b], n);
    for (int k = 0; k < kCombs; ++k) {
      comber* ck = io[b].c[k];
      const int first = cols[b].first[k];
      ck->index = first < ck->size - ck->index ? ck->index + n : n - first;
      ck->lowpass_state = lp[b][k];
    }
  }
}

// An all-pass with g = 0.5 (g v >> 13 = v >> 1) over a run, eight frames
// per step within each stretch that does not wrap (every frame of a stretch
// has its own loop word); the rest frame by frame. Identical to
// allpass_process.
KAFX_TARGET_AVX2 void allpass_half_avx2(allpass* a, int32_t* v, int n) {
  int p = a->index;
  for (int i = 0; i < n;) {
    const int m = n - i < a->size - p ? n - i : a->size - p;
    int32_t* w = a->buffer + p;
    int j = 0;
    for (; j + 8 <= m; j += 8) {
      const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(v + i + j));
      const __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(w + j));
      __m256i hx = _mm256_srai_epi32(x, 1);
      hx = lanes::flush_m1(hx);
      const __m256i y = lanes::sat_add(hx, d);
      __m256i hy = _mm256_srai_epi32(y, 1);
      hy = lanes::flush_m1(hy);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(w + j), lanes::sat_sub(x, hy));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(v + i + j), y);
    }
    for (; j < m; ++j) v[i + j] = allpass_tick(v[i + j], w + j, 4096);
    i += m;
    p += m;
    if (p >= a->size) p = 0;
  }
  a->index = p;
}

// The eight-lane form applies when no comb can saturate and every loop is
// at least one run long.
bool comb_bank8_fits(comber* const* c) {
  for (int k = 0; k < kCombs; ++k) {
    if (!comb_gains_unsaturated(c[k]->damp, c[k]->damp_complement, c[k]->feedback) || c[k]->size < kChunk) return false;
  }
  return true;
}
#endif

// saturate32((wet1 * own + wet2 * other + dry_gain * dry) >> 13), the sum in
// 64 bits (wrapping only for gains far beyond any sensible setting).
inline int32_t mix(int32_t wet1, int32_t wet2, int32_t dry_gain, int32_t own, int32_t other, int32_t dry) {
  int64_t acc = wrap_add64(static_cast<int64_t>(wet1) * own, static_cast<int64_t>(wet2) * other);
  acc = wrap_add64(acc, static_cast<int64_t>(dry_gain) * dry);
  return sat32(acc >> 13);
}

void mix_reference(const int32_t* gains, const int32_t* al, const int32_t* ar, const int32_t* dl, const int32_t* dr,
                   int32_t* ml, int32_t* mr, int n) {
  const int32_t wet1 = gains[0], wet2 = gains[1], dry_gain = gains[2];
  for (int i = 0; i < n; ++i) {
    // Both frames' inputs are read before either output is stored, so the
    // outputs may be the wet sums' own arrays.
    const int32_t l = mix(wet1, wet2, dry_gain, al[i], ar[i], dl[i]);
    const int32_t r = mix(wet1, wet2, dry_gain, ar[i], al[i], dr[i]);
    ml[i] = l;
    mr[i] = r;
  }
}

#if KAFX_DISPATCH
// Four frames per step: the three products of each channel formed in
// 64-bit lanes (_mm256_mul_epi32 of the sign-extended samples), summed with
// wrap-around, shifted and saturated lane-wise, the low words packed. The
// rest frame by frame.
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i load_wide(const int32_t* p) {
  return _mm256_cvtepi32_epi64(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void store_mix(int32_t* p, __m256i sums) {
  const __m256i low_words = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6);
  const __m256i v = _mm256_permutevar8x32_epi32(lanes::product_shr_sat<13>(sums), low_words);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(v));
}

KAFX_TARGET_AVX2 void mix_avx2(const int32_t* gains, const int32_t* al, const int32_t* ar, const int32_t* dl,
                               const int32_t* dr, int32_t* ml, int32_t* mr, int n) {
  const __m256i w1 = _mm256_set1_epi64x(gains[0]), w2 = _mm256_set1_epi64x(gains[1]),
                dg = _mm256_set1_epi64x(gains[2]);
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m256i a = load_wide(al + i), b = load_wide(ar + i), x = load_wide(dl + i), y = load_wide(dr + i);
    const __m256i dry_l = _mm256_mul_epi32(dg, x), dry_r = _mm256_mul_epi32(dg, y);
    store_mix(ml + i, _mm256_add_epi64(_mm256_add_epi64(_mm256_mul_epi32(w1, a), _mm256_mul_epi32(w2, b)), dry_l));
    store_mix(mr + i, _mm256_add_epi64(_mm256_add_epi64(_mm256_mul_epi32(w1, b), _mm256_mul_epi32(w2, a)), dry_r));
  }
  mix_reference(gains, al + i, ar + i, dl + i, dr + i, ml + i, mr + i, n - i);
}
#endif

// The builds of the kernels (common/reverb_kernels.h). The AVX2 builds use
// their lane forms where those apply and the reference otherwise.
template <int S>
void comb_bank_reference(comber* const* c, const int32_t* x, int32_t* acc, int n) {
  comb_bank_accumulate<S>(c, kCombs, x, acc, n);
}

template <int S>
void comb_banks_reference(comber* const* left, comber* const* right, const int32_t* xl, const int32_t* xr,
                          int32_t* al, int32_t* ar, int n) {
  comb_bank_accumulate<S>(left, kCombs, xl, al, n);
  comb_bank_accumulate<S>(right, kCombs, xr, ar, n);
}

void allpass_run_reference(allpass* a, int32_t* v, int n) { allpass_block(a, v, n); }

void comb_stereo4_reference(comber* const* left, comber* const* right, const int32_t* xl, const int32_t* xr,
                            int32_t* al, int32_t* ar, int n) {
  comb_bank_accumulate<5>(left, 4, xl, al, n);
  comb_bank_accumulate<5>(right, 4, xr, ar, n);
}

#if KAFX_DISPATCH
template <int S>
KAFX_TARGET_AVX2 void comb_bank_avx2(comber* const* c, const int32_t* x, int32_t* acc, int n) {
  if (comb_bank8_fits(c)) {
    const CombBankIo io[1] = {{c, x, acc, nullptr, nullptr}};
    comb_banks8_avx2<S, false, 1>(io, n);
  } else {
    comb_bank_accumulate<S>(c, kCombs, x, acc, n);
  }
}

// Both channels' banks: side by side where both take the lane form, else
// bank by bank.
template <int S>
KAFX_TARGET_AVX2 void comb_banks_avx2(comber* const* left, comber* const* right, const int32_t* xl,
                                      const int32_t* xr, int32_t* al, int32_t* ar, int n) {
  if (comb_bank8_fits(left) && comb_bank8_fits(right)) {
    const CombBankIo io[2] = {{left, xl, al, nullptr, nullptr}, {right, xr, ar, nullptr, nullptr}};
    comb_banks8_avx2<S, false, 2>(io, n);
  } else {
    comb_bank_avx2<S>(left, xl, al, n);
    comb_bank_avx2<S>(right, xr, ar, n);
  }
}

KAFX_TARGET_AVX2 void comb_stereo4_avx2(comber* const* left, comber* const* right, const int32_t* xl,
                                        const int32_t* xr, int32_t* al, int32_t* ar, int n) {
  comber* const c[kCombs] = {left[0], left[1], left[2], left[3], right[0], right[1], right[2], right[3]};
  if (comb_bank8_fits(c)) {
    const CombBankIo io[1] = {{c, xl, al, xr, ar}};
    comb_banks8_avx2<5, true, 1>(io, n);
  } else {
    comb_stereo4_reference(left, right, xl, xr, al, ar, n);
  }
}

KAFX_TARGET_AVX2 void allpass_run_avx2(allpass* a, int32_t* v, int n) {
  if (a->feedback == 4096) {
    allpass_half_avx2(a, v, n);
  } else {
    allpass_block(a, v, n);
  }
}
#endif

}  // namespace

namespace kafx {
const KernelVariants<ReverbCombBank> reverb_comb_bank_working_variants = {
    "reverb_comb_bank_working", {comb_bank_reference<5>, KAFX_AVX2_ONLY(comb_bank_avx2<5>)}};
const KernelVariants<ReverbCombBank> reverb_comb_bank_16_variants = {
    "reverb_comb_bank_16", {comb_bank_reference<13>, KAFX_AVX2_ONLY(comb_bank_avx2<13>)}};
const KernelVariants<ReverbCombBanks> reverb_comb_banks_working_variants = {
    "reverb_comb_banks_working", {comb_banks_reference<5>, KAFX_AVX2_ONLY(comb_banks_avx2<5>)}};
const KernelVariants<ReverbCombBanks> reverb_comb_banks_16_variants = {
    "reverb_comb_banks_16", {comb_banks_reference<13>, KAFX_AVX2_ONLY(comb_banks_avx2<13>)}};
const KernelVariants<ReverbMix> reverb_mix_variants = {"reverb_mix",
                                                         {mix_reference, KAFX_AVX2_ONLY(mix_avx2)}};
const KernelVariants<CombStereo4> comb_stereo4_working_variants = {
    "comb_stereo4_working", {comb_stereo4_reference, KAFX_AVX2_ONLY(comb_stereo4_avx2)}};
const KernelVariants<ReverbAllpassRun> reverb_allpass_run_variants = {
    "reverb_allpass_run", {allpass_run_reference, KAFX_AVX2_ONLY(allpass_run_avx2)}};
}  // namespace kafx

namespace {

// Eight combs fed the same input: acc[i] += the sum of their outputs.
template <int S>
void comb_bank(comber* const* c, const int32_t* x, int32_t* acc, int n) {
  if constexpr (S == 5)
    run_chosen<reverb_comb_bank_working_variants>(c, x, acc, n);
  else
    run_chosen<reverb_comb_bank_16_variants>(c, x, acc, n);
}

// Both channels' banks of eight, each fed its own input.
template <int S>
void comb_banks(comber* const* left, comber* const* right, const int32_t* xl, const int32_t* xr, int32_t* al,
                int32_t* ar, int n) {
  if constexpr (S == 5)
    run_chosen<reverb_comb_banks_working_variants>(left, right, xl, xr, al, ar, n);
  else
    run_chosen<reverb_comb_banks_16_variants>(left, right, xl, xr, al, ar, n);
}

// One all-pass over a run, in place.
void allpass_stage(allpass* a, int32_t* v, int n) {
  run_chosen<reverb_allpass_run_variants>(a, v, n);
}

// Comb banks and all-pass chains of both channels over a run; S picks the
// comb's sample format (5: working samples, 13: 16-bit).
template <int S>
void network_stereo(reverb_t* r, const int32_t* xl, const int32_t* xr, int32_t* al, int32_t* ar, int n) {
  for (int i = 0; i < n; ++i) al[i] = ar[i] = 0;
  comb_banks<S>(r->comb_left, r->comb_right, xl, xr, al, ar, n);
  for (int k = 0; k < kAllpasses; ++k) {
    allpass_stage(r->allpass_left[k], al, n);
    allpass_stage(r->allpass_right[k], ar, n);
  }
}

// A stereo run: input gain, network, mix, DC blockers. Sample is int32_t
// (working samples, S = 5) or short (S = 13, outputs clamped to 16 bits).
template <int S, class Sample>
void stereo_run(reverb_t* r, const Sample* in_left, const Sample* in_right, Sample* out_left, Sample* out_right,
                int n) {
  int32_t xl[kChunk], xr[kChunk], al[kChunk], ar[kChunk];
  const int32_t gain = r->gain;
  if constexpr (sizeof(Sample) == sizeof(int32_t)) {
    constexpr auto input_gain = run_chosen<gain_run_q13_variants>;
    input_gain(in_left, xl, gain, n);
    input_gain(in_right, xr, gain, n);
  } else {
    for (int i = 0; i < n; ++i) {
      xl[i] = mulq13(in_left[i], gain);
      xr[i] = mulq13(in_right[i], gain);
    }
  }
  network_stereo<S>(r, xl, xr, al, ar, n);
  const int32_t wet1 = r->wet1, wet2 = r->wet2, dry_gain = r->dry_gain;
  int64_t yl = r->dc_left->y1, pl = r->dc_left->x1, yr = r->dc_right->y1, pr = r->dc_right->x1;
  if constexpr (S == 5) {
    // The mixes of the run first (into the wet sums' own arrays), then the
    // DC blockers' recursions.
    constexpr auto mix_run = run_chosen<reverb_mix_variants>;
    const int32_t gains[3] = {wet1, wet2, dry_gain};
    mix_run(gains, al, ar, in_left, in_right, al, ar, n);
    for (int i = 0; i < n; ++i) {
      out_left[i] = dc_remove_out24(dc_remove_tick<5>(yl, pl, al[i]));
      out_right[i] = dc_remove_out24(dc_remove_tick<5>(yr, pr, ar[i]));
    }
  } else {
    for (int i = 0; i < n; ++i) {
      // Inputs are read before the outputs of the same frame are stored, so
      // the buffers may coincide.
      const int32_t ml = mix(wet1, wet2, dry_gain, al[i], ar[i], in_left[i]);
      const int32_t mr = mix(wet1, wet2, dry_gain, ar[i], al[i], in_right[i]);
      out_left[i] = sat16(dc_remove_out16(dc_remove_tick<13>(yl, pl, ml)));
      out_right[i] = sat16(dc_remove_out16(dc_remove_tick<13>(yr, pr, mr)));
    }
  }
  r->dc_left->y1 = yl;
  r->dc_left->x1 = pl;
  r->dc_right->y1 = yr;
  r->dc_right->x1 = pr;
}

void run24(reverb_t* r, const int* in_left, const int* in_right, int* out_left, int* out_right, int n) {
  stereo_run<5>(r, in_left, in_right, out_left, out_right, n);
}

void run16(reverb_t* r, const short* in_left, const short* in_right, short* out_left, short* out_right, int n) {
  stereo_run<13>(r, in_left, in_right, out_left, out_right, n);
}

// The mono path scales the input by gain / 2^14 (half the stereo level) and
// forms its products in 32 bits with wrap-around; left network only, no DC
// blocker.
void run_mono(reverb_t* r, const short* in, short* out, int n) {
  int32_t x[kChunk], acc[kChunk];
  const uint32_t gain = static_cast<uint32_t>(r->gain);
  for (int i = 0; i < n; ++i) {
    x[i] = static_cast<int32_t>(gain * static_cast<uint32_t>(in[i])) >> 14;
    acc[i] = 0;
  }
  comb_bank<13>(r->comb_left, x, acc, n);
  for (int k = 0; k < kAllpasses; ++k) allpass_stage(r->allpass_left[k], acc, n);
  const uint32_t dry_gain = static_cast<uint32_t>(r->dry_gain), wet1 = static_cast<uint32_t>(r->wet1);
  for (int i = 0; i < n; ++i) {
    const uint32_t sum = dry_gain * static_cast<uint32_t>(in[i]) + wet1 * static_cast<uint32_t>(acc[i]);
    out[i] = sat16(static_cast<int32_t>(sum) >> 13);
  }
}

template <class Sample>
void stereo_process(reverb_t* r, const Sample* in_left, const Sample* in_right, Sample* out_left, Sample* out_right,
                    unsigned int count) {
  while (count > 0) {
    const int n = count < static_cast<unsigned int>(kChunk) ? static_cast<int>(count) : kChunk;
    if constexpr (sizeof(Sample) == sizeof(int32_t)) {
      run24(r, in_left, in_right, out_left, out_right, n);
    } else {
      run16(r, in_left, in_right, out_left, out_right, n);
    }
    in_left += n;
    in_right += n;
    out_left += n;
    out_right += n;
    count -= static_cast<unsigned int>(n);
  }
}

bool complete(const reverb_t* r) {
  for (int k = 0; k < kCombs; ++k)
    if (r->comb_left[k] == nullptr || r->comb_right[k] == nullptr) return false;
  return true;
}

}  // namespace

extern "C" {

// A part that cannot be allocated stays null; the comb tuning is then left
// undone (the owner ends the half-built reverb).
void reverb_init(reverb_t* r) {
  for (int k = 0; k < kCombs; ++k) {
    r->comb_left[k] = new_block<comber>(comb_init, kCombLeft[k]);
    r->comb_right[k] = new_block<comber>(comb_init, kCombRight[k]);
  }
  for (int k = 0; k < kAllpasses; ++k) {
    r->allpass_left[k] = new_block<allpass>(allpass_init, kAllpassLeft[k]);
    r->allpass_right[k] = new_block<allpass>(allpass_init, kAllpassRight[k]);
  }
  r->dc_left = new_block<dc_remove>(dc_remove_init);
  r->dc_right = new_block<dc_remove>(dc_remove_init);

  r->wet_gain = 8190;
  r->dry_gain = 0;
  r->feedback = 6945;
  r->damping = 1650;
  r->width = 8192;
  r->gain = 127;
  r->status = 0;
  r->wet = 2730;
  r->dry = 0;
  r->roomsize = 4096;
  r->damp = 4096;
  if (complete(r)) reverb_update(r);
}

void reverb_reset(reverb_t* r) {
  for (int k = 0; k < kCombs; ++k) {
    comb_reset(r->comb_left[k]);
    comb_reset(r->comb_right[k]);
  }
  for (int k = 0; k < kAllpasses; ++k) {
    allpass_reset(r->allpass_left[k]);
    allpass_reset(r->allpass_right[k]);
  }
  dc_remove_reset(r->dc_left);
  dc_remove_reset(r->dc_right);
}

void reverb_end(reverb_t* r) {
  for (int k = 0; k < kCombs; ++k) {
    end_block(r->comb_left[k], comb_end);
    end_block(r->comb_right[k], comb_end);
  }
  for (int k = 0; k < kAllpasses; ++k) {
    end_block(r->allpass_left[k], allpass_end);
    end_block(r->allpass_right[k], allpass_end);
  }
  end_block(r->dc_left, dc_remove_end);
  end_block(r->dc_right, dc_remove_end);
}

// wet1 weights a channel's own reverb, wet2 the other channel's:
// wet * (1 + width) / 2 and wet * (1 - width / 2). At full width the other
// channel's reverb still enters at half level; at width 0 the cross term is
// twice the direct one. The sums are formed in 64 bits.
void reverb_update(reverb_t* r) {
  const int64_t half = r->width / 2;
  r->wet1 = sat32((static_cast<int64_t>(r->wet_gain) * (half + 4096)) >> 13);
  r->wet2 = sat32((static_cast<int64_t>(r->wet_gain) * (8192 - half)) >> 13);
  for (int k = 0; k < kCombs; ++k) {
    comb_setsetdamp(r->comb_left[k], r->damping);
    comb_setsetdamp(r->comb_right[k], r->damping);
    comb_setfeedback(r->comb_left[k], r->feedback);
    comb_setfeedback(r->comb_right[k], r->feedback);
  }
}

// Room size 0 .. 8192 maps to comb feedback 5779 .. 8112 (0.705 .. 0.990).
void reverb_setroomsize(reverb_t* r, int value) {
  r->roomsize = value;
  r->feedback = sat_add(shr_sat<13>(static_cast<int64_t>(value) * 2333), 5779);
}

void reverb_getroomsize(reverb_t* r, int* value) { *value = r->roomsize; }

// Damp 0 .. 8192 maps to the comb's low-pass weight 0 .. 3301 (0.403).
void reverb_setdamp(reverb_t* r, int value) {
  r->damp = value;
  r->damping = shr_sat<13>(static_cast<int64_t>(value) * 3301);
}

void reverb_getdamp(reverb_t* r, int* value) { *value = r->damp; }

void reverb_setwet(reverb_t* r, int value) {
  r->wet = value;
  r->wet_gain = sat32(static_cast<int64_t>(value) * 3);
}

void reverb_getwet(reverb_t* r, int* value) { *value = r->wet; }

void reverb_setdry(reverb_t* r, int value) {
  r->dry = value;
  r->dry_gain = sat32(static_cast<int64_t>(value) * 2);
}

void reverb_getdry(reverb_t* r, int* value) { *value = r->dry; }

void reverb_setwidth(reverb_t* r, int value) { r->width = value; }

void reverb_getwidth(reverb_t* r, int* value) { *value = r->width; }

void reverb_setgain(reverb_t* r, int value) { r->gain = value; }

void reverb_getgain(reverb_t* r, int* value) { *value = r->gain; }

void reverb_setstatus(reverb_t* r, int status) { r->status = status; }

void reverb_getstatus(reverb_t* r, int* status) { *status = r->status; }

void reverb_process_stereo_24(reverb_t* r, int* in_left, int* in_right, int* out_left, int* out_right,
                              unsigned int count) {
  stereo_process(r, in_left, in_right, out_left, out_right, count);
}

void reverb_process_stereo_16(reverb_t* r, short* in_left, short* in_right, short* out_left, short* out_right,
                              unsigned int count) {
  stereo_process(r, in_left, in_right, out_left, out_right, count);
}

void reverb_processMono(reverb_t* r, short* in, short* out, int count) {
  while (count > 0) {
    const int n = count < kChunk ? count : kChunk;
    run_mono(r, in, out, n);
    in += n;
    out += n;
    count -= n;
  }
}

}  // extern "C"
