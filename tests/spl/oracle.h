// The published WebRTC signal-processing routines (Debian's static build)
// used as the bit-exact reference, and the test signals fed to both sides.
#ifndef KAFX_TESTS_SPL_ORACLE_H
#define KAFX_TESTS_SPL_ORACLE_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

extern "C" {
// Resampler state records are plain int32 arrays of these sizes.
void WebRtcSpl_Init(void);

void WebRtcSpl_DownsampleBy2(const int16_t* in, size_t len, int16_t* out, int32_t* state);
void WebRtcSpl_UpsampleBy2(const int16_t* in, size_t len, int16_t* out, int32_t* state);
void WebRtcSpl_DownBy2IntToShort(int32_t* in, int32_t len, int16_t* out, int32_t* state);
void WebRtcSpl_DownBy2ShortToInt(const int16_t* in, int32_t len, int32_t* out, int32_t* state);
void WebRtcSpl_UpBy2ShortToInt(const int16_t* in, int32_t len, int32_t* out, int32_t* state);
void WebRtcSpl_UpBy2IntToInt(const int32_t* in, int32_t len, int32_t* out, int32_t* state);
void WebRtcSpl_UpBy2IntToShort(const int32_t* in, int32_t len, int16_t* out, int32_t* state);
void WebRtcSpl_LPBy2ShortToInt(const int16_t* in, int32_t len, int32_t* out, int32_t* state);
void WebRtcSpl_LPBy2IntToInt(const int32_t* in, int32_t len, int32_t* out, int32_t* state);

void WebRtcSpl_Resample48khzTo32khz(const int32_t* in, int32_t* out, size_t K);
void WebRtcSpl_Resample32khzTo24khz(const int32_t* in, int32_t* out, size_t K);
void WebRtcSpl_Resample44khzTo32khz(const int32_t* in, int32_t* out, size_t K);
void WebRtcSpl_32khzTo22khzIntToInt(const int32_t* in, int32_t* out, int32_t K);

void WebRtcSpl_Resample48khzTo16khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_ResetResample48khzTo16khz(void* state);
void WebRtcSpl_Resample16khzTo48khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_ResetResample16khzTo48khz(void* state);
void WebRtcSpl_Resample48khzTo8khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_ResetResample48khzTo8khz(void* state);
void WebRtcSpl_Resample8khzTo48khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_ResetResample8khzTo48khz(void* state);
void WebRtcSpl_Resample22khzTo16khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_ResetResample22khzTo16khz(void* state);
void WebRtcSpl_Resample16khzTo22khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_ResetResample16khzTo22khz(void* state);
void WebRtcSpl_Resample22khzTo8khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_ResetResample22khzTo8khz(void* state);
void WebRtcSpl_Resample8khzTo22khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_ResetResample8khzTo22khz(void* state);

void WebRtcSpl_ComplexBitReverse(int16_t* data, int stages);
int WebRtcSpl_ComplexFFT(int16_t* data, int stages, int mode);
int WebRtcSpl_ComplexIFFT(int16_t* data, int stages, int mode);

void WebRtcSpl_MemSetW16(int16_t* v, int16_t value, size_t len);
void WebRtcSpl_MemSetW32(int32_t* v, int32_t value, size_t len);
void WebRtcSpl_MemCpyReversedOrder(int16_t* dest, int16_t* src, size_t len);
void WebRtcSpl_CopyFromEndW16(const int16_t* in, size_t in_len, size_t n, int16_t* out);
void WebRtcSpl_ZerosArrayW16(int16_t* v, size_t len);
void WebRtcSpl_ZerosArrayW32(int32_t* v, size_t len);

// The plain C versions of the dispatched extreme-value routines.
int16_t WebRtcSpl_MaxAbsValueW16C(const int16_t* v, size_t len);
int32_t WebRtcSpl_MaxAbsValueW32C(const int32_t* v, size_t len);
int16_t WebRtcSpl_MaxValueW16C(const int16_t* v, size_t len);
int32_t WebRtcSpl_MaxValueW32C(const int32_t* v, size_t len);
int16_t WebRtcSpl_MinValueW16C(const int16_t* v, size_t len);
int32_t WebRtcSpl_MinValueW32C(const int32_t* v, size_t len);
size_t WebRtcSpl_MaxAbsIndexW16(const int16_t* v, size_t len);
size_t WebRtcSpl_MaxIndexW16(const int16_t* v, size_t len);
size_t WebRtcSpl_MaxIndexW32(const int32_t* v, size_t len);
size_t WebRtcSpl_MinIndexW16(const int16_t* v, size_t len);
size_t WebRtcSpl_MinIndexW32(const int32_t* v, size_t len);

int16_t WebRtcSpl_GetScalingSquare(int16_t* in, size_t len, size_t times);
int32_t WebRtcSpl_Energy(int16_t* v, size_t len, int* scale);
int32_t WebRtcSpl_SqrtFloor(int32_t value);
}

