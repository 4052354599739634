#include "host_audio.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "kafx_proc/host_format.h"

namespace kafx_tool {

bool parse_int(const char* text, long lo, long hi, int* value) {
  errno = 0;
  char* end = nullptr;
  const long v = std::strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || v < lo || v > hi) return false;
  *value = static_cast<int>(v);
  return true;
}

bool parse_int_list(const std::string& text, size_t count, long lo, long hi, std::vector<int>* values) {
  return parse_int_list(text, count, count, lo, hi, values);
}

bool parse_int_list(const std::string& text, size_t min_count, size_t max_count, long lo, long hi,
                    std::vector<int>* values) {
  values->clear();
  size_t pos = 0;
  while (true) {
    const size_t comma = text.find(',', pos);
    const std::string token = text.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
    int v = 0;
    if (!parse_int(token.c_str(), lo, hi, &v)) return false;
    values->push_back(v);
    if (comma == std::string::npos) return values->size() >= min_count && values->size() <= max_count;
    pos = comma + 1;
  }
}

int Command::usage_error(const std::string& message) const {
  std::fprintf(stderr, "kafx %s: %s\n(see 'kafx %s --help')\n", name, message.c_str(), name);
  return 2;
}

int Command::failure(const std::string& message) const {
  std::fprintf(stderr, "kafx %s: %s\n", name, message.c_str());
  return 1;
}

int parse_format_option(const Command& cmd, const char* value, int* bits) {
  if (!parse_int(value, 16, 32, bits) || (*bits != 16 && *bits != 24 && *bits != 32))
    return cmd.usage_error("--format must be 16, 24 or 32");
  return 0;
}

int parse_block_option(const Command& cmd, const char* value, int max_block, int* block) {
  if (!parse_int(value, 1, max_block, block))
    return cmd.usage_error("--block must be a frame count from 1 to " + std::to_string(max_block));
  return 0;
}

bool readable(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f != nullptr) std::fclose(f);
  return f != nullptr;
}

int format_type_of_bits(int bits) {
  return bits == 16 ? KAFX_FORMAT_PCM16 : bits == 24 ? KAFX_FORMAT_PCM24_IN_32 : KAFX_FORMAT_PCM32;
}

void HostBuffer::load(const std::vector<int32_t>& full, size_t total) {
  if (format_type == 1) {
    s16.assign(total, 0);
    for (size_t i = 0; i < full.size(); ++i) s16[i] = static_cast<int16_t>(full[i] >> 16);
  } else {
    s32.assign(total, 0);
    for (size_t i = 0; i < full.size(); ++i) s32[i] = format_type == 2 ? full[i] >> 8 : full[i];
  }
}

int32_t HostBuffer::full_scale(size_t i) const {
  if (format_type == 1) return static_cast<int32_t>(s16[i]) * 65536;
  if (format_type == 3) return s32[i];
  return std::clamp(s32[i], -8388608, 8388607) * 256;
}

unsigned char* HostBuffer::bytes() {
  return format_type == 1 ? reinterpret_cast<unsigned char*>(s16.data())
                          : reinterpret_cast<unsigned char*>(s32.data());
}

}  // namespace kafx_tool
