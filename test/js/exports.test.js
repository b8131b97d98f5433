'use strict';

// What the module exports, and the arguments that it refuses.

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

test('bad arguments get their errors before a library is asked', () => {
    const adapter = new BrivonAdapter('app', '1');
    const controlAdapter = new BrivonControlAdapter();
    messaging.takeCalls();
    control.takeCalls();
    const listener = () => assert.fail('a refused call calls nobody');
    const construct = (...args) => new BrivonAdapter(...args);
    const [send, launch] = [adapter.sendMessage, controlAdapter.launchApp];

    const number = 'TypeError: Wrong number of arguments';
    const specifier = 'TypeError: Expected targetSpecifier to be a string';
    const text = 'Error: A string was expected';
    const isNew = "TypeError: Class constructors cannot be invoked without 'new'";
    // The error, without a code if it is a TypeError; the object; its method; and lists of arguments.
    for (const [expected, object, method, ...lists] of [
        [number, undefined, construct, ['app']],
        [number, adapter, send, ['type']],
        [number, adapter, adapter.addMessageListener, []],
        [number, adapter, adapter.addErrorListener, []],
        [number, undefined, _setLibraryPath, []],
        [number, controlAdapter, controlAdapter.getSpecifiers, [undefined]],
        ...queries.map((query) => [number, controlAdapter, controlAdapter[query], [], ['a', 'b']]),
        [number, controlAdapter, launch, ['a', true, 'b'], ['a', true, 'b', listener, 5]],
        [specifier, adapter, send, [1, 'p'], ['type', 'p', undefined], ['type', 'p', '', '', '', 6]],
        ...queries.map((query) => [specifier, controlAdapter, controlAdapter[query], [5]]),
        [specifier, controlAdapter, launch, [5, 5, 5, 5]],
        ['TypeError: Expected setFocus to be a Boolean', controlAdapter, launch, ['a', 'true', 5, 5]],
        ['TypeError: Expected cmdLineArgs to be a string', controlAdapter, launch, ['a', true, 5, 5]],
        ['TypeError: Expected callback to be a function', controlAdapter, launch, ['a', true, 'b', {}]],
        [text, undefined, construct, ['app', null], ['app', '1', undefined]],
        [text, undefined, _setLibraryPath, [5]],
        ['Error: Invalid argument', adapter, adapter.addErrorListener, [{}]],
        [isNew, undefined, BrivonAdapter, ['a', 'b']],
        [isNew, undefined, BrivonControlAdapter, []],
    ])
        for (const args of lists)
            assert.throws(
                () => method.apply(object, args),
                (error) => `${error}` === expected && (error.name === 'Error' || !('code' in error)),
                `${expected}: ${method.name}(${args})`,
            );
    assert.deepEqual([...messaging.takeCalls(), ...control.takeCalls()], []);
});
