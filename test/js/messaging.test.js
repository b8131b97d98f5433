'use strict';

// The messaging adapter on the scripted library: the calls it makes, in order, and what JavaScript sees.

const assert = require('node:assert/strict');
const { beforeEach, test } = require('node:test');

const { messaging, SUITE_TYPE_PREFIX, ERROR_TYPE } = require('brivonjs/standins');
const { BrivonAdapter } = require('brivonjs');
const { CallLog, collectUntil } = require('../support/support');

const endpoint = (appId, id, appVersion = '1') => ({ id, appId, appVersion });
const text = ({ id, appId, appVersion }) => `{${appId},${appVersion},${id}}`;
const message = (source, rest = {}) => ({
    type: `${SUITE_TYPE_PREFIX}t`,
    appId: source.appId,
    appVersion: source.appVersion,
    source,
    payload: 'p',
    ...rest,
});

const adapters = []; // kept from collection, which would silence everyone
const withoutCallback = []; // kept for the same reason

function construct(...args) {
    const adapter = new BrivonAdapter(...(args.length ? args : ['app', '1']));
    adapters.push(adapter);
    messaging.takeCalls();
    return adapter;
}

const operations = () => messaging.takeCalls().map(({ operation }) => operation);
const sends = () =>
    messaging
        .takeCalls()
        .filter(({ operation }) => operation === 'Send')
        .map((call) => call.arguments[0]);
const rebuild = ['GetSelfEndPoint', 'GetEndPoints', 'ReleaseEndPoints'];
const rebuildFromNone = ['GetSelfEndPoint', 'GetEndPoints'];

beforeEach(() => {
    for (const adapter of adapters) adapter.removeAllListeners();
    messaging.reset();
    messaging.setEndpoints([]);
    messaging.takeCalls();
});

test('construction configures, acquires, waits, registers and refreshes, in this order', () => {
    const cases = [
        {
            answers: [],
            calls: [
                'IsReady',
                'RegisterEndPointsCallback',
                'IsReady',
                'RefreshEndPoints',
                'IsRefreshing',
                'IsRefreshing',
            ],
        },
        {
            answers: [['IsReady', false, 2]],
            calls: [
                'IsReady',
                'IsReady',
                'IsReady',
                'RegisterEndPointsCallback',
                'IsReady',
                'RefreshEndPoints',
                'IsRefreshing',
                'IsRefreshing',
            ],
        },
        {
            answers: [['IsReady', false, Infinity]],
            calls: [...Array(21).fill('IsReady'), 'RegisterEndPointsCallback', 'IsReady'],
        },
        {
            answers: [
                ['RefreshEndPoints', false],
                ['IsRefreshing', true, Infinity],
            ],
            calls: [
                'IsReady',
                'RegisterEndPointsCallback',
                'IsReady',
                'RefreshEndPoints',
                ...Array(22).fill('IsRefreshing'),
            ],
        },
        { answers: [['GetInstance', { throws: 'no' }]], calls: [] },
        { answers: [['RegisterEndPointsCallback', { throws: 'no' }]], calls: ['IsReady', 'RegisterEndPointsCallback'] },
    ];
    for (const { answers, calls } of cases) {
        for (const answer of answers) messaging.answer(...answer);
        adapters.push(new BrivonAdapter('first\0cut', 'second', 'third', 4));
        const made = messaging.takeCalls();
        assert.deepEqual(made[0].arguments, ['first', 'second']);
        const by = (wanted) => made.filter(({ thread }) => thread === wanted).map(({ operation }) => operation);
        assert.deepEqual(by('caller'), ['SetConfig', 'GetInstance', ...calls]);
        // The refresh calls back on a library thread, where every adapter that is registered asks for the new list.
        const isRefreshed = calls.includes('RefreshEndPoints') && answers[0]?.[0] !== 'RefreshEndPoints';
        assert.deepEqual(by('library'), isRefreshed ? adapters.flatMap(() => rebuildFromNone) : []);
        messaging.reset();
    }
    // The adapter whose library threw before it gave a dispatcher refuses what needs one.
    withoutCallback.push(...adapters.splice(-2));
    const [broken] = withoutCallback;
    for (const method of ['getSelfEndpoint', 'getEndpoints', 'removeAllListeners'])
        assert.throws(() => broken[method](), {
            name: 'Error',
            message: 'The messaging library failed while this adapter was constructed',
        });
    assert.deepEqual(broken.getEndpointCacheSnapshot(), []);
});

