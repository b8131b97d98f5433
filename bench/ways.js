'use strict';

// The ways in which processes can talk, two of them or everyone with everyone. Every message carries five texts: type,
// payload, appId, appVersion, sourceId.

const net = require('node:net');
const path = require('node:path');

const appId = 'bench';
const appVersion = '1.0';
const sourceId = String(process.pid);

// Where a socket listens.
const addressIn = (folder, name) =>
    process.platform === 'win32' ? `\\\\.\\pipe\\${path.basename(folder)}-${name}` : path.join(folder, `${name}`);

const toMessage = (type, payload) => ({ type, payload, appId, appVersion, sourceId });
const toLine = (type, payload) => `${JSON.stringify(toMessage(type, payload))}\n`;
const toFrame = (type, payload) => JSON.stringify(toMessage(type, payload));

function take(message, receive) {
    receive(message.type, message.payload, message.appId, message.appVersion, message.sourceId);
}

function takeLines(socket, receive) {
    let rest = '';
    socket.setEncoding('utf8').on('data', (chunk) => {
        const lines = (rest + chunk).split('\n');
        rest = lines.pop();
        for (const line of lines) take(JSON.parse(line), receive);
    });
}

async function takeFrames(socket, receive) {
    for await (const [frame] of socket) take(JSON.parse(frame), receive);
}

const listen = (address, talk) => new Promise((resolve) => net.createServer(talk).listen(address, resolve));

function connect(address) {
    return new Promise((resolve, reject) => {
        const socket = net.connect(address, () => resolve(socket)).on('error', reject);
    });
}

function joinBus(receive, ...names) {
    const { BrivonAdapter } = require('..');
    const prefix = 'brivon.SuiteMessage.'.length;
    const adapter = new BrivonAdapter(...names);
    adapter.addMessageListener((type, ...rest) => receive(type.slice(prefix), ...rest));
    return adapter;
}

// Nothing is dropped, however far the sender is ahead.
const unlimitedSend = { sendHighWaterMark: 0 };
const unlimitedReceive = { receiveHighWaterMark: 0 };

// ---- Two processes. Each way answers send(type, payload), which may answer a promise, and calls receive(type, payload,
// appId, appVersion, sourceId). `first` is the partner's side, which is there first.

const pairs = {
    // Every side is an application of its own, and knows the other by its application id.
    async bus(first, address, receive) {
        const [own, other] = first ? ['partner', appId] : [appId, 'partner'];
        const adapter = joinBus(receive, own, appVersion, other);
        while (!first && !adapter.getEndpointCacheSnapshot().some((text) => text.startsWith(`{${other},`))) {
            await new Promise((resolve) => setTimeout(resolve, 20));
            adapter.forceRefreshEndpoints();
        }
        return (type, payload) => adapter.sendMessage(type, payload);
    },

    'child-process channel'(first, address, receive, partner) {
        const end = first ? process : partner;
        end.on('message', (message) => message.type && take(message, receive));
        return (type, payload) => end.send(toMessage(type, payload));
    },

    async 'net socket'(first, address, receive) {
        let socket;
        const talk = (connected) => takeLines((socket = connected), receive);
        if (first) await listen(address, talk);
        else talk(await connect(address));
        return (type, payload) => socket.write(toLine(type, payload));
    },

    async 'zeromq.js'(first, address, receive) {
        const { Pair } = require('zeromq');
        const socket = new Pair({ ...unlimitedSend, ...unlimitedReceive });
        if (first) await socket.bind(`ipc://${address}`);
        else socket.connect(`ipc://${address}`);
        takeFrames(socket, receive);
        return (type, payload) => socket.send(toFrame(type, payload));
    },
};

// ---- Everyone with everyone. Each way is given the addresses of all processes and the number of this one among them;
// those of lower numbers are there. What send takes goes to all others.

const meshes = {
    bus(number, addresses, receive) {
        const adapter = joinBus(receive, appId, appVersion);
        return (type, payload) => adapter.sendMessage(type, payload);
    },

    // The parent has the only channel to each, and passes on what has a type.
    'child-process channel'(number, addresses, receive) {
        process.on('message', (message) => message.type && take(message, receive));
        return (type, payload) => process.send(toMessage(type, payload));
    },

    // One socket between any two.
    async 'net socket'(number, addresses, receive) {
        const sockets = [];
        const talk = (socket) => {
            sockets.push(socket);
            takeLines(socket, receive);
        };
        await listen(addresses[number], talk);
        for (const address of addresses.slice(0, number)) talk(await connect(address));
        return (type, payload) => {
            const line = toLine(type, payload);
            for (const socket of sockets) socket.write(line);
        };
    },

    // Everyone publishes, and subscribes to all others.
    async 'zeromq.js'(number, addresses, receive) {
        const { Publisher, Subscriber } = require('zeromq');
        const publisher = new Publisher(unlimitedSend);
        const subscriber = new Subscriber(unlimitedReceive);
        await publisher.bind(`ipc://${addresses[number]}`);
        subscriber.subscribe();
        for (const address of addresses) {
            if (address !== addresses[number]) subscriber.connect(`ipc://${address}`);
        }
        takeFrames(subscriber, receive);
        return (type, payload) => publisher.send(toFrame(type, payload));
    },
};

module.exports = { addressIn, pairs, meshes };
