#include "ktv_run.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include <sndfile.h>

#include "audio_summary.h"
#include "command_line.h"
#include "host_audio.h"
#include "kafx_proc/ktv.h"
#include "stream_runner.h"
#include "wav_io.h"

namespace {

using kafx_tool::PcmAudio;

constexpr int kRate = 48000;              // the karaoke chain's only rate
constexpr int kFrame = KAFX_KTV_FRAME;    // 240 samples per call
constexpr int kMaxEchoMs = IIRECHO_MAX_DELAY_MS;

struct Options {
  bool eq = false, reverb = false, echo = false, gramophone = false, compressor = false, howling = false;
  bool voice_gain_set = false;
  bool strict = false;
  int eq_index[10] = {};
  int reverb_param[6] = {};  // room, damp, wet, dry, width, gain
  int echo_param[4] = {0, 4096, 5489, 2703};  // ms, feedback, wet, dry
  int voice_gain = 8192;
  std::string in_path, out_path;
};

constexpr kafx_tool::Command kCmd{"ktv"};

// From min_n to max_n comma-separated integers within [lo, hi] into out[0..).
bool parse_list(const char* text, long lo, long hi, size_t min_n, size_t max_n, int* out) {
  std::vector<int> values;
  if (!kafx_tool::parse_int_list(text, min_n, max_n, lo, hi, &values)) return false;
  std::copy(values.begin(), values.end(), out);
  return true;
}

// Returns 0 when the options are complete, otherwise an exit code (-1: help shown).
int parse_options(int argc, char** argv, Options* o) {
  auto option = [o](const std::string& a, const char* v) -> int {
    if (a == "--gramophone") {
      o->gramophone = true;
    } else if (a == "--compressor") {
      o->compressor = true;
    } else if (a == "--howling") {
      o->howling = true;
    } else if (a == "--strict") {
      o->strict = true;
    } else if (a == "--eq") {
      if (!parse_list(v, -15, 15, 10, 10, o->eq_index))
        return kCmd.usage_error("--eq needs ten comma-separated gain steps from -15 to 15 (dB)");
      o->eq = true;
    } else if (a == "--reverb") {
      if (!parse_list(v, 0, 8192, 6, 6, o->reverb_param))
        return kCmd.usage_error("--reverb needs room,damp,wet,dry,width,gain: six integers from 0 to 8192 (Q13)");
      o->reverb = true;
    } else if (a == "--echo") {
      int p[4] = {0, o->echo_param[1], o->echo_param[2], o->echo_param[3]};
      if (!parse_list(v, 0, 16384, 1, 4, p) || p[0] < 1 || p[0] > kMaxEchoMs)
        return kCmd.usage_error("--echo needs MS (1 to 350) and optionally feedback,wet,dry (0 to 16384, Q13)");
      std::copy(p, p + 4, o->echo_param);
      o->echo = true;
    } else if (a == "--voice-gain") {
      if (!kafx_tool::parse_int(v, 0, 65536, &o->voice_gain))
        return kCmd.usage_error("--voice-gain needs a Q13 gain from 0 to 65536 (8192 = unity)");
      o->voice_gain_set = true;
    }
    return 0;
  };
  return kafx_tool::parse_in_out_command_line(kCmd, argc, argv, kafx_ktv_usage(),
                                              {{"--gramophone", false},
                                               {"--compressor", false},
                                               {"--howling", false},
                                               {"--strict", false},
                                               {"--eq", true},
                                               {"--reverb", true},
                                               {"--echo", true},
                                               {"--voice-gain", true}},
                                              option, "[VOICE.wav] OUT.wav", &o->in_path, &o->out_path);
}

// A sung phrase: a vowel ("ah", three formants) on a short melody with
// vibrato, soft attacks and releases, breath between the notes and a little
// breath noise; 48 kHz mono 16-bit, peaking near -6 dBFS. Deterministic.
PcmAudio make_default_voice() {
  constexpr double kPi = std::numbers::pi;
  const double notes[] = {220.0, 246.9, 277.2, 293.7, 329.6, 293.7, 246.9, 220.0};  // Hz
  constexpr double kNote = 0.5, kGap = 0.08;
  const double formants[3][2] = {{800, 80}, {1200, 90}, {2500, 120}};  // centre, bandwidth (Hz)
  PcmAudio a;
  a.rate = kRate;
  a.channels = 1;
  a.bits = 16;
  const size_t n = static_cast<size_t>(std::size(notes) * (kNote + kGap) * kRate);
  std::vector<double> v(n, 0.0);
  uint32_t seed = 0x5117u;
  double phase = 0.0, peak = 0.0;
  for (size_t i = 0; i < n; ++i) {
    const double t = static_cast<double>(i) / kRate;
    const size_t k = static_cast<size_t>(t / (kNote + kGap));
    const double in_note = t - static_cast<double>(k) * (kNote + kGap);
    seed = seed * 1664525u + 1013904223u;
    const double breath = 0.004 * (static_cast<double>(seed >> 8) / 8388608.0 - 1.0);
    if (in_note >= kNote) {
      v[i] = breath;
      continue;
    }
    const double env = std::min({1.0, in_note / 0.04, (kNote - in_note) / 0.06});
    const double f0 = notes[k] * (1.0 + 0.012 * std::sin(2 * kPi * 5.5 * t));
    phase += 2 * kPi * f0 / kRate;
    double s = 0.0;
    for (int h = 1; h * f0 < 7000.0; ++h) {
      const double f = h * f0;
      double gain = 1.0 / h;  // glottal roll-off
      for (const auto& fm : formants) gain *= 1.0 + 6.0 / (1.0 + std::pow((f - fm[0]) / fm[1], 2));
      s += gain * std::sin(h * phase);
    }
    v[i] = env * s + breath;
    peak = std::max(peak, std::fabs(v[i]));
  }
  const double scale = 0.5 * 32767.0 / peak;
  a.samples.resize(n);
  for (size_t i = 0; i < n; ++i) a.samples[i] = static_cast<int32_t>(std::lround(v[i] * scale)) * 65536;
  return a;
}

// Band-limited resampling of one channel (Blackman-windowed sinc, 32 zero
// crossings each side, cut-off 0.95 of the lower Nyquist frequency), fed in
// pieces: output sample i sits at input position i * from / to, so the
// output stays aligned with the input; past the end the input counts as 0.
class SincResampler {
 public:
  SincResampler(int from, int to)
      : ratio_(static_cast<double>(from) / to), fc_(0.95 * std::min(1.0, static_cast<double>(to) / from)),
        half_(32.0 / fc_) {}
  void push(const double* x, size_t n, std::vector<double>* out) {
    buf_.insert(buf_.end(), x, x + n);
    received_ += static_cast<long>(n);
    drain(out, false);
  }
  // The outputs that depend on input beyond the end, up to `total` outputs.
  void finish(size_t total, std::vector<double>* out) {
    total_ = static_cast<long>(total);
    drain(out, true);
  }

