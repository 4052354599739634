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

}  // namespace kafx

#endif
