#include "speaker_run.h"
#include "speaker_config_check.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "audio_summary.h"
#include "command_line.h"
#include "host_audio.h"
#include "kafx_proc/speaker_boost.h"
#include "test_signal.h"
#include "stream_runner.h"
#include "wav_io.h"

namespace {

using kafx_tool::format_type_of_bits;
using kafx_tool::parse_int;
using kafx_tool::readable;

constexpr int kDefaultBlock = 480;                        // 10 ms at 48 kHz
constexpr int kMaxBlock = 1 << 20;
constexpr int kSbsValues = 45;
constexpr int kPeqValues = 123;

struct Options {
  std::string config;
  std::string sbs;
  std::string peq;
  int format_bits = 0;  // 0: follow the file
  int block = kDefaultBlock;
  bool strict = false;
  std::string in_path;
  std::string out_path;
};

constexpr kafx_tool::Command kCmd{"speaker"};

// Counts the comma-separated decimal values of a parameter string; -1 when a
// token is not a 32-bit integer (the library's own scan would silently leave
// such a member undefined).
int count_decimal_list(const std::string& text) {
  int n = 0;
  size_t pos = 0;
  while (true) {
    const size_t comma = text.find(',', pos);
    std::string token = text.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
    token.erase(0, token.find_first_not_of(" \t"));
    token.erase(token.find_last_not_of(" \t") + 1);
    int v = 0;
    if (!parse_int(token.c_str(), INT32_MIN, INT32_MAX, &v)) return -1;
    ++n;
    if (comma == std::string::npos) return n;
    pos = comma + 1;
  }
}

// Returns 0 when the options are complete, otherwise an exit code (-1: help shown).
int parse_options(int argc, char** argv, Options* o) {
  auto option = [o](const std::string& a, const char* v) -> int {
    if (a == "--strict") {
      o->strict = true;
    } else if (a == "--config") {
      o->config = v;
    } else if (a == "--sbs") {
      o->sbs = v;
    } else if (a == "--peq") {
      o->peq = v;
    } else if (a == "--format") {
      return kafx_tool::parse_format_option(kCmd, v, &o->format_bits);
    } else if (a == "--block") {
      return kafx_tool::parse_block_option(kCmd, v, kMaxBlock, &o->block);
    }
    return 0;
  };
  const int rc = kafx_tool::parse_in_out_command_line(
      kCmd, argc, argv, kafx_speaker_usage(),
      {{"--strict", false}, {"--config", true}, {"--sbs", true}, {"--peq", true}, {"--format", true}, {"--block", true}},
      option, "[IN.wav] OUT.wav", &o->in_path, &o->out_path);
  if (rc != 0) return rc;
  if (!o->sbs.empty() && count_decimal_list(o->sbs) != kSbsValues) {
    return kCmd.usage_error("--sbs needs exactly 45 comma-separated integers");
  }
  if (!o->peq.empty() && count_decimal_list(o->peq) != kPeqValues) {
    return kCmd.usage_error("--peq needs exactly 123 comma-separated integers");
  }
  return 0;
}

// The parameter record as the chain currently holds it, so that a parameter
// string replaces only its own part.
void snapshot_params(kedo_speaker_boost_t* c, kafx_sp_params_t* p) {
  std::memset(p, 0, sizeof *p);
  kedo_speaker_boost_sbs_getstatus(c, &p->sbs.enable);
  kedo_speaker_boost_sbs_get_nld_gain_left(c, &p->sbs.gain[0]);
  kedo_speaker_boost_sbs_get_nld_gain_right(c, &p->sbs.gain[1]);
  kedo_speaker_boost_cb_get_channel_ration(c, &p->sbs.channel_ration);
  p->sbs.channel_num = c->channel_num;
  kedo_speaker_boost_sbs_get_drc_low_left(c, &p->sbs.drc_left[0]);
  kedo_speaker_boost_sbs_get_drc_mid_left(c, &p->sbs.drc_left[1]);
  kedo_speaker_boost_sbs_get_drc_high_left(c, &p->sbs.drc_left[2]);
  kedo_speaker_boost_sbs_get_drc_full_left(c, &p->sbs.drc_left[3]);
  kedo_speaker_boost_sbs_get_drc_low_right(c, &p->sbs.drc_right[0]);
  kedo_speaker_boost_sbs_get_drc_mid_right(c, &p->sbs.drc_right[1]);
  kedo_speaker_boost_sbs_get_drc_high_right(c, &p->sbs.drc_right[2]);
  kedo_speaker_boost_sbs_get_drc_full_right(c, &p->sbs.drc_right[3]);
  kedo_speaker_boost_p_eq_getstatus(c, &p->peq.enable);
  kedo_speaker_boost_p_eq_get_gain_left(c, &p->peq.gain[0]);
  kedo_speaker_boost_p_eq_get_gain_right(c, &p->peq.gain[1]);
  kedo_speaker_boost_p_eq_getparameter_left(c, p->peq.Lfilter);
  kedo_speaker_boost_p_eq_getparameter_right(c, p->peq.Rfilter);
}

// Announces the rates at which the running blocks do not do what they do at
// 44.1, 48 and 96 kHz. False when --strict makes the warning an error.
bool rate_warnings(const kafx_tool::StreamOptions& so, kedo_speaker_boost_t& c, const kafx_tool::StreamInput& in) {
  int peq = 0, sbs = 0, cb = 0;
  kedo_speaker_boost_p_eq_getstatus(&c, &peq);
  kedo_speaker_boost_sbs_getstatus(&c, &sbs);
  kedo_speaker_boost_cb_getstatus(&c, &cb);
  if (peq == 0 && sbs == 0 && cb == 0) return true;  // nothing runs: a plain delay at any rate
  const std::string at = "'" + in.name + "' is at " + std::to_string(in.rate) + " Hz: ";
  if (in.rate == 192000 && sbs != 0) {
    return kafx_tool::warn(so, at + "the speaker boost system's filter rows for 192000 Hz are zero, so its output "
                                    "is silence");
  }
  if (in.rate != 44100 && in.rate != 48000 && in.rate != 96000 && in.rate != 192000) {
    return kafx_tool::warn(so, at + "the speaker product has tables for 44100, 48000, 96000 and 192000 Hz only and "
                                    "runs this rate on the 48000 Hz tables (crossover and filter frequencies move "
                                    "with the rate)");
  }
  return true;
}

}  // namespace

