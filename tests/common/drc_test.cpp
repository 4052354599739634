// Look-ahead limiter: the gain smoother's step tables at their boundaries,
// the settled states (unity, limiting to 3968/8192, expander floor), the
// look-ahead start, delay and timing, the empty block, and the two-channel
// form against two single controllers.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "common/drc_block.h"
#include "kafx_proc/drc.h"

namespace {

constexpr int kFull = 8388607;

// Runs `blocks` blocks of a constant input; returns the last block's output.
std::vector<int> run_constant(dynamic_range_control_t* d, int value, int blocks) {
  std::vector<int> buf;
  for (int b = 0; b < blocks; ++b) {
    buf.assign(d->frame_len, value);
    dynamic_range_control_process(d, buf.data(), buf.data(), d->frame_len);
  }
  return buf;
}

}  // namespace

TEST(Drc, GainSmootherSteps) {
  // No look-ahead, one silent sample per block: the target is volume * 16 when the gain (cur)
  // is at or above it, else half-way up from cur >> 4. Rows: {volume, cur, gain one sample on}.
  const int rows[][3] = {
      // falling to 1024: d > -8 jumps, d >= -32 steps (-d) >> 3, then (-d) >> k with k = 5
      // (d = -33, -1024), 6 (-1025, -2048), 8 (-2049, -4096), 9 (-4097, -8192), 10 (-8193)
      {64, 1031, 1024}, {64, 1032, 1031}, {64, 1056, 1052}, {64, 1057, 1056}, {64, 2048, 2016}, {64, 2049, 2033},
      {64, 3072, 3040}, {64, 3073, 3065}, {64, 5120, 5104}, {64, 5121, 5113}, {64, 9216, 9200}, {64, 9217, 9209},
      {8000, 128040, 128000},              // 1.5 * cur >> 11 = 93 overshoots: held at the target
      {66, 1033, 1040}, {66, 1032, 1033},  // rising by 7 jumps, by 8 steps d >> 3
      // rising from 0 to (volume >> 1) * 16: d = 64 steps d >> 3, then d >> k with k = 6
      // (d = 80, 1024), 7 (1040, 2048), 8 (2064, 4096), 9 (4112, 8192), 10 (8208, 16384), 11 (16400)
      {8, 0, 8}, {10, 0, 1}, {128, 0, 16}, {130, 0, 8}, {256, 0, 16}, {258, 0, 8}, {512, 0, 16},
      {514, 0, 8}, {1024, 0, 16}, {1026, 0, 8}, {2048, 0, 16}, {2050, 0, 8},
      {8192, 81920, 81940},     // target 106496: cur >> 12 = 20 beats d >> 11 = 12
      {25610, 409600, 409680},  // cur >> 12 = 100 overshoots d = 80: held at the target
  };
  dynamic_range_control_t d;
  dynamic_range_control_init(&d, 0, 1);
  int x = 0;
  for (auto [volume, cur, next] : rows) {
    d.volume = volume;
    d.gain = cur;
    dynamic_range_control_process(&d, &x, &x, 1);
    EXPECT_EQ(d.gain, next) << "volume " << volume << " gain " << cur;
  }
  // Envelope shifts of 32 or more act as 31: falling moves by -1, rising not at all.
  d.envelope = d.threshold = INT32_MAX, d.release_order = 40;
  dynamic_range_control_process(&d, &x, &x, 1);
  EXPECT_EQ(d.envelope, INT32_MAX - 1);
  d.envelope = 999;
  d.attact_order = 32, x = kFull;
  dynamic_range_control_process(&d, &x, &x, 1);
  EXPECT_EQ(d.envelope, 999);
  dynamic_range_control_end(&d);
}

