// `kafx plot speaker CONFIG.xml [-o OUT.png] [--csv OUT.csv] [--rate HZ]`
//
// The magnitude response of a speaker configuration's parametric equalizer,
// both channels, input gain included, on a logarithmic frequency axis in dB,
// at each rate the product runs (44.1, 48, 96 and 192 kHz: the band records
// are the same numbers at every rate, so their frequencies scale with it),
// or at one rate with --rate. The response is the stored Q28 sections
// evaluated on the unit circle (band_db), which is what the fixed-point
// cascade does up to its rounding. PNG pages are drawn by PLplot's cairo
// driver ("pngcairo"), 800 x 600 pixels; --csv writes the plotted points.
//
// `kafx plot headphone` draws the headphone chain's built-in records (preset
// 3 and the adapter corrections) the same way. The library keeps those
// tables to itself, so the tool compiles its own copy of the generated
// table file (tools/hp_tables_copy.cpp).
#include "plot_cmd.h"

#include <plplot.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "../headphone/hp_effect_tables.h"
#include "host_audio.h"
#include "kafx_proc/equalizer.h"
#include "speaker_config_check.h"
#include "speaker_units.h"

namespace {

constexpr kafx_tool::Command kPlot{"plot"};

constexpr int kWidth = 800, kHeight = 600, kPoints = 400;

struct Curve {
  std::string title;
  double rate;
  std::vector<double> freq, db[2];
};

// Input gain (Q13) and ten band records per side, as the speaker and the
// headphone parametric equalizers both store them.
Curve eq_curve(const std::string& title, double rate, bool on, const int32_t gain[2],
               const int32_t (*left)[6], const int32_t (*right)[6]) {
  Curve c;
  c.title = title;
  c.rate = rate;
  const double top = rate * 0.499;
  for (int i = 0; i < kPoints; ++i) {
    const double f = 20 * std::pow(top / 20, i / (kPoints - 1.0));
    c.freq.push_back(f);
    for (int side = 0; side < 2; ++side) {
      const int32_t g = gain[side];
      double db = !on ? 0 : g > 0 ? kafx_tool::q13_to_db(g) : -200;
      for (int b = 0; b < 10 && on; ++b) {
        kafx_tool::BandRecord r;
        for (int k = 0; k < 6; ++k) r[k] = side ? right[b][k] : left[b][k];
        db += kafx_tool::band_db(r, f, rate);
      }
      c.db[side].push_back(std::max(db, -60.0));
    }
  }
  return c;
}

Curve speaker_curve(const kafx_sp_params_t& p, double rate) {
  return eq_curve("equalizer", rate, p.peq.enable != 0, p.peq.gain, p.peq.Lfilter, p.peq.Rfilter);
}

// The headphone chain's built-in records: preset 3 (parametric equalizer,
// unity input gain) and the seven adapter corrections, at 44.1 and 48 kHz
// (the 96 and 192 kHz adapter records are all zero: the chain is silent).
std::vector<Curve> headphone_curves() {
  std::vector<Curve> out;
  const int32_t unity[2] = {8192, 8192};
  const double rates[2] = {44100, 48000};
  for (int k = 0; k < 2; ++k) {
    const param_eq_param_acdb_t& r = kafx::kHpParametricPreset[k];
    out.push_back(eq_curve("headphone preset 3", rates[k], true, unity, r.left_band, r.right_band));
  }
  for (int k = 0; k < 2; ++k)
    for (int a = 0; a < KEDO_HP_EFFECT_ADAPTERS; ++a) {
      const param_eq_param_acdb_t& r = kafx::kHpAdapterTable[k][a];
      const int32_t gain[2] = {r.gain_left, r.gain_right};
      out.push_back(eq_curve("adapter " + std::to_string(a + 1), rates[k], true, gain, r.left_band, r.right_band));
    }
  return out;
}

// A graphic-equalizer index set: the library's own block is set from the
// indices at each rate with a table and its ten coefficient rows read back.
std::vector<Curve> geq_curves(const int* indices) {
  std::vector<Curve> out;
  const struct { double rate; SampleRateType type; } rates[] = {
      {44100, SAMPLE_RATE_44100}, {48000, SAMPLE_RATE_48000}, {96000, SAMPLE_RATE_96000}};
  for (const auto& r : rates) {
    equalizer_t eq;
    equalizer_init(&eq);
    equalizer_set_param_index(&eq, indices, r.type);
    int coef[EQUALIZER_BANDS][5];
    equalizer_getparameter(&eq, coef);
    int32_t rows[10][6];
    for (int b = 0; b < 10; ++b) {
      rows[b][0] = 1;
      for (int k = 0; k < 5; ++k) rows[b][k + 1] = coef[b][k];
    }
    const int32_t gain[2] = {eq.gain, eq.gain};
    out.push_back(eq_curve("graphic equalizer", r.rate, true, gain, rows, rows));
    equalizer_end(&eq);
  }
  return out;
}

// One page per curve in one PNG file.
bool draw(const std::vector<Curve>& curves, const std::string& title, const std::string& path) {
  plsdev("pngcairo");
  plsfnam(path.c_str());
  plspage(0, 0, kWidth, kHeight, 0, 0);
  const int cols = curves.size() > 4 ? 4 : 1;
  plssub(cols, static_cast<PLINT>((curves.size() + cols - 1) / cols));
  plscolbg(255, 255, 255);
  plinit();
  plscol0(1, 0, 0, 0);
  for (const Curve& c : curves) {
    double lo = 0, hi = 0;
    for (int s = 0; s < 2; ++s)
      for (double v : c.db[s]) lo = std::min(lo, v), hi = std::max(hi, v);
    lo = std::floor(lo / 6 - 1) * 6, hi = std::ceil(hi / 6 + 1) * 6;
    std::vector<double> lx;
    for (double f : c.freq) lx.push_back(std::log10(f));
    plcol0(1);
    plenv(lx.front(), lx.back(), lo, hi, 0, 12);  // log x, grid
    char label[160];
    if (cols > 1)  // small panels: short titles
      std::snprintf(label, sizeof label, "%s%s, %g kHz", title.c_str(), c.title.c_str(), c.rate / 1000);
    else
      std::snprintf(label, sizeof label, "%s%s at %g Hz (red left, blue right)", title.c_str(), c.title.c_str(), c.rate);
    pllab("frequency (Hz)", "dB", label);
    plscol0(2, 200, 0, 0);
    plcol0(2);
    plline(static_cast<PLINT>(lx.size()), lx.data(), c.db[0].data());
    plscol0(3, 0, 0, 200);
    plcol0(3);
    pllsty(2);
    plline(static_cast<PLINT>(lx.size()), lx.data(), c.db[1].data());
    pllsty(1);
  }
  plend();
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  std::fclose(f);
  return true;
}

bool write_csv(const std::vector<Curve>& curves, const std::string& path) {
  FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) return false;
  std::fprintf(f, "record,rate_hz,freq_hz,left_db,right_db\n");
  for (const Curve& c : curves)
    for (size_t i = 0; i < c.freq.size(); ++i)
      std::fprintf(f, "%s,%g,%.6g,%.4f,%.4f\n", c.title.c_str(), c.rate, c.freq[i], c.db[0][i], c.db[1][i]);
  return std::fclose(f) == 0;
}

}  // namespace

