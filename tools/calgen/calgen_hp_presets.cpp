// Headphone chain: the built-in parametric equalizer preset (effect preset
// 3), the seven headphone-adapter corrections and the virtual bass preset
// (effect preset 2), per rate class.
#include <cstdio>
#include <string>
#include <vector>

#include "biquad_design.h"
#include "calgen.h"

namespace calgen {

namespace {

enum class Kind { kPeak, kLowShelf, kHighShelf };

struct Band {
  Kind kind;
  double freq;     // Hz: centre (peak) or corner (shelf)
  double gain_db;  // boost > 0, cut < 0 (a cut is the inverse of the boost)
  double q;        // peak: bandwidth f / q of the boost; shelf: slope
  const char* why; // what the band does
};

struct Record {
  const char* name;
  const char* intent;
  std::vector<Band> bands;  // up to ten; the rest are pass-through
};

constexpr double kShelfQ = kButterworthQ;
constexpr int kBands = 10;
constexpr int kAdapters = 7;

// Effect preset 3: a balanced music voicing. Both channels get the same
// bands. The first band is the product's 150 Hz trim.
const Record kParametricPreset = {
    "effect preset 3 (parametric equalizer)",
    "A gentle, balanced voicing for music on typical closed headphones: less mid-bass boom, a\n"
    "little more sub-bass weight, a clearer vocal range and a smoother, airier top.",
    {
        {Kind::kPeak, 150, -2.0, 2.0, "mid-bass trim: less boom, less masking of the low mids"},
        {Kind::kLowShelf, 60, 3.0, kShelfQ, "sub-bass weight below the trim"},
        {Kind::kPeak, 400, -1.5, 1.2, "boxiness of the lower mids"},
        {Kind::kPeak, 1000, 1.0, 0.9, "body of voices"},
        {Kind::kPeak, 2500, 1.5, 1.5, "presence and intelligibility"},
        {Kind::kPeak, 4500, -1.5, 3.0, "harshness of cymbals and strings"},
        {Kind::kPeak, 6500, -2.0, 4.0, "sibilance"},
        {Kind::kPeak, 9000, 1.0, 2.0, "detail"},
        {Kind::kHighShelf, 12000, 2.0, kShelfQ, "air"},
        {Kind::kPeak, 16000, -1.0, 1.0, "keeps the air shelf from hissing"},
    }};

// Headphone adapters 1..7: corrections of the typical response of each kind
// of headphone towards a neutral, diffuse-field-like target.
const Record kAdapterRecords[kAdapters] = {
    {"adapter 1: closed-back over-ear",
     "The sealed cup adds a broad bass bump around 100 Hz and a cup resonance near 1.5 kHz;\n"
     "the ear's own 3 kHz gain is partly lost and the pads leave a peak near 8 kHz.",
     {
         {Kind::kPeak, 100, -4.0, 0.9, "sealed-cup bass bump"},
         {Kind::kPeak, 1500, -1.0, 2.0, "cup resonance"},
         {Kind::kPeak, 3000, 2.0, 1.5, "restores the ear-canal gain"},
         {Kind::kPeak, 8000, -2.5, 4.0, "pad-cavity peak"},
     }},
    {"adapter 2: open-back over-ear",
     "Open backs lose the deep bass (nothing holds the pressure) and tend to a bright\n"
     "5 kHz region and a narrow 10 kHz driver peak.",
     {
         {Kind::kLowShelf, 60, 5.0, kShelfQ, "restores the open-back bass roll-off"},
         {Kind::kPeak, 5000, -1.5, 2.0, "brightness"},
         {Kind::kPeak, 10000, -2.0, 3.0, "driver break-up peak"},
     }},
    {"adapter 3: on-ear",
     "On-ear pads seal poorly, so bass below about 120 Hz leaks away; the pads' compression\n"
     "gives a nasal 2 kHz honk and a 7 kHz edge.",
     {
         {Kind::kLowShelf, 120, 3.0, kShelfQ, "bass lost through the leaky seal"},
         {Kind::kPeak, 2000, -2.0, 2.0, "pad honk"},
         {Kind::kPeak, 7000, -2.0, 3.0, "treble edge"},
     }},
    {"adapter 4: sealed in-ear",
     "A sealed in-ear closes the ear canal: its 3 kHz resonance stands out and a\n"
     "quarter-wave peak of the closed canal appears near 8 kHz; the seal also over-fills\n"
     "the lowest bass.",
     {
         {Kind::kLowShelf, 80, -2.0, kShelfQ, "excess sub-bass of the tight seal"},
         {Kind::kPeak, 3000, -3.0, 2.5, "in-ear 3 kHz resonance"},
         {Kind::kPeak, 8000, -3.0, 5.0, "closed-canal quarter-wave peak"},
     }},
    {"adapter 5: open earbud",
     "An unsealed earbud loses most of the bass through the gap and rolls off the top; its\n"
     "small driver peaks near 4 kHz.",
     {
         {Kind::kLowShelf, 150, 6.0, kShelfQ, "bass lost through the open fit"},
         {Kind::kPeak, 60, 2.0, 1.0, "extra sub-bass lift"},
         {Kind::kPeak, 4000, -2.0, 2.0, "driver peak"},
         {Kind::kHighShelf, 10000, 2.0, kShelfQ, "treble roll-off"},
     }},
    {"adapter 6: noise-cancelling over-ear",
     "Active noise cancelling leaves a bass hump near 50 Hz and a dip around 1 kHz where\n"
     "the feedback loop hands over; the top is slightly dull.",
     {
         {Kind::kPeak, 50, -3.0, 1.2, "noise-cancelling bass hump"},
         {Kind::kPeak, 1000, 1.5, 1.2, "hand-over dip"},
         {Kind::kHighShelf, 10000, 1.5, kShelfQ, "dull top"},
     }},
    {"adapter 7: bone-conduction headset",
     "Bone conduction passes little below 250 Hz, has a strong transducer resonance\n"
     "near 1.5 kHz and falls off above 6 kHz.",
     {
         {Kind::kLowShelf, 250, 6.0, kShelfQ, "bass hardly conducted through bone"},
         {Kind::kPeak, 1500, -3.0, 3.0, "transducer resonance"},
         {Kind::kHighShelf, 6000, 3.0, kShelfQ, "treble fall-off"},
     }},
};

// Effect preset 2, the virtual bass: the harmonic filter after the
// non-linear device is a 500 Hz low-pass with Q 0.707 scaled by 2^28,
// designed at 44100 Hz for rate class 0 and at 48000 Hz for the other three.
constexpr double kVbsHarmonicCutoff = 500;
constexpr double kVbsHarmonicQ = 0.707;
constexpr int kVbsClipLevel = 8192;
constexpr int kVbsHarmonicGain = 4096;
constexpr int kVbsBassGain = 6144;
constexpr int kVbsHighGain = 8192;

constexpr double kRates[2] = {44100, 48000};
constexpr const char* kRateNames[4] = {"44100 Hz", "48000 Hz", "96000 Hz", "192000 Hz"};

const char* kind_name(Kind k) {
  return k == Kind::kPeak ? "peak" : k == Kind::kLowShelf ? "low shelf" : "high shelf";
}

Biquad design(const Band& b, double fs) {
  switch (b.kind) {
    case Kind::kPeak: return peaking(b.freq, fs, b.gain_db, b.q);
    case Kind::kLowShelf: return low_shelf(b.freq, fs, b.gain_db, b.q);
    default: return high_shelf(b.freq, fs, b.gain_db, b.q);
  }
}

std::string describe(const Band& b) {
  char s[200];
  std::snprintf(s, sizeof s, "%s %g Hz %+.1f dB Q %.3g: %s", kind_name(b.kind), b.freq, b.gain_db, b.q, b.why);
  return s;
}

// One band record "{enable, b0, b1, b2, a1, a2},  // comment".
std::string band_row(int enable, const std::array<int32_t, 5>& c, const std::string& comment) {
  char buf[160];
  std::snprintf(buf, sizeof buf, "{%d, %d, %d, %d, %d, %d},", enable, c[0], c[1], c[2], c[3], c[4]);
  std::string s = buf;
  if (s.size() < 66) s.append(66 - s.size(), ' ');
  return s + "  // " + comment + "\n";
}

// A stereo record (both sides the same) designed at fs.
std::string record_text(const Record& r, double fs, const char* indent) {
  std::string cascade;
  for (int k = 0; k < kBands; ++k) {
    cascade += std::string(indent) + "    ";
    if (k < static_cast<int>(r.bands.size())) {
      const Band& b = r.bands[k];
      cascade += band_row(b.kind == Kind::kPeak ? 3 : 4, to_fixed(design(b, fs), kQ28), describe(b));
    } else {
      cascade += band_row(3, {268435456, 0, 0, 0, 0}, "unused: pass-through");
    }
  }
  std::string s = std::string(indent) + "{1, 8192, 8192,  // " + r.name + ", " + kRateNames[fs == 44100 ? 0 : 1] + "\n";
  s += std::string(indent) + "  {\n" + cascade + indent + "  },\n";
  s += std::string(indent) + "  {\n" + cascade + indent + "  }},\n";
  return s;
}

// Each line of `text` indented by two spaces, newline-terminated.
std::string indented(const std::string& text) {
  std::string out = "  ";
  for (char c : text) out += c == '\n' ? std::string("\n  ") : std::string(1, c);
  return out + "\n";
}

std::string design_notes() {
  std::string d =
      "Built-in calibration records of the headphone chain.\n"
      "\n"
      "Parametric records (param_eq_param_acdb_t): status, gain left, gain right (Q13), then ten\n"
      "left and ten right band records of six ints: enable, b0, b1, b2, a1, a2 (Q28, feedback\n"
      "pair negated: the sign that is added). The enable word names the kind of band for the\n"
      "tuning tools, 3 for a bell and 4 for a shelf; the equalizer only tests it against 0.\n"
      "Unused bands are the exact pass-through section (2^28, 0, 0, 0, 0). Both channels get\n"
      "the same bands.\n"
      "\n"
      "Design (tools/calgen/biquad_design.h): pre-warped bilinear transform, K = tan(pi f / fs);\n"
      "the classic peaking and shelving family with V0 = 10^(|G|/20), a cut being the inverse of\n"
      "the boost of the same size; shelves of slope Q 1/sqrt(2). Every parametric value is\n"
      "(int)(x * 2^28), truncated toward zero (scale 2^28, not 2^28 - 1, so that the first\n"
      "band reproduces the product's 150 Hz trim). The 44100 Hz records are designed at\n"
      "44100 Hz; the 48000 Hz records at 48000 Hz.\n"
      "\n";
  d += std::string("kHpParametricPreset, ") + kParametricPreset.name + ": [0] 44100 Hz, [1] every other rate.\n";
  d += std::string(kParametricPreset.intent) + "\nThe chain uses both gains as 8192 and ignores the head values.\n\n";
  d += "kHpAdapterTable[rate class][hpadapter_type - 1]: both gains 8192 at 44100 and 48000 Hz; the\n"
       "96000 and 192000 Hz records are all zero (every band off and both gains 0), which\n"
       "silences the output on purpose when an adapter is set at those rates.\n";
  for (const Record& r : kAdapterRecords) d += std::string("- ") + r.name + ":\n" + indented(r.intent);
  d += "\n"
       "kHpVirtualBassPreset[rate class] (virtual_bass_param_acdb_t; status not used): clip level\n"
       "8192, harmonic gain 4096, bass gain 6144, high gain 8192 (Q13: harmonics at one half, the\n"
       "dry bass at three quarters, the high bands untouched), and the harmonic filter: a\n"
       "second-order low-pass at 500 Hz, Q 0.707, (int)(x * 2^28) truncated, designed at\n"
       "44100 Hz for rate class 0 and at 48000 Hz for rate classes 1, 2 and 3.\n";
  return d;
}

}  // namespace

std::string generate_hp_presets() {
  const Generator& g = *find_generator("hp_presets");
  std::string s = file_header(g, design_notes());
  s += "#include \"headphone/hp_effect_tables.h\"\n\nnamespace kafx {\n\n";

  s += "const param_eq_param_acdb_t kHpParametricPreset[2] = {\n";
  for (double fs : kRates) s += record_text(kParametricPreset, fs, "    ");
  s += "};\n\n";

  s += "const param_eq_param_acdb_t kHpAdapterTable[4][KEDO_HP_EFFECT_ADAPTERS] = {\n";
  for (int rate = 0; rate < 4; ++rate) {
    s += std::string("    {  // ") + kRateNames[rate] + "\n";
    for (const Record& r : kAdapterRecords) {
      if (rate < 2) s += record_text(r, kRates[rate], "        ");
      else s += std::string("        {},  // ") + r.name + ": all zero\n";
    }
    s += "    },\n";
  }
  s += "};\n\n";

  s += "const virtual_bass_param_acdb_t kHpVirtualBassPreset[4] = {\n";
  for (int rate = 0; rate < 4; ++rate) {
    const double fs = rate == 0 ? 44100 : 48000;
    const auto c = to_fixed(low_pass(kVbsHarmonicCutoff, fs, kVbsHarmonicQ), kQ28);
    char buf[200];
    std::snprintf(buf, sizeof buf, "    {1, %d, %d, %d, %d, {%d, %d, %d, %d, %d}},", kVbsClipLevel, kVbsHarmonicGain,
                  kVbsBassGain, kVbsHighGain, c[0], c[1], c[2], c[3], c[4]);
    std::string row = buf;
    if (row.size() < 80) row.append(80 - row.size(), ' ');
    s += row + "  // " + kRateNames[rate] + ": low-pass designed at " + (rate == 0 ? "44100" : "48000") + " Hz\n";
  }
  s += "};\n\n}  // namespace kafx\n";
  return s;
}

}  // namespace calgen
