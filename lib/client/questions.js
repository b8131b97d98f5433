'use strict';

// Questions and answers: messages of types of their own, whose payload is JSON. docs/client.md describes them for programs
// that have no client.
//
// - request:NAME  { id, body }
// - answer:NAME   { id, body }, or { id, error: { name, message, code } }
// - cancel:NAME   { id }, when whoever has asked no longer waits

const { randomUUID } = require('node:crypto');

const { coded, fromEndpoint } = require('./values');

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
        this.#handlers.set(name, handler);
        return () => this.#handlers.delete(name);
    }

    // Whichever is first ends it: the answer, an error of the other side, all that it was sent to unreachable, the time,
    // the signal, or the end of the client.
    ask(name, body, { timeout, signal, ...target }) {
        signal?.throwIfAborted();
        const id = randomUUID();
        const missing = new Set(this.#send(`request:${name}`, { id, body }, target));
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
            const timer = timeout === Infinity ? undefined : setTimeout(late, timeout);
            signal?.addEventListener('abort', abort);
            this.#asked.set(id, {
                answered: (answer) =>
                    answer.error === undefined ? settle(resolve, answer.body) : settle(reject, toError(answer.error)),
                unreachable: (endpoint, error) => {
                    if (missing.delete(endpoint) && missing.size === 0)
                        settle(reject, coded('ERR_BRIVONJS_UNREACHABLE', `${error}: ${endpoint}`));
                },
                ended: () => settle(reject, coded('ERR_BRIVONJS_CLOSED', 'the client was closed')),
            });
        });
    }

    // Answers whether the message is none of the program's own.
    take({ type, text, source }) {
        const [, verb, name] = type.match(/^(request|answer|cancel):(.*)$/s) ?? [];
        const envelope = verb && parse(text);
        if (envelope === undefined) return false;
        if (verb === 'request') this.#answer(name, envelope, source);
        if (verb === 'answer') this.#asked.get(envelope.id)?.answered(envelope);
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
            const handler = this.#handlers.get(name);
            if (handler === undefined) throw coded('ERR_BRIVONJS_NO_HANDLER', `nobody answers '${name}'`);
            reply({ body: await handler(body, { source, signal: controller.signal }) });
        } catch (error) {
            try {
                reply({ error: { name: error?.name, message: String(error?.message ?? error), code: error?.code } });
            } catch {} // whoever has asked is gone
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

// An error of the other side's, with that as its cause.
function toError({ name, message, code }) {
    const cause = Object.assign(new Error(message), name !== undefined && { name }, code !== undefined && { code });
    return coded('ERR_BRIVONJS_ANSWER', `the other side failed: ${message}`, { cause });
}

module.exports = { Questions };
