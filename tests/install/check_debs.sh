#!/bin/sh
# Installs the built packages on this machine, builds and runs the consumer
# against them through find_package and pkg-config, shows a manual page, then
# purges them and checks that nothing they brought is left.
set -eu
debs=$1
src=$2
pkgs="libvxutil1 libvxutil-dev libvxlog-standin"
SUDO=$( [ "$(id -u)" -eq 0 ] || echo sudo )
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"; $SUDO dpkg --purge $pkgs > /dev/null 2>&1 || true' EXIT
$SUDO dpkg --purge $pkgs > /dev/null 2>&1

# Every path the packages hold that the machine does not have yet.
for p in $pkgs; do dpkg-deb -c "$debs/${p}"_*.deb; done | awk '{ print substr($6, 2) }' | sort -u \
    | while read -r f; do [ -e "$f" ] || [ -L "$f" ] || echo "$f"; done > "$tmp/new"
[ -s "$tmp/new" ] || { echo "the packages bring nothing new"; exit 1; }

# The library packages install without the stand-in: they do not depend on it.
$SUDO dpkg -i "$debs"/libvxutil1_*.deb "$debs"/libvxutil-dev_*.deb
$SUDO dpkg -i "$debs"/libvxlog-standin_*.deb
cmake -S "$src" -B "$tmp/consumer" > "$tmp/configure.log" || { cat "$tmp/configure.log"; exit 1; }
cmake --build "$tmp/consumer" > "$tmp/build.log" || { cat "$tmp/build.log"; exit 1; }
for exe in with_cmake with_pkgconfig; do
    [ "$("$tmp/consumer/$exe")" = "mem tracking is not supported" ] || { echo "$exe failed"; exit 1; }
    echo "$exe: runs against the installed packages"
done
MANWIDTH=80 man 3 vxu_loop_add

$SUDO dpkg --purge $pkgs
left=$(while read -r f; do if [ -e "$f" ] || [ -L "$f" ]; then echo "$f"; fi; done < "$tmp/new")
[ -z "$left" ] || { echo "left behind after purge:"; echo "$left"; exit 1; }
! ldconfig -p | grep -E 'libvx(util|log)' || { echo "still in the linker cache"; exit 1; }
echo "packages installed, consumed and purged without a trace ($(wc -l < "$tmp/new") paths)"
