// Karaoke chain: howling canceller, gramophone, graphic equalizer, mono to
// stereo, reverb, IIR echo and compressor over one frame of 24-bit working
// samples at 48 kHz. The owned noise suppressor (32 kHz, between two
// resamplers) is switched off at the top of every frame.
#include "kafx_proc/ktv_chain.h"

#include <cstring>

#include "common/lifecycle.h"
#include "common/fixed_point.h"
#include "common/lanes_avx2.h"
#include "ktv/ktv_chain_kernels.h"

using namespace kafx;

extern "C" {
// Q20 high-pass at 32 kHz: 0.97949, -1.95898, 0.97949 | 1.95361, -0.95532.
const int kFilterCoefficients[5] = {1027072, -2054144, 1027072, 2048512, -1001728};
}

namespace {

constexpr int kFrameMax = KEDO_AUDIO_TX_KTV_MAX_FRAME;
constexpr int kNsRate = 32000;
constexpr int kVoiceRate = 48000;

int32_t* alloc_frame() { return kafx::alloc_words(kFrameMax); }

// A resampler set up for one conversion of the noise branch.
void resampler_setup(Resampler_t* r, int in_rate, int out_rate) {
  Resampler_init(r);
  Resampler_config(r, in_rate, out_rate);
}

// The noise branch: left to 16 bits in the memory of `right`, down to
// 32 kHz, high-pass sample by sample, one suppressor frame (160 samples for
// a 240-sample chain frame), back up to 48 kHz, and into left at 24 bits.
void noise_branch(kedo_audio_tx_ktv_t* c, int* left, int* right, int count) {
  auto* scratch = reinterpret_cast<short*>(right);
  for (int i = 0; i < count; ++i) scratch[i] = sat16(left[i] >> 8);
  int m = 0;
  Resampler_proc(c->down, scratch, count, scratch, count, &m);
  for (int i = 0; i < m; ++i) IIR_process_16(c->highpass, &scratch[i], &scratch[i]);
  kedoNs_ProcessCore(c->ns, scratch, scratch);
  Resampler_proc(c->up, scratch, m, scratch, count, &m);
  for (int i = 0; i < count; ++i) left[i] = scratch[i] * 256;
}

// A reverb setting, then the reverb's gains derived again.
void set_reverb(kedo_audio_tx_ktv_t* c, void (*set)(reverb_t*, int), int value) {
  set(c->reverb, value);
  reverb_update(c->reverb);
}

void frame_in16(const int16_t* in, int32_t* work, int n) {
  for (int i = 0; i < n; ++i) work[i] = in[i] * 256;
}

void frame_out16(const int32_t* left, const int32_t* right, int16_t* out_left, int16_t* out_right, int n) {
  for (int i = 0; i < n; ++i) {
    out_left[i] = sat16(left[i] >> 8);
    out_right[i] = sat16(right[i] >> 8);
  }
}

#if KAFX_AVX2_VARIANTS
KAFX_TARGET_AVX2 void frame_in16_avx2(const int16_t* in, int32_t* work, int n) {
  int i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256i x = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(&in[i])));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(&work[i]), _mm256_slli_epi32(x, 8));
  }
  frame_in16(in + i, work + i, n - i);
}

// The arithmetic shift, then the saturating pack to 16 bits (sat16).
KAFX_TARGET_AVX2 void frame_out16_avx2(const int32_t* left, const int32_t* right, int16_t* out_left,
                                       int16_t* out_right, int n) {
  int i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256i l = _mm256_srai_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(&left[i])), 8);
    const __m256i r = _mm256_srai_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(&right[i])), 8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(&out_left[i]),
                     _mm_packs_epi32(_mm256_castsi256_si128(l), _mm256_extracti128_si256(l, 1)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(&out_right[i]),
                     _mm_packs_epi32(_mm256_castsi256_si128(r), _mm256_extracti128_si256(r, 1)));
  }
  frame_out16(left + i, right + i, out_left + i, out_right + i, n - i);
}
#endif

}  // namespace

namespace kafx {
const KernelVariants<KtvFrameIn16> ktv_frame_in16_variants = {"ktv_frame_in16",
                                                              {frame_in16, KAFX_AVX2_ONLY(frame_in16_avx2)}};
const KernelVariants<KtvFrameOut16> ktv_frame_out16_variants = {"ktv_frame_out16",
                                                                {frame_out16, KAFX_AVX2_ONLY(frame_out16_avx2)}};
}  // namespace kafx

