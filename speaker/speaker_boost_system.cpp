// Speaker boost system: pre-filter, three cascaded two-way crossovers per
// channel (four bands), limiters on the three upper bands, harmonic bass
// generated from the mono lowest band in place of that band, recombination
// and a full-band limiter per channel.
#include "kafx_proc/speaker_boost_system.h"

#include <cstdlib>
#include <cstring>

#include "common/band_split_block.h"
#include "common/biquad.h"
#include "common/delay.h"
#include "common/drc_block.h"
#include "common/fixed_point.h"
#include "common/lifecycle.h"
#include "common/nld_kernels.h"
#include "speaker/speaker_boost_system_tables.h"

using namespace kafx;

namespace {

constexpr int kMaxBlock = SPEAKER_BOOST_SYSTEM_MAX_BLOCK;
constexpr int kDefaultLookahead = 2;
constexpr int kDefaultFrameLen = 960;

// The six crossovers in table order: split1..3 left, then split1..3 right.
spectral_band_split** crossover(speaker_boost_system_t* s, int i) {
  spectral_band_split** all[6] = {&s->split1_left,  &s->split2_left,  &s->split3_left,
                                  &s->split1_right, &s->split2_right, &s->split3_right};
  return all[i];
}

dynamic_range_control_t** limiter(speaker_boost_system_t* s, int i) {
  dynamic_range_control_t** all[8] = {&s->drc_low_left,  &s->drc_mid_left,  &s->drc_high_left,
                                      &s->drc_low_right, &s->drc_mid_right, &s->drc_high_right,
                                      &s->drc_full_left, &s->drc_full_right};
  return all[i];
}

int32_t** band_buffer(speaker_boost_system_t* s, int i) {
  int32_t** all[10] = {&s->band0_left,  &s->band1_left,  &s->band2_left,  &s->band3_left,  &s->sum_left,
                       &s->band0_right, &s->band1_right, &s->band2_right, &s->band3_right, &s->sum_right};
  return all[i];
}

IIR_t** biquad_member(speaker_boost_system_t* s, int i) {
  IIR_t** all[3] = {&s->nld_filter, &s->pre_filter_left, &s->pre_filter_right};
  return all[i];
}

const int32_t* biquad_row(int which, int rate) {
  return which == 0 ? sbs_tables::kNldFilter[rate] : sbs_tables::kPreFilter[rate];
}

// Four bands of one channel: band3 holds the pre-filtered input on entry and
// leaves with the highest band; each crossover peels its low branch off.
inline void split4(spectral_band_split* s1, spectral_band_split* s2, spectral_band_split* s3, int32_t* b0,
                   int32_t* b1, int32_t* b2, int32_t* b3, int count) {
  band_split_block(s1, b3, b0, count);
  band_split_block(s2, b3, b1, count);
  band_split_block(s3, b3, b2, count);
}

// The harmonic band into one channel: Q13 gain, then the alignment delay.
inline void harmonic_band(int32_t gain, const int32_t* h, audio_delay* delay, int32_t* band, int count) {
  for (int i = 0; i < count; ++i) band[i] = shr_sat<13>(static_cast<int64_t>(gain) * h[i]);
  delay_run(delay->buffer, delay->delay, delay->index, band, count, [band](int i, int32_t v) { band[i] = v; });
}

inline void recombine(const int32_t* b0, const int32_t* b1, const int32_t* b2, const int32_t* b3, int32_t* sum,
                      int count) {
  for (int i = 0; i < count; ++i) sum[i] = wrap_add(wrap_add(b0[i], b1[i]), wrap_add(b2[i], b3[i]));
}

inline void copy(int32_t* dst, const int* src, int count) {
  if (count > 0) std::memcpy(dst, src, static_cast<size_t>(count) * sizeof(int32_t));
}

// Each filter runs over the whole block in turn; every filter still sees its
// samples in order, so this is the per-sample chain of the design exactly.
// The NLD's clip limit glides per sample, so it runs sample by sample.
void process_stereo_block(speaker_boost_system_t* s, const int* in_left, const int* in_right, int* out_left,
                          int* out_right, int count) {
  copy(s->band3_left, in_left, count);
  copy(s->band3_right, in_right, count);
  biquad_block32_pair(s->pre_filter_left, s->band3_left, s->pre_filter_right, s->band3_right, count);
  spectral_band_split* const left[3] = {s->split1_left, s->split2_left, s->split3_left};
  spectral_band_split* const right[3] = {s->split1_right, s->split2_right, s->split3_right};
  int32_t* const low_left[3] = {s->band0_left, s->band1_left, s->band2_left};
  int32_t* const low_right[3] = {s->band0_right, s->band1_right, s->band2_right};
  band_split_chain_stereo(left, right, 3, s->band3_left, s->band3_right, low_left, low_right, count);
  // Harmonics of the mono bass (sum_left is scratch until the recombination).
  int32_t* h = s->sum_left;
  for (int i = 0; i < count; ++i) h[i] = wrap_add(s->band0_left[i], s->band0_right[i]) >> 1;
  nld_process_block(s->nld, h, h, count);
  biquad_block32(s->nld_filter, h, count);
  harmonic_band(s->nld_gain_left, h, s->nld_delay_left, s->band0_left, count);
  harmonic_band(s->nld_gain_right, h, s->nld_delay_right, s->band0_right, count);
  // Each band's two limiters advance side by side.
  dynamic_range_control_process_pair(s->drc_low_left, s->band1_left, s->band1_left, s->drc_low_right, s->band1_right,
                                     s->band1_right, count);
  dynamic_range_control_process_pair(s->drc_mid_left, s->band2_left, s->band2_left, s->drc_mid_right, s->band2_right,
                                     s->band2_right, count);
  dynamic_range_control_process_pair(s->drc_high_left, s->band3_left, s->band3_left, s->drc_high_right,
                                     s->band3_right, s->band3_right, count);
  recombine(s->band0_left, s->band1_left, s->band2_left, s->band3_left, s->sum_left, count);
  recombine(s->band0_right, s->band1_right, s->band2_right, s->band3_right, s->sum_right, count);
  dynamic_range_control_process_pair(s->drc_full_left, s->sum_left, out_left, s->drc_full_right, s->sum_right,
                                     out_right, count);
}

void process_mono_block(speaker_boost_system_t* s, const int* in, int* out, int count) {
  copy(s->band3_left, in, count);
  biquad_block32(s->pre_filter_left, s->band3_left, count);
  split4(s->split1_left, s->split2_left, s->split3_left, s->band0_left, s->band1_left, s->band2_left,
         s->band3_left, count);
  int32_t* h = s->sum_left;
  nld_process_block(s->nld, s->band0_left, h, count);
  biquad_block32(s->nld_filter, h, count);
  harmonic_band(s->nld_gain_left, h, s->nld_delay_left, s->band0_left, count);
  dynamic_range_control_process(s->drc_low_left, s->band1_left, s->band1_left, count);
  dynamic_range_control_process(s->drc_mid_left, s->band2_left, s->band2_left, count);
  dynamic_range_control_process(s->drc_high_left, s->band3_left, s->band3_left, count);
  recombine(s->band0_left, s->band1_left, s->band2_left, s->band3_left, s->sum_left, count);
  dynamic_range_control_process(s->drc_full_left, s->sum_left, out, count);
}

}  // namespace

