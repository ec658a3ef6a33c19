#!/bin/sh
# Runs the device libuci's recorded scenarios against ours: passes when exactly the scenarios
# listed in docs/libuci-differences.md differ. 77 (skipped) without the recording or root.
#   uci_reference.sh REFERENCE_DIR UCI_INCLUDE_DIR UCI_LIBRARY_DIR DIFFERENCES_MD
set -u
ref=$1 inc=$2 lib=$3 doc=$4
[ -x "$ref/check" ] || { echo "no device recording at $ref: skipped"; exit 77; }
[ "$(id -u)" = 0 ] || { echo "the check needs root (private mount namespace): skipped"; exit 77; }
listed=$(grep -o '^| `[A-Z][0-9]*-[a-z0-9-]*`' "$doc" | tr -d '|` ' | sort -u)
out=$("$ref/check" "$inc" "$lib")
echo "$out" | tail -n 1
n=$(echo "$out" | tail -n 1 | cut -d' ' -f1)
want=$(echo "$listed" | grep -c .)
fail=0
if [ "$n" != "$want" ]; then
    echo "$out"
    echo "$n scenarios differ, $want are listed in $doc"
    fail=1
fi
# the same number is not enough: each listed one must be among those that differ. Run alone,
# a scenario's diff always holds a moved blank line, so only other changed lines count.
for s in $listed; do
    "$ref/check" "$inc" "$lib" "$s" | grep -E '^[-+]' | grep -vE '^(\+\+\+|---) ' |
        grep -qvE '^[-+]$' || { echo "listed but no longer differs: $s"; fail=1; }
done
exit $fail
