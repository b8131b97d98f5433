'use strict';

// The built files themselves, read on the machine that builds.

const assert = require('node:assert/strict');
const { execFileSync } = require('node:child_process');
const path = require('node:path');
const { test } = require('node:test');

const { buildDirectory, root } = require('../support/support');

const output = (tool, ...args) => execFileSync(tool, args, { encoding: 'utf8' });
const moduleFile = path.join(buildDirectory, 'BrivonJS.node');

test('the module exports its registration and nothing else', () => {
    assert.match(output('nm', '-D', '--defined-only', moduleFile), /^[0-9a-f]{16} D _register_BrivonJS_\n$/);
});

test('the module finds its libraries beside itself', () => {
    const dynamic = output('readelf', '-dW', moduleFile);
    assert.match(dynamic, /RUNPATH\).*\[\$ORIGIN\]/);
    for (const library of ['BrivonMessage5', 'BrivonControl'])
        assert.match(dynamic, new RegExp(`NEEDED\\).*\\[lib${library}\\.so\\]`));
});

// As the contract's own compiler lays them out, which puts a destructor into one slot and not into two.
test('the virtual operations of the contract have their slots on the ABI of the closed library', () => {
    const dump = output(
        'clang++',
        ...['--target=x86_64-pc-windows-msvc', '-ffreestanding', '-std=c++17', '-Wall', '-Wextra', '-Werror'],
        ...['-S', '-emit-llvm', '-o', '/dev/null', '-Xclang', '-fdump-vtable-layouts'],
        `-I${path.join(root, 'interfaces')}`,
        path.join(root, 'test', 'abi', 'slots.cpp'),
    );
    const tables = /VFTable indices for 'kesta::brivon::api5::(\w+)' \(\d+ entr[a-z]+\)\.\n((?: +\d+ \| .*\n)*)/g;
    const found = {};
    for (const [, name, table] of dump.matchAll(tables)) {
        const slots = [];
        for (const [, slot, operation] of table.matchAll(/^ +(\d+) \| .*::(~?\w+)\(/gm)) slots[slot] = operation;
        found[name] = slots.join(' ');
    }
    for (const [name, slots] of Object.entries({
        EndPoint: '~EndPoint',
        SuiteMessage: '~SuiteMessage',
        IBrivonMessageListener: 'Receive',
        IBrivonMessageDispatcher:
            'Reserved0 Send AddMessageListener RemoveMessageListener AddErrorListener RemoveErrorListener ' +
            'RegisterEndPointsCallback UnregisterEndPointsCallback RefreshEndPoints IsRefreshing GetSelfEndPoint ' +
            'IsReady GetEndPoints ReleaseEndPoints',
        IBrivonController:
            'Reserved0 LaunchApp IsAppInstalled IsAppRunning IsAppRunningByName GetAppPath ReleaseAppPath ' +
            'GetSpecifiers ReleaseSpecifiers GetProcessId',
    }))
        assert.equal(found[name], slots, name);
});
