// The shipped tuning examples/speaker.xml against its readable design
// examples/speaker_design.txt: the file loads, switches the blocks as the
// design says, carries the design's gains and limiter settings converted from
// dB, and its equalizer has the designed response. The response is measured
// with sines through the chain (boost system off) and compared with the
// analog prototypes of the design's bands (audio-EQ cookbook forms) mapped by
// the bilinear transform with the band frequency pre-warped, evaluated here
// independently of the generator.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kafx_proc/speaker_boost.h"
#include "speaker_config_test_util.h"

namespace {

using namespace spcfg_test;

constexpr double kPi = 3.14159265358979323846;

struct DesignBand {
  std::string type;
  double freq, q, gain_db;
};

struct DesignLimiter {
  int attack = 0, release = 5;
  double threshold_dbfs = 0, volume_db = 0, denoise_dbfs = 0;
  bool given = false;
};

struct Design {
  double rate = 48000;
  bool sbs = false, peq = false;
  double harmonic_db[2] = {0, 0}, peq_gain_db[2] = {0, 0};
  int channel_ration = 0, channel_num = 2;
  DesignLimiter limiter[2][4];
  std::vector<DesignBand> bands[2];
};

// ctest gives the source root; run by hand, it is three levels above this file.
std::string source_path(const std::string& relative) {
  const char* root = std::getenv("KAFX_SOURCE_DIR");
  if (root != nullptr) return std::string(root) + "/" + relative;
  std::string here = __FILE__;
  for (int i = 0; i < 3; ++i) here = here.substr(0, here.find_last_of('/'));
  return here + "/" + relative;
}

std::vector<int> sides(const std::string& s) {
  if (s == "left") return {0};
  if (s == "right") return {1};
  return {0, 1};
}

// Reads the design statements this example uses.
Design read_design(const std::string& path) {
  Design d;
  std::ifstream in(path);
  EXPECT_TRUE(in.good()) << path;
  std::string line;
  while (std::getline(in, line)) {
    line = line.substr(0, line.find('#'));
    std::istringstream w(line);
    std::string key;
    if (!(w >> key) || key == "version") continue;
    if (key == "rate") {
      w >> d.rate;
    } else if (key == "sbs" || key == "peq") {
      std::string v;
      w >> v;
      (key == "sbs" ? d.sbs : d.peq) = v == "on";
    } else if (key == "harmonic_gain" || key == "peq_gain") {
      double* g = key == "harmonic_gain" ? d.harmonic_db : d.peq_gain_db;
      w >> g[0];
      if (!(w >> g[1])) g[1] = g[0];
    } else if (key == "channel_ration") {
      w >> d.channel_ration;
    } else if (key == "channel_num") {
      w >> d.channel_num;
    } else if (key == "limiter") {
      std::string band, side;
      DesignLimiter l;
      w >> band >> side >> l.attack >> l.release >> l.threshold_dbfs >> l.volume_db >> l.denoise_dbfs;
      l.given = true;
      const int b = band == "low" ? 0 : band == "mid" ? 1 : band == "high" ? 2 : 3;
      for (int s : sides(side)) d.limiter[s][b] = l;
    } else if (key == "band") {
      std::string side;
      DesignBand b{};
      w >> side >> b.type >> b.freq >> b.q;
      if (!(w >> b.gain_db)) b.gain_db = 0;
      for (int s : sides(side)) d.bands[s].push_back(b);
    } else {
      ADD_FAILURE() << "unexpected design statement " << key;
    }
  }
  return d;
}

int32_t q13(double db) { return static_cast<int32_t>(std::lround(8192.0 * std::pow(10.0, db / 20.0))); }

// |H| of one band at frequency f: the analog prototype with s = j * W, where
// W = tan(pi f / fs) / tan(pi f0 / fs) is the bilinear map that puts f0 at
// the prototype's unit frequency.
double band_db(const DesignBand& b, double f, double rate) {
  using C = std::complex<double>;
  const C s(0.0, std::tan(kPi * f / rate) / std::tan(kPi * b.freq / rate));
  const double A = std::pow(10.0, b.gain_db / 40.0), Q = b.q, k = std::sqrt(A) / Q;
  C h;
  if (b.type == "peak") h = (s * s + s * (A / Q) + 1.0) / (s * s + s / (A * Q) + 1.0);
  else if (b.type == "lowpass") h = 1.0 / (s * s + s / Q + 1.0);
  else if (b.type == "highpass") h = s * s / (s * s + s / Q + 1.0);
  else if (b.type == "lowshelf") h = A * (s * s + k * s + A) / (A * s * s + k * s + 1.0);
  else if (b.type == "highshelf") h = A * (A * s * s + k * s + 1.0) / (s * s + k * s + A);
  else ADD_FAILURE() << "unknown band type " << b.type;
  return 20.0 * std::log10(std::abs(h));
}

// Gain in dB of the chain at f, left and right, from the fundamental's
// amplitude after the filters have settled (one second of 48 kHz is a whole
// number of periods of any whole-hertz frequency).
void measure(kedo_speaker_boost_t* c, double f, double rate, double out_db[2]) {
  constexpr int kBlock = 240, kSettle = 50 * kBlock, kMeasure = 200 * kBlock;
  constexpr double kAmplitude = 2097152.0; // -12 dBFS of the 24-bit working range
  double si[2] = {0, 0}, co[2] = {0, 0}, in_si = 0, in_co = 0;
  int left[kBlock], right[kBlock];
  for (int n0 = 0; n0 < kSettle + kMeasure; n0 += kBlock) {
    for (int i = 0; i < kBlock; ++i) {
      left[i] = right[i] = static_cast<int>(std::lround(kAmplitude * std::sin(2 * kPi * f * (n0 + i) / rate)));
      if (n0 >= kSettle) {
        const double ph = 2 * kPi * f * (n0 + i) / rate;
        in_si += left[i] * std::sin(ph);
        in_co += left[i] * std::cos(ph);
      }
    }
    kedo_speaker_boost_core_process(c, left, right, kBlock);
    if (n0 < kSettle) continue;
    for (int i = 0; i < kBlock; ++i) {
      const double ph = 2 * kPi * f * (n0 + i) / rate;
      si[0] += left[i] * std::sin(ph);
      co[0] += left[i] * std::cos(ph);
      si[1] += right[i] * std::sin(ph);
      co[1] += right[i] * std::cos(ph);
    }
  }
  const double in = std::hypot(in_si, in_co);
  for (int s = 0; s < 2; ++s) out_db[s] = 20.0 * std::log10(std::hypot(si[s], co[s]) / in);
}

class SpeakerExample : public ::testing::Test {
 protected:
  void SetUp() override {
    design = read_design(source_path("examples/speaker_design.txt"));
    ASSERT_EQ(kafx_speaker_boost_loadconfig(sp.h, source_path("examples/speaker.xml").c_str()), 0);
  }
  SpHandle sp;
  Design design;
};

TEST_F(SpeakerExample, LoadsWithTheDesignedSettings) {
  kedo_speaker_boost_t* c = sp.chain();
  const Flat got = chain_state(c);
  EXPECT_EQ(got, chained(flat(sp.h->params))); // applied as loaded
  EXPECT_EQ(got[0], design.sbs ? 1 : 0);
  EXPECT_EQ(got[45], design.peq ? 1 : 0);
  EXPECT_EQ(got[1], q13(design.harmonic_db[0]));
  EXPECT_EQ(got[2], q13(design.harmonic_db[1]));
  EXPECT_EQ(got[3], design.channel_ration);
  EXPECT_EQ(got[4], design.channel_num);
  EXPECT_EQ(got[46], q13(design.peq_gain_db[0]));
  EXPECT_EQ(got[47], q13(design.peq_gain_db[1]));
  for (int side = 0; side < 2; ++side)
    for (int band = 0; band < 4; ++band) {
      const DesignLimiter& l = design.limiter[side][band];
      ASSERT_TRUE(l.given);
      const size_t at = static_cast<size_t>(5 + 20 * side + 5 * band);
      EXPECT_EQ(got[at], l.attack);
      EXPECT_EQ(got[at + 1], l.release);
      EXPECT_EQ(got[at + 2], std::lround(32767.0 * std::pow(10.0, l.threshold_dbfs / 20.0)));
      EXPECT_EQ(got[at + 3], q13(l.volume_db));
      EXPECT_EQ(got[at + 4], std::max(2L, std::lround(8388607.0 * std::pow(10.0, l.denoise_dbfs / 20.0))));
      // A limiter is meant to sit just under full scale.
      EXPECT_LT(got[at + 2], 32767);
      EXPECT_GT(got[at + 2], 29000);
    }
  // Designed bands are on, the rest are switched-off pass-through sections.
  for (int side = 0; side < 2; ++side)
    for (int band = 0; band < 10; ++band) {
      const size_t at = static_cast<size_t>(48 + 60 * side + 6 * band);
      if (band < static_cast<int>(design.bands[side].size())) {
        EXPECT_EQ(got[at], 1) << side << " " << band;
      } else {
        const Flat::value_type off[6] = {0, 268435456, 0, 0, 0, 0};
        for (int k = 0; k < 6; ++k) EXPECT_EQ(got[at + static_cast<size_t>(k)], off[k]) << side << " " << band;
      }
    }
}

TEST_F(SpeakerExample, EqualizerHasTheDesignedResponse) {
  ASSERT_DOUBLE_EQ(design.rate, 48000.0);
  ASSERT_FALSE(design.bands[0].empty());
  kedo_speaker_boost_t* c = sp.chain();
  kedo_speaker_boost_sbs_setstatus(c, 0); // equalizer (and the neutral balance) only
  int ratio = -1;
  kedo_speaker_boost_cb_get_channel_ration(c, &ratio);
  ASSERT_EQ(ratio, 0);
  std::vector<double> freqs = {40, 60, 100, 150, 250, 500, 1000, 1500, 2000, 5000, 7000, 12000, 15000, 20000, 22000};
  for (const auto& b : design.bands[0]) freqs.push_back(b.freq);
  for (double f : freqs) {
    double got[2];
    measure(c, f, design.rate, got);
    for (int side = 0; side < 2; ++side) {
      double want = design.peq_gain_db[side];
      for (const auto& b : design.bands[side]) want += band_db(b, f, design.rate);
      EXPECT_NEAR(got[side], want, 0.01) << "side " << side << " at " << f << " Hz";
    }
  }
}

} // namespace