 private:
  void drain(std::vector<double>* out, bool at_end) {
    constexpr double kPi = std::numbers::pi;
    for (;; ++next_) {
      if (at_end && next_ >= total_) break;
      const double t = static_cast<double>(next_) * ratio_;
      const long lo = static_cast<long>(std::ceil(t - half_)), hi = static_cast<long>(std::floor(t + half_));
      if (!at_end && hi >= received_) break;
      double acc = 0.0;
      for (long k = std::max(lo, base_); k <= std::min(hi, received_ - 1); ++k) {
        const double d = t - static_cast<double>(k);
        const double arg = kPi * fc_ * d;
        const double sinc = d == 0.0 ? 1.0 : std::sin(arg) / arg;
        const double w = 0.42 + 0.5 * std::cos(kPi * d / half_) + 0.08 * std::cos(2 * kPi * d / half_);
        acc += buf_[static_cast<size_t>(k - base_)] * fc_ * sinc * w;
      }
      out->push_back(acc);
      const long keep = std::max(base_, lo);  // inputs before the window are done with
      buf_.erase(buf_.begin(), buf_.begin() + (keep - base_));
      base_ = keep;
    }
  }
  double ratio_, fc_, half_;
  std::vector<double> buf_;
  long base_ = 0, received_ = 0, next_ = 0, total_ = 0;
};

// The karaoke front end fed from a file: channels averaged to mono, other
// rates resampled to 48 kHz, samples rounded to 16 bits, 240-sample frames;
// the stereo result as full-scale 16-bit frames.
class KtvStream {
 public:
  KtvStream(void* handle, int rate, int channels)
      : h_(handle), rate_(rate), channels_(static_cast<size_t>(channels)) {
    if (rate != kRate) resampler_ = std::make_unique<SincResampler>(rate, kRate);
  }
  void process(const int32_t* x, size_t frames, std::vector<int32_t>* out) {
    received_ += frames;
    mono_.resize(frames);
    for (size_t f = 0; f < frames; ++f) {
      double sum = 0.0;
      for (size_t c = 0; c < channels_; ++c) sum += x[f * channels_ + c];
      mono_[f] = sum / static_cast<double>(channels_) / 65536.0;  // 16-bit units
    }
    ready_.clear();
    if (resampler_) resampler_->push(mono_.data(), frames, &ready_);
    else ready_ = mono_;
    run(out, false);
  }
  // Resampler tail (the output has the input's duration) and the last,
  // shorter frame.
  void finish(std::vector<int32_t>* out) {
    ready_.clear();
    const double total = static_cast<double>(received_) * kRate / rate_;
    if (resampler_) resampler_->finish(static_cast<size_t>(std::llround(total)), &ready_);
    run(out, true);
  }

