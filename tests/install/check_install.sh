#!/bin/sh
# Installs the build tree into a scratch prefix and builds and runs a
# consumer through find_package(vxutil) and through pkg-config.
#   check_install.sh <build> <consumer source> <C compiler>
set -eu
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "$*"; exit 1; }
cmake --install "$1" --prefix "$tmp/prefix" > "$tmp/log" || { cat "$tmp/log"; fail "install failed"; }
lib=$(dirname "$(find "$tmp/prefix" -name libvxutil.so)")  # lib or lib/<multiarch>
ls "$lib/libvxutil.so" "$lib/pkgconfig/vxutil.pc" "$lib/cmake/vxutil/vxutilConfig.cmake" \
    "$tmp/prefix/include/vxutil/vxutil.h" > /dev/null || fail "not installed, above"
[ -L "$lib/libvxutil.so.1" ] || fail "SONAME link missing"
{ PKG_CONFIG_PATH="$lib/pkgconfig" cmake -S "$2" -B "$tmp/consumer" -DCMAKE_C_COMPILER="$3" \
    -DCMAKE_PREFIX_PATH="$tmp/prefix" && cmake --build "$tmp/consumer"; } > "$tmp/log" 2>&1 \
    || { cat "$tmp/log"; fail "the consumer does not build"; }
for exe in with_cmake with_pkgconfig; do
    out=$(LD_LIBRARY_PATH="$lib" "$tmp/consumer/$exe") && [ "$out" = "mem tracking is not supported" ] \
        || fail "$exe failed or printed: $out"
done
echo "installed tree works through find_package and pkg-config"
