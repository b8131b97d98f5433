'use strict';

// The README's program, run twice where the package is installed: in the folder that BRIVONJS_INSTALLED names.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { Child, newBus, root } = require('../support/support');

const folder = process.env.BRIVONJS_INSTALLED;

test('two of the README’s programs find each other and talk', async () => {
    const [, program] = fs.readFileSync(path.join(root, 'README.md'), 'utf8').match(/```js\n([\s\S]*?)```/);
    const file = path.join(folder, 'program.js');
    fs.writeFileSync(file, program);
    const env = { BRIVON_BUS: newBus(), BRIVONJS_MODULE: '' };
    const started = [];
    // Resolves once the program has printed the text.
    const start = async (text) => {
        const child = new Child(file, { env });
        started.push(child);
        let isOver = false;
        child.exited.then(() => (isOver = true));
        while (!isOver && !fs.readFileSync(child.files.stdout, 'utf8').includes(text))
            await new Promise((resolve) => setImmediate(resolve));
    };
    await start('I am {notes,2.1,');
    await start('says brivon.SuiteMessage.pong: to every calendar that is known');
    const outputs = await Promise.all(started.map((child) => (child.process.kill('SIGKILL'), child.exited)));
    for (const { stderr } of outputs) assert.equal(stderr, '');
    assert.match(outputs[0].stdout, /^notes 2\.1 \([0-9a-f]{32}\) says brivon\.SuiteMessage\.ping: to every calendar/m);
    assert.match(outputs[1].stdout, /^notes 2\.1 \([0-9a-f]{32}\) says brivon\.SuiteMessage\.pong: to every calendar/m);
});

test('both module systems give the same exports', async () => {
    const file = path.join(folder, 'import.mjs');
    fs.writeFileSync(
        file,
        `import { createRequire } from 'node:module';
        import * as namespace from 'brivonjs';
        import { messaging } from 'brivonjs/standins';
        const required = createRequire(import.meta.url)('brivonjs');
        const names = Object.keys(required);
        if (names.join() !== 'BrivonAdapter,BrivonControlAdapter,_setLibraryPath') process.exit(1);
        if (names.some((name) => namespace[name] !== required[name]) || namespace.default !== required) process.exit(2);
        if (messaging.takeCalls().length !== 0) process.exit(3);`,
    );
    const { code, stderr } = await new Child(file, { env: { BRIVONJS_MODULE: '' } }).exited;
    assert.deepEqual([code, stderr], [0, '']);
});
