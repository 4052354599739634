// In-place 16-bit complex FFT and inverse FFT (radix 2, decimation in time)
// with bit reversal.
//
// Data: n = 2^stages complex values as interleaved 16-bit re/im pairs.
// Twiddle factors are Q15 values from a 1024-entry sine table; the stage
// whose butterflies span 2l points uses every (512 / l)-th entry, cos taken
// a quarter period further on. The forward transform halves the data at
// every stage (the result is the transform divided by n). The inverse
// transform scales per stage by 0, 1 or 2 bits depending on the current
// peak magnitude and reports the total, so that the caller can undo it.
//
// Within one stage every butterfly touches its own pair of points, so the
// order of butterflies is free: the stages run group by group with the
// butterflies of a group contiguous in memory, which keeps the twiddle
// factors of a stage in one contiguous table and lets the inner loops run
// over consecutive points.
#include <array>
#include <cstring>
#include <utility>

#include "common/dispatch.h"
#include "kafx_proc/spl.h"
#include "spl/simd.h"
#include "spl/spl_internal.h"

#if KAFX_AVX2_VARIANTS
#include <immintrin.h>
#endif

namespace kafx::spl {

namespace {

// sin(2 pi i / 1024) in Q15.
constexpr int16_t kSinTable1024[1024] = {
    0,      201,    402,    603,    804,    1005,   1206,   1406,   1607,   1808,   2009,   2209,
    2410,   2610,   2811,   3011,   3211,   3411,   3611,   3811,   4011,   4210,   4409,   4608,
    4807,   5006,   5205,   5403,   5601,   5799,   5997,   6195,   6392,   6589,   6786,   6982,
    7179,   7375,   7571,   7766,   7961,   8156,   8351,   8545,   8739,   8932,   9126,   9319,
    9511,   9703,   9895,   10087,  10278,  10469,  10659,  10849,  11038,  11227,  11416,  11604,
    11792,  11980,  12166,  12353,  12539,  12724,  12909,  13094,  13278,  13462,  13645,  13827,
    14009,  14191,  14372,  14552,  14732,  14911,  15090,  15268,  15446,  15623,  15799,  15975,
    16150,  16325,  16499,  16672,  16845,  17017,  17189,  17360,  17530,  17699,  17868,  18036,
    18204,  18371,  18537,  18702,  18867,  19031,  19194,  19357,  19519,  19680,  19840,  20000,
    20159,  20317,  20474,  20631,  20787,  20942,  21096,  21249,  21402,  21554,  21705,  21855,
    22004,  22153,  22301,  22448,  22594,  22739,  22883,  23027,  23169,  23311,  23452,  23592,
    23731,  23869,  24006,  24143,  24278,  24413,  24546,  24679,  24811,  24942,  25072,  25201,
    25329,  25456,  25582,  25707,  25831,  25954,  26077,  26198,  26318,  26437,  26556,  26673,
    26789,  26905,  27019,  27132,  27244,  27355,  27466,  27575,  27683,  27790,  27896,  28001,
    28105,  28208,  28309,  28410,  28510,  28608,  28706,  28802,  28897,  28992,  29085,  29177,
    29268,  29358,  29446,  29534,  29621,  29706,  29790,  29873,  29955,  30036,  30116,  30195,
    30272,  30349,  30424,  30498,  30571,  30643,  30713,  30783,  30851,  30918,  30984,  31049,
    31113,  31175,  31236,  31297,  31356,  31413,  31470,  31525,  31580,  31633,  31684,  31735,
    31785,  31833,  31880,  31926,  31970,  32014,  32056,  32097,  32137,  32176,  32213,  32249,
    32284,  32318,  32350,  32382,  32412,  32441,  32468,  32495,  32520,  32544,  32567,  32588,
    32609,  32628,  32646,  32662,  32678,  32692,  32705,  32717,  32727,  32736,  32744,  32751,
    32757,  32761,  32764,  32766,  32767,  32766,  32764,  32761,  32757,  32751,  32744,  32736,
    32727,  32717,  32705,  32692,  32678,  32662,  32646,  32628,  32609,  32588,  32567,  32544,
    32520,  32495,  32468,  32441,  32412,  32382,  32350,  32318,  32284,  32249,  32213,  32176,
    32137,  32097,  32056,  32014,  31970,  31926,  31880,  31833,  31785,  31735,  31684,  31633,
    31580,  31525,  31470,  31413,  31356,  31297,  31236,  31175,  31113,  31049,  30984,  30918,
    30851,  30783,  30713,  30643,  30571,  30498,  30424,  30349,  30272,  30195,  30116,  30036,
    29955,  29873,  29790,  29706,  29621,  29534,  29446,  29358,  29268,  29177,  29085,  28992,
    28897,  28802,  28706,  28608,  28510,  28410,  28309,  28208,  28105,  28001,  27896,  27790,
    27683,  27575,  27466,  27355,  27244,  27132,  27019,  26905,  26789,  26673,  26556,  26437,
    26318,  26198,  26077,  25954,  25831,  25707,  25582,  25456,  25329,  25201,  25072,  24942,
    24811,  24679,  24546,  24413,  24278,  24143,  24006,  23869,  23731,  23592,  23452,  23311,
    23169,  23027,  22883,  22739,  22594,  22448,  22301,  22153,  22004,  21855,  21705,  21554,
    21402,  21249,  21096,  20942,  20787,  20631,  20474,  20317,  20159,  20000,  19840,  19680,
    19519,  19357,  19194,  19031,  18867,  18702,  18537,  18371,  18204,  18036,  17868,  17699,
    17530,  17360,  17189,  17017,  16845,  16672,  16499,  16325,  16150,  15975,  15799,  15623,
    15446,  15268,  15090,  14911,  14732,  14552,  14372,  14191,  14009,  13827,  13645,  13462,
    13278,  13094,  12909,  12724,  12539,  12353,  12166,  11980,  11792,  11604,  11416,  11227,
    11038,  10849,  10659,  10469,  10278,  10087,  9895,   9703,   9511,   9319,   9126,   8932,
    8739,   8545,   8351,   8156,   7961,   7766,   7571,   7375,   7179,   6982,   6786,   6589,
    6392,   6195,   5997,   5799,   5601,   5403,   5205,   5006,   4807,   4608,   4409,   4210,
    4011,   3811,   3611,   3411,   3211,   3011,   2811,   2610,   2410,   2209,   2009,   1808,
    1607,   1406,   1206,   1005,   804,    603,    402,    201,    0,      -201,   -402,   -603,
    -804,   -1005,  -1206,  -1406,  -1607,  -1808,  -2009,  -2209,  -2410,  -2610,  -2811,  -3011,
    -3211,  -3411,  -3611,  -3811,  -4011,  -4210,  -4409,  -4608,  -4807,  -5006,  -5205,  -5403,
    -5601,  -5799,  -5997,  -6195,  -6392,  -6589,  -6786,  -6982,  -7179,  -7375,  -7571,  -7766,
    -7961,  -8156,  -8351,  -8545,  -8739,  -8932,  -9126,  -9319,  -9511,  -9703,  -9895,  -10087,
    -10278, -10469, -10659, -10849, -11038, -11227, -11416, -11604, -11792, -11980, -12166, -12353,
    -12539, -12724, -12909, -13094, -13278, -13462, -13645, -13827, -14009, -14191, -14372, -14552,
    -14732, -14911, -15090, -15268, -15446, -15623, -15799, -15975, -16150, -16325, -16499, -16672,
    -16845, -17017, -17189, -17360, -17530, -17699, -17868, -18036, -18204, -18371, -18537, -18702,
    -18867, -19031, -19194, -19357, -19519, -19680, -19840, -20000, -20159, -20317, -20474, -20631,
    -20787, -20942, -21096, -21249, -21402, -21554, -21705, -21855, -22004, -22153, -22301, -22448,
    -22594, -22739, -22883, -23027, -23169, -23311, -23452, -23592, -23731, -23869, -24006, -24143,
    -24278, -24413, -24546, -24679, -24811, -24942, -25072, -25201, -25329, -25456, -25582, -25707,
    -25831, -25954, -26077, -26198, -26318, -26437, -26556, -26673, -26789, -26905, -27019, -27132,
    -27244, -27355, -27466, -27575, -27683, -27790, -27896, -28001, -28105, -28208, -28309, -28410,
    -28510, -28608, -28706, -28802, -28897, -28992, -29085, -29177, -29268, -29358, -29446, -29534,
    -29621, -29706, -29790, -29873, -29955, -30036, -30116, -30195, -30272, -30349, -30424, -30498,
    -30571, -30643, -30713, -30783, -30851, -30918, -30984, -31049, -31113, -31175, -31236, -31297,
    -31356, -31413, -31470, -31525, -31580, -31633, -31684, -31735, -31785, -31833, -31880, -31926,
    -31970, -32014, -32056, -32097, -32137, -32176, -32213, -32249, -32284, -32318, -32350, -32382,
    -32412, -32441, -32468, -32495, -32520, -32544, -32567, -32588, -32609, -32628, -32646, -32662,
    -32678, -32692, -32705, -32717, -32727, -32736, -32744, -32751, -32757, -32761, -32764, -32766,
    -32767, -32766, -32764, -32761, -32757, -32751, -32744, -32736, -32727, -32717, -32705, -32692,
    -32678, -32662, -32646, -32628, -32609, -32588, -32567, -32544, -32520, -32495, -32468, -32441,
    -32412, -32382, -32350, -32318, -32284, -32249, -32213, -32176, -32137, -32097, -32056, -32014,
    -31970, -31926, -31880, -31833, -31785, -31735, -31684, -31633, -31580, -31525, -31470, -31413,
    -31356, -31297, -31236, -31175, -31113, -31049, -30984, -30918, -30851, -30783, -30713, -30643,
    -30571, -30498, -30424, -30349, -30272, -30195, -30116, -30036, -29955, -29873, -29790, -29706,
    -29621, -29534, -29446, -29358, -29268, -29177, -29085, -28992, -28897, -28802, -28706, -28608,
    -28510, -28410, -28309, -28208, -28105, -28001, -27896, -27790, -27683, -27575, -27466, -27355,
    -27244, -27132, -27019, -26905, -26789, -26673, -26556, -26437, -26318, -26198, -26077, -25954,
    -25831, -25707, -25582, -25456, -25329, -25201, -25072, -24942, -24811, -24679, -24546, -24413,
    -24278, -24143, -24006, -23869, -23731, -23592, -23452, -23311, -23169, -23027, -22883, -22739,
    -22594, -22448, -22301, -22153, -22004, -21855, -21705, -21554, -21402, -21249, -21096, -20942,
    -20787, -20631, -20474, -20317, -20159, -20000, -19840, -19680, -19519, -19357, -19194, -19031,
    -18867, -18702, -18537, -18371, -18204, -18036, -17868, -17699, -17530, -17360, -17189, -17017,
    -16845, -16672, -16499, -16325, -16150, -15975, -15799, -15623, -15446, -15268, -15090, -14911,
    -14732, -14552, -14372, -14191, -14009, -13827, -13645, -13462, -13278, -13094, -12909, -12724,
    -12539, -12353, -12166, -11980, -11792, -11604, -11416, -11227, -11038, -10849, -10659, -10469,
    -10278, -10087, -9895,  -9703,  -9511,  -9319,  -9126,  -8932,  -8739,  -8545,  -8351,  -8156,
    -7961,  -7766,  -7571,  -7375,  -7179,  -6982,  -6786,  -6589,  -6392,  -6195,  -5997,  -5799,
    -5601,  -5403,  -5205,  -5006,  -4807,  -4608,  -4409,  -4210,  -4011,  -3811,  -3611,  -3411,
    -3211,  -3011,  -2811,  -2610,  -2410,  -2209,  -2009,  -1808,  -1607,  -1406,  -1206,  -1005,
    -804,   -603,   -402,   -201,
};

// Twiddles of every stage, concatenated: the stage with half-span l (1, 2,
// 4, ..., 512) owns entries l - 1 ... 2l - 2, entry l - 1 + m holding
// cos(pi m / l) and sin(pi m / l). They are stored in lane layout, two
// 32-bit words per butterfly matching its (re, im) pair: (cos, cos) and
// (sin, -sin).
struct Twiddles {
  std::array<int32_t, 2046> cc{};
  std::array<int32_t, 2046> ss{};
};

constexpr Twiddles make_twiddles() {
  Twiddles t;
  for (int l = 1, k = 9; l <= 512; l <<= 1, --k) {
    for (int m = 0; m < l; ++m) {
      const int32_t c = kSinTable1024[(m << k) + 256];
      const int32_t s = kSinTable1024[m << k];
      t.cc[2 * (l - 1 + m)] = c;
      t.cc[2 * (l - 1 + m) + 1] = c;
      t.ss[2 * (l - 1 + m)] = s;
      t.ss[2 * (l - 1 + m) + 1] = -s;
    }
  }
  return t;
}

constexpr Twiddles kTw = make_twiddles();

// ---------------------------------------------------------------------------
// Butterflies, two at a time in four 32-bit lanes (re, im, re, im). For the
// bottom point x and the top point q:
//   t = w * x   with w = cos - i sin (forward) or cos + i sin (inverse)
//   bottom = (q - t) >> shift, top = (q + t) >> shift.
// With X the bottom pair and Xs the same with re and im swapped,
//   t = C * X + S * Xs,  C = (c, c), S = (s, -s) forward, (-s, s) inverse,
// which gives (tr, ti) in the lanes of (xr, xi). Mode 0 truncates the
// products by 15 bits; mode 1 keeps one more bit (rounded), lifts q by 14
// bits and rounds the final shift. The 32-bit sums cannot overflow
// (|w| <= 32767); the stores keep the low 16 bits of each result.
using simd::narrow_store;
using simd::v4i;
using simd::widen;

[[gnu::always_inline]] inline v4i swap_pairs(v4i v) {
  return (v4i)simd::shuffle<1, 0, 3, 2>((simd::v4u)v);
}

struct Stage {
  int shift;  // extra right shift (forward: always 1)
  v4i round;  // mode 1: half of the final divisor, in every lane
};

// Two butterflies on widened pairs: q the tops, x the bottoms, twiddle
// lanes c and s (sign already set for the direction).
template <int Mode>
[[gnu::always_inline]] inline void butterfly2(v4i q, v4i x, v4i c, v4i s, const Stage& st, v4i& top,
                                              v4i& bottom) {
  v4i t = c * x + s * swap_pairs(x);
  if constexpr (Mode == 0) {
    t >>= 15;
    bottom = (q - t) >> st.shift;
    top = (q + t) >> st.shift;
  } else {
    t = (t + 1) >> 1;
    const v4i q14 = q << 14;
    const int sh = st.shift + 14;
    bottom = (q14 - t + st.round) >> sh;
    top = (q14 + t + st.round) >> sh;
  }
}

// Two butterflies in place: top pair at a, bottom pair at b.
template <int Mode>
[[gnu::always_inline]] inline void butterfly2_at(int16_t* a, int16_t* b, v4i c, v4i s,
                                                 const Stage& st) {
  v4i top, bottom;
  butterfly2<Mode>(widen(a), widen(b), c, s, st, top, bottom);
  narrow_store(b, bottom);
  narrow_store(a, top);
}

template <bool Inverse>
[[gnu::always_inline]] inline v4i sine_lanes(const int32_t* p) {
  const v4i v = simd::load<v4i>(p);
  return Inverse ? -v : v;
}

// One stage over all n points (n >= 4).
template <bool Inverse, int Mode>
[[gnu::always_inline]] inline void stage(int16_t* f, int n, int l, const Stage& st) {
  const int32_t* cc = kTw.cc.data() + 2 * (l - 1);
  const int32_t* ss = kTw.ss.data() + 2 * (l - 1);
  if (l == 1) {
    // Neighbours pair up, all with the twiddle (32767, 0). Four points
    // (q0 x0 q1 x1) per step, regrouped into tops and bottoms and back.
    const v4i c = v4i{cc[0], cc[1], cc[0], cc[1]};
    const v4i s = v4i{ss[0], ss[1], ss[0], ss[1]};  // sin 0: zero either way
    for (int g = 0; g < n; g += 4) {
      const v4i lo = widen(f + 2 * g), hi = widen(f + 2 * g + 4);
      v4i top, bottom;
      butterfly2<Mode>(simd::shuffle2<0, 1, 4, 5>(lo, hi), simd::shuffle2<2, 3, 6, 7>(lo, hi), c, s,
                       st, top, bottom);
      narrow_store(f + 2 * g, simd::shuffle2<0, 1, 4, 5>(top, bottom));
      narrow_store(f + 2 * g + 4, simd::shuffle2<2, 3, 6, 7>(top, bottom));
    }
  } else if (l == 2) {
    // One group per step: points 0, 1 on top, 2, 3 at the bottom.
    const v4i c = simd::load<v4i>(cc);
    const v4i s = sine_lanes<Inverse>(ss);
    for (int g = 0; g < n; g += 4) butterfly2_at<Mode>(f + 2 * g, f + 2 * g + 4, c, s, st);
  } else {
    for (int g = 0; g < n; g += 2 * l) {
      int16_t* a = f + 2 * g;
      int16_t* b = f + 2 * (g + l);
      for (int m = 0; m < l; m += 2) {
        butterfly2_at<Mode>(a + 2 * m, b + 2 * m, simd::load<v4i>(cc + 2 * m),
                            sine_lanes<Inverse>(ss + 2 * m), st);
      }
    }
  }
}

// A two-point transform: one butterfly with the twiddle (32767, 0).
template <int Mode>
void two_points(int16_t* f, const Stage& st) {
  int16_t q[4] = {f[0], f[1], 0, 0}, x[4] = {f[2], f[3], 0, 0};
  const v4i c = v4i{kTw.cc[0], kTw.cc[1], 0, 0};
  v4i top, bottom;
  butterfly2<Mode>(widen(q), widen(x), c, v4i{0, 0, 0, 0}, st, top, bottom);
  f[0] = static_cast<int16_t>(top[0]);
  f[1] = static_cast<int16_t>(top[1]);
  f[2] = static_cast<int16_t>(bottom[0]);
  f[3] = static_cast<int16_t>(bottom[1]);
}

template <int Mode>
[[gnu::always_inline]] inline void forward_body(int16_t* f, int n) {
  const Stage st{1, v4i{16384, 16384, 16384, 16384}};
  if (n == 2) {
    two_points<Mode>(f, st);
    return;
  }
  for (int l = 1; l < n; l <<= 1) stage<false, Mode>(f, n, l, st);
}

template <int Mode>
[[gnu::always_inline]] inline int inverse_body(int16_t* f, int n) {
  int scale = 0;
  for (int l = 1; l < n; l <<= 1) {
    // Block floating point: a butterfly can grow a magnitude by up to
    // 1 + sqrt(2), so above 13573 (32767 / 2.414) the stage shifts one more
    // bit and above twice that two.
    const int peak = max_abs_w16(f, 2 * n);
    int shift = 0;
    if (peak > 13573) ++shift;
    if (peak > 27146) ++shift;
    scale += shift;
    const int32_t r = 8192 << shift;
    const Stage st{shift, v4i{r, r, r, r}};
    if (n == 2) {
      two_points<Mode>(f, st);
    } else {
      stage<true, Mode>(f, n, l, st);
    }
  }
  return scale;
}

// ---------------------------------------------------------------------------
// Bit reversal. The 128- and 256-point permutations are applied from lists
// of the index pairs to exchange (each pair once, in increasing order of
// the smaller index); other sizes use a 10-bit reversal table.

constexpr int bit_reverse(int i, int bits) {
  int r = 0;
  for (int b = 0; b < bits; ++b) r |= ((i >> b) & 1) << (bits - 1 - b);
  return r;
}

template <int Bits, int Pairs>
constexpr std::array<uint8_t, 2 * Pairs> make_swap_pairs() {
  std::array<uint8_t, 2 * Pairs> p{};
  int k = 0;
  for (int i = 0; i < (1 << Bits); ++i) {
    const int r = bit_reverse(i, Bits);
    if (r > i) {
      p[k++] = static_cast<uint8_t>(i);
      p[k++] = static_cast<uint8_t>(r);
    }
  }
  return p;
}

constexpr auto kSwap128 = make_swap_pairs<7, 56>();
constexpr auto kSwap256 = make_swap_pairs<8, 120>();

constexpr std::array<uint16_t, 1024> make_rev10() {
  std::array<uint16_t, 1024> t{};
  for (int i = 0; i < 1024; ++i) t[i] = static_cast<uint16_t>(bit_reverse(i, 10));
  return t;
}

constexpr auto kRev10 = make_rev10();

// A complex value is two 16-bit words moved as one 32-bit word.
inline void swap_points(int16_t* f, int i, int j) {
  uint32_t a, b;
  std::memcpy(&a, f + 2 * i, 4);
  std::memcpy(&b, f + 2 * j, 4);
  std::memcpy(f + 2 * i, &b, 4);
  std::memcpy(f + 2 * j, &a, 4);
}

// The listed exchanges as straight-line code with constant offsets.
template <const auto& Pairs, size_t... K>
[[gnu::always_inline]] inline void swap_listed(int16_t* f, std::index_sequence<K...>) {
  (swap_points(f, Pairs[2 * K], Pairs[2 * K + 1]), ...);
}

template <const auto& Pairs>
void swap_pairs(int16_t* f) {
  swap_listed<Pairs>(f, std::make_index_sequence<Pairs.size() / 2>{});
}

// The two rounding modes of each direction, one kernel each.
[[gnu::always_inline]] inline void fft_forward_truncating_body(int16_t* f, int n) { forward_body<0>(f, n); }
[[gnu::always_inline]] inline void fft_forward_rounding_body(int16_t* f, int n) { forward_body<1>(f, n); }
[[gnu::always_inline]] inline int fft_inverse_truncating_body(int16_t* f, int n) { return inverse_body<0>(f, n); }
[[gnu::always_inline]] inline int fft_inverse_rounding_body(int16_t* f, int n) { return inverse_body<1>(f, n); }

#if KAFX_AVX2_VARIANTS
// ---------------------------------------------------------------------------
// AVX2 build: eight butterflies per step on the 16-bit data as it lies in
// memory. A complex point (re, im) is one 32-bit word, so a 16-bit
// multiply-add of the bottom points with the word (a, b) per butterfly gives
// re * a + im * b in 32 bits, exactly the sum the lane code forms:
//   forward  tr: (c, s)   ti: (-s, c)
//   inverse  tr: (c, -s)  ti: (s, c)
// (|c|, |s| <= 32767, so no product pair reaches 2^31.) The results stay
// split into a vector of real parts and one of imaginary parts; the tops are
// split the same way by shifts, and the two halves of each result are
// merged back into (re, im) words keeping their low 16 bits, as the lane
// code stores them.

// Multiply-add words of every stage, at the entry positions of kTw.
struct MaddTwiddles {
  std::array<uint32_t, 1023> fwd_re{}, fwd_im{}, inv_re{}, inv_im{};
};

constexpr uint32_t pack_word(int32_t lo, int32_t hi) {
  return static_cast<uint32_t>(static_cast<uint16_t>(lo)) | (static_cast<uint32_t>(static_cast<uint16_t>(hi)) << 16);
}

constexpr MaddTwiddles make_madd_twiddles() {
  MaddTwiddles t;
  for (int e = 0; e < 1023; ++e) {
    const int32_t c = kTw.cc[2 * e], s = kTw.ss[2 * e];
    t.fwd_re[e] = pack_word(c, s);
    t.fwd_im[e] = pack_word(-s, c);
    t.inv_re[e] = pack_word(c, -s);
    t.inv_im[e] = pack_word(s, c);
  }
  return t;
}

constexpr MaddTwiddles kMaddTw = make_madd_twiddles();

// Per-stage constants: the final shift, its rounding term (mode 1) and the
// twiddle words of the stage (entries l - 1 ... 2l - 2).
struct StageAvx2 {
  __m128i shift;
  __m256i round;
  const uint32_t* wr;
  const uint32_t* wi;
};

// Eight butterflies: q the top points, x the bottom points (one (re, im)
// word per lane), wr / wi the multiply-add words. Returns the new top and
// bottom words.
template <int Mode>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void butterfly8(__m256i q, __m256i x, __m256i wr, __m256i wi,
                                                               const StageAvx2& st, __m256i& top,
                                                               __m256i& bottom) {
  __m256i tr = _mm256_madd_epi16(x, wr);
  __m256i ti = _mm256_madd_epi16(x, wi);
  __m256i qr, qi;
  if constexpr (Mode == 0) {
    tr = _mm256_srai_epi32(tr, 15);
    ti = _mm256_srai_epi32(ti, 15);
    qr = _mm256_srai_epi32(_mm256_slli_epi32(q, 16), 16);
    qi = _mm256_srai_epi32(q, 16);
  } else {
    const __m256i one = _mm256_set1_epi32(1);
    tr = _mm256_srai_epi32(_mm256_add_epi32(tr, one), 1);
    ti = _mm256_srai_epi32(_mm256_add_epi32(ti, one), 1);
    // q << 14 plus the rounding term.
    qr = _mm256_add_epi32(_mm256_srai_epi32(_mm256_slli_epi32(q, 16), 2), st.round);
    qi = _mm256_add_epi32(_mm256_srai_epi32(_mm256_and_si256(q, _mm256_set1_epi32(-65536)), 2), st.round);
  }
  const __m256i br = _mm256_sra_epi32(_mm256_sub_epi32(qr, tr), st.shift);
  const __m256i bi = _mm256_sra_epi32(_mm256_sub_epi32(qi, ti), st.shift);
  const __m256i ar = _mm256_sra_epi32(_mm256_add_epi32(qr, tr), st.shift);
  const __m256i ai = _mm256_sra_epi32(_mm256_add_epi32(qi, ti), st.shift);
  bottom = _mm256_blend_epi16(br, _mm256_slli_epi32(bi, 16), 0xAA);
  top = _mm256_blend_epi16(ar, _mm256_slli_epi32(ai, 16), 0xAA);
}

// Running unsigned maximum of the 16-bit magnitudes (|-32768| counts as
// 32768, which lies above both headroom thresholds like 32767 does).
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i peak_of(__m256i acc, __m256i v) {
  return _mm256_max_epu16(acc, _mm256_abs_epi16(v));
}

[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i load8(const int16_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void store8(int16_t* p, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}

// One stage over n >= 16 points; with Peak, returns the unsigned 16-bit
// peak magnitude of the stage's output (else 0).
template <int Mode, bool Peak>
KAFX_TARGET_AVX2 int stage_avx2(int16_t* f, int n, int l, const StageAvx2& st) {
  __m256i peak = _mm256_setzero_si256();
  if (l >= 8) {
    for (int g = 0; g < n; g += 2 * l) {
      int16_t* a = f + 2 * g;
      int16_t* b = f + 2 * (g + l);
      for (int m = 0; m < l; m += 8) {
        const __m256i wr = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(st.wr + m));
        const __m256i wi = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(st.wi + m));
        __m256i top, bottom;
        butterfly8<Mode>(load8(a + 2 * m), load8(b + 2 * m), wr, wi, st, top, bottom);
        store8(a + 2 * m, top);
        store8(b + 2 * m, bottom);
        if constexpr (Peak) peak = peak_of(peak_of(peak, top), bottom);
      }
    }
  } else {
    // Spans of 1, 2 and 4 points: sixteen points (two vectors v0, v1) per
    // step, regrouped into eight tops and eight bottoms and back. The
    // twiddle words repeat with period l over the regrouped lanes.
    __m256i wr, wi;
    if (l == 4) {
      wr = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(st.wr)));
      wi = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(st.wi)));
    } else if (l == 2) {
      wr = _mm256_set_epi32(st.wr[1], st.wr[0], st.wr[1], st.wr[0], st.wr[1], st.wr[0], st.wr[1], st.wr[0]);
      wi = _mm256_set_epi32(st.wi[1], st.wi[0], st.wi[1], st.wi[0], st.wi[1], st.wi[0], st.wi[1], st.wi[0]);
    } else {
      wr = _mm256_set1_epi32(static_cast<int>(st.wr[0]));
      wi = _mm256_set1_epi32(static_cast<int>(st.wi[0]));
    }
    for (int g = 0; g < n; g += 16) {
      __m256i v0 = load8(f + 2 * g), v1 = load8(f + 2 * g + 16);
      __m256i q, x, top, bottom;
      if (l == 4) {
        // Tops: points 0-3 of each group of eight; bottoms: points 4-7.
        q = _mm256_permute2x128_si256(v0, v1, 0x20);
        x = _mm256_permute2x128_si256(v0, v1, 0x31);
        butterfly8<Mode>(q, x, wr, wi, st, top, bottom);
        v0 = _mm256_permute2x128_si256(top, bottom, 0x20);
        v1 = _mm256_permute2x128_si256(top, bottom, 0x31);
      } else if (l == 2) {
        // Tops: points 0, 1 of each group of four; bottoms: points 2, 3.
        q = _mm256_unpacklo_epi64(v0, v1);
        x = _mm256_unpackhi_epi64(v0, v1);
        butterfly8<Mode>(q, x, wr, wi, st, top, bottom);
        v0 = _mm256_unpacklo_epi64(top, bottom);
        v1 = _mm256_unpackhi_epi64(top, bottom);
      } else {
        // Tops: even points; bottoms: odd points.
        v0 = _mm256_shuffle_epi32(v0, 0xD8);
        v1 = _mm256_shuffle_epi32(v1, 0xD8);
        q = _mm256_unpacklo_epi64(v0, v1);
        x = _mm256_unpackhi_epi64(v0, v1);
        butterfly8<Mode>(q, x, wr, wi, st, top, bottom);
        v0 = _mm256_shuffle_epi32(_mm256_unpacklo_epi64(top, bottom), 0xD8);
        v1 = _mm256_shuffle_epi32(_mm256_unpackhi_epi64(top, bottom), 0xD8);
      }
      store8(f + 2 * g, v0);
      store8(f + 2 * g + 16, v1);
      if constexpr (Peak) peak = peak_of(peak_of(peak, top), bottom);
    }
  }
  if constexpr (!Peak) return 0;
  const __m128i p = _mm_max_epu16(_mm256_castsi256_si128(peak), _mm256_extracti128_si256(peak, 1));
  // The largest unsigned 16-bit lane: minpos on the complements.
  return 65535 - (_mm_cvtsi128_si32(_mm_minpos_epu16(_mm_xor_si128(p, _mm_set1_epi32(-1)))) & 0xFFFF);
}

