// Band post-processing: the sigmoid against the logistic function, the
// peak tracker, the speech-presence vote on hand-worked cases, the click
// limiter and the start-up fade against a direct model of the ramp, and the
// fatal division in a child process.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "common/fixed_point.h"
#include "kafx_proc/bp_ns.h"

namespace {

struct BpDeleter {
  void operator()(BPInfo_tag* p) const { BP_ns_delete(p); }
};
using BpPtr = std::unique_ptr<BPInfo_tag, BpDeleter>;

// ln(v) in Q8 from the double logarithm (the block's table is within a few steps).
double ln_q8(double v) { return std::log(v) * 256.0; }

// Close to the logistic function and monotonic; the normalisation keeps the
// division's operands in order for every input (checked densely around 0,
// where the denominator is 65534), so the fatal path is never reached.
TEST(Sigmoid, MatchesLogisticAndNeverReachesTheFatalDivision) {
  EXPECT_NEAR(sigmoid(0), 16384, 2);
  for (int x : {622592, 622593, 700000, 1 << 30, 2147483647}) EXPECT_GE(sigmoid(x), 32766) << x;
  for (int x : {-622592, -700000, -2147483647 - 1}) EXPECT_LE(sigmoid(x), 1) << x;
  int prev = -1;
  for (int x = -700000; x <= 700000; x += 1999) {
    const int s = sigmoid(x);
    const double expect = 32768.0 / (1.0 + std::exp(-x / 32768.0));
    ASSERT_NEAR(s, expect, 8 + expect * 0.002) << x;  // table, polynomial and the 16-bit division
    ASSERT_GE(s, prev - 1) << x;                       // monotonic up to the last bit (at this spacing)
    prev = s;
  }
  for (int x = -70000; x <= 70000; x++) ASSERT_TRUE(sigmoid(x) >= 0 && sigmoid(x) <= 32767) << x;
}

// The division itself ends the process with status 0 and its message.
TEST(Sigmoid, FatalDivisionInChildProcess) {
  struct {
    int16_t num, den;
    const char* message;
  } const rows[] = {{1, 0, "Division by 0, Fatal error \n"}, {5, 3, "Division Error var1=5  var2=3\n"}};
  for (const auto& r : rows) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::fflush(stdout);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      dup2(fds[1], STDOUT_FILENO);
      close(fds[0]);
      kafx::div_q15(r.num, r.den);
      _exit(99);  // not reached
    }
    close(fds[1]);
    std::string text;
    char buf[256];
    for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) text.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << r.message;
    EXPECT_EQ(text, r.message);
  }
}

TEST(BandPostProcessing, NullArguments) {
  BpPtr r(BP_ns_init(8000, 65));
  short buf[4] = {1, 2, 3, 4};
  unsigned short magn[65] = {};
  short g = 100;
  EXPECT_EQ(BP_ns_pre(nullptr, buf, 4), -1);
  EXPECT_EQ(BP_ns_pre(r.get(), nullptr, 4), -1);
  EXPECT_EQ(BP_ns_post(nullptr, buf, 4, buf), -1);
  EXPECT_EQ(BP_ns_post(r.get(), buf, 4, nullptr), -1);
  EXPECT_EQ(BP_ns_app(nullptr, magn, 0, 0), 0u);
  EXPECT_EQ(BP_ns_app(r.get(), nullptr, 0, 0), 0u);
  soft_gain_proc(buf, 4, nullptr, 0, &g, 50);
  soft_gain_proc(buf, 4, buf, 0, nullptr, 50);
  EXPECT_EQ(g, 100);
  EXPECT_EQ(buf[3], 4);
  EXPECT_EQ(r->frame_count, 0);  // nothing recorded
  EXPECT_EQ(r->in_peak_history[49], 0);
  BP_ns_delete(nullptr);
}

TEST(BandPostProcessing, InitAndPeakTracker) {
  BpPtr r(BP_ns_init(16000, 129));
  EXPECT_EQ(r->bin_count, 129);
  EXPECT_EQ(r->reset_count[0], 600);
  EXPECT_EQ(r->reset_count[1], 300);
  EXPECT_EQ(r->reset_count[2], 200);
  EXPECT_EQ(r->post_gain, 0);
  EXPECT_EQ(r->speech_prob, 0);
  struct {
    std::vector<short> block;
    short peak;
  } const rows[] = {
      {{-5, -300, -32768, -1}, 1},   // all negative
      {{10, 20, 30, 32767}, 30},     // the last sample is left out
      {{32767}, 1},                  // shorter than 2 samples
      {{}, 1},
      {{-7, 1200, 3, -9000, 4}, 1200},
  };
  std::vector<int> history(50, 0);
  for (const auto& row : rows) {
    std::vector<short> b = row.block;
    EXPECT_EQ(BP_ns_pre(r.get(), b.data(), static_cast<int>(b.size())), 0);
    history.erase(history.begin());
    history.push_back(row.peak);
    EXPECT_EQ(r->in_peak_history[49], row.peak);
    int sum = 0;
    for (int h : history) sum += h;
    EXPECT_EQ(r->in_peak_mean, sum / 50);
    for (int i = 0; i < 50; i++) ASSERT_EQ(r->in_peak_history[i], history[static_cast<size_t>(i)]);
  }
}

