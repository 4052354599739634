/*
 * Text side of the speaker configuration, shared by the loader in the library
 * and by the `kafx speaker-config` checker (header only, no exported symbols).
 *
 *  - the layout of kafx_sp_params_t as a flat array of 168 int32 and the XML
 *    element names that fill it;
 *  - the number scanners: "%x"-style hexadecimal for the XML value lists and
 *    "%d"-style decimal for the parameter strings, both refusing values that
 *    do not fit in 32 bits;
 *  - the token splitter (a duplicated text cut at every separator, strsep
 *    style: two separators in a row give an empty token);
 *  - the dump lines of a record.
 *
 * Value lists: token k (0-based) goes to member first + k while k < count;
 * later tokens are ignored. A token that does not scan (empty, no digits, or
 * too wide) consumes its place and leaves that member unchanged.
 */
#ifndef KAFX_SPEAKER_SPEAKER_CONFIG_PARSE_H
#define KAFX_SPEAKER_SPEAKER_CONFIG_PARSE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kafx_proc/speaker_boost.h"

namespace kafx::spcfg {

// ---------------------------------------------------------------------------
// Record layout.

inline constexpr int kParamCount = 168;
inline constexpr int kSbsFirst = 0;
inline constexpr int kSbsCount = 45;
inline constexpr int kPeqFirst = 45;
inline constexpr int kPeqCount = 123;

static_assert(sizeof(kafx_sbs_params_t) == kSbsCount * sizeof(int32_t));
static_assert(sizeof(kafx_peq_params_t) == kPeqCount * sizeof(int32_t));
static_assert(sizeof(kafx_sp_params_t) == kParamCount * sizeof(int32_t));
static_assert(offsetof(kafx_sp_params_t, peq) == kPeqFirst * sizeof(int32_t));

// The record as plain integers. Copies go through memcpy so the record's
// members are never reached through a pointer to another member.
struct FlatParams {
  int32_t v[kParamCount];
};

inline FlatParams to_flat(const kafx_sp_params_t& p) {
  FlatParams f;
  std::memcpy(f.v, &p, sizeof(f.v));
  return f;
}

inline void from_flat(const FlatParams& f, kafx_sp_params_t* p) { std::memcpy(p, f.v, sizeof(f.v)); }

// One XML element of a section and the members it fills.
struct ElementSlot {
  const char* name;
  int first; // flat index of the first member
  int count; // members filled, in order
};

// Children of "sbs". drc_param_<side><n>: n = 0 low, 1 mid, 2 high, 3 full;
// five values each: attact_order, release_order, threshold, volume,
// denoise_threshold.
inline constexpr ElementSlot kSbsElements[] = {
    {"enable", 0, 1},
    {"gain", 1, 2},
    {"channel_ration", 3, 1},
    {"channel_num", 4, 1},
    {"drc_param_left0", 5, 5},
    {"drc_param_left1", 10, 5},
    {"drc_param_left2", 15, 5},
    {"drc_param_left3", 20, 5},
    {"drc_param_right0", 25, 5},
    {"drc_param_right1", 30, 5},
    {"drc_param_right2", 35, 5},
    {"drc_param_right3", 40, 5},
};

// Children of "peq": ten band records of six values per side
// (enable, b0, b1, b2, a1, a2; Q28, feedback coefficients stored negated).
inline constexpr ElementSlot kPeqElements[] = {
    {"enable", 45, 1},
    {"gain", 46, 2},
    {"Lfilter", 48, 60},
    {"Rfilter", 108, 60},
};

template <size_t N>
inline const ElementSlot* find_slot(const ElementSlot (&table)[N], const char* name) {
  if (name == nullptr) return nullptr;
  for (const ElementSlot& s : table)
    if (std::strcmp(s.name, name) == 0) return &s;
  return nullptr;
}

// ---------------------------------------------------------------------------
// Number scanners.

inline bool is_scan_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

inline int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Skips leading white space and an optional sign; true for '-'.
inline bool skip_space_and_sign(const char** s) {
  while (is_scan_space(**s)) ++*s;
  if (**s == '+' || **s == '-') return *(*s)++ == '-';
  return false;
}

// "%x": optional white space, optional sign, optional 0x/0X prefix, then hex
// digits up to the first other character (trailing characters are ignored).
// "0x" not followed by a digit reads as the number 0, as strtoul does.
// The magnitude must fit in 32 bits (leading zeros are free); a wider number
// is refused rather than cut, because its low bits would be a different
// tuning value. A '-' negates modulo 2^32, so "-1" is 0xffffffff.
// Returns false when nothing was read; *out is then untouched.
inline bool scan_hex32(const char* s, int32_t* out) {
  if (s == nullptr) return false;
  const bool negative = skip_space_and_sign(&s);
  if (s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    if (hex_value(s[2]) < 0) {
      *out = 0;
      return true;
    }
    s += 2;
  }
  uint64_t magnitude = 0;
  int digits = 0;
  for (int d; (d = hex_value(*s)) >= 0; ++s, ++digits) {
    magnitude = magnitude * 16u + static_cast<uint64_t>(d);
    if (magnitude > 0xFFFFFFFFu) return false;
  }
  if (digits == 0) return false;
  uint32_t u = static_cast<uint32_t>(magnitude);
  if (negative) u = 0u - u;
  *out = static_cast<int32_t>(u);
  return true;
}

// "%d": optional white space, optional sign, decimal digits up to the first
// other character. Values outside -2147483648..2147483647 are refused.
inline bool scan_dec32(const char* s, int32_t* out) {
  if (s == nullptr) return false;
  const bool negative = skip_space_and_sign(&s);
  uint64_t magnitude = 0;
  int digits = 0;
  for (; *s >= '0' && *s <= '9'; ++s, ++digits) {
    magnitude = magnitude * 10u + static_cast<uint64_t>(*s - '0');
    if (magnitude > 2147483648u) return false;
  }
  if (digits == 0) return false;
  if (!negative && magnitude > 2147483647u) return false;
  const uint32_t u = negative ? 0u - static_cast<uint32_t>(magnitude) : static_cast<uint32_t>(magnitude);
  *out = static_cast<int32_t>(u);
  return true;
}

// ---------------------------------------------------------------------------
// Token lists.

// Duplicates `text`, cuts it at every separator character (strsep) and calls
// visit(index, token) for every token in order, the empty ones included.
// Returns the number of tokens, or 0 when `text` is null or cannot be copied
// (nothing is visited then).
template <class Visit>
inline size_t for_each_token(const char* text, const char* separators, Visit&& visit) {
  if (text == nullptr) return 0;
  char* copy = strdup(text);
  if (copy == nullptr) return 0;
  size_t n = 0;
  for (char* cursor = copy; cursor != nullptr; ++n) {
    const char* token = strsep(&cursor, separators);
    visit(n, token);
  }
  std::free(copy);
  return n;
}

// What happened to one value list.
struct ListResult {
  size_t tokens = 0;    // tokens present
  int stored = 0;       // members written
  int malformed = 0;    // tokens within `count` that did not scan
};

// Scans the tokens of `text` into dst[0 .. count-1] with `scan`.
template <class Scan>
inline ListResult read_list(const char* text, const char* separators, Scan scan, int32_t* dst, int count) {
  ListResult r;
  r.tokens = for_each_token(text, separators, [&](size_t k, const char* token) {
    if (k >= static_cast<size_t>(count)) return;
    int32_t value;
    if (scan(token, &value)) {
      dst[k] = value;
      ++r.stored;
    } else {
      ++r.malformed;
    }
  });
  return r;
}

// Hexadecimal list of an XML element: ";"-separated.
inline ListResult read_hex_list(const char* text, int32_t* dst, int count) {
  return read_list(text, ";", scan_hex32, dst, count);
}

// Decimal parameter string: ","-separated.
inline ListResult read_dec_list(const char* text, int32_t* dst, int count) {
  return read_list(text, ",", scan_dec32, dst, count);
}

// ---------------------------------------------------------------------------
// Dump lines of a record, in order, handed one by one to sink(const char*).

template <class Sink>
inline void dump_lines(const kafx_sp_params_t& p, Sink&& sink) {
  char line[160];
  auto u = [](int32_t v) { return static_cast<unsigned>(v); };
  sink("sbs params dump:");
  std::snprintf(line, sizeof line, "enable: %d", p.sbs.enable);
  sink(line);
  std::snprintf(line, sizeof line, "gain: 0x%x 0x%x", u(p.sbs.gain[0]), u(p.sbs.gain[1]));
  sink(line);
  std::snprintf(line, sizeof line, "channel_ration: %d", p.sbs.channel_ration);
  sink(line);
  std::snprintf(line, sizeof line, "channel_num: %d", p.sbs.channel_num);
  sink(line);
  static const char* const kDrcNames[8] = {"drc_low_left:\t\t",  "drc_mid_left:\t\t", "drc_high_left:\t",
                                           "drc_full_left:\t",   "drc_low_right:\t",  "drc_mid_right:\t",
                                           "drc_high_right:\t", "drc_full_right:\t"};
  for (int i = 0; i < 8; ++i) {
    const drc_param_t& d = i < 4 ? p.sbs.drc_left[i] : p.sbs.drc_right[i - 4];
    std::snprintf(line, sizeof line, "%s 0x%x 0x%x 0x%x 0x%x 0x%x", kDrcNames[i], u(d.attact_order),
                  u(d.release_order), u(d.threshold), u(d.volume), u(d.denoise_threshold));
    sink(line);
  }
  sink("peq params dump:");
  std::snprintf(line, sizeof line, "enable: %d", p.peq.enable);
  sink(line);
  std::snprintf(line, sizeof line, "gain: 0x%x 0x%x", u(p.peq.gain[0]), u(p.peq.gain[1]));
  sink(line);
  for (int side = 0; side < 2; ++side) {
    sink(side == 0 ? "Lfilter params:" : "Rfilter params:");
    const int32_t(*bands)[6] = side == 0 ? p.peq.Lfilter : p.peq.Rfilter;
    for (int b = 0; b < 10; ++b) {
      std::snprintf(line, sizeof line, "band[%d]:\t 0x%08x 0x%08x 0x%08x 0x%08x 0x%08x 0x%08x", b + 1,
                    u(bands[b][0]), u(bands[b][1]), u(bands[b][2]), u(bands[b][3]), u(bands[b][4]),
                    u(bands[b][5]));
      sink(line);
    }
  }
}

} // namespace kafx::spcfg

#endif
