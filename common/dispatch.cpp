// Processor checks of common/dispatch.h.
#include "common/dispatch.h"

#if KAFX_NEON_VARIANTS && defined(__arm__)
#include <sys/auxv.h>
#endif

namespace kafx {

bool isa_available(Isa isa) {
  switch (isa) {
    case kIsaBaseline:
      return true;
    case kIsaAvx2:
#if KAFX_AVX2_VARIANTS
      // The variants are chosen while the library loads, possibly before
      // the compiler runtime's own initialiser has read the processor's
      // features; this reads them first if not yet done.
      __builtin_cpu_init();
      return __builtin_cpu_supports("avx2");
#else
      return false;
#endif
    case kIsaNeon:
#if KAFX_NEON_VARIANTS && defined(__aarch64__)
      return true;
#elif KAFX_NEON_VARIANTS
      // HWCAP_ARM_NEON (bit 12) of the 32-bit ARM kernel's AT_HWCAP.
      return (getauxval(AT_HWCAP) & (1UL << 12)) != 0;
#else
      return false;
#endif
    default:
      return false;
  }
}

const char* isa_name(Isa isa) {
  switch (isa) {
    case kIsaBaseline: return "baseline";
    case kIsaAvx2: return "avx2";
    case kIsaNeon: return "neon";
    default: return "?";
  }
}

}  // namespace kafx
