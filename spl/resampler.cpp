// General mono resampler: reduces the ratio of two rates and chains the
// fixed-ratio resamplers and by-2 stages into one of 21 modes.
//
// Block rules follow from the fixed-ratio resamplers' 10 ms blocks (for
// example 16 -> 48 consumes 160 samples at a time, so 1:6, which doubles
// first, needs multiples of 80). A call never allocates: the intermediate
// signal of a two- or three-stage mode lives in a stack buffer, and long
// inputs go through the chain in chunks (a whole number of the mode's blocks
// each). Every stage carries its state from one sample to the next and the
// fixed-ratio stages work block by block, so chunking gives exactly the
// output and state of one pass over the whole input.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/lifecycle.h"
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
  return static_cast<int*>(kafx::alloc_zeroed(sizeof(int) * static_cast<size_t>(words)));
}

// Block-wise drivers of the fixed-ratio resamplers over n input samples; the
// stated scratch of each lives on the stack for the call.
void run_16_to_48(const int16_t* in, int64_t n, int16_t* out, int* st) {
  int32_t mem[k16To48Scratch];
  for (int64_t i = 0; i < n; i += 160) {
    kedoSpl_Resample16khzTo48khz(in + i, out + 3 * i,
                                 reinterpret_cast<kedoSpl_State16khzTo48khz*>(st), mem);
  }
}

void run_48_to_16(const int16_t* in, int64_t n, int16_t* out, int* st) {
  int32_t mem[k48To16Scratch];
  for (int64_t i = 0; i < n; i += 480) {
    kedoSpl_Resample48khzTo16khz(in + i, out + i / 3,
                                 reinterpret_cast<kedoSpl_State48khzTo16khz*>(st), mem);
  }
}

void run_8_to_22(const int16_t* in, int64_t n, int16_t* out, int* st) {
  int32_t mem[k8To22Scratch];
  for (int64_t i = 0; i < n; i += 80) {
    kedoSpl_Resample8khzTo22khz(in + i, out + i * 11 / 4,
                                reinterpret_cast<kedoSpl_State8khzTo22khz*>(st), mem);
  }
}

void run_16_to_22(const int16_t* in, int64_t n, int16_t* out, int* st) {
  int32_t mem[k16To22Scratch];
  for (int64_t i = 0; i < n; i += 160) {
    kedoSpl_Resample16khzTo22khz(in + i, out + i * 11 / 8,
                                 reinterpret_cast<kedoSpl_State16khzTo22khz*>(st), mem);
  }
}

void run_22_to_16(const int16_t* in, int64_t n, int16_t* out, int* st) {
  int32_t mem[k22To16Scratch];
  for (int64_t i = 0; i < n; i += 220) {
    kedoSpl_Resample22khzTo16khz(in + i, out + i * 8 / 11,
                                 reinterpret_cast<kedoSpl_State22khzTo16khz*>(st), mem);
  }
}

void run_22_to_8(const int16_t* in, int64_t n, int16_t* out, int* st) {
  int32_t mem[k22To8Scratch];
  for (int64_t i = 0; i < n; i += 220) {
    kedoSpl_Resample22khzTo8khz(in + i, out + i * 4 / 11,
                                reinterpret_cast<kedoSpl_State22khzTo8khz*>(st), mem);
  }
}

// Input samples per pass through a mode's chain, a whole number of its
// blocks (and of four samples, for 4:1's two halvings), chosen so that the
// intermediate signal fits kTmpSamples; 0 for the single-stage modes, which
// run on the whole input at once.
constexpr int kTmpSamples = 1920;
constexpr int kChunk[21] = {0, 0, 0, 480, 480, 480, 480, 480, 0, 0, 440, 440,
                            0, 0, 480, 480, 480, 480, 440, 0, 0};
