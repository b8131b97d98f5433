'use strict';

// Diagnostic lines, compared whole: each scenario runs in a process of its own, whose standard output is its log.

const assert = require('node:assert/strict');
const { test } = require('node:test');

const { lineOf, runScript, scripted } = require('../support/support');

// What every scenario begins with.
const preamble = `${scripted}
    const from = (appId, id) => ({ type: SUITE_TYPE_PREFIX, source: { appId, id } });
    const list = (...ids) => messaging.setEndpoints(ids.map((id) => ({ appId: 'a', id })));
    const adapter = new BrivonAdapter('app', '1', 'a');
    adapter.addMessageListener(() => {});
`;

// The text up to a value, or as much as is given, says which line of source writes it.
const line = (method, text, written = text.split(/(?<= = )/)[0]) =>
    `Info:brivonadapter: ${text} (brivonadapter.cpp.BrivonAdapter::${method}.${lineOf('src/brivonadapter.cpp', written)})\n`;
const insert = (text) => line('insertIfNotAlreadyCached', text);
const rebuilt = (...args) => line('refreshEndPointsBrivonWillCallback', ...args);
const rebuild = (...endpoints) => [
    rebuilt('about to drop cache '),
    ...endpoints.map(([appId, id]) => rebuilt(`inserted appId = ${appId} for sourceId = ${id}`)),
];
// Both switches share one line of source.
const switched = (mode) => rebuilt(`switching to ${mode}`, 'switching to');

const scenarios = {
    'a quiet adapter logs a full cache and exceptions only': {
        script: `
            list('1');
            messaging.deliver(from('a', '1'));
            messaging.deliver(from('b', '2'));
            list(...Array.from({ length: 200 }, (_, i) => String(i)));
            messaging.answer('RefreshEndPoints', { throws: 'x' });
            for (let i = 0; i < 3; ++i) messaging.deliver(from('b', '2'));
            messaging.answer('IsReady', { throws: 'x' });
            new BrivonAdapter('app', '2');
            messaging.answer('IsReady', false, 22);
            new BrivonAdapter('not ready', '3');
            messaging.answer('RefreshEndPoints', false);
            messaging.answer('IsRefreshing', true, 22);
            new BrivonAdapter('not refreshed', '4');
        `,
        log: [
            line('Receive', 'EXCEPTION in BrivonAdapter::Receive'),
            insert('WARNING Cache stale - dropped missing EndPoint due to large cache size'),
            insert('WARNING Cache stale - dropped missing EndPoint due to large cache size'),
            line('initSelf', 'WARNING Likely fatal exception in construction '),
        ],
    },
    'a verbose adapter logs rebuilds, hits, insertions and switches of mode': {
        script: `
            for (const argument of [true, false]) if (adapter.setVerboseLogging(argument) !== null) process.exit(1);
            messaging.answer('RefreshEndPoints', false, Infinity);
            const endpoints = [{ appId: 'a', id: '1' }, { appId: 'z', id: '2' }];
            messaging.setEndpoints(endpoints);
            messaging.setEndpoints(endpoints.reverse());
            list('1');
            messaging.deliver(from('a', '1'));
            messaging.deliver(from('b', '2'));
            list();
            list();
        `,
        log: [
            ...rebuild(['a', '1'], ['z', '2']),
            switched('point to point'),
            ...rebuild(['z', '2'], ['a', '1']),
            ...rebuild(['a', '1']),
            insert('cache hit -- returning early'),
            insert('Cache stale - inserted missing EndPoint for appId = b'),
            ...rebuild(),
            switched('broadcast'),
            ...rebuild(),
        ],
    },
};

for (const [name, { script, log }] of Object.entries(scenarios)) {
    test(name, async () => {
        const ended = await runScript(`${preamble}${script}; process.exit(0);`);
        assert.deepEqual(ended, { code: 0, signal: null, stdout: log.join(''), stderr: '' });
    });
}

// An object whose construction was refused is bound to a native one like any other.
test('the collection of a refused construction silences the log, and releases nothing', async () => {
    const { code, stderr } = await runScript(`${preamble}
        const { fstatSync } = require('node:fs');
        const { collectUntil } = require(root + '/test/support/support');
        const logs = () => {
            const before = fstatSync(1).size;
            list('1');
            return fstatSync(1).size > before;
        };
        adapter.setVerboseLogging();
        if (!logs()) process.exit(1);
        try { new BrivonAdapter('one argument'); } catch {}
        messaging.takeCalls();
        collectUntil(() => !logs()).then(() => {
            console.error(...new Set(messaging.takeCalls().map(({ operation }) => operation)));
            process.exit(0);
        });
    `);
    assert.deepEqual([code, stderr], [0, 'GetSelfEndPoint GetEndPoints ReleaseEndPoints\n']);
});
