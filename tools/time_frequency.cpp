#include "time_frequency.h"

#include <algorithm>
#include <cmath>
#include <complex>

namespace kafx_tool {

namespace {

// In-place iterative radix-2 transform (n a power of two).
void fft_in_place(std::vector<std::complex<double>>& x) {
  const size_t n = x.size();
  for (size_t i = 1, j = 0; i < n; ++i) {
    size_t bit = n >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j ^= bit;
    if (i < j) std::swap(x[i], x[j]);
  }
  for (size_t len = 2; len <= n; len <<= 1) {
    const std::complex<double> step = std::polar(1.0, -2 * M_PI / static_cast<double>(len));
    for (size_t i = 0; i < n; i += len) {
      std::complex<double> w = 1;
      for (size_t k = 0; k < len / 2; ++k, w *= step) {
        const std::complex<double> a = x[i + k], b = x[i + k + len / 2] * w;
        x[i + k] = a + b;
        x[i + k + len / 2] = a - b;
      }
    }
  }
}

}  // namespace

Spectrogram compute_spectrogram(const PcmAudio& audio, int fft, int max_frames) {
  Spectrogram s;
  s.rate = audio.rate;
  s.fft = fft;
  const size_t n = static_cast<size_t>(fft);
  const int64_t frames = audio.frames();
  const int ch = std::max(audio.channels, 1);
  // Frames of n samples every `hop`, the last one ending at or before the end.
  const int64_t span = std::max<int64_t>(frames - fft, 0);
  const int64_t hop = std::max<int64_t>({fft / 2, (span + max_frames - 2) / std::max(max_frames - 1, 1), 1});
  std::vector<double> window(n);
  double window_sum = 0;
  for (size_t i = 0; i < n; ++i) window_sum += window[i] = 0.5 - 0.5 * std::cos(2 * M_PI * i / n);
  // Full-scale sine amplitude A at a bin centre gives |X| = A * sum(w) / 2.
  const double scale = 2 / (window_sum * 2147483648.0 * ch);
  std::vector<std::complex<double>> x(n);
  for (int64_t start = 0; start <= span; start += hop) {
    for (size_t i = 0; i < n; ++i) {
      const int64_t f = start + static_cast<int64_t>(i);
      double v = 0;
      if (f < frames)
        for (int c = 0; c < ch; ++c) v += audio.samples[static_cast<size_t>(f * audio.channels + c)];
      x[i] = v * window[i];
    }
    fft_in_place(x);
    std::vector<double> db(n / 2 + 1);
    for (size_t k = 0; k <= n / 2; ++k)
      db[k] = std::max(20 * std::log10(std::abs(x[k]) * scale + 1e-300), kSpectrogramFloorDb);
    s.time_s.push_back((static_cast<double>(start) + fft / 2.0) / audio.rate);
    s.db.push_back(std::move(db));
  }
  return s;
}

}  // namespace kafx_tool
