// Running the built `kafx` tool from a test and exchanging WAV files with it.
#ifndef KAFX_TESTS_HOST_TOOL_HARNESS_H
#define KAFX_TESTS_HOST_TOOL_HARNESS_H

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "support/program_command.h"

namespace kafx_test {

// The tool in the build tree, beside the test programs' folder.
inline std::filesystem::path tool_path() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "../tools/kafx";
}

// Runs `kafx ARGS`; returns the exit code, with stdout and stderr in *output.
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

}  // namespace kafx_test

#endif
