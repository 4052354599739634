// Runs the built `kafx` tool as a child process on small generated WAV files
// and checks what it writes: lengths, formats, and the exact samples where
// the front end's conversions make them predictable (every block off, or a
// trivially computable parameter set).
#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// <build>/tests/test_host -> <build>/tools/kafx
fs::path tool_path() {
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  if (ec) return {};
  return self.parent_path().parent_path() / "tools" / "kafx";
}

struct ToolRun {
  int exit_code = -1;
  std::string output;  // stdout and stderr together
};

ToolRun run_tool(const std::string& args) {
  ToolRun r;
  const std::string cmd = "'" + tool_path().string() + "' " + args + " 2>&1";
  FILE* p = popen(cmd.c_str(), "r");
  if (p == nullptr) return r;
  char buf[512];
  while (fgets(buf, sizeof buf, p) != nullptr) r.output += buf;
  const int status = pclose(p);
  r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

struct Wav {
  int rate = 0;
  int channels = 0;
  int subtype = 0;              // SF_FORMAT_PCM_16 / _24 / _32
  std::vector<int32_t> samples;  // full-scale 32-bit, interleaved
};

void write_wav(const fs::path& path, const Wav& w) {
  SF_INFO info{};
  info.samplerate = w.rate;
  info.channels = w.channels;
  info.format = SF_FORMAT_WAV | w.subtype;
  SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
  ASSERT_NE(f, nullptr) << sf_strerror(nullptr);
  const sf_count_t frames = static_cast<sf_count_t>(w.samples.size()) / w.channels;
  EXPECT_EQ(sf_writef_int(f, w.samples.data(), frames), frames);
  sf_close(f);
}

Wav read_wav(const fs::path& path) {
  Wav w;
  SF_INFO info{};
  SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
  if (f == nullptr) {
    ADD_FAILURE() << "cannot read " << path;
    return w;
  }
  w.rate = info.samplerate;
  w.channels = info.channels;
  w.subtype = info.format & SF_FORMAT_SUBMASK;
  w.samples.resize(static_cast<size_t>(info.frames * info.channels));
  EXPECT_EQ(sf_readf_int(f, w.samples.data(), info.frames), info.frames);
  sf_close(f);
  return w;
}

// Deterministic test material with the extreme codes of the sample width
// placed first, then a noisy ramp. `bits` is the width of the file; samples
// are returned full-scale (left-aligned in 32 bits).
std::vector<int32_t> make_samples(size_t count, int bits) {
  const int shift = 32 - bits;
  const int64_t top = (int64_t{1} << (bits - 1)) - 1;
  std::vector<int64_t> v = {top, -top - 1, 0, -1, 1, top - 1, -top};
  uint32_t x = 12345u;
  while (v.size() < count) {
    x = x * 1664525u + 1013904223u;
    v.push_back(static_cast<int64_t>(x >> shift) - (top + 1));  // uniform over the width
  }
  std::vector<int32_t> out(count);
  for (size_t i = 0; i < count; ++i) out[i] = static_cast<int32_t>(static_cast<uint32_t>(v[i]) << shift);
  return out;
}

class KafxToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(tool_path())) GTEST_SKIP() << "tool not built: " << tool_path();
    char tmpl[] = "/tmp/kafx_tool_test_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
  }
  void TearDown() override {
    std::error_code ec;
    if (!dir_.empty()) fs::remove_all(dir_, ec);
  }
  std::string path(const char* name) const { return (dir_ / name).string(); }

  // Writes `in`, processes it with `options` and returns the output file.
  Wav process(const Wav& in, const std::string& options) {
    write_wav(path("in.wav"), in);
    const ToolRun r = run_tool("speaker " + options + " " + path("in.wav") + " " + path("out.wav"));
    EXPECT_EQ(r.exit_code, 0) << r.output;
    const Wav out = read_wav(path("out.wav"));
    EXPECT_EQ(out.rate, in.rate);
    EXPECT_EQ(out.channels, in.channels);
    EXPECT_EQ(out.subtype, in.subtype);
    EXPECT_EQ(out.samples.size(), in.samples.size());
    return out;
  }

  fs::path dir_;
};

