// `kafx speaker-design`: turns a readable speaker tuning (equalizer bands as
// type / frequency / Q / gain, limiters in dBFS, gains in dB) into the XML
// configuration file the speaker product loads.
#ifndef KAFX_TOOLS_SPEAKER_DESIGN_H
#define KAFX_TOOLS_SPEAKER_DESIGN_H

// argv[0] is the sub-command name; returns the process exit code
// (0 success, 1 design or file error, 2 bad arguments).
int kafx_speaker_design_main(int argc, char** argv);

// The sub-command's usage text (also describes the design file format).
const char* kafx_speaker_design_usage();

#endif
