'use strict';

// Who else is on the bus, by the module's endpoint cache, from which it chooses the destinations of sends. The cache is read
// at most once per turn of the event loop. Nothing tells of its changes, so it is read five times a second while somebody
// waits for one.

const { fromEndpoint, toEndpoint } = require('../texts');

const LOOK_INTERVAL_MS = 200;

// Whether the cache was read in this turn. A process has one client.
let isCurrent = false;

// To be called when the cache has changed in the middle of a turn.
function forget() {
    isCurrent = false;
}

class Presence {
    // A message has come in, whose source may be newer than the list of this turn.
    hasHeard = false;
    #texts = [];
    #endpoints = new Map(); // by their texts, without this program's own
    #destinations = new Map(); // by target, until the endpoints change
    #timer;

    // Calls changed(joined, left) with the endpoints, from the call of watch() on for as long as isWatched().
    constructor(adapter, isWatched, changed) {
        Object.assign(this, { adapter, isWatched, changed });
    }

    get endpoints() {
        this.#look();
        return [...this.#endpoints.values()];
    }

    watch() {
        this.#look();
        this.#timer ??= setInterval(() => {
            if (this.isWatched()) this.#look();
            else this.#timer = clearInterval(this.#timer);
        }, LOOK_INTERVAL_MS).unref();
    }

    has(endpoint) {
        this.#look();
        const text = fromEndpoint(endpoint);
        return this.#endpoints.has(text) || text === this.adapter.getSelfEndpoint();
    }

    // Where a message for the target goes: { endpoints, appId, appVersion, id }, of which the last three are arguments of
    // sendMessage; undefined where nobody is the target. An endpoint that is named in full need not be there.
    // One without a version cannot be named alone, and one without an application cannot be named.
    destination(target) {
        const { appId, appVersion, id } = target;
        if (appId === '') return undefined;
        if (appVersion !== '' && id !== '') return { endpoints: [target], appId, appVersion, id };
        this.#look();
        const key = `${appId}\0${appVersion}`;
        const destination = this.#destinations.get(key) ?? this.#choose(target);
        if (destination !== undefined) this.#destinations.set(key, destination);
        if (destination !== undefined || !this.hasHeard) return destination;
        forget();
        return this.destination(target);
    }

    #look() {
        if (isCurrent) return;
        isCurrent = true;
        this.hasHeard = false;
        setImmediate(forget);
        const texts = this.adapter.getEndpointCacheSnapshot();
        if (texts.length !== this.#texts.length || texts.some((text, i) => text !== this.#texts[i])) this.#take(texts);
    }

    #take(texts) {
        const before = this.#endpoints;
        const self = this.adapter.getSelfEndpoint();
        this.#texts = texts;
        this.#endpoints = new Map(texts.filter((text) => text !== self).map((text) => [text, toEndpoint(text)]));
        this.#destinations.clear();
        if (!this.isWatched()) return;
        const missing = (from, others) => [...from].filter(([text]) => !others.has(text)).map(([, one]) => one);
        // Later, because what those who left have sent before is heard first.
        setImmediate(this.changed, missing(this.#endpoints, before), missing(before, this.#endpoints));
    }

    // A comma in a field must not make an endpoint look like the target, nor must a single endpoint that has gone since be
    // named by its application: the message would go to everyone.
    #choose({ appId, appVersion }) {
        const clear = this.endpoints.filter((one) => one.appId === appId && !one.appVersion.includes(','));
        const endpoints = clear.filter((one) => appVersion === '' || one.appVersion === appVersion);
        if (endpoints.length === 1 && endpoints[0].appVersion !== '') return { endpoints, ...endpoints[0] };
        return endpoints.length === 0 ? undefined : { endpoints, appId, appVersion, id: '' };
    }
}

module.exports = { forget, Presence };
