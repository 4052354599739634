// Block form of the sixth-order elliptic section (common/elliptic.cpp) for
// owners that filter whole runs.
#ifndef KAFX_COMMON_ELLIPTIC_BLOCK_H
#define KAFX_COMMON_ELLIPTIC_BLOCK_H

#include <cstdint>

#include "kafx_proc/elliptic.h"

namespace kafx {

// out[i] = what elliptic_process gives for in[i], i < n, in order, leaving
// the state exactly as n such calls would. out may be in.
void elliptic_block(elliptic* e, const int32_t* in, int32_t* out, int n);

}  // namespace kafx

#endif
