#!/bin/sh
# Compares the library's dynamic exports with the expected lists
# (one name per line in <dir>/*.txt; blank lines and # comments ignored).
set -eu
lib=$1
dir=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

cat "$dir"/*.txt | sed -e 's/#.*//' -e 's/[[:space:]]*$//' | grep -v '^$' | sort > "$tmp/expected"
dups=$(uniq -d "$tmp/expected")
if [ -n "$dups" ]; then
    echo "names listed twice:"; echo "$dups"; exit 1
fi
# Defined text and data symbols only; the linker's own markers are not ours.
nm -D --defined-only "$lib" | awk '$2 ~ /^[TDBRVWi]$/ { print $3 }' \
    | sed 's/@.*//' | sort -u > "$tmp/actual"

if ! diff -u "$tmp/expected" "$tmp/actual" > "$tmp/diff"; then
    echo "export list differs from $dir (- missing from library, + unexpected export):"
    tail -n +3 "$tmp/diff" | grep '^[-+]'
    exit 1
fi
echo "$(wc -l < "$tmp/actual") exports match"
