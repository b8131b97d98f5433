#!/usr/bin/env bash
# The README's two commands on a bare machine: bare.sh FOLDER makes a minimal Debian 12 in the folder, with this
# machine's Node.js and npm, their headers, settings and certificates, and nothing else; it clones the repository in the
# current folder into it and runs them there. As root. What is mounted is gone when the script ends, however it ends.
set -euo pipefail
folder=$1 root=$1/root repository=$PWD
if [ "${2:-}" != mounting ]; then exec unshare --mount --pid --fork --kill-child "$0" "$folder" mounting; fi

prefix=$(node -p "require('path').resolve(process.execPath, '../..')")
needed=("$prefix/bin/node" "$prefix/bin/npm" "$prefix/include/node" "$(npm root --global)/npm" /etc/apt /etc/ssl/certs)
settings=("$(npm config get globalconfig)" "$(npm config get userconfig)")
mapfile -t proxies < <(env | grep -iE '^(https?|no)_proxy=')
sources=/etc/apt/sources.list.d/debian.sources
[ -e $sources ] || sources=/etc/apt/sources.list
mkdir -p "$folder"
rm -rf --one-file-system "$root"
mmdebstrap --quiet --variant=minbase --include=ca-certificates bookworm "$root" $sources
for file in "${needed[@]}" "${settings[@]}"; do
    if [ -e "$file" ] || [[ " ${needed[*]} " == *" $file "* ]]; then
        mkdir -p "$root$(dirname "$file")"
        cp -a --no-target-directory "$file" "$root$file"
    fi
done
cp /etc/resolv.conf /etc/hosts "$root/etc/"
git clone -q "$repository" "$root/root/project"

# The mounts are this script's own, and the copy of the settings is not to stay.
remove() { umount --recursive "$root/dev" "$root/proc" && rm -rf --one-file-system "$root"; }
trap remove EXIT
mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
for verb in demo test; do
    echo "./run $verb on a bare machine"
    seconds=$SECONDS
    if ! chroot "$root" env -i "${proxies[@]}" HOME=/root DEBIAN_FRONTEND=noninteractive \
        PATH="$prefix/bin:/usr/sbin:/usr/bin:/sbin:/bin" bash -c "cd /root/project && ./run $verb" \
        </dev/null >"$folder/$verb.log" 2>&1; then
        tail -n 40 "$folder/$verb.log"
        exit 1
    fi
    echo "passed in $((SECONDS - seconds)) s"
done
