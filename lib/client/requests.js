'use strict';

// Requests and responses: messages of types of their own, whose payload is JSON. docs/client.md describes them for programs
// that have no client.
//
// - request:NAME  { id, body }
// - answer:NAME   { id, body }, or { id, error: { name, message, code } }
// - cancel:NAME   { id }, when the requester gives up

const { randomUUID } = require('node:crypto');

const { closed, errorWithCode, fromText, toText } = require('./checks');
const { fromEndpoint } = require('../texts');
const { Wait, waits } = require('./wait');

// An error with this code, as one of a closed client, says that the endpoint has no response; another one may have.
const NO_HANDLER = 'ERR_BRIVONJS_NO_HANDLER';

// Of so many endpoints. An error of the bus comes soon after what it is about, or never.
const MOST_WITHDRAWALS = 100;

// Resolves to the first response of the endpoints of its destination, of which those that are left may still respond.
class Request extends Wait {
    // Anybody may respond to what everyone was sent.
    mayRespond({ id }) {
        return this.destination.endpoints.length === 0 || this.left.some((one) => one.id === id);
    }

    // The endpoint has no response. What one has said goes before what is known of one that is gone.
    lose({ id }, makeError, isSaid) {
        const left = this.left.filter((one) => one.id !== id);
        if (left.length === this.left.length) return;
        this.left = left;
        if (isSaid) this.said = makeError;
        if (left.length === 0) this.reject(this.said ?? makeError);
    }
}

class Requests {
    #handlers = new Map();
    #serving = new Map(); // requests of others whose handlers are at work, by source and id
    #withdrawals = new Map(); // how many were sent since anything else, by the endpoint's id

    // Sends by post(type, text, destination, isRequest).
    constructor(post, presence, isOpen) {
        Object.assign(this, { post, presence, isOpen });
    }

    handle(name, handler) {
        if (this.#handlers.has(name)) throw errorWithCode('ERR_BRIVONJS_HANDLED', `'${name}' has a handler already`);
        const own = { handler };
        this.#handlers.set(name, own);
        return () => void (this.#handlers.get(name) === own && this.#handlers.delete(name));
    }

    // Resolves to what Wait.outcome does.
    send(name, body, destination, options) {
        const id = randomUUID(); // cheaper than a counter, whose texts the runtime keeps for a while
        const text = toText({ id, body });
        options.signal?.throwIfAborted(); // by now, perhaps while the body was made JSON
        this.post(`request:${name}`, text, destination, true);
        const request = new Request(id, options, `no answer to '${name}'`);
        request.name = name;
        request.destination = destination;
        request.left = destination.endpoints;
        request.giveUp = this.#withdraw;
        this.presence.watch();
        return request.outcome;
    }

    // Answers whether the message is one of these.
    take(type, text, source) {
        const colon = type.indexOf(':');
        const verb = type.slice(0, Math.max(colon, 0));
        const envelope = ['answer', 'request', 'cancel'].includes(verb) ? fromText(text) : undefined;
        if (typeof envelope?.id !== 'string') return false;
        const name = type.slice(colon + 1);
        if (verb === 'request') this.#serve(name, envelope, source);
        else if (verb === 'answer') settle(waits.get(envelope.id), name, envelope, source);
        else this.#abort(fromEndpoint(source) + envelope.id);
        return true;
    }

    // Something else is sent there.
    noteSend(endpoints) {
        if (this.#withdrawals.size > 0) for (const { id } of endpoints) this.#withdrawals.delete(id);
    }

    // Whether an error about the endpoint is about a withdrawal, of which the program knows nothing.
    isWithdrawal({ id }) {
        const count = this.#withdrawals.get(id) ?? 0;
        if (count > 0) this.#withdrawals.set(id, count - 1);
        return count > 0;
    }

    end() {
        this.#handlers.clear();
        for (const [key, request] of this.#serving) {
            this.#fail(request, closed());
            this.#abort(key, request);
        }
    }

    // Nothing is kept of a request that is over, even if its handler never ends.
    #abort(key, request = this.#serving.get(key)) {
        this.#serving.delete(key);
        if (request !== undefined) Context.abort(request.context);
    }

    // Only for those that are still there: the bus would report the others.
    #withdraw = ({ id, name, destination, left }) => {
        const targets = destination.endpoints.length === 0 ? [destination] : left;
        for (const endpoint of targets.filter((one) => one === destination || this.presence.has(one))) {
            this.post(`cancel:${name}`, JSON.stringify({ id }), endpoint);
            this.#withdrawals.set(endpoint.id, (this.#withdrawals.get(endpoint.id) ?? 0) + 1);
        }
        if (this.#withdrawals.size > MOST_WITHDRAWALS) this.#withdrawals.clear();
    };

    #serve(name, { id, body }, source) {
        const request = { name, id, source, context: new Context(source), key: undefined };
        try {
            const { handler } = this.#handlers.get(name) ?? {};
            if (handler === undefined)
                throw this.isOpen() ? errorWithCode(NO_HANDLER, `nobody answers '${name}'`) : closed();
            const result = handler(body, request.context);
            if (typeof result?.then !== 'function') return this.#respond(request, result);
            request.key = fromEndpoint(source) + id;
            this.#serving.set(request.key, request);
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

    #respond(request, body, error) {
        const { key, name, id, source } = request;
        if (key !== undefined && this.#serving.get(key) !== request) return; // it is over
        const destination = this.presence.destination(source);
        if (destination !== undefined) this.post(`answer:${name}`, JSON.stringify({ id, body, error }), destination);
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

// What an endpoint has said of a request, if it is one that waits for it.
function settle(request, name, { body, error = null }, source) {
    if (request?.name !== name || !request.mayRespond(source)) return;
    if (error === null) request.end(() => body);
    else if (error.code === NO_HANDLER) request.lose(source, () => toError(error), true);
    else if (error.code === closed().code) request.lose(source, () => unreachable('The client is closed', source));
    else request.reject(() => toError(error));
}

const unreachable = (reason, one) => errorWithCode('ERR_BRIVONJS_UNREACHABLE', `${reason}: ${fromEndpoint(one)}`);

// The endpoint has no response to anything.
function lose(endpoint, reason) {
    for (const wait of waits.values()) wait.lose?.(endpoint, () => unreachable(reason, endpoint));
}

// What JSON is to hold of something that was thrown.
function partsOf(thrown) {
    const { name, message, code } = Object(thrown);
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

module.exports = { lose, Requests };
