// TEMPORARY PASS-THROUGH: the howling canceller's interface only, so that the
// karaoke chain links; the analysis, notches and gain replace it shortly.
#include "kafx_proc/howling_canceling.h"

#include <cstring>

extern "C" {

int fft_power_current[128];
int fft_power_history[1024];

void howling_canceling_init(howlingCancel* h) {
  h->status = 0;
  h->gain = 8192;
  h->work = nullptr;
}
void howling_canceling_reset(howlingCancel*) {}
void howling_canceling_end(howlingCancel* h) { h->work = nullptr; }
void howling_canceling_setstatus(howlingCancel* h, int status) { h->status = status; }
void howling_canceling_getstatus(howlingCancel* h, int* status) { *status = h->status; }
void howling_canceling_process(howlingCancel* h, int* in, int* out, int count) {
  if (h == nullptr || count < 1 || in == out) return;
  std::memmove(out, in, static_cast<size_t>(count) * sizeof(int));
}
void howling_canceling_getnotch(howlingCancel*, int, int* state, int* centre) {
  *state = 0;
  *centre = 0;
}
int find_freq_idx(int) { return 0; }
int cal_zero_cross(const int*, int) { return 0; }

}  // extern "C"
