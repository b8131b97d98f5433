'use strict';

// How the package finds its native module and loads it, on which libraries, and what it and the doctor say where it cannot.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { platform, standinsFolder } = require('../../lib/locate');
const { buildDirectory, root, runScript, temporaryFolder } = require('../support/support');

const isWindows = process.platform === 'win32';
const names = isWindows ? ['BrivonMessage5.dll', 'BrivonControl.dll'] : ['libBrivonMessage5.so', 'libBrivonControl.so'];
const others = path.join(buildDirectory, 'test', 'witness');
const needed = JSON.parse(fs.readFileSync(path.join(buildDirectory, 'imports.json'), 'utf8'));

function copied(from, files, to) {
    fs.mkdirSync(to, { recursive: true });
    for (const name of files) fs.copyFileSync(path.join(from, name), path.join(to, name));
    return to;
}

// The package as it is installed: on Windows, the stand-ins have a folder of their own.
function installed(t) {
    const folder = temporaryFolder(t);
    const prebuilt = path.join(folder, 'prebuilds', platform);
    const standins = isWindows ? path.join(prebuilt, 'standins') : prebuilt;
    copied(buildDirectory, ['BrivonJS.node', 'imports.json'], prebuilt);
    copied(standinsFolder(), [...names, 'standins.node'], standins);
    copied(root, ['package.json'], folder);
    fs.cpSync(path.join(root, 'lib'), path.join(folder, 'lib'), { recursive: true });
    return { folder, standins };
}

const run = (folder, script, env) =>
    runScript(`const folder = ${JSON.stringify(folder)}; ${script}`, {
        args: ['doctor'],
        env: { BRIVONJS_MODULE: '', BRIVONJS_LIBRARIES: '', PATH: '', ...env },
    });

// What comes of loading the package in a program: the folders of its libraries, or the error.
async function loaded(folder, { before = '', ...env }) {
    const script = `let loads = 0;
        try {
            ${before};
            require(folder + '/lib');
            const files = process.report.getReport().sharedObjects.filter((file) => /Brivon(Mess|Cont)\\w+\\.\\w+$/.test(file));
            const folders = files.map((file) => require('path').dirname(require('fs').realpathSync.native(file)));
            console.log(JSON.stringify({ folders, loads }));
        } catch ({ code, message, cause }) {
            console.log(JSON.stringify({ code, message, cause: cause?.message, loads }));
        }`;
    const { stdout, stderr } = await run(folder, script, env);
    assert.equal(stderr, '');
    return JSON.parse(stdout);
}

test('the environment says which libraries a program gets, and the search path on Windows', async (t) => {
    const { folder, standins } = installed(t);
    const suite = copied(others, names, temporaryFolder(t));
    const half = copied(others, names.slice(1), temporaryFolder(t));
    const scripts = "require(folder + '/lib/standins')";
    const planted = `process.chdir(${JSON.stringify(suite)})`;
    const another = `require(${JSON.stringify(path.join(others, 'BrivonJS.node'))})`;
    const onWindows = [
        [{ PATH: suite.toUpperCase(), before: planted }, suite],
        [{ PATH: suite, BRIVONJS_LIBRARIES: 'standins' }, standins],
        [{ before: planted }, standins],
        [{ before: planted, BRIVONJS_LIBRARIES: suite.toUpperCase() }, suite],
        [{ before: planted, BRIVONJS_LIBRARIES: standins }, /Windows takes .*BrivonMessage5\.dll first/],
        [{ BRIVONJS_LIBRARIES: 'suite' }, /finds no BrivonMessage5\.dll and no BrivonControl\.dll on/],
    ];
    for (const [settings, expected] of [
        [{}, standins],
        [{ BRIVONJS_LIBRARIES: suite }, suite],
        [{ BRIVONJS_LIBRARIES: suite, before: scripts }, standins],
        [{ BRIVONJS_LIBRARIES: half }, /^ERR_BRIVONJS_LIBRARIES .* cannot run on \S+: it is not there/],
        [{ BRIVONJS_LIBRARIES: suite, before: another }, /: the process has /],
        [{ BRIVONJS_LIBRARIES: suite, before: `require(folder + '/lib'); ${scripts}` }, /cannot be scripted/],
        ...(isWindows ? onWindows : [[{ BRIVONJS_LIBRARIES: 'suite' }, /there are none for this system/]]),
    ]) {
        const { folders, code, message } = await loaded(folder, settings);
        if (expected instanceof RegExp) assert.match(`${code} ${message}`, expected);
        else assert.deepEqual(folders, Array(2).fill(fs.realpathSync.native(expected)), JSON.stringify(settings));
    }
});

