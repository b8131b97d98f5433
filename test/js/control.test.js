'use strict';

// The control adapter on the scripted library.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { beforeEach, test } = require('node:test');

const { control } = require('brivonjs/standins');
const { BrivonControlAdapter, _setLibraryPath } = require('brivonjs');
const { buildDirectory, collectUntil, root, temporaryFolder, until } = require('../support/support');

const adapter = new BrivonControlAdapter();
const calls = () => control.takeCalls().map(({ operation, arguments: args }) => [operation, ...args]);
const firstCalls = calls();

beforeEach(() => control.reset());

// Resolves to what the callback is called with, and with which `this`.
const launch = (...args) =>
    new Promise((resolve) => {
        const returned = adapter.launchApp(...args, function (...received) {
            resolve({ received, receiver: this, isLater: returned === undefined });
        });
    });

test('construction configures with the library path, and acquires', () => {
    const expected = (libraryPath) => [
        ['SetConfigEx', ['KESTA_ZORP_DIR', libraryPath]],
        ['SetConfig', '', ''],
        ['GetInstance'],
    ];
    assert.deepEqual(firstCalls, expected(''));
    const steps = [
        [() => _setLibraryPath('/one', '/two'), null, '/one'],
        [() => _setLibraryPath('Ж日\0cut'), null, 'Ж日'],
        [() => assert.throws(() => _setLibraryPath(5)), undefined, 'Ж日'],
        [() => control.answer('SetConfigEx', 1), undefined, 'Ж日'], // whose result decides nothing
        [() => _setLibraryPath(''), null, ''],
    ];
    for (const [step, result, libraryPath] of steps) {
        assert.equal(step(), result);
        new BrivonControlAdapter('ignored', 5);
        assert.deepEqual(calls(), expected(libraryPath));
    }
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

test('queries pass the specifier on and the answer back, and what the library hands out goes back once', () => {
    const many = Array.from({ length: 10_000 }, (_, i) => `app ${10_000 - i}`);
    const pathBack = (text) => [['ReleaseAppPath', text]];
    const listBack = (count) => [['ReleaseSpecifiers', true, count]];
    for (const [method, answers] of Object.entries({
        isAppInstalled: [[true], [false]],
        isAppRunning: [[true], [false]],
        isAppRunningByName: [[true], [false]],
        getProcessId: [[0], [-1], [2 ** 31 - 1], [-(2 ** 31)]],
        getAppPath: [
            ['/a/Ж日', pathBack('/a/Ж日')],
            ['', pathBack('')],
            [undefined, [], ''],
        ],
        getAppVersion: [[undefined, [], null]],
        getSpecifiers: [
            [[], listBack(0)],
            [['b', 'a', 'b'], listBack(3)],
            [many, listBack(many.length)],
        ],
    }))
        for (const [answer, releases = [], expected = answer] of answers) {
            const operation = { getAppVersion: 'GetAppPath' }[method] ?? method[0].toUpperCase() + method.slice(1);
            const isListing = method === 'getSpecifiers';
            if (answer !== undefined) control.answer(operation, answer);
            assert.deepEqual(isListing ? adapter[method]() : adapter[method]('Ж日🙂\0cut'), expected);
            assert.deepEqual(calls(), [isListing ? [operation] : [operation, 'Ж日🙂'], ...releases]);
        }
});

test('a launch tells its callback how it ended', async () => {
    const outcomes = [
        [true, [undefined, true]],
        [false, [undefined, false]],
        [{ throws: '' }, [undefined, false]],
    ];
    for (const [answer, received] of outcomes) {
        control.answer('LaunchApp', answer);
        const outcome = await launch('Ж\0cut', true, '"日本" \0cut');
        assert.deepEqual(outcome, { received, receiver: undefined, isLater: true });
        const [{ operation, arguments: args, thread }] = control.takeCalls();
        assert.deepEqual([operation, args, thread], ['LaunchApp', ['Ж', true, '"日本" '], 'library']);
    }
    control.answer('LaunchApp', { throws: 'the disk is full' });
    const { received, receiver } = await launch('a', false, '');
    assert.deepEqual([received, receiver], [[new Error('the disk is full')], {}]);
    assert.deepEqual(calls(), [['LaunchApp', 'a', false, '']]);
});

test('launches hang without holding anything else up', async () => {
    const count = 20; // more than the threads of the runtime's pool
    control.answer('LaunchApp', { holds: true, launched: true });
    for (let i = 1; i < count; ++i) control.answer('LaunchApp', i % 2 === 0);
    let [begun, ended] = [0, 0];
    const pending = Array.from({ length: count }, async (_, i) => {
        const { received } = await launch(`app ${i}`, true, '');
        ++ended;
        return received[1];
    });
    await until(() => {
        begun += calls().filter(([operation]) => operation === 'LaunchApp').length;
        return adapter.getProcessId('x') === 0 && begun === count && ended >= count - 1;
    });
    assert.equal(ended, count - 1);
    control.releaseLaunches();
    assert.equal((await Promise.all(pending)).filter(Boolean).length, count / 2);
});

test('versions are those that the executables declare, and paths are released once', (t) => {
    const folder = temporaryFolder(t);
    // Of the samples that the build makes, and of installed packages, whose versions were read off with another program.
    const samples = (...names) => names.map((name) => path.join(buildDirectory, 'test', 'samples', name));
    const installed = (...names) => names.map((name) => path.join(root, 'node_modules', name));
    const [plain] = samples('plain.x64.exe');
    const copies = (...names) =>
        names.map((name) => (fs.copyFileSync(plain, path.join(folder, name)), path.join(folder, name)));
    fs.writeFileSync(path.join(folder, 'empty.exe'), '');
    for (const [version, files] of [
        ['3.1.4-plain', samples('plain.x64.exe', 'plain.x64.dll', 'plain.ia32.exe', 'plain.ia32.dll')],
        ['3.1.4-plain', copies('программа.exe', '日本語 アプリ.exe', '🚀.exe')],
        ['Версия 2 版本 🚀', samples('languages.x64.exe')],
        ['', samples('empty_text.x64.exe')],
        [null, samples('no_translation.x64.exe', 'other_language.x64.exe', 'no_version.x64.exe')],
        [null, [path.join(folder, 'empty.exe'), path.join(folder, 'missing.exe'), folder, '']],
        ['21.07', installed('7zip-bin/win/x64/7za.exe', '7zip-bin/win/ia32/7za.exe')],
        ['21.02 alpha', installed('7zip-bin/win/arm64/7za.exe')],
        ['15.05 beta', installed('7zip/7zip-lite/7z.dll', '7zip/7zip-lite/7-zip32.dll')],
        ['1.10', installed('windows-shortcuts/lib/shortcut/Shortcut.exe')],
        ['1.0.0.0', installed('edge-cs/lib/edge-cs.dll')],
    ])
        for (const file of files) {
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
