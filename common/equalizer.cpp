// Graphic equalizer: per channel a Q13 input gain and ten Q28 biquad
// sections in cascade (low shelf, eight octave peaks, high shelf), the same
// bands on both channels. Bands come from the built-in gain-step tables
// (common/equalizer_tables.cpp) or as raw coefficient sets.
#include "kafx_proc/equalizer.h"

#include <cstdlib>

#include "common/lifecycle.h"
#include "common/biquad.h"
#include "common/equalizer_tables.h"

#if KAFX_DISPATCH
#include <immintrin.h>
#endif

using namespace kafx;

namespace {

constexpr int kBands = EQUALIZER_BANDS;
constexpr int32_t kPassThrough[5] = {kQ28One, 0, 0, 0, 0};

IIR_t* new_section() {
  auto* s = kafx::alloc_record<IIR_t>();
  if (s != nullptr) IIR_init(s, kPassThrough);
  return s;
}

void free_section(IIR_t*& s) {
  if (s != nullptr) IIR_end(s);
  kafx::free_null(s);
}

int clamp_index(int i) {
  return i > EQUALIZER_MAX_INDEX ? EQUALIZER_MAX_INDEX : (i < -EQUALIZER_MAX_INDEX ? -EQUALIZER_MAX_INDEX : i);
}

// Table 0 = 44100 Hz, 1 = 48000 Hz, 2 = 96000 Hz.
void set_from_table(equalizer_t* eq, const int* indices, int table) {
  for (int b = 0; b < kBands; ++b) {
    const int i = clamp_index(indices[b]);
    eq->band_index[b] = i;
    const int32_t* row = kEqualizerTables[table][b][i + EQUALIZER_MAX_INDEX];
    IIR_set_param(eq->left_band[b], row);
    IIR_set_param(eq->right_band[b], row);
  }
}

#if KAFX_DISPATCH
// The cascades as one wavefront in AVX2 lanes. In stereo the twenty sections
// are lanes 0..19 (left bands 0..9, then right bands 0..9), in mono the ten
// left sections are lanes 0..9 (lanes 10 and 11 idle: zero coefficients,
// their outputs never read); four 64-bit lanes per vector. At step t the section of band k works on sample t - k, taking as
// input what band k - 1 produced at step t - 1. All the recursions thus
// advance together and each section still sees its samples in order, with
// exactly the per-sample arithmetic of the biquad section:
//   x0 = in x 32 saturated; acc = b0 x0 + b1 x1 + b2 x2 + a1 y1 + a2 y2 (64-bit,
//   wrapping); y = sat32(acc >> 28), -1 -> 0; out = y >> 5.
// Only the low 32 bits of each lane carry a value (the 32x32->64 multiply
// reads only those), so the upper halves may hold anything. Steps where a
// lane has no sample yet (the first nine) or no more (the last nine) keep
// that lane's state unchanged.
template <int kVecs>
struct Wavefront {
  __m256i b0[kVecs], b1[kVecs], b2[kVecs], a1[kVecs], a2[kVecs];
  __m256i x1[kVecs], x2[kVecs], y1[kVecs], y2[kVecs], out[kVecs];
  __m256i band[kVecs];  // band index k of each lane
};

template <int kVecs, bool Masked>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void wave_step(Wavefront<kVecs>& w, int32_t xl, int32_t xr, int t,
                                                               int n) {
  const __m256i hi_in = _mm256_set1_epi32(INT32_MAX >> 5);
  const __m256i lo_in = _mm256_set1_epi32(INT32_MIN >> 5);
  const __m256i max32 = _mm256_set1_epi64x(INT32_MAX);
  const __m256i min32 = _mm256_set1_epi64x(static_cast<int64_t>(static_cast<uint32_t>(INT32_MIN)));
  const __m256i acc_hi = _mm256_set1_epi64x((int64_t{1} << 59) - 1);
  const __m256i acc_lo = _mm256_set1_epi64x(-(int64_t{1} << 59));
  const __m256i minus1 = _mm256_set1_epi32(-1);
  // Inputs: every lane takes the previous step's output of the lane below;
  // lane 0 and, in stereo, lane 10 (vector 2, lane 2) take the new samples.
  __m256i in[kVecs];
  in[0] = _mm256_blend_epi32(_mm256_permute4x64_epi64(w.out[0], _MM_SHUFFLE(2, 1, 0, 3)), _mm256_set1_epi32(xl), 0x03);
  for (int j = 1; j < kVecs; ++j) {
    in[j] = _mm256_blend_epi32(_mm256_permute4x64_epi64(w.out[j], _MM_SHUFFLE(2, 1, 0, 3)),
                               _mm256_permute4x64_epi64(w.out[j - 1], _MM_SHUFFLE(3, 3, 3, 3)), 0x03);
  }
  if constexpr (kVecs == 5) {
    in[2] = _mm256_blend_epi32(in[2], _mm256_set1_epi32(xr), 0x30);
  } else {
    (void)xr;
  }
  __m256i valid = minus1;
  for (int j = 0; j < kVecs; ++j) {
    if constexpr (Masked) {
      // Lane of band k is live when 0 <= t - k < n.
      valid = _mm256_and_si256(_mm256_cmpgt_epi64(_mm256_set1_epi64x(t + 1), w.band[j]),
                               _mm256_cmpgt_epi64(w.band[j], _mm256_set1_epi64x(static_cast<int64_t>(t) - n)));
    }
    const __m256i v = in[j];
    __m256i x0 = _mm256_slli_epi32(_mm256_max_epi32(v, lo_in), 5);
    x0 = _mm256_blendv_epi8(x0, max32, _mm256_cmpgt_epi32(v, hi_in));
    __m256i acc = _mm256_mul_epi32(w.b0[j], x0);
    acc = _mm256_add_epi64(acc, _mm256_mul_epi32(w.b1[j], w.x1[j]));
    acc = _mm256_add_epi64(acc, _mm256_mul_epi32(w.b2[j], w.x2[j]));
    acc = _mm256_add_epi64(acc, _mm256_mul_epi32(w.a1[j], w.y1[j]));
    acc = _mm256_add_epi64(acc, _mm256_mul_epi32(w.a2[j], w.y2[j]));
    __m256i y = _mm256_srli_epi64(acc, 28);
    y = _mm256_blendv_epi8(y, max32, _mm256_cmpgt_epi64(acc, acc_hi));
    y = _mm256_blendv_epi8(y, min32, _mm256_cmpgt_epi64(acc_lo, acc));
    y = _mm256_andnot_si256(_mm256_cmpeq_epi32(y, minus1), y);
    const __m256i o = _mm256_srai_epi32(y, 5);
    if constexpr (Masked) {
      w.x2[j] = _mm256_blendv_epi8(w.x2[j], w.x1[j], valid);
      w.x1[j] = _mm256_blendv_epi8(w.x1[j], x0, valid);
      w.y2[j] = _mm256_blendv_epi8(w.y2[j], w.y1[j], valid);
      w.y1[j] = _mm256_blendv_epi8(w.y1[j], y, valid);
      w.out[j] = _mm256_blendv_epi8(w.out[j], o, valid);
    } else {
      w.x2[j] = w.x1[j];
      w.x1[j] = x0;
      w.y2[j] = w.y1[j];
      w.y1[j] = y;
      w.out[j] = o;
    }
  }
}

// sec holds the ten left sections, in stereo followed by the ten right ones
// (kVecs 5 = stereo, 3 = mono; right is unused in mono).
template <int kVecs>
KAFX_TARGET_AVX2 void cascades_avx2(IIR_t* const* sec, int32_t* left, int32_t* right, int n) {
  constexpr int kLanes = 4 * kVecs;
  constexpr int kUsed = kVecs == 5 ? 2 * kBands : kBands;
  alignas(32) int64_t lanes[11][kLanes] = {};
  for (int i = 0; i < kUsed; ++i) {
    const IIR_t* f = sec[i];
    for (int c = 0; c < 5; ++c) lanes[c][i] = f->coef[c];
    for (int h = 1; h < 5; ++h) lanes[4 + h][i] = f->state[h];  // x1, x2, y1, y2
  }
  for (int i = 0; i < kLanes; ++i) lanes[10][i] = i % kBands;
  Wavefront<kVecs> w;
  __m256i* dst[11] = {w.b0, w.b1, w.b2, w.a1, w.a2, w.x1, w.x2, w.y1, w.y2, w.out, w.band};
  for (int q = 0; q < 11; ++q) {
    for (int j = 0; j < kVecs; ++j) dst[q][j] = _mm256_load_si256(reinterpret_cast<const __m256i*>(&lanes[q][4 * j]));
  }
  const int last = kBands - 1;
  for (int t = 0; t < n + last; ++t) {
    const int32_t xl = t < n ? left[t] : 0;
    const int32_t xr = kVecs == 5 && t < n ? right[t] : 0;
    if (t >= last && t < n) {
      wave_step<kVecs, false>(w, xl, xr, t, n);
    } else {
      wave_step<kVecs, true>(w, xl, xr, t, n);
    }
    if (t >= last) {
      left[t - last] = _mm256_extract_epi32(w.out[2], 2);  // lane 9: left band 9
      if constexpr (kVecs == 5) right[t - last] = _mm256_extract_epi32(w.out[4], 6);  // lane 19: right band 9
    }
  }
  for (int q = 5; q < 9; ++q) {
    for (int j = 0; j < kVecs; ++j) _mm256_store_si256(reinterpret_cast<__m256i*>(&lanes[q][4 * j]), dst[q][j]);
  }
  for (int i = 0; i < kUsed; ++i) {
    int32_t* st = sec[i]->state;
    for (int h = 1; h < 5; ++h) st[h] = static_cast<int32_t>(lanes[4 + h][i]);
    st[0] = st[1];  // word 0 holds the last input
  }
}

bool wavefront_available(const equalizer_t* eq, bool stereo) {
  if (!__builtin_cpu_supports("avx2")) return false;
  // A section switched off by hand passes its input through; the wavefront
  // does not model that, so such a cascade takes the section-wise path.
  for (int b = 0; b < kBands; ++b) {
    if (eq->left_band[b]->status == 0 || (stereo && eq->right_band[b]->status == 0)) return false;
  }
  return true;
}
#endif

}  // namespace

