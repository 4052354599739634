// Graphic equalizer: per channel a Q13 input gain and ten Q28 biquad
// sections in cascade (low shelf, eight octave peaks, high shelf), the same
// bands on both channels. Bands come from the built-in gain-step tables
// (common/equalizer_tables.cpp) or as raw coefficient sets.
#include "kafx_proc/equalizer.h"

#include <cstdlib>

#include "common/lifecycle.h"
#include "common/biquad.h"
#include "common/biquad_cascade.h"
#include "common/equalizer_tables.h"
#include "common/gain_kernels.h"

using namespace kafx;

namespace {

constexpr int kBands = EQUALIZER_BANDS;
constexpr int32_t kPassThrough[5] = {kQ28One, 0, 0, 0, 0};

IIR_t* new_section() {
  auto* s = kafx::alloc_record<IIR_t>();
  if (s != nullptr) IIR_init(s, kPassThrough);
  return s;
}

void free_section(IIR_t*& s) {
  if (s != nullptr) IIR_end(s);
  kafx::free_null(s);
}

int clamp_index(int i) {
  return i > EQUALIZER_MAX_INDEX ? EQUALIZER_MAX_INDEX : (i < -EQUALIZER_MAX_INDEX ? -EQUALIZER_MAX_INDEX : i);
}

// Table 0 = 44100 Hz, 1 = 48000 Hz, 2 = 96000 Hz.
void set_from_table(equalizer_t* eq, const int* indices, int table) {
  for (int b = 0; b < kBands; ++b) {
    const int i = clamp_index(indices[b]);
    eq->band_index[b] = i;
    const int32_t* row = kEqualizerTables[table][b][i + EQUALIZER_MAX_INDEX];
    IIR_set_param(eq->left_band[b], row);
    IIR_set_param(eq->right_band[b], row);
  }
}


}  // namespace

extern "C" {

void equalizer_init(equalizer_t* eq) {
  eq->status = 0;
  eq->gain = kQ13One;
  for (int b = 0; b < kBands; ++b) {
    eq->band_index[b] = 0;
    eq->left_band[b] = new_section();
    eq->right_band[b] = new_section();
  }
}

void equalizer_reset(equalizer_t* eq) {
  for (int b = 0; b < kBands; ++b) {
    IIR_reset(eq->left_band[b]);
    IIR_reset(eq->right_band[b]);
  }
}

void equalizer_end(equalizer_t* eq) {
  for (int b = 0; b < kBands; ++b) {
    eq->band_index[b] = 0;
    free_section(eq->left_band[b]);
    free_section(eq->right_band[b]);
  }
}

void equalizer_setparameter(equalizer_t* eq, const int (*coef)[5]) {
  for (int b = 0; b < kBands; ++b) {
    IIR_set_param(eq->left_band[b], coef[b]);
    IIR_set_param(eq->right_band[b], coef[b]);
  }
}

// Read from the left cascade and then again from the right one into the
// same place, so the caller gets the right cascade's coefficients.
void equalizer_getparameter(equalizer_t* eq, int (*coef)[5]) {
  for (int b = 0; b < kBands; ++b) {
    IIR_get_param(eq->left_band[b], coef[b]);
    IIR_get_param(eq->right_band[b], coef[b]);
  }
}

void equalizer_set_param_index_44100(equalizer_t* eq, const int* indices) { set_from_table(eq, indices, 0); }
void equalizer_set_param_index_48000(equalizer_t* eq, const int* indices) { set_from_table(eq, indices, 1); }
void equalizer_set_param_index_96000(equalizer_t* eq, const int* indices) { set_from_table(eq, indices, 2); }

void equalizer_set_param_index(equalizer_t* eq, const int* indices, SampleRateType rate) {
  if (rate == SAMPLE_RATE_44100) {
    equalizer_set_param_index_44100(eq, indices);
  } else if (rate == SAMPLE_RATE_96000) {
    equalizer_set_param_index_96000(eq, indices);
  } else {
    equalizer_set_param_index_48000(eq, indices);
  }
}

void equalizer_get_param_index(equalizer_t* eq, int* indices) {
  for (int b = 0; b < kBands; ++b) indices[b] = eq->band_index[b];
}

// Block-wise: the gain stage over the whole block, then the two cascades
// (common/biquad_cascade.h). Each section still sees its samples in order
// and the channels never mix, so this is exactly the per-sample cascade.
void equalizer_process_stereo(equalizer_t* eq, int* in_left, int* in_right, int* out_left, int* out_right,
                              int count) {
  for (int i = 0; i < count; ++i) {
    const int32_t l = in_left[i];
    const int32_t r = in_right[i];
    out_left[i] = mulq13(l, eq->gain);
    out_right[i] = mulq13(r, eq->gain);
  }
  biquad_cascade_pair(eq->left_band, kBands, out_left, eq->right_band, kBands, out_right, count);
}

void equalizer_process_mono(equalizer_t* eq, int* in, int* out, int count) {
  run_chosen<gain_run_q13_variants>(in, out, eq->gain, count);
  biquad_cascade(eq->left_band, kBands, out, count);
}

}  // extern "C"
