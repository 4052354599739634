#!/usr/bin/env bash
# Estimated ARM speed figures: the speaker kernels as MHz of a Cortex-A55 at
# 1.8 GHz (and times real time, 48 kHz stereo), and every resampler stage
# against the published WebRTC C, for 32-bit ARM (armhf) and AArch64.
#
#   scripts/arm-estimate.sh                  everything (about 5-10 minutes on 2 cores)
#   KAFX_ARM_KERNELS=a,b scripts/arm-estimate.sh    only the named kernels
#   KAFX_JOBS=2                              compile jobs (default 2)
#
# Method
#   1. Cross-builds the library sources (common/, spl/, speaker/) with the
#      build's RelWithDebInfo flags and link-time optimisation (-O2 -g
#      -DNDEBUG -fPIC -fno-exceptions -fno-rtti -fno-semantic-interposition
#      -fvisibility=hidden -flto: what CMake uses for libkafx_proc.so on
#      ARM) with
#      Debian's armhf and arm64 GCC, and links the kernel driver
#      bench/arm/arm_kernels.cpp statically against them and against the
#      published WebRTC C of Debian's libwebrtc-audio-processing-dev (the
#      armhf and arm64 builds of the package). The kernels run through the
#      library's own entry points, so every figure is of the variant the ARM
#      build selects (spl's and common/'s dispatch), whatever it is.
#   2. Runs each kernel of the driver's table under qemu-user with
#      `-d exec,nochain,in_asm` and counts how often each translation block
#      (a straight run of instructions ending at a branch) starts between
#      the driver's two markers, which enclose only the timed calls. The
#      executed-instruction count is exact.
#   3. Times every executed block with llvm-mca (the block repeated 100
#      times, cycles per repetition) and sums count x cycles. Models:
#        AArch64: cortex-a55 (the target core, in-order dual-issue) and
#                 cortex-a57 (the big core; LLVM 14 has no newer big-core
#                 model, the A72 and A76 use the same one).
#        32-bit:  LLVM has no A55 (nor A53/A7) model for 32-bit ARM. The A55
#                 is bracketed by the two in-order dual-issue models that
#                 exist for 32-bit code: cortex-m7 (a short pipeline: an
#                 optimistic bound for the A55) and cortex-r52 (an 8-stage
#                 pipeline with long result latencies: a pessimistic bound);
#                 the A55 estimate is their geometric mean. (On the scalar
#                 kernels, whose AArch64 and 32-bit code are alike, the A55
#                 model's cycles per instruction on AArch64 falls between
#                 the two: e.g. 1.0 against 0.8 and 1.65 for the 16-bit
#                 by-2 decimator, 1.4 against 0.8 and 1.9 for the
#                 equalizer.) The big core is cortex-a57 as for AArch64.
#      Figures: MHz = cycles per call / audio seconds per call; times real
#      time = 1800 MHz / MHz. Stages: cycles per call of ours and of the
#      published C on the same 480 samples; their outputs are checked equal.
#
# Caveats (read the figures as estimates, not measurements)
#   - llvm-mca times each block on its own, in a steady state of repeats
#     with warm caches and perfectly predicted branches: no cache or TLB
#     misses, no branch mispredictions, no stalls carried from one block
#     into the next (a recursion whose loop body spans several blocks loses
#     its cross-block dependencies), and calls are timed as plain branches.
#   - qemu's blocks are its own (they may end early at page boundaries or
#     after a conditional instruction sequence) and overlap the compiler's
#     basic blocks; this changes the grouping, not the instructions counted.
#   - The models are LLVM's approximations of the cores, and the 32-bit
#     A55 figure is a bracket's middle, not a model of the A55: a target
#     met only at the optimistic end of the bracket is not met.
#   - Instructions a model cannot time (barriers, a few ARM-state stubs in a
#     Thumb program; the cortex-m7 model's missing IT instruction, whose
#     predicated instructions are then timed unconditionally) count as one
#     simple instruction; the table states their largest share.
#   - The 32-bit bracket's models (cortex-m7, cortex-r52) have no NEON.
#     Where the armhf build runs NEON kernels (the stereo biquads, the
#     crossover, the harmonic polynomial and the limiter statistics, when
#     the processor reports NEON, as qemu's does), the blocks holding NEON
#     instructions are timed by the nearest models that have it: cortex-a57
#     at the optimistic end and cortex-a9 with NEON (an in-order NEON unit,
#     long result latencies) at the pessimistic end. The A55's NEON sits
#     between them, but neither is a model of it.
#   - It measures the working tree as it is (uncommitted edits included).
#   - The figures move with the compiler version and flags; they are for
#     Debian 12's GCC 12 cross compilers and LLVM 14.
set -euo pipefail
cd "$(dirname "$0")/.."
export DEBIAN_FRONTEND=noninteractive
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
jobs=${KAFX_JOBS:-2}

