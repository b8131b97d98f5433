'use strict';

// What programs write on top of the two classes: one client per process, with JSON in payloads, targets that must be there,
// requests with responses, and launches as promises. It is the only user of the listeners, which belong to the process.

const { randomUUID } = require('node:crypto');
const { EventEmitter } = require('node:events');

const { BrivonAdapter, BrivonControlAdapter, _setLibraryPath } = require('../index');
const { openBus } = require('../bus');
const { ERROR_TYPE, TYPE_PREFIX } = require('../constants');
const checks = require('./checks');
const { Presence } = require('./presence');
const { lose, Requests } = require('./requests');
const { fromEndpoint, toEndpoint, withoutPrefix } = require('../texts');
const { newQueue, Wait, waits } = require('./wait');

const { checkName, checkOptions, checkText, closed, errorWithCode, fromText, invalid, toTarget, toText } = checks;

// The stand-ins' words for a message that its destination did not get, and codes for their statuses of a send.
const UNREACHABLE = 'Destination unreachable';
const TOO_LARGE = 2;
const REFUSALS = { [TOO_LARGE]: 'ERR_BRIVONJS_TOO_LARGE', 3: 'ERR_BRIVONJS_FULL' };

// An application that nobody is: what is sent to it goes to everyone, whatever the default application.
const EVERYONE = { endpoints: [], appId: randomUUID(), appVersion: '', id: '' };

const WAIT_OPTIONS = ['timeout', 'signal'];
const LAUNCH_OPTIONS = ['focus', 'args', 'folder', 'waitFor', ...WAIT_OPTIONS];
const REQUEST_OPTIONS = ['to', 'ifUnknown', ...WAIT_OPTIONS];

// Kept for good, open or not: the collection of its adapter would silence the next one.
let only;
let configuration;
let users = 0;

class Client extends EventEmitter {
    #standins = openBus();
    #adapter = new BrivonAdapter(...configuration);
    #isWatched = () => waits.size + this.listenerCount('joined') + this.listenerCount('left') > 0;
    #presence = new Presence(this.#adapter, this.#isWatched, this.#change.bind(this));
    #requests = new Requests(this.#post.bind(this), this.#presence, () => users > 0);
    #isListening = false;
    #queues = new Set();

