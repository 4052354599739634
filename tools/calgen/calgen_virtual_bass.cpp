// Virtual bass system: the crossover, harmonic low-pass and alignment
// all-pass rows per rate class.
#include <string>

#include "biquad_design.h"
#include "calgen.h"

namespace calgen {

namespace {

constexpr double kRates[3] = {44100, 48000, 96000};
constexpr const char* kRateNames[3] = {"44100 Hz", "48000 Hz", "96000 Hz"};

constexpr double kSplit = 250;       // crossover frequency
constexpr double kHarmonic = 500;    // harmonic band limit
constexpr double kAlign = 820;       // alignment all-pass
constexpr double kAlignQ = 0.5;

constexpr const char* kDesign =
    "Virtual bass system biquad rows: Q28 coefficients b0, b1, b2, a1, a2\n"
    "(feedback pair negated), one row per rate class: 44100, 48000, 96000 Hz,\n"
    "then 192000 Hz, whose rows are all zero on purpose (every filtered path,\n"
    "and so the output, is silent at that rate).\n"
    "\n"
    "Design (tools/calgen/biquad_design.h): pre-warped bilinear transform,\n"
    "each value (int)(x * (2^28 - 1)) truncated toward zero.\n"
    "  Crossover: Butterworth low-pass and high-pass at 250 Hz; each branch\n"
    "    runs its section twice (a fourth-order Linkwitz-Riley pair, -6 dB at\n"
    "    250 Hz, whose two outputs sum to an all-pass).\n"
    "  Harmonic low-pass: 500 Hz, Q 1/sqrt 2, after the non-linear device: keeps\n"
    "    the second to fourth harmonics of the bass that make its pitch heard\n"
    "    and drops the harsh upper ones. (The headphone chain's built-in preset\n"
    "    carries its own row of this filter.)\n"
    "  Alignment all-pass: 820 Hz, Q 0.5, on both high bands and on the dry\n"
    "    bass, so that these paths turn their phase together with the\n"
    "    harmonic path's low-pass.\n";

template <typename Design>
std::string table(const char* decl, const char* what, Design design) {
  std::string s = std::string(decl) + " = {  // " + what + "\n";
  for (int r = 0; r < 3; ++r) s += "    " + row5(to_fixed(design(kRates[r])), kRateNames[r]);
  s += "    " + row5({0, 0, 0, 0, 0}, "192000 Hz: silent");
  return s + "};\n\n";
}

}  // namespace

std::string generate_virtual_bass() {
  const Generator& g = *find_generator("virtual_bass");
  std::string s = file_header(g, kDesign);
  s += "#include \"headphone/virtual_bass_system_tables.h\"\n\nnamespace kafx::vbs_tables {\n\n";
  s += table("const int32_t kSplitLowPass[kRates][5]", "Butterworth low-pass 250 Hz",
             [](double fs) { return low_pass(kSplit, fs); });
  s += table("const int32_t kSplitHighPass[kRates][5]", "Butterworth high-pass 250 Hz",
             [](double fs) { return high_pass(kSplit, fs); });
  s += table("const int32_t kHarmonicLowPass[kRates][5]", "low-pass 500 Hz, Q 1/sqrt 2",
             [](double fs) { return low_pass(kHarmonic, fs); });
  s += table("const int32_t kAllPass[kRates][5]", "all-pass 820 Hz, Q 0.5",
             [](double fs) { return all_pass(kAlign, fs, kAlignQ); });
  s += "}  // namespace kafx::vbs_tables\n";
  return s;
}

}  // namespace calgen
