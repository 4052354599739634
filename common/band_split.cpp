// Two-way crossover: each output runs the input through two identical Q28
// biquad sections in series (a fourth-order branch).
#include "kafx_proc/band_split.h"

#include <cstdlib>

#include "common/biquad.h"

namespace {

IIR_t* new_section(const int* coef) {
  auto* f = static_cast<IIR_t*>(std::malloc(sizeof(IIR_t)));
  IIR_init(f, const_cast<int*>(coef));
  return f;
}

void delete_section(IIR_t*& f) {
  IIR_end(f);
  std::free(f);
  f = nullptr;
}

}  // namespace

extern "C" {

void spectral_band_split_init(spectral_band_split* s, const int* coef_a, const int* coef_b) {
  s->first_a = new_section(coef_a);
  s->second_a = new_section(coef_a);
  s->first_b = new_section(coef_b);
  s->second_b = new_section(coef_b);
}

void spectral_band_split_reinit(spectral_band_split* s, const int* coef_a, const int* coef_b) {
  IIR_reinit(s->first_a, const_cast<int*>(coef_a));
  IIR_reinit(s->second_a, const_cast<int*>(coef_a));
  IIR_reinit(s->first_b, const_cast<int*>(coef_b));
  IIR_reinit(s->second_b, const_cast<int*>(coef_b));
}

void spectral_band_split_reset(spectral_band_split* s) {
  IIR_reset(s->first_a);
  IIR_reset(s->second_a);
  IIR_reset(s->first_b);
  IIR_reset(s->second_b);
}

void spectral_band_split_end(spectral_band_split* s) {
  delete_section(s->first_a);
  delete_section(s->second_a);
  delete_section(s->first_b);
  delete_section(s->second_b);
}

void spectral_band_split_process(spectral_band_split* s, int* in, int* out_a, int* out_b) {
  // Read once: `in` may alias either output.
  const int32_t x = *in;
  const int32_t a = kafx::biquad_run32(s->second_a, kafx::biquad_run32(s->first_a, x));
  const int32_t b = kafx::biquad_run32(s->second_b, kafx::biquad_run32(s->first_b, x));
  *out_a = a;
  *out_b = b;
}

}  // extern "C"
