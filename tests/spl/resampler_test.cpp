// The general resampler: mode selection, every mode's output against the
// reference stages chained as the mode table lists them, the -1 cases and
// the deliberate departures from the published resampler (unsupported pairs
// copy, mode 0 ignores max_out_len, 3:2 checks its block rule late).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "kafx_proc/spl.h"
#include "spl/oracle.h"

using namespace spltest;

namespace {

// ---------------------------------------------------------------------------
// Reference chains built from the published stages.

enum Stage { kUp, kDown, k16To48, k48To16, k8To22, k16To22, k22To16, k22To8 };

struct StageInfo {
  int words, in_block, out_block;  // state words, samples in / out per call
};

const StageInfo kStageInfo[] = {
    {8, 1, 2},     {8, 2, 1},      {24, 160, 480}, {32, 480, 160},
    {24, 80, 220}, {16, 160, 220}, {24, 220, 160}, {32, 220, 80},
};

struct ModeCase {
  int in_rate, out_rate;  // a pair that reduces to the mode's ratio
  int num, den;           // out = in * num / den
  int block;              // in_len must be a multiple of this (1: any)
  std::vector<Stage> chain;
};

const ModeCase kModes[21] = {
    {16000, 16000, 1, 1, 1, {}},
    {8000, 16000, 2, 1, 1, {kUp}},
    {16000, 48000, 3, 1, 160, {k16To48}},
    {8000, 32000, 4, 1, 1, {kUp, kUp}},
    {8000, 48000, 6, 1, 80, {kUp, k16To48}},
    {8000, 96000, 12, 1, 40, {kUp, kUp, k16To48}},
    {32000, 48000, 3, 2, 160, {k16To48, kDown}},
    {8000, 44000, 11, 2, 80, {kUp, k8To22}},
    {16000, 44000, 11, 4, 80, {k8To22}},
    {32000, 44000, 11, 8, 160, {k16To22}},
    {11000, 16000, 16, 11, 110, {kUp, k22To16}},
    {11000, 32000, 32, 11, 110, {kUp, k22To16, kUp}},
    {16000, 8000, 1, 2, 1, {kDown}},
    {48000, 16000, 1, 3, 480, {k48To16}},
    {32000, 8000, 1, 4, 1, {kDown, kDown}},
    {48000, 8000, 1, 6, 480, {k48To16, kDown}},
    {96000, 8000, 1, 12, 480, {k48To16, kDown, kDown}},
    {48000, 32000, 2, 3, 240, {kUp, k48To16}},
    {44000, 8000, 2, 11, 220, {k22To8, kDown}},
    {44000, 16000, 4, 11, 220, {k22To8}},
    {44000, 32000, 8, 11, 220, {k22To16}},
};

// Runs one stage of the reference over n samples; returns the output count.
size_t ref_stage(Stage s, const int16_t* in, size_t n, int16_t* out, int32_t* st) {
  int32_t tmp[512];
  const StageInfo& info = kStageInfo[s];
  if (s == kUp) {
    WebRtcSpl_UpsampleBy2(in, n, out, st);
    return 2 * n;
  }
  if (s == kDown) {
    WebRtcSpl_DownsampleBy2(in, n, out, st);
    return n / 2;
  }
  size_t o = 0;
  for (size_t i = 0; i < n; i += info.in_block, o += info.out_block) {
    switch (s) {
      case k16To48:
        WebRtcSpl_Resample16khzTo48khz(in + i, out + o, st, tmp);
        break;
      case k48To16:
        WebRtcSpl_Resample48khzTo16khz(in + i, out + o, st, tmp);
        break;
      case k8To22:
        WebRtcSpl_Resample8khzTo22khz(in + i, out + o, st, tmp);
        break;
      case k16To22:
        WebRtcSpl_Resample16khzTo22khz(in + i, out + o, st, tmp);
        break;
      case k22To16:
        WebRtcSpl_Resample22khzTo16khz(in + i, out + o, st, tmp);
        break;
      case k22To8:
        WebRtcSpl_Resample22khzTo8khz(in + i, out + o, st, tmp);
        break;
      default:
        break;
    }
  }
  return o;
}

struct RefChain {
  const ModeCase& mode_case;
  std::vector<std::vector<int32_t>> states;

  explicit RefChain(const ModeCase& m) : mode_case(m) {
    for (Stage s : m.chain) states.emplace_back(kStageInfo[s].words, 0);
  }

