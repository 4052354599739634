#include "speaker_run.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "audio_summary.h"
#include "host_audio.h"
#include "kafx_proc/speaker_boost.h"
#include "test_signal.h"
#include "wav_io.h"

namespace {

using kafx_tool::format_type_of_bits;
using kafx_tool::HostBuffer;
using kafx_tool::parse_int;
using kafx_tool::PcmAudio;
using kafx_tool::readable;

constexpr int kLatency = KAFX_SPEAKER_BOOST_BLOCK - 1;  // 239 frames
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
  std::string in_path;
  std::string out_path;
};

int usage_error(const std::string& message) {
  std::fprintf(stderr, "kafx speaker: %s\n(see 'kafx speaker --help')\n", message.c_str());
  return 2;
}

int failure(const std::string& message) {
  std::fprintf(stderr, "kafx speaker: %s\n", message.c_str());
  return 1;
}

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
  std::vector<std::string> positional;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    auto value = [&]() -> const char* { return i + 1 < argc ? argv[++i] : nullptr; };
    if (a == "-h" || a == "--help") {
      std::fputs(kafx_speaker_usage(), stdout);
      return -1;
    } else if (a == "--config" || a == "--sbs" || a == "--peq" || a == "--format" || a == "--block") {
      const char* v = value();
      if (v == nullptr) return usage_error(a + " needs a value");
      if (a == "--config") {
        o->config = v;
      } else if (a == "--sbs") {
        o->sbs = v;
      } else if (a == "--peq") {
        o->peq = v;
      } else if (a == "--format") {
        if (!parse_int(v, 16, 32, &o->format_bits) ||
            (o->format_bits != 16 && o->format_bits != 24 && o->format_bits != 32)) {
          return usage_error("--format must be 16, 24 or 32");
        }
      } else if (!parse_int(v, 1, kMaxBlock, &o->block)) {
        return usage_error("--block must be a frame count from 1 to " + std::to_string(kMaxBlock));
      }
    } else if (a.size() > 1 && a[0] == '-') {
      return usage_error("unknown option '" + a + "'");
    } else {
      positional.push_back(a);
    }
  }
  if (positional.empty() || positional.size() > 2) return usage_error("expected [IN.wav] OUT.wav");
  o->out_path = positional.back();
  if (positional.size() == 2) o->in_path = positional.front();
  if (!o->sbs.empty() && count_decimal_list(o->sbs) != kSbsValues) {
    return usage_error("--sbs needs exactly 45 comma-separated integers");
  }
  if (!o->peq.empty() && count_decimal_list(o->peq) != kPeqValues) {
    return usage_error("--peq needs exactly 123 comma-separated integers");
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

using kafx_tool::Level;
using kafx_tool::measure;

}  // namespace

const char* kafx_speaker_usage() {
  return "usage: kafx speaker [options] [IN.wav] OUT.wav\n"
         "\n"
         "Runs IN.wav (16-, 24- or 32-bit integer PCM, mono or stereo) through the\n"
         "speaker-boost front end and writes OUT.wav in the same sample format,\n"
         "aligned with the input (the front end's 239-frame delay is removed).\n"
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
         "                  file's width, 24-bit files as 24-in-32.\n"
         "  --block N       frames per process call (default 480)\n"
         "\n"
         "Without --config, --sbs or --peq every block is off and the output equals\n"
         "the input (16- and 24-bit) or its 24-bit rounding (32-bit).\n";
}

