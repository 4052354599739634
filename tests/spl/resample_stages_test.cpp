// Every resampling stage against the published routine of the same name:
// the same streams go through both, block after block, and the outputs, the
// carried states and what is left of the input (some stages use it as
// scratch) must agree bit for bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <type_traits>

#include "kafx_proc/spl.h"
#include "spl/oracle.h"
#include "spl/spl_internal.h"

using namespace spltest;

namespace {

// One call's buffers. A stage reads the 16-bit block or the 32-bit words,
// as its input type says; the FIR stages read a few words beyond their K
// blocks. With in_place set, a FIR stage reads w from word 64 on and writes
// into w itself, `offset` words from there.
struct Io {
  std::vector<int16_t> s;
  std::vector<int32_t> w, out;
  bool in_place = false;
  int offset = 0;
};

template <typename T>
auto& input(Io& io) {
  if constexpr (sizeof(T) == 2) return io.s; else return io.w;
}

// Adapters from a stage's own signature to (Io, len, state).
// By-2 and low-pass stages: f(in, len, out, state), out in the stage's type.
template <typename I, typename L, typename O>
void call(void (*f)(I*, L, O*, int32_t*), Io& io, int len, int32_t* st) {
  std::vector<O> out(io.out.begin(), io.out.end());
  f(input<I>(io).data(), static_cast<L>(len), out.data(), st);
  std::copy(out.begin(), out.end(), io.out.begin());
}

// Fractional stages: K = len / r blocks, no state.
template <typename K>
void call_fir(void (*f)(const int32_t*, int32_t*, K), Io& io, int len, int32_t*, int r) {
  int32_t* in = io.w.data() + (io.in_place ? 64 : 0);
  f(in, io.in_place ? in + io.offset : io.out.data(), static_cast<K>(len / r));
}

// Fixed-ratio resamplers: one call per block; this library's side gets
// exactly the documented scratch (overruns show under ASan), the reference's
// 8 -> 48 needs more.
template <typename S>
void call_fixed(void (*f)(const int16_t*, int16_t*, S*, int32_t*), Io& io, int len,
                int32_t* st, int in_blk, int out_blk, int scratch) {
  std::vector<int32_t> tmp(std::is_void_v<S> ? 512 : scratch);
  std::vector<int16_t> out(io.out.begin(), io.out.end());
  for (int i = 0, o = 0; i < len; i += in_blk, o += out_blk)
    f(io.s.data() + i, out.data() + o, static_cast<S*>(static_cast<void*>(st)), tmp.data());
  std::copy(out.begin(), out.end(), io.out.begin());
}

struct Stage {
  const char* name;
  int unit, num, den;  // len a multiple of unit, len * num / den outputs
  int words;           // carried state (0: a stateless FIR stage)
  void (*mine)(Io&, int, int32_t*), (*ref)(Io&, int, int32_t*);
  void (*reset)(int32_t*);  // fixed-ratio records: must leave all words zero
};

#define RUN(adapter, f, ...) \
  [](Io& io, int len, int32_t* st) { adapter(f, io, len, st __VA_OPT__(, ) __VA_ARGS__); }
#define PAIR(adapter, f, ...) \
  RUN(adapter, kedoSpl_##f, __VA_ARGS__), RUN(adapter, WebRtcSpl_##f, __VA_ARGS__)
#define BY2(f, unit, num, den, words) {#f, unit, num, den, words, PAIR(call, f), nullptr}
#define FIR(f, in, out) {#f, in, out, in, 0, PAIR(call_fir, f, in), nullptr}
#define FIXED(a, b, in, out, words, scratch)                                          \
  {#a "To" #b, in, out, in, words, PAIR(call_fixed, Resample##a##To##b, in, out, scratch), \
   [](int32_t* st) {                                                                  \
     kedoSpl_ResetResample##a##To##b(reinterpret_cast<kedoSpl_State##a##To##b*>(st));  \
   }}

const Stage kStages[] = {
    // The exported 16-bit stages take the lane form where it is native;
    // the scalar form is checked on its own.
    BY2(DownsampleBy2, 1, 1, 2, 8), BY2(UpsampleBy2, 1, 2, 1, 8),
    {"scalar DownsampleBy2", 1, 1, 2, 8, RUN(call, kafx::spl::downsample_by2_scalar),
     RUN(call, WebRtcSpl_DownsampleBy2), nullptr},
    {"scalar UpsampleBy2", 1, 2, 1, 8, RUN(call, kafx::spl::upsample_by2_scalar),
     RUN(call, WebRtcSpl_UpsampleBy2), nullptr},
    // The reference DownBy2IntToShort writes one sample past len / 2 when
    // that is odd; only the len / 2 outputs are compared.
    BY2(DownBy2ShortToInt, 2, 1, 2, 8), BY2(DownBy2IntToShort, 2, 1, 2, 8),
    BY2(UpBy2ShortToInt, 1, 2, 1, 8), BY2(UpBy2IntToInt, 1, 2, 1, 8),
    BY2(UpBy2IntToShort, 1, 2, 1, 8), BY2(LPBy2ShortToInt, 2, 1, 1, 16),
    BY2(LPBy2IntToInt, 2, 1, 1, 16),
    FIR(Resample48khzTo32khz, 3, 2), FIR(Resample32khzTo24khz, 4, 3),
    FIR(Resample44khzTo32khz, 11, 8), FIR(32khzTo22khzIntToInt, 16, 11),
    FIXED(48khz, 16khz, 480, 160, 32, 496), FIXED(16khz, 48khz, 160, 480, 24, 336),
    FIXED(48khz, 8khz, 480, 80, 40, 496), FIXED(8khz, 48khz, 80, 480, 32, 336),
    FIXED(22khz, 16khz, 220, 160, 24, 104), FIXED(16khz, 22khz, 160, 220, 16, 88),
    FIXED(22khz, 8khz, 220, 80, 32, 126), FIXED(8khz, 22khz, 80, 220, 24, 98),
};

TEST(ResampleStages, StreamsMatchReference) {
  uint32_t seed = 0;
  for (const Stage& st : kStages) {
    // The four signals (32-bit inputs get them in the internal format,
    // signal << 15 plus a half), then arbitrary words: sums and states wrap.
    for (int cls = 0; cls < 5; ++cls) {
      std::mt19937 rng(++seed);
      Source src(kSignals[cls % 4], seed);
      // The state exactly as large as documented (overruns show under ASan).
      std::vector<int32_t> mine_st(st.words, st.reset ? 0x5a5a5a5a : 0), ref_st(st.words, 0);
      if (st.reset) st.reset(mine_st.data());
      ASSERT_EQ(mine_st, ref_st) << st.name << " reset";
      for (int b = 0; b < 16; ++b) {
        const int len = st.unit * std::uniform_int_distribution<int>(0, 960 / st.unit)(rng);
        Io io{src.block(len + 16), {}, {}};
        for (int16_t x : io.s) {
          io.w.push_back(cls == 4 ? static_cast<int32_t>(rng())
                                  : static_cast<int32_t>(static_cast<uint32_t>(x) << 15) + 16384);
        }
        const size_t n_out = static_cast<size_t>(len) * st.num / st.den;
        io.out.assign(n_out + 4, 7);
        Io ref = io;
        st.mine(io, len, mine_st.data());
        st.ref(ref, len, ref_st.data());
        ASSERT_TRUE(std::equal(io.out.begin(), io.out.begin() + n_out, ref.out.begin()))
            << st.name << " signal " << cls << " block " << b << " len " << len;
        ASSERT_TRUE(std::all_of(io.out.begin() + n_out, io.out.end(), [](int v) { return v == 7; }))
            << st.name << " writes past its output";
        ASSERT_TRUE(io.s == ref.s && io.w == ref.w) << st.name << " input afterwards";
        ASSERT_EQ(mine_st, ref_st) << st.name << " signal " << cls << " block " << b;
      }
    }
  }
}

// The FIR stages with input and output in one buffer: the output behind the
// input (the fixed-ratio resamplers run them 8, 10 and 16 words behind; the
// grouped kernels hold only from 0, 6 and 9 words behind on), on it, ahead.
TEST(ResampleStages, FractionalStagesInOneBuffer) {
  std::mt19937 rng(43);
  for (const Stage& st : kStages) {
    if (st.words != 0) continue;
    for (int offset : {-40, -16, -10, -9, -8, -6, -5, -1, 0, 1, 2, 3, 5, 8}) {
      for (int trial = 0; trial < 3; ++trial) {
        const int len = st.unit * std::uniform_int_distribution<int>(1, 24)(rng);
        Io io{{}, {}, {}, true, offset};
        for (int i = 0; i < len + 160; ++i) io.w.push_back(static_cast<int32_t>(rng()));
        Io ref = io;
        st.mine(io, len, nullptr);
        st.ref(ref, len, nullptr);
        ASSERT_EQ(io.w, ref.w) << st.name << " offset " << offset << " len " << len;
      }
    }
  }
}

}  // namespace
