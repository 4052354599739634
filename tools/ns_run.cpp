#include "ns_run.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "audio_summary.h"
#include "command_line.h"
#include "host_audio.h"
#include "kafx_proc/ns.h"
#include "kafx_proc/spl.h"
#include "stream_runner.h"
#include "wav_io.h"

namespace {

using kafx_tool::Level;
using kafx_tool::measure;
using kafx_tool::PcmAudio;

constexpr unsigned kDirectRates[] = {8000u, 16000u, 32000u};

constexpr kafx_tool::Command kNs{"ns"};
constexpr kafx_tool::Command kNsQuality{"ns-quality"};

bool parse_policy(const char* s, int* policy) {
  if (s == nullptr || s[0] < '0' || s[0] > '3' || s[1] != '\0') return false;
  *policy = s[0] - '0';
  return true;
}

// One suppressor instance, owned.
struct Suppressor {
  NsxInst_t_ inst{};
  bool ok = false;
  Suppressor(unsigned fs, int policy) {
    ok = kedoNs_InitCore(&inst, fs) == 0 && kedoNs_set_policy_core(&inst, policy) == 0;
  }
  ~Suppressor() {
    if (ok) kedoNs_FreeCore(&inst);
  }
  Suppressor(const Suppressor&) = delete;
  Suppressor& operator=(const Suppressor&) = delete;
};

// Suppresses one mono 16-bit signal at a supported rate. The output is
// aligned with the input: the overlap-add delay (analysis length minus block
// length) is removed and flushed with zeros at the end.
std::vector<int16_t> suppress(const std::vector<int16_t>& in, unsigned fs, int policy) {
  Suppressor ns(fs, policy);
  const size_t blen = static_cast<size_t>(ns.inst.block_len);
  const size_t delay = static_cast<size_t>(ns.inst.ana_len - ns.inst.block_len);
  const size_t total = in.size() + delay;
  const size_t blocks = (total + blen - 1) / blen;
  std::vector<int16_t> padded(blocks * blen, 0), out(blocks * blen, 0);
  std::copy(in.begin(), in.end(), padded.begin());
  for (size_t b = 0; b < blocks; ++b) kedoNs_ProcessCore(&ns.inst, &padded[b * blen], &out[b * blen]);
  return std::vector<int16_t>(out.begin() + static_cast<std::ptrdiff_t>(delay),
                              out.begin() + static_cast<std::ptrdiff_t>(delay + in.size()));
}

// A conversion pair between the file's rate and a suppressor rate, with the
// block length (input samples) both directions accept.
struct RatePath {
  unsigned ns_rate = 0;
  int block_in = 0;   // file-rate samples per chunk
  int block_out = 0;  // suppressor-rate samples per chunk
};

bool try_block(int in_rate, int out_rate, int len, int* produced) {
  Resampler_t r;
  Resampler_init(&r);
  Resampler_config(&r, in_rate, out_rate);
  const bool usable = r.mode != 0;
  std::vector<int16_t> in(static_cast<size_t>(len), 0), out(static_cast<size_t>(len) * 13 + 16, 0);
  int n = 0;
  const bool ok = usable && Resampler_proc(&r, in.data(), len, out.data(), static_cast<int>(out.size()), &n) == 0;
  Resampler_delete(&r);
  *produced = n;
  return ok;
}

bool find_rate_path(int rate, RatePath* path) {
  for (unsigned target : {32000u, 16000u, 8000u}) {
    for (int tens_of_ms = 1; tens_of_ms <= 8; tens_of_ms *= 2) {
      if (rate % 100 != 0) break;
      const int len = rate / 100 * tens_of_ms;
      int down = 0, up = 0;
      if (!try_block(rate, static_cast<int>(target), len, &down)) continue;
      if (!try_block(static_cast<int>(target), rate, down, &up) || up != len) continue;
      *path = {target, len, down};
      return true;
    }
  }
  return false;
}

int16_t to16(int32_t full_scale) {
  const int64_t v = (static_cast<int64_t>(full_scale) + 32768) >> 16;  // round to 16 bits
  return static_cast<int16_t>(std::clamp<int64_t>(v, -32768, 32767));
}

const char* kNsUsage =
    "usage: kafx ns [--policy 0..3] [--strict] IN.wav|- OUT.wav|-\n"
    "\n"
    "Runs each channel of IN.wav (mono or stereo, any PCM width, 8-bit or float)\n"
    "through the fixed-point noise suppressor and writes OUT.wav in the same\n"
    "format, aligned with the input (the overlap-add delay and, for converted\n"
    "rates, the resamplers' delay are removed; '-' for standard input or output). The suppressor works on 16-bit samples at\n"
    "8000, 16000 or 32000 Hz; other rates are converted to one of those and\n"
    "back with the library's resamplers where it has a mode for the pair.\n"
    "\n"
    "options:\n"
    "  --policy N   aggressiveness 0..3 (denoising floor 0.5, 0.25, 0.125, 0.09;\n"
    "               default 2)\n"
    "  --strict     treat a warning about the input (a truncated file) as an error\n";

}  // namespace

