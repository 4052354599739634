#include "headphone_run.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "audio_summary.h"
#include "command_line.h"
#include "eq_import.h"
#include "host_audio.h"
#include "kafx_proc/hp_effect.h"
#include "speaker_units.h"
#include "test_signal.h"
#include "stream_runner.h"
#include "wav_io.h"

namespace {

using kafx_tool::HostBuffer;
using kafx_tool::PcmAudio;

constexpr int kDefaultBlock = 480;  // 10 ms at 48 kHz
constexpr int kMaxBlock = 1 << 20;
constexpr int kDataWords = 29;      // effect_data
constexpr int kReverbValues = 6;
constexpr int kGeqValues = EQUALIZER_BANDS;

struct Options {
  int effect = -1;   // -1: not given
  int adapter = -1;
  std::string record_in;
  std::string record_out;
  std::vector<int> reverb;
  std::vector<int> geq;
  std::string eq_import;  // equalizer text for preset 3's parametric equalizer
  int format_bits = 0;  // 0: follow the file
  int block = kDefaultBlock;
  bool strict = false;
  std::string in_path;
  std::string out_path;
};

constexpr kafx_tool::Command kCmd{"headphone"};

// Returns 0 when the options are complete, otherwise an exit code (-1: help shown).
int parse_options(int argc, char** argv, Options* o) {
  auto option = [o](const std::string& a, const char* v) -> int {
    if (a == "--strict") {
      o->strict = true;
    } else if (a == "--effect") {
      if (!kafx_tool::parse_int(v, 0, 5, &o->effect)) return kCmd.usage_error("--effect must be 0 to 5");
    } else if (a == "--adapter") {
      if (!kafx_tool::parse_int(v, 0, 7, &o->adapter)) return kCmd.usage_error("--adapter must be 0 to 7");
    } else if (a == "--record") {
      o->record_in = v;
    } else if (a == "--save-record") {
      o->record_out = v;
    } else if (a == "--reverb") {
      if (!kafx_tool::parse_int_list(v, kReverbValues, INT32_MIN, INT32_MAX, &o->reverb))
        return kCmd.usage_error("--reverb needs six comma-separated integers: room,damp,wet,dry,width,gain");
    } else if (a == "--geq") {
      if (!kafx_tool::parse_int_list(v, kGeqValues, -15, 15, &o->geq))
        return kCmd.usage_error("--geq needs ten comma-separated gain steps from -15 to 15");
    } else if (a == "--eq-import") {
      o->eq_import = v;
    } else if (a == "--format") {
      return kafx_tool::parse_format_option(kCmd, v, &o->format_bits);
    } else if (a == "--block") {
      return kafx_tool::parse_block_option(kCmd, v, kMaxBlock, &o->block);
    }
    return 0;
  };
  const int rc = kafx_tool::parse_in_out_command_line(kCmd, argc, argv, kafx_headphone_usage(),
                                                      {{"--strict", false},
                                                       {"--effect", true},
                                                       {"--adapter", true},
                                                       {"--record", true},
                                                       {"--save-record", true},
                                                       {"--reverb", true},
                                                       {"--geq", true},
                                                       {"--eq-import", true},
                                                       {"--format", true},
                                                       {"--block", true}},
                                                      option, "[IN.wav] OUT.wav", &o->in_path, &o->out_path);
  if (rc != 0) return rc;
  if (!o->reverb.empty() && !o->geq.empty()) return kCmd.usage_error("--reverb and --geq exclude each other");
  if (!o->eq_import.empty() && (!o->reverb.empty() || !o->geq.empty()))
    return kCmd.usage_error("--eq-import excludes --reverb and --geq");
  if (!o->eq_import.empty() && o->effect >= 0 && o->effect != KEDO_HP_EFFECT_PARAMETRIC_EQ)
    return kCmd.usage_error("--eq-import fills preset 3 (parametric equalizer): --effect must be 3 or left out");
  return 0;
}

// --- the record file --------------------------------------------------------

// The calibration record, and optionally a parametric equalizer that replaces
// preset 3's built-in bands (the 31-int record has no room for bands: the
// file carries them as param_eq.* lines, with the rate they were designed at).
struct RecordFile {
  audio_effect_control_acdb_t record{};
  bool has_eq = false;
  param_eq_param_acdb_t eq{};
  int eq_rate = 0;  // Hz; 0: not stated
};

constexpr int kEqBands = PARAMETER_EQUALIZER_BANDS;

std::string band_name(int side, int band) {
  return std::string(side == 0 ? "param_eq.left_band[" : "param_eq.right_band[") + std::to_string(band) + "]";
}

// One param_eq.* field: false when `name` is not one; otherwise *error says
// what is wrong with the value, if anything.
bool read_eq_field(const std::string& name, const std::string& value, RecordFile* f, std::string* error) {
  int v = 0;
  int32_t* word = name == "param_eq.status" ? &f->eq.status
                  : name == "param_eq.gain_left" ? &f->eq.gain_left
                  : name == "param_eq.gain_right" ? &f->eq.gain_right
                                                  : nullptr;
  if (word != nullptr || name == "param_eq.design_rate") {
    if (!kafx_tool::parse_int(value.c_str(), name == "param_eq.design_rate" ? 8000 : INT32_MIN,
                              name == "param_eq.design_rate" ? 192000 : INT32_MAX, &v))
      *error = "'" + value + "' is not a valid " + name;
    else if (word != nullptr) *word = v;
    else f->eq_rate = v;
    f->has_eq = true;
    return true;
  }
  for (int side = 0; side < 2; ++side)
    for (int b = 0; b < kEqBands; ++b) {
      if (name != band_name(side, b)) continue;
      std::vector<int> six;
      if (!kafx_tool::parse_int_list(value, 6, INT32_MIN, INT32_MAX, &six))
        *error = name + " needs six comma-separated integers: enable,b0,b1,b2,a1,a2";
      else std::copy(six.begin(), six.end(), side == 0 ? f->eq.left_band[b] : f->eq.right_band[b]);
      f->has_eq = true;
      return true;
    }
  return false;
}

std::string data_name(int i) { return "effect_data[" + std::to_string(i) + "]"; }

// What effect_data[i] means for the record's preset, for the comments.
const char* data_meaning(int effect, int i) {
  static const char* const kReverb[kReverbValues] = {"roomsize", "damp", "wet", "dry", "width", "gain"};
  if (effect == KEDO_HP_EFFECT_REVERB && i < kReverbValues) return kReverb[i];
  if (effect == KEDO_HP_EFFECT_GRAPHIC_EQ && i < kGeqValues) return "graphic equalizer band step (dB)";
  return nullptr;
}

// Reads "name = value" lines (see the usage text). Returns false with a
// reason in *error.
bool read_record(const std::string& path, RecordFile* file, std::string* error) {
  std::ifstream f(path);
  if (!f) {
    *error = "cannot read record '" + path + "'";
    return false;
  }
  *file = RecordFile{};
  audio_effect_control_acdb_t* r = &file->record;
  std::vector<bool> seen(2 + kDataWords, false);
  std::vector<std::string> seen_eq;
  std::string line;
  for (int number = 1; std::getline(f, line); ++number) {
    line = line.substr(0, line.find('#'));
    const auto first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos) continue;
    const std::string where = path + ":" + std::to_string(number) + ": ";
    const size_t eq = line.find('=');
    if (eq == std::string::npos) {
      *error = where + "expected 'name = value'";
      return false;
    }
    std::string name = line.substr(first, eq - first), value = line.substr(eq + 1);
    name.erase(name.find_last_not_of(" \t") + 1);
    value.erase(0, value.find_first_not_of(" \t"));
    value.erase(value.find_last_not_of(" \t\r") + 1);
    if (name.rfind("param_eq.", 0) == 0) {
      if (std::find(seen_eq.begin(), seen_eq.end(), name) != seen_eq.end()) *error = where + "'" + name + "' given twice";
      else if (!read_eq_field(name, value, file, error)) *error = where + "unknown field '" + name + "'";
      else if (!error->empty()) *error = where + *error;
      if (!error->empty()) return false;
      seen_eq.push_back(name);
      continue;
    }
    int slot = -1;
    if (name == "effect_type") slot = 0;
    if (name == "hpadapter_type") slot = 1;
    for (int i = 0; i < kDataWords && slot < 0; ++i)
      if (name == data_name(i)) slot = 2 + i;
    int v = 0;
    if (slot < 0) *error = where + "unknown field '" + name + "'";
    else if (seen[static_cast<size_t>(slot)]) *error = where + "'" + name + "' given twice";
    else if (!kafx_tool::parse_int(value.c_str(), INT32_MIN, INT32_MAX, &v)) *error = where + "'" + value + "' is not a 32-bit integer";
    if (!error->empty()) return false;
    seen[static_cast<size_t>(slot)] = true;
    if (slot == 0) r->effect_type = v;
    else if (slot == 1) r->hpadapter_type = v;
    else r->effect_data[slot - 2] = v;
  }
  return true;
}

