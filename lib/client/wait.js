'use strict';

// What a program waits for until its time is over, its signal is aborted or the client is closed.

const { closed } = require('./checks');

// A timer of the runtime's fires at once where it is given more.
const LONGEST_TIMER_MS = 2 ** 31 - 1;

// No timer for a longer time than it can take, which is as good as no limit.
function startTimer(action, milliseconds, argument) {
    return milliseconds > LONGEST_TIMER_MS ? undefined : setTimeout(action, milliseconds, argument);
}

// All that are under way. A process has one client.
const waits = new Set();

// For what there is once, too, each kind has changed(left), for when endpoints have come or left; late(), the error when the
// time is over; and over(isGivenUp), isGivenUp unless it ends well or by the other side.
class Wait {
    constructor({ timeout, signal }) {
        this.promise = new Promise((resolve, reject) => (this.settle = { resolve, reject }));
        this.timer = startTimer(endInTime, timeout, this);
        waits.add(this);
        if (signal === undefined) return;
        this.signal = signal;
        this.abort = () => this.reject(() => signal.reason, true);
        signal.addEventListener('abort', this.abort);
    }

    resolve(value) {
        this.end(false);
        this.settle.resolve(value);
    }

    // The promise is rejected with the function, for outcome().
    reject(makeError, isGivenUp = false) {
        this.end(isGivenUp);
        this.settle.reject(makeError);
    }

    end(isGivenUp) {
        waits.delete(this);
        clearTimeout(this.timer);
        this.signal?.removeEventListener('abort', this.abort);
        this.over?.(isGivenUp);
    }
}

const endInTime = (wait) => wait.reject(() => wait.late(), true);

function endWaits() {
    for (const wait of waits) wait.reject(closed, true);
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
