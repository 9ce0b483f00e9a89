#!/bin/sh
# Every exported function has a section 3 page, and every page renders
# without a warning from man or groff at 80 columns.
set -eu
man=$1
exports=$2
status=0
for name in $(sed 's/#.*//' "$exports"/*.txt); do
    [ -f "$man/man3/$name.3" ] || { echo "no manual page: $name"; status=1; }
done
for page in "$man"/man3/*.3 "$man/man7/vxutil.7"; do
    out=$(MANWIDTH=80 man --warnings=w -E UTF-8 -l "$page" 2>&1 >/dev/null) || out="man failed $out"
    [ -z "$out" ] || { echo "$page: $out"; status=1; }
done
[ $status -ne 0 ] || echo "$(ls "$man/man3" | wc -l) section 3 pages and vxutil(7) render cleanly"
exit $status
