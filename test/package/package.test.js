'use strict';

// The tarball that `./run package` makes and installs, and what it says of itself.

const assert = require('node:assert/strict');
const { spawnSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { root } = require('../support/support');

const folder = path.join(root, 'build', 'package');
const tarball = path.join(folder, 'brivonjs-0.1.0.tgz');
const installed = path.join(folder, 'installed');
const modules = path.join(root, 'node_modules');

// Answers what it has printed.
function assertSucceeds(program, ...args) {
    const env = { ...process.env, BRIVONJS_INSTALLED: installed, NODE_TEST_CONTEXT: '' };
    const { status, stdout, stderr } = spawnSync(program, args, { encoding: 'utf8', cwd: installed, env });
    assert.equal(status, 0, stdout + stderr);
    return stdout;
}

test('the tarball holds what a developer needs, for both platforms, and nothing else', () => {
    const all = (name) => fs.readdirSync(path.join(root, name)).map((file) => `${name}/${file}`);
    const linux = ['BrivonJS.node', 'libBrivonControl.so', 'libBrivonMessage5.so', 'standins.node'];
    const windows = ['BrivonJS.node', 'BrivonControl.dll', 'BrivonMessage5.dll', 'standins.node'];
    const expected = [
        ...[
            'CHANGELOG.md',
            'LICENSE',
            'NOTICES.md',
            'README.md',
            'SECURITY.md',
            'package.json',
            'examples/application.test.js',
            ...all('docs'),
            ...all('lib'),
        ],
        ...linux.map((name) => `prebuilds/linux-x64/${name}`),
        ...windows.map((name) => `prebuilds/win32-x64/${name}`),
    ];
    const files = assertSucceeds('tar', '-tzf', tarball).trim().split('\n');
    assert.deepEqual(files.sort(), expected.map((name) => `package/${name}`).sort());
});

test('linters for packages have nothing to say', () => {
    const bin = (name) => path.join(modules, '.bin', name);
    const unpacked = path.join(installed, 'node_modules', 'brivonjs');
    assertSucceeds(bin('publint'), 'run', '--strict', '--pack', 'false', unpacked);
    assertSucceeds(bin('attw'), '--no-emoji', tarball);
});

test('the installed package works, program and both module systems', () => {
    const program = path.join(__dirname, 'program.test.js');
    assert.match(assertSucceeds(process.execPath, '--test-force-exit', program), /^# pass 2$/m);
    const help = assertSucceeds(path.join(installed, 'node_modules', '.bin', 'brivonjs'), '--help');
    assert.match(help, /endpoints[\s\S]*monitor/);
});

// For the oldest compiler that knows this package's form and for the newest.
test('right uses compile and wrong ones do not', () => {
    const tests = path.join(installed, 'types');
    fs.cpSync(path.join(root, 'test', 'types'), tests, { recursive: true });
    const files = fs.readdirSync(tests).map((name) => path.join(tests, name));
    const options = '--noEmit --strict --module node16 --moduleResolution node16 --target es2022'.split(' ');
    for (const compiler of ['typescript-oldest', 'typescript'])
        assertSucceeds(process.execPath, path.join(modules, compiler, 'bin', 'tsc'), ...options, ...files);
});
