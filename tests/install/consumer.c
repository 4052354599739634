/* A C host built against the installed library: compiles every public
 * header as C and runs the speaker product for one block. */
#include <kafx_proc.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  short buf[2 * 480];
  void* h = kafx_speaker_boost_init(2, 48000, 1);
  if (h == NULL) return 1;
  for (int i = 0; i < 2 * 480; ++i) buf[i] = (short)(i * 37);
  kafx_speaker_boost_process(h, buf, sizeof buf);
  kafx_speaker_boost_deinit(h);
  /* Output frame 239 is input frame 0, all blocks at their defaults. */
  if (buf[2 * 239] != 0 || buf[2 * 239 + 1] != 37 || buf[2 * 240] != 74) {
    fprintf(stderr, "unexpected output %d %d %d\n", buf[2 * 239], buf[2 * 239 + 1], buf[2 * 240]);
    return 1;
  }
  printf("consumer ok\n");
  return 0;
}
