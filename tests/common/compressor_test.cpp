// Voice compressor: the per-rate block lengths, the volume path, a limiting
// example worked by hand, and the compressor against two stand-alone
// controllers tuned as documented (channels independent, the initial and
// every per-rate block length, reset included).
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "kafx_proc/compressor.h"

namespace {

struct Comp {
  compressor_t c{};
  Comp(int volume, int delay_frames) { compressor_init(&c, volume, delay_frames); }
  ~Comp() { compressor_end(&c); }
};

// A controller set up by the compressor's documented tuning, step by step
// through the controller's own interface.
struct Solo {
  dynamic_range_control_t d{};
  Solo(int volume, int delay_frames) {
    dynamic_range_control_init(&d, delay_frames, 960);
    dynamic_range_control_set_threshold(&d, 30720);
    dynamic_range_control_set_denoise_threshold(&d, 1);
    dynamic_range_control_set_volume(&d, volume);
    dynamic_range_control_set_attact_order(&d, 0);
    dynamic_range_control_set_release_order(&d, 7);
  }
  ~Solo() { dynamic_range_control_end(&d); }
};

TEST(Compressor, RatesVolumeStatusAndEnd) {
  Comp k(6000, 2);
  EXPECT_TRUE(k.c.status == 0 && k.c.volume == 6000 && k.c.delay_frames == 2);
  // {rate class, block length}: 5 ms blocks, 960 until a rate is set (the
  // first row); unknown classes act as 48 kHz. The look-ahead is two blocks.
  // (The release order is checked here: after an attack of order 0 it has no
  // audible effect, the envelope being set to the threshold when it limits.)
  const int rates[][2] = {{-9, 960}, {0, 220}, {1, 240}, {2, 480}, {3, 960}, {9, 240}, {-1, 240}};
  for (auto& r : rates) {
    if (r[0] != -9) compressor_set_sample_rate(&k.c, static_cast<SampleRateType>(r[0]));
    for (dynamic_range_control_t* d : {k.c.drc_left, k.c.drc_right})
      EXPECT_TRUE(d->frame_len == r[1] && d->delay->delay == 2 * r[1] && d->release_order == 7) << r[0];
  }
  compressor_set_volume(&k.c, 5000);
  int v = 0, s = 9;
  compressor_get_volume(&k.c, &v);
  EXPECT_EQ(v, 5000);
  EXPECT_TRUE(k.c.drc_left->volume == 5000 && k.c.drc_right->volume == 5000);
  EXPECT_TRUE(k.c.drc_left->gain == 40000 && k.c.drc_right->gain == 40000);  // volume x 8 in Q17
  compressor_setstatus(&k.c, 1);
  compressor_getstatus(&k.c, &s);
  EXPECT_EQ(s, 1);
  compressor_end(&k.c);
  EXPECT_TRUE(k.c.drc_left == nullptr && k.c.drc_right == nullptr);
  compressor_init(&k.c, 8192, 0);  // for the destructor
}

TEST(Compressor, FullScaleSettlesAtTheLimitedGain) {
  // Peak 32767 over threshold 30720: g = ((30720 * 8192) / 32767) * 7936 >> 13
  // = 7680 * 7936 >> 13 = 7440 (Q13), 119040 in Q17; no look-ahead in the
  // karaoke tuning, so the settled output is x * 119040 >> 17 at once.
  Comp k(8192, 0);
  compressor_set_sample_rate(&k.c, SAMPLE_RATE_48000);
  std::vector<int> l(240), r(240);
  for (int block = 0; block < 30; ++block) {
    std::fill(l.begin(), l.end(), 8388607);
    std::fill(r.begin(), r.end(), -8388608);
    compressor_process(&k.c, l.data(), r.data(), l.data(), r.data(), 240);
  }
  EXPECT_EQ(k.c.drc_left->gain, 119040);
  for (int i = 0; i < 240; ++i) ASSERT_TRUE(l[i] == 7618559 && r[i] == -7618560) << i << " " << l[i] << " " << r[i];
}

TEST(Compressor, EqualsTwoIndependentControllers) {
  // Rate -1: none set, the initial 960-sample blocks.
  std::mt19937 rng(45);
  std::uniform_int_distribution<int> loud(-8388608, 8388607), soft(-20000, 20000);
  for (int rate : {-1, 0, 1, 2}) {
    Comp k(9000, 2);
    Solo sl(9000, 2), sr(9000, 2);
    const int n = rate < 0 ? 960 : rate == 0 ? 220 : rate == 1 ? 240 : 480;
    if (rate >= 0) {
      compressor_set_sample_rate(&k.c, static_cast<SampleRateType>(rate));
      dynamic_range_control_reinit(&sl.d, n);
      dynamic_range_control_reinit(&sr.d, n);
    }
    for (int block = 0; block < 220; ++block) {
      if (block == 25) {  // reset mid-stream
        compressor_reset(&k.c);
        dynamic_range_control_reset(&sl.d);
        dynamic_range_control_reset(&sr.d);
      }
      std::vector<int> l(n), r(n), ol(n), orr(n);
      for (int i = 0; i < n; ++i) {
        // A burst on the left only: the right channel must not duck with it.
        // Near-silence after the reset: once the level follower has fallen
        // from its start (about 150 blocks), the denoise threshold decides.
        const bool hush = block >= 25;
        l[i] = hush ? soft(rng) / 400 : (block % 7 < 3) ? loud(rng) : soft(rng);
        r[i] = hush ? soft(rng) / 400 : soft(rng) + (block == 10 ? 3000000 : 0);
      }
      std::vector<int> el = l, er = r;
      dynamic_range_control_process(&sl.d, el.data(), el.data(), n);
      dynamic_range_control_process(&sr.d, er.data(), er.data(), n);
      compressor_process(&k.c, l.data(), r.data(), ol.data(), orr.data(), n);
      ASSERT_TRUE(ol == el && orr == er) << rate << " block " << block;
    }
  }
}

}  // namespace
