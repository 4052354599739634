// A fixed set of Q28 biquad sections with their state held in locals while
// a block runs through them sample by sample (the shared per-sample kernel
// of common/biquad.h), for the headphone blocks that wire many sections
// together. Bit-identical to IIR_process_32 on each section in turn, as long
// as every section filters (status non-zero); owners check all_on() and run
// the per-sample functions otherwise.
#ifndef KAFX_HEADPHONE_BIQUAD_SECTIONS_H
#define KAFX_HEADPHONE_BIQUAD_SECTIONS_H

#include "common/biquad.h"

namespace kafx {

template <int N>
struct BiquadSections {
  IIR_t* const* f;
  Biquad32Kernel k[N];
  int32_t x0[N];  // word 0 of each section: its last input x 32

  explicit BiquadSections(IIR_t* const* sections) : f(sections) {
    for (int s = 0; s < N; ++s) {
      k[s] = Biquad32Kernel(f[s]);
      x0[s] = f[s]->state[0];
    }
  }
  [[gnu::always_inline]] int32_t step(int s, int32_t x) { return k[s].step(x, &x0[s]); }
  void store() const {
    for (int s = 0; s < N; ++s) k[s].store(f[s], x0[s]);
  }
  static bool all_on(IIR_t* const* sections) {
    for (int s = 0; s < N; ++s) {
      if (sections[s]->status == 0) return false;
    }
    return true;
  }
};

}  // namespace kafx

#endif
