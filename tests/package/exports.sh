#!/bin/sh
# Whether a built library exports the functions that the header declares, each at a version, and nothing else.
# Usage: exports.sh LIBRARY HEADER
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sed -n 's/^[A-Za-z].*[ *]\(NQ360_[a-z_]*\)(.*/\1/p' "$2" | sort >"$work/declared"
# The versions themselves stand in the list too, as absolute symbols.
nm -D --defined-only --with-symbol-versions "$1" |
    sed -e '/ A NQ360_[0-9.]*\(@@NQ360_[0-9.]*\)\{0,1\}$/d' -e 's/^[^ ]* //' -e 's/^T \(.*\)@@NQ360_[0-9.]*$/\1/' |
    sort >"$work/exported"
[ -s "$work/declared" ] && diff "$work/declared" "$work/exported" || {
    echo "$1 exports (>) other functions than $2 declares (<)" >&2
    exit 1
}
