#!/bin/sh
# Every public header must compile on its own as strict C99 and as C++.
set -eu
incdir=$1
cc=$2
cxx=$3
status=0
for h in "$incdir"/vxutil/*.h; do
    name=vxutil/$(basename "$h")
    if ! printf '#include <%s>\n' "$name" | \
        "$cc" -std=c99 -pedantic -Wall -Wextra -Werror -fsyntax-only -I"$incdir" -x c -; then
        echo "FAIL (C99): $name"; status=1
    fi
    if ! printf '#include <%s>\n' "$name" | \
        "$cxx" -std=c++17 -pedantic -Wall -Wextra -Werror -fsyntax-only -I"$incdir" -x c++ -; then
        echo "FAIL (C++): $name"; status=1
    fi
done
[ $status -eq 0 ] && echo "all headers compile alone as C99 and C++"
exit $status
