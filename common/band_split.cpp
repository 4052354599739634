// Two-way crossover: each output runs the input through two identical Q28
// biquad sections in series (a fourth-order branch).
#include "kafx_proc/band_split.h"

#include <cstring>

#include "common/band_split_block.h"
#include "common/biquad.h"
#include "common/biquad_cascade.h"
#include "common/lifecycle.h"

extern "C" {

void spectral_band_split_init(spectral_band_split* s, const int* coef_a, const int* coef_b) {
  s->first_a = kafx::new_block<IIR_t>(IIR_init, coef_a);
  s->second_a = kafx::new_block<IIR_t>(IIR_init, coef_a);
  s->first_b = kafx::new_block<IIR_t>(IIR_init, coef_b);
  s->second_b = kafx::new_block<IIR_t>(IIR_init, coef_b);
}

void spectral_band_split_reinit(spectral_band_split* s, const int* coef_a, const int* coef_b) {
  IIR_reinit(s->first_a, coef_a);
  IIR_reinit(s->second_a, coef_a);
  IIR_reinit(s->first_b, coef_b);
  IIR_reinit(s->second_b, coef_b);
}

void spectral_band_split_reset(spectral_band_split* s) {
  IIR_reset(s->first_a);
  IIR_reset(s->second_a);
  IIR_reset(s->first_b);
  IIR_reset(s->second_b);
}

void spectral_band_split_end(spectral_band_split* s) {
  kafx::end_block(s->first_a, IIR_end);
  kafx::end_block(s->second_a, IIR_end);
  kafx::end_block(s->first_b, IIR_end);
  kafx::end_block(s->second_b, IIR_end);
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

namespace kafx {

void band_split_block(spectral_band_split* s, int32_t* x, int32_t* low, int n) {
  if (n <= 0) return;
  std::memcpy(low, x, static_cast<size_t>(n) * sizeof(int32_t));
  // The A and B branches are independent: run them side by side.
  biquad_block32_pair(s->first_a, low, s->first_b, x, n);
  biquad_block32_pair(s->second_a, low, s->second_b, x, n);
}

void band_split_chain_stereo(spectral_band_split* const* left, spectral_band_split* const* right, int stages,
                             int32_t* xl, int32_t* xr, int32_t* const* low_l, int32_t* const* low_r, int n) {
  for (int first = 0; first < stages; first += kCrossoverMaxStages) {
    const int m = stages - first < kCrossoverMaxStages ? stages - first : kCrossoverMaxStages;
    CrossoverStage l[kCrossoverMaxStages], r[kCrossoverMaxStages];
    for (int k = 0; k < m; ++k) {
      const spectral_band_split* a = left[first + k];
      const spectral_band_split* b = right[first + k];
      l[k] = {{a->first_a, a->second_a}, {a->first_b, a->second_b}};
      r[k] = {{b->first_a, b->second_a}, {b->first_b, b->second_b}};
    }
    biquad_crossover_stereo(l, r, m, xl, xr, low_l + first, low_r + first, n);
  }
}

void band_split_block_stereo(spectral_band_split* sl, spectral_band_split* sr, int32_t* xl, int32_t* xr,
                             int32_t* low_l, int32_t* low_r, int n) {
  band_split_chain_stereo(&sl, &sr, 1, xl, xr, &low_l, &low_r, n);
}

}  // namespace kafx
