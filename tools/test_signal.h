// The kafx tool's built-in programme material: a deterministic, music-like
// stereo excerpt used when no input file is given.
#ifndef KAFX_TOOLS_TEST_SIGNAL_H
#define KAFX_TOOLS_TEST_SIGNAL_H

#include "wav_io.h"

namespace kafx_tool {

constexpr int kDefaultSignalRate = 48000;
constexpr double kDefaultSignalSeconds = 6.0;

// 6 s of 48 kHz stereo 16-bit audio: a sustained chord with harmonics, a bass
// line, a logarithmic sweep and noise bursts, faded in and out, peaking near
// -1 dBFS. The same bytes on every run (fixed seed, no time or locale input).
PcmAudio make_default_signal();

}  // namespace kafx_tool

#endif