    constructor() {
        super({ captureRejections: true });
        this.on('newListener', this.#prepareFor);
    }

    static connect(options) {
        const { appId, appVersion, defaultAppId = '' } = checkOptions(options, ['appId', 'appVersion', 'defaultAppId']);
        // What has no version cannot be named, and so not be answered.
        const wanted = [checkName('appId', appId), checkName('appVersion', appVersion), defaultAppId];
        if (only === undefined) configuration = wanted;
        only ??= new Client();
        if (configuration.join('\0') !== wanted.join('\0'))
            throw errorWithCode('ERR_BRIVONJS_CONNECTED', `this process is on the bus as ${fromEndpoint(only.self)}`);
        users += 1;
        return only;
    }

    // All of the program's: without the client's own, later ones would hear nothing.
    removeAllListeners(...events) {
        super.removeAllListeners(...events);
        return this.off('newListener', this.#prepareFor).on('newListener', this.#prepareFor);
    }

    get self() {
        return toEndpoint(this.#adapter.getSelfEndpoint());
    }

    get endpoints() {
        return this.#presence.endpoints.map((endpoint) => ({ ...endpoint }));
    }

    send(type, payload, options = {}) {
        checkName('type', type);
        const destination = this.#destination(checkOptions(options, ['to', 'ifUnknown']));
        this.#post(type, toText(payload), destination);
    }

    broadcast(type, payload) {
        checkOpen();
        this.#post(checkName('type', type), toText(payload), EVERYONE);
    }

    async whenPresent(target, options = {}) {
        checkOptions(options, WAIT_OPTIONS).signal?.throwIfAborted();
        const wanted = toTarget(target);
        checkOpen();
        const wait = new Wait({}, options, `'${nameOf(wanted)}' was not on the bus`);
        wait.changed = () => {
            const found = this.#presence.destination(wanted)?.endpoints.find((one) => this.#presence.has(one));
            if (found !== undefined) wait.end(() => ({ ...found }));
        };
        this.#presence.watch();
        wait.changed();
        return (await wait.outcome)();
    }

    messages(options = {}) {
        checkOptions(options, ['type', 'limit', 'signal']);
        this.#listen();
        return newQueue(options, this.#queues).messages;
    }

    handle(name, handler) {
        if (typeof handler !== 'function') throw invalid('handler must be a function');
        this.#listen();
        return this.#requests.handle(checkName('name', name), handler);
    }

    async request(name, body, options = {}) {
        const destination = this.#destination(checkOptions(options, REQUEST_OPTIONS));
        return (await this.#requests.send(checkName('name', name), body, destination, options))();
    }

    close() {
        if (users === 0 || --users > 0) return;
        this.#requests.end();
        for (const wait of waits.values()) wait.reject(closed, true);
        for (const queue of this.#queues) queue.end();
        this.emit('close');
        // Errors that are still to come are heard.
        for (const event of this.eventNames()) if (event !== 'error') this.removeAllListeners(event);
    }

    #prepareFor = (event) => {
        if (event === 'message' || event === 'unreachable') this.#listen();
        if (event === 'joined' || event === 'left') this.#presence.watch();
    };

    // The event loop stays alive from here on. A closed client goes on, to refuse requests.
    #listen() {
        checkOpen();
        if (this.#isListening) return;
        this.#isListening = true;
        this.#adapter.addMessageListener((...message) => this.#guard(this.#receive, message));
        this.#adapter.addErrorListener((...error) => this.#guard(this.#fail, error));
    }

    // The runtime would drop what is thrown here; now it is an event, or ends the process where nobody hears of it.
    #guard(method, values) {
        try {
            method.apply(this, values);
        } catch (error) {
            process.nextTick(() => this.emit('error', error));
        }
    }

    #receive(fullType, text, appId, appVersion, id) {
        const source = { appId, appVersion, id };
        const type = withoutPrefix(fullType);
        this.#presence.hasHeard = true;
        if (this.#requests.take(type, text, source)) return;
        if (this.#queues.size === 0 && this.listenerCount('message') === 0) return;
        const message = { type, fullType, payload: fromText(text), text, source };
        for (const queue of this.#queues) if (queue.type === undefined || queue.type === type) queue.push(message);
        this.emit('message', message);
    }

    #fail(type, error, fault) {
        const endpoint = toEndpoint(fault);
        if (endpoint !== undefined && error === UNREACHABLE) lose(endpoint, error);
        if (endpoint === undefined || !this.#requests.isWithdrawal(endpoint))
            this.emit('unreachable', { endpoint, error, fault });
    }

    #change(joined, left) {
        for (const endpoint of left) lose(endpoint, 'The endpoint has left the bus');
        for (const wait of waits.values()) wait.changed?.();
        for (const endpoint of joined) this.#guard(this.emit, ['joined', { ...endpoint }]);
        for (const endpoint of left) this.#guard(this.emit, ['left', { ...endpoint }]);
    }

    // Throws where the library is known to refuse the message; that a receiver is full, for requests only.
    #post(type, text, { endpoints = [], appId, appVersion, id }, isRequest = false) {
        if (isRequest) this.#listen();
        this.#requests.noteSend(endpoints);
        if (appVersion === '') this.#adapter.sendMessage(type, text, appId);
        else this.#adapter.sendMessage(type, text, appId, appVersion, id);
        const status = this.#standins?.sendStatus() ?? 0;
        if (status !== TOO_LARGE && (status === 0 || !isRequest)) return;
        const code = REFUSALS[status] ?? 'ERR_BRIVONJS_UNREACHABLE';
        throw errorWithCode(code, `the library refused '${type}' with status ${status}`);
    }

    #destination({ to = configuration[2] || undefined, ifUnknown }) {
        checkOpen();
        const target = to === undefined ? undefined : toTarget(to);
        const destination = target && this.#presence.destination(target);
        if (destination !== undefined) return destination;
        if (ifUnknown === 'everyone') return EVERYONE;
        const reason = target
            ? `nobody on the bus is '${nameOf(target)}'`
            : 'there is neither to nor a default application';
        throw errorWithCode('ERR_BRIVONJS_UNKNOWN_TARGET', reason);
    }
}

Client.prototype[Symbol.dispose ?? Symbol.for('nodejs.dispose')] = Client.prototype.close;

const nameOf = ({ appId, appVersion, id }) => [appId, appVersion, id].filter(Boolean).join(',');

function checkOpen() {
    if (users === 0) throw closed();
}

let adapter;

// The control adapter of this process, which a folder that is given replaces.
function control(folder) {
    if (folder !== undefined) _setLibraryPath(folder);
    if (folder !== undefined || adapter === undefined) adapter = new BrivonControlAdapter();
    return adapter;
}

function applications(options = {}) {
    const library = control(checkOptions(options, ['folder']).folder);
    return library.getSpecifiers().map((specifier) => ({
        specifier,
        isInstalled: library.isAppInstalled(specifier),
        path: library.getAppPath(specifier),
        version: library.getAppVersion(specifier),
        isRunning: library.isAppRunning(specifier),
        processId: library.getProcessId(specifier),
    }));
}

async function launch(specifier, options = {}) {
    const { focus = true, args = '', folder, waitFor, timeout, signal } = checkOptions(options, LAUNCH_OPTIONS);
    checkText('specifier', specifier);
    if (waitFor !== undefined) checkOpen();
    signal?.throwIfAborted();
    const library = control(folder);
    // The library calls back in a later turn.
    library.launchApp(specifier, focus, args, (...results) => wait.end(() => results));
    const wait = new Wait(undefined, { timeout: Infinity, signal });
    const [cause, isLaunched] = await (await wait.outcome)();
    if (isLaunched) return waitFor && (await only.whenPresent(waitFor, { timeout, signal }));
    const reason = library.isAppInstalled(specifier) ? 'the library refused' : 'it is not installed';
    const message = `'${specifier}' was not launched: ${cause?.message ?? reason}`;
    throw errorWithCode('ERR_BRIVONJS_NOT_LAUNCHED', message, cause && { cause });
}

module.exports = { applications, connect: Client.connect, ERROR_TYPE, launch, TYPE_PREFIX };
