// Half-band by-2 stages: decimators, interpolators and same-rate low-pass
// filters built from two all-pass branches.
//
// A half-band filter splits into two polyphase all-pass branches; the
// decimator feeds the even input samples to one branch and the odd samples
// to the other and adds the branch outputs, the interpolator feeds every
// input sample to both branches and interleaves their outputs, and the
// low-pass filter runs both arrangements side by side at the input rate.
//
// Each branch is a recursive cascade of three first-order sections, so one
// branch cannot run faster than its loop-carried chain; the branches
// themselves are independent. Every stage therefore advances all of its
// branches together, one branch per vector lane (two lanes for the
// decimators and interpolators, four for the low-pass filters), with the
// lane coefficients of its branch. The recursive loop only gathers the
// branch outputs; combining, rounding and saturating them runs afterwards
// over a whole chunk. Where vector lanes do not pay off (ARM, and the 16-bit
// stages on every baseline), a scalar form runs the branches side by side
// in one loop instead; both forms give the same integers.
#if defined(__arm__) && (defined(__ARM_FEATURE_DSP) || defined(__ARM_FEATURE_SAT))
#include <arm_acle.h>
#endif

#include "kafx_proc/spl.h"
#include "spl/simd.h"
#include "spl/spl_internal.h"

namespace kafx::spl {

namespace {

using simd::v4u;

[[gnu::always_inline]] inline v4u splat(uint32_t v) { return v4u{v, v, v, v}; }

// Two 32-bit words into lanes 0 and 1 (lanes 2 and 3 zero).
[[gnu::always_inline]] inline v4u load2(const int32_t* p) {
  int64_t w;
  std::memcpy(&w, p, 8);
  return (v4u)simd::v2l{w, 0};
}

[[gnu::always_inline]] inline void store2(int32_t* p, v4u v) {
  const int64_t w = ((simd::v2l)v)[0];
  std::memcpy(p, &w, 8);
}

// Branch state of up to four lanes: lane k uses the four state words from
// base[k] (-1: unused lane, zero state and coefficients).
struct LaneState {
  v4u s0, s1, s2, s3;

  [[gnu::always_inline]] void load(const int32_t* st, const int (&base)[4]) {
    uint32_t w[4][4] = {};
    for (int k = 0; k < 4; ++k) {
      if (base[k] < 0) continue;
      for (int i = 0; i < 4; ++i) w[i][k] = static_cast<uint32_t>(st[base[k] + i]);
    }
    s0 = simd::load<v4u>(w[0]);
    s1 = simd::load<v4u>(w[1]);
    s2 = simd::load<v4u>(w[2]);
    s3 = simd::load<v4u>(w[3]);
  }

  [[gnu::always_inline]] void store(int32_t* st, const int (&base)[4]) const {
    uint32_t w[4][4];
    simd::store(w[0], s0);
    simd::store(w[1], s1);
    simd::store(w[2], s2);
    simd::store(w[3], s3);
    for (int k = 0; k < 4; ++k) {
      if (base[k] < 0) continue;
      for (int i = 0; i < 4; ++i) st[base[k] + i] = static_cast<int32_t>(w[i][k]);
    }
  }
};

// A partial sum the compiler keeps as written (not regrouped with the terms
// added to it), so that the recursions' loop-carried paths stay short: an
// empty statement that takes the vector register and hands it back.
[[gnu::always_inline]] inline v4u grouped(v4u v) {
#if defined(__x86_64__)
  asm("" : "+x"(v));
#elif defined(__aarch64__)
  asm("" : "+w"(v));
#endif
  return v;
}

// ---------------------------------------------------------------------------
// Internal-format branches (Q15 coefficients on samples << 15): sections
//     y[n] = x[n-1] + c * q(x[n] - y[n-1])
// with q the difference brought down by 14 bits, rounded in the first
// section, floored and then moved up by one when negative in the other two.
struct Cascade : LaneState {
  v4u c0, c1, c2;

