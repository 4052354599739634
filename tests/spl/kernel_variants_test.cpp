// Every build of every signal-processing kernel that this processor runs
// gives the baseline build's integers exactly: outputs, state and return
// values, on odd lengths, with nothing written past the end of an output.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <type_traits>
#include <utility>
#include <vector>

#include "spl/spl_internal.h"
#include "support/variants.h"

namespace {

using namespace kafx::spl;
using kafx_test::Guarded;
using kafx_test::kOddLengths;
using kafx_test::random_values;

int g_compared = 0;  // variant runs compared by the current test

// Builds wider than the baseline that this processor runs (0 or 1).
int wider_builds() {
  int n = 0;
  for (int i = 1; i < kafx::kIsaCount; ++i) n += kafx::isa_available(static_cast<kafx::Isa>(i)) ? 1 : 0;
  return KAFX_AVX2_VARIANTS ? n : 0;
}

// Every kernel of a test had its wider builds compared (none when the
// processor or the build has only the baseline).
void expect_compared(int kernels) {
  EXPECT_EQ(g_compared, kernels * wider_builds());
  if (wider_builds() == 0) std::printf("only the baseline build runs here: nothing to compare\n");
  g_compared = 0;
}

// A by-2 stage: `len` inputs of type In, `out_len(len)` outputs of type Out,
// `words` words of state; compares output (with its canaries) and state.
template <typename F, typename In, typename Out>
void check_by2(const kafx::KernelVariants<F>& v, int words, int (*out_len)(int), unsigned seed) {
  g_compared += kafx_test::for_each_variant(v, [&](F fn, F base) {
    for (int len : kOddLengths) {
      const std::vector<In> in = random_values<In>(static_cast<size_t>(len), seed + len);
      const std::vector<int32_t> st0 = random_values<int32_t>(static_cast<size_t>(words), seed, -(1 << 28), 1 << 28);
      std::vector<In> in_a = in, in_b = in;  // a decimator may use its input as scratch
      Guarded<Out> out_a(static_cast<size_t>(out_len(len))), out_b(static_cast<size_t>(out_len(len)));
      std::vector<int32_t> st_a = st0, st_b = st0;
      base(in_a.data(), len, out_a.data(), st_a.data());
      fn(in_b.data(), len, out_b.data(), st_b.data());
      EXPECT_EQ(out_a.v, out_b.v) << "len " << len;
      EXPECT_EQ(st_a, st_b) << "len " << len;
      EXPECT_TRUE(out_b.guards_intact()) << "len " << len;
    }
  });
}

int half(int len) { return len / 2; }
int twice(int len) { return 2 * len; }
int same(int len) { return len; }

TEST(KernelVariants, By2Stages) {
  check_by2<By2Stage16, int16_t, int16_t>(downsample_by2_variants, 8, half, 1);
  check_by2<By2Stage16, int16_t, int16_t>(upsample_by2_variants, 8, twice, 2);
  check_by2<By2IntToShort, int32_t, int16_t>(down_int_to_short_variants, 8, half, 3);
  check_by2<By2ShortToInt, int16_t, int32_t>(down_short_to_int_variants, 8, half, 4);
  check_by2<By2ShortToInt, int16_t, int32_t>(up_short_to_int_variants, 8, twice, 5);
  check_by2<By2IntToInt, int32_t, int32_t>(up_int_to_int_variants, 8, twice, 6);
  check_by2<By2IntToShortConst, int32_t, int16_t>(up_int_to_short_variants, 8, twice, 7);
  check_by2<By2ShortToInt, int16_t, int32_t>(lp_short_to_int_variants, 16, same, 8);
  check_by2<By2IntToInt, int32_t, int32_t>(lp_int_to_int_variants, 16, same, 9);
  expect_compared(9);
}

// A fractional stage over K blocks: reads a * K + b inputs, writes w * K.
template <typename F, typename Out>
void check_fir(const kafx::KernelVariants<F>& v, int a, int b, int w, unsigned seed) {
  g_compared += kafx_test::for_each_variant(v, [&](F fn, F base) {
    for (int k : kOddLengths) {
      const std::vector<int32_t> in = random_values<int32_t>(static_cast<size_t>(a * k + b), seed + k);
      Guarded<Out> out_a(static_cast<size_t>(w * k)), out_b(static_cast<size_t>(w * k));
      base(in.data(), out_a.data(), k);
      fn(in.data(), out_b.data(), k);
      EXPECT_EQ(out_a.v, out_b.v) << "K " << k;
      EXPECT_TRUE(out_b.guards_intact()) << "K " << k;
    }
  });
}

TEST(KernelVariants, FractionalStages) {
  check_fir<FirToInt, int32_t>(fir_48_32_mv_variants, 3, 6, 2, 11);
  check_fir<FirToInt, int32_t>(fir_32_24_mv_variants, 4, 6, 3, 12);
  check_fir<FirToInt, int32_t>(fir_44_32_mv_variants, 11, 7, 8, 13);
  check_fir<FirToInt, int32_t>(fir_32_22_mv_variants, 16, 7, 11, 14);
  check_fir<FirToShort, int16_t>(fir_32_22_to_short_mv_variants, 16, 7, 11, 15);
  expect_compared(5);
}

// A reduction over `len` values: the same result, the input untouched.
template <typename T, typename F, typename Call>
void check_reduction(const kafx::KernelVariants<F>& v, unsigned seed, Call call) {
  g_compared += kafx_test::for_each_variant(v, [&](F fn, F base) {
    for (int len : kOddLengths) {
      // Full-range values, then values with the extremes repeated and the
      // most negative one present (its magnitude wraps).
      for (int variant = 0; variant < 2; ++variant) {
        std::vector<T> in = random_values<T>(static_cast<size_t>(len), seed + len + 100u * variant);
        if (variant == 1) {
          for (size_t i = 0; i < in.size(); i += 3) in[i] = std::numeric_limits<T>::min();
        }
        EXPECT_TRUE(call(base, in) == call(fn, in)) << "len " << len << " case " << variant;
      }
    }
  });
}

TEST(KernelVariants, VectorRoutines) {
  auto both = [](auto f, const auto& in) {
    const auto e = f(in.data(), static_cast<int>(in.size()));
    return std::pair(e.lo, e.hi);
  };
  auto plain = [](auto f, const auto& in) { return f(in.data(), static_cast<int>(in.size())); };
  check_reduction<int16_t>(both16_variants, 21, both);
  check_reduction<int32_t>(both32_variants, 22, both);
  check_reduction<int16_t>(max16_variants, 23, plain);
  check_reduction<int32_t>(max32_variants, 24, plain);
  check_reduction<int16_t>(min16_variants, 25, plain);
  check_reduction<int32_t>(min32_variants, 26, plain);
  check_reduction<int16_t>(wrapped_max_abs16_variants, 27, plain);
  // The first index of either of two values, one of which is present: the
  // last element and the middle one.
  auto first = [](auto f, const auto& in) {
    const int len = static_cast<int>(in.size());
    return f(in.data(), len, in[static_cast<size_t>(len - 1)], in[static_cast<size_t>(len / 2)]);
  };
  check_reduction<int16_t>(first16_variants, 28, first);
  check_reduction<int32_t>(first32_variants, 29, first);
  for (int sc : {0, 1, 7, 15}) {
    check_reduction<int16_t>(shifted_square_sum_variants, 30u + sc, [sc](auto f, const auto& in) {
      return f(in.data(), static_cast<int>(in.size()), sc);
    });
  }
  expect_compared(9 + 4);
}

// The transforms in place on 2^stages points (2 ... 1024).
template <typename F>
void check_fft(const kafx::KernelVariants<F>& v, unsigned seed) {
  g_compared += kafx_test::for_each_variant(v, [&](F fn, F base) {
    for (int stages = 1; stages <= 10; ++stages) {
      const int n = 1 << stages;
      const std::vector<int16_t> in = random_values<int16_t>(2u * n, seed + stages, -8000, 8000);
      Guarded<int16_t> a(2u * n), b(2u * n);
      std::copy(in.begin(), in.end(), a.v.begin());
      std::copy(in.begin(), in.end(), b.v.begin());
      if constexpr (std::is_same_v<F, FftInverse>) {
        EXPECT_EQ(base(a.data(), n), fn(b.data(), n)) << "n " << n;
      } else {
        base(a.data(), n);
        fn(b.data(), n);
      }
      EXPECT_EQ(a.v, b.v) << "n " << n;
      EXPECT_TRUE(b.guards_intact()) << "n " << n;
    }
  });
}

TEST(KernelVariants, ComplexFft) {
  check_fft(fft_forward_truncating_variants, 41);
  check_fft(fft_forward_rounding_variants, 42);
  check_fft(fft_inverse_truncating_variants, 43);
  check_fft(fft_inverse_rounding_variants, 44);
  expect_compared(4);
}

}  // namespace
