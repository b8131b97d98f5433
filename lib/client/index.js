'use strict';

// What programs write on top of the two classes: one client per process, with JSON in payloads, targets that must be there,
// questions with answers, and launches as promises. It is the only user of the listeners, which belong to the process.

const { randomUUID } = require('node:crypto');
const { EventEmitter } = require('node:events');

const { BrivonAdapter } = require('../index');
const { applications, launch } = require('./control');
const { ERROR_TYPE, TYPE_PREFIX } = require('../constants');
const { Questions } = require('./questions');
const { Queue } = require('./queue');
const values = require('./values');

const { checked, coded, invalid, nonEmpty, signalOf, text, toEndpoint } = values;

const REQUEST_TIMEOUT_MS = 30_000;
const WAITING_MESSAGES = 1_000;

// An application that nobody is: what is sent to it goes to everyone, whatever the default application.
const NOBODY = randomUUID();

// Kept for good, open or not: the collection of its adapter would silence the next one.
let only;

function connect(options) {
    const { appId, appVersion, defaultAppId = '' } = checked(options, ['appId', 'appVersion', 'defaultAppId']);
    const configuration = [
        nonEmpty('appId', appId),
        text('appVersion', appVersion),
        text('defaultAppId', defaultAppId),
    ];
    only ??= new Client(configuration);
    return Client.open(only, configuration);
}

class Client extends EventEmitter {
    #configuration;
    #adapter;
    #users = 0;
    #isListening = false;
    #queues = new Set();
    #listenFor = (event) => (event === 'message' || event === 'unreachable') && this.#listen();
    #questions = new Questions((type, payload, target) => this.#send(type, payload, target));

