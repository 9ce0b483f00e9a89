#!/bin/sh
# Boots the guest initramfs.sh made under qemu-system-aarch64 (virt machine,
# TCG) and turns the guest's closing line into an exit status: it fails when
# a test fails, or when the guest crashes (no closing line; a kernel oops
# panics, and a panic ends qemu) or outlives VXU_SYSTEM_TIMEOUT seconds.
# The console is kept in <build>/arm64-system/console.log.
# Usage: boot.sh <cross build dir>
set -eu
out=$(cd "$1" && pwd)/arm64-system
limit=${VXU_SYSTEM_TIMEOUT:-2400}
log=$out/console.log
started=$(date +%s)
{
    timeout -k 10 "$limit" qemu-system-aarch64 -M virt -cpu cortex-a57 -smp 2 -m 1536 -accel tcg \
        -nographic -no-reboot -nic none -kernel "$out/vmlinuz" -initrd "$out/initramfs.cpio.gz" \
        -append "console=ttyAMA0 quiet panic=-1 oops=panic" < /dev/null
    echo $? > "$out/qemu.status"
} 2>&1 | sed -u 's/\r$//' | tee "$log"
status=$(cat "$out/qemu.status")
echo "arm64 guest: $(($(date +%s) - started)) s on the host, qemu exit status $status"

[ "$status" -ne 124 ] && [ "$status" -ne 137 ] ||
    { echo "arm64 guest: timed out after $limit s"; exit 1; }
closing=$(grep -E '^arm64-system: [0-9]+ passed, [0-9]+ failed$' "$log" | tail -n 1)
[ -n "$closing" ] || { echo "arm64 guest: stopped before its closing line"; exit 1; }
set -- $closing
[ "$2" -gt 0 ] || { echo "arm64 guest: no test ran"; exit 1; }
[ "$4" -eq 0 ] || { echo "arm64 guest: $4 test programs failed"; exit 1; }
[ "$status" -eq 0 ] || { echo "arm64 guest: qemu failed"; exit 1; }
