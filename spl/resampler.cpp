// General mono resampler: reduces the ratio of two rates and chains the
// fixed-ratio resamplers and by-2 stages into one of 21 modes.
//
// Block rules follow from the fixed-ratio resamplers' 10 ms blocks (for
// example 16 -> 48 consumes 160 samples at a time, so 1:6, which doubles
// first, needs multiples of 80). Intermediate signals live in scratch that
// each call allocates and frees.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kafx_proc/spl.h"
#include "spl/spl_internal.h"

using namespace kafx::spl;

namespace {

enum Mode : int {
  kCopy = 0,
  k1To2 = 1,
  k1To3 = 2,
  k1To4 = 3,
  k1To6 = 4,
  k1To12 = 5,
  k2To3 = 6,
  k2To11 = 7,
  k4To11 = 8,
  k8To11 = 9,
  k11To16 = 10,
  k11To32 = 11,
  k2To1 = 12,
  k3To1 = 13,
  k4To1 = 14,
  k6To1 = 15,
  k12To1 = 16,
  k3To2 = 17,
  k11To2 = 18,
  k11To4 = 19,
  k11To8 = 20,
};

// Words of state of each kind of stage.
constexpr int kBy2Words = 8;
constexpr int k16To48Words = 24;
constexpr int k48To16Words = 32;
constexpr int k8To22Words = 24;
constexpr int k16To22Words = 16;
constexpr int k22To16Words = 24;
constexpr int k22To8Words = 32;

// Scratch words of the fixed-ratio resamplers.
constexpr int k16To48Scratch = 336;
constexpr int k48To16Scratch = 496;
constexpr int k8To22Scratch = 98;
constexpr int k16To22Scratch = 88;
constexpr int k22To16Scratch = 104;
constexpr int k22To8Scratch = 126;

struct ModeEntry {
  int in, out;   // reduced ratio
  int words[3];  // state words of the stages, 0 where absent
};

constexpr ModeEntry kModes[21] = {
    {1, 1, {0, 0, 0}},
    {1, 2, {kBy2Words, 0, 0}},
    {1, 3, {k16To48Words, 0, 0}},
    {1, 4, {kBy2Words, kBy2Words, 0}},
    {1, 6, {kBy2Words, k16To48Words, 0}},
    {1, 12, {kBy2Words, kBy2Words, k16To48Words}},
    {2, 3, {k16To48Words, kBy2Words, 0}},
    {2, 11, {kBy2Words, k8To22Words, 0}},
    {4, 11, {k8To22Words, 0, 0}},
    {8, 11, {k16To22Words, 0, 0}},
    {11, 16, {kBy2Words, k22To16Words, 0}},
    {11, 32, {kBy2Words, k22To16Words, kBy2Words}},
    {2, 1, {kBy2Words, 0, 0}},
    {3, 1, {k48To16Words, 0, 0}},
    {4, 1, {kBy2Words, kBy2Words, 0}},
    {6, 1, {k48To16Words, kBy2Words, 0}},
    {12, 1, {k48To16Words, kBy2Words, kBy2Words}},
    {3, 2, {kBy2Words, k48To16Words, 0}},
    {11, 2, {k22To8Words, kBy2Words, 0}},
    {11, 4, {k22To8Words, 0, 0}},
    {11, 8, {k22To16Words, 0, 0}},
};

int* new_state(int words) {
  if (words == 0) return nullptr;
  int* p = static_cast<int*>(std::malloc(sizeof(int) * static_cast<size_t>(words)));
  std::memset(p, 0, sizeof(int) * static_cast<size_t>(words));
  return p;
}

int32_t* scratch_words(int words) {
  return static_cast<int32_t*>(std::malloc(sizeof(int32_t) * static_cast<size_t>(words)));
}

int16_t* scratch_samples(int64_t n) {
  return static_cast<int16_t*>(std::malloc(sizeof(int16_t) * static_cast<size_t>(n > 0 ? n : 1)));
}

// Block-wise drivers of the fixed-ratio resamplers over n input samples.
void run_16_to_48(const int16_t* in, int64_t n, int16_t* out, int* st) {
  int32_t* mem = scratch_words(k16To48Scratch);
  for (int64_t i = 0; i < n; i += 160) {
    kedoSpl_Resample16khzTo48khz(in + i, out + 3 * i,
                                 reinterpret_cast<kedoSpl_State16khzTo48khz*>(st), mem);
  }
  std::free(mem);
}

void run_48_to_16(const int16_t* in, int64_t n, int16_t* out, int* st) {
  int32_t* mem = scratch_words(k48To16Scratch);
  for (int64_t i = 0; i < n; i += 480) {
    kedoSpl_Resample48khzTo16khz(in + i, out + i / 3,
                                 reinterpret_cast<kedoSpl_State48khzTo16khz*>(st), mem);
  }
  std::free(mem);
}

void run_8_to_22(const int16_t* in, int64_t n, int16_t* out, int* st) {
  int32_t* mem = scratch_words(k8To22Scratch);
  for (int64_t i = 0; i < n; i += 80) {
    kedoSpl_Resample8khzTo22khz(in + i, out + i * 11 / 4,
                                reinterpret_cast<kedoSpl_State8khzTo22khz*>(st), mem);
  }
  std::free(mem);
}

void run_16_to_22(const int16_t* in, int64_t n, int16_t* out, int* st) {
  int32_t* mem = scratch_words(k16To22Scratch);
  for (int64_t i = 0; i < n; i += 160) {
    kedoSpl_Resample16khzTo22khz(in + i, out + i * 11 / 8,
                                 reinterpret_cast<kedoSpl_State16khzTo22khz*>(st), mem);
  }
  std::free(mem);
}

void run_22_to_16(const int16_t* in, int64_t n, int16_t* out, int* st) {
  int32_t* mem = scratch_words(k22To16Scratch);
  for (int64_t i = 0; i < n; i += 220) {
    kedoSpl_Resample22khzTo16khz(in + i, out + i * 8 / 11,
                                 reinterpret_cast<kedoSpl_State22khzTo16khz*>(st), mem);
  }
  std::free(mem);
}

void run_22_to_8(const int16_t* in, int64_t n, int16_t* out, int* st) {
  int32_t* mem = scratch_words(k22To8Scratch);
  for (int64_t i = 0; i < n; i += 220) {
    kedoSpl_Resample22khzTo8khz(in + i, out + i * 4 / 11,
                                reinterpret_cast<kedoSpl_State22khzTo8khz*>(st), mem);
  }
  std::free(mem);
}

// Lengths handed to the by-2 stages are plain ints here; block lengths
// that fit the caller's int in_len always fit.
inline int ilen(int64_t n) { return static_cast<int>(n); }

}  // namespace

