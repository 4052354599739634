// kafx: command-line front door to libkafx_proc's speaker product.
//
//   kafx speaker [options] [IN.wav] OUT.wav   process audio (see speaker_run.cpp)
//   kafx speaker-config FILE...               load and report configuration files
//   kafx speaker-design ...                   write a configuration from a tuning
//
// Each sub-command receives argv starting at its own name. Exit codes:
// 0 success, 1 processing or file error, 2 bad arguments.
#include <cstdio>
#include <cstring>

#include "howl_test.h"
#include "ktv_run.h"
#include "headphone_run.h"
#include "ns_run.h"
#if KAFX_HAVE_PLOT
#include "plot_cmd.h"
#endif
#include "speaker_config_cmd.h"
#include "speaker_design.h"
#include "speaker_run.h"

namespace {

void print_usage(FILE* out) {
  std::fputs(
      "usage: kafx <command> [arguments]\n"
      "\n"
      "commands:\n"
      "  speaker [options] [IN.wav] OUT.wav\n"
      "                   run a WAV file (or a built-in excerpt) through the\n"
      "                   speaker-boost front end\n"
      "  speaker-config FILE...\n"
      "                   load speaker configuration files as the library does\n"
      "                   and report the parsed parameters\n"
      "  speaker-design ...\n"
      "                   turn a readable speaker tuning (equalizer bands, limiter\n"
      "                   levels, gains) into a speaker configuration file\n"
      "  plot speaker CONFIG.xml [-o OUT.png] [--csv OUT.csv]\n"
      "                   draw the equalizer response of a configuration and the\n"
      "                   speaker boost system's filters (PNG, text); also\n"
      "                   'plot headphone', 'plot geq' and 'plot spectrogram IN.wav\n"
      "                   OUT.wav' (see 'kafx plot --help')\n"
      "  ktv [options] [VOICE.wav] OUT.wav\n"
      "                   run a mono voice (or a built-in sung phrase) through the\n"
      "                   karaoke voice chain into a stereo file\n"
      "  howl-test [--room RIR.wav] [--howling on|off] [--ramp SECONDS]\n"
      "                   closed-loop feedback simulation: the largest stable loop\n"
      "                   gain of a room with and without the howling canceller\n"
      "  headphone [options] [IN.wav] OUT.wav\n"
      "                   run a WAV file (or a built-in excerpt) through the\n"
      "                   headphone effect with a calibration record\n"
      "  ns [--policy 0..3] IN.wav OUT.wav\n"
      "                   run a mono or stereo WAV file through the fixed-point\n"
      "                   noise suppressor\n"
      "  ns-quality [--rate HZ]\n"
      "                   print the suppressor's noise attenuation and speech level\n"
      "                   figures on synthetic noisy speech\n"
      "\n"
      "'kafx <command> --help' describes a command; 'kafx --version' prints the\n"
      "version. The audio commands take '-' for standard input or output and\n"
      "--strict to make every warning about the input an error.\n",
      out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    print_usage(stderr);
    return 2;
  }
  const char* cmd = argv[1];
  if (std::strcmp(cmd, "-h") == 0 || std::strcmp(cmd, "--help") == 0 || std::strcmp(cmd, "help") == 0) {
    print_usage(stdout);
    return 0;
  }
  if (std::strcmp(cmd, "--version") == 0 || std::strcmp(cmd, "version") == 0) {
    std::printf("kafx %s (libkafx_proc)\n", KAFX_VERSION);
    return 0;
  }
  if (std::strcmp(cmd, "speaker") == 0) return kafx_speaker_main(argc - 1, argv + 1);
  if (std::strcmp(cmd, "speaker-config") == 0) return kafx_speaker_config_main(argc - 1, argv + 1);
  if (std::strcmp(cmd, "speaker-design") == 0) return kafx_speaker_design_main(argc - 1, argv + 1);
  if (std::strcmp(cmd, "plot") == 0) {
#if KAFX_HAVE_PLOT
    return kafx_plot_main(argc - 1, argv + 1);
#else
    std::fprintf(stderr, "kafx: this build has no plot command (PLplot was not found when it was built)\n");
    return 2;
#endif
  }
  if (std::strcmp(cmd, "headphone") == 0) return kafx_headphone_main(argc - 1, argv + 1);
  if (std::strcmp(cmd, "ktv") == 0) return kafx_ktv_main(argc - 1, argv + 1);
  if (std::strcmp(cmd, "howl-test") == 0) return kafx_howl_test_main(argc - 1, argv + 1);
  if (std::strcmp(cmd, "ns") == 0) return kafx_ns_main(argc - 1, argv + 1);
  if (std::strcmp(cmd, "ns-quality") == 0) return kafx_ns_quality_main(argc - 1, argv + 1);
  std::fprintf(stderr, "kafx: unknown command '%s'\n\n", cmd);
  print_usage(stderr);
  return 2;
}
