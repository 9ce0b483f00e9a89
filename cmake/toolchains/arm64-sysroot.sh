#!/bin/sh
# Unpacks Debian's arm64 adns packages into a folder for the cross build.
# (Debian's adns is not multi-arch: installing the arm64 package would
# replace the host's.)  Usage: arm64-sysroot.sh <folder>
set -eu
dest=$1
[ -f "$dest/usr/include/adns.h" ] && exit 0
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
(cd "$tmp" && apt-get download -qq libadns1:arm64 libadns1-dev:arm64)
mkdir -p "$dest"
for deb in "$tmp"/*.deb; do
    dpkg-deb -x "$deb" "$dest"
done
echo "arm64 adns unpacked into $dest"
