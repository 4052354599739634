// Karaoke front end: one handle around one karaoke chain; every call is
// forwarded to the chain.
#include "kafx_proc/ktv.h"

#include <android/log.h>

#include <cstdlib>

#include "common/lifecycle.h"

namespace {

constexpr const char* kTag = "kafx_ktv_wrapper";

kedo_audio_tx_ktv_t* chain_of(void* handle) {
  return handle != nullptr ? &static_cast<kafx_ktv_t*>(handle)->chain : nullptr;
}

}  // namespace

// Each setter forwards (handle, value) to one chain function.
#define KAFX_KTV_FORWARD_(name, chain_fn)             \
  void name(void* handle, int value) {                \
    if (kedo_audio_tx_ktv_t* c = chain_of(handle)) {  \
      chain_fn(c, value);                             \
    }                                                 \
  }

extern "C" {

void* kafx_ktv_init(void) {
  const kafx::AllocWatch watch;
  auto* h = kafx::alloc_record<kafx_ktv_t>();
  if (h == nullptr) return nullptr;
  h->sample_format = 16;
  kedo_audio_tx_ktv_init(&h->chain);
  if (watch.failed()) {  // a block, a buffer or a resampler stage is missing
    kafx_ktv_deinit(h);
    return nullptr;
  }
  return h;
}

void kafx_ktv_deinit(void* handle) {
  if (handle == nullptr) return;
  kedo_audio_tx_ktv_end(chain_of(handle));
  std::free(handle);
}

int kafx_ktv_process_16(void* handle, short* in, short* out_left, short* out_right, int count) {
  if (handle == nullptr) return -1;
  auto* h = static_cast<kafx_ktv_t*>(handle);
  return kedo_audio_tx_ktv_process(&h->chain, h->sample_format, in, out_left, out_right, count);
}

void kafx_ktv_eq_setparameter(void* handle, int* params) {
  if (kedo_audio_tx_ktv_t* c = chain_of(handle)) kedo_audio_tx_ktv_eq_set_param_index(c, params);
}

void kafx_ktv_noise_canceling_enable(void* handle, int value) {
  __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s: %d", "kafx_ktv_noise_canceling_enable", value);
  if (kedo_audio_tx_ktv_t* c = chain_of(handle)) kedo_audio_tx_ktv_noise_canceling_setstatus(c, value);
}

KAFX_KTV_FORWARD_(kafx_ktv_set_voice_gain, kedo_audio_tx_ktv_set_volume)
KAFX_KTV_FORWARD_(kafx_ktv_reverb_setroomsize, kedo_audio_tx_ktv_reverb_setroomsize)
KAFX_KTV_FORWARD_(kafx_ktv_reverb_setdamp, kedo_audio_tx_ktv_reverb_setdamp)
KAFX_KTV_FORWARD_(kafx_ktv_reverb_setwet, kedo_audio_tx_ktv_reverb_setwet)
KAFX_KTV_FORWARD_(kafx_ktv_reverb_setdry, kedo_audio_tx_ktv_reverb_setdry)
KAFX_KTV_FORWARD_(kafx_ktv_reverb_setwidth, kedo_audio_tx_ktv_reverb_setwidth)
KAFX_KTV_FORWARD_(kafx_ktv_reverb_setgain, kedo_audio_tx_ktv_reverb_setgain)
KAFX_KTV_FORWARD_(kafx_ktv_reverb_enable, kedo_audio_tx_ktv_reverb_setstatus)
KAFX_KTV_FORWARD_(kafx_ktv_eq_enable, kedo_audio_tx_ktv_eq_setstatus)
KAFX_KTV_FORWARD_(kafx_ktv_gramophone_enable, kedo_audio_tx_ktv_gramophone_setstatus)
KAFX_KTV_FORWARD_(kafx_ktv_hw_howling_canceling_enable, kedo_audio_tx_ktv_howling_canceling_setstatus)
KAFX_KTV_FORWARD_(kafx_ktv_compressor_enable, kedo_audio_tx_ktv_compressor_setstatus)
KAFX_KTV_FORWARD_(kafx_ktv_iirecho_enable, kedo_audio_tx_ktv_iirecho_setstatus)
KAFX_KTV_FORWARD_(kafx_ktv_iirecho_setfeedback, kedo_audio_tx_ktv_iirecho_setfeedback)
KAFX_KTV_FORWARD_(kafx_ktv_iirecho_setdelay, kedo_audio_tx_ktv_iirecho_setdelay)
KAFX_KTV_FORWARD_(kafx_ktv_iirecho_setwet, kedo_audio_tx_ktv_iirecho_setwet)
KAFX_KTV_FORWARD_(kafx_ktv_iirecho_setdry, kedo_audio_tx_ktv_iirecho_setdry)

// Each frame's output belongs to the same frame's input; only the compressor
// could look ahead, and only while it runs.
int kafx_ktv_get_latency(void* handle) {
  const kedo_audio_tx_ktv_t* c = chain_of(handle);
  if (c == nullptr) return -1;
  const compressor_t* comp = c->compressor;
  if (comp == nullptr || comp->status == 0 || comp->drc_left == nullptr) return 0;
  return comp->drc_left->lookahead * comp->drc_left->frame_len;
}

}  // extern "C"
