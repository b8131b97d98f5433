'use strict';

// The local bus, among real processes.

const assert = require('node:assert/strict');
const { execFileSync } = require('node:child_process');
const crypto = require('node:crypto');
const fs = require('node:fs');
const net = require('node:net');
const path = require('node:path');
const { test } = require('node:test');

const {
    buildDirectory,
    busFolder,
    Endpoint,
    endedAbnormally,
    newBus,
    runScript,
    until,
} = require('../support/support');

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

// What stands on the wire.
const frame = (...parts) => {
    const body = Buffer.concat(parts);
    const length = Buffer.alloc(4);
    length.writeUInt32LE(body.length);
    return Buffer.concat([length, body]);
};
const field = (text) => frame(Buffer.from(text));
const hello = (id, protocol = 'brivon-bus-1') =>
    frame(Buffer.from([1]), field(protocol), field(id), field('X'), field('1'));
const addressOf = (bus, id) => (isWindows ? `\\\\.\\pipe\\brivon-bus-${id}` : path.join(busFolder(bus), id));

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

test('a receiver that does not read costs only itself, and its senders hear of it once', stopping, async (t) => {
    const [sender, stopped, healthy] = await meet(t, ['S', '1'], ['R', '1'], ['H', '1']);
    const count =
        'globalThis.heard = []; adapter.addMessageListener((type, payload) => heard.push(parseInt(payload))); 0';
    await Promise.all([stopped.run(count), healthy.run(count), sender.listen()]);
    const full = { error: ['brivon.ErrorMessage', 'Receiver does not read', stopped.self] };
    const [broadcast, toStopped] = [[], stopped.target];
    // Pieces of 10 MiB, which the healthy one has read before the next.
    const send = async (from, pieces, target) => {
        for (let piece = from; piece < from + pieces; ++piece) {
            await sender.run(`for (let i = 0; i < 10; ++i)
                adapter.sendMessage('t', String(${10 * piece} + i).padEnd(1 << 20), ...${JSON.stringify(target)}); 0`);
            if (target === broadcast) await healthy.until(`heard.length === ${10 * (piece + 1)}`);
        }
    };
    stopped.process.kill('SIGSTOP');
    await send(0, 10, broadcast);
    await send(10, 1, toStopped);
    await sender.send('t', 'z'.repeat(33 << 20), ...healthy.target);
    const tooLarge = {
        error: ['brivon.ErrorMessage', 'Message too large', `brivon.SuiteMessage.t, ${(33 << 20) + 90} bytes`],
    };
    assert.deepEqual((await sender.told.atLeast(2)).flat(), [full, tooLarge]);

    stopped.process.kill('SIGCONT');
    // By then there is room for another one, and then there is none again.
    await stopped.until('heard.length >= 60');
    await send(11, 1, toStopped);
    await stopped.until('heard.at(-1) === 119');
    const heard = await stopped.run('heard');
    assert.deepEqual(heard.slice(0, -10), [...heard.slice(0, -10).keys()]);
    assert.ok(heard.length <= 74, `64 MiB may wait for a receiver, and ${heard.length - 10} MiB did`);
    stopped.process.kill('SIGSTOP');
    await send(12, 7, toStopped);
    assert.deepEqual((await sender.told.atLeast(3)).flat(), [full, tooLarge, full]);
    stopped.process.kill('SIGCONT');
});

