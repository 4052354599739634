// Speaker front end: 239 frames of latency and a re-blocking that does not depend on how a stream is split,
// the three host formats, the mono parameter's short copy on 16-bit streams, the init log line and record,
// the enable flag (never a bypass), FIFO underflow, and odd sizes, channel counts and null arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <tuple>
#include <vector>

#include "kafx_proc/speaker_boost.h"
#include "support/log_capture.h"
#include "support/variants.h"

namespace {

using V = std::vector<int32_t>;
constexpr int kLatency = 239;

struct Handle {
  kafx_speaker_boost_t* h;
  Handle(unsigned c, unsigned r, int f) : h(static_cast<kafx_speaker_boost_t*>(kafx_speaker_boost_init(c, r, f))) {}
  ~Handle() { kafx_speaker_boost_deinit(h); }
  kedo_speaker_boost_t* chain() { return &h->chain; }
  // Interleaved samples, held as int32 and stored in the handle's container (16 or 32 bits), processed in
  // calls of `frames_per_call` frames; returns the buffer afterwards.
  V run(const V& in, size_t frames_per_call = 1u << 20) {
    std::vector<int16_t> b16(in.begin(), in.end());
    V b32 = in;
    auto* bytes = h->bit_width == 16 ? reinterpret_cast<char*>(b16.data()) : reinterpret_cast<char*>(b32.data());
    const size_t frame_bytes = h->channels * static_cast<size_t>(h->bytes_per_sample);
    for (size_t f = 0, frames = in.size() / h->channels; f < frames; f += frames_per_call)
      kafx_speaker_boost_process(h, bytes + f * frame_bytes,
                                 static_cast<unsigned>(std::min(frames_per_call, frames - f) * frame_bytes));
    return h->bit_width == 16 ? V(b16.begin(), b16.end()) : b32;
  }
};

V noise(size_t n, int lo, int hi, unsigned seed) { return kafx_test::random_values<int32_t>(n, seed, lo, hi); }

TEST(SpeakerFrontEnd, InitLogLineAndRecord) {
  kafx_test::LogCapture log;
  Handle hd(2, 44100, 7);
  ASSERT_EQ(log.all().size(), 1u);
  EXPECT_TRUE(log.all()[0].tag == "kafx_sp_wrapper" && log.all()[0].priority == ANDROID_LOG_DEBUG);
  EXPECT_EQ(log.all()[0].message, "kafx_speaker_boost_init: sample_rate 44100, format_type 7");
  const kafx_sp_params_t zero{};
  EXPECT_EQ(0, std::memcmp(&hd.h->params, &zero, sizeof zero));
  // Format argument -> stored format, sample bits and bytes (also the FIFOs' width); the rate reaches the chain.
  for (auto [arg, format, bits, bytes] : {std::tuple{7, 0, 32, 4}, {0, 0, 32, 4}, {1, 1, 16, 2}, {2, 2, 32, 4},
                                          {3, 3, 32, 4}}) {
    Handle g(2, 44100, arg);
    const kafx_speaker_boost_t& s = *g.h;
    EXPECT_EQ((V{s.enable, s.format_type, s.bit_width, s.bytes_per_sample, s.in_left_fifo.width,
                 s.out_right_fifo.width, s.in_right_fifo.capacity, s.out_left_fifo.capacity, s.chain.rate_type}),
              (V{1, format, bits, bytes, bits, bits, 240, 240, SAMPLE_RATE_44100})) << arg;
  }
}

// Buffers of 1, 100, 240, 1000 and 4801 frames give the same output through a stateful chain (balance mix
// and the boost system's look-ahead limiters); with every block off it is the input 239 frames later.
TEST(SpeakerFrontEnd, LatencyAndBlockingAreSplitIndependent) {
  const V input = noise(5000 * 2, -32768, 32767, 1);
  V first;
  for (size_t split : {1, 100, 240, 1000, 4801}) {
    Handle hd(2, 48000, 1);
    kedo_speaker_boost_cb_set_channel_ration(hd.chain(), 1000);
    kedo_speaker_boost_sbs_setstatus(hd.chain(), 1);
    const V out = hd.run(input, split);
    if (split == 1) first = out;
    EXPECT_EQ(out, first) << split;
  }
  EXPECT_NE(first, V(first.size())) << "the comparison saw only silence";
  Handle off(2, 48000, 1);
  kedo_speaker_boost_cb_setstatus(off.chain(), 0);
  const V out = off.run(input, 333);
  EXPECT_EQ(V(out.begin(), out.begin() + 2 * kLatency), V(2 * kLatency));
  EXPECT_EQ(V(out.begin() + 2 * kLatency, out.end()), V(input.begin(), input.end() - 2 * kLatency));
}

// Stated samples of each host format, every block off but the chain's clamp to +-8388607 (format 1 takes the
// left side x 1.5 in the equalizer to reach the 16-bit limits and halves), and the output 239 frames later.
TEST(SpeakerFrontEnd, FormatConversions) {
  const std::tuple<int, V, V> cases[] = {
      // x 256 in; add 128, >> 8 and saturate out: 8388607 -> 32767, -8388607 -> -32768, 384 -> 2, -384 -> -1.
      {1, {32767, 1, -32768, -1, 1, 0, -1, 0}, {32767, 1, -32768, -1, 2, 0, -1, 0}},
      {2, {9000000, -9000000, 5, -5}, {8388607, -8388607, 5, -5}}, // working samples as they are
      {7, {9000000, -9000000, 5, -5}, {8388607, -8388607, 5, -5}}, // any other format: the same
      // Full scale: (x + 128) >> 8 without overflow in, << 8 out.
      {3, {INT32_MAX, INT32_MIN, 1000, -129}, {2147483392, -8388607 * 256, 1024, -256}},
  };
  for (const auto& [format, in, want] : cases) {
    Handle hd(2, 48000, format);
    kedo_speaker_boost_cb_setstatus(hd.chain(), 0);
    kedo_speaker_boost_p_eq_setstatus(hd.chain(), format == 1);
    kedo_speaker_boost_p_eq_set_gain_left(hd.chain(), 12288);
    V buf(2 * 480);
    std::copy(in.begin(), in.end(), buf.begin());
    const V out = hd.run(buf);
    EXPECT_EQ(V(out.begin(), out.begin() + 2 * kLatency), V(2 * kLatency)) << format;
    EXPECT_EQ(V(out.begin() + 2 * kLatency, out.begin() + 2 * kLatency + want.size()), want) << format;
  }
}

// channel_num 1 in the record: 240 x bytes_per_sample bytes of the left result go over the right one, so on
// 16-bit streams only the first 120 right working samples; 32-bit containers get the whole block.
TEST(SpeakerFrontEnd, MonoParameterCopiesBytesPerSampleTimes240) {
  for (int format : {1, 2}) {
    Handle hd(2, 48000, format);
    hd.h->params.sbs.channel_num = 1;
    V in(2 * 480);
    for (int f = 0; f < 480; ++f) in[2 * f] = f + 1, in[2 * f + 1] = -(f + 1);
    const V out = hd.run(in);
    for (int i = 0; i < 240; ++i) { // output frames 239.. carry input block 0
      ASSERT_EQ(out[2 * (kLatency + i)], i + 1) << format << " " << i;
      ASSERT_EQ(out[2 * (kLatency + i) + 1], format == 1 && i >= 120 ? -(i + 1) : i + 1) << format << " " << i;
    }
  }
}

// set_enable(0) is stored and reported but still re-blocks and delays; reset leaves the FIFOs as they are.
// An empty FIFO pops silence and sets its write index to its read index.
TEST(SpeakerFrontEnd, EnableFlagIsNoBypassResetKeepsFifosAndUnderflowRealigns) {
  Handle hd(2, 48000, 2);
  kafx_speaker_boost_set_enable(hd.h, 0);
  int e = 9;
  kafx_speaker_boost_get_enable(hd.h, &e);
  EXPECT_TRUE(e == 0 && hd.h->chain.enable == 0);
  const V out = hd.run(V(2 * 300, 5));
  EXPECT_TRUE(out[2 * kLatency - 1] == 0 && out[2 * kLatency] == 5);
  kafx_speaker_boost_reset(hd.h);
  EXPECT_TRUE(hd.h->in_left_fifo.count == 60 && hd.h->out_left_fifo.count == 179);
  Handle empty(2, 48000, 2);
  empty.h->out_left_fifo.read_index = 17;
  EXPECT_EQ(empty.run(V(2 * 10, 3)), V(2 * 10));
  EXPECT_TRUE(empty.h->out_left_fifo.count == 0 && empty.h->out_left_fifo.write_index == 17);
}

// Nulls are ignored; stray bytes after the last whole frame are left alone; the frame stride follows the
// channel count: a mono stream feeds both sides (left := right shows it) and takes the left result, only the
// first two samples of a wider frame are touched, and no channels means nothing to do.
TEST(SpeakerFrontEnd, NullsPartialFramesAndChannelCounts) {
  kafx_speaker_boost_process(nullptr, nullptr, 100);
  kafx_speaker_boost_reset(nullptr);
  kafx_speaker_boost_set_enable(nullptr, 1);
  kafx_speaker_boost_get_enable(nullptr, nullptr);
  kafx_speaker_boost_deinit(nullptr);
  Handle hd(2, 48000, 1);
  kafx_speaker_boost_process(hd.h, nullptr, 100);
  std::vector<uint8_t> raw(15, 0xAB); // 3 whole stereo 16-bit frames and 3 stray bytes
  kafx_speaker_boost_process(hd.h, raw.data(), 15);
  EXPECT_EQ(raw, (std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xAB, 0xAB, 0xAB}));
  EXPECT_EQ(hd.h->in_left_fifo.count, 3);

  Handle mono(1, 48000, 1);
  kedo_speaker_boost_cb_set_channel_ration(mono.chain(), 8192);
  const V m = noise(600, -20000, 20000, 3), mo = mono.run(m);
  EXPECT_EQ(V(mo.begin() + kLatency, mo.end()), V(m.begin(), m.end() - kLatency));

  Handle quad(4, 48000, 3);
  V q(4 * 500);
  for (size_t i = 0; i < q.size(); ++i) q[i] = static_cast<int32_t>(i * 1001 + 7);
  const V qo = quad.run(q);
  for (size_t f = 0; f < 500; ++f) {
    ASSERT_TRUE(qo[4 * f + 2] == q[4 * f + 2] && qo[4 * f + 3] == q[4 * f + 3]) << f;
    ASSERT_EQ(qo[4 * f], f < kLatency ? 0 : ((q[4 * (f - kLatency)] + 128) >> 8) * 256) << f;
  }

  Handle none(0, 48000, 1);
  std::vector<int16_t> z(64, 1234);
  kafx_speaker_boost_process(none.h, z.data(), 128);
  EXPECT_EQ(z, std::vector<int16_t>(64, 1234));
}

} // namespace