// The published general resampler (C++), declared with its data layout.
namespace webrtc {
class Resampler {
 public:
  Resampler();
  Resampler(int in_freq, int out_freq, int num_channels);
  ~Resampler();
  int Reset(int in_freq, int out_freq, int num_channels);
  int Push(const int16_t* in, size_t in_len, int16_t* out, size_t max_len, size_t& out_len);

 private:
  void* state1_;
  void* state2_;
  void* state3_;
  int16_t* in_buffer_;
  int16_t* out_buffer_;
  size_t in_buffer_size_;
  size_t out_buffer_size_;
  size_t in_buffer_size_max_;
  size_t out_buffer_size_max_;
  int in_khz_;
  int out_khz_;
  int mode_;
  int num_channels_;
  Resampler* slave_left_;
  Resampler* slave_right_;
};
}  // namespace webrtc

namespace spltest {

// Kinds of 16-bit test signal. Full scale drives the all-pass cascades to
// their largest internal values (and past 2^31 in the internal stages).
enum class Signal { kRandom, kQuiet, kFullScale, kSquare, kSilence, kImpulse, kSweep };

inline constexpr Signal kAllSignals[] = {Signal::kRandom, Signal::kQuiet,   Signal::kFullScale,
                                         Signal::kSquare, Signal::kSilence, Signal::kImpulse,
                                         Signal::kSweep};

// A continuous signal source, so that consecutive blocks form one stream.
class Source {
 public:
  Source(Signal kind, uint32_t seed) : kind_(kind), rng_(seed) {}

  int16_t next() {
    const int64_t t = n_++;
    switch (kind_) {
      case Signal::kRandom:
        return static_cast<int16_t>(std::uniform_int_distribution<int>(-32768, 32767)(rng_));
      case Signal::kQuiet:
        return static_cast<int16_t>(std::uniform_int_distribution<int>(-40, 40)(rng_));
      case Signal::kFullScale:
        return std::bernoulli_distribution(0.5)(rng_) ? int16_t{32767} : int16_t{-32768};
      case Signal::kSquare: {
        // Full-scale square waves of a few periods, the period changing.
        const int64_t period = 2 + (t / 997) % 7;
        return (t / period) % 2 ? int16_t{-32768} : int16_t{32767};
      }
      case Signal::kSilence:
        return 0;
      case Signal::kImpulse:
        return t % 613 == 5 ? (t % 2 ? int16_t{-32768} : int16_t{32767}) : int16_t{0};
      case Signal::kSweep: {
        // Triangle wave from an integer phase accumulator, rising frequency.
        phase_ += static_cast<uint32_t>(t * 3000);
        const int32_t p = static_cast<int32_t>(phase_ >> 16);
        return static_cast<int16_t>((p < 32768 ? p : 65535 - p) * 2 - 32768);
      }
    }
    return 0;
  }

  std::vector<int16_t> block(size_t n) {
    std::vector<int16_t> v(n);
    for (auto& x : v) x = next();
    return v;
  }

 private:
  Signal kind_;
  std::mt19937 rng_;
  int64_t n_ = 0;
  uint32_t phase_ = 0;
};

// 32-bit intermediate samples: the internal format (signal << 15 plus a
// half) of a 16-bit source, or arbitrary words.
inline std::vector<int32_t> internal_block(Source& s, size_t n) {
  std::vector<int32_t> v(n);
  for (auto& x : v) x = static_cast<int32_t>(static_cast<uint32_t>(s.next()) << 15) + 16384;
  return v;
}

inline std::vector<int32_t> random_words(std::mt19937& rng, size_t n) {
  std::vector<int32_t> v(n);
  for (auto& x : v) x = static_cast<int32_t>(rng());
  return v;
}

}  // namespace spltest

#endif
