// The one audio runner of the kafx commands: reads a sound file block by
// block (libsndfile converts every PCM width, 8-bit and float samples to
// full-scale 32-bit integers), hands the blocks to a command's processor,
// removes the processor's latency and flushes its tail with zeros so that the
// output has the input's length and alignment, and writes the result to a
// temporary file that is renamed into place only when everything succeeded.
//
// "-" reads standard input or writes standard output. Memory stays bounded
// by the block size whatever the file length. A progress bar goes to
// standard error when it is a terminal and the job runs longer than a second.
#ifndef KAFX_TOOLS_STREAM_RUNNER_H
#define KAFX_TOOLS_STREAM_RUNNER_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host_audio.h"

namespace kafx_tool {

// What the input holds.
struct StreamInput {
  int rate = 0;
  int channels = 0;
  int subtype = 0;      // libsndfile subtype (SF_FORMAT_PCM_16, SF_FORMAT_FLOAT, ...)
  int bits = 0;         // host sample width the file maps to: 16, 24 or 32
  int64_t frames = -1;  // -1 when unknown (a pipe)
  std::string name;     // the path, or "standard input"
};

// A command's processing, set up once the input is known.
struct StreamProcessor {
  int out_rate = 0;      // 0: the input's
  int out_channels = 0;  // 0: the input's
  int out_subtype = 0;   // 0: the input's (or 16-bit PCM when that cannot be written)
  size_t latency = 0;    // output frames that precede the first input frame's result
  size_t block = 4800;   // input frames per call of `process`
  // Consumes `frames` interleaved full-scale input frames and appends any
  // number of interleaved output frames to *out.
  std::function<void(const int32_t* in, size_t frames, std::vector<int32_t>* out)> process;
  // Called once at the end of the input, before the zero tail (may be empty).
  std::function<void(std::vector<int32_t>* out)> finish;
};

// Running level of full-scale samples.
struct LevelMeter {
  double peak = 0.0, energy = 0.0;
  uint64_t count = 0;
  void add(const int32_t* s, size_t n);
  double peak_db() const;
  double rms_db() const;
};

struct StreamResult {
  int64_t in_frames = 0, out_frames = 0;
  int out_rate = 0, out_channels = 0;
  LevelMeter in_level, out_level;
  double seconds = 0.0;  // processing time
};

struct StreamOptions {
  std::string command;  // "speaker", ... for messages
  bool strict = false;  // input warnings are errors
};

// Delays `count` channels of interleaved frames by a fixed number of frames:
// channels a product leaves untouched stay aligned with the delayed ones.
class FrameDelay {
 public:
  FrameDelay(size_t frames, size_t count) : frames_(frames), count_(count), ring_(frames * count, 0) {}
  // Replaces s[0 .. count) of one frame by the values `frames` frames ago.
  void step(int32_t* s) {
    if (frames_ == 0) return;
    for (size_t c = 0; c < count_; ++c) std::swap(s[c], ring_[pos_ * count_ + c]);
    pos_ = (pos_ + 1) % frames_;
  }

 private:
  size_t frames_, count_, pos_ = 0;
  std::vector<int32_t> ring_;
};

// A processor that calls `call` in place on exactly `block` interleaved
// frames of `channels` samples at a time, as a host with a fixed buffer does;
// frames that do not fill a call wait for the next input (the zero tail
// completes the last one).
inline std::function<void(const int32_t*, size_t, std::vector<int32_t>*)> fixed_calls(
    size_t block, size_t channels, std::function<void(int32_t*, size_t)> call) {
  auto pending = std::make_shared<std::vector<int32_t>>();
  return [=](const int32_t* in, size_t frames, std::vector<int32_t>* out) {
    pending->insert(pending->end(), in, in + frames * channels);
    const size_t whole = pending->size() / (block * channels) * block * channels;
    for (size_t at = 0; at < whole; at += block * channels) call(pending->data() + at, block);
    out->insert(out->end(), pending->begin(), pending->begin() + static_cast<std::ptrdiff_t>(whole));
    pending->erase(pending->begin(), pending->begin() + static_cast<std::ptrdiff_t>(whole));
  };
}

// Host format type of a sample width (16 -> 1, 24 -> 2, 32 -> 3) and the
// width a file's subtype maps to (8-bit and companded -> 16, float -> 32).
int bits_of_subtype(int subtype);

// Prints "kafx CMD: warning: TEXT" on standard error; with --strict prints
// "kafx CMD: error: TEXT (--strict)" and returns false.
bool warn(const StreamOptions& o, const std::string& text);

// Runs the stream. `setup` sees the input and fills the processor; it returns
// an empty string or a reason to stop (exit code 1, nothing written). Returns
// 0, or 1 with a message printed on standard error; on failure no output
// file is left behind.
int run_stream(const StreamOptions& o, const std::string& in_path, const std::string& out_path,
               const std::function<std::string(const StreamInput&, StreamProcessor*)>& setup, StreamResult* result);

// The closing lines of every audio command's summary: input and output
// levels, and the processing speed for `audio_seconds` of sound.
void print_levels_and_speed(std::FILE* info, const StreamResult& r, double audio_seconds);

// Where a run writing `out_path` puts the built-in excerpt: default_in.wav in
// the output's folder; empty when the output itself has that name.
std::string builtin_input_path(const std::string& out_path);

// Writes the built-in excerpt to `path` and says so on `info`.
bool write_builtin_input(const std::string& path, std::FILE* info, std::string* error);

// A product command run without IN (*in_path empty): writes the built-in
// excerpt (see builtin_input_path) and makes it *in_path. Returns 0, or the
// command's exit code after its message (OUT itself named default_in.wav, a
// failed write).
int take_builtin_input(const Command& cmd, const std::string& out_path, std::string* in_path);

// The warning for an input with more than two channels, of which `product`
// ("headphone", ...) processes the first two while the others pass through
// delayed; false when --strict makes it an error.
bool warn_extra_channels(const StreamOptions& o, const StreamInput& in, const char* product);

// The opening lines of a product command's summary: the files, then the
// frames, rate, channels, host format type and frames per call.
void print_run_header(std::FILE* info, const std::string& in_path, const std::string& out_path, const StreamResult& r,
                      int format_type, int block);

}  // namespace kafx_tool

#endif
