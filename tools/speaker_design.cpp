// `kafx speaker-design DESIGN [-o OUT.xml]`: writes the speaker configuration
// XML for a readable design.
//
// Design file: one statement per line, '#' starts a comment, words are
// separated by white space. Statements (all optional; what is not given keeps
// the value the blocks have after init):
//
//   version TEXT...                    written as the <version> text
//   rate HZ                            design rate of the equalizer (48000)
//   sbs on|off                         speaker boost system status
//   harmonic_gain DB [DB_RIGHT]        harmonic (NLD) band gain, Q13 from dB
//   channel_ration N                   balance cross-mix, Q13 integer
//   channel_num N                      2 stereo, 1 mono
//   limiter BAND SIDE ATTACK RELEASE THRESHOLD_DBFS VOLUME_DB DENOISE_DBFS
//       BAND low|mid|high|full, SIDE left|right|both; ATTACK and RELEASE are
//       the envelope shifts (0..31); the threshold is a peak in dB below full
//       scale (16-bit units, 0 dBFS = 32767); the volume is the make-up gain
//       (Q13); the expander acts below a mean level of DENOISE_DBFS
//       (24-bit units, 0 dBFS = 8388607, never below 2).
//   peq on|off                         parametric equalizer status
//   peq_gain DB [DB_RIGHT]             equalizer input gain, Q13 from dB
//   band SIDE TYPE FREQ_HZ Q [GAIN_DB]
//       TYPE peak|lowshelf|highshelf|highpass|lowpass; up to ten bands per
//       side, filled in order; the gain is needed by peak and the shelves.
//
// Bands are the second-order sections of R. Bristow-Johnson's audio-EQ
// cookbook, normalised by a0 and stored as the equalizer's band record:
// enable (1), then b0, b1, b2, a1, a2 in Q28 with the feedback coefficients
// negated, as the biquad adds them: y = b0 x + b1 x1 + b2 x2 + a1 y1 + a2 y2.
// Unused band slots are pass-through sections switched off
// (0, 1.0, 0, 0, 0, 0). Doubles are fine here: this runs offline.
#include "speaker_design.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kQ28 = 268435456.0;
constexpr int kBands = 10;

struct Limiter {
  int32_t attack = 0, release = 5, threshold = 32767, volume = 8192, denoise = 256;
};

struct Band {
  std::string type;
  double freq = 0, q = 0, gain_db = 0;
};

struct Design {
  std::string version;
  double rate = 48000;
  int32_t sbs_enable = 0;
  int32_t nld_gain[2] = {8192, 8192};
  int32_t channel_ration = 0;
  int32_t channel_num = 2;
  Limiter limiter[2][4]; // [side][low, mid, high, full]
  int32_t peq_enable = 0;
  int32_t peq_gain[2] = {8192, 8192};
  std::vector<Band> bands[2];
};

struct Coefs {
  int32_t v[6] = {0, 268435456, 0, 0, 0, 0};
};

class DesignError {
 public:
  explicit DesignError(std::string m) : message(std::move(m)) {}
  std::string message;
};

