// The builds per instruction set of the shared biquad kernel give the
// baseline's integers exactly; the variant chosen for a kernel is the most
// capable one this processor runs, and it is chosen while the library loads
// (a process call finds it in place); a kernel run before that, from another
// file's load-time initialiser or by racing threads, still runs the chosen
// variant.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "common/biquad.h"
#include "common/biquad_cascade.h"
#include "common/dispatch.h"
#include "common/drc_kernels.h"
#include "common/elliptic_block.h"
#include "common/gain_kernels.h"
#include "common/nld_kernels.h"
#include "common/reverb_kernels.h"
#include "support/variants.h"

namespace {

using kafx_test::random_values;

// A kernel of this file whose variants tell which one ran.
int probe_baseline(int x) { return 10 * x; }
int probe_avx2(int x) { return 10 * x + 1; }
int probe_neon(int x) { return 10 * x + 2; }
const kafx::KernelVariants<int (*)(int)> probe_variants = {"probe", {probe_baseline, probe_avx2, probe_neon}};
using Probe = kafx::ChosenVariant<probe_variants>;

// What a call of the probe returns on this processor, from the processor
// checks alone.
int probe_expected(int x) {
  const int isa = kafx::isa_available(kafx::kIsaNeon) ? 2 : (kafx::isa_available(kafx::kIsaAvx2) ? 1 : 0);
  return 10 * x + isa;
}

// A library kernel run by this file's load-time initialiser, which may run
// before the library's own (the static link puts this file first): it must
// find a working variant all the same.
struct LoadTimeRun {
  bool before_choice;  // the library's choice was not yet made
  kafx::DrcBlockStats stats;
};
LoadTimeRun run_at_load() {
  using Stats = kafx::ChosenVariant<kafx::drc_block_stats_variants>;
  const int32_t x[5] = {3, -7, INT32_MIN, 5, -1};
  LoadTimeRun r;
  r.before_choice = Stats::slot.load(std::memory_order_relaxed) == &Stats::first;
  r.stats = kafx::drc_block_stats(x, 5);
  return r;
}
const LoadTimeRun load_time_run = run_at_load();

// Whether the library's kernel of `Variants` holds the variant choose()
// picks, without having been called here.
template <const auto& Variants>
bool chosen_in_place() {
  return kafx::ChosenVariant<Variants>::slot.load(std::memory_order_relaxed) == kafx::choose(Variants);
}

TEST(Dispatch, BiquadFeedForwardVariantsMatchBaseline) {
  const std::vector<int32_t> coef = random_values<int32_t>(5, 1);
  const std::vector<int32_t> hist = random_values<int32_t>(4, 2);
  kafx::Biquad32Kernel k;
  k.b0 = coef[0], k.b1 = coef[1], k.b2 = coef[2], k.a1 = coef[3], k.a2 = coef[4];
  k.x1 = hist[0], k.x2 = hist[1], k.y1 = hist[2], k.y2 = hist[3];
  int compared = 0;
  compared += kafx_test::for_each_variant(kafx::biquad_feed_forward_chunk_variants, [&](auto fn, auto base) {
    for (int n : {1, 17, 37, 63, kafx::kBiquadChunk}) {
      // Full-range inputs: the saturating entry shift and the wrapping sums
      // are both exercised.
      const std::vector<int32_t> in = random_values<int32_t>(static_cast<size_t>(n), 10u + n);
      kafx::BiquadChunk a, b;
      std::memset(&a, 0x5A, sizeof a);
      std::memset(&b, 0x5A, sizeof b);
      base(k, in.data(), n, &a);
      fn(k, in.data(), n, &b);
      EXPECT_EQ(0, std::memcmp(&a, &b, sizeof a)) << "n " << n;  // unused tail untouched in both
    }
  });
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0);
}

TEST(Dispatch, ChoosesTheMostCapableAvailableVariant) {
  using F = int (*)();
  static F base = [] { return 0; };
  static F wide = [] { return 1; };
  const kafx::KernelVariants<F> only_base = {"only_base", {base, nullptr}};
  const kafx::KernelVariants<F> both = {"both", {base, wide}};
  EXPECT_EQ(kafx::choose(only_base)(), 0);
  EXPECT_EQ(kafx::choose(both)(), kafx::isa_available(kafx::kIsaAvx2) ? 1 : 0);
  EXPECT_TRUE(kafx::isa_available(kafx::kIsaBaseline));
}

