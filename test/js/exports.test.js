'use strict';

const assert = require('node:assert/strict');
const test = require('node:test');

require('brivonjs/standins');
const brivonjs = require('brivonjs');
const { BrivonAdapter, BrivonControlAdapter } = brivonjs;

const methods = {
    BrivonAdapter: [
        'sendMessage',
        'addMessageListener',
        'addErrorListener',
        'getSelfEndpoint',
        'getEndpoints',
        'getEndpointCacheSnapshot',
        'forceRefreshEndpoints',
        'setVerboseLogging',
        'removeAllListeners',
    ],
    BrivonControlAdapter: [
        'getSpecifiers',
        'isAppInstalled',
        'isAppRunning',
        'isAppRunningByName',
        'getAppPath',
        'getAppVersion',
        'getProcessId',
        'launchApp',
    ],
};

test('the exports are plain properties in their order', () => {
    assert.deepEqual(Object.keys(brivonjs), ['BrivonAdapter', 'BrivonControlAdapter', '_setLibraryPath']);
    for (const key of Object.keys(brivonjs)) {
        const { value, ...attributes } = Object.getOwnPropertyDescriptor(brivonjs, key);
        assert.deepEqual(attributes, { writable: true, enumerable: true, configurable: true });
        assert.equal(value.name, key === '_setLibraryPath' ? '' : key);
    }
});

test('methods stand on the prototypes in their order, neither writable nor enumerable nor configurable', () => {
    for (const [name, expected] of Object.entries(methods)) {
        const { prototype } = brivonjs[name];
        const own = Object.getOwnPropertyNames(prototype).filter((key) => key !== 'constructor');
        assert.deepEqual(own, expected);
        assert.deepEqual(Object.keys(prototype), []);
        for (const key of own) {
            const { value, ...attributes } = Object.getOwnPropertyDescriptor(prototype, key);
            assert.deepEqual(attributes, { writable: false, enumerable: false, configurable: false });
            assert.equal(typeof value, 'function');
        }
    }
});

test('a constructor called as a function refuses', () => {
    for (const constructor of [BrivonAdapter, BrivonControlAdapter])
        assert.throws(() => constructor('a', 'b'), {
            name: 'TypeError',
            message: "Class constructors cannot be invoked without 'new'",
        });
});

test('bad arguments get their errors', () => {
    const adapter = new BrivonAdapter('app', '1');
    const count = { name: 'TypeError', message: 'Wrong number of arguments' };
    const specifier = { name: 'TypeError', message: 'Expected targetSpecifier to be a string' };
    const conversion = { name: 'Error', message: 'A string was expected' };
    const refusals = [
        [count, () => new BrivonAdapter()],
        [count, () => new BrivonAdapter('app')],
        [conversion, () => new BrivonAdapter(1, '1')],
        [conversion, () => new BrivonAdapter('app', null)],
        [conversion, () => new BrivonAdapter('app', '1', undefined)],
        [count, () => adapter.sendMessage()],
        [count, () => adapter.sendMessage('type')],
        [specifier, () => adapter.sendMessage(1, 'payload')],
        [specifier, () => adapter.sendMessage('type', 'payload', undefined)],
        [specifier, () => adapter.sendMessage('type', 'payload', '', '', '', 6)],
        [count, () => adapter.addMessageListener()],
        [count, () => adapter.addErrorListener()],
        [{ name: 'Error', message: 'Invalid argument' }, () => adapter.addMessageListener('not a function')],
        [{ name: 'Error', message: 'Invalid argument' }, () => adapter.addErrorListener({})],
    ];
    for (const [expected, call] of refusals) {
        let thrown;
        assert.throws(call, (error) => ((thrown = error), true));
        assert.deepEqual({ name: thrown.name, message: thrown.message }, expected, call.toString());
        assert.ok(!('code' in thrown) || expected.name !== 'TypeError', call.toString());
    }
});
