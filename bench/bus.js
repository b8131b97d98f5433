'use strict';

// Two processes, and the ways in which they can talk. Started without arguments, measures the ways in turns against
// partners, which are this file started with the way's name and an address; prints the results as JSON.
//
// Every message carries five texts: type, payload, appId, appVersion, sourceId.

const { fork } = require('node:child_process');
const fs = require('node:fs');
const net = require('node:net');
const os = require('node:os');
const path = require('node:path');

const { now, quantile, summarise } = require('./measure');

const rounds = 9;
const sizes = { '100 B': 100, '4 KiB': 4096 };
const messagesOneWay = { '100 B': 10000, '4 KiB': 4000 };
const roundTrips = 500;

const appId = 'bench';
const appVersion = '1.0';
const sourceId = String(process.pid);

// ---- The ways. Each answers send(type, payload), which may answer a promise, and calls receive(type, payload, appId,
// appVersion, sourceId). `first` is the partner's side, which is there first.

// Over the bus every side is an application of its own, and knows the other by its application id.
async function openBus(first, address, receive) {
    const { BrivonAdapter } = require('..');
    const prefix = 'brivon.SuiteMessage.'.length;
    const [own, other] = first ? ['partner', appId] : [appId, 'partner'];
    const adapter = new BrivonAdapter(own, appVersion, other);
    adapter.addMessageListener((type, ...rest) => receive(type.slice(prefix), ...rest));
    while (!first && !adapter.getEndpointCacheSnapshot().some((text) => text.startsWith(`{${other},`))) {
        await new Promise((resolve) => setTimeout(resolve, 20));
        adapter.forceRefreshEndpoints();
    }
    return (type, payload) => adapter.sendMessage(type, payload);
}

function openChannel(first, address, receive, partner) {
    const end = first ? process : partner;
    end.on('message', (message) => {
        if (message.ready) return;
        receive(message.type, message.payload, message.appId, message.appVersion, message.sourceId);
    });
    return (type, payload) => end.send({ type, payload, appId, appVersion, sourceId });
}

async function openSocket(first, address, receive) {
    let socket;
    const talk = (connected) => {
        let rest = '';
        socket = connected.setEncoding('utf8').on('data', (chunk) => {
            const lines = (rest + chunk).split('\n');
            rest = lines.pop();
            for (const line of lines) {
                const message = JSON.parse(line);
                receive(message.type, message.payload, message.appId, message.appVersion, message.sourceId);
            }
        });
    };
    if (first) await new Promise((resolve) => net.createServer(talk).listen(address, resolve));
    else await new Promise((resolve) => talk(net.connect(address, resolve)));
    return (type, payload) => socket.write(`${JSON.stringify({ type, payload, appId, appVersion, sourceId })}\n`);
}

async function openZeromq(first, address, receive) {
    const { Pair } = require('zeromq');
    const socket = new Pair({ sendHighWaterMark: 0, receiveHighWaterMark: 0 });
    if (first) await socket.bind(`ipc://${address}`);
    else socket.connect(`ipc://${address}`);
    (async () => {
        for await (const [frame] of socket) {
            const message = JSON.parse(frame);
            receive(message.type, message.payload, message.appId, message.appVersion, message.sourceId);
        }
    })();
    return (type, payload) => socket.send(JSON.stringify({ type, payload, appId, appVersion, sourceId }));
}

const ways = {
    bus: openBus,
    'child-process channel': openChannel,
    'net socket': openSocket,
    'zeromq.js': openZeromq,
};

// ---- The partner: counts what comes one way and says when it was all, and sends back what is to come back

async function bePartner(way, address) {
    let count = 0;
    const send = await ways[way](true, address, (type, payload) => {
        if (type === 'echo') send('echo', payload);
        else if (type === 'count') ++count;
        else send('counted', String(++count - 1));
        if (type === 'last') count = 0;
    });
    process.on('disconnect', () => process.exit());
    process.send({ ready: true });
}

// ---- The measuring side

async function connect(way, address) {
    const partner = fork(__filename, [way, address]);
    await new Promise((resolve, reject) => {
        partner.once('message', resolve);
        partner.once('exit', () => reject(new Error('its partner ended')));
    });
    let answered;
    const send = await ways[way](false, address, (type, payload) => answered(payload), partner);
    const answer = () => new Promise((resolve) => (answered = resolve));
    return { send, answer };
}

async function messagesASecond({ send, answer }, count, payload) {
    const done = answer();
    const start = now();
    for (let i = 0; i < count; ++i) {
        const sent = send('count', payload);
        if (sent instanceof Promise) await sent;
        // Every way is given the chance to write.
        if (i % 100 === 99) await new Promise(setImmediate);
    }
    await send('last', '');
    const arrived = Number(await done);
    if (arrived !== count) throw new Error(`${arrived} of ${count} messages arrived`);
    return (count / (now() - start)) * 1e6; // thousands a second
}

async function roundTrip({ send, answer }, payload) {
    const times = [];
    for (let i = 0; i < roundTrips; ++i) {
        const done = answer();
        const start = now();
        await send('echo', payload);
        await done;
        times.push((now() - start) / 1000);
    }
    times.sort((a, b) => a - b);
    return { p50: quantile(times, 0.5), p99: quantile(times, 0.99) };
}

async function measure() {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'brivon-bench-'));
    process.env.BRIVON_BUS = `bench-${process.pid}`;
    const links = {};
    const leftOut = {};
    for (const [index, way] of Object.keys(ways).entries()) {
        const address =
            process.platform === 'win32'
                ? `\\\\.\\pipe\\${path.basename(folder)}-${index}`
                : path.join(folder, `${index}`);
        try {
            if (way === 'zeromq.js') require('zeromq');
            links[way] = await connect(way, address);
        } catch (error) {
            leftOut[way] = error.message.split('\n')[0];
        }
    }
    const values = {};
    const note = (what, way, value) => ((values[what] ??= {})[way] ??= []).push(value);
    for (let round = -2; round < rounds; ++round) {
        for (const [way, link] of Object.entries(links)) {
            for (const [size, bytes] of Object.entries(sizes)) {
                const payload = 'x'.repeat(bytes);
                const rate = await messagesASecond(link, messagesOneWay[size], payload);
                const { p50, p99 } = await roundTrip(link, payload);
                if (round < 0) continue;
                note(`one way ${size}`, way, rate);
                note(`round trip ${size} p50`, way, p50);
                note(`round trip ${size} p99`, way, p99);
            }
        }
    }
    fs.rmSync(folder, { recursive: true, force: true });
    const results = Object.entries(values).map(([what, byWay]) => {
        const byPeer = Object.fromEntries(Object.entries(byWay).map(([way, list]) => [way, summarise(list)]));
        const isRate = what.startsWith('one way');
        return { what, isRate, unit: isRate ? 'k/s' : 'us', byPeer };
    });
    results.sort((a, b) => Number(b.isRate) - Number(a.isRate));
    console.log(JSON.stringify({ results, leftOut }));
    process.exit();
}

if (process.argv.length > 2) bePartner(process.argv[2], process.argv[3]);
else measure();
