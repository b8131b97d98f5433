'use strict';

// The built files themselves, read on the machine that builds.

const assert = require('node:assert/strict');
const { execFileSync } = require('node:child_process');
const path = require('node:path');
const { test } = require('node:test');

const { buildDirectory, root } = require('../support/support');

test('the module exports its registration and nothing else', () => {
    const symbols = execFileSync('nm', ['-D', '--defined-only', path.join(buildDirectory, 'BrivonJS.node')], {
        encoding: 'utf8',
    });
    assert.match(symbols, /^[0-9a-f]{16} D _register_BrivonJS_\n$/);
});

test('the module finds its libraries beside itself', () => {
    const dynamic = execFileSync('readelf', ['-dW', path.join(buildDirectory, 'BrivonJS.node')], { encoding: 'utf8' });
    assert.match(dynamic, /RUNPATH\).*\[\$ORIGIN\]/);
    for (const library of ['BrivonMessage5', 'BrivonControl'])
        assert.match(dynamic, new RegExp(`NEEDED\\).*\\[lib${library}\\.so\\]`));
});

// Slots as the contract's own compiler lays them out, which puts a destructor into one slot and not into two.
const slots = {
    EndPoint: ['~EndPoint'],
    SuiteMessage: ['~SuiteMessage'],
    IBrivonMessageListener: ['Receive'],
    IBrivonMessageDispatcher: [
        'Reserved0',
        'Send',
        'AddMessageListener',
        'RemoveMessageListener',
        'AddErrorListener',
        'RemoveErrorListener',
        'RegisterEndPointsCallback',
        'UnregisterEndPointsCallback',
        'RefreshEndPoints',
        'IsRefreshing',
        'GetSelfEndPoint',
        'IsReady',
        'GetEndPoints',
        'ReleaseEndPoints',
    ],
    IBrivonController: [
        'Reserved0',
        'LaunchApp',
        'IsAppInstalled',
        'IsAppRunning',
        'IsAppRunningByName',
        'GetAppPath',
        'ReleaseAppPath',
        'GetSpecifiers',
        'ReleaseSpecifiers',
        'GetProcessId',
    ],
};

test('the virtual operations of the contract have their slots on the ABI of the closed library', () => {
    const dump = ['messaging_slots.cpp', 'control_slots.cpp']
        .map((file) =>
            execFileSync(
                'clang++',
                [
                    '--target=x86_64-pc-windows-msvc',
                    '-ffreestanding',
                    '-std=c++17',
                    '-Wall',
                    '-Wextra',
                    '-Werror',
                    `-I${path.join(root, 'interfaces')}`,
                    ...['-S', '-emit-llvm', '-o', '/dev/null', '-Xclang', '-fdump-vtable-layouts'],
                    path.join(root, 'test', 'abi', file),
                ],
                { encoding: 'utf8' },
            ),
        )
        .join('');
    const found = {};
    for (const [, name, table] of dump.matchAll(
        /VFTable indices for 'kesta::brivon::api5::(\w+)' \(\d+ entr[a-z]+\)\.\n((?: +\d+ \| .*\n)*)/g,
    )) {
        found[name] = [];
        for (const [, slot, operation] of table.matchAll(/^ +(\d+) \| .*::(~?\w+)\(/gm))
            found[name][Number(slot)] = operation;
    }
    for (const [name, operations] of Object.entries(slots)) assert.deepEqual(found[name], operations, name);
});