namespace {

// A resampler instance, owned, configured for one direction.
struct OwnedResampler {
  Resampler_t r;
  OwnedResampler(int from, int to) {
    Resampler_init(&r);
    Resampler_config(&r, from, to);
  }
  ~OwnedResampler() { Resampler_delete(&r); }
  OwnedResampler(const OwnedResampler&) = delete;
  OwnedResampler& operator=(const OwnedResampler&) = delete;
  void run(int16_t* in, int n_in, int16_t* out, int n_out) {
    int n = 0;
    Resampler_proc(&r, in, n_in, out, n_out, &n);
  }
};

// Frames by which the resampler pair (down to the suppressor's rate and
// back) delays a signal: where an impulse comes out, found with a fresh pair.
size_t resampler_pair_delay(int rate, const RatePath& path) {
  OwnedResampler down(rate, static_cast<int>(path.ns_rate)), up(static_cast<int>(path.ns_rate), rate);
  const int blocks = 8;
  std::vector<int16_t> x(static_cast<size_t>(path.block_in * blocks), 0), mid(static_cast<size_t>(path.block_out)),
      y(x.size(), 0);
  x[static_cast<size_t>(path.block_in)] = 16384;
  for (int b = 0; b < blocks; ++b) {
    down.run(&x[static_cast<size_t>(b * path.block_in)], path.block_in, mid.data(), path.block_out);
    up.run(mid.data(), path.block_out, &y[static_cast<size_t>(b * path.block_in)], path.block_in);
  }
  size_t peak = 0;
  for (size_t i = 0; i < y.size(); ++i)
    if (std::abs(y[i]) > std::abs(y[peak])) peak = i;
  return peak - static_cast<size_t>(path.block_in);
}

// One channel: optional resampling around the suppressor, one call per
// `block_in` file-rate samples.
struct NsChannel {
  Suppressor ns;
  std::unique_ptr<OwnedResampler> down, up;
  std::vector<int16_t> x, mid, clean;
  NsChannel(const RatePath& path, int rate, int policy, bool direct) : ns(path.ns_rate, policy) {
    if (!direct) {
      down = std::make_unique<OwnedResampler>(rate, static_cast<int>(path.ns_rate));
      up = std::make_unique<OwnedResampler>(static_cast<int>(path.ns_rate), rate);
    }
  }
};

}  // namespace

