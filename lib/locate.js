'use strict';

// Where the native module is, and what to say where there is none.

const fs = require('node:fs');
const path = require('node:path');

const platform = `${process.platform}-${process.arch}`;

// A local build goes before what came with the package, which may be older. A bundle that is an ES module has no
// __dirname, and none of these.
const folders =
    typeof __dirname === 'string' ? ['build', 'prebuilds'].map((name) => path.join(__dirname, '..', name)) : [];

const moduleIn = (folder, name) => path.join(folder, name, 'BrivonJS.node');

// The module's file: the one that BRIVONJS_MODULE names, else this package's for this platform.
function modulePath() {
    if (process.env.BRIVONJS_MODULE) return path.resolve(process.env.BRIVONJS_MODULE);
    const candidates = folders.map((folder) => moduleIn(folder, platform));
    const found = candidates.find((file) => fs.existsSync(file));
    if (found !== undefined) return found;
    throw platformError(
        `brivonjs has no native module for ${platform}: there is neither ` +
            [...candidates, 'one that BRIVONJS_MODULE names'].join(' nor '),
    );
}

// The folder of the stand-ins and of the addon that scripts them: the module's, or one in it, so that Windows, which looks
// beside the module first, can find others.
function standinsFolder() {
    const beside = path.dirname(modulePath());
    const within = path.join(beside, 'standins');
    return fs.existsSync(within) ? within : beside;
}

// ---- What cannot be loaded

// What is to be said of a file that the system has refused to load.
function loadError(file, cause) {
    const message = `brivonjs cannot load ${file}: ${cause.message}`;
    const isPrebuilt = folders.length > 0 && file.startsWith(path.join(folders[1], path.sep));
    if (isPrebuilt && process.platform === 'linux' && glibcVersion() === undefined)
        return platformError(message, { cause });
    return Object.assign(new Error(message, { cause }), { code: cause.code });
}

function platformError(message, options) {
    const known = [...new Set(folders.flatMap(platformsIn))];
    const here = process.platform === 'linux' ? `${platform} with ${libc()}` : platform;
    const hint =
        known.length > 0
            ? `There are modules for ${known.join(', ')}; this is ${here}`
            : 'There are none for other platforms either: is this a bundle that brivonjs should have been left out of?';
    return Object.assign(new Error(`${message}. ${hint}`, options), { code: 'ERR_BRIVONJS_PLATFORM' });
}

// The platforms for which there is a module. All of those for Linux are linked to glibc.
function platformsIn(folder) {
    if (!fs.statSync(folder, { throwIfNoEntry: false })?.isDirectory()) return [];
    return fs
        .readdirSync(folder)
        .filter((name) => /^\w+-\w+$/.test(name) && fs.existsSync(moduleIn(folder, name)))
        .map((name) => (name.startsWith('linux-') ? `${name} with glibc` : name));
}

function libc() {
    const version = glibcVersion();
    return version === undefined ? 'musl' : `glibc ${version}`;
}

// undefined where the C library of this process is another one. Slow.
function glibcVersion() {
    return report().header.glibcVersionRuntime;
}

// What the runtime knows of this process. Slow.
function report() {
    const { excludeNetwork } = process.report;
    process.report.excludeNetwork = true; // which would be asked for the names of all peers
    try {
        return process.report.getReport();
    } finally {
        process.report.excludeNetwork = excludeNetwork;
    }
}

module.exports = { loadError, modulePath, platform, report, standinsFolder };
