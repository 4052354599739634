#!/usr/bin/env bash
# ARM steps of CI: cross-build the library, tools and tests for an ARM
# architecture with Debian's cross compiler and multiarch packages, run the
# test suite under qemu-user, and check that the tool's outputs hash as on
# x86-64 (tests/golden). When the cross packages cannot be installed (a
# mirror hiccup), the step says so loudly and is skipped: it never fails the
# run for that, and never skips silently.
#
#   .ci/arm.sh armhf         32-bit ARM (armhf) with GCC, in build-armhf/:
#                            the library, the tool and every test but the
#                            table generator's
#   .ci/arm.sh arm64         64-bit ARM (arm64, AArch64) with GCC, without
#                            link-time optimisation, in build-arm64/: the
#                            library, the tool, test_common (the kernels and
#                            their NEON builds), the tool-output hashes and
#                            the static-guard check. The products' own tests
#                            run on armhf, the 32-bit target whose word sizes
#                            differ from x86-64's; on AArch64 the hashes show
#                            the products give x86-64's bytes.
#   .ci/arm.sh armhf-clang   32-bit ARM with clang, in build-armhf-clang/:
#                            only test_common (the kernels and their NEON
#                            builds), and it again on a processor without NEON
#
# On 32-bit ARM the NEON kernels run only where the kernel reports NEON
# (common/dispatch.h): qemu's default processor has it, so the tests compare
# the NEON builds with the baseline; test_common then runs once more on
# qemu's Cortex-R5F (ARMv7 with VFPv3-D16 and no NEON), which must choose the
# baseline everywhere and would stop at the first NEON instruction.
set -uo pipefail
cd "$(dirname "$0")/.."

variant=${1:-armhf}
case $variant in
  armhf)
    arch=armhf toolchain=armhf qemu=qemu-arm-static
    compiler=(g++-arm-linux-gnueabihf) ;;
  arm64)
    arch=arm64 toolchain=aarch64 qemu=qemu-aarch64-static
    compiler=(g++-aarch64-linux-gnu) ;;
  armhf-clang)
    # clang links with lld against the armhf cross GCC's C++ library; llvm
    # has llvm-nm for the check of the NEON files below.
    arch=armhf toolchain=armhf-clang qemu=qemu-arm-static
    compiler=(g++-arm-linux-gnueabihf clang lld llvm) ;;
  *)
    echo "usage: .ci/arm.sh [armhf|arm64|armhf-clang]" >&2
    exit 2 ;;
esac

skip() {
  echo
  echo "################################################################"
  echo "ARM STEP ($variant) SKIPPED: $*"
  echo "################################################################"
  echo
  exit 0
}

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
# libcli11-dev is header-only (Architecture: all): the build machine's copy in
# /usr/include/CLI serves the cross compiler too.
packages=("${compiler[@]}" qemu-user-static libcli11-dev
  libc6:$arch libstdc++6:$arch libtinyxml-dev:$arch android-liblog-dev:$arch android-liblog:$arch
  libsndfile1-dev:$arch libgtest-dev:$arch libwebrtc-audio-processing-dev:$arch)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "arm: installing ${missing[*]}"
  $SUDO dpkg --add-architecture $arch || skip "dpkg --add-architecture $arch failed"
  # The second architecture's index can fail transiently ("File has
  # unexpected size"): retry, then give up loudly.
  err=$(mktemp)
  ok=0
  for attempt in 1 2 3 4; do
    if $SUDO apt-get update -qq -o Acquire::Retries=3 2>"$err" && ! grep -qi "unexpected size\|Hash Sum mismatch" "$err"; then
      ok=1
      break
    fi
    echo "arm: apt-get update attempt $attempt failed: $(tail -n 2 "$err" | tr '\n' ' ')"
    sleep $((attempt * 5))
  done
  if [ $ok = 0 ]; then
    # Often only one of several indexes (e.g. the security suite's armhf
    # list) is mid-sync; the others may still hold every package needed.
    echo "arm: WARNING: a package index is still failing after 4 attempts:"
    grep -i "^E:\|unexpected size" "$err" | head -n 4
    echo "arm: trying the install with the indexes that were fetched"
  fi
  rm -f "$err"
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" ||
    skip "the cross compiler or the $arch packages could not be installed (${missing[*]})"
fi

dir=build-$variant
start=$(date +%s)
options=(-DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/$toolchain.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo
  -DKAFX_WERROR=ON -DKAFX_BUILD_BENCH=OFF)
# arm64 without link-time optimisation: GCC's LTO compiles the library again
# at every program's link, about a fifth of the step; the x86-64 and armhf
# steps test the optimised link.
if [ "$variant" = arm64 ]; then options+=(-DKAFX_LTO=OFF); fi
cmake -S . -B "$dir" "${options[@]}" >/dev/null || exit 1
if [ "$variant" = armhf-clang ]; then
  cmake --build "$dir" -j 2 --target test_common || exit 1
elif [ "$variant" = arm64 ]; then
  cmake --build "$dir" -j 2 --target kafx_proc kafx test_common || exit 1
else
  # The library, the tool and every test program but the table generator's
  # (host-side tooling, which the x86-64 steps test three times).
  targets=$(cmake --build "$dir" --target help | sed -n 's/^\.\.\. \(test_[a-z0-9_]*\)$/\1/p' | grep -vx test_tools)
  # shellcheck disable=SC2086
  cmake --build "$dir" -j 2 --target kafx_proc kafx $targets || exit 1
fi
echo "arm: cross build took $(($(date +%s) - start)) s"
if [ "$variant" = armhf-clang ]; then
  # clang compiles the NEON kernels' files whole for NEON: an inline function
  # emitted there (a weak definition) might be the copy the linker keeps for
  # callers that run without NEON. Those files may define their kernels only.
  neon_objects=("$dir"/CMakeFiles/kafx_*.dir/*/*_neon.cpp.o)
  [ -e "${neon_objects[0]}" ] || { echo "arm: no NEON objects in $dir" >&2; exit 1; }
  weak=$(llvm-nm --defined-only -C "${neon_objects[@]}" | grep -E ' [WVu] ')
  if [ -n "$weak" ]; then
    echo "arm: the NEON files define shared inline functions:" >&2
    echo "$weak" >&2
    exit 1
  fi
fi

start=$(date +%s)
if [ "$variant" = armhf-clang ]; then
  KAFX_SOURCE_DIR=$PWD $qemu "$dir/tests/test_common" --gtest_brief=1 || exit 1
elif [ "$variant" = arm64 ]; then
  KAFX_SOURCE_DIR=$PWD $qemu "$dir/tests/test_common" --gtest_brief=1 || exit 1
  ctest --test-dir "$dir" --output-on-failure -R '^(tool_outputs_golden|library_has_no_static_guards)$' || exit 1
else
  ctest --test-dir "$dir" --output-on-failure -j 2 -E '^test_tools_NOT_BUILT$' || exit 1
fi
if [ $arch = armhf ]; then
  echo "arm: test_common again on a processor without NEON (qemu's cortex-r5f)"
  KAFX_SOURCE_DIR=$PWD QEMU_CPU=cortex-r5f $qemu "$dir/tests/test_common" --gtest_brief=1 || exit 1
fi
echo "arm: tests under qemu took $(($(date +%s) - start)) s"