  [[gnu::always_inline]] v4u run(v4u x) {
    // Every loop-carried path is subtract, shift, multiply, add: x + 8192
    // is formed first, and the move up by one of a negative quotient, q c =
    // (d >> 14) c + (d < 0 ? c : 0), joins the addend before the product
    // does (kept in that order, see grouped()).
    const v4u t1 = s0 + simd::sar<14>(grouped(x + 8192u) - s1) * c0;
    s0 = x;
    const v4u d2 = t1 - s2;
    const v4u t2 = grouped(s1 + (simd::sar<31>(d2) & c1)) + simd::sar<14>(d2) * c1;
    s1 = t1;
    const v4u d3 = t2 - s3;
    const v4u y = grouped(s2 + (simd::sar<31>(d3) & c2)) + simd::sar<14>(d3) * c2;
    s2 = t2;
    s3 = y;
    return y;
  }
};

// Lane coefficient rows of the two internal branch kinds.
constexpr uint32_t kUp[3] = {kUpperC0, kUpperC1, kUpperC2};
constexpr uint32_t kLo[3] = {kLowerC0, kLowerC1, kLowerC2};

// A cascade whose lanes run the given branch kinds (nullptr: unused lane).
[[gnu::always_inline]] inline Cascade make_cascade(const int32_t* st, const int (&base)[4],
                                                   const uint32_t* const (&kind)[4]) {
  Cascade c;
  c.load(st, base);
  uint32_t w[3][4] = {};
  for (int k = 0; k < 4; ++k) {
    if (kind[k] == nullptr) continue;
    for (int i = 0; i < 3; ++i) w[i][k] = kind[k][i];
  }
  c.c0 = simd::load<v4u>(w[0]);
  c.c1 = simd::load<v4u>(w[1]);
  c.c2 = simd::load<v4u>(w[2]);
  return c;
}

// ---------------------------------------------------------------------------
// 16-bit stages (Q16 coefficients on samples << 10): sections
//     y[n] = x[n-1] + floor(c (x[n] - y[n-1]) / 2^16)
// The product is formed from the two 16-bit halves of the difference,
// d = h 2^16 + l with l unsigned: floor(c d / 2^16) = c h + (c l >> 16).
struct Cascade16 : LaneState {
  v4u c0, c1, c2;

  [[gnu::always_inline]] static v4u scaled(v4u d, v4u c) {
    return simd::sar<16>(d) * c + (((d & 0xFFFFu) * c) >> 16);
  }

  [[gnu::always_inline]] v4u run(v4u x) {
    const v4u t1 = s0 + scaled(x - s1, c0);
    s0 = x;
    const v4u t2 = s1 + scaled(t1 - s2, c1);
    s1 = t1;
    s3 = s2 + scaled(t2 - s3, c2);
    s2 = t2;
    return s3;
  }
};

[[gnu::always_inline]] inline Cascade16 make_cascade16(const int32_t* st,
                                                       const uint32_t (&lane0)[3],
                                                       const uint32_t (&lane1)[3]) {
  Cascade16 c;
  c.load(st, {0, 4, -1, -1});
  c.c0 = v4u{lane0[0], lane1[0], 0, 0};
  c.c1 = v4u{lane0[1], lane1[1], 0, 0};
  c.c2 = v4u{lane0[2], lane1[2], 0, 0};
  return c;
}

constexpr uint32_t kA16[3] = {3284, 24441, 49528};
constexpr uint32_t kB16[3] = {12199, 37471, 60255};

// ---------------------------------------------------------------------------
// Chunks: kChunk recursive steps at a time; the post-passes have a fixed
// length for whole chunks so that they compile to whole-vector loops.
constexpr int kChunk = 64;

inline int chunk_len(int total, int base) { return total - base < kChunk ? total - base : kChunk; }

#if defined(__arm__) && defined(__ARM_FEATURE_SAT)
// sat16(v >> Shift) as one SSAT with a shifted operand.
template <int Shift>
[[gnu::always_inline]] inline int16_t shift_sat16(int32_t v) {
  return static_cast<int16_t>(__ssat(v >> Shift, 16));
}
#endif

// out[i] = sat16((pair[2i] + pair[2i + 1] + Round) >> Shift), pair sums wrap.
template <int Shift, uint32_t Round>
[[gnu::always_inline]] inline void narrow_pairs(const int32_t* pair, int16_t* out, int n) {
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    const v4u sums =
        simd::pair_sums(simd::load<v4u>(pair + 2 * i), simd::load<v4u>(pair + 2 * i + 4));
    simd::saturate_store(out + i, (simd::v4i)simd::sar<Shift>(sums + Round));
  }
  for (; i < n; ++i) {
    const uint32_t sum =
        static_cast<uint32_t>(pair[2 * i]) + static_cast<uint32_t>(pair[2 * i + 1]);
    out[i] = sat16(static_cast<int32_t>(sum + Round) >> Shift);
  }
}

// out[k] = sat16((v[k] + Round) >> Shift) for k < n.
template <int Shift, uint32_t Round>
[[gnu::always_inline]] inline void narrow(const int32_t* v, int16_t* out, int n) {
  int k = 0;
  for (; k + 4 <= n; k += 4) {
    simd::saturate_store(out + k, (simd::v4i)simd::sar<Shift>(simd::load<v4u>(v + k) + Round));
  }
  for (; k < n; ++k)
    out[k] = sat16(static_cast<int32_t>(static_cast<uint32_t>(v[k]) + Round) >> Shift);
}

// out[i] = pair[2i] + pair[2i + 1] (modulo 2^32) for i < n.
[[gnu::always_inline]] inline void add_pairs(const int32_t* pair, int32_t* out, int n) {
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    simd::store(out + i,
                simd::pair_sums(simd::load<v4u>(pair + 2 * i), simd::load<v4u>(pair + 2 * i + 4)));
  }
  for (; i < n; ++i) out[i] = wrap_add(pair[2 * i], pair[2 * i + 1]);
}

