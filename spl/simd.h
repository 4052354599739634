// Short fixed-width vectors for the signal-processing library, written with
// the GCC/Clang vector extension so that the same source maps onto SSE2 /
// AVX2 on x86 and NEON on ARM. Every operation is lane-wise integer
// arithmetic with the same result as the scalar code it replaces.
//
// Lanes hold 32-bit words that wrap modulo 2^32 (unsigned lane type); the
// arithmetic right shift goes through the signed view of the same bits.
//
// The kernels are also built for AVX2 (common/dispatch.h), where 32-bit lane
// multiplies are single instructions while baseline SSE2 has to compose
// them; the two 16-bit by-2 stages choose between a lane version (AVX2 only)
// and a scalar one.
#ifndef KAFX_SPL_SIMD_H
#define KAFX_SPL_SIMD_H

#include <cstdint>
#include <cstring>

#include "common/fixed_point.h"

namespace kafx::spl::simd {

typedef int16_t v8s __attribute__((vector_size(16)));
typedef uint16_t v8u __attribute__((vector_size(16)));
typedef int32_t v4i __attribute__((vector_size(16)));
typedef uint32_t v4u __attribute__((vector_size(16)));
typedef int64_t v2l __attribute__((vector_size(16)));
typedef int16_t v4h __attribute__((vector_size(8)));

template <typename V, typename T>
[[gnu::always_inline]] inline V load(const T* p) {
  V v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

template <typename V, typename T>
[[gnu::always_inline]] inline void store(T* p, V v) {
  std::memcpy(p, &v, sizeof v);
}

// Lane permutation with constant indices.
template <int A, int B, int C, int D>
[[gnu::always_inline]] inline v4u shuffle(v4u v) {
#if defined(__clang__)
  return __builtin_shufflevector(v, v, A, B, C, D);
#else
  return __builtin_shuffle(v, v4u{A, B, C, D});
#endif
}

// Lanes A, B, C, D of the eight lanes of (a, b).
template <int A, int B, int C, int D>
[[gnu::always_inline]] inline v4i shuffle2(v4i a, v4i b) {
#if defined(__clang__)
  return __builtin_shufflevector(a, b, A, B, C, D);
#else
  return __builtin_shuffle(a, b, v4i{A, B, C, D});
#endif
}

// The eight 16-bit lanes in reverse order.
[[gnu::always_inline]] inline v8s reverse(v8s v) {
#if defined(__clang__)
  return __builtin_shufflevector(v, v, 7, 6, 5, 4, 3, 2, 1, 0);
#else
  return __builtin_shuffle(v, v8s{7, 6, 5, 4, 3, 2, 1, 0});
#endif
}

// Sums of neighbouring lanes: (a0 + a1, a2 + a3, b0 + b1, b2 + b3).
[[gnu::always_inline]] inline v4u pair_sums(v4u a, v4u b) {
  return (v4u)shuffle2<0, 2, 4, 6>((v4i)a, (v4i)b) + (v4u)shuffle2<1, 3, 5, 7>((v4i)a, (v4i)b);
}

// Four 16-bit values sign-extended into 32-bit lanes.
[[gnu::always_inline]] inline v4i widen(const int16_t* p) {
  v4h h;
  std::memcpy(&h, p, sizeof h);
  return __builtin_convertvector(h, v4i);
}

// The low 16 bits of four lanes, stored.
[[gnu::always_inline]] inline void narrow_store(int16_t* p, v4i v) {
  const v4h h = __builtin_convertvector(v, v4h);
  std::memcpy(p, &h, sizeof h);
}

// Four lanes saturated to the 16-bit range and stored.
[[gnu::always_inline]] inline void saturate_store(int16_t* p, v4i v) {
#if defined(__x86_64__)
  // x86-64: SSE2's saturating pack (the compilers do not all find it).
  typedef short v8hi __attribute__((vector_size(16)));
  const v8hi h = __builtin_ia32_packssdw128(v, v);
  std::memcpy(p, &h, 8);
#else
  const v4i lo = {-32768, -32768, -32768, -32768}, hi = {32767, 32767, 32767, 32767};
  narrow_store(p, v < lo ? lo : (v > hi ? hi : v));
#endif
}

// Arithmetic (sign-filling) right shift of every lane.
template <int S>
[[gnu::always_inline]] inline v4u sar(v4u v) {
  return (v4u)((v4i)v >> S);
}

template <typename V>
inline V vmax(V a, V b) {
  return a > b ? a : b;
}

template <typename V>
inline V vmin(V a, V b) {
  return a < b ? a : b;
}

}  // namespace kafx::spl::simd

#endif
