'use strict';

// The local bus, among real processes.

const assert = require('node:assert/strict');
const crypto = require('node:crypto');
const fs = require('node:fs');
const net = require('node:net');
const path = require('node:path');
const { afterEach, test } = require('node:test');

const { busFolder, Endpoint, endedAbnormally, newBus, root, runScript } = require('../support/support');

const isWindows = process.platform === 'win32';
// Where an endpoint listens.
const address = (bus, { id }) => (isWindows ? `\\\\.\\pipe\\brivon-bus-${id}` : path.join(busFolder(bus), id));
const joinAlone = `new (require(root + '/lib').BrivonAdapter)('A', '1');`;
const started = [];
afterEach(() => Promise.all(started.splice(0).map((endpoint) => endpoint.end())));

async function join(bus, ...args) {
    const endpoint = await Endpoint.join(bus, ...args);
    started.push(endpoint);
    return endpoint;
}

const seesExactly = (endpoint, others) =>
    endpoint.until(
        `JSON.stringify(adapter.getEndpointCacheSnapshot().sort()) === ${JSON.stringify(JSON.stringify(others.map(({ self }) => self).sort()))}`,
    );
const sendTo = (sender, receiver, payload, type = 't') =>
    sender.run(
        `adapter.sendMessage(${JSON.stringify(type)}, ${JSON.stringify(payload)}, '${receiver.appId}', '${receiver.appVersion}', '${receiver.id}')`,
    );

test('endpoints find each other, talk, and notice who leaves and who is killed', async () => {
    const bus = newBus();
    const [a, b, c] = [await join(bus, 'A', '1', 'B'), await join(bus, 'B', '1'), await join(bus, 'B', '2')];
    const elsewhere = await join(newBus(), 'B', '1');
    await Promise.all([a, b, c, elsewhere].map((endpoint) => endpoint.listen()));
    await Promise.all([seesExactly(a, [b, c]), seesExactly(b, [a, c]), seesExactly(c, [a, b])]);

    await a.run(`adapter.sendMessage('both', 'to B')`);
    await a.run(`adapter.sendMessage('one', 'to B 2', 'B', '2')`);
    await c.run(`adapter.sendMessage('all', 'to everyone')`);
    await sendTo(b, b, 'to itself');
    const from = ({ self, appId, appVersion, id }) => [appId, appVersion, id];
    const heard = (type, payload, sender) => ({ message: [`brivon.SuiteMessage.${type}`, payload, ...from(sender)] });
    const sorted = (calls) => calls.map(([told]) => JSON.stringify(told)).sort();
    const expected = (...all) => all.map((told) => JSON.stringify(told)).sort();
    assert.deepEqual(sorted(await a.told.atLeast(1)), expected(heard('all', 'to everyone', c)));
    assert.deepEqual(
        sorted(await b.told.atLeast(3)),
        expected(heard('both', 'to B', a), heard('all', 'to everyone', c), heard('t', 'to itself', b)),
    );
    assert.deepEqual(sorted(await c.told.atLeast(2)), expected(heard('both', 'to B', a), heard('one', 'to B 2', a)));

    await c.end('SIGKILL');
    await Promise.all([seesExactly(a, [b]), seesExactly(b, [a])]);
    await sendTo(a, c, 'to the dead');
    assert.deepEqual((await a.told.atLeast(2))[1], [
        { error: ['brivon.ErrorMessage', 'Destination unreachable', c.self] },
    ]);

    await b.run(`setImmediate(() => process.exit(0)); 0`);
    assert.equal((await b.exited).code, 0);
    await seesExactly(a, []);
    assert.deepEqual(elsewhere.told.calls, []);
});

test('messages of one sender arrive complete and in order, 100,000 of them', async () => {
    const bus = newBus();
    const [sender, receiver] = [await join(bus, 'S', '1'), await join(bus, 'R', '1')];
    await seesExactly(sender, [receiver]);
    const count = 100_000;
    await receiver.run(`globalThis.next = 0; globalThis.wrong = 0;
    adapter.addMessageListener((type, payload) => {
      if (payload !== 'message ' + next) ++wrong;
      if (++next === ${count}) tell({ wrong });
    }); 0`);
    await sender.run(`for (let i = 0; i < ${count}; ++i) adapter.sendMessage('t', 'message ' + i); 0`);
    assert.deepEqual(await receiver.told.atLeast(1), [[{ wrong: 0 }]]);
});