test('return values are null, undefined or text as promised', () => {
    const adapter = construct();
    assert.equal(adapter.forceRefreshEndpoints(1, 2), null);
    assert.equal(
        adapter.addMessageListener(() => {}),
        undefined,
    );
    assert.equal(
        adapter.addErrorListener(() => {}, 'extra'),
        undefined,
    );
    assert.equal(adapter.removeAllListeners(), undefined);
    assert.equal(adapter.sendMessage('t', 'p'), 'Sent');
    assert.equal(adapter.getSelfEndpoint(), '{app,1,self}');
});

test('listeners are registered on every add, and removed from both lists', () => {
    const adapter = construct();
    adapter.addMessageListener(() => {});
    adapter.addErrorListener(() => {});
    adapter.addMessageListener(() => {});
    adapter.removeAllListeners();
    adapter.removeAllListeners();
    const calls = messaging.takeCalls();
    assert.deepEqual(
        calls.map(({ operation }) => operation),
        [
            'AddMessageListener',
            'AddErrorListener',
            'AddMessageListener',
            'RemoveMessageListener',
            'RemoveErrorListener',
            'RemoveMessageListener',
            'RemoveErrorListener',
        ],
    );
    assert.deepEqual(new Set(calls.map((call) => call.arguments[0])).size, 1);
    assert.throws(() => adapter.addMessageListener(5));
    assert.deepEqual(operations(), []);
});

test('getEndpoints and getSelfEndpoint answer from the dispatcher, the snapshot from the cache', () => {
    const adapter = construct();
    const [b, a2, a1, odd] = [endpoint('b', '1'), endpoint('a', '2'), endpoint('a', '1'), endpoint('x,y', '{}', '')];
    messaging.setEndpoints([b, a2, a1, odd]);
    assert.deepEqual(
        operations(),
        adapters.flatMap(() => rebuild),
    );
    assert.deepEqual(adapter.getEndpointCacheSnapshot(), [a2, a1, b, odd].map(text));
    assert.deepEqual(operations(), []);
    assert.deepEqual(adapter.getEndpoints(), [b, a2, a1, odd].map(text));
    assert.deepEqual(operations(), ['GetEndPoints', 'ReleaseEndPoints']);
    messaging.answer('GetEndPoints', { count: 0 });
    assert.deepEqual(adapter.getEndpoints(), []);
    assert.deepEqual(operations(), ['GetEndPoints']);
    messaging.answer('GetSelfEndPoint', { id: 'a\0b', appId: '\0', appVersion: '2' });
    assert.equal(adapter.getSelfEndpoint(), '{,2,a}');
});

test('sends choose their destinations from the call and the cache', () => {
    const [x1, x2, y, none1, none2] = [
        endpoint('X', '1', '1.0'),
        endpoint('X', '2', '2.0'),
        endpoint('Y', '3', '1.0'),
        endpoint('', '4', '1.0'),
        endpoint('', '5', '2.0'),
    ];
    const cases = [
        { appId: 'X', args: [], to: [x1, x2] },
        { appId: 'X', args: ['', '2.0'], to: [x2] },
        { appId: 'X', args: ['', '9.9'], to: [x1, x2] },
        { appId: 'X', args: ['Y'], to: [y] },
        { appId: 'X', args: ['y'], to: [] },
        { appId: 'X', args: ['X', '', 'ignored'], to: [x1, x2] },
        { appId: 'X', args: ['X', '1.0'], to: [x1] },
        { appId: 'X', args: ['X', '1.0', 'anyone'], to: [endpoint('X', 'anyone', '1.0')] },
        { appId: 'X', args: ['Z', '7', '8'], to: [endpoint('Z', '8', '7')] },
        { appId: 'X', args: ['', '', '', 'sixth'], to: [x1, x2] },
        { args: [], to: [none1, none2] },
        { args: ['', '1.0'], to: [none1, none2] },
        { appId: 'absent', args: [], to: [] },
    ];
    for (const { appId, args, to } of cases) {
        const adapter = construct('app', '1', ...(appId === undefined ? [] : [appId]));
        messaging.setEndpoints([y, none1, x1, none2, x2]);
        assert.equal(adapter.sendMessage('type', 'grüße 你好', ...args), 'Sent');
        assert.deepEqual(sends(), [
            {
                type: `${SUITE_TYPE_PREFIX}type`,
                payload: 'grüße 你好',
                source: endpoint('app', 'self'),
                destinations: to,
            },
        ]);
    }
    const adapter = construct();
    adapter.sendMessage('', 'cut\0here');
    assert.deepEqual(sends(), [
        { type: SUITE_TYPE_PREFIX, payload: 'cut', source: endpoint('app', 'self'), destinations: [none1, none2] },
    ]);
});