int kafx_ns_main(int argc, char** argv) {
  int policy = 2;
  bool strict = false;
  std::vector<std::string> positional;
  auto option = [&](const std::string& a, const char* v) -> int {
    if (a == "--policy") {
      if (!parse_policy(v, &policy)) return kNs.usage_error("--policy takes 0, 1, 2 or 3");
    } else if (a == "--strict") {
      strict = true;
    }
    return 0;
  };
  if (const int rc = kafx_tool::parse_command_line(kNs, argc, argv, kNsUsage, {{"--policy", true}, {"--strict", false}},
                                                   option, {2, 2, "IN.wav OUT.wav"}, &positional);
      rc != 0)
    return rc < 0 ? 0 : rc;

  const kafx_tool::StreamOptions so{kNs.name, strict};
  RatePath path;
  bool direct = false;
  std::vector<std::unique_ptr<NsChannel>> channels;
  auto setup = [&](const kafx_tool::StreamInput& in, kafx_tool::StreamProcessor* p) -> std::string {
    if (in.channels > 2) return "'" + in.name + "' is not mono or stereo";
    direct = std::find(std::begin(kDirectRates), std::end(kDirectRates), static_cast<unsigned>(in.rate)) !=
             std::end(kDirectRates);
    if (direct) {
      path.ns_rate = static_cast<unsigned>(in.rate);
    } else if (!find_rate_path(in.rate, &path)) {
      std::string usable;
      for (int r : {11000, 11025, 12000, 22000, 22050, 24000, 44000, 44100, 48000, 96000}) {
        RatePath q;
        if (find_rate_path(r, &q)) usable += ", " + std::to_string(r);
      }
      return "sample rate " + std::to_string(in.rate) +
             " Hz is not supported; supported rates: 8000, 16000, 32000 Hz directly" +
             (usable.empty() ? std::string() : " and" + usable.substr(1) + " Hz through the resamplers");
    } else {
      std::fprintf(stderr, "kafx ns: %s is at %d Hz; resampled to %u Hz for the suppressor and back\n",
                   in.name.c_str(), in.rate, path.ns_rate);
    }
    for (int c = 0; c < in.channels; ++c) {
      channels.push_back(std::make_unique<NsChannel>(path, in.rate, policy, direct));
      if (!channels.back()->ns.ok) return "cannot create the noise suppressor";
    }
    const NsxInst_t_& first = channels.front()->ns.inst;
    const size_t blen = static_cast<size_t>(first.block_len);
    const size_t ns_delay = static_cast<size_t>(first.ana_len - first.block_len);  // overlap-add
    if (direct) {
      path.block_in = path.block_out = first.block_len;
      p->latency = ns_delay;
    } else {
      p->latency = resampler_pair_delay(in.rate, path) +
                   static_cast<size_t>(std::llround(static_cast<double>(ns_delay) * in.rate / path.ns_rate));
    }
    const size_t ch = static_cast<size_t>(in.channels);
    p->block = static_cast<size_t>(path.block_in) * 16;
    p->process = kafx_tool::fixed_calls(static_cast<size_t>(path.block_in), ch, [&, ch, blen](int32_t* s, size_t n) {
      for (size_t c = 0; c < ch; ++c) {
        NsChannel& k = *channels[c];
        k.x.resize(n);
        for (size_t i = 0; i < n; ++i) k.x[i] = to16(s[i * ch + c]);
        k.mid.resize(static_cast<size_t>(path.block_out));
        if (direct) k.mid = k.x;
        else k.down->run(k.x.data(), static_cast<int>(n), k.mid.data(), path.block_out);
        k.clean.resize(k.mid.size());
        for (size_t at = 0; at + blen <= k.mid.size(); at += blen) kedoNs_ProcessCore(&k.ns.inst, &k.mid[at], &k.clean[at]);
        if (direct) k.x = k.clean;
        else k.up->run(k.clean.data(), path.block_out, k.x.data(), static_cast<int>(n));
        for (size_t i = 0; i < n; ++i) s[i * ch + c] = static_cast<int32_t>(static_cast<uint32_t>(k.x[i]) << 16);
      }
    });
    return {};
  };
  kafx_tool::StreamResult r;
  const int status = kafx_tool::run_stream(so, positional[0], positional[1], setup, &r);
  if (status != 0) return status;

  FILE* info = positional[1] == "-" ? stderr : stdout;  // standard output may carry the audio
  const double audio_seconds = static_cast<double>(r.in_frames) / r.out_rate;
  std::fprintf(info, "%s -> %s\n", positional[0].c_str(), positional[1].c_str());
  std::fprintf(info, "  frames %lld, rate %d Hz, channels %d, policy %d, suppressor at %u Hz%s\n",
               static_cast<long long>(r.in_frames), r.out_rate, r.out_channels, policy, path.ns_rate,
               direct ? "" : " (resampled)");
  kafx_tool::print_levels_and_speed(info, r, audio_seconds);
  return 0;
}

