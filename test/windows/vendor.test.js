'use strict';

// The module on the libraries of a second vendor (vendor/), which were made for the Microsoft interface with nothing of
// ours. The folder of the module says in which variant they are.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const {
    buildDirectory,
    CallLog,
    collectUntil,
    endedAbnormally,
    root,
    runScript,
    temporaryFolder,
} = require('../support/support');

const variant = process.env.VENDOR ?? 'within';
const folder = path.join(buildDirectory, 'test', 'vendor', variant);
process.env.BRIVONJS_MODULE = path.join(folder, 'BrivonJS.node');
// What the variant with a run-time library of its own loads as that.
if (variant === 'within')
    fs.copyFileSync(
        path.join(process.env.SystemRoot, 'System32', 'msvcrt.dll'),
        path.join(folder, 'vendor_runtime.dll'),
    );

const { BrivonAdapter, BrivonControlAdapter, _setLibraryPath } = require('../../lib');
const vendor = require(path.join(folder, 'vendor.node'));

const [messaging, control] = ['BrivonMessage5.dll', 'BrivonControl.dll'];
const report = (library) => JSON.parse(vendor.report(library));
// What the vendor notes of a call; texts and objects are left out where they do not matter.
const noted = (call, library = messaging) => {
    report(library);
    call();
    return report(library)
        .calls.replaceAll(/ ?\b((Get|Set)(Id|AppId|AppVersion)(Size)?|EndPoint(-\w+)?)(?= |$)/g, '')
        .trim();
};
// What there is of the vendor's, apart from calls.
const held = (library) => ({ ...report(library), calls: undefined });
const nothingThrown = (library, what) => {
    const { exceptions, locals } = report(library);
    assert.deepEqual([exceptions, locals], [0, 0], what);
};
// How many endpoints are listed, and how often the vendor is not there yet, not ready and refreshing.
const answer = (...counts) => vendor.order(messaging, `answer ${counts.join(' ')}`);
const kinds = {
    standard: 'thrown by the vendor',
    other: 'something',
    object: 'something',
    nested: 'nested by the vendor',
    rethrown: 'rethrown by the vendor',
};

const launch = (adapter) => new Promise((resolve) => adapter.launchApp('a', true, '', (...all) => resolve(all)));
// The first adapter that is collected silences all.
const kept = (globalThis.kept = []);

// Before any list of two endpoints has been seen.
test('destinations lie where the vendor looks for them', () => {
    for (const count of [0, 1, 50])
        assert.deepEqual(vendor.destinations(count), [...Array(count).keys()].map(String), `${count}`);
});

test('construction waits for the vendor, and calls it in order', () => {
    answer(1, 1, 3, 2);
    assert.equal(
        noted(() => (globalThis.adapter = new BrivonAdapter('a', '1', 'app'))),
        'SetConfig GetInstance GetInstance IsReady IsReady IsReady IsReady RegisterEndPointsCallback IsReady ' +
            'RefreshEndPoints GetSelfEndPoint GetEndPoints ReleaseEndPoints IsRefreshing IsRefreshing IsRefreshing IsRefreshing',
    );
    for (const [question, ...counts] of [
        ['IsReady', 1, 0, 100, 0],
        ['IsRefreshing', 1, 0, 0, 100],
    ]) {
        answer(...counts);
        const calls = noted(() => kept.push(new BrivonAdapter('a', '1'))).split(' ');
        assert.equal(calls.filter((call) => call === question).length, 22);
    }
});

test('endpoints, snapshots and sends are the vendor’s, from 0 to 50 destinations', () => {
    const { adapter } = globalThis;
    const ids = (count) => [...Array(count).keys()];
    for (const count of [1, 0, 50, 2]) {
        answer(count, 0, 0, 0);
        adapter.forceRefreshEndpoints();
        const all = ids(count).map((id) => `{app,,${id}}`);
        assert.deepEqual([adapter.getEndpoints(), adapter.getEndpointCacheSnapshot()], [all, all]);
        const set = count > 0 ? 'SetDestinations ' : '';
        const to = ids(count).map((id) => `${id},`);
        for (const payload of ['payload', 'again'])
            assert.equal(
                noted(() => adapter.sendMessage('t', payload, '', '', '')),
                `SuiteMessage SetSource SetPayload ${set}Send:brivon.SuiteMessage.t:${payload}:${to.join('')}`,
            );
    }
    assert.equal(adapter.getSelfEndpoint(), '{,,self}');
    assert.match(
        noted(() => adapter.sendMessage('t', 'p', 'x', '1', 'named')),
        /Send:brivon.SuiteMessage.t:p:named,$/,
    );
});