bool write_record(const std::string& path, const RecordFile& file, std::string* error) {
  const audio_effect_control_acdb_t& r = file.record;
  std::ostringstream s;
  s << "# kafx headphone calibration record (audio_effect_control_acdb_t)\n"
    << "# effect_type: 0 none, 1 stereo widening, 2 virtual bass, 3 parametric eq, 4 reverb, 5 graphic eq\n"
    << "# hpadapter_type: 0 none, 1..7 headphone adapter correction\n"
    << "effect_type = " << r.effect_type << "\n"
    << "hpadapter_type = " << r.hpadapter_type << "\n";
  for (int i = 0; i < kDataWords; ++i) {
    s << data_name(i) << " = " << r.effect_data[i];
    if (const char* m = data_meaning(r.effect_type, i)) s << "  # " << m;
    s << "\n";
  }
  if (file.has_eq) {
    const param_eq_param_acdb_t& e = file.eq;
    s << "# parametric equalizer loaded over preset 3's built-in bands once the preset is applied\n"
      << "# (param_eq_param_acdb_t; gains Q13, bands enable,b0,b1,b2,a1,a2 in Q28)\n"
      << "param_eq.design_rate = " << file.eq_rate << "\n"
      << "param_eq.status = " << e.status << "\n"
      << "param_eq.gain_left = " << e.gain_left << "\n"
      << "param_eq.gain_right = " << e.gain_right << "\n";
    for (int side = 0; side < 2; ++side)
      for (int b = 0; b < kEqBands; ++b) {
        const int32_t* v = side == 0 ? e.left_band[b] : e.right_band[b];
        s << band_name(side, b) << " = " << v[0] << "," << v[1] << "," << v[2] << "," << v[3] << "," << v[4] << ","
          << v[5] << "\n";
      }
  }
  std::ofstream f(path);
  f << s.str();
  f.close();
  if (!f) *error = "cannot write record '" + path + "'";
  return static_cast<bool>(f);
}

