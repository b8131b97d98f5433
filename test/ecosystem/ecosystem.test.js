'use strict';

// Programs that use the installed package, bundled: with the package left out of the bundle, and with its JavaScript in
// the bundle and BRIVONJS_MODULE naming the module. And the documented tests of an application, under each framework.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');
const { promisify } = require('node:util');

const { Child, root, runScript, temporaryFolder } = require('../support/support');

const installed = path.join(root, 'build', 'package', 'installed');
const prebuilt = path.join(installed, 'node_modules/brivonjs/prebuilds', `${process.platform}-${process.arch}`);

// Each bundles an entry to a file, leaving out these packages.
const bundlers = {
    webpack: (entry, file, externals) => {
        const output = { path: path.dirname(file), filename: path.basename(file) };
        return promisify(require('webpack'))({ target: 'node', entry, output, externals, externalsType: 'commonjs' });
    },
    rollup: async (input, file, external) => {
        const plugins = [require('@rollup/plugin-node-resolve').default(), require('@rollup/plugin-commonjs')()];
        await (await require('rollup').rollup({ input, external, plugins })).write({ file, format: 'cjs' });
    },
    esbuild: (entry, outfile, external) =>
        require('esbuild').build({ entryPoints: [entry], outfile, external, bundle: true, platform: 'node' }),
    ncc: async (entry, file, externals) => {
        const { code } = await require('@vercel/ncc')(entry, { externals, cache: false, quiet: true, esm: false });
        fs.writeFileSync(file, code);
    },
};

for (const [name, bundle] of Object.entries(bundlers)) {
    test(name, async (t) => {
        const folder = temporaryFolder(t, installed);
        const entry = path.join(folder, 'app.mjs');
        fs.writeFileSync(entry, "import { BrivonAdapter } from 'brivonjs';\nconsole.log(BrivonAdapter.name);\n");
        for (const [place, external, BRIVONJS_MODULE] of [
            [folder, ['brivonjs'], ''],
            [temporaryFolder(t), [], path.join(prebuilt, 'BrivonJS.node')],
        ]) {
            const file = path.join(place, 'app.cjs');
            await bundle(entry, file, external);
            const ended = await new Child(file, { env: { BRIVONJS_MODULE } }).exited;
            assert.deepEqual(ended, { code: 0, signal: null, stdout: 'BrivonAdapter\n', stderr: '' });
        }
    });
}

const testing = fs.readFileSync(path.join(root, 'docs', 'testing.md'), 'utf8');
const modules = path.join(__dirname, 'node_modules');

// Each runs the block of the documentation whose first line names a file of its own.
for (const [file, runner, args] of [
    ['notes.vitest.test.mjs', 'vitest/vitest.mjs', ['run', '--pool', 'forks', '--globals']],
    ['notes.jest.test.js', 'jest/bin/jest.js', ['--forceExit']],
])
    test(file, async (t) => {
        const folder = temporaryFolder(t, installed);
        const [, block] = testing.match(new RegExp(`^\`\`\`\\w+\\n(// ${file}\\n[\\s\\S]*?)^\`\`\``, 'm'));
        fs.writeFileSync(path.join(folder, file), block);
        fs.writeFileSync(path.join(folder, 'package.json'), '{}');
        const script = `process.chdir(${JSON.stringify(folder)}); import(${JSON.stringify(path.join(modules, runner))});`;
        const { code, stdout, stderr } = await runScript(script, { args, env: { BRIVONJS_MODULE: '', CI: 'true' } });
        assert.equal(code, 0, stdout + stderr);
        assert.match(stdout + stderr, /1 passed/);
    });
