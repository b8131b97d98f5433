'use strict';

// The README's program, run twice where the package is installed: in the folder that BRIVONJS_INSTALLED names.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { Child, newBus, root } = require('../support/support');

function start(name, program, env) {
    const file = path.join(process.env.BRIVONJS_INSTALLED, name);
    fs.writeFileSync(file, program);
    return new Child(file, { env: { ...env, BRIVONJS_MODULE: '' } });
}

test('two of the README’s programs find each other, and the second has its question answered', async () => {
    const [, program] = fs.readFileSync(path.join(root, 'README.md'), 'utf8').match(/```js\n([\s\S]*?)```/);
    const env = { BRIVON_BUS: newBus() };
    const started = [];
    for (const text of ['nobody on the bus is', '12 squared is 144']) {
        started.push(start('program.js', program, env));
        await started.at(-1).written('stdout', (lines) => lines.some((line) => line.includes(text)));
    }
    await started[0].written('stdout', (lines) => lines.some((line) => /^notes [0-9a-f]{32} says hello:/.test(line)));
    for (const child of started) assert.equal((await child.end()).stderr, '');
});

test('both module systems give the same exports', async () => {
    const program = `
        import { createRequire } from 'node:module';
        import * as namespace from 'brivonjs';
        import { messaging } from 'brivonjs/standins';
        const required = createRequire(import.meta.url)('brivonjs');
        const names = Object.keys(required);
        if (names.join() !== 'BrivonAdapter,BrivonControlAdapter,_setLibraryPath') process.exit(1);
        if (names.some((name) => namespace[name] !== required[name]) || namespace.default !== required) process.exit(2);
        if (messaging.takeCalls().length !== 0) process.exit(3);`;
    const { code, stderr } = await start('import.mjs', program).exited;
    assert.deepEqual([code, stderr], [0, '']);
});
