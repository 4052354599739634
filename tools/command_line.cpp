#include "command_line.h"

#include <cstdio>
#include <map>

#include <CLI/CLI.hpp>

namespace kafx_tool {

int parse_command_line(const Command& cmd, int argc, char** argv, const char* usage,
                       std::initializer_list<OptionDecl> options, const OptionCallback& option,
                       const Arguments& args, std::vector<std::string>* positional) {
  CLI::App app;
  // The command's own usage text is the help; CLI11's generated help is off.
  app.set_help_flag();
  CLI::Option* help = app.add_flag("-h,--help");
  // CLI11 keeps what is not a declared option, in order: the arguments, the
  // first "--" (after which everything is an argument) and unknown options.
  app.allow_extras();
  struct Declared {
    std::string name;
    bool takes_value;
  };
  std::map<const CLI::Option*, Declared> declared;
  for (const OptionDecl& decl : options) {
    CLI::Option* o = decl.takes_value ? app.add_option(decl.names) : app.add_flag(decl.names);
    // Every occurrence is kept and handed on in order; a command that reads
    // an option twice decides what that means (mostly: the last one wins).
    o->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    const std::string names = decl.names;
    declared[o] = {names.substr(0, names.find(',')), decl.takes_value};
  }

  // CLI11 reads "--name=" (nothing after the '=') as "--name" alone, so a
  // valued option would take the next argument as its value: such an option
  // is a usage error instead, and a -h or --help after it still shows the
  // help. The line is walked as CLI11 reads it: up to a "--" that ends the
  // options, passing over the argument a valued option given alone takes,
  // whatever it looks like.
  std::string empty_value;  // the first such error
  bool help_alone = false;  // -h or --help standing on its own
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--") break;
    if (a == "-h" || a == "--help") help_alone = true;
    const bool bare_equals = a.size() > 3 && a.starts_with("--") && a.back() == '=';
    const std::string name = bare_equals ? a.substr(0, a.size() - 1) : a;
    for (const auto& [o, d] : declared) {
      if (!o->check_name(name)) continue;
      if (bare_equals && empty_value.empty())
        empty_value = d.takes_value ? name + " needs a value" : d.name + " takes no value";
      else if (!bare_equals && d.takes_value)
        ++i;
      break;
    }
  }

  auto show_help = [usage] {
    std::fputs(usage, stdout);
    return -1;
  };
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (help->count() > 0) return show_help();
    if (!empty_value.empty()) return help_alone ? show_help() : cmd.usage_error(empty_value);
    // A valued option can lack its value only at the end of the line.
    const std::string last = argc > 1 ? argv[argc - 1] : "";
    for (const auto& [o, d] : declared)
      if (d.takes_value && o->check_name(last)) return cmd.usage_error(last + " needs a value");
    return cmd.usage_error(e.what());
  }
  if (help->count() > 0) return show_help();
  if (!empty_value.empty()) return help_alone ? show_help() : cmd.usage_error(empty_value);
  positional->clear();
  bool options_ended = false;
  for (const std::string& a : app.remaining()) {
    if (!options_ended && a == "--") {
      options_ended = true;
    } else if (!options_ended && a.size() > 1 && a[0] == '-') {
      return cmd.usage_error("unknown option '" + a + "'");
    } else {
      positional->push_back(a);  // '-' included
    }
  }

  std::map<const CLI::Option*, size_t> seen;
  for (const CLI::Option* o : app.parse_order()) {
    const auto it = declared.find(o);
    if (it == declared.end()) continue;
    const size_t k = seen[o]++;
    const std::string& result = o->results().at(k);
    // A flag given as --name=VALUE holds VALUE instead of CLI11's "true".
    if (!it->second.takes_value && result != "true") return cmd.usage_error(it->second.name + " takes no value");
    const char* value = it->second.takes_value ? result.c_str() : nullptr;
    if (const int rc = option(it->second.name, value); rc != 0) return rc;
  }

  if (positional->size() > args.max) return cmd.usage_error("unexpected argument '" + (*positional)[args.max] + "'");
  if (positional->size() < args.min) return cmd.usage_error(std::string("expected ") + args.shape);
  return 0;
}

int parse_in_out_command_line(const Command& cmd, int argc, char** argv, const char* usage,
                              std::initializer_list<OptionDecl> options, const OptionCallback& option,
                              const char* shape, std::string* in, std::string* out) {
  std::vector<std::string> files;
  if (const int rc = parse_command_line(cmd, argc, argv, usage, options, option, {1, 2, shape}, &files); rc != 0)
    return rc;
  *out = files.back();
  if (files.size() == 2) *in = files.front();
  return 0;
}

}  // namespace kafx_tool
