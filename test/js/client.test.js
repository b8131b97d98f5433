'use strict';

// The client, on the scripted libraries.

const assert = require('node:assert/strict');
const { getEventListeners, once } = require('node:events');
const { afterEach, test } = require('node:test');

const { control, messaging } = require('brivonjs/standins');
const { connect, ERROR_TYPE, launch, TYPE_PREFIX } = require('brivonjs/client');
const { Endpoint, newBus, until } = require('../support/support');

const configuration = { appId: 'notes', appVersion: '2.1', defaultAppId: 'calendar' };
const client = connect(configuration);
const calendar = { id: '7', appId: 'calendar', appVersion: '3.0' };
const odd = { id: '8', appId: 'mail', appVersion: '1,0' };
messaging.setEndpoints([calendar, { ...calendar, id: '9', appVersion: '4.0' }, odd]);

afterEach(() => (client.removeAllListeners(), messaging.takeCalls()));

// What has been sent: [type, payload, ids of the destinations].
const sent = () =>
    messaging
        .takeCalls()
        .filter(({ operation }) => operation === 'Send')
        .map(({ arguments: [{ type, payload, destinations }] }) => {
            return [type.slice(TYPE_PREFIX.length), payload, destinations.map(({ id }) => id).join(' ')];
        });
const hear = (type, payload, source = calendar) =>
    messaging.deliver({ ...source, source, type: TYPE_PREFIX + type, payload });
const fail = (fault) => messaging.deliver({ type: ERROR_TYPE, error: 'Destination unreachable', fault });

test('messages go to whom they are meant for, as text or JSON, and to nobody by accident', () => {
    for (const [to, ids, ifUnknown] of [
        [undefined, '7 9'],
        [{ appId: 'calendar', appVersion: '4.0' }, '9'],
        [{ appId: 'x', appVersion: '1', id: '2' }, '2'],
        [odd, '8'],
        [{ appId: 'calendar', appVersion: '5' }, '', 'everyone'],
    ]) {
        client.send('t', { a: 1 }, { to, ifUnknown });
        assert.deepEqual(sent(), [['t', '{"a":1}', ids]]);
    }
    client.broadcast('t', 'text');
    assert.deepEqual(sent(), [['t', 'text', '']]);
    for (const [code, call] of [
        ['ERR_BRIVONJS_UNKNOWN_TARGET', () => client.send('t', '', { to: 'x' })],
        ['ERR_BRIVONJS_UNKNOWN_TARGET', () => client.send('t', '', { to: 'mail' })],
        ['ERR_BRIVONJS_UNKNOWN_TARGET', () => client.send('t', '', { to: 'mail,1' })],
        ['ERR_INVALID_ARG_VALUE', () => client.send('t', '', { to: { appVersion: 3 } })],
        ['ERR_INVALID_ARG_VALUE', () => client.send('t', { big: 1n })],
        ['ERR_INVALID_ARG_VALUE', () => client.send('t', new Date())],
        ['ERR_INVALID_ARG_VALUE', () => client.send('t', '', { to: { appId: 'x', id: '2' } })],
        ['ERR_INVALID_ARG_VALUE', () => client.send('t', '', { too: 'x' })],
        ['ERR_INVALID_ARG_VALUE', () => client.send('t', 'a\0b')],
        ['ERR_BRIVONJS_CONNECTED', () => connect({ ...configuration, appVersion: '3' })],
    ])
        assert.throws(call, { code }, `${call}`);
    assert.deepEqual(sent(), []);
});

test('what arrives is told with its parts, and what a listener throws is an error event', async () => {
    const heard = [];
    client.on('message', (message) => heard.push(message));
    for (const text of ['[1]', 'not {json}']) hear('t', text);
    await until(() => heard.length === 2);
    const rest = { type: 't', fullType: `${TYPE_PREFIX}t`, source: calendar };
    assert.deepEqual(heard, [
        { ...rest, payload: [1], text: '[1]' },
        { ...rest, payload: 'not {json}', text: 'not {json}' },
    ]);
    fail('{calendar,3.0,7}');
    const [{ endpoint, error }] = await once(client, 'unreachable');
    assert.deepEqual([endpoint, error], [calendar, 'Destination unreachable']);
    for (const listener of [() => assert.fail('at once'), async () => assert.fail('later')]) {
        client.once('message', listener);
        const failed = once(client, 'error');
        hear('t', '');
        assert.match((await failed)[0].message, /at once|later/);
    }
});