static_assert(kChunk[k1To12] * 4 <= kTmpSamples && kChunk[k2To3] * 3 <= kTmpSamples);
static_assert(kChunk[k1To4] * 2 <= kTmpSamples && kChunk[k3To2] * 2 <= kTmpSamples);

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
  // A state that could not be allocated: keep none, so that the record
  // holds nothing to free and every Resampler_proc on it returns -1.
  const int* const states[3] = {r->stage1_state, r->stage2_state, r->stage3_state};
  for (int k = 0; k < 3; ++k) {
    if (kModes[mode].words[k] != 0 && states[k] == nullptr) {
      kafx::free_null(r->stage1_state);
      kafx::free_null(r->stage2_state);
      kafx::free_null(r->stage3_state);
      return;
    }
  }
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
  // A configuration that could not allocate its states leaves them null.
  const int* const need[3] = {s1, s2, s3};
  for (int k = 0; k < 3; ++k)
    if (kModes[mode].words[k] != 0 && need[k] == nullptr) return -1;

  // 3:2 finds a length off its block rule only after the first stage has
  // consumed the input: run that stage, drop its output, refuse the call.
  int16_t tmp[kTmpSamples];
  if (mode == k3To2 && (2 * n) % 480 != 0) {
    for (int64_t i = 0; i < n; i += kTmpSamples / 2) {
      const int64_t c = n - i < kTmpSamples / 2 ? n - i : kTmpSamples / 2;
      upsample_by2(in + i, ilen(c), tmp, s1);
    }
    return -1;
  }

  const int64_t chunk = kChunk[mode] > 0 ? kChunk[mode] : (n > 0 ? n : 1);
  for (int64_t i = 0; i < n; i += chunk) {
    const int64_t c = n - i < chunk ? n - i : chunk;
    const int16_t* ci = in + i;
    int16_t* co = out + i * kModes[mode].out / kModes[mode].in;
    switch (mode) {
      case k1To2:
        upsample_by2(ci, ilen(c), co, s1);
        break;
      case k1To3:
        run_16_to_48(ci, c, co, s1);
        break;
      case k1To4:
        upsample_by2(ci, ilen(c), tmp, s1);
        upsample_by2(tmp, ilen(2 * c), co, s2);
        break;
      case k1To6:
        upsample_by2(ci, ilen(c), tmp, s1);
        run_16_to_48(tmp, 2 * c, co, s2);
        break;
      case k1To12:
        // The doubled signal is staged in the caller's output block.
        upsample_by2(ci, ilen(c), co, s1);
        upsample_by2(co, ilen(2 * c), tmp, s2);
        run_16_to_48(tmp, 4 * c, co, s3);
        break;
      case k2To3:
        run_16_to_48(ci, c, tmp, s1);
        downsample_by2(tmp, ilen(3 * c), co, s2);
        break;
      case k2To11:
        upsample_by2(ci, ilen(c), tmp, s1);
        run_8_to_22(tmp, 2 * c, co, s2);
        break;
      case k4To11:
        run_8_to_22(ci, c, co, s1);
        break;
      case k8To11:
        run_16_to_22(ci, c, co, s1);
        break;
      case k11To16:
        upsample_by2(ci, ilen(c), tmp, s1);
        run_22_to_16(tmp, 2 * c, co, s2);
        break;
      case k11To32:
        // The 22 kHz signal is staged in the caller's output block, which is
        // larger (32/11 of the input) than it.
        upsample_by2(ci, ilen(c), co, s1);
        run_22_to_16(co, 2 * c, tmp, s2);
        upsample_by2(tmp, ilen(c * 16 / 11), co, s3);
        break;
      case k2To1:
        downsample_by2(ci, ilen(c), co, s1);
        break;
      case k3To1:
        run_48_to_16(ci, c, co, s1);
        break;
      case k4To1:
        downsample_by2(ci, ilen(c), tmp, s1);
        downsample_by2(tmp, ilen(c / 2), co, s2);
        break;
      case k6To1:
        run_48_to_16(ci, c, tmp, s1);
        downsample_by2(tmp, ilen(c / 3), co, s2);
        break;
      case k12To1:
        run_48_to_16(ci, c, tmp, s1);
        downsample_by2(tmp, ilen(c / 3), tmp, s2);  // in place: each output follows its inputs
        downsample_by2(tmp, ilen(c / 6), co, s3);
        break;
      case k3To2:
        upsample_by2(ci, ilen(c), tmp, s1);
        run_48_to_16(tmp, 2 * c, co, s2);
        break;
      case k11To2:
        run_22_to_8(ci, c, tmp, s1);
        downsample_by2(tmp, ilen(c * 4 / 11), co, s2);
        break;
      case k11To4:
        run_22_to_8(ci, c, co, s1);
        break;
      case k11To8:
        run_22_to_16(ci, c, co, s1);
        break;
      default:
        break;
    }
  }
  *out_len = static_cast<int>(produced);
  return 0;
}

// Frees what is set and nulls the pointers, so a second delete is harmless.
void Resampler_delete(Resampler_t* r) {
  kafx::free_null(r->stage1_state);
  kafx::free_null(r->stage2_state);
  kafx::free_null(r->stage3_state);
  kafx::free_null(r->spare_buffer_a);
  kafx::free_null(r->spare_buffer_b);
}

}  // extern "C"
