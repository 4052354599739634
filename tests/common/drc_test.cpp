// Look-ahead limiter: the gain smoother's step tables at their boundaries,
// the steady states (unity, limiting to 3968/8192, expander floor), the
// look-ahead timing and the empty block.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "kafx_proc/drc.h"

namespace {

constexpr int kFull = 8388607;

// Runs `blocks` blocks of a constant input; returns the last block's output.
std::vector<int> run_constant(dynamic_range_control_t* d, int value, int blocks) {
  std::vector<int> buf(d->frame_len);
  for (int b = 0; b < blocks; ++b) {
    buf.assign(d->frame_len, value);
    dynamic_range_control_process(d, buf.data(), buf.data(), d->frame_len);
  }
  return buf;
}

}  // namespace

TEST(Drc, GainSmootherSteps) {
  // No look-ahead, one silent sample per block: the target is this block's
  // gain, volume * 16 when the gain is at or above it, else half-way up from
  // gain >> 4. Each row gives volume, current gain and the gain one sample on.
  struct Row {
    int volume, cur, next;
  } rows[] = {
      // falling to target 1024 (volume 64): step (-d) >> k, k = 5, 6, 8, 9, 10
      {64, 1031, 1024},   // |d| < 8: jump
      {64, 1032, 1031},   // d = -8: (-d) >> 3
      {64, 1056, 1052},   // d = -32
      {64, 1057, 1056},   // d = -33: k = 5
      {64, 2048, 2016},   // d = -1024: k = 5
      {64, 2049, 2033},   // d = -1025: k = 6
      {64, 3072, 3040},   // d = -2048: k = 6
      {64, 3073, 3065},   // d = -2049: k = 8
      {64, 5120, 5104},   // d = -4096: k = 8
      {64, 5121, 5113},   // d = -4097: k = 9
      {64, 9216, 9200},   // d = -8192: k = 9
      {64, 9217, 9209},   // d = -8193: k = 10
      {8000, 128040, 128000},  // 1.5 * cur >> 11 = 93 overshoots: held at target
      // rising from 0 to (volume >> 1) * 16: step d >> k, k = 6..11
      {8, 0, 8},      // d = 64: d >> 3
      {10, 0, 1},     // d = 80: k = 6
      {128, 0, 16},   // d = 1024: k = 6
      {130, 0, 8},    // d = 1040: k = 7
      {256, 0, 16},   // d = 2048: k = 7
      {258, 0, 8},    // d = 2064: k = 8
      {512, 0, 16},   // d = 4096: k = 8
      {514, 0, 8},    // d = 4112: k = 9
      {1024, 0, 16},  // d = 8192: k = 9
      {1026, 0, 8},   // d = 8208: k = 10
      {2048, 0, 16},  // d = 16384: k = 10
      {2050, 0, 8},   // d = 16400: k = 11
      {8192, 81920, 81940},    // target 106496: cur >> 12 = 20 beats d >> 11 = 12
      {25610, 409600, 409680}, // cur >> 12 = 100 overshoots d = 80: held at target
  };
  dynamic_range_control_t d;
  dynamic_range_control_init(&d, 0, 1);
  for (const Row& r : rows) {
    d.volume = r.volume;
    d.gain = r.cur;
    int x = 0;
    dynamic_range_control_process(&d, &x, &x, 1);
    EXPECT_EQ(d.gain, r.next) << "volume " << r.volume << " gain " << r.cur;
  }
  // Envelope shifts of 32 or more act as 31: a falling envelope moves by -1,
  // a rising one not at all.
  d.envelope = 1000;
  d.release_order = 40;
  int x = 0;
  dynamic_range_control_process(&d, &x, &x, 1);
  EXPECT_EQ(d.envelope, 999);
  d.attact_order = 32;
  x = kFull;
  dynamic_range_control_process(&d, &x, &x, 1);
  EXPECT_EQ(d.envelope, 999);
  dynamic_range_control_end(&d);
}

