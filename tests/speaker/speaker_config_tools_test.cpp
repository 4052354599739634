// The two configuration commands of the `kafx` tool, run as child processes:
// `speaker-design` regenerates the shipped examples/speaker.xml byte for byte
// from examples/speaker_design.txt (the committed file is current) and
// reports design errors by line; `speaker-config` reports what each element
// of a file did and fails on files the library refuses.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "speaker_config_test_util.h"

namespace {

namespace fs = std::filesystem;

// <build>/tests/test_speaker -> <build>/tools/kafx
fs::path tool() {
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  return ec ? fs::path() : self.parent_path().parent_path() / "tools" / "kafx";
}

fs::path source(const std::string& relative) {
  const char* root = std::getenv("KAFX_SOURCE_DIR");
  if (root != nullptr) return fs::path(root) / relative;
  return fs::path(__FILE__).parent_path().parent_path().parent_path() / relative;
}

struct ToolRun {
  int code = -1;
  std::string out; // standard output only
};

ToolRun run(const std::string& args) {
  ToolRun r;
  const std::string cmd = "'" + tool().string() + "' " + args + " 2>/dev/null";
  FILE* p = popen(cmd.c_str(), "r");
  if (p == nullptr) return r;
  char buf[1024];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
  const int status = pclose(p);
  r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

std::string slurp(const fs::path& p) {
  std::ifstream f(p, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

class SpeakerConfigTools : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(tool())) GTEST_SKIP() << "kafx tool not built at " << tool();
  }
  spcfg_test::ScratchDir dir;
};

TEST_F(SpeakerConfigTools, DesignRegeneratesTheShippedFile) {
  const std::string design = source("examples/speaker_design.txt").string();
  const ToolRun r = run("speaker-design '" + design + "'");
  ASSERT_EQ(r.code, 0);
  EXPECT_EQ(r.out, slurp(source("examples/speaker.xml")))
      << "examples/speaker.xml is stale: regenerate it with kafx speaker-design";
  const std::string out = dir.path("out.xml");
  ASSERT_EQ(run("speaker-design '" + design + "' -o '" + out + "'").code, 0);
  EXPECT_EQ(slurp(out), r.out);
}

TEST_F(SpeakerConfigTools, DesignErrorsAndUsage) {
  EXPECT_EQ(run("speaker-design").code, 2);
  EXPECT_EQ(run("speaker-design --help").code, 0);
  EXPECT_EQ(run("speaker-design '" + dir.path("none.txt") + "'").code, 1);
  const struct {
    const char* text;
  } bad[] = {{"peq on\nband both notch 1000 1 3\n"},
             {"band left peak 1000 1\n"},                  // peak needs a gain
             {"band both peak 30000 1 3\n"},               // above half the rate
             {"limiter low both 0 5 -1\n"},                // too few values
             {"sbs maybe\n"},
             {"harmonic_gain loud\n"}};
  for (const auto& b : bad) {
    std::ofstream(dir.path("bad.txt")) << b.text;
    EXPECT_EQ(run("speaker-design '" + dir.path("bad.txt") + "'").code, 1) << b.text;
  }
  std::string eleven = "peq on\n";
  for (int i = 0; i < 11; ++i) eleven += "band right peak 1000 1 1\n";
  std::ofstream(dir.path("eleven.txt")) << eleven;
  EXPECT_EQ(run("speaker-design '" + dir.path("eleven.txt") + "'").code, 1);
}

TEST_F(SpeakerConfigTools, DesignedFileLoadsAsDescribed) {
  // A small design with the left and right sides apart, through the library.
  std::ofstream(dir.path("d.txt")) << "version t 1\nsbs on\nharmonic_gain 0 -6.0206\n"
                                      "limiter high right 1 4 -20 6.0206 -138\n"
                                      "peq off\nband right highpass 100 0.7071\n";
  ASSERT_EQ(run("speaker-design '" + dir.path("d.txt") + "' -o '" + dir.path("d.xml") + "'").code, 0);
  kafx_sp_params_t p{};
  ASSERT_EQ(kafx_speaker_boost_params_load_config(&p, dir.path("d.xml").c_str()), 0);
  EXPECT_EQ(p.sbs.enable, 1);
  EXPECT_EQ(p.sbs.gain[0], 8192);
  EXPECT_EQ(p.sbs.gain[1], 4096); // -6.0206 dB is one half
  const drc_param_t want_high{1, 4, 3277, 16384, 2}; // 32767 / 10, twice 8192, floor of 2
  EXPECT_EQ(std::memcmp(&p.sbs.drc_right[2], &want_high, sizeof want_high), 0);
  const drc_param_t init{0, 5, 32767, 8192, 256}; // what the limiters start with
  EXPECT_EQ(std::memcmp(&p.sbs.drc_left[2], &init, sizeof init), 0);
  EXPECT_EQ(p.peq.enable, 0);
  EXPECT_EQ(p.peq.Lfilter[0][0], 0);
  EXPECT_EQ(p.peq.Lfilter[0][1], 268435456);
  EXPECT_EQ(p.peq.Rfilter[0][0], 1);
  // High-pass: b0 = b2 = -b1 / 2, and b0 + b1 + b2 = 0 (no gain at DC).
  EXPECT_EQ(p.peq.Rfilter[0][1], p.peq.Rfilter[0][3]);
  EXPECT_NEAR(p.peq.Rfilter[0][1] * 2.0 + p.peq.Rfilter[0][2], 0.0, 2.0);
  EXPECT_EQ(p.peq.Rfilter[1][0], 0);
}

TEST_F(SpeakerConfigTools, ConfigReportsElementsAndFailures) {
  const std::string good = dir.write(
      "g.xml", "<kafxsp><version>x</version><sbs><gain>2000;zz;5</gain><bogus>1</bogus>"
               "<drc_param_left2>1;2;3</drc_param_left2></sbs><peq><enable>1</enable></peq>"
               "<sbs><gain>7</gain></sbs><extra/></kafxsp>\n");
  const ToolRun r = run("speaker-config '" + good + "'");
  EXPECT_EQ(r.code, 0);
  for (const char* want : {"load: ok", "version: 'x'", "<gain>: 3 tokens for 2 members [1..2], 1 stored",
                           "token 2 'zz' is not a 32-bit hexadecimal number: sbs.gain[right] [2] unchanged",
                           "1 surplus token ignored", "<bogus>: unknown in <sbs>, ignored",
                           "<drc_param_left2>: 3 tokens for 5 members [15..19], 3 stored",
                           "missing tokens: [18..19] unchanged", "overwrites values set earlier in the file: [1]",
                           "<extra> under <kafxsp>: ignored", "members not set by this file",
                           "gain: 0x7 0x0", "drc_high_left:\t 0x1 0x2 0x3 0x0 0x0", "enable: 1"}) {
    EXPECT_NE(r.out.find(want), std::string::npos) << want << "\n" << r.out;
  }
  const std::string broken = dir.write("b.xml", "<kafxsp><sbs></kafxsp>");
  const ToolRun f = run("speaker-config '" + good + "' '" + broken + "'");
  EXPECT_EQ(f.code, 1);
  EXPECT_NE(f.out.find("load: FAILED (-1): not well-formed XML"), std::string::npos) << f.out;
  EXPECT_NE(f.out.find("== " + good), std::string::npos);
  EXPECT_EQ(run("speaker-config").code, 2);
  EXPECT_EQ(run("speaker-config --help").code, 0);
  const ToolRun shipped = run("speaker-config '" + source("examples/speaker.xml").string() + "'");
  EXPECT_EQ(shipped.code, 0);
  EXPECT_NE(shipped.out.find("every member of the record is set by this file"), std::string::npos);
}

} // namespace
