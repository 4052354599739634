// 256-point integer FFT analysis: Hann window, radix-2 transform, levels in
// dB and peak picking.
//
// Scale: a working sample x (Q23) times the Q28 window, shifted down by 23,
// enters the transform at Q28 scale (a full-scale sample is 2^28). Each of
// the eight butterfly stages halves its outputs, so the spectrum is the DFT
// divided by 256: a full-scale sine centred on a bin gives |X| = 2^28 * 0.5
// (window mean) / 2 = 2^26 there, power 2^52 (the 0 dB reference). All
// values stay below 2^31 in magnitude, well inside the int64 parts.
//
// Twiddles and window come from the canceller's table of -2 cos(pi k / 128)
// in Q28: cos(2 pi k / 256) = -T[k] / 2^29 and sin(2 pi k / 256) =
// cos(2 pi (64 - k) / 256) = -T[|64 - k|] / 2^29.
#include "kafx_proc/fft_int.h"

#include <array>
#include <cstring>

#include "common/dispatch.h"
#include "common/fixed_point.h"
#include "common/lanes_avx2.h"
#include "ktv/fft_int_detail.h"
#include "ktv/howling_canceling_tables.h"

using namespace kafx;

namespace {

constexpr int kN = FFT_INT_SIZE;

// The 8-bit bit reversal of every index, computed at compile time.
constexpr std::array<uint8_t, kN> make_bit_reverse() {
  std::array<uint8_t, kN> t{};
  for (int i = 0; i < kN; ++i) {
    int r = 0;
    for (int b = 0; b < FFT_INT_STAGES; ++b) r |= ((i >> b) & 1) << (FFT_INT_STAGES - 1 - b);
    t[static_cast<size_t>(i)] = static_cast<uint8_t>(r);
  }
  return t;
}
constexpr std::array<uint8_t, kN> kBitReverse = make_bit_reverse();

int bit_reverse8(int i) { return kBitReverse[static_cast<size_t>(i)]; }

// Hann window value of sample n (0 .. 255), Q28.
constexpr int64_t hann_rising(int n) { return (kQ28One >> 1) + (kHowlingCentre[n] >> 2); }  // n = 0 .. 127
constexpr int64_t hann_q28(int n) {
  if (n > kN / 2) n = kN - n;
  if (n == kN / 2) return kQ28One;
  return hann_rising(n);
}

// Mean level of the bins 3 to 5 away from k on both sides (mirrored at 0 and
// 127). Summed in 64 bits: levels from fft_int_level are small, but the peak
// search accepts any int, and the mean of ints is an int.
int32_t surround_level(const int* level, int k) {
  int64_t sum = 0;
  for (int d = 3; d <= 5; ++d) {
    int lo = k - d, hi = k + d;
    if (lo < 0) lo = -lo;
    if (hi > FFT_INT_BINS - 1) hi = 2 * (FFT_INT_BINS - 1) - hi;
    sum += int64_t{level[lo]} + level[hi];
  }
  return static_cast<int32_t>(sum / 6);
}

// W^t = cos - i sin of 2 pi t / 256 (t = 0 .. 127), Q28.
constexpr complex twiddle(int t) {
  complex w;
  w.re = -static_cast<int64_t>(kHowlingCentre[t]) >> 1;
  const int d = 64 - t;
  w.im = static_cast<int64_t>(kHowlingCentre[d < 0 ? -d : d]) >> 1;
  return w;
}

// One radix-2 butterfly with the twiddled lower value p: a, b <- (a + p) / 2,
// (a - p) / 2.
[[gnu::always_inline]] inline void butterfly(complex& a, complex& b, const complex p) {
  const complex x = a;
  a.re = (x.re + p.re) >> 1;
  a.im = (x.im + p.im) >> 1;
  b.re = (x.re - p.re) >> 1;
  b.im = (x.im - p.im) >> 1;
}

// In-place radix-2 decimation-in-time FFT of n (256 or 128) bit-reversed
// values, each stage halving its outputs; the twiddles of an n-point
// transform are every (256 / n)-th of the 256-point ones. W = 1 and W = -i
// need no product (complex_mul would return (re, im) and (im, -re) exactly:
// the values stay below 2^36), so they have loops of their own.
void transform(complex* bins, int n, int stride) {
  // The first two stages need no products (W = 1, and W = 1 and -i): they run
  // together on each group of four values, held in registers.
  for (int g = 0; g < n; g += 4) {
    complex v0 = bins[g], v1 = bins[g + 1], v2 = bins[g + 2], v3 = bins[g + 3];
    butterfly(v0, v1, v1);
    butterfly(v2, v3, v3);
    butterfly(v0, v2, v2);
    butterfly(v1, v3, complex{v3.im, -v3.re});
    bins[g] = v0;
    bins[g + 1] = v1;
    bins[g + 2] = v2;
    bins[g + 3] = v3;
  }
  // The twiddles this transform uses (every stride-th), read in the stages
  // below from this table rather than formed per group.
  complex tw[kN / 2];
  for (int t = 0; t < kN / 2; t += stride) tw[t] = twiddle(t);
  // Later stages, group by group: in a group of 2 half values, pair j takes
  // W^(j step); j = 0 is W = 1 and j = half / 2 is W^64 = -i (step * half is
  // always 128).
  for (int half = 4; half < n; half <<= 1) {
    const int step = (n / 2) / half * stride;
    const int quarter = half / 2;
    for (int g = 0; g < n; g += 2 * half) {
      complex* lo = &bins[g];
      complex* hi = &bins[g + half];
      butterfly(lo[0], hi[0], hi[0]);
      for (int j = 1; j < quarter; ++j) butterfly(lo[j], hi[j], complex_mul_q28(hi[j], tw[j * step]));
      butterfly(lo[quarter], hi[quarter], complex{hi[quarter].im, -hi[quarter].re});
      for (int j = quarter + 1; j < half; ++j) butterfly(lo[j], hi[j], complex_mul_q28(hi[j], tw[j * step]));
    }
  }
}

// One output pair of the real transform's last step: X[k] from Z[k] and
// Z[128 - k] (zc), k = 0 .. 128 (see real_transform).
[[gnu::always_inline]] inline complex split(const complex zk, const complex zc, int k) {
  // The halves of E and O, once more halved: Z is the 128-point DFT / 128,
  // X must be the 256-point DFT / 256.
  const int64_t er = (zk.re + zc.re) >> 2, ei = (zk.im - zc.im) >> 2;
  complex o;
  o.re = (zk.im + zc.im) >> 2;
  o.im = -((zk.re - zc.re) >> 2);
  complex p;
  if (k == kN / 2) {
    p.re = -o.re;  // W^128 = -1
    p.im = -o.im;
  } else {
    p = complex_mul_q28(o, twiddle(k));
  }
  return complex{er + p.re, ei + p.im};
}

// The last step of the real transform: bins[0 .. 255] from the 128-point
// transform z[0 .. 127] (z may be bins). X[k] and X[128 - k] come from the
// same two values Z[k] and Z[128 - k] (k = 0 gives X[0] and X[128] from
// Z[0]), so each pair is formed in place. Bins 129 .. 255 are the conjugate
// mirror.
template <class Z>
[[gnu::always_inline]] inline void split_into(const Z& z, complex* bins) {
  for (int k = 0; k <= kN / 4; ++k) {
    const int m = kN / 2 - k;  // 128 - k
    const complex zk = z[k];
    const complex zm = z[m % (kN / 2)];
    bins[k] = split(zk, zm, k);
    if (m != k) bins[m] = split(zm, zk, m);
  }
  for (int k = kN / 2 + 1; k < kN; ++k) {
    bins[k].re = bins[kN - k].re;
    bins[k].im = -bins[kN - k].im;
  }
}

// The 256-point transform of real windowed samples through one 128-point
// complex transform: z[n] = x[2n] + i x[2n + 1], Z = FFT128(z) / 128, then
//   X[k] = (E[k] + W^k O[k]) / 2,  E = (Z[k] + conj Z[128 - k]) / 2,
//                                  O = (Z[k] - conj Z[128 - k]) / (2 i),
// which is the DFT / 256 as the complex path gives it (to rounding). Bins
// 129 .. 255 are the conjugate mirror.
void real_transform(const int* in, complex* bins) {
  // Pair n into its 7-bit reversed slot, windowed (the window's halves run
  // apart: hann_q28 without its folding).
  const auto put = [&](int n, int64_t w0, int64_t w1) {
    complex& z = bins[kBitReverse[static_cast<size_t>(n)] >> 1];
    z.re = (static_cast<int64_t>(in[2 * n]) * w0) >> 23;
    z.im = (static_cast<int64_t>(in[2 * n + 1]) * w1) >> 23;
  };
  for (int n = 0; n < kN / 4; ++n) put(n, hann_rising(2 * n), hann_rising(2 * n + 1));
  put(kN / 4, kQ28One, hann_rising(kN / 2 - 1));
  for (int n = kN / 4 + 1; n < kN / 2; ++n) put(n, hann_rising(kN - 2 * n), hann_rising(kN - 2 * n - 1));
  transform(bins, kN / 2, 2);
  split_into(bins, bins);
}

#if KAFX_AVX2_VARIANTS
// The AVX2 build of real_transform, for inputs within +-2^23 (a working
// sample's range; anything else takes the scalar path). Then every value
// fits an int32 lane, and the transform runs on separate real and imaginary
// int32 arrays, eight points per vector, computing exactly the integers of
// the scalar path:
//  - windowed samples: |x w| >> 23 <= 2^28;
//  - stages: a butterfly's outputs are at most (1 + sqrt 2) / 2 times its
//    largest input (plus the product's rounding), so after the five stages
//    that multiply they stay below 2^29.4, and every sum before a halving
//    below 2^30.4;
//  - the products (below 2^58) are formed in 64 bits from the even and the
//    odd lanes (_mm256_mul_epi32) and shifted by 28; the low 32 bits of the
//    shifted sum are the value (it fits), which a logical shift also gives;
//  - W = 1 and W = -i go through the same product (exact, as in the scalar
//    path).
// The 128 points are held as 16 vectors. The first four stages (pairs 1, 2,
// 4 and 8 apart) run on layout A, vector r holding points r + 16 l (lane
// l), so that every pair is the same lane of two vectors and one twiddle
// serves a whole vector; two 8 x 8 transposes then give the natural order
// (vector q holding points 8q .. 8q + 7), where the last three stages (16,
// 32 and 64 apart) pair whole vectors with a twiddle per lane.
struct alignas(32) RealTransformTables {  // read with aligned vector loads
  int32_t gather[16][8];  // layout A: windowed-sample index of the real part of point r + 16 l
  int32_t window[kN];     // hann_q28, natural order
  int32_t a_re[16], a_im[16];        // layout-A stages 4 and 8 apart: W^(j 64 / half), j < half (at half + j)
  int32_t b_re[3][64], b_im[3][64];  // stages 16, 32 and 64 apart: W^(j 64 / half), j < half
  int32_t s_re[2][64], s_im[2][64];  // the split: 256-point W^k and W^(128 - k), k = 1 .. 64 (at k - 1)
};

constexpr RealTransformTables make_real_transform_tables() {
  RealTransformTables t{};
  for (int r = 0; r < 16; ++r)
    for (int l = 0; l < 8; ++l) t.gather[r][l] = 2 * (kBitReverse[static_cast<size_t>(r + 16 * l)] >> 1);
  for (int m = 0; m < kN; ++m) t.window[m] = static_cast<int32_t>(hann_q28(m));
  // 128-point twiddle W^e is the 256-point W^(2e).
  for (int half = 4; half <= 8; half <<= 1)
    for (int j = 0; j < half; ++j) {
      const complex w = twiddle(2 * j * (64 / half));
      t.a_re[half + j] = static_cast<int32_t>(w.re);
      t.a_im[half + j] = static_cast<int32_t>(w.im);
    }
  for (int s = 0; s < 3; ++s) {
    const int half = 16 << s;
    for (int j = 0; j < half; ++j) {
      const complex w = twiddle(2 * j * (64 / half));
      t.b_re[s][j] = static_cast<int32_t>(w.re);
      t.b_im[s][j] = static_cast<int32_t>(w.im);
    }
  }
  for (int k = 1; k <= 64; ++k) {
    const complex w = twiddle(k), v = twiddle(kN / 2 - k);
    t.s_re[0][k - 1] = static_cast<int32_t>(w.re);
    t.s_im[0][k - 1] = static_cast<int32_t>(w.im);
    t.s_re[1][k - 1] = static_cast<int32_t>(v.re);
    t.s_im[1][k - 1] = static_cast<int32_t>(v.im);
  }
  return t;
}
// Computed at compile time: constant data, valid before any of the library's
// load-time initialisers runs, and no process call pays for it.
constexpr RealTransformTables kTables = make_real_transform_tables();
// The window rises from 0 to one at the centre, symmetrically; the twiddle
// at 45 degrees (256-point W^32: j = 16 of the stage 64 apart) is
// (1 - i) / sqrt 2, and the one at 90 degrees (j = 32) is -i exactly.
static_assert(kTables.window[0] == 0 && kTables.window[kN / 4] == kQ28One / 2 && kTables.window[kN / 2] == kQ28One);
static_assert(kTables.window[1] == kTables.window[kN - 1] && kTables.window[kN / 2 - 1] == kTables.window[kN / 2 + 1]);
static_assert(kTables.b_re[2][16] == -kTables.b_im[2][16] && kTables.b_re[2][16] == 189812531);
static_assert(kTables.b_re[2][32] == 0 && kTables.b_im[2][32] == -kQ28One);

// (a * b) >> 28 per lane from the 64-bit sums of the even lanes and of the
// odd lanes, each shifted value fitting 32 bits.
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i q28(__m256i even, __m256i odd) {
  return _mm256_blend_epi32(_mm256_srli_epi64(even, 28), _mm256_slli_epi64(odd, 4), 0xaa);
}

// p = h * w (complex, Q28), w given by its real and imaginary lanes.
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void twiddled(__m256i hr, __m256i hi, __m256i wr, __m256i wi,
                                                          __m256i& pr, __m256i& pi) {
  const __m256i hr_o = _mm256_srli_epi64(hr, 32), hi_o = _mm256_srli_epi64(hi, 32);
  const __m256i wr_o = _mm256_srli_epi64(wr, 32), wi_o = _mm256_srli_epi64(wi, 32);
  pr = q28(_mm256_sub_epi64(_mm256_mul_epi32(hr, wr), _mm256_mul_epi32(hi, wi)),
           _mm256_sub_epi64(_mm256_mul_epi32(hr_o, wr_o), _mm256_mul_epi32(hi_o, wi_o)));
  pi = q28(_mm256_add_epi64(_mm256_mul_epi32(hr, wi), _mm256_mul_epi32(hi, wr)),
           _mm256_add_epi64(_mm256_mul_epi32(hr_o, wi_o), _mm256_mul_epi32(hi_o, wr_o)));
}

// a, b <- (a + p) / 2, (a - p) / 2 for vectors lo (a) and hi (b) of the
// real and the imaginary arrays.
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void butterfly8(int32_t* re, int32_t* im, int lo, int hi, __m256i pr,
                                                            __m256i pi) {
  auto* vr = reinterpret_cast<__m256i*>(re);
  auto* vi = reinterpret_cast<__m256i*>(im);
  const __m256i ar = _mm256_load_si256(&vr[lo]), ai = _mm256_load_si256(&vi[lo]);
  _mm256_store_si256(&vr[lo], _mm256_srai_epi32(_mm256_add_epi32(ar, pr), 1));
  _mm256_store_si256(&vi[lo], _mm256_srai_epi32(_mm256_add_epi32(ai, pi), 1));
  _mm256_store_si256(&vr[hi], _mm256_srai_epi32(_mm256_sub_epi32(ar, pr), 1));
  _mm256_store_si256(&vi[hi], _mm256_srai_epi32(_mm256_sub_epi32(ai, pi), 1));
}

// Eight bins from their real and imaginary lanes, as int64 pairs.
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void store_bins(complex* at, __m256i re, __m256i im) {
  const __m256i lo = _mm256_unpacklo_epi32(re, im), hi = _mm256_unpackhi_epi32(re, im);  // points 0 1 4 5, 2 3 6 7
  auto* out = reinterpret_cast<__m256i*>(at);
  _mm256_storeu_si256(&out[0], _mm256_cvtepi32_epi64(_mm256_castsi256_si128(lo)));
  _mm256_storeu_si256(&out[1], _mm256_cvtepi32_epi64(_mm256_castsi256_si128(hi)));
  _mm256_storeu_si256(&out[2], _mm256_cvtepi32_epi64(_mm256_extracti128_si256(lo, 1)));
  _mm256_storeu_si256(&out[3], _mm256_cvtepi32_epi64(_mm256_extracti128_si256(hi, 1)));
}

KAFX_TARGET_AVX2 void real_transform_avx2(const int* in, complex* bins) {
  // Within +-2^23: (in + 2^23) as unsigned at most 2^24.
  __m256i top = _mm256_setzero_si256();
  for (int m = 0; m < kN; m += 8) {
    const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(&in[m]));
    top = _mm256_max_epu32(top, _mm256_add_epi32(x, _mm256_set1_epi32(1 << 23)));
  }
  top = _mm256_max_epu32(top, _mm256_shuffle_epi32(top, 0x4e));
  top = _mm256_max_epu32(top, _mm256_shuffle_epi32(top, 0xb1));
  top = _mm256_max_epu32(top, _mm256_permute2x128_si256(top, top, 1));
  if (static_cast<uint32_t>(_mm256_cvtsi256_si32(top)) > (1u << 24)) {
    real_transform(in, bins);
    return;
  }
  const RealTransformTables& t = kTables;
  // Windowed samples in natural order: (x w) >> 23, which fits 32 bits.
  alignas(32) int32_t win[kN];
  for (int m = 0; m < kN; m += 8) {
    const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(&in[m]));
    const __m256i w = _mm256_load_si256(reinterpret_cast<const __m256i*>(&t.window[m]));
    const __m256i even = _mm256_mul_epi32(x, w);
    const __m256i odd = _mm256_mul_epi32(_mm256_srli_epi64(x, 32), _mm256_srli_epi64(w, 32));
    _mm256_store_si256(reinterpret_cast<__m256i*>(&win[m]),
                       _mm256_blend_epi32(_mm256_srli_epi64(even, 23), _mm256_slli_epi64(odd, 9), 0xaa));
  }
  // Layout A: point r + 16 l in lane l of vector r, the points in bit-reversed order.
  alignas(32) int32_t re[kN / 2], im[kN / 2];
  for (int r = 0; r < 16; ++r) {
    const __m256i g = _mm256_load_si256(reinterpret_cast<const __m256i*>(t.gather[r]));
    _mm256_store_si256(reinterpret_cast<__m256i*>(&re[8 * r]), _mm256_i32gather_epi32(win, g, 4));
    _mm256_store_si256(reinterpret_cast<__m256i*>(&im[8 * r]), _mm256_i32gather_epi32(win + 1, g, 4));
  }
  const auto* vr = reinterpret_cast<const __m256i*>(re);
  const auto* vi = reinterpret_cast<const __m256i*>(im);
  // Pairs 1 apart (W = 1).
  for (int r = 0; r < 16; r += 2) butterfly8(re, im, r, r + 1, vr[r + 1], vi[r + 1]);
  // Pairs 2 apart: W = 1, then W = -i (p = (im, -re)).
  for (int r = 0; r < 16; r += 4) {
    butterfly8(re, im, r, r + 2, vr[r + 2], vi[r + 2]);
    butterfly8(re, im, r + 1, r + 3, vi[r + 3], _mm256_sub_epi32(_mm256_setzero_si256(), vr[r + 3]));
  }
  // Pairs 4 and 8 apart: one twiddle per vector.
  for (int half = 4; half <= 8; half <<= 1)
    for (int r = 0; r < 16; ++r) {
      if ((r & half) != 0) continue;
      const int j = r & (half - 1);
      __m256i pr, pi;
      twiddled(vr[r + half], vi[r + half], _mm256_set1_epi32(t.a_re[half + j]), _mm256_set1_epi32(t.a_im[half + j]),
               pr, pi);
      butterfly8(re, im, r, r + half, pr, pi);
    }
  // To the natural order: vector 2l + b holds points 16 l + 8 b .. + 7,
  // lane c taken from lane l of layout-A vector 8 b + c.
  alignas(32) int32_t nre[kN / 2], nim[kN / 2];
  for (int part = 0; part < 2; ++part) {
    int32_t* dst = part == 0 ? nre : nim;
    const __m256i* src = part == 0 ? vr : vi;
    for (int b = 0; b < 2; ++b) {
      __m256i rows[8];
      KAFX_UNROLL
      for (int c = 0; c < 8; ++c) rows[c] = _mm256_load_si256(&src[8 * b + c]);
      lanes::transpose8(rows);
      KAFX_UNROLL
      for (int l = 0; l < 8; ++l) _mm256_store_si256(reinterpret_cast<__m256i*>(&dst[8 * (2 * l + b)]), rows[l]);
    }
  }
  // Pairs 16, 32 and 64 apart: a twiddle per lane (point 8q + l of a lower
  // vector q takes j = (8q + l) mod 2 half).
  const auto* nvr = reinterpret_cast<const __m256i*>(nre);
  const auto* nvi = reinterpret_cast<const __m256i*>(nim);
  for (int s = 0; s < 3; ++s) {
    const int hv = 2 << s;  // half / 8
    for (int q = 0; q < 16; ++q) {
      if ((q & hv) != 0) continue;
      const int j = 8 * (q & (hv - 1));
      __m256i pr, pi;
      twiddled(nvr[q + hv], nvi[q + hv], _mm256_load_si256(reinterpret_cast<const __m256i*>(&t.b_re[s][j])),
               _mm256_load_si256(reinterpret_cast<const __m256i*>(&t.b_im[s][j])), pr, pi);
      butterfly8(nre, nim, q, q + hv, pr, pi);
    }
  }
  // The split (see split_into), eight k at a time for k = 1 .. 64: X[k] from
  // Z[k] and Z[128 - k], X[128 - k] from the same two, and their conjugate
  // mirrors X[256 - k] and X[128 + k]. (X[64] and X[192] are written twice,
  // alike.) Every sum stays below 2^31.
  const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
  const __m256i zero = _mm256_setzero_si256();
  for (int k = 1; k <= 64; k += 8) {
    const __m256i kr = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(&nre[k]));
    const __m256i ki = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(&nim[k]));
    // Lane l: Z[128 - k - l].
    const __m256i cr =
        _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(&nre[121 - k])), reverse);
    const __m256i ci =
        _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(&nim[121 - k])), reverse);
    const __m256i er = _mm256_srai_epi32(_mm256_add_epi32(kr, cr), 2);
    const __m256i orr = _mm256_srai_epi32(_mm256_add_epi32(ki, ci), 2);
    // X[k]
    {
      const __m256i ei = _mm256_srai_epi32(_mm256_sub_epi32(ki, ci), 2);
      const __m256i oi = _mm256_sub_epi32(zero, _mm256_srai_epi32(_mm256_sub_epi32(kr, cr), 2));
      __m256i pr, pi;
      twiddled(orr, oi, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(&t.s_re[0][k - 1])),
               _mm256_loadu_si256(reinterpret_cast<const __m256i*>(&t.s_im[0][k - 1])), pr, pi);
      const __m256i xr = _mm256_add_epi32(er, pr), xi = _mm256_add_epi32(ei, pi);
      store_bins(&bins[k], xr, xi);
      store_bins(&bins[kN - k - 7], _mm256_permutevar8x32_epi32(xr, reverse),
                 _mm256_permutevar8x32_epi32(_mm256_sub_epi32(zero, xi), reverse));
    }
    // X[128 - k]
    {
      const __m256i ei = _mm256_srai_epi32(_mm256_sub_epi32(ci, ki), 2);
      const __m256i oi = _mm256_sub_epi32(zero, _mm256_srai_epi32(_mm256_sub_epi32(cr, kr), 2));
      __m256i pr, pi;
      twiddled(orr, oi, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(&t.s_re[1][k - 1])),
               _mm256_loadu_si256(reinterpret_cast<const __m256i*>(&t.s_im[1][k - 1])), pr, pi);
      const __m256i xr = _mm256_add_epi32(er, pr), xi = _mm256_add_epi32(ei, pi);
      store_bins(&bins[kN / 2 - k - 7], _mm256_permutevar8x32_epi32(xr, reverse),
                 _mm256_permutevar8x32_epi32(xi, reverse));
      store_bins(&bins[kN / 2 + k], xr, _mm256_sub_epi32(zero, xi));
    }
  }
  const complex z0{nre[0], nim[0]};
  bins[0] = split(z0, z0, 0);
  bins[kN / 2] = split(z0, z0, kN / 2);
}
#endif

