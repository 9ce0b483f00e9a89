#!/bin/sh
# Line and branch coverage of the library, per subsystem, from a build
# configured with -DVXU_COVERAGE=ON whose tests have run.
#   coverage-report.sh <build dir> <source dir> [minimum line %]
set -eu
build=$1
src=$2
minimum=${3:-0}
info=$build/coverage.info
lcov --quiet --capture --rc lcov_branch_coverage=1 --directory "$build/src" \
     --base-directory "$src" --output-file "$info.all" --ignore-errors gcov,source
lcov --quiet --rc lcov_branch_coverage=1 --extract "$info.all" "$src/src/*" --output-file "$info"
genhtml --quiet --branch-coverage --output-directory "$build/coverage" "$info" >/dev/null

printf '%-10s %8s %8s\n' subsystem lines branches
status=0
for dir in "$src"/src/*/; do
    sub=$(basename "$dir")
    summary=$(lcov --rc lcov_branch_coverage=1 --extract "$info" "$src/src/$sub/*" \
              --output-file "$info.$sub" 2>/dev/null | sed -n 's/.*\(lines\|branches\)\.*: \([0-9.]*\)%.*/\1 \2/p')
    lines=$(echo "$summary" | awk '$1=="lines"{print $2}')
    branches=$(echo "$summary" | awk '$1=="branches"{print $2}')
    printf '%-10s %7s%% %7s%%\n' "$sub" "${lines:-0}" "${branches:-0}"
    if [ "$sub" != common ] && awk "BEGIN{exit !(${lines:-0} < $minimum)}"; then
        echo "  below the $minimum% line minimum"; status=1
    fi
    rm -f "$info.$sub"
done
echo "report: $build/coverage/index.html"
exit $status
