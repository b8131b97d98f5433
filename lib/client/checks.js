'use strict';

// Options, targets and payloads of a program's, and the errors that say what is wrong with them.

function errorWithCode(code, message, options, Type = Error) {
    return Object.assign(new Type(message, options), { code });
}

const invalid = (message, options) => errorWithCode('ERR_INVALID_ARG_VALUE', message, options, TypeError);
const closed = () => errorWithCode('ERR_BRIVONJS_CLOSED', 'the client is closed');

// A text that arrives as it is. Libraries end it at a NUL, and UTF-8 has no lone surrogates.
function checkText(what, value) {
    if (typeof value !== 'string') throw invalid(`${what} must be a string`);
    if (value.includes('\0')) throw invalid(`${what} must not hold a NUL character`);
    if (!value.isWellFormed()) throw invalid(`${what} must not hold a lone surrogate`);
    return value;
}

function checkName(what, value) {
    if (checkText(what, value) === '') throw invalid(`${what} must not be empty`);
    return value;
}

const must = (holds, text) => (name, value) => {
    if (!holds(value)) throw invalid(`${name} ${text}`);
};

// What options may be where they are given, whichever call takes them. Others are texts.
const CHECKS = {
    focus: must((value) => typeof value === 'boolean', 'must be a boolean'),
    ifUnknown: must((value) => value === 'throw' || value === 'everyone', "is 'throw' or 'everyone'"),
    limit: must((value) => typeof value === 'number' && value >= 1, 'must be a positive number'),
    signal: must((value) => value instanceof AbortSignal, 'must be an AbortSignal'),
    timeout: must((ms) => typeof ms === 'number' && ms > 0, 'must be a positive number of milliseconds, or Infinity'),
    to: () => {}, // where it is used
    waitFor: (name, value) => toTarget(value),
};

// An object of options, of which there are no others than these.
function checkOptions(options, names, what = 'options') {
    if (typeof options !== 'object' || options === null) throw invalid(`${what} must be an object`);
    for (const name of Object.keys(options))
        if (!names.includes(name)) throw invalid(`${what} has no '${name}', but ${names.join(', ')}`);
    for (const name of names) if (options[name] !== undefined) (CHECKS[name] ?? checkText)(name, options[name]);
    return options;
}

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
    try {
        return /^\s*[[{]/.test(text) ? JSON.parse(text) : text;
    } catch {
        return text;
    }
}

// { appId, appVersion, id }, of which the last two may be empty.
function toTarget(to) {
    if (typeof to === 'string') return { appId: checkName('to', to), appVersion: '', id: '' };
    // Plain objects of other realms have a prototype of their own, which has none either.
    const prototype = Object.getPrototypeOf(Object(to ?? ''));
    if (prototype !== null && Object.getPrototypeOf(prototype) !== null)
        throw invalid('to must be a string, or a plain object with an appId');
    const { appId, appVersion = '', id = '' } = checkOptions(to, ['appId', 'appVersion', 'id'], 'to');
    if (id !== '' && appVersion === '') throw invalid('an endpoint has an appId, an appVersion and an id');
    return { appId: checkName('appId', appId), appVersion, id };
}

module.exports = { checkName, checkOptions, checkText, closed, errorWithCode, fromText, invalid, toTarget, toText };