void level_baseline(const complex* bins, int* level) {
  // power_level_q8 of every bin, in three passes (see fft_int_detail.h).
  uint64_t power[FFT_INT_BINS];
  uint32_t v[FFT_INT_BINS], y[FFT_INT_BINS];
  int32_t shift[FFT_INT_BINS];
  for (int k = 0; k < FFT_INT_BINS; ++k) {
    power[k] = bin_power(bins[k]);
    const PowerLog s = power_log_start(power[k]);
    v[k] = s.v;
    y[k] = s.y;
    shift[k] = s.shift;
  }
  for (int k = 0; k < FFT_INT_BINS; k += 4) {
    u32x4 vk, yk;
    std::memcpy(&vk, &v[k], sizeof vk);
    std::memcpy(&yk, &y[k], sizeof yk);
    yk = log_q16_factors(vk, yk);
    std::memcpy(&y[k], &yk, sizeof yk);
  }
  for (int k = 0; k < FFT_INT_BINS; ++k) level[k] = power_level_end(power[k], shift[k], static_cast<int32_t>(y[k]));
}

#if KAFX_AVX2_VARIANTS
// Bit length (0 .. 32) of each lane.
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i bit_length(__m256i x) {
  __m256i n = _mm256_setzero_si256();
  KAFX_UNROLL
  for (int s = 16; s >= 1; s >>= 1) {
    const __m256i t = _mm256_srli_epi32(x, s);
    const __m256i nz = _mm256_xor_si256(_mm256_cmpeq_epi32(t, _mm256_setzero_si256()), _mm256_set1_epi32(-1));
    n = _mm256_add_epi32(n, _mm256_and_si256(nz, _mm256_set1_epi32(s)));
    x = _mm256_blendv_epi8(x, t, nz);
  }
  return _mm256_add_epi32(n, x);  // x is 0 or 1 now
}

