// Headphone chain: balance -> virtual bass -> parametric or graphic equalizer
// -> widening or reverb -> smart volume -> compressor -> smooth volume, on
// planar blocks of 24-bit working samples, with a mute-and-restore fade
// around every change of calibration record.
#include "kafx_proc/hp_effect_chain.h"

#include <android/log.h>

#include <cstdlib>
#include <cstring>

#include "common/fixed_point.h"
#include "common/lifecycle.h"
#include "headphone/hp_effect_tables.h"

using namespace kafx;

namespace {

constexpr const char* kTag = "kafx_hp_proc";
constexpr int kMaxBlock = KEDO_HP_EFFECT_MAX_BLOCK;

// Fade states (the owner counts them down once per block).
constexpr int kFadeIdle = -1;
constexpr int kFadeRestore = 2;
constexpr int kFadeApply = 4;
constexpr int kFadeStart = 6;

// Preset 1: the widening system's fixed tuning (Q13).
constexpr stereo_param_acdb_t kWideningPreset = {1, 4096, 4096, 6656, 1536, 7168, 4096};

void load_parametric(parameter_equalizer_t* eq, const param_eq_param_acdb_t& rec, int gain_left, int gain_right) {
  parameter_equalizer_reset(eq);
  eq->status = 1;
  eq->gain_left = gain_left;
  eq->gain_right = gain_right;
  parameter_equalizer_setparameter_left(eq, rec.left_band);
  parameter_equalizer_setparameter_right(eq, rec.right_band);
}

void load_widening(stereo_widening_system* s, const stereo_param_acdb_t& p) {
  stereo_widening_system_reset(s);
  s->status = p.status;
  stereo_widening_system_dc_set_side_gain(s, p.side_gain);
  stereo_widening_system_cfn_set_gain(s, p.cfn_gain);
  stereo_widening_system_er_set_dry_gain(s, p.er_dry_gain);
  stereo_widening_system_er_set_wet_gain(s, p.er_wet_gain);
  stereo_widening_system_er_set_roomsize(s, p.er_roomsize);
  stereo_widening_system_er_set_damp(s, p.er_damp);
}

void load_virtual_bass(virtual_bass_system* v, int status, const virtual_bass_param_acdb_t& p) {
  virtual_bass_system_reset(v);
  v->status = status;
  virtual_bass_system_set_nld_clip_level(v, p.nld_clip_level);
  v->harmonic_gain = p.harmonic_gain;
  v->bass_gain = p.bass_gain;
  v->high_gain = p.high_gain;
  int coef[5];
  std::memcpy(coef, p.nld_band_param, sizeof coef);
  virtual_bass_system_set_nld_band_param(v, coef);
}

void load_reverb(reverb_t* r, int roomsize, int damp, int wet, int dry, int width, int gain) {
  reverb_setroomsize(r, roomsize);
  reverb_setdamp(r, damp);
  reverb_setwet(r, wet);
  reverb_setdry(r, dry);
  reverb_setwidth(r, width);
  reverb_setgain(r, gain);
  reverb_update(r);
}

inline bool stereo_out(const kedo_hp_effect_t* h) { return h->channel_balance->channel_num == 2; }

}  // namespace

