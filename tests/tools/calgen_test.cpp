// Calibration table generator: every registered generator, run through the
// kafx_calgen program into a scratch directory, writes exactly the committed
// table file; and the design rules reproduce, to the last bit, every
// coefficient row the product documents.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "biquad_design.h"
#include "calgen.h"
#include "support/program_command.h"
#include "support/source_files.h"

namespace {

namespace fs = std::filesystem;
using kafx_test::slurp;
using kafx_test::source_file;
using Row = std::array<int32_t, 5>;

TEST(Calgen, ProgramRegeneratesEveryCommittedTable) {
  const fs::path out = fs::temp_directory_path() / ("kafx_calgen_test_" + std::to_string(::getpid()));
  fs::remove_all(out);
  const std::string cmd = kafx_test::program_command(KAFX_CALGEN_EXE) + " --out " + out.string() + " > /dev/null";
  ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
  size_t n = 0;
  const calgen::Generator* g = calgen::generators(&n);
  ASSERT_GT(n, 0u);
  for (size_t k = 0; k < n; ++k) {
    const std::string fresh = slurp(out / g[k].path), committed = slurp(source_file(g[k].path));
    ASSERT_FALSE(fresh.empty()) << g[k].block;
    EXPECT_TRUE(fresh == committed) << g[k].path << " differs from what `kafx_calgen " << g[k].block
                                    << "` writes: regenerate it";
    // The in-process generator is the same text (the test below relies on it).
    EXPECT_TRUE(g[k].generate() == fresh) << g[k].block;
  }
  fs::remove_all(out);
}

TEST(Calgen, UnknownBlockIsRefused) {
  const std::string cmd = kafx_test::program_command(KAFX_CALGEN_EXE) + " --stdout no_such_block > /dev/null 2>&1";
  EXPECT_NE(std::system(cmd.c_str()), 0);
}

// Rows stated by the product documentation, with the design that yields each
// and the generated table file that holds it (none for the built-in presets).
struct StatedRow {
  const char* what;
  std::function<Row()> design;
  Row expected;
};

using namespace calgen;
constexpr const char* kEq = "common/equalizer_tables.cpp";
constexpr const char* kSvc = "headphone/smart_volume_control_tables.cpp";

const StatedRow kStatedRows[] = {
    // Graphic equalizer (low shelf 31.25 Hz; peaks at 62.5 Hz * 2^(b-1), Q 2).
    {"eq 44.1k band 0 step 0", [] { return to_fixed(low_shelf(31.25, 44100, 0)); },
     {268435455, -535180684, 266750533, 535180684, -266750533}},
    {"eq 44.1k band 0 step -15", [] { return to_fixed(low_shelf(31.25, 44100, -15)); },
     {267278998, -532875053, 265601336, 532862843, -264457090}},
    {"eq 44.1k band 5 step +15", [] { return to_fixed(peaking(1000, 44100, 15, 2)); },
     {310981976, -513212728, 207484123, 513212728, -250030644}},
    {"eq 48k band 5 step +15", [] { return to_fixed(peaking(1000, 48000, 15, 2)); },
     {307654307, -515457721, 212251278, 515457721, -251470130}},
    // Smart volume control measuring low-passes, Q 0.5 (the 44.1k mid row is the 48k design).
    {"svc 44.1k low", [] { return to_fixed(low_pass(250, 44100, 0.5)); },
     {82205, 164410, 82205, 518080780, -249974146}},
    {"svc 44.1k mid", [] { return to_fixed(low_pass(1000, 48000, 0.5)); },
     {1015678, 2031357, 1015678, 470823151, -206450411}},
    {"svc 44.1k high", [] { return to_fixed(low_pass(6500, 44100, 0.5)); },
     {29766420, 59532841, 29766420, 179315595, -29945823}},
    {"svc 48k low", [] { return to_fixed(low_pass(250, 48000, 0.5)); },
     {69585, 139170, 69585, 519583177, -251426062}},
    {"svc 48k mid", [] { return to_fixed(low_pass(1000, 48000, 0.5)); },
     {1015678, 2031357, 1015678, 470823151, -206450411}},
    {"svc 48k high", [] { return to_fixed(low_pass(6500, 48000, 0.5)); },
     {26099321, 52198643, 26099321, 202063902, -38025733}},
    {"svc 96k low", [] { return to_fixed(low_pass(250, 96000, 0.5)); },
     {17677, 35354, 17677, 528157472, -259792727}},
    {"svc 96k mid", [] { return to_fixed(low_pass(1000, 96000, 0.5)); },
     {269729, 539458, 269729, 502834479, -235477941}},
    {"svc 96k high", [] { return to_fixed(low_pass(6500, 96000, 0.5)); },
     {8468602, 16937205, 8468602, 346155487, -111594444}},
    // Built-in parametric preset, first band: peak cut 150 Hz, -2 dB, Q 2, scale 2^28.
    {"peq preset 44.1k band 1", [] { return to_fixed(peaking(150, 44100, -2, 2), kQ28); },
     {268066611, -533162405, 265217574, 533162405, -264848730}},
    {"peq preset 48k band 1", [] { return to_fixed(peaking(150, 48000, -2, 2), kQ28); },
     {268096392, -533470927, 265477386, 533470927, -265138322}},
    // Built-in virtual bass preset, harmonic filter: low-pass 500 Hz, Q 0.707, scale 2^28.
    {"vbs preset 44.1k harmonic filter", [] { return to_fixed(low_pass(500, 44100, 0.707), kQ28); },
     {324108, 648216, 324108, 509844742, -242705718}},
    {"vbs preset 48k harmonic filter", [] { return to_fixed(low_pass(500, 48000, 0.707), kQ28); },
     {274666, 549332, 274666, 512037650, -244700858}},
};

// Each stated row comes out of its design, and a generated table's committed
// file holds it as the generator formats it.
TEST(Calgen, DesignRulesReproduceEveryStatedRow) {
  for (const StatedRow& r : kStatedRows) {
    EXPECT_EQ(r.design(), r.expected) << r.what;
    const std::string what = r.what, text = row5(r.expected, "");
    const char* file = what.rfind("eq ", 0) == 0 ? kEq : what.rfind("svc ", 0) == 0 ? kSvc : nullptr;
    EXPECT_TRUE(file == nullptr || slurp(source_file(file)).find(text.substr(0, text.size() - 1)) != std::string::npos)
        << what;
  }
}

// Properties of the design rules that the tables rely on.
TEST(Calgen, CutIsTheInverseOfTheBoostAndFlatIsOneBelowUnity) {
  for (double fs : {44100.0, 48000.0, 96000.0}) {
    for (double g : {1.0, 6.0, 15.0}) {
      const Biquad pairs[][2] = {{peaking(500, fs, g, 2), peaking(500, fs, -g, 2)},
                                 {low_shelf(31.25, fs, g), low_shelf(31.25, fs, -g)},
                                 {high_shelf(16000, fs, g), high_shelf(16000, fs, -g)}};
      for (const auto& p : pairs) {
        // boost numerator / boost denominator, inverted: cut numerator = boost denominator (scaled).
        const double s = p[1].b0;  // cut b0 = d0 / n0 of the boost
        EXPECT_NEAR(p[1].b1 / s, p[0].a1, 1e-12);
        EXPECT_NEAR(p[1].b2 / s, p[0].a2, 1e-12);
        EXPECT_NEAR(p[1].a1, p[0].b1 / p[0].b0, 1e-12);
        EXPECT_NEAR(p[1].a2, p[0].b2 / p[0].b0, 1e-12);
      }
    }
    const Row flat = to_fixed(peaking(1000, fs, 0, 2));
    EXPECT_EQ(flat[0], 268435455);
    EXPECT_EQ(flat[3], -flat[1]);
    EXPECT_EQ(flat[4], -flat[2]);
  }
}

}  // namespace