// Hand-worked vote: a constant input level and a flat spectrum give no
// vote, so the presence decays by 30 % per block; the features themselves
// follow their definitions.
TEST(BandPostProcessing, VoteOnConstantInput) {
  BpPtr r(BP_ns_init(8000, 65));
  std::vector<short> block(80, 1000);
  std::vector<unsigned short> magn(65, 400);
  for (int f = 0; f < 50; f++) BP_ns_pre(r.get(), block.data(), 80);  // history constant
  for (int f = 0; f < 12; f++) {
    BP_ns_pre(r.get(), block.data(), 80);
    EXPECT_EQ(BP_ns_app(r.get(), magn.data(), 65 * 400, 0), 0u);
  }
  // Every |h - mean| + 1 is 1 and every bin equals the mean: both features are 0.
  EXPECT_EQ(r->temporal_smoothed, 0);
  EXPECT_EQ(r->spectral_smoothed, 0);
  EXPECT_EQ(r->frame_count, 12);
  r->speech_prob = 20000;
  const int expect[] = {20000 - 6000, 14000 - 4200, 9800 - 2940};
  for (int e : expect) {
    BP_ns_pre(r.get(), block.data(), 80);
    const unsigned p = BP_ns_app(r.get(), magn.data(), 65 * 400, 0);
    EXPECT_NEAR(static_cast<int>(p), e, 1);
  }
}

// A spectrum far from flat with a jumping input level votes for speech.
TEST(BandPostProcessing, VoteOnVaryingInput) {
  BpPtr r(BP_ns_init(16000, 129));
  std::vector<unsigned short> flat(129, 300), peaky(129, 10);
  for (int i = 0; i < 129; i += 8) peaky[static_cast<size_t>(i)] = 30000;
  unsigned sum_peaky = 0;
  for (unsigned short m : peaky) sum_peaky += m;
  std::vector<short> quiet(160, 50), loud(160, 20000);
  unsigned p = 0;
  for (int f = 0; f < 700; f++) {  // noise-like, then speech-like from block 400
    const bool speech = f >= 400;
    std::vector<short>& b = speech && (f / 7) % 2 ? loud : quiet;
    BP_ns_pre(r.get(), b.data(), 160);
    p = speech ? BP_ns_app(r.get(), peaky.data(), sum_peaky, -2) : BP_ns_app(r.get(), flat.data(), 129 * 300, -2);
    if (f == 399) {
      EXPECT_LT(p, 8000u);
    }
  }
  EXPECT_GT(p, 20000u);
  EXPECT_LE(p, 32767u);
}

// A Q domain beyond the k ln 2 table (shifts of 15) is taken as the table's
// end: on the same blocks, a record fed q_magn and one fed -15 or 15 keep
// identical features and votes. The spectra are chosen so that the spectral
// feature moves at both ends (bins far above the mean at Q15, where only
// distances above e^10.4 count).
TEST(BandPostProcessing, QDomainBeyondTheTableIsTakenAsItsEnd) {
  struct {
    short q, end;
  } const rows[] = {{16, 15}, {40, 15}, {32767, 15}, {-16, -15}, {-41, -15}, {-32768, -15}};
  for (const auto& row : rows) {
    BpPtr a(BP_ns_init(16000, 129)), b(BP_ns_init(16000, 129));
    std::vector<short> block(160);
    std::vector<unsigned short> magn(129);
    std::set<int> spectral;
    for (int f = 0; f < 300; f++) {
      for (size_t i = 0; i < block.size(); i++) block[i] = static_cast<short>(((f % 9) * 3000 + i * 37) % 20000);
      unsigned sum = 0;
      for (size_t i = 0; i < magn.size(); i++) {
        const bool peak = (i + static_cast<size_t>(f)) % (5 + f % 7) == 0;
        magn[i] = static_cast<unsigned short>(peak ? 40000 + (f * 977 + i * 131) % 25000 : (f * 13 + i) % 400);
        sum += magn[i];
      }
      BP_ns_pre(a.get(), block.data(), 160);
      BP_ns_pre(b.get(), block.data(), 160);
      const unsigned pa = BP_ns_app(a.get(), magn.data(), sum, row.q);
      const unsigned pb = BP_ns_app(b.get(), magn.data(), sum, row.end);
      ASSERT_EQ(pa, pb) << row.q << " block " << f;
      ASSERT_EQ(a->spectral_smoothed, b->spectral_smoothed) << row.q << " block " << f;
      ASSERT_EQ(a->spectral_floor, b->spectral_floor) << row.q << " block " << f;
      spectral.insert(b->spectral_smoothed);
    }
    EXPECT_GT(spectral.size(), 50u) << row.q;  // the feature the comparison rests on moves
  }
}

