// Reverb: parameter mapping against the stated values, the first echo of an
// impulse worked by hand, every path against its exported blocks wired
// together, the mono path as the left network of the 16-bit path, tails to
// exact silence, and extreme settings (run under the sanitizers: no access
// outside the delay lines, no overflow).
#include "kafx_proc/reverb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "kafx_proc/dc_remove.h"
#include "kafx_proc/delay.h"

namespace {

using Seq = std::vector<int>;
using Seq16 = std::vector<short>;

const int kCombLeft[8] = {1109, 1399, 1489, 1777, 1973, 2069, 2267, 2549};
const int kCombRight[8] = {1151, 1423, 1523, 1801, 1997, 2099, 2293, 2579};
const int kAllpassLeft[4] = {619, 523, 337, 241};
const int kAllpassRight[4] = {643, 547, 367, 269};

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
// blockers of their own, configured with the derived gains of `r`.
struct Wired {
  comber cl[8], cr[8];
  allpass al[4], ar[4];
  dc_remove dl, dr;
  int wet1, wet2, dry_gain, gain;

  explicit Wired(const reverb_t& r) : wet1(r.wet1), wet2(r.wet2), dry_gain(r.dry_gain), gain(r.gain) {
    for (int k = 0; k < 8; ++k) {
      comb_init(&cl[k], kCombLeft[k]);
      comb_init(&cr[k], kCombRight[k]);
      comb_setsetdamp(&cl[k], r.damping);
      comb_setsetdamp(&cr[k], r.damping);
      cl[k].feedback = cr[k].feedback = r.feedback;
    }
    for (int k = 0; k < 4; ++k) {
      allpass_init(&al[k], kAllpassLeft[k]);
      allpass_init(&ar[k], kAllpassRight[k]);
      al[k].feedback = r.allpass_left[k]->feedback;
      ar[k].feedback = r.allpass_right[k]->feedback;
    }
    dc_remove_init(&dl);
    dc_remove_init(&dr);
  }
  ~Wired() {
    for (int k = 0; k < 8; ++k) comb_end(&cl[k]), comb_end(&cr[k]);
    for (int k = 0; k < 4; ++k) allpass_end(&al[k]), allpass_end(&ar[k]);
  }

  // Comb bank (32-bit wrap-around sum) and all-pass chain of one channel.
  static int network(int x, comber* c, allpass* a, bool wide) {
    uint32_t acc = 0;
    for (int k = 0; k < 8; ++k)
      acc += static_cast<uint32_t>(wide ? comb_process_24(x, &c[k]) : comb_process_16(x, &c[k]));
    int y = static_cast<int>(acc);
    for (int k = 0; k < 4; ++k) y = allpass_process(y, &a[k]);
    return y;
  }
  int mix(int own, int other, int dry) const {
    return static_cast<int>(sat((int64_t{wet1} * own + int64_t{wet2} * other + int64_t{dry_gain} * dry) >> 13));
  }
  void stereo24(int inl, int inr, int* ol, int* orr) {
    const int accl = network(no_m1(sat((int64_t{inl} * gain) >> 13)), cl, al, true);
    const int accr = network(no_m1(sat((int64_t{inr} * gain) >> 13)), cr, ar, true);
    int l = mix(accl, accr, inl), r = mix(accr, accl, inr);
    dc_remove_process_24(&dl, &l, ol);
    dc_remove_process_24(&dr, &r, orr);
  }
  void stereo16(short inl, short inr, short* ol, short* orr) {
    const int accl = network(no_m1((int64_t{inl} * gain) >> 13), cl, al, false);
    const int accr = network(no_m1((int64_t{inr} * gain) >> 13), cr, ar, false);
    int l = mix(accl, accr, inl), r = mix(accr, accl, inr);
    dc_remove_process_16(&dl, &l, &l);
    dc_remove_process_16(&dr, &r, &r);
    *ol = clamp16(l);
    *orr = clamp16(r);
  }
  // 32-bit products with wrap-around.
  short mono(short in) {
    auto wrap_mul = [](int a, int b) { return static_cast<uint32_t>(a) * static_cast<uint32_t>(b); };
    const int acc = network(static_cast<int>(wrap_mul(gain, in)) >> 14, cl, al, false);
    return clamp16(static_cast<int>(wrap_mul(dry_gain, in) + wrap_mul(wet1, acc)) >> 13);
  }
};

Seq noise(size_t n, int lo, int hi, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> d(lo, hi);
  Seq v(n);
  for (int& x : v) x = d(rng);
  return v;
}

Seq16 to16(const Seq& v) { return Seq16(v.begin(), v.end()); }

}  // namespace

