// Howling canceller: DC blocker, five notches steered by a 256-point
// integer FFT analysis of the elliptic-low-passed input, and a gain that
// drops while howling builds up. The design and its constants are described
// in include/kafx_proc/howling_canceling.h.
//
// Per sample (working samples, Q23 in int32):
//   d = dc_remove(x); ring <- elliptic(d)          (analysis copy)
//   y = d through every engaged notch, each mixed as y + depth (n(y) - y),
//       depth Q13 (8192 while locked, fading to 0 on release)
//   out = y * g >> 13 (product rule), g ramping linearly across the hop
// Every 128 samples the last 256 analysis samples are analysed and the
// trackers, notch centres and the gain target are updated. Integer only; no
// allocation after init.
#include "kafx_proc/howling_canceling.h"

#include <cstdlib>
#include <cstring>

#include "common/elliptic_block.h"
#include "common/fixed_point.h"
#include "common/lifecycle.h"
#include "common/notch_block.h"
#include "kafx_proc/dc_remove.h"
#include "kafx_proc/elliptic.h"
#include "kafx_proc/fft_int.h"
#include "kafx_proc/notch.h"
#include "ktv/fft_int_detail.h"
#include "ktv/howling_canceling_tables.h"

using namespace kafx;

namespace {

constexpr int kHistory = 8;  // analyses kept (rows of fft_power_history)
// Hits kept per tracker for the growth rules (the slow rule's window).
constexpr int kRing = HOWLING_SLOW_SPANS * HOWLING_SLOW_SPAN + 1;
constexpr int kFrameRise = HOWLING_FRAME_SPANS * HOWLING_GROW_SPAN + 1;  // hop levels kept

struct Tracker {
  int32_t state;      // HOWLING_IDLE .. HOWLING_RELEASE
  int32_t pos;        // tracked position, 1/256 bin
  int32_t hits;       // hits since the position settled
  int32_t clean;      // of those, hits without a harmonic partner
  int32_t run;        // hits in a row while followed (any position)
  int32_t pos_min;    // range of the positions of the settled hits, 1/256 bin
  int32_t pos_max;
  int32_t grow[kRing];   // levels of the last hits, dB Q8, circular
  int32_t rest[kRing];   // level of the background at those hits
  int32_t where[kRing];  // positions of those hits, 1/256 bin
  int32_t misses;     // analyses without a hit in a row
  int32_t since_hit;  // analyses since the last hit
  int32_t level;      // level of the last hit, dB Q8
  int32_t engaged;    // the notch runs
  int32_t depth;      // notch mix, Q13
  int32_t hit_now;    // hit in the current analysis
};

}  // namespace

struct howling_canceling_work {
  dc_remove dc;
  elliptic lowpass;
  notch notches[HOWLING_NOTCHES];
  Tracker tracker[HOWLING_NOTCHES];
  int32_t ring[FFT_INT_SIZE];  // analysis samples, circular
  int32_t ring_pos;            // next write position
  int32_t hop_fill;            // samples since the last analysis
  int64_t energy;              // sum of squares of the DC-blocked input over the hop
  int32_t zc_prev;             // zero crossings of the previous hop
  int32_t frame_levels[kFrameRise];  // levels of the last hops, dB Q8, circular
  int32_t analyses;            // analyses so far (wraps harmlessly)
  int32_t gain_from;           // gain ramp of the current hop, Q13
  int32_t gain_to;
  int32_t level[FFT_INT_BINS];
  int32_t history[kHistory][FFT_INT_BINS];
  int32_t scratch[FFT_INT_SIZE + 1];
  int32_t segment[HOWLING_HOP];  // the samples of the current segment
  complex bins[FFT_INT_SIZE];
};

extern "C" {
int fft_power_current[FFT_INT_BINS];
int fft_power_history[kHistory * FFT_INT_BINS];
}

