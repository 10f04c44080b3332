#!/usr/bin/env bash
# Builds the two consumer projects against an installed package and runs them, led to it by CMake and
# by pkg-config.
# Usage: consumers.sh WORK [PREFIX]. With PREFIX each compiler has its turn, and the project of the
# guide's samples; without it the package is where everybody looks, and one compiler shows that.
set -euo pipefail
projects=$(cd "$(dirname "$0")" && pwd)
work=$1 prefix=${2:-}
rm -rf "$work"
mkdir -p "$work"

export QUENVALE_BOOTSTRAP_URL=tcp://127.0.0.1:1  # Nobody is there.
if [ -n "$prefix" ]; then
    export CMAKE_PREFIX_PATH=$prefix
    PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name qzint.pc)")
    LD_LIBRARY_PATH=$(dirname "$(find "$prefix" -name libqzint.so)")
    export PKG_CONFIG_PATH LD_LIBRARY_PATH
fi

# LANGUAGE COMPILER FLAG...
check() {
    local language=$1 compiler=$2 project=$projects/consumer-$1 out=$work/$1-$2
    shift 2
    echo "== $language with $compiler: pkg-config"
    # shellcheck disable=SC2046  # Several words are meant.
    "$compiler" "$@" -Wall -Wextra -Wpedantic -Wshadow -Werror "$project"/*.c* \
        $(pkg-config --cflags --libs qzint) -o "$out"
    "$out"
    echo "== $language with $compiler: find_package"
    CC=$compiler CXX=$compiler cmake -G Ninja -S "$project" -B "$out.cmake" >/dev/null
    cmake --build "$out.cmake" >/dev/null
    "$out.cmake/consumer"
}

check c gcc -std=c99
check cpp g++ -std=c++17
if [ -n "$prefix" ]; then
    check c clang -std=c99
    check cpp clang++ -std=c++17
    cmake -G Ninja -S "$projects/../../docs/examples" -B "$work/samples" >/dev/null
    cmake --build "$work/samples" >/dev/null
fi
