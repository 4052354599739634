// The stereo widening and virtual bass systems as a host that only dlopens
// the library sees them: every exported name resolves, and worked examples
// run through the resolved entry points alone.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kafx_proc/stereo_widening_system.h"
#include "kafx_proc/virtual_bass_system.h"

namespace {

struct Lib {
  void* h = dlopen("libkafx_proc.so", RTLD_NOW | RTLD_LOCAL);
  ~Lib() {
    if (h != nullptr) dlclose(h);
  }
  template <typename F>
  F sym(const char* name) const {
    return reinterpret_cast<F>(dlsym(h, name));
  }
};

std::vector<std::string> names() {
  std::vector<std::string> n = {"stereo_widening_system_init", "stereo_widening_system_set_sample_rate",
                                "stereo_widening_system_reset", "stereo_widening_system_end",
                                "stereo_widening_system_process", "virtual_bass_system_init",
                                "virtual_bass_system_set_sample_rate", "virtual_bass_system_reset",
                                "virtual_bass_system_end", "virtual_bass_system_process",
                                "compressor_bass_init", "compressor_bass_reset", "compressor_bass_end",
                                "compressor_bass_process", "compressor_bass_setstatus",
                                "compresso_bassr_getstatus", "find_current_max_bass"};
  for (const char* p : {"dc_set_side_gain", "dc_get_side_gain", "cfn_set_gain", "cfn_get_gain"})
    n.push_back(std::string("stereo_widening_system_") + p);
  for (const char* p : {"dry_gain", "wet_gain", "roomsize", "damp"}) {
    for (const char* io : {"set", "get"}) {
      n.push_back(std::string("stereo_widening_system_er_") + io + "_" + p);
      n.push_back(std::string("early_reflector_") + io + "_" + p);
    }
  }
  for (const char* stage : {"difference_circuit_", "crossfeed_network_", "early_reflector_"})
    for (const char* op : {"init", "set_sample_rate", "reset", "end", "process_32", "process_block"})
      n.push_back(std::string(stage) + op);
  for (const char* p : {"set_side_gain", "get_side_gain"}) n.push_back(std::string("difference_circuit_") + p);
  for (const char* p : {"set_gain", "get_gain"}) n.push_back(std::string("crossfeed_network_") + p);
  for (const char* p : {"set_nld_clip_level", "get_nld_clip_level", "set_nld_band_param", "get_nld_band_param"})
    n.push_back(std::string("virtual_bass_system_") + p);
  return n;
}

TEST(WideningBassAbi, EveryNameResolves) {
  Lib lib;
  ASSERT_NE(lib.h, nullptr) << dlerror();
  const auto n = names();
  EXPECT_EQ(n.size(), 63u);
  for (const auto& s : n) EXPECT_NE(dlsym(lib.h, s.c_str()), nullptr) << s;
}

TEST(WideningBassAbi, WorkedExamplesThroughResolvedNames) {
  Lib lib;
  ASSERT_NE(lib.h, nullptr) << dlerror();
  // Difference circuit with unit sections: l = 1000, r = 200 gives 2800, 200.
  auto dc_init = lib.sym<void (*)(difference_circuit*)>("difference_circuit_init");
  auto dc_end = lib.sym<void (*)(difference_circuit*)>("difference_circuit_end");
  auto dc_run = lib.sym<void (*)(difference_circuit*, int*, int*, int*, int*)>("difference_circuit_process_32");
  auto set_param = lib.sym<void (*)(void*, const int*)>("IIR_set_param");
  ASSERT_TRUE(dc_init && dc_end && dc_run && set_param);
  difference_circuit d;
  dc_init(&d);
  const int unit[5] = {1 << 28, 0, 0, 0, 0};
  for (IIR_t* f : d.section) set_param(f, unit);
  int l = 1000, r = 200, ol = 0, orr = 0;
  dc_run(&d, &l, &r, &ol, &orr);
  EXPECT_EQ(ol, 2800);
  EXPECT_EQ(orr, 200);
  dc_end(&d);
  // Bass leveller: a block peak of 40000 (after >> 8) targets 71680; the
  // first sample's gain is 71680 >> 9 = 140.
  auto c_init = lib.sym<void (*)(compressor_bass*)>("compressor_bass_init");
  auto c_run = lib.sym<void (*)(compressor_bass*, int*, int*, int)>("compressor_bass_process");
  ASSERT_TRUE(c_init && c_run);
  compressor_bass c;
  c_init(&c);
  int x[2] = {40000 << 8, 40000 << 8};
  c_run(&c, x, x, 2);
  EXPECT_EQ(x[0], 10937);
  EXPECT_EQ(c.envelope, 40000);
  // The whole widening system at 192 kHz is silent.
  auto s_init = lib.sym<void (*)(stereo_widening_system*)>("stereo_widening_system_init");
  auto s_rate = lib.sym<void (*)(stereo_widening_system*, SampleRateType)>("stereo_widening_system_set_sample_rate");
  auto s_run = lib.sym<void (*)(stereo_widening_system*, int*, int*, int*, int*, int)>("stereo_widening_system_process");
  auto s_end = lib.sym<void (*)(stereo_widening_system*)>("stereo_widening_system_end");
  ASSERT_TRUE(s_init && s_rate && s_run && s_end);
  stereo_widening_system s;
  s_init(&s);
  s_rate(&s, SAMPLE_RATE_192000);
  std::vector<int> a(240, 3000000), b(240, -2000000);
  s_run(&s, a.data(), b.data(), a.data(), b.data(), 240);
  EXPECT_EQ(a, std::vector<int>(240));
  EXPECT_EQ(b, std::vector<int>(240));
  s_end(&s);
}

}  // namespace
