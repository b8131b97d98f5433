'use strict';

// Messages on their way to a for await loop: as many as the limit may wait; one more, and the loop ends with an error once
// it has read them.

const { coded } = require('./values');

class Queue {
    #waiting = [];
    #ending; // { error } once nothing more comes
    #wake = () => {};
    #accepts;
    #limit;

    constructor(accepts, limit) {
        this.#accepts = accepts;
        this.#limit = limit;
    }

    push(message) {
        if (this.#ending !== undefined || !this.#accepts(message)) return;
        if (this.#waiting.length < this.#limit) this.#waiting.push(message);
        else this.end(coded('ERR_BRIVONJS_OVERFLOW', `more than ${this.#limit} messages were waiting to be read`));
        this.#wake();
    }

    end(error) {
        this.#ending ??= { error };
        this.#wake();
    }

    async *read() {
        for (;;) {
            while (this.#waiting.length > 0) yield this.#waiting.shift();
            if (this.#ending?.error !== undefined) throw this.#ending.error;
            if (this.#ending !== undefined) return;
            await new Promise((resolve) => (this.#wake = resolve));
        }
    }
}

module.exports = { Queue };
