// One channel's ring buffer of 16-bit or 32-bit samples, used by the speaker
// front end to re-block host buffers into fixed chain blocks.
#ifndef KAFX_SPEAKER_SAMPLE_FIFO_H
#define KAFX_SPEAKER_SAMPLE_FIFO_H

#include "kafx_proc/speaker_boost.h"

namespace kafx {

// Allocates zeroed storage for `capacity` elements of `width` bits.
void fifo_create(sample_fifo_t* f, int32_t width, int32_t capacity);
void fifo_destroy(sample_fifo_t* f);

// Stores one sample; a full FIFO drops its oldest sample.
inline void fifo_push(sample_fifo_t* f, int32_t v) {
  if (f->width == 16) static_cast<int16_t*>(f->data)[f->write_index] = static_cast<int16_t>(v);
  else static_cast<int32_t*>(f->data)[f->write_index] = v;
  if (++f->write_index >= f->capacity) f->write_index = 0;
  if (f->count >= f->capacity) {
    f->count = f->capacity;
    if (++f->read_index >= f->capacity) f->read_index = 0;
  } else {
    ++f->count;
  }
}

// Takes the oldest sample; an empty FIFO yields 0 and realigns its indices.
inline int32_t fifo_pop(sample_fifo_t* f) {
  if (f->count <= 0) {
    f->count = 0;
    f->write_index = f->read_index;
    return 0;
  }
  const int32_t v = f->width == 16 ? static_cast<const int16_t*>(f->data)[f->read_index]
                                   : static_cast<const int32_t*>(f->data)[f->read_index];
  if (++f->read_index >= f->capacity) f->read_index = 0;
  --f->count;
  return v;
}

// Runs of pushes and pops, as many single calls would do them, in stretches
// that do not wrap. They need sane positions (both in [0, capacity)) and,
// for a push, room for the whole run; otherwise they fall back to the
// single calls (whose rules then apply: the oldest sample dropped, or zeros
// from an empty FIFO).
inline bool fifo_sane(const sample_fifo_t* f) {
  return f->capacity > 0 && f->count >= 0 && f->count <= f->capacity && f->read_index >= 0 &&
         f->read_index < f->capacity && f->write_index >= 0 && f->write_index < f->capacity;
}

// fifo_push(f, get(j)) for j = 0 .. n - 1.
template <class Get>
inline void fifo_push_run(sample_fifo_t* f, int n, Get get) {
  if (!fifo_sane(f) || n > f->capacity - f->count) {
    for (int j = 0; j < n; ++j) fifo_push(f, get(j));
    return;
  }
  for (int j = 0; j < n;) {
    const int m = n - j < f->capacity - f->write_index ? n - j : f->capacity - f->write_index;
    if (f->width == 16) {
      int16_t* d = static_cast<int16_t*>(f->data) + f->write_index;
      for (int k = 0; k < m; ++k) d[k] = static_cast<int16_t>(get(j + k));
    } else {
      int32_t* d = static_cast<int32_t*>(f->data) + f->write_index;
      for (int k = 0; k < m; ++k) d[k] = get(j + k);
    }
    j += m;
    f->write_index += m;
    if (f->write_index >= f->capacity) f->write_index = 0;
  }
  f->count += n;
}

// put(j, fifo_pop(f)) for j = 0 .. n - 1.
template <class Put>
inline void fifo_pop_run(sample_fifo_t* f, int n, Put put) {
  int j = 0;
  if (fifo_sane(f)) {
    const int held = n < f->count ? n : f->count;
    while (j < held) {
      const int m = held - j < f->capacity - f->read_index ? held - j : f->capacity - f->read_index;
      if (f->width == 16) {
        const int16_t* d = static_cast<const int16_t*>(f->data) + f->read_index;
        for (int k = 0; k < m; ++k) put(j + k, d[k]);
      } else {
        const int32_t* d = static_cast<const int32_t*>(f->data) + f->read_index;
        for (int k = 0; k < m; ++k) put(j + k, d[k]);
      }
      j += m;
      f->read_index += m;
      if (f->read_index >= f->capacity) f->read_index = 0;
    }
    f->count -= held;
  }
  for (; j < n; ++j) put(j, fifo_pop(f));
}

}  // namespace kafx

#endif
