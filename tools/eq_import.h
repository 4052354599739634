// Import of the parametric equalizer text that tuning people exchange
// (the EqualizerAPO / AutoEq "ParametricEQ.txt" form):
//
//   Preamp: -6 dB
//   Filter 1: ON PK Fc 100 Hz Gain 3 dB Q 1.41
//   Filter 2: ON LSC Fc 105 Hz Gain 5.5 dB Q 0.71
//   Filter 3: OFF HP Fc 20 Hz Q 0.7
//   Channel: L        (later filters: L, R, or ALL/L R for both sides)
//
// Types: PK (peak), LSC/LS (low shelf), HSC/HS (high shelf), LP/LPQ
// (low-pass), HP/HPQ (high-pass), NO (notch). Fc and Q are needed by PK and
// NO; the others default to Q 0.7071 (Butterworth / the cookbook's steepest
// shelf without overshoot). Gain (dB) is needed by PK and the shelves and
// refused by the others. "OFF" filters are skipped. '#' starts a comment.
// Used by `kafx speaker-design` and `kafx headphone --eq-import`.
#ifndef KAFX_TOOLS_EQ_IMPORT_H
#define KAFX_TOOLS_EQ_IMPORT_H

#include <istream>
#include <string>
#include <vector>

#include "speaker_units.h"

namespace kafx_tool {

struct EqImport {
  bool has_preamp = false;
  double preamp_db = 0;
  std::vector<EqBand> bands[2];  // left, right, in file order
};

// Reads the text; `rate` bounds Fc (below rate / 2) and `max_bands` the
// filters per side. Returns false with "line N: ..." in *error.
bool import_eq_text(std::istream& in, double rate, int max_bands, EqImport* out, std::string* error);

// True when the text's first statement is "Preamp:", "Filter...:" or
// "Channel:" (the import form rather than a speaker design).
bool looks_like_eq_text(const std::string& text);

}  // namespace kafx_tool

#endif