 private:
  void run(std::vector<int32_t>* out, bool last) {
    for (double v : ready_) voice_.push_back(static_cast<int16_t>(std::clamp(std::lround(v), -32768L, 32767L)));
    size_t at = 0;
    while (voice_.size() - at >= static_cast<size_t>(kFrame) || (last && at < voice_.size())) {
      const int count = static_cast<int>(std::min<size_t>(kFrame, voice_.size() - at));
      kafx_ktv_process_16(h_, voice_.data() + at, left_, right_, count);
      for (int i = 0; i < count; ++i) {
        out->push_back(left_[i] * 65536);
        out->push_back(right_[i] * 65536);
      }
      at += static_cast<size_t>(count);
    }
    voice_.erase(voice_.begin(), voice_.begin() + static_cast<std::ptrdiff_t>(at));
  }
  void* h_;
  int rate_;
  size_t channels_, received_ = 0;
  std::unique_ptr<SincResampler> resampler_;
  std::vector<double> mono_, ready_;
  std::vector<int16_t> voice_;
  int16_t left_[kFrame], right_[kFrame];
};

void configure(void* h, Options& o) {
  // The echo is on in a fresh chain; the tool runs it only when asked.
  kafx_ktv_iirecho_enable(h, o.echo ? 1 : 0);
  if (o.echo) {
    kafx_ktv_iirecho_setdelay(h, o.echo_param[0]);
    kafx_ktv_iirecho_setfeedback(h, o.echo_param[1]);
    kafx_ktv_iirecho_setwet(h, o.echo_param[2]);
    kafx_ktv_iirecho_setdry(h, o.echo_param[3]);
  }
  if (o.eq) {
    kafx_ktv_eq_setparameter(h, o.eq_index);
    kafx_ktv_eq_enable(h, 1);
  }
  if (o.reverb) {
    kafx_ktv_reverb_setroomsize(h, o.reverb_param[0]);
    kafx_ktv_reverb_setdamp(h, o.reverb_param[1]);
    kafx_ktv_reverb_setwet(h, o.reverb_param[2]);
    kafx_ktv_reverb_setdry(h, o.reverb_param[3]);
    kafx_ktv_reverb_setwidth(h, o.reverb_param[4]);
    kafx_ktv_reverb_setgain(h, o.reverb_param[5]);
    kafx_ktv_reverb_enable(h, 1);
  }
  kafx_ktv_gramophone_enable(h, o.gramophone ? 1 : 0);
  kafx_ktv_compressor_enable(h, o.compressor ? 1 : 0);
  kafx_ktv_hw_howling_canceling_enable(h, o.howling ? 1 : 0);
  kafx_ktv_set_voice_gain(h, o.voice_gain);
}

std::string blocks_on(const Options& o) {
  std::string s;
  auto add = [&](bool on, const char* name) {
    if (on) s += (s.empty() ? "" : ", ") + std::string(name);
  };
  add(o.howling, "howling canceller");
  add(o.gramophone, "gramophone");
  add(o.eq, "equalizer");
  add(o.reverb, "reverb");
  add(o.echo, "echo");
  add(o.compressor, "compressor");
  return s.empty() ? "none (the voice is copied to both sides)" : s;
}

}  // namespace

