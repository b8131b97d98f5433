'use strict';

// The ways in which two processes can talk. Every message carries five texts: type, payload, appId, appVersion, sourceId.

const net = require('node:net');

const appId = 'bench';
const appVersion = '1.0';
const sourceId = String(process.pid);

// Each way answers send(type, payload), which may answer a promise, and calls receive(type, payload, appId, appVersion,
// sourceId). `first` is the partner's side, which is there first.

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

module.exports = { ways };
