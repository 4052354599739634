#!/usr/bin/env bash
# Builds the library, the tools and every test, then runs the tests with ctest.
#   scripts/test.sh                 normal build in build/
#   KAFX_SANITIZE=1 scripts/test.sh ASan + UBSan build in build-asan/, with
#                                   the baseline (non-AVX2) kernels only, so
#                                   that CI runs both code paths
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh

if [ "${KAFX_SANITIZE:-0}" = "1" ]; then
  dir=build-asan
  extra=(-DKAFX_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug -DKAFX_BUILD_BENCH=OFF -DKAFX_DISPATCH=OFF)
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
else
  dir=build
  extra=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
fi
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B "$dir" -DKAFX_WERROR=ON "${extra[@]}" >/dev/null
cmake --build "$dir" -j "$jobs"
ctest --test-dir "$dir" --output-on-failure -j "$jobs"
