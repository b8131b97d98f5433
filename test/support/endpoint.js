'use strict';

// A program on the bus that does as it is told: each message { id, code } of its parent is run here and answered with
// what it evaluates to; tell() says more.

const { BrivonAdapter } = require('../../lib');

globalThis.BrivonAdapter = BrivonAdapter;
globalThis.require = require;
globalThis.tell = (value) => process.send({ told: value });

process.on('message', async ({ id, code }) => {
    const value = await (0, eval)(code);
    process.send({ id, value });
});
// The parent is gone; nobody else would end this program.
process.on('disconnect', () => process.exit());
