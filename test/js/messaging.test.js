'use strict';

// The messaging adapter on the scripted library: the calls it makes, in order, and what JavaScript sees.

const assert = require('node:assert/strict');
const { once } = require('node:events');
const { beforeEach, test } = require('node:test');
const { Worker } = require('node:worker_threads');

const { messaging, SUITE_TYPE_PREFIX, ERROR_TYPE } = require('brivonjs/standins');
const { BrivonAdapter } = require('brivonjs');
const { CallLog, collectUntil, root, runScript, scripted } = require('../support/support');

const endpoint = (appId, id, appVersion = '1') => ({ id, appId, appVersion });
const text = ({ id, appId, appVersion }) => `{${appId},${appVersion},${id}}`;
const message = (source, rest = {}) => ({ ...source, type: `${SUITE_TYPE_PREFIX}t`, source, payload: 'p', ...rest });

const adapters = []; // kept from collection, which would silence everyone
const withoutCallback = []; // kept for the same reason

function construct(...args) {
    const adapter = new BrivonAdapter(...(args.length ? args : ['app', '1']));
    adapters.push(adapter);
    messaging.takeCalls();
    return adapter;
}

const toOperations = (calls) => calls.map(({ operation }) => operation);
const operations = () => toOperations(messaging.takeCalls());
// What every registered adapter asks of the library when it is told of a new list.
const rebuilds = () => adapters.flatMap(() => ['GetSelfEndPoint', 'GetEndPoints', 'ReleaseEndPoints']);
const rebuildsFromNone = () => adapters.flatMap(() => ['GetSelfEndPoint', 'GetEndPoints']);

// Adds a listener of each kind, which logs what it is called with.
function listen(adapter, messages = new CallLog(), errors = new CallLog()) {
    adapter.addMessageListener(messages.callback);
    adapter.addErrorListener(errors.callback);
    messaging.takeCalls();
    return [messages, errors];
}

const deliverPayload = (payload) => messaging.deliver(message(endpoint('a', '1'), { payload }));
const deliverError = (error) => messaging.deliver({ type: ERROR_TYPE, error, fault: '' });
const contents = async (log, count) => (await log.atLeast(count)).map(([, content]) => content);

// Listens anew, and has heard nothing before.
async function assertHearsFromNowOn(adapter, ...logs) {
    listen(adapter, ...logs);
    deliverError('heard');
    deliverPayload('heard');
    for (const log of logs) assert.deepEqual(await contents(log, 1), ['heard']);
}

beforeEach(() => {
    for (const adapter of adapters) adapter.removeAllListeners();
    messaging.reset();
    messaging.setEndpoints([]);
    messaging.takeCalls();
});

test('construction configures, acquires, waits, registers and refreshes, in this order', async () => {
    const [ready, register] = ['IsReady', 'RegisterEndPointsCallback'];
    const times = (count, operation) => Array(count).fill(operation);
    const refresh = (polls) => [ready, 'RefreshEndPoints', ...times(polls, 'IsRefreshing')];
    const isPending = ['IsRefreshing', true, Infinity];
    const cases = [
        { answers: [[ready, false, 2]], calls: [...times(3, ready), register, ...refresh(2)], isRefreshed: true },
        { answers: [[ready, false, Infinity]], calls: [...times(21, ready), register, ready] },
        { answers: [['RefreshEndPoints', false], isPending], calls: [ready, register, ...refresh(22)] },
        { answers: [['GetInstance', { throws: 'no' }]], calls: [] },
        { answers: [[register, { throws: 'no' }]], calls: [ready, register] },
    ];
    for (const { answers, calls, isRefreshed } of cases) {
        for (const answer of answers) messaging.answer(...answer);
        adapters.push(new BrivonAdapter('first\0cut', 'second', 'third', 4));
        const made = messaging.takeCalls();
        assert.deepEqual(made[0].arguments, ['first', 'second']);
        const by = (wanted) => toOperations(made.filter(({ thread }) => thread === wanted));
        assert.deepEqual(by('caller'), ['SetConfig', 'GetInstance', ...calls]);
        assert.deepEqual(by('library'), isRefreshed ? rebuildsFromNone() : []);
        messaging.reset();
    }
    // The adapter whose library threw before it gave a dispatcher refuses what needs one.
    withoutCallback.push(...adapters.splice(-2));
    const [broken] = withoutCallback;
    const message = 'The messaging library failed while this adapter was constructed';
    for (const [method, ...args] of [['getSelfEndpoint'], ['getEndpoints'], ['addErrorListener', () => {}]])
        assert.throws(() => broken[method](...args), { name: 'Error', message });
    assert.throws(() => broken.addMessageListener('no function'), { message: 'Invalid argument' });
    assert.deepEqual(broken.getEndpointCacheSnapshot(), []);
    // What needs no dispatcher has been done: the latest listener is replaced, and all are silenced.
    const [, errors] = listen(adapters[0]);
    const latest = new CallLog();
    assert.throws(() => broken.addErrorListener(latest.callback), { message });
    deliverError('redirected');
    assert.deepEqual([await contents(latest, 1), errors.calls], [['redirected'], []]);
    assert.throws(() => broken.removeAllListeners(), { message });
    deliverError('silenced');
    await assertHearsFromNowOn(adapters[0], errors);
    assert.equal(latest.calls.length, 1);
});