  std::vector<int16_t> run(const std::vector<int16_t>& in) {
    std::vector<int16_t> cur = in;
    for (size_t k = 0; k < mode_case.chain.size(); ++k) {
      std::vector<int16_t> next(cur.size() * 3 + 8);
      const size_t n =
          ref_stage(mode_case.chain[k], cur.data(), cur.size(), next.data(), states[k].data());
      next.resize(n);
      cur.swap(next);
    }
    return cur;
  }
};

int* stage_state(Resampler_t& r, size_t k) {
  return k == 0 ? r.stage1_state : k == 1 ? r.stage2_state : r.stage3_state;
}

// ---------------------------------------------------------------------------

TEST(Resampler, RecordLayout) {
  // Twelve fields in the stated order.
  EXPECT_LT(offsetof(Resampler_t, stage1_state), offsetof(Resampler_t, stage2_state));
  EXPECT_LT(offsetof(Resampler_t, stage3_state), offsetof(Resampler_t, spare_buffer_a));
  EXPECT_LT(offsetof(Resampler_t, spare_buffer_b), offsetof(Resampler_t, spare_size_a));
  EXPECT_EQ(offsetof(Resampler_t, in_khz) + sizeof(int), offsetof(Resampler_t, out_khz));
  EXPECT_EQ(offsetof(Resampler_t, out_khz) + sizeof(int), offsetof(Resampler_t, mode));
  EXPECT_EQ(offsetof(Resampler_t, spare_size_a) + 6 * sizeof(int), offsetof(Resampler_t, mode));
}

TEST(Resampler, ConfigChoosesModeAndStates) {
  for (int mode = 0; mode < 21; ++mode) {
    const ModeCase& m = kModes[mode];
    Resampler_t r;
    std::memset(&r, 0x33, sizeof r);  // config zeroes whatever was there
    Resampler_config(&r, m.in_rate, m.out_rate);
    EXPECT_EQ(r.mode, mode) << m.in_rate << " -> " << m.out_rate;
    EXPECT_EQ(r.in_khz, m.in_rate / 1000);
    EXPECT_EQ(r.out_khz, m.out_rate / 1000);
    for (size_t k = 0; k < 3; ++k) {
      EXPECT_EQ(stage_state(r, k) != nullptr, k < m.chain.size())
          << "mode " << mode << " stage " << k;
    }
    EXPECT_EQ(r.spare_buffer_a, nullptr);
    EXPECT_EQ(r.spare_buffer_b, nullptr);
    EXPECT_EQ(r.spare_size_a | r.spare_size_b | r.spare_max_a | r.spare_max_b, 0);
    Resampler_delete(&r);
  }
  // The ratio is what counts: 48000:96000 is 1:2 as well.
  Resampler_t r;
  Resampler_config(&r, 48000, 96000);
  EXPECT_EQ(r.mode, 1);
  Resampler_delete(&r);
}

TEST(Resampler, EveryModeMatchesReferenceChain) {
  int calls = 0;
  for (int mode = 0; mode < 21; ++mode) {
    const ModeCase& m = kModes[mode];
    for (Signal kind : {Signal::kRandom, Signal::kFullScale, Signal::kSweep, Signal::kImpulse}) {
      std::mt19937 rng(700 + mode);
      Source src(kind, 800 + mode);
      Resampler_t r;
      Resampler_init(&r);
      Resampler_config(&r, m.in_rate, m.out_rate);
      RefChain ref(m);
      for (int b = 0; b < 24; ++b, ++calls) {
        // One to three blocks of the mode's size (any length up to 500 when
        // the mode has no block rule).
        const int len = m.block == 1 ? std::uniform_int_distribution<int>(0, 500)(rng)
                                     : m.block * std::uniform_int_distribution<int>(1, 3)(rng);
        const auto in = src.block(len);
        const auto expect = ref.run(in);
        const int produced = static_cast<int>(static_cast<int64_t>(len) * m.num / m.den);
        ASSERT_EQ(expect.size(), static_cast<size_t>(produced));
        std::vector<int16_t> out(produced + 1, 7);
        int out_len = -5;
        ASSERT_EQ(0, Resampler_proc(&r, in.data(), len, out.data(), produced, &out_len))
            << "mode " << mode << " len " << len;
        ASSERT_EQ(out_len, produced);
        ASSERT_TRUE(std::equal(expect.begin(), expect.end(), out.begin()))
            << "mode " << mode << " block " << b;
        EXPECT_EQ(out[produced], 7);
        for (size_t k = 0; k < m.chain.size(); ++k) {
          ASSERT_EQ(0, std::memcmp(stage_state(r, k), ref.states[k].data(),
                                   sizeof(int32_t) * ref.states[k].size()))
              << "mode " << mode << " stage " << k;
        }
      }
      Resampler_delete(&r);
    }
  }
  EXPECT_EQ(calls, 21 * 4 * 24);
}

// The published resampler agrees wherever it accepts the call (supported
// ratios, whole blocks, enough room).
TEST(Resampler, MatchesPublishedResampler) {
  for (int mode = 1; mode < 21; ++mode) {
    const ModeCase& m = kModes[mode];
    Source src(Signal::kSweep, 950 + mode);
    Resampler_t r;
    Resampler_init(&r);
    Resampler_config(&r, m.in_rate, m.out_rate);
    webrtc::Resampler ref(m.in_rate, m.out_rate, 1);
    const int len = m.block == 1 ? 330 : 2 * m.block;
    for (int b = 0; b < 6; ++b) {
      const auto in = src.block(len);
      const int produced = static_cast<int>(static_cast<int64_t>(len) * m.num / m.den);
      std::vector<int16_t> out(produced + 1, 7), expect(produced + 1, 7);
      int out_len = 0;
      size_t ref_len = 0;
      ASSERT_EQ(0, Resampler_proc(&r, in.data(), len, out.data(), produced, &out_len));
      ASSERT_EQ(0, ref.Push(in.data(), len, expect.data(), produced, ref_len)) << "mode " << mode;
      ASSERT_EQ(static_cast<size_t>(out_len), ref_len);
      ASSERT_EQ(out, expect) << "mode " << mode << " block " << b;
    }
    Resampler_delete(&r);
  }
}

// Rejected calls write nothing and (except 3:2's late block check) leave the
// filter states alone: the stream afterwards still matches a reference that
// never saw them.
TEST(Resampler, RejectedCallsLeaveOutputAndStateAlone) {
  for (int mode = 1; mode < 21; ++mode) {
    const ModeCase& m = kModes[mode];
    Source src(Signal::kRandom, 900 + mode);
    Resampler_t r;
    Resampler_init(&r);
    Resampler_config(&r, m.in_rate, m.out_rate);
    RefChain ref(m);
    const int len = m.block == 1 ? 240 : m.block * 2;
    for (int b = 0; b < 4; ++b) {
      const auto in = src.block(len);
      const int produced = static_cast<int>(static_cast<int64_t>(len) * m.num / m.den);
      std::vector<int16_t> out(produced + 8, 7);
      int out_len = -5;
      // Output one sample too long for the caller's room.
      EXPECT_EQ(-1, Resampler_proc(&r, in.data(), len, out.data(), produced - 1, &out_len))
          << "mode " << mode;
      // A length off the block rule (3:2 excluded, see its own test).
      if (m.block > 1 && mode != 17) {
        EXPECT_EQ(-1, Resampler_proc(&r, in.data(), len - 1, out.data(), produced + 8, &out_len))
            << "mode " << mode;
        EXPECT_EQ(-1,
                  Resampler_proc(&r, in.data(), len + m.block / 2, out.data(), 1 << 20, &out_len));
      }
      EXPECT_EQ(out_len, -5);
      EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](int16_t v) { return v == 7; }));
      ASSERT_EQ(0, Resampler_proc(&r, in.data(), len, out.data(), produced, &out_len));
      const auto expect = ref.run(in);
      ASSERT_TRUE(std::equal(expect.begin(), expect.end(), out.begin())) << "mode " << mode;
    }
    Resampler_delete(&r);
  }
}

