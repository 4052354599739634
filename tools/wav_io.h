// WAV file input and output of the kafx tool (libsndfile).
//
// Samples are held as full-scale 32-bit integers, interleaved: a 16-bit
// sample s is stored as s << 16 and a 24-bit sample as s << 8, which is how
// libsndfile widens integer PCM. Writing narrows them back without loss.
#ifndef KAFX_TOOLS_WAV_IO_H
#define KAFX_TOOLS_WAV_IO_H

#include <cstdint>
#include <string>
#include <vector>

namespace kafx_tool {

struct PcmAudio {
  int rate = 0;
  int channels = 0;
  int bits = 0;                  // 16, 24 or 32 (integer PCM only)
  std::vector<int32_t> samples;  // interleaved, full-scale 32-bit
  int64_t frames() const { return channels > 0 ? static_cast<int64_t>(samples.size()) / channels : 0; }
};

// Reads an integer PCM file of 16, 24 or 32 bits. On failure returns false
// and puts a one-line reason into *error.
bool read_pcm(const std::string& path, PcmAudio* audio, std::string* error);

// Writes a WAV file with the audio's rate, channel count and sample width.
bool write_pcm_wav(const std::string& path, const PcmAudio& audio, std::string* error);

}  // namespace kafx_tool

#endif
