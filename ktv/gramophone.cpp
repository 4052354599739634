// Gramophone effect: soft-clipping overdrive, bit roughening, sixth-order
// elliptic band-pass, sample by sample on 24-bit working samples.
#include "kafx_proc/gramophone.h"

#include "common/elliptic_block.h"
#include "common/fixed_point.h"
#include "common/lifecycle.h"

using namespace kafx;

namespace {

// The band-pass in the elliptic layout: b0..b6, then a1..a6 (added-sign
// feedback), all Q20. A band-pass centred near 1 kHz at 48 kHz.
constexpr int kGramophoneCoefficients[13] = {
    617, -1060, 268, 0, -268, 1060, -617,                            // b0..b6
    5909563, -13956198, 17678109, -12667477, 4868827, -784265,       // a1..a6
};

constexpr int32_t kFull = kWorkMax;          // 0x7fffff
constexpr int32_t kThird = 2796201;          // full scale / 3, rounded down, minus one
constexpr int32_t kTwoThirds = 5592404;      // two thirds of full scale
constexpr int32_t kCurveOffset = 16777214;   // 0xfffffe = 2 * full scale
constexpr uint64_t kCurveDivisor = 25165824; // 0x1800000 = 3 * 2^23

// Cubic soft clip of u = 2x (x wraps at the doubling, as the 32-bit original).
inline int32_t overdrive(int32_t x) {
  const int32_t u = wrap_shl<1>(x);
  const bool positive = u > 0;  // u == 0 takes the negative branch (and gives 0)
  // |u| with its sign from bit 31 of u (bit 30 of x); wraps for INT32_MIN.
  const int32_t a = u < 0 ? wrap_sub(0, u) : u;
  if (a <= kThird) return wrap_shl<1>(u);  // linear: 4x
  if (a <= kTwoThirds) {
    // t = 2 full scale - 3|u|, i.e. 0xfffffe -+ 6x; the curve in Q23 is
    // full scale - t^2 / (3 * 2^23).
    const int32_t t = positive ? wrap_sub(kCurveOffset, wrap_add(wrap_shl<2>(x), wrap_shl<1>(x)))
                               : wrap_add(kCurveOffset, wrap_add(wrap_shl<2>(x), wrap_shl<1>(x)));
    const uint64_t sq = static_cast<uint64_t>(static_cast<int64_t>(t) * t);
    const int32_t q = static_cast<int32_t>(sq / kCurveDivisor);
    const int32_t y = kFull - q;
    return positive ? y : -y;
  }
  return positive ? kFull : -kFull;
}

// Non-negative: add the low 16 bits again; negative: subtract the complement
// of the low 16 bits. Wraps like the 32-bit original.
inline int32_t roughen(int32_t y) {
  const int32_t low = y & 0xffff;
  return y >= 0 ? wrap_add(y, low) : wrap_sub(y, low ^ 0xffff);
}

}  // namespace

extern "C" {

void gramophone_init(gramophone* g) {
  g->status = 0;
  g->filter = kafx::new_block<elliptic>(elliptic_init, kGramophoneCoefficients);
}

void gramophone_end(gramophone* g) {
  kafx::end_block(g->filter, elliptic_end);
}

void gramophone_setstatus(gramophone* g, int status) { g->status = status; }
void gramophone_getstatus(gramophone* g, int* status) { *status = g->status; }

void overdrive_process(int* in, int* out) { *out = overdrive(*in); }

void bit_shift_porocess(int* in, int* out) { *out = roughen(*in); }

void gramophone_process(gramophone* g, int* in, int* out, int count) {
  if (count <= 0) return;
  for (int i = 0; i < count; ++i) out[i] = roughen(overdrive(in[i]));
  kafx::elliptic_block(g->filter, out, out, count);
}

}  // extern "C"
