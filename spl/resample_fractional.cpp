// Fractional polyphase resampling stages: 3 -> 2, 4 -> 3, 11 -> 8, 16 -> 11.
//
// Each stage is a short FIR low-pass evaluated only at the output instants.
// The input is a 32-bit intermediate sample stream; each output is
//     16384 + sum_k c[k] * x[n + k]      (Q15 taps, 32-bit wrap-around sum)
// i.e. the filtered signal << 15 with a half added for the later rounding
// shift. For the 11 -> 8 and 16 -> 11 stages one output instant falls on an
// input sample and is that sample << 15 plus the half; the other instants
// come in mirrored pairs that share one tap row (one read forwards from the
// left, one backwards from the right).
//
// Every kernel computes a whole group of blocks into locals before it stores
// anything, so it gives the plain result both for separate buffers and when
// the output trails the input in the same buffer (out <= in), which is how
// the fixed-ratio resamplers chain their stages in place. The exported
// stages fall back to the one-output-at-a-time order when the caller's
// buffers overlap in any other way.
#include <cstddef>
#include <utility>

#include "kafx_proc/spl.h"
#include "spl/simd.h"
#include "spl/spl_internal.h"

namespace kafx::spl {

namespace {

// Q15 polyphase tap rows.
constexpr int16_t k48To32[2][8] = {
    {778, -2050, 1087, 23285, 12903, -3783, 441, 222},
    {222, 441, -3783, 12903, 23285, 1087, -2050, 778},
};

constexpr int16_t k32To24[3][8] = {
    {767, -2362, 2434, 24406, 10620, -3838, 721, 90},
    {386, -381, -2646, 19062, 19062, -2646, -381, 386},
    {90, 721, -3838, 10620, 24406, 2434, -2362, 767},
};

constexpr int16_t k44To32[4][9] = {
    {117, -669, 2245, -6183, 26267, 13529, -3245, 845, -138},
    {-101, 612, -2283, 8532, 29790, -5138, 1789, -524, 91},
    {50, -292, 1016, -3064, 32010, 3933, -1147, 315, -53},
    {-156, 974, -3863, 18603, 21691, -6246, 2353, -712, 126},
};

constexpr int16_t k32To22[5][9] = {
    {127, -712, 2359, -6333, 23456, 16775, -3695, 945, -154},
    {-39, 230, -830, 2785, 32366, -2324, 760, -218, 38},
    {117, -663, 2222, -6133, 26634, 13070, -3174, 831, -137},
    {-77, 457, -1677, 5958, 31175, -4136, 1405, -408, 71},
    {98, -560, 1900, -5406, 29240, 9423, -2480, 663, -110},
};

constexpr uint32_t kHalf = 16384;  // 0.5 in the << 15 output format

// One output: the tap row read forwards from x[first] (Dir = +1) or
// backwards (Dir = -1). Unsigned accumulation gives the 32-bit wrap.
template <int N, int Dir>
inline int32_t dot(const int32_t* x, int first, const int16_t* c) {
  uint32_t acc = kHalf;
  KAFX_UNROLL
  for (int k = 0; k < N; ++k) {
    acc += static_cast<uint32_t>(c[k]) * static_cast<uint32_t>(x[first + Dir * k]);
  }
  return static_cast<int32_t>(acc);
}

// The on-sample output instant: x << 15 plus the half.
inline int32_t on_sample(int32_t x) { return wrap_add(wrap_shl<15>(x), 16384); }

// Word addresses, so that buffers of unrelated objects can be compared.
inline std::uintptr_t addr(const int32_t* p) { return reinterpret_cast<std::uintptr_t>(p); }

// True when [a, a + na) and [b, b + nb) share a word.
inline bool overlaps(const int32_t* a, std::ptrdiff_t na, const int32_t* b, std::ptrdiff_t nb) {
  return addr(a) < addr(b) + 4 * static_cast<std::uintptr_t>(nb) &&
         addr(b) < addr(a) + 4 * static_cast<std::uintptr_t>(na);
}

// ---------------------------------------------------------------------------
// Block layouts: R input samples and W outputs per block, N taps per row,
// Span the furthest input offset a block reads. Each output is described by
// its tap row, the offset its sum starts at and the direction the row runs;
// the on-sample output is x[first] << 15 plus the half (or, going straight
// to 16 bits, x[first]).
enum Kind { kFwd, kBwd, kOnSample, kRaw };

struct Out {
  Kind kind;
  int row;
  int first;
};

struct Layout48To32 {
  static constexpr int R = 3, W = 2, N = 8, Span = 8;
  static constexpr const int16_t (*taps)[8] = k48To32;
  static constexpr Out outs[W] = {{kFwd, 0, 0}, {kFwd, 1, 1}};
};

struct Layout32To24 {
  static constexpr int R = 4, W = 3, N = 8, Span = 9;
  static constexpr const int16_t (*taps)[8] = k32To24;
  static constexpr Out outs[W] = {{kFwd, 0, 0}, {kFwd, 1, 1}, {kFwd, 2, 2}};
};

struct Layout44To32 {
  static constexpr int R = 11, W = 8, N = 9, Span = 17;
  static constexpr const int16_t (*taps)[9] = k44To32;
  static constexpr Out outs[W] = {{kOnSample, 0, 3}, {kFwd, 0, 0},  {kFwd, 1, 2},  {kFwd, 2, 3},
                                  {kFwd, 3, 5},      {kBwd, 2, 14}, {kBwd, 1, 15}, {kBwd, 0, 17}};
};

struct Layout32To22 {
  static constexpr int R = 16, W = 11, N = 9, Span = 22;
  static constexpr const int16_t (*taps)[9] = k32To22;
  static constexpr Out outs[W] = {{kOnSample, 0, 3}, {kFwd, 0, 0},  {kFwd, 1, 2},  {kFwd, 2, 3},
                                  {kFwd, 3, 5},      {kFwd, 4, 6},  {kBwd, 4, 16}, {kBwd, 3, 17},
                                  {kBwd, 2, 19},     {kBwd, 1, 20}, {kBwd, 0, 22}};
};

// The 16 -> 11 stage straight to 16 bits: the on-sample output is the raw
// input sample.
struct Layout32To22Short : Layout32To22 {
  static constexpr Out outs[W] = {{kRaw, 0, 3},  {kFwd, 0, 0},  {kFwd, 1, 2},  {kFwd, 2, 3},
                                  {kFwd, 3, 5},  {kFwd, 4, 6},  {kBwd, 4, 16}, {kBwd, 3, 17},
                                  {kBwd, 2, 19}, {kBwd, 1, 20}, {kBwd, 0, 22}};
};

// ---------------------------------------------------------------------------
// Group kernel: G blocks at a time. The group's input is first split into
// its R phases (phase r holds x[R j + r]), so that the sample at offset t of
// every block of the group is one contiguous run, phase t % R from index
// t / R. Every tap then becomes one multiply-add over G consecutive lanes.
// The whole group is read before any output is written. A last, partial
// group reads only its own blocks' input (the unused lanes compute on
// zeros) and stores only its own outputs.
constexpr int kGroup = 8;

template <typename Ly>
struct Phases {
  static constexpr int kLen = kGroup + Ly::Span / Ly::R + 1;
  int32_t p[Ly::R][kLen];

