// The library as an audio service sees it: loaded with dlopen by its plain
// name, every interface name resolved with dlsym, internal helpers hidden,
// and the speaker product driven through the resolved entry points alone.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kafx_proc/hp_effect.h"
#include "kafx_proc/ns.h"
#include "kafx_proc/reverb.h"
#include "kafx_proc/speaker_boost.h"

namespace {

class Library : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    handle_ = dlopen("libkafx_proc.so", RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) error_ = dlerror();
  }
  static void TearDownTestSuite() {
    if (handle_ != nullptr) dlclose(handle_);
    handle_ = nullptr;
  }
  template <typename F>
  static F sym(const char* name) {
    return reinterpret_cast<F>(dlsym(handle_, name));
  }
  static void* handle_;
  static std::string error_;
};
void* Library::handle_ = nullptr;
std::string Library::error_;

std::vector<std::string> interface_names() {
  std::vector<std::string> n = {
      "sqrt_fixed", "sqrtFxQ16", "exp_fixed", "log_fixed", "complex_init", "complex_setvalue", "complex_end",
      "complex_add", "complex_sub", "complex_mul", "complex_getpower", "complex_swap",
      "IIR_init", "IIR_reinit", "IIR_reset", "IIR_end", "IIR_set_param", "IIR_get_param", "IIR_set_status",
      "IIR_get_status", "IIR_process_16", "IIR_process_32",
      "audio_delay_init", "audio_delay_reinit", "audio_delay_set_delay", "audio_delay_get_delay",
      "audio_delay_reset", "audio_delay_end", "audio_delay_process", "allpass_init", "allpass_reset",
      "allpass_end", "allpass_setfeedback", "allpass_getfeedback", "allpass_process", "comb_init", "comb_reset",
      "comb_end", "comb_setfeedback", "comb_setsetdamp", "comb_process_16", "comb_process_24", "iircomber_init",
      "iircomber_reset", "iircomber_setdelay", "iircomber_getdelay", "iircomber_setfeedback",
      "iircomber_getfeedback", "iircomber_process",
      "spectral_band_split_init", "spectral_band_split_reinit", "spectral_band_split_reset",
      "spectral_band_split_end", "spectral_band_split_process", "NLD_init", "NLD_reset", "NLD_end",
      "NLD_set_clip_flag", "NLD_get_clip_flag", "NLD_set_clip_level", "NLD_get_clip_level", "clip_process",
      "multiplier_process", "NLD_process",
      "dynamic_range_control_init", "dynamic_range_control_reinit", "dynamic_range_control_reset",
      "dynamic_range_control_end", "dynamic_range_control_process",
      "parameter_equalizer_init", "parameter_equalizer_reset", "parameter_equalizer_end",
      "parameter_equalizer_setstatus", "parameter_equalizer_getstatus", "parameter_equalizer_set_gain_left",
      "parameter_equalizer_get_gain_left", "parameter_equalizer_set_gain_right",
      "parameter_equalizer_get_gain_right", "parameter_equalizer_setparameter_left",
      "parameter_equalizer_setparameter_right", "parameter_equalizer_getparameter_left",
      "parameter_equalizer_getparameter_right", "parameter_equalizer_process_stereo",
      "parameter_equalizer_process_mono",
      "channel_balance_init", "channel_balance_end", "channel_balance_reset", "channel_balance_setstatus",
      "channel_balance_getstatus", "channel_balance_set_channel_ration", "channel_balance_get_channel_ration",
      "channel_balance_set_channel_num", "channel_balance_get_channel_num", "channel_balance_process_stereo",
      "channel_balance_process_mono",
      "speaker_boost_system_init", "speaker_boost_system_set_sample_rate", "speaker_boost_system_reset",
      "speaker_boost_system_end", "speaker_boost_system_setstatus", "speaker_boost_system_getstatus",
      "speaker_boost_system_set_nld_gain_left", "speaker_boost_system_get_nld_gain_left",
      "speaker_boost_system_set_nld_gain_right", "speaker_boost_system_get_nld_gain_right",
      "speaker_boost_system_set_channel_num", "speaker_boost_system_get_channel_num",
      "speaker_boost_system_set_nld_param", "speaker_boost_system_get_nld_param",
      "speaker_boost_system_process_stereo", "speaker_boost_system_process_mono",
      "kedo_speaker_boost_init", "kedo_speaker_boost_set_sample_rate", "kedo_speaker_boost_reset",
      "kedo_speaker_boost_end", "kedo_speaker_boost_set_channel_num", "kedo_speaker_boost_core_process",
      "kedo_speaker_boost_process_16", "kedo_speaker_boost_process_24", "kedo_speaker_boost_process_v2",
      "kafx_speaker_boost_init", "kafx_speaker_boost_reset", "kafx_speaker_boost_deinit",
      "kafx_speaker_boost_set_enable", "kafx_speaker_boost_get_enable", "kafx_speaker_boost_process",
      "kafx_speaker_boost_loadconfig", "kafx_speaker_boost_params_load_init",
      "kafx_speaker_boost_params_load_deinit", "kafx_speaker_boost_params_load_config",
      "kafx_speaker_boost_params_update", "kafx_speaker_boost_update_sbs_params",
      "kafx_speaker_boost_update_peq_params", "kafx_speaker_boost_parse_sbs_params",
      "kafx_speaker_boost_parse_peq_params", "kafx_speaker_boost_dump_params"};
  for (const char* p : {"threshold", "attact_order", "release_order", "volume", "denoise_threshold"})
    for (const char* io : {"set", "get"}) n.push_back(std::string("dynamic_range_control_") + io + "_" + p);
  for (const char* pair : {"p_eq_setstatus", "p_eq_getstatus", "p_eq_set_gain_left", "p_eq_get_gain_left",
                           "p_eq_set_gain_right", "p_eq_get_gain_right", "p_eq_setparameter_left",
                           "p_eq_getparameter_left", "p_eq_setparameter_right", "p_eq_getparameter_right",
                           "sbs_setstatus", "sbs_getstatus", "sbs_set_nld_gain_left", "sbs_get_nld_gain_left",
                           "sbs_set_nld_gain_right", "sbs_get_nld_gain_right", "sbs_set_channel_num",
                           "sbs_get_channel_num", "sbs_set_nld_param", "sbs_get_nld_param", "cb_setstatus",
                           "cb_getstatus", "cb_set_channel_ration", "cb_get_channel_ration",
                           "cb_set_channel_num", "cb_get_channel_num"})
    n.push_back(std::string("kedo_speaker_boost_") + pair);
  for (const char* band : {"low", "mid", "high", "full"})
    for (const char* side : {"left", "right"}) {
      for (const char* io : {"set", "get"})
        n.push_back(std::string("kedo_speaker_boost_sbs_") + io + "_drc_" + band + "_" + side);
      for (const char* p : {"attact_order", "release_order", "threshold", "denoise_threshold", "volume"})
        for (const char* io : {"set", "get"})
          n.push_back(std::string("speaker_boost_system_drc_") + band + "_" + side + "_" + io + "_" + p);
    }
  return n;
}

