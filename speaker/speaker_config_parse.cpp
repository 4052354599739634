// Number scanners, value lists and the dump lines of the speaker
// configuration (see speaker_config_parse.h).
#include "speaker/speaker_config_parse.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kafx::spcfg {

bool is_scan_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

namespace {

// Skips leading white space and an optional sign; true for '-'.
bool skip_space_and_sign(const char** s) {
  while (is_scan_space(**s)) ++*s;
  if (**s == '+' || **s == '-') return *(*s)++ == '-';
  return false;
}

}  // namespace

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool scan_hex32(const char* s, int32_t* out) {
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

bool scan_dec32(const char* s, int32_t* out) {
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

namespace {

// Scans the tokens of `text` into dst[0 .. count-1] with `scan`.
template <class Scan>
ListResult read_list(const char* text, const char* separators, Scan scan, int32_t* dst, int count) {
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

}  // namespace

ListResult read_hex_list(const char* text, int32_t* dst, int count) {
  return read_list(text, ";", scan_hex32, dst, count);
}

ListResult read_dec_list(const char* text, int32_t* dst, int count) {
  return read_list(text, ",", scan_dec32, dst, count);
}

void dump_lines(const kafx_sp_params_t& p, void (*sink)(const char* line)) {
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