const char* kafx_ktv_usage() {
  return "usage: kafx ktv [options] [VOICE.wav|-] OUT.wav|-\n"
         "\n"
         "Runs a mono voice (48 kHz 16-bit; other rates, channel counts and widths are\n"
         "converted, with a message) through the karaoke front end in 240-sample frames\n"
         "and writes OUT.wav as stereo 48 kHz 16-bit of the same length. Without\n"
         "VOICE.wav a built-in 4.6 s sung phrase is written to default_voice.wav in\n"
         "OUT.wav's folder and processed. Blocks run only when asked for; with none the\n"
         "voice is copied to both sides unchanged.\n"
         "\n"
         "options (in the chain's order):\n"
         "  --howling          howling canceller\n"
         "  --gramophone       gramophone colouring (overdrive and band-pass)\n"
         "  --eq i0,...,i9     graphic equalizer, ten gain steps in dB (-15..15), from\n"
         "                     the 31.25 Hz low shelf to the 16 kHz high shelf\n"
         "  --reverb room,damp,wet,dry,width,gain\n"
         "                     reverb, six Q13 values 0..8192 (8192 = 1.0)\n"
         "  --echo MS[,feedback,wet,dry]\n"
         "                     IIR echo of MS milliseconds (1..350); Q13 feedback, wet and\n"
         "                     dry (defaults 4096, 5489, 2703)\n"
         "  --compressor       voice compressor\n"
         "  --voice-gain G     voice gain, Q13 (8192 = unity); acts inside the compressor\n"
         "                     only\n"
         "  --strict           treat a warning about the input (a truncated file) as an\n"
         "                     error\n"
         "\n"
         "'-' reads standard input or writes standard output; the file is processed\n"
         "block by block and the output appears only when it is complete.\n";
}

int kafx_ktv_main(int argc, char** argv) {
  Options o;
  const int rc = parse_options(argc, argv, &o);
  if (rc != 0) return rc < 0 ? 0 : rc;
  if (o.voice_gain_set && !o.compressor)
    std::fprintf(stderr, "kafx ktv: note: --voice-gain acts only inside the compressor; add --compressor\n");

  std::string error;
  FILE* info = o.out_path == "-" ? stderr : stdout;  // standard output may carry the audio
  if (o.in_path.empty()) {
    namespace fs = std::filesystem;
    const fs::path out(o.out_path);
    const fs::path in = (out.has_parent_path() ? out.parent_path() : fs::path(".")) / "default_voice.wav";
    if (out.filename() == in.filename()) return kCmd.usage_error("OUT.wav must not be named default_voice.wav");
    if (!kafx_tool::write_pcm_wav(in.string(), make_default_voice(), &error)) return kCmd.failure(error);
    std::fprintf(info, "wrote built-in voice %s\n", in.string().c_str());
    o.in_path = in.string();
  }

  kafx_tool::StreamOptions so{kCmd.name, o.strict};
  void* handle = nullptr;
  struct Release {
    void** h;
    ~Release() { kafx_ktv_deinit(*h); }
  } release{&handle};
  std::unique_ptr<KtvStream> stream;
  auto setup = [&](const kafx_tool::StreamInput& in, kafx_tool::StreamProcessor* p) -> std::string {
    if (in.frames == 0) return "'" + in.name + "' holds no audio";
    if (in.channels != 1)
      std::fprintf(stderr, "kafx ktv: %s has %d channels; mixed down to mono (the average of the channels)\n",
                   in.name.c_str(), in.channels);
    if (in.rate != kRate)
      std::fprintf(stderr, "kafx ktv: %s is at %d Hz; resampled to %d Hz (the karaoke chain's rate)\n",
                   in.name.c_str(), in.rate, kRate);
    if (in.subtype != SF_FORMAT_PCM_16)
      std::fprintf(stderr, "kafx ktv: %s has %s samples; rounded to 16 bits (the karaoke front end's format)\n",
                   in.name.c_str(), in.bits == 16 ? "narrower or encoded" : (std::to_string(in.bits) + "-bit").c_str());
    handle = kafx_ktv_init();
    if (handle == nullptr) return "cannot create the karaoke front end";
    configure(handle, o);
    stream = std::make_unique<KtvStream>(handle, in.rate, in.channels);
    p->out_rate = kRate;
    p->out_channels = 2;
    p->out_subtype = SF_FORMAT_PCM_16;
    p->latency = static_cast<size_t>(kafx_ktv_get_latency(handle));
    p->block = 4800;
    p->process = [&](const int32_t* x, size_t frames, std::vector<int32_t>* out) { stream->process(x, frames, out); };
    p->finish = [&](std::vector<int32_t>* out) { stream->finish(out); };
    return {};
  };
  kafx_tool::StreamResult r;
  const int status = kafx_tool::run_stream(so, o.in_path, o.out_path, setup, &r);
  if (status != 0) return status;

  const double audio_seconds = static_cast<double>(r.out_frames) / kRate;
  std::fprintf(info, "%s -> %s\n", o.in_path.c_str(), o.out_path.c_str());
  std::fprintf(info, "  frames %lld, mono 48000 Hz 16-bit in, stereo out, %d-sample calls\n",
               static_cast<long long>(r.out_frames), kFrame);
  std::fprintf(info, "  blocks: %s\n", blocks_on(o).c_str());
  kafx_tool::print_levels_and_speed(info, r, audio_seconds);
  return 0;
}
