#!/bin/sh
# Builds the fuzz targets with clang and runs each one on its seed corpus.
#   fuzz/run.sh            every target for 5 seconds (the test suite's run)
#   fuzz/run.sh 600        every target for ten minutes
#   fuzz/run.sh 60 fuzz_str_strip   one target
# New inputs go to a scratch copy of the corpus; crashes are left as
# crash-* files in the build folder and fail the run.
set -eu
cd "$(dirname "$0")/.."
root=$(pwd) seconds=${1:-5} build=${FUZZ_BUILD:-build-fuzz} passed=0 failed=0 scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
[ $# -gt 0 ] && shift
cmake -S fuzz -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ > /dev/null
cmake --build "$build" -j "$(nproc)"
for t in ${*:-$(cd fuzz && ls fuzz_*.cpp | sed 's/\.cpp$//')}; do
  echo "== $t: ${seconds}s" && mkdir "$scratch/$t"
  if (cd "$build" && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 "./$t" \
      -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      "$scratch/$t" "$root/fuzz/corpus/${t#fuzz_}" 2> "$scratch/$t.log"); then
    passed=$((passed + 1)) && grep '^Done' "$scratch/$t.log" || true
  else
    failed=$((failed + 1)) && tail -n 40 "$scratch/$t.log"
  fi
done
echo "fuzz: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