test('a send before the first endpoint list has an empty source', () => {
    messaging.answer('RefreshEndPoints', false);
    const adapter = construct();
    adapter.sendMessage('t', 'p');
    assert.deepEqual(sends()[0].source, endpoint('', '', ''));
});

test('a refused send makes the next accepted one refresh, once', () => {
    const adapter = construct();
    messaging.answer('Send', 7, 2);
    for (const expected of [
        ['Send'],
        ['Send'],
        ['Send', 'RefreshEndPoints', ...adapters.flatMap(() => rebuildFromNone)],
        ['Send'],
    ]) {
        assert.equal(adapter.sendMessage('t', 'p'), 'Sent');
        assert.deepEqual(operations(), expected);
    }
    messaging.answer('Send', -1);
    adapter.sendMessage('t', 'p');
    adapter.forceRefreshEndpoints();
    operations();
    adapter.sendMessage('t', 'p');
    assert.deepEqual(operations(), ['Send']);
});

test('messages and errors reach their listeners with all fields', async () => {
    const adapter = construct();
    const [messages, errors] = [new CallLog(), new CallLog()];
    adapter.addMessageListener(messages.callback);
    adapter.addErrorListener(errors.callback);
    const cases = [
        [{ payload: 'plain' }, 'plain'],
        [{ payload: undefined }, ''],
        [{ payload: '' }, ''],
        [{ payload: 'a\0b\0' }, 'a\0b\0'],
        [{ payload: 'Übung 日本語 🙂' }, 'Übung 日本語 🙂'],
    ];
    for (const [rest] of cases)
        messaging.deliver(message(endpoint('A,{', '7\0cut', 'V\0'), { appId: 'A\0', appVersion: '1\0x', ...rest }));
    assert.deepEqual(
        await messages.atLeast(cases.length),
        cases.map(([, payload]) => [`${SUITE_TYPE_PREFIX}t`, payload, 'A', '1', '7']),
    );
    messaging.deliver({ type: ERROR_TYPE, error: 'went\0', fault: 'wrong' });
    assert.deepEqual(await errors.atLeast(1), [[ERROR_TYPE, 'went', 'wrong']]);
});

test('a listener is called without this, and what it returns is ignored', async () => {
    const adapter = construct();
    const called = new Promise((resolve) => {
        adapter.addMessageListener(function () {
            resolve(this);
            return Promise.reject; // anything
        });
    });
    messaging.deliver(message(endpoint('a', '1')));
    assert.equal(await called, undefined);
});

test('the latest listener of any adapter receives what every adapter is handed', async () => {
    const [one, two] = [construct(), construct()];
    const [first, second] = [new CallLog(), new CallLog()];
    one.addMessageListener(first.callback);
    two.addMessageListener(second.callback);
    messaging.deliver(message(endpoint('a', '1')));
    assert.equal((await second.atLeast(2)).length, 2);
    assert.deepEqual(first.calls, []);
});

