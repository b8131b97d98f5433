'use strict';

// The control adapter on the scripted library.

const assert = require('node:assert/strict');
const path = require('node:path');
const { beforeEach, test } = require('node:test');

const { control } = require('brivonjs/standins');
const { BrivonControlAdapter, _setLibraryPath } = require('brivonjs');
const { buildDirectory, collectUntil, root } = require('../support/support');

const adapter = new BrivonControlAdapter();
const firstCalls = control.takeCalls();
const calls = () => control.takeCalls().map(({ operation, arguments: args }) => [operation, ...args]);

beforeEach(() => control.reset());

// Resolves to what the callback is called with, and with which `this`.
const launch = (...args) =>
    new Promise((resolve) => {
        const returned = adapter.launchApp(...args, function (...received) {
            resolve({ received, receiver: this, isLater: returned === undefined });
        });
    });

test('construction configures with the library path, and acquires', () => {
    const attribute = 'KESTA_ZORP_DIR';
    const expected = (libraryPath) => [
        ['SetConfigEx', [attribute, libraryPath]],
        ['SetConfig', '', ''],
        ['GetInstance'],
    ];
    assert.deepEqual(
        firstCalls.map(({ operation, arguments: args }) => [operation, ...args]),
        expected(''),
    );
    const steps = [
        [() => _setLibraryPath('/one', '/two'), null, '/one'],
        [() => _setLibraryPath('Ж日\0cut'), null, 'Ж日'],
        [
            () => assert.throws(() => _setLibraryPath(5), { name: 'Error', message: 'A string was expected' }),
            undefined,
            'Ж日',
        ],
        [
            () => assert.throws(() => _setLibraryPath(), { name: 'TypeError', message: 'Wrong number of arguments' }),
            undefined,
            'Ж日',
        ],
        [() => _setLibraryPath(''), null, ''],
    ];
    for (const [step, result, libraryPath] of steps) {
        assert.equal(step(), result);
        new BrivonControlAdapter('ignored', 5);
        assert.deepEqual(calls(), expected(libraryPath));
    }
    control.answer('SetConfigEx', 1);
    new BrivonControlAdapter();
    assert.equal(calls().length, 3, 'the result of SetConfigEx decides nothing');
});

test('a collected adapter releases its instance once', async () => {
    const count = 5;
    for (let i = 0; i < count; ++i) new BrivonControlAdapter();
    calls();
    // Earlier tests have dropped some too.
    let released = 0;
    await collectUntil(() => (released += calls().length) >= count);
    assert.equal(adapter.isAppInstalled('x'), false);
    assert.deepEqual(calls(), [['IsAppInstalled', 'x']]);
});

test('queries pass the specifier on and the answer back', () => {
    const queries = [
        ['isAppInstalled', 'IsAppInstalled', [true, false]],
        ['isAppRunning', 'IsAppRunning', [true, false]],
        ['isAppRunningByName', 'IsAppRunningByName', [true, false]],
        ['getProcessId', 'GetProcessId', [0, -1, 1, 2 ** 31 - 1, -(2 ** 31)]],
    ];
    for (const [method, operation, answers] of queries) {
        for (const answer of answers) {
            control.answer(operation, answer);
            assert.equal(adapter[method]('Ж日🙂\0cut'), answer);
            assert.deepEqual(calls(), [[operation, 'Ж日🙂']]);
        }
    }
});

test('a path is released once, and a missing one is "" and not released', () => {
    for (const [answer, expected] of [
        ['/a/Ж日', '/a/Ж日'],
        ['', ''],
        ['a\0b', 'a'],
    ]) {
        control.answer('GetAppPath', answer);
        assert.equal(adapter.getAppPath('app'), expected);
        assert.deepEqual(calls(), [
            ['GetAppPath', 'app'],
            ['ReleaseAppPath', expected],
        ]);
    }
    assert.equal(adapter.getAppPath('app'), '');
    assert.equal(adapter.getAppVersion('app'), null);
    assert.deepEqual(calls(), [
        ['GetAppPath', 'app'],
        ['GetAppPath', 'app'],
    ]);
});

test('specifiers come in the order of the library, and their list goes back', () => {
    const many = Array.from({ length: 10_000 }, (_, i) => `app ${10_000 - i}`);
    for (const specifiers of [[], ['b', 'a', 'b'], many]) {
        control.answer('GetSpecifiers', specifiers);
        assert.deepEqual(adapter.getSpecifiers(), specifiers);
        assert.deepEqual(calls(), [['GetSpecifiers'], ['ReleaseSpecifiers', true, specifiers.length]]);
    }
});

test('bad arguments are refused before the library is asked', () => {
    const count = 'Wrong number of arguments';
    const specifier = 'Expected targetSpecifier to be a string';
    const callback = () => assert.fail('a refused launch calls nobody');
    const refusals = [[count, () => adapter.getSpecifiers(undefined)]];
    for (const method of [
        'isAppInstalled',
        'isAppRunning',
        'isAppRunningByName',
        'getAppPath',
        'getAppVersion',
        'getProcessId',
    ])
        refusals.push(
            [count, () => adapter[method]()],
            [count, () => adapter[method]('a', 'b')],
            [specifier, () => adapter[method](5)],
        );
    for (const [expected, ...args] of [
        [count],
        [count, 'a', true, 'b'],
        [count, 'a', true, 'b', callback, 5],
        [specifier, 5, 5, 5, 5],
        ['Expected setFocus to be a Boolean', 'a', 'true', 5, 5],
        ['Expected cmdLineArgs to be a string', 'a', true, 5, 5],
        ['Expected callback to be a function', 'a', true, 'b', {}],
    ])
        refusals.push([expected, () => adapter.launchApp(...args)]);
    for (const [message, call] of refusals) {
        assert.throws(
            call,
            (error) => error.name === 'TypeError' && error.message === message && !('code' in error),
            call.toString(),
        );
    }
    assert.deepEqual(calls(), []);
});

