// The library as an audio service sees it: loaded with dlopen by its plain
// name, every name of the export list (cmake/kafx_proc.map) resolved with
// dlsym and declared in a public header, internal helpers hidden, and the
// speaker product driven through the resolved entry points alone.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <sstream>
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

std::string source_dir() {
  const char* root = std::getenv("KAFX_SOURCE_DIR");
  return root != nullptr ? root : KAFX_SOURCE_DIR_DEFAULT;
}

std::string slurp(const std::filesystem::path& p) {
  std::ifstream f(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

// The exported names: the `name;` lines of the global part of the linker
// version script, the one list the build links with.
std::vector<std::string> interface_names() {
  std::istringstream map(slurp(std::filesystem::path(source_dir()) / "cmake/kafx_proc.map"));
  std::vector<std::string> names;
  bool global = false;
  for (std::string line; std::getline(map, line);) {
    const auto first = line.find_first_not_of(" \t");
    if (first == std::string::npos) continue;
    line = line.substr(first);
    if (line.rfind("global:", 0) == 0) global = true;
    else if (line.rfind("local:", 0) == 0) global = false;
    else if (global && line.back() == ';' && line.find_first_of(" */") == std::string::npos)
      names.push_back(line.substr(0, line.size() - 1));
  }
  return names;
}

// Every public header, concatenated.
std::string public_headers() {
  std::string all;
  for (const auto& e : std::filesystem::recursive_directory_iterator(std::filesystem::path(source_dir()) / "include"))
    if (e.path().extension() == ".h") all += slurp(e.path()) + "\n";
  return all;
}

bool is_ident(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

// `name` as a whole word of `text`.
bool mentions(const std::string& text, const std::string& name) {
  for (size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
    const bool left = at == 0 || !is_ident(text[at - 1]);
    const bool right = at + name.size() == text.size() || !is_ident(text[at + name.size()]);
    if (left && right) return true;
  }
  return false;
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
  const std::string headers = public_headers();
  std::set<std::string> seen;
  for (const auto& n : names) {
    EXPECT_TRUE(seen.insert(n).second) << n << " listed twice";
    EXPECT_NE(dlsym(handle_, n.c_str()), nullptr) << n << " does not resolve";
    EXPECT_TRUE(mentions(headers, n)) << n << " is exported but declared in no public header";
  }
  // Internal C++ helpers stay private to the library.
  EXPECT_EQ(dlsym(handle_, "_ZN4kafx7div_q15Ess"), nullptr);
  EXPECT_EQ(dlsym(handle_, "_ZN4kafx11fifo_createEP13sample_fifo_tii"), nullptr);
}

// include/kafx_proc.h includes every public header of include/kafx_proc/.
TEST(PublicHeaders, UmbrellaIncludesEveryHeader) {
  const std::filesystem::path include = std::filesystem::path(source_dir()) / "include";
  const std::string umbrella = slurp(include / "kafx_proc.h");
  int headers = 0;
  for (const auto& e : std::filesystem::directory_iterator(include / "kafx_proc")) {
    if (e.path().extension() != ".h") continue;
    ++headers;
    const std::string line = "#include \"kafx_proc/" + e.path().filename().string() + "\"";
    // The export macros come in with every other header.
    if (e.path().filename() != "kafx_export.h") {
      EXPECT_NE(umbrella.find(line), std::string::npos) << line;
    }
  }
  EXPECT_GE(headers, 10);
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