# ---- tools and packages (as .ci/arm.sh installs them) ----------------------
packages=(g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user-static llvm python3 binutils
  libc6:armhf libstdc++6:armhf android-liblog-dev:armhf libwebrtc-audio-processing-dev:armhf)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
arm64_deb_dir=build-arm-estimate-arm64/webrtc
arm64_webrtc=$arm64_deb_dir/usr/lib/aarch64-linux-gnu/libwebrtc_audio_processing.a
if [ ${#missing[@]} -gt 0 ] || [ ! -f "$arm64_webrtc" ]; then
  dpkg --print-foreign-architectures | grep -qx armhf || $SUDO dpkg --add-architecture armhf
  dpkg --print-foreign-architectures | grep -qx arm64 || $SUDO dpkg --add-architecture arm64
  $SUDO apt-get update -qq -o Acquire::Retries=3 || echo "arm-estimate: apt-get update reported errors; trying on"
fi
if [ ${#missing[@]} -gt 0 ]; then
  echo "arm-estimate: installing ${missing[*]}"
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
if [ ! -f "$arm64_webrtc" ]; then
  # Only the arm64 static library is needed (linked into a static program):
  # the package is unpacked in the build directory, not installed.
  mkdir -p "$arm64_deb_dir"
  (cd "$arm64_deb_dir" && apt-get download libwebrtc-audio-processing-dev:arm64 &&
    dpkg-deb -x libwebrtc-audio-processing-dev_*_arm64.deb .)
fi
for t in llvm-mca llvm-objdump qemu-arm-static qemu-aarch64-static python3; do
  command -v $t >/dev/null || { echo "arm-estimate: $t missing" >&2; exit 1; }
done

# ---- cross builds ------------------------------------------------------------
flags=(-O2 -g -DNDEBUG -std=c++20 -fno-exceptions -fno-rtti -flto -Wall -Wextra -Wno-restrict
  -I. -Iinclude -isystem /usr/include/android)
lib_flags=(-fPIC -fno-semantic-interposition -fvisibility=hidden -fvisibility-inlines-hidden
  -DKAFX_BUILDING_LIBRARY -DTIXML_USE_STL)

build() {  # build <dir> <compiler prefix> <published C static library>
  local dir=$1 cross=$2 webrtc=$3
  mkdir -p "$dir/obj"
  rm -f "$dir"/obj/*.o "$dir/libkafx_arm.a"
  local start
  start=$(date +%s)
  local cmd="$cross-g++ ${flags[*]} ${lib_flags[*]}"
  ls common/*.cpp spl/*.cpp speaker/*.cpp |
    nice xargs -P "$jobs" -n 1 sh -c "$cmd -c \"\$0\" -o $dir/obj/\$(echo \"\$0\" | tr / _).o"
  echo "arm-estimate: $cross: library compiled in $(($(date +%s) - start)) s"
  "$cross-gcc-ar" rcs "$dir/libkafx_arm.a" "$dir"/obj/*.o
  nice "$cross-g++" "${flags[@]}" -flto="$jobs" -static bench/arm/arm_kernels.cpp "$dir/libkafx_arm.a" "$webrtc" \
    -o "$dir/arm_kernels"
}

start=$(date +%s)
build build-arm-estimate-armhf arm-linux-gnueabihf /usr/lib/arm-linux-gnueabihf/libwebrtc_audio_processing.a
build build-arm-estimate-arm64 aarch64-linux-gnu "$arm64_webrtc"
echo "arm-estimate: cross builds took $(($(date +%s) - start)) s"

# ---- profiles and timing -----------------------------------------------------
start=$(date +%s)
kernels=${KAFX_ARM_KERNELS:-}
nice python3 scripts/arm_estimate.py profile --binary build-arm-estimate-armhf/arm_kernels \
  --qemu qemu-arm-static --triple thumbv7a-linux-gnueabihf --models cortex-a57,cortex-m7,cortex-r52 \
  --kernels "$kernels" --out build-arm-estimate-armhf/estimate.json --details build-arm-estimate-armhf/blocks.txt
nice python3 scripts/arm_estimate.py profile --binary build-arm-estimate-arm64/arm_kernels \
  --qemu qemu-aarch64-static --triple aarch64-linux-gnu --models cortex-a55,cortex-a57 \
  --kernels "$kernels" --out build-arm-estimate-arm64/estimate.json --details build-arm-estimate-arm64/blocks.txt
echo "arm-estimate: profiles and llvm-mca took $(($(date +%s) - start)) s"
echo "arm-estimate: the hottest blocks of every kernel: build-arm-estimate-{armhf,arm64}/blocks.txt"

python3 scripts/arm_estimate.py report build-arm-estimate-armhf/estimate.json build-arm-estimate-arm64/estimate.json \
  cortex-m7,cortex-r52
