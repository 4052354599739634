// Graphic equalizer tables: for each of 44100, 48000 and 96000 Hz, ten bands
// by 31 gain steps (-15 .. +15 dB, 1 dB per step) of one biquad section.
#include <cstdio>
#include <string>

#include "biquad_design.h"
#include "calgen.h"

namespace calgen {

namespace {

constexpr double kRates[3] = {44100, 48000, 96000};
constexpr double kLowShelfHz = 31.25;
constexpr double kHighShelfHz = 16000;
constexpr double kPeakQ = 2;

// Peak centres of bands 1..8: octaves from 62.5 Hz.
double peak_centre(int band) { return 62.5 * (1 << (band - 1)); }

Biquad design(int band, double fs, int step) {
  if (band == 0) return low_shelf(kLowShelfHz, fs, step);
  if (band == 9) return high_shelf(kHighShelfHz, fs, step);
  return peaking(peak_centre(band), fs, step, kPeakQ);
}

std::string band_title(int band) {
  char buf[96];
  if (band == 0) {
    std::snprintf(buf, sizeof buf, "band 0: low shelf %g Hz, Q 1/sqrt 2", kLowShelfHz);
  } else if (band == 9) {
    std::snprintf(buf, sizeof buf, "band 9: high shelf %g Hz, Q 1/sqrt 2", kHighShelfHz);
  } else {
    std::snprintf(buf, sizeof buf, "band %d: peak %g Hz, Q %g", band, peak_centre(band), kPeakQ);
  }
  return buf;
}

constexpr const char* kDesign =
    "Graphic equalizer gain-step tables, Q28 coefficients b0, b1, b2, a1, a2\n"
    "(feedback pair negated), indexed [rate][band][step + 15]:\n"
    "  rate 0 = 44100 Hz, 1 = 48000 Hz, 2 = 96000 Hz; step -15 .. +15 is that many dB.\n"
    "\n"
    "Design (tools/calgen/biquad_design.h): pre-warped bilinear transform of the\n"
    "classic shelving and peaking family, V0 = 10^(|step| / 20); a cut is the\n"
    "exact inverse of the boost of the same size. Each value is\n"
    "(int)(x * (2^28 - 1)), truncated toward zero, so step 0 (flat) stores\n"
    "b0 = 268435455 and a feedback pair equal to the negated numerator pair.\n"
    "  band 0    low shelf at 31.25 Hz, Q 1/sqrt 2: reaches half its dB gain\n"
    "            near 48 Hz and the full gain towards DC;\n"
    "  bands 1-8 peaks at 62.5 Hz * 2^(band - 1) (62.5 Hz .. 8 kHz, octaves), Q 2\n"
    "            for every step (the bandwidth does not follow the gain);\n"
    "  band 9    high shelf at 16 kHz, Q 1/sqrt 2: the full gain towards half\n"
    "            the sample rate, about 12.1 dB of 15 dB at 16 kHz.\n";

}  // namespace

std::string generate_equalizer() {
  const Generator& g = *find_generator("equalizer");
  std::string s = file_header(g, kDesign);
  s += "#include \"common/equalizer_tables.h\"\n\nnamespace kafx {\n\n";
  s += "const int32_t kEqualizerTables[kEqualizerRates][EQUALIZER_BANDS][kEqualizerSteps][5] = {\n";
  for (int r = 0; r < 3; ++r) {
    char rate[32];
    std::snprintf(rate, sizeof rate, "    {  // %g Hz\n", kRates[r]);
    s += rate;
    for (int band = 0; band < 10; ++band) {
      s += "        {  // " + band_title(band) + "\n";
      for (int step = -15; step <= 15; ++step) {
        char db[16];
        std::snprintf(db, sizeof db, "%+d dB", step);
        s += "            " + row5(to_fixed(design(band, kRates[r], step)), db);
      }
      s += "        },\n";
    }
    s += "    },\n";
  }
  s += "};\n\n}  // namespace kafx\n";
  return s;
}

}  // namespace calgen