test('a loop over messages reads those of a type, and ends when too many wait, or when it is told to', async () => {
    const controller = new AbortController();
    const few = client.messages({ type: 'wanted', limit: 2 });
    const ended = client.messages({ signal: controller.signal });
    let count = 0;
    client.on('message', () => ++count);
    for (const type of ['wanted', 'other', 'wanted', 'wanted']) hear(type, '');
    await until(() => count === 4);
    const read = [];
    const reading = async () => {
        for await (const { type } of few) read.push(type);
    };
    await assert.rejects(reading, { code: 'ERR_BRIVONJS_OVERFLOW' });
    assert.deepEqual(read, ['wanted', 'wanted']);
    assert.equal((await ended.next()).value.type, 'wanted');
    controller.abort(new Error('enough'));
    for (let i = 0; i < 3; ++i) await ended.next();
    await assert.rejects(ended.next(), /enough/);
    const left = client.messages();
    const pending = left.next();
    await left.return();
    assert.equal((await pending).done, true);
});

test('questions of others are answered, with errors that cross, until they are taken back', async () => {
    let aborted;
    client.handle('add', async ({ a, b }, { source, signal }) => {
        if (a === undefined) throw Object.assign(new RangeError('no a'), { code: 'E' });
        if (b === undefined) aborted = once(signal, 'abort').then(() => source);
        return aborted ?? a + b;
    });
    assert.throws(() => client.handle('add', () => {}), { code: 'ERR_BRIVONJS_HANDLED' });
    const ask = (name, id, body) => hear(`request:${name}`, JSON.stringify({ id, body }));
    ask('add', '1', { a: 1, b: 2 });
    ask('add', '2', {});
    ask('sub', '3');
    ask('add', '4', { a: 1 });
    hear('request:add', 'no envelope');
    const nobody = { name: 'Error', code: 'ERR_BRIVONJS_NO_HANDLER' };
    let answers = [];
    await until(() => (answers = answers.concat(sent())).length === 3);
    assert.deepEqual(
        answers.map(([type, payload, ids]) => [type, JSON.parse(payload), ids]),
        [
            ['answer:add', { id: '1', body: 3 }, '7'],
            ['answer:add', { id: '2', error: { name: 'RangeError', message: 'no a', code: 'E' } }, '7'],
            ['answer:sub', { id: '3', error: { ...nobody, message: "nobody answers 'sub'" } }, '7'],
        ],
    );
    hear('cancel:add', '{"id":"4"}');
    assert.deepEqual(await aborted, calendar);
    assert.deepEqual(sent(), []);
});

test('a question ends with whatever is first, and leaves nothing behind', async () => {
    const reply = (...answers) => {
        const [[type, payload]] = sent();
        for (const [rest, source] of answers)
            hear(type.replace('request', 'answer'), JSON.stringify({ id: JSON.parse(payload).id, ...rest }), source);
    };
    const ask = (options) => client.request('q', { x: 1 }, { to: { ...calendar }, ...options });
    const controller = new AbortController();
    const answered = ask({ signal: controller.signal });
    reply([{ body: 3, error: null }]);
    assert.equal(await answered, 3);
    for (const error of [{ name: 'RangeError', message: 'no', code: 'E' }, 'no', { message: ['no'] }]) {
        const failed = ask();
        reply([{ error }]);
        const [code, expected] = ['ERR_BRIVONJS_ANSWER', typeof error === 'string' ? undefined : error.code];
        await assert.rejects(failed, (thrown) => thrown.code === code && thrown.cause.code === expected);
    }
    // Of several, those that do not know the question are no answer while another one may.
    const another = { ...calendar, id: '9', appVersion: '4.0' };
    const unknown = [{ error: { code: 'ERR_BRIVONJS_NO_HANDLER', message: '' } }, another];
    const first = ask({ to: 'calendar', timeout: 2 ** 31 });
    reply(unknown, [{ body: 4 }]);
    assert.equal(await first, 4);
    const none = ask({ to: 'calendar' });
    reply(unknown);
    fail('{calendar,3.0,7}');
    await assert.rejects(none, { code: 'ERR_BRIVONJS_ANSWER' });
    const lost = ask({ timeout: Infinity });
    for (const fault of ['{mail,1,0,8}', '{calendar,3.0,7}']) fail(fault);
    await assert.rejects(lost, { code: 'ERR_BRIVONJS_UNREACHABLE', message: /calendar,3.0,7/ });
    sent();
    await assert.rejects(ask({ timeout: 1 }), { code: 'ERR_BRIVONJS_TIMEOUT' });
    const types = sent().map(([type]) => type);
    assert.deepEqual(types, ['request:q', 'cancel:q']);
    const aborted = ask({ signal: controller.signal });
    controller.abort();
    await assert.rejects(aborted, { name: 'AbortError' });
    assert.deepEqual(getEventListeners(controller.signal, 'abort'), []);
    assert.ok(!process.getActiveResourcesInfo().includes('Timeout'));
});

