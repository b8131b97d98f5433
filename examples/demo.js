'use strict';

// Four real programs of two applications meet on a bus of their own and talk; one of them is killed. Then a folder of
// programs is looked at, and one of them launched. Ends with 0 when everything has happened that should, and in time.

const { fork } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const path = require('node:path');

const { control } = require('./demo/control');

const TIME_LIMIT_MS = 20_000;
const STEP_LIMIT_MS = 5_000;

const greetings = fs
    .readFileSync(path.join(__dirname, 'demo', 'greetings.txt'), 'utf8')
    .trim()
    .split('\n');
const bus = `demo-${process.pid}`;

class Participant {
    #answers = new Map();
    #nextId = 0;
    heard = [];

    constructor(name, appId, appVersion, defaultAppId) {
        Object.assign(this, { name, appId, appVersion });
        this.process = fork(path.join(__dirname, 'demo', 'participant.js'), [appId, appVersion, defaultAppId], {
            env: { ...process.env, BRIVON_BUS: bus },
        });
        this.joined = new Promise((resolve) => {
            this.process.on('message', (report) => this.#take(report, resolve));
        });
        this.gone = once(this.process, 'exit');
    }

    #take({ event, ...report }, joined) {
        if (event === 'answer') {
            this.#answers.get(report.id)(report.value);
            this.#answers.delete(report.id);
        } else if (event === 'joined') {
            this.endpoint = report.endpoint;
            this.id = report.endpoint.slice(1, -1).split(',')[2];
            joined();
        } else {
            this.heard.push({ event, ...report });
        }
    }

    call(method, ...args) {
        const id = this.#nextId++;
        return new Promise((resolve) => {
            this.#answers.set(id, resolve);
            this.process.send({ id, method, args });
        });
    }
}

const say = (text = '') => console.log(text);
const chapter = (title) => say(`\n— ${title}`);

// Resolves once the condition holds; it is looked at whenever a participant reports, and every few milliseconds.
async function until(what, condition) {
    const limit = Date.now() + STEP_LIMIT_MS;
    while (!(await condition())) {
        if (Date.now() > limit) throw new Error(`in vain: waited for ${what}`);
        await new Promise((resolve) => setTimeout(resolve, 10));
    }
}

async function main() {
    chapter('Two applications join the bus: notes, and calendar in two versions');
    const notes = new Participant('notes', 'notes', '1.0', 'calendar');
    const old = new Participant('calendar (old)', 'calendar', '1.0', '');
    const blue = new Participant('calendar (blue)', 'calendar', '2.0', '');
    const green = new Participant('calendar (green)', 'calendar', '2.0', '');
    const everyone = [notes, old, blue, green];
    await Promise.all(everyone.map(({ joined }) => joined));
    await until('everyone to see everyone', async () => {
        const lists = await Promise.all(everyone.map((participant) => participant.call('getEndpointCacheSnapshot')));
        return lists.every((list) => list.length === everyone.length - 1);
    });
    for (const { name, endpoint, process: child } of everyone) say(`  ${name} is ${endpoint}, process ${child.pid}`);

    let unread = 0;
    // Sends one greeting and waits until exactly those have heard it who should have.
    async function send(from, to, target, receivers) {
        const payload = greetings[unread++ % greetings.length];
        say(`  ${from.name} → ${to}: ${payload}`);
        await from.call('sendMessage', 'meeting', payload, ...target);
        for (const receiver of receivers) {
            await until(`${receiver.name} to hear “${payload}”`, () => receiver.heard.length > 0);
            const { type, payload: heard, from: sender } = receiver.heard.shift();
            if (heard !== payload) throw new Error(`${receiver.name} heard ${heard} instead of ${payload}`);
            say(`    ${receiver.name} ← ${sender}: ${type}, ${heard}`);
        }
    }

    chapter('A message to one endpoint');
    await send(notes, 'calendar (blue)', ['calendar', '2.0', blue.id], [blue]);
    await send(blue, 'notes', ['notes', '1.0', notes.id], [notes]);

    chapter('Messages to an application, whichever version');
    for (let i = 0; i < 3; ++i) await send(notes, 'every calendar', [], [old, blue, green]);

    chapter('Messages to one version of it');
    for (let i = 0; i < 3; ++i) await send(notes, 'every calendar 2.0', ['calendar', '2.0'], [blue, green]);

    chapter('Messages to everyone, for no endpoint of that application is known');
    for (let i = 0; i < 3; ++i) await send(green, 'everyone', ['mail'], [notes, old, blue]);

    chapter('calendar (green) is killed');
    say(`  notes knows ${(await notes.call('getEndpointCacheSnapshot')).join(' ')}`);
    green.process.kill('SIGKILL');
    await green.gone;
    say(`  notes → calendar (green): ${greetings[0]}`);
    await notes.call('sendMessage', 'meeting', greetings[0], 'calendar', '2.0', green.id);
    await until('the error to come back', () => notes.heard.length > 0);
    const { event, error, fault } = notes.heard.shift();
    if (event !== 'error' || fault !== green.endpoint) throw new Error(`notes heard ${event} about ${fault}`);
    say(`    notes ← the bus: ${error}: ${fault}`);

    await notes.call('forceRefreshEndpoints');
    await until('the endpoint lists to lose it', async () => {
        const lists = await Promise.all([notes, old, blue].map((one) => one.call('getEndpointCacheSnapshot')));
        return lists.every((list) => !list.includes(green.endpoint));
    });
    say(`  notes knows ${(await notes.call('getEndpointCacheSnapshot')).join(' ')}`);
    await send(notes, 'every calendar 2.0', ['calendar', '2.0'], [blue]);

    for (const { name, heard } of everyone)
        if (heard.length > 0) throw new Error(`${name} heard what it should not have: ${JSON.stringify(heard)}`);
    say('\nEverything that was sent has arrived where it should, and nowhere else.');
}

setTimeout(() => {
    console.error('the demo has run out of time');
    process.exit(1);
}, TIME_LIMIT_MS).unref();

// The participants end when their parent does.
main()
    .then(() => control({ say, chapter, until }))
    .then(
        () => process.exit(0),
        (failure) => {
            console.error(failure.message);
            process.exit(1);
        },
    );
