'use strict';

// Requests and responses: messages of types of their own, whose payload is JSON. docs/client.md describes them for programs
// that have no client.
//
// - request:NAME  { id, body }
// - answer:NAME   { id, body }, or { id, error: { name, message, code } }
// - cancel:NAME   { id }, when the requester gives up

const { closed, errorWithCode } = require('./checks');
const { fromEndpoint, toText } = require('./values');
const { Wait } = require('./wait');

// An error with one of these codes says that the endpoint has no response; another one may have.
const NO_HANDLER = 'ERR_BRIVONJS_NO_HANDLER';
const CLOSED = 'ERR_BRIVONJS_CLOSED';

const UNSPEAKABLE = { message: 'an error that cannot be sent' };

// Of so many endpoints. An error of the bus comes soon after what it is about, or never.
const MOST_WITHDRAWALS = 100;

class Request extends Wait {
    lost; // the ids of endpoints that have no response

    constructor(name, destination, timeout, signal) {
        super(timeout, signal);
        this.name = name;
        this.timeout = timeout;
        this.destination = destination;
    }

    late() {
        return errorWithCode('ERR_BRIVONJS_TIMEOUT', `no answer to '${this.name}' within ${this.timeout} ms`);
    }

    // Whether the endpoint may still respond. One that is sent to everyone waits for anybody.
    isSentTo(id) {
        const { endpoints } = this.destination;
        return endpoints.length === 0 || (endpoints.some((one) => one.id === id) && !this.lost?.has(id));
    }

    // There is no response of the endpoint. What one has said goes before what is known of one that is gone.
    lose(id, makeError, isSaid = false) {
        const { endpoints } = this.destination;
        if (endpoints.length === 0 || !this.isSentTo(id)) return;
        this.lost = (this.lost ?? new Set()).add(id);
        if (isSaid || !this.hasSaid) this.failure = makeError;
        this.hasSaid ||= isSaid;
        if (this.lost.size === endpoints.length) this.reject(this.failure);
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
    #count = 0;
    #verbs = {
        __proto__: null,
        request: (name, envelope, source) => this.#serve(name, envelope, source),
        answer: (name, envelope, source) => this.#settle(name, envelope, source),
        cancel: (name, { id }, source) => this.#serving.get(fromEndpoint(source) + id)?.abort(),
    };

    constructor(post, presence) {
        this.#post = post;
        this.#presence = presence;
    }

    get arePending() {
        return this.#pending.size > 0;
    }

    handle(name, handler) {
        if (this.#handlers.has(name)) throw errorWithCode('ERR_BRIVONJS_HANDLED', `'${name}' has a handler already`);
        const own = { handler };
        this.#handlers.set(name, own);
        return () => void (this.#handlers.get(name) === own && this.#handlers.delete(name));
    }

    // Resolves to the response.
    send(name, body, destination, timeout, signal) {
        const id = String(++this.#count);
        const text = toText({ id, body });
        signal?.throwIfAborted(); // by now, perhaps while the body was made JSON
        this.noteSend(destination);
        this.#post(`request:${name}`, text, destination, true);
        const request = new Request(name, destination, timeout, signal);
        request.over = (isGivenUp) => {
            this.#pending.delete(id);
            if (isGivenUp) this.#withdraw(request, id);
        };
        this.#pending.set(id, request);
        this.#presence.watch();
        return request.promise;
    }

    // Answers whether the message is one of these.
    take(type, text, source) {
        const colon = type.indexOf(':');
        const take = colon > 0 ? this.#verbs[type.slice(0, colon)] : undefined;
        const envelope = take && parse(text);
        if (envelope === undefined) return false;
        take(type.slice(colon + 1), envelope, source);
        return true;
    }

    lose({ id }, makeError) {
        for (const request of this.#pending.values()) request.lose(id, makeError);
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
        for (const request of this.#pending.values()) request.reject(closed, true);
        for (const { abort, fail } of this.#serving.values()) {
            fail(closed());
            abort();
        }
    }

    // Only to those that are still there: the bus would report the others.
    #withdraw(request, id) {
        const { name, destination } = request;
        const withdraw = (endpoint) => this.#post(`cancel:${name}`, JSON.stringify({ id }), endpoint);
        if (destination.endpoints.length === 0) withdraw(destination);
        for (const endpoint of destination.endpoints) {
            if (!request.isSentTo(endpoint.id) || !this.#presence.has(endpoint)) continue;
            withdraw(endpoint);
            this.#withdrawals.set(endpoint.id, (this.#withdrawals.get(endpoint.id) ?? 0) + 1);
            if (this.#withdrawals.size > MOST_WITHDRAWALS)
                this.#withdrawals.delete(this.#withdrawals.keys().next().value);
        }
    }

    #settle(name, { id, body, error = null }, source) {
        const request = this.#pending.get(id);
        if (request === undefined || request.name !== name || !request.isSentTo(source.id)) return;
        if (error === null) request.resolve(body);
        else if (error.code === NO_HANDLER) request.lose(source.id, () => toError(error), true);
        else if (error.code === CLOSED) request.lose(source.id, () => unreachable('The client is closed', source));
        else request.reject(() => toError(error));
    }

    // Once it is over, nothing is kept of it, even if its handler never ends.
    #serve(name, { id, body }, source) {
        const key = fromEndpoint(source) + id;
        const isOver = () => this.#serving.get(key) !== serving || !this.#serving.delete(key);
        const respond = (describe) => isOver() || this.#respond(name, id, source, describe);
        const succeed = (result) => respond(() => ({ body: result }));
        const fail = (error) => respond(() => ({ error: partsOf(error) }));
        let controller;
        const signalling = () => (controller ??= new AbortController()); // slow, and rarely wanted
        const serving = { fail, abort: () => isOver() || signalling().abort() };
        this.#serving.set(key, serving);
        try {
            const { handler } = this.#handlers.get(name) ?? {};
            if (handler === undefined)
                throw this.isOpen ? errorWithCode(NO_HANDLER, `nobody answers '${name}'`) : closed();
            const context = {
                source,
                get signal() {
                    return signalling().signal;
                },
            };
            const result = handler(body, context);
            if (typeof result?.then === 'function') Promise.resolve(result).then(succeed, fail);
            else succeed(result);
        } catch (error) {
            fail(error);
        }
    }

    // What cannot be sent is an error, and what cannot be sent of an error, as one that is too large, is said in short. A
    // requester without a version cannot be named alone; others of its kind do not know the request.
    #respond(name, id, source, describe) {
        const { appId, appVersion } = source;
        const destination = appVersion === '' ? this.#presence.destination({ appId, appVersion, id: '' }) : source;
        if (appId === '' || destination === undefined) return;
        let failure;
        const descriptions = [describe, () => ({ error: partsOf(failure) }), () => ({ error: UNSPEAKABLE })];
        for (const describeNow of descriptions) {
            try {
                const { body, error } = describeNow();
                return this.#post(`answer:${name}`, JSON.stringify({ id, body, error }), destination);
            } catch (error) {
                failure = error;
            }
        }
    }
}

const unreachable = (reason, endpoint) =>
    errorWithCode('ERR_BRIVONJS_UNREACHABLE', `${reason}: ${fromEndpoint(endpoint)}`);

function parse(text) {
    try {
        const envelope = JSON.parse(text);
        return typeof envelope?.id === 'string' ? envelope : undefined;
    } catch {
        return undefined;
    }
}

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