test('a launch passes its options on, and says why there was none', async () => {
    control.answer('LaunchApp', true);
    await launch('a', { focus: false, args: '--week' });
    const { arguments: launched } = control.takeCalls().find(({ operation }) => operation === 'LaunchApp');
    assert.deepEqual(launched, ['a', false, '--week']);
    control.answer('LaunchApp', { throws: 'the disk is full' });
    await assert.rejects(launch('a'), { code: 'ERR_BRIVONJS_NOT_LAUNCHED', cause: new Error('the disk is full') });
});

test('a closed client is closed for those who share it last, refuses what needs it open, and opens again', async () => {
    assert.equal(connect(configuration), client);
    client.close();
    client.broadcast('t', '');
    const pending = [client.request('q', {}, {}), client.messages().next()];
    client.close();
    await assert.rejects(pending[0], { code: 'ERR_BRIVONJS_CLOSED' });
    assert.deepEqual(await pending[1], { value: undefined, done: true });
    assert.throws(() => client.broadcast('t', ''), { code: 'ERR_BRIVONJS_CLOSED' });
    connect(configuration);
    const heard = once(client, 'message');
    hear('again', '');
    assert.equal((await heard)[0].type, 'again');
});

// Some are answered, some fail, time out or are aborted, and those who answer are killed meanwhile.
test('ten thousand questions, in a storm of kills, leave nothing behind', async (t) => {
    const bus = newBus();
    const asker = await Endpoint.join(t, bus, 'asker', '1');
    const answering = `const { connect } = require(${JSON.stringify(require.resolve('brivonjs/client'))});
        connect({ appId: 'answerer', appVersion: '1' }).handle('half', (n) => {
            if (n % 7 === 0) throw new Error('seven');
            return n % 5 === 0 ? new Promise(() => {}) : n / 2;
        }); 0`;
    const join = async () => {
        const answerer = await Endpoint.join(t, bus, 'answerer', '1');
        await answerer.run(answering);
        return answerer;
    };
    let answerers = await Promise.all([join(), join()]);
    await asker.sees(...answerers);
    await asker.run(`const { connect } = require(${JSON.stringify(require.resolve('brivonjs/client'))});
        const { getEventListeners } = require('node:events');
        globalThis.ends = {};
        globalThis.signals = [];
        globalThis.client = connect({ appId: 'asker', appVersion: '1' });
        globalThis.ask = async (n) => {
            const signal = n % 11 === 0 ? AbortSignal.timeout(5) : undefined;
            if (signal) signals.push(signal);
            const end = await client.request('half', n, { to: 'answerer', timeout: 50, signal }).then(
                (half) => (half === n / 2 ? 'answered' : 'wrong'), (error) => error.code ?? error.name);
            ends[end] = (ends[end] ?? 0) + 1;
        };
        globalThis.storm = async () => {
            for (let n = 1; n <= 10_000; n += 100)
                await Promise.all(Array.from({ length: 100 }, (_, i) => ask(n + i)));
            const timers = process.getActiveResourcesInfo().filter((name) => name === 'Timeout');
            return { ends, left: [...timers, ...signals.flatMap((signal) => getEventListeners(signal, 'abort'))].length };
        }; 0`);
    let result;
    const storm = asker.run('storm()').then((value) => (result = value));
    while (result === undefined) {
        const [victim] = answerers.splice(0, 1);
        await victim.end();
        answerers.push(await join());
    }
    await storm;
    const { wrong = 0, answered, ...others } = result.ends;
    assert.equal(wrong, 0);
    assert.ok(answered > 0, JSON.stringify(result));
    assert.equal(Object.values(others).reduce((a, b) => a + b) + answered, 10_000);
    assert.equal(result.left, 0);
});
