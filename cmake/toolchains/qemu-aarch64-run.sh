#!/bin/sh
# Runs an arm64 program under qemu-user through the arm64 loader. Naming the
# loader (rather than qemu's -L prefix) keeps fork() working in the guest.
# VXU_AARCH64_LIBS adds library folders (e.g. unpacked arm64 packages).
set -eu
root=/usr/aarch64-linux-gnu
libs=$root/lib${VXU_AARCH64_LIBS:+:$VXU_AARCH64_LIBS}${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}
exec qemu-aarch64 -E LD_LIBRARY_PATH="$libs" -E VXU_TEST_EMULATOR=qemu-user "$root/lib/ld-linux-aarch64.so.1" "$@"
