// Reverb: parameter mapping against the stated values, the first echo of an
// impulse worked by hand, every path (the mono one as the left network only)
// against its exported blocks wired together, tails to exact silence, and
// extreme settings (run under the sanitizers: no access outside the delay
// lines, no overflow).
#include "kafx_proc/reverb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "kafx_proc/dc_remove.h"
#include "kafx_proc/delay.h"
#include "support/variants.h"

namespace {

using Seq = std::vector<int>;
using Seq16 = std::vector<short>;

// Delay lengths, left and right.
const int kComb[2][8] = {{1109, 1399, 1489, 1777, 1973, 2069, 2267, 2549},
                         {1151, 1423, 1523, 1801, 1997, 2099, 2293, 2579}};
const int kAllpass[2][4] = {{619, 523, 337, 241}, {643, 547, 367, 269}};

int64_t sat(int64_t v) { return v > INT32_MAX ? INT32_MAX : (v < INT32_MIN ? INT32_MIN : v); }
int no_m1(int64_t v) { return v == -1 ? 0 : static_cast<int>(v); }
short clamp16(int v) { return static_cast<short>(std::clamp(v, -32768, 32767)); }

struct Params {
  int roomsize, damp, wet, dry, width, gain;
};

void apply(reverb_t* r, const Params& p) {
  reverb_setroomsize(r, p.roomsize);
  reverb_setdamp(r, p.damp);
  reverb_setwet(r, p.wet);
  reverb_setdry(r, p.dry);
  reverb_setwidth(r, p.width);
  reverb_setgain(r, p.gain);
  reverb_update(r);
}

// The reverb rebuilt from its exported blocks: combs, all-passes and DC
// blockers of their own per channel, configured with the derived gains of `r`.
struct Wired {
  comber c[2][8];
  allpass a[2][4];
  dc_remove dc[2];
  int wet1, wet2, dry_gain, gain;

  explicit Wired(const reverb_t& r) : wet1(r.wet1), wet2(r.wet2), dry_gain(r.dry_gain), gain(r.gain) {
    allpass* const* ap[2] = {r.allpass_left, r.allpass_right};
    for (int ch = 0; ch < 2; ++ch) {
      for (int k = 0; k < 8; ++k)
        comb_init(&c[ch][k], kComb[ch][k]), comb_setsetdamp(&c[ch][k], r.damping), c[ch][k].feedback = r.feedback;
      for (int k = 0; k < 4; ++k) allpass_init(&a[ch][k], kAllpass[ch][k]), a[ch][k].feedback = ap[ch][k]->feedback;
      dc_remove_init(&dc[ch]);
    }
  }
  ~Wired() {
    for (int ch = 0; ch < 2; ++ch) {
      for (comber& x : c[ch]) comb_end(&x);
      for (allpass& x : a[ch]) allpass_end(&x);
    }
  }
  // Comb bank (32-bit wrap-around sum) and all-pass chain of one channel.
  int network(int x, int ch, bool wide) {
    uint32_t acc = 0;
    for (comber& k : c[ch]) acc += static_cast<uint32_t>(wide ? comb_process_24(x, &k) : comb_process_16(x, &k));
    int y = static_cast<int>(acc);
    for (allpass& k : a[ch]) y = allpass_process(y, &k);
    return y;
  }
  // Stereo: 24-bit words (`wide`) or 16-bit samples, clamped on the way out.
  void stereo(const int in[2], int out[2], bool wide) {
    int acc[2];
    for (int ch = 0; ch < 2; ++ch) acc[ch] = network(no_m1(sat((int64_t{in[ch]} * gain) >> 13)), ch, wide);
    for (int ch = 0; ch < 2; ++ch) {
      int y = static_cast<int>(
          sat((int64_t{wet1} * acc[ch] + int64_t{wet2} * acc[1 - ch] + int64_t{dry_gain} * in[ch]) >> 13));
      (wide ? dc_remove_process_24 : dc_remove_process_16)(&dc[ch], &y, &out[ch]);
      if (!wide) out[ch] = clamp16(out[ch]);
    }
  }
  // Mono: 32-bit products with wrap-around, the left network only.
  short mono(short in) {
    auto wrap_mul = [](int a, int b) { return static_cast<uint32_t>(a) * static_cast<uint32_t>(b); };
    const int acc = network(static_cast<int>(wrap_mul(gain, in)) >> 14, 0, false);
    return clamp16(static_cast<int>(wrap_mul(dry_gain, in) + wrap_mul(wet1, acc)) >> 13);
  }
};

using kafx_test::random_values;

// One path in place on l and r: 0 the 24-bit stereo path, 1 the 16-bit
// stereo path (16-bit values in l and r), 2 the mono path (on l; r cleared).
void run_path(reverb_t* rv, int path, int* l, int* r, unsigned n) {
  if (path == 0) return reverb_process_stereo_24(rv, l, r, l, r, n);
  Seq16 a(l, l + n), b(r, r + n);
  if (path == 1) reverb_process_stereo_16(rv, a.data(), b.data(), a.data(), b.data(), n);
  if (path == 2) reverb_processMono(rv, a.data(), a.data(), static_cast<int>(n)), b.assign(n, 0);
  std::copy(a.begin(), a.end(), l), std::copy(b.begin(), b.end(), r);
}

}  // namespace

