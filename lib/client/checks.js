'use strict';

// Checks of what a program passes, and the errors that say what is wrong with it.

function errorWithCode(code, message, options) {
    return Object.assign(new Error(message, options), { code });
}

function invalid(message, options) {
    return Object.assign(new TypeError(message, options), { code: 'ERR_INVALID_ARG_VALUE' });
}

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

// What options may be where they are given, whichever call takes them.
const CHECKS = {
    appVersion: checkText,
    args: checkText,
    defaultAppId: checkText,
    focus: must((value) => typeof value === 'boolean', 'must be a boolean'),
    folder: checkText,
    id: checkText,
    ifUnknown: must((value) => value === 'throw' || value === 'everyone', "is 'throw' or 'everyone'"),
    limit: must((value) => typeof value === 'number' && value >= 1, 'must be a positive number'),
    signal: must((value) => value instanceof AbortSignal, 'must be an AbortSignal'),
    timeout: must(
        (value) => typeof value === 'number' && value > 0,
        'must be a positive number of milliseconds, or Infinity',
    ),
    type: checkText,
};

// An object of options, of which there are no others than these.
function checkOptions(options, names, what = 'options') {
    if (typeof options !== 'object' || options === null) throw invalid(`${what} must be an object`);
    for (const name of Object.keys(options))
        if (!names.includes(name)) throw invalid(`${what} has no '${name}', but ${names.join(', ')}`);
    for (const name of names) if (options[name] !== undefined) CHECKS[name]?.(name, options[name]);
    return options;
}

module.exports = { checkName, checkOptions, checkText, closed, errorWithCode, invalid };
