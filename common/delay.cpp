// Circular-buffer blocks: pure delay, Schroeder all-pass, damped feedback
// comb (Q28 loop) and the IIR comb of the echo (wrap-around loop).
#include "kafx_proc/delay.h"

#include <cstdlib>
#include <cstring>

#include "common/delay.h"
#include "common/fixed_point.h"
#include "common/lifecycle.h"

using namespace kafx;

namespace {

void clear_words(int32_t* p, int len) {
  if (p != nullptr && len > 0) std::memset(p, 0, static_cast<size_t>(len) * sizeof(int32_t));
}

// One step of the damped comb at its loop position (kernel in delay.h).
template <int S>
int32_t comb_step(int32_t x, comber* c) {
  const int32_t out =
      comb_tick<S>(x, c->buffer + c->index, c->lowpass_state, c->damp, c->damp_complement, c->feedback);
  c->index = next_index(c->index, c->size);
  return out;
}

}  // namespace

extern "C" {

// ---------------------------------------------------------------------------
// audio_delay

void audio_delay_init(audio_delay* d, int len) {
  d->size = len;
  d->delay = len;
  d->index = 0;
  d->buffer = alloc_words(len);
}

void audio_delay_reinit(audio_delay* d, int len) {
  d->delay = len < d->size ? len : d->size;
  clear_words(d->buffer, d->delay);
}

void audio_delay_set_delay(audio_delay* d, int len) { d->delay = len < d->size ? len : d->size; }

void audio_delay_get_delay(audio_delay* d, int* len) { *len = d->delay; }

void audio_delay_reset(audio_delay* d) {
  d->index = 0;
  clear_words(d->buffer, d->size);
}

void audio_delay_end(audio_delay* d) {
  free_null(d->buffer);
  d->size = 0;
  d->delay = 0;
  d->index = 0;
}

int audio_delay_process(audio_delay* d, int x) { return delay_tick(d->buffer, d->delay, d->index, x); }

// ---------------------------------------------------------------------------
// allpass: y = g x + w[n-N], w[n] = x - g y, saturating at every step;
// H(z) = (g + z^-N) / (1 + g z^-N)

void allpass_init(allpass* a, int len) {
  a->feedback = 4096;
  a->size = len;
  a->index = 0;
  a->buffer = alloc_words(len);
}

void allpass_reset(allpass* a) {
  a->index = 0;
  clear_words(a->buffer, a->size);
}

void allpass_end(allpass* a) {
  free_null(a->buffer);
}

void allpass_setfeedback(allpass* a, int feedback) { a->feedback = feedback; }

void allpass_getfeedback(allpass* a, int* feedback) { *feedback = a->feedback; }

int allpass_process(int x, allpass* a) {
  const int32_t y = allpass_tick(x, a->buffer + a->index, a->feedback);
  a->index = next_index(a->index, a->size);
  return y;
}

// ---------------------------------------------------------------------------
// comber

void comb_init(comber* c, int len) {
  c->feedback = 4096;
  c->lowpass_state = 0;
  c->damp = 8192;
  c->damp_complement = 0;
  c->size = len;
  c->index = 0;
  c->buffer = alloc_words(len);
}

void comb_reset(comber* c) {
  c->index = 0;
  c->lowpass_state = 0;
  clear_words(c->buffer, c->size);
}

void comb_end(comber* c) {
  free_null(c->buffer);
}

void comb_setfeedback(comber* c, int feedback) { c->feedback = feedback; }

void comb_setsetdamp(comber* c, int damp) {
  c->damp = damp;
  c->damp_complement = wrap_sub(kQ13One, damp);
}

int comb_process_16(int x, comber* c) { return comb_step<13>(x, c); }

int comb_process_24(int x, comber* c) { return comb_step<5>(x, c); }

// ---------------------------------------------------------------------------
// iircomber: loop filter y = (b0 w + b1 w[n-1] - a1 y[n-1]) / 8192 on the
// delayed sample w, fed back with gain `feedback`; everything wraps.

void iircomber_init(iircomber* c, int len) {
  c->size = len;
  c->index = 0;
  c->feedback = 4096;
  c->b0 = 4096;
  c->b1 = 4096;
  c->a1 = 5734;
  c->delay = 0;
  c->x1 = 0;
  c->y1 = 0;
  c->buffer = alloc_words(len);
}

void iircomber_reset(iircomber* c) {
  c->index = 0;
  c->x1 = 0;
  c->y1 = 0;
  clear_words(c->buffer, c->size);
}

void iircomber_setdelay(iircomber* c, int len) { c->delay = len < c->size ? len : c->size; }

void iircomber_getdelay(iircomber* c, int* len) { *len = c->delay; }

void iircomber_setfeedback(iircomber* c, int feedback) { c->feedback = feedback; }

void iircomber_getfeedback(iircomber* c, int* feedback) { *feedback = c->feedback; }

int iircomber_process(int x, iircomber* c) {
  const int32_t v = iircomb_tick(x, &c->buffer[c->index], c->x1, c->y1, c->b0, c->b1, c->a1, c->feedback);
  c->index = next_index(c->index, c->delay);
  return v;
}

}  // extern "C"
