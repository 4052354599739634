// Real-time safety and allocation failure of the headphone product: no
// process call reaches the allocator (front end in every host format at both
// rates with each of the five presets applied and the smart volume and
// channel balance on as well; the chain's format wrappers; every block's own
// process entry), and a failure at any one allocation of the front end's
// init gives a null handle with nothing leaked.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "kafx_proc/hp_effect.h"
#include "support/alloc_hooks.h"
#include "support/log_capture.h"

namespace {

using kafx_test::AllocCounter;

std::vector<int32_t> noise(size_t n, int32_t full, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int32_t> d(-full, full);
  std::vector<int32_t> v(n);
  for (auto& x : v) x = d(rng);
  return v;
}

audio_effect_control_acdb_t preset(int effect) {
  audio_effect_control_acdb_t r{};
  r.effect_type = effect;
  r.hpadapter_type = 2;  // loads the adapter correction where the preset allows it
  const int reverb[6] = {6000, 3000, 4000, 4000, 8192, 127};
  const int bands[10] = {3, -2, 5, 0, -7, 15, -15, 1, 2, -3};
  const int* data = effect == KEDO_HP_EFFECT_REVERB ? reverb : bands;
  for (int i = 0; i < (effect == KEDO_HP_EFFECT_REVERB ? 6 : 10); ++i) r.effect_data[i] = data[i];
  return r;
}

// The status word of the block a preset turns on.
int preset_block_status(const kedo_hp_effect_t& c, int effect) {
  switch (effect) {
    case KEDO_HP_EFFECT_STEREO_WIDENING: return c.stereo_widening->status;
    case KEDO_HP_EFFECT_VIRTUAL_BASS: return c.virtual_bass->status;
    case KEDO_HP_EFFECT_PARAMETRIC_EQ: return c.parameter_equalizer->status;
    case KEDO_HP_EFFECT_REVERB: return c.reverb->status;
    default: return c.equalizer->status;
  }
}

// Every front-end process call, through the preset's fade and with the
// preset in force, for each format, rate and preset; buffer sizes change so
// that the block length is chosen again and last blocks are partial.
TEST(HpAlloc, FrontEndProcessNeverAllocates) {
  const size_t kFrames[] = {240, 256, 480, 17, 1024, 960, 1, 511, 240};
  for (int format : {1, 2, 3})
    for (unsigned rate : {44100u, 48000u})
      for (int effect = 1; effect <= 5; ++effect) {
        void* h = kafx_hp_effect_init(rate, format);
        ASSERT_NE(h, nullptr);
        kedo_hp_effect_t& chain = static_cast<kafx_hp_effect_t*>(h)->chain;
        audio_effect_control_acdb_t rec = preset(effect);
        kafx_hp_effect_set_parameters(h, &rec);
        const int32_t full = format == 1 ? 32767 : (format == 2 ? 8388607 : INT32_MAX);
        std::vector<int32_t> in32 = noise(2 * 1024, full, rate + 10 * format + effect);
        std::vector<int16_t> in16(in32.begin(), in32.end());
        void* buf = format == 1 ? static_cast<void*>(in16.data()) : static_cast<void*>(in32.data());
        const unsigned frame_bytes = format == 1 ? 4u : 8u;
        for (int pass = 0; pass < 2; ++pass) {
          for (size_t frames : kFrames) {
            AllocCounter c;
            kafx_hp_effect_process(h, buf, static_cast<unsigned>(frames) * frame_bytes);
            EXPECT_EQ(c.allocations(), 0) << format << " " << rate << " " << effect << " " << frames;
            EXPECT_EQ(c.frees(), 0) << format << " " << rate << " " << effect << " " << frames;
          }
          ASSERT_EQ(chain.active, 1);
          ASSERT_NE(preset_block_status(chain, effect), 0) << effect;
          // The two blocks a preset leaves off, for the second pass.
          const smart_volume_control_param_acdb_t svc = {1, 4096, 2, 6};
          const channel_balance_param_acdb_t cb = {1, 2, 6000};
          kedo_hp_effect_svc_setparameter(&chain, &svc);
          kedo_hp_effect_cb_setparameter(&chain, &cb);
        }
        kafx_hp_effect_deinit(h);
      }
}

// The chain's own entry points, stereo and mono outputs, and each block's
// process function on the chain's blocks.
TEST(HpAlloc, ChainAndBlockProcessNeverAllocate) {
  void* h = kafx_hp_effect_init(48000, 2);
  ASSERT_NE(h, nullptr);
  kedo_hp_effect_t* c = &static_cast<kafx_hp_effect_t*>(h)->chain;
  std::vector<int32_t> l = noise(300, 8388607, 1), r = noise(300, 8388607, 2);
  std::vector<int16_t> l16(l.begin(), l.end()), r16(r.begin(), r.end());
  std::vector<int16_t> m16(l16);
  int32_t* L = l.data();
  int32_t* R = r.data();
  AllocCounter counter;
  for (int channels : {2, 1}) {
    const channel_balance_param_acdb_t cb = {1, channels, 4000};
    kedo_hp_effect_cb_setparameter(c, &cb);
    for (int effect = 1; effect <= 5; ++effect) {
      audio_effect_control_acdb_t rec = preset(effect);
      kedo_hp_effect_setparameter(c, &rec);
      for (int block = 0; block < 8; ++block) {  // through the fade: state 4 applies the preset
        kedo_hp_effect_core_process(c, L, R, 256);
        if (c->fade_state > -1) --c->fade_state;
      }
      kedo_hp_effect_core_process(c, L, R, 0);
      kedo_hp_effect_core_process(c, L, R, 257);  // refused
      kedo_hp_effect_process_16(c, l16.data(), r16.data(), l16.data(), r16.data(), 256);
      kedo_hp_effect_process_24(c, L, R, L, R, 255);
      kedo_hp_effect_process_v2(c, 16, l16.data(), r16.data(), l16.data(), r16.data(), 100);
      kedo_hp_effect_process_v2(c, 24, L, R, L, R, 100);
    }
  }
  channel_balance_process_stereo(c->channel_balance, L, R, L, R, 256);
  channel_balance_process_mono(c->channel_balance, L, R, L, 256);
  virtual_bass_system_process(c->virtual_bass, L, R, L, R, 300);
  compressor_bass_process(c->virtual_bass->compressor, L, L, 256);
  parameter_equalizer_process_stereo(c->parameter_equalizer, L, R, L, R, 256);
  parameter_equalizer_process_mono(c->parameter_equalizer, L, L, 256);
  equalizer_process_stereo(c->equalizer, L, R, L, R, 256);
  equalizer_process_mono(c->equalizer, L, L, 256);
  stereo_widening_system_process(c->stereo_widening, L, R, L, R, 300);
  difference_circuit_process_32(c->stereo_widening->dc, L, R, L, R);
  difference_circuit_process_block(c->stereo_widening->dc, L, R, L, R, 256);
  crossfeed_network_process_32(c->stereo_widening->cfn, L, R, L, R);
  crossfeed_network_process_block(c->stereo_widening->cfn, L, R, L, R, 256);
  early_reflector_process_32(c->stereo_widening->er, L, R, L, R);
  early_reflector_process_block(c->stereo_widening->er, L, R, L, R, 256);
  reverb_process_stereo_24(c->reverb, L, R, L, R, 300);
  reverb_process_stereo_16(c->reverb, l16.data(), r16.data(), l16.data(), r16.data(), 300);
  reverb_processMono(c->reverb, m16.data(), m16.data(), 300);
  smart_volume_control_process(c->smart_volume, L, R, L, R, 256);
  compressor_process(c->compressor, L, R, L, R, 256);
  smooth_volume_process(c->smooth_volume, L, R, L, R, 256);
  EXPECT_EQ(counter.allocations(), 0);
  EXPECT_EQ(counter.frees(), 0);
  kafx_hp_effect_deinit(h);
}

// A failure at any allocation of the front end's init (the handle, a block,
// a part of a block, a buffer) gives a null handle and frees what was built;
// also at a bypassed rate, which builds the same chain.
TEST(HpAlloc, InitFailureAtEveryAllocationReturnsNullAndLeaksNothing) {
  const struct { unsigned rate; int format; } kCases[] = {{44100, 1}, {48000, 3}, {32000, 2}};
  const kafx_test::LogCapture quiet;  // the bypass warning of every init
  for (const auto& k : kCases) {
    const long n = kafx_test::for_each_failing_allocation([&](long failing) {
      void* h = kafx_hp_effect_init(k.rate, k.format);
      if (failing == 0) {
        ASSERT_NE(h, nullptr);
      } else {
        EXPECT_EQ(h, nullptr) << k.rate << " " << k.format << ": allocation " << failing << " failed";
      }
      kafx_hp_effect_deinit(h);
    });
    EXPECT_GT(n, 100) << "every block's memory comes from the allocator";
  }
}

}  // namespace
