// Sixth-order IIR filter: hand-worked sequences, a direct evaluation of the
// difference equation over the whole input history, reset and the buffer
// form. (The stated response of the band-pass below is measured through the
// gramophone effect that owns it.)
#include "kafx_proc/elliptic.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "common/elliptic_block.h"
#include "support/sequences.h"
#include "support/variants.h"

namespace {

using Seq = std::vector<int>;

// Band-pass at 48 kHz (the gramophone's set).
const int kBandPass[13] = {617,     -1060,     268,      0,         -268,    1060,   -617,
                           5909563, -13956198, 17678109, -12667477, 4868827, -784265};

Seq run(elliptic* e, const Seq& in) {
  return kafx_test::per_sample(in, [&](int x) { int y = 0; elliptic_process(e, &x, &y); return y; });
}

Seq run(const int* coef, const Seq& in) {
  elliptic e;
  elliptic_init(&e, coef);
  const Seq out = run(&e, in);
  elliptic_end(&e);
  return out;
}

// y[n] = sum b_k (x[n-k] << 5) + sum a_k y[n-k], evaluated from the whole
// history (zero before n = 0) with 64-bit wrap-around, then >> 20, low
// 32 bits, -1 -> 0; the output is y >> 5 with -1 -> 0.
Seq model(const int* c, const Seq& in) {
  std::vector<int64_t> xs, ys;
  Seq out;
  for (size_t n = 0; n < in.size(); ++n) {
    xs.push_back(static_cast<int32_t>(static_cast<uint32_t>(in[n]) << 5));
    uint64_t sum = 0;
    for (size_t k = 0; k <= 6 && k <= n; ++k) sum += static_cast<uint64_t>(c[k] * xs[n - k]);
    for (size_t k = 1; k <= 6 && k <= n; ++k) sum += static_cast<uint64_t>(c[6 + k] * ys[n - k]);
    int32_t y = static_cast<int32_t>(static_cast<uint32_t>(static_cast<int64_t>(sum) >> 20));
    if (y == -1) y = 0;
    ys.push_back(y);
    out.push_back((y >> 5) == -1 ? 0 : y >> 5);
  }
  return out;
}

}  // namespace

