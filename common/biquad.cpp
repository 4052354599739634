// Biquad section: one sample per call, 16-bit (Q20, error feedback) and
// 32-bit (Q28) variants.
#include "common/biquad.h"

#include "common/biquad_neon.h"
#include "common/lifecycle.h"

#include <cstdlib>
#include <cstring>

using namespace kafx;

namespace {
constexpr size_t kWords = 5 * sizeof(int32_t);
}

namespace kafx {
namespace {

[[gnu::always_inline]] inline void biquad_feed_forward_chunk_body(const Biquad32Kernel& k, const int32_t* in, int n,
                                                                   BiquadChunk* c) {
  c->x[0] = k.x2;
  c->x[1] = k.x1;
  for (int j = 0; j < n; ++j) c->x[j + 2] = shl_sat<5>(in[j]);
  for (int j = 0; j < n; ++j) {
    c->ff[j] = biquad_feed_forward(k.b0, k.b1, k.b2, c->x[j + 2], c->x[j + 1], c->x[j]);
  }
}

}  // namespace

KAFX_KERNEL_VARIANTS(void, biquad_feed_forward_chunk,
                     (const Biquad32Kernel& k, const int32_t* in, int n, BiquadChunk* c), (k, in, n, c))

namespace {

// N independent sections (N = 1, 2 or 4) over N buffers in one loop. The
// feedback recursion is latency-bound; interleaving N of them keeps the
// multiplier busy. The recursion state is kept in named scalars so that it
// stays in registers.
template <int N>
void run_interleaved(IIR_t* const* f, int32_t* const* buf, int n) {
  static_assert(N == 1 || N == 2 || N == 4);
  Biquad32Kernel k[N];
  for (int s = 0; s < N; ++s) k[s] = Biquad32Kernel(f[s]);
  const int32_t a1_0 = k[0].a1, a2_0 = k[0].a2;
  const int32_t a1_1 = k[N > 1 ? 1 : 0].a1, a2_1 = k[N > 1 ? 1 : 0].a2;
  const int32_t a1_2 = k[N > 2 ? 2 : 0].a1, a2_2 = k[N > 2 ? 2 : 0].a2;
  const int32_t a1_3 = k[N > 3 ? 3 : 0].a1, a2_3 = k[N > 3 ? 3 : 0].a2;
  int32_t y1_0 = k[0].y1, y2_0 = k[0].y2;
  int32_t y1_1 = k[N > 1 ? 1 : 0].y1, y2_1 = k[N > 1 ? 1 : 0].y2;
  int32_t y1_2 = k[N > 2 ? 2 : 0].y1, y2_2 = k[N > 2 ? 2 : 0].y2;
  int32_t y1_3 = k[N > 3 ? 3 : 0].y1, y2_3 = k[N > 3 ? 3 : 0].y2;
  BiquadChunk c[N];
  for (int done = 0; done < n; done += kBiquadChunk) {
    const int m = n - done < kBiquadChunk ? n - done : kBiquadChunk;
    for (int s = 0; s < N; ++s) biquad_feed_forward_chunk(k[s], buf[s] + done, m, &c[s]);
    int32_t* o0 = buf[0] + done;
    int32_t* o1 = buf[N > 1 ? 1 : 0] + done;
    int32_t* o2 = buf[N > 2 ? 2 : 0] + done;
    int32_t* o3 = buf[N > 3 ? 3 : 0] + done;
    for (int j = 0; j < m; ++j) {
      o0[j] = biquad_feedback(c[0].ff[j], a1_0, a2_0, y1_0, y2_0);
      if constexpr (N > 1) o1[j] = biquad_feedback(c[1].ff[j], a1_1, a2_1, y1_1, y2_1);
      if constexpr (N > 2) {
        o2[j] = biquad_feedback(c[2].ff[j], a1_2, a2_2, y1_2, y2_2);
        o3[j] = biquad_feedback(c[3].ff[j], a1_3, a2_3, y1_3, y2_3);
      }
    }
    for (int s = 0; s < N; ++s) {
      k[s].x2 = c[s].x[m];
      k[s].x1 = c[s].x[m + 1];
    }
  }
  const int32_t y1s[4] = {y1_0, y1_1, y1_2, y1_3};
  const int32_t y2s[4] = {y2_0, y2_1, y2_2, y2_3};
  for (int s = 0; s < N; ++s) {
    k[s].y1 = y1s[s];
    k[s].y2 = y2s[s];
    // Word 0 holds the last input (x[n] during the last call).
    k[s].store(f[s], k[s].x1);
  }
}

}  // namespace

void biquad_block32_multi(IIR_t* const* f, int32_t* const* buf, int count, int n) {
  if (n <= 0) return;
  // Sections that pass through are skipped; the rest run in groups of up to four.
  IIR_t* act_f[4];
  int32_t* act_b[4];
  for (int base = 0; base < count; base += 4) {
    int a = 0;
    for (int s = base; s < count && s < base + 4; ++s) {
      if (f[s]->status == 0) continue;
      act_f[a] = f[s];
      act_b[a] = buf[s];
      ++a;
    }
    switch (a) {
      case 1: run_interleaved<1>(act_f, act_b, n); break;
      case 2: run_interleaved<2>(act_f, act_b, n); break;
      case 3:
        run_interleaved<2>(act_f, act_b, n);
        run_interleaved<1>(act_f + 2, act_b + 2, n);
        break;
      case 4: run_interleaved<4>(act_f, act_b, n); break;
      default: break;
    }
  }
}

void biquad_block32(IIR_t* f, int32_t* buf, int n) { biquad_block32_multi(&f, &buf, 1, n); }

namespace {

void block32_pair_interleaved(IIR_t* fa, int32_t* a, IIR_t* fb, int32_t* b, int n) {
  IIR_t* f[2] = {fa, fb};
  int32_t* buf[2] = {a, b};
  biquad_block32_multi(f, buf, 2, n);
}

}  // namespace

const KernelVariants<BiquadBlock32Pair> biquad_block32_pair_variants = {
    "biquad_block32_pair", {block32_pair_interleaved, nullptr, KAFX_NEON_ONLY(biquad_block32_pair_neon)}};

void biquad_block32_pair(IIR_t* fa, int32_t* a, IIR_t* fb, int32_t* b, int n) {
  run_chosen<biquad_block32_pair_variants>(fa, a, fb, b, n);
}

}  // namespace kafx