// x[k] = in[k] << Shift plus Offset (modulo 2^32) for k < n.
template <int Shift, uint32_t Offset>
[[gnu::always_inline]] inline void widen_block(const int16_t* in, int32_t* x, int n) {
  int k = 0;
  for (; k + 4 <= n; k += 4) simd::store(x + k, ((v4u)simd::widen(in + k) << Shift) + Offset);
  for (; k < n; ++k) x[k] = static_cast<int32_t>((static_cast<uint32_t>(in[k]) << Shift) + Offset);
}

}  // namespace

// ---------------------------------------------------------------------------
// 16-bit stages. State: words 0-3 the first branch, 4-7 the second.

KAFX_TARGET_AVX2 void downsample_by2_lanes(const int16_t* in, int len, int16_t* out, int32_t* st) {
  // Even samples through branch B (words 0-3), odd through branch A (4-7).
  Cascade16 c = make_cascade16(st, kB16, kA16);
  const int n = len >> 1;
  int32_t x[2 * kChunk], y[2 * kChunk];
  // A chunk's inputs are all read before its outputs are written, and an
  // output never lies beyond the inputs still to come, so out may equal in.
  for (int base = 0; base < n; base += kChunk) {
    const int m = chunk_len(n, base);
    widen_block<10, 0>(in + 2 * base, x, 2 * m);
    for (int i = 0; i < m; ++i) store2(y + 2 * i, c.run(load2(x + 2 * i)));
    // Sum of the branches, halved and rounded back from << 10.
    narrow_pairs<11, 1024>(y, out + base, m);
  }
  c.store(st, {0, 4, -1, -1});
}

KAFX_TARGET_AVX2 void upsample_by2_lanes(const int16_t* in, int len, int16_t* out, int32_t* st) {
  // Every sample through branch A (words 0-3, even outputs) and branch B
  // (words 4-7, odd outputs).
  Cascade16 c = make_cascade16(st, kA16, kB16);
  int32_t y[2 * kChunk];
  for (int base = 0; base < len; base += kChunk) {
    const int m = chunk_len(len, base);
    for (int i = 0; i < m; ++i) {
      store2(y + 2 * i, c.run(splat(static_cast<uint32_t>(in[base + i] * 1024))));
    }
    narrow<10, 512>(y, out + 2 * base, 2 * m);
  }
  c.store(st, {0, 4, -1, -1});
}

namespace {

// Scalar form of the 16-bit branches, for processors whose lane multiplies
// are composed: y = state + floor(d c / 2^16) with one 64-bit product.
struct Branch16 {
  int32_t s0, s1, s2, s3;

  void load(const int32_t* st) {
    s0 = st[0];
    s1 = st[1];
    s2 = st[2];
    s3 = st[3];
  }
  void store(int32_t* st) const {
    st[0] = s0;
    st[1] = s1;
    st[2] = s2;
    st[3] = s3;
  }

