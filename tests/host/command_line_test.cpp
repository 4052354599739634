// The commands' shared command-line layer on its own: which options reach the
// command (in the order given, with which values), which arguments remain,
// and the usage errors and their exit codes, for the forms CLI11 accepts.
#include <gtest/gtest.h>

#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/host/tool_harness.h"
#include "tools/command_line.h"

namespace {

using Call = std::pair<std::string, std::optional<std::string>>;  // option, value (none for a flag)

struct Case {
  const char* line;                    // after the command's name, split at spaces
  int rc;                              // 0, -1 (help shown) or the exit code
  std::vector<Call> calls;             // what the command's callback saw, in order
  std::vector<std::string> arguments;  // when rc == 0
  const char* message;                 // on standard error (empty: nothing)
};

constexpr const char* kUsage = "usage: kafx demo [--value V] [--flag] [-o FILE] [IN] OUT\n";

TEST(CommandLine, OptionsArgumentsAndErrors) {
  const kafx_tool::Command cmd{"demo"};
  const std::string see = "\n(see 'kafx demo --help')\n";
  const Case cases[] = {
      {"--value 3 in out", 0, {{"--value", "3"}}, {"in", "out"}, ""},
      {"out --value=3", 0, {{"--value", "3"}}, {"out"}, ""},
      {"-ofile out", 0, {{"-o", "file"}}, {"out"}, ""},
      {"-o file - -", 0, {{"-o", "file"}}, {"-", "-"}, ""},
      // A valued option takes the next argument whatever it looks like.
      {"--value -x --value --help out", 0, {{"--value", "-x"}, {"--value", "--help"}}, {"out"}, ""},
      // Every occurrence, across options, in the order given.
      {"--flag --value 1 out --flag --value 2",
       0,
       {{"--flag", std::nullopt}, {"--value", "1"}, {"--flag", std::nullopt}, {"--value", "2"}},
       {"out"},
       ""},
      // After "--" everything is an argument, options and help included.
      {"--flag -- -x -h", 0, {{"--flag", std::nullopt}}, {"-x", "-h"}, ""},
      // An argument in brackets is a file name like any other, not a list.
      {"[a,b] out", 0, {}, {"[a,b]", "out"}, ""},
      {"out --value", 2, {}, {}, "kafx demo: --value needs a value"},
      {"out -o", 2, {}, {}, "kafx demo: -o needs a value"},
      {"--bogus out", 2, {}, {}, "kafx demo: unknown option '--bogus'"},
      {"--bogus=1 out", 2, {}, {}, "kafx demo: unknown option '--bogus=1'"},
      {"-5 out", 2, {}, {}, "kafx demo: unknown option '-5'"},
      {"--flag=1 out", 2, {}, {}, "kafx demo: --flag takes no value"},
      // An empty value after '=' is refused, wherever it stands (CLI11 alone
      // would take the next argument as the value).
      {"--value= in out", 2, {}, {}, "kafx demo: --value needs a value"},
      {"in out --value=", 2, {}, {}, "kafx demo: --value needs a value"},
      {"-o file --value= out", 2, {}, {}, "kafx demo: --value needs a value"},
      {"--flag= out", 2, {}, {}, "kafx demo: --flag takes no value"},
      // ... but not where it is a value or an argument.
      {"--value --value= out", 0, {{"--value", "--value="}}, {"out"}, ""},
      {"-o --flag= out", 0, {{"-o", "--flag="}}, {"out"}, ""},
      {"-- --value= out", 0, {}, {"--value=", "out"}, ""},
      {"a b c", 2, {}, {}, "kafx demo: unexpected argument 'c'"},
      {"", 2, {}, {}, "kafx demo: expected [IN] OUT"},
      {"--value 1 --", 2, {{"--value", "1"}}, {}, "kafx demo: expected [IN] OUT"},
      // Help wins over every other finding, wherever it stands.
      {"out --bogus --help", -1, {}, {}, ""},
      {"-h a b c", -1, {}, {}, ""},
      {"--value= --help", -1, {}, {}, ""},
      {"--flag= out -h", -1, {}, {}, ""},
      // The command's own error stops the walk at that option.
      {"--value bad --value 2 out", 7, {{"--value", "bad"}}, {}, ""},
  };
  for (const Case& c : cases) {
    std::vector<std::string> words{"demo"};
    std::istringstream split(c.line);
    for (std::string w; split >> w;) words.push_back(w);
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);

    std::vector<Call> calls;
    auto option = [&](const std::string& name, const char* value) {
      calls.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
      return value != nullptr && std::string(value) == "bad" ? 7 : 0;
    };
    std::vector<std::string> arguments;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int rc = kafx_tool::parse_command_line(cmd, static_cast<int>(words.size()), argv.data(), kUsage,
                                                 {{"--value", true}, {"--flag", false}, {"-o", true}}, option,
                                                 {1, 2, "[IN] OUT"}, &arguments);
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(rc, c.rc) << c.line;
    EXPECT_EQ(calls, c.calls) << c.line;
    if (c.rc == 0) {
      EXPECT_EQ(arguments, c.arguments) << c.line;
    }
    EXPECT_EQ(out, c.rc == -1 ? kUsage : "") << c.line;
    EXPECT_EQ(err, *c.message ? c.message + see : "") << c.line;
  }
}

