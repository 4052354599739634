// Howling canceller: lifecycle and robustness, exact silence, independence
// from the caller's frame size, the exported analysis buffers against the
// public blocks wired as the analysis front end, and the measured behaviour
// on synthetic 48 kHz material: sustained tones (clipped ones too) are found
// and cut by 20 dB within 250 ms, voice-like material and chords pass
// untouched, and in a closed acoustic loop the canceller keeps the loop
// bounded 3 dB above the gain at which it howls without it, and catches it
// 6 dB above.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "kafx_proc/dc_remove.h"
#include "kafx_proc/elliptic.h"
#include "kafx_proc/fft_int.h"
#include "kafx_proc/howling_canceling.h"
#include "common/fixed_point.h"
#include "ktv/howling_canceling_tables.h"
#include "tools/howl_sim.h"

namespace {

using howl_sim::kRate;
using Seq = std::vector<int>;
using kafx::kQ13One;  // unity gain

struct Canceller {
  howlingCancel h{};
  Canceller() {
    howling_canceling_init(&h);
    howling_canceling_setstatus(&h, 1);
  }
  ~Canceller() { howling_canceling_end(&h); }
  // Runs a signal through in frames of `frame` samples (into `out`, or in
  // place); `each` sees the canceller after every frame.
  template <typename F = void (*)()>
  Seq run(Seq x, int frame = 240, Seq* out = nullptr, F each = [] {}) {
    for (size_t s = 0; s < x.size(); s += frame) {
      howling_canceling_process(&h, &x[s], out ? &(*out)[s] : &x[s], static_cast<int>(std::min<size_t>(frame, x.size() - s)));
      each();
    }
    return x;
  }
  int locked() {
    int n = 0;
    for (int i = 0; i < HOWLING_NOTCHES; ++i) {
      int st = 0, c = 0;
      howling_canceling_getnotch(&h, i, &st, &c);
      n += st == HOWLING_LOCKED || st == HOWLING_RELEASE;
    }
    return n;
  }
};

Seq to_int(const std::vector<double>& x) {
  Seq v(x.size());
  for (size_t i = 0; i < x.size(); ++i) v[i] = static_cast<int>(std::lrint(x[i]));
  return v;
}

double rms_db(const Seq& x, size_t from, size_t len) {
  double e = 0;
  for (size_t i = from; i < from + len && i < x.size(); ++i) e += static_cast<double>(x[i]) * x[i];
  return howl_sim::lin_to_db(std::sqrt(e / static_cast<double>(len)) / howl_sim::kFull);
}

TEST(HowlingCanceling, LifecycleAndRobustness) {
  howlingCancel h{};
  howling_canceling_init(&h);
  int st = -1;
  howling_canceling_getstatus(&h, &st);
  EXPECT_EQ(st, 0);
  // Status 0, and later no working memory: a bit-exact copy of count samples.
  Seq in = {1, -1, 8388607, -8388608, INT32_MAX, INT32_MIN, 0, 12345};
  Seq out(in.size() + 1, 777);
  auto copies = [&] {
    std::fill(out.begin(), out.end(), 777);
    howling_canceling_process(&h, in.data(), out.data(), static_cast<int>(in.size()));
    return std::equal(in.begin(), in.end(), out.begin()) && out.back() == 777;
  };
  EXPECT_TRUE(copies());
  // Count below 1 and a null record write nothing.
  howling_canceling_setstatus(&h, 1);
  std::fill(out.begin(), out.end(), 777);
  for (int n : {0, -5}) howling_canceling_process(&h, in.data(), out.data(), n);
  howling_canceling_process(nullptr, in.data(), out.data(), 8);
  EXPECT_EQ(out, Seq(in.size() + 1, 777));
  // Notch queries out of range answer 0; reset keeps the status.
  int c = -1;
  st = -1;
  howling_canceling_getnotch(&h, HOWLING_NOTCHES, &st, &c);
  EXPECT_EQ((Seq{st, c}), (Seq{0, 0}));
  howling_canceling_reset(&h);
  howling_canceling_getstatus(&h, &st);
  EXPECT_EQ(st, 1);
  howling_canceling_end(&h);
  EXPECT_EQ(h.work, nullptr);
  howling_canceling_end(&h);  // harmless twice
  EXPECT_TRUE(copies());
}

TEST(HowlingCanceling, SilenceStaysExactSilenceAndTailsReachZero) {
  Canceller k;
  const Seq zeros(kRate, 0);
  EXPECT_EQ(k.run(zeros), zeros);
  // A locked howl, then silence: the last half second is exact 0.
  Seq x = to_int(howl_sim::tone(1000, 0.5, -6));
  x.resize(x.size() + 2 * kRate, 0);
  const Seq y = k.run(x);
  EXPECT_GT(k.locked(), 0);
  EXPECT_EQ(Seq(y.end() - kRate / 2, y.end()), Seq(kRate / 2, 0));
}

// Voice with a tone entering after a third: the same output in any frame
// size, and out of place (leaving the input alone).
TEST(HowlingCanceling, OutputDoesNotDependOnTheFrameSize) {
  std::vector<double> v = howl_sim::voice_like(1.5, 3, -24);
  const std::vector<double> t = howl_sim::tone(2345, 1.5, -12);
  for (size_t i = v.size() / 3; i < v.size(); ++i) v[i] += t[i];
  const Seq x = to_int(v);
  Canceller ref;
  const Seq y240 = ref.run(x, 240);
  EXPECT_GT(ref.locked(), 0);
  for (int frame : {1, 17, 128, 256, 1000, 4801}) EXPECT_EQ(Canceller().run(x, frame), y240) << "frame " << frame;
  Seq out(x.size());
  EXPECT_EQ(Canceller().run(x, 240, &out), x);
  EXPECT_EQ(out, y240);
}

// After 187 analyses of voice, the last eight rows of fft_power_history (a
// ring of 8 x 128) and fft_power_current hold fft_int_analyze of the input
// passed through the public DC blocker and the analysis low-pass.
TEST(HowlingCanceling, ExportedBuffersHoldTheAnalysisOfTheFilteredInput) {
  const Seq x = to_int(howl_sim::voice_like(0.5, 9, -20));
  Canceller().run(x);
  dc_remove dc{};
  dc_remove_init(&dc);
  elliptic lp{};
  elliptic_init(&lp, kafx::kHowlingLowpass);
  Seq a(x.size());
  for (size_t i = 0; i < x.size(); ++i) {
    int in = x[i], d = 0;
    dc_remove_process_24(&dc, &in, &d);
    elliptic_process(&lp, &d, &a[i]);
  }
  elliptic_end(&lp);
  const int analyses = static_cast<int>(x.size()) / HOWLING_HOP;
  for (int back = 0; back < 8; ++back) {
    std::vector<complex> bins(FFT_INT_SIZE);
    int level[FFT_INT_BINS], peaks[FFT_INT_MAX_PEAKS];
    fft_int_analyze(&a[(analyses - back) * HOWLING_HOP - FFT_INT_SIZE], bins.data(), level, peaks);
    const int* row = &fft_power_history[((analyses - 1 - back) % 8) * FFT_INT_BINS];
    EXPECT_TRUE(std::equal(level, level + FFT_INT_BINS, row)) << back;
    if (back == 0) {
      EXPECT_TRUE(std::equal(level, level + FFT_INT_BINS, fft_power_current));
    }
  }
}

// Sustained tones at -6 dBFS: the output, in 10 ms windows, stays at least
// 20 dB below the input from 250 ms on, and notch 0 is locked on the tone.
TEST(HowlingCanceling, SustainedTonesAreCutBy20dBWithin250ms) {
  for (double f : {200, 250, 315, 400, 500, 630, 800, 1000, 1250, 1600, 2000, 2500, 3150, 4000, 5000, 6300, 7000, 8000}) {
    const Seq x = to_int(howl_sim::tone(f, 1.0, -6));
    Canceller k;
    const Seq y = k.run(x);
    const double in_db = rms_db(x, 0, x.size());
    const size_t win = kRate / 100;
    size_t settled = 0;
    for (size_t s = 0; s + win <= y.size(); s += win / 2)
      if (rms_db(y, s, win) > in_db - 20) settled = s + win;
    EXPECT_LE(settled, static_cast<size_t>(kRate / 4)) << f;
    int st = 0, centre = 0;
    howling_canceling_getnotch(&k.h, 0, &st, &centre);
    EXPECT_EQ(st, HOWLING_LOCKED) << f;
    EXPECT_NEAR(find_freq_idx(centre), f / 187.5, 1.0) << f;
  }
}

// A howl loud enough to clip grows odd harmonics of its own (a third about
// 10 dB down); they are not partners, so the clipped tone is still found and
// cut. (Below about 500 Hz a clipped sine is not found; see the header.)
TEST(HowlingCanceling, ClippedTonesAreStillFound) {
  for (double f : {700, 1000, 2143, 3000}) {
    std::vector<double> t = howl_sim::tone(f, 1.0, 6);
    for (double& v : t) v = std::clamp(v, -howl_sim::kFull, howl_sim::kFull - 1);
    const Seq x = to_int(t);
    Canceller k;
    size_t locked_at = 0;
    const Seq y = k.run(x, 240, nullptr, [&, done = size_t{0}]() mutable {
      done += 240;
      if (locked_at == 0 && k.locked() > 0) locked_at = done;
    });
    EXPECT_GT(locked_at, 0u) << f;
    EXPECT_LE(locked_at, static_cast<size_t>(kRate / 4)) << f;
    EXPECT_LT(rms_db(y, x.size() / 2, x.size() / 2), rms_db(x, x.size() / 2, x.size() / 2) - 20) << f;
  }
}

// Voice-like material and chords at -20 dBFS: no notch ever locks and the
// level changes by less than 1 dB.
TEST(HowlingCanceling, VoiceAndChordsPassWithoutLocking) {
  for (int seed = 1; seed <= 4; ++seed) {
    for (bool chords : {false, true}) {
      const Seq x = to_int(chords ? howl_sim::chords(6, seed, -20) : howl_sim::voice_like(6, seed, -20));
      Canceller k;
      int most_locked = 0;
      const Seq y = k.run(x, 240, nullptr, [&] { most_locked = std::max(most_locked, k.locked()); });
      EXPECT_EQ(most_locked, 0) << (chords ? "chords " : "voice ") << seed;
      EXPECT_LT(std::fabs(rms_db(y, 0, y.size()) - rms_db(x, 0, x.size())), 1.0) << (chords ? "chords " : "voice ") << seed;
    }
  }
}

// The closed loop: the largest gain at which the loop without the canceller
// dies out after the voice stops (within half a decibel of the gain at
// which the room's open-loop response first reaches unity); 3 dB above it,
// with the canceller, every built-in room stays bounded and its output never
// goes above -20 dBFS in a 20 ms window.
TEST(HowlingCanceling, ClosedLoopStaysBoundedAboveTheUncompensatedLimit) {
  const std::vector<double> voice = howl_sim::voice_like(4, 7, -40);
  auto stable = [](const howl_sim::LoopResult& r) {
    return !r.clipped && (r.tail_db < -90 || r.tail_db < r.end_voice_db - 1);
  };
  for (const howl_sim::Room& room : howl_sim::builtin_rooms()) {
    double limit = -15;  // the built-in rooms are stable there
    for (double g = -15; g <= 10; g += 0.25) {
      if (!stable(howl_sim::run_loop(room, g, voice, 1.5, [](int*, int) {}))) break;
      limit = g;
    }
    EXPECT_NEAR(limit, howl_sim::unity_gain_db(room), 0.5) << room.name;
    Canceller k;
    const howl_sim::LoopResult r =
        howl_sim::run_loop(room, limit + 3, voice, 1.5, [&](int* b, int n) { howling_canceling_process(&k.h, b, b, n); });
    EXPECT_TRUE(stable(r)) << room.name << " limit " << limit;
    EXPECT_LT(r.max_window_db, -20.0) << room.name << " limit " << limit;
    // 6 dB above it the loop may clip before it is caught, but it is
    // caught: the gain comes down, the output is loud (10 ms windows above
    // -6 dBFS) for well under a second, and the loop dies out after the
    // voice.
    Canceller k6;
    int lowest = kQ13One;
    const howl_sim::LoopResult r6 = howl_sim::run_loop(room, limit + 6, voice, 1.5, [&](int* b, int n) {
      howling_canceling_process(&k6.h, b, b, n);
      lowest = std::min(lowest, k6.h.gain);
    });
    EXPECT_TRUE(r6.tail_db < -90 || r6.tail_db < r6.end_voice_db - 1) << room.name << " +6 dB";
    EXPECT_LT(lowest, kQ13One / 2) << room.name << " +6 dB";
    const Seq out6 = to_int(r6.out);
    size_t loud = 0;
    for (size_t s = 0; s + kRate / 100 <= out6.size(); s += kRate / 100) loud += rms_db(out6, s, kRate / 100) > -6;
    EXPECT_LT(loud, 30u) << room.name << " +6 dB: 10 ms windows above -6 dBFS";
  }
}

// The loop's gain ramp (kafx howl-test --ramp): one tap of 1 at 10 samples
// and an impulse in, so out[10 k] / out[10 (k - 1)] is the loop gain at
// sample 10 k: kRampDb below the final gain at the start, rising linearly in
// dB, then held; without a ramp it is the final gain throughout.
TEST(HowlingCanceling, LoopGainRampOfTheSimulation) {
  howl_sim::Room tap;
  tap.ir.assign(11, 0);
  tap.ir[10] = 1;
  const std::vector<double> impulse = {4194304.0};
  const int ramp_samples = 96;
  for (double ramp : {0.0, ramp_samples / static_cast<double>(kRate)}) {
    const howl_sim::LoopResult r = howl_sim::run_loop(tap, -0.5, impulse, 0.005, [](int*, int) {}, ramp);
    for (int k = 1; k <= 20; ++k) {
      const double done = ramp > 0 ? std::min(1.0, 10.0 * k / ramp_samples) : 1.0;
      const double expected = std::pow(10.0, (-0.5 - howl_sim::kRampDb * (1 - done)) / 20);
      EXPECT_NEAR(r.out[10 * k] / r.out[10 * (k - 1)], expected, 1e-3) << "ramp " << ramp << " step " << k;
    }
  }
}

// The notch bound of the closed-loop tool: a pure delay is flat, so notches
// gain nothing; a delay plus one echo of half its level is a comb with
// peaks of 1.5 and dips of 0.5 every 100 Hz (10 ms), all alike, so five
// notches narrower than the whole band still gain nothing, while one notch
// wider than the band leaves nothing; a loudspeaker low-pass makes the comb's
// peaks fall with frequency, and each notch then gains what the low-pass
// takes from the next peak it leaves.
TEST(HowlingCanceling, NotchBoundOfSimpleRooms) {
  howl_sim::Room flat;
  flat.ir = {0, 0, 0, 1};
  for (double b : howl_sim::notch_bound(flat, 5, 115)) EXPECT_NEAR(b, 0, 1e-9);
  EXPECT_NEAR(howl_sim::unity_gain_db(flat), 0, 1e-9);
  howl_sim::Room comb;
  comb.ir.assign(481, 0);
  comb.ir[1] = 1;
  comb.ir[480] = 0.5;
  EXPECT_NEAR(howl_sim::unity_gain_db(comb), -howl_sim::lin_to_db(1.5), 1e-6);
  for (double b : howl_sim::notch_bound(comb, 5, 115)) EXPECT_NEAR(b, 0, 1e-3);  // grid points near the peaks
  EXPECT_GT(howl_sim::notch_bound(comb, 1, 20000).back(), 500);
  comb.lowpass_hz = 1000;
  const std::vector<double> bound = howl_sim::notch_bound(comb, 2, 115);
  // Peaks at 100 Hz multiples; the first notch (at the loudest, lowest
  // peak) takes the peaks within 115 Hz of it.
  EXPECT_GT(bound[1], 0);
  EXPECT_GE(bound[2], bound[1]);
  EXPECT_NEAR(bound[1], howl_sim::open_loop_db(comb, 100) - howl_sim::open_loop_db(comb, 300), 0.002);
}

}  // namespace
