'use strict';

// The files of the Windows build, read with the tools of the machine that builds.

const assert = require('node:assert/strict');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { root } = require('../support/support');

const folder = path.join(root, 'build', 'win32-x64');
const tool = (name, ...args) =>
    execFileSync(`x86_64-w64-mingw32-${name}`, args, { encoding: 'utf8', maxBuffer: 1 << 28 });
const moduleFile = path.join(folder, 'BrivonJS.node');
const headers = tool('objdump', '-p', moduleFile);

test('the module is one for 64-bit Windows', () => {
    assert.match(tool('objdump', '-f', moduleFile), /file format pei-x86-64\n/);
});

test('the module exports its registration, which is data, and nothing else', () => {
    const names = headers.split('[Ordinal/Name Pointer] Table')[1].match(/^\t\[ +\d+\] \S+/gm);
    assert.deepEqual(
        names.map((line) => line.split('] ')[1]),
        ['_register_BrivonJS_'],
    );
    const symbol = tool('objdump', '-t', moduleFile).match(/\(sec +(\d+)\).* _register_BrivonJS_$/m);
    const sections = [...tool('objdump', '-h', moduleFile).matchAll(/^ +\d+ (\S+)/gm)].map(([, name]) => name);
    assert.equal(sections[symbol[1] - 1], '.CRT');
});

test('libraries are imported at load by name: those of the contracts and of the system, no compiler’s', () => {
    const imports = (file) => [...tool('objdump', '-p', file).matchAll(/DLL Name: (\S+)/g)].map(([, name]) => name);
    assert.deepEqual(imports(moduleFile).sort(), [
        'BrivonControl.dll',
        'BrivonMessage5.dll',
        'KERNEL32.dll',
        'VERSION.dll',
        'msvcrt.dll',
    ]);
    for (const name of ['BrivonMessage5.dll', 'BrivonControl.dll'])
        assert.deepEqual(imports(path.join(folder, name)).sort(), ['KERNEL32.dll', 'msvcrt.dll']);
});

test('the host’s functions are bound late: N-API, three of libuv, and nothing else', () => {
    const symbols = tool('nm', moduleFile);
    assert.match(symbols, / __DELAY_IMPORT_DESCRIPTOR_\w+$/m);
    const names = [...symbols.matchAll(/ __imp_((?:napi|node|uv)_\w+)$/gm)].map(([, name]) => name).sort();
    assert.deepEqual(
        names.filter((name) => !name.startsWith('napi_')),
        ['uv_mutex_init', 'uv_mutex_lock', 'uv_mutex_unlock'],
    );
    assert.ok(names.includes('napi_module_register'));
    assert.ok(fs.readFileSync(moduleFile).includes('\0node.exe\0'));
});
