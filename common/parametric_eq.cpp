// Parametric equalizer: per channel a Q13 input gain and ten Q28 biquad
// sections in cascade.
#include "kafx_proc/parametric_eq.h"

#include <cstdlib>

#include "common/biquad.h"
#include "common/biquad_cascade.h"
#include "common/lifecycle.h"

using namespace kafx;

namespace {

constexpr int kBands = PARAMETER_EQUALIZER_BANDS;
constexpr int32_t kPassThrough[5] = {kQ28One, 0, 0, 0, 0};

IIR_t* new_section() {
  auto* s = alloc_record<IIR_t>();
  if (s != nullptr) IIR_init(s, kPassThrough);
  return s;
}

void free_section(IIR_t*& s) {
  if (s != nullptr) IIR_end(s);
  free_null(s);
}

void set_bands(IIR_t* const* sections, const int (*bands)[6]) {
  for (int k = 0; k < kBands; ++k) {
    sections[k]->status = bands[k][0];
    IIR_set_param(sections[k], &bands[k][1]);
  }
}

void get_bands(IIR_t* const* sections, int (*bands)[6]) {
  for (int k = 0; k < kBands; ++k) {
    bands[k][0] = sections[k]->status;
    IIR_get_param(sections[k], &bands[k][1]);
  }
}

}  // namespace

extern "C" {

void parameter_equalizer_init(parameter_equalizer_t* eq) {
  eq->status = 0;
  eq->gain_left = kQ13One;
  eq->gain_right = kQ13One;
  for (int k = 0; k < kBands; ++k) {
    eq->left_band[k] = new_section();
    eq->right_band[k] = new_section();
  }
}

void parameter_equalizer_reset(parameter_equalizer_t* eq) {
  for (int k = 0; k < kBands; ++k) {
    IIR_reset(eq->left_band[k]);
    IIR_reset(eq->right_band[k]);
  }
}

void parameter_equalizer_end(parameter_equalizer_t* eq) {
  for (int k = 0; k < kBands; ++k) {
    free_section(eq->left_band[k]);
    free_section(eq->right_band[k]);
  }
}

void parameter_equalizer_setstatus(parameter_equalizer_t* eq, int status) { eq->status = status; }
void parameter_equalizer_getstatus(parameter_equalizer_t* eq, int* status) { *status = eq->status; }
void parameter_equalizer_set_gain_left(parameter_equalizer_t* eq, int gain) { eq->gain_left = gain; }
void parameter_equalizer_get_gain_left(parameter_equalizer_t* eq, int* gain) { *gain = eq->gain_left; }
void parameter_equalizer_set_gain_right(parameter_equalizer_t* eq, int gain) { eq->gain_right = gain; }
void parameter_equalizer_get_gain_right(parameter_equalizer_t* eq, int* gain) { *gain = eq->gain_right; }

void parameter_equalizer_setparameter_left(parameter_equalizer_t* eq, const int (*bands)[6]) {
  set_bands(eq->left_band, bands);
}
void parameter_equalizer_setparameter_right(parameter_equalizer_t* eq, const int (*bands)[6]) {
  set_bands(eq->right_band, bands);
}
void parameter_equalizer_getparameter_left(parameter_equalizer_t* eq, int (*bands)[6]) {
  get_bands(eq->left_band, bands);
}
void parameter_equalizer_getparameter_right(parameter_equalizer_t* eq, int (*bands)[6]) {
  get_bands(eq->right_band, bands);
}

// Block-wise: the gain stage over the whole block, then the two cascades
// (common/biquad_cascade.h). Every section still sees its samples in order,
// so this equals the per-sample cascade exactly.
void parameter_equalizer_process_stereo(parameter_equalizer_t* eq, int* in_left, int* in_right, int* out_left,
                                        int* out_right, int count) {
  const int32_t gl = eq->gain_left;
  const int32_t gr = eq->gain_right;
  for (int i = 0; i < count; ++i) {
    const int32_t l = in_left[i];
    const int32_t r = in_right[i];
    out_left[i] = mulq13(l, gl);
    out_right[i] = mulq13(r, gr);
  }
  biquad_cascade_pair(eq->left_band, kBands, out_left, eq->right_band, kBands, out_right, count);
}

void parameter_equalizer_process_mono(parameter_equalizer_t* eq, int* in, int* out, int count) {
  const int32_t g = eq->gain_left;
  for (int i = 0; i < count; ++i) out[i] = mulq13(in[i], g);
  biquad_cascade(eq->left_band, kBands, out, count);
}

}  // extern "C"
