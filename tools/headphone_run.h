// `kafx headphone`: runs a WAV file (or the built-in programme) through the
// headphone front end with a calibration record.
#ifndef KAFX_TOOLS_HEADPHONE_RUN_H
#define KAFX_TOOLS_HEADPHONE_RUN_H

// argv[0] is the sub-command name; returns the process exit code
// (0 success, 1 processing or file error, 2 bad arguments).
int kafx_headphone_main(int argc, char** argv);

// The sub-command's usage text.
const char* kafx_headphone_usage();

// Preset 4's reverb settings when none are given (room, damp, wet, dry,
// width, gain): a medium room, the dry signal at unity.
extern const int kHeadphoneDefaultReverb[6];

#endif
