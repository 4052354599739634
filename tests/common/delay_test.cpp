// Delay line, all-pass, damped comb and IIR comb: hand-derived short
// sequences at the interesting edges, plus long random runs of the comb
// against a small queue-based model (a FIFO of the loop length instead of a
// circular index).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <random>
#include <vector>

#include "kafx_proc/delay.h"

namespace {

// Model arithmetic, written out with plain 64-bit integers.
int64_t sat(int64_t v) { return v > INT32_MAX ? INT32_MAX : (v < INT32_MIN ? INT32_MIN : v); }
int64_t no_m1(int64_t v) { return v == -1 ? 0 : v; }
int64_t q13(int64_t a, int64_t b) { return no_m1(sat((a * b) >> 13)); }
int32_t low32(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v))); }

std::vector<int> random_signal(int n, int amplitude, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> dist(-amplitude, amplitude);
  std::vector<int> v(n);
  for (int& x : v) x = dist(rng);
  return v;
}

}  // namespace

TEST(AudioDelay, DelaysClampsAndPassesThrough) {
  audio_delay d;
  audio_delay_init(&d, 4);
  std::vector<int> out;
  for (int x = 1; x <= 6; ++x) out.push_back(audio_delay_process(&d, x));
  EXPECT_EQ(out, (std::vector<int>{0, 0, 0, 0, 1, 2}));
  EXPECT_EQ(d.index, 2);

  // Lowered below the position: one more access at index 2, then wrap to 0.
  audio_delay_set_delay(&d, 1);
  EXPECT_EQ(audio_delay_process(&d, 7), 3);
  EXPECT_EQ(audio_delay_process(&d, 8), 5);
  EXPECT_EQ(audio_delay_process(&d, 9), 8);

  // Delay 0: input returned, buffer and position untouched.
  audio_delay_set_delay(&d, 0);
  const std::vector<int32_t> before(d.buffer, d.buffer + 4);
  EXPECT_EQ(audio_delay_process(&d, -123), -123);
  EXPECT_EQ(std::vector<int32_t>(d.buffer, d.buffer + 4), before);
  EXPECT_EQ(d.index, 0);

  // Beyond capacity: clamped to the capacity.
  int got = 0;
  audio_delay_set_delay(&d, 100);
  audio_delay_get_delay(&d, &got);
  EXPECT_EQ(got, 4);

  // reinit clears only the first `delay` words and keeps the position.
  d.index = 3;
  audio_delay_reinit(&d, 2);
  EXPECT_EQ(d.delay, 2);
  EXPECT_EQ(d.buffer[0], 0);
  EXPECT_EQ(d.buffer[1], 0);
  EXPECT_EQ(d.buffer[2], 7);
  EXPECT_EQ(d.index, 3);

  audio_delay_end(&d);
  EXPECT_EQ(d.buffer, nullptr);
  EXPECT_EQ(d.size + d.delay + d.index, 0);
}

TEST(Comb, UndampedCombOnlyDelays) {
  comber c;
  comb_init(&c, 3);
  std::vector<int> out;
  for (int n = 0; n < 10; ++n) out.push_back(comb_process_24(n == 0 ? 1000 : 0, &c));
  EXPECT_EQ(out, (std::vector<int>{0, 0, 0, 1000, 0, 0, 0, 0, 0, 0}));
  comb_end(&c);
  EXPECT_EQ(c.buffer, nullptr);
}

TEST(Comb, DecayingTailsReachExactZero) {
  // Loop of 2, damp 0 (the low-pass follows the loop output), feedback 0.5.
  const std::vector<int> pos = {0, 0, 1000, 0, 500, 0, 250, 0, 125, 0, 62, 0, 31, 0, 15, 0, 7, 0, 3, 0, 1, 0, 0};
  // Negative tail: the floors round away from zero (-62.5 -> -63); stored
  // words -32..-2 read back as -1 and are returned as 0, and the loop product
  // of -2 by 0.5 (-1) is flushed, so the loop empties completely.
  const std::vector<int> neg = {0, 0, -1000, 0, -500, 0, -250, 0, -125, 0, -63, 0, -32, 0, -16, 0, -8, 0, -4, 0, -2, 0, 0};
  for (int sign : {1, -1}) {
    comber c;
    comb_init(&c, 2);
    comb_setsetdamp(&c, 0);
    EXPECT_EQ(c.damp_complement, 8192);
    std::vector<int> out;
    for (int n = 0; n < 40; ++n) out.push_back(comb_process_24(n == 0 ? sign * 1000 : 0, &c));
    const auto& want = sign > 0 ? pos : neg;
    EXPECT_EQ(std::vector<int>(out.begin(), out.begin() + want.size()), want);
    for (size_t n = want.size(); n < out.size(); ++n) EXPECT_EQ(out[n], 0);
    EXPECT_EQ(c.buffer[0], 0);
    EXPECT_EQ(c.buffer[1], 0);
    comb_end(&c);
  }
}

