#include "stream_runner.h"

#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "test_signal.h"
#include "wav_io.h"

namespace kafx_tool {

namespace {

namespace fs = std::filesystem;

// The temporary output, removed when the process is interrupted.
char g_temp_path[4096];

extern "C" void remove_temp_and_exit(int sig) {
  if (g_temp_path[0] != '\0') unlink(g_temp_path);
  _exit(128 + sig);
}

void set_temp(const std::string& path) {
  std::snprintf(g_temp_path, sizeof g_temp_path, "%s", path.c_str());
  std::signal(SIGINT, remove_temp_and_exit);
  std::signal(SIGTERM, remove_temp_and_exit);
  std::signal(SIGHUP, remove_temp_and_exit);
}

void clear_temp() {
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
  std::signal(SIGHUP, SIG_DFL);
  g_temp_path[0] = '\0';
}

// Whether libsndfile found the data chunk shorter than its header says.
bool looks_truncated(SNDFILE* f) {
  char log[8192] = {};
  sf_command(f, SFC_GET_LOG_INFO, log, sizeof log);
  for (const char* line = log; line != nullptr && *line != '\0';) {
    const char* end = std::strchr(line, '\n');
    const std::string text(line, end != nullptr ? static_cast<size_t>(end - line) : std::strlen(line));
    if (text.rfind("data", 0) == 0 && text.find("should be") != std::string::npos) return true;
    line = end != nullptr ? end + 1 : nullptr;
  }
  return false;
}

// Writable WAV subtype for the output: the requested one when libsndfile
// can write it, otherwise 16-bit PCM. Signed 8-bit becomes WAV's unsigned 8-bit.
int writable_subtype(int subtype, int rate, int channels) {
  if (subtype == SF_FORMAT_PCM_S8) subtype = SF_FORMAT_PCM_U8;
  SF_INFO probe{0, rate, channels, SF_FORMAT_WAV | subtype, 0, 0};
  return sf_format_check(&probe) ? subtype : SF_FORMAT_PCM_16;
}

class Progress {
 public:
  Progress(const std::string& command, int64_t total, int rate)
      : command_(command), total_(total), rate_(rate), start_(std::chrono::steady_clock::now()),
        enabled_(total > 0 && isatty(STDERR_FILENO) == 1) {}
  void update(int64_t done) {
    if (!enabled_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - start_ < std::chrono::seconds(1) || now - last_ < std::chrono::milliseconds(200)) return;
    last_ = now;
    shown_ = true;
    const double f = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
    const int bar = static_cast<int>(f * 30);
    std::fprintf(stderr, "\rkafx %s: [%s%s] %3d%%  %.1f of %.1f s", command_.c_str(), std::string(bar, '#').c_str(),
                 std::string(30 - bar, '.').c_str(), static_cast<int>(f * 100),
                 static_cast<double>(done) / rate_, static_cast<double>(total_) / rate_);
    std::fflush(stderr);
  }
  ~Progress() {
    if (shown_) std::fputs("\r\033[K", stderr);
  }

 private:
  std::string command_;
  int64_t total_;
  int rate_;
  std::chrono::steady_clock::time_point start_, last_{};
  bool enabled_, shown_ = false;
};

// Copies a finished file to standard output.
bool copy_to_stdout(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  char buf[1 << 16];
  bool ok = true;
  for (size_t n; ok && (n = std::fread(buf, 1, sizeof buf, f)) > 0;) ok = std::fwrite(buf, 1, n, stdout) == n;
  std::fclose(f);
  return ok && std::fflush(stdout) == 0;
}

}  // namespace

void LevelMeter::add(const int32_t* s, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    const double v = s[i] / 2147483648.0;
    peak = std::max(peak, std::fabs(v));
    energy += v * v;
  }
  count += n;
}

double LevelMeter::peak_db() const { return peak > 0.0 ? 20.0 * std::log10(peak) : -INFINITY; }

double LevelMeter::rms_db() const {
  return count > 0 && energy > 0.0 ? 10.0 * std::log10(energy / static_cast<double>(count)) : -INFINITY;
}

int bits_of_subtype(int subtype) {
  switch (subtype) {
    case SF_FORMAT_PCM_24: return 24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE: return 32;
    default: return 16;  // 16-bit, 8-bit and companded or compressed PCM
  }
}

bool warn(const StreamOptions& o, const std::string& text) {
  if (o.strict) {
    std::fprintf(stderr, "kafx %s: error: %s (--strict)\n", o.command.c_str(), text.c_str());
    return false;
  }
  std::fprintf(stderr, "kafx %s: warning: %s\n", o.command.c_str(), text.c_str());
  return true;
}

