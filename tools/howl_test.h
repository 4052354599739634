// `kafx howl-test`: closed-loop feedback simulation of the howling canceller
// on built-in synthetic rooms or a measured room impulse response; prints
// the largest stable loop gain with and without the canceller.
#ifndef KAFX_TOOLS_HOWL_TEST_H
#define KAFX_TOOLS_HOWL_TEST_H

// argv[0] is the sub-command name; returns the process exit code
// (0 success, 1 file error, 2 bad arguments).
int kafx_howl_test_main(int argc, char** argv);

#endif
