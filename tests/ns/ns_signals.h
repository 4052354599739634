// Deterministic integer test signals for the noise suppressor tests: white
// noise from a linear congruential generator, a 150 Hz triangle "voice" in
// bursts of 0.4 s every 0.8 s, a 50 Hz hum and silent stretches. Integer
// only, so that any program reproduces them sample for sample.
#ifndef KAFX_TESTS_NS_NS_SIGNALS_H
#define KAFX_TESTS_NS_NS_SIGNALS_H

#include <cstdint>
#include <vector>

namespace ns_test {

enum SignalKind { kWhiteNoise = 0, kBurstsInNoise = 1, kHumBurstsGaps = 2, kLoudBursts = 3, kNumSignalKinds = 4 };

struct Lcg {
  uint32_t state;
  int32_t next() {  // uniform in -32768..32767
    state = state * 1664525u + 1013904223u;
    return static_cast<int32_t>(state >> 16) - 32768;
  }
};

// Triangle wave of period p samples, peak amplitude a.
inline int32_t triangle(int64_t i, int32_t p, int32_t a) {
  int32_t ph = static_cast<int32_t>(i % p);
  int32_t v = ph < p / 2 ? ph : p - ph;  // 0 .. p/2
  return static_cast<int32_t>((static_cast<int64_t>(v) * 4 * a) / p - a);
}

inline int16_t clip16(int32_t v) { return static_cast<int16_t>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v)); }

// n samples of the given kind at rate fs (the rate sets the burst timing and pitch).
inline std::vector<int16_t> make_signal(int kind, int fs, int n) {
  std::vector<int16_t> s(static_cast<size_t>(n));
  Lcg rng{12345u + static_cast<uint32_t>(kind)};
  const int64_t burst_period = fs * 8 / 10;
  for (int i = 0; i < n; i++) {
    const int32_t noise = rng.next();
    const bool on = (i % burst_period) < burst_period / 2;
    const int32_t voice = triangle(i, fs / 150, 1 << 14);
    int32_t v = 0;
    switch (kind) {
      case kWhiteNoise: v = noise / 11; break;
      case kBurstsInNoise: v = noise / 16 + (on ? voice / 3 : 0); break;
      case kHumBurstsGaps:
        if ((i / fs) % 3 == 2) {
          v = 0;  // one silent second in three
        } else {
          v = noise / 24 + triangle(i, fs / 50, 800) + (on ? voice / 4 : 0);
        }
        break;
      default: v = on ? voice * 2 : noise / 2; break;  // clipped bursts over loud noise
    }
    s[static_cast<size_t>(i)] = clip16(v);
  }
  return s;
}

// FNV-1a over 16-bit samples.
inline uint32_t fnv1a(const int16_t* v, size_t n, uint32_t h = 2166136261u) {
  for (size_t i = 0; i < n; i++) {
    uint16_t u = static_cast<uint16_t>(v[i]);
    h = (h ^ (u & 0xFFu)) * 16777619u;
    h = (h ^ (u >> 8)) * 16777619u;
  }
  return h;
}

}  // namespace ns_test

#endif