  void fill(const int32_t* x, int blocks) {
    const int last = Ly::R * (blocks - 1) + Ly::Span;  // last input read
    if (blocks == kGroup) {
      // Straight-line copies with constant offsets, also at -O2.
#pragma GCC unroll 8
      for (int j = 0; j < kGroup; ++j) {
#pragma GCC unroll 16
        for (int r = 0; r < Ly::R; ++r) p[r][j] = x[Ly::R * j + r];
      }
      constexpr int kLast = Ly::R * (kGroup - 1) + Ly::Span;
#pragma GCC unroll 16
      for (int t = Ly::R * kGroup; t <= kLast; ++t) p[t % Ly::R][t / Ly::R] = x[t];
    } else {
      for (int j = 0; j < kLen; ++j) {
        for (int r = 0; r < Ly::R; ++r) {
          const int t = Ly::R * j + r;
          p[r][j] = t <= last ? x[t] : 0;
        }
      }
    }
  }
};

// The G lanes of one output as vectors: on x86-64 the eight lanes are one
// vector (one AVX2 register, two in the SSE2 baseline), elsewhere two
// vectors of four (NEON's registers, where one vector of eight is slower).
#if defined(__x86_64__)
typedef uint32_t GroupVector __attribute__((vector_size(32)));
#else
typedef simd::v4u GroupVector;
#endif
constexpr int kVectorLanes = sizeof(GroupVector) / sizeof(uint32_t);
constexpr int kQuads = kGroup / kVectorLanes;
using Lanes = GroupVector[kQuads];

// One tap of one output over the G lanes of a group; K is the tap index.
template <typename Ly, int W, int K>
[[gnu::always_inline]] inline void group_tap(const Phases<Ly>& ph, Lanes& a) {
  constexpr Out d = Ly::outs[W];
  constexpr int t = d.kind == kFwd ? d.first + K : d.first - K;
  constexpr uint32_t c = static_cast<uint32_t>(static_cast<int32_t>(Ly::taps[d.row][K]));
  const int32_t* src = &ph.p[t % Ly::R][t / Ly::R];
  for (int q = 0; q < kQuads; ++q) {
    GroupVector x;
    std::memcpy(&x, src + kVectorLanes * q, sizeof x);
    a[q] += c * x;
  }
}

// (Helpers instead of lambdas: a lambda would not inherit the instruction
// set of a multiversioned caller.)
template <typename Ly, int W, int... K>
[[gnu::always_inline]] inline void group_taps(const Phases<Ly>& ph, Lanes& a,
                                              std::integer_sequence<int, K...>) {
  (group_tap<Ly, W, K>(ph, a), ...);
}

template <typename Ly, int W>
[[gnu::always_inline]] inline void group_output(const Phases<Ly>& ph, uint32_t (&out)[kGroup]) {
  constexpr Out d = Ly::outs[W];
  Lanes a;
  if constexpr (d.kind == kOnSample || d.kind == kRaw) {
    constexpr int sh = d.kind == kOnSample ? 15 : 0;
    constexpr uint32_t add = d.kind == kOnSample ? kHalf : 0;
    const int32_t* src = &ph.p[d.first % Ly::R][d.first / Ly::R];
    for (int q = 0; q < kQuads; ++q) {
      std::memcpy(&a[q], src + kVectorLanes * q, sizeof a[q]);
      a[q] = (a[q] << sh) + add;
    }
  } else {
    for (int q = 0; q < kQuads; ++q) a[q] = GroupVector{} + kHalf;
    group_taps<Ly, W>(ph, a, std::make_integer_sequence<int, Ly::N>{});
  }
  for (int q = 0; q < kQuads; ++q) std::memcpy(out + kVectorLanes * q, &a[q], sizeof a[q]);
}

template <typename Ly, int... W>
[[gnu::always_inline]] inline void group_outputs(const Phases<Ly>& ph,
                                                 uint32_t (&acc)[Ly::W][kGroup],
                                                 std::integer_sequence<int, W...>) {
  (group_output<Ly, W>(ph, acc[W]), ...);
}

template <typename Ly>
[[gnu::always_inline]] inline void group_sums(const int32_t* x, int blocks,
                                              uint32_t (&acc)[Ly::W][kGroup]) {
  Phases<Ly> ph;
  ph.fill(x, blocks);
  group_outputs<Ly>(ph, acc, std::make_integer_sequence<int, Ly::W>{});
}

template <typename Ly>
[[gnu::always_inline]] inline void run_to_int(const int32_t* in, int32_t* out, int K) {
  for (int m = 0; m < K; m += kGroup) {
    const int blocks = K - m < kGroup ? K - m : kGroup;
    uint32_t acc[Ly::W][kGroup];
    group_sums<Ly>(in + Ly::R * m, blocks, acc);
    int32_t* o = out + Ly::W * m;
    if (blocks == kGroup) {
#pragma GCC unroll 8
      for (int j = 0; j < kGroup; ++j) {
#pragma GCC unroll 16
        for (int w = 0; w < Ly::W; ++w) o[Ly::W * j + w] = static_cast<int32_t>(acc[w][j]);
      }
    } else {
      for (int j = 0; j < blocks; ++j) {
        for (int w = 0; w < Ly::W; ++w) o[Ly::W * j + w] = static_cast<int32_t>(acc[w][j]);
      }
    }
  }
}

// The group kernels of the five stages, one body each; the builds per
// instruction set follow the anonymous namespace (common/dispatch.h).

// 3 -> 2: outputs at x[3m] and x[3m + 1] with the two mirrored rows.
[[gnu::always_inline]] inline void fir_48_32_mv_body(const int32_t* in, int32_t* out, int K) {
  run_to_int<Layout48To32>(in, out, K);
}

// 4 -> 3: outputs at x[4m], x[4m + 1], x[4m + 2].
[[gnu::always_inline]] inline void fir_32_24_mv_body(const int32_t* in, int32_t* out, int K) {
  run_to_int<Layout32To24>(in, out, K);
}

// 11 -> 8: output 0 on sample 3, output 4 from row 3 at sample 5, and the
// mirrored pairs (1, 7), (2, 6), (3, 5) from rows 0, 1, 2.
[[gnu::always_inline]] inline void fir_44_32_mv_body(const int32_t* in, int32_t* out, int K) {
  run_to_int<Layout44To32>(in, out, K);
}

// 16 -> 11: output 0 on sample 3 and five mirrored pairs.
[[gnu::always_inline]] inline void fir_32_22_mv_body(const int32_t* in, int32_t* out, int K) {
  run_to_int<Layout32To22>(in, out, K);
}

// 16 -> 11 straight to 16 bits: the sums are brought down by 15 bits and
// saturated; the on-sample output is the input sample itself, saturated.
[[gnu::always_inline]] inline void fir_32_22_to_short_mv_body(const int32_t* in, int16_t* out, int K) {
  using Ly = Layout32To22Short;
  for (int m = 0; m < K; m += kGroup) {
    const int blocks = K - m < kGroup ? K - m : kGroup;
    uint32_t acc[Ly::W][kGroup];
    group_sums<Ly>(in + Ly::R * m, blocks, acc);
    for (int j = 0; j < blocks; ++j) {
      int16_t* o = out + Ly::W * (m + j);
      o[0] = sat16(static_cast<int32_t>(acc[0][j]));
      for (int w = 1; w < Ly::W; ++w) o[w] = sat16(static_cast<int32_t>(acc[w][j]) >> 15);
    }
  }
}

}  // namespace

KAFX_KERNEL_VARIANTS(void, fir_48_32_mv, (const int32_t* in, int32_t* out, int K), (in, out, K))
KAFX_KERNEL_VARIANTS(void, fir_32_24_mv, (const int32_t* in, int32_t* out, int K), (in, out, K))
KAFX_KERNEL_VARIANTS(void, fir_44_32_mv, (const int32_t* in, int32_t* out, int K), (in, out, K))
KAFX_KERNEL_VARIANTS(void, fir_32_22_mv, (const int32_t* in, int32_t* out, int K), (in, out, K))
KAFX_KERNEL_VARIANTS(void, fir_32_22_to_short_mv, (const int32_t* in, int16_t* out, int K), (in, out, K))

namespace {

// The one-output-at-a-time order, for callers whose buffers overlap in a
// way the group kernels do not cover: every output is stored as soon as it
// is complete, in the order the outputs of a block are listed above, and a
// mirrored pair stores its forward sum before the last tap of the backward
// sum is read.
void fir_48_32_serial(const int32_t* in, int32_t* out, int K) {
  for (int m = 0; m < K; ++m) {
    out[2 * m] = dot<8, 1>(in + 3 * m, 0, k48To32[0]);
    out[2 * m + 1] = dot<8, 1>(in + 3 * m, 1, k48To32[1]);
  }
}

}  // namespace

// 3 -> 2 with both outputs of a block formed together, tap by tap (two
// independent accumulations side by side, each input word loaded once), and
// stored after the block's inputs are read: the plain result for separate
// buffers and for out <= in.
void fir_48_32_paired(const int32_t* in, int32_t* out, int K) {
  for (int m = 0; m < K; ++m) {
    const int32_t* x = in + 3 * m;
    uint32_t a = kHalf, b = kHalf;
    KAFX_UNROLL
    for (int k = 0; k < 8; ++k) {
      a += static_cast<uint32_t>(k48To32[0][k]) * static_cast<uint32_t>(x[k]);
      b += static_cast<uint32_t>(k48To32[1][k]) * static_cast<uint32_t>(x[k + 1]);
    }
    out[2 * m] = static_cast<int32_t>(a);
    out[2 * m + 1] = static_cast<int32_t>(b);
  }
}

namespace {

void fir_32_24_serial(const int32_t* in, int32_t* out, int K) {
  for (int m = 0; m < K; ++m) {
    KAFX_UNROLL
    for (int r = 0; r < 3; ++r) out[3 * m + r] = dot<8, 1>(in + 4 * m, r, k32To24[r]);
  }
}

inline void pair_serial(const int32_t* x, int fwd, int bwd, const int16_t* c, int32_t* o_fwd,
                        int32_t* o_bwd) {
  const int32_t a = dot<9, 1>(x, fwd, c);
  const uint32_t b = static_cast<uint32_t>(dot<8, -1>(x, bwd, c));
  *o_fwd = a;
  *o_bwd =
      static_cast<int32_t>(b + static_cast<uint32_t>(c[8]) * static_cast<uint32_t>(x[bwd - 8]));
}

void fir_44_32_serial(const int32_t* in, int32_t* out, int K) {
  for (int m = 0; m < K; ++m) {
    const int32_t* x = in + 11 * m;
    int32_t* o = out + 8 * m;
    o[0] = on_sample(x[3]);
    o[4] = dot<9, 1>(x, 5, k44To32[3]);
    pair_serial(x, 0, 17, k44To32[0], o + 1, o + 7);
    pair_serial(x, 2, 15, k44To32[1], o + 2, o + 6);
    pair_serial(x, 3, 14, k44To32[2], o + 3, o + 5);
  }
}

void fir_32_22_serial(const int32_t* in, int32_t* out, int K) {
  static constexpr int kFwd[5] = {0, 2, 3, 5, 6};
  static constexpr int kBwd[5] = {22, 20, 19, 17, 16};
  for (int m = 0; m < K; ++m) {
    const int32_t* x = in + 16 * m;
    int32_t* o = out + 11 * m;
    o[0] = on_sample(x[3]);
    KAFX_UNROLL
    for (int r = 0; r < 5; ++r) pair_serial(x, kFwd[r], kBwd[r], k32To22[r], o + 1 + r, o + 10 - r);
  }
}

}  // namespace

namespace {

// A block's sums formed side by side, tap by tap (one accumulation per
// output, independent of each other), and stored after the block's inputs
// are read: the plain result for separate buffers and for out <= in.
template <typename Ly>
[[gnu::always_inline]] inline void run_paired(const int32_t* in, int32_t* out, int K) {
  for (int m = 0; m < K; ++m) {
    const int32_t* x = in + Ly::R * m;
    uint32_t acc[Ly::W];
    KAFX_UNROLL
    for (int w = 0; w < Ly::W; ++w) {
      const Out d = Ly::outs[w];
      acc[w] = d.kind == kOnSample ? static_cast<uint32_t>(on_sample(x[d.first])) : kHalf;
    }
    KAFX_UNROLL
    for (int k = 0; k < Ly::N; ++k) {
      KAFX_UNROLL
      for (int w = 0; w < Ly::W; ++w) {
        const Out d = Ly::outs[w];
        if (d.kind != kFwd && d.kind != kBwd) continue;
        const uint32_t c = static_cast<uint32_t>(Ly::taps[d.row][k]);
        acc[w] += c * static_cast<uint32_t>(x[d.kind == kFwd ? d.first + k : d.first - k]);
      }
    }
    int32_t* o = out + Ly::W * m;
    KAFX_UNROLL
    for (int w = 0; w < Ly::W; ++w) o[w] = static_cast<int32_t>(acc[w]);
  }
}

}  // namespace

// 11 -> 8 with a block's sums side by side.
void fir_44_32_paired(const int32_t* in, int32_t* out, int K) { run_paired<Layout44To32>(in, out, K); }

// 16 -> 11 likewise, written out with each mirrored pair's two sums next to
// each other (they share a tap row): on AArch64 this order takes fewer
// cycles than the general form's (llvm-mca's Cortex-A55 model).
void fir_32_22_paired(const int32_t* in, int32_t* out, int K) {
  static constexpr int kFwd[5] = {0, 2, 3, 5, 6};
  static constexpr int kBwd[5] = {22, 20, 19, 17, 16};
  for (int m = 0; m < K; ++m) {
    const int32_t* x = in + 16 * m;
    uint32_t f[5], b[5];
    KAFX_UNROLL
    for (int r = 0; r < 5; ++r) f[r] = b[r] = kHalf;
    KAFX_UNROLL
    for (int k = 0; k < 9; ++k) {
      KAFX_UNROLL
      for (int r = 0; r < 5; ++r) {
        const uint32_t c = static_cast<uint32_t>(k32To22[r][k]);
        f[r] += c * static_cast<uint32_t>(x[kFwd[r] + k]);
        b[r] += c * static_cast<uint32_t>(x[kBwd[r] - k]);
      }
    }
    int32_t* o = out + 11 * m;
    o[0] = on_sample(x[3]);
    KAFX_UNROLL
    for (int r = 0; r < 5; ++r) {
      o[1 + r] = static_cast<int32_t>(f[r]);
      o[10 - r] = static_cast<int32_t>(b[r]);
    }
  }
}

namespace {

// Whether the group kernels give the one-at-a-time result: separate
// buffers, or an output that trails the input by at least `gap` words (the
// distance below which a block would overwrite input it still reads).
inline bool group_safe(const int32_t* in, std::ptrdiff_t n_in, const int32_t* out,
                       std::ptrdiff_t n_out, std::ptrdiff_t gap) {
  return !overlaps(in, n_in, out, n_out) ||
         addr(out) + 4 * static_cast<std::uintptr_t>(gap) <= addr(in);
}

}  // namespace

// The 16 -> 11 stage straight to 16 bits, one output at a time (the output
// is a separate buffer of samples).
void fir_32_22_to_short_serial(const int32_t* in, int16_t* out, int K) {
  static constexpr int kFwd[5] = {0, 2, 3, 5, 6};
  static constexpr int kBwd[5] = {22, 20, 19, 17, 16};
  for (int m = 0; m < K; ++m) {
    const int32_t* x = in + 16 * m;
    int16_t* o = out + 11 * m;
    o[0] = sat16(x[3]);
    KAFX_UNROLL
    for (int r = 0; r < 5; ++r) {
      o[1 + r] = sat16(dot<9, 1>(x, kFwd[r], k32To22[r]) >> 15);
      o[10 - r] = sat16(dot<9, -1>(x, kBwd[r], k32To22[r]) >> 15);
    }
  }
}

// The stages as the fixed-ratio resamplers call them (in place, the output
// trailing the input), in the form chosen per architecture (see
// kFir48To32Form and kFirForm in spl_internal.h); all forms give the same
// results.
void fir_48_32(const int32_t* in, int32_t* out, int K) {
  if constexpr (kFir48To32Form == FirForm::kPaired) {
    fir_48_32_paired(in, out, K);
  } else if constexpr (kFir48To32Form == FirForm::kSerial) {
    fir_48_32_serial(in, out, K);
  } else {
    fir_48_32_mv(in, out, K);
  }
}
void fir_32_24(const int32_t* in, int32_t* out, int K) {
  kFirForm == FirForm::kGroup ? fir_32_24_mv(in, out, K) : fir_32_24_serial(in, out, K);
}
void fir_44_32(const int32_t* in, int32_t* out, int K) {
  if constexpr (kFir44To32Form == FirForm::kPaired) {
    fir_44_32_paired(in, out, K);
  } else if constexpr (kFir44To32Form == FirForm::kSerial) {
    fir_44_32_serial(in, out, K);
  } else {
    fir_44_32_mv(in, out, K);
  }
}
void fir_32_22(const int32_t* in, int32_t* out, int K) {
  if constexpr (kFir32To22Form == FirForm::kPaired) {
    fir_32_22_paired(in, out, K);
  } else if constexpr (kFir32To22Form == FirForm::kSerial) {
    fir_32_22_serial(in, out, K);
  } else {
    fir_32_22_mv(in, out, K);
  }
}
void fir_32_22_to_short(const int32_t* in, int16_t* out, int K) {
  kFirForm == FirForm::kGroup ? fir_32_22_to_short_mv(in, out, K) : fir_32_22_to_short_serial(in, out, K);
}

}  // namespace kafx::spl