// The audio commands' [IN] OUT form: the last argument is the output, a first
// one the input, which keeps its value when there is none.
TEST(CommandLine, InputAndOutput) {
  const kafx_tool::Command cmd{"demo"};
  const std::pair<std::vector<std::string>, std::pair<std::string, std::string>> cases[] = {
      {{"demo", "out.wav"}, {"default", "out.wav"}},
      {{"demo", "-", "-"}, {"-", "-"}},
      {{"demo", "in.wav", "--flag", "out.wav"}, {"in.wav", "out.wav"}},
  };
  for (auto [words, want] : cases) {
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    std::string in = "default", out;
    EXPECT_EQ(kafx_tool::parse_in_out_command_line(
                  cmd, static_cast<int>(argv.size()), argv.data(), kUsage, {{"--flag", false}},
                  [](const std::string&, const char*) { return 0; }, "[IN] OUT", &in, &out),
              0);
    EXPECT_EQ(std::make_pair(in, out), want) << words.back();
  }
}

// Through the tool: every option a command's help shows is in the command's
// table (given without its value or arguments it is never "unknown", and the
// error names the command), and -h shows the same text as --help.
TEST(CommandLine, EveryCommandDeclaresTheOptionsItsHelpShows) {
  std::string help;
  ASSERT_EQ(kafx_test::run_tool("--help", &help), 0);
  const std::set<std::string> commands = kafx_test::listed_commands(help);
  EXPECT_GE(commands.size(), 9u) << help;
  const std::regex option(R"((^|[\s\[(,|'])(--?[a-z][a-z-]*))");
  for (const std::string& cmd : commands) {
    std::string usage, short_usage;
    if (kafx_test::run_tool(cmd + " --help", &usage) != 0) continue;  // a build without PLplot has no plot command
    EXPECT_EQ(kafx_test::run_tool(cmd + " -h", &short_usage), 0) << cmd;
    EXPECT_EQ(short_usage, usage) << cmd;
    std::set<std::string> names;
    for (std::sregex_iterator m(usage.begin(), usage.end(), option), end; m != end; ++m) names.insert((*m)[2]);
    names.erase("-h");
    names.erase("--help");
    for (const std::string& name : names) {
      std::string out;
      EXPECT_EQ(kafx_test::run_tool(cmd + " " + name, &out), 2) << cmd << " " << name << ": " << out;
      EXPECT_EQ(out.rfind("kafx " + cmd + ": ", 0), 0u) << cmd << " " << name << ": " << out;
      EXPECT_EQ(out.find("unknown option"), std::string::npos) << cmd << " " << name << ": " << out;
    }
    std::string out;
    EXPECT_EQ(kafx_test::run_tool(cmd + " --no-such-option", &out), 2) << cmd;
    EXPECT_EQ(out.rfind("kafx " + cmd + ": unknown option '--no-such-option'", 0), 0u) << cmd << ": " << out;
  }
}

}  // namespace
