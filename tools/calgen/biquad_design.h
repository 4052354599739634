// Design rules of the library's biquad coefficient tables (generator side
// only: the library itself never uses floating point).
//
// Every design is an analogue prototype mapped by the bilinear transform
// with pre-warping, K = tan(pi f / fs), so the design frequency lands exactly
// on f. The classic shelving and peaking family is used: a boost of G dB has
// V0 = 10^(|G|/20), and a cut is the exact inverse of the boost of the same
// size (numerator and denominator swapped), so a cut and a boost of equal
// size cancel. Shelves reach sqrt(V0) (half the dB gain) at f for the
// Butterworth slope Q = 1/sqrt(2).
//
// Coefficients are returned normalised (a0 = 1) in textbook signs:
//   y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] - a1 y[n-1] - a2 y[n-2]
// and stored by to_fixed() in the section's order b0, b1, b2, a1, a2 with the
// feedback pair negated (the sign that is added), each value converted as
// (int)(x * scale), truncated toward zero. The library's tables use
// scale 2^28 - 1 (a flat section stores b0 = 268435455) unless a block's
// generator states 2^28.
#ifndef KAFX_TOOLS_CALGEN_BIQUAD_DESIGN_H
#define KAFX_TOOLS_CALGEN_BIQUAD_DESIGN_H

#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace calgen {

struct Biquad {
  double b0, b1, b2, a1, a2;  // normalised, textbook signs
};

inline constexpr double kQ28Minus1 = 268435455.0;  // 2^28 - 1: the usual table scale
inline constexpr double kQ28 = 268435456.0;        // 2^28, where a generator says so
inline constexpr double kButterworthQ = std::numbers::sqrt2 / 2;

inline double prewarp(double f, double fs) { return std::tan(std::numbers::pi * f / fs); }

// Normalises a numerator n0..n2 over a denominator d0..d2.
inline Biquad ratio(double n0, double n1, double n2, double d0, double d1, double d2) {
  return {n0 / d0, n1 / d0, n2 / d0, d1 / d0, d2 / d0};
}

// The inverse filter (used for cuts): numerator and denominator exchanged.
inline Biquad inverse_of(double n0, double n1, double n2, double d0, double d1, double d2) {
  return ratio(d0, d1, d2, n0, n1, n2);
}

// Low shelf: gain G at DC, unity at high frequencies; slope set by q
// (1/sqrt 2 for the classic Butterworth shelf).
inline Biquad low_shelf(double f, double fs, double gain_db, double q = kButterworthQ) {
  const double k = prewarp(f, fs), v = std::pow(10.0, std::fabs(gain_db) / 20), kk = k * k;
  const double n0 = 1 + std::sqrt(v) / q * k + v * kk, n1 = 2 * (v * kk - 1), n2 = 1 - std::sqrt(v) / q * k + v * kk;
  const double d0 = 1 + k / q + kk, d1 = 2 * (kk - 1), d2 = 1 - k / q + kk;
  return gain_db >= 0 ? ratio(n0, n1, n2, d0, d1, d2) : inverse_of(n0, n1, n2, d0, d1, d2);
}

// High shelf: unity at DC, gain G at half the sample rate.
inline Biquad high_shelf(double f, double fs, double gain_db, double q = kButterworthQ) {
  const double k = prewarp(f, fs), v = std::pow(10.0, std::fabs(gain_db) / 20), kk = k * k;
  const double n0 = v + std::sqrt(v) / q * k + kk, n1 = 2 * (kk - v), n2 = v - std::sqrt(v) / q * k + kk;
  const double d0 = 1 + k / q + kk, d1 = 2 * (kk - 1), d2 = 1 - k / q + kk;
  return gain_db >= 0 ? ratio(n0, n1, n2, d0, d1, d2) : inverse_of(n0, n1, n2, d0, d1, d2);
}

// Peak (bell): gain G at f, bandwidth f / q for the boost; the cut is the
// inverse of the boost, so its notch is narrower by V0.
inline Biquad peaking(double f, double fs, double gain_db, double q) {
  const double k = prewarp(f, fs), v = std::pow(10.0, std::fabs(gain_db) / 20), kk = k * k;
  const double n0 = 1 + v / q * k + kk, n1 = 2 * (kk - 1), n2 = 1 - v / q * k + kk;
  const double d0 = 1 + k / q + kk, d1 = 2 * (kk - 1), d2 = 1 - k / q + kk;
  return gain_db >= 0 ? ratio(n0, n1, n2, d0, d1, d2) : inverse_of(n0, n1, n2, d0, d1, d2);
}

// Second-order low-pass and high-pass (q = 1/sqrt 2: Butterworth; q = 0.5:
// two coincident real poles, no overshoot).
inline Biquad low_pass(double f, double fs, double q = kButterworthQ) {
  const double k = prewarp(f, fs), kk = k * k;
  return ratio(kk, 2 * kk, kk, 1 + k / q + kk, 2 * (kk - 1), 1 - k / q + kk);
}
inline Biquad high_pass(double f, double fs, double q = kButterworthQ) {
  const double k = prewarp(f, fs), kk = k * k;
  return ratio(1, -2, 1, 1 + k / q + kk, 2 * (kk - 1), 1 - k / q + kk);
}

// Band-pass with 0 dB at f, bandwidth f / q.
inline Biquad band_pass(double f, double fs, double q) {
  const double k = prewarp(f, fs), kk = k * k;
  return ratio(k / q, 0, -k / q, 1 + k / q + kk, 2 * (kk - 1), 1 - k / q + kk);
}

// Second-order all-pass: unity magnitude, 180 degrees of phase at f.
inline Biquad all_pass(double f, double fs, double q) {
  const double k = prewarp(f, fs), kk = k * k;
  const double d0 = 1 + k / q + kk, d1 = 2 * (kk - 1), d2 = 1 - k / q + kk;
  return ratio(d2, d1, d0, d0, d1, d2);
}

// Stored form: b0, b1, b2, -a1, -a2, each (int)(x * scale) truncated toward zero.
inline std::array<int32_t, 5> to_fixed(const Biquad& c, double scale = kQ28Minus1) {
  auto q = [scale](double x) { return static_cast<int32_t>(x * scale); };
  return {q(c.b0), q(c.b1), q(c.b2), q(-c.a1), q(-c.a2)};
}

}  // namespace calgen

#endif
