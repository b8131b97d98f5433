'use strict';

// Which libraries the module runs on, and how it comes to them. Both systems give a module what the process has already
// loaded under a library's name. Otherwise Linux looks beside the module; Windows looks there, in folders of its own, in
// the current one, and in those of PATH.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const { faultsOf } = require('./exports');
const { isForgotten, load } = require('./load');
const { loadError, modulePath, report, standinsFolder } = require('./locate');

const isWindows = process.platform === 'win32';
const NAMES = isWindows ? ['BrivonMessage5.dll', 'BrivonControl.dll'] : ['libBrivonMessage5.so', 'libBrivonControl.so'];
const RTLD_NODELETE = 0x1000;

// This environment's choice falls once: { kind: 'suite' | 'standins' | 'folder', files }, and the addon that scripts the
// stand-ins where it is there.
let chosen;

function libraries() {
    return (chosen ??= choose(process.env.BRIVONJS_LIBRARIES ?? ''));
}

function loadModule() {
    const { kind } = libraries();
    if (kind !== 'standins') checkLibraries();
    try {
        return loadWith[kind](() => load(modulePath()));
    } catch (error) {
        checkLibraries(error);
        throw error;
    }
}

// The addon that scripts the stand-ins. The module runs on these from then on, whatever the environment says.
function loadStandins() {
    chosen ??= choose('standins');
    if (chosen.addon === undefined) throw notScripted(chosen.files);
    try {
        return load(chosen.addon);
    } catch (error) {
        const others = otherLibraries(); // which another environment of the process has chosen
        throw others.length > 0 ? notScripted(others, error) : error;
    }
}

function notScripted(files, cause) {
    const places = files.join(' and ');
    return librariesError(
        `brivonjs cannot be scripted here: the module runs on ${places}, not on the stand-ins`,
        cause,
    );
}

// ---- The choice

function choose(wanted) {
    if (wanted !== '' && wanted !== 'standins' && wanted !== 'suite') return inFolder(path.resolve(wanted));
    if (wanted !== 'standins') {
        const { files, isSafe, obstacle } = findSuite();
        if (wanted === 'suite' && obstacle !== undefined)
            throw librariesError(`brivonjs cannot run on the suite's libraries: ${obstacle}`);
        if (wanted === 'suite' || isSafe) return { kind: 'suite', files };
    }
    const addon = path.join(standinsFolder(), 'standins.node');
    if (fs.existsSync(addon)) return { kind: 'standins', files: filesIn(standinsFolder()), addon };
    if (wanted === 'standins') throw librariesError(`brivonjs cannot run on the stand-ins: there is no ${addon}`);
    return { kind: 'standins', files: filesIn(standinsFolder()) };
}

const filesIn = (folder) => NAMES.map((name) => path.join(folder, name));
const beside = () => path.dirname(modulePath());

function inFolder(folder) {
    const before = isWindows ? [beside(), ...systemFolders(), process.cwd()] : [];
    const first = findFirst(before.filter((other) => identity(other) !== identity(folder)).flatMap(filesIn));
    if (first === undefined) return { kind: 'folder', files: filesIn(folder) };
    throw librariesError(`brivonjs cannot run on the libraries in ${folder}: Windows takes ${first} first`);
}

// The files that Windows would load. They are safe to take unasked unless they merely lie where the program was started.
function findSuite() {
    if (!isWindows) return { obstacle: 'there are none for this system' };
    const first = findFirst(filesIn(beside()));
    if (first !== undefined) return { obstacle: `Windows takes ${first} first, which lies beside the module` };
    const searched = (environment('PATH') ?? '').split(';').map((folder) => folder.replaceAll('"', ''));
    const installed = [...systemFolders(), ...searched.filter(Boolean).map((folder) => path.resolve(folder))];
    const folders = [...systemFolders(), process.cwd(), ...installed];
    const files = NAMES.map((name) => findFirst(folders.map((folder) => path.join(folder, name))));
    const missing = NAMES.filter((_, i) => files[i] === undefined);
    if (missing.length > 0) return { obstacle: `Windows finds no ${missing.join(' and no ')} on its search path` };
    // The disk is only asked where the name alone does not tell.
    const isSafe = (folder) => installed.includes(folder) || installed.map(identity).includes(identity(folder));
    return { files, isSafe: files.map((file) => path.dirname(file)).every(isSafe) };
}