extern "C" {

void speaker_boost_system_init(speaker_boost_system_t* s) {
  s->status = 0;
  s->nld_gain_left = kQ13One;
  s->nld_gain_right = kQ13One;
  s->channel_num = 2;
  const auto& xo = sbs_tables::kCrossover48000;
  for (int i = 0; i < 6; ++i) {
    const int pair = i % 3;
    // A record that cannot be allocated stays null (see common/lifecycle.h).
    *crossover(s, i) =
        new_block<spectral_band_split>(spectral_band_split_init, xo.coef[2 * pair], xo.coef[2 * pair + 1]);
  }
  s->nld = new_block<NLD>(NLD_init);
  for (int i = 0; i < 3; ++i) *biquad_member(s, i) = new_block<IIR_t>(IIR_init, biquad_row(i == 0 ? 0 : 1, 1));
  s->lookahead = kDefaultLookahead;
  s->frame_len = kDefaultFrameLen;
  s->nld_delay_left = new_block<audio_delay>(audio_delay_init, s->lookahead * s->frame_len);
  s->nld_delay_right = new_block<audio_delay>(audio_delay_init, s->lookahead * s->frame_len);
  for (int i = 0; i < 8; ++i)
    *limiter(s, i) = new_block<dynamic_range_control_t>(dynamic_range_control_init, s->lookahead, s->frame_len);
  for (int i = 0; i < 10; ++i) *band_buffer(s, i) = alloc_words(kMaxBlock);
}

void speaker_boost_system_set_sample_rate(speaker_boost_system_t* s, SampleRateType rate) {
  const int r = rate_index(rate);
  s->frame_len = sbs_tables::kFrameLen[r];
  const auto& xo = sbs_tables::crossover_for(r);
  for (int i = 0; i < 6; ++i) {
    const int pair = i % 3;
    spectral_band_split_reinit(*crossover(s, i), xo.coef[2 * pair], xo.coef[2 * pair + 1]);
  }
  for (int i = 0; i < 3; ++i) IIR_reinit(*biquad_member(s, i), biquad_row(i == 0 ? 0 : 1, r));
  for (int i = 0; i < 8; ++i) dynamic_range_control_reinit(*limiter(s, i), s->frame_len);
  audio_delay_reinit(s->nld_delay_left, s->lookahead * s->frame_len);
  audio_delay_reinit(s->nld_delay_right, s->lookahead * s->frame_len);
}

void speaker_boost_system_reset(speaker_boost_system_t* s) {
  for (int i = 0; i < 6; ++i) spectral_band_split_reset(*crossover(s, i));
  NLD_reset(s->nld);
  for (int i = 0; i < 3; ++i) IIR_reset(*biquad_member(s, i));
  for (int i = 0; i < 8; ++i) dynamic_range_control_reset(*limiter(s, i));
  audio_delay_reset(s->nld_delay_left);
  audio_delay_reset(s->nld_delay_right);
  for (int i = 0; i < 10; ++i) std::memset(*band_buffer(s, i), 0, kMaxBlock * sizeof(int32_t));
}

void speaker_boost_system_end(speaker_boost_system_t* s) {
  // Members an init could not allocate are null; they are skipped.
  for (int i = 0; i < 6; ++i) end_block(*crossover(s, i), spectral_band_split_end);
  end_block(s->nld, NLD_end);
  for (int i = 0; i < 3; ++i) end_block(*biquad_member(s, i), IIR_end);
  end_block(s->nld_delay_left, audio_delay_end);
  end_block(s->nld_delay_right, audio_delay_end);
  for (int i = 0; i < 8; ++i) end_block(*limiter(s, i), dynamic_range_control_end);
  for (int i = 0; i < 10; ++i) free_null(*band_buffer(s, i));
}

void speaker_boost_system_setstatus(speaker_boost_system_t* s, int v) { s->status = v; }
void speaker_boost_system_getstatus(speaker_boost_system_t* s, int* v) { *v = s->status; }
void speaker_boost_system_set_nld_gain_left(speaker_boost_system_t* s, int v) { s->nld_gain_left = v; }
void speaker_boost_system_get_nld_gain_left(speaker_boost_system_t* s, int* v) { *v = s->nld_gain_left; }
void speaker_boost_system_set_nld_gain_right(speaker_boost_system_t* s, int v) { s->nld_gain_right = v; }
void speaker_boost_system_get_nld_gain_right(speaker_boost_system_t* s, int* v) { *v = s->nld_gain_right; }
void speaker_boost_system_set_channel_num(speaker_boost_system_t* s, int v) { s->channel_num = v; }
void speaker_boost_system_get_channel_num(speaker_boost_system_t* s, int* v) { *v = s->channel_num; }
void speaker_boost_system_set_nld_param(speaker_boost_system_t* s, int* coef) { IIR_set_param(s->nld_filter, coef); }
void speaker_boost_system_get_nld_param(speaker_boost_system_t* s, int* coef) { IIR_get_param(s->nld_filter, coef); }

// The 80 limiter accessors are in speaker_boost_system_accessors.cpp.

// Blocks longer than the band buffers are processed in consecutive chunks of
// at most 256 samples (each chunk is one limiter block).
void speaker_boost_system_process_stereo(speaker_boost_system_t* s, int* in_left, int* in_right, int* out_left,
                                         int* out_right, int count) {
  if (count <= kMaxBlock) {
    process_stereo_block(s, in_left, in_right, out_left, out_right, count);
    return;
  }
  for (int done = 0; done < count; done += kMaxBlock) {
    const int n = count - done < kMaxBlock ? count - done : kMaxBlock;
    process_stereo_block(s, in_left + done, in_right + done, out_left + done, out_right + done, n);
  }
}

void speaker_boost_system_process_mono(speaker_boost_system_t* s, int* in, int* out, int count) {
  if (count <= kMaxBlock) {
    process_mono_block(s, in, out, count);
    return;
  }
  for (int done = 0; done < count; done += kMaxBlock) {
    const int n = count - done < kMaxBlock ? count - done : kMaxBlock;
    process_mono_block(s, in + done, out + done, n);
  }
}

}  // extern "C"
