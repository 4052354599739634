// Stereo widening system: the biquad rows of the difference circuit, the
// crossfeed network and the early reflector's pre-filter, per rate class.
#include <cstdio>
#include <functional>
#include <string>

#include "biquad_design.h"
#include "calgen.h"

namespace calgen {

namespace {

constexpr double kRates[3] = {44100, 48000, 96000};

// Phase network: three second-order all-passes, the same on both channels.
constexpr double kPhaseFreq[3] = {300, 1000, 3000};
constexpr double kPhaseQ = kButterworthQ;

// Mid presence band: 0 dB peak at 2861.5 Hz, -3 dB bandwidth 4277 Hz.
constexpr double kMidCentre = 2861.5;
constexpr double kMidBandwidth = 4277;

// Spare band-pass (loaded, never run): 0 dB at 5 kHz, Q 1/sqrt 2.
constexpr double kSpareCentre = 5000;

constexpr const char* kDesign =
    "Stereo widening system biquad rows: Q28 coefficients b0, b1, b2, a1, a2\n"
    "(feedback pair negated), one row per rate class: 44100, 48000, 96000 Hz,\n"
    "then 192000 Hz, whose rows are all zero on purpose (every section then\n"
    "outputs silence, so the whole system is silent at that rate).\n"
    "\n"
    "Design (tools/calgen/biquad_design.h): pre-warped bilinear transform,\n"
    "each value (int)(x * (2^28 - 1)) truncated toward zero.\n"
    "\n"
    "Difference circuit\n"
    "  Phase networks (sections 0-2 left, 3-5 right, identical): second-order\n"
    "    all-passes at 300 Hz, 1 kHz and 3 kHz, Q 1/sqrt 2, in series. A phase\n"
    "    rotator: flat magnitude, but it spreads the energy of pulse-like\n"
    "    waveforms (voice, percussion) over a few milliseconds across the\n"
    "    presence range, lowering their peaks (a 100 Hz smoothed pulse train\n"
    "    loses about 7 dB of crest factor) before the side and mid shaping adds\n"
    "    up to two and a half times the side's low band and the mid bands on\n"
    "    top of the direct signal. Both channels get the same network, so the\n"
    "    interaural phase, and with it the mid/side decomposition, is kept.\n"
    "  Section 6, spare: band-pass, 0 dB at 5 kHz, Q 1/sqrt 2 (a presence band\n"
    "    for the side; loaded and rate-switched, never run).\n"
    "  Sections 7 and 10: Butterworth low-pass 200 Hz (side and mid low band).\n"
    "  Section 8: Butterworth high-pass 7 kHz (side high band).\n"
    "  Section 9: band-pass with a 0 dB peak at 2861.5 Hz, Q 2861.5/4277 (its\n"
    "    -3 dB points 4277 Hz apart): the mid presence band.\n"
    "Crossfeed network\n"
    "  Sections 0, 1: second-order all-pass 500 Hz, Q 2.5 (phase match of the\n"
    "    direct signal with the delayed, low-passed crossfeed).\n"
    "  Sections 2, 3: Butterworth low-pass 1500 Hz (the crossfeed after the\n"
    "    delay: the head's shadow of the far ear).\n"
    "  Sections 4, 5: Butterworth high-pass 1500 Hz (the direct high band).\n"
    "Early reflector\n"
    "  Pre-filter: Butterworth high-pass 300 Hz (keeps the bass out of the\n"
    "    reflections).\n";

using Design = std::function<Biquad(double fs)>;

// One per-rate table: the three designed rows and the zero 192000 Hz row.
std::string table(const char* decl, const std::string& what, const Design& design, const char* indent = "") {
  std::string s = std::string(indent) + decl + " = {  // " + what + "\n";
  constexpr const char* kRateNames[3] = {"44100 Hz", "48000 Hz", "96000 Hz"};
  for (int r = 0; r < 3; ++r) s += std::string(indent) + "    " + row5(to_fixed(design(kRates[r])), kRateNames[r]);
  s += std::string(indent) + "    " + row5({0, 0, 0, 0, 0}, "192000 Hz: silent");
  s += std::string(indent) + "}";
  return s;
}

std::string q_text(double q) {
  char c[32];
  std::snprintf(c, sizeof c, "Q %.4g", q);
  return c;
}

}  // namespace

std::string generate_stereo_widening() {
  const Generator& g = *find_generator("stereo_widening");
  std::string s = file_header(g, kDesign);
  s += "#include \"headphone/stereo_widening_system_tables.h\"\n\nnamespace kafx::sws_tables {\n\n";

  s += "const int32_t kPhaseNetwork[kPhaseSections][kRates][5] = {\n";
  for (int k = 0; k < 3; ++k) {
    char what[96];
    std::snprintf(what, sizeof what, "section %d (and %d): all-pass %g Hz, %s", k, k + 3, kPhaseFreq[k],
                  q_text(kPhaseQ).c_str());
    s += "    {  // " + std::string(what) + "\n";
    constexpr const char* kRateNames[3] = {"44100 Hz", "48000 Hz", "96000 Hz"};
    for (int r = 0; r < 3; ++r) {
      s += "        " + row5(to_fixed(all_pass(kPhaseFreq[k], kRates[r], kPhaseQ)), kRateNames[r]);
    }
    s += "        " + row5({0, 0, 0, 0, 0}, "192000 Hz: silent");
    s += "    },\n";
  }
  s += "};\n\n";

  const double mid_q = kMidCentre / kMidBandwidth;
  s += table("const int32_t kSpareBandPass[kRates][5]", "band-pass 5000 Hz, " + q_text(kButterworthQ),
             [](double fs) { return band_pass(kSpareCentre, fs, kButterworthQ); }) + ";\n\n";
  s += table("const int32_t kLowPass200[kRates][5]", "Butterworth low-pass 200 Hz",
             [](double fs) { return low_pass(200, fs); }) + ";\n\n";
  s += table("const int32_t kSideHighPass[kRates][5]", "Butterworth high-pass 7000 Hz",
             [](double fs) { return high_pass(7000, fs); }) + ";\n\n";
  s += table("const int32_t kMidBandPass[kRates][5]", "band-pass 2861.5 Hz, Q 2861.5/4277",
             [mid_q](double fs) { return band_pass(kMidCentre, fs, mid_q); }) + ";\n\n";
  s += table("const int32_t kCrossfeedAllPass[kRates][5]", "all-pass 500 Hz, Q 2.5",
             [](double fs) { return all_pass(500, fs, 2.5); }) + ";\n\n";
  s += table("const int32_t kCrossfeedLowPass[kRates][5]", "Butterworth low-pass 1500 Hz",
             [](double fs) { return low_pass(1500, fs); }) + ";\n\n";
  s += table("const int32_t kCrossfeedHighPass[kRates][5]", "Butterworth high-pass 1500 Hz",
             [](double fs) { return high_pass(1500, fs); }) + ";\n\n";
  s += table("const int32_t kReflectorPreFilter[kRates][5]", "Butterworth high-pass 300 Hz",
             [](double fs) { return high_pass(300, fs); }) + ";\n\n";
  s += "}  // namespace kafx::sws_tables\n";
  return s;
}

}  // namespace calgen
