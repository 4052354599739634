// The library as an audio service sees it: loaded with dlopen by its plain
// name, every name of the export list (cmake/kafx_proc.map) resolved with
// dlsym and declared in a public header, internal helpers hidden, and each
// product driven through resolved entry points alone: one short worked
// example each (the arithmetic itself is checked by the block tests).
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kafx_proc/hp_effect.h"
#include "kafx_proc/ns.h"
#include "kafx_proc/speaker_boost.h"
#include "kafx_proc/stereo_widening_system.h"

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

// Defaults (balance at ratio 0, everything else off): a copy delayed by the
// 239-frame balance line, in calls of 441 frames; hosts read the head fields
// of the record directly.
TEST_F(Library, SpeakerProductThroughResolvedNames) {
  ASSERT_NE(handle_, nullptr) << error_;
  auto init = sym<void* (*)(unsigned int, unsigned int, int)>("kafx_speaker_boost_init");
  auto process = sym<void (*)(void*, void*, unsigned int)>("kafx_speaker_boost_process");
  auto deinit = sym<void (*)(void*)>("kafx_speaker_boost_deinit");
  auto set_enable = sym<void (*)(void*, int)>("kafx_speaker_boost_set_enable");
  auto get_enable = sym<void (*)(void*, int*)>("kafx_speaker_boost_get_enable");
  ASSERT_TRUE(init && process && deinit && set_enable && get_enable);
  void* h = init(2, 44100, 1);
  ASSERT_NE(h, nullptr);
  const auto* rec = static_cast<const kafx_speaker_boost_t*>(h);
  EXPECT_TRUE(rec->channels == 2u && rec->sample_rate == 44100u && rec->format_type == 1);
  set_enable(h, 0);
  int e = -1;
  get_enable(h, &e);
  EXPECT_EQ(e, 0);
  std::vector<int16_t> in(2 * 3000);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<int16_t>(i * 40503u);
  std::vector<int16_t> buf = in;
  for (size_t f = 0; f < 3000; f += 441)
    process(h, buf.data() + 2 * f, static_cast<unsigned>(std::min<size_t>(441, 3000 - f) * 4));
  for (size_t k = 0; k < buf.size(); ++k) ASSERT_EQ(buf[k], k < 2 * 239 ? 0 : in[k - 2 * 239]) << k;
  deinit(h);
}

// The karaoke product: a bypassed frame returns the voice on both sides,
// noise cancelling stays inaudible, the high-pass table is exported data, and
// the front end refuses a frame above 256 samples.
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
  EXPECT_TRUE(l == in && r == in);
  EXPECT_EQ(process(h, in.data(), l.data(), r.data(), 257), -1);
  deinit(h);
}

// The noise suppressor: its routine pointers are data symbols set before any
// init; the -1 cases; white noise alone is attenuated after the start-up.
TEST_F(Library, NoiseSuppressorThroughResolvedNames) {
  ASSERT_NE(handle_, nullptr) << error_;
  auto init = sym<int (*)(void*, unsigned)>("kedoNs_InitCore");
  auto policy = sym<int (*)(void*, int)>("kedoNs_set_policy_core");
  auto process = sym<int (*)(void*, short*, short*)>("kedoNs_ProcessCore");
  auto free_core = sym<int (*)(void*)>("kedoNs_FreeCore");
  ASSERT_TRUE(init && policy && process && free_core);
  for (const char* p : {"kedoNsx_NoiseEstimation", "kedoNsx_PrepareSpectrum", "kedoNsx_SynthesisUpdate",
                        "kedoNsx_AnalysisUpdate", "kedoNsx_Denormalize", "kedoNsx_CreateComplexBuffer"})
    EXPECT_NE(*sym<void* const*>(p), nullptr) << p;  // resolved by ExportsEveryInterfaceName
  std::vector<unsigned char> rec(sizeof(NsxInst_t_), 0);
  EXPECT_EQ(init(rec.data(), 48000), -1);
  short in[160] = {}, out[160];
  EXPECT_EQ(process(rec.data(), in, out), -1);
  ASSERT_EQ(init(rec.data(), 16000), 0);
  EXPECT_EQ(policy(rec.data(), 4), -1);
  ASSERT_EQ(policy(rec.data(), 2), 0);
  uint32_t lcg = 1;
  double in_energy = 0, out_energy = 0;
  for (int f = 0; f < 500; ++f) {
    for (short& s : in) s = static_cast<short>((static_cast<int32_t>((lcg = lcg * 1664525u + 1013904223u) >> 16) - 32768) / 8);
    ASSERT_EQ(process(rec.data(), in, out), 0);
    for (int i = 0; f >= 300 && i < 160; ++i) in_energy += double(in[i]) * in[i], out_energy += double(out[i]) * out[i];
  }
  EXPECT_LT(out_energy, in_energy / 30);  // more than 15 dB down (floor 18 dB)
  EXPECT_EQ(free_core(rec.data()), 0);
}

// The headphone product: the record reads back as set; a bypassed rate leaves
// the buffer bit for bit; at 48 kHz a graphic equalizer record is applied
// once the fade-in is over, as the host sees in the handle's public record.
TEST_F(Library, HeadphoneProductThroughResolvedNames) {
  ASSERT_NE(handle_, nullptr) << error_;
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
    std::vector<int16_t> buf;
    for (int block = 0; block < 8; ++block) {
      buf = in;
      process(h, buf.data(), static_cast<unsigned>(buf.size() * sizeof(int16_t)));
    }
    const auto* hp = static_cast<const kafx_hp_effect_t*>(h);
    if (rate == 44049) {
      EXPECT_EQ(buf, in);
    } else {
      EXPECT_TRUE(buf != in && hp->chain.fade_state == -1 && hp->chain.equalizer->status == 1 && hp->block_len == 240);
    }
    deinit(h);
  }
}

// A system record the host allocates from the public header and the library
// fills: the stereo widening system at a rate it does not serve is silent.
TEST_F(Library, HostAllocatedRecordThroughResolvedNames) {
  ASSERT_NE(handle_, nullptr) << error_;
  auto init = sym<void (*)(stereo_widening_system*)>("stereo_widening_system_init");
  auto rate = sym<void (*)(stereo_widening_system*, SampleRateType)>("stereo_widening_system_set_sample_rate");
  auto run = sym<void (*)(stereo_widening_system*, int*, int*, int*, int*, int)>("stereo_widening_system_process");
  auto end = sym<void (*)(stereo_widening_system*)>("stereo_widening_system_end");
  ASSERT_TRUE(init && rate && run && end);
  stereo_widening_system s;
  init(&s);
  rate(&s, SAMPLE_RATE_192000);
  std::vector<int> a(240, 3000000), b(240, -2000000);
  run(&s, a.data(), b.data(), a.data(), b.data(), 240);
  EXPECT_TRUE(a == std::vector<int>(240) && b == std::vector<int>(240));
  end(&s);
}

}  // namespace
