// Kernel variants: the one place that decides which build of a hot kernel
// runs.
//
// A kernel is written once, as an always-inline body, and instantiated per
// instruction set by KAFX_KERNEL_VARIANTS:
//   - the baseline build (the reference, always built): plain C++ and the
//     vector extension of spl/simd.h lowered to the target's baseline
//     (SSE2 on x86-64, NEON on aarch64, scalar VFP on armhf);
//   - an AVX2 build on x86-64 (GCC and clang), where 32-bit lane multiplies
//     and 256-bit registers are native;
//   - a NEON build on ARM, for kernels written with NEON intrinsics (its
//     32x32->64 multiply-accumulate and saturating narrowing shift are the
//     product rule per 64-bit lane). AArch64 always has NEON; on 32-bit ARM
//     (armhf, whose baseline is VFP only) the NEON functions carry a target
//     attribute (GCC) or sit in files compiled for NEON (clang), and run
//     only where the kernel reports NEON (AT_HWCAP).
// The best variant the processor can run is chosen while the library loads
// and kept in a pointer that every call loads and calls (run_chosen below: no
// first-call guard, which could take a lock in a real-time thread); every
// variant computes the same integers, which tests/common/dispatch_test.cpp
// checks against the baseline on odd lengths.
//
// A kernel whose wide form does not pay off everywhere lists only the
// variants that do (the 16-bit by-2 stages: scalar everywhere, lanes only as
// the AVX2 variant, because the lane form is slower than scalar code on
// in-order ARM cores).
//
// Build with -DKAFX_DISPATCH=0 (CMake option KAFX_DISPATCH=OFF) for the
// baseline variants only.
#ifndef KAFX_COMMON_DISPATCH_H
#define KAFX_COMMON_DISPATCH_H

#include <atomic>
#include <type_traits>

// KAFX_AVX2_VARIANTS (and its older name KAFX_DISPATCH): 1 where AVX2
// builds are made, so code guarded by it may use __builtin_cpu_supports.
#if (!defined(KAFX_DISPATCH) || KAFX_DISPATCH) && defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define KAFX_AVX2_VARIANTS 1
#define KAFX_TARGET_AVX2 __attribute__((target("avx2")))
#else
#define KAFX_AVX2_VARIANTS 0
#define KAFX_TARGET_AVX2
#endif

// KAFX_NEON_VARIANTS: 1 where NEON builds are made (AArch64, and 32-bit ARM
// with GCC, or with clang where the build compiles the NEON files with NEON);
// KAFX_TARGET_NEON marks their definitions. With GCC on 32-bit ARM
// <arm_neon.h> may be included without -mfpu=neon; its intrinsics are usable
// inside functions with the attribute. Declarations elsewhere go without it
// (the calling convention is the same): GCC 12 on 32-bit ARM lets a target
// attribute on a mere declaration disturb the code of the rest of the file.
// clang (14) has no such attribute on 32-bit ARM: its <arm_neon.h> and NEON
// vector types need NEON for the whole file. There the NEON kernels live in
// files of their own, named *_neon.cpp, which the build compiles with
// -mfpu=neon and announces by defining KAFX_NEON_FILES (CMakeLists.txt); such
// a file must hold only code that runs after the NEON check (no inline
// function another file also uses may be emitted in it, or the linker could
// keep the NEON-built copy). Without KAFX_NEON_FILES clang builds the
// baseline only. There KAFX_TARGET_NEON is empty: the whole file is built
// for NEON, and clang does not know GCC's "fpu=neon" feature (it would warn
// that it ignores it).
#if (!defined(KAFX_DISPATCH) || KAFX_DISPATCH) && defined(__aarch64__)
#define KAFX_NEON_VARIANTS 1
#define KAFX_TARGET_NEON
#elif (!defined(KAFX_DISPATCH) || KAFX_DISPATCH) && defined(__arm__) && defined(__GNUC__) && !defined(__clang__)
#define KAFX_NEON_VARIANTS 1
#define KAFX_TARGET_NEON __attribute__((target("fpu=neon")))
#elif (!defined(KAFX_DISPATCH) || KAFX_DISPATCH) && defined(__arm__) && defined(__clang__) && defined(KAFX_NEON_FILES) && \
    KAFX_NEON_FILES
#define KAFX_NEON_VARIANTS 1
#define KAFX_TARGET_NEON
#else
#define KAFX_NEON_VARIANTS 0
#define KAFX_TARGET_NEON
#endif
#undef KAFX_DISPATCH
#define KAFX_DISPATCH KAFX_AVX2_VARIANTS

// Unrolls the loop that follows completely (its trip count must be a
// compile-time constant), so that per-lane arrays indexed by the loop
// variable can be kept in registers.
#if defined(__clang__)
#define KAFX_UNROLL _Pragma("unroll")
#elif defined(__GNUC__)
#define KAFX_UNROLL _Pragma("GCC unroll 16")
#else
#define KAFX_UNROLL
#endif

