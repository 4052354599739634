// `kafx ktv` on generated WAV files: with no block the voice is copied to
// both sides bit for bit; each option equals the front end driven directly
// with the same settings; other rates and channel counts are converted with
// a message; the built-in phrase; bad arguments.
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "kafx_proc/ktv.h"
#include "support/program_command.h"

namespace {

namespace fs = std::filesystem;

fs::path tool_path() { return fs::read_symlink("/proc/self/exe").parent_path() / "../tools/kafx"; }

int run_tool(const std::string& args, std::string* output) {  // exit code; stdout and stderr to *output
  FILE* p = popen((kafx_test::program_command(tool_path().string()) + " " + args + " 2>&1").c_str(), "r");
  char buf[512];
  for (size_t n; p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0;) output->append(buf, n);
  const int status = p != nullptr ? pclose(p) : -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Wav {
  int rate = 0, channels = 0, subtype = 0;
  std::vector<int32_t> samples;  // full-scale, interleaved
};

void write_wav(const fs::path& path, const Wav& w) {
  SF_INFO info{0, w.rate, w.channels, SF_FORMAT_WAV | w.subtype, 0, 0};
  SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
  sf_writef_int(f, w.samples.data(), static_cast<sf_count_t>(w.samples.size()) / w.channels);
  sf_close(f);
}

Wav read_wav(const fs::path& path) {
  SF_INFO info{};
  SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
  Wav w{info.samplerate, info.channels, info.format & SF_FORMAT_SUBMASK,
        std::vector<int32_t>(static_cast<size_t>(info.frames * info.channels))};
  EXPECT_TRUE(f != nullptr && sf_readf_int(f, w.samples.data(), info.frames) == info.frames) << path;
  sf_close(f);
  return w;
}

// A voice-like mono 16-bit signal: gliding harmonics in bursts, full-scale codes.
std::vector<int16_t> voice16(size_t n) {
  std::vector<int16_t> s(n);
  double phase = 0;
  for (size_t i = 0; i < n; ++i) {
    phase += 2 * M_PI * (200.0 + 40.0 * std::sin(i * 2e-4)) / 48000.0;
    const double env = (i / 6000) % 2 == 0 ? 0.8 : 0.2;
    s[i] = static_cast<int16_t>(std::lround(32767.0 * env * (0.6 * std::sin(phase) + 0.3 * std::sin(3 * phase))));
  }
  s[0] = 32767;
  s[1] = -32768;
  return s;
}

class KafxKtvToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(tool_path())) GTEST_SKIP() << "tool not built: " << tool_path();
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_, ec_); }
  std::string path(const char* name) const { return (dir_ / name).string(); }
  Wav run(const Wav& in, const std::string& options, std::string* output) {
    write_wav(path("voice.wav"), in);
    EXPECT_EQ(run_tool("ktv " + options + " " + path("voice.wav") + " " + path("out.wav"), output), 0) << *output;
    return read_wav(path("out.wav"));
  }
  std::error_code ec_;
  const fs::path dir_ = fs::temp_directory_path() / ("kafx_ktv_tool_test_" + std::to_string(getpid()));
};

Wav mono48(const std::vector<int16_t>& v) {
  Wav w{48000, 1, SF_FORMAT_PCM_16, {}};
  for (int16_t x : v) w.samples.push_back(x * 65536);
  return w;
}

}  // namespace

TEST_F(KafxKtvToolTest, NoBlockCopiesTheVoiceToBothSides) {
  const auto v = voice16(48000 + 17);  // a last partial frame
  std::string output;
  const Wav out = run(mono48(v), "", &output);
  ASSERT_TRUE(out.rate == 48000 && out.channels == 2 && out.subtype == SF_FORMAT_PCM_16 &&
              out.samples.size() == 2 * v.size());
  for (size_t i = 0; i < v.size(); ++i) {
    ASSERT_EQ(out.samples[2 * i], v[i] * 65536) << i;
    ASSERT_EQ(out.samples[2 * i + 1], v[i] * 65536) << i;
  }
}

