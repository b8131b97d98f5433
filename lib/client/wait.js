'use strict';

// What a program waits for until its time is over, its signal is aborted or the client is closed: a result, or messages.

const { setMaxListeners } = require('node:events');

const { errorWithCode } = require('./checks');

// A timer of the runtime's fires at once where it is given more.
const LONGEST_TIMER_MS = 2 ** 31 - 1;

// No timer for a longer time than it can take, which is as good as no limit.
function startTimer(action, milliseconds) {
    return milliseconds > LONGEST_TIMER_MS ? undefined : setTimeout(action, milliseconds);
}

// Those that end with the client, by their ids. A process has one client.
const waits = new Map();

// A kind may have changed(), for when endpoints have come, lose(endpoint, makeError), for when one has gone, and
// giveUp(wait), for when the program no longer waits.
class Wait {
    // Resolves to a function that returns the result, or a promise that is rejected. The waiting function calls it, so that the
    // error has its asynchronous stack.
    outcome = new Promise((resolve) => (this.settle = resolve));

    // Without an id it does not end with the client.
    constructor(id, { timeout = 30_000, signal }, missing) {
        const late = () => errorWithCode('ERR_BRIVONJS_TIMEOUT', `${missing} within ${timeout} ms`);
        this.timer = startTimer(() => this.reject(late, true), timeout);
        this.id = id;
        if (id !== undefined) waits.set(id, this);
        if (signal === undefined) return;
        setMaxListeners(0, signal); // a program's one signal for its end may end many things
        this.signal = signal;
        this.abort = () => this.reject(() => signal.reason, true);
        signal.addEventListener('abort', this.abort);
    }

    reject(makeError, isGivenUp) {
        this.end(() => Promise.reject(makeError()), isGivenUp);
    }

    end(outcome, isGivenUp = false) {
        waits.delete(this.id);
        clearTimeout(this.timer);
        this.signal?.removeEventListener('abort', this.abort);
        if (isGivenUp) this.giveUp?.(this);
        this.settle(outcome);
    }
}

// Messages on their way to a for await loop. When more wait than the limit, the loop reads those and ends with an error.
// Returns { type, messages, push, end }: messages is the loop's iterator. Until the queue has ended, it is in the set of queues.
function newQueue({ type, limit = 1_000, signal }, queues) {
    const waiting = [];
    let wake = () => {};
    let ending;
    const wait = new Wait(undefined, { timeout: Infinity, signal });
    wait.settle = (outcome) => {
        ending ??= outcome;
        queues.delete(queue);
        wake();
    };
    const overflow = `more than ${limit} messages were waiting to be read`;
    const push = (message) => {
        if (waiting.length < limit) waiting.push(message);
        else wait.reject(() => errorWithCode('ERR_BRIVONJS_OVERFLOW', overflow));
        wake();
    };
    const end = () => wait.end(() => {});
    const messages = read();
    const leaving = (finish) => (value) => {
        waiting.length = 0;
        end();
        return finish.call(messages, value);
    };
    messages.return = leaving(messages.return);
    messages.throw = leaving(messages.throw);
    messages[Symbol.asyncDispose ?? Symbol.for('nodejs.asyncDispose')] = async () => void (await messages.return());
    const queue = { type, messages, push, end };
    queues.add(queue);
    if (signal?.aborted) wait.abort();
    return queue;

    async function* read() {
        for (; ; await new Promise((resolve) => (wake = resolve))) {
            while (waiting.length > 0) yield waiting.shift();
            if (ending !== undefined) return ending();
        }
    }
}

module.exports = { newQueue, startTimer, Wait, waits };
