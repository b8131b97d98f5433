'use strict';

// Requests and responses: messages of types of their own, whose payload is JSON. docs/client.md describes them for programs
// that have no client.
//
// - request:NAME  { id, body }
// - answer:NAME   { id, body }, or { id, error: { name, message, code } }
// - cancel:NAME   { id }, when the requester gives up

const { randomUUID } = require('node:crypto');

const { closed, errorWithCode } = require('./checks');
const { fromEndpoint } = require('../texts');
const { fromText, toText } = require('./values');
const { outcome, Wait } = require('./wait');

// An error with one of these codes says that the endpoint has no response; another one may have.
const NO_HANDLER = 'ERR_BRIVONJS_NO_HANDLER';
const CLOSED = 'ERR_BRIVONJS_CLOSED';

// Of so many endpoints. An error of the bus comes soon after what it is about, or never.
const MOST_WITHDRAWALS = 100;

class Request extends Wait {
    constructor(name, destination, wait, over) {
        super(wait);
        this.name = name;
        this.timeout = wait.timeout;
        this.endpoints = destination.endpoints;
        this.lost = undefined; // ids of endpoints that have no response
        this.over = over;
    }

    late() {
        return errorWithCode('ERR_BRIVONJS_TIMEOUT', `no answer to '${this.name}' within ${this.timeout} ms`);
    }

    changed(left) {
        for (const endpoint of left) this.lose(endpoint, () => unreachable('The endpoint has left the bus', endpoint));
    }

    // Whether the endpoint may still respond: anybody may to what everyone was sent.
    isSentTo({ id }) {
        return this.endpoints.length === 0 || (this.endpoints.some((one) => one.id === id) && !this.lost?.has(id));
    }

    // The endpoint has no response. What one has said goes before what is known of one that is gone.
    lose(endpoint, makeError, isSaid = false) {
        if (this.endpoints.length === 0 || !this.isSentTo(endpoint)) return;
        this.lost = (this.lost ?? new Set()).add(endpoint.id);
        if (isSaid || !this.hasSaid) this.failure = makeError;
        this.hasSaid ||= isSaid;
        if (this.lost.size === this.endpoints.length) this.reject(this.failure);
    }
}

