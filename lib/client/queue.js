'use strict';

// Messages on their way to a for await loop, whose iterator this is: as many as the limit may wait; one more, and the loop
// ends with an error once it has read them.

const { coded } = require('./values');

class Queue {
    #waiting = [];
    #readers = []; // { resolve, reject } of those that wait for a message
    #ending; // { error } once nothing more comes
    #accepts;
    #limit;
    #ended;

    // ended() is called once, as soon as nothing more is taken.
    constructor(accepts, limit, ended) {
        this.#accepts = accepts;
        this.#limit = limit;
        this.#ended = ended;
    }

    // Until it has ended.
    push(message) {
        if (!this.#accepts(message)) return;
        if (this.#readers.length > 0) this.#readers.shift().resolve({ value: message, done: false });
        else if (this.#waiting.length < this.#limit) this.#waiting.push(message);
        else this.end(coded('ERR_BRIVONJS_OVERFLOW', `more than ${this.#limit} messages were waiting to be read`));
    }

    end(error) {
        if (this.#ending !== undefined) return;
        this.#ending = { error };
        this.#ended();
        for (const { resolve, reject } of this.#readers.splice(0)) this.next().then(resolve, reject);
    }

    async next() {
        if (this.#waiting.length > 0) return { value: this.#waiting.shift(), done: false };
        if (this.#ending === undefined)
            return new Promise((resolve, reject) => this.#readers.push({ resolve, reject }));
        const { error } = this.#ending;
        this.#ending = {}; // which is told once
        if (error !== undefined) throw error;
        return { value: undefined, done: true };
    }

    // The loop was left.
    async return(value) {
        this.#waiting = [];
        this.end();
        this.#ending = {};
        return { value, done: true };
    }

    async throw(error) {
        await this.return();
        throw error;
    }

    [Symbol.asyncIterator]() {
        return this;
    }

    async [Symbol.asyncDispose ?? Symbol.for('nodejs.asyncDispose')]() {
        await this.return();
    }
}

module.exports = { Queue };