TEST(Drc, SettledGains) {
  // Full scale under the default threshold passes once the expander gain has
  // risen from 1/16; threshold 16384 limits to ((16384 * 8192) / 32767) * 7936
  // >> 13 = 3968 (Q13); a mean level of 100000 under a denoise threshold of
  // 1000000 asks for 819/8192, held at the floor 1536/8192; 200000 gives 1638.
  struct Row { int lookahead, threshold, denoise_threshold, in, gain, denoise, envelope, out; } rows[] = {
      {0, 32767, 256, kFull, 131072, 131072, 32767, kFull},
      {1, 16384, 256, kFull, 3968 * 16, 131072, 16384, static_cast<int>(kFull * int64_t{3968} / 8192)},
      {0, 32767, 1000000, 100000, 131072, 1536 * 16, 390, 100000 * 1536 / 8192},
      {0, 32767, 1000000, 200000, 131072, 1638 * 16, 781, static_cast<int>(200000 * int64_t{1638 * 16} >> 17)},
      {0, 32767, 256, -1, 131072, 1536 * 16, 0, 0},  // -1 * 0.1875 floors to -1: flushed
  };
  for (const Row& r : rows) {
    dynamic_range_control_t d;
    dynamic_range_control_init(&d, r.lookahead, 64);
    dynamic_range_control_set_threshold(&d, r.threshold);
    dynamic_range_control_set_denoise_threshold(&d, r.denoise_threshold);
    EXPECT_EQ(run_constant(&d, r.in, 300), std::vector<int>(64, r.out)) << r.in;
    EXPECT_TRUE(d.gain == r.gain && d.denoise_gain == r.denoise && d.envelope == r.envelope) << r.in;
    dynamic_range_control_end(&d);
  }
}

TEST(Drc, LookAheadStartClimbAndDelay) {
  // Two blocks of look-ahead: the empty history pulls the gain down during
  // the silent start (d = -cur, so each step is (-d) >> 10, larger than
  // 1.5 * cur >> 11).
  dynamic_range_control_t d;
  dynamic_range_control_init(&d, 2, 64);
  std::vector<int> ramp(64), out(64), silence(64, 0), pulses(64, 0);
  for (int i = 0; i < 64; ++i) ramp[i] = kFull - 64 + i;
  dynamic_range_control_process(&d, ramp.data(), out.data(), 64);
  int32_t falling = 131072;
  for (int i = 0; i < 64; ++i) falling -= falling >> 10;
  EXPECT_EQ(d.gain, falling);
  EXPECT_EQ(out, silence);
  // Coming back, each block aims half-way from gain >> 4 to the volume; the
  // halving floors, so the climb stops one Q13 step short: 8191 * 16.
  for (int b = 0; b < 200; ++b) dynamic_range_control_process(&d, ramp.data(), out.data(), 64);
  EXPECT_TRUE(d.gain == 131056 && d.denoise_gain == 131072);
  for (int i = 0; i < 64; ++i) ASSERT_EQ(out[i], (int64_t{ramp[i]} * 131056) >> 17);
  // At exactly 1.0 (gain and history) the output is the input delayed by
  // lookahead * frame_len samples.
  d.gain = d.gain_history[0] = d.gain_history[1] = d.gain_history[2] = 131072;
  pulses[5] = kFull, pulses[40] = -kFull;
  for (int b = 0; b < 3; ++b) dynamic_range_control_process(&d, b ? silence.data() : pulses.data(), out.data(), 64);
  EXPECT_EQ(out, pulses);
  EXPECT_EQ(d.gain, 131072);
  dynamic_range_control_end(&d);
}

TEST(Drc, LookAheadLowersGainBeforeThePeakEmerges) {
  // One sample per block, two blocks of look-ahead, threshold 16384; quiet
  // input settles the gain at 131056. A lone full-scale sample sets a block
  // gain of 63488: the gain falls at once by max((-d) >> 10, 1.5 * cur >> 11)
  // = 95 per sample; once that gain has left the history the target is the
  // smallest half-way gain since, (8173 + 9) * 16, and the gain rises by cur >> 12.
  dynamic_range_control_t d;
  dynamic_range_control_init(&d, 2, 1);
  dynamic_range_control_set_threshold(&d, 16384);
  run_constant(&d, 100000, 8000);
  ASSERT_EQ(d.gain, 131056);
  std::array<int, 4> in = {kFull, 100000, 100000, 100000}, out, gains;
  for (int i = 0; i < 4; ++i) {
    dynamic_range_control_process(&d, &in[i], &out[i], 1);
    gains[i] = d.gain;
  }
  EXPECT_EQ(gains, (std::array{130961, 130866, 130771, 130802}));
  // The peak leaves the delay line two blocks later, already attenuated.
  EXPECT_EQ((std::array<int64_t, 3>{out[0], out[2], d.last_gains[1]}),
            (std::array<int64_t, 3>{100000 * int64_t{130961} >> 17, kFull * int64_t{130771} >> 17, 130912}));
  dynamic_range_control_end(&d);
}

