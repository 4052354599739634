// Complex FFT, bit reversal and the vector utilities against the published
// routines, plus the edge behaviours this library defines itself (null and
// empty vectors, the -32768 cap, oversized transforms).
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <random>

#include "kafx_proc/spl.h"
#include "spl/oracle.h"

using namespace spltest;

namespace {

// The reference inverse FFT finds its peaks through a dispatched pointer
// that the library's init sets.
struct InitReference {
  InitReference() { WebRtcSpl_Init(); }
} const init_reference;

// Complex test data: 2n values of one signal kind.
std::vector<int16_t> complex_data(Signal kind, int n, uint32_t seed) {
  Source s(kind, seed);
  return s.block(2 * static_cast<size_t>(n));
}

constexpr Signal kFftSignals[] = {Signal::kRandom,  Signal::kQuiet, Signal::kFullScale,
                                  Signal::kImpulse, Signal::kSweep, Signal::kSilence};

TEST(ComplexFFT, ForwardAndInverseMatchReference) {
  int transforms = 0;
  for (int stages = 1; stages <= 10; ++stages) {
    const int n = 1 << stages;
    for (int mode = 0; mode < 2; ++mode) {
      for (Signal kind : kFftSignals) {
        const int trials = stages <= 8 ? 8 : 3;
        for (int t = 0; t < trials; ++t, ++transforms) {
          const auto data = complex_data(kind, n, 1000 * stages + 10 * t + mode);
          auto mine = data, ref = data;
          ASSERT_EQ(kedoSpl_ComplexFFT(mine.data(), stages, mode),
                    WebRtcSpl_ComplexFFT(ref.data(), stages, mode));
          ASSERT_EQ(mine, ref) << "FFT stages " << stages << " mode " << mode;
          mine = data;
          ref = data;
          ASSERT_EQ(kedoSpl_ComplexIFFT(mine.data(), stages, mode),
                    WebRtcSpl_ComplexIFFT(ref.data(), stages, mode))
              << "IFFT scale, stages " << stages << " mode " << mode;
          ASSERT_EQ(mine, ref) << "IFFT stages " << stages << " mode " << mode;
        }
      }
    }
  }
  EXPECT_GT(transforms, 600);
}

// The inverse transform's headroom thresholds: a peak of exactly 13573 or
// 27146 does not yet take the extra shift.
TEST(ComplexFFT, InverseScalingThresholds) {
  for (int peak : {13572, 13573, 13574, 27145, 27146, 27147, 32767, -32768, -13574}) {
    for (int mode = 0; mode < 2; ++mode) {
      auto data = complex_data(Signal::kQuiet, 64, 40 + mode);
      data[37] = static_cast<int16_t>(peak);
      auto mine = data, ref = data;
      EXPECT_EQ(kedoSpl_ComplexIFFT(mine.data(), 6, mode),
                WebRtcSpl_ComplexIFFT(ref.data(), 6, mode))
          << peak;
      EXPECT_EQ(mine, ref) << peak;
    }
  }
}

TEST(ComplexFFT, BitReverseMatchesReference) {
  for (int stages = 0; stages <= 12; ++stages) {
    const auto data = complex_data(Signal::kRandom, 1 << stages, 77 + stages);
    auto mine = data, ref = data;
    kedoSpl_ComplexBitReverse(mine.data(), stages);
    WebRtcSpl_ComplexBitReverse(ref.data(), stages);
    ASSERT_EQ(mine, ref) << "stages " << stages;
  }
  // 128 points: point 1 goes to 64, 2 to 32, 3 to 96, 4 to 16.
  std::vector<int16_t> v(256);
  for (int i = 0; i < 128; ++i) v[2 * i] = v[2 * i + 1] = static_cast<int16_t>(i);
  kedoSpl_ComplexBitReverse(v.data(), 7);
  EXPECT_EQ(v[2 * 64], 1);
  EXPECT_EQ(v[2 * 32 + 1], 2);
  EXPECT_EQ(v[2 * 96], 3);
  EXPECT_EQ(v[2 * 16], 4);
}

TEST(ComplexFFT, OversizedTransformIsRejectedUntouched) {
  const auto data = complex_data(Signal::kRandom, 2048, 5);
  auto v = data;
  EXPECT_EQ(kedoSpl_ComplexFFT(v.data(), 11, 0), -1);
  EXPECT_EQ(kedoSpl_ComplexFFT(v.data(), 11, 1), -1);
  EXPECT_EQ(kedoSpl_ComplexIFFT(v.data(), 11, 0), -1);
  EXPECT_EQ(kedoSpl_ComplexIFFT(v.data(), 11, 1), -1);
  EXPECT_EQ(v, data);
}

// Forward then inverse brings a tone back: the forward transform divides by
// n, the inverse reports its shifts, and 2^shifts times the result is the
// input up to rounding.
TEST(ComplexFFT, RoundTripRestoresSignal) {
  const int stages = 7, n = 128;
  std::vector<int16_t> x(2 * n);
  for (int i = 0; i < n; ++i) {
    x[2 * i] =
        static_cast<int16_t>(std::lround(16000 * std::cos(2 * std::numbers::pi * 5 * i / n)));
    x[2 * i + 1] =
        static_cast<int16_t>(std::lround(9000 * std::sin(2 * std::numbers::pi * 3 * i / n)));
  }
  auto v = x;
  kedoSpl_ComplexBitReverse(v.data(), stages);
  ASSERT_EQ(kedoSpl_ComplexFFT(v.data(), stages, 1), 0);
  // Tone at bin 5: about 16000 / 2 after the division by n.
  EXPECT_NEAR(v[2 * 5], 8000 - 0, 200);
  kedoSpl_ComplexBitReverse(v.data(), stages);
  const int shifts = kedoSpl_ComplexIFFT(v.data(), stages, 1);
  ASSERT_GE(shifts, 0);
  for (int i = 0; i < 2 * n; ++i) {
    EXPECT_NEAR(v[i] * (1 << shifts), x[i], 64 << shifts) << i;
  }
}

// ---------------------------------------------------------------------------
// Extreme values.

// Vectors of assorted lengths (around the 16-lane chunking) and value
// ranges: full range, a narrow range with many ties, and ones holding the
// most negative value.
template <typename T>
std::vector<std::vector<T>> test_vectors(uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<std::vector<T>> out;
  const int lengths[] = {1, 2, 3, 7, 15, 16, 17, 31, 32, 33, 64, 100, 255, 256, 257, 1000};
  for (int len : lengths) {
    for (int variant = 0; variant < 6; ++variant) {
      std::vector<T> v(len);
      for (auto& x : v) {
        if (variant == 0) {
          x = static_cast<T>(rng());
        } else if (variant == 1) {
          x = static_cast<T>(static_cast<int>(rng() % 7) - 3);
        } else if (variant == 2) {
          x = static_cast<T>(rng());
          if (rng() % 9 == 0) x = std::numeric_limits<T>::min();
        } else if (variant == 3) {
          x = std::numeric_limits<T>::min();
        } else if (variant == 4) {
          x = rng() % 2 ? std::numeric_limits<T>::max()
                        : static_cast<T>(-std::numeric_limits<T>::max());
        } else {
          x = 0;
        }
      }
      if (variant == 5) v[rng() % len] = static_cast<T>(rng() % 2 ? 5 : -5);
      out.push_back(std::move(v));
    }
  }
  return out;
}

TEST(VectorOps, ExtremeValuesMatchReference) {
  for (const auto& v : test_vectors<int16_t>(1)) {
    const int n = static_cast<int>(v.size());
    EXPECT_EQ(kedoSpl_MaxAbsValueW16(v.data(), n), WebRtcSpl_MaxAbsValueW16C(v.data(), n));
    EXPECT_EQ(kedoSpl_MaxValueW16(v.data(), n), WebRtcSpl_MaxValueW16C(v.data(), n));
    EXPECT_EQ(kedoSpl_MinValueW16(v.data(), n), WebRtcSpl_MinValueW16C(v.data(), n));
    EXPECT_EQ(kedoSpl_MaxAbsIndexW16(v.data(), n),
              static_cast<int>(WebRtcSpl_MaxAbsIndexW16(v.data(), n)));
    EXPECT_EQ(kedoSpl_MaxIndexW16(v.data(), n),
              static_cast<int>(WebRtcSpl_MaxIndexW16(v.data(), n)));
    EXPECT_EQ(kedoSpl_MinIndexW16(v.data(), n),
              static_cast<int>(WebRtcSpl_MinIndexW16(v.data(), n)));
  }
  for (const auto& v : test_vectors<int32_t>(2)) {
    const int n = static_cast<int>(v.size());
    // |INT32_MIN| is capped at INT32_MAX; the reference build returns
    // INT32_MIN there (its abs() of INT32_MIN is left undefined).
    if (std::find(v.begin(), v.end(), INT_MIN) != v.end()) {
      EXPECT_EQ(kedoSpl_MaxAbsValueW32(v.data(), n), INT_MAX);
    } else {
      EXPECT_EQ(kedoSpl_MaxAbsValueW32(v.data(), n), WebRtcSpl_MaxAbsValueW32C(v.data(), n));
    }
    EXPECT_EQ(kedoSpl_MaxValueW32(v.data(), n), WebRtcSpl_MaxValueW32C(v.data(), n));
    EXPECT_EQ(kedoSpl_MinValueW32(v.data(), n), WebRtcSpl_MinValueW32C(v.data(), n));
    EXPECT_EQ(kedoSpl_MaxIndexW32(v.data(), n),
              static_cast<int>(WebRtcSpl_MaxIndexW32(v.data(), n)));
    EXPECT_EQ(kedoSpl_MinIndexW32(v.data(), n),
              static_cast<int>(WebRtcSpl_MinIndexW32(v.data(), n)));
  }
}

TEST(VectorOps, ExtremeValueEdges) {
  const short minus_full[] = {-32768};
  EXPECT_EQ(kedoSpl_MaxAbsValueW16(minus_full, 1), 32767);
  const int minus_full32[] = {INT_MIN, 5};
  EXPECT_EQ(kedoSpl_MaxAbsValueW32(minus_full32, 2), INT_MAX);
  const short ties[] = {3, 7, 7};
  EXPECT_EQ(kedoSpl_MaxIndexW16(ties, 3), 1);
  const short abs_ties[] = {2, -9, 9, -32768, -32768};
  EXPECT_EQ(kedoSpl_MaxAbsIndexW16(abs_ties, 3), 1);
  EXPECT_EQ(kedoSpl_MaxAbsIndexW16(abs_ties, 5), 3);

  // Null vector or no elements.
  for (int len : {0, -3}) {
    EXPECT_EQ(kedoSpl_MaxAbsValueW16(ties, len), -1);
    EXPECT_EQ(kedoSpl_MaxAbsValueW32(minus_full32, len), -1);
    EXPECT_EQ(kedoSpl_MaxValueW16(ties, len), SHRT_MIN);
    EXPECT_EQ(kedoSpl_MaxValueW32(minus_full32, len), INT_MIN);
    EXPECT_EQ(kedoSpl_MinValueW16(ties, len), SHRT_MAX);
    EXPECT_EQ(kedoSpl_MinValueW32(minus_full32, len), INT_MAX);
    EXPECT_EQ(kedoSpl_MaxAbsIndexW16(ties, len), -1);
    EXPECT_EQ(kedoSpl_MaxIndexW16(ties, len), -1);
    EXPECT_EQ(kedoSpl_MaxIndexW32(minus_full32, len), -1);
    EXPECT_EQ(kedoSpl_MinIndexW16(ties, len), -1);
    EXPECT_EQ(kedoSpl_MinIndexW32(minus_full32, len), -1);
  }
  EXPECT_EQ(kedoSpl_MaxAbsValueW16(nullptr, 4), -1);
  EXPECT_EQ(kedoSpl_MaxAbsValueW32(nullptr, 4), -1);
  EXPECT_EQ(kedoSpl_MaxValueW16(nullptr, 4), SHRT_MIN);
  EXPECT_EQ(kedoSpl_MaxValueW32(nullptr, 4), INT_MIN);
  EXPECT_EQ(kedoSpl_MinValueW16(nullptr, 4), SHRT_MAX);
  EXPECT_EQ(kedoSpl_MinValueW32(nullptr, 4), INT_MAX);
  EXPECT_EQ(kedoSpl_MaxAbsIndexW16(nullptr, 4), -1);
  EXPECT_EQ(kedoSpl_MaxIndexW16(nullptr, 4), -1);
  EXPECT_EQ(kedoSpl_MaxIndexW32(nullptr, 4), -1);
  EXPECT_EQ(kedoSpl_MinIndexW16(nullptr, 4), -1);
  EXPECT_EQ(kedoSpl_MinIndexW32(nullptr, 4), -1);
}

// ---------------------------------------------------------------------------
// Scaling, energy and square root.

TEST(VectorOps, ScalingAndEnergyMatchReference) {
  std::mt19937 rng(3);
  for (auto v : test_vectors<int16_t>(4)) {
    const int n = static_cast<int>(v.size());
    for (int times : {0, 1, 2, n, 1000, 1 << 20, 1 << 30, INT_MAX, -1}) {
      EXPECT_EQ(kedoSpl_GetScalingSquare(v.data(), n, times),
                WebRtcSpl_GetScalingSquare(v.data(), n, static_cast<size_t>(times)))
          << "len " << n << " times " << times;
    }
    int scale = -1, ref_scale = -2;
    EXPECT_EQ(kedoSpl_Energy(v.data(), n, &scale), WebRtcSpl_Energy(v.data(), n, &ref_scale));
    EXPECT_EQ(scale, ref_scale);
  }
  // An empty vector: no magnitude, the shift of one square of 1.
  EXPECT_EQ(kedoSpl_GetScalingSquare(nullptr, 0, 1 << 30), 1);
  EXPECT_EQ(kedoSpl_GetScalingSquare(nullptr, 0, 100), 0);
}

TEST(VectorOps, SqrtFloor) {
  EXPECT_EQ(kedoSpl_SqrtFloor(2147483647), 46340);
  EXPECT_EQ(kedoSpl_SqrtFloor(0), 0);
  for (int neg : {-5, -1, INT_MIN, -123456789})
    EXPECT_EQ(kedoSpl_SqrtFloor(neg), WebRtcSpl_SqrtFloor(neg));
  for (int k = 1; k <= 46340; k += 7) {
    const int sq = k * k;
    EXPECT_EQ(kedoSpl_SqrtFloor(sq), k);
    EXPECT_EQ(kedoSpl_SqrtFloor(sq - 1), k - 1);
  }
  std::mt19937 rng(6);
  for (int i = 0; i < 20000; ++i) {
    const int32_t x = static_cast<int32_t>(rng() >> (rng() % 32));
    ASSERT_EQ(kedoSpl_SqrtFloor(x), WebRtcSpl_SqrtFloor(x)) << x;
  }
}

// ---------------------------------------------------------------------------
// Fill and copy.

TEST(VectorOps, FillAndCopyMatchReference) {
  std::mt19937 rng(8);
  for (int len : {0, 1, 5, 16, 33, 240}) {
    std::vector<int16_t> a(len + 2, 9), b(len + 2, 9);
    kedoSpl_MemSetW16(a.data(), -1234, len);
    WebRtcSpl_MemSetW16(b.data(), -1234, len);
    EXPECT_EQ(a, b);
    std::vector<int32_t> c(len + 2, 9), d(len + 2, 9);
    kedoSpl_MemSetW32(c.data(), -123456789, len);
    WebRtcSpl_MemSetW32(d.data(), -123456789, len);
    EXPECT_EQ(c, d);

    Source src(Signal::kRandom, 10 + len);
    auto in = src.block(len + 4);
    std::vector<int16_t> r1(len + 4, 9), r2(len + 4, 9);
    if (len > 0) {
      kedoSpl_MemCpyReversedOrder(r1.data() + len, in.data(), len);
      WebRtcSpl_MemCpyReversedOrder(r2.data() + len, in.data(), len);
    }
    EXPECT_EQ(r1, r2);
    // Overlapping source and destination go value by value, as in the
    // reference.
    if (len >= 5) {
      std::vector<int16_t> o1(2 * len + 8), o2;
      for (int i = 0; i < 2 * len + 8; ++i) o1[i] = static_cast<int16_t>(i * 7 - 100);
      o2 = o1;
      kedoSpl_MemCpyReversedOrder(o1.data() + len + 2, o1.data() + len / 2, len);
      WebRtcSpl_MemCpyReversedOrder(o2.data() + len + 2, o2.data() + len / 2, len);
      EXPECT_EQ(o1, o2) << len;
    }
  }
  // Every count up to beyond the 256 handled without memcpy.
  Source src(Signal::kRandom, 99);
  const auto in = src.block(300);
  for (int n = 0; n <= 300; ++n) {
    std::vector<int16_t> e1(302, 9), e2(302, 9);
    EXPECT_EQ(kedoSpl_CopyFromEndW16(in.data(), 300, static_cast<short>(n), e1.data()), n);
    WebRtcSpl_CopyFromEndW16(in.data(), 300, n, e2.data());
    ASSERT_EQ(e1, e2) << n;
  }
}

TEST(VectorOps, ZerosAndOnes) {
  std::vector<int16_t> s(20, 9);
  std::vector<int32_t> w(20, 9);
  EXPECT_EQ(kedoSpl_ZerosArrayW16(s.data(), 0), 0);
  EXPECT_EQ(kedoSpl_ZerosArrayW32(w.data(), 0), 0);
  EXPECT_EQ(kedoSpl_OnesArrayW16(s.data(), 0), 0);
  EXPECT_EQ(kedoSpl_OnesArrayW32(w.data(), -2), -2);
  EXPECT_TRUE(std::all_of(s.begin(), s.end(), [](int16_t v) { return v == 9; }));
  EXPECT_TRUE(std::all_of(w.begin(), w.end(), [](int32_t v) { return v == 9; }));

  EXPECT_EQ(kedoSpl_ZerosArrayW16(s.data(), 17), 17);
  EXPECT_EQ(kedoSpl_ZerosArrayW32(w.data(), 18), 18);
  std::vector<int16_t> s_ref(20, 9);
  std::vector<int32_t> w_ref(20, 9);
  WebRtcSpl_ZerosArrayW16(s_ref.data(), 17);
  WebRtcSpl_ZerosArrayW32(w_ref.data(), 18);
  EXPECT_EQ(s, s_ref);
  EXPECT_EQ(w, w_ref);

  EXPECT_EQ(kedoSpl_OnesArrayW16(s.data(), 5), 5);
  EXPECT_EQ(kedoSpl_OnesArrayW32(w.data(), 6), 6);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(s[i], i < 5 ? 1 : i < 17 ? 0 : 9);
    EXPECT_EQ(w[i], i < 6 ? 1 : i < 18 ? 0 : 9);
  }
}

}  // namespace
