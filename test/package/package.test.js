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
const unpacked = path.join(installed, 'node_modules', 'brivonjs');
const modules = path.join(root, 'node_modules');

// Answers what it has printed.
function assertSucceeds(program, ...args) {
    const env = { ...process.env, BRIVONJS_INSTALLED: installed, BRIVONJS_MODULE: '', NODE_TEST_CONTEXT: '' };
    const { status, stdout, stderr } = spawnSync(program, args, { encoding: 'utf8', cwd: installed, env });
    assert.equal(status, 0, stdout + stderr);
    return stdout;
}

test('the tarball holds what a developer needs, for all platforms, and linters have nothing to say', () => {
    const within = (folder, names) => names.split(' ').map((name) => `${folder}/${name}`);
    const namesIn = (folder) => fs.readdirSync(path.join(root, folder), { recursive: true });
    const all = (folder) => within(folder, namesIn(folder).filter(path.extname).join(' '));
    const linux = 'BrivonJS.node imports.json libBrivonControl.so libBrivonMessage5.so standins.node';
    const windows = 'standins/BrivonControl.dll standins/BrivonMessage5.dll standins/standins.node';
    const expected = [
        ...'CHANGELOG.md LICENSE NOTICES.md README.md SECURITY.md package.json'.split(' '),
        ...['examples/application.test.js', 'examples/planner.js', ...all('docs'), ...all('lib')],
        ...within('prebuilds/linux-arm64', linux),
        ...within('prebuilds/linux-x64', linux),
        ...within('prebuilds/win32-x64', `BrivonJS.node imports.json ${windows}`),
    ];
    const files = assertSucceeds('tar', '-tzf', tarball).trim().split('\n');
    assert.deepEqual(files.sort(), within('package', expected.join(' ')).sort());

    const bin = (name) => path.join(modules, '.bin', name);
    assertSucceeds(bin('publint'), 'run', '--strict', '--pack', 'false', unpacked);
    assertSucceeds(bin('attw'), '--no-emoji', tarball);
});

test('the installed package works, program, command and both module systems', () => {
    const both = `import { createRequire } from 'node:module';
        import { BrivonAdapter } from 'brivonjs';
        import 'brivonjs/client';
        import 'brivonjs/standins';
        if (createRequire(process.cwd() + '/x')('brivonjs').BrivonAdapter !== BrivonAdapter) throw 'there are two';`;
    assertSucceeds(process.execPath, '--input-type=module', '--eval', both);
    const program = path.join(__dirname, 'program.test.js');
    assert.match(assertSucceeds(process.execPath, '--test-force-exit', program), /^# pass 1$/m);
    assert.match(assertSucceeds(path.join(installed, 'node_modules', '.bin', 'brivonjs'), '--help'), /^Usage/);
});

// For the oldest compiler that knows this package's form and for the newest.
test('right uses compile and wrong ones do not', () => {
    const tests = path.join(installed, 'types');
    fs.cpSync(path.join(root, 'test', 'types'), tests, { recursive: true });
    const options = '--noEmit --strict --module node16 --moduleResolution node16 --target es2022'.split(' ');
    // The types of Node.js, which the client's lean on, know new compilers only.
    for (const [compiler, names, ...more] of [
        ['typescript-oldest', ['uses.cts'], '--typeRoots', tests],
        ['typescript', fs.readdirSync(tests), '--lib', 'es2022,esnext.disposable', '--exactOptionalPropertyTypes'],
    ]) {
        const files = names.map((name) => path.join(tests, name));
        assertSucceeds(process.execPath, path.join(modules, compiler, 'bin', 'tsc'), ...options, ...more, ...files);
    }
});
