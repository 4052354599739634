// Speaker front end: latency and re-blocking across buffer splits, the three
// host formats, the mono short copy, the init log line, and the robustness
// rules for odd sizes, channel counts and null arguments.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "kafx_proc/speaker_boost.h"
#include "support/log_capture.h"

namespace {

constexpr int kLatency = 239;

struct Handle {
  kafx_speaker_boost_t* h;
  Handle(unsigned ch, unsigned rate, int fmt)
      : h(static_cast<kafx_speaker_boost_t*>(kafx_speaker_boost_init(ch, rate, fmt))) {}
  ~Handle() { kafx_speaker_boost_deinit(h); }
  kedo_speaker_boost_t* chain() { return &h->chain; }
};

template <typename T>
std::vector<T> noise(size_t n, int lo, int hi, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> d(lo, hi);
  std::vector<T> v(n);
  for (auto& x : v) x = static_cast<T>(d(rng));
  return v;
}

// Feeds `data` (interleaved, `ch` channels) in pieces of `frames_per_call`.
template <typename T>
std::vector<T> run_split(Handle& hd, std::vector<T> data, unsigned ch, size_t frames_per_call) {
  const size_t frames = data.size() / ch;
  for (size_t f = 0; f < frames; f += frames_per_call) {
    const size_t n = std::min(frames_per_call, frames - f);
    kafx_speaker_boost_process(hd.h, data.data() + f * ch, static_cast<unsigned>(n * ch * sizeof(T)));
  }
  return data;
}

void equalizer_on(Handle& hd) {
  // A gentle, non-trivial stereo path: balance mix and a first-order band.
  kedo_speaker_boost_cb_set_channel_ration(hd.chain(), 1000);
  kedo_speaker_boost_p_eq_setstatus(hd.chain(), 1);
  int bands[10][6] = {};
  for (auto& b : bands) {
    b[0] = 1;
    b[1] = 1 << 28;
  }
  bands[0][1] = 1 << 27;
  bands[0][4] = 1 << 27;  // y = 0.5 x + 0.5 y[n-1]
  kedo_speaker_boost_p_eq_setparameter_left(hd.chain(), bands);
  kedo_speaker_boost_p_eq_setparameter_right(hd.chain(), bands);
}

TEST(SpeakerFrontEnd, InitRecordAndLogLine) {
  kafx_test::LogCapture log;
  Handle hd(2, 44100, 7);
  ASSERT_NE(hd.h, nullptr);
  ASSERT_EQ(log.all().size(), 1u);
  EXPECT_EQ(log.all()[0].tag, "kafx_sp_wrapper");
  EXPECT_EQ(log.all()[0].priority, ANDROID_LOG_DEBUG);
  EXPECT_EQ(log.all()[0].message, "kafx_speaker_boost_init: sample_rate 44100, format_type 7");
  EXPECT_EQ(hd.h->enable, 1);
  EXPECT_EQ(hd.h->format_type, 0);
  EXPECT_EQ(hd.h->bit_width, 32);
  EXPECT_EQ(hd.h->bytes_per_sample, 4);
  EXPECT_EQ(hd.h->chain.rate_type, SAMPLE_RATE_44100);
  EXPECT_EQ(hd.h->in_left_fifo.capacity, 240);
  EXPECT_EQ(hd.h->in_left_fifo.width, 32);
  const kafx_sp_params_t zero{};
  EXPECT_EQ(0, std::memcmp(&hd.h->params, &zero, sizeof zero));
  Handle h16(2, 48000, 1);
  EXPECT_EQ(h16.h->bit_width, 16);
  EXPECT_EQ(h16.h->bytes_per_sample, 2);
  EXPECT_EQ(h16.h->out_right_fifo.width, 16);
}

TEST(SpeakerFrontEnd, LatencyAndBlockingAreSplitIndependent16) {
  const size_t frames = 5000;
  const auto input = noise<int16_t>(frames * 2, -32768, 32767, 1);
  std::vector<std::vector<int16_t>> outs;
  for (size_t split : {size_t(1), size_t(100), size_t(1000), size_t(4801), size_t(240)}) {
    Handle hd(2, 48000, 1);
    equalizer_on(hd);
    outs.push_back(run_split(hd, input, 2, split));
  }
  for (size_t i = 1; i < outs.size(); ++i) EXPECT_EQ(outs[i], outs[0]) << i;
  for (int k = 0; k < kLatency * 2; ++k) ASSERT_EQ(outs[0][k], 0) << k;
  // With every block off the 16-bit path is transparent: x*256, (y+128)>>8.
  Handle off(2, 48000, 1);
  kedo_speaker_boost_cb_setstatus(off.chain(), 0);
  const auto out = run_split(off, input, 2, 333);
  for (size_t k = kLatency * 2; k < out.size(); ++k) ASSERT_EQ(out[k], input[k - kLatency * 2]) << k;
}

TEST(SpeakerFrontEnd, Format2PassesWorkingSamplesThrough) {
  const size_t frames = 1000;
  auto input = noise<int32_t>(frames * 2, -8388607, 8388607, 2);
  input[600] = 9000000;  // beyond 24 bits: clamped by the chain
  Handle hd(2, 48000, 2);
  const auto out = run_split(hd, input, 2, 77);
  for (size_t k = kLatency * 2; k < out.size(); ++k) {
    const int32_t x = input[k - kLatency * 2];
    ASSERT_EQ(out[k], x > 8388607 ? 8388607 : x) << k;
  }
}

TEST(SpeakerFrontEnd, Format3FullScaleConversions) {
  Handle hd(2, 48000, 3);
  kedo_speaker_boost_cb_setstatus(hd.chain(), 0);
  std::vector<int32_t> buf(2 * 480, 0);
  buf[0] = 2147483647;
  buf[1] = -2147483647 - 1;
  buf[2] = 1000;   // (1000 + 128) >> 8 = 4 -> 1024
  buf[3] = -129;   // (-129 + 128) >> 8 = -1 -> -256
  kafx_speaker_boost_process(hd.h, buf.data(), static_cast<unsigned>(buf.size() * 4));
  EXPECT_EQ(buf[2 * kLatency], 2147483392);
  EXPECT_EQ(buf[2 * kLatency + 1], -8388607 * 256);  // chain clamp is symmetric
  EXPECT_EQ(buf[2 * kLatency + 2], 1024);
  EXPECT_EQ(buf[2 * kLatency + 3], -256);
  for (int k = 0; k < 2 * kLatency; ++k) ASSERT_EQ(buf[k], 0);
}

TEST(SpeakerFrontEnd, SixteenBitOutputSaturatesAtFullScale) {
  Handle hd(2, 48000, 1);
  kedo_speaker_boost_p_eq_setstatus(hd.chain(), 1);
  kedo_speaker_boost_p_eq_set_gain_left(hd.chain(), 16384);  // 32767 * 256 * 2 -> clamp 8388607
  std::vector<int16_t> buf(2 * 241, 0);
  buf[0] = 32767;
  buf[2] = -32768;
  kafx_speaker_boost_process(hd.h, buf.data(), static_cast<unsigned>(buf.size() * 2));
  EXPECT_EQ(buf[2 * kLatency], 32767);       // (8388607 + 128) >> 8 = 32768 -> 32767
  EXPECT_EQ(buf[2 * kLatency + 2], -32768);  // (-8388607 + 128) >> 8 floors to -32768
}

TEST(SpeakerFrontEnd, MonoParameterCopiesHalfTheRightBlockOn16Bit) {
  Handle hd(2, 48000, 1);
  hd.h->params.sbs.channel_num = 1;
  std::vector<int16_t> buf(2 * 480);
  for (int f = 0; f < 480; ++f) {
    buf[2 * f] = static_cast<int16_t>(f + 1);
    buf[2 * f + 1] = static_cast<int16_t>(-(f + 1));
  }
  kafx_speaker_boost_process(hd.h, buf.data(), static_cast<unsigned>(buf.size() * 2));
  // Output frames 239..478 carry input block 0 (frames 0..239).
  for (int i = 0; i < 240; ++i) {
    const int out_l = buf[2 * (kLatency + i)];
    const int out_r = buf[2 * (kLatency + i) + 1];
    EXPECT_EQ(out_l, i + 1);
    EXPECT_EQ(out_r, i < 120 ? i + 1 : -(i + 1)) << i;
  }
  // 32-bit containers copy the whole block.
  Handle h32(2, 48000, 2);
  h32.h->params.sbs.channel_num = 1;
  std::vector<int32_t> b32(2 * 480);
  for (int f = 0; f < 480; ++f) {
    b32[2 * f] = f + 1;
    b32[2 * f + 1] = -(f + 1);
  }
  kafx_speaker_boost_process(h32.h, b32.data(), static_cast<unsigned>(b32.size() * 4));
  for (int i = 0; i < 240; ++i) EXPECT_EQ(b32[2 * (kLatency + i) + 1], i + 1);
}

TEST(SpeakerFrontEnd, EnableFlagDoesNotBypassAndResetKeepsFifos) {
  Handle hd(2, 48000, 2);
  kafx_speaker_boost_set_enable(hd.h, 0);
  int e = 9;
  kafx_speaker_boost_get_enable(hd.h, &e);
  EXPECT_EQ(e, 0);
  EXPECT_EQ(hd.h->chain.enable, 0);
  std::vector<int32_t> buf(2 * 300, 5);
  kafx_speaker_boost_process(hd.h, buf.data(), static_cast<unsigned>(buf.size() * 4));
  EXPECT_EQ(buf[0], 0);  // still delayed
  EXPECT_EQ(buf[2 * kLatency], 5);
  EXPECT_EQ(hd.h->in_left_fifo.count, 60);
  kafx_speaker_boost_reset(hd.h);
  EXPECT_EQ(hd.h->in_left_fifo.count, 60);
  EXPECT_EQ(hd.h->out_left_fifo.count, 179);
}

TEST(SpeakerFrontEnd, FifoUnderflowRealigns) {
  Handle hd(2, 48000, 2);
  std::vector<int32_t> buf(2 * 10, 3);
  hd.h->out_left_fifo.read_index = 17;
  kafx_speaker_boost_process(hd.h, buf.data(), static_cast<unsigned>(buf.size() * 4));
  EXPECT_EQ(buf[0], 0);
  EXPECT_EQ(hd.h->out_left_fifo.count, 0);
  EXPECT_EQ(hd.h->out_left_fifo.write_index, 17);
}

TEST(SpeakerFrontEnd, PartialFramesAndNullArgumentsAreSafe) {
  kafx_speaker_boost_process(nullptr, nullptr, 100);
  kafx_speaker_boost_reset(nullptr);
  kafx_speaker_boost_set_enable(nullptr, 1);
  kafx_speaker_boost_get_enable(nullptr, nullptr);
  kafx_speaker_boost_deinit(nullptr);
  Handle hd(2, 48000, 1);
  kafx_speaker_boost_process(hd.h, nullptr, 100);
  // 3 whole stereo frames + 3 stray bytes: the stray bytes are not touched.
  std::vector<uint8_t> raw(15, 0xAB);
  kafx_speaker_boost_process(hd.h, raw.data(), 15);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(raw[i], 0) << i;  // delayed silence
  for (int i = 12; i < 15; ++i) EXPECT_EQ(raw[i], 0xAB) << i;
  EXPECT_EQ(hd.h->in_left_fifo.count, 3);
}

TEST(SpeakerFrontEnd, ChannelStrideFollowsChannelCount) {
  // Mono host stream: the sample feeds both sides and gets the left result.
  Handle mono(1, 48000, 1);
  kedo_speaker_boost_cb_set_channel_ration(mono.chain(), -8192);  // right := left
  auto m = noise<int16_t>(600, -20000, 20000, 3);
  const auto m_in = m;
  kafx_speaker_boost_process(mono.h, m.data(), static_cast<unsigned>(m.size() * 2));
  for (size_t k = kLatency; k < m.size(); ++k) ASSERT_EQ(m[k], m_in[k - kLatency]);

  // Four channels: only the first two of each frame are processed.
  Handle quad(4, 48000, 3);
  std::vector<int32_t> q(4 * 500);
  for (size_t i = 0; i < q.size(); ++i) q[i] = static_cast<int32_t>(i * 1001 + 7);
  const auto q_in = q;
  kafx_speaker_boost_process(quad.h, q.data(), static_cast<unsigned>(q.size() * 4));
  for (size_t f = 0; f < 500; ++f) {
    ASSERT_EQ(q[4 * f + 2], q_in[4 * f + 2]);
    ASSERT_EQ(q[4 * f + 3], q_in[4 * f + 3]);
    if (f >= static_cast<size_t>(kLatency)) {
      const int32_t x = q_in[4 * (f - kLatency)];
      ASSERT_EQ(q[4 * f], ((x + 128) >> 8) * 256);
    }
  }

  // Zero channels: bypass.
  Handle none(0, 48000, 1);
  std::vector<int16_t> z(64, 1234);
  kafx_speaker_boost_process(none.h, z.data(), 128);
  for (auto v : z) EXPECT_EQ(v, 1234);
}

}  // namespace
