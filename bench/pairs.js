'use strict';

// Two processes. Started without arguments, measures the ways in which they can talk in turns, against partners, which
// are this file started with the way's name and an address; prints the results as JSON.

const { fork } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const { now, quantile, summarise } = require('./measure');
const { addressIn, pairs } = require('./ways');

const rounds = 9;
const sizes = { '100 B': 100, '4 KiB': 4096 };
const messagesOneWay = { '100 B': 10000, '4 KiB': 4000 };
const roundTrips = 500;

// ---- The partner: counts what comes one way and says when it was all, and sends back what is to come back

async function bePartner(way, address) {
    let count = 0;
    process.on('disconnect', () => process.exit());
    try {
        const send = await pairs[way](true, address, (type, payload) => {
            if (type === 'echo') send('echo', payload);
            else if (type === 'count') ++count;
            else send('counted', String(++count - 1));
            if (type === 'last') count = 0;
        });
        process.send({ ready: true });
    } catch (error) {
        process.send({ failure: error.message.split('\n')[0] });
    }
}

// ---- The measuring side

async function connect(way, address) {
    const partner = fork(__filename, [way, address]);
    await new Promise((resolve, reject) => {
        partner.once('message', ({ failure }) => (failure === undefined ? resolve() : reject(new Error(failure))));
        partner.once('exit', () => reject(new Error('its partner ended')));
    });
    let answered;
    const send = await pairs[way](false, address, (type, payload) => answered(payload), partner);
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
    for (const [index, way] of Object.keys(pairs).entries()) {
        const address = addressIn(folder, index);
        try {
            links[way] = await connect(way, address);
        } catch (error) {
            leftOut[way] = error.message;
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
    const results = Object.entries(values).map(([what, lists]) => {
        const byWay = Object.fromEntries(Object.entries(lists).map(([way, list]) => [way, summarise(list)]));
        const isRate = what.startsWith('one way');
        return { what, isRate, unit: isRate ? 'k/s' : 'us', byWay };
    });
    results.sort((a, b) => Number(b.isRate) - Number(a.isRate));
    console.log(JSON.stringify({ results, leftOut }));
    process.exit();
}

if (process.argv.length > 2) bePartner(process.argv[2], process.argv[3]);
else measure();
