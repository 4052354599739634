// Cascades and band splits of 32-bit biquad sections: the section-after-
// section references and the AVX2 wavefront (see common/biquad_cascade.h).
#include "common/biquad_cascade.h"

#include <type_traits>

#include "common/biquad.h"
#include "common/biquad_neon.h"
#include "common/lanes_avx2.h"

namespace kafx {
namespace {

inline uint64_t square_wrap(int32_t v) { return static_cast<uint64_t>(static_cast<int64_t>(v) * v); }

// The reference: each section over the whole block, left and right side by
// side while both cascades have sections left.
void cascade_sectionwise(IIR_t* const* left, int nl, int32_t* l, IIR_t* const* right, int nr, int32_t* r, int n) {
  const int both = nl < nr ? nl : nr;
  for (int k = 0; k < both; ++k) biquad_block32_pair(left[k], l, right[k], r, n);
  for (int k = both; k < nl; ++k) biquad_block32(left[k], l, n);
  for (int k = both; k < nr; ++k) biquad_block32(right[k], r, n);
}

// The band split's reference: each stage's section over a chunk of the
// remainders, then the squares and the new remainders.
void split_sectionwise(IIR_t* const* left, const int32_t* l, uint64_t* energy_left, IIR_t* const* right,
                       const int32_t* r, uint64_t* energy_right, int count, int n) {
  constexpr int kChunk = 256;
  int32_t rest[2][kChunk];
  int32_t low[2][kChunk];
  const int32_t* x[2] = {l, r};
  uint64_t* energy[2] = {energy_left, energy_right};
  for (int done = 0; done < n; done += kChunk) {
    const int m = n - done < kChunk ? n - done : kChunk;
    for (int c = 0; c < 2; ++c)
      for (int i = 0; i < m; ++i) rest[c][i] = x[c][done + i];
    for (int k = 0; k < count; ++k) {
      for (int c = 0; c < 2; ++c)
        for (int i = 0; i < m; ++i) low[c][i] = rest[c][i];
      biquad_block32_pair(left[k], low[0], right[k], low[1], m);
      for (int c = 0; c < 2; ++c) {
        uint64_t acc = 0;
        for (int i = 0; i < m; ++i) {
          acc += square_wrap(low[c][i]);
          rest[c][i] = sat_sub(rest[c][i], low[c][i]);
        }
        energy[c][k] += acc;
      }
    }
    for (int c = 0; c < 2; ++c) {
      uint64_t acc = 0;
      for (int i = 0; i < m; ++i) acc += square_wrap(rest[c][i]);
      energy[c][count] += acc;
    }
  }
}

// The crossover chain's reference: stage after stage, the four branch
// recursions of a stage side by side, first sections then second sections.
void crossover_stagewise(const CrossoverStage* left, const CrossoverStage* right, int stages, int32_t* xl,
                         int32_t* xr, int32_t* const* low_l, int32_t* const* low_r, int n) {
  if (n <= 0) return;
  for (int k = 0; k < stages; ++k) {
    for (int i = 0; i < n; ++i) {
      low_l[k][i] = xl[i];
      low_r[k][i] = xr[i];
    }
    int32_t* buf[4] = {low_l[k], xl, low_r[k], xr};
    for (int s = 0; s < 2; ++s) {
      IIR_t* f[4] = {left[k].a[s], left[k].b[s], right[k].a[s], right[k].b[s]};
      biquad_block32_multi(f, buf, 4, n);
    }
  }
}

#if KAFX_AVX2_VARIANTS

// The wavefront. Every section is one 64-bit lane, four lanes per vector.
// A channel owns C consecutive lanes (mono: all of them; stereo: lanes
// 0..C-1 left, C..2C-1 right) and puts its m working sections in its last m
// lanes, in order; the lanes before them are bypass lanes that hand their
// input on unchanged. At step t the lane at position p of its channel works
// on sample t - p, taking as input what the lane before it produced at step
// t - 1 (the first lane of a channel takes the new sample). All recursions
// thus advance together, each section still sees its samples in order, and
// each channel's output leaves its last lane C - 1 steps after its input
// entered. The per-lane arithmetic is the section's own:
//   x0 = in x 32 saturated; acc = b0 x0 + b1 x1 + b2 x2 + a1 y1 + a2 y2 (64-bit,
//   wrapping); y = sat32(acc >> 28), -1 -> 0; out = y >> 5.
// Only the low 32 bits of a lane carry a value (the 32x32->64 multiply reads
// only those). In the first and last C - 1 steps some lanes have no sample
// (yet, or any more); those lanes keep their state.
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i load4(const int64_t* p) {
  return _mm256_load_si256(reinterpret_cast<const __m256i*>(p));
}
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void store4(int64_t* p, __m256i v) {
  _mm256_store_si256(reinterpret_cast<__m256i*>(p), v);
}

template <int kVecs>
struct Wavefront {
  __m256i b0[kVecs], b1[kVecs], b2[kVecs], a1[kVecs], a2[kVecs];
  __m256i x1[kVecs], x2[kVecs], y1[kVecs], y2[kVecs], out[kVecs];
  __m256i pos[kVecs];     // position p of each lane in its channel
  __m256i bypass[kVecs];  // all ones in bypass lanes
  __m256i energy[kVecs];  // band split: sums of the squared outputs
};

// Every lane of a chain takes the previous step's output of the lane below
// it; the first lane of each channel takes that channel's new sample.
// kRight: first lane of the right channel (its capacity C), 0 in mono.
template <int kVecs, int kRight>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void route_chain(const Wavefront<kVecs>& w, int32_t xl, int32_t xr,
                                                                 __m256i* in) {
  in[0] = _mm256_blend_epi32(_mm256_permute4x64_epi64(w.out[0], _MM_SHUFFLE(2, 1, 0, 3)), _mm256_set1_epi32(xl), 0x03);
  KAFX_UNROLL
  for (int j = 1; j < kVecs; ++j) {
    in[j] = _mm256_blend_epi32(_mm256_permute4x64_epi64(w.out[j], _MM_SHUFFLE(2, 1, 0, 3)),
                               _mm256_permute4x64_epi64(w.out[j - 1], _MM_SHUFFLE(3, 3, 3, 3)), 0x03);
  }
  if constexpr (kRight > 0) {
    in[kRight / 4] = _mm256_blend_epi32(in[kRight / 4], _mm256_set1_epi32(xr), 0x3 << (2 * (kRight % 4)));
  } else {
    (void)xr;
  }
}

// One step of every lane on its input in[]: the section's arithmetic above.
// kSplit: the band-split form (see run_split below) instead of a cascade.
// kScaled: lanes hand on a section's y with its low five bits cleared (its
// output y >> 5, times 32) and take what they are handed as their x0 as it
// is: shl_sat<5>(y >> 5) never saturates, since |y >> 5| <= 2^26. The
// channel's sample then enters as shl_sat<5>(x) and leaves shifted back,
// which needs a working section in the channel's last lane (a cascade's
// layout); bypass lanes hand on their input in either form.
// kBypass: false when no lane is a bypass lane (the blend is then skipped).
// kOdd: the two history rows of x (and of y) swap roles every step instead
// of being copied: at an even step x1 is in w.x1 and x2 in w.x2, and the new
// x0 is written over x2, where the odd step finds it as its x1.
template <int kVecs, bool kMasked, bool kSplit, bool kScaled, bool kBypass, bool kOdd>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void wave_step(Wavefront<kVecs>& w, const __m256i* in, int t, int n) {
  static_assert(!(kSplit && kScaled), "the band split hands on remainders");
  __m256i(&x1)[kVecs] = kOdd ? w.x2 : w.x1;
  __m256i(&x2)[kVecs] = kOdd ? w.x1 : w.x2;
  __m256i(&y1)[kVecs] = kOdd ? w.y2 : w.y1;
  __m256i(&y2)[kVecs] = kOdd ? w.y1 : w.y2;
  KAFX_UNROLL
  for (int j = 0; j < kVecs; ++j) {
    const __m256i v = in[j];
    const __m256i x0 = kScaled ? v : lanes::shl_sat<5>(v);
    // The terms of the history first: only the newest input's product is
    // on the path from one lane to the next (the sum wraps, so the order
    // does not change it).
    const __m256i hist = _mm256_add_epi64(
        _mm256_add_epi64(_mm256_mul_epi32(w.b1[j], x1[j]), _mm256_mul_epi32(w.b2[j], x2[j])),
        _mm256_add_epi64(_mm256_mul_epi32(w.a1[j], y1[j]), _mm256_mul_epi32(w.a2[j], y2[j])));
    const __m256i acc = _mm256_add_epi64(hist, _mm256_mul_epi32(w.b0[j], x0));
    const __m256i y = lanes::flush_m1(lanes::product_shr_sat<28>(acc));
    const __m256i own = kScaled ? _mm256_and_si256(y, _mm256_set1_epi32(~31)) : _mm256_srai_epi32(y, 5);
    const __m256i o = kBypass ? _mm256_blendv_epi8(own, v, w.bypass[j]) : own;
    // What the lane hands on: its output, or in the band split the
    // remainder v - o saturated to 32 bits.
    __m256i hand = o;
    __m256i sq = _mm256_setzero_si256();
    if constexpr (kSplit) {
      hand = lanes::sat_sub(v, o);
      sq = _mm256_mul_epi32(o, o);
    }
    if constexpr (kMasked) {
      // A lane at position p is live when 0 <= t - p < n.
      const __m256i live = _mm256_and_si256(_mm256_cmpgt_epi64(_mm256_set1_epi64x(t + 1), w.pos[j]),
                                            _mm256_cmpgt_epi64(w.pos[j], _mm256_set1_epi64x(int64_t{t} - n)));
      // After the swap of roles a lane without a sample must find its x1 in
      // the x2 row and its x2 in the x1 row.
      const __m256i ox1 = x1[j], oy1 = y1[j];
      x1[j] = _mm256_blendv_epi8(x2[j], ox1, live);
      x2[j] = _mm256_blendv_epi8(ox1, x0, live);
      y1[j] = _mm256_blendv_epi8(y2[j], oy1, live);
      y2[j] = _mm256_blendv_epi8(oy1, y, live);
      w.out[j] = _mm256_blendv_epi8(w.out[j], hand, live);
      if constexpr (kSplit) w.energy[j] = _mm256_add_epi64(w.energy[j], _mm256_and_si256(sq, live));
    } else {
      x2[j] = x0;
      y2[j] = y;
      w.out[j] = hand;
      if constexpr (kSplit) w.energy[j] = _mm256_add_epi64(w.energy[j], sq);
    }
  }
}

// After an odd number of steps the rows of x1 and x2 (y1 and y2) have
// changed roles (see wave_step): back to their places.
template <int kVecs>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void swap_history(Wavefront<kVecs>& w) {
  KAFX_UNROLL
  for (int j = 0; j < kVecs; ++j) {
    const __m256i x = w.x1[j], y = w.y1[j];
    w.x1[j] = w.x2[j], w.y1[j] = w.y2[j];
    w.x2[j] = x, w.y2[j] = y;
  }
}

// One lane's section (null for a bypass lane).
struct LaneMap {
  IIR_t* section[24] = {};  // up to six vectors
};

// The lanes' coefficients and states in and out of their sections. words
// rows: b0 b1 b2 a1 a2, x1 x2 y1 y2, position, bypass.
template <int kVecs>
using LaneWords = int64_t[11][4 * kVecs];

template <int kVecs>
KAFX_TARGET_AVX2 void load_lanes(const LaneMap& map, LaneWords<kVecs>& words, Wavefront<kVecs>& w) {
  for (int i = 0; i < 4 * kVecs; ++i) {
    const IIR_t* f = map.section[i];
    if (f == nullptr) {
      words[10][i] = -1;
      continue;
    }
    for (int c = 0; c < 5; ++c) words[c][i] = f->coef[c];
    for (int h = 1; h < 5; ++h) words[4 + h][i] = f->state[h];  // x1, x2, y1, y2
  }
  // Every index below is a constant once the loops are unrolled, so the
  // lanes can live in registers.
  KAFX_UNROLL
  for (int j = 0; j < kVecs; ++j) {
    w.b0[j] = load4(&words[0][4 * j]), w.b1[j] = load4(&words[1][4 * j]), w.b2[j] = load4(&words[2][4 * j]);
    w.a1[j] = load4(&words[3][4 * j]), w.a2[j] = load4(&words[4][4 * j]);
    w.x1[j] = load4(&words[5][4 * j]), w.x2[j] = load4(&words[6][4 * j]);
    w.y1[j] = load4(&words[7][4 * j]), w.y2[j] = load4(&words[8][4 * j]);
    w.pos[j] = load4(&words[9][4 * j]), w.bypass[j] = load4(&words[10][4 * j]);
    w.out[j] = w.energy[j] = _mm256_setzero_si256();
  }
}

template <int kVecs>
KAFX_TARGET_AVX2 void store_lanes(const LaneMap& map, LaneWords<kVecs>& words, const Wavefront<kVecs>& w) {
  KAFX_UNROLL
  for (int j = 0; j < kVecs; ++j) {
    store4(&words[5][4 * j], w.x1[j]), store4(&words[6][4 * j], w.x2[j]);
    store4(&words[7][4 * j], w.y1[j]), store4(&words[8][4 * j], w.y2[j]);
  }
  for (int i = 0; i < 4 * kVecs; ++i) {
    IIR_t* f = map.section[i];
    if (f == nullptr) continue;
    int32_t* st = f->state;
    for (int h = 1; h < 5; ++h) st[h] = static_cast<int32_t>(words[4 + h][i]);
    st[0] = st[1];  // word 0 holds the last input
  }
}

// Step t of run_wavefront. kEdge: a step of the first or last kLast steps,
// where some lanes have no sample; the steps between need no masks and
// no bounds checks.
template <int kVecs, int kRight, bool kSplit, bool kBypass, bool kEdge, bool kOdd>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void wavefront_tick(Wavefront<kVecs>& w, const int32_t* xl,
                                                                   const int32_t* xr, int32_t* yl, int32_t* yr,
                                                                   int t, int n) {
  constexpr int kCap = kRight > 0 ? kRight : 4 * kVecs;
  constexpr int kLast = kCap - 1;
  // A cascade runs in the scaled form (see wave_step).
  constexpr bool kScaled = !kSplit;
  int32_t l = !kEdge || t < n ? xl[t] : 0;
  int32_t r = kRight > 0 && (!kEdge || t < n) ? xr[t] : 0;
  if constexpr (kScaled) {
    l = shl_sat<5>(l);
    r = shl_sat<5>(r);
  }
  __m256i in[kVecs];
  route_chain<kVecs, kRight>(w, l, r, in);
  wave_step<kVecs, kEdge, kSplit, kScaled, kBypass, kOdd>(w, in, t, n);
  if constexpr (!kSplit) {
    if (!kEdge || t >= kLast) {
      yl[t - kLast] = _mm256_extract_epi32(w.out[kLast / 4], 2 * (kLast % 4)) >> 5;
      if constexpr (kRight > 0) yr[t - kLast] = _mm256_extract_epi32(w.out[kVecs - 1], 6) >> 5;
    }
  } else {
    (void)yl, (void)yr;
  }
}

// Edge steps [from, to) of run_wavefront.
template <int kVecs, int kRight, bool kSplit, bool kBypass>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void wavefront_edge(Wavefront<kVecs>& w, const int32_t* xl,
                                                                   const int32_t* xr, int32_t* yl, int32_t* yr,
                                                                   int from, int to, int n) {
  for (int t = from; t < to; ++t) {
    if ((t & 1) != 0) {
      wavefront_tick<kVecs, kRight, kSplit, kBypass, true, true>(w, xl, xr, yl, yr, t, n);
    } else {
      wavefront_tick<kVecs, kRight, kSplit, kBypass, true, false>(w, xl, xr, yl, yr, t, n);
    }
  }
}

// Runs the lanes of `map` over n samples of xl (and xr): a cascade writes
// each channel's last lane to yl (yr); the band split writes no samples
// and adds each lane's sum of squared outputs to energy[lane]. kBypass:
// false when every lane holds a working section.
template <int kVecs, int kRight, bool kSplit, bool kBypass = true>
KAFX_TARGET_AVX2 void run_wavefront(const LaneMap& map, const int32_t* xl, const int32_t* xr, int32_t* yl, int32_t* yr,
                                    int n, uint64_t* energy) {
  constexpr int kLanes = 4 * kVecs;
  constexpr int kCap = kRight > 0 ? kRight : kLanes;  // lanes per channel
  constexpr int kLast = kCap - 1;                     // steps from input to output
  alignas(32) LaneWords<kVecs> words = {};
  for (int i = 0; i < kLanes; ++i) words[9][i] = i % kCap;
  Wavefront<kVecs> w;
  load_lanes(map, words, w);
  // Steps [0, kLast) and [max(kLast, n), n + kLast) at the edges, [kLast, n)
  // between them.
  // Step t is an odd step (see wave_step) when t is odd.
  wavefront_edge<kVecs, kRight, kSplit, kBypass>(w, xl, xr, yl, yr, 0, kLast, n);
  int t = kLast;
  if ((t & 1) != 0 && t < n) wavefront_tick<kVecs, kRight, kSplit, kBypass, false, true>(w, xl, xr, yl, yr, t++, n);
  for (; t + 1 < n; t += 2) {
    wavefront_tick<kVecs, kRight, kSplit, kBypass, false, false>(w, xl, xr, yl, yr, t, n);
    wavefront_tick<kVecs, kRight, kSplit, kBypass, false, true>(w, xl, xr, yl, yr, t + 1, n);
  }
  if (t < n) wavefront_tick<kVecs, kRight, kSplit, kBypass, false, false>(w, xl, xr, yl, yr, t, n);
  wavefront_edge<kVecs, kRight, kSplit, kBypass>(w, xl, xr, yl, yr, kLast > n ? kLast : n, n + kLast, n);
  if (((n + kLast) & 1) != 0) swap_history(w);
  store_lanes(map, words, w);
  if constexpr (kSplit) {
    alignas(32) uint64_t sums[kLanes];
    for (int j = 0; j < kVecs; ++j) _mm256_store_si256(reinterpret_cast<__m256i*>(&sums[4 * j]), w.energy[j]);
    for (int i = 0; i < kLanes; ++i) energy[i] += sums[i];
  } else {
    (void)energy;
  }
}

// Places a channel's working sections (status != 0) in the last lanes of
// its span [first, first + cap).
void place(LaneMap& map, int first, int cap, IIR_t* const* sections, int count) {
  IIR_t* working[kCascadeMaxSections];
  int m = 0;
  for (int k = 0; k < count; ++k)
    if (sections[k]->status != 0) working[m++] = sections[k];
  for (int k = 0; k < m; ++k) map.section[first + cap - m + k] = working[k];
}

int working_sections(IIR_t* const* sections, int count) {
  int m = 0;
  for (int k = 0; k < count; ++k) m += sections[k]->status != 0;
  return m;
}

template <int kVecs>
KAFX_TARGET_AVX2 void mono_wavefront(IIR_t* const* sec, int count, int32_t* x, int n) {
  LaneMap map;
  place(map, 0, 4 * kVecs, sec, count);
  if (working_sections(sec, count) == 4 * kVecs) {
    run_wavefront<kVecs, 0, false, false>(map, x, nullptr, x, nullptr, n, nullptr);
  } else {
    run_wavefront<kVecs, 0, false>(map, x, nullptr, x, nullptr, n, nullptr);
  }
}

template <int kCap>
KAFX_TARGET_AVX2 void stereo_wavefront(IIR_t* const* left, int nl, int32_t* l, IIR_t* const* right, int nr,
                                       int32_t* r, int n) {
  LaneMap map;
  place(map, 0, kCap, left, nl);
  place(map, kCap, kCap, right, nr);
  if (working_sections(left, nl) == kCap && working_sections(right, nr) == kCap) {
    run_wavefront<kCap / 2, kCap, false, false>(map, l, r, l, r, n, nullptr);
  } else {
    run_wavefront<kCap / 2, kCap, false>(map, l, r, l, r, n, nullptr);
  }
}

KAFX_TARGET_AVX2 void cascade_wavefront(IIR_t* const* left, int nl, int32_t* l, IIR_t* const* right, int nr, int32_t* r,
                                        int n) {
  if (n <= 0) return;
  if (nl > kCascadeMaxSections || nr > kCascadeMaxSections) {
    cascade_sectionwise(left, nl, l, right, nr, r, n);
    return;
  }
  const int ml = working_sections(left, nl);
  const int mr = working_sections(right, nr);
  if (mr == 0 || ml == 0) {  // one cascade (or none) does any work
    IIR_t* const* sec = mr == 0 ? left : right;
    const int count = mr == 0 ? nl : nr;
    int32_t* x = mr == 0 ? l : r;
    const int m = mr == 0 ? ml : mr;
    if (m == 0) return;
    if (m <= 4) {
      mono_wavefront<1>(sec, count, x, n);
    } else if (m <= 8) {
      mono_wavefront<2>(sec, count, x, n);
    } else {
      mono_wavefront<3>(sec, count, x, n);
    }
    return;
  }
  const int m = ml > mr ? ml : mr;
  if (m <= 2) {
    stereo_wavefront<2>(left, nl, l, right, nr, r, n);
  } else if (m <= 4) {
    stereo_wavefront<4>(left, nl, l, right, nr, r, n);
  } else if (m <= 6) {
    stereo_wavefront<6>(left, nl, l, right, nr, r, n);
  } else if (m <= 8) {
    stereo_wavefront<8>(left, nl, l, right, nr, r, n);
  } else {
    stereo_wavefront<10>(left, nl, l, right, nr, r, n);
  }
}

template <int kCap>
KAFX_TARGET_AVX2 void split_lanes(IIR_t* const* left, const int32_t* l, uint64_t* energy_left, IIR_t* const* right,
                                  const int32_t* r, uint64_t* energy_right, int count, int n) {
  // Stage k in lane k of its channel (a switched-off stage as a bypass
  // lane: its remainder is then 0, as in the reference); the bypass lane
  // after the last stage sums the squares of the final remainder.
  LaneMap map;
  for (int k = 0; k < count; ++k) {
    map.section[k] = left[k]->status != 0 ? left[k] : nullptr;
    map.section[kCap + k] = right[k]->status != 0 ? right[k] : nullptr;
  }
  uint64_t energy[2 * kCap] = {};
  run_wavefront<kCap / 2, kCap, true>(map, l, r, nullptr, nullptr, n, energy);
  for (int k = 0; k <= count; ++k) {
    energy_left[k] += energy[k];
    energy_right[k] += energy[kCap + k];
  }
}

KAFX_TARGET_AVX2 void split_wavefront(IIR_t* const* left, const int32_t* l, uint64_t* energy_left, IIR_t* const* right,
                                      const int32_t* r, uint64_t* energy_right, int count, int n) {
  if (n <= 0) return;
  if (count < 2) {
    split_lanes<2>(left, l, energy_left, right, r, energy_right, count, n);
  } else if (count < 4) {
    split_lanes<4>(left, l, energy_left, right, r, energy_right, count, n);
  } else if (count < 6) {
    split_lanes<6>(left, l, energy_left, right, r, energy_right, count, n);
  } else if (count < 8) {
    split_lanes<8>(left, l, energy_left, right, r, energy_right, count, n);
  } else if (count < 10) {
    split_lanes<10>(left, l, energy_left, right, r, energy_right, count, n);
  } else {
    split_sectionwise(left, l, energy_left, right, r, energy_right, count, n);
  }
}

template <int kStages, bool kScaled, bool kEdge, bool kOdd>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void crossover_tick(Wavefront<2 * kStages>& w, int32_t* xl, int32_t* xr,
                                                                   int32_t* const* low_l, int32_t* const* low_r, int t,
                                                                   int n) {
  constexpr int kVecs = 2 * kStages;
  constexpr int kLast = kVecs - 1;
  const int32_t l = !kEdge || t < n ? (kScaled ? shl_sat<5>(xl[t]) : xl[t]) : 0;
  const int32_t r = !kEdge || t < n ? (kScaled ? shl_sat<5>(xr[t]) : xr[t]) : 0;
  __m256i in[kVecs];
  in[0] = _mm256_setr_epi64x(l, l, r, r);
  KAFX_UNROLL
  for (int j = 1; j < kVecs; ++j) {
    in[j] = j % 2 != 0 ? w.out[j - 1] : _mm256_permute4x64_epi64(w.out[j - 1], _MM_SHUFFLE(3, 3, 1, 1));
  }
  // Every section works in the scaled form, so no lane is a bypass lane.
  wave_step<kVecs, kEdge, false, kScaled, !kScaled, kOdd>(w, in, t, n);
  constexpr int kBack = kScaled ? 5 : 0;
  KAFX_UNROLL
  for (int k = 0; k < kStages; ++k) {
    const int i = t - (2 * k + 1);
    if (!kEdge || (i >= 0 && i < n)) {
      low_l[k][i] = _mm256_extract_epi32(w.out[2 * k + 1], 0) >> kBack;
      low_r[k][i] = _mm256_extract_epi32(w.out[2 * k + 1], 4) >> kBack;
    }
  }
  if (!kEdge || t >= kLast) {
    xl[t - kLast] = _mm256_extract_epi32(w.out[kLast], 2) >> kBack;
    xr[t - kLast] = _mm256_extract_epi32(w.out[kLast], 6) >> kBack;
  }
}

// Edge steps [from, to) of crossover_lanes.
template <int kStages, bool kScaled>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void crossover_edge(Wavefront<2 * kStages>& w, int32_t* xl, int32_t* xr,
                                                                   int32_t* const* low_l, int32_t* const* low_r,
                                                                   int from, int to, int n) {
  for (int t = from; t < to; ++t) {
    if ((t & 1) != 0) {
      crossover_tick<kStages, kScaled, true, true>(w, xl, xr, low_l, low_r, t, n);
    } else {
      crossover_tick<kStages, kScaled, true, false>(w, xl, xr, low_l, low_r, t, n);
    }
  }
}

// The crossover chain as a wavefront: vector j = 2k + s holds section s of
// stage k's four branches [left A, left B, right A, right B]. A first
// section (s = 0) takes the previous stage's high band, the B lane of the
// vector below, in both of its branch lanes; a second section takes the
// output of the same lane of the vector below. Vector j works on sample
// t - j at step t; stage k's low band leaves the A lanes of vector 2k + 1,
// the last high band the B lanes of the top vector.
// kScaled (see wave_step) when every section works: each band then leaves
// a working section.
template <int kStages, bool kScaled>
KAFX_TARGET_AVX2 void crossover_lanes(const CrossoverStage* left, const CrossoverStage* right, int32_t* xl,
                                      int32_t* xr, int32_t* const* low_l, int32_t* const* low_r, int n) {
  constexpr int kVecs = 2 * kStages;
  constexpr int kLast = kVecs - 1;
  LaneMap map;
  alignas(32) LaneWords<kVecs> words = {};
  for (int j = 0; j < kVecs; ++j) {
    const CrossoverStage& l = left[j / 2];
    const CrossoverStage& r = right[j / 2];
    IIR_t* const lane[4] = {l.a[j % 2], l.b[j % 2], r.a[j % 2], r.b[j % 2]};
    for (int i = 0; i < 4; ++i) {
      // A section with status 0 passes its input on and keeps its state.
      map.section[4 * j + i] = lane[i]->status != 0 ? lane[i] : nullptr;
      words[9][4 * j + i] = j;
    }
  }
  Wavefront<kVecs> w;
  load_lanes(map, words, w);
  // Steps [0, kLast) and [max(kLast, n), n + kLast) at the edges, [kLast, n)
  // between them (every lane then has its sample).
  // Step t is an odd step (see wave_step) when t is odd.
  crossover_edge<kStages, kScaled>(w, xl, xr, low_l, low_r, 0, kLast, n);
  int t = kLast;
  if ((t & 1) != 0 && t < n) crossover_tick<kStages, kScaled, false, true>(w, xl, xr, low_l, low_r, t++, n);
  for (; t + 1 < n; t += 2) {
    crossover_tick<kStages, kScaled, false, false>(w, xl, xr, low_l, low_r, t, n);
    crossover_tick<kStages, kScaled, false, true>(w, xl, xr, low_l, low_r, t + 1, n);
  }
  if (t < n) crossover_tick<kStages, kScaled, false, false>(w, xl, xr, low_l, low_r, t, n);
  crossover_edge<kStages, kScaled>(w, xl, xr, low_l, low_r, kLast > n ? kLast : n, n + kLast, n);
  if (((n + kLast) & 1) != 0) swap_history(w);
  store_lanes(map, words, w);
}

KAFX_TARGET_AVX2 void crossover_wavefront(const CrossoverStage* left, const CrossoverStage* right, int stages,
                                          int32_t* xl, int32_t* xr, int32_t* const* low_l, int32_t* const* low_r,
                                          int n) {
  if (n <= 0) return;
  bool working = true;
  for (int k = 0; k < stages; ++k)
    for (int s = 0; s < 2; ++s)
      working = working && left[k].a[s]->status != 0 && left[k].b[s]->status != 0 && right[k].a[s]->status != 0 &&
                right[k].b[s]->status != 0;
  const auto run = [&](auto scaled) {
    switch (stages) {
      case 1: crossover_lanes<1, scaled>(left, right, xl, xr, low_l, low_r, n); return;
      case 2: crossover_lanes<2, scaled>(left, right, xl, xr, low_l, low_r, n); return;
      case 3: crossover_lanes<3, scaled>(left, right, xl, xr, low_l, low_r, n); return;
      default: crossover_stagewise(left, right, stages, xl, xr, low_l, low_r, n); return;
    }
  };
  if (working) {
    run(std::true_type{});
  } else {
    run(std::false_type{});
  }
}

#endif  // KAFX_AVX2_VARIANTS

}  // namespace

const KernelVariants<BiquadCascadePair> biquad_cascade_pair_variants = {
    "biquad_cascade_pair",
    {cascade_sectionwise, KAFX_AVX2_ONLY(cascade_wavefront), KAFX_NEON_ONLY(biquad_cascade_pair_neon)}};

void biquad_cascade_pair(IIR_t* const* left, int nl, int32_t* l, IIR_t* const* right, int nr, int32_t* r, int n) {
  run_chosen<biquad_cascade_pair_variants>(left, nl, l, right, nr, r, n);
}

const KernelVariants<BiquadSplitEnergies> biquad_split_energies_variants = {
    "biquad_split_energies", {split_sectionwise, KAFX_AVX2_ONLY(split_wavefront)}};

void biquad_split_energies(IIR_t* const* left, const int32_t* l, uint64_t* energy_left, IIR_t* const* right,
                           const int32_t* r, uint64_t* energy_right, int count, int n) {
  run_chosen<biquad_split_energies_variants>(left, l, energy_left, right, r, energy_right, count, n);
}

const KernelVariants<BiquadCrossoverStereo> biquad_crossover_stereo_variants = {
    "biquad_crossover_stereo", {crossover_stagewise, KAFX_AVX2_ONLY(crossover_wavefront),
                                 KAFX_NEON_ONLY(biquad_crossover_stereo_neon)}};

void biquad_crossover_stereo(const CrossoverStage* left, const CrossoverStage* right, int stages, int32_t* xl,
                             int32_t* xr, int32_t* const* low_l, int32_t* const* low_r, int n) {
  run_chosen<biquad_crossover_stereo_variants>(left, right, stages, xl, xr, low_l, low_r, n);
}

}  // namespace kafx
