// Lane kernels of the noise suppressor against the scalar rules they
// replace, written here branch by branch from the quantile estimator's
// description: every build this processor runs (common/dispatch.h), odd
// lengths, full-range and threshold values, with canaries past the end.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "ns/nsx_internal.h"
#include "support/variants.h"

namespace {

using kafx::nsx::QuantileStep;
using kafx::nsx::QuantileUpdate;

// The quantile rule of one bin as stated: step from the density's binary
// magnitude, rise by (step + 2) / 4 or fall by ((step + 1) / 2) * 3 / 2 held
// at the floor, density renewed when the log magnitude is within 3 (Q8) of
// the new quantile; 16-bit wrap-around wherever the 16-bit state is written.
void model(int16_t& quant, int16_t& density, int16_t lmagn, const QuantileStep& k) {
  int32_t delta = k.small_delta;
  if (density > 512) {
    int msb = 0;
    while ((density >> (msb + 1)) != 0) ++msb;
    delta = 2621440 >> msb;  // 40 in Q16, divided by 2^msb
  }
  int16_t step = static_cast<int16_t>((delta * k.count_div) >> 14);
  if (lmagn > quant) {
    step = static_cast<int16_t>(step + 2);
    quant = static_cast<int16_t>(quant + step / 4);
  } else {
    step = static_cast<int16_t>(step + 1);
    quant = static_cast<int16_t>(quant - static_cast<int16_t>((step / 2) * 3 / 2));
    if (quant < k.logval) quant = static_cast<int16_t>(k.logval);
  }
  const int16_t diff = static_cast<int16_t>(lmagn - quant);
  const int16_t dist = static_cast<int16_t>(diff < 0 ? -diff : diff);
  if (dist < 3) {
    const int16_t a = static_cast<int16_t>((density * k.count_prod + 16384) >> 15);
    density = static_cast<int16_t>(a + k.density_rise);
  }
}

constexpr int16_t kEdges[] = {-32768, -32767, -1,   0,    1,    2,    511,   512,   513,  1023,
                              1024,   1025,   2047, 2048, 4095, 4096, 8191,  8192,  16383, 16384,
                              16385,  32766,  32767, 3,    -3,   -2,   10240, -10240};

struct Case {
  std::vector<int16_t> quant, density, lmagn;
};

// Random full-range bins, bins on the thresholds, and quantiles one step
// from wrapping around 16 bits.
Case make_case(int len, unsigned seed) {
  std::mt19937 rng(seed);
  Case c;
  for (int i = 0; i < len; ++i) {
    const int pick = static_cast<int>(rng() % 4);
    auto any = [&] { return static_cast<int16_t>(rng()); };
    auto edge = [&] { return kEdges[rng() % (sizeof kEdges / sizeof kEdges[0])]; };
    const int16_t q = pick == 0 ? any() : edge();
    c.quant.push_back(q);
    c.density.push_back(pick == 1 ? any() : edge());
    // Log magnitudes near the quantile exercise the density renewal.
    const int16_t near = static_cast<int16_t>(q + static_cast<int>(rng() % 9) - 4);
    c.lmagn.push_back(pick == 2 ? any() : pick == 3 ? near : edge());
  }
  return c;
}

std::vector<QuantileStep> steps() {
  std::vector<QuantileStep> out;
  for (int counter : {0, 1, 2, 37, 199, 200}) {
    const int32_t div = counter == 0 ? 32767 : (32768 + counter / 2) / (counter + 1);
    const int32_t prod = static_cast<int16_t>(counter * div);
    const int32_t rise = (21845 * div + 16384) >> 15;
    for (int32_t logval : {-32768, -1000, 0, 2048})
      for (int32_t small : {1024, 5120}) out.push_back({logval, small, div, prod, rise});
  }
  return out;
}

TEST(NsxKernels, QuantileUpdateFollowsTheRule) {
  int checked = 0;
  for (const QuantileStep& k : steps()) {
    for (int len : {1, 7, 8, 9, 16, 65, 129}) {
      const Case c = make_case(len, static_cast<unsigned>(len * 7919 + k.count_div + k.logval));
      std::vector<int16_t> mq = c.quant, md = c.density;
      for (int i = 0; i < len; ++i) model(mq[i], md[i], c.lmagn[i], k);
      auto run = [&](QuantileUpdate fn) {
        kafx_test::Guarded<int16_t> q(len), d(len);
        std::copy(c.quant.begin(), c.quant.end(), q.v.begin());
        std::copy(c.density.begin(), c.density.end(), d.v.begin());
        fn(q.data(), d.data(), c.lmagn.data(), &k, len);
        EXPECT_EQ(std::vector<int16_t>(q.v.begin(), q.v.begin() + len), mq) << "len " << len;
        EXPECT_EQ(std::vector<int16_t>(d.v.begin(), d.v.begin() + len), md) << "len " << len;
        EXPECT_TRUE(q.guards_intact() && d.guards_intact()) << "len " << len;
      };
      run(kafx::nsx::quantile_update_variants.fn[kafx::kIsaBaseline]);
      checked += kafx_test::for_each_variant(kafx::nsx::quantile_update_variants,
                                             [&](QuantileUpdate fn, QuantileUpdate) { run(fn); });
      run(kafx::nsx::quantile_update);
    }
  }
  if (checked == 0) std::printf("only the baseline build runs here\n");
}

}  // namespace

