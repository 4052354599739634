// `kafx speaker` on generated WAV files: options and configuration files
// applied exactly where the front end's conversions predict the output, the
// built-in excerpt, bad arguments; the manual page against the help texts.
// (Formats, alignment and streaming are checked for every product in
// kafx_stream_test.cpp.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/host/tool_harness.h"

namespace kafx_test {
namespace {

using KafxToolTest = ToolTest;

// Equalizer on, input gain 4096 (one half in Q13), pass-through bands (b0 = 1.0 in Q28): x * 128
// in the working format returns as (x * 128 + 128) >> 8 = floor((x + 1) / 2), from --peq and --config alike.
TEST_F(KafxToolTest, ParameterStringsAndConfigurationAreApplied) {
  const Wav in{48000, 2, SF_FORMAT_PCM_16, extremes_then_noise(2 * 1200, 16)};
  auto half = [](int32_t full) { return (((full >> 16) + 1) >> 1) * 65536; };
  const std::vector<int32_t> by_string = run("speaker", in, "--peq 1,4096,4096" + repeat(",1,268435456,0,0,0,0", 20)).samples;
  ASSERT_EQ(by_string.size(), in.samples.size());
  for (size_t i = 0; i < by_string.size(); ++i) ASSERT_EQ(by_string[i], half(in.samples[i])) << i;
  const std::string bands = "1;10000000;0;0;0;0" + repeat(";1;10000000;0;0;0;0", 9);
  write("eq.xml", "<kafxsp><sbs><channel_num>2</channel_num></sbs><peq><enable>1</enable><gain>1000;1000</gain><Lfilter>" +
                      bands + "</Lfilter><Rfilter>" + bands + "</Rfilter></peq></kafxsp>");
  EXPECT_TRUE(run("speaker", in, "--config " + path("eq.xml")).samples == by_string);
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
// (--strict on a warned rate: kafx_stream_test.cpp.)
TEST_F(KafxToolTest, ErrorsGiveNonZeroExitCodes) {
  write_wav(path("ok.wav"), Wav{48000, 2, SF_FORMAT_PCM_16, extremes_then_noise(200, 16)});
  write("bad.xml", "<kafxsp><sbs>\n"); // not well-formed
  const std::string out = " " + path("never.wav"), io = " " + path("ok.wav") + out;
  expect_exit_codes({
      {"", 2}, {"frobnicate", 2}, {"speaker", 2}, {"speaker --format 20" + io, 2}, {"speaker --block 0" + io, 2},
      {"speaker --bogus" + io, 2}, {"speaker --sbs 1,2,3" + io, 2}, {"speaker " + path("missing.wav") + out, 1},
      {"speaker --peq " + repeat("1,", 122) + "x" + io, 2}, {"speaker --config " + path("bad.xml") + io, 1},
      {"speaker --config " + path("missing.xml") + out, 1}}, // checked before the built-in input is written
      path("never.wav"));
  EXPECT_FALSE(std::filesystem::exists(path("default_in.wav")));
}

// The manual page doc/kafx.1 has a section (".SS NAME") for each command that `kafx --help` lists and for no
// other, and each option that `kafx NAME --help` shows appears in that command's section (roff's "\-" read as
// "-", font changes dropped), so that the page cannot fall behind the tool.
TEST_F(KafxToolTest, ManualPageCoversEveryCommandAndOption) {
  std::string page;
  for (const std::string raw = slurp(source_file("doc/kafx.1")); char c : raw) {
    if (!page.empty() && page.back() == '\\' && c == '-') page.back() = '-';
    else if (page.size() >= 2 && page[page.size() - 2] == '\\' && page.back() == 'f') page.resize(page.size() - 2);  // \fB, \fR, ...
    else page += c;
  }
  ASSERT_NE(page.find(".TH KAFX 1"), std::string::npos);
  std::map<std::string, std::string> sections;  // command -> its text
  const size_t commands_at = page.find("\n.SH COMMANDS\n");
  ASSERT_NE(commands_at, std::string::npos);
  for (size_t at = page.find("\n.SS ", commands_at); at != std::string::npos;) {
    const size_t name_end = page.find('\n', at + 1);
    const size_t next = std::min(page.find("\n.SS ", name_end), page.find("\n.SH ", name_end));
    sections[page.substr(at + 5, name_end - at - 5)] = page.substr(name_end, next - name_end);
    at = next != std::string::npos && page.compare(next, 5, "\n.SS ") == 0 ? next : std::string::npos;
  }

  std::string help;
  ASSERT_EQ(run_tool("--help", &help), 0);
  const std::set<std::string> commands = listed_commands(help);
  EXPECT_GE(commands.size(), 9u) << help;
  std::set<std::string> documented;
  for (const auto& [name, text] : sections) documented.insert(name);
  EXPECT_EQ(documented, commands);

  const std::regex option(R"((^|[\s\[(,|'])(--?[a-z][a-z-]*))");
  for (const std::string& cmd : commands) {
    std::string usage;
    if (run_tool(cmd + " --help", &usage) != 0) continue;  // a build without PLplot has no plot command
    const std::string& text = sections[cmd];
    int count = 0;
    for (std::sregex_iterator m(usage.begin(), usage.end(), option), end; m != end; ++m, ++count) {
      const std::string name = (*m)[2];
      const std::regex whole("(^|[^a-z-])" + name + "([^a-z-]|$)");
      EXPECT_TRUE(std::regex_search(text, whole)) << cmd << ": " << name << " is not in its section";
    }
    EXPECT_TRUE(count > 0 || cmd == "speaker-config") << cmd;  // the one command without options
  }
}

}  // namespace
}  // namespace kafx_test
