#!/usr/bin/env bash
# The shared library imports no __cxa_guard_acquire: none of its code has a
# function-local static with a dynamic initialiser, whose first use goes
# through that call (and can wait on a lock) and whose every use tests a
# guard. The kernels' variants are chosen while the library loads instead
# (common/dispatch.h).
#   check_no_static_guards.sh LIBRARY [NM [OBJDUMP]]
set -euo pipefail
lib=$1
nm=${2:-nm}
objdump=${3:-objdump}
if ! command -v "$nm" >/dev/null 2>&1; then
  echo "SKIPPED: $nm is not installed"
  exit 0
fi
imports=$("$nm" -D --undefined-only "$lib")
# The library imports at least memcpy: an empty list means nm read nothing.
if ! grep -q 'memcpy' <<<"$imports"; then
  echo "$nm -D --undefined-only $lib listed no memcpy; cannot check" >&2
  exit 1
fi
if grep -q '__cxa_guard_acquire' <<<"$imports"; then
  echo "$lib calls __cxa_guard_acquire (a function-local static with a dynamic initialiser), in:" >&2
  if command -v "$objdump" >/dev/null 2>&1; then
    "$objdump" -d -C --no-show-raw-insn "$lib" |
      awk '/^[0-9a-f]+ <.*>:$/ { fn = $0 } /__cxa_guard_acquire/ && fn !~ /@plt/ { print "  " fn }' | sort -u >&2
  fi
  exit 1
fi
echo "$lib: no __cxa_guard_acquire"