TEST_F(Library, LoadsByPlainNameWithItsLogDependency) {
  ASSERT_NE(handle_, nullptr) << error_;
  // liblog lives outside the default search path; the library's run path
  // must have brought it in.
  void* log = dlopen("liblog.so.0", RTLD_NOW | RTLD_NOLOAD);
  EXPECT_NE(log, nullptr) << "liblog should be loaded with the library";
  if (log != nullptr) dlclose(log);
}

TEST_F(Library, ExportsEveryInterfaceNameAndHidesInternals) {
  ASSERT_NE(handle_, nullptr) << error_;
  const auto names = interface_names();
  EXPECT_GE(names.size(), 260u);
  for (const auto& n : names) EXPECT_NE(dlsym(handle_, n.c_str()), nullptr) << n;
  // Internal C++ helpers stay private to the library.
  EXPECT_EQ(dlsym(handle_, "_ZN4kafx7div_q15Ess"), nullptr);
  EXPECT_EQ(dlsym(handle_, "_ZN4kafx11fifo_createEP13sample_fifo_tii"), nullptr);
}

TEST_F(Library, SpeakerProductThroughResolvedNames) {
  ASSERT_NE(handle_, nullptr) << error_;
  using Init = void* (*)(unsigned int, unsigned int, int);
  using Process = void (*)(void*, void*, unsigned int);
  using Deinit = void (*)(void*);
  using SetEnable = void (*)(void*, int);
  using GetEnable = void (*)(void*, int*);
  auto init = sym<Init>("kafx_speaker_boost_init");
  auto process = sym<Process>("kafx_speaker_boost_process");
  auto deinit = sym<Deinit>("kafx_speaker_boost_deinit");
  auto set_enable = sym<SetEnable>("kafx_speaker_boost_set_enable");
  auto get_enable = sym<GetEnable>("kafx_speaker_boost_get_enable");
  ASSERT_TRUE(init && process && deinit && set_enable && get_enable);

  for (unsigned rate : {44100u, 48000u, 96000u, 192000u, 8000u}) {
    void* h = init(2, rate, 1);
    ASSERT_NE(h, nullptr);
    // Hosts read the head fields of the record directly.
    auto* rec = static_cast<kafx_speaker_boost_t*>(h);
    EXPECT_EQ(rec->channels, 2u);
    EXPECT_EQ(rec->sample_rate, rate);
    EXPECT_EQ(rec->format_type, 1);
    set_enable(h, 0);
    int e = -1;
    get_enable(h, &e);
    EXPECT_EQ(e, 0);
    std::mt19937 rng(rate);
    std::uniform_int_distribution<int> d(-32768, 32767);
    std::vector<int16_t> in(2 * 3000);
    for (auto& x : in) x = static_cast<int16_t>(d(rng));
    std::vector<int16_t> buf = in;
    for (size_t f = 0; f < 3000; f += 441) {
      const size_t n = std::min<size_t>(441, 3000 - f);
      process(h, buf.data() + 2 * f, static_cast<unsigned>(n * 4));
    }
    // Defaults: balance at ratio 0, everything else off -> delayed copy.
    for (size_t k = 0; k < buf.size(); ++k)
      ASSERT_EQ(buf[k], k < 2 * 239 ? 0 : in[k - 2 * 239]) << rate << " " << k;
    deinit(h);
  }
}

}  // namespace

