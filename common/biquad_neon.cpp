// NEON builds of the 32-bit biquad kernels (see common/biquad_neon.h).
#include "common/biquad_neon.h"

#if KAFX_NEON_VARIANTS

#include <arm_neon.h>

#include <cstring>
#include <type_traits>

#include "common/biquad.h"

namespace kafx {
namespace {

// Lambdas inside NEON functions need the attribute too (GCC on 32-bit ARM;
// clang builds the whole file for NEON), and inline into their caller.
#if defined(__arm__) && !defined(__clang__)
#define KAFX_TARGET_NEON_LAMBDA __attribute__((target("fpu=neon"), always_inline))
#else
#define KAFX_TARGET_NEON_LAMBDA __attribute__((always_inline))
#endif

// One stereo section pair: lane 0 the left channel's section, lane 1 the
// right channel's, coefficients and history side by side.
struct LanePair {
  int32x2_t b0, b1, b2, a1, a2;
  int32x2_t x1, x2, y1, y2;
};

// Two words (left, right) as one vector.
[[gnu::always_inline]] KAFX_TARGET_NEON inline int32x2_t pair_of(int32_t l, int32_t r) {
  const int32_t w[2] = {l, r};
  return vld1_s32(w);
}

KAFX_TARGET_NEON LanePair load_pair(const IIR_t* fl, const IIR_t* fr) {
  LanePair p;
  p.b0 = pair_of(fl->coef[0], fr->coef[0]);
  p.b1 = pair_of(fl->coef[1], fr->coef[1]);
  p.b2 = pair_of(fl->coef[2], fr->coef[2]);
  p.a1 = pair_of(fl->coef[3], fr->coef[3]);
  p.a2 = pair_of(fl->coef[4], fr->coef[4]);
  p.x1 = pair_of(fl->state[1], fr->state[1]);
  p.x2 = pair_of(fl->state[2], fr->state[2]);
  p.y1 = pair_of(fl->state[3], fr->state[3]);
  p.y2 = pair_of(fl->state[4], fr->state[4]);
  return p;
}

KAFX_TARGET_NEON void store_pair(const LanePair& p, IIR_t* fl, IIR_t* fr) {
  const int32x2_t words[4] = {p.x1, p.x2, p.y1, p.y2};
  for (int h = 0; h < 4; ++h) {
    fl->state[1 + h] = vget_lane_s32(words[h], 0);
    fr->state[1 + h] = vget_lane_s32(words[h], 1);
  }
  // Word 0 holds the last input (x[n] during the last call).
  fl->state[0] = fl->state[1];
  fr->state[0] = fr->state[1];
}

// G groups of D sections in series; unit u = g * D + d is group g's section
// at depth d, a stereo lane pair. Group g reads its input from in_l[g] /
// in_r[g] and writes the last section's output to out_l[g] / out_r[g]
// (which may be the input buffers: a sample is written only after the
// sample after it has been read).
//
// At step t the unit at depth d works on sample t - d, taking as input the
// output that the unit before it produced at step t - 1, so the units of a
// step are independent of each other. Each unit is also software-pipelined
// for in-order cores: of the section's five products only a1 y1 waits for
// the previous output; the other four, for the unit's next sample, are
// summed (in `pre`) as soon as that sample's input is known. The per-lane
// arithmetic is the section's own: x0 = in x 32 saturated (vqshl #5; a
// later section's input y >> 5 times 32 is y with its low five bits
// cleared, which never saturates); acc = b0 x0 + b1 x1 + b2 x2 + a1 y1 +
// a2 y2 wrapping; y = sat32(acc >> 28) (vqshrn #28), -1 -> 0; out = y >> 5.
template <int G, int D>
struct Wave {
  static constexpr int U = G * D;
  LanePair p[U];
  const int32_t* in_l[G];
  const int32_t* in_r[G];
  int32_t* out_l[G];
  int32_t* out_r[G];

