// Import of parametric equalizer text (see eq_import.h). Every line is
// checked in full: an unknown word, a missing or repeated value, a value out
// of range or a filter that does not fit is an error naming the line.
#include "eq_import.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sstream>

#include "speaker_units.h"

namespace kafx_tool {
namespace {

std::string upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

struct LineError {
  std::string message;
};

// "Filter N:" or "Filter:" -> the words after the colon.
void parse_filter(const std::vector<std::string>& w, size_t first, EqBand* b, bool* on) {
  size_t i = first;
  if (i >= w.size()) throw LineError{"filter without ON/OFF and type"};
  const std::string state = upper(w[i]);
  if (state != "ON" && state != "OFF") throw LineError{"expected ON or OFF, not '" + w[i] + "'"};
  *on = state == "ON";
  if (++i >= w.size()) throw LineError{"filter without a type"};
  const std::string type = upper(w[i++]);
  static const struct { const char* name; const char* type; } kTypes[] = {
      {"PK", "peak"},      {"PEQ", "peak"},    {"LSC", "lowshelf"}, {"LS", "lowshelf"}, {"HSC", "highshelf"},
      {"HS", "highshelf"}, {"LP", "lowpass"},  {"LPQ", "lowpass"},  {"HP", "highpass"}, {"HPQ", "highpass"},
      {"NO", "notch"}};
  b->type.clear();
  for (const auto& t : kTypes)
    if (type == t.name) b->type = t.type;
  if (b->type.empty())
    throw LineError{"unsupported filter type '" + w[i - 1] + "' (PK, LSC/LS, HSC/HS, LP, HP and NO are supported)"};
  bool has_fc = false, has_gain = false, has_q = false;
  while (i < w.size()) {
    const std::string key = upper(w[i]);
    if (key != "FC" && key != "GAIN" && key != "Q")
      throw LineError{"unsupported parameter '" + w[i] + "' (Fc, Gain and Q are supported)"};
    double v;
    if (i + 1 >= w.size() || !parse_number(w[i + 1], &v))
      throw LineError{"'" + w[i] + "' needs a number after it"};
    i += 2;
    auto unit = [&](const char* u) {
      if (i < w.size() && upper(w[i]) == u) ++i;
    };
    bool* seen;
    if (key == "FC") seen = &has_fc, b->freq = v, unit("HZ");
    else if (key == "GAIN") seen = &has_gain, b->gain_db = v, unit("DB");
    else seen = &has_q, b->q = v;
    if (*seen) throw LineError{"'" + w[i - 2] + "' given twice"};
    *seen = true;
  }
  if (!has_fc) throw LineError{"filter without Fc"};
  if (band_needs_gain(b->type) && !has_gain) throw LineError{type + " needs a Gain in dB"};
  if (!band_needs_gain(b->type) && has_gain) throw LineError{type + " takes no Gain"};
  if (!has_q) {
    if (b->type == "peak" || b->type == "notch") throw LineError{type + " needs a Q"};
    b->q = 0.7071;
  }
}

void check_ranges(const EqBand& b, double rate) {
  if (!(b.freq > 0 && b.freq < rate / 2))
    throw LineError{"Fc " + g_text(b.freq, 6) + " Hz is out of range (0 < Fc < " + g_text(rate / 2, 6) + " Hz)"};
  if (b.q < 0.05 || b.q > 50) throw LineError{"Q " + g_text(b.q, 6) + " is out of range (0.05..50)"};
  if (std::fabs(b.gain_db) > 24) throw LineError{"Gain " + g_text(b.gain_db, 6) + " dB is out of range (+-24 dB)"};
}

}  // namespace

bool looks_like_eq_text(const std::string& text) {
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    line = line.substr(0, line.find('#'));
    std::istringstream words(line);
    std::string first;
    if (!(words >> first)) continue;
    const std::string u = upper(first);
    return u.rfind("PREAMP", 0) == 0 || u.rfind("FILTER", 0) == 0 || u.rfind("CHANNEL", 0) == 0;
  }
  return false;
}

bool import_eq_text(std::istream& in, double rate, int max_bands, EqImport* out, std::string* error) {
  *out = EqImport{};
  bool sides[2] = {true, true};
  std::string line;
  for (int number_of_line = 1; std::getline(in, line); ++number_of_line) {
    line = line.substr(0, line.find('#'));
    const size_t colon = line.find(':');
    std::string head = line.substr(0, colon);
    std::istringstream hw(head);
    std::vector<std::string> w;
    for (std::string s; hw >> s;) w.push_back(s);
    if (w.empty() && colon == std::string::npos) continue;
    try {
      if (colon == std::string::npos || w.empty()) throw LineError{"expected 'Preamp:', 'Filter N:' or 'Channel:'"};
      std::istringstream tw(line.substr(colon + 1));
      std::vector<std::string> t;
      for (std::string s; tw >> s;) t.push_back(s);
      const std::string key = upper(w[0]);
      if (key == "PREAMP" && w.size() == 1) {
        double db;
        if (t.empty() || t.size() > 2 || !parse_number(t[0], &db) || (t.size() == 2 && upper(t[1]) != "DB"))
          throw LineError{"Preamp takes one value in dB"};
        if (std::fabs(db) > 40) throw LineError{"Preamp " + g_text(db, 6) + " dB is out of range (+-40 dB)"};
        if (out->has_preamp) throw LineError{"Preamp given twice"};
        out->has_preamp = true;
        out->preamp_db = db;
      } else if (key == "CHANNEL" && w.size() == 1) {
        sides[0] = sides[1] = false;
        for (const std::string& s : t) {
          const std::string u = upper(s);
          if (u == "L" || u == "ALL") sides[0] = true;
          if (u == "R" || u == "ALL") sides[1] = true;
          if (u != "L" && u != "R" && u != "ALL") throw LineError{"unsupported channel '" + s + "' (L, R or ALL)"};
        }
        if (!sides[0] && !sides[1]) throw LineError{"Channel names no channel"};
      } else if (key == "FILTER" && w.size() <= 2) {
        EqBand b;
        bool on = false;
        parse_filter(t, 0, &b, &on);
        if (!on) continue;
        check_ranges(b, rate);
        for (int side = 0; side < 2; ++side) {
          if (!sides[side]) continue;
          if (static_cast<int>(out->bands[side].size()) >= max_bands)
            throw LineError{"more filters than fit: the equalizer has " + std::to_string(max_bands) +
                            " bands per side"};
          out->bands[side].push_back(b);
        }
      } else {
        throw LineError{"unsupported statement '" + head + ":'"};
      }
    } catch (const LineError& e) {
      *error = "line " + std::to_string(number_of_line) + ": " + e.message;
      return false;
    }
  }
  return true;
}

}  // namespace kafx_tool
