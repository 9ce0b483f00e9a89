#!/bin/sh
# vxu_com_gettid must reach the kernel through the gettid system call:
# number 178 on arm64, 186 on x86-64. Reads the built code itself.
set -eu
lib=$1
objdump=$2
body=$("$objdump" -d --no-show-raw-insn "$lib" | awk '/<vxu_com_gettid>:/,/^$/')
[ -n "$body" ] || { echo "vxu_com_gettid not found in $lib"; exit 1; }
echo "$body"
arch=$("$objdump" -f "$lib" | sed -n 's/^architecture: \([^,]*\).*/\1/p')
case $arch in
    aarch64) want='#0xb2' ;;
    i386:x86-64) want='$0xba,' ;;
    *) echo "no expectation for $arch"; exit 1 ;;
esac
echo "$body" | grep -qF "$want" || { echo "gettid number ($want) not passed"; exit 1; }
echo "$body" | grep -qE 'syscall|svc' || { echo "no system call made"; exit 1; }
echo "vxu_com_gettid passes $want to the system call ($arch)"
