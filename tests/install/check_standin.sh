#!/bin/sh
# The install-tree check again on a library built with the stand-in
# libvxlog.so installed (VXU_INSTALL_VXLOG=ON; the main build keeps the default).
set -eu
src=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cmake -S "$src" -B "$tmp" -DCMAKE_C_COMPILER="$3" -DVXU_INSTALL_VXLOG=ON -DVXU_MANPAGES=OFF \
    -DVXU_BUILD_TESTS=OFF -DVXU_BUILD_EXAMPLES=OFF > "$tmp/configure.log" \
    || { cat "$tmp/configure.log"; exit 1; }
cmake --build "$tmp" -j 2 > "$tmp/build.log" || { tail -n 30 "$tmp/build.log"; exit 1; }
"$(dirname "$0")/check_install.sh" "$tmp" "$2" "$3"
