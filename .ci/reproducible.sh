#!/usr/bin/env bash
# The package's binaries are the same wherever and whenever they are built: reproducible.sh builds them here and in a copy
# of the sources in another folder, and compares every byte.
set -euo pipefail
copy=build/reproducible/another/folder
rm -rf build/reproducible
mkdir -p $copy
git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents --preserve --target-directory=$copy
ln -s "$PWD/node_modules" $copy/
./run prebuilds
$copy/run prebuilds
diff --recursive prebuilds $copy/prebuilds
rm -rf prebuilds build/reproducible
