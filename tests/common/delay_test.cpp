// Delay line, all-pass, damped comb and IIR comb: hand-derived sequences at
// the interesting edges, and long random runs of the comb against a queue
// model (a FIFO of the loop length instead of a circular index).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <random>
#include <vector>

#include "common/delay.h"
#include "kafx_proc/delay.h"
#include "support/sequences.h"
#include "support/variants.h"

namespace {

using Seq = std::vector<int>;
using kafx_test::per_sample;

// Model arithmetic, written out with plain 64-bit integers.
int64_t sat(int64_t v) { return v > INT32_MAX ? INT32_MAX : (v < INT32_MIN ? INT32_MIN : v); }
int64_t no_m1(int64_t v) { return v == -1 ? 0 : v; }


}  // namespace

TEST(AudioDelay, DelaysClampsAndPassesThrough) {
  audio_delay d;
  audio_delay_init(&d, 4);
  auto run = [&](int x) { return audio_delay_process(&d, x); };
  EXPECT_EQ(per_sample({1, 2, 3, 4, 5, 6}, run), (Seq{0, 0, 0, 0, 1, 2}));
  audio_delay_set_delay(&d, 1);  // below the position (2): one more access there, then wrap to 0
  EXPECT_EQ(per_sample({7, 8, 9}, run), (Seq{3, 5, 8}));
  audio_delay_set_delay(&d, 0);  // input returned, buffer and position untouched
  EXPECT_EQ(run(-123), -123);
  EXPECT_EQ(Seq(d.buffer, d.buffer + 4), (Seq{9, 6, 7, 4}));
  EXPECT_EQ(d.index, 0);
  int got = 0;
  audio_delay_set_delay(&d, 100);  // clamped to the capacity
  audio_delay_get_delay(&d, &got);
  EXPECT_EQ(got, 4);
  d.index = 3;
  audio_delay_reinit(&d, 2);  // clears only the first `delay` words, keeps the position
  EXPECT_EQ(Seq(d.buffer, d.buffer + 4), (Seq{0, 0, 7, 4}));
  EXPECT_TRUE(d.delay == 2 && d.index == 3);
  audio_delay_end(&d);
  EXPECT_TRUE(d.buffer == nullptr && d.size == 0 && d.delay == 0 && d.index == 0);
}

// The block forms walk their lines in unwrapped stretches; over runs of
// every length, with the delay lowered below the position, raised and
// switched off between runs, and in place (output over input), they must
// give what the per-sample functions give: the plain delay and the comb with
// a loop filter (random loop gains, wrapping sums).
template <class Line, class SetDelay, class Step, class Block>
void expect_block_form_equals_steps(Line& a, Line& b, int size, SetDelay set_delay, Step step, Block block) {
  std::mt19937 rng(7);
  for (int delay : {size, 5, 1, 0, 37, size, 2}) {
    set_delay(&a, delay);
    set_delay(&b, delay);
    for (int len : {1, 3, 64, 0, 129, 7}) {
      Seq x(static_cast<size_t>(len));
      for (int& v : x) v = static_cast<int>(rng());
      Seq want(x.size());
      for (size_t i = 0; i < x.size(); ++i) want[i] = step(&a, x[i]);
      Seq got = x;
      block(&b, got.data(), len);
      ASSERT_EQ(got, want) << "delay " << delay << " run " << len;
      ASSERT_EQ(b.index, a.index);
    }
  }
  EXPECT_EQ(Seq(a.buffer, a.buffer + size), Seq(b.buffer, b.buffer + size));
}

TEST(DelayLines, BlockFormsEqualPerSampleSteps) {
  audio_delay a, b;
  audio_delay_init(&a, 64);
  audio_delay_init(&b, 64);
  expect_block_form_equals_steps(a, b, 64, audio_delay_set_delay, audio_delay_process, [](audio_delay* d, int* x, int n) {
    kafx::delay_run(d->buffer, d->delay, d->index, x, n, [x](int k, int32_t v) { x[k] = v; });
  });
  audio_delay_end(&a);
  audio_delay_end(&b);

  iircomber c, e;
  iircomber_init(&c, 64);
  iircomber_init(&e, 64);
  const Seq g = kafx_test::random_values<int>(4, 11, -12000, 12000);
  for (iircomber* f : {&c, &e}) {
    f->b0 = g[0], f->b1 = g[1], f->a1 = g[2];
    iircomber_setfeedback(f, g[3]);
  }
  expect_block_form_equals_steps(
      c, e, 64, iircomber_setdelay, [](iircomber* f, int x) { return iircomber_process(x, f); },
      [](iircomber* f, int* x, int n) { kafx::iircomb_run(f, x, x, n); });
  EXPECT_TRUE(c.x1 == e.x1 && c.y1 == e.y1);
  std::free(c.buffer);  // (the comb has no end function)
  std::free(e.buffer);
}

