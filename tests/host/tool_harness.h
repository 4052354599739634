// Running the built `kafx` tool from a test and exchanging WAV files with it.
#ifndef KAFX_TESTS_HOST_TOOL_HARNESS_H
#define KAFX_TESTS_HOST_TOOL_HARNESS_H

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/program_command.h"
#include "support/source_files.h"

namespace kafx_test {

// The tool in the build tree, beside the test programs' folder.
inline std::filesystem::path tool_path() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "../tools/kafx";
}

// Runs `kafx ARGS` (through the emulator on a cross build); returns the exit
// code, with stdout and stderr in *output.
inline int run_tool(const std::string& args, std::string* output) {
  FILE* p = popen((program_command(tool_path().string()) + " " + args + " 2>&1").c_str(), "r");
  char buf[512];
  for (size_t n; p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0;) output->append(buf, n);
  const int status = p != nullptr ? pclose(p) : -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Wav {
  int rate = 0, channels = 0, subtype = 0;
  std::vector<int32_t> samples;  // full-scale, interleaved
};

inline void write_wav(const std::filesystem::path& path, const Wav& w) {
  SF_INFO info{0, w.rate, w.channels, SF_FORMAT_WAV | w.subtype, 0, 0};
  SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
  sf_writef_int(f, w.samples.data(), static_cast<sf_count_t>(w.samples.size()) / w.channels);  // checked on reading
  sf_close(f);
}

inline Wav read_wav(const std::filesystem::path& path) {
  SF_INFO info{};
  SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);  // info stays zero when it fails
  Wav w{info.samplerate, info.channels, info.format & SF_FORMAT_SUBMASK,
        std::vector<int32_t>(static_cast<size_t>(info.frames * info.channels))};
  EXPECT_TRUE(f != nullptr && sf_readf_int(f, w.samples.data(), info.frames) == info.frames) << path;
  sf_close(f);
  return w;
}

// The extreme codes of a `bits`-wide sample, then noise; full-scale.
inline std::vector<int32_t> extremes_then_noise(size_t count, int bits) {
  const uint32_t mask = ~0u << (32 - bits);
  std::vector<int32_t> out;
  for (uint32_t code : {0x7fffffffu, 0x80000000u, 0u, ~0u, 1u << (32 - bits)}) out.push_back(int32_t(code & mask));
  for (uint32_t x = 1u; out.size() < count;) out.push_back(int32_t((x = x * 1664525u + 1013904223u) & mask));
  return out;
}

// Stereo (or `channels`) white noise at about -20 dBFS, 16-bit values.
inline Wav noise(int rate, int channels, size_t frames, int subtype = SF_FORMAT_PCM_16) {
  Wav w{rate, channels, subtype, {}};
  uint32_t seed = 12345u;
  for (size_t i = 0; i < frames * static_cast<size_t>(channels); ++i) {
    seed = seed * 1664525u + 1013904223u;
    w.samples.push_back(static_cast<int32_t>((seed >> 16) % 6554) * 65536 - 3277 * 65536);
  }
  return w;
}

// A scratch folder of the test's own, removed afterwards; skipped when the
// tool is not built.
class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists(tool_path())) GTEST_SKIP() << "tool not built: " << tool_path();
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override { std::filesystem::remove_all(dir_, ec_); }
  std::string path(const std::string& name) const { return (dir_ / name).string(); }
  std::string read_text(const std::string& name) const { return slurp(path(name)); }
  // Writes `text` to the scratch file `name` (its folder created); returns its path.
  std::string write(const std::string& name, const std::string& text) const {
    std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
  }

  // Runs `kafx CMD OPTIONS in.wav out.wav` on `in` and expects exit `code`;
  // returns the output file (empty on failure), the tool's text in *text.
  Wav run(const std::string& cmd, const Wav& in, const std::string& options, std::string* text = nullptr,
          int code = 0) {
    write_wav(path("in.wav"), in);
    std::filesystem::remove(path("out.wav"), ec_);
    std::string t;
    EXPECT_EQ(run_tool(cmd + " " + options + " " + path("in.wav") + " " + path("out.wav"), &t), code)
        << cmd << " " << options << "\n" << t;
    if (text != nullptr) *text = t;
    return code == 0 ? read_wav(path("out.wav")) : Wav{};
  }

  // Each {arguments, exit code}: the tool exits so and says why; `never`
  // (an output path some cases name) is not created.
  void expect_exit_codes(const std::vector<std::pair<std::string, int>>& cases, const std::string& never) {
    for (const auto& [args, code] : cases) {
      std::string text;
      EXPECT_TRUE(run_tool(args, &text) == code && !text.empty()) << args << ": not " << code << "\n" << text;
    }
    EXPECT_FALSE(std::filesystem::exists(never)) << never;
  }

  std::error_code ec_;
  const std::filesystem::path dir_ =
      std::filesystem::temp_directory_path() / ("kafx_host_test_" + std::to_string(getpid()));
};

// The commands a help text lists: the words that open its indented lines
// after "commands:".
inline std::set<std::string> listed_commands(const std::string& help) {
  std::set<std::string> commands;
  const size_t at = help.find("commands:\n");
  if (at == std::string::npos) return commands;
  std::istringstream lines(help.substr(at));
  for (std::string line; std::getline(lines, line);) {
    if (line.size() > 2 && line.compare(0, 2, "  ") == 0 && std::islower(static_cast<unsigned char>(line[2])))
      commands.insert(line.substr(2, line.find(' ', 2) - 2));
  }
  return commands;
}

}  // namespace kafx_test

#endif
