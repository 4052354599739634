// Real-time safety and allocation failure of the karaoke product: no process
// call reaches the allocator (front end and chain with every block on, a
// howl being found, held and released; the noise branch's resamplers, filter
// and suppressor), and a failure at any one
// allocation of the front end's init gives a null handle with nothing leaked.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "kafx_proc/ktv.h"
#include "support/alloc_hooks.h"
#include "support/sequences.h"
#include "tools/howl_sim.h"

namespace {

using kafx_test::AllocCounter;

// Voice with a sustained tone over 1.5 s (a howl to track and lock), then
// 6 s of silence: past the 5 s hold the notch is released.
std::vector<short> howl_then_silence() {
  std::vector<double> v = howl_sim::voice_like(1.5, 9, -20);
  const std::vector<double> t = howl_sim::tone(1600, 1.5, -6);
  for (size_t i = 0; i < std::min(v.size(), t.size()); ++i) v[i] += t[i];
  v.resize(v.size() + 6 * 48000, 0.0);
  return kafx_test::to16(v);
}

// Bit s set when some notch is in state s.
unsigned notch_states(kedo_audio_tx_ktv_t* c) {
  unsigned seen = 0;
  for (int i = 0; i < HOWLING_NOTCHES; ++i) {
    int st = 0, centre = 0;
    howling_canceling_getnotch(c->howling, i, &st, &centre);
    seen |= 1u << st;
  }
  return seen;
}

// Every front-end process call with every block switched on (the noise
// suppressor is asked for too; the chain clears it each frame), frame sizes
// 240 and the edges (1, 17, 256, 0, 257 refused); then the chain's 32-bit
// path and the parts of its noise branch.
TEST(KtvAlloc, ProcessNeverAllocates) {
  void* h = kafx_ktv_init();
  ASSERT_NE(h, nullptr);
  for (void (*enable)(void*, int) :
       {kafx_ktv_hw_howling_canceling_enable, kafx_ktv_gramophone_enable, kafx_ktv_eq_enable, kafx_ktv_reverb_enable,
        kafx_ktv_iirecho_enable, kafx_ktv_compressor_enable, kafx_ktv_noise_canceling_enable})
    enable(h, 1);
  int bands[10] = {4, -3, 2, 6, -8, 0, 5, -1, 3, 7};
  kafx_ktv_eq_setparameter(h, bands);
  kafx_ktv_iirecho_setdelay(h, 120);
  kedo_audio_tx_ktv_t* c = &static_cast<kafx_ktv_t*>(h)->chain;
  const std::vector<short> in = howl_then_silence();
  std::vector<short> out_l(in.size()), out_r(in.size());
  const int kCounts[] = {240, 240, 1, 17, 256, 240, 0, 257, 222};
  size_t at = 0;
  unsigned seen = 0;
  for (int k = 0; at + 257 <= in.size(); ++k) {
    const int n = kCounts[k % 9];
    short* x = const_cast<short*>(in.data()) + at;
    AllocCounter counter;
    const int rc = kafx_ktv_process_16(h, x, out_l.data() + at, out_r.data() + at, n);
    EXPECT_EQ(counter.allocations(), 0) << "at " << at << ", " << n;
    EXPECT_EQ(counter.frees(), 0) << "at " << at << ", " << n;
    EXPECT_EQ(rc, n > 256 ? -1 : 0);
    if (n <= 256) at += static_cast<size_t>(n);
    seen |= notch_states(c);
  }
  EXPECT_EQ(seen, 0xfu) << "notches idle, tracking, locked and released";
  std::vector<int> l(256), r(256), x32(256);
  std::vector<short> l16(240), ns_frame(160);
  AllocCounter counter;
  for (size_t from = 0; from + 256 <= 48000; from += 240) {
    for (int i = 0; i < 256; ++i) x32[i] = in[from + i] * 4096;
    kedo_audio_tx_ktv_process(c, 24, x32.data(), l.data(), r.data(), 256);
  }
  // The noise branch (never taken by the chain itself): 48 -> 32 kHz, the
  // high-pass, one suppressor block, back to 48 kHz.
  std::copy(in.begin(), in.begin() + 240, l16.begin());
  int m = 0;
  EXPECT_EQ(Resampler_proc(c->down, l16.data(), 240, ns_frame.data(), 160, &m), 0);
  for (int i = 0; i < m; ++i) IIR_process_16(c->highpass, &ns_frame[i], &ns_frame[i]);
  EXPECT_EQ(kedoNs_ProcessCore(c->ns, ns_frame.data(), ns_frame.data()), 0);
  EXPECT_EQ(Resampler_proc(c->up, ns_frame.data(), m, l16.data(), 240, &m), 0);
  EXPECT_EQ(counter.allocations(), 0);
  EXPECT_EQ(counter.frees(), 0);
  kafx_ktv_deinit(h);
}

// A failure at any allocation of the front end's init (the handle, a block,
// a block's part, a frame buffer, the suppressor's record, a resampler's
// state) gives a null handle and frees what was built.
TEST(KtvAlloc, InitFailureAtEveryAllocationReturnsNullAndLeaksNothing) {
  const long n = kafx_test::for_each_failing_allocation([&](long failing) {
    void* h = kafx_ktv_init();
    if (failing == 0) {
      ASSERT_NE(h, nullptr);
    } else {
      EXPECT_EQ(h, nullptr) << "allocation " << failing << " failed";
    }
    kafx_ktv_deinit(h);
  });
  EXPECT_GT(n, 50) << "every block's memory comes from the allocator";
}

}  // namespace
