// Speaker-boost front end: re-blocks interleaved host buffers of any length
// into 240-frame planar blocks of 24-bit working samples, runs the chain and
// hands the result back in place one block later (239 frames of latency).
#include "kafx_proc/speaker_boost.h"

#include <android/log.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "common/fixed_point.h"
#include "common/lifecycle.h"
#include "speaker/sample_fifo.h"

using namespace kafx;

namespace {

constexpr const char* kTag = "kafx_sp_wrapper";
constexpr int kBlock = KAFX_SPEAKER_BOOST_BLOCK;

kafx_speaker_boost_t* as_handle(void* h) { return static_cast<kafx_speaker_boost_t*>(h); }

// Working sample to 16-bit: round and saturate (the add wraps in 32 bits).
inline int16_t to_16(int32_t x) { return sat16(wrap_add(x, 128) >> 8); }

void run_block(kafx_speaker_boost_t* h) {
  const bool narrow = h->bit_width == 16;
  if (narrow) {
    for (int i = 0; i < kBlock; ++i) h->work16_left[i] = static_cast<int16_t>(fifo_pop(&h->in_left_fifo));
    for (int i = 0; i < kBlock; ++i) h->work16_right[i] = static_cast<int16_t>(fifo_pop(&h->in_right_fifo));
    for (int i = 0; i < kBlock; ++i) {
      h->work_left[i] = h->work16_left[i] * 256;
      h->work_right[i] = h->work16_right[i] * 256;
    }
  } else {
    for (int i = 0; i < kBlock; ++i) h->work_left[i] = fifo_pop(&h->in_left_fifo);
    for (int i = 0; i < kBlock; ++i) h->work_right[i] = fifo_pop(&h->in_right_fifo);
  }

  kedo_speaker_boost_core_process(&h->chain, h->work_left, h->work_right, kBlock);

  // Mono speaker: the left result is copied over the right one. The copy is
  // sized in host bytes, so on 16-bit streams it covers only the first half
  // of the 32-bit right block; the rest keeps the chain's own right output.
  if (h->params.sbs.channel_num == 1)
    std::memcpy(h->work_right, h->work_left, static_cast<size_t>(h->bytes_per_sample) * kBlock);

  if (narrow) {
    for (int i = 0; i < kBlock; ++i) {
      h->work16_left[i] = to_16(h->work_left[i]);
      h->work16_right[i] = to_16(h->work_right[i]);
    }
    for (int i = 0; i < kBlock; ++i) fifo_push(&h->out_left_fifo, h->work16_left[i]);
    for (int i = 0; i < kBlock; ++i) fifo_push(&h->out_right_fifo, h->work16_right[i]);
  } else {
    for (int i = 0; i < kBlock; ++i) fifo_push(&h->out_left_fifo, h->work_left[i]);
    for (int i = 0; i < kBlock; ++i) fifo_push(&h->out_right_fifo, h->work_right[i]);
  }
}

// One host frame in and out: push both sides, run a block when 240 frames
// are gathered, pop the delayed result.
inline void exchange(kafx_speaker_boost_t* h, int32_t in_l, int32_t in_r, int32_t* out_l, int32_t* out_r) {
  fifo_push(&h->in_left_fifo, in_l);
  fifo_push(&h->in_right_fifo, in_r);
  if (h->in_left_fifo.count == kBlock) run_block(h);
  *out_l = fifo_pop(&h->out_left_fifo);
  *out_r = fifo_pop(&h->out_right_fifo);
}

template <typename Sample, bool FullScale>
void process_frames(kafx_speaker_boost_t* h, Sample* s, size_t frames, size_t channels) {
  for (size_t f = 0; f < frames; ++f, s += channels) {
    int32_t l = s[0];
    int32_t r = channels >= 2 ? s[1] : s[0];
    if constexpr (FullScale) {
      l = full_scale_to_working(l);
      r = full_scale_to_working(r);
    }
    int32_t ol, orr;
    exchange(h, l, r, &ol, &orr);
    if constexpr (FullScale) {
      ol = shl_sat<8>(ol);
      orr = shl_sat<8>(orr);
    }
    s[0] = static_cast<Sample>(ol);
    if (channels >= 2) s[1] = static_cast<Sample>(orr);
  }
}

}  // namespace

