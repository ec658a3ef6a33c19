#!/usr/bin/env bash
# Fails when code in one src/ folder calls a function defined in a folder above it.
#   layer_check.sh SRCDIR OBJDIR [RULES]
# OBJDIR holds one object per source of SRCDIR, in the source's folder (the library target's
# object directory; objects whose source is gone are skipped); RULES lists the folders from
# the bottom layer up, one per line (default: layers.txt beside this script). A folder may
# call its own functions and those of any folder listed before it.
set -euo pipefail
srcdir=$1
objdir=$2
rules=${3:-$(dirname "$0")/layers.txt}
NM=${NM:-nm}
[ -d "$objdir" ] || { echo "layer_check: no object directory $objdir" >&2; exit 2; }

declare -A rank
n=0
while read -r folder _; do
    case "$folder" in '' | '#'*) continue ;; esac
    rank[$folder]=$n
    n=$((n + 1))
done <"$rules"

objects() { # the objects of sources that still exist
    local obj rel
    find "$objdir" -mindepth 2 -name '*.o' | sort | while read -r obj; do
        rel=${obj#"$objdir"/}
        [ -f "$srcdir/${rel%.o}" ] && echo "$obj"
    done
}

folder_of() { # object path -> its folder below OBJDIR
    local rel=${1#"$objdir"/}
    echo "${rel%%/*}"
}

# Which folder defines each symbol.
declare -A home
while read -r obj; do
    f=$(folder_of "$obj")
    [ -n "${rank[$f]+x}" ] || { echo "layer_check: folder $f is not in $rules" >&2; exit 2; }
    while read -r sym; do home[$sym]=$f; done < <("$NM" --defined-only -g "$obj" | awk '$2 ~ /[TDBRVW]/ {print $3}')
done < <(objects)

status=0
while read -r obj; do
    f=$(folder_of "$obj")
    while read -r sym; do
        to=${home[$sym]:-}
        [ -n "$to" ] && [ "$to" != "$f" ] || continue
        if [ "${rank[$to]}" -gt "${rank[$f]}" ]; then
            src=${obj#"$objdir"/}
            echo "layer_check: ${src%.o} calls $sym of $to/, a folder above $f/"
            status=1
        fi
    done < <("$NM" --undefined-only "$obj" | awk '{print $2}')
done < <(objects)
[ $status -eq 0 ] && echo "layer_check: $(objects | wc -l) objects, no upward call"
exit $status