extern "C" {

void kedo_hp_effect_init(kedo_hp_effect_t* h) {
  h->status = 0;
  h->immediate_switch = 0;
  h->active = 0;
  h->fade_state = kFadeIdle;
  h->rate_type = SAMPLE_RATE_48000;
  // A block that cannot be allocated stays null (the owner checks and ends
  // the chain); a block whose own parts failed is half-built, which its end
  // accepts.
  h->params = alloc_record<audio_effect_control_acdb_t>();
  h->equalizer = new_block<equalizer_t>(equalizer_init);
  h->parameter_equalizer = new_block<parameter_equalizer_t>(parameter_equalizer_init);
  h->reverb = new_block<reverb_t>(reverb_init);
  h->stereo_widening = new_block<stereo_widening_system>(stereo_widening_system_init);
  h->virtual_bass = new_block<virtual_bass_system>(virtual_bass_system_init);
  h->smart_volume = new_block<smart_volume_control_t>(smart_volume_control_init);
  h->channel_balance = new_block<channel_balance_t>(channel_balance_init);
  h->compressor = new_block<compressor_t>(compressor_init, kQ13One, 2);
  h->smooth_volume = new_block<smooth_volume_t>(smooth_volume_init);
  h->work_left = alloc_words(kMaxBlock);
  h->work_right = alloc_words(kMaxBlock);
}

void kedo_hp_effect_set_sample_rate(kedo_hp_effect_t* h, unsigned int rate) {
  h->rate_type = rate_type_of(rate);
  stereo_widening_system_set_sample_rate(h->stereo_widening, h->rate_type);
  virtual_bass_system_set_sample_rate(h->virtual_bass, h->rate_type);
  smart_volume_control_set_sample_rate(h->smart_volume, h->rate_type);
  compressor_set_sample_rate(h->compressor, h->rate_type);
}

void kedo_hp_effect_reset(kedo_hp_effect_t* h) {
  equalizer_reset(h->equalizer);
  parameter_equalizer_reset(h->parameter_equalizer);
  reverb_reset(h->reverb);
  stereo_widening_system_reset(h->stereo_widening);
  virtual_bass_system_reset(h->virtual_bass);
  smart_volume_control_reset(h->smart_volume);
  compressor_reset(h->compressor);
}

void kedo_hp_effect_end(kedo_hp_effect_t* h) {
  h->immediate_switch = 0;
  h->active = 0;
  free_null(h->work_left);
  free_null(h->work_right);
  free_null(h->params);
  end_block(h->equalizer, equalizer_end);
  end_block(h->parameter_equalizer, parameter_equalizer_end);
  end_block(h->reverb, reverb_end);
  end_block(h->stereo_widening, stereo_widening_system_end);
  end_block(h->virtual_bass, virtual_bass_system_end);
  end_block(h->smart_volume, smart_volume_control_end);
  end_block(h->channel_balance, channel_balance_end);
  end_block(h->compressor, compressor_end);
  end_block(h->smooth_volume, smooth_volume_end);
}

// --- preset switching ------------------------------------------------------

// Starts a fade when none is running (fading out from the current gain, or
// from unity when the glide is already resting at 0); during the muted
// states a new record is applied again at state 4; while fading out the
// running fade is kept as it is.
void kedo_hp_effect_update_smooth_status(kedo_hp_effect_t* h) {
  smooth_volume_t* sv = h->smooth_volume;
  if (h->fade_state < kFadeRestore) {
    h->fade_state = kFadeStart;
    sv->target_gain = 0;
    if (sv->current_gain == sv->target_gain) sv->current_gain = kQ13One;
  } else if (h->fade_state < 5) {
    h->fade_state = kFadeApply;
  }
}

void kedo_hp_effect_setstatus(kedo_hp_effect_t* h, int status) {
  h->status = status;
  if (h->immediate_switch != 0) kedo_hp_effect_reset(h);
  else kedo_hp_effect_update_smooth_status(h);
}

void kedo_hp_effect_debug_enable_setstatus(kedo_hp_effect_t* h, int immediate) { h->immediate_switch = immediate; }
void kedo_hp_effect_debug_enable_getstatus(kedo_hp_effect_t* h, int* immediate) { *immediate = h->immediate_switch; }

void kedo_hp_effect_setparameter(kedo_hp_effect_t* h, const audio_effect_control_acdb_t* record) {
  const bool same = std::memcmp(record, h->params, sizeof *record) == 0;
  if (!same && h->status == 1) kedo_hp_effect_update_smooth_status(h);
  *h->params = *record;
}

void kedo_hp_effect_getparameter(kedo_hp_effect_t* h, audio_effect_control_acdb_t* record) { *record = *h->params; }

void kedo_hp_effect_update_parameter(kedo_hp_effect_t* h) {
  const audio_effect_control_acdb_t& p = *h->params;
  const int* data = p.effect_data;
  h->channel_balance->status = 0;
  h->equalizer->status = 0;
  h->parameter_equalizer->status = 0;
  h->reverb->status = 0;
  h->stereo_widening->status = 0;
  h->virtual_bass->status = 0;
  h->smart_volume->status = 0;
  compressor_reset(h->compressor);

  switch (p.effect_type) {
    case KEDO_HP_EFFECT_STEREO_WIDENING:
      load_widening(h->stereo_widening, kWideningPreset);
      break;
    case KEDO_HP_EFFECT_VIRTUAL_BASS:
      load_virtual_bass(h->virtual_bass, 1, kHpVirtualBassPreset[h->rate_type]);
      break;
    case KEDO_HP_EFFECT_PARAMETRIC_EQ:
      load_parametric(h->parameter_equalizer, kHpParametricPreset[h->rate_type == SAMPLE_RATE_44100 ? 0 : 1],
                      kQ13One, kQ13One);
      break;
    case KEDO_HP_EFFECT_REVERB:
      reverb_reset(h->reverb);
      h->reverb->status = 1;
      load_reverb(h->reverb, data[0], data[1], data[2], data[3], data[4], data[5]);
      break;
    case KEDO_HP_EFFECT_GRAPHIC_EQ:
      equalizer_reset(h->equalizer);
      h->equalizer->status = 1;
      equalizer_set_param_index(h->equalizer, data, h->rate_type);
      break;
    default:
      break;
  }

  const int adapter = p.hpadapter_type;
  if (p.effect_type != KEDO_HP_EFFECT_PARAMETRIC_EQ && p.effect_type != KEDO_HP_EFFECT_GRAPHIC_EQ && adapter >= 1 &&
      adapter <= KEDO_HP_EFFECT_ADAPTERS) {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "hpadapter %d enable", adapter);
    const param_eq_param_acdb_t& rec = kHpAdapterTable[h->rate_type][adapter - 1];
    load_parametric(h->parameter_equalizer, rec, rec.gain_left, rec.gain_right);
  }
  __android_log_print(ANDROID_LOG_DEBUG, kTag, "effect_type %d, hpadapter_type %d", p.effect_type, adapter);
}