namespace {

// Full-range random values, then the extremes and one-off-the-extremes
// repeated, so that the 16-bit wrap of the windowed value and both
// saturation steps of the synthesis are reached.
std::vector<int16_t> block_values(int len, unsigned seed) {
  std::vector<int16_t> v = kafx_test::random_values<int16_t>(static_cast<size_t>(len), seed);
  for (int i = 0; i < len; i += 5) v[i] = (i / 5) % 2 ? INT16_MIN : INT16_MAX;
  for (int i = 3; i < len; i += 11) v[i] = static_cast<int16_t>(i % 2 ? -32767 : 32766);
  for (int i = 7; i < len; i += 13) v[i] = 16384;
  return v;
}

// The synthesis loop: every build against the baseline build at the two
// analysis lengths and an odd one, with canaries.
TEST(NsxKernels, SynthesisAgreesAcrossBuilds) {
  using namespace kafx::nsx;
  int compared = 0;
  // Products on the rounding boundaries: window 1 with real +-8192 (mod
  // 16384) and window 16384 (w = real) with real +-4096 (mod 8192).
  constexpr int16_t kBoundaries[] = {8192, -8192, 24576, -24576, 4096, -4096, 12288, -12288, 4095, -4097};
  for (int len : {256, 128, 37, 160}) {
    std::vector<int16_t> window = block_values(len, 1u + len), real = block_values(len, 2u + len);
    if (len == 160) {
      for (int i = 0; i < len; ++i) {
        window[i] = (i / 10) % 2 ? 16384 : 1;
        real[i] = kBoundaries[i % 10];
      }
    }
    const std::vector<int16_t> synth0 = block_values(len, 3u + len);
    compared += kafx_test::for_each_variant(synthesis_block_variants, [&](SynthesisBlock fn, SynthesisBlock base) {
      for (int gain : {8192, 0, 1, 3, 16384, 32767, -32768, -1, -3, 5000}) {
        kafx_test::Guarded<int16_t> a(len), b(len);
        std::copy(synth0.begin(), synth0.end(), a.v.begin());
        std::copy(synth0.begin(), synth0.end(), b.v.begin());
        base(window.data(), real.data(), a.data(), gain, len);
        fn(window.data(), real.data(), b.data(), gain, len);
        EXPECT_EQ(a.v, b.v) << "len " << len << " gain " << gain;
      }
    });
  }
  if (compared == 0) std::printf("only the baseline build runs here\n");
}

}  // namespace
