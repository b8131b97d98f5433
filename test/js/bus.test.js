'use strict';

// The local bus, among real processes.

const assert = require('node:assert/strict');
const { execFileSync } = require('node:child_process');
const crypto = require('node:crypto');
const fs = require('node:fs');
const net = require('node:net');
const path = require('node:path');
const { test } = require('node:test');

const { busFolder, Endpoint, endedAbnormally, newBus, runScript, until } = require('../support/support');

const isWindows = process.platform === 'win32';
const posix = { skip: isWindows && 'the system has no means for this' };
const adapter = `const adapter = new (require(root + '/lib').BrivonAdapter)('A', '1');`;

const failure = (error, fault) => ({ error: ['brivon.ErrorMessage', error, fault] });
const unreachable = ({ self }) => failure('Destination unreachable', self);

// Resolves once each of these endpoints sees all others.
const meeting = (...all) => Promise.all(all.map((one) => one.sees(...all.filter((other) => other !== one))));

// Endpoints on a bus of their own with these constructor arguments, once they have met.
async function meet(t, ...all) {
    const bus = newBus();
    const endpoints = await Promise.all(all.map((args) => Endpoint.join(t, bus, ...args)));
    await meeting(...endpoints);
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
    const all = [a, b, c, elsewhere];
    await Promise.all(all.map((endpoint) => endpoint.listen()));
    const counts = () => all.map(({ told }) => told.calls.length);

    for (const [sender, payload, target, receivers, total] of [
        [a, 'to B', [], [b, c], [0, 1, 1, 0]],
        [a, 'to B 2', ['B', '2'], [c], [0, 1, 2, 0]],
        [c, 'to everyone', [], [a, b], [1, 2, 2, 0]],
        [b, 'to itself', b.target, [b], [1, 3, 2, 0]],
    ]) {
        await sender.send('t', payload, ...target);
        for (const receiver of receivers) {
            const heard = await receiver.told.atLeast(total[all.indexOf(receiver)]);
            assert.deepEqual(heard.at(-1), [{ message: ['brivon.SuiteMessage.t', payload, ...sender.target] }]);
        }
        assert.deepEqual(counts(), total);
    }

    await c.end();
    await meeting(a, b);
    await a.send('t', 'to the dead', ...c.target);
    assert.deepEqual((await a.told.atLeast(2)).at(-1), [unreachable(c)]);

    assert.equal((await b.leave()).code, 0);
    await a.sees();
    assert.deepEqual(counts(), [2, 3, 2, 0]);
});

// A sanitizer's allocator keeps blocks to find out who uses them, and other systems' keep what they like.
const keepsMemory = isWindows || (process.env.LD_PRELOAD ?? '').includes('asan');
test('payloads of all sizes arrive unchanged and their memory is given back; too large ones are refused', async (t) => {
    // Large blocks come straight from the system and go straight back.
    process.env.MALLOC_MMAP_THRESHOLD_ = '131072';
    t.after(() => delete process.env.MALLOC_MMAP_THRESHOLD_);
    const [sender, receiver] = await meet(t, ['S', '1'], ['R', '1']);
    await sender.listen();
    const before = await receiver.run('resident()');
    await receiver.run(`adapter.addMessageListener((type, payload) =>
        tell(payload === 'x'.repeat(payload.length) ? payload.length : payload.slice(0, 40))); 0`);
    const lengths = [0, 1, 2, 65_535, 65_536, 1 << 20, 31 << 20];
    const last = 'aé日🙂 after one that is refused';
    await sender.run(`for (const length of [${lengths}, 33 << 20]) adapter.sendMessage('t', 'x'.repeat(length));
        adapter.sendMessage('t', '${last}'); 0`);
    assert.deepEqual((await receiver.told.atLeast(lengths.length + 1)).flat(), [...lengths, last]);
    const tooLarge = failure('Message too large', `brivon.SuiteMessage.t, ${(33 << 20) + 90} bytes`);
    assert.deepEqual(await sender.told.atLeast(1), [[tooLarge]]);
    if (keepsMemory) t.diagnostic('the allocator does not give memory back here');
    else await receiver.until(`resident() < ${before + 16}`);
});