const findFirst = (files) => files.find((file) => fs.existsSync(file));

// The same for one file or folder in all ways to write it.
const identity = (place) => (fs.existsSync(place) ? fs.realpathSync.native(place) : place).toLowerCase();

function systemFolders() {
    const windows = environment('SystemRoot') ?? 'C:\\Windows';
    return ['System32', 'System', '.'].map((name) => path.join(windows, name));
}

// The environment of a worker is a copy, in which letters count.
function environment(name) {
    const key = Object.keys(process.env).find((key) => key.toUpperCase() === name.toUpperCase());
    return process.env[key];
}

// ---- Loading

const loadWith = {
    suite: (loadIt) => loadIt(),

    // Where the stand-ins have a folder of their own, their addon brings them along.
    standins: (loadIt) => {
        if (standinsFolder() !== beside() && chosen.addon !== undefined) load(chosen.addon);
        return loadIt();
    },

    folder: (loadIt) => {
        const loaded = isWindows ? withOnPath(path.dirname(chosen.files[0]), loadIt) : withOpen(chosen.files, loadIt);
        const others = otherLibraries();
        if (others.length === 0) return loaded;
        throw librariesError(
            `brivonjs cannot run on ${chosen.files.join(' and ')}: the process has ${others.join(' and ')}`,
        );
    },
};

function withOnPath(folder, loadIt) {
    const { PATH } = process.env;
    process.env.PATH = `${folder};${PATH ?? ''}`;
    try {
        return loadIt();
    } finally {
        if (PATH === undefined) delete process.env.PATH;
        else process.env.PATH = PATH;
    }
}

// A library is no addon, which the runtime says only after it has opened it for good.
function withOpen(files, loadIt) {
    for (const file of files) {
        try {
            process.dlopen({ exports: {} }, file, os.constants.dlopen.RTLD_NOW | RTLD_NODELETE);
        } catch (error) {
            if (!isForgotten(error)) throw loadError(file, error);
        }
    }
    return loadIt();
}

// The libraries of this process that are not the chosen ones, by what the system says. Slow.
function otherLibraries() {
    const expected = chosen.files.map(identity);
    const names = NAMES.map((name) => name.toLowerCase());
    return report()
        .sharedObjects.filter((file) => names.includes(path.basename(file).toLowerCase()))
        .filter((file) => !expected.includes(identity(file)));
}

// ---- What is wrong with them

// Pairs of a library and its faults. Where it is not known what the module needs, none is sought.
function examined() {
    const file = path.join(beside(), 'imports.json');
    if (!fs.existsSync(file)) return [];
    const needed = namesIn(file);
    return libraries().files.map((library) => [library, faultsOf(library, needed[path.basename(library)])]);
}

function namesIn(file) {
    let cause;
    try {
        const names = JSON.parse(fs.readFileSync(file, 'utf8'));
        if (NAMES.every((name) => Array.isArray(names[name]))) return names;
    } catch (error) {
        cause = error;
    }
    throw librariesError(`brivonjs cannot read what the module needs of its libraries, in ${file}`, cause);
}

function checkLibraries(cause) {
    const [bad] = examined().filter(([, faults]) => faults.length > 0);
    if (bad === undefined) return;
    const [file, faults] = bad;
    const rest = faults.length > 1 ? ` (the first of ${faults.length} faults)` : '';
    throw librariesError(
        `brivonjs cannot run on ${file}: it ${faults[0]}${rest}. "npx brivonjs doctor" says all`,
        cause,
    );
}

function librariesError(message, cause) {
    return Object.assign(new Error(message, cause && { cause }), { code: 'ERR_BRIVONJS_LIBRARIES' });
}

module.exports = { examined, libraries, loadModule, loadStandins, otherLibraries };
