// Design rules of the stereo widening and virtual bass tables: every row the
// product documents comes out of the stated design to the last bit, and the
// committed table files hold it at 48 kHz; the generated 192 kHz rows are
// zero; the phase networks and alignment all-passes are true all-passes.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "biquad_design.h"
#include "calgen.h"
#include "support/source_files.h"

namespace {

using Row = std::array<int32_t, 5>;
using namespace calgen;

struct StatedRow {
  const char* what;
  const char* file;  // generated table file that holds the row (the chain's presets are in calgen_test)
  std::function<Row()> design;
  Row expected;
};

constexpr const char* kSws = "headphone/stereo_widening_system_tables.cpp";
constexpr const char* kVbs = "headphone/virtual_bass_system_tables.cpp";

const StatedRow kStatedRows[] = {
    {"crossfeed direct all-pass 500 Hz Q 2.5", kSws, [] { return to_fixed(all_pass(500, 48000, 2.5)); },
     {261503521, -528804336, 268435455, 528804336, -261503521}},
    {"crossfeed low-pass 1500 Hz", kSws, [] { return to_fixed(low_pass(1500, 48000)); },
     {2266318, 4532636, 2266318, 462722641, -203352458}},
    {"crossfeed high-pass 1500 Hz", kSws, [] { return to_fixed(high_pass(1500, 48000)); },
     {233627638, -467255277, 233627638, 462722641, -203352458}},
    {"side and mid low-pass 200 Hz", kSws, [] { return to_fixed(low_pass(200, 48000)); },
     {45157, 90314, 45157, 526933453, -258678627}},
    {"side high-pass 7 kHz", kSws, [] { return to_fixed(high_pass(7000, 48000)); },
     {138325627, -276651255, 138325627, 209371769, -75495286}},
    {"mid band-pass 2861.5 Hz, Q 2861.5/4277", kSws, [] { return to_fixed(band_pass(2861.5, 48000, 2861.5 / 4277)); },
     {57638104, 0, -57638104, 392363526, -153159245}},
    {"early reflector pre-filter 300 Hz", kSws, [] { return to_fixed(high_pass(300, 48000)); },
     {261084054, -522168108, 261084054, 521966744, -253934017}},
    {"virtual bass splitter low-pass 250 Hz", kVbs, [] { return to_fixed(low_pass(250, 48000)); },
     {70236, 140473, 70236, 524449850, -256295343}},
    {"virtual bass splitter high-pass 250 Hz", kVbs, [] { return to_fixed(high_pass(250, 48000)); },
     {262295162, -524590324, 262295162, 524449850, -256295343}},
    {"virtual bass harmonic low-pass 500 Hz", kVbs, [] { return to_fixed(low_pass(500, 48000)); },
     {274667, 549335, 274667, 512041066, -244704283}},
    {"virtual bass all-pass 820 Hz Q 0.5", kVbs, [] { return to_fixed(all_pass(820, 48000, 0.5)); },
     {216485068, -482129724, 268435455, 482129724, -216485068}},
};

TEST(CalgenWideningBass, DesignsReproduceEveryStatedRow) {
  for (const StatedRow& r : kStatedRows) {
    EXPECT_EQ(r.design(), r.expected) << r.what;
    EXPECT_NE(kafx_test::slurp(kafx_test::source_file(r.file)).find(row5(r.expected, "48000 Hz")), std::string::npos)
        << r.what << " in " << r.file;
  }
}

TEST(CalgenWideningBass, GeneratedTablesKeepTheirShape) {
  for (const char* block : {"stereo_widening", "virtual_bass"}) {
    const std::string text = find_generator(block)->generate();
    size_t rows_48k = 0, rows_192k = 0;
    for (size_t at = 0; (at = text.find("// 48000 Hz\n", at)) != std::string::npos; ++at) ++rows_48k;
    for (size_t at = 0; (at = text.find("{0, 0, 0, 0, 0},", at)) != std::string::npos; ++at) ++rows_192k;
    EXPECT_EQ(rows_48k, rows_192k) << block;  // every table ends with its silent 192 kHz row
    EXPECT_EQ(rows_48k, std::string(block) == "virtual_bass" ? 4u : 11u) << block;
  }
  // The phase networks' and alignment designs are all-passes: b2 is the
  // unit 2^28 - 1 and the feedback pair mirrors b1 and b0.
  for (double fs : {44100.0, 48000.0, 96000.0}) {
    for (const Biquad& b : {all_pass(300, fs, kButterworthQ), all_pass(1000, fs, kButterworthQ),
                            all_pass(3000, fs, kButterworthQ), all_pass(820, fs, 0.5)}) {
      const Row c = to_fixed(b);
      EXPECT_EQ(c[2], 268435455);
      EXPECT_EQ(c[3], -c[1]);
      EXPECT_EQ(c[4], -c[0]);
    }
  }
}

}  // namespace