test('payloads from nothing to 16 MiB arrive unchanged; beyond the limit a send is refused', async () => {
    const bus = newBus();
    const [sender, receiver] = [await join(bus, 'S', '1'), await join(bus, 'R', '1')];
    await seesExactly(sender, [receiver]);
    const lengths = [0, 1, 2, 65_535, 65_536, 1 << 20, 16 << 20];
    // Latin letters only, so that lengths count bytes.
    const payloads = `[${lengths}].map((length) => 'x'.repeat(length))`;
    const last = 'aé日🙂 after one that is refused';
    await receiver.run(`globalThis.digest = (text) => require('node:crypto').createHash('sha256').update(text).digest('hex');
        adapter.addMessageListener((type, payload) => tell(payload.length + ' ' + digest(payload))); 0`);
    await sender.run(`for (const payload of ${payloads}) adapter.sendMessage('t', payload);
        adapter.sendMessage('t', 'y'.repeat(33 << 20));
        adapter.sendMessage('t', '${last}'); 0`);
    const digest = (text) => `${text.length} ${crypto.createHash('sha256').update(text).digest('hex')}`;
    assert.deepEqual(
        await receiver.told.atLeast(lengths.length + 1),
        [...eval(payloads), last].map((payload) => [digest(payload)]),
    );
});

test('sixteen processes all hear each other', async () => {
    const bus = newBus();
    const all = await Promise.all(Array.from({ length: 16 }, (_, i) => join(bus, `app${i}`, '1')));
    await Promise.all(
        all.map((endpoint) =>
            seesExactly(
                endpoint,
                all.filter((other) => other !== endpoint),
            ),
        ),
    );
    const each = 50;
    await Promise.all(
        all.map((endpoint) =>
            endpoint.run(`globalThis.counts = {};
        adapter.addMessageListener((type, payload, appId) => {
          if (Number(payload) !== (counts[appId] ?? 0)) tell('out of order: ' + appId);
          counts[appId] = Number(payload) + 1;
          if (Object.values(counts).reduce((a, b) => a + b) === ${15 * each}) tell(Object.keys(counts).length);
        }); 0`),
        ),
    );
    await Promise.all(
        all.map((endpoint) => endpoint.run(`for (let i = 0; i < ${each}; ++i) adapter.sendMessage('t', String(i)); 0`)),
    );
    for (const endpoint of all) assert.deepEqual(await endpoint.told.atLeast(1), [[15]]);
});

test(
    'what waits for a receiver that is killed comes back, and the others hear everything',
    { skip: isWindows && 'a process cannot be stopped here' },
    async () => {
        const bus = newBus();
        const [sender, victim, other] = [
            await join(bus, 'S', '1', 'R'),
            await join(bus, 'R', '1'),
            await join(bus, 'R', '1'),
        ];
        await seesExactly(sender, [victim, other]);
        await sender.listen();
        await other.run(`globalThis.count = 0; adapter.addMessageListener(() => { ++count; }); 0`);
        // A stopped receiver takes what the system buffers, and the rest waits in the sender.
        victim.process.kill('SIGSTOP');
        await sender.run(`for (let i = 0; i < 2000; ++i) adapter.sendMessage('t', 'x'.repeat(1000)); 0`);
        await other.until('count === 2000');
        victim.process.kill('SIGKILL');
        await sender.told.atLeast(1);
        assert.deepEqual(sender.told.calls[0], [
            { error: ['brivon.ErrorMessage', 'Destination unreachable', victim.self] },
        ]);
        await seesExactly(sender, [other]);
        await sender.run(`adapter.sendMessage('t', 'afterwards'); 0`);
        await other.until('count === 2001');
    },
);