namespace {

// The karaoke product through resolved names: a bypassed frame returns the
// voice on both sides, noise cancelling stays inaudible, the high-pass table
// is exported data, and the front end refuses a frame above 256 samples.
TEST_F(Library, KaraokeProductThroughResolvedNames) {
  ASSERT_NE(handle_, nullptr) << error_;
  auto init = sym<void* (*)()>("kafx_ktv_init");
  auto deinit = sym<void (*)(void*)>("kafx_ktv_deinit");
  auto process = sym<int (*)(void*, short*, short*, short*, int)>("kafx_ktv_process_16");
  auto echo = sym<void (*)(void*, int)>("kafx_ktv_iirecho_enable");
  auto noise = sym<void (*)(void*, int)>("kafx_ktv_noise_canceling_enable");
  auto table = sym<const int*>("kFilterCoefficients");
  ASSERT_TRUE(init && deinit && process && echo && noise && table);
  EXPECT_EQ(std::vector<int>(table, table + 5), (std::vector<int>{1027072, -2054144, 1027072, 2048512, -1001728}));
  void* h = init();
  ASSERT_NE(h, nullptr);
  echo(h, 0);
  noise(h, 1);
  std::vector<short> in(240), l(240), r(240);
  for (int i = 0; i < 240; ++i) in[i] = static_cast<short>(i * 273 - 32768);
  EXPECT_EQ(process(h, in.data(), l.data(), r.data(), 240), 0);
  EXPECT_EQ(l, in);
  EXPECT_EQ(r, in);
  EXPECT_EQ(process(h, in.data(), l.data(), r.data(), 257), -1);
  deinit(h);
}

}  // namespace

namespace {

// The noise suppressor through resolved names: the -1 cases, the exported
// tables and routine pointers (data symbols), a noisy signal attenuated
// after the start-up, and the band post-processing's sigmoid.
TEST_F(Library, NoiseSuppressorThroughResolvedNames) {
  ASSERT_NE(handle_, nullptr) << error_;
  auto init = sym<int (*)(void*, unsigned)>("kedoNs_InitCore");
  auto policy = sym<int (*)(void*, int)>("kedoNs_set_policy_core");
  auto process = sym<int (*)(void*, short*, short*)>("kedoNs_ProcessCore");
  auto free_core = sym<int (*)(void*)>("kedoNs_FreeCore");
  auto sigmoid_fn = sym<int (*)(int)>("sigmoid");
  auto log_table = sym<const short*>("kedoNsx_kLogTable");
  auto counter_div = sym<const short*>("kedoNsx_kCounterDiv");
  ASSERT_TRUE(init && policy && process && free_core && sigmoid_fn && log_table && counter_div);
  for (const char* p : {"kedoNsx_NoiseEstimation", "kedoNsx_PrepareSpectrum", "kedoNsx_SynthesisUpdate",
                        "kedoNsx_AnalysisUpdate", "kedoNsx_Denormalize", "kedoNsx_CreateComplexBuffer"}) {
    auto slot = sym<void* const*>(p);
    ASSERT_NE(slot, nullptr) << p;
    EXPECT_NE(*slot, nullptr) << p;  // constant-initialised before any init
  }
  EXPECT_EQ(std::vector<short>(log_table, log_table + 9),
            (std::vector<short>{0, 177, 355, 532, 710, 887, 1065, 1242, 1420}));
  EXPECT_EQ(counter_div[0], 32767);
  EXPECT_EQ(counter_div[200], 163);
  EXPECT_NEAR(sigmoid_fn(0), 16384, 2);

  std::vector<unsigned char> rec(sizeof(NsxInst_t_), 0);
  EXPECT_EQ(init(rec.data(), 48000), -1);
  short frame[160] = {};
  EXPECT_EQ(process(rec.data(), frame, frame), -1);
  ASSERT_EQ(init(rec.data(), 16000), 0);
  EXPECT_EQ(policy(rec.data(), 4), -1);
  ASSERT_EQ(policy(rec.data(), 2), 0);
  uint32_t lcg = 1;
  double in_energy = 0, out_energy = 0;
  for (int f = 0; f < 500; ++f) {
    short in[160], out[160];
    for (short& s : in) {
      lcg = lcg * 1664525u + 1013904223u;
      s = static_cast<short>((static_cast<int32_t>(lcg >> 16) - 32768) / 8);
    }
    ASSERT_EQ(process(rec.data(), in, out), 0);
    if (f >= 300) {
      for (int i = 0; i < 160; ++i) {
        in_energy += double(in[i]) * in[i];
        out_energy += double(out[i]) * out[i];
      }
    }
  }
  EXPECT_LT(out_energy, in_energy / 30);  // white noise alone: more than 15 dB down (floor 18 dB)
  EXPECT_EQ(free_core(rec.data()), 0);
}

}  // namespace