// The AVX2 build of the levels, eight bins per step, for bins whose parts
// lie within +-2^30 (every spectrum of the analysis of working samples
// does; others take the scalar path). Each lane follows power_level_q8
// exactly: the power (below 2^61)
// as its high and low words, its bit length, the shift below 2^31 and the
// normalisation into [2^30, 2^31) as shifts of those words, the table
// logarithm of the normalisation, the factor steps, and the dB scaling with
// its product in 64 bits.
KAFX_TARGET_AVX2 void level_avx2(const complex* bins, int* level) {
  const auto* words = reinterpret_cast<const __m256i*>(bins);  // two bins per vector
  // Every part within [-2^30, 2^30): part + 2^30 below 2^31.
  __m256i high = _mm256_setzero_si256();
  for (int k = 0; k < FFT_INT_BINS / 2; ++k)
    high = _mm256_or_si256(high, _mm256_add_epi64(_mm256_loadu_si256(&words[k]), _mm256_set1_epi64x(int64_t{1} << 30)));
  if (!_mm256_testz_si256(high, _mm256_set1_epi64x(static_cast<int64_t>(0xFFFFFFFF80000000ull)))) {
    level_baseline(bins, level);
    return;
  }
  using namespace fft_int_detail;
  using namespace fixed_math_detail;
  const __m256i zero = _mm256_setzero_si256(), one = _mm256_set1_epi32(1);
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  for (int k = 0; k < FFT_INT_BINS; k += 8) {
    // Powers of bins k .. k + 7 in the order 0 2 1 3 and 4 6 5 7.
    __m256i p[2];
    for (int h = 0; h < 2; ++h) {
      const __m256i a = _mm256_loadu_si256(&words[k / 2 + 2 * h]);      // re im of two bins
      const __m256i b = _mm256_loadu_si256(&words[k / 2 + 2 * h + 1]);
      const __m256i sa = _mm256_mul_epi32(a, a), sb = _mm256_mul_epi32(b, b);
      p[h] = _mm256_add_epi64(_mm256_unpacklo_epi64(sa, sb), _mm256_unpackhi_epi64(sa, sb));
    }
    // Low and high words, lanes in the order 0 2 4 6 1 3 5 7.
    const __m256i lo = _mm256_unpacklo_epi64(_mm256_shuffle_epi32(p[0], 0x88), _mm256_shuffle_epi32(p[1], 0x88));
    const __m256i hi = _mm256_unpacklo_epi64(_mm256_shuffle_epi32(p[0], 0xdd), _mm256_shuffle_epi32(p[1], 0xdd));
    const __m256i is_zero = _mm256_cmpeq_epi32(_mm256_or_si256(lo, hi), zero);
    const __m256i lo1 = _mm256_or_si256(lo, _mm256_and_si256(is_zero, one));  // a power of 0 is read as 1
    const __m256i hi_nz = _mm256_xor_si256(_mm256_cmpeq_epi32(hi, zero), _mm256_set1_epi32(-1));
    const __m256i bits = _mm256_add_epi32(bit_length(_mm256_blendv_epi8(lo1, hi, hi_nz)),
                                          _mm256_and_si256(hi_nz, _mm256_set1_epi32(32)));
    const __m256i shift = _mm256_max_epi32(_mm256_sub_epi32(bits, _mm256_set1_epi32(31)), zero);
    const __m256i x = _mm256_or_si256(_mm256_sllv_epi32(hi, _mm256_sub_epi32(_mm256_set1_epi32(32), shift)),
                                      _mm256_srlv_epi32(lo1, shift));
    const __m256i n = _mm256_max_epi32(_mm256_sub_epi32(_mm256_set1_epi32(31), bits), zero);
    __m256i v = _mm256_sllv_epi32(x, n);
    __m256i y = _mm256_i32gather_epi32(reinterpret_cast<const int*>(kShiftLogs.data()), n, 4);
    KAFX_UNROLL
    for (int f = 1; f <= 7; ++f) {
      const __m256i t = _mm256_add_epi32(v, _mm256_srli_epi32(v, f));
      const __m256i take = _mm256_cmpgt_epi32(t, _mm256_set1_epi32(-1));  // top bit clear
      v = _mm256_blendv_epi8(v, t, take);
      y = _mm256_sub_epi32(y, _mm256_and_si256(take, _mm256_set1_epi32(kLnOnePlus[f - 1])));
    }
    y = _mm256_sub_epi32(y, _mm256_srli_epi32(_mm256_sub_epi32(_mm256_set1_epi32(INT32_MIN), v), 15));
    const __m256i ln = _mm256_add_epi32(_mm256_add_epi32(y, _mm256_set1_epi32(kLnQ16Of65536)),
                                        _mm256_mullo_epi32(shift, _mm256_set1_epi32(kLn2Q16)));
    const __m256i d = _mm256_sub_epi32(ln, _mm256_set1_epi32(kReferenceLnQ16));
    const __m256i scale = _mm256_set1_epi32(kDbPerLnQ16);
    const __m256i even = _mm256_mul_epi32(d, scale), odd = _mm256_mul_epi32(_mm256_srli_epi64(d, 32), scale);
    __m256i db = _mm256_blend_epi32(_mm256_srli_epi64(even, 16), _mm256_slli_epi64(odd, 16), 0xaa);
    db = _mm256_max_epi32(db, _mm256_set1_epi32(FFT_INT_LEVEL_FLOOR));
    db = _mm256_blendv_epi8(db, _mm256_set1_epi32(FFT_INT_LEVEL_FLOOR), is_zero);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(&level[k]), _mm256_permutevar8x32_epi32(db, order));
  }
}
#endif

}  // namespace

