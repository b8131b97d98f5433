'use strict';

// What a program waits for, until its time is over or its signal is aborted. Whoever makes one gives it the two functions.

const { startTimer } = require('./values');

class Wait {
    #resolve;
    #reject;
    #timer;
    #signal;
    #abort;

    late() {} // the error when the time is over
    over() {} // called at the end, with whether the program has given up

    constructor(timeout, signal) {
        this.promise = new Promise((resolve, reject) => {
            this.#resolve = resolve;
            this.#reject = reject;
        });
        this.#timer = startTimer(endInTime, timeout, this);
        if (signal === undefined) return;
        this.#signal = signal;
        this.#abort = () => this.reject(() => signal.reason, true);
        signal.addEventListener('abort', this.#abort);
    }

    resolve(value) {
        this.#end(false);
        this.#resolve(value);
    }

    // The promise is rejected with the function, whose caller has the program's asynchronous stack.
    reject(makeError, isGivenUp = false) {
        this.#end(isGivenUp);
        this.#reject(makeError);
    }

    #end(isGivenUp) {
        clearTimeout(this.#timer);
        this.#signal?.removeEventListener('abort', this.#abort);
        this.over(isGivenUp);
    }
}

const endInTime = (wait) => wait.reject(() => wait.late(), true);

module.exports = { Wait };
