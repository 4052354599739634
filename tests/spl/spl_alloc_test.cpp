// Real-time safety and allocation failure of the signal-processing library:
// no processing routine reaches the allocator (every resampler mode, its -1
// paths, the fixed-ratio resamplers, the by-2 stages, the FFT and the vector
// routines), and a general resampler whose configuration cannot allocate
// keeps nothing, leaks nothing and refuses every block with -1.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kafx_proc/spl.h"
#include "spl/oracle.h"
#include "support/alloc_hooks.h"

namespace {

using kafx_test::AllocCounter;

// A rate pair of every mode 1..20 and the block its lengths must be a
// multiple of.
struct Pair { int in_rate, out_rate, block; };
const Pair kPairs[20] = {
    {8000, 16000, 1},    {16000, 48000, 160}, {8000, 32000, 1},    {8000, 48000, 80},  {8000, 96000, 40},
    {32000, 48000, 160}, {8000, 44000, 80},   {16000, 44000, 80},  {32000, 44000, 160}, {11000, 16000, 110},
    {11000, 32000, 110}, {32000, 16000, 1},   {48000, 16000, 480}, {32000, 8000, 1},   {48000, 8000, 480},
    {96000, 8000, 480},  {48000, 32000, 240}, {44000, 8000, 220},  {44000, 16000, 220}, {44000, 32000, 220}};

TEST(SplAlloc, StagesFftAndVectorRoutinesNeverAllocate) {
  spltest::Source src(spltest::Signal::kRandom, 6);
  std::vector<int16_t> in = src.block(1024), out(2048);
  std::vector<int32_t> wide(2048, 12345), wide_out(4096), tmp(512);
  std::vector<int32_t> state(64, 0);
  int scale = 0;
  AllocCounter c;
#define FIXED(a, b)                                                         \
  do {                                                                      \
    kedoSpl_State##a##To##b st{};                                           \
    kedoSpl_Resample##a##To##b(in.data(), out.data(), &st, tmp.data());    \
  } while (0)
  FIXED(48khz, 16khz); FIXED(16khz, 48khz); FIXED(48khz, 8khz); FIXED(8khz, 48khz);
  FIXED(22khz, 16khz); FIXED(16khz, 22khz); FIXED(22khz, 8khz); FIXED(8khz, 22khz);
#undef FIXED
  kedoSpl_DownsampleBy2(in.data(), 1000, out.data(), state.data());
  kedoSpl_UpsampleBy2(in.data(), 1000, out.data(), state.data());
  kedoSpl_DownBy2IntToShort(wide.data(), 1000, out.data(), state.data());
  kedoSpl_DownBy2ShortToInt(in.data(), 1000, wide_out.data(), state.data());
  kedoSpl_UpBy2ShortToInt(in.data(), 1000, wide_out.data(), state.data());
  kedoSpl_UpBy2IntToInt(wide.data(), 1000, wide_out.data(), state.data());
  kedoSpl_UpBy2IntToShort(wide.data(), 1000, out.data(), state.data());
  kedoSpl_LPBy2ShortToInt(in.data(), 1000, wide_out.data(), state.data());
  kedoSpl_LPBy2IntToInt(wide.data(), 1000, wide_out.data(), state.data());
  kedoSpl_Resample48khzTo32khz(wide.data(), wide_out.data(), 100);
  kedoSpl_Resample32khzTo24khz(wide.data(), wide_out.data(), 100);
  kedoSpl_Resample44khzTo32khz(wide.data(), wide_out.data(), 100);
  kedoSpl_32khzTo22khzIntToInt(wide.data(), wide_out.data(), 100);
  std::vector<int16_t> frfi(in.begin(), in.end());
  kedoSpl_ComplexBitReverse(frfi.data(), 9);
  kedoSpl_ComplexFFT(frfi.data(), 9, 1);
  kedoSpl_ComplexIFFT(frfi.data(), 9, 0);
  kedoSpl_MaxAbsValueW16(in.data(), 1000);
  kedoSpl_MaxIndexW32(wide.data(), 1000);
  kedoSpl_GetScalingSquare(in.data(), 1000, 1000);
  kedoSpl_Energy(in.data(), 1000, &scale);
  kedoSpl_SqrtFloor(123456789);
  EXPECT_EQ(c.allocations(), 0);
  EXPECT_EQ(c.frees(), 0);
}

// Every mode: its blocks (whole, long, off the block rule, empty, with no
// room) never reach the allocator; and every allocation of its configuration
// fails in turn: no state is kept, nothing leaks, every block is refused
// without writing, and delete is harmless.
TEST(SplAlloc, ResamplerProcNeverAllocatesAndConfigFailureRefusesBlocks) {
  spltest::Source src(spltest::Signal::kRandom, 7);
  const std::vector<int16_t> in = src.block(5280);
  std::vector<int16_t> out(12 * in.size() + 16, 7);
  for (const Pair& p : kPairs) {
    const long n = kafx_test::for_each_failing_allocation([&](long failing) {
      Resampler_t r;
      Resampler_init(&r);
      Resampler_config(&r, p.in_rate, p.out_rate);
      int out_len = -5;
      if (failing == 0) {
        for (int len : {p.block, p.block * (5280 / p.block), p.block + 1, 0}) {
          AllocCounter c;
          Resampler_proc(&r, in.data(), len, out.data(), static_cast<int>(out.size()), &out_len);
          Resampler_proc(&r, in.data(), len, out.data(), 0, &out_len);  // no room: -1
          EXPECT_TRUE(c.allocations() == 0 && c.frees() == 0) << p.in_rate << " -> " << p.out_rate << ", " << len;
        }
      } else {
        EXPECT_TRUE(r.stage1_state == nullptr && r.stage2_state == nullptr && r.stage3_state == nullptr);
        EXPECT_NE(r.mode, 0) << "the mode stays set";
        std::fill(out.begin(), out.end(), 7);
        EXPECT_EQ(Resampler_proc(&r, in.data(), 480, out.data(), static_cast<int>(out.size()), &out_len), -1);
        EXPECT_TRUE(out_len == -5 && out[0] == 7);
      }
      Resampler_delete(&r);
    });
    EXPECT_GE(n, 1) << p.in_rate << " -> " << p.out_rate;
  }
}

}  // namespace
