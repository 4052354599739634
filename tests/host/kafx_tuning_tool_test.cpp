// The tuning side of the `kafx` tool: configurations in engineering units and
// their flags, designs read back from XML, equalizer text import. The band
// arithmetic is checked against the cookbook's own properties (a peak's gain
// at its centre, a shelf's gain at DC or at rate/2, -3 dB at a Butterworth
// corner) and against direct evaluation of the difference equation.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kafx_proc/speaker_boost.h"
#include "tests/host/tool_harness.h"
#include "tools/eq_import.h"
#include "tools/speaker_units.h"

namespace kafx_test {
namespace {

namespace fs = std::filesystem;
using namespace kafx_tool;

class Tuning : public ToolTest {
 protected:
  // Writes `text` to the scratch file `name`; returns it as a quoted argument.
  std::string write(const std::string& name, const std::string& text) { ToolTest::write(name, text); return arg(name); }
  std::string arg(const std::string& name) const { return " '" + path(name) + "'"; }
  static std::string source(const std::string& rel) { return " '" + source_file(rel) + "'"; }
};

// Direct evaluation of the stored difference equation on a long sine:
// y = b0 x + b1 x1 + b2 x2 + a1 y1 + a2 y2 with the Q28 values as reals.
double measured_db(const BandRecord& r, double f, double rate) {
  double x1 = 0, x2 = 0, y1 = 0, y2 = 0, peak = 0;
  const int n = static_cast<int>(rate);  // one second, the last half measured
  for (int i = 0; i < n; ++i) {
    const double x = std::sin(2 * M_PI * f * i / rate);
    const double y = (r[1] * x + r[2] * x1 + r[3] * x2 + r[4] * y1 + r[5] * y2) / 268435456.0;
    x2 = x1, x1 = x, y2 = y1, y1 = y;
    if (i > n / 2) peak = std::max(peak, std::fabs(y));
  }
  return 20 * std::log10(peak);
}

// Each cookbook type at several rates: the design shows its defining gain,
// the stored section behaves as band_db says, and the record reads back as
// the same type with the same values.
TEST(TuningUnits, BandsDesignMeasureAndReadBack) {
  struct Case { EqBand band; double at_hz, want_db; };
  const Case cases[] = {
      {{"peak", 1000, 1.41, 3, {}}, 1000, 3},
      {{"peak", 120, 4, -9.5, {}}, 120, -9.5},
      {{"lowshelf", 200, 0.707, 6, {}}, 5, 6},
      {{"highshelf", 6000, 0.9, -4, {}}, 0, -4},  // 0: at rate / 2
      {{"highpass", 100, 0.7071, 0, {}}, 100, -3.0103},
      {{"lowpass", 5000, 0.7071, 0, {}}, 5000, -3.0103},
      {{"notch", 2500, 8, 0, {}}, 300, -0.0},  // far from the notch: flat
  };
  for (double rate : {44100.0, 48000.0, 96000.0}) {
    for (const Case& c : cases) {
      const BandRecord r = design_band(c.band, rate);
      const double f = c.at_hz > 0 ? c.at_hz : rate / 2;
      EXPECT_NEAR(band_db(r, f, rate), c.want_db, 0.02) << c.band.type << " at " << rate;
      if (c.at_hz >= 50 && c.at_hz < rate / 4) {
        EXPECT_NEAR(measured_db(r, f, rate), band_db(r, f, rate), 0.02) << c.band.type << " at " << rate;
      }
      EqBand back;
      ASSERT_TRUE(recover_band(r, rate, &back)) << c.band.type << " at " << rate;
      EXPECT_EQ(back.type, c.band.type);
      EXPECT_DOUBLE_EQ(back.freq, c.band.freq);
      EXPECT_DOUBLE_EQ(back.q, c.band.q);
      EXPECT_DOUBLE_EQ(back.gain_db, c.band.gain_db);
    }
  }
  // The notch is deep at its centre.
  EXPECT_LT(band_db(design_band({"notch", 2500, 8, 0, {}}, 48000), 2500, 48000), -60);
  // A record that is no cookbook section is not given a name.
  EqBand none;
  EXPECT_FALSE(recover_band({1, 1 << 28, 12345, 0, 0, 0}, 48000, &none));
  EXPECT_FALSE(recover_band(kPassThroughOff, 48000, &none));
}

// (0 and -6.0206 dB in Q13, -20 dBFS as a 16-bit peak and the mean's floor
// of 2: in the record speaker-design writes, DesignRecordAndConfigReport.)
TEST(TuningUnits, LevelsAndTimes) {
  EXPECT_NEAR(q13_to_db(16384), 6.0206, 1e-4);
  EXPECT_EQ(dbfs_to_peak16(0), 32767);
  EXPECT_EQ(dbfs_to_peak16(-200), 1);  // never below 1
  EXPECT_NEAR(peak16_to_dbfs(3277), -20, 0.001);
  EXPECT_EQ(shift_to_ms(0), 0);
  // Shift n moves the envelope 2^-n of the way per 5 ms block: after the
  // time constant 1/e of the step is left.
  for (int n : {1, 3, 5, 8}) {
    const double blocks = shift_to_ms(n) / 5;
    EXPECT_NEAR(std::pow(1 - std::ldexp(1.0, -n), blocks), std::exp(-1.0), 1e-9) << n;
  }
  EXPECT_EQ(shortest(3200.0, [](double v) { return v == 3200; }), "3200");
  EXPECT_EQ(shortest(-1.5000000001, [](double v) { return std::fabs(v + 1.5) < 1e-6; }), "-1.5");
}

// Text import: what is accepted, and each refusal names its line.
TEST(TuningUnits, EqTextImport) {
  std::istringstream ok(
      "# AutoEq style\nPreamp: -6.2 dB\nFilter 1: ON LSC Fc 105 Hz Gain 5.5 dB Q 0.70\n"
      "Filter 2: ON PK Fc 100 Hz Gain 3 dB Q 1.41\nFilter 3: OFF PK Fc 200 Hz Gain 3 dB Q 1\n"
      "Filter 4: ON HP Fc 20 Hz\nChannel: R\nFilter: ON NO Fc 1000 Hz Q 30\nChannel: ALL\n"
      "Filter 6: ON hs Fc 8000 Hz Gain -2 dB Q 0.7\nFilter 7: ON LP Fc 18000 Hz Q 0.5\n");
  EqImport eq;
  std::string error;
  ASSERT_TRUE(import_eq_text(ok, 48000, 10, &eq, &error)) << error;
  EXPECT_TRUE(eq.has_preamp);
  EXPECT_DOUBLE_EQ(eq.preamp_db, -6.2);
  ASSERT_TRUE(eq.bands[0].size() == 5u && eq.bands[1].size() == 6u);
  const struct { int side, index; const char* type; double q, gain_db; } want[] = {  // -1: not checked
      {0, 0, "lowshelf", -1, 5.5}, {0, 2, "highpass", 0.7071, -1}, {1, 3, "notch", 30, -1},
      {0, 3, "highshelf", -1, -1}, {1, 5, "lowpass", -1, -1}};
  for (const auto& w : want) {
    const EqBand& b = eq.bands[w.side][w.index];
    EXPECT_EQ(b.type, w.type) << w.side << " " << w.index;
    EXPECT_TRUE((w.q < 0 || b.q == w.q) && (w.gain_db < 0 || b.gain_db == w.gain_db)) << b.type << " " << b.q << " " << b.gain_db;
  }

  std::string eleven;
  for (int i = 1; i <= 11; ++i) eleven += "Filter " + std::to_string(i) + ": ON PK Fc 1000 Hz Gain 1 dB Q 1\n";
  const struct { std::string text, want; } bad[] = {
      {eleven, "line 11: more filters than fit: the equalizer has 10 bands per side"},
      {"Preamp: -3 dB\nFilter 1: ON BP Fc 100 Hz Q 1\n", "line 2: unsupported filter type 'BP'"},
      {"Filter 1: ON PK Fc 30000 Hz Gain 3 dB Q 1\n", "line 1: Fc 30000 Hz is out of range"},
      {"\n\nFilter 1: ON PK Fc 100 Hz Gain 30 dB Q 1\n", "line 3: Gain 30 dB is out of range"},
      {"Filter 1: ON PK Fc 100 Hz Gain 3 dB Q 0.01\n", "line 1: Q 0.01 is out of range"},
      {"Preamp: -60 dB\n", "line 1: Preamp -60 dB is out of range"},
      {"Filter 1: ON PK Fc 100 Hz Gain 3 dB\n", "line 1: PK needs a Q"},
      {"Filter 1: ON HP Fc 100 Hz Gain 3 dB\n", "line 1: HP takes no Gain"},
      {"Filter 1: ON PK Fc 100 Hz Gain 3 dB BW Oct 1\n", "line 1: unsupported parameter 'BW'"},
      {"Preamp: -1 dB\nDevice: speakers\n", "line 2: unsupported statement 'Device:'"},
      {"Filter 1: ON PK Fc x Hz Gain 3 dB Q 1\n", "line 1: 'Fc' needs a number"},
  };
  for (const auto& b : bad) {
    std::istringstream in(b.text);
    EXPECT_FALSE(import_eq_text(in, 48000, 10, &eq, &error)) << b.text;
    EXPECT_EQ(error.rfind(b.want, 0), 0u) << error << "\nwanted: " << b.want;
  }
  EXPECT_TRUE(looks_like_eq_text("# x\n\nPreamp: 0 dB\n"));
  EXPECT_FALSE(looks_like_eq_text("# x\nsbs on\n"));
}

// speaker-config: readable units beside the hex, nothing flagged for the
// shipped configuration.
TEST_F(Tuning, ConfigInEngineeringUnits) {
  std::string out;
  ASSERT_EQ(run_tool("speaker-config" + source("examples/speaker.xml"), &out), 0) << out;
  for (const char* want : {"peak 800 Hz Q 1.4 -1.5 dB", "highpass 100 Hz Q 0.707 ", "lowshelf 320 Hz Q 0.707 +2 dB",
                           "threshold -1.00 dBFS (0x7214)", "threshold -0.50 dBFS (0x78d6)", "make-up +4.00 dB (0x32b7)",
                           "release shift 5 (time constant 157 ms)", "attack shift 0 (follows at once)",
                           "expander below -84.0 dBFS", "harmonic band gain: left -4.00 dB (0x1431)",
                           "input gain: left -1.00 dB (0x1c85)", "right band 10: off", "nothing flagged"})
    EXPECT_NE(out.find(want), std::string::npos) << want << "\n" << out;
}

// Each flag with its line; every flagged file exits 1 (a boost with no
// limiter after it is flagged, with the limiters only a note); malformed XML
// names the line where parsing stopped; speaker --config warns about the
// same on standard error and still runs.
TEST_F(Tuning, ConfigFlags) {
  const std::string boost = "</sbs><peq><enable>1</enable><gain>2000;2000</gain><Lfilter>1;10000000;0;0;0;0</Lfilter>"
                            "<Rfilter>1;20000000;0;0;0;0</Rfilter></peq></kafxsp>\n";
  const struct { std::string xml; int code; std::string want, absent; } cases[] = {
      {"<kafxsp>\n<sbs>\n<channel_num>72z4</channel_num>\n</sbs>\n</kafxsp>\n", 1,
       "FLAG line 3: token 1 '72z4' of <channel_num> does not scan completely: stored as 0x72", ""},
      {"<kafxsp>\n<sbs>\n<gain>0x;2000</gain>\n</sbs>\n</kafxsp>\n", 1,
       "FLAG line 3: token 1 '0x' of <gain> does not scan completely: stored as 0x0", ""},
      {"<kafxsp>\n<sbs><gain>2000;;</gain></sbs></kafxsp>\n", 1, "token 2 '' of <gain> is not a hexadecimal number", ""},
      {"<kafxsp>\n<peq>\n\n<gian>2000</gian></peq></kafxsp>\n", 1, "FLAG line 4: unknown element <gian> in <peq>", ""},
      {"<kafxsp>\n<eq></eq></kafxsp>\n", 1, "FLAG line 2: unknown element <eq> in <kafxsp>", ""},
      {"<kafxsp><sbs><gain>1;2;3</gain></sbs></kafxsp>\n", 1, "<gain> has 3 values, 2 expected", ""},
      {"<kafxsp><sbs><enable>1</enable><drc_param_left3>0;5;b4cd;2000;100</drc_param_left3></sbs></kafxsp>\n", 1,
       "FLAG: full-band limiter left: threshold +3.00 dBFS (0xb4cd) is above full scale", ""},
      {"<kafxsp><peq><enable>1</enable><gain>2000;2000</gain><Rfilter>1;10000000;0;0;0;f0000000</Rfilter>"
       "</peq></kafxsp>\n", 1, "FLAG: right equalizer band 1 is unstable", ""},
      {"<kafxsp><sbs><enable>0</enable>" + boost, 1,
       "FLAG: right equalizer raises 20 Hz by +6.02 dB (input gain included) and no limiter follows",
       "left equalizer raises"},
      {"<kafxsp><sbs><enable>1</enable>" + boost, 0, "note: right equalizer raises", ""},
      {"<kafxsp>\n<sbs>\n<gain>1</gain>\n</kafxsp>\n", 1, "not well-formed XML at line 4", ""},
  };
  std::string out;
  for (const auto& c : cases) {
    out.clear();
    EXPECT_EQ(run_tool("speaker-config" + write("c.xml", c.xml), &out), c.code) << c.xml << out;
    EXPECT_NE(out.find(c.want), std::string::npos) << c.want << "\n" << out;
    if (!c.absent.empty()) {
      EXPECT_EQ(out.find(c.absent), std::string::npos) << out;
    }
  }
  // speaker --config: the same checks as warnings, the file still processed.
  out.clear();
  const std::string cfg = write("w.xml", "<kafxsp>\n<sbs>\n<channel_num>72z4</channel_num>\n<bogus/>\n</sbs>\n</kafxsp>\n");
  EXPECT_EQ(run_tool("speaker --config" + cfg + arg("o.wav"), &out), 0) << out;
  EXPECT_NE(out.find("w.xml:3: token 1 '72z4' of <channel_num> does not scan completely"), std::string::npos) << out;
  EXPECT_NE(out.find("w.xml:4: unknown element <bogus> in <sbs>"), std::string::npos) << out;
}

// design -> xml -> design -> xml is byte-identical, for the shipped design
// and for one with sides that differ, a notch and a hand-made band record.
TEST_F(Tuning, DesignFromXmlRoundTrip) {
  fs::create_directories(path("a")), fs::create_directories(path("b"));
  std::string out;
  ASSERT_EQ(run_tool("speaker-design" + source("examples/speaker_design.txt") + " -o" + arg("a/speaker.xml"), &out), 0)
      << out;
  const std::string odd =
      "version odd one\nrate 44100\nsbs on\nharmonic_gain -3 -7.5\nchannel_num 1\n"
      "limiter low left 2 7 -3.3 1.7 -90\nlimiter full both 0 9 -0.1 0 -70\npeq on\npeq_gain 0 -2.5\n"
      "band left notch 1234.5 12\nband right peak 63 0.5 -12\nband both raw 1 10000000 123 0 0 0\n"
      "band left highshelf 12000 0.6 3.25\n";
  write("a/odd.txt", odd);
  ASSERT_EQ(run_tool("speaker-design" + arg("a/odd.txt") + " -o" + arg("a/odd.xml"), &out), 0) << out;
  for (const char* name : {"speaker.xml", "odd.xml"}) {
    const std::string n = name;
    out.clear();
    ASSERT_EQ(run_tool("speaker-design --from-xml" + arg("a/" + n) + " -o" + arg("b/" + n + ".txt"), &out), 0) << out;
    ASSERT_EQ(run_tool("speaker-design" + arg("b/" + n + ".txt") + " -o" + arg("b/" + n), &out), 0) << out;
    // The generator names its source in a comment: same base name, same text.
    std::string first = read_text("a/" + n), second = read_text("b/" + n);
    const auto strip = [](std::string s) { return s.substr(s.find("<kafxsp>")); };
    EXPECT_EQ(strip(first), strip(second)) << name << "\n" << read_text("b/" + n + ".txt");
  }
  const std::string back = read_text("b/odd.xml.txt");
  for (const char* want : {"band left  notch 1234.5 12\n", "band right peak 63 0.5 -12\n",
                           "band both  raw 1 10000000 123 0 0 0\n", "harmonic_gain -3 -7.5\n", "rate 44100\n",
                           "limiter low  left  2 7 -3.3 1.7 -90\n", "limiter full both  0 9 -0.1 0 -70\n",
                           "version odd one\n", "peq_gain 0 -2.5\n"})
    EXPECT_NE(back.find(want), std::string::npos) << want << "\n" << back;
  // A value with no design form is refused with its name.
  out.clear();
  EXPECT_EQ(run_tool("speaker-design --from-xml" +
                         write("z.xml", "<kafxsp><sbs><gain>0;2000</gain></sbs></kafxsp>\n"), &out), 1);
  EXPECT_NE(out.find("sbs.gain[left] 0 has no design form"), std::string::npos) << out;
}

// speaker-design regenerates the example exactly, refuses bad designs (1) and a missing argument (2), and
// turns dB into Q13 gains and 16-bit thresholds at their places in the record; speaker-config reports
// element by element.
TEST_F(Tuning, DesignRecordAndConfigReport) {
  std::string out;
  ASSERT_EQ(run_tool("speaker-design" + source("examples/speaker_design.txt") + " -o" + arg("example.xml"), &out), 0);
  EXPECT_EQ(read_text("example.xml"), slurp(source_file("examples/speaker.xml")))
      << "stale: regenerate it with kafx speaker-design";
  EXPECT_EQ(run_tool("speaker-design", &out), 2);
  for (const char* bad : {"band both notch 1000 1 3\n", "band both peak 30000 1 3\n", "limiter low both 0 5 -1\n"})
    EXPECT_EQ(run_tool("speaker-design" + write("bad.txt", bad), &out), 1) << bad;
  ASSERT_EQ(run_tool("speaker-design" +
                         write("d.txt", "version t 1\nsbs on\nharmonic_gain 0 -6.0206\nlimiter high right 1 4 -20 "
                                        "6.0206 -138\npeq off\nband right highpass 100 0.7071\n") +
                         " -o" + arg("d.xml"), &out), 0) << out;
  std::array<int32_t, 168> f{};
  ASSERT_EQ(kafx_speaker_boost_params_load_config(f.data(), path("d.xml").c_str()), 0);
  auto at = [&](size_t i, size_t n) { return std::vector<int32_t>(&f[i], &f[i] + n); };
  EXPECT_EQ(at(0, 3), (std::vector{1, 8192, 4096}));              // sbs on; 0 dB; -6.0206 dB is one half
  EXPECT_EQ(at(35, 5), (std::vector{1, 4, 3277, 16384, 2}));      // high right: 32767 / 10; twice 8192; floor 2
  EXPECT_EQ(at(15, 5), (std::vector{0, 5, 32767, 8192, 256}));    // high left as the limiters start
  EXPECT_EQ(at(45, 1), (std::vector{0}));                         // peq off
  EXPECT_EQ(at(48, 6), (std::vector{0, 268435456, 0, 0, 0, 0})); // unused band: switched-off pass-through
  EXPECT_TRUE(f[108] == 1 && f[109] == f[111] && std::abs(f[109] * 2.0 + f[110]) <= 2 && f[114] == 0)
      << "right band 1: a high-pass, b0 = b2 = -b1 / 2 (no gain at DC)";

  const std::string g = write("g.xml", "<kafxsp><sbs><gain>2000;zz;5</gain><bogus>1</bogus><drc_param_left2>1;2;3"
                                       "</drc_param_left2></sbs><sbs><gain>7</gain></sbs></kafxsp>\n");
  EXPECT_EQ(run_tool("speaker-config" + g, &out), 1);  // loads, but its stray tokens and <bogus> are flagged
  EXPECT_EQ(run_tool("speaker-config", &out), 2);
  out.clear();
  EXPECT_EQ(run_tool("speaker-config" + source("examples/speaker.xml") + g + write("b.xml", "<kafxsp><sbs></kafxsp>"),
                     &out), 1);
  for (const char* want : {"every member of the record is set by this file", "load: ok",
                           "token 2 'zz' is not a 32-bit hexadecimal number: sbs.gain[right] [2] unchanged",
                           "1 surplus token ignored", "<bogus>: unknown in <sbs>, ignored",
                           "missing tokens: [18..19] unchanged", "overwrites values set earlier in the file: [1]",
                           "drc_high_left:\t 0x1 0x2 0x3 0x0 0x0", "load: FAILED (-1): not well-formed XML"})
    EXPECT_NE(out.find(want), std::string::npos) << want << "\n" << out;
}

// A design that clips is generated with a warning; an imported equalizer
// text becomes a configuration whose bands read back as imported.
TEST_F(Tuning, DesignWarningsAndImport) {
  std::string out;
  EXPECT_EQ(run_tool("speaker-design" + write("clip.txt", "sbs on\nlimiter full both 0 5 3 0 -84\n") + " -o" +
                         arg("clip.xml"), &out), 0);
  EXPECT_NE(out.find("kafx speaker-design: warning: full-band limiter left: threshold +3.00 dBFS"), std::string::npos)
      << out;
  out.clear();
  ASSERT_EQ(run_tool("speaker-design" +
                         write("eq.txt", "Preamp: -6 dB\nFilter 1: ON PK Fc 100 Hz Gain 3 dB Q 1.41\n"
                                         "Filter 2: ON HSC Fc 8000 Hz Gain -2.5 dB Q 0.7\n") +
                         " -o" + arg("eq.xml"), &out), 0) << out;
  out.clear();
  EXPECT_EQ(run_tool("speaker-config" + arg("eq.xml"), &out), 0) << out;
  for (const char* want : {"left  band  1: peak 100 Hz Q 1.41 +3 dB", "right band  2: highshelf 8000 Hz Q 0.7 -2.5 dB",
                           "input gain: left -6.00 dB", "parametric equalizer: on", "speaker boost system: off"})
    EXPECT_NE(out.find(want), std::string::npos) << want << "\n" << out;
  out.clear();
  EXPECT_EQ(run_tool("speaker-design" + write("bad.txt", "Preamp: -6 dB\n\nFilter 1: ON BP Fc 100 Hz Q 1\n"), &out), 1);
  EXPECT_NE(out.find("bad.txt: line 3: unsupported filter type 'BP'"), std::string::npos) << out;
}

// Width and height of a PNG image, after its signature, a first chunk that is
// IHDR and an IEND chunk are found; zeros if any is missing.
std::pair<unsigned, unsigned> png_size(const std::string& png) {
  if (png.size() <= 33 || png.compare(0, 8, std::string("\x89PNG\r\n\x1a\n", 8)) != 0 ||
      png.compare(12, 4, "IHDR") != 0 || png.find("IEND") == std::string::npos)
    return {0, 0};
  auto be32 = [&](size_t at) {
    return (unsigned(uint8_t(png[at])) << 24) | (unsigned(uint8_t(png[at + 1])) << 16) |
           (unsigned(uint8_t(png[at + 2])) << 8) | unsigned(uint8_t(png[at + 3]));
  };
  return {be32(16), be32(20)};
}

// The points of a plot's text output, after checking its header line.
struct Point {
  std::string record;
  double rate, f, l, r;
};
std::vector<Point> csv_points(const std::string& text) {
  std::istringstream in(text);
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "record,rate_hz,freq_hz,left_db,right_db");
  std::vector<Point> points;
  for (char name[64]; std::getline(in, line);) {
    Point p;
    EXPECT_EQ(std::sscanf(line.c_str(), "%63[^,],%lf,%lf,%lf,%lf", name, &p.rate, &p.f, &p.l, &p.r), 5) << line;
    p.record = name;
    points.push_back(p);
  }
  return points;
}

// kafx plot: pages of 800 x 600 that decode as PNG, and text points that
// show the design: a speaker band (+6 dB at 1 kHz, flat far from it, the
// same on both sides) at four rates; the sixteen headphone records at both
// rates; a graphic-equalizer index set (+6 steps on the 125 Hz peak, -6 on
// the high shelf) at three rates. 400 points per record and rate.
TEST_F(Tuning, PlotSpeakerResponse) {
#ifndef KAFX_TOOL_HAS_PLOT
  GTEST_SKIP() << "kafx was built without PLplot";
#endif
  std::string out;
  ASSERT_EQ(run_tool("speaker-design" + write("p.txt", "peq on\nband both peak 1000 1 6\n") + " -o" + arg("p.xml"), &out), 0)
      << out;
  const std::pair<std::string, std::string> plots[] = {
      {"speaker" + arg("p.xml"), "p"}, {"headphone", "h"}, {"geq 0,0,6,0,0,0,0,0,0,-6", "g"}};
  for (const auto& [what, name] : plots) {
    ASSERT_EQ(run_tool("plot " + what + " -o" + arg(name + ".png") + " --csv" + arg(name + ".csv"), &out), 0) << out;
    EXPECT_EQ(png_size(read_text(name + ".png")), std::make_pair(800u, 600u)) << what;
  }

  int rows[4] = {};
  double best = -100, best_f = 0;
  for (const Point& p : csv_points(read_text("p.csv"))) {
    if (p.record != "equalizer") continue;  // the boost system's curves: below
    EXPECT_EQ(p.l, p.r) << p.f;
    rows[p.rate == 44100 ? 0 : p.rate == 48000 ? 1 : p.rate == 96000 ? 2 : 3]++;
    if (p.rate != 48000) continue;
    if (p.l > best) best = p.l, best_f = p.f;
    if (p.f < 100 || (p.f > 10000 && p.f < 20000)) {
      EXPECT_NEAR(p.l, 0, 0.3) << p.f;
    }
  }
  for (int n : rows) EXPECT_EQ(n, 400);
  EXPECT_NEAR(best, 6, 0.05);
  EXPECT_NEAR(best_f, 1000, 20);

  // The headphone records: preset 3 and the seven adapters, and presets 1 to
  // 4 measured through the product, each at both rates. The measurement is
  // checked on preset 3, whose response is also computed from its bands:
  // within 0.5 dB of it from 200 Hz up (below, the 0.34 s window and the DC
  // blockers tell). The virtual bass lifts the bass and leaves the highs.
  const std::vector<Point> hp = csv_points(read_text("h.csv"));
  std::set<std::pair<std::string, double>> records;
  std::map<std::pair<double, double>, double> computed;
  for (const Point& p : hp) {
    records.insert({p.record, p.rate});
    if (p.record == "headphone preset 3") computed[{p.rate, p.f}] = p.l;
  }
  EXPECT_TRUE(hp.size() == 24u * 400 && records.size() == 24u);
  for (const char* record : {"headphone preset 3", "adapter 1", "adapter 7", "headphone preset 1 (measured)",
                             "headphone preset 4 (measured)"})
    EXPECT_TRUE(records.count({record, 44100}) && records.count({record, 48000})) << record;
  int compared = 0;
  for (const Point& p : hp) {
    if (p.record == "headphone preset 3 (measured)" && p.f >= 200 && p.f <= 15000) {
      EXPECT_NEAR(p.l, computed.at({p.rate, p.f}), 0.5) << p.rate << " " << p.f;
      EXPECT_NEAR(p.r, computed.at({p.rate, p.f}), 0.5) << p.rate << " " << p.f;
      ++compared;
    }
    if (p.record == "headphone preset 2 (measured)") {
      if (p.f > 2000) {
        EXPECT_NEAR(p.l, 0, 0.2) << p.rate << " " << p.f;
      }
      if (p.f < 100) {
        EXPECT_GT(p.l, 1) << p.rate << " " << p.f;
      }
    }
  }
  EXPECT_GT(compared, 400);

  const std::vector<Point> geq = csv_points(read_text("g.csv"));
  EXPECT_EQ(geq.size(), 3u * 400);
  for (const Point& p : geq) {
    EXPECT_EQ(p.record, "graphic equalizer");
    if (std::fabs(p.f / 125 - 1) < 0.02) {
      EXPECT_NEAR(p.l, 6, 0.3) << p.rate << " " << p.f;
    }
    if (p.f > 18000 && p.f < 20000) {  // the shelf's corner is high: most of its -6 dB
      EXPECT_TRUE(p.l < -4 && p.l > -6.3) << p.rate << " " << p.f << ": " << p.l;
    }
  }
  EXPECT_EQ(run_tool("plot speaker" + arg("p.xml"), &out), 2);  // neither -o nor --csv
  EXPECT_EQ(run_tool("plot geq 0,0,99,0,0,0,0,0,0,0 -o" + arg("g.png"), &out), 2);
}

// The speaker page's boost-system curves: the pre-filter and four crossover
// bands at each rate, the same on both sides. Each band is a fourth-order
// (Linkwitz-Riley) piece: the low band follows 1 / (1 + (f / fc)^4) about its
// -6 dB point fc, where the next band is also -6 dB (both branches of a
// crossover meet there); the top band passes
// the treble; at 192 kHz the pre-filter is all zero (the system is silent).
// Levels are floored at -60 dB.
TEST_F(Tuning, PlotSpeakerBoostFilters) {
#ifndef KAFX_TOOL_HAS_PLOT
  GTEST_SKIP() << "kafx was built without PLplot";
#endif
  std::string out;
  ASSERT_EQ(run_tool("plot speaker" + source("examples/speaker.xml") + " -o" + arg("b.png") + " --csv" + arg("b.csv"),
                     &out), 0) << out;
  EXPECT_EQ(png_size(read_text("b.png")), std::make_pair(800u, 600u));
  ASSERT_EQ(run_tool("plot speaker" + source("examples/speaker.xml") + " --rate 48000 -o" + arg("b1.png"), &out), 0)
      << out;
  EXPECT_EQ(png_size(read_text("b1.png")), std::make_pair(800u, 600u));

  std::map<std::pair<std::string, double>, std::vector<Point>> curves;
  for (const Point& p : csv_points(read_text("b.csv"))) {
    EXPECT_EQ(p.l, p.r) << p.record << " " << p.rate << " " << p.f;
    curves[{p.record, p.rate}].push_back(p);
  }
  const char* const records[] = {"equalizer", "pre-filter", "crossover band 1", "crossover band 2",
                                 "crossover band 3", "crossover band 4"};
  EXPECT_EQ(curves.size(), 6u * 4);
  for (double rate : {44100.0, 48000.0, 96000.0, 192000.0})
    for (const char* r : records) EXPECT_EQ((curves[{r, rate}].size()), 400u) << r << " " << rate;

  for (double rate : {44100.0, 48000.0, 96000.0}) {
    const std::vector<Point>& pre = curves[{"pre-filter", rate}];
    EXPECT_NEAR(pre.front().l, 0, 0.1) << rate;  // 20 Hz
    const std::vector<Point>& low = curves[{"crossover band 1", rate}];
    const std::vector<Point>& next = curves[{"crossover band 2", rate}];
    const std::vector<Point>& top = curves[{"crossover band 4", rate}];
    // The low band's -6 dB point, between two plotted frequencies.
    size_t k = 0;
    while (k + 1 < low.size() && low[k + 1].l > -6.02) ++k;
    ASSERT_LT(k + 1, low.size()) << rate;
    const double fc = low[k].f;
    EXPECT_TRUE(fc > 100 && fc < 1000) << rate << ": " << fc;
    EXPECT_NEAR(next[k].l, -6, 1) << rate << " at " << fc;
    // A squared second-order Butterworth low-pass: 1 / (1 + (f / fc)^4).
    for (const Point& p : low) {
      const double model = -20 * std::log10(1 + std::pow(p.f / fc, 4));
      if (model > -55) {
        EXPECT_NEAR(p.l, model, p.f < fc / 4 ? 0.1 : 1) << rate << " " << p.f;
      }
    }
    EXPECT_NEAR(top[top.size() * 9 / 10].l, 0, 0.1) << rate << " " << top[top.size() * 9 / 10].f;
    EXPECT_LT(top.front().l, -50) << rate;
  }
  for (const Point& p : curves[{"pre-filter", 192000.0}]) EXPECT_EQ(p.l, -60) << p.f;
}

// kafx plot spectrogram: two panels of one 800 x 600 page and every bin as
// text. A stereo 1 kHz sine at half scale (48 kHz) and a mono 3 kHz sine at
// a tenth of full scale (44.1 kHz): in every frame of each file the loudest
// bin is the one nearest the tone, at the Hann window's level for the tone's
// distance from that bin (sin(pi d) / (pi d (1 - d^2)) of the sine's own
// level), and the spectrum an octave up is far below it.
TEST_F(Tuning, PlotSpectrogramOfTones) {
#ifndef KAFX_TOOL_HAS_PLOT
  GTEST_SKIP() << "kafx was built without PLplot";
#endif
  struct Tone { const char* file; int rate, channels; double hz, amplitude; };
  const Tone tones[] = {{"in.wav", 48000, 2, 1000, 0.5}, {"out.wav", 44100, 1, 3000, 0.1}};
  for (const Tone& t : tones) {
    Wav w{t.rate, t.channels, SF_FORMAT_PCM_16, {}};
    for (int i = 0; i < t.rate; ++i)
      for (int c = 0; c < t.channels; ++c)
        w.samples.push_back(65536 * static_cast<int32_t>(std::lround(32767 * t.amplitude *
                                                                     std::sin(2 * M_PI * t.hz * i / t.rate))));
    write_wav(path(t.file), w);
  }
  std::string out;
  for (const char* extra : {"", " --linear"}) {
    ASSERT_EQ(run_tool("plot spectrogram" + arg("in.wav") + arg("out.wav") + " -o" + arg("s.png") + " --csv" +
                           arg("s.csv") + extra, &out), 0) << out;
    EXPECT_EQ(png_size(read_text("s.png")), std::make_pair(800u, 600u)) << extra;
  }
  std::istringstream in(read_text("s.csv"));
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "signal,time_s,freq_hz,db");
  // signal -> time -> (frequency, dB) of every bin
  std::map<std::string, std::map<double, std::vector<std::pair<double, double>>>> frames;
  for (char name[16]; std::getline(in, line);) {
    double t = 0, f = 0, db = 0;
    ASSERT_EQ(std::sscanf(line.c_str(), "%15[^,],%lf,%lf,%lf", name, &t, &f, &db), 4) << line;
    frames[name][t].push_back({f, db});
  }
  ASSERT_EQ(frames.size(), 2u);
  for (int k = 0; k < 2; ++k) {
    const Tone& t = tones[k];
    const auto& by_time = frames[k == 0 ? "input" : "output"];
    const double bin = t.rate / 1024.0;
    // One second in 1024-sample frames every 512 samples.
    EXPECT_EQ(by_time.size(), static_cast<size_t>((t.rate - 1024) / 512 + 1)) << t.file;
    const double d = t.hz / bin - std::round(t.hz / bin);
    const double want = 20 * std::log10(t.amplitude * std::sin(M_PI * d) / (M_PI * d * (1 - d * d)));
    for (const auto& [time, bins] : by_time) {
      ASSERT_EQ(bins.size(), 513u) << t.file << " " << time;
      const auto peak = std::max_element(bins.begin(), bins.end(),
                                         [](const auto& a, const auto& b) { return a.second < b.second; });
      EXPECT_NEAR(peak->first, t.hz, bin / 2) << t.file << " " << time;
      EXPECT_NEAR(peak->second, want, 0.05) << t.file << " " << time;
      EXPECT_LT(bins[static_cast<size_t>(std::lround(2 * t.hz / bin))].second, want - 60) << t.file << " " << time;
    }
  }
  expect_exit_codes({{"plot spectrogram" + arg("in.wav") + " -o" + arg("x.png"), 2},  // one file
                     {"plot spectrogram" + arg("in.wav") + arg("out.wav") + " --fft 1000 -o" + arg("x.png"), 2},
                     {"plot spectrogram" + arg("in.wav") + arg("missing.wav") + " -o" + arg("x.png"), 1}},
                    path("x.png"));
}

}  // namespace
}  // namespace kafx_test
