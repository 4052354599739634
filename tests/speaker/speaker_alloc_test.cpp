// Real-time safety and allocation failure of the speaker product: no process
// call reaches the allocator (front end, chain and boost system, every host
// format, mono and stereo, with every block on), and a failure at any one
// allocation of an init or a configuration load is reported (null handle,
// -1) with nothing leaked and nothing applied.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kafx_proc/speaker_boost.h"
#include "support/alloc_hooks.h"
#include "support/source_files.h"
#include "support/variants.h"

namespace {

using kafx_test::AllocCounter;
const std::string kExample = kafx_test::source_file("examples/speaker.xml");

// Every process call of the front end, with the example tuning loaded (every
// block on), for each host format, channel count and rate, with buffer sizes
// that leave partial blocks in the FIFOs; then the chain's and the boost
// system's own process entry points.
TEST(SpeakerAlloc, ProcessNeverAllocates) {
  for (int format : {1, 2, 3})
    for (unsigned channels : {1u, 2u})
      for (unsigned rate : {44100u, 48000u, 96000u, 192000u}) {
        void* h = kafx_speaker_boost_init(channels, rate, format);
        ASSERT_EQ(kafx_speaker_boost_loadconfig(h, kExample.c_str()), 0);
        const int32_t full = format == 1 ? 32767 : (format == 2 ? 8388607 : INT32_MAX);
        std::vector<int32_t> in32 = kafx_test::random_values<int32_t>(channels * 2000u, rate + format, -full, full);
        std::vector<int16_t> in16(in32.begin(), in32.end());
        char* p = format == 1 ? reinterpret_cast<char*>(in16.data()) : reinterpret_cast<char*>(in32.data());
        const size_t bytes_per_frame = channels * (format == 1 ? 2u : 4u);
        for (size_t frames : {1u, 239u, 240u, 241u, 480u, 17u, 782u}) {
          AllocCounter c;
          kafx_speaker_boost_process(h, p, static_cast<unsigned>(frames * bytes_per_frame));
          EXPECT_TRUE(c.allocations() == 0 && c.frees() == 0) << format << " " << channels << " " << rate << " " << frames;
          p += frames * bytes_per_frame;
        }
        kafx_speaker_boost_deinit(h);
      }
  void* h = kafx_speaker_boost_init(2, 48000, 2);
  ASSERT_EQ(kafx_speaker_boost_loadconfig(h, kExample.c_str()), 0);
  kedo_speaker_boost_t* chain = &static_cast<kafx_speaker_boost_t*>(h)->chain;
  std::vector<int32_t> l = kafx_test::random_values<int32_t>(600, 1, -8388607, 8388607), r = l;
  std::vector<int16_t> l16(600, 1000), r16(600, -1000);
  AllocCounter c;
  for (int channels : {2, 1}) {
    kedo_speaker_boost_set_channel_num(chain, channels);
    kedo_speaker_boost_core_process(chain, l.data(), r.data(), 240);
    kedo_speaker_boost_process_16(chain, l16.data(), r16.data(), l16.data(), r16.data(), 256);
    kedo_speaker_boost_process_24(chain, l.data(), r.data(), l.data(), r.data(), 255);
    kedo_speaker_boost_process_v2(chain, 16, l16.data(), r16.data(), l16.data(), r16.data(), 100);
    speaker_boost_system_process_stereo(chain->sbs, l.data(), r.data(), l.data(), r.data(), 600);
    speaker_boost_system_process_mono(chain->sbs, l.data(), l.data(), 513);
  }
  EXPECT_TRUE(c.allocations() == 0 && c.frees() == 0);
  kafx_speaker_boost_deinit(h);
}

// A failure at any allocation of the front end's init gives a null handle and
// frees everything the init had built.
TEST(SpeakerAlloc, InitFailureAtEveryAllocationReturnsNullAndLeaksNothing) {
  for (int format : {1, 3}) {
    const long n = kafx_test::for_each_failing_allocation([&](long failing) {
      void* h = kafx_speaker_boost_init(2, 44100, format);
      EXPECT_EQ(h == nullptr, failing != 0) << "allocation " << failing << " failed";
      kafx_speaker_boost_deinit(h);
    });
    EXPECT_GT(n, 100) << "every block's memory comes from the allocator";
  }
}

// A configuration load whose allocation fails returns -1 and applies nothing:
// the record stays zero, every block stays off, and a later load works. The
// allocations are counted on one handle and failed on another, fresh one.
TEST(SpeakerAlloc, LoadconfigFailureReturnsMinusOneAndAppliesNothing) {
  void* counted = kafx_speaker_boost_init(2, 48000, 1);
  auto* h = static_cast<kafx_speaker_boost_t*>(kafx_speaker_boost_init(2, 48000, 1));
  const long n = kafx_test::for_each_failing_allocation([&](long failing) {
    if (failing == 0) {
      ASSERT_EQ(kafx_speaker_boost_loadconfig(counted, kExample.c_str()), 0);
      return;
    }
    EXPECT_EQ(kafx_speaker_boost_loadconfig(h, kExample.c_str()), -1) << failing;
    const kafx_sp_params_t zero{};
    int p_eq = -1, sbs = -1;
    kedo_speaker_boost_p_eq_getstatus(&h->chain, &p_eq);
    kedo_speaker_boost_sbs_getstatus(&h->chain, &sbs);
    EXPECT_TRUE(std::memcmp(&zero, &h->params, sizeof zero) == 0 && p_eq == 0 && sbs == 0) << failing;
  });
  EXPECT_GE(n, 1) << "the file is read into allocated memory";
  EXPECT_EQ(kafx_speaker_boost_loadconfig(h, kExample.c_str()), 0);
  kafx_speaker_boost_deinit(counted);
  kafx_speaker_boost_deinit(h);
}

}  // namespace
