// The builds per instruction set of the shared biquad kernel give the
// baseline's integers exactly, and the variant chosen for a kernel is the
// most capable one this processor runs.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "common/biquad.h"
#include "common/dispatch.h"
#include "support/variants.h"

namespace {

using kafx_test::random_values;

TEST(Dispatch, BiquadFeedForwardVariantsMatchBaseline) {
  const std::vector<int32_t> coef = random_values<int32_t>(5, 1);
  const std::vector<int32_t> hist = random_values<int32_t>(4, 2);
  kafx::Biquad32Kernel k;
  k.b0 = coef[0], k.b1 = coef[1], k.b2 = coef[2], k.a1 = coef[3], k.a2 = coef[4];
  k.x1 = hist[0], k.x2 = hist[1], k.y1 = hist[2], k.y2 = hist[3];
  int compared = 0;
  compared += kafx_test::for_each_variant(kafx::biquad_feed_forward_chunk_variants, [&](auto fn, auto base) {
    for (int n : {1, 17, 37, 63, kafx::kBiquadChunk}) {
      // Full-range inputs: the saturating entry shift and the wrapping sums
      // are both exercised.
      const std::vector<int32_t> in = random_values<int32_t>(static_cast<size_t>(n), 10u + n);
      kafx::BiquadChunk a, b;
      std::memset(&a, 0x5A, sizeof a);
      std::memset(&b, 0x5A, sizeof b);
      base(k, in.data(), n, &a);
      fn(k, in.data(), n, &b);
      EXPECT_EQ(0, std::memcmp(&a, &b, sizeof a)) << "n " << n;  // unused tail untouched in both
    }
  });
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0);
}

TEST(Dispatch, ChoosesTheMostCapableAvailableVariant) {
  using F = int (*)();
  static F base = [] { return 0; };
  static F wide = [] { return 1; };
  const kafx::KernelVariants<F> only_base = {"only_base", {base, nullptr}};
  const kafx::KernelVariants<F> both = {"both", {base, wide}};
  EXPECT_EQ(kafx::choose(only_base)(), 0);
  EXPECT_EQ(kafx::choose(both)(), kafx::isa_available(kafx::kIsaAvx2) ? 1 : 0);
  EXPECT_TRUE(kafx::isa_available(kafx::kIsaBaseline));
}

// A NEON build is taken exactly where the processor has NEON: always on
// AArch64, never on x86-64; on 32-bit ARM as the kernel reports it.
TEST(Dispatch, NeonBuildRunsWhereNeonIs) {
  using F = int (*)();
  static F base = [] { return 0; };
  static F neon = [] { return 2; };
  const kafx::KernelVariants<F> v = {"neon", {base, nullptr, neon}};
  EXPECT_EQ(kafx::choose(v)(), kafx::isa_available(kafx::kIsaNeon) ? 2 : 0);
#if defined(__aarch64__)
  EXPECT_EQ(kafx::isa_available(kafx::kIsaNeon), KAFX_NEON_VARIANTS == 1);
#elif defined(__x86_64__)
  EXPECT_FALSE(kafx::isa_available(kafx::kIsaNeon));
  EXPECT_EQ(KAFX_NEON_VARIANTS, 0);
#endif
  EXPECT_STREQ(kafx::isa_name(kafx::kIsaNeon), "neon");
}

}  // namespace
