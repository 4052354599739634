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
//       TYPE peak|lowshelf|highshelf|highpass|lowpass|notch; up to ten bands
//       per side, filled in order; the gain is needed by peak and the shelves
//       and refused by the others.
//   band SIDE raw ENABLE B0 B1 B2 A1 A2
//       a band record as stored (hexadecimal), for sections that are not
//       cookbook ones (`--from-xml` writes these).
//
// `--from-xml` reads a configuration back into these statements; an
// equalizer in the exchanged parametric text form (eq_import.h) is accepted
// in place of a design.
//
// Bands are the second-order sections of R. Bristow-Johnson's audio-EQ
// cookbook, normalised by a0 and stored as the equalizer's band record:
// enable (1), then b0, b1, b2, a1, a2 in Q28 with the feedback coefficients
// negated, as the biquad adds them: y = b0 x + b1 x1 + b2 x2 + a1 y1 + a2 y2.
// Unused band slots are pass-through sections switched off
// (0, 1.0, 0, 0, 0, 0). Doubles are fine here: this runs offline.
#include "speaker_design.h"

#include <unistd.h>

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

#include <tinyxml.h>

#include "eq_import.h"
#include "command_line.h"
#include "kafx_proc/speaker_boost.h"
#include "speaker_config_check.h"
#include "speaker_units.h"