test('a launch tells its callback how it ended', async () => {
    const outcomes = [
        [true, [undefined, true]],
        [false, [undefined, false]],
        [{ throws: '' }, [undefined, false]],
    ];
    for (const [answer, expected] of outcomes) {
        control.answer('LaunchApp', answer);
        assert.deepEqual(await launch('Ж\0cut', true, '"日本" \0cut'), {
            received: expected,
            receiver: undefined,
            isLater: true,
        });
        const [{ operation, arguments: args, thread }] = control.takeCalls();
        assert.deepEqual([operation, args, thread], ['LaunchApp', ['Ж', true, '"日本" '], 'library']);
    }
    control.answer('LaunchApp', { throws: 'the disk is full' });
    const { received, receiver } = await launch('a', false, '');
    assert.equal(received.length, 1);
    assert.ok(received[0] instanceof Error);
    assert.deepEqual([received[0].name, received[0].message], ['Error', 'the disk is full']);
    assert.deepEqual(receiver, {});
    assert.deepEqual(calls(), [['LaunchApp', 'a', false, '']]);
});

test('launches hang without holding anything else up', async () => {
    const count = 20; // more than the threads of the runtime's pool
    control.answer('LaunchApp', { holds: true, launched: true });
    for (let i = 1; i < count; ++i) control.answer('LaunchApp', i % 2 === 0);
    const pending = Array.from({ length: count }, (_, i) => launch(`app ${i}`, true, ''));
    const seen = [];
    while (seen.length < count) {
        seen.push(...control.takeCalls().filter(({ operation }) => operation === 'LaunchApp'));
        assert.equal(adapter.getProcessId('x'), 0);
        await new Promise((resolve) => setImmediate(resolve));
    }
    let ended = 0;
    pending.forEach((outcome) => outcome.then(() => ++ended));
    while (ended < count - 1) await new Promise((resolve) => setImmediate(resolve));
    assert.equal(ended, count - 1);
    control.releaseLaunches();
    const results = (await Promise.all(pending)).map(({ received }) => received[1]);
    assert.equal(results.filter(Boolean).length, count / 2);
});

// Path relative to the samples that the build makes, or to the installed packages; the versions of the latter were read
// off with another program.
const sample = (name) => path.join(buildDirectory, 'test', 'samples', name);
const installed = (name) => path.join(root, 'node_modules', name);
const versions = [
    [sample('plain.x64.exe'), '3.1.4-plain'],
    [sample('plain.x64.dll'), '3.1.4-plain'],
    [sample('plain.ia32.exe'), '3.1.4-plain'],
    [sample('plain.ia32.dll'), '3.1.4-plain'],
    [sample('languages.x64.exe'), 'Версия 2 版本 🚀'],
    [sample('empty_text.x64.exe'), ''],
    [sample('no_translation.x64.exe'), null],
    [sample('other_language.x64.exe'), null],
    [sample('no_version.x64.exe'), null],
    [installed('7zip-bin/win/x64/7za.exe'), '21.07'],
    [installed('7zip-bin/win/ia32/7za.exe'), '21.07'],
    [installed('7zip-bin/win/arm64/7za.exe'), '21.02 alpha'],
    [installed('7zip/7zip-lite/7z.dll'), '15.05 beta'],
    [installed('7zip/7zip-lite/7-zip32.dll'), '15.05 beta'],
    [installed('windows-shortcuts/lib/shortcut/Shortcut.exe'), '1.10'],
    [installed('edge-cs/lib/edge-cs.dll'), '1.0.0.0'],
];

test('versions are those that the executables declare, and paths are released once', (t) => {
    const fs = require('node:fs');
    const os = require('node:os');
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'brivonjs-'));
    t.after(() => fs.rmSync(folder, { recursive: true }));
    const copy = (name) => (fs.copyFileSync(sample('plain.x64.exe'), path.join(folder, name)), path.join(folder, name));
    fs.writeFileSync(path.join(folder, 'empty.exe'), '');
    for (const [file, version] of [
        ...versions,
        [copy('программа.exe'), '3.1.4-plain'],
        [copy('日本語 アプリ.exe'), '3.1.4-plain'],
        [path.join(folder, 'empty.exe'), null],
        [path.join(folder, 'missing.exe'), null],
        [folder, null],
        ['', null],
    ]) {
        control.answer('GetAppPath', file);
        assert.equal(adapter.getAppVersion('app'), version, file);
        assert.deepEqual(calls(), [
            ['GetAppPath', 'app'],
            ['ReleaseAppPath', file],
        ]);
    }
    // Not text: what cannot be converted becomes a replacement character, and there is no such file.
    control.answer('GetAppPath', Buffer.from([0x2f, 0xff, 0xfe]));
    assert.equal(adapter.getAppVersion('app'), null);
    assert.equal(calls().length, 2);
});

test('the script refuses what it cannot do', () => {
    for (const call of [
        () => control.answer('LaunchAp', true),
        () => control.answer('LaunchApp', 'yes'),
        () => control.answer('LaunchApp', { launched: true }),
        () => control.answer('IsAppRunning', 1),
        () => control.answer('IsAppRunning', { throws: 'x' }),
        () => control.answer('GetSpecifiers', ['a', 1]),
        () => control.perform('unknown'),
    ])
        assert.throws(call, TypeError, call.toString());
});