// --- per-block records -----------------------------------------------------

void kedo_hp_effect_eq_setparameter_data(kedo_hp_effect_t* h, const eq_param_acdb_t* p) {
  equalizer_t* eq = h->equalizer;
  if (p->status != eq->status) equalizer_reset(eq);
  eq->status = p->status;
  eq->gain = p->gain;
  equalizer_setparameter(eq, p->band);
}

void kedo_hp_effect_eq_getparameter_data(kedo_hp_effect_t* h, eq_param_acdb_t* p) {
  p->status = h->equalizer->status;
  p->gain = h->equalizer->gain;
  equalizer_getparameter(h->equalizer, p->band);
}

void kedo_hp_effect_eq_setparameter_index(kedo_hp_effect_t* h, const equalizer_params* p) {
  equalizer_t* eq = h->equalizer;
  if (p->status != eq->status) equalizer_reset(eq);
  eq->status = p->status;
  equalizer_set_param_index(eq, p->index, h->rate_type);
}

void kedo_hp_effect_eq_getparameter_index(kedo_hp_effect_t* h, equalizer_params* p) {
  p->status = h->equalizer->status;
  equalizer_get_param_index(h->equalizer, p->index);
}

void kedo_hp_effect_p_eq_setparameter(kedo_hp_effect_t* h, const param_eq_param_acdb_t* p) {
  parameter_equalizer_t* eq = h->parameter_equalizer;
  if (p->status != eq->status) parameter_equalizer_reset(eq);
  eq->status = p->status;
  eq->gain_left = p->gain_left;
  eq->gain_right = p->gain_right;
  parameter_equalizer_setparameter_left(eq, p->left_band);
  parameter_equalizer_setparameter_right(eq, p->right_band);
}

void kedo_hp_effect_p_eq_getparameter(kedo_hp_effect_t* h, param_eq_param_acdb_t* p) {
  parameter_equalizer_t* eq = h->parameter_equalizer;
  p->status = eq->status;
  p->gain_left = eq->gain_left;
  p->gain_right = eq->gain_right;
  parameter_equalizer_getparameter_left(eq, p->left_band);
  parameter_equalizer_getparameter_right(eq, p->right_band);
}

