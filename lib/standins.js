'use strict';

// The script of the stand-in libraries, for tests. Loading this file switches the script on for the whole process, which
// is possible only before its first adapter: from then on the libraries touch no real bus, record every call made of
// them and answer as they are told.

const { ERROR_TYPE, TYPE_PREFIX } = require('./constants');
const { loadStandins } = require('./libraries');

const addon = loadStandins();

// What every stand-in's script can do.
class Script {
    #face;

    constructor(face) {
        face.switchOn();
        this.#face = face;
    }

    // The calls recorded since the last time, oldest first: { operation, arguments, thread: 'caller' | 'library' }.
    takeCalls() {
        return this.#face.takeCalls();
    }

    // Sets the next answers of an operation, after those set before; { throws: text } is thrown inside the library.
    // times may be Infinity.
    answer(operation, answer, times = 1) {
        this.#face.answer(operation, answer, times);
    }

    // Forgets calls, answers and everything else that was set.
    reset() {
        this.#face.perform('reset');
    }

    perform(command, argument) {
        this.#face.perform(command, argument);
    }
}

class MessagingScript extends Script {
    // Hands a message to the listeners from a library thread and returns when the module has taken it. type is the full
    // type; an application message has { appId, appVersion, source: { id, appId, appVersion }, payload }, where a
    // payload that is not given has size 0 and '' has size 1; an error message has { error, fault }. Errors go to the
    // error listeners and everything else to the message listeners, unless listeners ('message' | 'error') says which.
    deliver(message) {
        this.perform('deliver', message);
    }

    // Sets the dispatcher's endpoints, [{ id, appId, appVersion }], and has the adapters rebuild their caches.
    setEndpoints(endpoints) {
        this.perform('setEndpoints', endpoints);
    }

    // Sets this process's own endpoint; until then it is 'self' with what the last adapter was configured with.
    setSelf(endpoint) {
        this.perform('setSelf', endpoint);
    }
}

class ControlScript extends Script {
    // Lets go of every launch that an answer { holds: true, launched } of LaunchApp holds back.
    releaseLaunches() {
        this.perform('releaseLaunches');
    }
}

module.exports = {
    messaging: new MessagingScript(addon.message),
    control: new ControlScript(addon.control),
    SUITE_TYPE_PREFIX: TYPE_PREFIX,
    TYPE_PREFIX,
    ERROR_TYPE,
};
