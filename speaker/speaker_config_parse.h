/*
 * Text side of the speaker configuration, shared by the loader in the library
 * and by the `kafx speaker-config` checker, which links the same sources
 * (speaker_config_parse.cpp; nothing here is exported from the library).
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

#include "common/lifecycle.h"
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

// The white space the scanners skip before a number (isspace in the C locale).
bool is_scan_space(char c);

// Value of a hexadecimal digit, -1 for any other character.
int hex_value(char c);

// "%x": optional white space, optional sign, optional 0x/0X prefix, then hex
// digits up to the first other character (trailing characters are ignored).
// "0x" not followed by a digit reads as the number 0, as strtoul does.
// The magnitude must fit in 32 bits (leading zeros are free); a wider number
// is refused rather than cut, because its low bits would be a different
// tuning value. A '-' negates modulo 2^32, so "-1" is 0xffffffff.
// Returns false when nothing was read; *out is then untouched.
bool scan_hex32(const char* s, int32_t* out);

// "%d": optional white space, optional sign, decimal digits up to the first
// other character. Values outside -2147483648..2147483647 are refused.
bool scan_dec32(const char* s, int32_t* out);

// ---------------------------------------------------------------------------
// Token lists.

// Duplicates `text`, cuts it at every separator character (strsep) and calls
// visit(index, token) for every token in order, the empty ones included.
// Returns the number of tokens, or 0 when `text` is null or cannot be copied
// (nothing is visited then; the failed allocation is counted, see
// common/lifecycle.h, so a loader watching its allocations notices).
template <class Visit>
inline size_t for_each_token(const char* text, const char* separators, Visit&& visit) {
  if (text == nullptr) return 0;
  char* copy = static_cast<char*>(alloc_copy(text, std::strlen(text) + 1));
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

// Hexadecimal list of an XML element: ";"-separated, into dst[0 .. count-1].
ListResult read_hex_list(const char* text, int32_t* dst, int count);

// Decimal parameter string: ","-separated, into dst[0 .. count-1].
ListResult read_dec_list(const char* text, int32_t* dst, int count);

// ---------------------------------------------------------------------------
// Dump lines of a record, in order, handed one by one to sink.
void dump_lines(const kafx_sp_params_t& p, void (*sink)(const char* line));

} // namespace kafx::spcfg

#endif
