'use strict';

// How an application tests its reactions to the suite, without the suite. To be copied; run it with
//
//     node --test --test-force-exit examples/application.test.js
//
// because a process that has had a listener does not end by itself.

const assert = require('node:assert/strict');
const { EventEmitter, once } = require('node:events');
const { afterEach, beforeEach, test } = require('node:test');

// First: from here on the libraries are scripted.
const { messaging, control, TYPE_PREFIX, ERROR_TYPE } = require('brivonjs/standins');
const { connect, launch } = require('brivonjs/client');

// The application: a calendar that shows appointments in an editor. They wait until there is one.
class Calendar extends EventEmitter {
    #client = connect({ appId: 'calendar', appVersion: '3.0', defaultAppId: 'editor' });
    #sent = [];
    waiting = [];

    constructor() {
        super();
        this.#client.on('unreachable', this.#onUnreachable);
        this.#client.on('message', this.#onMessage);
    }

    #onUnreachable = ({ endpoint, error, fault }) => {
        if (endpoint?.appId === 'editor') this.waiting.unshift(...this.#sent.splice(0));
        this.emit('trouble', `${error}: ${fault}`);
    };

    // An editor says hello when it is ready.
    #onMessage = ({ source }) => {
        if (source.appId !== 'editor') return;
        this.flush();
        this.emit('flushed');
    };

    show(appointment) {
        this.waiting.push(appointment);
        this.flush();
    }

    flush() {
        try {
            while (this.waiting.length > 0) {
                this.#client.send('appointment', this.waiting[0]);
                this.#sent.push(this.waiting.shift());
            }
        } catch (error) {
            if (error.code !== 'ERR_BRIVONJS_UNKNOWN_TARGET') throw error;
        }
    }

    // Resolves to what the user is told.
    async openEditor() {
        try {
            await launch('editor', { args: '--calendar' });
            return 'The editor is opening';
        } catch ({ cause }) {
            return cause ? `The editor failed: ${cause.message}` : 'The editor cannot be opened';
        }
    }

    close() {
        this.#client.off('unreachable', this.#onUnreachable);
        this.#client.off('message', this.#onMessage);
        this.#client.close();
    }
}

const editor = { id: '7', appId: 'editor', appVersion: '1.0' };
let calendar;

// The messages that the application has sent since the last time.
const sent = () =>
    messaging
        .takeCalls()
        .filter(({ operation }) => operation === 'Send')
        .map((call) => call.arguments[0]);

beforeEach(() => {
    messaging.setEndpoints([editor]);
    calendar = new Calendar();
    messaging.takeCalls();
});

afterEach(() => {
    calendar.close();
    messaging.reset();
    control.reset();
});

test('appointments go to the editor', () => {
    calendar.show('lunch at noon');
    const [message] = sent();
    assert.equal(message.type, `${TYPE_PREFIX}appointment`);
    assert.equal(message.payload, 'lunch at noon');
    assert.deepEqual(message.destinations, [editor]);
});

test('an unreachable destination: its appointments wait for another one', async () => {
    calendar.show('lunch at noon');
    const trouble = once(calendar, 'trouble');
    messaging.setEndpoints([]);
    messaging.deliver({ type: ERROR_TYPE, error: 'Destination unreachable', fault: '{editor,1.0,7}' });
    assert.deepEqual(await trouble, ['Destination unreachable: {editor,1.0,7}']);
    assert.deepEqual(calendar.waiting, ['lunch at noon']);
    sent();

    const flushed = once(calendar, 'flushed');
    const another = { ...editor, id: '8' };
    messaging.setEndpoints([another]);
    messaging.deliver({ type: `${TYPE_PREFIX}hello`, appId: 'editor', appVersion: '1.0', source: another });
    await flushed;
    assert.deepEqual(
        sent().map(({ payload, destinations }) => [payload, destinations]),
        [['lunch at noon', [another]]],
    );
});

test('a late endpoint list: nothing is sent to everyone meanwhile', () => {
    messaging.setEndpoints([]);
    calendar.show('lunch at noon');
    assert.deepEqual(sent(), []);
    assert.deepEqual(calendar.waiting, ['lunch at noon']);

    messaging.setEndpoints([editor]); // the list arrives
    calendar.flush();
    assert.deepEqual(
        sent().map(({ payload, destinations }) => [payload, destinations]),
        [['lunch at noon', [editor]]],
    );
});

test('a failed launch: the user is told', async () => {
    control.answer('LaunchApp', { throws: 'the disk is full' });
    assert.equal(await calendar.openEditor(), 'The editor failed: the disk is full');

    control.answer('LaunchApp', false);
    assert.equal(await calendar.openEditor(), 'The editor cannot be opened');

    control.answer('LaunchApp', true);
    assert.equal(await calendar.openEditor(), 'The editor is opening');
    const launches = control.takeCalls().filter(({ operation }) => operation === 'LaunchApp');
    assert.deepEqual(launches[0].arguments, ['editor', true, '--calendar']);
});
