#!/bin/sh
# The exported names must agree three ways: declared with NET_API in the header, listed in
# the version script, and defined in the built library (nothing else may leak out). The
# header's "Extensions" part and the version node LIBNETWORK_1.1 must list the same names,
# and so must the rest of the header and LIBNETWORK_1.0.
set -eu
lib=$1 header=$2 map=$3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Header: the identifier right before "(" (functions) or ";" (globals) on NET_API lines,
# the first release's and the extensions' apart.
names() {
    grep -E '^NET_API ' | grep -v '#define' |
        sed -E 's/\(.*//; s/\[.*//; s/;.*//; s/.*[^A-Za-z0-9_]([A-Za-z_][A-Za-z0-9_]*)[[:space:]]*$/\1/' |
        sort -u
}
awk '/^ \* Extensions$/{ext=1} !ext' "$header" | names >"$tmp/header-1.0"
awk '/^ \* Extensions$/{ext=1} ext' "$header" | names >"$tmp/header-1.1"
# Version script: the names of each node's global section.
node() {
    awk -v n="$1" '$1 == n && $2 == "{" {on=1; next} on && /^}/ {on=0} on' "$map" |
        sed -E 's@/\*.*\*/@@' | tr -d ' \t' | grep -E '^[A-Za-z_][A-Za-z0-9_]*;$' | tr -d ';' |
        sort -u || true
}
node LIBNETWORK_1.0 >"$tmp/map-1.0"
node LIBNETWORK_1.1 >"$tmp/map-1.1"
sort -u "$tmp/map-1.0" "$tmp/map-1.1" >"$tmp/map"
# Library: defined dynamic symbols, version node and versions stripped.
nm -D --defined-only "$lib" | awk '$2 != "A" {print $3}' | sed 's/@.*//' | sort -u >"$tmp/lib"

status=0
for v in 1.0 1.1; do
    if ! diff -u "$tmp/header-$v" "$tmp/map-$v" >"$tmp/d"; then
        echo "header (-) and version node LIBNETWORK_$v (+) differ:"; cat "$tmp/d"; status=1
    fi
done
if ! diff -u "$tmp/map" "$tmp/lib" >"$tmp/d"; then
    echo "version script (-) and library exports (+) differ:"; cat "$tmp/d"; status=1
fi
# Exported variables must stay interposable (src/interposable.list): a program that reads
# one holds its own copy, and the library must write that copy.
list="$(dirname "$map")/interposable.list"
for v in $(nm -D --defined-only "$lib" | awk '$2 ~ /^[BDRV]$/ {print $3}' | sed 's/@.*//'); do
    grep -q "^ *$v;" "$list" || { echo "exported variable $v is missing from $list"; status=1; }
done
# Run-time needs: the C library, the companion libraries, libuci; never the C++ runtime.
needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
for n in $needed; do
    case "$n" in
    libc.so.* | libcompanion.so.* | libuci.so.* | ld-linux*.so.* | libasan.so.* | libubsan.so.*) ;;
    *) echo "unexpected run-time dependency: $n"; status=1 ;;
    esac
done
[ $status -eq 0 ] && echo "abi: $(wc -l <"$tmp/map-1.0") names of 1.0 and $(wc -l <"$tmp/map-1.1") of 1.1 agree"
exit $status
