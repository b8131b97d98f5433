'use strict';

// The local bus, among real processes.

const assert = require('node:assert/strict');
const crypto = require('node:crypto');
const fs = require('node:fs');
const net = require('node:net');
const path = require('node:path');
const { test } = require('node:test');

const { busFolder, Endpoint, endedAbnormally, newBus, runScript } = require('../support/support');

const isWindows = process.platform === 'win32';
const stopping = { skip: isWindows && 'a process cannot be stopped here' };
const adapter = `const adapter = new (require(root + '/lib').BrivonAdapter)('A', '1');`;

// Endpoints on a bus of their own with these constructor arguments, once each sees all others.
async function meet(t, ...all) {
    const bus = newBus();
    const endpoints = await Promise.all(all.map((args) => Endpoint.join(t, bus, ...args)));
    await Promise.all(endpoints.map((endpoint) => endpoint.sees(...endpoints.filter((other) => other !== endpoint))));
    return endpoints;
}

test('endpoints find each other, talk, and notice who leaves and who is killed', async (t) => {
    const [a, b, c] = await meet(t, ['A', '1', 'B'], ['B', '1'], ['B', '2']);
    const [elsewhere] = await meet(t, ['B', '1']);
    await Promise.all([a, b, c, elsewhere].map((endpoint) => endpoint.listen()));

    await a.send('both', 'to B');
    await a.send('one', 'to B 2', 'B', '2');
    await c.send('all', 'to everyone');
    await b.send('self', 'to itself', ...b.target);
    const heard = (type, payload, sender) => ({ message: [`brivon.SuiteMessage.${type}`, payload, ...sender.target] });
    const [both, one] = [heard('both', 'to B', a), heard('one', 'to B 2', a)];
    const [all, self] = [heard('all', 'to everyone', c), heard('self', 'to itself', b)];
    const sorted = (told) => told.map((what) => JSON.stringify(what)).sort();
    for (const [endpoint, ...expected] of [
        [a, all],
        [b, both, all, self],
        [c, both, one],
    ])
        assert.deepEqual(sorted((await endpoint.told.atLeast(expected.length)).flat()), sorted(expected));

    await c.end();
    await Promise.all([a.sees(b), b.sees(a)]);
    await a.send('t', 'to the dead', ...c.target);
    const [, [error]] = await a.told.atLeast(2);
    assert.deepEqual(error, { error: ['brivon.ErrorMessage', 'Destination unreachable', c.self] });

    await b.run(`setImmediate(() => process.exit(0)); 0`);
    assert.equal((await b.exited).code, 0);
    await a.sees();
    assert.deepEqual(elsewhere.told.calls, []);
});

test('messages of one sender arrive complete and in order, 100,000 of them', async (t) => {
    const [sender, receiver] = await meet(t, ['S', '1'], ['R', '1']);
    const count = 100_000;
    await receiver.run(`globalThis.next = 0; globalThis.wrong = 0;
        adapter.addMessageListener((type, payload) => {
            if (payload !== 'message ' + next) ++wrong;
            if (++next === ${count}) tell({ wrong });
        }); 0`);
    await sender.run(`for (let i = 0; i < ${count}; ++i) adapter.sendMessage('t', 'message ' + i); 0`);
    assert.deepEqual(await receiver.told.atLeast(1), [[{ wrong: 0 }]]);
});

test('payloads from nothing to 16 MiB arrive unchanged; beyond the limit a send is refused', async (t) => {
    const [sender, receiver] = await meet(t, ['S', '1'], ['R', '1']);
    const lengths = [0, 1, 2, 65_535, 65_536, 1 << 20, 16 << 20];
    const last = 'aé日🙂 after one that is refused';
    await receiver.run(`globalThis.digest = ${digest};
        adapter.addMessageListener((type, payload) => tell(digest(payload))); 0`);
    // Latin letters only, so that lengths count bytes.
    await sender.run(`for (const length of [${lengths}]) adapter.sendMessage('t', 'x'.repeat(length));
        adapter.sendMessage('t', 'y'.repeat(33 << 20));
        adapter.sendMessage('t', '${last}'); 0`);
    assert.deepEqual(
        (await receiver.told.atLeast(lengths.length + 1)).flat(),
        [...lengths.map((length) => 'x'.repeat(length)), last].map(digest),
    );
});

function digest(text) {
    return `${text.length} ${require('node:crypto').createHash('sha256').update(text).digest('hex')}`;
}

