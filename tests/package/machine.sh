#!/usr/bin/env bash
# Installs the Debian packages on a copy of this machine, uses them there as a user does, and removes
# them again: nothing of theirs may stay. The copy is an overlay over the root directory in a mount
# namespace of its own, so that the machine is left alone.
# Usage: machine.sh DIRECTORY-OF-THE-PACKAGES WORK; ends with 77 where such a namespace can't be had.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
debs=$1 work=$2

if [ "${QZ_IN_NAMESPACE:-}" != yes ]; then
    mkdir -p "$work"
    if [ "$(id -u)" -ne 0 ] || ! unshare --mount true 2>/dev/null; then
        echo "not root, or no mount namespaces: skipped"
        exit 77
    fi
    QZ_IN_NAMESPACE=yes exec unshare --mount --propagation private "$0" "$debs" "$work"
fi

# In memory, since an overlay can't have its changes on another overlay.
mount -t tmpfs -o size=1g qzint "$work"
mkdir "$work"/{changes,scratch,root}
if ! mount -t overlay -o "lowerdir=/,upperdir=$work/changes,workdir=$work/scratch" overlay \
    "$work/root"; then
    echo "no overlays: skipped"
    exit 77
fi
mount --rbind /dev "$work/root/dev"
mount --rbind /proc "$work/root/proc"
mount -t tmpfs qzint "$work/root/tmp"
cp -r "$here" "$work/root/tmp/package"
cp "$debs"/*.deb "$work/root/tmp"

cat >"$work/root/tmp/use" <<'END'
set -euo pipefail
cd /tmp
dpkg --install ./*.deb
ldconfig --print-cache | grep 'libqzint\.so\.1 ' >/dev/null
package/consumers.sh /tmp/consumers
qz-agent --help >/dev/null
dpkg --remove libqzint-dev qz-agent libqzint1
for package in libqzint-dev qz-agent libqzint1; do
    if dpkg-query --show "$package" 2>/dev/null; then exit 1; fi
done
if ldconfig --print-cache | grep libqzint; then exit 1; fi
END
chroot "$work/root" env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    LC_ALL=C.UTF-8 HOME=/tmp bash /tmp/use </dev/null

# What dpkg and ldconfig keep for themselves changes; beyond that only directories may have been
# touched, and none may be new.
cd "$work/changes"
left=$(find . \( -path ./var/lib/dpkg -o -path ./var/log -o -path ./var/cache/ldconfig -o \
    -path ./etc/ld.so.cache \) -prune -o -print | while read -r path; do
    [ -d "$path" ] && [ -d "/$path" ] || echo "$path"
done)
[ -z "$left" ] || { echo "left behind:" "$left"; exit 1; }
