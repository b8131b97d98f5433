'use strict';

// What a program waits for until its time is over, its signal is aborted or the client is closed.

const { closed } = require('./checks');

// A timer of the runtime's fires at once where it is given more.
const LONGEST_TIMER_MS = 2 ** 31 - 1;

// No timer for a longer time than it can take, which is as good as no limit.
function startTimer(action, milliseconds, argument) {
    return milliseconds > LONGEST_TIMER_MS ? undefined : setTimeout(action, milliseconds, argument);
}

// All that are under way, by their ids. A process has one client.
const waits = new Map();

// Each kind has changed(left), for when endpoints have come or left, late(), the error when the time is over, and, unless it
// is not to know, over(isGivenUp, wait), where isGivenUp says that the program wants it no more.
class Wait {
    constructor(id, { timeout, signal }) {
        this.id = id;
        this.promise = new Promise((resolve, reject) => {
            this.settle = resolve;
            this.fail = reject;
        });
        this.timeout = timeout;
        this.timer = startTimer(endInTime, timeout, this);
        this.signal = signal;
        this.abort = signal && (() => this.reject(() => signal.reason, true));
        signal?.addEventListener('abort', this.abort);
        waits.set(id, this);
    }

    resolve(value) {
        this.end(false);
        this.settle(value);
    }

    // The promise is rejected with the function, for outcome().
    reject(makeError, isGivenUp = false) {
        this.end(isGivenUp);
        this.fail(makeError);
    }

    end(isGivenUp) {
        waits.delete(this.id);
        clearTimeout(this.timer);
        this.signal?.removeEventListener('abort', this.abort);
        this.over?.(isGivenUp, this);
    }
}

const endInTime = (wait) => wait.reject(() => wait.late(), true);

function endWaits() {
    for (const wait of waits.values()) wait.reject(closed, true);
}

// Makes the error where the runtime knows the asynchronous stack of whoever waits.
async function outcome(promise) {
    try {
        return await promise;
    } catch (makeError) {
        throw makeError();
    }
}

module.exports = { endWaits, outcome, startTimer, Wait, waits };
