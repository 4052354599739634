// Stereo room reverb: eight parallel damped combs and four series all-passes
// per channel (the comb and all-pass blocks of delay.cpp), a wet/dry/width
// mix and a DC blocker per channel.
//
// Formats: parameters Q13. The comb input is the sample times `gain` (Q13,
// default 127, about 0.0155), so eight combs with loop gains up to ~0.99
// keep well inside the Q28 loop of a full-scale sample. Comb outputs are
// summed with 32-bit wrap-around (the scaled input leaves ample headroom).
// The mix is a 64-bit sum of three Q13 products, shifted by 13 and
// saturated to int32.
#include "kafx_proc/reverb.h"

#include <cstdlib>

#include "common/fixed_point.h"

using namespace kafx;

namespace {

constexpr int kCombs = 8;
constexpr int kAllpasses = 4;

// Delay lengths in samples, all prime, the right channel slightly longer
// than the left so that the two tails decorrelate. The same at every rate.
constexpr int kCombLeft[kCombs] = {1109, 1399, 1489, 1777, 1973, 2069, 2267, 2549};
constexpr int kCombRight[kCombs] = {1151, 1423, 1523, 1801, 1997, 2099, 2293, 2579};
constexpr int kAllpassLeft[kAllpasses] = {619, 523, 337, 241};
constexpr int kAllpassRight[kAllpasses] = {643, 547, 367, 269};

template <class T>
T* alloc_record() {
  return static_cast<T*>(std::malloc(sizeof(T)));
}

// One stereo frame through the comb banks and all-pass chains. The combs run
// alternately left k, right k; S picks the comb's sample format.
template <bool Wide>
inline void network_stereo(reverb_t* r, int32_t xl, int32_t xr, int32_t* acc_l, int32_t* acc_r) {
  int32_t al = 0;
  int32_t ar = 0;
  for (int k = 0; k < kCombs; ++k) {
    if constexpr (Wide) {
      al = wrap_add(al, comb_process_24(xl, r->comb_left[k]));
      ar = wrap_add(ar, comb_process_24(xr, r->comb_right[k]));
    } else {
      al = wrap_add(al, comb_process_16(xl, r->comb_left[k]));
      ar = wrap_add(ar, comb_process_16(xr, r->comb_right[k]));
    }
  }
  for (int k = 0; k < kAllpasses; ++k) {
    al = allpass_process(al, r->allpass_left[k]);
    ar = allpass_process(ar, r->allpass_right[k]);
  }
  *acc_l = al;
  *acc_r = ar;
}

// saturate32((wet1 * own + wet2 * other + dry_gain * dry) >> 13), the sum in
// 64 bits (wrapping only for gains far beyond any sensible setting).
inline int32_t mix(const reverb_t* r, int32_t own, int32_t other, int32_t dry) {
  int64_t acc = wrap_add64(static_cast<int64_t>(r->wet1) * own, static_cast<int64_t>(r->wet2) * other);
  acc = wrap_add64(acc, static_cast<int64_t>(r->dry_gain) * dry);
  return sat32(acc >> 13);
}

}  // namespace

