// Speaker product benchmarks: the front end per 240-frame block with every
// block off and with every block on, and the parametric equalizer alone.
// The "x_realtime" counter is audio seconds processed per CPU second.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>
#include <vector>

#include "bench_signal.h"
#include "speaker_setup.h"
#include "kafx_proc/parametric_eq.h"
#include "kafx_proc/speaker_boost.h"

namespace {

using kafx_bench::configure_speaker_everything_on;
using kafx_bench::design_speaker_bands;
using kafx_bench::make_programme;
using kafx_bench::set_realtime_counter;

constexpr int kBlock = KAFX_SPEAKER_BOOST_BLOCK;  // 240 frames

// Host-side loop: copy the next 240 frames of programme into the buffer
// (a real host's buffer is fresh every call) and process it in place.
void run_front_end(benchmark::State& state, int rate, bool everything_on) {
  const std::vector<int16_t> programme = make_programme(rate);
  void* handle = kafx_speaker_boost_init(2, static_cast<unsigned>(rate), 1);
  if (everything_on) configure_speaker_everything_on(handle, rate);
  std::array<int16_t, 2 * kBlock> buffer{};
  size_t pos = 0;
  for (auto _ : state) {
    std::memcpy(buffer.data(), programme.data() + 2 * pos, sizeof buffer);
    kafx_speaker_boost_process(handle, buffer.data(), sizeof buffer);
    benchmark::DoNotOptimize(buffer.data());
    pos += kBlock;
    if (pos + kBlock > static_cast<size_t>(rate)) pos = 0;
  }
  kafx_speaker_boost_deinit(handle);
  set_realtime_counter(state, kBlock, rate);
}

void BM_SpeakerFrontEnd_AllOff(benchmark::State& state) { run_front_end(state, 48000, false); }
BENCHMARK(BM_SpeakerFrontEnd_AllOff);

void BM_SpeakerFrontEnd_AllOn(benchmark::State& state) {
  run_front_end(state, static_cast<int>(state.range(0)), true);
}
BENCHMARK(BM_SpeakerFrontEnd_AllOn)->ArgName("rate")->Arg(44100)->Arg(48000)->Arg(96000);

// The equalizer alone: 240 working samples per side, ten active bands each.
void BM_ParametricEq_10Bands_Stereo(benchmark::State& state) {
  constexpr int rate = 48000;
  const std::vector<int16_t> programme = make_programme(rate);
  std::array<int, kBlock> in_l{}, in_r{}, out_l{}, out_r{};
  for (int i = 0; i < kBlock; ++i) {
    in_l[i] = programme[2 * static_cast<size_t>(i)] * 256;
    in_r[i] = programme[2 * static_cast<size_t>(i) + 1] * 256;
  }
  parameter_equalizer_t eq;
  parameter_equalizer_init(&eq);
  parameter_equalizer_setstatus(&eq, 1);
  const auto left = design_speaker_bands(rate, 1.0), right = design_speaker_bands(rate, -0.5);
  parameter_equalizer_setparameter_left(&eq, reinterpret_cast<const int(*)[6]>(left.data()));
  parameter_equalizer_setparameter_right(&eq, reinterpret_cast<const int(*)[6]>(right.data()));
  for (auto _ : state) {
    parameter_equalizer_process_stereo(&eq, in_l.data(), in_r.data(), out_l.data(), out_r.data(), kBlock);
    benchmark::DoNotOptimize(out_l.data());
    benchmark::DoNotOptimize(out_r.data());
  }
  parameter_equalizer_end(&eq);
  set_realtime_counter(state, kBlock, rate);
}
BENCHMARK(BM_ParametricEq_10Bands_Stereo);

}  // namespace
