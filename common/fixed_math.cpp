// Shared math of the library: integer square roots, exponential and logarithm
// in Q16, the 64-bit complex record and the Q15 fractional division.
#include "kafx_proc/fixed_math.h"

#include <cstdio>
#include <cstdlib>

#include "common/fixed_math.h"
#include "common/fixed_point.h"

using kafx::fixed_math_detail::kLn2Powers;
using kafx::fixed_math_detail::kLnOnePlus;

extern "C" {

unsigned int sqrt_fixed(unsigned int x) {
  // 16 bits of significance: eight digits from 2^14 down.
  uint32_t rem;
  return kafx::isqrt_digits(x, 1u << 14, &rem);
}

unsigned int sqrtFxQ16(unsigned int x) {
  // The whole 32-bit input, rounded to nearest; the root of a Q16 value is
  // Q8, so a final shift of 8 gives Q16.
  uint32_t rem;
  uint32_t root = kafx::isqrt_digits(x, 1u << 30, &rem);
  if (rem > root) ++root;
  return root << 8;
}

unsigned int exp_fixed(int x) {
  // Decompose x into a sum of ln 2^k and ln(1 + 2^-k) terms; multiply y by the
  // matching powers and factors with shifts and adds.
  int32_t t = x;
  uint32_t y = 65536;
  for (const auto& p : kLn2Powers) {
    if (t >= p.value) {
      t -= p.value;
      y <<= p.shift;
    }
  }
  for (int k = 1; k <= 7; ++k) {
    if (t >= kLnOnePlus[k - 1]) {
      t -= kLnOnePlus[k - 1];
      y += y >> k;
    }
  }
  // Remainder below 510: ln(1 + 2^-k) ~ 2^-k, one factor per set bit.
  for (int b = 8; b >= 1; --b) {
    if (t & (1 << b)) y += y >> (16 - b);
  }
  if (t & 1) y += y >> 16;
  return y;
}

int log_fixed(int x) { return kafx::log_q16(x); }

void complex_init(complex* z, int re, int im) {
  z->re = re;
  z->im = im;
}

void complex_setvalue(complex* z, int re, int im) { complex_init(z, re, im); }

void complex_end(complex* z) {
  z->re = 0;
  z->im = 0;
}

void complex_add(complex* a, complex* b, complex* out) {
  out->re = kafx::wrap_add64(a->re, b->re);
  out->im = kafx::wrap_add64(a->im, b->im);
}

void complex_sub(complex* a, complex* b, complex* out) {
  out->re = kafx::wrap_add64(a->re, kafx::wrap_mul64(b->re, -1));
  out->im = kafx::wrap_add64(a->im, kafx::wrap_mul64(b->im, -1));
}

void complex_mul(complex* a, complex* b, complex* out) { *out = kafx::complex_mul_q28(*a, *b); }

int64_t complex_getpower(complex* z) {
  const uint64_t r = static_cast<uint64_t>(z->re >> 13);
  const uint64_t i = static_cast<uint64_t>(z->im >> 13);
  return static_cast<int64_t>((r * r + i * i) >> 10);
}

void complex_swap(complex* a, complex* b) {
  const complex t = *a;
  *a = *b;
  *b = t;
}

}  // extern "C"

namespace kafx {

int16_t div_q15(int16_t num, int16_t den) {
  if (den == 0) {
    std::puts("Division by 0, Fatal error ");
    std::exit(0);
  }
  if (num < 0 || den < 0 || num > den) {
    std::printf("Division Error var1=%d  var2=%d\n", num, den);
    std::exit(0);
  }
  if (num == 0) return 0;
  if (num == den) return 32767;
  int32_t q = 0;
  int32_t r = num;
  for (int i = 0; i < 15; ++i) {
    q <<= 1;
    r <<= 1;
    if (r >= den) {
      r = sat_sub(r, den);
      q += 1;
    }
  }
  return static_cast<int16_t>(q);
}

}  // namespace kafx
