'use strict';

const fs = require('node:fs');
const path = require('node:path');

const root = path.join(__dirname, '..');
const platform = `${process.platform}-${process.arch}`;

// The module's file: the one that BRIVONJS_MODULE names, else the one that came with the package for this platform,
// else a local build.
function modulePath() {
    if (process.env.BRIVONJS_MODULE) return path.resolve(process.env.BRIVONJS_MODULE);
    const candidates = ['prebuilds', 'build'].map((folder) => path.join(root, folder, platform, 'BrivonJS.node'));
    const found = candidates.find((file) => fs.existsSync(file));
    if (found !== undefined) return found;
    throw new Error(
        `brivonjs has no native module for ${platform}: there is neither ${candidates.join(' nor ')}, ` +
            'and BRIVONJS_MODULE does not name another one',
    );
}

// The addon that scripts the stand-ins lies beside the module and the stand-ins themselves.
function standinsPath() {
    const file = path.join(path.dirname(modulePath()), 'standins.node');
    if (fs.existsSync(file)) return file;
    throw new Error(
        `brivonjs cannot be scripted here: there is no ${file}, so the module does not sit on the stand-ins`,
    );
}

module.exports = { modulePath, standinsPath };
