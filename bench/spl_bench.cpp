// Signal-processing library benchmarks. Every routine runs on the same data
// as this library's version ("kafx/...") and, when the published WebRTC
// build is available, as the reference ("webrtc/..."), so the two timings of
// a routine sit side by side.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "kafx_proc/spl.h"

#if KAFX_HAVE_WEBRTC_ORACLE
#include "tests/spl/oracle.h"

// The published general resampler (C++), declared with its data layout, to
// time Resampler_proc against it.
namespace webrtc {
class Resampler {
 public:
  Resampler(int in_freq, int out_freq, int num_channels);
  ~Resampler();
  int Push(const int16_t* in, size_t in_len, int16_t* out, size_t max_len, size_t& out_len);

 private:
  void* state_[3];
  int16_t* buffer_[2];
  size_t size_[4];
  int in_khz_, out_khz_, mode_, num_channels_;
  Resampler* slave_[2];
};
}  // namespace webrtc
#endif

namespace {

std::vector<int16_t> samples(size_t n, uint32_t seed, int amplitude = 20000) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> d(-amplitude, amplitude);
  std::vector<int16_t> v(n);
  for (auto& x : v) x = static_cast<int16_t>(d(rng));
  return v;
}

std::vector<int32_t> internal_samples(size_t n, uint32_t seed) {
  const auto s = samples(n, seed);
  std::vector<int32_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = s[i] * 32768 + 16384;
  return v;
}

// ---------------------------------------------------------------------------
// Fixed-ratio resamplers: one 10 ms block per iteration.

template <typename State, void (*Reset)(State*), void (*Run)(const short*, short*, State*, int*)>
void fixed_ratio(benchmark::State& bs, int in_len, int out_len) {
  State st;
  Reset(&st);
  const auto in = samples(in_len, 1);
  std::vector<int16_t> out(out_len);
  std::vector<int> tmp(512);
  for (auto _ : bs) {
    Run(in.data(), out.data(), &st, tmp.data());
    benchmark::DoNotOptimize(out.data());
  }
  bs.SetItemsProcessed(bs.iterations() * in_len);
}