// PLplot loads its cairo driver through libltdl, and fontconfig keeps its
// font cache for the life of the process; in a sanitizer build the leak
// checker is told that those are theirs.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\nleak:libltdl.so\nleak:libcairo.so\nleak:libpango\nleak:libglib\nleak:libplplot\n";
}

const char* kafx_plot_usage() {
  return "usage: kafx plot speaker CONFIG.xml [-o OUT.png] [--csv OUT.csv] [--rate HZ]\n"
         "       kafx plot headphone [-o OUT.png] [--csv OUT.csv]\n"
         "       kafx plot geq I1,I2,...,I10 [-o OUT.png] [--csv OUT.csv]\n"
         "\n"
         "Draws the magnitude response (dB over a logarithmic frequency axis) of a\n"
         "speaker configuration's parametric equalizer, both channels with the input\n"
         "gain, one panel per rate (44100, 48000, 96000, 192000 Hz, or only --rate),\n"
         "as an 800 x 600 PNG; --csv writes the same points as text\n"
         "(record,rate_hz,freq_hz,left_db,right_db). At least one of -o and --csv.\n"
         "'headphone' draws the headphone chain's built-in parametric equalizer\n"
         "(preset 3) and the seven adapter corrections at 44100 and 48000 Hz; 'geq'\n"
         "the graphic equalizer set from ten gain indices (-15..15 dB steps) at\n"
         "44100, 48000 and 96000 Hz.\n";
}

