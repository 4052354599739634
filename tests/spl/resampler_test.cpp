// The general resampler: every mode against the published stages chained
// as the mode table lists them (long and short inputs in one stream), the -1
// cases (which leave output and state alone, except for 3:2's late block
// check) and the deliberate departures from the published resampler
// (unsupported pairs copy, mode 0 ignores max_out_len).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "kafx_proc/spl.h"
#include "spl/oracle.h"

using namespace spltest;

namespace {

// Reference stages of the mode chains: the 16-bit by-2 stages over any
// length, the fixed-ratio resamplers block by block.
enum StageId { kUp, kDown, k16To48, k48To16, k8To22, k16To22, k22To16, k22To8 };
struct RefStage {
  int words, in_blk, out_blk;
  void (*fixed)(const int16_t*, int16_t*, void*, int32_t*);
};
const RefStage kRefStages[] = {
    {8, 1, 2, nullptr}, {8, 2, 1, nullptr},
    {24, 160, 480, WebRtcSpl_Resample16khzTo48khz}, {32, 480, 160, WebRtcSpl_Resample48khzTo16khz},
    {24, 80, 220, WebRtcSpl_Resample8khzTo22khz},   {16, 160, 220, WebRtcSpl_Resample16khzTo22khz},
    {24, 220, 160, WebRtcSpl_Resample22khzTo16khz}, {32, 220, 80, WebRtcSpl_Resample22khzTo8khz},
};

std::vector<int16_t> run_ref(StageId id, const std::vector<int16_t>& in, int32_t* st) {
  const RefStage& s = kRefStages[id];
  std::vector<int16_t> out(in.size() * s.out_blk / s.in_blk);
  int32_t tmp[512];
  if (id == kUp) WebRtcSpl_UpsampleBy2(in.data(), in.size(), out.data(), st);
  if (id == kDown) WebRtcSpl_DownsampleBy2(in.data(), in.size(), out.data(), st);
  for (size_t i = 0, o = 0; s.fixed && i < in.size(); i += s.in_blk, o += s.out_blk)
    s.fixed(in.data() + i, out.data() + o, st, tmp);
  return out;
}

struct Mode {
  int in_rate, out_rate;  // a pair that reduces to the mode's ratio
  int block;              // in_len must be a multiple of this
  std::vector<StageId> chain;
};

const Mode kModes[21] = {
    {16000, 16000, 1, {}},
    {8000, 16000, 1, {kUp}},
    {16000, 48000, 160, {k16To48}},
    {8000, 32000, 1, {kUp, kUp}},
    {8000, 48000, 80, {kUp, k16To48}},
    {8000, 96000, 40, {kUp, kUp, k16To48}},
    {32000, 48000, 160, {k16To48, kDown}},
    {8000, 44000, 80, {kUp, k8To22}},
    {16000, 44000, 80, {k8To22}},
    {32000, 44000, 160, {k16To22}},
    {11000, 16000, 110, {kUp, k22To16}},
    {11000, 32000, 110, {kUp, k22To16, kUp}},
    {32000, 16000, 1, {kDown}},  // down-sampling from here on
    {48000, 16000, 480, {k48To16}},
    {32000, 8000, 1, {kDown, kDown}},
    {48000, 8000, 480, {k48To16, kDown}},
    {96000, 8000, 480, {k48To16, kDown, kDown}},
    {48000, 32000, 240, {kUp, k48To16}},
    {44000, 8000, 220, {k22To8, kDown}},
    {44000, 16000, 220, {k22To8}},
    {44000, 32000, 220, {k22To16}},
};

int produced(const Mode& m, int len) {
  return static_cast<int>(static_cast<int64_t>(len) * m.out_rate / m.in_rate);
}

TEST(Resampler, EveryModeMatchesReferenceChain) {
  for (int mode = 0; mode < 21; ++mode) {
    const Mode& m = kModes[mode];
    for (Signal kind : kSignals) {
      std::mt19937 rng(700 + mode);
      Source src(kind, 800 + mode);
      Resampler_t r;
      std::memset(&r, 0x33, sizeof r);  // config zeroes whatever was there
      Resampler_config(&r, m.in_rate, m.out_rate);
      ASSERT_EQ(r.mode, mode) << m.in_rate << " -> " << m.out_rate;
      EXPECT_TRUE(r.in_khz == m.in_rate / 1000 && r.out_khz == m.out_rate / 1000);
      EXPECT_TRUE(r.spare_buffer_a == nullptr && r.spare_buffer_b == nullptr);
      EXPECT_EQ(r.spare_size_a | r.spare_size_b | r.spare_max_a | r.spare_max_b, 0);
      int* const states[3] = {r.stage1_state, r.stage2_state, r.stage3_state};
      std::vector<std::vector<int32_t>> ref_st;
      for (size_t k = 0; k < 3; ++k) {
        ASSERT_EQ(states[k] != nullptr, k < m.chain.size()) << "mode " << mode << " stage " << k;
        if (k < m.chain.size()) ref_st.emplace_back(kRefStages[m.chain[k]].words);
      }
      for (int b = 0; b < 16; ++b) {
        // First inputs of several thousand samples (the chains run them in
        // passes of a few hundred), then any length up to 500 without a block
        // rule, else one to three blocks.
        const int len = b == 0   ? m.block * (5281 / m.block)
                        : b == 1 ? (m.block == 1 ? 4803 : m.block * (1000 / m.block + 1))
                        : m.block == 1 ? std::uniform_int_distribution<int>(0, 500)(rng)
                                       : m.block * std::uniform_int_distribution<int>(1, 3)(rng);
        auto in = src.block(len + m.block);
        std::vector<int16_t> out(12 * in.size() + 4, 7);
        int out_len = -5;
        if (mode > 0) {
          // No room for the output (checked first), then a length off the
          // block rule: -1, nothing written, and the stream goes on as if
          // the calls never happened; but 3:2 finds the length wrong only
          // after its first stage has run on it.
          EXPECT_EQ(-1, Resampler_proc(&r, in.data(), len, out.data(), produced(m, len) - 1,
                                       &out_len));
          if (m.block > 1) {
            const int off = len + m.block / 2;
            EXPECT_EQ(-1, Resampler_proc(&r, in.data(), off, out.data(), produced(m, off) - 1,
                                         &out_len));
            EXPECT_EQ(-1, Resampler_proc(&r, in.data(), off, out.data(), 1 << 20, &out_len));
            if (mode == 17) run_ref(kUp, {in.begin(), in.begin() + off}, ref_st[0].data());
          }
          EXPECT_EQ(out_len, -5);
          ASSERT_TRUE(std::all_of(out.begin(), out.end(), [](int16_t v) { return v == 7; }))
              << "mode " << mode << ": a rejected call wrote";
        }
        in.resize(len);
        auto expect = in;
        for (size_t k = 0; k < m.chain.size(); ++k)
          expect = run_ref(m.chain[k], expect, ref_st[k].data());
        ASSERT_EQ(expect.size(), static_cast<size_t>(produced(m, len)));
        // Mode 0 copies whatever max_out_len says.
        ASSERT_EQ(0, Resampler_proc(&r, in.data(), len, out.data(), mode ? produced(m, len) : 0,
                                    &out_len))
            << "mode " << mode << " len " << len;
        ASSERT_EQ(out_len, produced(m, len));
        ASSERT_TRUE(std::equal(expect.begin(), expect.end(), out.begin()))
            << "mode " << mode << " block " << b;
        EXPECT_EQ(out[out_len], 7);
        for (size_t k = 0; k < m.chain.size(); ++k) {
          ASSERT_EQ(0, std::memcmp(states[k], ref_st[k].data(), 4 * ref_st[k].size()))
              << "mode " << mode << " stage " << k << " block " << b;
        }
      }
      Resampler_delete(&r);
    }
  }
}

TEST(Resampler, Examples) {
  struct Example { int in_rate, out_rate, mode, in_len, max_out_len, ret, out_len; };
  const Example kExamples[] = {
      {48000, 16000, 13, 480, 2048, 0, 160}, {48000, 16000, 13, 470, 2048, -1, -5},
      {16000, 48000, 2, 160, 2048, 0, 480},  {32000, 16000, 12, 101, 2048, 0, 50},
      {48000, 96000, 1, 100, 200, 0, 200},   // only the reduced ratio counts
      {16000, 16000, 0, 441, 10, 0, 441},    {44100, 16000, 0, 441, 10, 0, 441},
  };
  Source src(Signal::kRandom, 3);
  const auto in = src.block(480);
  for (const Example& e : kExamples) {
    Resampler_t r;
    Resampler_init(&r);
    Resampler_config(&r, e.in_rate, e.out_rate);
    EXPECT_EQ(r.mode, e.mode) << e.in_rate << " -> " << e.out_rate;
    std::vector<int16_t> out(2048, 7);
    int out_len = -5;
    EXPECT_EQ(Resampler_proc(&r, in.data(), e.in_len, out.data(), e.max_out_len, &out_len), e.ret);
    EXPECT_EQ(out_len, e.out_len) << e.in_rate << " -> " << e.out_rate << ", " << e.in_len;
    if (e.mode == 0) {
      EXPECT_TRUE(std::equal(in.begin(), in.begin() + 441, out.begin()));
      EXPECT_EQ(out[441], 7);
    }
    Resampler_delete(&r);
  }
}

TEST(Resampler, BareRecordAndUnknownMode) {
  Resampler_t r;
  std::memset(&r, 0x33, sizeof r);
  Resampler_init(&r);
  const unsigned char zero[sizeof r] = {};
  EXPECT_EQ(0, std::memcmp(&r, zero, sizeof r));
  Resampler_delete(&r);  // nothing to free, twice
  Resampler_delete(&r);

  r.mode = 21;  // no such mode: success, nothing written
  std::vector<int16_t> in(480, 100), out(480, 7);
  int out_len = -5;
  EXPECT_EQ(0, Resampler_proc(&r, in.data(), 480, out.data(), 480, &out_len));
  EXPECT_EQ(out_len, -5);
  EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](int16_t v) { return v == 7; }));
}

}  // namespace
