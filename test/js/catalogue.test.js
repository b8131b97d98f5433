'use strict';

// The control library's stand-in by itself: a catalogue of a folder, and real processes.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { after, test } = require('node:test');

const { BrivonControlAdapter, _setLibraryPath } = require('brivonjs');
const { buildDirectory } = require('../support/support');

const isWindows = process.platform === 'win32';
const exe = isWindows ? '.exe' : '';
const folder = fs.mkdtempSync(path.join(fs.realpathSync(os.tmpdir()), 'brivonjs-'));
after(() => fs.rmSync(folder, { recursive: true, force: true }));

// Unique, so that a process of this name is ours.
const name = `launched-${process.pid}${exe}`;
fs.copyFileSync(path.join(buildDirectory, 'test', `launched_app${exe}`), path.join(folder, name));
fs.writeFileSync(path.join(folder, 'tool.EXE'), 'MZ');
fs.writeFileSync(path.join(folder, 'readme.txt'), 'not a program');
fs.mkdirSync(path.join(folder, 'folder.exe'));

_setLibraryPath(folder);
const adapter = new BrivonControlAdapter();

async function until(condition) {
    while (!condition()) await new Promise((resolve) => setImmediate(resolve));
}

// Resolves to the callback's arguments.
const launch = (specifier, line) =>
    new Promise((resolve) => adapter.launchApp(specifier, true, line, (...args) => resolve(args)));

test('the programs of the folder are the catalogue', () => {
    assert.deepEqual(adapter.getSpecifiers(), [name, 'tool.EXE'].sort());
    assert.equal(adapter.isAppInstalled(name), true);
    assert.equal(adapter.getAppPath(name), path.join(folder, name));
    assert.equal(adapter.isAppRunning(name), false);
    assert.equal(adapter.isAppRunningByName(name), false);
    assert.equal(adapter.getProcessId(name), 0);
});

test('what is not in the folder is not installed', async () => {
    const outside = path.relative(folder, process.execPath);
    for (const specifier of [
        '',
        '.',
        '..',
        'readme.txt',
        'folder.exe',
        'missing',
        `./${name}`,
        outside,
        process.execPath,
    ]) {
        assert.equal(adapter.isAppInstalled(specifier), false, specifier);
        assert.equal(adapter.getAppPath(specifier), '', specifier);
        assert.equal(adapter.isAppRunning(specifier), false, specifier);
        assert.equal(adapter.getProcessId(specifier), 0, specifier);
        assert.deepEqual(await launch(specifier, ''), [undefined, false], specifier);
    }
    assert.equal(adapter.isAppRunningByName(path.basename(process.execPath)), true);
});

test('a launched program is seen while it runs, with its arguments and its process id', async () => {
    const report = path.join(folder, 'report');
    const line = isWindows ? `"${report}" one "two words" ""` : `'${report}' one "two words" '' grüße\\ 日本`;
    const expected = isWindows ? ['one', 'two words', ''] : ['one', 'two words', '', 'grüße 日本'];
    assert.deepEqual(await launch(name, line), [undefined, true]);
    await until(() => fs.existsSync(report));
    const [processId, ...args] = fs.readFileSync(report, 'utf8').split(/\r?\n/).slice(0, -1);
    assert.deepEqual(args, expected);
    assert.equal(adapter.isAppRunning(name), true);
    assert.equal(adapter.isAppRunningByName(name), true);
    assert.equal(adapter.getProcessId(name), Number(processId));
    assert.equal(adapter.isAppRunning('tool.EXE'), false);

    fs.writeFileSync(`${report}.stop`, '');
    await until(() => !adapter.isAppRunning(name));
    assert.equal(adapter.isAppRunningByName(name), false);
    assert.equal(adapter.getProcessId(name), 0);
});

test(
    'what cannot be started, or a command line that is not finished, is not launched',
    { skip: isWindows && 'programs split their command line themselves here' },
    async () => {
        assert.deepEqual(await launch('tool.EXE', ''), [undefined, false]);
        assert.deepEqual(await launch(name, `'unfinished`), [undefined, false]);
        assert.equal(adapter.isAppRunning(name), false);
    },
);

test(
    'a script is seen running under its own name',
    { skip: isWindows && 'the system runs no scripts as programs here' },
    async () => {
        const stop = path.join(folder, 'stop');
        fs.writeFileSync(path.join(folder, 'script'), `#!/bin/sh\nwhile [ ! -e "$1" ]; do sleep 0.01; done\n`, {
            mode: 0o755,
        });
        assert.deepEqual(await launch('script', `'${stop}'`), [undefined, true]);
        await until(() => adapter.isAppRunning('script'));
        assert.ok(adapter.getProcessId('script') > 0);
        fs.writeFileSync(stop, '');
        await until(() => !adapter.isAppRunning('script'));
    },
);

test('adapters of several library paths are answered for the latest', () => {
    _setLibraryPath(path.join(folder, 'nowhere'));
    const other = new BrivonControlAdapter();
    assert.deepEqual(other.getSpecifiers(), []);
    assert.equal(other.isAppInstalled(name), false);
    _setLibraryPath(folder);
    assert.equal(new BrivonControlAdapter().isAppInstalled(name), true);
});
