#!/usr/bin/env bash
# Fails when code in one src/ folder calls a function defined in a folder above it.
#   layer_check.sh OBJDIR [RULES]
# OBJDIR holds one object per source, in the source's folder (the library target's object
# directory); RULES lists the folders from the bottom layer up, one per line (default: the
# list in this script's folder). A folder may call its own functions and any folder listed
# before it.
set -euo pipefail
objdir=$1
rules=${2:-$(dirname "$0")/layers.txt}
[ -d "$objdir" ] || { echo "layer_check: no object directory $objdir" >&2; exit 2; }

declare -A rank
n=0
while read -r folder _; do
    case "$folder" in '' | '#'*) continue ;; esac
    rank[$folder]=$n
    n=$((n + 1))
done <"$rules"

folder_of() { # object path -> its folder below OBJDIR
    local rel=${1#"$objdir"/}
    echo "${rel%%/*}"
}

# Which folder defines each symbol.
declare -A home
while read -r obj; do
    f=$(folder_of "$obj")
    [ -n "${rank[$f]+x}" ] || { echo "layer_check: folder $f is not in $rules" >&2; exit 2; }
    while read -r sym; do home[$sym]=$f; done < <(nm --defined-only -g "$obj" | awk '$2 ~ /[TDBRVW]/ {print $3}')
done < <(find "$objdir" -mindepth 2 -name '*.o' | sort)

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
    done < <(nm --undefined-only "$obj" | awk '{print $2}')
done < <(find "$objdir" -mindepth 2 -name '*.o' | sort)
[ $status -eq 0 ] && echo "layer_check: $(find "$objdir" -mindepth 2 -name '*.o' | wc -l) objects, no upward call"
exit $status
