#include "test_signal.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace kafx_tool {

namespace {

constexpr double kTwoPi = 2.0 * std::numbers::pi;

// xorshift32: a fixed, platform-independent noise source.
class Noise {
 public:
  explicit Noise(uint32_t seed) : state_(seed) {}
  double next() {  // uniform in [-1, 1)
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return static_cast<double>(state_) / 2147483648.0 - 1.0;
  }

 private:
  uint32_t state_;
};

// Constant-power pan: 0 = hard left, 1 = hard right.
void add_panned(double v, double pan, double* left, double* right) {
  *left += v * std::cos(pan * std::numbers::pi / 2.0);
  *right += v * std::sin(pan * std::numbers::pi / 2.0);
}

}  // namespace

PcmAudio make_default_signal() {
  const int rate = kDefaultSignalRate;
  const double seconds = kDefaultSignalSeconds;
  const auto frames = static_cast<size_t>(seconds * rate);
  std::vector<double> left(frames, 0.0), right(frames, 0.0);

  // A major chord, five harmonics per note falling as 1/h, slow tremolo.
  const double chord[3] = {220.0, 277.18, 329.63};
  const double chord_pan[3] = {0.3, 0.5, 0.7};
  // Bass line: 0.75 s per note, plucked envelope.
  const double bass[8] = {55.0, 55.0, 82.41, 73.42, 55.0, 61.74, 82.41, 73.42};
  const double bass_note_s = 0.75;
  // Logarithmic sweep over the whole excerpt, panned from left to right.
  const double sweep_f0 = 30.0, sweep_f1 = 16000.0;
  const double sweep_k = std::log(sweep_f1 / sweep_f0);
  // Noise bursts every 0.5 s, alternating sides.
  Noise noise(0x6b61u);

  for (size_t i = 0; i < frames; ++i) {
    const double t = static_cast<double>(i) / rate;
    double l = 0.0, r = 0.0;

    const double tremolo = 1.0 + 0.2 * std::sin(kTwoPi * 0.5 * t);
    for (int n = 0; n < 3; ++n) {
      double v = 0.0;
      for (int h = 1; h <= 5; ++h) v += std::sin(kTwoPi * chord[n] * h * t + 0.7 * n * h) / h;
      add_panned(0.06 * tremolo * v, chord_pan[n], &l, &r);
    }

    const auto note = static_cast<size_t>(t / bass_note_s);
    const double tn = t - static_cast<double>(note) * bass_note_s;
    const double f = bass[note % 8];
    const double env = std::min(1.0, tn / 0.01) * std::exp(-2.5 * tn);
    const double b = std::sin(kTwoPi * f * tn) + 0.35 * std::sin(2.0 * kTwoPi * f * tn);
    add_panned(0.35 * env * b, 0.5, &l, &r);

    const double phase = kTwoPi * sweep_f0 * seconds / sweep_k * (std::exp(sweep_k * t / seconds) - 1.0);
    add_panned(0.05 * std::sin(phase), t / seconds, &l, &r);

    const double burst_t = std::fmod(t + 0.25, 0.5);
    const auto burst = static_cast<int>((t + 0.25) / 0.5);
    const double hit = 0.25 * std::exp(-burst_t / 0.015) * noise.next();
    add_panned(hit, (burst % 2) != 0 ? 0.35 : 0.65, &l, &r);

    // Raised-cosine fades: 50 ms in, 100 ms out.
    const double fade_in = std::min(1.0, t / 0.05);
    const double fade_out = std::min(1.0, (seconds - t) / 0.1);
    const double fade = 0.25 * (1.0 - std::cos(std::numbers::pi * fade_in)) *
                        (1.0 - std::cos(std::numbers::pi * fade_out));
    left[i] = l * fade;
    right[i] = r * fade;
  }

  double peak = 0.0;
  for (size_t i = 0; i < frames; ++i) peak = std::max({peak, std::fabs(left[i]), std::fabs(right[i])});
  const double scale = peak > 0.0 ? 0.891 * 32767.0 / peak : 0.0;  // peak at -1 dBFS

  PcmAudio audio;
  audio.rate = rate;
  audio.channels = 2;
  audio.bits = 16;
  audio.samples.resize(2 * frames);
  for (size_t i = 0; i < frames; ++i) {
    audio.samples[2 * i] = static_cast<int32_t>(std::lround(left[i] * scale)) * 65536;
    audio.samples[2 * i + 1] = static_cast<int32_t>(std::lround(right[i] * scale)) * 65536;
  }
  return audio;
}

}  // namespace kafx_tool
