// 256-point integer FFT analysis: Hann window, radix-2 transform, levels in
// dB and peak picking.
//
// Scale: a working sample x (Q23) times the Q28 window, shifted down by 23,
// enters the transform at Q28 scale (a full-scale sample is 2^28). Each of
// the eight butterfly stages halves its outputs, so the spectrum is the DFT
// divided by 256: a full-scale sine centred on a bin gives |X| = 2^28 * 0.5
// (window mean) / 2 = 2^26 there, power 2^52 (the 0 dB reference). All
// values stay below 2^31 in magnitude, well inside the int64 parts.
//
// Twiddles and window come from the canceller's table of -2 cos(pi k / 128)
// in Q28: cos(2 pi k / 256) = -T[k] / 2^29 and sin(2 pi k / 256) =
// cos(2 pi (64 - k) / 256) = -T[|64 - k|] / 2^29.
#include "kafx_proc/fft_int.h"

#include <array>
#include <cstdlib>
#include <cstring>

#include "common/fixed_point.h"
#include "ktv/fft_int_detail.h"
#include "ktv/howling_canceling_tables.h"

using namespace kafx;

namespace {

constexpr int kN = FFT_INT_SIZE;

// The 8-bit bit reversal of every index, computed at compile time.
constexpr std::array<uint8_t, kN> make_bit_reverse() {
  std::array<uint8_t, kN> t{};
  for (int i = 0; i < kN; ++i) {
    int r = 0;
    for (int b = 0; b < FFT_INT_STAGES; ++b) r |= ((i >> b) & 1) << (FFT_INT_STAGES - 1 - b);
    t[static_cast<size_t>(i)] = static_cast<uint8_t>(r);
  }
  return t;
}
constexpr std::array<uint8_t, kN> kBitReverse = make_bit_reverse();

int bit_reverse8(int i) { return kBitReverse[static_cast<size_t>(i)]; }

// Hann window value of sample n (0 .. 255), Q28.
int64_t hann_rising(int n) { return (kQ28One >> 1) + (kHowlingCentre[n] >> 2); }  // n = 0 .. 127
int64_t hann_q28(int n) {
  if (n > kN / 2) n = kN - n;
  if (n == kN / 2) return kQ28One;
  return hann_rising(n);
}

// Mean level of the bins 3 to 5 away from k on both sides (mirrored at 0 and 127).
int32_t surround_level(const int* level, int k) {
  int32_t sum = 0;
  for (int d = 3; d <= 5; ++d) {
    int lo = k - d, hi = k + d;
    if (lo < 0) lo = -lo;
    if (hi > FFT_INT_BINS - 1) hi = 2 * (FFT_INT_BINS - 1) - hi;
    sum += level[lo] + level[hi];
  }
  return sum / 6;
}

// W^t = cos - i sin of 2 pi t / 256 (t = 0 .. 127), Q28.
complex twiddle(int t) {
  complex w;
  w.re = -static_cast<int64_t>(kHowlingCentre[t]) >> 1;
  w.im = static_cast<int64_t>(kHowlingCentre[std::abs(64 - t)]) >> 1;
  return w;
}

// One radix-2 butterfly with the twiddled lower value p: a, b <- (a + p) / 2,
// (a - p) / 2.
[[gnu::always_inline]] inline void butterfly(complex& a, complex& b, const complex p) {
  const complex x = a;
  a.re = (x.re + p.re) >> 1;
  a.im = (x.im + p.im) >> 1;
  b.re = (x.re - p.re) >> 1;
  b.im = (x.im - p.im) >> 1;
}

// In-place radix-2 decimation-in-time FFT of n (256 or 128) bit-reversed
// values, each stage halving its outputs; the twiddles of an n-point
// transform are every (256 / n)-th of the 256-point ones. W = 1 and W = -i
// need no product (complex_mul would return (re, im) and (im, -re) exactly:
// the values stay below 2^36), so they have loops of their own.
void transform(complex* bins, int n, int stride) {
  // The first two stages need no products (W = 1, and W = 1 and -i): they run
  // together on each group of four values, held in registers.
  for (int g = 0; g < n; g += 4) {
    complex v0 = bins[g], v1 = bins[g + 1], v2 = bins[g + 2], v3 = bins[g + 3];
    butterfly(v0, v1, v1);
    butterfly(v2, v3, v3);
    butterfly(v0, v2, v2);
    butterfly(v1, v3, complex{v3.im, -v3.re});
    bins[g] = v0;
    bins[g + 1] = v1;
    bins[g + 2] = v2;
    bins[g + 3] = v3;
  }
  // The twiddles this transform uses (every stride-th), read in the stages
  // below from this table rather than formed per group.
  complex tw[kN / 2];
  for (int t = 0; t < kN / 2; t += stride) tw[t] = twiddle(t);
  // Later stages, group by group: in a group of 2 half values, pair j takes
  // W^(j step); j = 0 is W = 1 and j = half / 2 is W^64 = -i (step * half is
  // always 128).
  for (int half = 4; half < n; half <<= 1) {
    const int step = (n / 2) / half * stride;
    const int quarter = half / 2;
    for (int g = 0; g < n; g += 2 * half) {
      complex* lo = &bins[g];
      complex* hi = &bins[g + half];
      butterfly(lo[0], hi[0], hi[0]);
      for (int j = 1; j < quarter; ++j) butterfly(lo[j], hi[j], complex_mul_q28(hi[j], tw[j * step]));
      butterfly(lo[quarter], hi[quarter], complex{hi[quarter].im, -hi[quarter].re});
      for (int j = quarter + 1; j < half; ++j) butterfly(lo[j], hi[j], complex_mul_q28(hi[j], tw[j * step]));
    }
  }
}

// The 256-point transform of real windowed samples through one 128-point
// complex transform: z[n] = x[2n] + i x[2n + 1], Z = FFT128(z) / 128, then
//   X[k] = (E[k] + W^k O[k]) / 2,  E = (Z[k] + conj Z[128 - k]) / 2,
//                                  O = (Z[k] - conj Z[128 - k]) / (2 i),
// which is the DFT / 256 as the complex path gives it (to rounding). Bins
// 129 .. 255 are the conjugate mirror.
void real_transform(const int* in, complex* bins) {
  // Pair n into its 7-bit reversed slot, windowed (the window's halves run
  // apart: hann_q28 without its folding).
  const auto put = [&](int n, int64_t w0, int64_t w1) {
    complex& z = bins[kBitReverse[static_cast<size_t>(n)] >> 1];
    z.re = (static_cast<int64_t>(in[2 * n]) * w0) >> 23;
    z.im = (static_cast<int64_t>(in[2 * n + 1]) * w1) >> 23;
  };
  for (int n = 0; n < kN / 4; ++n) put(n, hann_rising(2 * n), hann_rising(2 * n + 1));
  put(kN / 4, kQ28One, hann_rising(kN / 2 - 1));
  for (int n = kN / 4 + 1; n < kN / 2; ++n) put(n, hann_rising(kN - 2 * n), hann_rising(kN - 2 * n - 1));
  transform(bins, kN / 2, 2);
  // X[k] and X[128 - k] come from the same two values Z[k] and Z[128 - k]
  // (k = 0 gives X[0] and X[128] from Z[0]), so each pair is formed in place.
  const auto split = [](const complex zk, const complex zc, int k) {
    // The halves of E and O, once more halved: Z is the 128-point DFT / 128,
    // X must be the 256-point DFT / 256.
    const int64_t er = (zk.re + zc.re) >> 2, ei = (zk.im - zc.im) >> 2;
    complex o;
    o.re = (zk.im + zc.im) >> 2;
    o.im = -((zk.re - zc.re) >> 2);
    complex p;
    if (k == kN / 2) {
      p.re = -o.re;  // W^128 = -1
      p.im = -o.im;
    } else {
      p = complex_mul_q28(o, twiddle(k));
    }
    return complex{er + p.re, ei + p.im};
  };
  for (int k = 0; k <= kN / 4; ++k) {
    const int m = kN / 2 - k;  // 128 - k
    const complex zk = bins[k];
    const complex zm = bins[m % (kN / 2)];
    bins[k] = split(zk, zm, k);
    if (m != k) bins[m] = split(zm, zk, m);
  }
  for (int k = kN / 2 + 1; k < kN; ++k) {
    bins[k].re = bins[kN - k].re;
    bins[k].im = -bins[kN - k].im;
  }
}

}  // namespace