// A delivery that meets an empty handle must vanish; the delivery after it shows that it has.
test('deliveries without a listener are dropped', async () => {
    const source = endpoint('a', '1');
    const [one, two] = [construct(), construct()];
    const [messages, errors] = [new CallLog(), new CallLog()];

    one.addMessageListener(messages.callback);
    messaging.deliver({ type: ERROR_TYPE, error: 'e', fault: 'f', listeners: 'message' });

    // Silenced by the other adapter, while the library goes on delivering to this one.
    one.addErrorListener(errors.callback);
    two.removeAllListeners();
    messaging.deliver(message(source, { payload: 'dropped' }));
    messaging.deliver({ type: ERROR_TYPE, error: 'dropped', fault: '' });
    one.removeAllListeners();
    messaging.deliver(message(source, { payload: 'unregistered' }));

    one.addMessageListener(messages.callback);
    one.addErrorListener(errors.callback);
    messaging.deliver({ type: ERROR_TYPE, error: 'last', fault: '' });
    messaging.deliver(message(source, { payload: 'last' }));
    assert.deepEqual(
        (await messages.atLeast(1)).map(([, payload]) => payload),
        ['last'],
    );
    assert.deepEqual(
        (await errors.atLeast(1)).map(([, error]) => error),
        ['last'],
    );
});

test('only an unreachable destination, or a stale list, makes a delivery refresh first', async () => {
    const adapter = construct();
    const messages = new CallLog();
    adapter.addMessageListener(messages.callback);
    const [known, unknown] = [endpoint('a', '1'), endpoint('a', '2')];
    messaging.setEndpoints([known]);
    operations();
    // The scripted refresh is over at once and rebuilds the cache of every adapter from the list, without the unknown.
    const refresh = ['RefreshEndPoints', ...adapters.flatMap(() => rebuild)];
    const steps = [
        [{ type: 'DestinationUnreachable' }, refresh],
        [{ type: 'DestinationUnreachable ' }, []],
        [{ type: `x${SUITE_TYPE_PREFIX}` }, []],
        [message(known), []],
        [message({ ...known, appVersion: 'other' }), []],
        [message(unknown), []],
        [message(known), refresh],
        [message(known), []],
        [message(unknown), []],
        [message(unknown), refresh],
        [{ type: 'neither' }, refresh],
        [message(known), []],
    ];
    for (const [index, [delivered, expected]] of steps.entries()) {
        messaging.deliver(delivered);
        assert.deepEqual(operations(), expected, `step ${index}`);
    }
    assert.equal((await messages.atLeast(8)).length, 8);

    // Whether the refresh ends or not, asking for it is enough to clear the flag.
    messaging.answer('RefreshEndPoints', false, Infinity);
    messaging.answer('Send', 1);
    adapter.sendMessage('t', 'p');
    messaging.deliver(message(known));
    messaging.deliver(message(unknown));
    messaging.deliver(message(unknown));
    messaging.deliver(message(known));
    adapter.sendMessage('t', 'p');
    assert.deepEqual(
        operations().filter((name) => name !== 'GetEndPoints'),
        ['Send', 'RefreshEndPoints', 'RefreshEndPoints', 'Send'],
    );
});

test('no queue between the library and a listener is limited', async () => {
    const adapter = construct();
    const messages = new CallLog();
    adapter.addMessageListener(messages.callback);
    const payloads = Array.from({ length: 3000 }, (_, i) => String(i));
    for (const payload of payloads) messaging.deliver(message(endpoint('a', '1'), { payload }));
    assert.deepEqual(
        (await messages.atLeast(payloads.length)).map(([, payload]) => payload),
        payloads,
    );
});

