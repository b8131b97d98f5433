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
const firsts = (text, pattern) => [...text.matchAll(pattern)].map(([, name]) => name);

test('the module is one for 64-bit Windows', () => {
    assert.match(tool('objdump', '-f', moduleFile), /file format pei-x86-64\n/);
});

test('the module exports its registration, which is data, and nothing else', () => {
    const [, names] = tool('objdump', '-p', moduleFile).split('[Ordinal/Name Pointer] Table');
    assert.deepEqual(firsts(names, /^\t\[ +\d+\] (\S+)/gm), ['_register_BrivonJS_']);
    const [, section] = tool('objdump', '-t', moduleFile).match(/\(sec +(\d+)\).* _register_BrivonJS_$/m);
    const sections = firsts(tool('objdump', '-h', moduleFile), /^ +\d+ (\S+)/gm);
    assert.equal(sections[section - 1], '.CRT');
});

test('libraries are imported at load by name: those of the contracts and of the system, no compiler’s', () => {
    for (const [name, imports] of [
        ['BrivonJS.node', 'BrivonControl.dll BrivonMessage5.dll KERNEL32.dll VERSION.dll msvcrt.dll'],
        ['BrivonMessage5.dll', 'KERNEL32.dll msvcrt.dll'],
        ['BrivonControl.dll', 'KERNEL32.dll msvcrt.dll'],
    ]) {
        const headers = tool('objdump', '-p', path.join(folder, name));
        assert.equal(
            firsts(headers, /DLL Name: (\S+)/g)
                .sort()
                .join(' '),
            imports,
        );
    }
});

test('the host’s functions are bound late: N-API, three of libuv, and nothing else', () => {
    const symbols = tool('nm', moduleFile);
    assert.match(symbols, / __DELAY_IMPORT_DESCRIPTOR_\w+$/m);
    const names = firsts(symbols, / __imp_((?:napi|node|uv)_\w+)$/gm).sort();
    const others = names.filter((name) => !name.startsWith('napi_'));
    assert.deepEqual(others, ['uv_mutex_init', 'uv_mutex_lock', 'uv_mutex_unlock']);
    assert.ok(names.includes('napi_module_register'));
    assert.ok(fs.readFileSync(moduleFile).includes('\0node.exe\0'));
});
