// Headphone product benchmarks: the front end at 48 kHz, stereo 16-bit, in
// 240-frame buffers, with effect preset 1 (stereo widening), preset 2
// (virtual bass), preset 4 (reverb, the kafx tool's default room), preset 5
// (graphic equalizer, every band away from 0), with preset 3 (parametric
// equalizer) plus the smart volume control, and with no preset (compressor
// and smooth volume only).
// The "x_realtime" counter is audio seconds processed per CPU second.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "bench_signal.h"
#include "kafx_proc/hp_effect.h"

namespace {

constexpr int kRate = 48000;
constexpr int kBlock = KAFX_HP_EFFECT_BLOCK_240;

enum class Setup { kNone, kWidening, kVirtualBass, kReverb, kGraphicEq, kParametricSmartVolume };

// Preset 4's room: room size, damp, wet, dry, width, gain (the kafx tool's
// default when no reverb values are given).
constexpr int kReverbRoom[6] = {4096, 4096, 2730, 4096, 8192, 127};

// Host-side loop: copy the next 240 frames of programme into the buffer (a
// real host's buffer is fresh every call) and process it in place. The
// preset's fade is run to its end before timing starts.
void run_front_end(benchmark::State& state, Setup setup) {
  const std::vector<int16_t> programme = kafx_bench::make_programme(kRate);
  void* handle = kafx_hp_effect_init(kRate, 1);
  audio_effect_control_acdb_t rec{};
  if (setup == Setup::kGraphicEq) {
    rec.effect_type = KEDO_HP_EFFECT_GRAPHIC_EQ;
    const int steps[EQUALIZER_BANDS] = {6, 4, 2, -1, -3, -2, 1, 3, 5, 7};
    std::memcpy(rec.effect_data, steps, sizeof steps);
  } else if (setup == Setup::kParametricSmartVolume) {
    rec.effect_type = KEDO_HP_EFFECT_PARAMETRIC_EQ;
  } else if (setup == Setup::kWidening) {
    rec.effect_type = KEDO_HP_EFFECT_STEREO_WIDENING;
  } else if (setup == Setup::kVirtualBass) {
    rec.effect_type = KEDO_HP_EFFECT_VIRTUAL_BASS;
  } else if (setup == Setup::kReverb) {
    rec.effect_type = KEDO_HP_EFFECT_REVERB;
    std::memcpy(rec.effect_data, kReverbRoom, sizeof kReverbRoom);
  }
  kafx_hp_effect_set_parameters(handle, &rec);
  std::array<int16_t, 2 * kBlock> buffer{};
  size_t pos = 0;
  auto next_block = [&] {
    std::memcpy(buffer.data(), programme.data() + 2 * pos, sizeof buffer);
    kafx_hp_effect_process(handle, buffer.data(), sizeof buffer);
    pos += kBlock;
    if (pos + kBlock > static_cast<size_t>(kRate)) pos = 0;
  };
  for (int i = 0; i < 10; ++i) next_block();  // the preset's fade
  if (setup == Setup::kParametricSmartVolume) {
    const smart_volume_control_param_acdb_t svc = {1, 8192, 3, 7};
    kedo_hp_effect_svc_setparameter(&static_cast<kafx_hp_effect_t*>(handle)->chain, &svc);
  }
  for (auto _ : state) {
    next_block();
    benchmark::DoNotOptimize(buffer.data());
  }
  kafx_hp_effect_deinit(handle);
  kafx_bench::set_realtime_counter(state, kBlock, kRate);
}

void BM_HpFrontEnd_NoPreset(benchmark::State& state) { run_front_end(state, Setup::kNone); }
void BM_HpFrontEnd_Preset1_Widening(benchmark::State& state) { run_front_end(state, Setup::kWidening); }
void BM_HpFrontEnd_Preset2_VirtualBass(benchmark::State& state) { run_front_end(state, Setup::kVirtualBass); }
void BM_HpFrontEnd_Preset4_Reverb(benchmark::State& state) { run_front_end(state, Setup::kReverb); }
void BM_HpFrontEnd_Preset5_GraphicEq(benchmark::State& state) { run_front_end(state, Setup::kGraphicEq); }
void BM_HpFrontEnd_Preset3_SmartVolume(benchmark::State& state) {
  run_front_end(state, Setup::kParametricSmartVolume);
}
BENCHMARK(BM_HpFrontEnd_NoPreset);
BENCHMARK(BM_HpFrontEnd_Preset1_Widening);
BENCHMARK(BM_HpFrontEnd_Preset2_VirtualBass);
BENCHMARK(BM_HpFrontEnd_Preset4_Reverb);
BENCHMARK(BM_HpFrontEnd_Preset5_GraphicEq);
BENCHMARK(BM_HpFrontEnd_Preset3_SmartVolume);

}  // namespace