TEST(Reverb, DefaultsAndParameterMapping) {
  reverb_t r;
  reverb_init(&r);
  EXPECT_EQ((Seq{r.wet_gain, r.wet1, r.wet2, r.dry_gain, r.feedback, r.damping, r.width, r.gain, r.status, r.wet, r.dry,
                 r.roomsize, r.damp}),
            (Seq{8190, 8190, 4095, 0, 6945, 1650, 8192, 127, 0, 2730, 0, 4096, 4096}));
  // (The delay lengths and the per-block gains are seen through the
  // composition test below, which builds its blocks with the stated lengths.)
  // Setter -> derived field, and the getter returns the value as set.
  struct Row {
    void (*set)(reverb_t*, int);
    void (*get)(reverb_t*, int*);
    int value;
    const int* derived;
    int expect;
  };
  const Row rows[] = {
      {reverb_setroomsize, reverb_getroomsize, 4096, &r.feedback, 6945},
      {reverb_setroomsize, reverb_getroomsize, 8192, &r.feedback, 8112},
      {reverb_setroomsize, reverb_getroomsize, 0, &r.feedback, 5779},
      // The product is formed in 64 bits, so no int32 room size reaches the
      // saturation of the shifted product or of the addition.
      {reverb_setroomsize, reverb_getroomsize, INT32_MAX, &r.feedback, 611581951 + 5779},
      {reverb_setroomsize, reverb_getroomsize, INT32_MIN, &r.feedback, -611581952 + 5779},
      {reverb_setdamp, reverb_getdamp, 4096, &r.damping, 1650},
      {reverb_setdamp, reverb_getdamp, 8192, &r.damping, 3301},
      {reverb_setwet, reverb_getwet, 2730, &r.wet_gain, 8190},
      {reverb_setwet, reverb_getwet, INT32_MAX, &r.wet_gain, INT32_MAX},
      {reverb_setdry, reverb_getdry, 4096, &r.dry_gain, 8192},
      {reverb_setdry, reverb_getdry, INT32_MIN, &r.dry_gain, INT32_MIN},
      {reverb_setwidth, reverb_getwidth, 777, &r.width, 777},
      {reverb_setgain, reverb_getgain, 8192, &r.gain, 8192},
      {reverb_setstatus, reverb_getstatus, 1, &r.status, 1},
  };
  for (const Row& row : rows) {
    row.set(&r, row.value);
    int got = 0;
    row.get(&r, &got);
    EXPECT_EQ(got, row.value);
    EXPECT_EQ(*row.derived, row.expect) << row.value;
  }
  // Setters take effect at update; width 0 makes the cross term twice the
  // direct one, full width keeps it at half.
  reverb_setwet(&r, 2730);
  reverb_setroomsize(&r, 8192);
  reverb_setdamp(&r, 0);
  reverb_setwidth(&r, 0);
  EXPECT_EQ(r.comb_left[3]->feedback, 6945);
  reverb_update(&r);
  EXPECT_TRUE(r.wet1 == 4095 && r.wet2 == 8190);
  EXPECT_TRUE(r.comb_right[7]->feedback == 8112 && r.comb_right[7]->damp == 0 &&
              r.comb_right[7]->damp_complement == 8192);
  reverb_setwidth(&r, -3);  // width / 2 rounds toward zero: -1
  reverb_update(&r);
  EXPECT_TRUE(r.wet1 == (8190 * 4095 >> 13) && r.wet2 == (8190 * 8193 >> 13));
  reverb_end(&r);
  for (int k = 0; k < 8; ++k)
    EXPECT_TRUE(!r.comb_left[k] && !r.comb_right[k] && !r.allpass_left[k % 4] && !r.allpass_right[k % 4]);
  EXPECT_TRUE(!r.dc_left && !r.dc_right);
}