#define KAFX_FIXED(R, In, Out)                                                                 \
  void BM_kafx_##R(benchmark::State& bs) {                                                     \
    fixed_ratio<kedoSpl_State##R, kedoSpl_ResetResample##R, kedoSpl_Resample##R>(bs, In, Out); \
  }                                                                                            \
  BENCHMARK(BM_kafx_##R)->Name("kafx/Resample" #R);

KAFX_FIXED(48khzTo16khz, 480, 160)
KAFX_FIXED(16khzTo48khz, 160, 480)
KAFX_FIXED(48khzTo8khz, 480, 80)
KAFX_FIXED(8khzTo48khz, 80, 480)
KAFX_FIXED(22khzTo16khz, 220, 160)
KAFX_FIXED(16khzTo22khz, 160, 220)
KAFX_FIXED(22khzTo8khz, 220, 80)
KAFX_FIXED(8khzTo22khz, 80, 220)

#if KAFX_HAVE_WEBRTC_ORACLE
void ref_fixed(benchmark::State& bs, void (*run)(const int16_t*, int16_t*, void*, int32_t*),
               int in_len, int out_len) {
  int32_t st[40] = {};
  const auto in = samples(in_len, 1);
  std::vector<int16_t> out(out_len);
  std::vector<int32_t> tmp(512);
  for (auto _ : bs) {
    run(in.data(), out.data(), st, tmp.data());
    benchmark::DoNotOptimize(out.data());
  }
  bs.SetItemsProcessed(bs.iterations() * in_len);
}

#define REF_FIXED(R, In, Out)                                                              \
  void BM_ref_##R(benchmark::State& bs) { ref_fixed(bs, WebRtcSpl_Resample##R, In, Out); } \
  BENCHMARK(BM_ref_##R)->Name("webrtc/Resample" #R);

REF_FIXED(48khzTo16khz, 480, 160)
REF_FIXED(16khzTo48khz, 160, 480)
REF_FIXED(48khzTo8khz, 480, 80)
REF_FIXED(8khzTo48khz, 80, 480)
REF_FIXED(22khzTo16khz, 220, 160)
REF_FIXED(16khzTo22khz, 160, 220)
REF_FIXED(22khzTo8khz, 220, 80)
REF_FIXED(8khzTo22khz, 80, 220)
#endif

// ---------------------------------------------------------------------------
// Stages, 480 input samples (the fractional stages: as many blocks).

template <typename In, typename Out, typename F>
void stage(benchmark::State& bs, F f, const std::vector<In>& in, size_t out_len) {
  std::vector<int32_t> st(16, 0);
  std::vector<Out> out(out_len + 16);
  std::vector<In> work = in;
  for (auto _ : bs) {
    f(work.data(), static_cast<int>(in.size()), out.data(), st.data());
    benchmark::DoNotOptimize(out.data());
  }
  bs.SetItemsProcessed(bs.iterations() * static_cast<int64_t>(in.size()));
}

#define STAGE(Label, InT, OutT, Input, OutLen, Call)                                           \
  void BM_##Label(benchmark::State& bs) {                                                      \
    stage<InT, OutT>(                                                                          \
        bs, [](InT* i, int n, OutT* o, [[maybe_unused]] int32_t* s) { Call; }, Input, OutLen); \
  }                                                                                            \
  BENCHMARK(BM_##Label)

// Each stage is timed as ours and, when available, as the reference, with
// the same arguments.
#if KAFX_HAVE_WEBRTC_ORACLE
#define STAGE_PAIR(Fn, InT, OutT, Input, OutLen, ...)                                       \
  STAGE(kafx_##Fn, InT, OutT, Input, OutLen, kedoSpl_##Fn(__VA_ARGS__))->Name("kafx/" #Fn); \
  STAGE(ref_##Fn, InT, OutT, Input, OutLen, WebRtcSpl_##Fn(__VA_ARGS__))->Name("webrtc/" #Fn)
#else
#define STAGE_PAIR(Fn, InT, OutT, Input, OutLen, ...) \
  STAGE(kafx_##Fn, InT, OutT, Input, OutLen, kedoSpl_##Fn(__VA_ARGS__))->Name("kafx/" #Fn)
#endif

const auto kShort480 = samples(480, 2);
const auto kInt480 = internal_samples(480, 3);

STAGE_PAIR(DownsampleBy2, int16_t, int16_t, kShort480, 240, i, static_cast<short>(n), o, s);
STAGE_PAIR(UpsampleBy2, int16_t, int16_t, kShort480, 960, i, static_cast<short>(n), o, s);
STAGE_PAIR(DownBy2ShortToInt, int16_t, int32_t, kShort480, 240, i, n, o, s);
STAGE_PAIR(DownBy2IntToShort, int32_t, int16_t, kInt480, 240, i, n, o, s);
STAGE_PAIR(UpBy2ShortToInt, int16_t, int32_t, kShort480, 960, i, n, o, s);
STAGE_PAIR(UpBy2IntToInt, int32_t, int32_t, kInt480, 960, i, n, o, s);
STAGE_PAIR(UpBy2IntToShort, int32_t, int16_t, kInt480, 960, i, n, o, s);
STAGE_PAIR(LPBy2ShortToInt, int16_t, int32_t, kShort480, 480, i, n, o, s);
STAGE_PAIR(LPBy2IntToInt, int32_t, int32_t, kInt480, 480, i, n, o, s);
// Fractional stages: n = 480 input words, K = n / ratio blocks.
STAGE_PAIR(Resample48khzTo32khz, int32_t, int32_t, kInt480, 320, i, o, (n - 8) / 3);
STAGE_PAIR(Resample32khzTo24khz, int32_t, int32_t, kInt480, 360, i, o, (n - 8) / 4);
STAGE_PAIR(Resample44khzTo32khz, int32_t, int32_t, kInt480, 350, i, o, (n - 8) / 11);
STAGE_PAIR(32khzTo22khzIntToInt, int32_t, int32_t, kInt480, 330, i, o, (n - 8) / 16);

// ---------------------------------------------------------------------------
// General resampler: 10 ms per call in each mode (the reference runs the
// same stages chained the same way, with the same per-call scratch).

struct ModeCase {
  int mode, in_rate, out_rate, in_len;
};

// Indexed by mode.
const ModeCase kModeCases[] = {
    {0, 16000, 16000, 160}, {1, 8000, 16000, 80},    {2, 16000, 48000, 160},
    {3, 8000, 32000, 80},   {4, 8000, 48000, 80},    {5, 8000, 96000, 80},
    {6, 32000, 48000, 320}, {7, 8000, 44000, 80},    {8, 16000, 44000, 160},
    {9, 32000, 44000, 320}, {10, 11000, 16000, 110}, {11, 11000, 32000, 110},
    {12, 16000, 8000, 160}, {13, 48000, 16000, 480}, {14, 32000, 8000, 320},
    {15, 48000, 8000, 480}, {16, 96000, 8000, 960},  {17, 48000, 32000, 480},
    {18, 44000, 8000, 440}, {19, 44000, 16000, 440}, {20, 44000, 32000, 440},
};

void BM_kafx_Resampler(benchmark::State& bs) {
  const ModeCase& c = kModeCases[bs.range(0)];
  Resampler_t r;
  Resampler_init(&r);
  Resampler_config(&r, c.in_rate, c.out_rate);
  const auto in = samples(c.in_len, 4);
  std::vector<int16_t> out(12 * c.in_len);
  int out_len = 0;
  for (auto _ : bs) {
    Resampler_proc(&r, in.data(), c.in_len, out.data(), static_cast<int>(out.size()), &out_len);
    benchmark::DoNotOptimize(out.data());
  }
  Resampler_delete(&r);
  bs.SetItemsProcessed(bs.iterations() * c.in_len);
}
BENCHMARK(BM_kafx_Resampler)->Name("kafx/Resampler")->DenseRange(0, 20);

#if KAFX_HAVE_WEBRTC_ORACLE
// The published resampler on the same rates and blocks.
void BM_ref_Resampler(benchmark::State& bs) {
  const ModeCase& c = kModeCases[bs.range(0)];
  webrtc::Resampler r(c.in_rate, c.out_rate, 1);
  const auto in = samples(c.in_len, 4);
  std::vector<int16_t> out(12 * c.in_len);
  size_t out_len = 0;
  for (auto _ : bs) {
    r.Push(in.data(), c.in_len, out.data(), out.size(), out_len);
    benchmark::DoNotOptimize(out.data());
  }
  bs.SetItemsProcessed(bs.iterations() * c.in_len);
}
BENCHMARK(BM_ref_Resampler)->Name("webrtc/Resampler")->DenseRange(0, 20);
#endif

// ---------------------------------------------------------------------------
// FFT. Each iteration transforms a fresh copy of the data (the copy is part
// of both timings).

template <int (*Fft)(short*, int, int)>
void fft(benchmark::State& bs) {
  const int stages = static_cast<int>(bs.range(0));
  const int mode = static_cast<int>(bs.range(1));
  const auto data = samples(2u << stages, 5, 12000);
  std::vector<int16_t> work(data.size());
  for (auto _ : bs) {
    std::memcpy(work.data(), data.data(), data.size() * sizeof(int16_t));
    benchmark::DoNotOptimize(Fft(work.data(), stages, mode));
  }
}

void bitrev(benchmark::State& bs, void (*f)(short*, int)) {
  const int stages = static_cast<int>(bs.range(0));
  auto data = samples(2u << stages, 6);
  for (auto _ : bs) {
    f(data.data(), stages);
    benchmark::ClobberMemory();
  }
}

void BM_kafx_BitReverse(benchmark::State& bs) { bitrev(bs, kedoSpl_ComplexBitReverse); }

BENCHMARK(fft<kedoSpl_ComplexFFT>)->Name("kafx/ComplexFFT")->ArgsProduct({{7, 8, 10}, {0, 1}});
BENCHMARK(fft<kedoSpl_ComplexIFFT>)->Name("kafx/ComplexIFFT")->ArgsProduct({{7, 8, 10}, {0, 1}});
BENCHMARK(BM_kafx_BitReverse)->Name("kafx/ComplexBitReverse")->Arg(7)->Arg(8)->Arg(9);

#if KAFX_HAVE_WEBRTC_ORACLE
int ref_fft(short* d, int s, int m) { return WebRtcSpl_ComplexFFT(d, s, m); }
int ref_ifft(short* d, int s, int m) { return WebRtcSpl_ComplexIFFT(d, s, m); }
void ref_bitrev(short* d, int s) { WebRtcSpl_ComplexBitReverse(d, s); }
void BM_ref_BitReverse(benchmark::State& bs) { bitrev(bs, ref_bitrev); }

BENCHMARK(fft<ref_fft>)->Name("webrtc/ComplexFFT")->ArgsProduct({{7, 8, 10}, {0, 1}});
BENCHMARK(fft<ref_ifft>)->Name("webrtc/ComplexIFFT")->ArgsProduct({{7, 8, 10}, {0, 1}});
BENCHMARK(BM_ref_BitReverse)->Name("webrtc/ComplexBitReverse")->Arg(7)->Arg(8)->Arg(9);

// The reference inverse FFT finds its peaks through a pointer set by init.
const bool kRefInit = [] {
  WebRtcSpl_Init();
  return true;
}();
#endif

// ---------------------------------------------------------------------------
// Vector utilities on 256 elements (and SqrtFloor on a table of values).

constexpr int kVecLen = 256;
const auto kVec16 = samples(kVecLen, 7, 32767);
const std::vector<int32_t> kVec32 = [] {
  std::mt19937 rng(8);
  std::vector<int32_t> v(kVecLen);
  for (auto& x : v) x = static_cast<int32_t>(rng()) / 2;
  return v;
}();

#define VEC16(Label, Expr)                           \
  void BM_##Label(benchmark::State& bs) {            \
    auto v = kVec16;                                 \
    for (auto _ : bs) {                              \
      short* p = v.data();                           \
      benchmark::DoNotOptimize(p);                   \
      benchmark::DoNotOptimize(Expr);                \
    }                                                \
    bs.SetItemsProcessed(bs.iterations() * kVecLen); \
  }                                                  \
  BENCHMARK(BM_##Label)

#define VEC32(Label, Expr)                           \
  void BM_##Label(benchmark::State& bs) {            \
    auto v = kVec32;                                 \
    for (auto _ : bs) {                              \
      int* p = v.data();                             \
      benchmark::DoNotOptimize(p);                   \
      benchmark::DoNotOptimize(Expr);                \
    }                                                \
    bs.SetItemsProcessed(bs.iterations() * kVecLen); \
  }                                                  \
  BENCHMARK(BM_##Label)

VEC16(kafx_MaxAbsValueW16, kedoSpl_MaxAbsValueW16(p, kVecLen))->Name("kafx/MaxAbsValueW16");
VEC32(kafx_MaxAbsValueW32, kedoSpl_MaxAbsValueW32(p, kVecLen))->Name("kafx/MaxAbsValueW32");
VEC16(kafx_MaxValueW16, kedoSpl_MaxValueW16(p, kVecLen))->Name("kafx/MaxValueW16");
VEC32(kafx_MaxValueW32, kedoSpl_MaxValueW32(p, kVecLen))->Name("kafx/MaxValueW32");
VEC16(kafx_MinValueW16, kedoSpl_MinValueW16(p, kVecLen))->Name("kafx/MinValueW16");
VEC32(kafx_MinValueW32, kedoSpl_MinValueW32(p, kVecLen))->Name("kafx/MinValueW32");
VEC16(kafx_MaxAbsIndexW16, kedoSpl_MaxAbsIndexW16(p, kVecLen))->Name("kafx/MaxAbsIndexW16");
VEC16(kafx_MaxIndexW16, kedoSpl_MaxIndexW16(p, kVecLen))->Name("kafx/MaxIndexW16");
VEC32(kafx_MaxIndexW32, kedoSpl_MaxIndexW32(p, kVecLen))->Name("kafx/MaxIndexW32");
VEC16(kafx_MinIndexW16, kedoSpl_MinIndexW16(p, kVecLen))->Name("kafx/MinIndexW16");
VEC32(kafx_MinIndexW32, kedoSpl_MinIndexW32(p, kVecLen))->Name("kafx/MinIndexW32");
VEC16(kafx_GetScalingSquare, kedoSpl_GetScalingSquare(p, kVecLen, kVecLen))
    ->Name("kafx/GetScalingSquare");
VEC16(kafx_Energy,
      [&] {
        int sc;
        return kedoSpl_Energy(p, kVecLen, &sc);
      }())
    ->Name("kafx/Energy");
VEC16(kafx_MemSetW16, (kedoSpl_MemSetW16(p, 3, kVecLen), 0))->Name("kafx/MemSetW16");
VEC32(kafx_MemSetW32, (kedoSpl_MemSetW32(p, 3, kVecLen), 0))->Name("kafx/MemSetW32");
VEC16(kafx_ZerosArrayW16, kedoSpl_ZerosArrayW16(p, kVecLen))->Name("kafx/ZerosArrayW16");
VEC16(kafx_MemCpyReversedOrder,
      (kedoSpl_MemCpyReversedOrder(p + kVecLen / 2 - 1, p + kVecLen / 2, kVecLen / 2), 0))
    ->Name("kafx/MemCpyReversedOrder");
VEC16(kafx_CopyFromEndW16, kedoSpl_CopyFromEndW16(p, kVecLen, kVecLen / 4, p))
    ->Name("kafx/CopyFromEndW16");
VEC32(kafx_SqrtFloor,
      [&] {
        int s = 0;
        for (int i = 0; i < kVecLen; ++i) s += kedoSpl_SqrtFloor(p[i]);
        return s;
      }())
    ->Name("kafx/SqrtFloor");

#if KAFX_HAVE_WEBRTC_ORACLE
VEC16(ref_MaxAbsValueW16, WebRtcSpl_MaxAbsValueW16C(p, kVecLen))->Name("webrtc/MaxAbsValueW16");
VEC32(ref_MaxAbsValueW32, WebRtcSpl_MaxAbsValueW32C(p, kVecLen))->Name("webrtc/MaxAbsValueW32");
VEC16(ref_MaxValueW16, WebRtcSpl_MaxValueW16C(p, kVecLen))->Name("webrtc/MaxValueW16");
VEC32(ref_MaxValueW32, WebRtcSpl_MaxValueW32C(p, kVecLen))->Name("webrtc/MaxValueW32");
VEC16(ref_MinValueW16, WebRtcSpl_MinValueW16C(p, kVecLen))->Name("webrtc/MinValueW16");
VEC32(ref_MinValueW32, WebRtcSpl_MinValueW32C(p, kVecLen))->Name("webrtc/MinValueW32");
VEC16(ref_MaxAbsIndexW16, WebRtcSpl_MaxAbsIndexW16(p, kVecLen))->Name("webrtc/MaxAbsIndexW16");
VEC16(ref_MaxIndexW16, WebRtcSpl_MaxIndexW16(p, kVecLen))->Name("webrtc/MaxIndexW16");
VEC32(ref_MaxIndexW32, WebRtcSpl_MaxIndexW32(p, kVecLen))->Name("webrtc/MaxIndexW32");
VEC16(ref_MinIndexW16, WebRtcSpl_MinIndexW16(p, kVecLen))->Name("webrtc/MinIndexW16");
VEC32(ref_MinIndexW32, WebRtcSpl_MinIndexW32(p, kVecLen))->Name("webrtc/MinIndexW32");
VEC16(ref_GetScalingSquare, WebRtcSpl_GetScalingSquare(p, kVecLen, kVecLen))
    ->Name("webrtc/GetScalingSquare");
VEC16(ref_Energy,
      [&] {
        int sc;
        return WebRtcSpl_Energy(p, kVecLen, &sc);
      }())
    ->Name("webrtc/Energy");
VEC16(ref_MemSetW16, (WebRtcSpl_MemSetW16(p, 3, kVecLen), 0))->Name("webrtc/MemSetW16");
VEC32(ref_MemSetW32, (WebRtcSpl_MemSetW32(p, 3, kVecLen), 0))->Name("webrtc/MemSetW32");
VEC16(ref_ZerosArrayW16, (WebRtcSpl_ZerosArrayW16(p, kVecLen), 0))->Name("webrtc/ZerosArrayW16");
VEC16(ref_MemCpyReversedOrder,
      (WebRtcSpl_MemCpyReversedOrder(p + kVecLen / 2 - 1, p + kVecLen / 2, kVecLen / 2), 0))
    ->Name("webrtc/MemCpyReversedOrder");
VEC16(ref_CopyFromEndW16, (WebRtcSpl_CopyFromEndW16(p, kVecLen, kVecLen / 4, p), 0))
    ->Name("webrtc/CopyFromEndW16");
VEC32(ref_SqrtFloor,
      [&] {
        int s = 0;
        for (int i = 0; i < kVecLen; ++i) s += WebRtcSpl_SqrtFloor(p[i]);
        return s;
      }())
    ->Name("webrtc/SqrtFloor");
#endif

}  // namespace
