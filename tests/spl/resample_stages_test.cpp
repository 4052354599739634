// By-2, fractional and fixed-ratio resamplers against the published
// routines: the same input streams go through both, block after block, and
// the outputs and the carried states must agree bit for bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "kafx_proc/spl.h"
#include "spl/oracle.h"
#include "spl/spl_internal.h"

using namespace spltest;

namespace {

const char* name(Signal s) {
  static const char* const kNames[] = {"random",  "quiet",   "full-scale", "square",
                                       "silence", "impulse", "sweep"};
  return kNames[static_cast<int>(s)];
}

// ---------------------------------------------------------------------------
// 16-bit by-2 stages, random block lengths (odd ones included for the
// decimator, whose last odd sample is dropped).

using By2 = void (*)(const int16_t*, int, int16_t*, int32_t*);

void exported_down(const int16_t* in, int len, int16_t* out, int32_t* st) {
  kedoSpl_DownsampleBy2(in, static_cast<short>(len), out, st);
}
void exported_up(const int16_t* in, int len, int16_t* out, int32_t* st) {
  kedoSpl_UpsampleBy2(in, static_cast<short>(len), out, st);
}

// The exported stages and both internal forms they choose between (the
// lane form only where the processor runs it).
std::vector<std::pair<By2, By2>> sixteen_bit_forms() {
  std::vector<std::pair<By2, By2>> forms = {
      {exported_down, exported_up},
      {kafx::spl::downsample_by2_scalar, kafx::spl::upsample_by2_scalar}};
#if KAFX_SPL_DISPATCH
  if (__builtin_cpu_supports("avx2"))
#endif
    forms.push_back({kafx::spl::downsample_by2_lanes, kafx::spl::upsample_by2_lanes});
  return forms;
}

TEST(ResampleBy2, SixteenBitStagesMatchReference) {
  int blocks = 0;
  for (const auto& [down, up] : sixteen_bit_forms()) {
    for (Signal kind : kAllSignals) {
      std::mt19937 rng(11 + static_cast<int>(kind));
      Source src(kind, 100 + static_cast<int>(kind));
      int32_t st_down[8] = {}, ref_down[8] = {}, st_up[8] = {}, ref_up[8] = {};
      for (int b = 0; b < 60; ++b, ++blocks) {
        const int len = std::uniform_int_distribution<int>(0, 961)(rng);
        const auto in = src.block(len);
        std::vector<int16_t> out(len + 1, 7), ref(len + 1, 7);
        down(in.data(), len, out.data(), st_down);
        WebRtcSpl_DownsampleBy2(in.data(), len, ref.data(), ref_down);
        ASSERT_EQ(out, ref) << name(kind) << " down block " << b;
        ASSERT_EQ(0, std::memcmp(st_down, ref_down, sizeof st_down));

        std::vector<int16_t> up_out(2 * len + 1, 7), ref_up_out(2 * len + 1, 7);
        up(in.data(), len, up_out.data(), st_up);
        WebRtcSpl_UpsampleBy2(in.data(), len, ref_up_out.data(), ref_up);
        ASSERT_EQ(up_out, ref_up_out) << name(kind) << " up block " << b;
        ASSERT_EQ(0, std::memcmp(st_up, ref_up, sizeof st_up));
      }
    }
  }
  EXPECT_GE(blocks, 2 * 7 * 60);
}

TEST(ResampleBy2, DecimatorRunsInPlace) {
  Source src(Signal::kRandom, 5);
  int32_t st[8] = {}, ref_st[8] = {};
  for (int b = 0; b < 20; ++b) {
    auto mine = src.block(320);
    auto ref = mine;
    kedoSpl_DownsampleBy2(mine.data(), 320, mine.data(), st);
    WebRtcSpl_DownsampleBy2(ref.data(), 320, ref.data(), ref_st);
    ASSERT_EQ(mine, ref);
  }
}

// ---------------------------------------------------------------------------
// Internal-format stages.

using ShortToInt = void (*)(const short*, int, int*, int*);
using IntToInt = void (*)(const int*, int, int*, int*);
using IntToShort = void (*)(const int*, int, short*, int*);
using RefShortToInt = void (*)(const int16_t*, int32_t, int32_t*, int32_t*);
using RefIntToInt = void (*)(const int32_t*, int32_t, int32_t*, int32_t*);
using RefIntToShort = void (*)(const int32_t*, int32_t, int16_t*, int32_t*);

// Output samples per input sample, times two (decimator 1, low-pass 2,
// interpolator 4).
struct StageShape {
  const char* label;
  int out_x2;
  int state_words;
};

// Runs 60 blocks of a 16-bit source through a short -> int stage.
void check_short_to_int(ShortToInt mine, RefShortToInt ref, StageShape shape) {
  for (Signal kind : kAllSignals) {
    std::mt19937 rng(21 + static_cast<int>(kind));
    Source src(kind, 200 + static_cast<int>(kind));
    int32_t st[16] = {}, ref_st[16] = {};
    for (int b = 0; b < 60; ++b) {
      const int len = 2 * std::uniform_int_distribution<int>(0, 240)(rng);
      const auto in = src.block(len);
      const size_t n_out = static_cast<size_t>(len) * shape.out_x2 / 2;
      std::vector<int32_t> out(n_out + 2, 7), expect(n_out + 2, 7);
      mine(in.data(), len, out.data(), st);
      ref(in.data(), len, expect.data(), ref_st);
      ASSERT_EQ(out, expect) << shape.label << ' ' << name(kind) << " block " << b;
      ASSERT_EQ(0, std::memcmp(st, ref_st, sizeof(int32_t) * shape.state_words));
    }
  }
}

// Int input: the internal format of every signal kind, then arbitrary
// 32-bit words (states and sums wrap around).
template <typename OutT, typename Mine, typename Ref>
void check_int_input(Mine mine, Ref ref, StageShape shape) {
  for (int kind_i = 0; kind_i <= static_cast<int>(Signal::kSweep) + 1; ++kind_i) {
    const bool words = kind_i > static_cast<int>(Signal::kSweep);
    const Signal kind = words ? Signal::kRandom : static_cast<Signal>(kind_i);
    std::mt19937 rng(31 + kind_i);
    Source src(kind, 300 + kind_i);
    int32_t st[16] = {}, ref_st[16] = {};
    for (int b = 0; b < 60; ++b) {
      const int len = 4 * std::uniform_int_distribution<int>(0, 120)(rng);
      auto in = words ? random_words(rng, len) : internal_block(src, len);
      auto ref_in = in;
      const size_t n_out = static_cast<size_t>(len) * shape.out_x2 / 2;
      std::vector<OutT> out(n_out + 2, 7), expect(n_out + 2, 7);
      mine(in.data(), len, out.data(), st);
      ref(ref_in.data(), len, expect.data(), ref_st);
      ASSERT_EQ(out, expect) << shape.label << " input " << kind_i << " block " << b;
      ASSERT_EQ(in, ref_in) << shape.label << " scratch use of the input";
      ASSERT_EQ(0, std::memcmp(st, ref_st, sizeof(int32_t) * shape.state_words));
    }
  }
}

TEST(ResampleBy2, InternalStagesMatchReference) {
  check_short_to_int(kedoSpl_DownBy2ShortToInt, WebRtcSpl_DownBy2ShortToInt,
                     {"DownBy2ShortToInt", 1, 8});
  check_short_to_int(kedoSpl_UpBy2ShortToInt, WebRtcSpl_UpBy2ShortToInt, {"UpBy2ShortToInt", 4, 8});
  check_short_to_int(kedoSpl_LPBy2ShortToInt, WebRtcSpl_LPBy2ShortToInt,
                     {"LPBy2ShortToInt", 2, 16});
  check_int_input<int32_t>(kedoSpl_UpBy2IntToInt, WebRtcSpl_UpBy2IntToInt,
                           StageShape{"UpBy2IntToInt", 4, 8});
  check_int_input<int32_t>(kedoSpl_LPBy2IntToInt, WebRtcSpl_LPBy2IntToInt,
                           StageShape{"LPBy2IntToInt", 2, 16});
  check_int_input<int16_t>(kedoSpl_UpBy2IntToShort, WebRtcSpl_UpBy2IntToShort,
                           StageShape{"UpBy2IntToShort", 4, 8});
  check_int_input<int16_t>(kedoSpl_DownBy2IntToShort, WebRtcSpl_DownBy2IntToShort,
                           StageShape{"DownBy2IntToShort", 1, 8});
}

// The reference decimator combines its outputs two at a time and so writes
// one sample too many when len / 2 is odd; this one produces exactly
// len / 2, and those agree.
TEST(ResampleBy2, DecimatorWithOddHalfLength) {
  Source src(Signal::kRandom, 9);
  int32_t st[8] = {}, ref_st[8] = {};
  for (int len : {2, 6, 10, 318, 322}) {
    auto in = internal_block(src, len + 4);
    auto ref_in = in;
    std::vector<int16_t> out(len / 2 + 2, 7), expect(len / 2 + 2, 7);
    kedoSpl_DownBy2IntToShort(in.data(), len, out.data(), st);
    WebRtcSpl_DownBy2IntToShort(ref_in.data(), len, expect.data(), ref_st);
    for (int i = 0; i < len / 2; ++i) ASSERT_EQ(out[i], expect[i]) << len << ' ' << i;
    EXPECT_EQ(out[len / 2], 7) << "nothing beyond len / 2";
    ASSERT_EQ(0, std::memcmp(st, ref_st, sizeof st));
  }
}

// ---------------------------------------------------------------------------
// Fractional stages: separate buffers, the in-place layouts the fixed-ratio
// resamplers use, exact in place, and output ahead of the input.

struct Fractional {
  const char* label;
  void (*mine)(const int*, int*, int);
  void (*ref)(const int32_t*, int32_t*, int);
  int in_per_block, out_per_block, reach;
};

void ref_48_32(const int32_t* in, int32_t* out, int K) {
  WebRtcSpl_Resample48khzTo32khz(in, out, K);
}
void ref_32_24(const int32_t* in, int32_t* out, int K) {
  WebRtcSpl_Resample32khzTo24khz(in, out, K);
}
void ref_44_32(const int32_t* in, int32_t* out, int K) {
  WebRtcSpl_Resample44khzTo32khz(in, out, K);
}
void ref_32_22(const int32_t* in, int32_t* out, int K) {
  WebRtcSpl_32khzTo22khzIntToInt(in, out, K);
}

const Fractional kFractional[] = {
    {"48to32", kedoSpl_Resample48khzTo32khz, ref_48_32, 3, 2, 6},
    {"32to24", kedoSpl_Resample32khzTo24khz, ref_32_24, 4, 3, 6},
    {"44to32", kedoSpl_Resample44khzTo32khz, ref_44_32, 11, 8, 7},
    {"32to22", kedoSpl_32khzTo22khzIntToInt, ref_32_22, 16, 11, 7},
};

TEST(ResampleFractional, SeparateBuffersMatchReference) {
  std::mt19937 rng(41);
  Source src(Signal::kRandom, 42);
  for (const Fractional& f : kFractional) {
    for (int trial = 0; trial < 300; ++trial) {
      const int K = std::uniform_int_distribution<int>(1, 48)(rng);
      const size_t n_in = static_cast<size_t>(K) * f.in_per_block + f.reach;
      const auto in = trial % 2 ? random_words(rng, n_in) : internal_block(src, n_in);
      std::vector<int32_t> out(K * f.out_per_block + 1, 7), expect(K * f.out_per_block + 1, 7);
      f.mine(in.data(), out.data(), K);
      f.ref(in.data(), expect.data(), K);
      ASSERT_EQ(out, expect) << f.label << " K " << K;
    }
  }
}

TEST(ResampleFractional, OverlappingBuffersMatchReference) {
  std::mt19937 rng(43);
  // Output offsets relative to the input within one buffer: behind the
  // input (the fixed-ratio layouts use 8, 10 and 16), on it, and ahead.
  const int kOffsets[] = {-40, -16, -10, -9, -8, -6, -5, -1, 0, 1, 2, 3, 5, 8};
  for (const Fractional& f : kFractional) {
    for (int off : kOffsets) {
      for (int trial = 0; trial < 6; ++trial) {
        const int K = std::uniform_int_distribution<int>(1, 24)(rng);
        const int n_in = K * f.in_per_block + f.reach;
        const int base = 64;
        auto buf = random_words(rng, base + n_in + 64 + K * f.out_per_block);
        auto ref_buf = buf;
        f.mine(buf.data() + base, buf.data() + base + off, K);
        f.ref(ref_buf.data() + base, ref_buf.data() + base + off, K);
        ASSERT_EQ(buf, ref_buf) << f.label << " offset " << off << " K " << K;
      }
    }
  }
}

// ---------------------------------------------------------------------------
// Fixed-ratio resamplers: consecutive blocks of every signal kind, scratch
// of exactly the stated size, outputs and whole state records compared.

struct FixedRatio {
  const char* label;
  int in_len, out_len, scratch, state_words;
  void (*mine)(const short*, short*, void*, int*);
  void (*ref)(const int16_t*, int16_t*, void*, int32_t*);
  void (*reset)(void*);
};

template <typename State, void (*F)(const short*, short*, State*, int*)>
void call(const short* in, short* out, void* st, int* tmp) {
  F(in, out, static_cast<State*>(st), tmp);
}

template <typename State, void (*F)(State*)>
void reset(void* st) {
  F(static_cast<State*>(st));
}

const FixedRatio kFixed[] = {
    {"48to16", 480, 160, 496, 32, call<kedoSpl_State48khzTo16khz, kedoSpl_Resample48khzTo16khz>,
     WebRtcSpl_Resample48khzTo16khz,
     reset<kedoSpl_State48khzTo16khz, kedoSpl_ResetResample48khzTo16khz>},
    {"16to48", 160, 480, 336, 24, call<kedoSpl_State16khzTo48khz, kedoSpl_Resample16khzTo48khz>,
     WebRtcSpl_Resample16khzTo48khz,
     reset<kedoSpl_State16khzTo48khz, kedoSpl_ResetResample16khzTo48khz>},
    {"48to8", 480, 80, 496, 40, call<kedoSpl_State48khzTo8khz, kedoSpl_Resample48khzTo8khz>,
     WebRtcSpl_Resample48khzTo8khz,
     reset<kedoSpl_State48khzTo8khz, kedoSpl_ResetResample48khzTo8khz>},
    {"8to48", 80, 480, 336, 32, call<kedoSpl_State8khzTo48khz, kedoSpl_Resample8khzTo48khz>,
     WebRtcSpl_Resample8khzTo48khz,
     reset<kedoSpl_State8khzTo48khz, kedoSpl_ResetResample8khzTo48khz>},
    {"22to16", 220, 160, 104, 24, call<kedoSpl_State22khzTo16khz, kedoSpl_Resample22khzTo16khz>,
     WebRtcSpl_Resample22khzTo16khz,
     reset<kedoSpl_State22khzTo16khz, kedoSpl_ResetResample22khzTo16khz>},
    {"16to22", 160, 220, 88, 16, call<kedoSpl_State16khzTo22khz, kedoSpl_Resample16khzTo22khz>,
     WebRtcSpl_Resample16khzTo22khz,
     reset<kedoSpl_State16khzTo22khz, kedoSpl_ResetResample16khzTo22khz>},
    {"22to8", 220, 80, 126, 32, call<kedoSpl_State22khzTo8khz, kedoSpl_Resample22khzTo8khz>,
     WebRtcSpl_Resample22khzTo8khz,
     reset<kedoSpl_State22khzTo8khz, kedoSpl_ResetResample22khzTo8khz>},
    {"8to22", 80, 220, 98, 24, call<kedoSpl_State8khzTo22khz, kedoSpl_Resample8khzTo22khz>,
     WebRtcSpl_Resample8khzTo22khz,
     reset<kedoSpl_State8khzTo22khz, kedoSpl_ResetResample8khzTo22khz>},
};

TEST(FixedRatio, StateRecordsHaveTheStatedSizes) {
  EXPECT_EQ(sizeof(kedoSpl_State48khzTo16khz), 32 * sizeof(int));
  EXPECT_EQ(sizeof(kedoSpl_State16khzTo48khz), 24 * sizeof(int));
  EXPECT_EQ(sizeof(kedoSpl_State48khzTo8khz), 40 * sizeof(int));
  EXPECT_EQ(sizeof(kedoSpl_State8khzTo48khz), 32 * sizeof(int));
  EXPECT_EQ(sizeof(kedoSpl_State22khzTo16khz), 24 * sizeof(int));
  EXPECT_EQ(sizeof(kedoSpl_State16khzTo22khz), 16 * sizeof(int));
  EXPECT_EQ(sizeof(kedoSpl_State22khzTo8khz), 32 * sizeof(int));
  EXPECT_EQ(sizeof(kedoSpl_State8khzTo22khz), 24 * sizeof(int));
}

TEST(FixedRatio, StreamsMatchReference) {
  int blocks = 0;
  for (const FixedRatio& f : kFixed) {
    for (Signal kind : kAllSignals) {
      Source src(kind, 500 + static_cast<int>(kind));
      // The reset must clear the whole record; the reference starts from
      // the all-zero record its own reset leaves.
      int32_t st[40], ref_st[40] = {};
      std::memset(st, 0x5a, sizeof st);
      f.reset(st);
      ASSERT_EQ(0, std::memcmp(st, ref_st, sizeof(int32_t) * f.state_words)) << f.label;
      // Exactly the stated scratch for this side (overruns show under ASan);
      // the reference 8 -> 48 uses more than the stated 336 words.
      std::unique_ptr<int[]> tmp(new int[f.scratch]);
      std::unique_ptr<int32_t[]> ref_tmp(new int32_t[512]);
      for (int b = 0; b < 100; ++b, ++blocks) {
        const auto in = src.block(f.in_len);
        std::vector<int16_t> out(f.out_len + 1, 7), expect(f.out_len + 1, 7);
        f.mine(in.data(), out.data(), st, tmp.get());
        f.ref(in.data(), expect.data(), ref_st, ref_tmp.get());
        ASSERT_EQ(out, expect) << f.label << ' ' << name(kind) << " block " << b;
        ASSERT_EQ(0, std::memcmp(st, ref_st, sizeof(int32_t) * f.state_words))
            << f.label << ' ' << name(kind) << " state after block " << b;
      }
    }
  }
  EXPECT_EQ(blocks, 8 * 7 * 100);
}

// A 1 kHz-ish square at 48 kHz survives 48 -> 16 -> 48 with its level: the
// chain is a low-pass, not a mute or a gain error.
TEST(FixedRatio, RoundTripKeepsLowFrequencyLevel) {
  kedoSpl_State48khzTo16khz down;
  kedoSpl_State16khzTo48khz up;
  kedoSpl_ResetResample48khzTo16khz(&down);
  kedoSpl_ResetResample16khzTo48khz(&up);
  std::vector<int> tmp(496);
  int64_t energy_in = 0, energy_out = 0;
  for (int b = 0; b < 20; ++b) {
    short in[480], mid[160], out[480];
    for (int i = 0; i < 480; ++i) in[i] = ((b * 480 + i) / 24) % 2 ? 8000 : -8000;
    kedoSpl_Resample48khzTo16khz(in, mid, &down, tmp.data());
    kedoSpl_Resample16khzTo48khz(mid, out, &up, tmp.data());
    if (b < 4) continue;
    for (int i = 0; i < 480; ++i) {
      energy_in += in[i] * in[i];
      energy_out += out[i] * out[i];
    }
  }
  // The fundamental keeps (8/pi)^2/2 = 81% of a square's power; harmonics
  // up to 8 kHz add a little more.
  EXPECT_GT(energy_out, energy_in * 78 / 100);
  EXPECT_LT(energy_out, energy_in * 101 / 100);
}

}  // namespace
