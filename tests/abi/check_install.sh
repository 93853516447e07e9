#!/usr/bin/env bash
# Installs into a scratch prefix, then builds a C program with pkg-config and a CMake consumer.
set -euo pipefail
build=$1 here=$2 cc=$3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cmake --install "$build" --prefix "$tmp/prefix" >/dev/null
libdir=$(ls -d "$tmp/prefix"/lib*/ | head -1)
libdir=${libdir%/}
# The .pc file carries the configured prefix; point pkg-config at the scratch one.
export PKG_CONFIG_PATH="$libdir/pkgconfig"
flags=$(pkg-config --define-variable=prefix="$tmp/prefix" --define-variable=libdir="$libdir" \
        --define-variable=includedir="$tmp/prefix/include" --cflags --libs kvaudio)
"$cc" -std=c99 -Wall -Werror "$here/consumer.c" $flags -Wl,-rpath,"$libdir" -o "$tmp/consumer"
"$tmp/consumer"
mkdir "$tmp/cm"
cat >"$tmp/cm/CMakeLists.txt" <<CM
cmake_minimum_required(VERSION 3.25)
project(consumer C)
find_package(kvAudioUtil REQUIRED)
add_executable(consumer $here/consumer.c)
target_link_libraries(consumer kvAudioUtil::kvAudioUtil)
CM
cmake -S "$tmp/cm" -B "$tmp/cm/build" -DCMAKE_PREFIX_PATH="$tmp/prefix" >/dev/null
cmake --build "$tmp/cm/build" >/dev/null
"$tmp/cm/build/consumer"
echo "installed package: pkg-config and find_package consumers ran"
