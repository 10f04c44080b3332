#!/usr/bin/env bash
# Makes the Debian packages and looks into them.
# Usage: debs.sh BUILD DIRECTORY-FOR-THE-PACKAGES
set -euo pipefail
build=$1 debs=$2

rm -rf "$debs"
cpack -G DEB -B "$debs" --config "$build/CPackConfig.cmake" >/dev/null
rm -r "$debs/_CPack_Packages"
cd "$debs"
runtime=$(echo libqzint1_*.deb) development=$(echo libqzint-dev_*.deb) agent=$(echo qz-agent_*.deb)

fail() {
    echo "$*" >&2
    exit 1
}

# PACKAGE FIELD PATTERN
field() {
    local value
    value=$(dpkg-deb --field "$1" "$2")
    # shellcheck disable=SC2053  # A pattern.
    [[ $value == $3 ]] || fail "$1 has $2: $value"
}

for package in *.deb; do
    field "$package" Maintainer "Interceptor SDK developers <*@*>"
    field "$package" Architecture "$(dpkg --print-architecture)"
    field "$package" Description "?*"$'\n'"?*"
done
field "$runtime" Depends "*libc6 (>= *libstdc++6 (>= *"
field "$agent" Depends "*libc6 (>= *libstdc++6 (>= *"
field "$development" Depends "libqzint1 (= $(dpkg-deb --field "$runtime" Version))"

# The files of a package without what is listed beside them: nothing else, and each of those.
files() {
    dpkg-deb --contents "$1" | awk '!/^d/ { print $6 }' | LC_ALL=C sort
}
diff <(files "$runtime") - <<'END' || fail "$runtime has other files"
./usr/lib/libqzint.so.1
./usr/lib/libqzint.so.1.0.0
END
diff <(files "$development" | grep -v '^./usr/include/qzint/.*/.*\.h$') - <<'END' || fail "$development has other files"
./usr/lib/cmake/QZInt/QZIntConfig.cmake
./usr/lib/cmake/QZInt/QZIntConfigVersion.cmake
./usr/lib/cmake/QZInt/QZIntTargets-relwithdebinfo.cmake
./usr/lib/cmake/QZInt/QZIntTargets.cmake
./usr/lib/libqzint.so
./usr/lib/pkgconfig/qzint.pc
END
diff <(files "$agent") - <<'END' || fail "$agent has other files"
./usr/bin/qz-agent
END
if dpkg-deb --contents "$development" | awk '{ print $1, $2 }' | grep -vE '^(drwxr-xr-x|-rw-r--r--|lrwxrwxrwx) root/root$'; then
    fail "$development has files that are not everybody's to read and root's to write"
fi