namespace {

// Centre coefficient -2 cos(pi p / (128 * 256)) of a position p in 1/256 bin:
// the table entry of bin k = p >> 8, turned by the fraction b = pi f / 32768
// with the angle-sum rule, cos b ~ 1 - b^2 / 2 and sin b ~ b - b^3 / 6
// (b < 0.025: the next terms are below 2^-28).
int32_t centre_of(int32_t p) {
  if (p < 0) p = 0;
  if (p > (kHowlingTableSize - 1) * 256) p = (kHowlingTableSize - 1) * 256;
  const int k = p >> 8;
  const int64_t b = static_cast<int64_t>(p & 255) * 102944;  // pi f / 32768 in Q30 (pi * 2^15)
  const int64_t b2 = (b * b) >> 30;
  const int64_t cos_b = (int64_t{1} << 30) - (b2 >> 1);
  const int64_t sin_b = b - ((b2 * b) >> 30) / 6;
  const int64_t t = kHowlingCentre[k];
  const int64_t s = kHowlingCentre[k < 64 ? 64 - k : k - 64];  // -2 sin(pi k / 128), Q28
  return static_cast<int32_t>((t * cos_b - s * sin_b) >> 30);
}

void publish(howling_canceling_work* w) {
  const int row = (w->analyses & (kHistory - 1)) * FFT_INT_BINS;
  for (int k = 0; k < FFT_INT_BINS; ++k) {
    __atomic_store_n(&fft_power_current[k], w->level[k], __ATOMIC_RELAXED);
    __atomic_store_n(&fft_power_history[row + k], w->level[k], __ATOMIC_RELAXED);
  }
}

// Skirt of a lone sine: under the Hann window everything 2.5 bins or more
// from a sine lies at least 31.5 dB below it (first side lobe). The bin just
// beyond that distance above the peak, and below it where the sine's mirror
// image at -f is far enough away, must be at least `margin` down. A harmonic
// spectrum with partials less than 3 bins (560 Hz) apart fills those bins.
bool lone_skirt(const int32_t* level, int32_t pos, int32_t peak_level, int32_t margin) {
  const int up = (pos + 640 + 255) >> 8;  // first bin at least 2.5 bins above
  if (up < FFT_INT_BINS && level[up] > peak_level - margin) return false;
  const int down = (pos - 640) >> 8;  // last bin at least 2.5 bins below
  if (pos >= 5 * 256 + 128 && down >= 0 && level[down] > peak_level - margin) return false;
  return true;
}

// A partial of a voice or instrument: another clear peak within
// HOWLING_HARMONIC_RANGE at a small-integer frequency ratio. A peak at 2 to
// 5 times the frequency counts only when it is within HOWLING_DISTORTION of
// this one: a howl that drives the chain into clipping grows its own
// harmonics above it (a clipped sine's third harmonic lies about 10 dB
// down), and they must not hide it.
bool has_harmonic_partner(const int32_t* level, int32_t pos, int32_t peak_level) {
  static constexpr int kRatio[12][2] = {{1, 5}, {1, 4}, {1, 3}, {1, 2}, {2, 3}, {3, 4},
                                        {4, 3}, {3, 2}, {2, 1}, {3, 1}, {4, 1}, {5, 1}};
  for (const auto& r : kRatio) {
    const int32_t q = pos * r[0] / r[1];
    const int qb = (q + 128) >> 8;
    if (std::abs(q - pos) < 3 * 256 || qb < 1 || qb > FFT_INT_NO_PEAK + 32) continue;
    const int32_t range = r[1] == 1 ? HOWLING_DISTORTION : HOWLING_HARMONIC_RANGE;
    if (level[qb] >= peak_level - range && level[qb] >= FFT_INT_PEAK_MIN_LEVEL) return true;
  }
  return false;
}

void engage(howling_canceling_work* w, int i) {
  Tracker& t = w->tracker[i];
  const int32_t c = centre_of(t.pos);
  if (!t.engaged || std::abs(c - w->notches[i].centre) > 4 * HOWLING_GLIDE_STEP) {
    notch_setcoef(&w->notches[i], HOWLING_NOTCH_RADIUS, c);
  }
  t.engaged = 1;
  t.depth = kQ13One;
  t.state = HOWLING_LOCKED;
  t.since_hit = 0;
}

void glide(howling_canceling_work* w, int i) {
  const int32_t target = centre_of(w->tracker[i].pos);
  const int32_t now = w->notches[i].centre;
  int32_t d = target - now;
  if (d > HOWLING_GLIDE_STEP) d = HOWLING_GLIDE_STEP;
  if (d < -HOWLING_GLIDE_STEP) d = -HOWLING_GLIDE_STEP;
  if (d != 0) notch_setfi(&w->notches[i], now + d);
}

void free_tracker(Tracker& t) {
  t.state = t.engaged ? HOWLING_RELEASE : HOWLING_IDLE;
  t.hits = 0;
  t.clean = 0;
  t.run = 0;
  t.misses = 0;
}

// Level of the analysed band (bins 1 .. 63) without the main lobes (two bins
// either side) of the analysis' peaks: the background a howl rises out of.
int32_t rest_level(const howling_canceling_work* w, const int* peaks, int found) {
  uint64_t sum = 0;
  for (int j = 1; j < FFT_INT_NO_PEAK; ++j) {
    bool lobe = false;
    for (int p = 0; p < found; ++p) lobe = lobe || std::abs(j - peaks[p]) <= 2;
    if (!lobe) sum += bin_power(w->bins[j]) >> 6;
  }
  return power_level_q8(sum);
}

// Steady growth of a level series (a circular record of `len` values,
// the newest at `now`): each of the spans rose by `min_rise` or more and
// the largest rise is at most twice the smallest.
bool steady_rise(const int32_t* v, int len, int now, int span, int spans, int32_t min_rise) {
  int32_t lo = INT32_MAX, hi = INT32_MIN;
  for (int s = 0; s < spans; ++s) {
    const int a = ((now - s * span) % len + len) % len;
    const int b = ((now - (s + 1) * span) % len + len) % len;
    const int32_t rise = v[a] - v[b];
    lo = rise < lo ? rise : lo;
    hi = rise > hi ? rise : hi;
  }
  return lo >= min_rise && hi <= 2 * lo;
}

// Growth of a feedback loop, seen in the tracked level over the last
// `spans` spans of `span` hits: each span rose by `min_rise` or more (and,
// when `steady`, at a steady rate: the largest rise at most twice the
// smallest; a loop grows exponentially, a straight line in dB, while a sung
// or played onset rises fast and then levels off), at one frequency (within
// `width`; a gliding pitch drifts in and out of formants), and by
// HOWLING_GROW_EXCESS more than the background (an onset lifts all its
// partials together). Below HOWLING_GROW_LOWEST, where sung fundamentals
// dominate the spectrum, only the lone-sine rule locks.
bool growing(const Tracker& t, int span, int spans, int32_t min_rise, bool steady, int32_t width) {
  const int len = span * spans + 1;
  if (t.run < len) return false;
  const int now = (t.run - 1) % kRing;
  const int first = (t.run - len) % kRing;
  int32_t pmin = INT32_MAX, pmax = INT32_MIN, lo = INT32_MAX, hi = INT32_MIN;
  for (int i = 0; i < len; ++i) {
    const int32_t p = t.where[(t.run - 1 - i) % kRing];
    pmin = p < pmin ? p : pmin;
    pmax = p > pmax ? p : pmax;
  }
  if (pmin < HOWLING_GROW_LOWEST || pmax - pmin > width) return false;
  for (int s = 0; s < spans; ++s) {
    const int32_t rise = t.grow[(t.run - 1 - s * span) % kRing] - t.grow[(t.run - 1 - (s + 1) * span) % kRing];
    lo = rise < lo ? rise : lo;
    hi = rise > hi ? rise : hi;
  }
  if (lo < min_rise || (steady && hi > 2 * lo)) return false;
  const int32_t excess = (t.grow[now] - t.grow[first]) - (t.rest[now] - t.rest[first]);
  return excess >= HOWLING_GROW_EXCESS;
}

// The quick rule (a loop far above its limit, 750 dB/s and more: five hits
// decide), the fast rule (a loop well above its limit, 100 dB/s and more)
// or the slow one (a loop just above it, from 25 dB/s; a cluster of close
// modes may beat, so the frequency may wander by HOWLING_SLOW_WIDTH).
bool growing(const Tracker& t) {
  return growing(t, 1, HOWLING_QUICK_SPANS, HOWLING_QUICK_MIN, true, HOWLING_GROW_WIDTH) ||
         growing(t, HOWLING_GROW_SPAN, HOWLING_GROW_SPANS, HOWLING_GROW_MIN, true, HOWLING_GROW_WIDTH) ||
         growing(t, HOWLING_SLOW_SPAN, HOWLING_SLOW_SPANS, HOWLING_SLOW_MIN, false, HOWLING_SLOW_WIDTH);
}

// One analysis: spectrum, candidates, trackers, notches, gain target.
void analyse(howling_canceling_work* w) {
  // Oldest sample first.
  const int older = FFT_INT_SIZE - w->ring_pos;  // samples from ring_pos to the end
  std::memcpy(w->scratch, &w->ring[w->ring_pos], static_cast<size_t>(older) * sizeof(int32_t));
  std::memcpy(&w->scratch[older], w->ring, static_cast<size_t>(w->ring_pos) * sizeof(int32_t));
  int peaks[FFT_INT_MAX_PEAKS];
  const int found = fft_int_analyze(w->scratch, w->bins, w->level, peaks);
  const int row = w->analyses & (kHistory - 1);

  for (Tracker& t : w->tracker) t.hit_now = 0;
  bool evidence = false;
  // The background of this analysis (only needed when there are peaks).
  const int32_t rest = found > 0 ? rest_level(w, peaks, found) : FFT_INT_LEVEL_FLOOR;

  for (int p = 0; p < found; ++p) {
    const int k = peaks[p];
    const int32_t lv = w->level[k];
    const int32_t pos = fft_int_refine(w->bins, k);
    // One sine standing HOWLING_DOMINANT above the whole band is a howl that
    // has taken over the loop; once it clips, the intermodulation of its
    // beating modes fills the 28 dB skirt, so the 12 dB one applies.
    const int32_t skirt = lv - rest >= HOWLING_DOMINANT ? HOWLING_SKIRT_GROW : HOWLING_SKIRT;
    const bool partner = has_harmonic_partner(w->level, pos, lv) || !lone_skirt(w->level, pos, lv, skirt);
    const bool tonal_peak = lone_skirt(w->level, pos, lv, HOWLING_SKIRT_GROW);
    // The tracker nearest to this candidate, if within the match width.
    int best = -1;
    int32_t best_d = HOWLING_MATCH_WIDTH + 1;
    for (int i = 0; i < HOWLING_NOTCHES; ++i) {
      const Tracker& t = w->tracker[i];
      if (t.state == HOWLING_IDLE || t.hit_now) continue;
      const int32_t d = std::abs(pos - t.pos);
      if (d < best_d) {
        best_d = d;
        best = i;
      }
    }
    if (best < 0) {
      // A new candidate: an idle tracker, else the tracking one longest
      // without a hit.
      for (int i = 0; i < HOWLING_NOTCHES && best < 0; ++i)
        if (w->tracker[i].state == HOWLING_IDLE) best = i;
      if (best < 0) {
        int32_t longest = -1;
        for (int i = 0; i < HOWLING_NOTCHES; ++i) {
          const Tracker& t = w->tracker[i];
          if (t.hit_now || t.state != HOWLING_TRACKING || t.engaged) continue;
          if (t.since_hit > longest) {
            longest = t.since_hit;
            best = i;
          }
        }
      }
      if (best < 0 && !partner) {
        // Every notch holds a howl: a lone loud sine takes the notch that has
        // gone longest without a hit (at least a lock time); the notch stays
        // where it is until this candidate locks.
        int32_t longest = HOWLING_HITS_TO_LOCK;
        for (int i = 0; i < HOWLING_NOTCHES; ++i) {
          const Tracker& t = w->tracker[i];
          if (!t.hit_now && t.since_hit > longest && lv >= HOWLING_GAIN_MIN_LEVEL) {
            longest = t.since_hit;
            best = i;
          }
        }
      }
      if (best < 0) continue;
      Tracker& t = w->tracker[best];
      t.state = HOWLING_TRACKING;
      t.pos = pos;
      t.hits = 0;
      t.clean = 0;
      t.run = 0;
    }
    Tracker& t = w->tracker[best];
    t.hit_now = 1;
    t.misses = 0;
    t.since_hit = 0;
    t.level = lv;
    // The position range since the position settled: a sine held by a
    // feedback loop stays within a few hertz, a voice's vibrato or glide
    // leaves the range and starts the count again.
    if (t.hits == 0) t.pos_min = t.pos_max = pos;
    if (pos < t.pos_min) t.pos_min = pos;
    if (pos > t.pos_max) t.pos_max = pos;
    // (Twice the width below bin 2, where the mirror image at -f moves the
    // estimate with the sine's phase.)
    const int32_t width = pos < 2 * 256 ? 2 * HOWLING_STABLE_WIDTH : HOWLING_STABLE_WIDTH;
    if (t.pos_max - t.pos_min > width && t.state == HOWLING_TRACKING) {
      t.hits = 0;
      t.clean = 0;
      t.pos_min = t.pos_max = pos;
    }
    // Follow the peak: all the way while tracking, a quarter of the way for
    // a notch in place (smooths the estimate).
    t.pos = t.state == HOWLING_TRACKING ? pos : t.pos + (pos - t.pos) / 4;
    t.grow[t.run % kRing] = lv;
    t.rest[t.run % kRing] = rest;
    t.where[t.run % kRing] = pos;
    if (++t.run == 2 * kRing) t.run = kRing;  // keeps the ring order, never overflows
    ++t.hits;
    if (!partner) ++t.clean;
    const bool grows = tonal_peak && growing(t);
    const bool howl = t.clean >= HOWLING_HITS_TO_LOCK || grows;
    if (t.state == HOWLING_TRACKING && howl) engage(w, best);
    if (t.state == HOWLING_RELEASE && (!partner || grows)) engage(w, best);
    // Gain evidence: a howl still building up.
    if (grows && lv >= HOWLING_GAIN_MIN_LEVEL) evidence = true;
  }

  // Misses, releases, glides and fades.
  for (int i = 0; i < HOWLING_NOTCHES; ++i) {
    Tracker& t = w->tracker[i];
    if (t.state == HOWLING_IDLE) continue;
    if (!t.hit_now) {
      ++t.misses;
      ++t.since_hit;
      if (t.state == HOWLING_TRACKING && t.misses >= HOWLING_MISSES_TRACK) free_tracker(t);
      if (t.state == HOWLING_LOCKED && t.since_hit >= HOWLING_HOLD) t.state = HOWLING_RELEASE;
    }
    if (t.state == HOWLING_LOCKED) glide(w, i);
    if (t.state == HOWLING_RELEASE) {
      t.depth -= kQ13One / HOWLING_RELEASE_FRAMES;
      if (t.depth <= 0) {
        t.depth = 0;
        t.engaged = 0;
        t.state = HOWLING_IDLE;
        notch_resetstate(&w->notches[i]);
      }
    }
  }

  // Zero crossings of the last hop (one sample of overlap keeps the count
  // continuous across hops).
  const int zc_from = HOWLING_HOP < FFT_INT_SIZE ? FFT_INT_SIZE - HOWLING_HOP - 1 : 0;
  const int zc = cal_zero_cross(&w->scratch[zc_from], FFT_INT_SIZE - zc_from);
  const int32_t zc_tol = w->zc_prev / 8 > 1 ? w->zc_prev / 8 : 1;
  const bool tonal = zc > 0 && std::abs(zc - w->zc_prev) <= zc_tol;
  w->zc_prev = zc;
  if (tonal) {
    for (const Tracker& t : w->tracker)
      if (t.state == HOWLING_LOCKED && t.hit_now && t.level >= HOWLING_GAIN_MIN_LEVEL) evidence = true;
  }
  const int32_t frame_level = power_level_q8(static_cast<uint64_t>(w->energy));
  w->energy = 0;
  // The whole input rising steadily for HOWLING_FRAME_SPANS spans: several
  // modes building up together (none of them clean enough for a notch).
  const int fnow = w->analyses % kFrameRise;
  w->frame_levels[fnow] = frame_level;
  if (w->analyses >= kFrameRise && frame_level >= HOWLING_GAIN_MIN_LEVEL &&
      steady_rise(w->frame_levels, kFrameRise, fnow, HOWLING_GROW_SPAN, HOWLING_FRAME_SPANS, HOWLING_FRAME_RISE))
    evidence = true;

  // The gain target of the next hop.
  int32_t g = w->gain_to;
  if (evidence) {
    g = mulq13(g, HOWLING_GAIN_DOWN);
    if (g < HOWLING_GAIN_FLOOR) g = HOWLING_GAIN_FLOOR;
  } else if (frame_level < HOWLING_GAIN_QUIET) {
    g = static_cast<int32_t>((static_cast<int64_t>(g) * HOWLING_GAIN_UP) >> 13);
    if (g == w->gain_to) ++g;  // the step never stalls on rounding
    if (g > kQ13One) g = kQ13One;
  }
  w->gain_from = w->gain_to;
  w->gain_to = g;

  std::memcpy(w->history[row], w->level, sizeof w->level);
  publish(w);
  ++w->analyses;
  if (w->analyses < 0) w->analyses = kHistory;  // keeps the row order after a wrap
}

void clear(howling_canceling_work* w) {
  dc_remove_reset(&w->dc);
  elliptic_resetstate(&w->lowpass);
  for (int i = 0; i < HOWLING_NOTCHES; ++i) {
    notch_setcoef(&w->notches[i], HOWLING_NOTCH_RADIUS, 0);
    w->tracker[i] = Tracker{};
  }
  std::memset(w->ring, 0, sizeof w->ring);
  w->ring_pos = 0;
  w->hop_fill = 0;
  w->energy = 0;
  w->zc_prev = 0;
  w->analyses = 0;
  w->gain_from = kQ13One;
  w->gain_to = kQ13One;
  for (int32_t& v : w->level) v = FFT_INT_LEVEL_FLOOR;
  for (int32_t& v : w->frame_levels) v = FFT_INT_LEVEL_FLOOR;
  for (auto& row : w->history)
    for (int32_t& v : row) v = FFT_INT_LEVEL_FLOOR;
}

// A filter state that cannot be allocated stays null (clear leaves it
// alone); the owner ends the half-built canceller.
void work_init(howling_canceling_work* w) {
  dc_remove_init(&w->dc);
  elliptic_init(&w->lowpass, kHowlingLowpass);
  for (notch& n : w->notches) notch_init(&n, HOWLING_NOTCH_RADIUS, 0);
  clear(w);
}

void work_end(howling_canceling_work* w) {
  elliptic_end(&w->lowpass);
  for (notch& n : w->notches) notch_end(&n);
}

}  // namespace