// With no configuration every block is off; a 16-bit sample goes in as
// x * 256 and comes back as (x * 256 + 128) >> 8 = x, so the output must be
// the input exactly once the 239-frame delay is taken out. Several block
// sizes (including 1 frame and sizes that do not divide the length) must
// give the same alignment.
TEST_F(KafxToolTest, Stereo16BitWithBlocksOffIsBitTransparent) {
  const Wav in{48000, 2, SF_FORMAT_PCM_16, make_samples(2 * 3001, 16)};
  for (const char* block : {"", "--block 1", "--block 241", "--block 5000"}) {
    SCOPED_TRACE(block);
    const Wav out = process(in, block);
    EXPECT_TRUE(out.samples == in.samples);
  }
}

// 24-bit files run as 24-bit values in 32-bit containers: no scaling at all,
// only the chain's symmetric clamp turns -8388608 into -8388607.
TEST_F(KafxToolTest, Stereo24BitWithBlocksOffPassesThroughTheClamp) {
  const Wav in{96000, 2, SF_FORMAT_PCM_24, make_samples(2 * 1500, 24)};
  const Wav out = process(in, "");
  ASSERT_EQ(out.samples.size(), in.samples.size());
  for (size_t i = 0; i < in.samples.size(); ++i) {
    const int32_t v = std::max(in.samples[i] / 256, -8388607);
    ASSERT_EQ(out.samples[i], v * 256) << "sample " << i;
  }
}

// 32-bit mono at 44.1 kHz: the full-scale format rounds to 24 bits on the
// way in ((x + 128) >> 8 with the add saturating, capped at 8388607), the
// chain clamps to +-8388607, and the way out shifts back by 8. With
// --format 16 the same file is carried as 16-bit samples instead.
TEST_F(KafxToolTest, Mono32BitFollowsTheFullScaleConversions) {
  const Wav in{44100, 1, SF_FORMAT_PCM_32, make_samples(2000, 32)};
  const Wav out = process(in, "--block 100");
  ASSERT_EQ(out.samples.size(), in.samples.size());
  EXPECT_EQ(out.samples[0], 2147483392);   // 2147483647 -> 8388607 -> back
  EXPECT_EQ(out.samples[1], -2147483392);  // -2147483648 -> -8388608 -> clamp
  for (size_t i = 0; i < in.samples.size(); ++i) {
    const int64_t w = std::min<int64_t>(int64_t{in.samples[i]} + 128, INT32_MAX) >> 8;
    const int64_t c = std::clamp<int64_t>(w, -8388607, 8388607);
    ASSERT_EQ(out.samples[i], c * 256) << "sample " << i;
  }

  const Wav out16 = process(in, "--format 16");
  ASSERT_EQ(out16.samples.size(), in.samples.size());
  for (size_t i = 0; i < in.samples.size(); ++i) {
    ASSERT_EQ(out16.samples[i], static_cast<int32_t>(in.samples[i] & ~0xffff)) << "sample " << i;
  }
}

std::string repeat(const std::string& s, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += s;
  return out;
}

// Configuration file and parameter strings reach the chain. Equalizer on
// with input gain 4096 (one half, Q13) and ten pass-through bands (b0 = 1.0
// in Q28): a 16-bit x becomes x * 128 in the working format, the bands return
// it unchanged, and the conversion back gives (x * 128 + 128) >> 8, that is
// floor((x + 1) / 2). A balance ratio of 8192 (index 3 of the sbs string)
// replaces left by right ahead of the equalizer.
TEST_F(KafxToolTest, ConfigurationAndParameterStringsAreApplied) {
  const Wav in{48000, 2, SF_FORMAT_PCM_16, make_samples(2 * 1200, 16)};
  auto half = [](int32_t full) { return (((full >> 16) + 1) >> 1) * 65536; };

  const std::string peq = "1,4096,4096" + repeat(",1,268435456,0,0,0,0", 20);
  const Wav by_string = process(in, "--peq " + peq);
  ASSERT_EQ(by_string.samples.size(), in.samples.size());
  for (size_t i = 0; i < in.samples.size(); ++i) ASSERT_EQ(by_string.samples[i], half(in.samples[i])) << i;

  // The same equalizer from an XML file (hexadecimal values, ';'-separated).
  const std::string band = "1;10000000;0;0;0;0";
  std::string bands = band;
  for (int k = 1; k < 10; ++k) bands += ";" + band;
  FILE* xml = std::fopen(path("eq.xml").c_str(), "w");
  ASSERT_NE(xml, nullptr);
  std::fprintf(xml,
               "<kafxsp><sbs><enable>0</enable><channel_num>2</channel_num></sbs>"
               "<peq><enable>1</enable><gain>1000;1000</gain><Lfilter>%s</Lfilter>"
               "<Rfilter>%s</Rfilter></peq></kafxsp>\n",
               bands.c_str(), bands.c_str());
  std::fclose(xml);
  const std::string config = "--config " + path("eq.xml");
  const Wav by_file = process(in, config);
  EXPECT_TRUE(by_file.samples == by_string.samples);

  // An sbs string on top of the file replaces only the sbs part: the file's
  // equalizer stays and now halves the right channel copied into the left.
  const std::string sbs = "0,8192,8192,8192,2" + repeat(",0,5,32767,8192,256", 8);
  const Wav swapped = process(in, config + " --sbs " + sbs);
  ASSERT_EQ(swapped.samples.size(), in.samples.size());
  for (size_t i = 0; i < in.samples.size(); i += 2) {
    ASSERT_EQ(swapped.samples[i], half(in.samples[i + 1])) << "frame " << i / 2;
    ASSERT_EQ(swapped.samples[i + 1], half(in.samples[i + 1])) << "frame " << i / 2;
  }
}

