// Short-time spectra of a WAV file for `kafx plot spectrogram`: the channels
// averaged to one signal, Hann-windowed frames of `fft` samples, magnitudes in
// dB relative to a full-scale sine (a sine of amplitude A centred on a bin
// reads 20 log10(A / full scale)). Doubles are fine here: this runs offline.
#ifndef KAFX_TOOLS_TIME_FREQUENCY_H
#define KAFX_TOOLS_TIME_FREQUENCY_H

#include <vector>

#include "wav_io.h"

namespace kafx_tool {

inline constexpr double kSpectrogramFloorDb = -140;

struct Spectrogram {
  int rate = 0;
  int fft = 0;                         // frame length; fft / 2 + 1 bins
  std::vector<double> time_s;          // centre of each frame
  std::vector<std::vector<double>> db; // [frame][bin], at least kSpectrogramFloorDb
  double bin_hz() const { return static_cast<double>(rate) / fft; }
};

// `fft` is a power of two; frames overlap by at least half and are spread so
// that there are at most `max_frames` of them (a file shorter than one frame
// is zero-padded to one).
Spectrogram compute_spectrogram(const PcmAudio& audio, int fft, int max_frames);

}  // namespace kafx_tool

#endif