// Two IIR combs side by side: each must take exactly its per-sample steps,
// whatever the other's loop length (stretches are cut where either wraps),
// with lengths changed between runs (below the position, one sample, a
// negative length whose loop wraps after every sample) and different gains.
TEST(DelayLines, IirCombPairEqualsPerSampleSteps) {
  constexpr int kSize = 300;
  iircomber a[2], b[2];  // a: per sample, b: side by side
  const Seq g = kafx_test::random_values<int>(8, 23, -12000, 12000);
  for (int k = 0; k < 2; ++k) {
    iircomber_init(&a[k], kSize);
    iircomber_init(&b[k], kSize);
    for (iircomber* f : {&a[k], &b[k]}) {
      f->b0 = g[4 * k], f->b1 = g[4 * k + 1], f->a1 = g[4 * k + 2];
      iircomber_setfeedback(f, g[4 * k + 3]);
    }
  }
  std::mt19937 rng(5);
  const int delays[][2] = {{kSize, 37}, {5, 1}, {240, 264}, {-3, 100}, {1, 1}, {0, 7}, {kSize, kSize - 24}};
  for (const auto& d : delays) {
    for (int k = 0; k < 2; ++k) {
      iircomber_setdelay(&a[k], d[k]);
      iircomber_setdelay(&b[k], d[k]);
    }
    for (int len : {1, 3, 64, 0, 256, 129, 7}) {
      Seq x0(static_cast<size_t>(len)), x1(static_cast<size_t>(len));
      for (int& v : x0) v = static_cast<int>(rng());
      for (int& v : x1) v = static_cast<int>(rng()) >> (rng() % 16);
      Seq want0(x0.size()), want1(x1.size());
      for (size_t i = 0; i < x0.size(); ++i) {
        want0[i] = iircomber_process(x0[i], &a[0]);
        want1[i] = iircomber_process(x1[i], &a[1]);
      }
      Seq got0 = x0;  // in place on the first comb, separate output on the second
      kafx_test::Guarded<int32_t> got1(x1.size());
      kafx::iircomb_pair_run(&b[0], &b[1], got0.data(), x1.data(), got0.data(), got1.data(), len);
      ASSERT_EQ(got0, want0) << "delays " << d[0] << "/" << d[1] << " run " << len;
      ASSERT_EQ(Seq(got1.v.begin(), got1.v.begin() + len), want1) << "delays " << d[0] << "/" << d[1] << " run " << len;
      ASSERT_TRUE(got1.guards_intact());
      for (int k = 0; k < 2; ++k) {
        ASSERT_EQ(b[k].index, a[k].index);
        ASSERT_TRUE(b[k].x1 == a[k].x1 && b[k].y1 == a[k].y1);
      }
    }
  }
  for (int k = 0; k < 2; ++k) {
    EXPECT_EQ(Seq(a[k].buffer, a[k].buffer + kSize), Seq(b[k].buffer, b[k].buffer + kSize));
    std::free(a[k].buffer);  // (the comb has no end function)
    std::free(b[k].buffer);
  }
}

TEST(Comb, HandDerivedSequences) {
  // Loop of 2, damp 0, feedback 0.5: an impulse halves every second sample;
  // negative floors round away from zero (-62.5 -> -63), stored words -32..-2
  // read back as -1 and are returned as 0, and the loop product -2 * 0.5 = -1
  // is flushed: every decay empties the loop. Loop gain 1.0: 32767 << 13
  // accumulates until the plain 32-bit add wraps.
  struct Row { int size, damp, feedback, shift; Seq in, out; } rows[] = {  // decays padded to 40 samples
      {2, 0, 4096, 5, {1000}, {0, 0, 1000, 0, 500, 0, 250, 0, 125, 0, 62, 0, 31, 0, 15, 0, 7, 0, 3, 0, 1}},
      {2, 0, 4096, 5, {-1000}, {0, 0, -1000, 0, -500, 0, -250, 0, -125, 0, -63, 0, -32, 0, -16, 0, -8, 0, -4, 0, -2}},
      {5, 2000, 2048, 5, {-1000},  // damped: the low-pass state and the loop product both pass -1 on the way down
       {0, 0, 0, 0, 0, -1000, 0, 0, 0, 0, -189, -47, -12, -3, 0, -36, -18, -7, -3, 0, -7, -6, -3, 0, 0, -2, -2}},
      {1, 0, 8192, 13, Seq(11, 32767),
       {0, 32767, 65534, 98301, 131068, 163835, 196602, 229369, 262136, -229385, -196618}},
  };
  for (Row& r : rows) {
    comber c;
    comb_init(&c, r.size);
    comb_setsetdamp(&c, r.damp);
    comb_setfeedback(&c, r.feedback);
    r.in.resize(r.shift == 5 ? 40 : r.in.size());
    r.out.resize(r.in.size());
    EXPECT_EQ(per_sample(r.in, [&](int x) { return r.shift == 5 ? comb_process_24(x, &c) : comb_process_16(x, &c); }),
              r.out);
    EXPECT_TRUE(r.shift == 13 || (std::count(c.buffer, c.buffer + r.size, 0) == r.size && !c.lowpass_state));
    comb_end(&c);
    EXPECT_EQ(c.buffer, nullptr);
  }
}

