#!/bin/sh
# The exported names must agree three ways: declared with NET_API in the header, listed in
# the version script, and defined in the built library (nothing else may leak out).
set -eu
lib=$1 header=$2 map=$3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Header: the identifier right before "(" (functions) or ";" (globals) on NET_API lines.
grep -E '^NET_API ' "$header" | grep -v '#define' |
    sed -E 's/\(.*//; s/\[.*//; s/;.*//; s/.*[^A-Za-z0-9_]([A-Za-z_][A-Za-z0-9_]*)[[:space:]]*$/\1/' |
    sort -u >"$tmp/header"
# Version script: the names of the global section.
sed -n '/global:/,/local:/p' "$map" | sed -E 's@/\*.*\*/@@' | tr -d ' \t' |
    grep -E '^[A-Za-z_][A-Za-z0-9_]*;$' | tr -d ';' | sort -u >"$tmp/map"
# Library: defined dynamic symbols, version node and versions stripped.
nm -D --defined-only "$lib" | awk '$2 != "A" {print $3}' | sed 's/@.*//' | sort -u >"$tmp/lib"

status=0
if ! diff -u "$tmp/header" "$tmp/map" >"$tmp/d1"; then
    echo "header (-) and version script (+) differ:"; cat "$tmp/d1"; status=1
fi
if ! diff -u "$tmp/map" "$tmp/lib" >"$tmp/d2"; then
    echo "version script (-) and library exports (+) differ:"; cat "$tmp/d2"; status=1
fi
# Run-time needs: the C library, the companion libraries, libuci; never the C++ runtime.
needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
for n in $needed; do
    case "$n" in
    libc.so.* | libcompanion.so.* | libuci.so.* | ld-linux*.so.* | libasan.so.* | libubsan.so.*) ;;
    *) echo "unexpected run-time dependency: $n"; status=1 ;;
    esac
done
[ $status -eq 0 ] && echo "abi: $(wc -l <"$tmp/lib") exported names agree"
exit $status
