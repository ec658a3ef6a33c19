#!/bin/sh
# Installs the build into a scratch prefix and builds a C consumer against it twice: through
# pkg-config and through the CMake package. Both must link and run.
set -eu
build=$1 src=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cmake --install "$build" --prefix "$tmp/prefix" >/dev/null
libdir=$(find "$tmp/prefix" -name libnetwork.pc -printf '%h\n' | xargs dirname)
test -L "$libdir/libnetwork.so.1" || { echo "no versioned SONAME link"; exit 1; }

export PKG_CONFIG_PATH="$libdir/pkgconfig"
cc -std=c99 -Wall -Wextra -Werror -pedantic -o "$tmp/pc_consumer" "$src/tests/c_consumer.c" \
    $(pkg-config --cflags --libs libnetwork) -Wl,-rpath-link,"$libdir"
LD_LIBRARY_PATH="$libdir${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" NETLIB_LOG=none "$tmp/pc_consumer" >/dev/null

mkdir "$tmp/cm"
cat >"$tmp/cm/CMakeLists.txt" <<'CM'
cmake_minimum_required(VERSION 3.16)
project(consumer C)
find_package(libnetwork 1 REQUIRED)
add_executable(cm_consumer consumer.c)
target_link_libraries(cm_consumer PRIVATE libnetwork::network)
CM
cp "$src/tests/c_consumer.c" "$tmp/cm/consumer.c"
cmake -S "$tmp/cm" -B "$tmp/cm/build" -DCMAKE_PREFIX_PATH="$tmp/prefix" >/dev/null
cmake --build "$tmp/cm/build" >/dev/null
LD_LIBRARY_PATH="$libdir${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" NETLIB_LOG=none "$tmp/cm/build/cm_consumer" >/dev/null
echo "install: pkg-config and CMake consumers built and ran"
