'use strict';

// The ways in which processes can talk, everyone with everyone. Each is given the number of this process, the addresses
// of all, and receive(type, payload, appId, appVersion, sourceId): every message carries these five texts. It answers
// send(type, payload), which reaches all others, and may answer a promise.

const { once } = require('node:events');
const net = require('node:net');
const path = require('node:path');

const sourceId = String(process.pid);
const toMessage = (type, payload) => ({ type, payload, appId: 'bench', appVersion: '1.0', sourceId });

const take = (receive, { type, payload, appId, appVersion, sourceId: from }) =>
    receive(type, payload, appId, appVersion, from);

async function takeFrames(socket, receive) {
    for await (const [frame] of socket) take(receive, JSON.parse(frame));
}

module.exports = {
    // Every process is an application of its own. Of two, each addresses the other; otherwise a message goes to everyone.
    bus(number, addresses, receive) {
        const { BrivonAdapter } = require('..');
        const prefix = 'brivon.SuiteMessage.'.length;
        const adapter = new BrivonAdapter(
            `bench-${number}`,
            '1.0',
            addresses.length === 2 ? `bench-${1 - number}` : '',
        );
        adapter.addMessageListener((type, ...rest) => receive(type.slice(prefix), ...rest));
        return (type, payload) => adapter.sendMessage(type, payload);
    },

    // One socket between any two; a line of JSON is made once, and written to each.
    async 'net socket'(number, addresses, receive) {
        const sockets = [];
        const talk = (socket) => {
            let rest = '';
            sockets.push(socket);
            socket.setEncoding('utf8').on('data', (chunk) => {
                const lines = (rest + chunk).split('\n');
                rest = lines.pop();
                for (const line of lines) take(receive, JSON.parse(line));
            });
        };
        await once(net.createServer(talk).listen(addresses[number]), 'listening');
        for (const address of addresses.slice(0, number)) {
            const socket = net.connect(address);
            await once(socket, 'connect');
            talk(socket);
        }
        return (type, payload) => {
            const line = `${JSON.stringify(toMessage(type, payload))}\n`;
            for (const socket of sockets) socket.write(line);
        };
    },

    // A pair of sockets between two; otherwise everyone publishes, and subscribes to all others. Nothing is dropped,
    // however far the sender is ahead.
    async 'zeromq.js'(number, addresses, receive) {
        const { Pair, Publisher, Subscriber } = require(path.join(__dirname, '../build/peers/node_modules/zeromq'));
        const others = addresses.filter((_, other) => other !== number);
        const [sendHighWaterMark, receiveHighWaterMark] = [0, 0];
        const isPair = others.length === 1;
        const sender = isPair
            ? new Pair({ sendHighWaterMark, receiveHighWaterMark })
            : new Publisher({ sendHighWaterMark });
        const receiver = isPair ? sender : new Subscriber({ receiveHighWaterMark });
        if (!isPair || number === 0) await sender.bind(`ipc://${addresses[number]}`);
        if (!isPair) receiver.subscribe();
        if (!isPair || number === 1) for (const address of others) receiver.connect(`ipc://${address}`);
        takeFrames(receiver, receive);
        return (type, payload) => sender.send(JSON.stringify(toMessage(type, payload)));
    },
};
