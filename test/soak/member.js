'use strict';

// One process of the soak: numbers what it sends to each endpoint that it sees, and checks what it hears. An endpoint
// listens by the time it says anything: until then it is only told that this one is there.

const { BrivonAdapter } = require('../../lib');

const SEND_MS = 20;
const HERE = 'here';
const idOf = (text) => text.slice(1, -1).split(',')[2];

const adapter = new BrivonAdapter('soak', '1');
const self = idOf(adapter.getSelfEndpoint());
const sent = {}; // how many, by the receiver's id
const heard = {}; // how many, by the sender's id
let list = '';

adapter.addMessageListener((type, payload, appId, appVersion, sourceId) => {
    const next = (heard[sourceId] ??= 0);
    if (payload === HERE) return;
    if (Number(payload) !== next) process.send({ failed: `${self} hears ${payload} after ${next - 1} of ${sourceId}` });
    heard[sourceId] = Number(payload) + 1;
});
adapter.addErrorListener((type, error, fault) => {
    if (error !== 'Destination unreachable') process.send({ failed: `${self} hears of ${fault}: ${error}` });
});

function beat(isSending) {
    const others = adapter.getEndpoints().map(idOf);
    if (list !== (list = others.join())) process.send({ list: others });
    for (const id of isSending ? others : []) {
        const payload = id in heard ? String((sent[id] = (sent[id] ?? 0) + 1) - 1) : HERE;
        adapter.sendMessage('soak', payload, 'soak', '1', id);
    }
}
const beating = setInterval(() => beat(true), SEND_MS);

process.on('message', (question) => {
    if (question === 'leave') process.exit(0);
    if (question === 'stop') {
        clearInterval(beating);
        setInterval(() => beat(false), SEND_MS);
    }
    if (question === 'resident') gc();
    const answers = { resident: String(process.memoryUsage.rss() / (1 << 20)), counts: { sent, heard } };
    process.send({ answer: answers[question] ?? 'done' });
});
process.send({ joined: self });