test('sixteen processes all hear each other', async (t) => {
    const all = await meet(t, ...Array.from({ length: 16 }, (_, i) => [`app${i}`, '1']));
    const each = 50;
    const listen = `globalThis.counts = {};
        adapter.addMessageListener((type, payload, appId) => {
            if (Number(payload) !== (counts[appId] ?? 0)) tell('out of order: ' + appId);
            counts[appId] = Number(payload) + 1;
            if (Object.values(counts).reduce((a, b) => a + b) === ${15 * each}) tell(Object.keys(counts).length);
        }); 0`;
    await Promise.all(all.map((endpoint) => endpoint.run(listen)));
    const send = `for (let i = 0; i < ${each}; ++i) adapter.sendMessage('t', String(i)); 0`;
    await Promise.all(all.map((endpoint) => endpoint.run(send)));
    for (const endpoint of all) assert.deepEqual(await endpoint.told.atLeast(1), [[15]]);
});

test('what waits for a receiver that is killed comes back, and the others hear everything', stopping, async (t) => {
    const [sender, victim, other] = await meet(t, ['S', '1', 'R'], ['R', '1'], ['R', '1']);
    await sender.listen();
    await other.run(`globalThis.count = 0; adapter.addMessageListener(() => { ++count; }); 0`);
    // A stopped receiver takes what the system buffers, and the rest waits in the sender.
    victim.process.kill('SIGSTOP');
    await sender.run(`for (let i = 0; i < 2000; ++i) adapter.sendMessage('t', 'x'.repeat(1000)); 0`);
    await other.until('count === 2000');
    await victim.end();
    const [[error]] = await sender.told.atLeast(1);
    assert.deepEqual(error, { error: ['brivon.ErrorMessage', 'Destination unreachable', victim.self] });
    await sender.sees(other);
    await sender.send('t', 'afterwards');
    await other.until('count === 2001');
});

test('a receiver that does not read has sends to it refused, not queued without limit', stopping, async (t) => {
    const [sender, stopped] = await meet(t, ['S', '1', 'R'], ['R', '1']);
    await stopped.run(`adapter.addMessageListener((type, payload) => tell(parseInt(payload))); 0`);
    stopped.process.kill('SIGSTOP');
    await sender.run(`for (let i = 0; i < 200; ++i) adapter.sendMessage('t', String(i).padEnd(1 << 20)); 0`);
    stopped.process.kill('SIGCONT');
    // By then there is room for another one.
    const told = await stopped.told.atLeast(60);
    await sender.send('t', '-1');
    while (told.at(-1)[0] !== -1) await stopped.told.atLeast(told.length + 1);
    const accepted = told.flat().slice(0, -1);
    assert.deepEqual(accepted, [...accepted.keys()]);
    assert.ok(accepted.length <= 64, `64 MiB may wait for a receiver, and ${accepted.length} MiB did`);
});

test('messages sent one by one to a receiver that does not read arrive whole and in order', stopping, async (t) => {
    const [sender, stopped] = await meet(t, ['S', '1', 'R'], ['R', '1']);
    await stopped.run(`adapter.addMessageListener((type, payload) => tell([parseInt(payload), payload.length])); 0`);
    stopped.process.kill('SIGSTOP');
    const count = 20;
    // Soon there is room for a part of one only.
    for (let i = 0; i < count; ++i) await sender.send('t', String(i).padEnd(50_000));
    stopped.process.kill('SIGCONT');
    assert.deepEqual(
        (await stopped.told.atLeast(count)).flat(),
        Array.from({ length: count }, (_, i) => [i, 50_000]),
    );
});

test('garbage on a socket closes that connection and nothing else', async (t) => {
    const [a, b] = await meet(t, ['A', '1'], ['B', '1']);
    await b.listen();
    const frame = (...parts) => {
        const body = Buffer.concat(parts);
        const length = Buffer.alloc(4);
        length.writeUInt32LE(body.length);
        return Buffer.concat([length, body]);
    };
    const field = (text) => frame(Buffer.from(text));
    const hello = (id, protocol = 'brivon-bus-1') =>
        frame(Buffer.from([1]), field(protocol), field(id), field('X'), field('1'));
    const stranger = crypto.randomBytes(16).toString('hex');
    const connect = () =>
        net.connect(isWindows ? `\\\\.\\pipe\\brivon-bus-${b.id}` : path.join(busFolder(b.bus), b.id));
    for (const bytes of [
        crypto.randomBytes(1 << 16),
        Buffer.alloc(4), // a frame of no length
        Buffer.from([255, 255, 255, 255]), // a frame of 4 GiB
        frame(Buffer.from([9])),
        hello(stranger, 'another protocol'),
        hello('../../../etc/passwd'),
        hello(b.id),
        Buffer.concat([hello(stranger), frame(Buffer.from([2]), Buffer.from([255, 0, 0, 0]))]),
        Buffer.concat([hello(stranger), hello(stranger)]),
    ]) {
        const socket = connect().on('error', () => {});
        const closed = new Promise((resolve) => socket.on('close', resolve));
        socket.resume().write(bytes);
        await closed;
    }
    const silent = connect(); // never says a thing
    await a.send('t', 'still here', ...b.target);
    const [[{ message }]] = await b.told.atLeast(1);
    assert.equal(message[1], 'still here');
    await b.sees(a);
    silent.destroy();
});