test(
    'a receiver that does not read has sends to it refused, not queued without limit',
    { skip: isWindows && 'a process cannot be stopped here' },
    async () => {
        const bus = newBus();
        const [sender, stopped] = [await join(bus, 'S', '1', 'R'), await join(bus, 'R', '1')];
        await seesExactly(sender, [stopped]);
        await stopped.run(`adapter.addMessageListener((type, payload) => tell(parseInt(payload))); 0`);
        stopped.process.kill('SIGSTOP');
        await sender.run(`for (let i = 0; i < 200; ++i) adapter.sendMessage('t', String(i).padEnd(1 << 20)); 0`);
        stopped.process.kill('SIGCONT');
        // By then there is room for another one.
        const told = await stopped.told.atLeast(60);
        await sender.run(`adapter.sendMessage('t', '-1')`);
        for (let count = told.length; told.at(-1)[0] !== -1; ++count) await stopped.told.atLeast(count + 1);
        const accepted = told.slice(0, -1).map(([number]) => number);
        assert.deepEqual(accepted, [...accepted.keys()]);
        assert.ok(accepted.length <= 64, `64 MiB may wait for a receiver, and ${accepted.length} MiB did`);
    },
);

test('garbage on a socket closes that connection and nothing else', async () => {
    const bus = newBus();
    const [a, b] = [await join(bus, 'A', '1'), await join(bus, 'B', '1')];
    await seesExactly(a, [b]);
    await b.listen();
    const frame = (...parts) => {
        const body = Buffer.concat(parts);
        const length = Buffer.alloc(4);
        length.writeUInt32LE(body.length);
        return Buffer.concat([length, body]);
    };
    const field = (text) => frame(Buffer.from(text));
    const hello = (id) => frame(Buffer.from([1]), field('brivon-bus-1'), field(id), field('X'), field('1'));
    const stranger = crypto.randomBytes(16).toString('hex');
    const garbage = [
        crypto.randomBytes(1 << 16),
        Buffer.alloc(4), // a frame of no length
        Buffer.from([255, 255, 255, 255]), // a frame of 4 GiB
        frame(Buffer.from([9])),
        frame(Buffer.from([1]), field('another protocol'), field(stranger), field('X'), field('1')),
        hello('../../../etc/passwd'),
        hello(b.id),
        Buffer.concat([hello(stranger), frame(Buffer.from([2]), Buffer.from([255, 0, 0, 0]))]),
        Buffer.concat([hello(stranger), hello(stranger)]),
    ];
    for (const bytes of garbage) {
        const socket = net.connect(address(bus, b));
        socket.on('error', () => {});
        const closed = new Promise((resolve) => socket.on('close', resolve));
        socket.resume().write(bytes);
        await closed;
    }
    const silent = net.connect(address(bus, b)); // connects and never says a thing
    await sendTo(a, b, 'still here');
    await b.told.atLeast(1);
    assert.equal(b.told.calls[0][0].message[1], 'still here');
    await seesExactly(b, [a]);
    silent.destroy();
});

test(
    'the folder of a bus is closed to others, and one that is not is refused',
    { skip: isWindows && 'folders of users are closed by the system here' },
    async () => {
        const bus = newBus();
        await join(bus, 'A', '1');
        assert.equal(fs.statSync(busFolder(bus)).mode & 0o777, 0o700);
        assert.equal(fs.statSync(path.dirname(busFolder(bus))).mode & 0o777, 0o700);

        const attempt = async (name, prepare) => {
            prepare(busFolder(name));
            const ended = await runScript(joinAlone, { env: { BRIVON_BUS: name } });
            assert.ok(endedAbnormally(ended));
            return ended.stderr.split('\n')[0];
        };
        const make = (folder) => fs.mkdirSync(folder, { mode: 0o700 });
        const [open, file, link] = [newBus(), newBus(), newBus()];
        assert.equal(
            await attempt(open, (folder) => (make(folder), fs.chmodSync(folder, 0o750))),
            `BrivonMessage5: the bus folder ${busFolder(open)} is open to other users; close it with: chmod 700 ${busFolder(open)}`,
        );
        assert.equal(
            await attempt(file, (folder) => fs.writeFileSync(folder, '')),
            `BrivonMessage5: the bus folder ${busFolder(file)} is not a folder`,
        );
        assert.equal(
            await attempt(link, (folder) => fs.symlinkSync(busFolder(bus), folder)),
            `BrivonMessage5: the bus folder ${busFolder(link)} is not a folder`,
        );
        assert.equal(
            await attempt('../x', () => {}),
            "BrivonMessage5: BRIVON_BUS must be 1 to 32 letters, digits, '-', '_' or '.', and not begin with '.'",
        );
    },
);