extern "C" {

void reverb_init(reverb_t* r) {
  for (int k = 0; k < kCombs; ++k) {
    r->comb_left[k] = alloc_record<comber>();
    comb_init(r->comb_left[k], kCombLeft[k]);
    r->comb_right[k] = alloc_record<comber>();
    comb_init(r->comb_right[k], kCombRight[k]);
  }
  for (int k = 0; k < kAllpasses; ++k) {
    r->allpass_left[k] = alloc_record<allpass>();
    allpass_init(r->allpass_left[k], kAllpassLeft[k]);
    r->allpass_right[k] = alloc_record<allpass>();
    allpass_init(r->allpass_right[k], kAllpassRight[k]);
  }
  r->dc_left = alloc_record<dc_remove>();
  dc_remove_init(r->dc_left);
  r->dc_right = alloc_record<dc_remove>();
  dc_remove_init(r->dc_right);

  r->wet_gain = 8190;
  r->dry_gain = 0;
  r->feedback = 6945;
  r->damping = 1650;
  r->width = 8192;
  r->gain = 127;
  r->status = 0;
  r->wet = 2730;
  r->dry = 0;
  r->roomsize = 4096;
  r->damp = 4096;
  reverb_update(r);
}

void reverb_reset(reverb_t* r) {
  for (int k = 0; k < kCombs; ++k) {
    comb_reset(r->comb_left[k]);
    comb_reset(r->comb_right[k]);
  }
  for (int k = 0; k < kAllpasses; ++k) {
    allpass_reset(r->allpass_left[k]);
    allpass_reset(r->allpass_right[k]);
  }
  dc_remove_reset(r->dc_left);
  dc_remove_reset(r->dc_right);
}

void reverb_end(reverb_t* r) {
  for (int k = 0; k < kCombs; ++k) {
    comb_end(r->comb_left[k]);
    std::free(r->comb_left[k]);
    r->comb_left[k] = nullptr;
    comb_end(r->comb_right[k]);
    std::free(r->comb_right[k]);
    r->comb_right[k] = nullptr;
  }
  for (int k = 0; k < kAllpasses; ++k) {
    allpass_end(r->allpass_left[k]);
    std::free(r->allpass_left[k]);
    r->allpass_left[k] = nullptr;
    allpass_end(r->allpass_right[k]);
    std::free(r->allpass_right[k]);
    r->allpass_right[k] = nullptr;
  }
  dc_remove_end(r->dc_left);
  std::free(r->dc_left);
  r->dc_left = nullptr;
  dc_remove_end(r->dc_right);
  std::free(r->dc_right);
  r->dc_right = nullptr;
}

// wet1 weights a channel's own reverb, wet2 the other channel's:
// wet * (1 + width) / 2 and wet * (1 - width / 2). At full width the other
// channel's reverb still enters at half level; at width 0 the cross term is
// twice the direct one. The sums are formed in 64 bits.
void reverb_update(reverb_t* r) {
  const int64_t half = r->width / 2;
  r->wet1 = sat32((static_cast<int64_t>(r->wet_gain) * (half + 4096)) >> 13);
  r->wet2 = sat32((static_cast<int64_t>(r->wet_gain) * (8192 - half)) >> 13);
  for (int k = 0; k < kCombs; ++k) {
    comb_setsetdamp(r->comb_left[k], r->damping);
    comb_setsetdamp(r->comb_right[k], r->damping);
    comb_setfeedback(r->comb_left[k], r->feedback);
    comb_setfeedback(r->comb_right[k], r->feedback);
  }
}

// Room size 0 .. 8192 maps to comb feedback 5779 .. 8112 (0.705 .. 0.990).
void reverb_setroomsize(reverb_t* r, int value) {
  r->roomsize = value;
  r->feedback = sat_add(shr_sat<13>(static_cast<int64_t>(value) * 2333), 5779);
}

void reverb_getroomsize(reverb_t* r, int* value) { *value = r->roomsize; }

// Damp 0 .. 8192 maps to the comb's low-pass weight 0 .. 3301 (0.403).
void reverb_setdamp(reverb_t* r, int value) {
  r->damp = value;
  r->damping = shr_sat<13>(static_cast<int64_t>(value) * 3301);
}

void reverb_getdamp(reverb_t* r, int* value) { *value = r->damp; }

void reverb_setwet(reverb_t* r, int value) {
  r->wet = value;
  r->wet_gain = sat32(static_cast<int64_t>(value) * 3);
}

void reverb_getwet(reverb_t* r, int* value) { *value = r->wet; }

void reverb_setdry(reverb_t* r, int value) {
  r->dry = value;
  r->dry_gain = sat32(static_cast<int64_t>(value) * 2);
}

void reverb_getdry(reverb_t* r, int* value) { *value = r->dry; }

void reverb_setwidth(reverb_t* r, int value) { r->width = value; }

void reverb_getwidth(reverb_t* r, int* value) { *value = r->width; }

void reverb_setgain(reverb_t* r, int value) { r->gain = value; }

void reverb_getgain(reverb_t* r, int* value) { *value = r->gain; }

void reverb_setstatus(reverb_t* r, int status) { r->status = status; }

void reverb_getstatus(reverb_t* r, int* status) { *status = r->status; }

void reverb_process_stereo_24(reverb_t* r, int* in_left, int* in_right, int* out_left, int* out_right,
                              unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    const int32_t dl = in_left[i];
    const int32_t dr = in_right[i];
    int32_t al, ar;
    network_stereo<true>(r, mulq13(dl, r->gain), mulq13(dr, r->gain), &al, &ar);
    int ol = mix(r, al, ar, dl);
    int orr = mix(r, ar, al, dr);
    dc_remove_process_24(r->dc_left, &ol, &ol);
    dc_remove_process_24(r->dc_right, &orr, &orr);
    out_left[i] = ol;
    out_right[i] = orr;
  }
}

void reverb_process_stereo_16(reverb_t* r, short* in_left, short* in_right, short* out_left, short* out_right,
                              unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    const int32_t dl = in_left[i];
    const int32_t dr = in_right[i];
    int32_t al, ar;
    network_stereo<false>(r, mulq13(dl, r->gain), mulq13(dr, r->gain), &al, &ar);
    int ol = mix(r, al, ar, dl);
    int orr = mix(r, ar, al, dr);
    dc_remove_process_16(r->dc_left, &ol, &ol);
    dc_remove_process_16(r->dc_right, &orr, &orr);
    out_left[i] = sat16(ol);
    out_right[i] = sat16(orr);
  }
}

// The mono path scales the input by gain / 2^14 (half the stereo level) and
// forms its products in 32 bits with wrap-around; no DC blocker.
void reverb_processMono(reverb_t* r, short* in, short* out, int count) {
  for (int i = 0; i < count; ++i) {
    const int32_t d = in[i];
    const int32_t x = static_cast<int32_t>(static_cast<uint32_t>(r->gain) * static_cast<uint32_t>(d)) >> 14;
    int32_t acc = 0;
    for (int k = 0; k < kCombs; ++k) acc = wrap_add(acc, comb_process_16(x, r->comb_left[k]));
    for (int k = 0; k < kAllpasses; ++k) acc = allpass_process(acc, r->allpass_left[k]);
    const uint32_t sum = static_cast<uint32_t>(r->dry_gain) * static_cast<uint32_t>(d) +
                         static_cast<uint32_t>(r->wet1) * static_cast<uint32_t>(acc);
    out[i] = sat16(static_cast<int32_t>(sum) >> 13);
  }
}

}  // extern "C"
