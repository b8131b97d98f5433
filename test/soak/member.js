'use strict';

// What an endpoint of the soak does: it numbers what it sends to each endpoint that it sees, and checks what it hears. An
// endpoint listens by the time it says anything: until then it is only told that this one is there.

const SEND_MS = 20;
const HERE = 'here';
const { adapter, tell } = globalThis;
const idOf = (text) => text.slice(1, -1).split(',')[2];
const sent = {}; // how many, by the receiver's id
const heard = {}; // how many, by the sender's id
let list = '';

adapter.addMessageListener((type, payload, appId, appVersion, sourceId) => {
    const next = (heard[sourceId] ??= 0);
    if (payload === HERE) return;
    if (Number(payload) !== next) tell({ failed: `hears ${payload} after ${next - 1} of ${sourceId}` });
    heard[sourceId] = Number(payload) + 1;
});
adapter.addErrorListener((type, error, fault) => {
    if (error !== 'Destination unreachable') tell({ failed: `hears of ${fault}: ${error}` });
});

let isSending = true;
setInterval(() => {
    const others = adapter.getEndpoints().map(idOf);
    if (list !== (list = others.join())) tell({ list: others });
    for (const id of isSending ? others : []) {
        const payload = id in heard ? String((sent[id] = (sent[id] ?? 0) + 1) - 1) : HERE;
        adapter.sendMessage('soak', payload, 'soak', '1', id);
    }
}, SEND_MS);

globalThis.counts = { sent, heard };
globalThis.stopSending = () => (isSending = false);
