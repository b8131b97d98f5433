'use strict';

// Checks of what a program passes, and the errors that say what is wrong with it.

const { setMaxListeners } = require('node:events');

function errorWithCode(code, message, options) {
    return Object.assign(new Error(message, options), { code });
}

function invalid(message, options) {
    return Object.assign(new TypeError(message, options), { code: 'ERR_INVALID_ARG_VALUE' });
}

const closed = () => errorWithCode('ERR_BRIVONJS_CLOSED', 'the client is closed');

// An object of options, of which there are no others than these.
function checkOptions(options, names, what = 'options') {
    if (typeof options !== 'object' || options === null) throw invalid(`${what} must be an object`);
    for (const name of Object.keys(options))
        if (!names.includes(name)) throw invalid(`${what} has no '${name}', but ${names.join(', ')}`);
    return options;
}

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

// A program's one signal for its end may end many things.
function checkSignal({ signal }) {
    if (signal === undefined) return undefined;
    if (!(signal instanceof AbortSignal)) throw invalid('signal must be an AbortSignal');
    setMaxListeners(0, signal);
    return signal;
}

// Options of something to wait for.
function checkWait(options, names) {
    const { timeout = 30_000 } = checkOptions(options, names);
    if (typeof timeout !== 'number' || !(timeout > 0))
        throw invalid('timeout must be a positive number of milliseconds, or Infinity');
    return { timeout, signal: checkSignal(options) };
}

module.exports = { checkName, checkOptions, checkSignal, checkText, checkWait, closed, errorWithCode, invalid };