template <int Mode>
KAFX_TARGET_AVX2 void forward_avx2(int16_t* f, int n) {
  if (n < 16) {
    forward_body<Mode>(f, n);
    return;
  }
  StageAvx2 st{_mm_cvtsi32_si128(15), _mm256_set1_epi32(16384), nullptr, nullptr};
  if constexpr (Mode == 0) st.shift = _mm_cvtsi32_si128(1);
  for (int l = 1; l < n; l <<= 1) {
    st.wr = kMaddTw.fwd_re.data() + (l - 1);
    st.wi = kMaddTw.fwd_im.data() + (l - 1);
    stage_avx2<Mode, false>(f, n, l, st);
  }
}

template <int Mode>
KAFX_TARGET_AVX2 int inverse_avx2(int16_t* f, int n) {
  if (n < 16) return inverse_body<Mode>(f, n);
  int scale = 0;
  int peak = max_abs_w16(f, 2 * n);
  for (int l = 1; l < n; l <<= 1) {
    // Block floating point as in inverse_body; the peak of each stage's
    // output comes out of the stage itself.
    int shift = 0;
    if (peak > 13573) ++shift;
    if (peak > 27146) ++shift;
    scale += shift;
    StageAvx2 st{_mm_cvtsi32_si128(Mode == 0 ? shift : shift + 14), _mm256_set1_epi32(8192 << shift),
                 kMaddTw.inv_re.data() + (l - 1), kMaddTw.inv_im.data() + (l - 1)};
    if (2 * l < n) {
      peak = stage_avx2<Mode, true>(f, n, l, st);
    } else {
      stage_avx2<Mode, false>(f, n, l, st);
    }
  }
  return scale;
}

