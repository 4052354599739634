// Noise suppressor core: the published fixed-point suppressor's outputs on
// the test signals (reference outputs recorded from that suppressor, built
// separately; they cover the rate table, the defaults and the policies), the
// band record, refused policies, the silent-frame path,
// the wiring of the band post-processing into the prior, the null and -1
// cases, and instances on several threads at once.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "kafx_proc/ns.h"
#include "support/alloc_hooks.h"
#include "ns/nsx_internal.h"
#include "ns/nsx_tables.h"
#include "tests/ns/ns_signals.h"

using namespace ns_test;

namespace {

struct NsDeleter {
  void operator()(NsxInst_t_* p) const {
    kedoNs_FreeCore(p);
    delete p;
  }
};
using NsPtr = std::unique_ptr<NsxInst_t_, NsDeleter>;

NsPtr make_ns(unsigned fs, int policy) {
  NsPtr p(new NsxInst_t_{});
  EXPECT_EQ(kedoNs_InitCore(p.get(), fs), 0);
  EXPECT_EQ(kedoNs_set_policy_core(p.get(), policy), 0);
  return p;
}

// Runs `frames` blocks; band_post selects kedoNs_ProcessCore or the
// reference suppressor with its own prior rule. Returns the output hash.
uint32_t run_hash(NsxInst_t_* ns, const std::vector<int16_t>& sig, int frames, bool band_post,
                  std::vector<int16_t>* out_all = nullptr) {
  uint32_t h = 2166136261u;
  const int blen = ns->block_len;
  std::vector<int16_t> out(static_cast<size_t>(blen));
  for (int f = 0; f < frames; f++) {
    int16_t* in = const_cast<int16_t*>(&sig[static_cast<size_t>(f * blen)]);
    if (band_post) {
      EXPECT_EQ(kedoNs_ProcessCore(ns, in, out.data()), 0);
    } else {
      kafx::nsx::process_frame(ns, in, out.data(), false);
    }
    h = fnv1a(out.data(), out.size(), h);
    if (out_all) out_all->insert(out_all->end(), out.begin(), out.end());
  }
  return h;
}

// Reference outputs: FNV-1a hashes of 1000 blocks of the published
// fixed-point suppressor (its own prior rule, no band post-processing) on
// make_signal(kind, fs, ...), recorded with that suppressor built from its
// published sources. {rate, signal kind, policy, hash}.
struct RefRow {
  unsigned fs;
  int kind;
  int policy;
  uint32_t hash;
};
constexpr RefRow kReferenceOutputs[] = {
    {8000, 0, 0, 0xd17b0d78u},  {8000, 0, 1, 0xf31c1856u},  {8000, 0, 2, 0x03006bbau},
    {8000, 0, 3, 0x2a1fc57cu},  {8000, 1, 0, 0xbcfd2f13u},  {8000, 1, 1, 0xabd85045u},
    {8000, 1, 2, 0xa610085bu},  {8000, 1, 3, 0x6ba3b26du},  {8000, 2, 0, 0xec917b8du},
    {8000, 2, 1, 0x6e1a6dd1u},  {8000, 2, 2, 0x2ced94b7u},  {8000, 2, 3, 0xb80a6b86u},
    {8000, 3, 0, 0x1bec4f27u},  {8000, 3, 1, 0x3d8654a8u},  {8000, 3, 2, 0x15171b64u},
    {8000, 3, 3, 0xe908c963u},  {16000, 0, 0, 0x00ee4e13u}, {16000, 0, 1, 0xd665d2dfu},
    {16000, 0, 2, 0x16b82548u}, {16000, 0, 3, 0x95e4b295u}, {16000, 1, 0, 0x9eee0462u},
    {16000, 1, 1, 0xb09304f6u}, {16000, 1, 2, 0x2f0fad20u}, {16000, 1, 3, 0x99820a86u},
    {16000, 2, 0, 0xeaa2fd86u}, {16000, 2, 1, 0xdb3b1fa4u}, {16000, 2, 2, 0x366b1d6du},
    {16000, 2, 3, 0x8e84670cu}, {16000, 3, 0, 0x26fb7124u}, {16000, 3, 1, 0x66e8eb6au},
    {16000, 3, 2, 0x79d4c27eu}, {16000, 3, 3, 0x63e873d9u},
};

// The unchanged steps, frame for frame, against the published suppressor;
// at 32 kHz the same 160-sample blocks give the 16 kHz result.
TEST(NsxCore, ReferenceSuppressorOutputs) {
  for (const RefRow& row : kReferenceOutputs) {
    const int blen = row.fs == 8000 ? 80 : 160;
    const auto sig = make_signal(row.kind, static_cast<int>(row.fs), 1000 * blen);
    NsPtr ns = make_ns(row.fs, row.policy);
    EXPECT_EQ(run_hash(ns.get(), sig, 1000, false), row.hash)
        << "fs " << row.fs << " kind " << row.kind << " policy " << row.policy;
    if (row.fs == 16000) {
      NsPtr ns32 = make_ns(32000, row.policy);
      EXPECT_EQ(run_hash(ns32.get(), sig, 1000, false), row.hash) << "32 kHz, kind " << row.kind;
    }
  }
}

// What the reference comparison cannot see: the band post-processing record
// sized for the rate, and the flag that lets process run.
TEST(NsxCore, RateTableAndBandRecord) {
  for (auto [fs, bins] : {std::pair{8000u, 65}, {16000u, 129}, {32000u, 129}}) {
    NsPtr ns = make_ns(fs, 0);
    EXPECT_EQ(ns->magn_len, bins);
    EXPECT_EQ(ns->init_flag, 1);
    ASSERT_NE(ns->bp_info, nullptr);
    EXPECT_EQ(ns->bp_info->bin_count, bins);
  }
}

// The formula tables, re-derived; the stated window and gain-table values.
TEST(NsxCore, TablesFollowTheirFormulas) {
  for (int k = 0; k < 9; k++) EXPECT_EQ(kedoNsx_kLogTable[k], std::lround(k * std::log(2.0) * 256)) << k;
  EXPECT_EQ(kedoNsx_kCounterDiv[0], 32767);
  for (int k = 1; k < 201; k++) EXPECT_EQ(kedoNsx_kCounterDiv[k], std::lround(32768.0 / (k + 1))) << k;
  for (int i = 0; i < 256; i++) {
    EXPECT_EQ(kafx::nsx::kLogTableFrac[i], std::lround(256 * std::log2(1 + i / 256.0))) << i;
  }
  for (int i = 1; i < 129; i++) EXPECT_EQ(kafx::nsx::kLogIndex[i], std::lround(4096 * std::log2(i))) << i;
  struct {
    const int16_t* w;
    int n, rise;
  } const windows[] = {{kafx::nsx::kWindow128, 128, 48}, {kafx::nsx::kWindow256, 256, 96}};
  for (const auto& w : windows) {
    for (int i = 0; i < w.n; i++) {
      int expect = i < w.rise ? static_cast<int>(std::lround(16384 * std::sin(M_PI * i / (2 * w.rise)))) : 16384;
      if (i > w.n / 2) expect = w.w[w.n - i];  // mirrored fall
      ASSERT_EQ(w.w[i], expect) << w.n << " " << i;
    }
  }
  const int16_t* tables[] = {kafx::nsx::kFactor2Aggressiveness1, kafx::nsx::kFactor2Aggressiveness2,
                             kafx::nsx::kFactor2Aggressiveness3};
  const int first[] = {7577, 7270, 7184};
  for (int t = 0; t < 3; t++) {
    EXPECT_EQ(tables[t][0], first[t]);
    EXPECT_EQ(tables[t][256], 8192);
    for (int i = 1; i < 257; i++) ASSERT_GE(tables[t][i], tables[t][i - 1]) << t << " " << i;
  }
}

// Values outside 0..3 are refused and leave the policy in force.
TEST(NsxCore, RejectedPolicies) {
  NsPtr ns = make_ns(16000, 3);
  for (int bad : {4, -1, 1 << 30, -2147483647 - 1}) {
    EXPECT_EQ(kedoNs_set_policy_core(ns.get(), bad), -1) << bad;
    EXPECT_EQ(ns->aggr_mode, 3);
    EXPECT_EQ(ns->overdrive, 320);
    EXPECT_EQ(ns->factor2_table, kafx::nsx::kFactor2Aggressiveness3);
  }
}

// Every -1 and every null case of the interface.
TEST(NsxCore, RejectedCallsAndNulls) {
  for (unsigned bad : {0u, 11025u, 22050u, 44100u, 48000u}) {
    NsxInst_t_ ns{};
    ns.init_flag = 1;  // a stale flag must not survive a failed init
    EXPECT_EQ(kedoNs_InitCore(&ns, bad), -1) << bad;
    short frame[160] = {};
    EXPECT_EQ(kedoNs_ProcessCore(&ns, frame, frame), -1) << bad;
  }
  short frame[160] = {};
  NsxInst_t_ fresh{};
  EXPECT_EQ(kedoNs_ProcessCore(&fresh, frame, frame), -1);  // never initialised
  EXPECT_EQ(kedoNs_InitCore(nullptr, 16000), -1);
  EXPECT_EQ(kedoNs_set_policy_core(nullptr, 0), -1);
  EXPECT_EQ(kedoNs_ProcessCore(nullptr, frame, frame), -1);
  EXPECT_EQ(kedoNs_FreeCore(nullptr), -1);
  NsPtr ns = make_ns(16000, 0);
  EXPECT_EQ(kedoNs_ProcessCore(ns.get(), nullptr, frame), -1);
  EXPECT_EQ(kedoNs_ProcessCore(ns.get(), frame, nullptr), -1);
  EXPECT_EQ(ns->block_index, -1);  // nothing ran
  // The void entry points ignore null arguments.
  unsigned short magn[129];
  unsigned int snr[129];
  kedoNsx_DataAnalysis(nullptr, frame, magn);
  kedoNsx_DataAnalysis(ns.get(), nullptr, magn);
  kedoNsx_SpeechNoiseProb(nullptr, magn, snr, snr);
  kedoNsx_DataSynthesis(nullptr, frame);
  kedoNsx_DataSynthesis(ns.get(), nullptr);
  kedoNs_canceling_setstatus(nullptr, 1);
  int status = 7;
  kedoNs_canceling_getstatus(nullptr, &status);
  EXPECT_EQ(status, 7);
  kedoNs_canceling_getstatus(ns.get(), nullptr);
  // The status word is stored and read back, not interpreted.
  for (int v : {1, 0, -5}) {
    kedoNs_canceling_setstatus(ns.get(), v);
    kedoNs_canceling_getstatus(ns.get(), &status);
    EXPECT_EQ(status, v);
    EXPECT_EQ(ns->canceling_status, v);
  }
}

// Init's one allocation (the band post-processing record) failing leaves an
// instance that refuses to run; a working instance never allocates while it
// processes.
TEST(NsxCore, AllocationFailureAndRealTimeProcess) {
  const long n = kafx_test::for_each_failing_allocation([](long failing) {
    NsxInst_t_ ns{};
    short frame[160] = {};
    EXPECT_EQ(kedoNs_InitCore(&ns, 16000), failing == 0 ? 0 : -1);
    EXPECT_EQ(kedoNs_ProcessCore(&ns, frame, frame), failing == 0 ? 0 : -1);
    kedoNs_FreeCore(&ns);
  });
  EXPECT_EQ(n, 1);
  const std::vector<int16_t> sig = make_signal(kBurstsInNoise, 16000, 16000);
  NsPtr ns = make_ns(16000, 3);
  std::vector<short> out(160);
  kafx_test::AllocCounter c;
  for (size_t at = 0; at + 160 <= sig.size(); at += 160)
    kedoNs_ProcessCore(ns.get(), const_cast<short*>(sig.data() + at), out.data());
  EXPECT_EQ(c.allocations(), 0);
  EXPECT_EQ(c.frees(), 0);
}

// An all-zero block goes through analysis and synthesis only: the overlap
// is read out, the estimators, the speech-presence vote and the click
// limiter do not move; the input peak history does.
TEST(NsxCore, SilentFrameIsAnalysisAndSynthesisOnly) {
  for (unsigned fs : {8000u, 16000u, 32000u}) {
    NsPtr ns = make_ns(fs, 2);
    const int blen = ns->block_len;
    const auto sig = make_signal(kBurstsInNoise, fs == 32000 ? 16000 : static_cast<int>(fs), 30 * blen);
    std::vector<int16_t> out(static_cast<size_t>(blen));
    for (int f = 0; f < 30; f++) {
      ASSERT_EQ(kedoNs_ProcessCore(ns.get(), const_cast<int16_t*>(&sig[static_cast<size_t>(f * blen)]), out.data()), 0);
    }
    // Enough zeros to clear the analysis window, then one more block.
    std::vector<int16_t> zeros(static_cast<size_t>(blen), 0);
    for (int f = 0; f * blen < ns->ana_len; f++) kedoNs_ProcessCore(ns.get(), zeros.data(), out.data());
    const NsxInst_t_ before = *ns;
    const BPInfo_tag bp_before = *ns->bp_info;
    std::vector<int16_t> expect(ns->synthesis_buffer, ns->synthesis_buffer + blen);
    ASSERT_EQ(kedoNs_ProcessCore(ns.get(), zeros.data(), out.data()), 0);
    EXPECT_EQ(ns->zero_input_signal, 1);
    EXPECT_EQ(out, expect);
    EXPECT_EQ(ns->block_index, before.block_index);
    EXPECT_EQ(0, std::memcmp(ns->noise_sup_filter, before.noise_sup_filter, sizeof(before.noise_sup_filter)));
    EXPECT_EQ(0, std::memcmp(ns->noise_est_log_quantile, before.noise_est_log_quantile,
                             sizeof(before.noise_est_log_quantile)));
    EXPECT_EQ(ns->prior_non_speech_prob, before.prior_non_speech_prob);
    EXPECT_EQ(ns->bp_info->frame_count, bp_before.frame_count);  // BP_ns_app did not run
    EXPECT_EQ(ns->bp_info->post_gain, bp_before.post_gain);      // BP_ns_post did not run
    EXPECT_EQ(ns->bp_info->in_peak_history[49], 1);              // BP_ns_pre did
    EXPECT_EQ(ns->bp_info->in_peak_history[48], bp_before.in_peak_history[49]);
  }
}

// The prior comes from the band post-processing alone: a shadow record fed
// the same input peaks and the frame's magnitude spectrum gives the prior
// the core uses, (32767 - presence) >> 1; the output has faded in.
TEST(NsxCore, PriorFollowsBandPostProcessing) {
  for (unsigned fs : {8000u, 16000u}) {
    NsPtr ns = make_ns(fs, 3);
    const int blen = ns->block_len;
    const auto sig = make_signal(kHumBurstsGaps, static_cast<int>(fs), 400 * blen);
    BPInfo_tag* shadow = BP_ns_init(static_cast<int>(fs), ns->magn_len);
    std::vector<int16_t> out(static_cast<size_t>(blen)), in(static_cast<size_t>(blen));
    for (int f = 0; f < 400; f++) {
      std::copy_n(&sig[static_cast<size_t>(f * blen)], blen, in.begin());
      ASSERT_EQ(kedoNs_ProcessCore(ns.get(), in.data(), out.data()), 0);
      BP_ns_pre(shadow, in.data(), blen);
      if (ns->zero_input_signal) continue;
      const int16_t p = static_cast<int16_t>(
          BP_ns_app(shadow, ns->prev_magn, ns->sum_magn, static_cast<short>(ns->prev_q_magn)));
      ASSERT_EQ(ns->prior_non_speech_prob, (32767 - p) >> 1) << "frame " << f;
    }
    EXPECT_EQ(ns->bp_info->post_gain, 32767);  // faded in
    BP_ns_delete(shadow);
  }
}

// Extreme inputs (full-scale DC, alternating full scale, isolated impulses,
// one-LSB noise, clipped noise) at every rate and policy: every block is
// processed, and once the input falls silent the overlap drains to exact
// silence within one analysis length. Run under the sanitizers this also
// checks that no shift or product leaves defined behaviour.
TEST(NsxCore, ExtremeInputsThenSilence) {
  auto pattern = [](int kind, int i, Lcg& rng) -> int16_t {
    switch (kind) {
      case 0: return 32767;
      case 1: return i % 2 ? 32767 : -32768;
      case 2: return i % 397 == 0 ? -32768 : 0;
      case 3: return static_cast<int16_t>(rng.next() & 1);
      case 4: return clip16(rng.next() * 4);
      default: return static_cast<int16_t>(i % 160 < 80 ? -32768 : 0);
    }
  };
  for (unsigned fs : {8000u, 16000u, 32000u}) {
    for (int policy = 0; policy < 4; policy++) {
      for (int kind = 0; kind < 6; kind++) {
        NsPtr ns = make_ns(fs, policy);
        const int blen = ns->block_len;
        std::vector<int16_t> in(static_cast<size_t>(blen)), out(static_cast<size_t>(blen));
        Lcg rng{static_cast<uint32_t>(kind + 1)};
        int i = 0;
        for (int f = 0; f < 260; f++) {  // past the start-up phases
          for (auto& x : in) x = pattern(kind, i++, rng);
          ASSERT_EQ(kedoNs_ProcessCore(ns.get(), in.data(), out.data()), 0);
        }
        std::fill(in.begin(), in.end(), 0);
        for (int f = 0; f * blen < ns->ana_len; f++) kedoNs_ProcessCore(ns.get(), in.data(), out.data());
        ASSERT_EQ(kedoNs_ProcessCore(ns.get(), in.data(), out.data()), 0);
        EXPECT_EQ(out, in) << fs << " " << policy << " " << kind;
      }
    }
  }
}

// The exported steps used outside the core's own course: analyses without
// the core's block count during start-up (the start-up noise model runs
// away and its Q domains with it), then whole blocks; and the speech
// probability step on arbitrary SNR words. The arithmetic stays defined
// (the sanitizer build stops on any shift of 32 or more and any signed
// overflow), repeats exactly, and the core goes on giving blocks.
TEST(NsxCore, StepsOutsideTheCoresCourseStayDefined) {
  auto session = [](unsigned fs, int steps, uint32_t seed) {
    NsPtr ns = make_ns(fs, 2);
    const int blen = ns->block_len;
    const int frames = steps + 60;
    const auto sig = make_signal(kBurstsInNoise, fs == 32000 ? 16000 : static_cast<int>(fs), frames * blen);
    std::vector<int16_t> out(static_cast<size_t>(blen));
    std::vector<uint16_t> magn(KEDO_NSX_HALF_ANAL_BLOCKL), all;
    for (int f = 0; f < frames; f++) {
      int16_t* in = const_cast<int16_t*>(&sig[static_cast<size_t>(f * blen)]);
      if (f < steps) {
        kedoNsx_DataAnalysis(ns.get(), in, magn.data());
        kedoNsx_DataSynthesis(ns.get(), out.data());
      } else {
        EXPECT_EQ(kedoNs_ProcessCore(ns.get(), in, out.data()), 0);
      }
      all.insert(all.end(), out.begin(), out.end());
    }
    Lcg rng{seed};
    std::vector<uint16_t> prob(KEDO_NSX_HALF_ANAL_BLOCKL);
    std::vector<uint32_t> prior(KEDO_NSX_HALF_ANAL_BLOCKL), post(KEDO_NSX_HALF_ANAL_BLOCKL);
    for (int round = 0; round < 60; round++) {
      for (int i = 0; i < KEDO_NSX_HALF_ANAL_BLOCKL; i++) {
        prior[i] = static_cast<uint32_t>(rng.next()) << 16 ^ static_cast<uint32_t>(rng.next() & 0xFFFF);
        post[i] = static_cast<uint32_t>(rng.next()) << 16 ^ static_cast<uint32_t>(rng.next() & 0xFFFF);
      }
      kedoNsx_SpeechNoiseProb(ns.get(), prob.data(), prior.data(), post.data());
      all.insert(all.end(), prob.begin(), prob.begin() + ns->magn_len);
    }
    return all;
  };
  for (unsigned fs : {8000u, 32000u})
    for (int steps : {0, 20, 60}) EXPECT_EQ(session(fs, steps, 99), session(fs, steps, 99)) << fs << " " << steps;
}

// The process-wide routine pointers are constant-initialised to the plain
// routines and keep those values across initialisations.
TEST(NsxCore, RoutinePointersKeepTheirValues) {
  auto pointers = [] {
    return std::vector<const void*>{
        reinterpret_cast<void*>(kedoNsx_NoiseEstimation), reinterpret_cast<void*>(kedoNsx_PrepareSpectrum),
        reinterpret_cast<void*>(kedoNsx_SynthesisUpdate), reinterpret_cast<void*>(kedoNsx_AnalysisUpdate),
        reinterpret_cast<void*>(kedoNsx_Denormalize), reinterpret_cast<void*>(kedoNsx_CreateComplexBuffer)};
  };
  const std::vector<const void*> before = pointers();
  for (const void* p : before) EXPECT_NE(p, nullptr);
  NsPtr ns = make_ns(8000, 1);
  EXPECT_EQ(pointers(), before);
}

// Many instances initialised and run on several threads at once give the
// single-thread results (and are clean under ThreadSanitizer).
TEST(NsxCore, ThreadedInstances) {
  constexpr int kThreads = 6;
  constexpr int kFrames = 150;
  const unsigned rates[] = {8000u, 16000u, 32000u};
  auto job = [&](int t) {
    const unsigned fs = rates[t % 3];
    const int blen = fs == 8000 ? 80 : 160;
    const auto sig = make_signal(t % kNumSignalKinds, fs == 32000 ? 16000 : static_cast<int>(fs), kFrames * blen);
    uint32_t h = 0;
    for (int rep = 0; rep < 2; rep++) {  // re-initialise while others run
      NsPtr ns = make_ns(fs, t % 4);
      h = run_hash(ns.get(), sig, kFrames, true);
    }
    return h;
  };
  std::vector<uint32_t> expect(kThreads), got(kThreads);
  for (int t = 0; t < kThreads; t++) expect[static_cast<size_t>(t)] = job(t);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; t++) threads.emplace_back([&, t] { got[static_cast<size_t>(t)] = job(t); });
  for (auto& th : threads) th.join();
  EXPECT_EQ(got, expect);
}

}  // namespace
