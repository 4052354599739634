// Headphone chain: the built-in parametric equalizer preset (effect preset
// 3), the seven headphone-adapter corrections and the virtual bass preset
// (effect preset 2), per rate class.
//
// Every parametric record is a param_eq_param_acdb_t: status, gain left,
// gain right (Q13), then ten left and ten right band records of six ints:
// enable, b0, b1, b2, a1, a2 (Q28, feedback pair negated). The enable word
// tells the tuning tool the kind of the band and is 3 for a bell and 4 for a
// shelf; the equalizer only tests it against 0. Unused bands are the exact
// pass-through section (2^28, 0, 0, 0, 0).
//
// All parametric bands here are scaled by 2^28 (not 2^28 - 1), the scale of
// the preset's first band, so that a pass-through band is exactly 1.0.
#include <cstdio>
#include <string>
#include <vector>

#include "biquad_design.h"
#include "calgen.h"

namespace calgen {

namespace {

enum class Kind { kPeak, kLowShelf, kHighShelf, kFlat };

struct Band {
  Kind kind;
  double freq;     // Hz: centre (peak) or corner (shelf)
  double gain_db;  // boost > 0, cut < 0 (a cut is the inverse of the boost)
  double q;        // peak: bandwidth f / q of the boost; shelf: slope
  const char* why; // what the band does, for the tuning engineer
};

struct Record {
  const char* name;
  const char* intent;
  std::vector<Band> bands;  // up to ten, the rest is flat
};

constexpr double kShelfQ = kButterworthQ;

// ---------------------------------------------------------------------------
// Effect preset 3: "balanced" music voicing for typical closed headphones.
// Both channels get the same ten bands. The first band is the product's
// long-standing 150 Hz trim.
const Record kParametricPreset = {
    "parametric preset",
    "A gentle, balanced voicing for music on typical closed headphones: less mid-bass boom, a little more "
    "sub-bass weight, a clearer vocal range and a smoother, airier top.",
    {
        {Kind::kPeak, 150, -2.0, 2.0, "mid-bass trim: less boom and masking of the low mids"},
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

// ---------------------------------------------------------------------------
// Headphone adapters 1..7: corrections of typical responses of each kind of
// headphone towards a neutral (diffuse-field-like) target. Applied only with
// effect presets other than 3 and 5 (the parametric equalizer is theirs).
const Record kAdapters[KAFX_CALGEN_ADAPTERS_PLACEHOLDER] = {};

}  // namespace

}  // namespace calgen
