// Speaker boost system: bit-exact against the same processing assembled from the individual exported blocks
// (stereo, and mono without the averaging), the harmonic band's properties, the total delay, the silent
// 192 kHz class, what a rate change clears and re-sizes, and long calls processed in chunks of 256.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <random>
#include <vector>

#include "kafx_proc/speaker_boost_system.h"

namespace {

using V = std::vector<int>;

struct Sbs {
  speaker_boost_system_t s{};
  explicit Sbs(SampleRateType rate = SAMPLE_RATE_48000) {
    speaker_boost_system_init(&s);
    speaker_boost_system_set_sample_rate(&s, rate);
    speaker_boost_system_setstatus(&s, 1);
  }
  ~Sbs() { speaker_boost_system_end(&s); }
  void process(bool stereo, int* l, int* r, int n) {
    if (stereo) speaker_boost_system_process_stereo(&s, l, r, l, r, n);
    else speaker_boost_system_process_mono(&s, l, l, n);
  }
};

// Samples [start, start + n) of a sine.
V tone(size_t n, double f, double amp, double fs = 48000, size_t start = 0) {
  V v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<int>(std::lround(amp * std::sin(2 * M_PI * f * (start + i) / fs)));
  return v;
}

// 48 kHz rows, written out as the system's tables state them.
const int kPre48[5] = {183560140, 0, 31493941, 107017611, -53636238};
const int kBp48[5] = {6845285, 0, -6845285, 522463337, -254744883};
const int kXo48[6][5] = {{70236, 140473, 70236, 524449850, -256295343},
                         {262295162, -524590324, 262295162, 524449850, -256295343},
                         {952869, 1905738, 952869, 489769607, -225145629},
                         {245837672, -491675345, 245837672, 489769607, -225145629},
                         {7112376, 14224753, 7112376, 399880653, -159894704},
                         {207052703, -414105406, 207052703, 399880653, -159894704}};

// The same processing at 48 kHz assembled from the individual exported blocks.
struct Reference {
  IIR_t pre[2]{}, band_pass{};
  spectral_band_split split[6]{}; // left 1..3, right 1..3
  NLD nld{};
  audio_delay delay[2]{};
  dynamic_range_control_t drc[8]{}; // left low, mid, high, full band; then right
  int nld_gain[2] = {8192, 8192};
  Reference() {
    for (auto& p : pre) IIR_init(&p, kPre48);
    IIR_init(&band_pass, kBp48);
    for (int k = 0; k < 6; ++k) spectral_band_split_init(&split[k], kXo48[2 * (k % 3)], kXo48[2 * (k % 3) + 1]);
    NLD_init(&nld);
    for (auto& d : delay) audio_delay_init(&d, 2 * 240);
    for (auto& d : drc) dynamic_range_control_init(&d, 2, 240);
  }
  ~Reference() {
    for (auto& p : pre) IIR_end(&p);
    IIR_end(&band_pass);
    for (auto& s : split) spectral_band_split_end(&s);
    NLD_end(&nld);
    for (auto& d : delay) audio_delay_end(&d);
    for (auto& d : drc) dynamic_range_control_end(&d);
  }
  // Stereo: the harmonics come from the mean of both lowest bands; mono: from the left's alone.
  void run(bool stereo, V* io[2], int count) {
    const int sides = stereo ? 2 : 1;
    std::vector<V> band(8, V(count)); // per side: the four bands, lowest first
    for (int i = 0; i < count; ++i) {
      for (int c = 0; c < sides; ++c) {
        int x;
        IIR_process_32(&pre[c], &(*io[c])[i], &x);
        spectral_band_split_process(&split[3 * c], &x, &band[4 * c][i], &x);
        spectral_band_split_process(&split[3 * c + 1], &x, &band[4 * c + 1][i], &x);
        spectral_band_split_process(&split[3 * c + 2], &x, &band[4 * c + 2][i], &band[4 * c + 3][i]);
      }
      int m = stereo ? static_cast<int>(unsigned(band[0][i]) + unsigned(band[4][i])) >> 1 : band[0][i];
      NLD_process(&nld, &m, &m);
      IIR_process_32(&band_pass, &m, &m);
      for (int c = 0; c < sides; ++c) {
        const int64_t g = (int64_t{nld_gain[c]} * m) >> 13; // Q13, saturated to 32 bits
        band[4 * c][i] = audio_delay_process(&delay[c], static_cast<int>(std::clamp<int64_t>(g, INT_MIN, INT_MAX)));
      }
    }
    for (int c = 0; c < sides; ++c) {
      for (int k = 1; k < 4; ++k) // the three upper bands, in place
        dynamic_range_control_process(&drc[4 * c + k - 1], band[4 * c + k].data(), band[4 * c + k].data(), count);
      V sum(count, 0);
      for (int k = 4 * c; k < 4 * c + 4; ++k) // 32-bit wrap-around
        for (int i = 0; i < count; ++i) sum[i] = static_cast<int>(unsigned(sum[i]) + unsigned(band[k][i]));
      dynamic_range_control_process(&drc[4 * c + 3], sum.data(), io[c]->data(), count);
    }
  }
};

// A few limiters and harmonic gains are tuned through the system's accessors and on the reference alike.
TEST(SpeakerBoostSystem, MatchesTheCompositionOfItsBlocks) {
  for (bool stereo : {true, false}) {
    Sbs sys;
    Reference ref;
    speaker_boost_system_drc_mid_left_set_threshold(&sys.s, 6000);
    dynamic_range_control_set_threshold(&ref.drc[1], 6000);
    speaker_boost_system_drc_full_right_set_volume(&sys.s, 12000);
    dynamic_range_control_set_volume(&ref.drc[7], 12000);
    speaker_boost_system_drc_high_right_set_attact_order(&sys.s, 2);
    dynamic_range_control_set_attact_order(&ref.drc[6], 2);
    speaker_boost_system_set_nld_gain_left(&sys.s, 5000);
    speaker_boost_system_set_nld_gain_right(&sys.s, 3000);
    ref.nld_gain[0] = 5000, ref.nld_gain[1] = 3000;
    int bp[5];  // the band-pass row as its getter reports it
    speaker_boost_system_get_nld_param(&sys.s, bp);
    EXPECT_EQ(V(bp, bp + 5), V(kBp48, kBp48 + 5));
    std::mt19937 rng(11);
    for (size_t block = 0; block < 40; ++block) {
      V l = tone(240, 70, 3000000, 48000, block * 240), r = tone(240, 2500, 2000000, 48000, block * 240);
      for (auto& x : r) x += std::uniform_int_distribution<int>(-750000, 750000)(rng);
      V el = l, er = r;
      V* io[2] = {&el, &er};
      ref.run(stereo, io, 240);
      sys.process(stereo, l.data(), r.data(), 240);
      ASSERT_EQ(l, el) << stereo << " " << block;
      ASSERT_EQ(r, er) << stereo << " " << block; // mono leaves the right alone
    }
  }
}

// The harmonic band replaces the lowest band. Opposite-polarity bass cancels in the mono sum: the filters'
// floor shifts are not odd-symmetric, so an LSB or two remain (below -100 dBFS); in phase the same bass
// gives a loud band; a zero gain removes it from that side only.
TEST(SpeakerBoostSystem, HarmonicBandProperties) {
  auto peaks = [](int right_sign, int gain_left) { // largest |band0| per side over 30 blocks of 60 Hz
    Sbs sys;
    speaker_boost_system_set_nld_gain_left(&sys.s, gain_left);
    std::array<int, 2> peak{};
    for (size_t block = 0; block < 30; ++block) {
      V l = tone(240, 60, 4000000, 48000, block * 240), r = l;
      for (auto& x : r) x *= right_sign;
      sys.process(true, l.data(), r.data(), 240);
      for (int i = 0; i < 240; ++i)
        peak = {std::max(peak[0], std::abs(sys.s.band0_left[i])), std::max(peak[1], std::abs(sys.s.band0_right[i]))};
    }
    return peak;
  };
  const std::array<int, 2> opposite = peaks(-1, 8192), same = peaks(1, 8192), muted = peaks(1, 0);
  EXPECT_LE(std::max(opposite[0], opposite[1]), 64);
  EXPECT_GT(std::min(same[0], same[1]), 100000);
  EXPECT_EQ(muted, (std::array<int, 2>{0, same[1]}));
}

// An impulse, once the limiters have settled on silence, comes out 2 x lookahead x frame_len samples later:
// the band limiters and the harmonic delay, then the full-band limiter.
TEST(SpeakerBoostSystem, TotalDelayIsTwoLookaheadSpans) {
  for (auto rate : {SAMPLE_RATE_44100, SAMPLE_RATE_48000, SAMPLE_RATE_96000}) {
    Sbs sys(rate);
    const int n = sys.s.frame_len, blk = n <= 256 ? n : 240;
    V l, r, out;
    for (int b = 0; b < 412; ++b) {
      l = r = V(blk);
      if (b == 400) l[0] = r[0] = 4000000;
      sys.process(true, l.data(), r.data(), blk);
      if (b >= 400) out.insert(out.end(), l.begin(), l.end());
    }
    const size_t delay = 2 * 2 * static_cast<size_t>(n);
    EXPECT_EQ(V(out.begin(), out.begin() + static_cast<long>(delay)), V(delay)) << rate;
    EXPECT_NE(out[delay], 0) << rate;
  }
}

// A rate change re-sizes the limiters and harmonic delays, clears every biquad history and loads the rate's
// rows (192 kHz: the 48 kHz crossovers and zero pre-filter and band-pass rows, so an enabled system is silent).
TEST(SpeakerBoostSystem, RateChangeResizesDelaysAndClearsFilters) {
  Sbs sys;
  V l = tone(240, 300, 3000000), r = l;
  sys.process(true, l.data(), r.data(), 240);
  ASSERT_TRUE(sys.s.pre_filter_left->state[3] != 0 && sys.s.nld_filter->state[3] != 0);
  speaker_boost_system_set_sample_rate(&sys.s, SAMPLE_RATE_44100);
  EXPECT_EQ((V{sys.s.frame_len, sys.s.nld_delay_right->delay, sys.s.drc_mid_right->frame_len,
               sys.s.drc_mid_right->delay->delay, sys.s.split1_left->first_a->coef[0]}),
            (V{220, 440, 220, 440, 83041})); // 83041: the 44.1 kHz crossover
  for (const IIR_t* f : {sys.s.pre_filter_left, sys.s.nld_filter, sys.s.split2_right->first_b})
    EXPECT_EQ(V(f->state, f->state + 5), V(5));
  speaker_boost_system_set_sample_rate(&sys.s, SAMPLE_RATE_192000);
  EXPECT_EQ((V{sys.s.split1_left->first_a->coef[0], sys.s.pre_filter_right->coef[0], sys.s.nld_filter->coef[0],
               sys.s.nld_delay_left->delay}),
            (V{70236, 0, 0, 1920}));
  for (size_t block = 0; block < 20; ++block) {
    l = tone(240, 1000, 8000000, 192000, block * 240), r = tone(240, 50, 8000000, 192000, block * 240);
    sys.process(true, l.data(), r.data(), 240);
    ASSERT_TRUE(l == V(240) && r == V(240)) << block;
  }
}

// Calls longer than the 256-sample band buffers run as consecutive chunks of 256 (one limiter block each).
TEST(SpeakerBoostSystem, LongCallsAreChunksOf256) {
  for (bool stereo : {true, false}) {
    Sbs whole, chunked;
    V l = tone(1000, 200, 3000000), r = tone(1000, 3000, 3000000), l2 = l, r2 = r;
    whole.process(stereo, l.data(), r.data(), 1000);
    for (int done = 0; done < 1000; done += 256)
      chunked.process(stereo, l2.data() + done, r2.data() + done, std::min(256, 1000 - done));
    EXPECT_EQ(l, l2) << stereo;
    EXPECT_EQ(r, r2) << stereo;
  }
}

} // namespace