test('a receiver that does not read costs only itself, and its senders hear of it once', posix, async (t) => {
    const [sender, stopped, healthy] = await meet(t, ['S', '1'], ['R', '1'], ['H', '1']);
    const count = 'heard = []; adapter.addMessageListener((type, payload) => heard.push(parseInt(payload))); 0';
    await Promise.all([stopped.run(count), healthy.run(count), sender.listen()]);
    const full = failure('Receiver does not read', stopped.self);
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

    stopped.process.kill('SIGCONT');
    // By then there is room for another one, and then there is none again.
    await stopped.until('heard.length >= 60');
    await send(11, 1, toStopped);
    await stopped.until('heard.at(-1) === 119');
    const heard = await stopped.run('heard');
    assert.deepEqual(heard.slice(0, -10), [...heard.slice(0, -10).keys()]);
    assert.ok(heard.length <= 74, `64 MiB may wait for a receiver, and ${heard.length - 10} MiB did`);
    assert.deepEqual(await sender.told.atLeast(1), [[full]]);
    stopped.process.kill('SIGSTOP');
    await send(12, 7, toStopped);
    assert.deepEqual(await sender.told.atLeast(2), [[full], [full]]);

    // What waits for it comes back when it is killed, and the others hear everything.
    await stopped.end();
    assert.deepEqual((await sender.told.atLeast(3))[2], [unreachable(stopped)]);
    await sender.sees(healthy);
    await send(10, 1, broadcast);
    assert.deepEqual(await healthy.run('heard'), [...Array(110).keys()]);
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

test('an endpoint that greets and hangs up is tried again after pauses', async (t) => {
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

test('nothing is lost to a process that is short of descriptors for a while', posix, async (t) => {
    const [short] = await meet(t, ['P', '1']);
    const limit = (count) => execFileSync('prlimit', [`--pid=${short.process.pid}`, `--nofile=${count}:1000`]);
    await Promise.all([short.listen(), short.run('adapter.getSelfEndpoint()')]);
    // Room for three of the sixteen connections that eight others mean.
    limit(fs.readdirSync(`/proc/${short.process.pid}/fd`).length + 3);
    const others = await Promise.all(Array.from({ length: 8 }, (_, i) => Endpoint.join(t, short.bus, `app${i}`, '1')));
    await Promise.all(others.map((other) => other.listen()));
    await Promise.all(others.map((other) => other.until('adapter.getEndpoints().length >= 7')));
    // Resolves to how many have been sent: none to one that is not seen.
    const send = (endpoint, { self, target }) =>
        endpoint.run(`adapter.getEndpointCacheSnapshot().includes('${self}')
            ? Array.from({ length: 20 }, () => adapter.sendMessage('t', '', ...${JSON.stringify(target)})).length : 0`);
    const fromShort = await Promise.all(others.map((other) => send(short, other)));
    const toShort = await Promise.all(others.map((other) => send(other, short)));
    assert.ok([...fromShort, ...toShort].includes(20));
    limit(1000);
    await meeting(short, ...others);
    const sum = toShort.reduce((a, b) => a + b);
    for (const [{ told }, count] of [[short, sum], ...others.map((other, i) => [other, fromShort[i]])]) {
        const heard = (await told.atLeast(count)).flat();
        assert.deepEqual([heard.length, heard.filter(({ error }) => error)], [count, []]);
    }
});

test('the folder of a bus is closed to others, and one that is not is refused', posix, async (t) => {
    const [{ bus }] = await meet(t, ['A', '1']);
    for (const folder of [busFolder(bus), path.dirname(busFolder(bus))])
        assert.equal(fs.statSync(folder).mode & 0o777, 0o700);

    const folders = [
        ['is not a folder', 'touch'],
        ['is not a folder', 'ln', '-s', busFolder(bus)],
        ['is open to other users; close it with: chmod 700 FOLDER', 'mkdir', '-m', '750'],
        ['belongs to another user (uid 12345)', 'install', '-d', '-o', '12345'],
    ];
    if (process.geteuid() !== 0) t.diagnostic(`only root can make one that ${folders.pop()[0]}`);
    const cases = folders.map(([complaint, program, ...args]) => {
        const name = newBus();
        execFileSync(program, [...args, busFolder(name)]);
        return [name, `the bus folder FOLDER ${complaint}`];
    });
    const badName = "BRIVON_BUS must be 1 to 32 letters, digits, '-', '_' or '.', and not begin with '.'";
    const long = 'the application id and version have 65537 bytes, and not quite 64 KiB is the limit';
    cases.push(['a/b', badName], ['.x', badName]);
    cases.push([newBus(), `cannot join the bus: ${long}`, adapter.replace(`'A'`, `'A'.repeat(1 << 16)`)]);
    for (const [name, complaint, join = adapter] of cases) {
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
            let collected;
            const registry = new FinalizationRegistry(() => (collected = true));
            for (let i = 0; i < 200; ++i) {
                collected = false;
                (() => registry.register(new BrivonAdapter('churn', '1'), 0))();
                await collectUntil(() => collected);
            }
        })();`;
    const ended = await Promise.all([1, 2, 3].map(() => runScript(churn, { env: { BRIVON_BUS: bus } })));
    for (const { code, stderr } of ended) assert.deepEqual([code, stderr], [0, '']);
    assert.deepEqual(fs.readdirSync(busFolder(bus)), []);
});

test('a peer that hangs before it says a word does not keep caches from being rebuilt', posix, async (t) => {
    const [hung] = await meet(t, ['H', '1']);
    hung.process.kill('SIGSTOP');
    const a = await Endpoint.join(t, hung.bus, 'A', '1');
    await a.run(`globalThis.refreshing = setInterval(() => adapter.forceRefreshEndpoints(), 200); 0`);
    const b = await Endpoint.join(t, hung.bus, 'B', '1');
    await a.sees(b);
    hung.process.kill('SIGCONT');
    await a.sees(b, hung);
});

test('what a program sends before it ends at once is heard, complete and in order', async (t) => {
    const [receiver] = await meet(t, ['R', '1']);
    await receiver.run(`adapter.addMessageListener((type, payload) => tell(parseInt(payload))); 0`);
    // Windows ends a library's threads before the library learns of the exit.
    const ends = isWindows ? ['', ''] : ['process.exit(0)', ''];
    if (isWindows) t.diagnostic('process.exit() right after a send loses messages here');
    for (const end of ends) {
        const script = `${adapter} for (let i = 0; i < 10_000; ++i) adapter.sendMessage('t', String(i).padEnd(100)); ${end}`;
        const { code, stderr } = await runScript(script, { env: { BRIVON_BUS: receiver.bus } });
        assert.equal(code, 0, stderr);
    }
    const heard = (await receiver.told.atLeast(20_000)).flat();
    assert.deepEqual([heard.length, heard.findIndex((number, i) => number !== i % 10_000)], [20_000, -1]);
    await receiver.sees();
});
