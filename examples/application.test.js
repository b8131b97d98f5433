'use strict';

// How an application tests its reactions to the suite, without the suite. To be copied; run it with
//
//     node --test --test-force-exit examples/application.test.js
//
// because a process that has had a listener does not end by itself.

const assert = require('node:assert/strict');
const { EventEmitter, once } = require('node:events');
const { afterEach, beforeEach, test } = require('node:test');

// Before the first adapter: from here on the libraries are scripted.
const { messaging, control, SUITE_TYPE_PREFIX, ERROR_TYPE } = require('brivonjs/standins');
const { BrivonAdapter, BrivonControlAdapter } = require('brivonjs');

// The application: a calendar that shows appointments in an editor. Appointments are private, and a message for an
// application that nobody knows would go to everyone; so they wait until there is an editor.
class Calendar extends EventEmitter {
    #bus = new BrivonAdapter('calendar', '3.0', 'editor');
    #apps = new BrivonControlAdapter();
    #sent = [];
    waiting = [];

    constructor() {
        super();
        this.#bus.addErrorListener((type, error, fault) => {
            if (fault.startsWith('{editor,')) this.waiting.unshift(...this.#sent.splice(0));
            this.emit('trouble', `${error}: ${fault}`);
        });
        // An editor says hello when it is ready.
        this.#bus.addMessageListener((type, payload, appId) => {
            if (appId !== 'editor') return;
            this.flush();
            this.emit('flushed');
        });
    }

    show(appointment) {
        this.waiting.push(appointment);
        this.flush();
    }

    flush() {
        if (!this.#bus.getEndpointCacheSnapshot().some((endpoint) => endpoint.startsWith('{editor,'))) {
            this.#bus.forceRefreshEndpoints();
            return;
        }
        for (const appointment of this.waiting.splice(0)) {
            this.#bus.sendMessage('appointment', appointment);
            this.#sent.push(appointment);
        }
    }

    // Resolves to what the user is told.
    openEditor() {
        return new Promise((resolve) => {
            this.#apps.launchApp('editor', true, '--calendar', (error, launched) => {
                if (error) resolve(`The editor failed: ${error.message}`);
                else resolve(launched ? 'The editor is opening' : 'The editor cannot be opened');
            });
        });
    }

    close() {
        this.#bus.removeAllListeners();
    }
}

const editor = { id: '7', appId: 'editor', appVersion: '1.0' };
const calendars = []; // all kept, because the collection of one adapter would silence the listeners of another
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
    calendars.push(calendar);
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
    assert.equal(message.type, `${SUITE_TYPE_PREFIX}appointment`);
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
    messaging.deliver({ type: `${SUITE_TYPE_PREFIX}hello`, appId: 'editor', appVersion: '1.0', source: another });
    await flushed;
    assert.deepEqual(
        sent().map(({ payload, destinations }) => [payload, destinations]),
        [['lunch at noon', [another]]],
    );
});

test('a late endpoint list: nothing is sent to everyone meanwhile', () => {
    messaging.setEndpoints([]);
    messaging.answer('RefreshEndPoints', false); // the next refresh ends later
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
