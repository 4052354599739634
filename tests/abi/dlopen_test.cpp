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
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kafx_proc/hp_effect.h"
#include "kafx_proc/ktv.h"
#include "kafx_proc/ns.h"
#include "kafx_proc/speaker_boost.h"
#include "kafx_proc/stereo_widening_system.h"
#include "support/source_files.h"

namespace {

using kafx_test::slurp;
using kafx_test::source_file;

// The library, loaded once by its plain name (null, and the reason in
// load_error, when it cannot be).
std::string load_error;
void* library() {
  static void* const handle = [] {
    void* h = dlopen("libkafx_proc.so", RTLD_NOW | RTLD_LOCAL);
    if (h == nullptr) load_error = dlerror();
    return h;
  }();
  return handle;
}

template <typename F>
F sym(const char* name) {
  return reinterpret_cast<F>(dlsym(library(), name));
}

#define REQUIRE_LIBRARY() ASSERT_NE(library(), nullptr) << load_error

// The exported names: the `name;` lines of the global part of the linker
// version script, the one list the build links with.
std::vector<std::string> interface_names() {
  std::istringstream map(slurp(source_file("cmake/kafx_proc.map")));
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

TEST(Library, LoadsByPlainNameWithItsLogDependency) {
  REQUIRE_LIBRARY();
  // liblog lives outside the default search path; the library's run path
  // must have brought it in.
  void* log = dlopen("liblog.so.0", RTLD_NOW | RTLD_NOLOAD);
  EXPECT_NE(log, nullptr) << "liblog should be loaded with the library";
  if (log != nullptr) dlclose(log);
}

// Every exported name resolves and is declared in a public header (all of
// them, concatenated); the umbrella header includes every other one.
TEST(Library, ExportsEveryInterfaceNameAndHidesInternals) {
  REQUIRE_LIBRARY();
  const auto names = interface_names();
  EXPECT_GE(names.size(), 260u);
  const std::filesystem::path include = source_file("include");
  const std::string umbrella = slurp(include / "kafx_proc.h");
  std::string headers;
  for (const auto& e : std::filesystem::directory_iterator(include / "kafx_proc")) {
    const std::string name = e.path().filename().string();
    headers += slurp(e.path()) + "\n";
    EXPECT_TRUE(name == "kafx_export.h" ||  // comes in with every other header
                umbrella.find("#include \"kafx_proc/" + name + "\"") != std::string::npos) << name;
  }
  std::set<std::string> seen;
  for (const auto& n : names) {
    EXPECT_TRUE(seen.insert(n).second) << n << " listed twice";
    EXPECT_NE(dlsym(library(), n.c_str()), nullptr) << n << " does not resolve";
    EXPECT_TRUE(mentions(headers, n)) << n << " is exported but declared in no public header";
  }
  // Internal C++ helpers stay private to the library.
  EXPECT_EQ(dlsym(library(), "_ZN4kafx7div_q15Ess"), nullptr);
  EXPECT_EQ(dlsym(library(), "_ZN4kafx11fifo_createEP13sample_fifo_tii"), nullptr);
}

// Resolves the exported function `f` as a local of the same name, typed as
// its public header declares it (the test stops if it does not resolve).
#define RESOLVE(f)                               \
  const auto f = sym<decltype(&::f)>(#f); \
  ASSERT_NE(f, nullptr) << #f

// Defaults (balance at ratio 0, everything else off): a copy delayed by the
// 239-frame balance line, in calls of 441 frames; hosts read the head fields
// of the record directly.
TEST(Library, SpeakerProductThroughResolvedNames) {
  REQUIRE_LIBRARY();
  RESOLVE(kafx_speaker_boost_init);
  RESOLVE(kafx_speaker_boost_process);
  RESOLVE(kafx_speaker_boost_deinit);
  void* h = kafx_speaker_boost_init(2, 44100, 1);
  ASSERT_NE(h, nullptr);
  const auto* rec = static_cast<const kafx_speaker_boost_t*>(h);
  EXPECT_TRUE(rec->channels == 2u && rec->sample_rate == 44100u && rec->format_type == 1);
  std::vector<int16_t> in(2 * 3000);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<int16_t>(i * 40503u);
  std::vector<int16_t> buf = in;
  for (size_t f = 0; f < 3000; f += 441)
    kafx_speaker_boost_process(h, buf.data() + 2 * f, static_cast<unsigned>(std::min<size_t>(441, 3000 - f) * 4));
  for (size_t k = 0; k < buf.size(); ++k) ASSERT_EQ(buf[k], k < 2 * 239 ? 0 : in[k - 2 * 239]) << k;
  kafx_speaker_boost_deinit(h);
}

// The karaoke product: a bypassed frame returns the voice on both sides,
// noise cancelling stays inaudible, the high-pass table is exported data.
TEST(Library, KaraokeProductThroughResolvedNames) {
  REQUIRE_LIBRARY();
  RESOLVE(kafx_ktv_init);
  RESOLVE(kafx_ktv_deinit);
  RESOLVE(kafx_ktv_process_16);
  RESOLVE(kafx_ktv_iirecho_enable);
  RESOLVE(kafx_ktv_noise_canceling_enable);
  const auto* table = sym<const int*>("kFilterCoefficients");
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(std::vector<int>(table, table + 5), (std::vector<int>{1027072, -2054144, 1027072, 2048512, -1001728}));
  void* h = kafx_ktv_init();
  ASSERT_NE(h, nullptr);
  kafx_ktv_iirecho_enable(h, 0);
  kafx_ktv_noise_canceling_enable(h, 1);
  std::vector<short> in(240), l(240), r(240);
  for (int i = 0; i < 240; ++i) in[i] = static_cast<short>(i * 273 - 32768);
  EXPECT_EQ(kafx_ktv_process_16(h, in.data(), l.data(), r.data(), 240), 0);
  EXPECT_TRUE(l == in && r == in);
  kafx_ktv_deinit(h);
}

// The noise suppressor: its routine pointers are data symbols set before any
// init; white noise alone is attenuated after the start-up.
TEST(Library, NoiseSuppressorThroughResolvedNames) {
  REQUIRE_LIBRARY();
  RESOLVE(kedoNs_InitCore);
  RESOLVE(kedoNs_set_policy_core);
  RESOLVE(kedoNs_ProcessCore);
  RESOLVE(kedoNs_FreeCore);
  for (const char* p : {"kedoNsx_NoiseEstimation", "kedoNsx_PrepareSpectrum", "kedoNsx_SynthesisUpdate",
                        "kedoNsx_AnalysisUpdate", "kedoNsx_Denormalize", "kedoNsx_CreateComplexBuffer"})
    EXPECT_NE(*sym<void* const*>(p), nullptr) << p;  // resolved by ExportsEveryInterfaceName
  auto ns = std::make_unique<NsxInst_t_>();
  ASSERT_TRUE(kedoNs_InitCore(ns.get(), 16000) == 0 && kedoNs_set_policy_core(ns.get(), 2) == 0);
  short in[160], out[160];
  uint32_t lcg = 1;
  double in_energy = 0, out_energy = 0;
  for (int f = 0; f < 500; ++f) {
    for (short& s : in) s = static_cast<short>((static_cast<int32_t>((lcg = lcg * 1664525u + 1013904223u) >> 16) - 32768) / 8);
    ASSERT_EQ(kedoNs_ProcessCore(ns.get(), in, out), 0);
    for (int i = 0; f >= 300 && i < 160; ++i) in_energy += double(in[i]) * in[i], out_energy += double(out[i]) * out[i];
  }
  EXPECT_LT(out_energy, in_energy / 30);  // more than 15 dB down (floor 18 dB)
  EXPECT_EQ(kedoNs_FreeCore(ns.get()), 0);
}

// The headphone product: the record reads back as set; a bypassed rate leaves
// the buffer bit for bit; at 48 kHz a graphic equalizer record is applied
// once the fade-in is over, as the host sees in the handle's public record.
TEST(Library, HeadphoneProductThroughResolvedNames) {
  REQUIRE_LIBRARY();
  RESOLVE(kafx_hp_effect_init);
  RESOLVE(kafx_hp_effect_deinit);
  RESOLVE(kafx_hp_effect_set_parameters);
  RESOLVE(kafx_hp_effect_get_parameters);
  RESOLVE(kafx_hp_effect_process);
  audio_effect_control_acdb_t rec{}, back{};
  rec.effect_type = 5;
  for (int b = 0; b < 10; ++b) rec.effect_data[b] = b - 5;
  std::vector<int16_t> in(2 * 240), buf;
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<int16_t>(i * 1237 % 20000 - 10000);
  for (unsigned rate : {44049u, 48000u}) {
    void* h = kafx_hp_effect_init(rate, 1);
    ASSERT_NE(h, nullptr);
    kafx_hp_effect_set_parameters(h, &rec);
    kafx_hp_effect_get_parameters(h, &back);
    EXPECT_EQ(0, std::memcmp(&back, &rec, sizeof rec));
    for (int block = 0; block < 8; ++block)
      kafx_hp_effect_process(h, (buf = in).data(), static_cast<unsigned>(buf.size() * sizeof(int16_t)));
    const auto* hp = static_cast<const kafx_hp_effect_t*>(h);
    EXPECT_TRUE(rate == 44049 ? buf == in
                              : buf != in && hp->chain.fade_state == -1 && hp->chain.equalizer->status == 1 &&
                                    hp->block_len == 240) << rate;
    kafx_hp_effect_deinit(h);
  }
}

// A system record the host allocates from the public header and the library
// fills: the stereo widening system at a rate it does not serve is silent.
TEST(Library, HostAllocatedRecordThroughResolvedNames) {
  REQUIRE_LIBRARY();
  RESOLVE(stereo_widening_system_init);
  RESOLVE(stereo_widening_system_set_sample_rate);
  RESOLVE(stereo_widening_system_process);
  RESOLVE(stereo_widening_system_end);
  stereo_widening_system s;
  stereo_widening_system_init(&s);
  stereo_widening_system_set_sample_rate(&s, SAMPLE_RATE_192000);
  std::vector<int> a(240, 3000000), b(240, -2000000);
  stereo_widening_system_process(&s, a.data(), b.data(), a.data(), b.data(), 240);
  EXPECT_TRUE(a == std::vector<int>(240) && b == std::vector<int>(240));
  stereo_widening_system_end(&s);
}

}  // namespace
