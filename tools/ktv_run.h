// `kafx ktv`: runs a mono voice WAV file (or a built-in sung phrase) through
// the karaoke front end and writes the stereo result.
#ifndef KAFX_TOOLS_KTV_RUN_H
#define KAFX_TOOLS_KTV_RUN_H

// argv[0] is the sub-command name; returns the process exit code
// (0 success, 1 processing or file error, 2 bad arguments).
int kafx_ktv_main(int argc, char** argv);

// The sub-command's usage text.
const char* kafx_ktv_usage();

#endif
