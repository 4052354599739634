// Complex FFT, bit reversal and the vector utilities against the published
// routines, plus the edge behaviours this library defines itself (null and
// empty vectors, the -32768 and INT32_MIN caps, oversized transforms).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <type_traits>
#include <climits>
#include <limits>

#include "kafx_proc/spl.h"
#include "spl/oracle.h"
#include "spl/spl_internal.h"
#include "support/variants.h"

using namespace spltest;

namespace {

// The reference inverse FFT finds its peaks through a pointer that its
// library's init sets.
[[maybe_unused]] const bool kReferenceReady = (WebRtcSpl_Init(), true);

// Every size, both modes, every signal. Silent data carries one peak at the
// inverse transform's headroom thresholds: above 13573 it shifts one bit
// more per stage, above 27146 two. Beyond 1024 points: -1, data untouched.
TEST(ComplexFFT, MatchesReference) {
  const int kPeaks[] = {13572, 13573, 13574, 27145, 27146, 27147, 32767, -32768, -13574};
  for (int stages = 0; stages <= 12; ++stages) {
    const size_t n2 = size_t{2} << stages;
    for (Signal kind : kSignals) {
      Source src(kind, 100 * stages + static_cast<int>(kind));
      for (int t = 0; t < 9; ++t) {
        auto data = src.block(n2);
        if (kind == Signal::kSilence) data[(37 * t) % n2] = static_cast<int16_t>(kPeaks[t]);
        auto ref = data;
        kedoSpl_ComplexBitReverse(data.data(), stages);
        WebRtcSpl_ComplexBitReverse(ref.data(), stages);
        ASSERT_EQ(data, ref) << "bit reversal, stages " << stages;
        for (int mode = 0; mode < 2 && stages > 0; ++mode) {
          auto a = data, b = data;
          const int ret = kedoSpl_ComplexFFT(a.data(), stages, mode);
          ASSERT_EQ(ret, WebRtcSpl_ComplexFFT(b.data(), stages, mode));
          ASSERT_EQ(a, b) << "FFT stages " << stages << " mode " << mode;
          a = b = data;
          const int shifts = kedoSpl_ComplexIFFT(a.data(), stages, mode);
          ASSERT_EQ(shifts, WebRtcSpl_ComplexIFFT(b.data(), stages, mode))
              << "IFFT shifts, stages " << stages << " mode " << mode;
          ASSERT_EQ(a, b) << "IFFT stages " << stages << " mode " << mode;
          EXPECT_TRUE(stages <= 10 || (ret == -1 && shifts == -1 && a == data)) << stages;
        }
      }
    }
  }
}

// Every build of the transforms this processor runs against the baseline
// build, on data the reference test's signals do not reach: full-range
// random points, all most negative, all full scale, alternating full-scale
// signs (the inverse's largest growth, shifting two bits every stage) and a
// single full-scale impulse; outputs, shift counts and canaries compared.
template <typename F>
void compare_fft_builds(const kafx::KernelVariants<F>& v, unsigned seed) {
  const int ran = kafx_test::for_each_variant(v, [&](F fn, F base) {
    for (int stages = 1; stages <= 10; ++stages) {
      const int n = 1 << stages;
      for (int kind = 0; kind < 5; ++kind) {
        std::vector<int16_t> in = kafx_test::random_values<int16_t>(2u * n, seed + 10 * stages + kind);
        for (int i = 0; i < 2 * n; ++i) {
          if (kind == 1) in[i] = INT16_MIN;
          if (kind == 2) in[i] = INT16_MAX;
          if (kind == 3) in[i] = (i / 2) % 2 ? INT16_MIN : INT16_MAX;
          if (kind == 4) in[i] = i == 2 * static_cast<int>(seed % static_cast<unsigned>(n)) ? INT16_MIN : 0;
        }
        kafx_test::Guarded<int16_t> a(2u * n), b(2u * n);
        std::copy(in.begin(), in.end(), a.v.begin());
        std::copy(in.begin(), in.end(), b.v.begin());
        if constexpr (std::is_same_v<F, kafx::spl::FftInverse>) {
          EXPECT_EQ(base(a.data(), n), fn(b.data(), n)) << "n " << n << " kind " << kind;
        } else {
          base(a.data(), n);
          fn(b.data(), n);
        }
        EXPECT_EQ(a.v, b.v) << "n " << n << " kind " << kind;
        EXPECT_TRUE(b.guards_intact()) << "n " << n << " kind " << kind;
      }
    }
  });
  if (ran == 0) std::printf("%s: only the baseline build runs here\n", v.name);
}

TEST(ComplexFFT, BuildsAgreeOnSaturatingData) {
  compare_fft_builds(kafx::spl::fft_forward_truncating_variants, 51);
  compare_fft_builds(kafx::spl::fft_forward_rounding_variants, 52);
  compare_fft_builds(kafx::spl::fft_inverse_truncating_variants, 53);
  compare_fft_builds(kafx::spl::fft_inverse_rounding_variants, 54);
}

// Vectors of lengths around the lane chunking: full range, few values (many
// ties), full range with the most negative value sprinkled in, all most
// negative, plus and minus full scale, silence with one small value.
template <typename T>
std::vector<std::vector<T>> test_vectors(uint32_t seed) {
  constexpr T kMin = std::numeric_limits<T>::min(), kMax = std::numeric_limits<T>::max();
  std::mt19937 rng(seed);
  std::vector<std::vector<T>> out;
  for (int len : {1, 2, 3, 7, 15, 16, 17, 31, 32, 33, 64, 100, 255, 256, 257, 1000}) {
    for (int variant = 0; variant < 6; ++variant) {
      std::vector<T> v(len);
      for (auto& x : v) {
        const auto r = static_cast<T>(rng());
        x = variant == 0   ? r
            : variant == 1 ? static_cast<T>(static_cast<int>(rng() % 7) - 3)
            : variant == 2 ? (rng() % 9 ? r : kMin)
            : variant == 3 ? kMin
            : variant == 4 ? (rng() % 2 ? kMax : static_cast<T>(-kMax))
                           : T{0};
      }
      if (variant == 5) v[rng() % len] = static_cast<T>(rng() % 2 ? 5 : -5);
      out.push_back(std::move(v));
    }
  }
  return out;
}

#define SAME(f, ref) \
  EXPECT_EQ(kedoSpl_##f(v.data(), n), static_cast<int>(WebRtcSpl_##ref(v.data(), n))) << #f << n

TEST(VectorOps, ExtremeValuesMatchReference) {
  for (const auto& v : test_vectors<int16_t>(1)) {
    const int n = static_cast<int>(v.size());
    SAME(MaxAbsValueW16, MaxAbsValueW16C); SAME(MaxValueW16, MaxValueW16C);
    SAME(MinValueW16, MinValueW16C); SAME(MaxAbsIndexW16, MaxAbsIndexW16);
    SAME(MaxIndexW16, MaxIndexW16); SAME(MinIndexW16, MinIndexW16);
  }
  for (const auto& v : test_vectors<int32_t>(2)) {
    const int n = static_cast<int>(v.size());
    // |INT32_MIN| is capped; the reference build returns INT32_MIN there.
    if (std::find(v.begin(), v.end(), INT_MIN) != v.end()) {
      EXPECT_EQ(kedoSpl_MaxAbsValueW32(v.data(), n), INT_MAX);
    } else {
      SAME(MaxAbsValueW32, MaxAbsValueW32C);
    }
    SAME(MaxValueW32, MaxValueW32C); SAME(MinValueW32, MinValueW32C);
    SAME(MaxIndexW32, MaxIndexW32); SAME(MinIndexW32, MinIndexW32);
  }
}

TEST(VectorOps, ExtremeValueEdges) {
  const short s[] = {3, 7, 7, -32768, -32768};
  const int w[] = {INT_MIN, 5};
  EXPECT_EQ(kedoSpl_MaxAbsValueW16(s + 3, 1), 32767);
  EXPECT_EQ(kedoSpl_MaxAbsValueW32(w, 2), INT_MAX);
  EXPECT_EQ(kedoSpl_MaxIndexW16(s, 3), 1);  // the first maximum
  EXPECT_EQ(kedoSpl_MaxAbsIndexW16(s, 5), 3);
  // No elements, or a null vector.
  for (int len : {0, -3, 4}) {
    const short* sv = len == 4 ? nullptr : s;
    const int* wv = len == 4 ? nullptr : w;
    EXPECT_EQ(kedoSpl_MaxAbsValueW16(sv, len), -1);
    EXPECT_EQ(kedoSpl_MaxAbsValueW32(wv, len), -1);
    EXPECT_EQ(kedoSpl_MaxValueW16(sv, len), SHRT_MIN);
    EXPECT_EQ(kedoSpl_MaxValueW32(wv, len), INT_MIN);
    EXPECT_EQ(kedoSpl_MinValueW16(sv, len), SHRT_MAX);
    EXPECT_EQ(kedoSpl_MinValueW32(wv, len), INT_MAX);
    for (int index : {kedoSpl_MaxAbsIndexW16(sv, len), kedoSpl_MaxIndexW16(sv, len),
                      kedoSpl_MinIndexW16(sv, len), kedoSpl_MaxIndexW32(wv, len),
                      kedoSpl_MinIndexW32(wv, len)})
      EXPECT_EQ(index, -1) << len;
  }
}

TEST(VectorOps, ScalingAndEnergyMatchReference) {
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

// The root is estimated per octave pair and corrected by one step, so the
// places where an estimate could land one off are checked in full against
// the published routine: every value below 2^20, both neighbours of every
// perfect square, a window around each 2^(23 - 2h)-wide span boundary at
// every even normalising shift 2h, and the top of the range; then random
// magnitudes of every size.
TEST(VectorOps, SqrtFloor) {
  EXPECT_EQ(kedoSpl_SqrtFloor(2147483647), 46340);
  EXPECT_EQ(kedoSpl_SqrtFloor(0), 0);
  auto check = [](int32_t x) { ASSERT_EQ(kedoSpl_SqrtFloor(x), WebRtcSpl_SqrtFloor(x)) << x; };
  for (int32_t x = 0; x < (1 << 20); ++x) check(x);
  for (int32_t k = 1; k <= 46340; ++k) {
    check(k * k - 1);
    check(k * k);
    if (k < 46340) check(k * k + 2 * k);  // (k + 1)^2 - 1
  }
  for (int h = 0; h <= 14; ++h) {
    for (int64_t j = 64; j <= 256; ++j) {
      const int64_t edge = (j << 23) >> (2 * h);
      for (int64_t d = -300; d <= 300; ++d) {
        const int64_t x = edge + d;
        if (x >= 0 && x <= INT32_MAX) check(static_cast<int32_t>(x));
      }
    }
  }
  for (int32_t x = INT32_MAX - (1 << 16); x < INT32_MAX; ++x) check(x);
  // Random magnitudes over the routine's domain, 0 ... 2^31 - 1. Negative
  // input lies outside it: what the oracle returns there differs between its
  // builds (x86-64 and armhf), so it is not compared.
  std::mt19937 rng(6);
  for (int i = 0; i < 200000; ++i) {
    check(static_cast<int32_t>(rng() >> (1 + rng() % 31)));
  }
}

TEST(VectorOps, FillAndCopyMatchReference) {
  Source src(Signal::kRandom, 99);
  const auto in = src.block(602);
  for (int len : {0, 1, 5, 16, 33, 240, 300}) {
    std::vector<int16_t> a(len + 2, 9), b = a;
    std::vector<int32_t> c(len + 2, 9), d = c;
    kedoSpl_MemSetW16(a.data(), -1234, len);
    WebRtcSpl_MemSetW16(b.data(), -1234, len);
    kedoSpl_MemSetW32(c.data(), -123456789, len);
    WebRtcSpl_MemSetW32(d.data(), -123456789, len);
    EXPECT_TRUE(a == b && c == d) << len;
    // Reversed copy from apart and from within the destination (value by
    // value, as the reference does).
    for (int from : {302, len / 2}) {
      auto x = in, y = in;
      if (len > 0) kedoSpl_MemCpyReversedOrder(x.data() + len + 2, x.data() + from, len);
      if (len > 0) WebRtcSpl_MemCpyReversedOrder(y.data() + len + 2, y.data() + from, len);
      EXPECT_EQ(x, y) << len << " from " << from;
    }
  }
  // Every count, past the 256 copied without memcpy.
  for (int n = 0; n <= 300; ++n) {
    std::vector<int16_t> e1(302, 9), e2(302, 9);
    EXPECT_EQ(kedoSpl_CopyFromEndW16(in.data(), 300, static_cast<short>(n), e1.data()), n);
    WebRtcSpl_CopyFromEndW16(in.data(), 300, n, e2.data());
    ASSERT_EQ(e1, e2) << n;
  }
}

// Nothing written below one element; the length comes back.
TEST(VectorOps, ZerosAndOnes) {
  for (int len : {-2, 0, 5, 17}) {
    std::vector<int16_t> s(20, 9), s_ref = s;
    std::vector<int32_t> w(20, 9), w_ref = w;
    EXPECT_EQ(kedoSpl_ZerosArrayW16(s.data(), len), len);
    EXPECT_EQ(kedoSpl_ZerosArrayW32(w.data(), len), len);
    if (len > 0) WebRtcSpl_ZerosArrayW16(s_ref.data(), len), WebRtcSpl_ZerosArrayW32(w_ref.data(), len);
    EXPECT_TRUE(s == s_ref && w == w_ref) << len;
    EXPECT_EQ(kedoSpl_OnesArrayW16(s.data(), len), len);
    EXPECT_EQ(kedoSpl_OnesArrayW32(w.data(), len), len);
    std::fill_n(s_ref.begin(), std::max(len, 0), 1);
    std::fill_n(w_ref.begin(), std::max(len, 0), 1);
    EXPECT_TRUE(s == s_ref && w == w_ref) << len;
  }
}

}  // namespace