  KAFX_TARGET_NEON void run(int n) {
    if (n <= 0) return;
    LanePair q[U];
    int32x2_t x0[U];  // the input of the unit's next sample
    int64x2_t pre[U];  // b0 x0 + b1 x1 + b2 x2 + a2 y2 of that sample
    KAFX_UNROLL
    for (int u = 0; u < U; ++u) q[u] = p[u], x0[u] = vdup_n_s32(0), pre[u] = vdupq_n_s64(0);
    const auto load = [&](int g, int i) KAFX_TARGET_NEON_LAMBDA {
      int32x2_t v = vld1_dup_s32(in_l[g] + i);
      v = vld1_lane_s32(in_r[g] + i, v, 1);
      return vqshl_n_s32(v, 5);
    };
    const auto feed = [&](int u, int32x2_t xn) KAFX_TARGET_NEON_LAMBDA {
      int64x2_t s = vmull_s32(q[u].b1, q[u].x1);
      s = vmlal_s32(s, q[u].b2, q[u].x2);
      s = vmlal_s32(s, q[u].a2, q[u].y2);
      pre[u] = vmlal_s32(s, q[u].b0, xn);
      x0[u] = xn;
    };
    const auto work = [&](int u) KAFX_TARGET_NEON_LAMBDA {
      const int64x2_t acc = vmlal_s32(pre[u], q[u].a1, q[u].y1);
      int32x2_t y = vqshrn_n_s64(acc, 28);
      y = vbic_s32(y, vreinterpret_s32_u32(vceq_s32(y, vdup_n_s32(-1))));
      q[u].x2 = q[u].x1;
      q[u].x1 = x0[u];
      q[u].y2 = q[u].y1;
      q[u].y1 = y;
    };
    // Whether depth d has a sample at step t.
    const auto live = [n](int d, int t) { return t - d >= 0 && t - d < n; };
    const auto step = [&](int t, auto all) KAFX_TARGET_NEON_LAMBDA {
      constexpr bool kAll = decltype(all)::value;
      KAFX_UNROLL
      for (int u = 0; u < U; ++u)
        if (kAll || live(u % D, t)) work(u);
      KAFX_UNROLL
      for (int g = 0; g < G; ++g) {
        if (kAll || live(D - 1, t)) {
          const int32x2_t out = vshr_n_s32(q[g * D + D - 1].y1, 5);
          vst1_lane_s32(out_l[g] + t - (D - 1), out, 0);
          vst1_lane_s32(out_r[g] + t - (D - 1), out, 1);
        }
      }
      KAFX_UNROLL
      for (int u = 0; u < U; ++u) {
        const int d = u % D;
        if (kAll || live(d, t + 1))
          feed(u, d == 0 ? load(u / D, t + 1) : vand_s32(q[u - 1].y1, vdup_n_s32(~31)));
      }
    };
    KAFX_UNROLL
    for (int g = 0; g < G; ++g) feed(g * D, load(g, 0));
    const int steps = n + D - 1;
    int t = 0;
    for (; t < steps && t < D - 1; ++t) step(t, std::false_type{});
    for (; t < n - 1; ++t) step(t, std::true_type{});
    for (; t < steps; ++t) step(t, std::false_type{});
    KAFX_UNROLL
    for (int u = 0; u < U; ++u) p[u] = q[u];
  }
};

bool working(const IIR_t* f) { return f->status != 0; }

KAFX_TARGET_NEON void run_pair(IIR_t* fl, int32_t* l, IIR_t* fr, int32_t* r, int n) {
  Wave<1, 1> w;
  w.p[0] = load_pair(fl, fr);
  w.in_l[0] = w.out_l[0] = l;
  w.in_r[0] = w.out_r[0] = r;
  w.run(n);
  store_pair(w.p[0], fl, fr);
}

// D sections of each channel in series (fl[0], fl[1], ... over l; fr[...]
// over r).
template <int D>
KAFX_TARGET_NEON void run_in_series(IIR_t* const* fl, IIR_t* const* fr, int32_t* l, int32_t* r, int n) {
  Wave<1, D> w;
  for (int d = 0; d < D; ++d) w.p[d] = load_pair(fl[d], fr[d]);
  w.in_l[0] = w.out_l[0] = l;
  w.in_r[0] = w.out_r[0] = r;
  w.run(n);
  for (int d = 0; d < D; ++d) store_pair(w.p[d], fl[d], fr[d]);
}

// The most stereo section pairs one cascade wavefront takes.
constexpr int kCascadeDepth = 4;

KAFX_TARGET_NEON void run_held(IIR_t* const* fl, IIR_t* const* fr, int count, int32_t* l, int32_t* r, int n) {
  static_assert(kCascadeDepth == 4);
  switch (count) {
    case 1: run_in_series<1>(fl, fr, l, r, n); break;
    case 2: run_in_series<2>(fl, fr, l, r, n); break;
    case 3: run_in_series<3>(fl, fr, l, r, n); break;
    case 4: run_in_series<4>(fl, fr, l, r, n); break;
    default: break;
  }
}

// A stereo pair of sections in which at most one works: that one runs alone
// (the scalar kernel).
void run_sides(IIR_t* fl, int32_t* l, IIR_t* fr, int32_t* r, int n) {
  if (working(fl)) biquad_block32(fl, l, n);
  if (working(fr)) biquad_block32(fr, r, n);
}

}  // namespace

KAFX_TARGET_NEON void biquad_block32_pair_neon(IIR_t* fa, int32_t* a, IIR_t* fb, int32_t* b, int n) {
  if (n <= 0) return;
  if (working(fa) && working(fb)) {
    run_pair(fa, a, fb, b, n);
  } else {
    run_sides(fa, a, fb, b, n);
  }
}

KAFX_TARGET_NEON void biquad_cascade_pair_neon(IIR_t* const* left, int nl, int32_t* l, IIR_t* const* right, int nr,
                                               int32_t* r, int n) {
  if (n <= 0) return;
  // The channels are independent and each one's sections run in order:
  // stereo pairs wait in `held` until kCascadeDepth of them run together; a
  // section working on one side only runs alone, after the pairs before it.
  const int both = nl < nr ? nl : nr;
  IIR_t* held_l[kCascadeDepth];
  IIR_t* held_r[kCascadeDepth];
  int held = 0;
  for (int k = 0; k < both; ++k) {
    const bool wl = working(left[k]), wr = working(right[k]);
    if (wl && wr) {
      held_l[held] = left[k];
      held_r[held] = right[k];
      if (++held == kCascadeDepth) {
        run_held(held_l, held_r, held, l, r, n);
        held = 0;
      }
      continue;
    }
    if (!wl && !wr) continue;
    run_held(held_l, held_r, held, l, r, n);
    held = 0;
    run_sides(left[k], l, right[k], r, n);
  }
  run_held(held_l, held_r, held, l, r, n);
  for (int k = both; k < nl; ++k)
    if (working(left[k])) biquad_block32(left[k], l, n);
  for (int k = both; k < nr; ++k)
    if (working(right[k])) biquad_block32(right[k], r, n);
}

KAFX_TARGET_NEON void biquad_crossover_stereo_neon(const CrossoverStage* left, const CrossoverStage* right,
                                                   int stages, int32_t* xl, int32_t* xr, int32_t* const* low_l,
                                                   int32_t* const* low_r, int n) {
  if (n <= 0) return;
  const size_t bytes = static_cast<size_t>(n) * sizeof(int32_t);
  for (int k = 0; k < stages; ++k) {
    const CrossoverStage& sl = left[k];
    const CrossoverStage& sr = right[k];
    bool all = true;
    for (int s = 0; s < 2; ++s)
      all = all && working(sl.a[s]) && working(sl.b[s]) && working(sr.a[s]) && working(sr.b[s]);
    if (all) {
      // Group 0: branch A from the stage's input into the low band; group
      // 1: branch B in place. Both read sample t + 1 of the input at step
      // t, when B has written only up to sample t - 1.
      Wave<2, 2> w;
      IIR_t* const fl[4] = {sl.a[0], sl.a[1], sl.b[0], sl.b[1]};
      IIR_t* const fr[4] = {sr.a[0], sr.a[1], sr.b[0], sr.b[1]};
      for (int u = 0; u < 4; ++u) w.p[u] = load_pair(fl[u], fr[u]);
      w.in_l[0] = w.in_l[1] = w.out_l[1] = xl;
      w.in_r[0] = w.in_r[1] = w.out_r[1] = xr;
      w.out_l[0] = low_l[k];
      w.out_r[0] = low_r[k];
      w.run(n);
      for (int u = 0; u < 4; ++u) store_pair(w.p[u], fl[u], fr[u]);
      continue;
    }
    std::memcpy(low_l[k], xl, bytes);
    std::memcpy(low_r[k], xr, bytes);
    for (int s = 0; s < 2; ++s) {
      biquad_block32_pair_neon(sl.a[s], low_l[k], sr.a[s], low_r[k], n);
      biquad_block32_pair_neon(sl.b[s], xl, sr.b[s], xr, n);
    }
  }
}

}  // namespace kafx

#endif  // KAFX_NEON_VARIANTS