using namespace kafx::spl;

extern "C" {

void kedoSpl_Resample48khzTo32khz(const int* in, int* out, int K) {
  if (K <= 0) return;
  const std::ptrdiff_t k = K;
  if (group_safe(in, 3 * k + 6, out, 2 * k, 0)) {
    fir_48_32(in, out, K);
  } else {
    fir_48_32_serial(in, out, K);
  }
}

void kedoSpl_Resample32khzTo24khz(const int* in, int* out, int K) {
  if (K <= 0) return;
  const std::ptrdiff_t k = K;
  if (group_safe(in, 4 * k + 6, out, 3 * k, 0)) {
    fir_32_24(in, out, K);
  } else {
    fir_32_24_serial(in, out, K);
  }
}

void kedoSpl_Resample44khzTo32khz(const int* in, int* out, int K) {
  if (K <= 0) return;
  const std::ptrdiff_t k = K;
  if (group_safe(in, 11 * k + 7, out, 8 * k, 6)) {
    fir_44_32(in, out, K);
  } else {
    fir_44_32_serial(in, out, K);
  }
}

void kedoSpl_32khzTo22khzIntToInt(const int* in, int* out, int K) {
  if (K <= 0) return;
  const std::ptrdiff_t k = K;
  if (group_safe(in, 16 * k + 7, out, 11 * k, 9)) {
    fir_32_22(in, out, K);
  } else {
    fir_32_22_serial(in, out, K);
  }
}

}  // extern "C"
