// Channel balance: the stated mixes, saturation of extrapolated ratios and
// the wrapping mono fold.
#include <gtest/gtest.h>

#include <vector>

#include "kafx_proc/channel_balance.h"

namespace {

struct Cb {
  channel_balance_t cb{};
  Cb() { channel_balance_init(&cb); }
};

void run(Cb& c, int ratio, std::vector<int> l, std::vector<int> r, std::vector<int>* ol, std::vector<int>* orr) {
  channel_balance_set_channel_ration(&c.cb, ratio);
  ol->resize(l.size());
  orr->resize(r.size());
  channel_balance_process_stereo(&c.cb, l.data(), r.data(), ol->data(), orr->data(), static_cast<int>(l.size()));
}

TEST(ChannelBalance, InitAndAccessors) {
  channel_balance_t cb;
  cb.reserved[0] = 11;
  cb.reserved[1] = 22;
  channel_balance_init(&cb);
  EXPECT_EQ(cb.status, 1);
  EXPECT_EQ(cb.channel_ration, 0);
  EXPECT_EQ(cb.channel_num, 2);
  EXPECT_EQ(cb.reserved[0], 11);  // layout words untouched
  channel_balance_set_channel_num(&cb, 1);
  channel_balance_setstatus(&cb, 0);
  int v;
  channel_balance_get_channel_num(&cb, &v);
  EXPECT_EQ(v, 1);
  channel_balance_getstatus(&cb, &v);
  EXPECT_EQ(v, 0);
  channel_balance_end(&cb);  // end restores the defaults
  EXPECT_EQ(cb.status, 1);
  EXPECT_EQ(cb.channel_num, 2);
}

TEST(ChannelBalance, StatedMixes) {
  Cb c;
  std::vector<int> ol, orr;
  const std::vector<int> l = {1000, -3000, 8388607, 7};
  const std::vector<int> r = {-1000, 5000, -8388608, 0};
  run(c, 0, l, r, &ol, &orr);
  EXPECT_EQ(ol, l);
  EXPECT_EQ(orr, r);
  run(c, 8192, l, r, &ol, &orr);
  EXPECT_EQ(ol, r);
  EXPECT_EQ(orr, r);
  run(c, -4096, l, r, &ol, &orr);
  EXPECT_EQ(ol, l);
  EXPECT_EQ(orr, (std::vector<int>{0, 1000, -1, 3}));  // (l + r) / 2 rounded down
  run(c, 2048, l, r, &ol, &orr);
  EXPECT_EQ(ol[0], (6144 * 1000 + 2048 * -1000) >> 13);
  EXPECT_EQ(orr, r);
}

TEST(ChannelBalance, ExtrapolatedRatioSaturates) {
  Cb c;
  std::vector<int> ol, orr;
  run(c, 3 * 8192, {2000000000}, {-2000000000}, &ol, &orr);
  EXPECT_EQ(ol[0], -2147483647 - 1);
  run(c, -3 * 8192, {2000000000}, {-2000000000}, &ol, &orr);
  EXPECT_EQ(orr[0], 2147483647);  // (-16384 * -2e9 + 24576 * 2e9) >> 13
  run(c, -2147483647 - 1, {1}, {1}, &ol, &orr);  // extreme ratio, no UB
  EXPECT_EQ(orr[0], 1);
}

TEST(ChannelBalance, MonoFoldWraps) {
  Cb c;
  int l[3] = {2147483647, -7, 100};
  int r[3] = {1, 0, 101};
  int out[3];
  channel_balance_process_mono(&c.cb, l, r, out, 3);
  EXPECT_EQ(out[0], -1073741824);
  EXPECT_EQ(out[1], -4);
  EXPECT_EQ(out[2], 100);
}

}  // namespace
