// Block form of the sixth-order elliptic section (common/elliptic.cpp) for
// owners that filter whole runs.
#ifndef KAFX_COMMON_ELLIPTIC_BLOCK_H
#define KAFX_COMMON_ELLIPTIC_BLOCK_H

#include <cstdint>

#include "common/dispatch.h"
#include "kafx_proc/elliptic.h"

namespace kafx {

// The feed-forward part of m outputs: ff[i] = the sum over k = 0..6 of
// b[k] * h[i - k] (64-bit products, the sum wrapping), where h points at the
// first of the m inputs (already << 5) and h[-6..-1] hold the six before
// them. b holds the seven int32 coefficients b0..b6. The AVX2 build forms
// four outputs per step from 32 x 32 -> 64-bit lane products.
using EllipticFeedForward = void (*)(const int32_t* b, const int32_t* h, uint64_t* ff, int m);
extern const KernelVariants<EllipticFeedForward> elliptic_feedforward_variants;

// out[i] = what elliptic_process gives for in[i], i < n, in order, leaving
// the state exactly as n such calls would. out may be in.
void elliptic_block(elliptic* e, const int32_t* in, int32_t* out, int n);

}  // namespace kafx

#endif
