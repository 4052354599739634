// Processor checks of common/dispatch.h.
#include "common/dispatch.h"

namespace kafx {

bool isa_available(Isa isa) {
  switch (isa) {
    case kIsaBaseline:
      return true;
    case kIsaAvx2:
#if KAFX_AVX2_VARIANTS
      return __builtin_cpu_supports("avx2");
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
    default: return "?";
  }
}

}  // namespace kafx