  // s + floor(d C / 2^16), wrapping.
  template <int C>
  static int32_t scaled_add(int32_t d, int32_t s) {
#if defined(__arm__) && defined(__ARM_FEATURE_DSP)
    // 32-bit ARM: SMLAWB adds bits 47..16 of d times a signed 16-bit factor
    // to a word (wrapping), in one instruction with one result register. A
    // coefficient of 2^15 or more is used as C - 2^16, with d added as well:
    // floor(d C / 2^16) = floor(d (C - 2^16) / 2^16) + d.
    if constexpr (C < 32768) {
      return __smlawb(d, C, s);
    } else {
      return wrap_add(__smlawb(d, C - 65536, d), s);
    }
#else
    return wrap_add(s, static_cast<int32_t>((static_cast<int64_t>(d) * C) >> 16));
#endif
  }

  template <int C0, int C1, int C2>
  int32_t run(int32_t x) {
    const int32_t t1 = scaled_add<C0>(wrap_sub(x, s1), s0);
    s0 = x;
    const int32_t t2 = scaled_add<C1>(wrap_sub(t1, s2), s1);
    s1 = t1;
    s3 = scaled_add<C2>(wrap_sub(t2, s3), s2);
    s2 = t2;
    return s3;
  }
};

inline int32_t branch_a(Branch16& b, int32_t x) { return b.run<3284, 24441, 49528>(x); }
inline int32_t branch_b(Branch16& b, int32_t x) { return b.run<12199, 37471, 60255>(x); }

}  // namespace

void downsample_by2_scalar(const int16_t* in, int len, int16_t* out, int32_t* st) {
  Branch16 even, odd;
  even.load(st);
  odd.load(st + 4);
  const int n = len >> 1;
#if defined(__arm__) && defined(__ARM_FEATURE_SAT)
  // 32-bit ARM: the rounding, halving and saturation take two instructions
  // (an add and an SSAT with a shifted operand) inside the loop. Output i is
  // written after samples 2i and 2i + 1 are read, so out may equal in.
  for (int i = 0; i < n; ++i) {
    const int32_t xe = in[2 * i] * 1024;
    const int32_t xo = in[2 * i + 1] * 1024;
    const int32_t sum = wrap_add(branch_b(even, xe), branch_a(odd, xo));
    out[i] = shift_sat16<11>(wrap_add(sum, 1024));
  }
#else
  // Elsewhere the branch sums are gathered and then rounded, halved and
  // saturated four at a time, after a chunk's inputs are all read.
  int32_t y[kChunk];
  for (int base = 0; base < n; base += kChunk) {
    const int m = chunk_len(n, base);
    for (int i = 0; i < m; ++i) {
      const int32_t xe = in[2 * (base + i)] * 1024;
      const int32_t xo = in[2 * (base + i) + 1] * 1024;
      y[i] = wrap_add(branch_b(even, xe), branch_a(odd, xo));
    }
    narrow<11, 1024>(y, out + base, m);
  }
#endif
  even.store(st);
  odd.store(st + 4);
}

void upsample_by2_scalar(const int16_t* in, int len, int16_t* out, int32_t* st) {
  Branch16 first, second;
  first.load(st);
  second.load(st + 4);
  int32_t y[2 * kChunk];
  for (int base = 0; base < len; base += kChunk) {
    const int m = chunk_len(len, base);
    for (int i = 0; i < m; ++i) {
      const int32_t x = in[base + i] * 1024;
      y[2 * i] = branch_a(first, x);
      y[2 * i + 1] = branch_b(second, x);
    }
    narrow<10, 512>(y, out + 2 * base, 2 * m);
  }
  first.store(st);
  second.store(st + 4);
}

// The lane versions need native 32-bit lane multiplies to pay off: they are
// the AVX2 variant; everywhere else (baseline x86-64, whose lane multiplies
// are composed, and ARM, where the lane form is slower than scalar code on
// in-order cores) the scalar form runs.
const KernelVariants<By2Stage16> downsample_by2_variants = {
    "downsample_by2", {downsample_by2_scalar, KAFX_AVX2_ONLY(downsample_by2_lanes)}};
const KernelVariants<By2Stage16> upsample_by2_variants = {
    "upsample_by2", {upsample_by2_scalar, KAFX_AVX2_ONLY(upsample_by2_lanes)}};

void downsample_by2(const int16_t* in, int len, int16_t* out, int32_t* st) {
  run_chosen<downsample_by2_variants>(in, len, out, st);
}

void upsample_by2(const int16_t* in, int len, int16_t* out, int32_t* st) {
  run_chosen<upsample_by2_variants>(in, len, out, st);
}

