/*
 * A minimal host of libkafx_proc, as an audio service uses it: one speaker
 * handle for a 48 kHz stereo 16-bit stream, an optional configuration file,
 * fixed 10 ms buffers processed in place, and the product's latency taken
 * into account (the first `latency` output frames belong to no input frame,
 * and that many frames of silence push the last input frames out).
 *
 * Build against the installed library:
 *   cc -std=c11 host_speaker.c $(pkg-config --cflags --libs kafx_proc) -o host_speaker
 *   ./host_speaker [speaker.xml]
 * Prints the latency and the level of a 1 kHz tone before and after; exits
 * non-zero when the library misbehaves.
 */
#include <kafx_proc.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define RATE 48000
#define FRAMES 480 /* 10 ms per buffer */
#define SECONDS 1

static double peak_db(const short* s, size_t n) {
  int peak = 0;
  for (size_t i = 0; i < n; ++i) {
    const int v = abs(s[i]);
    if (v > peak) peak = v;
  }
  return peak > 0 ? 20.0 * log10(peak / 32768.0) : -INFINITY;
}

int main(int argc, char** argv) {
  void* sp = kafx_speaker_boost_init(2, RATE, KAFX_FORMAT_PCM16);
  if (sp == NULL) return 1;
  if (argc > 1 && kafx_speaker_boost_loadconfig(sp, argv[1]) != 0) {
    fprintf(stderr, "cannot load %s\n", argv[1]);
    kafx_speaker_boost_deinit(sp);
    return 1;
  }
  const int latency = kafx_speaker_boost_get_latency(sp);

  /* The programme: one second of a 1 kHz tone at -12 dBFS, then `latency`
   * frames of silence that flush the product's delay. */
  const size_t total = (size_t)RATE * SECONDS + (size_t)latency;
  const size_t buffers = (total + FRAMES - 1) / FRAMES;
  short* audio = calloc(buffers * FRAMES * 2, sizeof(short));
  if (audio == NULL) return 1;
  for (size_t f = 0; f < (size_t)RATE * SECONDS; ++f) {
    const short v = (short)lrint(8192.0 * sin(2.0 * 3.14159265358979 * 1000.0 * (double)f / RATE));
    audio[2 * f] = audio[2 * f + 1] = v;
  }
  const double in_db = peak_db(audio, (size_t)RATE * SECONDS * 2);
  for (size_t b = 0; b < buffers; ++b)
    kafx_speaker_boost_process(sp, audio + b * FRAMES * 2, FRAMES * 2 * sizeof(short));
  kafx_speaker_boost_deinit(sp);

  /* Output frame k + latency belongs to input frame k. */
  const short* aligned = audio + (size_t)latency * 2;
  const double out_db = peak_db(aligned, (size_t)RATE * SECONDS * 2);
  printf("speaker product: latency %d frames (%.2f ms), tone peak %.2f dBFS in, %.2f dBFS out\n", latency,
         latency * 1000.0 / RATE, in_db, out_db);

  void* hp = kafx_hp_effect_init(RATE, KAFX_FORMAT_PCM16);
  const int hp_latency = kafx_hp_effect_get_latency(hp);
  kafx_hp_effect_deinit(hp);
  printf("headphone product: latency %d frames\n", hp_latency);
  free(audio);
  return latency >= KAFX_SPEAKER_BOOST_BLOCK - 1 && out_db > -40.0 && hp_latency >= 0 ? 0 : 1;
}