const char* kafx_speaker_usage() {
  return "usage: kafx speaker [options] [IN.wav|-] OUT.wav|-\n"
         "\n"
         "Runs IN.wav (any PCM width, 8-bit or float; mono, stereo or more channels)\n"
         "through the speaker-boost front end and writes OUT.wav in the same sample\n"
         "format, with the input's length and alignment: the product's latency\n"
         "(239 frames, plus 20 ms while the boost system runs) is removed and its\n"
         "tail flushed. 16-bit and narrower files run as 16-bit host samples,\n"
         "24-bit as 24-in-32, 32-bit and float as full-scale 32-bit. With more than\n"
         "two channels the first two are processed and the others pass through.\n"
         "'-' reads standard input or writes standard output. Files are processed\n"
         "block by block; the output appears only when it is complete.\n"
         "Without IN.wav a built-in 6 s stereo 48 kHz 16-bit excerpt is written to\n"
         "default_in.wav in OUT.wav's folder and processed.\n"
         "\n"
         "options:\n"
         "  --config FILE   load an XML speaker configuration\n"
         "  --sbs STRING    45 comma-separated integers: boost-system parameters\n"
         "  --peq STRING    123 comma-separated integers: equalizer parameters\n"
         "                  (applied after --config; each replaces only its own part)\n"
         "  --format BITS   host sample format: 16 (16-bit samples), 24 (24-bit values\n"
         "                  in 32-bit words) or 32 (full-scale 32-bit). Default: the\n"
         "                  file's width as above.\n"
         "  --block N       frames per process call (default 480)\n"
         "  --strict        treat every warning about the input (a rate the product\n"
         "                  runs on other tables or silences, extra channels, a\n"
         "                  truncated file) as an error\n"
         "\n"
         "Without --config, --sbs or --peq every block is off and the output equals\n"
         "the input (16- and 24-bit) or its 24-bit rounding (32-bit).\n";
}

