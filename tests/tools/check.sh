#!/bin/sh
# Checks on the built library as a whole; the first argument picks one:
#   exports <lib> <dir>          the dynamic exports are exactly the names
#                                listed in <dir>/*.txt (# comments ignored)
#   needed <lib>                 it depends on the C library (libpthread where
#                                separate), the logging library and adns; never
#                                on the C++ or GCC runtime
#   gettid <lib> <objdump>       vxu_com_gettid makes the gettid system call:
#                                number 178 on arm64, 186 on x86-64
#   headers <incdir> <cc> <cxx>  every public header compiles on its own as
#                                strict C99 and as C++17
#   abi <lib> <recorded> <hdrs>  the ABI, new functions included, is the
#                                recorded one; an intended change is accepted
#                                with: make abi-update
#   runpath <dir>...             no ELF file under the folders has an empty or
#                                relative RPATH/RUNPATH element, which would
#                                make the loader search the current directory
set -eu
mode=$1 lib=$2 tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "$*"; exit 1; }
case $mode in
exports)
    sed -e 's/#.*//' -e 's/[[:space:]]*$//' "$3"/*.txt | grep -v '^$' | sort > "$tmp/expected"
    [ -z "$(uniq -d "$tmp/expected")" ] || fail "names listed twice:" $(uniq -d "$tmp/expected")
    # Defined text and data symbols only; the linker's own markers are not ours.
    nm -D --defined-only "$lib" | awk '$2 ~ /^[TDBRVWi]$/ { sub(/@.*/, "", $3); print $3 }' \
        | sort -u > "$tmp/actual"
    diff -u "$tmp/expected" "$tmp/actual" | tail -n +3 | grep '^[-+]' \
        && fail "export list differs from $3 (- missing from library, + unexpected export)"
    echo "$(wc -l < "$tmp/actual") exports match" ;;
needed)
    needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    echo "NEEDED:" $needed
    echo "$needed" | grep -vE '^(libc\.so\.|libpthread\.so\.|libvxlog\.so$|libadns\.so\.|ld-linux)' \
        && fail "unexpected dependencies (above)"
    echo "$needed" | grep -qx 'libvxlog\.so' || fail "libvxlog.so is not linked" ;;
gettid)
    body=$("$3" -d --no-show-raw-insn "$lib" | awk '/<vxu_com_gettid>:/,/^$/')
    [ -n "$body" ] && echo "$body" || fail "vxu_com_gettid not found in $lib"
    arch=$("$3" -f "$lib" | sed -n 's/^architecture: \([^,]*\).*/\1/p')
    case $arch in aarch64) want='#0xb2' ;; i386:x86-64) want='$0xba,' ;; *) fail "no rule for $arch" ;; esac
    echo "$body" | grep -qF "$want" || fail "gettid number ($want) not passed"
    echo "$body" | grep -qE 'syscall|svc' || fail "no system call made"
    echo "vxu_com_gettid passes $want to the system call" ;;
headers)
    flags="-pedantic -Wall -Wextra -Werror -fsyntax-only -I$lib"  # a folder without blanks
    for h in "$lib"/vxutil/*.h; do
        echo "#include <vxutil/${h##*/}>" | "$3" -std=c99 $flags -x c - || fail "FAIL (C99): $h"
        echo "#include <vxutil/${h##*/}>" | "$4" -std=c++17 $flags -x c++ - || fail "FAIL (C++): $h"
    done
    echo "all headers compile alone as C99 and C++" ;;
abi)
    command -v abidiff > /dev/null || fail "abidiff not found (Debian package abigail-tools)"
    abidiff --headers-dir2 "$4" "$3" "$lib" 2>&1 \
        || fail "the library's ABI differs from $3; if intended, run: make abi-update"
    echo "ABI matches $3" ;;
runpath)
    shift
    bad=$(find "$@" -type f \( -name '*.so*' -o -perm -u+x \) ! -path '*/CMakeFiles/*' |
        while read -r f; do readelf -d "$f" 2>/dev/null | sed -n "s|.*(R[UN]*PATH).*\[\(.*\)\]|$f \1|p"; done |
        awk '{ n = split($2, e, ":"); for (i = 1; i <= n; i++) if (e[i] !~ /^\//) { print; next } }')
    [ -z "$bad" ] || fail "empty or relative search path elements:" "$bad"
    echo "no empty or relative RPATH/RUNPATH elements" ;;
*) fail "unknown check: $mode" ;;
esac
