// Smooth volume: init values, the three-step glide worked by hand (coarse
// step, finer step once close, snap), both directions, very slow settings,
// the product's saturation, and block splits that do not change the glide.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <vector>

#include "kafx_proc/smooth_volume.h"

namespace {

// Runs n samples of a constant input 8192 (so each output is the gain in
// force at that sample) and returns the outputs, in blocks of `block`.
std::vector<int> gains(smooth_volume_t* v, int n, int block = 1 << 20) {
  std::vector<int> l(n, 8192), r(n, 8192);
  for (int pos = 0; pos < n; pos += block) {
    const int m = n - pos < block ? n - pos : block;
    smooth_volume_process(v, l.data() + pos, r.data() + pos, l.data() + pos, r.data() + pos, m);
  }
  EXPECT_EQ(l, r);
  return l;
}

// A smooth volume with setting n gliding from `from` to `to`.
smooth_volume_t glide(int n, int from, int to) {
  smooth_volume_t v{};
  smooth_volume_init(&v);
  smooth_volume_set_smooth_buffer_num(&v, n);
  smooth_volume_set_volume(&v, to);
  smooth_volume_set_soft_volume(&v, from);
  return v;
}

TEST(SmoothVolume, InitAccessorsAndReset) {
  smooth_volume_t v{};
  smooth_volume_init(&v);
  EXPECT_TRUE(v.current_gain == 0 && v.smooth_buffer_num == 2 && v.target_gain == 8192 && v.shift == 7);
  smooth_volume_set_smooth_buffer_num(&v, 0);
  smooth_volume_set_volume(&v, 3000);
  int n = -1, g = -1;
  smooth_volume_get_smooth_buffer_num(&v, &n);
  smooth_volume_get_volume(&v, &g);
  EXPECT_TRUE(n == 0 && v.shift == 5 && g == 3000);
  smooth_volume_reset(&v);  // restarts from the far end: 8192 - target
  EXPECT_EQ(v.current_gain, 5192);
  smooth_volume_set_volume(&v, 0);
  smooth_volume_reset(&v);
  EXPECT_EQ(v.current_gain, 8192);
}

TEST(SmoothVolume, HandWorkedGlides) {
  // {smooth_buffer_num, start gain, target, expected gains of the first samples}
  struct Case {
    int n, start, target;
    std::vector<int> expect;
  };
  const Case cases[] = {
      // s = 7 from silence: +8192>>7 = 64, +8128>>7 = 63, +8065>>7 = 63, +8002>>7 = 62.
      {2, 0, 8192, {0, 64, 127, 190, 252}},
      // Fade out: -64, -8128>>7 = -64 (floor), -8064>>7 = -63.
      {2, 8192, 0, {8192, 8128, 8064, 8001}},
      // Within 2^7: the coarse step is 0, the finer one 92>>5 = 2, no snap yet.
      {2, 8100, 8192, {8100, 8102, 8104, 8106}},
      // Within 2^5 after both steps: snap onto the target.
      {2, 8170, 8192, {8170, 8192, 8192}},
      // Falling near zero: -20>>7 = -1, -19>>5 = -1, |-18| < 32: snap to 0.
      {2, 20, 0, {20, 0, 0}},
      // s = 5: +8192>>5 = 256, then +7936>>5 = 248.
      {0, 0, 8192, {0, 256, 504}},
      // s = 35: shifts of 32 or more leave the sign only and there is no
      // finer step or snap, so a rise never starts and a fall creeps by 1.
      {30, 0, 8192, {0, 0, 0, 0}},
      {30, 8192, 0, {8192, 8191, 8190, 8189}},
  };
  for (const Case& c : cases) {
    smooth_volume_t v = glide(c.n, c.start, c.target);
    EXPECT_EQ(gains(&v, static_cast<int>(c.expect.size())), c.expect) << c.n << " " << c.start << " " << c.target;
  }
}

TEST(SmoothVolume, GlidesEndExactlyOnTheTargetInAnyBlockSplit) {
  for (int n : {0, 1, 2, 4}) {
    for (auto [from, to] : {std::pair{0, 8192}, {8192, 0}, {8192, 2000}, {100, 16384}, {-3000, 5000}}) {
      smooth_volume_t a = glide(n, from, to), b = a;
      const std::vector<int> whole = gains(&a, 6000);
      EXPECT_EQ(gains(&b, 6000, 37), whole);
      EXPECT_EQ(a.current_gain, to);
      EXPECT_EQ(whole.back(), to);
      // Monotone towards the target, never past it.
      for (size_t i = 1; i < whole.size(); ++i) {
        ASSERT_TRUE(to >= from ? whole[i] >= whole[i - 1] && whole[i] <= to : whole[i] <= whole[i - 1] && whole[i] >= to)
            << n << " " << from << " " << to << " at " << i;
      }
    }
  }
}

TEST(SmoothVolume, ProductRuleAndIdleBlocks) {
  smooth_volume_t v = glide(2, 0, 0);
  // {gain, input, output}: 64-bit product, floor shift by 13, saturated; a
  // -1 stays -1 (this stage has no flush).
  const int rows[][3] = {{8192, 8388607, 8388607}, {8192, INT_MIN, INT_MIN}, {16384, INT_MAX, INT_MAX},
                         {16384, INT_MIN, INT_MIN}, {4096, -1, -1}, {4096, 3, 1}, {4096, -3, -2}, {0, 12345, 0}};
  for (auto& r : rows) {
    smooth_volume_set_volume(&v, r[0]);
    smooth_volume_set_soft_volume(&v, r[0]);
    int l = r[1], ol = 0, orr = 0;
    smooth_volume_process(&v, &l, &l, &ol, &orr, 1);
    EXPECT_TRUE(ol == r[2] && orr == r[2] && l == r[1]) << r[0] << " " << r[1];  // inputs untouched
  }
  // count < 1 changes neither samples nor the gain.
  v = glide(2, 0, 8192);
  int z = 55;
  smooth_volume_process(&v, &z, &z, &z, &z, 0);
  smooth_volume_process(&v, &z, &z, &z, &z, -2);
  EXPECT_TRUE(z == 55 && v.current_gain == 0);
}

}  // namespace
