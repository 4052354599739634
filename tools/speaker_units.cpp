// Engineering units of the speaker configuration (see speaker_units.h).
//
// Recovering a band: the stored record is normalised by a0, so with
// n1 = -a1, n2 = -a2 (the denominator 1 + n1 z^-1 + n2 z^-2):
//  - low/high-pass and peak share 1 + n2 = 2 / (1 + alpha'), where alpha' is
//    alpha (low/high-pass) or alpha / A (peak); then cos w0 = -n1 (1 + alpha') / 2;
//    a peak's b0 = (1 + alpha A) / (1 + alpha / A) gives A;
//  - shelves: the gain at DC (low shelf) or at rate/2 (high shelf) is A^2;
//    with S = (A + 1) -+ (A - 1) cos w0 the denominator is S + 2 sqrt(A) alpha,
//    -+2 ((A - 1) +- (A + 1) cos w0), S - 2 sqrt(A) alpha, which is linear in
//    cos w0 once A is known.
// The candidate parameters are rounded to the fewest digits that design the
// very same integers again, so a generated file reads back as it was written.
#include "speaker_units.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace kafx_tool {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kQ28 = 268435456.0;

int32_t to_int32(double x, const char* what) {
  const double r = std::nearbyint(x);
  if (!(r >= -2147483648.0 && r <= 2147483647.0)) throw std::range_error(std::string(what) + " is out of range");
  return static_cast<int32_t>(r);
}

bool same_design(const EqBand& b, double rate, const BandRecord& want) {
  try {
    return design_band(b, rate) == want;
  } catch (const std::range_error&) {
    return false;
  }
}

// Tries the candidate at increasing precision (all three values alike).
bool settle(EqBand c, double rate, const BandRecord& want, EqBand* out) {
  if (!(std::isfinite(c.freq) && std::isfinite(c.q) && std::isfinite(c.gain_db)) || c.freq <= 0 || c.q <= 0)
    return false;
  for (int digits = 3; digits <= 17; ++digits) {
    EqBand t = c;
    t.freq = std::stod(g_text(c.freq, digits));
    t.q = std::stod(g_text(c.q, digits));
    t.gain_db = band_needs_gain(c.type) ? std::stod(g_text(c.gain_db, digits)) : 0;
    if (same_design(t, rate, want)) {
      *out = t;
      return true;
    }
  }
  return false;
}

}  // namespace