extern "C" {

void fft_int_window(const int* in, complex* bins) {
  for (int n = 0; n < kN; ++n) {
    complex& z = bins[bit_reverse8(n)];
    z.re = (static_cast<int64_t>(in[n]) * hann_q28(n)) >> 23;
    z.im = 0;
  }
}

void fft_int_bitreverse(complex* bins) {
  for (int i = 0; i < kN; ++i) {
    const int r = bit_reverse8(i);
    if (i < r) complex_swap(&bins[i], &bins[r]);
  }
}

void fft_int_transform(complex* bins) { transform(bins, kN, 1); }

void fft_int_level(const complex* bins, int* level) {
  // power_level_q8 of every bin, in three passes (see fft_int_detail.h).
  uint64_t power[FFT_INT_BINS];
  uint32_t v[FFT_INT_BINS], y[FFT_INT_BINS];
  int32_t shift[FFT_INT_BINS];
  for (int k = 0; k < FFT_INT_BINS; ++k) {
    power[k] = bin_power(bins[k]);
    const PowerLog s = power_log_start(power[k]);
    v[k] = s.v;
    y[k] = s.y;
    shift[k] = s.shift;
  }
  for (int k = 0; k < FFT_INT_BINS; k += 4) {
    u32x4 vk, yk;
    std::memcpy(&vk, &v[k], sizeof vk);
    std::memcpy(&yk, &y[k], sizeof yk);
    yk = log_q16_factors(vk, yk);
    std::memcpy(&y[k], &yk, sizeof yk);
  }
  for (int k = 0; k < FFT_INT_BINS; ++k) level[k] = power_level_end(power[k], shift[k], static_cast<int32_t>(y[k]));
}

int fft_int_find_peaks(const int* level, int* peaks) {
  int n = 0;
  for (int i = 0; i < FFT_INT_MAX_PEAKS; ++i) peaks[i] = FFT_INT_NO_PEAK;
  for (int k = 1; k < FFT_INT_NO_PEAK; ++k) {
    const int v = level[k];
    // One branch for the three tests (each alone would be taken at random on
    // a noisy spectrum).
    const bool local_max = (v > level[k - 1]) & (v >= level[k + 1]) & (v >= FFT_INT_PEAK_MIN_LEVEL);
    if (!local_max) continue;
    if (v - surround_level(level, k) < FFT_INT_PEAK_PROMINENCE) continue;
    // Insert by level, loudest first; the quietest falls off the end.
    int pos = n < FFT_INT_MAX_PEAKS ? n : FFT_INT_MAX_PEAKS - 1;
    if (n == FFT_INT_MAX_PEAKS && v <= level[peaks[pos]]) continue;
    while (pos > 0 && level[peaks[pos - 1]] < v) {
      peaks[pos] = peaks[pos - 1];
      --pos;
    }
    peaks[pos] = k;
    if (n < FFT_INT_MAX_PEAKS) ++n;
  }
  return n;
}

int fft_int_refine(const complex* bins, int k) {
  if (k < 1 || k > FFT_INT_BINS - 2) return k * 256;
  const uint64_t pk = bin_power(bins[k]);
  const uint64_t pl = bin_power(bins[k - 1]);
  const uint64_t pr = bin_power(bins[k + 1]);
  // Bin 0 holds the sine's mirror image at -f as much as the sine: next to
  // it only the upper neighbour is trusted.
  const bool right = pr >= pl || k == 1;
  const uint64_t pn = right ? pr : pl;
  const uint64_t top = pk > pn ? pk : pn;
  // A common even shift brings both powers into 32 bits: the magnitudes
  // scale alike and their ratio is kept.
  int shift = 0;
  while ((top >> shift) > 0xFFFFFFFFULL) shift += 2;
  uint32_t rem = 0;
  const int64_t a1 = isqrt_digits(static_cast<uint32_t>(pk >> shift), 1u << 30, &rem);
  const int64_t a2 = isqrt_digits(static_cast<uint32_t>(pn >> shift), 1u << 30, &rem);
  if (a1 + a2 == 0) return k * 256;
  int64_t d = ((2 * a2 - a1) * 256) / (a1 + a2);
  if (d < 0) d = 0;
  if (d > 128) d = 128;
  return k * 256 + static_cast<int>(right ? d : -d);
}

int fft_int_analyze(const int* in, complex* bins, int* level, int* peaks) {
  real_transform(in, bins);
  fft_int_level(bins, level);
  return fft_int_find_peaks(level, peaks);
}

}  // extern "C"
