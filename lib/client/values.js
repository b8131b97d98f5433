'use strict';

// Texts of the bus made of what a program passes, and back.

const { checkName, checkOptions, checkText, invalid } = require('./checks');
const { TYPE_PREFIX } = require('../constants');

// A timer of the runtime's fires at once where it is given more.
const LONGEST_TIMER_MS = 2 ** 31 - 1;

// No timer for a longer time than it can take, which is as good as no limit.
function startTimer(action, milliseconds, argument) {
    return milliseconds > LONGEST_TIMER_MS ? undefined : setTimeout(action, milliseconds, argument);
}

// A payload: a text as it is, and an object or an array as JSON.
function toText(payload) {
    if (typeof payload === 'string') return checkText('the payload', payload);
    const meaning = 'a payload is a string, or an object or an array that JSON can hold';
    let json;
    try {
        json = JSON.stringify(payload);
    } catch (cause) {
        throw invalid(meaning, { cause });
    }
    if (json?.[0] !== '{' && json?.[0] !== '[') throw invalid(meaning);
    return json;
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

// { appId, appVersion, id }, of which the last two may be empty.
function toTarget(to) {
    if (typeof to === 'string') return { appId: checkName('to', to), appVersion: '', id: '' };
    if (!isPlain(to)) throw invalid('to must be a string, or a plain object with an appId');
    const { appId, appVersion = '', id = '' } = checkOptions(to, ['appId', 'appVersion', 'id'], 'to');
    checkName('appId', appId);
    checkText('appVersion', appVersion);
    if (checkText('id', id) !== '' && appVersion === '')
        throw invalid('an endpoint has an appId, an appVersion and an id');
    return { appId, appVersion, id };
}

// Plain objects of other realms have a prototype of their own, which has none either.
function isPlain(value) {
    const prototype = typeof value === 'object' && value !== null && Object.getPrototypeOf(value);
    return prototype === null || (prototype !== false && Object.getPrototypeOf(prototype) === null);
}

const nameOf = ({ appId, appVersion, id }) => [appId, appVersion, id].filter(Boolean).join(',');

// The parts of {appId,appVersion,id}, in which nothing is quoted; undefined for any other text. An id has no comma; with
// more than two of them in the text it is open where the application id ends, and the version gets what follows.
function toEndpoint(endpointText) {
    const [, appId, appVersion, id] = endpointText.match(/^\{(.*?),(.*),([^,]*)\}$/s) ?? [];
    return id === undefined ? undefined : { appId, appVersion, id };
}

const fromEndpoint = ({ appId, appVersion, id }) => `{${appId},${appVersion},${id}}`;

module.exports = { fromEndpoint, fromText, nameOf, startTimer, toEndpoint, toTarget, toText, withoutPrefix };
