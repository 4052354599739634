// The builds of the karaoke chain's 16-bit frame conversions against the
// baseline build on odd lengths (and the chain's 240 and 256), over the
// whole int16 range going in and the whole int32 range coming out (values
// that saturate both ways), with canaries past every output.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "ktv/ktv_chain_kernels.h"
#include "support/variants.h"

namespace {

std::vector<int> lengths() {
  std::vector<int> n(std::begin(kafx_test::kOddLengths), std::end(kafx_test::kOddLengths));
  n.push_back(240);
  n.push_back(256);
  return n;
}

TEST(KtvChainKernels, FrameIn16VariantsMatchBaseline) {
  const int compared = kafx_test::for_each_variant(kafx::ktv_frame_in16_variants, [](auto fn, auto base) {
    for (int m : lengths()) {
      const auto n = static_cast<size_t>(m);
      std::vector<int16_t> x = kafx_test::random_values<int16_t>(n, 900 + m);
      x[0] = INT16_MIN;
      x[n - 1] = INT16_MAX;
      kafx_test::Guarded<int32_t> want(n), got(n);
      base(x.data(), want.data(), m);
      fn(x.data(), got.data(), m);
      SCOPED_TRACE(testing::Message() << "length " << m);
      EXPECT_EQ(got.v, want.v);
      EXPECT_TRUE(got.guards_intact());
    }
  });
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0);
}

TEST(KtvChainKernels, FrameOut16VariantsMatchBaseline) {
  const int compared = kafx_test::for_each_variant(kafx::ktv_frame_out16_variants, [](auto fn, auto base) {
    for (int m : lengths()) {
      for (int range = 0; range < 2; ++range) {
        const auto n = static_cast<size_t>(m);
        // Working samples (within 2^23 and a little past it), then any int32.
        const int64_t lim = range == 0 ? (int64_t{1} << 24) : INT32_MAX;
        std::vector<int32_t> l = kafx_test::random_values<int32_t>(n, 950 + m + range, -lim - 1, lim);
        std::vector<int32_t> r = kafx_test::random_values<int32_t>(n, 970 + m + range, -lim - 1, lim);
        l[0] = INT32_MIN;
        r[n - 1] = INT32_MAX;
        kafx_test::Guarded<int16_t> wl(n), wr(n), gl(n), gr(n);
        base(l.data(), r.data(), wl.data(), wr.data(), m);
        fn(l.data(), r.data(), gl.data(), gr.data(), m);
        SCOPED_TRACE(testing::Message() << "length " << m << " range " << range);
        EXPECT_EQ(gl.v, wl.v);
        EXPECT_EQ(gr.v, wr.v);
        EXPECT_TRUE(gl.guards_intact() && gr.guards_intact());
      }
    }
  });
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0);
}

// The baseline itself: 16 bits up by 8, and back with saturation, on the
// edges of each range.
TEST(KtvChainKernels, BaselineConversions) {
  const int16_t in[] = {INT16_MIN, -1, 0, 1, INT16_MAX};
  int32_t work[5];
  kafx::ktv_frame_in16_variants.fn[kafx::kIsaBaseline](in, work, 5);
  const int32_t want_work[] = {-8388608, -256, 0, 256, 8388352};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(work[i], want_work[i]) << i;
  const int32_t l[] = {INT32_MIN, -8388864, -8388608, -1, 255, 8388607, 8388608, INT32_MAX};
  int16_t ol[8], orr[8];
  kafx::ktv_frame_out16_variants.fn[kafx::kIsaBaseline](l, l, ol, orr, 8);
  const int16_t want_out[] = {INT16_MIN, INT16_MIN, INT16_MIN, -1, 0, INT16_MAX, INT16_MAX, INT16_MAX};
  for (int i = 0; i < 8; ++i) EXPECT_TRUE(ol[i] == want_out[i] && orr[i] == want_out[i]) << i;
}

}  // namespace
