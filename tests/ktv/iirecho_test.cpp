// IIR echo against a queue model written from the block's description (a
// history of written loop values instead of a circular buffer), and its
// stated edges: defaults, delay clamp, dry-only output after a change, -1
// flush and a tail that reaches exact silence.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <numeric>
#include <random>
#include <tuple>
#include <vector>

#include "kafx_proc/iirecho.h"

namespace {

using Seq = std::vector<int>;

int32_t low32(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v))); }
int32_t no_m1(int32_t v) { return v == -1 ? 0 : v; }

// One channel of the echo: loop length `delay` samples (0 or less: one
// sample), loop filter 0.5 w + 0.5 w' - 0.7 y' in Q13, everything wrapping.
struct ChannelModel {
  int delay;
  int feedback;
  std::vector<int32_t> written;  // every value written into the loop
  int32_t x1 = 0, y1 = 0;
  int32_t step(int32_t x, int dry, int wet) {
    const size_t n = written.size(), d = delay < 1 ? 1 : static_cast<size_t>(delay);
    const int32_t w = n >= d ? written[n - d] : 0;
    const int32_t y = no_m1(low32((int64_t{w} * 4096 + int64_t{x1} * 4096 - int64_t{y1} * 5734) >> 13));
    x1 = w;
    y1 = y;
    const int32_t t = low32((int64_t{y} * feedback) >> 13);
    const int32_t v = t == -1 ? x : low32(int64_t{x} + t);
    written.push_back(v);
    return no_m1(low32((int64_t{dry} * x + int64_t{wet} * v) >> 13));
  }
};

struct Echo {
  iirecho e{};
  Echo() { iirecho_init(&e); }
  ~Echo() { iirecho_end(&e); }
  // Processes in place, in blocks of the given lengths (cycled).
  void run(Seq& l, Seq& r, std::initializer_list<int> blocks = {240}) {
    size_t at = 0;
    for (auto it = blocks.begin(); at < l.size(); it = (it + 1 == blocks.end()) ? blocks.begin() : it + 1) {
      const int n = static_cast<int>(std::min<size_t>(*it, l.size() - at));
      iirecho_processStereo(&e, l.data() + at, r.data() + at, l.data() + at, r.data() + at, n);
      at += n;
    }
  }
};

Seq noise(size_t n, int amplitude, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> d(-amplitude, amplitude);
  Seq s(n);
  for (auto& x : s) x = d(rng);
  return s;
}

}  // namespace

// Defaults (feedback, delay, dry, wet, status) and the delay clamp: 1000 ms
// stores 350 and gives loops of 16800 and 16824 samples; end nulls both combs.
TEST(IirEcho, DefaultsDelayClampAndEnd) {
  iirecho e{};
  iirecho_init(&e);
  Seq v(5);
  int k = 0;
  for (auto get : {iirecho_getfeedback, iirecho_getdelay, iirecho_getdry, iirecho_getwet, iirecho_getstatus})
    get(&e, &v[k++]);
  EXPECT_EQ(v, (Seq{4096, 1, 2703, 5489, 1}));
  iirecho_setdelay(&e, 1000);
  iirecho_getdelay(&e, &v[1]);
  EXPECT_EQ((Seq{v[1], e.left->delay, e.right->delay}), (Seq{350, 16800, 16824}));
  iirecho_end(&e);
  EXPECT_EQ(e.left, nullptr);
  EXPECT_EQ(e.right, nullptr);
  iirecho_end(&e);  // a second end is harmless
}

// Worked by hand with the defaults (1 ms: loops of 48 and 72 samples): an
// impulse of 8192 comes out as (2703 + 5489) * 8192 >> 13 = 8192; one loop
// later the loop filter gives 8192 * 4096 >> 13 = 4096, fed back as 2048,
// out 5489 * 2048 >> 13 = 1372; next (8192 * 4096 - 4096 * 5734) >> 13 =
// 1229, fed back as 614, out 411.
TEST(IirEcho, HandWorkedImpulse) {
  Echo h;
  Seq l(80, 0), r(80, 0);
  l[0] = r[0] = 8192;
  h.run(l, r);
  EXPECT_EQ((Seq{l[0], l[47], l[48], l[49], r[71], r[72], r[73]}), (Seq{8192, 0, 1372, 411, 0, 1372, 411}));
}

