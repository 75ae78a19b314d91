#!/bin/bash
# The export check must find a name that the list, the headers or the library alone have, and each
# thing that keeps a library from being hardened or unloaded.
# Usage: exports_catches.sh SCRIPTS LIBRARY SOURCE CXX
set -euo pipefail
check=$1/check_exports
library=$2
source=$3
cxx=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0

# row TEXT LIBRARY: the check fails and says so.
row()
{
    if "$check" "$2" "$work" >"$work/said" 2>&1 || ! grep -qF -- "$1" "$work/said"; then
        echo "not found: $1" >&2
        cat "$work/said" >&2
        status=1
    fi
}
fresh()
{
    rm -rf "$work/include"
    mkdir -p "$work/include"
    cp -r "$source/include/qvcore6" "$work/include"
    cp "$source/exports.txt" "$work"
}

fresh
sed -i '/^QVMutexAcquire$/d' "$work/exports.txt"
row "unexpected: QVMutexAcquire" "$library"
fresh
echo QVZ >>"$work/exports.txt"
row "missing: QVZ" "$library"
fresh
sed -i 's/QVMutexAcquire(/QVMutexGrab(/' "$work/include/qvcore6/mutex.h"
row "declared names differ" "$library"
row "unexpected: QVMutexGrab" "$library"

fresh
cat >"$work/bad.cpp" <<'END'
#include <vector>
struct Held { Held() : items(3) {} ~Held() { items.clear(); } std::vector<int> items; };
Held first;
__attribute__((init_priority(200))) Held second;
thread_local Held third;
extern "C" int QVBad() { return static_cast<int>(first.items.size() + third.items.size()); }
END
"$cxx" -shared -fPIC -O0 -fno-stack-protector -Wl,-z,lazy,-z,norelro,-z,execstack \
    -o "$work/bad.so" "$work/bad.cpp"
for fault in "unexpected: QVBad" SONAME lazily RELRO "executable stack" "stack protector" \
    thread_local "initial-exec" "load routines"; do
    row "$fault" "$work/bad.so"
done
exit $status
