#!/bin/sh
# Installs the build tree into a scratch prefix and builds and runs a
# consumer through find_package(vxutil) and through pkg-config.
set -eu
build=$1
src=$2
generator_cc=$3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

cmake --install "$build" --prefix "$tmp/prefix" > "$tmp/install.log"
for f in lib/libvxutil.so lib/libvxutil.so.1 include/vxutil/vxutil.h \
         lib/pkgconfig/vxutil.pc lib/cmake/vxutil/vxutilConfig.cmake; do
    found=$(find "$tmp/prefix" -path "*/${f#lib/}" -o -path "$tmp/prefix/$f" | head -n 1)
    [ -n "$found" ] || { echo "not installed: $f"; exit 1; }
done
[ -L "$(find "$tmp/prefix" -name libvxutil.so.1 | head -n 1)" ] || { echo "SONAME link missing"; exit 1; }
# The stand-in libvxlog.so is installed only when asked for; otherwise the
# consumer takes one from elsewhere (here the build tree's).
vxlog=$(find "$tmp/prefix" -name 'libvxlog.so*')
elsewhere=$build/platform/vxlog
if grep -qx 'VXU_INSTALL_VXLOG:BOOL=ON' "$build/CMakeCache.txt"; then
    [ -n "$vxlog" ] || { echo "libvxlog.so not installed"; exit 1; }
    elsewhere=
else
    [ -z "$vxlog" ] || { echo "installed unasked: $vxlog"; exit 1; }
fi
grep -qx 'VXU_MANPAGES:BOOL=OFF' "$build/CMakeCache.txt" \
    || "$(dirname "$0")/check_manpages.sh" "$tmp/prefix/share/man" "$(dirname "$0")/../exports"

libdir=$(dirname "$(find "$tmp/prefix" -name libvxutil.so | head -n 1)")
PKG_CONFIG_PATH="$libdir/pkgconfig" cmake -S "$src" -B "$tmp/consumer" \
    -DCMAKE_C_COMPILER="$generator_cc" -DCMAKE_PREFIX_PATH="$tmp/prefix" \
    -DCMAKE_EXE_LINKER_FLAGS="${elsewhere:+-Wl,-rpath-link,$elsewhere}" > "$tmp/configure.log" \
    || { cat "$tmp/configure.log"; exit 1; }
cmake --build "$tmp/consumer" > "$tmp/build.log" || { cat "$tmp/build.log"; exit 1; }
for exe in with_cmake with_pkgconfig; do
    LD_LIBRARY_PATH="$libdir${elsewhere:+:$elsewhere}" "$tmp/consumer/$exe" > "$tmp/$exe.out" \
        || { echo "$exe failed"; exit 1; }
    grep -qx "mem tracking is not supported" "$tmp/$exe.out" || { echo "$exe: wrong output"; exit 1; }
done
echo "installed tree works through find_package and pkg-config"