// (delay ms, feedback, dry, wet, amplitude): random stereo input against the
// model, processed in odd block lengths and in place.
TEST(IirEcho, MatchesQueueModel) {
  const int rows[][5] = {{1, 4096, 2703, 5489, 8388607},  {5, 8000, 4096, 8192, 2000000},
                         {0, 4096, 2703, 5489, 100000},   {-3, 6000, 3000, 5000, 8388607},
                         {2, 60000, 8192, 8192, 8388607},  // loop gain far above 1: wraps, never traps
                         {350, 8191, 1000, 7192, 8388607}};
  for (auto& r : rows) {
    Echo h;
    iirecho_setdelay(&h.e, r[0]);
    iirecho_setfeedback(&h.e, r[1]);
    iirecho_setdry(&h.e, r[2]);
    iirecho_setwet(&h.e, r[3]);
    const size_t n = r[0] == 350 ? 40000 : 3000;
    Seq l = noise(n, r[4], 1 + r[0]), rr = noise(n, r[4], 99 + r[1]), want_l, want_r;
    ChannelModel ml{r[0] * 48, r[1], {}}, mr{r[0] * 48 + 24, r[1], {}};
    for (size_t i = 0; i < n; ++i) {
      want_l.push_back(ml.step(l[i], r[2], r[3]));
      want_r.push_back(mr.step(rr[i], r[2], r[3]));
    }
    h.run(l, rr, {1, 17, 240, 37, 127});
    EXPECT_EQ(l, want_l) << r[0] << " " << r[1];
    EXPECT_EQ(rr, want_r) << r[0] << " " << r[1];
  }
}

TEST(IirEcho, GainChangesActAtOnceAndSettingChangesCutTheEcho) {
  Echo h;
  Seq l = noise(500, 3000000, 5), r = noise(500, 3000000, 6);
  h.run(l, r);
  // Wet 0, dry 1.0: the input comes back, except that -1 becomes 0; the
  // loop keeps running underneath (no reset on a gain change).
  iirecho_setwet(&h.e, 0);
  iirecho_setdry(&h.e, 8192);
  Seq a = {5, -1, 0, -2, 8388607, -8388608, 1, -1}, b = a;
  h.run(a, b);
  EXPECT_EQ(a, (Seq{5, 0, 0, -2, 8388607, -8388608, 1, 0}));
  EXPECT_EQ(b, a);
  EXPECT_NE(h.e.left->y1 | h.e.left->x1, 0);
  // A feedback change clears the loops: the first 48 (left) / 72 (right)
  // samples are dry + wet of the input alone, i.e. the input itself; the
  // echo arrives after one loop. Then count 0 or negative does nothing.
  iirecho_setdry(&h.e, 2703);
  iirecho_setwet(&h.e, 5489);
  iirecho_setfeedback(&h.e, 4096);
  const Seq x = noise(100, 4000000, 7);
  Seq xl = x, xr = x;
  h.run(xl, xr);
  EXPECT_TRUE(std::equal(x.begin(), x.begin() + 48, xl.begin()));
  EXPECT_TRUE(std::equal(x.begin(), x.begin() + 72, xr.begin()));
  EXPECT_GT(std::inner_product(x.begin() + 48, x.end(), xl.begin() + 48, 0, std::plus<>(), std::not_equal_to<>()), 40);
  Seq z = {7};
  for (int n : {0, -5}) iirecho_processStereo(&h.e, z.data(), z.data(), z.data(), z.data(), n);
  EXPECT_EQ(z, Seq{7});
}

// Loud impulses and bursts, then silence: every loop value and output reaches
// exact 0 (no -1 residue, no limit cycle) and stays there for 4 frames.
TEST(IirEcho, TailsDecayToExactZero) {
  for (auto [delay, feedback, sign] : {std::tuple{1, 4096, 1}, {3, 8191, 1}, {10, 6000, 1}, {0, 8191, 1},
                                       {1, 4096, -1}, {3, 8191, -1}, {10, 6000, -1}, {0, 8191, -1}}) {
    Echo h;
    iirecho_setdelay(&h.e, delay);
    iirecho_setfeedback(&h.e, feedback);
    Seq l = noise(300, 8388607, 11), r = noise(300, 8388607, 12);
    l[0] = r[0] = sign * 8388607;
    h.run(l, r);
    int quiet_run = 0;
    for (int frames = 0; frames < 20000 && quiet_run < 4; ++frames) {
      Seq zl(240, 0), zr(240, 0);
      h.run(zl, zr);
      quiet_run = zl == Seq(240, 0) && zr == zl ? quiet_run + 1 : 0;
    }
    EXPECT_EQ(quiet_run, 4) << delay << " " << feedback << " " << sign;
    for (iircomber* c : {h.e.left, h.e.right}) {
      EXPECT_EQ(c->x1 | c->y1, 0) << delay << " " << feedback << " " << sign;
      EXPECT_EQ(std::count(c->buffer, c->buffer + c->size, 0), c->size) << delay << " " << feedback;
    }
  }
}