TEST(Reverb, DefaultsAndParameterMapping) {
  reverb_t r;
  reverb_init(&r);
  EXPECT_EQ((Seq{r.wet_gain, r.wet1, r.wet2, r.dry_gain, r.feedback, r.damping, r.width, r.gain, r.status, r.wet, r.dry,
                 r.roomsize, r.damp}),
            (Seq{8190, 8190, 4095, 0, 6945, 1650, 8192, 127, 0, 2730, 0, 4096, 4096}));
  for (int k = 0; k < 8; ++k) {
    EXPECT_EQ(r.comb_left[k]->size, kCombLeft[k]);
    EXPECT_EQ(r.comb_right[k]->size, kCombRight[k]);
    EXPECT_TRUE(r.comb_left[k]->damp == 1650 && r.comb_left[k]->damp_complement == 6542 &&
                r.comb_right[k]->feedback == 6945);
  }
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(r.allpass_left[k]->size, kAllpassLeft[k]);
    EXPECT_EQ(r.allpass_right[k]->size, kAllpassRight[k]);
  }
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
  for (int k = 0; k < 8; ++k) EXPECT_TRUE(r.comb_left[k] == nullptr && r.comb_right[k] == nullptr);
  for (int k = 0; k < 4; ++k) EXPECT_TRUE(r.allpass_left[k] == nullptr && r.allpass_right[k] == nullptr);
  EXPECT_TRUE(r.dc_left == nullptr && r.dc_right == nullptr);
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
      {{4096, 4096, 2730, 0, 8192, 127}, 4096},         // init values
      {{8192, 0, 8192, 4096, 0, 8192}, 4096},           // longest tail, loud, dry
      {{1000, 8192, 5000, 3000, 16384, 20000}, 4096},   // no cross term (wet2 = 0)
      {{7168, 2048, 8191, 8191, -8192, 127}, 4096},     // negative width
      {{7000, 3000, 8192, 4096, 8192, 1 << 24}, 4096},  // huge input gain: loops wrap, all-passes saturate
      {{20000, -4096, 8192, 2048, 8192, 8192}, 4915},  {{6000, 12000, 8192, 2048, 8192, 8192}, -2458},
  };
  const Seq inl = noise(6000, -8388608, 8388607, 1), inr = noise(6000, -8388608, 8388607, 2);
  const Seq16 sl = to16(noise(6000, -32768, 32767, 3)), sr = to16(noise(6000, -32768, 32767, 4));
  for (const auto& [p, allpass_g] : settings) {
    reverb_t r;
    reverb_init(&r);
    apply(&r, p);
    for (int k = 0; k < 4; ++k) r.allpass_left[k]->feedback = r.allpass_right[k]->feedback = allpass_g;
    {
      Wired w(r);
      Seq ol(inl.size()), orr(inl.size());
      // Odd block lengths, including 0.
      size_t at = 0;
      for (unsigned n : {0u, 1u, 17u, 37u, 1031u, 240u, 4674u}) {
        reverb_process_stereo_24(&r, const_cast<int*>(&inl[at]), const_cast<int*>(&inr[at]), &ol[at], &orr[at], n);
        at += n;
      }
      ASSERT_EQ(at, inl.size());
      for (size_t i = 0; i < inl.size(); ++i) {
        int el, er;
        w.stereo24(inl[i], inr[i], &el, &er);
        ASSERT_TRUE(ol[i] == el && orr[i] == er) << "24-bit, room " << p.roomsize << " at " << i;
      }
    }
    reverb_reset(&r);
    {
      Wired w(r);
      Seq16 ol = sl, orr = sr;  // in place
      reverb_process_stereo_16(&r, ol.data(), orr.data(), ol.data(), orr.data(), static_cast<unsigned>(ol.size()));
      for (size_t i = 0; i < sl.size(); ++i) {
        short el, er;
        w.stereo16(sl[i], sr[i], &el, &er);
        ASSERT_TRUE(ol[i] == el && orr[i] == er) << "16-bit, room " << p.roomsize << " at " << i;
      }
    }
    reverb_reset(&r);
    {
      Wired w(r);
      Seq16 out(sl.size());
      reverb_processMono(&r, const_cast<short*>(sl.data()), out.data(), static_cast<int>(sl.size()));
      for (size_t i = 0; i < sl.size(); ++i)
        ASSERT_EQ(out[i], w.mono(sl[i])) << "mono, room " << p.roomsize << " at " << i;
    }
    reverb_end(&r);
  }
}

