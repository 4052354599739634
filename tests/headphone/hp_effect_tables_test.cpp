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
#include <tuple>
#include <vector>

#include "headphone/hp_effect_tables.h"

namespace {

// The built-in parametric preset (adapter -1) or an adapter's record, rate row 0 (44.1 kHz) or 1 (48 kHz).
const param_eq_param_acdb_t& record(int rate, int adapter) {
  return adapter < 0 ? kafx::kHpParametricPreset[rate] : kafx::kHpAdapterTable[rate][adapter];
}

// Cascade gain in dB at `freq` of a record's left bands (Q28 b0, b1, b2 and the added-sign feedback a1, a2).
double cascade_db(const param_eq_param_acdb_t& r, double freq, double fs) {
  const std::complex<double> z1 = std::polar(1.0, -2 * std::numbers::pi * freq / fs), z2 = z1 * z1;
  const double s = 1.0 / (1 << 28);
  double db = 0;
  for (const auto& b : r.left_band)
    db += 20 * std::log10(std::abs((b[1] * s + b[2] * s * z1 + b[3] * s * z2) / (1.0 - b[4] * s * z1 - b[5] * s * z2)));
  return db;
}

// Both channels alike; gains 8192 and enables 3 (bell) or 4 (shelf) where filled; every section stable; unused
// bands exactly the pass-through set; the 96 and 192 kHz adapter records all zero.
TEST(HpTables, LayoutAndStability) {
  for (int r = 0; r < 2; ++r) {
    for (int a = -1; a < KEDO_HP_EFFECT_ADAPTERS; ++a) {
      SCOPED_TRACE(testing::Message() << "rate " << r << " adapter " << a + 1);
      const param_eq_param_acdb_t& rec = record(r, a);
      EXPECT_EQ(0, std::memcmp(rec.left_band, rec.right_band, sizeof rec.left_band));
      EXPECT_TRUE(rec.gain_left == 8192 && rec.gain_right == 8192);
      for (const auto& b : rec.left_band) {
        EXPECT_TRUE(b[0] == 3 || b[0] == 4);
        const double a1 = b[4] / 268435456.0, a2 = -b[5] / 268435456.0;  // textbook denominator 1 - a1 z^-1 + a2 z^-2
        EXPECT_TRUE(std::fabs(a2) < 1 && std::fabs(a1) < 1 + a2) << "unstable section";
        const std::vector<int32_t> pass_through = {3, 1 << 28, 0, 0, 0, 0};
        if (b[2] == 0 && b[3] == 0) {
          EXPECT_EQ(std::vector<int32_t>(b, b + 6), pass_through);
        }
      }
    }
  }
  const param_eq_param_acdb_t zero{};
  for (int r = 2; r < 4; ++r)
    for (const auto& rec : kafx::kHpAdapterTable[r]) EXPECT_EQ(0, std::memcmp(&rec, &zero, sizeof zero)) << r;
  // Each rate has its own design.
  EXPECT_NE(0, std::memcmp(&record(0, 0), &record(1, 0), sizeof zero));
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
  for (int r = 0; r < 2; ++r)
    for (const auto& [what, adapter, freq, db, tol] : cases)
      EXPECT_NEAR(cascade_db(record(r, adapter), freq, r == 0 ? 44100 : 48000), db, tol) << what << " at rate " << r;
}

}  // namespace
