// `kafx howl-test [--room RIR.wav] [--howling on|off] [--ramp SECONDS]`
//
// The microphone hears a voice-like source (-40 dBFS RMS) plus the
// loudspeaker through a room: mic = voice + g * (room * out), out being the
// microphone processed by the howling canceller (libkafx_proc, 240-sample
// frames at 48 kHz; the room delay, at least one frame, keeps the loop
// causal). For each room the tool searches, to 0.25 dB (upwards in 2 dB
// steps, then in 0.25 dB steps), the largest loop gain g at which the loop
// without the canceller still dies out after the voice stops; then, with
// the canceller, in 0.5 dB steps above that limit, the largest gain at
// which the loop dies out, never clips and its output never exceeds
// -20 dBFS in any 20 ms window. The difference is the
// stable gain the canceller adds in that room.
//
// By default every run starts at its loop gain with the voice (the harder
// case: the howl builds from the first syllable). With --ramp SECONDS the
// gain instead starts 6 dB lower and rises to its value over that time, as
// an operator turning the volume up; the voice is then that much longer.
//
// It also prints what notches alone could do in the room: the open-loop
// response's loudest point, left after five ideal notches of the
// canceller's width are cut out (howl_sim::notch_bound). Where that is below
// the added gain, the rest came from the canceller's gain, whose lowest
// value and value when the voice ends are printed for the best run.
//
// A room impulse response is read from any WAV file libsndfile opens (first
// channel, integer or float); other rates are resampled to 48 kHz by linear
// interpolation, with a message. It is normalised to a peak tap of 1 (its
// level is what the loop gain measures) and, so that the loop runs fast,
// thinned to its 512 strongest taps; no loudspeaker filter is added.
#include "howl_test.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "command_line.h"
#include "howl_sim.h"
#include "kafx_proc/howling_canceling.h"

namespace {

constexpr kafx_tool::Command kHowlTest{"howl-test"};

constexpr const char* kUsage =
    "usage: kafx howl-test [--room RIR.wav] [--howling on|off] [--ramp SECONDS]\n"
    "\n"
    "Closed-loop feedback simulation: a voice-like source plus the loudspeaker\n"
    "output through a room reaches the microphone, whose signal runs through\n"
    "the howling canceller. Prints, per room, the largest loop gain at which\n"
    "the loop stays stable without the canceller and (with --howling on, the\n"
    "default) with it, and the stable gain the canceller adds. The canceller\n"
    "watches 190 Hz to 11.8 kHz: a room that howls above that first gains\n"
    "nothing (measured responses should include the loudspeaker).\n"
    "\n"
    "  --room RIR.wav     a measured room impulse response (any rate, first\n"
    "                     channel); default: three built-in synthetic rooms\n"
    "  --howling on|off   also search with the canceller (default on)\n"
    "  --ramp SECONDS     raise each run's loop gain from 6 dB below to its\n"
    "                     value over SECONDS (0 to 60; default 0: start at it)\n";

bool read_rir(const std::string& path, std::vector<double>* ir, std::string* error) {
  SF_INFO info{};
  SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
  if (f == nullptr) {
    *error = "cannot read " + path + ": " + sf_strerror(nullptr);
    return false;
  }
  std::vector<double> all(static_cast<size_t>(info.frames) * info.channels);
  const sf_count_t got = sf_readf_double(f, all.data(), info.frames);
  sf_close(f);
  if (got <= 0) {
    *error = path + " holds no samples";
    return false;
  }
  std::vector<double> mono(static_cast<size_t>(got));
  for (sf_count_t i = 0; i < got; ++i) mono[i] = all[static_cast<size_t>(i) * info.channels];
  if (info.channels > 1) std::printf("%s: %d channels, using the first\n", path.c_str(), info.channels);
  if (info.samplerate != howl_sim::kRate) {
    std::printf("%s: %d Hz, resampled to %d Hz (linear interpolation)\n", path.c_str(), info.samplerate, howl_sim::kRate);
    const double step = static_cast<double>(info.samplerate) / howl_sim::kRate;
    std::vector<double> r;
    for (double t = 0; t + 1 < static_cast<double>(mono.size()); t += step) {
      const size_t i = static_cast<size_t>(t);
      r.push_back(mono[i] + (mono[i + 1] - mono[i]) * (t - static_cast<double>(i)));
    }
    mono.swap(r);
  }
  *ir = mono;
  return true;
}

// Half the -3 dB width of the canceller's notches: (1 - r) * 48000 / pi / 2
// for the pole radius r = 0.985.
constexpr double kNotchHalfWidthHz = 115;

double gain_db(int q13) { return q13 > 0 ? 20.0 * std::log10(q13 / 8192.0) : -600.0; }

bool quiet_loop(const howl_sim::LoopResult& r) { return !r.clipped && (r.tail_db < -90 || r.tail_db < r.end_voice_db - 1); }

}  // namespace

