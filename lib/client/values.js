'use strict';

// Payloads and targets.

const { checkName, checkOptions, checkText, invalid } = require('./checks');

// A payload: a text as it is, and an object or an array as JSON.
function toText(payload) {
    if (typeof payload === 'string') return checkText('the payload', payload);
    let json, cause;
    try {
        json = JSON.stringify(payload);
    } catch (error) {
        cause = error;
    }
    if (json?.[0] === '{' || json?.[0] === '[') return json;
    throw invalid('a payload is a string, or an object or an array that JSON can hold', cause && { cause });
}

// An object or an array where the text is JSON of one, else the text.
function fromText(text) {
    if (!/^\s*[[{]/.test(text)) return text;
    try {
        return JSON.parse(text);
    } catch {
        return text;
    }
}

// { appId, appVersion, id }, of which the last two may be empty.
function toTarget(to) {
    if (typeof to === 'string') return { appId: checkName('to', to), appVersion: '', id: '' };
    if (!isPlain(to)) throw invalid('to must be a string, or a plain object with an appId');
    const { appId, appVersion = '', id = '' } = checkOptions(to, ['appId', 'appVersion', 'id'], 'to');
    checkName('appId', appId);
    if (id !== '' && appVersion === '') throw invalid('an endpoint has an appId, an appVersion and an id');
    return { appId, appVersion, id };
}

// Plain objects of other realms have a prototype of their own, which has none either.
function isPlain(value) {
    const prototype = typeof value === 'object' && value !== null ? Object.getPrototypeOf(value) : undefined;
    return prototype === null || (prototype !== undefined && Object.getPrototypeOf(prototype) === null);
}

const nameOf = ({ appId, appVersion, id }) => [appId, appVersion, id].filter(Boolean).join(',');

module.exports = { fromText, nameOf, toTarget, toText };
