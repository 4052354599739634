// Helpers of the speaker configuration tests: a scratch folder for XML files,
// a front-end handle, and the parameter record as read back from the chain.
#ifndef KAFX_TESTS_SPEAKER_CONFIG_TEST_UTIL_H
#define KAFX_TESTS_SPEAKER_CONFIG_TEST_UTIL_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "kafx_proc/speaker_boost.h"

namespace spcfg_test {

using Flat = std::array<int32_t, 168>;

// A private folder under the test temp dir, removed with its files.
class ScratchDir {
 public:
  ScratchDir() {
    std::string pattern = ::testing::TempDir() + "kafx_spcfg_XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed for " << pattern;
    dir_ = pattern;
  }
  ~ScratchDir() {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  std::string path(const std::string& name) const { return dir_ + "/" + name; }
  std::string write(const std::string& name, const std::string& bytes) const {
    const std::string p = path(name);
    std::ofstream f(p, std::ios::binary | std::ios::trunc);
    f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return p;
  }

 private:
  std::string dir_;
};

// A stereo 48 kHz 16-bit front end.
struct SpHandle {
  kafx_speaker_boost_t* h;
  SpHandle() : h(static_cast<kafx_speaker_boost_t*>(kafx_speaker_boost_init(2, 48000, 1))) {}
  ~SpHandle() { kafx_speaker_boost_deinit(h); }
  SpHandle(const SpHandle&) = delete;
  SpHandle& operator=(const SpHandle&) = delete;
  kedo_speaker_boost_t* chain() { return &h->chain; }
};

inline Flat flat(const kafx_sp_params_t& p) {
  Flat f;
  std::memcpy(f.data(), &p, sizeof p);
  return f;
}

inline kafx_sp_params_t record(const Flat& f) {
  kafx_sp_params_t p;
  std::memcpy(&p, f.data(), sizeof p);
  return p;
}

// What the chain holds, read back through its getters and laid out like the
// parameter record (index 4: the chain's own channel count, which decides
// stereo or mono).
inline Flat chain_state(kedo_speaker_boost_t* c) {
  Flat f{};
  kedo_speaker_boost_sbs_getstatus(c, &f[0]);
  kedo_speaker_boost_sbs_get_nld_gain_left(c, &f[1]);
  kedo_speaker_boost_sbs_get_nld_gain_right(c, &f[2]);
  kedo_speaker_boost_cb_get_channel_ration(c, &f[3]);
  f[4] = c->channel_num;
  drc_param_t d[8];
  kedo_speaker_boost_sbs_get_drc_low_left(c, &d[0]);
  kedo_speaker_boost_sbs_get_drc_mid_left(c, &d[1]);
  kedo_speaker_boost_sbs_get_drc_high_left(c, &d[2]);
  kedo_speaker_boost_sbs_get_drc_full_left(c, &d[3]);
  kedo_speaker_boost_sbs_get_drc_low_right(c, &d[4]);
  kedo_speaker_boost_sbs_get_drc_mid_right(c, &d[5]);
  kedo_speaker_boost_sbs_get_drc_high_right(c, &d[6]);
  kedo_speaker_boost_sbs_get_drc_full_right(c, &d[7]);
  for (int i = 0; i < 8; ++i) {
    f[5 + 5 * i] = d[i].attact_order;
    f[6 + 5 * i] = d[i].release_order;
    f[7 + 5 * i] = d[i].threshold;
    f[8 + 5 * i] = d[i].volume;
    f[9 + 5 * i] = d[i].denoise_threshold;
  }
  kedo_speaker_boost_p_eq_getstatus(c, &f[45]);
  kedo_speaker_boost_p_eq_get_gain_left(c, &f[46]);
  kedo_speaker_boost_p_eq_get_gain_right(c, &f[47]);
  int bands[10][6];
  kedo_speaker_boost_p_eq_getparameter_left(c, bands);
  std::memcpy(&f[48], bands, sizeof bands);
  kedo_speaker_boost_p_eq_getparameter_right(c, bands);
  std::memcpy(&f[108], bands, sizeof bands);
  return f;
}

// A record of arbitrary values that the limiter accessors keep as they are
// (the denoise threshold is stored as max(v, 2)).
inline Flat random_flat(std::mt19937& rng) {
  std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX);
  Flat f;
  for (auto& v : f) v = any(rng);
  for (int i = 0; i < 8; ++i) f[9 + 5 * i] = std::uniform_int_distribution<int32_t>(2, INT32_MAX)(rng);
  return f;
}

// What the chain holds after a record is applied: the limiters keep their
// expander threshold at 2 or more, every other member is stored as it is.
inline Flat chained(Flat f) {
  for (int i = 0; i < 8; ++i) f[static_cast<size_t>(9 + 5 * i)] = std::max(2, f[static_cast<size_t>(9 + 5 * i)]);
  return f;
}

// First differing index, or -1.
inline int first_difference(const Flat& a, const Flat& b) {
  for (int i = 0; i < 168; ++i)
    if (a[i] != b[i]) return i;
  return -1;
}

} // namespace spcfg_test

#endif
