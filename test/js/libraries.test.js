'use strict';

// Which libraries a program gets, and what it and the doctor say of ones that it cannot run on.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { faultsOf } = require('../../lib/exports');
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
    const { stdout, stderr } = await run(
        folder,
        `try {
            ${before};
            require(folder + '/lib');
            const files = process.report.getReport().sharedObjects.filter((file) => /Brivon(Mess|Cont)\\w+\\.\\w+$/.test(file));
            console.log(JSON.stringify(files.map((file) => require('path').dirname(require('fs').realpathSync.native(file)))));
        } catch ({ code, message }) {
            console.log(JSON.stringify(code + ' ' + message));
        }`,
        env,
    );
    assert.equal(stderr, '');
    return JSON.parse(stdout);
}

test('the environment says which libraries a program gets, and the search path on Windows', async (t) => {
    const { folder, standins } = installed(t);
    const suite = copied(others, names, temporaryFolder(t));
    const half = copied(others, names.slice(1), temporaryFolder(t));
    const scripts = "require(folder + '/lib/standins')";
    const planted = `process.chdir(${JSON.stringify(suite)})`;
    for (const [settings, expected] of [
        [{}, standins],
        [{ BRIVONJS_LIBRARIES: 'standins' }, standins],
        [{ BRIVONJS_LIBRARIES: suite }, suite],
        [{ BRIVONJS_LIBRARIES: suite, before: scripts }, standins],
        [{ BRIVONJS_LIBRARIES: half }, /^ERR_BRIVONJS_LIBRARIES .* cannot run on \S+: it is not there/],
        [
            { BRIVONJS_LIBRARIES: suite, before: `require(${JSON.stringify(path.join(others, 'BrivonJS.node'))})` },
            /: the process has /,
        ],
        [{ BRIVONJS_LIBRARIES: suite, before: `require(folder + '/lib'); ${scripts}` }, /cannot be scripted/],
    ].concat(
        isWindows
            ? [
                  [{ PATH: suite }, suite],
                  [{ PATH: suite, BRIVONJS_LIBRARIES: 'suite' }, suite],
                  [{ PATH: suite, BRIVONJS_LIBRARIES: 'standins' }, standins],
                  [{ PATH: suite, before: scripts }, standins],
                  [{ PATH: half }, standins],
                  [{ before: planted }, standins],
                  [{ before: planted, BRIVONJS_LIBRARIES: standins }, /Windows takes .*BrivonMessage5\.dll first/],
                  [{ BRIVONJS_LIBRARIES: 'suite' }, /finds no BrivonMessage5\.dll and no BrivonControl\.dll on/],
              ]
            : [[{ BRIVONJS_LIBRARIES: 'suite' }, /there are none for this system/]],
    )) {
        const found = await loaded(folder, settings);
        if (expected instanceof RegExp) assert.match(found, expected);
        else assert.deepEqual(found, Array(2).fill(fs.realpathSync.native(expected)), JSON.stringify(settings));
    }
});

test('a library that cannot be used is named by the error and by the doctor, who says all that it lacks', async (t) => {
    const { folder } = installed(t);
    const lacking = needed[names[0]].slice(-2);
    const withoutNames = (text) =>
        lacking.reduce((rest, name) => rest.replaceAll(`\0${name}\0`, `\0${'~'.repeat(name.length)}\0`), text);
    const processorAt = (text) => (isWindows ? Buffer.from(text.slice(0x3c, 0x40), 'latin1').readUInt32LE() + 4 : 18);
    for (const [broken, ...faults] of [
        [() => undefined, 'is not there'],
        [() => 'text', `is no library for ${isWindows ? 'Windows' : '64-bit Linux'}`],
        [(text) => text.slice(0, 4096), 'is damaged: its table of names leads out of the file'],
        [withoutNames, ...lacking.map((name) => `lacks ${name}`)],
        [
            (text) => text.slice(0, processorAt(text)) + '\x01\x02' + text.slice(processorAt(text) + 2),
            'is for another processor (0x201)',
        ],
    ]) {
        const BRIVONJS_LIBRARIES = copied(others, names, temporaryFolder(t));
        const file = path.join(BRIVONJS_LIBRARIES, names[0]);
        const contents = broken(fs.readFileSync(file, 'latin1'));
        fs.unlinkSync(file);
        if (contents !== undefined) fs.writeFileSync(file, contents, 'latin1');
        const error = await loaded(folder, { BRIVONJS_LIBRARIES });
        assert.ok(error.startsWith(`ERR_BRIVONJS_LIBRARIES brivonjs cannot run on ${file}: it ${faults[0]}`), error);
        const { code, stdout } = await run(folder, "require(folder + '/lib/cli')", { BRIVONJS_LIBRARIES });
        const records = stdout.trim().split('\n').map(JSON.parse);
        const wrong = faults.map((fault) => ({ subject: names[0], ok: false, detail: `${file} ${fault}` }));
        assert.deepEqual([code, records.filter(({ ok }) => !ok)], [1, wrong]);
    }
});

test('the doctor is content with what is well, and believes nothing that a file says', async (t) => {
    const { code, stdout } = await runScript("require(root + '/lib/cli')", { args: ['doctor'] });
    assert.deepEqual([code, /"subject":"bus","ok":true/.test(stdout)], [0, true], stdout);
    const file = path.join(copied(others, names, temporaryFolder(t)), names[1]);
    const bytes = fs.readFileSync(file);
    for (let random = 1, i = 0; i < 100; ++i) {
        const broken = Buffer.from(bytes);
        const next = (limit) => (random = (random * 48271) % 0x7fffffff) % limit;
        for (let flips = 0; flips < 8; ++flips) broken[next(1024)] = next(256);
        fs.writeFileSync(file, broken);
        assert.doesNotMatch(faultsOf(file, needed[names[1]]).join(), /cannot be read/);
    }
});