namespace kafx {

void fifo_create(sample_fifo_t* f, int32_t width, int32_t capacity) {
  f->width = width;
  f->capacity = capacity;
  f->count = 0;
  f->read_index = 0;
  f->write_index = 0;
  const size_t bytes = static_cast<size_t>(capacity) * (width == 16 ? 2 : 4);
  f->data = alloc_zeroed(bytes);
}

void fifo_destroy(sample_fifo_t* f) { free_null(f->data); }

}  // namespace kafx

extern "C" {

void* kafx_speaker_boost_init(unsigned int channels, unsigned int sample_rate, int format_type) {
  __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s: sample_rate %zu, format_type %d", "kafx_speaker_boost_init",
                      static_cast<size_t>(sample_rate), format_type);
  // Every allocation below is watched: if any fails, whatever was built is
  // ended and freed and the caller gets a null handle.
  const AllocWatch watch;
  auto* h = alloc_record<kafx_speaker_boost_t>();
  if (h == nullptr) return nullptr;
  h->enable = 1;
  h->channels = channels;
  h->sample_rate = sample_rate;
  h->format_type = (format_type >= 1 && format_type <= 3) ? format_type : 0;
  h->bit_width = h->format_type == 1 ? 16 : 32;
  h->bytes_per_sample = h->format_type == 1 ? 2 : 4;

  kedo_speaker_boost_init(&h->chain);
  if (watch.failed()) {
    kafx_speaker_boost_deinit(h);
    return nullptr;
  }
  kedo_speaker_boost_set_sample_rate(&h->chain, sample_rate);
  h->chain.enable = h->enable;

  fifo_create(&h->in_left_fifo, h->bit_width, kBlock);
  fifo_create(&h->in_right_fifo, h->bit_width, kBlock);
  h->work_left = alloc_words(kBlock);
  h->work_right = alloc_words(kBlock);
  h->work16_left = static_cast<int16_t*>(alloc_zeroed(kBlock * sizeof(int16_t)));
  h->work16_right = static_cast<int16_t*>(alloc_zeroed(kBlock * sizeof(int16_t)));
  fifo_create(&h->out_left_fifo, h->bit_width, kBlock);
  fifo_create(&h->out_right_fifo, h->bit_width, kBlock);
  if (watch.failed()) {
    kafx_speaker_boost_deinit(h);
    return nullptr;
  }
  return h;
}

void kafx_speaker_boost_reset(void* handle) {
  if (handle == nullptr) return;
  kedo_speaker_boost_reset(&as_handle(handle)->chain);
}

void kafx_speaker_boost_deinit(void* handle) {
  if (handle == nullptr) return;
  auto* h = as_handle(handle);
  kedo_speaker_boost_end(&h->chain);
  free_null(h->work_left);
  free_null(h->work_right);
  free_null(h->work16_left);
  free_null(h->work16_right);
  fifo_destroy(&h->in_left_fifo);
  fifo_destroy(&h->in_right_fifo);
  fifo_destroy(&h->out_left_fifo);
  fifo_destroy(&h->out_right_fifo);
  std::free(h);
}

void kafx_speaker_boost_set_enable(void* handle, int enable) {
  if (handle == nullptr) return;
  as_handle(handle)->chain.enable = enable;
}

void kafx_speaker_boost_get_enable(void* handle, int* enable) {
  if (handle == nullptr || enable == nullptr) return;
  *enable = as_handle(handle)->chain.enable;
}

void kafx_speaker_boost_process(void* handle, void* buffer, unsigned int size) {
  if (handle == nullptr || buffer == nullptr) return;
  auto* h = as_handle(handle);
  const size_t channels = h->channels;
  if (channels == 0) return;
  const size_t frames = size / (channels * static_cast<size_t>(h->bytes_per_sample));
  if (h->bit_width == 16) process_frames<int16_t, false>(h, static_cast<int16_t*>(buffer), frames, channels);
  else if (h->format_type == 3) process_frames<int32_t, true>(h, static_cast<int32_t*>(buffer), frames, channels);
  else process_frames<int32_t, false>(h, static_cast<int32_t*>(buffer), frames, channels);
}

// 239 frames of re-blocking, plus the boost system's two look-ahead stages
// (band limiters, then the full-band limiter) when it runs. The equalizer and
// channel balance are recursive filters without a pure delay.
int kafx_speaker_boost_get_latency(void* handle) {
  if (handle == nullptr) return -1;
  const speaker_boost_system_t* s = as_handle(handle)->chain.sbs;
  const int boost = s != nullptr && s->status != 0 ? 2 * s->lookahead * s->frame_len : 0;
  return kBlock - 1 + boost;
}

}  // extern "C"
