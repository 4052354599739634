// Kernel driver for scripts/arm-estimate.sh: runs one kernel of the table
// below a given number of times between two marker calls, so that the
// script can count, under qemu-user, exactly the blocks of code that one
// call executes (the set-up and the warm-up calls fall outside the
// markers).
//
//   arm_kernels list           one line per kernel: name, group, audio
//                              seconds per call (0: a stage compared with
//                              its published C twin), calls to run
//   arm_kernels NAME [CALLS]   runs kernel NAME; prints a checksum of its
//                              outputs (the work cannot be optimised away)
//
// Adding a kernel: a row in kKernels (a name, its group, the audio it
// covers per call, and one function that sets up once and then runs
// `calls` calls between arm_estimate_begin() and arm_estimate_end()).
// Published C twins are the same stage's WebRtcSpl_ routine with the same
// input; their rows are named "webrtc/<stage>" beside "kafx/<stage>".
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numbers>
#include <vector>

#include "kafx_proc/parametric_eq.h"
#include "kafx_proc/speaker_boost.h"
#include "kafx_proc/spl.h"
#include "tests/spl/oracle.h"
#include "../speaker_setup.h"

// The library logs through Android's log library; nothing is logged while a
// kernel runs, and this static driver links without it.
extern "C" int __android_log_print(int, const char*, const char*, ...) { return 0; }

// The markers: the script counts what runs between the entries of these two
// functions (they must stay out of line and distinct).
extern "C" [[gnu::noinline]] void arm_estimate_begin() { asm volatile("nop" ::: "memory"); }
extern "C" [[gnu::noinline]] void arm_estimate_end() { asm volatile("nop\n nop" ::: "memory"); }