int kafx_speaker_main(int argc, char** argv) {
  Options o;
  const int rc = parse_options(argc, argv, &o);
  if (rc != 0) return rc < 0 ? 0 : rc;

  if (!o.config.empty() && !readable(o.config)) {  // fail before writing anything
    return kCmd.failure("cannot read configuration '" + o.config + "'");
  }
  if (!o.config.empty()) kafx_tool::warn_speaker_config(o.config.c_str(), stderr);  // same checks as speaker-config
  if (const int code = kafx_tool::take_builtin_input(kCmd, o.out_path, &o.in_path); code != 0) return code;

  kafx_tool::StreamOptions so{kCmd.name, o.strict};
  void* handle = nullptr;
  struct Release {
    void** h;
    ~Release() { kafx_speaker_boost_deinit(*h); }
  } release{&handle};
  int format_type = 0;
  size_t latency = 0;
  std::vector<int32_t> host32;
  std::vector<int16_t> host16;
  std::unique_ptr<kafx_tool::FrameDelay> extra_delay;
  std::string config_error;
  auto setup = [&](const kafx_tool::StreamInput& in, kafx_tool::StreamProcessor* p) -> std::string {
    const int bits = o.format_bits != 0 ? o.format_bits : in.bits;
    format_type = format_type_of_bits(bits);
    handle = kafx_speaker_boost_init(static_cast<unsigned>(in.channels), static_cast<unsigned>(in.rate), format_type);
    if (handle == nullptr) return "cannot create the speaker front end";
    if (!o.config.empty() && kafx_speaker_boost_loadconfig(handle, o.config.c_str()) != 0) {
      return "cannot load configuration '" + o.config + "'";
    }
    if (!o.sbs.empty() || !o.peq.empty()) {
      kafx_sp_params_t params;
      snapshot_params(&static_cast<kafx_speaker_boost_t*>(handle)->chain, &params);
      if (!o.sbs.empty()) kafx_speaker_boost_parse_sbs_params(&params, o.sbs.c_str());
      if (!o.peq.empty()) kafx_speaker_boost_parse_peq_params(&params, o.peq.c_str());
      kafx_speaker_boost_params_update(handle, &params);
    }
    if (!rate_warnings(so, static_cast<kafx_speaker_boost_t*>(handle)->chain, in)) return "-";
    if (!kafx_tool::warn_extra_channels(so, in, kCmd.name)) return "-";
    latency = static_cast<size_t>(kafx_speaker_boost_get_latency(handle));
    if (in.channels > 2) extra_delay = std::make_unique<kafx_tool::FrameDelay>(latency, in.channels - 2);
    p->latency = latency;
    p->block = static_cast<size_t>(std::max(o.block, 4800 / o.block * o.block));
    const size_t ch = static_cast<size_t>(in.channels);
    p->process = kafx_tool::fixed_calls(static_cast<size_t>(o.block), ch, [&, ch](int32_t* s, size_t n) {
      const size_t count = n * ch;
      if (format_type == 1) {
        host16.resize(count);
        for (size_t i = 0; i < count; ++i) host16[i] = static_cast<int16_t>(s[i] >> 16);
        kafx_speaker_boost_process(handle, host16.data(), static_cast<unsigned>(count * 2));
        for (size_t i = 0; i < count; ++i) s[i] = static_cast<int32_t>(host16[i]) * 65536;
      } else {
        host32.resize(count);
        for (size_t i = 0; i < count; ++i) host32[i] = format_type == 2 ? s[i] >> 8 : s[i];
        kafx_speaker_boost_process(handle, host32.data(), static_cast<unsigned>(count * 4));
        for (size_t i = 0; i < count; ++i) {
          s[i] = format_type == 3 ? host32[i] : std::clamp(host32[i], -8388608, 8388607) * 256;
        }
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

  FILE* info = o.out_path == "-" ? stderr : stdout;  // standard output may carry the audio
  const double audio_seconds = static_cast<double>(r.in_frames) / r.out_rate;
  kafx_tool::print_run_header(info, o.in_path, o.out_path, r, format_type, o.block);
  std::fprintf(info, "  latency %zu frames removed (output aligned with the input)\n", latency);
  kafx_tool::print_levels_and_speed(info, r, audio_seconds);
  return 0;
}