extern "C" {

void IIR_init(void* iir, const void* coef) {
  auto* f = static_cast<IIR_t*>(iir);
  f->status = 1;
  f->coef = static_cast<int32_t*>(kafx::alloc_copy(coef, kWords));
  f->state = static_cast<int32_t*>(kafx::alloc_zeroed(kWords));
}

void IIR_reinit(void* iir, const void* coef) {
  auto* f = static_cast<IIR_t*>(iir);
  std::memcpy(f->coef, coef, kWords);
  std::memset(f->state, 0, kWords);
}

void IIR_reset(void* iir) { std::memset(static_cast<IIR_t*>(iir)->state, 0, kWords); }

void IIR_end(void* iir) {
  auto* f = static_cast<IIR_t*>(iir);
  kafx::free_null(f->coef);
  kafx::free_null(f->state);
}

void IIR_set_param(void* iir, const int* coef) { std::memcpy(static_cast<IIR_t*>(iir)->coef, coef, kWords); }

void IIR_get_param(void* iir, int* coef) { std::memcpy(coef, static_cast<IIR_t*>(iir)->coef, kWords); }

void IIR_set_status(void* record, int status) { *static_cast<int32_t*>(record) = status; }

void IIR_get_status(void* record, int* status) { *status = *static_cast<const int32_t*>(record); }

void IIR_process_16(void* iir, short* in, short* out) {
  auto* f = static_cast<IIR_t*>(iir);
  if (f->status == 0) {
    *out = *in;
    return;
  }
  int32_t* w = f->state;
  // Word 0 carries the remainder of the previous output into this one.
  const int32_t remainder = w[0];
  w[0] = static_cast<int32_t>(*in) * 8192;
  const int64_t acc = wrap_add64(biquad_dot5(f->coef, w), remainder);
  w[2] = w[1];
  w[1] = w[0];
  w[4] = w[3];
  const int32_t y = mul_shift<20>(acc);
  w[3] = y;
  // Only 13 of the 20 discarded bits are fed back.
  w[0] = static_cast<int32_t>(acc & 8191);
  *out = sat16(flush_m1(y >> 13));
}

void IIR_process_32(void* iir, int* in, int* out) { *out = biquad_run32(static_cast<IIR_t*>(iir), *in); }

}  // extern "C"
