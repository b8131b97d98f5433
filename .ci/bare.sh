#!/usr/bin/env bash
# The README's two commands on a bare machine: bare.sh FOLDER makes a minimal Debian 12 in the folder, with this
# machine's Node.js and npm, their headers and settings, and nothing else; it clones this repository into it and runs
# them there. As root. What is mounted is gone when the script ends, however it ends.
set -euo pipefail
folder=$1 root=$1/root repository=$PWD
if [ "${2:-}" != mounting ]; then exec unshare --mount --pid --fork --kill-child "$0" "$folder" mounting; fi

prefix=$(node -p "require('path').resolve(process.execPath, '../..')")
files=("$prefix/bin/node" "$prefix/bin/npm" "$prefix/include/node" "$(npm root --global)/npm" /etc/apt /etc/ssl/certs
    "$(npm config get globalconfig)" "$(npm config get userconfig)")
mkdir -p "$folder"
rm -rf --one-file-system "$root"
mmdebstrap --quiet --variant=minbase --include=ca-certificates bookworm "$root" /etc/apt/sources.list.d/debian.sources
for file in "${files[@]}"; do
    if [ -e "$file" ]; then
        mkdir -p "$root$(dirname "$file")"
        cp -a --no-target-directory "$file" "$root$file"
    fi
done
cp /etc/resolv.conf /etc/hosts "$root/etc/"
git clone -q "$repository" "$root/root/project"

mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
for verb in demo test; do
    echo "./run $verb on a bare machine"
    seconds=$SECONDS
    chroot "$root" env HOME=/root DEBIAN_FRONTEND=noninteractive bash -c "cd /root/project && ./run $verb" </dev/null >"$folder/$verb.log" 2>&1 ||
        { tail -n 40 "$folder/$verb.log"; exit 1; }
    echo "passed in $((SECONDS - seconds)) s"
done
umount --recursive "$root/dev" "$root/proc"
rm -rf --one-file-system "$root"
