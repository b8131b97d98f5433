'use strict';

// The module on other libraries than ours, which note what it does with them and do what ours never do.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { buildDirectory, CallLog, collectUntil, temporaryFolder, until } = require('../support/support');

process.env.BRIVONJS_MODULE = path.join(buildDirectory, 'test', 'witness', 'BrivonJS.node');
const { BrivonAdapter, BrivonControlAdapter, _setLibraryPath } = require('../../lib');

// The third argument counts beside a fourth.
const adapter = (globalThis.adapter = new BrivonAdapter('app', '1', 'known', 'ignored'));
const [messages, errors] = [new CallLog(), new CallLog()];
const listen = () => (adapter.addMessageListener(messages.callback), adapter.addErrorListener(errors.callback));
// What the library has noted while the messages were sent, without what every broadcast does.
const noted = (...sends) => {
    adapter.getSelfEndpoint();
    for (const send of sends) typeof send === 'string' ? adapter.sendMessage(send, 'p', 'nobody') : send();
    const notes = adapter.getSelfEndpoint().slice(3, -1);
    const short = notes.replaceAll('GetAppId GetAppVersion GetSource', 'read');
    return short.replaceAll('SetSource SetPayload:p Send', '').replaceAll(/ +/g, ' ').trim();
};

test('a message gets its source, its payload and then its destinations, should there be any', () => {
    const send = (...args) => noted(() => adapter.sendMessage('plain', 'text', ...args));
    assert.equal(send('nobody'), 'SetSource SetPayload:text Send');
    assert.equal(send(), 'SetSource SetPayload:text SetDestinations:1 Send');
});

test('what arrives is read field by field', async () => {
    listen();
    const errorFirst = noted('hear:brivon.error|error~cut||1|fault~cut');
    assert.equal(errorFirst, 'GetError GetFault', 'no error message is an application message, whatever its type');
    assert.deepEqual(await errors.atLeast(1), [['brivon.error', 'error', 'fault']]);
    assert.equal(noted('hear:brivon.a~cut|known~cut|2~cut|1~cut|'), 'read', 'no empty payload is fetched');
    assert.equal(noted('hear:brivon.b|known|2|1|x~y'), 'read GetPayload');
    assert.deepEqual(await messages.atLeast(2), [
        ['brivon.a', '', 'known', '2', '1'],
        ['brivon.b', 'x\0y', 'known', '2', '1'],
    ]);
});

test('the note that the list is stale is overwritten by what a message says, and set by any refusal', () => {
    const [known, refresh] = ['hear:brivon.t|known|1|1|', 'RefreshEndPoints'];
    assert.equal(noted(known, known), 'read read');
    assert.equal(noted('refuse', 'plain', 'plain'), refresh);
    const force = () => adapter.forceRefreshEndpoints();
    assert.equal(noted('refuse', force, 'plain'), refresh);
    // A source that is unknown is heard while the list is refreshed for a known one, which has the last word.
    assert.equal(noted('in-refresh', 'refuse', known, known), `${refresh} read GetPayload read read`);
});

test('the lock is held where sends choose destinations, and not where a snapshot is taken', () => {
    const snapshot = () => adapter.getEndpointCacheSnapshot();
    const hold = 'hold:brivon.t|known|1|1|';
    const notes = noted(hold, snapshot, () => adapter.sendMessage('plain', 'last'));
    assert.equal(notes, 'read locked copied unlocked SetSource SetPayload:last SetDestinations:1 Send');
});

test('listeners are silenced before the library is told to forget them', async () => {
    listen();
    noted('in-removal', () => adapter.removeAllListeners());
    listen();
    noted('hear:brivon.last|known|1|1|');
    await until(() => messages.calls.at(-1)?.[0] === 'brivon.last');
    assert.ok(messages.calls.every(([, payload]) => payload !== 'in-removal'));
});

test('what is no standard exception is survived where exceptions are', async () => {
    const [dying, { length }] = ['hear:brivon.error|lost||1|', errors.calls];
    globalThis.other = new BrivonAdapter('throw', '1');
    noted('throw', dying, dying.replace('lost', 'kept'));
    assert.equal((await errors.atLeast(length + 1)).at(-1)[1], 'kept');
});

test('a controller counts whatever the status, is released once, and has its path back before the file is read', async (t) => {
    _setLibraryPath('folder');
    const control = new BrivonControlAdapter();
    assert.deepEqual(control.getSpecifiers(), ['an attribute of any name', 'folder']);
    const file = path.join(temporaryFolder(t), 'a.exe');
    fs.copyFileSync(path.join(buildDirectory, 'test', 'samples', 'plain.x64.exe'), file);
    assert.equal(control.getAppVersion(file), null);
    assert.equal(fs.existsSync(file), false);

    (() => new BrivonControlAdapter())();
    control.getSpecifiers();
    let released = [];
    await collectUntil(() => (released = control.getSpecifiers()).length > 0);
    assert.deepEqual(released, ['ReleaseInstance']);
});