// Without an input file the tool writes its built-in excerpt next to the
// output (6 s of 48 kHz stereo 16-bit, clearly audible) and processes it.
TEST_F(KafxToolTest, DefaultSignalModeWritesInputAndOutput) {
  const ToolRun r = run_tool("speaker " + path("result.wav"));
  ASSERT_EQ(r.exit_code, 0) << r.output;
  const Wav in = read_wav(path("default_in.wav"));
  const Wav out = read_wav(path("result.wav"));
  EXPECT_EQ(in.rate, 48000);
  EXPECT_EQ(in.channels, 2);
  EXPECT_EQ(in.subtype, SF_FORMAT_PCM_16);
  EXPECT_EQ(in.samples.size(), size_t{2 * 6 * 48000});
  int32_t peak = 0;
  for (int32_t s : in.samples) peak = std::max(peak, s == INT32_MIN ? INT32_MAX : std::abs(s));
  EXPECT_GT(peak, INT32_MAX / 2);
  EXPECT_TRUE(out.samples == in.samples);  // every block off: transparent
}

// Bad arguments exit with 2, unreadable or unusable input with 1; neither
// leaves an output file behind.
TEST_F(KafxToolTest, ErrorsGiveNonZeroExitCodes) {
  write_wav(path("ok.wav"), Wav{48000, 2, SF_FORMAT_PCM_16, make_samples(200, 16)});
  write_wav(path("float.wav"), Wav{48000, 1, SF_FORMAT_FLOAT, make_samples(100, 32)});
  FILE* bad_xml = std::fopen(path("bad.xml").c_str(), "w");
  ASSERT_NE(bad_xml, nullptr);
  std::fputs("<kafxsp><sbs>\n", bad_xml);  // not well-formed
  std::fclose(bad_xml);
  const std::string out = " " + path("never.wav");
  struct Case {
    std::string args;
    int code;
  } cases[] = {
      {"", 2},
      {"frobnicate", 2},
      {"speaker", 2},
      {"speaker --format 20 " + path("ok.wav") + out, 2},
      {"speaker --block 0 " + path("ok.wav") + out, 2},
      {"speaker --bogus " + path("ok.wav") + out, 2},
      {"speaker --sbs 1,2,3 " + path("ok.wav") + out, 2},
      {"speaker --peq " + repeat("1,", 122) + "x " + path("ok.wav") + out, 2},
      {"speaker " + path("missing.wav") + out, 1},
      {"speaker " + path("float.wav") + out, 1},
      {"speaker --config " + path("missing.xml") + " " + path("ok.wav") + out, 1},
      {"speaker --config " + path("bad.xml") + " " + path("ok.wav") + out, 1},
      {"speaker --config " + path("missing.xml") + out, 1},  // built-in input mode
  };
  for (const Case& c : cases) {
    const ToolRun r = run_tool(c.args);
    EXPECT_EQ(r.exit_code, c.code) << c.args << "\n" << r.output;
    EXPECT_FALSE(r.output.empty()) << c.args;
  }
  EXPECT_FALSE(fs::exists(path("never.wav")));
  EXPECT_FALSE(fs::exists(path("default_in.wav")));
  EXPECT_EQ(run_tool("--help").exit_code, 0);
}

}  // namespace
