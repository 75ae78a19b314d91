#!/bin/bash
# Installs the library somewhere else, moves that copy, and builds and runs programs against it: in
# C and in C++, found by CMake and by pkg-config, and the example of the README.
# Usage: installed_copy.sh CMAKE BUILD SOURCE CC CXX
set -euo pipefail
cmake=$1
build=$2
source=$3
export CC=$4 CXX=$5

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export QVCORE6_STATE_DIR=$work/state
mkdir "$QVCORE6_STATE_DIR"

"$cmake" --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/copy"
config=$(find "$work/copy" -name qvcore6-config.cmake)
export PKG_CONFIG_PATH=${config%/cmake/*}/pkgconfig
export LD_LIBRARY_PATH=${config%/cmake/*}

echo "-- by CMake"
"$cmake" -S "$source/tests/package/consumer" -B "$work/consumer" -G Ninja \
    -DCMAKE_PREFIX_PATH="$work/copy" >/dev/null
"$cmake" --build "$work/consumer"
"$work/consumer/consumer_c"
"$work/consumer/consumer_cpp"

echo "-- by pkg-config"
read -ra flags <<<"$(pkg-config --cflags --libs qvcore6)"
"$CC" -std=c11 -o "$work/by_pc_c" "$source/tests/package/consumer/consumer.c" "${flags[@]}"
"$CXX" -std=c++17 -o "$work/by_pc_cpp" "$work/consumer/consumer.cpp" "${flags[@]}"
"$work/by_pc_c"
"$work/by_pc_cpp"

echo "-- the README's example"
awk '/^```c$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$source/README.md" \
    >"$work/example.c"
"$CC" -std=c11 -Wall -Wextra -Werror -o "$work/example" "$work/example.c" "${flags[@]}"
"$work/example"

echo "-- another minor version is refused"
if "$cmake" -S "$source/tests/package/consumer" -B "$work/refused" -G Ninja \
    -DCMAKE_PREFIX_PATH="$work/copy" -DWANTED_VERSION=0.999 >/dev/null 2>&1; then
    echo "find_package(qvcore6 0.999) found this version" >&2
    exit 1
fi
