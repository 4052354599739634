// Allocation helpers of common/lifecycle.h.
#include "common/lifecycle.h"

namespace kafx {

namespace {

// Failures of this thread; read by AllocWatch around an init or a load.
thread_local unsigned t_alloc_failures = 0;

}  // namespace

void* alloc_zeroed(size_t bytes) {
  const size_t n = bytes > 0 ? bytes : 1;
  void* p = std::malloc(n);
  if (p == nullptr) {
    ++t_alloc_failures;
    return nullptr;
  }
  std::memset(p, 0, n);
  return p;
}

void* alloc_copy(const void* src, size_t bytes) {
  const size_t n = bytes > 0 ? bytes : 1;
  void* p = std::malloc(n);
  if (p == nullptr) {
    ++t_alloc_failures;
    return nullptr;
  }
  if (bytes > 0) std::memcpy(p, src, bytes);
  return p;
}

unsigned alloc_failures() { return t_alloc_failures; }

}  // namespace kafx
