// Voice compressor: one dynamic range controller per channel with a shared
// tuning (threshold 30720 in 16-bit units, attack order 0, release order 7,
// no expander worth the name: denoise threshold 1, stored as 2). The
// compressor's Q13 volume is each controller's make-up volume.
#include "kafx_proc/compressor.h"

#include "common/drc_block.h"
#include "common/lifecycle.h"

namespace {

constexpr int kInitFrameLen = 960;  // the 5 ms block of 192 kHz, until a rate is set
constexpr int kThreshold = 30720;
constexpr int kDenoiseThreshold = 1;
constexpr int kAttackOrder = 0;
constexpr int kReleaseOrder = 7;

// 5 ms blocks of the four rate classes; other classes act as 48000 Hz.
int frame_length(SampleRateType rate) {
  constexpr int kFrames[4] = {220, 240, 480, 960};
  return kFrames[kafx::rate_index(rate)];
}

// A channel's controller with the shared tuning and the given make-up volume.
void controller_init(dynamic_range_control_t* d, int volume, int delay_frames) {
  dynamic_range_control_init(d, delay_frames, kInitFrameLen);
  dynamic_range_control_set_threshold(d, kThreshold);
  dynamic_range_control_set_denoise_threshold(d, kDenoiseThreshold);
  dynamic_range_control_set_volume(d, volume);
  dynamic_range_control_set_attact_order(d, kAttackOrder);
  dynamic_range_control_set_release_order(d, kReleaseOrder);
}

}  // namespace

extern "C" {

// The status is left to the owner's choice in principle; it starts at 0.
void compressor_init(compressor_t* c, int volume, int delay_frames) {
  c->status = 0;
  c->volume = volume;
  c->delay_frames = delay_frames;
  c->drc_left = kafx::new_block<dynamic_range_control_t>(controller_init, volume, delay_frames);
  c->drc_right = kafx::new_block<dynamic_range_control_t>(controller_init, volume, delay_frames);
}

void compressor_reset(compressor_t* c) {
  dynamic_range_control_reset(c->drc_left);
  dynamic_range_control_reset(c->drc_right);
}

void compressor_set_sample_rate(compressor_t* c, SampleRateType rate) {
  const int n = frame_length(rate);
  dynamic_range_control_reinit(c->drc_left, n);
  dynamic_range_control_reinit(c->drc_right, n);
}

void compressor_end(compressor_t* c) {
  kafx::end_block(c->drc_left, dynamic_range_control_end);
  kafx::end_block(c->drc_right, dynamic_range_control_end);
}

void compressor_set_volume(compressor_t* c, int volume) {
  c->volume = volume;
  dynamic_range_control_set_volume(c->drc_left, volume);
  dynamic_range_control_set_volume(c->drc_right, volume);
}

void compressor_get_volume(compressor_t* c, int* volume) { *volume = c->volume; }
void compressor_setstatus(compressor_t* c, int status) { c->status = status; }
void compressor_getstatus(compressor_t* c, int* status) { *status = c->status; }

void compressor_process(compressor_t* c, int* in_left, int* in_right, int* out_left, int* out_right, int count) {
  kafx::dynamic_range_control_process_pair(c->drc_left, in_left, out_left, c->drc_right, in_right, out_right, count);
}

}  // extern "C"