int kafx_howl_test_main(int argc, char** argv) {
  std::string rir_path;
  bool howling = true;
  int ramp = 0;
  auto option = [&](const std::string& a, const char* v) -> int {
    if (a == "--room") {
      rir_path = v;
    } else if (a == "--howling") {
      if (std::strcmp(v, "on") != 0 && std::strcmp(v, "off") != 0) return kHowlTest.usage_error("--howling takes on or off");
      howling = std::strcmp(v, "on") == 0;
    } else if (a == "--ramp") {
      if (!kafx_tool::parse_int(v, 0, 60, &ramp)) return kHowlTest.usage_error("--ramp takes 0 to 60 seconds");
    }
    return 0;
  };
  std::vector<std::string> none;
  if (const int rc = kafx_tool::parse_command_line(kHowlTest, argc, argv, kUsage, {{"--room", true}, {"--howling", true}, {"--ramp", true}},
                                                   option, {0, 0, ""}, &none);
      rc != 0)
    return rc < 0 ? 0 : rc;

  std::vector<howl_sim::Room> rooms;
  if (rir_path.empty()) {
    rooms = howl_sim::builtin_rooms();
  } else {
    std::vector<double> ir;
    std::string error;
    if (!read_rir(rir_path, &ir, &error)) {
      return kHowlTest.failure(error);
    }
    howl_sim::Room room = howl_sim::sparsify(rir_path, ir, 512);
    if (room.first_tap() >= static_cast<int>(room.ir.size())) {
      return kHowlTest.failure(rir_path + " is silent");
    }
    if (room.first_tap() == 0) {
      // The loop needs at least one sample of delay.
      room.ir.insert(room.ir.begin(), 0.0);
    }
    rooms.push_back(room);
  }

  const std::vector<double> voice = howl_sim::voice_like(4 + ramp, 7, -40);
  std::printf("voice-like source at -40 dBFS RMS, %d s, then 1.5 s of silence; loop gain in dB\n", 4 + ramp);
  if (ramp > 0) std::printf("each run's loop gain rises from %.0f dB below its value over %d s\n", howl_sim::kRampDb, ramp);
  for (const howl_sim::Room& room : rooms) {
    std::printf("%s (direct path %.1f ms)\n", room.name.c_str(), room.first_tap() * 1000.0 / howl_sim::kRate);
    // Upwards in 2 dB steps to the first gain that howls, then in 0.25 dB
    // steps from the last quiet one (the loop's stability does not come
    // back above the gain where it first howls).
    const auto quiet_at = [&](double g) { return quiet_loop(howl_sim::run_loop(room, g, voice, 1.5, [](int*, int) {}, ramp)); };
    double limit = -60;
    bool found = false;
    for (double g = -60; g <= 40 && quiet_at(g); g += 2) {
      limit = g;
      found = true;
    }
    const double coarse = limit;
    for (double g = coarse + 0.25; found && g < coarse + 2 && g <= 40 && quiet_at(g); g += 0.25) limit = g;
    if (!found) {
      std::printf("  without the canceller: unstable even at -60 dB\n");
      continue;
    }
    std::printf("  without the canceller: max stable loop gain %+.2f dB\n", limit);
    const std::vector<double> bound = howl_sim::notch_bound(room, HOWLING_NOTCHES, kNotchHalfWidthHz);
    std::printf("  %d ideal notches (+-%.0f Hz) could add at most %.1f dB here\n", HOWLING_NOTCHES, kNotchHalfWidthHz,
                bound.back());
    if (!howling) continue;
    double best = limit;
    double loudest = -600, lowest_gain = 0, end_gain = 0;
    for (double g = limit + 0.5; g <= limit + 15; g += 0.5) {
      howlingCancel h{};
      howling_canceling_init(&h);
      howling_canceling_setstatus(&h, 1);
      size_t done = 0;
      int low = h.gain, at_end = h.gain;
      const howl_sim::LoopResult r = howl_sim::run_loop(room, g, voice, 1.5, [&](int* b, int n) {
        howling_canceling_process(&h, b, b, n);
        low = std::min(low, h.gain);
        done += static_cast<size_t>(n);
        if (done <= voice.size()) at_end = h.gain;
      }, ramp);
      howling_canceling_end(&h);
      if (!quiet_loop(r) || r.max_window_db > -20) break;
      best = g;
      loudest = r.max_window_db;
      lowest_gain = gain_db(low);
      end_gain = gain_db(at_end);
    }
    if (best == limit) {
      std::printf("  with the canceller:    no gain added (the loop howls 0.5 dB above the limit)\n");
    } else {
      std::printf("  with the canceller:    max stable loop gain %+.2f dB (loudest 20 ms %.1f dBFS)\n", best, loudest);
    }
    std::printf("  added stable gain:     %.1f dB\n", best - limit);
    if (best != limit)
      std::printf("  canceller gain in that run: lowest %.1f dB, %.1f dB when the voice ends\n", lowest_gain, end_gain);
  }
  return 0;
}
