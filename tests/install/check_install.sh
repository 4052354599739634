#!/usr/bin/env bash
# Installs the built library into a scratch prefix and builds a C host
# against it twice: through the CMake package and through pkg-config.
set -euo pipefail
build=$1
src=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$src" -B "$work/cm" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/cm" >/dev/null
"$work/cm/consumer"
libdir=$(dirname "$(find "$work/prefix" -name 'libkafx_proc.so' | head -n1)")
PKG_CONFIG_PATH="$libdir/pkgconfig" cc -std=c11 -Wall -Wextra -Werror -o "$work/pc_consumer" "$src/consumer.c" \
  $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs kafx_proc)
LD_LIBRARY_PATH="$libdir" "$work/pc_consumer"
# The example host program, built with pkg-config only, and the installed tool.
root=$(cd "$src/../.." && pwd)
PKG_CONFIG_PATH="$libdir/pkgconfig" cc -std=c11 -Wall -Wextra -Werror -o "$work/host_speaker" \
  "$root/examples/host_speaker.c" $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs kafx_proc) -lm
LD_LIBRARY_PATH="$libdir" "$work/host_speaker" "$root/examples/speaker.xml"
"$work/prefix/bin/kafx" --version
# The installed library finds liblog through its own run path.
readelf -d "$libdir/libkafx_proc.so" | grep -q 'android'
echo "install check passed"
