// `kafx plot`: pictures of a tuning (PNG through PLplot's cairo driver) and
// the same data as text.
#ifndef KAFX_TOOLS_PLOT_CMD_H
#define KAFX_TOOLS_PLOT_CMD_H

// argv[0] is the sub-command name; returns the process exit code
// (0 success, 1 file or plotting error, 2 bad arguments).
int kafx_plot_main(int argc, char** argv);

const char* kafx_plot_usage();

#endif
