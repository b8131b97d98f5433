'use strict';

// The client, on the scripted libraries.

const assert = require('node:assert/strict');
const { getEventListeners, once } = require('node:events');
const { afterEach, test } = require('node:test');
const { setTimeout: sleep } = require('node:timers/promises');

const { control, messaging } = require('brivonjs/standins');
const { connect, ERROR_TYPE, launch, TYPE_PREFIX } = require('brivonjs/client');
const { Presence } = require('../../lib/client/presence');
const { collectUntil, Endpoint, newBus, runScript, until } = require('../support/support');

const configuration = { appId: 'notes', appVersion: '2.1', defaultAppId: 'calendar' };
const client = connect(configuration);
const calendar = { id: '7', appId: 'calendar', appVersion: '3.0' };
const another = { id: '9', appId: 'calendar', appVersion: '4.0' };
const odd = { id: '8', appId: 'mail', appVersion: '1,0' };
const everyone = [calendar, another, odd];
messaging.setEndpoints(everyone);

afterEach(() => {
    client.removeAllListeners();
    messaging.setEndpoints(everyone);
    for (const script of [messaging, control]) script.takeCalls();
});

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
const fail = (fault, error = 'Destination unreachable') => messaging.deliver({ type: ERROR_TYPE, error, fault });
const ask = (name, id, body, source) => hear(`request:${name}`, JSON.stringify({ id, body }), source);
const request = (options) => client.request('q', { x: 1 }, { to: { ...calendar }, ...options });
// Answers the request that was sent last: [what the envelope holds, the source, the name].
const reply = (...answers) => {
    const { id } = JSON.parse(sent().findLast(([type]) => type === 'request:q')[1]);
    for (const [content, source, name = 'q'] of answers)
        hear(`answer:${name}`, JSON.stringify({ id, ...content }), source);
};

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
    for (const to of ['', [], {}, new Map(), new Date(), /x/, null, { appVersion: '4.0' }, { appId: 'x', id: '2' }])
        assert.throws(() => client.send('t', '', { to }), { code: 'ERR_INVALID_ARG_VALUE' }, String(to));
    for (const [code, call] of [
        ['ERR_BRIVONJS_UNKNOWN_TARGET', () => client.send('t', '', { to: 'x' })],
        ['ERR_BRIVONJS_UNKNOWN_TARGET', () => client.send('t', '', { to: 'mail' })],
        ['ERR_BRIVONJS_UNKNOWN_TARGET', () => client.send('t', '', { to: 'mail,1' })],
        ['ERR_INVALID_ARG_VALUE', () => client.send('t', { big: 1n })],
        ['ERR_INVALID_ARG_VALUE', () => client.send('t', new Date())],
        ['ERR_INVALID_ARG_VALUE', () => client.send('t', '', { too: 'x' })],
        ['ERR_INVALID_ARG_VALUE', () => client.send('t', 'a\0b')],
        ['ERR_INVALID_ARG_VALUE', () => client.send('t', '\ud800')],
        ['ERR_INVALID_ARG_VALUE', () => connect({ ...configuration, appVersion: '' })],
        ['ERR_BRIVONJS_CONNECTED', () => connect({ ...configuration, appVersion: '3' })],
    ])
        assert.throws(call, { code }, `${call}`);
    assert.deepEqual(sent(), []);
    messaging.answer('Send', 2);
    assert.throws(() => client.send('t', 'x'), { code: 'ERR_BRIVONJS_TOO_LARGE' });
});