// 3:2 (48 -> 32 kHz): the output-length check comes first and rejects
// without touching the state; a length that passes it but is no multiple of
// 240 is rejected only after the first stage (the by-2 interpolator) has run
// on it, so that stage's history has moved on.
TEST(Resampler, ThreeToTwoChecksItsBlockRuleAfterTheFirstStage) {
  const ModeCase& m = kModes[17];
  Source src(Signal::kSweep, 17);
  Resampler_t r;
  Resampler_init(&r);
  Resampler_config(&r, 48000, 32000);
  RefChain ref(m);
  int out_len = -5;
  std::vector<int16_t> out(1024, 7);

  const auto first = src.block(240);
  ASSERT_EQ(0, Resampler_proc(&r, first.data(), 240, out.data(), 160, &out_len));
  ref.run(first);

  const auto odd = src.block(100);
  // Too long for 10 samples of room: rejected before anything runs.
  EXPECT_EQ(-1, Resampler_proc(&r, odd.data(), 100, out.data(), 10, &out_len));
  // Fits (66 <= 1024) but 200 is no multiple of 480: rejected after the
  // interpolator ran.
  EXPECT_EQ(-1, Resampler_proc(&r, odd.data(), 100, out.data(), 1024, &out_len));
  EXPECT_EQ(out_len, 160);
  std::vector<int16_t> sink(200);
  WebRtcSpl_UpsampleBy2(odd.data(), 100, sink.data(), ref.states[0].data());

  for (int b = 0; b < 4; ++b) {
    const auto in = src.block(480);
    ASSERT_EQ(0, Resampler_proc(&r, in.data(), 480, out.data(), 320, &out_len));
    const auto expect = ref.run(in);
    ASSERT_TRUE(std::equal(expect.begin(), expect.end(), out.begin())) << "block " << b;
  }
  Resampler_delete(&r);
}