TEST(Reverb, MonoIsTheLeftNetworkOfTheStereoPath) {
  // With twice the gain, the mono input (2g x) >> 14 equals the stereo
  // path's (g x) >> 13 (inputs kept clear of the -1 that only the stereo
  // path flushes), so both leave identical left combs and all-passes; the
  // right network of the mono reverb is never touched.
  reverb_t mono, stereo;
  reverb_init(&mono);
  reverb_init(&stereo);
  apply(&mono, {6000, 3000, 4000, 2000, 8192, 2 * 300});
  apply(&stereo, {6000, 3000, 4000, 2000, 8192, 300});
  Seq16 in = to16(noise(5000, -32768, 32767, 8));
  for (short& v : in)
    if (v > -28 && v < 0) v = 0;
  Seq16 out(in.size()), zr(in.size());
  reverb_processMono(&mono, in.data(), out.data(), static_cast<int>(in.size()));
  reverb_process_stereo_16(&stereo, in.data(), zr.data(), out.data(), zr.data(), static_cast<unsigned>(in.size()));
  for (int k = 0; k < 8; ++k) {
    const comber &a = *mono.comb_left[k], &b = *stereo.comb_left[k];
    ASSERT_TRUE(a.index == b.index && a.lowpass_state == b.lowpass_state) << k;
    ASSERT_TRUE(std::equal(a.buffer, a.buffer + a.size, b.buffer)) << k;
    EXPECT_EQ(std::count(mono.comb_right[k]->buffer, mono.comb_right[k]->buffer + mono.comb_right[k]->size, 0),
              mono.comb_right[k]->size);
  }
  for (int k = 0; k < 4; ++k) {
    const allpass &a = *mono.allpass_left[k], &b = *stereo.allpass_left[k];
    ASSERT_TRUE(a.index == b.index && std::equal(a.buffer, a.buffer + a.size, b.buffer)) << k;
  }
  // Dry only: the mono path returns its input.
  apply(&mono, {6000, 3000, 0, 4096, 8192, 600});
  Seq16 dry = {1, -1, 32767, -32768, 123};
  reverb_processMono(&mono, dry.data(), out.data(), 5);
  EXPECT_EQ(Seq16(out.begin(), out.begin() + 5), dry);
  reverb_end(&mono);
  reverb_end(&stereo);
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
  // stops once 0.004 |y| < 1, at -1 .. -250 at 32 times the sample scale,
  // which reads out as 0 .. -8 (about -120 dB below full scale).
  // Without damping (damp 0) each word of a 24-bit comb loop holds its own
  // value (-1 .. -102 at room 8192), so that path keeps a periodic residue of
  // a few steps; it is run here only on a 16-bit path, whose loop words
  // read back 8192 times smaller. Silence in after reset gives silence out.
  // The two longest tails (room 8192, millions of samples) run on one path
  // each.
  struct Setting {
    Params p;
    std::vector<int> paths;
  } settings[] = {{{4096, 4096, 2730, 0, 8192, 127}, {0, 1, 2}},
                  {{0, 1000, 8192, 0, 8192, 8192}, {0, 1, 2}},
                  {{8192, 8192, 8192, 4096, 0, 8192}, {0}},
                  {{8192, 0, 8192, 0, 8192, 8192}, {1}}};
  for (const auto& [p, paths] : settings) {
    for (int path : paths) {
      reverb_t r;
      reverb_init(&r);
      apply(&r, p);
      const Seq burst = noise(4800, path ? -32768 : -8388608, path ? 32767 : 8388607, 21);
      Seq l(240), rr(240);
      Seq16 s(240), t(240);
      long changed = 0, n = 0;
      int last_l = 0, last_r = 0;
      const long limit = 6000000;
      for (; n < limit && n - changed < 50000; n += 240) {
        for (int i = 0; i < 240; ++i) {
          const int x = n + i < 4800 ? burst[n + i] : 0;
          l[i] = rr[i] = x;
          s[i] = t[i] = static_cast<short>(x);
        }
        if (path == 0) reverb_process_stereo_24(&r, l.data(), rr.data(), l.data(), rr.data(), 240);
        if (path == 1) reverb_process_stereo_16(&r, s.data(), t.data(), s.data(), t.data(), 240);
        if (path == 2) reverb_processMono(&r, s.data(), s.data(), 240);
        if (path) std::copy(s.begin(), s.end(), l.begin()), std::copy(t.begin(), t.end(), rr.begin());
        if (path == 2) rr = l;
        for (int i = 0; i < 240; ++i) {
          if (l[i] != last_l || rr[i] != last_r) changed = n + i;
          last_l = l[i];
          last_r = rr[i];
        }
      }
      const std::string what = "path " + std::to_string(path) + " room " + std::to_string(p.roomsize);
      EXPECT_LT(n, limit) << what << ": tail still moving";
      if (path == 0) {
        EXPECT_TRUE(last_l <= 0 && last_l >= -8 && last_r <= 0 && last_r >= -8)
            << what << ": " << last_l << " " << last_r;
      } else {
        EXPECT_TRUE(last_l == 0 && last_r == 0) << what << ": " << last_l << " " << last_r;
      }
      if (path) {  // a comb word reads back as word >> 13, -1 flushed
        for (comber* c : r.comb_left)
          EXPECT_TRUE(std::all_of(c->buffer, c->buffer + c->size, [](int w) {
            return (w >> 13) == 0 || (w >> 13) == -1;
          })) << what;
        for (allpass* a : r.allpass_left) EXPECT_EQ(std::count(a->buffer, a->buffer + a->size, 0), a->size) << what;
      }
      reverb_reset(&r);
      for (int i = 0; i < 240; ++i) l[i] = rr[i] = 0;
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
  const Seq wild = noise(6000, INT32_MIN, INT32_MAX, 13);
  for (const Params& p : settings) {
    reverb_t r;
    reverb_init(&r);
    apply(&r, p);
    Seq l = wild, rr(wild.rbegin(), wild.rend());
    reverb_process_stereo_24(&r, l.data(), rr.data(), l.data(), rr.data(), static_cast<unsigned>(l.size()));
    Seq16 s = to16(noise(6000, -32768, 32767, 14)), t = s;
    reverb_process_stereo_16(&r, s.data(), t.data(), s.data(), t.data(), static_cast<unsigned>(s.size()));
    reverb_processMono(&r, s.data(), s.data(), static_cast<int>(s.size()));
    for (int k = 0; k < 8; ++k) {
      EXPECT_TRUE(r.comb_left[k]->index >= 0 && r.comb_left[k]->index < kCombLeft[k]);
      EXPECT_TRUE(r.comb_right[k]->index >= 0 && r.comb_right[k]->index < kCombRight[k]);
    }
    reverb_end(&r);
  }
}
