'use strict';

// How the package finds its native module and loads it, and what it says where it cannot.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { root, runScript, temporaryFolder } = require('../support/support');

const platform = `${process.platform}-${process.arch}`;
const isLinux = process.platform === 'linux';

// A package with module files of no content in these places.
function packageWith(t, ...places) {
    const folder = temporaryFolder(t);
    fs.cpSync(path.join(root, 'lib'), path.join(folder, 'lib'), { recursive: true });
    for (const place of places) {
        fs.mkdirSync(path.join(folder, place), { recursive: true });
        fs.writeFileSync(path.join(folder, place, 'BrivonJS.node'), '');
    }
    return folder;
}

// What comes of loading a package in a process where something has been done before.
async function loaded(folder, before) {
    const { code, stdout, stderr } = await runScript(
        `let loads = 0;
        ${before}
        try {
            console.log(JSON.stringify({ exported: Object.keys(require(${JSON.stringify(folder)} + '/lib')), loads }));
        } catch ({ code, message, cause }) {
            console.log(JSON.stringify({ code, message, cause: cause?.message, loads }));
        }`,
        { env: { BRIVONJS_MODULE: '' } },
    );
    assert.deepEqual([code, stderr], [0, '']);
    return JSON.parse(stdout);
}

const onLibrary = (header) => `process.report.getReport = () => ({ header: ${JSON.stringify(header)} });`;

// The first loads of native modules fail with this error.
const failing = (times, message) => `const dlopen = process.dlopen;
    process.dlopen = (...args) => {
        if (++loads > ${times}) return dlopen(...args);
        throw Object.assign(new Error(${JSON.stringify(message)}), { code: 'ERR_DLOPEN_FAILED' });
    };`;

test('a module that another thread was closing is loaded again, a few times, and no other', async () => {
    const forgotten = "Module did not self-register: '/BrivonJS.node'.";
    const exported = ['BrivonAdapter', 'BrivonControlAdapter', '_setLibraryPath'];
    assert.deepEqual(await loaded(root, failing(3, forgotten)), { exported, loads: 4 });
    const { loads, ...always } = await loaded(root, failing(Infinity, forgotten));
    assert.deepEqual([always.code, always.cause], ['ERR_DLOPEN_FAILED', forgotten]);
    assert.ok(loads > 4);
    const { message, ...other } = await loaded(root, failing(1, 'no such library'));
    assert.deepEqual(other, { code: 'ERR_DLOPEN_FAILED', cause: 'no such library', loads: 1 });
    assert.match(message, /BrivonJS\.node: no such library$/);
});

test('a local build goes before the module that came with the package', async (t) => {
    const folder = packageWith(t, `prebuilds/${platform}`, `build/${platform}`);
    const { message } = await loaded(folder, '');
    assert.ok(message.includes(path.join(folder, 'build', platform)), message);
});

test('a platform without a module gets an Error with its C library, and what others have', async (t) => {
    const pdp11 = "Object.defineProperty(process, 'arch', { value: 'pdp11' });";
    const folder = packageWith(t, 'prebuilds/linux-x64', 'prebuilds/win32-x64', 'build/cmake');
    const missing = `${process.platform}-pdp11`;
    const known = 'There are modules for linux-x64 with glibc and win32-x64';
    for (const [header, library] of [
        [{ glibcVersionRuntime: '2.36' }, ' with glibc 2.36'],
        [{}, ' with musl'],
    ]) {
        const { code, message } = await loaded(folder, pdp11 + onLibrary(header));
        assert.equal(code, 'ERR_BRIVONJS_PLATFORM');
        assert.ok(message.startsWith(`brivonjs has no native module for ${missing}: there is neither ${folder}`));
        assert.ok(message.endsWith(`${known}; this is ${missing}${isLinux ? library : ''}`), message);
    }
    assert.match((await loaded(packageWith(t), '')).message, /is this a bundle/);
});

test('a module that was made for another C library says so', { skip: !isLinux && 'on Linux only' }, async (t) => {
    const folder = packageWith(t, `prebuilds/${platform}`);
    const { code, message, cause } = await loaded(folder, failing(1, 'no ld-linux') + onLibrary({}));
    assert.deepEqual([code, cause], ['ERR_BRIVONJS_PLATFORM', 'no ld-linux']);
    assert.match(message, /There are modules for \S+ with glibc; this is \S+ with musl$/);
});
