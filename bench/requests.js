'use strict';

// Requests and responses between two processes, the client's and those that a program writes on the raw classes. A process
// has one of the two, for listeners belong to the process: each is this file, started with its kind and its number.

const { randomUUID } = require('node:crypto');

const { now } = require('./measure');
const { Processes } = require('./processes');

const add = ({ a, b }) => a + b;

// Each answers what the other process asks, and asks it for a sum.
const kinds = {
    client(appId, other) {
        const { connect } = require('../lib/client');
        const client = connect({ appId, appVersion: '1.0' });
        client.handle('add', add);
        return (body) => client.request('add', body, { to: other });
    },

    // Answers and a time limit, without errors that cross, targets that must be there, and ends of any other kind.
    'by hand'(appId, other) {
        const { BrivonAdapter } = require('../lib');
        const waiting = new Map();
        const adapter = new BrivonAdapter(appId, '1.0', other);
        adapter.addMessageListener((type, payload, ...source) => {
            const { id, body } = JSON.parse(payload);
            if (type === 'brivon.SuiteMessage.add')
                adapter.sendMessage('sum', JSON.stringify({ id, body: add(body) }), ...source);
            else waiting.get(id)?.(body);
        });
        return (body) =>
            new Promise((resolve, reject) => {
                const id = randomUUID();
                const end = (settle, value) => {
                    clearTimeout(timer);
                    waiting.delete(id);
                    settle(value);
                };
                const timer = setTimeout(() => end(reject, new Error('no answer')), 30000);
                waiting.set(id, (sum) => end(resolve, sum));
                adapter.sendMessage('add', JSON.stringify({ id, body }));
            });
    },
};

// Answers the nanoseconds of each question, when so many are under way at a time.
async function askAll(ask, count, atOnce) {
    let left = count;
    const one = async () => {
        for (let a; (a = --left) >= 0;) if ((await ask({ a, b: 1 })) !== a + 1) throw new Error('an answer is wrong');
    };
    const start = now();
    await Promise.all(Array.from({ length: atOnce }, one));
    return (now() - start) / count;
}

function beMember(kind, number) {
    const ask = kinds[kind](`bench-${number}`, `bench-${1 - number}`);
    process.on('disconnect', () => process.exit());
    process.on('message', async ({ values }) => process.send(await askAll(ask, ...values)));
    process.send('ready');
}

// Two processes of a kind.
async function startPair(kind, build) {
    const pair = new Processes(build);
    for (const number of [0, 1]) await pair.add(__filename, [kind, number]);
    return pair;
}

if (require.main === module) beMember(process.argv[2], Number(process.argv[3]));

module.exports = { kinds: Object.keys(kinds), startPair };