TEST(Comb, Loop16WrapsInsteadOfSaturating) {
  // 32767 << 13 = 268427264 accumulates with loop gain 1.0 until the plain
  // addition passes 2^31 and wraps.
  comber c;
  comb_init(&c, 1);
  comb_setsetdamp(&c, 0);
  comb_setfeedback(&c, 8192);
  std::vector<int> out;
  for (int n = 0; n < 11; ++n) out.push_back(comb_process_16(32767, &c));
  EXPECT_EQ(out, (std::vector<int>{0, 32767, 65534, 98301, 131068, 163835, 196602, 229369, 262136, -229385, -196618}));
  comb_end(&c);
}

TEST(Comb, MatchesQueueModel) {
  struct Case {
    int size, feedback, damp, shift, amplitude;
  } cases[] = {{7, 6000, 2000, 5, 8388607}, {5, 8000, 5000, 13, 32767}, {3, 7000, 0, 5, 1 << 20}, {11, 4096, 8192, 13, 32767}};
  for (const Case& k : cases) {
    comber c;
    comb_init(&c, k.size);
    comb_setfeedback(&c, k.feedback);
    comb_setsetdamp(&c, k.damp);
    std::deque<int64_t> loop(k.size, 0);
    int64_t lp = 0;
    const auto in = random_signal(3000, k.amplitude, k.size);
    for (size_t n = 0; n < in.size(); ++n) {
      const int x = n < 2000 ? in[n] : 0;  // then let it ring out
      const int64_t o = loop.front();
      loop.pop_front();
      lp = no_m1(sat(((8192 - k.damp) * o + k.damp * lp) >> 13));
      loop.push_back(low32(x * (int64_t{1} << k.shift) + q13(lp, k.feedback)));
      const int want = static_cast<int>(no_m1(o >> k.shift));
      const int got = k.shift == 5 ? comb_process_24(x, &c) : comb_process_16(x, &c);
      ASSERT_EQ(got, want) << "size " << k.size << " sample " << n;
    }
    comb_end(&c);
  }
}

TEST(Allpass, SequenceAndSaturation) {
  allpass a;
  allpass_init(&a, 1);
  std::vector<int> out;
  for (int x : {1000, 0, 0, 0, 0}) out.push_back(allpass_process(x, &a));
  EXPECT_EQ(out, (std::vector<int>{500, 750, -375, 188, -94}));

  // A full-scale input twice: the sum of g*x and the delayed value leaves
  // the 32-bit range and saturates.
  allpass_reset(&a);
  EXPECT_EQ(allpass_process(INT32_MAX, &a), 1073741823);
  EXPECT_EQ(allpass_process(INT32_MAX, &a), INT32_MAX);
  allpass_reset(&a);
  EXPECT_EQ(allpass_process(INT32_MIN, &a), -1073741824);
  EXPECT_EQ(allpass_process(INT32_MIN, &a), INT32_MIN);
  allpass_end(&a);
}

TEST(IirComb, DelayZeroLoopAndWrapRules) {
  iircomber c;
  iircomber_init(&c, 4);
  // Loop of one sample: w = 1000, then y = 500, t = 250; then
  // y = (250*4096 + 1000*4096 - 500*5734) >> 13 = 275, t = 137.
  EXPECT_EQ(iircomber_process(1000, &c), 1000);
  EXPECT_EQ(iircomber_process(0, &c), 250);
  EXPECT_EQ(iircomber_process(0, &c), 137);

  // Wrap: b0 = 4.0 turns w = 2^30 into 2^32, whose low 32 bits are 0.
  iircomber_reset(&c);
  c.b0 = 32768;
  EXPECT_EQ(iircomber_process(1 << 30, &c), 1 << 30);
  EXPECT_EQ(iircomber_process(0, &c), 0);
  EXPECT_EQ(c.y1, 0);
  // Next: y = (2^30 * 4096) >> 13 = 2^29, t = 2^28, and x + t wraps.
  EXPECT_EQ(iircomber_process(INT32_MAX, &c), INT32_MIN + (1 << 28) - 1);

  // y of -1 is stored as 0; t of -1 leaves x alone.
  iircomber_reset(&c);
  c.b0 = 8192;
  c.b1 = 0;
  c.a1 = 0;
  EXPECT_EQ(iircomber_process(-1, &c), -1);
  EXPECT_EQ(iircomber_process(100, &c), 100);
  EXPECT_EQ(c.y1, 0);
  iircomber_reset(&c);
  EXPECT_EQ(iircomber_process(-2, &c), -2);
  EXPECT_EQ(iircomber_process(100, &c), 100);  // y = -2, t = -1
  EXPECT_EQ(c.y1, -2);

  // A loop of two samples: 1000 returns two calls later through the filter
  // (500, then (1000*4096 - 500*5734) >> 13 = 150, ...), halved by the feedback.
  std::free(c.buffer);
  iircomber_init(&c, 4);
  iircomber_setdelay(&c, 2);
  std::vector<int> out;
  for (int x : {1000, 0, 0, 0, 0, 0, 0}) out.push_back(iircomber_process(x, &c));
  EXPECT_EQ(out, (std::vector<int>{1000, 0, 250, 75, 10, 74, -31}));
  iircomber_setdelay(&c, 1000);
  int delay = 0;
  iircomber_getdelay(&c, &delay);
  EXPECT_EQ(delay, 4);
  std::free(c.buffer);
}
