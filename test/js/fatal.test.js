'use strict';

// What ends the process on purpose, and how long the library is waited for before that.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { buildDirectory, endedAbnormally, failedAssertion, runScript, temporaryFile } = require('../support/support');

const preamble = `
    const { messaging, control } = require(root + '/lib/standins');
    const { BrivonAdapter, BrivonControlAdapter } = require(root + '/lib');
`;

const fatal = {
    'SetConfig refuses': `messaging.answer('SetConfig', 1); new BrivonAdapter('app', '1');`,
    'GetInstance refuses': `messaging.answer('GetInstance', 5); new BrivonAdapter('app', '1');`,
    'GetInstance answers 0 without a dispatcher': `messaging.answer('GetInstance', { instance: false }); new BrivonAdapter('app', '1');`,
    'a send without a dispatcher': `messaging.answer('GetInstance', { throws: 'x' }); new BrivonAdapter('app', '1').sendMessage('t', 'p');`,
    'a refresh without a dispatcher': `messaging.answer('GetInstance', { throws: 'x' }); new BrivonAdapter('app', '1').forceRefreshEndpoints();`,
};

const noController = {
    'SetConfig of the control library refuses': `control.answer('SetConfig', 1); new BrivonControlAdapter();`,
    'no controller': `control.answer('GetInstance', { instance: false }); new BrivonControlAdapter();`,
};

for (const [name, script] of Object.entries({ ...fatal, ...noController })) {
    test(`${name}: an assertion with its expression, file and line ends the process`, async () => {
        const ended = await runScript(`${preamble}${script}`);
        assert.ok(endedAbnormally(ended), JSON.stringify(ended));
        const [expression, file] =
            name in fatal ? ['brivon_', 'src/brivonadapter.cpp'] : ['_brivon', 'src/brivoncontroladapter.cpp'];
        assert.deepEqual(failedAssertion(ended), { file, expression, source: `assert(${expression});` });
    });
}

test('an exception of the library during a send is not made a JavaScript error', async () => {
    const ended = await runScript(`${preamble}
        const adapter = new BrivonAdapter('app', '1');
        messaging.answer('Send', { throws: 'thrown by the library' });
        try { adapter.sendMessage('t', 'p'); } catch { process.exit(0); }
        process.exit(0);
    `);
    assert.ok(endedAbnormally(ended), JSON.stringify(ended));
});

// A preloaded library notes the sleeps instead of sleeping.
const spy = path.join(buildDirectory, 'test', 'libsleep-spy.so');
const times = (count, ms) => `${ms}\n`.repeat(count);
const repeat = (operation, count, answer) => `messaging.answer('${operation}', ${answer}, ${count});`;
const waits = {
    'the second that answers': { script: repeat('GetInstance', 2, 4), sleeps: times(2, 6000) },
    'one that refuses in the end': {
        script: repeat('GetInstance', 1, 4) + repeat('GetInstance', 1, 5),
        sleeps: times(1, 6000),
        isFatal: true,
    },
    'one that never comes': { script: repeat('GetInstance', 1000, 4), sleeps: times(100, 6000), isFatal: true },
    'one that does not become ready': { script: repeat('IsReady', 'Infinity', false), sleeps: times(20, 50) },
    'a refresh that does not end': {
        script: repeat('RefreshEndPoints', 1, false) + repeat('IsRefreshing', 'Infinity', true),
        sleeps: times(20, 50),
    },
};
test(
    'a dispatcher is waited for as promised',
    {
        skip:
            process.platform === 'win32' &&
            'sleeps are noted by a preloaded library, which this platform does not have',
    },
    async () => {
        for (const [what, { script, sleeps, isFatal }] of Object.entries(waits)) {
            const log = temporaryFile();
            const ended = await runScript(`${preamble}${script} new BrivonAdapter('app', '1'); process.exit(0);`, {
                env: { LD_PRELOAD: [process.env.LD_PRELOAD, spy].filter(Boolean).join(':'), SLEEP_SPY: log },
            });
            assert.equal(fs.readFileSync(log, 'utf8'), sleeps, what);
            fs.unlinkSync(log);
            if (isFatal) assert.equal(failedAssertion(ended).expression, 'brivon_', ended.stderr);
            else assert.deepEqual([ended.code, ended.stderr], [0, ''], what);
        }
    },
);

test('a listener that throws is dropped with a warning, or ends the process where the runtime is told so', async () => {
    const script = `${preamble}
        const adapter = new BrivonAdapter('app', '1');
        let count = 0;
        adapter.addMessageListener(() => {
            if (++count === 2) process.exit(0);
            throw new Error('thrown by the listener');
        });
        const message = { type: 'brivon.SuiteMessage.t', source: { id: '1', appId: 'a' } };
        messaging.deliver(message);
        messaging.deliver(message);
    `;
    const dropped = await runScript(script);
    assert.equal(dropped.code, 0, dropped.stderr);
    assert.match(dropped.stderr, /DEP0168/);
    const fatal = await runScript(script, { execArgv: ['--force-node-api-uncaught-exceptions-policy=true'] });
    assert.equal(fatal.code, 1);
    assert.match(fatal.stderr, /Error: thrown by the listener/);
});

test('one wait is really spent', async () => {
    const ended = await runScript(`${preamble}
        messaging.answer('GetInstance', 4);
        const start = process.hrtime.bigint();
        new BrivonAdapter('app', '1');
        process.exit(process.hrtime.bigint() - start >= 6_000_000_000n ? 0 : 1);
    `);
    assert.equal(ended.code, 0);
});
