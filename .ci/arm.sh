#!/usr/bin/env bash
# ARM step of CI: cross-builds the library, tools and tests for armhf (32-bit
# ARM) with Debian's cross compiler and multiarch packages, runs the test
# suite under qemu-user, and checks that the tool's outputs hash as on
# x86-64 (tests/golden). When the cross packages cannot be installed (a
# mirror hiccup), the step says so loudly and is skipped: it never fails the
# run for that, and never skips silently.
set -uo pipefail
cd "$(dirname "$0")/.."

skip() {
  echo
  echo "################################################################"
  echo "ARM STEP SKIPPED: $*"
  echo "################################################################"
  echo
  exit 0
}

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
arch=armhf
# libcli11-dev is header-only (Architecture: all): the build machine's copy in
# /usr/include/CLI serves the cross compiler too.
packages=(g++-arm-linux-gnueabihf qemu-user-static libcli11-dev
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

dir=build-armhf
start=$(date +%s)
cmake -S . -B "$dir" -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armhf.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKAFX_WERROR=ON -DKAFX_BUILD_BENCH=OFF >/dev/null || exit 1
cmake --build "$dir" -j 2 || exit 1
echo "arm: cross build took $(($(date +%s) - start)) s"
start=$(date +%s)
ctest --test-dir "$dir" --output-on-failure -j 2 || exit 1
echo "arm: tests under qemu took $(($(date +%s) - start)) s"
