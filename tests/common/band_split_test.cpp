// Two-way crossover: a fourth-order low/high pair (Butterworth sections
// squared) checked bit-exactly against two separate cascades of single
// sections, through in-place calls, a reset and a re-init with the sets
// swapped; then identity with unity sections.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "kafx_proc/band_split.h"

constexpr int kOne = 268435456;  // 1.0 in Q28
// Second-order Butterworth low and high pass at 1 kHz for 48 kHz, Q28, feedback terms negated.
const std::vector<int> lp = {1051227, 2102454, 1051227, 487301911, -223071364};
const std::vector<int> hp = {244702183, -489404366, 244702183, 487301911, -223071364};

TEST(BandSplit, MatchesTwoCascadesOfSections) {
  spectral_band_split s;
  spectral_band_split_init(&s, lp.data(), hp.data());
  IIR_t ref[4];  // output A: ref[0] then ref[1]; output B: ref[2] then ref[3]
  for (int k = 0; k < 4; ++k) IIR_init(&ref[k], (k < 2 ? lp : hp).data());
  std::mt19937 rng(5);
  std::uniform_int_distribution<int> dist(-8388608, 8388607);
  for (int n = 0; n < 12000; ++n) {
    if (n == 7000) {  // mid-burst: history cleared
      spectral_band_split_reset(&s);
      for (auto& f : ref) IIR_reset(&f);
    }
    if (n == 10000) {  // mid-burst: sets swapped, history cleared
      spectral_band_split_reinit(&s, hp.data(), lp.data());
      for (int k = 0; k < 4; ++k) IIR_reinit(&ref[k], (k < 2 ? hp : lp).data());
    }
    const int x = n % 3000 < 2000 ? dist(rng) : 0;
    int ra = x, rb = x, a = x, b = 0;
    for (int k = 0; k < 2; ++k) IIR_process_32(&ref[k], &ra, &ra), IIR_process_32(&ref[k + 2], &rb, &rb);
    spectral_band_split_process(&s, &a, &a, &b);  // the input aliases the first output
    ASSERT_TRUE(a == ra && b == rb) << n;
  }
  const std::vector<int> unity = {kOne, 0, 0, 0, 0};
  spectral_band_split_reinit(&s, unity.data(), unity.data());
  for (int x : {0, -1, 12345, 8388607, -8388608}) {  // unity sections pass both outputs
    int a = 0, b = 0, in = x;
    spectral_band_split_process(&s, &in, &a, &b);
    EXPECT_TRUE(a == x && b == x) << x;
  }
  for (auto& f : ref) IIR_end(&f);
  spectral_band_split_end(&s);
  EXPECT_TRUE(s.first_a == nullptr && s.second_a == nullptr && s.first_b == nullptr && s.second_b == nullptr);
}
