// Engineering units of the speaker configuration: equalizer band records
// (Q28 cookbook sections) to and from type / frequency / Q / gain, Q13 gains
// to and from dB, limiter levels to and from dBFS. Shared by
// `kafx speaker-design`, `kafx speaker-config`, `kafx plot` and the EQ import.
// Doubles are fine here: this runs offline.
#ifndef KAFX_TOOLS_SPEAKER_UNITS_H
#define KAFX_TOOLS_SPEAKER_UNITS_H

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace kafx_tool {

// A band of the parametric equalizer. type: peak, lowshelf, highshelf,
// highpass, lowpass, notch, or raw (coefficients given directly in `raw`).
struct EqBand {
  std::string type;
  double freq = 0, q = 0, gain_db = 0;
  std::array<int32_t, 6> raw{};
};

// Band record: enable, b0, b1, b2, a1, a2 (Q28, feedback pair negated as the
// biquad adds it: y = b0 x + b1 x1 + b2 x2 + a1 y1 + a2 y2).
using BandRecord = std::array<int32_t, 6>;
inline constexpr BandRecord kPassThroughOff = {0, 268435456, 0, 0, 0, 0};

bool band_needs_gain(const std::string& type);

// The cookbook section of `b` at `rate`; throws std::range_error when a
// coefficient does not fit in 32 bits.
BandRecord design_band(const EqBand& b, double rate);

// The readable band whose design reproduces `r` exactly (values printed with
// the fewest digits that still do); false when no cookbook type does.
bool recover_band(const BandRecord& r, double rate, EqBand* out);

// "peak 800 Hz Q 1.4 -1.5 dB", "highpass 100 Hz Q 0.707", "raw ...".
std::string band_text(const EqBand& b);

// Magnitude in dB of a stored band record at `freq` (as the fixed-point
// section behaves up to coefficient rounding; a switched-off band is 0 dB).
double band_db(const BandRecord& r, double freq, double rate);

// Q13 gain <-> dB (throws std::range_error when out of 32 bits).
int32_t db_to_q13(double db);
double q13_to_db(int32_t g);
// Limiter threshold: 16-bit peak units, 0 dBFS = 32767, at least 1.
int32_t dbfs_to_peak16(double dbfs);
double peak16_to_dbfs(int32_t t);
// Expander level: 24-bit mean units, 0 dBFS = 8388607, at least 2.
int32_t dbfs_to_mean24(double dbfs);
double mean24_to_dbfs(int32_t t);
// A whole string read as a finite number (no trailing characters).
bool parse_number(const std::string& s, double* out);

// Envelope time constant of a limiter shift, in ms, for 5 ms blocks
// (the envelope moves 2^-shift of the way per block; shift 0 follows at once).
double shift_to_ms(int32_t shift);

// Shortest "%.*g" text of x (3..17 digits, no exponent unless 17 digits
// need one) for which same(parsed) holds; "%.17g" when none does.
template <class Same>
std::string shortest(double x, Same same);

// "%.*g" with `digits` significant digits.
std::string g_text(double x, int digits);

template <class Same>
std::string shortest(double x, Same same) {
  for (int digits = 3; digits <= 17; ++digits) {
    const std::string s = g_text(x, digits);
    if (s.find('e') == std::string::npos && same(std::stod(s))) return s;
  }
  return g_text(x, 17);
}

}  // namespace kafx_tool

#endif