KAFX_TARGET_AVX2 void fft_forward_truncating_avx2(int16_t* f, int n) { forward_avx2<0>(f, n); }
KAFX_TARGET_AVX2 void fft_forward_rounding_avx2(int16_t* f, int n) { forward_avx2<1>(f, n); }
KAFX_TARGET_AVX2 int fft_inverse_truncating_avx2(int16_t* f, int n) { return inverse_avx2<0>(f, n); }
KAFX_TARGET_AVX2 int fft_inverse_rounding_avx2(int16_t* f, int n) { return inverse_avx2<1>(f, n); }
#endif  // KAFX_AVX2_VARIANTS

void fft_forward_truncating_baseline(int16_t* f, int n) { fft_forward_truncating_body(f, n); }
void fft_forward_rounding_baseline(int16_t* f, int n) { fft_forward_rounding_body(f, n); }
int fft_inverse_truncating_baseline(int16_t* f, int n) { return fft_inverse_truncating_body(f, n); }
int fft_inverse_rounding_baseline(int16_t* f, int n) { return fft_inverse_rounding_body(f, n); }

}  // namespace

// The builds per instruction set of the transforms (common/dispatch.h): the
// lane code of the bodies above as the baseline, the multiply-add kernels
// as the AVX2 build.
#define KAFX_FFT_VARIANTS(ret, name, params, args)                                               \
  const KernelVariants<ret(*) params> name##_variants = {#name,                                  \
                                                         {name##_baseline, KAFX_AVX2_ONLY(name##_avx2)}}; \
  ret name params { return run_chosen<name##_variants> args; }
KAFX_FFT_VARIANTS(void, fft_forward_truncating, (int16_t* f, int n), (f, n))
KAFX_FFT_VARIANTS(void, fft_forward_rounding, (int16_t* f, int n), (f, n))
KAFX_FFT_VARIANTS(int, fft_inverse_truncating, (int16_t* f, int n), (f, n))
KAFX_FFT_VARIANTS(int, fft_inverse_rounding, (int16_t* f, int n), (f, n))
#undef KAFX_FFT_VARIANTS

}  // namespace kafx::spl

using namespace kafx::spl;

extern "C" {

void kedoSpl_ComplexBitReverse(short* frfi, int stages) {
  if (stages == 7) {
    swap_pairs<kSwap128>(frfi);
  } else if (stages == 8) {
    swap_pairs<kSwap256>(frfi);
  } else if (stages >= 1 && stages <= 10) {
    const int n = 1 << stages;
    const int drop = 10 - stages;
    for (int i = 1; i < n - 1; ++i) {
      const int r = kRev10[i] >> drop;
      if (r > i) swap_points(frfi, i, r);
    }
  } else if (stages > 10 && stages < 31) {
    const int n = 1 << stages;
    for (int i = 1; i < n - 1; ++i) {
      const int r = bit_reverse(i, stages);
      if (r > i) swap_points(frfi, i, r);
    }
  }
}

int kedoSpl_ComplexFFT(short* frfi, int stages, int mode) {
  if (stages > 10) return -1;
  if (stages < 1) return 0;
  const int n = 1 << stages;
  if (mode == 0) {
    fft_forward_truncating(frfi, n);
  } else {
    fft_forward_rounding(frfi, n);
  }
  return 0;
}

int kedoSpl_ComplexIFFT(short* frfi, int stages, int mode) {
  if (stages > 10) return -1;
  if (stages < 1) return 0;
  const int n = 1 << stages;
  return mode == 0 ? fft_inverse_truncating(frfi, n) : fft_inverse_rounding(frfi, n);
}

}  // extern "C"
