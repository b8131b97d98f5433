#!/usr/bin/env bash
# Programs for Windows under the Wine of Debian 13: wine10.sh BUILD PROGRAM ARGUMENT... makes a minimal Debian 13 with it in
# BUILD/wine10, unless it is there, and runs the program in it, where the folder BUILD is /build. As root. What is mounted
# is gone when the script ends, however it ends.
set -euo pipefail
build=$1 root=$1/wine10/root wine=/usr/lib/wine/wine64
if [ "${BRIVON_MOUNTING:-}" = "" ]; then
    BRIVON_MOUNTING=1 exec unshare --mount --pid --fork --kill-child "$0" "$@"
fi
shift

if [ ! -e "$root/made" ]; then
    rm -rf --one-file-system "$root"
    mkdir -p "$root"
    mmdebstrap --quiet --variant=minbase --include=wine64 trixie "$root"
    touch "$root/made"
fi
mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
mkdir -p "$root/build"
mount --bind "$build" "$root/build"
within() { chroot "$root" env -i PATH=/usr/bin:/bin LANG=C.UTF-8 HOME=/root XDG_RUNTIME_DIR=/tmp WINEDEBUG=-all "$@"; }
if [ ! -e "$root/ready" ]; then
    within $wine wineboot --init </dev/null >"$build/wine10/log" 2>&1
    within $wine reg add 'HKCU\Software\Wine' /v Version /d win10 /f </dev/null >>"$build/wine10/log" 2>&1
    # A process that crashes is to end, without a debugger, which may never do so.
    within $wine reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Debugger /d false /f \
        </dev/null >>"$build/wine10/log" 2>&1
    within /usr/lib/wine/wineserver64 --wait # writes it down
    touch "$root/ready"
fi
# A process gets a file as its standard output, since Wine's pipes are not enough for the runtime there.
status=0
within $wine "$@" </dev/null >"$build/wine10/output" 2>&1 || status=$?
cat "$build/wine10/output"
exit $status