TEST(Elliptic, HandWorkedSequences) {
  // Unity (an input of -1 comes out as 0), a one-sample delay, and a
  // one-pole recursion y = x + y/2 on the internal value 32 * x: negative
  // values floor away from zero and outputs of -1 are flushed.
  struct Row {
    std::vector<int> coef;
    Seq in, out;
  } rows[] = {
      {{1 << 20}, {1000, -1, -32, 7, 0}, {1000, 0, -32, 7, 0}},
      {{0, 1 << 20}, {5, -6, 7, 0}, {0, 5, -6, 7}},
      {{1 << 20, 0, 0, 0, 0, 0, 0, 1 << 19},
       {1000, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
       {1000, 500, 250, 125, 62, 31, 15, 7, 3, 1, 0, 0}},
      {{1 << 20, 0, 0, 0, 0, 0, 0, 1 << 19},
       {-1000, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
       {-1000, -500, -250, -125, -63, -32, -16, -8, -4, -2, 0, 0}},
      // Sixth-order taps: b6 echoes the input six samples later, a6 feeds
      // back the output six samples later at half level.
      {{0, 0, 0, 0, 0, 0, 1 << 20, 0, 0, 0, 0, 0, 1 << 19},
       {64, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
       {0, 0, 0, 0, 0, 0, 64, 0, 0, 0, 0, 0, 32, 0}},
  };
  for (Row& r : rows) {
    r.coef.resize(13);
    EXPECT_EQ(run(r.coef.data(), r.in), r.out);
  }
}

TEST(Elliptic, MatchesDirectEvaluation) {
  // The band-pass on random full-scale working samples, and random
  // coefficients with inputs beyond 24 bits where sums wrap.
  const Seq in = kafx_test::random_values<int>(3000, 7, -8388608, 8388607);
  EXPECT_EQ(run(kBandPass, in), model(kBandPass, in));
  for (unsigned trial = 0; trial < 20; ++trial) {
    const Seq coef = kafx_test::random_values<int>(13, 100 + trial), wild = kafx_test::random_values<int>(200, trial);
    ASSERT_EQ(run(coef.data(), wild), model(coef.data(), wild)) << "trial " << trial;
  }
}

TEST(Elliptic, ResetNewTableEndAndBufferForm) {
  // A reset gives a fresh filter (zeros in, zeros out); a new table clears
  // the history (a one-sample delay then starts from 0).
  const Seq in = {3000000, -1000000, 5, 7000000, 0, 0, 0, 0};
  elliptic e;
  elliptic_init(&e, kBandPass);
  const Seq first = run(&e, in);
  elliptic_resetstate(&e);
  EXPECT_EQ(run(&e, Seq(8, 0)), Seq(8, 0));
  EXPECT_EQ(run(&e, in), first);
  static const int kDelay[13] = {0, 1 << 20};
  elliptic_setcoef(&e, kDelay);
  EXPECT_EQ(run(&e, in), (Seq{0, 3000000, -1000000, 5, 7000000, 0, 0, 0}));
  elliptic_end(&e);
  EXPECT_TRUE(e.state == nullptr && e.coefficients == nullptr);

  // remove_high_freq_process leaves in >> 2 (-1 -> 0) in the input buffer
  // and filters it; odd length, one shared table for two filters.
  Seq buf = kafx_test::random_values<int>(37, 3, -8388608, 8388607), out(37, 12345);
  buf[0] = -1, buf[1] = -4, buf[2] = -5;
  Seq quarter;
  for (int v : buf) quarter.push_back((v >> 2) == -1 ? 0 : v >> 2);
  EXPECT_EQ(Seq(quarter.begin(), quarter.begin() + 3), (Seq{0, 0, -2}));
  elliptic a;
  elliptic_init(&a, kBandPass);
  remove_high_freq_process(&a, buf.data(), out.data(), static_cast<int>(buf.size()));
  EXPECT_EQ(buf, quarter);
  EXPECT_EQ(out, run(kBandPass, quarter));
  remove_high_freq_process(&a, buf.data(), out.data(), 0);  // count 0: nothing
  EXPECT_EQ(buf, quarter);
  elliptic_end(&a);
}

// The block form against the per-sample function: outputs and all thirteen
// state words (the parked low bits of the last sum included), over runs that
// cross its internal chunks, in place, with wild coefficients and inputs.
TEST(Elliptic, BlockFormEqualsPerSampleSteps) {
  for (unsigned trial = 0; trial < 6; ++trial) {
    const Seq coef = trial == 0 ? Seq(kBandPass, kBandPass + 13) : kafx_test::random_values<int>(13, 300 + trial);
    elliptic a, b;
    elliptic_init(&a, coef.data());
    elliptic_init(&b, coef.data());
    for (int len : {1, 0, 63, 64, 65, 200, 7}) {
      const size_t n = static_cast<size_t>(len);
      const Seq in = trial == 0 ? kafx_test::random_values<int>(n, trial + n, -8388608, 8388607)
                                : kafx_test::random_values<int>(n, trial + n);
      const Seq want = run(&a, in);
      Seq got = in;
      kafx::elliptic_block(&b, got.data(), got.data(), len);
      ASSERT_EQ(got, want) << "trial " << trial << " run " << len;
      ASSERT_EQ(std::memcmp(a.state, b.state, 13 * sizeof(int32_t)), 0) << "trial " << trial << " run " << len;
    }
    elliptic_end(&a);
    elliptic_end(&b);
  }
}

// Every build of the feed-forward sums against the baseline: odd lengths,
// inputs and coefficients over the whole int32 range (products near 2^62,
// sums wrapping), the band-pass's taps on full-scale inputs, canaries past
// the output.
TEST(Elliptic, FeedForwardVariantsMatchBaseline) {
  const int compared = kafx_test::for_each_variant(kafx::elliptic_feedforward_variants, [](auto fn, auto base) {
    for (unsigned trial = 0; trial < 4; ++trial) {
      const Seq b = trial == 0 ? Seq(kBandPass, kBandPass + 7) : kafx_test::random_values<int>(7, 500 + trial);
      for (int m : kafx_test::kOddLengths) {
        const auto n = static_cast<size_t>(m);
        // Six inputs before the first output's, then m more.
        const Seq h = trial == 0 ? kafx_test::random_values<int>(n + 6, trial + n, -(1 << 28), 1 << 28)
                                 : kafx_test::random_values<int>(n + 6, trial + n);
        kafx_test::Guarded<uint64_t> want(n), got(n);
        base(b.data(), h.data() + 6, want.data(), m);
        fn(b.data(), h.data() + 6, got.data(), m);
        SCOPED_TRACE(testing::Message() << "trial " << trial << " length " << m);
        EXPECT_EQ(got.v, want.v);
        EXPECT_TRUE(got.guards_intact());
      }
    }
  });
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0);
}
