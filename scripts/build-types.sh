#!/usr/bin/env bash
# Builds and tests every CMake build type with GCC and with clang (eight
# builds, about 40 minutes on two processors; CI runs only RelWithDebInfo
# with both compilers plus the sanitizer build). Prints one line per build
# and exits non-zero when any of them failed.
set -uo pipefail
cd "$(dirname "$0")/.."
status=0
for compiler in gcc clang; do
  for type in Release Debug RelWithDebInfo MinSizeRel; do
    start=$SECONDS
    log=$(mktemp)
    if KAFX_COMPILER=$compiler KAFX_BUILD_TYPE=$type KAFX_BENCH=0 bash scripts/test.sh >"$log" 2>&1; then
      result="passed ($(grep -Eo 'tests failed out of [0-9]+' "$log" | tail -1 | grep -Eo '[0-9]+$') tests)"
      rm -f "$log"
    else
      result="FAILED (log: $log)"
      status=1
    fi
    echo "$compiler $type: $result in $((SECONDS - start)) s"
  done
done
exit $status
