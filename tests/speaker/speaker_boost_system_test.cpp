// Speaker boost system: its wiring against a composition of the individual
// blocks, the harmonic band's properties, the total delay, the silent
// 192 kHz class and the effect of a rate change.
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "kafx_proc/speaker_boost_system.h"

namespace {

struct Sbs {
  speaker_boost_system_t s{};
  explicit Sbs(SampleRateType rate = SAMPLE_RATE_48000) {
    speaker_boost_system_init(&s);
    speaker_boost_system_set_sample_rate(&s, rate);
    speaker_boost_system_setstatus(&s, 1);
  }
  ~Sbs() { speaker_boost_system_end(&s); }
};

std::vector<int> tone(size_t n, double freq, double amp, double fs = 48000, double phase = 0) {
  std::vector<int> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<int>(std::lround(amp * std::sin(2 * M_PI * freq * i / fs + phase)));
  return v;
}

// The same processing assembled from the individual exported blocks.
struct Reference {
  IIR_t pre[2]{}, nld_bp{};
  spectral_band_split split[2][3]{};
  NLD nld{};
  audio_delay delay[2]{};
  dynamic_range_control_t band_drc[2][3]{}, full_drc[2]{};
  int nld_gain[2] = {8192, 8192};
  Reference(const int* pre_row, const int* bp_row, const int (*xo)[5], int frame_len) {
    for (auto& p : pre) IIR_init(&p, pre_row);
    IIR_init(&nld_bp, bp_row);
    for (auto& ch : split)
      for (int k = 0; k < 3; ++k) spectral_band_split_init(&ch[k], xo[2 * k], xo[2 * k + 1]);
    NLD_init(&nld);
    for (auto& d : delay) audio_delay_init(&d, 2 * frame_len);
    for (auto& ch : band_drc)
      for (auto& d : ch) dynamic_range_control_init(&d, 2, frame_len);
    for (auto& d : full_drc) dynamic_range_control_init(&d, 2, frame_len);
  }
  ~Reference() {
    for (auto& p : pre) IIR_end(&p);
    IIR_end(&nld_bp);
    for (auto& ch : split)
      for (auto& s : ch) spectral_band_split_end(&s);
    NLD_end(&nld);
    for (auto& d : delay) audio_delay_end(&d);
    for (auto& ch : band_drc)
      for (auto& d : ch) dynamic_range_control_end(&d);
    for (auto& d : full_drc) dynamic_range_control_end(&d);
  }
  // channels: 2 = stereo (mono bass from the average), 1 = left only.
  void run(int channels, std::vector<int>* io[2], int count) {
    std::vector<int> band[2][4];
    for (int c = 0; c < channels; ++c)
      for (auto& b : band[c]) b.assign(count, 0);
    for (int i = 0; i < count; ++i) {
      for (int c = 0; c < channels; ++c) {
        int x;
        IIR_process_32(&pre[c], &(*io[c])[i], &x);
        spectral_band_split_process(&split[c][0], &x, &band[c][0][i], &x);
        spectral_band_split_process(&split[c][1], &x, &band[c][1][i], &x);
        spectral_band_split_process(&split[c][2], &x, &band[c][2][i], &band[c][3][i]);
      }
      int m = channels == 2 ? static_cast<int>((static_cast<unsigned>(band[0][0][i]) + static_cast<unsigned>(band[1][0][i]))) >> 1
                            : band[0][0][i];
      NLD_process(&nld, &m, &m);
      IIR_process_32(&nld_bp, &m, &m);
      for (int c = 0; c < channels; ++c) {
        long long g = (static_cast<long long>(nld_gain[c]) * m) >> 13;
        g = g > 2147483647LL ? 2147483647LL : (g < -2147483648LL ? -2147483648LL : g);
        band[c][0][i] = audio_delay_process(&delay[c], static_cast<int>(g));
      }
    }
    for (int c = 0; c < channels; ++c)
      for (int k = 0; k < 3; ++k)
        dynamic_range_control_process(&band_drc[c][k], band[c][k + 1].data(), band[c][k + 1].data(), count);
    for (int c = 0; c < channels; ++c) {
      std::vector<int> sum(count);
      for (int i = 0; i < count; ++i) {
        unsigned acc = 0;
        for (int k = 0; k < 4; ++k) acc += static_cast<unsigned>(band[c][k][i]);
        sum[i] = static_cast<int>(acc);
      }
      dynamic_range_control_process(&full_drc[c], sum.data(), io[c]->data(), count);
    }
  }
};

// 48 kHz rows, written out as the system's tables state them.
const int kPre48[5] = {183560140, 0, 31493941, 107017611, -53636238};
const int kBp48[5] = {6845285, 0, -6845285, 522463337, -254744883};
const int kXo48[6][5] = {{70236, 140473, 70236, 524449850, -256295343},
                         {262295162, -524590324, 262295162, 524449850, -256295343},
                         {952869, 1905738, 952869, 489769607, -225145629},
                         {245837672, -491675345, 245837672, 489769607, -225145629},
                         {7112376, 14224753, 7112376, 399880653, -159894704},
                         {207052703, -414105406, 207052703, 399880653, -159894704}};

TEST(SpeakerBoostSystem, InitDefaults) {
  speaker_boost_system_t s;
  speaker_boost_system_init(&s);
  EXPECT_EQ(s.status, 0);
  EXPECT_EQ(s.nld_gain_left, 8192);
  EXPECT_EQ(s.nld_gain_right, 8192);
  EXPECT_EQ(s.channel_num, 2);
  EXPECT_EQ(s.lookahead, 2);
  EXPECT_EQ(s.frame_len, 960);
  EXPECT_EQ(s.nld_delay_left->delay, 1920);
  EXPECT_EQ(s.drc_full_right->frame_len, 960);
  int c[5];
  speaker_boost_system_get_nld_param(&s, c);
  EXPECT_EQ(0, std::memcmp(c, kBp48, sizeof c));
  speaker_boost_system_end(&s);
  EXPECT_EQ(s.drc_low_left, nullptr);
  EXPECT_EQ(s.band0_left, nullptr);
}

TEST(SpeakerBoostSystem, StereoMatchesBlockComposition) {
  Sbs sys;
  Reference ref(kPre48, kBp48, kXo48, 240);
  // Tune a few limiters through the generated accessors, and the same on the reference.
  speaker_boost_system_drc_mid_left_set_threshold(&sys.s, 6000);
  dynamic_range_control_set_threshold(&ref.band_drc[0][1], 6000);
  speaker_boost_system_drc_full_right_set_volume(&sys.s, 12000);
  dynamic_range_control_set_volume(&ref.full_drc[1], 12000);
  speaker_boost_system_drc_high_right_set_attact_order(&sys.s, 2);
  dynamic_range_control_set_attact_order(&ref.band_drc[1][2], 2);
  speaker_boost_system_set_nld_gain_right(&sys.s, 3000);
  ref.nld_gain[1] = 3000;
  std::mt19937 rng(11);
  std::uniform_int_distribution<int> noise(-3000000, 3000000);
  for (int block = 0; block < 40; ++block) {
    auto l = tone(240, 70, 3000000, 48000, block * 240 * 2 * M_PI * 70 / 48000);
    auto r = tone(240, 2500, 2000000, 48000, block * 240 * 2 * M_PI * 2500 / 48000);
    for (auto& x : r) x += noise(rng) / 4;
    std::vector<int> el = l, er = r;
    std::vector<int>* io[2] = {&el, &er};
    ref.run(2, io, 240);
    speaker_boost_system_process_stereo(&sys.s, l.data(), r.data(), l.data(), r.data(), 240);
    ASSERT_EQ(l, el) << block;
    ASSERT_EQ(r, er) << block;
  }
}

TEST(SpeakerBoostSystem, MonoMatchesBlockCompositionWithoutAveraging) {
  Sbs sys;
  Reference ref(kPre48, kBp48, kXo48, 240);
  for (int block = 0; block < 20; ++block) {
    auto x = tone(240, 90, 4000000, 48000, block * 240 * 2 * M_PI * 90 / 48000);
    std::vector<int> e = x, unused(240);
    std::vector<int>* io[2] = {&e, &unused};
    ref.run(1, io, 240);
    speaker_boost_system_process_mono(&sys.s, x.data(), x.data(), 240);
    ASSERT_EQ(x, e) << block;
  }
}

TEST(SpeakerBoostSystem, HarmonicBandProperties) {
  // Opposite-polarity bass cancels in the mono sum. The floor shifts of the
  // filters are not odd-symmetric, so the two lowest bands differ from exact
  // negatives by an LSB or two and the harmonic band is near silence rather
  // than exactly 0; in phase the same bass gives a loud harmonic band.
  auto harmonic_peak = [](bool opposite) {
    Sbs sys;
    int peak = 0;
    for (int block = 0; block < 30; ++block) {
      auto l = tone(240, 60, 4000000, 48000, block * 240 * 2 * M_PI * 60 / 48000);
      std::vector<int> r(240);
      for (int i = 0; i < 240; ++i) r[i] = opposite ? -l[i] : l[i];
      speaker_boost_system_process_stereo(&sys.s, l.data(), r.data(), l.data(), r.data(), 240);
      for (int i = 0; i < 240; ++i) peak = std::max({peak, std::abs(sys.s.band0_left[i]), std::abs(sys.s.band0_right[i])});
    }
    return peak;
  };
  EXPECT_LE(harmonic_peak(true), 64);  // below -100 dBFS
  EXPECT_GT(harmonic_peak(false), 100000);
  // A zero gain removes the lowest band from that side only.
  {
    Sbs sys;
    speaker_boost_system_set_nld_gain_left(&sys.s, 0);
    bool right_active = false;
    for (int block = 0; block < 30; ++block) {
      auto l = tone(240, 60, 4000000, 48000, block * 240 * 2 * M_PI * 60 / 48000);
      auto r = l;
      speaker_boost_system_process_stereo(&sys.s, l.data(), r.data(), l.data(), r.data(), 240);
      for (int i = 0; i < 240; ++i) {
        ASSERT_EQ(sys.s.band0_left[i], 0);
        right_active |= sys.s.band0_right[i] != 0;
      }
    }
    EXPECT_TRUE(right_active);
  }
}

TEST(SpeakerBoostSystem, TotalDelayIsTwoLookaheadSpans) {
  for (auto rate : {SAMPLE_RATE_44100, SAMPLE_RATE_48000, SAMPLE_RATE_96000}) {
    Sbs sys(rate);
    const int n = sys.s.frame_len;
    std::vector<int> l(n), r(n);
    for (int b = 0; b < 400; ++b) {  // let the limiter gains settle on silence
      std::fill(l.begin(), l.end(), 0);
      std::fill(r.begin(), r.end(), 0);
      speaker_boost_system_process_stereo(&sys.s, l.data(), r.data(), l.data(), r.data(), n < 256 ? n : 240);
    }
    // From here use blocks of frame_len (at most 256 per call chunk).
    const int blk = n <= 256 ? n : 240;
    std::vector<int> out;
    for (int b = 0; b < 12; ++b) {
      std::fill(l.begin(), l.end(), 0);
      std::fill(r.begin(), r.end(), 0);
      if (b == 0) l[0] = r[0] = 4000000;
      speaker_boost_system_process_stereo(&sys.s, l.data(), r.data(), l.data(), r.data(), blk);
      out.insert(out.end(), l.begin(), l.begin() + blk);
    }
    const int expect = 2 * 2 * n;  // lookahead 2, band limiters + full-band limiter
    for (int i = 0; i < expect; ++i) ASSERT_EQ(out[i], 0) << rate << " " << i;
    EXPECT_NE(out[expect], 0) << rate;
  }
}

TEST(SpeakerBoostSystem, Rate192kIsSilent) {
  Sbs sys(SAMPLE_RATE_192000);
  EXPECT_EQ(sys.s.frame_len, 960);
  for (int block = 0; block < 20; ++block) {
    auto l = tone(240, 1000, 8000000, 192000);
    auto r = tone(240, 50, 8000000, 192000);
    speaker_boost_system_process_stereo(&sys.s, l.data(), r.data(), l.data(), r.data(), 240);
    for (int i = 0; i < 240; ++i) {
      ASSERT_EQ(l[i], 0);
      ASSERT_EQ(r[i], 0);
    }
  }
}

TEST(SpeakerBoostSystem, RateChangeResizesDelaysAndClearsFilters) {
  Sbs sys;
  auto l = tone(240, 300, 3000000);
  auto r = l;
  speaker_boost_system_process_stereo(&sys.s, l.data(), r.data(), l.data(), r.data(), 240);
  EXPECT_NE(sys.s.pre_filter_left->state[3], 0);
  speaker_boost_system_set_sample_rate(&sys.s, SAMPLE_RATE_44100);
  EXPECT_EQ(sys.s.frame_len, 220);
  EXPECT_EQ(sys.s.nld_delay_right->delay, 440);
  EXPECT_EQ(sys.s.drc_mid_right->frame_len, 220);
  EXPECT_EQ(sys.s.drc_mid_right->delay->delay, 440);
  for (int k = 0; k < 5; ++k) {
    EXPECT_EQ(sys.s.pre_filter_left->state[k], 0);
    EXPECT_EQ(sys.s.split2_right->first_b->state[k], 0);
  }
  EXPECT_EQ(sys.s.split1_left->first_a->coef[0], 83041);  // the 44.1 kHz crossover
  speaker_boost_system_set_sample_rate(&sys.s, SAMPLE_RATE_192000);
  EXPECT_EQ(sys.s.split1_left->first_a->coef[0], 70236);  // 192 kHz reuses 48 kHz
  EXPECT_EQ(sys.s.pre_filter_right->coef[0], 0);
  EXPECT_EQ(sys.s.nld_delay_left->delay, 1920);
}

TEST(SpeakerBoostSystem, LongBlocksAreProcessedInChunksOf256) {
  Sbs a, b;
  auto l = tone(1000, 200, 3000000), r = tone(1000, 3000, 3000000);
  auto l2 = l, r2 = r;
  speaker_boost_system_process_stereo(&a.s, l.data(), r.data(), l.data(), r.data(), 1000);
  for (int done = 0; done < 1000; done += 256) {
    const int n = std::min(256, 1000 - done);
    speaker_boost_system_process_stereo(&b.s, l2.data() + done, r2.data() + done, l2.data() + done,
                                        r2.data() + done, n);
  }
  EXPECT_EQ(l, l2);
  EXPECT_EQ(r, r2);
}

}  // namespace
