#!/bin/sh
# Installs the build tree into a scratch prefix and builds and runs a
# consumer through find_package(vxutil) and through pkg-config.
#   check_install.sh <build> <consumer source> <C compiler>
set -eu
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "$*"; exit 1; }
here=$(dirname "$0")
cmake --install "$1" --prefix "$tmp/prefix" > "$tmp/log" || { cat "$tmp/log"; fail "install failed"; }
lib=$(dirname "$(find "$tmp/prefix" -name libvxutil.so)")  # lib or lib/<multiarch>
ls "$lib/libvxutil.so" "$lib/pkgconfig/vxutil.pc" "$lib/cmake/vxutil/vxutilConfig.cmake" \
    "$tmp/prefix/include/vxutil/vxutil.h" > /dev/null || fail "not installed, above"
[ -L "$lib/libvxutil.so.1" ] || fail "SONAME link missing"
"$here/../tools/check.sh" runpath "$tmp/prefix"
# The stand-in libvxlog.so is installed only when asked for; otherwise the
# consumer takes one from elsewhere (here the build tree's).
vxlog=$(find "$tmp/prefix" -name 'libvxlog.so*')
elsewhere=$1/platform/vxlog
if grep -qx 'VXU_INSTALL_VXLOG:BOOL=ON' "$1/CMakeCache.txt"; then
    [ -n "$vxlog" ] || fail "libvxlog.so not installed"
    elsewhere=
else
    [ -z "$vxlog" ] || fail "installed unasked: $vxlog"
fi
grep -qx 'VXU_MANPAGES:BOOL=OFF' "$1/CMakeCache.txt" ||
    "$here/check_manpages.sh" "$tmp/prefix/share/man" "$here/../exports"
{ PKG_CONFIG_PATH="$lib/pkgconfig" cmake -S "$2" -B "$tmp/consumer" -DCMAKE_C_COMPILER="$3" \
    -DCMAKE_PREFIX_PATH="$tmp/prefix" -DCMAKE_EXE_LINKER_FLAGS="${elsewhere:+-Wl,-rpath-link,$elsewhere}" &&
    cmake --build "$tmp/consumer"; } > "$tmp/log" 2>&1 || { cat "$tmp/log"; fail "the consumer does not build"; }
for exe in with_cmake with_pkgconfig; do
    out=$(LD_LIBRARY_PATH="$lib${elsewhere:+:$elsewhere}" "$tmp/consumer/$exe") &&
        [ "$out" = "mem tracking is not supported" ] || fail "$exe failed or printed: $out"
done
echo "installed tree works through find_package and pkg-config"
