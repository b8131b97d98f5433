'use strict';

// What two processes on the bus keep in memory, in MiB: memory.js <flow | stop>, with --expose-gc; prints the figures as
// JSON. The receiver is this file again. It confirms what it has received over the bus, and tells its memory through the
// channel to its parent.

const { fork } = require('node:child_process');

const { summarise } = require('./measure');
const { pairs } = require('./ways');

const mebibyte = 2 ** 20;
const million = 1e6;
const batch = 1000; // messages that are confirmed together
const offered = 300; // MiB that are sent to a receiver that has stopped

const sleep = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));
const resident = () => process.memoryUsage.rss() / mebibyte;

async function memoryAtRest() {
    global.gc();
    await sleep(20);
    return resident();
}

async function beReceiver() {
    let count = 0;
    const send = await pairs.bus(true, '', (type) => {
        if (type === 'last') send('all', String(count));
        else if (++count % batch === 0) send('some', String(count));
    });
    process.on('message', async () => process.send(await memoryAtRest()));
    process.on('disconnect', () => process.exit());
    process.send('ready');
}

async function connect(receive) {
    process.env.BRIVON_BUS = `bench-${process.pid}`;
    const receiver = fork(__filename, ['receive'], { execArgv: ['--expose-gc'] });
    const answer = () => new Promise((resolve) => receiver.once('message', resolve));
    await answer();
    const send = await pairs.bus(false, '', (type, payload) => receive(type, Number(payload)));
    return { receiver, answer, send };
}

// Both sides ten times in each of five million messages, of which never more than two batches are under way.
async function measureFlow() {
    let confirmed = 0;
    const { receiver, answer, send } = await connect((type, count) => (confirmed = count));
    const payload = 'x'.repeat(100);
    const values = [1, 2, 3, 4, 5].map(() => ({ sender: [], receiver: [] }));
    for (let sent = 0; sent < 5 * million;) {
        const { sender: ownValues, receiver: otherValues } = values[Math.floor(sent / million)];
        for (let i = 0; i < batch; ++i) {
            send('count', payload);
            if (i % 100 === 99) await new Promise(setImmediate);
        }
        sent += batch;
        while (sent - confirmed >= 2 * batch) await sleep(1);
        if (sent % (million / 10) !== 0) continue;
        while (confirmed < sent) await sleep(1);
        ownValues.push(await memoryAtRest());
        receiver.send('memory');
        otherValues.push(await answer());
    }
    return values.map(({ sender, receiver: other }) => ({ sender: summarise(sender), receiver: summarise(other) }));
}

// The sender alone, while the receiver reads nothing.
async function measureStop() {
    let all;
    const { receiver, send } = await connect((type, count) => type === 'all' && (all = count));
    const payload = 'x'.repeat(4096);
    const count = (offered * mebibyte) / payload.length;
    const before = await memoryAtRest();
    receiver.kill('SIGSTOP');
    for (let i = 0; i < count; ++i) {
        send('count', payload);
        if (i % 100 === 99) await new Promise(setImmediate);
    }
    const after = resident();
    const most = process.resourceUsage().maxRSS / 1024;
    receiver.kill('SIGCONT');
    // Refused for as long as there is no room.
    while (all === undefined) {
        send('last', '');
        await sleep(100);
    }
    return { before, after, most, offered, taken: (all * payload.length) / mebibyte };
}

async function measure(what) {
    console.log(JSON.stringify(await (what === 'flow' ? measureFlow() : measureStop())));
    process.exit();
}

if (process.argv[2] === 'receive') beReceiver();
else measure(process.argv[2]);