// Direct model of the ramp: g from `gain` toward `target` by `step`, held at
// target once passed; out = (g in) >> 15.
std::vector<short> ramp_model(const std::vector<short>& in, int gain, int target, int step, int* final_gain) {
  std::vector<short> out(in.size());
  double g = gain;
  for (size_t i = 0; i < in.size(); i++) {
    out[i] = static_cast<short>(std::floor(g * in[i] / 32768.0));
    g += gain < target ? step : -step;
    if ((gain < target && g > target) || (gain >= target && g < target)) g = target;
  }
  *final_gain = static_cast<int>(g);
  return out;
}

TEST(BandPostProcessing, SoftGainRamp) {
  struct {
    short target, gain, step;
    int len;
  } const rows[] = {{0, 32767, 100, 400}, {16384, 16000, 7, 37}, {100, 100, 50, 5},
                    {32767, 32767, 50, 10}};
  for (const auto& row : rows) {
    std::vector<short> in(static_cast<size_t>(row.len));
    for (int i = 0; i < row.len; i++) in[static_cast<size_t>(i)] = static_cast<short>((i * 7919) % 65536 - 32768);
    std::vector<short> out(in.size(), 12345);
    short g = row.gain;
    soft_gain_proc(in.data(), row.len, out.data(), row.target, &g, row.step);
    if (row.target == 32767 && row.gain == 32767) {
      EXPECT_EQ(out, std::vector<short>(in.size(), 12345));  // untouched
      EXPECT_EQ(g, 32767);
      continue;
    }
    int fg = 0;
    EXPECT_EQ(out, ramp_model(in, row.gain, row.target, row.step, &fg)) << row.target << " " << row.gain;
    EXPECT_EQ(g, fg);
  }
}

// Start-up fade: from gain 0 up by 50 per sample, unity after 656 samples.
TEST(BandPostProcessing, StartupFade) {
  BpPtr r(BP_ns_init(16000, 129));
  std::vector<short> all_in, all_out;
  for (int b = 0; b < 6; b++) {
    std::vector<short> in(160);
    for (int i = 0; i < 160; i++) in[static_cast<size_t>(i)] = static_cast<short>(((b * 160 + i) % 40 - 20) * 500);
    std::vector<short> out = in;
    EXPECT_EQ(BP_ns_post(r.get(), out.data(), 160, out.data()), 0);
    all_in.insert(all_in.end(), in.begin(), in.end());
    all_out.insert(all_out.end(), out.begin(), out.end());
  }
  // Unity is reached in the fifth block; the sixth passes untouched.
  int fg = 0;
  const std::vector<short> first(all_in.begin(), all_in.begin() + 800);
  EXPECT_EQ(std::vector<short>(all_out.begin(), all_out.begin() + 800), ramp_model(first, 0, 32767, 50, &fg));
  EXPECT_TRUE(std::equal(all_in.begin() + 800, all_in.end(), all_out.begin() + 800));
  EXPECT_EQ(r->post_gain, 32767);
}

// One full-scale click among quiet blocks: its peak is limited to twice the
// largest of the last 10 output peaks; following blocks recover by 50 per sample.
TEST(BandPostProcessing, ClickLimiter) {
  BpPtr r(BP_ns_init(16000, 129));
  r->post_gain = 32767;
  auto quiet = [](int b) {
    std::vector<short> v(160);
    for (int i = 0; i < 160; i++) v[static_cast<size_t>(i)] = static_cast<short>((i + b) % 2 ? 300 : -280);
    return v;
  };
  for (int b = 0; b < 12; b++) {
    std::vector<short> v = quiet(b), in = v;
    BP_ns_post(r.get(), v.data(), 160, v.data());
    ASSERT_EQ(v, in);  // ordinary blocks at unity pass untouched
  }
  std::vector<short> click(160, 0);
  click[80] = 32767;
  std::vector<short> out = click;
  BP_ns_post(r.get(), out.data(), 160, out.data());
  const double crest = ln_q8(160.0 * 32767 + 1) - ln_q8(32768);
  EXPECT_NEAR(r->crest_log, crest, 3);
  const int target = 300 * 65534 / 32767;  // prev_max 300
  EXPECT_EQ(r->post_gain, target);
  EXPECT_EQ(out[80], (target * 32767) >> 15);
  EXPECT_LE(out[80], 2 * 300);
  EXPECT_EQ(r->out_peak_history[9], 600);
  // Recovery: +50 per sample from the limited gain.
  std::vector<short> next = quiet(0), in = next;
  BP_ns_post(r.get(), next.data(), 160, next.data());
  int fg = 0;
  EXPECT_EQ(next, ramp_model(in, target, 32767, 50, &fg));
  EXPECT_EQ(r->post_gain, std::min(32767, target + 160 * 50));
}

}  // namespace
