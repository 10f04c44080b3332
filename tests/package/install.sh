#!/usr/bin/env bash
# Installs the build and moves the result to PREFIX: an installed package must not know its place.
# Usage: install.sh BUILD PREFIX
set -euo pipefail
build=$1 prefix=$2

rm -rf "$prefix" "$prefix.first"
cmake --install "$build" --prefix "$prefix.first" >/dev/null
mv "$prefix.first" "$prefix"
if grep -rIl -e "$prefix" -e "$build" "$prefix"; then
    echo "these files name the place where they were installed or built" >&2
    exit 1
fi