int kafx_speaker_main(int argc, char** argv) {
  Options o;
  const int rc = parse_options(argc, argv, &o);
  if (rc != 0) return rc < 0 ? 0 : rc;

  std::string error;
  if (!o.config.empty() && !readable(o.config)) {  // fail before writing anything
    return failure("cannot read configuration '" + o.config + "'");
  }
  if (o.in_path.empty()) {
    namespace fs = std::filesystem;
    const fs::path out(o.out_path);
    const fs::path in = (out.has_parent_path() ? out.parent_path() : fs::path(".")) / "default_in.wav";
    if (out.filename() == in.filename()) return usage_error("OUT.wav must not be named default_in.wav");
    if (!kafx_tool::write_pcm_wav(in.string(), kafx_tool::make_default_signal(), &error)) return failure(error);
    std::printf("wrote built-in input %s\n", in.string().c_str());
    o.in_path = in.string();
  }

  PcmAudio audio;
  if (!kafx_tool::read_pcm(o.in_path, &audio, &error)) return failure(error);
  if (audio.channels > 2) return failure("'" + o.in_path + "' has more than two channels");
  const int bits = o.format_bits != 0 ? o.format_bits : audio.bits;

  HostBuffer host{format_type_of_bits(bits), {}, {}};
  const size_t ch = static_cast<size_t>(audio.channels);
  const size_t frames = static_cast<size_t>(audio.frames());
  const size_t total_frames = frames + kLatency;  // zero tail flushes the delay
  host.load(audio.samples, total_frames * ch);

  void* handle = kafx_speaker_boost_init(static_cast<unsigned>(audio.channels),
                                         static_cast<unsigned>(audio.rate), host.format_type);
  if (handle == nullptr) return failure("cannot create the speaker front end");
  if (!o.config.empty() && kafx_speaker_boost_loadconfig(handle, o.config.c_str()) != 0) {
    kafx_speaker_boost_deinit(handle);
    return failure("cannot load configuration '" + o.config + "'");
  }
  if (!o.sbs.empty() || !o.peq.empty()) {
    kafx_sp_params_t params;
    snapshot_params(&static_cast<kafx_speaker_boost_t*>(handle)->chain, &params);
    if (!o.sbs.empty()) kafx_speaker_boost_parse_sbs_params(&params, o.sbs.c_str());
    if (!o.peq.empty()) kafx_speaker_boost_parse_peq_params(&params, o.peq.c_str());
    kafx_speaker_boost_params_update(handle, &params);
  }

  const size_t frame_bytes = ch * host.bytes_per_sample();
  unsigned char* p = host.bytes();
  const auto start = std::chrono::steady_clock::now();
  for (size_t done = 0; done < total_frames;) {
    const size_t n = std::min(static_cast<size_t>(o.block), total_frames - done);
    kafx_speaker_boost_process(handle, p + done * frame_bytes, static_cast<unsigned>(n * frame_bytes));
    done += n;
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  kafx_speaker_boost_deinit(handle);

  const Level in_level = measure(audio.samples, 0, frames * ch);
  for (size_t i = 0; i < frames * ch; ++i) audio.samples[i] = host.full_scale(i + kLatency * ch);
  const Level out_level = measure(audio.samples, 0, frames * ch);
  if (!kafx_tool::write_pcm_wav(o.out_path, audio, &error)) return failure(error);

  const double audio_seconds = static_cast<double>(total_frames) / audio.rate;
  std::printf("%s -> %s\n", o.in_path.c_str(), o.out_path.c_str());
  std::printf("  frames %zu, rate %d Hz, channels %d, %d-bit file, host format %d (%s), block %d\n",
              frames, audio.rate, audio.channels, audio.bits, host.format_type,
              host.format_type == 1 ? "16-bit" : host.format_type == 2 ? "24 in 32" : "32-bit", o.block);
  std::printf("  input : peak %7.2f dBFS, RMS %7.2f dBFS\n", in_level.peak_db, in_level.rms_db);
  std::printf("  output: peak %7.2f dBFS, RMS %7.2f dBFS\n", out_level.peak_db, out_level.rms_db);
  if (seconds > 0.0) {
    std::printf("  speed : %.1f x real time (%.2f ms for %.2f s of audio)\n", audio_seconds / seconds,
                seconds * 1e3, audio_seconds);
  }
  return 0;
}