// The imported equalizer text designed at `rate`: the preamp as both input
// gains (unity without one), each side's filters as its first bands, the
// rest switched off. Returns false with "FILE: line N: ..." in *error.
bool design_import(const std::string& path, int rate, RecordFile* file, std::string* error) {
  std::ifstream in(path);
  if (!in) {
    *error = "cannot read '" + path + "'";
    return false;
  }
  kafx_tool::EqImport eq;
  if (!kafx_tool::import_eq_text(in, rate, kEqBands, &eq, error)) {
    *error = path + ": " + *error;
    return false;
  }
  param_eq_param_acdb_t& e = file->eq;
  try {
    e.status = 1;
    e.gain_left = e.gain_right = eq.has_preamp ? kafx_tool::db_to_q13(eq.preamp_db) : 8192;
    for (int side = 0; side < 2; ++side)
      for (int b = 0; b < kEqBands; ++b) {
        const kafx_tool::BandRecord r = b < static_cast<int>(eq.bands[side].size())
                                            ? kafx_tool::design_band(eq.bands[side][static_cast<size_t>(b)], rate)
                                            : kafx_tool::kPassThroughOff;
        std::copy(r.begin(), r.end(), side == 0 ? e.left_band[b] : e.right_band[b]);
      }
  } catch (const std::range_error& x) {
    *error = path + ": " + x.what();
    return false;
  }
  file->has_eq = true;
  file->eq_rate = rate;
  return true;
}