int kafx_plot_main(int argc, char** argv) {
  std::string kind, input, png, csv;
  double rate = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "-h" || a == "--help") {
      std::fputs(kafx_plot_usage(), stdout);
      return 0;
    }
    if (a == "-o" || a == "--csv" || a == "--rate") {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "kafx plot: %s takes a value\n", a.c_str());
        return 2;
      }
      const std::string v = argv[++i];
      if (a == "-o") png = v;
      else if (a == "--csv") csv = v;
      else if ((rate = std::atof(v.c_str())) < 8000 || rate > 192000) {
        std::fprintf(stderr, "kafx plot: --rate takes 8000..192000 Hz\n");
        return 2;
      }
    } else if (kind.empty()) {
      kind = a;
    } else if (input.empty()) {
      input = a;
    } else {
      std::fprintf(stderr, "kafx plot: unexpected argument '%s'\n%s", a.c_str(), kafx_plot_usage());
      return 2;
    }
  }
  if ((kind != "speaker" && kind != "headphone" && kind != "geq") || (kind == "headphone") != input.empty() ||
      (png.empty() && csv.empty())) {
    std::fputs(kafx_plot_usage(), stderr);
    return 2;
  }
  if (kind == "headphone" || kind == "geq") {
    std::vector<Curve> curves;
    if (kind == "headphone") {
      curves = headphone_curves();
    } else {
      std::vector<int> idx;
      if (!kafx_tool::parse_int_list(input, EQUALIZER_BANDS, -EQUALIZER_MAX_INDEX, EQUALIZER_MAX_INDEX, &idx)) {
        std::fprintf(stderr, "kafx plot: geq takes ten comma-separated indices -15..15\n");
        return 2;
      }
      curves = geq_curves(idx.data());
    }
    if (!csv.empty() && !write_csv(curves, csv)) {
      return kPlot.failure("cannot write '" + csv + "'");
    }
    if (!png.empty() && !draw(curves, "", png)) {
      return kPlot.failure("cannot write '" + png + "'");
    }
    return 0;
  }
  const kafx_tool::ConfigCheck c = kafx_tool::check_speaker_config(input.c_str());
  if (!c.loaded) {
    return kPlot.failure(input + ": " + c.load_error);
  }
  std::vector<Curve> curves;
  if (rate > 0) curves.push_back(speaker_curve(c.record, rate));
  else
    for (double r : {44100.0, 48000.0, 96000.0, 192000.0}) curves.push_back(speaker_curve(c.record, r));
  if (!csv.empty() && !write_csv(curves, csv)) {
    return kPlot.failure("cannot write '" + csv + "'");
  }
  std::string base = input.substr(input.find_last_of('/') == std::string::npos ? 0 : input.find_last_of('/') + 1);
  if (!png.empty() && !draw(curves, base + ": ", png)) {
    return kPlot.failure("cannot write '" + png + "'");
  }
  return 0;
}