TEST(Drc, SteadyStates) {
  // Without look-ahead the history holds only this block's gain, 1.0 from
  // the start; once the expander gain has risen from 1/16 (about 72 samples
  // at 1/8 of the distance), full scale below threshold passes bit-exactly.
  dynamic_range_control_t d;
  dynamic_range_control_init(&d, 0, 64);
  std::vector<int> ramp(64);
  for (int i = 0; i < 64; ++i) ramp[i] = kFull - 64 + i;
  std::vector<int> out(64);
  for (int b = 0; b < 50; ++b) {
    dynamic_range_control_process(&d, ramp.data(), out.data(), 64);
    ASSERT_EQ(d.gain, 131072);
    if (b >= 2) {
      ASSERT_EQ(out, ramp);
    }
  }
  dynamic_range_control_end(&d);

  // Two blocks of look-ahead: the empty history pulls the gain down during
  // the silent start (d = -cur, so each step is (-d) >> 10, larger than
  // 1.5 * cur >> 11).
  dynamic_range_control_init(&d, 2, 64);
  dynamic_range_control_process(&d, ramp.data(), out.data(), 64);
  int32_t falling = 131072;
  for (int i = 0; i < 64; ++i) falling -= falling >> 10;
  EXPECT_EQ(d.gain, falling);
  EXPECT_EQ(out, std::vector<int>(64, 0));
  // Coming back, each block aims half-way from gain >> 4 to the volume; the
  // halving floors, so the climb stops one Q13 step short: 8191 * 16.
  for (int b = 0; b < 200; ++b) dynamic_range_control_process(&d, ramp.data(), out.data(), 64);
  EXPECT_EQ(d.gain, 131056);
  EXPECT_EQ(d.denoise_gain, 131072);
  for (int i = 0; i < 64; ++i) ASSERT_EQ(out[i], (int64_t{ramp[i]} * 131056) >> 17);
  // At exactly 1.0 (gain and history) the output is the input delayed by
  // lookahead * frame_len samples.
  d.gain = 131072;
  for (int i = 0; i <= 2; ++i) d.gain_history[i] = 131072;
  std::vector<int> pulses(64, 0);
  pulses[5] = kFull;
  pulses[40] = -kFull;
  for (int b = 0; b < 3; ++b) {
    dynamic_range_control_process(&d, b == 0 ? pulses.data() : std::vector<int>(64, 0).data(), out.data(), 64);
    EXPECT_EQ(d.gain, 131072);
  }
  EXPECT_EQ(out, pulses);
  dynamic_range_control_end(&d);

  // Threshold 16384: block gain ((16384 * 8192) / 32767) * 7936 >> 13 = 3968.
  dynamic_range_control_init(&d, 1, 64);
  dynamic_range_control_set_threshold(&d, 16384);
  out = run_constant(&d, kFull, 300);
  EXPECT_EQ(d.gain, 3968 * 16);
  EXPECT_EQ(d.envelope, 16384);
  EXPECT_EQ(out, std::vector<int>(64, kFull * int64_t{3968} / 8192));
  dynamic_range_control_end(&d);

  // Expander: mean level 100000 under a threshold of 1000000 asks for
  // 819/8192, held at the floor of 1536/8192; at 200000 it gives 1638/8192.
  dynamic_range_control_init(&d, 0, 64);
  dynamic_range_control_set_denoise_threshold(&d, 1000000);
  out = run_constant(&d, 100000, 300);
  EXPECT_EQ(d.denoise_gain, 1536 * 16);
  EXPECT_EQ(out, std::vector<int>(64, 100000 * 1536 / 8192));
  out = run_constant(&d, 200000, 300);
  EXPECT_EQ(d.denoise_gain, 1638 * 16);
  EXPECT_EQ(out, std::vector<int>(64, (200000 * int64_t{1638 * 16}) >> 17));
  dynamic_range_control_end(&d);
}

TEST(Drc, LookAheadLowersGainBeforeThePeakEmerges) {
  // One sample per block, two blocks of look-ahead, threshold 16384; quiet
  // input settles the gain at 131056 (see above).
  dynamic_range_control_t d;
  dynamic_range_control_init(&d, 2, 1);
  dynamic_range_control_set_threshold(&d, 16384);
  run_constant(&d, 100000, 8000);
  ASSERT_EQ(d.gain, 131056);
  // A lone full-scale sample sets a block gain of 63488; the gain starts to
  // fall at once by max((-d) >> 10, (cur + cur / 2) >> 11) = 95 per sample.
  const int seq[] = {kFull, 100000, 100000, 100000};
  const int gains[] = {130961, 130866, 130771, 130802};
  int out[4];
  for (int i = 0; i < 4; ++i) {
    int x = seq[i];
    dynamic_range_control_process(&d, &x, &out[i], 1);
    EXPECT_EQ(d.gain, gains[i]) << i;
  }
  // The peak leaves the delay line two blocks later, already attenuated.
  EXPECT_EQ(out[0], 100000 * int64_t{130961} >> 17);
  EXPECT_EQ(out[2], kFull * int64_t{130771} >> 17);
  // One block after that its gain has left the history: the target is the
  // smallest of the three half-way gains since, (8173 + 9) * 16, and the
  // gain rises by cur >> 12 = 31.
  EXPECT_EQ(d.last_gains[1], 130912);
  dynamic_range_control_end(&d);
}

TEST(Drc, EmptyBlockSettersAndReset) {
  dynamic_range_control_t d;
  dynamic_range_control_init(&d, 2, 16);
  dynamic_range_control_process(&d, nullptr, nullptr, 0);
  EXPECT_EQ(d.level, 32767 - 1024);  // mean 0: (0 - 32767) >> 5
  EXPECT_EQ(d.gain, 131072);
  EXPECT_EQ(d.gain_history[0], 0);
  EXPECT_EQ(d.gain_history[1], 131072);
  EXPECT_EQ(d.last_gains[1], 131072);
  EXPECT_EQ(d.last_gains[0], 0);
  // Q13 volume into the Q17 gain at half value, saturated.
  dynamic_range_control_set_volume(&d, 8192);
  EXPECT_EQ(d.gain, 65536);
  dynamic_range_control_set_volume(&d, 300000000);
  EXPECT_EQ(d.gain, INT32_MAX);
  int v = 0;
  dynamic_range_control_set_denoise_threshold(&d, 0);
  dynamic_range_control_get_denoise_threshold(&d, &v);
  EXPECT_EQ(v, 2);
  // reset clears the history and level but keeps the gain; reinit resizes
  // the delay to lookahead * frame_len.
  dynamic_range_control_reset(&d);
  EXPECT_EQ(d.gain, INT32_MAX);
  EXPECT_EQ(d.level, 32767);
  EXPECT_EQ(d.gain_history[1], 0);
  dynamic_range_control_reinit(&d, 4);
  EXPECT_EQ(d.delay->delay, 8);
  dynamic_range_control_end(&d);
  EXPECT_EQ(d.delay, nullptr);
}
