#!/bin/bash
# The floors check must find each kind of wrong include. Usage: floors_catches.sh SCRIPTS
set -euo pipefail
check=$1/check_floors
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
status=0

# row VERDICT FILE INCLUDE: the tree holds this one file.
row()
{
    rm -rf "${tree:?}/include" "${tree:?}/src"
    mkdir -p "$tree/include/qvcore6" "$tree/src" "$tree/$(dirname "$2")"
    echo "#include $3" >"$tree/$2"
    local verdict=right
    "$check" "$tree" >/dev/null || verdict=wrong
    if [[ $verdict != "$1" ]]; then
        echo "$2 with #include $3: said to be $verdict, is $1" >&2
        status=1
    fi
}

row right src/config/a.cpp '"text/b.h"'
row right src/frame/library.cpp '"component/b.h"'
row right src/text/a.cpp '<unicode/ustring.h>'
row right src/frame/boundary.cpp '<cxxabi.h>'
row right src/platform/a.cpp '<linux/futex.h>'
row right include/qvcore6/a.h '<stddef.h>'
row wrong src/text/a.cpp '"config/b.h"'
row wrong src/text/a.cpp '"locks/b.h"'
row wrong src/frame/result.cpp '"locks/b.h"'
row wrong src/config/a.cpp '"frame/library.h"'
row wrong src/frame/global_data.h '"frame/exception.h"'
row wrong src/locks/a.cpp '<unistd.h>'
row wrong src/locks/a.cpp '<sys/mman.h>'
row wrong src/locks/a.cpp '<cxxabi.h>'
row wrong src/locks/a.cpp '"a.h"'
row wrong src/platform/a.cpp '"frame/exception.h"'
row wrong src/platform/a.cpp '<qvcore6/base.h>'
row wrong src/stray/a.cpp '<cstddef>'
row wrong include/qvcore6/a.h '<sys/types.h>'
row wrong include/qvcore6/a.h '"base.h"'
exit $status