bool parse_double(const std::string& s, double* out) {
  if (s.empty()) return false;
  errno = 0;
  char* end = nullptr;
  const double v = std::strtod(s.c_str(), &end);
  if (errno != 0 || *end != '\0' || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

bool parse_long(const std::string& s, long lo, long hi, long* out) {
  if (s.empty()) return false;
  errno = 0;
  char* end = nullptr;
  const long v = std::strtol(s.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || v < lo || v > hi) return false;
  *out = v;
  return true;
}

int32_t to_int32(double x, const char* what) {
  const double r = std::nearbyint(x);
  if (!(r >= -2147483648.0 && r <= 2147483647.0)) throw DesignError(std::string(what) + " is out of range");
  return static_cast<int32_t>(r);
}

int32_t db_to_q13(double db) { return to_int32(8192.0 * std::pow(10.0, db / 20.0), "gain"); }

// The cookbook sections, as Q28 band records.
Coefs design_band(const Band& b, double rate) {
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
  } else if (b.type == "lowshelf") {
    b0 = A * ((A + 1) - (A - 1) * cw + sa);
    b1 = 2 * A * ((A - 1) - (A + 1) * cw);
    b2 = A * ((A + 1) - (A - 1) * cw - sa);
    a0 = (A + 1) + (A - 1) * cw + sa;
    a1 = -2 * ((A - 1) + (A + 1) * cw);
    a2 = (A + 1) + (A - 1) * cw - sa;
  } else { // highshelf
    b0 = A * ((A + 1) + (A - 1) * cw + sa);
    b1 = -2 * A * ((A - 1) + (A + 1) * cw);
    b2 = A * ((A + 1) + (A - 1) * cw - sa);
    a0 = (A + 1) - (A - 1) * cw + sa;
    a1 = 2 * ((A - 1) - (A + 1) * cw);
    a2 = (A + 1) - (A - 1) * cw - sa;
  }
  Coefs c;
  c.v[0] = 1;
  c.v[1] = to_int32(b0 / a0 * kQ28, "band coefficient b0");
  c.v[2] = to_int32(b1 / a0 * kQ28, "band coefficient b1");
  c.v[3] = to_int32(b2 / a0 * kQ28, "band coefficient b2");
  c.v[4] = to_int32(-a1 / a0 * kQ28, "band coefficient a1");
  c.v[5] = to_int32(-a2 / a0 * kQ28, "band coefficient a2");
  return c;
}

// Sides named by a statement: 0 left, 1 right.
std::vector<int> parse_side(const std::string& s) {
  if (s == "left") return {0};
  if (s == "right") return {1};
  if (s == "both") return {0, 1};
  throw DesignError("side must be left, right or both, not '" + s + "'");
}

int32_t parse_on_off(const std::vector<std::string>& w) {
  if (w.size() == 2 && w[1] == "on") return 1;
  if (w.size() == 2 && w[1] == "off") return 0;
  throw DesignError("'" + w[0] + "' takes on or off");
}

double need_double(const std::string& s, const char* what) {
  double v;
  if (!parse_double(s, &v)) throw DesignError(std::string(what) + " '" + s + "' is not a number");
  return v;
}

void parse_statement(const std::vector<std::string>& w, const std::string& rest, Design* d) {
  const std::string& key = w[0];
  if (key == "version") {
    if (rest.empty()) throw DesignError("version needs a text");
    d->version = rest;
  } else if (key == "rate") {
    if (w.size() != 2) throw DesignError("rate takes one value");
    d->rate = need_double(w[1], "rate");
    if (d->rate < 8000 || d->rate > 192000) throw DesignError("rate must be within 8000..192000 Hz");
  } else if (key == "sbs") {
    d->sbs_enable = parse_on_off(w);
  } else if (key == "peq") {
    d->peq_enable = parse_on_off(w);
  } else if (key == "harmonic_gain" || key == "peq_gain") {
    if (w.size() != 2 && w.size() != 3) throw DesignError(key + " takes one or two values in dB");
    const double l = need_double(w[1], "gain");
    const double r = w.size() == 3 ? need_double(w[2], "gain") : l;
    if (std::fabs(l) > 40 || std::fabs(r) > 40) throw DesignError(key + " must be within +-40 dB");
    int32_t* g = key == "harmonic_gain" ? d->nld_gain : d->peq_gain;
    g[0] = db_to_q13(l);
    g[1] = db_to_q13(r);
  } else if (key == "channel_ration" || key == "channel_num") {
    long v;
    if (w.size() != 2 || !parse_long(w[1], -8192, 8192, &v)) throw DesignError(key + " takes one integer");
    (key == "channel_ration" ? d->channel_ration : d->channel_num) = static_cast<int32_t>(v);
  } else if (key == "limiter") {
    if (w.size() != 8)
      throw DesignError("limiter takes BAND SIDE ATTACK RELEASE THRESHOLD_DBFS VOLUME_DB DENOISE_DBFS");
    static const char* const kNames[4] = {"low", "mid", "high", "full"};
    int band = -1;
    for (int i = 0; i < 4; ++i)
      if (w[1] == kNames[i]) band = i;
    if (band < 0) throw DesignError("limiter band must be low, mid, high or full");
    Limiter l;
    long attack, release;
    if (!parse_long(w[3], 0, 31, &attack) || !parse_long(w[4], 0, 31, &release))
      throw DesignError("attack and release are shifts of 0..31");
    l.attack = static_cast<int32_t>(attack);
    l.release = static_cast<int32_t>(release);
    const double threshold = need_double(w[5], "threshold");
    const double volume = need_double(w[6], "volume");
    const double denoise = need_double(w[7], "denoise level");
    if (threshold > 24 || threshold < -96) throw DesignError("threshold must be within -96..24 dBFS");
    if (std::fabs(volume) > 40) throw DesignError("volume must be within +-40 dB");
    if (denoise > 0 || denoise < -138) throw DesignError("denoise level must be within -138..0 dBFS");
    l.threshold = std::max<int32_t>(1, to_int32(32767.0 * std::pow(10.0, threshold / 20.0), "threshold"));
    l.volume = db_to_q13(volume);
    l.denoise = std::max<int32_t>(2, to_int32(8388607.0 * std::pow(10.0, denoise / 20.0), "denoise level"));
    for (int side : parse_side(w[2])) d->limiter[side][band] = l;
  } else if (key == "band") {
    if (w.size() != 5 && w.size() != 6) throw DesignError("band takes SIDE TYPE FREQ_HZ Q [GAIN_DB]");
    Band b;
    b.type = w[2];
    const bool needs_gain = b.type == "peak" || b.type == "lowshelf" || b.type == "highshelf";
    if (!needs_gain && b.type != "highpass" && b.type != "lowpass")
      throw DesignError("band type must be peak, lowshelf, highshelf, highpass or lowpass");
    b.freq = need_double(w[3], "frequency");
    b.q = need_double(w[4], "Q");
    if (w.size() == 6) b.gain_db = need_double(w[5], "gain");
    else if (needs_gain) throw DesignError(b.type + " needs a gain in dB");
    if (b.q < 0.05 || b.q > 50) throw DesignError("Q must be within 0.05..50");
    if (std::fabs(b.gain_db) > 24) throw DesignError("band gain must be within +-24 dB");
    for (int side : parse_side(w[1])) {
      if (d->bands[side].size() >= kBands) throw DesignError("more than ten bands on one side");
      d->bands[side].push_back(b);
    }
  } else {
    throw DesignError("unknown statement '" + key + "'");
  }
}

// Frequencies are checked against the rate once the whole file is read.
void check_bands(const Design& d) {
  for (const auto& side : d.bands)
    for (const Band& b : side)
      if (!(b.freq > 0 && b.freq < d.rate / 2)) throw DesignError("band frequency must lie between 0 and rate/2");
}

std::string hex(int32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%x", static_cast<unsigned>(v));
  return buf;
}

std::string hex_list(std::initializer_list<int32_t> values) {
  std::string s;
  for (int32_t v : values) s += (s.empty() ? "" : ";") + hex(v);
  return s;
}

std::string xml_escape(const std::string& s) {
  std::string out;
  for (char c : s) {
    if (c == '&') out += "&amp;";
    else if (c == '<') out += "&lt;";
    else if (c == '>') out += "&gt;";
    else out += c;
  }
  return out;
}

// Text placed in an XML comment must not contain "--".
std::string comment_safe(std::string s) {
  for (size_t i; (i = s.find("--")) != std::string::npos;) s.replace(i, 2, "- -");
  if (!s.empty() && s.back() == '-') s += ' ';
  return s;
}

std::string fmt(const char* f, double a, double b, double c) {
  char buf[96];
  std::snprintf(buf, sizeof buf, f, a, b, c);
  return buf;
}

std::string band_text(const Band& b) {
  std::string s = b.type + " " + fmt("%g Hz Q %g", b.freq, b.q, 0);
  if (b.type != "highpass" && b.type != "lowpass") s += fmt(" %+g dB", b.gain_db, 0, 0);
  return s;
}

std::string render(const Design& d, const std::string& source) {
  std::ostringstream x;
  x << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  x << "<!-- Speaker configuration written by 'kafx speaker-design' from " << comment_safe(source)
    << ".\n     Edit the design and generate again rather than editing the numbers.\n"
    << "     Values are hexadecimal, separated by ';'. -->\n";
  x << "<kafxsp>\n";
  if (!d.version.empty()) x << "  <version>" << xml_escape(d.version) << "</version>\n";
  x << "  <sbs>\n";
  x << "    <enable>" << hex(d.sbs_enable) << "</enable>\n";
  x << "    <!-- harmonic band gain left;right, Q13 -->\n";
  x << "    <gain>" << hex_list({d.nld_gain[0], d.nld_gain[1]}) << "</gain>\n";
  x << "    <channel_ration>" << hex(d.channel_ration) << "</channel_ration>\n";
  x << "    <channel_num>" << hex(d.channel_num) << "</channel_num>\n";
  x << "    <!-- limiters 0 low, 1 mid, 2 high, 3 full: attack shift; release shift;\n"
    << "         threshold (16-bit peak); make-up volume (Q13); expander level (24-bit mean) -->\n";
  static const char* const kSide[2] = {"left", "right"};
  for (int side = 0; side < 2; ++side)
    for (int band = 0; band < 4; ++band) {
      const Limiter& l = d.limiter[side][band];
      x << "    <drc_param_" << kSide[side] << band << ">"
        << hex_list({l.attack, l.release, l.threshold, l.volume, l.denoise}) << "</drc_param_" << kSide[side]
        << band << ">\n";
    }
  x << "  </sbs>\n";
  x << "  <peq>\n";
  x << "    <enable>" << hex(d.peq_enable) << "</enable>\n";
  x << "    <!-- input gain left;right, Q13 -->\n";
  x << "    <gain>" << hex_list({d.peq_gain[0], d.peq_gain[1]}) << "</gain>\n";
  static const char* const kElement[2] = {"Lfilter", "Rfilter"};
  for (int side = 0; side < 2; ++side) {
    x << "    <!-- " << kSide[side] << " bands at " << fmt("%g", d.rate, 0, 0)
      << " Hz: enable; b0; b1; b2; a1; a2 (Q28, a1 and a2 negated)\n";
    for (size_t i = 0; i < d.bands[side].size(); ++i)
      x << "         " << i + 1 << ": " << band_text(d.bands[side][i]) << "\n";
    if (d.bands[side].size() < kBands) x << "         the other bands: off, pass-through\n";
    x << "    -->\n";
    x << "    <" << kElement[side] << ">\n";
    for (int i = 0; i < kBands; ++i) {
      const Coefs c = i < static_cast<int>(d.bands[side].size()) ? design_band(d.bands[side][i], d.rate) : Coefs();
      x << "      " << hex_list({c.v[0], c.v[1], c.v[2], c.v[3], c.v[4], c.v[5]}) << (i + 1 < kBands ? ";" : "")
        << "\n";
    }
    x << "    </" << kElement[side] << ">\n";
  }
  x << "  </peq>\n";
  x << "</kafxsp>\n";
  return x.str();
}

bool read_design(std::istream& in, Design* d, std::string* error) {
  std::string line;
  int number = 0;
  while (std::getline(in, line)) {
    ++number;
    const size_t hash = line.find('#');
    if (hash != std::string::npos) line.erase(hash);
    std::istringstream words(line);
    std::vector<std::string> w;
    for (std::string word; words >> word;) w.push_back(word);
    if (w.empty()) continue;
    // The text after the keyword, for version.
    std::string rest = line.substr(line.find(w[0]) + w[0].size());
    rest.erase(0, rest.find_first_not_of(" \t\r"));
    rest.erase(rest.find_last_not_of(" \t\r") + 1);
    try {
      parse_statement(w, rest, d);
    } catch (const DesignError& e) {
      *error = "line " + std::to_string(number) + ": " + e.message;
      return false;
    }
  }
  try {
    check_bands(*d);
  } catch (const DesignError& e) {
    *error = e.message;
    return false;
  }
  return true;
}

} // namespace