TEST(Resampler, StatedExamples) {
  Resampler_t r;
  int out_len = 0;
  std::vector<int16_t> out(2048);
  Source src(Signal::kRandom, 3);

  Resampler_init(&r);
  Resampler_config(&r, 48000, 16000);
  EXPECT_EQ(r.mode, 13);
  auto in = src.block(480);
  EXPECT_EQ(0, Resampler_proc(&r, in.data(), 480, out.data(), 2048, &out_len));
  EXPECT_EQ(out_len, 160);
  EXPECT_EQ(-1, Resampler_proc(&r, in.data(), 470, out.data(), 2048, &out_len));
  Resampler_delete(&r);

  Resampler_init(&r);
  Resampler_config(&r, 16000, 48000);
  EXPECT_EQ(r.mode, 2);
  EXPECT_EQ(0, Resampler_proc(&r, in.data(), 160, out.data(), 2048, &out_len));
  EXPECT_EQ(out_len, 480);
  Resampler_delete(&r);

  // Equal rates and unsupported pairs copy, whatever max_out_len says.
  for (int in_rate : {16000, 44100}) {
    Resampler_init(&r);
    Resampler_config(&r, in_rate, 16000);
    EXPECT_EQ(r.mode, 0);
    EXPECT_EQ(r.stage1_state, nullptr);
    std::fill(out.begin(), out.end(), 7);
    EXPECT_EQ(0, Resampler_proc(&r, in.data(), 441, out.data(), 10, &out_len));
    EXPECT_EQ(out_len, 441);
    EXPECT_TRUE(std::equal(in.begin(), in.begin() + 441, out.begin()));
    EXPECT_EQ(out[441], 7);
    Resampler_delete(&r);
  }

  // 2:1 with an odd length rounds down.
  Resampler_init(&r);
  Resampler_config(&r, 32000, 16000);
  EXPECT_EQ(r.mode, 12);
  EXPECT_EQ(0, Resampler_proc(&r, in.data(), 101, out.data(), 2048, &out_len));
  EXPECT_EQ(out_len, 50);
  Resampler_delete(&r);
}

TEST(Resampler, ModeAboveTwentyWritesNothing) {
  Resampler_t r;
  Resampler_init(&r);
  r.mode = 21;
  std::vector<int16_t> in(480, 100), out(480, 7);
  int out_len = -5;
  EXPECT_EQ(0, Resampler_proc(&r, in.data(), 480, out.data(), 480, &out_len));
  EXPECT_EQ(out_len, -5);
  EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](int16_t v) { return v == 7; }));
}

TEST(Resampler, DeleteAfterInitFreesNothing) {
  Resampler_t r;
  Resampler_init(&r);
  EXPECT_EQ(r.stage1_state, nullptr);
  EXPECT_EQ(r.mode, 0);
  Resampler_delete(&r);  // all pointers null: nothing to free
  Resampler_delete(&r);
  EXPECT_EQ(r.stage1_state, nullptr);
}

}  // namespace