test('what arrives is told with its parts, and what a listener throws is an error event', async () => {
    const rest = { type: 't', fullType: `${TYPE_PREFIX}t`, source: calendar };
    for (const [text, payload] of Object.entries({ '[1]': [1], 'not {json}': 'not {json}' })) {
        const heard = once(client, 'message');
        hear('t', text);
        assert.deepEqual(await heard, [{ ...rest, payload, text }]);
    }
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

test('who comes and goes is told, can be sent to, and is looked for once in a turn', async () => {
    const newcomer = { appId: 'new', appVersion: '1', id: '5' };
    const events = [];
    for (const event of ['joined', 'left']) client.on(event, ({ appId, id }) => events.push(`${event} ${appId} ${id}`));
    const present = client.whenPresent('new', { timeout: Infinity });
    messaging.setEndpoints([newcomer]);
    assert.deepEqual(await present, newcomer);
    assert.deepEqual(await client.whenPresent(newcomer), newcomer);
    client.send('t', '', { to: 'new' });
    assert.deepEqual([client.endpoints, sent()], [[newcomer], [['t', '', '5']]]);
    messaging.setEndpoints([]);
    await until(() => events.length === 5);
    const left = ['left calendar 7', 'left calendar 9', 'left mail 8', 'left new 5'];
    assert.deepEqual(events.sort(), ['joined new 5', ...left]);
    const controller = new AbortController();
    const waits = [client.whenPresent('x', { signal: controller.signal }), client.whenPresent('x', { timeout: 1 })];
    controller.abort(new Error('enough'));
    await assert.rejects(waits[0], /enough/);
    await assert.rejects(waits[1], { code: 'ERR_BRIVONJS_TIMEOUT' });
    assert.deepEqual(getEventListeners(controller.signal, 'abort'), []);
    let looks = 0;
    const snapshot = () => (++looks, ['{calendar,3.0,7}']);
    const presence = new Presence({ getEndpointCacheSnapshot: snapshot, getSelfEndpoint: () => '' }, () => false);
    await sleep(0);
    const target = { appId: 'calendar', appVersion: '', id: '' };
    for (let i = 0; i < 100; ++i) assert.equal(presence.destination(target).id, '7');
    assert.equal(looks, 1);
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
    for (const loop of [few, ended]) assert.deepEqual(await loop.next(), { value: undefined, done: true });
    assert.deepEqual(getEventListeners(controller.signal, 'abort'), []);
    const left = client.messages();
    const pending = [left.next(), left.next()];
    await left.return();
    for (const { done } of await Promise.all(pending)) assert.ok(done);
});

test('requests of others are answered, with errors that cross, until they are taken back', async () => {
    let aborted;
    const contexts = [];
    client.handle('add', async ({ a, b }, { source, signal }) => {
        if (a === undefined) throw Object.assign(new RangeError('no a'), { code: 'E' });
        if (b === undefined) aborted = once(signal, 'abort').then(() => source);
        return aborted ?? a + b;
    });
    client.handle('never', (body, context) => (contexts.push(new WeakRef(context)), new Promise(() => {})));
    client.handle('odd', () => {
        throw { get message() { throw new Error('no message'); } }; // prettier-ignore
    });
    const takeBack = client.handle('next', () => {});
    takeBack();
    client.handle('next', () => 'next');
    takeBack();
    assert.throws(() => client.handle('add', () => {}), { code: 'ERR_BRIVONJS_HANDLED' });
    ask('add', '1', { a: 1, b: 2 });
    ask('add', '2', {});
    ask('sub', '3');
    ask('odd', '5');
    ask('next', '6');
    ask('add', '4', { a: 1 });
    ask('never', '7');
    hear('request:add', 'no envelope');
    const nobody = { name: 'Error', code: 'ERR_BRIVONJS_NO_HANDLER' };
    let answers = [];
    await until(() => (answers = answers.concat(sent())).length === 5 && contexts.length === 1);
    assert.deepEqual(
        answers.map(([type, payload, ids]) => [type, JSON.parse(payload), ids]).sort(([, a], [, b]) => a.id - b.id),
        [
            ['answer:add', { id: '1', body: 3 }, '7'],
            ['answer:add', { id: '2', error: { name: 'RangeError', message: 'no a', code: 'E' } }, '7'],
            ['answer:sub', { id: '3', error: { ...nobody, message: "nobody answers 'sub'" } }, '7'],
            ['answer:odd', { id: '5', error: { message: 'an error that cannot be sent' } }, '7'],
            ['answer:next', { id: '6', body: 'next' }, '7'],
        ],
    );
    hear('cancel:add', '{"id":"4"}', another); // which has not asked
    hear('cancel:never', '{"id":"7"}');
    await collectUntil(() => contexts[0].deref() === undefined);
    const others = Promise.race([aborted, sleep(1, 'not aborted')]);
    assert.equal(await others, 'not aborted');
    hear('cancel:add', '{"id":"4"}');
    assert.deepEqual(await aborted, calendar);
    assert.deepEqual(sent(), []);
});

test('a request ends with whatever is first, and leaves nothing behind', async () => {
    const controller = new AbortController();
    const answered = request({ signal: controller.signal });
    reply([{ body: 1 }, another], [{ body: 2 }, calendar, 'other'], [{ body: 3, error: null }]);
    assert.equal(await answered, 3);
    const kept = await (async () => {
        const signal = new AbortController().signal;
        const collected = request({ signal });
        reply([{ body: 1 }]);
        await collected;
        return new WeakRef(signal);
    })();
    await collectUntil(() => kept.deref() === undefined);
    for (const error of [{ name: 'RangeError', message: 'no', code: 'E' }, 'no', { message: ['no'] }]) {
        const failed = request();
        reply([{ error }]);
        const [code, expected] = ['ERR_BRIVONJS_ANSWER', typeof error === 'string' ? undefined : error.code];
        await assert.rejects(failed, (thrown) => thrown.code === code && thrown.cause.code === expected);
    }
    // Of several, those that do not know the question are no answer while another one may.
    const unknown = [{ error: { code: 'ERR_BRIVONJS_NO_HANDLER', message: '' } }, another];
    const first = request({ to: 'calendar', timeout: 2 ** 31 });
    await sleep(2); // by when the shortest time would be over
    reply(unknown, [{ body: 4 }]);
    assert.equal(await first, 4);
    const none = request({ to: 'calendar' });
    reply(unknown);
    fail('{calendar,3.0,7}');
    await assert.rejects(none, { code: 'ERR_BRIVONJS_ANSWER' });
    const lost = request({ timeout: Infinity });
    for (const fault of ['{mail,1,0,8}', '{calendar,3.0,7}']) fail(fault);
    await assert.rejects(lost, { code: 'ERR_BRIVONJS_UNREACHABLE', message: /calendar,3.0,7/ });
    const close = () => reply([{ error: { code: 'ERR_BRIVONJS_CLOSED', message: '' } }]);
    for (const leave of [close, () => messaging.setEndpoints([another])]) {
        const gone = request();
        leave();
        await assert.rejects(gone, { code: 'ERR_BRIVONJS_UNREACHABLE' });
    }
    messaging.setEndpoints([calendar]);
    const aborted = request({ signal: controller.signal });
    controller.abort();
    await assert.rejects(aborted, { name: 'AbortError' });
    assert.deepEqual(getEventListeners(controller.signal, 'abort'), []);
    assert.ok(!process.getActiveResourcesInfo().includes('Timeout'));
});

test('an error of the bus ends what it is about, and is told of what the program has sent', async () => {
    const taken = request();
    const { id } = JSON.parse(sent()[0][1]);
    messaging.answer('Send', 3);
    await assert.rejects(request(), { code: 'ERR_BRIVONJS_FULL' });
    fail('{calendar,3.0,7}', 'Receiver does not read');
    await once(client, 'unreachable');
    hear('answer:q', JSON.stringify({ id, body: 5 }));
    assert.equal(await taken, 5);

    const errors = [];
    client.on('unreachable', ({ endpoint }) => errors.push(endpoint.id));
    messaging.takeCalls();
    const [one, both] = [request({ timeout: 1 }), request({ to: 'calendar', timeout: 1 })];
    messaging.setEndpoints([calendar, odd]);
    for (const late of [one, both]) await assert.rejects(late, { code: 'ERR_BRIVONJS_TIMEOUT' });
    const toWhom = sent().map(([type, , ids]) => `${type} ${ids}`);
    assert.deepEqual(toWhom, ['request:q 7', 'request:q 7 9', 'cancel:q 7', 'cancel:q 7']);
    for (const id of [8, 7, 7, 7]) fail(`{calendar,3.0,${id}}`); // two of them are of the withdrawals
    await until(() => errors.length === 2);
    assert.deepEqual(errors, ['8', '7']);
});

test('an error of what was waited for has the stack of the call', async () => {
    async function caller(call) {
        await call();
    }
    messaging.setEndpoints([calendar]);
    control.answer('LaunchApp', false);
    for (const call of [
        () => request({ timeout: 1 }),
        () => client.request('q', {}, { to: 'x' }),
        () => client.whenPresent('x', { timeout: 1 }),
        () => launch('a'),
    ])
        await assert.rejects(caller(call), ({ stack }) => /at (async )?caller /.test(stack), `${call}`);
});

test('a launch passes its options on, waits for the program, and says why there was none', async () => {
    control.answer('LaunchApp', true, 2);
    await launch('a', { focus: false, args: '--week' });
    const launches = () => control.takeCalls().filter(({ operation }) => operation === 'LaunchApp');
    assert.deepEqual(launches()[0].arguments, ['a', false, '--week']);
    assert.deepEqual(await launch('a', { waitFor: 'calendar' }), calendar);
    for (const [answer, isInstalled, message, cause] of [
        [false, false, /not installed/],
        [false, true, /the library refused/],
        [{ throws: 'the disk is full' }, true, /the disk is full/, new Error('the disk is full')],
    ]) {
        control.answer('LaunchApp', answer);
        control.answer('IsAppInstalled', isInstalled);
        await assert.rejects(launch('a'), { code: 'ERR_BRIVONJS_NOT_LAUNCHED', message, ...(cause && { cause }) });
        control.reset();
    }
    const controller = new AbortController();
    const { signal } = controller;
    control.answer('LaunchApp', true);
    await launch('a', { signal });
    assert.deepEqual(getEventListeners(signal, 'abort'), []);
    launches();
    control.answer('LaunchApp', { holds: true });
    const held = launch('a', { signal });
    await until(() => launches().length === 1); // so that it is held
    controller.abort(new Error('enough'));
    await assert.rejects(held, /enough/);
    control.releaseLaunches();
    await assert.rejects(launch('a', { signal }), /enough/);
    await assert.rejects(launch('a', { waitFor: [] }), { code: 'ERR_INVALID_ARG_VALUE' });
    assert.deepEqual(launches(), []);
});

test('a closed client is closed for those who share it last, refuses what needs it open, and opens again', async () => {
    assert.equal(connect(configuration), client);
    client.close();
    client.broadcast('t', '');
    let signal;
    const handle = () => client.handle('wait', (body, context) => ({ signal } = context) && new Promise(() => {}));
    handle();
    ask('wait', '1');
    await until(() => signal !== undefined);
    client.on('message', () => assert.fail('heard after the end'));
    const loop = client.messages();
    const pending = [request(), client.whenPresent('x'), loop.next(), loop.next()];
    sent();
    client.close();
    const closed = { code: 'ERR_BRIVONJS_CLOSED' };
    for (const waiting of pending.slice(0, 2)) await assert.rejects(waiting, closed);
    for (const next of pending.slice(2)) assert.deepEqual(await next, { value: undefined, done: true });
    assert.ok(signal.aborted);
    assert.throws(() => client.broadcast('t', ''), closed);
    hear('t', '');
    ask('wait', '2');
    let answers = [];
    await until(() => (answers = answers.concat(sent())).length === 3);
    const parts = answers.map(([type, payload]) => [type, JSON.parse(payload).error?.code]);
    const refused = ['answer:wait', closed.code];
    assert.deepEqual(parts.sort(), [refused, refused, ['cancel:q', undefined]]);
    connect(configuration);
    handle()();
    const heard = once(client, 'message');
    hear('again', '');
    assert.equal((await heard)[0].type, 'again');
});

test('a program with a wrong bus, or whose only request was refused, ends as programs do', async () => {
    const script = `(async () => require(root + '/lib/client').connect({ appId: 'a', appVersion: '1' }).request('q'))()
        .catch(({ code, message }) => console.log(code, message));`;
    for (const [bus, output] of [
        [newBus(), /^ERR_BRIVONJS_UNKNOWN_TARGET there is neither to nor a default application/],
        ['a/b', /^ERR_BRIVONJS_BUS BRIVON_BUS must be 1 to 32 letters/],
    ]) {
        const { code, signal, stdout } = await runScript(script, { env: { BRIVON_BUS: bus } });
        assert.deepEqual([code, signal], [0, null]);
        assert.match(stdout, output);
    }
});

// Some are answered, some fail, time out or are aborted, and those who answer are killed meanwhile.
test('ten thousand requests, in a storm of kills, leave nothing behind', async (t) => {
    const bus = newBus();
    const asker = await Endpoint.join(t, bus, 'asker', '1');
    const load = `const { connect } = require(${JSON.stringify(require.resolve('brivonjs/client'))});`;
    const join = async () => {
        const answerer = await Endpoint.join(t, bus, 'answerer', '1');
        await answerer.run(`${load} connect({ appId: 'answerer', appVersion: '1' }).handle('half', (n) => {
            if (n % 7 === 0) throw new Error('seven');
            return n % 5 === 0 ? new Promise(() => {}) : n / 2;
        }); 0`);
        return answerer;
    };
    const answerers = await Promise.all([join(), join()]);
    await asker.sees(...answerers);
    let result;
    const storm = asker.run(`${load} (async () => {
        const client = connect({ appId: 'asker', appVersion: '1' });
        const [ends, signals] = [{}, []];
        const ask = async (n) => {
            const signal = n % 11 === 0 ? AbortSignal.timeout(5) : undefined;
            if (signal) signals.push(signal);
            const end = await client.request('half', n, { to: 'answerer', timeout: 50, signal }).then(
                (half) => (half === n / 2 ? 'answered' : 'wrong'), (error) => error.code ?? error.name);
            ends[end] = (ends[end] ?? 0) + 1;
        };
        for (let n = 1; n <= 10_000; n += 100) await Promise.all(Array.from({ length: 100 }, (_, i) => ask(n + i)));
        const left = signals.flatMap((signal) => require('node:events').getEventListeners(signal, 'abort'));
        return { ends, left: left.concat(process.getActiveResourcesInfo().filter((name) => name === 'Timeout')).length };
    })()`);
    storm.then((value) => (result = value));
    while (result === undefined) {
        await answerers.shift().end();
        answerers.push(await join());
    }
    const { wrong, answered, ...others } = result.ends;
    assert.deepEqual([wrong, result.left], [undefined, 0]);
    assert.equal(Object.values(others).reduce((a, b) => a + b) + answered, 10_000);
});
