// The command line of a kafx command, read by CLI11 from the command's table
// of options: CLI11 splits and matches the arguments (--name VALUE,
// --name=VALUE, -xVALUE, '--' ending the options, a lone '-' as an argument
// meaning standard input or output), and this layer turns its findings into
// the command's own messages: "kafx NAME: MESSAGE" and exit code 2.
#ifndef KAFX_TOOLS_COMMAND_LINE_H
#define KAFX_TOOLS_COMMAND_LINE_H

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "host_audio.h"

namespace kafx_tool {

// One option of a command: its names as CLI11 spells them ("--csv", "-o",
// "-o,--output"; the first is the name the callback sees) and whether it
// takes a value.
struct OptionDecl {
  const char* names;
  bool takes_value;
};

// How many arguments besides the options a command takes, and how its usage
// line shows them ("[IN.wav] OUT.wav"), for the message when the count is off.
struct Arguments {
  size_t min;
  size_t max;
  const char* shape;
};

// Called once per option given, in the order given, with the option's first
// name and its value (null for an option without one); returns 0 or an exit
// code, which stops the parse.
using OptionCallback = std::function<int(const std::string& name, const char* value)>;

// Reads "kafx NAME [options] [arguments]" (argv[0] is NAME). -h and --help
// anywhere print `usage` on standard output and give -1. An option not in
// `options`, a valued option without its value, an option without value given
// one (--strict=1) or an argument count outside `args` is a usage error
// (returns 2); so is the first error `option` returns. Otherwise `option` has
// seen every option, *positional holds the other arguments in order, and the
// result is 0.
int parse_command_line(const Command& cmd, int argc, char** argv, const char* usage,
                       std::initializer_list<OptionDecl> options, const OptionCallback& option,
                       const Arguments& args, std::vector<std::string>* positional);

// The audio commands' "kafx NAME [options] [IN] OUT": one or two arguments,
// the last into *out, a first one into *in (left as it is otherwise).
int parse_in_out_command_line(const Command& cmd, int argc, char** argv, const char* usage,
                              std::initializer_list<OptionDecl> options, const OptionCallback& option,
                              const char* shape, std::string* in, std::string* out);

}  // namespace kafx_tool

#endif