// ---------------------------------------------------------------------------
// Internal-format stages. State: words 0-3 the lower branch, 4-7 the upper
// branch (the low-pass filters: 8-11 and 12-15 the second pair).
//
// One body per kernel; the builds per instruction set follow the anonymous
// namespace (common/dispatch.h).

namespace {

constexpr int kPairBase[4] = {0, 4, -1, -1};
constexpr int kSwappedBase[4] = {4, 0, -1, -1};

[[gnu::always_inline]] inline void down_int_to_short_body(int32_t* in, int len, int16_t* out, int32_t* st) {
  // Even samples through the lower branch, odd through the upper.
  Cascade c = make_cascade(st, kPairBase, {kLo, kUp, nullptr, nullptr});
  const int n = len >> 1;
  for (int base = 0; base < n; base += kChunk) {
    const int m = chunk_len(n, base);
    int32_t* x = in + 2 * base;
    // The halved branch outputs are left in the input block (it is the
    // stage's scratch); their sum is brought back from << 15.
    for (int i = 0; i < m; ++i) store2(x + 2 * i, simd::sar<1>(c.run(load2(x + 2 * i))));
    narrow_pairs<15, 0>(x, out + base, m);
  }
  c.store(st, kPairBase);
}

[[gnu::always_inline]] inline void down_short_to_int_body(const int16_t* in, int len, int32_t* out, int32_t* st) {
  Cascade c = make_cascade(st, kPairBase, {kLo, kUp, nullptr, nullptr});
  const int n = len >> 1;
  int32_t x[2 * kChunk];
  for (int base = 0; base < n; base += kChunk) {
    const int m = chunk_len(n, base);
    widen_block<15, 16384>(in + 2 * base, x, 2 * m);
    for (int i = 0; i < m; ++i) store2(x + 2 * i, simd::sar<1>(c.run(load2(x + 2 * i))));
    add_pairs(x, out + base, m);
  }
  c.store(st, kPairBase);
}

// The interpolators feed every sample to the upper branch (even outputs)
// and the lower branch (odd outputs).
[[gnu::always_inline]] inline void up_short_to_int_body(const int16_t* in, int len, int32_t* out, int32_t* st) {
  Cascade c = make_cascade(st, kSwappedBase, {kUp, kLo, nullptr, nullptr});
  for (int i = 0; i < len; ++i) {
    const v4u x = splat(static_cast<uint32_t>(to_internal(in[i])));
    store2(out + 2 * i, simd::sar<15>(c.run(x)));
  }
  c.store(st, kSwappedBase);
}

[[gnu::always_inline]] inline void up_int_to_int_body(const int32_t* in, int len, int32_t* out, int32_t* st) {
  Cascade c = make_cascade(st, kSwappedBase, {kUp, kLo, nullptr, nullptr});
  for (int i = 0; i < len; ++i) store2(out + 2 * i, c.run(splat(static_cast<uint32_t>(in[i]))));
  c.store(st, kSwappedBase);
}

[[gnu::always_inline]] inline void up_int_to_short_body(const int32_t* in, int len, int16_t* out, int32_t* st) {
  Cascade c = make_cascade(st, kSwappedBase, {kUp, kLo, nullptr, nullptr});
  int32_t y[2 * kChunk];
  for (int base = 0; base < len; base += kChunk) {
    const int m = chunk_len(len, base);
    for (int i = 0; i < m; ++i) {
      store2(y + 2 * i, c.run(splat(static_cast<uint32_t>(in[base + i]))));
    }
    narrow<15, 0>(y, out + 2 * base, 2 * m);
  }
  c.store(st, kSwappedBase);
}

// Same-rate half-band low-pass, four lanes: even outputs come from the
// lower branch on the odd samples delayed by one (lane 0) plus the upper
// branch on the even samples (lane 1), odd outputs from the lower branch on
// the even samples (lane 2) plus the upper branch on the odd samples (lane
// 3). The delayed odd sample of lane 0 is the previous input of lane 3,
// which the state word 12 carries from one call to the next; with it in
// front of the converted block, the four lane inputs of step i are words
// 2i, 2i + 1, 2i + 1, 2i + 2.
constexpr int kLpBase[4] = {0, 4, 8, 12};

// The low-pass input in the internal format.
[[gnu::always_inline]] inline void to_lanes_input(const int16_t* in, int32_t* x, int n) {
  widen_block<15, 16384>(in, x, n);
}
[[gnu::always_inline]] inline void to_lanes_input(const int32_t* in, int32_t* x, int n) {
  std::memcpy(x, in, sizeof(int32_t) * static_cast<size_t>(n));
}

template <typename T>
[[gnu::always_inline]] inline void lp_by2(const T* in, int len, int32_t* out, int32_t* st) {
  Cascade c = make_cascade(st, kLpBase, {kLo, kUp, kLo, kUp});
  const int n = len >> 1;
  int32_t x[2 * kChunk + 2], y[4 * kChunk];
  x[0] = st[12];
  for (int base = 0; base < n; base += kChunk) {
    const int m = chunk_len(n, base);
    to_lanes_input(in + 2 * base, x + 1, 2 * m);
    x[2 * m + 1] = 0;  // read by the last step's load, not used
    for (int i = 0; i < m; ++i) {
      const v4u v = simd::load<v4u>(x + 2 * i);
      simd::store(y + 4 * i, simd::sar<1>(c.run(simd::shuffle<0, 1, 1, 2>(v))));
    }
    // Output 2i pairs lanes 0 and 1 of step i, output 2i + 1 lanes 2 and 3.
    int i = 0;
    for (; i + 2 <= m; i += 2) {
      const v4u sums = simd::pair_sums(simd::load<v4u>(y + 4 * i), simd::load<v4u>(y + 4 * i + 4));
      simd::store(out + 2 * (base + i), simd::sar<15>(sums));
    }
    for (; i < m; ++i) {
      out[2 * (base + i)] = wrap_add(y[4 * i], y[4 * i + 1]) >> 15;
      out[2 * (base + i) + 1] = wrap_add(y[4 * i + 2], y[4 * i + 3]) >> 15;
    }
    x[0] = x[2 * m];
  }
  c.store(st, kLpBase);
}

[[gnu::always_inline]] inline void lp_short_to_int_body(const int16_t* in, int len, int32_t* out, int32_t* st) {
  lp_by2<int16_t>(in, len, out, st);
}

[[gnu::always_inline]] inline void lp_int_to_int_body(const int32_t* in, int len, int32_t* out, int32_t* st) {
  lp_by2<int32_t>(in, len, out, st);
}

// ---------------------------------------------------------------------------
// Scalar form of the internal-format branches: one branch per variable set,
// the branches of a stage interleaved in one loop so that their recursions
// overlap on a scalar pipeline. Same sections as Cascade::run.
struct BranchInt {
  uint32_t s0, s1, s2, s3;