const closing = { skip: isWindows && 'folders of users are closed by the system here' };
test('the folder of a bus is closed to others, and one that is not is refused', closing, async (t) => {
    const [{ bus }] = await meet(t, ['A', '1']);
    for (const folder of [busFolder(bus), path.dirname(busFolder(bus))])
        assert.equal(fs.statSync(folder).mode & 0o777, 0o700);

    const isRoot = process.geteuid() === 0;
    if (!isRoot) t.diagnostic('only root can make a folder of another user');
    const folders = [
        ['is not a folder', (folder) => fs.writeFileSync(folder, '')],
        ['is not a folder', (folder) => fs.symlinkSync(busFolder(bus), folder)],
        [
            'is open to other users; close it with: chmod 700 FOLDER',
            (folder) => (fs.mkdirSync(folder), fs.chmodSync(folder, 0o750)),
        ],
        ['belongs to another user (uid 12345)', (folder) => (fs.mkdirSync(folder), fs.chownSync(folder, 12345, 12345))],
    ];
    const cases = folders.slice(0, isRoot ? 4 : 3).map(([complaint, make]) => {
        const name = newBus();
        make(busFolder(name));
        return [name, `the bus folder FOLDER ${complaint}`];
    });
    const badName = "BRIVON_BUS must be 1 to 32 letters, digits, '-', '_' or '.', and not begin with '.'";
    for (const [name, complaint] of [...cases, ['a/b', badName], ['.x', badName]]) {
        const ended = await runScript(adapter, { env: { BRIVON_BUS: name } });
        assert.ok(endedAbnormally(ended));
        const [first] = ended.stderr.split('\n');
        assert.equal(first.replaceAll(busFolder(name), 'FOLDER'), `BrivonMessage5: ${complaint}`);
    }
});

test('programs that join while others leave all get on the bus', async () => {
    const bus = newBus();
    const churn = `
        const { BrivonAdapter } = require(root + '/lib');
        const { collectUntil } = require(root + '/test/support/support');
        (async () => {
            for (let i = 0; i < 200; ++i) {
                let collected = false;
                const registry = new FinalizationRegistry(() => (collected = true));
                (() => registry.register(new BrivonAdapter('churn', '1'), 0))();
                await collectUntil(() => collected);
            }
        })();`;
    const ended = await Promise.all([1, 2, 3].map(() => runScript(churn, { env: { BRIVON_BUS: bus } })));
    for (const { code, stderr } of ended) assert.deepEqual([code, stderr], [0, '']);
    assert.equal(fs.existsSync(busFolder(bus)), false, 'the last to leave removes the folder');
});

test('a peer that hangs before it says a word does not keep caches from being rebuilt', stopping, async (t) => {
    const [hung] = await meet(t, ['H', '1']);
    hung.process.kill('SIGSTOP');
    const a = await Endpoint.join(t, hung.bus, 'A', '1');
    await a.run(`globalThis.refreshing = setInterval(() => adapter.forceRefreshEndpoints(), 200); 0`);
    const b = await Endpoint.join(t, hung.bus, 'B', '1');
    await a.sees(b);
    hung.process.kill('SIGCONT');
    await a.sees(b, hung);
});

test('a program that sends and ends at once is heard', async (t) => {
    const [receiver] = await meet(t, ['R', '1']);
    await receiver.listen();
    // Windows ends a library's threads before the library learns of the exit.
    const ends = isWindows ? ['', ''] : ['process.exit(0)', ''];
    if (isWindows) t.diagnostic('process.exit() right after a send loses messages here');
    for (const end of ends) {
        const script = `${adapter} for (let i = 0; i < 1000; ++i) adapter.sendMessage('t', 'x'.repeat(1000)); ${end}`;
        const { code, stderr } = await runScript(script, { env: { BRIVON_BUS: receiver.bus } });
        assert.equal(code, 0, stderr);
    }
    assert.equal((await receiver.told.atLeast(2000)).length, 2000);
    await receiver.sees();
});
