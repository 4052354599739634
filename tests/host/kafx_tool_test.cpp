// The built `kafx` tool on generated WAV files: exact output where the front end's conversions predict it.
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/program_command.h"

namespace {

namespace fs = std::filesystem;

fs::path tool_path() { return fs::read_symlink("/proc/self/exe").parent_path() / "../tools/kafx"; } // build tree

int run_tool(const std::string& args, std::string* output) { // exit code; stdout and stderr to *output
  // Appended in order (GCC 12 -Wrestrict false positive on prepends).
  std::string command = kafx_test::program_command(tool_path().string());
  (command += ' ') += args;
  command += " 2>&1";
  FILE* p = popen(command.c_str(), "r");
  char buf[512];
  for (size_t n; p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0;) output->append(buf, n);
  const int status = p != nullptr ? pclose(p) : -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Wav { int rate = 0, channels = 0, subtype = 0; std::vector<int32_t> samples; }; // full-scale, interleaved

void write_wav(const fs::path& path, const Wav& w) {
  SF_INFO info{0, w.rate, w.channels, SF_FORMAT_WAV | w.subtype, 0, 0};
  SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
  sf_writef_int(f, w.samples.data(), static_cast<sf_count_t>(w.samples.size()) / w.channels); // checked on reading
  sf_close(f);
}

Wav read_wav(const fs::path& path) {
  SF_INFO info{};
  SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info); // info stays zero when it fails
  Wav w{info.samplerate, info.channels, info.format & SF_FORMAT_SUBMASK,
        std::vector<int32_t>(static_cast<size_t>(info.frames * info.channels))};
  EXPECT_TRUE(f != nullptr && sf_readf_int(f, w.samples.data(), info.frames) == info.frames) << path;
  sf_close(f);
  return w;
}

// The extreme codes of a `bits`-wide sample, then noise; full-scale.
std::vector<int32_t> make_samples(size_t count, int bits) {
  const uint32_t mask = ~0u << (32 - bits);
  std::vector<int32_t> out;
  for (uint32_t code : {0x7fffffffu, 0x80000000u, 0u, ~0u, 1u << (32 - bits)}) out.push_back(int32_t(code & mask));
  for (uint32_t x = 1u; out.size() < count;) out.push_back(int32_t((x = x * 1664525u + 1013904223u) & mask));
  return out;
}

std::string repeat(const std::string& s, int n) {
  std::string out;
  while (n-- > 0) out += s;
  return out;
}

class KafxToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(tool_path())) GTEST_SKIP() << "tool not built: " << tool_path();
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_, ec_); }
  std::string path(const char* name) const { return (dir_ / name).string(); }

  std::vector<int32_t> process(const Wav& in, const std::string& options) {
    write_wav(path("in.wav"), in);
    std::string output;
    EXPECT_EQ(run_tool("speaker " + options + " " + path("in.wav") + " " + path("out.wav"), &output), 0) << output;
    Wav out = read_wav(path("out.wav"));
    EXPECT_TRUE(out.rate == in.rate && out.channels == in.channels && out.subtype == in.subtype &&
                out.samples.size() == in.samples.size());
    out.samples.resize(in.samples.size());
    return out.samples;
  }

  std::error_code ec_;
  const fs::path dir_ = fs::temp_directory_path() / ("kafx_tool_test_" + std::to_string(getpid()));
};

// Every block off: 16-bit x goes in as x * 256 and back as (x * 256 + 128) >> 8
// = x, so with the 239-frame delay taken out the file is copied exactly.
TEST_F(KafxToolTest, Stereo16BitWithBlocksOffIsBitTransparent) {
  const Wav in{48000, 2, SF_FORMAT_PCM_16, make_samples(2 * 3001, 16)};
  for (const char* block : {"--block 1", "--block 241"}) EXPECT_TRUE(process(in, block) == in.samples) << block;
}

// 32-bit mono (host format 3): in as (x + 128) >> 8 with the add saturating,
// clamped to +-8388607 by the chain (-2^31 returns as -2^31 + 256), out << 8.
TEST_F(KafxToolTest, Mono32BitFollowsTheFullScaleConversions) {
  const Wav in{44100, 1, SF_FORMAT_PCM_32, make_samples(2000, 32)};
  const std::vector<int32_t> out = process(in, "--block 100");
  for (size_t i = 0; i < out.size(); ++i) {
    const int64_t w = std::min<int64_t>(in.samples[i] + int64_t{128}, INT32_MAX) >> 8;
    ASSERT_EQ(out[i], std::clamp<int64_t>(w, -8388607, 8388607) * 256) << "sample " << i;
  }
}