extern "C" {

void howling_canceling_init(howlingCancel* h) {
  h->status = 0;
  h->gain = kQ13One;
  h->work = kafx::new_block<howling_canceling_work>(work_init);
}

void howling_canceling_reset(howlingCancel* h) {
  if (h == nullptr || h->work == nullptr) return;
  clear(h->work);
  h->gain = kQ13One;
}

void howling_canceling_end(howlingCancel* h) {
  if (h != nullptr) kafx::end_block(h->work, work_end);
}

void howling_canceling_setstatus(howlingCancel* h, int status) { h->status = status; }

void howling_canceling_getstatus(howlingCancel* h, int* status) { *status = h->status; }

void howling_canceling_process(howlingCancel* h, int* in, int* out, int count) {
  if (h == nullptr || count < 1) return;
  howling_canceling_work* w = h->work;
  if (w == nullptr || h->status == 0) {
    if (in != out) std::memmove(out, in, static_cast<size_t>(count) * sizeof(int));
    return;
  }
  // The stream runs in segments that end at the hops: within a segment the
  // notches, their depths and the gain ramp are fixed, so every stage runs
  // over the whole segment in turn (each stage sees its samples in order, as
  // sample by sample through the chain).
  for (int i = 0; i < count;) {
    const int n = count - i < HOWLING_HOP - w->hop_fill ? count - i : HOWLING_HOP - w->hop_fill;
    int32_t* y = w->segment;
    do_dc_remove_process(&w->dc, &in[i], y, n);
    // The analysis low-pass into the ring, in stretches that do not wrap.
    for (int j = 0; j < n;) {
      const int m = n - j < FFT_INT_SIZE - w->ring_pos ? n - j : FFT_INT_SIZE - w->ring_pos;
      kafx::elliptic_block(&w->lowpass, &y[j], &w->ring[w->ring_pos], m);
      w->ring_pos = (w->ring_pos + m) & (FFT_INT_SIZE - 1);
      j += m;
    }
    int64_t energy = w->energy;
    for (int j = 0; j < n; ++j) {
      const int64_t e = clamp24(y[j]);
      energy += e * e;
    }
    w->energy = energy;
    for (int k = 0; k < HOWLING_NOTCHES; ++k) {
      const Tracker& t = w->tracker[k];
      if (!t.engaged) continue;
      notch* f = &w->notches[k];
      if (t.depth == kQ13One) {
        notch_block(f, y, n, [](int32_t, int32_t o) { return o; });
      } else {
        const int32_t depth = t.depth;
        notch_block(f, y, n, [depth](int32_t x, int32_t o) { return sat_add(x, mulq13(sat_sub(o, x), depth)); });
      }
    }
    const int32_t from = w->gain_from, step = w->gain_to - w->gain_from;
    for (int j = 0; j < n; ++j) out[i + j] = mulq13(y[j], from + (step * (w->hop_fill + j)) / HOWLING_HOP);
    i += n;
    w->hop_fill += n;
    if (w->hop_fill == HOWLING_HOP) {
      w->hop_fill = 0;
      analyse(w);
    }
  }
  h->gain = w->gain_from + (((w->gain_to - w->gain_from) * w->hop_fill) / HOWLING_HOP);
}

void howling_canceling_getnotch(howlingCancel* h, int index, int* state, int* centre) {
  *state = 0;
  *centre = 0;
  if (h == nullptr || h->work == nullptr || index < 0 || index >= HOWLING_NOTCHES) return;
  const Tracker& t = h->work->tracker[index];
  *state = t.state;
  *centre = t.engaged ? h->work->notches[index].centre : 0;
}

int find_freq_idx(int centre) {
  int lo = 0, hi = kHowlingTableSize - 1;
  if (centre <= kHowlingCentre[lo]) return lo;
  if (centre >= kHowlingCentre[hi]) return hi;
  while (hi - lo > 1) {  // kHowlingCentre[lo] < centre < kHowlingCentre[hi]
    const int mid = (lo + hi) / 2;
    if (kHowlingCentre[mid] <= centre) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  // Nearest of the two (differences below 2^25, no overflow).
  return centre - kHowlingCentre[lo] <= kHowlingCentre[hi] - centre ? lo : hi;
}

int cal_zero_cross(const int* in, int count) {
  int n = 0;
  for (int i = 1; i < count; ++i) n += (in[i] < 0) != (in[i - 1] < 0);
  return n;
}

}  // extern "C"