test('every method answers as promised after its calls of the library', () => {
    const adapter = construct();
    const [b, a2, a1, odd] = [endpoint('b', '1'), endpoint('a', '2'), endpoint('a', '1'), endpoint('x,y', '{}', '')];
    messaging.setEndpoints([b, a2, a1, odd]);
    assert.deepEqual(operations(), rebuilds());
    messaging.answer('GetSelfEndPoint', { id: 'a\0b', appId: 'c\0d', appVersion: '2' });
    messaging.answer('GetEndPoints', { count: 0 });
    const removals = ['RemoveMessageListener', 'RemoveErrorListener'];
    for (const [method, args, result, expected] of [
        ['getSelfEndpoint', [], '{c,2,a}', ['GetSelfEndPoint']],
        ['getSelfEndpoint', [], '{app,1,self}', ['GetSelfEndPoint']],
        ['getEndpoints', [], [], ['GetEndPoints']],
        ['getEndpoints', [], [b, a2, a1, odd].map(text), ['GetEndPoints', 'ReleaseEndPoints']],
        ['getEndpointCacheSnapshot', [], [a2, a1, b, odd].map(text), []],
        ['forceRefreshEndpoints', [1, 2], null, ['RefreshEndPoints', ...rebuilds()]],
        ['addMessageListener', [() => {}], undefined, ['AddMessageListener']],
        ['addErrorListener', [() => {}, 'extra'], undefined, ['AddErrorListener']],
        ['addMessageListener', [() => {}], undefined, ['AddMessageListener']],
        ['removeAllListeners', [], undefined, removals],
        ['sendMessage', ['t', 'p'], 'Sent', ['Send']],
    ]) {
        assert.deepEqual(adapter[method](...args), result, method);
        assert.deepEqual(operations(), expected);
    }
});

test('sends choose their destinations from the call and the cache', () => {
    const [x1, x2, y] = [endpoint('X', '1', '1.0'), endpoint('X', '2', '2.0'), endpoint('Y', '3', '1.0')];
    const [none1, none2] = [endpoint('', '4', '1.0'), endpoint('', '5', '2.0')];
    const cases = [
        { appId: 'X', args: [], to: [x1, x2] },
        { appId: 'X', args: ['', '2.0'], to: [x2] },
        { appId: 'X', args: ['', '9.9'], to: [x1, x2] },
        { appId: 'X', args: ['Y'], to: [y] },
        { appId: 'X', args: ['X', '', 'ignored'], to: [x1, x2] },
        { appId: 'X', args: ['Z', '7', '8'], to: [endpoint('Z', '8', '7')] },
        { appId: 'X', args: ['', '', '', 'sixth'], to: [x1, x2] },
        { appId: 'X', args: ['\0'], to: [] },
        { appId: 'X', args: ['\0', '7', '8'], to: [endpoint('', '8', '7')] },
        { args: [], to: [none1, none2] },
        { args: ['', '2.0'], to: [none1, none2] },
        { appId: 'absent', args: [], to: [] },
    ];
    const assertSends = (adapter, args, sent) => {
        adapter.sendMessage(...args);
        assert.deepEqual(messaging.takeCalls()[0].arguments, [sent]);
    };
    const payload = 'grüße 你好';
    for (const { appId, args, to: destinations } of cases) {
        const adapter = construct('app', '1', ...(appId === undefined ? [] : [appId]));
        messaging.setEndpoints([y, none1, x1, none2, x2]);
        messaging.takeCalls();
        const source = endpoint('app', 'self');
        assertSends(adapter, ['t', payload, ...args], { type: `${SUITE_TYPE_PREFIX}t`, payload, source, destinations });
    }
    // Before its first endpoint list an adapter knows neither itself nor others.
    messaging.answer('RefreshEndPoints', false);
    const sent = { type: SUITE_TYPE_PREFIX, payload: 'cut', source: endpoint('', '', ''), destinations: [] };
    assertSends(construct(), ['', 'cut\0here'], sent);
});