extern "C" {

void equalizer_init(equalizer_t* eq) {
  eq->status = 0;
  eq->gain = kQ13One;
  for (int b = 0; b < kBands; ++b) {
    eq->band_index[b] = 0;
    eq->left_band[b] = new_section();
    eq->right_band[b] = new_section();
  }
}

void equalizer_reset(equalizer_t* eq) {
  for (int b = 0; b < kBands; ++b) {
    IIR_reset(eq->left_band[b]);
    IIR_reset(eq->right_band[b]);
  }
}

void equalizer_end(equalizer_t* eq) {
  for (int b = 0; b < kBands; ++b) {
    eq->band_index[b] = 0;
    free_section(eq->left_band[b]);
    free_section(eq->right_band[b]);
  }
}

void equalizer_setparameter(equalizer_t* eq, const int (*coef)[5]) {
  for (int b = 0; b < kBands; ++b) {
    IIR_set_param(eq->left_band[b], coef[b]);
    IIR_set_param(eq->right_band[b], coef[b]);
  }
}

// Read from the left cascade and then again from the right one into the
// same place, so the caller gets the right cascade's coefficients.
void equalizer_getparameter(equalizer_t* eq, int (*coef)[5]) {
  for (int b = 0; b < kBands; ++b) {
    IIR_get_param(eq->left_band[b], coef[b]);
    IIR_get_param(eq->right_band[b], coef[b]);
  }
}

void equalizer_set_param_index_44100(equalizer_t* eq, const int* indices) { set_from_table(eq, indices, 0); }
void equalizer_set_param_index_48000(equalizer_t* eq, const int* indices) { set_from_table(eq, indices, 1); }
void equalizer_set_param_index_96000(equalizer_t* eq, const int* indices) { set_from_table(eq, indices, 2); }

void equalizer_set_param_index(equalizer_t* eq, const int* indices, SampleRateType rate) {
  if (rate == SAMPLE_RATE_44100) {
    equalizer_set_param_index_44100(eq, indices);
  } else if (rate == SAMPLE_RATE_96000) {
    equalizer_set_param_index_96000(eq, indices);
  } else {
    equalizer_set_param_index_48000(eq, indices);
  }
}

void equalizer_get_param_index(equalizer_t* eq, int* indices) {
  for (int b = 0; b < kBands; ++b) indices[b] = eq->band_index[b];
}

// Block-wise: the gain stage over the whole block, then each band over the
// whole block with the left and right sections side by side. Each section
// still sees its samples in order and the channels never mix, so this is
// exactly the per-sample cascade.
void equalizer_process_stereo(equalizer_t* eq, int* in_left, int* in_right, int* out_left, int* out_right,
                              int count) {
  for (int i = 0; i < count; ++i) {
    const int32_t l = in_left[i];
    const int32_t r = in_right[i];
    out_left[i] = mulq13(l, eq->gain);
    out_right[i] = mulq13(r, eq->gain);
  }
#if KAFX_DISPATCH
  if (count > 0 && wavefront_available(eq, true)) {
    IIR_t* sec[2 * kBands];
    for (int b = 0; b < kBands; ++b) sec[b] = eq->left_band[b], sec[kBands + b] = eq->right_band[b];
    cascades_avx2<5>(sec, out_left, out_right, count);
    return;
  }
#endif
  for (int b = 0; b < kBands; ++b) biquad_block32_pair(eq->left_band[b], out_left, eq->right_band[b], out_right, count);
}

void equalizer_process_mono(equalizer_t* eq, int* in, int* out, int count) {
  for (int i = 0; i < count; ++i) out[i] = mulq13(in[i], eq->gain);
#if KAFX_DISPATCH
  if (count > 0 && wavefront_available(eq, false)) {
    cascades_avx2<3>(eq->left_band, out, nullptr, count);
    return;
  }
#endif
  for (int b = 0; b < kBands; ++b) biquad_block32(eq->left_band[b], out, count);
}

}  // extern "C"
