// Checks of a speaker configuration file shared by `kafx speaker-config`
// (which prints them) and `kafx speaker --config` (which warns on standard
// error): tokens that do not scan completely, unknown elements, and values
// that will clip; plus the record in engineering units.
#ifndef KAFX_TOOLS_SPEAKER_CONFIG_CHECK_H
#define KAFX_TOOLS_SPEAKER_CONFIG_CHECK_H

#include <cstdio>
#include <string>
#include <vector>

#include "kafx_proc/speaker_boost.h"

namespace kafx_tool {

struct ConfigFlag {
  int line;          // line of the element in the file (0: the record as a whole)
  std::string text;
};

struct ConfigCheck {
  bool loaded = false;        // the library accepts the file
  std::string load_error;     // why not (with the line of a malformed document)
  kafx_sp_params_t record{};  // as the library loads it into a zeroed record
  double rate = 48000;        // the equalizer's design rate (from the generator's comment)
  bool has_version = false;   // the first <version> under <kafxsp>
  std::string version;
  std::vector<ConfigFlag> flags;  // each makes `speaker-config` exit non-zero
  std::vector<std::string> notes; // worth knowing, not wrong
};

ConfigCheck check_speaker_config(const char* path);

// The record in engineering units, hex beside every value, one line each.
std::vector<std::string> describe_record(const kafx_sp_params_t& p, double rate);

// Writes "kafx speaker: warning: FILE:LINE: ..." for every flag to `out`;
// returns the number of flags (a file that does not load counts as one).
int warn_speaker_config(const char* path, FILE* out);

}  // namespace kafx_tool

#endif