TEST(Reverb, FirstEchoOfAnImpulse) {
  // Full-scale impulse on the left, gain 1.0, default wet and width, no dry.
  // Nothing comes out until the shortest left comb (1109) returns it; the
  // four all-passes each pass half of it (their delayed words are still 0):
  // 8388607 -> 524287; left = 524287 * 8190 >> 13 = 524159, right (cross
  // term) = 524287 * 4095 >> 13 = 262079; the DC blockers, fed zeros so far,
  // give 524159 * 32 * 66840428 >> 31 = 522062 and 261030.
  reverb_t r;
  reverb_init(&r);
  reverb_setgain(&r, 8192);
  reverb_update(&r);
  Seq l(1110), rr(1110), zl(1110), zr(1110);
  l[0] = 8388607;
  reverb_process_stereo_24(&r, l.data(), rr.data(), zl.data(), zr.data(), 1110);
  EXPECT_EQ(std::count(zl.begin(), zl.end() - 1, 0), 1109);
  EXPECT_EQ(std::count(zr.begin(), zr.end() - 1, 0), 1109);
  EXPECT_EQ(zl[1109], 522062);
  EXPECT_EQ(zr[1109], 261030);
  reverb_end(&r);
}

TEST(Reverb, EveryPathEqualsItsBlocksWiredTogether) {
  // The last two rows leave the gains every owner uses: loop gains that can
  // saturate (feedback above 1.0, negative damping) and all-pass
  // coefficients written directly by an owner (0.6 and -0.3).
  struct Setting {
    Params p;
    int allpass_g;
  } settings[] = {
      {{4096, 4096, 2730, 0, 8192, 127}, 4096},          // init values
      {{8192, 0, 8192, 4096, 0, 8192}, 4096},            // longest tail, loud, dry, cross term doubled
      // Huge input gain: loops wrap, all-passes saturate; no cross term.
      {{7000, 3000, 8192, 4096, 16384, 1 << 24}, 4096},
      {{20000, -4096, 8192, 2048, 8192, 8192}, 4915},
      {{6000, 12000, 8192, 2048, -8192, 8192}, -2458},   // negative width
  };
  const Seq inl = random_values<int>(6000, 1, -8388608, 8388607), inr = random_values<int>(6000, 2, -8388608, 8388607);
  const Seq sl = random_values<int>(6000, 3, -32768, 32767), sr = random_values<int>(6000, 4, -32768, 32767);
  for (const auto& [p, allpass_g] : settings) {
    reverb_t r;
    reverb_init(&r);
    apply(&r, p);
    for (int k = 0; k < 4; ++k) r.allpass_left[k]->feedback = r.allpass_right[k]->feedback = allpass_g;
    for (int path = 0; path < 3; ++path) {  // 24-bit, 16-bit, mono
      reverb_reset(&r);
      Wired w(r);
      Seq ol = path ? sl : inl, orr = path ? sr : inr;
      size_t at = 0;
      for (unsigned n : {0u, 1u, 17u, 37u, 1031u, 240u, 4674u})  // odd block lengths, including 0
        run_path(&r, path, &ol[at], &orr[at], n), at += n;
      ASSERT_EQ(at, inl.size());
      for (size_t i = 0; i < inl.size(); ++i) {
        int e[2] = {0, 0};
        const int in[2] = {path ? sl[i] : inl[i], path ? sr[i] : inr[i]};
        if (path < 2) w.stereo(in, e, path == 0);
        if (path == 2) e[0] = w.mono(static_cast<short>(sl[i]));
        ASSERT_TRUE(ol[i] == e[0] && orr[i] == e[1]) << "path " << path << " room " << p.roomsize << " at " << i;
      }
      for (comber* c : r.comb_right)  // mono has no right-channel stage
        ASSERT_TRUE(path < 2 || std::count(c->buffer, c->buffer + c->size, 0) == c->size);
    }
    reverb_end(&r);
  }
}

