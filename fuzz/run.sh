#!/bin/sh
# Builds the fuzz targets with clang and runs each one on its seed corpus.
#   fuzz/run.sh            every target for 5 seconds (the test suite's run)
#   fuzz/run.sh 600        every target for ten minutes
#   fuzz/run.sh 60 fuzz_str_strip   one target
# New inputs go to a scratch copy of the corpus; crashes are left as
# crash-* files in the build folder and fail the run.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-5}
[ $# -gt 0 ] && shift
root=$(pwd)
build=${FUZZ_BUILD:-build-fuzz}

cmake -S fuzz -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ > /dev/null
cmake --build "$build" -j "$(nproc)"

targets=${*:-$(cd fuzz && ls fuzz_*.cpp | sed 's/\.cpp$//')}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0
for t in $targets; do
  seeds=fuzz/corpus/${t#fuzz_}
  mkdir -p "$scratch/$t"
  echo "== $t: ${seconds}s"
  if ! (cd "$build" && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
        "./$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=0 \
        "$scratch/$t" "$root/$seeds" 2>"$scratch/$t.log"); then
    tail -n 40 "$scratch/$t.log"
    failed=$((failed + 1))
  else
    grep -E '^Done|#[0-9]+.*DONE' "$scratch/$t.log" | tail -n 1 || true
  fi
done
total=$(echo "$targets" | wc -w)
echo "fuzz: $((total - failed)) passed, $failed failed"
[ "$failed" -eq 0 ]
