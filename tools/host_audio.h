// Host-side helpers shared by the kafx audio commands: option values, messages
// and the interleaved host buffer that a product's front end processes in place.
#ifndef KAFX_TOOLS_HOST_AUDIO_H
#define KAFX_TOOLS_HOST_AUDIO_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kafx_tool {

// A kafx command's messages on standard error.
struct Command {
  const char* name;  // "headphone", "speaker", ...
  // "kafx NAME: MESSAGE" and where the help is; returns 2, the exit code of
  // a usage error.
  int usage_error(const std::string& message) const;
  // "kafx NAME: MESSAGE"; returns 1, the exit code of a failed run.
  int failure(const std::string& message) const;
};

// The values of --format (host sample width 16, 24 or 32) and --block
// (frames per call, 1 to max_block): 0, or the usage error.
int parse_format_option(const Command& cmd, const char* value, int* bits);
int parse_block_option(const Command& cmd, const char* value, int max_block, int* block);

// A whole decimal integer within [lo, hi].
bool parse_int(const char* text, long lo, long hi, int* value);

// Exactly `count` comma-separated decimal integers within [lo, hi].
bool parse_int_list(const std::string& text, size_t count, long lo, long hi, std::vector<int>* values);

// From `min_count` to `max_count` comma-separated decimal integers within
// [lo, hi].
bool parse_int_list(const std::string& text, size_t min_count, size_t max_count, long lo, long hi,
                    std::vector<int>* values);

// Whether the file can be opened for reading.
bool readable(const std::string& path);

// Front-end format type of a host sample width: 16 -> 1 (16-bit samples),
// 24 -> 2 (24-bit values in 32-bit words), 32 -> 3 (full-scale 32-bit).
int format_type_of_bits(int bits);

// Host samples of a front end and back, from and to full-scale 32-bit.
struct HostBuffer {
  int format_type;
  std::vector<int16_t> s16;
  std::vector<int32_t> s32;

  // `full` at the start of a zero-filled buffer of `total` samples.
  void load(const std::vector<int32_t>& full, size_t total);
  int32_t full_scale(size_t i) const;
  unsigned char* bytes();
  size_t bytes_per_sample() const { return format_type == 1 ? 2 : 4; }
};

}  // namespace kafx_tool

#endif
