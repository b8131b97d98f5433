'use strict';

// The ways of docs/bundlers.md to bundle a program that uses the installed package, as its blocks say them. And the
// documented tests of an application, under each framework.

const assert = require('node:assert/strict');
const { exec } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');
const { promisify } = require('node:util');

const { Child, root, runScript, temporaryFolder } = require('../support/support');

const installed = path.join(root, 'build', 'package', 'installed');
const prebuilt = path.join(installed, 'node_modules/brivonjs/prebuilds', `${process.platform}-${process.arch}`);
const modules = path.join(__dirname, 'node_modules');

const bundling = fs.readFileSync(path.join(root, 'docs', 'bundlers.md'), 'utf8');
const [webpackConfig, rollupConfig, leavingOut, naming, intoModule] = [
    ...bundling.matchAll(/^```\w+\n(.*?)^```/gms),
].map(([, block]) => block);

test('programs are bundled, without the package and with its JavaScript', async (t) => {
    const folder = temporaryFolder(t, installed);
    const place = temporaryFolder(t); // where the package is not found
    const app = `import { BrivonAdapter } from 'brivonjs';
        import { TYPE_PREFIX } from 'brivonjs/client';
        console.log(BrivonAdapter.name, TYPE_PREFIX);`;
    const whole = `import './naming.js';\n${app}`;
    const programs = { 'src/app.js': app, 'src/app.mjs': app, 'src/naming.js': naming, 'src/whole.js': whole };
    fs.mkdirSync(path.join(folder, 'src'));
    const files = { ...programs, 'webpack.config.js': webpackConfig, 'rollup.config.mjs': rollupConfig };
    for (const [name, text] of Object.entries(files)) fs.writeFileSync(path.join(folder, name), text);
    fs.cpSync(prebuilt, path.join(place, 'native'), { recursive: true });
    const PATH = `${path.join(modules, '.bin')}:${process.env.PATH}`;
    const [esbuild, ncc] = leavingOut.split('\n');
    for (const [bundle, file, home, BRIVONJS_MODULE = ''] of [
        [require(path.join(folder, 'webpack.config.js')), 'main.js', folder],
        ['rollup -c', 'app.cjs', folder],
        [esbuild, 'app.cjs', folder],
        [ncc, 'index.js', folder],
        [{ target: 'node', entry: './src/whole.js' }, 'main.js', place],
        ['rollup src/whole.js -o dist/app.cjs -f cjs -p node-resolve,commonjs', 'app.cjs', place],
        ['esbuild src/whole.js --bundle --platform=node --outfile=dist/app.cjs', 'app.cjs', place],
        ['ncc build src/whole.js -o dist', 'index.js', place],
        [intoModule, 'app.mjs', place, path.join(place, 'native', 'BrivonJS.node')],
    ]) {
        const dist = path.join(folder, 'dist');
        if (typeof bundle === 'string') await promisify(exec)(bundle, { cwd: folder, env: { ...process.env, PATH } });
        else await promisify(require('webpack'))({ ...bundle, context: folder, output: { path: dist } });
        fs.copyFileSync(path.join(dist, file), path.join(home, file));
        fs.rmSync(dist, { recursive: true });
        const ended = await new Child(path.join(home, file), { env: { BRIVONJS_MODULE } }).exited;
        assert.deepEqual(
            ended,
            { code: 0, signal: null, stdout: 'BrivonAdapter brivon.SuiteMessage.\n', stderr: '' },
            String(bundle),
        );
    }
});

const testing = fs.readFileSync(path.join(root, 'docs', 'testing.md'), 'utf8');

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
