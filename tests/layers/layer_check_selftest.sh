#!/usr/bin/env bash
# The layer check itself: a planted upward call (base calling into link) must fail it, and
# the same call downward must pass. Real objects from the C++ compiler, not hand-made lists.
set -euo pipefail
cxx=${1:-c++}
check=$(dirname "$0")/layer_check.sh
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$tmp/src/base" "$tmp/src/link" "$tmp/obj/base" "$tmp/obj/link"
printf 'base\nlink\n' >"$tmp/rules"

build() { # build FOLDER FILE CODE
    echo "$3" >"$tmp/src/$1/$2"
    "$cxx" -c "$tmp/src/$1/$2" -o "$tmp/obj/$1/$2.o"
}

build base low.cpp 'extern "C" int low(void) { return 1; }'
build link high.cpp 'extern "C" int low(void); extern "C" int high(void) { return low() + 1; }'
"$check" "$tmp/src" "$tmp/obj" "$tmp/rules" >/dev/null || { echo "selftest: a downward call was refused"; exit 1; }

build base planted.cpp 'extern "C" int high(void); int planted(void) { return high(); }'
if out=$("$check" "$tmp/src" "$tmp/obj" "$tmp/rules"); then
    echo "selftest: the planted upward call passed"
    exit 1
fi
grep -q "base/planted.cpp calls high of link/" <<<"$out" || { echo "selftest: wrong report: $out"; exit 1; }

# An object whose source was moved away no longer counts.
rm "$tmp/src/base/planted.cpp"
"$check" "$tmp/src" "$tmp/obj" "$tmp/rules" >/dev/null || { echo "selftest: a stale object counted"; exit 1; }
echo "selftest: the planted upward call fails the check; downward calls and stale objects pass"
