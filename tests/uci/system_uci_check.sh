#!/bin/sh
# Builds the library against a "system" libuci: ours, installed into a scratch prefix. The
# configure line must name that libuci, and a prefix with the header alone must fail.
#   system_uci_check.sh SOURCE_DIR LIBUCI_FILE
set -eu
src=$1 lib=$2
tmp=$(mktemp -d /var/tmp/system-uci.XXXXXX)
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$tmp/prefix/include" "$tmp/prefix/lib" "$tmp/half/include"
cp "$src/uci/uci.h" "$src/uci/uci_config.h" "$tmp/prefix/include/"
cp "$src/uci/uci.h" "$src/uci/uci_config.h" "$tmp/half/include/"
cp -P "$(dirname "$lib")"/libuci.so* "$tmp/prefix/lib/"

if cmake -S "$src" -B "$tmp/half-build" -DUCI_ROOT="$tmp/half" >"$tmp/half.log" 2>&1; then
    echo "a prefix with uci.h but no libuci was accepted"; exit 1
fi
grep -q "found only part of a system libuci" "$tmp/half.log" || { cat "$tmp/half.log"; exit 1; }

cmake -S "$src" -B "$tmp/build" -DUCI_ROOT="$tmp/prefix" -DNETLIB_TESTS=OFF \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo >"$tmp/conf.log" 2>&1 || { cat "$tmp/conf.log"; exit 1; }
grep "libuci:" "$tmp/conf.log"
grep -q "libuci: using the system library $tmp/prefix/lib/libuci.so" "$tmp/conf.log" ||
    { echo "configure did not take the installed libuci"; exit 1; }
cmake --build "$tmp/build" --target network -j2 >"$tmp/build.log" 2>&1 || { tail -30 "$tmp/build.log"; exit 1; }
readelf -d "$tmp/build/src/libnetwork.so" 2>/dev/null | grep -q 'libuci.so' ||
    readelf -d "$(find "$tmp/build" -name 'libnetwork.so*' -type f | head -n 1)" | grep -q 'libuci.so'
test ! -e "$tmp/build/uci/libuci.so" || { echo "our uci/ was built as well"; exit 1; }
echo "system libuci: configured and built against $tmp/prefix"
