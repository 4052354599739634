// Lifecycle helpers shared by every block, chain and front end: allocation of
// cleared working memory, freeing with the pointer nulled, sub-blocks built
// and ended through their owner's pointer, and the mapping of sample rates
// onto the rows of per-rate tables.
//
// Allocation failure. A block's init stores what it could allocate and leaves
// the rest null (never writing through a null pointer); its end frees what is
// set and tolerates null members and null sub-records. The owner that must
// report failure (a front end's init, a configuration loader) watches the
// allocations it causes with AllocWatch and, when one failed, ends what it
// built and returns null or -1. Failures are counted per thread, so handles
// built on different threads do not see each other's failures.
#ifndef KAFX_COMMON_LIFECYCLE_H
#define KAFX_COMMON_LIFECYCLE_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kafx_proc/fixed_math.h"

namespace kafx {

// malloc'd memory, cleared; null (and one more failure counted on this
// thread) when the allocation fails. Zero bytes allocate one byte, so that a
// null result always means failure.
void* alloc_zeroed(size_t bytes);

// A copy of `bytes` bytes of `src` in new memory, or null (counted).
void* alloc_copy(const void* src, size_t bytes);

// A cleared record of type T (a plain C record), or null.
template <typename T>
T* alloc_record() {
  return static_cast<T*>(alloc_zeroed(sizeof(T)));
}

// `count` cleared 32-bit words (count < 0 is taken as 0), or null.
inline int32_t* alloc_words(int count) {
  return static_cast<int32_t*>(alloc_zeroed(static_cast<size_t>(count > 0 ? count : 0) * sizeof(int32_t)));
}

// free() and null the owner's pointer.
template <typename T>
void free_null(T*& p) {
  std::free(p);
  p = nullptr;
}

// A sub-block owned through a pointer: a cleared record of type T with
// init(record, args...) run on it, or null (counted) when the allocation
// failed, in which case init is not called. A block whose own parts failed
// comes back half-built; its end accepts that.
//   r->dc_left = new_block<dc_remove>(dc_remove_init);
//   h->compressor = new_block<compressor_t>(compressor_init, kQ13One, 2);
template <typename T, typename Init, typename... A>
T* new_block(Init init, A... args) {
  T* p = alloc_record<T>();
  if (p != nullptr) init(p, args...);
  return p;
}

// The inverse of new_block: end(p) when p is set, then free and null the
// owner's pointer. A null pointer is left null.
template <typename T, typename End>
void end_block(T*& p, End end) {
  if (p != nullptr) end(p);
  free_null(p);
}

// Allocation failures on this thread so far.
unsigned alloc_failures();

// Watches one init or load: failed() tells whether any allocation on this
// thread failed since the watch began.
class AllocWatch {
 public:
  AllocWatch() : start_(alloc_failures()) {}
  bool failed() const { return alloc_failures() != start_; }

 private:
  unsigned start_;
};

// Row of a per-rate table for a rate class: the class itself for the four
// classes, row 1 (48000 Hz) for anything else.
constexpr int rate_index(SampleRateType rate) {
  const int r = static_cast<int>(rate);
  return (r >= 0 && r <= 3) ? r : 1;
}

// Rate class of a rate in Hz: 44100, 96000 and 192000 have their own rows,
// every other rate uses the 48000 Hz row.
constexpr SampleRateType rate_type_of(unsigned int hz) {
  switch (hz) {
    case 44100: return SAMPLE_RATE_44100;
    case 96000: return SAMPLE_RATE_96000;
    case 192000: return SAMPLE_RATE_192000;
    default: return SAMPLE_RATE_48000;
  }
}

}  // namespace kafx

#endif
