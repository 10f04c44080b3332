#!/usr/bin/env bash
# Each installed header compiles alone, with what is installed and nothing else; a second compiler
# reads them together. Each header that exports something is installed.
# Usage: headers.sh SOURCE-DIR PREFIX
set -euo pipefail
source=$1 include=$2/include/qzint
warnings=(-Wall -Wextra -Wpedantic -Wshadow -Werror -fsyntax-only)

mapfile -t headers < <(find "$include" -name '*.h')
printf '%s\0' "${headers[@]}" |
    xargs -0 -P "$(nproc)" -I {} g++ -std=c++17 "${warnings[@]}" -I "$include" -include {} \
        -x c++ /dev/null
clang++ -std=c++17 "${warnings[@]}" -I "$include" "${headers[@]/#/-include}" -x c++ /dev/null
for compiler in gcc clang; do
    "$compiler" -std=c99 "${warnings[@]}" -include "$include/capi/QZInt-c.h" -x c /dev/null
done

cd "$source"
grep -l QZ_API ./*/*.h | while read -r header; do
    [ -e "$include/$header" ] || { echo "$header exports something and is not installed"; exit 1; }
done
