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
#include "kafx_proc/parametric_eq.h"
#include "kafx_proc/speaker_boost.h"

namespace {

using kafx_bench::make_programme;
using kafx_bench::set_realtime_counter;

constexpr int kBlock = KAFX_SPEAKER_BOOST_BLOCK;  // 240 frames

// Ten peaking bands (octaves from 31.25 Hz, alternating boost and cut) as
// Q28 band records: enable, b0, b1, b2 and the added-sign feedback a1, a2.
using BandSet = std::array<std::array<int, 6>, PARAMETER_EQUALIZER_BANDS>;

BandSet design_bands(int rate, double gain_scale) {
  BandSet bands{};
  for (int k = 0; k < PARAMETER_EQUALIZER_BANDS; ++k) {
    const double f = std::min(31.25 * std::pow(2.0, k), 0.45 * rate);
    const double gain_db = ((k % 2) != 0 ? -4.0 : 5.0) * gain_scale;
    const double a = std::pow(10.0, gain_db / 40.0);
    const double w0 = 2.0 * std::numbers::pi * f / rate;
    const double alpha = std::sin(w0) / (2.0 * 1.2);
    const double a0 = 1.0 + alpha / a;
    const double c[5] = {(1.0 + alpha * a) / a0, -2.0 * std::cos(w0) / a0, (1.0 - alpha * a) / a0,
                         2.0 * std::cos(w0) / a0, -(1.0 - alpha / a) / a0};
    bands[k][0] = 1;
    for (int j = 0; j < 5; ++j) bands[k][j + 1] = static_cast<int>(std::lround(c[j] * 268435456.0));
  }
  return bands;
}

// Every front-end block on: balance cross-mix, ten equalizer bands per side,
// the boost system with harmonic bass and all eight limiters set to limit
// this material.
void configure_everything_on(void* handle, int rate) {
  kafx_sp_params_t p{};
  p.sbs.enable = 1;
  p.sbs.gain[0] = 6144;  // harmonic band at 0.75 (Q13)
  p.sbs.gain[1] = 6144;
  p.sbs.channel_ration = 1024;
  p.sbs.channel_num = 2;
  const drc_param_t band_limiter{0, 5, 12000, 10240, 256};
  const drc_param_t full_limiter{0, 6, 24000, 9000, 256};
  for (int i = 0; i < 3; ++i) p.sbs.drc_left[i] = p.sbs.drc_right[i] = band_limiter;
  p.sbs.drc_left[3] = p.sbs.drc_right[3] = full_limiter;
  p.peq.enable = 1;
  p.peq.gain[0] = p.peq.gain[1] = 7000;
  const BandSet left = design_bands(rate, 1.0), right = design_bands(rate, -0.5);
  std::memcpy(p.peq.Lfilter, left.data(), sizeof p.peq.Lfilter);
  std::memcpy(p.peq.Rfilter, right.data(), sizeof p.peq.Rfilter);
  kafx_speaker_boost_params_update(handle, &p);
}

// Host-side loop: copy the next 240 frames of programme into the buffer
// (a real host's buffer is fresh every call) and process it in place.
void run_front_end(benchmark::State& state, int rate, bool everything_on) {
  const std::vector<int16_t> programme = make_programme(rate);
  void* handle = kafx_speaker_boost_init(2, static_cast<unsigned>(rate), 1);
  if (everything_on) configure_everything_on(handle, rate);
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
  const BandSet left = design_bands(rate, 1.0), right = design_bands(rate, -0.5);
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