bool parse_number(const std::string& s, double* out) {
  if (s.empty()) return false;
  errno = 0;
  char* end = nullptr;
  const double v = std::strtod(s.c_str(), &end);
  if (errno != 0 || *end != '\0' || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

std::string g_text(double x, int digits) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.*g", digits, x);
  return buf;
}

bool band_needs_gain(const std::string& type) {
  return type == "peak" || type == "lowshelf" || type == "highshelf";
}

BandRecord design_band(const EqBand& b, double rate) {
  if (b.type == "raw") return b.raw;
  const double w0 = 2.0 * kPi * b.freq / rate;
  const double cw = std::cos(w0), sw = std::sin(w0);
  const double alpha = sw / (2.0 * b.q);
  const double A = std::pow(10.0, b.gain_db / 40.0);
  const double sa = 2.0 * std::sqrt(A) * alpha;
  double b0, b1, b2, a0, a1, a2;
  if (b.type == "peak") {
    b0 = 1 + alpha * A, b1 = -2 * cw, b2 = 1 - alpha * A;
    a0 = 1 + alpha / A, a1 = -2 * cw, a2 = 1 - alpha / A;
  } else if (b.type == "lowpass") {
    b0 = (1 - cw) / 2, b1 = 1 - cw, b2 = (1 - cw) / 2;
    a0 = 1 + alpha, a1 = -2 * cw, a2 = 1 - alpha;
  } else if (b.type == "highpass") {
    b0 = (1 + cw) / 2, b1 = -(1 + cw), b2 = (1 + cw) / 2;
    a0 = 1 + alpha, a1 = -2 * cw, a2 = 1 - alpha;
  } else if (b.type == "notch") {
    b0 = 1, b1 = -2 * cw, b2 = 1;
    a0 = 1 + alpha, a1 = -2 * cw, a2 = 1 - alpha;
  } else if (b.type == "lowshelf") {
    b0 = A * ((A + 1) - (A - 1) * cw + sa);
    b1 = 2 * A * ((A - 1) - (A + 1) * cw);
    b2 = A * ((A + 1) - (A - 1) * cw - sa);
    a0 = (A + 1) + (A - 1) * cw + sa;
    a1 = -2 * ((A - 1) + (A + 1) * cw);
    a2 = (A + 1) + (A - 1) * cw - sa;
  } else if (b.type == "highshelf") {
    b0 = A * ((A + 1) + (A - 1) * cw + sa);
    b1 = -2 * A * ((A - 1) + (A + 1) * cw);
    b2 = A * ((A + 1) + (A - 1) * cw - sa);
    a0 = (A + 1) - (A - 1) * cw + sa;
    a1 = 2 * ((A - 1) - (A + 1) * cw);
    a2 = (A + 1) - (A - 1) * cw - sa;
  } else {
    throw std::range_error("unknown band type '" + b.type + "'");
  }
  return {1,
          to_int32(b0 / a0 * kQ28, "band coefficient b0"),
          to_int32(b1 / a0 * kQ28, "band coefficient b1"),
          to_int32(b2 / a0 * kQ28, "band coefficient b2"),
          to_int32(-a1 / a0 * kQ28, "band coefficient a1"),
          to_int32(-a2 / a0 * kQ28, "band coefficient a2")};
}

bool recover_band(const BandRecord& r, double rate, EqBand* out) {
  if (r[0] != 1) return false;
  const double b0 = r[1] / kQ28, b1 = r[2] / kQ28, b2 = r[3] / kQ28;
  const double n1 = -r[4] / kQ28, n2 = -r[5] / kQ28;
  auto freq_of = [&](double cw) { return std::acos(std::max(-1.0, std::min(1.0, cw))) * rate / (2 * kPi); };
  // Low-pass, high-pass and notch: alpha from n2.
  {
    const double alpha = (1 - n2) / (1 + n2);
    const double cw = -n1 * (1 + alpha) / 2;
    const double sw = std::sqrt(std::max(0.0, 1 - cw * cw));
    for (const char* type : {"lowpass", "highpass", "notch"}) {
      EqBand c{type, freq_of(cw), sw / (2 * alpha), 0, {}};
      if (settle(c, rate, r, out)) return true;
    }
  }
  // Peak: alpha / A from n2, then A from b0.
  {
    const double beta = (1 - n2) / (1 + n2);
    const double cw = -n1 * (1 + beta) / 2;
    const double sw = std::sqrt(std::max(0.0, 1 - cw * cw));
    const double alpha_a = b0 * (1 + beta) - 1;
    const double A = std::sqrt(alpha_a / beta);
    EqBand c{"peak", freq_of(cw), sw / (2 * beta * A), 40 * std::log10(A), {}};
    if (settle(c, rate, r, out)) return true;
  }
  // Shelves: A^2 is the gain at DC (low) or at rate/2 (high).
  const double rr = (1 - n2) / (1 + n2);
  for (int high = 0; high < 2; ++high) {
    const double edge = high ? (b0 - b1 + b2) / (1 - n1 + n2) : (b0 + b1 + b2) / (1 + n1 + n2);
    if (!(edge > 0)) continue;
    const double A = std::sqrt(edge);
    const double k = (high ? n1 : -n1) * (1 + rr) / 2;
    const double cw = high ? ((A - 1) - k * (A + 1)) / ((A + 1) - k * (A - 1))
                           : ((A - 1) - k * (A + 1)) / (k * (A - 1) - (A + 1));
    const double S = high ? (A + 1) - (A - 1) * cw : (A + 1) + (A - 1) * cw;
    const double alpha = rr * S / (2 * std::sqrt(A));
    const double sw = std::sqrt(std::max(0.0, 1 - cw * cw));
    EqBand c{high ? "highshelf" : "lowshelf", freq_of(cw), sw / (2 * alpha), 40 * std::log10(A), {}};
    if (settle(c, rate, r, out)) return true;
  }
  return false;
}

std::string band_text(const EqBand& b) {
  if (b.type == "raw") {
    std::string s = "raw";
    char buf[16];
    for (int32_t v : b.raw) {
      std::snprintf(buf, sizeof buf, " %x", static_cast<unsigned>(v));
      s += buf;
    }
    return s;
  }
  std::string s = b.type + " " + g_text(b.freq, 6) + " Hz Q " + g_text(b.q, 6);
  if (band_needs_gain(b.type)) {
    char buf[32];
    std::snprintf(buf, sizeof buf, " %+g dB", b.gain_db);
    s += buf;
  }
  return s;
}

double band_db(const BandRecord& r, double freq, double rate) {
  if (r[0] == 0) return 0;
  const double w = 2 * kPi * freq / rate;
  // H(e^jw) = (b0 + b1 z^-1 + b2 z^-2) / (1 - a1 z^-1 - a2 z^-2) with stored a1, a2.
  const double c1 = std::cos(w), s1 = std::sin(w), c2 = std::cos(2 * w), s2 = std::sin(2 * w);
  const double nr = r[1] + r[2] * c1 + r[3] * c2, ni = -(r[2] * s1 + r[3] * s2);
  const double dr = kQ28 - r[4] * c1 - r[5] * c2, di = r[4] * s1 + r[5] * s2;
  const double mag2 = (nr * nr + ni * ni) / (dr * dr + di * di);
  return 10 * std::log10(std::max(mag2, 1e-30));
}

int32_t db_to_q13(double db) { return to_int32(8192.0 * std::pow(10.0, db / 20.0), "gain"); }
double q13_to_db(int32_t g) { return 20 * std::log10(g / 8192.0); }
int32_t dbfs_to_peak16(double dbfs) {
  return std::max<int32_t>(1, to_int32(32767.0 * std::pow(10.0, dbfs / 20.0), "threshold"));
}
double peak16_to_dbfs(int32_t t) { return 20 * std::log10(t / 32767.0); }
int32_t dbfs_to_mean24(double dbfs) {
  return std::max<int32_t>(2, to_int32(8388607.0 * std::pow(10.0, dbfs / 20.0), "denoise level"));
}
double mean24_to_dbfs(int32_t t) { return 20 * std::log10(t / 8388607.0); }
double shift_to_ms(int32_t shift) {
  if (shift <= 0) return 0;
  if (shift >= 31) return INFINITY;
  return -5.0 / std::log1p(-std::ldexp(1.0, -shift));
}

}  // namespace kafx_tool
