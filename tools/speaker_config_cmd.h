// `kafx speaker-config`: loads speaker configuration files the way the
// library does and reports the parsed record and what every element did.
#ifndef KAFX_TOOLS_SPEAKER_CONFIG_CMD_H
#define KAFX_TOOLS_SPEAKER_CONFIG_CMD_H

// argv[0] is the sub-command name; returns the process exit code
// (0 every file loaded, 1 a file could not be loaded, 2 bad arguments).
int kafx_speaker_config_main(int argc, char** argv);

// The sub-command's usage text.
const char* kafx_speaker_config_usage();

#endif
