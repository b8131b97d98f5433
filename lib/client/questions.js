'use strict';

// Questions and answers: messages of types of their own, whose payload is JSON. docs/client.md describes them for programs
// that have no client.
//
// - request:NAME  { id, body }
// - answer:NAME   { id, body }, or { id, error: { name, message, code } }
// - cancel:NAME   { id }, when whoever has asked gives up

const { randomUUID } = require('node:crypto');

const { coded, fromEndpoint, startTimer } = require('./values');

const NO_HANDLER = 'ERR_BRIVONJS_NO_HANDLER';

class Questions {
    #send; // (type, payload, { to, ifUnknown }) => the endpoints that it goes to, none for everyone
    #handlers = new Map();
    #asked = new Map(); // what waits for an answer, by the id of the question
    #answering = new Map(); // what a handler is busy with: AbortControllers, by the source and the id of the question

    constructor(send) {
        this.#send = send;
    }

    handle(name, handler) {
        if (this.#handlers.has(name)) throw coded('ERR_BRIVONJS_HANDLED', `'${name}' has a handler already`);
        const own = { handler };
        this.#handlers.set(name, own);
        return () => void (this.#handlers.get(name) === own && this.#handlers.delete(name));
    }

    // Whichever is first ends it: an answer, an error of the other side, the last of those that it was sent to being
    // unreachable or without a handler, of which the latter is told, the time, the signal, or the end of the client.
    ask(name, body, { timeout, signal, ...target }) {
        signal?.throwIfAborted();
        const id = randomUUID();
        const missing = new Set(this.#send(`request:${name}`, { id, body }, target).map(idOf));
        return new Promise((resolve, reject) => {
            const settle = (settled, value) => {
                this.#asked.delete(id);
                clearTimeout(timer);
                signal?.removeEventListener('abort', abort);
                settled(value);
            };
            const giveUp = (error) => {
                settle(reject, error);
                // It may be gone by now, and then there is nothing to take back.
                try {
                    this.#send(`cancel:${name}`, { id }, target);
                } catch {}
            };
            const abort = () => giveUp(signal.reason);
            const late = () => giveUp(coded('ERR_BRIVONJS_TIMEOUT', `no answer to '${name}' within ${timeout} ms`));
            const timer = startTimer(late, timeout);
            signal?.addEventListener('abort', abort);
            let told;
            const lost = (lostId, error) => {
                if (!missing.delete(lostId)) return;
                if (told?.code !== 'ERR_BRIVONJS_ANSWER') told = error;
                if (missing.size === 0) settle(reject, told);
            };
            this.#asked.set(id, {
                answered: ({ body, error = null }, source) => {
                    if (error === null) settle(resolve, body);
                    else if (error.code === NO_HANDLER) lost(source.id, toError(error));
                    else settle(reject, toError(error));
                },
                unreachable: (endpoint, error) =>
                    lost(idOf(endpoint), coded('ERR_BRIVONJS_UNREACHABLE', `${error}: ${endpoint}`)),
                ended: () => settle(reject, coded('ERR_BRIVONJS_CLOSED', 'the client was closed')),
            });
            if (signal?.aborted) abort(); // while the body was made JSON
        });
    }

    // Answers whether the message is none of the program's own.
    take({ type, text, source }) {
        const [, verb, name] = type.match(/^(request|answer|cancel):(.*)$/s) ?? [];
        const envelope = verb && parse(text);
        if (envelope === undefined) return false;
        if (verb === 'request') this.#answer(name, envelope, source);
        if (verb === 'answer') this.#asked.get(envelope.id)?.answered(envelope, source);
        if (verb === 'cancel') this.#answering.get(fromEndpoint(source) + envelope.id)?.abort();
        return true;
    }

    async #answer(name, { id, body }, source) {
        const key = fromEndpoint(source) + id;
        const controller = new AbortController();
        this.#answering.set(key, controller);
        // An endpoint without a version cannot be named alone; its like do not know the question.
        const target = { to: source.appVersion === '' ? { appId: source.appId } : source };
        const reply = (answer) => controller.signal.aborted || this.#send(`answer:${name}`, { id, ...answer }, target);
        try {
            const { handler } = this.#handlers.get(name) ?? {};
            if (handler === undefined) throw coded(NO_HANDLER, `nobody answers '${name}'`);
            reply({ body: await handler(body, { source, signal: controller.signal }) });
        } catch (error) {
            // The second round is for an error that cannot be sent, as one that is too large. Whoever has asked may be gone.
            for (const describe of [partsOf, () => ({ message: 'an error that cannot be sent' })]) {
                try {
                    reply({ error: describe(error) });
                    break;
                } catch {}
            }
        } finally {
            this.#answering.delete(key);
        }
    }

    unreachable(endpoint, error) {
        for (const question of this.#asked.values()) question.unreachable(endpoint, error);
    }

    end() {
        for (const question of this.#asked.values()) question.ended();
        for (const controller of this.#answering.values()) controller.abort();
        this.#handlers.clear();
    }
}

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
    return coded('ERR_BRIVONJS_ANSWER', `the other side failed: ${words}`, { cause });
}

// The last part of an endpoint's text, which is nobody else's.
const idOf = (endpoint) => endpoint.slice(endpoint.lastIndexOf(',') + 1, -1);

module.exports = { Questions };