    constructor(configuration) {
        super({ captureRejections: true });
        this.#configuration = configuration;
        this.#adapter = new BrivonAdapter(...configuration);
        this.on('newListener', this.#listenFor);
    }

    static open(client, configuration) {
        if (client.#configuration.join('\0') !== configuration.join('\0'))
            throw coded('ERR_BRIVONJS_CONNECTED', `this process is on the bus as ${values.fromEndpoint(client.self)}`);
        client.#users += 1;
        if (client.listenerCount('message') + client.listenerCount('unreachable') > 0) client.#listen();
        return client;
    }

    // All of the program's: without the client's own, later ones would hear nothing.
    removeAllListeners(...events) {
        super.removeAllListeners(...events);
        if (!this.listeners('newListener').includes(this.#listenFor)) this.on('newListener', this.#listenFor);
        return this;
    }

    get self() {
        return toEndpoint(this.#adapter.getSelfEndpoint());
    }

    get endpoints() {
        return this.#adapter.getEndpoints().map(toEndpoint);
    }

    send(type, payload, options = {}) {
        this.#send(nonEmpty('type', type), payload, checked(options, ['to', 'ifUnknown']));
    }

    broadcast(type, payload) {
        this.#open().sendMessage(nonEmpty('type', type), values.toText(payload, type), NOBODY);
    }

    messages(options = {}) {
        const { type, limit = WAITING_MESSAGES } = checked(options, ['type', 'limit', 'signal']);
        const signal = signalOf(options);
        if (type !== undefined) text('type', type);
        if (typeof limit !== 'number' || !(limit >= 1)) throw invalid('limit must be a positive number');
        this.#listen();
        const abort = () => queue.end(signal.reason);
        const accepts = (message) => type === undefined || message.type === type;
        const queue = new Queue(accepts, limit, () => {
            this.#queues.delete(queue);
            signal?.removeEventListener('abort', abort);
        });
        this.#queues.add(queue);
        signal?.addEventListener('abort', abort);
        if (signal?.aborted) abort();
        return queue;
    }

    handle(name, handler) {
        if (typeof handler !== 'function') throw invalid('handler must be a function');
        this.#listen();
        return this.#questions.handle(nonEmpty('name', name), handler);
    }

    async request(name, body, options = {}) {
        const {
            to,
            ifUnknown,
            timeout = REQUEST_TIMEOUT_MS,
        } = checked(options, ['to', 'ifUnknown', 'timeout', 'signal']);
        const signal = signalOf(options);
        if (typeof timeout !== 'number' || !(timeout > 0))
            throw invalid('timeout must be a positive number of milliseconds, or Infinity');
        this.#listen();
        return this.#questions.ask(nonEmpty('name', name), body, { to, ifUnknown, timeout, signal });
    }

    close() {
        if (this.#users === 0 || --this.#users > 0) return;
        if (this.#isListening) this.#adapter.removeAllListeners();
        this.#isListening = false;
        this.#questions.end();
        for (const queue of this.#queues) queue.end();
        this.emit('close');
    }

    [Symbol.dispose ?? Symbol.for('nodejs.dispose')]() {
        this.close();
    }

    #open() {
        if (this.#users === 0) throw coded('ERR_BRIVONJS_CLOSED', 'the client is closed');
        return this.#adapter;
    }

    // The event loop stays alive from here on.
    #listen() {
        const adapter = this.#open();
        if (this.#isListening) return;
        this.#isListening = true;
        adapter.addMessageListener((...message) => this.#guard(() => this.#receive(...message)));
        adapter.addErrorListener((type, error, fault) => this.#guard(() => this.#fail(error, fault)));
    }

    // The runtime would drop what is thrown here; now it is an event, or ends the process where nobody hears of it.
    #guard(action) {
        if (this.#users === 0) return; // closed, with messages on their way
        try {
            action();
        } catch (error) {
            process.nextTick(() => this.emit('error', error));
        }
    }

    #receive(fullType, received, appId, appVersion, id) {
        const source = { appId, appVersion, id };
        const type = values.withoutPrefix(fullType);
        if (this.#questions.take({ type, text: received, source })) return;
        const message = { type, fullType, payload: values.fromText(received), text: received, source };
        for (const queue of this.#queues) queue.push(message);
        this.emit('message', message);
    }

    #fail(error, fault) {
        this.#questions.unreachable(fault, error);
        this.emit('unreachable', { endpoint: toEndpoint(fault), error, fault });
    }

    // Answers the endpoints that it goes to, none for everyone.
    #send(type, payload, { to, ifUnknown = 'throw' }) {
        const adapter = this.#open();
        if (ifUnknown !== 'throw' && ifUnknown !== 'everyone') throw invalid("ifUnknown is 'throw' or 'everyone'");
        const target = this.#target(to);
        const content = values.toText(payload, type);
        const endpoints =
            target.id === '' ? adapter.getEndpointCacheSnapshot().filter(isOf(target)) : [values.fromEndpoint(target)];
        const isKnown = endpoints.length > 0;
        if (!isKnown && ifUnknown === 'throw')
            throw coded(
                'ERR_BRIVONJS_UNKNOWN_TARGET',
                `nobody on the bus is '${Object.values(target).filter(Boolean).join(',')}'`,
            );
        const names = isKnown ? [target.appId, target.appVersion, target.id] : [NOBODY];
        adapter.sendMessage(type, content, ...names);
        return endpoints;
    }

    #target(to = {}) {
        const names = ['appId', 'appVersion', 'id'];
        const given = typeof to === 'string' ? { appId: to } : checked(to, names, 'to');
        const { appId = this.#configuration[2], appVersion = '', id = '' } = given;
        const target = { appId: text('appId', appId), appVersion: text('appVersion', appVersion), id: text('id', id) };
        if (id !== '' && (appId === '' || appVersion === ''))
            throw invalid('an endpoint has an appId, an appVersion and an id');
        return target;
    }
}

// Whether an endpoint's text is surely of the application, and of the version if one is given. A comma in a field must not
// make it look so: the message would go to everyone.
function isOf({ appId, appVersion }) {
    const beginning = `{${appId},${appVersion === '' ? '' : `${appVersion},`}`;
    const isUnclear = appId === '' || appId.includes(',') || appVersion.includes(',');
    return (endpoint) => {
        if (isUnclear || !endpoint.startsWith(beginning)) return false;
        const comma = endpoint.indexOf(',', beginning.length);
        return appVersion === '' ? comma !== -1 && comma === endpoint.lastIndexOf(',') : comma === -1;
    };
}

module.exports = { applications, connect, ERROR_TYPE, launch, TYPE_PREFIX };