namespace kafx {

enum Isa : int { kIsaBaseline = 0, kIsaAvx2 = 1, kIsaNeon = 2, kIsaCount = 3 };

// Whether this processor runs code built for `isa` (the baseline always).
bool isa_available(Isa isa);
const char* isa_name(Isa isa);

// The builds of one kernel, indexed by Isa; null where not built.
template <class F>
struct KernelVariants {
  const char* name;
  F fn[kIsaCount];
};

// The most capable variant this processor runs.
template <class F>
F choose(const KernelVariants<F>& v) {
  for (int i = kIsaCount - 1; i > 0; --i)
    if (v.fn[i] != nullptr && isa_available(static_cast<Isa>(i))) return v.fn[i];
  return v.fn[kIsaBaseline];
}

// The kernel of a variants table as one function of the kernel's own type,
// running the variant chosen for this processor:
//   constexpr auto quantile_update = run_chosen<quantile_update_variants>;
// or called in place: run_chosen<gain_run_q13_variants>(in, out, gain, n).
// The choice is kept in `slot`, which is constant-initialised (valid before
// any constructor of the library runs) to `first`; `at_load`, a namespace-
// scope initialiser, replaces it with the chosen variant while the library
// loads, so a process call is a relaxed load (a plain load on x86-64 and ARM)
// and an indirect call. A call made before that, from another file's
// load-time initialiser, runs `first`, which chooses, stores and runs the
// variant. Every thread that gets there stores the same pointer, and the
// slot is atomic, so there is no lock and no data race.
template <const auto& Variants, class Table = std::remove_cvref_t<decltype(Variants)>>
struct ChosenVariant;

template <const auto& Variants, class R, class... A>
struct ChosenVariant<Variants, KernelVariants<R (*)(A...)>> {
  using Fn = R (*)(A...);
  static_assert(std::atomic<Fn>::is_always_lock_free, "a process call must not take a lock");

  static R first(A... args) {
    const Fn chosen = choose(Variants);
    slot.store(chosen, std::memory_order_relaxed);
    return chosen(args...);
  }

  static constinit inline std::atomic<Fn> slot{&first};
  static inline const bool at_load = (slot.store(choose(Variants), std::memory_order_relaxed), true);

  static R run(A... args) {
    // Naming at_load makes every kernel that is run have its load-time
    // choice.
    static_cast<void>(&at_load);
    return slot.load(std::memory_order_relaxed)(args...);
  }

  // The chosen variant itself (for code that branches on which one runs).
  static Fn get() {
    static_cast<void>(&at_load);
    const Fn f = slot.load(std::memory_order_relaxed);
    return f != &first ? f : choose(Variants);
  }
};

template <const auto& Variants>
inline constexpr auto run_chosen = &ChosenVariant<Variants>::run;

// The variant of a variants table that run_chosen runs on this processor.
template <const auto& Variants>
auto chosen_variant() {
  return ChosenVariant<Variants>::get();
}

}  // namespace kafx

#if KAFX_AVX2_VARIANTS
#define KAFX_AVX2_VARIANT_(ret, name, params, args) \
  KAFX_TARGET_AVX2 ret name##_avx2 params { return name##_body args; }
#define KAFX_AVX2_PTR(name) name##_avx2
#else
#define KAFX_AVX2_VARIANT_(ret, name, params, args)
#define KAFX_AVX2_PTR(name) nullptr
#endif

// A hand-written AVX2 variant `fn` (declared KAFX_TARGET_AVX2) where AVX2
// variants are built, else null.
#if KAFX_AVX2_VARIANTS
#define KAFX_AVX2_ONLY(fn) fn
#else
#define KAFX_AVX2_ONLY(fn) nullptr
#endif

// A hand-written NEON variant `fn` (declared KAFX_TARGET_NEON) where NEON
// variants are built, else null.
#if KAFX_NEON_VARIANTS
#define KAFX_NEON_ONLY(fn) fn
#else
#define KAFX_NEON_ONLY(fn) nullptr
#endif

// Defines, from the always-inline body `name##_body` (written just before):
//   ret name##_baseline params, ret name##_avx2 params (x86-64),
//   const kafx::KernelVariants<ret (*) params> name##_variants, and
//   ret name params, which runs the chosen variant (run_chosen).
// `params` is the parenthesised parameter list, `args` the names in order.
#define KAFX_KERNEL_VARIANTS(ret, name, params, args)                                 \
  ret name##_baseline params { return name##_body args; }                            \
  KAFX_AVX2_VARIANT_(ret, name, params, args)                                        \
  const ::kafx::KernelVariants<ret(*) params> name##_variants = {                    \
      #name, {name##_baseline, KAFX_AVX2_PTR(name)}};                                \
  ret name params { return ::kafx::run_chosen<name##_variants> args; }

#endif
