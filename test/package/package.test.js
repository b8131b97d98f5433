'use strict';

// The tarball that `./run package` makes and installs, and what it says of itself.

const assert = require('node:assert/strict');
const { execFileSync, spawnSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { root, runScript } = require('../support/support');

const folder = path.join(root, 'build', 'package');
const tarball = path.join(folder, 'brivonjs-0.1.0.tgz');
const installed = path.join(folder, 'installed');
const bin = (name) => path.join(root, 'node_modules', '.bin', name);

test('the tarball holds what a developer needs, for both platforms, and nothing else', () => {
    const files = execFileSync('tar', ['-tzf', tarball], { encoding: 'utf8' }).trim().split('\n').sort();
    const prebuilds = (platform, ...names) => names.map((name) => `package/prebuilds/${platform}/${name}`);
    assert.deepEqual(
        files,
        [
            'package/CHANGELOG.md',
            'package/README.md',
            'package/package.json',
            'package/examples/application.test.js',
            ...['docs', 'lib'].flatMap((name) =>
                fs
                    .readdirSync(path.join(root, name), { recursive: true, withFileTypes: true })
                    .filter((entry) => entry.isFile())
                    .map((entry) => `package/${path.relative(root, path.join(entry.path, entry.name))}`),
            ),
            ...prebuilds('linux-x64', 'BrivonJS.node', 'libBrivonControl.so', 'libBrivonMessage5.so', 'standins.node'),
            ...prebuilds('win32-x64', 'BrivonControl.dll', 'BrivonJS.node', 'BrivonMessage5.dll', 'standins.node'),
        ].sort(),
    );
});

test('linters for packages have nothing to say', () => {
    for (const [tool, args] of [
        ['publint', ['run', '--strict', '--pack', 'false', path.join(installed, 'node_modules', 'brivonjs')]],
        ['attw', ['--no-emoji', tarball]],
    ]) {
        const { status, stdout, stderr } = spawnSync(bin(tool), args, { encoding: 'utf8' });
        assert.equal(status, 0, stdout + stderr);
    }
});

test('the installed package works, program and both module systems', () => {
    const { status, stdout } = spawnSync(
        process.execPath,
        ['--test-force-exit', path.join(__dirname, 'program.test.js')],
        { encoding: 'utf8', env: { ...process.env, BRIVONJS_INSTALLED: installed, NODE_TEST_CONTEXT: '' } },
    );
    assert.equal(status, 0, stdout);
    assert.match(stdout, /^# pass 2$/m);
});

test('the command is there', () => {
    const help = execFileSync(path.join(installed, 'node_modules', '.bin', 'brivonjs'), ['--help'], {
        encoding: 'utf8',
    });
    assert.match(help, /endpoints[\s\S]*monitor/);
});

test('a platform without a module gets one Error that names what was looked for', async () => {
    const { code, stdout } = await runScript(
        `
        Object.defineProperty(process, 'arch', { value: 'pdp11' });
        try { require(root + '/lib'); } catch (error) { console.log(error.name + ': ' + error.message); }
    `,
        { env: { BRIVONJS_MODULE: '' } },
    );
    const missing = (name) => path.join(root, name, `${process.platform}-pdp11`, 'BrivonJS.node');
    assert.equal(code, 0);
    assert.equal(
        stdout,
        `Error: brivonjs has no native module for ${process.platform}-pdp11: there is neither ${missing('prebuilds')} nor ` +
            `${missing('build')}, and BRIVONJS_MODULE does not name another one\n`,
    );
});

// Right uses compile and wrong ones do not, for the oldest compiler that knows this package's form and for the newest.
for (const [compiler, options] of [
    ['typescript-oldest', []],
    ['typescript', []],
]) {
    test(`types are right for ${compiler}`, () => {
        const tests = path.join(installed, 'types');
        fs.cpSync(path.join(root, 'test', 'types'), tests, { recursive: true });
        const tsc = path.join(root, 'node_modules', compiler, 'bin', 'tsc');
        const { status, stdout } = spawnSync(
            process.execPath,
            [
                tsc,
                ...['--noEmit', '--strict', '--module', 'node16', '--moduleResolution', 'node16', '--target', 'es2022'],
                ...options,
                ...fs.readdirSync(tests).map((name) => path.join(tests, name)),
            ],
            { encoding: 'utf8', cwd: installed },
        );
        assert.equal(status, 0, stdout);
    });
}