extern "C" {

void kedo_audio_tx_ktv_init(kedo_audio_tx_ktv_t* c) {
  c->volume = kQ13One;
  c->rate_type = SAMPLE_RATE_48000;
  // A block that cannot be allocated stays null and is not initialised; the
  // owner sees the failure and ends the chain. (The suppressor's own calls
  // refuse a null instance.)
  c->equalizer = new_block<equalizer_t>(equalizer_init);
  c->reverb = new_block<reverb_t>(reverb_init);
  c->howling = new_block<howlingCancel>(howling_canceling_init);
  c->compressor = new_block<compressor_t>(compressor_init, kQ13One, 0);
  c->echo = new_block<iirecho>(iirecho_init);
  c->gramo = new_block<gramophone>(gramophone_init);
  c->ns = new_block<NsxInst_t_>(kedoNs_InitCore, kNsRate);
  kedoNs_set_policy_core(c->ns, 3);
  c->highpass = new_block<IIR_t>(IIR_init, kFilterCoefficients);
  c->down = new_block<Resampler_t>(resampler_setup, kVoiceRate, kNsRate);
  c->up = new_block<Resampler_t>(resampler_setup, kNsRate, kVoiceRate);
  c->left = alloc_frame();
  c->right = alloc_frame();
}

void kedo_audio_tx_ktv_set_sample_rate(kedo_audio_tx_ktv_t* c, unsigned int rate) {
  c->rate_type = rate_type_of(rate);
  compressor_set_sample_rate(c->compressor, c->rate_type);
  IIR_reinit(c->highpass, kFilterCoefficients);
}

void kedo_audio_tx_ktv_end(kedo_audio_tx_ktv_t* c) {
  end_block(c->equalizer, equalizer_end);
  end_block(c->reverb, reverb_end);
  end_block(c->howling, howling_canceling_end);
  end_block(c->compressor, compressor_end);
  end_block(c->echo, iirecho_end);
  end_block(c->gramo, gramophone_end);
  end_block(c->ns, kedoNs_FreeCore);
  end_block(c->highpass, IIR_end);
  end_block(c->down, Resampler_delete);
  end_block(c->up, Resampler_delete);
  kafx::free_null(c->left);
  kafx::free_null(c->right);
}

void kedo_audio_tx_ktv_set_volume(kedo_audio_tx_ktv_t* c, int volume) {
  c->volume = volume;
  compressor_set_volume(c->compressor, volume);
}

// --- processing ------------------------------------------------------------
int kedo_audio_tx_ktv_core_process(kedo_audio_tx_ktv_t* c, int* left, int* right, int count) {
  // Noise suppression is switched off at the top of every frame; the branch
  // below is kept but never taken.
  c->ns->canceling_status = 0;
  if (c->ns->canceling_status != 0) noise_branch(c, left, right, count);
  if (count < 1) return 0;  // an empty frame reaches no block

  if (c->howling->status != 0) howling_canceling_process(c->howling, left, left, count);
  if (c->gramo->status != 0) gramophone_process(c->gramo, left, left, count);
  if (c->equalizer->status != 0) equalizer_process_mono(c->equalizer, left, left, count);
  std::memmove(right, left, static_cast<size_t>(count) * sizeof(int));  // mono -> stereo
  if (c->reverb->status != 0) reverb_process_stereo_24(c->reverb, left, right, left, right, count);
  if (c->echo->status != 0) iirecho_processStereo(c->echo, left, right, left, right, count);
  if (c->compressor->status != 0) compressor_process(c->compressor, left, right, left, right, count);
  return 0;
}

int kedo_audio_tx_ktv_process_16(kedo_audio_tx_ktv_t* c, void* in, void* out_left, void* out_right, int count) {
  if (c == nullptr || count > kFrameMax) return -1;  // would overrun the frame buffers
  const auto* x = static_cast<const int16_t*>(in);
  auto* ol = static_cast<int16_t*>(out_left);
  auto* orr = static_cast<int16_t*>(out_right);
  constexpr auto frame_in = run_chosen<ktv_frame_in16_variants>;
  constexpr auto frame_out = run_chosen<ktv_frame_out16_variants>;
  int32_t* const left = c->left;
  int32_t* const right = c->right;
  frame_in(x, left, count);
  kedo_audio_tx_ktv_core_process(c, left, right, count);
  frame_out(left, right, ol, orr, count);
  return 0;
}

int kedo_audio_tx_ktv_process_24(kedo_audio_tx_ktv_t* c, void* in, void* out_left, void* out_right, int count) {
  if (c == nullptr || count > kFrameMax) return -1;  // would overrun the frame buffers
  const auto* x = static_cast<const int32_t*>(in);
  auto* ol = static_cast<int32_t*>(out_left);
  auto* orr = static_cast<int32_t*>(out_right);
  for (int i = 0; i < count; ++i) c->left[i] = x[i] >> 4;
  kedo_audio_tx_ktv_core_process(c, c->left, c->right, count);
  constexpr int32_t lo = -kWorkMax - 1, hi = kWorkMax;
  for (int i = 0; i < count; ++i) {
    c->left[i] = c->left[i] < lo ? lo : (c->left[i] > hi ? hi : c->left[i]);
    c->right[i] = c->right[i] < lo ? lo : (c->right[i] > hi ? hi : c->right[i]);
    ol[i] = shl_sat<4>(c->left[i]);
    orr[i] = shl_sat<4>(c->right[i]);
  }
  return 0;
}

int kedo_audio_tx_ktv_process(kedo_audio_tx_ktv_t* c, int format, void* in, void* out_left, void* out_right,
                              int count) {
  if (format == 16) return kedo_audio_tx_ktv_process_16(c, in, out_left, out_right, count);
  return kedo_audio_tx_ktv_process_24(c, in, out_left, out_right, count);
}

void kedo_audio_tx_ktv_copy_left_to_right(int* left, int* right, int count) {
  if (count > 0) std::memmove(right, left, static_cast<size_t>(count) * sizeof(int));
}

// --- accessors ---------------------------------------------------------------
void kedo_audio_tx_ktv_eq_setparameter(kedo_audio_tx_ktv_t* c, int (*coef)[5]) {
  equalizer_setparameter(c->equalizer, coef);
}
void kedo_audio_tx_ktv_eq_getparameter(kedo_audio_tx_ktv_t* c, int (*coef)[5]) {
  equalizer_getparameter(c->equalizer, coef);
}
void kedo_audio_tx_ktv_eq_set_param_index(kedo_audio_tx_ktv_t* c, int* indices) {
  equalizer_set_param_index(c->equalizer, indices, c->rate_type);
}
void kedo_audio_tx_ktv_eq_get_param_index(kedo_audio_tx_ktv_t* c, int* indices) {
  equalizer_get_param_index(c->equalizer, indices);
}
// The equalizer's status is the first word of its record.
void kedo_audio_tx_ktv_eq_setstatus(kedo_audio_tx_ktv_t* c, int status) { IIR_set_status(c->equalizer, status); }
void kedo_audio_tx_ktv_eq_getstatus(kedo_audio_tx_ktv_t* c, int* status) { IIR_get_status(c->equalizer, status); }

// Reverb setters re-derive the reverb's internal gains at once.
void kedo_audio_tx_ktv_reverb_setroomsize(kedo_audio_tx_ktv_t* c, int value) {
  set_reverb(c, reverb_setroomsize, value);
}
void kedo_audio_tx_ktv_reverb_getroomsize(kedo_audio_tx_ktv_t* c, int* value) { reverb_getroomsize(c->reverb, value); }
void kedo_audio_tx_ktv_reverb_setdamp(kedo_audio_tx_ktv_t* c, int value) { set_reverb(c, reverb_setdamp, value); }
void kedo_audio_tx_ktv_reverb_getdamp(kedo_audio_tx_ktv_t* c, int* value) { reverb_getdamp(c->reverb, value); }
void kedo_audio_tx_ktv_reverb_setwet(kedo_audio_tx_ktv_t* c, int value) { set_reverb(c, reverb_setwet, value); }
void kedo_audio_tx_ktv_reverb_getwet(kedo_audio_tx_ktv_t* c, int* value) { reverb_getwet(c->reverb, value); }
void kedo_audio_tx_ktv_reverb_setdry(kedo_audio_tx_ktv_t* c, int value) { set_reverb(c, reverb_setdry, value); }
void kedo_audio_tx_ktv_reverb_getdry(kedo_audio_tx_ktv_t* c, int* value) { reverb_getdry(c->reverb, value); }
void kedo_audio_tx_ktv_reverb_setwidth(kedo_audio_tx_ktv_t* c, int value) { set_reverb(c, reverb_setwidth, value); }
void kedo_audio_tx_ktv_reverb_getwidth(kedo_audio_tx_ktv_t* c, int* value) { reverb_getwidth(c->reverb, value); }
void kedo_audio_tx_ktv_reverb_setgain(kedo_audio_tx_ktv_t* c, int value) { set_reverb(c, reverb_setgain, value); }
void kedo_audio_tx_ktv_reverb_getgain(kedo_audio_tx_ktv_t* c, int* value) { reverb_getgain(c->reverb, value); }
void kedo_audio_tx_ktv_reverb_setstatus(kedo_audio_tx_ktv_t* c, int status) { reverb_setstatus(c->reverb, status); }
void kedo_audio_tx_ktv_reverb_getstatus(kedo_audio_tx_ktv_t* c, int* status) { reverb_getstatus(c->reverb, status); }

void kedo_audio_tx_ktv_noise_canceling_setstatus(kedo_audio_tx_ktv_t* c, int status) {
  c->ns->canceling_status = status;
}
void kedo_audio_tx_ktv_noise_canceling_getstatus(kedo_audio_tx_ktv_t* c, int* status) {
  *status = c->ns->canceling_status;
}
void kedo_audio_tx_ktv_howling_canceling_setstatus(kedo_audio_tx_ktv_t* c, int status) {
  howling_canceling_setstatus(c->howling, status);
}
void kedo_audio_tx_ktv_howling_canceling_getstatus(kedo_audio_tx_ktv_t* c, int* status) {
  howling_canceling_getstatus(c->howling, status);
}
void kedo_audio_tx_ktv_gramophone_setstatus(kedo_audio_tx_ktv_t* c, int status) {
  gramophone_setstatus(c->gramo, status);
}
void kedo_audio_tx_ktv_gramophone_getstatus(kedo_audio_tx_ktv_t* c, int* status) {
  gramophone_getstatus(c->gramo, status);
}
void kedo_audio_tx_ktv_compressor_setstatus(kedo_audio_tx_ktv_t* c, int status) {
  compressor_setstatus(c->compressor, status);
}
void kedo_audio_tx_ktv_compressor_getstatus(kedo_audio_tx_ktv_t* c, int* status) {
  compressor_getstatus(c->compressor, status);
}

void kedo_audio_tx_ktv_iirecho_setstatus(kedo_audio_tx_ktv_t* c, int status) { iirecho_setstatus(c->echo, status); }
void kedo_audio_tx_ktv_iirecho_getstatus(kedo_audio_tx_ktv_t* c, int* status) { iirecho_getstatus(c->echo, status); }
void kedo_audio_tx_ktv_iirecho_setfeedback(kedo_audio_tx_ktv_t* c, int feedback) {
  iirecho_setfeedback(c->echo, feedback);
}
void kedo_audio_tx_ktv_iirecho_getfeedback(kedo_audio_tx_ktv_t* c, int* feedback) {
  iirecho_getfeedback(c->echo, feedback);
}
void kedo_audio_tx_ktv_iirecho_setdelay(kedo_audio_tx_ktv_t* c, int ms) { iirecho_setdelay(c->echo, ms); }
void kedo_audio_tx_ktv_iirecho_getdelay(kedo_audio_tx_ktv_t* c, int* ms) { iirecho_getdelay(c->echo, ms); }
void kedo_audio_tx_ktv_iirecho_setwet(kedo_audio_tx_ktv_t* c, int wet) { iirecho_setwet(c->echo, wet); }
void kedo_audio_tx_ktv_iirecho_getwet(kedo_audio_tx_ktv_t* c, int* wet) { iirecho_getwet(c->echo, wet); }
void kedo_audio_tx_ktv_iirecho_setdry(kedo_audio_tx_ktv_t* c, int dry) { iirecho_setdry(c->echo, dry); }
void kedo_audio_tx_ktv_iirecho_getdry(kedo_audio_tx_ktv_t* c, int* dry) { iirecho_getdry(c->echo, dry); }

}  // extern "C"
