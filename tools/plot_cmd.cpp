// `kafx plot speaker CONFIG.xml [-o OUT.png] [--csv OUT.csv] [--rate HZ]`
//
// The magnitude response of a speaker configuration's parametric equalizer,
// both channels, input gain included, on a logarithmic frequency axis in dB,
// at each rate the product runs (44.1, 48, 96 and 192 kHz: the band records
// are the same numbers at every rate, so their frequencies scale with it),
// or at one rate with --rate. Beside each equalizer panel, the speaker boost
// system's fixed filters at that rate: the pre-filter and the four crossover
// bands (low band: first crossover's low-pass branch; then each higher band
// is the high-pass branches so far and the next low-pass branch; the top band
// is the three high-pass branches; every branch is its section run twice).
// The crossover bands are drawn from the pre-filter's output, so that the
// pre-filter shows on its own curve. The response is the stored Q28 sections
// evaluated on the unit circle (band_db), which is what the fixed-point
// cascade does up to its rounding. PNG pages are drawn by PLplot's cairo
// driver ("pngcairo"), 800 x 600 pixels; --csv writes the plotted points.
//
// `kafx plot spectrogram IN.wav OUT.wav` draws the short-time spectra of a
// file before and after processing, one panel each (time_frequency.h).
//
// `kafx plot headphone` draws the headphone chain's built-in records (preset
// 3 and the adapter corrections) the same way. The library keeps those
// tables to itself, so the tool compiles its own copy of the generated
// table file (tools/hp_tables_copy.cpp).
#include "plot_cmd.h"

#include <plplot.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "../headphone/hp_effect_tables.h"
#include "../speaker/speaker_boost_system_tables.h"
#include "command_line.h"
#include "headphone_run.h"
#include "kafx_proc/hp_effect.h"
#include "time_frequency.h"
#include "kafx_proc/equalizer.h"
#include "speaker_config_check.h"
#include "speaker_units.h"
#include "wav_io.h"

