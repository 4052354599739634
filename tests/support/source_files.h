// Files of the source tree (examples, committed tables, the export list) and
// whole-file reads for the tests that compare against them.
#ifndef KAFX_TESTS_SUPPORT_SOURCE_FILES_H
#define KAFX_TESTS_SUPPORT_SOURCE_FILES_H

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace kafx_test {

// The source tree's root: ctest names it; by hand, the build's default or the
// working directory.
inline std::string source_dir() {
  const char* root = std::getenv("KAFX_SOURCE_DIR");
#ifdef KAFX_SOURCE_DIR_DEFAULT
  if (root == nullptr) root = KAFX_SOURCE_DIR_DEFAULT;
#endif
  return root != nullptr ? root : ".";
}

inline std::string source_file(const std::string& relative) { return source_dir() + "/" + relative; }

// The whole file, byte for byte ("" when it cannot be read).
inline std::string slurp(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

inline std::string repeat(const std::string& s, int n) {
  std::string out;
  while (n-- > 0) out += s;
  return out;
}

}  // namespace kafx_test

#endif