// A NEON build is taken exactly where the processor has NEON: always on
// AArch64, never on x86-64; on 32-bit ARM as the kernel reports it.
TEST(Dispatch, NeonBuildRunsWhereNeonIs) {
  using F = int (*)();
  static F base = [] { return 0; };
  static F neon = [] { return 2; };
  const kafx::KernelVariants<F> v = {"neon", {base, nullptr, neon}};
  EXPECT_EQ(kafx::choose(v)(), kafx::isa_available(kafx::kIsaNeon) ? 2 : 0);
#if defined(__aarch64__)
  EXPECT_EQ(kafx::isa_available(kafx::kIsaNeon), KAFX_NEON_VARIANTS == 1);
#elif defined(__x86_64__)
  EXPECT_FALSE(kafx::isa_available(kafx::kIsaNeon));
  EXPECT_EQ(KAFX_NEON_VARIANTS, 0);
#endif
  EXPECT_STREQ(kafx::isa_name(kafx::kIsaNeon), "neon");
}

// Every kernel holds its chosen variant before any call (ctest runs each
// test in a process of its own, so no other test has called them): the
// probe of this file, never called outside this test, and the library's
// kernels of this folder that its code here runs (not the four-comb bank,
// run by the headphone effects only, which this program does not link, nor
// the single bank of working samples, which only the tests run).
TEST(Dispatch, VariantsAreChosenWhenTheLibraryLoads) {
  EXPECT_EQ(Probe::slot.load(), kafx::choose(probe_variants));
  EXPECT_NE(Probe::slot.load(), &Probe::first);
  EXPECT_TRUE(chosen_in_place<kafx::biquad_feed_forward_chunk_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::biquad_block32_pair_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::biquad_cascade_pair_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::biquad_split_energies_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::biquad_crossover_stereo_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::drc_delay_gain_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::drc_delay_gains_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::drc_glide_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::elliptic_feedforward_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::gain_run_q13_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::nld_polynomial_run_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::reverb_comb_bank_16_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::reverb_comb_banks_working_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::reverb_comb_banks_16_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::reverb_mix_variants>());
  EXPECT_TRUE(chosen_in_place<kafx::reverb_allpass_run_variants>());
  EXPECT_EQ(kafx::run_chosen<probe_variants>(4), probe_expected(4));
}

// The kernel run at load time by this file gave the sums of its definition,
// and the library's kernel holds the chosen variant since.
TEST(Dispatch, KernelRunBeforeTheLibrarysChoiceWorks) {
  EXPECT_EQ(load_time_run.stats.sum, 3 + 7 + (int64_t{1} << 31) + 5 + 1);
  EXPECT_EQ(load_time_run.stats.max_abs, int64_t{1} << 31);
  EXPECT_TRUE(chosen_in_place<kafx::drc_block_stats_variants>());
  RecordProperty("ran_before_the_librarys_choice", load_time_run.before_choice ? "yes" : "no");
}

// A kernel whose choice is not yet stored chooses on its first call and
// stores the choice; chosen_variant() names it without storing it.
TEST(Dispatch, FirstCallChoosesAndStores) {
  Probe::slot.store(&Probe::first);
  EXPECT_EQ(kafx::chosen_variant<probe_variants>(), kafx::choose(probe_variants));
  EXPECT_EQ(Probe::slot.load(), &Probe::first);
  EXPECT_EQ(kafx::run_chosen<probe_variants>(7), probe_expected(7));
  EXPECT_EQ(Probe::slot.load(), kafx::choose(probe_variants));
  EXPECT_EQ(kafx::run_chosen<probe_variants>(-3), probe_expected(-3));
  EXPECT_EQ(kafx::chosen_variant<probe_variants>(), kafx::choose(probe_variants));
}

// Threads that all find the choice not yet stored each store the same
// variant, and every call runs it (ThreadSanitizer reports a data race here
// if the slot is not atomic).
TEST(Dispatch, ThreadsRacingToTheFirstCallAgree) {
  Probe::slot.store(&Probe::first);
  constexpr int kThreads = 4, kCalls = 2000;
  int wrong[kThreads] = {};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t, &wrong] {
      for (int i = 0; i < kCalls; ++i) wrong[t] += kafx::run_chosen<probe_variants>(i + t) != probe_expected(i + t);
    });
  for (std::thread& th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(wrong[t], 0) << "thread " << t;
  EXPECT_EQ(Probe::slot.load(), kafx::choose(probe_variants));
}

}  // namespace