  void load(const int32_t* st) {
    s0 = static_cast<uint32_t>(st[0]);
    s1 = static_cast<uint32_t>(st[1]);
    s2 = static_cast<uint32_t>(st[2]);
    s3 = static_cast<uint32_t>(st[3]);
  }
  void store(int32_t* st) const {
    st[0] = static_cast<int32_t>(s0);
    st[1] = static_cast<int32_t>(s1);
    st[2] = static_cast<int32_t>(s2);
    st[3] = static_cast<int32_t>(s3);
  }

  // The difference brought down by 14 bits, floored, then moved up by one
  // when negative.
  static uint32_t q(uint32_t d) { return static_cast<uint32_t>(static_cast<int32_t>(d) >> 14) + (d >> 31); }

  template <uint32_t C0, uint32_t C1, uint32_t C2>
  uint32_t run(uint32_t x) {
    const uint32_t t1 = s0 + static_cast<uint32_t>(static_cast<int32_t>(x + 8192u - s1) >> 14) * C0;
    s0 = x;
    const uint32_t t2 = s1 + q(t1 - s2) * C1;
    s1 = t1;
    s3 = s2 + q(t2 - s3) * C2;
    s2 = t2;
    return s3;
  }
};

inline uint32_t lower(BranchInt& b, uint32_t x) { return b.run<kLowerC0, kLowerC1, kLowerC2>(x); }
inline uint32_t upper(BranchInt& b, uint32_t x) { return b.run<kUpperC0, kUpperC1, kUpperC2>(x); }
inline uint32_t half(uint32_t v) { return static_cast<uint32_t>(static_cast<int32_t>(v) >> 1); }
inline int32_t from_internal(uint32_t v) { return static_cast<int32_t>(v) >> 15; }
inline uint32_t internal(int16_t v) { return static_cast<uint32_t>(to_internal(v)); }
inline uint32_t internal(int32_t v) { return static_cast<uint32_t>(v); }

// Even samples through the lower branch (words 0-3), odd through the upper
// (4-7); put(i, a, b) gets the two halved outputs, whose sum is output i.
template <typename T>
[[gnu::always_inline]] inline void down_scalar(const T* in, int len, int32_t* st, auto put) {
  BranchInt lo, up;
  lo.load(st);
  up.load(st + 4);
  const int n = len >> 1;
  for (int i = 0; i < n; ++i) {
    const uint32_t a = half(lower(lo, internal(in[2 * i])));
    put(i, a, half(upper(up, internal(in[2 * i + 1]))));
  }
  lo.store(st);
  up.store(st + 4);
}

// Every sample through the upper branch (words 4-7, even outputs) and the
// lower branch (words 0-3, odd outputs).
template <typename T>
[[gnu::always_inline]] inline void up_scalar(const T* in, int len, int32_t* st, auto put) {
  BranchInt lo, up;
  lo.load(st);
  up.load(st + 4);
  for (int i = 0; i < len; ++i) {
    const uint32_t x = internal(in[i]);
    const uint32_t even = upper(up, x);
    put(2 * i, even, 2 * i + 1, lower(lo, x));
  }
  lo.store(st);
  up.store(st + 4);
}

// The same-rate low-pass: even outputs from the lower branch on the
// previous odd sample (words 0-3) plus the upper branch on the even sample
// (4-7), odd outputs from the lower branch on the even sample (8-11) plus
// the upper branch on the odd sample (12-15), whose first state word is the
// previous odd sample.
template <typename T>
[[gnu::always_inline]] inline void lp_scalar(const T* in, int len, int32_t* out, int32_t* st) {
  BranchInt b0, b1, b2, b3;
  b0.load(st);
  b1.load(st + 4);
  b2.load(st + 8);
  b3.load(st + 12);
  const int n = len >> 1;
  for (int i = 0; i < n; ++i) {
    const uint32_t prev = b3.s0, xe = internal(in[2 * i]), xo = internal(in[2 * i + 1]);
    const uint32_t e = half(lower(b0, prev)) + half(upper(b1, xe));
    const uint32_t o = half(lower(b2, xe)) + half(upper(b3, xo));
    out[2 * i] = from_internal(e);
    out[2 * i + 1] = from_internal(o);
  }
  b0.store(st);
  b1.store(st + 4);
  b2.store(st + 8);
  b3.store(st + 12);
}

}  // namespace

