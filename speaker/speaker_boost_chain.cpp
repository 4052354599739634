// Speaker-boost chain: balance -> parametric equalizer -> speaker boost system
// on planar 24-bit working blocks, clamped to +-8388607.
#include "kafx_proc/speaker_boost_chain.h"

#include <cstdlib>
#include <cstring>

#include "common/fixed_point.h"
#include "common/lifecycle.h"

using namespace kafx;

namespace {

constexpr int kScratch = KEDO_SPEAKER_BOOST_MAX_BLOCK;

inline bool stereo(const kedo_speaker_boost_t* c) { return c->channel_num == 2; }

}  // namespace

extern "C" {

void kedo_speaker_boost_init(kedo_speaker_boost_t* c) {
  c->enable = 0;
  c->channel_num = 2;
  c->rate_type = SAMPLE_RATE_48000;
  // A record that cannot be allocated stays null (see common/lifecycle.h).
  c->p_eq = alloc_record<parameter_equalizer_t>();
  if (c->p_eq != nullptr) parameter_equalizer_init(c->p_eq);
  c->sbs = alloc_record<speaker_boost_system_t>();
  if (c->sbs != nullptr) speaker_boost_system_init(c->sbs);
  c->cb = alloc_record<channel_balance_t>();
  if (c->cb != nullptr) channel_balance_init(c->cb);
  c->work_left = alloc_words(kScratch);
  c->work_right = alloc_words(kScratch);
}

void kedo_speaker_boost_set_sample_rate(kedo_speaker_boost_t* c, unsigned int rate) {
  c->rate_type = rate_type_of(rate);
  speaker_boost_system_set_sample_rate(c->sbs, c->rate_type);
}

void kedo_speaker_boost_reset(kedo_speaker_boost_t* c) {
  parameter_equalizer_reset(c->p_eq);
  speaker_boost_system_reset(c->sbs);
}

void kedo_speaker_boost_end(kedo_speaker_boost_t* c) {
  free_null(c->work_left);
  free_null(c->work_right);
  if (c->p_eq != nullptr) parameter_equalizer_end(c->p_eq);
  free_null(c->p_eq);
  if (c->sbs != nullptr) speaker_boost_system_end(c->sbs);
  free_null(c->sbs);
  if (c->cb != nullptr) channel_balance_end(c->cb);
  free_null(c->cb);
}

void kedo_speaker_boost_set_channel_num(kedo_speaker_boost_t* c, int num) {
  c->channel_num = num;
  c->cb->channel_num = num;
}

// --- one-word accessors ----------------------------------------------------
void kedo_speaker_boost_p_eq_setstatus(kedo_speaker_boost_t* c, int v) { c->p_eq->status = v; }
void kedo_speaker_boost_p_eq_getstatus(kedo_speaker_boost_t* c, int* v) { *v = c->p_eq->status; }
void kedo_speaker_boost_p_eq_set_gain_left(kedo_speaker_boost_t* c, int v) { c->p_eq->gain_left = v; }
void kedo_speaker_boost_p_eq_get_gain_left(kedo_speaker_boost_t* c, int* v) { *v = c->p_eq->gain_left; }
void kedo_speaker_boost_p_eq_set_gain_right(kedo_speaker_boost_t* c, int v) { c->p_eq->gain_right = v; }
void kedo_speaker_boost_p_eq_get_gain_right(kedo_speaker_boost_t* c, int* v) { *v = c->p_eq->gain_right; }
void kedo_speaker_boost_p_eq_setparameter_left(kedo_speaker_boost_t* c, const int (*bands)[6]) {
  parameter_equalizer_setparameter_left(c->p_eq, bands);
}
void kedo_speaker_boost_p_eq_getparameter_left(kedo_speaker_boost_t* c, int (*bands)[6]) {
  parameter_equalizer_getparameter_left(c->p_eq, bands);
}
void kedo_speaker_boost_p_eq_setparameter_right(kedo_speaker_boost_t* c, const int (*bands)[6]) {
  parameter_equalizer_setparameter_right(c->p_eq, bands);
}
void kedo_speaker_boost_p_eq_getparameter_right(kedo_speaker_boost_t* c, int (*bands)[6]) {
  parameter_equalizer_getparameter_right(c->p_eq, bands);
}

void kedo_speaker_boost_sbs_setstatus(kedo_speaker_boost_t* c, int v) { c->sbs->status = v; }
void kedo_speaker_boost_sbs_getstatus(kedo_speaker_boost_t* c, int* v) { *v = c->sbs->status; }
void kedo_speaker_boost_sbs_set_nld_gain_left(kedo_speaker_boost_t* c, int v) { c->sbs->nld_gain_left = v; }
void kedo_speaker_boost_sbs_get_nld_gain_left(kedo_speaker_boost_t* c, int* v) { *v = c->sbs->nld_gain_left; }
void kedo_speaker_boost_sbs_set_nld_gain_right(kedo_speaker_boost_t* c, int v) { c->sbs->nld_gain_right = v; }
void kedo_speaker_boost_sbs_get_nld_gain_right(kedo_speaker_boost_t* c, int* v) { *v = c->sbs->nld_gain_right; }
void kedo_speaker_boost_sbs_set_channel_num(kedo_speaker_boost_t* c, int v) { c->sbs->channel_num = v; }
void kedo_speaker_boost_sbs_get_channel_num(kedo_speaker_boost_t* c, int* v) { *v = c->sbs->channel_num; }
void kedo_speaker_boost_sbs_set_nld_param(kedo_speaker_boost_t* c, int* coef) {
  speaker_boost_system_set_nld_param(c->sbs, coef);
}
void kedo_speaker_boost_sbs_get_nld_param(kedo_speaker_boost_t* c, int* coef) {
  speaker_boost_system_get_nld_param(c->sbs, coef);
}

// The sixteen limiter accessors are in speaker_boost_chain_accessors.cpp.

void kedo_speaker_boost_cb_setstatus(kedo_speaker_boost_t* c, int v) { c->cb->status = v; }
void kedo_speaker_boost_cb_getstatus(kedo_speaker_boost_t* c, int* v) { *v = c->cb->status; }
void kedo_speaker_boost_cb_set_channel_ration(kedo_speaker_boost_t* c, int v) { c->cb->channel_ration = v; }
void kedo_speaker_boost_cb_get_channel_ration(kedo_speaker_boost_t* c, int* v) { *v = c->cb->channel_ration; }
void kedo_speaker_boost_cb_set_channel_num(kedo_speaker_boost_t* c, int v) { c->cb->channel_num = v; }
void kedo_speaker_boost_cb_get_channel_num(kedo_speaker_boost_t* c, int* v) { *v = c->cb->channel_num; }

// --- processing ------------------------------------------------------------
void kedo_speaker_boost_core_process(kedo_speaker_boost_t* c, int* left, int* right, int count) {
  const bool st = stereo(c);
  if (c->cb->status != 0) {
    if (st) channel_balance_process_stereo(c->cb, left, right, left, right, count);
    else channel_balance_process_mono(c->cb, left, right, left, count);
  }
  if (c->p_eq->status != 0) {
    if (st) parameter_equalizer_process_stereo(c->p_eq, left, right, left, right, count);
    else parameter_equalizer_process_mono(c->p_eq, left, left, count);
  }
  if (c->sbs->status != 0) {
    if (st) speaker_boost_system_process_stereo(c->sbs, left, right, left, right, count);
    else speaker_boost_system_process_mono(c->sbs, left, left, count);
  }
  for (int i = 0; i < count; ++i) {
    left[i] = clamp24(left[i]);
    right[i] = clamp24(right[i]);
  }
}

void kedo_speaker_boost_process_16(kedo_speaker_boost_t* c, void* in_left, void* in_right, void* out_left,
                                   void* out_right, int count) {
  if (count > kScratch) return;  // would overrun the scratch blocks
  const auto* il = static_cast<const int16_t*>(in_left);
  const auto* ir = static_cast<const int16_t*>(in_right);
  auto* ol = static_cast<int16_t*>(out_left);
  auto* orr = static_cast<int16_t*>(out_right);
  for (int i = 0; i < count; ++i) {
    c->work_left[i] = il[i] * 256;
    c->work_right[i] = ir[i] * 256;
  }
  kedo_speaker_boost_core_process(c, c->work_left, c->work_right, count);
  const bool st = stereo(c);
  for (int i = 0; i < count; ++i) {
    ol[i] = sat16(c->work_left[i] >> 8);
    orr[i] = st ? sat16(c->work_right[i] >> 8) : ol[i];
  }
}

void kedo_speaker_boost_process_24(kedo_speaker_boost_t* c, void* in_left, void* in_right, void* out_left,
                                   void* out_right, int count) {
  if (count > kScratch) return;  // would overrun the scratch blocks
  const auto* il = static_cast<const int32_t*>(in_left);
  const auto* ir = static_cast<const int32_t*>(in_right);
  auto* ol = static_cast<int32_t*>(out_left);
  auto* orr = static_cast<int32_t*>(out_right);
  for (int i = 0; i < count; ++i) {
    c->work_left[i] = il[i] >> 4;
    c->work_right[i] = ir[i] >> 4;
  }
  kedo_speaker_boost_core_process(c, c->work_left, c->work_right, count);
  const bool st = stereo(c);
  for (int i = 0; i < count; ++i) {
    ol[i] = shl_sat<4>(c->work_left[i]);
    orr[i] = st ? shl_sat<4>(c->work_right[i]) : ol[i];
  }
}

void kedo_speaker_boost_process_v2(kedo_speaker_boost_t* c, int bits, void* in_left, void* in_right,
                                   void* out_left, void* out_right, int count) {
  if (bits == 16) kedo_speaker_boost_process_16(c, in_left, in_right, out_left, out_right, count);
  else kedo_speaker_boost_process_24(c, in_left, in_right, out_left, out_right, count);
}

}  // extern "C"
