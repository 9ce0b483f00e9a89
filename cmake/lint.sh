#!/bin/sh
# Lint gate: clang-tidy (.clang-tidy) over every library source with the
# build's compile database, then the house format (.clang-format) over every
# tracked C and C++ file. Any clang-tidy diagnostic or unformatted file fails.
#
#   cmake/lint.sh BUILD_DIR [JOBS]
#
# BUILD_DIR must hold compile_commands.json (configure with
# -DCMAKE_EXPORT_COMPILE_COMMANDS=ON); JOBS defaults to 2.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:?usage: cmake/lint.sh BUILD_DIR [JOBS]}
jobs=${2:-2}
if [ ! -f "$build/compile_commands.json" ]; then
    echo "lint: no compile_commands.json in $build" \
         "(configure with -DCMAKE_EXPORT_COMPILE_COMMANDS=ON)" >&2
    exit 2
fi
build=$(cd "$build" && pwd)

find_tool() {
    for name in "$@"; do
        if command -v "$name" >/dev/null 2>&1; then
            command -v "$name"
            return 0
        fi
    done
    echo "lint: none of $* found" >&2
    return 1
}
tidy=$(find_tool clang-tidy-14 clang-tidy)
format=$(find_tool clang-format-14 clang-format)
runner=$(find_tool run-clang-tidy-14 run-clang-tidy 2>/dev/null || true)

cd "$root"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
failed=0

echo "== clang-tidy over src/ ($("$tidy" --version | sed -n 's/.*version //p' | head -n 1))"
tidy_status=0
if [ -n "$runner" ]; then
    "$runner" -quiet -j "$jobs" -p "$build" -clang-tidy-binary "$tidy" \
        "^$root/src/.*\.cpp\$" >"$log" 2>&1 || tidy_status=$?
else
    find src -name '*.cpp' | sort |
        xargs -P "$jobs" -n 4 "$tidy" --quiet -p "$build" >"$log" 2>&1 || tidy_status=$?
fi
# Only the diagnostics: not the runner's command lines nor the counts of
# warnings that the header filter suppressed.
# The runner always colours its output; logs get plain text.
esc=$(printf '\033')
grep -v -e "^$tidy " -e '^[0-9]* warnings\? generated\.$' \
    -e '^Suppressed [0-9]* warnings' -e '^Use -header-filter' "$log" |
    if [ -t 1 ]; then cat; else sed "s/$esc\[[0-9;]*m//g"; fi || true
if [ "$tidy_status" -ne 0 ]; then
    echo "lint: clang-tidy reported problems (above)" >&2
    failed=1
fi

echo "== clang-format over the tracked sources"
format_status=0
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    git ls-files -z '*.c' '*.cpp' '*.h' '*.hpp' |
        xargs -0 "$format" --dry-run -Werror || format_status=$?
else
    find . -path './build*' -prune -o \( -name '*.c' -o -name '*.cpp' -o -name '*.h' \
        -o -name '*.hpp' \) -print0 | xargs -0 "$format" --dry-run -Werror || format_status=$?
fi
if [ "$format_status" -ne 0 ]; then
    echo "lint: unformatted files (above); fix them with: $format -i FILE..." >&2
    failed=1
fi
if [ "$failed" -ne 0 ]; then
    echo "lint: failed" >&2
    exit 1
fi
echo "lint: clean"
