// Fixed-ratio resamplers: one 10 ms block per call, chained from the by-2
// and fractional stages.
//
// The fractional stages read a few samples beyond their block, so the last
// eight intermediate samples of every call are kept in the state record and
// placed in front of the next call's intermediate block. The stages that run
// in place write their output behind the input they are still reading.
// Where the scratch would otherwise run short, a block is processed as
// several sub-blocks; every stage carries its history exactly, so the
// split does not change the output.
#include <cstring>

#include "kafx_proc/spl.h"
#include "spl/spl_internal.h"

using namespace kafx::spl;

namespace {

constexpr size_t kHistoryBytes = 8 * sizeof(int32_t);

// Place the saved history in front of the block starting at `block`, and
// save the last eight samples of the block (block_len samples) for the next
// call.
inline void swap_history(int32_t* saved, int32_t* block, int block_len) {
  int32_t last[8];
  std::memcpy(last, block + block_len - 8, kHistoryBytes);
  std::memcpy(block - 8, saved, kHistoryBytes);
  std::memcpy(saved, last, kHistoryBytes);
}

}  // namespace

extern "C" {

// 48 -> 16: half-band low-pass at 48 kHz, 3:2 to 32 kHz, by-2 decimation.
// Scratch: [0, 8) history, [8, 488) the low-passed block; the 3:2 output
// (320 words) is written from word 0.
void kedoSpl_Resample48khzTo16khz(const short* in, short* out, kedoSpl_State48khzTo16khz* state,
                                  int* tmp) {
  lp_by2_short_to_int(in, 480, tmp + 8, state->lp_48_48);
  swap_history(state->fir_48_32, tmp + 8, 480);
  fir_48_32(tmp, tmp, 160);
  down_by2_int_to_short(tmp, 320, out, state->down_32_16);
}

void kedoSpl_ResetResample48khzTo16khz(kedoSpl_State48khzTo16khz* state) {
  std::memset(state, 0, sizeof(*state));
}

// 16 -> 48: by-2 interpolation, 4:3 to 24 kHz, by-2 interpolation.
void kedoSpl_Resample16khzTo48khz(const short* in, short* out, kedoSpl_State16khzTo48khz* state,
                                  int* tmp) {
  up_by2_short_to_int(in, 160, tmp + 8, state->up_16_32);
  swap_history(state->fir_32_24, tmp + 8, 320);
  fir_32_24(tmp, tmp, 80);
  up_by2_int_to_short(tmp, 240, out, state->up_24_48);
}

void kedoSpl_ResetResample16khzTo48khz(kedoSpl_State16khzTo48khz* state) {
  std::memset(state, 0, sizeof(*state));
}

// 48 -> 8: by-2 decimation, half-band low-pass at 24 kHz, 3:2 to 16 kHz,
// by-2 decimation.
void kedoSpl_Resample48khzTo8khz(const short* in, short* out, kedoSpl_State48khzTo8khz* state,
                                 int* tmp) {
  down_by2_short_to_int(in, 480, tmp + 256, state->down_48_24);
  lp_by2_int_to_int(tmp + 256, 240, tmp + 8, state->lp_24_24);
  swap_history(state->fir_24_16, tmp + 8, 240);
  fir_48_32(tmp, tmp, 80);
  down_by2_int_to_short(tmp, 160, out, state->down_16_8);
}

void kedoSpl_ResetResample48khzTo8khz(kedoSpl_State48khzTo8khz* state) {
  std::memset(state, 0, sizeof(*state));
}

// 8 -> 48: by-2 interpolation, 4:3 to 12 kHz, two by-2 interpolations. The
// last two stages run in two halves so that 240 words of scratch suffice.
void kedoSpl_Resample8khzTo48khz(const short* in, short* out, kedoSpl_State8khzTo48khz* state,
                                 int* tmp) {
  up_by2_short_to_int(in, 80, tmp + 8, state->up_8_16);
  swap_history(state->fir_16_12, tmp + 8, 160);
  fir_32_24(tmp, tmp, 40);
  for (int h = 0; h < 2; ++h) {
    up_by2_int_to_int(tmp + 60 * h, 60, tmp + 120, state->up_12_24);
    up_by2_int_to_short(tmp + 120, 120, out + 240 * h, state->up_24_48);
  }
}

void kedoSpl_ResetResample8khzTo48khz(kedoSpl_State8khzTo48khz* state) {
  std::memset(state, 0, sizeof(*state));
}

// 22 -> 16 in five sub-blocks of 44 -> 32: by-2 interpolation to 44 kHz,
// 11:8 to 32 kHz, by-2 decimation.
void kedoSpl_Resample22khzTo16khz(const short* in, short* out, kedoSpl_State22khzTo16khz* state,
                                  int* tmp) {
  for (int k = 0; k < 5; ++k) {
    up_by2_short_to_int(in + 44 * k, 44, tmp + 16, state->up_22_44);
    swap_history(state->fir_44_32, tmp + 16, 88);
    fir_44_32(tmp + 8, tmp, 8);
    down_by2_int_to_short(tmp, 64, out + 32 * k, state->down_32_16);
  }
}

void kedoSpl_ResetResample22khzTo16khz(kedoSpl_State22khzTo16khz* state) {
  std::memset(state, 0, sizeof(*state));
}

// 16 -> 22 in four sub-blocks of 40 -> 55: by-2 interpolation to 32 kHz,
// 16:11 straight to 16 bits.
void kedoSpl_Resample16khzTo22khz(const short* in, short* out, kedoSpl_State16khzTo22khz* state,
                                  int* tmp) {
  for (int k = 0; k < 4; ++k) {
    up_by2_short_to_int(in + 40 * k, 40, tmp + 8, state->up_16_32);
    swap_history(state->fir_32_22, tmp + 8, 80);
    fir_32_22_to_short(tmp, out + 55 * k, 5);
  }
}

void kedoSpl_ResetResample16khzTo22khz(kedoSpl_State16khzTo22khz* state) {
  std::memset(state, 0, sizeof(*state));
}

// 22 -> 8 in two halves of 110 -> 40: half-band low-pass at 22 kHz, 11:8
// to 16 kHz, by-2 decimation.
void kedoSpl_Resample22khzTo8khz(const short* in, short* out, kedoSpl_State22khzTo8khz* state,
                                 int* tmp) {
  for (int k = 0; k < 2; ++k) {
    lp_by2_short_to_int(in + 110 * k, 110, tmp + 16, state->lp_22_22);
    swap_history(state->fir_22_16, tmp + 16, 110);
    fir_44_32(tmp + 8, tmp, 10);
    down_by2_int_to_short(tmp, 80, out + 40 * k, state->down_16_8);
  }
}

void kedoSpl_ResetResample22khzTo8khz(kedoSpl_State22khzTo8khz* state) {
  std::memset(state, 0, sizeof(*state));
}

// 8 -> 22 in two halves of 40 -> 110: by-2 interpolation to 16 kHz, 16:11
// to 11 kHz, by-2 interpolation.
void kedoSpl_Resample8khzTo22khz(const short* in, short* out, kedoSpl_State8khzTo22khz* state,
                                 int* tmp) {
  for (int k = 0; k < 2; ++k) {
    up_by2_short_to_int(in + 40 * k, 40, tmp + 18, state->up_8_16);
    swap_history(state->fir_16_11, tmp + 18, 80);
    fir_32_22(tmp + 10, tmp, 5);
    up_by2_int_to_short(tmp, 55, out + 110 * k, state->up_11_22);
  }
}

// The 8 -> 22 record has the 22 -> 16 record's size and the same all-zero
// reset.
void kedoSpl_ResetResample8khzTo22khz(kedoSpl_State8khzTo22khz* state) {
  std::memset(state, 0, sizeof(*state));
}

}  // extern "C"
