// kafx_calgen: writes the library's generated calibration tables.
//
//   kafx_calgen [--out DIR] [BLOCK...]   write the tables of the named blocks
//                                        (all when none is named) under DIR
//                                        (default: the current directory,
//                                        meant to be the repository root;
//                                        missing folders are created)
//   kafx_calgen --stdout BLOCK           print one table file
//   kafx_calgen --list                   list the blocks and their files
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "calgen.h"

namespace {

int usage() {
  std::fputs("usage: kafx_calgen [--out DIR] [BLOCK...] | --stdout BLOCK | --list\n", stderr);
  return 2;
}

bool write_file(const std::string& path, const std::string& text) {
  std::error_code ec;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  return std::fclose(f) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
  std::string out = ".";
  std::vector<const calgen::Generator*> chosen;
  bool to_stdout = false;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--list") {
      size_t n = 0;
      const calgen::Generator* g = calgen::generators(&n);
      for (size_t k = 0; k < n; ++k) std::printf("%-24s %-44s %s\n", g[k].block, g[k].path, g[k].about);
      return 0;
    }
    if (a == "--out" && i + 1 < argc) {
      out = argv[++i];
    } else if (a == "--stdout") {
      to_stdout = true;
    } else if (!a.empty() && a[0] == '-') {
      return usage();
    } else {
      const calgen::Generator* g = calgen::find_generator(a);
      if (g == nullptr) {
        std::fprintf(stderr, "kafx_calgen: no generator for block '%s' (see --list)\n", a.c_str());
        return 2;
      }
      chosen.push_back(g);
    }
  }
  if (chosen.empty()) {
    if (to_stdout) return usage();
    size_t n = 0;
    const calgen::Generator* g = calgen::generators(&n);
    for (size_t k = 0; k < n; ++k) chosen.push_back(&g[k]);
  }
  if (to_stdout) {
    if (chosen.size() != 1) return usage();
    const std::string text = chosen[0]->generate();
    std::fwrite(text.data(), 1, text.size(), stdout);
    return 0;
  }
  for (const calgen::Generator* g : chosen) {
    const std::string path = out + "/" + g->path;
    if (!write_file(path, g->generate())) {
      std::fprintf(stderr, "kafx_calgen: cannot write %s\n", path.c_str());
      return 1;
    }
    std::printf("wrote %s\n", path.c_str());
  }
  return 0;
}
