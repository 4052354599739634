// Checks of a speaker configuration file (see speaker_config_check.h).
//
// The file is loaded twice: by the library (what a device will run) and with
// TinyXML (to point at lines). A token "scans completely" when the library's
// hexadecimal scanner reads all of it up to trailing white space: the scanner
// itself stops at the first other character, so "72z4" is stored as 0x72.
//
// What clips: the limiters hold a block's peak at 31/32 of their threshold
// (16-bit units, full scale 32767) whatever the make-up volume, so a
// full-band limiter above about +0.28 dBFS lets peaks through to the final
// saturation. Without the speaker boost system nothing follows the
// equalizer, and any frequency it raises above 0 dB (input gain included)
// saturates a full-scale tone. With it, the equalizer's gain is only a note.
#include "speaker_config_check.h"

#include <tinyxml.h>

#include <cmath>
#include <cstdarg>
#include <cstring>
#include <fstream>
#include <sstream>

#include "speaker/speaker_config_parse.h"
#include "speaker/speaker_config_xml.h"
#include "speaker_units.h"

namespace kafx_tool {
namespace {

using namespace kafx::spcfg;

std::string fmt(const char* f, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char* f, ...) {
  char buf[256];
  va_list ap;
  va_start(ap, f);
  std::vsnprintf(buf, sizeof buf, f, ap);
  va_end(ap);
  return buf;
}

// True when scan_hex32 reads the whole token (white space aside).
bool scans_completely(const char* s) {
  int32_t v;
  if (!scan_hex32(s, &v)) return false;
  while (is_scan_space(*s)) ++s;
  if (*s == '+' || *s == '-') ++s;
  if (s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    if (hex_value(s[2]) < 0) return false;  // "0x" alone reads as 0
    s += 2;
  }
  while (hex_value(*s) >= 0) ++s;
  while (is_scan_space(*s)) ++s;
  return *s == '\0';
}

std::string shorten(const char* token) {
  std::string s = token;
  for (char& c : s)
    if (c == '\n' || c == '\r' || c == '\t') c = ' ';
  if (s.size() > 24) s = s.substr(0, 21) + "...";
  return s;
}

template <size_t N>
void check_section(const TiXmlElement* section, const ElementSlot (&table)[N], ConfigCheck* c) {
  const std::string kind = section->Value();
  for (const TiXmlElement* e = section->FirstChildElement(); e != nullptr; e = e->NextSiblingElement()) {
    const ElementSlot* slot = find_slot(table, e->Value());
    if (slot == nullptr) {
      c->flags.push_back({e->Row(), fmt("unknown element <%s> in <%s>: ignored", e->Value(), kind.c_str())});
      continue;
    }
    const char* text = e->GetText();
    if (text == nullptr) {
      c->flags.push_back({e->Row(), fmt("<%s> has no text: ignored", e->Value())});
      continue;
    }
    const size_t tokens = for_each_token(text, ";", [&](size_t k, const char* token) {
      if (k >= static_cast<size_t>(slot->count)) return;
      if (scans_completely(token)) return;
      int32_t v;
      const std::string where = fmt("token %zu '%s' of <%s>", k + 1, shorten(token).c_str(), e->Value());
      if (scan_hex32(token, &v))
        c->flags.push_back({e->Row(), where + fmt(" does not scan completely: stored as 0x%x", unsigned(v))});
      else
        c->flags.push_back({e->Row(), where + " is not a hexadecimal number: the member keeps its earlier value"});
    });
    if (tokens > static_cast<size_t>(slot->count))
      c->flags.push_back({e->Row(), fmt("<%s> has %zu values, %d expected: the surplus is ignored", e->Value(),
                                        tokens, slot->count)});
    else if (tokens < static_cast<size_t>(slot->count))
      c->notes.push_back(fmt("line %d: <%s> has %zu of %d values: the others keep their earlier value", e->Row(),
                             e->Value(), tokens, slot->count));
  }
}

const char* const kBandNames[4] = {"low", "mid", "high", "full"};
const char* const kSideNames[2] = {"left", "right"};

const drc_param_t& limiter(const kafx_sp_params_t& p, int side, int band) {
  return side ? p.sbs.drc_right[band] : p.sbs.drc_left[band];
}

BandRecord band_record(const kafx_sp_params_t& p, int side, int i) {
  BandRecord r;
  for (int k = 0; k < 6; ++k) r[k] = side ? p.peq.Rfilter[i][k] : p.peq.Lfilter[i][k];
  return r;
}

// Largest gain of one side's equalizer (input gain included) on a log grid
// from 20 Hz to just under rate/2, and where.
std::pair<double, double> eq_peak(const kafx_sp_params_t& p, int side, double rate) {
  double best = -1e9, at = 0;
  const double top = rate * 0.4999;
  for (int i = 0; i <= 600; ++i) {
    const double f = 20 * std::pow(top / 20, i / 600.0);
    double db = q13_to_db(p.peq.gain[side]);
    for (int b = 0; b < 10; ++b) db += band_db(band_record(p, side, b), f, rate);
    if (db > best) best = db, at = f;
  }
  return {best, at};
}

void check_values(ConfigCheck* c) {
  const kafx_sp_params_t& p = c->record;
  const bool sbs = p.sbs.enable != 0, peq = p.peq.enable != 0;
  for (int side = 0; side < 2; ++side) {
    if (sbs) {
      for (int band = 0; band < 4; ++band) {
        const int32_t t = limiter(p, side, band).threshold;
        if (band == 3 && t > 32767 * 32 / 31)
          c->flags.push_back({0, fmt("full-band limiter %s: threshold %+.2f dBFS (0x%x) is above full scale: "
                                     "peaks up to %+.2f dBFS pass it and clip",
                                     kSideNames[side], peak16_to_dbfs(t), unsigned(t),
                                     peak16_to_dbfs(t) + 20 * std::log10(31.0 / 32))});
      }
    }
    if (!peq) continue;
    for (int i = 0; i < 10; ++i) {
      const BandRecord r = band_record(p, side, i);
      if (r[0] == 0) continue;
      const double n1 = -r[4] / 268435456.0, n2 = -r[5] / 268435456.0;
      if (!(std::fabs(n2) < 1 && std::fabs(n1) < 1 + n2))
        c->flags.push_back({0, fmt("%s equalizer band %d is unstable (poles on or outside the unit circle)",
                                   kSideNames[side], i + 1)});
    }
    const auto [db, at] = eq_peak(p, side, c->rate);
    if (db > 0.01) {
      const std::string text = fmt("%s equalizer raises %.0f Hz by %+.2f dB (input gain included)",
                                   kSideNames[side], at, db);
      if (sbs)
        c->notes.push_back(text + ": the working samples keep the headroom and the limiters that follow hold the peaks");
      else
        c->flags.push_back({0, text + " and no limiter follows: a full-scale tone there will clip"});
    }
  }
}

double design_rate_of(const char* path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  const std::string text = ss.str();
  const size_t at = text.find(" bands at ");
  if (at == std::string::npos) return 48000;
  const double r = std::atof(text.c_str() + at + 10);
  return r >= 8000 && r <= 192000 ? r : 48000;
}

}  // namespace

ConfigCheck check_speaker_config(const char* path) {
  ConfigCheck c;
  void* params = kafx_speaker_boost_params_load_init();
  if (params == nullptr) {
    c.load_error = "out of memory";
    return c;
  }
  const int rc = kafx_speaker_boost_params_load_config(params, path);
  std::memcpy(&c.record, params, sizeof c.record);
  kafx_speaker_boost_params_load_deinit(params);
  TiXmlDocument doc;
  const DocumentResult d = load_config_document(path, &doc);
  if (rc != 0 || !d.ok) {
    if (d.read != ReadStatus::ok) c.load_error = std::string("the file ") + read_status_text(d.read);
    else if (d.check != XmlCheck::ok) c.load_error = std::string("the document ") + xml_check_text(d.check);
    else if (d.parse_error)
      c.load_error = fmt("not well-formed XML at line %d: %s", doc.ErrorRow(), d.parser_message ? d.parser_message : "");
    else if (d.trailing_text) c.load_error = "not well-formed XML: text after the last element";
    else if (d.top_elements != 1) c.load_error = fmt("not well-formed XML: %d top-level elements, one expected", d.top_elements);
    else c.load_error = "the library refuses it";
    return c;
  }
  c.loaded = true;
  c.rate = design_rate_of(path);
  const TiXmlElement* root = doc.FirstChildElement();
  if (std::strcmp(root->Value(), "kafxsp") != 0) {
    c.flags.push_back({root->Row(), fmt("root element <%s> is not <kafxsp>: nothing applies", root->Value())});
    return c;
  }
  for (const TiXmlElement* e = root->FirstChildElement(); e != nullptr; e = e->NextSiblingElement()) {
    const std::string name = e->Value();
    if (name == "sbs") check_section(e, kSbsElements, &c);
    else if (name == "peq") check_section(e, kPeqElements, &c);
    else if (name == "version" && !c.has_version) {
      c.has_version = true;
      c.version = e->GetText() ? e->GetText() : "";
    } else if (name != "version") c.flags.push_back({e->Row(), "unknown element <" + name + "> in <kafxsp>: ignored"});
  }
  check_values(&c);
  return c;
}

std::vector<std::string> describe_record(const kafx_sp_params_t& p, double rate) {
  std::vector<std::string> out;
  auto gain = [](int32_t g) {
    return g > 0 ? fmt("%+.2f dB (0x%x)", q13_to_db(g), unsigned(g)) : fmt("muted (0x%x)", unsigned(g));
  };
  auto shift = [](int32_t s) {
    if (s <= 0) return fmt("%d (follows at once)", s);
    return fmt("%d (time constant %.0f ms)", s, shift_to_ms(s));
  };
  out.push_back(fmt("speaker boost system: %s (0x%x)", p.sbs.enable ? "on" : "off", unsigned(p.sbs.enable)));
  out.push_back("  harmonic band gain: left " + gain(p.sbs.gain[0]) + ", right " + gain(p.sbs.gain[1]));
  out.push_back(fmt("  channel_ration %d (0x%x), channel_num %d (%s)", p.sbs.channel_ration,
                    unsigned(p.sbs.channel_ration), p.sbs.channel_num, p.sbs.channel_num == 1 ? "mono" : "stereo"));
  for (int side = 0; side < 2; ++side)
    for (int band = 0; band < 4; ++band) {
      const drc_param_t& d = limiter(p, side, band);
      const std::string thr = d.threshold > 0 ? fmt("%+.2f dBFS", peak16_to_dbfs(d.threshold)) : "none";
      const std::string dn = d.denoise_threshold > 0 ? fmt("%.1f dBFS", mean24_to_dbfs(d.denoise_threshold)) : "none";
      out.push_back(fmt("  limiter %-4s %-5s: attack shift %s, release shift %s, threshold %s (0x%x), make-up %s, "
                        "expander below %s (0x%x)",
                        kBandNames[band], kSideNames[side], shift(d.attact_order).c_str(),
                        shift(d.release_order).c_str(), thr.c_str(), unsigned(d.threshold),
                        gain(d.volume).c_str(), dn.c_str(), unsigned(d.denoise_threshold)));
    }
  out.push_back(fmt("parametric equalizer: %s (0x%x); bands read at %g Hz", p.peq.enable ? "on" : "off",
                    unsigned(p.peq.enable), rate));
  out.push_back("  input gain: left " + gain(p.peq.gain[0]) + ", right " + gain(p.peq.gain[1]));
  for (int side = 0; side < 2; ++side)
    for (int i = 0; i < 10; ++i) {
      const BandRecord r = band_record(p, side, i);
      std::string hex;
      for (int32_t v : r) hex += fmt("%s%x", hex.empty() ? "" : " ", unsigned(v));
      EqBand b;
      std::string text;
      if (r == kPassThroughOff) text = "off";
      else if (recover_band(r, rate, &b)) text = band_text(b);
      else if (r[0] == 0) text = "off (coefficients kept)";
      else text = "not a cookbook section";
      out.push_back(fmt("  %-5s band %2d: %-34s [%s]", kSideNames[side], i + 1, text.c_str(), hex.c_str()));
    }
  return out;
}

int warn_speaker_config(const char* path, FILE* out) {
  const ConfigCheck c = check_speaker_config(path);
  if (!c.loaded) {
    std::fprintf(out, "kafx speaker: warning: %s: %s\n", path, c.load_error.c_str());
    return 1;
  }
  for (const ConfigFlag& f : c.flags) {
    if (f.line > 0) std::fprintf(out, "kafx speaker: warning: %s:%d: %s\n", path, f.line, f.text.c_str());
    else std::fprintf(out, "kafx speaker: warning: %s: %s\n", path, f.text.c_str());
  }
  return static_cast<int>(c.flags.size());
}

}  // namespace kafx_tool
