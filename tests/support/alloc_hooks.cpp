// The --wrap side of tests/support/alloc_hooks.h: counts and, when armed,
// fails the allocations of code linked into the test program.
#include "support/alloc_hooks.h"

#include <cstddef>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* p, size_t size);
void __real_free(void* p);
char* __real_strdup(const char* s);
}

namespace kafx_test {

namespace {

thread_local long t_allocs = 0;
thread_local long t_frees = 0;
thread_local long t_fail_at = 0;  // allocations left before the failing one; 0 = off
thread_local long t_injected = 0;

// True when this allocation is the one to fail.
bool inject() {
  if (t_fail_at <= 0) return false;
  if (--t_fail_at != 0) return false;
  ++t_injected;
  return true;
}

template <typename P>
P* counted(P* p) {
  if (p != nullptr) ++t_allocs;
  return p;
}

}  // namespace

long allocations_so_far() { return t_allocs; }
long frees_so_far() { return t_frees; }
void fail_nth_allocation(long n) { t_fail_at = n > 0 ? n : 0; }
long injected_failures() { return t_injected; }

}  // namespace kafx_test

using namespace kafx_test;

extern "C" {

void* __wrap_malloc(size_t size) { return inject() ? nullptr : counted(__real_malloc(size)); }

void* __wrap_calloc(size_t count, size_t size) { return inject() ? nullptr : counted(__real_calloc(count, size)); }

// A resize counts as one allocation and one free of the old block.
void* __wrap_realloc(void* p, size_t size) {
  if (inject()) return nullptr;
  void* q = __real_realloc(p, size);
  if (q != nullptr && p != nullptr) ++t_frees;
  return counted(q);
}

void __wrap_free(void* p) {
  if (p != nullptr) ++t_frees;
  __real_free(p);
}

char* __wrap_strdup(const char* s) { return inject() ? nullptr : counted(__real_strdup(s)); }

}  // extern "C"