const char* kafx_speaker_design_usage() {
  return "usage: kafx speaker-design DESIGN.txt [-o OUT.xml]\n"
         "\n"
         "Writes the speaker configuration XML for a readable design (to standard\n"
         "output unless -o is given). Design statements, one per line, '#' comments:\n"
         "  version TEXT\n"
         "  rate HZ                       equalizer design rate (default 48000)\n"
         "  sbs on|off                    speaker boost system\n"
         "  harmonic_gain DB [DB_RIGHT]   harmonic bass band gain\n"
         "  channel_ration N              balance cross-mix (Q13, 0 = none)\n"
         "  channel_num N                 2 stereo, 1 mono\n"
         "  limiter BAND SIDE ATTACK RELEASE THRESHOLD_DBFS VOLUME_DB DENOISE_DBFS\n"
         "                                BAND low|mid|high|full, SIDE left|right|both\n"
         "  peq on|off                    parametric equalizer\n"
         "  peq_gain DB [DB_RIGHT]        equalizer input gain\n"
         "  band SIDE TYPE FREQ_HZ Q [GAIN_DB]\n"
         "                                TYPE peak|lowshelf|highshelf|highpass|lowpass,\n"
         "                                up to ten bands per side\n"
         "See examples/speaker_design.txt.\n";
}

