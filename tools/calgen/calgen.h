// The calibration table generator: registry of the per-block generators and
// the helpers they share for writing table files.
#ifndef KAFX_TOOLS_CALGEN_CALGEN_H
#define KAFX_TOOLS_CALGEN_CALGEN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace calgen {

struct Generator {
  const char* block;  // name on the command line
  const char* path;   // output file, relative to the repository root
  const char* about;
  std::string (*generate)();
};

#define KAFX_CALGEN(block, path, about) std::string generate_##block();
#include "generators.def"
#undef KAFX_CALGEN

// All generators, in the order of generators.def.
const Generator* generators(size_t* count);
const Generator* find_generator(const std::string& block);

// Opening comment of a generated file: says it is generated and by which
// command, followed by the design notes (each line gets the comment prefix).
std::string file_header(const Generator& g, const std::string& design);

// One five-value row "{b0, b1, b2, a1, a2},", padded, with a trailing comment.
std::string row5(const std::array<int32_t, 5>& c, const std::string& comment);

}  // namespace calgen

#endif