namespace {

// The headphone product through resolved names: every chain and front-end name resolves; a bypassed rate leaves
// the buffer bit for bit; at 48 kHz a graphic equalizer record is kept, faded in over six 240-frame blocks and
// applied at the third, as the host sees in the handle's public record.
TEST_F(Library, HeadphoneProductThroughResolvedNames) {
  ASSERT_NE(handle_, nullptr) << error_;
  for (const char* n : {"kedo_hp_effect_init", "kedo_hp_effect_setparameter", "kedo_hp_effect_core_process",
                        "kedo_hp_effect_update_smooth_status", "kedo_hp_effect_svc_setparameter",
                        "kedo_hp_effect_process_v2", "kedo_hp_effect_debug_enable_setstatus", "kafx_hp_effect_reset"})
    EXPECT_NE(dlsym(handle_, n), nullptr) << n;
  auto init = sym<void* (*)(unsigned int, int)>("kafx_hp_effect_init");
  auto deinit = sym<void (*)(void*)>("kafx_hp_effect_deinit");
  auto set = sym<void (*)(void*, void*)>("kafx_hp_effect_set_parameters");
  auto get = sym<void (*)(void*, void*)>("kafx_hp_effect_get_parameters");
  auto process = sym<void (*)(void*, void*, unsigned int)>("kafx_hp_effect_process");
  ASSERT_TRUE(init && deinit && set && get && process);
  audio_effect_control_acdb_t rec{}, back{};
  rec.effect_type = 5;
  for (int b = 0; b < 10; ++b) rec.effect_data[b] = b - 5;
  std::vector<int16_t> in(2 * 240);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<int16_t>(i * 1237 % 20000 - 10000);
  for (unsigned rate : {44049u, 48000u}) {
    void* h = init(rate, 1);
    ASSERT_NE(h, nullptr);
    set(h, &rec);
    get(h, &back);
    EXPECT_EQ(0, std::memcmp(&back, &rec, sizeof rec));
    const auto* hp = static_cast<const kafx_hp_effect_t*>(h);
    std::vector<int16_t> buf = in;
    for (int block = 0; block < 8; ++block) {
      buf = in;
      process(h, buf.data(), static_cast<unsigned>(buf.size() * sizeof(int16_t)));
      if (rate == 48000 && block == 2) {
        EXPECT_EQ(hp->chain.equalizer->band_index[9], 4);
      }
    }
    if (rate == 44049) {
      EXPECT_EQ(buf, in);
    } else {
      EXPECT_TRUE(buf != in && hp->chain.fade_state == -1 && hp->chain.equalizer->status == 1 && hp->block_len == 240);
    }
    deinit(h);
  }
}

}  // namespace

