// `kafx ns`: runs a WAV file through the fixed-point noise suppressor.
// `kafx ns-quality`: measures the suppressor on synthetic noisy speech.
#ifndef KAFX_TOOLS_NS_RUN_H
#define KAFX_TOOLS_NS_RUN_H

// argv[0] is the sub-command name; returns the process exit code
// (0 success, 1 processing or file error, 2 bad arguments).
int kafx_ns_main(int argc, char** argv);
int kafx_ns_quality_main(int argc, char** argv);

#endif
