'use strict';

// Messages on their way to a for await loop: as many as the limit may wait; one more, and the loop ends with an error once
// it has read them.

const { errorWithCode } = require('./checks');
const { Wait } = require('./wait');

// Answers { type, messages, push, end }: the loop's iterator, and how it is fed. Until it has ended it is one of the queues.
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
    const overflow = () =>
        errorWithCode('ERR_BRIVONJS_OVERFLOW', `more than ${limit} messages were waiting to be read`);
    const push = (message) => {
        if (waiting.length < limit) waiting.push(message);
        else wait.reject(overflow);
        wake();
    };
    const end = () => wait.end(() => {});
    const messages = read();
    for (const name of ['return', 'throw']) {
        const finish = messages[name];
        messages[name] = (value) => {
            waiting.length = 0;
            end();
            return finish.call(messages, value);
        };
    }
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

module.exports = { newQueue };
