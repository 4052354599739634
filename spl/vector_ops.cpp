// Vector utilities: fill and copy, extreme values and their indexes, the
// scaling and energy of a 16-bit vector, and the integer square root.
//
// The loops run on whole vectors (eight 16-bit or four 32-bit lanes, two
// vectors per step for the reductions) with a scalar tail. Every reduction
// is an exact integer max / min / wrap-around sum, so the lane split does
// not change the result. An index search first finds the extreme value and
// then the first element that equals it.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "kafx_proc/spl.h"
#include "spl/simd.h"
#include "spl/spl_internal.h"

namespace kafx::spl {

namespace {

using simd::v4i;
using simd::v8s;

template <typename T>
struct Lanes;
template <>
struct Lanes<int16_t> {
  using V = v8s;
  static constexpr int kN = 8;
};
template <>
struct Lanes<int32_t> {
  using V = v4i;
  static constexpr int kN = 4;
};

template <typename T>
[[gnu::always_inline]] inline typename Lanes<T>::V splat(T x) {
  typename Lanes<T>::V v;
  for (int k = 0; k < Lanes<T>::kN; ++k) v[k] = x;
  return v;
}

enum Want { kMin = 1, kMax = 2, kBoth = 3 };

// Smallest and / or largest element of a non-empty vector.
template <typename T, Want W>
[[gnu::always_inline]] inline Extremes<T> extremes(const T* v, int len) {
  using V = typename Lanes<T>::V;
  constexpr int N = Lanes<T>::kN;
  T lo = v[0], hi = v[0];
  int i = 0;
  if (len >= 2 * N) {
    V lo0 = simd::load<V>(v), lo1 = simd::load<V>(v + N);
    V hi0 = lo0, hi1 = lo1;
    for (i = 2 * N; i + 2 * N <= len; i += 2 * N) {
      const V a = simd::load<V>(v + i), b = simd::load<V>(v + i + N);
      if constexpr (W & kMin) {
        lo0 = simd::vmin(lo0, a);
        lo1 = simd::vmin(lo1, b);
      }
      if constexpr (W & kMax) {
        hi0 = simd::vmax(hi0, a);
        hi1 = simd::vmax(hi1, b);
      }
    }
    lo0 = simd::vmin(lo0, lo1);
    hi0 = simd::vmax(hi0, hi1);
    for (int k = 0; k < N; ++k) {
      lo = std::min<T>(lo, lo0[k]);
      hi = std::max<T>(hi, hi0[k]);
    }
  }
  for (; i < len; ++i) {
    lo = std::min(lo, v[i]);
    hi = std::max(hi, v[i]);
  }
  return {lo, hi};
}

// Any lane set in a compare result.
template <typename V>
[[gnu::always_inline]] inline bool any(V m) {
  uint64_t w[2];
  std::memcpy(w, &m, sizeof w);
  return (w[0] | w[1]) != 0;
}

// Index of the first element equal to a or b (one of them is present).
template <typename T>
[[gnu::always_inline]] inline int first_of(const T* v, int len, T a, T b) {
  using V = typename Lanes<T>::V;
  constexpr int N = Lanes<T>::kN;
  const V va = splat(a), vb = splat(b);
  int i = 0;
  for (; i + N <= len; i += N) {
    const V x = simd::load<V>(v + i);
    if (any((x == va) | (x == vb))) break;
  }
  for (; i < len; ++i) {
    if (v[i] == a || v[i] == b) return i;
  }
  return 0;
}

[[gnu::always_inline]] inline Extremes<int16_t> both16_body(const int16_t* v, int len) {
  return extremes<int16_t, kBoth>(v, len);
}
[[gnu::always_inline]] inline Extremes<int32_t> both32_body(const int32_t* v, int len) {
  return extremes<int32_t, kBoth>(v, len);
}
[[gnu::always_inline]] inline int16_t max16_body(const int16_t* v, int len) {
  return extremes<int16_t, kMax>(v, len).hi;
}
[[gnu::always_inline]] inline int32_t max32_body(const int32_t* v, int len) {
  return extremes<int32_t, kMax>(v, len).hi;
}
[[gnu::always_inline]] inline int16_t min16_body(const int16_t* v, int len) {
  return extremes<int16_t, kMin>(v, len).lo;
}
[[gnu::always_inline]] inline int32_t min32_body(const int32_t* v, int len) {
  return extremes<int32_t, kMin>(v, len).lo;
}
[[gnu::always_inline]] inline int first16_body(const int16_t* v, int len, int16_t a, int16_t b) {
  return first_of(v, len, a, b);
}
[[gnu::always_inline]] inline int first32_body(const int32_t* v, int len, int32_t a, int32_t b) {
  return first_of(v, len, a, b);
}

// Lane-wise 0 - v modulo 2^16 (-32768 stays -32768).
[[gnu::always_inline]] inline v8s negate(v8s v) { return (v8s)(simd::v8u{} - (simd::v8u)v); }

// Largest 16-bit magnitude with -32768 kept as -32768 (its negation wraps),
// starting from -1: the magnitude GetScalingSquare works with.
[[gnu::always_inline]] inline int16_t wrapped_max_abs16_body(const int16_t* v, int len) {
  int16_t m = -1;
  int i = 0;
  if (len >= 16) {
    v8s m0 = splat<int16_t>(-1), m1 = m0;
    for (; i + 16 <= len; i += 16) {
      const v8s a = simd::load<v8s>(v + i), b = simd::load<v8s>(v + i + 8);
      m0 = simd::vmax(m0, simd::vmax(a, negate(a)));
      m1 = simd::vmax(m1, simd::vmax(b, negate(b)));
    }
    m0 = simd::vmax(m0, m1);
    for (int k = 0; k < 8; ++k) m = std::max<int16_t>(m, m0[k]);
  }
  for (; i < len; ++i) m = std::max(m, std::max(v[i], static_cast<int16_t>(-v[i])));
  return m;
}

// Sum of x^2 >> sc, wrapping in 32 bits.
[[gnu::always_inline]] inline uint32_t shifted_square_sum_body(const int16_t* v, int len, int sc) {
  uint32_t sum = 0;
  int i = 0;
  if (len >= 8) {
    simd::v4u acc0{}, acc1{};
    for (; i + 8 <= len; i += 8) {
      const v4i a = simd::widen(v + i), b = simd::widen(v + i + 4);
      acc0 += (simd::v4u)((a * a) >> sc);
      acc1 += (simd::v4u)((b * b) >> sc);
    }
    acc0 += acc1;
    for (int k = 0; k < 4; ++k) sum += acc0[k];
  }
  for (; i < len; ++i) {
    const int32_t x = v[i];
    sum += static_cast<uint32_t>((x * x) >> sc);
  }
  return sum;
}

template <typename T>
[[gnu::always_inline]] inline void fill(T* v, T value, int len) {
  using V = typename Lanes<T>::V;
  constexpr int N = Lanes<T>::kN;
  const V s = splat(value);
  int i = 0;
  for (; i + N <= len; i += N) simd::store(v + i, s);
  for (; i < len; ++i) v[i] = value;
}

// 32 values (64 bytes) as four 16-byte blocks, all read before any is
// written.
[[gnu::always_inline]] inline void copy_block4(int16_t* out, const int16_t* src) {
  const v8s a = simd::load<v8s>(src), b = simd::load<v8s>(src + 8);
  const v8s c = simd::load<v8s>(src + 16), d = simd::load<v8s>(src + 24);
  simd::store(out, a);
  simd::store(out + 8, b);
  simd::store(out + 16, c);
  simd::store(out + 24, d);
}

// Integer square root of a 64-bit value by bisection (table building only).
constexpr uint64_t isqrt64(uint64_t v) {
  uint64_t lo = 0, hi = 1ull << 32;  // lo^2 <= v < hi^2
  while (hi - lo > 1) {
    const uint64_t mid = (lo + hi) / 2;
    (mid * mid <= v ? lo : hi) = mid;
  }
  return lo;
}

// Chord table of the square root over [2^29, 2^31): entry j (64 <= j <= 256)
// is floor(sqrt(j 2^23)) in Q8, i.e. floor(sqrt(j 2^39)).
constexpr int kRootSegBits = 23;
constexpr int kRootSegFirst = 64;
constexpr std::array<uint32_t, 256 - kRootSegFirst + 1> make_root_chords() {
  std::array<uint32_t, 256 - kRootSegFirst + 1> t{};
  for (int j = kRootSegFirst; j <= 256; ++j) {
    t[j - kRootSegFirst] = static_cast<uint32_t>(isqrt64(static_cast<uint64_t>(j) << (kRootSegBits + 16)));
  }
  return t;
}

constexpr auto kRootChords = make_root_chords();

}  // namespace

// The builds per instruction set of the kernels above (common/dispatch.h).
KAFX_KERNEL_VARIANTS(Extremes<int16_t>, both16, (const int16_t* v, int len), (v, len))
KAFX_KERNEL_VARIANTS(Extremes<int32_t>, both32, (const int32_t* v, int len), (v, len))
KAFX_KERNEL_VARIANTS(int16_t, max16, (const int16_t* v, int len), (v, len))
KAFX_KERNEL_VARIANTS(int32_t, max32, (const int32_t* v, int len), (v, len))
KAFX_KERNEL_VARIANTS(int16_t, min16, (const int16_t* v, int len), (v, len))
KAFX_KERNEL_VARIANTS(int32_t, min32, (const int32_t* v, int len), (v, len))
KAFX_KERNEL_VARIANTS(int, first16, (const int16_t* v, int len, int16_t a, int16_t b), (v, len, a, b))
KAFX_KERNEL_VARIANTS(int, first32, (const int32_t* v, int len, int32_t a, int32_t b), (v, len, a, b))
KAFX_KERNEL_VARIANTS(int16_t, wrapped_max_abs16, (const int16_t* v, int len), (v, len))
KAFX_KERNEL_VARIANTS(uint32_t, shifted_square_sum, (const int16_t* v, int len, int sc), (v, len, sc))

// |x| for x = -32768 is 32768; the result is capped at 32767.
int16_t max_abs_w16(const int16_t* v, int len) {
  const Extremes<int16_t> e = both16(v, len);
  const int m = std::max<int>(e.hi, -static_cast<int>(e.lo));
  return static_cast<int16_t>(std::min(m, 32767));
}

}  // namespace kafx::spl

