// Headphone chain: init and rate classes (forwarded to the blocks that take a rate), what each preset and adapter
// switches on and loads (with the stated rows and log lines), the fade rules, core processing against the
// exported blocks wired in the stated order, and the format wrappers with their refusal of oversize blocks.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "headphone/hp_effect_tables.h"
#include "kafx_proc/hp_effect_chain.h"
#include "support/log_capture.h"
#include "support/variants.h"

namespace {

using V = std::vector<int32_t>;
using kafx_test::LogCapture;

struct Chain {
  kedo_hp_effect_t c{};
  explicit Chain(unsigned rate = 48000) {
    kedo_hp_effect_init(&c);
    kedo_hp_effect_set_sample_rate(&c, rate);
  }
  ~Chain() { kedo_hp_effect_end(&c); }
  // Chain on, no fade running, smooth volume resting at `gain`.
  void run_at(int gain) {
    c.status = c.active = 1;
    c.fade_state = -1;
    kedo_hp_effect_sv_set_volume(&c, gain);
    smooth_volume_set_soft_volume(c.smooth_volume, gain);
  }
  // Chain off: only the smooth volume, resting at `gain`.
  void off_at(int gain) {
    run_at(gain);
    c.status = c.active = 0;
  }
  void apply(int effect, int adapter, V data = {}) {
    std::memset(c.params, 0, sizeof *c.params);
    c.params->effect_type = effect;
    c.params->hpadapter_type = adapter;
    std::copy(data.begin(), data.end(), c.params->effect_data);
    kedo_hp_effect_update_parameter(&c);
  }
};

TEST(HpChain, InitAndRateClasses) {
  Chain ch;
  const kedo_hp_effect_t& c = ch.c;
  EXPECT_EQ((V{c.status, c.immediate_switch, c.active, c.fade_state, c.rate_type, c.channel_balance->status,
               c.virtual_bass->status, c.parameter_equalizer->status, c.equalizer->status, c.stereo_widening->status,
               c.reverb->status, c.smart_volume->status, c.channel_balance->channel_num, c.compressor->volume,
               c.compressor->delay_frames, c.smooth_volume->current_gain, c.smooth_volume->target_gain}),
            (V{0, 0, 0, -1, 1, 1, 0, 0, 0, 0, 0, 0, 2, 8192, 2, 0, 8192}));
  // Rate -> class -> the compressor's 5 ms frame and the crossfeed delay of the widening system.
  const std::tuple<unsigned, SampleRateType, int, int> rates[] = {
      {44100, SAMPLE_RATE_44100, 220, 23}, {48000, SAMPLE_RATE_48000, 240, 23}, {96000, SAMPLE_RATE_96000, 480, 47},
      {192000, SAMPLE_RATE_192000, 960, 95}, {46000, SAMPLE_RATE_48000, 240, 23}, {22050, SAMPLE_RATE_48000, 240, 23},
      {0, SAMPLE_RATE_48000, 240, 23}};
  for (auto [rate, cls, frame, delay] : rates) {
    kedo_hp_effect_set_sample_rate(&ch.c, rate);
    int d = -1;
    audio_delay_get_delay(c.stereo_widening->cfn->delay[1], &d);
    EXPECT_EQ((V{c.rate_type, c.compressor->drc_left->frame_len, c.compressor->drc_right->frame_len, d}),
              (V{cls, frame, frame, delay})) << rate;
  }
}

// What update_parameter switches on: {effect, adapter, rate, statuses of balance, virtual bass, parametric eq,
// graphic eq, widening, reverb, smart volume; chain log lines}. Balance and smart volume start on and are
// always switched off. An adapter loads its table record as it stands, gains included.
TEST(HpChain, PresetsAndAdaptersSwitchBlocksAndLog) {
  using Lines = std::vector<std::string>;
  const std::tuple<int, int, unsigned, V, Lines> cases[] = {
      {0, 0, 48000, {0, 0, 0, 0, 0, 0, 0}, {"effect_type 0, hpadapter_type 0"}},
      {1, 0, 48000, {0, 0, 0, 0, 1, 0, 0}, {"effect_type 1, hpadapter_type 0"}},
      {2, 0, 44100, {0, 1, 0, 0, 0, 0, 0}, {"effect_type 2, hpadapter_type 0"}},
      {3, 2, 48000, {0, 0, 1, 0, 0, 0, 0}, {"effect_type 3, hpadapter_type 2"}},
      {4, 0, 48000, {0, 0, 0, 0, 0, 1, 0}, {"effect_type 4, hpadapter_type 0"}},
      {5, 7, 44100, {0, 0, 0, 1, 0, 0, 0}, {"effect_type 5, hpadapter_type 7"}},
      {0, 4, 48000, {0, 0, 1, 0, 0, 0, 0}, {"hpadapter 4 enable", "effect_type 0, hpadapter_type 4"}},
      {1, 7, 44100, {0, 0, 1, 0, 1, 0, 0}, {"hpadapter 7 enable", "effect_type 1, hpadapter_type 7"}},
      {4, 1, 96000, {0, 0, 1, 0, 0, 1, 0}, {"hpadapter 1 enable", "effect_type 4, hpadapter_type 1"}},
      {2, 8, 48000, {0, 1, 0, 0, 0, 0, 0}, {"effect_type 2, hpadapter_type 8"}},
      {6, -1, 48000, {0, 0, 0, 0, 0, 0, 0}, {"effect_type 6, hpadapter_type -1"}},
  };
  for (const auto& [effect, adapter, rate, want, lines] : cases) {
    Chain ch(rate);
    ch.c.smart_volume->status = 1;
    LogCapture log;
    ch.apply(effect, adapter, {7000, 2000, 3000, 4000, 5000, 6000});
    const kedo_hp_effect_t& c = ch.c;
    EXPECT_EQ((V{c.channel_balance->status, c.virtual_bass->status, c.parameter_equalizer->status,
                 c.equalizer->status, c.stereo_widening->status, c.reverb->status, c.smart_volume->status}),
              want) << effect << " " << adapter;
    EXPECT_EQ(log.messages(), lines);
    for (const auto& l : log.all()) EXPECT_TRUE(l.tag == "kafx_hp_proc" && l.priority == ANDROID_LOG_DEBUG);
    if (want[2] == 1 && effect != 3) {  // the adapter's record as it stands (all zero at 96 kHz)
      param_eq_param_acdb_t p{}, want = kafx::kHpAdapterTable[c.rate_type][adapter - 1];
      kedo_hp_effect_p_eq_getparameter(&ch.c, &p);
      want.status = 1;
      EXPECT_EQ(0, std::memcmp(&p, &want, sizeof p)) << effect << " " << adapter;
      EXPECT_EQ(p.gain_left, rate <= 48000 ? 8192 : 0);
    }
  }
}

// The values each preset loads, read back through the chain's record getters; the stated rows of the built-in
// virtual bass and parametric presets among them.
TEST(HpChain, PresetValuesAndStatedRows) {
  const V vbs44 = {1, 8192, 4096, 6144, 8192, 324108, 648216, 324108, 509844742, -242705718};
  const V vbs48 = {1, 8192, 4096, 6144, 8192, 274666, 549332, 274666, 512037650, -244700858};
  for (unsigned rate : {44100u, 48000u, 96000u, 192000u}) {
    Chain ch(rate);
    ch.apply(2, 0);
    virtual_bass_param_acdb_t v{};
    kedo_hp_effect_vbs_getparameter(&ch.c, &v);
    EXPECT_EQ(V(&v.status, &v.status + 10), rate == 44100 ? vbs44 : vbs48) << rate;
  }
  const std::pair<unsigned, V> peq_rows[] = {
      {44100, {3, 268066611, -533162405, 265217574, 533162405, -264848730}},
      {48000, {3, 268096392, -533470927, 265477386, 533470927, -265138322}},
      {96000, {3, 268096392, -533470927, 265477386, 533470927, -265138322}}};
  for (const auto& [rate, row] : peq_rows) {
    Chain ch(rate);
    ch.c.parameter_equalizer->gain_left = 100;
    ch.apply(3, 0);
    param_eq_param_acdb_t p{};
    kedo_hp_effect_p_eq_getparameter(&ch.c, &p);
    EXPECT_EQ((V{p.status, p.gain_left, p.gain_right}), (V{1, 8192, 8192})) << rate;
    EXPECT_EQ(V(p.left_band[0], p.left_band[0] + 6), row) << rate;
    EXPECT_EQ(V(p.right_band[0], p.right_band[0] + 6), row) << rate;
  }
  Chain ch(48000);
  ch.apply(1, 0);
  stereo_param_acdb_t s{};
  kedo_hp_effect_sws_getparameter(&ch.c, &s);
  EXPECT_EQ(V(&s.status, &s.status + 7), (V{1, 4096, 4096, 6656, 1536, 7168, 4096}));
  ch.apply(4, 0, {7000, 2000, 3000, 4000, 5000, 6000});
  reverb_param_acdb_t r{};
  kedo_hp_effect_reverb_getparameter(&ch.c, &r);
  EXPECT_EQ(V(&r.status, &r.status + 7), (V{1, 7000, 2000, 3000, 4000, 5000, 6000}));
  EXPECT_EQ(ch.c.reverb->feedback, ((7000 * 2333) >> 13) + 5779);  // reverb_update ran
  ch.apply(5, 0, {20, -20, 1, 2, 3, 4, 5, 6, 7, 15});
  equalizer_params e{};
  kedo_hp_effect_eq_getparameter_index(&ch.c, &e);
  EXPECT_EQ(V(&e.status, &e.status + 11), (V{1, 15, -15, 1, 2, 3, 4, 5, 6, 7, 15}));
}

// Fade rules: update_smooth_status from each state; setparameter (identical, chain off, chain on); setstatus with
// and without the immediate switch; state 4 with the chain switched off.
TEST(HpChain, FadeRules) {
  for (auto [from, to] : {std::pair{-1, 6}, {0, 6}, {1, 6}, {2, 4}, {3, 4}, {4, 4}, {5, 5}, {6, 6}}) {
    for (int gain : {0, 5000}) {
      Chain ch;
      ch.c.fade_state = from;
      smooth_volume_set_soft_volume(ch.c.smooth_volume, gain);
      kedo_hp_effect_update_smooth_status(&ch.c);
      EXPECT_EQ(ch.c.fade_state, to) << from;
      // A new fade glides down from where it is, or from unity when resting at 0.
      const bool restarted = from < 2;
      EXPECT_EQ((V{ch.c.smooth_volume->target_gain, ch.c.smooth_volume->current_gain}),
                (V{restarted ? 0 : 8192, restarted && gain == 0 ? 8192 : gain})) << from << " " << gain;
    }
  }
  Chain ch;
  audio_effect_control_acdb_t rec = {3, 0, {}}, back{};
  kedo_hp_effect_setparameter(&ch.c, &rec);  // chain off: stored, no fade
  kedo_hp_effect_getparameter(&ch.c, &back);
  EXPECT_TRUE(ch.c.fade_state == -1 && back.effect_type == 3);
  ch.c.status = 1;
  ch.c.fade_state = 3;
  kedo_hp_effect_setparameter(&ch.c, &rec);  // identical: nothing, not even to a fade in progress
  EXPECT_EQ(ch.c.fade_state, 3);
  ch.c.fade_state = -1;
  rec.effect_data[28] = 9;  // the last word counts too
  kedo_hp_effect_setparameter(&ch.c, &rec);
  EXPECT_EQ(ch.c.fade_state, 6);

  Chain imm;
  imm.c.smart_volume->gain = 12345;
  kedo_hp_effect_debug_enable_setstatus(&imm.c, 1);
  int flag = 0;
  kedo_hp_effect_debug_enable_getstatus(&imm.c, &flag);
  kedo_hp_effect_setstatus(&imm.c, 1);
  EXPECT_EQ((V{flag, imm.c.status, imm.c.fade_state, imm.c.smart_volume->gain}), (V{1, 1, -1, 0}));  // blocks reset

  Chain off;
  kedo_hp_effect_setstatus(&off.c, 0);
  EXPECT_EQ(off.c.fade_state, 6);
  off.c.fade_state = 4;
  off.c.active = 1;
  LogCapture log;
  int l = 0, r = 0;
  kedo_hp_effect_core_process(&off.c, &l, &r, 1);
  EXPECT_EQ((V{off.c.active, off.c.fade_state, off.c.smooth_volume->target_gain}), (V{0, 2, 8192}));
  EXPECT_TRUE(log.all().empty()) << "nothing applied with the chain off";
}

// core_process equals the exported blocks of an identically prepared chain run by hand in the stated order:
// balance, virtual bass, parametric else graphic equalizer, widening else reverb, smart volume, compressor,
// smooth volume; with the chain inactive only the smooth volume.
TEST(HpChain, CoreProcessIsTheBlocksInOrder) {
  using Prepare = std::function<void(Chain&)>;
  const channel_balance_param_acdb_t cb = {1, 2, 2500};
  const smart_volume_control_param_acdb_t svc = {1, 8192, 3, 7};
  const equalizer_params geq = {1, {6, 5, 3, 0, -2, -3, 0, 2, 4, 6}};
  const reverb_param_acdb_t rev = {1, 6000, 3000, 3000, 6000, 8192, 200};
  param_eq_param_acdb_t peq = kafx::kHpParametricPreset[1];  // unequal channels and gains
  std::memcpy(peq.right_band, kafx::kHpAdapterTable[1][3].right_band, sizeof peq.right_band);
  peq.status = 1;
  peq.gain_left = 12000;
  peq.gain_right = 6000;
  const std::tuple<const char*, Prepare, int> cases[] = {
      {"balance, graphic eq, reverb, smart volume",
       [&](Chain& ch) {
         ch.run_at(7000);
         kedo_hp_effect_cb_setparameter(&ch.c, &cb);
         kedo_hp_effect_eq_setparameter_index(&ch.c, &geq);
         kedo_hp_effect_reverb_setparameter(&ch.c, &rev);
         kedo_hp_effect_svc_setparameter(&ch.c, &svc);
       }, 0},
      {"parametric wins over graphic, widening over reverb; virtual bass",
       [&](Chain& ch) {
         ch.run_at(8192);
         ch.apply(1, 0);  // widening on (and balance off)
         kedo_hp_effect_p_eq_setparameter(&ch.c, &peq);
         kedo_hp_effect_eq_setparameter_index(&ch.c, &geq);
         kedo_hp_effect_reverb_setparameter(&ch.c, &rev);
         const virtual_bass_param_acdb_t vbs = {1, 8192, 4096, 6144, 8192, {274666, 549332, 274666, 512037650, -244700858}};
         kedo_hp_effect_vbs_setparameter(&ch.c, &vbs);
       }, 1},
      {"inactive: smooth volume only, gliding",
       [&](Chain& ch) {
         ch.off_at(8192);
         kedo_hp_effect_cb_setparameter(&ch.c, &cb);
         kedo_hp_effect_p_eq_setparameter(&ch.c, &peq);
         kedo_hp_effect_sv_set_volume(&ch.c, 3000);
       }, 2},
  };
  for (const auto& [what, prepare, kind] : cases) {
    Chain a(44100), b(44100);
    prepare(a);
    prepare(b);
    kedo_hp_effect_t& h = b.c;
    const V in_l = kafx_test::random_values<int32_t>(240 * 6 + 17, 11, -6000000, 6000000);
    const V in_r = kafx_test::random_values<int32_t>(in_l.size(), 12, -6000000, 6000000);
    V al = in_l, ar = in_r, bl = in_l, br = in_r;
    for (size_t pos = 0, n = 240; pos < in_l.size(); pos += n) {
      n = std::min<size_t>(240, in_l.size() - pos);
      const int cnt = static_cast<int>(n);
      kedo_hp_effect_core_process(&a.c, &al[pos], &ar[pos], cnt);
      int* l = &bl[pos];
      int* r = &br[pos];
      if (kind != 2) {
        if (kind == 0) channel_balance_process_stereo(h.channel_balance, l, r, l, r, cnt);
        if (kind == 1) virtual_bass_system_process(h.virtual_bass, l, r, l, r, cnt);
        if (kind == 0) equalizer_process_stereo(h.equalizer, l, r, l, r, cnt);
        if (kind == 1) parameter_equalizer_process_stereo(h.parameter_equalizer, l, r, l, r, cnt);
        if (kind == 0) reverb_process_stereo_24(h.reverb, l, r, l, r, static_cast<unsigned>(cnt));
        if (kind == 1) stereo_widening_system_process(h.stereo_widening, l, r, l, r, cnt);
        if (kind == 0) smart_volume_control_process(h.smart_volume, l, r, l, r, cnt);
        compressor_process(h.compressor, l, r, l, r, cnt);
      }
      smooth_volume_process(h.smooth_volume, l, r, l, r, cnt);
    }
    EXPECT_TRUE(al == bl && ar == br) << what;
    EXPECT_NE(al, in_l) << what;
  }
}

using Wrapper = void (*)(kedo_hp_effect_t*, void*, void*, void*, void*, int);

template <int Bits>
void v2(kedo_hp_effect_t* c, void* il, void* ir, void* ol, void* orr, int n) {
  kedo_hp_effect_process_v2(c, Bits, il, ir, ol, orr, n);
}

// Wrappers on a chain that only runs its smooth volume at `gain`; outputs start at -7 so that refused blocks show.
template <typename T>
std::array<std::vector<T>, 2> wrapped(Wrapper w, int gain, int channel_num, std::array<std::vector<T>, 2> in) {
  Chain ch;
  ch.off_at(gain);
  ch.c.channel_balance->channel_num = channel_num;
  std::array<std::vector<T>, 2> out{std::vector<T>(in[0].size(), -7), std::vector<T>(in[0].size(), -7)};
  w(&ch.c, in[0].data(), in[1].data(), out[0].data(), out[1].data(), static_cast<int>(in[0].size()));
  return out;
}

// 16-bit: x * 256 in, (x >> 8) saturated out (truncating); 24-bit: copied in, clamped to +-8388607 out; v2 takes
// 16 for the first and anything else for the second; channel_num other than 2 repeats the left result on the
// right; more than 256 samples are refused.
TEST(HpChain, FormatWrappers) {
  using I16 = std::vector<int16_t>;
  using I32 = std::vector<int32_t>;
  using P16 = std::array<I16, 2>;
  using P32 = std::array<I32, 2>;
  const std::tuple<const char*, Wrapper, int, int, P16, P16> cases16[] = {
      {"16 x2", kedo_hp_effect_process_16, 16384, 2, {{{20000, -20000, 3, -1}, {1, 2, 3, 4}}},
       {{{32767, -32768, 6, -2}, {2, 4, 6, 8}}}},
      {"16 x0.5", kedo_hp_effect_process_16, 4096, 2, {{{3, -3, -1, 1}, {5, 0, 0, 0}}}, {{{1, -2, -1, 0}, {2, 0, 0, 0}}}},
      {"16 left on both", kedo_hp_effect_process_16, 8192, 1, {{{100, -300}, {7, 7}}}, {{{100, -300}, {100, -300}}}},
      {"v2 16", v2<16>, 8192, 2, {{{1234}, {-5}}}, {{{1234}, {-5}}}},
      {"256", kedo_hp_effect_process_16, 8192, 2, {{I16(256, 1000), I16(256, 9)}}, {{I16(256, 1000), I16(256, 9)}}},
      {"257", kedo_hp_effect_process_16, 8192, 2, {{I16(257, 1000), I16(257, 9)}}, {{I16(257, -7), I16(257, -7)}}},
  };
  for (const auto& [what, w, gain, num, in, want] : cases16) EXPECT_EQ(wrapped(w, gain, num, in), want) << what;
  const std::tuple<const char*, Wrapper, int, int, P32, P32> cases32[] = {
      {"24", kedo_hp_effect_process_24, 8192, 2, {{{9000000, -9000000, -8388608, 8388607}, {5, -5, 0, 1}}},
       {{{8388607, -8388607, -8388607, 8388607}, {5, -5, 0, 1}}}},
      {"24 left on both", kedo_hp_effect_process_24, 8192, 3, {{{-9000000, 4}, {1, 1}}}, {{{-8388607, 4}, {-8388607, 4}}}},
      {"v2 32", v2<32>, 8192, 2, {{{9000000}, {-17}}}, {{{8388607}, {-17}}}},
      {"257", kedo_hp_effect_process_24, 8192, 2, {{I32(257, 1000), I32(257, 9)}}, {{I32(257, -7), I32(257, -7)}}},
  };
  for (const auto& [what, w, gain, num, in, want] : cases32) EXPECT_EQ(wrapped(w, gain, num, in), want) << what;
}

// An oversize block is refused whole, even by core_process (no sample, no fade step); a count of 0 runs the fade
// logic (the record is applied at state 4) and writes nothing.
TEST(HpChain, OversizeAndEmptyBlocks) {
  Chain ch;
  ch.c.status = 1;
  ch.c.params->effect_type = 3;
  ch.c.fade_state = 4;
  V l(300, 1000), r(300, 1000);
  kedo_hp_effect_core_process(&ch.c, l.data(), r.data(), 300);
  EXPECT_TRUE(l == V(300, 1000) && r == V(300, 1000) && ch.c.fade_state == 4 && ch.c.parameter_equalizer->status == 0);
  int16_t s = 77;
  kedo_hp_effect_process_16(&ch.c, &s, &s, &s, &s, 0);
  EXPECT_TRUE(s == 77 && ch.c.active == 1 && ch.c.parameter_equalizer->status == 1);
  kedo_hp_effect_process_24(&ch.c, &s, &s, &s, &s, -5);
  EXPECT_EQ(s, 77);
}

}  // namespace