namespace {

uint64_t g_checksum = 0;

template <class T>
void fold(const T* p, size_t n) {
  for (size_t i = 0; i < n; ++i) g_checksum = g_checksum * 1000003u + static_cast<uint32_t>(p[i]);
}

// Programme material: two chords and a little noise, near full scale, so
// that the limiters work and the equalizer's saturation paths are taken.
std::vector<int16_t> programme(int rate, int frames) {
  std::vector<int16_t> v(2 * static_cast<size_t>(frames));
  uint32_t noise = 12345;
  for (int i = 0; i < frames; ++i) {
    const double t = static_cast<double>(i) / rate;
    for (int c = 0; c < 2; ++c) {
      noise = noise * 1664525u + 1013904223u;
      const double f = c == 0 ? 55.0 : 65.4;
      const double x = 0.35 * std::sin(2 * std::numbers::pi * f * t) + 0.25 * std::sin(2 * std::numbers::pi * 3.1 * f * t) +
                       0.15 * std::sin(2 * std::numbers::pi * 17.3 * f * t) +
                       0.05 * (static_cast<int32_t>(noise) / 2147483648.0);
      v[2 * static_cast<size_t>(i) + static_cast<size_t>(c)] = static_cast<int16_t>(std::lround(x * 32767.0));
    }
  }
  return v;
}

constexpr int kBlock = KAFX_SPEAKER_BOOST_BLOCK;
constexpr int kRate = 48000;

// The speaker front end, 240 stereo frames per call: every block on (the
// balance cross-mix, ten equalizer bands per side, the boost system with
// harmonic bass and all eight limiters limiting this material), or every
// block off (what the re-blocking alone costs).
void speaker_front_end(int calls, bool on) {
  void* h = kafx_speaker_boost_init(2, kRate, 1);
  if (on) kafx_bench::configure_speaker_everything_on(h, kRate);
  const int warm = 8;  // the limiters' look-ahead filled, their frames running
  const auto in = programme(kRate, (warm + calls) * kBlock);
  std::vector<int16_t> buf(2 * kBlock);
  for (int c = 0; c < warm + calls; ++c) {
    if (c == warm) arm_estimate_begin();
    std::memcpy(buf.data(), in.data() + 2 * static_cast<size_t>(c) * kBlock, 4 * kBlock);
    kafx_speaker_boost_process(h, buf.data(), 4 * kBlock);
  }
  arm_estimate_end();
  fold(buf.data(), buf.size());
  kafx_speaker_boost_deinit(h);
}

void front_end_all_on(int calls) { speaker_front_end(calls, true); }
void front_end_all_off(int calls) { speaker_front_end(calls, false); }

// The ten-band stereo equalizer alone, on 240 working samples per side.
void parametric_eq(int calls) {
  parameter_equalizer_t eq;
  parameter_equalizer_init(&eq);
  parameter_equalizer_setstatus(&eq, 1);
  const auto left = kafx_bench::design_speaker_bands(kRate, 1.0), right = kafx_bench::design_speaker_bands(kRate, -0.5);
  parameter_equalizer_setparameter_left(&eq, reinterpret_cast<const int(*)[6]>(left.data()));
  parameter_equalizer_setparameter_right(&eq, reinterpret_cast<const int(*)[6]>(right.data()));
  const auto in = programme(kRate, (1 + calls) * kBlock);
  std::vector<int> l(kBlock), r(kBlock), ol(kBlock), or_(kBlock);
  for (int c = 0; c < 1 + calls; ++c) {
    if (c == 1) arm_estimate_begin();
    for (int i = 0; i < kBlock; ++i) {
      l[i] = in[2 * static_cast<size_t>(c * kBlock + i)] * 256;
      r[i] = in[2 * static_cast<size_t>(c * kBlock + i) + 1] * 256;
    }
    parameter_equalizer_process_stereo(&eq, l.data(), r.data(), ol.data(), or_.data(), kBlock);
  }
  arm_estimate_end();
  fold(ol.data(), ol.size());
  fold(or_.data(), or_.size());
  parameter_equalizer_end(&eq);
}

// ---------------------------------------------------------------------------
// Resampler stages: 480 input samples per call (the fractional stages: as
// many whole blocks as fit), the same input for ours and the published C.

std::vector<int16_t> short_input() {
  std::vector<int16_t> v(480);
  uint32_t s = 2;
  for (auto& x : v) {
    s = s * 1664525u + 1013904223u;
    x = static_cast<int16_t>(static_cast<int32_t>(s >> 16) % 20001 - 10000 + static_cast<int32_t>(s >> 30) * 3000);
  }
  return v;
}

std::vector<int32_t> internal_input() {
  const auto s = short_input();
  std::vector<int32_t> v(s.size());
  for (size_t i = 0; i < s.size(); ++i) v[i] = s[i] * 32768 + 16384;
  return v;
}

// One stage call per iteration on the same input; a fresh copy of it for
// the decimator from the internal format, which uses its input as scratch.
// Only the last call's output is folded into the checksum (the state links
// it to every call before), so that the window holds the stage alone.
template <class In, class Out, class F>
void stage(int calls, const std::vector<In>& input, size_t out_len, bool scratch_input, F f) {
  std::vector<int32_t> st(16, 0);
  std::vector<In> work = input;
  std::vector<Out> out(out_len + 16);
  for (int c = 0; c < 1 + calls; ++c) {
    if (c == 1) arm_estimate_begin();
    if (scratch_input) std::memcpy(work.data(), input.data(), input.size() * sizeof(In));
    f(work.data(), static_cast<int>(work.size()), out.data(), st.data());
  }
  arm_estimate_end();
  fold(out.data(), out_len);
}

#define STAGE_FN(Prefix, Fn, InT, OutT, Input, OutLen, ...)                                              \
  void Prefix##_##Fn(int calls) {                                                                        \
    stage<InT, OutT>(calls, Input(), OutLen, std::strcmp(#Fn, "DownBy2IntToShort") == 0,                \
                     [](InT* i, int n, OutT* o, [[maybe_unused]] int32_t* s) { Prefix##Spl_##Fn(__VA_ARGS__); }); \
  }
#define STAGE_PAIR(Fn, InT, OutT, Input, OutLen, ...)         \
  STAGE_FN(kedo, Fn, InT, OutT, Input, OutLen, __VA_ARGS__) \
  STAGE_FN(WebRtc, Fn, InT, OutT, Input, OutLen, __VA_ARGS__)

STAGE_PAIR(DownsampleBy2, int16_t, int16_t, short_input, 240, i, static_cast<short>(n), o, s)
STAGE_PAIR(UpsampleBy2, int16_t, int16_t, short_input, 960, i, static_cast<short>(n), o, s)
STAGE_PAIR(DownBy2ShortToInt, int16_t, int32_t, short_input, 240, i, n, o, s)
STAGE_PAIR(DownBy2IntToShort, int32_t, int16_t, internal_input, 240, i, n, o, s)
STAGE_PAIR(UpBy2ShortToInt, int16_t, int32_t, short_input, 960, i, n, o, s)
STAGE_PAIR(UpBy2IntToInt, int32_t, int32_t, internal_input, 960, i, n, o, s)
STAGE_PAIR(UpBy2IntToShort, int32_t, int16_t, internal_input, 960, i, n, o, s)
STAGE_PAIR(LPBy2ShortToInt, int16_t, int32_t, short_input, 480, i, n, o, s)
STAGE_PAIR(LPBy2IntToInt, int32_t, int32_t, internal_input, 480, i, n, o, s)
STAGE_PAIR(Resample48khzTo32khz, int32_t, int32_t, internal_input, 320, i, o, (n - 8) / 3)
STAGE_PAIR(Resample32khzTo24khz, int32_t, int32_t, internal_input, 360, i, o, (n - 8) / 4)
STAGE_PAIR(Resample44khzTo32khz, int32_t, int32_t, internal_input, 350, i, o, (n - 8) / 11)
STAGE_PAIR(32khzTo22khzIntToInt, int32_t, int32_t, internal_input, 330, i, o, (n - 8) / 16)

// Whole fixed-ratio resamplers, 10 ms per call.
template <class State>
void fixed_ratio(int calls, void (*reset)(State*), void (*run)(const short*, short*, State*, int*),
                 int out_len) {
  State st;
  reset(&st);
  const auto in = short_input();
  std::vector<short> out(static_cast<size_t>(out_len));
  std::vector<int> tmp(1024);
  for (int c = 0; c < 1 + calls; ++c) {
    if (c == 1) arm_estimate_begin();
    run(in.data(), out.data(), &st, tmp.data());
  }
  arm_estimate_end();
  fold(out.data(), out.size());
}

template <class State>
void fixed_ratio_c(int calls, void (*run)(const int16_t*, int16_t*, void*, int32_t*), int out_len) {
  State st;
  std::memset(&st, 0, sizeof st);
  const auto in = short_input();
  std::vector<int16_t> out(static_cast<size_t>(out_len));
  std::vector<int32_t> tmp(1024);
  for (int c = 0; c < 1 + calls; ++c) {
    if (c == 1) arm_estimate_begin();
    run(in.data(), out.data(), &st, tmp.data());
  }
  arm_estimate_end();
  fold(out.data(), out.size());
}

#define FIXED_PAIR(R, OutLen)                                                                   \
  void kedo_##R(int calls) {                                                                    \
    fixed_ratio<kedoSpl_State##R>(calls, kedoSpl_ResetResample##R, kedoSpl_Resample##R, OutLen); \
  }                                                                                             \
  void WebRtc_##R(int calls) { fixed_ratio_c<kedoSpl_State##R>(calls, WebRtcSpl_Resample##R, OutLen); }

FIXED_PAIR(48khzTo16khz, 160)
FIXED_PAIR(16khzTo48khz, 480)

struct Kernel {
  const char* name;
  const char* group;
  double seconds;  // audio per call; 0 for a stage measured against its twin
  int calls;
  void (*run)(int calls);
};

#define PAIR_ROWS(Fn, Calls) \
  {"kafx/" #Fn, "stage", 0, Calls, kedo_##Fn}, {"webrtc/" #Fn, "stage", 0, Calls, WebRtc_##Fn}

const Kernel kKernels[] = {
    {"speaker/front_end_all_on", "speaker", static_cast<double>(kBlock) / kRate, 16, front_end_all_on},
    {"speaker/front_end_all_off", "speaker", static_cast<double>(kBlock) / kRate, 16, front_end_all_off},
    {"speaker/parametric_eq_10_bands", "speaker", static_cast<double>(kBlock) / kRate, 8, parametric_eq},
    PAIR_ROWS(DownsampleBy2, 4),
    PAIR_ROWS(UpsampleBy2, 4),
    PAIR_ROWS(DownBy2ShortToInt, 4),
    PAIR_ROWS(DownBy2IntToShort, 4),
    PAIR_ROWS(UpBy2ShortToInt, 4),
    PAIR_ROWS(UpBy2IntToInt, 4),
    PAIR_ROWS(UpBy2IntToShort, 4),
    PAIR_ROWS(LPBy2ShortToInt, 4),
    PAIR_ROWS(LPBy2IntToInt, 4),
    PAIR_ROWS(Resample48khzTo32khz, 4),
    PAIR_ROWS(Resample32khzTo24khz, 4),
    PAIR_ROWS(Resample44khzTo32khz, 4),
    PAIR_ROWS(32khzTo22khzIntToInt, 4),
    PAIR_ROWS(48khzTo16khz, 4),
    PAIR_ROWS(16khzTo48khz, 4),
};

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 2 && std::strcmp(argv[1], "list") == 0) {
    for (const Kernel& k : kKernels) std::printf("%s %s %.9g %d\n", k.name, k.group, k.seconds, k.calls);
    return 0;
  }
  if (argc < 2) {
    std::fprintf(stderr, "usage: arm_kernels list | arm_kernels NAME [CALLS]\n");
    return 2;
  }
  for (const Kernel& k : kKernels) {
    if (std::strcmp(argv[1], k.name) != 0) continue;
    const int calls = argc >= 3 ? std::atoi(argv[2]) : k.calls;
    k.run(calls);
    std::printf("%s calls %d checksum %016llx\n", k.name, calls, static_cast<unsigned long long>(g_checksum));
    return 0;
  }
  std::fprintf(stderr, "arm_kernels: no kernel %s\n", argv[1]);
  return 2;
}
