#!/usr/bin/env bash
# ThreadSanitizer check of the library's only process-wide state written at
# run time: the noise suppressor's routine pointers, which every
# kedoNs_InitCore re-installs. Many instances are initialised and run on
# several threads at once (NsxCore.ThreadedInstances); a data race ends the
# run with status 66.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=build-tsan
tsan=-fsanitize=thread
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKAFX_WERROR=ON -DKAFX_LTO=OFF \
  -DKAFX_BUILD_BENCH=OFF -DKAFX_DISPATCH=OFF \
  -DCMAKE_C_FLAGS=$tsan -DCMAKE_CXX_FLAGS=$tsan \
  -DCMAKE_EXE_LINKER_FLAGS=$tsan -DCMAKE_SHARED_LINKER_FLAGS=$tsan >/dev/null
cmake --build "$dir" -j "${KAFX_JOBS:-2}" --target test_ns
TSAN_OPTIONS=halt_on_error=1:exitcode=66 "./$dir/tests/test_ns" --gtest_filter='NsxCore.ThreadedInstances'