// ---- kafx ns-quality ----------------------------------------------------------
//
// Voiced bursts (a harmonic series on a gliding 120..180 Hz pitch with a
// vowel-like spectral tilt, 0.4 s on, 0.4 s off) mixed with stationary noise
// at a given SNR (speech power in the bursts over noise power). After 4 s of
// settling, the figures are
//   noise attenuation: input over output power in the pauses, 60 ms clear of
//                      every burst edge;
//   speech change    : output over clean-speech power inside the bursts,
//                      60 ms clear of the edges.

namespace {

constexpr double kPi = 3.14159265358979323846;

struct QualitySignal {
  std::vector<double> speech, noise;
  std::vector<bool> in_burst;
};

QualitySignal make_quality_signal(int fs, double seconds, int noise_kind) {
  const size_t n = static_cast<size_t>(fs * seconds);
  QualitySignal q;
  q.speech.assign(n, 0.0);
  q.noise.assign(n, 0.0);
  q.in_burst.assign(n, false);
  uint32_t rng = 987654321u;
  auto white = [&rng] {
    rng = rng * 1664525u + 1013904223u;
    return (static_cast<double>(rng >> 8) / 16777216.0) * 2.0 - 1.0;
  };
  double phase = 0.0, b0 = 0, b1 = 0, b2 = 0;
  for (size_t i = 0; i < n; ++i) {
    const double t = static_cast<double>(i) / fs;
    const double cycle = std::fmod(t, 0.8);
    const bool on = cycle < 0.4;
    const double f0 = 150.0 + 30.0 * std::sin(2 * kPi * 0.9 * t);
    phase += 2 * kPi * f0 / fs;
    double v = 0.0;
    for (int h = 1; h * f0 < fs / 2 - 200; ++h) {
      const double f = h * f0;
      const double formant = 1.0 / (1.0 + std::pow((f - 700.0) / 300.0, 2)) + 0.5 / (1.0 + std::pow((f - 1800.0) / 400.0, 2));
      v += (0.15 / h + formant) * std::sin(h * phase);
    }
    const double env = on ? std::sin(kPi * std::min(1.0, cycle / 0.4)) : 0.0;  // soft onset and release
    q.speech[i] = on ? v * std::sqrt(std::max(env, 0.0)) : 0.0;
    q.in_burst[i] = on;
    const double w = white();
    switch (noise_kind) {
      case 0: q.noise[i] = w; break;
      case 1:  // pink (Paul Kellet's economy filter)
        b0 = 0.99765 * b0 + w * 0.0990460;
        b1 = 0.96300 * b1 + w * 0.2965164;
        b2 = 0.57000 * b2 + w * 1.0526913;
        q.noise[i] = b0 + b1 + b2 + w * 0.1848;
        break;
      default:  // mains hum with harmonics and a little hiss
        q.noise[i] = std::sin(2 * kPi * 50 * t) + 0.5 * std::sin(2 * kPi * 100 * t + 0.3) +
                     0.3 * std::sin(2 * kPi * 150 * t + 1.1) + 0.02 * w;
        break;
    }
  }
  return q;
}

double power(const std::vector<double>& v, const std::vector<bool>& mask) {
  double e = 0.0;
  size_t k = 0;
  for (size_t i = 0; i < v.size(); ++i) {
    if (mask[i]) {
      e += v[i] * v[i];
      ++k;
    }
  }
  return k ? e / static_cast<double>(k) : 0.0;
}

}  // namespace