int run_stream(const StreamOptions& o, const std::string& in_path, const std::string& out_path,
               const std::function<std::string(const StreamInput&, StreamProcessor*)>& setup, StreamResult* result) {
  auto fail = [&](const std::string& message) {
    std::fprintf(stderr, "kafx %s: %s\n", o.command.c_str(), message.c_str());
    return 1;
  };
  const bool from_stdin = in_path == "-";
  SF_INFO info{};
  SNDFILE* in = from_stdin ? sf_open_fd(STDIN_FILENO, SFM_READ, &info, SF_FALSE)
                           : sf_open(in_path.c_str(), SFM_READ, &info);
  if (in == nullptr) return fail("cannot open '" + in_path + "': " + sf_strerror(nullptr));
  struct CloseIn {
    SNDFILE* f;
    ~CloseIn() { sf_close(f); }
  } close_in{in};

  StreamInput input;
  input.rate = info.samplerate;
  input.channels = info.channels;
  input.subtype = info.format & SF_FORMAT_SUBMASK;
  input.bits = bits_of_subtype(input.subtype);
  input.frames = info.frames == SF_COUNT_MAX || (from_stdin && !info.seekable) ? -1 : info.frames;
  input.name = from_stdin ? "standard input" : in_path;
  if (input.channels < 1 || input.rate < 1) return fail("'" + input.name + "' has no channels or no sample rate");
  if (looks_truncated(in) &&
      !warn(o, "'" + input.name + "' is truncated: its header announces more audio than the file holds; " +
                   std::to_string(info.frames) + " frames are there"))
    return 1;

  StreamProcessor p;
  const std::string reason = setup(input, &p);
  if (!reason.empty()) return reason == "-" ? 1 : fail(reason);  // "-": already reported
  const int out_rate = p.out_rate > 0 ? p.out_rate : input.rate;
  const int out_ch = p.out_channels > 0 ? p.out_channels : input.channels;
  const int subtype = writable_subtype(p.out_subtype != 0 ? p.out_subtype : input.subtype, out_rate, out_ch);
  const size_t block = std::max<size_t>(1, p.block);

  // The output goes to a temporary file beside its destination (or in the
  // temporary folder for standard output) and is renamed when complete.
  const bool to_stdout = out_path == "-";
  const fs::path dest(out_path);
  const fs::path dir = to_stdout ? fs::temp_directory_path()
                                 : (dest.has_parent_path() ? dest.parent_path() : fs::path("."));
  std::string name = ".";
  name += to_stdout ? std::string("stdout") : dest.filename().string();
  name += ".kafx-XXXXXX";
  std::string temp = (dir / name).string();
  const int fd = mkstemp(temp.data());
  if (fd < 0) return fail("cannot create a file in '" + dir.string() + "': " + std::strerror(errno));
  set_temp(temp);
  const mode_t mask = umask(0);  // the final file gets the usual permissions
  umask(mask);
  fchmod(fd, 0666 & ~mask);
  SF_INFO out_info{0, out_rate, out_ch, SF_FORMAT_WAV | subtype, 0, 0};
  SNDFILE* out = sf_open_fd(fd, SFM_WRITE, &out_info, SF_TRUE);
  auto abandon = [&](const std::string& message) {
    if (out != nullptr) sf_close(out);
    unlink(temp.c_str());
    clear_temp();
    return fail(message);
  };
  if (out == nullptr) {
    close(fd);
    return abandon("cannot write '" + out_path + "': " + sf_strerror(nullptr));
  }

  StreamResult r;
  r.out_rate = out_rate;
  r.out_channels = out_ch;
  size_t to_skip = p.latency;
  int64_t target = -1;  // output frames owed, known at the end of the input
  std::vector<int32_t> in_buf(block * static_cast<size_t>(input.channels)), out_buf;
  std::string write_error;
  // Writes the produced frames after the latency, up to the target length.
  auto emit = [&]() {
    size_t frames = out_buf.size() / static_cast<size_t>(out_ch);
    size_t first = std::min(frames, to_skip);
    to_skip -= first;
    frames -= first;
    if (target >= 0) frames = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(frames), target - r.out_frames));
    const int32_t* data = out_buf.data() + first * static_cast<size_t>(out_ch);
    if (frames > 0 && write_error.empty()) {
      if (sf_writef_int(out, data, static_cast<sf_count_t>(frames)) != static_cast<sf_count_t>(frames)) {
        write_error = "write error on '" + out_path + "': " + sf_strerror(out);
      }
      r.out_level.add(data, frames * static_cast<size_t>(out_ch));
      r.out_frames += static_cast<int64_t>(frames);
    }
    out_buf.clear();
  };

  Progress progress(o.command, input.frames, input.rate);
  const auto start = std::chrono::steady_clock::now();
  for (;;) {
    const sf_count_t got = sf_readf_int(in, in_buf.data(), static_cast<sf_count_t>(block));
    if (got <= 0) break;
    const size_t n = static_cast<size_t>(got);
    r.in_level.add(in_buf.data(), n * static_cast<size_t>(input.channels));
    r.in_frames += got;
    p.process(in_buf.data(), n, &out_buf);
    emit();
    if (!write_error.empty()) return abandon(write_error);
    progress.update(r.in_frames);
  }
  if (sf_error(in) != SF_ERR_NO_ERROR) return abandon("read error on '" + input.name + "': " + sf_strerror(in));
  if (input.frames >= 0 && r.in_frames < input.frames &&
      !warn(o, "'" + input.name + "' ended after " + std::to_string(r.in_frames) + " of " +
                   std::to_string(input.frames) + " frames"))
    return abandon("stopped");

  // Flush: the processor's own tail, then zeros until every input frame's
  // result is out.
  target = static_cast<int64_t>(std::llround(static_cast<double>(r.in_frames) * out_rate / input.rate));
  if (p.finish) {
    p.finish(&out_buf);
    emit();
  }
  std::fill(in_buf.begin(), in_buf.end(), 0);
  for (size_t fed = 0; r.out_frames < target && write_error.empty(); fed += block) {
    if (fed > p.latency + 4 * block + static_cast<size_t>(input.rate)) {
      out_buf.assign(static_cast<size_t>(target - r.out_frames) * static_cast<size_t>(out_ch), 0);  // never reached by a sound processor
    } else {
      p.process(in_buf.data(), block, &out_buf);
    }
    emit();
  }
  r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!write_error.empty()) return abandon(write_error);
  const int closed = sf_close(out);
  out = nullptr;
  if (closed != 0) return abandon("write error on '" + out_path + "'");
  if (to_stdout) {
    const bool ok = copy_to_stdout(temp);
    unlink(temp.c_str());
    clear_temp();
    if (!ok) return fail("write error on standard output");
  } else {
    std::error_code ec;
    fs::rename(temp, dest, ec);
    if (ec) return abandon("cannot create '" + out_path + "': " + ec.message());
    clear_temp();
  }
  *result = r;
  return 0;
}