TEST(Drc, EmptyBlockSettersAndReset) {
  dynamic_range_control_t d;
  dynamic_range_control_init(&d, 2, 16);
  dynamic_range_control_process(&d, nullptr, nullptr, 0);  // mean 0: the level falls by 32767 >> 5
  EXPECT_EQ((std::array{d.level, d.gain, d.gain_history[0], d.gain_history[1], d.last_gains[0], d.last_gains[1]}),
            (std::array{32767 - 1024, 131072, 0, 131072, 0, 131072}));
  dynamic_range_control_set_volume(&d, 8192);  // Q13 volume into the Q17 gain at half value
  EXPECT_EQ(d.gain, 65536);
  dynamic_range_control_set_volume(&d, 300000000);  // saturated
  EXPECT_EQ(d.gain, INT32_MAX);
  int v = 0;
  dynamic_range_control_set_denoise_threshold(&d, 0);
  dynamic_range_control_get_denoise_threshold(&d, &v);
  EXPECT_EQ(v, 2);
  dynamic_range_control_reset(&d);  // clears the history and level, keeps the gain
  EXPECT_EQ((std::array{d.gain, d.level, d.gain_history[1]}), (std::array{INT32_MAX, 32767, 0}));
  dynamic_range_control_reinit(&d, 4);  // delay resized to lookahead * frame_len
  EXPECT_EQ(d.delay->delay, 8);
  dynamic_range_control_end(&d);
  EXPECT_EQ(d.delay, nullptr);
}

TEST(Drc, PairEqualsTwoSingleControllers) {
  // The pair runs both gain glides in one pass (and settles where the slower
  // one does); each channel must come out as from its own controller. Left
  // and right differ in every setting and signal, and in look-ahead.
  struct Row { int lookahead[2], frame, threshold[2], volume[2], denoise_threshold; } rows[] = {
      {{1, 1}, 64, {12000, 3000}, {10240, 8192}, 256},
      {{0, 2}, 37, {32767, 16384}, {8192, 30000}, 100000},
      {{2, 0}, 240, {500, 24000}, {-9000, 9000}, 2},
  };
  for (const Row& r : rows) {
    dynamic_range_control_t pa, pb, sa, sb;
    for (int c = 0; c < 2; ++c)
      for (dynamic_range_control_t* d : {c ? &pb : &pa, c ? &sb : &sa}) {
        dynamic_range_control_init(d, r.lookahead[c], r.frame);
        dynamic_range_control_set_threshold(d, r.threshold[c]);
        dynamic_range_control_set_volume(d, r.volume[c]);
        dynamic_range_control_set_denoise_threshold(d, r.denoise_threshold);
        dynamic_range_control_set_release_order(d, 3 + c);
      }
    uint32_t seed = 77;
    std::vector<int> l(r.frame), rr(r.frame), pl(r.frame), sl(r.frame), sr(r.frame);
    for (int b = 0; b < 60; ++b) {
      for (int i = 0; i < r.frame; ++i) {
        seed = seed * 1664525u + 1013904223u;
        const int loud = (b / 7) % 3;  // quiet, programme and full-scale stretches
        l[i] = static_cast<int>(seed) >> (loud == 0 ? 20 : (loud == 1 ? 9 : 8));
        rr[i] = (b % 5 == 0) ? kFull : -l[i] / 3;
      }
      sr = rr;
      const int n = b % 4 == 3 ? r.frame / 2 : r.frame;  // blocks shorter than the frame too
      dynamic_range_control_process(&sa, l.data(), sl.data(), n);
      dynamic_range_control_process(&sb, sr.data(), sr.data(), n);
      kafx::dynamic_range_control_process_pair(&pa, l.data(), pl.data(), &pb, rr.data(), rr.data(), n);
      ASSERT_TRUE(std::equal(sl.begin(), sl.begin() + n, pl.begin())) << "left, block " << b;
      ASSERT_TRUE(std::equal(sr.begin(), sr.begin() + n, rr.begin())) << "right, block " << b;
      ASSERT_EQ((std::array{pa.gain, pa.denoise_gain, pb.gain, pb.denoise_gain}),
                (std::array{sa.gain, sa.denoise_gain, sb.gain, sb.denoise_gain}));
    }
    for (dynamic_range_control_t* d : {&pa, &pb, &sa, &sb}) dynamic_range_control_end(d);
  }
}