namespace {

constexpr kafx_tool::Command kDesign{"speaker-design"};

constexpr int kBands = 10;

using kafx_tool::EqBand;
using kafx_tool::BandRecord;

struct Limiter {
  int32_t attack = 0, release = 5, threshold = 32767, volume = 8192, denoise = 256;
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
  std::vector<EqBand> bands[2];
};

class DesignError {
 public:
  explicit DesignError(std::string m) : message(std::move(m)) {}
  std::string message;
};

bool parse_long(const std::string& s, long lo, long hi, long* out) {
  if (s.empty()) return false;
  errno = 0;
  char* end = nullptr;
  const long v = std::strtol(s.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || v < lo || v > hi) return false;
  *out = v;
  return true;
}

int32_t db_to_q13(double db) {
  try {
    return kafx_tool::db_to_q13(db);
  } catch (const std::range_error& e) {
    throw DesignError(e.what());
  }
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
  if (!kafx_tool::parse_number(s, &v)) throw DesignError(std::string(what) + " '" + s + "' is not a number");
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
    l.threshold = kafx_tool::dbfs_to_peak16(threshold);
    l.volume = db_to_q13(volume);
    l.denoise = kafx_tool::dbfs_to_mean24(denoise);
    for (int side : parse_side(w[2])) d->limiter[side][band] = l;
  } else if (key == "band") {
    EqBand b;
    if (w.size() >= 3) b.type = w[2];
    if (b.type == "raw") {
      // band SIDE raw ENABLE B0 B1 B2 A1 A2: a stored band record in hex.
      if (w.size() != 9) throw DesignError("band SIDE raw takes six hexadecimal values");
      for (int k = 0; k < 6; ++k) {
        errno = 0;
        char* end = nullptr;
        const unsigned long long v = std::strtoull(w[3 + k].c_str(), &end, 16);
        if (errno != 0 || *end != '\0' || w[3 + k].empty() || w[3 + k][0] == '-' || v > 0xFFFFFFFFull)
          throw DesignError("'" + w[3 + k] + "' is not a 32-bit hexadecimal number");
        b.raw[k] = static_cast<int32_t>(static_cast<uint32_t>(v));
      }
    } else {
      if (w.size() != 5 && w.size() != 6) throw DesignError("band takes SIDE TYPE FREQ_HZ Q [GAIN_DB]");
      const bool needs_gain = kafx_tool::band_needs_gain(b.type);
      if (!needs_gain && b.type != "highpass" && b.type != "lowpass" && b.type != "notch")
        throw DesignError("band type must be peak, lowshelf, highshelf, highpass, lowpass, notch or raw");
      b.freq = need_double(w[3], "frequency");
      b.q = need_double(w[4], "Q");
      if (w.size() == 6) {
        if (!needs_gain) throw DesignError(b.type + " takes no gain");
        b.gain_db = need_double(w[5], "gain");
      } else if (needs_gain) {
        throw DesignError(b.type + " needs a gain in dB");
      }
      if (b.q < 0.05 || b.q > 50) throw DesignError("Q must be within 0.05..50");
      if (std::fabs(b.gain_db) > 24) throw DesignError("band gain must be within +-24 dB");
    }
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
    for (const EqBand& b : side)
      if (b.type != "raw" && !(b.freq > 0 && b.freq < d.rate / 2)) throw DesignError("band frequency must lie between 0 and rate/2");
}

std::string hex(int32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%x", static_cast<unsigned>(v));
  return buf;
}

std::string hex_list(std::initializer_list<int32_t> values) {
  std::string s;
  for (int32_t v : values) {
    if (!s.empty()) s += ';';
    s += hex(v);  // appended, not prepended (GCC 12 -Wrestrict false positive)
  }
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
      x << "         " << i + 1 << ": " << kafx_tool::band_text(d.bands[side][i]) << "\n";
    if (d.bands[side].size() < kBands) x << "         the other bands: off, pass-through\n";
    x << "    -->\n";
    x << "    <" << kElement[side] << ">\n";
    for (int i = 0; i < kBands; ++i) {
      BandRecord c = kafx_tool::kPassThroughOff;
      if (i < static_cast<int>(d.bands[side].size())) {
        try {
          c = kafx_tool::design_band(d.bands[side][i], d.rate);
        } catch (const std::range_error& e) {
          throw DesignError(e.what());
        }
      }
      x << "      " << hex_list({c[0], c[1], c[2], c[3], c[4], c[5]}) << (i + 1 < kBands ? ";" : "")
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


// --- from a configuration file back to a design -----------------------------

class Recovered {
 public:
  explicit Recovered(const kafx_sp_params_t&) {}
  std::string text;

  void line(const std::string& s) { text += s + "\n"; }

  // dB text of a Q13 gain that designs back to the same integer.
  std::string gain_db(int32_t g, const char* what) const {
    const double db = kafx_tool::q13_to_db(g);
    if (g <= 0 || !(std::fabs(db) <= 40))
      throw DesignError(std::string(what) + " " + hex(g) + " has no design form (a gain within +-40 dB)");
    return kafx_tool::shortest(db, [&](double v) { return std::fabs(v) <= 40 && kafx_tool::db_to_q13(v) == g; });
  }

  std::string limiter_text(const drc_param_t& l, const std::string& what) const {
    if (l.attact_order < 0 || l.attact_order > 31 || l.release_order < 0 || l.release_order > 31)
      throw DesignError(what + ": attack and release shifts must be 0..31");
    if (l.threshold < 1 || !(kafx_tool::peak16_to_dbfs(l.threshold) <= 24))
      throw DesignError(what + ": threshold " + hex(l.threshold) + " has no design form (1..+24 dBFS)");
    if (l.denoise_threshold < 2 || l.denoise_threshold > 8388607)
      throw DesignError(what + ": expander level " + hex(l.denoise_threshold) + " has no design form (2..0 dBFS)");
    const int32_t t = l.threshold, dn = l.denoise_threshold;
    const std::string thr = kafx_tool::shortest(kafx_tool::peak16_to_dbfs(t), [&](double v) {
      return v >= -96 && v <= 24 && kafx_tool::dbfs_to_peak16(v) == t;
    });
    const std::string den = kafx_tool::shortest(kafx_tool::mean24_to_dbfs(dn), [&](double v) {
      return v >= -138 && v <= 0 && kafx_tool::dbfs_to_mean24(v) == dn;
    });
    return std::to_string(l.attact_order) + " " + std::to_string(l.release_order) + " " + thr + " " +
           gain_db(l.volume, (what + " volume").c_str()) + " " + den;
  }

};

std::string on_off(int32_t v, const char* what) {
  if (v != 0 && v != 1) throw DesignError(std::string(what) + " is " + std::to_string(v) + ": only 0 and 1 have a design form");
  return v ? "on" : "off";
}

std::string pair_text(const std::string& l, const std::string& r) { return l == r ? l : l + " " + r; }

// The design statements that generate `p` again (byte for byte, given the
// same version text, rate and file name).
std::string design_text(const kafx_tool::ConfigCheck& c, double rate, const std::string& source) {
  const kafx_sp_params_t& p = c.record;
  Recovered r(p);
  r.line("# Speaker design recovered by 'kafx speaker-design --from-xml' from " + source + ".");
  r.line("# Generate the configuration again with: kafx speaker-design THIS_FILE -o " + source);
  if (c.has_version) {
    std::string v = c.version;
    v.erase(0, v.find_first_not_of(" \t\r\n"));
    v.erase(v.find_last_not_of(" \t\r\n") + (v.find_last_not_of(" \t\r\n") == std::string::npos ? 0 : 1));
    if (v != c.version || v.find('#') != std::string::npos || v.find('\n') != std::string::npos)
      throw DesignError("the version text has no design form (no '#', line breaks or outer spaces)");
    if (!v.empty()) r.line("version " + v);
  }
  r.line("rate " + kafx_tool::g_text(rate, 10));
  r.line("");
  r.line("sbs " + on_off(p.sbs.enable, "sbs.enable"));
  r.line("harmonic_gain " + pair_text(r.gain_db(p.sbs.gain[0], "sbs.gain[left]"), r.gain_db(p.sbs.gain[1], "sbs.gain[right]")));
  for (auto [name, v] : {std::pair<const char*, int32_t>{"channel_ration", p.sbs.channel_ration},
                         {"channel_num", p.sbs.channel_num}}) {
    if (v < -8192 || v > 8192) throw DesignError(std::string(name) + " " + std::to_string(v) + " is outside -8192..8192");
    r.line(std::string(name) + " " + std::to_string(v));
  }
  r.line("#       band side  attack release threshold(dBFS) volume(dB) denoise(dBFS)");
  static const char* const kBand[4] = {"low", "mid", "high", "full"};
  for (int band = 0; band < 4; ++band) {
    const std::string left = r.limiter_text(p.sbs.drc_left[band], std::string("limiter ") + kBand[band] + " left");
    const std::string right = r.limiter_text(p.sbs.drc_right[band], std::string("limiter ") + kBand[band] + " right");
    const std::string pad = std::string(5 - std::strlen(kBand[band]), ' ');
    if (left == right) {
      r.line(std::string("limiter ") + kBand[band] + pad + "both  " + left);
    } else {
      r.line(std::string("limiter ") + kBand[band] + pad + "left  " + left);
      r.line(std::string("limiter ") + kBand[band] + pad + "right " + right);
    }
  }
  r.line("");
  r.line("peq " + on_off(p.peq.enable, "peq.enable"));
  r.line("peq_gain " + pair_text(r.gain_db(p.peq.gain[0], "peq.gain[left]"), r.gain_db(p.peq.gain[1], "peq.gain[right]")));
  std::vector<EqBand> bands[2];
  for (int side = 0; side < 2; ++side) {
    BandRecord rec[kBands];
    int used = 0;
    for (int i = 0; i < kBands; ++i) {
      for (int k = 0; k < 6; ++k) rec[i][k] = side ? p.peq.Rfilter[i][k] : p.peq.Lfilter[i][k];
      if (rec[i] != kafx_tool::kPassThroughOff) used = i + 1;
    }
    for (int i = 0; i < used; ++i) {
      EqBand b;
      if (!kafx_tool::recover_band(rec[i], rate, &b)) {
        b = EqBand{};
        b.type = "raw";
        b.raw = rec[i];
      }
      bands[side].push_back(b);
    }
  }
  auto band_words = [](const EqBand& b) {
    if (b.type == "raw") return kafx_tool::band_text(b);
    auto exact = [](double x) { return kafx_tool::shortest(x, [x](double v) { return v == x; }); };
    std::string s = b.type + " " + exact(b.freq) + " " + exact(b.q);
    if (kafx_tool::band_needs_gain(b.type)) s += " " + exact(b.gain_db);
    return s;
  };
  r.line("#    side  type freq(Hz) Q [gain(dB)]   (raw: enable b0 b1 b2 a1 a2, Q28 hex)");
  const size_t n = std::max(bands[0].size(), bands[1].size());
  for (size_t i = 0; i < n; ++i) {
    const bool l = i < bands[0].size(), rr = i < bands[1].size();
    if (l && rr && band_words(bands[0][i]) == band_words(bands[1][i])) {
      r.line("band both  " + band_words(bands[0][i]));
      continue;
    }
    if (l) r.line("band left  " + band_words(bands[0][i]));
    if (rr) r.line("band right " + band_words(bands[1][i]));
  }
  return r.text;
}

// Writes `text` to `path`, or to standard output when `path` is empty.
bool emit(const std::string& text, const std::string& path) {
  if (path.empty()) {
    std::fputs(text.c_str(), stdout);
    return true;
  }
  std::ofstream out(path, std::ios::binary);
  out << text;
  out.close();
  if (!out) std::fprintf(stderr, "kafx speaker-design: cannot write '%s'\n", path.c_str());
  return static_cast<bool>(out);
}

// The same checks as `kafx speaker-config`, run on the generated text: a
// design that clips is generated with a warning.
void warn_generated(const std::string& xml) {
  char name[] = "/tmp/kafx-design-XXXXXX";
  const int fd = mkstemp(name);
  if (fd < 0) return;
  const bool written = write(fd, xml.data(), xml.size()) == static_cast<ssize_t>(xml.size());
  close(fd);
  if (written) {
    const kafx_tool::ConfigCheck c = kafx_tool::check_speaker_config(name);
    for (const kafx_tool::ConfigFlag& f : c.flags)
      std::fprintf(stderr, "kafx speaker-design: warning: %s\n", f.text.c_str());
  }
  unlink(name);
}

std::string base_name(std::string path) {
  const size_t slash = path.find_last_of('/');
  if (slash != std::string::npos) path.erase(0, slash + 1);
  return path;
}

} // namespace

const char* kafx_speaker_design_usage() {
  return "usage: kafx speaker-design DESIGN.txt|EQ.txt [--rate HZ] [-o OUT.xml]\n"
         "       kafx speaker-design --from-xml CONFIG.xml [--rate HZ] [-o OUT.txt]\n"
         "\n"
         "Writes the speaker configuration XML for a readable design (to standard\n"
         "output unless -o is given), with a warning for every value that will clip\n"
         "(the checks of 'kafx speaker-config'). --from-xml turns a configuration back\n"
         "into design statements that generate it again byte for byte (bands that are\n"
         "not cookbook sections become 'band SIDE raw ...'); --rate is the equalizer's\n"
         "design rate when the file does not state it (48000).\n"
         "\n"
         "An equalizer in the exchanged parametric text form is accepted too:\n"
         "  Preamp: -6 dB\n"
         "  Filter 1: ON PK Fc 100 Hz Gain 3 dB Q 1.41\n"
         "  (types PK, LSC/LS, HSC/HS, LP, HP, NO; 'Channel: L|R|ALL' picks the side)\n"
         "It gives the equalizer on with those bands and the preamp as its input gain,\n"
         "every other block as after init.\n"
         "\n"
         "Design statements, one per line, '#' comments:\n"
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
         "                                TYPE peak|lowshelf|highshelf|highpass|lowpass|notch,\n"
         "                                up to ten bands per side; gain only for peak\n"
         "                                and the shelves\n"
         "  band SIDE raw ENABLE B0 B1 B2 A1 A2\n"
         "                                a band record as stored (hex, Q28, a1 a2 negated)\n"
         "See examples/speaker_design.txt.\n";
}

int kafx_speaker_design_main(int argc, char** argv) {
  std::string input, output;
  bool from_xml = false;
  double rate = 0;
  auto option = [&](const std::string& a, const char* v) -> int {
    if (a == "-o") {
      if (!output.empty()) return kDesign.usage_error("-o takes one value");
      output = v;
    } else if (a == "--rate") {
      if (!kafx_tool::parse_number(v, &rate) || rate < 8000 || rate > 192000)
        return kDesign.usage_error("--rate takes 8000..192000 Hz");
    } else if (a == "--from-xml") {
      from_xml = true;
    }
    return 0;
  };
  std::vector<std::string> files;
  if (const int rc = kafx_tool::parse_command_line(kDesign, argc, argv, kafx_speaker_design_usage(),
                                                   {{"-o", true}, {"--rate", true}, {"--from-xml", false}}, option,
                                                   {1, 1, "one input file"}, &files);
      rc != 0)
    return rc < 0 ? 0 : rc;
  input = files[0];
  // The design is read from a file, never from standard input.
  if (input == "-" || input.empty()) return kDesign.usage_error("unexpected argument '" + input + "'");
  if (from_xml) {
    const kafx_tool::ConfigCheck c = kafx_tool::check_speaker_config(input.c_str());
    if (!c.loaded) {
      return kDesign.failure(input + ": " + c.load_error);
    }
    for (const kafx_tool::ConfigFlag& f : c.flags)
      std::fprintf(stderr, "kafx speaker-design: warning: %s:%d: %s\n", input.c_str(), f.line, f.text.c_str());
    std::string text;
    try {
      text = design_text(c, rate > 0 ? rate : c.rate, base_name(input));
    } catch (const DesignError& e) {
      return kDesign.failure(input + ": " + e.message);
    }
    return emit(text, output) ? 0 : 1;
  }
  std::ifstream in(input);
  if (!in) {
    return kDesign.failure("cannot open '" + input + "'");
  }
  std::stringstream whole;
  whole << in.rdbuf();
  Design d;
  if (rate > 0) d.rate = rate;
  std::string error;
  if (kafx_tool::looks_like_eq_text(whole.str())) {
    // An equalizer in the exchanged text form: the equalizer on, its bands
    // and preamp, every other block as after init.
    kafx_tool::EqImport eq;
    if (!kafx_tool::import_eq_text(whole, d.rate, kBands, &eq, &error)) {
      return kDesign.failure(input + ": " + error);
    }
    d.peq_enable = 1;
    if (eq.has_preamp) d.peq_gain[0] = d.peq_gain[1] = db_to_q13(eq.preamp_db);
    d.bands[0] = eq.bands[0];
    d.bands[1] = eq.bands[1];
  } else if (!read_design(whole, &d, &error)) {
    return kDesign.failure(input + ": " + error);
  }
  std::string xml;
  try {
    xml = render(d, base_name(input));
  } catch (const DesignError& e) {
    return kDesign.failure(input + ": " + e.message);
  }
  warn_generated(xml);
  return emit(xml, output) ? 0 : 1;
}
