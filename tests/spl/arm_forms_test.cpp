// The forms the ARM builds run (built and tested on every architecture)
// against the published routines: the 3 -> 2, 16 -> 11 and 11 -> 8 stages
// with a block's sums formed side by side, and the scalar 16-bit decimator with its
// rounding and saturation in the recursive loop. Odd lengths, full-range
// random and extreme inputs (sums that wrap, outputs that saturate both
// ways), separate buffers with canaries and in place with the output
// trailing the input; and the form each architecture selects.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

#include "spl/oracle.h"
#include "spl/spl_internal.h"
#include "support/variants.h"

namespace {

using namespace kafx::spl;
using kafx_test::Guarded;
using kafx_test::kOddLengths;
using kafx_test::random_values;

using Fir = void (*)(const int32_t*, int32_t*, int);

// 32-bit stage input: random full-range words, or the extremes in runs of
// two (every tap product and sum wraps).
std::vector<int32_t> fir_input(size_t n, unsigned seed, bool extreme) {
  std::vector<int32_t> v = random_values<int32_t>(n, seed);
  if (extreme) {
    for (size_t i = 0; i < n; ++i)
      v[i] = (i / 2) % 2 != 0 ? std::numeric_limits<int32_t>::max() : std::numeric_limits<int32_t>::min();
  }
  return v;
}

// The values of a guarded buffer without its canaries.
template <typename T>
std::vector<T> payload(const Guarded<T>& g) {
  return std::vector<T>(g.v.begin(), g.v.end() - Guarded<T>::kCanary);
}

// A fractional stage of R inputs and W outputs per block that reads `extra`
// words beyond its K blocks: on separate buffers it equals the published
// routine (nothing written past K W outputs); run in place with the output
// `back` words before the input (0: the same start), it gives the same
// outputs as on separate buffers.
template <typename PublishedK>
void expect_fir_matches(Fir form, void (*published)(const int32_t*, int32_t*, PublishedK), int R,
                        int W, int extra) {
  for (int k : {1, 2, 3, 5, 17, 37, 160}) {
    for (bool extreme : {false, true}) {
      const size_t n_in = static_cast<size_t>(R * k + extra);
      const std::vector<int32_t> in = fir_input(n_in, 90u + static_cast<unsigned>(k), extreme);
      Guarded<int32_t> got(static_cast<size_t>(W * k));
      std::vector<int32_t> want(static_cast<size_t>(W * k));
      form(in.data(), got.data(), k);
      published(in.data(), want.data(), static_cast<PublishedK>(k));
      EXPECT_EQ(payload(got), want) << "K " << k << " extreme " << extreme;
      EXPECT_TRUE(got.guards_intact()) << "K " << k;
      for (int back : {0, 1, W - 1, W, 2 * R}) {
        std::vector<int32_t> buf(static_cast<size_t>(back) + n_in);
        std::copy(in.begin(), in.end(), buf.begin() + back);
        form(buf.data() + back, buf.data(), k);
        EXPECT_TRUE(std::equal(want.begin(), want.end(), buf.begin()))
            << "in place, output " << back << " words back, K " << k << " extreme " << extreme;
      }
    }
  }
}

TEST(ArmForms, PairedFractionalStagesMatchPublished) {
  expect_fir_matches(fir_48_32_paired, WebRtcSpl_Resample48khzTo32khz, 3, 2, 6);
  expect_fir_matches(fir_32_22_paired, WebRtcSpl_32khzTo22khzIntToInt, 16, 11, 7);
  expect_fir_matches(fir_44_32_paired, WebRtcSpl_Resample44khzTo32khz, 11, 8, 7);
}

// The scalar 16-bit decimator against the published one: random states,
// odd lengths, random and saturating inputs, two calls in a row (the state
// carries over), and out equal to in.
TEST(ArmForms, ScalarDecimatorMatchesPublished) {
  for (int len : kOddLengths) {
    if (len > std::numeric_limits<int16_t>::max()) continue;
    for (int kind = 0; kind < 3; ++kind) {
      std::vector<int16_t> in = random_values<int16_t>(static_cast<size_t>(len), 300u + static_cast<unsigned>(len));
      for (int i = 0; i < len && kind > 0; ++i) {
        // Kind 1: a square wave at the extremes; kind 2: alternating
        // extremes (at the Nyquist rate: the saturating peaks of the sum).
        const bool high = kind == 1 ? (i / 3) % 2 != 0 : i % 2 != 0;
        in[static_cast<size_t>(i)] = high ? std::numeric_limits<int16_t>::max() : std::numeric_limits<int16_t>::min();
      }
      const std::vector<int32_t> st0 = random_values<int32_t>(8, 5u + static_cast<unsigned>(kind), -(1 << 24), 1 << 24);
      std::vector<int32_t> st_got = st0, st_want = st0;
      Guarded<int16_t> got(static_cast<size_t>(len / 2));
      std::vector<int16_t> want(static_cast<size_t>(len / 2));
      for (int call = 0; call < 2; ++call) {
        downsample_by2_scalar(in.data(), len, got.data(), st_got.data());
        WebRtcSpl_DownsampleBy2(in.data(), static_cast<size_t>(len), want.data(), st_want.data());
        EXPECT_EQ(payload(got), want) << "len " << len << " kind " << kind << " call " << call;
        EXPECT_EQ(st_got, st_want) << "len " << len << " kind " << kind << " call " << call;
        EXPECT_TRUE(got.guards_intact()) << "len " << len;
      }
      // In place: the output overwrites the input it has consumed.
      std::vector<int16_t> buf = in;
      std::vector<int32_t> st_in_place = st0;
      std::vector<int32_t> st_ref = st0;
      downsample_by2_scalar(buf.data(), len, buf.data(), st_in_place.data());
      WebRtcSpl_DownsampleBy2(in.data(), static_cast<size_t>(len), want.data(), st_ref.data());
      EXPECT_TRUE(std::equal(want.begin(), want.end(), buf.begin())) << "in place, len " << len << " kind " << kind;
      EXPECT_EQ(st_in_place, st_ref) << "in place, len " << len;
    }
  }
}

// The form each build runs: on 32-bit ARM the 3 -> 2 stage with its two
// sums side by side and the others one output at a time; on AArch64 the
// group kernels for 3 -> 2, the sums side by side for 16 -> 11 and 11 -> 8
// and one output at a time for 4 -> 3; elsewhere the group kernels.
TEST(ArmForms, FractionalFormSelection) {
#if defined(__arm__)
  EXPECT_EQ(kFir48To32Form, FirForm::kPaired);
  EXPECT_EQ(kFir32To22Form, FirForm::kSerial);
  EXPECT_EQ(kFir44To32Form, FirForm::kSerial);
  EXPECT_EQ(kFirForm, FirForm::kSerial);
#elif defined(__aarch64__)
  EXPECT_EQ(kFir48To32Form, FirForm::kGroup);
  EXPECT_EQ(kFir32To22Form, FirForm::kPaired);
  EXPECT_EQ(kFir44To32Form, FirForm::kPaired);
  EXPECT_EQ(kFirForm, FirForm::kSerial);
#else
  EXPECT_EQ(kFir48To32Form, FirForm::kGroup);
  EXPECT_EQ(kFir32To22Form, FirForm::kGroup);
  EXPECT_EQ(kFir44To32Form, FirForm::kGroup);
  EXPECT_EQ(kFirForm, FirForm::kGroup);
#endif
}

}  // namespace