const isRoot = !isWindows && process.geteuid() === 0;
test(
    'the folder of a bus that another user owns is refused',
    { skip: !isRoot && 'only root on a POSIX system can make a folder of another user' },
    async () => {
        const bus = newBus();
        fs.mkdirSync(busFolder(bus), { mode: 0o700 });
        fs.chownSync(busFolder(bus), 12345, 12345);
        const ended = await runScript(joinAlone, { env: { BRIVON_BUS: bus } });
        assert.ok(endedAbnormally(ended));
        assert.equal(
            ended.stderr.split('\n')[0],
            `BrivonMessage5: the bus folder ${busFolder(bus)} belongs to another user (uid 12345)`,
        );
    },
);

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

test(
    'a peer that hangs before it says a word does not keep caches from being rebuilt',
    { skip: isWindows && 'a process cannot be stopped here' },
    async () => {
        const bus = newBus();
        const hung = await join(bus, 'H', '1');
        hung.process.kill('SIGSTOP');
        const a = await join(bus, 'A', '1');
        const refreshes = a.run(`globalThis.refreshing = setInterval(() => adapter.forceRefreshEndpoints(), 200); 0`);
        const b = await join(bus, 'B', '1');
        await refreshes;
        await seesExactly(a, [b]);
        hung.process.kill('SIGCONT');
        await seesExactly(a, [b, hung]);
    },
);

test('a program that sends and ends at once is heard', async (t) => {
    const bus = newBus();
    const receiver = await join(bus, 'R', '1');
    await receiver.listen();
    // Windows ends a library's threads before the library learns of the exit.
    const ends = isWindows ? ['', ''] : ['process.exit(0)', ''];
    if (isWindows) t.diagnostic('process.exit() right after a send loses messages here');
    for (const end of ends) {
        const ended = await runScript(
            `const adapter = new (require(root + '/lib').BrivonAdapter)('S', '1');
      for (let i = 0; i < 1000; ++i) adapter.sendMessage('t', 'x'.repeat(1000));
      ${end}`,
            { env: { BRIVON_BUS: bus } },
        );
        assert.equal(ended.code, 0, ended.stderr);
    }
    assert.equal((await receiver.told.atLeast(2000)).length, 2000);
    await seesExactly(receiver, []);
});

test('the module runs unchanged on another implementation of the contract', async () => {
    const { buildDirectory } = require('../support/support');
    const folder = fs.mkdtempSync(path.join(buildDirectory, 'test', 'swap-'));
    fs.copyFileSync(path.join(buildDirectory, 'BrivonJS.node'), path.join(folder, 'BrivonJS.node'));
    for (const name of fs.readdirSync(buildDirectory).filter((file) => /BrivonControl/.test(file)))
        fs.copyFileSync(path.join(buildDirectory, name), path.join(folder, name));
    const another = path.join(buildDirectory, 'test', 'another');
    for (const name of fs.readdirSync(another)) fs.copyFileSync(path.join(another, name), path.join(folder, name));
    const ended = await runScript(
        `const adapter = new (require(root + '/lib').BrivonAdapter)('A', '1');
    adapter.sendMessage('type', 'payload');
    console.log(adapter.getSelfEndpoint());`,
        { env: { BRIVONJS_MODULE: path.join(folder, 'BrivonJS.node') } },
    );
    fs.rmSync(folder, { recursive: true });
    assert.deepEqual(ended, {
        code: 0,
        signal: null,
        stdout: 'another library sends brivon.SuiteMessage.type\0: payload\0\n{another library,,}\n'.replaceAll(
            '\0',
            '',
        ),
        stderr: '',
    });
});
