// Sixth-order direct-form IIR section on 24-bit working samples.
//
// State: x[n] .. x[n-6] (inputs << 5) in words 0..6, y[n-1] .. y[n-6] in
// words 7..12; the coefficient table has the same layout (b0..b6, a1..a6,
// Q20), so the accumulator is one 13-term dot product. Its 64-bit sum wraps;
// y = sum >> 20 is kept as its low 32 bits (the filter's own scale leaves
// headroom of 2^31 / 2^28 over a full-scale working sample << 5). The low 13
// bits of the sum are parked in the x[n] slot, which the next input
// overwrites, so no error is fed back.
#include "kafx_proc/elliptic.h"

#include <cstdlib>
#include <cstring>

#include "common/elliptic_block.h"
#include "common/fixed_point.h"
#include "common/lanes_avx2.h"
#include "common/lifecycle.h"

using namespace kafx;

namespace {

constexpr int kTaps = 13;

inline int32_t elliptic_step(const int32_t* c, int32_t* s, int32_t in) {
  s[0] = wrap_shl<5>(in);
  uint64_t acc = 0;
  for (int i = 0; i < kTaps; ++i) acc += static_cast<uint64_t>(static_cast<int64_t>(c[i]) * s[i]);
  const int64_t sum = static_cast<int64_t>(acc);
  const int32_t y = flush_m1(static_cast<int32_t>(sum >> 20));
  for (int i = kTaps - 1; i > 7; --i) s[i] = s[i - 1];  // y[n-6] <- y[n-5] .. y[n-2] <- y[n-1]
  s[7] = y;
  for (int i = 6; i > 0; --i) s[i] = s[i - 1];  // x[n-6] <- x[n-5] .. x[n-1] <- x[n]
  s[0] = static_cast<int32_t>(sum & 0x1fff);
  return flush_m1(y >> 5);
}

[[gnu::always_inline]] inline uint64_t term(int64_t c, int32_t v) { return static_cast<uint64_t>(c * v); }

void feedforward_baseline(const int32_t* b, const int32_t* h, uint64_t* ff, int m) {
  for (int i = 0; i < m; ++i) {
    const int32_t* x = &h[i];  // x[0] = x[n], x[-k] = x[n-k]
    ff[i] = term(b[0], x[0]) + term(b[1], x[-1]) + term(b[2], x[-2]) + term(b[3], x[-3]) + term(b[4], x[-4]) +
            term(b[5], x[-5]) + term(b[6], x[-6]);
  }
}

#if KAFX_AVX2_VARIANTS
// Four outputs per step: each tap's four inputs widened to 64-bit lanes
// and multiplied by the tap's coefficient (_mm256_mul_epi32: the signed
// product of the low 32 bits, exact in 64 bits), the sums wrapping as the
// scalar sum does. The rest one by one.
KAFX_TARGET_AVX2 void feedforward_avx2(const int32_t* b, const int32_t* h, uint64_t* ff, int m) {
  __m256i c[7];
  for (int k = 0; k < 7; ++k) c[k] = _mm256_set1_epi64x(b[k]);
  int i = 0;
  for (; i + 4 <= m; i += 4) {
    __m256i acc = _mm256_setzero_si256();
    KAFX_UNROLL
    for (int k = 0; k < 7; ++k) {
      const __m256i x = _mm256_cvtepi32_epi64(_mm_loadu_si128(reinterpret_cast<const __m128i*>(&h[i - k])));
      acc = _mm256_add_epi64(acc, _mm256_mul_epi32(c[k], x));
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(&ff[i]), acc);
  }
  feedforward_baseline(b, h + i, ff + i, m - i);
}
#endif

}  // namespace

namespace kafx {

const KernelVariants<EllipticFeedForward> elliptic_feedforward_variants = {
    "elliptic_feedforward", {feedforward_baseline, KAFX_AVX2_ONLY(feedforward_avx2)}};

// The 13-term sum splits into the feed-forward part (b0..b6 on the inputs),
// which has no recursion and is formed for a whole chunk first, and the
// feedback part (a1..a6 on the outputs), the only serial one. The 64-bit sum
// wraps, so the order of its terms does not change it. The histories live
// in local arrays, oldest first.
void elliptic_block(elliptic* e, const int32_t* in, int32_t* out, int n) {
  if (n <= 0) return;
  constexpr auto feedforward = run_chosen<elliptic_feedforward_variants>;
  int32_t b[7];
  int64_t a[7];  // a[1..6]
  for (int k = 0; k < 7; ++k) b[k] = e->coefficients[k];
  for (int k = 1; k < 7; ++k) a[k] = e->coefficients[6 + k];
  int32_t* s = e->state;
  constexpr int kChunk = 64;
  int32_t x[6 + kChunk], y[6 + kChunk];
  uint64_t ff[kChunk];
  for (int k = 0; k < 6; ++k) {
    x[k] = s[6 - k];   // x[n-6] .. x[n-1]
    y[k] = s[12 - k];  // y[n-6] .. y[n-1]
  }
  int64_t sum = 0;
  for (int done = 0; done < n;) {
    const int m = n - done < kChunk ? n - done : kChunk;
    for (int i = 0; i < m; ++i) x[6 + i] = wrap_shl<5>(in[done + i]);
    feedforward(b, &x[6], ff, m);
    for (int i = 0; i < m; ++i) {
      const int32_t* h = &y[6 + i];  // h[-k] = y[n-k]
      // y[n-1]'s term last: only it waits for the previous output.
      const uint64_t acc = ff[i] + term(a[2], h[-2]) + term(a[3], h[-3]) + term(a[4], h[-4]) + term(a[5], h[-5]) +
                           term(a[6], h[-6]);
      sum = static_cast<int64_t>(acc + term(a[1], h[-1]));
      const int32_t v = flush_m1(static_cast<int32_t>(sum >> 20));
      y[6 + i] = v;
      out[done + i] = flush_m1(v >> 5);
    }
    for (int k = 0; k < 6; ++k) {
      x[k] = x[m + k];
      y[k] = y[m + k];
    }
    done += m;
  }
  for (int k = 0; k < 6; ++k) {
    s[6 - k] = x[k];
    s[12 - k] = y[k];
  }
  s[0] = static_cast<int32_t>(sum & 0x1fff);  // the parked low bits of the last sum
}

}  // namespace kafx

extern "C" {

void elliptic_init(elliptic* e, const int* coefficients) {
  e->coefficients = coefficients;
  e->state = kafx::alloc_words(kTaps);
}

void elliptic_setcoef(elliptic* e, const int* coefficients) {
  e->coefficients = coefficients;
  elliptic_resetstate(e);
}

// A state that could not be allocated stays null and is left alone.
void elliptic_resetstate(elliptic* e) {
  if (e->state != nullptr) std::memset(e->state, 0, kTaps * sizeof(int32_t));
}

void elliptic_end(elliptic* e) {
  kafx::free_null(e->state);
  e->coefficients = nullptr;
}

void elliptic_process(elliptic* e, int* in, int* out) { *out = elliptic_step(e->coefficients, e->state, *in); }

void remove_high_freq_process(elliptic* e, int* in, int* out, int count) {
  // The quarter-level input is left in the caller's buffer.
  for (int i = 0; i < count; ++i) in[i] = flush_m1(in[i] >> 2);
  kafx::elliptic_block(e, in, out, count);
}

}  // extern "C"
