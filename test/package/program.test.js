'use strict';

// The README's program, run twice where the package is installed: in the folder that BRIVONJS_INSTALLED names.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { Child, newBus, root } = require('../support/support');

test('two of the README’s programs find each other, and the second has its question answered', async () => {
    const [, program] = fs.readFileSync(path.join(root, 'README.md'), 'utf8').match(/```js\n([\s\S]*?)```/);
    const file = path.join(process.env.BRIVONJS_INSTALLED, 'program.js');
    fs.writeFileSync(file, program);
    const env = { BRIVON_BUS: newBus(), BRIVONJS_MODULE: '' };
    const started = [];
    for (const text of ['nobody on the bus is', '12 squared is 144']) {
        started.push(new Child(file, { env }));
        await started.at(-1).written('stdout', (lines) => lines.some((line) => line.includes(text)));
    }
    await started[0].written('stdout', (lines) => lines.some((line) => /^notes [0-9a-f]{32} says hello:/.test(line)));
    for (const child of started) assert.equal((await child.end()).stderr, '');
});