namespace {

// The howling canceller through resolved names: a whistle is notched and the
// exported analysis buffer (a data symbol) shows it at its bin.
TEST_F(Library, HowlingCancellerThroughResolvedNames) {
  ASSERT_NE(handle_, nullptr) << error_;
  struct Record {
    int32_t status, gain;
    void* work;
  };
  auto init = sym<void (*)(Record*)>("howling_canceling_init");
  auto end = sym<void (*)(Record*)>("howling_canceling_end");
  auto status = sym<void (*)(Record*, int)>("howling_canceling_setstatus");
  auto process = sym<void (*)(Record*, int*, int*, int)>("howling_canceling_process");
  auto notch = sym<void (*)(Record*, int, int*, int*)>("howling_canceling_getnotch");
  auto current = sym<const int*>("fft_power_current");
  ASSERT_TRUE(init && end && status && process && notch && current);
  Record h{};
  init(&h);
  status(&h, 1);
  std::vector<int> x(48000 / 2);
  for (size_t i = 0; i < x.size(); ++i)
    x[i] = static_cast<int>(4000000 * std::sin(2 * 3.14159265358979 * 1500.0 * static_cast<double>(i) / 48000));
  for (size_t s = 0; s < x.size(); s += 240) process(&h, &x[s], &x[s], 240);
  int state = 0, centre = 0;
  notch(&h, 0, &state, &centre);
  EXPECT_EQ(state, 2);  // locked
  EXPECT_NEAR(-2 * std::cos(2 * 3.14159265358979 * 1500.0 / 48000) * 268435456.0, centre, 20000.0);
  EXPECT_EQ(std::max_element(current + 1, current + 64) - current, 8);  // 1500 Hz = bin 8
  double tail = 0;
  for (size_t i = x.size() - 4800; i < x.size(); ++i) tail = std::max(tail, std::fabs(static_cast<double>(x[i])));
  EXPECT_LT(tail, 40000.0);  // 40 dB down
  end(&h);
}

}  // namespace

namespace {

// The reverb and the small filters through resolved names: every name
// resolves; a full-scale impulse comes back first from the shortest left
// comb at frame 1109, halved by each of four all-passes, mixed at the
// default wet gains and passed by the DC blockers (522062 left, 261030
// right); a DC blocker fed a constant 1000 gives 995 first.
TEST_F(Library, ReverbAndFiltersThroughResolvedNames) {
  ASSERT_NE(handle_, nullptr) << error_;
  for (const char* n :
       {"elliptic_init", "elliptic_setcoef", "elliptic_resetstate", "elliptic_end", "elliptic_process",
        "remove_high_freq_process", "notch_init", "notch_setcoef", "notch_setfi", "notch_resetstate", "notch_end",
        "notch_process", "dc_remove_init", "dc_remove_reset", "dc_remove_end", "dc_remove_process_16",
        "dc_remove_process_24", "do_dc_remove_process", "reverb_init", "reverb_reset", "reverb_end", "reverb_update",
        "reverb_setroomsize", "reverb_getroomsize", "reverb_setdamp", "reverb_getdamp", "reverb_setwet",
        "reverb_getwet", "reverb_setdry", "reverb_getdry", "reverb_setwidth", "reverb_getwidth", "reverb_setgain",
        "reverb_getgain", "reverb_setstatus", "reverb_getstatus", "reverb_process_stereo_24",
        "reverb_process_stereo_16", "reverb_processMono"})
    EXPECT_NE(dlsym(handle_, n), nullptr) << n;
  auto init = sym<void (*)(reverb_t*)>("reverb_init");
  auto end = sym<void (*)(reverb_t*)>("reverb_end");
  auto set_gain = sym<void (*)(reverb_t*, int)>("reverb_setgain");
  auto update = sym<void (*)(reverb_t*)>("reverb_update");
  auto process = sym<void (*)(reverb_t*, int*, int*, int*, int*, unsigned int)>("reverb_process_stereo_24");
  auto dc = sym<void (*)(dc_remove*, int*, int*, int)>("do_dc_remove_process");
  ASSERT_TRUE(init && end && set_gain && update && process && dc);
  reverb_t r;
  init(&r);
  set_gain(&r, 8192);
  update(&r);
  std::vector<int> l(1110), rr(1110);
  l[0] = 8388607;
  process(&r, l.data(), rr.data(), l.data(), rr.data(), 1110);
  EXPECT_EQ(std::count(l.begin(), l.end() - 1, 0) + std::count(rr.begin(), rr.end() - 1, 0), 2 * 1109);
  EXPECT_EQ(l[1109], 522062);
  EXPECT_EQ(rr[1109], 261030);
  end(&r);
  EXPECT_EQ(r.comb_left[0], nullptr);
  dc_remove d{};
  int in[3] = {1000, 1000, 1000}, out[3] = {};
  dc(&d, in, out, 3);
  EXPECT_EQ(out[0], 995);
  EXPECT_EQ(out[1], 991);
}

}  // namespace
