// Allocation counting and failure injection for the test programs.
//
// Every test program is linked with --wrap for malloc, calloc, realloc, free
// and strdup (tests/CMakeLists.txt), so every call to them from code linked
// into the program -- the test itself and the library's static twin -- goes
// through tests/support/alloc_hooks.cpp first. Calls made inside shared
// libraries (libstdc++'s operator new, TinyXML, libc's own internals) are not
// seen. Counts and the injector are per thread.
//
//   kafx_test::AllocCounter c;          // starts counting
//   kafx_speaker_boost_process(h, ...);
//   EXPECT_EQ(c.allocations(), 0);      // and c.frees()
//
//   // every allocation of an init in turn fails; nothing may crash or leak
//   kafx_test::for_each_failing_allocation([&] {
//     void* h = kafx_speaker_boost_init(2, 48000, 1);
//     ...
//   });
#ifndef KAFX_TESTS_SUPPORT_ALLOC_HOOKS_H
#define KAFX_TESTS_SUPPORT_ALLOC_HOOKS_H

#include <gtest/gtest.h>

namespace kafx_test {

// Totals on this thread since the program started. Only successful
// allocations are counted; free(nullptr) is not counted.
long allocations_so_far();
long frees_so_far();

// Arms the injector: the n-th allocation from now on this thread (1 = the
// next one) returns null. n <= 0 disarms it. injected_failures() counts the
// failures the injector has produced so far.
void fail_nth_allocation(long n);
long injected_failures();

// Counts from its construction.
class AllocCounter {
 public:
  AllocCounter() : allocs_(allocations_so_far()), frees_(frees_so_far()) {}
  long allocations() const { return allocations_so_far() - allocs_; }
  long frees() const { return frees_so_far() - frees_; }
  // Allocations not (yet) matched by a free.
  long outstanding() const { return allocations() - frees(); }

 private:
  long allocs_, frees_;
};

// Runs `body` once normally to learn how many allocations it makes (N), then
// N more times with allocation 1, 2, ..., N failing in turn. Each run must
// leave nothing allocated (checked here; the body checks what it returned).
// Returns N.
template <class Body>
long for_each_failing_allocation(Body&& body) {
  long n = 0;
  {
    AllocCounter c;
    body(0L);
    n = c.allocations();
    EXPECT_EQ(c.outstanding(), 0) << "the run without failures leaks";
  }
  for (long k = 1; k <= n; ++k) {
    const long before = injected_failures();
    AllocCounter c;
    fail_nth_allocation(k);
    body(k);
    fail_nth_allocation(0);
    EXPECT_EQ(injected_failures(), before + 1) << "allocation " << k << " of " << n << " was never made";
    EXPECT_EQ(c.outstanding(), 0) << "leak after allocation " << k << " of " << n << " failed";
  }
  return n;
}

}  // namespace kafx_test

#endif
