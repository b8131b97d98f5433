'use strict';

// What the module exports, and the arguments that it and the scripts refuse.

const assert = require('node:assert/strict');
const test = require('node:test');

const { control, messaging } = require('brivonjs/standins');
const brivonjs = require('brivonjs');
const { BrivonAdapter, BrivonControlAdapter, _setLibraryPath } = brivonjs;

const queries = ['isAppInstalled', 'isAppRunning', 'isAppRunningByName', 'getAppPath', 'getAppVersion', 'getProcessId'];

test('the exports are plain properties, and the methods fixed ones of the prototypes, in their order', () => {
    const methods =
        'sendMessage addMessageListener addErrorListener getSelfEndpoint getEndpoints getEndpointCacheSnapshot ' +
        'forceRefreshEndpoints setVerboseLogging removeAllListeners';
    for (const [object, names, isPlain] of [
        [brivonjs, 'BrivonAdapter BrivonControlAdapter _setLibraryPath', true],
        [BrivonAdapter.prototype, methods, false],
        [BrivonControlAdapter.prototype, `getSpecifiers ${queries.join(' ')} launchApp`, false],
    ]) {
        const { constructor, ...properties } = Object.getOwnPropertyDescriptors(object);
        assert.equal(Object.keys(properties).join(' '), names);
        for (const { value, ...attributes } of Object.values(properties))
            assert.deepEqual(attributes, { writable: isPlain, enumerable: isPlain, configurable: isPlain });
    }
    assert.equal(_setLibraryPath.name, '');
});

// Asserts that each call throws this, a TypeError without a code, and that no library is asked for anything.
function assertRefusals(name, message, calls) {
    for (const call of calls)
        assert.throws(
            call,
            (error) => error.name === name && error.message === message && (name === 'Error' || !('code' in error)),
            `${call}`,
        );
    assert.deepEqual([...messaging.takeCalls(), ...control.takeCalls()], []);
}

test('bad arguments get their errors before a library is asked', () => {
    const adapter = new BrivonAdapter('app', '1');
    const controlAdapter = new BrivonControlAdapter();
    messaging.takeCalls();
    control.takeCalls();
    const listener = () => assert.fail('a refused call calls nobody');
    const launch = (...args) => controlAdapter.launchApp(...args);

    const texts = (name) => `Expected ${name} to be a string`;
    assertRefusals('TypeError', 'Wrong number of arguments', [
        () => new BrivonAdapter('app'),
        () => adapter.sendMessage('type'),
        () => adapter.addMessageListener(),
        () => adapter.addErrorListener(),
        () => _setLibraryPath(),
        () => controlAdapter.getSpecifiers(undefined),
        ...queries.flatMap((query) => [() => controlAdapter[query](), () => controlAdapter[query]('a', 'b')]),
        () => launch('a', true, 'b'),
        () => launch('a', true, 'b', listener, 5),
    ]);
    assertRefusals('TypeError', texts('targetSpecifier'), [
        () => adapter.sendMessage(1, 'payload'),
        () => adapter.sendMessage('type', 'payload', undefined),
        () => adapter.sendMessage('type', 'payload', '', '', '', 6),
        ...queries.map((query) => () => controlAdapter[query](5)),
        () => launch(5, 5, 5, 5),
    ]);
    assertRefusals('TypeError', 'Expected setFocus to be a Boolean', [() => launch('a', 'true', 5, 5)]);
    assertRefusals('TypeError', texts('cmdLineArgs'), [() => launch('a', true, 5, 5)]);
    assertRefusals('TypeError', 'Expected callback to be a function', [() => launch('a', true, 'b', {})]);
    assertRefusals('Error', 'A string was expected', [
        () => new BrivonAdapter('app', null),
        () => new BrivonAdapter('app', '1', undefined),
        () => _setLibraryPath(5),
    ]);
    assertRefusals('Error', 'Invalid argument', [() => adapter.addErrorListener({})]);
    assertRefusals('TypeError', "Class constructors cannot be invoked without 'new'", [
        () => BrivonAdapter('a', 'b'),
        () => BrivonControlAdapter(),
    ]);
});

test('the scripts refuse what they cannot do', () => {
    for (const call of [
        () => messaging.answer('Sned', 0),
        () => messaging.answer('Send', 0, 0),
        () => messaging.answer('IsReady', { throws: 5 }),
        () => messaging.setEndpoints([{ id: 1 }]),
        () => messaging.deliver({ type: 't', listeners: 'none' }),
        () => messaging.deliver({ type: () => {} }),
        () => control.answer('LaunchAp', true),
        () => control.answer('LaunchApp', { launched: true }),
        () => control.answer('IsAppRunning', { throws: 'x' }),
        () => control.answer('GetSpecifiers', ['a', 1]),
        () => control.answer('GetProcessId', 2 ** 31),
        () => messaging.answer('Send', 0.5),
    ])
        assert.throws(call, (error) => error instanceof TypeError && error.message !== '', `${call}`);
});
