'use strict';

// What crosses the client's face and the bus: checks of what a program passes, and texts made of values and back.

const { setMaxListeners } = require('node:events');

const { TYPE_PREFIX } = require('../constants');

// Of a type and a payload. The stand-in takes messages of 32 MiB, names included.
const SIZE_LIMIT = (32 << 20) - (64 << 10);

// A timer of the runtime's fires at once where it is given more.
const LONGEST_TIMER_MS = 2 ** 31 - 1;

function coded(code, message, options) {
    return Object.assign(new Error(message, options), { code });
}

function invalid(message, options) {
    return Object.assign(new TypeError(message, options), { code: 'ERR_INVALID_ARG_VALUE' });
}

// An object of options, of which there are no others than these.
function checked(options, names, what = 'options') {
    if (typeof options !== 'object' || options === null) throw invalid(`${what} must be an object`);
    const unknown = Object.keys(options).find((name) => !names.includes(name));
    if (unknown !== undefined) throw invalid(`${what} has no '${unknown}', but ${names.join(', ')}`);
    return options;
}

// A text that a library can take, which ends at a NUL there.
function text(what, value) {
    if (typeof value !== 'string') throw invalid(`${what} must be a string`);
    if (value.includes('\0')) throw invalid(`${what} must not hold a NUL character`);
    return value;
}

function nonEmpty(what, value) {
    if (text(what, value) === '') throw invalid(`${what} must not be empty`);
    return value;
}

// A program's one signal for its end may end many things.
function signalOf({ signal }) {
    if (signal === undefined) return undefined;
    if (!(signal instanceof AbortSignal)) throw invalid('signal must be an AbortSignal');
    setMaxListeners(0, signal);
    return signal;
}

// None for a longer time than it can take, which is as good as no limit.
function startTimer(action, milliseconds) {
    return milliseconds > LONGEST_TIMER_MS ? undefined : setTimeout(action, milliseconds);
}

// The payload of a message of that type: a text as it is, and an object or an array as JSON.
function toText(payload, type) {
    const result = text('the payload', typeof payload === 'string' ? payload : toJson(payload));
    const size = Buffer.byteLength(type) + Buffer.byteLength(result);
    if (size <= SIZE_LIMIT) return result;
    throw coded(
        'ERR_BRIVONJS_TOO_LARGE',
        `a type and its payload have ${SIZE_LIMIT} bytes at the most, and these ${size}`,
    );
}

function toJson(payload) {
    const meaning = 'a payload is a string, or an object or an array that JSON can hold';
    let json;
    try {
        json = JSON.stringify(payload);
    } catch (cause) {
        throw invalid(meaning, { cause });
    }
    if (/^[[{]/.test(json)) return json;
    throw invalid(meaning);
}

// An object or an array where the text is JSON of one, else the text.
function fromText(received) {
    if (!/^\s*[[{]/.test(received)) return received;
    try {
        return JSON.parse(received);
    } catch {
        return received;
    }
}

const withoutPrefix = (type) => (type.startsWith(TYPE_PREFIX) ? type.slice(TYPE_PREFIX.length) : type);

// The parts of {appId,appVersion,id}, in which nothing is quoted; undefined for any other text. An id has no comma; with
// more than two of them in the text it is open where the application id ends, and the version gets what follows.
function toEndpoint(endpointText) {
    const [, appId, appVersion, id] = endpointText.match(/^\{(.*?),(.*),([^,]*)\}$/s) ?? [];
    return id === undefined ? undefined : { appId, appVersion, id };
}

const fromEndpoint = ({ appId, appVersion, id }) => `{${appId},${appVersion},${id}}`;

module.exports = {
    checked,
    coded,
    fromEndpoint,
    fromText,
    invalid,
    nonEmpty,
    signalOf,
    startTimer,
    text,
    toEndpoint,
    toText,
    withoutPrefix,
};