class Requests {
    isOpen = false;
    #post; // (type, text, destination, isRequest)
    #presence;
    #handlers = new Map();
    #pending = new Map(); // requests of this program, by id
    #serving = new Map(); // requests of others, { abort, fail } by source and id
    #withdrawals = new Map(); // how many were sent since anything else, by the endpoint's id
    #verbs = {
        __proto__: null,
        request: (name, envelope, source) => this.#serve(name, envelope, source),
        answer: (name, envelope, source) => this.#settle(name, envelope, source),
        cancel: (name, { id }, source) => this.#abort(fromEndpoint(source) + id),
    };

    constructor(post, presence) {
        this.#post = post;
        this.#presence = presence;
    }

    handle(name, handler) {
        if (this.#handlers.has(name)) throw errorWithCode('ERR_BRIVONJS_HANDLED', `'${name}' has a handler already`);
        const own = { handler };
        this.#handlers.set(name, own);
        return () => void (this.#handlers.get(name) === own && this.#handlers.delete(name));
    }

    // Resolves to the response.
    async send(name, body, destination, wait) {
        const id = randomUUID(); // cheaper than a counter, whose texts the runtime keeps for a while
        const text = toText({ id, body });
        wait.signal?.throwIfAborted(); // by now, perhaps while the body was made JSON
        this.noteSend(destination);
        this.#post(`request:${name}`, text, destination, true);
        const request = new Request(name, destination, wait, (isGivenUp) => {
            this.#pending.delete(id);
            if (isGivenUp) this.#withdraw(request, id, destination);
        });
        this.#pending.set(id, request);
        this.#presence.watch();
        return await outcome(request.promise);
    }

    // Answers whether the message is one of these.
    take(type, text, source) {
        const colon = type.indexOf(':');
        const take = colon > 0 ? this.#verbs[type.slice(0, colon)] : undefined;
        const envelope = take && fromText(text);
        if (typeof envelope?.id !== 'string') return false;
        take(type.slice(colon + 1), envelope, source);
        return true;
    }

    lose(endpoint, makeError) {
        for (const request of this.#pending.values()) request.lose(endpoint, makeError);
    }

    // The program itself sends something there.
    noteSend({ endpoints }) {
        if (this.#withdrawals.size > 0) for (const { id } of endpoints) this.#withdrawals.delete(id);
    }

    // Whether an error about the endpoint is about a withdrawal, of which the program knows nothing.
    isWithdrawal({ id }) {
        const count = this.#withdrawals.get(id) ?? 0;
        this.#withdrawals.set(id, count - 1);
        if (count <= 1) this.#withdrawals.delete(id);
        return count > 0;
    }

    end() {
        this.isOpen = false;
        this.#handlers.clear();
        for (const request of this.#serving.values()) {
            this.#fail(request, closed());
            Context.abort(request.context);
        }
    }

    #abort(key) {
        const request = this.#serving.get(key);
        this.#serving.delete(key);
        if (request !== undefined) Context.abort(request.context);
    }

    // Only to those that are still there: the bus would report the others.
    #withdraw(request, id, everyone) {
        const [type, text] = [`cancel:${request.name}`, JSON.stringify({ id })];
        if (request.endpoints.length === 0) this.#post(type, text, everyone);
        for (const endpoint of request.endpoints) {
            if (!request.isSentTo(endpoint) || !this.#presence.has(endpoint)) continue;
            this.#post(type, text, endpoint);
            this.#withdrawals.set(endpoint.id, (this.#withdrawals.get(endpoint.id) ?? 0) + 1);
            if (this.#withdrawals.size > MOST_WITHDRAWALS)
                this.#withdrawals.delete(this.#withdrawals.keys().next().value);
        }
    }

    #settle(name, { id, body, error = null }, source) {
        const request = this.#pending.get(id);
        if (request === undefined || request.name !== name || !request.isSentTo(source)) return;
        if (error === null) request.resolve(body);
        else if (error.code === NO_HANDLER) request.lose(source, () => toError(error), true);
        else if (error.code === CLOSED) request.lose(source, () => unreachable('The client is closed', source));
        else request.reject(() => toError(error));
    }

    // Nothing is kept of a request that is over, even if its handler never ends.
    #serve(name, { id, body }, source) {
        const request = { name, id, source, key: fromEndpoint(source) + id, context: new Context(source) };
        this.#serving.set(request.key, request);
        try {
            const { handler } = this.#handlers.get(name) ?? {};
            if (handler === undefined)
                throw this.isOpen ? errorWithCode(NO_HANDLER, `nobody answers '${name}'`) : closed();
            const result = handler(body, request.context);
            if (typeof result?.then !== 'function') return this.#respond(request, result);
            const settled = Promise.resolve(result).then((value) => this.#respond(request, value));
            settled.catch((error) => this.#fail(request, error));
        } catch (error) {
            this.#fail(request, error);
        }
    }

    // The second round is for an error that cannot be sent, as one that is too large.
    #fail(request, error) {
        for (const describe of [partsOf, () => ({ message: 'an error that cannot be sent' })]) {
            try {
                return this.#respond(request, undefined, describe(error));
            } catch {}
        }
    }

    // A requester without a version cannot be named alone; others of its kind do not know the request.
    #respond(request, body, error) {
        const { name, id, source, key } = request;
        if (this.#serving.get(key) !== request) return;
        const { appId, appVersion } = source;
        const destination = appVersion === '' ? this.#presence.destination({ appId, appVersion, id: '' }) : source;
        if (appId !== '' && destination !== undefined)
            this.#post(`answer:${name}`, JSON.stringify({ id, body, error }), destination);
        this.#serving.delete(key);
    }
}

// What a handler is given with a request. The signal is slow to make, and rarely wanted.
class Context {
    #controller;

    constructor(source) {
        this.source = source;
    }

    get signal() {
        return (this.#controller ??= new AbortController()).signal;
    }

    static abort(context) {
        context.signal;
        context.#controller.abort();
    }
}

const unreachable = (reason, endpoint) =>
    errorWithCode('ERR_BRIVONJS_UNREACHABLE', `${reason}: ${fromEndpoint(endpoint)}`);

// What JSON is to hold of something that was thrown.
function partsOf(thrown) {
    if (typeof thrown !== 'object' || thrown === null) return { message: String(thrown) };
    const { name, message, code } = thrown;
    const isCode = typeof code === 'string' || typeof code === 'number';
    return { name: name && String(name), message: String(message ?? thrown), code: isCode ? code : undefined };
}

// An error of the other side's, with that as its cause. Whatever stands in the envelope, this makes one of it.
function toError(error) {
    const { name, message = error, code } = error;
    const words = typeof message === 'string' ? message : JSON.stringify(message);
    const cause = Object.assign(new Error(words), typeof name === 'string' && { name }, code !== undefined && { code });
    return errorWithCode('ERR_BRIVONJS_ANSWER', `the other side failed: ${words}`, { cause });
}

module.exports = { Requests, unreachable };