test('deliveries and errors come from the vendor’s threads', async () => {
    const [messages, errors] = [new CallLog(), new CallLog()];
    const { adapter } = globalThis;
    adapter.addMessageListener(messages.callback);
    adapter.addErrorListener(errors.callback);
    vendor.order(messaging, 'deliver 2 brivon.SuiteMessage.t payload');
    vendor.order(messaging, 'deliver 1 brivon.ErrorMessage fault');
    const message = ['brivon.SuiteMessage.t', 'payload', 'sender', '1.0', 'sender-1'];
    assert.deepEqual(await messages.atLeast(2), [message, message]);
    assert.deepEqual(await errors.atLeast(1), [['brivon.ErrorMessage', 'an error', 'fault']]);
    const removal = noted(() => adapter.removeAllListeners());
    assert.equal(removal, 'RemoveMessageListener RemoveErrorListener');
});

test('queries and launches are answered by the vendor, and what it hands out goes back', async () => {
    _setLibraryPath('folder');
    const adapter = (globalThis.control = new BrivonControlAdapter());
    assert.match(report(control).calls, /^SetConfigEx:folder SetConfig GetInstance$/);
    const queries = ['isAppInstalled', 'isAppRunning', 'isAppRunningByName', 'getAppPath', 'getProcessId'];
    assert.deepEqual(
        queries.map((query) => adapter[query]('a')),
        [true, true, true, 'a', -7],
    );
    assert.deepEqual(
        [adapter.getAppPath(''), adapter.getAppVersion('no file'), adapter.getSpecifiers()],
        ['', null, ['first', 'second']],
    );
    assert.deepEqual(await launch(adapter), [undefined, true]);
    assert.deepEqual(held(control), { calls: undefined, exceptions: 0, locals: 0, texts: 0, lists: 0 });
});

test('every function may throw anything: it arrives, every local is destroyed and every exception freed', () => {
    for (const library of [messaging, control]) {
        for (const operation of vendor.names(library)) {
            assert.equal(vendor.attempt(library, operation), 'nothing', operation);
            for (const [kind, thrown] of Object.entries(kinds)) {
                vendor.order(library, `throw ${operation} ${kind}`);
                assert.equal(vendor.attempt(library, operation), thrown, `${operation}, ${kind}`);
                nothingThrown(library, `${operation}, ${kind}`);
            }
            vendor.order(library, 'throw - -');
        }
    }
});

test('a standard exception of a launch is its callback’s error, thousands of times on the threads of the pool', async () => {
    for (const kind of ['standard', 'nested', 'rethrown']) {
        vendor.order(control, `throw LaunchApp ${kind}`);
        for (let round = 0; round < 40; ++round) {
            const ended = await Promise.all(Array.from({ length: 100 }, () => launch(globalThis.control)));
            for (const [error, ...others] of ended) assert.deepEqual([error.message, others], [kinds[kind], []]);
            report(control);
        }
    }
    vendor.order(control, 'throw - -');
    nothingThrown(control);
});

test('the endpoints callback throws back into the vendor, in the vendor’s way', () => {
    for (const [kind, text] of Object.entries({ ...kinds, other: '', object: '' })) {
        vendor.order(messaging, `throw GetSelfEndPoint ${kind}`);
        const calls = noted(() => globalThis.adapter.forceRefreshEndpoints());
        assert.ok(calls.includes(text === '' ? ' caught' : ` caught:${text}`), calls);
    }
    vendor.order(messaging, 'throw - -');
    nothingThrown(messaging);
});

// Where the plain handler is in real libraries of the Microsoft compiler, by disassembly: the other one that they name
// for the same data reads on behind it, to check a stack cookie. Only read, never run.
const addons = path.join(root, 'build', 'wine', 'node', 'node_modules');
const plainHandlers = {
    '@parcel/watcher-win32-x64/watcher.node': 0x320d0,
    '@serialport/bindings-cpp/prebuilds/win32-x64/@serialport+bindings-cpp.node': 0xf918,
    'bufferutil/prebuilds/win32-x64/bufferutil.node': 0x31c0,
    'classic-level/prebuilds/win32-x64/classic-level.node': 0x3c1e4,
    'node-hid/prebuilds/HID-win32-x64/node-napi-v4.node': 0x231e0,
};
const installed = { skip: !fs.existsSync(addons) && 'no libraries are installed here' };
test('of a real library with its run-time library within, the plain handler is taken', installed, () => {
    for (const [file, handler] of Object.entries(plainHandlers))
        assert.equal(vendor.frameHandler(path.join(addons, file)), handler, file);
});