test('the cache takes 200 single endpoints, and a rebuild of any size', () => {
    const adapter = construct();
    adapter.addMessageListener(() => {});
    messaging.answer('RefreshEndPoints', false, Infinity);
    const list = (count) => Array.from({ length: count }, (_, i) => endpoint('a', String(i)));
    const size = () => adapter.getEndpointCacheSnapshot().length;
    messaging.setEndpoints(list(199));
    assert.equal(size(), 199);
    messaging.deliver(message(endpoint('a', 'added')));
    assert.equal(size(), 200);
    assert.equal(adapter.getEndpointCacheSnapshot()[199], '{a,1,added}');
    messaging.deliver(message(endpoint('a', 'dropped')));
    assert.equal(size(), 200);
    operations();
    messaging.deliver(message(endpoint('a', 'added')));
    assert.deepEqual(operations(), ['RefreshEndPoints'], 'a dropped endpoint leaves the list stale');
    messaging.setEndpoints(list(250));
    assert.equal(size(), 250);
    messaging.deliver(message(endpoint('b', 'dropped')));
    assert.equal(size(), 250);
    messaging.setEndpoints(list(2));
    messaging.deliver(message(endpoint('0', 'x', '')));
    assert.deepEqual(adapter.getEndpointCacheSnapshot(), ['{0,,x}', '{a,1,0}', '{a,1,1}']);
});

test('a collected adapter unregisters, releases once, and silences the others', async () => {
    const survivor = construct();
    const [messages, errors] = [new CallLog(), new CallLog()];
    survivor.addMessageListener(messages.callback);
    survivor.addErrorListener(errors.callback);
    const label = messaging.takeCalls()[0].arguments[0];
    const seen = [];
    const released = (count) => () => {
        seen.push(...messaging.takeCalls());
        return seen.filter(({ operation }) => operation === 'ReleaseInstance').length >= count;
    };
    (() => new BrivonAdapter('dropped', '1'))();
    messaging.takeCalls();
    await collectUntil(released(1));
    assert.deepEqual(
        seen.map(({ operation }) => operation),
        ['UnregisterEndPointsCallback', 'ReleaseInstance'],
    );
    assert.notEqual(seen[0].arguments[0], label);

    messaging.deliver(message(endpoint('a', '1'), { payload: 'dropped' }));
    messaging.deliver({ type: ERROR_TYPE, error: 'dropped', fault: '' });
    survivor.addMessageListener(messages.callback);
    survivor.addErrorListener(errors.callback);
    messaging.deliver({ type: ERROR_TYPE, error: 'heard', fault: '' });
    messaging.deliver(message(endpoint('a', '1'), { payload: 'heard' }));
    assert.deepEqual(
        (await messages.atLeast(1)).map(([, payload]) => payload),
        ['heard'],
    );
    assert.deepEqual(
        (await errors.atLeast(1)).map(([, error]) => error),
        ['heard'],
    );
});

test('a library that throws while it delivers or is asked does not end the process', async () => {
    const adapter = construct();
    const messages = new CallLog();
    adapter.addMessageListener(messages.callback);
    messaging.answer('Send', 1);
    adapter.sendMessage('t', 'p');
    messaging.answer('RefreshEndPoints', { throws: 'in the middle' });
    messaging.deliver(message(endpoint('a', '1'), { payload: 'lost' }));
    operations();
    messaging.deliver(message(endpoint('a', '1')));
    assert.deepEqual(operations(), [], 'the list counts as fresh once the refresh was asked for');
    messaging.answer('GetEndPoints', { throws: 'in a rebuild' }, adapters.length);
    messaging.setEndpoints([]);
    messaging.deliver(message(endpoint('a', '1'), { payload: 'last' }));
    assert.deepEqual(
        (await messages.atLeast(2)).map(([, payload]) => payload),
        ['p', 'last'],
    );
});

test('the script refuses what it cannot do', () => {
    const refusals = [
        [TypeError, () => messaging.answer('Sned', 0)],
        [TypeError, () => messaging.answer('Send', 'zero')],
        [TypeError, () => messaging.answer('AddMessageListener', 0)],
        [TypeError, () => messaging.answer('Send', 0, 0)],
        [TypeError, () => messaging.answer('IsReady', { throws: 5 })],
        [TypeError, () => messaging.setEndpoints([{ id: 1 }])],
        [TypeError, () => messaging.deliver({ type: 't', listeners: 'none' })],
        [TypeError, () => messaging.deliver({ type: () => {} })],
        [TypeError, () => messaging.perform('unknown')],
    ];
    for (const [kind, call] of refusals)
        assert.throws(call, (error) => error instanceof kind && error.message !== '', call.toString());
});