TEST(Comb, MatchesQueueModel) {
  // Damp 8192 is left at the init defaults: the comb then only delays.
  struct Case { int size, feedback, damp, shift, amplitude; } cases[] = {
      {7, 6000, 2000, 5, 8388607}, {5, 8000, 5000, 13, 32767}, {3, 7000, 0, 5, 1 << 20}, {11, 4096, 8192, 13, 32767}};
  for (const Case& k : cases) {
    comber c;
    comb_init(&c, k.size);
    comb_setfeedback(&c, k.feedback);
    if (k.damp != 8192) comb_setsetdamp(&c, k.damp);
    std::deque<int64_t> loop(k.size, 0);
    int64_t lp = 0;
    std::mt19937 rng(k.size);
    std::uniform_int_distribution<int> dist(-k.amplitude, k.amplitude);
    for (int n = 0; n < 3000; ++n) {
      const int x = n < 2000 ? dist(rng) : 0;  // then let it ring out
      const int64_t o = loop.front();
      loop.pop_front();
      lp = no_m1(sat(((8192 - k.damp) * o + k.damp * lp) >> 13));
      const int64_t in = x * (int64_t{1} << k.shift) + no_m1(sat((lp * k.feedback) >> 13));
      loop.push_back(static_cast<int32_t>(static_cast<uint32_t>(in)));  // a plain 32-bit add: low 32 bits
      const int got = k.shift == 5 ? comb_process_24(x, &c) : comb_process_16(x, &c);
      ASSERT_EQ(got, no_m1(o >> k.shift)) << "size " << k.size << " sample " << n;
    }
    comb_end(&c);
  }
}

TEST(Allpass, SequencesAndSaturation) {
  // Loop of 2, g = 0.5: y = x/2 + w[n-2], w = x - y/2 (floors: -187.5 -> -188).
  // Full scale twice: g*x plus the stored 2^31 - 1 - 2^29 leaves the range.
  const Seq rows[][2] = {{{1000, 0, 0, 0, 0, 0, 0, 0, 0}, {500, 0, 750, 0, -375, 0, 188, 0, -94}},
                         {{INT32_MAX, 0, INT32_MAX}, {1073741823, 0, INT32_MAX}},
                         {{INT32_MIN, 0, INT32_MIN}, {-1073741824, 0, INT32_MIN}}};
  allpass a;
  allpass_init(&a, 2);
  for (const auto& r : rows) {
    allpass_reset(&a);
    EXPECT_EQ(per_sample(r[0], [&](int x) { return allpass_process(x, &a); }), r[1]);
  }
  allpass_end(&a);
  EXPECT_EQ(a.buffer, nullptr);
}

TEST(IirComb, LoopFilterFlushAndWrapRules) {
  struct Row { int b0, b1, a1, delay; Seq in, out; int y1; } rows[] = {
      // Defaults, delay 0 (a loop of one sample): w = 1000, y = 500, t = 250;
      // then y = (250*4096 + 1000*4096 - 500*5734) >> 13 = 275, t = 137.
      {4096, 4096, 5734, 0, {1000, 0, 0}, {1000, 250, 137}, 275},
      // b0 = 4.0: w = 2^30 gives y = low 32 bits of 2^32 = 0; then y = 2^29, x + 2^28 wraps.
      {32768, 4096, 5734, 0, {1 << 30, 0, INT32_MAX}, {1 << 30, 0, INT32_MIN + (1 << 28) - 1}, 1 << 29},
      // A y of -1 is stored as 0; a t of -1 (y = -2) leaves x alone.
      {8192, 0, 0, 0, {-1, 100}, {-1, 100}, 0},
      {8192, 0, 0, 0, {-2, 100}, {-2, 100}, -2},
      // A loop of two: 1000 returns through the filter (500, then 150, ...), halved.
      {4096, 4096, 5734, 2, {1000, 0, 0, 0, 0, 0, 0}, {1000, 0, 250, 75, 10, 74, -31}, -62},
  };
  for (Row& r : rows) {
    iircomber c;
    iircomber_init(&c, 4);
    iircomber_setdelay(&c, r.delay);
    c.b0 = r.b0, c.b1 = r.b1, c.a1 = r.a1;
    EXPECT_EQ(per_sample(r.in, [&](int x) { return iircomber_process(x, &c); }), r.out);
    EXPECT_EQ(c.y1, r.y1);
    iircomber_setdelay(&c, 1000);  // clamped to the capacity
    iircomber_getdelay(&c, &r.delay);
    EXPECT_EQ(r.delay, 4);
    std::free(c.buffer);
  }
}
