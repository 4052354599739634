// Smart volume control: the three measuring low-passes (low, mid, high) of
// each rate class.
#include <cstdio>
#include <string>

#include "biquad_design.h"
#include "calgen.h"

namespace calgen {

namespace {

constexpr double kCutoffs[3] = {250, 1000, 6500};
constexpr const char* kNames[3] = {"low", "mid", "high"};
constexpr double kQ = 0.5;

// The rate each row is designed at. The 44100 Hz mid row is the 48000 Hz
// design, kept as the product has always had it (about 1.09 kHz instead of
// 1 kHz at 44.1 kHz).
double design_rate(int rate, int filter) {
  constexpr double kRates[3] = {44100, 48000, 96000};
  if (rate == 0 && filter == 1) return 48000;
  return kRates[rate];
}

constexpr const char* kDesign =
    "Smart volume control measuring filters, Q28 coefficients b0, b1, b2, a1, a2\n"
    "(feedback pair negated), indexed [rate][filter]: rate 0 = 44100 Hz,\n"
    "1 = 48000 Hz (also used for 192000 Hz), 2 = 96000 Hz; filter 0 = low,\n"
    "1 = mid, 2 = high. The filters split the signal into four bands whose\n"
    "energies are weighted (low-pass, then low-pass of the remainder, ...).\n"
    "\n"
    "Design (tools/calgen/biquad_design.h): second-order low-passes at 250,\n"
    "1000 and 6500 Hz with Q 0.5 (two coincident real poles: no overshoot in\n"
    "the measurement), pre-warped bilinear transform, each value\n"
    "(int)(x * (2^28 - 1)) truncated toward zero. The 44100 Hz mid row is the\n"
    "48000 Hz design, as the product has always had it.\n";

}  // namespace

std::string generate_smart_volume_control() {
  const Generator& g = *find_generator("smart_volume_control");
  std::string s = file_header(g, kDesign);
  s += "#include \"headphone/smart_volume_control_tables.h\"\n\nnamespace kafx {\n\n";
  s += "const int32_t kSmartVolumeFilters[kSmartVolumeRates][3][5] = {\n";
  constexpr const char* kRateNames[3] = {"44100 Hz", "48000 Hz (and 192000 Hz)", "96000 Hz"};
  for (int r = 0; r < 3; ++r) {
    s += std::string("    {  // ") + kRateNames[r] + "\n";
    for (int f = 0; f < 3; ++f) {
      char c[96];
      std::snprintf(c, sizeof c, "%s: low-pass %g Hz, Q %g (at %g Hz)", kNames[f], kCutoffs[f], kQ,
                    design_rate(r, f));
      s += "        " + row5(to_fixed(low_pass(kCutoffs[f], design_rate(r, f), kQ)), c);
    }
    s += "    },\n";
  }
  s += "};\n\n}  // namespace kafx\n";
  return s;
}

}  // namespace calgen