extern "C" {

void Resampler_init(Resampler_t* r) { std::memset(r, 0, sizeof(*r)); }

void Resampler_config(Resampler_t* r, int in_rate, int out_rate) {
  std::memset(r, 0, sizeof(*r));
  r->in_khz = in_rate / 1000;
  r->out_khz = out_rate / 1000;
  if (in_rate <= 0 || out_rate <= 0) return;  // no ratio to reduce: a plain copy

  // Euclid's algorithm on the rates in Hz.
  int a = in_rate, b = out_rate;
  for (int c = a % b; c != 0; c = a % b) {
    a = b;
    b = c;
  }
  const int in = in_rate / b;
  const int out = out_rate / b;

  int mode = kCopy;
  for (int m = 1; m < 21; ++m) {
    if (kModes[m].in == in && kModes[m].out == out) mode = m;
  }
  r->mode = mode;
  r->stage1_state = new_state(kModes[mode].words[0]);
  r->stage2_state = new_state(kModes[mode].words[1]);
  r->stage3_state = new_state(kModes[mode].words[2]);
}

int Resampler_proc(Resampler_t* r, const short* in, int in_len, short* out, int max_out_len,
                   int* out_len) {
  const int mode = r->mode;
  if (mode < 0 || mode > 20) return 0;  // no such mode: nothing to do
  if (in_len < 0) return -1;            // no mode takes a negative length
  const int64_t n = in_len;

  if (mode == kCopy) {
    if (n > 0) std::memcpy(out, in, sizeof(int16_t) * static_cast<size_t>(n));
    *out_len = in_len;
    return 0;
  }

  // The output length and the block each mode consumes at a time.
  static constexpr int kBlock[21] = {1,   1, 160, 1, 80,  40,  160, 80,  80,  160, 110,
                                     110, 1, 480, 1, 480, 480, 1,   220, 220, 220};
  const int64_t produced = n * kModes[mode].out / kModes[mode].in;
  if (produced > max_out_len) return -1;
  // 3:2 checks its block rule only after the first stage (below).
  if (mode != k3To2 && n % kBlock[mode] != 0) return -1;

  int* s1 = r->stage1_state;
  int* s2 = r->stage2_state;
  int* s3 = r->stage3_state;
  int16_t* tmp = nullptr;
  switch (mode) {
    case k1To2:
      upsample_by2(in, ilen(n), out, s1);
      break;
    case k1To3:
      run_16_to_48(in, n, out, s1);
      break;
    case k1To4:
      tmp = scratch_samples(2 * n);
      upsample_by2(in, ilen(n), tmp, s1);
      upsample_by2(tmp, ilen(2 * n), out, s2);
      break;
    case k1To6:
      tmp = scratch_samples(2 * n);
      upsample_by2(in, ilen(n), tmp, s1);
      run_16_to_48(tmp, 2 * n, out, s2);
      break;
    case k1To12:
      // The doubled signal is staged in the caller's output block.
      tmp = scratch_samples(4 * n);
      upsample_by2(in, ilen(n), out, s1);
      upsample_by2(out, ilen(2 * n), tmp, s2);
      run_16_to_48(tmp, 4 * n, out, s3);
      break;
    case k2To3:
      tmp = scratch_samples(3 * n);
      run_16_to_48(in, n, tmp, s1);
      downsample_by2(tmp, ilen(3 * n), out, s2);
      break;
    case k2To11:
      tmp = scratch_samples(2 * n);
      upsample_by2(in, ilen(n), tmp, s1);
      run_8_to_22(tmp, 2 * n, out, s2);
      break;
    case k4To11:
      run_8_to_22(in, n, out, s1);
      break;
    case k8To11:
      run_16_to_22(in, n, out, s1);
      break;
    case k11To16:
      tmp = scratch_samples(2 * n);
      upsample_by2(in, ilen(n), tmp, s1);
      run_22_to_16(tmp, 2 * n, out, s2);
      break;
    case k11To32:
      // The 22 kHz signal is staged in the caller's output block, which is
      // larger (32/11 of the input) than it.
      tmp = scratch_samples(n * 16 / 11);
      upsample_by2(in, ilen(n), out, s1);
      run_22_to_16(out, 2 * n, tmp, s2);
      upsample_by2(tmp, ilen(n * 16 / 11), out, s3);
      break;
    case k2To1:
      downsample_by2(in, ilen(n), out, s1);
      break;
    case k3To1:
      run_48_to_16(in, n, out, s1);
      break;
    case k4To1:
      tmp = scratch_samples(n / 2);
      downsample_by2(in, ilen(n), tmp, s1);
      downsample_by2(tmp, ilen(n / 2), out, s2);
      break;
    case k6To1:
      tmp = scratch_samples(n / 3);
      run_48_to_16(in, n, tmp, s1);
      downsample_by2(tmp, ilen(n / 3), out, s2);
      break;
    case k12To1:
      tmp = scratch_samples(n / 3);
      run_48_to_16(in, n, tmp, s1);
      downsample_by2(tmp, ilen(n / 3), tmp, s2);  // in place: each output follows its inputs
      downsample_by2(tmp, ilen(n / 6), out, s3);
      break;
    case k3To2:
      tmp = scratch_samples(2 * n);
      upsample_by2(in, ilen(n), tmp, s1);
      if ((2 * n) % 480 != 0) {
        std::free(tmp);
        return -1;
      }
      run_48_to_16(tmp, 2 * n, out, s2);
      break;
    case k11To2:
      tmp = scratch_samples(n * 4 / 11);
      run_22_to_8(in, n, tmp, s1);
      downsample_by2(tmp, ilen(n * 4 / 11), out, s2);
      break;
    case k11To4:
      run_22_to_8(in, n, out, s1);
      break;
    case k11To8:
      run_22_to_16(in, n, out, s1);
      break;
    default:
      break;
  }
  std::free(tmp);
  *out_len = static_cast<int>(produced);
  return 0;
}

// Frees what is set and nulls the pointers, so a second delete is harmless.
void Resampler_delete(Resampler_t* r) {
  std::free(r->stage1_state);
  std::free(r->stage2_state);
  std::free(r->stage3_state);
  std::free(r->spare_buffer_a);
  std::free(r->spare_buffer_b);
  r->stage1_state = r->stage2_state = r->stage3_state = nullptr;
  r->spare_buffer_a = r->spare_buffer_b = nullptr;
}

}  // extern "C"
