// NEON builds of the 32-bit biquad kernels (see common/biquad_neon.h).
#include "common/biquad_neon.h"

#if KAFX_NEON_VARIANTS

#include <arm_neon.h>

#include <cstring>

#include "common/biquad.h"

namespace kafx {
namespace {

// Lambdas inside NEON functions need the attribute too (GCC on 32-bit ARM),
// and inline into their caller.
#if defined(__arm__)
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

// One sample through both lanes: x0 = in x 32 saturated;
// acc = b0 x0 + b1 x1 + b2 x2 + a1 y1 + a2 y2 (wrapping); y = sat32(acc >> 28)
// with -1 -> 0; returns y >> 5. Only the a1 y1 product waits for the previous
// sample's output, so it is added last.
[[gnu::always_inline]] KAFX_TARGET_NEON inline int32x2_t pair_step(LanePair& p, int32x2_t in) {
  const int32x2_t x0 = vqshl_n_s32(in, 5);
  int64x2_t acc = vmull_s32(p.b1, p.x1);
  acc = vmlal_s32(acc, p.b2, p.x2);
  acc = vmlal_s32(acc, p.a2, p.y2);
  acc = vmlal_s32(acc, p.b0, x0);
  acc = vmlal_s32(acc, p.a1, p.y1);
  int32x2_t y = vqshrn_n_s64(acc, 28);
  y = vbic_s32(y, vreinterpret_s32_u32(vceq_s32(y, vdup_n_s32(-1))));
  p.x2 = p.x1;
  p.x1 = x0;
  p.y2 = p.y1;
  p.y1 = y;
  return vshr_n_s32(y, 5);
}

// U lane pairs over their own buffers (pair u filters l[u] and r[u] in
// place), in kLayers layers: pair u belongs to layer u / (U / kLayers) and at
// step t works on sample t - layer. A pair of layer g + 1 may filter, in
// place, the buffers a pair of layer g filters: it reads each sample one
// step after that pair wrote it. Every pair sees its samples in order, so
// this equals running the layers one after the other.
template <int U, int kLayers>
struct Lanes {
  static_assert(U % kLayers == 0);
  LanePair p[U];
  int32_t* l[U];
  int32_t* r[U];

  static constexpr int layer(int u) { return u / (U / kLayers); }

  // The pairs are copied into locals for the loop (so that they can live in
  // registers) and back afterwards.
  KAFX_TARGET_NEON void run(int n) {
    LanePair q[U];
    int32_t* bl[U];
    int32_t* br[U];
    KAFX_UNROLL
    for (int u = 0; u < U; ++u) q[u] = p[u], bl[u] = l[u], br[u] = r[u];
    const auto step = [&](int u, int i) KAFX_TARGET_NEON_LAMBDA {
      int32x2_t in = vld1_dup_s32(bl[u] + i);
      in = vld1_lane_s32(br[u] + i, in, 1);
      const int32x2_t out = pair_step(q[u], in);
      vst1_lane_s32(bl[u] + i, out, 0);
      vst1_lane_s32(br[u] + i, out, 1);
    };
    // Steps where some layers have no sample (yet, or any more).
    const auto edge = [&](int t) KAFX_TARGET_NEON_LAMBDA {
      KAFX_UNROLL
      for (int u = 0; u < U; ++u) {
        const int i = t - layer(u);
        if (i >= 0 && i < n) step(u, i);
      }
    };
    constexpr int kLag = kLayers - 1;
    int t = 0;
    for (; t < kLag && t < n + kLag; ++t) edge(t);
    for (; t < n; ++t) {
      KAFX_UNROLL
      for (int u = 0; u < U; ++u) step(u, t - layer(u));
    }
    for (; t < n + kLag; ++t) edge(t);
    KAFX_UNROLL
    for (int u = 0; u < U; ++u) p[u] = q[u];
  }
};

bool working(const IIR_t* f) { return f->status != 0; }

KAFX_TARGET_NEON void run_pair(IIR_t* fl, int32_t* l, IIR_t* fr, int32_t* r, int n) {
  Lanes<1, 1> w;
  w.p[0] = load_pair(fl, fr);
  w.l[0] = l;
  w.r[0] = r;
  w.run(n);
  store_pair(w.p[0], fl, fr);
}

// Two sections of each channel in series (fl0 then fl1 over l, fr0 then fr1
// over r), the second one sample behind the first.
KAFX_TARGET_NEON void run_two_in_series(IIR_t* fl0, IIR_t* fr0, IIR_t* fl1, IIR_t* fr1, int32_t* l, int32_t* r,
                                        int n) {
  Lanes<2, 2> w;
  w.p[0] = load_pair(fl0, fr0);
  w.p[1] = load_pair(fl1, fr1);
  w.l[0] = w.l[1] = l;
  w.r[0] = w.r[1] = r;
  w.run(n);
  store_pair(w.p[0], fl0, fr0);
  store_pair(w.p[1], fl1, fr1);
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
  // The channels are independent and each one's sections run in order: a
  // stereo pair waits in `held` for the next one so that the two run
  // together; a section working on one side only runs alone, after the
  // pairs before it.
  const int both = nl < nr ? nl : nr;
  int held = -1;
  for (int k = 0; k < both; ++k) {
    const bool wl = working(left[k]), wr = working(right[k]);
    if (wl && wr) {
      if (held < 0) {
        held = k;
      } else {
        run_two_in_series(left[held], right[held], left[k], right[k], l, r, n);
        held = -1;
      }
      continue;
    }
    if (!wl && !wr) continue;
    if (held >= 0) {
      run_pair(left[held], l, right[held], r, n);
      held = -1;
    }
    run_sides(left[k], l, right[k], r, n);
  }
  if (held >= 0) run_pair(left[held], l, right[held], r, n);
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
    std::memcpy(low_l[k], xl, bytes);
    std::memcpy(low_r[k], xr, bytes);
    bool all = true;
    for (int s = 0; s < 2; ++s)
      all = all && working(sl.a[s]) && working(sl.b[s]) && working(sr.a[s]) && working(sr.b[s]);
    if (all) {
      // Pairs 0, 1: the first sections of branch A (over the low band) and
      // B (over the high band); pairs 2, 3: the second sections, a sample
      // behind.
      Lanes<4, 2> w;
      IIR_t* const fl[4] = {sl.a[0], sl.b[0], sl.a[1], sl.b[1]};
      IIR_t* const fr[4] = {sr.a[0], sr.b[0], sr.a[1], sr.b[1]};
      for (int u = 0; u < 4; ++u) {
        w.p[u] = load_pair(fl[u], fr[u]);
        w.l[u] = u % 2 == 0 ? low_l[k] : xl;
        w.r[u] = u % 2 == 0 ? low_r[k] : xr;
      }
      w.run(n);
      for (int u = 0; u < 4; ++u) store_pair(w.p[u], fl[u], fr[u]);
      continue;
    }
    for (int s = 0; s < 2; ++s) {
      biquad_block32_pair_neon(sl.a[s], low_l[k], sr.a[s], low_r[k], n);
      biquad_block32_pair_neon(sl.b[s], xl, sr.b[s], xr, n);
    }
  }
}

}  // namespace kafx

#endif  // KAFX_NEON_VARIANTS