// Lets the preset switch that the record started finish on silence (the
// chain applies a preset's built-in bands part-way through its fade), then
// loads `eq` into the chain's parametric equalizer and clears every block's
// history, so that the file is processed with the equalizer from its first
// frame. False if the fade does not settle.
bool load_parametric_eq(void* handle, const param_eq_param_acdb_t& eq) {
  auto* h = static_cast<kafx_hp_effect_t*>(handle);
  std::vector<int32_t> silence(2 * KAFX_HP_EFFECT_BLOCK_240);
  const unsigned bytes = static_cast<unsigned>(KAFX_HP_EFFECT_BLOCK_240 * 2 * h->bytes_per_sample);
  auto settled = [h] {
    const smooth_volume_t* v = h->chain.smooth_volume;
    return h->chain.fade_state == -1 && v->current_gain == v->target_gain;
  };
  for (int i = 0; i < 100 && !settled(); ++i) {
    std::fill(silence.begin(), silence.end(), 0);
    kafx_hp_effect_process(handle, silence.data(), bytes);
  }
  if (!settled()) return false;
  kedo_hp_effect_p_eq_setparameter(&h->chain, &eq);
  kafx_hp_effect_reset(handle);
  return true;
}

// The record from the file (if any), then the command line's fields over it.
audio_effect_control_acdb_t build_record(const Options& o, const audio_effect_control_acdb_t& from_file) {
  audio_effect_control_acdb_t r = from_file;
  if (o.effect >= 0) r.effect_type = o.effect;
  else if (!o.eq_import.empty()) r.effect_type = KEDO_HP_EFFECT_PARAMETRIC_EQ;
  else if (!o.reverb.empty()) r.effect_type = KEDO_HP_EFFECT_REVERB;
  else if (!o.geq.empty()) r.effect_type = KEDO_HP_EFFECT_GRAPHIC_EQ;
  if (o.adapter >= 0) r.hpadapter_type = o.adapter;
  if (!o.reverb.empty()) std::copy(o.reverb.begin(), o.reverb.end(), r.effect_data);
  if (!o.geq.empty()) std::copy(o.geq.begin(), o.geq.end(), r.effect_data);
  if (o.record_in.empty() && o.reverb.empty() && r.effect_type == KEDO_HP_EFFECT_REVERB)
    std::copy(std::begin(kHeadphoneDefaultReverb), std::end(kHeadphoneDefaultReverb), r.effect_data);
  return r;
}

}  // namespace

const char* kafx_headphone_usage() {
  return "usage: kafx headphone [options] [IN.wav|-] OUT.wav|-\n"
         "\n"
         "Runs IN.wav (any PCM width, 8-bit or float; mono, stereo or more channels,\n"
         "of which the first two are processed; any rate; '-' for standard input)\n"
         "through the headphone front end and writes OUT.wav in the same format,\n"
         "aligned with the input (the compressor's look-ahead of two 5 ms frames is\n"
         "removed). Mono files feed both sides and take the left result. The product\n"
         "processes 44050 to 48050 Hz; other rates are bypassed (the output equals\n"
         "the input) and the tool says so. Without IN.wav a built-in 6 s stereo\n"
         "48 kHz 16-bit excerpt is written to default_in.wav in OUT.wav's folder and\n"
         "processed.\n"
         "\n"
         "options:\n"
         "  --effect N        effect preset: 0 none, 1 stereo widening, 2 virtual bass,\n"
         "                    3 parametric equalizer, 4 reverb, 5 graphic equalizer\n"
         "  --adapter M       headphone adapter correction 1..7 (0 none; not applied\n"
         "                    with presets 3 and 5): 1 closed-back over-ear, 2 open-back\n"
         "                    over-ear, 3 on-ear, 4 sealed in-ear, 5 open earbud,\n"
         "                    6 noise-cancelling over-ear, 7 bone-conduction headset\n"
         "  --reverb R,D,W,DRY,WIDTH,GAIN\n"
         "                    reverb room size, damp, wet, dry, width and input gain\n"
         "                    (Q13, 8192 = 1.0); implies --effect 4. Preset 4 without\n"
         "                    it uses 4096,4096,2730,4096,8192,127\n"
         "  --geq G0,...,G9   graphic equalizer steps in dB (-15..15), 31 Hz shelf to\n"
         "                    16 kHz shelf; implies --effect 5 (without it: all 0)\n"
         "  --eq-import FILE  an equalizer in the exchanged parametric text form\n"
         "                    (Preamp:, Filter N: ON PK|LSC|HSC|LP|HP|NO Fc ... as\n"
         "                    'kafx speaker-design' imports it; at most ten filters\n"
         "                    a side) designed at the input's rate and loaded into\n"
         "                    the parametric equalizer in place of preset 3's\n"
         "                    built-in bands; implies --effect 3\n"
         "  --record FILE     read the calibration record from FILE; the options above\n"
         "                    then replace their own fields of it\n"
         "  --save-record FILE\n"
         "                    write the record used to FILE\n"
         "  --format BITS     host sample format: 16, 24 (24-bit values in 32-bit\n"
         "                    words) or 32 (full-scale 32-bit). Default: the file's\n"
         "                    width, 24-bit files as 24-in-32.\n"
         "  --block N         frames per process call (default 480)\n"
         "  --strict          treat every warning about the input (a bypassed rate, a\n"
         "                    rate run on other tables, extra channels, a truncated\n"
         "                    file) as an error\n"
         "\n"
         "Record file: a text file, one field per line as 'name = value' (decimal),\n"
         "'#' starts a comment. Fields: effect_type, hpadapter_type and\n"
         "effect_data[0] .. effect_data[28]; a field not given is 0. Preset 4 reads\n"
         "effect_data[0..5] as room size, damp, wet, dry, width, gain; preset 5 reads\n"
         "effect_data[0..9] as the ten graphic equalizer steps. A record saved with\n"
         "--eq-import also holds the equalizer (the 31-int record has no room for\n"
         "bands) as param_eq.design_rate, param_eq.status, param_eq.gain_left,\n"
         "param_eq.gain_right (Q13) and param_eq.left_band[0..9],\n"
         "param_eq.right_band[0..9] (enable,b0,b1,b2,a1,a2; Q28), which are loaded\n"
         "into the chain once preset 3 is applied. Example:\n"
         "  effect_type = 5\n"
         "  hpadapter_type = 0\n"
         "  effect_data[0] = 4   # 31 Hz shelf +4 dB\n";
}

