#!/bin/sh
# Makes the arm64 guest for `make test-arm64-system` out of a cross build
# tree: Debian's arm64 kernel and an initramfs holding busybox, ip, dnsmasq,
# the modules the tests load, the cross runtime and the build tree itself at
# its own absolute path (test programs carry build-tree paths: the probe
# program, RPATHs). Downloads are cached in <build>/arm64-system/debs.
# Usage: initramfs.sh <cross build dir>
set -eu
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
out=$build/arm64-system
debs=$out/debs
root=$out/root

# Guest programs and Debian's own /etc files (base-files: host.conf's
# "multi on", which lets the resolver return every /etc/hosts line for a
# name), then the arm64 libraries ip and dnsmasq link (bookworm names), then
# netbase (adns needs /etc/protocols). The tests need iproute2's ip:
# busybox's cannot make veth pairs, and busybox's shell prefers its own
# applets, so dash is /bin/sh as on Debian.
PROGRAMS="busybox-static dash iproute2 dnsmasq-base base-files"
LIBRARIES="libbpf1 libelf1 libmnl0 libbsd0 libmd0 libcap2 zlib1g libdbus-1-3 libsystemd0
  libidn2-0 libunistring2 libnetfilter-conntrack3 libnfnetlink0 libnettle8 libhogweed6 libgmp10
  libnftables1 libnftnl11 libxtables12 libjansson4 libgcrypt20 libgpg-error0 liblzma5 libzstd1
  liblz4-1"
DATA="netbase"
# Kernel modules the network tests need (interfaces they create).
MODULES="veth dummy"

kernel=$(apt-cache depends linux-image-arm64:arm64 |
    sed -n 's/^ *Depends: \(linux-image-[^:]*\):arm64$/\1/p' | head -n 1)
[ -n "$kernel" ] || { echo "linux-image-arm64:arm64 unknown to apt (run deps-aarch64)"; exit 1; }
kver=${kernel#linux-image-}

deb_of() { ls "$debs/${1}_"*.deb 2>/dev/null | head -n 1; }

# Downloads the packages not yet cached (exact names: a pattern would fetch
# every version).
mkdir -p "$debs"
missing=
for p in $kernel $PROGRAMS $LIBRARIES; do
    [ -n "$(deb_of "$p")" ] || missing="$missing $p:arm64"
done
for p in $DATA; do
    [ -n "$(deb_of "$p")" ] || missing="$missing $p"
done
if [ -n "$missing" ]; then
    echo "downloading:$missing"
    (cd "$debs" && apt-get download -qq $missing)
fi

# The kernel image and just the modules needed, with the modules they
# depend on (read from each module's .modinfo), dependencies first: the
# order insmod needs. Each is taken out of the package once.
kdir=$out/kernel/$kver
kdeb=$(deb_of "$kernel")
mkdir -p "$kdir"
[ -f "$kdir/boot/vmlinuz-$kver" ] ||
    dpkg-deb --fsys-tarfile "$kdeb" | tar -x -C "$kdir" "./boot/vmlinuz-$kver"
[ -f "$kdir/modules.list" ] ||
    dpkg-deb -c "$kdeb" | grep -o "lib/modules/$kver/.*\.ko$" > "$kdir/modules.list"
ko_path() { grep -E "/$(echo "$1" | sed 's/[-_]/[-_]/g')\.ko$" "$kdir/modules.list" | head -n 1; }
order=
add_module() {
    ko=$(ko_path "$1")
    [ -n "$ko" ] || { echo "$kernel has no module $1"; exit 1; }
    case " $order " in *" $ko "*) return ;; esac
    [ -f "$kdir/$ko" ] || dpkg-deb --fsys-tarfile "$kdeb" | tar -x -C "$kdir" "./$ko"
    for dep in $(aarch64-linux-gnu-objcopy -O binary -j .modinfo "$kdir/$ko" /dev/stdout |
        tr '\0' '\n' | sed -n 's/^depends=//p' | tr ',' ' '); do
        add_module "$dep"
    done
    order="$order $(ko_path "$1")"
}
for m in $MODULES; do add_module "$m"; done
cp "$kdir/boot/vmlinuz-$kver" "$out/vmlinuz"

rm -rf "$root"
mkdir -p "$root"
for p in $PROGRAMS $LIBRARIES $DATA; do
    dpkg-deb -x "$(deb_of "$p")" "$root"
done
rm -rf "$root/usr/share" "$root/etc/init.d"
mkdir -p "$root/proc" "$root/sys" "$root/dev" "$root/tmp" "$root/root" "$root/lib/firmware" \
    "$root/lib/aarch64-linux-gnu"
ln -sf dash "$root/bin/sh"

# The arm64 C and C++ runtimes of the cross toolchain (sanitizer runtimes
# left out: nothing in the guest is instrumented).
for lib in /usr/aarch64-linux-gnu/lib/*.so.[0-9]*; do
    case $lib in *san.so*) continue ;; esac
    cp -a "$lib" "$root/lib/aarch64-linux-gnu/"
done
ln -sf aarch64-linux-gnu/ld-linux-aarch64.so.1 "$root/lib/ld-linux-aarch64.so.1"

for ko in $order; do
    mkdir -p "$root/$(dirname "$ko")"
    cp "$kdir/$ko" "$root/$ko"
    echo "/$ko"
done > "$root/etc/vxu-modules"

# What the name resolution tests expect of a Debian system (files to
# bind-mount over, a resolver on the loopback); root owns every process.
printf '127.0.0.1 localhost\n::1 localhost\n' > "$root/etc/hosts"
printf 'nameserver 127.0.0.1\n' > "$root/etc/resolv.conf"
printf 'hosts: files dns\n' > "$root/etc/nsswitch.conf"
printf 'root:x:0:0:root:/root:/bin/sh\nnobody:x:65534:65534:nobody:/nonexistent:/bin/false\n' \
    > "$root/etc/passwd"
printf 'root:x:0:\nnogroup:x:65534:\n' > "$root/etc/group"

# The build tree at its own path, without objects and CMake's scratch files,
# debug sections stripped (the guest unpacks it all into memory).
mkdir -p "$root$build"
(cd "$build" && find . -path ./arm64-system -prune -o -name CMakeFiles -prune -o \( -type f -o -type l \) \
    ! -name '*.o' ! -name '*.a' -print | cpio -pdm --quiet "$root$build")
find "$root$build" -type f \( -perm -u+x -o -name '*.so*' \) \
    -exec aarch64-linux-gnu-strip --strip-debug {} + 2>/dev/null || true

# The unit tests whose command is a cross-built program (CTest puts the
# cross emulator in front of those); the rest are host checks that read
# the library with host tools. VXU_SYSTEM_TESTS (a ctest -R pattern) picks
# some.
(cd "$build" && ctest -N -L unit ${VXU_SYSTEM_TESTS:+-R "$VXU_SYSTEM_TESTS"} --show-only=json-v1) | python3 "$here/testlist.py" \
    > "$root/etc/vxu-tests"
cp "$here/init" "$root/init"
chmod 755 "$root/init"

(cd "$root" && find . | cpio -o -H newc --quiet | gzip -1) > "$out/initramfs.cpio.gz"
echo "arm64 guest: kernel $kver, $(wc -l < "$root/etc/vxu-tests") test programs," \
    "initramfs $(du -m "$out/initramfs.cpio.gz" | cut -f1) MiB"
