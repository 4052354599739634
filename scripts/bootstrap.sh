#!/usr/bin/env bash
# Installs the Debian packages this project builds and tests with, when they
# are missing. Non-interactive and idempotent: a second run installs nothing.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  libtinyxml-dev                  # speaker configuration file
  android-liblog-dev android-liblog  # __android_log_print on Linux
  libgtest-dev libbenchmark-dev   # tests and benchmarks
  libwebrtc-audio-processing-dev  # bit-exact oracle for the resamplers and FFT
  libsndfile1-dev                 # WAV I/O of the command-line tool
  libcli11-dev                    # the command-line tool's option parsing (header-only)
  libplplot-dev plplot-driver-cairo  # kafx plot: PNG figures (the tool only)
  jq                              # scripts/bench-report.sh reads the benchmark JSON
)

# clang builds (KAFX_COMPILER=clang) also need clang, lld and llvm's archiver.
if [ "${KAFX_COMPILER:-gcc}" = "clang" ]; then
  packages+=(clang lld llvm)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "bootstrap: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
