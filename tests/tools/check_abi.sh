#!/bin/sh
# Compares the built library's ABI with the recorded one (abi/libvxutil.abi).
# An intended change is accepted with: make abi-update
set -eu
lib=$1
recorded=$2
headers=$3
if ! command -v abidiff >/dev/null; then
    echo "abidiff not found (Debian package abigail-tools)"; exit 1
fi
set +e
abidiff --headers-dir2 "$headers" --no-added-syms "$recorded" "$lib" > abi.diff 2>&1
status=$?
set -e
if [ $status -ne 0 ]; then
    cat abi.diff
    echo "the library's ABI differs from $recorded; if intended, run: make abi-update"
    exit 1
fi
# New functions change the ABI too: they must be recorded (and reviewed).
abidiff --headers-dir2 "$headers" "$recorded" "$lib" > abi.diff 2>&1 || {
    cat abi.diff
    echo "functions were added; if intended, run: make abi-update"
    exit 1
}
echo "ABI matches $recorded"
