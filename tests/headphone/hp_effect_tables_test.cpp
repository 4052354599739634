// Built-in records of the headphone chain: the layout the chain relies on (gains, band enables, all-zero high-rate
// records, identical channels), stable sections, and the documented intent of the records measured on their
// frequency responses. The stated preset rows are checked as the chain loads them (hp_effect_chain_test) and as
// designed, with the generator's regeneration, by test_tools.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <numbers>
#include <string>
#include <tuple>
#include <vector>

#include "headphone/hp_effect_tables.h"

namespace {

using V = std::vector<int32_t>;
using kafx::kHpAdapterTable;
using kafx::kHpParametricPreset;

V band(const int32_t (&b)[6]) { return V(b, b + 6); }

// Gain in dB at `freq` of one Q28 band record (b0, b1, b2 and the added-sign feedback a1, a2).
double band_db(const int32_t (&b)[6], double freq, double fs) {
  const std::complex<double> z1 = std::polar(1.0, -2 * std::numbers::pi * freq / fs), z2 = z1 * z1;
  const double s = 1.0 / (1 << 28);
  const auto num = b[1] * s + b[2] * s * z1 + b[3] * s * z2;
  const auto den = 1.0 - b[4] * s * z1 - b[5] * s * z2;
  return 20 * std::log10(std::abs(num / den));
}

// Cascade gain of a record's left bands.
double cascade_db(const param_eq_param_acdb_t& r, double freq, double fs) {
  double db = 0;
  for (const auto& b : r.left_band) db += band_db(b, freq, fs);
  return db;
}

// Both channels alike; gains 8192 and enables 3 (bell) or 4 (shelf) where filled; every section stable; unused
// bands exactly the pass-through set; the 96 and 192 kHz adapter records all zero.
TEST(HpTables, LayoutAndStability) {
  std::vector<std::pair<std::string, const param_eq_param_acdb_t*>> filled;
  for (int r = 0; r < 2; ++r) {
    filled.emplace_back("preset " + std::to_string(r), &kHpParametricPreset[r]);
    for (int a = 0; a < KEDO_HP_EFFECT_ADAPTERS; ++a)
      filled.emplace_back("adapter " + std::to_string(a + 1) + " rate " + std::to_string(r), &kHpAdapterTable[r][a]);
  }
  for (const auto& [what, rec] : filled) {
    EXPECT_EQ(0, std::memcmp(rec->left_band, rec->right_band, sizeof rec->left_band)) << what;
    EXPECT_TRUE(rec->gain_left == 8192 && rec->gain_right == 8192) << what;
    for (const auto& b : rec->left_band) {
      EXPECT_TRUE(b[0] == 3 || b[0] == 4) << what;
      const double a1 = b[4] / 268435456.0, a2 = -b[5] / 268435456.0;  // textbook denominator 1 - a1 z^-1 + a2 z^-2
      EXPECT_TRUE(std::fabs(a2) < 1 && std::fabs(a1) < 1 + a2) << what << " unstable section";
      if (b[2] == 0 && b[3] == 0) {
        EXPECT_EQ(band(b), (V{3, 268435456, 0, 0, 0, 0})) << what;
      }
    }
  }
  for (int r = 2; r < 4; ++r)
    for (const auto& rec : kHpAdapterTable[r]) {
      const param_eq_param_acdb_t zero{};
      EXPECT_EQ(0, std::memcmp(&rec, &zero, sizeof zero)) << r;
    }
  // Each rate has its own design.
  EXPECT_NE(0, std::memcmp(&kHpAdapterTable[0][0], &kHpAdapterTable[1][0], sizeof kHpAdapterTable[0][0]));
}

// The corrections do what the design notes say, at both rates: {record, frequency, cascade gain in dB, tolerance}.
TEST(HpTables, ResponsesFollowTheIntent) {
  const std::tuple<const char*, int, double, double, double> cases[] = {
      {"preset: 150 Hz trim", -1, 150, -2.0, 1.0},      // the neighbouring shelf adds a little
      {"preset: flat-ish at 1 kHz", -1, 1000, 1.0, 1.0},
      {"closed-back: bass bump cut", 0, 100, -4.0, 0.5},
      {"open-back: deep bass restored", 1, 20, 4.5, 0.6},
      {"on-ear: honk cut", 2, 2000, -2.0, 0.5},
      {"in-ear: 3 kHz resonance cut", 3, 3000, -3.0, 0.5},
      {"in-ear: canal peak cut", 3, 8000, -3.0, 0.5},
      {"earbud: bass restored", 4, 40, 7.0, 1.5},
      {"noise-cancelling: hump cut", 5, 50, -3.0, 0.5},
      {"bone conduction: bass restored", 6, 50, 5.8, 0.5},
  };
  for (int r = 0; r < 2; ++r) {
    const double fs = r == 0 ? 44100 : 48000;
    for (const auto& [what, adapter, freq, db, tol] : cases) {
      const param_eq_param_acdb_t& rec = adapter < 0 ? kHpParametricPreset[r] : kHpAdapterTable[r][adapter];
      EXPECT_NEAR(cascade_db(rec, freq, fs), db, tol) << what << " at " << fs;
    }
  }
}

}  // namespace