// Each option: the file equals the front end given the same calls (the tool
// switches off the echo unless asked), and differs from the plain copy.
TEST_F(KafxKtvToolTest, EachOptionEqualsTheFrontEndAndIsAudible) {
  using Setup = void (*)(void*);
  const std::pair<const char*, Setup> rows[] = {
      {"--gramophone", [](void* h) { kafx_ktv_gramophone_enable(h, 1); }},
      {"--eq 12,0,0,-6,0,0,9,0,0,-15",
       [](void* h) {
         int eq[10] = {12, 0, 0, -6, 0, 0, 9, 0, 0, -15};
         kafx_ktv_eq_setparameter(h, eq);
         kafx_ktv_eq_enable(h, 1);
       }},
      {"--reverb 6000,3000,4000,6000,8192,300",
       [](void* h) {
         kafx_ktv_reverb_setroomsize(h, 6000);
         kafx_ktv_reverb_setdamp(h, 3000);
         kafx_ktv_reverb_setwet(h, 4000);
         kafx_ktv_reverb_setdry(h, 6000);
         kafx_ktv_reverb_setwidth(h, 8192);
         kafx_ktv_reverb_setgain(h, 300);
         kafx_ktv_reverb_enable(h, 1);
       }},
      {"--echo 120",
       [](void* h) {
         kafx_ktv_iirecho_enable(h, 1);
         kafx_ktv_iirecho_setdelay(h, 120);
       }},
      {"--echo 80,6000,3000,5000",
       [](void* h) {
         kafx_ktv_iirecho_enable(h, 1);
         kafx_ktv_iirecho_setdelay(h, 80);
         kafx_ktv_iirecho_setfeedback(h, 6000);
         kafx_ktv_iirecho_setwet(h, 3000);
         kafx_ktv_iirecho_setdry(h, 5000);
       }},
      {"--compressor --voice-gain 16384",
       [](void* h) {
         kafx_ktv_compressor_enable(h, 1);
         kafx_ktv_set_voice_gain(h, 16384);
       }},
      {"--howling", [](void* h) { kafx_ktv_hw_howling_canceling_enable(h, 1); }},
  };
  auto v = voice16(48000 * 2);
  for (size_t i = 30000; i < v.size(); ++i)  // a steady whistle for the canceller
    v[i] = static_cast<int16_t>(v[i] / 2 + std::lround(12000 * std::sin(2 * M_PI * 1500.0 * i / 48000.0)));
  for (const auto& [options, setup] : rows) {
    std::string output;
    const Wav out = run(mono48(v), options, &output);
    ASSERT_EQ(out.samples.size(), 2 * v.size()) << options;
    void* h = kafx_ktv_init();
    kafx_ktv_iirecho_enable(h, 0);
    setup(h);
    std::vector<int16_t> in = v, l(v.size()), r(v.size());
    for (size_t at = 0; at < v.size(); at += 240)
      kafx_ktv_process_16(h, in.data() + at, l.data() + at, r.data() + at, static_cast<int>(std::min<size_t>(240, v.size() - at)));
    kafx_ktv_deinit(h);
    size_t changed = 0;
    for (size_t i = 0; i < v.size(); ++i) {
      ASSERT_EQ(out.samples[2 * i], l[i] * 65536) << options << " " << i;
      ASSERT_EQ(out.samples[2 * i + 1], r[i] * 65536) << options << " " << i;
      changed += l[i] != v[i];
    }
    EXPECT_GT(changed, v.size() / 10) << options;
  }
}

TEST_F(KafxKtvToolTest, ConvertsRateAndChannelsWithAMessage) {
  Wav in{44100, 2, SF_FORMAT_PCM_24, {}};
  const int n = 44100;
  for (int i = 0; i < n; ++i) {
    const int32_t s = static_cast<int32_t>(std::lround(0.5 * 8388607 * std::sin(2 * M_PI * 1000.0 * i / 44100.0))) * 256;
    in.samples.push_back(s);
    in.samples.push_back(s);
  }
  std::string output;
  const Wav out = run(in, "", &output);
  EXPECT_NE(output.find("44100 Hz; resampled to 48000 Hz"), std::string::npos) << output;
  EXPECT_NE(output.find("2 channels; mixed down to mono"), std::string::npos) << output;
  EXPECT_NE(output.find("24-bit samples; rounded to 16 bits"), std::string::npos) << output;
  ASSERT_TRUE(out.rate == 48000 && out.channels == 2 && out.samples.size() == 2u * 48000u);
  // The 1 kHz tone survives the conversion: level within 0.1 dB, pitch exact.
  double re = 0, im = 0;
  for (int i = 4800; i < 43200; ++i) {
    re += out.samples[2 * i] * std::cos(2 * M_PI * 1000.0 * i / 48000.0);
    im += out.samples[2 * i] * std::sin(2 * M_PI * 1000.0 * i / 48000.0);
  }
  const double amplitude = 2 * std::hypot(re, im) / (43200 - 4800) / 2147483648.0;
  EXPECT_NEAR(20 * std::log10(amplitude / 0.5), 0.0, 0.1);
}

TEST_F(KafxKtvToolTest, BuiltInVoiceAndErrors) {
  std::string output;
  ASSERT_EQ(run_tool("ktv --reverb 6000,3000,4000,6000,8192,300 --gramophone " + path("sung.wav"), &output), 0)
      << output;
  const Wav in = read_wav(path("default_voice.wav")), out = read_wav(path("sung.wav"));
  EXPECT_TRUE(in.rate == 48000 && in.channels == 1 && in.samples.size() > 48000u * 4);
  EXPECT_EQ(out.samples.size(), 2 * in.samples.size());
  EXPECT_NE(output.find("blocks: gramophone, reverb"), std::string::npos) << output;
  const std::string io = " " + path("default_voice.wav") + " " + path("never.wav");
  const std::pair<std::string, int> cases[] = {
      {"ktv", 2},
      {"ktv --eq 1,2,3" + io, 2},
      {"ktv --eq 0,0,0,0,0,0,0,0,0,16" + io, 2},
      {"ktv --reverb 1,2,3,4,5" + io, 2},
      {"ktv --echo 351" + io, 2},
      {"ktv --echo 0" + io, 2},
      {"ktv --voice-gain x" + io, 2},
      {"ktv --bogus" + io, 2},
      {"ktv " + path("missing.wav") + " " + path("never.wav"), 1},
  };
  for (const auto& [args, code] : cases) {
    std::string o;
    EXPECT_EQ(run_tool(args, &o), code) << args << "\n" << o;
    EXPECT_FALSE(o.empty()) << args;
  }
  EXPECT_FALSE(fs::exists(path("never.wav")));
}