test('messages and errors reach their listeners with all fields, however many are queued', async () => {
    const adapter = construct();
    const [messages, errors] = listen(adapter);
    adapter.addMessageListener(function (...fields) {
        messages.callback(this, ...fields);
        return Promise.reject; // anything
    });
    const source = endpoint('A,{', '7\0cut', 'V\0');
    const texts = [undefined, '', 'a\0b\0', 'Übung 日本語 🙂', ...Array.from({ length: 3000 }, (_, i) => `${i}`)];
    for (const payload of texts) messaging.deliver(message(source, { appId: 'A\0', appVersion: '1\0x', payload }));
    const expected = texts.map((payload = '') => [undefined, `${SUITE_TYPE_PREFIX}t`, payload, 'A', '1', '7']);
    assert.deepEqual(await messages.atLeast(texts.length), expected);
    for (const args of [[], [{}]]) assert.throws(() => adapter.addErrorListener(...args)); // which changes nothing
    messaging.deliver({ type: ERROR_TYPE, error: 'went\0', fault: 'wrong' });
    assert.deepEqual(await errors.atLeast(1), [[ERROR_TYPE, 'went', 'wrong']]);
});

// A delivery that meets an empty handle must vanish; the delivery after it shows that it has.
test('the latest listener of any adapter hears what all are handed, and deliveries without one are dropped', async () => {
    const [one, two] = [construct(), construct()];
    const [first] = listen(one);
    one.removeAllListeners();
    one.addMessageListener(first.callback);
    messaging.deliver({ type: ERROR_TYPE, error: 'e', fault: 'f', listeners: 'message' });
    const [second] = listen(two);
    deliverPayload('p');
    assert.equal((await second.atLeast(2)).length, 2);
    assert.deepEqual(first.calls, []);

    // Silenced by the other adapter, while the library goes on delivering to this one.
    const logs = listen(one);
    two.removeAllListeners();
    deliverPayload('dropped');
    deliverError('dropped');
    await assertHearsFromNowOn(one, ...logs);
});

test('only an unreachable destination, or a stale list, makes a delivery refresh first', async () => {
    const adapter = construct();
    const [messages] = listen(adapter);
    const [known, unknown] = [endpoint('a', '1'), endpoint('a', '2')];
    messaging.setEndpoints([known]);
    operations();
    // The scripted refresh is over at once and rebuilds the cache of every adapter from the list, without the unknown.
    const refresh = ['RefreshEndPoints', ...rebuilds()];
    const steps = [
        [{ type: 'DestinationUnreachable' }, refresh],
        [{ type: 'DestinationUnreachable ' }, []],
        [{ type: `x${SUITE_TYPE_PREFIX}` }, []],
        [{ type: SUITE_TYPE_PREFIX.slice(0, -1) }, []],
        [message({ ...known, appVersion: 'other' }), []],
        [message(unknown), []],
        [message(unknown), refresh],
        [{ type: 'neither' }, refresh],
        [message(known), []],
    ];
    for (const [index, [delivered, expected]] of steps.entries()) {
        messaging.deliver(delivered);
        assert.deepEqual(operations(), expected, `step ${index}`);
        assert.equal(adapter.getEndpointCacheSnapshot()[0], text(known));
    }
    assert.equal((await messages.atLeast(4)).length, 4);
});

