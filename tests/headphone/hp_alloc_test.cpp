// Real-time safety and allocation failure of the headphone product: no
// process call reaches the allocator (front end in every host format at both
// rates with each of the five presets applied and the smart volume and
// channel balance on as well; the chain's format wrappers; every block's own
// process entry), and a failure at any one allocation of the front end's
// init gives a null handle with nothing leaked.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "kafx_proc/hp_effect.h"
#include "support/alloc_hooks.h"
#include "support/log_capture.h"
#include "support/variants.h"

namespace {

using kafx_test::AllocCounter;
using kafx_test::random_values;

// Adapter 2 is loaded where the preset allows it; the data are the reverb's
// settings or the graphic equalizer's indices (6000 etc. clamp to 15).
audio_effect_control_acdb_t preset(int effect) {
  return {effect, 2, {6000, 3000, 4000, 4000, 8192, 127, -15, 1, 2, -3}};
}

// The status word of the block a preset turns on.
int preset_block_status(const kedo_hp_effect_t& c, int effect) {
  const int32_t s[] = {c.stereo_widening->status, c.virtual_bass->status, c.parameter_equalizer->status,
                       c.reverb->status, c.equalizer->status};
  return s[effect - 1];
}

// Every front-end process call, through the preset's fade and with the
// preset in force, for each format, rate and preset; buffer sizes change so
// that the block length is chosen again and last blocks are partial.
TEST(HpAlloc, FrontEndProcessNeverAllocates) {
  const unsigned kFrames[] = {240, 256, 480, 17, 1024, 960, 1, 511, 240};
  for (int format : {1, 2, 3})
    for (unsigned rate : {44100u, 48000u})
      for (int effect = 1; effect <= 5; ++effect) {
        void* h = kafx_hp_effect_init(rate, format);
        ASSERT_NE(h, nullptr);
        kedo_hp_effect_t& chain = static_cast<kafx_hp_effect_t*>(h)->chain;
        audio_effect_control_acdb_t rec = preset(effect);
        kafx_hp_effect_set_parameters(h, &rec);
        const int64_t full = format == 1 ? 32767 : (format == 2 ? 8388607 : INT32_MAX);
        std::vector<int32_t> in32 = random_values<int32_t>(2 * 1024, rate + 10 * format + effect, -full, full);
        std::vector<int16_t> in16(in32.begin(), in32.end());
        void* buf = format == 1 ? static_cast<void*>(in16.data()) : static_cast<void*>(in32.data());
        for (int pass = 0; pass < 2; ++pass) {
          for (unsigned frames : kFrames) {
            AllocCounter c;
            kafx_hp_effect_process(h, buf, frames * (format == 1 ? 4u : 8u));
            EXPECT_TRUE(c.allocations() == 0 && c.frees() == 0) << format << " " << rate << " " << effect << " "
                                                                << frames;
          }
          ASSERT_TRUE(chain.active == 1 && preset_block_status(chain, effect) != 0) << effect;
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
  std::vector<int32_t> l = random_values<int32_t>(300, 1, -8388607, 8388607);
  std::vector<int32_t> r = random_values<int32_t>(300, 2, -8388607, 8388607);
  std::vector<int16_t> l16(l.begin(), l.end()), r16(r.begin(), r.end()), m16(l16);
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
  EXPECT_TRUE(counter.allocations() == 0 && counter.frees() == 0);
  kafx_hp_effect_deinit(h);
}

// A failure at any allocation of the front end's init (the handle, a block,
// a part of a block, a buffer) gives a null handle and frees what was built;
// also at a bypassed rate, which builds the same chain.
TEST(HpAlloc, InitFailureAtEveryAllocationReturnsNullAndLeaksNothing) {
  const kafx_test::LogCapture quiet;  // the bypass warning of every init
  for (auto [rate, format] : {std::pair{44100u, 1}, {48000u, 3}, {32000u, 2}}) {
    const long n = kafx_test::for_each_failing_allocation([&, rate = rate, format = format](long failing) {
      void* h = kafx_hp_effect_init(rate, format);
      EXPECT_EQ(h == nullptr, failing != 0) << rate << " " << format << ": allocation " << failing << " failed";
      kafx_hp_effect_deinit(h);
    });
    EXPECT_GT(n, 100) << "every block's memory comes from the allocator";
  }
}

}  // namespace