TEST(Reverb, TailsDecayToSilence) {
  // After a loud burst, zeros in, until the output has not changed for
  // 50000 samples. In the 16-bit loops every word ends where it reads back
  // as 0 (negative floors end at -1 and are flushed, and the small negative
  // constant that the feedback floor can hold is far below 2^13), so the
  // network empties and the 16-bit and mono outputs are exactly 0. The
  // 24-bit loops may keep such a constant (it reads back as up to -4 per comb
  // at room 8192), which the DC blocker removes; the output then holds the
  // DC blocker's own residue: its state floors towards minus infinity and
  // stops once 0.004 |y| < 1, at -1 .. -249 at 32 times the sample scale,
  // which reads out as 0 .. -8 (about -120 dB below full scale).
  // Without damping (damp 0) each word of a 24-bit comb loop holds its own
  // value (-1 .. -102 at room 8192), so that path keeps a periodic residue of
  // a few steps; it is run here only on a 16-bit path, whose loop words
  // read back 8192 times smaller. Silence in after reset gives silence out.
  // The two longest tails (room 8192, millions of samples) run on one path
  // each.
  struct Setting {
    Params p;
    std::vector<int> paths;  // 0 24-bit, 1 16-bit, 2 mono
  } settings[] = {{{4096, 4096, 2730, 0, 8192, 127}, {0, 1, 2}},
                  {{0, 1000, 8192, 0, 8192, 8192}, {0, 1, 2}},
                  {{8192, 8192, 8192, 4096, 0, 8192}, {0}},
                  {{8192, 0, 8192, 0, 8192, 8192}, {1}}};
  for (const auto& [p, paths] : settings) {
    for (int path : paths) {
      reverb_t r;
      reverb_init(&r);
      apply(&r, p);
      const Seq burst = random_values<int>(4800, 21, path ? -32768 : -8388608, path ? 32767 : 8388607);
      Seq l(240), rr(240);
      long changed = 0, n = 0;
      const long limit = 6000000;
      for (; n < limit && n - changed < 50000; n += 240) {
        const Seq before = {l.back(), rr.back()};
        for (int i = 0; i < 240; ++i) l[i] = rr[i] = n + i < 4800 ? burst[n + i] : 0;
        run_path(&r, path, l.data(), rr.data(), 240);
        for (int i = 0; i < 240; ++i)
          if (l[i] != (i ? l[i - 1] : before[0]) || rr[i] != (i ? rr[i - 1] : before[1])) changed = n + i;
      }
      const std::string what = "path " + std::to_string(path) + " room " + std::to_string(p.roomsize);
      EXPECT_LT(n, limit) << what << ": tail still moving";
      const int low = path ? 0 : -8;
      EXPECT_TRUE(l.back() <= 0 && l.back() >= low && rr.back() <= 0 && rr.back() >= low)
          << what << ": " << l.back() << " " << rr.back();
      if (path == 0) {  // the residue is the DC blockers' own: their states sit in the dead band
        for (const dc_remove* d : {r.dc_left, r.dc_right})
          EXPECT_TRUE(d->y1 <= 0 && d->y1 >= -249) << what << ": " << d->y1;
      }
      if (path) {  // a comb word reads back as word >> 13, -1 flushed
        for (comber* c : r.comb_left)
          EXPECT_TRUE(std::all_of(c->buffer, c->buffer + c->size, [](int w) { return (w >> 13) >= -1 && w < 8192; }))
              << what;
        for (allpass* a : r.allpass_left) EXPECT_EQ(std::count(a->buffer, a->buffer + a->size, 0), a->size) << what;
      }
      reverb_reset(&r);
      std::fill(l.begin(), l.end(), 0);
      rr = l;
      reverb_process_stereo_24(&r, l.data(), rr.data(), l.data(), rr.data(), 240);
      EXPECT_EQ(std::count(l.begin(), l.end(), 0) + std::count(rr.begin(), rr.end(), 0), 480);
      reverb_end(&r);
    }
  }
}

TEST(Reverb, ExtremeSettingsStayInsideTheDelayLines) {
  // Saturated feedback, damping beyond 1.0 or negative, huge gains and
  // widths, arbitrary 32-bit inputs: the sanitizer build checks every
  // access and every overflow; the outputs stay in range.
  const Params settings[] = {
      {INT32_MAX, INT32_MIN, INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX},
      {INT32_MIN, INT32_MAX, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN},
      {8192, -8192, 8192, 8192, 8192, -8192},
      {100000, 100000, 100000, -100000, 3, 100000},
  };
  const Seq wild = random_values<int>(6000, 13);
  for (const Params& p : settings) {
    reverb_t r;
    reverb_init(&r);
    apply(&r, p);
    Seq l = wild, rr(wild.rbegin(), wild.rend()), s = random_values<int>(6000, 14, -32768, 32767), t = s;
    run_path(&r, 0, l.data(), rr.data(), 6000);
    for (int path : {1, 2}) run_path(&r, path, s.data(), t.data(), 6000);
    for (int k = 0; k < 8; ++k)
      EXPECT_TRUE(r.comb_left[k]->index >= 0 && r.comb_left[k]->index < kComb[0][k] && r.comb_right[k]->index >= 0 &&
                  r.comb_right[k]->index < kComb[1][k]);
    reverb_end(&r);
  }
}