// The decimator from the internal format leaves the halved branch outputs in
// its input, as the lane form (and the published routine) do.
void down_int_to_short_scalar(int32_t* in, int len, int16_t* out, int32_t* st) {
  down_scalar(in, len, st, [in, out](int i, uint32_t a, uint32_t b) {
    in[2 * i] = static_cast<int32_t>(a);
    in[2 * i + 1] = static_cast<int32_t>(b);
    out[i] = sat16(from_internal(a + b));
  });
}
void down_short_to_int_scalar(const int16_t* in, int len, int32_t* out, int32_t* st) {
  down_scalar(in, len, st, [out](int i, uint32_t a, uint32_t b) { out[i] = static_cast<int32_t>(a + b); });
}
void up_short_to_int_scalar(const int16_t* in, int len, int32_t* out, int32_t* st) {
  up_scalar(in, len, st, [out](int i, uint32_t a, int j, uint32_t b) {
    out[i] = from_internal(a);
    out[j] = from_internal(b);
  });
}
void up_int_to_int_scalar(const int32_t* in, int len, int32_t* out, int32_t* st) {
  up_scalar(in, len, st, [out](int i, uint32_t a, int j, uint32_t b) {
    out[i] = static_cast<int32_t>(a);
    out[j] = static_cast<int32_t>(b);
  });
}
void up_int_to_short_scalar(const int32_t* in, int len, int16_t* out, int32_t* st) {
  up_scalar(in, len, st, [out](int i, uint32_t a, int j, uint32_t b) {
    out[i] = sat16(from_internal(a));
    out[j] = sat16(from_internal(b));
  });
}
void lp_short_to_int_scalar(const int16_t* in, int len, int32_t* out, int32_t* st) { lp_scalar(in, len, out, st); }
void lp_int_to_int_scalar(const int32_t* in, int len, int32_t* out, int32_t* st) { lp_scalar(in, len, out, st); }

