// Shell command prefix that runs a program of this build: on a cross build
// tested under an emulator (qemu-user), the emulator first
// (KAFX_TEST_EMULATOR, set by tests/CMakeLists.txt from
// CMAKE_CROSSCOMPILING_EMULATOR), then the quoted path.
#ifndef KAFX_TESTS_SUPPORT_PROGRAM_COMMAND_H
#define KAFX_TESTS_SUPPORT_PROGRAM_COMMAND_H

#include <string>

namespace kafx_test {

inline std::string program_command(const std::string& path) {
  std::string command;
#ifdef KAFX_TEST_EMULATOR
  command += KAFX_TEST_EMULATOR;
  command += ' ';
#endif
  command += '\'';
  command += path;
  command += '\'';
  return command;
}

}  // namespace kafx_test

#endif
