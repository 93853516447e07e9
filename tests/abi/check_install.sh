#!/usr/bin/env bash
# Installs into a prefix other than the configured one, moves the tree, then builds the C meter
# host (meter_layout.c) with pkg-config and as a CMake consumer against the moved tree.
set -euo pipefail
build=$1 here=$2 cc=$3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cmake --install "$build" --prefix "$tmp/installed" >/dev/null
mv "$tmp/installed" "$tmp/prefix"
libdir=$(ls -d "$tmp/prefix"/lib*/ | head -1)
libdir=${libdir%/}
export PKG_CONFIG_PATH="$libdir/pkgconfig"
[ "$(pkg-config --variable=includedir kvaudio)" -ef "$tmp/prefix/include" ]
[ "$(pkg-config --variable=libdir kvaudio)" -ef "$libdir" ]
flags=$(pkg-config --cflags --libs kvaudio)
"$cc" -std=c99 -Wall -Werror "$here/meter_layout.c" $flags -lm -Wl,-rpath,"$libdir" -o "$tmp/consumer"
"$tmp/consumer"
mkdir "$tmp/cm"
cat >"$tmp/cm/CMakeLists.txt" <<CM
cmake_minimum_required(VERSION 3.25)
project(consumer C)
find_package(kvAudioUtil REQUIRED)
add_executable(consumer $here/meter_layout.c)
target_link_libraries(consumer kvAudioUtil::kvAudioUtil m)
CM
cmake -S "$tmp/cm" -B "$tmp/cm/build" -DCMAKE_PREFIX_PATH="$tmp/prefix" >/dev/null
cmake --build "$tmp/cm/build" >/dev/null
"$tmp/cm/build/consumer"
echo "installed package: pkg-config and find_package consumers ran"
