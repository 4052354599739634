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

// The 16-bit block to working samples and back, over the whole block (the
// four scratch blocks are separate allocations).
void widen_block(const int16_t* __restrict in, int32_t* __restrict out) {
  for (int i = 0; i < kBlock; ++i) out[i] = in[i] * 256;
}
void narrow_block(const int32_t* __restrict in, int16_t* __restrict out) {
  for (int i = 0; i < kBlock; ++i) out[i] = to_16(in[i]);
}

void run_block(kafx_speaker_boost_t* h) {
  const bool narrow = h->bit_width == 16;
  int16_t* const w16l = h->work16_left;
  int16_t* const w16r = h->work16_right;
  if (narrow) {
    fifo_pop_run(&h->in_left_fifo, kBlock, [w16l](int i, int32_t v) { w16l[i] = static_cast<int16_t>(v); });
    fifo_pop_run(&h->in_right_fifo, kBlock, [w16r](int i, int32_t v) { w16r[i] = static_cast<int16_t>(v); });
    widen_block(w16l, h->work_left);
    widen_block(w16r, h->work_right);
  } else {
    fifo_pop_run(&h->in_left_fifo, kBlock, [&](int i, int32_t v) { h->work_left[i] = v; });
    fifo_pop_run(&h->in_right_fifo, kBlock, [&](int i, int32_t v) { h->work_right[i] = v; });
  }

  kedo_speaker_boost_core_process(&h->chain, h->work_left, h->work_right, kBlock);

  // Mono speaker: the left result is copied over the right one. The copy is
  // sized in host bytes, so on 16-bit streams it covers only the first half
  // of the 32-bit right block; the rest keeps the chain's own right output.
  if (h->params.sbs.channel_num == 1)
    std::memcpy(h->work_right, h->work_left, static_cast<size_t>(h->bytes_per_sample) * kBlock);

  if (narrow) {
    narrow_block(h->work_left, w16l);
    narrow_block(h->work_right, w16r);
    fifo_push_run(&h->out_left_fifo, kBlock, [w16l](int i) { return int32_t{w16l[i]}; });
    fifo_push_run(&h->out_right_fifo, kBlock, [w16r](int i) { return int32_t{w16r[i]}; });
  } else {
    fifo_push_run(&h->out_left_fifo, kBlock, [&](int i) { return h->work_left[i]; });
    fifo_push_run(&h->out_right_fifo, kBlock, [&](int i) { return h->work_right[i]; });
  }
}

// Host frames in and out, in place: every frame is pushed into the input
// FIFOs, a block runs when 240 frames are gathered, and every frame takes
// the oldest processed frame from the output FIFOs. Pushes touch only the
// input FIFOs and pops only the output ones, so between two blocks all
// pushes may come first: the frames are taken in runs that end where a
// block runs, the last frame's pop coming after the block.
template <typename Sample, bool FullScale>
void process_frames(kafx_speaker_boost_t* h, Sample* s, size_t frames, size_t channels) {
  const size_t right = channels >= 2 ? 1 : 0;
  auto take = [&](Sample* base, int n) {
    const auto in = [&](size_t c) {
      return [base, c, channels](int j) {
        const int32_t v = base[static_cast<size_t>(j) * channels + c];
        return FullScale ? full_scale_to_working(v) : v;
      };
    };
    fifo_push_run(&h->in_left_fifo, n, in(0));
    fifo_push_run(&h->in_right_fifo, n, in(right));
  };
  auto give = [&](Sample* base, int n) {
    const auto out = [&](size_t c) {
      return [base, c, channels](int j, int32_t v) {
        if (c >= channels) return;  // mono: the right result is dropped
        base[static_cast<size_t>(j) * channels + c] = static_cast<Sample>(FullScale ? shl_sat<8>(v) : v);
      };
    };
    fifo_pop_run(&h->out_left_fifo, n, out(0));
    fifo_pop_run(&h->out_right_fifo, n, out(1));
  };
  size_t f = 0;
  while (f < frames) {
    Sample* base = s + f * channels;
    // Frames until the input holds a block (at least one: a FIFO a host
    // left full runs its block on the next frame, as it would frame by frame).
    const int32_t room = kBlock - h->in_left_fifo.count;
    const int m = static_cast<int>(room < 1 ? 1 : (frames - f < static_cast<size_t>(room) ? frames - f : room));
    take(base, m);
    if (h->in_left_fifo.count == kBlock) {
      give(base, m - 1);
      run_block(h);
      give(base + static_cast<size_t>(m - 1) * channels, 1);
    } else {
      give(base, m);
    }
    f += static_cast<size_t>(m);
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
