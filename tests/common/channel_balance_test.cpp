// Channel balance: defaults and accessors, the stated mixes, saturation of
// extrapolated ratios and the wrapping mono fold.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "kafx_proc/channel_balance.h"

TEST(ChannelBalance, DefaultsAccessorsAndMonoFold) {
  channel_balance_t cb;
  cb.reserved[0] = 11;
  channel_balance_init(&cb);
  EXPECT_EQ((std::array{cb.status, cb.reserved[0], cb.channel_ration, cb.channel_num}), (std::array{1, 11, 0, 2}));
  int got[3];
  channel_balance_setstatus(&cb, 0);
  channel_balance_set_channel_ration(&cb, -77);
  channel_balance_set_channel_num(&cb, 1);
  channel_balance_getstatus(&cb, &got[0]);
  channel_balance_get_channel_ration(&cb, &got[1]);
  channel_balance_get_channel_num(&cb, &got[2]);
  EXPECT_EQ(std::to_array(got), (std::array{0, -77, 1}));
  // The fold ignores the ratio: (l + r) >> 1 with a wrapping 32-bit add.
  int l[3] = {2147483647, -7, 100}, r[3] = {1, 0, 101}, out[3];
  channel_balance_process_mono(&cb, l, r, out, 3);
  EXPECT_EQ(std::to_array(out), (std::array{-1073741824, -4, 100}));
  channel_balance_end(&cb);  // end restores the defaults
  EXPECT_EQ((std::array{cb.status, cb.channel_ration, cb.channel_num}), (std::array{1, 0, 2}));
}

TEST(ChannelBalance, StereoMixes) {
  // Processed in place. r > 0 blends right into left, r <= 0 left into
  // right; the products are floored and never flushed (-0.75 -> -1), and
  // ratios beyond +-8192 extrapolate, saturated.
  const std::vector<int> L = {1000, -3000, 8388607, 7}, R = {-1000, 5000, -8388608, 0};
  struct Row { int ratio; std::vector<int> l, r, out_l, out_r; } rows[] = {
      {0, L, R, L, R},
      {8192, L, R, R, R},
      {-4096, L, R, L, {0, 1000, -1, 3}},  // (l + r) / 2 rounded down
      {2048, {1000, -1}, {-1000, 0}, {500, -1}, {-1000, 0}},
      {1, {8192}, {0}, {8191}, {0}},
      {3 * 8192, {2000000000}, {-2000000000}, {INT32_MIN}, {-2000000000}},
      {-3 * 8192, {2000000000}, {-2000000000}, {2000000000}, {INT32_MAX}},
      {INT32_MIN, {1}, {1}, {1}, {1}},  // extreme ratio, no overflow
  };
  channel_balance_t cb;
  channel_balance_init(&cb);
  for (Row& row : rows) {
    channel_balance_set_channel_ration(&cb, row.ratio);
    const int n = static_cast<int>(row.l.size());
    channel_balance_process_stereo(&cb, row.l.data(), row.r.data(), row.l.data(), row.r.data(), n);
    EXPECT_EQ(row.l, row.out_l) << row.ratio;
    EXPECT_EQ(row.r, row.out_r) << row.ratio;
  }
}