// The internal-format stages: the lane form (from the body above) and the
// scalar form are both built everywhere; the baseline is the one that is
// faster on the target (see KAFX_SPL_SCALAR_BY2 in spl_internal.h), the
// AVX2 variant is the lane form.
#if KAFX_SPL_SCALAR_BY2
#define KAFX_BY2_BASELINE(name) name##_scalar
#else
#define KAFX_BY2_BASELINE(name) name##_lanes
#endif
#define KAFX_BY2_STAGE(name, params, args)                                                        \
  void name##_lanes params { name##_body args; }                                                 \
  KAFX_AVX2_VARIANT_(void, name, params, args)                                                   \
  const KernelVariants<void(*) params> name##_variants = {                                       \
      #name, {KAFX_BY2_BASELINE(name), KAFX_AVX2_PTR(name)}};                                    \
  void name params { run_chosen<name##_variants> args; }

KAFX_BY2_STAGE(down_int_to_short, (int32_t* in, int len, int16_t* out, int32_t* st), (in, len, out, st))
KAFX_BY2_STAGE(down_short_to_int, (const int16_t* in, int len, int32_t* out, int32_t* st), (in, len, out, st))
KAFX_BY2_STAGE(up_short_to_int, (const int16_t* in, int len, int32_t* out, int32_t* st), (in, len, out, st))
KAFX_BY2_STAGE(up_int_to_int, (const int32_t* in, int len, int32_t* out, int32_t* st), (in, len, out, st))
KAFX_BY2_STAGE(up_int_to_short, (const int32_t* in, int len, int16_t* out, int32_t* st), (in, len, out, st))
KAFX_BY2_STAGE(lp_short_to_int, (const int16_t* in, int len, int32_t* out, int32_t* st), (in, len, out, st))
KAFX_BY2_STAGE(lp_int_to_int, (const int32_t* in, int len, int32_t* out, int32_t* st), (in, len, out, st))

void down_by2_int_to_short(int32_t* in, int len, int16_t* out, int32_t* st) {
  down_int_to_short(in, len, out, st);
}
void down_by2_short_to_int(const int16_t* in, int len, int32_t* out, int32_t* st) {
  down_short_to_int(in, len, out, st);
}
void up_by2_short_to_int(const int16_t* in, int len, int32_t* out, int32_t* st) {
  up_short_to_int(in, len, out, st);
}
void up_by2_int_to_int(const int32_t* in, int len, int32_t* out, int32_t* st) {
  up_int_to_int(in, len, out, st);
}
void up_by2_int_to_short(const int32_t* in, int len, int16_t* out, int32_t* st) {
  up_int_to_short(in, len, out, st);
}
void lp_by2_short_to_int(const int16_t* in, int len, int32_t* out, int32_t* st) {
  lp_short_to_int(in, len, out, st);
}
void lp_by2_int_to_int(const int32_t* in, int len, int32_t* out, int32_t* st) {
  lp_int_to_int(in, len, out, st);
}

}  // namespace kafx::spl

using namespace kafx::spl;

extern "C" {

void kedoSpl_DownsampleBy2(const short* in, short len, short* out, int* state) {
  downsample_by2(in, len, out, state);
}

void kedoSpl_UpsampleBy2(const short* in, short len, short* out, int* state) {
  upsample_by2(in, len, out, state);
}

void kedoSpl_DownBy2IntToShort(int* in, int len, short* out, int* state) {
  down_by2_int_to_short(in, len, out, state);
}

void kedoSpl_DownBy2ShortToInt(const short* in, int len, int* out, int* state) {
  down_by2_short_to_int(in, len, out, state);
}

void kedoSpl_UpBy2ShortToInt(const short* in, int len, int* out, int* state) {
  up_by2_short_to_int(in, len, out, state);
}

void kedoSpl_UpBy2IntToInt(const int* in, int len, int* out, int* state) {
  up_by2_int_to_int(in, len, out, state);
}

void kedoSpl_UpBy2IntToShort(const int* in, int len, short* out, int* state) {
  up_by2_int_to_short(in, len, out, state);
}

void kedoSpl_LPBy2ShortToInt(const short* in, int len, int* out, int* state) {
  lp_by2_short_to_int(in, len, out, state);
}

void kedoSpl_LPBy2IntToInt(const int* in, int len, int* out, int* state) {
  lp_by2_int_to_int(in, len, out, state);
}

}  // extern "C"
