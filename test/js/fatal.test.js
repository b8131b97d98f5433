'use strict';

// What ends the process on purpose, and how long the library is waited for before that.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { buildDirectory, endedAbnormally, lineOf, runScript, temporaryFile } = require('../support/support');

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
        const [file, expression] =
            name in fatal
                ? [/src[/\\]brivonadapter\.cpp/, /\bbrivon_\W/]
                : [/src[/\\]brivoncontroladapter\.cpp/, /\W_brivon\W/];
        assert.match(ended.stderr, file);
        assert.match(ended.stderr, expression);
        assert.ok(!ended.stderr.includes(process.cwd()), ended.stderr);
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
const waits = [
    { answers: [4, 4, 0], sleeps: 2, calls: 3, ends: 'normally' },
    { answers: [4, 5], sleeps: 1, calls: 2, ends: 'abnormally' },
    { answers: Array(100).fill(4), sleeps: 100, calls: 100, ends: 'abnormally' },
];
for (const { answers, sleeps, calls, ends } of waits) {
    test(
        `GetInstance answering ${answers.slice(0, 3)}… (${answers.length}) costs ${sleeps} waits of 6000 ms`,
        {
            skip:
                process.platform === 'win32' &&
                'sleeps are noted by a preloaded library, which this platform does not have',
        },
        async () => {
            const log = temporaryFile();
            const ended = await runScript(
                `${preamble}
            for (const status of ${JSON.stringify(answers)}) messaging.answer('GetInstance', status);
            new BrivonAdapter('app', '1');
            const count = messaging.takeCalls().filter(({ operation }) => operation === 'GetInstance').length;
            process.exit(count === ${calls} ? 0 : 1);`,
                { env: { LD_PRELOAD: [process.env.LD_PRELOAD, spy].filter(Boolean).join(':'), SLEEP_SPY: log } },
            );
            assert.equal(fs.readFileSync(log, 'utf8'), '6000\n'.repeat(sleeps));
            fs.unlinkSync(log);
            if (ends === 'normally') assert.equal(ended.code, 0, ended.stderr);
            else assert.ok(endedAbnormally(ended) && /\bbrivon_\b/.test(ended.stderr), ended.stderr);
        },
    );
}

test('one wait is really spent', async () => {
    const ended = await runScript(`${preamble}
        messaging.answer('GetInstance', 4);
        const start = process.hrtime.bigint();
        new BrivonAdapter('app', '1');
        process.exit(process.hrtime.bigint() - start >= 6_000_000_000n ? 0 : 1);
    `);
    assert.equal(ended.code, 0);
});