test('garbage on a socket closes that connection and nothing else', async (t) => {
    const [a, b] = await meet(t, ['A', '1'], ['B', '1']);
    await b.listen();
    const stranger = crypto.randomBytes(16).toString('hex');
    const connect = () => net.connect(addressOf(b.bus, b.id));
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

test('an endpoint that greets and hangs up is tried again after growing pauses', async (t) => {
    const [a] = await meet(t, ['A', '1']);
    const id = crypto.randomBytes(16).toString('hex');
    let connections = 0;
    const server = net.createServer((socket) => {
        ++connections;
        socket.on('error', () => {}).end(hello(id));
    });
    await new Promise((resolve) => server.listen(addressOf(a.bus, id), resolve));
    t.after(() => server.close());
    if (isWindows) fs.writeFileSync(path.join(busFolder(a.bus), id), '');
    await a.run('adapter.forceRefreshEndpoints()');
    await until(() => connections >= 5);
    const before = connections;
    await new Promise((resolve) => setTimeout(resolve, 1000));
    assert.ok(connections - before < 10, `${connections - before} connections in a second`);
});

const limiting = { skip: isWindows && 'a process has no limit of descriptors here' };
test('nothing is lost to a process that is short of descriptors for a while', limiting, async (t) => {
    const [short] = await meet(t, ['P', '1']);
    const limit = (count) => execFileSync('prlimit', [`--pid=${short.process.pid}`, `--nofile=${count}:1000`]);
    const open = () => fs.readdirSync(`/proc/${short.process.pid}/fd`).length;
    await Promise.all([short.listen(), short.run('adapter.getSelfEndpoint()')]);
    // Room for three of the sixteen connections that eight others mean.
    limit(open() + 3);
    const others = await Promise.all(Array.from({ length: 8 }, (_, i) => Endpoint.join(t, short.bus, `app${i}`, '1')));
    await Promise.all(others.map((other) => other.listen()));
    await Promise.all(others.map((other) => other.until('adapter.getEndpointCacheSnapshot().length >= 7')));
    const send = (endpoint, target) =>
        endpoint.run(`adapter.getEndpointCacheSnapshot().includes('${target.self}')
            ? Array.from({ length: 20 }, () => adapter.sendMessage('t', '', ...${JSON.stringify(target.target)})).length
            : 0`);
    const counts = await Promise.all(others.map(async (other) => [await send(short, other), await send(other, short)]));
    assert.ok(counts.flat().includes(20));
    limit(1000);
    await Promise.all([
        short.sees(...others),
        ...others.map((other) => other.sees(short, ...others.filter((one) => one !== other))),
    ]);
    const sum = (list) => list.reduce((a, b) => a + b, 0);
    const heard = [...(await short.told.atLeast(sum(counts.map(([, toShort]) => toShort)))).flat()];
    for (const [i, [fromShort]] of counts.entries()) heard.push(...(await others[i].told.atLeast(fromShort)).flat());
    assert.equal(heard.filter(({ message }) => message).length, sum(counts.flat()));
    assert.deepEqual(
        heard.filter(({ error }) => error),
        [],
    );
});

// A sanitizer's allocator keeps blocks to find out who uses them, and other systems' keep what they like.
const keepsMemory = isWindows || (process.env.LD_PRELOAD ?? '').includes('asan');
const measuring = { skip: keepsMemory && 'the allocator does not give memory back here' };
test('memory for the largest payload is given back', measuring, async (t) => {
    // Large blocks come straight from the system and go straight back.
    process.env.MALLOC_MMAP_THRESHOLD_ = '131072';
    t.after(() => delete process.env.MALLOC_MMAP_THRESHOLD_);
    const [sender, receiver] = await meet(t, ['S', '1'], ['R', '1']);
    await receiver.run(`require('node:v8').setFlagsFromString('--expose-gc');
        globalThis.collect = require('node:vm').runInNewContext('gc');
        globalThis.resident = () => (collect(), process.memoryUsage.rss() / (1 << 20));
        globalThis.before = resident();
        adapter.addMessageListener((type, payload) => tell(payload.length)); 0`);
    await sender.send('t', 'x'.repeat(31 << 20));
    await receiver.told.atLeast(1);
    await receiver.until('resident() < before + 16');
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
    const long = 'the application id and version have 65537 bytes, and not quite 64 KiB is the limit';
    for (const [name, complaint, join = adapter] of [
        ...cases,
        ['a/b', badName],
        ['.x', badName],
        [newBus(), `cannot join the bus: ${long}`, adapter.replace(`'A'`, `'A'.repeat(1 << 16)`)],
    ]) {
        const ended = await runScript(join, { env: { BRIVON_BUS: name } });
        assert.ok(endedAbnormally(ended));
        const [first] = ended.stderr.split('\n');
        assert.equal(first.replaceAll(busFolder(name), 'FOLDER'), `BrivonMessage5: ${complaint}`);
    }
});

test('programs that join while others leave all get on the bus, and leave nothing of one that crashed', async () => {
    const bus = newBus();
    const unpublished = `${crypto.randomBytes(16).toString('hex')}.new`;
    const crash = `${adapter} const end = () => process.kill(process.pid, 'SIGKILL');
        require('node:net').createServer().listen(${JSON.stringify(path.join(busFolder(bus), unpublished))}, end);`;
    if (!isWindows) await runScript(crash, { env: { BRIVON_BUS: bus } });
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