void print_levels_and_speed(std::FILE* info, const StreamResult& r, double audio_seconds) {
  std::fprintf(info, "  input : peak %7.2f dBFS, RMS %7.2f dBFS\n", r.in_level.peak_db(), r.in_level.rms_db());
  std::fprintf(info, "  output: peak %7.2f dBFS, RMS %7.2f dBFS\n", r.out_level.peak_db(), r.out_level.rms_db());
  if (r.seconds > 0.0) {
    std::fprintf(info, "  speed : %.1f x real time (%.2f ms for %.2f s of audio)\n", audio_seconds / r.seconds,
                 r.seconds * 1e3, audio_seconds);
  }
}

std::string builtin_input_path(const std::string& out_path) {
  namespace fs = std::filesystem;
  const fs::path out(out_path);
  const fs::path in = (out.has_parent_path() ? out.parent_path() : fs::path(".")) / "default_in.wav";
  return out.filename() == in.filename() ? std::string() : in.string();
}

bool write_builtin_input(const std::string& path, std::FILE* info, std::string* error) {
  if (!write_pcm_wav(path, make_default_signal(), error)) return false;
  std::fprintf(info, "wrote built-in input %s\n", path.c_str());
  return true;
}

int take_builtin_input(const Command& cmd, const std::string& out_path, std::string* in_path) {
  if (!in_path->empty()) return 0;
  const std::string in = builtin_input_path(out_path);
  if (in.empty()) return cmd.usage_error("OUT.wav must not be named default_in.wav");
  std::string error;
  if (!write_builtin_input(in, out_path == "-" ? stderr : stdout, &error)) return cmd.failure(error);
  *in_path = in;
  return 0;
}

bool warn_extra_channels(const StreamOptions& o, const StreamInput& in, const char* product) {
  return in.channels <= 2 ||
         warn(o, "'" + in.name + "' has " + std::to_string(in.channels) + " channels: the " + product +
                     " product processes the first two; the others pass through unchanged (delayed to stay aligned)");
}

void print_run_header(std::FILE* info, const std::string& in_path, const std::string& out_path, const StreamResult& r,
                      int format_type, int block) {
  std::fprintf(info, "%s -> %s\n", in_path.c_str(), out_path.c_str());
  std::fprintf(info, "  frames %lld, rate %d Hz, channels %d, host format %d (%s), block %d\n",
               static_cast<long long>(r.in_frames), r.out_rate, r.out_channels, format_type,
               format_type == 1 ? "16-bit" : format_type == 2 ? "24 in 32" : "32-bit", block);
}

}  // namespace kafx_tool