int kafx_speaker_design_main(int argc, char** argv) {
  std::string input, output;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "-h" || a == "--help") {
      std::fputs(kafx_speaker_design_usage(), stdout);
      return 0;
    }
    if (a == "-o") {
      if (i + 1 >= argc || !output.empty()) {
        std::fprintf(stderr, "kafx speaker-design: -o takes one file name\n");
        return 2;
      }
      output = argv[++i];
    } else if (input.empty() && !a.empty() && a[0] != '-') {
      input = a;
    } else {
      std::fprintf(stderr, "kafx speaker-design: unexpected argument '%s'\n%s", a.c_str(),
                   kafx_speaker_design_usage());
      return 2;
    }
  }
  if (input.empty()) {
    std::fputs(kafx_speaker_design_usage(), stderr);
    return 2;
  }
  std::ifstream in(input);
  if (!in) {
    std::fprintf(stderr, "kafx speaker-design: cannot open '%s'\n", input.c_str());
    return 1;
  }
  Design d;
  std::string error;
  if (!read_design(in, &d, &error)) {
    std::fprintf(stderr, "kafx speaker-design: %s: %s\n", input.c_str(), error.c_str());
    return 1;
  }
  std::string base = input;
  const size_t slash = base.find_last_of('/');
  if (slash != std::string::npos) base.erase(0, slash + 1);
  std::string xml;
  try {
    xml = render(d, base);
  } catch (const DesignError& e) {
    std::fprintf(stderr, "kafx speaker-design: %s: %s\n", input.c_str(), e.message.c_str());
    return 1;
  }
  if (output.empty()) {
    std::fputs(xml.c_str(), stdout);
    return 0;
  }
  std::ofstream out(output, std::ios::binary);
  out << xml;
  out.close();
  if (!out) {
    std::fprintf(stderr, "kafx speaker-design: cannot write '%s'\n", output.c_str());
    return 1;
  }
  return 0;
}
