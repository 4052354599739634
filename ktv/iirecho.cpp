// IIR echo: an IIR comb per channel (the right loop 24 samples longer) mixed
// with the dry voice by Q13 gains.
#include "kafx_proc/iirecho.h"

#include "common/delay.h"
#include "common/fixed_point.h"
#include "common/lifecycle.h"

using namespace kafx;

namespace {

constexpr int32_t kSamplesPerMs = 48;  // the echo's delay unit assumes 48 kHz
constexpr int32_t kRightExtra = 24;    // half a millisecond of spread

// Feedback and delay into both combs, then clear them: a change cuts the
// running echo. The products wrap (a negative delay is passed on as it is).
void apply_settings(iirecho* e) {
  iircomber_setfeedback(e->left, e->feedback);
  iircomber_setfeedback(e->right, e->feedback);
  const int32_t samples = static_cast<int32_t>(static_cast<uint32_t>(e->delay) * kSamplesPerMs);
  iircomber_setdelay(e->left, samples);
  iircomber_setdelay(e->right, wrap_add(samples, kRightExtra));
  iircomber_reset(e->left);
  iircomber_reset(e->right);
}

// The comb has no end of its own: its loop buffer is freed here.
void free_loop(iircomber* c) { free_null(c->buffer); }

// (dry x + wet c) >> 13 in 64 bits, the low 32 bits kept, -1 flushed.
inline int32_t mix(int32_t x, int32_t c, int32_t dry, int32_t wet) {
  const int64_t acc = wrap_add64(static_cast<int64_t>(dry) * x, static_cast<int64_t>(wet) * c);
  return flush_m1(static_cast<int32_t>(acc >> 13));
}

}  // namespace

extern "C" {

void iirecho_init(iirecho* e) {
  e->status = 1;
  e->left = new_block<iircomber>(iircomber_init, IIRECHO_LEFT_CAPACITY);
  e->right = new_block<iircomber>(iircomber_init, IIRECHO_RIGHT_CAPACITY);
  e->feedback = 4096;
  // The settings are applied with a delay of 1 ms. (A first application with
  // the record's previous delay would be overwritten entirely by this one.)
  e->delay = 1;
  if (e->left != nullptr && e->right != nullptr) apply_settings(e);  // else half-built: the owner ends it
  e->dry = 2703;
  e->wet = 5489;
}

void iirecho_end(iirecho* e) {
  end_block(e->left, free_loop);
  end_block(e->right, free_loop);
}

void iirecho_update(iirecho* e) { apply_settings(e); }

void iirecho_setfeedback(iirecho* e, int feedback) {
  e->feedback = feedback;
  apply_settings(e);
}
void iirecho_getfeedback(iirecho* e, int* feedback) { *feedback = e->feedback; }

void iirecho_setdelay(iirecho* e, int ms) {
  e->delay = ms < IIRECHO_MAX_DELAY_MS ? ms : IIRECHO_MAX_DELAY_MS;
  apply_settings(e);
}
void iirecho_getdelay(iirecho* e, int* ms) { *ms = e->delay; }

void iirecho_setwet(iirecho* e, int wet) { e->wet = wet; }
void iirecho_getwet(iirecho* e, int* wet) { *wet = e->wet; }
void iirecho_setdry(iirecho* e, int dry) { e->dry = dry; }
void iirecho_getdry(iirecho* e, int* dry) { *dry = e->dry; }
void iirecho_setstatus(iirecho* e, int status) { e->status = status; }
void iirecho_getstatus(iirecho* e, int* status) { *status = e->status; }

void iirecho_processStereo(iirecho* e, int* in_left, int* in_right, int* out_left, int* out_right, int count) {
  // Both loops run side by side over a chunk, then the chunk is mixed; the
  // gains are read at every call, so a change made between calls acts at
  // once.
  constexpr int kChunk = 256;
  int32_t vl[kChunk], vr[kChunk];
  for (int done = 0; done < count;) {
    const int m = count - done < kChunk ? count - done : kChunk;
    kafx::iircomb_pair_run(e->left, e->right, in_left + done, in_right + done, vl, vr, m);
    const int32_t dry = e->dry, wet = e->wet;
    for (int i = 0; i < m; ++i) {
      out_left[done + i] = mix(in_left[done + i], vl[i], dry, wet);
      out_right[done + i] = mix(in_right[done + i], vr[i], dry, wet);
    }
    done += m;
  }
}

}  // extern "C"