int kafx_ns_quality_main(int argc, char** argv) {
  int fs = 16000;
  auto option = [&](const std::string&, const char* v) -> int {
    fs = std::atoi(v);
    if (fs != 8000 && fs != 16000 && fs != 32000) return kNsQuality.usage_error("--rate takes 8000, 16000 or 32000");
    return 0;
  };
  std::vector<std::string> none;
  if (const int rc = kafx_tool::parse_command_line(
          kNsQuality, argc, argv,
          "usage: kafx ns-quality [--rate 8000|16000|32000]\n"
          "\n"
          "Prints, per policy, the noise attenuation in speech pauses and the speech\n"
          "level change in bursts for voiced bursts in white, pink and hum noise at\n"
          "0, 5 and 10 dB SNR (12 s each, speech at -20 dBFS RMS in the bursts).\n",
          {{"--rate", true}}, option, {0, 0, ""}, &none);
      rc != 0)
    return rc < 0 ? 0 : rc;
  // At 32 kHz the suppressor takes 160-sample (5 ms) blocks of the 32 kHz
  // signal and analyses them as if they were 16 kHz, as the karaoke chain does.
  const int signal_rate = fs;
  const char* noise_names[] = {"white", "pink", "hum"};
  const double floors_db[] = {20 * std::log10(0.5), 20 * std::log10(0.25), 20 * std::log10(0.125),
                              20 * std::log10(1475.0 / 16384)};
  std::printf("noise suppressor quality at %d Hz: noise attenuation in pauses / speech level change in bursts (dB)\n",
              fs);
  std::printf("%-6s %4s | %-15s %-15s %-15s %-15s\n", "noise", "SNR", "policy 0", "policy 1", "policy 2", "policy 3");
  std::printf("%-6s %4s | floor %5.1f     floor %5.1f     floor %5.1f     floor %5.1f\n", "", "", floors_db[0],
              floors_db[1], floors_db[2], floors_db[3]);
  const double seconds = 12.0;
  for (int kind = 0; kind < 3; ++kind) {
    QualitySignal q = make_quality_signal(signal_rate, seconds, kind);
    const size_t n = q.speech.size();
    std::vector<bool> burst_mask(n, false), pause_mask(n, false);
    const size_t guard = static_cast<size_t>(0.06 * signal_rate), settle = static_cast<size_t>(4 * signal_rate);
    for (size_t i = settle; i + guard < n; ++i) {
      bool same = true;
      for (size_t k : {i - guard, i + guard}) same = same && q.in_burst[k] == q.in_burst[i];
      if (!same) continue;
      (q.in_burst[i] ? burst_mask : pause_mask)[i] = true;
    }
    const double speech_target = std::pow(10.0, -20.0 / 20) * 32768;  // RMS in bursts
    const double sp = std::sqrt(power(q.speech, q.in_burst));
    std::vector<bool> all(n, true);
    const double np = std::sqrt(power(q.noise, all));
    for (double snr : {0.0, 5.0, 10.0}) {
      const double noise_rms = speech_target / std::pow(10.0, snr / 20);
      std::vector<int16_t> mix(n);
      std::vector<double> clean(n), noise(n), mixd(n);
      for (size_t i = 0; i < n; ++i) {
        clean[i] = q.speech[i] * speech_target / sp;
        noise[i] = q.noise[i] * noise_rms / np;
        mix[i] = static_cast<int16_t>(std::clamp(std::lround(clean[i] + noise[i]), -32768L, 32767L));
        mixd[i] = mix[i];
      }
      std::printf("%-6s %4.0f |", noise_names[kind], snr);
      for (int policy = 0; policy < 4; ++policy) {
        const auto out = suppress(mix, static_cast<unsigned>(fs), policy);
        std::vector<double> outd(out.begin(), out.end());
        const double att = 10 * std::log10(power(mixd, pause_mask) / std::max(power(outd, pause_mask), 1e-9));
        const double change = 10 * std::log10(std::max(power(outd, burst_mask), 1e-9) / power(clean, burst_mask));
        std::printf(" %6.1f / %+5.1f ", att, change);
      }
      std::printf("\n");
    }
  }
  return 0;
}
