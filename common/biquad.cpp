// Biquad section: one sample per call, 16-bit (Q20, error feedback) and
// 32-bit (Q28) variants.
#include "common/biquad.h"

#include <cstdlib>
#include <cstring>

using namespace kafx;

namespace {
constexpr size_t kWords = 5 * sizeof(int32_t);
}

extern "C" {

void IIR_init(void* iir, const void* coef) {
  auto* f = static_cast<IIR_t*>(iir);
  f->status = 1;
  f->coef = static_cast<int32_t*>(std::malloc(kWords));
  std::memcpy(f->coef, coef, kWords);
  f->state = static_cast<int32_t*>(std::malloc(kWords));
  std::memset(f->state, 0, kWords);
}

void IIR_reinit(void* iir, const void* coef) {
  auto* f = static_cast<IIR_t*>(iir);
  std::memcpy(f->coef, coef, kWords);
  std::memset(f->state, 0, kWords);
}

void IIR_reset(void* iir) { std::memset(static_cast<IIR_t*>(iir)->state, 0, kWords); }

void IIR_end(void* iir) {
  auto* f = static_cast<IIR_t*>(iir);
  std::free(f->coef);
  std::free(f->state);
  f->coef = nullptr;
  f->state = nullptr;
}

void IIR_set_param(void* iir, const int* coef) { std::memcpy(static_cast<IIR_t*>(iir)->coef, coef, kWords); }

void IIR_get_param(void* iir, int* coef) { std::memcpy(coef, static_cast<IIR_t*>(iir)->coef, kWords); }

void IIR_set_status(void* record, int status) { *static_cast<int32_t*>(record) = status; }

void IIR_get_status(void* record, int* status) { *status = *static_cast<const int32_t*>(record); }

void IIR_process_16(void* iir, short* in, short* out) {
  auto* f = static_cast<IIR_t*>(iir);
  if (f->status == 0) {
    *out = *in;
    return;
  }
  int32_t* w = f->state;
  // Word 0 carries the remainder of the previous output into this one.
  const int32_t remainder = w[0];
  w[0] = static_cast<int32_t>(*in) * 8192;
  const int64_t acc = wrap_add64(biquad_dot5(f->coef, w), remainder);
  w[2] = w[1];
  w[1] = w[0];
  w[4] = w[3];
  const int32_t y = mul_shift<20>(acc);
  w[3] = y;
  // Only 13 of the 20 discarded bits are fed back.
  w[0] = static_cast<int32_t>(acc & 8191);
  *out = sat16(flush_m1(y >> 13));
}

void IIR_process_32(void* iir, int* in, int* out) { *out = biquad_run32(static_cast<IIR_t*>(iir), *in); }

}  // extern "C"
