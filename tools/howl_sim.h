// Closed-loop feedback simulation for the howling canceller: a microphone
// hears the voice plus the loudspeaker's output through a room, the output
// being the processed microphone signal. Floating point (a test and tuning
// aid, not part of the library). Header-only: used by `kafx howl-test` and
// the canceller's tests.
//
//   mic[n] = voice[n] + g * (room * out)[n]      (clipped to 24 bits)
//   out    = process(mic), in blocks no longer than the room's delay
//
// Synthetic signals (deterministic, 48 kHz): a voice-like source (glottal
// pulses through moving formants, pitch gliding and vibrating, syllables and
// pauses), music-like chords (harmonic notes with envelopes) and tones.
#ifndef KAFX_TOOLS_HOWL_SIM_H
#define KAFX_TOOLS_HOWL_SIM_H

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <functional>
#include <numbers>
#include <string>
#include <vector>

namespace howl_sim {

constexpr int kRate = 48000;
constexpr double kFull = 8388608.0;  // working-sample full scale (2^23)
constexpr double kPi = std::numbers::pi;

inline double db_to_lin(double db) { return std::pow(10.0, db / 20.0); }
inline double lin_to_db(double v) { return v > 1e-30 ? 20.0 * std::log10(v) : -600.0; }

// Small deterministic generator (no library randomness: same output everywhere).
struct Lcg {
  uint64_t s;
  explicit Lcg(uint64_t seed) : s(seed * 2862933555777941757ULL + 3037000493ULL) {}
  double uniform() {  // [0, 1)
    s = s * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(s >> 11) * (1.0 / 9007199254740992.0);
  }
  double symmetric() { return 2.0 * uniform() - 1.0; }
};

// Two-pole resonator used for formants: unity gain at its centre.
struct Resonator {
  double a1 = 0, a2 = 0, g = 0, y1 = 0, y2 = 0;
  void set(double f, double bw) {
    const double r = std::exp(-kPi * bw / kRate);
    a1 = 2 * r * std::cos(2 * kPi * f / kRate);
    a2 = -r * r;
    g = (1 - r) * std::sqrt(1 + r * r - 2 * r * std::cos(4 * kPi * f / kRate));
  }
  double run(double x) {
    const double y = g * x + a1 * y1 + a2 * y2;
    y2 = y1;
    y1 = y;
    return y;
  }
};

// Scales a signal to the given RMS level (dB re full scale of a working
// sample; a full-scale sine is -3 dB) measured over its active part.
inline void scale_rms(std::vector<double>& x, double rms_db) {
  double e = 0;
  size_t n = 0;
  for (double v : x)
    if (v != 0) {
      e += v * v;
      ++n;
    }
  if (n == 0) return;
  const double k = db_to_lin(rms_db) * kFull / std::sqrt(e / static_cast<double>(n));
  for (double& v : x) v *= k;
}

// Voice-like source: a glottal pulse train (pitch gliding between 110 and
// 320 Hz with 5.5 Hz vibrato of +-3 %), three formants moving between
// vowels, syllables of 150 to 350 ms with short gaps, breath noise. Level:
// RMS over voiced parts.
inline std::vector<double> voice_like(double seconds, uint64_t seed, double rms_db) {
  const int n = static_cast<int>(seconds * kRate);
  std::vector<double> out(n, 0.0);
  Lcg rnd(seed);
  static constexpr double kVowels[5][3] = {
      {730, 1090, 2440}, {270, 2290, 3010}, {300, 870, 2240}, {530, 1840, 2480}, {570, 840, 2410}};
  Resonator f[3];
  double phase = 0, vib = 0;
  double pitch = 140 + 120 * rnd.uniform(), pitch_to = pitch;
  int syl_left = 0, syl_len = 1, gap_left = 0, vowel = 0, next_vowel = 1;
  for (int i = 0; i < n; ++i) {
    if (syl_left == 0 && gap_left == 0) {
      syl_len = syl_left = static_cast<int>((0.15 + 0.2 * rnd.uniform()) * kRate);
      gap_left = static_cast<int>((0.03 + 0.12 * rnd.uniform()) * kRate);
      vowel = next_vowel;
      next_vowel = static_cast<int>(rnd.uniform() * 5) % 5;
      pitch_to = 110 + 210 * rnd.uniform();
    }
    if (syl_left == 0) {
      --gap_left;
      out[i] = 0;
      continue;
    }
    const double pos = 1.0 - static_cast<double>(syl_left) / syl_len;  // 0 .. 1 in the syllable
    --syl_left;
    pitch += (pitch_to - pitch) * 0.0004;  // glide
    vib += 2 * kPi * 5.5 / kRate;
    const double f0 = pitch * (1 + 0.03 * std::sin(vib));
    if ((i & 31) == 0) {
      for (int k = 0; k < 3; ++k) {
        const double fk = kVowels[vowel][k] + (kVowels[next_vowel][k] - kVowels[vowel][k]) * pos * pos;
        f[k].set(fk, 60 + 40 * k);
      }
    }
    phase += f0 / kRate;
    double src = 0;
    if (phase >= 1) {
      phase -= 1;
      src = 1;  // glottal pulse
    }
    src += 0.02 * rnd.symmetric();  // breath
    const double env = std::sin(kPi * pos);
    out[i] = env * (f[0].run(src) + 0.5 * f[1].run(src) + 0.25 * f[2].run(src));
  }
  // Glottal pulses are spiky: soften them a little (one-pole low-pass at 6 kHz).
  double y = 0;
  const double a = std::exp(-2 * kPi * 6000.0 / kRate);
  for (double& v : out) {
    if (v == 0 && y == 0) continue;
    y = (1 - a) * v + a * y;
    v = std::fabs(y) < 1e-12 ? 0.0 : y;
  }
  scale_rms(out, rms_db);
  return out;
}

// Music-like chords: triads and four-note chords of harmonic notes (eight
// partials, amplitudes 1/h, slight inharmonic detune), 0.5 to 1 s each, with
// attack and decay envelopes; 1 % vibrato on every other chord.
inline std::vector<double> chords(double seconds, uint64_t seed, double rms_db) {
  const int n = static_cast<int>(seconds * kRate);
  std::vector<double> out(n, 0.0);
  Lcg rnd(seed);
  static constexpr int kShapes[4][4] = {{0, 4, 7, -1}, {0, 3, 7, -1}, {0, 4, 7, 10}, {0, 5, 9, -1}};
  int start = 0, chord = 0;
  while (start < n) {
    const int len = static_cast<int>((0.5 + 0.5 * rnd.uniform()) * kRate);
    const int root = 48 + static_cast<int>(rnd.uniform() * 12);  // MIDI C3 .. B3
    const int* shape = kShapes[static_cast<int>(rnd.uniform() * 4) % 4];
    const bool vibrato = (chord & 1) != 0;
    for (int v = 0; v < 4 && shape[v] >= 0; ++v) {
      const double f0 = 440.0 * std::pow(2.0, (root + shape[v] + (v == 0 ? 12 : 0) - 69) / 12.0);
      for (int h = 1; h <= 8; ++h) {
        const double fh = f0 * h * (1 + 0.0005 * (h - 1));
        if (fh > 10000) break;
        double ph = rnd.uniform() * 2 * kPi;
        for (int i = 0; i < len && start + i < n; ++i) {
          const double t = static_cast<double>(i) / kRate;
          const double env = std::min(1.0, t / 0.02) * std::exp(-1.5 * t) * std::min(1.0, (len - i) / 480.0);
          const double fm = vibrato ? fh * (1 + 0.01 * std::sin(2 * kPi * 5 * t)) : fh;
          ph += 2 * kPi * fm / kRate;
          out[start + i] += env * std::sin(ph) / h;
        }
      }
    }
    start += len;
    ++chord;
  }
  scale_rms(out, rms_db);
  return out;
}

// A sine at the given peak level (dBFS of a working sample).
inline std::vector<double> tone(double freq, double seconds, double peak_db) {
  const int n = static_cast<int>(seconds * kRate);
  std::vector<double> out(n);
  const double a = db_to_lin(peak_db) * kFull;
  for (int i = 0; i < n; ++i) out[i] = a * std::sin(2 * kPi * freq * i / kRate);
  return out;
}

// An acoustic path: a room impulse response (taps, the first at least one
// sample after the output) followed by an optional second-order low-pass
// and first-order high-pass (the loudspeaker).
struct Room {
  std::string name;
  std::vector<double> ir;  // impulse response, index = delay in samples
  double lowpass_hz = 0;   // 0: none
  double highpass_hz = 0;  // 0: none
  int first_tap() const {
    for (size_t i = 0; i < ir.size(); ++i)
      if (ir[i] != 0) return static_cast<int>(i);
    return static_cast<int>(ir.size());
  }
};

// Built-in synthetic rooms: a direct path of 5 to 20 ms and a few decaying
// reflections, low-passed (loudspeaker and air) and high-passed.
inline std::vector<Room> builtin_rooms() {
  struct RoomShape {
    const char* name;
    double delay_ms;
    double refl[4][2];  // (extra delay ms, gain)
    double lp, hp;
  };
  static constexpr RoomShape kRooms[] = {
      {"small room (5 ms)", 5.0, {{1.3, -0.55}, {3.1, 0.35}, {5.9, -0.2}, {9.7, 0.12}}, 5000, 120},
      {"living room (9 ms)", 9.0, {{2.2, 0.6}, {4.9, -0.4}, {8.3, 0.25}, {13.1, -0.15}}, 4000, 100},
      {"hall (20 ms)", 20.0, {{6.5, 0.5}, {11.2, 0.4}, {17.9, -0.3}, {29.3, 0.2}}, 3000, 80},
  };
  std::vector<Room> rooms;
  for (const RoomShape& s : kRooms) {
    Room r;
    r.name = s.name;
    const int d0 = static_cast<int>(s.delay_ms * kRate / 1000);
    int last = d0;
    for (const auto& rf : s.refl) last = std::max(last, d0 + static_cast<int>(rf[0] * kRate / 1000));
    r.ir.assign(last + 1, 0.0);
    r.ir[d0] = 1.0;
    for (const auto& rf : s.refl) r.ir[d0 + static_cast<int>(rf[0] * kRate / 1000)] += rf[1];
    r.lowpass_hz = s.lp;
    r.highpass_hz = s.hp;
    rooms.push_back(r);
  }
  return rooms;
}

// The room's signal at the microphone: the response's non-zero taps (a
// sparse sum; measured responses are thinned by sparsify) over the past
// outputs, then the loudspeaker's high-pass and low-pass. Call next() once
// per sample, in order.
class Path {
 public:
  explicit Path(const Room& room) {
    for (size_t i = 0; i < room.ir.size(); ++i)
      if (room.ir[i] != 0) taps_.push_back({static_cast<int>(i), room.ir[i]});
    if (room.lowpass_hz > 0) {
      const double k = std::tan(kPi * room.lowpass_hz / kRate), q = std::sqrt(0.5);
      const double norm = 1 / (1 + k / q + k * k);
      lb0_ = k * k * norm;
      la1_ = 2 * (k * k - 1) * norm;
      la2_ = (1 - k / q + k * k) * norm;
      lp_ = true;
    }
    if (room.highpass_hz > 0) {
      hpa_ = std::exp(-2 * kPi * room.highpass_hz / kRate);
      hp_ = true;
    }
  }
  // Sample t of the room's signal from the outputs out[0 .. t - first tap].
  double next(const std::vector<double>& out, size_t t) {
    double acc = 0;
    for (const auto& tap : taps_)
      if (t >= static_cast<size_t>(tap.first)) acc += tap.second * out[t - tap.first];
    if (hp_) {
      const double y = hpa_ * (hy_ + acc - hx_);
      hx_ = acc;
      hy_ = y;
      acc = y;
    }
    if (lp_) {
      const double y = lb0_ * (acc + 2 * x1_ + x2_) - la1_ * y1_ - la2_ * y2_;
      x2_ = x1_;
      x1_ = acc;
      y2_ = y1_;
      y1_ = y;
      acc = y;
    }
    return acc;
  }