using namespace kafx::spl;

extern "C" {

// ---------------------------------------------------------------------------
// Fill and copy.

void kedoSpl_MemSetW16(short* v, short value, int len) { fill<int16_t>(v, value, len); }

void kedoSpl_MemSetW32(int* v, int value, int len) { fill<int32_t>(v, value, len); }

short kedoSpl_ZerosArrayW16(short* v, short len) {
  if (len > 0) std::memset(v, 0, sizeof(short) * static_cast<size_t>(len));
  return len;
}

short kedoSpl_ZerosArrayW32(int* v, short len) {
  if (len > 0) std::memset(v, 0, sizeof(int) * static_cast<size_t>(len));
  return len;
}

short kedoSpl_OnesArrayW16(short* v, short len) {
  fill<int16_t>(v, 1, len);
  return len;
}

short kedoSpl_OnesArrayW32(int* v, short len) {
  fill<int32_t>(v, 1, len);
  return len;
}

// Eight values at a time, reversed in the register; buffers that overlap
// are copied one value at a time in the plain order.
void kedoSpl_MemCpyReversedOrder(short* dest, short* src, int len) {
  if (len <= 0) return;
  const auto d_lo = reinterpret_cast<uintptr_t>(dest - (len - 1));
  const auto d_hi = reinterpret_cast<uintptr_t>(dest + 1);
  const auto s_lo = reinterpret_cast<uintptr_t>(src);
  const auto s_hi = reinterpret_cast<uintptr_t>(src + len);
  int j = 0;
  if (d_hi <= s_lo || s_hi <= d_lo) {
    for (; j + 8 <= len; j += 8) {
      // Reverse eight 16-bit values: swap the halves of each 32-bit lane,
      // then reverse the four lanes.
      const simd::v4u v = simd::load<simd::v4u>(src + j);
      simd::store(dest - j - 7, simd::shuffle<3, 2, 1, 0>((v << 16) | (v >> 16)));
    }
  }
  for (; j < len; ++j) dest[-j] = src[j];
}

// Copies up to 256 values run here on whole 64- or 16-byte steps, the last
// step placed to end exactly at the end (the library call would cost more
// than the copy); longer ones go to memcpy. Like memcpy, in and out must not
// overlap.
short kedoSpl_CopyFromEndW16(const short* in, short in_len, short n, short* out) {
  if (n <= 0) return n;
  const short* src = in + (in_len - n);
  if (n > 256) {
    std::memcpy(out, src, sizeof(short) * static_cast<size_t>(n));
  } else if (n >= 32) {
    for (int i = 0; i < n - 32; i += 32) copy_block4(out + i, src + i);
    copy_block4(out + n - 32, src + n - 32);
  } else if (n >= 8) {
    for (int i = 0; i < n - 8; i += 8) simd::store(out + i, simd::load<v8s>(src + i));
    simd::store(out + n - 8, simd::load<v8s>(src + n - 8));
  } else {
    for (int i = 0; i < n; ++i) out[i] = src[i];
  }
  return n;
}

// ---------------------------------------------------------------------------
// Extreme values.

short kedoSpl_MaxAbsValueW16(const short* v, int len) {
  if (v == nullptr || len < 1) return -1;
  return max_abs_w16(v, len);
}

int kedoSpl_MaxAbsValueW32(const int* v, int len) {
  if (v == nullptr || len < 1) return -1;
  const Extremes<int32_t> e = both32(v, len);
  const int64_t m = std::max<int64_t>(e.hi, -static_cast<int64_t>(e.lo));
  return static_cast<int>(std::min<int64_t>(m, INT32_MAX));
}

short kedoSpl_MaxValueW16(const short* v, int len) {
  if (v == nullptr || len < 1) return INT16_MIN;
  return max16(v, len);
}

int kedoSpl_MaxValueW32(const int* v, int len) {
  if (v == nullptr || len < 1) return INT32_MIN;
  return max32(v, len);
}

short kedoSpl_MinValueW16(const short* v, int len) {
  if (v == nullptr || len < 1) return INT16_MAX;
  return min16(v, len);
}

int kedoSpl_MinValueW32(const int* v, int len) {
  if (v == nullptr || len < 1) return INT32_MAX;
  return min32(v, len);
}

// The first element of the largest magnitude; -32768 (magnitude 32768)
// beats everything else.
int kedoSpl_MaxAbsIndexW16(const short* v, int len) {
  if (v == nullptr || len < 1) return -1;
  const Extremes<int16_t> e = both16(v, len);
  if (e.lo == INT16_MIN) return first16(v, len, INT16_MIN, INT16_MIN);
  const int16_t m = std::max<int16_t>(e.hi, static_cast<int16_t>(-e.lo));
  return first16(v, len, m, static_cast<int16_t>(-m));
}

int kedoSpl_MaxIndexW16(const short* v, int len) {
  if (v == nullptr || len < 1) return -1;
  const int16_t m = max16(v, len);
  return first16(v, len, m, m);
}

int kedoSpl_MaxIndexW32(const int* v, int len) {
  if (v == nullptr || len < 1) return -1;
  const int32_t m = max32(v, len);
  return first32(v, len, m, m);
}

int kedoSpl_MinIndexW16(const short* v, int len) {
  if (v == nullptr || len < 1) return -1;
  const int16_t m = min16(v, len);
  return first16(v, len, m, m);
}

int kedoSpl_MinIndexW32(const int* v, int len) {
  if (v == nullptr || len < 1) return -1;
  const int32_t m = min32(v, len);
  return first32(v, len, m, m);
}

// ---------------------------------------------------------------------------
// Scaling, energy, square root.

// The magnitude is taken in 16 bits, where -32768 stays -32768 and so never
// counts as the largest value; an empty vector (or one of -32768 only)
// leaves the start value -1. With p = smax^2 and `norm` the number of
// redundant sign bits of p, the sum of `times` squares needs bits(times)
// more bits than p has spare: the shift is bits(times) - norm when positive.
short kedoSpl_GetScalingSquare(short* in, int len, int times) {
  const int16_t smax = wrapped_max_abs16(in, len);
  if (smax == 0) return 0;
  const uint32_t t = static_cast<uint32_t>(times);
  const int nbits = t == 0 ? 0 : 32 - __builtin_clz(t);
  const int32_t p = static_cast<int32_t>(smax) * smax;  // > 0
  const int norm = __builtin_clz(static_cast<uint32_t>(p)) - 1;
  return static_cast<short>(norm > nbits ? 0 : nbits - norm);
}

int kedoSpl_Energy(short* v, int len, int* scale) {
  const int sc = kedoSpl_GetScalingSquare(v, len, len);
  *scale = sc;
  return static_cast<int>(shifted_square_sum(v, len, sc));
}

// Exact floor(sqrt(value)) without data-dependent branches.
//  - Normalise: y = value << 2h with y in [2^29, 2^31) (an even shift, so
//    sqrt(y) = sqrt(value) 2^h, and floor(floor(sqrt(y)) / 2^h) is the root).
//  - Estimate sqrt(y) in Q8 on the chord of its 2^23-wide segment: the two
//    floored end points, the slope times the next 16 bits of y (the slope is
//    below 2^16, so the product fits 32 bits), truncated. Every step rounds
//    down and the root is concave, so the estimate never exceeds sqrt(y); it
//    falls short by at most 0.18 (chord sag at 2^29) + 3/256 (floors) + 0.003
//    (the 7 bits of y left out), under 0.2.
//  - est >> (8 + h) is then floor(sqrt(value)) or one less; one compare of
//    (r + 1)^2 with value settles it ((r + 1)^2 <= 46341^2 fits 32 bits).
int kedoSpl_SqrtFloor(int value) {
  if (value <= 0) return 0;
  const uint32_t x = static_cast<uint32_t>(value);
  const int s = (__builtin_clz(x) - 1) & ~1;
  const uint32_t y = x << s;
  const uint32_t seg = (y >> kRootSegBits) - kRootSegFirst;
  const uint32_t base = kRootChords[seg];
  const uint32_t slope = kRootChords[seg + 1] - base;
  const uint32_t frac = (y >> (kRootSegBits - 16)) & 0xFFFFu;
  const uint32_t est = base + ((slope * frac) >> 16);
  uint32_t r = est >> (8 + s / 2);
  r += (r + 1) * (r + 1) <= x ? 1u : 0u;
  return static_cast<int>(r);
}

}  // extern "C"
