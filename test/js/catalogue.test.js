'use strict';

// The control library's stand-in by itself: a catalogue of a folder, and real processes.

const assert = require('node:assert/strict');
const { spawn } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const path = require('node:path');
const test = require('node:test');

const { BrivonControlAdapter, _setLibraryPath } = require('brivonjs');
const { isEmulated, launchedApp, temporaryFolder, until } = require('../support/support');

const isWindows = process.platform === 'win32';
const folder = temporaryFolder(test);
const file = (...names) => path.join(folder, ...names);

// Unique, so that a process of this name is ours.
const name = `launched-${process.pid}${path.extname(launchedApp)}`;
fs.copyFileSync(launchedApp, file(name));
fs.writeFileSync(file('tool.EXE'), 'MZ');
fs.writeFileSync(file('readme.txt'), 'not a program');
fs.mkdirSync(file('folder.exe'));

_setLibraryPath(folder);
const adapter = new BrivonControlAdapter();

// Resolves to the callback's arguments.
const launch = (specifier, line) =>
    new Promise((resolve) => adapter.launchApp(specifier, true, line, (...args) => resolve(args)));

function assertKnown(specifier, { isInstalled = true, isRunning = false, processId = 0 }) {
    assert.equal(adapter.isAppInstalled(specifier), isInstalled, specifier);
    assert.equal(adapter.getAppPath(specifier), isInstalled ? file(specifier) : '', specifier);
    assert.equal(adapter.isAppRunning(specifier), isRunning, specifier);
    assert.equal(adapter.getProcessId(specifier), processId, specifier);
    if (isInstalled) assert.equal(adapter.isAppRunningByName(specifier), isRunning, specifier);
}

test('the programs of the folder are the catalogue, and nothing else is installed', async () => {
    assert.deepEqual(adapter.getSpecifiers(), [name, 'tool.EXE'].sort());
    assertKnown(name, {});
    const outside = [path.relative(folder, process.execPath), process.execPath];
    for (const specifier of ['', '.', '..', 'readme.txt', 'folder.exe', 'missing', `./${name}`, ...outside]) {
        assertKnown(specifier, { isInstalled: false });
        assert.deepEqual(await launch(specifier, ''), [undefined, false], specifier);
    }
    assert.equal(adapter.isAppRunningByName(path.basename(process.execPath)), true);
    // What cannot be started, which an emulator does not notice, and a command line that is not finished, which programs
    // for Windows see to themselves.
    if (isWindows) return;
    if (!isEmulated) assert.deepEqual(await launch('tool.EXE', ''), [undefined, false]);
    for (const line of [`'one`, 'one\\', '"one\\"']) assert.deepEqual(await launch(name, line), [undefined, false]);
    assertKnown(name, {});
});

test('a launched program is seen while it runs, with its arguments and its process id', async () => {
    const report = file('report');
    const line = isWindows
        ? `"${report}" one "two words" ""`
        : `'${report}' one\t"two words" '' grüße\\ 日本 a'b'"c" 'a\\b' "\\"\\\\\\$\\b" a\\\nb $HOME \`id\` * ;|&`;
    const more = ['grüße 日本', 'abc', 'a\\b', '"\\$\\b', 'ab', '$HOME', '`id`', '*', ';|&'];
    const expected = ['one', 'two words', '', ...(isWindows ? [] : more)];
    assert.deepEqual(await launch(name, line), [undefined, true]);
    await until(() => fs.existsSync(report));
    const [processId, ...args] = fs.readFileSync(report, 'utf8').split(/\r?\n/).slice(0, -1);
    assert.deepEqual(args, expected);
    assertKnown(name, { isRunning: true, processId: Number(processId) });
    assertKnown('tool.EXE', {});

    fs.writeFileSync(`${report}.stop`, '');
    await until(() => !adapter.isAppRunning(name));
    assertKnown(name, {});
});

const scripting = { skip: isWindows && 'the system runs no scripts as programs here' };
test('a script is seen running under its own name, which those that only name it are not', scripting, async (t) => {
    // What the runtime ignores, such as SIGPIPE, its programs do not.
    const script = `#!/bin/bash -e\nyes | head -1 >"$1.out"; echo \${PIPESTATUS[0]} >"$1.status"
        while [ ! -e "$1" ]; do sleep 0.01; done\n`;
    fs.writeFileSync(file('script'), script, { mode: 0o755 });
    // Names it without running it.
    const reader = spawn('tail', ['-f', file('script')], { stdio: 'ignore' });
    t.after(() => reader.kill());
    await once(reader, 'spawn');
    assertKnown('script', {});
    assert.deepEqual(await launch('script', `'${file('stop')}'`), [undefined, true]);
    await until(() => adapter.isAppRunning('script'));
    assert.notEqual(adapter.getProcessId('script'), reader.pid);
    await until(() => fs.existsSync(file('stop.status')) && fs.statSync(file('stop.status')).size > 0);
    assert.equal(fs.readFileSync(file('stop.status'), 'utf8'), '141\n');
    fs.writeFileSync(file('stop'), '');
    await until(() => !adapter.isAppRunning('script'));
});
