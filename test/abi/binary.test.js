'use strict';

// The built files themselves, of all platforms, read on the machine that builds.

const assert = require('node:assert/strict');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { root } = require('../support/support');

const run = (tool, ...args) => execFileSync(tool, args, { encoding: 'utf8', maxBuffer: 1 << 28 });
const read = (tool, ...args) => run(`x86_64-w64-mingw32-${tool}`, ...args);
const built = (platform, name) => path.join(root, 'build', platform, name);
const firsts = (text, pattern) => [...new Set([...text.matchAll(pattern)].map(([, name]) => name))].sort();
const linuxModules = ['linux-x64', 'linux-arm64'].map((platform) => built(platform, 'BrivonJS.node'));
const windowsModule = built('win32-x64', 'BrivonJS.node');

test('the module exports its registration, which is data, and nothing else', () => {
    for (const module of linuxModules)
        assert.match(run('nm', '-D', '--defined-only', module), /^[0-9a-f]{16} D _register_BrivonJS_\n$/);
    const [, names] = read('objdump', '-p', windowsModule).split('[Ordinal/Name Pointer] Table');
    assert.deepEqual(firsts(names, /^\t\[ +\d+\] (\S+)/gm), ['_register_BrivonJS_']);
});

test('libraries are found beside the module, and are those of the contracts and of the system, no compiler’s', () => {
    for (const module of linuxModules) assert.match(run('readelf', '-dW', module), /RUNPATH\).*\[\$ORIGIN\]/);
    for (const [name, imports] of [
        ['BrivonJS.node', 'BrivonControl.dll BrivonMessage5.dll KERNEL32.dll VERSION.dll msvcrt.dll'],
        ['BrivonMessage5.dll', 'KERNEL32.dll msvcrt.dll'],
        ['BrivonControl.dll', 'KERNEL32.dll msvcrt.dll'],
    ])
        assert.equal(firsts(read('objdump', '-p', built('win32-x64', name)), /DLL Name: (\S+)/g).join(' '), imports);
});

test('the module imports from the closed libraries what the build lists, and the stand-ins have all of it', () => {
    const tables = read('objdump', '-p', windowsModule).split(/\tDLL Name: /);
    const listed = JSON.parse(fs.readFileSync(built('win32-x64', 'imports.json'), 'utf8'));
    assert.deepEqual(Object.keys(listed), ['BrivonMessage5.dll', 'BrivonControl.dll']);
    for (const [library, names] of Object.entries(listed)) {
        const table = tables.find((text) => text.startsWith(`${library}\n`));
        assert.deepEqual(firsts(table, /^\t[0-9a-f]+\t +\d+ +(\S+)$/gm), names.toSorted());
        const exported = firsts(read('objdump', '-p', built('win32-x64', library)), /^\t\[ +\d+\] (\S+)$/gm);
        for (const name of names) assert.ok(exported.includes(name), name);
    }
});

// Windows' stack protector is the module's own, and fortified functions would bring a library of the compiler's.
test('every binary is hardened: its stack holds no code, its frames are guarded, and everything is bound at load', () => {
    const signs = [
        /GNU_STACK .* RW /,
        /GNU_RELRO/,
        /Flags: NOW/,
        / U __stack_chk_fail/,
        / U _ZSt21__glibcxx_assert_fail/,
    ];
    for (const name of ['BrivonJS.node', 'libBrivonMessage5.so', 'libBrivonControl.so', 'standins.node'])
        for (const platform of ['linux-x64', 'linux-arm64']) {
            const seen = ['readelf -ldW', 'nm -D']
                .map((tool) => run(...tool.split(' '), built(platform, name)))
                .join('');
            for (const sign of signs) assert.match(seen, sign, `${platform} ${name}`);
        }
    for (const module of linuxModules) assert.match(run('nm', '-D', module), / U __vsnprintf_chk/);
    for (const name of ['BrivonJS.node', 'BrivonMessage5.dll', 'BrivonControl.dll', 'standins.node']) {
        assert.match(read('objdump', '-p', built('win32-x64', name)), /HIGH_ENTROPY_VA\s+DYNAMIC_BASE\s+NX_COMPAT/);
        assert.match(read('nm', built('win32-x64', name)), / T __stack_chk_fail$/m);
    }
});

// As the contract's own compiler lays them out, which puts a destructor into one slot and not into two.
test('the virtual operations of the contract have their slots on the ABI of the closed library', () => {
    const flags =
        '--target=x86_64-pc-windows-msvc -ffreestanding -std=c++17 -Wall -Wextra -Werror ' +
        '-S -emit-llvm -o /dev/null -Xclang -fdump-vtable-layouts';
    const folders = ['-I', path.join(root, 'interfaces'), path.join(root, 'test', 'abi', 'slots.cpp')];
    const dump = run('clang++', ...flags.split(' '), ...folders);
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
