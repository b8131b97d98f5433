'use strict';

// Diagnostic lines, compared whole: each scenario runs in a process of its own, whose standard output is its log.

const assert = require('node:assert/strict');
const { test } = require('node:test');

const { runScript, scripted } = require('../support/support');

// What every scenario begins with.
const preamble = `${scripted}
    const from = (appId, id) => ({ type: SUITE_TYPE_PREFIX, source: { appId, id } });
    const list = (...ids) => messaging.setEndpoints(ids.map((id) => ({ appId: home, id })));
    const adapter = (globalThis.adapter = new BrivonAdapter('app', '1', home));
    adapter.addMessageListener(() => {});
`;

const line = (method, text) => `Info:brivonadapter: ${text} (brivonadapter.cpp.BrivonAdapter::${method}.LINE)`;
const insert = (text) => line('insertIfNotAlreadyCached', text);
const rebuilt = (text) => line('refreshEndPointsBrivonWillCallback', text);
const rebuild = (...endpoints) => [
    rebuilt('about to drop cache '),
    ...endpoints.map(([appId, id]) => rebuilt(`inserted appId = ${appId} for sourceId = ${id}`)),
];

// The home is the default application of the adapter.
const scenariosOf = (home) => ({
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
            messaging.setEndpoints([{ appId: 'z', id: '2' }, { appId: home, id: '1' }]);
            list('1');
            messaging.deliver(from(home, '1'));
            messaging.deliver(from('b', '2'));
            list();
            list();
        `,
        log: [
            ...rebuild(['z', '2'], [home, '1']),
            rebuilt('switching to point to point'),
            ...rebuild([home, '1']),
            insert('cache hit -- returning early'),
            insert('Cache stale - inserted missing EndPoint for appId = b'),
            ...rebuild(),
            rebuilt('switching to broadcast'),
            ...rebuild(),
        ],
    },
});

for (const [home, name, { script, log }] of ['a', ''].flatMap((home) =>
    Object.entries(scenariosOf(home)).map((scenario) => [home, ...scenario]),
)) {
    test(`${name}, of '${home}'`, async () => {
        const { code, stdout, stderr } = await runScript(
            `const home = '${home}'; ${preamble}${script}; process.exit(0);`,
        );
        assert.deepEqual([code, stderr], [0, '']);
        const lines = stdout.split(/\r?\n/);
        const anywhere = lines.map((text) => text.replace(/\.\d+\)$/, '.LINE)'));
        assert.deepEqual(anywhere, [...log, '']);
        // A line of source for each text, which values follow, and a text for each line of source.
        const textOf = (text) => text.split(/ = | \(/)[0];
        const sources = lines.slice(0, -1).map((text) => `${textOf(text)} ${text.match(/\d+\)$/)}`);
        assert.equal(new Set(sources).size, new Set(log.map(textOf)).size);
        assert.equal(new Set(sources.map((source) => source.match(/\d+\)$/)[0])).size, new Set(sources).size);
    });
}

// An object whose construction was refused is bound to a native one like any other.
test('the collection of a refused construction silences the log and the listeners, and releases nothing', async () => {
    const { code, stderr } = await runScript(`const home = 'a'; ${preamble}
        const { fstatSync } = require('node:fs');
        const { collectUntil } = require(root + '/test/support/support');
        const logs = () => {
            const before = fstatSync(1).size;
            list('1');
            return fstatSync(1).size > before;
        };
        const refused = () => { try { new BrivonAdapter('one argument'); } catch {} };
        adapter.setVerboseLogging();
        adapter.addMessageListener(() => process.exit(3));
        if (!logs()) process.exit(1);
        refused();
        messaging.takeCalls();
        collectUntil(() => !logs()).then(() => {
            console.error(...new Set(messaging.takeCalls().map(({ operation }) => operation)));
            refused();
            if (logs()) process.exit(2);
            messaging.deliver(from('a', '1'));
            adapter.addMessageListener(() => process.exit(0));
            messaging.deliver(from('a', '1'));
        });
    `);
    assert.deepEqual([code, stderr], [0, 'GetSelfEndPoint GetEndPoints ReleaseEndPoints\n']);
});