int kafx_headphone_main(int argc, char** argv) {
  Options o;
  const int rc = parse_options(argc, argv, &o);
  if (rc != 0) return rc < 0 ? 0 : rc;

  std::string error;
  RecordFile file;
  if (!o.record_in.empty() && !read_record(o.record_in, &file, &error)) return kCmd.failure(error);
  if (!o.eq_import.empty()) {
    // Checked here at 48 kHz so that a bad file fails before any audio is read;
    // designed again at the input's own rate below.
    if (!design_import(o.eq_import, 48000, &file, &error)) return kCmd.failure(error);
  }
  const audio_effect_control_acdb_t record = build_record(o, file.record);
  file.record = record;
  if (file.has_eq && record.effect_type != KEDO_HP_EFFECT_PARAMETRIC_EQ)
    return kCmd.usage_error("a parametric equalizer (param_eq.* lines or --eq-import) needs effect_type 3");

  if (const int code = kafx_tool::take_builtin_input(kCmd, o.out_path, &o.in_path); code != 0) return code;

  kafx_tool::StreamOptions so{kCmd.name, o.strict};
  void* handle = nullptr;
  struct Release {
    void** h;
    ~Release() { kafx_hp_effect_deinit(*h); }
  } release{&handle};
  int format_type = 0;
  size_t latency = 0;
  bool bypassed = false;
  std::vector<int32_t> host32;
  std::vector<int16_t> host16;
  std::unique_ptr<kafx_tool::FrameDelay> extra_delay;
  auto setup = [&](const kafx_tool::StreamInput& in, kafx_tool::StreamProcessor* p) -> std::string {
    const int bits = o.format_bits != 0 ? o.format_bits : in.bits;
    format_type = kafx_tool::format_type_of_bits(bits);
    handle = kafx_hp_effect_init(static_cast<unsigned>(in.rate), format_type);
    if (handle == nullptr) return "cannot create the headphone front end";
    audio_effect_control_acdb_t rec = record;
    kafx_hp_effect_set_parameters(handle, &rec);
    bypassed = static_cast<kafx_hp_effect_t*>(handle)->enabled == 0;
    if (!bypassed && !o.eq_import.empty() && !design_import(o.eq_import, in.rate, &file, &error)) return error;
    if (file.has_eq && !bypassed) {
      if (file.eq_rate != 0 && file.eq_rate != in.rate &&
          !kafx_tool::warn(so, "the record's parametric equalizer was designed at " + std::to_string(file.eq_rate) +
                                   " Hz; '" + in.name + "' is at " + std::to_string(in.rate) + " Hz"))
        return "-";
      if (!load_parametric_eq(handle, file.eq)) return "the headphone chain's preset switch did not settle";
    }
    const std::string at = "'" + in.name + "' is at " + std::to_string(in.rate) + " Hz: ";
    if (bypassed && !kafx_tool::warn(so, at + "the headphone product processes 44050 to 48050 Hz only; bypassed, "
                                              "the output equals the input"))
      return "-";
    if (!bypassed && in.rate != 44100 && in.rate != 48000 &&
        !kafx_tool::warn(so, at + "the headphone product runs it on its 48000 Hz tables"))
      return "-";
    if (!kafx_tool::warn_extra_channels(so, in, kCmd.name)) return "-";
    latency = static_cast<size_t>(kafx_hp_effect_get_latency(handle));
    if (in.channels > 2) extra_delay = std::make_unique<kafx_tool::FrameDelay>(latency, in.channels - 2);
    p->latency = latency;
    p->block = static_cast<size_t>(std::max(o.block, 4800 / o.block * o.block));
    const size_t ch = static_cast<size_t>(in.channels);
    p->process = kafx_tool::fixed_calls(static_cast<size_t>(o.block), ch, [&, ch](int32_t* s, size_t n) {
      // Mono feeds both sides and takes the left result.
      auto in_sample = [&](size_t f, size_t c) { return s[f * ch + (c < ch ? c : 0)]; };
      if (format_type == 1) {
        host16.resize(2 * n);
        for (size_t f = 0; f < n; ++f)
          for (size_t c = 0; c < 2; ++c) host16[2 * f + c] = static_cast<int16_t>(in_sample(f, c) >> 16);
        kafx_hp_effect_process(handle, host16.data(), static_cast<unsigned>(n * 4));
        for (size_t f = 0; f < n; ++f)
          for (size_t c = 0; c < std::min<size_t>(ch, 2); ++c) s[f * ch + c] = host16[2 * f + c] * 65536;
      } else {
        host32.resize(2 * n);
        for (size_t f = 0; f < n; ++f)
          for (size_t c = 0; c < 2; ++c) host32[2 * f + c] = format_type == 2 ? in_sample(f, c) >> 8 : in_sample(f, c);
        kafx_hp_effect_process(handle, host32.data(), static_cast<unsigned>(n * 8));
        for (size_t f = 0; f < n; ++f)
          for (size_t c = 0; c < std::min<size_t>(ch, 2); ++c)
            s[f * ch + c] = format_type == 3 ? host32[2 * f + c] : std::clamp(host32[2 * f + c], -8388608, 8388607) * 256;
      }
      if (extra_delay) {
        for (size_t f = 0; f < n; ++f) extra_delay->step(s + f * ch + 2);
      }
    });
    return {};
  };
  kafx_tool::StreamResult r;
  const int status = kafx_tool::run_stream(so, o.in_path, o.out_path, setup, &r);
  if (status != 0) return status;
  const int block_len = static_cast<kafx_hp_effect_t*>(handle)->block_len;
  if (!o.record_out.empty() && !write_record(o.record_out, file, &error)) return kCmd.failure(error);

  FILE* info = o.out_path == "-" ? stderr : stdout;  // standard output may carry the audio
  const double audio_seconds = static_cast<double>(r.in_frames) / r.out_rate;
  kafx_tool::print_run_header(info, o.in_path, o.out_path, r, format_type, o.block);
  if (bypassed) {
    std::fprintf(info, "  bypassed: the headphone product processes 44050 to 48050 Hz only; the output equals the input\n");
  } else {
    std::fprintf(info, "  record: effect %d, hpadapter %d; chain blocks of %d frames, latency %zu frames removed\n",
                 record.effect_type, record.hpadapter_type, block_len, latency);
    if (file.has_eq)
      std::fprintf(info, "  parametric equalizer: %s (designed at %d Hz) in place of preset 3's built-in bands\n",
                   o.eq_import.empty() ? o.record_in.c_str() : o.eq_import.c_str(), file.eq_rate);
  }
  kafx_tool::print_levels_and_speed(info, r, audio_seconds);
  if (!o.record_out.empty()) std::fprintf(info, "  record written to %s\n", o.record_out.c_str());
  return 0;
}

const int kHeadphoneDefaultReverb[6] = {4096, 4096, 2730, 4096, 8192, 127};
