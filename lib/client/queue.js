'use strict';

// Messages on their way to a for await loop: as many as the limit may wait; one more, and the loop ends with an error once
// it has read them.

const { errorWithCode } = require('./checks');

// Answers { messages, push, end }: the loop's iterator, and how it is fed until it has ended, when ended() is called.
function newQueue(limit, ended) {
    const waiting = [];
    let ending;
    let wake = () => {};
    const end = (error) => {
        if (ending !== undefined) return;
        ending = { error };
        ended();
        wake();
    };
    const push = (message) => {
        if (waiting.length < limit) waiting.push(message);
        else end(errorWithCode('ERR_BRIVONJS_OVERFLOW', `more than ${limit} messages were waiting to be read`));
        wake();
    };
    const leave = () => {
        waiting.length = 0;
        end();
    };
    const messages = read();
    const { return: finish, throw: fail } = messages;
    messages.return = (value) => (leave(), finish.call(messages, value));
    messages.throw = (error) => (leave(), fail.call(messages, error));
    messages[Symbol.asyncDispose ?? Symbol.for('nodejs.asyncDispose')] = async () => void (await messages.return());
    return { messages, push, end };

    async function* read() {
        for (; ; await new Promise((resolve) => (wake = resolve))) {
            while (waiting.length > 0) yield waiting.shift();
            if (ending !== undefined) break;
        }
        if (ending.error !== undefined) throw ending.error;
    }
}

module.exports = { newQueue };
