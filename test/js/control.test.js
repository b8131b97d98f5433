'use strict';

// The control adapter on the scripted library.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { beforeEach, test } = require('node:test');

const { control } = require('brivonjs/standins');
const { BrivonControlAdapter, _setLibraryPath } = require('brivonjs');
const { buildDirectory, collectUntil, root, temporaryFolder } = require('../support/support');

const adapter = new BrivonControlAdapter();
// Without those of adapters that are collected meanwhile.
const takeCalls = () => control.takeCalls().filter(({ operation }) => operation !== 'ReleaseInstance');
const calls = () => takeCalls().map(({ operation, arguments: args }) => [operation, ...args]);
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
    assert.equal(_setLibraryPath('Ж日\0cut', '/two'), null);
    assert.throws(() => _setLibraryPath(5));
    control.answer('SetConfigEx', 1); // whose result decides nothing
    new BrivonControlAdapter('ignored', 5);
    assert.deepEqual(calls(), expected('Ж日'));
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

test('a launch tells its callback how it ended, and lets go of it', async () => {
    for (const [answer, received] of [
        [true, [undefined, true]],
        [false, [undefined, false]],
        [{ throws: '' }, [undefined, false]],
    ]) {
        control.answer('LaunchApp', answer);
        const outcome = await launch('Ж\0cut', true, '"日本" \0cut');
        assert.deepEqual(outcome, { received, receiver: undefined, isLater: true });
        const [{ operation, arguments: args, thread }] = takeCalls();
        assert.deepEqual([operation, args, thread], ['LaunchApp', ['Ж', true, '"日本" '], 'library']);
    }
    control.answer('LaunchApp', { throws: 'the disk is full' });
    const { received, receiver } = await launch('a', false, '');
    assert.deepEqual([received, receiver], [[new Error('the disk is full')], {}]);

    let [isCalled, callback, launcher] = [false];
    (() => {
        const call = () => (isCalled = true);
        callback = new WeakRef(call);
        launcher = new WeakRef(new BrivonControlAdapter());
        launcher.deref().launchApp('a', false, '', call);
    })();
    await collectUntil(() => isCalled && [callback, launcher].every((reference) => reference.deref() === undefined));
});

test('versions are those that the executables declare, and paths are released once', (t) => {
    const folder = temporaryFolder(t);
    // Of the samples that the build makes, and of installed packages, whose versions were read off with another program.
    const sample = (name) => path.join(buildDirectory, 'test', 'samples', name);
    const installed = (name) => path.join(root, 'node_modules', name);
    const edited = (name, from = '', to = '') => {
        const [before, after] = [from, to].map((text) => Buffer.from(text, 'utf16le').toString('latin1'));
        const contents = fs.readFileSync(sample('plain.x64.exe'), 'latin1').replace(before, after);
        fs.writeFileSync(path.join(folder, name), contents, 'latin1');
        return path.join(folder, name);
    };
    for (const [file, version] of [
        [sample('plain.ia32.exe'), '3.1.4-plain'],
        [edited('日本語 🚀.exe'), '3.1.4-plain'],
        [sample('languages.x64.exe'), 'Версия 2 版本 🚀'],
        [sample('no_version.x64.exe'), null],
        [edited('no translation.exe', 'Translation', 'Transaction'), null],
        [edited('half a translation.exe', '\x04\0Translation', '\x02\0Translation'), null],
        [edited('empty.exe', '3.1.4-plain', '\0.1.4-plain'), ''],
        [path.join(folder, 'missing.exe'), null],
        [folder, null],
        // Neither a regular file nor one that ends; Windows has no such path.
        ['/dev/zero', null],
        ['', null],
        [installed('7zip-bin/win/arm64/7za.exe'), '21.02 alpha'],
        [installed('7zip/7zip-lite/7z.dll'), '15.05 beta'],
        [installed('edge-cs/lib/edge-cs.dll'), '1.0.0.0'],
        // Not text: what cannot be converted becomes a replacement character, and there is no such file.
        [Buffer.from([0x2f, 0xff, 0xfe]), null],
    ]) {
        control.answer('GetAppPath', file);
        assert.equal(adapter.getAppVersion('app'), version, `${file}`);
        const operations = calls().map(([operation]) => operation);
        assert.deepEqual(operations, ['GetAppPath', 'ReleaseAppPath']);
    }
});