// Equalizer on, input gain 4096 (one half in Q13), pass-through bands (b0 = 1.0 in Q28): x * 128
// in the working format returns as (x * 128 + 128) >> 8 = floor((x + 1) / 2), from --peq and --config alike.
TEST_F(KafxToolTest, ParameterStringsAndConfigurationAreApplied) {
  const Wav in{48000, 2, SF_FORMAT_PCM_16, make_samples(2 * 1200, 16)};
  auto half = [](int32_t full) { return (((full >> 16) + 1) >> 1) * 65536; };
  const std::vector<int32_t> by_string = process(in, "--peq 1,4096,4096" + repeat(",1,268435456,0,0,0,0", 20));
  for (size_t i = 0; i < by_string.size(); ++i) ASSERT_EQ(by_string[i], half(in.samples[i])) << i;
  const std::string bands = "1;10000000;0;0;0;0" + repeat(";1;10000000;0;0;0;0", 9);
  std::ofstream(path("eq.xml")) << "<kafxsp><sbs><channel_num>2</channel_num></sbs><peq><enable>1</enable><gain>"
                                << "1000;1000</gain><Lfilter>" << bands << "</Lfilter><Rfilter>" << bands
                                << "</Rfilter></peq></kafxsp>";
  EXPECT_TRUE(process(in, "--config " + path("eq.xml")) == by_string);
}

// Without an input file the tool writes its built-in excerpt (6 s of audible 48 kHz stereo 16-bit) and processes it.
TEST_F(KafxToolTest, DefaultSignalModeWritesInputAndOutput) {
  std::string output;
  ASSERT_EQ(run_tool("speaker " + path("result.wav"), &output), 0) << output;
  const Wav in = read_wav(path("default_in.wav"));
  EXPECT_TRUE(in.rate == 48000 && in.channels == 2 && in.subtype == SF_FORMAT_PCM_16 &&
              in.samples.size() == 2 * 6 * 48000u);
  EXPECT_GT(*std::max_element(in.samples.begin(), in.samples.end()), INT32_MAX / 2);
  EXPECT_TRUE(read_wav(path("result.wav")).samples == in.samples); // every block off: transparent
}

// Bad arguments exit with 2, unusable input with 1; no output file is left.
TEST_F(KafxToolTest, ErrorsGiveNonZeroExitCodes) {
  write_wav(path("ok.wav"), Wav{48000, 2, SF_FORMAT_PCM_16, make_samples(200, 16)});
  write_wav(path("slow.wav"), Wav{22050, 2, SF_FORMAT_PCM_16, make_samples(200, 16)});
  std::ofstream(path("bad.xml")) << "<kafxsp><sbs>\n"; // not well-formed
  const std::string out = std::string(" ") += path("never.wav"), io = (std::string(" ") += path("ok.wav")) += out;
  const std::pair<std::string, int> cases[] = {
      {"", 2}, {"frobnicate", 2}, {"speaker", 2}, {"speaker --format 20" + io, 2}, {"speaker --block 0" + io, 2},
      {"speaker --bogus" + io, 2}, {"speaker --sbs 1,2,3" + io, 2}, {"speaker " + path("missing.wav") + out, 1},
      {"speaker --peq " + repeat("1,", 122) + "x" + io, 2}, {"speaker --strict --sbs 1" + repeat(",0", 44) + " " + path("slow.wav") + out, 1}, // 22050 Hz: a warning
      {"speaker --config " + path("bad.xml") + io, 1},
      {"speaker --config " + path("missing.xml") + out, 1}}; // checked before the built-in input is written
  for (const auto& [args, code] : cases) {
    std::string output;
    EXPECT_TRUE(run_tool(args, &output) == code && !output.empty()) << args << ": not " << code << "\n" << output;
  }
  EXPECT_FALSE(fs::exists(path("never.wav")) || fs::exists(path("default_in.wav")));
}

} // namespace
