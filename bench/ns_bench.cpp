// Noise suppressor: cost of one 10 ms block of kedoNs_ProcessCore at 16 and
// 32 kHz, beside the published floating-point suppressor (WebRtcNs_Analyze +
// WebRtcNs_Process of the installed WebRTC audio-processing library) on the
// same blocks. At 32 kHz both take 160-sample blocks: ours treats them as
// 16 kHz, the floating-point suppressor gets them as the lower of two
// 160-sample bands (the upper band is a second slice of the same signal).
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kafx_proc/ns.h"
#include "tests/ns/ns_signals.h"

#if KAFX_HAVE_WEBRTC_ORACLE
extern "C" {
typedef struct NsHandleT NsHandle;
NsHandle* WebRtcNs_Create();
void WebRtcNs_Free(NsHandle* ns);
int WebRtcNs_Init(NsHandle* ns, uint32_t fs);
int WebRtcNs_set_policy(NsHandle* ns, int mode);
void WebRtcNs_Analyze(NsHandle* ns, const float* frame);
void WebRtcNs_Process(NsHandle* ns, const float* const* frame, size_t num_bands, float* const* out);
}
#endif

namespace {

constexpr int kBlock = 160;
constexpr int kBlocks = 1000;  // 10 s of noisy speech, cycled

const std::vector<int16_t>& test_blocks() {
  static const std::vector<int16_t> s = ns_test::make_signal(ns_test::kBurstsInNoise, 16000, kBlocks * kBlock);
  return s;
}

void BM_KedoNsProcessCore(benchmark::State& state) {
  const unsigned fs = static_cast<unsigned>(state.range(0));
  NsxInst_t_ ns{};
  kedoNs_InitCore(&ns, fs);
  kedoNs_set_policy_core(&ns, 3);
  std::vector<int16_t> sig = test_blocks();
  int16_t out[kBlock];
  size_t b = 0;
  for (auto _ : state) {
    kedoNs_ProcessCore(&ns, &sig[b * kBlock], out);
    benchmark::DoNotOptimize(out);
    b = (b + 1) % kBlocks;
  }
  kedoNs_FreeCore(&ns);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_KedoNsProcessCore)->Name("kafx/ns/ProcessCore")->Arg(16000)->Arg(32000);

#if KAFX_HAVE_WEBRTC_ORACLE
void BM_WebRtcNsFloat(benchmark::State& state) {
  const unsigned fs = static_cast<unsigned>(state.range(0));
  NsHandle* ns = WebRtcNs_Create();
  WebRtcNs_Init(ns, fs);
  WebRtcNs_set_policy(ns, 2);  // its strongest policy
  const std::vector<int16_t>& s = test_blocks();
  std::vector<float> sig(s.begin(), s.end());
  float out_lo[kBlock], out_hi[kBlock];
  float* outs[2] = {out_lo, out_hi};
  const size_t bands = fs == 32000 ? 2 : 1;
  size_t b = 0;
  for (auto _ : state) {
    const float* ins[2] = {&sig[b * kBlock], &sig[((b + kBlocks / 2) % kBlocks) * kBlock]};
    WebRtcNs_Analyze(ns, ins[0]);
    WebRtcNs_Process(ns, ins, bands, outs);
    benchmark::DoNotOptimize(out_lo);
    b = (b + 1) % kBlocks;
  }
  WebRtcNs_Free(ns);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WebRtcNsFloat)->Name("webrtc/ns/float")->Arg(16000)->Arg(32000);
#endif

}  // namespace