test('a run-time library is found by any name that is imported from it', (t) => {
    const library = fs.readFileSync(path.join(root, 'node_modules', '7zip', '7zip-lite', '7z.dll'), 'latin1');
    const changed = path.join(temporaryFolder(t), 'changed.dll');
    for (const name of ['_CxxThrowException', '__CxxFrameHandler3', '__CxxFrameHandler4']) {
        const other = library.replace('__CxxFrameHandler\0', '__CxxFrameNothing\0').replace('_CxxThrowException', name);
        fs.writeFileSync(changed, other, 'latin1');
        assert.equal(vendor.frameHandler(changed), 'msvcrt.dll', name);
    }
});

// A program of its own on the same libraries.
const script = (body) => `
    const { BrivonAdapter, BrivonControlAdapter } = require(root + '/lib');
    const vendor = require(${JSON.stringify(path.join(folder, 'vendor.node'))});
    const order = (text, library = '${messaging}') => vendor.order(library, text);
    ${body} process.exit(0);`;

test('an exception is a line of the log in construction and in a delivery, and ends the process elsewhere', async () => {
    const logged = await runScript(
        script(`
        order('throw IsReady nested');
        const adapter = new BrivonAdapter('a', '1');
        order('throw GetAppId other');
        adapter.addMessageListener(() => {});
        order('deliver 1 brivon.SuiteMessage.t x');`),
    );
    assert.equal(logged.code, 0, logged.stderr);
    assert.match(
        logged.stdout,
        /WARNING Likely fatal exception in construction .*\r?\n.*EXCEPTION in BrivonAdapter::Receive /,
    );
    const refused = await runScript(
        script(`order('throw IsAppInstalled other', '${control}'); new BrivonControlAdapter().isAppInstalled('a');`),
    );
    assert.ok(endedAbnormally(refused), JSON.stringify(refused));
});

// In a desktop program, msvcrt.dll would show a dialog.
test('in a desktop program too, a failure is reported on standard error and ends the process by itself', async () => {
    for (const [body, expected] of [
        [
            `order('throw SetConfig other'); new BrivonAdapter('a', '1').sendMessage('t', 'p');`,
            /^Assertion failed: brivon_, file src\/brivonadapter.cpp, line \d+$/m,
        ],
        [
            `const adapter = new BrivonAdapter('a', '1'); order('throw Send standard'); adapter.sendMessage('t', 'p');`,
            /thrown by the vendor/,
        ],
    ]) {
        const ended = await runScript(script(`vendor.becomeDesktop(); ${body}`), { timeout: 60000 });
        assert.equal(ended.code, 3, JSON.stringify(ended));
        assert.match(ended.stderr, expected);
    }
});

test('100,000 lists, sends and deliveries leave nothing behind, and a collected adapter lets go', async () => {
    let heard = 0;
    const { adapter } = globalThis;
    adapter.addMessageListener(() => ++heard);
    const round = async (count) => {
        for (let left = count; left > 0; left -= 1000) {
            for (let i = 0; i < 1000; ++i) {
                adapter.getEndpoints();
                adapter.sendMessage('t', 'p');
            }
            const wanted = heard + 1000;
            vendor.order(messaging, 'deliver 1000 brivon.SuiteMessage.t payload');
            while (heard < wanted) await new Promise((resolve) => setImmediate(resolve));
        }
        return { ...held(messaging), memory: process.memoryUsage().rss };
    };
    await round(30000);
    const before = await round(10000);
    const { memory, ...after } = await round(100000);
    assert.deepEqual({ ...after, memory: before.memory }, before);
    assert.ok(memory - before.memory < 16 << 20, `${memory - before.memory} bytes more`);
    (() => new BrivonAdapter('a', '1'))();
    report(messaging);
    let calls = '';
    await collectUntil(() => (calls += report(messaging).calls).includes('ReleaseInstance'));
    assert.match(calls, /UnregisterEndPointsCallback (.* )?ReleaseInstance/);
});
