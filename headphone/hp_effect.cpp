// Headphone front end: interleaved stereo host buffers in place, cut into
// blocks of 240 or 256 frames of planar 24-bit working samples for the chain;
// the chain's preset fade advances one state per block.
#include "kafx_proc/hp_effect.h"

#include <android/log.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "common/lifecycle.h"
#include "common/fixed_point.h"

using namespace kafx;

namespace {

constexpr const char* kTag = "kafx_hp_wrapper";
constexpr int kWork = KEDO_HP_EFFECT_MAX_BLOCK;
constexpr unsigned int kLowestRate = 44050;   // 44100 Hz - 50
constexpr unsigned int kHighestRate = 48050;  // 48000 Hz + 50

kafx_hp_effect_t* as_handle(void* h) { return static_cast<kafx_hp_effect_t*>(h); }

// Block length for a buffer of `frames` frames: 240 for multiples of 240;
// otherwise the length that leaves the longer last block, 256 on a tie and
// for multiples of 256.
int32_t choose_block_len(size_t frames) {
  const size_t low240 = frames % 240;
  if (low240 == 0) return KAFX_HP_EFFECT_BLOCK_240;
  const size_t low256 = frames % 256;
  return (low256 != 0 && low240 > low256) ? KAFX_HP_EFFECT_BLOCK_240 : KAFX_HP_EFFECT_BLOCK_256;
}

// Runs the chain on consecutive blocks of the interleaved buffer, counting
// the fade down once per block.
template <typename Sample, bool Narrow>
void run_blocks(kafx_hp_effect_t* h, Sample* s, size_t frames) {
  int32_t* wl = h->work_left;
  int32_t* wr = h->work_right;
  for (size_t done = 0; done < frames;) {
    const size_t left = frames - done;
    const int n = static_cast<int>(left < static_cast<size_t>(h->block_len) ? left : h->block_len);
    Sample* p = s + 2 * done;
    for (int i = 0; i < n; ++i) {
      wl[i] = Narrow ? p[2 * i] * 256 : p[2 * i];
      wr[i] = Narrow ? p[2 * i + 1] * 256 : p[2 * i + 1];
    }
    kedo_hp_effect_core_process(&h->chain, wl, wr, n);
    if (h->chain.fade_state > -1) --h->chain.fade_state;
    for (int i = 0; i < n; ++i) {
      if constexpr (Narrow) {
        p[2 * i + 1] = sat16(wr[i] >> 8);
        p[2 * i] = sat16(wl[i] >> 8);
      } else {
        p[2 * i + 1] = wr[i];
        p[2 * i] = wl[i];
      }
    }
    done += static_cast<size_t>(n);
  }
}

}  // namespace

extern "C" {

void* kafx_hp_effect_init(unsigned int sample_rate, int format_type) {
  __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s: sample_rate %u, format_type %d", "kafx_hp_effect_init",
                      sample_rate, format_type);
  const kafx::AllocWatch watch;
  auto* h = kafx::alloc_record<kafx_hp_effect_t>();
  if (h == nullptr) return nullptr;
  h->enabled = 1;
  h->sample_rate = static_cast<int32_t>(sample_rate);
  if (sample_rate < kLowestRate || sample_rate > kHighestRate) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "%s: sample_rate %zu unmatch, need bypass", "kafx_hp_effect_init",
                        static_cast<size_t>(sample_rate));
    h->enabled = 0;
  }
  h->format_type = (format_type >= 1 && format_type <= 3) ? format_type : 0;
  h->bits = h->format_type == 1 ? 16 : 32;
  h->bytes_per_sample = h->format_type == 1 ? 2 : 4;

  kedo_hp_effect_init(&h->chain);
  if (watch.failed()) {  // the rate setting below needs every block
    kafx_hp_effect_deinit(h);
    return nullptr;
  }
  kedo_hp_effect_set_sample_rate(&h->chain, sample_rate);
  kedo_hp_effect_setstatus(&h->chain, h->enabled);
  kedo_hp_effect_reset(&h->chain);

  h->frame_count = kWork;
  h->block_len = kWork;
  h->work_left = kafx::alloc_words(kWork);
  h->work_right = kafx::alloc_words(kWork);
  if (watch.failed()) {
    kafx_hp_effect_deinit(h);
    return nullptr;
  }
  return h;
}

void kafx_hp_effect_deinit(void* handle) {
  if (handle == nullptr) return;
  auto* h = as_handle(handle);
  kedo_hp_effect_end(&h->chain);
  kafx::free_null(h->work_left);
  kafx::free_null(h->work_right);
  std::free(h);
}

void kafx_hp_effect_reset(void* handle) {
  if (handle == nullptr) return;
  kedo_hp_effect_reset(&as_handle(handle)->chain);
}

void kafx_hp_effect_set_parameters(void* handle, void* record) {
  if (handle == nullptr || record == nullptr) return;
  auto* h = as_handle(handle);
  const auto* rec = static_cast<const audio_effect_control_acdb_t*>(record);
  __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s: effect %d hpadapter %d", "kafx_hp_effect_set_parameters",
                      rec->effect_type, rec->hpadapter_type);
  h->params = *rec;
  kedo_hp_effect_setparameter(&h->chain, &h->params);
}

void kafx_hp_effect_get_parameters(void* handle, void* record) {
  if (handle == nullptr || record == nullptr) return;
  *static_cast<audio_effect_control_acdb_t*>(record) = as_handle(handle)->params;
}

void kafx_hp_effect_process(void* handle, void* buffer, unsigned int bytes) {
  if (handle == nullptr || buffer == nullptr) return;
  auto* h = as_handle(handle);
  if (h->enabled == 0) return;
  const size_t frames = bytes / (static_cast<size_t>(h->bytes_per_sample) * 2);
  if (frames != static_cast<size_t>(h->frame_count)) {
    h->frame_count = static_cast<int32_t>(frames);
    h->block_len = choose_block_len(frames);
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s: frame size change to %zu", "kafx_hp_effect_process",
                        static_cast<size_t>(h->block_len));
  }
  if (h->bits == 16) {
    run_blocks<int16_t, true>(h, static_cast<int16_t*>(buffer), frames);
    return;
  }
  auto* s = static_cast<int32_t*>(buffer);
  const size_t samples = 2 * frames;  // whole frames only: a trailing odd sample stays as it is
  const bool full_scale = h->format_type == 3;
  if (full_scale)
    for (size_t i = 0; i < samples; ++i) s[i] = full_scale_to_working(s[i]);
  run_blocks<int32_t, false>(h, s, frames);
  if (full_scale)
    for (size_t i = 0; i < samples; ++i) s[i] = shl_sat<8>(s[i]);
}

// The front end itself does not delay; the chain's compressor, which runs on
// every processed block, looks ahead by delay_frames of its own blocks. A
// bypassed handle returns the buffer untouched: no latency.
int kafx_hp_effect_get_latency(void* handle) {
  if (handle == nullptr) return -1;
  const auto* h = as_handle(handle);
  const compressor_t* c = h->chain.compressor;
  if (h->enabled == 0 || c == nullptr || c->drc_left == nullptr) return 0;
  return c->drc_left->lookahead * c->drc_left->frame_len;
}

}  // extern "C"