test('the cache takes 200 single endpoints, and a rebuild of any size', () => {
    const adapter = construct();
    adapter.addMessageListener(() => {});
    messaging.answer('RefreshEndPoints', false, Infinity);
    const rebuild = (count) => messaging.setEndpoints(Array.from({ length: count }, (_, i) => endpoint('a', `${i}`)));
    const hearOf = (...args) => messaging.deliver(message(endpoint(...args)));
    for (const [change, args, size, last, isRefreshed = false] of [
        [rebuild, [199], 199, '{a,1,198}'],
        [hearOf, ['a', 'added'], 200, '{a,1,added}'],
        [hearOf, ['a', 'dropped'], 200, '{a,1,added}', true],
        [hearOf, ['a', 'added'], 200, '{a,1,added}', true],
        [hearOf, ['a', 'added'], 200, '{a,1,added}'],
        [rebuild, [250], 250, '{a,1,249}'],
        [hearOf, ['b', 'dropped'], 250, '{a,1,249}'],
        [rebuild, [2], 2, '{a,1,1}'],
        [hearOf, ['0', 'x', ''], 3, '{a,1,1}', true],
    ]) {
        operations();
        change(...args);
        const snapshot = adapter.getEndpointCacheSnapshot();
        assert.deepEqual([snapshot.length, snapshot.at(-1)], [size, last]);
        assert.equal(operations().includes('RefreshEndPoints'), isRefreshed, `${args}`);
    }
    assert.deepEqual(adapter.getEndpointCacheSnapshot(), ['{0,,x}', '{a,1,0}', '{a,1,1}']);
});

test('snapshots that are taken while endpoint lists arrive are whole', async () => {
    const { code, stderr } = await runScript(`${scripted}
        const adapter = (globalThis.adapter = new BrivonAdapter('app', '1'));
        const listing = '(' + ((root) => {
            const { messaging } = require(root + '/lib/standins');
            const list = (length) => Array.from({ length }, (_, id) => ({ id: String(id), appId: 'an application' }));
            for (let i = 0; i < 2000; ++i) messaging.setEndpoints(list(i % 60));
        }) + ')(' + JSON.stringify(root) + ')';
        new (require('node:worker_threads').Worker)(listing, { eval: true }).on('exit', process.exit);
        setInterval(() => {
            for (let i = 0; i < 500; ++i) {
                const snapshot = adapter.getEndpointCacheSnapshot();
                const texts = new Set(Object.values(snapshot).filter((text) => typeof text === 'string'));
                if (texts.size !== snapshot.length) throw new Error(snapshot.length + ' texts: ' + [...texts]);
            }
        });
    `);
    assert.equal(code, 0, stderr);
});

test('a collected adapter unregisters, releases once, and silences the others', async () => {
    const survivor = construct();
    survivor.addMessageListener(() => {});
    const logs = listen(survivor);
    const seen = [];
    (() => new BrivonAdapter('dropped', '1'))();
    const { arguments: label } = messaging.takeCalls().find(({ operation }) => operation.startsWith('Register'));
    await collectUntil(() => {
        seen.push(...messaging.takeCalls());
        return seen.some(({ operation }) => operation === 'ReleaseInstance');
    });
    assert.deepEqual(toOperations(seen), ['UnregisterEndPointsCallback', 'ReleaseInstance']);
    assert.deepEqual(seen[0].arguments, label);
    deliverPayload('dropped');
    deliverError('dropped');
    await assertHearsFromNowOn(survivor, ...logs);
});

// A hook that outlived it would empty the handles.
test('an environment whose adapter has been collected silences nobody when it ends', async () => {
    const adapter = construct();
    const isReleased = `messaging.takeCalls().some(({ operation }) => operation === 'ReleaseInstance')`;
    const body = `const root = ${JSON.stringify(root)}; ${scripted}
        ((other) => (other.addMessageListener(() => {}), other.removeAllListeners()))(new BrivonAdapter('app', '2'));
        const { collectUntil } = require(root + '/test/support/support');
        collectUntil(() => ${isReleased}).then(() => require('node:worker_threads').parentPort.postMessage('collected'));`;
    const worker = new Worker(body, { eval: true });
    await once(worker, 'message');
    const [messages] = listen(adapter);
    await worker.terminate();
    deliverPayload('heard');
    assert.deepEqual(await contents(messages, 1), ['heard']);
});

test('a library that throws while it delivers or is asked does not end the process', async () => {
    const adapter = construct();
    const [messages] = listen(adapter);
    messaging.answer('Send', 1);
    assert.equal(adapter.sendMessage('t', 'p'), 'Sent');
    messaging.answer('RefreshEndPoints', { throws: 'in the middle' });
    deliverPayload('lost');
    operations();
    deliverPayload('kept');
    assert.deepEqual(operations(), [], 'the list counts as fresh once the refresh was asked for');
    messaging.answer('GetEndPoints', { throws: 'in a rebuild' }, adapters.length);
    messaging.setEndpoints([]);
    deliverPayload('last');
    assert.deepEqual(await contents(messages, 2), ['kept', 'last']);
});
