'use strict';

// What ends the process on purpose, and how long the library is waited for before that.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const support = require('../support/support');
const { endedAbnormally, failedAssertion, runScript, scripted, temporaryFile } = support;

const construct = `const adapter = new BrivonAdapter('app', '1');`;
const unmade = `messaging.answer('GetInstance', { throws: 'x' }); ${construct}`;
const exit = 'process.exit(0);';
const run = (script, options) => runScript(scripted + script, options);

test('without a dispatcher or a controller, an assertion with its expression, file and line ends the process', async () => {
    const [messaging, control] = ['src/brivonadapter.cpp: brivon_', 'src/brivoncontroladapter.cpp: _brivon'];
    for (const [script, expected] of [
        [`messaging.answer('SetConfig', 1); ${construct}`, messaging],
        [`messaging.answer('GetInstance', 5); ${construct}`, messaging],
        [`messaging.answer('GetInstance', { instance: false }); ${construct}`, messaging],
        [`${unmade} adapter.sendMessage('t', 'p');`, messaging],
        [`${unmade} adapter.forceRefreshEndpoints();`, messaging],
        [`control.answer('SetConfig', 1); new BrivonControlAdapter();`, control],
        [`control.answer('GetInstance', { instance: false }); new BrivonControlAdapter();`, control],
    ])
        assert.deepEqual(failedAssertion(await run(script)), expected, script);
    // What the library throws during a send is not made a JavaScript error either.
    const ended = await run(`${construct} messaging.answer('Send', { throws: 'thrown by the library' });
        try { adapter.sendMessage('t', 'p'); } finally { ${exit} }`);
    assert.ok(endedAbnormally(ended), JSON.stringify(ended));
});

// A preloaded library notes the sleeps instead of sleeping, and takes memory away.
const spying = { skip: (process.platform === 'win32' || support.isEmulated) && 'no library can be preloaded here' };
const witness = path.join(support.buildDirectory, 'test', 'witness');
const preload = [process.env.LD_PRELOAD, path.join(witness, 'libwitness-sleeps.so')].filter(Boolean).join(':');
test('a dispatcher is waited for', spying, async () => {
    const answer = (operation, count, value) => `messaging.answer('${operation}', ${value}, ${count});`;
    for (const [script, count, milliseconds, isFatal = false] of [
        [answer('GetInstance', 2, 4), 2, 6000],
        [answer('GetInstance', 1, 4) + answer('GetInstance', 1, 5), 1, 6000, true],
        [answer('GetInstance', 1000, 4), 100, 6000, true],
        [answer('IsReady', Infinity, false), 20, 50],
        [answer('RefreshEndPoints', 1, false) + answer('IsRefreshing', Infinity, true), 20, 50],
    ]) {
        const log = temporaryFile();
        const env = { LD_PRELOAD: preload, SLEEPS_TO: log };
        const ended = await run(`${script} ${construct} ${exit}`, { env });
        assert.equal(fs.readFileSync(log, 'utf8'), `${milliseconds}\n`.repeat(count), script);
        fs.unlinkSync(log);
        if (isFatal) assert.match(failedAssertion(ended), / brivon_$/);
        else assert.deepEqual([ended.code, ended.stderr], [0, ''], script);
    }
});

test('a delivery for which there is no memory, not even to say so, ends nothing', spying, async () => {
    const script = `const { BrivonAdapter } = require(root + '/lib');
        globalThis.adapter = new BrivonAdapter('app', '1');
        adapter.addMessageListener(() => {});
        adapter.sendMessage('hear:brivon.a|known|1|1|out-of-memory', 'p');
        ${exit}`;
    const env = { LD_PRELOAD: preload, BRIVONJS_MODULE: path.join(witness, 'BrivonJS.node') };
    const { code, stderr } = await runScript(script, { env });
    assert.equal(code, 0, stderr);
});

test('a listener that throws is dropped with a warning, or ends the process where the runtime is told so', async () => {
    const deliver = `messaging.deliver({ type: SUITE_TYPE_PREFIX, source: { id: '1', appId: 'a' } });`;
    const script = `${construct} let count = 0;
        adapter.addMessageListener(() => {
            if (++count === 2) ${exit}
            throw new Error('thrown by the listener');
        });
        ${deliver} ${deliver}`;
    for (const [code, complaint, ...execArgv] of [
        [0, /DEP0168/],
        [1, /Error: thrown by the listener/, '--force-node-api-uncaught-exceptions-policy=true'],
    ]) {
        const ended = await run(script, { execArgv });
        assert.equal(ended.code, code, ended.stderr);
        assert.match(ended.stderr, complaint);
    }
});