namespace {

constexpr kafx_tool::Command kPlot{"plot"};

constexpr int kWidth = 800, kHeight = 600, kPoints = 400;

struct Curve {
  std::string title;
  double rate;
  std::vector<double> freq, db[2];
};

// A panel of the page: its curves and its title. One curve is drawn red
// (left) and dashed blue (right); several curves each in their own colour
// with a legend, the right side dashed over the left.
struct Panel {
  std::string title;
  std::vector<const Curve*> curves;
};

// kPoints frequencies from 20 Hz to just below rate / 2 (logarithmic), the
// level of each side from db_at(side, f), floored at -60 dB.
template <class DbAt>
Curve sampled_curve(const std::string& title, double rate, DbAt db_at) {
  Curve c;
  c.title = title;
  c.rate = rate;
  const double top = rate * 0.499;
  for (int i = 0; i < kPoints; ++i) {
    const double f = 20 * std::pow(top / 20, i / (kPoints - 1.0));
    c.freq.push_back(f);
    for (int side = 0; side < 2; ++side) c.db[side].push_back(std::max(db_at(side, f), -60.0));
  }
  return c;
}

// Input gain (Q13) and ten band records per side, as the speaker and the
// headphone parametric equalizers both store them.
Curve eq_curve(const std::string& title, double rate, bool on, const int32_t gain[2],
               const int32_t (*left)[6], const int32_t (*right)[6]) {
  return sampled_curve(title, rate, [&](int side, double f) {
    const int32_t g = gain[side];
    double db = !on ? 0 : g > 0 ? kafx_tool::q13_to_db(g) : -200;
    for (int b = 0; b < 10 && on; ++b) {
      kafx_tool::BandRecord r;
      for (int k = 0; k < 6; ++k) r[k] = side ? right[b][k] : left[b][k];
      db += kafx_tool::band_db(r, f, rate);
    }
    return db;
  });
}

Curve speaker_curve(const kafx_sp_params_t& p, double rate) {
  return eq_curve("equalizer", rate, p.peq.enable != 0, p.peq.gain, p.peq.Lfilter, p.peq.Rfilter);
}

// Level of one stored section (b0, b1, b2, a1, a2; Q28) at f.
double section_db(const int32_t* c, double f, double rate) {
  return kafx_tool::band_db({1, c[0], c[1], c[2], c[3], c[4]}, f, rate);
}

// The speaker boost system's rate class: 44100, 96000 and 192000 Hz have
// their own tables, every other rate runs on the 48000 Hz ones.
int boost_rate_class(double rate) {
  return rate == 44100 ? 0 : rate == 96000 ? 2 : rate == 192000 ? 3 : 1;
}

// The pre-filter and the four crossover bands at `rate` (both channels run
// the same tables; see the top of the file for the band structure).
std::vector<Curve> boost_curves(double rate) {
  namespace t = kafx::sbs_tables;
  const int rc = boost_rate_class(rate);
  const t::CrossoverSet& xo = t::crossover_for(rc);
  std::vector<Curve> out;
  out.push_back(sampled_curve("pre-filter", rate, [&](int, double f) { return section_db(t::kPreFilter[rc], f, rate); }));
  for (int band = 0; band < 4; ++band)
    out.push_back(sampled_curve("crossover band " + std::to_string(band + 1), rate, [&](int, double f) {
      double db = 0;
      for (int split = 0; split < band; ++split) db += 2 * section_db(xo.coef[2 * split + 1], f, rate);
      if (band < 3) db += 2 * section_db(xo.coef[2 * band], f, rate);
      return db;
    }));
  return out;
}

// A preset's response measured through the library's headphone front end
// (32-bit host samples): the preset is set, its fade settles on 1 s of
// silence, then a -20 dBFS impulse enters one side and the first 16384
// frames of that side's output are taken; the level at f is that of their
// Fourier sum over the impulse. Presets with a non-linear stage (virtual
// bass) or a long tail (reverb, cut at 0.34 s) give the small-signal,
// truncated response.
Curve measured_preset_curve(int effect, double rate) {
  constexpr int kBlock = 480, kSettle = 100, kTaken = 16384;
  constexpr double kImpulse = 0.1 * 2147483647.0;
  std::vector<double> response[2];
  for (int side = 0; side < 2; ++side) {
    void* h = kafx_hp_effect_init(static_cast<unsigned>(rate), 3);
    if (h == nullptr) break;
    audio_effect_control_acdb_t rec{};
    rec.effect_type = effect;
    if (effect == KEDO_HP_EFFECT_REVERB)
      std::copy(std::begin(kHeadphoneDefaultReverb), std::end(kHeadphoneDefaultReverb), rec.effect_data);
    kafx_hp_effect_set_parameters(h, &rec);
    std::vector<int32_t> buf(2 * kBlock);
    for (int b = 0; b < kSettle; ++b) {
      std::fill(buf.begin(), buf.end(), 0);
      kafx_hp_effect_process(h, buf.data(), static_cast<unsigned>(buf.size() * sizeof(int32_t)));
    }
    for (int done = 0; done < kTaken; done += kBlock) {
      std::fill(buf.begin(), buf.end(), 0);
      if (done == 0) buf[static_cast<size_t>(side)] = static_cast<int32_t>(kImpulse);
      kafx_hp_effect_process(h, buf.data(), static_cast<unsigned>(buf.size() * sizeof(int32_t)));
      for (int i = 0; i < kBlock && done + i < kTaken; ++i) response[side].push_back(buf[2 * static_cast<size_t>(i) + side]);
    }
    kafx_hp_effect_deinit(h);
  }
  return sampled_curve("headphone preset " + std::to_string(effect) + " (measured)", rate, [&](int side, double f) {
    const std::vector<double>& y = response[side];
    // The sum of y[n] e^(-j w n) with the phasor advanced by one rotation per
    // sample.
    const double w = 2 * M_PI * f / rate;
    const double cw = std::cos(w), sw = -std::sin(w);
    double re = 0, im = 0, pr = 1, pi = 0;
    for (double v : y) {
      re += v * pr;
      im += v * pi;
      const double t = pr * cw - pi * sw;
      pi = pr * sw + pi * cw;
      pr = t;
    }
    const double mag = std::hypot(re, im) / kImpulse;
    return mag > 0 ? 20 * std::log10(mag) : -200.0;
  });
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
  for (int effect : {KEDO_HP_EFFECT_STEREO_WIDENING, KEDO_HP_EFFECT_VIRTUAL_BASS, KEDO_HP_EFFECT_PARAMETRIC_EQ,
                     KEDO_HP_EFFECT_REVERB})
    for (double rate : rates) out.push_back(measured_preset_curve(effect, rate));
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

// The panels on one 800 x 600 PNG page, `cols` to a row.
bool draw(const std::vector<Panel>& panels, int cols, const std::string& path) {
  plsdev("pngcairo");
  plsfnam(path.c_str());
  plspage(0, 0, kWidth, kHeight, 0, 0);
  const PLINT rows = static_cast<PLINT>((panels.size() + cols - 1) / cols);
  plssub(cols, rows);
  plscolbg(255, 255, 255);
  plinit();
  if (cols > 1 && rows == 1) plschr(0, 0.7);  // PLplot scales text with the panel: keep the titles inside
  plscol0(1, 0, 0, 0);
  // Colours of a panel with several curves (the first is black).
  const int kColours[][3] = {{0, 0, 0}, {200, 0, 0}, {0, 140, 0}, {0, 0, 200}, {180, 0, 180}, {200, 120, 0}};
  constexpr int kColourCount = sizeof kColours / sizeof kColours[0];
  for (int i = 0; i < kColourCount; ++i) plscol0(4 + i, kColours[i][0], kColours[i][1], kColours[i][2]);
  plscol0(2, 200, 0, 0);
  plscol0(3, 0, 0, 200);
  for (const Panel& panel : panels) {
    double lo = 0, hi = 0;
    for (const Curve* c : panel.curves)
      for (int s = 0; s < 2; ++s)
        for (double v : c->db[s]) lo = std::min(lo, v), hi = std::max(hi, v);
    lo = std::floor(lo / 6 - 1) * 6, hi = std::ceil(hi / 6 + 1) * 6;
    std::vector<double> lx;
    for (double f : panel.curves.front()->freq) lx.push_back(std::log10(f));
    plcol0(1);
    plenv(lx.front(), lx.back(), lo, hi, 0, 12);  // log x, grid
    pllab("frequency (Hz)", "dB", panel.title.c_str());
    const bool several = panel.curves.size() > 1;
    std::vector<PLINT> opts, colours, styles;
    std::vector<PLFLT> widths;
    std::vector<const char*> names;
    for (size_t k = 0; k < panel.curves.size(); ++k) {
      const Curve& c = *panel.curves[k];
      const PLINT colour = several ? 4 + static_cast<PLINT>(k % kColourCount) : 2;
      plcol0(colour);
      plline(static_cast<PLINT>(lx.size()), lx.data(), c.db[0].data());
      plcol0(several ? colour : 3);
      pllsty(2);
      plline(static_cast<PLINT>(lx.size()), lx.data(), c.db[1].data());
      pllsty(1);
      opts.push_back(PL_LEGEND_LINE), colours.push_back(colour), styles.push_back(1), widths.push_back(1);
      names.push_back(c.title.c_str());
    }
    if (several) {
      PLFLT w = 0, h = 0;
      pllegend(&w, &h, PL_LEGEND_BACKGROUND | PL_LEGEND_BOUNDING_BOX, PL_POSITION_LEFT | PL_POSITION_BOTTOM | PL_POSITION_INSIDE,
               0.01, 0.01, 0.06, 0, 1, 1, 0, 0, static_cast<PLINT>(names.size()), opts.data(), 0.6, 0.6, 1.5, 0,
               colours.data(), names.data(), nullptr, nullptr, nullptr, nullptr, colours.data(), styles.data(),
               widths.data(), nullptr, nullptr, nullptr, nullptr);
    }
  }
  plend();
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  std::fclose(f);
  return true;
}

// One panel per curve, titled as the headphone and graphic-equalizer pages are.
std::vector<Panel> single_panels(const std::vector<Curve>& curves, int cols) {
  std::vector<Panel> out;
  char label[160];
  for (const Curve& c : curves) {
    if (cols > 1)  // small panels: short titles
      std::snprintf(label, sizeof label, "%s, %g kHz", c.title.c_str(), c.rate / 1000);
    else
      std::snprintf(label, sizeof label, "%s at %g Hz (red left, blue right)", c.title.c_str(), c.rate);
    out.push_back({label, {&c}});
  }
  return out;
}

// A CSV file: the header line, then what `rows` prints; whether it was all
// written.
template <class Rows>
bool write_csv_file(const std::string& path, const char* header, Rows&& rows) {
  FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) return false;
  std::fprintf(f, "%s\n", header);
  rows(f);
  return std::fclose(f) == 0;
}

bool write_csv(const std::vector<Curve>& curves, const std::string& path) {
  return write_csv_file(path, "record,rate_hz,freq_hz,left_db,right_db", [&](FILE* f) {
    for (const Curve& c : curves)
      for (size_t i = 0; i < c.freq.size(); ++i)
        std::fprintf(f, "%s,%g,%.6g,%.4f,%.4f\n", c.title.c_str(), c.rate, c.freq[i], c.db[0][i], c.db[1][i]);
  });
}

// --- spectrogram ---------------------------------------------------------------

constexpr int kSpectrogramFrames = 400;  // columns at most
constexpr int kSpectrogramRows = 300;    // rows of a logarithmic frequency axis
constexpr double kSpectrogramRangeDb = 100;

struct Signal {
  std::string role, path;  // "input" / "output"
  kafx_tool::Spectrogram s;
};

// Level at frequency f, interpolated between the two nearest bins (in dB).
double level_at(const std::vector<double>& db, double bin_hz, double f) {
  const double x = std::clamp(f / bin_hz, 0.0, static_cast<double>(db.size() - 1));
  const size_t k = std::min(static_cast<size_t>(x), db.size() - 2);
  return db[k] + (x - static_cast<double>(k)) * (db[k + 1] - db[k]);
}

// Two panels (input above, output below): time across, frequency up (from
// 20 Hz or the first bin on a logarithmic axis, from 0 on a linear one), the
// level as colour over the top kSpectrogramRangeDb dB of both files.
bool draw_spectrograms(const std::vector<Signal>& signals, bool linear, const std::string& path) {
  double top = -300;
  for (const Signal& g : signals)
    for (const auto& col : g.s.db)
      for (double v : col) top = std::max(top, v);
  top = std::ceil(top / 10) * 10;
  const double bottom = top - kSpectrogramRangeDb;
  plsdev("pngcairo");
  plsfnam(path.c_str());
  plspage(0, 0, kWidth, kHeight, 0, 0);
  plssub(1, static_cast<PLINT>(signals.size()));
  plscolbg(255, 255, 255);
  plinit();
  plscol0(1, 0, 0, 0);
  // Colour map: black, blue, red, yellow, white from the lowest to the highest level.
  const PLFLT pos[] = {0, 0.25, 0.55, 0.8, 1};
  const PLFLT r[] = {0, 0.1, 0.85, 1, 1}, g[] = {0, 0.1, 0.1, 0.85, 1}, b[] = {0, 0.6, 0.2, 0.1, 1};
  plscmap1n(256);
  plscmap1l(1, 5, pos, r, g, b, nullptr);
  for (const Signal& sig : signals) {
    const kafx_tool::Spectrogram& s = sig.s;
    const size_t nx = s.db.size();
    const double nyquist = s.rate / 2.0;
    const double f0 = linear ? 0 : std::max(20.0, s.bin_hz());
    const size_t ny = linear ? s.db.front().size() : kSpectrogramRows;
    std::vector<std::vector<PLFLT>> grid(nx, std::vector<PLFLT>(ny));
    std::vector<const PLFLT*> rows(nx);
    for (size_t x = 0; x < nx; ++x) {
      for (size_t y = 0; y < ny; ++y) {
        const double v = linear ? s.db[x][y]
                                : level_at(s.db[x], s.bin_hz(), f0 * std::pow(nyquist / f0, (y + 0.5) / ny));
        grid[x][y] = std::clamp(v, bottom, top);
      }
      rows[x] = grid[x].data();
    }
    const double hop = nx > 1 ? s.time_s[1] - s.time_s[0] : static_cast<double>(s.fft) / s.rate;
    const double t0 = std::max(0.0, s.time_s.front() - hop / 2), t1 = s.time_s.back() + hop / 2;
    const double y0 = linear ? 0 : std::log10(f0), y1 = linear ? nyquist : std::log10(nyquist);
    pladv(0);
    plcol0(1);
    plvpor(0.09, 0.86, 0.15, 0.87);
    plwind(t0, t1, y0, y1);
    plimage(rows.data(), static_cast<PLINT>(nx), static_cast<PLINT>(ny), t0, t1, y0, y1, bottom, top, t0, t1, y0, y1);
    plbox("bcnst", 0, 0, linear ? "bcnstv" : "bcnstlv", 0, 0);
    char title[400];
    std::snprintf(title, sizeof title, "%s: %s (%d Hz, %d-point frames)", sig.role.c_str(), sig.path.c_str(), s.rate,
                  s.fft);
    pllab("time (s)", "frequency (Hz)", title);
    if (&sig != &signals.back()) continue;  // one colour bar: both panels share the scale
    PLFLT w = 0, h = 0;
    const PLINT label_opts[] = {PL_COLORBAR_LABEL_TOP};
    const char* labels[] = {"dB"};
    const char* axis_opts[] = {"bcvtm"};
    const PLFLT ticks[] = {0};
    const PLINT sub_ticks[] = {0};
    const PLINT n_values[] = {2};
    const PLFLT range[] = {bottom, top};
    const PLFLT* values[] = {range};
    plcolorbar(&w, &h, PL_COLORBAR_IMAGE, PL_POSITION_RIGHT | PL_POSITION_OUTSIDE, 0.02, 0, 0.03, 0.9, 0, 1, 1, 0, 0, 0,
               0, 1, label_opts, labels, 1, axis_opts, ticks, sub_ticks, n_values, values);
  }
  plend();
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  std::fclose(f);
  return true;
}

bool write_spectrogram_csv(const std::vector<Signal>& signals, const std::string& path) {
  return write_csv_file(path, "signal,time_s,freq_hz,db", [&](FILE* f) {
    for (const Signal& g : signals)
      for (size_t x = 0; x < g.s.db.size(); ++x)
        for (size_t k = 0; k < g.s.db[x].size(); ++k)
          std::fprintf(f, "%s,%.6g,%.6g,%.2f\n", g.role.c_str(), g.s.time_s[x], static_cast<double>(k) * g.s.bin_hz(),
                       g.s.db[x][k]);
  });
}

int spectrogram_main(const std::string& in, const std::string& out, int fft, bool linear, const std::string& png,
                     const std::string& csv) {
  std::vector<Signal> signals = {{"input", in, {}}, {"output", out, {}}};
  for (Signal& g : signals) {
    kafx_tool::PcmAudio audio;
    std::string error;
    if (!kafx_tool::read_pcm(g.path, &audio, &error)) return kPlot.failure(error);
    g.s = kafx_tool::compute_spectrogram(audio, fft, kSpectrogramFrames);
    const size_t slash = g.path.find_last_of('/');
    g.path = g.path.substr(slash == std::string::npos ? 0 : slash + 1);
  }
  if (!csv.empty() && !write_spectrogram_csv(signals, csv)) return kPlot.failure("cannot write '" + csv + "'");
  if (!png.empty() && !draw_spectrograms(signals, linear, png)) return kPlot.failure("cannot write '" + png + "'");
  return 0;
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
         "       kafx plot spectrogram IN.wav OUT.wav [-o OUT.png] [--csv OUT.csv]\n"
         "                             [--fft N] [--linear]\n"
         "\n"
         "Draws the magnitude response (dB over a logarithmic frequency axis) of a\n"
         "speaker configuration's parametric equalizer, both channels with the input\n"
         "gain, and beside it the speaker boost system's pre-filter and its four\n"
         "crossover bands (from the pre-filter's output), one row per rate (44100,\n"
         "48000, 96000, 192000 Hz, or only --rate), as an 800 x 600 PNG; --csv\n"
         "writes the same points as text (record,rate_hz,freq_hz,left_db,right_db;\n"
         "records 'equalizer', 'pre-filter', 'crossover band 1' .. 'crossover band\n"
         "4'). At least one of -o and --csv.\n"
         "'headphone' draws the headphone chain's built-in parametric equalizer\n"
         "(preset 3) and the seven adapter corrections at 44100 and 48000 Hz, and\n"
         "presets 1 to 4 measured through the product (a -20 dBFS impulse on each\n"
         "side, the first 16384 output frames: small-signal, truncated); 'geq'\n"
         "the graphic equalizer set from ten gain indices (-15..15 dB steps) at\n"
         "44100, 48000 and 96000 Hz.\n"
         "'spectrogram' draws the short-time spectra of an input file and of its\n"
         "processed output (16-, 24- or 32-bit PCM WAV; channels averaged), one panel\n"
         "each: time across, frequency up (logarithmic, or linear with --linear),\n"
         "level in dB of a full-scale sine as colour over the top 100 dB. Frames of N\n"
         "samples (--fft, a power of two 64..65536, default 1024), Hann window, at\n"
         "most 400 frames per file, overlapping by at least half. --csv writes every\n"
         "bin as text (signal,time_s,freq_hz,db; signal 'input' or 'output').\n";
}

int kafx_plot_main(int argc, char** argv) {
  std::string kind, input, second, png, csv;
  double rate = 0;
  int fft = 1024;
  bool linear = false;
  auto option = [&](const std::string& a, const char* v) -> int {
    if (a == "-o") {
      png = v;
    } else if (a == "--csv") {
      csv = v;
    } else if (a == "--fft") {
      if (!kafx_tool::parse_int(v, 64, 65536, &fft) || (fft & (fft - 1)) != 0)
        return kPlot.usage_error("--fft takes a power of two from 64 to 65536");
    } else if (a == "--rate") {
      if ((rate = std::atof(v)) < 8000 || rate > 192000) return kPlot.usage_error("--rate takes 8000..192000 Hz");
    } else if (a == "--linear") {
      linear = true;
    }
    return 0;
  };
  std::vector<std::string> args;
  if (const int rc = kafx_tool::parse_command_line(
          kPlot, argc, argv, kafx_plot_usage(),
          {{"-o", true}, {"--csv", true}, {"--rate", true}, {"--fft", true}, {"--linear", false}}, option,
          {1, 3, "a kind: speaker, headphone, geq or spectrogram"}, &args);
      rc != 0)
    return rc < 0 ? 0 : rc;
  // The kind, then its one or two arguments (the order of these and of the
  // options is free).
  kind = args[0];
  if (args.size() > 1) input = args[1];
  if (args.size() > 2) {
    if (kind != "spectrogram") return kPlot.usage_error("unexpected argument '" + args[2] + "'");
    second = args[2];
  }
  if ((kind != "speaker" && kind != "headphone" && kind != "geq" && kind != "spectrogram") ||
      (kind == "headphone") != input.empty() || (kind == "spectrogram") != !second.empty() ||
      (png.empty() && csv.empty())) {
    std::fputs(kafx_plot_usage(), stderr);
    return 2;
  }
  if (kind == "spectrogram") return spectrogram_main(input, second, fft, linear, png, csv);
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
    const int cols = curves.size() > 4 ? 4 : 1;
    if (!png.empty() && !draw(single_panels(curves, cols), cols, png)) {
      return kPlot.failure("cannot write '" + png + "'");
    }
    return 0;
  }
  const kafx_tool::ConfigCheck c = kafx_tool::check_speaker_config(input.c_str());
  if (!c.loaded) {
    return kPlot.failure(input + ": " + c.load_error);
  }
  std::vector<double> rates = {44100, 48000, 96000, 192000};
  if (rate > 0) rates = {rate};
  // Per rate: the equalizer, then the boost system's five curves.
  std::vector<Curve> curves;
  for (double r : rates) {
    curves.push_back(speaker_curve(c.record, r));
    for (Curve& b : boost_curves(r)) curves.push_back(std::move(b));
  }
  if (!csv.empty() && !write_csv(curves, csv)) {
    return kPlot.failure("cannot write '" + csv + "'");
  }
  const size_t slash = input.find_last_of('/');
  const std::string base = input.substr(slash == std::string::npos ? 0 : slash + 1);
  std::vector<Panel> panels;
  char label[240];
  for (size_t k = 0; k < rates.size(); ++k) {
    const Curve* at = &curves[k * 6];
    std::snprintf(label, sizeof label, "%s: equalizer, %g kHz (left red, right blue)", base.c_str(), rates[k] / 1000);
    panels.push_back({label, {at}});
    std::snprintf(label, sizeof label, "boost system filters, %g kHz (%s)", rates[k] / 1000,
                  c.record.sbs.enable != 0 ? "on" : "off in this file");
    panels.push_back({label, {at + 1, at + 2, at + 3, at + 4, at + 5}});
  }
  if (!png.empty() && !draw(panels, 2, png)) {
    return kPlot.failure("cannot write '" + png + "'");
  }
  return 0;
}
