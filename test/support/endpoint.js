'use strict';

// A program on the bus that does as it is told: each message { id, code } of its parent is run here and answered with
// what it evaluates to; tell() says more.

const v8 = require('node:v8');
const vm = require('node:vm');

const { BrivonAdapter } = require('../../lib');

v8.setFlagsFromString('--expose-gc');
const collect = vm.runInNewContext('gc');

Object.assign(globalThis, {
    BrivonAdapter,
    require,
    tell: (value) => process.send({ told: value }),
    // In MiB, without garbage.
    resident: () => (collect(), process.memoryUsage.rss() / (1 << 20)),
});

process.on('message', async ({ id, code }) => process.send({ id, value: await (0, eval)(code) }));
// The parent is gone; nobody else would end this program.
process.on('disconnect', () => process.exit());