 private:
  std::vector<std::pair<int, double>> taps_;
  bool lp_ = false, hp_ = false;
  double lb0_ = 0, la1_ = 0, la2_ = 0, x1_ = 0, x2_ = 0, y1_ = 0, y2_ = 0;
  double hpa_ = 0, hx_ = 0, hy_ = 0;
};

// Open-loop magnitude of the room (taps, loudspeaker high-pass and
// low-pass as Path runs them) at `hz`, in dB.
inline double open_loop_db(const Room& room, double hz) {
  const std::complex<double> z = std::polar(1.0, -2 * kPi * hz / kRate);  // z^-1
  std::complex<double> acc = 0, zi = 1;
  for (size_t i = 0; i < room.ir.size(); ++i, zi *= z)
    if (room.ir[i] != 0) acc += room.ir[i] * zi;
  if (room.highpass_hz > 0) {
    const double a = std::exp(-2 * kPi * room.highpass_hz / kRate);
    acc *= a * (1.0 - z) / (1.0 - a * z);
  }
  if (room.lowpass_hz > 0) {
    const double k = std::tan(kPi * room.lowpass_hz / kRate), q = std::sqrt(0.5);
    const double norm = 1 / (1 + k / q + k * k);
    acc *= k * k * norm * (1.0 + 2.0 * z + z * z) / (1.0 + 2 * (k * k - 1) * norm * z + (1 - k / q + k * k) * norm * z * z);
  }
  return lin_to_db(std::abs(acc));
}

// The open-loop response on a 2 Hz grid from 20 Hz to 12 kHz, in dB.
constexpr double kGridHz = 2.0;
inline std::vector<double> open_loop_grid(const Room& room) {
  std::vector<double> mag;
  for (double f = 20; f < 12000; f += kGridHz) mag.push_back(open_loop_db(room, f));
  return mag;
}

// The loop gain at which the open-loop response first reaches unity (minus
// its loudest point, dB): a loop howls at or just above it.
inline double unity_gain_db(const Room& room) {
  const std::vector<double> mag = open_loop_grid(room);
  return -*std::max_element(mag.begin(), mag.end());
}

// What ideal notches could add: the loudest point of the open-loop response
// is cut out together with everything within `half_width_hz` of it,
// `notches` times over. Entry n is the loudest point left after n notches,
// in dB below the response's peak (entry 0 is 0): the stable gain n perfect
// notches of that width could add at most, whatever the phases (a loop
// howls only where its phase also closes, so a real loop may do a little
// better).
inline std::vector<double> notch_bound(const Room& room, int notches, double half_width_hz) {
  std::vector<double> mag = open_loop_grid(room);
  const double peak = *std::max_element(mag.begin(), mag.end());
  std::vector<double> bound;
  const int half = static_cast<int>(half_width_hz / kGridHz);
  for (int n = 0; n <= notches; ++n) {
    const auto top = std::max_element(mag.begin(), mag.end());
    bound.push_back(peak - *top);
    const int at = static_cast<int>(top - mag.begin());
    for (int j = std::max(0, at - half); j <= std::min(static_cast<int>(mag.size()) - 1, at + half); ++j) mag[j] = -600;
  }
  return bound;
}

// Keeps the `keep` largest taps of a measured response (and drops the rest),
// so the loop runs fast; the response is normalised to a peak tap of 1.
inline Room sparsify(const std::string& name, const std::vector<double>& ir, size_t keep) {
  Room r;
  r.name = name;
  std::vector<std::pair<double, int>> mag;
  double peak = 0;
  for (size_t i = 0; i < ir.size(); ++i) {
    mag.push_back({std::fabs(ir[i]), static_cast<int>(i)});
    peak = std::max(peak, std::fabs(ir[i]));
  }
  std::sort(mag.begin(), mag.end(), [](auto a, auto b) { return a.first > b.first; });
  if (mag.size() > keep) mag.resize(keep);
  r.ir.assign(ir.size(), 0.0);
  for (const auto& m : mag)
    if (m.first > 0) r.ir[m.second] = ir[m.second] / peak;
  return r;
}

struct LoopResult {
  double max_window_db = -600;  // loudest 20 ms window of the output (RMS, dBFS)
  double tail_db = -600;        // output RMS over the last 250 ms (after the voice)
  double end_voice_db = -600;   // output RMS over the 250 ms after the voice ends
  bool clipped = false;         // the microphone reached full scale
  std::vector<double> out;      // the output, working-sample units
};

// How far below its final value a ramped loop gain starts (dB).
constexpr double kRampDb = 6.0;

// The loop gain (linear) at sample t: `gain_db`, or with a ramp of
// `ramp_seconds` (an operator turning the volume up) kRampDb below it at the
// start, rising linearly in dB to it and held there.
inline double loop_gain(double gain_db, double ramp_seconds, size_t t) {
  if (ramp_seconds <= 0) return db_to_lin(gain_db);
  const double done = std::min(1.0, static_cast<double>(t) / (ramp_seconds * kRate));
  return db_to_lin(gain_db - kRampDb * (1.0 - done));
}

// Runs the loop: the voice followed by `tail_seconds` of silence. `process`
// receives blocks of microphone samples (24-bit working samples) in place.
// With `ramp_seconds` the loop gain rises to `gain_db` over that time
// (loop_gain).
inline LoopResult run_loop(const Room& room, double gain_db, const std::vector<double>& voice, double tail_seconds,
                           const std::function<void(int*, int)>& process, double ramp_seconds = 0) {
  Path path(room);
  const int block = std::clamp(room.first_tap(), 1, 240);
  const size_t total = voice.size() + static_cast<size_t>(tail_seconds * kRate);
  LoopResult r;
  r.out.assign(total, 0.0);
  std::vector<int> buf(block);
  for (size_t start = 0; start < total; start += block) {
    const int n = static_cast<int>(std::min<size_t>(block, total - start));
    for (int i = 0; i < n; ++i) {
      const size_t t = start + i;
      // The first tap is at least one block late: only earlier outputs count.
      const double g = loop_gain(gain_db, ramp_seconds, t);
      double m = (t < voice.size() ? voice[t] : 0.0) + g * path.next(r.out, t);
      if (m >= kFull - 1 || m <= -kFull) r.clipped = true;
      m = std::clamp(m, -kFull, kFull - 1);
      buf[i] = static_cast<int>(std::lrint(m));
    }
    process(buf.data(), n);
    for (int i = 0; i < n; ++i) r.out[start + i] = static_cast<double>(buf[i]);
  }
  const int win = kRate / 50;
  for (size_t s = 0; s + win <= total; s += win / 2) {
    double e = 0;
    for (int i = 0; i < win; ++i) e += r.out[s + i] * r.out[s + i];
    r.max_window_db = std::max(r.max_window_db, lin_to_db(std::sqrt(e / win) / kFull));
  }
  auto rms_db = [&](size_t a, size_t len) {
    double e = 0;
    for (size_t i = a; i < a + len && i < total; ++i) e += r.out[i] * r.out[i];
    return lin_to_db(std::sqrt(e / static_cast<double>(len)) / kFull);
  };
  const size_t q = kRate / 4;
  r.end_voice_db = rms_db(voice.size(), q);
  r.tail_db = rms_db(total - q, q);
  return r;
}

}  // namespace howl_sim

#endif