namespace kafx {
const KernelVariants<FftRealTransform> fft_int_real_transform_variants = {
    "fft_int_real_transform", {real_transform, KAFX_AVX2_ONLY(real_transform_avx2)}};
const KernelVariants<FftLevel> fft_int_level_variants = {"fft_int_level", {level_baseline, KAFX_AVX2_ONLY(level_avx2)}};
}  // namespace kafx

extern "C" {

void fft_int_window(const int* in, complex* bins) {
  for (int n = 0; n < kN; ++n) {
    complex& z = bins[bit_reverse8(n)];
    z.re = (static_cast<int64_t>(in[n]) * hann_q28(n)) >> 23;
    z.im = 0;
  }
}

void fft_int_bitreverse(complex* bins) {
  for (int i = 0; i < kN; ++i) {
    const int r = bit_reverse8(i);
    if (i < r) complex_swap(&bins[i], &bins[r]);
  }
}

void fft_int_transform(complex* bins) { transform(bins, kN, 1); }

void fft_int_level(const complex* bins, int* level) {
  run_chosen<fft_int_level_variants>(bins, level);
}

int fft_int_find_peaks(const int* level, int* peaks) {
  int n = 0;
  for (int i = 0; i < FFT_INT_MAX_PEAKS; ++i) peaks[i] = FFT_INT_NO_PEAK;
  for (int k = 1; k < FFT_INT_NO_PEAK; ++k) {
    const int v = level[k];
    // One branch for the three tests (each alone would be taken at random on
    // a noisy spectrum).
    const bool local_max = (v > level[k - 1]) & (v >= level[k + 1]) & (v >= FFT_INT_PEAK_MIN_LEVEL);
    if (!local_max) continue;
    if (int64_t{v} - surround_level(level, k) < FFT_INT_PEAK_PROMINENCE) continue;
    // Insert by level, loudest first; the quietest falls off the end.
    int pos = n < FFT_INT_MAX_PEAKS ? n : FFT_INT_MAX_PEAKS - 1;
    if (n == FFT_INT_MAX_PEAKS && v <= level[peaks[pos]]) continue;
    while (pos > 0 && level[peaks[pos - 1]] < v) {
      peaks[pos] = peaks[pos - 1];
      --pos;
    }
    peaks[pos] = k;
    if (n < FFT_INT_MAX_PEAKS) ++n;
  }
  return n;
}

int fft_int_refine(const complex* bins, int k) {
  if (k < 1 || k > FFT_INT_BINS - 2) return k * 256;
  const uint64_t pk = bin_power(bins[k]);
  const uint64_t pl = bin_power(bins[k - 1]);
  const uint64_t pr = bin_power(bins[k + 1]);
  // Bin 0 holds the sine's mirror image at -f as much as the sine: next to
  // it only the upper neighbour is trusted.
  const bool right = pr >= pl || k == 1;
  const uint64_t pn = right ? pr : pl;
  const uint64_t top = pk > pn ? pk : pn;
  // A common even shift brings both powers into 32 bits: the magnitudes
  // scale alike and their ratio is kept.
  int shift = 0;
  while ((top >> shift) > 0xFFFFFFFFULL) shift += 2;
  uint32_t rem = 0;
  const int64_t a1 = isqrt_digits(static_cast<uint32_t>(pk >> shift), 1u << 30, &rem);
  const int64_t a2 = isqrt_digits(static_cast<uint32_t>(pn >> shift), 1u << 30, &rem);
  if (a1 + a2 == 0) return k * 256;
  int64_t d = ((2 * a2 - a1) * 256) / (a1 + a2);
  if (d < 0) d = 0;
  if (d > 128) d = 128;
  return k * 256 + static_cast<int>(right ? d : -d);
}

int fft_int_analyze(const int* in, complex* bins, int* level, int* peaks) {
  run_chosen<fft_int_real_transform_variants>(in, bins);
  fft_int_level(bins, level);
  return fft_int_find_peaks(level, peaks);
}

}  // extern "C"