void kedo_hp_effect_reverb_setparameter(kedo_hp_effect_t* h, const reverb_param_acdb_t* p) {
  reverb_t* r = h->reverb;
  if (p->status != r->status) reverb_reset(r);
  reverb_setstatus(r, p->status);
  load_reverb(r, p->roomsize, p->damp, p->wet, p->dry, p->width, p->gain);
}

void kedo_hp_effect_reverb_getparameter(kedo_hp_effect_t* h, reverb_param_acdb_t* p) {
  reverb_t* r = h->reverb;
  reverb_getstatus(r, &p->status);
  reverb_getroomsize(r, &p->roomsize);
  reverb_getdamp(r, &p->damp);
  reverb_getwet(r, &p->wet);
  reverb_getdry(r, &p->dry);
  reverb_getwidth(r, &p->width);
  reverb_getgain(r, &p->gain);
}

void kedo_hp_effect_vbs_setparameter(kedo_hp_effect_t* h, const virtual_bass_param_acdb_t* p) {
  load_virtual_bass(h->virtual_bass, p->status, *p);
}

void kedo_hp_effect_vbs_getparameter(kedo_hp_effect_t* h, virtual_bass_param_acdb_t* p) {
  virtual_bass_system* v = h->virtual_bass;
  p->status = v->status;
  virtual_bass_system_get_nld_clip_level(v, &p->nld_clip_level);
  p->harmonic_gain = v->harmonic_gain;
  p->bass_gain = v->bass_gain;
  p->high_gain = v->high_gain;
  virtual_bass_system_get_nld_band_param(v, p->nld_band_param);
}

void kedo_hp_effect_sws_setparameter(kedo_hp_effect_t* h, const stereo_param_acdb_t* p) {
  load_widening(h->stereo_widening, *p);
}

void kedo_hp_effect_sws_getparameter(kedo_hp_effect_t* h, stereo_param_acdb_t* p) {
  stereo_widening_system* s = h->stereo_widening;
  p->status = s->status;
  stereo_widening_system_dc_get_side_gain(s, &p->side_gain);
  stereo_widening_system_cfn_get_gain(s, &p->cfn_gain);
  stereo_widening_system_er_get_dry_gain(s, &p->er_dry_gain);
  stereo_widening_system_er_get_wet_gain(s, &p->er_wet_gain);
  stereo_widening_system_er_get_roomsize(s, &p->er_roomsize);
  stereo_widening_system_er_get_damp(s, &p->er_damp);
}

void kedo_hp_effect_svc_setparameter(kedo_hp_effect_t* h, const smart_volume_control_param_acdb_t* p) {
  smart_volume_control_t* s = h->smart_volume;
  s->status = p->status;
  smart_volume_control_set_level(s, p->level);
  smart_volume_control_set_attact_order(s, p->attact_order);
  smart_volume_control_set_release_order(s, p->release_order);
}

void kedo_hp_effect_svc_getparameter(kedo_hp_effect_t* h, smart_volume_control_param_acdb_t* p) {
  smart_volume_control_t* s = h->smart_volume;
  p->status = s->status;
  smart_volume_control_get_level(s, &p->level);
  smart_volume_control_get_attact_order(s, &p->attact_order);
  smart_volume_control_get_release_order(s, &p->release_order);
}

void kedo_hp_effect_cb_setparameter(kedo_hp_effect_t* h, const channel_balance_param_acdb_t* p) {
  channel_balance_t* cb = h->channel_balance;
  cb->status = p->status;
  cb->channel_num = p->channel_num;
  cb->channel_ration = p->channel_ration;
}

void kedo_hp_effect_cb_getparameter(kedo_hp_effect_t* h, channel_balance_param_acdb_t* p) {
  p->status = h->channel_balance->status;
  p->channel_num = h->channel_balance->channel_num;
  p->channel_ration = h->channel_balance->channel_ration;
}

void kedo_hp_effect_sv_set_volume(kedo_hp_effect_t* h, int volume) { smooth_volume_set_volume(h->smooth_volume, volume); }
void kedo_hp_effect_sv_get_volume(kedo_hp_effect_t* h, int* volume) { smooth_volume_get_volume(h->smooth_volume, volume); }
void kedo_hp_effect_sv_set_smooth_buffer_num(kedo_hp_effect_t* h, int n) {
  smooth_volume_set_smooth_buffer_num(h->smooth_volume, n);
}
void kedo_hp_effect_sv_get_smooth_buffer_num(kedo_hp_effect_t* h, int* n) {
  smooth_volume_get_smooth_buffer_num(h->smooth_volume, n);
}