test('the error names a library that cannot be used, and the doctor says all that it lacks, or is content', async (t) => {
    const { folder } = installed(t);
    const lacking = needed[names[0]].slice(-2);
    const withoutNames = (text) =>
        lacking.reduce((rest, name) => rest.replaceAll(`\0${name}\0`, `\0${'~'.repeat(name.length)}\0`), text);
    const processorAt = (text) => (isWindows ? Buffer.from(text.slice(0x3c, 0x40), 'latin1').readUInt32LE() + 4 : 18);
    const forAnother = (text) => text.slice(0, processorAt(text)) + '\x01\x02' + text.slice(processorAt(text) + 2);
    for (const [broken, ...faults] of [
        [() => undefined, 'is not there'],
        [() => 'text', `is no library for ${isWindows ? 'Windows' : '64-bit Linux'}`],
        [(text) => text.slice(0, 4096), 'is damaged: its table of names leads out of the file'],
        [withoutNames, ...lacking.map((name) => `lacks ${name}`)],
        [forAnother, 'is for another processor (0x201)'],
        // It imports them.
        [
            () => fs.readFileSync(path.join(buildDirectory, 'BrivonJS.node'), 'latin1'),
            ...needed[names[0]].map((name) => `lacks ${name}`),
        ],
    ]) {
        const BRIVONJS_LIBRARIES = copied(others, names, temporaryFolder(t));
        const file = path.join(BRIVONJS_LIBRARIES, names[0]);
        const contents = broken(fs.readFileSync(file, 'latin1'));
        fs.unlinkSync(file);
        if (contents !== undefined) fs.writeFileSync(file, contents, 'latin1');
        const error = await loaded(folder, { BRIVONJS_LIBRARIES });
        assert.equal(error.code, 'ERR_BRIVONJS_LIBRARIES');
        assert.ok(error.message.startsWith(`brivonjs cannot run on ${file}: it ${faults[0]}`), error.message);
        const { code, stdout } = await run(folder, "require(folder + '/lib/cli')", { BRIVONJS_LIBRARIES });
        const records = stdout.trim().split('\n').map(JSON.parse);
        const wrong = faults.map((fault) => ({ subject: names[0], ok: false, detail: `${file} ${fault}` }));
        assert.deepEqual([code, records.filter(({ ok }) => !ok)], [1, wrong]);
    }
    const { code, stdout } = await run(folder, "require(folder + '/lib/cli')", {});
    assert.deepEqual([code, /"subject":"bus","ok":true/.test(stdout)], [0, true], stdout);
    fs.writeFileSync(path.join(folder, 'prebuilds', platform, 'imports.json'), '{');
    const { message, cause } = await loaded(folder, { BRIVONJS_LIBRARIES: others });
    assert.match(`${message}: ${cause}`, /cannot read what .*imports\.json: .*JSON/);
});

// A package with files that are no modules in the places of modules.
function packageWith(t, ...places) {
    const folder = temporaryFolder(t);
    for (const place of places) fs.cpSync(__filename, path.join(folder, place, 'BrivonJS.node'));
    fs.cpSync(path.join(root, 'lib'), path.join(folder, 'lib'), { recursive: true });
    return folder;
}

const onLibrary = (header) => `process.report.getReport = () => ({ header: ${JSON.stringify(header)} });`;

// The first loads of the native module fail with this error.
const failing = (times, message) => `const dlopen = process.dlopen;
    process.dlopen = (...args) => {
        if (!args[1].endsWith('BrivonJS.node') || ++loads > ${times}) return dlopen(...args);
        throw Object.assign(new Error(${JSON.stringify(message)}), { code: 'ERR_DLOPEN_FAILED' });
    };`;

test('a module that another thread was closing is loaded again, a few times, and no other', async () => {
    const forgotten = "Module did not self-register: '/BrivonJS.node'.";
    const { loads, folders } = await loaded(root, { before: failing(3, forgotten) });
    assert.deepEqual([loads, folders.length], [4, 2]);
    assert.equal((await loaded(root, { before: failing(Infinity, forgotten) })).code, 'ERR_DLOPEN_FAILED');
    const { message, ...other } = await loaded(root, { before: failing(1, 'no such library') });
    assert.deepEqual(other, { code: 'ERR_DLOPEN_FAILED', cause: 'no such library', loads: 1 });
    assert.match(message, /BrivonJS\.node: no such library$/);
});

test('a platform without a module gets an Error with its C library, and what others have', async (t) => {
    const folder = packageWith(t, 'prebuilds/linux-x64', 'prebuilds/win32-x64', 'build/cmake');
    const before = `Object.defineProperty(process, 'arch', { value: 'pdp11' });
        ${onLibrary({ glibcVersionRuntime: '2.36' })}`;
    const { code, message } = await loaded(folder, { before });
    assert.equal(code, 'ERR_BRIVONJS_PLATFORM');
    const missing = `${process.platform}-pdp11`;
    assert.ok(
        message.startsWith(
            `brivonjs has no native module for ${missing}: there is neither ${path.join(folder, 'build')}`,
        ),
        message,
    );
    const here = `${missing}${isWindows ? '' : ' with glibc 2.36'}`;
    assert.ok(message.endsWith(`There are modules for linux-x64 with glibc, win32-x64; this is ${here}`), message);
});

test('a module that was made for another C library says so', { skip: isWindows && 'on Linux only' }, async (t) => {
    const folder = packageWith(t, `prebuilds/${platform}`);
    const { code, message, cause } = await loaded(folder, { before: failing(1, 'no ld-linux') + onLibrary({}) });
    assert.deepEqual([code, cause], ['ERR_BRIVONJS_PLATFORM', 'no ld-linux']);
    assert.match(message, /There are modules for \S+ with glibc; this is \S+ with musl$/);
});
