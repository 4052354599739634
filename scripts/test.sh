#!/usr/bin/env bash
# Builds the library, the tools and every test, then runs the tests with ctest.
#   scripts/test.sh                    GCC (the system compiler) in build/
#   KAFX_SANITIZE=1 scripts/test.sh    ASan + UBSan build in build-asan/, with
#                                      the baseline (non-AVX2) kernels only, so
#                                      that CI runs both code paths
#   KAFX_COMPILER=clang scripts/test.sh  clang (with lld) in build-clang/
#   KAFX_BUILD_TYPE=Release scripts/test.sh  another CMake build type (default
#                                      RelWithDebInfo) in build-release/ (or
#                                      build-release-clang/, and so on)
# Warnings are errors here (KAFX_WERROR=ON); a plain CMake build keeps them
# warnings. KAFX_JOBS sets the build and test parallelism (default: all
# processors); KAFX_BENCH=0 leaves the benchmarks out.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh

extra=(-DKAFX_WERROR=ON)
suffix=""
if [ "${KAFX_COMPILER:-gcc}" = "clang" ]; then
  export CC=clang CXX=clang++
  suffix="-clang"
fi
if [ "${KAFX_SANITIZE:-0}" = "1" ]; then
  dir=build-asan$suffix
  extra+=(-DKAFX_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug -DKAFX_BUILD_BENCH=OFF -DKAFX_DISPATCH=OFF)
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
elif [ -n "${KAFX_BUILD_TYPE:-}" ]; then
  dir=build-$(echo "$KAFX_BUILD_TYPE" | tr '[:upper:]' '[:lower:]')$suffix
  extra+=(-DCMAKE_BUILD_TYPE="$KAFX_BUILD_TYPE")
else
  dir=build$suffix
  extra+=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
fi
if [ "${KAFX_BENCH:-1}" = "0" ]; then extra+=(-DKAFX_BUILD_BENCH=OFF); fi
jobs=${KAFX_JOBS:-$(nproc 2>/dev/null || echo 2)}
cmake -S . -B "$dir" "${extra[@]}" >/dev/null
cmake --build "$dir" -j "$jobs"
ctest --test-dir "$dir" --output-on-failure -j "$jobs"
