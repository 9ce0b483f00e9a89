#!/bin/sh
# The library may depend on the C library (and libpthread where separate),
# the logging library and adns; never on the C++ or GCC runtime.
set -eu
lib=$1
needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
echo "NEEDED: $(echo $needed)"
status=0
for n in $needed; do
    case $n in
        libc.so.*|libpthread.so.*|libvxlog.so|libadns.so.*|ld-linux*) ;;
        *) echo "unexpected dependency: $n"; status=1 ;;
    esac
done
echo "$needed" | grep -q '^libvxlog\.so$' || { echo "libvxlog.so is not linked"; status=1; }
exit $status
