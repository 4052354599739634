// The published WebRTC signal-processing routines (Debian's static build)
// used as the bit-exact reference, and the test signals fed to both sides.
#ifndef KAFX_TESTS_SPL_ORACLE_H
#define KAFX_TESTS_SPL_ORACLE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

extern "C" {
void WebRtcSpl_Init(void);

// Resampler states are plain int32 arrays, all zero at the start.
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
void WebRtcSpl_Resample16khzTo48khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_Resample48khzTo8khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_Resample8khzTo48khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_Resample22khzTo16khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_Resample16khzTo22khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_Resample22khzTo8khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);
void WebRtcSpl_Resample8khzTo22khz(const int16_t* in, int16_t* out, void* state, int32_t* tmp);

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

namespace spltest {

// Random samples at a level drawn anew for every block (full range about a
// third of the time, down to a few LSBs); full-scale samples of random sign,
// which drive the all-pass cascades past 2^31 internally; silence; and
// full-scale impulses of alternating sign in silence.
enum class Signal { kRandom, kFullScale, kSilence, kImpulse };
inline constexpr Signal kSignals[] = {Signal::kRandom, Signal::kFullScale, Signal::kSilence,
                                      Signal::kImpulse};

// A continuous source: consecutive blocks form one stream.
class Source {
 public:
  Source(Signal kind, uint32_t seed) : kind_(kind), rng_(seed) {}

  std::vector<int16_t> block(size_t n) {
    const int shift = std::max(0, static_cast<int>(rng_() % 20) - 6);
    std::vector<int16_t> v(n);
    for (auto& x : v) {
      const int64_t t = t_++;
      const auto r = static_cast<int16_t>(rng_());
      switch (kind_) {
        case Signal::kRandom: x = static_cast<int16_t>(r >> shift); break;
        case Signal::kFullScale: x = r < 0 ? int16_t{-32768} : int16_t{32767}; break;
        case Signal::kSilence: x = 0; break;
        case Signal::kImpulse: x = t % 613 != 5 ? 0 : t % 2 ? -32768 : 32767; break;
      }
    }
    return v;
  }

 private:
  Signal kind_;
  std::mt19937 rng_;
  int64_t t_ = 0;
};

}  // namespace spltest

#endif