// --- processing ------------------------------------------------------------

void kedo_hp_effect_core_process(kedo_hp_effect_t* h, int* left, int* right, int count) {
  if (count > kMaxBlock) return;  // the blocks' own buffers hold 256 samples
  if (h->fade_state == kFadeApply) {
    h->active = h->status;
    if (h->status != 1) h->fade_state = kFadeRestore;
    else kedo_hp_effect_update_parameter(h);
  }
  if (h->fade_state == kFadeRestore) h->smooth_volume->target_gain = kQ13One;

  if (h->active == 1) {
    if (h->channel_balance->status != 0)
      channel_balance_process_stereo(h->channel_balance, left, right, left, right, count);
    if (h->virtual_bass->status != 0) virtual_bass_system_process(h->virtual_bass, left, right, left, right, count);
    if (h->parameter_equalizer->status != 0)
      parameter_equalizer_process_stereo(h->parameter_equalizer, left, right, left, right, count);
    else if (h->equalizer->status != 0)
      equalizer_process_stereo(h->equalizer, left, right, left, right, count);
    if (h->stereo_widening->status != 0)
      stereo_widening_system_process(h->stereo_widening, left, right, left, right, count);
    else if (h->reverb->status != 0 && count > 0)
      reverb_process_stereo_24(h->reverb, left, right, left, right, static_cast<unsigned int>(count));
    if (h->smart_volume->status != 0) smart_volume_control_process(h->smart_volume, left, right, left, right, count);
    compressor_process(h->compressor, left, right, left, right, count);
  }
  smooth_volume_process(h->smooth_volume, left, right, left, right, count);
}

void kedo_hp_effect_process_16(kedo_hp_effect_t* h, void* in_left, void* in_right, void* out_left, void* out_right,
                               int count) {
  if (count > kMaxBlock) return;  // would overrun the working blocks
  const auto* il = static_cast<const int16_t*>(in_left);
  const auto* ir = static_cast<const int16_t*>(in_right);
  for (int i = 0; i < count; ++i) {
    h->work_left[i] = il[i] * 256;
    h->work_right[i] = ir[i] * 256;
  }
  kedo_hp_effect_core_process(h, h->work_left, h->work_right, count);
  auto* ol = static_cast<int16_t*>(out_left);
  auto* orr = static_cast<int16_t*>(out_right);
  const bool st = stereo_out(h);
  for (int i = 0; i < count; ++i) {
    ol[i] = sat16(h->work_left[i] >> 8);
    orr[i] = st ? sat16(h->work_right[i] >> 8) : ol[i];
  }
}

void kedo_hp_effect_process_24(kedo_hp_effect_t* h, void* in_left, void* in_right, void* out_left, void* out_right,
                               int count) {
  if (count > kMaxBlock) return;  // would overrun the working blocks
  const auto* il = static_cast<const int32_t*>(in_left);
  const auto* ir = static_cast<const int32_t*>(in_right);
  for (int i = 0; i < count; ++i) {
    h->work_left[i] = il[i];
    h->work_right[i] = ir[i];
  }
  kedo_hp_effect_core_process(h, h->work_left, h->work_right, count);
  auto* ol = static_cast<int32_t*>(out_left);
  auto* orr = static_cast<int32_t*>(out_right);
  const bool st = stereo_out(h);
  for (int i = 0; i < count; ++i) {
    ol[i] = clamp24(h->work_left[i]);
    orr[i] = st ? clamp24(h->work_right[i]) : ol[i];
  }
}

void kedo_hp_effect_process_v2(kedo_hp_effect_t* h, int bits, void* in_left, void* in_right, void* out_left,
                               void* out_right, int count) {
  if (bits == 16) kedo_hp_effect_process_16(h, in_left, in_right, out_left, out_right, count);
  else kedo_hp_effect_process_24(h, in_left, in_right, out_left, out_right, count);
}

}  // extern "C"
