'use strict';

// The script of the stand-in libraries, for tests. Loading this file switches the script on for the whole process, which
// is possible only before its first adapter. standins.d.ts says what there is.

const { TYPE_PREFIX, ERROR_TYPE } = require('./constants');
const { forget } = require('./client/presence');
const { loadStandins } = require('./libraries');

const standins = loadStandins();
standins.messaging('switchOn');
standins.control('switchOn');

// ---- Checks. What is not given has the usual value, whatever its kind.

const isObject = (value) =>
    typeof value === 'object' && value !== null && !Array.isArray(value) && !ArrayBuffer.isView(value);

function refuse(text) {
    throw new TypeError(text);
}

function check(value, kind, what) {
    const given = Array.isArray(value) ? 'array' : ArrayBuffer.isView(value) ? 'string' : typeof value;
    if (value === undefined || value === null || given === kind) return;
    if (!['array', 'string', 'object', 'number', 'boolean'].includes(given)) refuse('A script takes plain values only');
    refuse(`${what} must be ${kind === 'array' ? 'an' : 'a'} ${kind}`);
}

function checkInteger(value, what) {
    check(value, 'number', what);
    if (typeof value === 'number' && value !== (value | 0)) refuse(`${what} must be a whole number of 32 bits`);
}

function checkList(value, what, checkElement) {
    check(value, 'array', what);
    value?.forEach(checkElement);
}

function checkTexts(value, ...names) {
    for (const name of names) check(value?.[name], 'string', name);
}

// ---- What an operation may answer

const status = (answer) => checkInteger(answer, 'a status');
const boolean = (answer) => check(answer, 'boolean', 'an answer of this operation');
const endpoint = (answer) => checkTexts(answer, 'id', 'appId', 'appVersion');

function instance(answer) {
    check(answer?.instance, 'boolean', 'instance');
    if (answer?.instance !== false) status(answer);
}

function endpoints(answer) {
    if (isObject(answer)) checkInteger(answer.count, 'count');
    if (!isObject(answer) || answer.count !== 0) checkList(answer, 'an endpoint list', endpoint);
}

function launch(answer) {
    if (!isObject(answer)) return boolean(answer);
    check(answer.holds, 'boolean', 'holds');
    if (!answer.holds) refuse('an answer of LaunchApp is a boolean, { holds: true, launched } or { throws }');
    check(answer.launched, 'boolean', 'launched');
}

// Operations without a check give no answer.
const messagingOperations = {
    SetConfig: status,
    GetInstance: instance,
    Send: status,
    AddMessageListener: undefined,
    RemoveMessageListener: undefined,
    AddErrorListener: undefined,
    RemoveErrorListener: undefined,
    RegisterEndPointsCallback: undefined,
    UnregisterEndPointsCallback: undefined,
    RefreshEndPoints: boolean,
    IsRefreshing: boolean,
    GetSelfEndPoint: endpoint,
    IsReady: boolean,
    GetEndPoints: endpoints,
    ReleaseEndPoints: undefined,
};

const controlOperations = {
    GetInstance: instance,
    SetConfig: status,
    SetConfigEx: status,
    LaunchApp: launch,
    IsAppInstalled: boolean,
    IsAppRunning: boolean,
    IsAppRunningByName: boolean,
    GetAppPath: (answer) => check(answer, 'string', 'a path'),
    GetSpecifiers: (answer) => checkList(answer, 'the specifiers', (text) => check(text, 'string', 'a specifier')),
    GetProcessId: (answer) => checkInteger(answer, 'a process id'),
};

// ---- The scripts

function scriptOf(library, operations, mayThrow) {
    const request = standins[library];

    function checkAnswer(operation, answer) {
        if (!Object.hasOwn(operations, operation)) refuse(`the ${library} library has no operation ${operation}`);
        const throws = isObject(answer) ? (answer.throws ?? undefined) : undefined;
        if (throws !== undefined) {
            if (!mayThrow(operation)) refuse(`${operation} may not throw`);
            check(throws, 'string', 'throws');
        } else if (operations[operation] === undefined) {
            refuse(`${operation} gives no answer; it can only throw`);
        } else {
            operations[operation](answer);
        }
    }

    return {
        takeCalls: () => request('takeCalls'),
        reset: () => void request('reset'),
        answer(operation, answer, times = 1) {
            if (!(Number.isInteger(Number(times)) || Number(times) === Infinity) || times < 1)
                refuse('times must be a positive whole number or Infinity');
            if (typeof operation !== 'string') refuse('operation must be a string');
            checkAnswer(operation, answer);
            request('answer', operation, answer, Number(times));
        },
    };
}

const messaging = {
    ...scriptOf('messaging', messagingOperations, () => true),
    deliver(message) {
        checkTexts(message, 'type', 'appId', 'appVersion', 'payload', 'error', 'fault', 'listeners');
        endpoint(message?.source);
        if (![undefined, null, '', 'message', 'error'].includes(message?.listeners))
            refuse("listeners must be 'message' or 'error'");
        standins.messaging('deliver', message);
        forget(); // a client sees in this turn what the script does in it
    },
    setEndpoints(list) {
        checkList(list, 'an endpoint list', endpoint);
        standins.messaging('setEndpoints', list);
        forget();
    },
    setSelf(self) {
        endpoint(self);
        standins.messaging('setSelf', self);
    },
};

const control = {
    ...scriptOf('control', controlOperations, (operation) => operation === 'LaunchApp'),
    reset() {
        standins.control('reset');
        standins.control('releaseLaunches');
    },
    releaseLaunches: () => void standins.control('releaseLaunches'),
};

module.exports = { messaging, control, TYPE_PREFIX, SUITE_TYPE_PREFIX: TYPE_PREFIX, ERROR_TYPE };
